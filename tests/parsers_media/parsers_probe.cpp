// Feeds every SPS and SEI NAL unit of an Annex-B file (H.264 or H.265) to the
// splitter's parser and prints, one line per unit, the values it derived.
// compare_trace.py checks those lines against FFmpeg's trace_headers output
// for the same stream.
//
//   parsers_probe avc|hevc FILE
//
// Output lines (all fields name=value):
//   SPS id num_units_in_tick time_scale reorder nal_hrd vcl_hrd init_len
//       cpb_len dpb_len pic_struct_present frame_field_info
//   SEI ret bp pt [cpb_removal_delay dpb_output_delay out] [pic_struct]
//   SUMMARY sei_units timing_units
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "avc_sei_sps_parser.h"
#include "hevc_sei_sps_parser.h"
#include "sei_sps_parser.h"

namespace {

struct Nal {
    size_t start;  // first byte of the start code
    size_t size;   // start code + header + payload
    int32_t startcode_len;
};

// Units begin at 00 00 01 (or 00 00 00 01) and end where the next start code
// begins; trailing zero bytes stay with the unit (the SEI walk drops them).
std::vector<Nal> split_annexb(const std::vector<uint8_t>& d) {
    std::vector<Nal> units;
    size_t i = 0;
    auto find = [&](size_t from) -> size_t {
        for (size_t k = from; k + 2 < d.size(); ++k)
            if (d[k] == 0 && d[k + 1] == 0 && d[k + 2] == 1) return k;
        return d.size();
    };
    i = find(0);
    while (i < d.size()) {
        const size_t sc3 = i;
        const size_t start = (sc3 > 0 && d[sc3 - 1] == 0) ? sc3 - 1 : sc3;
        const size_t next = find(sc3 + 3);
        size_t end = next;
        if (next < d.size() && next > 0 && d[next - 1] == 0) end = next - 1;
        units.push_back({start, end - start, static_cast<int32_t>(sc3 + 3 - start)});
        i = next;
    }
    return units;
}

struct Probe {
    bool hevc;
    parser_handle_t parser;
};

void print_sps(const Probe& pr) {
    if (pr.hevc) {
        const auto* p = reinterpret_cast<const hevc_parser_t*>(pr.parser);
        const hevc_sps_t& s = p->dec.sps[p->dec.sps_id];
        std::printf(
            "SPS id=%u num_units_in_tick=%d time_scale=%d reorder=%d nal_hrd=%d vcl_hrd=%d "
            "init_len=%d cpb_len=%d dpb_len=%d frame_field_info=%d\n",
            p->dec.sps_id, s.vui.i_num_units, s.vui.i_time_scale,
            s.ai_num_reorder_pics[s.i_max_temporal_layers - 1], s.vui.b_nal_hrd_parameters,
            s.vui.b_vcl_hrd_parameters, s.vui.i_initial_cpb_removal_delay_length,
            s.vui.i_cpb_removal_delay_length, s.vui.i_dpb_output_delay_len,
            s.vui.b_frame_field_info);
    } else {
        const auto* p = reinterpret_cast<const avc_parser_t*>(pr.parser);
        const avc_sps_t& s = p->dec.sps[p->dec.sps_id];
        std::printf(
            "SPS id=%u num_units_in_tick=%u time_scale=%u reorder=%u nal_hrd=%u vcl_hrd=%u "
            "init_len=%u cpb_len=%u dpb_len=%u pic_struct_present=%u\n",
            p->dec.sps_id, s.num_units_in_tick, s.time_scale, s.num_reorder_frames,
            s.nal_hrd_parameters_present_flag, s.vcl_hrd_parameters_present_flag,
            s.initial_cpb_removal_delay_length_minus1 + 1u, s.cpb_removal_delay_length_minus1 + 1u,
            s.dpb_output_delay_length_minus1 + 1u, s.pic_struct_present_flag);
    }
}

void print_sei(const Probe& pr, int32_t ret, int32_t bp, int32_t pt) {
    std::printf("SEI ret=%d bp=%d pt=%d", ret, bp, pt);
    if (pt != 0) {
        uint32_t cpb = 0;
        uint32_t dpb = 0;
        int pic_struct = -1;
        if (pr.hevc) {
            const auto* p = reinterpret_cast<const hevc_parser_t*>(pr.parser);
            cpb = p->dec.cpb_removal_delay;
            dpb = p->dec.dpb_output_delay;
            if (p->dec.active_sps->vui.b_frame_field_info) pic_struct = p->dec.pic_struct;
        } else {
            const auto* p = reinterpret_cast<const avc_parser_t*>(pr.parser);
            cpb = p->dec.cpb_removal_delay;
            dpb = p->dec.dpb_output_delay;
            if (p->dec.active_sps->pic_struct_present_flag) pic_struct = p->dec.pic_struct;
        }
        std::printf(" cpb_removal_delay=%u dpb_output_delay=%u out=%" PRIu64
                    " time_scale=%d units=%d reorder=%d",
                    cpb, dpb, pr.parser->parser_get_dpb_output_time(pr.parser, 1),
                    pr.parser->parser_get_time_scale(pr.parser),
                    pr.parser->parser_get_num_units_in_tick(pr.parser),
                    pr.parser->parser_get_num_reorder_frames(pr.parser));
        if (pic_struct >= 0) std::printf(" pic_struct=%d", pic_struct);
    }
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 || (std::strcmp(argv[1], "avc") != 0 && std::strcmp(argv[1], "hevc") != 0)) {
        std::fprintf(stderr, "usage: parsers_probe avc|hevc FILE\n");
        return 2;
    }
    FILE* f = std::fopen(argv[2], "rb");
    if (f == nullptr) {
        std::perror(argv[2]);
        return 2;
    }
    std::vector<uint8_t> data;
    uint8_t chunk[65536];
    size_t got = 0;
    while ((got = std::fread(chunk, 1, sizeof chunk, f)) > 0) data.insert(data.end(), chunk, chunk + got);
    std::fclose(f);

