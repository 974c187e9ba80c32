// The Texel tuner: reading labelled positions, the share-out over the tuning threads, the
// error, the coordinate descent over registered tables with mirroring, and the printed tables.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "engine/eval/evaluate.h"
#include "tests/testutil.h"
#include "tuning/texel.h"

namespace {

const char* const kingsWhite = "4k3/8/8/8/8/8/8/4K3 w - -";
const char* const kingsBlack = "4k3/8/8/8/8/8/8/4K3 b - -";
const char* const missingFileMessage = "There seems to be a problem with the tuning file. tuning not executed\n";

// Saves the evaluation tables and empties the tuner's globals; puts everything back after the
// test, since the other tests share the tables.
class TexelTest : public ::testing::Test {
protected:
    void SetUp() override {
        initTables();
        std::memcpy(savedValues, pieceValue, sizeof(savedValues));
        std::memcpy(savedSquares, pieceSquareScore, sizeof(savedSquares));
        clearTexelParameters();
    }

    void TearDown() override {
        std::memcpy(pieceValue, savedValues, sizeof(savedValues));
        std::memcpy(pieceSquareScore, savedSquares, sizeof(savedSquares));
        clearTexelParameters();
        theTexelWorkForce.setNofWorkers(0);
        texelPositions.clear();
        std::remove(path.c_str());
    }

    // The text as this test's own file (ctest runs tests in parallel processes).
    const char* writeFile(const std::string& text) {
        std::ofstream(path, std::ios::binary) << text;
        return path.c_str();
    }

    // Reads the lines as the data set and shares it out over the usual number of threads.
    void loadPositions(const std::string& text) {
        ASSERT_EQ(readTexelPos(writeFile(text)), 0);
        theTexelWorkForce.setNofWorkers(NOF_TEXEL_WORKERS);
        theTexelWorkForce.shareOutPositions();
    }

    int32_t savedValues[6];
    int32_t savedSquares[6][64];
    std::string path = testing::TempDir() + "vorix_texel_" + std::to_string(getpid()) + "_" +
                       testing::UnitTest::GetInstance()->current_test_info()->name() + ".epd";
};

std::string labelled(const std::string& fen, const char* result) { return fen + " c9 \"" + result + "\";\n"; }

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Each line is either a position with its result or skipped; blank lines are not counted.
TEST_F(TexelTest, ReadsResultsAndSkipsMalformedLines) {
    const struct {
        const char* line;
        const char* fen;  // nullptr: skipped as malformed
        double result;
    } cases[] = {
        {"4k3/8/8/8/8/8/8/4K3 w - - c9 \"1-0\";", kingsWhite, 1.0},
        {"4k3/8/8/8/8/8/8/4K3 b - - c9 \"1/2-1/2\";", kingsBlack, 0.5},
        {"4k3/8/8/8/8/8/8/4K3 w - - c9 \"0-1\";", kingsWhite, 0.0},
        {"4k3/8/8/8/8/8/8/4K3 w - - c9 \"*\";", kingsWhite, 0.0},  // unknown result: a Black win
        {"4k3/8/8/8/8/8/8/4K3  w\t- -  c9 \"1-0\"; c0 \"x\";\r", kingsWhite, 1.0},
        {"4k3/8/8/8/8/8/8/4K3 b c9 \"1/2-1/2\";", "4k3/8/8/8/8/8/8/4K3 b", 0.5},
        {"", nullptr, 0.0},
        {"4k3/8/8/8/8/8/8/4K3 w - - \"1-0\";", nullptr, 0.0},         // no c9
        {"4k3/8/8/8/8/8/8/4K3 w - - c9", nullptr, 0.0},               // no result
        {"4k3/8/8/8/8/8/8/4K3 w - - c9 1-0", nullptr, 0.0},           // result too short
        {"4k3/8/8/8/8/8/8/4K3 c9 \"1-0\";", nullptr, 0.0},            // placement alone
        {"4k3/8/8/8/8/8/8/4K3 w - - x 1 c9 \"1-0\";", nullptr, 0.0},  // clock not a number
        {"c9 \"1-0\";", nullptr, 0.0},
    };
    std::string text, expected, read;
    int skipped = 0;
    for (const auto& c : cases) {
        text += std::string(c.line) + "\n";
        if (c.fen) expected += std::string(c.fen) + " " + std::to_string(c.result) + "\n";
        skipped += !c.fen && c.line[0] != '\0';
    }
    ASSERT_EQ(readTexelPos(writeFile(text)), 0);
    EXPECT_EQ(texelSkippedLines, skipped);
    for (const texelPosStruct& t : texelPositions)
        read += t.fen + " " + std::to_string(t.result) + (t.spare ? " spare set" : "") + "\n";
    EXPECT_EQ(read, expected);
}

// A file that cannot be read, or holds no position, stops the run with the one message.
TEST_F(TexelTest, RefusesAMissingOrEmptyFile) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(readTexelPos((path + ".absent").c_str()), TEXEL_FILE_PROBLEM);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), missingFileMessage);

    testing::internal::CaptureStdout();
    EXPECT_EQ(readTexelPos(writeFile("no result here\n\n")), TEXEL_FILE_PROBLEM);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), missingFileMessage);
    EXPECT_EQ(texelSkippedLines, 1);
}

