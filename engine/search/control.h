// The record through which a search sees everything outside its own thread: the limits, the
// stop flags and the progress of the other threads. The thread pool owns the one instance
// (theWorkForce) and hands each search thread a pointer to it in its searchDataStruct.
//
// Sharing without locks, field by field:
// - stopSearch: set by any search thread (time, node limit, mate at the root) and by the UCI
//   thread ("stop", "quit", a new "go"); read by every search thread at every node, through the
//   position's stopFlag, which points here (one load fewer on the hot path). Only ever
//   set to true during a search, so a late read only delays the stop. Cleared by the UCI thread
//   before the threads are woken.
// - ponderSearch: set by the UCI thread at "go ponder", cleared at "ponderhit"; read by the
//   search threads and the boss. A stale read only delays the switch to a timed search.
// - bossFinished: set by the boss when its own root search has returned; read by the UCI
//   thread at "ponderhit".
// - searchShared: cleared at every "go"; free for the threads' use.
// - searchReported: set by the boss right before "bestmove" (release), cleared at "go"; the UCI
//   thread reads it (acquire) to know that the search only winds down.
// - progress: one slot per thread, written by that thread alone (relaxed stores every clock
//   check and every iteration) and read by the others for node totals and depth skipping. The
//   vector itself changes only while no search runs (the pool is rebuilt between searches).
// - limits: points at the engine record, written by the UCI thread before the threads are woken
//   and only read during a search (its atomic members may change during one).
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "engine/search/engine.h"

struct threadProgressStruct {
    std::atomic<uint64_t> nodes{0};
    std::atomic<uint64_t> tbHits{0};
    std::atomic<int> depth{0};  // depth the thread is searching now
};

struct searchControlStruct {
    std::atomic<bool> stopSearch{false};
    std::atomic<bool> ponderSearch{false};
    std::atomic<bool> bossFinished{false};
    std::atomic<uint32_t> searchShared{0};
    std::atomic<bool> searchReported{true};
    std::vector<threadProgressStruct*> progress;  // by thread index, 0 = the main thread
    engineStruct* limits = &engine;

    bool stopped() const { return stopSearch.load(std::memory_order_relaxed); }
    void stop() { stopSearch.store(true, std::memory_order_relaxed); }
    bool pondering() const { return ponderSearch.load(std::memory_order_relaxed); }
    int threadCount() const { return static_cast<int>(progress.size()); }

    // Nodes (or tablebase hits) of all threads: the caller's own exact count, the others' as last
    // published.
    uint64_t totalNodes(int self, uint64_t own) const {
        uint64_t total = 0;
        for (int i = 0; i < threadCount(); i++)
            total += i == self ? own : progress[i]->nodes.load(std::memory_order_relaxed);
        return total;
    }
    uint64_t totalTbHits(int self, uint64_t own) const {
        uint64_t total = 0;
        for (int i = 0; i < threadCount(); i++)
            total += i == self ? own : progress[i]->tbHits.load(std::memory_order_relaxed);
        return total;
    }
};
