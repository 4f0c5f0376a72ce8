// The dispatcher and wrappers, the assertion check, and the properties the
// golden vectors cannot enumerate: bit-buffer reads and winds at every
// offset, the copy kernels and the 90 kHz division at every boundary.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "codec_util_copy.h"
#include "codec_util_ticks.h"
#include "test_memory.h"
#include "zarn_codec_util_bitbuf.h"
#include "zarn_codec_util_priv.h"

namespace {

TEST(Dispatcher, CreatesTheConvertersByTypeAndAlwaysTheCategory) {
    for (int type = -1; type <= CODEC_UTIL_TYPE_UNKNOWN + 1; ++type) {
        codec_util_debug = nullptr;
        void* h = Zarn_CodecUtil_Create(static_cast<CodecUtilType_e>(type), nullptr);
        EXPECT_EQ(h != nullptr, type >= 0 && type <= CODEC_UTIL_TYPE_H265) << type;
        ASSERT_NE(codec_util_debug, nullptr);
        Zarn_CodecUtil_Destroy(h);
    }
    ZarnDebugCategory* first = codec_util_debug;
    CodecUtil_DebugInit();
    EXPECT_EQ(codec_util_debug, first);
    // A memory table without malloc or free is refused before allocating.
    codecutil_test::CountingMemory mem;
    CodecUtilMemVtable_t no_malloc = *mem.table(), no_free = *mem.table();
    no_malloc.malloc = nullptr;
    no_free.free = nullptr;
    EXPECT_EQ(Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H264, &no_malloc), nullptr);
    EXPECT_EQ(Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_MPEG4, &no_free), nullptr);
    EXPECT_EQ(mem.allocations(), 0);
}

int g_requests = 0;
zarn_uint8* count_request(void*, zarn_uint32, zarn_uint8**, zarn_uint32*) {
    ++g_requests;
    return nullptr;
}

TEST(Wrappers, NullArgumentsNeverReachTheConverter) {
    EXPECT_EQ(Zarn_CodecUtil_SetParam(nullptr, nullptr), FALSE);
    EXPECT_EQ(Zarn_CodecUtil_CheckConv(nullptr), FALSE);
    Zarn_CodecUtil_SetGetBufFunc(nullptr, nullptr);
    Zarn_CodecUtil_Destroy(nullptr);
    CodecUtilBase_t no_slot{};
    Zarn_CodecUtil_SetGetBufFunc(&no_slot, reinterpret_cast<void*>(&count_request));

    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_MPEG4, nullptr);
    Zarn_CodecUtil_SetGetBufFunc(h, reinterpret_cast<void*>(&count_request));
    uint8_t dsi[4] = {0, 0, 1, 0xB0}, frame[2] = {1, 2};
    CodecUtilMPEG4Param_t p{dsi, sizeof dsi};
    ASSERT_TRUE(Zarn_CodecUtil_SetParam(h, &p));
    CodecUtilBuffer_t buf{frame, sizeof frame, 0, 0};
    zarn_uint32 size = 77;
    int stream = 0;
    EXPECT_EQ(Zarn_CodecUtil_ConvPushBuffer(h, nullptr, &buf, &size), nullptr);
    EXPECT_EQ(Zarn_CodecUtil_ConvPushBuffer(h, &stream, nullptr, &size), nullptr);
    EXPECT_EQ(Zarn_CodecUtil_ConvPushBuffer(h, &stream, &buf, nullptr), nullptr);
    EXPECT_EQ(Zarn_CodecUtil_ConvPushBuffer(nullptr, &stream, &buf, &size), nullptr);
    EXPECT_EQ(size, 77u);
    EXPECT_EQ(g_requests, 0);
    EXPECT_TRUE(Zarn_CodecUtil_CheckConv(h));  // still armed
    Zarn_CodecUtil_Destroy(h);
}

// A failed check prints and goes on, unless the platform asks for an abort;
// the bit buffer's over-long counts go through it.
TEST(Assertion, ContinuesUnlessAbortIsRequested) {
    unsetenv("VXM_SYS_ASSERT");
    vxm_sys_request_assert = -1;
    testing::internal::CaptureStdout();
    CODEC_UTIL_ASSERT(1 + 1 == 3);
    uint8_t data[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
    BIT_BUF b;
    CreateInitializedBitBuffer(&b, data, 64);
    EXPECT_EQ(ReadBits(&b, 40), 0x23456789u);  // the low 32 of the 40 bits
    EXPECT_EQ(GetBitsInBuf(&b), 24u);
    uint8_t area[8] = {};
    CreateBitBuffer(&b, area, 64);
    EXPECT_EQ(WriteBits(&b, 0xFFFFFFFF, 36), 36);
    EXPECT_EQ(area[0], 0x0F);  // four zero bits above the value
    EXPECT_EQ(area[4], 0xF0);
    const std::string out = testing::internal::GetCapturedStdout();
    for (const char* text : {" ASSERT, Pid:", "1 + 1 == 3 failed", "noBitsToRead <= 32 failed",
                             "noBitsToWrite <= 32 failed"})
        EXPECT_NE(out.find(text), std::string::npos) << text;
    EXPECT_EQ(vxm_sys_request_assert, 0);  // decided once, from the unset variable
}

TEST(AssertionDeathTest, AbortsWhenThePlatformAsks) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            setenv("VXM_SYS_ASSERT", "1", 1);
            vxm_sys_request_assert = -1;
            CODEC_UTIL_ASSERT(sizeof(int) == 0);
        },
        "");
}

