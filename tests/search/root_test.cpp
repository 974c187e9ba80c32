// The aspiration windows of the root search: how an iteration's window opens and widens after
// each failure.
#include <gtest/gtest.h>

#include "engine/search/root.h"

namespace {

const int16_t widths[5] = {15, 35, 40, 80, 160};

TEST(Aspiration, OpensFullBelowDepthSixElseAroundThePreviousScore) {
    const struct {
        int depth, previous, alpha, beta;
    } cases[] = {
        {5, 100, -32767, 32767},
        {6, 100, 85, 115},
        {6, 32760, 32745, 32767},  // clamped to the score range
        {6, -32760, -32767, -32745},
    };
    for (const auto& c : cases) {
        aspirationWindow w = openWindow(c.depth, c.previous, widths);
        EXPECT_EQ(w.alpha, c.alpha) << c.depth << " " << c.previous;
        EXPECT_EQ(w.beta, c.beta) << c.depth << " " << c.previous;
    }
}

// A run of failures from the window (85, 115) at depth 6: 'L' a fail low, 'H' a fail high at
// the given score, and the window and depth reduction after it.
TEST(Aspiration, WidensAfterEachFailureByTheNextWidth) {
    const struct {
        const char* name;
        std::vector<std::pair<char, int>> fails;
        int alpha, beta, reduction;
    } cases[] = {
        {"one low: beta to the middle", {{'L', 80}}, 80 - 35, 100, 0},
        {"two lows", {{'L', 80}, {'L', 30}}, 30 - 40, (45 + 100) / 2, 0},
        {"five lows: mated bound", {{'L', 80}, {'L', 30}, {'L', -20}, {'L', -100}, {'L', -300}}, -32000, -147, 0},
        {"one high: shallower", {{'H', 120}}, 85, 120 + 35, 1},
        {"two highs", {{'H', 120}, {'H', 160}}, 85, 160 + 40, 2},
        {"four highs", {{'H', 120}, {'H', 160}, {'H', 210}, {'H', 300}}, 85, 300 + 160, 4},
        {"five highs: mate bound", {{'H', 120}, {'H', 160}, {'H', 210}, {'H', 300}, {'H', 470}}, 85, 32000, 5},
        {"a low after a high searches the whole depth", {{'H', 120}, {'L', 90}}, 90 - 35, 120, 0},
    };
    for (const auto& c : cases) {
        aspirationWindow w = openWindow(6, 100, widths);
        for (auto [kind, score] : c.fails) {
            if (kind == 'L')
                widenAfterFailLow(w, score, widths);
            else
                widenAfterFailHigh(w, score, widths);
        }
        EXPECT_EQ(w.alpha, c.alpha) << c.name;
        EXPECT_EQ(w.beta, c.beta) << c.name;
        EXPECT_EQ(w.reduction, c.reduction) << c.name;
    }
}

}  // namespace
