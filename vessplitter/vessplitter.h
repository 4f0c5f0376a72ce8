/* Dual-layer EDR video splitter and its double-mapped input ring. Valid C99
 * and C++.
 *
 * The splitter takes an AVC or HEVC elementary stream in which base-layer,
 * enhancement-layer (wrapped behind 0x7E 0x01) and metadata (0x7C 0x01,
 * header 0x19) NAL units are interleaved, rebuilds every unit behind an
 * Annex-B start code, gathers the base and enhancement layers into access
 * units and hands each access unit and each metadata unit to the caller's
 * output callback, synchronously, with a time stamp: the caller's for the
 * base layer and the metadata, one derived from the enhancement layer's own
 * SPS/VUI and buffering-period/picture-timing SEI for the enhancement layer.
 *
 * Input is either a start-code byte stream pushed in pieces of any size
 * (gathered in the ring across pushes), or, after ves_split_set_codec_data,
 * whole length-prefixed NAL units per push, processed where they lie. Both
 * forms are rewritten in place: length prefixes become start codes and
 * wrapped units lose their two wrapper bytes, so a pushed buffer is not
 * constant.
 *
 * Diagnostics go to edr_debug_file by edr_debug_level (levels 0 to 3), every
 * line beginning with the function name and source line. A splitter is used
 * by one thread at a time; the debug settings, the device registry and the
 * enhancement layer's clock are process-wide. */
#ifndef VESSPLITTER_VESSPLITTER_H
#define VESSPLITTER_VESSPLITTER_H

#include <stdint.h>
#include <stdio.h>

#include "sei_sps_parser.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Mirror buffer ------------------------------------------------------
 * A byte ring whose storage is mapped twice, back to back: the bytes at
 * start + i and start + size + i are the same memory, so the len unconsumed
 * bytes always lie contiguous at start + read and size bytes can be written
 * contiguously at start + write. All-zero means no ring is held. */
struct mirror_buffer {
    void* start;  /* 2 x size bytes of address space, or NULL */
    int size;     /* capacity, a whole number of pages */
    int read;     /* oldest unconsumed byte, 0 <= read < size */
    int write;    /* next byte appended, (read + len) mod size */
    int len;      /* unconsumed bytes, 0 <= len <= size */
    uint64_t pos; /* bytes consumed since allocation: stream offset of read */
};

/* Maps a new ring of at least size bytes (rounded up to whole pages) into buf
 * without releasing what buf may hold. Returns the capacity, or -1 with
 * "mmap %d bytes failed %d" (no memory file or address range; also for a
 * size below 1 or a mapping beyond INT_MAX bytes) or "remap failed on addr
 * %p" (the two views could not be placed), buf untouched. */
VES_API int mirror_buffer_alloc(struct mirror_buffer* buf, int size);
/* Unmaps the ring and zeroes buf; harmless on a zeroed structure or NULL. */
VES_API void mirror_buffer_free(struct mirror_buffer* buf);
/* Copies len bytes in at write with one copy; the caller guarantees that
 * buf->len + len <= buf->size. Returns the new len (len <= 0 adds nothing). */
VES_API int mirror_buffer_append(struct mirror_buffer* buf, void* data, int len);
/* The first len unconsumed bytes, or NULL when fewer are held. */
VES_API void* mirror_buffer_peek(struct mirror_buffer* buf, int len);
/* Consumes len bytes and returns them (readable until later appends
 * overwrite them), or NULL with nothing changed when fewer are held or len
 * is negative. */
VES_API void* mirror_buffer_flush(struct mirror_buffer* buf, int len);
/* Moves the content into a ring of size bytes (whole pages), keeping pos;
 * shrinking below len keeps the oldest bytes. Returns the capacity (at once
 * when it is unchanged), or -1 with the old ring intact. */
VES_API int mirror_buffer_relloc(struct mirror_buffer* buf, int size);

/* ---- Splitter -------------------------------------------------------- */

enum ves_codec { VES_AVC = 0, VES_HEVC = 1 };

/* Layer index; names "IN", "BL", "EL", "MD". */
enum ves_type { VES_MIX = 0, VES_BL = 1, VES_EL = 2, VES_MD = 3 };
#define VES_TYPE_NUM 4

/* data is valid only during the call; a non-zero result is an error that
 * the push returns to its caller. */
typedef int (*pfn_ves_output)(void* param, enum ves_type type, void* data, int len, uint64_t pts);

typedef struct _timestamp_s_ {
    uint64_t time_val;
    uint32_t time_scale;
} timestamp_t;

struct ves_layer_param {
    int layer_present;      /* output delivered to the callback */
    void* buf;              /* access unit being gathered; owned */
    int len;                /* bytes gathered */
    int size;               /* capacity of buf */
    uint64_t original_pts;  /* caller's time stamp of the access unit */
    uint64_t derived_pts;   /* enhancement layer: derived time stamp, 0 if none */
    parser_handle_t parser; /* base and enhancement layers only */
    int64_t idr_dts;        /* enhancement layer: decoding time of the anchor IDR */
    uint64_t idr_pts;       /* caller's time stamp of the last base-layer IDR */
    uint64_t abs_idr_pts;   /* enhancement layer: DPB output time of the anchor, ticks */
    uint32_t dec_delay;     /* enhancement layer: decoding delay, ticks */
    uint32_t time_scale;    /* units per second of the caller's time stamps */
    timestamp_t pts;        /* unused */
    int sps_valid;          /* an SPS of this layer has been parsed */
};

