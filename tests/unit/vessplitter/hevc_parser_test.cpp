#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bit_writer.h"
#include "hevc_sei_sps_parser.h"

namespace {

using vestest::BitWriter;
using vestest::make_nal;
using vestest::nal_size;
using vestest::sei_message;

struct Rps {
    bool inter = false;
    uint32_t sign = 0, abs_minus1 = 0;
    std::vector<bool> used;                        // inter: used_by_curr_pic_flag per entry
    std::vector<uint32_t> neg_minus1, pos_minus1;  // explicit: delta_poc_s0/s1_minus1
};

struct HevcSpsSpec {
    uint32_t max_sub_layers_minus1 = 0;
    bool ordering_info = true;
    std::array<uint32_t, 3> ordering{4, 2, 0};  // max_dec_pic_buffering_minus1, reorder, latency
    uint32_t reserved_ptl = 0;
    uint64_t id = 0;
    uint32_t chroma = 1;
    bool separate = false;
    uint64_t width = 1920, height = 1088;
    std::optional<std::array<uint32_t, 4>> conf;
    uint32_t log2_min_cb_minus3 = 0, log2_diff_cb = 3;
    std::vector<Rps> rps;
    std::optional<uint64_t> long_term;
    bool vui = false, timing = false;
    uint32_t units = 1001, scale = 60000;
    bool nal_hrd = false, vcl_hrd = false, ffi = false, field_seq = false;
    uint64_t cpb_cnt_minus1 = 0;
    std::array<uint32_t, 3> lengths_minus1{23, 23, 23};
};

void write_profile(BitWriter& w) {
    w.u(2, 0).u(1, 0).u(5, 1).u(32, 0x60000000).u(4, 0x9).u(32, 0).u(12, 0);
}

std::vector<uint8_t> hevc_sps(const HevcSpsSpec& s) {
    BitWriter w;
    w.u(4, 0).u(3, s.max_sub_layers_minus1).u(1, 1);
    write_profile(w);
    w.u(8, 120);  // general_level_idc
    if (s.max_sub_layers_minus1 > 0) {
        for (uint32_t i = 0; i < s.max_sub_layers_minus1; ++i) w.u(1, 0).u(1, 1);
        for (uint32_t i = s.max_sub_layers_minus1; i < 8; ++i) w.u(2, s.reserved_ptl);
        for (uint32_t i = 0; i < s.max_sub_layers_minus1; ++i) w.u(8, 90);
    }
    w.ue(s.id).ue(s.chroma);
    if (s.chroma == 3) w.u(1, s.separate);
    w.ue(s.width).ue(s.height).u(1, s.conf.has_value());
    if (s.conf)
        for (uint32_t c : *s.conf) w.ue(c);
    w.ue(0).ue(0).ue(4);  // bit depths, log2_max_pic_order_cnt_lsb_minus4 (8 bits)
    w.u(1, s.ordering_info);
    const uint32_t sets = s.ordering_info ? s.max_sub_layers_minus1 + 1 : 1;
    for (uint32_t i = 0; i < sets; ++i) w.ue(s.ordering[0]).ue(s.ordering[1]).ue(s.ordering[2]);
    w.ue(s.log2_min_cb_minus3).ue(s.log2_diff_cb).ue(0).ue(3).ue(0).ue(0);
    w.u(1, 0).u(1, 1).u(1, 1).u(1, 0);  // scaling lists, amp, sao, pcm
    w.ue(s.rps.size());
    for (size_t idx = 0; idx < s.rps.size(); ++idx) {
        const Rps& r = s.rps[idx];
        if (idx > 0) w.u(1, r.inter);
        if (r.inter) {
            w.u(1, r.sign).ue(r.abs_minus1);
            for (bool u : r.used) {
                w.u(1, u);
                if (!u) w.u(1, 0);  // use_delta_flag
            }
        } else {
            w.ue(r.neg_minus1.size()).ue(r.pos_minus1.size());
            for (uint32_t d : r.neg_minus1) w.ue(d).u(1, 1);
            for (uint32_t d : r.pos_minus1) w.ue(d).u(1, 1);
        }
    }
    w.u(1, s.long_term.has_value());
    if (s.long_term) {
        w.ue(*s.long_term);
        for (uint64_t i = 0; i < *s.long_term && i < 40; ++i) w.u(8, i).u(1, 1);
    }
    w.u(1, 1).u(1, 1).u(1, s.vui);
    if (s.vui) {
        w.u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 0);  // aspect, overscan, signal, chroma loc, neutral
        w.u(1, s.field_seq).u(1, s.ffi).u(1, 0).u(1, s.timing);
        if (s.timing) {
            w.u(32, s.units).u(32, s.scale).u(1, 0);
            const bool hrd = s.nal_hrd || s.vcl_hrd;
            w.u(1, hrd);
            if (hrd) {
                w.u(1, s.nal_hrd).u(1, s.vcl_hrd).u(1, 0).u(4, 0).u(4, 0);
                for (uint32_t len : s.lengths_minus1) w.u(5, len);
                for (uint32_t i = 0; i <= s.max_sub_layers_minus1; ++i) {
                    w.u(1, 0).u(1, 0).u(1, 0);  // not fixed rate, not low delay
                    w.ue(s.cpb_cnt_minus1);
                    for (int hrds = s.nal_hrd + s.vcl_hrd; hrds > 0; --hrds)
                        for (uint64_t k = 0; k <= s.cpb_cnt_minus1 && k < 40; ++k)
                            w.ue(1000).ue(2000).u(1, 0);
                }
            }
        }
        w.u(1, 0);  // bitstream_restriction_flag
    }
    w.u(1, 0);  // sps_extension_present_flag
    return make_nal({0x42, 0x01}, w.trailing().bytes());
}

