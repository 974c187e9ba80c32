// The staged move picker: hash move, good captures, killers, counter move, bad captures,
// quiet moves by history, or evasions in check.
#include "engine/search/picker.h"

#include "engine/movegen/legal.h"
#include "engine/movegen/staged.h"
#include "engine/search/searchdata.h"
#include "engine/search/see.h"
#include "engine/search/tables.h"

namespace {

// Bits of the entry's flag byte: which of the killers and the counter move were handed out.
constexpr uint8_t HANDED_OUT_KILLER1 = 1;
constexpr uint8_t HANDED_OUT_KILLER2 = 2;
constexpr uint8_t HANDED_OUT_COUNTER = 4;

// A killer or counter move is handed out only when it is a quiet move playable on this board.
inline bool isUsableQuiet(const positionStruct* pos, int ply, moveStruct move) {
    if (isEmptyMove(move)) return false;
    if (move.kind != KIND_ENPASSANT && pos->board[move.to] != EMPTY) return false;
    return move.kind != KIND_ENPASSANT && isMovePseudoLegal(pos, ply, move);
}

// History score of a quiet move: main history plus both continuation histories.
inline int32_t quietScore(const positionStruct* pos, int ply, moveStruct move) {
    const searchDataStruct* data = pos->search;
    int piece = pos->board[move.from];
    int32_t score = data->history[piece][move.to];
    const continuationCells cells = continuationOf(pos, ply, piece, move.to);
    if (cells.counter) score += *cells.counter;
    if (cells.followUp) score += *cells.followUp;
    return score;
}

// Stage STAGE_GENERATE_CAPTURES: writes the captures (the evasions when in check) and moves on
// to handing them out.
inline void generateCaptureStage(positionStruct* pos, int ply, plyStateStruct* entry) {
    entry->counterMove = EMPTYMOVE;
    generateMovesCaptures(ply, entry->moveList, pos);
    entry->cursor = entry->moveList;
    entry->captureEnd = entry->moveListEnd;
    entry->moveStage = entry->inCheck ? STAGE_EVASIONS : STAGE_GOOD_CAPTURES;
}

// A capture that does not lose material: en passant, a victim worth at least its taker, or an
// exchange on the target square that does not lose.
inline bool isGoodCapture(const positionStruct* pos, moveStruct move) {
    if (move.kind == KIND_ENPASSANT) return true;
    if (seeValue[pos->board[move.to]] - seeValue[pos->board[move.from]] >= 0) return true;
    return staticExchange(pos, move) >= 0;
}

// Stage STAGE_GOOD_CAPTURES: the best remaining capture that does not lose material, skipping
// the hash move. A losing one is marked to come back after the killers and the counter move.
// False, with the stage moved on, when the captures are used up.
inline bool nextGoodCapture(const positionStruct* pos, plyStateStruct* entry, moveStruct* move) {
    while (entry->cursor < entry->captureEnd) {
        moveStruct* m = selectBestByOrder(entry->cursor, entry->captureEnd);
        entry->cursor++;
        if (sameMove(*m, entry->hashMove)) continue;
        if (isGoodCapture(pos, *m)) {
            *move = *m;
            return true;
        }
        m->order = BAD_CAPTURE_ORDER;
    }
    entry->moveStage = STAGE_CAPTURES_DONE;
    return false;
}

// Hands out a killer or counter move that is not the hash move and is a quiet move playable
// here, noting it in the entry's flag byte.
inline bool handOutQuiet(const positionStruct* pos, int ply, plyStateStruct* entry, moveStruct candidate,
                         uint8_t handedOut, moveStruct* move) {
    if (sameMove(candidate, entry->hashMove) || !isUsableQuiet(pos, ply, candidate)) return false;
    entry->flag |= handedOut;
    *move = candidate;
    return true;
}

// Stage STAGE_CAPTURES_DONE: the first killer.
inline bool firstKiller(const positionStruct* pos, int ply, plyStateStruct* entry, moveStruct* move) {
    entry->moveStage = STAGE_KILLER1;
    entry->flag = 0;
    return handOutQuiet(pos, ply, entry, entry->killer1, HANDED_OUT_KILLER1, move);
}

// Stage STAGE_KILLER1: the second killer.
inline bool secondKiller(const positionStruct* pos, int ply, plyStateStruct* entry, moveStruct* move) {
    entry->moveStage = STAGE_KILLER2;
    return handOutQuiet(pos, ply, entry, entry->killer2, HANDED_OUT_KILLER2, move);
}

// Stage STAGE_KILLER2: the counter move to the previous ply's move, unless it repeats a killer.
inline bool nextCounterMove(const positionStruct* pos, int ply, plyStateStruct* entry, moveStruct* move) {
    entry->moveStage = STAGE_COUNTER_MOVE;
    const plyStateStruct* previous = ply >= 1 ? &pos->plyState[ply - 1] : nullptr;
    if (!previous || previous->currentMove.from == previous->currentMove.to) return false;
    entry->counterMove = pos->search->counterMoves[entry->movedPiece][previous->currentMove.to];
    moveStruct counter = entry->counterMove;
    if (sameMove(counter, entry->killer1) || sameMove(counter, entry->killer2)) return false;
    return handOutQuiet(pos, ply, entry, counter, HANDED_OUT_COUNTER, move);
}

// Stage STAGE_COUNTER_MOVE: rewinds the cursor over the captures for the losing ones.
inline void startBadCaptures(plyStateStruct* entry) {
    entry->moveStage = STAGE_BAD_CAPTURES;
    entry->cursor = entry->moveList;
}

// Stage STAGE_BAD_CAPTURES: the next capture marked as losing, in list order.
inline bool nextBadCapture(plyStateStruct* entry, moveStruct* move) {
    while (entry->cursor < entry->captureEnd) {
        moveStruct* m = entry->cursor++;
        if (m->order == BAD_CAPTURE_ORDER) {
            *move = *m;
            return true;
        }
    }
    entry->moveStage = STAGE_GENERATE_QUIETS;
    return false;
}

// Drops the moves already handed out from [first, end), scores the others by history and sorts
// them by score, highest first (stable, so equal scores keep the generation order). Returns the
// new end.
inline moveStruct* sortQuiets(const positionStruct* pos, int ply, const plyStateStruct* entry, moveStruct* first,
                              moveStruct* end) {
    int32_t* scores = pos->search->quietScores;
    const moveStruct* base = pos->search->moveBuffer;
    // Only moves already handed out are removed: a killer skipped because another piece now
    // stands on its square must not take the real move with it.
    const moveStruct killer1 = (entry->flag & HANDED_OUT_KILLER1) ? entry->killer1 : EMPTYMOVE;
    const moveStruct killer2 = (entry->flag & HANDED_OUT_KILLER2) ? entry->killer2 : EMPTYMOVE;
    const moveStruct counter = (entry->flag & HANDED_OUT_COUNTER) ? entry->counterMove : EMPTYMOVE;
    for (moveStruct* m = first; m < end;) {
        if (sameMove(*m, entry->hashMove) || sameMove(*m, killer1) || sameMove(*m, killer2) || sameMove(*m, counter)) {
            *m = *--end;
            continue;
        }
        int32_t score = quietScore(pos, ply, *m);
        moveStruct move = *m;
        moveStruct* slot = m;
        for (; slot > first && scores[slot - 1 - base] < score; slot--) {
            *slot = *(slot - 1);
            scores[slot - base] = scores[slot - 1 - base];
        }
        *slot = move;
        scores[slot - base] = score;
        m++;
    }
    return end;
}

// Stage STAGE_GENERATE_QUIETS: writes the quiet moves behind the captures and sorts them.
inline void generateQuietStage(positionStruct* pos, int ply, plyStateStruct* entry) {
    entry->moveStage = STAGE_QUIETS;
    generateMovesQuiets(ply, entry->captureEnd, pos);
    moveStruct* end = sortQuiets(pos, ply, entry, entry->captureEnd, entry->moveListEnd);
    entry->moveListEnd = end;
    pos->plyState[ply + 1].moveList = end;
    entry->cursor = entry->captureEnd;
}

// Stage STAGE_QUIETS: the next quiet move, or EMPTYMOVE at the end of the list.
inline moveStruct nextQuiet(plyStateStruct* entry) {
    if (entry->cursor >= entry->moveListEnd) return EMPTYMOVE;
    return *entry->cursor++;
}

// Stage STAGE_EVASIONS: the best remaining evasion other than the hash move, or EMPTYMOVE when
// none is left.
inline moveStruct nextEvasion(plyStateStruct* entry) {
    while (entry->cursor < entry->captureEnd) {
        moveStruct* m = selectBestByOrder(entry->cursor, entry->captureEnd);
        entry->cursor++;
        if (!sameMove(*m, entry->hashMove)) return *m;
    }
    return EMPTYMOVE;
}

}  // namespace

