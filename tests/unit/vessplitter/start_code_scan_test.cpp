// Every start-code kernel this CPU runs against a plain byte loop, on random
// buffers rich in 00 and 01 bytes, at every alignment and span end, so 00 01
// pairs fall at every lane position and across 16-byte blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "start_code_scan.h"

namespace {

// A 01 after a 00; at `from` == 0, a 01 first byte too.
bool pair_at(const std::vector<uint8_t>& b, int i) { return b[i] == 1 && (i == 0 || b[i - 1] == 0); }

int first_pair(const std::vector<uint8_t>& b, int from, int len) {
    for (int i = from; i < len; ++i)
        if (pair_at(b, i)) return i;
    return len;
}

TEST(StartCodeScan, EveryKernelMatchesTheByteLoop) {
    int n = 0;
    const StartCodeScanKernel* const* kernels = start_code_scan_kernels(&n);
    EXPECT_EQ(&start_code_scan(), kernels[n - 1]);
    std::mt19937 rng(13);
    for (int round = 0; round < 40; ++round) {
        // Sparse 01s among runs of zeros and other bytes; the odd round
        // dense in 01s.
        const unsigned per_one = round % 2 != 0 ? 3 : 97;
        std::vector<uint8_t> buf(96 + 16);
        for (uint8_t& b : buf) {
            const unsigned r = static_cast<unsigned>(rng() % per_one);
            b = r == 0 ? 1 : r < per_one / 2 ? 0 : static_cast<uint8_t>(rng());
        }
        for (int k = 0; k < n; ++k) {
            SCOPED_TRACE(kernels[k]->name);
            for (int at = 0; at < 16; ++at) {
                const std::vector<uint8_t> src(buf.begin() + at, buf.end());
                for (int len = 0; len <= 96; ++len) {
                    for (int from = 1; from <= len; from += 1 + len / 8)
                        ASSERT_EQ(kernels[k]->find_pair(src.data(), from, len), first_pair(src, from, len))
                            << "at " << at << " len " << len << " from " << from;
                    if (len < 16) continue;
                    std::vector<uint8_t> dst(len + 1, 0xEE);
                    const OnesSpan s = kernels[k]->copy_find(dst.data(), src.data(), len);
                    ASSERT_TRUE(std::equal(src.begin(), src.begin() + len, dst.begin()));
                    ASSERT_EQ(dst[len], 0xEE);
                    ASSERT_EQ(s.first, first_pair(src, 0, len)) << "at " << at << " len " << len;
                    ASSERT_EQ(s.end, len);
                }
            }
        }
    }
}

}  // namespace
