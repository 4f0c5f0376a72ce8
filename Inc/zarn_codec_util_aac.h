/* AAC helpers of the AAC converter, exported: AudioSpecificConfig reading
 * (ISO/IEC 14496-3 1.6.2.1, general audio part 4.4.1) and ADTS header
 * building (ISO/IEC 14496-3 1.A.2.2, 13818-7 6.2). No program config element
 * is parsed. Valid C99 and C++. */
#ifndef ZARN_CODEC_UTIL_AAC_H
#define ZARN_CODEC_UTIL_AAC_H

#include "zarn_codec_util.h"
#include "zarn_codec_util_bitbuf.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ADTS_HEADER_SIZE 7

/* ISO/IEC 14496-3 Table 1.1, audioObjectType. */
typedef enum {
    eAOT_UNKNOWN = -1,
    eAOT_NULL = 0,
    eAOT_AAC_MAIN = 1,
    eAOT_AAC_LC = 2,
    eAOT_AAC_SSR = 3,
    eAOT_AAC_LTP = 4,
    eAOT_SBR = 5,
    eAOT_AAC_SCALABLE = 6,
    eAOT_TWINVQ = 7,
    eAOT_ER_AAC_LC = 17,
    eAOT_ER_AAC_LTP = 19,
    eAOT_ER_AAC_SCALABLE = 20,
    eAOT_ER_TWINVQ = 21,
    eAOT_ER_BSAC = 22,
    eAOT_ER_AAC_LD = 23,
    eAOT_ER_CELP = 24,
    eAOT_ER_HVXC = 25,
    eAOT_ER_HILN = 26,
    eAOT_ER_PARAMETRIC = 27,
    eAOT_SSC = 28,
    eAOT_PS = 29,
    eAOT_MPEG_SURROUND = 30,
    eAOT_LAYER1 = 32,
    eAOT_LAYER2 = 33,
    eAOT_LAYER3 = 34,
    eAOT_DST = 35,
    eAOT_ALS = 36,
    eAOT_SLS = 37,
    eAOT_SLS_NONCORE = 38
} tAudioObjectType;

typedef enum {
    eTrnsptOK = 0,
    eTrnsptNoMoreAUs = 1,
    eTrnsptNeedMoreBits = 2,
    eTrnsptNotSupported = 3,
    eTrnsptNoConfigAvailable = 4,
    eTrnsptConfigChanged = 5,
    eTrnsptFAIL = 1000
} eTrnsptError;

typedef struct {
    unsigned char ucElementType;
    unsigned char ucTag;
} tElementSelect;

/* Program config element; never filled (no PCE is parsed). */
typedef struct {
    unsigned char ucInstanceTag;
    unsigned char ucObjectType;
    unsigned char ucSamplingFrequencyIndex;
    unsigned char ucNumFrontChannelElements;
    unsigned char ucNumSideChannelElements;
    unsigned char ucNumBackChannelElements;
    unsigned char ucNumLFEChannelElements;
    unsigned char ucNumAssocDataElements;
    unsigned char ucNumValidCCElements;
    unsigned char bMonoMixdownPresent;
    unsigned char bStereoMixdownPresent;
    unsigned char bMatrixMixdownIndexPresent;
    unsigned char ucMatrixMixdownIndex;
    unsigned char bPseudoSurroundEnable;
    unsigned char ucCommentFieldBytes;
    unsigned char ucNumTotalChannels;
    zarn_uint32 nSamplingFrequency;
    tElementSelect front[16];
    tElementSelect side[16];
    tElementSelect back[16];
    tElementSelect lfe[16];
} tProgramConfigElement;

/* GASpecificConfig. */
typedef struct {
    int nFrameLength;
    unsigned int nCoreCoderDelay;
    unsigned char bDependsOnCoreCoder;
    unsigned char ucExtensionFlag;
    unsigned char bPCEPresent; /* channel configuration 0 */
    tProgramConfigElement pce;
} tGeneralAudioSpecificConfig;

typedef struct {
    int eAudioObjectType;       /* core object type (after an explicit SBR/PS header) */
    unsigned int eExtensionAOT; /* 5 when SBR is signalled */
    unsigned char bSbrPresent;
    unsigned char ucChannelConfiguration;
    zarn_uint32 nSamplingFrequency;          /* core rate */
    zarn_uint32 nExtensionSamplingFrequency; /* SBR output rate, else the core rate */
    tGeneralAudioSpecificConfig GASConfig;
} tAudioSpecificConfig;

