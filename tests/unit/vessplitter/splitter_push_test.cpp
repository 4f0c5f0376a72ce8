// Splitter push: start-code scanning across pushes, length-prefix rewriting,
// routing and unwrapping, access-unit gathering, the final push, flush, the
// ring's limit and callback errors.
#include <gtest/gtest.h>

#include <cstdlib>

#include "splitter_test_util.h"

// unit_tests is linked with --wrap=realloc: a test makes the library's
// realloc fail from here, the library has no hook for it.
namespace {
bool g_fail_realloc = false;
}  // namespace

extern "C" void* __real_realloc(void* mem, size_t size);
extern "C" void* __wrap_realloc(void* mem, size_t size) {
    return g_fail_realloc ? nullptr : __real_realloc(mem, size);
}

namespace {

using splittest::Bytes;
using splittest::cat;
using splittest::Delivery;
using splittest::len4;
using splittest::sc3;
using splittest::sc4;
using splittest::SplitterHarness;

const Bytes kAud = {0x09, 0xF0};          // AVC access unit delimiter
const Bytes kSlice = {0x41, 0x9A, 0x02};  // AVC non-IDR slice
const Bytes kIdr = {0x65, 0x88, 0x80};    // AVC IDR slice

TEST(SplitterPush, RoutesAndUnwrapsEachUnit) {
    SplitterHarness h;
    const Bytes stream = cat({
        sc4(kSlice),                          // base layer
        sc4({0x7E, 0x01, 0x41, 0x11}),        // enhancement layer, wrapped
        sc3({0x7C, 0x01, 0x19, 0xAB, 0xCD}),  // metadata
        sc3({0x7C, 0x01, 0x1A, 0x00}),        // wrong metadata header: dropped
        sc4({0x01, 0x22}),                    // base layer again
    });
    ASSERT_EQ(h.push(stream, 100), 0);
    // Metadata goes out when processed, with the base layer's time stamp.
    const std::vector<Delivery> after_push = {{VES_MD, sc3({0x19, 0xAB, 0xCD}), 100}};
    EXPECT_EQ(h.rec.got, after_push);
    ASSERT_EQ(h.finish(200), 0);
    const std::vector<Delivery> all = {
        after_push[0],
        {VES_BL, sc4(kSlice), 100},
        {VES_BL, sc4({0x01, 0x22}), 200},
        {VES_EL, sc4({0x41, 0x11}), 0},  // no timing yet: the EL's own (zero) time stamp
    };
    EXPECT_EQ(h.rec.got, all);
    EXPECT_TRUE(h.logged("Wrong Meta data naltype 1a != 0x19")) << h.log();
    EXPECT_TRUE(h.logged("[MD] 6 bytes")) << h.log();
    EXPECT_TRUE(h.logged("pushing final BL 6 bytes..."));
    EXPECT_TRUE(h.logged("pushing final EL 6 bytes..."));
}

TEST(SplitterPush, BaseLayerOffSendsPlainUnitsToTheEnhancementLayer) {
    SplitterHarness h;
    ves_split_enable_layer(h.handle(), VES_BL, 0);
    ASSERT_EQ(h.push(cat({sc4(kSlice), sc4({0x7E, 0x01, 0x41, 0x11})}), 5), 0);
    ASSERT_EQ(h.finish(9), 0);
    const std::vector<Delivery> want = {
        {VES_EL, sc4(kSlice), 5},
        {VES_EL, sc4({0x41, 0x11}), 9},  // single track: EL keeps the caller's stamps
    };
    EXPECT_EQ(h.rec.got, want);
    EXPECT_TRUE(h.logged("[EL] AUD pts 5"));
}

TEST(SplitterPush, TransportStreamGathersFromDelimiterToDelimiter) {
    SplitterHarness h(VES_AVC, 1);
    ASSERT_EQ(h.push(cat({sc4(kAud), sc4(kSlice)}), 1000), 0);
    EXPECT_TRUE(h.rec.got.empty());
    // The slice stays pending in the ring, behind its start code.
    EXPECT_EQ(h.split()->buf.len, 7);
    EXPECT_EQ(h.split()->buf.pos, 6u);
    ASSERT_EQ(h.push(cat({sc4({0x06, 0x05}), sc4(kAud), sc4(kSlice)}), 2000), 0);
    const std::vector<Delivery> first = {
        {VES_BL, cat({sc4(kAud), sc4(kSlice), sc4({0x06, 0x05})}), 1000}};
    EXPECT_EQ(h.rec.got, first);
    ASSERT_EQ(h.finish(3000), 0);
    ASSERT_EQ(h.rec.got.size(), 2u);
    EXPECT_EQ(h.rec.got[1], (Delivery{VES_BL, cat({sc4(kAud), sc4(kSlice)}), 2000}));
    EXPECT_EQ(h.split()->buf.len, 0);
    EXPECT_TRUE(h.logged("[BL] AUD pts 2000"));
}

// The AUD's end either lies inside the first piece (time stamp of the held
// bytes) or exactly at the piece boundary (time stamp of the new push).
TEST(SplitterPush, StartCodesSplitAcrossPushes) {
    const struct {
        const char* name;
        size_t cut;
        uint64_t aud_pts;
    } rows[] = {
        {"inside_start_code", 8, 1},  // 00 00 | 01: 3-byte start code at 6
        {"after_first_zero", 7, 1},   // 00 | 00 01
        {"at_start_code", 6, 2},      // AUD ends at the boundary: not in the held bytes
        {"one_byte_pieces", 1, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        SplitterHarness h;
        const Bytes stream = cat({sc4(kAud), sc3(kSlice), sc4(kIdr)});
        if (row.cut == 1) {
            for (size_t i = 0; i < 8; ++i) ASSERT_EQ(h.push({stream[i]}, 1), 0);
            ASSERT_EQ(h.push(Bytes(stream.begin() + 8, stream.end()), 2), 0);
        } else {
            ASSERT_EQ(
                h.push(Bytes(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(row.cut)),
                       1),
                0);
            ASSERT_EQ(
                h.push(Bytes(stream.begin() + static_cast<std::ptrdiff_t>(row.cut), stream.end()),
                       2),
                0);
        }
        ASSERT_EQ(h.finish(3), 0);
        const std::vector<Delivery> want = {
            {VES_BL, sc4(kAud), row.aud_pts},
            {VES_BL, sc3(kSlice), 2},
            {VES_BL, sc4(kIdr), 3},  // ends with the final push
        };
        EXPECT_EQ(h.rec.got, want);
    }
}

// Whatever the piece boundaries, the same units come out in the same order:
// the scan resumes where the previous push left off without missing a start
// code that straddles two pieces, and short pushes find what one long push
// finds, whose 40 start codes overfill the list kept while copying.
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
            stream = cat({stream, next(2) ? sc4(nal) : sc3(nal)});
        }
        const int is_ts = trial % 2;
        SplitterHarness whole(VES_AVC, is_ts, 0);
        ASSERT_EQ(whole.push(stream, 1), 0);
        ASSERT_EQ(whole.finish(), 0);
        SplitterHarness pieces(VES_AVC, is_ts, 0);
        for (size_t at = 0; at < stream.size();) {
            const size_t n = std::min<size_t>(1 + next(300), stream.size() - at);
            ASSERT_EQ(pieces.push(Bytes(stream.begin() + static_cast<std::ptrdiff_t>(at),
                                        stream.begin() + static_cast<std::ptrdiff_t>(at + n)),
                                  1),
                      0);
            at += n;
        }
        ASSERT_EQ(pieces.finish(), 0);
        ASSERT_GT(whole.rec.got.size(), 10u);
        ASSERT_EQ(pieces.rec.got.size(), whole.rec.got.size()) << trial;
        for (size_t i = 0; i < whole.rec.got.size(); ++i) {
            EXPECT_EQ(pieces.rec.got[i].type, whole.rec.got[i].type) << trial << " " << i;
            EXPECT_EQ(pieces.rec.got[i].data, whole.rec.got[i].data) << trial << " " << i;
        }
    }
}

