// Staged pseudo-legal move generators (captures, quiets, quiescence moves, recaptures) and the
// legal evasion generator. Each writes the ply's slice of the move buffer from `list` onward
// and stores the end as this ply's moveListEnd and the next ply's moveList.
#pragma once

#include "engine/board/position.h"

void generateMovesCaptures(int ply, moveStruct* list, positionStruct* pos);
void generateMovesQuiets(int ply, moveStruct* list, positionStruct* pos);
void generateMovesQuiescence(int ply, moveStruct* list, positionStruct* pos);
void generateMovesRecapture(int ply, moveStruct* list, positionStruct* pos);
void generateMovesEvade(int ply, moveStruct* list, positionStruct* pos);

// Complement of the own pieces pinned against the own king.
bitboard computeNotPinned(const positionStruct* pos);
// Whether square is attacked by side `by` over the given occupancy.
bool isSquareAttacked(const positionStruct* pos, int square, int by, bitboard occupied);

// Ordering scores outside check (most valuable victim, least valuable attacker).
inline uint8_t captureScore(int victim, int attacker) { return static_cast<uint8_t>(8 * victim - (attacker & ~1)); }
constexpr uint8_t ENPASSANT_SCORE = 14;
constexpr uint8_t QUIET_PROMOTION_SCORE = 1;  // queen push-promotion in quiescence

// Swaps the move with the largest ordering byte in [cursor, end) (the earliest on ties) to the
// cursor and returns the cursor. The range must not be empty.
inline moveStruct* selectBestByOrder(moveStruct* cursor, const moveStruct* end) {
    moveStruct* best = cursor;
    for (moveStruct* m = cursor + 1; m < end; m++)
        if (m->order > best->order) best = m;
    moveStruct chosen = *best;
    *best = *cursor;
    *cursor = chosen;
    return cursor;
}
