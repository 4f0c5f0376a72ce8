// Drives one converter through the public wrappers into a TestRing.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "test_ring.h"
#include "zarn_codec_util.h"

namespace codecutil_test {

struct PushResult {
    zarn_uint8* ret = nullptr;
    zarn_uint32 size = 0;
    std::vector<uint8_t> bytes;  // the granted space read in ring order, when written
};

// Pushes `unit` into `ring` (the get-buffer function must be installed).
// `size` starts at `initial_size` so "unchanged" results can be told apart.
PushResult push(void* handle, TestRing& ring, std::vector<uint8_t> unit,
                zarn_uint32 initial_size = 0xDEADBEEF);

// For every write offset that splits the output of one push into two pieces,
// builds a fresh converter with `make`, pushes `unit` and returns the offsets
// whose output differs from the contiguous one (empty when all agree).
std::vector<uint32_t> wrap_mismatches(const std::function<void*()>& make,
                                      const std::vector<uint8_t>& unit);

}  // namespace codecutil_test