TEST(SplitterPush, WithoutStartCodeKeepsThreeBytes) {
    SplitterHarness h;
    ASSERT_EQ(h.push({0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x00, 0x00, 0x00}, 1), 0);
    EXPECT_EQ(h.split()->buf.len, 3);
    EXPECT_EQ(h.split()->buf.pos, 7u);
    // The kept zeros complete a 4-byte start code with the next push.
    ASSERT_EQ(h.push(cat({{0x01}, kSlice, sc4(kAud)}), 2), 0);
    EXPECT_EQ(h.split()->layers[VES_BL].len, 7);
    EXPECT_EQ(h.split()->buf.pos, 14u);
    ASSERT_EQ(h.finish(5), 0);
    ASSERT_EQ(h.rec.got.size(), 2u);
    EXPECT_EQ(h.rec.got[0], (Delivery{VES_BL, sc4(kSlice), 2}));
    // Two bytes held: nothing discarded.
    SplitterHarness small;
    ASSERT_EQ(small.push({0x00, 0x00}, 1), 0);
    EXPECT_EQ(small.split()->buf.len, 2);
}

TEST(SplitterPush, LargeUnitInSmallPushesIsScannedOnce) {
    SplitterHarness h(VES_AVC, 0, 0);
    Bytes big = sc4({0x41});
    big.resize(300000, 0xAA);
    const Bytes stream = cat({big, sc4(kSlice)});
    for (size_t at = 0; at < stream.size(); at += 188) {
        const size_t n = std::min<size_t>(188, stream.size() - at);
        ASSERT_EQ(h.push(Bytes(stream.begin() + static_cast<std::ptrdiff_t>(at),
                               stream.begin() + static_cast<std::ptrdiff_t>(at + n)),
                         at),
                  0);
        // The resume point never lags behind the held bytes by more than 2.
        if (h.split()->scan_pending) {
            EXPECT_GE(h.split()->scan_search, h.split()->buf.len - 2);
        }
    }
    ASSERT_EQ(h.finish(), 0);
    ASSERT_EQ(h.rec.got.size(), 2u);
    EXPECT_EQ(h.rec.got[0].data, big);
    EXPECT_EQ(h.rec.got[1].data, sc4(kSlice));
}

