// Start-up and shutdown: the one place where the constant tables, the transposition table, the
// game position and the thread pool come to life, in this order, and go away again.
#pragma once

#include <string>

// The attack tables of the board and the search's reduction table.
void initBitboardConstants();
// The Zobrist keys, then the transposition table at the Hash setting, cleared.
void initHashCodeTables();
// Prints the banner, builds the tables, sets the start position and starts the search threads.
void initEngine();
// Stops any search, ends the search threads and frees the tables.
void shutdownEngine();
// Sets the game position from a FEN the caller has checked, with its evaluation sums and its
// move list at the start of GMS.
void setGamePosition(const std::string& fen);
