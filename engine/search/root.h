// Root search reports: the "info" lines printed after iterations and at the end of a search.
#pragma once

#include <cstdint>
#include <string>

#include "engine/board/position.h"
#include "engine/search/engine.h"

// "info score cp S depth D seldepth SD nodes N nps P time T tbhits H pv ..." as one line.
std::string infoScoreLine(int score, int depth, int selDepth, uint64_t nodes, uint64_t tbHits, int64_t timeMs,
                          const std::string& pv);
// Milliseconds since the search started, at least 1.
int64_t searchElapsedMs(const engineStruct& limits);
// One whole iterative-deepening search of the thread's position (pos->search holds the
// thread's tables and its view of the shared control record; pos->workerId is its index, 0 for
// the main thread, which also reports).
void searchRoot(positionStruct* pos);
// Recomputes the thread's principal variation from the hash table, starting with its best move,
// and sets its ponder move.
void collectPrincipalVariation(positionStruct* pos);

// The aspiration window of one iteration and the failures so far.
struct aspirationWindow {
    int alpha = 0, beta = 0;
    int failLow = 0, failHigh = 0;
    int reduction = 0;  // plies taken off the iteration's depth after fail-highs
};
constexpr int FULL_WINDOW_BELOW_DEPTH = 6;

// The first window of an iteration: the full range below FULL_WINDOW_BELOW_DEPTH, else the
// previous score +- widths[0]. widths: the thread's five half-widths (initial, then after the
// 1st .. 4th failure in one direction).
aspirationWindow openWindow(int depth, int previousScore, const int16_t* widths);
// After a fail low: beta moves to the middle of the window, alpha to the score less the next
// width (or to a mated score after the fifth failure), and the depth is whole again.
void widenAfterFailLow(aspirationWindow& w, int score, const int16_t* widths);
// After a fail high: beta to the score plus the next width (or a mate score after the fifth
// failure), and the re-search is one ply shallower than the last.
void widenAfterFailHigh(aspirationWindow& w, int score, const int16_t* widths);