// Kings alone weigh the end game only, so the score is the end-game tempo, 17, from White's
// view: a White win with White to move and a Black win with Black to move miss by the same.
TEST_F(TexelTest, ErrorOfKingsAloneIsTheTempoMissFromWhitesView) {
    loadPositions(labelled(kingsWhite, "1-0") + labelled(kingsBlack, "0-1") + labelled(kingsWhite, "1/2-1/2"));
    const double winMiss = 0.2073421492011264;      // (1 - 1 / (1 + 10^(-1.83 * 17 / 400)))^2
    const double drawMiss = 0.0019937669693165547;  // (0.5 - 1 / (1 + 10^(-1.83 * 17 / 400)))^2
    EXPECT_NEAR(theTexelWorkForce.calcTexelError(), (2 * winMiss + drawMiss) / 3, 1e-15);

    // Fewer positions than threads: all of them go to the last thread.
    ASSERT_EQ(theTexelWorkForce.workers.size(), static_cast<size_t>(NOF_TEXEL_WORKERS));
    for (int k = 0; k + 1 < NOF_TEXEL_WORKERS; k++) EXPECT_TRUE(theTexelWorkForce.workers[k]->positions.empty());
    EXPECT_EQ(theTexelWorkForce.workers.back()->positions.size(), 3u);
}

// 50 positions over 24 threads: two each in file order, the last thread four; the pooled error
// equals the error of one thread over the whole set.
TEST_F(TexelTest, SharesPositionsInOrderWithTheRemainderLast) {
    std::string text;
    for (int i = 0; i < 50; i++) {
        std::string fen = "4k3/8/8/8/8/8/" + std::string(i % 2 ? "P7" : "8") + "/4K3 w - - " + std::to_string(i) + " 1";
        text += labelled(fen, i % 3 == 0 ? "1-0" : "1/2-1/2");
    }
    loadPositions(text);
    const std::vector<texelWorker*>& workers = theTexelWorkForce.workers;
    for (int k = 0; k < NOF_TEXEL_WORKERS; k++) {
        size_t expected = k + 1 < NOF_TEXEL_WORKERS ? 2 : 4;
        ASSERT_EQ(workers[k]->positions.size(), expected) << "thread " << k;
        for (size_t j = 0; j < expected; j++) EXPECT_EQ(workers[k]->positions[j].fen, texelPositions[2 * k + j].fen);
    }

    texelWorker alone(0);
    alone.positions = texelPositions;
    alone.calcTexelPosSubset();
    EXPECT_NEAR(theTexelWorkForce.calcTexelError(), alone.subsetError / 50, 1e-15);
    EXPECT_GT(alone.subsetError, 0.0);
}

