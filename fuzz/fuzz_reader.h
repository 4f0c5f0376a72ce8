// The fuzz targets' view of their input: bytes, little-endian 16-bit values
// and runs, read front to back; past the end every read is zero or empty.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace fuzzinput {

class Reader {
public:
    Reader(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}
    bool empty() const { return p_ == end_; }
    size_t left() const { return static_cast<size_t>(end_ - p_); }
    uint8_t u8() { return p_ < end_ ? *p_++ : 0; }
    uint16_t u16() {
        const uint8_t lo = u8();  // sequenced: little-endian whatever the compiler
        return static_cast<uint16_t>(lo | (u8() << 8));
    }
    // Up to `n` bytes (fewer at the end of the input).
    std::vector<uint8_t> bytes(size_t n) {
        if (n > left()) n = left();
        std::vector<uint8_t> v(p_, p_ + n);
        p_ += n;
        return v;
    }

private:
    const uint8_t* p_;
    const uint8_t* end_;
};

}  // namespace fuzzinput
