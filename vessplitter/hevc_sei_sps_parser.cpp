// HEVC parser: sequence parameter sets (H.265 7.3.2.2 version 1 with
// profile_tier_level 7.3.3, st_ref_pic_set 7.3.7, VUI E.2.1 and HRD E.2.2)
// into one record per sps_seq_parameter_set_id; buffering-period and
// picture-timing SEI (D.2.2, D.2.3) into a running CPB removal time and a DPB
// output time per picture.
//
// Input: one NAL unit from its start code (2-byte NAL header), payload
// limited to the first 1024 bytes. Every element that sizes a loop or indexes
// an array is range-checked where it is read, and an SPS that would overrun a
// record array is rejected (1) without writing past it. A rejected SPS leaves
// its slot partly written with isDefined unchanged.
#include "hevc_sei_sps_parser.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "codec_util_nal_types.h"
#include "edr_debug.h"
#include "parser_common.h"

static_assert(std::is_standard_layout_v<hevc_parser_t>);
static_assert(offsetof(hevc_parser_t, base) == 0);

namespace {

constexpr uint32_t kMaxSubLayersMinus1 = 6;     // H.265 7.4.3.2.1
constexpr uint32_t kMaxCtbLog2 = 6;             // CtbLog2SizeY
constexpr uint32_t kMaxTbLog2 = 5;              // MaxTbLog2SizeY
constexpr uint32_t kMaxPcmLog2 = 5;             // Log2MaxIpcmCbSizeY
constexpr uint32_t kMaxLongTermSps = 32;        // num_long_term_ref_pics_sps
constexpr uint32_t kMaxDeltaPocMinus1 = 32767;  // delta_poc_s0/s1_minus1, abs_delta_rps_minus1

hevc_parser_t* hevc(parser_handle_t p) { return reinterpret_cast<hevc_parser_t*>(p); }

BOOL flag(bbio_handle_t bs) { return static_cast<BOOL>(src_read_bit(bs)); }
int32_t i32(uint64_t v) { return static_cast<int32_t>(v); }
int8_t i8(uint64_t v) { return static_cast<int8_t>(v); }
int16_t i16(uint64_t v) { return static_cast<int16_t>(v); }

void link_sublayer_ptl(hevc_sps_t* sps) {
    for (int i = 0; i < 6; ++i) sps->as_protile[0].as_sublayer_ptl[i] = &sps->as_protile[i + 1];
}

// The slot an SPS is parsed into, allocated with its defaults on first use;
// NULL when out of memory.
hevc_sps_t* writable_slot(hevc_decoder_t& dec, uint32_t id) {
    if (dec.sps[id] != nullptr) return dec.sps[id];
    auto* sps = static_cast<hevc_sps_t*>(std::calloc(1, sizeof(hevc_sps_t)));
    if (sps == nullptr) return nullptr;
    sps->NalHrdBpPresentFlag = dec.NalHrdBpPresentFlag;
    sps->CpbDpbDelaysPresentFlag = dec.CpbDpbDelaysPresentFlag;
    link_sublayer_ptl(sps);
    hevc_vui_t& vui = sps->vui;
    vui.i_video_format = 5;
    vui.i_colour_primaries = 2;
    vui.i_transfer_characteristics = 2;
    vui.i_matrix_coefficients = 2;
    vui.b_motion_vectors_over_pic_bounds = 1;
    vui.i_max_bytes_pp_denom = 2;
    vui.i_max_bits_pmcu_denom = 1;
    vui.i_log2_max_mv_lenh = 15;
    vui.i_log2_max_mv_lenv = 15;
    vui.i_num_units = 1001;
    vui.i_time_scale = 60000;
    dec.sps[id] = sps;
    return sps;
}

bool is_defined(const hevc_decoder_t& dec, uint32_t id) {
    return id < HEVC_MAX_SPS && dec.sps[id] != nullptr && dec.sps[id]->isDefined != 0;
}

void free_slots(hevc_decoder_t& dec) {
    for (hevc_sps_t*& sps : dec.sps) {
        std::free(sps);
        sps = nullptr;
    }
}

// general_/sub_layer_ profile part: 88 bits.
void hevc_parse_profile_tier(bbio_handle_t bs, profile_tier_level_t* ptl) {
    ptl->i_profile_space = i32(src_read_bits(bs, 2));
    ptl->b_tier = flag(bs);
    ptl->i_profile = i32(src_read_bits(bs, 5));
    for (BOOL& compat : ptl->b_profile_compat) compat = flag(bs);
    ptl->b_general_progressive_source = flag(bs);
    ptl->b_general_interlaced_source = flag(bs);
    ptl->b_general_non_packed_constraint = flag(bs);
    ptl->b_general_frame_only_constraint = flag(bs);
    src_skip_bits(bs, 16);  // general_reserved_zero_44bits
    src_skip_bits(bs, 16);
    src_skip_bits(bs, 12);
}

// H.265 7.3.3 into ptl[0] (general) and ptl[1 + i] (sub-layer i).
[[nodiscard]] bool hevc_parse_ptl(bbio_handle_t bs, profile_tier_level_t* ptl,
                                  uint32_t max_sub_layers_minus1) {
    hevc_parse_profile_tier(bs, &ptl[0]);
    ptl[0].i_level = i32(src_read_bits(bs, 8));
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    general profile %d, tier %d, level %d\n\n",
            ptl[0].i_profile, ptl[0].b_tier, ptl[0].i_level);
    if (max_sub_layers_minus1 == 0) return true;
    for (uint32_t i = 0; i < max_sub_layers_minus1; ++i) {
        ptl[0].sub_layer_profile_present[i] = flag(bs);
        ptl[0].sub_layer_level_present[i] = flag(bs);
    }
    for (uint32_t i = max_sub_layers_minus1; i < 8; ++i) {
        if (src_read_bits(bs, 2) != 0) {  // reserved_zero_2bits
            EDR_LOG(kEdrError, "%s:%d ERROR: hevc reserved_zero_2bits in PTL\n\n");
            return false;
        }
    }
    for (uint32_t i = 0; i < max_sub_layers_minus1; ++i) {
        if (ptl[0].sub_layer_profile_present[i]) hevc_parse_profile_tier(bs, &ptl[1 + i]);
        if (ptl[0].sub_layer_level_present[i]) ptl[1 + i].i_level = i32(src_read_bits(bs, 8));
    }
    return true;
}