// Positions each labelled once per letter of their results: '+' a White win, '=' a draw, '-' a
// Black win.
std::string labelledMixes(std::initializer_list<std::pair<const char*, const char*>> mixes) {
    std::string text;
    for (auto [fen, results] : mixes)
        for (const char* r = results; *r; r++) text += labelled(fen, *r == '+' ? "1-0" : *r == '=' ? "1/2-1/2" : "0-1");
    return text;
}

// Pawn and knight positions whose best-fitting score lies a few points from their present score:
// the tables can fit them better, but only by small steps, so the loop ends after a few passes.
std::string pawnAndKnightPositions() {
    return labelledMixes({{"4k3/1N6/6p1/2n5/8/5P2/p5P1/4K3 b - -", "=---"},
                          {"4k3/8/6P1/8/8/8/1p6/2N1K3 b - -", "+++="},
                          {"4k3/5P2/8/2p4P/8/P1n5/2p2N2/4K3 b - -", "++=-"},
                          {"4k3/5P2/8/3N4/8/6p1/3pp3/4K3 b - -", "+=--"},
                          {"4k3/4P3/6p1/8/8/2P5/5p2/4K3 b - -", "+=--"},
                          {"4k3/3P4/p7/pP6/8/8/8/4K3 b - -", "+++-"},
                          {"4k3/P7/1p4p1/7n/1P6/8/P7/4K3 b - -", "+=--"},
                          {"4k3/p7/8/3P4/8/p7/7P/3NK3 b - -", "+++="}});
}

// Copies files a..d of a table onto files h..e, as the mirrored tuning keeps them.
void symmetrize(int32_t* table) {
    for (int square = 0; square < 64; square++)
        if (square % 8 < 4) table[square - square % 8 + 7 - square % 8] = table[square];
}

struct loopReport {
    double start = -1, ending = -1, minimum = -1;
    int passes = 0;
    std::vector<std::pair<int, int>> accepted;  // (parameter, printed step index) in order
};

// Runs the loop and reads its progress lines.
loopReport runAndReadLoop() {
    testing::internal::CaptureStdout();
    runTexelLoop();
    loopReport report;
    for (const std::string& line : splitLines(testing::internal::GetCapturedStdout())) {
        const char* text = line.c_str();
        int parameter = -1, stepIndex = -1;
        std::sscanf(text, "Starting error %lf", &report.start);
        if (std::sscanf(text, "Min error %*f parameter %d %*s stepsize %d", &parameter, &stepIndex) == 2)
            report.accepted.emplace_back(parameter, stepIndex);
        std::sscanf(text, " Improving: %d", &report.passes);
        std::sscanf(text, "Ending error %lf Minimum error %lf", &report.ending, &report.minimum);
    }
    return report;
}

