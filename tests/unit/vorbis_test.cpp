// Vorbis converter: codec-data lacing, header packets once, b_o_s once.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "converter_fixture.h"
#include "log_capture.h"
#include "packet_test_util.h"
#include "test_memory.h"

namespace {

using namespace codecutil_test;
using namespace packet_test;

constexpr const char* kSync = "gstvorbis";
const Bytes kThree = cat({{0x02, 0x1E, 0xFF, 0x10}, ramp(30 + 271 + 4)});  // 30, 271, 4

// The caller's codec data must outlive the push that sends the header
// packets, so each converter keeps its own.
struct Vorbis {
    Bytes codec_data;
    void* h = nullptr;
    TestRing ring;

    explicit Vorbis(Bytes cd, CodecUtilMemVtable_t* table = nullptr) : codec_data(std::move(cd)) {
        h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_VOIBIS, table);
        Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
        set(codec_data);
    }
    ~Vorbis() { Zarn_CodecUtil_Destroy(h); }
    zarn_bool set(Bytes& cd) {
        CodecUtilVorbisParam_t p{cd.empty() ? nullptr : cd.data(),
                                 static_cast<zarn_uint32>(cd.size()), nullptr, nullptr, nullptr};
        return Zarn_CodecUtil_SetParam(h, &p);
    }
    std::vector<Packet> push_packets(const Bytes& unit) {
        const PushResult r = push(h, ring, unit);
        EXPECT_EQ(r.size, r.bytes.size());
        return split(r.bytes, kSync);
    }
};

TEST(VorbisCodecData, LacedSizesSplitTheHeaderPackets) {
    struct Case {
        const char* name;
        Bytes codec_data;
        std::vector<size_t> headers;  // sizes of the header packets sent
    };
    const Case cases[] = {
        // 2 + 1 packets; 0x1E = 30, 0xFF 0x10 = 271, the last takes the rest (4).
        {"three packets", kThree, {30, 271, 4}},
        {"one packet", cat({{0x00}, ramp(50)}), {50}},
        // A lacing value of exactly 255 continues into the next byte.
        {"255 then 0", cat({{0x01, 0xFF, 0x00}, ramp(255 + 3)}), {255, 3}},
        // Laced size equal to what follows: the last packet is empty.
        {"last packet empty", cat({{0x01, 0x0A}, ramp(10)}), {10, 0}},
        {"last packet one byte", cat({{0x01, 0x0A}, ramp(11)}), {10, 1}},
        // Count byte alone: the lacing loop finds no bytes, all sizes 0.
        {"count byte only", {0x02}, {0, 0, 0}},
        // One past what follows: parse error, audio framed alone.
        {"laced size one past the end", cat({{0x01, 0x0A}, ramp(9)}), {}},
        {"lacing runs off the end", {0x01, 0xFF, 0xFF}, {}},
        {"huge laced sizes", cat({{0x02, 0xFF, 0xFF, 0xFF, 0x00, 0x01}, ramp(4)}), {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Vorbis v(c.codec_data);
        const Bytes unit = ramp(7, 0x80);
        std::vector<Packet> packets = v.push_packets(unit);
        ASSERT_EQ(packets.size(), c.headers.size() + 1);
        EXPECT_EQ(packets.back().data, unit);
        packets.pop_back();
        EXPECT_EQ(sizes_of(packets), c.headers);
        // Header packets come back to back from their offset.
        size_t offset = c.codec_data.size();
        for (size_t s : c.headers) offset -= s;
        for (const Packet& p : packets) {
            EXPECT_EQ(p.data,
                      Bytes(c.codec_data.begin() + static_cast<long>(offset),
                            c.codec_data.begin() + static_cast<long>(offset + p.data.size())));
            offset += p.data.size();
        }
    }
}

TEST(VorbisConverter, HeaderPacketsOnceAndBeginningOfStreamOnce) {
    LogCapture log;
    Vorbis v(kThree);
    EXPECT_EQ(log.count("hdr_frame_num:3, frame_size:30, codecData_size:309"), 1);
    EXPECT_EQ(log.count("hdr_frame_num:3, frame_size:271, codecData_size:309"), 1);
    EXPECT_EQ(log.level_of("hdr_frame_num:3, frame_size:4, codecData_size:309"), ZARN_LEVEL_ERROR);
    const Bytes unit = ramp(100, 0x40);
    PushResult first = push(v.h, v.ring, unit);
    EXPECT_EQ(first.size, 3u * 44u + 305u + 44u + 100u);
    EXPECT_EQ(bos_of(split(first.bytes, kSync)), (std::vector<uint32_t>{1, 0, 0, 0}));
    EXPECT_EQ(log.level_of("send 0 hdr frame, size: 30"), ZARN_LEVEL_ERROR);
    EXPECT_EQ(log.count("send 1 hdr frame, size: 271"), 1);
    EXPECT_EQ(log.count("send 2 hdr frame, size: 4"), 1);
    EXPECT_EQ(log.count("parse vorbis codec data error"), 0);
    EXPECT_EQ(push(v.h, v.ring, unit).size, 144u);
    // A new set_param re-arms the header packets, but the stream has begun.
    Bytes again = cat({{0x00}, ramp(20)});
    v.set(again);
    std::vector<Packet> packets = v.push_packets(unit);
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[0].data, ramp(20));
    EXPECT_EQ(packets[0].bos, 0u);
    // Without codec data the audio packet is the first and carries b_o_s.
    Bytes none;
    Vorbis bare(none);
    EXPECT_TRUE(Zarn_CodecUtil_CheckConv(bare.h));
    EXPECT_EQ(bos_of(bare.push_packets({9, 8})), (std::vector<uint32_t>{1}));
    EXPECT_EQ(bos_of(bare.push_packets({9, 8})), (std::vector<uint32_t>{0}));
}

TEST(VorbisConverter, InactiveUntilARecordIsGiven) {
    LogCapture log;
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_VOIBIS, nullptr);
    Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
    TestRing ring;
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    PushResult r = push(h, ring, {1});
    EXPECT_EQ(r.ret, nullptr);
    EXPECT_EQ(r.size, 0u);
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(h, nullptr));
    EXPECT_EQ(log.level_of("no param, so don't need do convert"), ZARN_LEVEL_INFO);
    EXPECT_FALSE(Zarn_CodecUtil_CheckConv(h));
    EXPECT_EQ(ring.requests(), 0);
    Zarn_CodecUtil_Destroy(h);
    EXPECT_EQ(log.level_of("Create Vorbis CodecUtil handler"), ZARN_LEVEL_LOG);
    EXPECT_EQ(log.level_of("Destroy Voibis CodecUtil handler"), ZARN_LEVEL_LOG);
}

