// Converters through the public front end. Byte 0 picks the type (VP9
// through its own constructor), byte 1 whether a get-buffer function is
// installed at first; then a parameter record with codec data of any length,
// then a schedule of operations: push a unit into space granted contiguous,
// in two pieces at a chosen wrap, or refused; set the parameters again (or
// clear them); switch the get-buffer function on or off; ask CheckConv.
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
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "converter_input.h"
#include "zarn_codec_util.h"
#include "zarn_codec_util_priv.h"
#include "zhal_avstream.h"

namespace {

using fuzzinput::create;
using fuzzinput::Params;
using fuzzinput::Reader;

enum class Grant : uint8_t { kContiguous, kTwoPiece, kRefused };

// A get-buffer service handing out the space the schedule asks for.
struct Space {
    Grant mode = Grant::kContiguous;
    uint8_t wrap = 0;  // the second piece's share of the grant, in 256ths
    uint8_t fill = 0;
    uint32_t requested = 0;
    int requests = 0;
    uint8_t* first = nullptr;
    uint32_t first_size = 0;
    uint8_t* second = nullptr;
    uint32_t second_size = 0;

    void release() {
        std::free(first);
        std::free(second);
        first = second = nullptr;
        first_size = second_size = 0;
    }
    uint8_t* grant(uint32_t size, uint8_t** mem2, uint32_t* size2) {
        release();
        ++requests;
        requested = size;
        *size2 = 0;
        if (mode == Grant::kRefused || size > (1u << 20)) return nullptr;
        second_size = mode == Grant::kTwoPiece && size >= 2
                          ? 1 + static_cast<uint32_t>((uint64_t{size - 2} * wrap) / 255)
                          : 0;
        first_size = size - second_size;
        // malloc(0) may return NULL; a zero-length grant still needs an address.
        first = static_cast<uint8_t*>(std::malloc(first_size == 0 ? 1 : first_size));
        std::memset(first, fill, first_size);
        if (second_size != 0) {
            second = static_cast<uint8_t*>(std::malloc(second_size));
            std::memset(second, fill, second_size);
            *mem2 = second;
            *size2 = second_size;
        }
        return first;
    }
    std::vector<uint8_t> contents() const {
        std::vector<uint8_t> v(first, first + first_size);
        v.insert(v.end(), second, second + second_size);
        return v;
    }
    static zarn_uint8* getbuf(void* stream, zarn_uint32 size, zarn_uint8** mem2,
                              zarn_uint32* size2) {
        return static_cast<Space*>(stream)->grant(size, mem2, size2);
    }
};

constexpr uint32_t kHalCapacity = 1u << 18;

// The HAL stand-in's rings: a large one whose write position the schedule
// sets, and a one-byte one that refuses any longer grant. Kept across inputs:
// a ring costs its capacity to create.
struct HalRing {
    Zhal_AVStream_ptr big = zhal_sim_stream_create(kHalCapacity);
    Zhal_AVStream_ptr tiny = zhal_sim_stream_create(1);
    std::vector<uint8_t> out;
    HalRing() {
        zhal_sim_stream_set_consumer(big, collect, this);
        zhal_sim_stream_set_consumer(tiny, collect, this);
    }
    ~HalRing() {
        zhal_sim_stream_destroy(big);
        zhal_sim_stream_destroy(tiny);
    }
    HalRing(const HalRing&) = delete;
    HalRing& operator=(const HalRing&) = delete;
    static void collect(void* user, const zarn_uint8* data, zarn_uint32 size, zarn_uint64) {
        auto& out = static_cast<HalRing*>(user)->out;
        out.insert(out.end(), data, data + size);
    }
};

// One converter and the space it writes into.
struct Side {
    void* handle = nullptr;
    Space space;
    HalRing& hal;
    bool getbuf_on = false;

    explicit Side(HalRing& ring) : hal(ring) {}
    Side(const Side&) = delete;
    Side& operator=(const Side&) = delete;

    ~Side() {
        Zarn_CodecUtil_Destroy(handle);
        space.release();
    }
    bool takes_getbuf() const {
        return static_cast<CodecUtilBase_t*>(handle)->set_getbuf_func != nullptr;
    }
    void set_getbuf(bool on) {
        getbuf_on = on && takes_getbuf();
        Zarn_CodecUtil_SetGetBufFunc(handle,
                                     getbuf_on ? reinterpret_cast<void*>(&Space::getbuf) : nullptr);
    }

