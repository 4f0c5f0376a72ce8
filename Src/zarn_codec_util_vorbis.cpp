// Vorbis converter: every Vorbis packet reaches the decoder behind a 44-byte
// packet header (codec_util_packet_header.h, sync text "gstvorbis"). The
// three header packets (identification, comment, setup; Vorbis I 4.2) come
// packed as codec data:
//   [n = packets - 1][n sizes, Xiph-laced: bytes summed up to and including
//   the first below 255][packets back to back, the last taking the rest]
// set_param splits the codec data; the first push after it writes each
// header packet behind its own packet header ahead of the audio packet.
// Only the first packet a converter ever writes has b_o_s 1.
//
// The header packets are read from the caller's codec data at that push, so
// the caller keeps it valid until then; only their sizes are stored, in a
// table from the converter's memory table.
//
// Results of conv_push_buffer (*size is 0 unless converted):
//   no set_param with a record yet                   NULL
//   no ring space granted, or output beyond 4 GiB    NULL (headers stay pending)
//   converted                                        space start, *size bytes written
#include <cstdint>
#include <type_traits>

#include "codec_util_converter.h"
#include "codec_util_packet_header.h"
#include "codec_util_ring.h"

namespace {

using namespace codecutil;

constexpr const char* kVorbisSync = "gstvorbis";  // required as is

struct CodecUtil_Vorbis_t {
    CodecUtilBase_t base;
    zarn_bool need_convert;
    zarn_sint32 hdr_frame_num;     // header packets pending; 0 once sent
    zarn_uint32* hdr_frame_size;   // hdr_frame_num sizes (memory table), or NULL
    zarn_sint32 hdr_frame_offset;  // first header packet in vorbisParam.codecdata
    CodecUtilVorbisParam_t vorbisParam;
    int packageno;  // packets written since creation
    CodecUtilGetBufFunc_t getbufFunc;
};

CodecUtil_Vorbis_t* vorbis(CodecUtilBase_t* base) { return record_of<CodecUtil_Vorbis_t>(base); }

void drop_header_packets(CodecUtil_Vorbis_t* r) {
    if (r->hdr_frame_size != nullptr) codec_util_free(&r->base, r->hdr_frame_size);
    r->hdr_frame_size = nullptr;
    r->hdr_frame_num = 0;
    r->hdr_frame_offset = 0;
}

// Splits vorbisParam.codecdata into its header packets. False only when the
// size table cannot be allocated; a malformed blob logs the parse error and
// leaves no header packets pending.
bool parse_codec_data(CodecUtil_Vorbis_t* r) {
    const uint8_t* const data = r->vorbisParam.codecdata;
    const uint32_t total = r->vorbisParam.codecdata_size;
    const uint32_t laced = data[0];  // packet count - 1
    auto* sizes =
        static_cast<zarn_uint32*>(codec_util_malloc(&r->base, (laced + 1) * sizeof(zarn_uint32)));
    if (sizes == nullptr) return false;
    uint32_t pos = 1;
    uint64_t sum = 0;
    bool ok = true;
    for (uint32_t i = 0; i < laced && ok; ++i) {
        uint64_t size = 0;
        while (pos < total) {
            const uint8_t b = data[pos++];
            size += b;
            if (b < 255) break;
        }
        // A size past the blob fails the check below anyway; stopping here
        // keeps it within 32 bits.
        ok = size <= total;
        sizes[i] = static_cast<zarn_uint32>(size);
        sum += size;
    }
    ok = ok && pos + sum <= total;
    if (ok) {
        sizes[laced] = static_cast<zarn_uint32>(total - pos - sum);
        uint64_t at = pos;
        for (uint32_t i = 0; i <= laced && ok; ++i) {
            ok = at + sizes[i] <= total;
            if (ok)
                CODEC_UTIL_ERROR(
                    "hdr_frame_num:%d, frame_size:%d, codecData_size:%d",  // required as is
                    static_cast<int>(laced + 1), static_cast<int>(sizes[i]),
                    static_cast<int>(total));
            at += sizes[i];
        }
    }
    if (!ok) {
        CODEC_UTIL_ERROR("parse vorbis codec data error");  // required as is
        codec_util_free(&r->base, sizes);
        return true;
    }
    r->hdr_frame_size = sizes;
    r->hdr_frame_num = static_cast<zarn_sint32>(laced + 1);
    r->hdr_frame_offset = static_cast<zarn_sint32>(pos);
    return true;
}

// Returns TRUE, or FALSE when the size table of the header packets cannot be
// allocated (the record is kept and audio packets are framed, but no header
// packets are pending).
// Header packets still pending from an earlier set_param are released first,
// whatever the new record holds: a record without codec data (NULL or size 0)
// therefore leaves none pending, since the earlier codec data they would be
// read from belongs to a record the caller has replaced.
zarn_bool CodecUtil_Voibis_SetParam(CodecUtilBase_t* base, void* param) {
    CodecUtil_Vorbis_t* r = vorbis(base);
    drop_header_packets(r);
    const auto* p = static_cast<const CodecUtilVorbisParam_t*>(param);
    if (p == nullptr) {
        CODEC_UTIL_INFO("no param, so don't need do convert");  // required as is
        r->need_convert = FALSE;
        return TRUE;
    }
    r->vorbisParam = *p;
    r->need_convert = TRUE;
    if (p->codecdata == nullptr || p->codecdata_size == 0) return TRUE;
    return parse_codec_data(r) ? TRUE : FALSE;
}

// Emits one push: the pending header packets, then the audio packet, each
// behind a packet header. Measures (CountingSink) and writes (RingWriter)
// with the same code; returns the packet counter after the push.
template <class Sink>
int emit_push(Sink& out, const CodecUtil_Vorbis_t* r, const CodecUtilBuffer_t* buffer,
              int packageno) {
    constexpr bool kWriting = !std::is_same_v<Sink, CountingSink>;
    auto packet = [&](const uint8_t* data, uint32_t size) {
        out.write(make_packet_header({.syncword = kVorbisSync,
                                      .bytes = size,
                                      .b_o_s = packageno <= 0 ? 1u : 0u,
                                      .e_o_s = 0,
                                      .granulepos = 0,
                                      .packetno = 0}));
        out.write(data, size);
        packageno = next_packet_count(packageno);
    };
    // codecdata may be NULL when no header packets are pending: no offset
    // is taken from it then.
    const uint8_t* hdr =
        r->hdr_frame_num > 0 ? r->vorbisParam.codecdata + r->hdr_frame_offset : nullptr;
    for (zarn_sint32 i = 0; i < r->hdr_frame_num; ++i) {
        const uint32_t size = r->hdr_frame_size[i];
        packet(hdr, size);
        if constexpr (kWriting)
            CODEC_UTIL_ERROR("send %d hdr frame, size: %d", static_cast<int>(i),
                             static_cast<int>(size));  // required as is
        hdr += size;
    }
    packet(buffer->data, buffer->size);
    return packageno;
}

zarn_uint8* CodecUtil_Voibis_ConvPushBuffer(CodecUtilBase_t* base, void* stream,
                                            CodecUtilBuffer_t* buffer, zarn_uint32* size) {
    CodecUtil_Vorbis_t* r = vorbis(base);
    if (!r->need_convert) {
        *size = 0;
        return nullptr;
    }
    return write_packets(
        r, stream, size, [&](auto& sink, int n) { return emit_push(sink, r, buffer, n); },
        [&] { drop_header_packets(r); });
}

// Releases header packets still pending (their size table).
void CodecUtil_Voibis_Destroy(CodecUtilBase_t* base) {
    CODEC_UTIL_TRACE("Destroy Voibis CodecUtil handler");  // required as is
    drop_header_packets(vorbis(base));
    codec_util_free(base, base);
}

constexpr ConverterOps kVorbisOps = {
    .destroy = CodecUtil_Voibis_Destroy,
    .set_param = CodecUtil_Voibis_SetParam,
    .check_conv = return_need_convert<CodecUtil_Vorbis_t>,
    .conv_push_buffer = CodecUtil_Voibis_ConvPushBuffer,
    .set_getbuf_func = store_getbuf_func<CodecUtil_Vorbis_t>,
};

}  // namespace

extern "C" CODEC_UTIL_API void* CodecUtil_Voibis_Create(CodecUtilMemVtable_t* vtable) {
    CODEC_UTIL_TRACE("Create Vorbis CodecUtil handler");
    return create_converter<CodecUtil_Vorbis_t>(vtable, kVorbisOps);
}
