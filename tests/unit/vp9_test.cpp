#include <gtest/gtest.h>

#include <random>

#include "codec_util_ticks.h"
#include "payload_test_util.h"
#include "zarn_codec_util_priv.h"

namespace {

using codecutil_test::TestRing;
using namespace payload_test;

void* make_vp9(int32_t w, int32_t h, int32_t fps) {
    void* c = CodecUtil_VP9_Create(nullptr);
    CodecUtilVP9Param_t p{w, h, fps};
    EXPECT_EQ(Zarn_CodecUtil_SetParam(c, &p), TRUE);
    return c;
}

TEST(Vp9, IvfFileAndFrameHeaders) {
    struct Step {
        const char* name;
        uint64_t timestamp;
        Bytes want_header;
    };
    // Width and height big-endian, frame rate 30, 12 zero bytes.
    const Bytes file =
        cat({hex("44 4B 49 46 00 00 20 00 56 50 39 30 07 80 04 38 1E 00 00 00"), Bytes(12, 0)});
    const Step steps[] = {
        {"first frame, 1 s", 1000000000, cat({file, hex("E8 03 00 00 90 5F 01 00 00 00 00 00")})},
        {"2 s: T = 180001", 2000000000, hex("E8 03 00 00 21 BF 02 00 00 00 00 00")},
        {"no time stamp marker kept", 0xFFFFFFFFFFFFFFFEull,
         hex("E8 03 00 00 FE FF FF FF FF FF FF FF")},
        {"all ones divided", ~0ull, hex("E8 03 00 00 AC F8 11 EC F6 E5 05 00")},
        {"below one tick", 11110, hex("E8 03 00 00 00 00 00 00 00 00 00 00")},
    };
    void* h = make_vp9(1920, 1080, 30);
    EXPECT_EQ(Zarn_CodecUtil_CheckConv(h), TRUE);
    TestRing ring;
    Zarn_CodecUtil_SetGetBufFunc(h, codecutil_test::getbuf_fn());
    const Bytes frame = ramp(1000);
    for (const auto& s : steps) {
        SCOPED_TRACE(s.name);
        const Out o = push(h, ring, {frame, s.timestamp});
        EXPECT_EQ(o.bytes, cat({s.want_header, frame}));
    }
    Zarn_CodecUtil_Destroy(h);
}

TEST(Vp9, ZeroFrameRateAndSizeTruncation) {
    void* h = make_vp9(0x10280, -1, 0);
    TestRing ring;
    Zarn_CodecUtil_SetGetBufFunc(h, codecutil_test::getbuf_fn());
    const Out o = push(h, ring, {ramp(2)});
    ASSERT_EQ(o.size, 46u);
    EXPECT_EQ(Bytes(o.bytes.begin() + 12, o.bytes.begin() + 20), hex("02 80 FF FF 00 00 00 00"));
    Zarn_CodecUtil_Destroy(h);
}

// The 32-bit long division against the 64-bit one: every input near the
// digit and word boundaries and near multiples of the divisor there, then
// random ones.
TEST(Vp9, TickDivisionMatchesTheDivide) {
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

TEST(Vp9, NotInTheDispatcher) {
    EXPECT_EQ(Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_VP9, nullptr), nullptr);
}

TEST(Vp9, EveryWrapOffset) {
    const std::vector<Unit> units = {{ramp(9), 123456789}, {ramp(5), 987654321}};
    EXPECT_TRUE(wrap_mismatches([] { return make_vp9(64, 48, 25); }, units).empty());
}

}  // namespace
