// Every position of the shared cases file probes to its known WDL and DTZ; grouped by the
// number of pieces so a failing table size stands out.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/fathom/tb_test_util.h"

namespace {

class KnownPositions : public ::testing::TestWithParam<int> {
protected:
    static void SetUpTestSuite() { tb_init(tbtest::syzygy_dir().c_str()); }
    static void TearDownTestSuite() { tb_free(); }
};

TEST_P(KnownPositions, WdlAndDtzMatch) {
    SKIP_WITHOUT_TABLES();
    const int pieces = GetParam();
    int checked = 0, failed = 0;
    for (const auto& rec : tbtest::read_records(tbtest::syzygy_dir() + "/cases.txt")) {
        ASSERT_EQ(rec.size(), 3u);
        pos p = tbtest::parse_fen(rec[0]);
        if (tbtest::piece_count(p) != pieces) continue;
        p.rule50 = 0;  // the known values ignore the clock
        int ok_wdl = 0, ok_dtz = 0;
        const int wdl = probe_wdl(&p, &ok_wdl);
        const int dtz = probe_dtz(&p, &ok_dtz);
        checked++;
        if (!ok_wdl || !ok_dtz || wdl != std::stoi(rec[1]) || dtz != std::stoi(rec[2])) {
            if (++failed <= 20)
                ADD_FAILURE() << rec[0] << ": got wdl " << wdl << " (ok " << ok_wdl << "), dtz " << dtz << " (ok "
                              << ok_dtz << "), want " << rec[1] << " / " << rec[2];
        }
    }
    EXPECT_GT(checked, 0);
    EXPECT_EQ(failed, 0) << "of " << checked;
    std::cout << "[ info     ] " << pieces << "-piece positions: " << checked - failed << " of " << checked
              << " match\n";
}

INSTANTIATE_TEST_SUITE_P(ByPieceCount, KnownPositions, ::testing::Values(3, 4, 5),
                         [](const ::testing::TestParamInfo<int>& param_info) {
                             return std::to_string(param_info.param) + "pieces";
                         });

// Threads start probing right after registration, so the first-use mapping of WDL files and
// the loading of DTZ entries race; every thread must still see the known values.
TEST(ConcurrentProbes, ThreadsAgreeWithKnownValues) {
    SKIP_WITHOUT_TABLES();
    ::testing::internal::CaptureStdout();
    tb_init(tbtest::syzygy_dir().c_str());
    ::testing::internal::GetCapturedStdout();
    const auto records = tbtest::read_records(tbtest::syzygy_dir() + "/cases.txt");
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    const size_t n = records.size();
    for (size_t t = 0; t < 6; t++)
        threads.emplace_back([&, t] {
            for (size_t i = 0; i < n; i++) {
                const auto& rec = records[(i + t * n / 6) % n];
                pos p = tbtest::parse_fen(rec[0]);
                p.rule50 = 0;
                int ok_wdl = 0, ok_dtz = 0;
                const int wdl = probe_wdl(&p, &ok_wdl), dtz = probe_dtz(&p, &ok_dtz);
                if (!ok_wdl || !ok_dtz || wdl != std::stoi(rec[1]) || dtz != std::stoi(rec[2])) mismatches++;
            }
        });
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(mismatches.load(), 0);
    tb_free();
}

}  // namespace