TEST(SplitterPush, LengthPrefixesBecomeStartCodesInPlace) {
    SplitterHarness h;
    Bytes rec = {1, 0x64, 0, 0x28, 0xFF, 0xE0, 0x00};  // 4-byte lengths, no parameter sets
    ASSERT_EQ(ves_split_set_codec_data(h.handle(), rec.data(), static_cast<int>(rec.size())), 0);
    const Bytes input = cat({len4(kAud), len4({0x7E, 0x01, 0x41, 0x11}), len4(kSlice)});
    Bytes after;
    ASSERT_EQ(h.push_exact(input, 10, &after), 0);
    // Prefixes rewritten, the wrapper removed in the caller's buffer.
    EXPECT_EQ(after, cat({sc4(kAud), {0, 0, 0, 0, 0, 1, 0x41, 0x11}, sc4(kSlice)}));
    const std::vector<Delivery> first = {{VES_BL, sc4(kAud), 10}};
    EXPECT_EQ(h.rec.got, first);
    EXPECT_EQ(h.split()->buf.pos, input.size());
    ASSERT_EQ(h.push_exact(len4(kIdr), 20), 0);
    ASSERT_EQ(h.finish(30), 0);
    const std::vector<Delivery> all = {
        {VES_BL, sc4(kAud), 10},
        {VES_BL, sc4(kSlice), 10},
        {VES_BL, sc4(kIdr), 20},
        {VES_EL, sc4({0x41, 0x11}), 0},
    };
    EXPECT_EQ(h.rec.got, all);
}

