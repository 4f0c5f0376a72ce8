#include <gtest/gtest.h>
#include <pthread.h>

#include <string>

#include "codec_util_corvid.h"
#include "log_capture.h"
#include "payload_test_util.h"
#include "test_memory.h"
#include "zarn_codec_util_priv.h"

namespace {

using codecutil_test::LogCapture;
using codecutil_test::TestRing;
using namespace payload_test;

void* make_divx(const CodecUtilAVIParam_t* p) {
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_DIVX311, nullptr);
    if (p != nullptr) {
        EXPECT_EQ(Zarn_CodecUtil_SetParam(h, const_cast<CodecUtilAVIParam_t*>(p)), TRUE);
    }
    Zarn_CodecUtil_SetGetBufFunc(h, codecutil_test::getbuf_fn());
    return h;
}

TEST(Divx311, PayloadHeaderPerFrame) {
    enum Setup { kParam, kNullParam, kNoSetParam };
    struct Case {
        const char* name;
        Setup setup;
        int32_t width, height;
        uint32_t frame;
        zarn_bool check_conv;
        const char* header;
    };
    const Case cases[] = {
        {"720x576, 1000 bytes", kParam, 720, 576, 1000, TRUE,
         "00 00 01 32 00 03 4E F4 38 01 02 D0 58 02 40 50"},
        {"empty frame: L = 12", kParam, 720, 576, 0, TRUE,
         "00 00 01 32 00 00 4E 0C 38 01 02 D0 58 02 40 50"},
        {"width 0: not needed, still built", kParam, 0, 576, 4, FALSE,
         "00 00 01 32 00 00 4E 10 38 01 00 00 58 02 40 50"},
        {"width 0x12345 keeps its low 16 bits", kParam, 0x12345, -1, 4, TRUE,
         "00 00 01 32 00 00 4E 10 38 01 23 45 58 FF FF 50"},
        {"NULL parameters: zero header but the length", kNullParam, 0, 0, 4, FALSE,
         "00 00 00 00 00 00 00 10 00 00 00 00 00 00 00 00"},
        {"before set_param: as after NULL parameters", kNoSetParam, 0, 0, 4, FALSE,
         "00 00 00 00 00 00 00 10 00 00 00 00 00 00 00 00"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_DIVX311, nullptr);
        if (c.setup != kNoSetParam) {
            CodecUtilAVIParam_t param{c.width, c.height};
            EXPECT_EQ(Zarn_CodecUtil_SetParam(h, c.setup == kNullParam ? nullptr : &param), TRUE);
        }
        EXPECT_EQ(Zarn_CodecUtil_CheckConv(h), c.check_conv);
        TestRing ring;
        Zarn_CodecUtil_SetGetBufFunc(h, codecutil_test::getbuf_fn());
        const Bytes frame = ramp(c.frame);
        for (int n = 0; n < 2; ++n) {  // every frame gets the same single header
            const Out o = push(h, ring, {frame});
            EXPECT_EQ(o.size, 16 + c.frame);
            EXPECT_EQ(o.bytes, cat({hex(c.header), frame}));
        }
        Zarn_CodecUtil_Destroy(h);
    }
}

TEST(Divx311, LengthKeepsLow24Bits) {
    const CodecUtilAVIParam_t p{320, 240};
    void* h = make_divx(&p);
    const uint32_t frame = (1u << 24) - 12 + 5;  // L = 2^24 + 5
    TestRing ring(frame + 16);
    const Out o = push(h, ring, {Bytes(frame, 0xAB)});
    ASSERT_EQ(o.size, frame + 16);
    EXPECT_EQ(Bytes(o.bytes.begin() + 4, o.bytes.begin() + 8), hex("00 00 4E 05"));
    Zarn_CodecUtil_Destroy(h);
}

TEST(Divx311, NoSpaceZeroesSizeAndKeepsState) {
    const CodecUtilAVIParam_t p{720, 576};
    void* h = make_divx(&p);
    TestRing ring;
    ring.refuse_next(1);
    LogCapture log;
    const Out refused = push(h, ring, {ramp(10)});
    EXPECT_EQ(refused.ret, nullptr);
    EXPECT_EQ(refused.size, 0u);
    EXPECT_EQ(log.level_of("no hardware memory:26"), ZARN_LEVEL_DEBUG);
    EXPECT_EQ(log.level_of("Dump the payload_header"), ZARN_LEVEL_LOG);
    EXPECT_EQ(push(h, ring, {ramp(10)}).size, 26u);
    Zarn_CodecUtil_Destroy(h);
}

TEST(Divx311, SlotArgumentChecksLogErrors) {
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_DIVX311, nullptr);
    auto* base = static_cast<CodecUtilBase_t*>(h);
    LogCapture log;
    zarn_uint32 size = 7;
    EXPECT_EQ(base->conv_push_buffer(base, nullptr, nullptr, &size), nullptr);
    EXPECT_EQ(size, 7u);
    EXPECT_EQ(log.level_of("Pass NULL pointer, ERROR!"), ZARN_LEVEL_ERROR);
    EXPECT_EQ(base->check_conv(nullptr), FALSE);
    EXPECT_EQ(base->set_param(nullptr, nullptr), FALSE);
    EXPECT_EQ(log.count("Pass NULL pointer!"), 2);
    EXPECT_EQ(base->set_param(base, nullptr), TRUE);
    EXPECT_EQ(log.level_of("No parameter passed, so we think convert is not needed."),
              ZARN_LEVEL_INFO);
    Zarn_CodecUtil_Destroy(h);
}

TEST(Divx311, FailedStoreAllocationFailsCreation) {
    for (int n = 1; n <= 2; ++n) {  // record, then header store
        codecutil_test::CountingMemory mem;
        mem.fail_at(n);
        EXPECT_EQ(CodecUtil_DivX311_Create(mem.table()), nullptr) << n;
        EXPECT_EQ(mem.live(), 0) << n;
    }
}

TEST(Divx311, EveryWrapOffset) {
    const CodecUtilAVIParam_t p{720, 576};
    EXPECT_TRUE(wrap_mismatches([&] { return make_divx(&p); }, {{ramp(40)}, {ramp(3)}}).empty());
}

// The byte dump reads the category threshold once under catLock and prints
// only above ZARN_LEVEL_DEBUG; without a category it prints nothing.
TEST(CorvidDump, FollowsTheCategoryThreshold) {
    CodecUtil_DebugInit();
    ZarnDebugCategory* const category = codec_util_debug;
    auto set_threshold = [&](int t) {
        pthread_mutex_lock(&category->catLock);
        const int old = category->threshold;
        category->threshold = t;
        pthread_mutex_unlock(&category->catLock);
        return old;
    };
    const uint8_t bytes[] = {0x00, 0x01, 0xFF};
    struct Case {
        const char* name;
        bool category;
        int threshold;
        std::string text;
        int banners;
    } cases[] = {
        {"threshold debug", true, ZARN_LEVEL_DEBUG, "", 0},
        {"threshold log", true, ZARN_LEVEL_LOG, "00 01 ff ", 2},
        {"no category yet", false, ZARN_LEVEL_ALWAYS, "", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const int old = set_threshold(c.threshold);
        if (!c.category) codec_util_debug = nullptr;
        LogCapture log;
        testing::internal::CaptureStderr();
        CODEC_UTIL_DUMP_BYTES(bytes, 3);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.text);
        EXPECT_EQ(log.count("@@@@@@@@"), c.banners);
        codec_util_debug = category;
        set_threshold(old);
    }
}

}  // namespace