// H.265 7.3.4 scaling_list_data(); nothing is kept.
void skip_scaling_list(bbio_handle_t bs) {
    for (uint32_t size_id = 0; size_id < 4; ++size_id) {
        const uint32_t matrices = size_id == 3 ? 2 : 6;
        for (uint32_t matrix_id = 0; matrix_id < matrices; ++matrix_id) {
            if (!src_read_bit(bs)) {  // scaling_list_pred_mode_flag
                (void)read_ue(bs);    // scaling_list_pred_matrix_id_delta
                continue;
            }
            const uint32_t coef_num =
                1u << (4 + (size_id << 1)) < 64 ? 1u << (4 + (size_id << 1)) : 64;
            if (size_id > 1) (void)read_se(bs);  // scaling_list_dc_coef_minus8
            for (uint32_t i = 0; i < coef_num; ++i) (void)read_se(bs);  // scaling_list_delta_coef
        }
    }
}

// H.265 7.3.7 / 7.4.8 for set idx of the SPS. An inter-predicted set refers
// to set idx - 1. Rejected (false): a reference set of more than 16 pictures,
// a derived or explicit set of more than 16 pictures, a delta outside 2^15.
[[nodiscard]] bool hevc_decode_short_term_rps(bbio_handle_t bs, hevc_sps_t* sps, uint32_t idx) {
    reference_picture_set_t* rps = &sps->as_rps_list[idx];
    std::memset(static_cast<void*>(rps), 0, sizeof *rps);
    if (idx > 0) rps->b_inter_rps_prediction = flag(bs);

    if (rps->b_inter_rps_prediction) {
        const reference_picture_set_t* ref = &sps->as_rps_list[idx - 1];
        const uint32_t delta_rps_sign = src_read_bit(bs);
        const uint32_t abs_delta_rps_minus1 = read_ue(bs);
        if (abs_delta_rps_minus1 > kMaxDeltaPocMinus1) {
            EDR_LOG(kEdrError, "%s:%d ERROR: hevc abs_delta_rps_minus1 %u out of range\n\n",
                    abs_delta_rps_minus1);
            return false;
        }
        const int32_t delta_rps = (1 - 2 * static_cast<int32_t>(delta_rps_sign)) *
                                  (static_cast<int32_t>(abs_delta_rps_minus1) + 1);
        if (ref->i_num_pictures > HEVC_MAX_RPS_PICS) {
            EDR_LOG(kEdrError, "%s:%d ERROR: hevc Invalid reference picture count\n\n");
            return false;
        }
        if (ref->i_num_pictures < 0) {
            rps->i_num_ref_idc = ref->i_num_pictures + 1;
            return true;
        }
        int32_t k = 0;
        for (int32_t j = 0; j <= ref->i_num_pictures; ++j) {
            const uint32_t used_by_curr_pic_flag = src_read_bit(bs);
            const uint32_t use_delta_flag = used_by_curr_pic_flag ? 1 : src_read_bit(bs);
            const int32_t idc = used_by_curr_pic_flag ? 1 : (use_delta_flag ? 2 : 0);
            rps->ai_ref_idc[j] = idc;
            if (idc == 0) continue;
            if (k == HEVC_MAX_RPS_PICS) {
                EDR_LOG(kEdrError, "%s:%d ERROR: hevc Invalid reference picture count\n\n");
                return false;
            }
            const int32_t delta = (j < ref->i_num_pictures ? ref->ai_delta_poc[j] : 0) + delta_rps;
            rps->ai_delta_poc[k] = delta;
            rps->ab_used[k] = idc == 1;
            if (delta < 0)
                ++rps->i_num_negativePictures;
            else
                ++rps->i_num_positivePictures;
            ++k;
        }
        rps->i_num_pictures = k;
        rps->i_num_ref_idc = ref->i_num_pictures + 1;
        // Ascending by delta POC, then the negatives nearest first.
        for (int32_t i = 1; i < k; ++i) {
            const int32_t d = rps->ai_delta_poc[i];
            const BOOL u = rps->ab_used[i];
            int32_t m = i - 1;
            for (; m >= 0 && rps->ai_delta_poc[m] > d; --m) {
                rps->ai_delta_poc[m + 1] = rps->ai_delta_poc[m];
                rps->ab_used[m + 1] = rps->ab_used[m];
            }
            rps->ai_delta_poc[m + 1] = d;
            rps->ab_used[m + 1] = u;
        }
        for (int32_t lo = 0, hi = rps->i_num_negativePictures - 1; lo < hi; ++lo, --hi) {
            const int32_t d = rps->ai_delta_poc[lo];
            rps->ai_delta_poc[lo] = rps->ai_delta_poc[hi];
            rps->ai_delta_poc[hi] = d;
            const BOOL u = rps->ab_used[lo];
            rps->ab_used[lo] = rps->ab_used[hi];
            rps->ab_used[hi] = u;
        }
        return true;
    }

    const uint64_t num_negative_pics = read_ue(bs);
    const uint64_t num_positive_pics = read_ue(bs);
    if (num_negative_pics + num_positive_pics > HEVC_MAX_RPS_PICS) {
        EDR_LOG(kEdrError, "%s:%d ERROR: hevc Invalid reference picture count\n\n");
        return false;
    }
    int32_t poc = 0;
    int32_t k = 0;
    for (uint64_t i = 0; i < num_negative_pics; ++i, ++k) {
        const uint32_t delta_poc_s0_minus1 = read_ue(bs);
        if (delta_poc_s0_minus1 > kMaxDeltaPocMinus1) {
            EDR_LOG(kEdrError, "%s:%d ERROR: hevc delta_poc_s0_minus1 %u out of range\n\n",
                    delta_poc_s0_minus1);
            return false;
        }
        poc -= static_cast<int32_t>(delta_poc_s0_minus1) + 1;
        rps->ai_delta_poc[k] = poc;
        rps->ab_used[k] = flag(bs);  // used_by_curr_pic_s0_flag
    }
    poc = 0;
    for (uint64_t i = 0; i < num_positive_pics; ++i, ++k) {
        const uint32_t delta_poc_s1_minus1 = read_ue(bs);
        if (delta_poc_s1_minus1 > kMaxDeltaPocMinus1) {
            EDR_LOG(kEdrError, "%s:%d ERROR: hevc delta_poc_s1_minus1 %u out of range\n\n",
                    delta_poc_s1_minus1);
            return false;
        }
        poc += static_cast<int32_t>(delta_poc_s1_minus1) + 1;
        rps->ai_delta_poc[k] = poc;
        rps->ab_used[k] = flag(bs);  // used_by_curr_pic_s1_flag
    }
    rps->i_num_negativePictures = i32(num_negative_pics);
    rps->i_num_positivePictures = i32(num_positive_pics);
    rps->i_num_pictures = k;
    return true;
}

