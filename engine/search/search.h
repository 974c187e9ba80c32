// The search: quiescence, the alpha-beta node procedure and their shared limits.
#pragma once

#include "engine/board/position.h"
#include "engine/search/searchdata.h"

// Quiescence search below the nominal depth (captures, evasions, recaptures deeper down).
int quiescence(unsigned char ply, int qdepth, short alpha, short beta, positionStruct* pos);
// The principal-variation alpha-beta node procedure.
int alfabeta(unsigned char ply, int depth, short alpha, short beta, positionStruct* pos);

// Called every checkInterval nodes: publishes the node counters and stops the search when the
// hard time or the node limit is reached.
void checkSearchLimits(positionStruct* pos);

// Whether the running search has been told to stop (by any thread or by the UCI thread).
inline bool searchStopped(const positionStruct* pos) { return pos->stopFlag->load(std::memory_order_relaxed); }