// Worked-example SPS: 1001/60000, NAL HRD with 24-bit delays, reorder 1.
HevcSpsSpec timing_sps(bool ffi = false) {
    HevcSpsSpec s;
    s.vui = s.timing = s.nal_hrd = true;
    s.ordering = {4, 1, 0};
    s.ffi = ffi;
    return s;
}

std::vector<uint8_t> sei_nal(const std::vector<uint8_t>& payload, uint32_t type) {
    std::vector<uint8_t> rbsp;
    sei_message(rbsp, type, payload);
    rbsp.push_back(0x80);
    return make_nal({0x4E, 0x01}, rbsp);
}

std::vector<uint8_t> bp(uint64_t sps_id, bool concat = false, bool irap = false,
                        uint32_t delta_minus1 = 0) {
    BitWriter w;
    w.ue(sps_id).u(1, irap);
    if (irap) w.u(24, 0x123456).u(24, 0x654321);
    w.u(1, concat).u(24, delta_minus1);
    w.u(24, 9000).u(24, 0);  // nal_initial_cpb_removal_delay / offset
    if (irap) w.u(24, 0).u(24, 0);
    return w.align_zero().bytes();
}

std::vector<uint8_t> pt(uint32_t cpb_minus1, uint32_t dpb, int pic_struct = -1) {
    BitWriter w;
    if (pic_struct >= 0) w.u(4, static_cast<uint32_t>(pic_struct)).u(2, 0).u(1, 0);
    w.u(24, cpb_minus1).u(24, dpb);
    return w.align_zero().bytes();
}

