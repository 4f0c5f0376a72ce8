// Bindings for the payload-header video converters (DivX 3.11, SPARK, VP6,
// VP8, VP9, VC-1).
//
// Picture size comes from the stream's codec parameters. VP9 is created with
// its own constructor (the dispatcher has none) and reads time stamps in
// nanoseconds; a packet without one gets 0xFFFFFFFFFFFFFFFE, which the
// converter passes on as "no time stamp". VC-1 takes its four-character code
// from the container's codec tag (from the codec when there is none), its
// codec data from the extradata (STRUCT_C for "WMV3", sequence header and
// entry point for "WVC1"/"WMVA") and the frame count and rate from the
// stream. Simple/main profile output is a corvid payload stream, advanced
// profile output a VC-1 start-code stream (SMPTE 421M Annex E).
#include <cstring>

#include "codec_binding.h"
#include "zarn_codec_util_priv.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace codecutil_tool {
namespace {

constexpr uint32_t fourcc(char a, char b, char c, char d) {
    return static_cast<uint32_t>(static_cast<uint8_t>(a)) |
           static_cast<uint32_t>(static_cast<uint8_t>(b)) << 8 |
           static_cast<uint32_t>(static_cast<uint8_t>(c)) << 16 |
           static_cast<uint32_t>(static_cast<uint8_t>(d)) << 24;
}
constexpr uint32_t kWmv3 = fourcc('W', 'M', 'V', '3');
constexpr uint32_t kWvc1 = fourcc('W', 'V', 'C', '1');
constexpr uint32_t kWmva = fourcc('W', 'M', 'V', 'A');
constexpr zarn_uint64 kNoTimestamp = 0xFFFFFFFFFFFFFFFEull;

AVCodecID codec_of(const AVStream* st) { return st->codecpar->codec_id; }

bool match_divx311(const AVStream* st) { return codec_of(st) == AV_CODEC_ID_MSMPEG4V3; }
bool match_spark(const AVStream* st) { return codec_of(st) == AV_CODEC_ID_FLV1; }
bool match_vp6(const AVStream* st) {
    return codec_of(st) == AV_CODEC_ID_VP6 || codec_of(st) == AV_CODEC_ID_VP6F;
}
bool match_vp8(const AVStream* st) { return codec_of(st) == AV_CODEC_ID_VP8; }
bool match_vp9(const AVStream* st) { return codec_of(st) == AV_CODEC_ID_VP9; }

// The four-character code of a VC-1 stream: the container's tag when it is
// one the converter knows, else the codec's usual one.
uint32_t vc1_fourcc(const AVStream* st) {
    const uint32_t tag = st->codecpar->codec_tag;
    if (tag == kWmv3 || tag == kWvc1 || tag == kWmva) return tag;
    return codec_of(st) == AV_CODEC_ID_WMV3 ? kWmv3 : kWvc1;
}
bool match_vc1_main(const AVStream* st) {
    return (codec_of(st) == AV_CODEC_ID_WMV3 || codec_of(st) == AV_CODEC_ID_VC1) &&
           vc1_fourcc(st) == kWmv3;
}
bool match_vc1_advanced(const AVStream* st) {
    return (codec_of(st) == AV_CODEC_ID_WMV3 || codec_of(st) == AV_CODEC_ID_VC1) &&
           vc1_fourcc(st) != kWmv3;
}

template <CodecUtilType_e kType>
void* create(const AVStream*) {
    return Zarn_CodecUtil_Create(kType, nullptr);
}
void* create_vp9(const AVStream*) { return CodecUtil_VP9_Create(nullptr); }

template <class Record>
Record* record_in(ParamStorage& out) {
    static_assert(sizeof(Record) <= sizeof out.record);
    std::memset(out.record, 0, sizeof out.record);
    return reinterpret_cast<Record*>(out.record);
}

// Nearest whole frame rate of the stream, 0 when unknown.
zarn_sint32 frame_rate(const AVStream* st) {
    const AVRational r = st->avg_frame_rate.num > 0 ? st->avg_frame_rate : st->r_frame_rate;
    if (r.num <= 0 || r.den <= 0) return 0;
    return static_cast<zarn_sint32>((static_cast<int64_t>(r.num) + r.den / 2) / r.den);
}

// DivX 3.11, SPARK, VP6 and VP8 records are { width, height }.
template <class Record>
void* size_param(const AVStream* st, ParamStorage& out) {
    auto* p = record_in<Record>(out);
    p->width = st->codecpar->width;
    p->height = st->codecpar->height;
    return p;
}

void* vp9_param(const AVStream* st, ParamStorage& out) {
    auto* p = record_in<CodecUtilVP9Param_t>(out);
    p->width = st->codecpar->width;
    p->height = st->codecpar->height;
    p->frameRateVal = frame_rate(st);
    return p;
}

void* vc1_param(const AVStream* st, ParamStorage& out) {
    const AVCodecParameters* par = st->codecpar;
    auto* p = record_in<CodecUtilVC1Param_t>(out);
    p->width = par->width;
    p->height = par->height;
    p->frameNum = st->nb_frames > 0 && st->nb_frames <= INT32_MAX
                      ? static_cast<zarn_sint32>(st->nb_frames)
                      : 0;
    p->bitRate = par->bit_rate > 0 && par->bit_rate <= INT32_MAX
                     ? static_cast<zarn_sint32>(par->bit_rate)
                     : 0;
    out.words.assign(1, vc1_fourcc(st));
    p->fourcc = out.words.data();
    p->frameRate = frame_rate(st);
    if (keep_extradata(st, out)) {
        p->codecData.data = out.bytes.data();
        p->codecData.size = static_cast<zarn_uint32>(out.bytes.size());
    }
    return p;
}

// VP9 reads nanoseconds; VC-1 reads the key-frame bit.
constexpr auto prepare_vp9 = prepare_unit_in<1000000000, kNoTimestamp>;

}  // namespace

const CodecBinding kPayloadBindings[] = {
    {"divx311", "corvid", match_divx311, create<CODEC_UTIL_TYPE_DIVX311>,
     size_param<CodecUtilAVIParam_t>, prepare_unit_us},
    {"spark", "corvid", match_spark, create<CODEC_UTIL_TYPE_SPARK>,
     size_param<CodecUtilSparkParam_t>, prepare_unit_us},
    {"vp6", "corvid", match_vp6, create<CODEC_UTIL_TYPE_VP6>, size_param<CodecUtilVP6Param_t>,
     prepare_unit_us},
    {"vp8", "corvid", match_vp8, create<CODEC_UTIL_TYPE_VP8>, size_param<CodecUtilVP8Param_t>,
     prepare_unit_us},
    {"vp9", "ivf", match_vp9, create_vp9, vp9_param, prepare_vp9},
    {"vc1", "corvid", match_vc1_main, create<CODEC_UTIL_TYPE_VC1>, vc1_param, prepare_unit_us},
    {"vc1", "vc1", match_vc1_advanced, create<CODEC_UTIL_TYPE_VC1>, vc1_param, prepare_unit_us},
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace codecutil_tool
