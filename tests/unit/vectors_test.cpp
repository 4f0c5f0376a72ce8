// Golden vectors for every converter, the AudioSpecificConfig/ADTS helpers
// and the bit buffer: data/vectors.txt holds the steps and what each gives
// (its header describes the format). Every converter case is replayed once
// per write offset that splits one of its outputs across the ring's end: the
// results must not change. CODECUTIL_UPDATE_VECTORS=1 rewrites the results.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "log_capture.h"
#include "test_memory.h"
#include "zarn_codec_util_aac.h"
#include "zarn_codec_util_bitbuf.h"
#include "zarn_codec_util_port.h"
#include "zarn_codec_util_priv.h"
#include "zhal_avstream.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr zarn_uint32 kUnchanged = 0xDEADBEEF;
const char* const kTypes[] = {"DIVX311", "MPEG4", "H264",   "VC1",  "SPARK", "VP6",
                              "VP8",     "AAC",   "VORBIS", "OPUS", "H265",  "VP9"};

// Tokens: hex digits (4 bits each), V/W (W bits of V), rN[@XX] (N bytes
// counting up from XX, default 1), N*XX (N bytes XX). Zero-padded to a byte.
Bytes bytes_of(std::istream& in) {
    Bytes out;
    unsigned used = 0;
    auto put = [&](uint64_t v, unsigned w) {
        if (w == 8 && used % 8 == 0) return out.push_back(static_cast<uint8_t>(v)), void(used += 8);
        for (; w-- > 0; ++used) {
            if (used % 8 == 0) out.push_back(0);
            out.back() = static_cast<uint8_t>(out.back() | ((v >> w) & 1) << (7 - used % 8));
        }
    };
    for (std::string t; in >> t;) {
        unsigned long n = 0;
        unsigned long long v = 1;
        if (t[0] == 'r' && std::sscanf(t.c_str(), "r%lu@%llx", &n, &v) >= 1) {
            for (unsigned long i = 0; i < n; ++i) put(v + i, 8);
        } else if (std::sscanf(t.c_str(), "%lu*%llx", &n, &v) == 2) {
            for (unsigned long i = 0; i < n; ++i) put(v, 8);
        } else if (std::sscanf(t.c_str(), "%lli/%lu", &v, &n) == 2) {
            put(v, static_cast<unsigned>(n));
        } else {
            for (char c : t) put(std::strtoul(std::string(1, c).c_str(), nullptr, 16), 4);
        }
    }
    return out;
}

std::string hex(const Bytes& b, size_t n = SIZE_MAX) {
    std::string s;
    char t[4];
    for (size_t i = 0; i < b.size() && i < n; ++i) {
        std::snprintf(t, sizeof t, i % 4 == 0 && i > 0 ? " %02X" : "%02X", b[i]);
        s += t;
    }
    return s;
}

// Ring space for a converter: a get-buffer function whose stream is this
// object, or for SPARK and VP6 (space from the HAL port) the HAL stand-in.
struct Ring {
    Bytes mem;
    uint32_t wp = 0, grant = 0;
    int refuse = 0, requests = 0, bad = 0;
    Zhal_AVStream_ptr hal = nullptr;
    Bytes got;

