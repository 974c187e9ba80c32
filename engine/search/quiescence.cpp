// Quiescence search: stand pat, captures that do not lose material, evasions in check, and
// recaptures only in deep quiescence. Fail-soft; reads the hash table, never writes it.
#include "engine/movegen/check.h"
#include "engine/movegen/legal.h"
#include "engine/movegen/makemove.h"
#include "engine/search/nodeutil.h"
#include "engine/search/search.h"
#include "engine/search/see.h"
#include "engine/search/tables.h"
#include "engine/search/tt.h"

namespace {

constexpr int QS_FULL_GENERATION_DEPTH = -4;  // below this only recaptures are searched
constexpr int QS_CHECK_HORIZON = -13;         // below this a check is no longer answered by evasions
constexpr int LOSING_EVASION_PENALTY = 100;

// A capture that does not lose material by the exchange on its square.
inline bool passesExchangeTest(const positionStruct* pos, moveStruct move) {
    if (move.kind == KIND_ENPASSANT || move.kind >= KIND_CASTLE_KING) return true;
    if (seeValue[pos->board[move.to]] - seeValue[pos->board[move.from]] >= 0) return true;
    return staticExchange(pos, move) >= 0;
}

}  // namespace

int quiescence(unsigned char ply, int qdepth, short alphaIn, short betaIn, positionStruct* pos) {
    int alpha = alphaIn, beta = betaIn;
    pos->qNodeCount++;

    // Step 1. Draw by insufficient material, mate-distance pruning, the ply horizon.
    if (isInsufficientMaterial(pos)) return 0;
    if (clampToMateDistance(ply, alpha, beta)) return alpha;
    if (ply > SEARCH_PLY_LIMIT) return evaluateN(ply, pos);

    plyStateStruct* entry = &pos->plyState[ply];

    // Step 2. Hash table: any stored depth is deep enough here.
    hashEntryStruct hashed = {EMPTYMOVE, 0, 0, BOUND_NONE};
    bool hit = probeHash(pos->hashKey, ply, &hashed) && hashed.bound != BOUND_NONE;
    if (hit) {
        if ((hashed.score >= beta && hashed.bound != BOUND_UPPER) ||
            (hashed.score <= alpha && hashed.bound != BOUND_LOWER) || hashed.bound == BOUND_EXACT)
            return hashed.score;
    }

    // Step 3. Deep quiescence stops treating a check as a check (deliberate horizon).
    bool verifyLegality = false;
    if (qdepth < QS_CHECK_HORIZON && entry->inCheck) {
        entry->inCheck = 0;
        verifyLegality = true;
    }

    // Step 4. Stand pat.
    int best;
    if (entry->inCheck) {
        best = ply - SCORE_MATE;
    } else {
        best = evaluateN(ply, pos);
        if (hit && ((hashed.bound == BOUND_LOWER && hashed.score > best) ||
                    (hashed.bound == BOUND_UPPER && hashed.score < best)))
            best = hashed.score;
        if (best >= beta) return best;
        if (best > alpha) alpha = best;
    }

    // Step 5. Moves.
    if (qdepth >= QS_FULL_GENERATION_DEPTH)
        generateMovesQuiescence(ply, entry->moveList, pos);
    else
        generateMovesRecapture(ply, entry->moveList, pos);
    moveStruct* cursor = entry->moveList;
    moveStruct* end = entry->moveListEnd;
    const bool inCheck = entry->inCheck != 0;
    const bool exchangeFilter = !inCheck && qdepth >= QS_FULL_GENERATION_DEPTH;

    if (inCheck) {
        // Evasions that lose material go behind the others.
        for (moveStruct* m = cursor; m < end; m++) {
            int piece = pos->board[m->from];
            if (typeOf(piece) == KING || m->kind != KIND_NORMAL) continue;
            if (seeValue[pos->board[m->to]] - seeValue[piece] >= 0) continue;
            if (staticExchange(pos, *m) < 0) m->order = static_cast<uint8_t>(m->order - LOSING_EVASION_PENALTY);
        }
    }

    bool first = true;
    checkInfoStruct checkInfo;
    bool checkInfoReady = false;
    for (; cursor < end; cursor++) {
        selectBestByOrder(cursor, end);
        moveStruct move = *cursor;
        if (exchangeFilter && !passesExchangeTest(pos, move)) {
            // Losing captures are never searched here, deliberately; drop it and pick again.
            *cursor-- = *--end;
            continue;
        }
        if (!inCheck && !verifyLegality && !isLegalNotInCheck(pos, ply, move)) continue;
        if (verifyLegality && !isLegalInCheck(pos, move)) continue;

        prefetchBucket(keyAfterMove(pos, ply, move));
        if (!checkInfoReady) {
            computeCheckInfo(pos, &checkInfo);
            checkInfoReady = true;
        }
        const bool checking = moveGivesCheck(pos, checkInfo, move);
        move.order = pos->board[move.from];
        playMove(pos, ply, move, checking);
        int score;
        if (first) {
            score = -quiescence(ply + 1, qdepth - 1, static_cast<short>(-beta), static_cast<short>(-alpha), pos);
            first = false;
        } else {
            score = -quiescence(ply + 1, qdepth - 1, static_cast<short>(-alpha - 1), static_cast<short>(-alpha), pos);
            if (score > alpha && score < beta)
                score = -quiescence(ply + 1, qdepth - 1, static_cast<short>(-beta), static_cast<short>(-alpha), pos);
        }
        unmakeMove(pos, ply, move);

        if (score > best) {
            best = score;
            if (score > alpha) {
                if (score >= beta) break;
                alpha = score;
            }
        }
    }
    return best;
}
