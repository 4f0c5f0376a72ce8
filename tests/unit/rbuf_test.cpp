#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "zarn_codec_util_rbuf.h"

namespace {

struct WrapCase {
    const char* name;
    uint32_t room;         // bytes between wp and end
    uint32_t size;         // bytes written
    uint32_t first_piece;  // bytes expected at wp
    int next;  // expected result: offset from start (>= 0) or from wp (< 0 means wp + size)
};

TEST(WriteToRing, SplitsAtTheWrapPoint) {
    const WrapCase cases[] = {
        {"fits", 8, 5, 5, -1},
        {"lands exactly on end wraps the position", 8, 8, 8, 0},
        {"10 bytes with 4 left", 4, 10, 4, 6},
        {"one past end", 4, 5, 4, 1},
        {"empty", 4, 0, 0, -1},
        {"empty at end keeps the position", 0, 0, 0, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::array<uint8_t, 32> second{};
        std::array<uint8_t, 32> first{};
        std::array<uint8_t, 16> data{};
        for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i + 1);
        uint8_t* wp = first.data() + 4;
        uint8_t* end = wp + c.room;
        uint8_t* got = write2ringbuffer(second.data(), end, wp, data.data(), c.size);
        if (c.next < 0)
            EXPECT_EQ(got, wp + c.size);
        else
            EXPECT_EQ(got, second.data() + c.next);
        for (uint32_t i = 0; i < c.first_piece; ++i) EXPECT_EQ(wp[i], data[i]);
        for (uint32_t i = c.first_piece; i < c.size; ++i)
            EXPECT_EQ(second[i - c.first_piece], data[i]);
        EXPECT_EQ(first[0], 0);  // nothing before wp
    }
}

TEST(WriteToRing, ChainedWritesContinueAfterTheWrap) {
    std::array<uint8_t, 8> first{};
    std::array<uint8_t, 8> second{};
    uint8_t a[3] = {1, 2, 3};
    uint8_t b[2] = {4, 5};
    uint8_t* end = first.data() + 3;
    uint8_t* wp = write2ringbuffer(second.data(), end, first.data(), a, 3);
    ASSERT_EQ(wp, second.data());
    wp = write2ringbuffer(second.data(), end, wp, b, 2);
    EXPECT_EQ(wp, second.data() + 2);
    EXPECT_EQ(second[0], 4);
    EXPECT_EQ(second[1], 5);
}

}  // namespace
