// The node procedures on small positions: draws (repetition, fifty moves, material),
// mate and stalemate scores, mate distance, quiescence on captures and checks.
#include <gtest/gtest.h>

#include <cstdio>

#include "engine/movegen/legal.h"
#include "engine/movegen/makemove.h"
#include "engine/search/search.h"
#include "engine/search/searchdata.h"
#include "engine/search/tt.h"
#include "tests/testutil.h"

namespace {

// A position prepared for searching: its own search tables, the move buffer inside them, and a
// control record of its own with no limits.
struct searchPosition {
    std::unique_ptr<searchDataStruct> data{new searchDataStruct()};
    std::unique_ptr<positionStruct> pos{new positionStruct()};
    searchControlStruct control;
    explicit searchPosition(const std::string& fen) {
        initTables();
        clearHashTableMT();
        clearSearchHistory(data.get());
        control.progress.push_back(&data->progress);
        data->control = &control;
        pos->stopFlag = &control.stopSearch;
        pos->search = data.get();
        pos->plyState[0].moveList = data->moveBuffer;
        setPosition(fen, pos.get());
        computeEvalSums(pos.get());
        engine.noTimeLimit = true;
        engine.nodes = 0;
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
    int quiesce(int ply) {
        placeAt(ply);
        return quiescence(static_cast<unsigned char>(ply), 0, -32767, 32767, pos.get());
    }
    int search(int ply, int depth, int alpha = -32767, int beta = 32767) {
        placeAt(ply);
        pos->timeCheckCounter = 4096;
        return alfabeta(static_cast<unsigned char>(ply), depth, static_cast<short>(alpha), static_cast<short>(beta),
                        pos.get());
    }
};

}  // namespace

// Scores at the node: mated (the ply is the distance), stalemate, mate in one, a minor piece each,
// and mate-distance pruning: at ply 5 nothing can score above a mate in four plies.
TEST(Alfabeta, ScoresOfMateStalemateAndDrawnMaterial) {
    const struct {
        const char* fen;
        int ply, depth, alpha, beta, expected;
    } cases[] = {
        {"3R2k1/5ppp/8/8/8/8/5PPP/6K1 b - - 0 1", 3, 2, -32767, 32767, 3 - 32000},
        {"7k/5Q2/6K1/8/8/8/8/8 b - - 0 1", 1, 2, -32767, 32767, 0},
        {"6k1/5ppp/8/8/8/8/5PPP/3R2K1 w - - 0 1", 0, 3, -32767, 32767, 32000 - 1},
        {"8/8/4k3/8/3n4/8/2B1K3/8 w - - 0 1", 1, 3, -32767, 32767, 0},
        {"4k3/8/8/8/8/8/8/4K2R w K - 0 1", 5, 4, 31996, 32767, 31996},
        {"4k3/8/8/8/8/8/8/4K2R w K - 0 1", 5, 4, -32767, -31996, -31995},
    };
    for (const auto& c : cases) {
        searchPosition p(c.fen);
        EXPECT_EQ(p.search(c.ply, c.depth, c.alpha, c.beta), c.expected) << c.fen << " at ply " << c.ply;
        EXPECT_TRUE(c.ply > 0 || sameMove(p.pos->rootBestMove, moveStruct{3, 59, 0, 0})) << "d1d8 mates";
    }
    searchPosition rookUp("8/8/4k3/8/8/8/2R1K3/8 w - - 0 1");
    EXPECT_GT(rookUp.search(1, 3), 300);
    // Beyond ply 126 the static evaluation is returned.
    EXPECT_EQ(rookUp.search(127, 5), evaluateN(127, rookUp.pos.get()));
}

// The fifty-move rule draws once the count reaches 100 with a move to make; a mate played on
// the hundredth half-move still counts, one on the hundred-and-first does not.
TEST(Alfabeta, FiftyMoveRuleAtItsBoundary) {
    const char* mateInOne = "7k/8/6K1/8/8/8/8/R7 w - - %d 80";  // Ra8#
    const char* mateInTwo = "7k/8/5K2/8/8/8/8/R7 w - - %d 80";  // Kg6 Kg8 Ra8#
    const struct {
        const char* fen;
        int clock, ply, depth, expected;
    } cases[] = {
        {mateInOne, 98, 0, 3, 32000 - 1},                                // mate on the 99th half-move
        {mateInOne, 99, 0, 3, 32000 - 1},                                // on the 100th
        {mateInTwo, 97, 0, 4, 32000 - 3},                                // on the 100th
        {mateInTwo, 98, 0, 4, 0},                                        // it would come on the 101st
        {"6k1/8/8/8/8/8/8/QQ4K1 b - - %d 80", 100, 1, 2, 0},             // far ahead, but drawn
        {"3R2k1/5ppp/8/8/8/8/5PPP/6K1 b - - %d 80", 100, 1, 2, -31999},  // mated all the same
    };
    for (const auto& c : cases) {
        char fen[96];
        std::snprintf(fen, sizeof(fen), c.fen, c.clock);
        searchPosition p(fen);
        EXPECT_EQ(p.search(c.ply, c.depth), c.expected) << fen;
    }
}

TEST(Alfabeta, RepetitionDrawsBelowTheRootButNotAtIt) {
    // White is a queen up; the knights' shuffle returns to the same position.
    searchPosition p("6k1/8/8/8/8/8/1n6/QN4K1 w - - 0 1");
    p.play({"b1c3", "b2d3", "c3b1", "d3b2"});
    EXPECT_EQ(p.search(1, 1), 0);
    EXPECT_NE(p.search(0, 1), 0);
}

// A repetition needs the same side to move and at least four plies since the position was
// last on the board.
TEST(Repetition, ShortestCyclesAndTheirLimits) {
    const char* kings = "4k3/8/8/8/8/8/8/4K3 w - - 0 1";
    const struct {
        const char* fen;
        std::vector<std::string> moves;
        bool repeats;
    } cases[] = {
        {fenStartPos, {"g1f3", "g8f6", "f3g1", "f6g8"}, true},                  // four plies
        {fenStartPos, {"g1f3", "g8f6", "f3g1"}, false},                         // other side to move
        {fenStartPos, {"g1f3", "g8f6", "f3g1", "b8c6", "g1f3", "c6b8"}, true},  // four plies back
        {kings, {"e1d1", "e8d8", "d1d2", "d8d7", "d2e1", "d7e8"}, true},        // six plies back only
        {kings, {"e1d1", "e8d8", "d1d2", "d8d7", "d2e1"}, false},
        {"4k3/4p3/8/8/8/8/8/4K3 b - - 0 1", {"e7e6", "e1d1", "e8d8", "d1e1", "d8e8"}, true},   // since e6
        {"4k3/4p3/8/8/8/8/8/4K3 b - - 0 1", {"e8d8", "e1d1", "d8e8", "d1e1", "e7e6"}, false},  // pawn moved
    };
    for (const auto& c : cases) {
        searchPosition p(c.fen);
        p.play(c.moves);
        EXPECT_EQ(isRepetition(p.pos.get()), c.repeats) << c.fen << " after " << c.moves.size() << " plies";
    }
}

// An entry cuts only when its bound says the score is outside the window: an upper bound at
// or above beta and a lower bound at or below alpha say nothing and must be searched.
TEST(Alfabeta, HashEntryCutsOnlyOnABoundThatHolds) {
    const int alpha = 100, beta = 101;
    const struct {
        int bound, score, depth;
        bool cuts;
    } cases[] = {
        {BOUND_UPPER, 500, 5, false}, {BOUND_LOWER, -500, 5, false}, {BOUND_UPPER, -500, 5, true},
        {BOUND_LOWER, 500, 5, true},  {BOUND_EXACT, 700, 5, true},
    };
    searchPosition fresh(fenStartPos);
    const int searched = fresh.search(1, 2, alpha, beta);
    for (const auto& c : cases) {
        searchPosition p(fenStartPos);
        storeHash(p.pos->hashKey, 1, EMPTYMOVE, c.score, c.depth, c.bound);
        EXPECT_EQ(p.search(1, 2, alpha, beta), c.cuts ? c.score : searched)
            << "bound " << c.bound << " score " << c.score << " depth " << c.depth;
    }
}

// Mutual zugzwang: whoever moves must give up the pawn and loses. Passing (a null move) would
// hide that, so it is not tried when only pawns are left.
TEST(Alfabeta, PawnEndingZugzwangIsNotPassedOver) {
    for (const char* fen : {"8/8/8/3Kp3/4Pk2/8/8/8 w - - 0 1", "8/8/8/3Kp3/4Pk2/8/8/8 b - - 0 1"}) {
        searchPosition p(fen);
        EXPECT_LT(p.search(0, 12), -500) << fen;
    }
}

// A queen won by a pawn is seen; a capture that loses the queen is not made (stand pat stays);
// mate is found, and a lone knight is a draw.
TEST(Quiescence, ResolvesCapturesMatesAndDrawnMaterial) {
    searchPosition win("4k3/8/8/3q4/4P3/8/8/4K3 w - - 0 1"), lose("4k3/8/2p5/3p4/8/8/3Q4/4K3 w - - 0 1");
    EXPECT_GT(win.quiesce(1), evaluateN(0, win.pos.get()) + 800);
    EXPECT_EQ(lose.quiesce(1), evaluateN(0, lose.pos.get()));
    EXPECT_EQ(searchPosition("3R2k1/5ppp/8/8/8/8/5PPP/6K1 b - - 0 1").quiesce(4), 4 - 32000);
    EXPECT_EQ(searchPosition("8/8/4k3/8/8/8/2N1K3/8 b - - 0 1").quiesce(1), 0);
}
