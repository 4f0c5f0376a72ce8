// NAL-unit mechanics shared by the H.264 and H.265 converters: the
// length-prefix walk, the Annex-B rewrite of one access unit into ring space,
// and the parameter-set blob.
//
// Both records have the same fields after `base`:
//   sps_pps_nal_units, sps_pps_nal_units_size, nal_length_size, need_convert,
//   getbufFunc.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "codec_util_bytes.h"
#include "codec_util_ring.h"
#include "zarn_codec_util_priv.h"

namespace codecutil {

inline constexpr std::array<uint8_t, 4> kStartCode = {0x00, 0x00, 0x00, 0x01};

// Writes into a plain memory block sized by a CountingSink pass.
class MemorySink {
public:
    explicit MemorySink(uint8_t* p) : p_(p) {}
    void write(const uint8_t* data, uint32_t size) {
        if (size != 0) std::memcpy(p_ + written_, data, size);
        written_ += size;
    }
    void write(std::span<const uint8_t> bytes) {
        write(bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    template <size_t N>
    void write(const std::array<uint8_t, N>& bytes) {
        write(bytes.data(), static_cast<uint32_t>(N));
    }
    [[nodiscard]] uint64_t written() const { return written_; }

private:
    uint8_t* p_;
    uint64_t written_ = 0;
};

struct NalScan {
    bool ok = false;
    uint32_t count = 0;  // NAL units
    uint64_t total = 0;  // payload bytes
};

// Walks an access unit of NAL units behind big-endian length prefixes of
// `nal_length_size` bytes. A unit is malformed when it is empty, when a
// prefix reaches or passes the unit's end (so a trailing empty NAL unit is
// malformed too), or when a payload passes the end. On failure count and
// total read 0, as the error line reports them.
[[nodiscard]] inline NalScan scan_length_prefixed(const uint8_t* data, uint32_t size,
                                                  uint32_t nal_length_size) {
    NalScan scan;
    if (size == 0 || nal_length_size == 0) return scan;
    uint32_t remaining = size;
    const uint8_t* p = data;
    while (remaining != 0) {
        if (nal_length_size >= remaining) return NalScan{};
        const uint32_t length = read_be_unchecked(p, nal_length_size);
        p += nal_length_size;
        remaining -= nal_length_size;
        if (length > remaining) return NalScan{};
        ++scan.count;
        scan.total += length;
        p += length;
        remaining -= length;
    }
    scan.ok = true;
    return scan;
}

// Emits every NAL unit of a scanned unit behind 00 00 00 01. A payload that
// already begins with 00 00 00 01 still gets its own start code (an empty
// NAL unit then precedes it): the output length counts four bytes per unit,
// and writing fewer would leave unwritten bytes inside the committed space.
template <class Sink>
void emit_annexb(Sink& sink, const uint8_t* data, uint32_t nal_length_size, uint32_t count) {
    const uint8_t* p = data;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t length = read_be_unchecked(p, nal_length_size);
        p += nal_length_size;
        sink.write(kStartCode);
        sink.write(p, length);
        p += length;
    }
}

// Builds the pending parameter-set blob from a codec-data walker: one pass to
// measure, one exactly-sized allocation, one pass to write. Returns false when
// the allocation fails (no blob is then pending). An empty walk leaves none.
template <class Rec, class Walk>
[[nodiscard]] bool store_blob(Rec* r, Walk&& walk) {
    CountingSink measure;
    walk(measure);
    if (measure.written() == 0) return true;
    // The record keeps the length as a signed 32-bit count.
    if (measure.written() > INT32_MAX) return false;
    auto* blob =
        static_cast<uint8_t*>(codec_util_malloc(&r->base, static_cast<size_t>(measure.written())));
    if (blob == nullptr) return false;
    MemorySink out(blob);
    walk(out);
    r->sps_pps_nal_units = blob;
    r->sps_pps_nal_units_size = static_cast<zarn_sint32>(out.written());
    CODEC_UTIL_TRACE("SPS/PPS size:%d", r->sps_pps_nal_units_size);
    return true;
}

template <class Rec>
void drop_blob(Rec* r) {
    if (r->sps_pps_nal_units != nullptr) codec_util_free(&r->base, r->sps_pps_nal_units);
    r->sps_pps_nal_units = nullptr;
    r->sps_pps_nal_units_size = 0;
}

// Writes a scanned unit, with the pending blob ahead of it, into ring space.
// Returns the space's start with *size the output length, or NULL (and
// *size 0) when no space is granted; the blob then stays pending.
template <class Rec>
uint8_t* write_annexb_unit(Rec* r, void* stream, const CodecUtilBuffer_t* buffer,
                           const NalScan& scan, zarn_uint32* size) {
    *size = 0;
    // For the trace only: write_measured measures the same from the emit below.
    const uint64_t length = static_cast<uint64_t>(r->sps_pps_nal_units_size) +
                            static_cast<uint64_t>(scan.count) * kStartCode.size() + scan.total;
    CODEC_UTIL_TRACE("Contains %d NALUnit and totalSize:%d", static_cast<int>(scan.count),
                     static_cast<int>(length));
    const bool blob = r->sps_pps_nal_units != nullptr;
    const auto nls = static_cast<uint32_t>(r->nal_length_size);
    RingSpace space;
    const bool written = write_measured(r->getbufFunc, stream, space, [&](auto& out) {
        if (blob) out.write(r->sps_pps_nal_units, static_cast<uint32_t>(r->sps_pps_nal_units_size));
        if (nls != kStartCode.size()) {
            emit_annexb(out, buffer->data, nls, scan.count);
            return;
        }
        // Four-byte prefixes: the output is the unit with each prefix turned
        // into a start code, so copy the unit whole and stamp the start codes
        // over the prefixes, instead of one copy per NAL unit.
        const auto at = static_cast<uint32_t>(out.written());
        out.write(buffer->data, buffer->size);
        const uint8_t* p = buffer->data;
        for (uint32_t i = 0; i < scan.count; ++i) {
            const auto offset = static_cast<uint32_t>(p - buffer->data);
            out.overwrite(at + offset, kStartCode);
            p += 4 + read_be_unchecked(p, 4);
        }
    });
    if (!written) {
        CODEC_UTIL_ERROR("Can't get buf from ring buffer!\n");
        return nullptr;
    }
    if (blob) {
        CODEC_UTIL_TRACE("Send SPS/PPS once");
        drop_blob(r);
    }
    *size = space.length;
    return space.first;
}

}  // namespace codecutil
