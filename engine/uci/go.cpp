// "go": limits, the per-move time budgets and the hand-over to the search threads.
#include "engine/uci/go.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

#include "engine/board/position.h"
#include "engine/movegen/legal.h"
#include "engine/search/engine.h"
#include "engine/threads/workforce.h"
#include "engine/util/output.h"

bool parseInt(const std::string& word, int* value) {
    long long v = 0;
    if (!word.empty()) {
        unsigned long long magnitude;
        bool negative = word[0] == '-';
        if (!parseUint64(negative ? word.substr(1) : word, &magnitude)) return false;
        v = magnitude > static_cast<unsigned long long>(INT_MAX) + 1 ? static_cast<long long>(INT_MAX) + 1
                                                                     : static_cast<long long>(magnitude);
        if (negative) v = -v;
    } else {
        return false;
    }
    *value = v > INT_MAX ? INT_MAX : (v < INT_MIN ? INT_MIN : static_cast<int>(v));
    return true;
}

bool parseUint64(const std::string& word, unsigned long long* value) {
    if (word.empty() || word.size() > 40) return false;
    unsigned long long v = 0;
    for (char c : word) {
        if (c < '0' || c > '9') return false;
        unsigned long long next = v * 10 + static_cast<unsigned long long>(c - '0');
        v = (next < v || v > ULLONG_MAX / 10) ? ULLONG_MAX : next;
    }
    *value = v;
    return true;
}

namespace {

// The two fractions of the time allocation: soft scales the share of the clock per move, hard
// is the largest part of the time left that one move may use.
struct timeFractions {
    double soft;
    double hard;
};

// The budgets of one move in milliseconds, and the clock left after the move overhead.
struct timeBudgets {
    long long soft;
    long long hard;
    long long remaining;
};

// Without "movestogo": estimates the moves to go from the game ply (1024 when the game's start
// is unknown) and returns the base fraction.
double estimateMovesToGo() {
    double f = engine.nofThreads <= 3 ? 0.66 : 0.72;
    int ply = engine.gamePly;
    if (ply == 1024) {
        engine.movestogo = 30;
        f *= 1.4;
    } else if (ply <= 17) {
        engine.movestogo = 40;
    } else if (ply <= 50) {
        engine.movestogo = 22;
    } else if (ply <= 80) {
        engine.movestogo = 25;
    } else if (ply <= 200) {
        engine.movestogo = 20;
    } else {
        engine.movestogo = 15;
    }
    return f;
}

// With "movestogo": the base fraction, smaller in the opening and larger in the early middle
// game.
double givenMovesToGoFraction() {
    double f = engine.nofThreads <= 3 ? 0.73 : 0.8;
    if (engine.gamePly <= 17)
        f *= 0.9;
    else if (engine.gamePly <= 50)
        f *= 1.1;
    return f;
}

// Step 1. The soft and the hard fraction, by the moves to go or the game's progress.
timeFractions baseFractions() {
    timeFractions fractions = {0.0, 0.5};
    if (!engine.movestogoGiven) {
        fractions.soft = estimateMovesToGo();
    } else {
        fractions.soft = givenMovesToGoFraction();
        if (engine.movestogo == 1) fractions.hard = 0.9;
    }
    if (engine.movestogo < 1) engine.movestogo = 1;  // a zero or negative count would divide by zero
    return fractions;
}

// Step 2. A new game measures how much the increment is worth against the clock.
void measureTimeFactor(int s) {
    engine.newGame = false;
    int inc = engine.inc[s] > 1 ? engine.inc[s] : 1;
    int r = engine.time[s] / inc;
    r = r < 100 ? 100 : (r > 360 ? 360 : r);
    engine.timeFactor = static_cast<float>(1.37 + static_cast<float>((r - 100) * 0.0014615385f));
}

// Steps 3-5. Budgets. Divided by movestogo, not by n, deliberately.
timeBudgets budgetsFor(int s, timeFractions fractions) {
    const double f = fractions.soft, h = fractions.hard;
    int n = engine.movestogoGiven ? engine.movestogo : static_cast<int>(engine.movestogo * engine.timeFactor);
    long long total = static_cast<long long>(engine.time[s]) + static_cast<long long>(engine.inc[s]) * (n - 1);
    timeBudgets budgets;
    budgets.remaining = static_cast<long long>(engine.time[s]) - engine.moveOverhead;
    double soft = static_cast<double>(total / engine.movestogo) * f;
    budgets.soft = soft > 1.0 ? static_cast<long long>(soft) : 1;
    if (engine.movestogo == 1) {
        budgets.hard = total - engine.moveOverhead;
    } else {
        budgets.hard = 5 * budgets.soft;
        if (budgets.remaining * h <= static_cast<double>(budgets.hard))
            budgets.hard = static_cast<long long>(budgets.remaining * h);
        if (engine.movestogoGiven && engine.movestogo == 4 && budgets.hard < 40) budgets.hard = 40;
    }
    return budgets;
}

// Step 6. Short of time: halve both and let the search stop sooner between iterations.
void saveTimeWhenShort(timeBudgets* budgets) {
    if (engine.movestogoGiven || budgets->remaining / budgets->soft > 3) return;
    budgets->soft /= 2;
    budgets->hard /= 2;
    engine.timeScale = 5.0f;
}

// Step 7. A fixed move time only has a hard limit; otherwise the hard budget is capped by the
// time left but kept above the soft one.
void applyMoveTimeOrCap(timeBudgets* budgets) {
    if (engine.movetime != 0) {
        budgets->hard = engine.movetime;
        budgets->soft = 10LL * engine.movetime;
    } else {
        long long cap = budgets->remaining < budgets->hard ? budgets->remaining : budgets->hard;
        budgets->hard = budgets->soft + 1 > cap ? budgets->soft + 1 : cap;
    }
}

// Never plan past the clock: with a large overhead the floor of soft + 1 could exceed the time
// left.
void keepWithinClock(timeBudgets* budgets) {
    if (engine.movetime != 0 || budgets->hard <= budgets->remaining) return;
    budgets->hard = budgets->remaining > 1 ? budgets->remaining : 1;
    if (budgets->soft >= budgets->hard) budgets->soft = budgets->hard > 1 ? budgets->hard - 1 : 1;
}

int32_t clampedMilliseconds(long long ms) { return static_cast<int32_t>(ms > INT_MAX ? INT_MAX : (ms < 1 ? 1 : ms)); }

}  // namespace