    Ring(uint32_t cap, bool use_hal) : mem(cap, 0xEE) {
        if (!use_hal) return;
        hal = zhal_sim_stream_create(cap);
        zhal_sim_stream_set_consumer(
            hal,
            [](void* u, const zarn_uint8* d, zarn_uint32 n, zarn_uint64) {
                static_cast<Ring*>(u)->got.insert(static_cast<Ring*>(u)->got.end(), d, d + n);
            },
            this);
    }
    ~Ring() { zhal_sim_stream_destroy(hal); }
    void* stream() { return hal != nullptr ? hal : static_cast<void*>(this); }
    void set_wp(uint32_t at) {
        wp = at;
        if (hal != nullptr) zhal_sim_stream_set_write_pos(hal, at);
    }
    Bytes take(zarn_uint8* ret, zarn_uint32 size) {
        got.clear();
        if (hal != nullptr) return Conv_Port_Stream_Append(hal, ret, size, 0) ? got : Bytes{};
        const size_t first = std::min<size_t>(size, mem.size() - grant);
        got.assign(mem.begin() + grant, mem.begin() + static_cast<long>(grant + first));
        got.insert(got.end(), mem.begin(), mem.begin() + static_cast<long>(size - first));
        return got;
    }
    static zarn_uint8* getbuf(void* s, zarn_uint32 size, zarn_uint8** mem2, zarn_uint32* size2) {
        auto* r = static_cast<Ring*>(s);
        ++r->requests;
        *size2 = 0;
        if (r->refuse > 0 && r->refuse-- > 0) return nullptr;
        if (r->bad > 0 && r->bad-- > 0) {  // a second piece longer than the request
            *size2 = size + 1;
            *mem2 = r->mem.data();
            return r->mem.data();
        }
        const auto cap = static_cast<uint32_t>(r->mem.size());
        if (size > cap) return nullptr;
        r->grant = r->wp;
        if (size > cap - r->wp) {
            *size2 = size - (cap - r->wp);
            *mem2 = r->mem.data();
        }
        zarn_uint8* first = r->mem.data() + r->wp;
        r->wp = static_cast<uint32_t>((uint64_t{r->wp} + size) % cap);
        return first;
    }
};

struct Step {
    std::string op, args, want;
    size_t line;
    std::vector<long long> v;  // the numbers before ':' (at least 5)
    bool null_fourcc = false;
    Bytes bytes;  // after ':'
};

Step parse(const std::string& op, const std::string& args, size_t line) {
    Step s{op, args, "", line, {}, false, {}};
    std::istringstream in(op == "log" ? "" : args);
    for (std::string t; in >> t && t != ":";) {
        s.null_fourcc |= t == "-";
        s.v.push_back(t == "-"      ? 0
                      : t[0] >= 'A' ? t[0] | t[1] << 8 | t[2] << 16 | t[3] << 24
                                    : static_cast<long long>(std::stoull(t, nullptr, 0)));
    }
    s.v.resize(std::max<size_t>(s.v.size(), 5), 0);
    s.bytes = bytes_of(in);
    return s;
}
struct Case {
    int type = -1;  // -1: helper steps only
    uint32_t cap = 4096;
    std::vector<Step> steps;
};

