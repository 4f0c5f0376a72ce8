// H.265 converter: HEVC access units of length-prefixed NAL units become an
// Annex-B byte stream in the decoder's ring, with every NAL unit listed in
// the HEVC decoder configuration record (ISO/IEC 14496-15 8.3.3.1) sent
// in-band once ahead of the first unit converted after each set_param.
//
// Output layout and writing are the H.264 converter's (codec_util_nal.h).
// A stream that turns out to be in start-code form already switches the
// converter off until the next set_param.
#include <cstdint>

#include "codec_util_config_record.h"
#include "codec_util_converter.h"
#include "codec_util_nal.h"

namespace {

using namespace codecutil;

struct CodecUtil_H265_t {
    CodecUtilBase_t base;
    zarn_uint8* sps_pps_nal_units;
    zarn_sint32 sps_pps_nal_units_size;
    zarn_sint32 nal_length_size;
    zarn_bool need_convert;
    CodecUtilGetBufFunc_t getbufFunc;
};

// Bytes of the HEVC record before its first array.
constexpr uint32_t kArraysOffset = kHevcNumArraysOffset + 1;

CodecUtil_H265_t* h265(CodecUtilBase_t* base) { return record_of<CodecUtil_H265_t>(base); }

// Emits 00 00 00 01 + NAL unit for each entry of the record's arrays.
// Returns false at the first entry that overruns the record, or at an array
// header or length field cut by its end, logging the position reached.
template <class Sink>
[[nodiscard]] bool walk_hevc_config(Sink& sink, const uint8_t* data, uint32_t size, bool log) {
    const RecordWalk w = walk_hevc_record({data, size}, [&](const RecordEntry& e) {
        if (e.complete()) {
            sink.write(kStartCode);
            sink.write(e.data, e.length);
        }
        return true;
    });
    if (w.stop == RecordStop::kEnd) return true;
    if (log)
        CODEC_UTIL_ERROR("wrong data, pos %d, nalUnitLength %d, sizeof_buf %d",
                         static_cast<int>(w.pos), static_cast<int>(w.length),
                         static_cast<int>(size));
    return false;
}

// TRUE, or FALSE when an entry (or an array header or length field) runs
// past the record: no blob is then pending and need_convert stays TRUE.
// A record shorter than its 23-byte header is refused outright: FALSE with
// need_convert FALSE (there is no length size to convert with). FALSE with
// need_convert FALSE too when the blob cannot be allocated.
zarn_bool CodecUtil_H265_SetParam(CodecUtilBase_t* base, void* param) {
    CodecUtil_H265_t* r = h265(base);
    drop_blob(r);
    const auto* p = static_cast<const CodecUtilH264Param_t*>(param);
    if (p == nullptr || p->data == nullptr || p->size == 0) {
        r->need_convert = FALSE;
        return TRUE;
    }
    if (p->size < kArraysOffset) {
        CODEC_UTIL_ERROR("wrong data, pos %d, nalUnitLength %d, sizeof_buf %d",
                         static_cast<int>(kArraysOffset), 0, static_cast<int>(p->size));
        r->need_convert = FALSE;
        return FALSE;
    }
    r->nal_length_size = record_nal_length_size({p->data, p->size}, true);
    CODEC_UTIL_TRACE("H265 codec data size:%d, NAL len size %d", static_cast<int>(p->size),
                     r->nal_length_size);
    r->need_convert = TRUE;
    CountingSink measure;
    if (!walk_hevc_config(measure, p->data, p->size, true)) return FALSE;
    if (!store_blob(r,
                    [&](auto& sink) { (void)walk_hevc_config(sink, p->data, p->size, false); })) {
        r->need_convert = FALSE;
        return FALSE;
    }
    return TRUE;
}

bool starts_with_start_code(const CodecUtilBuffer_t* buffer) {
    const uint8_t* d = buffer->data;
    return buffer->size > 4 && ((d[0] == 0 && d[1] == 0 && d[2] == 0 && d[3] == 1) ||
                                (d[0] == 0 && d[1] == 0 && d[2] == 1));
}

// Results (*size is 0 unless stated):
//   inactive                                    NULL
//   empty unit                                  NULL
//   malformed, > 4 bytes, begins with a start   buffer->data, *size = buffer->size,
//   code (already Annex-B)                      and the converter switches off
//   other malformed unit                        NULL
//   no ring space granted                       NULL (blob stays pending)
//   converted                                   start of the space, *size output length
zarn_uint8* CodecUtil_H265_ConvPushBuffer(CodecUtilBase_t* base, void* stream,
                                          CodecUtilBuffer_t* buffer, zarn_uint32* size) {
    CodecUtil_H265_t* r = h265(base);
    *size = 0;
    if (!r->need_convert) {
        CODEC_UTIL_WARNING("Don't need H265 conversion");
        return nullptr;
    }
    if (buffer->size == 0) {
        CODEC_UTIL_ERROR("There is wrong video data in stream!\n");
        return nullptr;
    }
    const NalScan scan =
        scan_length_prefixed(buffer->data, buffer->size, static_cast<uint32_t>(r->nal_length_size));
    if (!scan.ok) {
        if (starts_with_start_code(buffer)) {
            r->need_convert = FALSE;
            *size = buffer->size;
            return buffer->data;
        }
        CODEC_UTIL_ERROR("There is wrong video data in stream!\n");
        return nullptr;
    }
    return write_annexb_unit(r, stream, buffer, scan, size);
}

void CodecUtil_H265_Destroy(CodecUtilBase_t* base) {
    CODEC_UTIL_TRACE("Destroy H265 CodecUtil handle");
    drop_blob(h265(base));
    codec_util_free(base, base);
}

constexpr ConverterOps kH265Ops = {
    .destroy = CodecUtil_H265_Destroy,
    .set_param = CodecUtil_H265_SetParam,
    .check_conv = return_need_convert<CodecUtil_H265_t>,
    .conv_push_buffer = CodecUtil_H265_ConvPushBuffer,
    .set_getbuf_func = CodecUtil_H265_SetGetBufFunc,
};

}  // namespace

extern "C" CODEC_UTIL_API void CodecUtil_H265_SetGetBufFunc(CodecUtilBase_t* base, void* func) {
    store_getbuf_func<CodecUtil_H265_t>(base, func);
}

extern "C" CODEC_UTIL_API void* CodecUtil_H265_Create(CodecUtilMemVtable_t* vtable) {
    CODEC_UTIL_TRACE("Create H265 CodecUtil handle");
    return create_converter<CodecUtil_H265_t>(vtable, kH265Ops);
}
