// Serialised line output.
#include "engine/util/output.h"

#include <cstdio>
#include <mutex>

namespace {
std::mutex outputMutex;
}

void sendLine(const std::string& text) {
    std::lock_guard<std::mutex> lock(outputMutex);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}