// H.265 E.2.3 sub_layer_hrd_parameters() for CPB specifications 0 to
// i_cpb_cnt - 1 of sub-layer `layer`, column nal_vcl (0 NAL, 1 VCL).
void hevc_parse_sub_layer_hrd(bbio_handle_t bs, hevc_vui_t* vui, uint32_t layer, int nal_vcl) {
    hevc_hrd_slinfo_t* hrd = &vui->as_hrd[layer];
    for (int32_t k = 0; k < hrd->i_cpb_cnt; ++k) {
        hrd->ai_bitrate_value[k][nal_vcl] = i32(static_cast<uint64_t>(read_ue(bs)) + 1);
        hrd->ai_cpb_size_value[k][nal_vcl] = i32(static_cast<uint64_t>(read_ue(bs)) + 1);
        if (vui->b_sub_pic_cpb_params) {
            hrd->ai_du_cpb_size_value[k][nal_vcl] = i32(read_ue(bs));
            hrd->ai_du_bitrate_size_value[k][nal_vcl] = i32(read_ue(bs));
        }
        hrd->b_cbr[k][nal_vcl] = flag(bs);
    }
}

// H.265 E.2.2 hrd_parameters(1, max_sub_layers_minus1). cpb_cnt_minus1 above
// 31 rejects the SPS (false) before any CPB entry is written.
[[nodiscard]] bool hevc_parse_hrd_parameters(bbio_handle_t bs, hevc_vui_t* vui,
                                             uint32_t max_sub_layers_minus1) {
    vui->b_nal_hrd_parameters = flag(bs);
    vui->b_vcl_hrd_parameters = flag(bs);
    vui->b_sub_pic_cpb_params = 0;
    if (vui->b_nal_hrd_parameters || vui->b_vcl_hrd_parameters) {
        vui->b_sub_pic_cpb_params = flag(bs);
        if (vui->b_sub_pic_cpb_params) {
            vui->i_tick_divisor = i32(src_read_bits(bs, 8) + 2);
            vui->i_du_cpb_removal_delay_length = i32(src_read_bits(bs, 5) + 1);
            vui->b_sub_pic_cpb_params_in_pic_timing_sei = flag(bs);
            vui->i_dpb_output_delay_du_length = i32(src_read_bits(bs, 5) + 1);
        }
        vui->i_bitrate_scale = i32(src_read_bits(bs, 4));
        vui->i_cpb_size_scale = i32(src_read_bits(bs, 4));
        if (vui->b_sub_pic_cpb_params) vui->i_du_cpb_size_scale = i32(src_read_bits(bs, 4));
        vui->i_initial_cpb_removal_delay_length = i32(src_read_bits(bs, 5) + 1);
        vui->i_cpb_removal_delay_length = i32(src_read_bits(bs, 5) + 1);
        vui->i_dpb_output_delay_len = i32(src_read_bits(bs, 5) + 1);
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:      hrd delay lengths %d %d %d\n\n",
                vui->i_initial_cpb_removal_delay_length, vui->i_cpb_removal_delay_length,
                vui->i_dpb_output_delay_len);
    }
    for (uint32_t i = 0; i <= max_sub_layers_minus1; ++i) {
        hevc_hrd_slinfo_t* hrd = &vui->as_hrd[i];
        hrd->b_fixed_pic_rate = flag(bs);
        hrd->b_fixed_pic_rate_within_cvs = hrd->b_fixed_pic_rate ? 1 : flag(bs);
        hrd->b_low_delay_hrd = 0;
        if (hrd->b_fixed_pic_rate_within_cvs)
            hrd->i_elemental_duration_in_tc = i32(static_cast<uint64_t>(read_ue(bs)) + 1);
        else
            hrd->b_low_delay_hrd = flag(bs);
        hrd->i_cpb_cnt = 1;
        if (!hrd->b_low_delay_hrd) {
            const uint32_t cpb_cnt_minus1 = read_ue(bs);
            if (cpb_cnt_minus1 >= HEVC_MAX_CPB) {
                EDR_LOG(kEdrError, "%s:%d ERROR: hevc cpb_cnt_minus1 %u out of range\n\n",
                        cpb_cnt_minus1);
                return false;
            }
            hrd->i_cpb_cnt = i32(cpb_cnt_minus1 + 1);
        }
        if (vui->b_nal_hrd_parameters) hevc_parse_sub_layer_hrd(bs, vui, i, 0);
        if (vui->b_vcl_hrd_parameters) hevc_parse_sub_layer_hrd(bs, vui, i, 1);
    }
    return true;
}

