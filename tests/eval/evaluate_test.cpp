// Static evaluation: packed mg/eg scores, tapered values of known positions, rounding toward
// zero, and the phase change of promotions.
#include <gtest/gtest.h>

#include "engine/eval/evaluate.h"
#include "engine/movegen/makemove.h"
#include "tests/testutil.h"

namespace {

TEST(PackedScore, SplitsAndAddsWithNegativeHalves) {
    const struct {
        int mg, eg;
    } cases[] = {{0, 0},          {25, 17},        {-5, -3}, {5, -3},       {-5, 3},
                 {-32768, 32767}, {32767, -32768}, {-1, -1}, {12000, 12000}};
    for (const auto& a : cases) {
        EXPECT_EQ(mgHalf(packScore(a.mg, a.eg)), a.mg) << a.mg << "/" << a.eg;
        EXPECT_EQ(egHalf(packScore(a.mg, a.eg)), a.eg) << a.mg << "/" << a.eg;
    }
    int32_t sum = packScore(-100, 50) + packScore(30, -70) - packScore(-20, 5);
    EXPECT_EQ(mgHalf(sum), -50);
    EXPECT_EQ(egHalf(sum), -25);
}

TEST(Evaluate, GivesKnownValuesFromTheSideToMove) {
    const struct {
        const char* fen;
        int phase;
        int score;
    } cases[] = {
        {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1", 6682, 25},
        {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR b KQkq - 0 1", 6682, 25},
        {"4k3/8/8/8/8/8/8/4K3 w - - 0 1", 0, 17},
        {"4k3/8/8/8/8/8/8/4K3 b - - 0 1", 0, 17},
        {"r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1", 6682, 37},
        {"rnbq1k1r/pp1Pbppp/2p5/8/2B5/8/PPP1NnPP/RNBQK2R w KQ - 1 8", 6682, 17},
        // Phases inside the blend range.
        {"8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1", 924, 64},
        {"4k3/8/8/8/8/8/8/3QK3 b - - 0 1", 1031, -929},
        // Only pawns: the end-game half alone.
        {"4k3/pppp4/8/8/8/8/PPP5/4K3 w - - 0 1", 0, -84},
        {"4k3/pppp4/8/8/8/8/PPP5/4K3 b - - 0 1", 0, 118},
        {"4k3/8/8/3p4/8/8/PP6/4K3 w - - 0 1", 0, 138},
        // Negative blends divide toward zero: -2438 / 5696 is 0, -16556 is -2, -44548 is -7.
        {"4k3/6N1/8/3r4/3R4/8/2n5/4K3 w - - 0 1", 1588, 0},
        {"4k3/8/3N4/3r4/3R4/8/2n5/4K3 b - - 0 1", 1588, 0},
        {"4k3/8/8/3r4/3R4/8/Nn6/4K3 w - - 0 1", 1588, -2},
        {"4k3/8/8/3r4/3R1N2/8/3n4/4K3 b - - 0 1", 1588, 7},
    };
    for (const auto& c : cases) {
        testPosition p(c.fen);
        EXPECT_EQ(p->phase, c.phase) << c.fen;
        EXPECT_EQ(evaluateN(0, p.get()), c.score) << c.fen;
    }
}

TEST(Evaluate, MirroredPositionScoresTheSameForTheOtherSide) {
    const struct {
        const char* fen;
        const char* mirrored;
    } cases[] = {
        {"r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
         "r3k2r/pppbbppp/2n2q1P/1P2p3/3pn3/BN2PNP1/P1PPQPB1/R3K2R b KQkq - 0 1"},
        {"8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1", "8/4p1p1/8/1r3P1K/kp5R/3P4/2P5/8 b - - 0 1"},
    };
    for (const auto& c : cases) {
        testPosition a(c.fen), b(c.mirrored);
        EXPECT_EQ(evaluateN(0, a.get()), evaluateN(0, b.get())) << c.fen;
    }
}

TEST(Evaluate, PromotionRaisesThePhaseByThePromotedPiece) {
    const struct {
        const char* fen;
        const char* move;
        int change;
    } cases[] = {
        {"r3k3/1P6/8/8/8/8/8/4K3 w - - 0 1", "b7b8q", 1031},
        {"r3k3/1P6/8/8/8/8/8/4K3 w - - 0 1", "b7b8r", 462},
        {"r3k3/1P6/8/8/8/8/8/4K3 w - - 0 1", "b7b8b", 361},
        {"r3k3/1P6/8/8/8/8/8/4K3 w - - 0 1", "b7b8n", 332},
        {"r3k3/1P6/8/8/8/8/8/4K3 w - - 0 1", "b7a8q", 1031 - 462},
        {"r3k3/1P6/8/8/8/8/8/4K3 w - - 0 1", "b7a8n", 332 - 462},
        {"4k3/8/8/8/8/8/p7/1N2K3 b - - 0 1", "a2b1q", 1031 - 332},
        {"4k3/8/8/8/8/2n5/1P6/4K3 w - - 0 1", "b2c3", -332},
        {"4k3/8/8/8/8/2p5/1P6/4K3 w - - 0 1", "b2c3", 0},
    };
    for (const auto& c : cases) {
        testPosition p(c.fen);
        int before = p->phase;
        moveStruct m = legalMoveByText(p.get(), c.move);
        ASSERT_FALSE(isEmptyMove(m)) << c.fen << " " << c.move;
        makeMove(p.get(), 0, m);
        EXPECT_EQ(p->phase - before, c.change) << c.fen << " " << c.move;
        unmakeMove(p.get(), 0, m);
        EXPECT_EQ(p->phase, before);
    }
}

}  // namespace
