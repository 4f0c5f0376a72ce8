#include "test_ring.h"

namespace codecutil_test {

std::vector<uint8_t> TestRing::granted(uint32_t size) const {
    std::vector<uint8_t> out;
    out.reserve(size);
    for (uint32_t i = 0; i < size; ++i) out.push_back(ring_[(grant_ + i) % capacity()]);
    return out;
}

zarn_uint8* TestRing::getbuf(void* stream, zarn_uint32 size, zarn_uint8** mem2,
                             zarn_uint32* size2) {
    auto* r = static_cast<TestRing*>(stream);
    ++r->requests_;
    r->last_request_ = size;
    *size2 = 0;
    if (r->refuse_ > 0) {
        --r->refuse_;
        return nullptr;
    }
    if (size > r->capacity()) return nullptr;
    r->grant_ = r->wp_;
    const uint32_t to_end = r->capacity() - r->wp_;
    if (size > to_end) {
        *size2 = size - to_end;
        *mem2 = r->ring_.data();
    }
    uint8_t* first = r->ring_.data() + r->wp_;
    r->wp_ = static_cast<uint32_t>((static_cast<uint64_t>(r->wp_) + size) % r->capacity());
    return first;
}

}  // namespace codecutil_test
