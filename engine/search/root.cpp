// Iterative deepening with aspiration windows around the root node, the time decisions between
// iterations, and the search reports of the main thread.
#include "engine/search/root.h"

#include <cmath>
#include <cstdio>
#include <iostream>
#include <sstream>

#include "engine/movegen/legal.h"
#include "engine/search/engine.h"
#include "engine/search/search.h"
#include "engine/search/tablebase.h"
#include "engine/search/tt.h"
#include "engine/util/output.h"

namespace {

// Aspiration half-widths by thread index mod 16: the initial width, then the widths after the
// 1st .. 4th failure in one direction.
const int16_t aspMatrix[16][5] = {
    {15, 35, 40, 80, 160},  {15, 20, 40, 80, 160},  {11, 19, 31, 49, 76},   {15, 35, 40, 80, 160},
    {50, 40, 80, 160, 320}, {15, 35, 40, 80, 160},  {29, 32, 68, 124, 200}, {15, 35, 40, 80, 160},
    {15, 35, 40, 80, 160},  {29, 32, 68, 124, 200}, {15, 35, 40, 80, 160},  {15, 35, 40, 80, 160},
    {15, 20, 40, 80, 160},  {11, 19, 31, 49, 76},   {50, 40, 80, 160, 320}, {35, 27, 58, 139, 200},
};

// Helper threads skip depths so that they spread over the iterations.
const int skipSize[16] = {1, 2, 2, 3, 3, 3, 4, 4, 6, 3, 2, 2, 4, 5, 3, 2};
const int skipPhase[16] = {0, 1, 0, 1, 1, 0, 0, 2, 1, 0, 1, 1, 2, 1, 1, 0};

constexpr int REPORT_FROM_DEPTH = 10;
constexpr int MAX_DEPTH = 127;

bool isMateWithin(int score, int depth) {
    return (score >= TB_WIN_SCORE && SCORE_MATE - score <= depth) ||
           (score < -MATE_THRESHOLD && score + (SCORE_MATE - 1) < depth);
}

// Moves to mate for a mate score, negative when being mated.
int mateInMoves(int score) {
    int n = (SCORE_MATE - (score < 0 ? -score : score)) / 2 + 1;
    return score < 0 ? -n : n;
}

void clampWindow(aspirationWindow& w) {
    if (w.alpha < -SCORE_INFINITY) w.alpha = -SCORE_INFINITY;
    if (w.beta > SCORE_INFINITY) w.beta = SCORE_INFINITY;
}

}  // namespace

aspirationWindow openWindow(int depth, int previousScore, const int16_t* widths) {
    aspirationWindow w;
    w.alpha = -SCORE_INFINITY;
    w.beta = SCORE_INFINITY;
    if (depth >= FULL_WINDOW_BELOW_DEPTH) {
        w.alpha = previousScore - widths[0];
        w.beta = previousScore + widths[0];
        clampWindow(w);
    }
    return w;
}

void widenAfterFailLow(aspirationWindow& w, int score, const int16_t* widths) {
    w.failLow++;
    w.beta = (w.alpha + w.beta) / 2;
    w.alpha = w.failLow > 4 ? -SCORE_MATE : score - widths[w.failLow];
    w.reduction = 0;
    clampWindow(w);
}

void widenAfterFailHigh(aspirationWindow& w, int score, const int16_t* widths) {
    w.failHigh++;
    w.reduction++;
    w.beta = w.failHigh >= 5 ? SCORE_MATE : score + widths[w.failHigh];
    clampWindow(w);
}

int64_t searchElapsedMs(const engineStruct& limits) {
    int64_t elapsed = nowMs() - limits.startTime;
    return elapsed < 1 ? 1 : elapsed;
}

std::string infoScoreLine(int score, int depth, int selDepth, uint64_t nodes, uint64_t tbHits, int64_t timeMs,
                          const std::string& pv) {
    std::ostringstream line;
    line << "info score cp " << score << " depth " << depth << " seldepth " << selDepth << " nodes " << nodes << " nps "
         << nodes * 1000 / static_cast<uint64_t>(timeMs) << " time " << timeMs << " tbhits " << tbHits << " pv " << pv;
    return line.str();
}

void collectPrincipalVariation(positionStruct* pos) {
    getPVFromHashTable(pos, pos->completedDepth > 0 ? pos->completedDepth : 1, pos->bestMove);
    pos->pvHasPonder = pos->pvLength >= 2;
    pos->ponderMove = pos->pvHasPonder ? pos->pv[1] : EMPTYMOVE;
}

