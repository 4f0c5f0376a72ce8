// SPARK and VP6 take no get-buffer function: space comes from the HAL port,
// here the HAL stand-in found on the loader's path.
#include <gtest/gtest.h>

#include "log_capture.h"
#include "payload_test_util.h"
#include "zarn_codec_util_priv.h"

namespace {

using codecutil_test::LogCapture;
using namespace payload_test;

struct Codec {
    const char* name;
    CodecUtilType_e type;
    uint8_t codec_id;
};
constexpr Codec kCodecs[] = {{"SPARK", CODEC_UTIL_TYPE_SPARK, 0x39},
                             {"VP6", CODEC_UTIL_TYPE_VP6, 0x36}};

void* make(const Codec& c, int32_t w = 320, int32_t h = 240) {
    void* r = Zarn_CodecUtil_Create(c.type, nullptr);
    CodecUtilSparkParam_t p{w, h};  // same layout as CodecUtilVP6Param_t
    EXPECT_EQ(Zarn_CodecUtil_SetParam(r, &p), TRUE);
    return r;
}

// Payload header for 320 x 240 with scode_type, L and CodecID.
Bytes header(uint8_t scode, uint32_t l, uint8_t id) {
    Bytes h = hex("00 00 01 00 00 00 4E 00 00 01 01 40 58 00 F0 50");
    h[3] = scode;
    h[4] = uint8_t(l >> 16);
    h[5] = uint8_t(l >> 8);
    h[7] = uint8_t(l);
    h[8] = id;
    return h;
}

TEST(SparkVp6, ConfigurationHeaderOnceThenFrameHeaders) {
    for (const auto& c : kCodecs) {
        SCOPED_TRACE(c.name);
        void* h = make(c);
        EXPECT_EQ(Zarn_CodecUtil_CheckConv(h), TRUE);
        HalStream hal(4096);
        const Bytes f = ramp(100);
        const Out first = hal.push(h, {f});
        EXPECT_EQ(first.size, 132u);
        EXPECT_EQ(first.bytes,
                  cat({header(0x31, 12, c.codec_id), header(0x32, 112, c.codec_id), f}));
        EXPECT_EQ(hal.push(h, {f}).bytes, cat({header(0x32, 112, c.codec_id), f}));
        EXPECT_EQ(hal.push(h, {{}}).bytes, header(0x32, 12, c.codec_id));
        Zarn_CodecUtil_Destroy(h);
    }
}

TEST(SparkVp6, EveryWrapOffsetThroughTheHalRing) {
    LogCapture quiet;
    for (const auto& c : kCodecs) {
        SCOPED_TRACE(c.name);
        EXPECT_TRUE(wrap_mismatches([&] { return make(c); }, {{ramp(9)}, {ramp(5)}}, true).empty());
    }
}

}  // namespace
