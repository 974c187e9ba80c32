// Chess rules over the prober's position record: attack tables, pseudo-legal and legal move
// generation, move making, material keys and signatures (see tbpos.h).
#include "fathom/tbpos.h"

#include "fathom/tbcore.h"

namespace {

struct AttackTables {
    uint64_t king[64];
    uint64_t knight[64];
    uint64_t pawn[2][64];  // squares attacked by a pawn of that colour (0 White)
    uint64_t ray[8][64];   // N, E, NE, NW (increasing squares), S, W, SW, SE
};

constexpr int RAY_DF[8] = {0, 1, 1, -1, 0, -1, -1, 1};
constexpr int RAY_DR[8] = {1, 0, 1, 1, -1, 0, -1, -1};

constexpr uint64_t bit_at(int f, int r) {
    return f >= 0 && f < 8 && r >= 0 && r < 8 ? uint64_t(1) << (8 * r + f) : 0;
}

constexpr AttackTables build_attacks() {
    AttackTables t{};
    constexpr int KN[8][2] = {{1, 2}, {2, 1}, {2, -1}, {1, -2}, {-1, -2}, {-2, -1}, {-2, 1}, {-1, 2}};
    for (int s = 0; s < 64; s++) {
        const int f = s & 7, r = s >> 3;
        for (int d = 0; d < 8; d++) {
            t.king[s] |= bit_at(f + RAY_DF[d], r + RAY_DR[d]);
            t.knight[s] |= bit_at(f + KN[d][0], r + KN[d][1]);
            for (int k = 1; k < 8; k++) t.ray[d][s] |= bit_at(f + k * RAY_DF[d], r + k * RAY_DR[d]);
        }
        t.pawn[0][s] = bit_at(f - 1, r + 1) | bit_at(f + 1, r + 1);
        t.pawn[1][s] = bit_at(f - 1, r - 1) | bit_at(f + 1, r - 1);
    }
    return t;
}

constexpr AttackTables ATT = build_attacks();

inline int msb(uint64_t b) { return 63 - __builtin_clzll(b); }

inline uint64_t ray_attacks(int d, int s, uint64_t occ) {
    uint64_t r = ATT.ray[d][s];
    const uint64_t blockers = r & occ;
    if (blockers) r ^= ATT.ray[d][d < 4 ? lsb(blockers) : msb(blockers)];
    return r;
}

inline uint64_t bishop_attacks(int s, uint64_t occ) {
    return ray_attacks(2, s, occ) | ray_attacks(3, s, occ) | ray_attacks(6, s, occ) | ray_attacks(7, s, occ);
}

inline uint64_t rook_attacks(int s, uint64_t occ) {
    return ray_attacks(0, s, occ) | ray_attacks(1, s, occ) | ray_attacks(4, s, occ) | ray_attacks(5, s, occ);
}

// Whether square s is attacked by the pieces of colour `by` (0 White).
bool attacked(const pos* p, int s, int by) {
    const uint64_t them = by ? p->black : p->white, occ = p->white | p->black;
    return (ATT.knight[s] & p->knights & them) || (ATT.king[s] & p->kings & them) ||
           (ATT.pawn[by ^ 1][s] & p->pawns & them) ||
           (bishop_attacks(s, occ) & (p->bishops | p->queens) & them) ||
           (rook_attacks(s, occ) & (p->rooks | p->queens) & them);
}

// En-passant target of the side to move when it is consistent with the board, else -1.
int ep_target(const pos* p) {
    const int ep = p->ep;
    if (ep == 0) return -1;
    const uint64_t occ = p->white | p->black;
    if (p->turn) {
        if (ep < 40 || ep > 47 || !(p->pawns & p->black & (uint64_t(1) << (ep - 8)))) return -1;
    } else {
        if (ep < 16 || ep > 23 || !(p->pawns & p->white & (uint64_t(1) << (ep + 8)))) return -1;
    }
    return occ & (uint64_t(1) << ep) ? -1 : ep;
}

uint16_t* add_pawn_moves(uint16_t* m, int from, uint64_t targets, bool white) {
    while (targets) {
        const int to = pop_lsb(targets);
        if ((white && to >= 56) || (!white && to < 8))
            for (int promo = 1; promo <= 4; promo++) *m++ = make_move(from, to, promo);
        else
            *m++ = make_move(from, to, 0);
    }
    return m;
}

// Moves of every piece but the pawns onto the target squares.
uint16_t* add_piece_moves(const pos* p, uint16_t* m, uint64_t targets) {
    const uint64_t us = p->turn ? p->white : p->black, occ = p->white | p->black;
    for (uint64_t b = us & ~p->pawns; b;) {
        const int from = pop_lsb(b);
        const uint64_t sq = uint64_t(1) << from;
        uint64_t att;
        if (p->knights & sq) att = ATT.knight[from];
        else if (p->bishops & sq) att = bishop_attacks(from, occ);
        else if (p->rooks & sq) att = rook_attacks(from, occ);
        else if (p->queens & sq) att = bishop_attacks(from, occ) | rook_attacks(from, occ);
        else att = ATT.king[from];
        for (att &= targets; att;) *m++ = make_move(from, pop_lsb(att), 0);
    }
    return m;
}

}  // namespace

