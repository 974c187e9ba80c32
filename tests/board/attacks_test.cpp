// Constant attack tables: magic block layout, slider lookups against a ray walk, leaper and pawn
// tables, squares between two squares, and the late-move-reduction table.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "engine/search/tables.h"
#include "tests/testutil.h"

namespace {

bitboard squares(std::initializer_list<const char*> names) {
    bitboard b = 0;
    for (const char* n : names) b |= squareBit(sq(n));
    return b;
}

// Attacks found by stepping along each direction until the first occupied square (included).
bitboard walkRays(int square, bitboard occupied, bool diagonal) {
    static const int diagonalSteps[4][2] = {{1, 1}, {1, -1}, {-1, 1}, {-1, -1}};
    static const int straightSteps[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
    const int(*steps)[2] = diagonal ? diagonalSteps : straightSteps;
    bitboard result = 0;
    for (int d = 0; d < 4; d++) {
        for (int f = (square & 7) + steps[d][0], r = (square >> 3) + steps[d][1]; f >= 0 && f < 8 && r >= 0 && r < 8;
             f += steps[d][0], r += steps[d][1]) {
            result |= squareBit(f + 8 * r);
            if (occupied & squareBit(f + 8 * r)) break;
        }
    }
    return result;
}

TEST(MagicTables, BlocksHaveTheSizeOfTheirMaskAndFillTheTables) {
    initTables();
    EXPECT_EQ(64 - rookAttackLUT[sq("a1")].shift, 12u);   // 4096 entries
    EXPECT_EQ(64 - bishopAttackLUT[sq("d4")].shift, 9u);  // 512 entries
    EXPECT_EQ(rookAttackLUT[sq("a1")].mask,
              squares({"a2", "a3", "a4", "a5", "a6", "a7", "b1", "c1", "d1", "e1", "f1", "g1"}));
    const magicStruct* luts[2] = {rookAttackLUT, bishopAttackLUT};
    const bitboard* tables[2] = {rookAttackTable, bishopAttackTable};
    const int sizes[2] = {ROOK_TABLE_SIZE, BISHOP_TABLE_SIZE};
    for (int k = 0; k < 2; k++) {
        const bitboard* next = tables[k];  // blocks lie one after the other, square by square
        for (int s = 0; s < 64; s++) {
            EXPECT_EQ(luts[k][s].attacks, next) << k << " " << s;
            EXPECT_EQ(popCount(luts[k][s].mask), static_cast<int>(64 - luts[k][s].shift)) << k << " " << s;
            next += 1 << (64 - luts[k][s].shift);
        }
        EXPECT_EQ(next, tables[k] + sizes[k]);
    }
}

TEST(MagicTables, LookupsEqualARayWalkForAllSquaresAndManyOccupancies) {
    initTables();
    std::mt19937_64 random(20240611);
    for (int s = 0; s < 64; s++) {
        for (int i = 0; i < 600; i++) {
            bitboard occupied = random();
            if (i % 3 == 1) occupied &= random();             // sparser
            if (i % 3 == 2) occupied &= random() & random();  // sparsest
            if (i == 0) occupied = 0;
            if (i == 1) occupied = ~0ULL;
            ASSERT_EQ(bishopAttacks(s, occupied), walkRays(s, occupied, true)) << "bishop " << s << " " << occupied;
            ASSERT_EQ(rookAttacks(s, occupied), walkRays(s, occupied, false)) << "rook " << s << " " << occupied;
            ASSERT_EQ(queenAttacks(s, occupied), walkRays(s, occupied, true) | walkRays(s, occupied, false));
        }
        EXPECT_EQ(bishopAttackAll[s], walkRays(s, 0, true)) << s;
        EXPECT_EQ(rookAttackAll[s], walkRays(s, 0, false)) << s;
    }
}

// Squares reached from square by (file, rank) steps that stay on the board.
bitboard stepsFrom(int square, std::initializer_list<std::pair<int, int>> steps) {
    bitboard result = 0;
    for (auto [df, dr] : steps) {
        int f = square % 8 + df, r = square / 8 + dr;
        if (f >= 0 && f < 8 && r >= 0 && r < 8) result |= squareBit(f + 8 * r);
    }
    return result;
}

// Leapers by their steps; en passant: the neighbours on the rank of a pawn that has just
// double-stepped; passed-pawn masks: the squares ahead on the own and the adjacent files (none
// for a pawn on the eighth rank, from either side's view).
TEST(LeaperTables, HoldTheSquaresOfTheirSteps) {
    initTables();
    for (int s = 0; s < 64; s++) {
        EXPECT_EQ(knightAttackTable[s],
                  stepsFrom(s, {{1, 2}, {2, 1}, {2, -1}, {1, -2}, {-1, -2}, {-2, -1}, {-2, 1}, {-1, 2}}))
            << s;
        EXPECT_EQ(kingAttackTable[s],
                  stepsFrom(s, {{1, 1}, {1, 0}, {1, -1}, {0, 1}, {0, -1}, {-1, 1}, {-1, 0}, {-1, -1}}))
            << s;
        EXPECT_EQ(attackByPawnTable[WHITE][s], stepsFrom(s, {{-1, 1}, {1, 1}})) << s;
        EXPECT_EQ(attackByPawnTable[BLACK][s], stepsFrom(s, {{-1, -1}, {1, -1}})) << s;
        EXPECT_EQ(enpassantTable[s], s / 8 == 3 || s / 8 == 4 ? stepsFrom(s, {{-1, 0}, {1, 0}}) : 0) << s;
        bitboard ahead[2] = {0, 0};
        for (int t = 0; t < 64; t++)
            if (std::abs(t % 8 - s % 8) <= 1) ahead[t / 8 < s / 8] |= t / 8 != s / 8 ? squareBit(t) : 0;
        EXPECT_EQ(passedPawnsMask[WHITE][s], ahead[WHITE]) << s;
        EXPECT_EQ(passedPawnsMask[BLACK][s], s < 56 ? ahead[BLACK] : 0) << s;
    }
}

TEST(InBetweenSquares, HoldsTheSquaresStrictlyBetweenAlignedSquares) {
    initTables();
    // The squares between are those both ray walks reach from either end; none when not aligned.
    for (int a = 0; a < 64; a++) {
        for (int b = 0; b < 64; b++) {
            bitboard expected = 0;
            for (bool diagonal : {true, false})
                if (a != b && (walkRays(a, 0, diagonal) & squareBit(b)))
                    expected = walkRays(a, squareBit(b), diagonal) & walkRays(b, squareBit(a), diagonal);
            ASSERT_EQ(inBetweenSquares[a][b], expected) << a << " " << b;
        }
    }
}

// Worked examples of r = floor(sqrt(floor(depth * (moveNumber - 2) / 11))) from the fourth move
// on, one ply for the third move at every depth, none before it.
TEST(LateMoveReductions, FollowTheRootOfDepthTimesMoveNumber) {
    initTables();
    const struct {
        int depth, moveNumber, reduction;
    } cases[] = {
        {10, 20, 4}, {127, 255, 54}, {0, 3, 1}, {1, 3, 1}, {127, 3, 1},  {127, 2, 0},   {127, 0, 0},
        {1, 4, 0},   {11, 4, 1},     {6, 4, 1}, {5, 4, 0}, {20, 57, 10}, {64, 130, 27}, {3, 255, 8},
    };
    for (const auto& c : cases) EXPECT_EQ(LMR[c.depth][c.moveNumber], c.reduction) << c.depth << " " << c.moveNumber;
    for (int m = 0; m < 256; m++) EXPECT_EQ(LMR[0][m], m == 3 ? 1 : 0) << m;
    for (int d = 0; d < 128; d++)
        for (int m = 4; m < 255; m++) ASSERT_LE(LMR[d][m], LMR[d][m + 1]) << d << " " << m;
}

}  // namespace
