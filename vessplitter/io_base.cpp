// MSB-first bit reader over a bbio_t device. At most one byte is cached; a
// request for n bits fetches exactly the bytes holding its uncached bits, one
// read() call per byte, so the device offset always stands just past the
// cached byte.
#include "io_base.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

static_assert(std::is_standard_layout_v<bbio_t>);
static_assert(offsetof(bbio_t, dev_type) == 0);
static_assert(offsetof(bbio_t, io_mode) == 1);
static_assert(offsetof(bbio_t, destroy) == sizeof(void*));
static_assert(offsetof(bbio_t, skip_bytes) == 15 * sizeof(void*));
static_assert(offsetof(bbio_t, cached_bit_num) == 16 * sizeof(void*));
static_assert(offsetof(bbio_t, cached_bits) == 16 * sizeof(void*) + 4);

namespace {

// Entry n has the low n bits set.
constexpr uint32_t byte_bit_mask[9] = {0, 1, 3, 7, 15, 31, 63, 127, 255};

// One byte from the device; 0 past the end of the data or without a read slot.
uint32_t fetch_byte(bbio_handle_t src) {
    uint8_t b = 0;
    if (src->read != nullptr) (void)src->read(src, &b, 1);
    return b;
}

// Big-endian value of n bytes; bytes the device does not deliver stay 0.
uint64_t read_be(bbio_handle_t src, size_t n) {
    uint8_t bytes[8] = {};
    if (src->read != nullptr) (void)src->read(src, bytes, n);
    uint64_t v = 0;
    for (size_t i = 0; i < n; ++i) v = (v << 8) | bytes[i];
    return v;
}

uint32_t read_bits_upto32(bbio_handle_t src, uint32_t n) {
    if (src->cached_bit_num >= n) {
        src->cached_bit_num -= n;
        return (src->cached_bits >> src->cached_bit_num) & byte_bit_mask[n];
    }
    uint32_t v = 0;
    uint32_t r = n;
    if (src->cached_bit_num != 0) {
        v = src->cached_bits & byte_bit_mask[src->cached_bit_num];
        r = n - src->cached_bit_num;
        src->cached_bit_num = 0;
    }
    uint32_t b = fetch_byte(src);
    src->cached_bits = b;
    while (r > 8) {
        v = (v << 8) | b;
        r -= 8;
        src->cached_bit_num = 0;
        b = fetch_byte(src);
        src->cached_bits = b;
    }
    src->cached_bit_num = 8 - r;
    return (v << r) | ((b >> (8 - r)) & byte_bit_mask[r]);
}

}  // namespace

extern "C" {

VES_API uint8_t src_read_u8(bbio_handle_t src) { return static_cast<uint8_t>(read_be(src, 1)); }
VES_API uint16_t src_read_u16(bbio_handle_t src) { return static_cast<uint16_t>(read_be(src, 2)); }
VES_API uint32_t src_read_u24(bbio_handle_t src) { return static_cast<uint32_t>(read_be(src, 3)); }
VES_API uint32_t src_read_u32(bbio_handle_t src) { return static_cast<uint32_t>(read_be(src, 4)); }
VES_API uint64_t src_read_u64(bbio_handle_t src) { return read_be(src, 8); }

VES_API uint32_t src_read_bits(bbio_handle_t src, uint32_t bit_num) {
    if (bit_num > 32) {
        src_skip_bits(src, bit_num - 32);
        bit_num = 32;
    }
    return read_bits_upto32(src, bit_num);
}

VES_API uint32_t src_read_bit(bbio_handle_t src) { return src_read_bits(src, 1); }

VES_API void src_byte_align(bbio_handle_t src) { src->cached_bit_num = 0; }

VES_API uint32_t src_bits_cached(bbio_handle_t src) { return src->cached_bit_num; }

VES_API void src_skip_bits(bbio_handle_t src, uint32_t bit_num) {
    if (src->cached_bit_num >= bit_num) {
        src->cached_bit_num -= bit_num;
        return;
    }
    const uint32_t r = bit_num - src->cached_bit_num;
    src->cached_bit_num = 0;
    if (r < 8) {
        (void)read_bits_upto32(src, r);
        return;
    }
    if (src->seek != nullptr) (void)src->seek(src, static_cast<int64_t>(r / 8), 1);
    if (r % 8 != 0) (void)read_bits_upto32(src, r % 8);
}

VES_API int64_t src_following_bit_num(bbio_handle_t src) {
    const int64_t size = src->size != nullptr ? src->size(src) : 0;
    const int64_t pos = src->position != nullptr ? src->position(src) : 0;
    return (size - pos) * 8 + static_cast<int64_t>(src->cached_bit_num);
}

VES_API uint32_t src_peek_bits(bbio_handle_t src, uint32_t bit_num, int32_t offset) {
    if (src_following_bit_num(src) < static_cast<int64_t>(bit_num)) return 0xFFFFFFFFu;
    const int64_t p = src->position != nullptr ? src->position(src) : 0;
    const uint32_t bits = src->cached_bits;
    const uint32_t bit_count = src->cached_bit_num;
    if (offset != 0) {
        src->cached_bit_num = 0;
        if (src->seek != nullptr) (void)src->seek(src, offset, 1);
    }
    const uint32_t v = src_read_bits(src, bit_num);
    if (src->seek != nullptr) (void)src->seek(src, p, 0);
    src->cached_bit_num = bit_count;
    src->cached_bits = bits;
    return v;
}

}  // extern "C"
