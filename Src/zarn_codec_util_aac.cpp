// AAC converter: raw AAC access units with an AudioSpecificConfig as codec
// data become ADTS frames (ISO/IEC 14496-3 1.A.2.2) in the decoder's ring.
//
// set_param parses the AudioSpecificConfig once through the bit buffer below
// and builds a 7-byte ADTS header template; each push stores the template
// with the frame length (unit + 7, low 13 bits) in the ring and writes
//   [ADTS header, 7 bytes][raw_data_block, the unit as given]
// A unit that already starts with an ADTS header whose length field equals
// the unit's size is handed back untouched.
//
// Results of conv_push_buffer:
//   unit already carries a matching ADTS header   buffer->data, *size unchanged
//   no config parsed (need_convert FALSE)         NULL, *size unchanged
//   no ring space granted, or unit + 7 > 4 GiB    NULL, *size 0
//   converted                                     space start, *size unit + 7
#include "zarn_codec_util_aac.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "codec_util_converter.h"
#include "codec_util_copy.h"
#include "codec_util_ring.h"
#include "zarn_codec_util_bitbuf.h"

// ---------------------------------------------------------------------------
// Bit buffer
// ---------------------------------------------------------------------------

namespace {

// Areas are addressed through integers so that an empty area (its last byte
// one before its first) never forms an out-of-range pointer.
unsigned char* byte_at(const unsigned char* base, uint64_t index) {
    return reinterpret_cast<unsigned char*>(reinterpret_cast<uintptr_t>(base) +
                                            static_cast<uintptr_t>(index));
}

bool area_empty(const BIT_BUF* b) {
    return reinterpret_cast<uintptr_t>(b->pBitBufBase) > reinterpret_cast<uintptr_t>(b->pBitBufEnd);
}

uint64_t area_length(const BIT_BUF* b) {
    return area_empty(b) ? 0 : static_cast<uint64_t>(b->pBitBufEnd - b->pBitBufBase) + 1;
}

unsigned char* next_byte(const BIT_BUF* b, unsigned char* p) {
    return p == b->pBitBufEnd ? b->pBitBufBase : p + 1;
}

// The counters are 32-bit signed fields; they wrap rather than overflow.
zarn_sint32 add_wrapping(zarn_sint32 counter, int64_t delta) {
    return static_cast<zarn_sint32>(static_cast<uint32_t>(counter) + static_cast<uint32_t>(delta));
}

void flag_error(BIT_BUF* b) {
    b->status = static_cast<zarn_uint16>(b->status | BIT_BUF_STATUS_ERROR);
}

}  // namespace

