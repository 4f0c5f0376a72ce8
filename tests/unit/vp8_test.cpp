#include <gtest/gtest.h>

#include <algorithm>

#include "log_capture.h"
#include "payload_test_util.h"
#include "zarn_codec_util_priv.h"

namespace {

using codecutil_test::LogCapture;
using codecutil_test::TestRing;
using namespace payload_test;

// A VP8 frame: 3-byte frame tag, then for key frames the start code and the
// 16-bit size fields (RFC 6386 9.1), padded to `size` bytes.
Bytes vp8_frame(bool key, uint16_t w_field, uint16_t h_field, size_t size = 20) {
    Bytes f(std::max<size_t>(size, 10), 0x33);
    f[0] = key ? 0x10 : 0x11;  // frame tag, bit 0: 0 = key frame
    f[3] = 0x9D;
    f[4] = 0x01;
    f[5] = 0x2A;
    f[6] = static_cast<uint8_t>(w_field);
    f[7] = static_cast<uint8_t>(w_field >> 8);
    f[8] = static_cast<uint8_t>(h_field);
    f[9] = static_cast<uint8_t>(h_field >> 8);
    f.resize(size);
    return f;
}

Bytes config_packet(uint8_t w_hi, uint8_t w_lo, uint8_t h_hi, uint8_t h_lo) {
    return cat(
        {{0x00, 0x00, 0x01, 0x31, 0x00, 0x00, 0x4E, 0x2C, 0x36, 0x01, w_hi, w_lo, 0x58, h_hi, h_lo,
          0x50},
         {'D', 'K', 'I', 'F', 0x00, 0x00, 0x00, 0x00, 'V', 'P', '8', '0', w_lo, w_hi, h_lo, h_hi},
         Bytes(16, 0)});
}

Bytes frame_prefix(uint32_t size, uint8_t w_hi, uint8_t w_lo, uint8_t h_hi, uint8_t h_lo) {
    const uint32_t l = size + 20;
    return cat({{0x00, 0x00, 0x01, 0x32, uint8_t(l >> 16), uint8_t(l >> 8), 0x4E, uint8_t(l), 0x36,
                 0x01, w_hi, w_lo, 0x58, h_hi, h_lo, 0x50},
                Bytes(8, 0)});
}

void* make_vp8(int32_t w, int32_t h) {
    void* c = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_VP8, nullptr);
    CodecUtilVP8Param_t p{w, h};
    EXPECT_EQ(Zarn_CodecUtil_SetParam(c, &p), TRUE);
    return c;
}

TEST(Vp8, ConfigurationPacketFollowsKeyFrameSize) {
    struct Step {
        const char* name;
        Bytes frame;
        Bytes want;
    };
    const Bytes k640 = vp8_frame(true, 640, 480, 1000);
    const Bytes p500 = vp8_frame(false, 0, 0, 500);
    const Bytes k720 = vp8_frame(true, 1280, 720);
    const Bytes k720s = vp8_frame(true, 0xC000 | 1280, 0x4000 | 720);  // scaling bits set
    const Bytes p_fake = vp8_frame(false, 320, 240);                   // bit 0 set: never parsed
    const Bytes short_key = vp8_frame(true, 320, 240, 9);              // size fields cut short
    const Step steps[] = {
        {"first key frame", k640,
         cat({config_packet(0x02, 0x80, 0x01, 0xE0), frame_prefix(1000, 0x02, 0x80, 0x01, 0xE0),
              k640})},
        {"inter frame", p500, cat({frame_prefix(500, 0x02, 0x80, 0x01, 0xE0), p500})},
        {"new size", k720,
         cat({config_packet(0x05, 0x00, 0x02, 0xD0), frame_prefix(20, 0x05, 0x00, 0x02, 0xD0),
              k720})},
        {"same size, scaled", k720s, cat({frame_prefix(20, 0x05, 0x00, 0x02, 0xD0), k720s})},
        {"inter frame with a start code", p_fake,
         cat({frame_prefix(20, 0x05, 0x00, 0x02, 0xD0), p_fake})},
        {"key frame under 10 bytes", short_key,
         cat({frame_prefix(9, 0x05, 0x00, 0x02, 0xD0), short_key})},
    };
    void* h = make_vp8(640, 480);
    EXPECT_EQ(Zarn_CodecUtil_CheckConv(h), TRUE);
    TestRing ring;
    Zarn_CodecUtil_SetGetBufFunc(h, codecutil_test::getbuf_fn());
    for (const auto& s : steps) {
        SCOPED_TRACE(s.name);
        LogCapture log;
        const Out o = push(h, ring, {s.frame});
        EXPECT_EQ(o.size, s.want.size());
        EXPECT_EQ(o.bytes, s.want);
        const bool parsed = s.frame[0] == 0x10 && s.frame.size() >= 10;
        EXPECT_EQ(log.count("parse the resolution"), parsed ? 1 : 0);
        if (parsed) {
            EXPECT_EQ(log.level_of("parse the resolution"), ZARN_LEVEL_ERROR);
        }
    }
    Zarn_CodecUtil_Destroy(h);
}

TEST(Vp8, FirstInterFrameUsesParameterSize) {
    LogCapture quiet;
    void* h = make_vp8(176, 144);
    TestRing ring;
    Zarn_CodecUtil_SetGetBufFunc(h, codecutil_test::getbuf_fn());
    const Bytes f = vp8_frame(false, 0, 0);
    EXPECT_EQ(push(h, ring, {f}).bytes, cat({config_packet(0x00, 0xB0, 0x00, 0x90),
                                             frame_prefix(20, 0x00, 0xB0, 0x00, 0x90), f}));
    Zarn_CodecUtil_Destroy(h);
}

TEST(Vp8, EveryWrapOffset) {
    LogCapture quiet;
    const std::vector<Unit> units = {
        {vp8_frame(true, 64, 48)}, {vp8_frame(false, 0, 0, 7)}, {vp8_frame(true, 32, 48)}};
    EXPECT_TRUE(wrap_mismatches([] { return make_vp8(64, 48); }, units).empty());
}

}  // namespace
