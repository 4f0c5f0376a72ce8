// The splitter's building blocks and the AAC helpers, one per value of byte 0:
//   0, 1  AVC / HEVC SPS and SEI parser: a schedule of SPS and SEI NAL units
//         (3- or 4-byte start code), resets and timing queries
//   2     the circular bit buffer: reads, writes, alignment, winding, copies
//   3     the AAC helpers: AudioSpecificConfig to ADTS header
//   4     the bit/byte reader over the memory device, the device registry and
//         the write device
//   5     the mirror buffer against a plain byte queue
// Every NAL unit and byte run is an exact-size copy, so ASan sees a read past
// it. The two process exits of the parsers are predicted from the NAL unit
// and not run; one that happens anyway is a finding.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>

#include "exit_guard.h"
#include "fuzz_input.h"
#include "vessplitter.h"
#include "zarn_codec_util_aac.h"
#include "zarn_debug.h"

namespace {

using fuzzinput::Bytes;
using fuzzinput::check;
using fuzzinput::Reader;

// ---- SPS/SEI parsers -----------------------------------------------------

// Whether parsing the NAL unit would end the process (sei_sps_parser.h): an
// SEI with an empty RBSP, an AVC SPS of profile 128/134 at a level other
// than 40/41 (no emulation prevention byte can come before the level there).
bool would_exit(const Bytes& payload, bool sei, bool avc) {
    if (sei) return std::all_of(payload.begin(), payload.end(), [](uint8_t b) { return b == 0; });
    const int level = payload.size() > 2 ? payload[2] : 0;
    return avc && !payload.empty() && (payload[0] == 128 || payload[0] == 134) && level != 40 &&
           level != 41;
}

template <bool avc>
void fuzz_parser(Reader& in) {
    parser_env_init();
    const uint8_t flags = in.u8();
    parser_handle_t p = (avc ? avc_parser_create : hevc_parser_create)(flags & 1, (flags >> 1) & 1);
    while (!in.empty()) {
        const uint8_t op = in.u8();
        if ((op & 0xF0) == 0xF0) {
            p->parser_reset(p);
            check(p->bp_num == 0 && p->sei_timing_num == 0);
            continue;
        }
        const bool sei = (op & 1) != 0;
        const int startcode = (op & 2) != 0 ? 4 : 3;
        const Bytes payload = in.bytes(in.u16() & 0x7FF);
        if (would_exit(payload, sei, avc)) continue;
        const int type = avc ? (sei ? 0x06 : 0x67) : (sei ? 0x4E : 0x42);
        const uint8_t head[] = {0, 0, 0, 1, static_cast<uint8_t>(type), 1};
        Bytes nal(head + 4 - startcode, head + (avc ? 5 : 6));
        nal.insert(nal.end(), payload.begin(), payload.end());
        nal.shrink_to_fit();
        const int bp = p->bp_num;
        const auto size = static_cast<int32_t>(nal.size());
        // An exit the prediction missed throws out of the target: a crash.
        const ExitGuard guard;
        const int32_t r = sei ? p->parse_sei_messages(nal.data(), size, startcode, p)
                              : p->parse_sps(nal.data(), size, startcode, p);
        check(sei ? (r == 0 || r == -1) : (r == 0 || r == 1));
        check(p->bp_num >= bp);
        (void)(p->parser_get_num_reorder_frames(p) + p->parser_get_dpb_output_time(p, op >> 2) +
               p->parser_get_cts_offset_ticks(p) + p->parser_get_cts_offset_frames(p) +
               p->parser_get_num_units_in_tick(p) + p->parser_get_time_scale(p));
    }
    p->parser_destroy(p);
}

// ---- Bit buffer ----------------------------------------------------------

void check_inside(const BIT_BUF& b) {
    if (b.size == 0 || b.pBitBufBase > b.pBitBufEnd) return;
    check(b.pReadNext >= b.pBitBufBase && b.pReadNext <= b.pBitBufEnd);
    check(b.pWriteNext >= b.pBitBufBase && b.pWriteNext <= b.pBitBufEnd);
}

void fuzz_bitbuf(Reader& in) {
    const uint8_t mode = in.u8();
    const uint32_t offset = in.u8();
    Bytes area = in.bytes(in.u8());
    if (area.empty() || offset / 8 >= area.size()) return;
    const auto bits = static_cast<uint32_t>(area.size() * 8 - (mode >> 5));
    Bytes copy_area(area.size());
    BIT_BUF b, copy;
    if ((mode & 1) != 0)
        CreateInitializedOffsetBitBuffer(&b, area.data(), bits, offset);
    else
        CreateBitBuffer(&b, area.data(), bits);
    CreateBitBuffer(&copy, copy_area.data(), bits);
    zarn_sint32 align_ref = b.cntBits;
    const std::function<void(uint8_t)> ops[] = {
        [&](uint8_t n) {
            const zarn_sint32 before = b.cntBits;
            (void)ReadBits(&b, n);
            check(n > before ? b.cntBits == before : b.cntBits < before || n == 0);
        },
        [&](uint8_t n) { WriteBits(&b, in.u32(), n); },
        [&](uint8_t) { ByteAlign(&b, &align_ref); },
        [&](uint8_t) { (void)AlignBits(&b); },
        [&](uint8_t) { WindBitBufferBidirectional(&b, static_cast<int16_t>(in.u16())); },
        [&](uint8_t n) {
            CopyBitBufAll(&b, &copy);
            check_inside(copy);
            (void)ReadBits(&copy, n);
        },
        [&](uint8_t) { ResetBitsRead(&b); },
        [&](uint8_t) { (void)GetBitsInBuf(&b); },
    };
    while (!in.empty()) {
        // 33 trips the assertion, which goes on (after a slow back-trace).
        ops[in.u8() % 8](in.u8() % 34);
        check_inside(b);
    }
}

// ---- AAC helpers ---------------------------------------------------------

void fuzz_aac(Reader& in) {
    const uint8_t idx = in.u8() & 15;
    const zarn_uint32 freq = zarn_trnsptIndexToFrequency(idx);
    check(idx > 12 ? freq == 0 : FindAdtsSRIndex(static_cast<int>(freq)) == idx);
    const int framelen = in.u16() & 0x1FFF;
    const uint32_t bit_offset = in.u8() & 7;
    Bytes asc = in.bytes(in.left());
    if (asc.empty()) return;
    unsigned char adts[ADTS_HEADER_SIZE] = {};
    if (zarn_trnsptRead(asc.data(), static_cast<int>(asc.size()), adts, framelen) == eTrnsptOK &&
        framelen + ADTS_HEADER_SIZE <= 0x1FFF)
        check(AdtsHeaderIsAdded(adts, framelen + ADTS_HEADER_SIZE) != FALSE);
    const auto n = static_cast<unsigned>(asc.size());
    AACPLUSDEC_BITSTREAMBUFFERINFO info{asc.data(), n, n, bit_offset};
    tAudioSpecificConfig cfg;
    if (zarn_trnsptReadASConfig(&info, n * 8, &cfg) == eTrnsptOK) {
        check(info.nBitsOffset > bit_offset && info.nBitsOffset <= n * 8);
        MakeAdtsHeader(&cfg, adts, framelen);
        SetATDSLen(adts, framelen + 3);
    }
}

// ---- Bit/byte I/O and registry --------------------------------------------

void fuzz_io(Reader& in) {
    parser_env_init();
    const uint8_t letters = in.u8();
    bbio_t* probe = reg_bbio_get((letters & 1) != 0 ? 'x' : 'b', "rwer"[(letters >> 1) & 3]);
    if (probe != nullptr) probe->destroy(probe);

    // Parser constructors by name, ignoring case.
    static char kAvc[] = "AVC";
    reg_parser_init();
    reg_parser_set(kAvc, [](uint32_t) { return avc_parser_create(1, 1); });
    const char* names[] = {"avc", "AvC", "hevc", "AV"};
    parser_handle_t parser = reg_parser_get(names[(letters >> 3) & 3], 0);
    check((parser != nullptr) == (((letters >> 3) & 3) < 2));
    if (parser != nullptr) parser->parser_destroy(parser);

    // The write device collects what is written, growing as needed.
    bbio_t* w = reg_bbio_get('b', 'w');
    w->set_buffer(w, nullptr, in.u8(), 1);
    Bytes written;
    for (int i = in.u8() & 3; i > 0; --i) {
        const Bytes run = in.bytes(in.u8());
        check(w->write(w, run.data(), run.size()) == run.size());
        written.insert(written.end(), run.begin(), run.end());
    }
    size_t data_size = 0;
    uint8_t* block = w->get_buffer(w, &data_size, nullptr);
    check(data_size == written.size() && std::equal(written.begin(), written.end(), block));
    std::free(block);
    w->destroy(w);

    Bytes data = in.bytes(in.u8() + 1);
    if (data.empty()) return;
    bbio_t* r = reg_bbio_get('b', 'r');
    r->set_buffer(r, data.data(), data.size(), 0);
    const std::function<void(uint8_t)> ops[] = {
        [&](uint8_t n) { (void)src_read_bits(r, n % 41); },
        [&](uint8_t) { (void)src_read_u8(r); },
        [&](uint8_t) { (void)src_read_u16(r); },
        [&](uint8_t) { (void)src_read_u24(r); },
        [&](uint8_t) { (void)src_read_u32(r); },
        [&](uint8_t) { (void)src_read_u64(r); },
        [&](uint8_t) { (void)read_ue(r); },
        [&](uint8_t) { (void)read_se(r); },
        [&](uint8_t n) {
            const int64_t before = src_following_bit_num(r);
            const uint32_t v = src_peek_bits(r, n % 33, static_cast<int8_t>(in.u8()) % 4);
            check(src_following_bit_num(r) == before || v == 0xFFFFFFFF);
        },
        [&](uint8_t n) { src_skip_bits(r, n * 3u); },
        [&](uint8_t n) { (void)r->seek(r, static_cast<int8_t>(n), in.u8() % 3); },
        [&](uint8_t n) {
            Bytes out(n % 16);
            (void)r->read(r, out.data(), out.size());
            src_byte_align(r);
            uint32_t field = 0;
            (void)read_sei_tv(r, &field);
        },
    };
    while (!in.empty()) {
        ops[in.u8() % 12](in.u8());
        check(r->position(r) >= 0 && static_cast<uint64_t>(r->position(r)) <= data.size());
    }
    r->destroy(r);
}

// ---- Mirror buffer ---------------------------------------------------------

void fuzz_mirror(Reader& in) {
    mirror_buffer m{};
    if (mirror_buffer_alloc(&m, 1 + in.u16() % 20000) < 0) return;
    std::deque<uint8_t> model;
    uint64_t consumed = 0;
    // The first len bytes held: inside the double mapping and equal to the model's.
    const auto held = [&](const void* p, int len) {
        const auto* b = static_cast<const uint8_t*>(m.start);
        const auto* q = static_cast<const uint8_t*>(p);
        check((q != nullptr) == (static_cast<size_t>(len) <= model.size()));
        check(q == nullptr || (q >= b && q + len <= b + 2 * static_cast<size_t>(m.size) &&
                               std::equal(q, q + len, model.begin())));
        return q != nullptr;
    };
    while (!in.empty()) {
        const uint8_t op = in.u8();
        const int len = in.u16() % (m.size + 2);
        if (op % 4 == 0) {
            Bytes run = in.bytes(static_cast<size_t>(std::min(len, m.size - m.len)));
            check(mirror_buffer_append(&m, run.data(), static_cast<int>(run.size())) ==
                  static_cast<int>(model.size() + run.size()));
            model.insert(model.end(), run.begin(), run.end());
        } else if (op % 4 == 1) {
            held(mirror_buffer_peek(&m, len), len);
        } else if (op % 4 == 2) {
            if (held(mirror_buffer_flush(&m, len), len)) {
                model.erase(model.begin(), model.begin() + len);
                consumed += static_cast<uint64_t>(len);
            }
        } else if (mirror_buffer_relloc(&m, 1 + len * 4) >= 0 &&
                   model.size() > static_cast<size_t>(m.size)) {
            model.resize(static_cast<size_t>(m.size));
        }
        check(m.len == static_cast<int>(model.size()) && m.pos == consumed);
    }
    mirror_buffer_free(&m);
}

}  // namespace

// Failed assertions go on, as on a device without the abort request; every
// diagnostic is formatted and dropped.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vxm_sys_request_assert = 0;
    edr_debug_level = 5;
    edr_debug_file = std::fopen("/dev/null", "w");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr void (*kParts[])(Reader&) = {
        fuzz_parser<true>, fuzz_parser<false>, fuzz_bitbuf, fuzz_aac, fuzz_io, fuzz_mirror};
    Reader in(data, size);
    if (size > 0) kParts[in.u8() % 6](in);
    return 0;
}
