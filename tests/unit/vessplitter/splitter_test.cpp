// Splitter properties and limits that traces do not carry: any chunking of a
// stream gives the same units, the ring's growth limit, the double-mapped
// ring, time scaling at the extremes, dumps and debug settings from the
// environment.
#include <unistd.h>

#include <climits>
#include <fstream>
#include <iterator>

#include "vessplit_test.h"

namespace {

using vestest::Bytes;
using vestest::Splitter;

// Whatever the piece boundaries, the same units come out in the same order:
// the scan resumes where the previous push left off without missing a start
// code that straddles two pieces, and short pushes find what one long push
// finds, whose 40 start codes overfill the list kept while copying; a large
// unit arriving in small pushes is not rescanned.
TEST(SplitterPush, PieceBoundariesDoNotChangeTheUnits) {
    uint32_t seed = 12345;
    auto next = [&](uint32_t n) {
        seed = seed * 1664525u + 1013904223u;
        return (seed >> 8) % n;
    };
    for (int trial = 0; trial < 20; ++trial) {
        Bytes stream;
        for (int u = 0; u < 40; ++u) {
            const Bytes heads[] = {
                {0x09, 0xF0}, {0x41}, {0x7E, 0x01, 0x41}, {0x7E, 0x01, 0x09}, {0x7C, 0x01, 0x19}};
            Bytes nal = heads[next(5)];
            // Zeros and 01s often, so start-code candidates are dense.
            for (uint32_t i = next(60); i > 0; --i) {
                const uint32_t r = next(8);
                nal.push_back(static_cast<uint8_t>(r < 2 ? 0 : r == 2 ? 1 : next(256)));
            }
            if (trial == 0 && u == 20) nal.resize(300000, 0xAA);  // scanned once in small pushes
            if (next(2)) stream.push_back(0);                     // 4-byte start code
            stream.insert(stream.end(), {0, 0, 1});
            stream.insert(stream.end(), nal.begin(), nal.end());
        }
        Splitter whole(VES_AVC, trial % 2), pieces(VES_AVC, trial % 2);
        ASSERT_EQ(whole.push(stream, 1), 0);
        ASSERT_EQ(whole.finish(), 0);
        for (size_t at = 0; at < stream.size();) {
            const size_t n = std::min<size_t>(1 + next(300), stream.size() - at);
            const auto from = stream.begin() + static_cast<std::ptrdiff_t>(at);
            ASSERT_EQ(pieces.push(Bytes(from, from + static_cast<std::ptrdiff_t>(n)), 1), 0);
            // The resume point never lags behind the held bytes by more than 2.
            const ves_splitter* split = pieces.split();
            ASSERT_TRUE(!split->scan_pending || split->scan_search >= split->buf.len - 2) << trial;
            at += n;
        }
        ASSERT_EQ(pieces.finish(), 0);
        ASSERT_GT(whole.rec.got.size(), 10u);
        EXPECT_TRUE(pieces.rec.got == whole.rec.got) << trial;
    }
}

TEST(SplitterTiming, ScalingStaysDefinedAtTheExtremes) {
    const uint32_t saved = el_time_scale;
    ves_layer_param layer{};
    layer.time_scale = 1000000000;
    el_time_scale = 1;
    EXPECT_EQ(ves_scale_ticks(layer, uint64_t{1} << 62), static_cast<uint64_t>(INT64_MAX));
    EXPECT_EQ(ves_scale_ticks(layer, ~uint64_t{0} << 62), static_cast<uint64_t>(INT64_MIN));
    EXPECT_EQ(ves_scale_ticks(layer, ~uint64_t{0}), static_cast<uint64_t>(-1000000000LL));
    el_time_scale = 0;
    EXPECT_EQ(ves_scale_ticks(layer, 12345), 12345u);
    el_time_scale = 90000;
    EXPECT_EQ(ves_scale_ticks(layer, 90000), 1000000000u);
    el_time_scale = saved;
}

Bytes pattern(int n, uint8_t seed) {
    Bytes b(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) b[static_cast<size_t>(i)] = static_cast<uint8_t>(seed + i * 7);
    return b;
}

Bytes held(const mirror_buffer& mb) {
    const auto* p = static_cast<const uint8_t*>(mb.start) + mb.read;
    return Bytes(p, p + mb.len);
}

// One page: both views are the same memory; appends wrap through the second
// view and read back contiguous; peek and flush refuse more than is held;
// a resize keeps content and stream position.
TEST(SplitterMirror, WrapsPeeksAndResizes) {
    const int page = static_cast<int>(sysconf(_SC_PAGESIZE));
    mirror_buffer mb{};
    ASSERT_EQ(mirror_buffer_alloc(&mb, 1), page);
    auto* base = static_cast<uint8_t*>(mb.start);
    base[2 * page - 1] = 0xA5;
    EXPECT_EQ(base[page - 1], 0xA5);
    Bytes a = pattern(page * 3 / 4, 1), b = pattern(page / 2, 99);
    EXPECT_EQ(mirror_buffer_append(&mb, a.data(), int(a.size())), int(a.size()));
    EXPECT_EQ(mirror_buffer_flush(&mb, int(a.size())), base);
    EXPECT_EQ(mirror_buffer_append(&mb, b.data(), int(b.size())), int(b.size()));
    EXPECT_EQ(mb.write, int(a.size() + b.size()) - page);
    ASSERT_EQ(mirror_buffer_peek(&mb, int(b.size())), base + a.size());
    EXPECT_EQ(held(mb), b);
    EXPECT_EQ(0, std::memcmp(base, b.data() + (page - int(a.size())), size_t(mb.write)));
    EXPECT_EQ(mb.pos, a.size());
    const mirror_buffer before = mb;
    EXPECT_EQ(mirror_buffer_flush(&mb, 0), base + a.size());
    EXPECT_EQ(mirror_buffer_flush(&mb, mb.len + 1), nullptr);
    EXPECT_EQ(mirror_buffer_flush(&mb, -1), nullptr);
    EXPECT_EQ(mirror_buffer_peek(&mb, mb.len + 1), nullptr);
    EXPECT_EQ(0, std::memcmp(&before, &mb, sizeof mb));

    EXPECT_EQ(mirror_buffer_relloc(&mb, page - 1), page);  // same capacity: nothing moves
    EXPECT_EQ(mb.start, before.start);
    ASSERT_EQ(mirror_buffer_relloc(&mb, 3 * page), 3 * page);
    EXPECT_EQ(mb.read, 0);
    EXPECT_EQ(mb.write, mb.len);
    EXPECT_EQ(mb.pos, a.size());
    EXPECT_EQ(held(mb), b);
    Bytes c = pattern(2 * page, 9);  // shrinking below len keeps the oldest bytes
    mirror_buffer_append(&mb, c.data(), 2 * page);
    ASSERT_EQ(mirror_buffer_relloc(&mb, page), page);
    EXPECT_EQ(mb.len, page);
    EXPECT_EQ(mb.write, 0);
    EXPECT_EQ(0, std::memcmp(mb.start, b.data(), b.size()));
    EXPECT_EQ(mirror_buffer_relloc(&mb, INT_MAX), -1);  // two views beyond int offsets
    EXPECT_EQ(mb.size, page);
    mirror_buffer_free(&mb);
    const mirror_buffer zero{};
    EXPECT_EQ(0, std::memcmp(&mb, &zero, sizeof mb));
    mirror_buffer_free(&mb);
    Splitter h;
    EXPECT_EQ(mirror_buffer_alloc(&mb, 0), -1);
    EXPECT_EQ(mirror_buffer_alloc(&mb, INT_MAX), -1);
    EXPECT_EQ(mb.start, nullptr);
    EXPECT_EQ(h.log->take(), "mirror_buffer_alloc mmap 0 bytes failed 22|" +
                                 std::string("mirror_buffer_alloc mmap 0 bytes failed 22|"));
}

std::string read_file(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

// A switched-off layer is still dumped; the input dump holds the bytes as
// pushed. Debug level and file come from the environment, the file is closed
// by ves_split_free; an unknown codec is AVC.
TEST(SplitterLifecycle, DumpsAndDebugSettingsFromTheEnvironment) {
    const std::string dir = ::testing::TempDir(), in = dir + "/split_in.bin",
                      el = dir + "/split_el.bin", debug = dir + "/split_debug.txt";
    const int saved_level = edr_debug_level;
    vestest::clear_splitter_env();
    setenv("EDR_DUMP_IN", in.c_str(), 1);
    setenv("EDR_DUMP_EL", el.c_str(), 1);
    setenv("EDR_DEBUG_LEVEL", "1", 1);
    setenv("EDR_DEBUG_FILE", debug.c_str(), 1);
    vestest::Recorder rec;
    void* s = ves_split_init(7, &vestest::Recorder::output, &rec, 0);
    vestest::clear_splitter_env();
    EXPECT_EQ(static_cast<ves_splitter*>(s)->codec_type, VES_AVC);
    ves_split_enable_layer(s, VES_EL, 0);
    const Bytes stream = vestest::unhex("0000000109f0.000000017e014101.000000017c011955");
    Bytes copy = stream;
    EXPECT_EQ(ves_split_push(s, copy.data(), static_cast<int>(copy.size()), 7), 0);
    EXPECT_EQ(ves_split_push(s, nullptr, 0, 7), 0);
    ves_split_flush(s);
    EXPECT_EQ(ves_split_free(s), 0);
    EXPECT_EQ(edr_debug_file, nullptr);
    ASSERT_EQ(rec.got.size(), 2u);  // metadata and base layer, never the EL
    EXPECT_EQ(read_file(in), std::string(stream.begin(), stream.end()));
    EXPECT_EQ(read_file(el), std::string("\0\0\0\1\x41\x01", 6));
    EXPECT_NE(read_file(debug).find(" flushed\n"), std::string::npos);
    s = ves_split_init(VES_HEVC, &vestest::Recorder::output, &rec, 0);
    EXPECT_EQ(edr_debug_file, stdout);  // unset: standard output
    EXPECT_EQ(ves_split_push(s, nullptr, 4, 0), -1);
    EXPECT_EQ(ves_split_push(s, copy.data(), -1, 0), -1);
    EXPECT_EQ(ves_split_free(s), 0);
    EXPECT_EQ(ves_split_free(nullptr), 0);
    EXPECT_EQ(ves_split_push(nullptr, copy.data(), 4, 0), -1);
    for (const std::string& f : {in, el, debug}) std::remove(f.c_str());
    edr_debug_level = saved_level;
}

}  // namespace
