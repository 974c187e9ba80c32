// "go": limits, the per-move time budgets and the hand-over to the search threads.
#include "engine/uci/go.h"

#include <chrono>
#include <climits>
#include <cstdlib>

#include "engine/board/position.h"
#include "engine/search/engine.h"
#include "engine/threads/workforce.h"

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

void allocateTime(int s) {
    // Step 1. Base fraction f and hard fraction h, by the moves to go or the game's progress.
    double f, h = 0.5;
    if (!engine.movestogoGiven) {
        f = engine.nofThreads <= 3 ? 0.66 : 0.72;
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
    } else {
        f = engine.nofThreads <= 3 ? 0.73 : 0.8;
        if (engine.gamePly <= 17)
            f *= 0.9;
        else if (engine.gamePly <= 50)
            f *= 1.1;
        if (engine.movestogo == 1) h = 0.9;
    }
    if (engine.movestogo < 1) engine.movestogo = 1;  // a zero or negative count would divide by zero

    // Step 2. A new game measures how much the increment is worth against the clock.
    if (engine.newGame) {
        engine.newGame = false;
        int inc = engine.inc[s] > 1 ? engine.inc[s] : 1;
        int r = engine.time[s] / inc;
        r = r < 100 ? 100 : (r > 360 ? 360 : r);
        engine.timeFactor = static_cast<float>(1.37 + static_cast<float>((r - 100) * 0.0014615385f));
    }
    engine.timeScale = 1.0f;
    if (engine.ponderOption) f *= 1.1;

    // Steps 3-5. Budgets. Divided by movestogo, not by n, deliberately.
    int n = engine.movestogoGiven ? engine.movestogo : static_cast<int>(engine.movestogo * engine.timeFactor);
    long long total = static_cast<long long>(engine.time[s]) + static_cast<long long>(engine.inc[s]) * (n - 1);
    long long remaining = static_cast<long long>(engine.time[s]) - engine.moveOverhead;
    double soft = static_cast<double>(total / engine.movestogo) * f;
    long long softTime = soft > 1.0 ? static_cast<long long>(soft) : 1;
    long long hardTime;
    if (engine.movestogo == 1) {
        hardTime = total - engine.moveOverhead;
    } else {
        hardTime = 5 * softTime;
        if (remaining * h <= static_cast<double>(hardTime)) hardTime = static_cast<long long>(remaining * h);
        if (engine.movestogoGiven && engine.movestogo == 4 && hardTime < 40) hardTime = 40;
    }

    // Step 6. Short of time: halve both and let the search stop sooner between iterations.
    if (!engine.movestogoGiven && remaining / softTime <= 3) {
        softTime /= 2;
        hardTime /= 2;
        engine.timeScale = 5.0f;
    }

    // Step 7. A fixed move time only has a hard limit.
    if (engine.movetime != 0) {
        hardTime = engine.movetime;
        softTime = 10LL * engine.movetime;
    } else {
        long long cap = remaining < hardTime ? remaining : hardTime;
        hardTime = softTime + 1 > cap ? softTime + 1 : cap;
    }
    // Never plan past the clock: with a large overhead the floor of softTime + 1 could exceed
    // the time left.
    if (engine.movetime == 0 && hardTime > remaining) {
        hardTime = remaining > 1 ? remaining : 1;
        if (softTime >= hardTime) softTime = hardTime > 1 ? hardTime - 1 : 1;
    }
    engine.softTime = static_cast<int32_t>(softTime > INT_MAX ? INT_MAX : (softTime < 1 ? 1 : softTime));
    engine.hardTime = static_cast<int32_t>(hardTime > INT_MAX ? INT_MAX : (hardTime < 1 ? 1 : hardTime));
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

void goCommand(std::istringstream& words) {
    const int64_t goTime = nowMs();
    finishPreviousSearch();
    resetSearchLimits(goTime);

    bool clockGiven = false, limitGiven = false, ponder = false;
    std::string word;
    while (words >> word) {
        int* target = nullptr;
        if (word == "ponder") {
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
            std::string value;
            if (words >> value && parseInt(value, &engine.movestogo)) engine.movestogoGiven = true;
        } else if (word == "depth") {
            target = &engine.depth;
            limitGiven = true;
        } else if (word == "mate") {
            target = &engine.mate;
            limitGiven = true;
        } else if (word == "movetime") {
            target = &engine.movetime;
            clockGiven = true;
        } else if (word == "nodes") {
            std::string value;
            unsigned long long nodes;
            if (words >> value && parseUint64(value, &nodes)) engine.nodes = nodes;
            limitGiven = true;
        }
        if (target) {
            std::string value;
            if (words >> value) parseInt(value, target);
        }
    }
    launchSearch(clockGiven, limitGiven, ponder);
}
