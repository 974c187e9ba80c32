// The alpha-beta node procedure: draws, hash cut-offs, tablebases, the pruning front (reverse
// futility, razoring, null move, ProbCut, internal iterative deepening), the staged move loop
// with extensions, late-move pruning and reductions, and the history bookkeeping.
#include "engine/movegen/check.h"
#include "engine/movegen/legal.h"
#include "engine/movegen/makemove.h"
#include "engine/search/nodeutil.h"
#include "engine/search/picker.h"
#include "engine/search/search.h"
#include "engine/search/searchdata.h"
#include "engine/search/see.h"
#include "engine/search/tablebase.h"
#include "engine/search/tables.h"
#include "engine/search/tt.h"

namespace {

constexpr int PROBCUT_MARGIN = 110;
constexpr int PROBCUT_DEPTH = 5;
constexpr int NULL_MOVE_DEPTH = 4;
constexpr int IID_DEPTH = 4;
constexpr int IID_MARGIN = 100;
constexpr int RFP_DEPTH = 6;
constexpr int RAZOR_DEPTH = 4;
constexpr int LMP_DEPTH = 7;
constexpr int SINGULAR_DEPTH = 6;
constexpr int CONTINUATION_EXTENSION_HISTORY = 4096;
constexpr int HISTORY_UPDATE_DEPTH = 18;
constexpr int MAX_QUIETS_TRACKED = 64;

inline bool isMateScore(int score) { return score > MATE_THRESHOLD || score < -MATE_THRESHOLD; }

inline short toShort(int v) { return static_cast<short>(v); }

// Searches a child with the given window, dropping into quiescence at depth 0.
inline int searchChild(int ply, int depth, int alpha, int beta, positionStruct* pos) {
    if (depth <= 0) return -quiescence(static_cast<unsigned char>(ply + 1), 0, toShort(-beta), toShort(-alpha), pos);
    return -alfabeta(static_cast<unsigned char>(ply + 1), depth, toShort(-beta), toShort(-alpha), pos);
}

// Gravity update: moves h toward +-8192 by bonus.
inline void raiseHistory(int16_t& h, int bonus) { h = static_cast<int16_t>(h + bonus - (bonus * h) / HISTORY_MAX); }
inline void lowerHistory(int16_t& h, int bonus) { h = static_cast<int16_t>(h - bonus - (bonus * h) / HISTORY_MAX); }

// Continuation-history cells of a move keyed by the moves one and two plies back; null when
// that ply made no real move.
struct continuationCells {
    int16_t* counter;
    int16_t* followUp;
};

inline continuationCells continuationOf(positionStruct* pos, int ply, int piece, int to) {
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

// Null move: the side to move passes. Returns the saved key for the undo.
inline uint64_t makeNullMove(positionStruct* pos, int ply) {
    plyStateStruct* entry = &pos->plyState[ply];
    uint64_t savedKey = pos->hashKey;
    pos->hashKey ^= hashCodeBlackToMove;
    if (entry->enPassantSquare) pos->hashKey ^= hashCodeEnpassant[entry->enPassantSquare & 7];
    pos->sideToMove ^= 1;
    entry->currentMove = EMPTYMOVE;
    plyStateStruct* next = entry + 1;
    next->castlingRights = entry->castlingRights;
    next->enPassantSquare = 0;  // the en-passant chance is gone, as its key is
    next->capturedPiece = 0;
    next->movedPiece = 0;
    next->inCheck = 0;
    return savedKey;
}

inline void unmakeNullMove(positionStruct* pos, uint64_t savedKey) {
    pos->hashKey = savedKey;
    pos->sideToMove ^= 1;
}

// ProbCut move source: the captures of the node whose exchange gain reaches threshold, best
// ordering byte first; EMPTYMOVE when none is left.
moveStruct doNextMoveProbCut(int ply, moveStruct*& cursor, positionStruct* pos, int threshold) {
    plyStateStruct* entry = &pos->plyState[ply];
    while (cursor < entry->moveListEnd) {
        moveStruct* best = cursor;
        for (moveStruct* m = cursor + 1; m < entry->moveListEnd; m++)
            if (m->order > best->order) best = m;
        moveStruct chosen = *best;
        *best = *cursor;
        *cursor++ = chosen;
        if (chosen.kind == KIND_ENPASSANT ? threshold <= seeValue[WHITE_PAWN] : exchangeAtLeast(pos, chosen, threshold))
            return chosen;
    }
    return EMPTYMOVE;
}

// Step 17 bookkeeping: a quiet move caused a cut-off.
void rewardQuietCutoff(positionStruct* pos, int ply, int depth, moveStruct move, const moveStruct* quiets,
                       int quietCount) {
    searchDataStruct* data = pos->search;
    plyStateStruct* entry = &pos->plyState[ply];
    if (depth <= HISTORY_UPDATE_DEPTH) {
        int bonus = (depth * depth < 324 ? depth * depth : 324) * 32;
        int piece = pos->board[move.from];
        continuationCells cells = continuationOf(pos, ply, piece, move.to);
        if (cells.counter) raiseHistory(*cells.counter, bonus);
        if (cells.followUp) raiseHistory(*cells.followUp, bonus);
        raiseHistory(data->history[piece][move.to], bonus);
        if (ply >= 1) {
            const moveStruct previous = pos->plyState[ply - 1].currentMove;
            if (previous.from != previous.to) {
                moveStruct counter = move;
                counter.order = static_cast<uint8_t>(piece);
                data->counterMoves[entry->movedPiece][previous.to] = counter;
            }
        }
        for (int i = 0; i < quietCount; i++) {
            int quietPiece = pos->board[quiets[i].from];
            continuationCells quietCells = continuationOf(pos, ply, quietPiece, quiets[i].to);
            if (quietCells.counter) lowerHistory(*quietCells.counter, bonus);
            if (quietCells.followUp) lowerHistory(*quietCells.followUp, bonus);
            lowerHistory(data->history[quietPiece][quiets[i].to], bonus);
        }
    }
    if (!sameMove(move, entry->killer1)) {
        entry->killer2 = entry->killer1;
        entry->killer1 = move;
        entry->killer1.order = pos->board[move.from];
    }
}

}  // namespace

void checkSearchLimits(positionStruct* pos) {
    searchDataStruct* data = pos->search;
    searchControlStruct* control = data->control;
    const engineStruct& limits = *control->limits;
    const uint64_t own = pos->nodeCount + pos->qNodeCount;
    data->progress.nodes.store(own, std::memory_order_relaxed);
    data->progress.tbHits.store(pos->tbHits, std::memory_order_relaxed);
    if (limits.nodes && control->totalNodes(pos->workerId, own) >= limits.nodes) {
        control->stop();
        return;
    }
    if (limits.infinite.load(std::memory_order_relaxed) || control->pondering() || limits.noTimeLimit) return;
    if (nowMs() - limits.startTime >= limits.hardTime) control->stop();
}

int alfabeta(unsigned char ply, int depth, short alphaIn, short betaIn, positionStruct* pos) {
    int alpha = alphaIn, beta = betaIn;
    plyStateStruct* entry = &pos->plyState[ply];

    // Step 1. Count the node.
    pos->nodeCount++;
    if (ply > pos->selDepth) pos->selDepth = ply;

    // Step 2. Look at the clock every checkInterval nodes.
    if (--pos->timeCheckCounter < 0) {
        pos->timeCheckCounter = pos->search->control->limits->checkInterval;
        checkSearchLimits(pos);
    }
    if (searchStopped(pos)) return 0;

    // Step 3. Draws and mate distance (never at the root).
    if (ply > 0) {
        if (isRepetition(pos)) return 0;
        if (isInsufficientMaterial(pos)) return 0;
        if (ply - 31999 > alpha) alpha = ply - SCORE_MATE;
        if (32001 - ply < beta) beta = 32001 - ply;
        if (alpha >= beta) return alpha;
        if (ply > SEARCH_PLY_LIMIT) return evaluateN(ply, pos);
    }

    // Children searched before this node generates anything (null move, hash move) start
    // their lists where this node's list starts.
    pos->plyState[ply + 1].moveList = entry->moveList;

    const int alphaOriginal = alpha;
    const bool pvNode = beta > alpha + 1;
    const bool inCheck = entry->inCheck != 0;
    entry->hashMove = EMPTYMOVE;

    // Step 4. Transposition table.
    hashEntryStruct hashed = {EMPTYMOVE, 0, 0, BOUND_NONE};
    bool hit = probeHash(pos->hashKey, ply, &hashed);
    if (hit) {
        if (!pvNode && ply > 0 && hashed.depth >= depth &&
            ((hashed.bound != BOUND_UPPER && hashed.score >= beta) ||
             (hashed.bound != BOUND_LOWER && hashed.score <= alpha) || hashed.bound == BOUND_EXACT) &&
            hashed.bound != BOUND_NONE)
            return hashed.score;
        if (hashed.bound != BOUND_NONE) entry->hashMove = hashed.move;
    }
    if (!hit) hashed.bound = BOUND_NONE;

    // Step 5. Endgame tablebases, right after a capture or pawn move.
    if (ply > 0 && tablebaseLargest > 0 && pos->halfMoveClock == 0 && entry->castlingRights == 0) {
        int pieces = popCount(occupancy(pos));
        if (pieces < tablebaseLargest ||
            (pieces == tablebaseLargest &&
             depth >= pos->search->control->limits->syzygyProbeDepth.load(std::memory_order_relaxed))) {
            int wdl = syzygyProbeWDL(ply, pos);
            if (wdl >= 0) {
                pos->tbHits++;
                if (wdl == 4) {
                    int value = TB_WIN_SCORE - ply;
                    if (beta <= value) {
                        storeHash(pos->hashKey, ply, EMPTYMOVE, value, 127, BOUND_LOWER);
                        return value;
                    }
                } else if (wdl == 0) {
                    int value = ply - TB_WIN_SCORE;
                    if (alpha >= value) {
                        storeHash(pos->hashKey, ply, EMPTYMOVE, value, 127, BOUND_UPPER);
                        return value;
                    }
                } else {
                    // Cursed wins and blessed losses are draws to the search, deliberately.
                    storeHash(pos->hashKey, ply, EMPTYMOVE, 0, 127, BOUND_EXACT);
                    return 0;
                }
            }
        }
    }

    // Step 6. Static evaluation and the pruning value.
    int eval = -SCORE_INFINITY;
    int pruneValue = -SCORE_INFINITY;
    bool improving = true;
    if (inCheck) {
        entry->staticEval = -SCORE_INFINITY;
    } else {
        eval = evaluateN(ply, pos);
        entry->staticEval = static_cast<int16_t>(eval);
        pruneValue = eval;
        if (hit && (hashed.bound == BOUND_EXACT || (hashed.bound == BOUND_LOWER && hashed.score > eval) ||
                    (hashed.bound == BOUND_UPPER && hashed.score < eval)))
            pruneValue = hashed.score;
        // Step 7. Improving: the static evaluation rose since this side's previous move.
        improving = ply <= 1 || pos->plyState[ply - 2].staticEval <= eval;

        // Step 8. Reverse futility pruning.
        if (!pvNode && depth <= RFP_DEPTH && !isMateScore(pruneValue) && pruneValue >= beta + futility[depth] &&
            hasNonPawnMaterial(pos))
            return pruneValue;

        if (!pvNode && depth < RAZOR_DEPTH) {
            // Step 9. Razoring; shallow nodes then go straight to the move loop.
            if (alpha > pruneValue + razor[improving][depth]) {
                int v = quiescence(ply, 0, toShort(alpha), toShort(beta), pos);
                if (alpha > v) return v;
            }
        } else {
            // Step 10. Null move.
            if (!pvNode && depth >= NULL_MOVE_DEPTH && (ply < 2 || !isEmptyMove(pos->plyState[ply - 2].currentMove)) &&
                pruneValue >= beta && hasNonPawnMaterial(pos)) {
                int margin = (pruneValue - beta) / 90;
                int reduction = depth / 4 + 3 + (margin < 3 ? margin : 3);
                uint64_t savedKey = makeNullMove(pos, ply);
                int score = searchChild(ply, depth - reduction, beta - 1, beta, pos);
                unmakeNullMove(pos, savedKey);
                if (searchStopped(pos)) return 0;
                if (score >= beta) return score < 31873 ? score : beta;  // a null-move mate is not trusted
            }

            // Step 11. ProbCut: a good capture that beats beta by a margin in a reduced search.
            int rbeta = beta + PROBCUT_MARGIN;
            if (!pvNode && depth >= PROBCUT_DEPTH && !isMateScore(pruneValue) && rbeta < MATE_THRESHOLD) {
                generateMovesCaptures(ply, entry->moveList, pos);
                moveStruct* cursor = entry->moveList;
                moveStruct move;
                checkInfoStruct checkInfo;
                computeCheckInfo(pos, &checkInfo);
                while (!isEmptyMove(move = doNextMoveProbCut(ply, cursor, pos, rbeta - eval))) {
                    if (!isLegalNotInCheck(pos, ply, move)) continue;
                    const bool checking = moveGivesCheck(pos, checkInfo, move);
                    move.order = pos->board[move.from];
                    entry->currentMove = move;
                    makeMove(pos, ply, move);
                    pos->plyState[ply + 1].inCheck = checking ? 1 : 0;
                    int score = -quiescence(ply + 1, 0, toShort(-rbeta), toShort(-rbeta + 1), pos);
                    if (score >= rbeta) score = searchChild(ply, depth - 3, rbeta - 1, rbeta, pos);
                    unmakeMove(pos, ply, move);
                    if (searchStopped(pos)) return 0;
                    if (score >= rbeta) return score;
                }
            }

            // Step 12. Internal iterative deepening when there is no hash move.
            if (isEmptyMove(entry->hashMove) && depth >= IID_DEPTH && (pvNode || pruneValue >= beta - IID_MARGIN)) {
                alfabeta(ply, depth - 2, toShort(alpha), toShort(beta), pos);
                if (searchStopped(pos)) return 0;
                entry->staticEval = static_cast<int16_t>(eval);
                if (probeHash(pos->hashKey, ply, &hashed)) {
                    hit = true;
                    if (hashed.bound != BOUND_NONE) entry->hashMove = hashed.move;
                }
            }
        }
    }

    // Step 13. Singular extension set-up for the hash move.
    bool trySingular = ply > 0 && depth > SINGULAR_DEPTH && hit && !isEmptyMove(entry->hashMove) &&
                       hashed.depth >= depth - 3 && hashed.bound != BOUND_UPPER && hashed.bound != BOUND_NONE &&
                       !isMateScore(hashed.score);

    // Step 14. The move loop.
    initMovePicker(pos, ply);
    int best = -SCORE_INFINITY;
    moveStruct bestMove = EMPTYMOVE;
    int moveCount = 0;
    moveStruct quiets[MAX_QUIETS_TRACKED];
    int quietCount = 0;
    searchDataStruct* data = pos->search;
    moveStruct move;
    checkInfoStruct checkInfo;
    bool checkInfoReady = false;
    while (!isEmptyMove(move = nextMove(pos, ply))) {
        const uint8_t stage = entry->moveStage;
        if (!checkInfoReady) {
            computeCheckInfo(pos, &checkInfo);
            checkInfoReady = true;
        }
        const bool checking = moveGivesCheck(pos, checkInfo, move);

        // Late-move pruning of quiet moves, killers and the counter move.
        if (ply > 0 && !pvNode && depth <= LMP_DEPTH && !inCheck && !checking && stage >= STAGE_KILLER1 &&
            stage != STAGE_BAD_CAPTURES && moveCount >= LMP[improving][depth])
            continue;

        bool legal =
            inCheck ? (stage == STAGE_EVASIONS || isLegalInCheck(pos, move)) : isLegalNotInCheck(pos, ply, move);
        if (!legal) continue;

        prefetchBucket(keyAfterMove(pos, ply, move));
        const int piece = pos->board[move.from];
        const int captured = move.kind == KIND_ENPASSANT ? WHITE_PAWN + (pos->sideToMove ^ 1) : pos->board[move.to];
        move.order = static_cast<uint8_t>(piece);

        // Singular extension: every other move must fail well below the hash score.
        bool singular = false;
        if (trySingular && stage == STAGE_GENERATE_CAPTURES && sameMove(move, entry->hashMove)) {
            int singularBeta = hashed.score - 2 * depth;
            int verifyDepth = depth / 2 - 1;
            int singularBest = -SCORE_MATE;
            moveStruct savedHash = entry->hashMove;
            entry->hashMove = EMPTYMOVE;
            entry->moveStage = STAGE_GENERATE_CAPTURES;
            moveStruct other;
            while (!isEmptyMove(other = nextMove(pos, ply))) {
                if (sameMove(other, savedHash)) continue;
                bool otherLegal = inCheck ? (entry->moveStage == STAGE_EVASIONS || isLegalInCheck(pos, other))
                                          : isLegalNotInCheck(pos, ply, other);
                if (!otherLegal) continue;
                const bool otherChecks = moveGivesCheck(pos, checkInfo, other);
                other.order = pos->board[other.from];
                entry->currentMove = other;
                makeMove(pos, ply, other);
                pos->plyState[ply + 1].inCheck = otherChecks ? 1 : 0;
                int score = searchChild(ply, verifyDepth, singularBeta, singularBeta + 1, pos);
                unmakeMove(pos, ply, other);
                if (searchStopped(pos)) return 0;
                if (score > singularBest) singularBest = score;
                if (singularBest > singularBeta) break;
            }
            singular = singularBest <= singularBeta;
            entry->hashMove = savedHash;
            entry->moveStage = STAGE_GENERATE_CAPTURES;  // the main loop goes on after the hash move
        }

        // Extensions: singular hash move, checks that do not lose material, strong continuations.
        int newDepth = depth - 1;
        if (singular || (checking && (move.kind != KIND_NORMAL || seeValue[captured] - seeValue[piece] >= 0 ||
                                      staticExchange(pos, move) >= 0)))
            newDepth = depth;
        continuationCells cells = {nullptr, nullptr};
        const bool quiet = !captured && !isPromotion(move.kind);
        if (quiet) cells = continuationOf(pos, ply, piece, move.to);
        if (quiet && !checking && !inCheck && newDepth < depth && cells.counter && cells.followUp &&
            *cells.counter > CONTINUATION_EXTENSION_HISTORY && *cells.followUp > CONTINUATION_EXTENSION_HISTORY)
            newDepth = depth;

        entry->currentMove = move;
        makeMove(pos, ply, move);
        pos->plyState[ply + 1].inCheck = checking ? 1 : 0;

        int score;
        if (moveCount == 0) {
            score = searchChild(ply, newDepth, alpha, beta, pos);
        } else {
            int reduction = 0;
            if (depth > 2 && !captured) {
                reduction = LMR[depth < 127 ? depth : 127][moveCount < 255 ? moveCount : 255];
                if (!improving) reduction++;
                if (data->history[piece][move.to] < 0 && cells.counter && *cells.counter < 0 && cells.followUp &&
                    *cells.followUp < 0)
                    reduction++;
                if (pvNode && reduction > 0) reduction--;
                if (typeOf(piece) == PAWN) {
                    int rank = move.to >> 3;
                    if (rank == 1 || rank == 6) reduction--;
                    if ((stage == STAGE_KILLER1 || stage == STAGE_KILLER2) &&
                        !(attackByPawnTable[piece & 1][move.to] & pos->bitboards[WHITE_PAWN + ((piece & 1) ^ 1)]))
                        reduction--;
                }
                if (reduction < 0) reduction = 0;
            }
            score = searchChild(ply, newDepth - reduction, alpha, alpha + 1, pos);
            if (reduction > 0 && score > alpha) score = searchChild(ply, newDepth, alpha, alpha + 1, pos);
            if (score > alpha && score < beta) score = searchChild(ply, newDepth, alpha, beta, pos);
        }
        unmakeMove(pos, ply, move);
        if (searchStopped(pos)) return 0;
        moveCount++;

        if (score > best) {
            best = score;
            if (score > alpha) {
                alpha = score;
                bestMove = move;
                if (ply == 0) {
                    if (!sameMove(move, pos->rootBestMove)) pos->bestMoveChanges++;
                    pos->rootBestMove = move;
                }
                if (score >= beta) {
                    // Step 16. Cut-off.
                    storeHash(pos->hashKey, ply, move, score, depth, BOUND_LOWER);
                    if (!inCheck && !captured) rewardQuietCutoff(pos, ply, depth, move, quiets, quietCount);
                    return score;
                }
            }
        }
        if (quiet && quietCount < MAX_QUIETS_TRACKED) quiets[quietCount++] = move;
    }

    // Step 15. No legal move, fifty-move rule, store.
    if (moveCount == 0 && best == -SCORE_INFINITY) return inCheck ? ply - SCORE_MATE : 0;
    if (pos->halfMoveClock > 99) return 0;
    if (best > alphaOriginal)
        storeHash(pos->hashKey, ply, bestMove, best, depth, BOUND_EXACT);
    else
        storeHash(pos->hashKey, ply, entry->hashMove, best, depth, BOUND_UPPER);
    return best;
}
