/* Bit/byte I/O object and the MSB-first bit reader of the SPS/SEI parsers.
 * Valid C99 and C++.
 *
 * A bbio_t carries its own byte-level operation slots (filled by the device
 * that created it; a slot the device does not offer is NULL) and a one-byte
 * bit cache owned by the bit reader. The device's byte offset always points
 * just past the cached byte; its unconsumed bits are the low cached_bit_num
 * bits of cached_bits. Multi-byte integers are big-endian.
 *
 * The byte readers src_read_u8 .. src_read_u64 go straight to the device and
 * neither use nor change the cache: call src_byte_align after bit reads.
 * One thread uses one reader at a time. */
#ifndef VESSPLITTER_IO_BASE_H
#define VESSPLITTER_IO_BASE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define VES_API __attribute__((visibility("default")))
#else
#define VES_API
#endif

#ifndef VES_BOOL_DEFINED
#define VES_BOOL_DEFINED
typedef int BOOL; /* 0 false, non-zero true */
#endif

typedef struct bbio_t_ bbio_t;
typedef struct bbio_t_* bbio_handle_t;

struct bbio_t_ {
    char dev_type; /* 'b': memory buffer */
    char io_mode;  /* 'r' read, 'w' write, 'e' read and write */
    void (*destroy)(bbio_handle_t);
    int (*open)(bbio_handle_t, const char* dev_name);
    void (*close)(bbio_handle_t);
    int64_t (*position)(bbio_handle_t);
    /* origin 0 start, 1 current offset, 2 end of data; 0 or -1 if refused */
    int (*seek)(bbio_handle_t, int64_t offset, int origin);
    const char* (*get_path)(bbio_handle_t);
    void (*set_buffer)(bbio_handle_t, uint8_t* buf, size_t buf_size, BOOL re_al);
    uint8_t* (*get_buffer)(bbio_handle_t, size_t* data_size, size_t* buf_size);
    size_t (*write)(bbio_handle_t, const uint8_t* buf, size_t size);
    size_t (*read)(bbio_handle_t, uint8_t* buf, size_t size);
    int64_t (*size)(bbio_handle_t);
    BOOL (*is_EOD)(bbio_handle_t);
    BOOL (*is_more_byte)(bbio_handle_t);
    BOOL (*is_more_byte2)(bbio_handle_t);
    int (*skip_bytes)(bbio_handle_t, int64_t byte_num);
    uint32_t cached_bit_num; /* 0 to 8 */
    uint32_t cached_bits;    /* last fetched byte, low 8 bits */
};

/* Byte readers. A device that delivers fewer bytes than asked (end of data)
 * leaves the missing low-order bytes 0: src_read_u16 over the single byte AB
 * yields 0xAB00, over nothing 0. */
VES_API uint8_t src_read_u8(bbio_handle_t src);
VES_API uint16_t src_read_u16(bbio_handle_t src);
VES_API uint32_t src_read_u24(bbio_handle_t src);
VES_API uint32_t src_read_u32(bbio_handle_t src);
VES_API uint64_t src_read_u64(bbio_handle_t src);

/* Reads bit_num bits MSB first through the cache; bytes past the end of the
 * data read as 0. bit_num 0 returns 0 and consumes nothing. bit_num above 32
 * consumes all bit_num bits and returns the last 32 of them. */
VES_API uint32_t src_read_bits(bbio_handle_t src, uint32_t bit_num);
VES_API uint32_t src_read_bit(bbio_handle_t src);
/* Drops the rest of the partly consumed byte. */
VES_API void src_byte_align(bbio_handle_t src);
VES_API uint32_t src_bits_cached(bbio_handle_t src);
/* Whole bytes are skipped with a relative seek; a refused seek (past the
 * storage) is ignored and the offset stays where it was. */
VES_API void src_skip_bits(bbio_handle_t src, uint32_t bit_num);
/* (size - position) * 8 + cached bits. */
VES_API int64_t src_following_bit_num(bbio_handle_t src);
/* Reads bit_num bits ahead without consuming them. offset != 0 drops the
 * cache for the peek and starts offset bytes past the byte after the cached
 * one. Fewer than bit_num bits left (checked before the displacement):
 * 0xFFFFFFFF, reader unchanged. */
VES_API uint32_t src_peek_bits(bbio_handle_t src, uint32_t bit_num, int32_t offset);

#ifdef __cplusplus
}
#endif

#endif /* VESSPLITTER_IO_BASE_H */
