#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "converter_fixture.h"
#include "test_memory.h"

namespace {

using namespace codecutil_test;
using Bytes = std::vector<uint8_t>;

void* make(const Bytes& dsi, CodecUtilMemVtable_t* table = nullptr) {
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_MPEG4, table);
    Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
    Bytes copy = dsi;
    CodecUtilMPEG4Param_t p{copy.data(), static_cast<zarn_uint32>(copy.size())};
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, &p));
    return h;  // the copy is the converter's: `copy` dies here
}

TEST(Mpeg4, HeadersGoAheadOfTheFirstFrameOnly) {
    Bytes dsi(20);
    for (size_t i = 0; i < dsi.size(); ++i) dsi[i] = static_cast<uint8_t>(0xA0 + i);
    Bytes frame(1000, 0x5A);
    void* h = make(dsi);
    TestRing ring;
    PushResult r = push(h, ring, frame);
    ASSERT_EQ(r.size, 1020u);
    EXPECT_TRUE(std::equal(dsi.begin(), dsi.end(), r.bytes.begin()));
    EXPECT_TRUE(std::equal(frame.begin(), frame.end(), r.bytes.begin() + 20));
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    PushResult next = push(h, ring, frame);
    EXPECT_EQ(next.ret, nullptr);
    EXPECT_EQ(next.size, 0u);
    // A second set_param re-arms with the new headers.
    Bytes other = {0, 0, 1, 0xB0, 0x01};
    CodecUtilMPEG4Param_t p{other.data(), 5};
    ASSERT_TRUE(Zarn_CodecUtil_SetParam(h, &p));
    EXPECT_EQ(push(h, ring, {7}).bytes, (Bytes{0, 0, 1, 0xB0, 0x01, 7}));
    Zarn_CodecUtil_Destroy(h);
}

TEST(Mpeg4, NothingToSendMeansNothingConverted) {
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_MPEG4, nullptr);
    Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
    TestRing ring;
    EXPECT_EQ(push(h, ring, {1, 2}).ret, nullptr);  // before any set_param
    CodecUtilMPEG4Param_t empty{nullptr, 0};
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, &empty));
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, nullptr));
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    EXPECT_EQ(ring.requests(), 0);
    Zarn_CodecUtil_Destroy(h);
}

TEST(Mpeg4, RefusedSpaceKeepsTheHeadersArmed) {
    void* h = make({0, 0, 1, 0xB0});
    TestRing ring;
    ring.refuse_next(1);
    PushResult r = push(h, ring, {9});
    EXPECT_EQ(r.ret, nullptr);
    EXPECT_EQ(r.size, 0u);
    EXPECT_TRUE(Zarn_CodecUtil_CheckConv(h));
    EXPECT_EQ(push(h, ring, {9}).bytes, (Bytes{0, 0, 1, 0xB0, 9}));
    Zarn_CodecUtil_Destroy(h);
}

TEST(Mpeg4, EveryWrapOffsetGivesTheContiguousBytes) {
    EXPECT_EQ(wrap_mismatches(
                  [] {
                      return make({0, 0, 1, 0xB0, 0xF5, 0, 0, 1, 0xB5});
                  },
                  {0, 0, 1, 0xB6, 0x10, 0x20, 0x30}),
              std::vector<uint32_t>{});
}

TEST(Mpeg4, FailedCopyKeepsThePreviousState) {
    CountingMemory mem;
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_MPEG4, mem.table());
    Bytes dsi = {0, 0, 1, 0xB0};
    CodecUtilMPEG4Param_t p{dsi.data(), 4};
    mem.fail_at(1);
    EXPECT_FALSE(Zarn_CodecUtil_SetParam(h, &p));
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, &p));
    Zarn_CodecUtil_Destroy(h);  // frees the pending copy
    EXPECT_EQ(mem.live(), 0);
}

}  // namespace
