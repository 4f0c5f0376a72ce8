// AVC parser: sequence parameter sets (H.264 7.3.2.1.1 with VUI E.1.1 and
// HRD E.1.2, and the seq_parameter_set_data() head of a subset SPS) into one
// record per seq_parameter_set_id, checked against the level and profile
// tables of Annex A; buffering-period and picture-timing SEI (D.1.2, D.1.3)
// into a running CPB removal time and a DPB output time per picture.
//
// Input: one NAL unit from its start code, payload limited to the first 1024
// bytes. Every element that sizes a loop is range-checked where it is read;
// a read past the RBSP yields 0 bits (the bit reader's rule), never memory
// outside rbsp_bytes.
#include "avc_sei_sps_parser.h"

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "codec_util_nal_types.h"
#include "edr_debug.h"
#include "parser_common.h"

static_assert(std::is_standard_layout_v<avc_parser_t>);
static_assert(offsetof(avc_parser_t, base) == 0);

namespace {

using vesparser::end_process;

// Annex A Table A-1 MaxBR (1000 bit/s) and MaxCPB (1000 bits) by level_idc,
// and the cpbBrNalFactor of the accepted profiles (A.3.1, A.3.3, G/H). They
// are process-wide and rebuilt by every init.
uint32_t MaxBRTbl[52];
uint32_t MaxCPBTbl[52];
uint16_t cpbBrNalfactorTbl[245];

struct LevelLimit {
    uint8_t level_idc;
    uint32_t max_br;
    uint32_t max_cpb;
};
constexpr LevelLimit kLevels[] = {
    {10, 64, 175},      {11, 192, 500},       {12, 384, 1000},      {13, 768, 2000},
    {20, 2000, 2000},   {21, 4000, 4000},     {22, 4000, 4000},     {30, 10000, 10000},
    {31, 14000, 14000}, {32, 20000, 20000},   {40, 20000, 25000},   {41, 50000, 62500},
    {42, 50000, 62500}, {50, 135000, 135000}, {51, 240000, 240000},
};
struct ProfileFactor {
    uint8_t profile_idc;
    uint16_t factor;
};
constexpr ProfileFactor kProfiles[] = {
    {66, 1200},  {77, 1200},  {88, 1200},  {100, 1500}, {110, 3600}, {44, 4800},
    {118, 1500}, {122, 4800}, {128, 1500}, {134, 1500}, {244, 4800},
};

// H.264 Table E-1, index aspect_ratio_idc 0 to 16.
constexpr uint16_t aspect_ratio_tbl[17][2] = {
    {0, 0},   {1, 1},   {12, 11}, {10, 11}, {16, 11},  {40, 33}, {24, 11}, {20, 11}, {32, 11},
    {80, 33}, {18, 11}, {15, 11}, {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1},
};

constexpr uint8_t kConstraintSet3 = 0x10;
constexpr uint32_t kMaxCpbCntMinus1 = 31;  // H.264 E.2.2
constexpr uint32_t kMaxPocCycle = 255;     // H.264 7.4.2.1.1

avc_parser_t* avc(parser_handle_t p) { return reinterpret_cast<avc_parser_t*>(p); }

uint8_t u8(uint32_t v) { return static_cast<uint8_t>(v); }

uint32_t pow2_or_0(uint32_t exponent_minus4) {
    const uint64_t e = static_cast<uint64_t>(exponent_minus4) + 4;
    return e >= 32 ? 0u : (1u << e);
}

uint32_t depth_ms(uint32_t cpb_size, uint32_t bit_rate) {
    return bit_rate == 0 ? 0u
                         : static_cast<uint32_t>(static_cast<uint64_t>(cpb_size) * 1000 / bit_rate);
}

void fill_tables() {
    std::memset(MaxBRTbl, 0, sizeof MaxBRTbl);
    std::memset(MaxCPBTbl, 0, sizeof MaxCPBTbl);
    std::memset(cpbBrNalfactorTbl, 0, sizeof cpbBrNalfactorTbl);
    for (const LevelLimit& l : kLevels) {
        MaxBRTbl[l.level_idc] = l.max_br;
        MaxCPBTbl[l.level_idc] = l.max_cpb;
    }
    for (const ProfileFactor& p : kProfiles) cpbBrNalfactorTbl[p.profile_idc] = p.factor;
}

// Filled once for the process: parsers are created on any thread and read
// the tables while others are being created. pthread_once rather than a
// guarded static, which would tie the library to the C++ runtime.
void build_tables() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    (void)pthread_once(&once, fill_tables);
}

// H.264 7.3.2.1.1.1; the lists are not kept.
void skip_scaling_list(bbio_handle_t bs, int size) {
    int64_t last_scale = 8;
    int64_t next_scale = 8;
    for (int j = 0; j < size; ++j) {
        if (next_scale != 0) {
            const int64_t delta_scale = read_se(bs);
            next_scale = ((last_scale + delta_scale) % 256 + 256) % 256;
        }
        if (next_scale != 0) last_scale = next_scale;
    }
}

