// AVC and HEVC SPS/SEI parsing against golden vectors (data/vessplitter_parsers.txt):
// each command feeds one NAL unit, or asks for a DPB output time or a reset,
// and its result line holds the return value, the decoder's timing state, the
// fields of every SPS slot that changed, and the warnings and errors logged.
#include <map>
#include <sstream>

#include "avc_sei_sps_parser.h"
#include "hevc_sei_sps_parser.h"
#include "vessplit_test.h"

namespace {

using vestest::Bytes;

#define F(x) << " " #x "=" << +(s.x)

template <class T>
std::string list(const T* v, int n) {
    std::ostringstream o;
    for (int i = 0; i < n; ++i) o << (i ? "," : "") << +v[i];
    return o.str();
}

// Field lists one group per line.
// clang-format off
std::string dump(const avc_sps_t& s) {
    std::ostringstream o;
    o F(profile_idc) F(compatibility) F(level_idc) F(sps_id) F(chroma_format_idc)
      F(log2_max_frame_num_minus4) F(pic_order_cnt_type) F(max_num_ref_frames)
      F(frame_mbs_only_flag) F(frame_cropping_flag) F(frame_crop_bottom_offset)
      F(sar_width) F(sar_height) F(timing_info_present_flag) F(num_units_in_tick) F(time_scale)
      F(fixed_frame_rate_flag) F(nal_hrd_parameters_present_flag)
      F(vcl_hrd_parameters_present_flag) F(cpb_cnt_minus1)
      F(initial_cpb_removal_delay_length_minus1) F(cpb_removal_delay_length_minus1)
      F(dpb_output_delay_length_minus1) F(time_offset_length) F(low_delay_hrd_flag)
      F(pic_struct_present_flag) F(num_reorder_frames) F(max_dec_frame_buffering)
      F(pic_width_out) F(pic_height_out) F(max_frame_num) F(max_poc_lsb) F(pic_width)
      F(pic_height) F(bit_rate_rx) F(bit_rate_rbx) F(cpb_size) F(mb_mux_size) F(mb_dec_size)
      F(bit_rate_max) F(cpb_size_max) F(bit_rate_1200) F(cpb_size_1200) F(bit_rate_1st)
      F(cpb_size_1st) F(bit_rate_last) F(cpb_size_last) F(NalHrdBpPresentFlag)
      F(VclHrdBpPresentFlag) F(CpbDpbDelaysPresentFlag) F(UseSeiTiming) F(isDefined);
    return o.str();
}

std::string dump(const hevc_sps_t& s) {
    std::ostringstream o;
    o F(i_profile) F(i_level_idc) F(i_id) F(i_chroma_format_idc) F(i_max_temporal_layers)
      F(i_pic_luma_width) F(i_pic_luma_height) F(i_pic_conf_win_left_offset)
      F(i_pic_conf_win_bottom_offset) F(i_log2_max_pic_order_cnt_lsb)
      F(i_log2_max_transform_block_size) F(b_amp) F(b_sao) F(i_max_cu_depth) F(i_max_cu_width)
      F(i_max_pic_order_cnt_lsb) F(i_add_depth) F(i_num_short_term_ref_pic_sets)
      F(i_num_long_term_ref_pic_sets) F(b_init) F(NalHrdBpPresentFlag) F(VclHrdBpPresentFlag)
      F(CpbDpbDelaysPresentFlag) F(UseSeiTiming) F(isDefined)
      << " ptl=" << s.as_protile[0].i_level << "," << s.as_protile[2].i_level
      << " ptl_links=" << (s.as_protile[0].as_sublayer_ptl[5] == &s.as_protile[6])
      << " rps_links=" << (s.pps_rps_list == s.as_rps_list)
      << " amvp=" << list(s.ab_amvp, HEVC_MAX_CU_DEPTH)
      << " dpb=" << list(s.ai_max_dec_pic_buffering, 3)
      << " reorder=" << list(s.ai_num_reorder_pics, 3)
      << " latency=" << list(s.max_latency_increase, 3);
    for (const reference_picture_set_t& r : {s.as_rps_list[0], s.as_rps_list[1]})
        o << " rps=" << r.b_inter_rps_prediction << "/" << r.i_num_negativePictures << "/"
          << r.i_num_positivePictures << ":" << list(r.ai_delta_poc, r.i_num_pictures) << ":"
          << list(r.ai_ref_idc, r.i_num_ref_idc);
    const hevc_vui_t& v = s.vui;
    o << " vui=" << v.b_field_seq << "," << v.b_frame_field_info << "," << v.i_num_units << ","
      << v.i_time_scale << "," << v.b_nal_hrd_parameters << "," << v.b_vcl_hrd_parameters << ","
      << v.i_initial_cpb_removal_delay_length << "," << v.i_cpb_removal_delay_length << ","
      << v.i_dpb_output_delay_len << "," << v.as_hrd[0].i_cpb_cnt << ","
      << v.as_hrd[0].ai_bitrate_value[0][0] << "," << v.as_hrd[0].ai_cpb_size_value[0][0];
    return o.str();
}

std::string state(const avc_decoder_t& s) {
    std::ostringstream o;
    o F(sps_id_enh) F(initial_cpb_removal_delay_1st) F(initial_cpb_removal_delay_last)
      F(cpb_removal_delay) F(prev_au_cpb_removal_delay) F(dpb_output_delay)
      F(u64_dpb_output_time) F(pic_struct) F(delta_tfi_divisor)
      F(i64_removal_tm_of_first_pic_in_bp) F(i64_au_removal_tm) F(rbsp_size)
      << " enh=" << (s.active_sps_enh ? s.active_sps_enh - s.sps : -1)
      << " slot31_flags=" << +s.sps[31].NalHrdBpPresentFlag << +s.sps[31].CpbDpbDelaysPresentFlag;
    return o.str();
}

std::string state(const hevc_decoder_t& s) {
    std::ostringstream o;
    const hevc_sei_buffering_period_t& bp = s.bp;
    const hevc_sei_picture_timing_t& pt = s.pic_timing;
    o F(sps_id) F(initial_cpb_removal_delay_1st) F(last_gop_size) F(cpb_removal_delay)
      F(dpb_output_delay) F(u64_dpb_output_time) F(pic_struct) F(delta_to_divisor) F(rbsp_size)
      << " bp=" << bp.b_rap_cpb_params << "," << bp.b_concat << "," << bp.i_cpb_delay_offset
      << "," << bp.i_dpb_delay_offset << "," << bp.i_cpb_removal_delay_delta
      << " pt=" << pt.i_cpb_removal_delay << "," << pt.i_dpb_output_delay << ","
      << pt.i64_removal_tm_of_first_pic_in_bp << "," << pt.i64_removal_tm_of_prev_non_discardable_pic
      << "," << pt.i64_au_removal_tm;
    return o.str();
}
// clang-format on

const avc_sps_t* at(const avc_decoder_t& d, int i) { return &d.sps[i]; }
const hevc_sps_t* at(const hevc_decoder_t& d, int i) { return d.sps[i]; }
bool defined(const avc_sps_t* s) { return s->isDefined; }
bool defined(const hevc_sps_t* s) { return s != nullptr; }

template <class Parser>
std::string run(parser_handle_t p, const std::vector<std::string>& w, vestest::EdrCapture& log,
                std::map<int, std::string>& slots) {
    auto& dec = reinterpret_cast<Parser*>(p)->dec;
    std::ostringstream o;
    if (w[0] == "sps" || w[0] == "sei") {
        Bytes nal = w[1] == "null" ? Bytes{} : vestest::unhex(w[1]);
        const int32_t size = w.size() > 2 ? std::stoi(w[2]) : static_cast<int32_t>(nal.size());
        const int32_t sc = w.size() > 3 ? std::stoi(w[3]) : 4;
        uint8_t* data = w[1] == "null" ? nullptr : new uint8_t[nal.size()];
        if (data) std::copy(nal.begin(), nal.end(), data);
        o << "ret " << (w[0] == "sps" ? p->parse_sps : p->parse_sei_messages)(data, size, sc, p);
        delete[] data;
    } else if (w[0] == "dpb") {
        o << "dpb " << p->parser_get_dpb_output_time(p, static_cast<uint32_t>(std::stoi(w[1])));
    } else {
        p->parser_reset(p);
        o << "reset";
    }
    int active = -1;
    for (int i = 0; i < static_cast<int>(std::size(dec.sps)); ++i)
        if (dec.active_sps && at(dec, i) == dec.active_sps) active = i;
    o << " | active=" << active << state(dec) << " bp_num=" << p->bp_num
      << " timings=" << p->sei_timing_num << "/" << p->sei_timing_num_sub
      << " reorder=" << p->parser_get_num_reorder_frames(p)
      << " cts=" << p->parser_get_cts_offset_frames(p) << "/" << p->parser_get_cts_offset_ticks(p)
      << " clock=" << p->parser_get_num_units_in_tick(p) << "/" << p->parser_get_time_scale(p);
    for (int i = 0; i < static_cast<int>(std::size(dec.sps)); ++i) {
        const std::string now = defined(at(dec, i)) ? dump(*at(dec, i)) : "";
        if (now != slots[i]) o << " | sps" << i << (now.empty() ? " gone" : now);
        slots[i] = now;
    }
    return o.str() + " | " + log.take();
}

TEST(ParserVectors, AvcAndHevc) {
    parser_env_init();
    parser_handle_t p = nullptr;
    bool hevc = false;
    std::map<int, std::string> slots;
    vestest::EdrCapture log(1);
    vestest::check_vectors("vessplitter_parsers.txt", [&](const std::vector<std::string>& w) {
        if (w[0] == "avc" || w[0] == "hevc") {
            if (p) p->parser_destroy(p);
            hevc = w[0] == "hevc";
            const auto flag = [&](size_t i) { return static_cast<uint8_t>(std::stoi(w[i])); };
            p = (hevc ? hevc_parser_create : avc_parser_create)(flag(1), flag(2));
            slots.clear();
            return std::string();
        }
        return hevc ? run<hevc_parser_t>(p, w, log, slots) : run<avc_parser_t>(p, w, log, slots);
    });
    if (p) p->parser_destroy(p);
    // Getters of a NULL handle.
    EXPECT_EQ(avc_parser_get_time_scale(nullptr) + hevc_parser_get_time_scale(nullptr) +
                  hevc_parser_get_cts_offset_frames(nullptr),
              0);
    EXPECT_EQ(
        avc_parser_get_dpb_output_time(nullptr, 0) + hevc_parser_get_dpb_output_time(nullptr, 1),
        0u);
    avc_parser_destroy(nullptr);
    hevc_parser_destroy(nullptr);
}

}  // namespace