typedef struct {
    void* data;
    unsigned int bufferSize;
    unsigned int nBytesInBuffer;
    unsigned int nBitsOffset; /* where the config starts; advanced past it on success */
} AACPLUSDEC_BITSTREAMBUFFERINFO;

/* Sampling frequency of the 4-bit index (ISO/IEC 14496-3 Table 1.18), or 0
 * for an index above 12. */
CODEC_UTIL_API zarn_uint32 zarn_trnsptIndexToFrequency(unsigned int idx);

/* Index of `sr` in that table; 0 (96000 Hz) when the rate is not in it. */
CODEC_UTIL_API int FindAdtsSRIndex(int sr);

/* Clears everything from bSbrPresent on and sets the object type (extension
 * object type 0). channelConfig outside 0..7: eTrnsptNotSupported. Otherwise
 * sets the channel configuration, both rates to nSamplingFrequency, a frame
 * length of 1024 and returns eTrnsptOK. */
CODEC_UTIL_API eTrnsptError zarn_trnsptInitDefaultASC(tAudioSpecificConfig* pASC,
                                                      zarn_uint32 nSamplingFrequency,
                                                      int channelConfig, tAudioObjectType unAOT);

/* Parses one AudioSpecificConfig from the read position of pBs; bitsToDecode
 * bounds only the optional backward-compatible SBR/PS signalling at its end.
 *   eTrnsptOK             parsed
 *   eTrnsptNotSupported   object type, rate index 13/14, rate 0, channel
 *                         configuration above 7, ER epConfig 2/3, ER TwinVQ
 *   eTrnsptFAIL           AAC SSR with the 960-sample frame length flag
 *   eTrnsptNeedMoreBits   the config runs past the bits in the buffer (the
 *                         fields read beyond them would be zeros)
 * Channel configuration 0 is accepted without its program config element. */
CODEC_UTIL_API eTrnsptError zarn_trnsptReadASConfigFromBitstream(HANDLE_BIT_BUF pBs,
                                                                 unsigned int bitsToDecode,
                                                                 tAudioSpecificConfig* pASC);

/* Parses the AudioSpecificConfig starting nBitsOffset bits into the
 * nBytesInBuffer bytes at info->data; on eTrnsptOK adds the bits consumed to
 * nBitsOffset. NULL info, data or pASC, or no bytes: eTrnsptNoConfigAvailable.
 * An offset past the bytes: eTrnsptNeedMoreBits. Otherwise the parser's
 * result. */
CODEC_UTIL_API eTrnsptError zarn_trnsptReadASConfig(AACPLUSDEC_BITSTREAMBUFFERINFO* info,
                                                    unsigned int bitsToDecode,
                                                    tAudioSpecificConfig* pASC);

/* Writes the 7-byte ADTS header (MPEG-4, no CRC, buffer fullness 0x7CF, one
 * raw data block) for the core object type, the index of the core rate and
 * the channel configuration, with frame length len + 7 (low 13 bits). */
CODEC_UTIL_API void MakeAdtsHeader(tAudioSpecificConfig* pASC, unsigned char* atdsheader, int len);

/* Stores the low 13 bits of framelen in the frame length field of an
 * existing ADTS header, leaving every other bit. */
CODEC_UTIL_API void SetATDSLen(unsigned char* atdsheader, int framelen);

/* TRUE when `buffer` starts with an ADTS sync word (0xFFF) whose frame
 * length field equals len. NULL buffer or len below 6 (too short for the
 * fields tested): FALSE, without reading. */
CODEC_UTIL_API zarn_bool AdtsHeaderIsAdded(unsigned char* buffer, int len);

/* Parses the AudioSpecificConfig in the datalength bytes at `data` and, on
 * eTrnsptOK, writes the ADTS header for a frame of framelength bytes to
 * atdsheader. NULL data or atdsheader, or datalength 0 or negative:
 * eTrnsptNoConfigAvailable. Otherwise the parser's result (atdsheader is
 * untouched unless it is eTrnsptOK). */
CODEC_UTIL_API eTrnsptError zarn_trnsptRead(void* data, int datalength, unsigned char* atdsheader,
                                            int framelength);

#ifdef __cplusplus
}
#endif

#endif
