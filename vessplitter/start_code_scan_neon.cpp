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
    // Whether any lane is set, through core registers as two 32-bit words
    // (a 64-bit lane move goes through the stack).
    static bool any_lane(uint8x16_t lanes) {
        const uint32x2_t w = vreinterpret_u32_u8(vorr_u8(vget_low_u8(lanes), vget_high_u8(lanes)));
        return (vget_lane_u32(w, 0) | vget_lane_u32(w, 1)) != 0;
    }
    static uint64_t pairs(const uint8_t* p) {
        const uint8x16_t m = pair_lanes(vld1q_u8(p), vld1q_u8(p - 1));
        return vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(m), 4)), 0);
    }
    static bool any_pairs64(const uint8_t* p) {
        const uint8x16_t a = pair_lanes(vld1q_u8(p), vld1q_u8(p - 1));
        const uint8x16_t b = pair_lanes(vld1q_u8(p + 16), vld1q_u8(p + 15));
        const uint8x16_t c = pair_lanes(vld1q_u8(p + 32), vld1q_u8(p + 31));
        const uint8x16_t d = pair_lanes(vld1q_u8(p + 48), vld1q_u8(p + 47));
        return any_lane(vorrq_u8(vorrq_u8(a, b), vorrq_u8(c, d)));
    }
    static Acc copy_first(uint8_t* dst, const uint8_t* src) {
        const uint8x16_t v = vld1q_u8(src);
        vst1q_u8(dst, v);
        return pair_lanes(v, vextq_u8(vdupq_n_u8(0), v, 15));  // a 00 shifted in before byte 0
    }
    static void copy_acc(uint8_t* dst, const uint8_t* src, Acc& acc) {
        const uint8x16_t v = vld1q_u8(src);
        vst1q_u8(dst, v);
        acc = vorrq_u8(acc, pair_lanes(v, vld1q_u8(src - 1)));
    }
    static bool any(Acc acc) { return any_lane(acc); }
};

}  // namespace

const StartCodeScanKernel kScanNeon{"neon", find_pair_blocks<Neon>, copy_find_blocks<Neon>};
#endif