// Level limits for the HRD check and the T-STD defaults (Annex A, 2.14.3 of
// ISO/IEC 13818-1 for the 1200 factor). MVC High and MFC High (128, 134) are
// supported at levels 4.0 and 4.1 only.
void avc_derive_default_hrd_param(avc_sps_t* sps) {
    const uint32_t f = cpbBrNalfactorTbl[sps->profile_idc];
    const uint8_t level = sps->level_idc;
    if (level == 11 && (sps->compatibility & kConstraintSet3) != 0) {
        // Level 1b
        sps->bit_rate_max = sps->bit_rate_1200 = 128 * f;
        sps->cpb_size_max = sps->cpb_size_1200 = 350 * f;
    } else {
        sps->bit_rate_max = MaxBRTbl[level] * f;
        sps->cpb_size_max = MaxCPBTbl[level] * f;
        if (sps->profile_idc == 128 || sps->profile_idc == 134) {
            if (level == 40) {
                sps->bit_rate_max = 1200 * MaxBRTbl[40];
            } else if (level == 41) {
                sps->bit_rate_max = 800 * MaxBRTbl[41];
            } else {
                EDR_LOG(kEdrError,
                        "%s:%d ERROR: MVHD and DB3d profile but leve is not right\n");  // required
                                                                                        // as is
                end_process(1);
            }
        }
        sps->bit_rate_1200 = 1200 * MaxBRTbl[level];
        sps->cpb_size_1200 = 1200 * MaxCPBTbl[level];
    }
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    Limit for HRD\n\n");
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:      bit_rate:  %ukbps\n\n", sps->bit_rate_max / 1000);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:      cpb_size:  %ukbits\n\n", sps->cpb_size_max / 1000);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:      cpb depth: %llums\n\n",
            static_cast<unsigned long long>(depth_ms(sps->cpb_size_max, sps->bit_rate_max)));
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    Default for T-Std with 1200 factor\n\n");
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:      bit_rate:  %ukbps\n\n", sps->bit_rate_1200 / 1000);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:      cpb_size:  %ukbits\n\n", sps->cpb_size_1200 / 1000);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:      cpb depth: %llums\n\n",
            static_cast<unsigned long long>(depth_ms(sps->cpb_size_1200, sps->bit_rate_1200)));
}

// H.264 E.1.2. The record keeps one HRD: a call stores only while exactly one
// of the two present flags is set, so the NAL HRD wins over the VCL HRD.
// cpb_cnt_minus1 above 31 is out of range and makes the SPS be rejected
// before the CPB loop runs (false).
[[nodiscard]] bool avc_parse_hrd_parameters(bbio_handle_t bs, avc_sps_t* sps) {
    const bool store =
        (sps->nal_hrd_parameters_present_flag != 0) != (sps->vcl_hrd_parameters_present_flag != 0);
    const uint32_t cpb_cnt_minus1 = read_ue(bs);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:        cpb_cnt_minus1: %u\n\n", cpb_cnt_minus1);
    if (cpb_cnt_minus1 > kMaxCpbCntMinus1) {
        EDR_LOG(kEdrError, "%s:%d ERROR: avc cpb_cnt_minus1 %u out of range\n\n", cpb_cnt_minus1);
        return false;
    }
    if (store) sps->cpb_cnt_minus1 = cpb_cnt_minus1;
    const uint32_t bit_rate_scale = src_read_bits(bs, 4);
    const uint32_t cpb_size_scale = src_read_bits(bs, 4);
    for (uint32_t i = 0; i <= cpb_cnt_minus1; ++i) {
        const uint64_t bit_rate_value_minus1 = read_ue(bs);
        const auto bit_rate =
            static_cast<uint32_t>((bit_rate_value_minus1 + 1) << (6 + bit_rate_scale));
        const uint64_t cpb_size_value_minus1 = read_ue(bs);
        const auto cpb_size =
            static_cast<uint32_t>((cpb_size_value_minus1 + 1) << (4 + cpb_size_scale));
        const uint32_t cbr_flag = src_read_bit(bs);
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:        [%u] bit_rate %ukbps, cpb_size %ukbits, cbr %u\n\n",
                i, bit_rate / 1000, cpb_size / 1000, cbr_flag);
        if (!store) continue;
        if (i == 0) {
            sps->bit_rate_1st = bit_rate;
            sps->cpb_size_1st = cpb_size;
        }
        if (i == cpb_cnt_minus1) {
            sps->bit_rate_last = bit_rate;
            sps->cpb_size_last = cpb_size;
        }
    }
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:          cpb_size_depth(last) in ms %llu\n\n",
            static_cast<unsigned long long>(depth_ms(sps->cpb_size_last, sps->bit_rate_last)));
    const uint32_t initial_cpb_removal_delay_length_minus1 = src_read_bits(bs, 5);
    const uint32_t cpb_removal_delay_length_minus1 = src_read_bits(bs, 5);
    const uint32_t dpb_output_delay_length_minus1 = src_read_bits(bs, 5);
    const uint32_t time_offset_length = src_read_bits(bs, 5);
    EDR_LOG(kEdrDebug,
            "%s:%d DEBUG:        delay lengths minus1: %u %u %u, time_offset_length %u\n\n",
            initial_cpb_removal_delay_length_minus1, cpb_removal_delay_length_minus1,
            dpb_output_delay_length_minus1, time_offset_length);
    if (store) {
        sps->initial_cpb_removal_delay_length_minus1 = u8(initial_cpb_removal_delay_length_minus1);
        sps->cpb_removal_delay_length_minus1 = u8(cpb_removal_delay_length_minus1);
        sps->dpb_output_delay_length_minus1 = u8(dpb_output_delay_length_minus1);
        sps->time_offset_length = u8(time_offset_length);
    }
    return true;
}

