#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "avc_sei_sps_parser.h"
#include "bit_writer.h"

namespace {

using vestest::BitWriter;
using vestest::make_nal;
using vestest::nal_size;
using vestest::sei_message;

// One SchedSelIdx, filled element by element: GCC 12 on armhf misreports a
// member initialised from a temporary (dangling pointer at -O3, uninitialised
// at -O2).
std::vector<std::array<uint32_t, 2>> one_sched_sel() {
    std::vector<std::array<uint32_t, 2>> values(1);
    values[0][0] = 1562;  // bit_rate_value_minus1
    values[0][1] = 3124;  // cpb_size_value_minus1
    return values;
}

struct AvcHrd {
    uint32_t cpb_cnt_minus1 = 0;
    uint32_t bit_rate_scale = 0;
    uint32_t cpb_size_scale = 0;
    std::vector<std::array<uint32_t, 2>> values = one_sched_sel();  // *_value_minus1
    std::array<uint32_t, 4> lengths{23, 23, 23, 24};  // three minus1 + time_offset_length
};

struct AvcSpsSpec {
    uint8_t header = 0x67;  // nal_ref_idc 3, type 7
    uint32_t profile = 100;
    uint32_t constraints = 0;
    uint32_t level = 40;
    uint64_t id = 0;
    uint32_t chroma = 1;
    bool frame_mbs_only = true;
    uint32_t width_mbs = 120;                     // 1920
    uint32_t height_units = 68;                   // 1088 in frames
    std::optional<std::array<uint32_t, 4>> crop;  // left, right, top, bottom
    bool vui = false;
    int aspect_idc = -1;
    uint16_t sar_w = 0, sar_h = 0;
    bool timing = false;
    uint32_t units = 1001, scale = 60000;
    std::optional<AvcHrd> nal_hrd, vcl_hrd;
    bool pic_struct = false;
    int reorder = -1;  // >= 0: bitstream_restriction with this max_num_reorder_frames
};

void write_hrd(BitWriter& w, const AvcHrd& h) {
    w.ue(h.cpb_cnt_minus1).u(4, h.bit_rate_scale).u(4, h.cpb_size_scale);
    for (uint32_t i = 0; i <= h.cpb_cnt_minus1 && i < 64; ++i) {
        const auto& v = h.values[i < h.values.size() ? i : h.values.size() - 1];
        w.ue(v[0]).ue(v[1]).u(1, 0);
    }
    for (uint32_t len : h.lengths) w.u(5, len);
}

std::vector<uint8_t> avc_sps(const AvcSpsSpec& s) {
    BitWriter w;
    w.u(8, s.profile).u(8, s.constraints).u(8, s.level).ue(s.id);
    if (s.profile == 100 || s.profile == 244 || s.profile == 128 || s.profile == 134) {
        w.ue(s.chroma);
        if (s.chroma == 3) w.u(1, 0);
        w.ue(0).ue(0).u(1, 0).u(1, 0);  // bit depths, bypass, no scaling matrix
    }
    w.ue(0).ue(0).ue(2);  // log2_max_frame_num_minus4, poc type 0, lsb
    w.ue(4).u(1, 0).ue(s.width_mbs - 1).ue(s.height_units - 1).u(1, s.frame_mbs_only);
    if (!s.frame_mbs_only) w.u(1, 0);
    w.u(1, 1);  // direct_8x8_inference_flag
    w.u(1, s.crop.has_value());
    if (s.crop)
        for (uint32_t c : *s.crop) w.ue(c);
    w.u(1, s.vui);
    if (s.vui) {
        w.u(1, s.aspect_idc >= 0);
        if (s.aspect_idc >= 0) {
            w.u(8, static_cast<uint32_t>(s.aspect_idc));
            if (s.aspect_idc == 255) w.u(16, s.sar_w).u(16, s.sar_h);
        }
        w.u(1, 0).u(1, 0).u(1, 0);  // overscan, video signal, chroma loc
        w.u(1, s.timing);
        if (s.timing) w.u(32, s.units).u(32, s.scale).u(1, 1);
        w.u(1, s.nal_hrd.has_value());
        if (s.nal_hrd) write_hrd(w, *s.nal_hrd);
        w.u(1, s.vcl_hrd.has_value());
        if (s.vcl_hrd) write_hrd(w, *s.vcl_hrd);
        if (s.nal_hrd || s.vcl_hrd) w.u(1, 0);  // low_delay_hrd_flag
        w.u(1, s.pic_struct);
        w.u(1, s.reorder >= 0);
        if (s.reorder >= 0)
            w.u(1, 1).ue(2).ue(1).ue(16).ue(16).ue(static_cast<uint32_t>(s.reorder)).ue(4);
    }
    return make_nal({s.header}, w.trailing().bytes());
}

std::vector<uint8_t> sei_nal(const std::vector<std::vector<uint8_t>>& messages,
                             std::initializer_list<uint32_t> types) {
    std::vector<uint8_t> rbsp;
    auto t = types.begin();
    for (const auto& m : messages) sei_message(rbsp, *t++, m);
    rbsp.push_back(0x80);
    return make_nal({0x06}, rbsp);
}

std::vector<uint8_t> bp_payload(uint64_t sps_id, uint32_t count = 1, uint32_t len = 24) {
    BitWriter w;
    w.ue(sps_id);
    for (uint32_t i = 0; i < count; ++i) w.u(len, 1000 + i).u(len, 0);
    return w.align_zero().bytes();
}

std::vector<uint8_t> pt_payload(uint32_t cpb, uint32_t dpb, int pic_struct = -1,
                                uint32_t len = 24) {
    BitWriter w;
    w.u(len, cpb).u(len, dpb);
    if (pic_struct >= 0) w.u(4, static_cast<uint32_t>(pic_struct)).u(3, 0);  // no clock timestamps
    return w.align_zero().bytes();
}

class AvcParser : public testing::Test {
protected:
    void SetUp() override {
        parser_env_init();
        parser_ = avc_parser_create(1, 1);
        ASSERT_NE(parser_, nullptr);
    }
    void TearDown() override { parser_->parser_destroy(parser_); }

