// AudioSpecificConfig reading, ADTS header building and the AAC converter.
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "converter_fixture.h"
#include "log_capture.h"
#include "payload_test_util.h"
#include "test_memory.h"
#include "zarn_codec_util_aac.h"

namespace {

using namespace codecutil_test;
using payload_test::Bytes;
using payload_test::cat;
using payload_test::hex;

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

// AAC LC with samplingFrequencyIndex and channelConfiguration, the three
// GASpecificConfig flags 0: exactly 16 bits.
Bytes lc(unsigned sr_index, unsigned channels) {
    return pack({{2, 5}, {sr_index, 4}, {channels, 4}, {0, 3}});
}

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
    // "ff": written by `ffmpeg -f lavfi -i sine=r=R -ac C -c:a aac -ar R a.m4a`:
    // AAC LC, then sync extension 0x2B7, type 5 (SBR), sbrPresentFlag 0.
    const AscCase cases[] = {
        {"ff 44100 2ch", hex("12 10 56 E5 00"), eTrnsptOK, 2, 44100, 44100, 2, 0, 5, 33},
        {"ff 8000 1ch", hex("15 88 56 E5 00"), eTrnsptOK, 2, 8000, 8000, 1, 0, 5, 33},
        {"ff 48000 5.1", hex("11 B0 56 E5 00"), eTrnsptOK, 2, 48000, 48000, 6, 0, 5, 33},
        {"ff 11025 7.1", hex("15 38 56 E5 00"), eTrnsptOK, 2, 11025, 11025, 7, 0, 5, 33},
        // Two-byte configs: nothing follows the GA part.
        {"LC 7350 (last index), 7.1", lc(12, 7), eTrnsptOK, 2, 7350, 7350, 7, 0, 0, 16},
        // Explicit SBR: AOT 5, core 22050, stereo, extension 44100, core AOT 2.
        {"explicit SBR", {0x2B, 0x92, 0x08, 0x00}, eTrnsptOK, 2, 22050, 44100, 2, 1, 5, 25},
        {"explicit PS", pack({{29, 5}, {6, 4}, {1, 4}, {3, 4}, {2, 5}, {0, 3}}), eTrnsptOK, 2,
         24000, 48000, 1, 1, 5, 25},
        // Backward-compatible SBR with PS behind it (sync 0x548, psPresentFlag).
        {"implicit SBR + PS", cat({lc(6, 1), pack({{0x2B7, 11}, {5, 5}, {1, 1}, {3, 4}})}),
         eTrnsptOK, 2, 24000, 48000, 1, 1, 5, 37},
        {"implicit SBR + PS flag", hex("13 08 56 E5 9D 48 80"), eTrnsptOK, 2, 24000, 48000, 1, 1, 5,
         49},
        // Not 0x548 (here 0x123): those 11 bits are wound back and not counted.
        {"implicit SBR, other after", hex("13 08 56 E5 99 23 00"), eTrnsptOK, 2, 24000, 48000, 1, 1,
         5, 37},
        // 16 bits follow the GA part but they are not 0x2B7: wound back.
        {"trailing bits without sync", hex("12 10 AB CD"), eTrnsptOK, 2, 44100, 44100, 2, 0, 0, 16},
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
    // The bits skipped with extensionFlag set, counted in the bits used:
    //   AAC scalable: layerNr (3), extensionFlag3 (1); exactly 24 bits
    //   ER BSAC: numOfSubFrame (5), layer_length (11), extensionFlag3, epConfig (2)
    //   ER AAC LC: three resilience flags, extensionFlag3, epConfig
    struct {
        Bytes asc;
        uint32_t used;
    } const skips[] = {
        {pack({{6, 5}, {4, 4}, {2, 4}, {0, 1}, {0, 1}, {1, 1}, {5, 3}, {1, 1}, {0, 4}}), 20},
        {pack({{22, 5}, {4, 4}, {2, 4}, {0, 2}, {1, 1}, {0, 5}, {0, 11}, {0, 1}, {1, 2}}), 35},
        {pack({{17, 5}, {4, 4}, {2, 4}, {0, 2}, {1, 1}, {7, 3}, {0, 1}, {0, 2}}), 22},
    };
    for (const auto& s : skips) {
        uint32_t used = 0;
        ASSERT_EQ(parse(s.asc, asc, &used), eTrnsptOK);
        EXPECT_EQ(used, s.used);
        EXPECT_EQ(asc.GASConfig.ucExtensionFlag, 1);
    }
}

TEST(AudioSpecificConfig, ChannelConfigurationZeroIsLoggedAndAccepted) {
    LogCapture log;
    tAudioSpecificConfig asc;
    ASSERT_EQ(parse(lc(4, 0), asc), eTrnsptOK);
    EXPECT_EQ(asc.GASConfig.bPCEPresent, 1);
    EXPECT_EQ(log.level_of("we do not support channelConfig == 0"), ZARN_LEVEL_INFO);
}

TEST(AudioSpecificConfig, BitsToDecodeAndOffsets) {
    Bytes data = hex("AA 12 10 56 E5 00");  // one byte, then LC 44100 stereo + SBR sync
    tAudioSpecificConfig asc;
    // The sync extension is looked for only with 16 bits left in bitsToDecode.
    for (unsigned bits : {31u, 32u}) {
        SCOPED_TRACE(bits);
        AACPLUSDEC_BITSTREAMBUFFERINFO info{data.data() + 1, 5, 5, 0};
        ASSERT_EQ(zarn_trnsptReadASConfig(&info, bits, &asc), eTrnsptOK);
        EXPECT_EQ(asc.eExtensionAOT, bits == 32 ? 5u : 0u);
        EXPECT_EQ(info.nBitsOffset, bits == 32 ? 33u : 16u);
    }
    AACPLUSDEC_BITSTREAMBUFFERINFO info{data.data(), 6, 6, 8};
    ASSERT_EQ(zarn_trnsptReadASConfig(&info, 40, &asc), eTrnsptOK);
    EXPECT_EQ(info.nBitsOffset, 8u + 33u);
    EXPECT_EQ(asc.nSamplingFrequency, 44100u);
    // An error leaves the offset where it was.
    Bytes bad = lc(13, 2);
    AACPLUSDEC_BITSTREAMBUFFERINFO bad_info{bad.data(), 2, 2, 0};
    EXPECT_EQ(zarn_trnsptReadASConfig(&bad_info, 16, &asc), eTrnsptNotSupported);
    EXPECT_EQ(bad_info.nBitsOffset, 0u);
    AACPLUSDEC_BITSTREAMBUFFERINFO past{data.data(), 6, 6, 49};
    EXPECT_EQ(zarn_trnsptReadASConfig(&past, 40, &asc), eTrnsptNeedMoreBits);
    AACPLUSDEC_BITSTREAMBUFFERINFO empty{data.data(), 6, 0, 0};
    EXPECT_EQ(zarn_trnsptReadASConfig(&empty, 0, &asc), eTrnsptNoConfigAvailable);
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
        {"LC 44100 stereo, empty", {0x12, 0x10}, 0, hex("FF F1 50 80 00 FF 3C")},
        {"LC 44100 stereo, 100 bytes", {0x12, 0x10}, 100, hex("FF F1 50 80 0D 7F 3C")},
        {"LC 24000 stereo", {0x13, 0x10}, 0, hex("FF F1 58 80 00 FF 3C")},
        {"ffmpeg 8000 mono", hex("15 88 56 E5 00"), 0, hex("FF F1 6C 40 00 FF 3C")},
        // Channel configuration 7: its bit 2 lands in byte 2.
        {"ffmpeg 11025 7.1", hex("15 38 56 E5 00"), 0, hex("FF F1 69 C0 00 FF 3C")},
        // The core rate and object type: SBR does not change the template.
        {"explicit SBR", hex("2B 92 08 00"), 0, hex("FF F1 5C 80 00 FF 3C")},
        {"AAC main", pack({{1, 5}, {3, 4}, {1, 4}, {0, 3}}), 0, hex("FF F1 0C 40 00 FF 3C")},
        {"explicit rate off the table: index 0",
         pack({{2, 5}, {15, 4}, {12345, 24}, {2, 4}, {0, 3}}), 0, hex("FF F1 40 80 00 FF 3C")},
        {"channel configuration 0", lc(4, 0), 0, hex("FF F1 50 00 00 FF 3C")},
        // 8185 + 7 = 8192 wraps to 0; 8184 + 7 is the longest.
        {"length 8192 wraps", {0x12, 0x10}, 8185, hex("FF F1 50 80 00 1F 3C")},
        {"length 8191", {0x12, 0x10}, 8184, hex("FF F1 50 83 FF FF 3C")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes asc = c.asc;
        Bytes header(7, 0xEE);
        ASSERT_EQ(zarn_trnsptRead(asc.data(), static_cast<int>(asc.size()), header.data(), c.len),
                  eTrnsptOK);
        EXPECT_EQ(header, c.header);
    }
    // Missing input, and a failed parse, leave the header untouched.
    Bytes asc = {0x12, 0x10};
    Bytes bad = lc(13, 2);
    Bytes header(7, 0xEE);
    EXPECT_EQ(zarn_trnsptRead(nullptr, 2, header.data(), 0), eTrnsptNoConfigAvailable);
    EXPECT_EQ(zarn_trnsptRead(asc.data(), 2, nullptr, 0), eTrnsptNoConfigAvailable);
    EXPECT_EQ(zarn_trnsptRead(asc.data(), 0, header.data(), 0), eTrnsptNoConfigAvailable);
    EXPECT_EQ(zarn_trnsptRead(asc.data(), -2, header.data(), 0), eTrnsptNoConfigAvailable);
    EXPECT_EQ(zarn_trnsptRead(bad.data(), 2, header.data(), 0), eTrnsptNotSupported);
    EXPECT_EQ(header, Bytes(7, 0xEE));
}

TEST(Adts, LengthFieldAndDetection) {
    Bytes h = hex("FF F1 50 80 00 FF 3C");
    SetATDSLen(h.data(), 107);
    EXPECT_EQ(h, hex("FF F1 50 80 0D 7F 3C"));
    SetATDSLen(h.data(), 0x1FFF);
    EXPECT_EQ(h, hex("FF F1 50 83 FF FF 3C"));
    SetATDSLen(h.data(), 9007);  // only the low 13 bits
    EXPECT_EQ(h, hex("FF F1 50 80 65 FF 3C"));
    Bytes ones(7, 0xFF);  // every bit outside the field survives
    SetATDSLen(ones.data(), 0);
    EXPECT_EQ(ones, hex("FF FF FF FC 00 1F FF"));

    struct Case {
        const char* name;
        Bytes unit;
        int len;
        bool is_adts;
    };
    const Bytes frame = hex("FF F1 50 80 01 1F 3C 01");  // length 8
    const Case cases[] = {
        {"length matches", frame, 8, true},
        {"length differs", frame, 9, false},
        {"MPEG-2 ID, CRC present", hex("FF F8 50 80 01 1F 3C 01"), 8, true},
        {"sync incomplete", hex("FF E1 50 80 01 1F 3C 01"), 8, false},
        {"byte 0 not 0xFF", hex("FE F1 50 80 01 1F 3C 01"), 8, false},
        // Length 6 in a 6-byte unit: the fields tested are all there.
        {"six bytes", hex("FF F1 50 80 00 DF"), 6, true},
        // Shorter than the fields tested: never read, never ADTS.
        {"five bytes", hex("FF F1 50 80 00"), 5, false},
        {"empty", {}, 0, false},
        {"negative length", frame, -1, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes unit = c.unit;  // exactly its bytes on the heap: a read past them is caught
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

// Successive pushes into one converter (LC 44100 stereo).
TEST(AacConverter, PushResults) {
    constexpr uint32_t kUnchanged = 0xDEADBEEF;
    const Bytes adts = hex("FF F1 50 80 01 1F 3C AB");  // length 8
    struct Step {
        const char* name;
        Bytes unit;
        bool refuse;
        uint32_t size;  // 0: refused; kUnchanged: handed back
        Bytes header;
    };
    const Step steps[] = {
        {"100 bytes", payload(100), false, 107, hex("FF F1 50 80 0D 7F 3C")},
        {"length stamped per unit", payload(3), false, 10, hex("FF F1 50 80 01 5F 3C")},
        {"empty unit: bare header", {}, false, 7, hex("FF F1 50 80 00 FF 3C")},
        {"9000 bytes: 9007 mod 8192", payload(9000), false, 9007, hex("FF F1 50 80 65 FF 3C")},
        {"already ADTS", adts, false, kUnchanged, {}},
        {"ADTS length off by one", cat({adts, {0}}), false, 16, hex("FF F1 50 80 02 1F 3C")},
        {"refused", payload(5), true, 0, {}},
        {"after the refusal", payload(5), false, 12, hex("FF F1 50 80 01 9F 3C")},
    };
    void* h = make({0x12, 0x10});
    EXPECT_TRUE(Zarn_CodecUtil_CheckConv(h));
    TestRing ring(1u << 15);
    for (const Step& s : steps) {
        SCOPED_TRACE(s.name);
        if (s.refuse) ring.refuse_next(1);
        const int requests = ring.requests();
        const PushResult r = push(h, ring, s.unit);
        EXPECT_EQ(r.size, s.size);
        EXPECT_EQ(r.ret == nullptr, s.size == 0);
        EXPECT_EQ(ring.requests(), requests + (s.size == kUnchanged ? 0 : 1));
        if (s.size == 0) {
            EXPECT_EQ(ring.last_request(), s.unit.size() + 7);
        }
        if (!s.header.empty()) {
            EXPECT_EQ(r.bytes, cat({s.header, s.unit}));
        }
    }
    Zarn_CodecUtil_Destroy(h);
}

TEST(AacConverter, ActiveOnlyWhileTheLastConfigParsed) {
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_AAC, nullptr);
    Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
    TestRing ring;
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    PushResult r = push(h, ring, payload(10));
    EXPECT_EQ(r.ret, nullptr);
    EXPECT_EQ(r.size, 0xDEADBEEFu);
    // Even inactive, an ADTS unit is handed back.
    EXPECT_NE(push(h, ring, hex("FF F1 50 80 00 FF 3C")).ret, nullptr);

    Bytes good = {0x12, 0x10};
    Bytes bad = lc(13, 2);
    enum Kind { kNull, kGood, kBad, kNoData };
    struct Step {
        Kind param;
        zarn_bool result;
        zarn_bool active;
    };
    // A later unparsable or missing config switches it off again.
    for (const Step s : {Step{kNull, FALSE, FALSE}, Step{kBad, TRUE, FALSE},
                         Step{kGood, TRUE, TRUE}, Step{kBad, TRUE, FALSE}, Step{kGood, TRUE, TRUE},
                         Step{kNull, FALSE, FALSE}, Step{kNoData, TRUE, FALSE}}) {
        CodecUtilAACParam_t p{s.param == kGood  ? good.data()
                              : s.param == kBad ? bad.data()
                                                : nullptr,
                              2};
        EXPECT_EQ(Zarn_CodecUtil_SetParam(h, s.param == kNull ? nullptr : &p), s.result);
        EXPECT_EQ(Zarn_CodecUtil_CheckConv(h), s.active);
    }
    EXPECT_EQ(ring.requests(), 0);
    Zarn_CodecUtil_Destroy(h);
}

TEST(AacConverter, EveryWrapOffsetGivesTheContiguousBytes) {
    EXPECT_EQ(wrap_mismatches([] { return make(hex("15 88 56 E5 00")); }, payload(40)),
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
