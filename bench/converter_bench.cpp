// H.264/H.265 pushes of real 1080p access units into a ring through a
// get-buffer function, beside a memcpy of exactly the same output bytes into
// the same ring. The conversion is one copy; the ratio is the overhead.
//
// Media are made on first run with ffmpeg (x264/x265, 1080p, ~8 Mbit/s, one
// and eight slices per picture) in CODECUTIL_BENCH_DIR (default /tmp).
extern "C" {
#include <libavformat/avformat.h>
}

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "zarn_codec_util.h"

namespace {

struct Media {
    std::string name;
    CodecUtilType_e type;
    std::vector<uint8_t> extradata;
    std::vector<std::vector<uint8_t>> units;
    std::vector<std::vector<uint8_t>> converted;  // what the converter writes per unit
};

// A ring of 64 MiB handing out space at a moving write position, in two
// pieces where it crosses the end, as a decoder input ring does.
struct Ring {
    std::vector<uint8_t> mem = std::vector<uint8_t>(64u << 20);
    size_t wp = 0;
};

zarn_uint8* ring_getbuf(void* stream, zarn_uint32 size, zarn_uint8** mem2, zarn_uint32* size2) {
    auto* r = static_cast<Ring*>(stream);
    *size2 = 0;
    const size_t to_end = r->mem.size() - r->wp;
    uint8_t* first = r->mem.data() + r->wp;
    if (size > to_end) {
        *size2 = static_cast<zarn_uint32>(size - to_end);
        *mem2 = r->mem.data();
    }
    r->wp = (r->wp + size) % r->mem.size();
    return first;
}

// Copies `size` bytes at the ring's write position, in one or two pieces.
void ring_copy(Ring& r, const uint8_t* data, size_t size) {
    zarn_uint8* mem2 = nullptr;
    zarn_uint32 size2 = 0;
    uint8_t* first = ring_getbuf(&r, static_cast<zarn_uint32>(size), &mem2, &size2);
    std::memcpy(first, data, size - size2);
    if (size2 != 0) std::memcpy(mem2, data + (size - size2), size2);
}

std::string media_dir() {
    const char* d = std::getenv("CODECUTIL_BENCH_DIR");
    return d != nullptr ? d : "/tmp";
}

bool make_media(const std::string& path, const std::string& encoder_args) {
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        std::fclose(f);
        return true;
    }
    const std::string cmd =
        "ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate=25 -frames:v 50 " +
        encoder_args + " -b:v 8M -an '" + path + "'";
    return std::system(cmd.c_str()) == 0;
}

bool load(Media& m, const std::string& path) {
    AVFormatContext* fmt = nullptr;
    if (avformat_open_input(&fmt, path.c_str(), nullptr, nullptr) < 0) return false;
    avformat_find_stream_info(fmt, nullptr);
    const AVCodecParameters* par = fmt->streams[0]->codecpar;
    m.extradata.assign(par->extradata, par->extradata + par->extradata_size);
    AVPacket* pkt = av_packet_alloc();
    while (av_read_frame(fmt, pkt) >= 0) {
        if (pkt->stream_index == 0) m.units.emplace_back(pkt->data, pkt->data + pkt->size);
        av_packet_unref(pkt);
    }
    av_packet_free(&pkt);
    avformat_close_input(&fmt);
    return !m.units.empty();
}

void* make_converter(Media& m) {
    void* h = Zarn_CodecUtil_Create(m.type, nullptr);
    Zarn_CodecUtil_SetGetBufFunc(h, reinterpret_cast<void*>(&ring_getbuf));
    CodecUtilH264Param_t p{m.extradata.data(), static_cast<zarn_uint32>(m.extradata.size())};
    Zarn_CodecUtil_SetParam(h, &p);
    return h;
}