    int32_t sps(std::vector<uint8_t> nal) {
        return parser_->parse_sps(nal.data(), nal_size(nal), 4, parser_);
    }
    int32_t sei(std::vector<uint8_t> nal) {
        return parser_->parse_sei_messages(nal.data(), nal_size(nal), 4, parser_);
    }
    avc_decoder_t& dec() { return reinterpret_cast<avc_parser_t*>(parser_)->dec; }

    parser_handle_t parser_ = nullptr;
};

TEST_F(AvcParser, LevelAndProfileTable) {
    struct Row {
        const char* name;
        uint32_t profile, constraints, level;
        int32_t ret;
        uint32_t bit_rate_max, cpb_size_max, bit_rate_1200, cpb_size_1200;
    };
    const Row rows[] = {
        {"High 4.0", 100, 0, 40, 0, 30000000, 37500000, 24000000, 30000000},
        {"Baseline 1b", 66, 0x10, 11, 0, 153600, 420000, 153600, 420000},
        {"Baseline 1.1", 66, 0, 11, 0, 230400, 600000, 230400, 600000},
        {"MFC High 4.1", 134, 0, 41, 0, 40000000, 93750000, 60000000, 75000000},
        {"MVC High 4.0", 128, 0, 40, 0, 24000000, 37500000, 24000000, 30000000},
        {"High 4:4:4 5.1", 244, 0, 51, 0, 1152000000, 1152000000, 288000000, 288000000},
        {"profile 245", 245, 0, 40, 1, 0, 0, 0, 0},
        {"profile 83 has no factor", 83, 0, 40, 1, 0, 0, 0, 0},
        {"level 9", 100, 0, 9, 1, 0, 0, 0, 0},
        {"level 52", 100, 0, 52, 1, 0, 0, 0, 0},
    };
    vestest::EdrCapture log(0);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        AvcSpsSpec s;
        s.profile = row.profile;
        s.constraints = row.constraints;
        s.level = row.level;
        s.id = 3;
        dec().sps[3] = avc_sps_t{};
        ASSERT_EQ(sps(avc_sps(s)), row.ret);
        const avc_sps_t& r = dec().sps[3];
        EXPECT_EQ(r.isDefined, row.ret == 0);
        if (row.ret != 0) continue;
        EXPECT_EQ(r.bit_rate_max, row.bit_rate_max);
        EXPECT_EQ(r.cpb_size_max, row.cpb_size_max);
        EXPECT_EQ(r.bit_rate_1200, row.bit_rate_1200);
        EXPECT_EQ(r.cpb_size_1200, row.cpb_size_1200);
    }
    const std::string text = log.text();
    EXPECT_NE(text.find("avc_parse_sequence_parameter_set:"), std::string::npos);
    EXPECT_NE(text.find(" ERROR: can handle the profile\n\n"), std::string::npos);
    EXPECT_NE(text.find(" ERROR: avc can handle the level\n\n"), std::string::npos);
    EXPECT_EQ(text.find("DEBUG"), std::string::npos);  // level 0 prints errors only
}

