// Constant attack tables filled once at start-up: leapers, pawns, magic-bitboard sliders,
// line and mask tables. The slider lookup is inline because every hot path uses it.
#pragma once

#include "engine/board/bitboard.h"

// Per-square magic record of one slider kind.
struct magicStruct {
    bitboard* attacks;  // this square's block in bishopAttackTable / rookAttackTable
    void* spare;        // unused by the lookup
    bitboard mask;      // relevant occupancy: the rays without their edge squares
    bitboard magic;
    uint32_t shift;  // 64 - popcount(mask)
};

constexpr int BISHOP_TABLE_SIZE = 5248;
constexpr int ROOK_TABLE_SIZE = 102400;

extern bitboard knightAttackTable[64];
extern bitboard kingAttackTable[64];
extern bitboard attackByPawnTable[2][64];
extern bitboard enpassantTable[64];
extern bitboard bishopAttackAll[64];
extern bitboard rookAttackAll[64];
extern bitboard ranksAtOrAbove[2][64];
extern bitboard passedPawnsMask[2][64];
extern bitboard inBetweenSquares[64][64];
extern magicStruct bishopAttackLUT[64];
extern magicStruct rookAttackLUT[64];
extern bitboard bishopAttackTable[BISHOP_TABLE_SIZE];
extern bitboard rookAttackTable[ROOK_TABLE_SIZE];

// Fills every table above.
void initAttackTables();

inline bitboard bishopAttacks(int square, bitboard occupied) {
    const magicStruct& m = bishopAttackLUT[square];
    return m.attacks[((occupied & m.mask) * m.magic) >> m.shift];
}

inline bitboard rookAttacks(int square, bitboard occupied) {
    const magicStruct& m = rookAttackLUT[square];
    return m.attacks[((occupied & m.mask) * m.magic) >> m.shift];
}

inline bitboard queenAttacks(int square, bitboard occupied) {
    return bishopAttacks(square, occupied) | rookAttacks(square, occupied);
}
