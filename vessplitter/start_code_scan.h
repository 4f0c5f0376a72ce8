// Looking for the 01 byte that ends every Annex-B start code, the splitter's
// per-byte cost. One interface, per-ISA kernels chosen once at load: NEON
// on 32-bit ARM when the CPU has it (armhf does not promise it), SSE2 on
// x86-64, and a portable one.
#pragma once

#include <bit>
#include <cstdint>

// Where the 01 bytes of a span lie: none before `first`, none from `end` on.
struct OnesSpan {
    int first;
    int end;
};

struct StartCodeScanKernel {
    const char* name;
    // Offset of the first 01 byte in bytes[i, len), or len.
    int (*find_one)(const uint8_t* bytes, int i, int len);
    // Copies len (at least 16) bytes and returns the exact span of their 01
    // bytes: the first one and one past the last, or {len, len}.
    OnesSpan (*copy_find)(uint8_t* dst, const uint8_t* src, int len);
};

// The fastest kernel this CPU runs.
const StartCodeScanKernel& start_code_scan();

// Every kernel this CPU runs, the portable one first; their count in *n.
const StartCodeScanKernel* const* start_code_scan_kernels(int* n);

// The loops shared by the vector kernels. V::ones(p) / V::ones_copy(dst, src)
// load 16 bytes (copying them) and return a mask with V::kBits bits per byte,
// byte 0 lowest, set where the byte is 01. The last block of a span overlaps
// the one before instead of stepping byte by byte.
template <class V>
int find_one_blocks(const uint8_t* bytes, int i, int len) {
    if (i >= len) return len;
    if (len < 16) {
        for (; i < len; ++i)
            if (bytes[i] == 1) return i;
        return len;
    }
    for (; len - i > 32; i += 32) {
        const uint64_t a = V::ones(bytes + i);
        const uint64_t b = V::ones(bytes + i + 16);
        if ((a | b) != 0)
            return a != 0 ? i + std::countr_zero(a) / V::kBits : i + 16 + std::countr_zero(b) / V::kBits;
    }
    if (len - i > 16) {
        if (const uint64_t m = V::ones(bytes + i); m != 0) return i + std::countr_zero(m) / V::kBits;
        i += 16;
    }
    // Bytes before i in the last block were looked at already, or lie before
    // the span but inside the buffer.
    const int at = len - 16;
    const uint64_t m = V::ones(bytes + at) >> (V::kBits * (i - at));
    return m != 0 ? i + std::countr_zero(m) / V::kBits : len;
}

template <class V>
OnesSpan copy_find_blocks(uint8_t* dst, const uint8_t* src, int len) {
    OnesSpan span{len, len};
    // m's bits below `from` stand for bytes already noted.
    auto note = [&](int at, uint64_t m, int from) {
        if ((m >> (V::kBits * from)) == 0) return;
        if (span.first == len)
            span.first = at + from + std::countr_zero(m >> (V::kBits * from)) / V::kBits;
        span.end = at + (63 - std::countl_zero(m)) / V::kBits + 1;
    };
    int i = 0;
    for (; len - i > 16; i += 16) note(i, V::ones_copy(dst + i, src + i), 0);
    const int at = len - 16;
    note(at, V::ones_copy(dst + at, src + at), i - at);
    return span;
}

extern const StartCodeScanKernel kScanNeon;  // defined only in ARM builds
