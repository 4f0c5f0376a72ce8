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

}  // namespace

const CodecBinding kAudioBindings[] = {
    {"aac", "aac", match_aac, create_aac, blob_param<CodecUtilAACParam_t>, prepare_unit_us},
    {"vorbis", "pkt", match_vorbis, create_vorbis, vorbis_param, prepare_unit_us},
    {"opus", "pkt", match_opus, create_opus, blob_param<CodecUtilOpusParam_t>, prepare_unit_us},
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace codecutil_tool
