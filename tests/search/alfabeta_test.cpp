// The node procedures on small positions: draws (repetition, fifty moves, material),
// mate and stalemate scores, mate distance, quiescence on captures and checks.
#include <gtest/gtest.h>

#include "engine/movegen/legal.h"
#include "engine/movegen/makemove.h"
#include "engine/search/search.h"
#include "engine/search/searchdata.h"
#include "engine/threads/workforce.h"
#include "tests/testutil.h"

namespace {

// A position prepared for searching: its own search tables, the move buffer inside them.
struct searchPosition {
    std::unique_ptr<searchDataStruct> data{new searchDataStruct()};
    std::unique_ptr<positionStruct> pos{new positionStruct()};
    explicit searchPosition(const std::string& fen) {
        initTables();
        clearHashTableMT();
        clearSearchHistory(data.get());
        pos->search = data.get();
        pos->plyState[0].moveList = data->moveBuffer;
        setPosition(fen, pos.get());
        engine.noTimeLimit = true;
        engine.nodes = 0;
        theWorkForce.stopSearch.store(false);
    }
    // Plays moves given as text from the root, as the game history would hold them.
    void play(const std::vector<std::string>& moves) {
        for (const std::string& text : moves) {
            moveStruct move;
            ASSERT_TRUE(moveFromText(text, pos.get(), &move));
            makeMove(pos.get(), 0, move);
            plyStateStruct& root = pos->plyState[0];
            root.castlingRights = pos->plyState[1].castlingRights;
            root.enPassantSquare = pos->plyState[1].enPassantSquare;
        }
        pos->plyState[0].inCheck = isSideInCheck(pos.get(), pos->sideToMove);
    }
    // Makes the root state valid at a deeper ply, as if the search had reached it.
    void placeAt(int ply) {
        pos->plyState[ply] = pos->plyState[0];
        for (int p = 0; p < ply; p++) pos->plyState[p].currentMove = EMPTYMOVE;
    }
    int search(int ply, int depth, int alpha = -32767, int beta = 32767) {
        placeAt(ply);
        pos->timeCheckCounter = 4096;
        return alfabeta(static_cast<unsigned char>(ply), depth, static_cast<short>(alpha), static_cast<short>(beta),
                        pos.get());
    }
};

}  // namespace

TEST(Alfabeta, MateAndStalemateAtTheNode) {
    // Black to move is mated (back-rank mate): at ply 3 the score is 3 - 32000.
    searchPosition mated("3R2k1/5ppp/8/8/8/8/5PPP/6K1 b - - 0 1");
    EXPECT_EQ(mated.search(3, 2), 3 - 32000);
    // Stalemate scores 0.
    searchPosition stalemate("7k/5Q2/6K1/8/8/8/8/8 b - - 0 1");
    EXPECT_EQ(stalemate.search(1, 2), 0);
}

TEST(Alfabeta, FindsMateInOneAndScoresItByDistance) {
    searchPosition p("6k1/5ppp/8/8/8/8/5PPP/3R2K1 w - - 0 1");
    EXPECT_EQ(p.search(0, 3), 32000 - 1);
    EXPECT_TRUE(sameMove(p.pos->rootBestMove, moveStruct{3, 59, 0, 0}));  // d1d8
}

TEST(Alfabeta, FiftyMoveRuleDrawsOnlyWhenAMoveExists) {
    // A clock of 100 with legal moves draws even when one side is far ahead.
    searchPosition drawn("6k1/8/8/8/8/8/8/QQ4K1 b - - 100 80");
    EXPECT_EQ(drawn.search(1, 2), 0);
    // Mate takes precedence over the fifty-move rule.
    searchPosition mated("3R2k1/5ppp/8/8/8/8/5PPP/6K1 b - - 100 80");
    EXPECT_EQ(mated.search(1, 2), 1 - 32000);
}

TEST(Alfabeta, RepetitionDrawsBelowTheRootButNotAtIt) {
    // White is a queen up; the knights' shuffle returns to the same position.
    const std::string fen = "6k1/8/8/8/8/8/1n6/QN4K1 w - - 0 1";
    searchPosition p(fen);
    p.play({"b1c3", "b2d3", "c3b1", "d3b2"});
    EXPECT_EQ(p.pos->hashKey, p.pos->hashHistory[p.pos->historyCount - 5]);
    EXPECT_EQ(p.search(1, 1), 0);
    EXPECT_NE(p.search(0, 1), 0);
}

TEST(Alfabeta, InsufficientMaterialScoresZeroBelowTheRoot) {
    searchPosition minorEach("8/8/4k3/8/3n4/8/2B1K3/8 w - - 0 1");
    EXPECT_EQ(minorEach.search(1, 3), 0);
    searchPosition rookUp("8/8/4k3/8/8/8/2R1K3/8 w - - 0 1");
    EXPECT_GT(rookUp.search(1, 3), 300);
}

TEST(Alfabeta, MateDistancePruningAndPlyHorizon) {
    searchPosition p("4k3/8/8/8/8/8/8/4K2R w K - 0 1");
    // At ply 5 nothing can score above a mate in 4 plies: alpha there fails at once.
    EXPECT_EQ(p.search(5, 4, 31996, 32767), 31996);
    EXPECT_EQ(p.search(5, 4, -32767, -31996), -31995);
    // Beyond ply 126 the static evaluation is returned.
    EXPECT_EQ(p.search(127, 5), evaluateN(127, p.pos.get()));
}

TEST(Quiescence, ResolvesCapturesAndIgnoresLosingOnes) {
    // White to move can win a queen with a pawn.
    searchPosition win("4k3/8/8/3q4/4P3/8/8/4K3 w - - 0 1");
    int standPat = evaluateN(0, win.pos.get());
    EXPECT_GT((win.placeAt(1), quiescence(1, 0, -32767, 32767, win.pos.get())), standPat + 800);
    // The only capture loses the queen to a pawn recapture: stand pat stays.
    searchPosition lose("4k3/8/2p5/3p4/8/8/3Q4/4K3 w - - 0 1");
    EXPECT_EQ((lose.placeAt(1), quiescence(1, 0, -32767, 32767, lose.pos.get())), evaluateN(0, lose.pos.get()));
}

TEST(Quiescence, CheckmateAndDrawnMaterial) {
    searchPosition mated("3R2k1/5ppp/8/8/8/8/5PPP/6K1 b - - 0 1");
    EXPECT_EQ((mated.placeAt(4), quiescence(4, 0, -32767, 32767, mated.pos.get())), 4 - 32000);
    searchPosition knight("8/8/4k3/8/8/8/2N1K3/8 b - - 0 1");
    EXPECT_EQ((knight.placeAt(1), quiescence(1, 0, -32767, 32767, knight.pos.get())), 0);
}
