// Memory-buffer device: reads from, or writes into, one block of memory.
// Offsets are 64-bit; every sum of an offset and a length is formed in 64 bits
// and checked against the 32-bit size_t of the target before it is used.
#include "io_buffer.h"

#include <cassert>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "registry.h"

static_assert(std::is_standard_layout_v<bbio_buf_t>);
static_assert(offsetof(bbio_buf_t, io) == 0);

namespace {

bbio_buf_t* dev(bbio_handle_t h) { return reinterpret_cast<bbio_buf_t*>(h); }

// Bytes of valid data past the offset; 0 when the offset stands beyond them.
uint64_t bytes_left(const bbio_buf_t* b) {
    if (b->op_offset < 0 || static_cast<uint64_t>(b->op_offset) >= b->data_size) return 0;
    return b->data_size - static_cast<uint64_t>(b->op_offset);
}

void buf_destroy(bbio_handle_t h) {
    bbio_buf_t* b = dev(h);
    if (b->io.io_mode == 'r' && b->re_al && b->buf != nullptr) std::free(b->buf);
    std::free(b);
}

int buf_open(bbio_handle_t, const char*) { return 0; }

void buf_close(bbio_handle_t) {}

int64_t buf_position(bbio_handle_t h) { return dev(h)->op_offset; }

// The limit is the capacity, not the data: a write device may seek into room
// it has not written yet.
int buf_seek(bbio_handle_t h, int64_t offset, int origin) {
    bbio_buf_t* b = dev(h);
    int64_t base = 0;
    if (origin == 1)
        base = b->op_offset;
    else if (origin == 2)
        base = static_cast<int64_t>(b->data_size);
    // Both terms are far below 2^62 in magnitude only for sane input; check
    // the sum without overflowing.
    if ((offset > 0 && base > INT64_MAX - offset) || (offset < 0 && base < INT64_MIN - offset))
        return -1;
    const int64_t target = base + offset;
    if (target < 0 || static_cast<uint64_t>(target) > b->buf_size) return -1;
    b->op_offset = target;
    return 0;
}

int64_t data_size(bbio_handle_t h) { return static_cast<int64_t>(dev(h)->data_size); }

BOOL buf_is_EOD(bbio_handle_t h) {
    const bbio_buf_t* b = dev(h);
    return b->op_offset >= 0 && static_cast<uint64_t>(b->op_offset) == b->data_size;
}

BOOL buf_is_more_byte(bbio_handle_t h) { return bytes_left(dev(h)) >= 1; }

BOOL buf_is_more_byte2(bbio_handle_t h) { return bytes_left(dev(h)) >= 2; }

int buf_skip_bytes(bbio_handle_t h, int64_t byte_num) {
    bbio_buf_t* b = dev(h);
    const uint64_t left = bytes_left(b);
    if (byte_num > 0 && static_cast<uint64_t>(byte_num) >= left)
        b->op_offset = static_cast<int64_t>(b->data_size);
    else if (byte_num < 0 && b->op_offset + byte_num < 0)
        b->op_offset = 0;  // a backward skip stops at the start
    else
        b->op_offset += byte_num;
    return 0;
}

size_t buf_read(bbio_handle_t h, uint8_t* dst, size_t size) {
    bbio_buf_t* b = dev(h);
    if (dst == nullptr) return 0;
    const uint64_t left = bytes_left(b);
    uint64_t count = size;
    if (count > left) {
        std::printf("Io buffer: ERR: read beyond buffer\n");  // required as is
        count = left;
    }
    if (count == 0) return 0;
    std::memcpy(dst, b->buf + b->op_offset, static_cast<size_t>(count));
    b->op_offset += static_cast<int64_t>(count);
    return static_cast<size_t>(count);
}

// Capacity for a write ending at `end`: from capacity + 4, times 1.5 at least
// once and until it holds `end`. 0 when it cannot be represented in size_t.
uint64_t grown_capacity(uint64_t capacity, uint64_t end) {
    uint64_t c = capacity + 4;
    do {
        if (c > SIZE_MAX - c / 2) return 0;
        c += c / 2;
    } while (c < end);
    return c;
}

size_t buf_write(bbio_handle_t h, const uint8_t* src, size_t size) {
    bbio_buf_t* b = dev(h);
    if (src == nullptr || b->op_offset < 0) return 0;
    const uint64_t offset = static_cast<uint64_t>(b->op_offset);
    if (offset > SIZE_MAX || size > SIZE_MAX - offset) return 0;
    const uint64_t end = offset + size;
    if (end > b->buf_size) {
        if (!b->re_al) return 0;
        const uint64_t capacity = grown_capacity(b->buf_size, end);
        if (capacity == 0) return 0;
        auto* grown = static_cast<uint8_t*>(std::realloc(b->buf, static_cast<size_t>(capacity)));
        if (grown == nullptr) return 0;
        // The room between the old capacity and the new is zeroed, so a seek
        // past the written data never exposes indeterminate bytes.
        const size_t kept = b->buf != nullptr ? b->buf_size : 0;
        std::memset(grown + kept, 0, static_cast<size_t>(capacity - kept));
        b->buf = grown;
        b->buf_size = static_cast<size_t>(capacity);
    }
    if (size != 0) std::memcpy(b->buf + offset, src, size);
    b->op_offset = static_cast<int64_t>(end);
    if (b->data_size < end) b->data_size = static_cast<size_t>(end);
    return size;
}

// Read mode requires storage. A release build (no assert) attaches it as
// empty instead: every read then returns 0 bytes and the bit reader sees 0s.
void buf_set_buffer(bbio_handle_t h, uint8_t* buf, size_t buf_size, BOOL re_al) {
    bbio_buf_t* b = dev(h);
    switch (b->io.io_mode) {
        case 'w':
            if (buf != nullptr && buf_size == 0) {
                std::free(buf);
                buf = nullptr;
            } else if (buf == nullptr && buf_size != 0) {
                buf = static_cast<uint8_t*>(std::calloc(buf_size, 1));
                if (buf == nullptr) buf_size = 0;
            }
            b->data_size = 0;
            break;
        case 'r':
            assert(buf && buf_size);
            if (buf == nullptr) buf_size = 0;
            b->data_size = buf_size;
            break;
        default:
            if (buf == nullptr) buf_size = 0;
            b->data_size = buf_size;
            break;
    }
    b->op_offset = 0;
    b->buf = buf;
    b->buf_size = buf_size;
    b->re_al = re_al;
}

uint8_t* buf_get_buffer(bbio_handle_t h, size_t* data_size_out, size_t* buf_size_out) {
    bbio_buf_t* b = dev(h);
    if (b->io.io_mode == 'w') {
        uint8_t* block = b->buf;
        if (data_size_out != nullptr) *data_size_out = b->data_size;
        if (buf_size_out != nullptr) *buf_size_out = b->buf_size;
        b->data_size = 0;
        b->op_offset = 0;
        b->buf = nullptr;
        b->buf_size = 0;
        return block;
    }
    if (b->io.io_mode == 'r' && data_size_out != nullptr)
        *data_size_out = static_cast<size_t>(bytes_left(b));
    return b->buf;
}

bbio_t* buf_create(char io_mode) {
    auto* b = static_cast<bbio_buf_t*>(std::calloc(1, sizeof(bbio_buf_t)));
    if (b == nullptr) return nullptr;
    bbio_t& io = b->io;
    io.dev_type = 'b';
    io.io_mode = io_mode;
    io.destroy = buf_destroy;
    io.open = buf_open;
    io.close = buf_close;
    io.position = buf_position;
    io.seek = buf_seek;
    io.set_buffer = buf_set_buffer;
    io.get_buffer = buf_get_buffer;
    if (io_mode == 'w' || io_mode == 'e') io.write = buf_write;
    if (io_mode == 'r' || io_mode == 'e') {
        io.read = buf_read;
        io.size = data_size;
        io.is_EOD = buf_is_EOD;
        io.is_more_byte = buf_is_more_byte;
        io.is_more_byte2 = buf_is_more_byte2;
        io.skip_bytes = buf_skip_bytes;
    }
    return &b->io;
}

}  // namespace

extern "C" VES_API void bbio_buf_reg(void) {
    reg_bbio_set('b', 'w', buf_create);
    reg_bbio_set('b', 'r', buf_create);
}
