#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "converter_fixture.h"
#include "log_capture.h"
#include "test_memory.h"
#include "zarn_codec_util_priv.h"

namespace {

using namespace codecutil_test;
using Bytes = std::vector<uint8_t>;

const Bytes kConfig = {
    0x01,                                // configurationVersion
    0x64, 0x00, 0x1F,                    // profile, compatibility, level
    0xFF,                                // lengthSizeMinusOne 3 (upper 6 bits reserved)
    0xE1,                                // numOfSequenceParameterSets 1
    0x00, 0x04, 0x67, 0x64, 0x00, 0x1F,  // SPS, 4 bytes
    0x01,                                // numOfPictureParameterSets 1
    0x00, 0x02, 0x68, 0xEE,              // PPS, 2 bytes
};
const Bytes kBlob = {0, 0, 0, 1, 0x67, 0x64, 0x00, 0x1F, 0, 0, 0, 1, 0x68, 0xEE};

void* make(const Bytes& config, CodecUtilMemVtable_t* table = nullptr) {
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H264, table);
    Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
    CodecUtilH264Param_t p{const_cast<uint8_t*>(config.data()),
                           static_cast<zarn_uint32>(config.size())};
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, &p));
    return h;
}

Bytes cat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST(H264, ConvertsLengthPrefixesToStartCodesWithTheBlobOnce) {
    void* h = make(kConfig);
    TestRing ring;
    const Bytes unit = {
        0, 0, 0, 0,  // empty NAL unit
        0, 0, 0, 3, 0xAA, 0xBB, 0xCC,
    };
    const Bytes converted = {0, 0, 0, 1, 0, 0, 0, 1, 0xAA, 0xBB, 0xCC};
    PushResult first = push(h, ring, unit);
    EXPECT_EQ(first.size, kBlob.size() + converted.size());
    EXPECT_EQ(first.bytes, cat(kBlob, converted));
    PushResult second = push(h, ring, unit);
    EXPECT_EQ(second.bytes, converted);
    // The same record again arms the blob again.
    CodecUtilH264Param_t p{const_cast<uint8_t*>(kConfig.data()),
                           static_cast<zarn_uint32>(kConfig.size())};
    ASSERT_TRUE(Zarn_CodecUtil_SetParam(h, &p));
    EXPECT_EQ(push(h, ring, unit).bytes, cat(kBlob, converted));
    Zarn_CodecUtil_Destroy(h);
}

TEST(H264, PrefixLengthsFromTheRecord) {
    struct Row {
        uint8_t length_size_byte;
        Bytes unit;
        Bytes payload;
    };
    const Row rows[] = {
        {0xFC, {5, 1, 2, 3, 4, 5}, {1, 2, 3, 4, 5}},        // 1-byte prefixes
        {0xFD, {0, 2, 9, 8}, {9, 8}},                       // 2-byte
        {0xFE, {0, 0, 5, 1, 2, 3, 4, 5}, {1, 2, 3, 4, 5}},  // 3-byte: 00 00 05 is 5
    };
    for (const auto& row : rows) {
        Bytes config = kConfig;
        config[4] = row.length_size_byte;
        void* h = make(config);
        TestRing ring;
        (void)push(h, ring, {});  // nothing, blob stays
        EXPECT_EQ(push(h, ring, row.unit).bytes, cat(kBlob, cat({0, 0, 0, 1}, row.payload)));
        Zarn_CodecUtil_Destroy(h);
    }
}

TEST(H264, MalformedUnitsAreHandedBack) {
    struct Row {
        const char* name;
        Bytes unit;
    };
    const Row rows[] = {
        {"empty", {}},
        {"trailing empty NAL: prefix ends at the unit's end", {0, 0, 0, 1, 0xAA, 0, 0, 0, 0}},
        {"prefix cut", {0, 0, 0, 1, 0xAA, 0, 0}},
        {"length remaining+1", {0, 0, 0, 3, 0xAA, 0xBB}},
        {"length UINT32_MAX", {0xFF, 0xFF, 0xFF, 0xFF, 0xAA}},
        {"second length past end", {0, 0, 0, 1, 0xAA, 0, 0, 0, 2, 0xBB}},
    };
    void* h = make(kConfig);
    TestRing ring;
    LogCapture log;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Bytes unit = row.unit;
        CodecUtilBuffer_t buf{unit.data(), static_cast<zarn_uint32>(unit.size()), 0, 0};
        zarn_uint32 size = 1234;
        EXPECT_EQ(Zarn_CodecUtil_ConvPushBuffer(h, &ring, &buf, &size), buf.data);
        EXPECT_EQ(size, 1234u);
    }
    EXPECT_EQ(ring.requests(), 0);
    EXPECT_EQ(log.count("There is wrong video data in stream! 0-4-"), 6);
    EXPECT_EQ(log.level_of("There is wrong video data in stream!"), ZARN_LEVEL_ERROR);
    // A dropped unit does not disturb the next one, which still carries the blob.
    EXPECT_EQ(push(h, ring, {0, 0, 0, 1, 0x41}).bytes, cat(kBlob, {0, 0, 0, 1, 0x41}));
    Zarn_CodecUtil_Destroy(h);
}

