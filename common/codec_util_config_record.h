// One walk over the parameter-set entries of an ISO/IEC 14496-15 decoder
// configuration record, AVC (5.3.3.1) or HEVC (8.3.3.1), shared by the
// H.264/H.265 converters and the splitter. Every read is bounds-checked
// against the record's length: a record cut anywhere stops the walk, it
// never reads past the end.
#pragma once

#include <cstdint>
#include <span>

#include "codec_util_bytes.h"

namespace codecutil {

// AVC: configurationVersion, AVCProfileIndication, profile_compatibility,
// AVCLevelIndication, lengthSizeMinusOne (byte 4), numOfSequenceParameterSets
// (byte 5). HEVC: general profile/level fields up to byte 20,
// lengthSizeMinusOne (byte 21), numOfArrays (byte 22), arrays from byte 23.
inline constexpr uint32_t kAvcLengthSizeOffset = 4;
inline constexpr uint32_t kAvcNumSpsOffset = 5;
inline constexpr uint32_t kHevcLengthSizeOffset = 21;
inline constexpr uint32_t kHevcNumArraysOffset = 22;

// NAL unit length size (1, 2 or 4 bytes) from lengthSizeMinusOne; the caller
// has checked that the byte is there.
[[nodiscard]] inline int record_nal_length_size(std::span<const uint8_t> rec, bool hevc) {
    return (rec[hevc ? kHevcLengthSizeOffset : kAvcLengthSizeOffset] & 0x03) + 1;
}

enum class RecordStop {
    kEnd,      // every entry walked
    kCut,      // a count, an array header or a length field is missing
    kOverrun,  // an entry's length runs past the record
    kRefused,  // the visitor stopped the walk
};

// Where and why a walk stopped. `pos` is the offset of the missing field, or
// of the overrunning entry's first byte; `length` that entry's declared
// length (0 otherwise).
struct RecordWalk {
    RecordStop stop = RecordStop::kEnd;
    uint32_t pos = 0;
    uint32_t length = 0;
};

// One entry: `what` names it ("SPS", "PPS", "SPS/PPS"); `pos` is the offset
// of its first byte. `available` is below `length` only for an overrunning
// entry, which is visited (with the bytes that are there) before the walk
// stops on it.
struct RecordEntry {
    const char* what;
    const uint8_t* data;
    uint32_t pos;
    uint32_t length;
    uint32_t available;
    [[nodiscard]] bool complete() const { return available == length; }
};

namespace record_detail {

class Cursor {
public:
    explicit Cursor(std::span<const uint8_t> rec, uint32_t pos) : rec_(rec), pos_(pos) {}
    [[nodiscard]] bool has(uint32_t n) const {
        return pos_ <= rec_.size() && rec_.size() - pos_ >= n;
    }
    uint32_t take(uint32_t n) {
        const uint32_t v = read_be_unchecked(rec_.data() + pos_, n);
        pos_ += n;
        return v;
    }
    void skip(uint32_t n) { pos_ += n; }
    [[nodiscard]] uint32_t pos() const { return pos_; }
    [[nodiscard]] uint32_t left() const { return static_cast<uint32_t>(rec_.size()) - pos_; }
    [[nodiscard]] const uint8_t* here() const { return rec_.data() + pos_; }

private:
    std::span<const uint8_t> rec_;
    uint32_t pos_;
};

// `count` entries of a 2-byte length and the bytes of each.
template <class OnEntry>
[[nodiscard]] bool entries(Cursor& c, uint32_t count, const char* what, OnEntry& on_entry,
                           RecordWalk& w) {
    for (uint32_t i = 0; i < count; ++i) {
        if (!c.has(2)) {
            w = {RecordStop::kCut, c.pos(), 0};
            return false;
        }
        const uint32_t length = c.take(2);
        const uint32_t available = length <= c.left() ? length : c.left();
        if (!on_entry(RecordEntry{what, c.here(), c.pos(), length, available})) {
            w = {RecordStop::kRefused, c.pos(), length};
            return false;
        }
        if (available < length) {
            w = {RecordStop::kOverrun, c.pos(), length};
            return false;
        }
        c.skip(length);
    }
    return true;
}

}  // namespace record_detail

// Walks the SPS entries, numOfPictureParameterSets and the PPS entries of an
// AVC record. on_count(what, n) sees each count as it is read; on_entry(entry)
// returns false to stop the walk.
template <class OnCount, class OnEntry>
RecordWalk walk_avc_record(std::span<const uint8_t> rec, OnCount&& on_count, OnEntry&& on_entry) {
    RecordWalk w;
    record_detail::Cursor c(rec, kAvcNumSpsOffset);
    for (const char* what : {"SPS", "PPS"}) {
        if (!c.has(1)) return {RecordStop::kCut, c.pos(), 0};
        // numOfSequenceParameterSets keeps 5 bits, numOfPictureParameterSets 8.
        const uint32_t count = c.take(1) & (what[0] == 'S' ? 0x1Fu : 0xFFu);
        on_count(what, count);
        if (!record_detail::entries(c, count, what, on_entry, w)) return w;
    }
    return w;
}

// Walks every NAL-unit array of an HEVC record (array_completeness and
// NAL_unit_type are not looked at: every unit is taken).
template <class OnEntry>
RecordWalk walk_hevc_record(std::span<const uint8_t> rec, OnEntry&& on_entry) {
    RecordWalk w;
    record_detail::Cursor c(rec, kHevcNumArraysOffset);
    if (!c.has(1)) return {RecordStop::kCut, c.pos(), 0};
    const uint32_t arrays = c.take(1);
    for (uint32_t a = 0; a < arrays; ++a) {
        if (!c.has(3)) return {RecordStop::kCut, c.pos(), 0};
        c.skip(1);
        const uint32_t count = c.take(2);  // numNalus
        if (!record_detail::entries(c, count, "SPS/PPS", on_entry, w)) return w;
    }
    return w;
}

}  // namespace codecutil
