// Move text: reading moves against the board and the PV string. Every legal move of the move
// generator trees is also printed and read back (staged_test).
#include <gtest/gtest.h>

#include "tests/testutil.h"

namespace {

TEST(MoveFromText, DecidesTheKindFromTheBoard) {
    const struct {
        const char* fen;
        const char* text;
        bool ok;
        const char* from;
        const char* to;
        int kind;
    } cases[] = {
        {fenStartPos, "e2e4", true, "e2", "e4", KIND_DOUBLE_STEP},
        {"4k3/8/8/3pP3/8/8/8/4K3 w - d6 0 1", "e5d6", true, "e5", "d5", KIND_ENPASSANT},
        {"4k3/8/8/8/3pP3/8/8/4K3 b - e3 0 1", "d4e3", true, "d4", "e4", KIND_ENPASSANT},
        {"4k3/8/3p4/4P3/8/8/8/4K3 w - - 0 1", "e5d6", true, "e5", "d6", KIND_NORMAL},
        {"r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1", "e1g1", true, "e1", "g1", KIND_CASTLE_KING},
        {"r3k2r/8/8/8/8/8/8/R3K2R b KQkq - 0 1", "e8c8", true, "e8", "c8", KIND_CASTLE_QUEEN},
        {"4k3/8/8/8/8/8/8/4R1K1 w - - 0 1", "e1c1", true, "e1", "c1", KIND_NORMAL},
        {"3rk3/4P3/8/8/8/8/8/4K3 w - - 0 1", "e7e8q", true, "e7", "e8", KIND_PROMOTE_QUEEN},
        {"4k3/8/8/8/8/8/p7/4K3 b - - 0 1", "a2a1r", true, "a2", "a1", KIND_PROMOTE_ROOK},
        {"4k3/8/8/8/8/8/p7/4K3 b - - 0 1", "a2a1b", true, "a2", "a1", KIND_PROMOTE_BISHOP},
        {"4k3/8/8/8/8/8/p7/4K3 b - - 0 1", "a2a1n", true, "a2", "a1", KIND_PROMOTE_KNIGHT},
        {fenStartPos, "e2e", false, "", "", 0},
        {fenStartPos, "", false, "", "", 0},
        {fenStartPos, "e2e4qq", false, "", "", 0},
        {fenStartPos, "i2e4", false, "", "", 0},
        {fenStartPos, "e2e9", false, "", "", 0},
        {"3rk3/4P3/8/8/8/8/8/4K3 w - - 0 1", "e7e8x", false, "", "", 0},
        {"3rk3/4P3/8/8/8/8/8/4K3 w - - 0 1", "e7e8k", false, "", "", 0},
        {"3rk3/4P3/8/8/8/8/8/4K3 w - - 0 1", "e7e8p", false, "", "", 0},
        // A promotion letter on any other move is refused, not read as that move.
        {fenStartPos, "e2e4q", false, "", "", 0},
        {"4k3/8/8/3pP3/8/8/8/4K3 w - d6 0 1", "e5d6q", false, "", "", 0},
        {"r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1", "e1g1q", false, "", "", 0},
        {fenStartPos, "g1f3n", false, "", "", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.fen) + " " + c.text);
        testPosition p(c.fen);
        moveStruct m = makeMoveRecord(1, 2, 3, 4);
        ASSERT_EQ(moveFromText(c.text, p.get(), &m), c.ok);
        if (!c.ok) continue;
        EXPECT_EQ(m.from, sq(c.from));
        EXPECT_EQ(m.to, sq(c.to));
        EXPECT_EQ(m.kind, c.kind);
    }
}

TEST(PVToString, PrintsEachMoveWithTheSideThatPlaysIt) {
    testPosition p("r3k3/8/8/8/3p4/8/4P3/4K3 b q - 0 1");
    p->pv[0] = makeMoveRecord(sq("d4"), sq("e4"), KIND_ENPASSANT);
    p->pv[1] = makeMoveRecord(sq("e5"), sq("d5"), KIND_ENPASSANT);
    p->pv[2] = makeMoveRecord(sq("e8"), sq("c8"), KIND_CASTLE_QUEEN);
    p->pvLength = 3;
    EXPECT_EQ(PVToString(p.get()), "d4e3 e5d6 e8c8 ");
    p->pvLength = 1;
    EXPECT_EQ(PVToString(p.get()), "d4e3 ");
}

}  // namespace
