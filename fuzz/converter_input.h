// The converter target's input layout, shared with the allocation-failure
// sweep that replays the target's seeds: a byte reader, the per-codec
// parameter record read from it (the reader is fuzz_reader.h's), and the constructor by type (VP9
// through its own). See converter_fuzz.cpp for the whole layout.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz_reader.h"
#include "zarn_codec_util.h"
#include "zarn_codec_util_priv.h"

namespace fuzzinput {

inline constexpr uint32_t kFourccs[] = {0x33564D57 /* WMV3 */, 0x31435657 /* WVC1 */,
                                        0x41564D57 /* WMVA */, 0x30385056 /* VP80 */};

// The parameter record for `type`, pointing into `blob` and `fourcc`.
struct Params {
    union {
        CodecUtilH264Param_t h264;
        CodecUtilMPEG4Param_t mpeg4;
        CodecUtilAACParam_t aac;
        CodecUtilVC1Param_t vc1;
        CodecUtilAVIParam_t avi;
        CodecUtilVP9Param_t vp9;
        CodecUtilVorbisParam_t vorbis;
        CodecUtilOpusParam_t opus;
    } u;
    std::vector<uint8_t> blob;
    uint32_t fourcc = 0;

    // NULL when the schedule clears the parameters.
    void* read(Reader& in, int type) {
        const uint8_t shape = in.u8();
        if (shape == 0xFF) return nullptr;
        const auto dim = [&] { return static_cast<zarn_sint32>(static_cast<int16_t>(in.u16())); };
        std::memset(&u, 0, sizeof u);
        switch (type) {
            case CODEC_UTIL_TYPE_VC1:
            case CODEC_UTIL_TYPE_DIVX311:
            case CODEC_UTIL_TYPE_SPARK:
            case CODEC_UTIL_TYPE_VP6:
            case CODEC_UTIL_TYPE_VP8:
            case CODEC_UTIL_TYPE_VP9:
                u.vc1.width = dim();
                u.vc1.height = dim();
                break;
            default:
                break;
        }
        blob = in.bytes((shape & 0x80) != 0 ? in.u16() : in.u8());
        zarn_uint8* data = blob.empty() && (shape & 1) != 0 ? nullptr : blob.data();
        const auto size = static_cast<zarn_uint32>(blob.size());
        switch (type) {
            case CODEC_UTIL_TYPE_VC1:
                u.vc1.frameNum = dim();
                u.vc1.bitRate = dim();
                u.vc1.frameRate = dim();
                if ((shape & 8) != 0) {
                    const uint32_t lo = in.u16();
                    fourcc = lo | (uint32_t{in.u16()} << 16);
                } else {
                    fourcc = kFourccs[(shape >> 1) & 3];
                }
                u.vc1.fourcc = (shape & 0x40) != 0 ? nullptr : &fourcc;
                u.vc1.codecData.data = data;
                u.vc1.codecData.size = size;
                break;
            case CODEC_UTIL_TYPE_VP9:
                u.vp9.frameRateVal = dim();
                break;
            case CODEC_UTIL_TYPE_VOIBIS:
                u.vorbis.codecdata = data;
                u.vorbis.codecdata_size = size;
                break;
            case CODEC_UTIL_TYPE_DIVX311:
            case CODEC_UTIL_TYPE_SPARK:
            case CODEC_UTIL_TYPE_VP6:
            case CODEC_UTIL_TYPE_VP8:
                break;
            default:  // H.264, H.265, MPEG-4, AAC, Opus: data and size
                u.h264.data = data;
                u.h264.size = size;
                break;
        }
        return &u;
    }
};

inline void* create(int type, CodecUtilMemVtable_t* table = nullptr) {
    return type == CODEC_UTIL_TYPE_VP9
               ? CodecUtil_VP9_Create(table)
               : Zarn_CodecUtil_Create(static_cast<CodecUtilType_e>(type), table);
}

}  // namespace fuzzinput
