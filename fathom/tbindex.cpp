// Fixed index tables, the parsing of a table file's header into sub-tables, and the encoders
// that turn the squares of a filled piece list into a sub-table index.
#include "fathom/tbindex.h"

#include "fathom/tbpos.h"

namespace {

constexpr int sq_file(int s) { return s & 7; }
constexpr int sq_rank(int s) { return s >> 3; }
constexpr int fold_file(int f) { return f < 4 ? f : 7 - f; }

// Squares of the ten folded triangle values b1 c1 d1 c2 d2 d3 a1 b2 c3 d4.
constexpr int TRIANGLE_SQ[10] = {1, 2, 3, 10, 11, 19, 0, 9, 18, 27};

constexpr bool near_king(int a, int b) {
    int df = sq_file(a) - sq_file(b), dr = sq_rank(a) - sq_rank(b);
    return df >= -1 && df <= 1 && dr >= -1 && dr <= 1;
}

constexpr IndexTables build_index_tables() {
    IndexTables t{};
    for (int s = 0; s < 64; s++) {
        int f = sq_file(s), r = sq_rank(s);
        t.offdiag[s] = int8_t(r - f);
        t.flipdiag[s] = uint8_t(8 * f + r);
        t.diag[s] = uint8_t(r == f ? r : 0);
        int ff = fold_file(f), fr = r < 4 ? r : 7 - r;
        if (fr > ff) {
            int x = fr;
            fr = ff;
            ff = x;
        }
        for (int v = 0; v < 10; v++)
            if (TRIANGLE_SQ[v] == 8 * fr + ff) t.triangle[s] = uint8_t(v);
    }
    int below = 0;
    for (int s = 0; s < 64; s++)
        if (sq_rank(s) < sq_file(s)) t.lower[s] = uint8_t(below++);
    for (int s = 0; s < 64; s++) {
        if (sq_rank(s) > sq_file(s)) t.lower[s] = t.lower[t.flipdiag[s]];
        if (sq_rank(s) == sq_file(s)) t.lower[s] = uint8_t(28 + sq_rank(s));
    }

    // Two kings: first king off the diagonal, then on it with the second below the diagonal,
    // then both on the diagonal.
    for (int r = 0; r < 10; r++)
        for (int s = 0; s < 64; s++) t.KK_idx[r][s] = -1;
    int16_t n = 0;
    for (int r = 0; r < 6; r++)
        for (int s = 0; s < 64; s++)
            if (!near_king(TRIANGLE_SQ[r], s)) t.KK_idx[r][s] = n++;
    for (int r = 6; r < 10; r++)
        for (int s = 0; s < 64; s++)
            if (sq_rank(s) < sq_file(s) && !near_king(TRIANGLE_SQ[r], s)) t.KK_idx[r][s] = n++;
    for (int r = 6; r < 10; r++)
        for (int s = 0; s < 64; s++)
            if (sq_rank(s) == sq_file(s) && !near_king(TRIANGLE_SQ[r], s)) t.KK_idx[r][s] = n++;

    for (int k = 0; k < 8; k++)
        for (int m = 0; m < 64; m++)
            t.binomial[k][m] = k == 0 ? 1 : m == 0 ? 0 : t.binomial[k - 1][m - 1] + t.binomial[k][m - 1];

    for (int s = 8; s < 56; s++) {
        int ff = fold_file(sq_file(s)), r = sq_rank(s);
        t.flap[s] = uint8_t(6 * ff + r - 1);
        t.ptwist[s] = uint8_t(47 - 12 * ff - 2 * (r - 1) - (sq_file(s) >= 4 ? 1 : 0));
    }
    for (int j = 0; j < 24; j++) t.invflap[j] = uint8_t(8 * (j % 6 + 1) + j / 6);
    for (int k = 0; k < 5; k++)
        for (int file = 0; file < 4; file++) {
            uint64_t sum = 0;
            for (int j = 6 * file; j < 6 * file + 6; j++) {
                t.pawnidx[k][j] = sum;
                sum += k == 0 ? 1 : t.binomial[k][t.ptwist[t.invflap[j]]];
            }
            t.pfactor[k][file] = sum;
        }
    return t;
}

constexpr IndexTables INDEX_TABLES = build_index_tables();
static_assert(INDEX_TABLES.KK_idx[9][63] == KK_COUNT - 1, "two-king placements");
static_assert(INDEX_TABLES.pfactor[1][0] == 252 && INDEX_TABLES.pfactor[4][3] == 496, "pawn factors");

// Checks a piece list against the entry's material and returns the key of its table-white
// material; 0 when the list is malformed. Identical codes must stand next to each other.
uint64_t list_key(const TBEntry* e, const uint8_t* pieces, int n) {
    uint8_t counts[2][7] = {};
    for (int i = 0; i < n; i++) {
        int type = pieces[i] & 7;
        if (type < TB_PAWN || type > TB_KING) return 0;
        counts[pieces[i] >> 3 & 1][type]++;
        for (int j = i + 2; j < n; j++)
            if (pieces[j] == pieces[i] && pieces[j - 1] != pieces[i]) return 0;
    }
    uint64_t key = material_key(counts);
    return key == e->key || key == e->key2 ? key : 0;
}

// Bounds-checked move of a running file offset.
bool advance(uint64_t& off, uint64_t len, uint64_t size) {
    if (off > size || len > size - off) return false;
    off += len;
    return true;
}

uint64_t group_number(const int* sq, int i, int k) {
    int s[TBPIECES];
    for (int m = 0; m < k; m++) {
        int x = sq[i + m], j = m;
        for (; j > 0 && s[j - 1] > x; j--) s[j] = s[j - 1];
        s[j] = x;
    }
    uint64_t number = 0;
    for (int m = 0; m < k; m++) {
        int x = s[m];
        for (int j = 0; j < i; j++) x -= sq[j] < s[m];
        number += TBI.binomial[m + 1][x];
    }
    return number;
}

// Writes the squares of the pieces named by st's list from slot `from` on. Fails when the
// list does not describe the position's material.
bool fill_slots(const SubTable* st, int from, int n, const pos* p, bool swap, int flip, int* sq) {
    for (int i = from; i < n;) {
        const int code = st->pieces[i];
        uint64_t bb = get_pieces(p, ((code >> 3) & 1) ^ (swap ? 1 : 0), code & 7);
        const int start = i;
        while (bb) {
            if (i >= n || st->pieces[i] != code) return false;
            sq[i++] = pop_lsb(bb) ^ flip;
        }
        if (i == start) return false;
    }
    return true;
}

}  // namespace

