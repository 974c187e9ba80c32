// From-scratch set-up of the running evaluation sums.
#include "engine/eval/evaluate.h"

void computeEvalSums(positionStruct* pos) {
    pos->material[0] = pos->material[1] = 0;
    pos->pieceSquareSum[0] = pos->pieceSquareSum[1] = 0;
    pos->phase = 0;
    for (int type = PAWN; type <= KING; type++) {
        for (int side = WHITE; side <= BLACK; side++) {
            bitboard pieces = pos->bitboards[pieceOf(type, side)];
            if (type != KING) pos->material[side] += pieceValue[type] * popCount(pieces);
            if (type != PAWN && type != KING) pos->phase += pieceValuePhase[type] * popCount(pieces);
            while (pieces) pos->pieceSquareSum[side] += pieceSquareOf(pieceOf(type, side), popLowestSquare(pieces));
        }
    }
}
