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
        const uint8x16_t b = vminq_u8(veorq_u8(vld1q_u8(p + 32), one), veorq_u8(vld1q_u8(p + 48), one));
        const uint8x16_t m = vminq_u8(a, b);
        uint8x8_t d = vpmin_u8(vget_low_u8(m), vget_high_u8(m));
        d = vpmin_u8(d, d);  // the minima of all 64 in lanes 0 to 3
        return vget_lane_u32(vreinterpret_u32_u8(vceq_u8(d, vdup_n_u8(0))), 0) != 0;
    }
    // While copying, lanes hold (byte xor 01) | byte before: zero at a pair.
    static Acc copy_first(uint8_t* dst, const uint8_t* src) {
        const uint8x16_t v = vld1q_u8(src);
        vst1q_u8(dst, v);
        return vorrq_u8(veorq_u8(v, vdupq_n_u8(1)), vextq_u8(vdupq_n_u8(0), v, 15));
    }
    static void copy_acc(uint8_t* dst, const uint8_t* src, Acc& acc) {
        const uint8x16_t v = vld1q_u8(src);
        vst1q_u8(dst, v);
        acc = vminq_u8(acc, vorrq_u8(veorq_u8(v, vdupq_n_u8(1)), vld1q_u8(src - 1)));
    }
    static bool any(Acc acc) {
        uint8x8_t d = vpmin_u8(vget_low_u8(acc), vget_high_u8(acc));
        d = vpmin_u8(d, d);
        return vget_lane_u32(vreinterpret_u32_u8(vceq_u8(d, vdup_n_u8(0))), 0) != 0;
    }
};

}  // namespace

const StartCodeScanKernel kScanNeon{"neon", find_pair_blocks<Neon>, copy_find_blocks<Neon>};
#endif
