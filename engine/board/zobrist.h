// Zobrist hash keys: one fixed random number per piece on a square, castling rights value,
// en-passant file and black to move.
#pragma once

#include <cstdint>

// Entries 0..767 piece keys (code - 2) * 64 + square, 768..783 castling, 784..791 en-passant
// files, 792 black to move, 793..799 unused.
extern const uint64_t hashCodeRandomNumber[800];

extern uint64_t hashCodePiece[14][64];  // rows 0 and 1 (occupancy codes) stay zero
extern uint64_t hashCodeCastling[16];   // every rights value has a key, 0 included
extern uint64_t hashCodeEnpassant[8];
extern uint64_t hashCodeBlackToMove;

// Distributes hashCodeRandomNumber into the working tables.
void copyHashCodes();
