// Check detection before a move is made: per node the squares from which each piece type
// would check the enemy king and the own pieces that can uncover a check; per move a few ANDs.
#pragma once

#include "engine/board/position.h"

struct checkInfoStruct {
    bitboard checkSquares[6];  // by piece type: squares from which that type attacks the king
    bitboard discoverers;      // own pieces standing between an own slider and the enemy king
    int enemyKing;
};

// Fills the check information for the side to move.
void computeCheckInfo(const positionStruct* pos, checkInfoStruct* info);
// Whether move (pseudo-legal for the side to move) gives check.
bool moveGivesCheck(const positionStruct* pos, const checkInfoStruct& info, moveStruct move);
