// From-scratch set-up of the running evaluation sums.
#include "engine/eval/evaluate.h"

void computeEvalSums(positionStruct* pos) {
    pos->material[0] = pos->material[1] = 0;
    pos->pieceSquareSum[0] = pos->pieceSquareSum[1] = 0;
    pos->phase = 0;
    for (int type = PAWN; type <= KING; type++) {
        for (int side = WHITE; side <= BLACK; side++) {
            int count = popCount(pos->bitboards[pieceOf(type, side)]);
            if (type != KING) pos->material[side] += pieceValue[type] * count;
            if (type != PAWN && type != KING) pos->phase += pieceValuePhase[type] * count;
        }
    }
    if (hasOnePiecePerSquare(pos)) {
        // One pass over the occupied squares, each piece read from the board: a single loop
        // exit to predict instead of twelve.
        bitboard occupied = occupancy(pos);
        while (occupied) {
            int square = popLowestSquare(occupied);
            int piece = pos->board[square];
            pos->pieceSquareSum[piece & 1] += pieceSquareOf(piece, square);
        }
        return;
    }
    for (int piece = WHITE_PAWN; piece <= BLACK_KING; piece++) {
        bitboard pieces = pos->bitboards[piece];
        while (pieces) pos->pieceSquareSum[piece & 1] += pieceSquareOf(piece, popLowestSquare(pieces));
    }
}
