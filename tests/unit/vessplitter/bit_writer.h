// Builds H.264/H.265 syntax for the parser tests: fixed-width fields, ue(v)
// and se(v), RBSP trailing bits, and whole NAL units with start code and
// emulation-prevention bytes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "io_buffer.h"
#include "sei_sps_parser.h"

namespace vestest_old {

class BitWriter {
public:
    BitWriter& u(uint32_t bits, uint64_t v) {
        for (uint32_t i = bits; i-- > 0;) bit(static_cast<uint32_t>((v >> i) & 1));
        return *this;
    }
    BitWriter& ue(uint64_t v) {
        const uint64_t code = v + 1;
        uint32_t n = 0;
        while ((code >> n) > 1) ++n;
        return u(n, 0).u(n + 1, code);
    }
    BitWriter& se(int64_t v) {
        return ue(v > 0 ? static_cast<uint64_t>(2 * v - 1) : static_cast<uint64_t>(-2 * v));
    }
    BitWriter& align_zero() {
        while (fill_ != 0) bit(0);
        return *this;
    }
    BitWriter& trailing() { return bit(1).align_zero(); }
    std::vector<uint8_t> bytes() const { return bytes_; }

private:
    BitWriter& bit(uint32_t b) {
        if (fill_ == 0) bytes_.push_back(0);
        if (b) bytes_.back() = static_cast<uint8_t>(bytes_.back() | (0x80 >> fill_));
        fill_ = (fill_ + 1) % 8;
        return *this;
    }
    std::vector<uint8_t> bytes_;
    uint32_t fill_ = 0;
};

// 00 00 00 01 + header + payload with 00 00 0x -> 00 00 03 0x for x <= 3.
inline std::vector<uint8_t> make_nal(std::initializer_list<uint8_t> header,
                                     const std::vector<uint8_t>& rbsp) {
    std::vector<uint8_t> nal;
    nal.reserve(4 + header.size() + rbsp.size() * 3 / 2);
    for (uint8_t b : std::initializer_list<uint8_t>{0, 0, 0, 1}) nal.push_back(b);
    // One byte at a time: GCC 12 at -O2 warns falsely on a range insert here.
    for (uint8_t b : header) nal.push_back(b);
    int zeros = 0;
    for (uint8_t b : rbsp) {
        if (zeros >= 2 && b <= 3) {
            nal.push_back(3);
            zeros = 0;
        }
        nal.push_back(b);
        zeros = b == 0 ? zeros + 1 : 0;
    }
    return nal;
}

// One SEI message: type and size in byte-run coding, then the payload.
inline void sei_message(std::vector<uint8_t>& rbsp, uint32_t type,
                        const std::vector<uint8_t>& payload) {
    for (; type >= 255; type -= 255) rbsp.push_back(0xFF);
    rbsp.push_back(static_cast<uint8_t>(type));
    size_t size = payload.size();
    for (; size >= 255; size -= 255) rbsp.push_back(0xFF);
    rbsp.push_back(static_cast<uint8_t>(size));
    rbsp.insert(rbsp.end(), payload.begin(), payload.end());
}

// Routes the parsers' diagnostics into a string for the life of the object.
class EdrCapture {
public:
    explicit EdrCapture(int level = 4)
        : saved_file_(edr_debug_file), saved_level_(edr_debug_level) {
        file_ = open_memstream(&buf_, &len_);
        edr_debug_file = file_;
        edr_debug_level = level;
    }
    ~EdrCapture() {
        edr_debug_file = saved_file_;
        edr_debug_level = saved_level_;
        std::fclose(file_);
        std::free(buf_);
    }
    std::string text() {
        std::fflush(file_);
        return std::string(buf_, len_);
    }

private:
    FILE* saved_file_;
    int saved_level_;
    FILE* file_ = nullptr;
    char* buf_ = nullptr;
    size_t len_ = 0;
};

// A read device over a copy of `bytes`, made through the registry.
class Reader {
public:
    explicit Reader(std::vector<uint8_t> bytes) : data_(std::move(bytes)) {
        parser_env_init();
        io_ = reg_bbio_get('b', 'r');
        io_->set_buffer(io_, data_.data(), data_.size(), 0);
    }
    ~Reader() { io_->destroy(io_); }
    bbio_handle_t operator->() const { return io_; }
    operator bbio_handle_t() const { return io_; }
    bbio_buf_t* dev() const { return reinterpret_cast<bbio_buf_t*>(io_); }

private:
    std::vector<uint8_t> data_;
    bbio_handle_t io_;
};

inline int32_t nal_size(const std::vector<uint8_t>& nal) {
    return static_cast<int32_t>(nal.size());
}

}  // namespace vestest_old