// On tables that are already mirror images the loop lowers the error, moves only registered
// words, keeps every pair of mirror squares equal, and leaves the tables at the minimum.
TEST_F(TexelTest, LoopLowersTheErrorAndEndsAtItsMinimum) {
    symmetrize(pieceSquareScore[PAWN]);
    symmetrize(pieceSquareScore[KNIGHT]);
    int32_t before[2][64];
    std::memcpy(before, pieceSquareScore, sizeof(before));
    loadPositions(pawnAndKnightPositions());
    // The pawn table's inner rows and the knight table, packed and mirrored.
    ASSERT_EQ(addTexelGroup("Pawn", pieceSquareScore[PAWN], 64, 10, TEXEL_PACKED | TEXEL_PAWN_ROWS | TEXEL_MIRRORED),
              0);
    ASSERT_EQ(addTexelGroup("Knight", pieceSquareScore[KNIGHT], 64, 12, TEXEL_PACKED | TEXEL_MIRRORED), 48);

    loopReport report = runAndReadLoop();
    ASSERT_GT(report.start, 0.0);
    EXPECT_FALSE(report.accepted.empty());
    EXPECT_GT(report.passes, 1);
    EXPECT_LT(report.minimum, report.start);
    EXPECT_EQ(report.ending, report.minimum);
    // A success shrinks the step too: the next success of the same parameter is at a smaller
    // index, or at 0 once 0 is reached.
    std::map<int, int> lastStep;
    for (auto [parameter, stepIndex] : report.accepted) {
        EXPECT_TRUE(!lastStep.count(parameter) || stepIndex < lastStep[parameter] || stepIndex == 0) << parameter;
        lastStep[parameter] = stepIndex;
    }

    int changed = 0;
    for (int type : {PAWN, KNIGHT}) {
        for (int square = 0; square < 64; square++) {
            int row = square / 8, file = square % 8;
            changed += pieceSquareScore[type][square] != before[type][square];
            EXPECT_TRUE(type != PAWN || (row > 0 && row < 7) || pieceSquareScore[type][square] == before[type][square])
                << "pawn index " << square << ": the outer rows are not registered";
            EXPECT_EQ(pieceSquareScore[type][square], pieceSquareScore[type][row * 8 + 7 - file])
                << "type " << type << " index " << square;
        }
    }
    EXPECT_GT(changed, 0);
    for (int type = BISHOP; type <= KING; type++)
        EXPECT_EQ(std::memcmp(pieceSquareScore[type], savedSquares[type], sizeof(savedSquares[type])), 0);
    EXPECT_EQ(std::memcmp(pieceValue, savedValues, sizeof(savedValues)), 0);
}

// Kings and pawns alone weigh the end game only, so only the end-game entries (the second of
// each pair) can lower the error, and the middle-game halves stay as they were.
TEST_F(TexelTest, EndGameEntriesStepTheHighHalfOnly) {
    loadPositions(labelledMixes({{"4k3/p7/8/3p4/P2p4/8/8/4K3 w - -", "=---"},
                                 {"4k3/5P2/3p4/P7/1p3p2/8/2P5/4K3 b - -", "+++-"},
                                 {"4k3/1p6/6p1/P4P2/8/8/8/4K3 b - -", "++--"},
                                 {"4k3/p7/7P/3p4/1p6/8/8/4K3 b - -", "=---"}}));
    ASSERT_EQ(addTexelGroup("Pawn", pieceSquareScore[PAWN], 64, 10, TEXEL_PACKED | TEXEL_PAWN_ROWS), 0);

    loopReport report = runAndReadLoop();
    EXPECT_LT(report.minimum, report.start);
    ASSERT_FALSE(report.accepted.empty());
    for (auto [parameter, stepIndex] : report.accepted) EXPECT_EQ(parameter % 2, 1) << "parameter " << parameter;
    int changed = 0;
    for (int square = 0; square < 64; square++) {
        EXPECT_EQ(mgHalf(pieceSquareScore[PAWN][square]), mgHalf(savedSquares[PAWN][square])) << "index " << square;
        changed += egHalf(pieceSquareScore[PAWN][square]) != egHalf(savedSquares[PAWN][square]);
    }
    EXPECT_GT(changed, 0);
}

// Deliberate: a trial that fails still writes the restored word to the mirror square, so a
// mirrored table comes out as the mirror image of its files a..d even where nothing improved.
TEST_F(TexelTest, FailedTrialsStillWriteTheMirrorSquare) {
    loadPositions(labelled(kingsWhite, "1-0") + labelled(kingsBlack, "1/2-1/2"));
    ASSERT_EQ(addTexelGroup("Knight", pieceSquareScore[KNIGHT], 64, 12, TEXEL_PACKED | TEXEL_MIRRORED), 0);
    loopReport report = runAndReadLoop();
    EXPECT_TRUE(report.accepted.empty());
    EXPECT_EQ(report.passes, 1);
    EXPECT_EQ(report.ending, report.start);

    int32_t expected[64];
    std::memcpy(expected, savedSquares[KNIGHT], sizeof(expected));
    symmetrize(expected);
    EXPECT_EQ(std::memcmp(pieceSquareScore[KNIGHT], expected, sizeof(expected)), 0);
}

