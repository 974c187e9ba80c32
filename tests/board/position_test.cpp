// Position set-up from FEN (filled-in fields, clock fields, en passant, rights, ply cap, check
// flag, unusual placements), FEN validation and the board text.
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/testutil.h"

namespace {

// Rights: K 1, k 2, Q 4, q 8, each dropped without its king and rook on their squares; the game
// ply is capped at 512.
struct setupCase {
    const char* fen;
    int enPassant;  // stored square of the double-stepped pawn, 0 = none
    int rights;
    int side;
    int clock;
    int historyCount;  // game ply + 1
    int inCheck;
};

const setupCase setupCases[] = {
    {"rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1", 28, 15, 1, 0, 2, 0},
    {"rnbqkbnr/ppp1pppp/8/3p4/4P3/8/PPPP1PPP/RNBQKBNR w KQkq d6 0 2", 35, 15, 0, 0, 3, 0},
    {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR b KQkq e3 0 1", 0, 15, 1, 0, 2, 0},  // no pawn on e4
    {"4k3/8/8/8/8/8/8/4K3 w", 0, 0, 0, 0, 1, 0},
    {"4k3/8/8/8/8/8/8/4K3 b", 0, 0, 1, 0, 2, 0},
    {"4k3/8/8/8/8/8/8/4K3 w - - 7 300", 0, 0, 0, 7, 513, 0},
    {"4k3/8/8/8/8/8/8/4K3 b - - 0 300", 0, 0, 1, 0, 513, 0},
    {"4k3/8/8/8/8/8/8/4K3 w - - 0 257", 0, 0, 0, 0, 513, 0},
    {"4k3/8/8/8/8/8/8/4K3 b - - 0 256", 0, 0, 1, 0, 512, 0},
    {"4k3/8/8/8/8/8/8/4K3 w - - 3 0", 0, 0, 0, 3, 1, 0},
    {"4k3/8/8/8/8/8/8/4K2r w - - 0 1", 0, 0, 0, 0, 1, 1},
    {"4k3/3P4/8/8/8/8/8/4K3 b - - 0 1", 0, 0, 1, 0, 2, 1},
    {"4k3/8/5N2/8/8/8/8/4K3 b - - 0 1", 0, 0, 1, 0, 2, 1},
    {"4k3/8/8/8/8/8/6r1/4K3 w - - 0 1", 0, 0, 0, 0, 1, 0},
    {"4k3/8/8/8/8/8/8/4KN1r w - - 0 1", 0, 0, 0, 0, 1, 0},
    {"4k3/8/8/8/8/8/4p3/4K3 w - - 0 1", 0, 0, 0, 0, 1, 0},
    {"4k3/8/8/8/8/8/3p4/4K3 w - - 0 1", 0, 0, 0, 0, 1, 1},
    {"4k3/8/8/8/8/8/8/4K2R w KQkq - 0 1", 0, 1, 0, 0, 1, 0},
    {"r3k2r/8/8/8/8/8/8/R2K3R w KQkq - 0 1", 0, 10, 0, 0, 1, 0},
    {"r3k1r1/8/8/8/8/8/8/R3K2R w KQkq - 0 1", 0, 13, 0, 0, 1, 0},
    {"r3k2r/8/8/8/8/8/8/R3K2R b qKk - 0 1", 0, 11, 1, 0, 2, 0},
    // The clock fields as std::stoi reads them: signs, trailing junk, leading zeros, the clamp of
    // the half-move clock, extra fields.
    {"4k3/8/8/8/8/8/8/4K3 w - - +5 -3", 0, 0, 0, 5, 1, 0},
    {"4k3/8/8/8/8/8/8/4K3 w - - -3 2", 0, 0, 0, 0, 3, 0},
    {"4k3/8/8/8/8/8/8/4K3 w - - 12x 2x", 0, 0, 0, 12, 3, 0},
    {"4k3/8/8/8/8/8/8/4K3 w - - 0000000042 1", 0, 0, 0, 42, 1, 0},
    {"4k3/8/8/8/8/8/8/4K3 w - - 99999 1", 0, 0, 0, 65535, 1, 0},
    {"4k3/8/8/8/8/8/8/4K3 w - - 3 4 extra fields", 0, 0, 0, 3, 7, 0},
    // A move number whose ply does not fit in 32 bits (long is 32 bits on armhf).
    {"4k3/8/8/8/8/8/8/4K3 w - - 0 2147483647", 0, 0, 0, 0, 513, 0},
};

TEST(SetPosition, FillsStateFromTheFenFields) {
    for (const setupCase& c : setupCases) {
        SCOPED_TRACE(c.fen);
        testPosition p(c.fen);
        EXPECT_EQ(p->plyState[0].enPassantSquare, c.enPassant);
        EXPECT_EQ(p->plyState[0].castlingRights, c.rights);
        EXPECT_EQ(p->sideToMove, c.side);
        EXPECT_EQ(p->halfMoveClock, c.clock);
        EXPECT_EQ(p->historyCount, c.historyCount);
        EXPECT_EQ(p->plyState[0].inCheck, c.inCheck);
        EXPECT_EQ(p->hashHistory[c.historyCount - 1], p->hashKey);
    }
}

TEST(SetPosition, PlacesPiecesOnBoardAndBitboards) {
    testPosition p("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1");
    const struct {
        const char* square;
        int code;
    } cases[] = {{"a8", BLACK_ROOK}, {"e5", WHITE_KNIGHT}, {"h3", BLACK_PAWN}, {"e1", WHITE_KING}, {"c4", EMPTY}};
    for (const auto& c : cases) EXPECT_EQ(p->board[sq(c.square)], c.code) << c.square;
    for (int s = 0; s < 64; s++)
        for (int code = WHITE_PAWN; code <= BLACK_KING; code++)
            EXPECT_EQ((p->bitboards[code] >> s) & 1, p->board[s] == code ? 1u : 0u) << s << " " << code;
    EXPECT_EQ(p->bitboards[0], p->bitboards[WHITE_PAWN] | p->bitboards[WHITE_KNIGHT] | p->bitboards[WHITE_BISHOP] |
                                   p->bitboards[WHITE_ROOK] | p->bitboards[WHITE_QUEEN] | p->bitboards[WHITE_KING]);
    EXPECT_EQ(popCount(p->bitboards[0]), 16);
    EXPECT_EQ(popCount(p->bitboards[1]), 16);
}

TEST(SetPosition, UnknownLetterCountsAsOneEmptySquare) {
    testPosition odd("x3k2x/8/8/8/8/8/8/4K3 w - - 0 1");
    testPosition plain("4k3/8/8/8/8/8/8/4K3 w - - 0 1");
    EXPECT_EQ(odd->board[sq("e8")], BLACK_KING);
    EXPECT_EQ(odd->board[sq("a8")], EMPTY);
    EXPECT_EQ(odd->board[sq("h8")], EMPTY);
    EXPECT_EQ(odd->hashKey, plain->hashKey);
}

TEST(SetPosition, SquaresOffTheBoardAreNotWritten) {
    testPosition longRank("4k3pppp/8/8/8/8/8/8/8 w - - 0 1");
    EXPECT_EQ(popCount(occupancy(longRank.get())), 1);
    EXPECT_EQ(longRank->board[sq("e8")], BLACK_KING);
    testPosition extraRank("4k3/8/8/8/8/8/8/8/K7 w - - 0 1");
    EXPECT_EQ(popCount(occupancy(extraRank.get())), 1);
    EXPECT_EQ(extraRank->bitboards[WHITE_KING], 0u);
}

TEST(SetPosition, ForgetsTheKeysOfAnEarlierGame) {
    testPosition p("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 40");
    setPosition("4k3/8/8/8/8/8/8/4K3 b - - 0 1", p.get());
    EXPECT_EQ(p->hashHistory[78], 0u);
    EXPECT_EQ(popCount(occupancy(p.get())), 2);
}

// A lone placement field, a clock that is not a number, an empty clock field.
TEST(SetPosition, MalformedClockFieldsThrow) {
    testPosition p(fenStartPos);
    for (const char* fen : {"4k3/8/8/8/8/8/8/4K3", "4k3/8/8/8/8/8/8/4K3 w - - x 1", "4k3/8/8/8/8/8/8/4K3 w - - 0 y",
                            "4k3/8/8/8/8/8/8/4K3 w - - 5  "})
        EXPECT_THROW(setPosition(fen, p.get()), std::invalid_argument) << fen;
}

// "k/87q": the slash steps back to b6 and the digits forward to a8 again, where the queen lands
// on the king; the ranks after it end one square further on, so the references take the same
// path. The board keeps the queen; the piece sets, the key and the sums keep both.
TEST(SetPosition, TwoPiecesOnOneSquareCountInBothSets) {
    testPosition twice("k/87q/8/8/8/8/8/4K3 w - - 0 1"), king("k/88/8/8/8/8/8/4K3 w - - 0 1"),
        queen("1/87q/8/8/8/8/8/4K3 w - - 0 1");
    EXPECT_FALSE(hasOnePiecePerSquare(twice.get()));
    EXPECT_TRUE(hasOnePiecePerSquare(king.get()));
    EXPECT_EQ(twice->board[sq("a8")], BLACK_QUEEN);
    EXPECT_EQ(twice->bitboards[BLACK_KING], squareBit(sq("a8")));
    EXPECT_EQ(twice->bitboards[BLACK_QUEEN], squareBit(sq("a8")));
    EXPECT_EQ(twice->hashKey, king->hashKey ^ hashCodePiece[BLACK_QUEEN][sq("a8")]);
    EXPECT_EQ(twice->pawnKingHashKey, king->pawnKingHashKey);
    EXPECT_EQ(twice->pieceSquareSum[BLACK], king->pieceSquareSum[BLACK] + queen->pieceSquareSum[BLACK]);
    EXPECT_EQ(twice->material[BLACK], pieceValue[QUEEN]);
}

struct validateCase {
    const char* fen;
    bool valid;
};

const validateCase validateCases[] = {
    {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1", true},
    {"4k3/8/8/8/8/8/8/4K3 w", true},
    {"4k2x/8/8/8/8/8/8/4K3 w - - 0 1", true},  // unknown letter: empty square
    {"rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1", true},
    {"4k3/8/8/8/8/8/8/4K2r w - - 0 1", true},  // side to move in check
    {"4k3/8/8/8/8/8/8/4K3", false},            // no side to move
    {"", false},
    {"4k3/8/8/8/8/8/8/8/4K3 w - - 0 1", false},  // nine ranks
    {"4k3/8/8/8/8/8/4K3 w - - 0 1", false},      // seven ranks
    {"4k4/8/8/8/8/8/8/4K3 w - - 0 1", false},    // nine squares in a rank
    {"4k2/8/8/8/8/8/8/4K3 w - - 0 1", false},    // seven squares in a rank
    {"8/8/8/8/8/8/8/4K3 w - - 0 1", false},      // no black king
    {"4k3/8/8/8/8/8/8/8 w - - 0 1", false},      // no white king
    {"4k3/8/8/8/8/8/8/3KK3 w - - 0 1", false},
    {"4k3/8/8/8/8/8/8/4K3 w - - x 1", false},
    {"4k3/8/8/8/8/8/8/4K3 w - - -1 1", false},
    {"4k3/8/8/8/8/8/8/4K3 w - e3 0 1", false},  // wrong rank for the side
    {"4k3/8/8/8/8/8/8/4K3 w - i6 0 1", false},
    {"4k3/8/8/8/8/8/8/4K3 w - e6e 0 1", false},
    {"P3k3/8/8/8/8/8/8/4K3 w - - 0 1", false},  // pawn on the eighth rank
    {"4k3/8/8/8/8/8/8/p3K3 w - - 0 1", false},  // pawn on the first rank
    {"4k3/8/8/8/8/8/8/4K2r b - - 0 1", false},  // side not to move in check
    {"4k3/3P4/8/8/8/8/8/4K3 w - - 0 1", false},
    {"4k3/pppppppp/p7/8/8/8/8/4K3 w - - 0 1", false},   // nine black pawns
    {"4k3/8/8/8/8/8/PPPPPPPP/QQ2K3 w - - 0 1", false},  // extra queen needs a ninth pawn
    {"4k3/8/8/8/8/8/PPPPPPP1/QQ2K3 w - - 0 1", true},
};

TEST(ValidateFen, AcceptsPlayableAndRejectsHarmfulFens) {
    initTables();
    for (const validateCase& c : validateCases) {
        std::string reason;
        EXPECT_EQ(validateFen(c.fen, &reason), c.valid) << "FEN: " << c.fen << " reason: " << reason;
        EXPECT_TRUE(c.valid || !reason.empty()) << "no reason given for " << c.fen;
    }
}

TEST(BoardToString, DrawsTheStartPositionGrid) {
    testPosition p(fenStartPos);
    const std::string line = "+---+---+---+---+---+---+---+---+\n";
    const std::string empty = "|   |   |   |   |   |   |   |   |\n";
    std::string expected = line + "| r | n | b | q | k | b | n | r |\n" + line + "| p | p | p | p | p | p | p | p |\n" +
                           line + empty + line + empty + line + empty + line + empty + line +
                           "| P | P | P | P | P | P | P | P |\n" + line + "| R | N | B | Q | K | B | N | R |\n" + line;
    EXPECT_EQ(boardToString(p.get()), expected);
}

}  // namespace
