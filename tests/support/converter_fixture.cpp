#include "converter_fixture.h"

namespace codecutil_test {

PushResult push(void* handle, TestRing& ring, std::vector<uint8_t> unit, zarn_uint32 initial_size) {
    PushResult r;
    CodecUtilBuffer_t buf{unit.data(), static_cast<zarn_uint32>(unit.size()), 0, 0};
    r.size = initial_size;
    r.ret = Zarn_CodecUtil_ConvPushBuffer(handle, &ring, &buf, &r.size);
    if (r.ret != nullptr && r.ret != buf.data && r.size != 0) r.bytes = ring.granted(r.size);
    return r;
}

std::vector<uint32_t> wrap_mismatches(const std::function<void*()>& make,
                                      const std::vector<uint8_t>& unit) {
    std::vector<uint32_t> bad;
    constexpr uint32_t kCapacity = 4096;
    TestRing contiguous(kCapacity);
    void* h = make();
    Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
    const PushResult want = push(h, contiguous, unit);
    Zarn_CodecUtil_Destroy(h);
    if (want.bytes.empty() || want.size >= kCapacity) return {0};
    // Offsets leaving 1 .. size-1 bytes before the ring's end.
    for (uint32_t left = 1; left < want.size; ++left) {
        TestRing ring(kCapacity);
        ring.set_write_pos(kCapacity - left);
        h = make();
        Zarn_CodecUtil_SetGetBufFunc(h, getbuf_fn());
        const PushResult got = push(h, ring, unit);
        Zarn_CodecUtil_Destroy(h);
        if (got.size != want.size || got.bytes != want.bytes) bad.push_back(left);
    }
    return bad;
}

}  // namespace codecutil_test
