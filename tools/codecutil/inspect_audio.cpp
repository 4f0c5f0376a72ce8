// Inspectors for the audio formats the decoder receives.
#include "inspect_format.h"

namespace codecutil_tool {

const InspectFormat kAudioInspectFormats[] = {
    {nullptr, nullptr},
};

}  // namespace codecutil_tool
