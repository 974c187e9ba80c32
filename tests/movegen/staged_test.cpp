// Staged generators and the legal list: move sets, check prediction and move text against
// making the moves over small trees (evasions and promotions among them), ordering scores,
// castling, and the board test of moves from outside the generators.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "engine/movegen/check.h"
#include "engine/movegen/makemove.h"
#include "engine/movegen/perft.h"
#include "engine/movegen/staged.h"
#include "tests/testutil.h"

namespace {

using textList = std::vector<std::string>;

// Runs a generator at ply after setting the ply's check flag, and returns its moves.
std::vector<moveStruct> generate(void (*generator)(int, moveStruct*, positionStruct*), positionStruct* pos, int ply) {
    pos->plyState[ply].inCheck = isSideInCheck(pos, pos->sideToMove) ? 1 : 0;
    generator(ply, pos->plyState[ply].moveList, pos);
    return listMoves(pos, ply);
}

// "move:score" of the generated moves (promotions only, if asked), sorted by move text.
std::string scoresOf(void (*generator)(int, moveStruct*, positionStruct*), positionStruct* pos,
                     bool promotionsOnly = false) {
    std::map<std::string, int> found;
    for (moveStruct m : generate(generator, pos, 0))
        if (!promotionsOnly || isPromotion(m.kind)) found[moveToLA(&m, pos->sideToMove)] = m.order;
    std::string text;
    for (auto& [move, score] : found) text += (text.empty() ? "" : " ") + move + ":" + std::to_string(score);
    return text;
}

// Legal moves found without the legality filter: every capture and quiet move generated as if
// not in check, kept when the own king is safe after making it. Castling out of check is dropped.
textList oracleLegal(positionStruct* pos, int ply) {
    bool inCheck = isSideInCheck(pos, pos->sideToMove);
    std::vector<moveStruct> legal;
    for (moveStruct m : pseudoLegalMoves(pos, ply)) {
        if (inCheck && m.kind >= KIND_CASTLE_KING) continue;
        makeMove(pos, ply, m);
        if (!isSideInCheck(pos, pos->sideToMove ^ 1)) legal.push_back(m);
        unmakeMove(pos, ply, m);
    }
    return textsOf(legal, pos->sideToMove);
}

// Checks the generators at every node of the tree below the position down to depth, and for each
// move whether it gives check and that its text reads back as the same move.
void checkTree(positionStruct* pos, int ply, int depth, const std::string& root) {
    if (depth == 0 || ::testing::Test::HasFatalFailure()) return;
    const int side = pos->sideToMove;
    textList oracle = oracleLegal(pos, ply);
    std::vector<moveStruct> legal = generate(generateMovesLegal, pos, ply);
    textList legalTexts = textsOf(legal, side);
    ASSERT_EQ(legalTexts, oracle) << root << " ply " << ply;
    ASSERT_EQ(std::set<std::string>(legalTexts.begin(), legalTexts.end()).size(), legalTexts.size()) << "duplicates";
    if (pos->plyState[ply].inCheck) {
        // In check every generator produces the evasions.
        ASSERT_EQ(textsOf(generate(generateMovesEvade, pos, ply), side), oracle) << root << " evasions";
        ASSERT_EQ(textsOf(generate(generateMovesQuiescence, pos, ply), side), oracle) << root << " quiescence";
        ASSERT_EQ(textsOf(generate(generateMovesCaptures, pos, ply), side), oracle) << root << " captures";
        if (ply > 0) {
            ASSERT_EQ(textsOf(generate(generateMovesRecapture, pos, ply), side), oracle) << root;
        }
    } else {
        // Captures and quiet moves are disjoint and, filtered, make up the legal list.
        std::vector<moveStruct> all = pseudoLegalMoves(pos, ply);
        std::vector<moveStruct> filtered;
        for (moveStruct m : all)
            if (isLegalNotInCheck(pos, ply, m)) filtered.push_back(m);
        ASSERT_EQ(textsOf(filtered, side), legalTexts) << root << " staged union";
        // Quiescence: the captures without under-promotions, plus queen push-promotions.
        // Recaptures: those of them that land where the previous move landed.
        std::vector<moveStruct> quiescence, recaptures;
        for (moveStruct m : all) {
            bool capture = m.kind == KIND_ENPASSANT || pos->board[m.to] != EMPTY;
            if (isPromotion(m.kind) && m.kind != KIND_PROMOTE_QUEEN) continue;
            if (capture || m.kind == KIND_PROMOTE_QUEEN) quiescence.push_back(m);
            if (capture && ply > 0 && m.to == pos->plyState[ply - 1].currentMove.to) recaptures.push_back(m);
        }
        ASSERT_EQ(textsOf(generate(generateMovesQuiescence, pos, ply), side), textsOf(quiescence, side)) << root;
        if (ply > 0) {
            ASSERT_EQ(textsOf(generate(generateMovesRecapture, pos, ply), side), textsOf(recaptures, side)) << root;
        }
    }
    ASSERT_EQ(perft(ply, 1, pos), legal.size()) << root << " bulk count";
    checkInfoStruct info;
    computeCheckInfo(pos, &info);
    for (moveStruct m : legal) {
        const bool predicted = moveGivesCheck(pos, info, m);
        moveStruct readBack;
        EXPECT_TRUE(moveFromText(moveToLA(&m, side), pos, &readBack) && sameMove(readBack, m)) << moveToLA(&m, side);
        pos->plyState[ply + 1].moveList = pos->plyState[ply].moveList + MAX_MOVES_PER_PLY;
        pos->plyState[ply].currentMove = m;
        makeMove(pos, ply, m);
        EXPECT_EQ(predicted, isSideInCheck(pos, pos->sideToMove)) << root << " gives check: " << moveToLA(&m, side);
        checkTree(pos, ply + 1, depth - 1, root);
        unmakeMove(pos, ply, m);
    }
}

TEST(StagedGenerators, AgreeWithTheMakeAndTestOracleOverSmallTrees) {
    const struct {
        const char* fen;
        int depth;
    } cases[] = {
        {fenStartPos, 3},
        {"r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1", 3},
        {"8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1", 4},
        {"r3k2r/Pppp1ppp/1b3nbN/nP6/BBP1P3/q4N2/Pp1P2PP/R2Q1RK1 w kq - 0 1", 3},
        {"r2q1rk1/pP1p2pp/Q4n2/bbp1p3/Np6/1B3NBn/pPPP1PPP/R3K2R b KQ - 0 1", 3},
        {"rnbq1k1r/pp1Pbppp/2p5/8/2B5/8/PPP1NnPP/RNBQK2R w KQ - 1 8", 3},
        {"8/8/8/KPp4r/8/8/8/7k w - c6 0 1", 4},
        {"8/8/1k6/2b5/2pP4/8/5K2/8 b - d3 0 1", 4},
        {"n1n5/PPPk4/8/8/8/8/4Kppp/5N1N w - - 0 1", 3},
        {"r3k2r/1b4bq/8/8/8/8/7B/R3K2R w KQkq - 0 1", 3},
        {"8/8/2k5/5q2/5n2/8/5K2/8 b - - 0 1", 4},
        // Checks: discovered, by en passant uncovering a rank, by the rook of a castling, by an
        // under-promotion that uncovers a rook along the seventh rank.
        {"4k3/8/8/2KPp2r/8/8/8/8 w - e6 0 1", 3},
        {"5k2/8/8/8/8/8/8/4K2R w K - 0 1", 3},
        {"4k3/4n3/8/8/4R3/8/2B5/4K3 w - - 0 1", 3},
        {"8/P1k5/8/8/8/8/8/K3R3 w - - 0 1", 3},
        {"2k5/P7/8/8/8/8/8/K3R3 w - - 0 1", 3},
        {"8/3kP2R/5P2/4K2p/2r5/p6p/8/8 w - - 0 1", 3},
        // Evasions: a double check (only king steps, although the bishop could take d6), and
        // pieces pinned against the checked king that may neither block nor take the checker.
        {"4k3/2b5/3N4/8/8/8/8/4R1K1 b - - 0 1", 1},
        {"4r2k/8/8/q7/4R3/8/8/4K3 w - - 0 1", 1},
        {"4r2k/8/8/8/1b6/8/3N4/4K3 w - - 0 1", 1},
        {"7k/8/8/8/1b6/8/3N4/4Kq2 w - - 0 1", 1},
    };
    for (const auto& c : cases) {
        testPosition p(c.fen);
        checkTree(p.get(), 0, c.depth, c.fen);
        if (HasFatalFailure()) return;
    }
}

// Ordering scores by generator, with piece codes pawn 2, knight 4, bishop 6, rook 8, queen 10,
// king 12, one more for Black. Captures: 8 * victim - attacker; a promotion 8 * victim - 14 when
// it captures, 1 as a queen push, and quiescence takes queen promotions only. Evasions by mover
// (pawn, knight, bishop, rook, queen): 250 236 235 234 233 for taking the checker, 210 206 205
// 204 203 for blocking; a king step 202, a king capture 220 plus the victim's code, one more when
// the victim is the checker.
TEST(OrderingScores, FollowEachGeneratorsRule) {
    const char* white = "r3k3/1P6/8/8/8/8/8/4K3 w - - 0 1";
    const char* black = "4k3/8/8/8/8/8/6p1/4K2R b - - 0 1";
    const struct {
        const char* fen;
        void (*generator)(int, moveStruct*, positionStruct*);
        bool promotionsOnly;
        const char* expected;
    } cases[] = {
        {"3r1k2/q7/8/3pP3/8/1B5b/5n2/R2QK1N1 w - d6 0 1", generateMovesCaptures, false,
         "a1a7:80 b3d5:18 d1d5:14 e1f2:28 e5d6:14 g1h3:52"},
        {white, generateMovesQuiescence, true, "b7a8q:58 b7b8q:1"},
        {white, generateMovesCaptures, true, "b7a8b:58 b7a8n:58 b7a8q:58 b7a8r:58"},
        {white, generateMovesQuiets, true, "b7b8b:0 b7b8n:0 b7b8q:0 b7b8r:0"},
        {black, generateMovesQuiescence, true, "g2g1q:1 g2h1q:50"},
        {black, generateMovesCaptures, true, "g2h1b:50 g2h1n:50 g2h1q:50 g2h1r:50"},
        {"2Q5/8/4r2R/2NP4/6B1/R7/8/1k2K3 w - - 0 1", generateMovesLegal, false,
         "a3e3:204 c5e4:206 c5e6:236 c8e6:233 d5e6:250 e1d1:202 e1d2:202 e1f1:202 e1f2:202 g4e2:205 g4e6:235 "
         "h6e6:234"},
        {"7k/8/8/b7/8/Q7/1PP2n2/4K3 w - - 0 1", generateMovesLegal, false,
         "a3a5:233 a3b4:203 a3c3:203 b2b4:210 c2c3:210 e1e2:202 e1f1:202 e1f2:225"},
        {"4k3/8/8/8/8/2N5/4q3/4K3 w - - 0 1", generateMovesLegal, false, "c3e2:236 e1e2:232"},
        {"1r5k/P7/8/8/8/8/8/1K6 w - - 0 1", generateMovesLegal, false,
         "a7b8b:250 a7b8n:250 a7b8q:250 a7b8r:250 b1a1:202 b1a2:202 b1c1:202 b1c2:202"},
        {"r6K/3P4/8/8/8/8/8/k7 w - - 0 1", generateMovesLegal, false,
         "d7d8b:210 d7d8n:210 d7d8q:210 d7d8r:210 h8g7:202 h8h7:202"},
        {"8/8/8/2k5/3Pp3/8/8/4K3 b - d3 0 1", generateMovesLegal, false,
         "c5b4:202 c5b5:202 c5b6:202 c5c4:202 c5c6:202 c5d4:223 c5d5:202 c5d6:202 e4d3:250"},
    };
    for (const auto& c : cases) {
        testPosition p(c.fen);
        EXPECT_EQ(scoresOf(c.generator, p.get(), c.promotionsOnly), c.expected) << c.fen;
    }
}

TEST(Castling, NeedsRightsEmptyPathAndSafeSquares) {
    const struct {
        const char* fen;
        textList expected;  // castling moves among the legal moves
    } cases[] = {
        {"4k3/8/8/8/8/8/8/R3K2R w KQ - 0 1", {"e1c1", "e1g1"}},
        {"4k3/4r3/8/8/8/8/8/R3K2R w KQ - 0 1", {}},                // in check
        {"4k3/5r2/8/8/8/8/8/R3K2R w KQ - 0 1", {"e1c1"}},          // f1 attacked
        {"4k3/6r1/8/8/8/8/8/R3K2R w KQ - 0 1", {"e1c1"}},          // g1 attacked
        {"4k3/3r4/8/8/8/8/8/R3K2R w KQ - 0 1", {"e1g1"}},          // d1 attacked
        {"4k3/2r5/8/8/8/8/8/R3K2R w KQ - 0 1", {"e1g1"}},          // c1 attacked
        {"4k3/1r6/8/8/8/8/8/R3K2R w KQ - 0 1", {"e1c1", "e1g1"}},  // only b1 attacked
        {"4k3/8/8/8/8/8/6p1/R3K2R w KQ - 0 1", {"e1c1"}},          // pawn attacks f1
        {"4k3/8/8/8/8/4n3/8/R3K2R w KQ - 0 1", {}},                // knight attacks d1 and f1
        {"4k3/8/8/8/8/8/1p6/R3K2R w KQ - 0 1", {"e1g1"}},          // pawn attacks c1
        {"4k3/8/8/8/8/8/8/RN2K2R w KQ - 0 1", {"e1g1"}},           // b1 occupied
        {"4k3/8/8/8/8/8/8/R3KB1R w KQ - 0 1", {"e1c1"}},           // f1 occupied
        {"r3k2r/8/8/8/8/8/8/4K3 b kq - 0 1", {"e8c8", "e8g8"}},
        {"r3k2r/8/8/8/8/8/8/1R2K3 b kq - 0 1", {"e8c8", "e8g8"}},  // only b8 attacked
        {"r3k2r/8/8/8/8/8/8/3RK3 b kq - 0 1", {"e8g8"}},
        {"r3k2r/8/8/8/8/8/8/4K1R1 b kq - 0 1", {"e8c8"}},
        {"r3k2r/8/8/8/8/8/8/4R1K1 b kq - 0 1", {}},
        {"r3k2r/8/8/8/8/8/8/4K3 b KQkq - 0 1", {"e8c8", "e8g8"}},  // white's rights dropped, black's kept
    };
    for (const auto& c : cases) {
        testPosition p(c.fen);
        std::vector<moveStruct> castles;
        for (moveStruct m : generate(generateMovesLegal, p.get(), 0))
            if (m.kind == KIND_CASTLE_KING || m.kind == KIND_CASTLE_QUEEN) castles.push_back(m);
        EXPECT_EQ(textsOf(castles, p->sideToMove), c.expected) << c.fen;
        for (moveStruct m : castles) EXPECT_EQ(m.kind, (m.to & 7) == 6 ? KIND_CASTLE_KING : KIND_CASTLE_QUEEN) << c.fen;
    }
}

TEST(PseudoLegalTest, AcceptsOnlyMovesPlayableOnTheBoard) {
    const char* start = fenStartPos;
    const char* afterE4 = "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR w KQkq - 0 1";
    const char* castles = "r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1";
    const char* epWhite = "4k3/8/8/3pP3/8/8/8/4K3 w - d6 0 1";
    const char* noEp = "4k3/8/8/3pP3/8/8/8/4K3 w - - 0 1";
    const char* promote = "r3k3/1P6/8/8/8/8/8/4K3 w - - 0 1";
    const struct {
        const char* fen;
        const char* from;
        const char* to;
        int kind;
        int piece;
        bool expected;
    } cases[] = {
        {start, "e2", "e4", KIND_DOUBLE_STEP, WHITE_PAWN, true},
        {start, "e2", "e4", KIND_DOUBLE_STEP, WHITE_KNIGHT, false},  // wrong piece byte
        {start, "e2", "e4", KIND_NORMAL, WHITE_PAWN, false},
        {start, "e2", "e3", KIND_NORMAL, WHITE_PAWN, true},
        {start, "e2", "d3", KIND_NORMAL, WHITE_PAWN, false},       // diagonal onto an empty square
        {start, "e7", "e5", KIND_DOUBLE_STEP, BLACK_PAWN, false},  // not the side to move
        {start, "g1", "f3", KIND_NORMAL, WHITE_KNIGHT, true},
        {start, "g1", "e2", KIND_NORMAL, WHITE_KNIGHT, false},  // own piece on the target
        {start, "f1", "c4", KIND_NORMAL, WHITE_BISHOP, false},  // blocked by the pawn on e2
        {afterE4, "f1", "c4", KIND_NORMAL, WHITE_BISHOP, true},
        {afterE4, "d1", "h5", KIND_NORMAL, WHITE_QUEEN, true},
        {afterE4, "e4", "e3", KIND_NORMAL, WHITE_PAWN, false},  // backwards
        {afterE4, "a1", "a3", KIND_NORMAL, WHITE_ROOK, false},  // through a2
        {afterE4, "e3", "e4", KIND_NORMAL, WHITE_PAWN, false},  // empty from-square
        {afterE4, "g1", "f3", KIND_ENPASSANT, WHITE_KNIGHT, false},
        {castles, "e1", "g1", KIND_CASTLE_KING, WHITE_KING, true},
        {castles, "e1", "c1", KIND_CASTLE_KING, WHITE_KING, false},
        {castles, "e1", "e8", KIND_NORMAL, WHITE_KING, false},
        {"r3k2r/8/8/8/8/8/8/R3K2R w Qkq - 0 1", "e1", "g1", KIND_CASTLE_KING, WHITE_KING, false},
        {"r3k2r/8/8/8/8/8/8/R3KB1R w KQkq - 0 1", "e1", "g1", KIND_CASTLE_KING, WHITE_KING, false},
        {"r3k2r/8/8/8/8/8/8/RN2K2R w KQkq - 0 1", "e1", "c1", KIND_CASTLE_QUEEN, WHITE_KING, false},
        {"r3k2r/5r2/8/8/8/8/8/R3K2R w KQkq - 0 1", "e1", "g1", KIND_CASTLE_KING, WHITE_KING, false},
        {"r3k2r/4r3/8/8/8/8/8/R3K2R w KQkq - 0 1", "e1", "c1", KIND_CASTLE_QUEEN, WHITE_KING, false},
        {castles, "e8", "g8", KIND_CASTLE_KING, BLACK_KING, false},
        {"r3k2r/8/8/8/8/8/8/R3K2R b KQkq - 0 1", "e8", "g8", KIND_CASTLE_KING, BLACK_KING, true},
        {"4k3/8/8/8/8/8/8/4KR2 w - - 0 1", "f1", "h1", KIND_CASTLE_KING, WHITE_ROOK, false},
        {"4k3/8/8/8/8/8/8/4R1K1 w - - 0 1", "e1", "e8", KIND_NORMAL, WHITE_ROOK, false},  // takes a king
        {epWhite, "e5", "d5", KIND_ENPASSANT, WHITE_PAWN, true},
        {noEp, "e5", "d5", KIND_ENPASSANT, WHITE_PAWN, false},
        {epWhite, "e5", "d6", KIND_NORMAL, WHITE_PAWN, false},
        {promote, "b7", "b8", KIND_PROMOTE_QUEEN, WHITE_PAWN, true},
        {promote, "b7", "a8", KIND_PROMOTE_KNIGHT, WHITE_PAWN, true},
        {promote, "b7", "b8", KIND_NORMAL, WHITE_PAWN, false},
        {promote, "b7", "c8", KIND_PROMOTE_QUEEN, WHITE_PAWN, false},
        {start, "e2", "e3", KIND_PROMOTE_QUEEN, WHITE_PAWN, false},
        {"4k3/8/8/8/8/4n3/4P3/4K3 w - - 0 1", "e2", "e4", KIND_DOUBLE_STEP, WHITE_PAWN, false},
        {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR b KQkq - 0 1", "e7", "e5", KIND_DOUBLE_STEP, BLACK_PAWN, true},
        {"4k3/4p3/8/8/8/8/8/4K3 b - - 0 1", "e7", "e8", KIND_NORMAL, BLACK_PAWN, false},
    };
    for (const auto& c : cases) {
        testPosition p(c.fen);
        moveStruct m = makeMoveRecord(sq(c.from), sq(c.to), c.kind, c.piece);
        EXPECT_EQ(isMovePseudoLegal(p.get(), 0, m), c.expected)
            << c.fen << " " << c.from << c.to << " kind " << c.kind << " piece " << c.piece;
    }
}

}  // namespace
