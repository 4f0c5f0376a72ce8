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

int find_pair_portable(const uint8_t* bytes, int i, int len) {
    return find_pair_bytes(bytes, i, len);
}

void copy_starts_portable(uint8_t* dst, const uint8_t* src, int len, StartList& out) {
    out.n = 0;
    out.complete = len;
    if (len > 0) std::memcpy(dst, src, static_cast<size_t>(len));
    if (len > 2) list_starts<find_pair_bytes>(src, 2, len, len, out);
}

constexpr StartCodeScanKernel kScanPortable{"portable", find_pair_portable, copy_starts_portable};

#if defined(__SSE2__)
struct Sse2 {
    using Acc = __m128i;
    static constexpr int kBits = 1;
    static __m128i load(const uint8_t* p) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    }
    // Lanes where v is 01 and prev 00.
    static __m128i pair_lanes(__m128i v, __m128i prev) {
        return _mm_and_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8(1)),
                             _mm_cmpeq_epi8(prev, _mm_setzero_si128()));
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
    // Lanes (b, b + 1) that are 00 00 or 00 01: (lane & FEFF) == 0.
    static int copy_blocks(uint8_t* dst, const uint8_t* src, int n) {
        const __m128i mask = _mm_set1_epi16(static_cast<short>(0xFEFF));
        for (int b = 0; b < n; ++b, src += 128, dst += 128) {
            __m128i hit = _mm_setzero_si128();
            for (int k = 0; k < 128; k += 16) {
                const __m128i v = load(src + k);
                _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + k), v);
                hit =
                    _mm_or_si128(hit, _mm_cmpeq_epi16(_mm_and_si128(v, mask), _mm_setzero_si128()));
            }
            if (_mm_movemask_epi8(hit) != 0) return b;
        }
        return n;
    }
    static bool copy_block64(uint8_t* dst, const uint8_t* src) {
        const __m128i mask = _mm_set1_epi16(static_cast<short>(0xFEFF));
        __m128i hit = _mm_setzero_si128();
        for (int k = 0; k < 64; k += 16) {
            const __m128i v = load(src + k);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + k), v);
            hit = _mm_or_si128(hit, _mm_cmpeq_epi16(_mm_and_si128(v, mask), _mm_setzero_si128()));
        }
        return _mm_movemask_epi8(hit) != 0;
    }
};

constexpr StartCodeScanKernel kScanSse2{"sse2", find_pair_blocks<Sse2>, copy_starts_blocks<Sse2>};
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

const StartCodeScanKernel* const start_code_scan_best = kRunnable.all[kRunnable.n - 1];

const StartCodeScanKernel* const* start_code_scan_kernels(int* n) {
    *n = kRunnable.n;
    return kRunnable.all;
}