extern "C" {

CODEC_UTIL_API HANDLE_BIT_BUF CreateOffsetBitBuffer(HANDLE_BIT_BUF hBitBuf,
                                                    unsigned char* pBitBufBase,
                                                    zarn_uint32 bitBufSize, zarn_uint32 offset) {
    const uint64_t area_bytes = (static_cast<uint64_t>(bitBufSize) + 7) / 8;
    hBitBuf->pBitBufBase = byte_at(pBitBufBase, offset / 8);
    hBitBuf->pBitBufEnd = byte_at(pBitBufBase, area_bytes - 1);
    hBitBuf->pReadNext = hBitBuf->pBitBufBase;
    hBitBuf->pWriteNext = hBitBuf->pBitBufBase;
    hBitBuf->rBitPos = 7 - static_cast<int>(offset % 8);
    hBitBuf->wBitPos = hBitBuf->rBitPos;
    hBitBuf->cntBits = 0;
    hBitBuf->cntReadBits = 0;
    hBitBuf->size = bitBufSize;
    hBitBuf->rCache = area_empty(hBitBuf) ? 0 : *hBitBuf->pBitBufBase;
    hBitBuf->status = 0;
    return hBitBuf;
}

CODEC_UTIL_API HANDLE_BIT_BUF CreateBitBuffer(HANDLE_BIT_BUF hBitBuf, unsigned char* pBitBufBase,
                                              zarn_uint32 bitBufSize) {
    return CreateOffsetBitBuffer(hBitBuf, pBitBufBase, bitBufSize, 0);
}

CODEC_UTIL_API HANDLE_BIT_BUF CreateInitializedBitBuffer(HANDLE_BIT_BUF hBitBuf,
                                                         unsigned char* pBitBufBase,
                                                         zarn_uint32 bitBufSize) {
    CreateBitBuffer(hBitBuf, pBitBufBase, bitBufSize);
    hBitBuf->cntBits = static_cast<zarn_sint32>(bitBufSize);
    return hBitBuf;
}

CODEC_UTIL_API HANDLE_BIT_BUF CreateInitializedOffsetBitBuffer(HANDLE_BIT_BUF hBitBuf,
                                                               unsigned char* pBitBufBase,
                                                               zarn_uint32 bitBufSize,
                                                               zarn_uint32 offset) {
    CreateOffsetBitBuffer(hBitBuf, pBitBufBase, bitBufSize, offset);
    hBitBuf->cntBits = static_cast<zarn_sint32>(bitBufSize);
    return hBitBuf;
}

CODEC_UTIL_API void DeleteBitBuffer(HANDLE_BIT_BUF* hBitBuf) { *hBitBuf = nullptr; }

CODEC_UTIL_API void ResetBitBuffer(HANDLE_BIT_BUF hBitBuf) {
    hBitBuf->pReadNext = hBitBuf->pBitBufBase;
    hBitBuf->pWriteNext = hBitBuf->pBitBufBase;
    hBitBuf->rBitPos = 7;
    hBitBuf->wBitPos = 7;
    hBitBuf->cntBits = 0;
    hBitBuf->cntReadBits = 0;
    hBitBuf->rCache = area_empty(hBitBuf) ? 0 : *hBitBuf->pBitBufBase;
    hBitBuf->status = 0;
}

CODEC_UTIL_API void ResetBitsRead(HANDLE_BIT_BUF hBitBuf) { hBitBuf->cntReadBits = 0; }

CODEC_UTIL_API zarn_uint32 GetReadBits(HANDLE_BIT_BUF hBitBuf) {
    return static_cast<zarn_uint32>(hBitBuf->cntReadBits);
}

CODEC_UTIL_API zarn_uint16 GetBitBufStatus(HANDLE_BIT_BUF hBitBuf) { return hBitBuf->status; }

CODEC_UTIL_API zarn_uint32 GetBitsInBuf(const BIT_BUF* hBitBuf) {
    return static_cast<zarn_uint32>(hBitBuf->cntBits);
}

CODEC_UTIL_API void CopyBitBuf(HANDLE_BIT_BUF hBitBufSrc, HANDLE_BIT_BUF hBitBufDst) {
    *hBitBufDst = *hBitBufSrc;
}

CODEC_UTIL_API void CopyBitBufAll(HANDLE_BIT_BUF hBitBufSrc, HANDLE_BIT_BUF hBitBufDst) {
    const uint64_t n = area_length(hBitBufSrc);
    if (n != 0)
        std::memmove(hBitBufDst->pBitBufBase, hBitBufSrc->pBitBufBase, static_cast<size_t>(n));
    hBitBufDst->pReadNext =
        hBitBufDst->pBitBufBase + (hBitBufSrc->pReadNext - hBitBufSrc->pBitBufBase);
    hBitBufDst->pWriteNext =
        hBitBufDst->pBitBufBase + (hBitBufSrc->pWriteNext - hBitBufSrc->pBitBufBase);
    hBitBufDst->rBitPos = hBitBufSrc->rBitPos;
    hBitBufDst->wBitPos = hBitBufSrc->wBitPos;
    hBitBufDst->cntBits = hBitBufSrc->cntBits;
    hBitBufDst->cntReadBits = hBitBufSrc->cntReadBits;
    hBitBufDst->rCache = hBitBufSrc->rCache;
    hBitBufDst->status = hBitBufSrc->status;
}

// Takes the bits byte-wise from the one-byte cache: at most one load per byte
// entered. A read ending on a byte boundary enters the next byte too, so
// rCache always holds the byte of the next unread bit.
CODEC_UTIL_API zarn_uint32 ReadBits(HANDLE_BIT_BUF hBitBuf, unsigned char noBitsToRead) {
    CODEC_UTIL_ASSERT(noBitsToRead <= 32);
    if (static_cast<zarn_sint32>(noBitsToRead) > hBitBuf->cntBits) {
        flag_error(hBitBuf);
        return 0;
    }
    if (noBitsToRead == 0) return 0;
    if (area_empty(hBitBuf)) {  // bits declared over no bytes
        flag_error(hBitBuf);
        return 0;
    }
    hBitBuf->cntBits = add_wrapping(hBitBuf->cntBits, -static_cast<int64_t>(noBitsToRead));
    hBitBuf->cntReadBits = add_wrapping(hBitBuf->cntReadBits, noBitsToRead);
    uint32_t value = 0;
    unsigned left = noBitsToRead;
    while (left != 0) {
        const auto avail = static_cast<unsigned>(hBitBuf->rBitPos + 1);
        const unsigned k = std::min(left, avail);
        const uint32_t chunk =
            (static_cast<uint32_t>(hBitBuf->rCache) >> (avail - k)) & ((1u << k) - 1);
        value = (value << k) | chunk;  // above 32 bits only the low 32 are kept
        hBitBuf->rBitPos -= static_cast<int>(k);
        left -= k;
        if (hBitBuf->rBitPos < 0) {
            hBitBuf->pReadNext = next_byte(hBitBuf, hBitBuf->pReadNext);
            hBitBuf->rCache = *hBitBuf->pReadNext;
            hBitBuf->rBitPos = 7;
        }
    }
    return value;
}

CODEC_UTIL_API zarn_uint8 WriteBits(HANDLE_BIT_BUF hBitBuf, zarn_uint32 writeValue,
                                    unsigned char noBitsToWrite) {
    CODEC_UTIL_ASSERT(noBitsToWrite <= 32);
    hBitBuf->cntBits = add_wrapping(hBitBuf->cntBits, noBitsToWrite);
    if (noBitsToWrite == 0) return 0;
    if (area_empty(hBitBuf)) return noBitsToWrite;
    unsigned left = noBitsToWrite;
    while (left != 0) {
        const auto room = static_cast<unsigned>(hBitBuf->wBitPos + 1);
        const unsigned k = std::min(left, room);
        const unsigned lsb = left - k;  // value bit landing in the chunk's last position
        const uint32_t chunk = lsb >= 32 ? 0 : (writeValue >> lsb) & ((1u << k) - 1);
        const unsigned shift = room - k;
        const uint32_t mask = ((1u << k) - 1) << shift;
        *hBitBuf->pWriteNext =
            static_cast<unsigned char>((*hBitBuf->pWriteNext & ~mask) | (chunk << shift));
        if (hBitBuf->pWriteNext == hBitBuf->pReadNext) hBitBuf->rCache = *hBitBuf->pWriteNext;
        hBitBuf->wBitPos -= static_cast<int>(k);
        left -= k;
        if (hBitBuf->wBitPos < 0) {
            hBitBuf->pWriteNext = next_byte(hBitBuf, hBitBuf->pWriteNext);
            hBitBuf->wBitPos += 8;
        }
    }
    return noBitsToWrite;
}

CODEC_UTIL_API void ByteAlign(HANDLE_BIT_BUF hBitBuf, zarn_sint32* pByteAlignBits) {
    // Bits read since the reference was taken, modulo 8.
    const uint32_t d =
        (static_cast<uint32_t>(*pByteAlignBits) - static_cast<uint32_t>(hBitBuf->cntBits)) & 7u;
    if (d != 0) ReadBits(hBitBuf, static_cast<unsigned char>(8 - d));
    *pByteAlignBits = hBitBuf->cntBits;
}

CODEC_UTIL_API int AlignBits(const BIT_BUF* hBitBuf) {
    auto* b = const_cast<BIT_BUF*>(hBitBuf);
    const uint32_t n = (0u - static_cast<uint32_t>(b->cntBits)) & 7u;
    WriteBits(b, 0, static_cast<unsigned char>(n));
    return static_cast<int>(n);
}

// Backward room: the bytes between the write position and the read position
// going backwards, i.e. those not yet overwritten since they were read.
CODEC_UTIL_API void WindBitBufferBidirectional(HANDLE_BIT_BUF hBitBuf, zarn_sint32 offset) {
    if (offset == 0) return;
    if (offset > 0) {
        if (offset > hBitBuf->cntBits) {
            flag_error(hBitBuf);
            return;
        }
    } else {
        const int64_t bits = offset == INT32_MIN ? INT32_MAX : -static_cast<int64_t>(offset);
        const int64_t bytes = bits / 8;
        const int64_t room = hBitBuf->pReadNext <= hBitBuf->pWriteNext
                                 ? (hBitBuf->pReadNext - hBitBuf->pBitBufBase) +
                                       (hBitBuf->pBitBufEnd - hBitBuf->pWriteNext) + 1
                                 : hBitBuf->pReadNext - hBitBuf->pWriteNext;
        if (bytes > room || bits > hBitBuf->cntReadBits) {
            flag_error(hBitBuf);
            return;
        }
    }
    if (area_empty(hBitBuf)) {
        flag_error(hBitBuf);
        return;
    }
    const int64_t p = static_cast<int64_t>(hBitBuf->rBitPos) - offset;
    hBitBuf->rBitPos = static_cast<int>(p & 7);
    const int64_t step = p >> 3;  // bytes backwards; negative moves forward
    if (step != 0) {
        const auto length = static_cast<int64_t>(area_length(hBitBuf));
        int64_t pos = ((hBitBuf->pReadNext - hBitBuf->pBitBufBase) - step) % length;
        if (pos < 0) pos += length;
        hBitBuf->pReadNext = hBitBuf->pBitBufBase + pos;
        hBitBuf->rCache = *hBitBuf->pReadNext;
    }
    hBitBuf->cntBits = add_wrapping(hBitBuf->cntBits, -static_cast<int64_t>(offset));
    hBitBuf->cntReadBits = add_wrapping(hBitBuf->cntReadBits, offset);
}

}  // extern "C"

