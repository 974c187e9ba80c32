// WDL probe throughput on random legal 3- and 4-piece positions, with every table mapped
// before timing starts. Usage: fathom_bench [syzygy-dir] [seconds-per-size]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "fathom/tbprobe.h"
#include "tests/fathom/random_position.h"

int main(int argc, char** argv) {
    const std::string dir = argc > 1 ? argv[1] : VORIX_SYZYGY_DIR;
    const double seconds = argc > 2 ? std::atof(argv[2]) : 2.0;
    tb_init(dir.c_str());
    if (TB_LARGEST < 3) {
        std::fprintf(stderr, "no tables in %s\n", dir.c_str());
        return 1;
    }
    std::mt19937_64 rng(2024);
    for (int pieces = 3; pieces <= 4; pieces++) {
        std::vector<std::string> materials;
        for (const auto& f : std::filesystem::directory_iterator(dir)) {
            const std::string name = f.path().stem().string();
            if (f.path().extension() == ".rtbw" && name.size() == size_t(pieces) + 1) materials.push_back(name);
        }
        if (materials.empty()) continue;
        std::vector<pos> positions;
        for (int i = 0; i < 200000; i++)
            positions.push_back(tbtest::random_position(materials[i % materials.size()], rng() & 1, rng));
        int failed = 0, ok = 0;
        for (const pos& p : positions) {  // maps every table before timing
            probe_wdl(&p, &ok);
            failed += !ok;
        }
        uint64_t probes = 0;
        long checksum = 0;
        const auto start = std::chrono::steady_clock::now();
        double elapsed = 0;
        do {
            for (const pos& p : positions) checksum += probe_wdl(&p, &ok);
            probes += positions.size();
            elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        } while (elapsed < seconds);
        std::printf("%d-piece: %zu materials, %zu positions, %d failed; %.0f WDL probes/s (checksum %ld)\n", pieces,
                    materials.size(), positions.size(), failed, double(probes) / elapsed, checksum);
    }
    tb_free();
    return 0;
}
