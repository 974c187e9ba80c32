// Root search reports: the "info" lines printed after iterations and at the end of a search.
#pragma once

#include <cstdint>
#include <string>

#include "engine/board/position.h"

// "info score cp S depth D seldepth SD nodes N nps P time T tbhits H pv ..." as one line.
std::string infoScoreLine(int score, int depth, int selDepth, uint64_t nodes, uint64_t tbHits, int64_t timeMs,
                          const std::string& pv);
// Milliseconds since the search started, at least 1.
int64_t searchElapsedMs();
// Recomputes the thread's principal variation from the hash table, starting with its best move,
// and sets its ponder move.
void collectPrincipalVariation(positionStruct* pos);
