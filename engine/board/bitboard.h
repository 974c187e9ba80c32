// Bitboard type and the bit helpers used by every hot path (bit n = square n, a1 = 0, h8 = 63).
#pragma once

#include <cstdint>

typedef uint64_t bitboard;

constexpr bitboard FILE_A = 0x0101010101010101ULL;
constexpr bitboard FILE_H = FILE_A << 7;
constexpr bitboard RANK_1 = 0xFFULL;
constexpr bitboard RANK_2 = RANK_1 << 8;
constexpr bitboard RANK_3 = RANK_1 << 16;
constexpr bitboard RANK_6 = RANK_1 << 40;
constexpr bitboard RANK_7 = RANK_1 << 48;
constexpr bitboard RANK_8 = RANK_1 << 56;

inline bitboard squareBit(int square) { return 1ULL << square; }

inline int popCount(bitboard b) { return __builtin_popcountll(b); }

// Lowest set bit; b must not be empty.
inline int lowestSquare(bitboard b) { return __builtin_ctzll(b); }

// Returns the lowest set bit and clears it; b must not be empty.
inline int popLowestSquare(bitboard& b) {
    int square = __builtin_ctzll(b);
    b &= b - 1;
    return square;
}

inline bool moreThanOne(bitboard b) { return (b & (b - 1)) != 0; }
