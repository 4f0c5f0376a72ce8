// Allocation-failure sweep. A realistic scenario (real encoder output: the
// converter and splitter seeds of the fuzz corpus) runs with its n-th
// allocation failing, for n = 1, 2, ... until a run no longer reaches the
// n-th. Every run must end in a documented result, throw nothing across the
// C interface, leave nothing allocated once the handle is freed, and leave
// the handle usable: once nothing fails any more it works as in a clean run.
//
// This binary is linked with --wrap for malloc, calloc, realloc, free and
// operator new/delete, so the wrappers below see every allocation of the
// library's objects. The converters' memory table allocates through them
// and counts its requests: a converter allocates through nothing else.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <set>
#include <vector>

#include "fuzz_input.h"
#include "vessplitter.h"

using fuzzinput::Bytes;

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

// While armed: allocations counted, the fail_at-th refused, and the blocks
// tracked until freed (armed or not).
struct Heap {
    bool armed = false;
    int calls = 0;
    int fail_at = 0;
    int table_calls = 0;
    std::vector<void*> live;

    bool refuse() { return armed && ++calls == fail_at; }
    void* track(void* p) {
        if (!armed || p == nullptr) return p;
        armed = false;  // should `live` grow, that is not the run's allocation
        live.push_back(p);
        armed = true;
        return p;
    }
    void untrack(void* p) {
        const auto it = std::find(live.begin(), live.end(), p);
        if (p == nullptr || it == live.end()) return;
        *it = live.back();
        live.pop_back();
    }
    template <class Real>
    void* allocate(Real real, bool throws) {
        if (!refuse()) return track(real());
        if (throws) throw std::bad_alloc();
        return nullptr;
    }
} heap;

}  // namespace

// Visible: the loader binds the shared libraries' references through them too.
#define WRAPPER extern "C" __attribute__((visibility("default")))

WRAPPER void* __wrap_malloc(size_t n) {
    return heap.allocate([=] { return __real_malloc(n); }, false);
}
WRAPPER void* __wrap_calloc(size_t c, size_t n) {
    return heap.allocate([=] { return __real_calloc(c, n); }, false);
}
WRAPPER void* __wrap_realloc(void* mem, size_t n) {
    if (heap.refuse()) return nullptr;
    void* p = __real_realloc(mem, n);
    if (p != nullptr) heap.untrack(mem), heap.track(p);
    return p;
}
WRAPPER void* __wrap__Znwm(size_t n) {
    return heap.allocate([=] { return __real__Znwm(n); }, true);
}
WRAPPER void* __wrap__Znam(size_t n) {
    return heap.allocate([=] { return __real__Znam(n); }, true);
}
WRAPPER void __wrap_free(void* mem) { heap.untrack(mem), __real_free(mem); }
WRAPPER void __wrap__ZdlPv(void* mem) { heap.untrack(mem), __real__ZdlPv(mem); }
WRAPPER void __wrap__ZdaPv(void* mem) { heap.untrack(mem), __real__ZdaPv(mem); }