// Runs `c`, stopping after step `stop`, whose push starts `left` bytes
// before the ring's end when `left` is not 0. Returns each step's result.
std::vector<std::string> run(const Case& c, size_t stop = SIZE_MAX, uint32_t left = 0) {
    codecutil_test::LogCapture log;
    codecutil_test::CountingMemory mem;
    Ring ring(c.cap, c.type == CODEC_UTIL_TYPE_SPARK || c.type == CODEC_UTIL_TYPE_VP6);
    void* h = c.type < 0 ? nullptr
              : c.type == CODEC_UTIL_TYPE_VP9
                  ? CodecUtil_VP9_Create(mem.table())
                  : Zarn_CodecUtil_Create(CodecUtilType_e(c.type), mem.table());
    if (ring.hal == nullptr)
        Zarn_CodecUtil_SetGetBufFunc(h, reinterpret_cast<void*>(&Ring::getbuf));
    std::deque<Bytes> keep;  // what the converter may point into lives for the case
    BIT_BUF bb{};
    const Bytes* area = nullptr;
    std::vector<std::string> results;
    for (size_t i = 0; i < c.steps.size() && i <= stop; ++i) {
        const Step& s = c.steps[i];
        const std::string& op = s.op;
        std::ostringstream out;
        const std::vector<long long>& v = s.v;
        Bytes& b = keep.emplace_back(s.bytes);
        zarn_uint8* d = b.empty() ? nullptr : b.data();
        const auto n = static_cast<zarn_uint32>(b.size());
        if (op == "set") {  // record fields in order, codec data after ':'
            uint32_t fourcc = static_cast<uint32_t>(v[4]);
            union {
                CodecUtilH264Param_t data;
                CodecUtilVC1Param_t vc1;
                CodecUtilVP9Param_t vp9;
                CodecUtilVorbisParam_t vorbis;
            } p{};
            if (c.type == CODEC_UTIL_TYPE_VC1)
                p.vc1 = {
                    int(v[0]), int(v[1]),   int(v[2]), 1000000, s.null_fourcc ? nullptr : &fourcc,
                    int(v[3]), {d, n, 0, 0}};
            else if (c.type == CODEC_UTIL_TYPE_VOIBIS)
                p.vorbis = {d, n, nullptr, nullptr, nullptr};
            else if (s.args.find(':') == std::string::npos)
                p.vp9 = {int(v[0]), int(v[1]), int(v[2])};
            else
                p.data = {d, n};
            out << int(Zarn_CodecUtil_SetParam(h, s.args == "null" ? nullptr : &p)) << " c"
                << int(Zarn_CodecUtil_CheckConv(h));
            // A converter that needs codec data later keeps its own copy.
            if (c.type != CODEC_UTIL_TYPE_VOIBIS) std::fill(b.begin(), b.end(), 0xCC);
        } else if (op == "push") {  // time stamp, flag : unit
            if (i == stop && left != 0) ring.set_wp(c.cap - left);
            CodecUtilBuffer_t buf{d, n, static_cast<zarn_uint64>(v[0]),
                                  static_cast<zarn_uint32>(v[1])};
            const int requests = ring.requests;
            zarn_uint32 size = kUnchanged;
            zarn_uint8* ret = Zarn_CodecUtil_ConvPushBuffer(h, ring.stream(), &buf, &size);
            const bool wrote = ret != nullptr && ret != d;
            out << (ret == nullptr ? "null " : wrote ? "out " : "back ");
            (size == kUnchanged ? out << '-' : out << size);
            out << " r" << ring.requests - requests << " c" << int(Zarn_CodecUtil_CheckConv(h));
            if (wrote) {
                const Bytes o = ring.take(ret, size);
                uint64_t fnv = 14695981039346656037ull;
                for (uint8_t x : o) fnv = (fnv ^ x) * 1099511628211ull;
                if (o.size() > 96) out << " #" << std::hex << fnv << std::dec;
                out << " : " << hex(o, 96);
            }
        } else if (op == "refuse") {
            ring.refuse = int(v[0]);
        } else if (op == "bad") {
            ring.bad = int(v[0]);
        } else if (op == "fail") {
            mem.fail_at(int(v[0]));
        } else if (op == "log") {  // level and count of the lines holding the text
            out << log.level_of(s.args) << " x" << log.count(s.args);
        } else if (op == "asc") {  // bits to decode, start offset, bytes held : config
            AACPLUSDEC_BITSTREAMBUFFERINFO info{d, n, v[2] != 0 ? unsigned(v[2]) : n,
                                                unsigned(v[1])};
            tAudioSpecificConfig a{};
            const unsigned bits = v[0] != 0 ? unsigned(v[0]) : n * 8;
            const eTrnsptError r = zarn_trnsptReadASConfig(&info, bits, &a);
            out << r << " used" << info.nBitsOffset;  // the fields only when parsed
            if (r == eTrnsptOK)
                out << " aot" << a.eAudioObjectType << " " << a.nSamplingFrequency << " "
                    << a.nExtensionSamplingFrequency << " ch" << int(a.ucChannelConfiguration)
                    << " sbr" << int(a.bSbrPresent) << " ext" << a.eExtensionAOT << " frame"
                    << a.GASConfig.nFrameLength << " core" << int(a.GASConfig.bDependsOnCoreCoder)
                    << "/" << a.GASConfig.nCoreCoderDelay << " x"
                    << int(a.GASConfig.ucExtensionFlag) << " pce" << int(a.GASConfig.bPCEPresent);
        } else if (op == "adts") {  // frame length, config length (0: all), 1: no header : config
            Bytes header(7, 0xEE);
            out << zarn_trnsptRead(d, v[1] != 0 ? int(v[1]) : int(n),
                                   v[2] != 0 ? nullptr : header.data(), int(v[0]))
                << " : " << hex(header);
        } else if (op == "defasc") {  // rate, channels, object type
            tAudioSpecificConfig a{};
            out << zarn_trnsptInitDefaultASC(&a, uint32_t(v[0]), int(v[1]), tAudioObjectType(v[2]))
                << " " << a.nSamplingFrequency << " ch" << int(a.ucChannelConfiguration);
        } else if (op == "adtslen") {  // frame length : header
            SetATDSLen(d, int(v[0]));
            out << hex(b);
        } else if (op == "isadts") {  // length : unit
            out << int(AdtsHeaderIsAdded(d, int(v[0])));
        } else {  // the bit buffer; its area stays the one given at creation
            long long value = 0;
            if (op == "bbw") CreateBitBuffer(&bb, d, unsigned(v[0]));
            if (op == "bb") CreateInitializedBitBuffer(&bb, d, unsigned(v[0]));
            if (op == "bbo")
                CreateInitializedOffsetBitBuffer(&bb, d, unsigned(v[0]), unsigned(v[1]));
            if (op[0] == 'b' && op[1] == 'b') area = &b;
            if (op == "rd") value = ReadBits(&bb, uint8_t(v[0]));
            if (op == "wr") value = WriteBits(&bb, uint32_t(v[0]), uint8_t(v[1]));
            if (op == "wind") WindBitBufferBidirectional(&bb, int32_t(v[0]));
            if (op == "reset") ResetBitBuffer(&bb);
            if (op == "align") value = AlignBits(&bb);
            zarn_sint32 anchor = static_cast<zarn_sint32>(v[0]);
            if (op == "balign") ByteAlign(&bb, &anchor), value = anchor;
            out << std::hex << value << std::dec << " p" << (bb.pReadNext - area->data()) << " b"
                << bb.rBitPos << " c" << int(bb.rCache) << " n" << GetBitsInBuf(&bb) << " u"
                << bb.cntReadBits << " e" << (bb.status & BIT_BUF_STATUS_ERROR) << " : "
                << hex(*area);
        }
        results.push_back(out.str());
    }
    Zarn_CodecUtil_Destroy(h);
    EXPECT_EQ(mem.live(), 0) << "leak in the case at line " << c.steps[0].line + 1;
    return results;
}

