// AudioSpecificConfig reading, ADTS header building and the AAC converter.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "converter_fixture.h"
#include "log_capture.h"
#include "test_memory.h"
#include "zarn_codec_util_aac.h"

namespace {

using namespace codecutil_test;
using Bytes = std::vector<uint8_t>;

// One syntax element: value and width in bits.
struct Field {
    uint32_t value;
    unsigned bits;
};

// Packs fields most significant bit first, zero-padding the last byte.
Bytes pack(std::initializer_list<Field> fields) {
    Bytes out;
    unsigned used = 0;
    for (const Field& f : fields) {
        for (unsigned i = f.bits; i-- > 0;) {
            if (used % 8 == 0) out.push_back(0);
            if ((f.value >> i) & 1)
                out.back() = static_cast<uint8_t>(out.back() | (0x80 >> (used % 8)));
            ++used;
        }
    }
    return out;
}

// audioObjectType, samplingFrequencyIndex, channelConfiguration and the
// three GASpecificConfig flags (frameLengthFlag, dependsOnCoreCoder,
// extensionFlag) all 0.
Bytes lc(unsigned sr_index, unsigned channels) {
    return pack({{2, 5}, {sr_index, 4}, {channels, 4}, {0, 3}});
}

struct AscCase {
    const char* name;
    Bytes asc;
    eTrnsptError result;
    int aot = 0;
    uint32_t rate = 0;
    uint32_t ext_rate = 0;
    unsigned channels = 0;
    unsigned sbr = 0;
    unsigned ext_aot = 0;
    uint32_t bits_used = 0;
};

eTrnsptError parse(const Bytes& asc, tAudioSpecificConfig& out, uint32_t* bits_used = nullptr) {
    Bytes copy = asc;
    AACPLUSDEC_BITSTREAMBUFFERINFO info{copy.data(), static_cast<unsigned>(copy.size()),
                                        static_cast<unsigned>(copy.size()), 0};
    const eTrnsptError r =
        zarn_trnsptReadASConfig(&info, static_cast<unsigned>(copy.size() * 8), &out);
    if (bits_used != nullptr) *bits_used = info.nBitsOffset;
    return r;
}

TEST(AudioSpecificConfig, ParsesKnownConfigs) {
    const AscCase cases[] = {
        // Written by `ffmpeg -f lavfi -i sine=r=R -ac C -c:a aac -ar R a.m4a`: AAC LC
        // followed by the backward-compatible sync extension 0x2B7, extension
        // type 5 (SBR) with sbrPresentFlag 0.
        {"ffmpeg 44100 Hz stereo",
         {0x12, 0x10, 0x56, 0xE5, 0x00},
         eTrnsptOK,
         2,
         44100,
         44100,
         2,
         0,
         5,
         33},
        {"ffmpeg 8000 Hz mono",
         {0x15, 0x88, 0x56, 0xE5, 0x00},
         eTrnsptOK,
         2,
         8000,
         8000,
         1,
         0,
         5,
         33},
        {"ffmpeg 48000 Hz 5.1",
         {0x11, 0xB0, 0x56, 0xE5, 0x00},
         eTrnsptOK,
         2,
         48000,
         48000,
         6,
         0,
         5,
         33},
        {"ffmpeg 22050 Hz mono",
         {0x13, 0x88, 0x56, 0xE5, 0x00},
         eTrnsptOK,
         2,
         22050,
         22050,
         1,
         0,
         5,
         33},
        {"ffmpeg 96000 Hz stereo",
         {0x10, 0x10, 0x56, 0xE5, 0x00},
         eTrnsptOK,
         2,
         96000,
         96000,
         2,
         0,
         5,
         33},
        {"ffmpeg 11025 Hz 7.1",
         {0x15, 0x38, 0x56, 0xE5, 0x00},
         eTrnsptOK,
         2,
         11025,
         11025,
         7,
         0,
         5,
         33},
        // Two-byte configs: nothing follows the GA part.
        {"LC 44100 stereo", {0x12, 0x10}, eTrnsptOK, 2, 44100, 44100, 2, 0, 0, 16},
        {"LC 24000 stereo", {0x13, 0x10}, eTrnsptOK, 2, 24000, 24000, 2, 0, 0, 16},
        {"LC 7350 (last index), 7.1", lc(12, 7), eTrnsptOK, 2, 7350, 7350, 7, 0, 0, 16},
        // Explicit SBR: AOT 5, core 22050, stereo, extension 44100, core AOT 2.
        {"explicit SBR", {0x2B, 0x92, 0x08, 0x00}, eTrnsptOK, 2, 22050, 44100, 2, 1, 5, 25},
        {"explicit PS", pack({{29, 5}, {6, 4}, {1, 4}, {3, 4}, {2, 5}, {0, 3}}), eTrnsptOK, 2,
         24000, 48000, 1, 1, 5, 25},
        // Backward-compatible SBR with PS behind it (sync 0x548, psPresentFlag).
        {"implicit SBR + PS",
         pack({{2, 5},
               {6, 4},
               {1, 4},
               {0, 3},
               {0x2B7, 11},
               {5, 5},
               {1, 1},
               {3, 4},
               {0x548, 11},
               {1, 1}}),
         eTrnsptOK, 2, 24000, 48000, 1, 1, 5, 49},
        // Not 0x548: those 11 bits are wound back and not counted.
        {"implicit SBR, other extension after",
         pack({{2, 5},
               {6, 4},
               {1, 4},
               {0, 3},
               {0x2B7, 11},
               {5, 5},
               {1, 1},
               {3, 4},
               {0x123, 11},
               {0, 1}}),
         eTrnsptOK, 2, 24000, 48000, 1, 1, 5, 37},
        // 16 bits follow the GA part but they are not 0x2B7: wound back.
        {"trailing bits without sync",
         {0x12, 0x10, 0xAB, 0xCD},
         eTrnsptOK,
         2,
         44100,
         44100,
         2,
         0,
         0,
         16},
        {"explicit rate in the table", pack({{2, 5}, {15, 4}, {44100, 24}, {2, 4}, {0, 3}}),
         eTrnsptOK, 2, 44100, 44100, 2, 0, 0, 40},
        {"explicit rate off the table", pack({{2, 5}, {15, 4}, {12345, 24}, {1, 4}, {0, 3}}),
         eTrnsptOK, 2, 12345, 12345, 1, 0, 0, 40},
        {"channel configuration 0", lc(3, 0), eTrnsptOK, 2, 48000, 48000, 0, 0, 0, 16},
        {"AAC main", pack({{1, 5}, {4, 4}, {2, 4}, {0, 3}}), eTrnsptOK, 1, 44100, 44100, 2, 0, 0,
         16},
        {"escaped object type 36 (ALS)", pack({{31, 5}, {4, 6}, {4, 4}, {2, 4}, {0, 16}}),
         eTrnsptNotSupported},
        {"rate index 13", lc(13, 2), eTrnsptNotSupported},
        {"rate index 14", lc(14, 2), eTrnsptNotSupported},
        {"explicit rate 0", pack({{2, 5}, {15, 4}, {0, 24}, {2, 4}, {0, 3}}), eTrnsptNotSupported},
        {"channel configuration 8", lc(4, 8), eTrnsptNotSupported},
        {"explicit SBR, extension index 13",
         pack({{5, 5}, {4, 4}, {2, 4}, {13, 4}, {2, 5}, {0, 3}}), eTrnsptNotSupported},
        {"explicit SBR, core object SBR again",
         pack({{5, 5}, {4, 4}, {2, 4}, {3, 4}, {5, 5}, {0, 3}}), eTrnsptNotSupported},
        {"SSR with the 960 frame length", pack({{3, 5}, {4, 4}, {2, 4}, {1, 1}, {0, 2}}),
         eTrnsptFAIL},
        {"ER TwinVQ", pack({{21, 5}, {4, 4}, {2, 4}, {0, 3}, {0, 8}}), eTrnsptNotSupported},
        {"ER AAC LC, epConfig 2", pack({{17, 5}, {4, 4}, {2, 4}, {0, 3}, {2, 2}}),
         eTrnsptNotSupported},
        {"ER AAC LC, epConfig 3", pack({{17, 5}, {4, 4}, {2, 4}, {0, 3}, {3, 2}, {0, 1}}),
         eTrnsptNotSupported},
        {"ER AAC LD, epConfig 0", pack({{23, 5}, {3, 4}, {1, 4}, {1, 1}, {0, 2}, {0, 2}}),
         eTrnsptOK, 23, 48000, 48000, 1, 0, 0, 18},
        // Cut short: the channel configuration would be read from past the end.
        {"one byte", {0x12}, eTrnsptNeedMoreBits},
        {"GA flags from the padding bits", pack({{2, 5}, {4, 4}, {2, 4}}), eTrnsptOK, 2, 44100,
         44100, 2, 0, 0, 16},
    };
    for (const AscCase& c : cases) {
        SCOPED_TRACE(c.name);
        tAudioSpecificConfig asc;
        uint32_t used = 0;
        ASSERT_EQ(parse(c.asc, asc, &used), c.result);
        if (c.result != eTrnsptOK) continue;
        EXPECT_EQ(asc.eAudioObjectType, c.aot);
        EXPECT_EQ(asc.nSamplingFrequency, c.rate);
        EXPECT_EQ(asc.nExtensionSamplingFrequency, c.ext_rate);
        EXPECT_EQ(asc.ucChannelConfiguration, c.channels);
        EXPECT_EQ(asc.bSbrPresent, c.sbr);
        EXPECT_EQ(asc.eExtensionAOT, c.ext_aot);
        EXPECT_EQ(used, c.bits_used);
    }
}

TEST(AudioSpecificConfig, GeneralAudioFields) {
    tAudioSpecificConfig asc;
    // AAC LD: 512 samples with frameLengthFlag set, 480 without.
    ASSERT_EQ(parse(pack({{23, 5}, {3, 4}, {1, 4}, {0, 1}, {0, 2}, {0, 2}}), asc), eTrnsptOK);
    EXPECT_EQ(asc.GASConfig.nFrameLength, 480);
    ASSERT_EQ(parse(pack({{2, 5}, {4, 4}, {2, 4}, {1, 1}, {1, 1}, {0x2345, 14}, {0, 1}}), asc),
              eTrnsptOK);
    EXPECT_EQ(asc.GASConfig.nFrameLength, 960);
    EXPECT_EQ(asc.GASConfig.bDependsOnCoreCoder, 1);
    EXPECT_EQ(asc.GASConfig.nCoreCoderDelay, 0x2345u);
    // AAC scalable with extensionFlag: layerNr (3) then extensionFlag3 (1);
    // exactly 24 bits, so nothing is read past them.
    uint32_t used = 0;
    ASSERT_EQ(parse(pack({{6, 5}, {4, 4}, {2, 4}, {0, 1}, {0, 1}, {1, 1}, {5, 3}, {1, 1}, {0, 4}}),
                    asc, &used),
              eTrnsptOK);
    EXPECT_EQ(used, 20u);
    EXPECT_EQ(asc.GASConfig.ucExtensionFlag, 1);
    // ER BSAC with extensionFlag: numOfSubFrame (5), layer_length (11),
    // extensionFlag3 (1), then epConfig (2).
    ASSERT_EQ(
        parse(pack({{22, 5}, {4, 4}, {2, 4}, {0, 2}, {1, 1}, {0, 5}, {0, 11}, {0, 1}, {1, 2}}), asc,
              &used),
        eTrnsptOK);
    EXPECT_EQ(used, 35u);
    // ER AAC LC with extensionFlag: three resilience flags, extensionFlag3.
    ASSERT_EQ(
        parse(pack({{17, 5}, {4, 4}, {2, 4}, {0, 2}, {1, 1}, {7, 3}, {0, 1}, {0, 2}}), asc, &used),
        eTrnsptOK);
    EXPECT_EQ(used, 22u);
}

TEST(AudioSpecificConfig, ChannelConfigurationZeroIsLoggedAndAccepted) {
    LogCapture log;
    tAudioSpecificConfig asc;
    ASSERT_EQ(parse(lc(4, 0), asc), eTrnsptOK);
    EXPECT_EQ(asc.GASConfig.bPCEPresent, 1);
    EXPECT_EQ(log.level_of("we do not support channelConfig == 0"), ZARN_LEVEL_INFO);
}

TEST(AudioSpecificConfig, SyncExtensionNeedsSixteenBitsWithinBitsToDecode) {
    Bytes data = {0x12, 0x10, 0x56, 0xE5,
                  0x00};  // LC 44100 stereo, then 0x2B7, SBR, sbrPresentFlag 0
    for (unsigned bits : {31u, 32u}) {
        SCOPED_TRACE(bits);
        AACPLUSDEC_BITSTREAMBUFFERINFO info{data.data(), 5, 5, 0};
        tAudioSpecificConfig asc;
        ASSERT_EQ(zarn_trnsptReadASConfig(&info, bits, &asc), eTrnsptOK);
        EXPECT_EQ(asc.eExtensionAOT, bits == 32 ? 5u : 0u);  // 15 bits left: not looked for
        EXPECT_EQ(info.nBitsOffset, bits == 32 ? 33u : 16u);
    }
}

TEST(AudioSpecificConfig, ReadsFromABitOffsetAndAdvancesIt) {
    Bytes data = {0xAA, 0x12, 0x10, 0x56, 0xE5, 0x00};  // one byte before the config
    AACPLUSDEC_BITSTREAMBUFFERINFO info{data.data(), 6, 6, 8};
    tAudioSpecificConfig asc;
    ASSERT_EQ(zarn_trnsptReadASConfig(&info, 40, &asc), eTrnsptOK);
    EXPECT_EQ(info.nBitsOffset, 8u + 33u);
    EXPECT_EQ(asc.nSamplingFrequency, 44100u);
    // An error leaves the offset where it was.
    Bytes bad = {0x16, 0x80};  // rate index 13
    AACPLUSDEC_BITSTREAMBUFFERINFO bad_info{bad.data(), 2, 2, 0};
    EXPECT_EQ(zarn_trnsptReadASConfig(&bad_info, 16, &asc), eTrnsptNotSupported);
    EXPECT_EQ(bad_info.nBitsOffset, 0u);
    AACPLUSDEC_BITSTREAMBUFFERINFO past{data.data(), 6, 6, 49};
    EXPECT_EQ(zarn_trnsptReadASConfig(&past, 40, &asc), eTrnsptNeedMoreBits);
    AACPLUSDEC_BITSTREAMBUFFERINFO empty{data.data(), 6, 0, 0};
    EXPECT_EQ(zarn_trnsptReadASConfig(&empty, 0, &asc), eTrnsptNoConfigAvailable);
}

TEST(AudioSpecificConfig, HelpersAndDefaults) {
    // Rates off the table map to index 0; indices past it to no rate.
    EXPECT_EQ(FindAdtsSRIndex(7350), 12);
    EXPECT_EQ(FindAdtsSRIndex(12345), 0);
    EXPECT_EQ(zarn_trnsptIndexToFrequency(12), 7350u);
    EXPECT_EQ(zarn_trnsptIndexToFrequency(13), 0u);

    tAudioSpecificConfig asc;
    std::memset(&asc, 0xFF, sizeof asc);
    ASSERT_EQ(zarn_trnsptInitDefaultASC(&asc, 32000, 1, eAOT_AAC_MAIN), eTrnsptOK);
    EXPECT_EQ(asc.eAudioObjectType, eAOT_AAC_MAIN);
    EXPECT_EQ(asc.eExtensionAOT, 0u);
    EXPECT_EQ(asc.bSbrPresent, 0);
    EXPECT_EQ(asc.nExtensionSamplingFrequency, 32000u);
    EXPECT_EQ(asc.GASConfig.nFrameLength, 1024);
    EXPECT_EQ(asc.GASConfig.nCoreCoderDelay, 0u);
    EXPECT_EQ(zarn_trnsptInitDefaultASC(&asc, 32000, 8, eAOT_AAC_LC), eTrnsptNotSupported);
    EXPECT_EQ(zarn_trnsptInitDefaultASC(&asc, 32000, -1, eAOT_AAC_LC), eTrnsptNotSupported);
}

TEST(Adts, TemplatesFromConfigs) {
    struct Case {
        const char* name;
        Bytes asc;
        int len;
        Bytes header;
    };
    const Case cases[] = {
        {"LC 44100 stereo, empty frame",
         {0x12, 0x10},
         0,
         {0xFF, 0xF1, 0x50, 0x80, 0x00, 0xFF, 0x3C}},
        {"LC 44100 stereo, 100 bytes",
         {0x12, 0x10},
         100,
         {0xFF, 0xF1, 0x50, 0x80, 0x0D, 0x7F, 0x3C}},
        {"LC 24000 stereo", {0x13, 0x10}, 0, {0xFF, 0xF1, 0x58, 0x80, 0x00, 0xFF, 0x3C}},
        {"ffmpeg 8000 mono",
         {0x15, 0x88, 0x56, 0xE5, 0x00},
         0,
         {0xFF, 0xF1, 0x6C, 0x40, 0x00, 0xFF, 0x3C}},
        // Channel configuration 7: its bit 2 lands in byte 2.
        {"ffmpeg 11025 7.1",
         {0x15, 0x38, 0x56, 0xE5, 0x00},
         0,
         {0xFF, 0xF1, 0x69, 0xC0, 0x00, 0xFF, 0x3C}},
        // The core rate and object type: SBR does not change the template.
        {"explicit SBR", {0x2B, 0x92, 0x08, 0x00}, 0, {0xFF, 0xF1, 0x5C, 0x80, 0x00, 0xFF, 0x3C}},
        {"AAC main",
         pack({{1, 5}, {3, 4}, {1, 4}, {0, 3}}),
         0,
         {0xFF, 0xF1, 0x0C, 0x40, 0x00, 0xFF, 0x3C}},
        {"explicit rate off the table: index 0",
         pack({{2, 5}, {15, 4}, {12345, 24}, {2, 4}, {0, 3}}),
         0,
         {0xFF, 0xF1, 0x40, 0x80, 0x00, 0xFF, 0x3C}},
        {"channel configuration 0", lc(4, 0), 0, {0xFF, 0xF1, 0x50, 0x00, 0x00, 0xFF, 0x3C}},
        // 8185 + 7 = 8192 wraps to 0; 8184 + 7 is the longest.
        {"length 8192 wraps", {0x12, 0x10}, 8185, {0xFF, 0xF1, 0x50, 0x80, 0x00, 0x1F, 0x3C}},
        {"length 8191", {0x12, 0x10}, 8184, {0xFF, 0xF1, 0x50, 0x83, 0xFF, 0xFF, 0x3C}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes asc = c.asc;
        Bytes header(7, 0xEE);
        ASSERT_EQ(zarn_trnsptRead(asc.data(), static_cast<int>(asc.size()), header.data(), c.len),
                  eTrnsptOK);
        EXPECT_EQ(header, c.header);
    }
}

TEST(Adts, ReadRefusesMissingInput) {
    Bytes asc = {0x12, 0x10};
    Bytes header(7, 0xEE);
    EXPECT_EQ(zarn_trnsptRead(nullptr, 2, header.data(), 0), eTrnsptNoConfigAvailable);
    EXPECT_EQ(zarn_trnsptRead(asc.data(), 2, nullptr, 0), eTrnsptNoConfigAvailable);
    EXPECT_EQ(zarn_trnsptRead(asc.data(), 0, header.data(), 0), eTrnsptNoConfigAvailable);
    EXPECT_EQ(zarn_trnsptRead(asc.data(), -2, header.data(), 0), eTrnsptNoConfigAvailable);
    Bytes bad = {0x16, 0x80};  // rate index 13
    EXPECT_EQ(zarn_trnsptRead(bad.data(), 2, header.data(), 0), eTrnsptNotSupported);
    EXPECT_EQ(header, Bytes(7, 0xEE));  // untouched on failure
}

TEST(Adts, LengthFieldAndDetection) {
    Bytes h = {0xFF, 0xF1, 0x50, 0x80, 0x00, 0xFF, 0x3C};
    SetATDSLen(h.data(), 107);
    EXPECT_EQ(h, (Bytes{0xFF, 0xF1, 0x50, 0x80, 0x0D, 0x7F, 0x3C}));
    SetATDSLen(h.data(), 0x1FFF);
    EXPECT_EQ(h, (Bytes{0xFF, 0xF1, 0x50, 0x83, 0xFF, 0xFF, 0x3C}));
    SetATDSLen(h.data(), 9007);  // only the low 13 bits
    EXPECT_EQ(h, (Bytes{0xFF, 0xF1, 0x50, 0x80, 0x65, 0xFF, 0x3C}));
    // Every bit outside the field survives.
    Bytes ones(7, 0xFF);
    SetATDSLen(ones.data(), 0);
    EXPECT_EQ(ones, (Bytes{0xFF, 0xFF, 0xFF, 0xFC, 0x00, 0x1F, 0xFF}));

    struct Case {
        const char* name;
        Bytes unit;
        int len;
        bool is_adts;
    };
    Bytes frame = {0xFF, 0xF1, 0x50, 0x80, 0x01, 0x1F, 0x3C, 1};  // length 8
    const Case cases[] = {
        {"length matches", frame, 8, true},
        {"length differs", frame, 9, false},
        {"MPEG-2 ID, CRC present", {0xFF, 0xF8, 0x50, 0x80, 0x01, 0x1F, 0x3C, 1}, 8, true},
        {"sync incomplete", {0xFF, 0xE1, 0x50, 0x80, 0x01, 0x1F, 0x3C, 1}, 8, false},
        {"byte 0 not 0xFF", {0xFE, 0xF1, 0x50, 0x80, 0x01, 0x1F, 0x3C, 1}, 8, false},
        // Length 6 in a 6-byte unit: the fields tested are all there.
        {"six bytes", {0xFF, 0xF1, 0x50, 0x80, 0x00, 0xDF}, 6, true},
        // Shorter than the fields tested: never read, never ADTS.
        {"five bytes", {0xFF, 0xF1, 0x50, 0x80, 0x00}, 5, false},
        {"empty", {}, 0, false},
        {"negative length", frame, -1, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // Exactly `unit.size()` bytes on the heap, so a read past them is caught.
        Bytes unit = c.unit;
        EXPECT_EQ(AdtsHeaderIsAdded(unit.empty() ? nullptr : unit.data(), c.len) != FALSE,
                  c.is_adts);
    }
    EXPECT_FALSE(AdtsHeaderIsAdded(nullptr, 100));
}

void* make(const Bytes& asc, CodecUtilMemVtable_t* table = nullptr) {
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_AAC, table);
    Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
    Bytes copy = asc;
    CodecUtilAACParam_t p{copy.data(), static_cast<zarn_uint32>(copy.size())};
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, &p));
    return h;  // the template is the converter's: `copy` dies here
}