namespace {

// The first root move the search may play ("go searchmoves" may leave out the first legal one).
moveStruct firstSearchedMove(const positionStruct* pos, const engineStruct& limits) {
    for (const moveStruct* m = pos->plyState[0].moveList; m < pos->plyState[0].moveListEnd; m++)
        if (isSearchMoveAllowed(limits.searchMoves, *m)) return *m;
    return pos->plyState[0].moveList[0];
}

// Steps 1 to 3: the root moves and the starting state; a root without legal moves and a
// tablebase root are answered at once. True when the search is over before it started.
bool prepareRoot(positionStruct* pos, bool mainThread) {
    pos->timeCheckCounter = pos->search->control->limits->checkInterval;
    pos->plyState[0].killer1 = pos->plyState[0].killer2 = EMPTYMOVE;
    generateMovesLegal(0, pos->plyState[0].moveList, pos);
    const int rootMoves = moveCount(pos, 0);
    const engineStruct& limits = *pos->search->control->limits;
    pos->iterationDone = 1;
    pos->completedDepth = 0;
    pos->rootScore = -SCORE_INFINITY;
    pos->bestMove = rootMoves > 0 ? firstSearchedMove(pos, limits) : EMPTYMOVE;
    pos->bestMove.order = pos->board[pos->bestMove.from];
    pos->ponderMove = EMPTYMOVE;
    pos->pvHasPonder = 0;
    pos->pv[0] = pos->bestMove;
    pos->pvLength = rootMoves > 0 ? 1 : 0;
    pos->rootBestMove = EMPTYMOVE;
    pos->search->progress.depth.store(0, std::memory_order_relaxed);

    // No legal move: mated or stalemate.
    if (rootMoves == 0) {
        if (mainThread) say((pos->plyState[0].inCheck ? "info score mate 0" : "info score cp 0"));
        pos->bestMove = EMPTYMOVE;
        return true;
    }

    // A tablebase position is answered from the DTZ tables.
    if (mainThread && tablebaseLargest > 0 && pos->plyState[0].castlingRights == 0 &&
        popCount(occupancy(pos)) <= tablebaseLargest) {
        moveStruct tbMove = syzygyProbeDTZ(pos, limits.searchMoves);
        if (!isEmptyMove(tbMove)) {
            pos->bestMove = tbMove;
            pos->completedDepth = TB_DEPTH;
            pos->iterationDone = 1;
            pos->pvHasPonder = 0;
            pos->pv[0] = tbMove;
            pos->pvLength = 1;
            pos->search->control->stop();
            return true;
        }
    }
    return false;
}

// Step 4 for a helper thread: its next depth, spread over the iterations by its skip table,
// and whether to skip it because enough other threads are already searching that deep.
bool helperSkipsIteration(int index, int& depth, const searchControlStruct* control) {
    const int threads = control->threadCount();
    const int needed = threads > 3 ? threads / 2 + 1 : threads / 2;
    if ((index % 16 + depth) % skipSize[index % 16] == 0) depth += skipPhase[index % 16];
    if (depth > MAX_DEPTH) depth = MAX_DEPTH;
    if (depth < REPORT_FROM_DEPTH) return false;
    int ahead = 0;
    for (int t = 0; t < threads; t++)
        if (t != index && control->progress[t]->depth.load(std::memory_order_relaxed) >= depth) ahead++;
    return ahead >= needed;
}

// Step 5: one iteration through aspiration windows. A completed iteration stores its score,
// depth and best move; a stopped one leaves the previous iteration's result.
void searchIteration(positionStruct* pos, int depth, const int16_t* widths, bool mainThread, double stability) {
    searchControlStruct* control = pos->search->control;
    const engineStruct& limits = *control->limits;
    aspirationWindow window = openWindow(depth, pos->rootScore, widths);
    for (;;) {
        int searchDepthNow = depth - window.reduction < 1 ? 1 : depth - window.reduction;
        int score = alfabeta(0, searchDepthNow, static_cast<short>(window.alpha), static_cast<short>(window.beta), pos);
        if (searchStopped(pos)) return;
        if (score <= window.alpha) {
            widenAfterFailLow(window, score, widths);
        } else if (score >= window.beta) {
            widenAfterFailHigh(window, score, widths);
            // A fail high past the soft time ends the search: the new best move is good enough.
            if (mainThread && window.failLow == 0 && !limits.infinite.load(std::memory_order_relaxed) &&
                !control->pondering() && !limits.noTimeLimit && searchElapsedMs(limits) > limits.softTime * stability)
                control->stop();
        } else {
            pos->rootScore = static_cast<int16_t>(score);
            pos->completedDepth = static_cast<int16_t>(depth);
            pos->iterationDone = 1;
            if (!isEmptyMove(pos->rootBestMove)) pos->bestMove = pos->rootBestMove;
            return;
        }
    }
}

// Step 6 for the main thread: the "info score cp" line from depth 10 on and, for a mate within
// the depth, the "info score mate" line (without seldepth), with totals over all threads.
void reportIteration(positionStruct* pos, int depth, uint64_t ownNodes) {
    const searchControlStruct* control = pos->search->control;
    uint64_t nodes = control->totalNodes(pos->workerId, ownNodes);
    uint64_t tbHits = control->totalTbHits(pos->workerId, pos->tbHits);
    int64_t elapsed = searchElapsedMs(*control->limits);
    int score = pos->rootScore;
    std::string pv = PVToString(pos);
    if (depth >= REPORT_FROM_DEPTH) say(infoScoreLine(score, depth, pos->selDepth, nodes, tbHits, elapsed, pv));
    if (isMateWithin(score, depth)) {
        say("info score mate ", mateInMoves(score), " depth ", depth, " nodes ", nodes, " nps ",
            nodes * 1000 / static_cast<uint64_t>(elapsed), " time ", elapsed, " tbhits ", tbHits, " pv ", pv);
    }
}

// Step 7: the time factor from the best-move changes of the iteration just searched.
double updatedStability(double stability, int changes) {
    if (changes < 2)
        stability *= 0.9;
    else
        stability = changes * 0.2 + (stability > 1.0 ? stability * 0.8 : 1.0);
    if (stability < 0.6) stability = 0.6;
    if (stability > 2.0) stability = 2.0;
    return stability;
}

// Step 8: whether the main thread ends the search after this iteration: a depth or mate limit
// reached, or the soft time used up (which, while pondering, only marks the boss finished).
bool mainThreadStops(positionStruct* pos, int depth, double stability) {
    searchControlStruct* control = pos->search->control;
    const engineStruct& limits = *control->limits;
    if (limits.depth > 0 && depth >= limits.depth) return true;
    if (limits.mate > 0 && pos->rootScore > MATE_THRESHOLD && isMateWithin(pos->rootScore, depth) &&
        mateInMoves(pos->rootScore) <= limits.mate)
        return true;
    if (!limits.infinite.load(std::memory_order_relaxed) && !limits.noTimeLimit &&
        searchElapsedMs(limits) * limits.timeScale > limits.softTime * stability) {
        control->bossFinished.store(true, std::memory_order_relaxed);
        if (!control->pondering()) return true;
    }
    return false;
}

}  // namespace

