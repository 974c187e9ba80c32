// Probing over `pos`: table lookups of WDL and DTZ values, WDL with captures and en passant
// resolved, DTZ with its one-ply search, and the ranking of root moves by DTZ.
#include "fathom/tbprobe.h"

#include <climits>

#include "fathom/tbcore.h"
#include "fathom/tbindex.h"
#include "fathom/tbpos.h"

namespace {

constexpr int wdl_to_dtz[5] = {-1, -101, 0, 101, 1};
constexpr int wdl_to_map[5] = {1, 3, 0, 2, 0};

// Deepest nesting of the one-ply DTZ search; real tables need one level, a corrupt side flag
// could otherwise recurse without end.
constexpr int MAX_DTZ_SEARCH_DEPTH = 2;

// Value of the position's WDL table (-2..2), captures not yet resolved.
int probe_wdl_table(const pos* p, int* success) {
    *success = 0;
    if (((p->white | p->black) & ~p->kings) == 0) {
        *success = 1;
        return 0;  // bare kings
    }
    TBEntry* e = find_wdl_entry(calc_key(p, false));
    if (!e || !ensure_wdl_mapped(e) || e->broken.load(std::memory_order_relaxed)) return 0;
    TableSlot ts;
    if (!table_index(e, p, false, &ts)) return 0;
    const int v = decompress_pairs(ts.st->pairs, ts.idx);
    if (v < 0 || (v & 0xFF) > 4) {
        mark_broken(e, ".rtbw");
        return 0;
    }
    *success = 1;
    return (v & 0xFF) - 2;
}

// DTZ table value of a position with WDL wdl (non-zero). *success: 1 found, -1 the file
// does not store this side to move, 0 failure.
int probe_dtz_table(const pos* p, int wdl, int* success) {
    *success = 0;
    std::shared_ptr<TBEntry> holder = get_dtz_entry(calc_key(p, false));
    TBEntry* e = holder.get();
    if (!e || e->broken.load(std::memory_order_relaxed)) return 0;
    TableSlot ts;
    if (!table_index(e, p, true, &ts)) return 0;
    const SubTable* st = ts.st;
    if ((st->flags & 1) != ts.side) {
        *success = -1;
        return 0;
    }
    int v = decompress_pairs(st->pairs, ts.idx);
    if (v < 0) {
        mark_broken(e, ".rtbz");
        return 0;
    }
    if (st->flags & 2) {
        const int m = wdl_to_map[wdl + 2];
        if (v >= st->map_len[m]) {
            mark_broken(e, ".rtbz");
            return 0;
        }
        v = st->flags & 16 ? int(read_le16(e->data + st->map[m] + 2 * uint64_t(v)))
                           : int(e->data[st->map[m] + uint64_t(v)]);
    }
    if (!((wdl == 2 && (st->flags & 4)) || (wdl == -2 && (st->flags & 8)))) v *= 2;
    *success = 1;
    switch (wdl) {
        case 2: return 1 + v;
        case 1: return 101 + v;
        case -1: return -(101 + v);
        default: return -(1 + v);
    }
}

// WDL with ordinary captures searched (en passant excluded). *success is 2 when the best
// result comes from a capture that wins.
int probe_ab(const pos* p, int alpha, int beta, int* success) {
    uint16_t moves[TB_MAX_MOVES];
    const int n = gen_captures(p, moves);
    for (int i = 0; i < n; i++) {
        pos child;
        if (!do_move(&child, p, moves[i])) continue;
        const int v = -probe_ab(&child, -beta, -alpha, success);
        if (*success == 0) return 0;
        if (v > alpha) {
            if (v >= beta) {
                *success = 2;
                return v;
            }
            alpha = v;
        }
    }
    const int v = probe_wdl_table(p, success);
    if (*success == 0) return 0;
    if (alpha >= v) {
        *success = 1 + (alpha > 0);
        return alpha;
    }
    *success = 1;
    return v;
}

bool only_ep_moves(const pos* p) {
    uint16_t moves[TB_MAX_MOVES];
    const int n = gen_moves(p, moves);
    for (int i = 0; i < n; i++) {
        pos child;
        if (!is_ep_move(p, moves[i]) && do_move(&child, p, moves[i])) return false;
    }
    return true;
}

// Best WDL over the legal en-passant captures, or -3 when there is none.
int best_ep(const pos* p, int* success) {
    uint16_t moves[TB_MAX_MOVES];
    const int n = gen_ep(p, moves);
    int best = -3;
    for (int i = 0; i < n; i++) {
        pos child;
        if (!do_move(&child, p, moves[i])) continue;
        const int v = -probe_ab(&child, -2, 2, success);
        if (*success == 0) return 0;
        if (v > best) best = v;
    }
    *success = 1;
    return best;
}

// Tables hold no en-passant rights: a legal en-passant capture is an extra option.
int probe_wdl_full(const pos* p, int* success) {
    const int v = probe_ab(p, -2, 2, success);
    if (*success == 0) return 0;
    const int e = best_ep(p, success);
    if (*success == 0) return 0;
    if (e == -3) return v;
    if (e >= v || (v == 0 && only_ep_moves(p))) return e;
    return v;
}

int probe_dtz_full(const pos* p, int* success, int depth);

// DTZ of a non-zero-WDL position when its own side to move is not stored: one ply deeper.
int dtz_search(const pos* p, int w, int* success, int depth) {
    uint16_t moves[TB_MAX_MOVES];
    const int n = gen_moves(p, moves);
    int best = w > 0 ? INT_MAX : -1;
    for (int i = 0; i < n; i++) {
        const bool zeroing = is_pawn_move(p, moves[i]) || is_capture(p, moves[i]);
        if (w > 0 && zeroing) continue;  // covered by the capture and pawn-move shortcuts
        pos child;
        if (!do_move(&child, p, moves[i])) continue;
        int worth;
        if (w > 0) {
            if (is_mate(&child)) {
                worth = 1;
            } else {
                const int d = probe_dtz_full(&child, success, depth + 1);
                if (*success == 0) return 0;
                if (d >= 0) continue;
                worth = 1 - d;
            }
        } else if (zeroing) {
            if (w == -2) {
                worth = -1;
            } else {
                const int v = probe_ab(&child, 1, 2, success);
                if (*success == 0) return 0;
                worth = v == 2 ? 0 : -101;
            }
        } else {
            const int d = probe_dtz_full(&child, success, depth + 1);
            if (*success == 0) return 0;
            worth = -d - 1;
        }
        if (worth < best) best = worth;
    }
    *success = best == INT_MAX ? 0 : 1;
    return best == INT_MAX ? 0 : best;
}

// DTZ with en passant ignored at this node.
int probe_dtz_no_ep(const pos* p, int* success, int depth) {
    const int w = probe_ab(p, -2, 2, success);
    if (*success == 0) return 0;
    if (w == 0) return 0;
    if (*success == 2) return wdl_to_dtz[w + 2];
    if (w > 0) {
        // A pawn move that keeps the win zeroes at once; the table entry is then arbitrary.
        uint16_t moves[TB_MAX_MOVES];
        const int n = gen_moves(p, moves);
        for (int i = 0; i < n; i++) {
            if (!is_pawn_move(p, moves[i]) || is_capture(p, moves[i])) continue;
            pos child;
            if (!do_move(&child, p, moves[i])) continue;
            const int x = -probe_wdl_full(&child, success);
            if (*success == 0) return 0;
            if (x == w) return wdl_to_dtz[w + 2];
        }
    }
    const int dtz = probe_dtz_table(p, w, success);
    if (*success > 0) return dtz;
    if (*success == 0 || depth >= MAX_DTZ_SEARCH_DEPTH) {
        *success = 0;
        return 0;
    }
    return dtz_search(p, w, success, depth);
}

int probe_dtz_full(const pos* p, int* success, int depth) {
    const int v = probe_dtz_no_ep(p, success, depth);
    if (*success == 0) return 0;
    const int e = best_ep(p, success);
    if (*success == 0) return 0;
    if (e == -3) return v;
    const int ep = wdl_to_dtz[e + 2];
    if (v < -100) {
        if (ep >= 0) return ep;
    } else if (v < 0) {
        if (ep >= 0 || ep < -100) return ep;
    } else if (v > 100) {
        if (ep > 0) return ep;
    } else if (v > 0) {
        if (ep == 1) return ep;
    } else {
        if (ep >= 0 || only_ep_moves(p)) return ep;
    }
    return v;
}

bool probe_allowed(const pos* p) {
    return TB_LARGEST > 0 && popcount(p->white | p->black) <= TB_LARGEST && valid_pos(p);
}

// Root ranking: class (4 win .. 0 loss, counting the fifty-move counter c) and a tie-break,
// both larger = better. Quick wins first (mates before other worth-1 wins), spoiled wins
// closest to zeroing, saved and real losses resisting longest.
struct RootRank {
    int cls;
    int tie;
    bool operator>(const RootRank& o) const { return cls != o.cls ? cls > o.cls : tie > o.tie; }
};

RootRank root_rank(int worth, int c, bool mate) {
    if (worth > 0) return worth + c <= 100 ? RootRank{4, -2 * worth + (mate ? 1 : 0)} : RootRank{3, -worth};
    if (worth < 0) return c - worth > 100 ? RootRank{1, -worth} : RootRank{0, -worth};
    return RootRank{2, 0};
}

}  // namespace

