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
// A null-move search that returns a tablebase win or a mate proves only that passing wins; the
// node then reports beta instead.
constexpr int NULL_MOVE_TRUST_LIMIT = TB_WIN_SCORE + 1;

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
        moveStruct chosen = *selectBestByOrder(cursor, entry->moveListEnd);
        cursor++;
        if (chosen.kind == KIND_ENPASSANT ? threshold <= seeValue[WHITE_PAWN] : exchangeAtLeast(pos, chosen, threshold))
            return chosen;
    }
    return EMPTYMOVE;
}

// Step 15 bookkeeping: a quiet move caused a cut-off.
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

// Steps 1 to 3 of a node: count it, look at the clock every checkInterval nodes, and below the
// root return at once on a repetition, insufficient material, a window closed by the mate
// distance, or the ply horizon. True with *value when the node is decided; alpha and beta come
// back narrowed by the mate distance.
bool isDecidedOnEntry(int ply, int& alpha, int& beta, positionStruct* pos, int* value) {
    pos->nodeCount++;
    if (ply > pos->selDepth) pos->selDepth = ply;
    if (--pos->timeCheckCounter < 0) {
        pos->timeCheckCounter = pos->search->control->limits->checkInterval;
        checkSearchLimits(pos);
    }
    *value = 0;
    if (searchStopped(pos)) return true;
    if (ply == 0) return false;
    if (isRepetition(pos) || isInsufficientMaterial(pos)) return true;
    if (clampToMateDistance(ply, alpha, beta)) {
        *value = alpha;
        return true;
    }
    if (ply > SEARCH_PLY_LIMIT) {
        *value = evaluateN(ply, pos);
        return true;
    }
    return false;
}

// Step 4: whether a hash entry decides a non-PV node below the root: deep enough, and its bound
// puts the score outside the window (an exact score always does).
bool hashEntryCuts(int ply, int depth, int alpha, int beta, bool pvNode, const hashEntryStruct& hashed) {
    return !pvNode && ply > 0 && hashed.depth >= depth &&
           ((hashed.bound != BOUND_UPPER && hashed.score >= beta) ||
            (hashed.bound != BOUND_LOWER && hashed.score <= alpha) || hashed.bound == BOUND_EXACT) &&
           hashed.bound != BOUND_NONE;
}

// Late-move pruning: at a shallow non-PV node not in check, quiet moves, killers and the counter
// move that give no check are skipped once enough moves were searched.
bool isPrunedLate(int ply, int depth, bool pvNode, bool inCheck, bool checking, int stage, int moveCount,
                  bool improving) {
    return ply > 0 && !pvNode && depth <= LMP_DEPTH && !inCheck && !checking && stage >= STAGE_KILLER1 &&
           stage != STAGE_BAD_CAPTURES && moveCount >= LMP[improving][depth];
}

// The search of a move already made: the first move with the full window, later ones with a null
// window at the reduced depth, again at the full depth when the reduced search beats alpha, and
// with the full window when the score falls inside it.
int searchMoveMade(int ply, int newDepth, int reduction, bool first, int alpha, int beta, positionStruct* pos) {
    if (first) return searchChild(ply, newDepth, alpha, beta, pos);
    int score = searchChild(ply, newDepth - reduction, alpha, alpha + 1, pos);
    if (reduction > 0 && score > alpha) score = searchChild(ply, newDepth, alpha, alpha + 1, pos);
    if (score > alpha && score < beta) score = searchChild(ply, newDepth, alpha, beta, pos);
    return score;
}

// Step 5. Tablebases, probed right after a capture or pawn move (where the fifty-move count is
// zero and the tables' result holds) when the piece count allows. True with *value when the
// result decides the node.
bool probeTablebases(int ply, int depth, int alpha, int beta, positionStruct* pos, int* value) {
    const plyStateStruct* entry = &pos->plyState[ply];
    if (ply == 0 || tablebaseLargest == 0 || pos->halfMoveClock != 0 || entry->castlingRights != 0) return false;
    int pieces = popCount(occupancy(pos));
    if (pieces > tablebaseLargest ||
        (pieces == tablebaseLargest &&
         depth < pos->search->control->limits->syzygyProbeDepth.load(std::memory_order_relaxed)))
        return false;
    int wdl = syzygyProbeWDL(ply, pos);
    if (wdl < 0) return false;
    pos->tbHits++;
    if (wdl == 4) {
        *value = TB_WIN_SCORE - ply;
        if (beta > *value) return false;
        storeHash(pos->hashKey, ply, EMPTYMOVE, *value, TB_DEPTH, BOUND_LOWER);
        return true;
    }
    if (wdl == 0) {
        *value = ply - TB_WIN_SCORE;
        if (alpha < *value) return false;
        storeHash(pos->hashKey, ply, EMPTYMOVE, *value, TB_DEPTH, BOUND_UPPER);
        return true;
    }
    // Cursed wins and blessed losses are draws to the search, deliberately.
    *value = 0;
    storeHash(pos->hashKey, ply, EMPTYMOVE, 0, TB_DEPTH, BOUND_EXACT);
    return true;
}

