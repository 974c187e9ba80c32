// Engine-side wrappers of the Syzygy prober: the WDL probe inside the tree and the DTZ probe
// that picks the move at the root.
#pragma once

#include "engine/board/position.h"
#include "fathom/tbprobe.h"

// WDL + 2 from the side to move's view (0 loss, 1 blessed loss, 2 draw, 3 cursed win, 4 win),
// or -1 when the probe failed. The fifty-move counter is taken as 0 inside the tree.
int syzygyProbeWDL(int ply, const positionStruct* pos);
// The move to play at the root by the tables (fourth byte: moving piece), or EMPTYMOVE; prints
// the tablebase root line when it succeeds.
moveStruct syzygyProbeDTZ(const positionStruct* pos);
