/* Copy into ring space that may be split in two pieces. Valid C99 and C++. */
#ifndef ZARN_CODEC_UTIL_RBUF_H
#define ZARN_CODEC_UTIL_RBUF_H

#include "zarn_codec_util.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Copies `size` bytes of `data` at `wp`; bytes that would reach `end` (the
 * first piece's end) continue at `start` (the second piece). Returns the
 * write position after the copy, `start` when the copy ends exactly at `end`,
 * `wp` when `size` is 0. Wraps at most once and does not test that the
 * remainder fits the second piece: callers request exactly what they write. */
CODEC_UTIL_API zarn_uint8* write2ringbuffer(zarn_uint8* start, zarn_uint8* end, zarn_uint8* wp,
                                            zarn_uint8* data, zarn_uint32 size);

#ifdef __cplusplus
}
#endif

#endif
