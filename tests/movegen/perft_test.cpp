// Perft node counts from a data file of known positions, and the perft-file self-check.
#include <gtest/gtest.h>

#include <fstream>

#include "engine/movegen/perft.h"
#include "engine/uci/perftcheck.h"
#include "tests/testutil.h"

namespace {

struct perftLine {
    std::string fen;
    int depth;
    uint64_t nodes;
};

std::vector<perftLine> readPerftFile(const std::string& path) {
    std::vector<perftLine> lines;
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        size_t first = line.find(';'), second = line.find(';', first + 1);
        if (first == std::string::npos || second == std::string::npos) continue;
        lines.push_back({line.substr(0, first), std::stoi(line.substr(first + 1, second - first - 1)),
                         std::stoull(line.substr(second + 1))});
    }
    return lines;
}

TEST(Perft, MatchesKnownCounts) {
    std::vector<perftLine> lines = readPerftFile(VORIX_TEST_DATA "/perft_unit.txt");
    ASSERT_GT(lines.size(), 100u);
    for (const perftLine& l : lines) {
        testPosition p(l.fen);
        EXPECT_EQ(perft(0, l.depth, p.get()), l.nodes) << l.fen << " depth " << l.depth;
    }
}

TEST(Perft, DepthZeroIsOneNode) {
    testPosition p(fenStartPos);
    EXPECT_EQ(perft(0, 0, p.get()), 1u);
}

// Runs the self-check on a file with the given lines and returns its printed output.
std::string runSelfCheck(const std::string& content, bool* result, uint64_t* mask = nullptr) {
    // One file per test: ctest runs the tests of this file in parallel processes.
    std::string path =
        testing::TempDir() + "vorix_perft_" + testing::UnitTest::GetInstance()->current_test_info()->name() + ".txt";
    std::ofstream(path) << content;
    initTables();
    testing::internal::CaptureStdout();
    *result = checkMoveGenWithPerft(path);
    std::string output = testing::internal::GetCapturedStdout();
    if (mask) *mask = hashKeyMask;
    resizeHashTable(1);  // the self-check leaves a large table behind
    return output;
}

TEST(PerftSelfCheck, StopsAtTheFullMarker) {
    bool ok = false;
    std::string output = runSelfCheck("full\n4k3/8/8/8/8/8/8/4K3 w - - 0 1;1;999\n", &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(output, "Results of the perft checks is OK: 1\n");
}

TEST(PerftSelfCheck, ReportsEachLineAndFailsOnAMismatch) {
    bool ok = true;
    uint64_t mask = 0;
    std::string output = runSelfCheck(
        "4k3/8/8/8/8/8/8/4K3 w - - 0 1;1;5\n4k3/8/8/8/8/8/8/4K3 w - - 0 1;2;99\nextended\n"
        "4k3/8/8/8/8/8/8/4K3 w - - 0 1;1;0\n",
        &ok, &mask);
    EXPECT_FALSE(ok);
    EXPECT_EQ(mask, 0x1FFFFFu) << "a 128 MB table is left behind";
    EXPECT_EQ(output.rfind("1; 4k3/8/8/8/8/8/8/4K3 w - - 0 1; 1; 5; 5; ", 0), 0u) << output;
    EXPECT_NE(output.find("\n0; 4k3/8/8/8/8/8/8/4K3 w - - 0 1; 2; 99; 25; "), std::string::npos) << output;
    EXPECT_NE(output.find("Results of the perft checks is OK: 0\n"), std::string::npos);
    EXPECT_EQ(output.find("; 0; "), std::string::npos) << "lines after the marker must not run";
}

TEST(PerftSelfCheck, MissingFileSkipsTheCheck) {
    initTables();
    testing::internal::CaptureStdout();
    bool ok = checkMoveGenWithPerft(testing::TempDir() + "no_such_perft_file.txt");
    std::string output = testing::internal::GetCapturedStdout();
    EXPECT_FALSE(ok);
    EXPECT_EQ(output, "There seems to be a problem with the perftFile. check of the move generator not executed\n");
}

}  // namespace
