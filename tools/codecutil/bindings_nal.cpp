// Bindings for the NAL-unit and MPEG-4 Part 2 converters.
//
// H.264 and H.265 streams are converted only when the container carries a
// decoder configuration record (avcC, ISO/IEC 14496-15 5.3.3.1; hvcC,
// 8.3.3.1), both of which begin with configurationVersion 1; streams whose
// extradata is already Annex-B (MPEG-TS, raw .h264) need no conversion and
// are left to other tools. MPEG-4 Part 2 hands the decoder-specific info
// (VOS/VO/VOL headers) over when the container has one.
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

bool match_h264(const AVStream* st) {
    return st->codecpar->codec_id == AV_CODEC_ID_H264 && has_config_record(st, kMinAvcConfigSize);
}

bool match_h265(const AVStream* st) {
    return st->codecpar->codec_id == AV_CODEC_ID_HEVC && has_config_record(st, kMinHevcConfigSize);
}

bool match_mpeg4(const AVStream* st) { return st->codecpar->codec_id == AV_CODEC_ID_MPEG4; }

void* create_h264(const AVStream*) { return Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H264, nullptr); }
void* create_h265(const AVStream*) { return Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H265, nullptr); }
void* create_mpeg4(const AVStream*) {
    return Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_MPEG4, nullptr);
}

// H.264, H.265 and MPEG-4 records share the layout { data, size }.
template <class Record>
void* blob_param(const AVStream* st, ParamStorage& out) {
    const AVCodecParameters* par = st->codecpar;
    if (par->extradata == nullptr || par->extradata_size <= 0) return nullptr;
    out.bytes.assign(par->extradata, par->extradata + par->extradata_size);
    static_assert(sizeof(Record) <= sizeof out.record);
    Record record{};
    record.data = out.bytes.data();
    record.size = static_cast<zarn_uint32>(out.bytes.size());
    std::memcpy(out.record, &record, sizeof record);
    return out.record;
}

// The NAL and MPEG-4 converters read neither field; they are filled for the
// record's sake: the presentation time in microseconds and the key-frame bit.
void prepare_unit(const AVStream* st, const AVPacket* pkt, CodecUtilBuffer_t& buf) {
    const int64_t ts = pkt->pts != AV_NOPTS_VALUE ? pkt->pts : pkt->dts;
    buf.timestamp =
        ts == AV_NOPTS_VALUE || ts < 0
            ? 0
            : static_cast<zarn_uint64>(av_rescale_q(ts, st->time_base, AVRational{1, 1000000}));
    buf.flag = (pkt->flags & AV_PKT_FLAG_KEY) != 0 ? CODEC_UTIL_FLAG_KEY_FRAME : 0u;
}

}  // namespace

const CodecBinding kNalBindings[] = {
    {"h264", "h264", match_h264, create_h264, blob_param<CodecUtilH264Param_t>, prepare_unit},
    {"h265", "h265", match_h265, create_h265, blob_param<CodecUtilH264Param_t>, prepare_unit},
    {"mpeg4", "m4v", match_mpeg4, create_mpeg4, blob_param<CodecUtilMPEG4Param_t>, prepare_unit},
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace codecutil_tool
