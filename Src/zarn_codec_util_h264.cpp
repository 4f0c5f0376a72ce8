// H.264 converter: AVC access units of length-prefixed NAL units become an
// Annex-B byte stream in the decoder's ring, with the SPS/PPS of the AVC
// decoder configuration record (ISO/IEC 14496-15 5.3.3.1) sent in-band once
// ahead of the first unit converted after each set_param.
//
// Output of one push: [pending SPS/PPS blob] then, per NAL unit in input
// order, 00 00 00 01 + payload. The unit is scanned twice (validate and
// measure, then write) instead of building a NAL table, so a push never
// allocates; the memory table's realloc entry is not used.
#include <cstdint>

#include "codec_util_config_record.h"
#include "codec_util_converter.h"
#include "codec_util_nal.h"

namespace {

using namespace codecutil;

struct CodecUtil_H264_t {
    CodecUtilBase_t base;
    zarn_uint8* sps_pps_nal_units;
    zarn_sint32 sps_pps_nal_units_size;
    zarn_sint32 nal_length_size;
    zarn_bool need_convert;
    CodecUtilGetBufFunc_t getbufFunc;
};

// Bytes of the AVC record up to and including numOfSequenceParameterSets.
constexpr uint32_t kConfigHeaderSize = kAvcNumSpsOffset + 1;

CodecUtil_H264_t* h264(CodecUtilBase_t* base) { return record_of<CodecUtil_H264_t>(base); }

// Emits 00 00 00 01 + NAL unit for each SPS and PPS entry of an AVC
// decoder configuration record. A record cut short is taken up to the cut:
// an entry whose bytes run past the end contributes what is there and ends
// the walk; a missing length field or PPS count ends it too.
template <class Sink>
void walk_avc_config(Sink& sink, const uint8_t* data, uint32_t size) {
    (void)walk_avc_record(
        {data, size}, [](const char*, uint32_t) {},
        [&](const RecordEntry& e) {
            sink.write(kStartCode);
            sink.write(e.data, e.available);
            return true;
        });
}

// Always TRUE except when the blob cannot be allocated (FALSE, and
// need_convert FALSE: converting without the parameter sets would feed the
// decoder an undecodable stream). Codec data shorter than its 6-byte header
// is refused like a wrong version: need_convert FALSE, TRUE returned; the
// "invalid codec data" line then shows the missing bytes as 00.
zarn_bool CodecUtil_H264_SetParam(CodecUtilBase_t* base, void* param) {
    CodecUtil_H264_t* r = h264(base);
    drop_blob(r);
    const auto* p = static_cast<const CodecUtilH264Param_t*>(param);
    if (p == nullptr || p->data == nullptr || p->size == 0) {
        r->need_convert = FALSE;
        return TRUE;
    }
    if (p->size < kConfigHeaderSize || p->data[0] != 1) {
        uint8_t b[kConfigHeaderSize] = {};
        for (uint32_t i = 0; i < kConfigHeaderSize && i < p->size; ++i) b[i] = p->data[i];
        CODEC_UTIL_TRACE("invalid codec data %02X %02X %02X %02X %02X %02X", b[0], b[1], b[2], b[3],
                         b[4], b[5]);
        r->need_convert = FALSE;
        return TRUE;
    }
    r->need_convert = TRUE;
    CODEC_UTIL_TRACE("H264 codec data size:%d", static_cast<int>(p->size));
    r->nal_length_size = record_nal_length_size({p->data, p->size}, false);
    if (!store_blob(r, [&](auto& sink) { walk_avc_config(sink, p->data, p->size); })) {
        r->need_convert = FALSE;
        return FALSE;
    }
    return TRUE;
}

// Results:
//   inactive                     buffer->data, *size unchanged
//   empty or malformed unit      buffer->data, *size unchanged
//   no ring space granted        buffer->data, *size 0 (blob stays pending)
//   converted                    start of the space, *size output length
zarn_uint8* CodecUtil_H264_ConvPushBuffer(CodecUtilBase_t* base, void* stream,
                                          CodecUtilBuffer_t* buffer, zarn_uint32* size) {
    CodecUtil_H264_t* r = h264(base);
    if (!r->need_convert) {
        CODEC_UTIL_WARNING("Don't need H264 conversion");
        return buffer->data;
    }
    const auto nls = static_cast<uint32_t>(r->nal_length_size);
    const NalScan scan = scan_length_prefixed(buffer->data, buffer->size, nls);
    if (!scan.ok) {
        CODEC_UTIL_ERROR("There is wrong video data in stream! %ld-%ld-%ld-%ld\n", 0L,
                         static_cast<long>(nls), static_cast<long>(buffer->size), 0L);
        return buffer->data;
    }
    uint8_t* out = write_annexb_unit(r, stream, buffer, scan, size);
    return out != nullptr ? out : buffer->data;
}

void CodecUtil_H264_Destroy(CodecUtilBase_t* base) {
    CODEC_UTIL_TRACE("Destroy H264 CodecUtil handle");
    drop_blob(h264(base));
    codec_util_free(base, base);
}

constexpr ConverterOps kH264Ops = {
    .destroy = CodecUtil_H264_Destroy,
    .set_param = CodecUtil_H264_SetParam,
    .check_conv = return_need_convert<CodecUtil_H264_t>,
    .conv_push_buffer = CodecUtil_H264_ConvPushBuffer,
    .set_getbuf_func = CodecUtil_H264_SetGetBufFunc,
};

}  // namespace

extern "C" CODEC_UTIL_API void CodecUtil_H264_SetGetBufFunc(CodecUtilBase_t* base, void* func) {
    store_getbuf_func<CodecUtil_H264_t>(base, func);
}

extern "C" CODEC_UTIL_API void* CodecUtil_H264_Create(CodecUtilMemVtable_t* vtable) {
    CODEC_UTIL_TRACE("Create H264 CodecUtil handle");
    return create_converter<CodecUtil_H264_t>(vtable, kH264Ops);
}
