// Time allocation for "go": the budgets for clock, increment, moves to go and move time.
#include <gtest/gtest.h>

#include "engine/search/engine.h"
#include "engine/uci/go.h"

namespace {

struct budgetCase {
    const char* name;
    int time, inc, movestogo, gamePly, movetime, threads, overhead;
    bool newGame;
    int soft, hard;
};

// Worked examples: every case names the rule it pins down.
const budgetCase cases[] = {
    // Middle game, no increment: n = (int)(22 * 1.37) = 30, soft = (int)(1000 / 22 * 0.66) = 29,
    // hard = min(5 * 29, 900 * 0.5) = 145.
    {"wtime1000", 1000, 0, 0, 30, 0, 1, 100, false, 29, 145},
    // A bare "go": 900 s, 30 moves to go with an unknown game ply (f = 0.66 * 1.4, which is
    // just below 0.924 in double precision).
    {"bareGo", 900000, 0, 0, 1024, 0, 1, 100, false, 27719, 138595},
    // Fixed move time: only the hard limit matters.
    {"movetime", 900000, 0, 0, 30, 1000, 1, 100, false, 10000, 1000},
    // One move to go: hard = total - overhead.
    {"movestogo1", 5000, 0, 1, 30, 0, 1, 100, false, 4015, 4900},
    // A large overhead: the soft + 1 floor (2410) would pass the 2000 ms left; both are capped.
    {"overheadCap", 3000, 0, 1, 30, 0, 1, 1000, false, 1999, 2000},
    // Short of time: remaining 5 / soft 2 <= 3 halves both (hard 2 -> 1), then hard is kept
    // at least soft + 1.
    {"shortOfTime", 105, 0, 0, 30, 0, 1, 100, false, 1, 2},
    // More than three threads use the larger fraction.
    {"fourThreads", 1000, 0, 0, 30, 0, 4, 100, false, 32, 160},
    // A new game computes timeFactor from clock / increment: r = 600 clamps to 360, giving
    // 1.75, so n = 70 and total = 60000 + 100 * 69.
    {"newGameFastClock", 60000, 100, 0, 10, 0, 1, 100, true, 1103, 5515},
    // r = 60 clamps to 100, giving 1.37: n = 54, total = 60000 + 1000 * 53.
    {"newGameSlowClock", 60000, 1000, 0, 10, 0, 1, 100, true, 1864, 9320},
};

}  // namespace

TEST(TimeAllocation, WorkedExamples) {
    for (const budgetCase& c : cases) {
        engine.time[0] = c.time;
        engine.inc[0] = c.inc;
        engine.movestogoGiven = c.movestogo > 0;
        engine.movestogo = c.movestogo > 0 ? c.movestogo : 30;
        engine.gamePly = c.gamePly;
        engine.movetime = c.movetime;
        engine.nofThreads = c.threads;
        engine.moveOverhead = c.overhead;
        engine.ponderOption = false;
        engine.newGame = c.newGame;
        if (!c.newGame) engine.timeFactor = 1.37f;
        allocateTime(0);
        EXPECT_EQ(engine.softTime, c.soft) << c.name;
        EXPECT_EQ(engine.hardTime, c.hard) << c.name;
        // Short of time the search also stops sooner between iterations.
        EXPECT_EQ(engine.timeScale, std::string(c.name) == "shortOfTime" ? 5.0f : 1.0f) << c.name;
    }
    engine.nofThreads = 1;
}

// Each side plans with its own clock and increment only: the other side's, very different, must
// not leak in. Same budgets as the newGameSlowClock example, whichever side is to move.
TEST(TimeAllocation, FollowsTheSideToMovesOwnClock) {
    for (int side : {0, 1}) {
        engine.time[side] = 60000;
        engine.inc[side] = 1000;
        engine.time[side ^ 1] = 1000;
        engine.inc[side ^ 1] = 0;
        engine.movestogoGiven = false;
        engine.movestogo = 30;
        engine.gamePly = 10;
        engine.movetime = 0;
        engine.moveOverhead = 100;
        engine.ponderOption = false;
        engine.newGame = true;
        allocateTime(side);
        EXPECT_EQ(engine.softTime, 1864) << "side " << side;
        EXPECT_EQ(engine.hardTime, 9320) << "side " << side;
    }
}

// A number with junk or none is refused and leaves the value; too large ones are clamped.
TEST(GoArguments, NumbersAreParsedAndClamped) {
    int v = 7;
    EXPECT_FALSE(parseInt("12x", &v) || parseInt("", &v));
    EXPECT_EQ(v, 7);
    EXPECT_TRUE(parseInt("-250", &v) && v == -250) << v;
    EXPECT_TRUE(parseInt("99999999999", &v) && v == 2147483647) << v;
    unsigned long long n = 0;
    EXPECT_TRUE(parseUint64("18446744073709551616", &n) && n == 18446744073709551615ULL) << n;
}
