// Looking for start codes, the splitter's per-byte cost. A start code's 01
// always follows a 00; in slice data a 00 01 pair turns up about once in
// 64 KiB, a lone 01 every 256 bytes: the kernels look for 00 01 pairs and
// the caller checks the byte before. One interface,
// per-ISA kernels chosen once at load: NEON on 32-bit ARM when the CPU has
// it (armhf does not promise it), SSE2 on x86-64, and a portable one.
#pragma once

#include <bit>
#include <cstdint>

// Where in a push its candidate 01 bytes lie (those after a 00, or at the
// push's first byte): none before `first`, none from `end` on.
struct OnesSpan {
    int first;
    int end;
};

struct StartCodeScanKernel {
    const char* name;
    // Offset of the first 01 byte after a 00 in bytes[i, len), or len; i >= 1.
    int (*find_pair)(const uint8_t* bytes, int i, int len);
    // Copies len (at least 16) bytes and returns {first candidate 01, len},
    // or {len, len} when there is none.
    OnesSpan (*copy_find)(uint8_t* dst, const uint8_t* src, int len);
};

// The fastest kernel this CPU runs.
const StartCodeScanKernel& start_code_scan();

// Every kernel this CPU runs, the portable one first; their count in *n.
const StartCodeScanKernel* const* start_code_scan_kernels(int* n);

// The byte loops: the portable kernel and the vector kernels' short spans.
inline int find_pair_bytes(const uint8_t* bytes, int i, int len) {
    for (; i < len; ++i)
        if (bytes[i] == 1 && bytes[i - 1] == 0) return i;
    return len;
}

inline OnesSpan pair_span_bytes(const uint8_t* src, int len) {
    return {src[0] == 1 ? 0 : find_pair_bytes(src, 1, len), len};
}

// The loops shared by the vector kernels. V::pairs(p) looks at the 16 bytes
// at p and the byte before each and returns a mask with V::kBits bits per
// byte, byte 0 lowest, set where a 01 follows a 00; V::any_ones64(p) tells
// whether 64 bytes hold a 01 at all. V::Acc collects pair lanes while copying:
// V::copy_acc(dst, src, acc) copies 16 bytes, V::copy_first the first 16 of
// a push (without the byte before), V::any(acc) tells whether any was seen.
// Lane of the lowest set bit of a non-zero mask, in 32-bit halves: a 64-bit
// count is a library call on 32-bit ARM.
template <class V>
int first_lane(uint64_t m) {
    const auto lo = static_cast<uint32_t>(m);
    return (lo != 0 ? std::countr_zero(lo) : 32 + std::countr_zero(static_cast<uint32_t>(m >> 32))) / V::kBits;
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

template <class V>
OnesSpan copy_find_blocks(uint8_t* dst, const uint8_t* src, int len) {
    // The first block has no byte before it here: its first byte counts as
    // following a 00, since it may end a start code begun in the last push.
    typename V::Acc acc = V::copy_first(dst, src);
    int i = 16;
    for (; len - i >= 16; i += 16) V::copy_acc(dst + i, src + i, acc);
    // The last block overlaps the one before.
    if (i < len) V::copy_acc(dst + len - 16, src + len - 16, acc);
    if (!V::any(acc)) return {len, len};
    return {src[0] == 1 ? 0 : find_pair_blocks<V>(src, 1, len), len};  // at start codes
}

extern const StartCodeScanKernel kScanNeon;  // defined only in ARM builds
