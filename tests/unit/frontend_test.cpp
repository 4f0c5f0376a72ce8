// Dispatcher, wrappers, memory table, log category and assertion check.
#include <gtest/gtest.h>

#include <cstdlib>

#include "log_capture.h"
#include "test_memory.h"
#include "test_ring.h"
#include "zarn_codec_util_priv.h"

namespace {

using codecutil_test::CountingMemory;
using codecutil_test::LogCapture;

CodecUtilBase_t* base(void* h) { return static_cast<CodecUtilBase_t*>(h); }

TEST(Dispatcher, CreatesByTypeAndAlwaysMakesTheCategory) {
    struct Row {
        int type;
        bool created;
    };
    // Types whose converters live elsewhere in the tree are checked there.
    const Row rows[] = {
        {CODEC_UTIL_TYPE_MPEG4, true},
        {CODEC_UTIL_TYPE_H264, true},
        {CODEC_UTIL_TYPE_H265, true},
        {CODEC_UTIL_TYPE_VP9, false},  // own constructor only
        {CODEC_UTIL_TYPE_UNKNOWN, false},
        {-1, false},  // compared unsigned
        {13, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.type);
        codec_util_debug = nullptr;
        void* h = Zarn_CodecUtil_Create(static_cast<CodecUtilType_e>(row.type), nullptr);
        EXPECT_EQ(h != nullptr, row.created);
        ASSERT_NE(codec_util_debug, nullptr);
        Zarn_CodecUtil_Destroy(h);
    }
}

TEST(Dispatcher, DebugInitKeepsTheFirstCategory) {
    CodecUtil_DebugInit();
    ZarnDebugCategory* first = codec_util_debug;
    CodecUtil_DebugInit();
    EXPECT_EQ(codec_util_debug, first);
}

TEST(MemoryTable, CallerTableIsCopiedWholeAndUsed) {
    CountingMemory mem;
    CodecUtilMemVtable_t table = *mem.table();
    table.realloc = nullptr;  // NULL entries are copied as they stand
    for (auto type : {CODEC_UTIL_TYPE_H264, CODEC_UTIL_TYPE_H265, CODEC_UTIL_TYPE_MPEG4}) {
        SCOPED_TRACE(type);
        void* h = Zarn_CodecUtil_Create(type, &table);
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(base(h)->vtable.malloc, table.malloc);
        EXPECT_EQ(base(h)->vtable.realloc, nullptr);
        EXPECT_EQ(base(h)->vtable.free, table.free);
        EXPECT_EQ(mem.live(), 1);
        Zarn_CodecUtil_Destroy(h);
        EXPECT_EQ(mem.live(), 0);
    }
}

TEST(MemoryTable, TableWithoutMallocOrFreeIsRefused) {
    CountingMemory mem;
    CodecUtilMemVtable_t no_malloc = *mem.table();
    no_malloc.malloc = nullptr;
    CodecUtilMemVtable_t no_free = *mem.table();
    no_free.free = nullptr;
    for (auto* t : {&no_malloc, &no_free}) {
        EXPECT_EQ(Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H264, t), nullptr);
        EXPECT_EQ(Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_MPEG4, t), nullptr);
    }
    EXPECT_EQ(mem.allocations(), 0);
}

TEST(Wrappers, NullArgumentsNeverReachTheConverter) {
    EXPECT_EQ(Zarn_CodecUtil_SetParam(nullptr, nullptr), FALSE);
    EXPECT_EQ(Zarn_CodecUtil_CheckConv(nullptr), FALSE);
    Zarn_CodecUtil_SetGetBufFunc(nullptr, nullptr);
    Zarn_CodecUtil_Destroy(nullptr);

    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_MPEG4, nullptr);
    codecutil_test::TestRing ring;
    Zarn_CodecUtil_SetGetBufFunc(h, codecutil_test::getbuf_fn());
    uint8_t dsi[4] = {0, 0, 1, 0xB0};
    CodecUtilMPEG4Param_t p{dsi, sizeof dsi};
    ASSERT_TRUE(Zarn_CodecUtil_SetParam(h, &p));
    uint8_t frame[2] = {1, 2};
    CodecUtilBuffer_t buf{frame, sizeof frame, 0, 0};
    zarn_uint32 size = 77;
    // A get-buffer function that would not need the stream does not help.
    EXPECT_EQ(Zarn_CodecUtil_ConvPushBuffer(h, nullptr, &buf, &size), nullptr);
    EXPECT_EQ(Zarn_CodecUtil_ConvPushBuffer(h, &ring, nullptr, &size), nullptr);
    EXPECT_EQ(Zarn_CodecUtil_ConvPushBuffer(h, &ring, &buf, nullptr), nullptr);
    EXPECT_EQ(Zarn_CodecUtil_ConvPushBuffer(nullptr, &ring, &buf, &size), nullptr);
    EXPECT_EQ(size, 77u);
    EXPECT_EQ(ring.requests(), 0);
    EXPECT_TRUE(Zarn_CodecUtil_CheckConv(h));  // still armed
    Zarn_CodecUtil_Destroy(h);
}

TEST(Wrappers, SetGetBufFuncSkipsAConverterWithoutTheSlot) {
    CodecUtilBase_t fake{};
    Zarn_CodecUtil_SetGetBufFunc(&fake, codecutil_test::getbuf_fn());  // must not crash
}

TEST(Logging, LinesAreIssuedOnlyUpToTheGlobalThreshold) {
    {
        LogCapture log(ZARN_LEVEL_LOG);
        Zarn_CodecUtil_Destroy(Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H264, nullptr));
        EXPECT_EQ(log.level_of("Create H264 CodecUtil handle"), ZARN_LEVEL_LOG);
        EXPECT_EQ(log.level_of("Destroy H264 CodecUtil handle"), ZARN_LEVEL_LOG);
    }
    {
        LogCapture log(ZARN_LEVEL_DEBUG);
        Zarn_CodecUtil_Destroy(Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H264, nullptr));
        EXPECT_TRUE(log.lines().empty());
    }
}

TEST(Assertion, ContinuesUnlessAbortIsRequested) {
    unsetenv("VXM_SYS_ASSERT");
    vxm_sys_request_assert = -1;
    testing::internal::CaptureStdout();
    CODEC_UTIL_ASSERT(1 + 1 == 3);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find(" ASSERT, Pid:"), std::string::npos);
    EXPECT_NE(out.find("1 + 1 == 3 failed"), std::string::npos);
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

}  // namespace
