// Position set-up from FEN: stored en-passant square, filled-in fields, ply cap, check flag.
#include <gtest/gtest.h>

#include "tests/testutil.h"

TEST(SetPosition, StoresTheDoubleSteppedPawnAsEnPassantSquare) {
    testPosition p("rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1");
    EXPECT_EQ(p->plyState[0].enPassantSquare, 28);
    EXPECT_EQ(p->plyState[0].castlingRights, 15);
}

// Field handling of the set-up, one row per rule the parser must keep: filled-in fields, the
// ply cap, std::stoi's reading of odd clock text, extra fields, and the exception that a lone
// placement field or a non-numeric clock raises.
struct fenFieldCase {
    const char* fen;
    int halfMoveClock;
    int historyCount;
    int castlingRights;
    int enPassantSquare;
    bool throws;
};

TEST(SetPosition, ReadsTheFieldsAfterThePlacement) {
    const fenFieldCase cases[] = {
        {"4k3/8/8/8/8/8/8/4K3 w", 0, 1, 0, 0, false},
        {"4k3/8/8/8/8/8/8/4K3 b", 0, 2, 0, 0, false},
        {"r3k2r/8/8/8/8/8/8/R3K2R b KQkq", 0, 2, 15, 0, false},
        {"4k3/8/8/8/8/8/8/4K3 w - - 7 300", 7, 513, 0, 0, false},
        {"4k3/8/8/8/8/8/8/4K3 w - - +5 -3", 5, 1, 0, 0, false},
        {"4k3/8/8/8/8/8/8/4K3 w - - -3 2", 0, 3, 0, 0, false},
        {"4k3/8/8/8/8/8/8/4K3 w - - 12x 2x", 12, 3, 0, 0, false},
        {"4k3/8/8/8/8/8/8/4K3 w - - 0000000042 1", 42, 1, 0, 0, false},
        {"4k3/8/8/8/8/8/8/4K3 w - - 99999 1", 65535, 1, 0, 0, false},
        {"4k3/8/8/8/8/8/8/4K3 w - - 3 4 extra fields", 3, 7, 0, 0, false},
        {"4k3/8/8/8/8/8/8/4K3", 0, 0, 0, 0, true},
        {"4k3/8/8/8/8/8/8/4K3 w - - x 1", 0, 0, 0, 0, true},
        {"4k3/8/8/8/8/8/8/4K3 w - - 5  ", 0, 0, 0, 0, true},
    };
    for (const fenFieldCase& c : cases) {
        SCOPED_TRACE(c.fen);
        testPosition p(fenStartPos);
        if (c.throws) {
            EXPECT_THROW(setPosition(c.fen, p.get()), std::invalid_argument);
            continue;
        }
        setPosition(c.fen, p.get());
        EXPECT_EQ(p->halfMoveClock, c.halfMoveClock);
        EXPECT_EQ(p->historyCount, c.historyCount);
        EXPECT_EQ(p->plyState[0].castlingRights, c.castlingRights);
        EXPECT_EQ(p->plyState[0].enPassantSquare, c.enPassantSquare);
    }
}

// Placement quirks: an unknown letter is one empty square, a piece past the end of the board
// is dropped, and the colour bitboards hold exactly the pieces placed.
TEST(SetPosition, PlacesPiecesLikeTheBoardText) {
    testPosition p("kXq5/8/8/8/8/8/8/K6R w - - 0 1");
    EXPECT_EQ(p->board[56], BLACK_KING);
    EXPECT_EQ(p->board[57], EMPTY);
    EXPECT_EQ(p->board[58], BLACK_QUEEN);
    EXPECT_EQ(p->bitboards[WHITE], squareBit(0) | squareBit(7));
    EXPECT_EQ(p->bitboards[BLACK], squareBit(56) | squareBit(58));

    testPosition overlong("k6rN w - - 0 1");
    EXPECT_EQ(overlong->board[63], BLACK_ROOK);
    EXPECT_EQ(overlong->bitboards[WHITE_KNIGHT], 0u);
    EXPECT_EQ(overlong->bitboards[WHITE], 0u);
}