void allocateTime(int s) {
    timeFractions fractions = baseFractions();
    if (engine.newGame) measureTimeFactor(s);
    engine.timeScale = 1.0f;
    if (engine.ponderOption) fractions.soft *= 1.1;
    timeBudgets budgets = budgetsFor(s, fractions);
    saveTimeWhenShort(&budgets);
    applyMoveTimeOrCap(&budgets);
    keepWithinClock(&budgets);
    engine.softTime = clampedMilliseconds(budgets.soft);
    engine.hardTime = clampedMilliseconds(budgets.hard);
}

void finishPreviousSearch() {
    if (theWorkForce.workers.empty()) return;
    // A search without a time limit (infinite, ponder, or a depth, node or mate limit alone)
    // is stopped rather than waited for: it might never end by itself.
    if (isSearching() && (engine.infinite.load(std::memory_order_relaxed) ||
                          theWorkForce.ponderSearch.load(std::memory_order_relaxed) || engine.noTimeLimit))
        stopTheSearch();
    theWorkForce.workers[0]->waitToTakeABreak();
}

void resetSearchLimits(int64_t startTime) {
    engine.startTime = startTime;
    engine.time[0] = engine.time[1] = 900000;  // a bare "go" still gets a budget
    engine.inc[0] = engine.inc[1] = 0;
    engine.movestogo = 30;
    engine.nodes = 0;
    engine.depth = engine.mate = engine.movetime = 0;
    engine.infinite.store(false, std::memory_order_relaxed);
    engine.movestogoGiven = false;
    engine.checkInterval = 4096;
    engine.searchMoves.clear();
    theWorkForce.ponderSearch.store(false, std::memory_order_relaxed);
}