// Every width 1..32 from every bit offset 0..23 of a known pattern; winding
// back 1..n bits after n read and forward again in two steps.
TEST(BitBuffer, ReadsAndWindsAtEveryOffset) {
    const uint8_t pattern[8] = {0x9B, 0x3C, 0xE1, 0x47, 0xD2, 0x08, 0x7F, 0xA6};
    uint64_t all = 0;
    for (uint8_t byte : pattern) all = (all << 8) | byte;
    auto bits = [&](unsigned at, unsigned n) {
        return static_cast<uint32_t>((all >> (64 - at - n)) & ((uint64_t{1} << n) - 1));
    };
    uint8_t data[8];
    BIT_BUF b;
    for (unsigned at = 0; at < 24; ++at) {
        for (unsigned n = 1; n <= 32; ++n) {
            std::copy(pattern, pattern + 8, data);
            CreateInitializedBitBuffer(&b, data, 64);
            ReadBits(&b, static_cast<unsigned char>(at));
            ASSERT_EQ(ReadBits(&b, static_cast<unsigned char>(n)), bits(at, n)) << at << " " << n;
            ASSERT_EQ(b.rCache, data[(at + n) / 8]);
            if (n > at) continue;
            CreateInitializedBitBuffer(&b, data, 64);
            ReadBits(&b, static_cast<unsigned char>(at));
            WindBitBufferBidirectional(&b, -static_cast<int>(n));
            WindBitBufferBidirectional(&b, static_cast<int>(n) - 1);
            WindBitBufferBidirectional(&b, 1);
            ASSERT_EQ(ReadBits(&b, 8), bits(at, 8)) << at << " back " << n;
            ASSERT_EQ(GetBitBufStatus(&b) & BIT_BUF_STATUS_ERROR, 0);
        }
    }
    // A copy takes the area and the positions; each then reads on by itself.
    uint8_t dst_data[8] = {};
    BIT_BUF dst;
    CreateBitBuffer(&dst, dst_data, 64);
    CopyBitBufAll(&b, &dst);
    EXPECT_EQ(ReadBits(&dst, 12), ReadBits(&b, 12));
    EXPECT_EQ(dst_data[0], data[0]);
}

// Every kernel the CPU runs writes exactly the source bytes into exactly the
// destination span, for every length around its block sizes and alignment.
TEST(CopyKernels, EqualMemcpyAtEveryLengthAndAlignment) {
    int n = 0;
    const codecutil::CopyFn* kernels = codecutil::copy_kernels(&n);
    ASSERT_GE(n, 1);
    std::vector<uint8_t> src(600);
    for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(i * 7 + 1);
    for (int k = 0; k < n; ++k)
        for (size_t size = 0; size <= 300; ++size)
            for (size_t s_off = 0; s_off < 4; ++s_off)
                for (size_t d_off = 16; d_off < 32; d_off += 5) {
                    std::vector<uint8_t> dst(size + 64, 0xA5), want = dst;
                    std::copy_n(src.begin() + static_cast<long>(s_off), size,
                                want.begin() + static_cast<long>(d_off));
                    kernels[k](dst.data() + d_off, src.data() + s_off, size);
                    ASSERT_EQ(dst, want) << "kernel " << k << " size " << size;
                }
}

// The 32-bit long division against the 64-bit one near every digit and
// word boundary and the divisor's multiples there, then at random.
TEST(Ticks, DivisionMatchesTheDivide) {
    auto same = [](uint64_t ns) {
        ASSERT_EQ(codec_util::ns_to_90khz_by_digits(ns), ns / 11111) << ns;
    };
    for (int bit = 0; bit < 64; ++bit) {
        const uint64_t p = uint64_t{1} << bit;
        for (uint64_t base : {p, p / 11111 * 11111, ~uint64_t{0} - p + 1})
            for (uint64_t k = 0; k < 2 * 11111; ++k) same(base - 11111 + k);
    }
    std::mt19937_64 rng(90000);
    for (int i = 0; i < 1000000; ++i) same(rng() >> (i % 64));
}

}  // namespace
