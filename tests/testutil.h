// Shared set-up for the unit tests: the constant tables once, a small hash table, positions set
// from FEN on the heap, and move-list helpers.
#pragma once

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/board/attacks.h"
#include "engine/board/position.h"
#include "engine/board/zobrist.h"
#include "engine/eval/evaluate.h"
#include "engine/movegen/legal.h"
#include "engine/movegen/staged.h"
#include "engine/search/engine.h"
#include "engine/search/tables.h"
#include "engine/search/tt.h"

inline void initTables() {
    static std::once_flag once;
    std::call_once(once, [] {
        initAttackTables();
        initLMR();
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
        computeEvalSums(pos.get());
    }
    positionStruct* operator->() { return pos.get(); }
    positionStruct* get() { return pos.get(); }
};

// Square index of a coordinate such as "e4".
inline int sq(const char* name) { return (name[0] - 'a') + 8 * (name[1] - '1'); }

inline moveStruct makeMoveRecord(int from, int to, int kind, int order = 0) {
    return moveStruct{static_cast<uint8_t>(from), static_cast<uint8_t>(to), static_cast<uint8_t>(kind),
                      static_cast<uint8_t>(order)};
}

// The moves of the ply's list, in list order.
inline std::vector<moveStruct> listMoves(positionStruct* pos, int ply) {
    return std::vector<moveStruct>(pos->plyState[ply].moveList, pos->plyState[ply].moveListEnd);
}

// Every capture and quiet move of the side to move at ply, generated as if not in check.
inline std::vector<moveStruct> pseudoLegalMoves(positionStruct* pos, int ply) {
    plyStateStruct& entry = pos->plyState[ply];
    const uint8_t inCheck = entry.inCheck;
    entry.inCheck = 0;
    generateMovesCaptures(ply, entry.moveList, pos);
    generateMovesQuiets(ply, entry.moveListEnd, pos);
    entry.inCheck = inCheck;
    return listMoves(pos, ply);
}

// Sorted long algebraic texts of moves made by the side to move.
inline std::vector<std::string> textsOf(const std::vector<moveStruct>& moves, int side) {
    std::vector<std::string> texts;
    for (moveStruct m : moves) texts.push_back(moveToLA(&m, static_cast<unsigned char>(side)));
    std::sort(texts.begin(), texts.end());
    return texts;
}

// The move of the given text among the legal moves at ply 0 (EMPTYMOVE when absent).
inline moveStruct legalMoveByText(positionStruct* pos, const std::string& text) {
    generateMovesLegal(0, pos->plyState[0].moveList, pos);
    for (moveStruct m : listMoves(pos, 0))
        if (moveToLA(&m, pos->sideToMove) == text) return m;
    return EMPTYMOVE;
}