// With nothing registered, the run prints the start, one empty pass and equal end errors.
TEST_F(TexelTest, EmptyListMakesOneEmptyPass) {
    loadPositions(pawnAndKnightPositions());
    testing::internal::CaptureStdout();
    double minimum = runTexelLoop();
    std::vector<std::string> lines = splitLines(testing::internal::GetCapturedStdout());
    std::ostringstream error;
    error << minimum;
    std::vector<std::string> expected = {"Starting error " + error.str(), "", " Improving: 1",
                                         "Ending error " + error.str() + " Minimum error " + error.str()};
    EXPECT_EQ(lines, expected);
}

// The printed groups in the engine's table syntax: lead-ins and braces by kind, packed pairs
// four wide, eight values to a line, pawn rows widened, mirrored groups doubled, the fixed
// pairs of the piece-value table. The tables hold values set here.
TEST_F(TexelTest, PrintsGroupsAsSourceTables) {
    const int32_t values[4] = {packScore(332, 302), packScore(361, -5), packScore(462, 535), packScore(1031, 978)};
    std::memcpy(pieceValue + KNIGHT, values, sizeof(values));
    for (int square = 0; square < 64; square++) {
        pieceSquareScore[PAWN][square] = packScore(square, -square);
        pieceSquareScore[KNIGHT][square] = packScore(-10 * square, 0);
    }
    int32_t tempo[1] = {25};
    ASSERT_EQ(addTexelGroup("tempo", tempo, 1, 1, 0), 0);
    ASSERT_EQ(addTexelGroup("pieceValue", pieceValue + KNIGHT, 4, 9, TEXEL_PACKED), 1);
    ASSERT_EQ(addTexelGroup("Pawn", pieceSquareScore[PAWN], 64, 10, TEXEL_PACKED | TEXEL_PAWN_ROWS | TEXEL_MIRRORED),
              9);
    ASSERT_EQ(addTexelGroup("Knight", pieceSquareScore[KNIGHT], 64, 12, TEXEL_PACKED | TEXEL_MIRRORED), 57);
    std::ostringstream out;
    printTexelParameters(out);
    std::vector<std::string> lines = splitLines(out.str());
    const std::vector<std::string> expected = {
        "TCONST combEval tempo = 25;",
        "TCONST combEval pieceValue = ",
        "{",
        " X(  82,  94), X( 332, 302), X( 361,  -5), X( 462, 535), X(1031, 978), X(12000, 12000) ",
        "};",
        "TCONST combEval pieceSquareScore[6][NOFSQUARES] = ",
        "{",
        "X(   0,   0), X(   1,  -1), X(   2,  -2), X(   3,  -3), X(   4,  -4), X(   5,  -5), X(   6,  -6), "
        "X(   7,  -7), ",
    };
    ASSERT_EQ(lines.size(), 26u);
    for (size_t i = 0; i < expected.size(); i++) EXPECT_EQ(lines[i], expected[i]) << "line " << i;
    EXPECT_EQ(lines[14],  // no separator after a group's last value
              "X(  56, -56), X(  57, -57), X(  58, -58), X(  59, -59), X(  60, -60), X(  61, -61), X(  62, -62), "
              "X(  63, -63)");
    EXPECT_EQ(lines[15], "// Knight");
    EXPECT_EQ(lines[24], "");
    EXPECT_EQ(lines[25], "};");
}

}  // namespace
