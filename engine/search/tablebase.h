// Engine-side wrappers of the Syzygy prober: the WDL probe inside the tree and the DTZ probe
// that picks the move at the root.
#pragma once

#include <string>
#include <vector>

#include "engine/board/position.h"

// Pieces in the largest table loaded, 0 when none: a copy of the prober's own count, kept here so
// that the search tests it without reaching into the prober.
extern int tablebaseLargest;

// Releases the tables of an earlier path, then loads those under `path` (directories separated
// by ':'; empty or "<empty>" loads none). The prober prints how many it found.
void tablebaseInit(const std::string& path);
// Releases every table.
void tablebaseFree();

// WDL + 2 from the side to move's view (0 loss, 1 blessed loss, 2 draw, 3 cursed win, 4 win),
// or -1 when the probe failed. The fifty-move counter is taken as 0 inside the tree.
int syzygyProbeWDL(int ply, const positionStruct* pos);
// The move to play at the root by the tables (fourth byte: moving piece), or EMPTYMOVE; prints
// the tablebase root line when it succeeds. A move that "go searchmoves" leaves out (when
// allowed is not empty) is not played: the probe then gives EMPTYMOVE and prints nothing.
moveStruct syzygyProbeDTZ(const positionStruct* pos, const std::vector<moveStruct>& allowed);
