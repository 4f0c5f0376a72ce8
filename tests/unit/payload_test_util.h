// Helpers for the payload-header converter tests: units with time stamp and
// key flag, byte-vector assembly, and the every-wrap-offset check through a
// TestRing (get-buffer function) or through the HAL stand-in's ring.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "test_ring.h"
#include "zarn_codec_util.h"
#include "zarn_codec_util_port.h"
#include "zhal_avstream.h"

namespace payload_test {

using Bytes = std::vector<uint8_t>;

struct Unit {
    Bytes data;
    uint64_t timestamp = 0;
    uint32_t flag = 0;
};

inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// Bytes from hex text such as "00 00 01 32"; anything but hex digits is
// skipped.
inline Bytes hex(std::string_view text) {
    Bytes out;
    int high = -1;
    for (const char ch : text) {
        const int v = ch >= '0' && ch <= '9'   ? ch - '0'
                      : ch >= 'A' && ch <= 'F' ? ch - 'A' + 10
                      : ch >= 'a' && ch <= 'f' ? ch - 'a' + 10
                                               : -1;
        if (v < 0) continue;
        if (high < 0) {
            high = v;
        } else {
            out.push_back(static_cast<uint8_t>((high << 4) | v));
            high = -1;
        }
    }
    return out;
}

// `n` bytes counting up from `first`.
inline Bytes ramp(size_t n, uint8_t first = 1) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(first + i);
    return b;
}

struct Out {
    zarn_uint8* ret = nullptr;
    zarn_uint32 size = 0;
    Bytes bytes;  // the written space in ring order
};

// Pushes through the wrapper into `ring` (its get-buffer function installed
// by the caller). *size starts at 0xDEADBEEF to tell "unchanged" apart.
inline Out push(void* h, codecutil_test::TestRing& ring, Unit u) {
    Out o;
    o.size = 0xDEADBEEF;
    CodecUtilBuffer_t buf{u.data.data(), static_cast<zarn_uint32>(u.data.size()), u.timestamp,
                          u.flag};
    o.ret = Zarn_CodecUtil_ConvPushBuffer(h, &ring, &buf, &o.size);
    if (o.ret != nullptr && o.ret != buf.data) o.bytes = ring.granted(o.size);
    return o;
}

// A HAL stand-in stream whose committed bytes are collected.
class HalStream {
public:
    explicit HalStream(uint32_t capacity) : s_(zhal_sim_stream_create(capacity)) {
        zhal_sim_stream_set_consumer(s_, &HalStream::consume, this);
    }
    ~HalStream() { zhal_sim_stream_destroy(s_); }
    HalStream(const HalStream&) = delete;
    HalStream& operator=(const HalStream&) = delete;

    void* stream() const { return s_; }
    void set_write_pos(uint32_t offset) { zhal_sim_stream_set_write_pos(s_, offset); }

    // Pushes, and commits what was written; `bytes` is what the consumer got.
    Out push(void* h, Unit u) {
        Out o;
        o.size = 0xDEADBEEF;
        CodecUtilBuffer_t buf{u.data.data(), static_cast<zarn_uint32>(u.data.size()), u.timestamp,
                              u.flag};
        o.ret = Zarn_CodecUtil_ConvPushBuffer(h, s_, &buf, &o.size);
        if (o.ret != nullptr) {
            got_.clear();
            if (Conv_Port_Stream_Append(s_, o.ret, o.size, 0) == TRUE) o.bytes = got_;
        }
        return o;
    }

private:
    static void consume(void* user, const zarn_uint8* data, zarn_uint32 size, zarn_uint64) {
        auto* self = static_cast<HalStream*>(user);
        self->got_.insert(self->got_.end(), data, data + size);
    }
    void* s_;
    Bytes got_;
};

// For each push k of `units` and each write offset leaving 1 .. len-1 bytes
// before the ring's end, a fresh converter (from `make`, set up) gets units
// 0..k-1 contiguously and unit k across the wrap. Returns a description of
// every (push, offset) whose bytes differ from the contiguous run's; with
// `hal` the HAL stand-in's ring is used instead of a get-buffer function.
inline std::vector<std::pair<size_t, uint32_t>> wrap_mismatches(const std::function<void*()>& make,
                                                                const std::vector<Unit>& units,
                                                                bool hal = false) {
    constexpr uint32_t kCapacity = 1 << 14;
    std::vector<std::pair<size_t, uint32_t>> bad;
    auto run = [&](size_t k, uint32_t left) -> Out {
        void* h = make();
        Out o;
        if (hal) {
            HalStream s(kCapacity);
            for (size_t i = 0; i < k; ++i) s.push(h, units[i]);
            if (left != 0) s.set_write_pos(kCapacity - left);
            o = s.push(h, units[k]);
        } else {
            codecutil_test::TestRing ring(kCapacity);
            Zarn_CodecUtil_SetGetBufFunc(h, codecutil_test::getbuf_fn());
            for (size_t i = 0; i < k; ++i) push(h, ring, units[i]);
            if (left != 0) ring.set_write_pos(kCapacity - left);
            o = push(h, ring, units[k]);
        }
        Zarn_CodecUtil_Destroy(h);
        return o;
    };
    for (size_t k = 0; k < units.size(); ++k) {
        const Out want = run(k, 0);
        if (want.bytes.empty()) {
            bad.emplace_back(k, 0);
            continue;
        }
        for (uint32_t left = 1; left < want.size; ++left) {
            const Out got = run(k, left);
            if (got.size != want.size || got.bytes != want.bytes) bad.emplace_back(k, left);
        }
    }
    return bad;
}

}  // namespace payload_test
