/* Decodes one audio stream with libavcodec and prints the MD5 of its PCM:
 *
 *   audio_pcm_md5 MEDIA            first audio stream of MEDIA (libavformat)
 *   audio_pcm_md5 --extracted DIR  what `codecutil inspect --extract DIR`
 *                                  wrote: codec.txt, extradata.bin and
 *                                  packets.bin (32-bit big-endian length +
 *                                  bytes per packet)
 *
 * Output: "md5 HEX samples N channels C rate R format F". The decoder is
 * given the codec and the extradata only, and each packet's bytes only:
 * container-level trimming (MP4 edit lists, Matroska/Ogg skip and discard
 * side data) is a property of the container, which the hardware decoder never
 * sees, so both sides decode the bare stream. Samples are hashed interleaved,
 * in the decoder's own sample format. Built by the audio end-to-end tests. */
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/md5.h>
#include <libavutil/mem.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void die(const char* what, const char* detail) {
    fprintf(stderr, "audio_pcm_md5: %s%s%s\n", what, detail ? ": " : "", detail ? detail : "");
    exit(1);
}

static void die_av(const char* what, int err) {
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(err, text, sizeof text);
    die(what, text);
}

struct Sink {
    struct AVMD5* md5;
    uint8_t* interleaved;
    size_t interleaved_size;
    int64_t samples;
    int channels;
    int rate;
    int format;
};

static void hash_frame(struct Sink* s, const AVFrame* f) {
    const int channels = f->ch_layout.nb_channels;
    const int bps = av_get_bytes_per_sample((enum AVSampleFormat)f->format);
    const size_t bytes = (size_t)f->nb_samples * (size_t)channels * (size_t)bps;
    if (s->samples == 0 && s->channels == 0) {
        s->channels = channels;
        s->rate = f->sample_rate;
        s->format = f->format;
    } else if (channels != s->channels || f->sample_rate != s->rate || f->format != s->format) {
        die("the stream's output format changed mid-stream", NULL);
    }
    if (!av_sample_fmt_is_planar((enum AVSampleFormat)f->format)) {
        av_md5_update(s->md5, f->extended_data[0], bytes);
    } else {
        if (bytes > s->interleaved_size) {
            s->interleaved = av_realloc(s->interleaved, bytes);
            if (!s->interleaved) die("out of memory", NULL);
            s->interleaved_size = bytes;
        }
        for (int i = 0; i < f->nb_samples; ++i)
            for (int c = 0; c < channels; ++c)
                memcpy(s->interleaved + ((size_t)i * (size_t)channels + (size_t)c) * (size_t)bps,
                       f->extended_data[c] + (size_t)i * (size_t)bps, (size_t)bps);
        av_md5_update(s->md5, s->interleaved, bytes);
    }
    s->samples += f->nb_samples;
}

static void drain(AVCodecContext* ctx, AVFrame* frame, struct Sink* s) {
    for (;;) {
        const int err = avcodec_receive_frame(ctx, frame);
        if (err == AVERROR(EAGAIN) || err == AVERROR_EOF) return;
        if (err < 0) die_av("decoding failed", err);
        hash_frame(s, frame);
        av_frame_unref(frame);
    }
}

/* Sends a copy of the bytes only (no side data, no time stamps). */
static void decode_bytes(AVCodecContext* ctx, AVFrame* frame, struct Sink* s, const uint8_t* p,
                         int n) {
    AVPacket* pkt = av_packet_alloc();
    if (!pkt || av_new_packet(pkt, n) < 0) die("out of memory", NULL);
    if (n > 0) memcpy(pkt->data, p, (size_t)n);
    const int err = avcodec_send_packet(ctx, pkt);
    av_packet_free(&pkt);
    if (err < 0) die_av("the decoder refused a packet", err);
    drain(ctx, frame, s);
}

static AVCodecContext* open_decoder(enum AVCodecID id, const uint8_t* extradata, int size) {
    const AVCodec* codec = avcodec_find_decoder(id);
    if (!codec) die("no decoder for the codec", avcodec_get_name(id));
    AVCodecContext* ctx = avcodec_alloc_context3(codec);
    if (!ctx) die("out of memory", NULL);
    if (size > 0) {
        ctx->extradata = av_mallocz((size_t)size + AV_INPUT_BUFFER_PADDING_SIZE);
        if (!ctx->extradata) die("out of memory", NULL);
        memcpy(ctx->extradata, extradata, (size_t)size);
        ctx->extradata_size = size;
    }
    const int err = avcodec_open2(ctx, codec, NULL);
    if (err < 0) die_av("cannot open the decoder", err);
    return ctx;
}