// H.264 E.1.1; keeps the aspect ratio, timing, HRD, pic_struct and reorder
// elements, the rest is read and printed.
[[nodiscard]] bool avc_parse_vui_parameters(bbio_handle_t bs, avc_sps_t* sps) {
    if (src_read_bit(bs)) {  // aspect_ratio_info_present_flag
        const uint32_t aspect_ratio_idc = src_read_bits(bs, 8);
        if (aspect_ratio_idc == 255) {  // Extended_SAR
            sps->sar_width = static_cast<uint16_t>(src_read_bits(bs, 16));
            sps->sar_height = static_cast<uint16_t>(src_read_bits(bs, 16));
        } else if (aspect_ratio_idc <= 16) {
            sps->sar_width = aspect_ratio_tbl[aspect_ratio_idc][0];
            sps->sar_height = aspect_ratio_tbl[aspect_ratio_idc][1];
        }
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:      aspect_ratio_idc %u, sar %u:%u\n\n", aspect_ratio_idc,
                sps->sar_width, sps->sar_height);
    }
    if (src_read_bit(bs)) {  // overscan_info_present_flag
        const uint32_t overscan_appropriate_flag = src_read_bit(bs);
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:      overscan_appropriate_flag %u\n\n",
                overscan_appropriate_flag);
    }
    if (src_read_bit(bs)) {  // video_signal_type_present_flag
        const uint32_t video_format = src_read_bits(bs, 3);
        const uint32_t video_full_range_flag = src_read_bit(bs);
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:      video_format %u, video_full_range_flag %u\n\n",
                video_format, video_full_range_flag);
        if (src_read_bit(bs)) {  // colour_description_present_flag
            const uint32_t colour_primaries = src_read_bits(bs, 8);
            const uint32_t transfer_characteristics = src_read_bits(bs, 8);
            const uint32_t matrix_coefficients = src_read_bits(bs, 8);
            EDR_LOG(kEdrDebug, "%s:%d DEBUG:      colour %u/%u/%u\n\n", colour_primaries,
                    transfer_characteristics, matrix_coefficients);
        }
    }
    if (src_read_bit(bs)) {  // chroma_loc_info_present_flag
        const uint32_t top = read_ue(bs);
        const uint32_t bottom = read_ue(bs);
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:      chroma_sample_loc %u/%u\n\n", top, bottom);
    }
    sps->timing_info_present_flag = u8(src_read_bit(bs));
    if (sps->timing_info_present_flag) {
        sps->num_units_in_tick = src_read_bits(bs, 32);
        sps->time_scale = src_read_bits(bs, 32);
        sps->fixed_frame_rate_flag = static_cast<BOOL>(src_read_bit(bs));
        if (sps->num_units_in_tick == 0 || sps->time_scale == 0) sps->timing_info_present_flag = 0;
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:      num_units_in_tick %u, time_scale %u, fixed %d\n\n",
                sps->num_units_in_tick, sps->time_scale, sps->fixed_frame_rate_flag);
    }
    sps->nal_hrd_parameters_present_flag = u8(src_read_bit(bs));
    if (sps->nal_hrd_parameters_present_flag && !avc_parse_hrd_parameters(bs, sps)) return false;
    sps->vcl_hrd_parameters_present_flag = u8(src_read_bit(bs));
    if (sps->vcl_hrd_parameters_present_flag && !avc_parse_hrd_parameters(bs, sps)) return false;
    if (sps->nal_hrd_parameters_present_flag || sps->vcl_hrd_parameters_present_flag)
        sps->low_delay_hrd_flag = u8(src_read_bit(bs));
    sps->pic_struct_present_flag = u8(src_read_bit(bs));
    sps->bitstream_restriction_flag = u8(src_read_bit(bs));
    if (sps->bitstream_restriction_flag) {
        (void)src_read_bit(bs);  // motion_vectors_over_pic_boundaries_flag
        (void)read_ue(bs);       // max_bytes_per_pic_denom
        (void)read_ue(bs);       // max_bits_per_mb_denom
        (void)read_ue(bs);       // log2_max_mv_length_horizontal
        (void)read_ue(bs);       // log2_max_mv_length_vertical
        sps->num_reorder_frames = u8(read_ue(bs));
        sps->max_dec_frame_buffering = u8(read_ue(bs));
    }
    EDR_LOG(kEdrDebug,
            "%s:%d DEBUG:      nal_hrd %u, vcl_hrd %u, pic_struct_present %u, num_reorder_frames "
            "%u\n\n",
            sps->nal_hrd_parameters_present_flag, sps->vcl_hrd_parameters_present_flag,
            sps->pic_struct_present_flag, sps->num_reorder_frames);
    return true;
}

