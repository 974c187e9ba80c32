// Tablebase registry: the directory list, the table entries and their material hash, lazy
// mapping of WDL files and the DTZ entry cache.
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

void mark_broken(TBEntry* e, const char* suffix) {
    if (!e->broken.exchange(true)) fprintf(stderr, "Corrupted table %s%s.\n", e->name, suffix);
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
