// Allocation-failure sweep. A realistic scenario (real encoder output: the
// converter and splitter seeds of the fuzz corpus) is run once to count its
// allocations, then once per allocation with that one failing. Every run must
// end in a documented result, leave nothing allocated once the handle is
// freed, throw nothing across the C interface, and leave the handle usable.
//
// Converters allocate through their memory table, which fails on request.
// The splitter and its parsers use the C library: this binary is linked with
// --wrap for malloc, calloc, realloc, free and operator new/delete, so the
// wrappers below see every allocation of the library's objects.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "converter_input.h"
#include "vessplitter.h"
#include "zarn_codec_util.h"
#include "zarn_codec_util_priv.h"
#include "zhal_avstream.h"

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* mem, size_t size);
void __real_free(void* mem);
void* __real__Znwm(size_t size);
void* __real__Znam(size_t size);
void __real__ZdlPv(void* mem);
void __real__ZdaPv(void* mem);
}

namespace {

// Allocations made while armed: counted, the fail_at-th refused, and the
// blocks tracked until freed (armed or not).
struct Heap {
    bool armed = false;
    int calls = 0;
    int fail_at = 0;
    std::vector<void*>* live =
        nullptr;  // allocated before arming, never through the wrappers' counting

    bool refuse() { return armed && ++calls == fail_at; }
    void track(void* p) {
        if (!armed || p == nullptr) return;
        armed = false;  // the tracking vector's own growth is not counted
        live->push_back(p);
        armed = true;
    }
    void untrack(void* p) {
        if (p == nullptr || live == nullptr) return;
        for (auto& q : *live) {
            if (q == p) {
                q = live->back();
                live->pop_back();
                return;
            }
        }
    }
};
Heap g_heap;

}  // namespace

// Visible: the loader binds the shared libraries' references through them too.
#define WRAPPER __attribute__((visibility("default")))

