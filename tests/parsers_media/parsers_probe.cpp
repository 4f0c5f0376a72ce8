// Feeds every SPS and SEI NAL unit of an Annex-B file (H.264 or H.265) to the
// splitter's parser and prints one line of name=value fields per unit:
//   SPS num_units_in_tick time_scale reorder nal_hrd vcl_hrd init_len cpb_len
//       dpb_len pic_struct_present|frame_field_info   (or "SPS rejected")
//   SEI ret bp pt [cpb_removal_delay dpb_output_delay out units reorder [pic_struct]]
//
//   parsers_probe avc|hevc FILE
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "avc_sei_sps_parser.h"
#include "hevc_sei_sps_parser.h"

namespace {

const avc_decoder_t& avc(parser_handle_t p) { return reinterpret_cast<avc_parser_t*>(p)->dec; }
const hevc_decoder_t& hevc(parser_handle_t p) { return reinterpret_cast<hevc_parser_t*>(p)->dec; }

// The SPS the parser has just stored.
void print_sps(parser_handle_t p, bool is_hevc) {
    if (is_hevc) {
        const hevc_sps_t& s = *hevc(p).sps[hevc(p).sps_id];
        std::printf(
            "SPS num_units_in_tick=%d time_scale=%d reorder=%d nal_hrd=%d vcl_hrd=%d "
            "init_len=%d cpb_len=%d dpb_len=%d frame_field_info=%d\n",
            s.vui.i_num_units, s.vui.i_time_scale,
            s.ai_num_reorder_pics[s.i_max_temporal_layers - 1], s.vui.b_nal_hrd_parameters,
            s.vui.b_vcl_hrd_parameters, s.vui.i_initial_cpb_removal_delay_length,
            s.vui.i_cpb_removal_delay_length, s.vui.i_dpb_output_delay_len,
            s.vui.b_frame_field_info);
        return;
    }
    const avc_sps_t& s = avc(p).sps[avc(p).sps_id];
    std::printf(
        "SPS num_units_in_tick=%u time_scale=%u reorder=%u nal_hrd=%u vcl_hrd=%u "
        "init_len=%u cpb_len=%u dpb_len=%u pic_struct_present=%u\n",
        s.num_units_in_tick, s.time_scale, s.num_reorder_frames, s.nal_hrd_parameters_present_flag,
        s.vcl_hrd_parameters_present_flag, s.initial_cpb_removal_delay_length_minus1 + 1u,
        s.cpb_removal_delay_length_minus1 + 1u, s.dpb_output_delay_length_minus1 + 1u,
        s.pic_struct_present_flag);
}

// The picture timing the parser has just taken in.
template <class Decoder>
void print_timing(parser_handle_t p, const Decoder& dec, bool has_pic_struct) {
    std::printf(" cpb_removal_delay=%u dpb_output_delay=%u out=%" PRIu64 " units=%d reorder=%d",
                static_cast<unsigned>(dec.cpb_removal_delay),
                static_cast<unsigned>(dec.dpb_output_delay), p->parser_get_dpb_output_time(p, 1),
                p->parser_get_num_units_in_tick(p), p->parser_get_num_reorder_frames(p));
    if (has_pic_struct) std::printf(" pic_struct=%d", static_cast<int>(dec.pic_struct));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    std::ifstream in(argv[2], std::ios::binary);
    std::vector<uint8_t> d(std::istreambuf_iterator<char>(in), {});
    parser_env_init();
    const bool is_hevc = std::strcmp(argv[1], "hevc") == 0;
    parser_handle_t p = is_hevc ? hevc_parser_create(1, 1) : avc_parser_create(1, 1);
    if (!in || p == nullptr) return 2;
    // A unit runs from its start code (with a leading zero byte, if any) to the
    // next one; its trailing zero bytes stay with it (the SEI walk drops them).
    const uint8_t start_code[] = {0, 0, 1};
    auto next = std::search(d.begin(), d.end(), start_code, start_code + 3);
    while (next != d.end()) {
        const auto from = next != d.begin() && next[-1] == 0 ? next - 1 : next;
        const uint8_t* hdr = &next[3];
        next = std::search(next + 3, d.end(), start_code, start_code + 3);
        const auto to = next != d.end() && next[-1] == 0 ? next - 1 : next;
        const int type = is_hevc ? (*hdr >> 1) & 0x3F : *hdr & 0x1F;
        uint8_t* nal = &*from;
        const auto size = static_cast<int32_t>(to - from);
        const auto startcode_len = static_cast<int32_t>(hdr - nal);
        if (type == p->nal_type_sps || (!is_hevc && type == 15)) {
            if (p->parse_sps(nal, size, startcode_len, p) != 0)
                std::printf("SPS rejected\n");
            else
                print_sps(p, is_hevc);
        } else if (type == p->nal_type_sei) {
            const int32_t bp0 = p->parser_get_bp_num(p);
            const int32_t pt0 = p->parser_get_sei_timing_num(p);
            const int32_t ret = p->parse_sei_messages(nal, size, startcode_len, p);
            const int32_t pt = p->parser_get_sei_timing_num(p) - pt0;
            std::printf("SEI ret=%d bp=%d pt=%d", ret, p->parser_get_bp_num(p) - bp0, pt);
            if (pt != 0 && is_hevc)
                print_timing(p, hevc(p), hevc(p).active_sps->vui.b_frame_field_info);
            else if (pt != 0)
                print_timing(p, avc(p), avc(p).active_sps->pic_struct_present_flag);
            std::printf("\n");
        }
    }
    p->parser_destroy(p);
    return 0;
}
