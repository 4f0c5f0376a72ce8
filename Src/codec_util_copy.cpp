// NEON is enabled for this file's ARM kernel only; it runs only where the CPU
// reports NEON (armhf does not promise it).
#if defined(__arm__)
#pragma GCC target("fpu=neon")
#include <arm_neon.h>
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

#include <cstring>

#include "codec_util_copy.h"

namespace codecutil {
namespace {

void copy_memcpy(uint8_t* dst, const uint8_t* src, size_t size) {
    if (size != 0) std::memcpy(dst, src, size);
}

#if defined(__arm__)
void copy_neon(uint8_t* dst, const uint8_t* src, size_t size) {
    if (size >= 64) {
        // 64 bytes a turn (two 32-byte loads and stores) while more than 64
        // are left, then the last 64, overlapping what the turns wrote.
        const uint8_t* src_last = src + size - 64;
        uint8_t* dst_last = dst + size - 64;
        size_t beyond = size - 64;
        asm volatile(
            "cmp %2, #0\n\t"
            "beq 2f\n"
            "1:\n\t"
            "vld1.8 {d16-d19}, [%0]!\n\t"
            "vld1.8 {d20-d23}, [%0]!\n\t"
            "subs %2, %2, #64\n\t"
            "vst1.8 {d16-d19}, [%1]!\n\t"
            "vst1.8 {d20-d23}, [%1]!\n\t"
            "bhi 1b\n"
            "2:\n\t"
            "vld1.8 {d16-d19}, [%3]!\n\t"
            "vld1.8 {d20-d23}, [%3]\n\t"
            "vst1.8 {d16-d19}, [%4]!\n\t"
            "vst1.8 {d20-d23}, [%4]"
            : "+r"(src), "+r"(dst), "+r"(beyond), "+r"(src_last), "+r"(dst_last)
            :
            : "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "cc", "memory");
        return;
    }
    if (size < 16) {
        copy_memcpy(dst, src, size);
        return;
    }
    // 16 to 63 bytes: 16 at a time, then the last 16 overlapping.
    const uint8x16_t last = vld1q_u8(src + size - 16);
    uint8_t* const last_at = dst + size - 16;
    for (; size > 16; size -= 16, src += 16, dst += 16) vst1q_u8(dst, vld1q_u8(src));
    vst1q_u8(last_at, last);
}
#endif

struct Kernels {
    CopyFn all[2];
    int n;
};

Kernels runnable() {
    Kernels k{{copy_memcpy, nullptr}, 1};
#if defined(__arm__)
    if ((getauxval(AT_HWCAP) & HWCAP_NEON) != 0) k.all[k.n++] = copy_neon;
#endif
    return k;
}

const Kernels kRunnable = runnable();

}  // namespace

const CopyFn copy_bytes = kRunnable.all[kRunnable.n - 1];

const CopyFn* copy_kernels(int* n) {
    *n = kRunnable.n;
    return kRunnable.all;
}

}  // namespace codecutil