TEST(SplitterPush, LengthPrefixSizesOneToFour) {
    for (int size_byte : {0xFC, 0xFD, 0xFE}) {
        SplitterHarness h;
        Bytes rec = {1, 0x64, 0, 0x28, static_cast<uint8_t>(size_byte), 0xE0, 0x00};
        ASSERT_EQ(ves_split_set_codec_data(h.handle(), rec.data(), static_cast<int>(rec.size())),
                  0);
        const int n = (size_byte & 3) + 1;
        Bytes input;
        for (const Bytes& nal : {kAud, Bytes{0x7C, 0x01, 0x19, 0x77}}) {
            for (int i = n - 1; i >= 0; --i)
                input.push_back(static_cast<uint8_t>(nal.size() >> (8 * i)));
            input.insert(input.end(), nal.begin(), nal.end());
        }
        ASSERT_EQ(h.push_exact(input, 1), 0);
        ASSERT_EQ(h.finish(2), 0);
        Bytes code(static_cast<size_t>(n), 0);
        code.back() = 1;
        ASSERT_EQ(h.rec.got.size(), 2u) << n;
        EXPECT_EQ(h.rec.got[0], (Delivery{VES_MD, cat({code, {0x19, 0x77}}), 1}));
        EXPECT_EQ(h.rec.got[1], (Delivery{VES_BL, cat({code, kAud}), 1}));
    }
}

// Lengths and units that cannot hold what is read from them: nothing is
// read or written past the pushed block (the harness pushes an exact heap
// block, so the address sanitizer would see it).
TEST(SplitterPush, ShortAndOversizedUnitsStayInBounds) {
    const struct {
        const char* name;
        Bytes input;
        std::vector<Delivery> want;
    } rows[] = {
        {"prefix_cut_after_unit", cat({len4(kSlice), {0x00, 0x00}}), {{VES_BL, sc4(kSlice), 1}}},
        {"prefix_cut_alone", {0x00, 0x00, 0x01}, {}},
        {"length_past_end", {0x00, 0x00, 0x10, 0x00, 0x41, 0x01}, {{VES_BL, sc4({0x41, 0x01}), 1}}},
        {"length_max", {0xFF, 0xFF, 0xFF, 0xFF, 0x41}, {{VES_BL, sc4({0x41}), 1}}},
        {"empty_unit", cat({len4({}), len4(kSlice)}), {{VES_BL, sc4(kSlice), 1}}},
        // One byte after the prefix: routed by that byte, never a wrapper.
        {"lone_wrapper_byte", len4({0x7E}), {{VES_BL, sc4({0x7E}), 1}}},
        // A wrapper and nothing behind it: dropped.
        {"wrapper_without_header", cat({len4({0x7E, 0x01}), len4({0x7C, 0x01})}), {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        SplitterHarness h;
        Bytes rec = {1, 0x64, 0, 0x28, 0xFF, 0xE0, 0x00};
        ASSERT_EQ(ves_split_set_codec_data(h.handle(), rec.data(), static_cast<int>(rec.size())),
                  0);
        ASSERT_EQ(h.push_exact(row.input, 1), 0);
        ASSERT_EQ(h.finish(1), 0);
        EXPECT_EQ(h.rec.got, row.want);
    }
    // Start-code form: a start code with nothing, or only a wrapper, behind it.
    SplitterHarness h;
    ASSERT_EQ(h.push(cat({sc4({}), sc3({0x7C, 0x01}), sc4(kSlice), {0x00, 0x00, 0x01}}), 1), 0);
    ASSERT_EQ(h.finish(2), 0);
    const std::vector<Delivery> want = {{VES_BL, sc4(kSlice), 1}};
    EXPECT_EQ(h.rec.got, want);
}

TEST(SplitterPush, FinalPushDeliversAgainUntilFlushed) {
    SplitterHarness h;
    ASSERT_EQ(h.push(cat({sc4(kSlice), sc4({0x7E, 0x01, 0x41})}), 4), 0);
    ASSERT_EQ(h.finish(), 0);
    ASSERT_EQ(h.rec.got.size(), 2u);
    // Gathered bytes are not cleared by the final delivery.
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.rec.got.size(), 4u);
    EXPECT_EQ(ves_split_flush(h.handle()), 0);
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.rec.got.size(), 4u);
}

