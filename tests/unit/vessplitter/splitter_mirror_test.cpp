// Double-mapped input ring: the second view aliases the first, wraps read
// contiguously, resizing keeps content and stream position.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <numeric>
#include <vector>

#include "splitter_test_util.h"

namespace {

using splittest::Bytes;

int page_size() { return static_cast<int>(sysconf(_SC_PAGESIZE)); }

Bytes pattern(int n, uint8_t seed) {
    Bytes b(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) b[static_cast<size_t>(i)] = static_cast<uint8_t>(seed + i * 7);
    return b;
}

TEST(SplitterMirror, OnePageRingWrapsThroughTheSecondView) {
    mirror_buffer mb{};
    ASSERT_EQ(mirror_buffer_alloc(&mb, 1), page_size());
    const int size = mb.size;
    auto* base = static_cast<uint8_t*>(mb.start);
    // Both views are the same memory, in either direction.
    base[0] = 0x5A;
    EXPECT_EQ(base[size], 0x5A);
    base[2 * size - 1] = 0xA5;
    EXPECT_EQ(base[size - 1], 0xA5);

    const int first = size * 3 / 4;  // 3000 of 4096
    const int second = size / 2;     // wraps: part at the end, part at the start
    Bytes a = pattern(first, 1);
    EXPECT_EQ(mirror_buffer_append(&mb, a.data(), first), first);
    EXPECT_EQ(mirror_buffer_flush(&mb, first), base);
    Bytes b = pattern(second, 99);
    EXPECT_EQ(mirror_buffer_append(&mb, b.data(), second), second);
    EXPECT_EQ(mb.write, first + second - size);
    auto* run = static_cast<uint8_t*>(mirror_buffer_peek(&mb, second));
    ASSERT_EQ(run, base + first);
    EXPECT_EQ(0, std::memcmp(run, b.data(), b.size()));
    // The wrapped tail really sits at the ring's beginning.
    EXPECT_EQ(0, std::memcmp(base, b.data() + (size - first),
                             static_cast<size_t>(first + second - size)));
    EXPECT_EQ(mb.pos, static_cast<uint64_t>(first));
    mirror_buffer_free(&mb);
}

TEST(SplitterMirror, PeekAndFlushRefuseMoreThanHeld) {
    mirror_buffer mb{};
    ASSERT_GT(mirror_buffer_alloc(&mb, 100), 0);
    Bytes a = pattern(10, 3);
    mirror_buffer_append(&mb, a.data(), 10);
    mirror_buffer_flush(&mb, 4);
    const mirror_buffer before = mb;
    auto* at_read = static_cast<uint8_t*>(mb.start) + mb.read;
    EXPECT_EQ(mirror_buffer_flush(&mb, 0), at_read);  // nothing consumed
    EXPECT_EQ(mirror_buffer_flush(&mb, mb.len + 1), nullptr);
    EXPECT_EQ(mirror_buffer_peek(&mb, mb.len + 1), nullptr);
    EXPECT_EQ(mirror_buffer_peek(&mb, mb.len), at_read);
    EXPECT_EQ(0, std::memcmp(&before, &mb, sizeof mb));
    mirror_buffer_free(&mb);
}

TEST(SplitterMirror, RellocKeepsContentAndPosition) {
    mirror_buffer mb{};
    ASSERT_EQ(mirror_buffer_alloc(&mb, 1), page_size());
    const int size = mb.size;
    Bytes a = pattern(size - 100, 1);
    mirror_buffer_append(&mb, a.data(), size - 100);
    mirror_buffer_flush(&mb, size - 200);
    Bytes b = pattern(500, 50);  // wraps
    mirror_buffer_append(&mb, b.data(), 500);
    Bytes held(static_cast<uint8_t*>(mb.start) + mb.read,
               static_cast<uint8_t*>(mb.start) + mb.read + mb.len);
    const uint64_t pos = mb.pos;

    // Same capacity after rounding: returns at once, nothing moves.
    void* start = mb.start;
    EXPECT_EQ(mirror_buffer_relloc(&mb, size - 1), size);
    EXPECT_EQ(mb.start, start);

    ASSERT_EQ(mirror_buffer_relloc(&mb, 3 * size), 3 * size);
    EXPECT_EQ(mb.read, 0);
    EXPECT_EQ(mb.write, mb.len);
    EXPECT_EQ(mb.pos, pos);
    ASSERT_EQ(mb.len, static_cast<int>(held.size()));
    EXPECT_EQ(0, std::memcmp(mb.start, held.data(), held.size()));

    // Shrinking below len keeps the oldest bytes.
    Bytes c = pattern(2 * size, 9);
    mirror_buffer_append(&mb, c.data(), 2 * size);
    ASSERT_EQ(mirror_buffer_relloc(&mb, size), size);
    EXPECT_EQ(mb.len, size);
    EXPECT_EQ(mb.write, 0);
    EXPECT_EQ(0, std::memcmp(mb.start, held.data(), held.size()));
    mirror_buffer_free(&mb);
}

TEST(SplitterMirror, FreeZeroesAndIsRepeatable) {
    mirror_buffer mb{};
    ASSERT_GT(mirror_buffer_alloc(&mb, 5000), 0);
    mirror_buffer_free(&mb);
    const mirror_buffer zero{};
    EXPECT_EQ(0, std::memcmp(&mb, &zero, sizeof mb));
    mirror_buffer_free(&mb);
    EXPECT_EQ(0, std::memcmp(&mb, &zero, sizeof mb));
}

TEST(SplitterMirror, ImpossibleSizesFailWithTheMappingMessage) {
    splittest::SplitterHarness h(VES_AVC, 0, 0);
    const struct {
        int size;
        const char* text;
    } rows[] = {
        {0, "mmap 0 bytes failed 22"},  // nothing to map
        {INT_MAX, "bytes failed 22"},   // two views beyond int offsets
    };
    for (const auto& row : rows) {
        mirror_buffer mb{};
        EXPECT_EQ(mirror_buffer_alloc(&mb, row.size), -1) << row.size;
        EXPECT_EQ(mb.start, nullptr);
        EXPECT_TRUE(h.logged(std::string("mirror_buffer_alloc:")));
        EXPECT_TRUE(h.logged(row.text)) << h.log();
    }
    mirror_buffer mb{};
    ASSERT_GT(mirror_buffer_alloc(&mb, 1), 0);
    EXPECT_EQ(mirror_buffer_relloc(&mb, INT_MAX), -1);
    EXPECT_NE(mb.start, nullptr);  // old ring intact
    mirror_buffer_free(&mb);
}

}  // namespace
