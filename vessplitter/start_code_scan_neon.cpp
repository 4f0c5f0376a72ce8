// The NEON kernel. This file alone is built with NEON enabled; it runs only
// where the CPU reports NEON.
#include "start_code_scan.h"

#if defined(__arm__) && defined(__ARM_NEON)
#include <arm_neon.h>

namespace {

// ARMv7 has no byte movemask: narrowing each 16-bit pair of compare results
// by 4 leaves 4 bits per byte in one 64-bit lane.
struct Neon {
    using Acc = uint8x16_t;
    static constexpr int kBits = 4;
    // Lanes where v is 01 and prev 00.
    static uint8x16_t pair_lanes(uint8x16_t v, uint8x16_t prev) {
        return vandq_u8(vceqq_u8(v, vdupq_n_u8(1)), vceqq_u8(prev, vdupq_n_u8(0)));
    }
    static uint64_t pairs(const uint8_t* p) {
        const uint8x16_t m = pair_lanes(vld1q_u8(p), vld1q_u8(p - 1));
        // As two 32-bit lanes: a 64-bit lane move goes through the stack.
        const uint32x2_t w = vreinterpret_u32_u8(vshrn_n_u16(vreinterpretq_u16_u8(m), 4));
        return static_cast<uint64_t>(vget_lane_u32(w, 1)) << 32 | vget_lane_u32(w, 0);
    }
    static bool any_ones64(const uint8_t* p) {
        // 01 bytes become 00 under xor 01: the lane minimum tells.
        const uint8x16_t one = vdupq_n_u8(1);
        const uint8x16_t a = vminq_u8(veorq_u8(vld1q_u8(p), one), veorq_u8(vld1q_u8(p + 16), one));
        const uint8x16_t b =
            vminq_u8(veorq_u8(vld1q_u8(p + 32), one), veorq_u8(vld1q_u8(p + 48), one));
        const uint8x16_t m = vminq_u8(a, b);
        uint8x8_t d = vpmin_u8(vget_low_u8(m), vget_high_u8(m));
        d = vpmin_u8(d, d);  // the minima of all 64 in lanes 0 to 3
        return vget_lane_u32(vreinterpret_u32_u8(vceq_u8(d, vdup_n_u8(0))), 0) != 0;
    }
    // A lane (b, b + 1) byte-swapped is b * 256 + (b + 1): at most 1 when it
    // is 00 00 or 00 01. 32-byte loads and stores, the swapped lanes' minimum
    // taken over the block.
    static int copy_blocks(uint8_t* dst, const uint8_t* src, int n) {
        int left = n;
        uint32_t low;
        asm volatile(
            "1:\n\t"
            "vld1.8 {d16-d19}, [%[src]]!\n\t"
            "vld1.8 {d20-d23}, [%[src]]!\n\t"
            "vld1.8 {d24-d27}, [%[src]]!\n\t"
            "vld1.8 {d28-d31}, [%[src]]!\n\t"
            "vst1.8 {d16-d19}, [%[dst]]!\n\t"
            "vst1.8 {d20-d23}, [%[dst]]!\n\t"
            "vst1.8 {d24-d27}, [%[dst]]!\n\t"
            "vst1.8 {d28-d31}, [%[dst]]!\n\t"
            "vrev16.8 q8, q8\n\t"
            "vrev16.8 q9, q9\n\t"
            "vrev16.8 q10, q10\n\t"
            "vrev16.8 q11, q11\n\t"
            "vrev16.8 q12, q12\n\t"
            "vrev16.8 q13, q13\n\t"
            "vrev16.8 q14, q14\n\t"
            "vrev16.8 q15, q15\n\t"
            "vmin.u16 q8, q8, q9\n\t"
            "vmin.u16 q10, q10, q11\n\t"
            "vmin.u16 q12, q12, q13\n\t"
            "vmin.u16 q14, q14, q15\n\t"
            "vmin.u16 q8, q8, q10\n\t"
            "vmin.u16 q12, q12, q14\n\t"
            "vmin.u16 q8, q8, q12\n\t"
            "vpmin.u16 d16, d16, d17\n\t"
            "vpmin.u16 d16, d16, d16\n\t"
            "vpmin.u16 d16, d16, d16\n\t"
            "vmov.u16 %[low], d16[0]\n\t"
            "cmp %[low], #1\n\t"
            "bls 2f\n\t"
            "subs %[left], %[left], #1\n\t"
            "bne 1b\n"
            "2:"
            : [src] "+r"(src), [dst] "+r"(dst), [left] "+r"(left), [low] "=&r"(low)
            :
            : "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26", "d27",
              "d28", "d29", "d30", "d31", "cc", "memory");
        return n - left;
    }
    static bool copy_block64(uint8_t* dst, const uint8_t* src) {
        uint32_t low;
        asm volatile(
            "vld1.8 {d16-d19}, [%[src]]!\n\t"
            "vld1.8 {d20-d23}, [%[src]]\n\t"
            "vst1.8 {d16-d19}, [%[dst]]!\n\t"
            "vst1.8 {d20-d23}, [%[dst]]\n\t"
            "vrev16.8 q8, q8\n\t"
            "vrev16.8 q9, q9\n\t"
            "vrev16.8 q10, q10\n\t"
            "vrev16.8 q11, q11\n\t"
            "vmin.u16 q8, q8, q9\n\t"
            "vmin.u16 q10, q10, q11\n\t"
            "vmin.u16 q8, q8, q10\n\t"
            "vpmin.u16 d16, d16, d17\n\t"
            "vpmin.u16 d16, d16, d16\n\t"
            "vpmin.u16 d16, d16, d16\n\t"
            "vmov.u16 %[low], d16[0]"
            : [src] "+r"(src), [dst] "+r"(dst), [low] "=r"(low)
            :
            : "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "memory");
        return low <= 1;
    }
};

}  // namespace

const StartCodeScanKernel kScanNeon{"neon", find_pair_blocks<Neon>, copy_starts_blocks<Neon>};
#endif
