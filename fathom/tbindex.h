// Syzygy position index: the fixed tables, the parsing of a table file's header (piece lists,
// group factors, area layout) and the encoders from filled piece slots to an index.
#pragma once

#include <cstdint>

#include "fathom/tbcore.h"

struct IndexTables {
    int8_t offdiag[64];      // rank - file: > 0 above the a1-h8 diagonal
    uint8_t flipdiag[64];    // mirror in the a1-h8 diagonal
    uint8_t triangle[64];    // 0..5 off the diagonal, 6..9 on it, after folding into a1-d4
    uint8_t lower[64];       // 0..27 below the diagonal (mirrored from above), 28 + rank on it
    uint8_t diag[64];        // rank on the a1-h8 diagonal, 0 elsewhere
    int16_t KK_idx[10][64];  // two-king placements, -1 where impossible
    uint64_t binomial[8][64];  // binomial[k][n] = C(n, k)
    uint8_t flap[64];        // leading-pawn order on ranks 2-7, files folded to a-d
    uint8_t ptwist[64];      // order of the other leading pawns
    uint8_t invflap[24];
    uint64_t pawnidx[5][24];
    uint64_t pfactor[5][4];
};

extern const IndexTables TBI;

// Number of KK_idx entries that are valid (placements of two non-adjacent kings).
constexpr int KK_COUNT = 462;
constexpr int TRIPLE_COUNT = 31332;

// Where a position lands in a file: the sub-table, the index, and the table side to move.
struct TableSlot {
    const SubTable* st;
    uint64_t idx;
    int side;
};

// Reads the piece lists, orders and pairs headers of a mapped file into the entry's
// sub-tables and places their areas; false when the file is inconsistent with the entry.
bool init_table(TBEntry* e, const uint8_t* data, uint64_t size, bool wdl);

// Fill the groups and factors of one sub-table from its piece list and order values.
bool set_norm_piece(SubTable* st, int n);
bool set_norm_pawn(SubTable* st, int n, int p0, int p1);
bool calc_factors_piece(SubTable* st, int n, int order);
bool calc_factors_pawn(SubTable* st, int n, int p0, int p1, int file, int order, int order2);

// Index of the squares in sq (slots of st's piece list; normalised in place). False when the
// placement is outside the table (never for a legal position).
bool encode_piece(const SubTable* st, int n, int* sq, uint64_t* idx);
// As above for pawn tables; slot 0 already holds the chosen leading pawn.
bool encode_pawn(const SubTable* st, int n, int p0, int p1, int* sq, uint64_t* idx);

// Orients the position against the file of e (colour swap, table side to move), fills the
// piece slots and computes the index; dtz selects the file's single DTZ piece list. False
// when the position does not fit the file.
bool table_index(const TBEntry* e, const pos* p, bool dtz, TableSlot* out);
