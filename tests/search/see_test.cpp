// Static exchange evaluation on known capture sequences, including x-rays, the king as last
// recapturer and en passant.
#include <gtest/gtest.h>

#include "engine/search/see.h"
#include "tests/testutil.h"

namespace {

// Exchange values: pawn 90, knight and bishop 325, rook 499, queen 1005.
const struct {
    const char* name;
    const char* fen;
    const char* move;
    int value;
} exchangeCases[] = {
    {"undefended pawn", "4k3/8/8/3p4/8/8/8/3RK3 w - - 0 1", "d1d5", 90},
    {"queen takes a pawn defended by a pawn", "4k3/8/2p5/3p4/8/8/8/3QK3 w - - 0 1", "d1d5", -915},
    {"knight takes a bishop defended by a pawn", "4k3/8/2p5/3b4/8/4N3/8/4K3 w - - 0 1", "e3d5", 0},
    {"rook battery x-ray", "3rk3/8/8/3p4/8/8/3R4/3RK3 w - - 0 1", "d2d5", 90},
    {"black rook battery x-ray", "3rk3/3r4/8/3P4/8/8/8/3RK3 b - - 0 1", "d7d5", 90},
    {"queen behind bishop x-ray", "4k3/8/5n2/3p4/8/1B6/Q7/4K3 w - - 0 1", "b3d5", 90},
    {"king recaptures last", "8/8/4k3/3p4/8/8/8/3RK3 w - - 0 1", "d1d5", -409},
    {"king may not recapture into an attacker", "8/8/4k3/3p4/8/8/3R4/3RK3 w - - 0 1", "d2d5", 90},
    {"en passant", "4k3/8/8/3pP3/8/8/8/4K3 w - d6 0 1", "e5d6", 90},
    {"en passant recaptured on the landing square", "4k3/2p5/8/3pP3/8/8/8/4K3 w - d6 0 1", "e5d6", 0},
    {"rook takes a knight defended by a pawn", "4k3/8/2p5/3n4/8/8/8/3RK3 w - - 0 1", "d1d5", -174},
    {"rook takes a rook defended by the king", "3rk3/8/8/8/8/8/8/3RK3 w - - 0 1", "d1d8", 0},
    {"bishop takes a knight defended by a queen", "3qk3/8/8/3n4/8/1B6/8/4K3 w - - 0 1", "b3d5", 0},
};

// The value, and the threshold test around it and far from it.
TEST(StaticExchange, ScoresKnownSequences) {
    for (const auto& c : exchangeCases) {
        testPosition p(c.fen);
        moveStruct m = legalMoveByText(p.get(), c.move);
        ASSERT_FALSE(isEmptyMove(m)) << c.name;
        EXPECT_EQ(staticExchange(p.get(), m), c.value) << c.name;
        for (int threshold : {c.value - 1, c.value, c.value + 1, -2000, 2000})
            EXPECT_EQ(exchangeAtLeast(p.get(), m, threshold), c.value >= threshold) << c.name << " " << threshold;
    }
}

}  // namespace