void searchRoot(positionStruct* pos) {
    searchDataStruct* data = pos->search;
    const int index = pos->workerId;
    const bool mainThread = index == 0;
    if (prepareRoot(pos, mainThread)) return;

    const int16_t* widths = aspMatrix[index % 16];
    double stability = 1.0;
    for (int depth = 1; depth <= MAX_DEPTH; depth++) {
        if (mainThread || !helperSkipsIteration(index, depth, data->control)) {
            data->progress.depth.store(depth, std::memory_order_relaxed);
            pos->bestMoveChanges = 0;
            pos->plyState[1].killer1 = pos->plyState[1].killer2 = EMPTYMOVE;
            pos->plyState[1].staticEval = 0;
            searchIteration(pos, depth, widths, mainThread, stability);

            const uint64_t ownNodes = pos->nodeCount + pos->qNodeCount;
            data->progress.nodes.store(ownNodes, std::memory_order_relaxed);
            data->progress.tbHits.store(pos->tbHits, std::memory_order_relaxed);
            // Every thread keeps the line of its completed iteration while the table still
            // holds it; the main thread reports it.
            if (pos->completedDepth == depth && !searchStopped(pos)) {
                collectPrincipalVariation(pos);
                if (mainThread) reportIteration(pos, depth, ownNodes);
            }
        }
        if (searchStopped(pos)) break;
        if (!mainThread) continue;
        if (depth >= FULL_WINDOW_BELOW_DEPTH) stability = updatedStability(stability, pos->bestMoveChanges);
        if (mainThreadStops(pos, depth, stability)) break;
    }
}