const IndexTables TBI = INDEX_TABLES;

bool set_norm_piece(SubTable* st, int n) {
    int unique = 0;
    bool once[TBPIECES] = {};
    for (int i = 0; i < n; i++) {
        int c = 0;
        for (int j = 0; j < n; j++) c += st->pieces[j] == st->pieces[i];
        once[i] = c == 1;
        unique += once[i];
    }
    for (int i = 0; i < n; i++) st->norm[i] = 0;
    int lead = unique >= 3 ? 3 : 2;
    if (n < lead) return false;
    if (lead == 3 && !(once[0] && once[1] && once[2])) return false;
    if (lead == 2 && ((st->pieces[0] & 7) != TB_KING || (st->pieces[1] & 7) != TB_KING)) return false;
    st->norm[0] = uint8_t(lead);
    for (int i = lead; i < n;) {
        int j = i;
        while (j < n && st->pieces[j] == st->pieces[i]) j++;
        st->norm[i] = uint8_t(j - i);
        i = j;
    }
    return true;
}

bool set_norm_pawn(SubTable* st, int n, int p0, int p1) {
    if (p0 < 1 || p0 > 5 || p0 + p1 > n) return false;
    for (int i = 0; i < n; i++) st->norm[i] = 0;
    for (int i = 0; i < p0; i++)
        if (st->pieces[i] != st->pieces[0] || (st->pieces[i] & 7) != TB_PAWN) return false;
    for (int i = p0; i < p0 + p1; i++)
        if (st->pieces[i] != (st->pieces[0] ^ 8)) return false;
    if (p0 + p1 < n && (st->pieces[p0 + p1] & 7) == TB_PAWN) return false;
    st->norm[0] = uint8_t(p0);
    if (p1) st->norm[p0] = uint8_t(p1);
    for (int i = p0 + p1; i < n;) {
        int j = i;
        while (j < n && st->pieces[j] == st->pieces[i]) j++;
        st->norm[i] = uint8_t(j - i);
        i = j;
    }
    return true;
}

