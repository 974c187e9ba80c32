// Staged move picker: hands out a node's moves one at a time, generating each class only when
// the earlier ones are used up. All state lives in the node's plyState entry.
#pragma once

#include "engine/board/position.h"

// Stage values; the value stored when a move is handed out tells the search what kind it is.
enum pickerStage : uint8_t {
    STAGE_HASH_MOVE = 0,          // the hash move is still to come
    STAGE_GENERATE_CAPTURES = 1,  // also the stage of a handed-out hash move
    STAGE_GOOD_CAPTURES = 2,
    STAGE_CAPTURES_DONE = 3,
    STAGE_KILLER1 = 4,
    STAGE_KILLER2 = 5,
    STAGE_COUNTER_MOVE = 6,
    STAGE_BAD_CAPTURES = 7,
    STAGE_GENERATE_QUIETS = 8,
    STAGE_QUIETS = 9,
    STAGE_EVASIONS = 99,
};

constexpr uint8_t BAD_CAPTURE_ORDER = 255;

// Prepares the node: starts at the hash move when plyState[ply].hashMove can be played.
void initMovePicker(positionStruct* pos, int ply);
// The next move of the node (pseudo-legal; evasions are legal), or EMPTYMOVE when none is left.
moveStruct nextMove(positionStruct* pos, int ply);
