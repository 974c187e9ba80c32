// Zobrist keys: the constant layout and the terms each feature of a FEN adds to the key.
#include <gtest/gtest.h>

#include <set>

#include "tests/testutil.h"

namespace {

TEST(Zobrist, ConstantsAreDistinctAndDistributedByLayout) {
    initTables();
    std::set<uint64_t> seen(hashCodeRandomNumber, hashCodeRandomNumber + 793);
    EXPECT_EQ(seen.size(), 793u);
    EXPECT_EQ(seen.count(0), 0u);
    for (int s = 0; s < 64; s++) EXPECT_EQ(hashCodePiece[0][s] | hashCodePiece[1][s], 0u);
    EXPECT_EQ(hashCodePiece[BLACK_PAWN][sq("a1")], hashCodeRandomNumber[64]);
    EXPECT_EQ(hashCodePiece[BLACK_KING][sq("h8")], hashCodeRandomNumber[767]);
    EXPECT_EQ(hashCodeCastling[0], hashCodeRandomNumber[768]);
    EXPECT_EQ(hashCodeEnpassant[7], hashCodeRandomNumber[791]);
    EXPECT_EQ(hashCodeBlackToMove, hashCodeRandomNumber[792]);
}

// One piece of any kind added to the kings changes the key by its own term, and the pawn-king
// key only for pawns and kings.
TEST(Zobrist, EveryPieceKindChangesTheKeyByItsOwnTerm) {
    testPosition kings("4k3/8/8/8/8/8/8/4K3 w - - 0 1");
    for (int code = WHITE_PAWN; code <= BLACK_KING; code++) {
        std::string fen = std::string("4k3/8/8/8/") + fenLabelPieces[code] + "7/8/8/4K3 w - - 0 1";
        testPosition p(fen);
        uint64_t term = hashCodePiece[code][sq("a4")];
        EXPECT_EQ(p->hashKey ^ kings->hashKey, term) << fen;
        bool pawnOrKing = typeOf(code) == PAWN || typeOf(code) == KING;
        EXPECT_EQ(p->pawnKingHashKey ^ kings->pawnKingHashKey, pawnOrKing ? term : 0) << fen;
        EXPECT_EQ(p->hashHistory[0], p->hashKey) << fen;
    }
}

// Pairs of FENs that differ in one feature other than a piece, and the key difference it must make.
TEST(Zobrist, EachFeatureChangesTheKeyByItsOwnTerm) {
    initTables();
    const struct {
        const char* a;
        const char* b;
        uint64_t difference;
    } cases[] = {
        {"r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1", "r3k2r/8/8/8/8/8/8/R3K2R w - - 0 1",
         hashCodeCastling[15] ^ hashCodeCastling[0]},
        {"r3k2r/8/8/8/8/8/8/R3K2R w Kq - 0 1", "r3k2r/8/8/8/8/8/8/R3K2R w Qk - 0 1",
         hashCodeCastling[9] ^ hashCodeCastling[6]},
        {"4k3/8/8/8/8/8/8/4K3 w - - 0 1", "4k3/8/8/8/8/8/8/4K3 b - - 0 1", hashCodeBlackToMove},
        {"rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1",
         "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq - 0 1", hashCodeEnpassant[4]},
        {"4k3/8/8/pP6/8/8/8/4K3 w - a6 0 1", "4k3/8/8/pP6/8/8/8/4K3 w - - 0 1", hashCodeEnpassant[0]},
        {"4k3/8/8/6pP/8/8/8/4K3 w - g6 0 1", "4k3/8/8/6pP/8/8/8/4K3 w - - 0 1", hashCodeEnpassant[6]},
        {"4k3/8/8/8/pP6/8/8/4K3 b - b3 0 1", "4k3/8/8/8/pP6/8/8/4K3 b - - 0 1", hashCodeEnpassant[1]},
    };
    for (const auto& c : cases) {
        testPosition a(c.a), b(c.b);
        EXPECT_EQ(a->hashKey ^ b->hashKey, c.difference) << c.a;
        EXPECT_EQ(a->pawnKingHashKey, b->pawnKingHashKey) << c.a;
    }
}

}  // namespace
