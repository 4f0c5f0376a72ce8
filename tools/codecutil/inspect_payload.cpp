// Inspectors for the payload-header video formats the decoder receives.
#include "inspect_format.h"

namespace codecutil_tool {

const InspectFormat kPayloadInspectFormats[] = {
    {nullptr, nullptr},
};

}  // namespace codecutil_tool
