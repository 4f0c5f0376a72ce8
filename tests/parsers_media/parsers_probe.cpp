// Feeds every SPS and SEI NAL unit of an Annex-B file (H.264 or H.265) to the
// splitter's parser and prints one line of name=value fields per unit:
//   SPS num_units_in_tick time_scale reorder nal_hrd vcl_hrd init_len cpb_len
//       dpb_len pic_struct_present|frame_field_info   (or "SPS rejected")
//   SEI ret bp pt [cpb_removal_delay dpb_output_delay out units reorder [pic_struct]]
//
//   parsers_probe avc|hevc FILE
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <vector>

#include "avc_sei_sps_parser.h"
#include "hevc_sei_sps_parser.h"
#include "sei_sps_parser.h"

namespace {

// Start of the next 00 00 01 at or after `from`, or the end.
size_t next_start_code(const std::vector<uint8_t>& d, size_t from) {
    for (size_t k = from; k + 2 < d.size(); ++k)
        if (d[k] == 0 && d[k + 1] == 0 && d[k + 2] == 1) return k;
    return d.size();
}

void print_sps(parser_handle_t parser, bool hevc) {
    if (hevc) {
        const hevc_decoder_t& dec = reinterpret_cast<const hevc_parser_t*>(parser)->dec;
        if (dec.sps[dec.sps_id] == nullptr) return;
        const hevc_sps_t& s = *dec.sps[dec.sps_id];
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
    const avc_decoder_t& dec = reinterpret_cast<const avc_parser_t*>(parser)->dec;
    const avc_sps_t& s = dec.sps[dec.sps_id];
    std::printf(
        "SPS num_units_in_tick=%u time_scale=%u reorder=%u nal_hrd=%u vcl_hrd=%u "
        "init_len=%u cpb_len=%u dpb_len=%u pic_struct_present=%u\n",
        s.num_units_in_tick, s.time_scale, s.num_reorder_frames, s.nal_hrd_parameters_present_flag,
        s.vcl_hrd_parameters_present_flag, s.initial_cpb_removal_delay_length_minus1 + 1u,
        s.cpb_removal_delay_length_minus1 + 1u, s.dpb_output_delay_length_minus1 + 1u,
        s.pic_struct_present_flag);
}

void print_timing(parser_handle_t parser, bool hevc) {
    uint32_t cpb = 0;
    uint32_t dpb = 0;
    int pic_struct = -1;
    if (hevc) {
        const hevc_decoder_t& dec = reinterpret_cast<const hevc_parser_t*>(parser)->dec;
        cpb = dec.cpb_removal_delay;
        dpb = dec.dpb_output_delay;
        if (dec.active_sps->vui.b_frame_field_info) pic_struct = dec.pic_struct;
    } else {
        const avc_decoder_t& dec = reinterpret_cast<const avc_parser_t*>(parser)->dec;
        cpb = dec.cpb_removal_delay;
        dpb = dec.dpb_output_delay;
        if (dec.active_sps->pic_struct_present_flag) pic_struct = dec.pic_struct;
    }
    std::printf(" cpb_removal_delay=%u dpb_output_delay=%u out=%" PRIu64 " units=%d reorder=%d",
                cpb, dpb, parser->parser_get_dpb_output_time(parser, 1),
                parser->parser_get_num_units_in_tick(parser),
                parser->parser_get_num_reorder_frames(parser));
    if (pic_struct >= 0) std::printf(" pic_struct=%d", pic_struct);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 || (std::strcmp(argv[1], "avc") != 0 && std::strcmp(argv[1], "hevc") != 0)) {
        std::fprintf(stderr, "usage: parsers_probe avc|hevc FILE\n");
        return 2;
    }
    FILE* f = std::fopen(argv[2], "rb");
    if (f == nullptr) return 2;
    std::vector<uint8_t> d;
    for (int c = std::fgetc(f); c != EOF; c = std::fgetc(f)) d.push_back(static_cast<uint8_t>(c));
    std::fclose(f);

    parser_env_init();
    const bool hevc = std::strcmp(argv[1], "hevc") == 0;
    parser_handle_t p = hevc ? hevc_parser_create(1, 1) : avc_parser_create(1, 1);
    if (p == nullptr) return 2;
    // A unit runs from its start code (with a leading zero byte, if any) to the
    // next one; its trailing zero bytes stay with it (the SEI walk drops them).
    for (size_t sc = next_start_code(d, 0); sc < d.size();) {
        const size_t start = sc > 0 && d[sc - 1] == 0 ? sc - 1 : sc;
        const size_t next = next_start_code(d, sc + 3);
        const size_t end = next < d.size() && d[next - 1] == 0 ? next - 1 : next;
        const auto startcode_len = static_cast<int32_t>(sc + 3 - start);
        const auto size = static_cast<int32_t>(end - start);
        uint8_t* nal = d.data() + start;
        const uint8_t hdr = nal[startcode_len];
        const int type = hevc ? (hdr >> 1) & 0x3F : hdr & 0x1F;
        sc = next;
        if (type == p->nal_type_sps || (!hevc && type == 15)) {
            if (p->parse_sps(nal, size, startcode_len, p) != 0)
                std::printf("SPS rejected\n");
            else
                print_sps(p, hevc);
        } else if (type == p->nal_type_sei) {
            const int32_t bp0 = p->parser_get_bp_num(p);
            const int32_t pt0 = p->parser_get_sei_timing_num(p);
            const int32_t ret = p->parse_sei_messages(nal, size, startcode_len, p);
            const int32_t pt = p->parser_get_sei_timing_num(p) - pt0;
            std::printf("SEI ret=%d bp=%d pt=%d", ret, p->parser_get_bp_num(p) - bp0, pt);
            if (pt != 0) print_timing(p, hevc);
            std::printf("\n");
        }
    }
    p->parser_destroy(p);
    return 0;
}
