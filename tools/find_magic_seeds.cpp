// Offline helper: finds, for every square and slider kind, a start value of the magic
// candidate generator with which the start-up magic search succeeds within a few attempts.
// Its output is the magicSeeds table in engine/board/attacks.cpp.
// Build: g++ -O2 -std=c++17 tools/find_magic_seeds.cpp -o find_magic_seeds
#include <cstdint>
#include <cstdio>
#include <vector>

namespace {

const int bishopDirections[4][2] = {{1, 1}, {1, -1}, {-1, 1}, {-1, -1}};
const int rookDirections[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
constexpr int MAX_ATTEMPTS = 24;

bool onBoard(int f, int r) { return f >= 0 && f < 8 && r >= 0 && r < 8; }

uint64_t rays(int sq, uint64_t occ, const int d[4][2], bool edges) {
    uint64_t result = 0;
    for (int i = 0; i < 4; i++) {
        int f = (sq & 7) + d[i][0], r = (sq >> 3) + d[i][1];
        while (onBoard(f, r) && (edges || onBoard(f + d[i][0], r + d[i][1]))) {
            result |= 1ULL << (f + 8 * r);
            if (edges && (occ >> (f + 8 * r) & 1)) break;
            f += d[i][0];
            r += d[i][1];
        }
    }
    return result;
}

uint64_t state;
uint32_t next() {
    state ^= state >> 12;
    state ^= state << 25;
    state ^= state >> 27;
    return static_cast<uint32_t>((state * 0x2545F4914F6CDD1DULL) >> 32);
}

bool found(int sq, const int d[4][2]) {
    uint64_t mask = rays(sq, 0, d, false);
    int bits = __builtin_popcountll(mask);
    std::vector<uint64_t> occ, att;
    uint64_t sub = 0;
    do {
        occ.push_back(sub);
        att.push_back(rays(sq, sub, d, true));
        sub = (sub - mask) & mask;
    } while (sub);
    std::vector<uint64_t> table(1u << bits);
    std::vector<int> stamp(1u << bits, 0);
    for (int attempt = 1; attempt <= MAX_ATTEMPTS; attempt++) {
        uint64_t magic = 0;
        int set = 0;
        while (set < 9) {
            uint64_t bit = 1ULL << (next() & 63);
            if (magic & bit) continue;
            magic |= bit;
            set++;
        }
        bool failed = false;
        for (size_t i = 0; i < occ.size() && !failed; i++) {
            uint32_t index = static_cast<uint32_t>((occ[i] * magic) >> (64 - bits));
            if (stamp[index] != attempt) {
                stamp[index] = attempt;
                table[index] = att[i];
            } else if (table[index] != att[i]) {
                failed = true;
            }
        }
        if (!failed) return true;
    }
    return false;
}

}  // namespace

int main() {
    const int(*kinds[2])[2] = {bishopDirections, rookDirections};
    for (int k = 0; k < 2; k++) {
        printf("    {");
        for (int sq = 0; sq < 64; sq++) {
            uint64_t seed = 1;
            for (;; seed++) {
                state = seed * 0x9E3779B97F4A7C15ULL;
                if (found(sq, kinds[k])) break;
            }
            printf("%s%llu", sq ? ", " : "", static_cast<unsigned long long>(seed));
        }
        printf("},\n");
    }
}
