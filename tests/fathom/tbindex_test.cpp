// Position index and block decoder internals against values measured on the real files:
// fixed tables, indices of worked positions, sub-table sizes and layout, single-value
// sub-tables, and the walk from an index to its block across block boundaries.
#include <gtest/gtest.h>

#include "fathom/tbcore.h"
#include "fathom/tbindex.h"
#include "fathom/tbpos.h"
#include "tests/fathom/tb_test_util.h"

namespace {

int sq(const char* s) { return (s[0] - 'a') + 8 * (s[1] - '1'); }

TEST(IndexTables, CheckValues) {
    struct Case {
        const uint8_t* table;
        const char* square;
        int value;
    };
    const Case cases[] = {
        {TBI.triangle, "a1", 6}, {TBI.triangle, "b1", 0}, {TBI.triangle, "d3", 5}, {TBI.triangle, "d4", 9},
        {TBI.triangle, "h8", 6}, {TBI.triangle, "e5", 9}, {TBI.triangle, "g2", 7}, {TBI.triangle, "c5", 5},
        {TBI.triangle, "f6", 8}, {TBI.triangle, "b7", 7}, {TBI.lower, "b1", 0},    {TBI.lower, "h1", 6},
        {TBI.lower, "c2", 7},    {TBI.lower, "h2", 12},   {TBI.lower, "d3", 13},   {TBI.lower, "h7", 27},
        {TBI.lower, "a8", 6},    {TBI.lower, "b3", 7},    {TBI.lower, "a1", 28},   {TBI.lower, "h8", 35},
        {TBI.flap, "a2", 0},     {TBI.flap, "h2", 0},     {TBI.flap, "a7", 5},     {TBI.flap, "g3", 7},
        {TBI.flap, "c4", 14},    {TBI.flap, "f5", 15},    {TBI.flap, "e2", 18},    {TBI.flap, "d7", 23},
        {TBI.ptwist, "a2", 47},  {TBI.ptwist, "h2", 46},  {TBI.ptwist, "h7", 36},  {TBI.ptwist, "b3", 33},
        {TBI.ptwist, "g3", 32},  {TBI.ptwist, "f5", 16},  {TBI.ptwist, "e2", 10},  {TBI.ptwist, "e7", 0},
        {TBI.diag, "c3", 2},     {TBI.diag, "h8", 7},
    };
    for (const Case& c : cases) EXPECT_EQ(c.table[sq(c.square)], c.value) << c.square;

    const struct {
        int row;
        const char* square;
        int value;
    } kk[] = {
        {0, "d1", 0},   {0, "e1", 1},   {0, "h8", 57},  {1, "a1", 58},  {2, "a1", 116}, {3, "e1", 175}, {4, "a1", 229},
        {5, "h8", 338}, {6, "c1", 339}, {6, "h7", 365}, {7, "d1", 366}, {8, "b1", 391}, {9, "h7", 440}, {6, "c3", 441},
        {6, "h8", 446}, {7, "d4", 447}, {8, "e5", 453}, {9, "b2", 458}, {9, "h8", 461}, {6, "a2", -1},  {9, "d5", -1},
    };
    for (const auto& c : kk) EXPECT_EQ(TBI.KK_idx[c.row][sq(c.square)], c.value) << c.row << c.square;

    const uint64_t pfactor[5][4] = {{6, 6, 6, 6},
                                    {252, 180, 108, 36},
                                    {5201, 2645, 953, 125},
                                    {70315, 25375, 5491, 295},
                                    {700336, 178696, 23176, 496}};
    for (int t = 0; t < 5; t++)
        for (int f = 0; f < 4; f++) EXPECT_EQ(TBI.pfactor[t][f], pfactor[t][f]) << t << f;
    EXPECT_EQ(TBI.pawnidx[1][1], 47u);
    EXPECT_EQ(TBI.pawnidx[2][5], 4535u);
    EXPECT_EQ(TBI.pawnidx[2][23], 125u);
    EXPECT_EQ(TBI.pawnidx[3][1], 16215u);
    EXPECT_EQ(TBI.pawnidx[4][19], 330u);
    EXPECT_EQ(TBI.invflap[6], 9);
    EXPECT_EQ(TBI.binomial[3][63], 39711u);
    EXPECT_EQ(TBI.binomial[3][61], 35990u);
    EXPECT_EQ(TBI.binomial[5][4], 0u);
}

class MappedTables : public ::testing::Test {
protected:
    static void SetUpTestSuite() { tb_init(tbtest::syzygy_dir().c_str()); }
    static void TearDownTestSuite() { tb_free(); }

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

TEST_F(MappedTables, WorkedPositionIndices) {
    SKIP_WITHOUT_TABLES();
    const struct {
        const char* fen;
        bool dtz;
        uint64_t index;
    } cases[] = {
        {"8/8/8/8/8/5k2/8/2K1Q3 b - -", false, 27036},   {"7k/8/8/8/8/8/1Q6/K7 b - -", false, 31199},
        {"7K/8/8/8/8/8/6Q1/k7 w - -", false, 30559},     {"7K/8/8/8/8/8/6Q1/k7 w - -", true, 30559},
        {"8/8/8/8/2r5/7k/3K4/R7 w - -", false, 1285514}, {"8/8/8/8/2r5/7k/3K4/R7 b - -", false, 1494523},
        {"8/8/3k4/8/8/8/1Q6/K1Q5 w - -", false, 52563},  {"8/8/3k4/8/8/8/1Q6/K2Q4 b - -", false, 759859},
        {"8/3k4/6p1/8/8/8/2K5/8 b - -", false, 19353},   {"8/8/8/2k5/8/4P3/4P3/1K6 w - -", false, 36152},
        {"8/8/3p4/8/2P5/8/7K/3k4 b - -", false, 275829}, {"8/8/3p4/8/2P5/8/7K/3k4 b - -", true, 333803},
        {"1r6/8/8/8/k7/8/8/2RK4 w - -", true, 566875},   {"1r6/8/8/8/k7/8/8/2RK4 w - -", false, 221303},
        {"8/8/7k/8/8/4B3/6N1/6K1 b - -", false, 344968}, {"8/8/7k/8/8/4B3/6N1/6K1 b - -", true, 68601},
    };
    for (const auto& c : cases) {
        const pos p = tbtest::parse_fen(c.fen);
        std::shared_ptr<TBEntry> dtz = c.dtz ? get_dtz_entry(calc_key(&p, false)) : nullptr;
        const TBEntry* e = c.dtz ? dtz.get() : find_wdl_entry(calc_key(&p, false));
        ASSERT_TRUE(e && (c.dtz || ensure_wdl_mapped(const_cast<TBEntry*>(e)))) << c.fen;
        TableSlot ts;
        ASSERT_TRUE(table_index(e, &p, c.dtz, &ts)) << c.fen;
        EXPECT_EQ(ts.idx, c.index) << c.fen << (c.dtz ? " dtz" : " wdl");
    }
}

TEST_F(MappedTables, SubTableSizes) {
    SKIP_WITHOUT_TABLES();
    const struct {
        const char* name;
        uint64_t size[4];
    } cases[] = {
        {"KQvK", {31332}},
        {"KRvKR", {1911252}},
        {"KBNvK", {1911252}},
        {"KQQvK", {873642}},
        {"KPvK", {23436, 23436, 23436, 23436}},
        {"KQvKP", {1429596, 1429596, 1429596, 1429596}},
        {"KPvKP", {1066524, 1066524, 1066524, 1066524}},
        {"KPPvK", {953064, 680760, 408456, 136152}},
    };
    for (const auto& c : cases) {
        TBEntry* e = wdl_entry(c.name);
        ASSERT_NE(e, nullptr) << c.name;
        for (int f = 0; f < (e->has_pawns ? 4 : 1); f++)
            for (int side = 0; side < (e->symmetric ? 1 : 2); side++)
                EXPECT_EQ(entry_sub(e, f, side)->size, c.size[f]) << c.name << " file " << f << " side " << side;
    }
}

TEST_F(MappedTables, LayoutAndSingleValue) {
    SKIP_WITHOUT_TABLES();
    const TBEntry* e = wdl_entry("KQvK");
    ASSERT_NE(e, nullptr);
    const PairsData* one = entry_sub(e, 0, 0)->pairs;
    ASSERT_TRUE(one->single);  // every KQvK position with the queen's side to move is won
    for (uint64_t idx : {uint64_t(0), uint64_t(31331), uint64_t(1) << 40}) EXPECT_EQ(decompress_pairs(one, idx), 4);
    const PairsData* d = entry_sub(e, 0, 1)->pairs;
    EXPECT_EQ(d->indextable - e->data, 90);
    EXPECT_EQ(d->sizetable - e->data, 96);
    EXPECT_EQ(d->data - e->data, 128);
    EXPECT_EQ(d->num_syms, 17u);

    std::shared_ptr<TBEntry> krkr = get_dtz_entry(key_of("KRvKR")), kpk = get_dtz_entry(key_of("KPvK"));
    ASSERT_TRUE(krkr && kpk);
    const SubTable* st = entry_sub(krkr.get(), 0, 0);
    EXPECT_EQ(st->map[0], 413u);
    EXPECT_EQ(st->map_len[0], 4);
    EXPECT_EQ(st->map_len[1], 3);
    EXPECT_EQ(st->pairs->indextable - krkr->data, 424);
    EXPECT_EQ(st->pairs->data - krkr->data, 640);
    const int data_at[4] = {832, 1088, 2112, 3136};
    for (int f = 0; f < 4; f++) EXPECT_EQ(entry_sub(kpk.get(), f, 0)->pairs->data - kpk->data, data_at[f]);
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
