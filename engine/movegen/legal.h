// Legal move generation: the staged generators followed by a filter that tests only what can
// break legality (pinned pieces, king moves, en passant).
#pragma once

#include <string>

#include "engine/board/position.h"

// Writes exactly the legal moves from `list` (the ply's moveList) and sets the ply's inCheck.
void generateMovesLegal(int ply, moveStruct* list, positionStruct* pos);

// Legality of a pseudo-legal move when the side to move is not in check; needs the ply's
// notPinned.
bool isLegalNotInCheck(const positionStruct* pos, int ply, moveStruct move);

// Whether a move taken from outside the generators (hash move, killer, counter move) can be
// played on the current board: the piece in the move's fourth byte stands on its from-square,
// the target holds no own piece and no king, and the move fits the piece's rules. Legality with
// respect to the own king is not tested.
bool isMovePseudoLegal(const positionStruct* pos, int ply, moveStruct move);

// Reads a move text (long algebraic) and checks it against the legal moves of the position at
// ply 0, which it generates into that ply's list. False when the text is malformed or the move
// is not legal here.
bool legalMoveFromText(const std::string& text, positionStruct* pos, moveStruct* move);

inline int moveCount(const positionStruct* pos, int ply) {
    return static_cast<int>(pos->plyState[ply].moveListEnd - pos->plyState[ply].moveList);
}
