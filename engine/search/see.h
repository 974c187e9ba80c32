// Static exchange evaluation: the material outcome of the capture sequence on one square.
#pragma once

#include "engine/board/position.h"

// Material gain of move for the side making it when both sides recapture on the target with
// their least valuable attacker while it pays (promotions are counted as pawn moves).
int staticExchange(const positionStruct* pos, moveStruct move);

// Whether the exchange started by move gains at least threshold, with the quick accept and
// reject tests on the first capture before the full evaluation.
bool exchangeAtLeast(const positionStruct* pos, moveStruct move, int threshold);
