#include <gtest/gtest.h>

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
    const Bytes file = {0x44, 0x4B, 0x49, 0x46, 0x00, 0x00, 0x20, 0x00, 0x56, 0x50, 0x39, 0x30,
                        0x07, 0x80, 0x04, 0x38,  // width, height big-endian
                        0x1E, 0x00, 0x00, 0x00,  // frame rate 30
                        0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0};
    const Step steps[] = {
        {"first frame, 1 s", 1000000000,
         cat({file, {0xE8, 0x03, 0x00, 0x00, 0x90, 0x5F, 0x01, 0, 0, 0, 0, 0}})},
        {"2 s: T = 180001", 2000000000, {0xE8, 0x03, 0x00, 0x00, 0x21, 0xBF, 0x02, 0, 0, 0, 0, 0}},
        {"no time stamp marker kept",
         0xFFFFFFFFFFFFFFFEull,
         {0xE8, 0x03, 0x00, 0x00, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {"all ones divided",
         ~0ull,
         {0xE8, 0x03, 0x00, 0x00, 0xAC, 0xF8, 0x11, 0xEC, 0xF6, 0xE5, 0x05, 0x00}},
        {"below one tick", 11110, {0xE8, 0x03, 0x00, 0x00, 0, 0, 0, 0, 0, 0, 0, 0}},
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
    EXPECT_EQ(Bytes(o.bytes.begin() + 12, o.bytes.begin() + 20),
              (Bytes{0x02, 0x80, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00}));
    Zarn_CodecUtil_Destroy(h);
}

TEST(Vp9, NotInTheDispatcher) {
    EXPECT_EQ(Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_VP9, nullptr), nullptr);
}

TEST(Vp9, EveryWrapOffset) {
    const std::vector<Unit> units = {{ramp(9), 123456789}, {ramp(5), 987654321}};
    EXPECT_TRUE(wrap_mismatches([] { return make_vp9(64, 48, 25); }, units).empty());
}

}  // namespace
