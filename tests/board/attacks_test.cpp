// Constant attack tables: magic block layout, slider lookups against a ray walk, leaper and pawn
// tables, squares between two squares, and the late-move-reduction table.
#include <gtest/gtest.h>

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

TEST(MagicTables, BishopOnD4StopsAtTheBlockerOnE5) {
    initTables();
    EXPECT_EQ(bishopAttacks(sq("d4"), squareBit(sq("e5"))),
              squares({"e5", "c5", "b6", "a7", "c3", "b2", "a1", "e3", "f2", "g1"}));
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

struct tableCase {
    const char* name;
    const bitboard* table;
    const char* square;
    std::initializer_list<const char*> expected;
};

TEST(LeaperTables, HoldTheSquaresAttackedFromEdgesAndCentre) {
    initTables();
    const tableCase cases[] = {
        {"knight", knightAttackTable, "a1", {"b3", "c2"}},
        {"knight", knightAttackTable, "b7", {"a5", "c5", "d6", "d8"}},
        {"knight", knightAttackTable, "e4", {"d2", "f2", "c3", "g3", "c5", "g5", "d6", "f6"}},
        {"king", kingAttackTable, "a1", {"a2", "b1", "b2"}},
        {"king", kingAttackTable, "h5", {"h4", "h6", "g4", "g5", "g6"}},
        {"white pawn", attackByPawnTable[WHITE], "a2", {"b3"}},
        {"white pawn", attackByPawnTable[WHITE], "h7", {"g8"}},
        {"white pawn", attackByPawnTable[WHITE], "c8", {}},
        {"black pawn", attackByPawnTable[BLACK], "h7", {"g6"}},
        {"black pawn", attackByPawnTable[BLACK], "a2", {"b1"}},
        {"black pawn", attackByPawnTable[BLACK], "c1", {}},
        {"en passant", enpassantTable, "e4", {"d4", "f4"}},
        {"en passant", enpassantTable, "a5", {"b5"}},
        {"en passant", enpassantTable, "e3", {}},
        {"en passant", enpassantTable, "e6", {}},
        {"white passed mask", passedPawnsMask[WHITE], "e6", {"d7", "e7", "f7", "d8", "e8", "f8"}},
        {"black passed mask", passedPawnsMask[BLACK], "a3", {"a2", "b2", "a1", "b1"}},
        {"white passed mask", passedPawnsMask[WHITE], "e8", {}},
        {"black passed mask", passedPawnsMask[BLACK], "e8", {}},
    };
    for (const tableCase& c : cases) EXPECT_EQ(c.table[sq(c.square)], squares(c.expected)) << c.name << " " << c.square;
}

TEST(InBetweenSquares, HoldsTheSquaresStrictlyBetweenAlignedSquares) {
    initTables();
    const struct {
        const char* a;
        const char* b;
        std::initializer_list<const char*> expected;
    } cases[] = {
        {"a1", "h8", {"b2", "c3", "d4", "e5", "f6", "g7"}},
        {"e1", "h1", {"f1", "g1"}},
        {"d4", "d5", {}},
        {"a1", "b3", {}},
        {"a2", "h1", {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(inBetweenSquares[sq(c.a)][sq(c.b)], squares(c.expected)) << c.a << c.b;
        EXPECT_EQ(inBetweenSquares[sq(c.b)][sq(c.a)], squares(c.expected)) << c.b << c.a;
    }
    // Every pair: the squares between are those both ray walks reach from either end.
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