TEST(SplitterPush, FlushDropsHeldInputAndGatheredUnits) {
    SplitterHarness h(VES_AVC, 1);
    ASSERT_EQ(h.push(cat({sc4(kAud), sc4(kSlice), {0x00, 0x00}}), 1), 0);
    EXPECT_GT(h.split()->buf.len, 0);
    EXPECT_GT(h.split()->layers[VES_BL].len, 0);
    const uint64_t pos = h.split()->buf.pos;
    ves_split_flush(h.handle());
    EXPECT_EQ(h.split()->buf.len, 0);
    EXPECT_EQ(h.split()->buf.pos, pos);
    EXPECT_EQ(h.split()->layers[VES_BL].len, 0);
    EXPECT_EQ(h.split()->layers[VES_BL].original_pts, 0u);
    EXPECT_TRUE(h.logged("flushed"));
    ASSERT_EQ(h.push(cat({sc4(kAud), sc4(kIdr)}), 5), 0);
    ASSERT_EQ(h.finish(6), 0);
    const std::vector<Delivery> want = {{VES_BL, cat({sc4(kAud), sc4(kIdr)}), 5}};
    EXPECT_EQ(h.rec.got, want);
}

TEST(SplitterPush, RingGrowsToSixMebibytesAndNoFurther) {
    SplitterHarness h(VES_AVC, 0, 0);
    const int six = 0x600000;
    // Held plus pushed beyond 6 MiB: refused at once, ring unchanged.
    Bytes too_big(static_cast<size_t>(six) + 1, 0xAA);
    EXPECT_EQ(h.push_exact(too_big, 1), -1);
    EXPECT_EQ(h.split()->buf.size, 0x200000);
    EXPECT_EQ(h.split()->buf.len, 0);
    EXPECT_TRUE(h.logged("wrong data, buffer size too large 0, 6291457, 6291457")) << h.log();
    // One unit that fills 6 MiB exactly is taken and held.
    Bytes fill = sc4({0x41});
    fill.resize(static_cast<size_t>(six) - 4, 0xAA);
    ASSERT_EQ(h.push_exact(fill, 2), 0);
    EXPECT_EQ(h.split()->buf.size, six);
    EXPECT_EQ(h.split()->buf.len, six - 4);
    // Five more bytes would need capacity + 64 KiB.
    EXPECT_EQ(h.push_exact(Bytes(5, 0xAA), 3), -1);
    EXPECT_TRUE(h.logged("buffer size too large 6291452, 5, 6356992"));
    EXPECT_EQ(h.split()->buf.len, six - 4);
    EXPECT_EQ(h.push_exact(Bytes(4, 0xAA), 3), 0);  // still fits
}

TEST(SplitterPush, GrowthStepIsAtLeast64KiB) {
    SplitterHarness h(VES_AVC, 0, 0);
    Bytes unit = sc4({0x41});
    unit.resize(0x200000, 0xAA);  // fills the 2 MiB ring
    ASSERT_EQ(h.push_exact(unit, 1), 0);
    EXPECT_EQ(h.split()->buf.size, 0x200000);
    ASSERT_EQ(h.push_exact({0xAA}, 2), 0);
    EXPECT_EQ(h.split()->buf.size, 0x210000);
}

TEST(SplitterPush, CallbackErrorStopsThePushUntilFlush) {
    SplitterHarness h;
    h.rec.fail_at = 1;
    h.rec.fail_result = 7;
    const Bytes stream = cat({sc4(kSlice), sc4(kIdr), sc3({0x7C, 0x01, 0x19, 0x01}), sc4(kSlice)});
    EXPECT_EQ(h.push(stream, 1), 7);
    EXPECT_TRUE(h.logged("error 7 return from the output callback"));
    EXPECT_EQ(h.rec.calls, 1);                    // the metadata behind the failure was not reached
    EXPECT_EQ(h.split()->layers[VES_BL].len, 7);  // gathered bytes kept
    EXPECT_EQ(h.split()->buf.len, static_cast<int>(stream.size()));  // nothing consumed
    // Held bytes were partly rewritten: refused until flushed.
    EXPECT_EQ(h.push(sc4(kSlice), 2), -1);
    EXPECT_EQ(h.finish(), -1);
    ves_split_flush(h.handle());
    ASSERT_EQ(h.push(cat({sc4(kIdr), sc4(kSlice)}), 3), 0);
    ASSERT_EQ(h.finish(4), 0);
    const std::vector<Delivery> want = {{VES_BL, sc4(kIdr), 3}, {VES_BL, sc4(kSlice), 4}};
    EXPECT_EQ(h.rec.got, want);
}