Bytes payload(size_t n) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(i * 7 + 1);
    return b;
}

TEST(AacConverter, FramesEveryUnitBehindItsAdtsHeader) {
    void* h = make({0x12, 0x10});
    EXPECT_TRUE(Zarn_CodecUtil_CheckConv(h));
    TestRing ring;
    const Bytes unit = payload(100);
    PushResult r = push(h, ring, unit);
    ASSERT_EQ(r.size, 107u);
    Bytes want = {0xFF, 0xF1, 0x50, 0x80, 0x0D, 0x7F, 0x3C};
    want.insert(want.end(), unit.begin(), unit.end());
    EXPECT_EQ(r.bytes, want);
    // The length is stamped per unit.
    r = push(h, ring, payload(3));
    ASSERT_EQ(r.size, 10u);
    EXPECT_EQ(Bytes(r.bytes.begin(), r.bytes.begin() + 7),
              (Bytes{0xFF, 0xF1, 0x50, 0x80, 0x01, 0x5F, 0x3C}));
    // An empty unit is a bare header.
    r = push(h, ring, {});
    EXPECT_EQ(r.bytes, (Bytes{0xFF, 0xF1, 0x50, 0x80, 0x00, 0xFF, 0x3C}));
    Zarn_CodecUtil_Destroy(h);
}

