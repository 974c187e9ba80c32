// Check detection before the move against the position after it, over whole move trees.
#include <gtest/gtest.h>

#include "engine/movegen/check.h"
#include "engine/movegen/legal.h"
#include "engine/movegen/makemove.h"
#include "tests/testutil.h"

namespace {

// Walks the legal tree and compares moveGivesCheck with the check test after each move.
int compareTree(positionStruct* pos, int ply, int depth) {
    generateMovesLegal(ply, pos->plyState[ply].moveList, pos);
    checkInfoStruct info;
    computeCheckInfo(pos, &info);
    int mismatches = 0;
    for (moveStruct* m = pos->plyState[ply].moveList; m < pos->plyState[ply].moveListEnd; m++) {
        bool predicted = moveGivesCheck(pos, info, *m);
        makeMove(pos, ply, *m);
        bool actual = isSideInCheck(pos, pos->sideToMove);
        if (predicted != actual) {
            ADD_FAILURE() << "move " << moveToLA(m, pos->sideToMove ^ 1) << " predicted " << predicted;
            mismatches++;
        }
        if (depth > 1) mismatches += compareTree(pos, ply + 1, depth - 1);
        unmakeMove(pos, ply, *m);
    }
    return mismatches;
}

}  // namespace

TEST(MoveGivesCheck, AgreesWithTheBoardAfterTheMove) {
    const char* fens[] = {
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
        "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1",
        "r3k2r/Pppp1ppp/1b3nbN/nP6/BBP1P3/q4N2/Pp1P2PP/R2Q1RK1 w kq - 0 1",
        "rnbq1k1r/pp1Pbppp/2p5/8/2B5/8/PPP1NnPP/RNBQK2R w KQ - 1 8",
        // Discovered checks, en passant uncovering a rank, castling with the rook giving check.
        "4k3/8/8/2KPp2r/8/8/8/8 w - e6 0 1",
        "5k2/8/8/8/8/8/8/4K2R w K - 0 1",
        "4k3/4n3/8/8/4R3/8/2B5/4K3 w - - 0 1",
        "8/P1k5/8/8/8/8/8/K3R3 w - - 0 1",
        "2k5/P7/8/8/8/8/8/K3R3 w - - 0 1",
        // An under-promotion that uncovers a rook along the seventh rank.
        "8/3kP2R/5P2/4K2p/2r5/p6p/8/8 w - - 0 1",
    };
    for (const char* fen : fens) {
        testPosition p(fen);
        EXPECT_EQ(compareTree(p.get(), 0, 3), 0) << fen;
    }
}
