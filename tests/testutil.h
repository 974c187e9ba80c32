// Shared set-up for the unit tests: the constant tables once, a small hash table, and
// positions set from FEN on the heap.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "engine/board/attacks.h"
#include "engine/board/position.h"
#include "engine/board/zobrist.h"
#include "engine/search/tt.h"
#include "engine/uci/engine.h"

inline void initTables() {
    static std::once_flag once;
    std::call_once(once, [] {
        initBitboardConstants();
        copyHashCodes();
        engine.hashSize = 1;
        resizeHashTable(1);
    });
}

// A position record with its own move buffer, set from fen.
struct testPosition {
    std::unique_ptr<positionStruct> pos{new positionStruct()};
    std::unique_ptr<moveStruct[]> buffer{new moveStruct[40000]};
    explicit testPosition(const std::string& fen) {
        initTables();
        pos->plyState[0].moveList = buffer.get();
        setPosition(fen, pos.get());
    }
    positionStruct* operator->() { return pos.get(); }
    positionStruct* get() { return pos.get(); }
};
