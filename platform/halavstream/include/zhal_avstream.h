/* Stand-in for the platform's HAL stream service (libhalavstream.so): a
 * simulated decoder input ring per stream.
 *
 * Ring model: `capacity` bytes, a write position `wp`. Zhal_AVStream_Getbuffer
 * grants `size` bytes at `wp`; when they cross the ring's end the grant comes
 * in two pieces: the returned address holds `size - *size2` bytes up to the
 * end, and `*size2` bytes continue at `*mem2`, the ring's start. A grant
 * larger than the free space (capacity minus what the consumer has not yet
 * taken; the consumer here takes committed bytes at once, so the whole
 * capacity) is refused with NULL. A new grant replaces an uncommitted one.
 *
 * Zhal_AVStream_Append commits `size` bytes that must start at the current
 * grant and fit in it; anything else is refused (FALSE). Committed bytes go,
 * in ring order, to the stream's consumer, and `wp` moves past them.
 *
 * The control API (zhal_sim_*) is this simulation's own, for tools and tests.
 * Valid C99 and C++. */
#ifndef ZHAL_AVSTREAM_H
#define ZHAL_AVSTREAM_H

#include <stdio.h>

#include "zarn_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void* Zhal_AVStream_ptr;

/* `time_out_ms` is accepted and ignored: the simulated consumer never lags. */
zarn_uint8* Zhal_AVStream_Getbuffer(Zhal_AVStream_ptr Stream, zarn_uint32 size, zarn_uint8** mem2,
                                    zarn_uint32* size2, int time_out_ms);
zarn_bool Zhal_AVStream_Append(Zhal_AVStream_ptr Stream, void* data, zarn_uint32 size,
                               zarn_uint64 pts);

/* Consumer of committed bytes: called once or twice per commit (twice when
 * the bytes wrap), in order. */
typedef void (*zhal_sim_consumer)(void* user, const zarn_uint8* data, zarn_uint32 size,
                                  zarn_uint64 pts);

/* NULL when `capacity` is 0 or memory is short. */
Zhal_AVStream_ptr zhal_sim_stream_create(zarn_uint32 capacity);
void zhal_sim_stream_destroy(Zhal_AVStream_ptr stream);
void zhal_sim_stream_set_consumer(Zhal_AVStream_ptr stream, zhal_sim_consumer consumer, void* user);
/* Committed bytes are appended to `file` (not closed by the stream). */
void zhal_sim_stream_set_file(Zhal_AVStream_ptr stream, FILE* file);
/* Moves the write position to `offset` modulo the capacity and drops any
 * uncommitted grant; lets tests put the wrap point anywhere. */
void zhal_sim_stream_set_write_pos(Zhal_AVStream_ptr stream, zarn_uint32 offset);
zarn_uint32 zhal_sim_stream_write_pos(Zhal_AVStream_ptr stream);
/* Totals since creation. */
zarn_uint64 zhal_sim_stream_committed(Zhal_AVStream_ptr stream);
zarn_uint32 zhal_sim_stream_refused(Zhal_AVStream_ptr stream);

#ifdef __cplusplus
}
#endif

#endif
