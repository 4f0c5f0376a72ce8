// Host side of the armhf count benchmark: writes the units of a media file
// as libavformat demuxes them, so the cross-built counter needs no libav.
// Output: u32 extradata size, extradata, then per unit u32 size and bytes
// (little-endian). With --dual BL EL, writes the dual-layer splitter stream
// instead (the base layer's NAL units, the enhancement layer's behind 7E 01,
// a metadata unit), one unit per access unit, no extradata.
extern "C" {
#include <libavformat/avformat.h>
}

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

bool demux(const char* path, Bytes& extradata, std::vector<Bytes>& units) {
    AVFormatContext* fmt = nullptr;
    if (avformat_open_input(&fmt, path, nullptr, nullptr) < 0) return false;
    avformat_find_stream_info(fmt, nullptr);
    const AVCodecParameters* par = fmt->streams[0]->codecpar;
    extradata.assign(par->extradata, par->extradata + par->extradata_size);
    AVPacket* pkt = av_packet_alloc();
    while (av_read_frame(fmt, pkt) >= 0) {
        if (pkt->stream_index == 0) units.emplace_back(pkt->data, pkt->data + pkt->size);
        av_packet_unref(pkt);
    }
    av_packet_free(&pkt);
    avformat_close_input(&fmt);
    return !units.empty();
}

void put(FILE* f, const Bytes& b) {
    const uint32_t n = static_cast<uint32_t>(b.size());
    const uint8_t le[4] = {uint8_t(n), uint8_t(n >> 8), uint8_t(n >> 16), uint8_t(n >> 24)};
    std::fwrite(le, 1, 4, f);
    std::fwrite(b.data(), 1, b.size(), f);
}

void append_wrapped(Bytes& out, const Bytes& au, const Bytes& wrapper) {
    for (size_t i = 0; i < au.size(); ++i) {
        out.push_back(au[i]);
        if (i >= 2 && au[i] == 1 && au[i - 1] == 0 && au[i - 2] == 0)
            out.insert(out.end(), wrapper.begin(), wrapper.end());
    }
}

}  // namespace

int main(int argc, char** argv) {
    Bytes extradata;
    std::vector<Bytes> units;
    const bool dual = argc == 5 && std::strcmp(argv[1], "--dual") == 0;
    if (!dual && argc != 3) {
        std::fprintf(stderr, "usage: count_media IN OUT | count_media --dual BL EL OUT\n");
        return 2;
    }
    if (dual) {
        Bytes x;
        std::vector<Bytes> bl, el;
        if (!demux(argv[2], x, bl) || !demux(argv[3], x, el) || bl.size() != el.size()) return 1;
        for (size_t i = 0; i < bl.size(); ++i) {
            Bytes au;
            append_wrapped(au, bl[i], {});
            append_wrapped(au, el[i], {0x7E, 0x01});
            const uint8_t md[] = {0, 0, 0, 1, 0x7C, 0x01, 0x19, 'M', 'D', uint8_t('A' + i % 26)};
            au.insert(au.end(), md, md + sizeof md);
            units.push_back(std::move(au));
        }
    } else if (!demux(argv[1], extradata, units)) {
        return 1;
    }
    FILE* f = std::fopen(argv[argc - 1], "wb");
    if (f == nullptr) return 1;
    put(f, extradata);
    for (const Bytes& u : units) put(f, u);
    return std::fclose(f) == 0 ? 0 : 1;
}
