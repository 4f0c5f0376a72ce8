// Pieces shared by the inspectors: byte readers and writers over checked
// ranges, and the one-line fault report.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace codecutil_tool {

inline uint32_t be16(const uint8_t* p) { return static_cast<uint32_t>(p[0] << 8 | p[1]); }
inline uint32_t be32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}
inline uint64_t be64(const uint8_t* p) {
    return static_cast<uint64_t>(be32(p)) << 32 | be32(p + 4);
}
inline uint32_t le16(const uint8_t* p) { return static_cast<uint32_t>(p[0] | p[1] << 8); }
inline uint32_t le32(const uint8_t* p) { return le16(p) | le16(p + 2) << 16; }
inline uint64_t le64(const uint8_t* p) {
    return le32(p) | static_cast<uint64_t>(le32(p + 4)) << 32;
}
inline void put_le16(uint8_t* p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
inline void put_le32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
inline void put_le64(uint8_t* p, uint64_t v) {
    for (int i = 0; i < 8; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// One-line fault report naming the offset; returns the failing status.
class Faults {
public:
    Faults(const char* format, FILE* err) : format_(format), err_(err) {}
    __attribute__((format(printf, 3, 4))) int at(size_t offset, const char* fmt, ...) const {
        std::fprintf(err_, "%s: offset %zu: ", format_, offset);
        va_list ap;
        va_start(ap, fmt);
        std::vfprintf(err_, fmt, ap);
        va_end(ap);
        std::fputc('\n', err_);
        return 1;
    }
    __attribute__((format(printf, 2, 3))) int plain(const char* fmt, ...) const {
        std::fprintf(err_, "%s: ", format_);
        va_list ap;
        va_start(ap, fmt);
        std::vfprintf(err_, fmt, ap);
        va_end(ap);
        std::fputc('\n', err_);
        return 1;
    }

private:
    const char* format_;
    FILE* err_;
};

}  // namespace codecutil_tool
