// Bindings for the audio converters (AAC, Vorbis, Opus).
//
// Codec data as FFmpeg's demuxers store it, handed over unchanged:
//   aac     the AudioSpecificConfig (ISO/IEC 14496-3 1.6.2.1) of MP4/M4A and
//           Matroska; ADTS input has none and is passed through as it is
//   vorbis  the three header packets, Xiph-laced (count - 1, laced sizes,
//           packets), as Matroska's CodecPrivate and the Ogg demuxer build it
//   opus    the OpusHead identification header (RFC 7845 5.1)
// Outputs: ADTS frames (.aac) and the 44-byte packet-header streams (.pkt),
// which `codecutil inspect --format adts|packets` reads back.
#include <cstring>

#include "codec_binding.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace codecutil_tool {
namespace {

bool match_aac(const AVStream* st) { return st->codecpar->codec_id == AV_CODEC_ID_AAC; }
bool match_vorbis(const AVStream* st) { return st->codecpar->codec_id == AV_CODEC_ID_VORBIS; }
bool match_opus(const AVStream* st) { return st->codecpar->codec_id == AV_CODEC_ID_OPUS; }

void* create_aac(const AVStream*) { return Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_AAC, nullptr); }
void* create_vorbis(const AVStream*) {
    return Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_VOIBIS, nullptr);
}
void* create_opus(const AVStream*) { return Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_OPUS, nullptr); }

// Copies the extradata into `out.bytes`; false when the stream has none.
bool keep_extradata(const AVStream* st, ParamStorage& out) {
    const AVCodecParameters* par = st->codecpar;
    if (par->extradata == nullptr || par->extradata_size <= 0) return false;
    out.bytes.assign(par->extradata, par->extradata + par->extradata_size);
    return true;
}

// AAC and Opus records share the layout { data, size }.
template <class Record>
void* blob_param(const AVStream* st, ParamStorage& out) {
    if (!keep_extradata(st, out)) return nullptr;
    static_assert(sizeof(Record) <= sizeof out.record);
    Record record{};
    record.data = out.bytes.data();
    record.size = static_cast<zarn_uint32>(out.bytes.size());
    std::memcpy(out.record, &record, sizeof record);
    return out.record;
}

// The Vorbis converter reads the header packets from these bytes at its first
// push, so they live in `out` as long as the converter.
void* vorbis_param(const AVStream* st, ParamStorage& out) {
    if (!keep_extradata(st, out)) return nullptr;
    static_assert(sizeof(CodecUtilVorbisParam_t) <= sizeof out.record);
    CodecUtilVorbisParam_t record{};
    record.codecdata = out.bytes.data();
    record.codecdata_size = static_cast<zarn_uint32>(out.bytes.size());
    std::memcpy(out.record, &record, sizeof record);
    return out.record;
}

// The audio converters read neither field; they are filled for the record's
// sake: the presentation time in microseconds and the key-frame bit.
void prepare_unit(const AVStream* st, const AVPacket* pkt, CodecUtilBuffer_t& buf) {
    const int64_t ts = pkt->pts != AV_NOPTS_VALUE ? pkt->pts : pkt->dts;
    buf.timestamp =
        ts == AV_NOPTS_VALUE || ts < 0
            ? 0
            : static_cast<zarn_uint64>(av_rescale_q(ts, st->time_base, AVRational{1, 1000000}));
    buf.flag = (pkt->flags & AV_PKT_FLAG_KEY) != 0 ? CODEC_UTIL_FLAG_KEY_FRAME : 0u;
}

}  // namespace

const CodecBinding kAudioBindings[] = {
    {"aac", "aac", match_aac, create_aac, blob_param<CodecUtilAACParam_t>, prepare_unit},
    {"vorbis", "pkt", match_vorbis, create_vorbis, vorbis_param, prepare_unit},
    {"opus", "pkt", match_opus, create_opus, blob_param<CodecUtilOpusParam_t>, prepare_unit},
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace codecutil_tool
