// Test harness for the splitter: a recording output callback, diagnostics
// captured into a string, and a splitter created with a clean environment.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vessplitter.h"
#include "vessplitter_internal.h"

namespace splittest {

using Bytes = std::vector<uint8_t>;

struct Delivery {
    ves_type type;
    Bytes data;
    uint64_t pts;
    bool operator==(const Delivery&) const = default;
};

inline void PrintTo(const Delivery& d, std::ostream* os) {
    *os << "{type " << d.type << ", pts " << d.pts << ", bytes";
    for (uint8_t b : d.data) {
        char hex[4];
        std::snprintf(hex, sizeof hex, " %02x", b);
        *os << hex;
    }
    *os << "}";
}

// Records every delivery; fails with fail_result on delivery number fail_at
// (counted from 1) when fail_at is set.
struct Recorder {
    std::vector<Delivery> got;
    int calls = 0;
    int fail_at = 0;
    int fail_result = 0;

    static int output(void* param, ves_type type, void* data, int len, uint64_t pts) {
        auto* self = static_cast<Recorder*>(param);
        ++self->calls;
        if (self->fail_at != 0 && self->calls == self->fail_at) return self->fail_result;
        const auto* p = static_cast<const uint8_t*>(data);
        self->got.push_back({type, Bytes(p, p + len), pts});
        return 0;
    }
    std::vector<Delivery> of(ves_type type) const {
        std::vector<Delivery> out;
        for (const Delivery& d : got)
            if (d.type == type) out.push_back(d);
        return out;
    }
};

inline void clear_splitter_env() {
    for (const char* v : {"EDR_DEBUG_LEVEL", "EDR_DEBUG_FILE", "EDR_DUMP_IN", "EDR_DUMP_BL",
                          "EDR_DUMP_EL", "EDR_DUMP_MD"})
        unsetenv(v);
}

// A splitter whose diagnostics (at `level` and below) land in a string. The
// debug file is detached before ves_split_free, which would close it.
class SplitterHarness {
public:
    explicit SplitterHarness(int codec = VES_AVC, int is_ts = 0, int level = 3) {
        clear_splitter_env();
        saved_level_ = edr_debug_level;
        handle_ = ves_split_init(codec, &Recorder::output, &rec, is_ts);
        file_ = open_memstream(&text_, &text_len_);
        edr_debug_file = file_;
        edr_debug_level = level;
    }
    ~SplitterHarness() {
        edr_debug_file = nullptr;
        ves_split_free(handle_);
        std::fclose(file_);
        std::free(text_);
        edr_debug_level = saved_level_;
    }
    SplitterHarness(const SplitterHarness&) = delete;
    SplitterHarness& operator=(const SplitterHarness&) = delete;

    void* handle() const { return handle_; }
    ves_splitter* split() const { return static_cast<ves_splitter*>(handle_); }
    int push(Bytes data, uint64_t pts) {
        pushed_.push_back(std::move(data));
        Bytes& b = pushed_.back();
        return ves_split_push(handle_, b.empty() ? nullptr : b.data(), static_cast<int>(b.size()),
                              pts);
    }
    // Pushes in a heap block of exactly the data's size, so that a read past
    // it is caught by the address sanitizer; returns the block's content
    // after the push (the push rewrites it).
    int push_exact(const Bytes& data, uint64_t pts, Bytes* after = nullptr) {
        auto* p = static_cast<uint8_t*>(std::malloc(data.size() ? data.size() : 1));
        std::memcpy(p, data.data(), data.size());
        const int r = ves_split_push(handle_, p, static_cast<int>(data.size()), pts);
        if (after) after->assign(p, p + data.size());
        std::free(p);
        return r;
    }
    int finish(uint64_t pts = 0) { return ves_split_push(handle_, nullptr, 0, pts); }
    std::string log() {
        std::fflush(file_);
        return std::string(text_, text_len_);
    }
    bool logged(const std::string& needle) { return log().find(needle) != std::string::npos; }

    Recorder rec;

private:
    void* handle_ = nullptr;
    FILE* file_ = nullptr;
    char* text_ = nullptr;
    size_t text_len_ = 0;
    int saved_level_ = 0;
    std::vector<Bytes> pushed_;
};

inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// Units behind a 4-byte and a 3-byte start code.
inline Bytes sc4(Bytes nal) { return cat({{0, 0, 0, 1}, nal}); }
inline Bytes sc3(Bytes nal) { return cat({{0, 0, 1}, nal}); }
// A unit behind a 4-byte big-endian length.
inline Bytes len4(Bytes nal) {
    const uint32_t n = static_cast<uint32_t>(nal.size());
    return cat({{uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)}, nal});
}

}  // namespace splittest
