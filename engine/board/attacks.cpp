// Builds the constant attack tables, including the start-up search for slider magics.
#include "engine/board/attacks.h"

#include "engine/board/position.h"

bitboard knightAttackTable[64];
bitboard kingAttackTable[64];
bitboard attackByPawnTable[2][64];
bitboard enpassantTable[64];
bitboard bishopAttackAll[64];
bitboard rookAttackAll[64];
bitboard ranksAtOrAbove[2][64];
bitboard passedPawnsMask[2][64];
bitboard inBetweenSquares[64][64];
magicStruct bishopAttackLUT[64];
magicStruct rookAttackLUT[64];
bitboard bishopAttackTable[BISHOP_TABLE_SIZE];
bitboard rookAttackTable[ROOK_TABLE_SIZE];

namespace {

const int bishopDirections[4][2] = {{1, 1}, {1, -1}, {-1, 1}, {-1, -1}};
const int rookDirections[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};

bool onBoard(int file, int rank) { return file >= 0 && file < 8 && rank >= 0 && rank < 8; }

// Sum of the single steps (file, rank offsets) from square that stay on the board.
bitboard stepAttacks(int square, const int steps[][2], int count) {
    bitboard result = 0;
    for (int i = 0; i < count; i++) {
        int file = (square & 7) + steps[i][0];
        int rank = (square >> 3) + steps[i][1];
        if (onBoard(file, rank)) result |= squareBit(file + 8 * rank);
    }
    return result;
}

// Slider attacks found by walking each ray up to and including the first occupied square.
bitboard rayAttacks(int square, bitboard occupied, const int directions[4][2]) {
    bitboard result = 0;
    for (int d = 0; d < 4; d++) {
        int file = (square & 7) + directions[d][0];
        int rank = (square >> 3) + directions[d][1];
        while (onBoard(file, rank)) {
            result |= squareBit(file + 8 * rank);
            if (occupied & squareBit(file + 8 * rank)) break;
            file += directions[d][0];
            rank += directions[d][1];
        }
    }
    return result;
}

// The rays without their last square: the occupancy bits that can change the attack set.
bitboard relevantMask(int square, const int directions[4][2]) {
    bitboard result = 0;
    for (int d = 0; d < 4; d++) {
        int file = (square & 7) + directions[d][0];
        int rank = (square >> 3) + directions[d][1];
        while (onBoard(file + directions[d][0], rank + directions[d][1])) {
            result |= squareBit(file + 8 * rank);
            file += directions[d][0];
            rank += directions[d][1];
        }
    }
    return result;
}

// Fixed generator for the magic candidates, so that every run and every platform finds the
// same magics: xorshift64*, restarted for every square from a start value of this table. The
// start values were picked once by tools/find_magic_seeds.cpp so that the search below needs
// only a few attempts per square, which keeps start-up fast on small machines.
// clang-format off
const uint32_t magicSeeds[2][64] = {
    {169, 2, 35, 1, 5, 1, 39, 245, 141, 71, 14, 1, 17, 13, 1, 2, 14, 9, 32, 323, 3, 646, 68, 51, 12, 19, 97, 4085, 74, 300, 44, 41, 194, 8, 111, 852, 1182, 304, 58, 457, 1, 5, 76, 294, 33, 12, 53, 35, 39, 6, 99, 21, 25, 49, 31, 2, 245, 2, 2, 2, 27, 19, 141, 169},
    {2377, 959, 3892, 2813, 533, 842, 89, 2973, 403, 907, 212, 233, 1262, 627, 128, 581, 749, 838, 412, 443, 4781, 3079, 128, 923, 412, 557, 216, 2221, 29, 7362, 52, 145, 76, 183, 142, 209, 1262, 3038, 965, 581, 388, 851, 212, 443, 3503, 4120, 918, 16, 76, 249, 130, 1568, 377, 627, 1286, 95, 1676, 334, 1302, 4188, 1986, 134, 997, 2526}
};
// clang-format on
uint64_t magicRandomState = 0;
uint32_t nextMagicRandom() {
    magicRandomState ^= magicRandomState >> 12;
    magicRandomState ^= magicRandomState << 25;
    magicRandomState ^= magicRandomState >> 27;
    return static_cast<uint32_t>((magicRandomState * 0x2545F4914F6CDD1DULL) >> 32);
}

// A candidate with exactly nine set bits.
bitboard sparseCandidate() {
    bitboard magic = 0;
    int bits = 0;
    while (bits < 9) {
        bitboard bit = squareBit(nextMagicRandom() & 63);
        if (magic & bit) continue;
        magic |= bit;
        bits++;
    }
    return magic;
}

// Searches the magics of one slider kind, square by square, packing the blocks into table.
void findMagics(magicStruct* lut, bitboard* table, const int directions[4][2], const uint32_t* seeds) {
    static bitboard occupancies[4096];
    static bitboard attackSets[4096];
    static uint32_t attemptAt[4096];
    uint32_t attempt = 0;  // never reset, so attemptAt needs no clearing between squares
    for (int i = 0; i < 4096; i++) attemptAt[i] = 0;

    lut[0].attacks = table;
    for (int square = 0; square < 64; square++) {
        magicStruct& m = lut[square];
        m.spare = nullptr;
        m.mask = relevantMask(square, directions);
        m.shift = 64 - popCount(m.mask);
        int size = 1 << (64 - m.shift);
        if (square < 63) lut[square + 1].attacks = m.attacks + size;

        int count = 0;
        bitboard subset = 0;
        do {
            occupancies[count] = subset;
            attackSets[count] = rayAttacks(square, subset, directions);
            count++;
            subset = (subset - m.mask) & m.mask;
        } while (subset);

        magicRandomState = seeds[square] * 0x9E3779B97F4A7C15ULL;
        for (;;) {
            attempt++;
            m.magic = sparseCandidate();
            bool failed = false;
            for (int i = 0; i < count && !failed; i++) {
                uint32_t index = static_cast<uint32_t>((occupancies[i] * m.magic) >> m.shift);
                if (attemptAt[index] < attempt) {
                    attemptAt[index] = attempt;
                    m.attacks[index] = attackSets[i];
                } else if (m.attacks[index] != attackSets[i]) {
                    failed = true;
                }
            }
            if (!failed) break;
        }
    }
}

void initLeaperAndPawnTables() {
    const int knightSteps[8][2] = {{1, 2}, {2, 1}, {2, -1}, {1, -2}, {-1, -2}, {-2, -1}, {-2, 1}, {-1, 2}};
    const int kingSteps[8][2] = {{1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}};
    const int whitePawnSteps[2][2] = {{-1, 1}, {1, 1}};
    const int blackPawnSteps[2][2] = {{-1, -1}, {1, -1}};
    for (int sq = 0; sq < 64; sq++) {
        knightAttackTable[sq] = stepAttacks(sq, knightSteps, 8);
        kingAttackTable[sq] = stepAttacks(sq, kingSteps, 8);
        attackByPawnTable[0][sq] = stepAttacks(sq, whitePawnSteps, 2);
        attackByPawnTable[1][sq] = stepAttacks(sq, blackPawnSteps, 2);
        bishopAttackAll[sq] = rayAttacks(sq, 0, bishopDirections);
        rookAttackAll[sq] = rayAttacks(sq, 0, rookDirections);

        int rank = sq >> 3, file = sq & 7;
        enpassantTable[sq] = 0;
        if (rank == 3 || rank == 4) {
            if (file > 0) enpassantTable[sq] |= squareBit(sq - 1);
            if (file < 7) enpassantTable[sq] |= squareBit(sq + 1);
        }

        ranksAtOrAbove[0][sq] = ~0ULL << (8 * rank);
        ranksAtOrAbove[1][sq] = ~0ULL >> (8 * (7 - rank));

        bitboard files = FILE_A << file;
        if (file > 0) files |= FILE_A << (file - 1);
        if (file < 7) files |= FILE_A << (file + 1);
        passedPawnsMask[0][sq] = rank < 7 ? files & (~0ULL << (8 * (rank + 1))) : 0;
        passedPawnsMask[1][sq] = rank > 0 ? files & (~0ULL >> (8 * (8 - rank))) : 0;
    }
    // A pawn on the last rank has nothing in front of it from either side's view.
    for (int sq = 56; sq < 64; sq++) passedPawnsMask[0][sq] = passedPawnsMask[1][sq] = 0;
}

void initInBetweenSquares() {
    for (int a = 0; a < 64; a++) {
        for (int b = 0; b < 64; b++) {
            bitboard between = 0;
            if (bishopAttackAll[a] & squareBit(b))
                between = bishopAttacks(a, squareBit(b)) & bishopAttacks(b, squareBit(a));
            else if (rookAttackAll[a] & squareBit(b))
                between = rookAttacks(a, squareBit(b)) & rookAttacks(b, squareBit(a));
            inBetweenSquares[a][b] = between;
        }
    }
}

}  // namespace

void initAttackTables() {
    initLeaperAndPawnTables();
    findMagics(bishopAttackLUT, bishopAttackTable, bishopDirections, magicSeeds[0]);
    findMagics(rookAttackLUT, rookAttackTable, rookDirections, magicSeeds[1]);
    initInBetweenSquares();
}
