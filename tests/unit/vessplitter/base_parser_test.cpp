#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "bit_writer.h"
#include "registry.h"
#include "sei_sps_parser.h"

namespace {

using vestest_old::BitWriter;

using RbspReader = vestest_old::Reader;

TEST(ExpGolomb, CodesFromTheStandard) {
    const std::string z11(11, '0'), z15(15, '0');
    struct Row {
        std::string bits;
        uint32_t value;
    };
    const Row rows[] = {{"1", 0},
                        {"010", 1},
                        {"011", 2},
                        {"00100", 3},
                        {"0001000", 7},
                        {z11 + "1" + z11, 2047},
                        {z15 + "1" + z15, 32767}};  // across bytes
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bits);
        BitWriter w;
        for (char c : row.bits) w.u(1, c == '1');
        w.u(1, 1).align_zero();  // a following 1 bit must stay unread
        RbspReader r(w.bytes());
        EXPECT_EQ(read_ue(r), row.value);
        EXPECT_EQ(src_read_bit(r), 1u);
    }
}

TEST(ExpGolomb, RoundTripUpTo31LeadingZeros) {
    const uint64_t values[] = {0,
                               1,
                               254,
                               255,
                               256,
                               65535,
                               1u << 20,
                               (1ull << 31) - 2,
                               (1ull << 31) - 1,
                               0xFFFFFFFEull};  // last: 31 zeros, all ones
    for (int shift = 0; shift < 3; ++shift) {   // start on a bit boundary too
        BitWriter w;
        w.u(static_cast<uint32_t>(shift), 0);
        for (uint64_t v : values) w.ue(v).u(1, 1);
        w.align_zero();
        RbspReader r(w.bytes());
        src_read_bits(r, static_cast<uint32_t>(shift));
        for (uint64_t v : values) {
            SCOPED_TRACE(v);
            EXPECT_EQ(read_ue(r), v);
            EXPECT_EQ(src_read_bit(r), 1u);
        }
    }
}

TEST(ExpGolomb, UndecodableCodesYieldAllOnes) {
    // 32 leading zeros: the value does not fit; the whole code is consumed.
    BitWriter w;
    w.u(32, 0).u(1, 1).u(32, 0x12345678).u(8, 0xA5);
    RbspReader r(w.bytes());
    EXPECT_EQ(read_ue(r), 0xFFFFFFFFu);
    EXPECT_EQ(src_read_bits(r, 8), 0xA5u);
    // Cut off by the end of the RBSP: no marker bit left.
    RbspReader cut({0x80, 0x00, 0x00});
    EXPECT_EQ(src_read_bit(cut), 1u);
    EXPECT_EQ(read_ue(cut), 0xFFFFFFFFu);
    EXPECT_EQ(src_following_bit_num(cut), 0);
    EXPECT_EQ(read_ue(cut), 0xFFFFFFFFu);  // at the end already
}

TEST(ExpGolomb, SignedMapping) {
    BitWriter w;
    for (uint32_t k : {0u, 1u, 2u, 5u, 6u}) w.ue(k);
    w.align_zero();
    RbspReader r(w.bytes());
    for (int32_t expected : {0, 1, -1, 3, -3}) EXPECT_EQ(read_se(r), expected);
}

TEST(EmulationPrevention, RemovesThe03AfterTwoZeros) {
    struct Row {
        const char* name;
        std::vector<uint8_t> in;
        std::vector<uint8_t> out;
    };
    const Row rows[] = {
        {"start-code-like", {0, 0, 3, 1}, {0, 0, 1}},
        {"03 last", {0, 0, 3}, {0, 0}},
        {"three zeros", {0, 0, 0, 3}, {0, 0, 0}},
        {"two bytes", {0, 3}, {0, 3}},
        {"written zeros not rescanned", {0, 0, 3, 0, 0, 3}, {0, 0, 0, 0}},
        {"03 before a high byte", {0, 0, 3, 0xFF, 1}, {0, 0, 0xFF, 1}},
        {"empty", {}, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<uint8_t> dst(row.in.size() + 1, 0xEE);
        size_t n = 99;
        parser_remove_0x03(dst.data(), &n, row.in.data(), row.in.size());
        ASSERT_EQ(n, row.out.size());
        EXPECT_TRUE(std::equal(row.out.begin(), row.out.end(), dst.begin()));
        EXPECT_EQ(dst[row.in.size()], 0xEE);  // nothing written past srclen
    }
}

TEST(SeiByteRun, TypeAndSizeCoding) {
    struct Row {
        std::vector<uint8_t> in;
        uint32_t value;
        uint32_t size;
    };
    const Row rows[] = {{{0xFF, 0xFF, 0x05}, 515, 3},
                        {{0x00}, 0, 1},
                        {{0xFF, 0x00}, 255, 2},
                        {{0xFE}, 254, 1},
                        {{0xFF}, 255, 2}};  // last: run cut by the end
    for (const Row& row : rows) {
        RbspReader r(row.in);
        uint32_t size = 0;
        EXPECT_EQ(read_sei_tv(r, &size), row.value);
        EXPECT_EQ(size, row.size);
    }
}

TEST(SeiNames, SpellingAndOutOfRange) {
    EXPECT_STREQ(get_sei_payloadType_dscr(11), "sub_seq-layer_characteristics");
    EXPECT_STREQ(get_sei_payloadType_dscr(19), "not care");
}

TEST(ReservedBits, NonZeroIsReportedOnlyAtDebugLevel) {
    RbspReader r({0xA0, 0xA0});
    {
        vestest_old::EdrCapture quiet(3);
        read_0_bits(r, 4);  // 1010 below the debug level
        EXPECT_EQ(quiet.text(), "");
    }
    vestest_old::EdrCapture debug(4);
    read_0_bits(r, 4);  // 0000: silent
    read_0_bits(r, 4);  // 1010
    read_0_bits(r, 4);
    const std::string text = debug.text();
    EXPECT_EQ(text.rfind("read_0_bits:", 0), 0u);
    EXPECT_NE(text.find(" DEBUG: field error - 4 bits should be 0 but get a\n\n"),
              std::string::npos);
    EXPECT_EQ(text.find("field error", text.find("field error") + 1), std::string::npos);
}

TEST(ParserCreation, FailsWithoutABufferDevice) {
    reg_bbio_init();
    EXPECT_EQ(avc_parser_create(1, 1), nullptr);
    EXPECT_EQ(hevc_parser_create(1, 1), nullptr);
    parser_env_init();
    EXPECT_EQ(parser_get_bp_num(nullptr), 0);
    EXPECT_EQ(parser_get_sei_timing_num(nullptr), 0);
}

}  // namespace
