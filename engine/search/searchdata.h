// Per-thread search tables: histories, counter moves and the move buffer of the search stack.
// Each search thread owns one; only `progress` is read by other threads (see control.h).
#pragma once

#include <cstdint>

#include "engine/board/position.h"
#include "engine/search/control.h"

constexpr int HISTORY_MAX = 8192;  // histories approach +-HISTORY_MAX under the gravity update
constexpr int MOVE_BUFFER_SIZE = (MAX_PLY + 2) * MAX_MOVES_PER_PLY;
// Nodes up to SEARCH_PLY_LIMIT generate moves, and the quiescence child of the last of them
// starts its (empty) list behind theirs.
static_assert(MOVE_BUFFER_SIZE >= (SEARCH_PLY_LIMIT + 2) * MAX_MOVES_PER_PLY, "move buffer too small");

// Continuation history: [previous piece - 2][previous to][piece - 2][to].
typedef int16_t continuationTable[12][64][12][64];

struct searchDataStruct {
    int16_t history[14][64];               // by moving piece code and destination
    moveStruct counterMoves[14][64];       // by the previous move's piece code and destination
    continuationTable counterMoveHistory;  // keyed by the previous ply's move
    continuationTable followUpHistory;     // keyed by the move two plies back
    moveStruct moveBuffer[MOVE_BUFFER_SIZE];
    int32_t quietScores[MOVE_BUFFER_SIZE];  // ordering scores of quiet moves, parallel to moveBuffer

    // The thread's view of the outside: the shared record and its own slot in it.
    searchControlStruct* control = nullptr;
    threadProgressStruct progress;
};

// Continuation-history cells of a move keyed by the moves one and two plies back; null when
// that ply made no real move.
struct continuationCells {
    int16_t* counter;
    int16_t* followUp;
};

inline continuationCells continuationOf(const positionStruct* pos, int ply, int piece, int to) {
    continuationCells cells = {nullptr, nullptr};
    searchDataStruct* data = pos->search;
    if (ply >= 1) {
        const moveStruct previous = pos->plyState[ply - 1].currentMove;
        if (previous.from != previous.to)
            cells.counter = &data->counterMoveHistory[pos->plyState[ply].movedPiece - 2][previous.to][piece - 2][to];
    }
    if (ply >= 2) {
        const moveStruct before = pos->plyState[ply - 2].currentMove;
        if (before.from != before.to)
            cells.followUp = &data->followUpHistory[pos->plyState[ply - 1].movedPiece - 2][before.to][piece - 2][to];
    }
    return cells;
}

// Zeroes the histories and counter moves.
void clearSearchHistory(searchDataStruct* data);
