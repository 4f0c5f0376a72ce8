#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "bit_writer.h"
#include "io_buffer.h"
#include "registry.h"
#include "sei_sps_parser.h"

namespace {

using vestest_old::Reader;

TEST(BitReader, ReadsThroughOneByteCache) {
    Reader r({0xA5, 0xFF});
    EXPECT_EQ(src_read_bits(r, 3), 5u);     // 101
    EXPECT_EQ(src_read_bits(r, 7), 0x17u);  // 00101 11
    EXPECT_EQ(src_bits_cached(r), 6u);
    EXPECT_EQ(r->position(r), 2);

    Reader w({0x12, 0x34, 0x56, 0x78, 0x9A});
    EXPECT_EQ(src_following_bit_num(w), 40);
    EXPECT_EQ(src_read_bits(w, 0), 0u);
    EXPECT_EQ(w->position(w), 0);
    EXPECT_EQ(src_read_bits(w, 32), 0x12345678u);
    EXPECT_EQ(src_bits_cached(w), 0u);
    EXPECT_EQ(src_read_bit(w), 1u);
    EXPECT_EQ(src_following_bit_num(w), 7);
    // Past the end: zero bits, and the reader keeps going.
    EXPECT_EQ(src_read_bits(w, 15), 0x1A00u);

    Reader wide({0xFF, 0x12, 0x34, 0x56, 0x78});
    EXPECT_EQ(src_read_bits(wide, 40), 0x12345678u);  // more than 32: the last 32
    EXPECT_EQ(src_following_bit_num(wide), 0);
}

TEST(BitReader, SkipSeeksWholeBytesThenReadsTheRest) {
    Reader r({0x00, 0x11, 0xAB, 0xCD});
    src_skip_bits(r, 20);
    EXPECT_EQ(src_bits_cached(r), 4u);
    EXPECT_EQ(r->position(r), 3);
    EXPECT_EQ(src_read_bits(r, 4), 0xBu);
    src_skip_bits(r, 2);  // fetches 0xCD
    EXPECT_EQ(src_bits_cached(r), 6u);
    src_skip_bits(r, 3);  // inside the cache
    EXPECT_EQ(src_bits_cached(r), 3u);
    EXPECT_EQ(src_read_bits(r, 3), 0x5u);  // ...101
    src_skip_bits(r, 64);  // refused seek: offset stays, the odd bits read past the end
    EXPECT_EQ(r->position(r), 4);
}

TEST(BitReader, PeekLeavesReaderUnchanged) {
    Reader r({0xA5, 0x3C, 0x0F});
    src_read_bits(r, 3);
    const uint32_t peeked = src_peek_bits(r, 8, 0);
    EXPECT_EQ(r->position(r), 1);
    EXPECT_EQ(src_bits_cached(r), 5u);
    // Displacement counts from the byte after the cached one.
    EXPECT_EQ(src_peek_bits(r, 8, 1), 0x0Fu);
    EXPECT_EQ(src_read_bits(r, 8), peeked);
    EXPECT_EQ(peeked, 0x29u);  // 00101 001
    EXPECT_EQ(src_peek_bits(r, 13, 0), 0x1C0Fu);
    EXPECT_EQ(src_peek_bits(r, 14, 0), 0xFFFFFFFFu);  // 13 bits left
    EXPECT_EQ(src_following_bit_num(r), 13);
}

TEST(ByteReader, BigEndianAndShortReads) {
    Reader r({0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B});
    EXPECT_EQ(src_read_u8(r), 0x01u);
    EXPECT_EQ(src_read_u16(r), 0x0203u);
    EXPECT_EQ(src_read_u24(r), 0x040506u);
    EXPECT_EQ(src_read_u32(r), 0x0708090Au);
    // One byte left: the missing low-order bytes read as 0.
    EXPECT_EQ(src_read_u64(r), 0x0B00000000000000ull);
    EXPECT_EQ(src_read_u16(r), 0u);
}

TEST(BufferDevice, SeekSkipAndEndOfData) {
    Reader r({1, 2, 3, 4});
    struct Row {
        int64_t offset;
        int origin;
        int result;
        int64_t position;
    };
    const Row rows[] = {
        {4, 0, 0, 4},    // exactly the capacity
        {5, 0, -1, 4},   // one past: refused, offset kept
        {-1, 1, 0, 3},   // relative
        {-4, 1, -1, 3},  // below 0
        {-2, 2, 0, 2},   // from the end of data
        {1, 2, -1, 2},  {INT64_MAX, 1, -1, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.offset);
        EXPECT_EQ(r->seek(r, row.offset, row.origin), row.result);
        EXPECT_EQ(r->position(r), row.position);
    }
    EXPECT_TRUE(r->is_more_byte2(r));
    EXPECT_EQ(r->skip_bytes(r, 1), 0);
    EXPECT_TRUE(r->is_more_byte(r));
    EXPECT_FALSE(r->is_more_byte2(r));
    EXPECT_EQ(r->skip_bytes(r, 10), 0);
    EXPECT_EQ(r->position(r), 4);
    EXPECT_TRUE(r->is_EOD(r));
    EXPECT_EQ(r->skip_bytes(r, -10), 0);
    EXPECT_EQ(r->position(r), 0);
}

TEST(BufferDevice, ReadBeyondDataIsShortenedAndReported) {
    Reader r({1, 2, 3});
    uint8_t out[8] = {};
    testing::internal::CaptureStdout();
    EXPECT_EQ(r->read(r, out, 8), 3u);
    EXPECT_EQ(r->read(r, out, 1), 0u);
    EXPECT_EQ(r->read(r, nullptr, 1), 0u);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(printed, "Io buffer: ERR: read beyond buffer\nIo buffer: ERR: read beyond buffer\n");
    size_t left = 99;
    EXPECT_EQ(r->get_buffer(r, &left, nullptr), r.dev()->buf);
    EXPECT_EQ(left, 0u);
}

TEST(BufferDevice, SlotsByModeAndOwnedStorage) {
    parser_env_init();
    bbio_handle_t w = reg_bbio_get('b', 'w');
    bbio_handle_t r = reg_bbio_get('b', 'r');
    ASSERT_NE(w, nullptr);
    ASSERT_NE(r, nullptr);
    EXPECT_NE(w->write, nullptr);
    EXPECT_EQ(w->read, nullptr);
    EXPECT_EQ(r->write, nullptr);
    EXPECT_NE(r->read, nullptr);
    EXPECT_EQ(r->get_path, nullptr);
    // Only "w" and "r" are registered.
    EXPECT_EQ(reg_bbio_get('b', 'e'), nullptr);
    EXPECT_EQ(reg_bbio_get('B', 'r'), nullptr);
    r->set_buffer(r, static_cast<uint8_t*>(std::malloc(4)), 4, 1);
    EXPECT_EQ(r->size(r), 4);
    w->destroy(w);
    r->destroy(r);  // leak checkers see the owned block released
}

TEST(WriteDevice, GrowsByHalfFromCapacityPlusFourOrRefuses) {
    parser_env_init();
    bbio_handle_t w = reg_bbio_get('b', 'w');
    auto* dev = reinterpret_cast<bbio_buf_t*>(w);
    w->set_buffer(w, nullptr, 0, 1);
    const uint8_t bytes[20] = {9, 8, 7, 6, 5, 4, 3, 2, 1};
    EXPECT_EQ(w->write(w, bytes, 1), 1u);
    EXPECT_EQ(dev->buf_size, 6u);  // (0 + 4) * 1.5
    EXPECT_EQ(w->write(w, bytes, 6), 6u);
    EXPECT_EQ(dev->buf_size, 15u);  // 10 -> 15 holds 7
    // An unrepresentable end neither writes nor changes the device.
    EXPECT_EQ(w->write(w, bytes, SIZE_MAX), 0u);
    EXPECT_EQ(dev->buf_size, 15u);
    EXPECT_EQ(w->position(w), 7);
    size_t data_size = 0;
    size_t buf_size = 0;
    uint8_t* block = w->get_buffer(w, &data_size, &buf_size);
    EXPECT_EQ(data_size, 7u);
    EXPECT_EQ(buf_size, 15u);
    EXPECT_EQ(block[0], 9);
    EXPECT_EQ(block[6], 4);
    EXPECT_EQ(dev->buf, nullptr);
    std::free(block);

    w->set_buffer(w, nullptr, 0, 0);  // fixed storage
    EXPECT_EQ(w->write(w, bytes, 1), 0u);
    w->set_buffer(w, nullptr, 2, 0);  // fresh block of 2
    EXPECT_EQ(w->write(w, bytes, 2), 2u);
    EXPECT_EQ(w->write(w, bytes, 1), 0u);
    std::free(w->get_buffer(w, &data_size, nullptr));
    EXPECT_EQ(data_size, 2u);
    w->destroy(w);
}

parser_handle_t fake_parser(uint32_t dsi_type) {
    return reinterpret_cast<parser_handle_t>(static_cast<uintptr_t>(0x1000 + dsi_type));
}
parser_handle_t other_parser(uint32_t) { return nullptr; }

TEST(ParserRegistry, NamesMatchIgnoringCaseInRegistrationOrder) {
    reg_parser_init();
    EXPECT_EQ(reg_parser_get("avc", 0), nullptr);
    char avc[] = "avc";
    char avc2[] = "AVC";
    reg_parser_set(avc, fake_parser);
    reg_parser_set(avc2, other_parser);
    EXPECT_EQ(reg_parser_get("AVC", 7), fake_parser(7));
    EXPECT_EQ(reg_parser_get("hevc", 7), nullptr);
    reg_parser_init();
    EXPECT_EQ(reg_parser_get("avc", 7), nullptr);
}

}  // namespace
