// MPEG-4 Part 2 converter: the decoder-specific information (VOS/VO/VOL
// headers) kept out of band by the container is written once, in-band, ahead
// of the next frame; after that the converter switches itself off. The
// headers are not parsed.
#include <cstdint>
#include <cstring>

#include "codec_util_converter.h"
#include "codec_util_ring.h"

namespace {

using namespace codecutil;

struct CodecUtil_MPEG4_t {
    CodecUtilBase_t base;
    zarn_uint8* DecoderSpecificInfo;
    zarn_uint32 DecoderSpecificInfoSize;
    zarn_bool need_convert;
    CodecUtilGetBufFunc_t getbufFunc;
};

CodecUtil_MPEG4_t* mpeg4(CodecUtilBase_t* base) { return record_of<CodecUtil_MPEG4_t>(base); }

void drop_dsi(CodecUtil_MPEG4_t* r) {
    if (r->DecoderSpecificInfo != nullptr) codec_util_free(&r->base, r->DecoderSpecificInfo);
    r->DecoderSpecificInfo = nullptr;
    r->DecoderSpecificInfoSize = 0;
}

// TRUE, or FALSE when the copy cannot be allocated (need_convert unchanged).
// NULL `param`: need_convert FALSE, a pending copy stays until replaced or
// destroyed. A record with NULL `data` or `size` 0 has nothing to send: the
// pending copy is dropped and need_convert becomes FALSE (TRUE returned).
zarn_bool CodecUtil_MPEG4_SetParam(CodecUtilBase_t* base, void* param) {
    CodecUtil_MPEG4_t* r = mpeg4(base);
    const auto* p = static_cast<const CodecUtilMPEG4Param_t*>(param);
    if (p == nullptr) {
        r->need_convert = FALSE;
        return TRUE;
    }
    drop_dsi(r);
    if (p->data == nullptr || p->size == 0) {
        r->need_convert = FALSE;
        return TRUE;
    }
    auto* copy = static_cast<zarn_uint8*>(codec_util_malloc(base, p->size));
    if (copy == nullptr) return FALSE;
    std::memcpy(copy, p->data, p->size);
    r->DecoderSpecificInfo = copy;
    r->DecoderSpecificInfoSize = p->size;
    r->need_convert = TRUE;
    return TRUE;
}

// *size is set to 0 first. Inactive, no space granted, or a length beyond
// 32 bits: NULL (the copy stays armed). Otherwise the space's start with
// *size = DecoderSpecificInfoSize + buffer->size, and the converter is off.
zarn_uint8* CodecUtil_MPEG4_ConvPushBuffer(CodecUtilBase_t* base, void* stream,
                                           CodecUtilBuffer_t* buffer, zarn_uint32* size) {
    CodecUtil_MPEG4_t* r = mpeg4(base);
    *size = 0;
    if (!r->need_convert) return nullptr;
    RingSpace space;
    if (!write_measured(r->getbufFunc, stream, space, [&](auto& out) {
            out.write(r->DecoderSpecificInfo, r->DecoderSpecificInfoSize);
            out.write(buffer->data, buffer->size);
        }))
        return nullptr;
    *size = space.length;
    r->need_convert = FALSE;
    drop_dsi(r);
    return space.first;
}

void CodecUtil_MPEG4_Destroy(CodecUtilBase_t* base) {
    CODEC_UTIL_TRACE("Destroy MPEG4 CodecUtil handle");
    drop_dsi(mpeg4(base));
    codec_util_free(base, base);
}

constexpr ConverterOps kMpeg4Ops = {
    .destroy = CodecUtil_MPEG4_Destroy,
    .set_param = CodecUtil_MPEG4_SetParam,
    .check_conv = return_need_convert<CodecUtil_MPEG4_t>,
    .conv_push_buffer = CodecUtil_MPEG4_ConvPushBuffer,
    .set_getbuf_func = store_getbuf_func<CodecUtil_MPEG4_t>,
};

}  // namespace

extern "C" CODEC_UTIL_API void* CodecUtil_MPEG4_Create(CodecUtilMemVtable_t* vtable) {
    CODEC_UTIL_TRACE("Create MPEG4 CodecUtil handle");
    return create_converter<CodecUtil_MPEG4_t>(vtable, kMpeg4Ops);
}
