// One case of the armhf instruction-count benchmark, run under qemu-arm by
// scripts/bench-armhf.sh: `count_bench CASE UNITS REPEATS ALIGN`. UNITS is a
// file from count_media; the case's work is done REPEATS times, the input
// and the ring ALIGN bytes off a 64-byte boundary. Set-up is the same for
// every repeat count, so counts of two repeat counts differ by exactly the
// repeated work. No libav: this runs on the target.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vessplitter.h"
#include "zarn_codec_util.h"
#include "zarn_codec_util_priv.h"

namespace {

struct Units {
    std::vector<uint8_t> extradata;
    std::vector<std::vector<uint8_t>> units;
};

bool read_units(const char* path, Units& u) {
    FILE* f = std::fopen(path, "rb");
    if (f == nullptr) return false;
    bool first = true;
    uint8_t le[4];
    while (std::fread(le, 1, 4, f) == 4) {
        const uint32_t n = le[0] | le[1] << 8 | le[2] << 16 | static_cast<uint32_t>(le[3]) << 24;
        std::vector<uint8_t> b(n);
        if (std::fread(b.data(), 1, n, f) != n) break;
        if (first)
            u.extradata = std::move(b);
        else
            u.units.push_back(std::move(b));
        first = false;
    }
    std::fclose(f);
    return !u.units.empty();
}

// A 64 MiB ring handing out space at a moving write position, in two pieces
// where it crosses the end, as a decoder input ring does.
struct Ring {
    uint8_t* mem;
    size_t size;
    size_t wp;
};

zarn_uint8* ring_getbuf(void* stream, zarn_uint32 size, zarn_uint8** mem2, zarn_uint32* size2) {
    auto* r = static_cast<Ring*>(stream);
    *size2 = 0;
    const size_t to_end = r->size - r->wp;
    uint8_t* first = r->mem + r->wp;
    if (size > to_end) {
        *size2 = static_cast<zarn_uint32>(size - to_end);
        *mem2 = r->mem;
    }
    r->wp = (r->wp + size) % r->size;
    return first;
}

void ring_copy(Ring& r, const uint8_t* data, size_t size) {
    zarn_uint8* mem2 = nullptr;
    zarn_uint32 size2 = 0;
    uint8_t* first = ring_getbuf(&r, static_cast<zarn_uint32>(size), &mem2, &size2);
    std::memcpy(first, data, size - size2);
    if (size2 != 0) std::memcpy(mem2, data + (size - size2), size2);
}

void* make_converter(const std::string& kind, Units& u) {
    if (kind == "vp9") {
        void* h = CodecUtil_VP9_Create(nullptr);
        Zarn_CodecUtil_SetGetBufFunc(h, reinterpret_cast<void*>(&ring_getbuf));
        CodecUtilVP9Param_t p{1920, 1080, 25};
        Zarn_CodecUtil_SetParam(h, &p);
        return h;
    }
    const CodecUtilType_e type = kind == "h264"   ? CODEC_UTIL_TYPE_H264
                                 : kind == "h265" ? CODEC_UTIL_TYPE_H265
                                                  : CODEC_UTIL_TYPE_AAC;
    void* h = Zarn_CodecUtil_Create(type, nullptr);
    Zarn_CodecUtil_SetGetBufFunc(h, reinterpret_cast<void*>(&ring_getbuf));
    // H.264, H.265 and AAC parameters are all {data, size}.
    CodecUtilH264Param_t p{u.extradata.data(), static_cast<zarn_uint32>(u.extradata.size())};
    Zarn_CodecUtil_SetParam(h, &p);
    return h;
}

// An hour into a stream, in nanoseconds: past 32 bits, as real time stamps.
constexpr uint64_t kPtsBase = 3600ull * 1000000000ull;

int count_delivery(void* n, ves_type, void*, int, uint64_t) {
    ++*static_cast<int*>(n);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: count_bench CASE UNITS REPEATS ALIGN\n");
        return 2;
    }
    const std::string what = argv[1];
    Units u;
    if (!read_units(argv[2], u)) return 1;
    const int repeats = std::atoi(argv[3]);
    const size_t align = static_cast<size_t>(std::atoi(argv[4]));
    const std::string kind = what.substr(what.find('/') + 1);
    const bool baseline = what.rfind("memcpy/", 0) == 0;

