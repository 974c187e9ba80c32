// Pairs decoder of compressed sub-tables: header set-up (symbol lengths, code bases) and the
// lookup of the value stored for an index, checked against the mapped areas throughout.
#include <cstdint>
#include <vector>

#include "fathom/tbcore.h"

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
    uint32_t sym;
    for (;;) {
        int l = 0;
        while (code < base[l]) l++;
        const int len = min_len + l;
        sym = first_sym[l] + ((code - base[l]) >> (32 - len));
        if (sym >= d->num_syms) return -1;
        if (litidx <= symlen[sym]) break;
        litidx -= uint32_t(symlen[sym]) + 1;
        // Symbols starting inside the block never need bits beyond its end plus two words.
        if (next_word > blen + 8) return -1;
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
