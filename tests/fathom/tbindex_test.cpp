// Position index and block decoder internals: fixed tables, sub-table sizes of the real files,
// single-value sub-tables, and the walk from an index to its block across block boundaries.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "fathom/tbcore.h"
#include "fathom/tbindex.h"
#include "fathom/tbpos.h"
#include "tests/fathom/tb_test_util.h"

namespace {

// Binomials against the product formula, and the two-king placements against their count: 462
// pairs of kings that do not touch, the first on one of the ten squares of the a1-d1-d4
// triangle and, when that square is on the diagonal, the second on or below the diagonal.
TEST(IndexTables, BinomialsAndKingPairs) {
    for (int k = 0; k < 8; k++)
        for (int n = 0; n < 64; n++) {
            uint64_t c = 1;
            for (int i = 0; i < k && i < n; i++) c = c * uint64_t(n - i) / uint64_t(i + 1);
            EXPECT_EQ(TBI.binomial[k][n], n < k ? 0 : c) << "C(" << n << ", " << k << ")";
        }
    std::vector<int> seen(KK_COUNT, 0);
    for (int first = 0; first < 64; first++) {
        const int file = first % 8, rank = first / 8;
        if (file > 3 || rank > file) continue;  // not in the triangle
        const int row = TBI.triangle[first];
        EXPECT_EQ(row >= 6, rank == file) << first;
        for (int second = 0; second < 64; second++) {
            const bool touching = std::abs(second % 8 - file) <= 1 && std::abs(second / 8 - rank) <= 1;
            const bool valid = !touching && (rank != file || second / 8 <= second % 8);
            const int idx = TBI.KK_idx[row][second];
            EXPECT_EQ(idx >= 0, valid) << first << " " << second;
            EXPECT_LT(idx, KK_COUNT);
            if (idx >= 0 && idx < KK_COUNT) seen[idx]++;
        }
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), 462);
}

class MappedTables : public tbtest::TablesSuite {
protected:
    static uint64_t key_of(const std::string& name) {
        uint8_t counts[2][7] = {};
        tbtest::name_counts(name, counts);
        return material_key(counts);
    }
    static TBEntry* wdl_entry(const std::string& name) {
        TBEntry* e = find_wdl_entry(key_of(name));
        return e && ensure_wdl_mapped(e) ? e : nullptr;
    }
};

// Positions per sub-table: three unlike pieces under the eight symmetries number
// 6 * 63 * 62 + 4 * 28 * 62 + 4 * 7 * 28 + 4 * 7 * 6 = 31332 (the first off the diagonal, or on
// it with the second below it, and so on), each further piece multiplies by the squares left,
// like pieces by the binomial, two kings alone give 462; with pawns the leading pawn takes one of
// the six squares of its file and another pawn one of the 47 pawn squares left.
TEST_F(MappedTables, SubTableSizes) {
    SKIP_WITHOUT_TABLES();
    const struct {
        const char* name;
        uint64_t size[4];
    } cases[] = {
        {"KQvK", {31332}},
        {"KRvKR", {31332 * 61}},
        {"KBNvK", {31332 * 61}},
        {"KQQvK", {462 * 62 * 61 / 2}},
        {"KPvK", {6 * 63 * 62, 6 * 63 * 62, 6 * 63 * 62, 6 * 63 * 62}},
        {"KQvKP", {6 * 63 * 62 * 61, 6 * 63 * 62 * 61, 6 * 63 * 62 * 61, 6 * 63 * 62 * 61}},
        {"KPvKP", {6 * 47 * 62 * 61, 6 * 47 * 62 * 61, 6 * 47 * 62 * 61, 6 * 47 * 62 * 61}},
        // Two like pawns: the leading one on the r-th square of file pair f (a/h, b/g, ...), the
        // other on one of the 47 - 12 f - 2 r squares after it: 252, 180, 108 and 36 pairs.
        {"KPPvK", {252 * 62 * 61, 180 * 62 * 61, 108 * 62 * 61, 36 * 62 * 61}},
    };
    for (const auto& c : cases) {
        TBEntry* e = wdl_entry(c.name);
        ASSERT_NE(e, nullptr) << c.name;
        for (int f = 0; f < (e->has_pawns ? 4 : 1); f++)
            for (int side = 0; side < (e->symmetric ? 1 : 2); side++)
                EXPECT_EQ(entry_sub(e, f, side)->size, c.size[f]) << c.name << " file " << f << " side " << side;
    }
}

// Every KQvK position with the queen's side to move is won: one value for the whole sub-table.
TEST_F(MappedTables, SingleValueSubTable) {
    SKIP_WITHOUT_TABLES();
    const TBEntry* e = wdl_entry("KQvK");
    ASSERT_NE(e, nullptr);
    const PairsData* one = entry_sub(e, 0, 0)->pairs;
    ASSERT_TRUE(one->single);
    for (uint64_t idx : {uint64_t(0), uint64_t(31331), uint64_t(1) << 40}) EXPECT_EQ(decompress_pairs(one, idx), 4);
    EXPECT_FALSE(entry_sub(e, 0, 1)->pairs->single);
}

// Around every index-table entry, the located block and offset agree with the running sum of
// the block sizes, walking backwards and forwards from the entry's block as needed.
TEST_F(MappedTables, IndexWalksAcrossBlocks) {
    SKIP_WITHOUT_TABLES();
    int back = 0, forward = 0, checked = 0;
    for (const char* name : {"KRvK", "KPvK", "KRvKR", "KQvKP", "KPvKP", "KBNvK"}) {
        TBEntry* e = wdl_entry(name);
        ASSERT_NE(e, nullptr) << name;
        for (int f = 0; f < (e->has_pawns ? 4 : 1); f++)
            for (int side = 0; side < (e->symmetric ? 1 : 2); side++) {
                const PairsData* d = entry_sub(e, f, side)->pairs;
                if (d->single) continue;
                std::vector<uint64_t> start(d->num_blocks + 1, 0);
                for (uint32_t b = 0; b < d->num_blocks; b++)
                    start[b + 1] = start[b] + read_le16(d->sizetable + 2 * b) + 1;
                const uint64_t step = uint64_t(1) << d->idxbits;
                for (uint64_t k = 0; k * step < d->tb_size; k++) {
                    for (int64_t delta = -40; delta < 40; delta++) {
                        const int64_t idx = int64_t(k * step) + delta;
                        if (idx < 0 || uint64_t(idx) >= d->tb_size) continue;
                        uint32_t block, lit;
                        ASSERT_TRUE(locate_pairs(d, uint64_t(idx), &block, &lit)) << name << " " << idx;
                        ASSERT_EQ(start[block] + lit, uint64_t(idx)) << name;
                        ASSERT_LE(start[block] + lit, start[block + 1] - 1);
                        const int v = decompress_pairs(d, uint64_t(idx));
                        ASSERT_TRUE(v >= 0 && v <= 4) << name << " " << idx;
                        const uint32_t entry_block = read_le32(d->indextable + 6 * (uint64_t(idx) >> d->idxbits));
                        back += block < entry_block;
                        forward += block > entry_block;
                        checked++;
                    }
                }
            }
    }
    EXPECT_GT(back, 0);
    EXPECT_GT(forward, 0);
    EXPECT_GT(checked, 1000);
}

}  // namespace