int probe_wdl(const pos* p, int* success) {
    *success = 0;
    if (!probe_allowed(p)) return 0;
    const int v = probe_wdl_full(p, success);
    if (*success) *success = 1;
    return v;
}

int probe_dtz(const pos* p, int* success) {
    *success = 0;
    if (!probe_allowed(p)) return 0;
    const int v = probe_dtz_full(p, success, 0);
    if (*success) *success = 1;
    return v;
}

unsigned probe_root(const pos* p, int* score) {
    *score = 0;
    if (!probe_allowed(p)) return 0;
    uint16_t moves[TB_MAX_MOVES];
    const int n = gen_legal(p, moves);
    if (n == 0) return TB_RESULT_CHECKMATE_OR_STALEMATE;

    int best = -1, best_worth = 0;
    RootRank best_rank{-1, 0};
    for (int i = 0; i < n; i++) {
        pos child;
        do_move(&child, p, moves[i]);
        const bool mate = is_mate(&child);
        int worth, success = 1;
        if (mate) {
            worth = 1;
        } else if (is_pawn_move(p, moves[i]) || is_capture(p, moves[i])) {
            // The child's counter is 0, so its WDL is exact.
            worth = wdl_to_dtz[-probe_wdl_full(&child, &success) + 2];
        } else {
            const int d = probe_dtz_full(&child, &success, 0);
            worth = d == 0 ? 0 : d < 0 ? 1 - d : -1 - d;
        }
        if (success == 0) return TB_RESULT_FAILED_ROOT;
        const RootRank r = root_rank(worth, p->rule50, mate);
        if (r > best_rank) {
            best_rank = r;
            best = i;
            best_worth = worth;
        }
    }
    const uint16_t m = moves[best];
    *score = best_worth;
    const unsigned dtz = unsigned(best_worth < 0 ? -best_worth : best_worth);
    return unsigned(best_rank.cls) | unsigned(move_to(m)) << 4 | unsigned(move_from(m)) << 10 |
           unsigned(move_promotes(m)) << 16 | unsigned(is_ep_move(p, m) ? 1 : 0) << 19 | dtz << 20;
}
