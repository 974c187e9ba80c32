// Random legal positions of a given material, for the tests and the WDL benchmark.
#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "fathom/tbprobe.h"

namespace tbtest {

// Puts the piece of a letter such as 'N' or 'n' (either case) on sq for the given side.
inline void put_piece(pos& p, char letter, bool black, int sq) {
    const uint64_t b = uint64_t(1) << sq;
    (black ? p.black : p.white) |= b;
    uint64_t* sets[6] = {&p.pawns, &p.knights, &p.bishops, &p.rooks, &p.queens, &p.kings};
    *sets[std::string("pnbrqk").find(char(letter | 0x20))] |= b;
}

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
            put_piece(p, c, black, sq);
        }
        if (is_legal(&p)) return p;
    }
}

}  // namespace tbtest