TEST_F(AvcParser, SpsIdOutOfRangeAndSubsetSps) {
    AvcSpsSpec s;
    s.id = 32;
    EXPECT_EQ(sps(avc_sps(s)), 0);  // slot 0 undefined: taken as id 0
    EXPECT_EQ(dec().sps[0].isDefined, 1);
    EXPECT_EQ(sps(avc_sps(s)), 1);  // now slot 0 is defined: rejected
    s.header = 0x6F;                // type 15
    s.profile = 128;
    s.id = 5;
    ASSERT_EQ(sps(avc_sps(s)), 0);
    EXPECT_EQ(dec().sps_id_enh, 5);
    EXPECT_EQ(dec().active_sps_enh, &dec().sps[5]);
}

TEST_F(AvcParser, CroppingAndFieldCoding) {
    AvcSpsSpec s;
    s.crop = std::array<uint32_t, 4>{0, 0, 0, 4};
    ASSERT_EQ(sps(avc_sps(s)), 0);
    EXPECT_EQ(dec().sps[0].pic_width_out, 1920u);
    EXPECT_EQ(dec().sps[0].pic_height_out, 1080u);
    s.frame_mbs_only = false;
    s.height_units = 34;  // field pairs: 2 * 34 * 16 = 1088
    ASSERT_EQ(sps(avc_sps(s)), 0);
    EXPECT_EQ(dec().sps[0].pic_height, 1088u);
    EXPECT_EQ(dec().sps[0].pic_height_out, 1072u);
    s.frame_mbs_only = true;
    s.height_units = 68;
    s.chroma = 2;  // CropUnitY 1
    ASSERT_EQ(sps(avc_sps(s)), 0);
    EXPECT_EQ(dec().sps[0].pic_height_out, 1084u);
}

TEST_F(AvcParser, AspectRatioAndZeroTimeScale) {
    AvcSpsSpec s;
    s.vui = true;
    s.sar_w = 64;
    s.sar_h = 45;
    for (const auto& [idc, w, h] :
         {std::array<int, 3>{14, 4, 3}, {255, 64, 45}, {20, 0, 0}, {1, 1, 1}}) {
        s.aspect_idc = idc;
        ASSERT_EQ(sps(avc_sps(s)), 0);
        EXPECT_EQ(dec().sps[0].sar_width, w) << idc;
        EXPECT_EQ(dec().sps[0].sar_height, h) << idc;
    }
    s.timing = true;
    s.scale = 0;  // clears the timing flag but keeps both numbers
    ASSERT_EQ(sps(avc_sps(s)), 0);
    EXPECT_EQ(dec().sps[0].timing_info_present_flag, 0);
    EXPECT_EQ(dec().sps[0].num_units_in_tick, 1001u);
    EXPECT_EQ(dec().sps[0].time_scale, 0u);
}

TEST_F(AvcParser, DefaultsWithoutVuiKeepCreationFlags) {
    parser_handle_t quiet = avc_parser_create(0, 0);
    AvcSpsSpec s;
    auto nal = avc_sps(s);
    ASSERT_EQ(quiet->parse_sps(nal.data(), nal_size(nal), 4, quiet), 0);
    const avc_sps_t& r = reinterpret_cast<avc_parser_t*>(quiet)->dec.sps[0];
    EXPECT_EQ(r.timing_info_present_flag, 0);
    EXPECT_EQ(r.cpb_cnt_minus1, 0u);
    EXPECT_EQ(r.initial_cpb_removal_delay_length_minus1, 23);
    EXPECT_EQ(r.cpb_removal_delay_length_minus1, 23);
    EXPECT_EQ(r.dpb_output_delay_length_minus1, 23);
    EXPECT_EQ(r.time_offset_length, 24);
    EXPECT_EQ(r.num_reorder_frames, 16);
    EXPECT_EQ(r.max_dec_frame_buffering, 16);
    EXPECT_EQ(r.NalHrdBpPresentFlag, 0);
    EXPECT_EQ(r.CpbDpbDelaysPresentFlag, 0);
    EXPECT_EQ(r.cpb_size, r.cpb_size_max);  // T-STD default
    EXPECT_EQ(r.mb_mux_size, 24000000u / 250);
    quiet->parser_destroy(quiet);
}

