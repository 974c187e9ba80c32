// The UCI command loop: one line in, the replies out.
#pragma once

#include <string>

// Executes one command line; false when the engine is to quit.
bool executeCommand(const std::string& line);
// Applies "position" arguments to the game position (exposed for tests and the fuzzer).
void positionCommand(std::istringstream& words);
