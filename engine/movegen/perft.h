// Perft: leaf counts of the legal move tree.
#pragma once

#include <cstdint>

#include "engine/board/position.h"

// Deepest perft the ply stack holds: a run to depth d makes moves at plies 0 .. d - 2 and
// generates at ply d - 1, so it touches plyState[0 .. d] and d move lists.
constexpr int MAX_PERFT_DEPTH = MAX_PLY;

// Leaf nodes of the legal move tree to depth, with bulk counting at the last ply. The caller
// keeps depth <= MAX_PERFT_DEPTH and points plyState[ply].moveList at room for the lists of
// depth plies (MAX_MOVES_PER_PLY each).
uint64_t perft(int ply, int depth, positionStruct* pos);
