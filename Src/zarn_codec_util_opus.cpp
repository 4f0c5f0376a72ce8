// Opus converter: every Opus packet reaches the decoder behind a 44-byte
// packet header (codec_util_packet_header.h, sync text "gst_opus"). The codec
// data, the identification header OpusHead (RFC 7845 5.1) as the container
// carries it, is copied by set_param and sent once, as a packet of its own,
// ahead of the next audio packet:
//   [packet header][OpusHead]   (first push after set_param only)
//   [packet header][Opus packet]
// The packet counter is advanced before the first header is built, so every
// header carries b_o_s 0 until the counter wraps.
//
// Results of conv_push_buffer (*size is 0 unless converted):
//   no ring space granted, or output beyond 4 GiB    NULL (codec data stays pending)
//   converted                                        space start, *size bytes written
#include <cstdint>
#include <cstring>

#include "codec_util_converter.h"
#include "codec_util_packet_header.h"
#include "codec_util_ring.h"

namespace {

using namespace codecutil;

constexpr const char* kOpusSync = "gst_opus";  // required as is

struct CodecUtil_Opus_t {
    CodecUtilBase_t base;
    zarn_uint8* DecoderSpecificInfo;  // pending codec-data copy (memory table), or NULL
    zarn_uint32 DecoderSpecificInfoSize;
    zarn_bool need_add_head;  // the copy is still to be sent
    zarn_bool need_convert;   // TRUE from creation on
    int packageno;
    CodecUtilGetBufFunc_t getbufFunc;
};

CodecUtil_Opus_t* opus(CodecUtilBase_t* base) { return record_of<CodecUtil_Opus_t>(base); }

void drop_codec_data(CodecUtil_Opus_t* r) {
    if (r->DecoderSpecificInfo != nullptr) codec_util_free(&r->base, r->DecoderSpecificInfo);
    r->DecoderSpecificInfo = nullptr;
    r->DecoderSpecificInfoSize = 0;
    r->need_add_head = FALSE;
}

// Returns TRUE, or FALSE when the copy cannot be allocated (nothing pending).
// Every call first releases a copy still pending from an earlier set_param:
// NULL `param` and a record without codec data therefore leave none pending,
// and audio packets are framed without it.
zarn_bool CodecUtil_Opus_SetParam(CodecUtilBase_t* base, void* param) {
    CodecUtil_Opus_t* r = opus(base);
    drop_codec_data(r);
    r->need_convert = TRUE;
    const auto* p = static_cast<const CodecUtilOpusParam_t*>(param);
    if (p == nullptr) {
        CODEC_UTIL_INFO("no param, so don't need do convert");  // required as is
        return TRUE;
    }
    if (p->data == nullptr || p->size == 0) return TRUE;
    auto* copy = static_cast<zarn_uint8*>(codec_util_malloc(base, p->size));
    if (copy == nullptr) return FALSE;
    std::memcpy(copy, p->data, p->size);
    r->DecoderSpecificInfo = copy;
    r->DecoderSpecificInfoSize = p->size;
    r->need_add_head = TRUE;
    return TRUE;
}

// Emits one push; measures (CountingSink) and writes (RingWriter) with the
// same code. Returns the packet counter after the push.
template <class Sink>
int emit_push(Sink& out, const CodecUtil_Opus_t* r, const CodecUtilBuffer_t* buffer,
              int packageno) {
    packageno = next_packet_count(packageno);
    auto packet = [&](const uint8_t* data, uint32_t size) {
        out.write(make_packet_header({.syncword = kOpusSync,
                                      .bytes = size,
                                      .b_o_s = packageno <= 0 ? 1u : 0u,
                                      .e_o_s = 0,
                                      .granulepos = 0,
                                      .packetno = 0}));
        out.write(data, size);
        packageno = next_packet_count(packageno);
    };
    if (r->need_add_head) packet(r->DecoderSpecificInfo, r->DecoderSpecificInfoSize);
    packet(buffer->data, buffer->size);
    return packageno;
}

zarn_uint8* CodecUtil_Opus_ConvPushBuffer(CodecUtilBase_t* base, void* stream,
                                          CodecUtilBuffer_t* buffer, zarn_uint32* size) {
    CodecUtil_Opus_t* r = opus(base);
    return write_packets(
        r, stream, size, [&](auto& sink, int n) { return emit_push(sink, r, buffer, n); },
        [&] { drop_codec_data(r); });
}

// Releases a codec-data copy still pending.
void CodecUtil_Opus_Destroy(CodecUtilBase_t* base) {
    CODEC_UTIL_TRACE("Destroy Opus CodecUtil handler");
    drop_codec_data(opus(base));
    codec_util_free(base, base);
}

}  // namespace

extern "C" CODEC_UTIL_API void CodecUtil_Opus_SetGetBufFunc(CodecUtilBase_t* base, void* func) {
    store_getbuf_func<CodecUtil_Opus_t>(base, func);
}

namespace {

constexpr ConverterOps kOpusOps = {
    .destroy = CodecUtil_Opus_Destroy,
    .set_param = CodecUtil_Opus_SetParam,
    .check_conv = return_need_convert<CodecUtil_Opus_t>,
    .conv_push_buffer = CodecUtil_Opus_ConvPushBuffer,
    .set_getbuf_func = CodecUtil_Opus_SetGetBufFunc,
};

}  // namespace

extern "C" CODEC_UTIL_API void* CodecUtil_Opus_Create(CodecUtilMemVtable_t* vtable) {
    CODEC_UTIL_TRACE("Create Opus CodecUtil handler");
    auto* r = create_converter<CodecUtil_Opus_t>(vtable, kOpusOps);
    if (r != nullptr) r->need_convert = TRUE;
    return r;
}