TEST(AacConverter, LongUnitsWrapTheThirteenBitLength) {
    void* h = make({0x12, 0x10});
    TestRing ring(1u << 15);
    PushResult r = push(h, ring, payload(9000));
    ASSERT_EQ(r.size, 9007u);
    EXPECT_EQ(((r.bytes[3] & 3u) << 11) | (r.bytes[4] << 3) | (r.bytes[5] >> 5), 9007u % 8192u);
    Zarn_CodecUtil_Destroy(h);
}

TEST(AacConverter, UnitsAlreadyInAdtsPassThrough) {
    void* h = make({0x12, 0x10});
    TestRing ring;
    Bytes adts = {0xFF, 0xF1, 0x50, 0x80, 0x01, 0x1F, 0x3C, 0xAB};  // length 8
    PushResult r = push(h, ring, adts);
    EXPECT_NE(r.ret, nullptr);
    EXPECT_EQ(r.size, 0xDEADBEEFu);  // untouched
    EXPECT_EQ(ring.requests(), 0);
    // Same bytes with one more: the length no longer matches, so it is framed.
    adts.push_back(0);
    EXPECT_EQ(push(h, ring, adts).size, 16u);
    Zarn_CodecUtil_Destroy(h);
}

TEST(AacConverter, InactiveWithoutAParsedConfig) {
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_AAC, nullptr);
    Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
    TestRing ring;
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    PushResult r = push(h, ring, payload(10));
    EXPECT_EQ(r.ret, nullptr);
    EXPECT_EQ(r.size, 0xDEADBEEFu);
    // Even inactive, an ADTS unit is handed back.
    EXPECT_NE(push(h, ring, {0xFF, 0xF1, 0x50, 0x80, 0x00, 0xFF, 0x3C}).ret, nullptr);

    EXPECT_FALSE(Zarn_CodecUtil_SetParam(h, nullptr));
    Bytes bad = {0x16, 0x80};  // rate index 13
    CodecUtilAACParam_t p{bad.data(), 2};
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, &p));
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    Bytes good = {0x12, 0x10};
    p = {good.data(), 2};
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, &p));
    EXPECT_TRUE(Zarn_CodecUtil_CheckConv(h));
    // A later unparsable or missing config switches it off again.
    p = {bad.data(), 2};
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, &p));
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    p = {good.data(), 2};
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, &p));
    EXPECT_FALSE(Zarn_CodecUtil_SetParam(h, nullptr));
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    p = {nullptr, 2};
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, &p));
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    EXPECT_EQ(ring.requests(), 0);
    Zarn_CodecUtil_Destroy(h);
}

