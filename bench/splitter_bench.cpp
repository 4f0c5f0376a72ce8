// Splitter pushes of a synthetic dual-layer H.264 stream (per access unit: an
// AUD, a 48 KiB base-layer slice, an AUD and a 24 KiB slice wrapped as
// enhancement layer, a metadata unit), in the pieces a transport-stream
// demultiplexer hands over (188-byte packets' worth, 64 KiB, whole access
// units), beside a memcpy of the same bytes. Pushing copies each byte into
// the input ring and once more into its layer's access unit, so about two
// memcpys is the floor.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "vessplitter.h"

namespace {

constexpr int kAccessUnits = 32;

// Payload bytes that never form 00 00 0x, like an emulation-prevented slice.
void add_payload(std::vector<uint8_t>& out, size_t n, uint32_t seed) {
    for (size_t i = 0; i < n; ++i) {
        seed = seed * 1664525u + 1013904223u;
        out.push_back(static_cast<uint8_t>((seed >> 24) | 0x01));
    }
}

void add_unit(std::vector<uint8_t>& out, std::initializer_list<uint8_t> head, size_t payload, uint32_t seed) {
    out.insert(out.end(), {0, 0, 0, 1});
    out.insert(out.end(), head);
    add_payload(out, payload, seed);
}

struct Stream {
    std::vector<uint8_t> bytes;
    std::vector<size_t> au_offsets;
};

const Stream& stream() {
    static const Stream s = [] {
        Stream st;
        for (int i = 0; i < kAccessUnits; ++i) {
            const uint32_t seed = static_cast<uint32_t>(i);
            st.au_offsets.push_back(st.bytes.size());
            add_unit(st.bytes, {0x09, 0xF0}, 0, seed);
            add_unit(st.bytes, {0x41}, 48 * 1024, seed);
            add_unit(st.bytes, {0x7E, 0x01, 0x09, 0xF0}, 0, seed);
            add_unit(st.bytes, {0x7E, 0x01, 0x41}, 24 * 1024, seed + 1);
            add_unit(st.bytes, {0x7C, 0x01, 0x19}, 128, seed + 2);
        }
        return st;
    }();
    return s;
}

int discard(void*, ves_type, void* data, int len, uint64_t) {
    benchmark::DoNotOptimize(data);
    benchmark::DoNotOptimize(len);
    return 0;
}

void run_pushes(benchmark::State& state, bool per_access_unit, size_t piece) {
    const Stream& s = stream();
    std::vector<uint8_t> copy = s.bytes;
    FILE* saved = edr_debug_file;
    void* split = ves_split_init(VES_AVC, discard, nullptr, 1);
    edr_debug_file = nullptr;
    if (split == nullptr) {
        state.SkipWithError("ves_split_init failed");
        return;
    }
    for (auto _ : state) {
        uint64_t pts = 0;
        if (per_access_unit) {
            for (size_t i = 0; i < s.au_offsets.size(); ++i) {
                const size_t end = i + 1 < s.au_offsets.size() ? s.au_offsets[i + 1] : copy.size();
                ves_split_push(split, copy.data() + s.au_offsets[i], static_cast<int>(end - s.au_offsets[i]),
                               pts += 40000000);
            }
        } else {
            for (size_t at = 0; at < copy.size(); at += piece) {
                const size_t n = std::min(piece, copy.size() - at);
                ves_split_push(split, copy.data() + at, static_cast<int>(n), pts += 1000);
            }
        }
        ves_split_push(split, nullptr, 0, pts);
        ves_split_flush(split);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(copy.size()));
    ves_split_free(split);
    edr_debug_file = saved;
}

void BM_SplitTsPackets(benchmark::State& state) { run_pushes(state, false, 188); }
void BM_Split64KiB(benchmark::State& state) { run_pushes(state, false, 64 * 1024); }
void BM_SplitAccessUnits(benchmark::State& state) { run_pushes(state, true, 0); }

void BM_MemcpySameBytes(benchmark::State& state) {
    const Stream& s = stream();
    std::vector<uint8_t> dst(s.bytes.size());
    for (auto _ : state) {
        std::memcpy(dst.data(), s.bytes.data(), s.bytes.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(s.bytes.size()));
}

BENCHMARK(BM_SplitTsPackets);
BENCHMARK(BM_Split64KiB);
BENCHMARK(BM_SplitAccessUnits);
BENCHMARK(BM_MemcpySameBytes);

}  // namespace

BENCHMARK_MAIN();