// ---------------------------------------------------------------------------
// AudioSpecificConfig and ADTS
// ---------------------------------------------------------------------------

namespace {

using namespace codecutil;

// ISO/IEC 14496-3 Table 1.18, samplingFrequencyIndex 0..12.
constexpr zarn_uint32 iSampFreqs[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                      22050, 16000, 12000, 11025, 8000,  7350};
constexpr unsigned kEscapeRateIndex = 15;         // the rate follows in 24 bits
constexpr uint32_t kSyncExtensionType = 0x2B7;    // backward-compatible SBR signalling
constexpr uint32_t kPsSyncExtensionType = 0x548;  // PS signalling behind it

// ADTS fixed + variable header (ISO/IEC 14496-3 1.A.2.2.1):
//   0   syncword 0xFFF (12)
//   1   ID 0 (MPEG-4), layer 00, protection_absent 1
//   2   profile_ObjectType (2) = AOT - 1, sampling_frequency_index (4),
//       private_bit, channel_configuration bit 2
//   3   channel_configuration bits 1..0, original_copy, home,
//       copyright_identification_bit/start, aac_frame_length bits 12..11
//   4   aac_frame_length bits 10..3
//   5   aac_frame_length bits 2..0, adts_buffer_fullness bits 10..6
//   6   adts_buffer_fullness bits 5..0, number_of_raw_data_blocks_in_frame 0
// Buffer fullness is 0x7CF, so byte 6 is 0x3C rather than the 0xFC of the
// usual VBR value 0x7FF.
constexpr std::array<uint8_t, ADTS_HEADER_SIZE> make_adts_header(unsigned aot, unsigned sr_index,
                                                                 unsigned channel_config,
                                                                 uint32_t frame_length) {
    const uint32_t l = frame_length & 0x1FFF;
    return {
        0xFF,
        0xF1,
        static_cast<uint8_t>((((aot - 1) & 3) << 6) | ((sr_index & 0xF) << 2) |
                             ((channel_config >> 2) & 1)),
        static_cast<uint8_t>(((channel_config & 3) << 6) | (l >> 11)),
        static_cast<uint8_t>(l >> 3),
        static_cast<uint8_t>(((l & 7) << 5) | 0x1F),
        0x3C,
    };
}
// AAC LC, 44100 Hz, stereo, 100-byte raw data block.
static_assert(make_adts_header(2, 4, 2, 107) ==
              std::array<uint8_t, ADTS_HEADER_SIZE>{0xFF, 0xF1, 0x50, 0x80, 0x0D, 0x7F, 0x3C});
// Longest length: all 13 bits set.
static_assert(make_adts_header(2, 4, 2, 0x1FFF)[3] == 0x83 &&
              make_adts_header(2, 4, 2, 0x1FFF)[5] == 0xFF);

constexpr uint32_t adts_frame_length(const uint8_t* h) {
    return (static_cast<uint32_t>(h[3] & 0x03) << 11) | (static_cast<uint32_t>(h[4]) << 3) |
           (static_cast<uint32_t>(h[5]) >> 5);
}

uint32_t read_bits(HANDLE_BIT_BUF bs, unsigned n) {
    return ReadBits(bs, static_cast<unsigned char>(n));
}

// samplingFrequencyIndex with the escape to an explicit 24-bit rate; 0 for
// the reserved indices 13 and 14.
zarn_uint32 read_sampling_frequency(HANDLE_BIT_BUF bs) {
    const uint32_t index = read_bits(bs, 4);              // samplingFrequencyIndex
    return index == kEscapeRateIndex ? read_bits(bs, 24)  // samplingFrequency
                                     : zarn_trnsptIndexToFrequency(index);
}

bool is_er_object(int aot) {
    return aot == eAOT_ER_AAC_LC || (aot >= eAOT_ER_AAC_LTP && aot <= eAOT_ER_AAC_LD);
}

// GASpecificConfig, ISO/IEC 14496-3 4.4.1 Table 4.1. The program config
// element of channel configuration 0 is not read.
eTrnsptError zarn_trnsptReadGASConfigFromBitstream(HANDLE_BIT_BUF bs, tAudioSpecificConfig* asc) {
    tGeneralAudioSpecificConfig& ga = asc->GASConfig;
    const int aot = asc->eAudioObjectType;
    const uint32_t frame_length_flag = read_bits(bs, 1);  // frameLengthFlag
    if (aot == eAOT_AAC_SSR) {
        if (frame_length_flag != 0) return eTrnsptFAIL;
        ga.nFrameLength = 1024;
    } else if (aot == eAOT_ER_AAC_LD) {
        ga.nFrameLength = frame_length_flag != 0 ? 512 : 480;
    } else {
        ga.nFrameLength = frame_length_flag != 0 ? 960 : 1024;
    }
    ga.bDependsOnCoreCoder = static_cast<unsigned char>(read_bits(bs, 1));    // dependsOnCoreCoder
    if (ga.bDependsOnCoreCoder != 0) ga.nCoreCoderDelay = read_bits(bs, 14);  // coreCoderDelay
    ga.ucExtensionFlag = static_cast<unsigned char>(read_bits(bs, 1));        // extensionFlag
    if (asc->ucChannelConfiguration == 0) {
        ga.bPCEPresent = 1;
        CODEC_UTIL_INFO("we do not support channelConfig == 0");  // required as is
    }
    if (aot == eAOT_AAC_SCALABLE || aot == eAOT_ER_AAC_SCALABLE) read_bits(bs, 3);  // layerNr
    if (ga.ucExtensionFlag != 0) {
        if (aot == eAOT_ER_BSAC) {
            read_bits(bs, 5);   // numOfSubFrame
            read_bits(bs, 11);  // layer_length
        }
        if (aot == eAOT_ER_AAC_LC || aot == eAOT_ER_AAC_LTP || aot == eAOT_ER_AAC_SCALABLE ||
            aot == eAOT_ER_AAC_LD) {
            read_bits(bs, 1);  // aacSectionDataResilienceFlag
            read_bits(bs, 1);  // aacScalefactorDataResilienceFlag
            read_bits(bs, 1);  // aacSpectralDataResilienceFlag
        }
        read_bits(bs, 1);  // extensionFlag3
    }
    if (aot == eAOT_ER_TWINVQ) return eTrnsptNotSupported;
    return eTrnsptOK;
}

bool is_ga_object(int aot) {
    switch (aot) {
        case eAOT_AAC_MAIN:
        case eAOT_AAC_LC:
        case eAOT_AAC_SSR:
        case eAOT_AAC_LTP:
        case eAOT_AAC_SCALABLE:
        case eAOT_TWINVQ:
        case eAOT_ER_AAC_LC:
        case eAOT_ER_AAC_LTP:
        case eAOT_ER_AAC_SCALABLE:
        case eAOT_ER_TWINVQ:
        case eAOT_ER_BSAC:
        case eAOT_ER_AAC_LD:
            return true;
        default:
            return false;
    }
}

// AudioSpecificConfig, ISO/IEC 14496-3 1.6.2.1 Table 1.15, without the
// program config element and with the SBR/PS sync extension of 1.6.5.
eTrnsptError parse_asc(HANDLE_BIT_BUF bs, unsigned bits_to_decode, tAudioSpecificConfig* asc) {
    const uint32_t start = GetReadBits(bs);
    const auto remaining = [&]() -> int64_t {
        return static_cast<int64_t>(bits_to_decode) - static_cast<int64_t>(GetReadBits(bs) - start);
    };
    int aot = static_cast<int>(read_bits(bs, 5));                  // audioObjectType
    if (aot == 31) aot = 32 + static_cast<int>(read_bits(bs, 6));  // audioObjectTypeExt
    asc->eAudioObjectType = aot;
    asc->nSamplingFrequency = read_sampling_frequency(bs);
    if (asc->nSamplingFrequency == 0) return eTrnsptNotSupported;
    asc->ucChannelConfiguration =
        static_cast<unsigned char>(read_bits(bs, 4));  // channelConfiguration
    if (asc->ucChannelConfiguration > 7) return eTrnsptNotSupported;
    if (aot == eAOT_SBR || aot == eAOT_PS) {  // explicit hierarchical signalling
        asc->bSbrPresent = 1;
        asc->eExtensionAOT = eAOT_SBR;
        asc->nExtensionSamplingFrequency =
            read_sampling_frequency(bs);  // extensionSamplingFrequency
        if (asc->nExtensionSamplingFrequency == 0) return eTrnsptNotSupported;
        aot = static_cast<int>(read_bits(bs, 5));  // core audioObjectType, no escape
        asc->eAudioObjectType = aot;
    }
    if (!is_ga_object(aot)) return eTrnsptNotSupported;
    const eTrnsptError ga = zarn_trnsptReadGASConfigFromBitstream(bs, asc);
    if (ga != eTrnsptOK) return ga;
    if (is_er_object(aot)) {
        const uint32_t ep_config = read_bits(bs, 2);  // epConfig
        if (ep_config == 3) read_bits(bs, 1);         // directMapping
        if (ep_config == 2 || ep_config == 3) return eTrnsptNotSupported;
    }
    if (asc->eExtensionAOT != eAOT_SBR && remaining() >= 16) {
        const uint32_t sync = read_bits(bs, 11);  // syncExtensionType
        if (sync == kSyncExtensionType) {
            asc->eExtensionAOT = read_bits(bs, 5);  // extensionAudioObjectType
            if (asc->eExtensionAOT == eAOT_SBR) {
                asc->bSbrPresent = static_cast<unsigned char>(read_bits(bs, 1));  // sbrPresentFlag
                if (asc->bSbrPresent == 0) {
                    asc->nExtensionSamplingFrequency = asc->nSamplingFrequency;
                    return eTrnsptOK;
                }
                asc->nExtensionSamplingFrequency = read_sampling_frequency(bs);
                if (asc->nExtensionSamplingFrequency == 0) return eTrnsptNotSupported;
                if (remaining() >= 12) {
                    if (read_bits(bs, 11) == kPsSyncExtensionType)  // syncExtensionType
                        read_bits(bs, 1);                           // psPresentFlag
                    else
                        WindBitBufferBidirectional(bs, -11);
                }
            }
        } else {
            WindBitBufferBidirectional(bs, -11);
        }
    }
    if (asc->bSbrPresent == 0) asc->nExtensionSamplingFrequency = asc->nSamplingFrequency;
    return eTrnsptOK;
}

}  // namespace