// H.265 E.2.1. field_seq_flag 1 (field-coded pictures) is not supported and
// rejects the SPS (false).
[[nodiscard]] bool hevc_parse_vui_parameters(bbio_handle_t bs, hevc_sps_t* sps,
                                             uint32_t max_sub_layers_minus1) {
    hevc_vui_t* vui = &sps->vui;
    vui->b_aspect_ratio_info = flag(bs);
    if (vui->b_aspect_ratio_info) {
        vui->i_aspect_ratio_idc = i32(src_read_bits(bs, 8));
        if (vui->i_aspect_ratio_idc == 255) {  // EXTENDED_SAR
            vui->i_sar_width = i32(src_read_bits(bs, 16));
            vui->i_sar_height = i32(src_read_bits(bs, 16));
        }
    }
    vui->b_overscan_info = flag(bs);
    if (vui->b_overscan_info) vui->b_overscan_appropriate = flag(bs);
    vui->i_video_format = 5;
    vui->i_transfer_characteristics = 2;
    vui->i_matrix_coefficients = 2;
    vui->b_video_signal_type = flag(bs);
    if (vui->b_video_signal_type) {
        vui->i_video_format = i32(src_read_bits(bs, 3));
        vui->b_video_full_range = flag(bs);
        vui->b_colour_description = flag(bs);
        if (vui->b_colour_description) {
            vui->i_colour_primaries = i32(src_read_bits(bs, 8));
            vui->i_transfer_characteristics = i32(src_read_bits(bs, 8));
            vui->i_matrix_coefficients = i32(src_read_bits(bs, 8));
        }
    }
    vui->b_chroma_location = flag(bs);
    if (vui->b_chroma_location) {
        vui->i_chroma_sample_loc_top = i32(read_ue(bs));
        vui->i_chroma_sample_loc_bottom = i32(read_ue(bs));
    }
    vui->b_neutral_chroma_indication = flag(bs);
    vui->b_field_seq = flag(bs);
    if (vui->b_field_seq) {
        EDR_LOG(kEdrError, "%s:%d ERROR: hevc field_seq_flag not supported\n\n");
        return false;
    }
    vui->b_frame_field_info = flag(bs);
    vui->b_defdisp_window = flag(bs);
    if (vui->b_defdisp_window) {
        for (int i = 0; i < 4; ++i) (void)read_ue(bs);  // def_disp_win_*_offset
    }
    vui->b_timing_info_present = flag(bs);
    vui->b_hrd_parameters = 0;
    if (vui->b_timing_info_present) {
        vui->i_num_units = i32(src_read_bits(bs, 32));
        vui->i_time_scale = i32(src_read_bits(bs, 32));
        EDR_LOG(kEdrDebug, "%s:%d DEBUG:      i_num_units %d, time scale %d\n\n", vui->i_num_units,
                vui->i_time_scale);
        vui->b_vui_poc_proportional_to_timing = flag(bs);
        if (vui->b_vui_poc_proportional_to_timing)
            vui->i_vui_num_ticks_poc_diff_one = i32(static_cast<uint64_t>(read_ue(bs)) + 1);
        vui->b_hrd_parameters = flag(bs);
    }
    if (vui->b_hrd_parameters) {
        if (!hevc_parse_hrd_parameters(bs, vui, max_sub_layers_minus1)) return false;
    } else {
        // Absent HRD parameters: no HRD (H.265 E.3.2 inference), whatever an
        // earlier SPS in this slot carried.
        vui->b_nal_hrd_parameters = 0;
        vui->b_vcl_hrd_parameters = 0;
        vui->b_sub_pic_cpb_params = 0;
    }
    vui->b_bitstream_restriction = flag(bs);
    if (vui->b_bitstream_restriction) {
        vui->b_tiles_fixed_structure = flag(bs);
        vui->b_motion_vectors_over_pic_bounds = flag(bs);
        vui->b_restricted_ref_pic_lists = flag(bs);
        vui->i_min_spatial_segmentation_idc = i32(read_ue(bs));
        vui->i_max_bytes_pp_denom = i32(read_ue(bs));
        vui->i_max_bits_pmcu_denom = i32(read_ue(bs));
        vui->i_log2_max_mv_lenh = i32(read_ue(bs));
        vui->i_log2_max_mv_lenv = i32(read_ue(bs));
    }
    if (vui->b_nal_hrd_parameters) sps->NalHrdBpPresentFlag = sps->CpbDpbDelaysPresentFlag = 1;
    if (vui->b_vcl_hrd_parameters) sps->VclHrdBpPresentFlag = sps->CpbDpbDelaysPresentFlag = 1;
    if (!vui->b_nal_hrd_parameters && !vui->b_vcl_hrd_parameters) {
        vui->i_initial_cpb_removal_delay_length = 24;
        vui->i_cpb_removal_delay_length = 24;
        vui->i_dpb_output_delay_len = 24;
    }
    return true;
}