void launchSearch(bool clockGiven, bool limitGiven, bool ponder) {
    if (engine.movestogo < 1) engine.movestogoGiven = false, engine.movestogo = 30;
    if (engine.movetime < 0) engine.movetime = 0;
    if (engine.depth < 0) engine.depth = 0;
    if (engine.mate < 0) engine.mate = 0;
    // A depth, node or mate limit without a clock searches until that limit, as GUIs expect.
    engine.noTimeLimit = limitGiven && !clockGiven;
    if (engine.nodes) {
        uint64_t interval = engine.nodes / (4 * static_cast<uint64_t>(engine.nofThreads)) + 1;
        engine.checkInterval = static_cast<int32_t>(interval < 4096 ? interval : 4096);
    }
    theWorkForce.ponderSearch.store(ponder, std::memory_order_relaxed);
    allocateTime(GPSData.sideToMove);
    startSearch();
}

namespace {

bool isGoWord(const std::string& word) {
    static const char* const goWords[] = {"searchmoves", "ponder", "wtime", "btime", "winc",     "binc",
                                          "movestogo",   "depth",  "nodes", "mate",  "movetime", "infinite"};
    for (const char* known : goWords)
        if (word == known) return true;
    return false;
}

// The legal moves among the texts of "searchmoves"; the others are named in one info line. With
// none left the whole move list is searched, and the line says so.
std::vector<moveStruct> legalSearchMoves(const std::vector<std::string>& texts) {
    std::vector<moveStruct> moves;
    std::string ignored;
    for (const std::string& text : texts) {
        moveStruct move;
        if (!legalMoveFromText(text, &GPSData, &move))
            ignored += " " + text;
        else if (std::none_of(moves.begin(), moves.end(), [move](moveStruct m) { return sameMove(m, move); }))
            moves.push_back(move);
    }
    if (moves.empty())
        say("info string searchmoves holds no legal move", ignored.empty() ? "" : ":", ignored,
            "; searching all moves");
    else if (!ignored.empty())
        say("info string searchmoves ignores moves that are not legal here:", ignored);
    return moves;
}

}  // namespace

void goCommand(std::istringstream& stream) {
    const int64_t goTime = nowMs();
    finishPreviousSearch();
    resetSearchLimits(goTime);

    const std::vector<std::string> words{std::istream_iterator<std::string>(stream),
                                         std::istream_iterator<std::string>()};
    size_t next = 0;
    // The value of a word that takes one; a "go" word in its place is the next argument instead.
    auto takeValue = [&](std::string* value) {
        if (next >= words.size() || isGoWord(words[next])) return false;
        *value = words[next++];
        return true;
    };
    bool clockGiven = false, limitGiven = false, ponder = false, searchMovesGiven = false;
    std::vector<std::string> searchMoveTexts;
    while (next < words.size()) {
        const std::string& word = words[next++];
        std::string value;
        int* target = nullptr;
        if (word == "searchmoves") {
            searchMovesGiven = true;  // the list runs up to the next "go" word
            while (takeValue(&value)) searchMoveTexts.push_back(value);
        } else if (word == "ponder") {
            ponder = true;
        } else if (word == "infinite") {
            engine.infinite.store(true, std::memory_order_relaxed);
        } else if (word == "wtime" || word == "btime" || word == "winc" || word == "binc") {
            target = word == "wtime"   ? &engine.time[0]
                     : word == "btime" ? &engine.time[1]
                     : word == "winc"  ? &engine.inc[0]
                                       : &engine.inc[1];
            clockGiven = true;
        } else if (word == "movestogo") {
            if (takeValue(&value) && parseInt(value, &engine.movestogo)) engine.movestogoGiven = true;
        } else if (word == "depth" || word == "mate") {
            // Only a limit that was read ends the search by itself.
            limitGiven |= takeValue(&value) && parseInt(value, word == "depth" ? &engine.depth : &engine.mate);
        } else if (word == "movetime") {
            target = &engine.movetime;
            clockGiven = true;
        } else if (word == "nodes") {
            unsigned long long nodes;
            if (takeValue(&value) && parseUint64(value, &nodes)) {
                engine.nodes = nodes;
                limitGiven = true;
            }
        }
        if (target && takeValue(&value)) parseInt(value, target);
    }
    if (searchMovesGiven) engine.searchMoves = legalSearchMoves(searchMoveTexts);
    launchSearch(clockGiven, limitGiven, ponder);
}
