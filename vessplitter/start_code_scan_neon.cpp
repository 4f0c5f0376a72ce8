// The NEON kernel. This file alone is built with NEON enabled; it runs only
// where the CPU reports NEON.
#include "start_code_scan.h"

#if defined(__arm__) && defined(__ARM_NEON)
#include <arm_neon.h>

namespace {

// ARMv7 has no byte movemask: narrowing each 16-bit pair of compare results
// by 4 leaves 4 bits per byte in one 64-bit lane.
struct Neon {
    static constexpr int kBits = 4;
    static uint64_t mask(uint8x16_t v) {
        const uint8x16_t eq = vceqq_u8(v, vdupq_n_u8(1));
        return vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(eq), 4)), 0);
    }
    static uint64_t ones(const uint8_t* p) { return mask(vld1q_u8(p)); }
    static uint64_t ones_copy(uint8_t* dst, const uint8_t* src) {
        const uint8x16_t v = vld1q_u8(src);
        vst1q_u8(dst, v);
        return mask(v);
    }
};

}  // namespace

const StartCodeScanKernel kScanNeon{"neon", find_one_blocks<Neon>, copy_find_blocks<Neon>};
#endif