// H.265 7.3.2.2 after the NAL header. Returns 0 or 1 (rejected).
int32_t hevc_parse_sequence_parameter_set(hevc_parser_t* p) {
    hevc_decoder_t& dec = p->dec;
    bbio_handle_t bs = dec.dsb;

    const uint32_t vps_id = src_read_bits(bs, 4);
    const uint32_t max_sub_layers_minus1 = src_read_bits(bs, 3);
    const BOOL temporal_id_nesting = flag(bs);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    sps_max_sub_layers_minus1: %u\n\n", max_sub_layers_minus1);
    if (max_sub_layers_minus1 > kMaxSubLayersMinus1) {
        EDR_LOG(kEdrError, "%s:%d ERROR: hevc sps_max_sub_layers_minus1 %u out of range\n\n",
                max_sub_layers_minus1);
        return 1;
    }
    profile_tier_level_t ptl[7] = {};
    if (!(hevc_parse_ptl(bs, ptl, max_sub_layers_minus1))) return 1;

    uint32_t id = read_ue(bs);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    sps_seq_parameter_set_id: %u\n\n", id);
    if (id >= HEVC_MAX_SPS) {
        EDR_LOG(kEdrError, "%s:%d ERROR: hevc seq_parameter_set_id in sps wrong\n\n");
        if (is_defined(dec, 0)) return 1;
        EDR_LOG(kEdrError, "%s:%d ERROR: Assume hevc seq_parameter_set_id = 0\n\n");
        id = 0;
    }
    hevc_sps_t* sps = writable_slot(dec, id);
    if (sps == nullptr) {
        EDR_LOG(kEdrError, "%s:%d ERROR: no memory for hevc sps\n\n");
        return 1;
    }
    dec.sps_id = static_cast<uint8_t>(id);
    sps->i_id = i8(id);
    sps->i_vps_id = i8(vps_id);
    sps->i_max_temporal_layers = i8(max_sub_layers_minus1 + 1);
    sps->b_temporal_id_nesting = temporal_id_nesting;
    std::memcpy(sps->as_protile, ptl, sizeof ptl);
    for (profile_tier_level_t& rec : sps->as_protile) {
        for (profile_tier_level_t*& link : rec.as_sublayer_ptl) link = nullptr;
    }
    link_sublayer_ptl(sps);

    const uint32_t chroma_format_idc = read_ue(bs);
    sps->i_chroma_format_idc = i8(chroma_format_idc);
    if (chroma_format_idc != 1)
        EDR_LOG(kEdrWarning,
                "%s:%d WARNING: osprey decoder only fully support 4:2:0\n\n");  // required as is
    sps->b_separate_colour_plane_flag = 0;
    if (chroma_format_idc == 3) {
        sps->b_separate_colour_plane_flag = flag(bs);
        if (sps->b_separate_colour_plane_flag) {
            EDR_LOG(kEdrError, "%s:%d ERROR: hevc separate_colour_plane_flag not supported\n\n");
            return 1;
        }
    }

    sps->i_pic_luma_width = i16(read_ue(bs));
    sps->i_pic_luma_height = i16(read_ue(bs));
    EDR_LOG(kEdrDebug, "%s:%d DEBUG:    pic size %d x %d\n\n", sps->i_pic_luma_width,
            sps->i_pic_luma_height);
    if (static_cast<uint16_t>(sps->i_pic_luma_width - 8) > 8432 ||
        static_cast<uint16_t>(sps->i_pic_luma_height - 8) > 8432) {
        EDR_LOG(kEdrError, "%s:%d ERROR: hevc image resolution out of range\n\n");
        return 1;
    }
    sps->i_pic_conf_win_left_offset = 0;
    sps->i_pic_conf_win_right_offset = 0;
    sps->i_pic_conf_win_top_offset = 0;
    sps->i_pic_conf_win_bottom_offset = 0;
    if (src_read_bit(bs)) {  // conformance_window_flag
        sps->i_pic_conf_win_left_offset = i16(static_cast<uint64_t>(read_ue(bs)) * 2);
        sps->i_pic_conf_win_right_offset = i16(static_cast<uint64_t>(read_ue(bs)) * 2);
        sps->i_pic_conf_win_top_offset = i16(static_cast<uint64_t>(read_ue(bs)) * 2);
        sps->i_pic_conf_win_bottom_offset = i16(static_cast<uint64_t>(read_ue(bs)) * 2);
        const auto w =
            static_cast<int16_t>(sps->i_pic_luma_width - sps->i_pic_conf_win_left_offset -
                                 sps->i_pic_conf_win_right_offset);
        const auto h =
            static_cast<int16_t>(sps->i_pic_luma_height - sps->i_pic_conf_win_top_offset -
                                 sps->i_pic_conf_win_bottom_offset);
        if (w < 1 || h < 1) {
            EDR_LOG(kEdrError, "%s:%d ERROR: hevc bad cropping values\n\n");
            return 1;
        }
    }

    sps->i_bit_depth_luma = i8(static_cast<uint64_t>(read_ue(bs)) + 8);
    sps->i_bit_depth_chroma = i8(static_cast<uint64_t>(read_ue(bs)) + 8);
    const uint64_t log2_max_poc_lsb = static_cast<uint64_t>(read_ue(bs)) + 4;
    sps->i_log2_max_pic_order_cnt_lsb = i8(log2_max_poc_lsb);
    sps->i_max_pic_order_cnt_lsb = log2_max_poc_lsb >= 32 ? 0 : i32(1ull << log2_max_poc_lsb);

    const uint32_t sub_layer_ordering_info_present = src_read_bit(bs);
    const uint32_t coded_sets = sub_layer_ordering_info_present ? max_sub_layers_minus1 + 1 : 1;
    for (uint32_t i = 0; i < coded_sets; ++i) {
        sps->ai_max_dec_pic_buffering[i] = i32(static_cast<uint64_t>(read_ue(bs)) + 1);
        sps->ai_num_reorder_pics[i] = i32(read_ue(bs));
        sps->max_latency_increase[i] = i32(read_ue(bs));
    }
    for (uint32_t i = coded_sets; i <= max_sub_layers_minus1; ++i) {
        sps->ai_max_dec_pic_buffering[i] = sps->ai_max_dec_pic_buffering[0];
        sps->ai_num_reorder_pics[i] = sps->ai_num_reorder_pics[0];
        sps->max_latency_increase[i] = sps->max_latency_increase[0];
    }

    const uint64_t log2_min_cb = static_cast<uint64_t>(read_ue(bs)) + 3;
    const uint64_t log2_diff_cb = read_ue(bs);
    const uint64_t log2_min_tb = static_cast<uint64_t>(read_ue(bs)) + 2;
    const uint64_t log2_max_tb = log2_min_tb + read_ue(bs);
    if (log2_min_cb + log2_diff_cb > kMaxCtbLog2 || log2_max_tb > kMaxTbLog2) {
        EDR_LOG(kEdrError, "%s:%d ERROR: hevc block sizes out of range\n\n");
        return 1;
    }
    sps->i_log2_min_coding_block_size = i8(log2_min_cb);
    sps->i_max_cu_width = sps->i_max_cu_height = i16(1ull << (log2_min_cb + log2_diff_cb));
    sps->i_log2_min_transform_block_size = i8(log2_min_tb);
    sps->i_log2_max_transform_block_size = i8(log2_max_tb);
    sps->i_max_transform_block_size = i8(1ull << log2_max_tb);
    sps->i_max_transform_hierarchy_depth_inter = i8(static_cast<uint64_t>(read_ue(bs)) + 1);
    sps->i_max_transform_hierarchy_depth_intra = i8(static_cast<uint64_t>(read_ue(bs)) + 1);
    const uint64_t add_depth = log2_min_cb > log2_min_tb ? log2_min_cb - log2_min_tb : 0;
    if (log2_diff_cb + add_depth > HEVC_MAX_CU_DEPTH) {
        EDR_LOG(kEdrError, "%s:%d ERROR: hevc max cu depth %u out of range\n\n",
                static_cast<unsigned>(log2_diff_cb + add_depth));
        return 1;
    }
    sps->i_add_depth = i8(add_depth);
    sps->i_max_cu_depth = i8(log2_diff_cb + add_depth);

    sps->b_scaling_list_enabled = flag(bs);
    sps->b_scaling_list_present = 0;
    if (sps->b_scaling_list_enabled) {
        sps->b_scaling_list_present = flag(bs);
        if (sps->b_scaling_list_present) skip_scaling_list(bs);
    }
    sps->b_amp = flag(bs);
    sps->b_sao = flag(bs);
    sps->b_pcm_enabled = flag(bs);
    if (sps->b_pcm_enabled) {
        sps->i_pcm_bit_depth_luma = static_cast<uint8_t>(src_read_bits(bs, 4) + 1);
        sps->i_pcm_bit_depth_chroma = static_cast<uint8_t>(src_read_bits(bs, 4) + 1);
        const uint64_t log2_min_pcm = static_cast<uint64_t>(read_ue(bs)) + 3;
        const uint64_t log2_max_pcm = log2_min_pcm + read_ue(bs);
        if (log2_max_pcm > kMaxPcmLog2) {
            EDR_LOG(kEdrError, "%s:%d ERROR: hevc pcm block sizes out of range\n\n");
            return 1;
        }
        sps->i_min_pcm_cb_size = i8(1ull << log2_min_pcm);
        sps->i_max_pcm_cb_size = i8(1ull << log2_max_pcm);
        sps->b_pcm_loop_filter_disable = flag(bs);
    }

    const uint32_t num_short_term_ref_pic_sets = read_ue(bs);
    if (num_short_term_ref_pic_sets > HEVC_MAX_ST_RPS) {
        EDR_LOG(kEdrError, "%s:%d ERROR: hevc Invalid number of short term reference pictures\n\n");
        return 1;
    }
    sps->i_num_short_term_ref_pic_sets = i32(num_short_term_ref_pic_sets);
    if (num_short_term_ref_pic_sets != 0) {
        sps->pps_rps_list = sps->as_rps_list;
        std::memset(static_cast<void*>(sps->as_rps_list), 0, sizeof sps->as_rps_list);
        for (uint32_t i = 0; i < num_short_term_ref_pic_sets; ++i) {
            if (!(hevc_decode_short_term_rps(bs, sps, i))) return 1;
        }
    }

    sps->b_long_term_ref_pics_present = flag(bs);
    if (sps->b_long_term_ref_pics_present) {
        const uint32_t num_long_term_ref_pics_sps = read_ue(bs);
        if (num_long_term_ref_pics_sps > kMaxLongTermSps) {
            EDR_LOG(kEdrError, "%s:%d ERROR: hevc num_long_term_ref_pics_sps %u out of range\n\n",
                    num_long_term_ref_pics_sps);
            return 1;
        }
        sps->i_num_long_term_ref_pic_sets = i32(num_long_term_ref_pics_sps);
        const auto lsb_bits = static_cast<uint32_t>(log2_max_poc_lsb > 32 ? 32 : log2_max_poc_lsb);
        for (uint32_t i = 0; i < num_long_term_ref_pics_sps; ++i) {
            sps->ai_ltrefpic_poc_lsb[i] = i32(src_read_bits(bs, lsb_bits));
            sps->ab_ltusedbycurr[i] = flag(bs);
        }
    }
    sps->b_temporal_mvp = flag(bs);
    sps->b_strong_intra_smoothing = flag(bs);
    sps->b_vui_params = flag(bs);
    if (sps->b_vui_params && !hevc_parse_vui_parameters(bs, sps, max_sub_layers_minus1)) return 1;
    if (src_read_bit(bs)) {  // sps_extension_present_flag
        EDR_LOG(kEdrDebug, "%s:%d DEBUG: hevc has %u bits in sps extension\n\n",
                static_cast<unsigned>(src_following_bit_num(bs)));
    }

    const int32_t depth = sps->i_max_cu_depth;
    const int32_t amp_depth = depth - sps->i_add_depth > 0 ? depth - sps->i_add_depth : 0;
    for (int32_t i = 0; i < depth; ++i) sps->ab_amvp[i] = i < amp_depth ? sps->b_amp : 0;

    sps->b_init = 1;
    sps->isDefined = 1;
    src_byte_align(bs);
    return 0;
}

