// Registration: empty paths, a lone table, ':'-separated directories searched in order, and
// the material hash holding every signature the registry looks for.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "fathom/tbcore.h"
#include "tests/fathom/tb_test_util.h"

namespace {

const char* const KQK = "8/8/8/8/8/5k2/8/2K1Q3 b - - 0 1";  // lost for Black
const char* const KRK = "8/8/8/8/8/5k2/8/2K1R3 w - - 0 1";  // won for White

constexpr int FAILED = 99;

// The WDL value of a FEN, or FAILED when the probe fails.
int wdl_of(const char* fen) {
    const pos p = tbtest::parse_fen(fen);
    int ok = 0;
    const int wdl = probe_wdl(&p, &ok);
    return ok ? wdl : FAILED;
}

class Registry : public ::testing::Test {
protected:
    void TearDown() override { tb_free(); }
};

TEST_F(Registry, EmptyPathRegistersNothingAndReleasesEarlierTables) {
    SKIP_WITHOUT_TABLES();
    for (const char* path : {"", "<empty>"}) {
        tbtest::init_tables(tbtest::syzygy_dir());
        ASSERT_EQ(TB_LARGEST, 5);
        EXPECT_EQ(tbtest::init_tables(path), "") << '"' << path << '"';
        EXPECT_EQ(TB_LARGEST, 0);
        EXPECT_EQ(wdl_of(KQK), FAILED);
    }
}

TEST_F(Registry, DirectoryWithOneTable) {
    SKIP_WITHOUT_TABLES();
    tbtest::ScratchDir dir("one");
    dir.copy_table("KQvK.rtbw");
    EXPECT_EQ(tbtest::init_tables(dir.path.string()), "Found 1 tablebases.\n");
    EXPECT_EQ(TB_LARGEST, 3);
    EXPECT_EQ(wdl_of(KQK), -2);
    EXPECT_EQ(wdl_of(KRK), FAILED);
}

TEST_F(Registry, DirectoriesAreSearchedInOrder) {
    SKIP_WITHOUT_TABLES();
    tbtest::ScratchDir bad("bad"), good("good");
    good.copy_table("KQvK.rtbw");
    bad.copy_table("KQvK.rtbw");
    bad.copy_table("KRvK.rtbw");
    {
        std::fstream f(bad.path / "KQvK.rtbw", std::ios::in | std::ios::out | std::ios::binary);
        f.put('\0');  // spoils the magic
    }
    const std::string b = bad.path.string(), g = good.path.string();
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(tbtest::init_tables(b + ":" + g), "Found 2 tablebases.\n");
    EXPECT_EQ(wdl_of(KQK), FAILED);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Corrupted table.\n");

    EXPECT_EQ(tbtest::init_tables("::" + g + "::" + b + ":"), "Found 2 tablebases.\n");
    EXPECT_EQ(wdl_of(KQK), -2);
    EXPECT_EQ(wdl_of(KRK), 2);
}

TEST_F(Registry, MissingDirectoryFindsNothing) {
    EXPECT_EQ(tbtest::init_tables("/nonexistent/vorix/syzygy"), "Found 0 tablebases.\n");
    EXPECT_EQ(TB_LARGEST, 0);
}

// Every signature of up to six pieces, in both colourings, has its own key and fits its
// hash bucket, so a complete table set never overflows the registry.
TEST(RegistryHash, EverySignatureFits) {
    std::vector<std::string> names;
    for_each_table_name([](const char* n, void* ctx) { static_cast<std::vector<std::string>*>(ctx)->push_back(n); },
                        &names);
    std::set<uint64_t> keys;
    std::map<uint64_t, int> buckets;
    int pawnless = 0;
    for (const std::string& name : names) {
        uint8_t counts[2][7] = {}, swapped[2][7] = {};
        tbtest::name_counts(name, counts);
        pawnless += counts[0][TB_PAWN] + counts[1][TB_PAWN] == 0;
        std::copy(counts[1], counts[1] + 7, swapped[0]);
        std::copy(counts[0], counts[0] + 7, swapped[1]);
        for (uint64_t key : std::set<uint64_t>{material_key(counts), material_key(swapped)}) {
            EXPECT_TRUE(keys.insert(key).second) << name;
            EXPECT_LE(++buckets[key >> (64 - TBHASHBITS)], HSHMAX) << name;
        }
    }
    EXPECT_EQ(names.size(), 510u);
    EXPECT_EQ(pawnless, TBMAX_PIECE);
    EXPECT_EQ(int(names.size()) - pawnless, TBMAX_PAWN);
    EXPECT_EQ(keys.size(), 1000u);  // 20 symmetric materials share one key
}

}  // namespace
