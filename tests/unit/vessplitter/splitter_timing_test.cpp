// Enhancement-layer time stamps: the anchor on a base-layer IDR, aligned and
// unaligned enhancement-layer IDRs, scaling from the layer's clock to
// nanoseconds. The enhancement layer's parser is replaced by a stub whose
// clock, reorder depth and DPB output times the test sets.
#include <gtest/gtest.h>

#include <vector>

#include "splitter_test_util.h"

namespace {

using splittest::Bytes;
using splittest::cat;
using splittest::Delivery;
using splittest::sc4;
using splittest::SplitterHarness;

struct StubParser {
    parser_t base;
    std::vector<uint64_t> dpd;  // DPB output times, one per call
    size_t next = 0;
    int32_t units_in_tick = 1001;
    int32_t time_scale = 60000;
    int32_t reorder = 2;
    int sps_calls = 0;
    int sei_calls = 0;
};

StubParser* stub(parser_handle_t p) { return reinterpret_cast<StubParser*>(p); }

StubParser make_stub() {
    StubParser s{};
    parser_t& b = s.base;
    b.parse_sps = [](uint8_t*, int32_t, int32_t, parser_handle_t p) {
        return ++stub(p)->sps_calls, 0;
    };
    b.parse_sei_messages = [](uint8_t*, int32_t, int32_t, parser_handle_t p) {
        return ++stub(p)->sei_calls, 0;
    };
    b.parser_get_num_reorder_frames = [](parser_handle_t p) { return stub(p)->reorder; };
    b.parser_get_dpb_output_time = [](parser_handle_t p, uint32_t) {
        StubParser* st = stub(p);
        return st->next < st->dpd.size() ? st->dpd[st->next++] : 0;
    };
    b.parser_get_num_units_in_tick = [](parser_handle_t p) { return stub(p)->units_in_tick; };
    b.parser_get_time_scale = [](parser_handle_t p) { return stub(p)->time_scale; };
    b.parser_reset = [](parser_handle_t) {};
    b.nal_type_aud = 9;
    b.nal_type_sps = 7;
    b.nal_type_sei = 6;
    b.nal_type_slice = 1;
    b.nal_type_idr = 5;
    return s;
}

// Puts the stub in as the enhancement layer's parser for its lifetime and
// keeps the process-wide clock as it was.
class StubbedEl {
public:
    explicit StubbedEl(ves_splitter* split) : split_(split), real_(split->layers[VES_EL].parser) {
        saved_scale_ = el_time_scale;
        split_->layers[VES_EL].parser = &s.base;
    }
    ~StubbedEl() {
        split_->layers[VES_EL].parser = real_;
        el_time_scale = saved_scale_;
    }
    StubbedEl(const StubbedEl&) = delete;
    StubbedEl& operator=(const StubbedEl&) = delete;

