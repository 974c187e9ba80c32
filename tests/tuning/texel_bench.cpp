// Speed of the Texel tuner's hot loop: one calcTexelError over a labelled data set, reported
// as positions per second in all and per thread. Usage: texel_bench [file.epd] [repeats]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "tests/testutil.h"
#include "tuning/texel.h"

namespace {

template <typename Work>
double bestSeconds(int repeats, Work work) {
    double best = 1e30;
    for (int r = 0; r < repeats; r++) {
        auto start = std::chrono::steady_clock::now();
        work();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

}  // namespace

int main(int argc, char** argv) {
    std::string file = argc > 1 ? argv[1] : std::string(VORIX_SHARED_DIR) + "/texel/lichess-good.epd";
    int repeats = argc > 2 ? std::max(1, std::atoi(argv[2])) : 10;
    initTables();
    if (readTexelPos(file.c_str()) != 0) return 1;
    double n = static_cast<double>(texelPositions.size());
    int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    int busy = std::min(cores, NOF_TEXEL_WORKERS);

    theTexelWorkForce.setNofWorkers(NOF_TEXEL_WORKERS);
    theTexelWorkForce.shareOutPositions();
    double error = theTexelWorkForce.calcTexelError();  // warms the caches and the threads
    double pooled = bestSeconds(repeats, [] { theTexelWorkForce.calcTexelError(); });

    // The same work on the calling thread alone: the per-thread speed without any sharing.
    texelWorker alone(0);
    alone.positions = texelPositions;
    double single = bestSeconds(repeats, [&alone] { alone.calcTexelPosSubset(); });

    std::printf("positions          %.0f (%s), error %.9g\n", n, file.c_str(), error);
    std::printf("calcTexelError     %.2f ms on %d threads, %d cores (best of %d)\n", pooled * 1e3, NOF_TEXEL_WORKERS,
                cores, repeats);
    std::printf("all threads        %.0f positions/s\n", n / pooled);
    std::printf("per busy thread    %.0f positions/s (over %d threads that can run at once)\n", n / pooled / busy,
                busy);
    std::printf("one thread alone   %.0f positions/s (%.0f ns per position)\n", n / single, single * 1e9 / n);
    theTexelWorkForce.setNofWorkers(0);
    return 0;
}
