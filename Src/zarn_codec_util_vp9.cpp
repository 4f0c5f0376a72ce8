// VP9 converter: raw VP9 frames (superframes passed whole) become an IVF
// stream: a 32-byte IVF file header ahead of the first frame after set_param,
// a 12-byte IVF frame header (size, time stamp) ahead of every frame. No
// payload header. Created only through CodecUtil_VP9_Create.
//
// The 44-byte header store:
//   0..31   IVF file header: "DKIF", version 0, header size 32, "VP90",
//           width and height as big-endian 16-bit values (the decoder's
//           layout, unlike IVF's little-endian fields), frame rate
//           little-endian, 12 zero bytes
//   32..43  IVF frame header: frame size (LE32), time stamp (LE64)
//
// Time stamps arrive in nanoseconds and are written as 90 kHz ticks
// (ns / 11111, 10^9 / 90000 truncated); 0xFFFFFFFFFFFFFFFE (no time stamp)
// is written as it is.
#include <array>
#include <cstdint>
#include <cstring>

#include "codec_util_bytes.h"
#include "codec_util_converter.h"
#include "codec_util_ring.h"
#include "codec_util_ticks.h"

namespace {

using namespace codecutil;

constexpr uint32_t kIvfFileHeaderSize = 32;
constexpr uint32_t kIvfFrameHeaderSize = 12;
constexpr uint32_t kStoreSize = kIvfFileHeaderSize + kIvfFrameHeaderSize;
constexpr uint64_t kNoTimestamp = 0xFFFFFFFFFFFFFFFEull;

using IvfFileHeader = std::array<uint8_t, kIvfFileHeaderSize>;
using IvfFrameHeader = std::array<uint8_t, kIvfFrameHeaderSize>;

constexpr IvfFileHeader make_ivf_file_header(uint32_t width, uint32_t height, uint32_t frame_rate) {
    IvfFileHeader h{'D', 'K', 'I', 'F', 0, 0, 0x20, 0x00, 'V', 'P', '9', '0'};
    put_be16(std::span(h).subspan(12, 2), width & 0xFFFF);
    put_be16(std::span(h).subspan(14, 2), height & 0xFFFF);
    put_le32(std::span(h).subspan(16, 4), frame_rate);
    return h;
}

static_assert(make_ivf_file_header(1920, 1080, 30) ==
              IvfFileHeader{0x44, 0x4B, 0x49, 0x46, 0x00, 0x00, 0x20, 0x00, 0x56, 0x50,
                            0x39, 0x30, 0x07, 0x80, 0x04, 0x38, 0x1E, 0x00, 0x00, 0x00});

constexpr uint64_t ivf_timestamp(uint64_t timestamp_ns) {
    return timestamp_ns == kNoTimestamp ? timestamp_ns : codec_util::ns_to_90khz(timestamp_ns);
}

constexpr IvfFrameHeader make_ivf_frame_header(uint32_t frame_size, uint64_t timestamp_ns) {
    IvfFrameHeader h{};
    put_le32(std::span(h).subspan(0, 4), frame_size);
    put_le64(std::span(h).subspan(4, 8), ivf_timestamp(timestamp_ns));
    return h;
}

static_assert(make_ivf_frame_header(1000, 2000000000) == IvfFrameHeader{0xE8, 0x03, 0x00, 0x00,
                                                                        0x21, 0xBF, 0x02, 0x00,
                                                                        0x00, 0x00, 0x00, 0x00});
static_assert(make_ivf_frame_header(0, kNoTimestamp) ==
              IvfFrameHeader{0, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
static_assert(ivf_timestamp(~0ull) == 0x0005E5F6EC11F8ACull);

struct CodecUtil_VP9_t {
    CodecUtilBase_t base;
    zarn_bool is_first_frame;
    zarn_uint8* header;  // kStoreSize bytes, owned
    zarn_bool needed_start_code;
    CodecUtilGetBufFunc_t getbufFunc;
    zarn_sint32 width;
    zarn_sint32 height;
};

CodecUtil_VP9_t* vp9(CodecUtilBase_t* base) { return record_of<CodecUtil_VP9_t>(base); }

// NULL parameters or a failed allocation: FALSE, no store, check_conv FALSE.
zarn_bool CodecUtil_VP9_SetParam(CodecUtilBase_t* base, void* param) {
    CodecUtil_VP9_t* r = vp9(base);
    r->is_first_frame = TRUE;
    r->needed_start_code = FALSE;
    r->width = 0;
    r->height = 0;
    if (r->header != nullptr) codec_util_free(base, r->header);
    r->header = nullptr;
    const auto* p = static_cast<const CodecUtilVP9Param_t*>(param);
    if (p == nullptr) return FALSE;
    auto* header = static_cast<zarn_uint8*>(codec_util_malloc(base, kStoreSize));
    if (header == nullptr) return FALSE;
    const IvfFileHeader file =
        make_ivf_file_header(static_cast<uint32_t>(p->width), static_cast<uint32_t>(p->height),
                             static_cast<uint32_t>(p->frameRateVal));
    std::memcpy(header, file.data(), file.size());
    std::memset(header + kIvfFileHeaderSize, 0, kIvfFrameHeaderSize);
    r->header = header;
    r->needed_start_code = TRUE;
    return TRUE;
}

// Results:
//   no store (no successful set_param)    NULL, *size untouched
//   no ring space, or length past 32 bits NULL, *size untouched; the file
//                                         header stays pending
//   converted                             space, *size = output length
zarn_uint8* CodecUtil_VP9_ConvPushBuffer(CodecUtilBase_t* base, void* stream,
                                         CodecUtilBuffer_t* buffer, zarn_uint32* size) {
    CodecUtil_VP9_t* r = vp9(base);
    if (r->header == nullptr) return nullptr;
    const IvfFrameHeader frame = make_ivf_frame_header(buffer->size, buffer->timestamp);
    std::memcpy(r->header + kIvfFileHeaderSize, frame.data(), frame.size());
    // The file header and the frame header lie side by side in the store.
    const bool first = r->is_first_frame != FALSE;
    RingSpace space;
    if (!write_measured(r->getbufFunc, stream, space, [&](auto& out) {
            if (first)
                out.write(r->header, kStoreSize);
            else
                out.write(r->header + kIvfFileHeaderSize, kIvfFrameHeaderSize);
            out.write(buffer->data, buffer->size);
        }))
        return nullptr;
    r->is_first_frame = FALSE;
    *size = space.length;
    return space.first;
}

constexpr ConverterOps kVp9Ops = {
    .destroy = destroy_with_header<CodecUtil_VP9_t>,
    .set_param = CodecUtil_VP9_SetParam,
    .check_conv = return_needed_start_code<CodecUtil_VP9_t>,
    .conv_push_buffer = CodecUtil_VP9_ConvPushBuffer,
    .set_getbuf_func = store_getbuf_func<CodecUtil_VP9_t>,
};

}  // namespace

extern "C" CODEC_UTIL_API void* CodecUtil_VP9_Create(CodecUtilMemVtable_t* vtable) {
    return create_converter<CodecUtil_VP9_t>(vtable, kVp9Ops);
}
