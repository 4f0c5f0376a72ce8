// Converters through the public front end. Byte 0 picks the type (VP9
// through its own constructor), byte 1 whether a get-buffer function is
// installed at first; then a parameter record (fuzz_input.h) with codec
// data of any length, then a schedule of operations: push a unit into space
// granted contiguous, in two pieces at a chosen wrap, or refused; set the
// parameters again (or clear them); switch the get-buffer function on or
// off; ask CheckConv.
//
// Two converters run the same schedule. The reference always gets contiguous
// space pre-filled with 0x00 where the other gets its scheduled space
// pre-filled with 0xFF, each piece an exact-size block, so ASan sees a write
// past either piece. Checked: a push returns the first piece or NULL, and
// *size is the granted length; both converters return alike and write the
// same bytes, so every granted byte was written (the fills differ) and the
// wrap changes nothing. Without a get-buffer function the space comes from
// the HAL stand-in: the reference ring's write position stays at 0, the
// other's is put short of the end by the wrap.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "fuzz_input.h"

namespace {

using fuzzinput::Bytes;
using fuzzinput::check;

enum Grant : uint8_t { kContiguous, kTwoPiece, kRefused };

constexpr uint32_t kHalCapacity = 1u << 18;

// The HAL stand-in's rings, kept across inputs (a ring costs its capacity to
// create): a large one whose write position the schedule sets, and a
// one-byte one that refuses any longer grant.
struct Hal {
    Zhal_AVStream_ptr big = zhal_sim_stream_create(kHalCapacity);
    Zhal_AVStream_ptr tiny = zhal_sim_stream_create(1);
    Bytes out;
    Hal() {
        for (Zhal_AVStream_ptr s : {big, tiny}) zhal_sim_stream_set_consumer(s, collect, this);
    }
    static void collect(void* user, const zarn_uint8* data, zarn_uint32 size, zarn_uint64) {
        auto& out = static_cast<Hal*>(user)->out;
        out.insert(out.end(), data, data + size);
    }
};

struct Result {
    // 0: NULL, 1: the unit itself (declined: passed on as it is), 2: the
    // start of the space written
    int outcome = 0;
    zarn_uint32 size = 0xDEADBEEF;
    Bytes bytes;
    bool operator==(const Result&) const = default;
};

// One converter and the space it writes into.
struct Side {
    Hal& hal;
    const uint8_t fill;
    void* h = nullptr;
    bool getbuf = false;
    Grant mode = kContiguous;
    uint8_t wrap = 0;  // the second piece's share of a grant, in 256ths
    uint32_t requested = 0;
    Bytes piece[2];  // exact-size blocks, but never empty
    uint32_t len[2] = {};

    ~Side() { Zarn_CodecUtil_Destroy(h); }
    void set_getbuf(bool on) {
        getbuf = on && static_cast<CodecUtilBase_t*>(h)->set_getbuf_func != nullptr;
        Zarn_CodecUtil_SetGetBufFunc(h, getbuf ? reinterpret_cast<void*>(&grant) : nullptr);
    }
    static zarn_uint8* grant(void* stream, zarn_uint32 size, zarn_uint8** mem2,
                             zarn_uint32* size2) {
        Side& s = *static_cast<Side*>(stream);
        s.requested = size;
        *size2 = 0;
        if (s.mode == kRefused || size > (1u << 20)) return nullptr;
        s.len[1] = s.mode == kTwoPiece && size >= 2
                       ? 1 + static_cast<uint32_t>(uint64_t{size - 2} * s.wrap / 255)
                       : 0;
        s.len[0] = size - s.len[1];
        for (int i : {0, 1}) s.piece[i] = Bytes(std::max(s.len[i], 1u), s.fill);
        if (s.len[1] != 0) *mem2 = s.piece[1].data(), *size2 = s.len[1];
        return s.piece[0].data();
    }

