/* Converter API: rewrites container-style access units into the byte forms
 * the hardware decoders accept, written straight into the decoder's input
 * ring. Valid C99 and C++.
 *
 * Calling order: Zarn_CodecUtil_Create; optionally Zarn_CodecUtil_SetGetBufFunc;
 * Zarn_CodecUtil_SetParam with the stream's codec data (again whenever it
 * changes); Zarn_CodecUtil_CheckConv; Zarn_CodecUtil_ConvPushBuffer once per
 * access unit; Zarn_CodecUtil_Destroy. One thread drives one converter.
 *
 * Ownership: the caller owns its units and parameter records; a converter
 * copies what it keeps. Committing the written ring space is the caller's
 * step (Conv_Port_Stream_Append in zarn_codec_util_port.h). */
#ifndef ZARN_CODEC_UTIL_H
#define ZARN_CODEC_UTIL_H

#include <stddef.h>

#include "zarn_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define CODEC_UTIL_API __attribute__((visibility("default")))
#else
#define CODEC_UTIL_API
#endif

typedef enum {
    CODEC_UTIL_TYPE_DIVX311 = 0,
    CODEC_UTIL_TYPE_MPEG4 = 1,
    CODEC_UTIL_TYPE_H264 = 2,
    CODEC_UTIL_TYPE_VC1 = 3,
    CODEC_UTIL_TYPE_SPARK = 4,
    CODEC_UTIL_TYPE_VP6 = 5,
    CODEC_UTIL_TYPE_VP8 = 6,
    CODEC_UTIL_TYPE_AAC = 7,
    CODEC_UTIL_TYPE_VOIBIS = 8,
    CODEC_UTIL_TYPE_OPUS = 9,
    CODEC_UTIL_TYPE_H265 = 10,
    CODEC_UTIL_TYPE_VP9 = 11, /* only through CodecUtil_VP9_Create */
    CODEC_UTIL_TYPE_UNKNOWN = 12
} CodecUtilType_e;

#define CODEC_UTIL_FLAG_KEY_FRAME 1u

/* One access unit as the demultiplexer delivered it. */
typedef struct {
    zarn_uint8* data;
    zarn_uint32 size;
    zarn_uint64 timestamp; /* read by the VP9 converter only */
    zarn_uint32 flag;      /* CODEC_UTIL_FLAG_KEY_FRAME; read by the VC-1 converter only */
} CodecUtilBuffer_t;

/* The caller's memory table, copied at creation. The converters call malloc,
 * realloc and free; a constructor refuses a table whose malloc or free is
 * NULL (see Zarn_CodecUtil_Create). */
typedef struct {
    void* (*malloc)(size_t size);
    void* (*realloc)(void* mem, size_t size);
    void (*free)(void* mem);
    void* (*calloc)(size_t count, size_t size);
    void* (*try_malloc)(size_t size);
    void* (*try_realloc)(void* mem, size_t size);
    void* (*memalign)(size_t alignment, size_t size);
} CodecUtilMemVtable_t;

/* Caller-supplied ring space: `size` bytes for `stream`, returned as a first
 * piece at the result (size - *size2 bytes) and, when *size2 is not 0, a
 * second piece of *size2 bytes at *mem2. NULL when no space is available.
 * Must always write *size2. */
typedef zarn_uint8* (*CodecUtilGetBufFunc_t)(void* stream, zarn_uint32 size, zarn_uint8** mem2,
                                             zarn_uint32* size2);

/* Parameter records, one per codec. Blob fields point at caller-owned bytes. */
typedef struct {
    zarn_uint8* data; /* AVC or HEVC decoder configuration record */
    zarn_uint32 size;
} CodecUtilH264Param_t;

typedef struct {
    zarn_uint8* data; /* decoder-specific info (VOS/VO/VOL headers) */
    zarn_uint32 size;
} CodecUtilMPEG4Param_t;

typedef struct {
    zarn_uint8* data; /* AudioSpecificConfig */
    zarn_uint32 size;
} CodecUtilAACParam_t;

typedef struct {
    zarn_sint32 width;
    zarn_sint32 height;
    zarn_sint32 frameNum;
    zarn_sint32 bitRate;
    zarn_uint32* fourcc;
    zarn_sint32 frameRate;
    CodecUtilBuffer_t codecData;
} CodecUtilVC1Param_t;

typedef struct {
    zarn_sint32 width;
    zarn_sint32 height;
} CodecUtilAVIParam_t;

typedef struct {
    zarn_sint32 width;
    zarn_sint32 height;
} CodecUtilSparkParam_t;

typedef struct {
    zarn_sint32 width;
    zarn_sint32 height;
} CodecUtilVP6Param_t;

typedef struct {
    zarn_sint32 width;
    zarn_sint32 height;
} CodecUtilVP8Param_t;

typedef struct {
    zarn_sint32 width;
    zarn_sint32 height;
    zarn_sint32 frameRateVal;
} CodecUtilVP9Param_t;

typedef struct {
    zarn_uint8* codecdata; /* Xiph-laced identification, comment and setup headers */
    zarn_uint32 codecdata_size;
    void* reserve1;
    void* reserve2;
    void* reserve3;
} CodecUtilVorbisParam_t;

typedef struct {
    zarn_uint8* data; /* Opus identification header */
    zarn_uint32 size;
} CodecUtilOpusParam_t;

/* Creates the converter for `type` (CODEC_UTIL_TYPE_DIVX311 to _H265) with
 * `vtable` (NULL: the standard allocator). Creates the log category on first
 * use, whatever `type` is.
 * Returns the handle, or NULL for VP9, UNKNOWN, any other value, or a failed
 * allocation, or a table whose malloc or free entry is NULL. */
CODEC_UTIL_API void* Zarn_CodecUtil_Create(CodecUtilType_e type, CodecUtilMemVtable_t* vtable);

/* Frees the converter and everything it owns. NULL: nothing. */
CODEC_UTIL_API void Zarn_CodecUtil_Destroy(void* handle);

/* Hands over the codec data (`param` points at the codec's parameter record,
 * or NULL to clear it). NULL handle: FALSE. Otherwise the converter's result. */
CODEC_UTIL_API zarn_bool Zarn_CodecUtil_SetParam(void* handle, void* param);

/* TRUE when units need converting. NULL handle: FALSE. */
CODEC_UTIL_API zarn_bool Zarn_CodecUtil_CheckConv(void* handle);

/* Installs a CodecUtilGetBufFunc_t (NULL: back to the HAL port). NULL handle,
 * or a converter that takes none: nothing. */
CODEC_UTIL_API void Zarn_CodecUtil_SetGetBufFunc(void* handle, void* func);

/* Converts one unit into ring space for `stream`.
 *   handle, stream, buffer or size NULL   NULL, *size untouched
 *   otherwise                              the converter's result: the start
 *                                          of the written space with *size
 *                                          its length, or the converter's
 *                                          decline (see each converter). */
CODEC_UTIL_API zarn_uint8* Zarn_CodecUtil_ConvPushBuffer(void* handle, void* stream,
                                                         CodecUtilBuffer_t* buffer,
                                                         zarn_uint32* size);

#ifdef __cplusplus
}
#endif

#endif
