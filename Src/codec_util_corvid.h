// The corvid decoder's 16-byte payload header, shared by the DivX 3.11,
// VC-1 simple/main, SPARK, VP6 and VP8 converters, the console byte dump of
// the DivX and VC-1 converters, and the SPARK/VP6 pass-through converter.
//
// Payload header (multi-byte values big-endian):
//   0  00 00 01     start-code prefix
//   3  scode_type   0x31 sequence/configuration payload, 0x32 frame payload
//   4  L[23:16]
//   5  L[15:8]
//   6  'N'
//   7  L[7:0]       L = payload bytes + 12 (header bytes 4..15); low 24 bits
//   8  CodecID
//   9  0x01         version
//   10 width        low 16 bits
//   12 'X'
//   13 height       low 16 bits
//   15 'P'
#pragma once

#include <pthread.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <span>

#include "codec_util_bytes.h"
#include "codec_util_converter.h"
#include "codec_util_ring.h"

namespace codecutil {

inline constexpr uint32_t kPayloadHeaderSize = 16;
using PayloadHeader = std::array<uint8_t, kPayloadHeaderSize>;

inline constexpr uint8_t kScodeSequence = 0x31;  // sequence or configuration payload
inline constexpr uint8_t kScodeFrame = 0x32;     // frame payload

inline constexpr uint8_t kCodecIdVc1Simple = 0x10;  // also complex and any non-main profile
inline constexpr uint8_t kCodecIdVc1Main = 0x11;
inline constexpr uint8_t kCodecIdVp6 = 0x36;  // '6'; VP8 uses the same value
inline constexpr uint8_t kCodecIdVp8 = 0x36;
inline constexpr uint8_t kCodecIdDivx311 = 0x38;  // '8'
inline constexpr uint8_t kCodecIdSpark = 0x39;    // '9'

// Stores L = payload_size + 12, truncated to 24 bits, around the 'N' byte.
constexpr void put_payload_length(std::span<uint8_t> header, uint64_t payload_size) {
    const auto l = static_cast<uint32_t>((payload_size + 12) & 0xFFFFFF);
    header[4] = static_cast<uint8_t>(l >> 16);
    header[5] = static_cast<uint8_t>(l >> 8);
    header[7] = static_cast<uint8_t>(l);
}

// Width and height keep their low 16 bits.
constexpr PayloadHeader make_payload_header(uint8_t scode_type, uint8_t codec_id, uint32_t width,
                                            uint32_t height, uint64_t payload_size) {
    PayloadHeader h{};
    h[2] = 0x01;
    h[3] = scode_type;
    h[6] = 'N';
    put_payload_length(h, payload_size);
    h[8] = codec_id;
    h[9] = 0x01;  // version
    put_be16(std::span(h).subspan(10, 2), width & 0xFFFF);
    h[12] = 'X';
    put_be16(std::span(h).subspan(13, 2), height & 0xFFFF);
    h[15] = 'P';
    return h;
}

static_assert(make_payload_header(kScodeFrame, kCodecIdDivx311, 720, 576, 1000) ==
              PayloadHeader{0x00, 0x00, 0x01, 0x32, 0x00, 0x03, 0x4E, 0xF4, 0x38, 0x01, 0x02, 0xD0,
                            0x58, 0x02, 0x40, 0x50});
// L truncated to 24 bits, width and height to 16.
static_assert(make_payload_header(kScodeSequence, kCodecIdSpark, 0x12345, 0xFFFF0001,
                                  (1u << 24) - 12 + 7) ==
              PayloadHeader{0x00, 0x00, 0x01, 0x31, 0x00, 0x00, 0x4E, 0x07, 0x39, 0x01, 0x23, 0x45,
                            0x58, 0x00, 0x01, 0x50});

// Console byte dump. Runs only when the log category exists and its own
// threshold is above ZARN_LEVEL_DEBUG; the threshold is read once under the
// category's catLock, which is held for nothing else. Before the first
// Zarn_CodecUtil_Create (codec_util_debug still NULL) there is no category
// threshold to consult and no lock to take, so the dump writes nothing.
// The bytes of all runs go to stderr as "%02x " between the two banner lines.
inline void dump_byte_runs(std::initializer_list<std::span<const uint8_t>> runs, const char* file,
                           const char* function, int line) {
    ZarnDebugCategory* const category = codec_util_debug;
    if (category == nullptr) return;
    pthread_mutex_lock(&category->catLock);
    const int threshold = category->threshold;
    pthread_mutex_unlock(&category->catLock);
    if (threshold <= ZARN_LEVEL_DEBUG) return;
    if (CODEC_UTIL_LOG_THRESHOLD() >= ZARN_LEVEL_LOG)
        zarn_debug_log(category, ZARN_LEVEL_LOG, file, function, line,
                       "Dump the data to screen.\n@@@@@@@@   ====================  @@@@@@@@");
    for (const auto run : runs)
        for (const uint8_t b : run) std::fprintf(stderr, "%02x ", b);
    if (CODEC_UTIL_LOG_THRESHOLD() >= ZARN_LEVEL_LOG)
        zarn_debug_dump(category, ZARN_LEVEL_LOG, "\n@@@@@@@@   =========End========  @@@@@@@@");
}

#define CODEC_UTIL_DUMP_BYTES(bytes, count)                                                       \
    ::codecutil::dump_byte_runs({std::span<const uint8_t>((bytes), (count))}, __FILE__, __func__, \
                                __LINE__)

// ---------------------------------------------------------------------------
// SPARK and VP6: frames pass unchanged behind payload headers. The record
// (CodecUtil_Spark_t / CodecUtil_VP6_t) is
//   base, is_first_frame, header (16-byte store), needed_start_code
// and takes no get-buffer function: space always comes from the HAL port.
//
// Output: first push after set_param: configuration header (0x31, L = 12,
// no payload), frame header (0x32), frame; later pushes: frame header, frame.

// set_param: the store starts as the configuration header. NULL parameters
// or a failed allocation: FALSE, no store, check_conv FALSE.
template <class R, class P, uint8_t kCodecId>
zarn_bool passthrough_set_param(CodecUtilBase_t* base, void* param) {
    R* r = record_of<R>(base);
    r->needed_start_code = FALSE;
    r->is_first_frame = TRUE;
    if (r->header != nullptr) codec_util_free(base, r->header);
    r->header = nullptr;
    const auto* p = static_cast<const P*>(param);
    if (p == nullptr) return FALSE;
    auto* header = static_cast<zarn_uint8*>(codec_util_malloc(base, kPayloadHeaderSize));
    if (header == nullptr) return FALSE;
    const PayloadHeader config =
        make_payload_header(kScodeSequence, kCodecId, static_cast<uint32_t>(p->width),
                            static_cast<uint32_t>(p->height), 0);
    std::memcpy(header, config.data(), config.size());
    r->header = header;
    r->needed_start_code = TRUE;
    return TRUE;
}

// Results:
//   no store (no successful set_param)    NULL, *size untouched
//   no ring space, or length past 32 bits NULL, *size untouched; the
//                                         configuration header stays pending
//   converted                             space, *size = output length
template <class R>
zarn_uint8* passthrough_push(CodecUtilBase_t* base, void* stream, CodecUtilBuffer_t* buffer,
                             zarn_uint32* size) {
    R* r = record_of<R>(base);
    if (r->header == nullptr) return nullptr;
    // The stored configuration header; the frame's differs in its start code
    // and length.
    const std::span<const uint8_t> config(r->header, kPayloadHeaderSize);
    PayloadHeader frame{};
    std::memcpy(frame.data(), config.data(), kPayloadHeaderSize);
    frame[3] = kScodeFrame;
    put_payload_length(frame, buffer->size);
    const bool first = r->is_first_frame != FALSE;
    RingSpace space;
    if (!write_measured(nullptr, stream, space, [&](auto& out) {
            if (first) out.write(config);
            out.write(frame);
            out.write(buffer->data, buffer->size);
        }))
        return nullptr;
    r->is_first_frame = FALSE;
    *size = space.length;
    return space.first;
}

// A pass-through converter (SPARK, VP6): takes no get-buffer function.
template <class R, class P, uint8_t kCodecId>
inline constexpr ConverterOps kPassthroughOps = {
    .destroy = destroy_with_header<R>,
    .set_param = passthrough_set_param<R, P, kCodecId>,
    .check_conv = return_needed_start_code<R>,
    .conv_push_buffer = passthrough_push<R>,
    .set_getbuf_func = nullptr,
};

}  // namespace codecutil
