// In-process ring space for converter tests: a get-buffer function whose
// `stream` argument is a TestRing. Space crossing the ring's end comes in
// two pieces, so every wrap offset of a unit can be driven.
#pragma once

#include <cstdint>
#include <vector>

#include "zarn_codec_util.h"

namespace codecutil_test {

class TestRing {
public:
    explicit TestRing(uint32_t capacity = 1u << 16) : ring_(capacity, 0xEE) {}

    // Next grant starts at `offset` (mod capacity).
    void set_write_pos(uint32_t offset) { wp_ = offset % capacity(); }
    // Refuse the next `n` requests.
    void refuse_next(int n) { refuse_ = n; }

    uint32_t capacity() const { return static_cast<uint32_t>(ring_.size()); }
    int requests() const { return requests_; }
    uint32_t last_request() const { return last_request_; }

    // The `size` bytes of the last grant, in ring order.
    std::vector<uint8_t> granted(uint32_t size) const;

    // CodecUtilGetBufFunc_t; `stream` is a TestRing*.
    static zarn_uint8* getbuf(void* stream, zarn_uint32 size, zarn_uint8** mem2,
                              zarn_uint32* size2);

private:
    std::vector<uint8_t> ring_;
    uint32_t wp_ = 0;
    uint32_t grant_ = 0;
    int refuse_ = 0;
    int requests_ = 0;
    uint32_t last_request_ = 0;
};

inline void* getbuf_fn() { return reinterpret_cast<void*>(&TestRing::getbuf); }

}  // namespace codecutil_test