static uint8_t* read_file(const char* path, size_t* size) {
    FILE* f = fopen(path, "rb");
    if (!f) die("cannot open", path);
    uint8_t* data = NULL;
    size_t n = 0, cap = 0;
    for (;;) {
        if (n == cap) {
            cap = cap ? cap * 2 : 65536;
            data = realloc(data, cap);
            if (!data) die("out of memory", NULL);
        }
        const size_t got = fread(data + n, 1, cap - n, f);
        if (got == 0) break;
        n += got;
    }
    if (ferror(f)) die("cannot read", path);
    fclose(f);
    *size = n;
    return data;
}

static void decode_media(const char* path, AVFrame* frame, struct Sink* s) {
    AVFormatContext* fmt = NULL;
    int err = avformat_open_input(&fmt, path, NULL, NULL);
    if (err < 0) die_av(path, err);
    if ((err = avformat_find_stream_info(fmt, NULL)) < 0) die_av(path, err);
    const int index = av_find_best_stream(fmt, AVMEDIA_TYPE_AUDIO, -1, -1, NULL, 0);
    if (index < 0) die("no audio stream in", path);
    const AVCodecParameters* par = fmt->streams[index]->codecpar;
    AVCodecContext* ctx = open_decoder(par->codec_id, par->extradata, par->extradata_size);
    AVPacket* pkt = av_packet_alloc();
    if (!pkt) die("out of memory", NULL);
    while ((err = av_read_frame(fmt, pkt)) >= 0) {
        if (pkt->stream_index == index) decode_bytes(ctx, frame, s, pkt->data, pkt->size);
        av_packet_unref(pkt);
    }
    if (err != AVERROR_EOF) die_av("reading stopped early", err);
    avcodec_send_packet(ctx, NULL);
    drain(ctx, frame, s);
    av_packet_free(&pkt);
    avcodec_free_context(&ctx);
    avformat_close_input(&fmt);
}

static void decode_extracted(const char* dir, AVFrame* frame, struct Sink* s) {
    char path[4096];
    size_t n = 0;
    snprintf(path, sizeof path, "%s/codec.txt", dir);
    char* name = (char*)read_file(path, &n);
    name = realloc(name, n + 1);
    name[n] = '\0';
    name[strcspn(name, "\r\n")] = '\0';
    const AVCodecDescriptor* desc = avcodec_descriptor_get_by_name(name);
    if (!desc) die("unknown codec", name);
    size_t extra_size = 0;
    snprintf(path, sizeof path, "%s/extradata.bin", dir);
    uint8_t* extra = read_file(path, &extra_size);
    AVCodecContext* ctx = open_decoder(desc->id, extra, (int)extra_size);
    size_t size = 0;
    snprintf(path, sizeof path, "%s/packets.bin", dir);
    uint8_t* data = read_file(path, &size);
    size_t at = 0;
    while (at < size) {
        if (size - at < 4) die("truncated length in", path);
        const uint32_t len = (uint32_t)data[at] << 24 | (uint32_t)data[at + 1] << 16 |
                             (uint32_t)data[at + 2] << 8 | data[at + 3];
        at += 4;
        if (len > size - at) die("truncated packet in", path);
        decode_bytes(ctx, frame, s, data + at, (int)len);
        at += len;
    }
    avcodec_send_packet(ctx, NULL);
    drain(ctx, frame, s);
    avcodec_free_context(&ctx);
    free(data);
    free(extra);
    free(name);
}

int main(int argc, char** argv) {
    const int media = argc == 2 && argv[1][0] != '-';
    const int extracted = argc == 3 && strcmp(argv[1], "--extracted") == 0;
    if (!media && !extracted) {
        fprintf(stderr, "usage: audio_pcm_md5 MEDIA | audio_pcm_md5 --extracted DIR\n");
        return 2;
    }
    av_log_set_level(AV_LOG_ERROR);
    struct Sink s = {0};
    s.md5 = av_md5_alloc();
    AVFrame* frame = av_frame_alloc();
    if (!s.md5 || !frame) die("out of memory", NULL);
    av_md5_init(s.md5);
    if (media)
        decode_media(argv[1], frame, &s);
    else
        decode_extracted(argv[2], frame, &s);
    uint8_t digest[16];
    av_md5_final(s.md5, digest);
    printf("md5 ");
    for (int i = 0; i < 16; ++i) printf("%02x", digest[i]);
    printf(" samples %lld channels %d rate %d format %s\n", (long long)s.samples, s.channels,
           s.rate,
           s.channels != 0 ? av_get_sample_fmt_name((enum AVSampleFormat)s.format) : "none");
    av_frame_free(&frame);
    av_free(s.md5);
    av_free(s.interleaved);
    return 0;
}
