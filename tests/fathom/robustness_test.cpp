// Damaged tables: truncated, byte-corrupted and vanished files fail the probes that need them
// (a truncated file never yields a wrong value) and never make the prober read outside the
// mapping. Run under AddressSanitizer to catch stray reads.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/fathom/tb_test_util.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<char>;

struct Known {
    pos p;
    int wdl, dtz;
};

Bytes read_bytes(const fs::path& f) {
    std::ifstream in(f, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class DamagedTables : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (!tbtest::have_tables()) GTEST_SKIP() << "no tables";
        tb_init(tbtest::syzygy_dir().c_str());
        // Random positions, plus some whose DTZ needs the DTZ table itself.
        std::mt19937_64 rng(7);
        int deep = 0;
        for (int i = 0; i < 20000 && known.size() < 60; i++) {
            Known k{tbtest::random_position(GetParam(), i & 1, rng), 0, 0};
            int ok_w = 0, ok_d = 0;
            k.wdl = probe_wdl(&k.p, &ok_w);
            k.dtz = probe_dtz(&k.p, &ok_d);
            ASSERT_TRUE(ok_w && ok_d);
            const bool needs_dtz = std::abs(k.dtz) > 1;
            if (known.size() < 30 || (needs_dtz && deep < 30)) {
                known.push_back(k);
                deep += needs_dtz;
            }
        }
    }
    void TearDown() override { tb_free(); }

    // Puts the damaged file in front of the intact set and probes every known position.
    // Returns the number of failed probes; with `exact`, a probe that succeeds must be right.
    int probe_damaged(const std::string& file, const Bytes& bytes, bool exact) {
        tbtest::ScratchDir dir("damaged");
        std::ofstream(dir.path / file, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
        ::testing::internal::CaptureStderr();
        tbtest::init_tables(dir.path.string() + ":" + tbtest::syzygy_dir());
        int failed = 0;
        for (const Known& k : known) {
            int ok_w = 0, ok_d = 0, score = 0;
            const int wdl = probe_wdl(&k.p, &ok_w), dtz = probe_dtz(&k.p, &ok_d);
            probe_root(&k.p, &score);
            failed += !ok_w + !ok_d;
            if (exact) {
                EXPECT_TRUE(!ok_w || wdl == k.wdl) << file;
                EXPECT_TRUE(!ok_d || dtz == k.dtz) << file;
            }
        }
        tb_free();
        ::testing::internal::GetCapturedStderr();
        return failed;
    }

    std::vector<Known> known;
};

TEST_P(DamagedTables, TruncatedFilesFail) {
    for (const char* suffix : {".rtbw", ".rtbz"}) {
        const std::string file = std::string(GetParam()) + suffix;
        const Bytes whole = read_bytes(fs::path(tbtest::syzygy_dir()) / file);
        for (size_t len : {size_t(0), size_t(7), size_t(100), whole.size() / 2, whole.size() * 3 / 4}) {
            SCOPED_TRACE(file + " cut to " + std::to_string(len));
            EXPECT_GT(probe_damaged(file, Bytes(whole.begin(), whole.begin() + std::min(len, whole.size())), true), 0);
        }
    }
}

TEST_P(DamagedTables, CorruptedBytesAreSurvived) {
    std::mt19937_64 rng(11);
    for (const char* suffix : {".rtbw", ".rtbz"}) {
        const std::string file = std::string(GetParam()) + suffix;
        const Bytes whole = read_bytes(fs::path(tbtest::syzygy_dir()) / file);
        for (int variant = 0; variant < 40; variant++) {
            Bytes bytes = whole;
            // Half of the variants hit the headers, half anywhere in the file.
            const size_t span = variant % 2 ? bytes.size() : std::min<size_t>(bytes.size(), 128);
            for (int k = 0; k <= variant % 8; k++) bytes[4 + rng() % (span - 4)] ^= char(1 + rng() % 255);
            probe_damaged(file, bytes, false);
        }
        Bytes bad_magic = whole;
        bad_magic[0] ^= 1;
        EXPECT_GT(probe_damaged(file, bad_magic, true), 0) << file;
    }
}

INSTANTIATE_TEST_SUITE_P(Tables, DamagedTables, ::testing::Values("KQvK", "KPvK", "KRvKR", "KBvKP", "KRvKN"));

TEST(VanishedTable, ProbeFailsWithMessage) {
    SKIP_WITHOUT_TABLES();
    tbtest::ScratchDir dir("vanished");
    dir.copy_table("KQvK.rtbw");
    tbtest::init_tables(dir.path.string());
    fs::remove(dir.path / "KQvK.rtbw");
    const pos p = tbtest::parse_fen("8/8/8/8/8/5k2/8/2K1Q3 b - - 0 1");
    int ok = 1, score = 0;
    ::testing::internal::CaptureStderr();
    probe_wdl(&p, &ok);
    EXPECT_EQ(ok, 0);
    probe_wdl(&p, &ok);
    EXPECT_EQ(ok, 0);
    EXPECT_EQ(probe_root(&p, &score), TB_RESULT_FAILED_ROOT);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Could not find KQvK.rtbw\n");
    tb_free();
}

}  // namespace