// The leading group (and the second pawn group) sit at the digit positions given by the order
// values; the other groups fill the remaining positions in slot order.
static bool calc_factors(SubTable* st, int n, int first, uint64_t lead_radix, int order,
                         uint64_t second_radix, int order2, int second_slot) {
    bool lead_done = false, second_done = second_slot < 0;
    uint64_t f = 1;
    for (int q = 0, g = first; g < n || !lead_done || !second_done; q++) {
        if (q > 15) return false;
        if (!lead_done && q == order) {
            st->factor[0] = f;
            f *= lead_radix;
            lead_done = true;
        } else if (!second_done && q == order2) {
            st->factor[second_slot] = f;
            f *= second_radix;
            second_done = true;
        } else if (g < n) {
            if (st->norm[g] == 0) return false;
            st->factor[g] = f;
            f *= TBI.binomial[st->norm[g]][64 - g];
            g += st->norm[g];
        } else {
            return false;
        }
    }
    st->size = f;
    return true;
}

bool calc_factors_piece(SubTable* st, int n, int order) {
    uint64_t radix = st->norm[0] == 3 ? TRIPLE_COUNT : KK_COUNT;
    return calc_factors(st, n, st->norm[0], radix, order, 0, -1, -1);
}

bool calc_factors_pawn(SubTable* st, int n, int p0, int p1, int file, int order, int order2) {
    uint64_t radix = TBI.pfactor[p0 - 1][file];
    if (!p1) return calc_factors(st, n, p0, radix, order, 0, -1, -1);
    return calc_factors(st, n, p0 + p1, radix, order, TBI.binomial[p1][48 - p0], order2, p0);
}

