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

int find_one_portable(const uint8_t* bytes, int i, int len) {
    if (i >= len) return len;
    const void* one = std::memchr(bytes + i, 1, static_cast<size_t>(len - i));
    return one != nullptr ? static_cast<int>(static_cast<const uint8_t*>(one) - bytes) : len;
}

OnesSpan copy_find_portable(uint8_t* dst, const uint8_t* src, int len) {
    std::memcpy(dst, src, static_cast<size_t>(len));
    const int first = find_one_portable(src, 0, len);
    if (first == len) return {len, len};
    const void* last = memrchr(src, 1, static_cast<size_t>(len));
    return {first, static_cast<int>(static_cast<const uint8_t*>(last) - src) + 1};
}

constexpr StartCodeScanKernel kScanPortable{"portable", find_one_portable, copy_find_portable};

#if defined(__SSE2__)
struct Sse2 {
    static constexpr int kBits = 1;
    static uint64_t mask(__m128i v) {
        return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8(1))));
    }
    static uint64_t ones(const uint8_t* p) {
        return mask(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    }
    static uint64_t ones_copy(uint8_t* dst, const uint8_t* src) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), v);
        return mask(v);
    }
};

constexpr StartCodeScanKernel kScanSse2{"sse2", find_one_blocks<Sse2>, copy_find_blocks<Sse2>};
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
