// Every position of the shared cases file probes to its known WDL and DTZ; grouped by the
// number of pieces so a failing table size stands out.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/fathom/tb_test_util.h"

namespace {

// Whether a record "FEN;wdl;dtz" probes to its values (the known values ignore the clock).
bool probes_to(const std::vector<std::string>& rec, int* wdl, int* dtz) {
    pos p = tbtest::parse_fen(rec[0]);
    p.rule50 = 0;
    int ok_wdl = 0, ok_dtz = 0;
    *wdl = probe_wdl(&p, &ok_wdl);
    *dtz = probe_dtz(&p, &ok_dtz);
    return ok_wdl && ok_dtz && *wdl == std::stoi(rec[1]) && *dtz == std::stoi(rec[2]);
}

class KnownPositions : public ::testing::TestWithParam<int> {
protected:
    static void SetUpTestSuite() { tbtest::init_tables(tbtest::syzygy_dir()); }
    static void TearDownTestSuite() { tb_free(); }
};

TEST_P(KnownPositions, WdlAndDtzMatch) {
    SKIP_WITHOUT_TABLES();
    const int pieces = GetParam();
    int checked = 0, failed = 0;
    for (const auto& rec : tbtest::read_records(tbtest::syzygy_dir() + "/cases.txt")) {
        ASSERT_EQ(rec.size(), 3u);
        const pos p = tbtest::parse_fen(rec[0]);
        if (__builtin_popcountll(p.white | p.black) != pieces) continue;
        checked++;
        int wdl = 0, dtz = 0;
        if (!probes_to(rec, &wdl, &dtz) && ++failed <= 20)
            ADD_FAILURE() << rec[0] << ": got wdl " << wdl << ", dtz " << dtz << ", want " << rec[1] << " / " << rec[2];
    }
    EXPECT_GT(checked, 0);
    EXPECT_EQ(failed, 0) << "of " << checked;
}

INSTANTIATE_TEST_SUITE_P(ByPieceCount, KnownPositions, ::testing::Values(3, 4, 5),
                         [](const ::testing::TestParamInfo<int>& param_info) {
                             return std::to_string(param_info.param) + "pieces";
                         });

// Threads start probing right after registration, so the first-use mapping of WDL files and
// the loading of DTZ entries race; every thread must still see the known values.
TEST(ConcurrentProbes, ThreadsAgreeWithKnownValues) {
    SKIP_WITHOUT_TABLES();
    tbtest::init_tables(tbtest::syzygy_dir());
    const auto records = tbtest::read_records(tbtest::syzygy_dir() + "/cases.txt");
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    const size_t n = records.size();
    for (size_t t = 0; t < 6; t++)
        threads.emplace_back([&, t] {
            for (size_t i = 0; i < n; i++) {
                int wdl = 0, dtz = 0;
                if (!probes_to(records[(i + t * n / 6) % n], &wdl, &dtz)) mismatches++;
            }
        });
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(mismatches.load(), 0);
    tb_free();
}

}  // namespace
