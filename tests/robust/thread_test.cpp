// Many converters and splitters at once, for ThreadSanitizer: 64 converters
// of every type on 8 threads and 4 splitters on 4 threads, while
// another thread keeps changing the log threshold and the splitter's debug
// level. Each converter or splitter is driven by one thread, as the
// interface requires; what they share is the process-wide state (log
// category and threshold, HAL port binding, the splitter's debug file and
// level, device registry, enhancement-layer time scale, AVC level tables).
// Splitters are created and freed over and over with a debug file set, so
// the file is opened and closed while other splitters write to it.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "converter_input.h"
#include "vessplitter.h"
#include "zarn_codec_util.h"
#include "zarn_codec_util_priv.h"
#include "zarn_debug.h"
#include "zhal_avstream.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes read_file(const std::string& name) {
    std::ifstream in(std::filesystem::path(CORPUS_DIR) / name, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void discard(void*, ZarnDebugCategory*, ZarnDebugLevel, const char*, const char*) {}

// One converter with its seed, its own space and its own HAL stream.
struct Converter {
    Bytes seed;
    int type = 0;
    Bytes ring = Bytes(1 << 18);
    Zhal_AVStream_ptr hal = zhal_sim_stream_create(1 << 18);
    uint64_t written = 0;

    explicit Converter(Bytes s) : seed(std::move(s)), type(seed.at(0) % 12) {}
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    ~Converter() { zhal_sim_stream_destroy(hal); }

    static zarn_uint8* getbuf(void* stream, zarn_uint32 size, zarn_uint8**, zarn_uint32* size2) {
        auto* c = static_cast<Converter*>(stream);
        *size2 = 0;
        return size <= c->ring.size() ? c->ring.data() : nullptr;
    }

    // Create, parameters, every unit, parameters again, destroy.
    void round() {
        void* h = fuzzinput::create(type);
        ASSERT_NE(h, nullptr);
        const bool own_space = static_cast<CodecUtilBase_t*>(h)->set_getbuf_func != nullptr;
        if (own_space) Zarn_CodecUtil_SetGetBufFunc(h, reinterpret_cast<void*>(&getbuf));
        fuzzinput::Reader in(seed.data(), seed.size());
        in.u8();
        in.u8();
        fuzzinput::Params params;
        void* p = params.read(in, type);
        (void)Zarn_CodecUtil_SetParam(h, p);
        while (!in.empty()) {
            in.u8();
            Bytes unit = in.bytes(in.u16() & 0x3FFF);
            in.u8();
            in.u8();
            CodecUtilBuffer_t b{unit.data(), static_cast<zarn_uint32>(unit.size()), 40000000, 1};
            zarn_uint32 size = 0;
            if (!own_space) zhal_sim_stream_set_write_pos(hal, 0);
            if (Zarn_CodecUtil_ConvPushBuffer(h, own_space ? static_cast<void*>(this) : hal, &b,
                                              &size) != nullptr)
                written += size;
        }
        (void)Zarn_CodecUtil_SetParam(h, p);
        (void)Zarn_CodecUtil_CheckConv(h);
        Zarn_CodecUtil_Destroy(h);
    }
};

int count_bytes(void* param, enum ves_type, void*, int len, uint64_t) {
    *static_cast<uint64_t*>(param) += static_cast<uint64_t>(len);
    return 0;
}

// One splitter over a dual-layer seed: init, record, the stream in pieces,
// end of stream, free.
uint64_t split_round(const Bytes& seed) {
    uint64_t delivered = 0;
    const int codec = (seed.at(0) & 1) != 0 ? VES_HEVC : VES_AVC;
    const size_t record_len = seed.at(1);
    void* s = ves_split_init(codec, count_bytes, &delivered, 0);
    if (s == nullptr) return 0;
    Bytes record(seed.begin() + 4, seed.begin() + 4 + static_cast<std::ptrdiff_t>(record_len));
    Bytes stream(seed.begin() + 4 + static_cast<std::ptrdiff_t>(record_len), seed.end());
    (void)ves_split_set_codec_data(s, record.data(), static_cast<int>(record.size()));
    uint64_t pts = 0;
    for (size_t off = 0; off < stream.size(); off += 700) {
        const size_t n = std::min<size_t>(700, stream.size() - off);
        (void)ves_split_push(s, stream.data() + off, static_cast<int>(n), pts += 40000000);
    }
    (void)ves_split_push(s, nullptr, 0, pts);
    ves_split_free(s);
    return delivered;
}

TEST(Threads, ConvertersAndSplittersRunTogetherWhileSettingsChange) {
    const char* kSeeds[] = {"h264_ring", "h265_ring",  "mpeg4_ring",  "divx_ring",
                            "vc1_ring",  "spark_ring", "vp6_ring",    "vp8_ring",
                            "vp9_ring",  "aac_ring",   "vorbis_ring", "opus_ring"};
    std::vector<std::unique_ptr<Converter>> converters;
    for (int i = 0; i < 64; ++i)
        converters.push_back(
            std::make_unique<Converter>(read_file(std::string("converter/") + kSeeds[i % 12])));
    const Bytes dual[] = {read_file("splitter/dual_avc"), read_file("splitter/dual_hevc")};

    zarn_debug_set_sink(discard, nullptr);
    setenv("EDR_DEBUG_FILE", "/dev/null",
           1);  // set before any thread starts: getenv is read on them
    std::atomic<bool> running{true};
    std::thread settings([&] {
        for (int i = 0; running.load(); ++i) {
            __atomic_store_n(&__zarn_debug_min, i % 6, __ATOMIC_RELAXED);
            __atomic_store_n(&edr_debug_level, (i / 3) % 6, __ATOMIC_RELAXED);
            std::this_thread::yield();
        }
    });
    std::vector<std::thread> workers;
    for (int t = 0; t < 8; ++t) {
        workers.emplace_back([&, t] {
            for (int round = 0; round < 8; ++round)
                for (int i = t; i < 64; i += 8) converters[static_cast<size_t>(i)]->round();
        });
    }
    std::atomic<uint64_t> split_bytes{0};
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&, t] {
            for (int round = 0; round < 8; ++round) split_bytes += split_round(dual[t % 2]);
        });
    }
    for (std::thread& w : workers) w.join();
    running = false;
    settings.join();
    unsetenv("EDR_DEBUG_FILE");
    zarn_debug_set_sink(nullptr, nullptr);
    __atomic_store_n(&__zarn_debug_min, ZARN_LEVEL_WARNING, __ATOMIC_RELAXED);
    __atomic_store_n(&edr_debug_level, 0, __ATOMIC_RELAXED);

    for (const auto& c : converters) EXPECT_GT(c->written, 0u) << c->type;
    EXPECT_GT(split_bytes.load(), 0u);
}

}  // namespace