TEST_F(AvcParser, NalHrdWinsOverVclHrd) {
    AvcSpsSpec s;
    s.vui = true;
    AvcHrd nal;
    nal.cpb_cnt_minus1 = 1;
    nal.values = {{1562, 3124}, {3124, 6249}};  // 100 kbit/s & 50 kbit; 200 kbit/s & 100 kbit
    nal.lengths = {19, 12, 6, 24};
    AvcHrd vcl;
    vcl.values = {{99, 99}};
    vcl.lengths = {9, 9, 9, 0};
    s.nal_hrd = nal;
    s.vcl_hrd = vcl;
    ASSERT_EQ(sps(avc_sps(s)), 0);
    const avc_sps_t& r = dec().sps[0];
    EXPECT_EQ(r.cpb_cnt_minus1, 1u);
    EXPECT_EQ(r.bit_rate_1st, 1563u << 6);
    EXPECT_EQ(r.cpb_size_1st, 3125u << 4);
    EXPECT_EQ(r.bit_rate_last, 3125u << 6);
    EXPECT_EQ(r.cpb_size_last, 6250u << 4);
    EXPECT_EQ(r.initial_cpb_removal_delay_length_minus1, 19);
    EXPECT_EQ(r.cpb_removal_delay_length_minus1, 12);
    EXPECT_EQ(r.dpb_output_delay_length_minus1, 6);
    EXPECT_EQ(r.VclHrdBpPresentFlag, 1);
    // HRD figures of at least 100000 feed the T-STD model.
    EXPECT_EQ(r.cpb_size, 100000u);
    EXPECT_EQ(r.bit_rate_rx, 200000u * 12 / 10);
    EXPECT_EQ(r.mb_dec_size, 37500000u - 100000u);

    s.nal_hrd.reset();  // VCL alone is kept
    ASSERT_EQ(sps(avc_sps(s)), 0);
    EXPECT_EQ(dec().sps[0].bit_rate_1st, 100u << 6);
    EXPECT_EQ(dec().sps[0].cpb_removal_delay_length_minus1, 9);
}

TEST_F(AvcParser, CpbCountBeyond31IsRejected) {
    AvcSpsSpec s;
    s.vui = true;
    AvcHrd hrd;
    hrd.cpb_cnt_minus1 = 31;  // the limit
    s.nal_hrd = hrd;
    EXPECT_EQ(sps(avc_sps(s)), 0);
    hrd.cpb_cnt_minus1 = 32;  // one past
    s.nal_hrd = hrd;
    EXPECT_EQ(sps(avc_sps(s)), 1);
    EXPECT_EQ(dec().sps[0].cpb_cnt_minus1, 31u);
}

TEST_F(AvcParser, PayloadLimitAndShortUnits) {
    AvcSpsSpec s;
    s.vui = true;
    s.timing = true;
    auto nal = avc_sps(s);
    nal.resize(nal.size() + 3000, 0x55);  // only the first 1024 payload bytes are read
    ASSERT_EQ(sps(nal), 0);
    EXPECT_LE(dec().rbsp_size, 1024u);  // less by the emulation-prevention bytes dropped
    EXPECT_GE(dec().rbsp_size, 1020u);
    EXPECT_EQ(dec().sps[0].time_scale, 60000u);

    uint8_t header_only[] = {0, 0, 0, 1, 0x67};
    const int32_t sizes[] = {5, 4, 0, -1};
    for (int32_t size : sizes)
        EXPECT_EQ(parser_->parse_sps(header_only, size, 4, parser_), 1) << size;
    EXPECT_EQ(parser_->parse_sps(nullptr, 10, 4, parser_), 1);
    EXPECT_EQ(parser_->parse_sps(header_only, 5, -1, parser_), 1);
}

// SPS of the worked example: 1001/60000, reorder 2, NAL HRD with 24-bit delays.
AvcSpsSpec timing_sps(bool pic_struct = false) {
    AvcSpsSpec s;
    s.vui = true;
    s.timing = true;
    s.nal_hrd = AvcHrd{};
    s.reorder = 2;
    s.pic_struct = pic_struct;
    return s;
}

