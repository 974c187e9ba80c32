// Static evaluation: tapered material plus piece-square sums, read from the running totals.
#pragma once

#include "engine/board/position.h"
#include "engine/eval/psqt.h"

constexpr int PHASE_MIN = 502;   // at or below: pure end game
constexpr int PHASE_MAX = 6198;  // at or above: pure middle game
constexpr int PHASE_RANGE = PHASE_MAX - PHASE_MIN;

// Packed piece-square value of a piece code on a square (white reads the mirrored index).
inline int32_t pieceSquareOf(int piece, int square) {
    return pieceSquareScore[typeOf(piece)][square ^ ((~piece & 1) * 56)];
}

// Blends a packed white-minus-black score by the phase; the result is from White's view.
inline int taperScore(int32_t packed, int phase) {
    int ph = phase < PHASE_MIN ? PHASE_MIN : (phase > PHASE_MAX ? PHASE_MAX : phase);
    int x = mgHalf(packed) * (ph - PHASE_MIN) + egHalf(packed) * (PHASE_MAX - ph);
    return x / PHASE_RANGE;  // truncates toward zero for both signs
}

// White's packed material-and-square total minus Black's, plus the side-to-move bonus.
inline int32_t packedBalance(const positionStruct* pos) {
    int32_t d = static_cast<int32_t>(static_cast<uint32_t>(pos->material[0]) - static_cast<uint32_t>(pos->material[1]) +
                                     static_cast<uint32_t>(pos->pieceSquareSum[0]) -
                                     static_cast<uint32_t>(pos->pieceSquareSum[1]));
    return pos->sideToMove == WHITE ? d + TEMPO_BONUS : d - TEMPO_BONUS;
}

// Evaluation from the side to move's view. The ply argument is not used.
inline int evaluateN(int /*ply*/, const positionStruct* pos) {
    int r = taperScore(packedBalance(pos), pos->phase);
    return static_cast<int16_t>(pos->sideToMove == WHITE ? r : -r);
}

// Recomputes material, piece-square sums and phase from the board.
void computeEvalSums(positionStruct* pos);