    parser_env_init();
    Probe pr{std::strcmp(argv[1], "hevc") == 0, nullptr};
    pr.parser = pr.hevc ? hevc_parser_create(1, 1) : avc_parser_create(1, 1);
    if (pr.parser == nullptr) return 2;

    int sei_units = 0;
    int timing_units = 0;
    for (const Nal& n : split_annexb(data)) {
        uint8_t* nal = data.data() + n.start;
        const uint8_t hdr = nal[n.startcode_len];
        const int type = pr.hevc ? (hdr >> 1) & 0x3F : hdr & 0x1F;
        const auto size = static_cast<int32_t>(n.size);
        if (type == pr.parser->nal_type_sps || (!pr.hevc && type == 15)) {
            const int32_t ret = pr.parser->parse_sps(nal, size, n.startcode_len, pr.parser);
            if (ret != 0) {
                std::printf("SPS rejected\n");
                continue;
            }
            print_sps(pr);
        } else if (type == pr.parser->nal_type_sei) {
            const int32_t bp0 = pr.parser->parser_get_bp_num(pr.parser);
            const int32_t pt0 = pr.parser->parser_get_sei_timing_num(pr.parser);
            const int32_t ret = pr.parser->parse_sei_messages(nal, size, n.startcode_len, pr.parser);
            const int32_t pt = pr.parser->parser_get_sei_timing_num(pr.parser) - pt0;
            print_sei(pr, ret, pr.parser->parser_get_bp_num(pr.parser) - bp0, pt);
            ++sei_units;
            timing_units += pt;
        }
    }
    std::printf("SUMMARY sei_units=%d timing_units=%d\n", sei_units, timing_units);
    pr.parser->parser_destroy(pr.parser);
    return 0;
}
