// Copy into two-piece ring space: at most two block copies, one wrap.
#include "zarn_codec_util_rbuf.h"

#include <cstdint>
#include <cstring>

extern "C" CODEC_UTIL_API zarn_uint8* write2ringbuffer(zarn_uint8* start, zarn_uint8* end,
                                                       zarn_uint8* wp, zarn_uint8* data,
                                                       zarn_uint32 size) {
    if (size == 0) return wp;
    // Compare as addresses, unsigned; `wp + size` itself may lie past `end`.
    const auto room = reinterpret_cast<uintptr_t>(end) - reinterpret_cast<uintptr_t>(wp);
    if (size < room) {
        std::memcpy(wp, data, size);
        return wp + size;
    }
    if (size == room) {
        std::memcpy(wp, data, size);
        return start;
    }
    std::memcpy(wp, data, room);
    std::memcpy(start, data + room, size - room);
    return start + (size - room);
}