class HevcParser : public testing::Test {
protected:
    void SetUp() override {
        parser_env_init();
        parser_ = hevc_parser_create(1, 1);
        ASSERT_NE(parser_, nullptr);
    }
    void TearDown() override { parser_->parser_destroy(parser_); }
    int32_t sps(const HevcSpsSpec& spec) {
        auto nal = hevc_sps(spec);
        return parser_->parse_sps(nal.data(), nal_size(nal), 4, parser_);
    }
    int32_t sei(std::vector<uint8_t> nal) {
        return parser_->parse_sei_messages(nal.data(), nal_size(nal), 4, parser_);
    }
    hevc_decoder_t& dec() { return reinterpret_cast<hevc_parser_t*>(parser_)->dec; }
    hevc_sps_t& slot(int i = 0) { return *dec().sps[i]; }

    parser_handle_t parser_ = nullptr;
};

TEST_F(HevcParser, ResolutionAndConformanceWindow) {
    using Window = std::optional<std::array<uint32_t, 4>>;  // left, right, top, bottom
    struct Row {
        uint64_t width, height;
        Window conf;
        int32_t ret;
    };
    const Row rows[] = {{8440, 1088, {}, 0},
                        {8441, 1088, {}, 1},
                        {8, 8, {}, 0},
                        {7, 1088, {}, 1},
                        {1920, 8441, {}, 1},
                        {1920, 0, {}, 1},
                        {1920, 1088, Window{{0, 0, 0, 4}}, 0},
                        {1920, 1088, Window{{480, 480, 0, 0}}, 1}};  // nothing left of the width
    vestest::EdrCapture log(0);
    for (const Row& row : rows) {
        HevcSpsSpec s;
        s.width = row.width;
        s.height = row.height;
        s.conf = row.conf;
        EXPECT_EQ(sps(s), row.ret) << row.width << "x" << row.height;
        if (!row.conf || row.ret != 0) continue;
        EXPECT_EQ(slot().i_pic_conf_win_bottom_offset, 8);
        EXPECT_EQ(slot().i_pic_luma_height, 1088);
    }
    EXPECT_NE(log.text().find("hevc_parse_sequence_parameter_set:"), std::string::npos);
    EXPECT_NE(log.text().find(" ERROR: hevc image resolution out of range\n\n"), std::string::npos);
    EXPECT_NE(log.text().find(" ERROR: hevc bad cropping values\n\n"), std::string::npos);
}

TEST_F(HevcParser, InterPredictedSetOrdering) {
    HevcSpsSpec s;
    s.rps = {Rps{false, 0, 0, {}, {0, 0}, {0}},                   // {-1, -2, +1}
             Rps{true, 1, 0, {true, true, true, true}, {}, {}}};  // deltaRps -1
    ASSERT_EQ(sps(s), 0);
    const reference_picture_set_t& r = slot().as_rps_list[1];
    EXPECT_EQ(r.b_inter_rps_prediction, 1);
    ASSERT_EQ(r.i_num_pictures, 4);
    EXPECT_EQ(std::vector<int32_t>(r.ai_delta_poc, r.ai_delta_poc + 4),
              (std::vector<int32_t>{-1, -2, -3, 0}));
    EXPECT_EQ(r.i_num_negativePictures, 3);
    EXPECT_EQ(r.i_num_positivePictures, 1);
    EXPECT_EQ(r.i_num_ref_idc, 4);
    // An unused entry drops out and is marked 0.
    s.rps[1].used = {true, false, true, true};
    ASSERT_EQ(sps(s), 0);
    EXPECT_EQ(slot().as_rps_list[1].i_num_pictures, 3);
    EXPECT_EQ(slot().as_rps_list[1].ai_ref_idc[1], 0);
    EXPECT_EQ(slot().as_rps_list[1].ai_delta_poc[0], -1);
}

