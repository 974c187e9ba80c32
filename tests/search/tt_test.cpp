// Transposition table: sizing and clearing, entry round trips with mate-score shifting and age,
// the slot replacement order, and the principal-variation walk along hash moves.
#include <gtest/gtest.h>

#include "engine/movegen/makemove.h"
#include "engine/uci/startup.h"
#include "tests/testutil.h"

namespace {

// Each test starts from a cleared 1 MB table at age 0.
class HashTable : public ::testing::Test {
protected:
    void SetUp() override {
        initTables();
        resizeHashTable(1);
        hashAgeCounter = 0;
    }
    void TearDown() override { hashAgeCounter = 0; }

    // Keys that share one bucket, told apart by their high bits.
    static uint64_t bucketKey(int i) { return 0x2A5ULL | (static_cast<uint64_t>(i + 1) << 40); }
    static bucketStruct& bucket() { return hashTable[0x2A5]; }
    static int slotOf(uint64_t key) {
        for (int s = 0; s < 4; s++)
            if (bucket().keys[s].load() == key) return s;
        return -1;
    }
};

TEST_F(HashTable, SizeIsTheNextPowerOfTwoMegabytes) {
    const struct {
        int megabytes;
        uint64_t buckets;
    } cases[] = {{0, 16384}, {1, 16384}, {2, 32768}, {3, 65536}, {4, 65536}, {5, 131072}, {16, 262144}, {17, 524288}};
    for (const auto& c : cases) {
        ASSERT_TRUE(resizeHashTable(c.megabytes));
        EXPECT_EQ(hashKeyMask + 1, c.buckets) << c.megabytes << " MB";
    }
    engine.hashSize = 3;  // start-up sizing reads the Hash setting
    initHashCodeTables();
    EXPECT_EQ(hashKeyMask + 1, 65536u);
    engine.hashSize = 1;
    resizeHashTable(1);
}

TEST_F(HashTable, ResizingAndClearingEmptyEveryBucketAndTheSpare) {
    storeHash(bucketKey(0), 0, makeMoveRecord(1, 2, 0, 4), 10, 5, BOUND_EXACT);
    hashEntryStruct entry;
    ASSERT_TRUE(probeHash(bucketKey(0), 0, &entry));
    hashTable[hashKeyMask + 1].entries[0].store(~0ULL);  // the spare bucket past the mask
    hashTable[hashKeyMask].keys[3].store(~0ULL);
    hashHartBeat = 77;
    clearHashTableMT();
    EXPECT_FALSE(probeHash(bucketKey(0), 0, &entry));
    EXPECT_EQ(hashTable[hashKeyMask + 1].entries[0].load(), 0u);
    EXPECT_EQ(hashTable[hashKeyMask].keys[3].load(), 0u);
    EXPECT_EQ(hashHartBeat, 0u);
    storeHash(bucketKey(0), 0, makeMoveRecord(1, 2, 0, 4), 10, 5, BOUND_EXACT);
    resizeHashTable(2);
    EXPECT_FALSE(probeHash(bucketKey(0), 0, &entry));
}

TEST_F(HashTable, StoreAndProbeRoundTripWithMateShift) {
    const struct {
        int score, depth, bound, storePly, probePly, probed;
    } cases[] = {
        {123, 7, BOUND_EXACT, 5, 5, 123},
        {-456, 0, BOUND_UPPER, 3, 9, -456},
        {0, -1, BOUND_LOWER, 0, 0, 0},
        {31871, 127, BOUND_EXACT, 10, 4, 31871},  // largest non-mate score is not shifted
        {-31871, 127, BOUND_EXACT, 10, 4, -31871},
        {31985, 20, BOUND_LOWER, 10, 4, 31991},  // mate seen 10 plies deep, probed at 4
        {-31985, 20, BOUND_UPPER, 10, 4, -31991},
        {31990, 3, BOUND_EXACT, 2, 12, 31980},
        {31872 - 6, 127, BOUND_EXACT, 6, 6, 31866},  // not a mate score
        {31872, 127, BOUND_EXACT, 0, 7, 31865},      // tablebase win stored at the root
        {-32000 + 8, 1, BOUND_EXACT, 8, 0, -32000},
        {SCORE_INFINITY - 1, 0, BOUND_NONE, 0, 0, SCORE_INFINITY - 1},
    };
    for (const auto& c : cases) {
        clearHashTableMT();
        moveStruct move = makeMoveRecord(sq("e2"), sq("e4"), KIND_DOUBLE_STEP, WHITE_PAWN);
        storeHash(bucketKey(1), c.storePly, move, c.score, c.depth, c.bound);
        hashEntryStruct entry;
        ASSERT_TRUE(probeHash(bucketKey(1), c.probePly, &entry)) << c.score;
        EXPECT_EQ(entry.score, c.probed) << c.score << " at ply " << c.storePly << " probed at " << c.probePly;
        EXPECT_EQ(entry.depth, c.depth) << c.score;
        EXPECT_EQ(entry.bound, c.bound) << c.score;
        EXPECT_EQ(moveWord(entry.move), moveWord(move)) << "all four move bytes";
        EXPECT_FALSE(probeHash(bucketKey(1) ^ (1ULL << 63), c.probePly, &entry)) << "same bucket, other key";
    }
}

// The top byte of an entry holds the age (six bits) above the bound; a probe refreshes the age.
TEST_F(HashTable, EntryCarriesTheAgeAndAProbeRefreshesIt) {
    hashAgeCounter = 70;
    storeHash(bucketKey(0), 0, makeMoveRecord(1, 2, 0, 4), -300, 9, BOUND_LOWER);
    EXPECT_EQ(bucket().entries[0].load() >> 56, (6u << 2) | BOUND_LOWER);
    hashAgeCounter = 41;
    hashEntryStruct entry;
    ASSERT_TRUE(probeHash(bucketKey(0), 0, &entry));
    EXPECT_EQ(bucket().entries[0].load() >> 56, (41u << 2) | BOUND_LOWER);
    EXPECT_EQ(entry.score, -300);
    EXPECT_EQ(entry.depth, 9);
}

TEST_F(HashTable, StoreReplacesTheLeastWorthSlot) {
    const struct {
        const char* name;
        int depth[4];
        int bound[4];
        int age[4];
        int currentAge;
        int expected;
    } cases[] = {
        {"shallowest", {5, 3, 7, 4}, {2, 2, 2, 2}, {10, 10, 10, 10}, 10, 1},
        {"non-exact of equal depth", {5, 5, 5, 5}, {3, 3, 1, 3}, {10, 10, 10, 10}, 10, 2},
        {"full tie", {5, 5, 5, 5}, {3, 3, 3, 3}, {10, 10, 10, 10}, 10, 0},
        {"exact is worth one ply", {4, 4, 5, 5}, {3, 2, 2, 2}, {10, 10, 10, 10}, 10, 1},
        {"exact one ply deeper ties", {5, 4, 5, 5}, {2, 3, 2, 2}, {10, 10, 10, 10}, 10, 0},
        {"negative depth", {3, -1, 0, 2}, {2, 2, 2, 2}, {10, 10, 10, 10}, 10, 1},
        {"one age older", {6, 9, 6, 6}, {2, 2, 2, 2}, {10, 9, 10, 10}, 10, 1},
        {"one age older ties", {6, 10, 6, 6}, {2, 2, 2, 2}, {10, 9, 10, 10}, 10, 0},
        {"one age older keeps", {6, 11, 6, 6}, {2, 2, 2, 2}, {10, 9, 10, 10}, 10, 0},
        {"two ages older", {6, 6, 6, 13}, {2, 2, 2, 2}, {10, 10, 10, 8}, 10, 3},
        {"age wraps at 64", {5, 5, 12, 5}, {2, 2, 2, 2}, {1, 1, 63, 1}, 1, 2},
    };
    for (const auto& c : cases) {
        clearHashTableMT();
        for (int s = 0; s < 4; s++) {
            hashAgeCounter = static_cast<uint8_t>(c.age[s]);
            storeHash(bucketKey(s), 0, EMPTYMOVE, 0, c.depth[s], c.bound[s]);
            ASSERT_EQ(slotOf(bucketKey(s)), s) << c.name << ": an empty slot is taken in order";
        }
        hashAgeCounter = static_cast<uint8_t>(c.currentAge);
        storeHash(bucketKey(9), 0, EMPTYMOVE, 0, 1, BOUND_UPPER);
        EXPECT_EQ(slotOf(bucketKey(9)), c.expected) << c.name;
        for (int s = 0; s < 4; s++) {
            int expectedSlot = s == c.expected ? -1 : s;
            EXPECT_EQ(slotOf(bucketKey(s)), expectedSlot) << c.name << ": the replaced key is gone, others stay";
        }
    }
}

TEST_F(HashTable, StoreOfAKnownKeyOverwritesItsSlot) {
    for (int s = 0; s < 4; s++) storeHash(bucketKey(s), 0, EMPTYMOVE, 0, 20, BOUND_EXACT);
    storeHash(bucketKey(3), 0, makeMoveRecord(5, 6, 0, 8), 77, 1, BOUND_UPPER);
    EXPECT_EQ(slotOf(bucketKey(3)), 3);
    hashEntryStruct entry;
    ASSERT_TRUE(probeHash(bucketKey(3), 0, &entry));
    EXPECT_EQ(entry.score, 77);
    EXPECT_EQ(entry.depth, 1);
    for (int s = 0; s < 3; s++) EXPECT_EQ(slotOf(bucketKey(s)), s);
}

// Stores each move of a line as the hash move of the position it is played from, with an exact
// bound and the moving piece unless other bounds or piece bytes are given.
void storeLine(const char* fen, const std::vector<const char*>& moves, const std::vector<int>& bounds = {},
               const std::vector<int>& pieces = {}) {
    testPosition p(fen);
    for (size_t i = 0; i < moves.size(); i++) {
        moveStruct played;
        ASSERT_TRUE(moveFromText(moves[i], p.get(), &played)) << moves[i];
        moveStruct stored = played;
        stored.order = static_cast<uint8_t>(i < pieces.size() && pieces[i] ? pieces[i] : p->board[played.from]);
        storeHash(p->hashKey, static_cast<int>(i), stored, 0, 5, i < bounds.size() ? bounds[i] : BOUND_EXACT);
        makeMove(p.get(), static_cast<int>(i), played);
    }
}

TEST_F(HashTable, PrincipalVariationFollowsExactHashMoves) {
    const char* start = fenStartPos;
    const struct {
        const char* name;
        std::vector<int> bounds;
        std::vector<int> piece;  // 0: the real moving piece
        int maxLength;
        const char* expected;
    } cases[] = {
        {"whole line", {}, {}, 10, "e2e4 e7e5 g1f3 b8c6 "},
        {"cut by length", {}, {}, 2, "e2e4 e7e5 "},
        {"stops at a bound that is not exact", {BOUND_EXACT, BOUND_EXACT, BOUND_LOWER}, {}, 10, "e2e4 e7e5 "},
        {"stops at a wrong piece", {}, {0, 0, WHITE_BISHOP}, 10, "e2e4 e7e5 "},
        {"stops at a black piece byte", {}, {0, 0, 0, BLACK_QUEEN}, 10, "e2e4 e7e5 g1f3 "},
        {"stops at once", {BOUND_UPPER}, {}, 10, ""},
    };
    for (const auto& c : cases) {
        clearHashTableMT();
        storeLine(start, {"e2e4", "e7e5", "g1f3", "b8c6"}, c.bounds, c.piece);
        testPosition p(start);
        uint64_t key = p->hashKey;
        getPVFromHashTable(p.get(), c.maxLength);
        EXPECT_EQ(PVToString(p.get()), c.expected) << c.name;
        EXPECT_TRUE(p->hashKey == key && p->historyCount == 1 && p->board[sq("e2")] == WHITE_PAWN &&
                    p->sideToMove == WHITE)
            << c.name << ": the position is restored";
    }
}

// A line out of the table must not go on past a position the game is drawn in.
TEST_F(HashTable, PrincipalVariationStopsAtADraw) {
    const struct {
        const char* name;
        const char* fen;
        std::vector<const char*> line;
        const char* expected;
    } cases[] = {
        {"repetition of the start",
         fenStartPos,
         {"g1f3", "g8f6", "f3g1", "f6g8", "g1f3", "g8f6"},
         "g1f3 g8f6 f3g1 f6g8 "},
        {"fifty-move count runs out",
         "4k3/8/8/8/8/8/8/4K1N1 w - - 98 80",
         {"g1f3", "e8d7", "f3g5", "d7e7"},
         "g1f3 e8d7 "},
        {"a capture resets the count",
         "4k3/8/8/8/8/8/3p4/4K1N1 w - - 99 80",
         {"e1d2", "e8d7", "g1f3"},
         "e1d2 e8d7 g1f3 "},
    };
    for (const auto& c : cases) {
        clearHashTableMT();
        storeLine(c.fen, c.line);
        testPosition p(c.fen);
        getPVFromHashTable(p.get(), 20);
        EXPECT_EQ(PVToString(p.get()), c.expected) << c.name;
    }
}

}  // namespace