bool init_table(TBEntry* e, const uint8_t* data, uint64_t size, bool wdl) {
    const uint32_t magic = wdl ? 0x5d23e871u : 0xa50c66d7u;
    if (size < 8 || read_le32(data) != magic) return false;
    const int hdr = data[4], n = e->num;
    if (((hdr & 2) != 0) != e->has_pawns) return false;
    if (wdl && ((hdr & 1) != 0) == e->symmetric) return false;
    const int sides = wdl && (hdr & 1) ? 2 : 1;
    const int files = e->has_pawns ? 4 : 1;
    const int p0 = e->p0, p1 = e->p1;

    // Piece lists and order values, one record per pawn file.
    uint64_t off = 5;
    e->tw_key = 0;
    for (int f = 0; f < files; f++) {
        const uint64_t rec = 1 + (p1 ? 1 : 0) + uint64_t(n);
        if (rec > size - off) return false;
        const uint8_t order = data[off];
        const uint8_t order2 = p1 ? data[off + 1] : 0xFF;
        const uint8_t* pcs = data + off + 1 + (p1 ? 1 : 0);
        for (int side = 0; side < sides; side++) {
            SubTable* st = entry_sub(e, f, side);
            for (int i = 0; i < n; i++) st->pieces[i] = uint8_t(side ? pcs[i] >> 4 : pcs[i] & 15);
            uint64_t key = list_key(e, st->pieces, n);
            if (!key || (e->tw_key && key != e->tw_key)) return false;
            e->tw_key = key;
            const int o1 = side ? order >> 4 : order & 15, o2 = side ? order2 >> 4 : order2 & 15;
            bool ok;
            if (e->has_pawns) {
                ok = st->pieces[0] == entry_sub(e, 0, side)->pieces[0] &&
                     set_norm_pawn(st, n, p0, p1) && calc_factors_pawn(st, n, p0, p1, f, o1, o2);
            } else {
                ok = set_norm_piece(st, n) && calc_factors_piece(st, n, o1);
            }
            if (!ok) return false;
        }
        off += rec;
    }
    off += off & 1;

    // Pairs headers of every sub-table, then the DTZ value maps.
    uint64_t sizes[4][2][3] = {};
    for (int f = 0; f < files; f++)
        for (int side = 0; side < sides; side++) {
            SubTable* st = entry_sub(e, f, side);
            const uint8_t* next = nullptr;
            if (off > size) return false;
            st->pairs = setup_pairs(data + off, data + size, st->size, sizes[f][side], &next,
                                    &st->flags, wdl);
            if (!st->pairs) return false;
            off = uint64_t(next - data);
        }
    if (!wdl) {
        for (int f = 0; f < files; f++) {
            SubTable* st = entry_sub(e, f, 0);
            if (!(st->flags & 2)) continue;
            const bool wide = st->flags & 16;
            if (wide) off += off & 1;
            for (int m = 0; m < 4; m++) {
                const uint64_t width = wide ? 2 : 1;
                if (off > size || width > size - off) return false;
                const uint32_t len = wide ? read_le16(data + off) : data[off];
                st->map[m] = off + width;
                st->map_len[m] = uint16_t(len);
                if (!advance(off, width * (1 + uint64_t(len)), size)) return false;
            }
        }
        off += off & 1;
    }

    // Index tables, size tables and 64-byte aligned data areas, each pass in header order.
    for (int pass = 0; pass < 3; pass++)
        for (int f = 0; f < files; f++)
            for (int side = 0; side < sides; side++) {
                PairsData* d = entry_sub(e, f, side)->pairs;
                const uint64_t len = sizes[f][side][pass];
                if (pass == 2) off = (off + 63) & ~uint64_t(63);
                if (len == 0) continue;
                const uint8_t* area = data + off;
                if (!advance(off, len, size)) return false;
                (pass == 0 ? d->indextable : pass == 1 ? d->sizetable : d->data) = area;
            }
    return true;
}

bool encode_piece(const SubTable* st, int n, int* sq, uint64_t* idx) {
    if (sq[0] & 4)
        for (int i = 0; i < n; i++) sq[i] ^= 7;
    if (sq[0] & 32)
        for (int i = 0; i < n; i++) sq[i] ^= 56;
    const int lead = st->norm[0];
    for (int i = 0; i < lead; i++) {
        if (TBI.offdiag[sq[i]] == 0) continue;
        if (TBI.offdiag[sq[i]] > 0)
            for (int j = 0; j < n; j++) sq[j] = TBI.flipdiag[sq[j]];
        break;
    }
    uint64_t number;
    const int a = sq[0], b = sq[1];
    if (lead == 3) {
        const int c = sq[2];
        const int bb = b - (b > a), cc = c - (c > a) - (c > b);
        if (TBI.offdiag[a])
            number = uint64_t(TBI.triangle[a]) * 63 * 62 + uint64_t(bb) * 62 + uint64_t(cc);
        else if (TBI.offdiag[b])
            number = 23436 + uint64_t(TBI.diag[a]) * 28 * 62 + uint64_t(TBI.lower[b]) * 62 + uint64_t(cc);
        else if (TBI.offdiag[c])
            number = 23436 + 6944 + uint64_t(TBI.diag[a]) * 7 * 28 +
                     uint64_t(TBI.diag[b] - (b > a)) * 28 + TBI.lower[c];
        else
            number = 23436 + 6944 + 784 + uint64_t(TBI.diag[a]) * 42 +
                     uint64_t(TBI.diag[b] - (b > a)) * 6 + uint64_t(TBI.diag[c] - (c > a) - (c > b));
    } else {
        const int kk = TBI.KK_idx[TBI.triangle[a]][b];
        if (kk < 0) return false;
        number = uint64_t(kk);
    }
    uint64_t index = number * st->factor[0];
    for (int i = lead; i < n; i += st->norm[i]) {
        if (st->norm[i] == 0) return false;
        index += group_number(sq, i, st->norm[i]) * st->factor[i];
    }
    *idx = index;
    return index < st->size;
}