TEST_F(HevcParser, ShortTermSetLimits) {
    const Rps one{false, 0, 0, {}, {0}, {}};
    const Rps sixteen{false, 0, 0, {}, std::vector<uint32_t>(16, 0), {}};  // the array's size
    struct Row {
        const char* name;
        std::vector<Rps> rps;
        int32_t ret;
    };
    const Row rows[] = {
        {"64 sets", std::vector<Rps>(64, one), 0},
        {"65 sets", std::vector<Rps>(65, one), 1},
        {"16 pictures", {sixteen}, 0},
        {"17 pictures",
         {Rps{false, 0, 0, {}, std::vector<uint32_t>(9, 0), std::vector<uint32_t>(8, 0)}},
         1},
        // Derived from a 16-picture set with all 17 entries used.
        {"17 derived", {sixteen, Rps{true, 0, 0, std::vector<bool>(17, true), {}, {}}}, 1},
        {"delta beyond 2^15", {Rps{false, 0, 0, {}, {40000}, {}}}, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        HevcSpsSpec s;
        s.rps = row.rps;
        EXPECT_EQ(sps(s), row.ret);
        if (row.ret != 0 || row.rps.size() != 64) continue;
        EXPECT_EQ(slot().i_num_short_term_ref_pic_sets, 64);
        EXPECT_EQ(slot().pps_rps_list, slot().as_rps_list);
    }
}

TEST_F(HevcParser, ArrayBoundsRejectTheSps) {
    struct Row {
        const char* name;
        HevcSpsSpec spec;
        int32_t ret;
    };
    auto with = [](auto change) {
        HevcSpsSpec s = timing_sps();
        change(s);
        return s;
    };
    const Row rows[] = {
        {"cpb_cnt_minus1 31", with([](HevcSpsSpec& s) { s.cpb_cnt_minus1 = 31; }), 0},
        {"cpb_cnt_minus1 32", with([](HevcSpsSpec& s) { s.cpb_cnt_minus1 = 32; }), 1},
        {"32 long-term", with([](HevcSpsSpec& s) { s.long_term = 32; }), 0},
        {"33 long-term", with([](HevcSpsSpec& s) { s.long_term = 33; }), 1},
        {"CTB 64", with([](HevcSpsSpec& s) { s.log2_diff_cb = 3; }), 0},
        {"CTB 128 (depth 5)", with([](HevcSpsSpec& s) { s.log2_diff_cb = 4; }), 1},
        {"depth 7", with([](HevcSpsSpec& s) { s.log2_diff_cb = 6; }), 1},
        {"7 sub-layers", with([](HevcSpsSpec& s) { s.max_sub_layers_minus1 = 6; }), 0},
        {"8 sub-layers", with([](HevcSpsSpec& s) { s.max_sub_layers_minus1 = 7; }), 1},
        {"separate colour planes", with([](HevcSpsSpec& s) {
             s.chroma = 3;
             s.separate = true;
         }),
         1},
        {"field_seq_flag", with([](HevcSpsSpec& s) { s.field_seq = true; }), 1},
        {"PTL reserved bits", with([](HevcSpsSpec& s) {
             s.max_sub_layers_minus1 = 1;
             s.reserved_ptl = 1;
         }),
         1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(sps(row.spec), row.ret);
    }
}

TEST_F(HevcParser, DerivedSizesAmpAndSubLayerOrdering) {
    HevcSpsSpec s;
    s.max_sub_layers_minus1 = 2;
    s.ordering_info = false;  // one coded set, copied to every sub-layer
    s.ordering = {5, 3, 7};
    ASSERT_EQ(sps(s), 0);
    const hevc_sps_t& r = slot();
    EXPECT_EQ(r.i_max_cu_width, 64);
    EXPECT_EQ(r.i_log2_max_transform_block_size, 5);
    EXPECT_EQ(r.i_add_depth, 1);
    EXPECT_EQ(r.i_max_cu_depth, 4);
    EXPECT_EQ(std::vector<BOOL>(r.ab_amvp, r.ab_amvp + 6), (std::vector<BOOL>{1, 1, 1, 0, 0, 0}));
    EXPECT_EQ(r.i_max_pic_order_cnt_lsb, 256);
    EXPECT_EQ(r.as_protile[0].i_level, 120);
    EXPECT_EQ(r.as_protile[2].i_level, 90);  // sub-layer 1
    EXPECT_EQ(r.as_protile[0].as_sublayer_ptl[2], &r.as_protile[3]);
    EXPECT_EQ(r.b_init, 1);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(r.ai_max_dec_pic_buffering[i], 6) << i;
        EXPECT_EQ(r.ai_num_reorder_pics[i], 3) << i;
        EXPECT_EQ(r.max_latency_increase[i], 7) << i;
    }
}

TEST_F(HevcParser, DefaultsAndChromaWarning) {
    vestest::EdrCapture log(1);
    HevcSpsSpec s;
    s.chroma = 2;
    ASSERT_EQ(sps(s), 0);
    EXPECT_EQ(slot().vui.i_num_units, 1001);
    EXPECT_EQ(slot().vui.i_time_scale, 60000);
    EXPECT_NE(log.text().find(" WARNING: osprey decoder only fully support 4:2:0\n\n"),
              std::string::npos);
    s = timing_sps();
    s.timing = true;
    s.nal_hrd = false;
    s.units = 1000;
    s.scale = 25000;
    ASSERT_EQ(sps(s), 0);
    EXPECT_EQ(slot().vui.i_num_units, 1000);
    EXPECT_EQ(slot().vui.i_cpb_removal_delay_length, 24);  // no HRD: 24-bit defaults
}

TEST_F(HevcParser, WorkedTimingExample) {
    ASSERT_EQ(sps(timing_sps()), 0);
    ASSERT_EQ(sei(sei_nal(bp(0), 0)), 0);
    const std::array<uint32_t, 3> rows[] = {{0, 2, 1001}, {0, 1, 1001}, {1, 3, 4004}};
    for (const auto& [cpb_minus1, dpb, out] : rows) {
        ASSERT_EQ(sei(sei_nal(pt(cpb_minus1, dpb), 1)), 0);
        EXPECT_EQ(parser_->parser_get_dpb_output_time(parser_, 1), out);
        EXPECT_EQ(parser_->parser_get_cts_offset_ticks(parser_), static_cast<int32_t>(1001 * dpb));
        EXPECT_EQ(parser_->parser_get_cts_offset_frames(parser_), static_cast<int32_t>(dpb));
    }
    EXPECT_EQ(parser_->parser_get_num_reorder_frames(parser_), 1);
    EXPECT_EQ(parser_->parser_get_time_scale(parser_), 60000);
    EXPECT_EQ(parser_->parser_get_num_units_in_tick(parser_), 1001);
    EXPECT_EQ(dec().last_gop_size, 0u);
    ASSERT_EQ(sei(sei_nal(bp(0), 0)), 0);
    EXPECT_EQ(dec().last_gop_size, 3u);
}

TEST_F(HevcParser, FrameFieldInfoHalvesAndDoubles) {
    ASSERT_EQ(sps(timing_sps(true)), 0);
    ASSERT_EQ(sei(sei_nal(bp(0), 0)), 0);
    ASSERT_EQ(sei(sei_nal(pt(0, 4, 0), 1)), 0);
    EXPECT_EQ(parser_->parser_get_dpb_output_time(parser_, 1), 1001u);  // (4 >> 1) - 1
    EXPECT_EQ(parser_->parser_get_cts_offset_frames(parser_), 8);
    const std::pair<int, int32_t> rows[] = {
        {7, 30000}, {12, 60000}, {5, 20000}, {0, 30000}, {14, 60000}};
    for (const auto& [pic_struct, scale] : rows) {
        ASSERT_EQ(sei(sei_nal(pt(0, 4, pic_struct), 1)), 0);
        EXPECT_EQ(parser_->parser_get_time_scale(parser_), scale) << pic_struct;
    }
}

TEST_F(HevcParser, IrapOffsetsAndConcatenation) {
    ASSERT_EQ(sps(timing_sps()), 0);
    ASSERT_EQ(sei(sei_nal(bp(0, true, true, 5), 0)), 0);  // offsets come before concatenation_flag
    EXPECT_EQ(dec().bp.b_rap_cpb_params, 1);
    EXPECT_EQ(dec().bp.i_cpb_delay_offset, 0x123456);
    EXPECT_EQ(dec().bp.i_dpb_delay_offset, 0x654321);
    EXPECT_EQ(dec().bp.b_concat, 1);
    EXPECT_EQ(dec().bp.i_cpb_removal_delay_delta, 6);
    EXPECT_EQ(dec().initial_cpb_removal_delay_1st, 9000u);
    // The first picture timing starts the chain at 0 whatever the flag says.
    ASSERT_EQ(sei(sei_nal(pt(0, 2), 1)), 0);          // t 0
    ASSERT_EQ(sei(sei_nal(pt(1, 2), 1)), 0);          // t 2
    parser_->parser_get_dpb_output_time(parser_, 1);  // TRAIL_R: anchor 2
    ASSERT_EQ(sei(sei_nal(pt(2, 2), 1)), 0);          // t 3
    parser_->parser_get_dpb_output_time(parser_, 8);  // RASL_N: anchor stays
    EXPECT_EQ(dec().pic_timing.i64_removal_tm_of_prev_non_discardable_pic, 2);
    ASSERT_EQ(sei(sei_nal(bp(0, true), 0)), 0);
    ASSERT_EQ(sei(sei_nal(pt(0, 2), 1)), 0);
    EXPECT_EQ(dec().pic_timing.i64_au_removal_tm, 3);  // 2 + 1, not 0 + 1
    EXPECT_EQ(dec().pic_timing.i64_removal_tm_of_first_pic_in_bp, 3);
}

TEST_F(HevcParser, PictureTimingBeforeBufferingPeriodIsSkipped) {
    ASSERT_EQ(sps(timing_sps()), 0);
    EXPECT_EQ(sei(sei_nal(pt(5, 2), 1)), 0);
    EXPECT_EQ(parser_->sei_timing_num, 0);
    EXPECT_EQ(parser_->parser_get_num_reorder_frames(parser_), 0);
    // A buffering period naming an undefined SPS while slot 0 is defined uses slot 0.
    vestest::EdrCapture log(0);
    ASSERT_EQ(sei(sei_nal(bp(9), 0)), 0);
    EXPECT_EQ(dec().active_sps, &slot(0));
    EXPECT_NE(log.text().find(" ERROR: hevc seq_parameter_set_id in SEI BP wrong\n\n"),
              std::string::npos);
}

TEST_F(HevcParser, ResetAndNullHandles) {
    ASSERT_EQ(sps(timing_sps()), 0);
    ASSERT_EQ(sei(sei_nal(bp(0), 0)), 0);
    parser_->parser_reset(parser_);
    EXPECT_EQ(dec().active_sps, nullptr);
    for (hevc_sps_t* s : dec().sps) EXPECT_EQ(s, nullptr);  // slots come back on first use
    ASSERT_EQ(sps(timing_sps()), 0);
    EXPECT_EQ(slot().as_protile[0].as_sublayer_ptl[5], &slot().as_protile[6]);
    EXPECT_NE(dec().dsb, nullptr);
    EXPECT_EQ(hevc_parser_get_time_scale(nullptr), 0);
    EXPECT_EQ(hevc_parser_get_dpb_output_time(nullptr, 1), 0u);
    EXPECT_EQ(hevc_parser_get_cts_offset_frames(nullptr), 0);
    hevc_parser_destroy(nullptr);
    uint8_t short_unit[] = {0, 0, 0, 1, 0x42};
    EXPECT_EQ(parser_->parse_sps(short_unit, 5, 4, parser_), 1);
    EXPECT_EQ(parser_->parse_sei_messages(short_unit, 5, 4, parser_), -1);
}

}  // namespace