// Step 10. Null move: when passing still holds beta in a reduced search, the node fails high.
// Not after a null move two plies up, nor without pieces (zugzwang in pawn endings). True with
// *value when the node is decided (0 when the search was stopped meanwhile).
bool nullMoveCuts(int ply, int depth, int beta, int pruneValue, positionStruct* pos, int* value) {
    if (depth < NULL_MOVE_DEPTH || (ply >= 2 && isEmptyMove(pos->plyState[ply - 2].currentMove)) || pruneValue < beta ||
        !hasNonPawnMaterial(pos))
        return false;
    int margin = (pruneValue - beta) / 90;
    int reduction = depth / 4 + 3 + (margin < 3 ? margin : 3);
    uint64_t savedKey = makeNullMove(pos, ply);
    int score = searchChild(ply, depth - reduction, beta - 1, beta, pos);
    unmakeNullMove(pos, savedKey);
    if (searchStopped(pos)) {
        *value = 0;
        return true;
    }
    if (score < beta) return false;
    *value = score < NULL_MOVE_TRUST_LIMIT ? score : beta;  // a null-move mate is not trusted
    return true;
}

// Step 11. ProbCut: a capture that beats beta by a margin in quiescence and then in a search
// three plies shallower fails the node high. True with *value as for nullMoveCuts.
bool probCutCuts(int ply, int depth, int beta, int eval, int pruneValue, positionStruct* pos, int* value) {
    const int rbeta = beta + PROBCUT_MARGIN;
    if (depth < PROBCUT_DEPTH || isMateScore(pruneValue) || rbeta >= MATE_THRESHOLD) return false;
    plyStateStruct* entry = &pos->plyState[ply];
    generateMovesCaptures(ply, entry->moveList, pos);
    moveStruct* cursor = entry->moveList;
    moveStruct move;
    checkInfoStruct checkInfo;
    computeCheckInfo(pos, &checkInfo);
    while (!isEmptyMove(move = doNextMoveProbCut(ply, cursor, pos, rbeta - eval))) {
        if (!isLegalNotInCheck(pos, ply, move)) continue;
        const bool checking = moveGivesCheck(pos, checkInfo, move);
        move.order = pos->board[move.from];
        playMove(pos, ply, move, checking);
        int score = -quiescence(ply + 1, 0, toShort(-rbeta), toShort(-rbeta + 1), pos);
        if (score >= rbeta) score = searchChild(ply, depth - 3, rbeta - 1, rbeta, pos);
        unmakeMove(pos, ply, move);
        if (searchStopped(pos)) {
            *value = 0;
            return true;
        }
        if (score >= rbeta) {
            *value = score;
            return true;
        }
    }
    return false;
}

// Step 12. Internal iterative deepening: without a hash move, a shallower search of this node
// finds one. Reloads the hash entry; false when the search was stopped meanwhile.
bool findHashMoveBySearch(int ply, int depth, int alpha, int beta, int eval, positionStruct* pos,
                          hashEntryStruct* hashed, bool* hit) {
    plyStateStruct* entry = &pos->plyState[ply];
    alfabeta(ply, depth - 2, toShort(alpha), toShort(beta), pos);
    if (searchStopped(pos)) return false;
    entry->staticEval = static_cast<int16_t>(eval);
    if (probeHash(pos->hashKey, ply, hashed)) {
        *hit = true;
        if (hashed->bound != BOUND_NONE) entry->hashMove = hashed->move;
    }
    return true;
}