TEST(H264, InactiveConverterHandsUnitsBack) {
    struct Row {
        const char* name;
        Bytes config;
        bool null_param;
    };
    const Row rows[] = {
        {"no parameters", {}, true},
        {"empty record", {}, false},
        {"version 0", {0x00, 0x64, 0x00, 0x1F, 0xFF, 0xE1}, false},
        {"shorter than its header", {0x01, 0x64, 0x00}, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        LogCapture log;
        void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H264, nullptr);
        Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
        Bytes config = row.config;
        CodecUtilH264Param_t p{config.data(), static_cast<zarn_uint32>(config.size())};
        EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, row.null_param ? nullptr : &p));
        EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
        TestRing ring;
        PushResult r = push(h, ring, {0, 0, 0, 1, 0x41});
        EXPECT_EQ(r.size, 0xDEADBEEFu);
        EXPECT_EQ(log.level_of("Don't need H264 conversion"), ZARN_LEVEL_WARNING);
        Zarn_CodecUtil_Destroy(h);
    }
    LogCapture log;
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H264, nullptr);
    Bytes bad = {0x00, 0x64, 0x00, 0x1F, 0xFF, 0xE1, 0x00};
    CodecUtilH264Param_t p{bad.data(), static_cast<zarn_uint32>(bad.size())};
    (void)Zarn_CodecUtil_SetParam(h, &p);
    EXPECT_EQ(log.level_of("invalid codec data 00 64 00 1F FF E1"), ZARN_LEVEL_LOG);
    Zarn_CodecUtil_Destroy(h);
}

TEST(H264, TruncatedRecordsAreCutWhereTheyEnd) {
    struct Row {
        const char* name;
        Bytes config;
        Bytes blob;
    };
    const Row rows[] = {
        {"SPS declares 10, 5 follow: the 5 bytes and no PPS",
         {0x01, 0x64, 0x00, 0x1F, 0xFF, 0xE1, 0x00, 0x0A, 1, 2, 3, 4, 5},
         {0, 0, 0, 1, 1, 2, 3, 4, 5}},
        {"no PPS count byte",
         {0x01, 0x64, 0x00, 0x1F, 0xFF, 0xE1, 0x00, 0x01, 0x67},
         {0, 0, 0, 1, 0x67}},
        {"PPS length field cut",
         {0x01, 0x64, 0x00, 0x1F, 0xFF, 0xE1, 0x00, 0x01, 0x67, 0x01, 0x00},
         {0, 0, 0, 1, 0x67}},
        {"header only", {0x01, 0x64, 0x00, 0x1F, 0xFF, 0xE1}, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        void* h = make(row.config);
        EXPECT_TRUE(Zarn_CodecUtil_CheckConv(h));
        TestRing ring;
        EXPECT_EQ(push(h, ring, {0, 0, 0, 1, 0x41}).bytes, cat(row.blob, {0, 0, 0, 1, 0x41}));
        Zarn_CodecUtil_Destroy(h);
    }
    // Every prefix of a valid record is read within its bounds.
    for (size_t n = 1; n <= kConfig.size(); ++n) {
        Bytes cut(kConfig.begin(), kConfig.begin() + static_cast<long>(n));
        void* h = make(cut);
        Zarn_CodecUtil_Destroy(h);
    }
}

TEST(H264, RefusedSpaceKeepsTheBlobPending) {
    LogCapture log;
    void* h = make(kConfig);
    TestRing ring;
    ring.refuse_next(1);
    Bytes unit = {0, 0, 0, 1, 0x41};
    CodecUtilBuffer_t buf{unit.data(), 5, 0, 0};
    zarn_uint32 size = 99;
    EXPECT_EQ(Zarn_CodecUtil_ConvPushBuffer(h, &ring, &buf, &size), buf.data);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(log.level_of("Can't get buf from ring buffer!\n"), ZARN_LEVEL_ERROR);
    EXPECT_EQ(push(h, ring, unit).bytes, cat(kBlob, {0, 0, 0, 1, 0x41}));
    EXPECT_EQ(log.level_of("Send SPS/PPS once"), ZARN_LEVEL_LOG);
    EXPECT_EQ(log.level_of("Contains 1 NALUnit and totalSize:19"), ZARN_LEVEL_LOG);
    Zarn_CodecUtil_Destroy(h);
}

TEST(H264, EveryWrapOffsetGivesTheContiguousBytes) {
    const Bytes unit = {
        0, 0, 0,    3,    0x65, 0x88, 0x84, 0,    0,
        0, 6, 0x00, 0x00, 0x00, 0x01, 0x41, 0x9A,  // payload that looks like a start code
        0, 0, 0,    2,    0x41, 0x9B,
    };
    EXPECT_EQ(wrap_mismatches([] { return make(kConfig); }, unit), std::vector<uint32_t>{});
}

TEST(H264, EveryAllocationIsReturnedAndFailuresLeakNothing) {
    const Bytes unit = {0, 0, 0, 1, 0x41};
    for (int fail = 0; fail <= 3; ++fail) {
        SCOPED_TRACE(fail);
        CountingMemory mem;
        mem.fail_at(fail);
        void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H264, mem.table());
        if (h == nullptr) {
            EXPECT_EQ(mem.live(), 0);
            continue;
        }
        Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
        CodecUtilH264Param_t p{const_cast<uint8_t*>(kConfig.data()),
                               static_cast<zarn_uint32>(kConfig.size())};
        const bool accepted = Zarn_CodecUtil_SetParam(h, &p);
        EXPECT_EQ(Zarn_CodecUtil_CheckConv(h), accepted);
        TestRing ring;
        (void)push(h, ring, unit);
        (void)Zarn_CodecUtil_SetParam(h, &p);  // pending blob replaced
        Zarn_CodecUtil_Destroy(h);
        EXPECT_EQ(mem.live(), 0);
    }
}

}  // namespace
