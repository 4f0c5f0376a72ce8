// Opus converter: codec data once as its own packet, every packet framed.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "converter_fixture.h"
#include "log_capture.h"
#include "packet_test_util.h"
#include "test_memory.h"
#include "zarn_codec_util_priv.h"

namespace {

using namespace codecutil_test;
using namespace packet_test;

constexpr const char* kSync = "gst_opus";

// OpusHead (RFC 7845 5.1), 19 bytes: magic, version 1, 2 channels, pre-skip
// 312, input rate 48000, output gain 0, mapping family 0.
const Bytes kOpusHead = cat({{'O', 'p', 'u', 's', 'H', 'e', 'a', 'd'},
                             payload_test::hex("01 02 38 01 80 BB 00 00 00 00 00")});

void* make(CodecUtilMemVtable_t* table = nullptr) {
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_OPUS, table);
    Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
    return h;
}

zarn_bool set(void* h, const Bytes& cd) {
    Bytes copy = cd;  // the converter keeps its own copy
    CodecUtilOpusParam_t p{copy.empty() ? nullptr : copy.data(),
                           static_cast<zarn_uint32>(copy.size())};
    return Zarn_CodecUtil_SetParam(h, &p);
}

TEST(OpusConverter, CodecDataGoesOnceAheadOfTheNextPacket) {
    void* h = make();
    ASSERT_TRUE(set(h, {1, 2, 3}));
    ASSERT_TRUE(set(h, kOpusHead));  // the latest codec data wins
    TestRing ring;
    const Bytes packet = ramp(100, 0x20);
    ring.refuse_next(1);  // a refused request keeps the codec data armed
    PushResult r = push(h, ring, packet);
    EXPECT_EQ(r.ret, nullptr);
    EXPECT_EQ(r.size, 0u);
    EXPECT_EQ(ring.last_request(), 44u + 19u + 44u + 100u);
    r = push(h, ring, packet);
    ASSERT_EQ(r.size, 44u + 19u + 44u + 100u);
    std::vector<Packet> packets = split(r.bytes, kSync);
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[0].data, kOpusHead);
    EXPECT_EQ(packets[1].data, packet);
    // The counter is advanced before the first header: b_o_s is never set.
    EXPECT_EQ(bos_of(packets), (std::vector<uint32_t>{0, 0}));
    r = push(h, ring, packet);
    ASSERT_EQ(r.size, 144u);
    packets = split(r.bytes, kSync);
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0].data, packet);
    Zarn_CodecUtil_Destroy(h);
}

TEST(OpusConverter, AlwaysConvertingEvenWithoutCodecData) {
    LogCapture log;
    void* h = CodecUtil_Opus_Create(nullptr);
    ASSERT_NE(h, nullptr);
    CodecUtil_Opus_SetGetBufFunc(static_cast<CodecUtilBase_t*>(h), getbuf_fn());
    EXPECT_TRUE(Zarn_CodecUtil_CheckConv(h));
    TestRing ring;
    PushResult r = push(h, ring, ramp(100));
    ASSERT_EQ(r.size, 144u);
    EXPECT_EQ(ring.requests(), 1);
    // The sync field: eight characters and eight zero bytes; then the length.
    EXPECT_EQ(
        Bytes(r.bytes.begin(), r.bytes.begin() + 24),
        cat({{'g', 's', 't', '_', 'o', 'p', 'u', 's'}, Bytes(8, 0), {0, 0, 0, 100, 0, 0, 0, 0}}));
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, nullptr));
    EXPECT_EQ(log.level_of("no param, so don't need do convert"), ZARN_LEVEL_INFO);
    EXPECT_TRUE(Zarn_CodecUtil_CheckConv(h));
    EXPECT_TRUE(set(h, {}));
    EXPECT_EQ(push(h, ring, {1}).size, 45u);
    Zarn_CodecUtil_Destroy(h);
    EXPECT_EQ(log.level_of("Create Opus CodecUtil handler"), ZARN_LEVEL_LOG);
    EXPECT_EQ(log.level_of("Destroy Opus CodecUtil handler"), ZARN_LEVEL_LOG);
}

TEST(OpusConverter, EveryWrapOffsetGivesTheContiguousBytes) {
    const auto make_set = [] {
        void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_OPUS, nullptr);
        set(h, kOpusHead);
        return h;
    };
    EXPECT_EQ(wrap_mismatches(make_set, ramp(12, 0x90)), std::vector<uint32_t>{});
}

// A copy still pending is released by destroy, by a later set_param of any
// kind, and is never left behind by a failed allocation.
TEST(OpusConverter, PendingCodecDataIsReleased) {
    CountingMemory mem;
    void* h = make(mem.table());
    ASSERT_TRUE(set(h, kOpusHead));
    EXPECT_EQ(mem.live(), 2);
    Zarn_CodecUtil_Destroy(h);
    EXPECT_EQ(mem.live(), 0);

    h = make(mem.table());
    ASSERT_TRUE(set(h, kOpusHead));
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, nullptr));
    EXPECT_EQ(mem.live(), 1);
    TestRing ring;
    EXPECT_EQ(push(h, ring, {1}).size, 45u);  // nothing pending any more
    ASSERT_TRUE(set(h, kOpusHead));
    EXPECT_TRUE(set(h, {}));
    EXPECT_EQ(mem.live(), 1);

    ASSERT_TRUE(set(h, kOpusHead));
    mem.fail_at(1);
    EXPECT_FALSE(set(h, {4, 5, 6}));
    EXPECT_EQ(mem.live(), 1);
    EXPECT_TRUE(Zarn_CodecUtil_CheckConv(h));
    EXPECT_EQ(push(h, ring, {1}).size, 45u);
    Zarn_CodecUtil_Destroy(h);
    EXPECT_EQ(mem.live(), 0);
}

}  // namespace
