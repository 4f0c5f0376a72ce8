// Every start-code kernel this CPU runs against a plain byte loop, on random
// buffers rich in 00 and 01 bytes, at every alignment and span end, so 00 01
// pairs and start codes fall at every lane position and across 16- and
// 128-byte blocks; the dense buffers overfill the start-code list.
#include "start_code_scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

// A 01 after a 00; at `from` == 0, a 01 first byte too.
bool pair_at(const std::vector<uint8_t>& v, int i) {
    const uint8_t* b = v.data();
    return b[i] == 1 && (i == 0 || b[i - 1] == 0);
}

int first_pair(const std::vector<uint8_t>& b, int from, int len) {
    for (int i = from; i < len; ++i)
        if (pair_at(b, i)) return i;
    return len;
}

// The 01 offsets of the start codes lying wholly in the first len bytes.
std::vector<int> start_codes(const std::vector<uint8_t>& v, int len) {
    const uint8_t* b = v.data();
    std::vector<int> at;
    for (int j = 2; j < len; ++j)
        if (b[j] == 1 && b[j - 1] == 0 && b[j - 2] == 0) at.push_back(j);
    return at;
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
        std::vector<uint8_t> buf(300 + 16);
        for (uint8_t& b : buf) {
            const unsigned r = static_cast<unsigned>(rng() % per_one);
            b = r == 0 ? 1 : r < per_one / 2 ? 0 : static_cast<uint8_t>(rng());
        }
        for (int k = 0; k < n; ++k) {
            SCOPED_TRACE(kernels[k]->name);
            for (int at = 0; at < 16; ++at) {
                const std::vector<uint8_t> src(buf.begin() + at, buf.end());
                for (int len = 0; len <= 300; len += len < 140 ? 1 : 7) {
                    for (int from = 1; from <= len; from += 1 + len / 8)
                        ASSERT_EQ(kernels[k]->find_pair(src.data(), from, len),
                                  first_pair(src, from, len))
                            << "at " << at << " len " << len << " from " << from;
                    std::vector<uint8_t> dst(static_cast<size_t>(len) + 1, 0xEE);
                    StartList list;
                    kernels[k]->copy_starts(dst.data(), src.data(), len, list);
                    ASSERT_TRUE(std::equal(src.begin(), src.begin() + len, dst.begin()));
                    ASSERT_EQ(dst.back(), 0xEE);
                    const std::vector<int> want = start_codes(src, len);
                    const int listed =
                        std::min<int>(static_cast<int>(want.size()), StartList::kMax);
                    ASSERT_EQ(list.n, listed) << "at " << at << " len " << len;
                    ASSERT_TRUE(std::equal(want.begin(), want.begin() + listed, list.at));
                    ASSERT_EQ(list.complete,
                              listed < static_cast<int>(want.size()) ? want.data()[listed] : len);
                }
            }
        }
    }
}

}  // namespace
