// Random legal positions of a given material, for the tests and the WDL benchmark.
#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "fathom/tbprobe.h"

namespace tbtest {

// A random legal position of a material such as "KRvKP" (the first side is White).
inline pos random_position(const std::string& material, bool white_to_move, std::mt19937_64& rng) {
    for (;;) {
        pos p{};
        p.turn = white_to_move;
        bool black = false;
        for (char c : material) {
            if (c == 'v') {
                black = true;
                continue;
            }
            int sq;
            do sq = int(rng() % 64);
            while ((((p.white | p.black) >> sq) & 1) || (c == 'P' && (sq < 8 || sq >= 56)));
            const uint64_t b = uint64_t(1) << sq;
            (black ? p.black : p.white) |= b;
            switch (c) {
                case 'P': p.pawns |= b; break;
                case 'N': p.knights |= b; break;
                case 'B': p.bishops |= b; break;
                case 'R': p.rooks |= b; break;
                case 'Q': p.queens |= b; break;
                default: p.kings |= b; break;
            }
        }
        if (is_legal(&p)) return p;
    }
}

}  // namespace tbtest
