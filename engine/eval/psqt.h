// Piece values and piece-square tables: the whole positional knowledge of the evaluation.
#pragma once

#include <cstdint>

// A packed score holds the middle-game value in the low 16 bits and the end-game value in the
// high 16 bits (eg * 65536 + mg); packed words are added and subtracted as plain integers.
constexpr int32_t packScore(int mg, int eg) {
    return static_cast<int32_t>(static_cast<uint32_t>(eg) * 65536u + static_cast<uint32_t>(mg));
}

// Packed piece values by type (pawn .. king). The tuner may change them.
extern int32_t pieceValue[6];
// Phase weight by type; only knight .. queen are counted.
extern const uint16_t pieceValuePhase[6];
// Packed positional values by [type][index]; a black piece on square s reads index s, a white
// piece index s ^ 56, so index row 0 is the opponent's back rank seen from the piece's side.
extern int32_t pieceSquareScore[6][64];

// Side-to-move bonus: mg 25, eg 17.
constexpr int32_t TEMPO_BONUS = packScore(25, 17);
