// Many converters and splitters at once, for ThreadSanitizer: 64 converters
// of every type on 8 threads and 4 splitters on 4 threads, while another
// thread keeps changing the log threshold and the splitter's debug level.
// Each converter or splitter is driven by one thread, as the interface
// requires; what they share is the process-wide state (log category and
// threshold, HAL port binding, the splitter's debug file and level, device
// registry, enhancement-layer time scale, AVC level tables). Splitters are
// created and freed over and over with a debug file set, so the file is
// opened and closed while other splitters write to it.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <thread>
#include <vector>

#include "fuzz_input.h"
#include "vessplitter.h"

namespace {

using fuzzinput::Bytes;

// One converter over its seed: create, parameters, every unit, parameters
// again, CheckConv, destroy.
struct Converter {
    fuzzinput::Seed seed;
    Zhal_AVStream_ptr ring = zhal_sim_stream_create(1 << 18);
    uint64_t written = 0;

    explicit Converter(const std::filesystem::path& p) : seed(fuzzinput::read_file(p)) {}
    ~Converter() { zhal_sim_stream_destroy(ring); }
    void round() {
        void* h = fuzzinput::create(seed.type);
        ASSERT_NE(h, nullptr);
        (void)Zarn_CodecUtil_SetParam(h, seed.param);
        for (Bytes unit : seed.units) written += fuzzinput::push(h, ring, unit).size();
        (void)Zarn_CodecUtil_SetParam(h, seed.param);
        (void)Zarn_CodecUtil_CheckConv(h);
        Zarn_CodecUtil_Destroy(h);
    }
};

// One splitter over a dual-layer seed: init, record, the stream in pieces,
// end of stream, free. Returns the bytes delivered.
uint64_t split_round(const fuzzinput::SplitterInput& seed) {
    uint64_t delivered = 0;
    void* s = ves_split_init(
        seed.flags & 1,
        [](void* sum, ves_type, void*, int len, uint64_t) {
            return *static_cast<uint64_t*>(sum) += static_cast<uint64_t>(len), 0;
        },
        &delivered, 0);
    Bytes record = seed.record;
    Bytes stream = seed.stream;  // the push rewrites it in place
    (void)ves_split_set_codec_data(s, record.data(), static_cast<int>(record.size()));
    uint64_t pts = 0;
    for (size_t off = 0; off <= stream.size(); off += 700) {
        const size_t n = std::min<size_t>(700, stream.size() - off);  // 0: end of stream
        (void)ves_split_push(s, stream.data() + off, static_cast<int>(n), pts += 40000000);
    }
    ves_split_free(s);
    return delivered;
}

TEST(Threads, ConvertersAndSplittersRunTogetherWhileSettingsChange) {
    std::vector<std::filesystem::path> seeds;
    for (const auto& e : std::filesystem::directory_iterator(CORPUS_DIR "/converter"))
        if (e.path().string().ends_with("_ring")) seeds.push_back(e.path());
    std::deque<Converter> converters;
    for (size_t i = 0; i < 64; ++i) converters.emplace_back(seeds.at(i % seeds.size()));
    const fuzzinput::SplitterInput dual[] = {
        fuzzinput::SplitterInput(
            fuzzinput::Reader(fuzzinput::read_file(CORPUS_DIR "/splitter/dual_avc"))),
        fuzzinput::SplitterInput(
            fuzzinput::Reader(fuzzinput::read_file(CORPUS_DIR "/splitter/dual_hevc")))};

    zarn_debug_set_sink([](void*, ZarnDebugCategory*, ZarnDebugLevel, const char*, const char*) {},
                        nullptr);
    setenv("EDR_DEBUG_FILE", "/dev/null", 1);  // before any thread starts: they read it
    std::atomic<bool> running{true};
    std::thread settings([&] {
        for (int i = 0; running.load(); ++i) {
            __atomic_store_n(&__zarn_debug_min, i % 6, __ATOMIC_RELAXED);
            __atomic_store_n(&edr_debug_level, (i / 3) % 6, __ATOMIC_RELAXED);
            std::this_thread::yield();
        }
    });
    std::atomic<uint64_t> split_bytes{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < 12; ++t) {
        workers.emplace_back([&, t] {
            for (int round = 0; round < 8; ++round) {
                if (t >= 8) split_bytes += split_round(dual[t % 2]);
                for (auto i = static_cast<size_t>(t); t < 8 && i < converters.size(); i += 8)
                    converters[i].round();
            }
        });
    }
    for (std::thread& w : workers) w.join();
    running = false;
    settings.join();
    unsetenv("EDR_DEBUG_FILE");
    zarn_debug_set_sink(nullptr, nullptr);
    __atomic_store_n(&__zarn_debug_min, ZARN_LEVEL_WARNING, __ATOMIC_RELAXED);
    __atomic_store_n(&edr_debug_level, 0, __ATOMIC_RELAXED);

    for (const Converter& c : converters) EXPECT_GT(c.written, 0u) << c.seed.type;
    EXPECT_GT(split_bytes.load(), 0u);
}

}  // namespace