struct ves_splitter {
    enum ves_codec codec_type;
    int is_ts_stream; /* access units delimited by access-unit delimiters */
    FILE* dump_files[VES_TYPE_NUM];
    uint64_t dump_pos[VES_TYPE_NUM];
    struct mirror_buffer buf; /* start-code input */
    pfn_ves_output output;
    void* param;
    uint64_t remain_pts; /* time stamp of the input held from an earlier push */
    int f_idr_aligned;   /* base-layer IDR not yet matched by an EL IDR */
    struct ves_layer_param layers[VES_TYPE_NUM];
    int single_track;           /* base or enhancement layer switched off */
    uint8_t* sps_pps_nal_units; /* length-prefixed parameter sets; owned */
    int sps_pps_nal_units_size; /* bytes still to be sent; 0 once sent */
    int nal_length_size;        /* 1 to 4, or 0 for start-code input */
    /* Scan bookkeeping of start-code input, so that small pushes do not
     * rescan what is held: when scan_pending is set, the ring's first byte
     * begins a unit whose start code is scan_prefix bytes long, the scan
     * cursor stands scan_cursor bytes in, and no start code begins before
     * scan_search (past that unit's own). */
    int scan_pending;
    int scan_prefix;
    int scan_cursor;
    int scan_search;
    /* Set when the output callback failed inside a push; see ves_split_push. */
    int failed;
};

/* A new splitter (codec_type 1 is HEVC, anything else AVC), or NULL when
 * the object, its 2 MiB input ring or either parser cannot be made.
 * Reads "EDR_DUMP_IN", "EDR_DUMP_BL", "EDR_DUMP_EL", "EDR_DUMP_MD" (dump
 * files, opened "wb"), "EDR_DEBUG_LEVEL" and "EDR_DEBUG_FILE" (standard
 * output when unset); resets and fills the I/O device registry. */
VES_API void* ves_split_init(int codec_type, pfn_ves_output output, void* param, int is_ts_stream);

/* Stores the parameter sets of an AVC or HEVC decoder configuration record
 * (ISO/IEC 14496-15) as length-prefixed units to be sent ahead of the next
 * push, and switches the input to length-prefixed units of the record's
 * lengthSizeMinusOne + 1 bytes. Replaces an earlier record.
 *
 * | codec_data == NULL or len < 1            | 0, nothing changed          |
 * | record parsed                            | 0                           |
 * | AVC len < 5, HEVC len < 22               | -1, "invalid ... codec_data"|
 * | a unit, or a count or length field,      | -1, "wrong ... codec data"  |
 * |   running past len                       |                             |
 * | out of memory, s == NULL                 | -1                          |
 *
 * On -1 nothing is sent later (the stored block is empty). A cut count or
 * length field reports pos = offset of the field and nalUnitLength 0; a
 * unit reports the offset of its first byte and its length. */
VES_API int ves_split_set_codec_data(void* s, void* codec_data, int len);

/* Switches delivery of one layer on or off; a layer switched off is still
 * split, tracked and dumped. single_track follows: 1 when the base or the
 * enhancement layer is off. Always 0; a type outside 0..3 changes nothing. */
VES_API int ves_split_enable_layer(void* s, enum ves_type type, int enable);

/* Pushes veslen bytes with time stamp pts; veslen 0 is the end of the stream
 * and delivers what is still gathered (vesdata may then be NULL).
 *
 * | result                | when                                             |
 * |-----------------------|--------------------------------------------------|
 * | 0                     | pushed                                           |
 * | -1                    | the ring would exceed 6 MiB or cannot grow       |
 * |                       |   (input not taken, splitter still usable);      |
 * |                       |   s NULL, veslen < 0, vesdata NULL with veslen>0;|
 * |                       |   a push after a callback error (see below)      |
 * | callback's result     | the output callback failed                       |
 * | parameter-set result  | sending the stored parameter sets failed         |
 *
 * After a callback error the held input has been partly rewritten in place
 * (prefixes, wrappers) and cannot be scanned again, so the splitter refuses
 * every push with -1 until ves_split_flush.
 *
 * Units that cannot hold what is read from them are dropped without being
 * read or rewritten beyond their end: a unit with no header byte after its
 * prefix, a wrapped unit with no header after its two wrapper bytes, and, in
 * length-prefixed input, trailing bytes too few for a length prefix (the
 * unit before them ends where its length says). A unit shorter than two
 * bytes after its prefix is never taken for a wrapper. A unit that cannot be
 * gathered (its layer's block cannot grow, or would pass INT_MAX bytes) is
 * dropped with "failed to gather"; the push goes on. */
VES_API int ves_split_push(void* s, void* vesdata, int veslen, uint64_t pts);

/* Drops held input and gathered access units and resets both parsers (for a
 * seek); configuration, dump files and the timing anchor stay. Clears a
 * callback error. Always 0. */
VES_API int ves_split_flush(void* s);

/* Closes the dump files, releases everything, and closes edr_debug_file when
 * it is not standard output (for all splitters). Always 0; NULL is ignored. */
VES_API int ves_split_free(void* s);

#ifdef __cplusplus
}
#endif

#endif /* VESSPLITTER_VESSPLITTER_H */
