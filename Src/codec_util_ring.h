// Ring space for one converted unit: the space request (the client's
// get-buffer function, else the HAL port) and a cursor that writes spans into
// one- or two-piece space. Converters never look at size2 themselves.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>

#include "zarn_codec_util_port.h"
#include "zarn_codec_util_rbuf.h"

namespace codecutil {

struct RingSpace {
    uint8_t* first = nullptr;  // start of the space, what the push returns
    uint32_t length = 0;       // bytes requested
    uint8_t* mem2 = nullptr;   // second piece, when size2 != 0
    uint32_t size2 = 0;

    [[nodiscard]] bool two_piece() const { return size2 != 0; }
};

// Asks for exactly `length` bytes. size2 is cleared before the call so a
// service that leaves it untouched on a contiguous grant still reads as one
// piece. Returns false when no space was granted.
[[nodiscard]] inline bool request_space(CodecUtilGetBufFunc_t getbuf, void* stream, uint32_t length,
                                        RingSpace& space) {
    space = RingSpace{};
    space.length = length;
    space.first = getbuf != nullptr
                      ? getbuf(stream, length, &space.mem2, &space.size2)
                      : Conv_Port_Stream_Getbuffer(stream, length, &space.mem2, &space.size2, -1);
    if (space.first == nullptr) return false;
    // A second piece larger than the grant cannot be written in order; treat
    // the grant as refused rather than write past the first piece.
    if (space.size2 > length || (space.size2 != 0 && space.mem2 == nullptr)) {
        space.first = nullptr;
        return false;
    }
    return true;
}

// Writes runs of bytes in order into the granted space. In two-piece space
// every run goes through write2ringbuffer, the first piece's end being the
// wrap point and mem2 the wrap target.
class RingWriter {
public:
    explicit RingWriter(const RingSpace& space)
        : first_(space.first),
          first_size_(space.length - space.size2),
          wp_(space.first),
          end_(space.first + (space.length - space.size2)),
          start_(space.two_piece() ? space.mem2 : space.first),
          two_piece_(space.two_piece()) {}

    void write(const uint8_t* data, uint32_t size) {
        if (two_piece_) {
            wp_ = write2ringbuffer(start_, end_, wp_, const_cast<uint8_t*>(data), size);
        } else {
            if (size != 0) std::memcpy(wp_, data, size);
            wp_ += size;
        }
        written_ += size;
    }
    void write(std::span<const uint8_t> bytes) {
        write(bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    // Short fixed-size runs (start codes, headers): a constant-size copy the
    // compiler inlines, instead of a library call per run.
    template <size_t N>
    void write(const std::array<uint8_t, N>& bytes) {
        if (!two_piece_) {
            std::memcpy(wp_, bytes.data(), N);
            wp_ += N;
            written_ += N;
        } else {
            write(bytes.data(), static_cast<uint32_t>(N));
        }
    }

    // Replaces N bytes already written at `offset` from the start of the
    // space, on whichever side of the wrap point they fall.
    template <size_t N>
    void overwrite(uint32_t offset, const std::array<uint8_t, N>& bytes) {
        if (offset + N <= first_size_) {
            std::memcpy(first_ + offset, bytes.data(), N);
        } else if (offset >= first_size_) {
            std::memcpy(start_ + (offset - first_size_), bytes.data(), N);
        } else {
            const uint32_t head = first_size_ - offset;
            std::memcpy(first_ + offset, bytes.data(), head);
            std::memcpy(start_, bytes.data() + head, N - head);
        }
    }

    [[nodiscard]] uint64_t written() const { return written_; }

private:
    uint8_t* first_;
    uint32_t first_size_;
    uint8_t* wp_;
    uint8_t* end_;
    uint8_t* start_;
    bool two_piece_;
    uint64_t written_ = 0;
};

// Counts what a RingWriter would write: the same emit code measures and
// writes, so the requested length always equals the written length.
class CountingSink {
public:
    void write(const uint8_t*, uint32_t size) { written_ += size; }
    void write(std::span<const uint8_t> bytes) { written_ += bytes.size(); }
    template <size_t N>
    void write(const std::array<uint8_t, N>&) {
        written_ += N;
    }
    // Rewrites bytes already counted: nothing to measure.
    template <size_t N>
    void overwrite(uint32_t, const std::array<uint8_t, N>&) {}
    [[nodiscard]] uint64_t written() const { return written_; }

private:
    uint64_t written_ = 0;
};

// Length of what `emit` writes.
template <class Emit>
[[nodiscard]] uint64_t measure(Emit&& emit) {
    CountingSink sink;
    emit(sink);
    return sink.written();
}

// The one way a converter writes a unit: `emit` describes the output once,
// it runs on a CountingSink to measure the unit, then, in exactly that much
// space, on a RingWriter. `emit` must not change the converter's state (the
// caller does that after success), so both runs describe the same bytes.
// Returns false, writing nothing, when the length passes 32 bits or no space
// is granted. The AAC push alone writes its space by hand: a fixed 7-byte
// header and the payload, on a path counted per instruction.
template <class Emit>
[[nodiscard]] bool write_measured(CodecUtilGetBufFunc_t getbuf, void* stream, RingSpace& space,
                                  Emit&& emit) {
    const uint64_t length = measure(emit);
    if (length > UINT32_MAX || !request_space(getbuf, stream, static_cast<uint32_t>(length), space))
        return false;
    RingWriter out(space);
    emit(out);
#ifndef NDEBUG
    // Written must equal requested. Not assert(): its message would carry the
    // lambda's source path into the binary.
    if (out.written() != space.length) std::abort();
#endif
    return true;
}

}  // namespace codecutil
