// VP6 converter: frames reach the corvid decoder unchanged behind payload
// headers (CodecID '6'): one configuration header with an empty payload
// ahead of the first frame after set_param, then one header per frame. Takes
// no get-buffer function; space always comes from the HAL port. The shared
// pass-through mechanics, results and ops table are in codec_util_corvid.h.
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

}  // namespace

extern "C" CODEC_UTIL_API void* CodecUtil_VP6_Create(CodecUtilMemVtable_t* vtable) {
    return create_converter<CodecUtil_VP6_t>(
        vtable, kPassthroughOps<CodecUtil_VP6_t, CodecUtilVP6Param_t, kCodecIdVp6>);
}