extern "C" {

CODEC_UTIL_API zarn_uint32 zarn_trnsptIndexToFrequency(unsigned int idx) {
    return idx < std::size(iSampFreqs) ? iSampFreqs[idx] : 0;
}

CODEC_UTIL_API int FindAdtsSRIndex(int sr) {
    for (size_t i = 0; i < std::size(iSampFreqs); ++i)
        if (static_cast<int64_t>(iSampFreqs[i]) == sr) return static_cast<int>(i);
    return 0;
}

CODEC_UTIL_API eTrnsptError zarn_trnsptInitDefaultASC(tAudioSpecificConfig* pASC,
                                                      zarn_uint32 nSamplingFrequency,
                                                      int channelConfig, tAudioObjectType unAOT) {
    const size_t from = offsetof(tAudioSpecificConfig, bSbrPresent);
    std::memset(reinterpret_cast<unsigned char*>(pASC) + from, 0, sizeof(*pASC) - from);
    pASC->eAudioObjectType = unAOT;
    pASC->eExtensionAOT = 0;
    if (channelConfig < 0 || channelConfig > 7) return eTrnsptNotSupported;
    pASC->ucChannelConfiguration = static_cast<unsigned char>(channelConfig);
    pASC->nSamplingFrequency = nSamplingFrequency;
    pASC->nExtensionSamplingFrequency = nSamplingFrequency;
    pASC->GASConfig.nFrameLength = 1024;
    return eTrnsptOK;
}

// A read past the bits present yields zeros and sets the buffer's error bit;
// the parse reports that as eTrnsptNeedMoreBits instead of a config built
// from those zeros. The caller's earlier error bit is kept.
CODEC_UTIL_API eTrnsptError zarn_trnsptReadASConfigFromBitstream(HANDLE_BIT_BUF pBs,
                                                                 unsigned int bitsToDecode,
                                                                 tAudioSpecificConfig* pASC) {
    std::memset(pASC, 0, sizeof(*pASC));
    const zarn_uint16 saved = pBs->status;
    pBs->status = static_cast<zarn_uint16>(saved & ~BIT_BUF_STATUS_ERROR);
    const eTrnsptError result = parse_asc(pBs, bitsToDecode, pASC);
    const bool over_read = (pBs->status & BIT_BUF_STATUS_ERROR) != 0;
    pBs->status = static_cast<zarn_uint16>(pBs->status | saved);
    return over_read ? eTrnsptNeedMoreBits : result;
}

CODEC_UTIL_API eTrnsptError zarn_trnsptReadASConfig(AACPLUSDEC_BITSTREAMBUFFERINFO* info,
                                                    unsigned int bitsToDecode,
                                                    tAudioSpecificConfig* pASC) {
    if (info == nullptr || info->data == nullptr || info->nBytesInBuffer == 0 || pASC == nullptr)
        return eTrnsptNoConfigAvailable;
    // The bit count is a 32-bit field; a larger buffer is read up to 512 MiB.
    const uint32_t bytes = std::min<uint32_t>(info->nBytesInBuffer, UINT32_MAX / 8);
    BIT_BUF bb;
    CreateInitializedBitBuffer(&bb, static_cast<unsigned char*>(info->data), bytes * 8);
    if (info->nBitsOffset > bytes * 8) return eTrnsptNeedMoreBits;
    WindBitBufferBidirectional(&bb, static_cast<zarn_sint32>(info->nBitsOffset));
    const uint32_t before = GetReadBits(&bb);
    const eTrnsptError result = zarn_trnsptReadASConfigFromBitstream(&bb, bitsToDecode, pASC);
    if (result == eTrnsptOK) info->nBitsOffset += GetReadBits(&bb) - before;
    return result;
}

CODEC_UTIL_API void MakeAdtsHeader(tAudioSpecificConfig* pASC, unsigned char* atdsheader, int len) {
    const auto header = make_adts_header(
        static_cast<unsigned>(pASC->eAudioObjectType),
        static_cast<unsigned>(FindAdtsSRIndex(static_cast<int>(pASC->nSamplingFrequency))),
        pASC->ucChannelConfiguration, static_cast<uint32_t>(len) + ADTS_HEADER_SIZE);
    std::memcpy(atdsheader, header.data(), header.size());
}

namespace {

// frame_length (13 bits) across bytes 3 to 5.
inline void stamp_adts_length(unsigned char* h, int framelen) {
    const auto l = static_cast<uint32_t>(framelen) & 0x1FFF;
    h[3] = static_cast<unsigned char>((h[3] & 0xFC) | (l >> 11));
    h[4] = static_cast<unsigned char>(l >> 3);
    h[5] = static_cast<unsigned char>((h[5] & 0x1F) | ((l & 7) << 5));
}

inline bool has_adts_header(const unsigned char* buffer, int len) {
    // The fields tested end in byte 5.
    if (buffer == nullptr || len < 6) return false;
    if (buffer[0] != 0xFF || (buffer[1] & 0xF0) != 0xF0) return false;
    return static_cast<int64_t>(adts_frame_length(buffer)) == len;
}

}  // namespace

CODEC_UTIL_API void SetATDSLen(unsigned char* atdsheader, int framelen) {
    stamp_adts_length(atdsheader, framelen);
}

CODEC_UTIL_API zarn_bool AdtsHeaderIsAdded(unsigned char* buffer, int len) {
    return has_adts_header(buffer, len) ? TRUE : FALSE;
}

CODEC_UTIL_API eTrnsptError zarn_trnsptRead(void* data, int datalength, unsigned char* atdsheader,
                                            int framelength) {
    if (data == nullptr || atdsheader == nullptr || datalength <= 0)
        return eTrnsptNoConfigAvailable;
    tAudioSpecificConfig asc;
    zarn_trnsptInitDefaultASC(&asc, 48000, 2, eAOT_AAC_LC);
    AACPLUSDEC_BITSTREAMBUFFERINFO info{data, static_cast<unsigned>(datalength),
                                        static_cast<unsigned>(datalength), 0};
    const eTrnsptError result =
        zarn_trnsptReadASConfig(&info, static_cast<unsigned>(datalength) * 8u, &asc);
    if (result == eTrnsptOK) MakeAdtsHeader(&asc, atdsheader, framelength);
    return result;
}

}  // extern "C"

