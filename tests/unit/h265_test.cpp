#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "converter_fixture.h"
#include "log_capture.h"
#include "test_memory.h"

namespace {

using namespace codecutil_test;
using Bytes = std::vector<uint8_t>;

// HEVC decoder configuration record: 21 bytes of profile/level fields, then
// lengthSizeMinusOne, numOfArrays and the arrays.
Bytes config_with(uint8_t length_byte, uint8_t num_arrays, const Bytes& arrays) {
    Bytes c(21, 0x00);
    c[0] = 0x01;
    c.push_back(length_byte);
    c.push_back(num_arrays);
    c.insert(c.end(), arrays.begin(), arrays.end());
    return c;
}

const Bytes kConfig = config_with(0xF3, 1,
                                  {
                                      0x20,  // array_completeness 0, NAL_unit_type 32 (VPS)
                                      0x00,
                                      0x01,  // numNalus 1
                                      0x00,
                                      0x03,
                                      0x40,
                                      0x01,
                                      0x0C,
                                  });
const Bytes kBlob = {0, 0, 0, 1, 0x40, 0x01, 0x0C};

void* make(const Bytes& config, bool expect_ok = true) {
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H265, nullptr);
    Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
    Bytes c = config;
    CodecUtilH264Param_t p{c.data(), static_cast<zarn_uint32>(c.size())};
    EXPECT_EQ(Zarn_CodecUtil_SetParam(h, &p), expect_ok ? TRUE : FALSE);
    return h;
}

Bytes cat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST(H265, ConvertsWithTheParameterSetsOnce) {
    LogCapture log;
    void* h = make(kConfig);
    EXPECT_EQ(log.level_of("H265 codec data size:31, NAL len size 4"), ZARN_LEVEL_LOG);
    TestRing ring;
    const Bytes unit = {0, 0, 0, 2, 0x26, 0x01};
    EXPECT_EQ(push(h, ring, unit).bytes, cat(kBlob, {0, 0, 0, 1, 0x26, 0x01}));
    EXPECT_EQ(push(h, ring, unit).bytes, (Bytes{0, 0, 0, 1, 0x26, 0x01}));
    Zarn_CodecUtil_Destroy(h);
}

TEST(H265, EntryLengthsAgainstTheRecordsEnd) {
    struct Row {
        const char* name;
        Bytes config;
        bool accepted;
    };
    const Row rows[] = {
        {"entry runs exactly to the end", config_with(0x03, 1, {0x20, 0, 1, 0, 2, 0x40, 0x01}),
         true},
        {"one byte further", config_with(0x03, 1, {0x20, 0, 1, 0, 3, 0x40, 0x01}), false},
        {"length field cut", config_with(0x03, 1, {0x20, 0, 1, 0}), false},
        {"array header cut", config_with(0x03, 2, {0x20, 0, 1, 0, 1, 0x40, 0x21}), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        LogCapture log;
        void* h = make(row.config, row.accepted);
        EXPECT_TRUE(Zarn_CodecUtil_CheckConv(h));  // stays on either way
        if (!row.accepted) {
            EXPECT_EQ(log.level_of("wrong data, pos "), ZARN_LEVEL_ERROR);
        }
        TestRing ring;
        const Bytes out = push(h, ring, {0, 0, 0, 1, 0x26}).bytes;
        EXPECT_EQ(out.size(), row.accepted ? 4u + 2u + 5u : 5u);  // no blob after a refusal
        Zarn_CodecUtil_Destroy(h);
    }
    // Shorter than the 23-byte header: refused and off.
    void* h = make(Bytes(22, 0x01), false);
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    Zarn_CodecUtil_Destroy(h);
    // The refused record's message carries the position reached.
    LogCapture log;
    h = make(config_with(0x03, 1, {0x20, 0, 1, 0, 3, 0x40, 0x01}), false);
    EXPECT_EQ(log.count("wrong data, pos 28, nalUnitLength 3, sizeof_buf 30"), 1);
    Zarn_CodecUtil_Destroy(h);
}

TEST(H265, AnnexBInputSwitchesTheConverterOff) {
    void* h = make(kConfig);
    TestRing ring;
    Bytes unit = {0, 0, 0, 1, 0x40, 0x01};  // a 4-byte length of 1 with too little data
    CodecUtilBuffer_t buf{unit.data(), 6, 0, 0};
    zarn_uint32 size = 0;
    EXPECT_EQ(Zarn_CodecUtil_ConvPushBuffer(h, &ring, &buf, &size), buf.data);
    EXPECT_EQ(size, 6u);
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    LogCapture log;
    PushResult later = push(h, ring, {0, 0, 0, 1, 0x26});
    EXPECT_EQ(later.ret, nullptr);
    EXPECT_EQ(later.size, 0u);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, ZARN_LEVEL_WARNING);
    EXPECT_EQ(ring.requests(), 0);
    Zarn_CodecUtil_Destroy(h);
}

TEST(H265, OtherMalformedUnitsAreDropped) {
    const Bytes rows[] = {
        {},                        // empty, even while active
        {0, 0, 1, 0x40},           // start code but not longer than 4 bytes
        {0, 0, 0, 9, 0x40, 0x01},  // length past the end, no start code
    };
    void* h = make(kConfig);
    TestRing ring;
    for (const auto& unit : rows) {
        LogCapture log;
        PushResult r = push(h, ring, unit);
        EXPECT_EQ(r.ret, nullptr);
        EXPECT_EQ(r.size, 0u);
        EXPECT_EQ(log.level_of("There is wrong video data in stream!\n"), ZARN_LEVEL_ERROR);
    }
    EXPECT_TRUE(Zarn_CodecUtil_CheckConv(h));
    Zarn_CodecUtil_Destroy(h);
}

TEST(H265, RefusedSpaceReturnsNullAndKeepsTheBlob) {
    void* h = make(kConfig);
    TestRing ring;
    ring.refuse_next(1);
    PushResult r = push(h, ring, {0, 0, 0, 1, 0x26});
    EXPECT_EQ(r.ret, nullptr);
    EXPECT_EQ(r.size, 0u);
    EXPECT_EQ(push(h, ring, {0, 0, 0, 1, 0x26}).bytes, cat(kBlob, {0, 0, 0, 1, 0x26}));
    Zarn_CodecUtil_Destroy(h);
}

TEST(H265, EveryWrapOffsetGivesTheContiguousBytes) {
    const Bytes unit = {0, 0, 0, 3, 0x26, 0x01, 0xAF, 0, 0, 0, 5, 0, 0, 0, 1, 0x02};
    EXPECT_EQ(wrap_mismatches([] { return make(kConfig); }, unit), std::vector<uint32_t>{});
}

TEST(H265, FailedBlobAllocationLeavesNothingBehind) {
    for (int fail = 0; fail <= 2; ++fail) {
        CountingMemory mem;
        mem.fail_at(fail);
        void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H265, mem.table());
        EXPECT_EQ(h == nullptr, fail == 1);  // the record itself
        if (h != nullptr) {
            Bytes c = kConfig;
            CodecUtilH264Param_t p{c.data(), static_cast<zarn_uint32>(c.size())};
            EXPECT_EQ(Zarn_CodecUtil_SetParam(h, &p), fail != 2);
            EXPECT_EQ(Zarn_CodecUtil_CheckConv(h), fail != 2);  // no blob: no conversion
            (void)Zarn_CodecUtil_SetParam(h, &p);
            // Codec data taken away switches the converter off.
            EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, nullptr));
            EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
            Zarn_CodecUtil_Destroy(h);
        }
        EXPECT_EQ(mem.live(), 0);
    }
}

}  // namespace
