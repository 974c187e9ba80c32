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

// Swaps the move with the largest ordering byte (the earliest on ties) to the cursor.
inline moveStruct* pickBestOrder(moveStruct* cursor, moveStruct* end) {
    if (cursor >= end) return nullptr;
    moveStruct* best = cursor;
    for (moveStruct* m = cursor + 1; m < end; m++)
        if (m->order > best->order) best = m;
    moveStruct chosen = *best;
    *best = *cursor;
    *cursor = chosen;
    return cursor;
}

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
    const plyStateStruct* previous = ply >= 1 ? &pos->plyState[ply - 1] : nullptr;
    if (previous && previous->currentMove.from != previous->currentMove.to)
        score +=
            data->counterMoveHistory[pos->plyState[ply].movedPiece - 2][previous->currentMove.to][piece - 2][move.to];
    if (ply >= 2) {
        const plyStateStruct* before = &pos->plyState[ply - 2];
        if (before->currentMove.from != before->currentMove.to)
            score += data->followUpHistory[pos->plyState[ply - 1].movedPiece - 2][before->currentMove.to][piece - 2]
                                          [move.to];
    }
    return score;
}

}  // namespace

void initMovePicker(positionStruct* pos, int ply) {
    plyStateStruct* entry = &pos->plyState[ply];
    bool usable = !isEmptyMove(entry->hashMove) && isMovePseudoLegal(pos, ply, entry->hashMove);
    if (!usable) entry->hashMove = EMPTYMOVE;
    if (usable && !entry->inCheck) entry->notPinned = computeNotPinned(pos);
    entry->moveStage = usable ? STAGE_HASH_MOVE : STAGE_GENERATE_CAPTURES;
}

moveStruct nextMove(positionStruct* pos, int ply) {
    plyStateStruct* entry = &pos->plyState[ply];
    for (;;) {
        switch (entry->moveStage) {
            case STAGE_HASH_MOVE: entry->moveStage = STAGE_GENERATE_CAPTURES; return entry->hashMove;

            case STAGE_GENERATE_CAPTURES:
                entry->counterMove = EMPTYMOVE;
                generateMovesCaptures(ply, entry->moveList, pos);
                entry->cursor = entry->moveList;
                entry->captureEnd = entry->moveListEnd;
                entry->moveStage = entry->inCheck ? STAGE_EVASIONS : STAGE_GOOD_CAPTURES;
                break;

            case STAGE_GOOD_CAPTURES: {
                moveStruct* m = pickBestOrder(entry->cursor, entry->captureEnd);
                if (!m) {
                    entry->moveStage = STAGE_CAPTURES_DONE;
                    break;
                }
                entry->cursor++;
                if (sameMove(*m, entry->hashMove)) break;
                if (m->kind == KIND_ENPASSANT) return *m;
                if (seeValue[pos->board[m->to]] - seeValue[pos->board[m->from]] >= 0) return *m;
                if (staticExchange(pos, *m) >= 0) return *m;
                m->order = BAD_CAPTURE_ORDER;  // comes back after the killers and the counter move
                break;
            }

            case STAGE_CAPTURES_DONE:
                entry->moveStage = STAGE_KILLER1;
                entry->flag = 0;
                if (!sameMove(entry->killer1, entry->hashMove) && isUsableQuiet(pos, ply, entry->killer1)) {
                    entry->flag |= HANDED_OUT_KILLER1;
                    return entry->killer1;
                }
                break;

            case STAGE_KILLER1:
                entry->moveStage = STAGE_KILLER2;
                if (!sameMove(entry->killer2, entry->hashMove) && isUsableQuiet(pos, ply, entry->killer2)) {
                    entry->flag |= HANDED_OUT_KILLER2;
                    return entry->killer2;
                }
                break;

            case STAGE_KILLER2: {
                entry->moveStage = STAGE_COUNTER_MOVE;
                const plyStateStruct* previous = ply >= 1 ? &pos->plyState[ply - 1] : nullptr;
                if (!previous || previous->currentMove.from == previous->currentMove.to) break;
                entry->counterMove = pos->search->counterMoves[entry->movedPiece][previous->currentMove.to];
                moveStruct counter = entry->counterMove;
                if (!sameMove(counter, entry->hashMove) && !sameMove(counter, entry->killer1) &&
                    !sameMove(counter, entry->killer2) && isUsableQuiet(pos, ply, counter)) {
                    entry->flag |= HANDED_OUT_COUNTER;
                    return counter;
                }
                break;
            }

            case STAGE_COUNTER_MOVE:
                entry->moveStage = STAGE_BAD_CAPTURES;
                entry->cursor = entry->moveList;
                break;

            case STAGE_BAD_CAPTURES:
                while (entry->cursor < entry->captureEnd) {
                    moveStruct* m = entry->cursor++;
                    if (m->order == BAD_CAPTURE_ORDER) return *m;
                }
                entry->moveStage = STAGE_GENERATE_QUIETS;
                break;

            case STAGE_GENERATE_QUIETS: {
                entry->moveStage = STAGE_QUIETS;
                generateMovesQuiets(ply, entry->captureEnd, pos);
                moveStruct* end = entry->moveListEnd;
                int32_t* scores = pos->search->quietScores;
                const moveStruct* base = pos->search->moveBuffer;
                // Only moves already handed out are removed: a killer skipped because another
                // piece now stands on its square must not take the real move with it.
                const moveStruct killer1 = (entry->flag & HANDED_OUT_KILLER1) ? entry->killer1 : EMPTYMOVE;
                const moveStruct killer2 = (entry->flag & HANDED_OUT_KILLER2) ? entry->killer2 : EMPTYMOVE;
                const moveStruct counter = (entry->flag & HANDED_OUT_COUNTER) ? entry->counterMove : EMPTYMOVE;
                // Score every quiet move once and sort them by score, highest first (stable, so
                // equal scores keep the generation order).
                moveStruct* first = entry->captureEnd;
                for (moveStruct* m = first; m < end;) {
                    if (sameMove(*m, entry->hashMove) || sameMove(*m, killer1) || sameMove(*m, killer2) ||
                        sameMove(*m, counter)) {
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
                entry->moveListEnd = end;
                pos->plyState[ply + 1].moveList = end;
                entry->cursor = first;
                break;
            }

            case STAGE_QUIETS:
                if (entry->cursor >= entry->moveListEnd) return EMPTYMOVE;
                return *entry->cursor++;

            case STAGE_EVASIONS: {
                moveStruct* m = pickBestOrder(entry->cursor, entry->captureEnd);
                if (!m) return EMPTYMOVE;
                entry->cursor++;
                if (sameMove(*m, entry->hashMove)) break;
                return *m;
            }

            default: return EMPTYMOVE;
        }
    }
}
