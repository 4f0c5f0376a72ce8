// Looking for start codes, the splitter's per-byte cost. A start code's 01
// always follows a 00; in slice data a 00 01 pair turns up about once in
// 64 KiB, a lone 01 every 256 bytes: the pair search looks for 00 01 pairs
// and the caller checks the byte before. A push is copied into the ring and
// its start codes listed in one pass, blocks ruled out by their 16-bit lanes
// and the pair search run only in the rest. One interface, per-ISA kernels
// chosen once at load: NEON on 32-bit ARM when the CPU has it (armhf does
// not promise it), SSE2 on x86-64, and a portable one.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

// The start codes of one push, listed while it is copied: the offsets of
// their 01 bytes, where the two bytes before are in the push too (offset 2
// on; a start code completed by the push's first bytes is the caller's to
// find). Every start code whose 01 lies below `complete` is listed; when
// the list fills, `complete` stops at the first one left out.
struct StartList {
    static constexpr int kMax = 32;
    int n;
    int complete;
    int at[kMax];
};

struct StartCodeScanKernel {
    const char* name;
    // Offset of the first 01 byte after a 00 in bytes[i, len), or len; i >= 1.
    int (*find_pair)(const uint8_t* bytes, int i, int len);
    // Copies len bytes and lists the push's start codes.
    void (*copy_starts)(uint8_t* dst, const uint8_t* src, int len, StartList& out);
};

// The fastest kernel this CPU runs, chosen at load.
[[gnu::visibility("hidden")]] extern const StartCodeScanKernel* const start_code_scan_best;
inline const StartCodeScanKernel& start_code_scan() { return *start_code_scan_best; }

// Every kernel this CPU runs, the portable one first; their count in *n.
const StartCodeScanKernel* const* start_code_scan_kernels(int* n);

// The byte loops: the portable kernel and the vector kernels' short spans.
inline int find_pair_bytes(const uint8_t* bytes, int i, int len) {
    for (; i < len; ++i)
        if (bytes[i] == 1 && bytes[i - 1] == 0) return i;
    return len;
}

inline void add_start(StartList& out, int len, int at) {
    if (out.complete != len) return;  // full already
    if (out.n == StartList::kMax)
        out.complete = at;
    else
        out.at[out.n++] = at;
}

// Lists the start codes whose 01 lies in [from, to), from >= 2, through the
// kernel's pair search.
template <int (*FindPair)(const uint8_t*, int, int)>
void list_starts(const uint8_t* src, int from, int to, int len, StartList& out) {
    for (int j = from; (j = FindPair(src, j, to)) < to; ++j)
        if (src[j - 2] == 0) add_start(out, len, j);
}

// The loops shared by the vector kernels. V::pairs(p) looks at the 16 bytes
// at p and the byte before each and returns a mask with V::kBits bits per
// byte, byte 0 lowest, set where a 01 follows a 00; V::any_ones64(p) tells
// whether 64 bytes hold a 01 at all.
// Lane of the lowest set bit of a non-zero mask, in 32-bit halves: a 64-bit
// count is a library call on 32-bit ARM.
template <class V>
int first_lane(uint64_t m) {
    const auto lo = static_cast<uint32_t>(m);
    return (lo != 0 ? std::countr_zero(lo)
                    : 32 + std::countr_zero(static_cast<uint32_t>(m >> 32))) /
           V::kBits;
}

template <class V>
int find_pair_blocks(const uint8_t* bytes, int i, int len) {
    if (len - i < 16 || len < 17) return find_pair_bytes(bytes, i, len);
    for (; len - i >= 64; i += 64) {
        // A lone 01 turns up in a fifth of 64-byte blocks of slice data; a
        // pair almost never. The test for 01 alone is the cheaper one.
        if (!V::any_ones64(bytes + i)) continue;
        for (int k = 0; k < 64; k += 16)
            if (const uint64_t m = V::pairs(bytes + i + k); m != 0) return i + k + first_lane<V>(m);
    }
    for (; len - i >= 16; i += 16)
        if (const uint64_t m = V::pairs(bytes + i); m != 0) return i + first_lane<V>(m);
    if (i == len) return len;
    // The last block overlaps the one before; the bytes before i in it were
    // looked at already.
    const int at = len - 16;
    const uint64_t m = V::pairs(bytes + at) >> (V::kBits * (i - at));
    return m != 0 ? i + first_lane<V>(m) : len;
}

// Copy and look in 128-byte blocks. V::copy_blocks(dst, src, n) copies n
// blocks and tells whether each could hold a start code: it returns the
// index of the first block that may (having copied it), or n. A block at b
// is taken by its 16-bit lanes (b, b + 1), (b + 2, b + 3) ...: one of them
// is 00 00 or 00 01 for every 00 00 01 whose 01 lies in [b + 1, b + 128],
// and in slice data a lane is that about once in 32768. V::copy_block64
// does the same for one 64-byte block and tells whether it may hold one.
template <class V>
void copy_starts_blocks(uint8_t* dst, const uint8_t* src, int len, StartList& out) {
    out.n = 0;
    out.complete = len;
    constexpr int kBlock = 128;
    if (len < kBlock) {
        if (len > 0) std::memcpy(dst, src, static_cast<size_t>(len));
        if (len > 2) list_starts<find_pair_blocks<V>>(src, 2, len, len, out);
        return;
    }
    const int blocks = len / kBlock;
    for (int b = 0; b < blocks;) {
        const int hit = b + V::copy_blocks(dst + b * kBlock, src + b * kBlock, blocks - b);
        if (hit == blocks) break;
        const int base = hit * kBlock;
        list_starts<find_pair_blocks<V>>(src, base + 1 > 2 ? base + 1 : 2,
                                         base + kBlock + 1 < len ? base + kBlock + 1 : len, len,
                                         out);
        b = hit + 1;
    }
    // The rest as the last 64 or 128 bytes, overlapping the blocks before
    // (a 64-byte block at b holds the start codes whose 01 lies in
    // [b + 1, b + 64]).
    const int done = blocks * kBlock;
    if (done == len) return;
    const bool hit = len - done <= 64
                         ? V::copy_block64(dst + len - 64, src + len - 64)
                         : V::copy_blocks(dst + len - kBlock, src + len - kBlock, 1) == 0;
    if (hit) list_starts<find_pair_blocks<V>>(src, done + 1, len, len, out);
}

extern const StartCodeScanKernel kScanNeon;  // defined only in ARM builds
