// Attack set of a piece by its type: the one place where the generators, the legality tests and
// perft turn a piece type into the squares it reaches.
#pragma once

#include "engine/board/attacks.h"
#include "engine/board/position.h"

// Squares a knight, bishop, rook, queen or king on square attacks over the given occupancy
// (pawns attack by colour: use attackByPawnTable). Any type other than KNIGHT to QUEEN is
// taken as a king.
inline bitboard attacksOf(int type, int square, bitboard occupied) {
    switch (type) {
        case KNIGHT: return knightAttackTable[square];
        case BISHOP: return bishopAttacks(square, occupied);
        case ROOK: return rookAttacks(square, occupied);
        case QUEEN: return queenAttacks(square, occupied);
        default: return kingAttackTable[square];
    }
}
