// Engine settings (UCI options) and the limits of the current search.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/board/move.h"
#include "engine/util/clock.h"

struct engineStruct {
    uint64_t nodes = 0;     // node limit of "go nodes", 0 = none
    int64_t startTime = 0;  // steady clock, milliseconds, taken when "go" is read
    float timeScale = 1.0f;
    float timeFactor = 1.37f;
    int32_t time[2] = {0, 0};  // wtime, btime
    int32_t inc[2] = {0, 0};   // winc, binc
    int32_t movestogo = 30;
    int32_t gamePly = 0;  // plies played in the game, 1024 = unknown
    int32_t depth = 0;
    int32_t mate = 0;
    int32_t movetime = 0;
    int32_t softTime = 0;  // target time for this move, milliseconds
    int32_t hardTime = 0;  // the search must stop after this, milliseconds
    int32_t moveOverhead = 100;
    int32_t hashSize = 256;  // megabytes
    int32_t nofThreads = 1;
    int32_t checkInterval = 4096;              // nodes between two readings of the clock
    std::atomic<int32_t> syzygyProbeDepth{0};  // may change while a search reads it
    // Read by the search threads while the UCI thread may set it, hence atomic.
    std::atomic<bool> infinite{false};
    bool ponderOption = false;
    bool movestogoGiven = false;
    bool newGame = true;       // the next "go" recomputes timeFactor
    bool noTimeLimit = false;  // "go" gave a depth, node or mate limit and no clock: no time checks
    std::string syzygyPath;
    // "go searchmoves": the root moves the search may play, all legal; empty = every move.
    std::vector<moveStruct> searchMoves;
};

extern engineStruct engine;

// Whether the root may play `move` under "go searchmoves" (`listed`; empty allows every move).
inline bool isSearchMoveAllowed(const std::vector<moveStruct>& listed, moveStruct move) {
    if (listed.empty()) return true;
    for (moveStruct m : listed)
        if (sameMove(m, move)) return true;
    return false;
}