    // A push returns NULL, the unit itself (declined: passed on as it is) or
    // the start of the space it wrote.
    enum class Outcome { kNull, kDeclined, kWritten };
    struct Result {
        Outcome outcome;
        zarn_uint32 size;
        std::vector<uint8_t> bytes;
        bool operator==(const Result&) const = default;
    };
    Result push(CodecUtilBuffer_t unit, Grant mode, uint8_t wrap, uint8_t fill) {
        Result r{Outcome::kNull, 0xDEADBEEF, {}};
        zarn_uint8* ret = nullptr;
        if (getbuf_on) {
            space.mode = mode;
            space.wrap = wrap;
            space.fill = fill;
            const int before = space.requests;
            ret = Zarn_CodecUtil_ConvPushBuffer(handle, &space, &unit, &r.size);
            if (ret != nullptr && ret == unit.data) {
                r.outcome = Outcome::kDeclined;
            } else if (ret != nullptr) {
                if (space.requests == before || ret != space.first || r.size != space.requested)
                    __builtin_trap();
                r.outcome = Outcome::kWritten;
                r.bytes = space.contents();
            }
            space.release();
            return r;
        }
        Zhal_AVStream_ptr stream = mode == Grant::kRefused ? hal.tiny : hal.big;
        const uint32_t back = mode == Grant::kTwoPiece ? 1 + wrap * 16u : 0;
        zhal_sim_stream_set_write_pos(stream, kHalCapacity - back);
        ret = Zarn_CodecUtil_ConvPushBuffer(handle, stream, &unit, &r.size);
        if (ret != nullptr && ret == unit.data) {
            r.outcome = Outcome::kDeclined;
        } else if (ret != nullptr) {
            // Committing checks that the space starts at the grant and fits it.
            hal.out.clear();
            if (!Zhal_AVStream_Append(stream, ret, r.size, 0) || hal.out.size() != r.size)
                __builtin_trap();
            r.outcome = Outcome::kWritten;
            r.bytes.swap(hal.out);
        }
        return r;
    }
};

void discard(void*, ZarnDebugCategory*, ZarnDebugLevel, const char*, const char*) {}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Failed assertions print and carry on, as on a device without the
    // platform's abort request; every log line is formatted and dropped.
    vxm_sys_request_assert = 0;
    __zarn_debug_min = ZARN_LEVEL_LOG;
    zarn_debug_set_sink(discard, nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool initialized = (LLVMFuzzerInitialize(nullptr, nullptr), true);
    (void)initialized;
    if (size < 2) return 0;
    Reader in(data, size);
    const int type = in.u8() % 12;
    const bool getbuf = (in.u8() & 1) != 0;
    static HalRing ref_ring;
    static HalRing other_ring;
    Side ref(ref_ring);
    Side other(other_ring);
    ref.handle = create(type);
    other.handle = create(type);
    if (ref.handle == nullptr || other.handle == nullptr) __builtin_trap();
    ref.set_getbuf(getbuf);
    other.set_getbuf(getbuf);

    Params params;
    void* p = params.read(in, type);
    if (Zarn_CodecUtil_SetParam(ref.handle, p) != Zarn_CodecUtil_SetParam(other.handle, p))
        __builtin_trap();

    uint64_t timestamp = 0;
    for (int ops = 0; !in.empty() && ops < 64; ++ops) {
        const uint8_t op = in.u8();
        switch (op & 3) {
            case 0: {  // push
                std::vector<uint8_t> unit = in.bytes((op & 4) != 0 ? in.u16() & 0x3FFF : in.u8());
                const uint8_t g = in.u8();
                const auto mode = static_cast<Grant>((g & 3) == 3 ? 0 : g & 3);
                const uint8_t wrap = in.u8();
                timestamp += 33366666;
                // Each converter gets its own copy of exactly the unit's size:
                // a converter may rewrite the unit in place, and ASan sees a
                // read past it.
                std::vector<uint8_t> copy = unit;
                CodecUtilBuffer_t a{unit.empty() ? nullptr : unit.data(),
                                    static_cast<zarn_uint32>(unit.size()), timestamp,
                                    (op >> 3) & 1u};
                CodecUtilBuffer_t b = a;
                b.data = copy.empty() ? nullptr : copy.data();
                const auto ra =
                    ref.push(a, mode == Grant::kRefused ? mode : Grant::kContiguous, 0, 0x00);
                const auto rb = other.push(b, mode, wrap, 0xFF);
                if (!(ra == rb)) __builtin_trap();
                break;
            }
            case 1: {  // parameters again
                void* q = params.read(in, type);
                if (Zarn_CodecUtil_SetParam(ref.handle, q) !=
                    Zarn_CodecUtil_SetParam(other.handle, q))
                    __builtin_trap();
                break;
            }
            case 2:  // get-buffer function on or off
                ref.set_getbuf((op & 4) != 0);
                other.set_getbuf((op & 4) != 0);
                break;
            default:
                if (Zarn_CodecUtil_CheckConv(ref.handle) != Zarn_CodecUtil_CheckConv(other.handle))
                    __builtin_trap();
                break;
        }
    }
    return 0;
}