TEST(Vectors, EveryCaseGivesItsResultsAtEveryWrapOffset) {
    const std::string path = std::string(UNIT_DATA_DIR) + "/vectors.txt";
    std::ifstream in(path);
    ASSERT_TRUE(in) << path;
    std::vector<std::string> lines;
    std::vector<Case> cases;
    for (std::string l; std::getline(in, l);) {
        lines.push_back(l);
        std::istringstream words(l);
        std::string op, args;
        words >> op;
        std::getline(words >> std::ws, args);
        if (op.empty() || op[0] == '#') continue;
        if (op == "case") {  // type (or -), ring capacity
            cases.emplace_back();
            std::istringstream a(args);
            std::string type;
            uint32_t cap = 0;
            a >> type >> cap;
            if (cap != 0) cases.back().cap = cap;
            for (int t = 0; t < 12; ++t)
                if (type == kTypes[t]) cases.back().type = t;
        } else if (op == "=") {
            cases.back().steps.back().want = args;
        } else {
            cases.back().steps.push_back(parse(op, args, lines.size() - 1));
        }
    }
    const bool update = std::getenv("CODECUTIL_UPDATE_VECTORS") != nullptr;
    std::vector<std::string> got_at(lines.size());
    for (const Case& c : cases) {
        const std::vector<std::string> want = run(c);
        for (size_t i = 0; i < c.steps.size(); ++i) {
            got_at[c.steps[i].line] = want[i];
            if (!update) {
                EXPECT_EQ(want[i], c.steps[i].want) << path << ":" << c.steps[i].line + 1;
            }
        }
        for (size_t k = 0; k < c.steps.size(); ++k) {
            if (c.steps[k].op != "push" || want[k].rfind("out", 0) != 0) continue;
            const auto size = static_cast<uint32_t>(std::stoul(want[k].substr(4)));
            for (uint32_t left = 1; left < size && size < 1100; ++left) {
                const std::vector<std::string> got = run(c, k, left);
                ASSERT_EQ(got[k], want[k]) << path << ":" << c.steps[k].line + 1 << " at " << left;
            }
        }
    }
    if (!update) return;
    std::ofstream o(path);
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].rfind("= ", 0) == 0 || lines[i] == "=") continue;
        o << lines[i] << "\n";
        if (!got_at[i].empty()) o << "= " << got_at[i] << "\n";
    }
}

}  // namespace