[[nodiscard]] bool avc_get_vui_params(bbio_handle_t bs, avc_sps_t* sps) {
    sps->sar_width = 0;
    sps->sar_height = 0;
    sps->timing_info_present_flag = 0;
    sps->nal_hrd_parameters_present_flag = 0;
    sps->vcl_hrd_parameters_present_flag = 0;
    sps->low_delay_hrd_flag = 0;
    sps->pic_struct_present_flag = 0;
    sps->bitstream_restriction_flag = 0;
    const uint32_t vui_parameters_present_flag = src_read_bit(bs);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    vui_parameters_present_flag: %u\n\n",
            vui_parameters_present_flag);
    return vui_parameters_present_flag == 0 || avc_parse_vui_parameters(bs, sps);
}

// The HRD-derived flags and T-STD figures, whether or not VUI was present.
void derive_hrd_state(avc_sps_t* sps) {
    const bool nal = sps->nal_hrd_parameters_present_flag != 0;
    const bool vcl = sps->vcl_hrd_parameters_present_flag != 0;
    if (nal) sps->NalHrdBpPresentFlag = sps->CpbDpbDelaysPresentFlag = 1;
    if (vcl) sps->VclHrdBpPresentFlag = sps->CpbDpbDelaysPresentFlag = 1;
    sps->bit_rate_rbx = sps->bit_rate_1200;
    sps->mb_mux_size = (sps->bit_rate_1200 > 2000000u ? sps->bit_rate_1200 : 2000000u) / 250;
    if ((nal || vcl) && sps->bit_rate_last >= 100000 && sps->cpb_size_last >= 100000) {
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:      Use HRD for T-Std\n\n");
        sps->cpb_size = sps->cpb_size_last;
        sps->mb_dec_size = sps->cpb_size_max - sps->cpb_size_last;
        sps->bit_rate_rx = sps->bit_rate_last * 12 / 10;
    } else {
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:      Use default for T-Std\n\n");
        sps->cpb_size = sps->cpb_size_max;
        sps->mb_dec_size = 0;
        sps->bit_rate_rx = sps->bit_rate_max * 12 / 10;
    }
    if (!nal && !vcl) {
        sps->cpb_cnt_minus1 = 0;
        sps->initial_cpb_removal_delay_length_minus1 = 23;
        sps->cpb_removal_delay_length_minus1 = 23;
        sps->dpb_output_delay_length_minus1 = 23;
        sps->time_offset_length = 24;
    }
    if (!sps->bitstream_restriction_flag) {
        sps->num_reorder_frames = 16;
        sps->max_dec_frame_buffering = 16;
    }
}

bool has_chroma_info(uint8_t profile_idc) {
    switch (profile_idc) {
        case 100:
        case 110:
        case 122:
        case 244:
        case 44:
        case 83:
        case 86:
        case 118:
        case 128:
        case 134:
            return true;
        default:
            return false;
    }
}

