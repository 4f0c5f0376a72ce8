// Big/little-endian packing and reading shared by the converters and the
// splitter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace codecutil {

constexpr void put_be16(std::span<uint8_t> out, uint32_t v) {
    out[0] = static_cast<uint8_t>(v >> 8);
    out[1] = static_cast<uint8_t>(v);
}
constexpr void put_be32(std::span<uint8_t> out, uint32_t v) {
    out[0] = static_cast<uint8_t>(v >> 24);
    out[1] = static_cast<uint8_t>(v >> 16);
    out[2] = static_cast<uint8_t>(v >> 8);
    out[3] = static_cast<uint8_t>(v);
}
constexpr void put_le16(std::span<uint8_t> out, uint32_t v) {
    out[0] = static_cast<uint8_t>(v);
    out[1] = static_cast<uint8_t>(v >> 8);
}
constexpr void put_le32(std::span<uint8_t> out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out[static_cast<size_t>(i)] = static_cast<uint8_t>(v >> (8 * i));
}
constexpr void put_le64(std::span<uint8_t> out, uint64_t v) {
    for (int i = 0; i < 8; ++i) out[static_cast<size_t>(i)] = static_cast<uint8_t>(v >> (8 * i));
}

// Big-endian value of the first `n` (0..4) bytes at `p`; the caller has
// checked that they are there.
constexpr uint32_t read_be_unchecked(const uint8_t* p, unsigned n) {
    uint32_t v = 0;
    for (unsigned i = 0; i < n; ++i) v = (v << 8) | p[i];
    return v;
}

constexpr uint32_t read_be16_unchecked(const uint8_t* p) { return read_be_unchecked(p, 2); }

}  // namespace codecutil
