// VP6 converter: frames reach the corvid decoder unchanged behind payload
// headers (CodecID '6'): one configuration header with an empty payload
// ahead of the first frame after set_param, then one header per frame. Takes
// no get-buffer function; space always comes from the HAL port. The shared
// pass-through mechanics (and their results) are in codec_util_corvid.h.
#include <cstddef>
#include <type_traits>

#include "codec_util_converter.h"
#include "codec_util_corvid.h"

namespace {

using namespace codecutil;

struct CodecUtil_VP6_t {
    CodecUtilBase_t base;  // set_getbuf_func is NULL
    zarn_bool is_first_frame;
    zarn_uint8* header;  // kPayloadHeaderSize bytes, owned
    zarn_bool needed_start_code;
};
static_assert(std::is_standard_layout_v<CodecUtil_VP6_t>);
static_assert(offsetof(CodecUtil_VP6_t, base) == 0);

zarn_bool CodecUtil_VP6_SetParam(CodecUtilBase_t* base, void* param) {
    return passthrough_set_param<CodecUtil_VP6_t, CodecUtilVP6Param_t, kCodecIdVp6>(base, param);
}

zarn_bool CodecUtil_VP6_CheckConv(CodecUtilBase_t* base) {
    return return_needed_start_code<CodecUtil_VP6_t>(base);
}

zarn_uint8* CodecUtil_VP6_ConvPushBuffer(CodecUtilBase_t* base, void* stream,
                                         CodecUtilBuffer_t* buffer, zarn_uint32* size) {
    return passthrough_push<CodecUtil_VP6_t>(base, stream, buffer, size);
}

void CodecUtil_VP6_Destroy(CodecUtilBase_t* base) { passthrough_destroy<CodecUtil_VP6_t>(base); }

constexpr ConverterOps kVp6Ops = {
    .destroy = CodecUtil_VP6_Destroy,
    .set_param = CodecUtil_VP6_SetParam,
    .check_conv = CodecUtil_VP6_CheckConv,
    .conv_push_buffer = CodecUtil_VP6_ConvPushBuffer,
    .set_getbuf_func = nullptr,
};

}  // namespace

extern "C" CODEC_UTIL_API void* CodecUtil_VP6_Create(CodecUtilMemVtable_t* vtable) {
    return create_converter<CodecUtil_VP6_t>(vtable, kVp6Ops);
}