uint64_t get_pieces(const pos* p, int colour, int type) {
    const uint64_t side = colour ? p->black : p->white;
    switch (type) {
        case TB_PAWN: return side & p->pawns;
        case TB_KNIGHT: return side & p->knights;
        case TB_BISHOP: return side & p->bishops;
        case TB_ROOK: return side & p->rooks;
        case TB_QUEEN: return side & p->queens;
        case TB_KING: return side & p->kings;
        default: return 0;
    }
}

uint64_t calc_key(const pos* p, bool mirror) {
    uint8_t counts[2][7] = {};
    for (int c = 0; c < 2; c++)
        for (int type = TB_PAWN; type <= TB_KING; type++)
            counts[c ^ mirror][type] = uint8_t(popcount(get_pieces(p, c, type)));
    return material_key(counts);
}

void prt_str(const pos* p, char* str, bool mirror) {
    static const char letters[] = " PNBRQK";
    for (int side = 0; side < 2; side++) {
        const int colour = side ^ mirror;
        for (int type = TB_KING; type >= TB_PAWN; type--)
            for (int k = popcount(get_pieces(p, colour, type)); k > 0; k--) *str++ = letters[type];
        if (side == 0) *str++ = 'v';
    }
    *str = 0;
}

bool in_check(const pos* p) {
    const uint64_t king = p->kings & (p->turn ? p->white : p->black);
    return king && attacked(p, lsb(king), p->turn ? 1 : 0);
}

bool is_legal(const pos* p) {
    const uint64_t king = p->kings & (p->turn ? p->black : p->white);
    return king && !attacked(p, lsb(king), p->turn ? 0 : 1);
}

int gen_captures(const pos* p, uint16_t* moves) {
    const bool white = p->turn;
    const uint64_t us = white ? p->white : p->black, them = white ? p->black : p->white;
    uint16_t* m = add_piece_moves(p, moves, them);
    for (uint64_t b = us & p->pawns; b;) {
        const int from = pop_lsb(b);
        m = add_pawn_moves(m, from, ATT.pawn[white ? 0 : 1][from] & them, white);
    }
    return int(m - moves);
}

int gen_ep(const pos* p, uint16_t* moves) {
    const int ep = ep_target(p);
    if (ep < 0) return 0;
    const bool white = p->turn;
    uint16_t* m = moves;
    for (uint64_t b = ATT.pawn[white ? 1 : 0][ep] & p->pawns & (white ? p->white : p->black); b;)
        *m++ = make_move(pop_lsb(b), ep, 0);
    return int(m - moves);
}

int gen_moves(const pos* p, uint16_t* moves) {
    const bool white = p->turn;
    const uint64_t us = white ? p->white : p->black, occ = p->white | p->black;
    uint16_t* m = add_piece_moves(p, moves, ~us);
    for (uint64_t b = us & p->pawns; b;) {
        const int from = pop_lsb(b);
        const int one = white ? from + 8 : from - 8;
        uint64_t targets = ATT.pawn[white ? 0 : 1][from] & (white ? p->black : p->white);
        if (!(occ & (uint64_t(1) << one))) {
            targets |= uint64_t(1) << one;
            const int two = white ? from + 16 : from - 16;
            if ((white ? from < 16 : from >= 48) && !(occ & (uint64_t(1) << two)))
                targets |= uint64_t(1) << two;
        }
        m = add_pawn_moves(m, from, targets, white);
    }
    m += gen_ep(p, m);
    return int(m - moves);
}

