// The deterministic bench: fixed positions searched to a fixed depth on one thread. Its total
// node count is the search's signature.
#pragma once

constexpr int BENCH_DEPTH = 12;
constexpr int BENCH_HASH_MB = 16;

// Runs the bench and writes "<nodes> nodes <nps> nps" as its last line; returns the node count.
unsigned long long runBench();
