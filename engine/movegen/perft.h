// Perft: leaf counts of the legal move tree, the "perft" command and the "rtest" self-check.
#pragma once

#include <cstdint>
#include <string>

#include "engine/board/position.h"

// Leaf nodes of the legal move tree to depth, with bulk counting at the last ply.
uint64_t perft(int ply, int depth, positionStruct* pos);
// Prints the board, times one perft run of fen ("current" = the game position) and reports.
void testFenPosition(int depth, const std::string& fen);
// Replays the perft file; true when every line matched.
bool checkMoveGenWithPerft();
// Same, on a given file (the build-time path is the default).
bool checkMoveGenWithPerft(const std::string& path);
