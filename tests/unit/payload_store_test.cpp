// The converters whose header store is allocated by set_param (VP8, VP9,
// SPARK, VP6): without a store a push writes nothing, a refused request
// leaves the file or configuration header pending, failed allocations leak
// nothing.
#include <gtest/gtest.h>

#include <memory>

#include "log_capture.h"
#include "payload_test_util.h"
#include "test_memory.h"
#include "zarn_codec_util_priv.h"

namespace {

using namespace payload_test;

struct StoreConverter {
    const char* name;
    void* (*create)(CodecUtilMemVtable_t*);
    bool hal;        // no get-buffer function: space from the HAL port
    uint32_t first;  // bytes added to the first frame after set_param
    uint32_t later;  // bytes added to later frames
};
constexpr StoreConverter kConverters[] = {
    {"VP8", CodecUtil_VP8_Create, false, 72, 24},
    {"VP9", CodecUtil_VP9_Create, false, 44, 12},
    {"SPARK", CodecUtil_SPARK_Create, true, 32, 16},
    {"VP6", CodecUtil_VP6_Create, true, 32, 16},
};

TEST(PayloadStore, RefusalsAndMissingStore) {
    // Every record begins with width and height; VP9's adds the frame rate.
    CodecUtilVP9Param_t param{64, 48, 25};
    // 80 bytes of ring: a 50-byte frame with its first-frame headers never fits.
    constexpr uint32_t kCapacity = 80;
    codecutil_test::LogCapture quiet;
    for (const auto& c : kConverters) {
        SCOPED_TRACE(c.name);
        codecutil_test::TestRing ring(kCapacity);
        HalStream hal(kCapacity);
        auto push_unit = [&](void* h, size_t n) {
            return c.hal ? hal.push(h, {ramp(n)}) : push(h, ring, {ramp(n)});
        };
        void* h = c.create(nullptr);
        Zarn_CodecUtil_SetGetBufFunc(h, codecutil_test::getbuf_fn());
        for (bool null_param : {false, true}) {  // before set_param, after a failed one
            if (null_param) {
                EXPECT_EQ(Zarn_CodecUtil_SetParam(h, nullptr), FALSE);
            }
            EXPECT_EQ(Zarn_CodecUtil_CheckConv(h), FALSE);
            const Out o = push_unit(h, 4);
            EXPECT_EQ(o.ret, nullptr);
            EXPECT_EQ(o.size, 0xDEADBEEFu);
        }
        ASSERT_EQ(Zarn_CodecUtil_SetParam(h, &param), TRUE);
        EXPECT_EQ(Zarn_CodecUtil_CheckConv(h), TRUE);
        const Out refused = push_unit(h, 50);
        EXPECT_EQ(refused.ret, nullptr);
        EXPECT_EQ(refused.size, 0xDEADBEEFu);
        EXPECT_EQ(push_unit(h, 4).size, 4 + c.first);  // the pending header goes out now
        EXPECT_EQ(push_unit(h, 4).size, 4 + c.later);
        EXPECT_EQ(ring.requests(), c.hal ? 0 : 3);  // a client function is used only where taken
        Zarn_CodecUtil_Destroy(h);

        codecutil_test::CountingMemory mem;
        h = c.create(mem.table());
        mem.fail_at(1);
        EXPECT_EQ(Zarn_CodecUtil_SetParam(h, &param), FALSE);
        EXPECT_EQ(Zarn_CodecUtil_CheckConv(h), FALSE);
        EXPECT_EQ(Zarn_CodecUtil_SetParam(h, &param), TRUE);
        EXPECT_EQ(Zarn_CodecUtil_SetParam(h, &param), TRUE);  // replaces the store
        Zarn_CodecUtil_Destroy(h);
        EXPECT_EQ(mem.live(), 0);
    }
}

}  // namespace
