/* The library's only contact with the HAL stream service: both entry points
 * are bound from "libhalavstream.so" with dlopen/dlsym on first use, and the
 * binding is retried on every call until it succeeds. Valid C99 and C++. */
#ifndef ZARN_CODEC_UTIL_PORT_H
#define ZARN_CODEC_UTIL_PORT_H

#include "zarn_codec_util.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void* Zhal_AVStream_ptr;

typedef zarn_uint8* (*AVSTREAM_GETBUF_FUNC)(Zhal_AVStream_ptr Stream, zarn_uint32 size,
                                            zarn_uint8** mem2, zarn_uint32* size2, int time_out_ms);
typedef zarn_bool (*AVSTREAM_APPEND_FUNC)(Zhal_AVStream_ptr Stream, void* data, zarn_uint32 size,
                                          zarn_uint64 pts);

/* Zhal_AVStream_Getbuffer with the same arguments; NULL when it cannot be
 * bound. Space may come in two pieces (*size2 and *mem2, written by the
 * service). */
CODEC_UTIL_API zarn_uint8* Conv_Port_Stream_Getbuffer(Zhal_AVStream_ptr Stream, zarn_uint32 size,
                                                      zarn_uint8** mem2, zarn_uint32* size2,
                                                      int time_out_ms);

/* Zhal_AVStream_Append with the same arguments: commits what a converter
 * wrote. FALSE when it cannot be bound. The library never calls it itself. */
CODEC_UTIL_API zarn_bool Conv_Port_Stream_Append(Zhal_AVStream_ptr Stream, void* data,
                                                 zarn_uint32 size, zarn_uint64 pts);

#ifdef __cplusplus
}
#endif

#endif