    // Every unit at the same offset from a 64-byte boundary, back to back.
    size_t total = 0;
    for (const auto& b : u.units) total += (b.size() + 63) / 64 * 64 + 64;
    auto* arena = static_cast<uint8_t*>(std::aligned_alloc(64, total));
    std::vector<uint8_t*> at;
    size_t off = align;
    for (const auto& b : u.units) {
        at.push_back(arena + off);
        off += (b.size() + 63) / 64 * 64 + 64;
    }
    Ring ring{static_cast<uint8_t*>(std::aligned_alloc(64, 64u << 20)), 64u << 20, align};
    std::memset(ring.mem, 0, ring.size);  // fault the pages in during set-up

    if (kind == "split-au" || kind == "split-188") {
        // Start-code input is unwrapped in the splitter's ring, never in
        // the caller's buffer: the same input serves every repeat.
        int delivered = 0;
        int failed = 0;
        void* split = ves_split_init(VES_AVC, count_delivery, &delivered, 1);
        for (size_t i = 0; i < u.units.size(); ++i)
            std::memcpy(at[i], u.units[i].data(), u.units[i].size());
        for (int r = 0; r < repeats; ++r) {
            for (size_t i = 0; i < u.units.size(); ++i) {
                const size_t n = u.units[i].size();
                if (baseline) {
                    ring_copy(ring, at[i], n);
                } else if (kind == "split-au") {
                    failed |=
                        ves_split_push(split, at[i], static_cast<int>(n), (i + 1) * 40000000u);
                } else {
                    for (size_t p = 0; p < n; p += 188)
                        failed |= ves_split_push(split, at[i] + p,
                                                 static_cast<int>(n - p < 188 ? n - p : 188), i);
                }
            }
            if (!baseline) {
                failed |= ves_split_push(split, nullptr, 0, 0);
                ves_split_flush(split);
            }
        }
        ves_split_free(split);
        const bool bad = failed != 0 || (!baseline && delivered == 0);
        if (bad) std::fprintf(stderr, "%s: splitter failed\n", what.c_str());
        return bad ? 1 : 0;
    }

    void* h = make_converter(kind, u);
    // The baseline copies exactly the bytes the converter writes once past
    // the first pass (parameter sets ride on the first unit only).
    std::vector<std::vector<uint8_t>> out;
    for (size_t i = 0; i < u.units.size(); ++i)
        std::memcpy(at[i], u.units[i].data(), u.units[i].size());
    for (int pass = 0; pass < 2; ++pass) {
        for (size_t i = 0; i < u.units.size(); ++i) {
            CodecUtilBuffer_t buf{at[i], static_cast<zarn_uint32>(u.units[i].size()),
                                  kPtsBase + i * 40000000ull, 0};
            zarn_uint32 size = 0;
            const size_t from = ring.wp;
            if (Zarn_CodecUtil_ConvPushBuffer(h, &ring, &buf, &size) == nullptr) return 1;
            if (pass == 1) out.emplace_back(ring.mem + from, ring.mem + from + size);
        }
    }
    // The baseline's source stands at the inputs' alignment, as the
    // converter's does.
    size_t out_total = 0;
    for (const auto& b : out) out_total += (b.size() + 63) / 64 * 64 + 64;
    auto* out_arena = static_cast<uint8_t*>(std::aligned_alloc(64, out_total));
    std::vector<uint8_t*> out_at;
    off = align;
    for (const auto& b : out) {
        out_at.push_back(static_cast<uint8_t*>(std::memcpy(out_arena + off, b.data(), b.size())));
        off += (b.size() + 63) / 64 * 64 + 64;
    }
    for (int r = 0; r < repeats; ++r) {
        for (size_t i = 0; i < u.units.size(); ++i) {
            if (baseline) {
                ring_copy(ring, out_at[i], out[i].size());
                continue;
            }
            CodecUtilBuffer_t buf{at[i], static_cast<zarn_uint32>(u.units[i].size()),
                                  kPtsBase + i * 40000000ull, 0};
            zarn_uint32 size = 0;
            Zarn_CodecUtil_ConvPushBuffer(h, &ring, &buf, &size);
        }
    }
    Zarn_CodecUtil_Destroy(h);
    return 0;
}
