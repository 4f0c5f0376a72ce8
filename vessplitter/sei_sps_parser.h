/* SPS/SEI parser interface shared by the AVC and HEVC parsers, and the
 * helpers both use: Exp-Golomb reading, emulation-prevention removal, SEI
 * byte-run coding. Valid C99 and C++.
 *
 * A parser is a parser_t_ record followed by its codec's state; the handle is
 * the record's address and the caller reaches everything through the slots.
 * parse_sps returns 0 (parsed) or 1 (rejected); parse_sei_messages returns 0
 * (NAL unit ended in proper trailing bits, or was cut by the 1024-byte RBSP
 * limit) or -1 (malformed message sequence). Both take the NAL unit from its
 * start code: nal_buf[startcode_len] is the first NAL header byte and
 * nal_size counts start code, header and payload.
 *
 * Two stream conditions end the process (exit): an SEI NAL unit whose RBSP is
 * empty (status 1001), and an AVC SPS of profile 128 or 134 at a level other
 * than 40 or 41 (status 1).
 *
 * Diagnostics go to edr_debug_file (when set) by edr_debug_level: ERROR at 0,
 * WARNING at 1, DEBUG from 4. */
#ifndef VESSPLITTER_SEI_SPS_PARSER_H
#define VESSPLITTER_SEI_SPS_PARSER_H

#include <stdio.h>

#include "io_base.h"
#include "registry.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct parser_t_ parser_t;

typedef int32_t (*parser_parse_nal_t)(uint8_t* nal_buf, int32_t nal_size, int32_t startcode_len,
                                      parser_handle_t parser);

struct parser_t_ {
    parser_parse_nal_t parse_sps;
    parser_parse_nal_t parse_sei_messages;
    int32_t (*parser_get_num_reorder_frames)(parser_handle_t);
    int32_t (*parser_get_bp_num)(parser_handle_t);
    int32_t (*parser_get_sei_timing_num)(parser_handle_t);
    /* clock ticks; picture_type is the picture's NAL unit type (HEVC only) */
    uint64_t (*parser_get_dpb_output_time)(parser_handle_t, uint32_t picture_type);
    int32_t (*parser_get_cts_offset_ticks)(parser_handle_t);
    int32_t (*parser_get_cts_offset_frames)(parser_handle_t);
    int32_t (*parser_get_num_units_in_tick)(parser_handle_t);
    int32_t (*parser_get_time_scale)(parser_handle_t);
    void (*parser_destroy)(parser_handle_t);
    void (*parser_reset)(parser_handle_t);
    int nal_type_aud;
    int nal_type_sps;
    int nal_type_sei;
    int nal_type_slice;
    int nal_type_idr;
    int32_t bp_num;             /* buffering periods since creation or reset */
    int32_t sei_timing_num;     /* picture timings since creation or reset */
    int32_t sei_timing_num_sub; /* picture timings since the last buffering period */
};

typedef enum sei_msgType_t_ { SEI_BUFFERING_PERIOD = 0, SEI_PIC_TIMING = 1 } sei_msgType_t;

/* Debug settings shared by the splitter and the parsers; 0 and NULL at load.
 * Thread safety: the library reads both with atomic loads, and writes them
 * (ves_split_init, ves_split_free) with atomic stores under the debug-file
 * lock, which every diagnostic line also holds while it writes, so a file is
 * never closed under a writer. A caller may change edr_debug_level at any
 * time with an atomic store (__atomic_store_n); a caller that sets
 * edr_debug_file itself does so before any thread uses a splitter or a
 * parser, and closes it only after they are done. */
extern VES_API int edr_debug_level;
extern VES_API FILE* edr_debug_file;

/* ue(v). A code with more than 31 leading zero bits, or one cut off by the
 * end of the RBSP (no marker bit left), yields 0xFFFFFFFF, a value no valid
 * code has; the reader is then past the code or at the end of the RBSP. */
VES_API uint32_t read_ue(bbio_handle_t bs);
VES_API uint32_t src_read_ue(bbio_handle_t bs);
/* se(v): ue 0, 1, 2, 3, 4 map to 0, 1, -1, 2, -2 (ue 0xFFFFFFFF to INT32_MIN). */
VES_API int32_t read_se(bbio_handle_t bs);
/* Reads count bits that must be 0; a non-zero value is only reported. */
VES_API void read_0_bits(bbio_handle_t bs, int count);
/* Copies src into dst without emulation-prevention bytes (00 00 03 -> 00 00,
 * whatever follows); dst must hold srclen bytes. *dstlen gets the output
 * length (never more than srclen). */
VES_API void parser_remove_0x03(uint8_t* dst, size_t* dstlen, const uint8_t* src,
                                const size_t srclen);
/* One SEI payload type or size in byte-run coding (FF FF 05 = 515); *size
 * gets the bytes it occupied. */
VES_API uint32_t read_sei_tv(bbio_handle_t ds, uint32_t* size);
/* H.264 name of an SEI payload type; "not care" above 18. */
VES_API const char* get_sei_payloadType_dscr(uint8_t type);
/* bp_num and sei_timing_num; 0 for a NULL handle. */
VES_API int32_t parser_get_bp_num(parser_handle_t parser);
VES_API int32_t parser_get_sei_timing_num(parser_handle_t parser);
/* Empties the device registry and registers the memory-buffer device; needed
 * before a parser is created (creation fails without a buffer device). */
VES_API void parser_env_init(void);

/* NalHrdBpPresentFlag and CpbDpbDelaysPresentFlag are the values every SPS
 * slot starts with (an SPS with HRD parameters sets them); the splitter
 * passes 1, 1. NULL when out of memory or no buffer device is registered. */
VES_API parser_handle_t avc_parser_create(uint8_t NalHrdBpPresentFlag,
                                          uint8_t CpbDpbDelaysPresentFlag);
VES_API parser_handle_t hevc_parser_create(uint8_t NalHrdBpPresentFlag,
                                           uint8_t CpbDpbDelaysPresentFlag);

/* HEVC timing getters (also the parser's slots 3 and 6 to 10); 0 for a NULL
 * handle and, except the DPB output time, before the first buffering period. */
VES_API int32_t hevc_parser_get_num_reorder_frames(parser_handle_t parser);
VES_API uint64_t hevc_parser_get_dpb_output_time(parser_handle_t parser, uint32_t picture_type);
VES_API int32_t hevc_parser_get_cts_offset_ticks(parser_handle_t parser);
VES_API int32_t hevc_parser_get_cts_offset_frames(parser_handle_t parser);
VES_API int32_t hevc_parser_get_num_units_in_tick(parser_handle_t parser);
VES_API int32_t hevc_parser_get_time_scale(parser_handle_t parser);

#ifdef __cplusplus
}
#endif

#endif /* VESSPLITTER_SEI_SPS_PARSER_H */
