// Shared by the splitter and parser tests: hex bytes, diagnostics captured
// into a string, a recording output callback, a splitter made with a clean
// environment, a read device over bytes, and the golden-vector file walker.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <regex>
#include <sstream>

#include "io_buffer.h"
#include "registry.h"
#include "sei_sps_parser.h"
#include "vessplitter.h"
#include "vessplitter_internal.h"

namespace vestest {

using Bytes = std::vector<uint8_t>;

// Hex digits; '.' may separate units for the reader's eye, "aa*5" is five
// bytes aa.
inline Bytes unhex(const std::string& s) {
    Bytes out;
    std::istringstream in(s);
    for (std::string part; std::getline(in, part, '.');) {
        const size_t star = part.find('*');
        const size_t n = star == std::string::npos ? 1 : std::stoul(part.substr(star + 1));
        for (size_t i = 0; i + 1 < std::min(part.size(), star); i += 2)
            out.insert(out.end(), n, static_cast<uint8_t>(std::stoul(part.substr(i, 2), 0, 16)));
    }
    return out;
}

// Blocks beyond 64 bytes as their first 16 and their size.
inline std::string hex(const uint8_t* p, size_t n) {
    std::string s;
    char b[3];
    for (size_t i = 0; i < std::min<size_t>(n, n > 64 ? 16 : 64); ++i)
        s += (std::snprintf(b, sizeof b, "%02x", p[i]), b);
    return n > 64 ? s + ".." + std::to_string(n) : s;
}

// Diagnostics at `level` and below into a string for the life of the object.
class EdrCapture {
public:
    explicit EdrCapture(int level) : saved_file_(edr_debug_file), saved_level_(edr_debug_level) {
        file_ = open_memstream(&buf_, &len_);
        edr_debug_file = file_;
        edr_debug_level = level;
    }
    ~EdrCapture() {
        edr_debug_file = saved_file_;
        edr_debug_level = saved_level_;
        std::fclose(file_);
        std::free(buf_);
    }
    EdrCapture(const EdrCapture&) = delete;
    EdrCapture& operator=(const EdrCapture&) = delete;
    // The lines written since the last call, one '|'-separated line without
    // source line numbers and addresses.
    std::string take() {
        std::fflush(file_);
        std::string t(buf_ + taken_, len_ - taken_);
        taken_ += t.size();
        t = std::regex_replace(t, std::regex(":[0-9]+ "), " ");
        t = std::regex_replace(t, std::regex("0x[0-9a-f]+"), "ADDR");
        t = std::regex_replace(t, std::regex("\n+"), "|");
        return t;
    }

private:
    FILE* saved_file_;
    int saved_level_;
    FILE* file_ = nullptr;
    char* buf_ = nullptr;
    size_t len_ = 0;
    size_t taken_ = 0;
};

struct Delivery {
    ves_type type;
    Bytes data;
    uint64_t pts;
    bool operator==(const Delivery&) const = default;
};

// Records every delivery; returns fail_result on call number fail_at.
struct Recorder {
    std::vector<Delivery> got;
    int calls = 0;
    int fail_at = 0;
    int fail_result = 0;

    static int output(void* param, ves_type type, void* data, int len, uint64_t pts) {
        auto* self = static_cast<Recorder*>(param);
        if (++self->calls == self->fail_at) return self->fail_result;
        const auto* p = static_cast<const uint8_t*>(data);
        self->got.push_back({type, Bytes(p, p + len), pts});
        return 0;
    }
};

inline void clear_splitter_env() {
    for (const char* v : {"EDR_DEBUG_LEVEL", "EDR_DEBUG_FILE", "EDR_DUMP_IN", "EDR_DUMP_BL",
                          "EDR_DUMP_EL", "EDR_DUMP_MD"})
        unsetenv(v);
}

// A splitter whose diagnostics land in `log`; the debug file is detached
// before ves_split_free, which would close it.
class Splitter {
public:
    explicit Splitter(int codec = VES_AVC, int is_ts = 0, int level = 0) {
        clear_splitter_env();
        handle = ves_split_init(codec, &Recorder::output, &rec, is_ts);
        log.emplace(level);
    }
    ~Splitter() {
        log.reset();
        edr_debug_file = nullptr;
        ves_split_free(handle);
    }
    ves_splitter* split() const { return static_cast<ves_splitter*>(handle); }
    // Pushes a heap block of exactly the data's size, so a read past it is
    // caught by the address sanitizer; the push rewrites the block in place.
    int push(Bytes* data, uint64_t pts) {
        auto* p = static_cast<uint8_t*>(std::malloc(data->size() + 1));
        std::memcpy(p, data->data(), data->size());
        const int r = ves_split_push(handle, p, static_cast<int>(data->size()), pts);
        data->assign(p, p + data->size());
        std::free(p);
        return r;
    }
    int push(Bytes data, uint64_t pts) { return push(&data, pts); }
    int finish(uint64_t pts = 0) { return ves_split_push(handle, nullptr, 0, pts); }

    Recorder rec;
    void* handle = nullptr;
    std::optional<EdrCapture> log;
};

// A read device over a copy of `bytes`, made through the registry.
class Reader {
public:
    explicit Reader(Bytes bytes) : data_(std::move(bytes)) {
        parser_env_init();
        io_ = reg_bbio_get('b', 'r');
        io_->set_buffer(io_, data_.data(), data_.size(), 0);
    }
    ~Reader() { io_->destroy(io_); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    bbio_handle_t operator->() const { return io_; }
    operator bbio_handle_t() const { return io_; }

private:
    Bytes data_;
    bbio_handle_t io_;
};

inline std::vector<std::string> words(const std::string& line) {
    std::istringstream in(line);
    return {std::istream_iterator<std::string>(in), {}};
}

// A golden-vector file in UNIT_DATA_DIR: command lines, each followed by a
// line "= " + what `run` returns for it (no such line when that is empty);
// '#' lines are comments. CODECUTIL_UPDATE_VECTORS=1 rewrites the results.
inline void check_vectors(const std::string& name,
                          const std::function<std::string(const std::vector<std::string>&)>& run) {
    const std::string path = std::string(UNIT_DATA_DIR) + "/" + name;
    std::ifstream in(path);
    ASSERT_TRUE(in.good()) << path;
    const bool update = std::getenv("CODECUTIL_UPDATE_VECTORS") != nullptr;
    std::string out, line, cmd, got;
    int no = 0;
    while (std::getline(in, line)) {
        ++no;
        if (line.rfind("= ", 0) == 0) {
            EXPECT_TRUE(update || line.substr(2) == got)
                << path << ":" << no << ": " << cmd << "\n  got " << got;
            got.clear();
            continue;
        }
        EXPECT_TRUE(update || got.empty()) << path << ":" << no << ": no result for " << cmd;
        out += line + "\n";
        if (line.empty() || line[0] == '#') continue;
        cmd = line;
        got = run(words(line));
        if (update && !got.empty()) out += "= " + got + "\n";
        if (update) got.clear();
    }
    if (update) std::ofstream(path) << out;
}

}  // namespace vestest
