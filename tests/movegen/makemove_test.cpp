// Make/unmake: special moves give the position of their FEN, incremental state equals a fresh
// set-up along random games, and unmaking restores every field.
#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "engine/eval/evaluate.h"
#include "engine/movegen/makemove.h"
#include "tests/testutil.h"

namespace {

// The fields make/unmake must keep exact, with the ply entry's rights and en-passant square, as
// text so that a difference names the field.
std::string stateOf(const positionStruct* pos, int ply) {
    std::ostringstream s;
    for (int square = 0; square < 64; square++) s << int(pos->board[square]) << (square % 8 == 7 ? "\n" : " ");
    for (bitboard b : pos->bitboards) s << b << " ";
    s << "\nkeys " << pos->hashKey << " " << pos->pawnKingHashKey << " material " << pos->material[0] << " "
      << pos->material[1] << " squares " << pos->pieceSquareSum[0] << " " << pos->pieceSquareSum[1] << " phase "
      << pos->phase << " side " << int(pos->sideToMove) << " history " << pos->historyCount << " clock "
      << pos->halfMoveClock << " rights " << int(pos->plyState[ply].castlingRights) << " ep "
      << int(pos->plyState[ply].enPassantSquare);
    return s.str();
}

// FEN of the position at ply, naming the en-passant target after every double step.
std::string fenOf(const positionStruct* pos, int ply) {
    std::string fen, castling;
    for (int rank = 7; rank >= 0; rank--) {
        for (int file = 0; file < 8; file++) {
            int code = pos->board[file + 8 * rank];
            if (code)
                fen += fenLabelPieces[code];
            else if (fen.empty() || fen.back() < '1' || fen.back() > '7')
                fen += '1';
            else
                fen.back()++;
        }
        fen += rank ? "/" : pos->sideToMove == WHITE ? " w " : " b ";
    }
    for (int right : {CASTLE_WHITE_KING, CASTLE_WHITE_QUEEN, CASTLE_BLACK_KING, CASTLE_BLACK_QUEEN})
        if (pos->plyState[ply].castlingRights & right) castling += " Kk Q   q"[right];
    int ep = pos->plyState[ply].enPassantSquare;
    fen += (castling.empty() ? "-" : castling) + " ";
    fen += ep ? std::string{static_cast<char>('a' + (ep & 7)), pos->sideToMove == WHITE ? '6' : '3'} : "-";
    return fen + " " + std::to_string(pos->halfMoveClock) + " " +
           std::to_string((pos->historyCount - 1 - pos->sideToMove) / 2 + 1);
}

TEST(MakeMove, SpecialMovesGiveThePositionOfTheirFen) {
    const struct {
        const char* fen;
        const char* move;
        const char* after;
    } cases[] = {
        {"r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1", "e1g1", "r3k2r/8/8/8/8/8/8/R4RK1 b kq - 1 1"},
        {"r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1", "e1c1", "r3k2r/8/8/8/8/8/8/2KR3R b kq - 1 1"},
        {"r3k2r/8/8/8/8/8/8/R3K2R b KQkq - 0 1", "e8g8", "r4rk1/8/8/8/8/8/8/R3K2R w KQ - 1 2"},
        {"r3k2r/8/8/8/8/8/8/R3K2R b KQkq - 0 1", "e8c8", "2kr3r/8/8/8/8/8/8/R3K2R w KQ - 1 2"},
        {"r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1", "a1a8", "R3k2r/8/8/8/8/8/8/4K2R b Kk - 0 1"},
        {"r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1", "h1h8", "r3k2R/8/8/8/8/8/8/R3K3 b Qq - 0 1"},
        {"r3k2r/8/8/8/8/8/8/R3K2R b KQkq - 0 1", "a8a1", "4k2r/8/8/8/8/8/8/r3K2R w Kk - 0 2"},
        {"r3k2r/8/8/8/8/8/1B6/R3K2R w KQkq - 0 1", "b2h8", "r3k2B/8/8/8/8/8/8/R3K2R b KQq - 0 1"},
        {"r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1", "h1h5", "r3k2r/8/8/7R/8/8/8/R3K3 b Qkq - 1 1"},
        {"r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1", "e1d1", "r3k2r/8/8/8/8/8/8/R2K3R b kq - 1 1"},
        {"4k3/8/8/3pP3/8/8/8/4K3 w - d6 0 1", "e5d6", "4k3/8/3P4/8/8/8/8/4K3 b - - 0 1"},
        {"4k3/8/8/8/3pP3/8/8/4K3 b - e3 0 1", "d4e3", "4k3/8/8/8/8/4p3/8/4K3 w - - 0 2"},
        {fenStartPos, "e2e4", "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1"},
        {"r3k3/1P6/8/8/8/8/8/4K3 w q - 0 1", "b7a8q", "Q3k3/8/8/8/8/8/8/4K3 b - - 0 1"},
        {"r3k3/1P6/8/8/8/8/8/4K3 w q - 0 1", "b7b8r", "rR2k3/8/8/8/8/8/8/4K3 b q - 0 1"},
        {"4k3/8/8/8/8/8/p7/4K3 b - - 5 40", "a2a1n", "4k3/8/8/8/8/8/8/n3K3 w - - 0 41"},
        {"4k3/8/8/8/8/8/1p6/R3K3 b Q - 0 1", "b2a1b", "4k3/8/8/8/8/8/8/b3K3 w - - 0 2"},
        {"4k3/8/8/8/8/8/8/4K1N1 w - - 7 10", "g1f3", "4k3/8/8/8/8/5N2/8/4K3 b - - 8 10"},
        {"4k3/8/8/8/8/8/8/R3K3 w Q - 0 1", "a1a2", "4k3/8/8/8/8/8/R7/4K3 b - - 1 1"},
    };
    for (const auto& c : cases) {
        std::string where = std::string(c.fen) + " " + c.move;
        testPosition p(c.fen);
        std::string before = stateOf(p.get(), 0);
        moveStruct m = legalMoveByText(p.get(), c.move);
        ASSERT_FALSE(isEmptyMove(m)) << where;
        makeMove(p.get(), 0, m);
        EXPECT_EQ(stateOf(p.get(), 1), stateOf(testPosition(c.after).get(), 0)) << where;
        EXPECT_EQ(p->hashHistory[p->historyCount - 1], p->hashKey) << where;
        unmakeMove(p.get(), 0, m);
        EXPECT_EQ(stateOf(p.get(), 0), before) << where << " unmade";
    }
}

// Random games: after every move the incremental state equals a fresh set-up of the same FEN;
// unmaking the whole game restores each earlier state exactly.
TEST(MakeMove, RandomGamesKeepIncrementalStateAndUnmakeExactly) {
    const char* fens[] = {
        fenStartPos,
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
        "r3k2r/Pppp1ppp/1b3nbN/nP6/BBP1P3/q4N2/Pp1P2PP/R2Q1RK1 w kq - 0 1",
        "rnbq1k1r/pp1Pbppp/2p5/8/2B5/8/PPP1NnPP/RNBQK2R w KQ - 1 8",
        "n1n5/PPPk4/8/8/8/8/4Kppp/5N1N b - - 0 1",
        "4k3/pppppppp/8/8/8/8/PPPPPPPP/4K3 w - - 0 1",
        "r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1",
        "4k3/8/8/2PpP3/8/8/8/4K3 w - d6 0 1",
        "4k3/p1p1p1p1/8/1P1P1P1P/8/8/8/4K3 b - - 0 1",
    };
    std::mt19937 random(12345);
    testPosition fresh(fenStartPos);  // reused for every from-scratch set-up
    int kindsMade[16] = {};
    for (const char* fen : fens) {
        for (int game = 0; game < 25; game++) {
            testPosition p(fen);
            std::vector<std::string> before;
            std::vector<moveStruct> made;
            for (int ply = 0; ply < 100; ply++) {
                generateMovesLegal(ply, p->plyState[ply].moveList, p.get());
                std::vector<moveStruct> moves = listMoves(p.get(), ply);
                if (moves.empty()) break;
                moveStruct m = moves[random() % moves.size()];
                before.push_back(stateOf(p.get(), ply));
                makeMove(p.get(), ply, m);
                made.push_back(m);
                kindsMade[m.kind]++;
                std::string fenAfter = fenOf(p.get(), ply + 1);
                setPosition(fenAfter, fresh.get());
                computeEvalSums(fresh.get());
                ASSERT_EQ(stateOf(p.get(), ply + 1), stateOf(fresh.get(), 0))
                    << fenAfter << ", game from " << fen << " after " << moveToLA(&m, p->sideToMove ^ 1);
            }
            for (int ply = static_cast<int>(made.size()) - 1; ply >= 0; ply--) {
                unmakeMove(p.get(), ply, made[ply]);
                ASSERT_EQ(stateOf(p.get(), ply), before[ply]) << "unmake at ply " << ply << ", game from " << fen;
            }
        }
    }
    // The games must have exercised every kind of move.
    for (int kind : {KIND_NORMAL, KIND_PROMOTE_KNIGHT, KIND_PROMOTE_BISHOP, KIND_PROMOTE_ROOK, KIND_PROMOTE_QUEEN,
                     KIND_ENPASSANT, KIND_DOUBLE_STEP, KIND_CASTLE_KING, KIND_CASTLE_QUEEN})
        EXPECT_GT(kindsMade[kind], 0) << "kind " << kind;
}

}  // namespace
