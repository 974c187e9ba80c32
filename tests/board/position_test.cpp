// Position set-up from FEN: stored en-passant square, filled-in fields, ply cap, check flag.
#include <gtest/gtest.h>

#include "tests/testutil.h"

TEST(SetPosition, StoresTheDoubleSteppedPawnAsEnPassantSquare) {
    testPosition p("rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1");
    EXPECT_EQ(p->plyState[0].enPassantSquare, 28);
    EXPECT_EQ(p->plyState[0].castlingRights, 15);
}
