// The Texel tuner: reading labelled positions, the share-out over the tuning threads, the
// error, the coordinate descent over registered tables with mirroring, and the printed tables.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "engine/eval/evaluate.h"
#include "tests/testutil.h"
#include "tuning/texel.h"

namespace {

namespace fs = std::filesystem;

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
        static std::atomic<int> serial{0};
        dir = fs::temp_directory_path() /
              ("vorix_texel_" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) + "_" +
               std::to_string(serial++));
        fs::create_directories(dir);
    }

    void TearDown() override {
        std::memcpy(pieceValue, savedValues, sizeof(savedValues));
        std::memcpy(pieceSquareScore, savedSquares, sizeof(savedSquares));
        clearTexelParameters();
        theTexelWorkForce.setNofWorkers(0);
        texelPositions.clear();
        std::error_code ignored;
        fs::remove_all(dir, ignored);
    }

    std::string writeFile(const std::string& text) {
        std::string path = (dir / "labelled.epd").string();
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

    // Reads the lines as the data set and shares it out over the usual number of threads.
    void loadPositions(const std::string& text) {
        ASSERT_EQ(readTexelPos(writeFile(text).c_str()), 0);
        theTexelWorkForce.setNofWorkers(NOF_TEXEL_WORKERS);
        theTexelWorkForce.shareOutPositions();
    }

    int32_t savedValues[6];
    int32_t savedSquares[6][64];
    fs::path dir;
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
    struct lineCase {
        const char* line;
        const char* fen;  // nullptr: skipped as malformed
        double result;
    };
    const lineCase cases[] = {
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
    std::string text;
    std::vector<const lineCase*> kept;
    int skipped = 0;
    for (const lineCase& c : cases) {
        text += std::string(c.line) + "\n";
        if (c.fen)
            kept.push_back(&c);
        else if (c.line[0] != '\0')
            skipped++;
    }
    ASSERT_EQ(readTexelPos(writeFile(text).c_str()), 0);
    EXPECT_EQ(texelSkippedLines, skipped);
    ASSERT_EQ(texelPositions.size(), kept.size());
    for (size_t i = 0; i < kept.size(); i++) {
        SCOPED_TRACE(kept[i]->line);
        EXPECT_EQ(texelPositions[i].fen, kept[i]->fen);
        EXPECT_EQ(texelPositions[i].result, kept[i]->result);
        EXPECT_EQ(texelPositions[i].spare, 0);
    }
}

// A file that cannot be read, or holds no position, stops the run with the one message.
TEST_F(TexelTest, RefusesAMissingOrEmptyFile) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(readTexelPos((dir / "absent.epd").string().c_str()), TEXEL_FILE_PROBLEM);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), missingFileMessage);

    std::string onlyJunk = writeFile("no result here\n\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(readTexelPos(onlyJunk.c_str()), TEXEL_FILE_PROBLEM);
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

// Pawn and knight positions, each labelled four times with a mix of results whose best-fitting
// score lies a few points from the position's present score: the tables can fit them better,
// but only by small steps, so the loop ends after a few passes.
std::string pawnAndKnightPositions() {
    struct mixCase {
        const char* fen;
        const char* results[4];
    };
    const mixCase mixes[] = {
        {"4k3/1N6/6p1/2n5/8/5P2/p5P1/4K3 b - -", {"1/2-1/2", "0-1", "0-1", "0-1"}},
        {"4k3/8/6P1/8/8/8/1p6/2N1K3 b - -", {"1-0", "1-0", "1-0", "1/2-1/2"}},
        {"4k3/5P2/8/2p4P/8/P1n5/2p2N2/4K3 b - -", {"1-0", "1-0", "1/2-1/2", "0-1"}},
        {"4k3/5P2/8/3N4/8/6p1/3pp3/4K3 b - -", {"1-0", "1/2-1/2", "0-1", "0-1"}},
        {"4k3/4P3/6p1/8/8/2P5/5p2/4K3 b - -", {"1-0", "1/2-1/2", "0-1", "0-1"}},
        {"4k3/3P4/p7/pP6/8/8/8/4K3 b - -", {"1-0", "1-0", "1-0", "0-1"}},
        {"4k3/P7/1p4p1/7n/1P6/8/P7/4K3 b - -", {"1-0", "1/2-1/2", "0-1", "0-1"}},
        {"4k3/p7/8/3P4/8/p7/7P/3NK3 b - -", {"1-0", "1-0", "1-0", "1/2-1/2"}},
    };
    std::string text;
    for (const mixCase& mix : mixes)
        for (const char* result : mix.results) text += labelled(mix.fen, result);
    return text;
}

// Registers the pawn table (inner rows) and the knight table as packed, mirrored groups that
// print as one pieceSquareScore block.
void registerPawnAndKnightTables() {
    ASSERT_EQ(addTexelGroup("Pawn", pieceSquareScore[PAWN], 64, 10, TEXEL_PACKED | TEXEL_PAWN_ROWS | TEXEL_MIRRORED),
              0);
    ASSERT_EQ(addTexelGroup("Knight", pieceSquareScore[KNIGHT], 64, 12, TEXEL_PACKED | TEXEL_MIRRORED), 48);
    ASSERT_EQ(nofTexelPars, 48 + 64);
}

// Copies files a..d of a table onto files h..e, as the mirrored tuning keeps them.
void symmetrize(int32_t* table) {
    for (int square = 0; square < 64; square++)
        if (square % 8 < 4) table[square - square % 8 + 7 - square % 8] = table[square];
}

struct loopReport {
    double start = -1, ending = -1, minimum = -1;
    int accepted = 0, passes = 0;
    std::vector<std::pair<int, int>> acceptedSteps;  // (parameter, printed step index) in order
};

// Runs the loop and reads its progress lines.
loopReport runAndReadLoop() {
    testing::internal::CaptureStdout();
    runTexelLoop();
    loopReport report;
    for (const std::string& line : splitLines(testing::internal::GetCapturedStdout())) {
        std::istringstream words(line);
        std::string first, second, skip;
        words >> first >> second;
        if (first == "Starting" && second == "error") words >> report.start;
        if (first == "Min" && second == "error") {
            std::string parameterWord, name, stepWord;
            int parameter = -1, stepIndex = -1;
            words >> skip >> parameterWord >> parameter >> name >> stepWord >> stepIndex;
            EXPECT_EQ(parameterWord + stepWord, "parameterstepsize") << line;
            report.acceptedSteps.emplace_back(parameter, stepIndex);
            report.accepted++;
        }
        if (first == "Improving:") report.passes = std::stoi(second);
        if (first == "Ending" && second == "error") words >> report.ending >> skip >> skip >> report.minimum;
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
    registerPawnAndKnightTables();

    loopReport report = runAndReadLoop();
    ASSERT_GT(report.start, 0.0);
    EXPECT_GT(report.accepted, 0);
    EXPECT_GT(report.passes, 1);
    EXPECT_LT(report.minimum, report.start);
    EXPECT_EQ(report.ending, report.minimum);
    // A success shrinks the step too: the next success of the same parameter is at a smaller
    // index, or at 0 once 0 is reached.
    std::vector<int> lastStep(nofTexelPars, -1);
    for (auto [parameter, stepIndex] : report.acceptedSteps) {
        ASSERT_TRUE(parameter >= 0 && parameter < nofTexelPars);
        int last = lastStep[parameter];
        if (last >= 0) {
            EXPECT_TRUE(stepIndex < last || (last == 0 && stepIndex == 0)) << "parameter " << parameter;
        }
        lastStep[parameter] = stepIndex;
    }

    int changed = 0;
    for (int type : {PAWN, KNIGHT}) {
        for (int square = 0; square < 64; square++) {
            int row = square / 8, file = square % 8;
            changed += pieceSquareScore[type][square] != before[type][square];
            if (type == PAWN && (row == 0 || row == 7)) {
                EXPECT_EQ(pieceSquareScore[type][square], 0) << "pawn index " << square;
            }
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
    struct mixCase {
        const char* fen;
        const char* results[4];
    };
    const mixCase mixes[] = {
        {"4k3/p7/8/3p4/P2p4/8/8/4K3 w - -", {"1/2-1/2", "0-1", "0-1", "0-1"}},
        {"4k3/5P2/3p4/P7/1p3p2/8/2P5/4K3 b - -", {"1-0", "1-0", "1-0", "0-1"}},
        {"4k3/1p6/6p1/P4P2/8/8/8/4K3 b - -", {"1-0", "1-0", "0-1", "0-1"}},
        {"4k3/p7/7P/3p4/1p6/8/8/4K3 b - -", {"1/2-1/2", "0-1", "0-1", "0-1"}},
    };
    std::string text;
    for (const mixCase& mix : mixes)
        for (const char* result : mix.results) text += labelled(mix.fen, result);
    loadPositions(text);
    ASSERT_EQ(addTexelGroup("Pawn", pieceSquareScore[PAWN], 64, 10, TEXEL_PACKED | TEXEL_PAWN_ROWS), 0);

    loopReport report = runAndReadLoop();
    EXPECT_LT(report.minimum, report.start);
    ASSERT_GT(report.accepted, 0);
    for (auto [parameter, stepIndex] : report.acceptedSteps) EXPECT_EQ(parameter % 2, 1) << "parameter " << parameter;
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
    EXPECT_EQ(report.accepted, 0);
    EXPECT_EQ(report.passes, 1);
    EXPECT_EQ(report.ending, report.start);

    int32_t expected[64];
    std::memcpy(expected, savedSquares[KNIGHT], sizeof(expected));
    symmetrize(expected);
    EXPECT_EQ(std::memcmp(pieceSquareScore[KNIGHT], expected, sizeof(expected)), 0);
    EXPECT_EQ(pieceSquareScore[KNIGHT][6], packScore(-50, -32));  // file g of the far rank took file b's word
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
// pairs of the piece-value table.
TEST_F(TexelTest, PrintsGroupsAsSourceTables) {
    int32_t tempo[1] = {25};
    ASSERT_EQ(addTexelGroup("tempo", tempo, 1, 1, 0), 0);
    ASSERT_EQ(addTexelGroup("pieceValue", pieceValue + KNIGHT, 4, 9, TEXEL_PACKED), 1);
    ASSERT_EQ(addTexelGroup("Pawn", pieceSquareScore[PAWN], 64, 10, TEXEL_PACKED | TEXEL_PAWN_ROWS | TEXEL_MIRRORED),
              9);
    ASSERT_EQ(addTexelGroup("Knight", pieceSquareScore[KNIGHT], 64, 12, TEXEL_PACKED | TEXEL_MIRRORED), 57);
    std::ostringstream out;
    printTexelParameters(out);
    std::vector<std::string> lines = splitLines(out.str());

    const std::string zeroRow =
        "X(   0,   0), X(   0,   0), X(   0,   0), X(   0,   0), X(   0,   0), X(   0,   0), "
        "X(   0,   0), X(   0,   0), ";
    std::vector<std::string> expected = {
        "TCONST combEval tempo = 25;",
        "TCONST combEval pieceValue = ",
        "{",
        " X(  82,  94), X( 332, 302), X( 361, 305), X( 462, 535), X(1031, 978), X(12000, 12000) ",
        "};",
        "TCONST combEval pieceSquareScore[6][NOFSQUARES] = ",
        "{",
        zeroRow,
        "X(  55, 148), X(  48, 151), X(  55, 141), X(  55, 111), X(  55, 103), X(  47, 118), X(  25, 129), "
        "X( -10, 128), ",
    };
    ASSERT_GE(lines.size(), expected.size());
    for (size_t i = 0; i < expected.size(); i++) EXPECT_EQ(lines[i], expected[i]) << "line " << i;
    EXPECT_EQ(lines[14], zeroRow.substr(0, zeroRow.size() - 2));  // no separator after a group's last value
    EXPECT_EQ(lines[15], "// Knight");
    EXPECT_EQ(lines[16],
              "X( -85, -95), X( -50, -32), X( -28, -12), X( -45, -11), X(  13, -16), X( -53, -52), "
              "X( -44, -33), X( -85, -95), ");
    ASSERT_EQ(lines.size(), 26u);
    EXPECT_EQ(lines[23],
              "X( -85, -21), X( -45, -52), X( -51, -15), X( -33, -18), X( -37, -17), X( -23, -28), "
              "X( -42, -47), X( -72, -42)");
    EXPECT_EQ(lines[24], "");
    EXPECT_EQ(lines[25], "};");
}

}  // namespace