bool encode_pawn(const SubTable* st, int n, int p0, int p1, int* sq, uint64_t* idx) {
    if (sq[0] & 4)
        for (int i = 0; i < n; i++) sq[i] ^= 7;
    for (int i = 0; i < p0 + p1; i++)
        if (sq[i] < 8 || sq[i] >= 56) return false;
    int u[5];
    for (int m = 1; m < p0; m++) {
        int x = TBI.ptwist[sq[m]], j = m - 1;
        for (; j > 0 && u[j - 1] > x; j--) u[j] = u[j - 1];
        u[j] = x;
    }
    uint64_t number = TBI.pawnidx[p0 - 1][TBI.flap[sq[0]]];
    for (int m = 1; m < p0; m++) number += TBI.binomial[m][u[m - 1]];
    uint64_t index = number * st->factor[0];
    int i = p0;
    if (p1) {
        int s[TBPIECES];
        for (int m = 0; m < p1; m++) {
            int x = sq[p0 + m], j = m;
            for (; j > 0 && s[j - 1] > x; j--) s[j] = s[j - 1];
            s[j] = x;
        }
        uint64_t second = 0;
        for (int m = 0; m < p1; m++) {
            int x = s[m] - 8;
            for (int j = 0; j < p0; j++) x -= sq[j] < s[m];
            if (x < 0) return false;
            second += TBI.binomial[m + 1][x];
        }
        index += second * st->factor[p0];
        i += p1;
    }
    for (; i < n; i += st->norm[i]) {
        if (st->norm[i] == 0) return false;
        index += group_number(sq, i, st->norm[i]) * st->factor[i];
    }
    *idx = index;
    return index < st->size;
}

bool table_index(const TBEntry* e, const pos* p, bool dtz, TableSlot* out) {
    bool swap;
    int side;
    if (e->symmetric) {
        swap = !p->turn;
        side = 0;
    } else {
        swap = calc_key(p, false) != e->tw_key;
        side = p->turn != swap ? 0 : 1;
    }
    const int list = dtz ? 0 : side, n = e->num;
    int sq[TBPIECES] = {};
    if (!e->has_pawns) {
        const SubTable* st = entry_sub(e, 0, list);
        if (!fill_slots(st, 0, n, p, swap, 0, sq) || !encode_piece(st, n, sq, &out->idx)) return false;
        out->st = st;
    } else {
        // Pawns keep their direction, so a colour swap mirrors the board vertically.
        const int flip = swap ? 56 : 0, p0 = e->p0;
        const int lead = entry_sub(e, 0, list)->pieces[0];
        uint64_t bb = get_pieces(p, ((lead >> 3) & 1) ^ (swap ? 1 : 0), TB_PAWN);
        if (popcount(bb) != p0) return false;
        for (int k = 0; k < p0; k++) sq[k] = pop_lsb(bb) ^ flip;
        int best = 0;
        for (int k = 1; k < p0; k++)
            if (TBI.flap[sq[k]] < TBI.flap[sq[best]]) best = k;
        const int tmp = sq[0];
        sq[0] = sq[best];
        sq[best] = tmp;
        const int file = (sq[0] & 7) < 4 ? sq[0] & 7 : 7 - (sq[0] & 7);
        const SubTable* st = entry_sub(e, file, list);
        if (!fill_slots(st, p0, n, p, swap, flip, sq) || !encode_pawn(st, n, p0, e->p1, sq, &out->idx))
            return false;
        out->st = st;
    }
    out->side = side;
    return true;
}