TEST_F(AvcParser, WorkedTimingExample) {
    ASSERT_EQ(sps(avc_sps(timing_sps())), 0);
    EXPECT_EQ(sei(sei_nal({bp_payload(0)}, {0})), 0);
    struct Row {
        uint32_t cpb, dpb;
        uint64_t out;
        int32_t frames, ticks;
    };
    const Row rows[] = {{0, 4, 0, 2, 4004}, {2, 8, 3003, 4, 8008}, {4, 4, 2002, 2, 4004}};
    for (const Row& row : rows) {
        ASSERT_EQ(sei(sei_nal({pt_payload(row.cpb, row.dpb)}, {1})), 0);
        EXPECT_EQ(parser_->parser_get_dpb_output_time(parser_, 0), row.out);
        EXPECT_EQ(parser_->parser_get_cts_offset_frames(parser_), row.frames);
        EXPECT_EQ(parser_->parser_get_cts_offset_ticks(parser_), row.ticks);
    }
    EXPECT_EQ(parser_->parser_get_num_units_in_tick(parser_), 1001);
    EXPECT_EQ(parser_->parser_get_time_scale(parser_), 60000);
    EXPECT_EQ(parser_->parser_get_num_reorder_frames(parser_), 2);
    EXPECT_EQ(dec().sps[0].UseSeiTiming, 1);
}

TEST_F(AvcParser, BufferingPeriodAndPictureTimingInOneUnit) {
    ASSERT_EQ(sps(avc_sps(timing_sps())), 0);
    EXPECT_EQ(sei(sei_nal({bp_payload(0), pt_payload(0, 4)}, {0, 1})), 0);
    EXPECT_EQ(parser_->bp_num, 1);
    EXPECT_EQ(parser_->sei_timing_num, 1);
    EXPECT_EQ(parser_->sei_timing_num_sub, 1);
    // Not first in its unit: counted, then -1.
    vestest::EdrCapture log(1);
    EXPECT_EQ(sei(sei_nal({pt_payload(2, 4), bp_payload(0)}, {1, 0})), -1);
    EXPECT_EQ(parser_->bp_num, 2);
    EXPECT_EQ(parser_->sei_timing_num_sub, 0);
    EXPECT_NE(log.text().find("avc_parse_sei_messages:"), std::string::npos);
    EXPECT_NE(log.text().find(" WARNING: buffering period is not first SEI\n\n"),
              std::string::npos);
}

TEST_F(AvcParser, RemovalTimeChain) {
    ASSERT_EQ(sps(avc_sps(timing_sps())), 0);
    ASSERT_EQ(sei(sei_nal({bp_payload(0), pt_payload(0, 4)}, {0, 1})), 0);
    ASSERT_EQ(sei(sei_nal({pt_payload(6, 4)}, {1})), 0);
    ASSERT_EQ(sei(sei_nal({pt_payload(0, 4)}, {1})), 0);  // 0 after 6: taken as 8
    EXPECT_EQ(dec().cpb_removal_delay, 8u);
    EXPECT_EQ(dec().i64_au_removal_tm, 8);
    // A second buffering period re-anchors at its first picture.
    ASSERT_EQ(sei(sei_nal({bp_payload(0), pt_payload(4, 4)}, {0, 1})), 0);
    EXPECT_EQ(dec().i64_removal_tm_of_first_pic_in_bp, 4);
    ASSERT_EQ(sei(sei_nal({pt_payload(2, 4)}, {1})), 0);
    EXPECT_EQ(dec().i64_au_removal_tm, 6);
    EXPECT_EQ(parser_->sei_timing_num_sub, 2);
}

TEST_F(AvcParser, TrailingBitsAndMessageBounds) {
    ASSERT_EQ(sps(avc_sps(timing_sps())), 0);
    vestest::EdrCapture log(1);
    auto unit = [](std::vector<uint8_t> rbsp) { return make_nal({0x06}, rbsp); };
    EXPECT_EQ(sei(unit({0x80})), 0);                     // trailing bits only
    EXPECT_EQ(sei(unit({0x80, 0x80})), -1);              // two bytes, no message
    EXPECT_EQ(sei(unit({0x05, 0x10, 0x00, 0x80})), -1);  // size runs past the end
    EXPECT_EQ(sei(unit({0x05, 0x01, 0x00, 0x81})), -1);  // not a single 0x80 after it
    auto padded = sei_nal({bp_payload(0)}, {0});
    padded.insert(padded.end(), {0, 0, 0});  // trailing zero bytes are dropped
    EXPECT_EQ(sei(padded), 0);
    EXPECT_NE(log.text().find(" WARNING: Error decoding sei message\n\n"), std::string::npos);

    // A message cut by the 1024-byte limit is not an error.
    std::vector<uint8_t> big;
    sei_message(big, 5, std::vector<uint8_t>(2000, 0x11));
    big.push_back(0x80);
    EXPECT_EQ(sei(unit(big)), 0);
    uint8_t short_unit[] = {0, 0, 0, 1};
    EXPECT_EQ(parser_->parse_sei_messages(short_unit, 4, 4, parser_), -1);
}

