#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "io_buffer.h"
#include "registry.h"
#include "sei_sps_parser.h"

namespace {

// A read device over a copy of `bytes`, made through the registry.
class Reader {
public:
    explicit Reader(std::vector<uint8_t> bytes) : data_(std::move(bytes)) {
        parser_env_init();
        io_ = reg_bbio_get('b', 'r');
        io_->set_buffer(io_, data_.data(), data_.size(), 0);
    }
    ~Reader() { io_->destroy(io_); }
    bbio_handle_t operator->() const { return io_; }
    operator bbio_handle_t() const { return io_; }
    bbio_buf_t* dev() const { return reinterpret_cast<bbio_buf_t*>(io_); }

private:
    std::vector<uint8_t> data_;
    bbio_handle_t io_;
};

TEST(BitReader, ReadsAcrossBytesThroughOneByteCache) {
    Reader r({0xA5, 0xFF});
    EXPECT_EQ(src_read_bits(r, 3), 5u);     // 101
    EXPECT_EQ(src_read_bits(r, 7), 0x17u);  // 00101 11
    EXPECT_EQ(src_bits_cached(r), 6u);
    EXPECT_EQ(r->position(r), 2);
}

TEST(BitReader, WidthsZeroAnd32) {
    Reader r({0x12, 0x34, 0x56, 0x78, 0x9A});
    EXPECT_EQ(src_read_bits(r, 0), 0u);
    EXPECT_EQ(r->position(r), 0);
    EXPECT_EQ(src_read_bits(r, 32), 0x12345678u);
    EXPECT_EQ(src_bits_cached(r), 0u);
    EXPECT_EQ(src_read_bits(r, 4), 0x9u);
    // Past the end: zero bits, and the reader keeps going.
    EXPECT_EQ(src_read_bits(r, 12), 0xA00u);
}

TEST(BitReader, MoreThan32BitsKeepsTheLast32) {
    Reader r({0xFF, 0x12, 0x34, 0x56, 0x78});
    EXPECT_EQ(src_read_bits(r, 40), 0x12345678u);
    EXPECT_EQ(src_following_bit_num(r), 0);
}

TEST(BitReader, FollowingBitsCountsCache) {
    Reader r(std::vector<uint8_t>(10, 0x55));
    EXPECT_EQ(src_following_bit_num(r), 80);
    src_read_bit(r);
    EXPECT_EQ(src_following_bit_num(r), 79);
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
    const int64_t pos = r->position(r);
    const uint32_t peeked = src_peek_bits(r, 8, 0);
    EXPECT_EQ(r->position(r), pos);
    EXPECT_EQ(src_bits_cached(r), 5u);
    EXPECT_EQ(src_read_bits(r, 8), peeked);
    EXPECT_EQ(peeked, 0x29u);  // 00101 001
}

TEST(BitReader, PeekWithDisplacementAndPastTheEnd) {
    Reader r({0xA5, 0x3C, 0x0F});
    src_read_bits(r, 3);
    // Displacement counts from the byte after the cached one.
    EXPECT_EQ(src_peek_bits(r, 8, 1), 0x0Fu);
    EXPECT_EQ(src_read_bits(r, 5), 0x05u);
    EXPECT_EQ(src_peek_bits(r, 17, 0), 0xFFFFFFFFu);  // 16 bits left
    EXPECT_EQ(src_peek_bits(r, 16, 0), 0x3C0Fu);
    EXPECT_EQ(src_following_bit_num(r), 16);
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

TEST(BufferDevice, SeekLimitIsTheCapacity) {
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
        {1, 2, -1, 2},
        {INT64_MAX, 1, -1, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.offset);
        EXPECT_EQ(r->seek(r, row.offset, row.origin), row.result);
        EXPECT_EQ(r->position(r), row.position);
    }
}

TEST(BufferDevice, SkipBytesAndEndOfData) {
    Reader r({1, 2, 3});
    EXPECT_TRUE(r->is_more_byte2(r));
    EXPECT_EQ(r->skip_bytes(r, 2), 0);
    EXPECT_TRUE(r->is_more_byte(r));
    EXPECT_FALSE(r->is_more_byte2(r));
    EXPECT_EQ(r->skip_bytes(r, 10), 0);
    EXPECT_EQ(r->position(r), 3);
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

TEST(BufferDevice, SlotsByMode) {
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
    EXPECT_EQ(r->open(r, "x"), 0);
    // Only "w" and "r" are registered.
    EXPECT_EQ(reg_bbio_get('b', 'e'), nullptr);
    EXPECT_EQ(reg_bbio_get('B', 'r'), nullptr);
    w->destroy(w);
    r->destroy(r);
}

TEST(WriteDevice, GrowsByHalfFromCapacityPlusFour) {
    parser_env_init();
    bbio_handle_t w = reg_bbio_get('b', 'w');
    auto* dev = reinterpret_cast<bbio_buf_t*>(w);
    w->set_buffer(w, nullptr, 0, 1);
    const uint8_t bytes[20] = {9, 8, 7, 6, 5, 4, 3, 2, 1};
    EXPECT_EQ(w->write(w, bytes, 1), 1u);
    EXPECT_EQ(dev->buf_size, 6u);  // (0 + 4) * 1.5
    EXPECT_EQ(w->write(w, bytes, 6), 6u);
    EXPECT_EQ(dev->buf_size, 15u);  // 10 -> 15 holds 7
    EXPECT_EQ(dev->data_size, 7u);
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
    w->destroy(w);
}

TEST(WriteDevice, FixedStorageRefusesOverflow) {
    parser_env_init();
    bbio_handle_t w = reg_bbio_get('b', 'w');
    w->set_buffer(w, nullptr, 0, 0);
    const uint8_t b = 1;
    EXPECT_EQ(w->write(w, &b, 1), 0u);
    w->set_buffer(w, nullptr, 2, 0);  // fresh block of 2
    EXPECT_EQ(w->write(w, &b, 1), 1u);
    EXPECT_EQ(w->write(w, &b, 1), 1u);
    EXPECT_EQ(w->write(w, &b, 1), 0u);
    size_t n = 0;
    std::free(w->get_buffer(w, &n, nullptr));
    EXPECT_EQ(n, 2u);
    w->destroy(w);
}

TEST(ReadDevice, OwnedStorageIsFreedByDestroy) {
    parser_env_init();
    bbio_handle_t r = reg_bbio_get('b', 'r');
    auto* owned = static_cast<uint8_t*>(std::malloc(4));
    r->set_buffer(r, owned, 4, 1);
    EXPECT_EQ(r->size(r), 4);
    r->destroy(r);  // leak checkers see the block released
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
