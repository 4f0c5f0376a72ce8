// Internals shared by the AVC and HEVC parsers: RBSP loading and the SEI
// message walk (H.264 7.3.2.3 / H.265 7.3.5: type and size in byte-run
// coding, messages until rbsp_trailing_bits).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "codec_util_lock.h"
#include "io_base.h"
#include "sei_sps_parser.h"

namespace vesparser {

// Payload bytes looked at per NAL unit (the RBSP buffers hold this much).
inline constexpr uint32_t kMaxRbsp = 1024;

// Guards the device and parser registries (registry.cpp); recursive so that
// a caller can hold it across several registry calls.
codecutil::RecursiveMutex& registry_mutex();

// The one exit point for the stream conditions that end the process.
[[noreturn]] void end_process(int status);

// True when the NAL unit holds its start code and its header: the header
// byte(s) may be read and the payload length does not wrap.
[[nodiscard]] bool nal_fits(const uint8_t* nal_buf, int32_t nal_size, int32_t startcode_len,
                            uint32_t hdr_len);

// Copies at most kMaxRbsp payload bytes into rbsp without emulation-prevention
// bytes, attaches a non-empty result to dsb and drops the reader's bit cache.
// Returns the RBSP size; an empty RBSP is not attached.
size_t load_rbsp(bbio_handle_t dsb, uint8_t* rbsp, const uint8_t* payload, uint32_t payload_len);

struct SeiNal {
    const uint8_t* nal_buf;
    int32_t nal_size;
    int32_t startcode_len;
    uint32_t hdr_len;  // NAL header bytes: 1 (AVC) or 2 (HEVC)
};

// Called for each complete message with its payload type and the RBSP offset
// of its first byte, the reader standing at the payload; false stops the
// walk with -1.
using SeiHandler = bool (*)(void* ctx, uint32_t type, uint64_t start);

// Walks the messages of one SEI NAL unit whose header is known to fit.
// Trailing zero bytes are dropped first. Returns 0 when the RBSP ends in the
// single byte 0x80 after the last message or a message was cut by the
// kMaxRbsp limit, -1 for a malformed sequence (warning under func's name).
// An empty RBSP ends the process with status 1001. A NAL unit that is only
// zero bytes after its start code returns -1.
int32_t walk_sei_messages(const char* func, const SeiNal& nal, uint8_t* rbsp, size_t* rbsp_size,
                          bbio_handle_t dsb, SeiHandler handler, void* ctx);

// What a codec's parser brings to the shared lifecycle below, as a
// specialisation for its record P (members `base`, then `dec` with the bit
// reader `dsb`):
//   static constexpr parser_t kSlots;   its slot functions and NAL types
//   static int init(P*, uint8_t nal_hrd, uint8_t delays);
//                                       set-up after the slots (frees P and
//                                       returns -1 when no reader is found)
//   static void release(P*);            what P owns besides its reader
//   static uint8_t nal_hrd(const P*), delays(const P*);
//                                       the two flags it was created with
template <class P>
struct ParserCodec;

template <class P>
parser_handle_t create_parser(uint8_t nal_hrd, uint8_t delays) {
    auto* p = static_cast<P*>(std::calloc(1, sizeof(P)));
    if (p == nullptr) return nullptr;
    p->base = ParserCodec<P>::kSlots;
    if (ParserCodec<P>::init(p, nal_hrd, delays) != 0) return nullptr;
    return &p->base;
}

// Back to the state after creation, keeping the bit reader and the flags.
template <class P>
void reset_parser(parser_handle_t parser) {
    if (parser == nullptr) return;
    auto* p = reinterpret_cast<P*>(parser);
    bbio_handle_t dsb = p->dec.dsb;
    const uint8_t nal_hrd = ParserCodec<P>::nal_hrd(p);
    const uint8_t delays = ParserCodec<P>::delays(p);
    ParserCodec<P>::release(p);
    std::memset(static_cast<void*>(p), 0, sizeof *p);
    p->base = ParserCodec<P>::kSlots;
    p->dec.dsb = dsb;
    (void)ParserCodec<P>::init(p, nal_hrd, delays);
}

template <class P>
void destroy_parser(parser_handle_t parser) {
    if (parser == nullptr) return;
    auto* p = reinterpret_cast<P*>(parser);
    if (p->dec.dsb != nullptr && p->dec.dsb->destroy != nullptr) p->dec.dsb->destroy(p->dec.dsb);
    ParserCodec<P>::release(p);
    std::free(p);
}

}  // namespace vesparser
