// Nanosecond time stamps to 90 kHz ticks (ns / 11111, 10^9 / 90000
// truncated). A plain 64-bit division is a libgcc call of some 200
// instructions on 32-bit ARM; long division in 16-bit digits keeps every
// step a 32-bit division by a constant, which compiles to a multiply, and
// gives the same quotient for every input.
#pragma once

#include <cstdint>

namespace codec_util {

inline constexpr uint32_t kNsPer90kHzTick = 11111;

constexpr uint64_t ns_to_90khz_by_digits(uint64_t ns) {
    const uint32_t hi = static_cast<uint32_t>(ns >> 32);
    const uint32_t lo = static_cast<uint32_t>(ns);
    // Each remainder is below 2^14, so remainder:digit fits 30 bits.
    const uint32_t n2 = (hi % kNsPer90kHzTick) << 16 | lo >> 16;
    const uint32_t n3 = (n2 % kNsPer90kHzTick) << 16 | (lo & 0xFFFF);
    return static_cast<uint64_t>(hi / kNsPer90kHzTick) << 32 | (n2 / kNsPer90kHzTick) << 16 |
           n3 / kNsPer90kHzTick;
}

constexpr uint64_t ns_to_90khz(uint64_t ns) {
    if constexpr (sizeof(void*) >= 8) return ns / kNsPer90kHzTick;
    return ns_to_90khz_by_digits(ns);
}

}  // namespace codec_util