// Records the exact bytes the converter writes for each unit (the parameter
// sets ride on the first only), so the memcpy baseline copies the same output.
void record_output(Media& m) {
    Ring ring;
    void* h = make_converter(m);
    for (auto& u : m.units) {
        CodecUtilBuffer_t buf{u.data(), static_cast<zarn_uint32>(u.size()), 0, 0};
        zarn_uint32 size = 0;
        const size_t at = ring.wp;
        uint8_t* out = Zarn_CodecUtil_ConvPushBuffer(h, &ring, &buf, &size);
        if (out == nullptr || out == buf.data) std::abort();
        std::vector<uint8_t> bytes(size);
        for (size_t i = 0; i < size; ++i) bytes[i] = ring.mem[(at + i) % ring.mem.size()];
        m.converted.push_back(std::move(bytes));
    }
    Zarn_CodecUtil_Destroy(h);
}

uint64_t output_bytes(const Media& m) {
    uint64_t n = 0;
    for (const auto& c : m.converted) n += c.size();
    return n;
}

// Output bytes per second and time per unit, the same for every row.
void report_per_unit(benchmark::State& state, const Media& m) {
    const double per_unit =
        static_cast<double>(output_bytes(m)) / static_cast<double>(m.units.size());
    state.SetBytesProcessed(
        static_cast<int64_t>(per_unit * static_cast<double>(state.iterations())));
    state.counters["ns_per_unit"] =
        benchmark::Counter(static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void bench_push(benchmark::State& state, Media* m) {
    Ring ring;
    void* h = make_converter(*m);
    size_t i = 0;
    for (auto _ : state) {
        auto& u = m->units[i];
        CodecUtilBuffer_t buf{u.data(), static_cast<zarn_uint32>(u.size()), 0, 0};
        zarn_uint32 size = 0;
        benchmark::DoNotOptimize(Zarn_CodecUtil_ConvPushBuffer(h, &ring, &buf, &size));
        benchmark::ClobberMemory();
        if (++i == m->units.size()) i = 0;
    }
    Zarn_CodecUtil_Destroy(h);
    report_per_unit(state, *m);
}

void bench_memcpy(benchmark::State& state, Media* m) {
    Ring ring;
    size_t i = 0;
    for (auto _ : state) {
        const auto& c = m->converted[i];
        ring_copy(ring, c.data(), c.size());
        benchmark::ClobberMemory();
        if (++i == m->units.size()) i = 0;
    }
    report_per_unit(state, *m);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const std::string dir = media_dir();
    struct Source {
        const char* name;
        CodecUtilType_e type;
        const char* file;
        const char* args;
    };
    const Source sources[] = {
        {"h264_1slice", CODEC_UTIL_TYPE_H264, "codecutil_bench_h264_1.mp4",
         "-c:v libx264 -preset veryfast -bf 3"},
        {"h264_8slices", CODEC_UTIL_TYPE_H264, "codecutil_bench_h264_8.mp4",
         "-c:v libx264 -preset veryfast -bf 3 -x264-params slices=8"},
        {"h265_1slice", CODEC_UTIL_TYPE_H265, "codecutil_bench_h265_1.mp4",
         "-c:v libx265 -preset ultrafast -x265-params log-level=error"},
        {"h265_8slices", CODEC_UTIL_TYPE_H265, "codecutil_bench_h265_8.mp4",
         "-c:v libx265 -preset ultrafast -x265-params log-level=error:slices=8"},
    };
    static std::vector<Media> media;
    media.reserve(std::size(sources));
    for (const auto& s : sources) {
        const std::string path = dir + "/" + s.file;
        if (!make_media(path, s.args)) {
            std::fprintf(stderr, "cannot make %s with ffmpeg\n", path.c_str());
            return 1;
        }
        Media m{s.name, s.type, {}, {}, {}};
        if (!load(m, path)) {
            std::fprintf(stderr, "cannot read %s\n", path.c_str());
            return 1;
        }
        record_output(m);
        media.push_back(std::move(m));
    }
    for (auto& m : media) {
        benchmark::RegisterBenchmark(("push/" + m.name).c_str(), bench_push, &m);
        benchmark::RegisterBenchmark(("memcpy/" + m.name).c_str(), bench_memcpy, &m);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
