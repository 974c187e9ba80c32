// Chess rules over the prober's compact position record: attacks, move generation, move
// making, material keys and signatures. Private to fathom/.
#pragma once

#include <cstdint>

#include "fathom/tbprobe.h"

constexpr int TB_MAX_MOVES = 256;

// Prober moves: to-square bits 0-5, from-square bits 6-11, promotion bits 12-14
// (0 none, 1 queen, 2 rook, 3 bishop, 4 knight).
inline int move_to(uint16_t m) { return m & 63; }
inline int move_from(uint16_t m) { return (m >> 6) & 63; }
inline int move_promotes(uint16_t m) { return (m >> 12) & 7; }
inline uint16_t make_move(int from, int to, int promotes) {
    return uint16_t(to | from << 6 | promotes << 12);
}

inline int popcount(uint64_t b) { return __builtin_popcountll(b); }
inline int lsb(uint64_t b) { return __builtin_ctzll(b); }
inline int pop_lsb(uint64_t& b) {
    int s = lsb(b);
    b &= b - 1;
    return s;
}

// Pieces of one colour (0 White, 1 Black) and type (TB_PAWN..TB_KING).
uint64_t get_pieces(const pos* p, int colour, int type);
// Material key of the position; mirror swaps the colours.
uint64_t calc_key(const pos* p, bool mirror);
// Material signature such as "KQvK" (White first, or Black first with mirror); str needs 16 bytes.
void prt_str(const pos* p, char* str, bool mirror);

// True when the side to move is in check.
bool in_check(const pos* p);
// Pseudo-legal moves of the side to move: all of them, captures other than en passant
// (promotions included), or en-passant captures only. Each returns the count.
int gen_moves(const pos* p, uint16_t* moves);
int gen_captures(const pos* p, uint16_t* moves);
int gen_ep(const pos* p, uint16_t* moves);
// Legal moves only.
int gen_legal(const pos* p, uint16_t* moves);
// Plays a pseudo-legal move of p into *out; returns whether it was legal.
bool do_move(pos* out, const pos* p, uint16_t move);

bool is_ep_move(const pos* p, uint16_t move);
bool is_capture(const pos* p, uint16_t move);  // en passant included
bool is_pawn_move(const pos* p, uint16_t move);
// Side to move is checkmated.
bool is_mate(const pos* p);
// Consistent bitboards, one king each, no pawn on the first or last rank, and legal.
bool valid_pos(const pos* p);
