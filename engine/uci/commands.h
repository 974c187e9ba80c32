// The UCI command loop: one line in, the replies out.
#pragma once

#include <string>

// Builds the tables, sets the start position and starts the search threads.
void initEngine();
// Executes one command line; false when the engine is to quit.
bool executeCommand(const std::string& line);
// Stops any search, frees the table and ends the search threads.
void shutdownEngine();
// Applies "position" arguments to the game position (exposed for tests and the fuzzer).
void positionCommand(std::istringstream& words);