// H.264 7.3.2.1.1 from profile_idc on. Returns 0 or 1 (rejected). The slot is
// not cleared first; a rejection after the id leaves it partly written with
// isDefined unchanged.
int32_t avc_parse_sequence_parameter_set(avc_parser_t* p) {
    avc_decoder_t& dec = p->dec;
    bbio_handle_t bs = dec.dsb;

    const auto profile_idc = u8(src_read_bits(bs, 8));
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    profile_idc: %u\n\n", profile_idc);
    if (profile_idc > 244 || cpbBrNalfactorTbl[profile_idc] == 0) {
        EDR_LOG(kEdrError, "%s:%d ERROR: can handle the profile\n\n");  // required as is
        return 1;
    }
    const auto compatibility = u8(src_read_bits(bs, 8));
    const auto level_idc = u8(src_read_bits(bs, 8));
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    constraint flags: %02x\n\n", compatibility);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    level_idc: %u\n\n", level_idc);
    if (level_idc > 51 || MaxBRTbl[level_idc] == 0) {
        EDR_LOG(kEdrError, "%s:%d ERROR: avc can handle the level\n\n");  // required as is
        return 1;
    }
    uint32_t id = read_ue(bs);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    seq_parameter_set_id: %u\n\n", id);
    if (id >= AVC_MAX_SPS) {
        EDR_LOG(kEdrError, "%s:%d ERROR: seq_parameter_set_id in sps wrong\n\n");
        if (dec.sps[0].isDefined) return 1;
        EDR_LOG(kEdrError, "%s:%d ERROR: Assume seq_parameter_set_id = 0\n\n");
        id = 0;
    }
    dec.sps_id = u8(id);
    avc_sps_t* sps = &dec.sps[id];
    sps->profile_idc = profile_idc;
    sps->compatibility = compatibility;
    sps->level_idc = level_idc;
    sps->sps_id = u8(id);

    avc_derive_default_hrd_param(sps);

    sps->chroma_format_idc = 1;
    sps->separate_colour_plane_flag = 0;
    sps->bit_depth_luma_minus8 = 0;
    sps->bit_depth_chroma_minus8 = 0;
    sps->qpprime_y_zero_transform_bypass_flag = 0;
    sps->seq_scaling_matrix_present_flag = 0;
    if (has_chroma_info(profile_idc)) {
        sps->chroma_format_idc = read_ue(bs);
        if (sps->chroma_format_idc == 3) sps->separate_colour_plane_flag = u8(src_read_bit(bs));
        sps->bit_depth_luma_minus8 = read_ue(bs);
        sps->bit_depth_chroma_minus8 = read_ue(bs);
        sps->qpprime_y_zero_transform_bypass_flag = u8(src_read_bit(bs));
        sps->seq_scaling_matrix_present_flag = u8(src_read_bit(bs));
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:    chroma_format_idc: %u\n\n", sps->chroma_format_idc);
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:    bit_depth_luma_minus8: %u\n\n",
                sps->bit_depth_luma_minus8);
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:    bit_depth_chroma_minus8: %u\n\n",
                sps->bit_depth_chroma_minus8);
        if (sps->seq_scaling_matrix_present_flag) {
            const int lists = sps->chroma_format_idc == 3 ? 12 : 8;
            for (int i = 0; i < lists; ++i) {
                if (src_read_bit(bs)) skip_scaling_list(bs, i < 6 ? 16 : 64);
            }
        }
    }

    sps->log2_max_frame_num_minus4 = read_ue(bs);
    sps->pic_order_cnt_type = read_ue(bs);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    log2_max_frame_num_minus4: %u\n\n",
            sps->log2_max_frame_num_minus4);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    pic_order_cnt_type: %u\n\n", sps->pic_order_cnt_type);
    if (sps->pic_order_cnt_type == 0) {
        sps->log2_max_pic_order_cnt_lsb_minus4 = read_ue(bs);
        sps->max_poc_lsb = pow2_or_0(sps->log2_max_pic_order_cnt_lsb_minus4);
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:    log2_max_pic_order_cnt_lsb_minus4: %u\n\n",
                sps->log2_max_pic_order_cnt_lsb_minus4);
    } else if (sps->pic_order_cnt_type == 1) {
        sps->delta_pic_order_always_zero_flag = u8(src_read_bit(bs));
        sps->offset_for_non_ref_pic = read_se(bs);
        sps->offset_for_top_to_bottom_field = read_se(bs);
        const uint32_t cycle = read_ue(bs);
        if (cycle > kMaxPocCycle) {
            EDR_LOG(kEdrError,
                    "%s:%d ERROR: avc num_ref_frames_in_pic_order_cnt_cycle %u out of range\n\n",
                    cycle);
            return 1;
        }
        sps->num_ref_frames_in_pic_order_cnt_cycle = u8(cycle);
        uint32_t sum = 0;  // wraps like the 32-bit field it ends in
        for (uint32_t i = 0; i < cycle; ++i) {
            const int32_t offset = read_se(bs);
            sps->offset_for_ref_frame[i] = static_cast<int16_t>(offset);
            sum += static_cast<uint32_t>(offset);
        }
        sps->expected_delta_per_poc_cycle = static_cast<int32_t>(sum);
    }
    sps->max_frame_num = pow2_or_0(sps->log2_max_frame_num_minus4);

    sps->max_num_ref_frames = u8(read_ue(bs));
    sps->gaps_in_frame_num_value_allowed_flag = u8(src_read_bit(bs));
    const uint32_t pic_width_in_mbs_minus1 = read_ue(bs);
    const uint32_t pic_height_in_map_units_minus1 = read_ue(bs);
    sps->frame_mbs_only_flag = u8(src_read_bit(bs));
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    pic_width_in_mbs_minus1: %u\n\n", pic_width_in_mbs_minus1);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    pic_height_in_map_minus1: %u\n\n",
            pic_height_in_map_units_minus1);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    frame_mbs_only_flag: %u\n\n", sps->frame_mbs_only_flag);
    if (!sps->frame_mbs_only_flag) (void)src_read_bit(bs);  // mb_adaptive_frame_field_flag
    (void)src_read_bit(bs);                                 // direct_8x8_inference_flag
    const uint32_t field_factor = 2u - sps->frame_mbs_only_flag;
    sps->pic_width = (pic_width_in_mbs_minus1 + 1) * 16;
    sps->pic_height = field_factor * (pic_height_in_map_units_minus1 + 1) * 16;
    sps->pic_width_out = sps->pic_width;
    sps->pic_height_out = sps->pic_height;

    sps->frame_cropping_flag = u8(src_read_bit(bs));
    if (sps->frame_cropping_flag) {
        sps->frame_crop_left_offset = read_ue(bs);
        sps->frame_crop_right_offset = read_ue(bs);
        sps->frame_crop_top_offset = read_ue(bs);
        sps->frame_crop_bottom_offset = read_ue(bs);
        // CropUnitX / CropUnitY of H.264 7.4.2.1.1
        uint32_t cx = 1;
        uint32_t cy = 1;
        if (sps->chroma_format_idc == 1) {
            cx = 2;
            cy = 2;
        } else if (sps->chroma_format_idc == 2) {
            cx = 2;
        }
        sps->pic_width_out -= cx * (sps->frame_crop_left_offset + sps->frame_crop_right_offset);
        sps->pic_height_out -=
            cy * field_factor * (sps->frame_crop_top_offset + sps->frame_crop_bottom_offset);
    }
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    display pic size: %u by %u\n\n", sps->pic_width_out,
            sps->pic_height_out);

    if (!avc_get_vui_params(bs, sps)) return 1;
    derive_hrd_state(sps);
    sps->aux_format_id = 0;
    sps->isDefined = 1;

    if (dec.nal_unit_type == 15) {  // subset_seq_parameter_set_rbsp
        dec.sps_id_enh = dec.sps_id;
        dec.active_sps_enh = sps;
    }
    src_byte_align(bs);
    return 0;
}

