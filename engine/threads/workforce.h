// The search workforce: long-lived threads parked on their own mutex and condition variable,
// woken for every "go". The boss runs the main search and reports; workers run helper searches.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "engine/board/position.h"
#include "engine/search/searchdata.h"
#include "engine/threads/parked.h"

class worker : public parkedThread {
public:
    explicit worker(int id);

    // One whole iterative-deepening search of rootPosition.
    virtual void searchRoot();

    searchDataStruct searchData;  // histories and the move buffer, owned by this thread alone
    int32_t workerId;
    positionStruct rootPosition;
    positionStruct* position;

    // Read by other threads while this one searches: published every clock check and at
    // every completed iteration. Relaxed atomics; a slightly stale value only delays a report.
    std::atomic<uint64_t> publishedNodes{0};
    std::atomic<uint64_t> publishedTbHits{0};
    std::atomic<int> searchDepth{0};

    // Copies the game position in and points it at this thread's own tables.
    void prepareSearch(const positionStruct& game);
    // Nodes of both kinds searched by this thread (exact when called by this thread or when
    // it is idle).
    uint64_t ownNodes() const { return position->nodeCount + position->qNodeCount; }

protected:
    void doWork() override { searchRoot(); }
};

class boss : public worker {
public:
    boss() : worker(0) {}
    void searchRoot() override;

    moveStruct rememberedBest = EMPTYMOVE;    // best move of the boss's last reported iteration
    moveStruct rememberedPonder = EMPTYMOVE;  // and its ponder move
};

class workForce {
public:
    ~workForce() = default;  // threads are destroyed by setNofWorkers(0) before exit

    // Destroys the pool and builds a new one of n threads (the boss included); 0 leaves none.
    void setNofWorkers(int n);
    // Total nodes and tablebase hits of all threads (others' values as last published).
    uint64_t totalNodes(const worker* caller) const;
    uint64_t totalTbHits(const worker* caller) const;

    std::vector<worker*> workers;
    // Search flags shared by all threads without locks (relaxed atomics).
    std::atomic<bool> stopSearch{false};
    std::atomic<bool> ponderSearch{false};
    std::atomic<bool> bossFinished{false};
    std::atomic<uint32_t> searchShared{0};
    // Set just before "bestmove" is printed: from then on the search only winds down.
    std::atomic<bool> searchReported{true};
    uint64_t tbHitsTotal = 0;
};

extern workForce theWorkForce;

inline bool searchStopped() { return theWorkForce.stopSearch.load(std::memory_order_relaxed); }
inline void stopTheSearch() { theWorkForce.stopSearch.store(true, std::memory_order_relaxed); }

// Starts a search of GPSData with the limits now in `engine` (waits for the previous search).
void startSearch();
// Whether a search is running. A search that has printed "bestmove" is waited for, so that a
// command sent right after "bestmove" is never refused.
bool isSearching();
// Zeroes the histories of every search thread.
void clearAllHistories();
