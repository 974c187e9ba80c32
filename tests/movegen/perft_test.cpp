// Perft node counts of known positions through the engine's own perft-file self-check, and how
// the self-check reads its file.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "engine/uci/perftcheck.h"
#include "tests/testutil.h"

namespace {

// Runs the self-check on path and returns what it printed. The self-check leaves a 128 MB table
// behind: its mask is returned before the table is made small again.
std::string runSelfCheck(const std::string& path, bool* ok, uint64_t* mask = nullptr) {
    initTables();
    testing::internal::CaptureStdout();
    *ok = checkMoveGenWithPerft(path);
    std::string output = testing::internal::GetCapturedStdout();
    if (mask) *mask = hashKeyMask;
    resizeHashTable(1);
    return output;
}

// A file of the given lines, one per test: ctest runs the tests of this file in parallel.
std::string fileWith(const std::string& content) {
    std::string path =
        testing::TempDir() + "vorix_perft_" + testing::UnitTest::GetInstance()->current_test_info()->name() + ".txt";
    std::ofstream(path) << content;
    return path;
}

// Every result line reads "1|0; fen; depth; expected; computed; ns": a failure lists the misses.
TEST(Perft, MatchesKnownCounts) {
    bool ok = false;
    std::istringstream output(runSelfCheck(VORIX_TEST_DATA "/perft_unit.txt", &ok));
    std::string misses;
    int lines = 0;
    for (std::string line; std::getline(output, line); lines++)
        if (line.rfind("0;", 0) == 0) misses += line + "\n";
    EXPECT_TRUE(ok) << misses;
    EXPECT_GT(lines, 100);
}

// Each line is reported; a line "extended" or "full" ends the run, deliberately.
TEST(PerftSelfCheck, ReportsEachLineAndStopsAtAMarker) {
    const std::string kings = "4k3/8/8/8/8/8/8/4K3 w - - 0 1";
    for (const char* marker : {"extended", "full"}) {
        bool ok = true;
        uint64_t mask = 0;
        std::string output =
            runSelfCheck(fileWith(kings + ";1;5\n" + kings + ";2;99\n" + marker + "\n" + kings + ";1;0\n"), &ok, &mask);
        SCOPED_TRACE(output);
        EXPECT_FALSE(ok);
        EXPECT_EQ(mask, 0x1FFFFFu) << "a 128 MB table is left behind";
        EXPECT_EQ(output.rfind("1; 4k3/8/8/8/8/8/8/4K3 w - - 0 1; 1; 5; 5; ", 0), 0u);
        EXPECT_NE(output.find("\n0; 4k3/8/8/8/8/8/8/4K3 w - - 0 1; 2; 99; 25; "), std::string::npos);
        EXPECT_NE(output.find("Results of the perft checks is OK: 0\n"), std::string::npos);
        EXPECT_EQ(output.find("; 0; "), std::string::npos) << "lines after the marker must not run";
    }
}

TEST(PerftSelfCheck, MissingFileSkipsTheCheck) {
    bool ok = true;
    EXPECT_EQ(runSelfCheck(testing::TempDir() + "no_such_perft_file.txt", &ok),
              "There seems to be a problem with the perftFile. check of the move generator not executed\n");
    EXPECT_FALSE(ok);
}

}  // namespace
