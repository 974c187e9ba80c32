// The transposition table: one shared array of 64-byte buckets, probed and written by every
// search thread without locks.
#pragma once

#include <atomic>
#include <cstdint>

#include "engine/board/move.h"

struct positionStruct;

constexpr int SCORE_INFINITY = 32767;
constexpr int SCORE_MATE = 32000;
constexpr int MATE_THRESHOLD = 31871;  // |score| above this is a mate score
constexpr int TB_WIN_SCORE = 31872;
constexpr int TB_DEPTH = 127;  // depth stored with tablebase results: no search overrides them

enum boundKind : uint8_t { BOUND_NONE = 0, BOUND_UPPER = 1, BOUND_LOWER = 2, BOUND_EXACT = 3 };

// One shared 64-bit word. Threads read and write entries without locks; relaxed atomics make
// the races well-defined. A torn entry (move word of one store, score of another) is possible
// and tolerated: the full key is compared and hash moves are checked against the board before
// use. The layout is chosen by pointer width: 64-bit targets (x86-64, aarch64) load and store
// the word in one plain instruction; 32-bit ARM would need an exclusive-pair loop for a 64-bit
// atomic, so there the word is kept as two 32-bit halves, each one plain load or store.
#if UINTPTR_MAX > 0xFFFFFFFFu
static_assert(std::atomic<uint64_t>::is_always_lock_free, "the table needs lock-free 64-bit words");
struct sharedWord {
    std::atomic<uint64_t> value;
    uint64_t load() const { return value.load(std::memory_order_relaxed); }
    void store(uint64_t v) { value.store(v, std::memory_order_relaxed); }
};
#else
static_assert(std::atomic<uint32_t>::is_always_lock_free, "the table needs lock-free 32-bit words");
struct sharedWord {
    std::atomic<uint32_t> low, high;
    uint64_t load() const {
        return low.load(std::memory_order_relaxed) | (uint64_t(high.load(std::memory_order_relaxed)) << 32);
    }
    void store(uint64_t v) {
        low.store(static_cast<uint32_t>(v), std::memory_order_relaxed);
        high.store(static_cast<uint32_t>(v >> 32), std::memory_order_relaxed);
    }
};
#endif

// Entry word: bytes 0..2 from, to, kind of the best move; byte 3 the moving piece's code;
// bits 32..47 the score (mate scores relative to the storing node); bits 48..55 the signed
// remaining depth; bits 56..57 the bound; bits 58..63 the age. A slot is empty when its key
// and its flag byte are both zero.
struct bucketStruct {
    sharedWord entries[4];
    sharedWord keys[4];
};
static_assert(sizeof(sharedWord) == 8, "an entry word is 8 bytes on every target");
static_assert(sizeof(bucketStruct) == 64, "a bucket is one cache line");

struct hashEntryStruct {
    moveStruct move;  // fourth byte: piece code of the mover
    int score;        // converted to the probing ply
    int depth;
    int bound;
};

extern bucketStruct* hashTable;
extern uint64_t hashKeyMask;
extern uint8_t hashAgeCounter;
extern uint32_t hashHartBeat;

inline bucketStruct* bucketOf(uint64_t key) { return &hashTable[static_cast<size_t>(key & hashKeyMask)]; }

inline void prefetchBucket(uint64_t key) { __builtin_prefetch(bucketOf(key)); }

inline int scoreToHash(int score, int ply) {
    if (score > MATE_THRESHOLD) return score + ply;
    if (score < -MATE_THRESHOLD) return score - ply;
    return score;
}

inline int scoreFromHash(int score, int ply) {
    if (score > MATE_THRESHOLD) return score - ply;
    if (score < -MATE_THRESHOLD) return score + ply;
    return score;
}

// Looks the key up; a hit refreshes the slot's age and converts a mate score to this ply.
inline bool probeHash(uint64_t key, int ply, hashEntryStruct* entry) {
    bucketStruct* bucket = bucketOf(key);
    for (int slot = 0; slot < 4; slot++) {
        if (bucket->keys[slot].load() != key) continue;
        uint64_t word = bucket->entries[slot].load();
        uint64_t refreshed = (word & ~(0xFCULL << 56)) | (uint64_t(hashAgeCounter & 63) << 58);
        if (refreshed != word) bucket->entries[slot].store(refreshed);
        entry->move = wordMove(static_cast<uint32_t>(word));
        entry->score = scoreFromHash(static_cast<int16_t>(word >> 32), ply);
        entry->depth = static_cast<int8_t>(word >> 48);
        entry->bound = static_cast<int>((word >> 56) & 3);
        return true;
    }
    return false;
}

// Writes an entry into the slot chosen by key match, then emptiness, then least worth.
void storeHash(uint64_t key, int ply, moveStruct move, int score, int depth, int bound);

// Zeroes the whole table with several threads.
void clearHashTableMT();
// Reallocates the table for megabytes (already clamped); false keeps the old table.
bool resizeHashTable(int megabytes);
// Sets the table to exactly `buckets` buckets (a power of two) plus the spare one.
bool allocateHashBuckets(uint64_t buckets);
void freeHashTable();

// Walks the principal variation from the position into pos->pv (at most maxLength moves,
// pvLength of them): `first` when given, then exact-bound hash moves, each checked against the
// board. The walk ends after a move into a drawn position (repetition or fifty-move rule).
void getPVFromHashTable(positionStruct* pos, int maxLength, moveStruct first = EMPTYMOVE);
