// Zobrist keys: the constant layout and the key of a position set from FEN.
#include <gtest/gtest.h>

#include <cstring>
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

TEST(Zobrist, StartKeyIsThePieceKeysAndAllRights) {
    testPosition p(fenStartPos);
    uint64_t expected = hashCodeCastling[15];
    uint64_t pawnsAndKings = 0;
    const char* rank1 = "RNBQKBNR";
    for (int file = 0; file < 8; file++) {
        int white = static_cast<int>(std::strchr(fenLabelPieces, rank1[file]) - fenLabelPieces);
        expected ^= hashCodePiece[white][file] ^ hashCodePiece[white + 1][file + 56];
        expected ^= hashCodePiece[WHITE_PAWN][file + 8] ^ hashCodePiece[BLACK_PAWN][file + 48];
        pawnsAndKings ^= hashCodePiece[WHITE_PAWN][file + 8] ^ hashCodePiece[BLACK_PAWN][file + 48];
    }
    pawnsAndKings ^= hashCodePiece[WHITE_KING][sq("e1")] ^ hashCodePiece[BLACK_KING][sq("e8")];
    EXPECT_EQ(p->hashKey, expected);
    EXPECT_EQ(p->pawnKingHashKey, pawnsAndKings);
    EXPECT_EQ(p->hashHistory[0], expected);
}

// Pairs of FENs that differ in one feature, and the key difference that feature must make.
TEST(Zobrist, EachFeatureChangesTheKeyByItsOwnTerm) {
    initTables();
    const struct {
        const char* a;
        const char* b;
        uint64_t difference;
        bool samePawnKingKey;
    } cases[] = {
        {"r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1", "r3k2r/8/8/8/8/8/8/R3K2R w - - 0 1",
         hashCodeCastling[15] ^ hashCodeCastling[0], true},
        {"r3k2r/8/8/8/8/8/8/R3K2R w Kq - 0 1", "r3k2r/8/8/8/8/8/8/R3K2R w Qk - 0 1",
         hashCodeCastling[9] ^ hashCodeCastling[6], true},
        {"4k3/8/8/8/8/8/8/4K3 w - - 0 1", "4k3/8/8/8/8/8/8/4K3 b - - 0 1", hashCodeBlackToMove, true},
        {"rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1",
         "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq - 0 1", hashCodeEnpassant[4], true},
        {"4k3/8/8/pP6/8/8/8/4K3 w - a6 0 1", "4k3/8/8/pP6/8/8/8/4K3 w - - 0 1", hashCodeEnpassant[0], true},
        {"4k3/8/8/6pP/8/8/8/4K3 w - g6 0 1", "4k3/8/8/6pP/8/8/8/4K3 w - - 0 1", hashCodeEnpassant[6], true},
        {"4k3/8/8/8/pP6/8/8/4K3 b - b3 0 1", "4k3/8/8/8/pP6/8/8/4K3 b - - 0 1", hashCodeEnpassant[1], true},
        {"4k3/8/8/8/8/8/8/4K2N w - - 0 1", "4k3/8/8/8/8/8/8/4K3 w - - 0 1", hashCodePiece[WHITE_KNIGHT][7], true},
        {"4k3/8/8/8/8/8/p7/4K3 w - - 0 1", "4k3/8/8/8/8/8/8/4K3 w - - 0 1", hashCodePiece[BLACK_PAWN][8], false},
    };
    for (const auto& c : cases) {
        testPosition a(c.a), b(c.b);
        EXPECT_EQ(a->hashKey ^ b->hashKey, c.difference) << c.a;
        EXPECT_EQ(a->pawnKingHashKey == b->pawnKingHashKey, c.samePawnKingKey) << c.a;
    }
}

}  // namespace
