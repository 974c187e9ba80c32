// The "perft" and "rtest" developer commands.
#pragma once

#include <string>

// Prints the board, times one perft run of fen ("current" = the game position) and reports.
// A depth above MAX_PERFT_DEPTH gets one info string line and no run; false then.
bool testFenPosition(int depth, const std::string& fen);
// Replays the perft file compiled in; true when every line matched. Leaves a 128 MB
// transposition table behind, whatever the Hash setting said.
bool checkMoveGenWithPerft();
// Same, on a given file.
bool checkMoveGenWithPerft(const std::string& path);
