// Copies of a few hundred bytes (an audio frame's payload behind its header):
// glibc's memcpy spends about as much on choosing its path as on moving the
// bytes at that size. On 32-bit ARM with NEON a plain 64-byte load/store loop
// does it in half the instructions; elsewhere this is memcpy.
#pragma once

#include <cstddef>
#include <cstdint>

namespace codecutil {

using CopyFn = void (*)(uint8_t* dst, const uint8_t* src, size_t size);

// The copy this CPU runs best; chosen once at load. Buffers must not overlap.
[[gnu::visibility("hidden")]] extern const CopyFn copy_bytes;

// Every copy this CPU runs, memcpy's first; their count in *n (for tests).
const CopyFn* copy_kernels(int* n);

}  // namespace codecutil
