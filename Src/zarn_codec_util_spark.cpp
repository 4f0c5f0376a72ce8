// SPARK converter: frames reach the corvid decoder unchanged behind payload
// headers (CodecID '9'): one configuration header with an empty payload
// ahead of the first frame after set_param, then one header per frame. Takes
// no get-buffer function; space always comes from the HAL port. The shared
// pass-through mechanics (and their results) are in codec_util_corvid.h.
#include <cstddef>
#include <type_traits>

#include "codec_util_converter.h"
#include "codec_util_corvid.h"

namespace {

using namespace codecutil;

struct CodecUtil_Spark_t {
    CodecUtilBase_t base;  // set_getbuf_func is NULL
    zarn_bool is_first_frame;
    zarn_uint8* header;  // kPayloadHeaderSize bytes, owned
    zarn_bool needed_start_code;
};
static_assert(std::is_standard_layout_v<CodecUtil_Spark_t>);
static_assert(offsetof(CodecUtil_Spark_t, base) == 0);

zarn_bool CodecUtil_SPARK_SetParam(CodecUtilBase_t* base, void* param) {
    return passthrough_set_param<CodecUtil_Spark_t, CodecUtilSparkParam_t, kCodecIdSpark>(base,
                                                                                          param);
}

zarn_bool CodecUtil_SPARK_CheckConv(CodecUtilBase_t* base) {
    return return_needed_start_code<CodecUtil_Spark_t>(base);
}

zarn_uint8* CodecUtil_SPARK_ConvPushBuffer(CodecUtilBase_t* base, void* stream,
                                           CodecUtilBuffer_t* buffer, zarn_uint32* size) {
    return passthrough_push<CodecUtil_Spark_t>(base, stream, buffer, size);
}

void CodecUtil_SPARK_Destroy(CodecUtilBase_t* base) {
    passthrough_destroy<CodecUtil_Spark_t>(base);
}

constexpr ConverterOps kSparkOps = {
    .destroy = CodecUtil_SPARK_Destroy,
    .set_param = CodecUtil_SPARK_SetParam,
    .check_conv = CodecUtil_SPARK_CheckConv,
    .conv_push_buffer = CodecUtil_SPARK_ConvPushBuffer,
    .set_getbuf_func = nullptr,
};

}  // namespace

extern "C" CODEC_UTIL_API void* CodecUtil_SPARK_Create(CodecUtilMemVtable_t* vtable) {
    return create_converter<CodecUtil_Spark_t>(vtable, kSparkOps);
}
