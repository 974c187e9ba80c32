// Small constant tables of the search: pruning margins, move counts, reductions, exchange values.
#pragma once

#include <cstdint>

// Late-move reduction in plies by [depth][move number], filled by initLMR().
extern int8_t LMR[128][256];
void initLMR();

// Reverse futility margin by depth (65 per ply).
constexpr int futility[8] = {0, 65, 130, 195, 260, 325, 390, 455};
// Razoring margin by [improving][depth].
constexpr int razor[2][4] = {{0, 90, 140, 200}, {0, 120, 190, 240}};
// Late-move pruning move counts by [improving][depth].
constexpr int8_t LMP[2][8] = {{1, 2, 3, 5, 7, 10, 14, 19}, {2, 4, 6, 8, 11, 15, 20, 27}};
// Exchange values indexed directly by piece code (both colours share a value).
constexpr int16_t seeValue[14] = {0, 0, 90, 90, 325, 325, 325, 325, 499, 499, 1005, 1005, 10000, 10000};