namespace {

// Arms the heap for one run; at its end nothing the run allocated is left.
struct Armed {
    explicit Armed(int fail_at) {
        heap.live.reserve(4096);
        heap.calls = heap.table_calls = 0;
        heap.fail_at = fail_at;
        heap.armed = true;
    }
    ~Armed() {
        heap.armed = false;
        EXPECT_EQ(heap.live.size(), 0u) << "leak";
        heap.live.clear();
    }
};

CodecUtilMemVtable_t table{
    [](size_t n) { return ++heap.table_calls, std::malloc(std::max<size_t>(n, 1)); },
    [](void* m, size_t n) { return ++heap.table_calls, std::realloc(m, std::max<size_t>(n, 1)); },
    std::free,
    nullptr,
    nullptr,
    nullptr,
    nullptr};

void mix(uint64_t& h, std::span<const uint8_t> bytes) {
    for (const uint8_t b : bytes) h = h * 0x100000001b3ull + b + 1;
}

struct Outcome {
    bool created = false;
    int created_at = 0;      // allocations the constructor made
    int reached = 0;         // allocations while failures were armed
    int outside = 0;         // converters: allocations not through the table
    uint64_t recovered = 0;  // a hash of the output once nothing fails
};

// Create, SetParam, every unit, SetParam, the first unit again; then,
// nothing failing any more, SetParam and the first unit, Destroy.
Outcome run_converter(const fuzzinput::Seed& seed, int fail_at) {
    static const Zhal_AVStream_ptr ring = zhal_sim_stream_create(1 << 18);
    // Every push its own copy (a converter may rewrite its input), made
    // before the heap is armed.
    std::vector<Bytes> units = seed.units;
    units.insert(units.end(), 2, seed.units.at(0));
    Outcome o;
    const Armed armed(fail_at);
    void* h = fuzzinput::create(seed.type, &table);
    o.created = h != nullptr;
    o.created_at = heap.calls;
    for (size_t i = 0; h != nullptr && i + 1 < units.size(); ++i) {
        if (i == 0 || i == seed.units.size()) (void)Zarn_CodecUtil_SetParam(h, seed.param);
        (void)fuzzinput::push(h, ring, units[i]);
    }
    o.reached = heap.calls;
    o.outside = heap.calls - heap.table_calls;
    heap.fail_at = 0;
    if (h == nullptr) return o;
    (void)Zarn_CodecUtil_SetParam(h, seed.param);
    mix(o.recovered, fuzzinput::push(h, ring, units.back()));
    Zarn_CodecUtil_Destroy(h);
    return o;
}

int deliver(void* param, enum ves_type, void* data, int len, uint64_t) {
    mix(*static_cast<uint64_t*>(param), {static_cast<const uint8_t*>(data), size_t(len)});
    return 0;
}

// Init, record, the stream in pushes of 1 KiB, end of stream; then, nothing
// failing any more, a flush and the stream again in one push, free.
Outcome run_splitter(const fuzzinput::SplitterInput& seed, int fail_at) {
    Bytes record = seed.record;
    Bytes stream = seed.stream;  // the push rewrites its input in place
    Outcome o;
    const Armed armed(fail_at);
    void* s = ves_split_init(seed.flags & 1, deliver, &o.recovered, 0);
    o.created = s != nullptr;
    o.created_at = o.reached = heap.calls;
    if (s == nullptr) return o;
    const auto documented = [](int r) { return r == 0 || r == -1; };
    EXPECT_PRED1(documented, ves_split_set_codec_data(s, record.data(), int(record.size())));
    uint64_t pts = 0;
    for (size_t off = 0; off <= stream.size(); off += 1024) {
        const size_t n = std::min<size_t>(1024, stream.size() - off);  // 0: end of stream
        EXPECT_PRED1(documented, ves_split_push(s, stream.data() + off, int(n), pts += 40000000));
    }
    o.reached = heap.calls;
    heap.fail_at = 0;
    EXPECT_EQ(ves_split_flush(s), 0);
    stream = seed.stream;
    o.recovered = 0;
    EXPECT_EQ(ves_split_push(s, stream.data(), int(stream.size()), pts), 0);
    EXPECT_EQ(ves_split_push(s, nullptr, 0, pts), 0);
    EXPECT_EQ(ves_split_free(s), 0);
    return o;
}

// Fails every allocation of `run` in turn. A failure in the constructor is a
// NULL handle; after any other the handle recovers, to the clean run's
// output if `exact` (a splitter without its stored parameter sets delivers
// less).
template <class Run>
void sweep(const char* name, Run run, bool exact) {
    SCOPED_TRACE(name);
    const Outcome clean = run(0);
    ASSERT_TRUE(clean.created);
    ASSERT_NE(clean.recovered, 0u);
    EXPECT_EQ(clean.outside, 0) << "allocation outside the memory table";
    std::printf("[ allocation points ] %s: %d\n", name, clean.reached);
    for (int n = 1;; ++n) {
        SCOPED_TRACE(n);
        const Outcome o = run(n);
        if (o.reached < n) break;
        EXPECT_EQ(o.created, n > clean.created_at);
        if (!o.created) continue;
        EXPECT_TRUE(exact ? o.recovered == clean.recovered : o.recovered != 0) << o.recovered;
    }
}

TEST(AllocFailure, EveryConverterType) {
    std::set<int> types;
    for (const auto& e : std::filesystem::directory_iterator(CORPUS_DIR "/converter")) {
        if (!e.path().string().ends_with("_ring")) continue;
        const fuzzinput::Seed seed(fuzzinput::read_file(e.path()));
        types.insert(seed.type);
        sweep(
            e.path().filename().c_str(), [&](int n) { return run_converter(seed, n); }, true);
    }
    EXPECT_EQ(types.size(), 12u);
}

TEST(AllocFailure, Splitter) {
    for (const char* name : {"dual_avc", "dual_hevc"}) {
        const fuzzinput::SplitterInput seed(
            fuzzinput::Reader(fuzzinput::read_file(CORPUS_DIR "/splitter/" + std::string(name))));
        sweep(
            name, [&](int n) { return run_splitter(seed, n); }, false);
    }
}

}  // namespace
