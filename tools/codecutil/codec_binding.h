// How `codecutil convert` feeds one demuxed stream to a converter: which
// FFmpeg codec it matches, how the converter is created, how the parameter
// record is built from the stream, and how each packet becomes a
// CodecUtilBuffer_t. One array of bindings per codec family, each in its own
// file (bindings_nal.cpp, bindings_audio.cpp, bindings_payload.cpp), each
// ending with an entry whose `name` is NULL.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

#include <cstdint>
#include <cstring>
#include <vector>

#include "zarn_codec_util.h"

namespace codecutil_tool {

// Storage for one stream's parameter record and any bytes it points at; lives
// as long as the converter.
struct ParamStorage {
    // Large enough for every CodecUtil*Param_t record.
    alignas(8) unsigned char record[128];
    std::vector<uint8_t> bytes;   // blob the record's pointer refers to
    std::vector<uint32_t> words;  // e.g. the VC-1 fourcc the record points at
};

struct CodecBinding {
    const char* name;  // "h264", "h265", "mpeg4", "aac", "vorbis", "opus", "divx311",
                       // "spark", "vp6", "vp8", "vp9", "vc1"
    const char* ext;   // output file extension
    // True when this binding converts the stream.
    bool (*matches)(const AVStream* st);
    // Creates the converter (through Zarn_CodecUtil_Create, or the codec's own
    // exported constructor where the dispatcher has none); NULL on failure.
    void* (*create)(const AVStream* st);
    // Fills `out` for Zarn_CodecUtil_SetParam; returns a pointer to the record
    // to hand over (NULL for "no parameters").
    void* (*make_param)(const AVStream* st, ParamStorage& out);
    // Fills timestamp and flag of `buf` (data and size are already set).
    void (*prepare)(const AVStream* st, const AVPacket* pkt, CodecUtilBuffer_t& buf);
};

// Copies the stream's extradata into `out.bytes`; false when it has none.
inline bool keep_extradata(const AVStream* st, ParamStorage& out) {
    const AVCodecParameters* par = st->codecpar;
    if (par->extradata == nullptr || par->extradata_size <= 0) return false;
    out.bytes.assign(par->extradata, par->extradata + par->extradata_size);
    return true;
}

// make_param for records of the layout { data, size } holding the extradata.
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

// prepare: the key-frame bit and the presentation time in units of
// 1/kPerSecond s, `kMissing` for a packet without one.
template <int kPerSecond, zarn_uint64 kMissing>
void prepare_unit_in(const AVStream* st, const AVPacket* pkt, CodecUtilBuffer_t& buf) {
    const int64_t ts = pkt->pts != AV_NOPTS_VALUE ? pkt->pts : pkt->dts;
    buf.timestamp =
        ts == AV_NOPTS_VALUE || ts < 0
            ? kMissing
            : static_cast<zarn_uint64>(av_rescale_q(ts, st->time_base, AVRational{1, kPerSecond}));
    buf.flag = (pkt->flags & AV_PKT_FLAG_KEY) != 0 ? CODEC_UTIL_FLAG_KEY_FRAME : 0u;
}
// Microseconds, 0 when missing: what the converters that ignore the time get.
inline constexpr auto prepare_unit_us = prepare_unit_in<1000000, 0>;

extern const CodecBinding kNalBindings[];      // h264, h265, mpeg4
extern const CodecBinding kAudioBindings[];    // aac, vorbis, opus
extern const CodecBinding kPayloadBindings[];  // divx311, spark, vp6, vp8, vp9, vc1

}  // namespace codecutil_tool
