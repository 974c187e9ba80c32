// Move text: long algebraic output, reading moves against the board, and the PV string.
#include <gtest/gtest.h>

#include "tests/testutil.h"

namespace {

TEST(MoveToLA, PrintsSquaresAndPromotionLetters) {
    const struct {
        const char* from;
        const char* to;
        int kind;
        int side;
        const char* text;
    } cases[] = {
        {"e2", "e4", KIND_DOUBLE_STEP, 0, "e2e4"},     {"g8", "f6", KIND_NORMAL, 1, "g8f6"},
        {"e5", "d5", KIND_ENPASSANT, 0, "e5d6"},       {"d4", "e4", KIND_ENPASSANT, 1, "d4e3"},
        {"a5", "b5", KIND_ENPASSANT, 0, "a5b6"},       {"h4", "g4", KIND_ENPASSANT, 1, "h4g3"},
        {"e1", "g1", KIND_CASTLE_KING, 0, "e1g1"},     {"e8", "c8", KIND_CASTLE_QUEEN, 1, "e8c8"},
        {"e7", "e8", KIND_PROMOTE_QUEEN, 0, "e7e8q"},  {"b7", "a8", KIND_PROMOTE_ROOK, 0, "b7a8r"},
        {"c2", "c1", KIND_PROMOTE_BISHOP, 1, "c2c1b"}, {"a2", "a1", KIND_PROMOTE_KNIGHT, 1, "a2a1n"},
        {"h7", "h8", KIND_PROMOTE_KNIGHT, 0, "h7h8n"}, {"a1", "a1", KIND_NORMAL, 0, "a1a1"},
    };
    for (const auto& c : cases) {
        moveStruct m = makeMoveRecord(sq(c.from), sq(c.to), c.kind, 77);
        EXPECT_EQ(moveToLA(&m, static_cast<unsigned char>(c.side)), c.text);
    }
}

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
        {fenStartPos, "e2e", false, "", "", 0},
        {fenStartPos, "", false, "", "", 0},
        {fenStartPos, "e2e4qq", false, "", "", 0},
        {fenStartPos, "i2e4", false, "", "", 0},
        {fenStartPos, "e2e9", false, "", "", 0},
        {"3rk3/4P3/8/8/8/8/8/4K3 w - - 0 1", "e7e8x", false, "", "", 0},
        {"3rk3/4P3/8/8/8/8/8/4K3 w - - 0 1", "e7e8k", false, "", "", 0},
        {"3rk3/4P3/8/8/8/8/8/4K3 w - - 0 1", "e7e8p", false, "", "", 0},
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

// Every legal move printed and read back gives the same from, to and kind.
TEST(MoveFromText, RoundTripsEveryLegalMove) {
    const char* fens[] = {
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/Pp2P3/2N2Q1p/1PPBBPPP/R3K2R b KQkq a3 0 1",
        "r3k2r/Pppp1ppp/1b3nbN/nP6/BBP1P3/q4N2/Pp1P2PP/R2Q1RK1 w kq - 0 1",
        "n1n5/PPPk4/8/8/8/8/4Kppp/5N1N b - - 0 1",
        "4k3/8/8/2PpP3/8/8/8/4K3 w - d6 0 1",
        "4k3/8/8/8/3pPp2/8/8/4K3 b - e3 0 1",
    };
    for (const char* fen : fens) {
        testPosition p(fen);
        generateMovesLegal(0, p->plyState[0].moveList, p.get());
        for (moveStruct m : listMoves(p.get(), 0)) {
            std::string text = moveToLA(&m, p->sideToMove);
            moveStruct back;
            ASSERT_TRUE(moveFromText(text, p.get(), &back)) << fen << " " << text;
            EXPECT_TRUE(sameMove(back, m)) << fen << " " << text;
        }
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
