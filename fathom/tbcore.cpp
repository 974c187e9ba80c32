// Tablebase registry: the directory list, the table entries and their material hash, lazy
// mapping of WDL files, the DTZ entry cache, and the pairs decoder of compressed sub-tables.
#include "fathom/tbcore.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fathom/tbindex.h"

int TB_LARGEST = 0;
std::string path_string;
std::vector<std::string> paths;
TBEntry_piece TB_piece[TBMAX_PIECE];
TBEntry_pawn TB_pawn[TBMAX_PAWN];
int TBnum_piece = 0;
int TBnum_pawn = 0;
TBHashEntry TB_hash[1 << TBHASHBITS][HSHMAX];
DTZTableEntry DTZ_table[DTZ_ENTRIES];
std::mutex TB_MUTEX;

namespace {

const char pchr[] = "KQRBNP";

// Random per-(colour, type) constants; material keys are sums of them. The seed is one for
// which every material of up to six pieces, in both colourings, fits the hash buckets.
struct KeyTable {
    uint64_t k[2][7];
};

constexpr KeyTable build_keys() {
    KeyTable t{};
    uint64_t s = 4;
    for (int c = 0; c < 2; c++)
        for (int type = TB_PAWN; type <= TB_KING; type++) {
            s += 0x9E3779B97F4A7C15ull;
            uint64_t z = s;
            z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
            z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
            t.k[c][type] = z ^ (z >> 31);
        }
    return t;
}

constexpr KeyTable MATERIAL_KEYS = build_keys();

int letter_type(char c) {
    switch (c) {
        case 'K': return TB_KING;
        case 'Q': return TB_QUEEN;
        case 'R': return TB_ROOK;
        case 'B': return TB_BISHOP;
        case 'N': return TB_KNIGHT;
        case 'P': return TB_PAWN;
        default: return 0;
    }
}

enum class MapResult { ok, missing, unusable };

// Maps a table file read-only. A file that opens but is empty (or cannot be sized) is
// reported as unusable; one that is non-empty and still cannot be mapped ends the program.
const uint8_t* map_table(const char* name, const char* suffix, uint64_t* size, MapResult* res) {
    *size = 0;
    int fd = open_tb(name, suffix);
    if (fd < 0) {
        *res = MapResult::missing;
        return nullptr;
    }
    struct stat st;
    if (fstat(fd, &st) != 0) {
        perror("fstat");
        close(fd);
        *res = MapResult::unusable;
        return nullptr;
    }
    if (st.st_size <= 0) {
        close(fd);
        *res = MapResult::unusable;
        return nullptr;
    }
    const uint64_t len = uint64_t(st.st_size);
    void* m = MAP_FAILED;
    if (len <= uint64_t(SIZE_MAX)) m = mmap(nullptr, size_t(len), PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    if (m == MAP_FAILED) {
        fprintf(stderr, "Could not mmap() %s%s.\n", name, suffix);
        exit(1);
    }
    *size = len;
    *res = MapResult::ok;
    return static_cast<const uint8_t*>(m);
}

void reset_entry(TBEntry* e) {
    e->data = nullptr;
    e->mapsize = 0;
    e->key = e->key2 = e->tw_key = 0;
    e->ready.store(false);
    e->broken.store(false);
    e->num = 0;
    e->symmetric = e->has_pawns = false;
    e->p0 = e->p1 = 0;
    memset(e->counts, 0, sizeof e->counts);
    memset(e->name, 0, sizeof e->name);
}

// Maps the file of an entry and sets up its sub-tables; prints why when that fails.
bool load_table(TBEntry* e, const char* suffix, bool wdl) {
    uint64_t size;
    MapResult res;
    const uint8_t* data = map_table(e->name, suffix, &size, &res);
    if (!data) {
        if (res == MapResult::missing)
            fprintf(stderr, "Could not find %s%s\n", e->name, suffix);
        else
            fprintf(stderr, "Corrupted table.\n");
        return false;
    }
    e->data = data;
    e->mapsize = size;
    if (!init_table(e, data, size, wdl)) {
        fprintf(stderr, "Corrupted table.\n");
        free_wdl_entry(e);
        return false;
    }
    return true;
}

template <class Entry>
std::shared_ptr<TBEntry> new_dtz_entry() {
    return std::shared_ptr<TBEntry>(new Entry, [](TBEntry* p) {
        free_wdl_entry(p);
        delete static_cast<Entry*>(p);
    });
}

void register_name(const char* name, void*) {
    char buf[TBPIECES + 4];
    snprintf(buf, sizeof buf, "%s", name);
    init_tb(buf);
}

}  // namespace

uint64_t material_key(const uint8_t counts[2][7]) {
    uint64_t key = 0;
    for (int c = 0; c < 2; c++)
        for (int type = TB_PAWN; type <= TB_KING; type++) key += counts[c][type] * MATERIAL_KEYS.k[c][type];
    return key;
}

void for_each_table_name(void (*fn)(const char* name, void* ctx), void* ctx) {
    char s[16];
    for (int w = 1; w < 6; w++) {
        snprintf(s, sizeof s, "K%cvK", pchr[w]);
        fn(s, ctx);
    }
    for (int w = 1; w < 6; w++)
        for (int x = w; x < 6; x++) {
            snprintf(s, sizeof s, "K%cvK%c", pchr[w], pchr[x]);
            fn(s, ctx);
        }
    for (int w = 1; w < 6; w++)
        for (int x = w; x < 6; x++) {
            snprintf(s, sizeof s, "K%c%cvK", pchr[w], pchr[x]);
            fn(s, ctx);
        }
    for (int w = 1; w < 6; w++)
        for (int x = w; x < 6; x++)
            for (int y = 1; y < 6; y++) {
                snprintf(s, sizeof s, "K%c%cvK%c", pchr[w], pchr[x], pchr[y]);
                fn(s, ctx);
            }
    for (int w = 1; w < 6; w++)
        for (int x = w; x < 6; x++)
            for (int y = x; y < 6; y++) {
                snprintf(s, sizeof s, "K%c%c%cvK", pchr[w], pchr[x], pchr[y]);
                fn(s, ctx);
            }
    for (int w = 1; w < 6; w++)
        for (int x = w; x < 6; x++)
            for (int y = w; y < 6; y++)
                for (int z = (w == y ? x : y); z < 6; z++) {
                    snprintf(s, sizeof s, "K%c%cvK%c%c", pchr[w], pchr[x], pchr[y], pchr[z]);
                    fn(s, ctx);
                }
    for (int w = 1; w < 6; w++)
        for (int x = w; x < 6; x++)
            for (int y = x; y < 6; y++)
                for (int z = 1; z < 6; z++) {
                    snprintf(s, sizeof s, "K%c%c%cvK%c", pchr[w], pchr[x], pchr[y], pchr[z]);
                    fn(s, ctx);
                }
    for (int w = 1; w < 6; w++)
        for (int x = w; x < 6; x++)
            for (int y = x; y < 6; y++)
                for (int z = y; z < 6; z++) {
                    snprintf(s, sizeof s, "K%c%c%c%cvK", pchr[w], pchr[x], pchr[y], pchr[z]);
                    fn(s, ctx);
                }
}

int open_tb(const char* name, const char* suffix) {
    for (const std::string& dir : paths) {
        std::string file = dir + "/" + name + suffix;
        int fd = open(file.c_str(), O_RDONLY);
        if (fd >= 0) return fd;
    }
    return -1;
}

const uint8_t* map_file(const char* name, const char* suffix, uint64_t* size) {
    MapResult res;
    return map_table(name, suffix, size, &res);
}

void unmap_file(const uint8_t* data, uint64_t size) {
    if (data) munmap(const_cast<uint8_t*>(data), size_t(size));
}

void add_to_hash(TBEntry* ptr, uint64_t key) {
    TBHashEntry* bucket = TB_hash[key >> (64 - TBHASHBITS)];
    int i = 0;
    while (i < HSHMAX && bucket[i].ptr) i++;
    if (i == HSHMAX) {
        fprintf(stderr, "HSHMAX too low!\n");
        exit(1);
    }
    bucket[i].key = key;
    bucket[i].ptr = ptr;
}

void init_tb(char* name) {
    int fd = open_tb(name, ".rtbw");
    if (fd < 0) return;
    close(fd);

    uint8_t counts[2][7] = {};
    int side = 0, num = 0;
    for (const char* s = name; *s; s++) {
        if (*s == 'v') {
            side = 1;
            continue;
        }
        counts[side][letter_type(*s)]++;
        num++;
    }
    uint8_t swapped[2][7];
    for (int type = 0; type < 7; type++) {
        swapped[0][type] = counts[1][type];
        swapped[1][type] = counts[0][type];
    }
    const uint64_t key = material_key(counts), key2 = material_key(swapped);
    const bool pawns = counts[0][TB_PAWN] + counts[1][TB_PAWN] > 0;

    TBEntry* e;
    if (!pawns) {
        if (TBnum_piece == TBMAX_PIECE) {
            fprintf(stderr, "TBMAX_PIECE limit too low!\n");
            exit(1);
        }
        e = &TB_piece[TBnum_piece++];
    } else {
        if (TBnum_pawn == TBMAX_PAWN) {
            fprintf(stderr, "TBMAX_PAWN limit too low!\n");
            exit(1);
        }
        e = &TB_pawn[TBnum_pawn++];
    }
    reset_entry(e);
    snprintf(e->name, sizeof e->name, "%s", name);
    memcpy(e->counts, counts, sizeof counts);
    e->key = key;
    e->key2 = key2;
    e->num = uint8_t(num);
    e->symmetric = memcmp(counts, swapped, sizeof counts) == 0;
    e->has_pawns = pawns;
    if (pawns) {
        const int a = counts[0][TB_PAWN], b = counts[1][TB_PAWN];
        // The side with fewer pawns leads, unless it has none.
        e->p0 = uint8_t(a == 0 ? b : b == 0 ? a : std::min(a, b));
        e->p1 = uint8_t(a == 0 || b == 0 ? 0 : std::max(a, b));
    }
    if (num > TB_LARGEST) TB_LARGEST = num;
    add_to_hash(e, key);
    if (key2 != key) add_to_hash(e, key2);
}

void free_wdl_entry(TBEntry* e) {
    unmap_file(e->data, e->mapsize);
    e->data = nullptr;
    e->mapsize = 0;
    for (int f = 0; f < (e->has_pawns ? 4 : 1); f++)
        for (int side = 0; side < 2; side++) {
            SubTable* st = entry_sub(e, f, side);
            delete st->pairs;
            *st = SubTable();
        }
    e->ready.store(false);
    e->broken.store(false);
}

TBEntry* find_wdl_entry(uint64_t key) {
    const TBHashEntry* bucket = TB_hash[key >> (64 - TBHASHBITS)];
    for (int i = 0; i < HSHMAX && bucket[i].ptr; i++)
        if (bucket[i].key == key) return bucket[i].ptr;
    return nullptr;
}

bool ensure_wdl_mapped(TBEntry* e) {
    if (e->ready.load(std::memory_order_acquire)) return true;
    if (e->broken.load(std::memory_order_acquire)) return false;
    std::lock_guard<std::mutex> lock(TB_MUTEX);
    if (e->ready.load(std::memory_order_relaxed)) return true;
    if (e->broken.load(std::memory_order_relaxed)) return false;
    if (!load_table(e, ".rtbw", true)) {
        e->broken.store(true, std::memory_order_release);
        return false;
    }
    e->ready.store(true, std::memory_order_release);
    return true;
}

void mark_broken(TBEntry* e) {
    if (!e->broken.exchange(true)) fprintf(stderr, "Corrupted table %s.\n", e->name);
}

std::shared_ptr<TBEntry> get_dtz_entry(uint64_t key) {
    std::lock_guard<std::mutex> lock(TB_MUTEX);
    for (int i = 0; i < DTZ_ENTRIES; i++) {
        if (!DTZ_table[i].used || (DTZ_table[i].key1 != key && DTZ_table[i].key2 != key)) continue;
        std::rotate(DTZ_table, DTZ_table + i, DTZ_table + i + 1);
        return DTZ_table[0].entry;
    }
    const TBEntry* w = find_wdl_entry(key);
    if (!w) return nullptr;

    std::shared_ptr<TBEntry> e = w->has_pawns ? new_dtz_entry<TBEntry_pawn>() : new_dtz_entry<TBEntry_piece>();
    e->key = w->key;
    e->key2 = w->key2;
    e->num = w->num;
    e->symmetric = w->symmetric;
    e->has_pawns = w->has_pawns;
    e->p0 = w->p0;
    e->p1 = w->p1;
    memcpy(e->counts, w->counts, sizeof e->counts);
    memcpy(e->name, w->name, sizeof e->name);
    if (load_table(e.get(), ".rtbz", false))
        e->ready.store(true);
    else
        e.reset();  // remembered as missing: the message is printed once per cache entry

    for (int i = DTZ_ENTRIES - 1; i > 0; i--) DTZ_table[i] = std::move(DTZ_table[i - 1]);
    DTZ_table[0].key1 = w->key;
    DTZ_table[0].key2 = w->key2;
    DTZ_table[0].used = true;
    DTZ_table[0].entry = e;
    return e;
}

void tb_free() {
    std::lock_guard<std::mutex> lock(TB_MUTEX);
    for (int i = 0; i < TBnum_piece; i++) free_wdl_entry(&TB_piece[i]);
    for (int i = 0; i < TBnum_pawn; i++) free_wdl_entry(&TB_pawn[i]);
    for (DTZTableEntry& d : DTZ_table) d = DTZTableEntry();
    for (auto& bucket : TB_hash)
        for (TBHashEntry& h : bucket) h = TBHashEntry{0, nullptr};
    TBnum_piece = TBnum_pawn = 0;
    TB_LARGEST = 0;
    paths.clear();
    path_string.clear();
}

void tb_init(const char* path) {
    tb_free();
    if (!path || !*path || strcmp(path, "<empty>") == 0) return;
    path_string = path;
    size_t start = 0;
    while (start <= path_string.size()) {
        size_t end = path_string.find(':', start);
        if (end == std::string::npos) end = path_string.size();
        if (end > start) paths.push_back(path_string.substr(start, end - start));
        start = end + 1;
    }
    for_each_table_name(register_name, nullptr);
    printf("Found %d tablebases.\n", TBnum_piece + TBnum_pawn);
    fflush(stdout);
}

// ---------------------------------------------------------------------------------------
// Pairs decoder

bool calc_symlen(PairsData* d, uint32_t s, std::vector<uint8_t>& state) {
    // Depth-first over the symbol tree without recursion; state 1 marks symbols being
    // expanded, so a cycle in a corrupt file is caught instead of looping.
    std::vector<uint32_t> stack{s};
    while (!stack.empty()) {
        const uint32_t t = stack.back();
        if (state[t] == 2) {
            stack.pop_back();
            continue;
        }
        const uint8_t* w = d->sympat + 3 * size_t(t);
        const uint32_t left = w[0] | uint32_t(w[1] & 15) << 8;
        const uint32_t right = uint32_t(w[1] >> 4) | uint32_t(w[2]) << 4;
        if (right == 0xFFF) {
            d->symlen[t] = 0;
            state[t] = 2;
            stack.pop_back();
            continue;
        }
        if (left >= d->num_syms || right >= d->num_syms) return false;
        state[t] = 1;
        bool done = true;
        for (uint32_t c : {left, right}) {
            if (state[c] == 1) return false;
            if (state[c] == 0) {
                stack.push_back(c);
                done = false;
            }
        }
        if (!done) continue;
        const uint32_t len = uint32_t(d->symlen[left]) + d->symlen[right] + 1;
        if (len > 0xFFFF) return false;
        d->symlen[t] = uint16_t(len);
        state[t] = 2;
        stack.pop_back();
    }
    return true;
}

PairsData* setup_pairs(const uint8_t* data, const uint8_t* end, uint64_t tb_size, uint64_t size[3],
                       const uint8_t** next, uint8_t* flags, bool wdl) {
    const uint64_t avail = uint64_t(end - data);
    if (avail < 2) return nullptr;
    *flags = data[0];
    if (data[0] & 0x80) {
        PairsData* d = new PairsData;
        d->single = true;
        d->min_len = wdl ? data[1] : 0;
        d->tb_size = tb_size;
        size[0] = size[1] = size[2] = 0;
        *next = data + 2;
        return d;
    }
    if (avail < 12) return nullptr;
    const int blocksize = data[1], idxbits = data[2], max_len = data[8], min_len = data[9];
    const uint64_t real_blocks = read_le32(data + 4);
    const uint64_t blocks = real_blocks + data[3];
    if (min_len < 1 || max_len > 32 || min_len > max_len || idxbits < 1 || idxbits > 32 ||
        blocksize < 1 || blocksize > 24 || blocks > 0xFFFFFFFFull)
        return nullptr;
    const int h = max_len - min_len + 1;
    if (avail < 12 + 2 * uint64_t(h)) return nullptr;
    const uint32_t n = read_le16(data + 10 + 2 * h);
    const uint64_t hdr_len = 12 + 2 * uint64_t(h) + 3 * uint64_t(n) + (n & 1);
    if (n == 0 || avail < hdr_len) return nullptr;

    PairsData* d = new PairsData;
    d->tb_size = tb_size;
    d->blocksize = uint8_t(blocksize);
    d->idxbits = uint8_t(idxbits);
    d->min_len = uint8_t(min_len);
    d->max_len = uint8_t(max_len);
    d->num_blocks = uint32_t(blocks);
    d->real_num_blocks = uint32_t(real_blocks);
    d->num_syms = n;
    d->offset = data + 10;
    d->sympat = data + 12 + 2 * h;
    size[0] = 6 * ((tb_size >> idxbits) + ((tb_size & ((uint64_t(1) << idxbits) - 1)) != 0));
    size[1] = 2 * blocks;
    size[2] = real_blocks << blocksize;
    *next = data + hdr_len;

    d->symlen.assign(n, 0);
    std::vector<uint8_t> state(n, 0);
    for (uint32_t s = 0; s < n; s++)
        if (state[s] != 2 && !calc_symlen(d, s, state)) {
            delete d;
            return nullptr;
        }

    // Smallest code of each length, longest length first; then left-align to 32 bits.
    std::vector<uint64_t> raw(h, 0);
    d->base.assign(h, 0);
    for (int i = h - 2; i >= 0; i--) {
        const int64_t v = (int64_t(raw[i + 1]) + int64_t(read_le16(d->offset + 2 * i)) -
                           int64_t(read_le16(d->offset + 2 * (i + 1)))) / 2;
        if (v < 0 || uint64_t(v) >= (uint64_t(1) << (min_len + i))) {
            delete d;
            return nullptr;
        }
        raw[i] = uint64_t(v);
    }
    for (int i = 0; i < h; i++) d->base[i] = uint32_t(raw[i] << (32 - (min_len + i)));
    d->first_sym.resize(h);
    for (int i = 0; i < h; i++) d->first_sym[i] = uint16_t(read_le16(d->offset + 2 * i));
    return d;
}

bool locate_pairs(const PairsData* d, uint64_t idx, uint32_t* block, uint32_t* litidx) {
    if (d->single || idx >= d->tb_size) return false;
    const uint64_t mainidx = idx >> d->idxbits;
    int64_t lit = int64_t(idx & ((uint64_t(1) << d->idxbits) - 1)) - (int64_t(1) << (d->idxbits - 1));
    const uint8_t* e = d->indextable + 6 * size_t(mainidx);
    uint32_t b = read_le32(e);
    lit += read_le16(e + 4);
    if (b >= d->num_blocks) return false;
    if (lit < 0) {
        do {
            if (b == 0) return false;
            b--;
            lit += int64_t(read_le16(d->sizetable + 2 * size_t(b))) + 1;
        } while (lit < 0);
    } else {
        while (lit > int64_t(read_le16(d->sizetable + 2 * size_t(b)))) {
            lit -= int64_t(read_le16(d->sizetable + 2 * size_t(b))) + 1;
            if (++b >= d->num_blocks) return false;
        }
    }
    *block = b;
    *litidx = uint32_t(lit);
    return true;
}

int decompress_pairs(const PairsData* d, uint64_t idx) {
    if (d->single) return d->min_len;
    uint32_t block, litidx;
    if (!locate_pairs(d, idx, &block, &litidx) || block >= d->real_num_blocks) return -1;

    const uint8_t* ptr = d->data + (size_t(block) << d->blocksize);
    const uint32_t blen = uint32_t(1) << d->blocksize;
    // Words past the end of the block read as zero: they can only follow the last symbol.
    auto word_at = [ptr, blen](uint32_t i) -> uint32_t {
        if (i + 4 <= blen)
            return uint32_t(ptr[i]) << 24 | uint32_t(ptr[i + 1]) << 16 | uint32_t(ptr[i + 2]) << 8 | ptr[i + 3];
        uint32_t w = 0;
        for (uint32_t k = 0; k < 4; k++) w = w << 8 | (i + k < blen ? ptr[i + k] : 0);
        return w;
    };

    const uint32_t* base = d->base.data();
    const uint16_t* symlen = d->symlen.data();
    const uint16_t* first_sym = d->first_sym.data();
    const int min_len = d->min_len;
    // code holds the next 32 bits of the stream; buf the avail bits that follow, left-aligned.
    uint32_t code = word_at(0), buf = 0, next_word = 4;
    int avail = 0;
    uint64_t consumed = 0;
    const uint64_t limit = uint64_t(blen) * 8;
    uint32_t sym;
    for (;;) {
        int l = 0;
        while (code < base[l]) l++;
        const int len = min_len + l;
        sym = first_sym[l] + ((code - base[l]) >> (32 - len));
        if (sym >= d->num_syms) return -1;
        if (litidx <= symlen[sym]) break;
        litidx -= uint32_t(symlen[sym]) + 1;
        consumed += uint64_t(len);
        if (consumed >= limit) return -1;
        if (len == 32) {  // only possible for 32-bit codes; keeps every shift below 32
            if (avail == 32) {
                code = buf;
                buf = 0;
                avail = 0;
            } else if (avail == 0) {
                code = word_at(next_word);
                next_word += 4;
            } else {
                const uint32_t w = word_at(next_word);
                next_word += 4;
                code = buf | w >> avail;
                buf = w << (32 - avail);
            }
        } else if (len <= avail) {
            code = code << len | buf >> (32 - len);
            buf <<= len;
            avail -= len;
        } else {
            code = code << len | buf >> (32 - len);
            const int rest = len - avail;
            buf = word_at(next_word);
            next_word += 4;
            code |= buf >> (32 - rest);
            buf <<= rest;
            avail = 32 - rest;
        }
    }
    while (symlen[sym] != 0) {
        const uint8_t* w = d->sympat + 3 * size_t(sym);
        const uint32_t left = w[0] | uint32_t(w[1] & 15) << 8;
        if (litidx <= symlen[left]) {
            sym = left;
        } else {
            litidx -= uint32_t(symlen[left]) + 1;
            sym = uint32_t(w[1] >> 4) | uint32_t(w[2]) << 4;
        }
    }
    const uint8_t* w = d->sympat + 3 * size_t(sym);
    return int(w[0] | uint32_t(w[1] & 15) << 8);
}
