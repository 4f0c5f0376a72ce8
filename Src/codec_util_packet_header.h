// The 44-byte Ogg-style packet header the hardware audio decoder expects in
// front of every Vorbis and Opus packet. Fields back to back, multi-byte
// values big-endian:
//   0  syncword[16]  sync text, zero-padded
//  16  bytes         length of the packet that follows
//  20  b_o_s         beginning of stream
//  24  e_o_s         end of stream (always 0)
//  28  granulepos    (always 0)
//  36  packetno      (always 0)
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "codec_util_bytes.h"
#include "codec_util_ring.h"
#include "zarn_codec_util_priv.h"

namespace codecutil {

constexpr uint32_t kPacketHeaderSize = 44;
constexpr uint32_t kPacketSyncSize = 16;

struct OggPacketHeader_t {
    const char* syncword;  // at most 16 characters
    uint32_t bytes;
    uint32_t b_o_s;
    uint32_t e_o_s;
    uint64_t granulepos;
    uint64_t packetno;
};

constexpr std::array<uint8_t, kPacketHeaderSize> make_packet_header(const OggPacketHeader_t& h) {
    std::array<uint8_t, kPacketHeaderSize> out{};
    for (uint32_t i = 0; i < kPacketSyncSize && h.syncword[i] != '\0'; ++i)
        out[i] = static_cast<uint8_t>(h.syncword[i]);
    const std::span<uint8_t> s(out);
    put_be32(s.subspan(16), h.bytes);
    put_be32(s.subspan(20), h.b_o_s);
    put_be32(s.subspan(24), h.e_o_s);
    put_be32(s.subspan(28), static_cast<uint32_t>(h.granulepos >> 32));
    put_be32(s.subspan(32), static_cast<uint32_t>(h.granulepos));
    put_be32(s.subspan(36), static_cast<uint32_t>(h.packetno >> 32));
    put_be32(s.subspan(40), static_cast<uint32_t>(h.packetno));
    return out;
}

static_assert(make_packet_header({"gst_opus", 0x01020304, 1, 0, 0, 0})[7] == 's' &&
              make_packet_header({"gst_opus", 0x01020304, 1, 0, 0, 0})[8] == 0 &&
              make_packet_header({"gst_opus", 0x01020304, 1, 0, 0, 0})[16] == 0x01 &&
              make_packet_header({"gst_opus", 0x01020304, 1, 0, 0, 0})[19] == 0x04 &&
              make_packet_header({"gst_opus", 0x01020304, 1, 0, 0, 0})[23] == 0x01);

// The per-converter packet counters are plain ints that run for the life of
// the stream; they wrap instead of overflowing.
constexpr int next_packet_count(int n) { return static_cast<int>(static_cast<unsigned>(n) + 1u); }

// One push of a packet-header converter (record R with `packageno` and
// `getbufFunc`): emit(sink, packageno) describes the packets and returns the
// counter after them. On success the counter moves on and done() drops what
// the push consumed (pending header packets); otherwise nothing changes.
template <class R, class Emit, class Done>
zarn_uint8* write_packets(R* r, void* stream, zarn_uint32* size, Emit&& emit, Done&& done) {
    *size = 0;
    RingSpace space;
    int next = r->packageno;
    if (!write_measured(r->getbufFunc, stream, space,
                        [&](auto& sink) { next = emit(sink, r->packageno); }))
        return nullptr;
    r->packageno = next;
    done();
    *size = space.length;
    return space.first;
}

}  // namespace codecutil
