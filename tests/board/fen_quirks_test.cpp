// setPosition on unusual FEN text: how the clock fields are read, which texts throw, and the
// keys and sums of a placement that puts two pieces on one square.
#include <gtest/gtest.h>

#include <stdexcept>

#include "engine/eval/evaluate.h"
#include "tests/testutil.h"

namespace {

// Each row guards a rule of the field reading: filled-in fields, std::stoi's view of signs,
// trailing junk and leading zeros, the clamp of the clock, extra fields, and the texts that
// throw (a lone placement field, a clock that is not a number, an empty clock field).
struct clockCase {
    const char* fen;
    int halfMoveClock;
    int historyCount;
    bool throws;
};

const clockCase clockCases[] = {
    {"4k3/8/8/8/8/8/8/4K3 b", 0, 2, false},
    {"4k3/8/8/8/8/8/8/4K3 w - - +5 -3", 5, 1, false},
    {"4k3/8/8/8/8/8/8/4K3 w - - -3 2", 0, 3, false},
    {"4k3/8/8/8/8/8/8/4K3 w - - 12x 2x", 12, 3, false},
    {"4k3/8/8/8/8/8/8/4K3 w - - 0000000042 1", 42, 1, false},
    {"4k3/8/8/8/8/8/8/4K3 w - - 99999 1", 65535, 1, false},
    {"4k3/8/8/8/8/8/8/4K3 w - - 3 4 extra fields", 3, 7, false},
    {"4k3/8/8/8/8/8/8/4K3", 0, 0, true},
    {"4k3/8/8/8/8/8/8/4K3 w - - x 1", 0, 0, true},
    {"4k3/8/8/8/8/8/8/4K3 w - - 5  ", 0, 0, true},
};

TEST(SetPositionText, ReadsTheClockFieldsLikeStoi) {
    for (const clockCase& c : clockCases) {
        SCOPED_TRACE(c.fen);
        testPosition p(fenStartPos);
        if (c.throws) {
            EXPECT_THROW(setPosition(c.fen, p.get()), std::invalid_argument);
            continue;
        }
        setPosition(c.fen, p.get());
        computeEvalSums(p.get());
        EXPECT_EQ(p->halfMoveClock, c.halfMoveClock);
        EXPECT_EQ(p->historyCount, c.historyCount);
    }
}

// The keys and sums counted over the piece sets, as they are defined.
void expectKeysAndSumsOfThePieceSets(positionStruct* pos) {
    uint64_t key = hashCodeCastling[pos->plyState[0].castlingRights];
    uint64_t pawnKingKey = 0;
    int32_t squares[2] = {0, 0};
    for (int code = WHITE_PAWN; code <= BLACK_KING; code++) {
        for (bitboard b = pos->bitboards[code]; b; b &= b - 1) {
            int s = lowestSquare(b);
            key ^= hashCodePiece[code][s];
            if (typeOf(code) == PAWN || typeOf(code) == KING) pawnKingKey ^= hashCodePiece[code][s];
            squares[code & 1] += pieceSquareOf(code, s);
        }
    }
    if (pos->plyState[0].enPassantSquare) key ^= hashCodeEnpassant[pos->plyState[0].enPassantSquare & 7];
    if (pos->sideToMove == BLACK) key ^= hashCodeBlackToMove;
    EXPECT_EQ(pos->hashKey, key);
    EXPECT_EQ(pos->pawnKingHashKey, pawnKingKey);
    EXPECT_EQ(pos->pieceSquareSum[WHITE], squares[WHITE]);
    EXPECT_EQ(pos->pieceSquareSum[BLACK], squares[BLACK]);
}

TEST(SetPositionText, CountsEveryPieceSetInKeysAndSums) {
    // Every piece kind, castling and en passant: the board names each piece.
    testPosition full("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1pP1P3/2N2Q1p/PP1BBPPP/R3K2R b KQkq c3 0 1");
    EXPECT_TRUE(hasOnePiecePerSquare(full.get()));
    expectKeysAndSumsOfThePieceSets(full.get());

    // "k/87q": the slash steps back to b6, the digits forward to a8 again, where the queen
    // lands on the king. The board keeps the queen; both sets keep a8.
    testPosition twice("k/87q/8/8/8/8/8/4K3 w - - 0 1");
    EXPECT_FALSE(hasOnePiecePerSquare(twice.get()));
    EXPECT_EQ(twice->board[56], BLACK_QUEEN);
    EXPECT_EQ(twice->bitboards[BLACK_KING], squareBit(56));
    EXPECT_EQ(twice->bitboards[BLACK_QUEEN], squareBit(56));
    expectKeysAndSumsOfThePieceSets(twice.get());
    EXPECT_EQ(twice->material[BLACK], pieceValue[QUEEN]);
}

}  // namespace