int gen_legal(const pos* p, uint16_t* moves) {
    uint16_t all[TB_MAX_MOVES];
    const int n = gen_moves(p, all);
    int k = 0;
    for (int i = 0; i < n; i++) {
        pos child;
        if (do_move(&child, p, all[i])) moves[k++] = all[i];
    }
    return k;
}

bool is_ep_move(const pos* p, uint16_t move) {
    const int from = move_from(move), to = move_to(move);
    return is_pawn_move(p, move) && ((from ^ to) & 7) != 0 &&
           !((p->white | p->black) & (uint64_t(1) << to));
}

bool is_capture(const pos* p, uint16_t move) {
    const uint64_t them = p->turn ? p->black : p->white;
    return (them & (uint64_t(1) << move_to(move))) || is_ep_move(p, move);
}

bool is_pawn_move(const pos* p, uint16_t move) {
    return (p->pawns & (uint64_t(1) << move_from(move))) != 0;
}

bool do_move(pos* out, const pos* p, uint16_t move) {
    *out = *p;
    const int from = move_from(move), to = move_to(move);
    const int promo = move_promotes(move) <= 4 ? move_promotes(move) : 0;
    const uint64_t fb = uint64_t(1) << from, tb = uint64_t(1) << to;
    uint64_t& us = p->turn ? out->white : out->black;
    uint64_t& them = p->turn ? out->black : out->white;
    uint64_t* types[7] = {nullptr, &out->pawns, &out->knights, &out->bishops,
                          &out->rooks, &out->queens, &out->kings};
    const bool capture = (them & tb) != 0;
    if (capture) {
        them ^= tb;
        for (int t = TB_PAWN; t <= TB_KING; t++) *types[t] &= ~tb;
    }
    int moved = TB_KING;
    for (int t = TB_PAWN; t <= TB_KING; t++)
        if (*types[t] & fb) moved = t;
    *types[moved] ^= fb;
    us ^= fb | tb;
    static const int promo_type[5] = {0, TB_QUEEN, TB_ROOK, TB_BISHOP, TB_KNIGHT};
    *types[moved == TB_PAWN && promo ? promo_type[promo] : moved] |= tb;
    out->ep = 0;
    if (moved == TB_PAWN) {
        if (!capture && ((from ^ to) & 7)) {
            const uint64_t victim = uint64_t(1) << (p->turn ? to - 8 : to + 8);
            them &= ~victim;
            out->pawns &= ~victim;
        }
        if (to - from == 16 || from - to == 16) out->ep = uint8_t((from + to) / 2);
        out->rule50 = 0;
    } else {
        out->rule50 = capture ? 0 : uint8_t(p->rule50 < 255 ? p->rule50 + 1 : 255);
    }
    out->turn = !p->turn;
    out->move = move;
    return is_legal(out);
}

bool is_mate(const pos* p) {
    if (!in_check(p)) return false;
    uint16_t moves[TB_MAX_MOVES];
    const int n = gen_moves(p, moves);
    for (int i = 0; i < n; i++) {
        pos child;
        if (do_move(&child, p, moves[i])) return false;
    }
    return true;
}

bool valid_pos(const pos* p) {
    const uint64_t occ = p->white | p->black;
    if (p->white & p->black) return false;
    const uint64_t types[6] = {p->pawns, p->knights, p->bishops, p->rooks, p->queens, p->kings};
    uint64_t all = 0;
    for (uint64_t t : types) {
        if (all & t) return false;
        all |= t;
    }
    if (all != occ) return false;
    if (popcount(p->kings & p->white) != 1 || popcount(p->kings & p->black) != 1) return false;
    if (p->pawns & 0xFF000000000000FFull) return false;
    return is_legal(p);
}
