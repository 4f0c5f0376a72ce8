// VC-1 converter for the corvid decoder.
//
// Three kinds of stream, told apart at set_param:
//   "WMV3" (simple/main profile): the first frame after set_param is preceded
//     by a sequence packet, payload header 0x31 + the 36-byte RCV sequence
//     layer (SMPTE 421M Annex L, version byte 0xC5); every frame goes out as
//     payload header 0x32 + 8-byte RCV frame layer + frame.
//   "WVC1"/"WMVA" (advanced profile, SMPTE 421M Annex E): no payload header;
//     the frame is preceded by the start-code units it lacks: the sequence
//     header unit of the codec data (first frame after set_param), the entry
//     point unit (key frames not beginning with an entry point) and 00 00 01 0D
//     (frames beginning with neither a frame nor an entry-point start code).
//   TS mode (picture size not positive): frames need no conversion and are
//     handed back untouched.
//
// The advanced-profile prefix is kept as a list of runs pointing into the
// codec-data copy, written straight into ring space; it has no size limit, so
// codec data with units of any length is accepted.
#include <cstdint>
#include <cstring>

#include "codec_util_bytes.h"
#include "codec_util_converter.h"
#include "codec_util_corvid.h"
#include "codec_util_ring.h"

namespace {

using namespace codecutil;

// Start codes, SMPTE 421M Annex E, read big-endian.
constexpr uint32_t SEQ_SC = 0x0000010F;
constexpr uint32_t EP_SC = 0x0000010E;
constexpr uint32_t FRM_SC = 0x0000010D;

// Four-character codes as the little-endian value of their characters.
constexpr uint32_t kFourccWmv3 = 0x33564D57;  // "WMV3"
constexpr uint32_t kFourccWvc1 = 0x31435657;  // "WVC1"
constexpr uint32_t kFourccWmva = 0x41564D57;  // "WMVA"

constexpr uint32_t kSeqLayerSize = 36;
constexpr uint32_t kFrameLayerSize = 8;
constexpr uint32_t kMaxRcvFrames = 0xFFFFFF;  // the sequence layer's 24-bit NUMFRAMES
constexpr uint32_t kStructCSize = 4;

struct VC1_Struct_Sequence_Header_A {
    zarn_uint32 vert_size;
    zarn_uint32 horiz_size;
};

struct VC1_Struct_Sequence_Header_B {
    union {
        struct {
            zarn_uint32 level : 3;
            zarn_uint32 cbr : 1;
            zarn_uint32 res1 : 4;
            zarn_uint32 hrd_buffer : 24;
            zarn_uint32 hrd_rate;
        } first;
        struct {
            zarn_uint64 level_1 : 3;
            zarn_uint64 cbr_1 : 1;
            zarn_uint64 res1_1 : 4;
            zarn_uint64 res2 : 56;
        } second;
    } u;
    zarn_uint32 framerate;
};

// STRUCT_C bits from the least significant bit; the record is always written
// and read through the overlaid word (bitstream order: profile is bits 31..28),
// the views name the bits passed on to the decoder.
union VC1_Struct_Sequence_Header_C {
    struct {
        zarn_uint32 reserved6 : 1;
        zarn_uint32 finterpflag : 1;
        zarn_uint32 maxbframes : 3;
        zarn_uint32 quantizer : 2;
        zarn_uint32 rangered : 1;
        zarn_uint32 syncmarker : 1;
        zarn_uint32 overlap : 1;
        zarn_uint32 reserved5 : 1;
        zarn_uint32 vstransform : 1;
        zarn_uint32 dquant : 2;
        zarn_uint32 extended_mv : 1;
        zarn_uint32 fastuvmc : 1;
        zarn_uint32 reserved4 : 1;
        zarn_uint32 multires : 1;
        zarn_uint32 reserved3 : 1;
        zarn_uint32 loopfilter : 1;
        zarn_uint32 bitrtq_postproc : 5;
        zarn_uint32 frmrtq_postproc : 3;
        zarn_uint32 profile : 4;
    } parms;
    struct {
        zarn_uint32 Reserved7 : 28;
        zarn_uint32 profile : 4;
    } param_adv;
};
static_assert(sizeof(VC1_Struct_Sequence_Header_C) == 4);
static_assert(sizeof(VC1_Struct_Sequence_Header_B::u) == 8);

struct ZarnUtilCodecVC1Corvid_t {
    CodecUtilBase_t base;
    VC1_Struct_Sequence_Header_A sequence_header_a;
    VC1_Struct_Sequence_Header_B sequence_header_b;
    union {
        VC1_Struct_Sequence_Header_C sequence_header_c;
        zarn_uint32 sequence_header_c_ph;
    };
    zarn_uint32 num_frames;
    zarn_uint32 bitrate;
    zarn_uint32 forcc;
    zarn_bool b_ts_vc1;
    zarn_uint8* codec_data;  // owned
    zarn_uint32 codec_data_size;
    zarn_uint8* seq_header;  // into codec_data
    zarn_uint32 seq_header_len;
    zarn_uint32 seq_layer_needed;
    zarn_uint8* entry_point;  // into codec_data
    zarn_uint32 entry_point_len;
    zarn_uint8* frame_header;  // into codec_data; recorded, not sent
    zarn_uint32 frame_header_len;
    CodecUtilGetBufFunc_t getbufFunc;
};

ZarnUtilCodecVC1Corvid_t* vc1(CodecUtilBase_t* base) {
    return record_of<ZarnUtilCodecVC1Corvid_t>(base);
}

bool is_advanced(uint32_t fourcc) { return fourcc == kFourccWvc1 || fourcc == kFourccWmva; }
bool is_unit_start(uint32_t word) { return word == SEQ_SC || word == EP_SC || word == FRM_SC; }
uint32_t struct_c_profile(const ZarnUtilCodecVC1Corvid_t* r) {
    return r->sequence_header_c_ph >> 28;
}

void vc1_corvid_init_params(ZarnUtilCodecVC1Corvid_t* r) {
    r->sequence_header_a = {};
    r->sequence_header_b = {};
    r->sequence_header_c_ph = 0;
    r->num_frames = 0;
    r->bitrate = 0;
    r->forcc = 0;
    r->b_ts_vc1 = FALSE;
    if (r->codec_data != nullptr) codec_util_free(&r->base, r->codec_data);
    r->codec_data = nullptr;
    r->codec_data_size = 0;
    r->seq_header = nullptr;
    r->seq_header_len = 0;
    r->entry_point = nullptr;
    r->entry_point_len = 0;
    r->frame_header = nullptr;
    r->frame_header_len = 0;
    r->seq_layer_needed = 1;
}

// Offset of the first SEQ_SC/EP_SC/FRM_SC at or after `from`, or `size`.
// `trace` logs every word looked at (the search for a unit's start).
uint32_t find_unit_start(const uint8_t* data, uint32_t size, uint32_t from, bool trace) {
    for (uint32_t i = from; size >= 4 && i <= size - 4; ++i) {
        const uint32_t word = read_be_unchecked(data + i, 4);
        if (trace) CODEC_UTIL_TRACE("The iTmp is %x", word);
        if (is_unit_start(word)) return i;
    }
    return size;
}

// Records the sequence-header, entry-point and frame units of advanced-profile
// codec data (each from its start code to the next such start code or the end);
// bytes before the first start code are skipped, a later unit of a kind
// replaces an earlier one.
void scan_codec_data_units(ZarnUtilCodecVC1Corvid_t* r) {
    uint8_t* const data = r->codec_data;
    const uint32_t size = r->codec_data_size;
    uint32_t pos = 0;
    while (pos < size) {
        const uint32_t from = pos;
        pos = find_unit_start(data, size, from, true);
        if (pos == size) {
            // Where the search stopped: fewer than four bytes left.
            const uint32_t stop = size >= 3 && size - 3 > from ? size - 3 : from;
            CODEC_UTIL_DEBUG("cpTmp=%p,left_size=%d", static_cast<void*>(data + stop),
                             static_cast<int>(size - stop));
            return;
        }
        const uint32_t word = read_be_unchecked(data + pos, 4);
        CODEC_UTIL_DEBUG("iTmp = %x, it will compare with: SEQ_SC = %x, EP_SC = %x, FRM_SC = %x\n",
                         word, SEQ_SC, EP_SC, FRM_SC);
        const uint32_t end = find_unit_start(data, size, pos + 4, false);
        uint8_t* const unit = data + pos;
        const uint32_t length = end - pos;
        if (word == SEQ_SC) {
            r->seq_header = unit;
            r->seq_header_len = length;
            CODEC_UTIL_DEBUG(
                "We find sequence header at %p, offset to p_vc1_corvid->codec_data is "
                "%d, sequence length is %d",
                static_cast<void*>(unit), static_cast<int>(pos), static_cast<int>(length));
        } else if (word == EP_SC) {
            r->entry_point = unit;
            r->entry_point_len = length;
            CODEC_UTIL_DEBUG(
                "We find entry point at %p, offset to p_vc1_corvid->codec_data is %d, "
                "entry point length is %d",
                static_cast<void*>(unit), static_cast<int>(pos), static_cast<int>(length));
        } else {
            r->frame_header = unit;
            r->frame_header_len = length;
            CODEC_UTIL_DEBUG(
                "We find frame header at %p, offset to p_vc1_corvid->codec_data is %d, "
                "frame header length is %d",
                static_cast<void*>(unit), static_cast<int>(pos), static_cast<int>(length));
        }
        CODEC_UTIL_DUMP_BYTES(unit, length);
        pos = end;
    }
}

void vc1_corvid_set_structA(const ZarnUtilCodecVC1Corvid_t* r) {
    CODEC_UTIL_DEBUG("sequence_header_a.vert_size = %u, equence_header_a.horiz_size = %u",
                     r->sequence_header_a.vert_size, r->sequence_header_a.horiz_size);
}

// The byte after the sequence header's start code: PROFILE (2 bits), LEVEL
// (3 bits), ... (SMPTE 421M 6.1); 0 when the unit is only its start code.
uint8_t seq_header_first_byte(const ZarnUtilCodecVC1Corvid_t* r) {
    return r->seq_header_len > 4 ? r->seq_header[4] : 0;
}

// FALSE only for "WMV3" codec data too short to hold STRUCT_C.
bool vc1_corvid_set_structC(ZarnUtilCodecVC1Corvid_t* r) {
    r->sequence_header_c_ph = 0;
    if (r->forcc == kFourccWmv3) {
        if (r->codec_data_size < kStructCSize) {
            CODEC_UTIL_WARNING("WMV3 codec data is %u bytes, STRUCT_C needs 4", r->codec_data_size);
            return false;
        }
        r->sequence_header_c_ph = read_be_unchecked(r->codec_data, 4);
        CODEC_UTIL_TRACE("sequence_header_c_ph raw data is %x,ptr_ph=%p,ptr_headc=%p",
                         r->sequence_header_c_ph, static_cast<void*>(&r->sequence_header_c_ph),
                         static_cast<void*>(r->codec_data));
        r->sequence_header_c_ph |= 0x00010001;  // reserved6 and reserved4
        CODEC_UTIL_TRACE("After |0x10001, sequence_header_c_ph data is %x",
                         r->sequence_header_c_ph);
        CODEC_UTIL_DEBUG("We get StructC is %x, profile is %u", r->sequence_header_c_ph,
                         static_cast<unsigned>(r->codec_data[0] >> 4));
    } else if (is_advanced(r->forcc)) {
        const uint32_t rcv_profile = seq_header_first_byte(r) >> 6;  // PROFILE
        r->sequence_header_c_ph = rcv_profile << 28;
        CODEC_UTIL_DEBUG("We set StructC profile to %u", rcv_profile);
    }
    return true;
}

// LEVEL of the RCV sequence layer for simple/main profile streams by STRUCT_C
// profile and picture width.
uint32_t rcv_level(uint32_t rcv_profile, uint32_t width, uint32_t framerate) {
    const int band = width < 200 ? 0 : width < 400 ? 1 : width < 800 ? 2 : width < 1300 ? 3 : 4;
    switch (rcv_profile) {
        case 0: {
            constexpr uint32_t kLevels[] = {0, 2, 2, 2, 2};
            return kLevels[band];
        }
        case 4: {
            constexpr uint32_t kLevels[] = {0, 0, 2, 4, 4};
            return kLevels[band];
        }
        case 12: {
            constexpr uint32_t kLevels[] = {0, 0, 0, 2, 3};
            if (band == 2) return framerate < 50 ? 1 : 2;
            return kLevels[band];
        }
        default:
            return 0;
    }
}

void vc1_corvid_set_structB(ZarnUtilCodecVC1Corvid_t* r) {
    auto& b = r->sequence_header_b.u.first;
    if (r->forcc == kFourccWmv3) {
        b.level = rcv_level(struct_c_profile(r), r->sequence_header_a.horiz_size,
                            r->sequence_header_b.framerate) &
                  7;
        b.cbr = 1;
        b.res1 = 0;
        b.hrd_buffer = 0;
        b.hrd_rate = 0;
    } else if (is_advanced(r->forcc)) {
        b.level = (seq_header_first_byte(r) >> 3) & 7;  // LEVEL
        b.cbr = 1;
        b.res1 = 8;
        b.hrd_buffer = 0;
        b.hrd_rate = 0;
    }
    CODEC_UTIL_DEBUG(" The level=%d\n", static_cast<int>(b.level));
}

zarn_bool vc1_corvid_parse_codec_specific_data(ZarnUtilCodecVC1Corvid_t* p_vc1_corvid) {
    ZarnUtilCodecVC1Corvid_t* r = p_vc1_corvid;
    if (r->codec_data == nullptr) {
        CODEC_UTIL_WARNING("No codec data, just return.");
        return FALSE;
    }
    CODEC_UTIL_DEBUG("We dump the codec data %p, codec size is %d",
                     static_cast<void*>(r->codec_data), static_cast<int>(r->codec_data_size));
    CODEC_UTIL_DUMP_BYTES(r->codec_data, r->codec_data_size);
    if (is_advanced(r->forcc)) scan_codec_data_units(r);
    vc1_corvid_set_structA(r);
    if (!vc1_corvid_set_structC(r)) {
        // Leave the converter as without codec data.
        codec_util_free(&r->base, r->codec_data);
        r->codec_data = nullptr;
        r->codec_data_size = 0;
        return FALSE;
    }
    vc1_corvid_set_structB(r);
    return TRUE;
}

void dump_valid_parameters(const ZarnUtilCodecVC1Corvid_t* r) {
    if (CODEC_UTIL_LOG_THRESHOLD() < ZARN_LEVEL_DEBUG) return;
    CODEC_UTIL_DEBUG(
        "\n==============   Now Dump The Valid Parameters Come From Set Parms "
        "============== ");
    ZarnDebugCategory* const c = codec_util_debug;
    if (r->b_ts_vc1) zarn_debug_dump(c, ZARN_LEVEL_DEBUG, "-------- In TS mode!!!!");
    zarn_debug_dump(c, ZARN_LEVEL_DEBUG, "-------- vert_size = %u, horiz_size = %u ",
                    r->sequence_header_a.vert_size, r->sequence_header_a.horiz_size);
    zarn_debug_dump(c, ZARN_LEVEL_DEBUG, "-------- num_frames = %u, framerate = %u ", r->num_frames,
                    r->sequence_header_b.framerate);
    zarn_debug_dump(c, ZARN_LEVEL_DEBUG, "-------- bitrate = %u", r->bitrate);
    zarn_debug_dump(c, ZARN_LEVEL_DEBUG, "-------- FORCC is %x", r->forcc);
    zarn_debug_dump(c, ZARN_LEVEL_DEBUG, "-------- codec data location is %p, size is %d",
                    static_cast<void*>(r->codec_data), static_cast<int>(r->codec_data_size));
    zarn_debug_dump(
        c, ZARN_LEVEL_DEBUG,
        "==============                      End                            ============== ");
}

// Results:
//   NULL handle                              FALSE
//   NULL parameters                          FALSE (no codec data)
//   four-character code not WMV3/WVC1/WMVA   FALSE, forcc keeps the code
//   TS mode (width or height <= 0)           TRUE; codec data copied, not scanned
//   no codec data: NULL codecData.data,      FALSE ("No codec data")
//     codecData.size 0, or its copy cannot
//     be allocated
//   "WMV3" codec data under 4 bytes          FALSE, the copy is dropped
//   otherwise                                TRUE
// A NULL fourcc pointer leaves forcc 0: set_param succeeds but pushes are
// refused.
zarn_bool vc1_corvid_set_params(CodecUtilBase_t* h, void* parameters) {
    if (h == nullptr) {
        CODEC_UTIL_ERROR("Pass NULL pointer!");
        return FALSE;
    }
    ZarnUtilCodecVC1Corvid_t* r = vc1(h);
    vc1_corvid_init_params(r);
    const auto* p = static_cast<const CodecUtilVC1Param_t*>(parameters);
    if (p == nullptr) {
        CODEC_UTIL_WARNING(" The parameters is NULL, just do fake set parameters");
    } else {
        if (p->width <= 0 || p->height <= 0) {
            r->b_ts_vc1 = TRUE;
            CODEC_UTIL_INFO("We set the VC1 mode to TS");
        } else {
            r->sequence_header_a.horiz_size = static_cast<zarn_uint32>(p->width);
            r->sequence_header_a.vert_size = static_cast<zarn_uint32>(p->height);
        }
        r->num_frames = static_cast<zarn_uint32>(p->frameNum);
        r->bitrate = static_cast<zarn_uint32>(p->bitRate);
        if (p->fourcc != nullptr) {
            r->forcc = *p->fourcc;
            if (r->forcc != kFourccWmv3 && !is_advanced(r->forcc)) {
                CODEC_UTIL_WARNING("\n !!! fourcc %x, this kind of video need not convert\n",
                                   r->forcc);
                return FALSE;
            }
        }
        if (p->frameRate > 0)
            r->sequence_header_b.framerate = static_cast<zarn_uint32>(p->frameRate);
        if (p->codecData.data != nullptr && p->codecData.size != 0) {
            r->codec_data = static_cast<zarn_uint8*>(codec_util_malloc(h, p->codecData.size));
            if (r->codec_data != nullptr) {
                std::memcpy(r->codec_data, p->codecData.data, p->codecData.size);
                r->codec_data_size = p->codecData.size;
            }
        }
    }
    dump_valid_parameters(r);
    if (r->b_ts_vc1) return TRUE;
    const zarn_bool ok = vc1_corvid_parse_codec_specific_data(r);
    CODEC_UTIL_DEBUG("vc1_parse_codec_specific_data return %d", ok);
    return ok;
}

zarn_bool vc1_corvid_is_convert_needed(CodecUtilBase_t* h) {
    if (h == nullptr) {
        CODEC_UTIL_ERROR("Pass NULL pointer, ERROR!");
        return FALSE;
    }
    return vc1(h)->b_ts_vc1 ? FALSE : TRUE;
}

void vc1_corvid_generate_payload_header(zarn_uint32 scode_type, zarn_uint8* payload_header,
                                        zarn_uint32 payload_size, zarn_uint32 width,
                                        zarn_uint32 height, int profile) {
    CODEC_UTIL_DEBUG("enter vc1_corvid_generate_payload_header");
    const uint8_t codec_id = profile == 4 ? kCodecIdVc1Main : kCodecIdVc1Simple;
    const PayloadHeader h = make_payload_header(static_cast<uint8_t>(scode_type), codec_id, width,
                                                height, payload_size);
    std::memcpy(payload_header, h.data(), h.size());
    CODEC_UTIL_DEBUG("We add start code: %8x", scode_type | 0x100);
    CODEC_UTIL_DEBUG("We add payload_header length: %8x", read_be_unchecked(h.data() + 4, 4));
    CODEC_UTIL_DEBUG("We add Codec ID, Version and width: %8x,profile=%d",
                     read_be_unchecked(h.data() + 8, 4), profile);
    CODEC_UTIL_DEBUG("We add Height: %8x", read_be_unchecked(h.data() + 12, 4));
}

// RCV sequence layer, SMPTE 421M Annex L (Table 263 with version byte 0xC5).
void vc1_corvid_generate_seq_header(const ZarnUtilCodecVC1Corvid_t* p_vc1_corvid,
                                    zarn_uint8* seq_layer) {
    const ZarnUtilCodecVC1Corvid_t* r = p_vc1_corvid;
    const std::span<uint8_t> out(seq_layer, kSeqLayerSize);
    CODEC_UTIL_DEBUG("enter vc1_corvid_generate_seq_header");
    CODEC_UTIL_DEBUG("num_frames : %u(%x)", r->num_frames, r->num_frames);
    uint32_t num_frames = r->num_frames;
    if (num_frames >= kMaxRcvFrames) {
        CODEC_UTIL_DEBUG("The total frame is too big, just set it to all FF");
        num_frames = kMaxRcvFrames;
    }
    put_le32(out.subspan(0, 4), num_frames);  // NUMFRAMES (24 bits)
    out[3] = 0xC5;                            // RCV version
    put_le32(out.subspan(4, 4), kStructCSize);
    put_be32(out.subspan(8, 4), r->sequence_header_c_ph);  // STRUCT_C in bitstream order
    CODEC_UTIL_DEBUG("We add the StructC is %x", r->sequence_header_c_ph);
    put_le32(out.subspan(12, 4), r->sequence_header_a.vert_size);
    CODEC_UTIL_TRACE("We add Struct_A vert_size to %x", r->sequence_header_a.vert_size);
    put_le32(out.subspan(16, 4), r->sequence_header_a.horiz_size);
    CODEC_UTIL_TRACE("We add Struct_A horiz_size to %x", r->sequence_header_a.horiz_size);
    put_le32(out.subspan(20, 4), 12);  // STRUCT_B length
    CODEC_UTIL_DEBUG("We add struct_B length to %x", 12u);
    const auto& b = r->sequence_header_b.u.first;
    // LEVEL (3 bits), CBR (1), RES1 (4), then HRD_BUFFER (24 bits).
    put_le32(out.subspan(24, 4),
             (b.level * 32u + b.cbr * 16u + b.res1) | (static_cast<uint32_t>(b.hrd_buffer) << 8));
    CODEC_UTIL_DEBUG("We add struct_B content 2nd byte: %x", static_cast<unsigned>(out[24]));
    put_le32(out.subspan(28, 4), b.hrd_rate);
    CODEC_UTIL_DEBUG("We add struct_B content 2nd byte: %x", static_cast<unsigned>(out[28]));
    put_le32(out.subspan(32, 4), r->sequence_header_b.framerate);
}

// RCV frame layer: FRAMESIZE (24 bits) with KEY in bit 31, then TIMESTAMP 0.
void vc1_corvid_generate_frame_layer(const ZarnUtilCodecVC1Corvid_t*, zarn_uint32 keyframe,
                                     zarn_uint32 in_size, zarn_uint8* frm_layer) {
    CODEC_UTIL_DEBUG("Enter vc1_corvid_generate_frame_layer !");
    const uint32_t word = (in_size & 0xFFFFFF) | (keyframe != 0 ? 0x80000000u : 0);
    CODEC_UTIL_DEBUG("We add first 4 bytes to frame layer: %8x", word);
    put_le32(std::span(frm_layer, 4), word);
    put_le32(std::span(frm_layer + 4, 4), 0);
}

template <class Emit>
uint8_t* write_vc1(ZarnUtilCodecVC1Corvid_t* r, void* stream, zarn_uint32* new_size, Emit&& emit) {
    RingSpace space;
    if (!write_measured(r->getbufFunc, stream, space, emit)) {
        CODEC_UTIL_DEBUG("no hardware memory:%d\n", static_cast<int>(measure(emit)));
        *new_size = 0;
        return nullptr;
    }
    *new_size = space.length;
    return space.first;
}

// Simple/main profile: [sequence packet] frame packet. A refused request
// keeps the sequence packet pending for the next frame.
zarn_uint8* push_rcv(ZarnUtilCodecVC1Corvid_t* r, void* stream, const CodecUtilBuffer_t* in_buf,
                     zarn_uint32 keyframe, zarn_uint32* new_size) {
    const uint32_t insize = in_buf->size;
    const auto width = r->sequence_header_a.horiz_size;
    const auto height = r->sequence_header_a.vert_size;
    const int profile = static_cast<int>(struct_c_profile(r));
    zarn_uint8 payload_header_seq[kPayloadHeaderSize];
    zarn_uint8 seq_layer[kSeqLayerSize];
    zarn_uint8 payload_header_frm[kPayloadHeaderSize];
    zarn_uint8 frm_layer[kFrameLayerSize];
    CODEC_UTIL_DEBUG("keyframe:%d, seq_layer_needed = %u", static_cast<int>(keyframe),
                     r->seq_layer_needed);
    const bool with_seq = r->seq_layer_needed != 0;
    if (with_seq) {
        vc1_corvid_generate_seq_header(r, seq_layer);
        CODEC_UTIL_TRACE("Dump the seq_layer");
        CODEC_UTIL_DUMP_BYTES(seq_layer, kSeqLayerSize);
        vc1_corvid_generate_payload_header(kScodeSequence, payload_header_seq, kSeqLayerSize, width,
                                           height, profile);
        CODEC_UTIL_TRACE("Dump the payload_header_seq");
        CODEC_UTIL_DUMP_BYTES(payload_header_seq, kPayloadHeaderSize);
    }
    // L is taken modulo 2^24 by the header; the size is computed in 64 bits.
    vc1_corvid_generate_payload_header(kScodeFrame, payload_header_frm, insize + kFrameLayerSize,
                                       width, height, profile);
    CODEC_UTIL_TRACE("Dump the payload_header_frm");
    CODEC_UTIL_DUMP_BYTES(payload_header_frm, kPayloadHeaderSize);
    vc1_corvid_generate_frame_layer(r, keyframe, insize, frm_layer);
    CODEC_UTIL_TRACE("Dump the frm_layer");
    CODEC_UTIL_DUMP_BYTES(frm_layer, kFrameLayerSize);

    uint8_t* const hw = write_vc1(r, stream, new_size, [&](auto& out) {
        if (with_seq) {
            out.write(payload_header_seq, kPayloadHeaderSize);
            out.write(seq_layer, kSeqLayerSize);
        }
        out.write(payload_header_frm, kPayloadHeaderSize);
        out.write(frm_layer, kFrameLayerSize);
        out.write(in_buf->data, insize);
    });
    if (hw != nullptr && with_seq) r->seq_layer_needed = 0;
    return hw;
}

// Big-endian first word of the frame. Frames shorter than four bytes have
// none: they never count as beginning with a start code (and so get the
// units a frame without start codes gets).
uint32_t frame_leading_word(const CodecUtilBuffer_t* in_buf) {
    return in_buf->size >= 4 ? read_be_unchecked(in_buf->data, 4) : 0xFFFFFFFF;
}

// Advanced profile: [sequence header] [entry point] [00 00 01 0D] frame. The
// sequence header is offered once after set_param, even if the request for
// space is then refused.
zarn_uint8* push_advanced(ZarnUtilCodecVC1Corvid_t* r, void* stream,
                          const CodecUtilBuffer_t* in_buf, zarn_uint32 keyframe,
                          zarn_uint32* new_size) {
    static constexpr uint8_t kFrameStartCode[] = {0x00, 0x00, 0x01, 0x0D};
    struct Prefix {
        std::span<const uint8_t> seq, entry, frame;
        [[nodiscard]] uint64_t size() const {
            return static_cast<uint64_t>(seq.size()) + entry.size() + frame.size();
        }
    } pfx_frmdata;
    CODEC_UTIL_DEBUG("WVC1CC/WMVACC, seq_layer_needed=%d, keyframe=%d",
                     static_cast<int>(r->seq_layer_needed), static_cast<int>(keyframe));
    if (r->seq_layer_needed != 0) {
        if (r->seq_header != nullptr) pfx_frmdata.seq = {r->seq_header, r->seq_header_len};
        r->seq_layer_needed = 0;
        keyframe = 1;
        CODEC_UTIL_DEBUG("WVC1CC/WMVACC, after make_seq_layer, prefix_size=%d, keyframe=%d\n",
                         static_cast<int>(pfx_frmdata.size()), static_cast<int>(keyframe));
    }
    const uint32_t lead = frame_leading_word(in_buf);
    if (keyframe != 0) {
        CODEC_UTIL_DEBUG("WVC1CC/WMVACC, the keyframe begin with %x", lead);
        if (lead != EP_SC && r->entry_point != nullptr)
            pfx_frmdata.entry = {r->entry_point, r->entry_point_len};
    }
    CODEC_UTIL_DEBUG("WVC1CC/WMVACC, after entry-point, prefix_size = %d",
                     static_cast<int>(pfx_frmdata.size()));
    CODEC_UTIL_DEBUG("WVC1CC/WMVACC, the frame begin with %x", lead);
    if (lead != FRM_SC && lead != EP_SC) pfx_frmdata.frame = kFrameStartCode;
    CODEC_UTIL_DEBUG("WVC1CC/WMVACC, after picture, prefix_size=%d\n",
                     static_cast<int>(pfx_frmdata.size()));
    CODEC_UTIL_TRACE("Dump the pfx_frmdata");
    dump_byte_runs({pfx_frmdata.seq, pfx_frmdata.entry, pfx_frmdata.frame}, __FILE__, __func__,
                   __LINE__);

    return write_vc1(r, stream, new_size, [&](auto& out) {
        out.write(pfx_frmdata.seq);
        out.write(pfx_frmdata.entry);
        out.write(pfx_frmdata.frame);
        out.write(in_buf->data, in_buf->size);
    });
}

// Results:
//   NULL handle, buffer or size pointer       NULL, *new_size untouched
//   TS mode                                   in_buf->data, *new_size = in_buf->size
//   four-character code none of the three     NULL, *new_size untouched
//   no ring space (or output past 32 bits)    NULL, *new_size 0
//   converted                                 space, *new_size = output length
// A refused request keeps a "WMV3" sequence packet pending; the advanced
// profile's sequence header is not offered again. Advanced-profile units are
// sent whole whatever their length (no fixed prefix store), and frames under
// four bytes count as beginning with no start code.
zarn_uint8* vc1_corvid_push_buffer(CodecUtilBase_t* h, void* stream, CodecUtilBuffer_t* in_buf,
                                   zarn_uint32* new_size) {
    if (h == nullptr || in_buf == nullptr || new_size == nullptr) {
        CODEC_UTIL_ERROR("Pass NULL pointer, ERROR!");
        return nullptr;
    }
    ZarnUtilCodecVC1Corvid_t* r = vc1(h);
    if (r->b_ts_vc1) {
        CODEC_UTIL_WARNING(
            "We should not get here, because TS stream need not convert. Please check!!!");
        *new_size = in_buf->size;
        return in_buf->data;
    }
    const zarn_uint32 keyframe = in_buf->flag & CODEC_UTIL_FLAG_KEY_FRAME;
    if (r->forcc == kFourccWmv3) return push_rcv(r, stream, in_buf, keyframe, new_size);
    if (is_advanced(r->forcc)) return push_advanced(r, stream, in_buf, keyframe, new_size);
    CODEC_UTIL_ERROR("Should not get here");
    return nullptr;
}

void CodecUtil_VC1_Destroy(CodecUtilBase_t* base) {
    ZarnUtilCodecVC1Corvid_t* r = vc1(base);
    if (r->codec_data != nullptr) codec_util_free(base, r->codec_data);
    codec_util_free(base, base);
}

constexpr ConverterOps kVc1Ops = {
    .destroy = CodecUtil_VC1_Destroy,
    .set_param = vc1_corvid_set_params,
    .check_conv = vc1_corvid_is_convert_needed,
    .conv_push_buffer = vc1_corvid_push_buffer,
    .set_getbuf_func = store_getbuf_func<ZarnUtilCodecVC1Corvid_t>,
};

}  // namespace

extern "C" CODEC_UTIL_API void* CodecUtil_VC1_Create(CodecUtilMemVtable_t* vtable) {
    return create_converter<ZarnUtilCodecVC1Corvid_t>(vtable, kVc1Ops);
}