int32_t reorder_of(const hevc_sps_t* sps) {
    int32_t layer = sps->i_max_temporal_layers - 1;
    if (layer < 0) layer = 0;
    if (layer >= HEVC_MAX_SUB_LAYERS) layer = HEVC_MAX_SUB_LAYERS - 1;
    return sps->ai_num_reorder_pics[layer];
}

// Initial delays of one HRD column for every CPB specification.
void read_initial_delays(hevc_decoder_t& dec, const hevc_sps_t* sps, int nal_vcl, bool save) {
    bbio_handle_t bs = dec.dsb;
    const hevc_vui_t& vui = sps->vui;
    const auto length = static_cast<uint32_t>(vui.i_initial_cpb_removal_delay_length);
    int32_t count = vui.as_hrd[0].i_cpb_cnt;
    if (count > HEVC_MAX_CPB) count = HEVC_MAX_CPB;
    for (int32_t k = 0; k < count; ++k) {
        const uint32_t delay = src_read_bits(bs, length);
        dec.bp.ai_initial_cpb_removal_delay[k][nal_vcl] = i16(delay);
        dec.bp.ai_initial_cpb_removal_delay_offset[k][nal_vcl] = i16(src_read_bits(bs, length));
        if (vui.b_sub_pic_cpb_params || dec.bp.b_rap_cpb_params) {
            dec.bp.ai_initial_alt_cpb_removal_delay[k][nal_vcl] = i16(src_read_bits(bs, length));
            dec.bp.ai_initial_alt_cpb_removal_delay_offset[k][nal_vcl] =
                i16(src_read_bits(bs, length));
        }
        if (!save) continue;
        if (k == 0) dec.initial_cpb_removal_delay_1st = delay;
        if (k == count - 1) dec.initial_cpb_removal_delay_last = delay;
    }
}

// H.265 D.2.2 buffering_period(). False when it is not the first message.
bool hevc_sei_buffering_period(hevc_parser_t* p, uint64_t start) {
    hevc_decoder_t& dec = p->dec;
    ++p->base.bp_num;
    dec.last_gop_size = static_cast<uint32_t>(p->base.sei_timing_num_sub);
    p->base.sei_timing_num_sub = 0;
    if (start != 0) {
        EDR_LOG_AS("hevc_parse_sei_messages", kEdrWarning,
                   "%s:%d WARNING: buffering period is not first SEI\n\n");
        return false;
    }
    bbio_handle_t bs = dec.dsb;
    uint32_t id = read_ue(bs);
    if (!is_defined(dec, id)) {
        EDR_LOG_AS("hevc_parse_sei_messages", kEdrError,
                   "%s:%d ERROR: hevc seq_parameter_set_id in SEI BP wrong\n\n");
        if (!is_defined(dec, 0)) return true;
        EDR_LOG_AS("hevc_parse_sei_messages", kEdrError,
                   "%s:%d ERROR: Assume seq_parameter_set_id = 0\n\n");
        id = 0;
    }
    hevc_sps_t* sps = dec.sps[id];
    const hevc_vui_t& vui = sps->vui;
    dec.NewBpStart = 1;
    dec.bp.i_sps_idx = static_cast<int16_t>(id);
    dec.active_sps = sps;
    const auto cpb_len = static_cast<uint32_t>(vui.i_cpb_removal_delay_length);
    const auto dpb_len = static_cast<uint32_t>(vui.i_dpb_output_delay_len);
    dec.bp.b_rap_cpb_params = 0;
    dec.bp.b_alt_cpb_params = 0;
    if (!vui.b_sub_pic_cpb_params) {
        dec.bp.b_rap_cpb_params = flag(bs);  // irap_cpb_params_present_flag
        dec.bp.b_alt_cpb_params = dec.bp.b_rap_cpb_params;
        if (dec.bp.b_rap_cpb_params) {
            dec.bp.i_cpb_delay_offset = i32(src_read_bits(bs, cpb_len));
            dec.bp.i_dpb_delay_offset = i32(src_read_bits(bs, dpb_len));
        }
    }
    dec.bp.b_concat = flag(bs);
    dec.bp.i_cpb_removal_delay_delta = i32(static_cast<uint64_t>(src_read_bits(bs, cpb_len)) + 1);
    if (vui.b_nal_hrd_parameters) read_initial_delays(dec, sps, 0, true);
    if (vui.b_vcl_hrd_parameters) read_initial_delays(dec, sps, 1, !vui.b_nal_hrd_parameters);
    return true;
}

