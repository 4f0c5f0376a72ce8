// The fuzz targets' view of their input: bytes, little-endian 16-bit values
// and runs, read front to back; past the end every read is zero or empty.
// Also the splitter target's input layout, which the robust tests replay.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace fuzzinput {

using Bytes = std::vector<uint8_t>;

inline Bytes read_file(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class Reader {
public:
    Reader(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}
    explicit Reader(const Bytes& b) : Reader(b.data(), b.size()) {}
    bool empty() const { return p_ == end_; }
    size_t left() const { return static_cast<size_t>(end_ - p_); }
    uint8_t u8() { return p_ < end_ ? *p_++ : 0; }
    uint16_t u16() {
        const uint8_t lo = u8();  // sequenced: little-endian whatever the compiler
        return static_cast<uint16_t>(lo | (u8() << 8));
    }
    uint32_t u32() {
        const uint32_t lo = u16();
        return lo | uint32_t{u16()} << 16;
    }
    // Up to `n` bytes (fewer at the end of the input).
    Bytes bytes(size_t n) {
        if (n > left()) n = left();
        p_ += n;
        return Bytes(p_ - n, p_);
    }

private:
    const uint8_t* p_;
    const uint8_t* end_;
};

// Splitter input: flags (bit 0 HEVC, bit 1 transport stream, bits 2 and 3
// switch the enhancement layer and the metadata off), the record's length,
// the output call that fails (0: none), the push size - 1, then the decoder
// configuration record and the stream.
struct SplitterInput {
    uint8_t flags, fail_at;
    size_t chunk;
    Bytes record, stream;

    explicit SplitterInput(Reader in) {
        flags = in.u8();
        const size_t record_len = in.u8();
        fail_at = in.u8();
        chunk = in.u8() + 1u;
        record = in.bytes(record_len);
        stream = in.bytes(in.left());
    }
};

}  // namespace fuzzinput
