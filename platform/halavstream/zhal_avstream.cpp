// Simulated decoder input ring; see zhal_avstream.h for the model.
#include "zhal_avstream.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#define ZHAL_API __attribute__((visibility("default")))

namespace {

struct SimStream {
    zarn_uint8* ring;
    zarn_uint32 capacity;
    zarn_uint32 wp;
    zarn_uint8* grant;  // start of the current uncommitted grant, or NULL
    zarn_uint32 grant_size;
    zhal_sim_consumer consumer;
    void* user;
    FILE* file;
    zarn_uint64 committed;
    zarn_uint32 refused;
};

void deliver(SimStream* s, const zarn_uint8* data, zarn_uint32 size, zarn_uint64 pts) {
    if (size == 0) return;
    if (s->consumer != nullptr) s->consumer(s->user, data, size, pts);
    if (s->file != nullptr) std::fwrite(data, 1, size, s->file);
}

}  // namespace

extern "C" {

ZHAL_API zarn_uint8* Zhal_AVStream_Getbuffer(Zhal_AVStream_ptr Stream, zarn_uint32 size,
                                             zarn_uint8** mem2, zarn_uint32* size2,
                                             int time_out_ms) {
    (void)time_out_ms;
    auto* s = static_cast<SimStream*>(Stream);
    if (s == nullptr || size2 == nullptr || mem2 == nullptr) return nullptr;
    *size2 = 0;
    s->grant = nullptr;
    if (size == 0 || size > s->capacity) {
        ++s->refused;
        return nullptr;
    }
    zarn_uint32 to_end = s->capacity - s->wp;
    if (size > to_end) {
        *size2 = size - to_end;
        *mem2 = s->ring;
    }
    s->grant = s->ring + s->wp;
    s->grant_size = size;
    return s->grant;
}

ZHAL_API zarn_bool Zhal_AVStream_Append(Zhal_AVStream_ptr Stream, void* data, zarn_uint32 size,
                                        zarn_uint64 pts) {
    auto* s = static_cast<SimStream*>(Stream);
    if (s == nullptr || s->grant == nullptr || data != s->grant || size > s->grant_size)
        return FALSE;
    zarn_uint32 to_end = s->capacity - s->wp;
    if (size <= to_end) {
        deliver(s, s->ring + s->wp, size, pts);
    } else {
        deliver(s, s->ring + s->wp, to_end, pts);
        deliver(s, s->ring, size - to_end, pts);
    }
    s->wp = static_cast<zarn_uint32>((static_cast<zarn_uint64>(s->wp) + size) % s->capacity);
    s->committed += size;
    s->grant = nullptr;
    return TRUE;
}

ZHAL_API Zhal_AVStream_ptr zhal_sim_stream_create(zarn_uint32 capacity) {
    if (capacity == 0) return nullptr;
    auto* s = static_cast<SimStream*>(std::calloc(1, sizeof(SimStream)));
    if (s == nullptr) return nullptr;
    s->ring = static_cast<zarn_uint8*>(std::malloc(capacity));
    if (s->ring == nullptr) {
        std::free(s);
        return nullptr;
    }
    s->capacity = capacity;
    return s;
}

ZHAL_API void zhal_sim_stream_destroy(Zhal_AVStream_ptr stream) {
    auto* s = static_cast<SimStream*>(stream);
    if (s == nullptr) return;
    std::free(s->ring);
    std::free(s);
}

ZHAL_API void zhal_sim_stream_set_consumer(Zhal_AVStream_ptr stream, zhal_sim_consumer consumer,
                                           void* user) {
    auto* s = static_cast<SimStream*>(stream);
    if (s == nullptr) return;
    s->consumer = consumer;
    s->user = user;
}

ZHAL_API void zhal_sim_stream_set_file(Zhal_AVStream_ptr stream, FILE* file) {
    auto* s = static_cast<SimStream*>(stream);
    if (s != nullptr) s->file = file;
}

ZHAL_API void zhal_sim_stream_set_write_pos(Zhal_AVStream_ptr stream, zarn_uint32 offset) {
    auto* s = static_cast<SimStream*>(stream);
    if (s == nullptr) return;
    s->wp = offset % s->capacity;
    s->grant = nullptr;
}

ZHAL_API zarn_uint32 zhal_sim_stream_write_pos(Zhal_AVStream_ptr stream) {
    auto* s = static_cast<SimStream*>(stream);
    return s != nullptr ? s->wp : 0;
}

ZHAL_API zarn_uint64 zhal_sim_stream_committed(Zhal_AVStream_ptr stream) {
    auto* s = static_cast<SimStream*>(stream);
    return s != nullptr ? s->committed : 0;
}

ZHAL_API zarn_uint32 zhal_sim_stream_refused(Zhal_AVStream_ptr stream) {
    auto* s = static_cast<SimStream*>(stream);
    return s != nullptr ? s->refused : 0;
}

}  // extern "C"