// H.264 D.1.2 buffering_period(): selects the active SPS. False when it is not
// the first message of its NAL unit.
bool avc_sei_buffering_period(avc_parser_t* p, uint64_t start) {
    avc_decoder_t& dec = p->dec;
    ++p->base.bp_num;
    p->base.sei_timing_num_sub = 0;
    if (start != 0) {
        EDR_LOG_AS("avc_parse_sei_messages", kEdrWarning,
                   "%s:%d WARNING: buffering period is not first SEI\n\n");
        return false;
    }
    uint32_t id = read_ue(dec.dsb);
    if (id >= AVC_MAX_SPS || !dec.sps[id].isDefined) {
        EDR_LOG_AS("avc_parse_sei_messages", kEdrError,
                   "%s:%d ERROR: seq_parameter_set_id in SEI BP wrong\n\n");
        if (!dec.sps[0].isDefined) return true;
        EDR_LOG_AS("avc_parse_sei_messages", kEdrError,
                   "%s:%d ERROR: Assume seq_parameter_set_id = 0\n\n");
        id = 0;
    }
    avc_sps_t* sps = &dec.sps[id];
    dec.active_sps = sps;
    dec.NewBpStart = 1;
    if (sps->NalHrdBpPresentFlag) avc_get_bp_params(sps, &dec, 1);
    if (sps->VclHrdBpPresentFlag) avc_get_bp_params(sps, &dec, sps->NalHrdBpPresentFlag == 0);
    return true;
}

// H.264 Table E-6: fields (or frame repeats) per picture, by pic_struct.
uint8_t tfi_divisor(uint32_t pic_struct) {
    switch (pic_struct) {
        case 0:
        case 3:
        case 4:
            return 2;
        case 5:
        case 6:
            return 3;
        case 7:
            return 4;
        case 8:
            return 6;
        default:
            return 1;
    }
}

// H.264 D.1.3 pic_timing(). Without a buffering period there is no SPS to
// take the field lengths from: the message is skipped and not counted, so
// the removal-time chain starts with the first picture timing it can read.
void avc_sei_pic_timing(avc_parser_t* p) {
    avc_decoder_t& dec = p->dec;
    avc_sps_t* sps = dec.active_sps;
    if (sps == nullptr) {
        EDR_LOG_AS("avc_parse_sei_messages", kEdrWarning,
                   "%s:%d WARNING: picture timing before buffering period skipped\n\n");
        return;
    }
    ++p->base.sei_timing_num;
    ++p->base.sei_timing_num_sub;
    const int32_t n = p->base.sei_timing_num;
    bbio_handle_t bs = dec.dsb;
    if (sps->CpbDpbDelaysPresentFlag) {
        dec.cpb_removal_delay = src_read_bits(bs, sps->cpb_removal_delay_length_minus1 + 1u);
        if (dec.cpb_removal_delay == 0 && n != 1)
            dec.cpb_removal_delay = dec.prev_au_cpb_removal_delay + 2;
        dec.dpb_output_delay = src_read_bits(bs, sps->dpb_output_delay_length_minus1 + 1u);
        int64_t t = 0;
        if (n == 1) {
            dec.i64_removal_tm_of_first_pic_in_bp = 0;
        } else if (dec.NewBpStart) {
            dec.i64_removal_tm_of_first_pic_in_bp =
                static_cast<int64_t>(static_cast<uint64_t>(dec.i64_removal_tm_of_first_pic_in_bp) +
                                     dec.cpb_removal_delay);
            t = dec.i64_removal_tm_of_first_pic_in_bp;
        } else {
            t = static_cast<int64_t>(static_cast<uint64_t>(dec.i64_removal_tm_of_first_pic_in_bp) +
                                     dec.cpb_removal_delay);
        }
        dec.i64_au_removal_tm = t;
        dec.NewBpStart = 0;
        // Field ticks to frames, first output picture to 0, frames to ticks.
        const int64_t frames =
            static_cast<int64_t>(static_cast<uint64_t>(t) + dec.dpb_output_delay) >> 1;
        dec.u64_dpb_output_time =
            static_cast<uint64_t>(frames - sps->num_reorder_frames) * sps->num_units_in_tick;
        EDR_LOG_AS("avc_parse_sei_messages", kEdrDebug,
                   "%s:%d DEBUG:      SEI[%03d] cpb_removal_delay %4u, dpb_output_delay %4u, "
                   "num_reorder_frames %d, i_num_units %d, dpb_output_time %lld (%lld)\n\n",
                   n - 1, dec.cpb_removal_delay, dec.dpb_output_delay, sps->num_reorder_frames,
                   static_cast<int>(sps->num_units_in_tick),
                   static_cast<long long>(dec.u64_dpb_output_time),
                   static_cast<long long>(sps->num_units_in_tick == 0
                                              ? 0
                                              : dec.u64_dpb_output_time / sps->num_units_in_tick));
        sps->UseSeiTiming = 1;
        dec.prev_au_cpb_removal_delay = dec.cpb_removal_delay;
    }
    dec.delta_tfi_divisor = 1;
    if (sps->pic_struct_present_flag) {
        dec.pic_struct = u8(src_read_bits(bs, 4));
        EDR_LOG_AS("avc_parse_sei_messages", kEdrDebug, "%s:%d DEBUG:     pic_struct %u\n\n",
                   dec.pic_struct);
        dec.delta_tfi_divisor = tfi_divisor(dec.pic_struct);
    }
}

