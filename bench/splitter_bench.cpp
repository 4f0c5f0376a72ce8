// Splitter pushes of a real 1080p dual-layer H.264 stream, beside FFmpeg's
// H.264 parser splitting the same bytes into access units and a memcpy of
// them.
//
// The stream is built on first run from two x264 encodes of one source (base
// layer ~8 Mbit/s, enhancement layer ~4 Mbit/s, same GOP, NAL HRD and picture
// timing SEI), in CODECUTIL_BENCH_DIR (default /tmp): per access unit the base
// layer's NAL units, the enhancement layer's NAL units each behind 0x7E 0x01,
// then a metadata unit 0x7C 0x01 0x19. It is pushed in the pieces a
// transport-stream demultiplexer hands over (188-byte packets' worth, 64 KiB)
// and as whole access units. Pushing copies each byte into the input ring and
// once more into its layer's access unit, so about two memcpys is the floor.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vessplitter.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Stream {
    Bytes bytes;
    std::vector<size_t> au_offsets;  // first byte of every access unit
};

std::string media_dir() {
    const char* d = std::getenv("CODECUTIL_BENCH_DIR");
    return d != nullptr ? d : "/tmp";
}

bool make_layer(const std::string& path, const char* rate) {
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        std::fclose(f);
        return true;
    }
    const std::string cmd =
        std::string(
            "ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate=25 -frames:v 50 ") +
        "-c:v libx264 -preset veryfast -bf 3 -g 25 -sc_threshold 0 -b:v " + rate + " -maxrate " +
        rate + " -bufsize " + rate + " -x264-params nal-hrd=vbr:pic-struct=1 -f h264 '" + path +
        "'";
    return std::system(cmd.c_str()) == 0;
}

// Access units of an Annex-B file as libavformat's raw H.264 demuxer cuts them.
std::vector<Bytes> access_units(const std::string& path) {
    std::vector<Bytes> aus;
    AVFormatContext* fmt = nullptr;
    if (avformat_open_input(&fmt, path.c_str(), nullptr, nullptr) < 0) return aus;
    AVPacket* pkt = av_packet_alloc();
    while (av_read_frame(fmt, pkt) >= 0) {
        aus.emplace_back(pkt->data, pkt->data + pkt->size);
        av_packet_unref(pkt);
    }
    av_packet_free(&pkt);
    avformat_close_input(&fmt);
    return aus;
}

// Appends an access unit's NAL units, each behind `wrapper` (may be empty)
// placed right after its start code.
void append_wrapped(Bytes& out, const Bytes& au, const Bytes& wrapper) {
    for (size_t i = 0; i < au.size(); ++i) {
        out.push_back(au[i]);
        if (i >= 2 && au[i] == 1 && au[i - 1] == 0 && au[i - 2] == 0)
            out.insert(out.end(), wrapper.begin(), wrapper.end());
    }
}

bool build_stream(Stream& s) {
    const std::string bl_path = media_dir() + "/codecutil_bench_split_bl.h264";
    const std::string el_path = media_dir() + "/codecutil_bench_split_el.h264";
    if (!make_layer(bl_path, "8M") || !make_layer(el_path, "4M")) return false;
    const std::vector<Bytes> bl = access_units(bl_path);
    const std::vector<Bytes> el = access_units(el_path);
    if (bl.empty() || bl.size() != el.size()) return false;
    const Bytes el_wrapper = {0x7E, 0x01};
    for (size_t i = 0; i < bl.size(); ++i) {
        s.au_offsets.push_back(s.bytes.size());
        append_wrapped(s.bytes, bl[i], {});
        append_wrapped(s.bytes, el[i], el_wrapper);
        const char md[] = {0, 0, 0, 1, 0x7C, 0x01, 0x19, 'M', 'D', static_cast<char>('A' + i % 26)};
        s.bytes.insert(s.bytes.end(), md, md + sizeof md);
    }
    return true;
}

Stream& stream() {
    static Stream s;
    return s;
}

int discard(void*, ves_type, void* data, int len, uint64_t) {
    benchmark::DoNotOptimize(data);
    benchmark::DoNotOptimize(len);
    return 0;
}

