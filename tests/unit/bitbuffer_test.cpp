// Circular bit buffer: reads, writes, alignment, winding, wrap-around and
// the error bit.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "zarn_codec_util_bitbuf.h"
#include "zarn_debug.h"

namespace {

bool failed(BIT_BUF& b) { return (GetBitBufStatus(&b) & BIT_BUF_STATUS_ERROR) != 0; }

TEST(BitBuffer, ReadsMostSignificantBitFirst) {
    uint8_t data[] = {0xA5, 0xF0};
    BIT_BUF b;
    CreateInitializedBitBuffer(&b, data, 16);
    EXPECT_EQ(ReadBits(&b, 8), 0xA5u);  // ends on a byte boundary: next byte entered
    EXPECT_EQ(b.rBitPos, 7);
    EXPECT_EQ(b.pReadNext, data + 1);
    EXPECT_EQ(b.rCache, 0xF0);
    WindBitBufferBidirectional(&b, -4);
    EXPECT_EQ(ReadBits(&b, 8), 0x5Fu);
    EXPECT_EQ(b.rBitPos, 3);
    EXPECT_EQ(GetBitsInBuf(&b), 4u);
    EXPECT_EQ(GetReadBits(&b), 12u);
    EXPECT_EQ(ReadBits(&b, 0), 0u);
    EXPECT_FALSE(failed(b));
}

TEST(BitBuffer, ReadsOfEveryWidthAtEveryBitOffset) {
    // 64 bits of a known pattern, read as n bits from bit `at`.
    const std::array<uint8_t, 8> pattern = {0x9B, 0x3C, 0xE1, 0x47, 0xD2, 0x08, 0x7F, 0xA6};
    uint64_t all = 0;
    for (uint8_t byte : pattern) all = (all << 8) | byte;
    for (unsigned at = 0; at < 24; ++at) {
        for (unsigned n = 1; n <= 32; ++n) {
            std::array<uint8_t, 8> data = pattern;
            BIT_BUF b;
            CreateInitializedBitBuffer(&b, data.data(), 64);
            ReadBits(&b, static_cast<unsigned char>(at));
            const auto want =
                static_cast<uint32_t>((all >> (64 - at - n)) & ((uint64_t{1} << n) - 1));
            ASSERT_EQ(ReadBits(&b, static_cast<unsigned char>(n)), want)
                << "at " << at << " n " << n;
            EXPECT_EQ(b.rCache, data[(at + n) / 8]);
        }
    }
}

// Over-reads and impossible winds set the sticky error bit and change
// nothing else; what was there stays readable.
TEST(BitBuffer, FailuresSetTheStickyErrorBitOnly) {
    uint8_t data[] = {0xAB, 0xCD};
    BIT_BUF b;
    CreateInitializedBitBuffer(&b, data, 16);
    ReadBits(&b, 8);
    WindBitBufferBidirectional(&b, -9);  // only 8 read
    EXPECT_TRUE(failed(b));
    WindBitBufferBidirectional(&b, 9);  // only 8 left
    WindBitBufferBidirectional(&b, INT32_MIN);
    EXPECT_EQ(ReadBits(&b, 9), 0u);
    EXPECT_EQ(GetReadBits(&b), 8u);
    EXPECT_EQ(GetBitsInBuf(&b), 8u);
    EXPECT_EQ(b.pReadNext, data + 1);
    WindBitBufferBidirectional(&b, -8);  // back to the start
    EXPECT_EQ(GetReadBits(&b), 0u);
    EXPECT_EQ(GetBitsInBuf(&b), 16u);
    EXPECT_EQ(ReadBits(&b, 16), 0xABCDu);
    EXPECT_TRUE(failed(b));  // sticky
    ResetBitBuffer(&b);
    EXPECT_FALSE(failed(b));
    EXPECT_EQ(GetBitsInBuf(&b), 0u);
}

TEST(BitBuffer, ReadPastTheLastByteContinuesAtTheAreaStart) {
    // The area of an offset buffer starts at the offset byte, but its last
    // byte is counted from the memory's start; cntBits is not reduced by the
    // offset, so a full read wraps.
    uint8_t data[] = {0x11, 0x22, 0x33};
    BIT_BUF b;
    CreateInitializedOffsetBitBuffer(&b, data, 24, 8);
    EXPECT_EQ(b.pBitBufBase, data + 1);
    EXPECT_EQ(b.pBitBufEnd, data + 2);
    EXPECT_EQ(ReadBits(&b, 12), 0x223u);
    EXPECT_EQ(ReadBits(&b, 12), 0x322u);  // 0x3 from the last byte, then the start again
    EXPECT_EQ(b.pReadNext, data + 2);     // entered after the start byte was used up
    CreateInitializedOffsetBitBuffer(&b, data, 24, 9);  // mid-byte: 0x22 from its second bit
    EXPECT_EQ(b.rBitPos, 6);
    EXPECT_EQ(ReadBits(&b, 3), 0b010u);
}

TEST(BitBuffer, WritesKeepTheNeighbouringBits) {
    uint8_t data[] = {0xFF, 0xFF, 0xFF};
    BIT_BUF b;
    CreateBitBuffer(&b, data, 24);
    EXPECT_EQ(WriteBits(&b, 0b010, 3), 3);
    EXPECT_EQ(data[0], 0x5F);
    EXPECT_EQ(WriteBits(&b, 0x0ABC, 12), 12);  // spans bytes 0 and 1
    EXPECT_EQ(data[0], 0b01010101);
    EXPECT_EQ(data[1], 0b01111001);
    EXPECT_EQ(data[2], 0xFF);
    EXPECT_EQ(GetBitsInBuf(&b), 15u);
    EXPECT_EQ(ReadBits(&b, 15), (0b010u << 12) | 0xABCu);
}

TEST(BitBuffer, WritesWrapAndReadsFollowThem) {
    uint8_t data[] = {0, 0};
    BIT_BUF b;
    CreateBitBuffer(&b, data, 16);
    WriteBits(&b, 0xA, 4);
    EXPECT_EQ(ReadBits(&b, 2), 0b10u);
    WriteBits(&b, 0x5, 4);  // same byte as the read position: the cache is refreshed
    EXPECT_EQ(ReadBits(&b, 6), 0b100101u);
    for (uint32_t v : {0xABCu, 0x123u, 0xFEDu, 0x456u}) {
        WriteBits(&b, v, 12);
        EXPECT_EQ(ReadBits(&b, 12), v);
    }
    EXPECT_FALSE(failed(b));
}

TEST(BitBuffer, AlignBitsPadsToTheNextByte) {
    struct Case {
        unsigned written;
        int padding;
    };
    for (const Case c : {Case{0, 0}, Case{1, 7}, Case{3, 5}, Case{7, 1}, Case{8, 0}, Case{13, 3}}) {
        uint8_t data[4] = {0xFF, 0xFF, 0xFF, 0xFF};
        BIT_BUF b;
        CreateBitBuffer(&b, data, 32);
        WriteBits(&b, 0xFFFFFFFF, static_cast<unsigned char>(c.written));
        EXPECT_EQ(AlignBits(&b), c.padding) << c.written;
        EXPECT_EQ(GetBitsInBuf(&b) % 8, 0u);
        if (c.padding != 0) {
            EXPECT_EQ(data[c.written / 8] & ((1u << c.padding) - 1), 0u);
        }
    }
}

TEST(BitBuffer, ByteAlignDropsToTheBoundaryCountedFromTheReference) {
    uint8_t data[] = {0xFF, 0x81, 0x42};
    BIT_BUF b;
    CreateInitializedBitBuffer(&b, data, 24);
    ReadBits(&b, 8);
    zarn_sint32 anchor = static_cast<zarn_sint32>(GetBitsInBuf(&b));
    ReadBits(&b, 3);
    ByteAlign(&b, &anchor);  // drops 5
    EXPECT_EQ(anchor, 8);
    EXPECT_EQ(ReadBits(&b, 8), 0x42u);
    ByteAlign(&b, &anchor);  // 8 read since: aligned, nothing dropped
    EXPECT_EQ(anchor, 0);
    EXPECT_FALSE(failed(b));
}

TEST(BitBuffer, WindingIsBitExactInBothDirections) {
    uint8_t data[] = {0x12, 0x34, 0x56, 0x78};
    for (int first = 0; first <= 20; ++first) {
        for (int back = 1; back <= first; ++back) {
            BIT_BUF b;
            CreateInitializedBitBuffer(&b, data, 32);
            ReadBits(&b, static_cast<unsigned char>(first));
            WindBitBufferBidirectional(&b, -back);
            ASSERT_FALSE(failed(b));
            WindBitBufferBidirectional(&b, back - 1);  // forward again in two steps
            WindBitBufferBidirectional(&b, 1);
            const uint32_t want = (0x12345678u >> (32 - first - 8)) & 0xFF;
            ASSERT_EQ(ReadBits(&b, 8), want) << first << " " << back;
        }
    }
}

TEST(BitBuffer, WindBackAcrossTheAreaStart) {
    uint8_t data[] = {0, 0};
    BIT_BUF b;
    CreateBitBuffer(&b, data, 16);
    WriteBits(&b, 0xABC, 12);
    ReadBits(&b, 12);
    WriteBits(&b, 0xDEF, 12);  // bits 12..15 and, wrapped, 0..7
    EXPECT_EQ(ReadBits(&b, 12), 0xDEFu);
    WindBitBufferBidirectional(&b, -8);
    EXPECT_FALSE(failed(b));
    EXPECT_EQ(b.pReadNext, data);
    EXPECT_EQ(ReadBits(&b, 8), 0xEFu);
}

// Writes have no capacity check, so more bits can be pending than the area
// holds; a read or wind then steps further than the area is long and wraps
// modulo its length.
TEST(BitBuffer, StepsLongerThanTheAreaWrapModuloItsLength) {
    uint8_t one[1] = {};
    BIT_BUF b;
    CreateBitBuffer(&b, one, 8);
    for (int i = 0; i < 3; ++i) WriteBits(&b, 0xA5, 8);
    EXPECT_EQ(ReadBits(&b, 24), 0xA5A5A5u);
    EXPECT_EQ(b.pReadNext, one);

    uint8_t two[2] = {};
    CreateBitBuffer(&b, two, 16);
    WriteBits(&b, 0x11223344, 32);  // the area keeps 33 44
    WindBitBufferBidirectional(&b, 24);
    EXPECT_FALSE(failed(b));
    EXPECT_EQ(b.pReadNext, two + 1);
    EXPECT_EQ(ReadBits(&b, 8), 0x44u);
}

TEST(BitBuffer, EmptyAreaIsNeverTouched) {
    BIT_BUF b;
    uint8_t byte = 0x5A;
    CreateInitializedBitBuffer(&b, &byte, 0);
    EXPECT_EQ(b.rCache, 0);
    EXPECT_EQ(ReadBits(&b, 1), 0u);
    EXPECT_TRUE(failed(b));
    // Offset past the area: bits declared over no bytes.
    CreateInitializedOffsetBitBuffer(&b, &byte, 8, 8);
    EXPECT_EQ(ReadBits(&b, 8), 0u);
    EXPECT_TRUE(failed(b));
    WriteBits(&b, 0xFF, 8);
    EXPECT_EQ(byte, 0x5A);
}

TEST(BitBuffer, CopyAllDuplicatesTheAreaAndPositions) {
    uint8_t src_data[] = {0x12, 0x34};
    uint8_t dst_data[] = {0, 0};
    BIT_BUF src;
    BIT_BUF dst;
    CreateInitializedBitBuffer(&src, src_data, 16);
    ReadBits(&src, 4);
    CreateBitBuffer(&dst, dst_data, 16);
    CopyBitBufAll(&src, &dst);
    EXPECT_EQ(dst_data[0], 0x12);
    EXPECT_EQ(dst.pReadNext, dst_data);
    EXPECT_EQ(ReadBits(&dst, 12), 0x234u);
    EXPECT_EQ(ReadBits(&src, 12), 0x234u);  // the source reads on by itself
}

TEST(BitBuffer, CountsAboveThirtyTwoTripTheAssertionAndGoOn) {
    unsetenv("VXM_SYS_ASSERT");
    vxm_sys_request_assert = -1;
    uint8_t data[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
    BIT_BUF b;
    CreateInitializedBitBuffer(&b, data, 64);
    testing::internal::CaptureStdout();
    const uint32_t got = ReadBits(&b, 40);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("noBitsToRead <= 32 failed"), std::string::npos);
    EXPECT_EQ(got, 0x23456789u);  // the low 32 of the 40 bits
    EXPECT_EQ(GetBitsInBuf(&b), 24u);

    uint8_t area[8] = {};
    CreateBitBuffer(&b, area, 64);
    testing::internal::CaptureStdout();
    EXPECT_EQ(WriteBits(&b, 0xFFFFFFFF, 36), 36);
    out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("noBitsToWrite <= 32 failed"), std::string::npos);
    EXPECT_EQ(area[0], 0x0F);  // four zero bits above the value
    EXPECT_EQ(area[4], 0xF0);
}

TEST(BitBufferDeathTest, CountsAboveThirtyTwoAbortWhenAsked) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            setenv("VXM_SYS_ASSERT", "1", 1);
            vxm_sys_request_assert = -1;
            uint8_t data[8] = {};
            BIT_BUF b;
            CreateInitializedBitBuffer(&b, data, 64);
            ReadBits(&b, 33);
        },
        "");
}

}  // namespace