// Steps 6 to 12 for a node not in check: the static evaluation, the pruning value (the hash
// score where its bound allows), improving, reverse futility, razoring, null move, ProbCut and
// internal iterative deepening (which may reload the hash entry). True with *value when the
// node is decided before its moves.
bool pruneBeforeMoves(int ply, int depth, int alpha, int beta, bool pvNode, hashEntryStruct* hashed, bool* hit,
                      bool* improving, positionStruct* pos, int* value) {
    plyStateStruct* entry = &pos->plyState[ply];
    const int eval = evaluateN(ply, pos);
    entry->staticEval = static_cast<int16_t>(eval);
    int pruneValue = eval;
    if (*hit && (hashed->bound == BOUND_EXACT || (hashed->bound == BOUND_LOWER && hashed->score > eval) ||
                 (hashed->bound == BOUND_UPPER && hashed->score < eval)))
        pruneValue = hashed->score;
    // Step 7. Improving: the static evaluation rose since this side's previous move.
    *improving = ply <= 1 || pos->plyState[ply - 2].staticEval <= eval;

    // Step 8. Reverse futility pruning.
    if (!pvNode && depth <= RFP_DEPTH && !isMateScore(pruneValue) && pruneValue >= beta + futility[depth] &&
        hasNonPawnMaterial(pos)) {
        *value = pruneValue;
        return true;
    }

    if (!pvNode && depth < RAZOR_DEPTH) {
        // Step 9. Razoring; shallow nodes then go straight to the move loop.
        if (alpha > pruneValue + razor[*improving][depth]) {
            int v = quiescence(ply, 0, toShort(alpha), toShort(beta), pos);
            if (alpha > v) {
                *value = v;
                return true;
            }
        }
        return false;
    }
    // Steps 10 and 11. Null move and ProbCut (not at PV nodes).
    if (!pvNode && nullMoveCuts(ply, depth, beta, pruneValue, pos, value)) return true;
    if (!pvNode && probCutCuts(ply, depth, beta, eval, pruneValue, pos, value)) return true;

    // Step 12. Internal iterative deepening when there is no hash move.
    if (isEmptyMove(entry->hashMove) && depth >= IID_DEPTH && (pvNode || pruneValue >= beta - IID_MARGIN) &&
        !findHashMoveBySearch(ply, depth, alpha, beta, eval, pos, hashed, hit)) {
        *value = 0;
        return true;
    }
    return false;
}

// Step 13. Singular test of the hash move: every other move searched at half depth with a
// null window just below the hash score must fail low. The picker is rewound so that the main
// loop goes on after the hash move. *stopped is set when the search was stopped meanwhile.
bool isSingularMove(int ply, int depth, const hashEntryStruct& hashed, bool inCheck, const checkInfoStruct& checkInfo,
                    positionStruct* pos, bool* stopped) {
    plyStateStruct* entry = &pos->plyState[ply];
    const int singularBeta = hashed.score - 2 * depth;
    const int verifyDepth = depth / 2 - 1;
    int singularBest = -SCORE_MATE;
    const moveStruct savedHash = entry->hashMove;
    entry->hashMove = EMPTYMOVE;
    entry->moveStage = STAGE_GENERATE_CAPTURES;
    moveStruct other;
    while (!isEmptyMove(other = nextMove(pos, ply))) {
        if (sameMove(other, savedHash)) continue;
        bool legal = inCheck ? (entry->moveStage == STAGE_EVASIONS || isLegalInCheck(pos, other))
                             : isLegalNotInCheck(pos, ply, other);
        if (!legal) continue;
        const bool checking = moveGivesCheck(pos, checkInfo, other);
        other.order = pos->board[other.from];
        playMove(pos, ply, other, checking);
        int score = searchChild(ply, verifyDepth, singularBeta, singularBeta + 1, pos);
        unmakeMove(pos, ply, other);
        if (searchStopped(pos)) {
            *stopped = true;
            return false;
        }
        if (score > singularBest) singularBest = score;
        if (singularBest > singularBeta) break;
    }
    entry->hashMove = savedHash;
    entry->moveStage = STAGE_GENERATE_CAPTURES;
    return singularBest <= singularBeta;
}

// The depth a move is searched to: one ply less, or the same depth for a singular hash move,
// a check that does not lose material, or a quiet move both continuation histories favour.
int childDepth(int depth, bool singular, bool checking, bool inCheck, bool quiet, moveStruct move, int piece,
               int captured, continuationCells cells, const positionStruct* pos) {
    if (singular || (checking && (move.kind != KIND_NORMAL || seeValue[captured] - seeValue[piece] >= 0 ||
                                  staticExchange(pos, move) >= 0)))
        return depth;
    if (quiet && !checking && !inCheck && cells.counter && cells.followUp &&
        *cells.counter > CONTINUATION_EXTENSION_HISTORY && *cells.followUp > CONTINUATION_EXTENSION_HISTORY)
        return depth;
    return depth - 1;
}

