// Bindings for the NAL-unit and MPEG-4 Part 2 converters.
//
// Every H.264 and H.265 stream gets a converter, as a player creates one
// whatever the container: a decoder configuration record (avcC, ISO/IEC
// 14496-15 5.3.3.1; hvcC, 8.3.3.1) is handed over when there is one; streams
// whose units are already Annex-B (MPEG-TS, AVI, raw .h264) have none, the
// converter then reports that no conversion is needed and the units go to the
// ring unchanged. MPEG-4 Part 2 hands the decoder-specific info (VOS/VO/VOL
// headers) over when the container has one.
#include <cstring>

#include "codec_binding.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace codecutil_tool {
namespace {

// avcC up to and including numOfPictureParameterSets with no entries.
constexpr int kMinAvcConfigSize = 7;
// hvcC up to and including numOfArrays.
constexpr int kMinHevcConfigSize = 23;

bool has_config_record(const AVStream* st, int min_size) {
    const AVCodecParameters* par = st->codecpar;
    return par->extradata != nullptr && par->extradata_size >= min_size &&
           par->extradata[0] == 1;  // configurationVersion
}

bool match_h264(const AVStream* st) { return st->codecpar->codec_id == AV_CODEC_ID_H264; }
bool match_h265(const AVStream* st) { return st->codecpar->codec_id == AV_CODEC_ID_HEVC; }

// Annex-B extradata (parameter sets with start codes) is not a record the
// converter takes: those streams carry their parameter sets in band.
template <int kMinSize>
void* record_param(const AVStream* st, ParamStorage& out) {
    if (!has_config_record(st, kMinSize)) return nullptr;
    return blob_param<CodecUtilH264Param_t>(st, out);
}

bool match_mpeg4(const AVStream* st) { return st->codecpar->codec_id == AV_CODEC_ID_MPEG4; }

void* create_h264(const AVStream*) { return Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H264, nullptr); }
void* create_h265(const AVStream*) { return Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H265, nullptr); }
void* create_mpeg4(const AVStream*) {
    return Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_MPEG4, nullptr);
}

}  // namespace

const CodecBinding kNalBindings[] = {
    {"h264", "h264", match_h264, create_h264, record_param<kMinAvcConfigSize>, prepare_unit_us},
    {"h265", "h265", match_h265, create_h265, record_param<kMinHevcConfigSize>, prepare_unit_us},
    {"mpeg4", "m4v", match_mpeg4, create_mpeg4, blob_param<CodecUtilMPEG4Param_t>, prepare_unit_us},
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace codecutil_tool
