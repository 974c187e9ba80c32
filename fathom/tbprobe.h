// Syzygy probing over the compact position record `pos`: WDL, DTZ and the root move ranking.
// This is the interface the engine uses; everything else in fathom/ is private to it.
#pragma once

#include <cstdint>

// Compact position record of the prober. The type boards hold both colours.
struct pos {
    uint64_t white;
    uint64_t black;
    uint64_t kings;
    uint64_t queens;
    uint64_t rooks;
    uint64_t bishops;
    uint64_t knights;
    uint64_t pawns;
    uint8_t rule50;  // fifty-move counter (plies since the last capture or pawn move)
    uint8_t ep;      // en-passant target square (the square a capturing pawn lands on), 0 = none
    bool turn;       // true when White is to move
    uint16_t move;   // 0 when the record is built
};

// Largest number of pieces (kings included) of any registered table; 0 = tables off.
extern int TB_LARGEST;

// Registers every table found in the ':'-separated directory list (releasing the tables of
// an earlier call first) and prints "Found %d tablebases.\n". An empty path or "<empty>"
// registers nothing and prints nothing.
void tb_init(const char* path);
// Releases every registered table.
void tb_free();

// True when the side that is not to move is not in check.
bool is_legal(const pos* p);

// WDL from the side to move's view: -2 loss, -1 blessed loss, 0 draw, 1 cursed win, 2 win.
// *success is 0 when the probe failed.
int probe_wdl(const pos* p, int* success);
// DTZ in plies from the side to move's view; *success is 0 when the probe failed.
int probe_dtz(const pos* p, int* success);

// Root result word of probe_root.
constexpr unsigned TB_RESULT_CHECKMATE_OR_STALEMATE = 65534;  // no legal root move
constexpr unsigned TB_RESULT_FAILED_ROOT = 65535;             // no table result for the root
inline unsigned tbResultWdl(unsigned r) { return r & 0xF; }          // 0 loss .. 4 win
inline unsigned tbResultTo(unsigned r) { return (r >> 4) & 0x3F; }
inline unsigned tbResultFrom(unsigned r) { return (r >> 10) & 0x3F; }
inline unsigned tbResultPromotes(unsigned r) { return (r >> 16) & 0x7; }  // 0 none, 1 q, 2 r, 3 b, 4 n
inline unsigned tbResultEp(unsigned r) { return (r >> 19) & 0x1; }
inline unsigned tbResultDtz(unsigned r) { return r >> 20; }  // absolute DTZ

// Ranks the root moves by DTZ (with the position's fifty-move counter) and returns the chosen
// move packed as above; 0 on failure (tables off, more pieces than any table, malformed
// position), TB_RESULT_FAILED_ROOT when a table needed for a root move is missing or damaged.
// *score receives the signed DTZ of the chosen move.
unsigned probe_root(const pos* p, int* score);
