// The steady clock in milliseconds, for every time decision of the search and the front end.
#pragma once

#include <chrono>
#include <cstdint>

inline int64_t nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
