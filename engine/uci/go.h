// The "go" command: its arguments and the time allocation for one move.
#pragma once

#include <cstdint>
#include <sstream>

// Computes softTime, hardTime and timeScale from the limits in `engine` for side s.
void allocateTime(int side);
// Waits for a running search to end (stopping one that would wait for "stop" forever).
void finishPreviousSearch();
// Reads the "go" arguments from the stream, allocates time and starts the search.
void goCommand(std::istringstream& words);
// The two halves of "go" around its arguments: the defaults of every limit (the search clock
// starts at startTime), then the checks of the limits read, the time allocation and the start.
void resetSearchLimits(int64_t startTime);
void launchSearch(bool clockGiven, bool limitGiven, bool ponder);
// Parses a decimal integer; false (value untouched) when the word is not one. Values beyond
// the type's range are clamped.
bool parseInt(const std::string& word, int* value);
bool parseUint64(const std::string& word, unsigned long long* value);
