// VP8 converter: raw VP8 frames go to the corvid decoder as an IVF stream
// inside payload headers (CodecID '6'):
//   configuration packet: payload header 0x31 (L = 44) + 32-byte IVF file
//     header; sent after set_param and again whenever a key frame announces
//     a picture size different from the last one seen;
//   frame packet: payload header 0x32 (L = frame + 20) + 8 zero bytes + frame.
//
// The 56-byte header store holds all three slices and is patched in place:
//   0..15   payload header
//   16..23  zero (sent after each frame's payload header)
//   24..55  IVF file header: "DKIF", version 0, header-size field 0 (as the
//           decoder expects), "VP80", width and height little-endian, then
//           frame rate, time scale, frame count and reserved word all 0.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "codec_util_bytes.h"
#include "codec_util_converter.h"
#include "codec_util_corvid.h"
#include "codec_util_ring.h"

namespace {

using namespace codecutil;

constexpr uint32_t kStoreSize = 56;
constexpr uint32_t kFramePrefixSize = 24;  // payload header + 8 zero bytes
constexpr uint32_t kIvfOffset = 24;
constexpr uint32_t kIvfFileHeaderSize = 32;
// The frame-tag and key-frame start-code bytes parse_vp8_header reads.
constexpr uint32_t kKeyFrameHeaderSize = 10;

using Vp8Store = std::array<uint8_t, kStoreSize>;

// Picture size as stored in the payload header (big-endian) and the IVF file
// header (little-endian).
constexpr void put_store_size(std::span<uint8_t> store, uint32_t width, uint32_t height) {
    put_be16(store.subspan(10, 2), width & 0xFFFF);
    put_be16(store.subspan(13, 2), height & 0xFFFF);
    put_le16(store.subspan(kIvfOffset + 12, 2), width & 0xFFFF);
    put_le16(store.subspan(kIvfOffset + 14, 2), height & 0xFFFF);
}

constexpr Vp8Store make_vp8_store(uint32_t width, uint32_t height) {
    Vp8Store s{};
    const PayloadHeader h =
        make_payload_header(kScodeSequence, kCodecIdVp8, width, height, kIvfFileHeaderSize);
    for (size_t i = 0; i < h.size(); ++i) s[i] = h[i];
    constexpr uint8_t kIvf[] = {'D', 'K', 'I', 'F', 0, 0, 0, 0, 'V', 'P', '8', '0'};
    for (size_t i = 0; i < sizeof kIvf; ++i) s[kIvfOffset + i] = kIvf[i];
    put_store_size(s, width, height);
    return s;
}

static_assert([] {
    const Vp8Store s = make_vp8_store(640, 480);
    constexpr uint8_t kHead[] = {0x00, 0x00, 0x01, 0x31, 0x00, 0x00, 0x4E, 0x2C, 0x36, 0x01,
                                 0x02, 0x80, 0x58, 0x01, 0xE0, 0x50, 0,    0,    0,    0,
                                 0,    0,    0,    0,    0x44, 0x4B, 0x49, 0x46, 0x00, 0x00,
                                 0x00, 0x00, 0x56, 0x50, 0x38, 0x30, 0x80, 0x02, 0xE0, 0x01};
    for (size_t i = 0; i < sizeof kHead; ++i)
        if (s[i] != kHead[i]) return false;
    for (size_t i = sizeof kHead; i < s.size(); ++i)
        if (s[i] != 0) return false;
    return true;
}());

struct CodecUtil_VP8_t {
    CodecUtilBase_t base;
    zarn_bool is_first_frame;
    zarn_uint8* header;  // kStoreSize bytes, owned
    zarn_bool needed_start_code;
    CodecUtilGetBufFunc_t getbufFunc;
    zarn_sint32 width;
    zarn_sint32 height;
};

CodecUtil_VP8_t* vp8(CodecUtilBase_t* base) { return record_of<CodecUtil_VP8_t>(base); }

// NULL parameters or a failed allocation: FALSE, no store, check_conv FALSE.
zarn_bool CodecUtil_VP8_SetParam(CodecUtilBase_t* base, void* param) {
    CodecUtil_VP8_t* r = vp8(base);
    r->is_first_frame = TRUE;
    r->needed_start_code = FALSE;
    r->width = 0;
    r->height = 0;
    if (r->header != nullptr) codec_util_free(base, r->header);
    r->header = nullptr;
    const auto* p = static_cast<const CodecUtilVP8Param_t*>(param);
    if (p == nullptr) return FALSE;
    auto* header = static_cast<zarn_uint8*>(codec_util_malloc(base, kStoreSize));
    if (header == nullptr) return FALSE;
    const Vp8Store store =
        make_vp8_store(static_cast<uint32_t>(p->width), static_cast<uint32_t>(p->height));
    std::memcpy(header, store.data(), store.size());
    r->header = header;
    r->needed_start_code = TRUE;
    return TRUE;
}

// Key frames (RFC 6386 9.1: frame tag bit 0 clear, start code 9D 01 2A) carry
// the picture size; a new size re-arms the configuration packet. The two
// scaling bits of each 16-bit size field are dropped. Frames shorter than the
// 10 bytes of frame tag, start code and size fields are never parsed.
void parse_vp8_header(CodecUtil_VP8_t* vp8_h, const uint8_t* data, uint32_t size) {
    if (size < kKeyFrameHeaderSize) return;
    const bool key_frame = (data[0] & 0x01) == 0;  // frame tag: key_frame is 0
    if (!key_frame || data[3] != 0x9D || data[4] != 0x01 || data[5] != 0x2A) return;
    const auto w =
        static_cast<zarn_sint32>((data[6] | (data[7] << 8)) & 0x3FFF);  // horizontal_size
    const auto h = static_cast<zarn_sint32>((data[8] | (data[9] << 8)) & 0x3FFF);  // vertical_size
    if (w != vp8_h->width || h != vp8_h->height) {
        vp8_h->is_first_frame = TRUE;
        vp8_h->width = w;
        vp8_h->height = h;
    }
    CODEC_UTIL_ERROR("parse the resolution %dx%d, is_first_frame %d", w, h, vp8_h->is_first_frame);
    put_store_size(std::span(vp8_h->header, kStoreSize), static_cast<uint32_t>(w),
                   static_cast<uint32_t>(h));
}

// Results:
//   no store (no successful set_param)    NULL, *size untouched
//   no ring space, or length past 32 bits NULL, *size untouched; a pending
//                                         configuration packet stays pending
//   converted                             space, *size = output length
zarn_uint8* CodecUtil_VP8_ConvPushBuffer(CodecUtilBase_t* base, void* stream,
                                         CodecUtilBuffer_t* buffer, zarn_uint32* size) {
    CodecUtil_VP8_t* r = vp8(base);
    if (r->header == nullptr) return nullptr;
    parse_vp8_header(r, buffer->data, buffer->size);
    const std::span<const uint8_t> store(r->header, kStoreSize);
    // The configuration packet's payload header and the frame's differ only
    // in their start code and length.
    std::array<uint8_t, kPayloadHeaderSize> sequence{};
    std::memcpy(sequence.data(), store.data(), kPayloadHeaderSize);
    sequence[3] = kScodeSequence;
    put_payload_length(sequence, kIvfFileHeaderSize);
    std::array<uint8_t, kFramePrefixSize> frame{};
    std::memcpy(frame.data(), store.data(), kFramePrefixSize);
    frame[3] = kScodeFrame;
    // The 8 zero bytes behind the payload header count as payload.
    put_payload_length(frame, static_cast<uint64_t>(buffer->size) + 8);
    const bool first = r->is_first_frame != FALSE;
    RingSpace space;
    if (!write_measured(r->getbufFunc, stream, space, [&](auto& out) {
            if (first) {
                out.write(sequence);
                out.write(store.subspan(kIvfOffset, kIvfFileHeaderSize));
            }
            out.write(frame);
            out.write(buffer->data, buffer->size);
        }))
        return nullptr;
    *size = space.length;
    r->is_first_frame = FALSE;
    return space.first;
}

constexpr ConverterOps kVp8Ops = {
    .destroy = destroy_with_header<CodecUtil_VP8_t>,
    .set_param = CodecUtil_VP8_SetParam,
    .check_conv = return_needed_start_code<CodecUtil_VP8_t>,
    .conv_push_buffer = CodecUtil_VP8_ConvPushBuffer,
    .set_getbuf_func = store_getbuf_func<CodecUtil_VP8_t>,
};

}  // namespace

extern "C" CODEC_UTIL_API void* CodecUtil_VP8_Create(CodecUtilMemVtable_t* vtable) {
    return create_converter<CodecUtil_VP8_t>(vtable, kVp8Ops);
}