bool avc_on_sei_message(void* ctx, uint32_t type, uint64_t start) {
    auto* p = static_cast<avc_parser_t*>(ctx);
    if (type == SEI_BUFFERING_PERIOD) return avc_sei_buffering_period(p, start);
    if (type == SEI_PIC_TIMING) avc_sei_pic_timing(p);
    return true;
}

}  // namespace

template <>
struct vesparser::ParserCodec<avc_parser_t> {
    static constexpr parser_t kSlots = {
        .parse_sps = avc_parse_sps,
        .parse_sei_messages = avc_parse_sei_messages,
        .parser_get_num_reorder_frames = avc_parser_get_num_reorder_frames,
        .parser_get_bp_num = parser_get_bp_num,
        .parser_get_sei_timing_num = parser_get_sei_timing_num,
        .parser_get_dpb_output_time = avc_parser_get_dpb_output_time,
        .parser_get_cts_offset_ticks = avc_parser_get_cts_offset_ticks,
        .parser_get_cts_offset_frames = avc_parser_get_cts_offset_frames,
        .parser_get_num_units_in_tick = avc_parser_get_num_units_in_tick,
        .parser_get_time_scale = avc_parser_get_time_scale,
        .parser_destroy = avc_parser_destroy,
        .parser_reset = avc_parser_reset,
        .nal_type_aud = codecutil::avc::kAud,
        .nal_type_sps = codecutil::avc::kSps,
        .nal_type_sei = codecutil::avc::kSei,
        .nal_type_slice = codecutil::avc::kSliceNonIdr,
        .nal_type_idr = codecutil::avc::kSliceIdr,
        .bp_num = 0,
        .sei_timing_num = 0,
        .sei_timing_num_sub = 0,
    };
    static int init(avc_parser_t* p, uint8_t nal_hrd, uint8_t delays) {
        return avc_parser_init(p, nal_hrd, delays);
    }
    static void release(avc_parser_t*) {}
    // Every SPS slot starts with the flags.
    static uint8_t nal_hrd(const avc_parser_t* p) { return p->dec.sps[0].NalHrdBpPresentFlag; }
    static uint8_t delays(const avc_parser_t* p) { return p->dec.sps[0].CpbDpbDelaysPresentFlag; }
};

