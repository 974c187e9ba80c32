// Transposition table storage: allocation, clearing, the store's slot choice and the walk of
// the principal variation along hash moves.
#include "engine/search/tt.h"

#include <sys/mman.h>

#include <cstring>
#include <thread>
#include <vector>

#include "engine/board/position.h"
#include "engine/board/zobrist.h"
#include "engine/movegen/legal.h"
#include "engine/movegen/makemove.h"
#include "engine/search/engine.h"

bucketStruct* hashTable = nullptr;
uint64_t hashKeyMask = 0;
uint8_t hashAgeCounter = 0;
uint32_t hashHartBeat = 0;

namespace {

size_t mappedBytes = 0;
constexpr size_t HUGE_PAGE_BYTES = size_t(2) << 20;

// Maps a zeroed block aligned to 2 MB and asks for transparent huge pages, which makes the
// first touch of a large table many times cheaper.
bucketStruct* mapTable(uint64_t bytes, size_t* mapped) {
    // Whole huge pages, so that the unused head and tail of the mapping can be returned.
    bytes = (bytes + HUGE_PAGE_BYTES - 1) & ~static_cast<uint64_t>(HUGE_PAGE_BYTES - 1);
    if (bytes > static_cast<uint64_t>(SIZE_MAX) - HUGE_PAGE_BYTES) return nullptr;
    size_t size = static_cast<size_t>(bytes) + HUGE_PAGE_BYTES;
    void* raw = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) return nullptr;
    uintptr_t start = reinterpret_cast<uintptr_t>(raw);
    uintptr_t aligned = (start + HUGE_PAGE_BYTES - 1) & ~(uintptr_t(HUGE_PAGE_BYTES) - 1);
    size_t head = aligned - start;
    if (head) munmap(raw, head);
    size_t tail = size - head - static_cast<size_t>(bytes);
    if (tail) munmap(reinterpret_cast<void*>(aligned + static_cast<size_t>(bytes)), tail);
#ifdef MADV_HUGEPAGE
    madvise(reinterpret_cast<void*>(aligned), static_cast<size_t>(bytes), MADV_HUGEPAGE);
#endif
    *mapped = static_cast<size_t>(bytes);
    return reinterpret_cast<bucketStruct*>(aligned);
}

}  // namespace

void freeHashTable() {
    if (hashTable) munmap(hashTable, mappedBytes);
    hashTable = nullptr;
    mappedBytes = 0;
    hashKeyMask = 0;
}

bool allocateHashBuckets(uint64_t buckets) {
    size_t mapped = 0;
    // One spare bucket past the mask's range, deliberately.
    bucketStruct* table = mapTable((buckets + 1) * sizeof(bucketStruct), &mapped);
    if (!table) return false;
    freeHashTable();
    hashTable = table;
    mappedBytes = mapped;
    hashKeyMask = buckets - 1;
    clearHashTableMT();
    return true;
}

bool resizeHashTable(int megabytes) {
    uint64_t buckets = 16384;  // 16384 buckets of 64 bytes per megabyte
    for (uint64_t c = 1; c + 1 <= static_cast<uint64_t>(megabytes); c *= 2) buckets *= 2;
    return allocateHashBuckets(buckets);
}

void clearHashTableMT() {
    // At least two threads: the first touch of fresh pages is far cheaper shared out. A small
    // table is cleared on the calling thread, which is quicker than starting threads.
    constexpr uint64_t SMALL_TABLE_BUCKETS = uint64_t(32) << 14;  // 32 MB
    uint64_t n = engine.nofThreads < 2 ? 2 : static_cast<uint64_t>(engine.nofThreads);
    if (hashKeyMask + 1 <= SMALL_TABLE_BUCKETS) n = 1;
    uint64_t share = (hashKeyMask + 1) / n;
    auto clearPart = [](uint64_t first, uint64_t count) {
        std::memset(static_cast<void*>(hashTable + first), 0, static_cast<size_t>(count) * sizeof(bucketStruct));
    };
    std::vector<std::thread> threads;
    for (uint64_t i = 0; i + 1 < n; i++) threads.emplace_back(clearPart, i * share, share);
    // The calling thread takes the last part: the remainder and the spare bucket.
    clearPart((n - 1) * share, hashKeyMask + 2 - (n - 1) * share);
    for (std::thread& t : threads) t.join();
    hashHartBeat = 0;
}

void storeHash(uint64_t key, int ply, moveStruct move, int score, int depth, int bound) {
    bucketStruct* bucket = bucketOf(key);
    int age = hashAgeCounter & 63;
    int chosen = 0, lowestWorth = 0;
    for (int slot = 0; slot < 4; slot++) {
        uint64_t slotKey = bucket->keys[slot].load();
        uint64_t word = bucket->entries[slot].load();
        if (slotKey == key || (slotKey == 0 && (word >> 56) == 0)) {
            chosen = slot;
            break;
        }
        int slotAge = static_cast<int>(word >> 58);
        int worth =
            static_cast<int8_t>(word >> 48) + (((word >> 56) & 3) == BOUND_EXACT ? 1 : 0) - 4 * ((age - slotAge) & 63);
        if (slot == 0 || worth < lowestWorth) {
            chosen = slot;
            lowestWorth = worth;
        }
    }
    uint64_t word = static_cast<uint64_t>(moveWord(move)) |
                    (static_cast<uint64_t>(static_cast<uint16_t>(scoreToHash(score, ply))) << 32) |
                    (static_cast<uint64_t>(static_cast<uint8_t>(depth)) << 48) |
                    (static_cast<uint64_t>(bound & 3) << 56) | (static_cast<uint64_t>(age) << 58);
    bucket->entries[chosen].store(word);
    bucket->keys[chosen].store(key);
}

void getPVFromHashTable(positionStruct* pos, int maxLength, moveStruct first) {
    pos->pvLength = 0;
    int taken = 0;
    hashEntryStruct entry;
    while (taken < maxLength && taken < MAX_PLY) {
        moveStruct move = first;
        if (taken > 0 || isEmptyMove(first)) {
            if (!probeHash(pos->hashKey, taken, &entry) || entry.bound != BOUND_EXACT || isEmptyMove(entry.move)) break;
            move = entry.move;
        }
        pos->plyState[taken].inCheck = isSideInCheck(pos, pos->sideToMove) ? 1 : 0;
        if (!isMovePseudoLegal(pos, taken, move)) break;
        makeMove(pos, taken, move);
        if (isSideInCheck(pos, pos->sideToMove ^ 1)) {  // leaves the own king attacked
            unmakeMove(pos, taken, move);
            break;
        }
        pos->pv[taken++] = move;
        // The game is drawn here, so the line cannot go on as the table says: a repeated
        // position, or a fifty-move count run out (a mate on the hundredth half-move has no
        // reply anyway).
        if (isRepetition(pos) || pos->halfMoveClock >= 100) break;
    }
    for (int ply = taken - 1; ply >= 0; ply--) unmakeMove(pos, ply, pos->pv[ply]);
    pos->pvLength = static_cast<int16_t>(taken);
}
