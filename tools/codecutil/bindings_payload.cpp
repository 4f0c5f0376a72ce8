// Bindings for the payload-header video converters (DivX 3.11, SPARK, VP6,
// VP8, VP9, VC-1).
#include "codec_binding.h"

namespace codecutil_tool {

const CodecBinding kPayloadBindings[] = {
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace codecutil_tool