TEST(SplitterPush, CallbackErrorsInMetadataAndFinalDelivery) {
    {
        SplitterHarness h;
        h.rec.fail_at = 1;
        h.rec.fail_result = -5;
        EXPECT_EQ(h.push(cat({sc3({0x7C, 0x01, 0x19, 0x01}), sc4(kSlice), sc4(kSlice)}), 1), -5);
    }
    {
        // The final delivery reports errors and goes on.
        SplitterHarness h;
        h.rec.fail_at = 1;
        h.rec.fail_result = 3;
        ASSERT_EQ(h.push(cat({sc4(kSlice), sc4({0x7E, 0x01, 0x41})}), 1), 0);
        EXPECT_EQ(h.finish(), 0);
        EXPECT_EQ(h.rec.calls, 2);
        EXPECT_TRUE(h.logged("error 3 return from the output callback"));
    }
    {
        // A failure while the parameter sets go out is returned as is.
        SplitterHarness h;
        Bytes rec = {1, 0x64, 0, 0x28, 0xFF, 0xE1, 0x00, 0x02, 0x67, 0x64, 0x01, 0x00, 0x01, 0x68};
        ASSERT_EQ(ves_split_set_codec_data(h.handle(), rec.data(), static_cast<int>(rec.size())),
                  0);
        h.rec.fail_at = 1;
        h.rec.fail_result = 9;
        EXPECT_EQ(h.push_exact(len4(kSlice), 1), 9);
        EXPECT_TRUE(h.logged("push sps/pps 11 bytes failed"));
    }
}

TEST(SplitterPush, UnitThatCannotBeGatheredIsDropped) {
    SplitterHarness h;
    ASSERT_EQ(h.push(cat({sc4(kAud), sc4(kSlice)}), 1), 0);
    g_fail_realloc = true;
    const int r = h.push(sc4(kIdr), 2);  // the slice cannot be gathered
    g_fail_realloc = false;
    ASSERT_EQ(r, 0);
    EXPECT_TRUE(h.logged("failed to gather 7 bytes into [BL] of 0")) << h.log();
    ASSERT_EQ(h.finish(3), 0);
    const std::vector<Delivery> want = {{VES_BL, sc4(kAud), 1}, {VES_BL, sc4(kIdr), 3}};
    EXPECT_EQ(h.rec.got, want);
}

TEST(SplitterPush, InvalidArguments) {
    SplitterHarness h;
    Bytes b = sc4(kSlice);
    EXPECT_EQ(ves_split_push(nullptr, b.data(), 4, 0), -1);
    EXPECT_EQ(ves_split_push(h.handle(), nullptr, 4, 0), -1);
    EXPECT_EQ(ves_split_push(h.handle(), b.data(), -1, 0), -1);
}

TEST(SplitterPush, MessagesAtTheirLevels) {
    const Bytes stream = cat({sc4(kAud), sc4(kSlice)});
    const struct {
        int level;
        const char* text;
        bool present;
    } rows[] = {
        {3, "nal_length_size 0, len 13, pts 5, buffered len 0", true},
        {3, "nalu_type 9 [BL] 6 bytes at 0, pts 5, offset 0, 01 09 f0 00", true},
        {2, "nalu_type 9", false},
        {2, "[BL] AUD pts 5", true},
        {1, "[BL] AUD pts 5", false},
        {1, "pushing final BL", true},
        {0, "pushing final BL", false},
    };
    for (const auto& row : rows) {
        SplitterHarness h(VES_AVC, 0, row.level);
        ASSERT_EQ(h.push(stream, 5), 0);
        ASSERT_EQ(h.finish(6), 0);
        EXPECT_EQ(h.logged(row.text), row.present) << row.level << " " << row.text << "\n"
                                                   << h.log();
    }
}

}  // namespace
