/* HEVC (H.265) SPS/SEI parser: the records behind the parser handle made by
 * hevc_parser_create. Valid C99 and C++. The functions below other than the
 * exported getters (sei_sps_parser.h) are internal to the library; the
 * records are public so that tests and tools can inspect a parser's state. */
#ifndef VESSPLITTER_HEVC_SEI_SPS_PARSER_H
#define VESSPLITTER_HEVC_SEI_SPS_PARSER_H

#include "sei_sps_parser.h"

#ifdef __cplusplus
extern "C" {
#endif

#define HEVC_MAX_SPS 16
#define HEVC_MAX_SUB_LAYERS 8
#define HEVC_MAX_RPS_PICS 16
#define HEVC_MAX_ST_RPS 64
#define HEVC_MAX_LT_PICS 33
#define HEVC_MAX_CPB 32
#define HEVC_MAX_CU_DEPTH 6
#define HEVC_RBSP_MAX 1024

typedef struct profile_tier_level_ profile_tier_level_t;
struct profile_tier_level_ {
    int32_t i_level; /* level_idc */
    int32_t i_profile_space;
    int32_t i_profile;
    BOOL b_tier;
    BOOL b_profile_compat[32];
    BOOL sub_layer_profile_present[6];
    BOOL sub_layer_level_present[6];
    profile_tier_level_t* as_sublayer_ptl[6];
    BOOL b_general_progressive_source;
    BOOL b_general_interlaced_source;
    BOOL b_general_non_packed_constraint;
    BOOL b_general_frame_only_constraint;
};

typedef struct reference_picture_set_ {
    BOOL b_inter_rps_prediction;
    int32_t i_num_pictures;
    int32_t i_num_negativePictures;
    int32_t i_num_positivePictures;
    int32_t i_num_longtermPictures;
    int32_t ai_delta_poc[HEVC_MAX_RPS_PICS]; /* negatives nearest first, then positives */
    int32_t ai_poc[HEVC_MAX_RPS_PICS];
    BOOL ab_used[HEVC_MAX_RPS_PICS];
    BOOL ab_ltmsb[HEVC_MAX_RPS_PICS];
    int32_t i_num_ref_idc;
    int32_t ai_ref_idc[HEVC_MAX_RPS_PICS + 1];
} reference_picture_set_t;

/* Per sub-layer HRD; [i][0] NAL, [i][1] VCL. Bit-rate and CPB-size values
 * are stored as coded + 1, the two DU values as coded. */
typedef struct hevc_hrd_slinfo_t_ {
    BOOL b_fixed_pic_rate;
    BOOL b_fixed_pic_rate_within_cvs;
    int32_t i_pic_duration_in_tc;
    int32_t i_elemental_duration_in_tc;
    BOOL b_low_delay_hrd;
    int32_t i_cpb_cnt;
    int32_t ai_bitrate_value[HEVC_MAX_CPB][2];
    int32_t ai_cpb_size_value[HEVC_MAX_CPB][2];
    int32_t ai_du_cpb_size_value[HEVC_MAX_CPB][2];
    int32_t ai_du_bitrate_size_value[HEVC_MAX_CPB][2];
    BOOL b_cbr[HEVC_MAX_CPB][2];
} hevc_hrd_slinfo_t;

/* H.265 E.2.1 with the HRD of E.2.2; lengths are bit counts (coded + 1). */
typedef struct hevc_vui_t_ {
    BOOL b_aspect_ratio_info;
    int32_t i_aspect_ratio_idc;
    int32_t i_sar_width;
    int32_t i_sar_height;
    BOOL b_overscan_info;
    BOOL b_overscan_appropriate;
    BOOL b_video_signal_type;
    int32_t i_video_format;
    BOOL b_video_full_range;
    BOOL b_colour_description;
    int32_t i_colour_primaries;
    int32_t i_transfer_characteristics;
    int32_t i_matrix_coefficients;
    BOOL b_chroma_location;
    int32_t i_chroma_sample_loc_top;
    int32_t i_chroma_sample_loc_bottom;
    BOOL b_neutral_chroma_indication;
    BOOL b_field_seq;
    BOOL b_hrd_parameters;
    BOOL b_bitstream_restriction;
    BOOL b_tiles_fixed_structure;
    BOOL b_motion_vectors_over_pic_bounds;
    int32_t i_max_bytes_pp_denom;
    int32_t i_max_bits_pmcu_denom;
    int32_t i_log2_max_mv_lenh;
    int32_t i_log2_max_mv_lenv;
    BOOL b_timing_info_present;
    BOOL b_vui_poc_proportional_to_timing;
    int32_t i_vui_num_ticks_poc_diff_one;
    int32_t i_num_units; /* vui_num_units_in_tick */
    int32_t i_time_scale;
    BOOL b_nal_hrd_parameters;
    BOOL b_vcl_hrd_parameters;
    BOOL b_sub_pic_cpb_params;
    int32_t i_tick_divisor;
    int32_t i_du_cpb_removal_delay_length;
    int32_t i_bitrate_scale;
    int32_t i_cpb_size_scale;
    int32_t i_du_cpb_size_scale;
    int32_t i_initial_cpb_removal_delay_length;
    BOOL b_sub_pic_cpb_params_in_pic_timing_sei;
    int32_t i_dpb_output_delay_du_length;
    int32_t i_cpb_removal_delay_length;
    int32_t i_dpb_output_delay_len;
    int32_t i_num_du;
    hevc_hrd_slinfo_t as_hrd[HEVC_MAX_SUB_LAYERS];
    BOOL b_frame_field_info;
    BOOL b_defdisp_window;
    int32_t i_min_spatial_segmentation_idc;
    BOOL b_restricted_ref_pic_lists;
} hevc_vui_t;

typedef struct cu_props_ {
    int32_t i_cu_width;
    int32_t i_cu_height;
    int32_t i_cu_depth;
} cu_props_t;

typedef struct hevc_sps_ {
    profile_tier_level_t as_protile[7]; /* [0] general, [1..6] sub-layers */
    int32_t i_profile_space;
    int32_t i_profile;
    int32_t i_level_idc;
    int32_t i_profile_compat;
    int8_t i_id;
    int8_t i_vps_id;
    int8_t i_chroma_format_idc;
    BOOL b_separate_colour_plane_flag;
    int8_t i_max_temporal_layers; /* 1 to 7 */
    int16_t i_pic_luma_width;
    int16_t i_pic_luma_height;
    int16_t i_pic_conf_win_left_offset; /* luma samples (coded x 2) */
    int16_t i_pic_conf_win_right_offset;
    int16_t i_pic_conf_win_top_offset;
    int16_t i_pic_conf_win_bottom_offset;
    int8_t i_bit_depth_luma;
    int8_t i_bit_depth_chroma;
    int8_t i_log2_max_pic_order_cnt_lsb;
    int32_t ai_max_dec_pic_buffering[HEVC_MAX_SUB_LAYERS];
    int32_t ai_num_reorder_pics[HEVC_MAX_SUB_LAYERS];
    int32_t max_latency_increase[HEVC_MAX_SUB_LAYERS];
    BOOL b_restricted_ref_pic_lists;
    BOOL b_lists_modification_present;
    int8_t i_log2_min_coding_block_size;
    int8_t i_log2_min_transform_block_size;
    int8_t i_log2_max_transform_block_size;
    int8_t i_max_transform_block_size;
    BOOL b_pcm_enabled;
    uint8_t i_pcm_bit_depth_luma;
    uint8_t i_pcm_bit_depth_chroma;
    int8_t i_min_pcm_cb_size;
    int8_t i_max_pcm_cb_size;
    int8_t i_max_transform_hierarchy_depth_inter;
    int8_t i_max_transform_hierarchy_depth_intra;
    BOOL b_scaling_list_enabled;
    BOOL b_scaling_list_present;
    BOOL b_chroma_pred_from_luma;
    BOOL b_transform_skip;
    BOOL b_deblocking_filter_in_aps;
    BOOL b_lf_across_slice;
    BOOL ab_amvp[HEVC_MAX_CU_DEPTH];
    BOOL b_amp;
    BOOL b_sao;
    BOOL b_vui_params;
    BOOL b_pcm_loop_filter_disable;
    BOOL b_temporal_id_nesting;
    BOOL b_strong_intra_smoothing;
    int32_t i_num_short_term_ref_pic_sets;
    reference_picture_set_t as_rps_list[HEVC_MAX_ST_RPS + 1];
    BOOL b_long_term_ref_pics_present;
    int32_t i_num_long_term_ref_pic_sets;
    int32_t ai_ltrefpic_poc_lsb[HEVC_MAX_LT_PICS];
    BOOL ab_ltusedbycurr[HEVC_MAX_LT_PICS];
    BOOL b_temporal_mvp;
    int8_t i_max_cu_depth;
    int16_t i_max_cu_width;
    int16_t i_max_cu_height;
    int32_t i_max_pic_order_cnt_lsb;
    int8_t i_add_depth;
    uint8_t ui8_sps_compare_sentinel;
    reference_picture_set_t* pps_rps_list;
    int32_t i_alloc_ref_pics;
    BOOL b_init;
    cu_props_t cu_props;
    hevc_vui_t vui;
    uint8_t NalHrdBpPresentFlag;
    uint8_t VclHrdBpPresentFlag;
    uint8_t CpbDpbDelaysPresentFlag;
    uint8_t UseSeiTiming;
    uint8_t isDefined;
} hevc_sps_t;

typedef struct hevc_sei_buffering_period_t_ {
    int16_t i_sps_idx;
    BOOL b_rap_cpb_params;
    BOOL b_alt_cpb_params;
    BOOL b_concat;
    int32_t i_cpb_delay_offset;
    int32_t i_dpb_delay_offset;
    int16_t ai_initial_cpb_removal_delay[HEVC_MAX_CPB][2];
    int16_t ai_initial_cpb_removal_delay_offset[HEVC_MAX_CPB][2];
    int16_t ai_initial_alt_cpb_removal_delay[HEVC_MAX_CPB][2];
    int16_t ai_initial_alt_cpb_removal_delay_offset[HEVC_MAX_CPB][2];
    int32_t i_cpb_removal_delay_delta;
    int32_t i_init_cpb_removal_delay;
    int32_t i_init_cpb_removal_delay_offset;
    int32_t i_derived_cpb_delay_offset;
    int32_t i_derived_dpb_delay_offset;
} hevc_sei_buffering_period_t;

typedef struct hevc_sei_picture_timing_t_ {
    int32_t i_pic_struct;
    int32_t i_source_scan_type;
    BOOL b_duplicate;
    int32_t i_cpb_removal_delay; /* au_cpb_removal_delay_minus1 + 1 */
    int32_t i_dpb_output_delay;
    int32_t i_dpb_output_du_delay;
    int32_t i_num_decoding_units_minus1;
    BOOL b_du_common_cpb_removal_delay;
    int32_t i_du_common_cpb_removal_delay_minus1;
    int32_t* pi_num_nalus_in_du_minus1;
    int32_t* pi_du_cpb_removal_delay_minus1;
    int64_t i64_removal_tm_of_first_pic_in_bp;
    int64_t i64_removal_tm_of_prev_non_discardable_pic;
    int64_t i64_removal_tm_of_prev_picture;
    int64_t i64_au_removal_tm;
} hevc_sei_picture_timing_t;

typedef struct hevc_decoder_t_ {
    uint8_t nal_unit_type;
    uint8_t sps_id;
    /* A slot (some 33 KB) is allocated and set to its defaults when an SPS is
     * first parsed into it, so a parser costs only what its stream uses;
     * NULL before. Slots without an SPS read as undefined. */
    hevc_sps_t* sps[HEVC_MAX_SPS];
    uint8_t NalHrdBpPresentFlag; /* what a new slot starts with */
    uint8_t CpbDpbDelaysPresentFlag;
    hevc_sps_t* active_sps;
    hevc_sps_t* active_sps_enh;
    hevc_sei_buffering_period_t bp;
    uint32_t initial_cpb_removal_delay_1st;
    uint32_t initial_cpb_removal_delay_last;
    hevc_sei_picture_timing_t pic_timing;
    uint32_t last_gop_size;
    uint32_t cpb_removal_delay;
    uint32_t dpb_output_delay;
    uint64_t u64_dpb_output_time;
    uint8_t pic_struct;
    uint8_t delta_to_divisor;
    uint8_t NewBpStart;
    uint8_t rbsp_bytes[HEVC_RBSP_MAX];
    size_t rbsp_size;
    bbio_handle_t dsb;
} hevc_decoder_t;

typedef struct hevc_parser_t_ {
    parser_t base;
    hevc_decoder_t dec;
} hevc_parser_t;
typedef struct hevc_parser_t_* hevc_parser_handle_t;

int hevc_parser_init(hevc_parser_handle_t parser, uint8_t NalHrdBpPresentFlag,
                     uint8_t CpbDpbDelaysPresentFlag);
/* 0 parsed, 1 rejected. Rejected besides the checks of the H.265 syntax: a
 * unit shorter than start code + 2-byte header or without payload bytes,
 * separate_colour_plane_flag or field_seq_flag 1 (unsupported), more than 7
 * sub-layers, more than 16 pictures in a short-term set (explicit or
 * derived), a POC delta beyond 2^15, more than 32 long-term candidates,
 * cpb_cnt_minus1 above 31, CTB above 64, transform or PCM blocks above 32,
 * a CU depth above 6. No array of the record is written past its end. */
int32_t hevc_parse_sps(uint8_t* nal_buf, int32_t nal_size, int32_t startcode_len,
                       parser_handle_t parser);
/* 0 or -1 (a unit shorter than start code + header is -1). A picture timing
 * before any buffering period is skipped and not counted; the buffering
 * period reads at most 32 CPB specifications. */
int32_t hevc_parse_sei_messages(uint8_t* nal_buf, int32_t nal_size, int32_t startcode_len,
                                parser_handle_t parser);
void hevc_parser_reset(parser_handle_t parser);
void hevc_parser_destroy(parser_handle_t parser);

#ifdef __cplusplus
}
#endif

#endif /* VESSPLITTER_HEVC_SEI_SPS_PARSER_H */