TEST(VorbisConverter, RefusedSpaceKeepsTheHeaderPacketsPending) {
    Vorbis v(cat({{0x00}, ramp(12)}));
    v.ring.refuse_next(1);
    PushResult r = push(v.h, v.ring, {5});
    EXPECT_EQ(r.ret, nullptr);
    EXPECT_EQ(r.size, 0u);
    EXPECT_EQ(v.ring.last_request(), 44u + 12u + 44u + 1u);
    // Nothing was written by the refused push: headers and b_o_s now.
    EXPECT_EQ(bos_of(v.push_packets({5})), (std::vector<uint32_t>{1, 0}));
}

TEST(VorbisConverter, EveryWrapOffsetGivesTheContiguousBytes) {
    static Bytes codec_data = cat({{0x02, 0x03, 0x02}, ramp(3 + 2 + 4)});
    const auto make = [] {
        void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_VOIBIS, nullptr);
        CodecUtilVorbisParam_t p{codec_data.data(), static_cast<zarn_uint32>(codec_data.size()),
                                 nullptr, nullptr, nullptr};
        Zarn_CodecUtil_SetParam(h, &p);
        return h;
    };
    EXPECT_EQ(wrap_mismatches(make, ramp(10, 0x70)), std::vector<uint32_t>{});
}

// Pending header packets are released by destroy and by a later set_param;
// a record without codec data leaves none pending; a failed size table
// leaves audio framing only.
TEST(VorbisConverter, PendingHeaderPacketsAreReleased) {
    CountingMemory mem;
    {
        Vorbis v(cat({{0x01, 0x02}, ramp(5)}), mem.table());
        EXPECT_EQ(mem.live(), 2);  // record and size table
    }
    EXPECT_EQ(mem.live(), 0);
    {
        Vorbis v(cat({{0x01, 0x02}, ramp(5)}), mem.table());
        Bytes other = cat({{0x00}, ramp(6, 0x30)});
        EXPECT_TRUE(v.set(other));
        EXPECT_EQ(mem.live(), 2);
        std::vector<Packet> packets = v.push_packets({1});
        ASSERT_EQ(packets.size(), 2u);
        EXPECT_EQ(packets[0].data, ramp(6, 0x30));  // only the latest codec data
        EXPECT_EQ(mem.live(), 1);

        LogCapture log;
        Bytes bad = {0x01, 0x0A, 1, 2};
        v.set(bad);
        EXPECT_EQ(log.level_of("parse vorbis codec data error"), ZARN_LEVEL_ERROR);
        EXPECT_TRUE(Zarn_CodecUtil_CheckConv(v.h));
        Bytes again = cat({{0x00}, ramp(3)});
        v.set(again);
        Bytes empty;
        EXPECT_TRUE(v.set(empty));
        EXPECT_EQ(mem.live(), 1);
        EXPECT_EQ(v.push_packets({1}).size(), 1u);
        v.set(again);
        EXPECT_TRUE(Zarn_CodecUtil_SetParam(v.h, nullptr));
        EXPECT_EQ(mem.live(), 1);

        mem.fail_at(1);
        EXPECT_FALSE(v.set(again));
        EXPECT_TRUE(Zarn_CodecUtil_CheckConv(v.h));
        EXPECT_EQ(push(v.h, v.ring, {1, 2}).size, 46u);
    }
    EXPECT_EQ(mem.live(), 0);
}

}  // namespace

// A record without codec data after header packets were split leaves no
// offset into the (now NULL) codec data: the push frames the audio alone.
TEST(VorbisConverter, RecordWithoutCodecDataAfterHeaderPackets) {
    Vorbis v(cat({{0x01, 0x02}, ramp(5)}));
    CodecUtilVorbisParam_t p{nullptr, 0, nullptr, nullptr, nullptr};
    EXPECT_TRUE(Zarn_CodecUtil_SetParam(v.h, &p));
    EXPECT_EQ(v.push_packets({1}).size(), 1u);
}
