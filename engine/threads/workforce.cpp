// The thread pool: thread bodies, parking, the hand-over of a search, and the boss's choice
// and report of the result.
#include "engine/threads/workforce.h"

#include <cstring>
#include <ctime>
#include <iostream>
#include <sstream>
#include <system_error>

#include "engine/search/engine.h"
#include "engine/search/root.h"
#include "engine/search/search.h"
#include "engine/search/tt.h"
#include "engine/util/output.h"

workForce theWorkForce;

namespace {

uint32_t searchCounter = 0;  // number of searches started, steers the hash age

}  // namespace

worker::worker(int id) : workerId(id) {
    std::memset(static_cast<void*>(&rootPosition), 0, sizeof(rootPosition));
    position = &rootPosition;
    rootPosition.search = &searchData;
    rootPosition.workerId = id;
    searchData.control = &theWorkForce;
    rootPosition.stopFlag = &theWorkForce.stopSearch;
    startThread();  // returns once the new thread is parked
}

void worker::prepareSearch(const positionStruct& game) {
    rootPosition = game;
    rootPosition.search = &searchData;
    rootPosition.workerId = workerId;
    rootPosition.stopFlag = &theWorkForce.stopSearch;
    rootPosition.plyState[0].moveList = searchData.moveBuffer;
    rootPosition.nodeCount = rootPosition.qNodeCount = rootPosition.tbHits = 0;
    rootPosition.selDepth = 0;
    rootPosition.pvLength = 0;
    searchData.progress.nodes.store(0, std::memory_order_relaxed);
    searchData.progress.tbHits.store(0, std::memory_order_relaxed);
    searchData.progress.depth.store(0, std::memory_order_relaxed);
}

void worker::searchRoot() { ::searchRoot(position); }

void workForce::setNofWorkers(int n) {
    if (!workers.empty()) {
        workers[0]->waitToTakeABreak();  // the boss waits for all others before it goes idle
        while (!workers.empty()) {
            delete workers.back();
            workers.pop_back();
        }
        progress.clear();
    }
    if (n < 1) return;
    workers.push_back(new boss());
    // Each thread carries a few megabytes of tables: on a small machine stop adding threads
    // when memory runs out rather than fail.
    try {
        while (static_cast<int>(workers.size()) < n) workers.push_back(new worker(static_cast<int>(workers.size())));
    } catch (const std::exception&) {
    }
    for (worker* w : workers) {
        clearSearchHistory(&w->searchData);
        progress.push_back(&w->searchData.progress);
    }
}

bool isSearching() {
    if (theWorkForce.workers.empty()) return false;
    worker* leader = theWorkForce.workers[0];
    if (theWorkForce.searchReported.load(std::memory_order_acquire)) {
        leader->waitToTakeABreak();
        return false;
    }
    std::lock_guard<std::mutex> lock(leader->officeMutex);
    return leader->hasWork;
}

void clearAllHistories() {
    for (worker* w : theWorkForce.workers) clearSearchHistory(&w->searchData);
}

void startSearch() {
    boss* leader = static_cast<boss*>(theWorkForce.workers[0]);
    leader->waitToTakeABreak();
    hashAgeCounter = static_cast<uint8_t>(searchCounter++ & 63);
    theWorkForce.stopSearch.store(false, std::memory_order_relaxed);
    theWorkForce.bossFinished.store(false, std::memory_order_relaxed);
    theWorkForce.searchShared.store(0, std::memory_order_relaxed);
    theWorkForce.searchReported.store(false, std::memory_order_relaxed);
    for (worker* w : theWorkForce.workers) w->prepareSearch(GPSData);
    leader->wake();
}

void boss::searchRoot() {
    rememberedBest = EMPTYMOVE;
    rememberedPonder = EMPTYMOVE;
    std::vector<worker*>& team = theWorkForce.workers;
    for (size_t i = 1; i < team.size(); i++) team[i]->wake();

    worker::searchRoot();
    rememberedBest = position->bestMove;
    rememberedPonder = position->pvHasPonder ? position->ponderMove : EMPTYMOVE;
    theWorkForce.bossFinished.store(true, std::memory_order_relaxed);

    // A finished ponder or infinite search holds its result back until "stop" or "ponderhit".
    while (!searchStopped()) {
        if (!theWorkForce.ponderSearch.load(std::memory_order_relaxed) &&
            !engine.infinite.load(std::memory_order_relaxed))
            break;
        struct timespec pause = {0, 1000000};
        while (nanosleep(&pause, &pause) != 0) {
        }
    }
    stopTheSearch();
    for (size_t i = 1; i < team.size(); i++) team[i]->waitToTakeABreak();

    // Choose the reporting thread: the deepest finished iteration, ties (and any score above
    // the mate threshold) going to the higher score.
    worker* chosen = this;
    if (engine.nofThreads > 1 && engine.depth == 0) {
        int bestKey = 2 * position->completedDepth + position->iterationDone;
        for (worker* w : team) {
            const positionStruct* p = w->position;
            int key = 2 * p->completedDepth + p->iterationDone;
            if (key != bestKey && p->rootScore <= MATE_THRESHOLD) {
                if (key > bestKey) {
                    chosen = w;
                    bestKey = key;
                }
            } else if (chosen->position->rootScore < p->rootScore) {
                chosen = w;
                bestKey = key;
            }
        }
    }

    uint64_t nodes = 0;
    theWorkForce.tbHitsTotal = 0;
    for (worker* w : team) {
        nodes += w->ownNodes();
        theWorkForce.tbHitsTotal += w->position->tbHits;
    }
    positionStruct* result = chosen->position;
    if (chosen != this && !isEmptyMove(result->bestMove)) {
        int64_t elapsed = searchElapsedMs(engine);
        say(infoScoreLine(result->rootScore, result->completedDepth, result->selDepth, nodes, theWorkForce.tbHitsTotal,
                          elapsed, PVToString(result)));
    }

    moveStruct best = result->bestMove;
    std::string line = "bestmove ";
    line += isEmptyMove(best) ? std::string("0000") : moveToLA(&best, result->sideToMove);
    moveStruct ponder = EMPTYMOVE;
    if (result->pvHasPonder)
        ponder = result->ponderMove;
    else if (!isEmptyMove(best) && sameMove(best, rememberedBest))
        ponder = rememberedPonder;
    if (!isEmptyMove(ponder)) line += " ponder " + moveToLA(&ponder, result->sideToMove ^ 1);
    theWorkForce.searchReported.store(true, std::memory_order_release);
    say(line);
}