    Result push(const Bytes& bytes, uint64_t pts, uint32_t flag, Grant g, uint8_t w) {
        // An own copy of exactly the unit's size: a converter may rewrite the
        // unit in place, and ASan sees a read past it.
        Bytes copy = bytes;
        CodecUtilBuffer_t unit{copy.empty() ? nullptr : copy.data(),
                               static_cast<zarn_uint32>(copy.size()), pts, flag};
        // The last push's space is gone: ASan sees a converter that kept it.
        for (Bytes& p : piece) p = Bytes();
        mode = g;
        wrap = w;
        void* stream = this;
        if (!getbuf) {
            stream = g == kRefused ? hal.tiny : hal.big;
            zhal_sim_stream_set_write_pos(stream,
                                          kHalCapacity - (g == kTwoPiece ? 1 + w * 16u : 0));
        }
        Result r;
        zarn_uint8* ret = Zarn_CodecUtil_ConvPushBuffer(h, stream, &unit, &r.size);
        r.outcome = ret == nullptr ? 0 : ret == unit.data ? 1 : 2;
        if (r.outcome == 2 && getbuf) {
            // The first piece of this push's grant, of the length asked for.
            check(ret == piece[0].data() && r.size == requested);
            r.bytes.assign(ret, ret + len[0]);
            r.bytes.insert(r.bytes.end(), piece[1].begin(), piece[1].begin() + len[1]);
        } else if (r.outcome == 2) {
            // Committing checks that the space starts at the grant and fits it.
            hal.out.clear();
            check(Zhal_AVStream_Append(stream, ret, r.size, 0) && hal.out.size() == r.size);
            r.bytes.swap(hal.out);
        }
        return r;
    }
};

}  // namespace

// Failed assertions print and carry on, as on a device without the
// platform's abort request; every log line is formatted and dropped.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vxm_sys_request_assert = 0;
    __zarn_debug_min = ZARN_LEVEL_LOG;
    zarn_debug_set_sink([](void*, ZarnDebugCategory*, ZarnDebugLevel, const char*, const char*) {},
                        nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    fuzzinput::Reader in(data, size);
    const int type = in.u8() % 12;
    const bool getbuf = (in.u8() & 1) != 0;
    static Hal hals[2];
    Side ref{hals[0], 0x00};
    Side other{hals[1], 0xFF};
    for (Side* s : {&ref, &other}) {
        s->h = fuzzinput::create(type);
        check(s->h != nullptr);
        s->set_getbuf(getbuf);
    }
    fuzzinput::Params params;
    void* p = params.read(in, type);
    check(Zarn_CodecUtil_SetParam(ref.h, p) == Zarn_CodecUtil_SetParam(other.h, p));

    uint64_t timestamp = 0;
    for (int ops = 0; !in.empty() && ops < 64; ++ops) {
        const uint8_t op = in.u8();
        if ((op & 3) == 0) {  // push
            const Bytes unit = in.bytes((op & 4) != 0 ? in.u16() & 0x3FFF : in.u8());
            const uint8_t g = in.u8() & 3;
            const auto mode = static_cast<Grant>(g == 3 ? 0 : g);
            const uint8_t wrap = in.u8();
            const uint32_t flag = (op >> 3) & 1u;
            timestamp += 33366666;
            check(ref.push(unit, timestamp, flag, mode == kRefused ? mode : kContiguous, 0) ==
                  other.push(unit, timestamp, flag, mode, wrap));
        } else if ((op & 3) == 1) {  // parameters again
            void* q = params.read(in, type);
            check(Zarn_CodecUtil_SetParam(ref.h, q) == Zarn_CodecUtil_SetParam(other.h, q));
        } else if ((op & 3) == 2) {  // get-buffer function on or off
            ref.set_getbuf((op & 4) != 0);
            other.set_getbuf((op & 4) != 0);
        } else {
            check(Zarn_CodecUtil_CheckConv(ref.h) == Zarn_CodecUtil_CheckConv(other.h));
        }
    }
    return 0;
}
