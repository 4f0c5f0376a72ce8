// Every copy kernel the CPU runs writes exactly the source bytes into exactly
// the destination span, for every length around its block sizes and every
// relative alignment.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "codec_util_copy.h"

TEST(CopyKernels, EqualMemcpyAtEveryLengthAndAlignment) {
    int n = 0;
    const codecutil::CopyFn* kernels = codecutil::copy_kernels(&n);
    ASSERT_GE(n, 1);
    std::vector<uint8_t> src(600);
    for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(i * 7 + 1);
    for (int k = 0; k < n; ++k) {
        for (size_t size = 0; size <= 300; ++size) {
            for (size_t s_off = 0; s_off < 4; ++s_off) {
                for (size_t d_off = 0; d_off < 16; d_off += 5) {
                    // Guard bytes on both sides catch a write outside the span.
                    std::vector<uint8_t> dst(size + 64, 0xA5);
                    kernels[k](dst.data() + 16 + d_off, src.data() + s_off, size);
                    for (size_t i = 0; i < dst.size(); ++i) {
                        const bool inside = i >= 16 + d_off && i < 16 + d_off + size;
                        const uint8_t want = inside ? src[s_off + i - 16 - d_off] : 0xA5;
                        ASSERT_EQ(dst[i], want)
                            << "kernel " << k << " size " << size << " at " << i;
                    }
                }
            }
        }
    }
}
