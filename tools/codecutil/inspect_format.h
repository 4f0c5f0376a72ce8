// `codecutil inspect FILE --format NAME [--extract DIR]`: one entry per
// format the decoder receives, each in its own file (inspect_audio.cpp:
// "adts", "packets"; inspect_payload.cpp: "corvid", "ivf"), each array
// ending with an entry whose `name` is NULL.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace codecutil_tool {

struct InspectFormat {
    const char* name;
    // Validates `data` strictly and prints one line per frame or packet to
    // `out`. With `extract_dir` non-NULL, writes the payloads there in a form
    // standard tools read. Returns 0, or non-zero after printing a one-line
    // error to `err` that names the offset of the fault.
    int (*run)(const uint8_t* data, size_t size, const char* extract_dir, FILE* out, FILE* err);
};

extern const InspectFormat kAudioInspectFormats[];
extern const InspectFormat kPayloadInspectFormats[];

}  // namespace codecutil_tool