// pic_struct to the number of field periods a picture covers (H.265 Table D.2).
uint8_t to_divisor(int32_t pic_struct) {
    switch (pic_struct) {
        case 0:
        case 3:
        case 4:
        case 7:
            return 2;
        case 5:
        case 6:
        case 8:
            return 3;
        default:
            return 1;
    }
}

// H.265 D.2.3 pic_timing(). Without a buffering period there is no SPS to
// take the field lengths from: the message is skipped and not counted.
void hevc_sei_pic_timing(hevc_parser_t* p) {
    hevc_decoder_t& dec = p->dec;
    hevc_sps_t* sps = dec.active_sps;
    if (sps == nullptr) {
        EDR_LOG_AS("hevc_parse_sei_messages", kEdrWarning,
                   "%s:%d WARNING: picture timing before buffering period skipped\n\n");
        return;
    }
    const hevc_vui_t& vui = sps->vui;
    hevc_sei_picture_timing_t& pt = dec.pic_timing;
    bbio_handle_t bs = dec.dsb;
    ++p->base.sei_timing_num;
    ++p->base.sei_timing_num_sub;
    const int32_t n = p->base.sei_timing_num;
    if (vui.b_frame_field_info) {
        pt.i_pic_struct = i32(src_read_bits(bs, 4));
        pt.i_source_scan_type = i32(src_read_bits(bs, 2));
        pt.b_duplicate = flag(bs);
    }
    if (vui.b_nal_hrd_parameters || vui.b_vcl_hrd_parameters) {
        pt.i_cpb_removal_delay =
            i32(static_cast<uint64_t>(
                    src_read_bits(bs, static_cast<uint32_t>(vui.i_cpb_removal_delay_length))) +
                1);
        pt.i_dpb_output_delay =
            i32(src_read_bits(bs, static_cast<uint32_t>(vui.i_dpb_output_delay_len)));
    }
    if (sps->CpbDpbDelaysPresentFlag) {
        dec.cpb_removal_delay = static_cast<uint32_t>(pt.i_cpb_removal_delay);
        dec.dpb_output_delay = static_cast<uint32_t>(pt.i_dpb_output_delay);
        const int32_t reorder = reorder_of(sps) & 0xFF;
        // Delays are added as signed 32-bit values; sums wrap instead of
        // overflowing on corrupt input.
        auto add = [](int64_t a, int32_t b) {
            return static_cast<int64_t>(static_cast<uint64_t>(a) +
                                        static_cast<uint64_t>(static_cast<int64_t>(b)));
        };
        int64_t t = 0;
        if (n == 1) {
            pt.i64_removal_tm_of_first_pic_in_bp = 0;
            pt.i64_au_removal_tm = 0;
        } else if (dec.NewBpStart) {
            const int64_t anchor = dec.bp.b_concat ? pt.i64_removal_tm_of_prev_non_discardable_pic
                                                   : pt.i64_removal_tm_of_first_pic_in_bp;
            t = add(anchor, pt.i_cpb_removal_delay);
            pt.i64_removal_tm_of_first_pic_in_bp = t;
            pt.i64_au_removal_tm = t;
        } else {
            t = add(pt.i64_removal_tm_of_first_pic_in_bp, pt.i_cpb_removal_delay);
            pt.i64_au_removal_tm = t;
        }
        pt.i64_removal_tm_of_prev_picture = t;
        dec.NewBpStart = 0;
        int64_t s = add(t, pt.i_dpb_output_delay);
        if (vui.b_frame_field_info) s >>= 1;
        dec.u64_dpb_output_time = static_cast<uint64_t>(add(s, -reorder)) *
                                  static_cast<uint64_t>(static_cast<int64_t>(vui.i_num_units));
        EDR_LOG_AS("hevc_parse_sei_messages", kEdrDebug,
                   "%s:%d DEBUG:      SEI[%03d] cpb_removal_delay %4u, dpb_output_delay %4u, "
                   "num_reorder_frames %d, dpb_output_time %lld (%lld)\n\n",
                   n - 1, dec.cpb_removal_delay - 1, dec.dpb_output_delay, reorder,
                   static_cast<long long>(dec.u64_dpb_output_time),
                   static_cast<long long>(vui.i_num_units == 0 || (vui.i_num_units == -1)
                                              ? 0
                                              : static_cast<int64_t>(dec.u64_dpb_output_time) /
                                                    vui.i_num_units));
        sps->UseSeiTiming = 1;
    }
    dec.delta_to_divisor = 1;
    if (vui.b_frame_field_info) {
        dec.pic_struct = static_cast<uint8_t>(pt.i_pic_struct);
        EDR_LOG_AS("hevc_parse_sei_messages", kEdrDebug, "%s:%d DEBUG:     pic_struct %u\n\n",
                   dec.pic_struct);
        dec.delta_to_divisor = to_divisor(pt.i_pic_struct);
    }
}

bool hevc_on_sei_message(void* ctx, uint32_t type, uint64_t start) {
    auto* p = static_cast<hevc_parser_t*>(ctx);
    if (type == SEI_BUFFERING_PERIOD) return hevc_sei_buffering_period(p, start);
    if (type == SEI_PIC_TIMING) hevc_sei_pic_timing(p);
    return true;
}

const hevc_sps_t* active(parser_handle_t parser) {
    return parser != nullptr ? hevc(parser)->dec.active_sps : nullptr;
}

}  // namespace

template <>
struct vesparser::ParserCodec<hevc_parser_t> {
    static constexpr parser_t kSlots = {
        .parse_sps = hevc_parse_sps,
        .parse_sei_messages = hevc_parse_sei_messages,
        .parser_get_num_reorder_frames = hevc_parser_get_num_reorder_frames,
        .parser_get_bp_num = parser_get_bp_num,
        .parser_get_sei_timing_num = parser_get_sei_timing_num,
        .parser_get_dpb_output_time = hevc_parser_get_dpb_output_time,
        .parser_get_cts_offset_ticks = hevc_parser_get_cts_offset_ticks,
        .parser_get_cts_offset_frames = hevc_parser_get_cts_offset_frames,
        .parser_get_num_units_in_tick = hevc_parser_get_num_units_in_tick,
        .parser_get_time_scale = hevc_parser_get_time_scale,
        .parser_destroy = hevc_parser_destroy,
        .parser_reset = hevc_parser_reset,
        .nal_type_aud = codecutil::hevc::kAud,
        .nal_type_sps = codecutil::hevc::kSps,
        .nal_type_sei = codecutil::hevc::kPrefixSei,
        .nal_type_slice = codecutil::hevc::kTrailN,
        .nal_type_idr = codecutil::hevc::kIdrWRadl,
        .bp_num = 0,
        .sei_timing_num = 0,
        .sei_timing_num_sub = 0,
    };
    static int init(hevc_parser_t* p, uint8_t nal_hrd, uint8_t delays) {
        return hevc_parser_init(p, nal_hrd, delays);
    }
    // The SPS slots, allocated on first use.
    static void release(hevc_parser_t* p) { free_slots(p->dec); }
    static uint8_t nal_hrd(const hevc_parser_t* p) { return p->dec.NalHrdBpPresentFlag; }
    static uint8_t delays(const hevc_parser_t* p) { return p->dec.CpbDpbDelaysPresentFlag; }
};

