/* AVC (H.264) SPS/SEI parser: the records behind the parser handle made by
 * avc_parser_create. Valid C99 and C++. The functions below are internal to
 * the library (reached through the parser slots); the records are public so
 * that tests and tools can inspect a parser's state. */
#ifndef VESSPLITTER_AVC_SEI_SPS_PARSER_H
#define VESSPLITTER_AVC_SEI_SPS_PARSER_H

#include "sei_sps_parser.h"

#ifdef __cplusplus
extern "C" {
#endif

#define AVC_MAX_SPS 32
#define AVC_RBSP_MAX 1024

/* One SPS slot (H.264 7.3.2.1.1, E.1.1). Syntax elements keep their names;
 * the fields from pic_width_out on are derived. */
typedef struct avc_sps_t_ {
    uint8_t profile_idc;
    uint8_t compatibility; /* constraint_set0_flag in bit 7 ... set5 in bit 2 */
    uint8_t level_idc;
    uint8_t sps_id;
    uint32_t chroma_format_idc;
    uint8_t separate_colour_plane_flag;
    uint32_t bit_depth_luma_minus8;
    uint32_t bit_depth_chroma_minus8;
    uint8_t qpprime_y_zero_transform_bypass_flag;
    uint8_t seq_scaling_matrix_present_flag;
    uint32_t log2_max_frame_num_minus4;
    uint32_t pic_order_cnt_type;
    uint32_t log2_max_pic_order_cnt_lsb_minus4;
    uint8_t delta_pic_order_always_zero_flag;
    int32_t offset_for_non_ref_pic;
    int32_t offset_for_top_to_bottom_field;
    uint8_t num_ref_frames_in_pic_order_cnt_cycle;
    int16_t offset_for_ref_frame[256];
    uint8_t max_num_ref_frames;
    uint8_t gaps_in_frame_num_value_allowed_flag;
    uint8_t frame_mbs_only_flag;
    uint8_t frame_cropping_flag;
    uint32_t frame_crop_left_offset;
    uint32_t frame_crop_right_offset;
    uint32_t frame_crop_top_offset;
    uint32_t frame_crop_bottom_offset;
    uint8_t vui_parameter_present_flag; /* kept 0 */
    uint16_t sar_width;
    uint16_t sar_height;
    uint8_t timing_info_present_flag;
    uint32_t num_units_in_tick;
    uint32_t time_scale;
    BOOL fixed_frame_rate_flag;
    uint8_t nal_hrd_parameters_present_flag;
    uint8_t vcl_hrd_parameters_present_flag;
    uint32_t cpb_cnt_minus1;
    uint8_t initial_cpb_removal_delay_length_minus1;
    uint8_t cpb_removal_delay_length_minus1;
    uint8_t dpb_output_delay_length_minus1;
    uint8_t time_offset_length;
    uint8_t low_delay_hrd_flag;
    uint8_t pic_struct_present_flag;
    uint8_t bitstream_restriction_flag;
    uint8_t num_reorder_frames;
    uint8_t max_dec_frame_buffering;
    uint8_t spsext_id;
    uint8_t aux_format_id;
    /* derived */
    uint32_t pic_width_out;
    uint32_t pic_height_out;
    uint32_t max_frame_num;
    uint32_t max_poc_lsb;
    int32_t expected_delta_per_poc_cycle;
    uint32_t pic_width;
    uint32_t pic_height;
    uint32_t bit_rate_rx; /* T-STD figures */
    uint32_t bit_rate_rbx;
    uint32_t cpb_size;
    uint32_t mb_mux_size;
    uint32_t mb_dec_size;
    uint32_t bit_rate_max; /* level limits x profile factor */
    uint32_t cpb_size_max;
    uint32_t bit_rate_1200; /* level limits x 1200 */
    uint32_t cpb_size_1200;
    uint32_t bit_rate_1st; /* retained HRD, first and last CPB specification */
    uint32_t cpb_size_1st;
    uint32_t bit_rate_last;
    uint32_t cpb_size_last;
    uint8_t NalHrdBpPresentFlag;
    uint8_t VclHrdBpPresentFlag;
    uint8_t CpbDpbDelaysPresentFlag;
    uint8_t UseSeiTiming;
    uint8_t isDefined;
} avc_sps_t;

typedef struct avc_decoder_t_ {
    uint8_t nal_unit_type;
    uint8_t sps_id;
    uint8_t sps_id_enh;
    avc_sps_t sps[AVC_MAX_SPS];
    avc_sps_t* active_sps;     /* named by the last buffering period */
    avc_sps_t* active_sps_enh; /* written by the last subset SPS */
    uint32_t initial_cpb_removal_delay_1st;
    uint32_t initial_cpb_removal_delay_last;
    uint32_t cpb_removal_delay;
    uint32_t prev_au_cpb_removal_delay;
    uint32_t dpb_output_delay;
    uint64_t u64_dpb_output_time;
    uint8_t pic_struct;
    uint8_t delta_tfi_divisor;
    int64_t i64_removal_tm_of_first_pic_in_bp;
    int64_t i64_au_removal_tm;
    uint8_t NewBpStart;
    uint8_t rbsp_bytes[AVC_RBSP_MAX];
    size_t rbsp_size;
    bbio_handle_t dsb;
} avc_decoder_t;

typedef struct avc_parser_t_ {
    parser_t base;
    avc_decoder_t dec;
} avc_parser_t;
typedef struct avc_parser_t_* avc_parser_handle_t;

int avc_parser_init(avc_parser_handle_t parser, uint8_t NalHrdBpPresentFlag,
                    uint8_t CpbDpbDelaysPresentFlag);
/* 0 parsed, 1 rejected. Rejected besides the profile/level/id checks: a unit
 * shorter than start code + header or without payload bytes, cpb_cnt_minus1
 * above 31, num_ref_frames_in_pic_order_cnt_cycle above 255. Only the first
 * 1024 payload bytes are read. */
int32_t avc_parse_sps(uint8_t* nal_buf, int32_t nal_size, int32_t startcode_len,
                      parser_handle_t parser);
/* 0 or -1 (a unit shorter than start code + header is -1). A picture timing
 * before any buffering period is skipped and not counted. */
int32_t avc_parse_sei_messages(uint8_t* nal_buf, int32_t nal_size, int32_t startcode_len,
                               parser_handle_t parser);
void avc_get_bp_params(avc_sps_t* sps, avc_decoder_t* dec, BOOL save);
int32_t avc_parser_get_num_reorder_frames(parser_handle_t parser);
uint64_t avc_parser_get_dpb_output_time(parser_handle_t parser, uint32_t picture_type);
int32_t avc_parser_get_cts_offset_ticks(parser_handle_t parser);
int32_t avc_parser_get_cts_offset_frames(parser_handle_t parser);
int32_t avc_parser_get_num_units_in_tick(parser_handle_t parser);
int32_t avc_parser_get_time_scale(parser_handle_t parser);
void avc_parser_reset(parser_handle_t parser);
void avc_parser_destroy(parser_handle_t parser);

#ifdef __cplusplus
}
#endif

#endif /* VESSPLITTER_AVC_SEI_SPS_PARSER_H */