extern "C" {

int avc_parser_init(avc_parser_handle_t parser, uint8_t NalHrdBpPresentFlag,
                    uint8_t CpbDpbDelaysPresentFlag) {
    for (avc_sps_t& sps : parser->dec.sps) {
        sps.NalHrdBpPresentFlag = NalHrdBpPresentFlag;
        sps.CpbDpbDelaysPresentFlag = CpbDpbDelaysPresentFlag;
    }
    build_tables();
    if (parser->dec.dsb == nullptr) {
        parser->dec.dsb = reg_bbio_get('b', 'r');
        if (parser->dec.dsb == nullptr) {
            std::free(parser);
            return -1;
        }
    }
    return 0;
}

VES_API parser_handle_t avc_parser_create(uint8_t NalHrdBpPresentFlag,
                                          uint8_t CpbDpbDelaysPresentFlag) {
    return vesparser::create_parser<avc_parser_t>(NalHrdBpPresentFlag, CpbDpbDelaysPresentFlag);
}

// A NAL unit shorter than start code + header, or without payload bytes, is
// rejected (1) before anything is read.
int32_t avc_parse_sps(uint8_t* nal_buf, int32_t nal_size, int32_t startcode_len,
                      parser_handle_t parser) {
    if (parser == nullptr) return 1;
    avc_parser_t* p = avc(parser);
    if (!vesparser::nal_fits(nal_buf, nal_size, startcode_len, 1)) {
        EDR_LOG(kEdrError, "%s:%d ERROR: avc sps nal unit too short\n\n");
        return 1;
    }
    avc_decoder_t& dec = p->dec;
    dec.nal_unit_type = nal_buf[startcode_len] & 0x1F;
    const uint32_t payload_len =
        static_cast<uint32_t>(nal_size) - static_cast<uint32_t>(startcode_len) - 1;
    dec.rbsp_size = vesparser::load_rbsp(
        dec.dsb, dec.rbsp_bytes, nal_buf + static_cast<uint32_t>(startcode_len) + 1, payload_len);
    if (dec.rbsp_size == 0) {
        EDR_LOG(kEdrError, "%s:%d ERROR: avc sps nal unit too short\n\n");
        return 1;
    }
    return avc_parse_sequence_parameter_set(p);
}

// A NAL unit shorter than start code + header returns -1.
int32_t avc_parse_sei_messages(uint8_t* nal_buf, int32_t nal_size, int32_t startcode_len,
                               parser_handle_t parser) {
    if (parser == nullptr) return -1;
    avc_parser_t* p = avc(parser);
    if (!vesparser::nal_fits(nal_buf, nal_size, startcode_len, 1)) {
        EDR_LOG(kEdrWarning, "%s:%d WARNING: Error decoding sei message\n\n");
        return -1;
    }
    avc_decoder_t& dec = p->dec;
    dec.nal_unit_type = nal_buf[startcode_len] & 0x1F;
    const vesparser::SeiNal nal{nal_buf, nal_size, startcode_len, 1};
    return vesparser::walk_sei_messages("avc_parse_sei_messages", nal, dec.rbsp_bytes,
                                        &dec.rbsp_size, dec.dsb, avc_on_sei_message, p);
}

// Initial delays of one HRD (H.264 D.2.2); cpb_cnt_minus1 is at most 31 in
// every defined slot, the bound here only keeps a corrupt record harmless.
void avc_get_bp_params(avc_sps_t* sps, avc_decoder_t* dec, BOOL save) {
    const uint32_t last =
        sps->cpb_cnt_minus1 > kMaxCpbCntMinus1 ? kMaxCpbCntMinus1 : sps->cpb_cnt_minus1;
    const uint32_t length = sps->initial_cpb_removal_delay_length_minus1 + 1u;
    for (uint32_t i = 0; i <= last; ++i) {
        const uint32_t initial_cpb_removal_delay = src_read_bits(dec->dsb, length);
        (void)src_read_bits(dec->dsb, length);  // initial_cpb_removal_delay_offset
        if (!save) continue;
        if (i == 0) dec->initial_cpb_removal_delay_1st = initial_cpb_removal_delay;
        if (i == last) dec->initial_cpb_removal_delay_last = initial_cpb_removal_delay;
    }
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:      initial_cpb_removal_delay_1st %u, last %u\n\n",
            dec->initial_cpb_removal_delay_1st, dec->initial_cpb_removal_delay_last);
}

int32_t avc_parser_get_num_reorder_frames(parser_handle_t parser) {
    if (parser == nullptr || avc(parser)->dec.active_sps == nullptr) return 0;
    return avc(parser)->dec.active_sps->num_reorder_frames;
}

uint64_t avc_parser_get_dpb_output_time(parser_handle_t parser, uint32_t) {
    return parser != nullptr ? avc(parser)->dec.u64_dpb_output_time : 0;
}

int32_t avc_parser_get_cts_offset_ticks(parser_handle_t parser) {
    if (parser == nullptr || avc(parser)->dec.active_sps == nullptr) return 0;
    const avc_decoder_t& dec = avc(parser)->dec;
    return static_cast<int32_t>(dec.active_sps->num_units_in_tick * dec.dpb_output_delay);
}

int32_t avc_parser_get_cts_offset_frames(parser_handle_t parser) {
    if (parser == nullptr) return 0;
    return static_cast<int32_t>(avc(parser)->dec.dpb_output_delay) >> 1;
}

int32_t avc_parser_get_num_units_in_tick(parser_handle_t parser) {
    if (parser == nullptr || avc(parser)->dec.active_sps == nullptr) return 0;
    return static_cast<int32_t>(avc(parser)->dec.active_sps->num_units_in_tick);
}

int32_t avc_parser_get_time_scale(parser_handle_t parser) {
    if (parser == nullptr || avc(parser)->dec.active_sps == nullptr) return 0;
    const avc_decoder_t& dec = avc(parser)->dec;
    if (dec.delta_tfi_divisor == 0) return 0;
    return static_cast<int32_t>(dec.active_sps->time_scale) / dec.delta_tfi_divisor;
}

void avc_parser_reset(parser_handle_t parser) { vesparser::reset_parser<avc_parser_t>(parser); }

void avc_parser_destroy(parser_handle_t parser) { vesparser::destroy_parser<avc_parser_t>(parser); }

}  // extern "C"