extern "C" {

int hevc_parser_init(hevc_parser_handle_t parser, uint8_t NalHrdBpPresentFlag,
                     uint8_t CpbDpbDelaysPresentFlag) {
    hevc_decoder_t& dec = parser->dec;
    dec.NalHrdBpPresentFlag = NalHrdBpPresentFlag;
    dec.CpbDpbDelaysPresentFlag = CpbDpbDelaysPresentFlag;
    if (dec.dsb == nullptr) {
        dec.dsb = reg_bbio_get('b', 'r');
        if (dec.dsb == nullptr) {
            std::free(parser);
            return -1;
        }
    }
    std::memset(static_cast<void*>(&dec.bp), 0, sizeof dec.bp);
    std::memset(static_cast<void*>(&dec.pic_timing), 0, sizeof dec.pic_timing);
    return 0;
}

VES_API parser_handle_t hevc_parser_create(uint8_t NalHrdBpPresentFlag,
                                           uint8_t CpbDpbDelaysPresentFlag) {
    return vesparser::create_parser<hevc_parser_t>(NalHrdBpPresentFlag, CpbDpbDelaysPresentFlag);
}

// A NAL unit shorter than start code + 2-byte header, or without payload
// bytes, is rejected (1) before anything is read.
int32_t hevc_parse_sps(uint8_t* nal_buf, int32_t nal_size, int32_t startcode_len,
                       parser_handle_t parser) {
    if (parser == nullptr) return 1;
    hevc_parser_t* p = hevc(parser);
    if (!vesparser::nal_fits(nal_buf, nal_size, startcode_len, 2)) {
        EDR_LOG(kEdrError, "%s:%d ERROR: hevc sps nal unit too short\n\n");
        return 1;
    }
    hevc_decoder_t& dec = p->dec;
    dec.nal_unit_type = (nal_buf[startcode_len] >> 1) & 0x3F;
    const uint32_t payload_len =
        static_cast<uint32_t>(nal_size) - static_cast<uint32_t>(startcode_len) - 2;
    dec.rbsp_size = vesparser::load_rbsp(
        dec.dsb, dec.rbsp_bytes, nal_buf + static_cast<uint32_t>(startcode_len) + 2, payload_len);
    EDR_LOG(kEdrDebug, "%s:%d DEBUG: nal_hdr_size %d\n\n", startcode_len + 2);
    if (dec.rbsp_size == 0) {
        EDR_LOG(kEdrError, "%s:%d ERROR: hevc sps nal unit too short\n\n");
        return 1;
    }
    return hevc_parse_sequence_parameter_set(p);
}

// A NAL unit shorter than start code + header returns -1.
int32_t hevc_parse_sei_messages(uint8_t* nal_buf, int32_t nal_size, int32_t startcode_len,
                                parser_handle_t parser) {
    if (parser == nullptr) return -1;
    hevc_parser_t* p = hevc(parser);
    if (!vesparser::nal_fits(nal_buf, nal_size, startcode_len, 2)) {
        EDR_LOG(kEdrWarning, "%s:%d WARNING: Error decoding sei message\n\n");
        return -1;
    }
    hevc_decoder_t& dec = p->dec;
    dec.nal_unit_type = (nal_buf[startcode_len] >> 1) & 0x3F;
    const vesparser::SeiNal nal{nal_buf, nal_size, startcode_len, 2};
    return vesparser::walk_sei_messages("hevc_parse_sei_messages", nal, dec.rbsp_bytes,
                                        &dec.rbsp_size, dec.dsb, hevc_on_sei_message, p);
}

VES_API int32_t hevc_parser_get_num_reorder_frames(parser_handle_t parser) {
    const hevc_sps_t* sps = active(parser);
    return sps != nullptr ? reorder_of(sps) : 0;
}

// RADL/RASL pictures (types 6 to 9) are discardable: they do not advance the
// anchor that a concatenated buffering period starts from.
VES_API uint64_t hevc_parser_get_dpb_output_time(parser_handle_t parser, uint32_t picture_type) {
    if (parser == nullptr) return 0;
    hevc_decoder_t& dec = hevc(parser)->dec;
    if (picture_type < 6 || picture_type > 9)
        dec.pic_timing.i64_removal_tm_of_prev_non_discardable_pic =
            dec.pic_timing.i64_au_removal_tm;
    return dec.u64_dpb_output_time;
}

VES_API int32_t hevc_parser_get_cts_offset_ticks(parser_handle_t parser) {
    const hevc_sps_t* sps = active(parser);
    if (sps == nullptr) return 0;
    return static_cast<int32_t>(static_cast<uint32_t>(sps->vui.i_num_units) *
                                hevc(parser)->dec.dpb_output_delay);
}

VES_API int32_t hevc_parser_get_cts_offset_frames(parser_handle_t parser) {
    const hevc_sps_t* sps = active(parser);
    if (sps == nullptr) return 0;
    const uint32_t delay = hevc(parser)->dec.dpb_output_delay;
    return static_cast<int32_t>(sps->vui.b_frame_field_info ? delay * 2 : delay);
}

VES_API int32_t hevc_parser_get_num_units_in_tick(parser_handle_t parser) {
    const hevc_sps_t* sps = active(parser);
    return sps != nullptr ? sps->vui.i_num_units : 0;
}

VES_API int32_t hevc_parser_get_time_scale(parser_handle_t parser) {
    const hevc_sps_t* sps = active(parser);
    if (sps == nullptr) return 0;
    const uint8_t divisor = hevc(parser)->dec.delta_to_divisor;
    return divisor == 0 ? 0 : sps->vui.i_time_scale / divisor;
}

void hevc_parser_reset(parser_handle_t parser) { vesparser::reset_parser<hevc_parser_t>(parser); }

void hevc_parser_destroy(parser_handle_t parser) {
    vesparser::destroy_parser<hevc_parser_t>(parser);
}

}  // extern "C"
