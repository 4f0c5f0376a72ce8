// Bindings for the audio converters (AAC, Vorbis, Opus).
#include "codec_binding.h"

namespace codecutil_tool {

const CodecBinding kAudioBindings[] = {
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace codecutil_tool