void set_rates(benchmark::State& state) {
    const Stream& s = stream();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(s.bytes.size()));
    state.counters["ns_per_au"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * static_cast<double>(s.au_offsets.size()),
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// Calls push(data, len, pts) per access unit (piece 0) or per piece.
template <typename Push>
void for_each_piece(const Stream& s, Bytes& bytes, size_t piece, Push&& push) {
    if (piece == 0) {
        for (size_t i = 0; i < s.au_offsets.size(); ++i) {
            const size_t end = i + 1 < s.au_offsets.size() ? s.au_offsets[i + 1] : bytes.size();
            push(bytes.data() + s.au_offsets[i], end - s.au_offsets[i], (i + 1) * 40000000u);
        }
        return;
    }
    for (size_t at = 0; at < bytes.size(); at += piece)
        push(bytes.data() + at, std::min(piece, bytes.size() - at), at);
}

void run_splitter(benchmark::State& state, size_t piece) {
    const Stream& s = stream();
    Bytes copy = s.bytes;
    FILE* saved = edr_debug_file;
    void* split = ves_split_init(VES_AVC, discard, nullptr, 1);
    edr_debug_file = nullptr;
    if (split == nullptr) {
        state.SkipWithError("ves_split_init failed");
        return;
    }
    for (auto _ : state) {
        for_each_piece(s, copy, piece, [&](uint8_t* data, size_t n, uint64_t pts) {
            ves_split_push(split, data, static_cast<int>(n), pts);
        });
        ves_split_push(split, nullptr, 0, 0);
        ves_split_flush(split);
    }
    set_rates(state);
    ves_split_free(split);
    edr_debug_file = saved;
}

// FFmpeg's H.264 parser cutting the same byte stream into access units, fed
// the same pieces as the splitter.
void run_ffmpeg_parser(benchmark::State& state, size_t piece) {
    const Stream& s = stream();
    Bytes copy = s.bytes;
    AVCodecContext* ctx = avcodec_alloc_context3(nullptr);
    for (auto _ : state) {
        AVCodecParserContext* parser = av_parser_init(AV_CODEC_ID_H264);
        auto parse = [&](const uint8_t* data, size_t n, uint64_t pts) {
            while (n > 0) {
                uint8_t* out = nullptr;
                int out_size = 0;
                const int used =
                    av_parser_parse2(parser, ctx, &out, &out_size, data, static_cast<int>(n),
                                     static_cast<int64_t>(pts), AV_NOPTS_VALUE, 0);
                benchmark::DoNotOptimize(out);
                data += used;
                n -= static_cast<size_t>(used);
            }
        };
        for_each_piece(s, copy, piece, parse);
        uint8_t* out = nullptr;
        int out_size = 0;
        av_parser_parse2(parser, ctx, &out, &out_size, nullptr, 0, AV_NOPTS_VALUE, AV_NOPTS_VALUE,
                         0);
        av_parser_close(parser);
    }
    set_rates(state);
    avcodec_free_context(&ctx);
}

void run_memcpy(benchmark::State& state) {
    const Stream& s = stream();
    Bytes dst(s.bytes.size());
    for (auto _ : state) {
        std::memcpy(dst.data(), s.bytes.data(), s.bytes.size());
        benchmark::ClobberMemory();
    }
    set_rates(state);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (!build_stream(stream())) {
        std::fprintf(stderr, "cannot make the dual-layer stream with ffmpeg/x264 in %s\n",
                     media_dir().c_str());
        return 1;
    }
    benchmark::RegisterBenchmark("split/188B", run_splitter, size_t{188});
    benchmark::RegisterBenchmark("split/64KiB", run_splitter, size_t{64 * 1024});
    benchmark::RegisterBenchmark("split/access_unit", run_splitter, size_t{0});
    benchmark::RegisterBenchmark("ffmpeg_h264_parser/188B", run_ffmpeg_parser, size_t{188});
    benchmark::RegisterBenchmark("ffmpeg_h264_parser/access_unit", run_ffmpeg_parser, size_t{0});
    benchmark::RegisterBenchmark("memcpy", run_memcpy);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
