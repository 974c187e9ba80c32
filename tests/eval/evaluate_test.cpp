// Static evaluation: packed mg/eg scores, tapered values of known positions, rounding toward
// zero, and colour symmetry. Make/unmake keep the phase (makemove_test).
#include <gtest/gtest.h>

#include "engine/eval/evaluate.h"
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

// The phase is the non-pawn material (N 332, B 361, R 462, Q 1031); from 6198 on the middle-game
// half alone counts, up to 502 the end-game half alone.
TEST(Evaluate, GivesKnownValuesFromTheSideToMove) {
    const struct {
        const char* fen;
        int phase;
        int score;
    } cases[] = {
        // Symmetric: only the side-to-move bonus, 25 in the middle game and 17 in the end game.
        {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1", 6682, 25},
        {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR b KQkq - 0 1", 6682, 25},
        {"4k3/8/8/8/8/8/8/4K3 w - - 0 1", 0, 17},
        {"4k3/8/8/8/8/8/8/4K3 b - - 0 1", 0, 17},
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
    for (auto [fen, mirrored] :
         {std::pair{"r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
                    "r3k2r/pppbbppp/2n2q1P/1P2p3/3pn3/BN2PNP1/P1PPQPB1/R3K2R b KQkq - 0 1"},
          std::pair{"8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1", "8/4p1p1/8/1r3P1K/kp5R/3P4/2P5/8 b - - 0 1"}}) {
        testPosition a(fen), b(mirrored);
        EXPECT_EQ(evaluateN(0, a.get()), evaluateN(0, b.get())) << fen;
    }
}

}  // namespace
