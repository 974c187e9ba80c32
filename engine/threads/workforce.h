// The search workforce: long-lived threads parked on their own mutex and condition variable,
// woken for every "go". The boss runs the main search and reports; workers run helper searches.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "engine/board/position.h"
#include "engine/search/control.h"
#include "engine/search/searchdata.h"
#include "engine/util/parked.h"

class worker : public parkedThread {
public:
    explicit worker(int id);

    // One whole iterative-deepening search of rootPosition.
    virtual void searchRoot();

    searchDataStruct searchData;  // histories, the move buffer and the published progress
    int32_t workerId;
    positionStruct rootPosition;
    positionStruct* position;

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

// The pool, and the control record every search thread reads (flags, limits, progress).
class workForce : public searchControlStruct {
public:
    ~workForce() = default;  // threads are destroyed by setNofWorkers(0) before exit

    // Destroys the pool and builds a new one of n threads (the boss included); 0 leaves none.
    void setNofWorkers(int n);

    std::vector<worker*> workers;
    uint64_t tbHitsTotal = 0;
};

extern workForce theWorkForce;

inline bool searchStopped() { return theWorkForce.stopped(); }
inline void stopTheSearch() { theWorkForce.stop(); }

// Starts a search of GPSData with the limits now in `engine` (waits for the previous search).
void startSearch();
// Whether a search is running. A search that has printed "bestmove" is waited for, so that a
// command sent right after "bestmove" is never refused.
bool isSearching();
// Zeroes the histories of every search thread.
void clearAllHistories();