    StubParser s = make_stub();

private:
    ves_splitter* split_;
    parser_handle_t real_;
    uint32_t saved_scale_;
};

Bytes el(Bytes nal) { return sc4(cat({{0x7E, 0x01}, nal})); }

const Bytes kAud = {0x09, 0xF0};
const Bytes kIdr = {0x65, 0x88};
const Bytes kSlice = {0x41, 0x9A};

constexpr uint64_t kSecond = 1000000000;
constexpr uint64_t kFrame = 16683333;

TEST(SplitterTiming, WorkedExampleInTransportStreams) {
    SplitterHarness h(VES_AVC, 1, 2);
    StubbedEl stub_el(h.split());
    stub_el.s.dpd = {5000, 6001};  // the slice is output 1001 ticks after the IDR
    ASSERT_EQ(h.push(cat({sc4(kAud), sc4(kIdr), el(kAud), el(kIdr)}), kSecond), 0);
    ASSERT_EQ(h.push(cat({sc4(kAud), sc4(kSlice), el(kAud), el(kSlice)}), kSecond + kFrame), 0);
    ASSERT_EQ(h.push(sc4(kAud), kSecond + 2 * kFrame), 0);
    ASSERT_EQ(h.finish(), 0);
    const std::vector<Delivery> want_el = {
        {VES_EL, cat({sc4(kAud), sc4(kIdr)}), 1000000000},
        {VES_EL, cat({sc4(kAud), sc4(kSlice)}), 1016683334},
    };
    EXPECT_EQ(h.rec.of(VES_EL), want_el);
    ASSERT_EQ(h.rec.of(VES_BL).size(), 3u);
    EXPECT_EQ(h.rec.of(VES_BL)[0].pts, kSecond);
    EXPECT_EQ(h.rec.of(VES_BL)[1].pts, kSecond + kFrame);
    EXPECT_EQ(el_time_scale, 60000u);
    EXPECT_EQ(h.split()->layers[VES_EL].idr_dts, 966633334);
    EXPECT_TRUE(h.logged("BL IDR pts 1000000000"));
    EXPECT_TRUE(
        h.logged("aligned IDR derived_pts 1000000000, abs_idr_pts 5000, dec_delay 2002, "
                 "el_time_scale 60000, idr_dts 966633334"))
        << h.log();
    EXPECT_TRUE(
        h.logged("non IDR derived_pts 1016683334, dpd 6001, abs_idr_pts 5000, dec_delay 2002, "
                 "el_time_scale 60000, idr_dts 966633334"));
}

// Without access-unit delimiters every unit ends the one before it, and the
// time derived for a slice goes out with the unit gathered before it.
TEST(SplitterTiming, DerivedTimeGoesWithThePreviousUnitWithoutDelimiters) {
    SplitterHarness h(VES_AVC, 0, 2);
    StubbedEl stub_el(h.split());
    stub_el.s.dpd = {5000, 6001};
    const Bytes el_sps = {0x67, 0x02};
    ASSERT_EQ(
        h.push(cat({sc4({0x67, 0x01}), sc4(kIdr), el(el_sps), el(kIdr), el(kSlice)}), kSecond), 0);
    ASSERT_EQ(h.finish(2 * kSecond), 0);
    const std::vector<Delivery> want_el = {
        {VES_EL, sc4(el_sps), 1000000000},
        {VES_EL, sc4(kIdr), 1016683334},
        {VES_EL, sc4(kSlice), 0},  // nothing derived for it; the EL's own stamp
    };
    EXPECT_EQ(h.rec.of(VES_EL), want_el);
    EXPECT_EQ(stub_el.s.sps_calls, 1);
}

struct StepRow {
    const char* name;
    int32_t clock;              // parser time scale at the IDRs
    uint32_t clock_before;      // el_time_scale before the IDR
    std::vector<uint64_t> dpd;  // aligned IDR, then the timed unit
    int second_type;            // NAL type of the timed unit
    uint64_t derived;
    uint32_t clock_after;
    const char* message;
};

// Base-layer IDR at 1 s, then an aligned enhancement-layer IDR (dpd 5000),
// then one more unit timed from that anchor.
TEST(SplitterTiming, StepsTable) {
    const StepRow rows[] = {
        {"next_frame",
         60000,
         90000,
         {5000, 6001},
         1,
         1016683334,
         60000,
         "non IDR derived_pts 1016683334"},
        // A second EL IDR with no BL IDR in between: timed from the old anchor.
        {"unaligned_idr",
         60000,
         90000,
         {5000, 7002},
         5,
         1033366667,
         60000,
         "unaligned IDR derived_pts 1033366667, dpd 7002, abs_idr_pts 5000"},
        // Clocks equal: tick counts unscaled (2002 + 1001 ticks of 1 ns).
        {"equal_clocks",
         1000000000,
         90000,
         {5000, 6001},
         1,
         kSecond - 2002 + 3003,
         1000000000,
         "aligned IDR derived_pts 1000000000, abs_idr_pts 5000, dec_delay 2002, el_time_scale "
         "1000000000, "
         "idr_dts 999997998"},
        // Output 1998 ticks before the anchor's decoding time: an earlier time.
        {"before_anchor",
         60000,
         90000,
         {5000, 1000},
         1,
         966633334 - 33300000,
         60000,
         "non IDR derived_pts 933333334"},
        // A parser without a clock leaves the previous one in use.
        {"clock_zero",
         0,
         90000,
         {5000, 6001},
         1,
         977755556 + 33366666,
         90000,
         "el_time_scale 90000, idr_dts 977755556"},
    };
    for (const StepRow& row : rows) {
        SCOPED_TRACE(row.name);
        SplitterHarness h(VES_AVC, 0, 2);
        StubbedEl stub_el(h.split());
        el_time_scale = row.clock_before;
        stub_el.s.time_scale = row.clock;
        stub_el.s.dpd = row.dpd;
        ves_splitter* split = h.split();
        split->layers[VES_BL].original_pts = kSecond;
        ves_bl_idr_step(split, split->layers[VES_BL]);
        EXPECT_EQ(split->f_idr_aligned, 1);
        Bytes idr = sc4(kIdr);
        ves_el_step(split, idr.data(), 6, 4, 5);
        EXPECT_EQ(split->f_idr_aligned, 0);
        EXPECT_EQ(split->layers[VES_EL].derived_pts, kSecond);
        Bytes unit = sc4({static_cast<uint8_t>(0x60 | row.second_type), 0x00});
        ves_el_step(split, unit.data(), 6, 4, row.second_type);
        EXPECT_EQ(split->layers[VES_EL].derived_pts, row.derived);
        EXPECT_EQ(el_time_scale, row.clock_after);
        EXPECT_TRUE(h.logged(row.message)) << h.log();
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
    EXPECT_EQ(ves_scale_ticks(layer, 90000), kSecond);
    el_time_scale = saved;
}

TEST(SplitterTiming, SeiNeedsAnSpsFirstAndSingleTrackSkipsTiming) {
    {
        SplitterHarness h(VES_AVC, 0, 0);
        StubbedEl stub_el(h.split());
        ASSERT_EQ(h.push(cat({el({0x06, 0x01}), el({0x67, 0x01}), el({0x06, 0x01}), el(kAud)}), 1),
                  0);
        EXPECT_EQ(stub_el.s.sei_calls, 1);
        EXPECT_EQ(stub_el.s.sps_calls, 1);
        EXPECT_TRUE(h.logged("SPS is not valid while SEI is coming"));
        // A flush forgets the SPS.
        ves_split_flush(h.handle());
        EXPECT_EQ(h.split()->layers[VES_EL].sps_valid, 0);
    }
    {
        SplitterHarness h(VES_AVC, 0, 0);
        StubbedEl stub_el(h.split());
        ves_split_enable_layer(h.handle(), VES_BL, 0);
        ASSERT_EQ(h.push(cat({el({0x67, 0x01}), el(kIdr), el(kAud)}), 1), 0);
        EXPECT_EQ(stub_el.s.sps_calls, 0);
        EXPECT_EQ(stub_el.s.next, 0u);
    }
}

TEST(SplitterTiming, HevcIdrTypesAnchorBothLayers) {
    for (int type : {19, 20}) {
        SplitterHarness h(VES_HEVC, 0, 2);
        // HEVC header: forbidden_zero_bit, nal_unit_type, layer id, temporal id.
        const Bytes idr = {static_cast<uint8_t>(type << 1), 0x01, 0xAF};
        ASSERT_EQ(h.push(cat({sc4({0x40, 0x01}), sc4(idr), sc4({0x02, 0x01})}), 77), 0);
        EXPECT_EQ(h.split()->f_idr_aligned, 1) << type;
        EXPECT_EQ(h.split()->layers[VES_EL].idr_pts, 77u);
        EXPECT_EQ(h.split()->layers[VES_EL].time_scale, 1000000000u);
    }
    SplitterHarness h(VES_HEVC, 0, 2);
    ASSERT_EQ(h.push(cat({sc4({0x2A, 0x01}), sc4({0x02, 0x01})}), 77), 0);  // CRA: no anchor
    EXPECT_EQ(h.split()->f_idr_aligned, 0);
}

}  // namespace
