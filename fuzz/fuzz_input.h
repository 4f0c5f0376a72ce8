// The fuzz targets' input: a reader of bytes, little-endian 16- and 32-bit
// values and runs, front to back (past the end every read is zero or empty),
// and the layouts of the splitter and converter targets, which the robust
// tests replay: the splitter input, the converters' parameter records and
// constructor by type, a converter seed read as a list of units, and a push
// into the HAL ring.
#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <vector>

#include "zarn_codec_util.h"
#include "zarn_codec_util_priv.h"
#include "zhal_avstream.h"

namespace fuzzinput {

using Bytes = std::vector<uint8_t>;

// A failed property: a crash the fuzzer reports.
inline void check(bool ok) {
    if (!ok) __builtin_trap();
}

inline Bytes read_file(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

struct Reader {
    Reader(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}
    explicit Reader(const Bytes& b) : Reader(b.data(), b.size()) {}
    bool empty() const { return p_ == end_; }
    size_t left() const { return static_cast<size_t>(end_ - p_); }
    uint8_t u8() { return p_ < end_ ? *p_++ : 0; }
    uint16_t u16() {
        const uint8_t lo = u8();  // sequenced: little-endian whatever the compiler
        return static_cast<uint16_t>(lo | (u8() << 8));
    }
    uint32_t u32() {
        const uint32_t lo = u16();
        return lo | uint32_t{u16()} << 16;
    }
    // Up to `n` bytes (fewer at the end of the input).
    Bytes bytes(size_t n) {
        if (n > left()) n = left();
        p_ += n;
        return Bytes(p_ - n, p_);
    }

    const uint8_t* p_;
    const uint8_t* end_;
};

// Splitter input: flags (bit 0 HEVC, bit 1 transport stream, bits 2 and 3
// switch the enhancement layer and the metadata off), the record's length,
// the output call that fails (0: none), the push size - 1, then the decoder
// configuration record and the stream. `whole`: the header and the record
// are complete.
struct SplitterInput {
    uint8_t flags, fail_at;
    size_t chunk;
    Bytes record, stream;
    bool whole;

    explicit SplitterInput(Reader in) : whole(in.left() >= 4 && in.p_[1] <= in.left() - 4) {
        flags = in.u8();
        const size_t record_len = in.u8();
        fail_at = in.u8();
        chunk = in.u8() + 1u;
        record = in.bytes(record_len);
        stream = in.bytes(in.left());
    }
};

inline constexpr uint32_t kFourccs[] = {0x33564D57 /* WMV3 */, 0x31435657 /* WVC1 */,
                                        0x41564D57 /* WMVA */, 0x30385056 /* VP80 */};

// By type (DivX, MPEG-4, H.264, VC-1, SPARK, VP6, VP8, AAC, Vorbis, Opus,
// H.265, VP9): whether the parameter record starts with width and height.
inline constexpr bool kSized[] = {1, 0, 0, 1, 1, 1, 1, 0, 0, 0, 0, 1};

// The parameter record for `type`, pointing into `blob` and `fourcc`: a shape
// byte (0xFF: no record; bit 7: 16-bit blob length; bit 0: an empty blob is
// NULL; VC-1: bits 1-2 the FourCC, bit 3 a FourCC of its own follows, bit 6
// no FourCC), width and height, the blob, then VC-1's frame count, bit rate,
// frame rate and FourCC or VP9's frame rate.
struct Params {
    union {
        CodecUtilH264Param_t h264;
        CodecUtilVC1Param_t vc1;
        CodecUtilVP9Param_t vp9;
        CodecUtilVorbisParam_t vorbis;
    } u;
    Bytes blob;
    uint32_t fourcc = 0;

    void* read(Reader& in, int type) {
        const uint8_t shape = in.u8();
        if (shape == 0xFF) return nullptr;
        const auto dim = [&] { return zarn_sint32{static_cast<int16_t>(in.u16())}; };
        std::memset(&u, 0, sizeof u);
        if (kSized[type]) {
            u.vc1.width = dim();
            u.vc1.height = dim();
        }
        blob = in.bytes((shape & 0x80) != 0 ? in.u16() : in.u8());
        zarn_uint8* data = blob.empty() && (shape & 1) != 0 ? nullptr : blob.data();
        const auto size = static_cast<zarn_uint32>(blob.size());
        if (type == CODEC_UTIL_TYPE_VC1) {
            u.vc1.frameNum = dim();
            u.vc1.bitRate = dim();
            u.vc1.frameRate = dim();
            fourcc = (shape & 8) != 0 ? in.u32() : kFourccs[(shape >> 1) & 3];
            u.vc1.fourcc = (shape & 0x40) != 0 ? nullptr : &fourcc;
            u.vc1.codecData = {data, size, 0, 0};
        } else if (type == CODEC_UTIL_TYPE_VP9) {
            u.vp9.frameRateVal = dim();
        } else if (type == CODEC_UTIL_TYPE_VOIBIS) {
            u.vorbis.codecdata = data;
            u.vorbis.codecdata_size = size;
        } else if (!kSized[type]) {  // H.264, H.265, MPEG-4, AAC, Opus
            u.h264 = {data, size};
        }
        return &u;
    }
};

inline void* create(int type, CodecUtilMemVtable_t* table = nullptr) {
    return type == CODEC_UTIL_TYPE_VP9
               ? CodecUtil_VP9_Create(table)
               : Zarn_CodecUtil_Create(static_cast<CodecUtilType_e>(type), table);
}

// A seed: type, get-buffer switch, parameter record, then pushes (op, 16-bit
// length, unit, grant, wrap).
struct Seed {
    int type;
    Params params;
    void* param;
    std::vector<Bytes> units;

    explicit Seed(const Bytes& file) {
        Reader in(file);
        type = in.u8() % 12;
        in.u8();
        param = params.read(in, type);
        while (!in.empty()) {
            in.u8();
            units.push_back(in.bytes(in.u16() & 0x3FFF));
            in.u16();
        }
    }
    Seed(const Seed&) = delete;  // param points into params
};

// Pushes `unit` (which the converter may rewrite) into the HAL stand-in's
// `ring` from its start: what the push returns, if anything.
inline std::span<const uint8_t> push(void* h, Zhal_AVStream_ptr ring, Bytes& unit) {
    CodecUtilBuffer_t b{unit.data(), static_cast<zarn_uint32>(unit.size()), 40000000, 1};
    zhal_sim_stream_set_write_pos(ring, 0);
    zarn_uint32 size = 0;
    const zarn_uint8* out = Zarn_CodecUtil_ConvPushBuffer(h, ring, &b, &size);
    return out == nullptr ? std::span<const uint8_t>() : std::span(out, size);
}

}  // namespace fuzzinput