extern "C" {

WRAPPER void* __wrap_malloc(size_t size) {
    if (g_heap.refuse()) return nullptr;
    void* p = __real_malloc(size);
    g_heap.track(p);
    return p;
}
WRAPPER void* __wrap_calloc(size_t count, size_t size) {
    if (g_heap.refuse()) return nullptr;
    void* p = __real_calloc(count, size);
    g_heap.track(p);
    return p;
}
WRAPPER void* __wrap_realloc(void* mem, size_t size) {
    if (g_heap.refuse()) return nullptr;
    void* p = __real_realloc(mem, size);
    if (p != nullptr) {
        g_heap.untrack(mem);
        g_heap.track(p);
    }
    return p;
}
WRAPPER void __wrap_free(void* mem) {
    g_heap.untrack(mem);
    __real_free(mem);
}
WRAPPER void* __wrap__Znwm(size_t size) {
    if (g_heap.refuse()) throw std::bad_alloc();
    void* p = __real__Znwm(size);
    g_heap.track(p);
    return p;
}
WRAPPER void* __wrap__Znam(size_t size) {
    if (g_heap.refuse()) throw std::bad_alloc();
    void* p = __real__Znam(size);
    g_heap.track(p);
    return p;
}
WRAPPER void __wrap__ZdlPv(void* mem) {
    g_heap.untrack(mem);
    __real__ZdlPv(mem);
}
WRAPPER void __wrap__ZdaPv(void* mem) {
    g_heap.untrack(mem);
    __real__ZdaPv(mem);
}

}  // extern "C"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes read_file(const std::string& name) {
    std::ifstream in(std::filesystem::path(CORPUS_DIR) / name, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// Arms the heap for one run; the run's blocks are in `live` afterwards.
class Armed {
public:
    explicit Armed(int fail_at) {
        live_.reserve(4096);
        g_heap.live = &live_;
        g_heap.calls = 0;
        g_heap.fail_at = fail_at;
        g_heap.armed = true;
    }
    ~Armed() {
        disarm();
        g_heap.live = nullptr;
    }
    Armed(const Armed&) = delete;
    Armed& operator=(const Armed&) = delete;
    void disarm() { g_heap.armed = false; }
    void rearm() { g_heap.armed = true; }
    int calls() const { return g_heap.calls; }
    size_t live() const { return live_.size(); }

private:
    std::vector<void*> live_;
};

// ---- Converters ----------------------------------------------------------

// A memory table whose blocks are counted; the fail_at-th request refused.
struct Table {
    static inline int calls = 0;
    static inline int fail_at = 0;
    static inline int live = 0;
    static void* t_malloc(size_t n) {
        if (++calls == fail_at) return nullptr;
        ++live;
        return __real_malloc(n == 0 ? 1 : n);
    }
    static void* t_realloc(void* mem, size_t n) {
        if (++calls == fail_at) return nullptr;
        if (mem == nullptr) ++live;
        return __real_realloc(mem, n == 0 ? 1 : n);
    }
    static void t_free(void* mem) {
        if (mem == nullptr) return;
        --live;
        __real_free(mem);
    }
    static void* t_calloc(size_t c, size_t n) {
        if (++calls == fail_at) return nullptr;
        ++live;
        return __real_calloc(c == 0 ? 1 : c, n == 0 ? 1 : n);
    }
    CodecUtilMemVtable_t vtable{t_malloc, t_realloc, t_free, t_calloc, nullptr, nullptr, nullptr};
    explicit Table(int fail) {
        calls = 0;
        fail_at = fail;
        live = 0;
    }
};

// Contiguous space, always granted: through the get-buffer function, or
// from the HAL stand-in's ring for converters that take none.
struct Space {
    Bytes ring = Bytes(1 << 20);
    Zhal_AVStream_ptr hal = zhal_sim_stream_create(1 << 20);
    Space() = default;
    Space(const Space&) = delete;
    Space& operator=(const Space&) = delete;
    ~Space() { zhal_sim_stream_destroy(hal); }
    static zarn_uint8* getbuf(void* stream, zarn_uint32 size, zarn_uint8**, zarn_uint32* size2) {
        *size2 = 0;
        auto* s = static_cast<Space*>(stream);
        return size <= s->ring.size() ? s->ring.data() : nullptr;
    }
};

bool takes_getbuf(void* h) { return static_cast<CodecUtilBase_t*>(h)->set_getbuf_func != nullptr; }

struct ConverterSeed {
    int type = 0;
    Bytes record_bytes;
    std::vector<Bytes> units;
};

// The seed laid out as the converter fuzz target reads it: type, get-buffer
// switch, parameter record, then pushes (op, 16-bit length, unit, grant, wrap).
ConverterSeed load_converter_seed(const std::string& name) {
    ConverterSeed seed;
    seed.record_bytes = read_file("converter/" + name);
    fuzzinput::Reader in(seed.record_bytes.data(), seed.record_bytes.size());
    seed.type = in.u8() % 12;
    (void)in.u8();
    fuzzinput::Params skip;
    (void)skip.read(in, seed.type);
    while (!in.empty()) {
        (void)in.u8();
        seed.units.push_back(in.bytes(in.u16() & 0x3FFF));
        (void)in.u8();
        (void)in.u8();
    }
    return seed;
}

struct ConverterRun {
    int table_requests = 0;   // allocation requests through the table
    int create_requests = 0;  // those made by the constructor
    int outside = 0;          // allocations outside the table
    Bytes recovered;          // a push after a fresh SetParam, failures over
    bool created = false;
};

// Create, SetParam, push every unit, SetParam again, push the first unit,
// Destroy; the table fails its fail_at-th request. Before Destroy, with
// nothing failing any more, SetParam and one push show the handle usable.
ConverterRun run_converter(const ConverterSeed& seed, int fail_at) {
    ConverterRun run;
    Table table(fail_at);
    Space space;
    fuzzinput::Reader in(seed.record_bytes.data(), seed.record_bytes.size());
    in.u8();
    in.u8();
    fuzzinput::Params params;
    void* p = params.read(in, seed.type);
    // Each push gets its own copy (a converter may rewrite its input), made
    // before the heap is armed so that only the converter's requests count.
    std::vector<Bytes> copies(seed.units.begin(), seed.units.end());
    copies.push_back(seed.units.at(0));
    copies.push_back(seed.units.at(0));
    size_t next = 0;
    zarn_uint8* written = nullptr;
    const auto push = [&](void* h) {
        Bytes& unit = copies.at(next++);
        CodecUtilBuffer_t b{unit.data(), static_cast<zarn_uint32>(unit.size()), 40000000, 1};
        zarn_uint32 size = 0;
        const bool hal = !takes_getbuf(h);
        if (hal) zhal_sim_stream_set_write_pos(space.hal, 0);
        written = Zarn_CodecUtil_ConvPushBuffer(h, hal ? space.hal : static_cast<void*>(&space), &b,
                                                &size);
        return written != nullptr && written != unit.data() ? size : 0u;
    };
    Armed heap(0);
    try {
        void* h = fuzzinput::create(seed.type, &table.vtable);
        run.created = h != nullptr;
        run.create_requests = Table::calls;
        if (h != nullptr) {
            Zarn_CodecUtil_SetGetBufFunc(h, reinterpret_cast<void*>(&Space::getbuf));
            (void)Zarn_CodecUtil_SetParam(h, p);
            for (size_t i = 0; i < seed.units.size(); ++i) (void)push(h);
            (void)Zarn_CodecUtil_SetParam(h, p);
            (void)push(h);
            run.table_requests = Table::calls;
            Table::fail_at = 0;
            (void)Zarn_CodecUtil_SetParam(h, p);
            const uint32_t size = push(h);
            heap.disarm();
            if (size != 0) run.recovered.assign(written, written + size);
            heap.rearm();
            Zarn_CodecUtil_Destroy(h);
        } else {
            run.table_requests = Table::calls;
        }
    } catch (...) {
        ADD_FAILURE() << "exception out of the converter with allocation " << fail_at << " failing";
    }
    run.outside = heap.calls();
    EXPECT_EQ(Table::live, 0) << "leak with allocation " << fail_at << " failing";
    return run;
}

class ConverterAllocFailure : public testing::TestWithParam<const char*> {};

TEST_P(ConverterAllocFailure, EveryAllocationFailingOnceLeavesNoLeakAndAUsableHandle) {
    const ConverterSeed seed = load_converter_seed(GetParam());
    ASSERT_FALSE(seed.units.empty());
    const ConverterRun clean = run_converter(seed, 0);
    ASSERT_TRUE(clean.created);
    EXPECT_EQ(clean.outside, 0) << "allocation outside the memory table";
    const int points = clean.table_requests;
    std::printf("[ allocation points ] converter %s: %d\n", GetParam(), points);
    for (int n = 1; n <= points; ++n) {
        SCOPED_TRACE(n);
        const ConverterRun run = run_converter(seed, n);
        // A failure inside the constructor is a NULL handle.
        EXPECT_EQ(run.created, n > clean.create_requests);
        if (run.created) {
            EXPECT_EQ(run.recovered, clean.recovered);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, ConverterAllocFailure,
                         testing::Values("h264_ring", "h265_ring", "mpeg4_ring", "divx_ring",
                                         "vc1_ring", "spark_ring", "vp6_ring", "vp8_ring",
                                         "vp9_ring", "aac_ring", "vorbis_ring", "opus_ring"),
                         [](const testing::TestParamInfo<const char*>& seed) {
                             const std::string name(seed.param);
                             return name.substr(0, name.find('_'));
                         });

// ---- Splitter --------------------------------------------------------------

struct SplitterSeed {
    int codec = 0;
    Bytes record;
    Bytes stream;
};

// The splitter target's layout: flags (bit 0 HEVC), record length, two
// schedule bytes, the record, the stream.
SplitterSeed load_splitter_seed(const std::string& name) {
    const Bytes b = read_file("splitter/" + name);
    SplitterSeed seed;
    seed.codec = (b.at(0) & 1) != 0 ? VES_HEVC : VES_AVC;
    seed.record.assign(b.begin() + 4, b.begin() + 4 + b.at(1));
    seed.stream.assign(b.begin() + 4 + b.at(1), b.end());
    return seed;
}

// Sums what is delivered (reading every byte) without allocating.
int deliver(void* param, enum ves_type, void* data, int len, uint64_t) {
    auto* sum = static_cast<uint64_t*>(param);
    for (int i = 0; i < len; ++i) *sum += static_cast<const uint8_t*>(data)[i];
    return 0;
}

struct SplitterRun {
    int allocations = 0;
    bool created = false;
    uint64_t recovered = 0;  // bytes delivered after a flush, failures over
};

SplitterRun run_splitter(const SplitterSeed& seed, int fail_at) {
    SplitterRun run;
    uint64_t sum = 0;
    Bytes record = seed.record;
    Bytes stream = seed.stream;  // the push rewrites its input in place
    Armed heap(fail_at);
    try {
        void* s = ves_split_init(seed.codec, deliver, &sum, 0);
        run.created = s != nullptr;
        if (s != nullptr) {
            const int r =
                ves_split_set_codec_data(s, record.data(), static_cast<int>(record.size()));
            EXPECT_TRUE(r == 0 || r == -1);
            uint64_t pts = 0;
            for (size_t off = 0; off < stream.size(); off += 1024) {
                const int len = static_cast<int>(std::min<size_t>(1024, stream.size() - off));
                const int p = ves_split_push(s, stream.data() + off, len, pts += 40000000);
                EXPECT_TRUE(p == 0 || p == -1) << p;
            }
            const int end = ves_split_push(s, nullptr, 0, pts);
            EXPECT_TRUE(end == 0 || end == -1) << end;
            run.allocations = heap.calls();
            // Usable: a flush, then the stream again with nothing failing.
            g_heap.fail_at = 0;
            EXPECT_EQ(ves_split_flush(s), 0);
            stream = seed.stream;
            sum = 0;
            EXPECT_EQ(ves_split_push(s, stream.data(), static_cast<int>(stream.size()), pts), 0);
            EXPECT_EQ(ves_split_push(s, nullptr, 0, pts), 0);
            run.recovered = sum;
            EXPECT_EQ(ves_split_free(s), 0);
        } else {
            run.allocations = heap.calls();
        }
    } catch (...) {
        ADD_FAILURE() << "exception out of the splitter with allocation " << fail_at << " failing";
    }
    EXPECT_EQ(heap.live(), 0u) << "leak with allocation " << fail_at << " failing";
    return run;
}

class SplitterAllocFailure : public testing::TestWithParam<const char*> {};

TEST_P(SplitterAllocFailure, EveryAllocationFailingOnceLeavesNoLeakAndAUsableSplitter) {
    const SplitterSeed seed = load_splitter_seed(GetParam());
    const SplitterRun clean = run_splitter(seed, 0);
    ASSERT_TRUE(clean.created);
    ASSERT_GT(clean.recovered, 0u);
    std::printf("[ allocation points ] splitter %s: %d\n", GetParam(), clean.allocations);
    for (int n = 1; n <= clean.allocations; ++n) {
        SCOPED_TRACE(n);
        const SplitterRun run = run_splitter(seed, n);
        // Without its stored parameter sets a splitter delivers less again.
        if (run.created) {
            EXPECT_GT(run.recovered, 0u);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, SplitterAllocFailure, testing::Values("dual_avc", "dual_hevc"),
                         [](const testing::TestParamInfo<const char*>& seed) {
                             return std::string(seed.param);
                         });

}  // namespace
