// Tablebase registry (paths, entries, material hash, DTZ cache, lazy mapping) and the
// compressed-block decoder. Private to fathom/: the engine only sees tbprobe.h.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "fathom/tbprobe.h"

constexpr int TBPIECES = 7;        // most pieces the index encoding handles
constexpr int TBMAX_PIECE = 254;   // registry capacity for pawnless tables
constexpr int TBMAX_PAWN = 256;    // registry capacity for tables with pawns
constexpr int TBHASHBITS = 10;
constexpr int HSHMAX = 5;
constexpr int DTZ_ENTRIES = 64;

// Piece types as the files number them (bit 3 of a file's piece code is the table colour).
enum { TB_PAWN = 1, TB_KNIGHT, TB_BISHOP, TB_ROOK, TB_QUEEN, TB_KING };

// Decoding record of one compressed sub-table. The pointers lead into the mapped file; every
// area they describe has been checked to lie inside the mapping.
struct PairsData {
    const uint8_t* indextable = nullptr;  // 6-byte entries: 32-bit block, 16-bit offset
    const uint8_t* sizetable = nullptr;   // 16-bit values per block: values in block minus one
    const uint8_t* data = nullptr;        // the blocks, 2^blocksize bytes each
    const uint8_t* offset = nullptr;      // 16-bit first symbol per code length, min_len first
    const uint8_t* sympat = nullptr;      // 3 bytes per symbol
    std::vector<uint16_t> symlen;         // values a symbol expands to, minus one
    std::vector<uint32_t> base;           // left-aligned smallest code per length, min_len first
    std::vector<uint16_t> first_sym;      // the offset table read out, min_len first
    uint64_t tb_size = 0;                 // number of indices of the sub-table
    uint32_t num_blocks = 0;              // size-table entries
    uint32_t real_num_blocks = 0;         // blocks present in the data area
    uint32_t num_syms = 0;
    uint8_t blocksize = 0, idxbits = 0, min_len = 0, max_len = 0;
    bool single = false;                  // one value only (min_len holds it)
};

// One sub-table of a file: its piece list, index groups and factors, and its values.
struct SubTable {
    uint8_t pieces[TBPIECES] = {};  // file piece codes per slot
    uint8_t norm[TBPIECES] = {};    // size of the group starting at a slot, 0 inside a group
    uint64_t factor[TBPIECES] = {}; // weight of the group starting at a slot
    uint64_t size = 0;              // number of indices
    PairsData* pairs = nullptr;     // owned
    uint8_t flags = 0;              // first byte of the pairs header (DTZ flags)
    uint64_t map[4] = {};           // DTZ: file offset of the first entry of each value map
    uint16_t map_len[4] = {};
};

// Common head of a registered table. Registration fills the material fields; mapping fills
// data/mapsize and the sub-tables of the derived record.
struct TBEntry {
    const uint8_t* data = nullptr;
    uint64_t mapsize = 0;
    uint64_t key = 0;      // material key with the name's first side as White
    uint64_t key2 = 0;     // the colour-swapped key
    uint64_t tw_key = 0;   // key with the file's table-white material as White (from its codes)
    std::atomic<bool> ready{false};   // mapped and set up
    std::atomic<bool> broken{false};  // mapping or decoding failed once; further probes fail
    uint8_t num = 0;
    bool symmetric = false;
    bool has_pawns = false;
    uint8_t p0 = 0, p1 = 0;           // leading and second pawn group sizes
    uint8_t counts[2][7] = {};        // pieces per type of the name's first and second side
    char name[TBPIECES + 4] = {};
};

struct TBEntry_piece : TBEntry {
    SubTable sub[2];      // per table side to move (DTZ: sub[0] only)
};

struct TBEntry_pawn : TBEntry {
    SubTable file[4][2];  // per leading-pawn file and table side to move
};

// Sub-table of an entry for a pawn file (0 for pawnless tables) and table side.
inline SubTable* entry_sub(TBEntry* e, int file, int side) {
    return e->has_pawns ? &static_cast<TBEntry_pawn*>(e)->file[file][side]
                        : &static_cast<TBEntry_piece*>(e)->sub[side];
}
inline const SubTable* entry_sub(const TBEntry* e, int file, int side) {
    return entry_sub(const_cast<TBEntry*>(e), file, side);
}

struct TBHashEntry {
    uint64_t key;
    TBEntry* ptr;
};

struct DTZTableEntry {
    uint64_t key1 = 0, key2 = 0;
    bool used = false;
    std::shared_ptr<TBEntry> entry;  // null when the DTZ file could not be loaded
};

extern std::string path_string;
extern std::vector<std::string> paths;
extern TBEntry_piece TB_piece[TBMAX_PIECE];
extern TBEntry_pawn TB_pawn[TBMAX_PAWN];
extern int TBnum_piece, TBnum_pawn;
extern TBHashEntry TB_hash[1 << TBHASHBITS][HSHMAX];
extern DTZTableEntry DTZ_table[DTZ_ENTRIES];
extern std::mutex TB_MUTEX;

// Material key of piece counts per colour (0 White, 1 Black) and type (TB_PAWN..TB_KING).
uint64_t material_key(const uint8_t counts[2][7]);
// Calls fn with every material signature the registry looks for, in registration order.
void for_each_table_name(void (*fn)(const char* name, void* ctx), void* ctx);

void init_tb(char* name);
int open_tb(const char* name, const char* suffix);
const uint8_t* map_file(const char* name, const char* suffix, uint64_t* size);
void unmap_file(const uint8_t* data, uint64_t size);
void add_to_hash(TBEntry* ptr, uint64_t key);
void free_wdl_entry(TBEntry* entry);

// Registered WDL entry of a material key, or null.
TBEntry* find_wdl_entry(uint64_t key);
// Maps and sets up a WDL entry on first use; false when that failed (now or earlier).
bool ensure_wdl_mapped(TBEntry* entry);
// DTZ entry of a material key, loaded into the DTZ cache on first use; null on failure.
std::shared_ptr<TBEntry> get_dtz_entry(uint64_t key);
// Records that a mapped table turned out to be corrupt; prints the message once.
void mark_broken(TBEntry* entry, const char* suffix);

// Pairs decoder. setup_pairs reads the header at data (never past end); null when it is
// malformed. decompress_pairs returns the 12-bit value stored for idx, or -1 when the
// compressed data is inconsistent.
PairsData* setup_pairs(const uint8_t* data, const uint8_t* end, uint64_t tb_size,
                       uint64_t size[3], const uint8_t** next, uint8_t* flags, bool wdl);
bool calc_symlen(PairsData* d, uint32_t s, std::vector<uint8_t>& state);
int decompress_pairs(const PairsData* d, uint64_t idx);
// Block and position inside the block of idx (the index-table walk); false when inconsistent.
bool locate_pairs(const PairsData* d, uint64_t idx, uint32_t* block, uint32_t* litidx);

inline uint32_t read_le16(const uint8_t* p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8; }
inline uint32_t read_le32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
