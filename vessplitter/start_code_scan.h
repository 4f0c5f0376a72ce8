// Looking for start codes, the splitter's per-byte cost. A start code's 01
// always follows a 00, and a 00 01 pair occurs nowhere else in a conforming
// stream (emulation prevention), whereas a lone 01 byte turns up every 256
// bytes of slice data: the kernels look for 00 01 pairs. One interface,
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
    // Copies len (at least 16) bytes and returns the exact span of their
    // candidate 01 bytes: the first and one past the last, or {len, len}.
    OnesSpan (*copy_find)(uint8_t* dst, const uint8_t* src, int len);
};

// The fastest kernel this CPU runs.
const StartCodeScanKernel& start_code_scan();

// Every kernel this CPU runs, the portable one first; their count in *n.
const StartCodeScanKernel* const* start_code_scan_kernels(int* n);

// The byte loops: the portable kernel, and the vector kernels' short spans
// and rare exact-span pass.
inline int find_pair_bytes(const uint8_t* bytes, int i, int len) {
    for (; i < len; ++i)
        if (bytes[i] == 1 && bytes[i - 1] == 0) return i;
    return len;
}

inline OnesSpan pair_span_bytes(const uint8_t* src, int len) {
    const int first = src[0] == 1 ? 0 : find_pair_bytes(src, 1, len);
    if (first == len) return {len, len};
    int end = len;
    while (end - 1 > first && !(src[end - 1] == 1 && src[end - 2] == 0)) --end;
    return {first, end};
}

// The loops shared by the vector kernels. V::pairs(p) looks at the 16 bytes
// at p and the byte before each and returns a mask with V::kBits bits per
// byte, byte 0 lowest, set where a 01 follows a 00; V::any_pairs32(p) tells
// whether 32 bytes hold any. V::Acc collects pair lanes while copying:
// V::copy_acc(dst, src, acc) copies 16 bytes, V::copy_first the first 16 of
// a push (without the byte before), V::any(acc) tells whether any was seen.
template <class V>
int find_pair_blocks(const uint8_t* bytes, int i, int len) {
    if (len - i < 32) return find_pair_bytes(bytes, i, len);
    for (; len - i >= 32; i += 32) {
        if (!V::any_pairs32(bytes + i)) continue;
        if (const uint64_t a = V::pairs(bytes + i); a != 0) return i + std::countr_zero(a) / V::kBits;
        return i + 16 + std::countr_zero(V::pairs(bytes + i + 16)) / V::kBits;
    }
    return find_pair_bytes(bytes, i, len);
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
    return pair_span_bytes(src, len);  // rare: at start codes
}

extern const StartCodeScanKernel kScanNeon;  // defined only in ARM builds
