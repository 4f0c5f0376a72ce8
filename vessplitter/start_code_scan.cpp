// Kernel choice and the portable and x86-64 kernels; the NEON one lives in
// its own file, the only one built with NEON enabled.
#include "start_code_scan.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__arm__)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace {

int find_pair_portable(const uint8_t* bytes, int i, int len) { return find_pair_bytes(bytes, i, len); }

OnesSpan copy_find_portable(uint8_t* dst, const uint8_t* src, int len) {
    std::memcpy(dst, src, static_cast<size_t>(len));
    return pair_span_bytes(src, len);
}

constexpr StartCodeScanKernel kScanPortable{"portable", find_pair_portable, copy_find_portable};

#if defined(__SSE2__)
struct Sse2 {
    using Acc = __m128i;
    static constexpr int kBits = 1;
    static __m128i load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    // Lanes where v is 01 and prev 00.
    static __m128i pair_lanes(__m128i v, __m128i prev) {
        return _mm_and_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8(1)), _mm_cmpeq_epi8(prev, _mm_setzero_si128()));
    }
    static uint64_t pairs(const uint8_t* p) {
        return static_cast<uint32_t>(_mm_movemask_epi8(pair_lanes(load(p), load(p - 1))));
    }
    static bool any_ones64(const uint8_t* p) {
        const __m128i one = _mm_set1_epi8(1);
        __m128i m = _mm_cmpeq_epi8(load(p), one);
        for (int k = 16; k < 64; k += 16) m = _mm_or_si128(m, _mm_cmpeq_epi8(load(p + k), one));
        return _mm_movemask_epi8(m) != 0;
    }
    static Acc copy_first(uint8_t* dst, const uint8_t* src) {
        const __m128i v = load(src);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), v);
        return pair_lanes(v, _mm_slli_si128(v, 1));  // a 00 shifted in before byte 0
    }
    static void copy_acc(uint8_t* dst, const uint8_t* src, Acc& acc) {
        const __m128i v = load(src);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), v);
        acc = _mm_or_si128(acc, pair_lanes(v, load(src - 1)));
    }
    static bool any(Acc acc) { return _mm_movemask_epi8(acc) != 0; }
};

constexpr StartCodeScanKernel kScanSse2{"sse2", find_pair_blocks<Sse2>, copy_find_blocks<Sse2>};
#endif

struct Kernels {
    const StartCodeScanKernel* all[2];
    int n;
};

Kernels runnable() {
    Kernels k{{&kScanPortable, nullptr}, 1};
#if defined(__SSE2__)
    k.all[k.n++] = &kScanSse2;
#elif defined(__arm__)
    if ((getauxval(AT_HWCAP) & HWCAP_NEON) != 0) k.all[k.n++] = &kScanNeon;
#endif
    return k;
}

const Kernels kRunnable = runnable();

}  // namespace

const StartCodeScanKernel& start_code_scan() { return *kRunnable.all[kRunnable.n - 1]; }

const StartCodeScanKernel* const* start_code_scan_kernels(int* n) {
    *n = kRunnable.n;
    return kRunnable.all;
}