TEST(AacConverter, RefusedSpaceZeroesTheSize) {
    void* h = make({0x12, 0x10});
    TestRing ring;
    ring.refuse_next(1);
    PushResult r = push(h, ring, payload(5));
    EXPECT_EQ(r.ret, nullptr);
    EXPECT_EQ(r.size, 0u);
    EXPECT_EQ(ring.last_request(), 12u);
    EXPECT_EQ(push(h, ring, payload(5)).size, 12u);
    Zarn_CodecUtil_Destroy(h);
}

TEST(AacConverter, EveryWrapOffsetGivesTheContiguousBytes) {
    EXPECT_EQ(wrap_mismatches(
                  [] {
                      return make({0x15, 0x88, 0x56, 0xE5, 0x00});
                  },
                  payload(40)),
              std::vector<uint32_t>{});
}

TEST(AacConverter, LogsLifecycleAndFreesEverything) {
    CountingMemory mem;
    {
        LogCapture log;
        void* h = make({0x12, 0x10}, mem.table());
        Zarn_CodecUtil_Destroy(h);
        EXPECT_EQ(log.level_of("Create AAC CodecUtil handle"), ZARN_LEVEL_LOG);
        EXPECT_EQ(log.level_of("Destroy AAC CodecUtil handle"), ZARN_LEVEL_LOG);
        EXPECT_EQ(log.level_of("Set Get ES Buf Func"), ZARN_LEVEL_LOG);
    }
    EXPECT_EQ(mem.live(), 0);
    mem.fail_at(1);
    EXPECT_EQ(Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_AAC, mem.table()), nullptr);
}

}  // namespace