void initMovePicker(positionStruct* pos, int ply) {
    plyStateStruct* entry = &pos->plyState[ply];
    bool usable = !isEmptyMove(entry->hashMove) && isMovePseudoLegal(pos, ply, entry->hashMove);
    if (!usable) entry->hashMove = EMPTYMOVE;
    if (usable && !entry->inCheck) entry->notPinned = computeNotPinned(pos);
    entry->moveStage = usable ? STAGE_HASH_MOVE : STAGE_GENERATE_CAPTURES;
}

// Runs the stages in order until one hands out a move: the hash move, good captures, two killers,
// the counter move, bad captures, quiet moves by history; in check the evasions instead.
moveStruct nextMove(positionStruct* pos, int ply) {
    plyStateStruct* entry = &pos->plyState[ply];
    moveStruct move;
    for (;;) {
        switch (entry->moveStage) {
            case STAGE_HASH_MOVE: entry->moveStage = STAGE_GENERATE_CAPTURES; return entry->hashMove;
            case STAGE_GENERATE_CAPTURES: generateCaptureStage(pos, ply, entry); break;
            case STAGE_GOOD_CAPTURES:
                if (nextGoodCapture(pos, entry, &move)) return move;
                break;
            case STAGE_CAPTURES_DONE:
                if (firstKiller(pos, ply, entry, &move)) return move;
                break;
            case STAGE_KILLER1:
                if (secondKiller(pos, ply, entry, &move)) return move;
                break;
            case STAGE_KILLER2:
                if (nextCounterMove(pos, ply, entry, &move)) return move;
                break;
            case STAGE_COUNTER_MOVE: startBadCaptures(entry); break;
            case STAGE_BAD_CAPTURES:
                if (nextBadCapture(entry, &move)) return move;
                break;
            case STAGE_GENERATE_QUIETS: generateQuietStage(pos, ply, entry); break;
            case STAGE_QUIETS: return nextQuiet(entry);
            case STAGE_EVASIONS: return nextEvasion(entry);
            default: return EMPTYMOVE;
        }
    }
}