// ---------------------------------------------------------------------------
// Converter
// ---------------------------------------------------------------------------

namespace {

struct CodecUtil_AAC_t {
    CodecUtilBase_t base;
    zarn_uint8 ADTSHeader[ADTS_HEADER_SIZE];  // the header of the last config parsed
    zarn_bool need_convert;                   // TRUE once a config parsed
    CodecUtilGetBufFunc_t getbufFunc;
    // ADTSHeader as the push stores it: bytes 0 to 3 in memory order, and
    // bytes 3 to 6 as a big-endian word without the frame length.
    uint32_t head_word;
    uint32_t tail_be;
};
static_assert(std::is_standard_layout_v<CodecUtil_AAC_t>);
static_assert(offsetof(CodecUtil_AAC_t, base) == 0);

CodecUtil_AAC_t* aac(CodecUtilBase_t* base) { return record_of<CodecUtil_AAC_t>(base); }

// NULL param: FALSE, inactive. Otherwise TRUE; active when the config parsed
// (an unparsable one leaves the previous template bytes but deactivates).
zarn_bool CodecUtil_AAC_SetParam(CodecUtilBase_t* base, void* param) {
    CodecUtil_AAC_t* r = aac(base);
    r->need_convert = FALSE;
    const auto* p = static_cast<const CodecUtilAACParam_t*>(param);
    if (p == nullptr) return FALSE;
    // A size beyond INT_MAX reads as negative: no config.
    if (zarn_trnsptRead(p->data, static_cast<int>(p->size), r->ADTSHeader, 0) == eTrnsptOK) {
        r->need_convert = TRUE;
        const uint8_t* h = r->ADTSHeader;
        std::memcpy(&r->head_word, h, 4);
        // Bytes 3 to 6 big-endian, without the length's 13 bits (25..13).
        r->tail_be = (static_cast<uint32_t>(h[3]) << 24 | static_cast<uint32_t>(h[4]) << 16 |
                      static_cast<uint32_t>(h[5]) << 8 | h[6]) &
                     ~(0x1FFFu << 13);
    }
    return TRUE;
}

// Stores the 7-byte header of a frame `length` bytes long as two word
// stores: bytes 0 to 3 from the template, then bytes 3 to 6 with the length
// over the template's byte 3.
inline void store_adts_header(const CodecUtil_AAC_t* r, uint8_t* out, uint32_t length) {
    uint32_t tail = r->tail_be | (length & 0x1FFF) << 13;
    if constexpr (std::endian::native == std::endian::little) tail = __builtin_bswap32(tail);
    std::memcpy(out, &r->head_word, 4);
    std::memcpy(out + 3, &tail, 4);
}

zarn_uint8* CodecUtil_AAC_ConvPushBuffer(CodecUtilBase_t* base, void* stream,
                                         CodecUtilBuffer_t* buffer, zarn_uint32* size) {
    CodecUtil_AAC_t* r = aac(base);
    uint8_t* const data = buffer->data;
    const uint32_t n = buffer->size;
    // Sizes beyond INT_MAX read as negative and are never taken for ADTS.
    if (has_adts_header(data, static_cast<int>(n))) return data;
    if (!r->need_convert) return nullptr;
    RingSpace space;
    if (n > UINT32_MAX - ADTS_HEADER_SIZE ||
        !request_space(r->getbufFunc, stream, n + ADTS_HEADER_SIZE, space)) {
        *size = 0;
        return nullptr;
    }
    if (!space.two_piece()) {
        // The usual contiguous grant: the header stored in place, the
        // payload in one copy behind it.
        store_adts_header(r, space.first, space.length);
        copy_bytes(space.first + ADTS_HEADER_SIZE, data, n);
    } else {
        uint8_t header[ADTS_HEADER_SIZE];
        store_adts_header(r, header, space.length);
        RingWriter out(space);
        out.write(header, ADTS_HEADER_SIZE);
        out.write(data, n);
    }
    *size = space.length;
    return space.first;
}

void CodecUtil_AAC_Destroy(CodecUtilBase_t* base) {
    CODEC_UTIL_TRACE("Destroy AAC CodecUtil handle");
    codec_util_free(base, base);
}

void CodecUtil_AAC_SetGetBufFunc(CodecUtilBase_t* base, void* func) {
    store_getbuf_func<CodecUtil_AAC_t>(base, func);
}

constexpr ConverterOps kAacOps = {
    .destroy = CodecUtil_AAC_Destroy,
    .set_param = CodecUtil_AAC_SetParam,
    .check_conv = return_need_convert<CodecUtil_AAC_t>,
    .conv_push_buffer = CodecUtil_AAC_ConvPushBuffer,
    .set_getbuf_func = CodecUtil_AAC_SetGetBufFunc,
};

}  // namespace

extern "C" CODEC_UTIL_API void* CodecUtil_AAC_Create(CodecUtilMemVtable_t* vtable) {
    CODEC_UTIL_TRACE("Create AAC CodecUtil handle");
    return create_converter<CodecUtil_AAC_t>(vtable, kAacOps);
}