TEST_F(AvcParser, PicStructDividesTheTimeScale) {
    ASSERT_EQ(sps(avc_sps(timing_sps(true))), 0);
    ASSERT_EQ(sei(sei_nal({bp_payload(0)}, {0})), 0);
    const std::pair<int, int32_t> rows[] = {{7, 15000}, {0, 30000}, {1, 60000},
                                            {5, 20000}, {8, 10000}, {9, 60000}};
    for (const auto& [pic_struct, scale] : rows) {
        ASSERT_EQ(sei(sei_nal({pt_payload(2, 4, pic_struct)}, {1})), 0);
        EXPECT_EQ(dec().pic_struct, pic_struct);
        EXPECT_EQ(parser_->parser_get_time_scale(parser_), scale) << pic_struct;
    }
    // Without pic_struct_present_flag the divisor is 1.
    ASSERT_EQ(sps(avc_sps(timing_sps(false))), 0);
    ASSERT_EQ(sei(sei_nal({pt_payload(2, 4)}, {1})), 0);
    EXPECT_EQ(parser_->parser_get_time_scale(parser_), 60000);
}

TEST_F(AvcParser, BufferingPeriodSelectsTheNamedSps) {
    AvcSpsSpec s = timing_sps();
    s.id = 20;
    s.units = 1;
    ASSERT_EQ(sps(avc_sps(s)), 0);
    ASSERT_EQ(sei(sei_nal({bp_payload(20)}, {0})), 0);
    EXPECT_EQ(dec().active_sps, &dec().sps[20]);
    // An undefined id with slot 0 undefined: the message is ignored.
    ASSERT_EQ(sei(sei_nal({bp_payload(7)}, {0})), 0);
    EXPECT_EQ(dec().active_sps, &dec().sps[20]);
    ASSERT_EQ(sps(avc_sps(timing_sps())), 0);
    vestest::EdrCapture log(0);
    ASSERT_EQ(sei(sei_nal({bp_payload(40)}, {0})), 0);
    EXPECT_EQ(dec().active_sps, &dec().sps[0]);
    EXPECT_NE(log.text().find(" ERROR: Assume seq_parameter_set_id = 0\n\n"), std::string::npos);
}

TEST_F(AvcParser, PictureTimingBeforeBufferingPeriodIsSkipped) {
    ASSERT_EQ(sps(avc_sps(timing_sps())), 0);
    EXPECT_EQ(sei(sei_nal({pt_payload(8, 4)}, {1})), 0);
    EXPECT_EQ(parser_->sei_timing_num, 0);
    EXPECT_EQ(parser_->parser_get_time_scale(parser_), 0);
    EXPECT_EQ(parser_->parser_get_cts_offset_ticks(parser_), 0);
    ASSERT_EQ(sei(sei_nal({bp_payload(0), pt_payload(8, 4)}, {0, 1})), 0);
    EXPECT_EQ(dec().i64_au_removal_tm, 0);  // the chain starts here
}

TEST_F(AvcParser, ResetForgetsStateKeepsReaderAndFlags) {
    ASSERT_EQ(sps(avc_sps(timing_sps())), 0);
    ASSERT_EQ(sei(sei_nal({bp_payload(0), pt_payload(0, 4)}, {0, 1})), 0);
    bbio_handle_t reader = dec().dsb;
    parser_->parser_reset(parser_);
    EXPECT_EQ(dec().dsb, reader);
    EXPECT_EQ(dec().active_sps, nullptr);
    EXPECT_EQ(dec().sps[0].isDefined, 0);
    EXPECT_EQ(dec().sps[31].NalHrdBpPresentFlag, 1);
    EXPECT_EQ(parser_->bp_num, 0);
    EXPECT_EQ(avc_parser_get_time_scale(nullptr), 0);
    EXPECT_EQ(avc_parser_get_dpb_output_time(nullptr, 0), 0u);
    avc_parser_destroy(nullptr);
}

}  // namespace