// Late-move reduction of a quiet move after the first: the table's value, one more when the
// position is not improving or the move's histories are all negative, one less at a PV node,
// for a pawn reaching the 2nd or 7th rank, and for a killer pawn move that no enemy pawn attacks.
int lateMoveReduction(int depth, int moveCount, bool improving, bool pvNode, int stage, moveStruct move, int piece,
                      continuationCells cells, const positionStruct* pos) {
    int reduction = LMR[depth < 127 ? depth : 127][moveCount < 255 ? moveCount : 255];
    if (!improving) reduction++;
    if (pos->search->history[piece][move.to] < 0 && cells.counter && *cells.counter < 0 && cells.followUp &&
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
    return reduction < 0 ? 0 : reduction;
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

    // Steps 1 to 3. Count the node, look at the clock, draws and mate distance.
    int decided;
    if (isDecidedOnEntry(ply, alpha, beta, pos, &decided)) return decided;

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
    if (hit && hashEntryCuts(ply, depth, alpha, beta, pvNode, hashed)) return hashed.score;
    if (hit && hashed.bound != BOUND_NONE) entry->hashMove = hashed.move;
    if (!hit) hashed.bound = BOUND_NONE;

    // Step 5. Endgame tablebases.
    if (probeTablebases(ply, depth, alpha, beta, pos, &decided)) return decided;

    // Steps 6 to 12. Static evaluation and the pruning front.
    bool improving = true;
    if (!inCheck && pruneBeforeMoves(ply, depth, alpha, beta, pvNode, &hashed, &hit, &improving, pos, &decided))
        return decided;
    if (inCheck) entry->staticEval = -SCORE_INFINITY;

    // Step 13. Whether the hash move is tested for being singular.
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
    moveStruct move;
    checkInfoStruct checkInfo;
    bool checkInfoReady = false;
    while (!isEmptyMove(move = nextMove(pos, ply))) {
        if (ply == 0 && !isSearchMoveAllowed(pos->search->control->limits->searchMoves, move)) continue;
        const uint8_t stage = entry->moveStage;
        if (!checkInfoReady) {
            computeCheckInfo(pos, &checkInfo);
            checkInfoReady = true;
        }
        const bool checking = moveGivesCheck(pos, checkInfo, move);

        if (isPrunedLate(ply, depth, pvNode, inCheck, checking, stage, moveCount, improving)) continue;
        bool legal =
            inCheck ? (stage == STAGE_EVASIONS || isLegalInCheck(pos, move)) : isLegalNotInCheck(pos, ply, move);
        if (!legal) continue;

        prefetchBucket(keyAfterMove(pos, ply, move));
        const int piece = pos->board[move.from];
        const int captured = move.kind == KIND_ENPASSANT ? WHITE_PAWN + (pos->sideToMove ^ 1) : pos->board[move.to];
        move.order = static_cast<uint8_t>(piece);

        bool singular = false;
        if (trySingular && stage == STAGE_GENERATE_CAPTURES && sameMove(move, entry->hashMove)) {
            bool stopped = false;
            singular = isSingularMove(ply, depth, hashed, inCheck, checkInfo, pos, &stopped);
            if (stopped) return 0;
        }

        // Extensions, then the search: the first move with the full window, later ones with a
        // null window, reduced when late and quiet, and searched again when they beat alpha.
        const bool quiet = !captured && !isPromotion(move.kind);
        const continuationCells cells = quiet ? continuationOf(pos, ply, piece, move.to) : continuationCells{};
        const int newDepth = childDepth(depth, singular, checking, inCheck, quiet, move, piece, captured, cells, pos);

        playMove(pos, ply, move, checking);
        const int reduction =
            moveCount > 0 && depth > 2 && !captured
                ? lateMoveReduction(depth, moveCount, improving, pvNode, stage, move, piece, cells, pos)
                : 0;
        const int score = searchMoveMade(ply, newDepth, reduction, moveCount == 0, alpha, beta, pos);
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
                    // Step 15. Cut-off: store, and reward a quiet move.
                    storeHash(pos->hashKey, ply, move, score, depth, BOUND_LOWER);
                    if (!inCheck && !captured) rewardQuietCutoff(pos, ply, depth, move, quiets, quietCount);
                    return score;
                }
            }
        }
        if (quiet && quietCount < MAX_QUIETS_TRACKED) quiets[quietCount++] = move;
    }

    // Step 16. No legal move (mate or stalemate), the fifty-move rule, then store.
    if (moveCount == 0 && best == -SCORE_INFINITY) return inCheck ? ply - SCORE_MATE : 0;
    if (pos->halfMoveClock > 99) return 0;
    if (best > alphaOriginal)
        storeHash(pos->hashKey, ply, bestMove, best, depth, BOUND_EXACT);
    else
        storeHash(pos->hashKey, ply, entry->hashMove, best, depth, BOUND_UPPER);
    return best;
}
