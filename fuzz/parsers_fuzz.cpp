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
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <vector>

#include "exit_guard.h"
#include "fuzz_reader.h"
#include "io_base.h"
#include "registry.h"
#include "sei_sps_parser.h"
#include "vessplitter.h"
#include "zarn_codec_util_aac.h"
#include "zarn_codec_util_bitbuf.h"
#include "zarn_debug.h"

namespace {

using fuzzinput::Reader;

void check(bool ok) {
    if (!ok) __builtin_trap();
}

// ---- SPS/SEI parsers -----------------------------------------------------

// Whether parsing `nal` would end the process (see sei_sps_parser.h).
bool would_exit(const std::vector<uint8_t>& nal, int startcode, int hdr, bool sei, bool avc) {
    if (sei) {
        size_t n = nal.size();
        while (n > 0 && nal[n - 1] == 0) --n;
        return n == static_cast<size_t>(startcode + hdr);
    }
    if (!avc || nal.size() <= static_cast<size_t>(startcode + hdr)) return false;
    std::vector<uint8_t> rbsp(nal.size());
    size_t len = 0;
    parser_remove_0x03(rbsp.data(), &len, nal.data() + startcode + hdr,
                       nal.size() - startcode - hdr);
    const uint8_t profile = len > 0 ? rbsp[0] : 0;
    const uint8_t level = len > 2 ? rbsp[2] : 0;
    return (profile == 128 || profile == 134) && level != 40 && level != 41;
}

void fuzz_parser(Reader& in, bool avc) {
    parser_env_init();
    const uint8_t flags = in.u8();
    parser_handle_t p = avc ? avc_parser_create(flags & 1, (flags >> 1) & 1)
                            : hevc_parser_create(flags & 1, (flags >> 1) & 1);
    check(p != nullptr);
    const int hdr = avc ? 1 : 2;
    while (!in.empty()) {
        const uint8_t op = in.u8();
        if ((op & 0xF0) == 0xF0) {
            p->parser_reset(p);
            check(p->bp_num == 0 && p->sei_timing_num == 0);
            continue;
        }
        const bool sei = (op & 1) != 0;
        const int startcode = (op & 2) != 0 ? 4 : 3;
        std::vector<uint8_t> nal(static_cast<size_t>(startcode - 1), 0);
        nal.push_back(1);
        if (avc) {
            nal.push_back(sei ? 0x06 : 0x67);
        } else {
            nal.push_back(sei ? 0x4E : 0x42);
            nal.push_back(0x01);
        }
        const std::vector<uint8_t> payload = in.bytes(in.u16() & 0x7FF);
        nal.insert(nal.end(), payload.begin(), payload.end());
        if (would_exit(nal, startcode, hdr, sei, avc)) continue;
        const int bp = p->bp_num;
        {
            ExitGuard guard;
            try {
                const auto size = static_cast<int32_t>(nal.size());
                const int32_t r = sei ? p->parse_sei_messages(nal.data(), size, startcode, p)
                                      : p->parse_sps(nal.data(), size, startcode, p);
                check(sei ? (r == 0 || r == -1) : (r == 0 || r == 1));
            } catch (const ProcessExit&) {
                check(false);  // an exit the prediction missed
            }
        }
        check(p->bp_num >= bp);
        (void)p->parser_get_num_reorder_frames(p);
        (void)p->parser_get_dpb_output_time(p, op >> 2);
        (void)p->parser_get_cts_offset_ticks(p);
        (void)p->parser_get_cts_offset_frames(p);
        (void)p->parser_get_num_units_in_tick(p);
        (void)p->parser_get_time_scale(p);
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
    std::vector<uint8_t> area = in.bytes(in.u8());
    if (area.empty()) return;
    const auto bits = static_cast<uint32_t>(area.size() * 8 - (mode >> 5));
    if (offset / 8 >= area.size()) return;
    BIT_BUF b;
    if ((mode & 1) != 0)
        CreateInitializedOffsetBitBuffer(&b, area.data(), bits, offset);
    else
        CreateBitBuffer(&b, area.data(), bits);
    std::vector<uint8_t> copy_area(area.size());
    BIT_BUF copy;
    CreateBitBuffer(&copy, copy_area.data(), bits);
    zarn_sint32 align_ref = b.cntBits;
    while (!in.empty()) {
        const uint8_t op = in.u8();
        // 33 trips the assertion, which goes on (after a slow back-trace).
        const uint8_t n = in.u8() % 34;
        switch (op % 8) {
            case 0: {
                const zarn_sint32 before = b.cntBits;
                (void)ReadBits(&b, n);
                check(n > before ? b.cntBits == before : b.cntBits < before || n == 0);
                break;
            }
            case 1: {
                const uint32_t lo = in.u16();
                const uint32_t hi = in.u16();
                WriteBits(&b, lo | (hi << 16), n);
                break;
            }
            case 2:
                ByteAlign(&b, &align_ref);
                break;
            case 3:
                (void)AlignBits(&b);
                break;
            case 4:
                WindBitBufferBidirectional(&b, static_cast<int16_t>(in.u16()));
                break;
            case 5:
                CopyBitBufAll(&b, &copy);
                check_inside(copy);
                (void)ReadBits(&copy, n);
                break;
            case 6:
                ResetBitsRead(&b);
                break;
            default:
                (void)GetBitsInBuf(&b);
                break;
        }
        check_inside(b);
    }
}

// ---- AAC helpers ---------------------------------------------------------

void fuzz_aac(Reader& in) {
    const uint8_t idx = in.u8();
    const zarn_uint32 freq = zarn_trnsptIndexToFrequency(idx & 15);
    check((idx & 15) > 12 ? freq == 0 : FindAdtsSRIndex(static_cast<int>(freq)) == (idx & 15));
    const int framelen = in.u16() & 0x1FFF;
    const uint32_t bit_offset = in.u8() & 7;
    std::vector<uint8_t> asc = in.bytes(in.left());
    if (asc.empty()) return;
    unsigned char adts[ADTS_HEADER_SIZE] = {};
    const eTrnsptError r =
        zarn_trnsptRead(asc.data(), static_cast<int>(asc.size()), adts, framelen);
    if (r == eTrnsptOK && framelen + ADTS_HEADER_SIZE <= 0x1FFF)
        check(AdtsHeaderIsAdded(adts, framelen + ADTS_HEADER_SIZE) != FALSE);
    AACPLUSDEC_BITSTREAMBUFFERINFO info{asc.data(), static_cast<unsigned>(asc.size()),
                                        static_cast<unsigned>(asc.size()), bit_offset};
    tAudioSpecificConfig cfg;
    if (zarn_trnsptReadASConfig(&info, static_cast<unsigned>(asc.size() * 8), &cfg) == eTrnsptOK) {
        check(info.nBitsOffset > bit_offset && info.nBitsOffset <= asc.size() * 8);
        MakeAdtsHeader(&cfg, adts, framelen);
        SetATDSLen(adts, framelen + 3);
    }
}

// ---- Bit/byte I/O and registry --------------------------------------------

void check_position(bbio_handle_t io, size_t size) {
    const int64_t pos = io->position(io);
    check(pos >= 0 && static_cast<uint64_t>(pos) <= size);
    check(src_following_bit_num(io) ==
          (static_cast<int64_t>(size) - pos) * 8 + src_bits_cached(io));
}

void fuzz_io(Reader& in) {
    parser_env_init();
    const uint8_t letters = in.u8();
    const char dev = (letters & 1) != 0 ? 'x' : 'b';
    const char mode = "rwer"[(letters >> 1) & 3];
    bbio_t* probe = reg_bbio_get(dev, mode);
    check((probe != nullptr) == (dev == 'b' && mode != 'e'));
    if (probe != nullptr) probe->destroy(probe);

    // Parser constructors by name, ignoring case.
    static char kAvc[] = "AVC";
    reg_parser_init();
    reg_parser_set(kAvc, [](uint32_t) { return avc_parser_create(1, 1); });
    const char* names[] = {"avc", "AvC", "hevc", "AV"};
    const char* name = names[(letters >> 3) & 3];
    parser_handle_t parser = reg_parser_get(name, 0);
    check((parser != nullptr) == (((letters >> 3) & 3) < 2));
    if (parser != nullptr) parser->parser_destroy(parser);

    // The write device collects what is written, growing as needed.
    bbio_t* w = reg_bbio_get('b', 'w');
    check(w != nullptr);
    w->set_buffer(w, nullptr, in.u8(), 1);
    std::vector<uint8_t> written;
    for (int i = in.u8() & 3; i > 0; --i) {
        const std::vector<uint8_t> run = in.bytes(in.u8());
        check(w->write(w, run.data(), run.size()) == run.size());
        written.insert(written.end(), run.begin(), run.end());
    }
    size_t data_size = 0;
    uint8_t* block = w->get_buffer(w, &data_size, nullptr);
    check(data_size == written.size() &&
          (written.empty() || std::memcmp(block, written.data(), data_size) == 0));
    std::free(block);
    w->destroy(w);

    std::vector<uint8_t> data = in.bytes(in.u8() + 1);
    if (data.empty()) return;
    bbio_t* r = reg_bbio_get('b', 'r');
    check(r != nullptr);
    r->set_buffer(r, data.data(), data.size(), 0);
    while (!in.empty()) {
        const uint8_t op = in.u8();
        const uint8_t n = in.u8();
        switch (op % 12) {
            case 0:
                (void)src_read_bits(r, n % 41);
                break;
            case 1:
                (void)src_read_u8(r);
                break;
            case 2:
                (void)src_read_u16(r);
                break;
            case 3:
                (void)src_read_u24(r);
                break;
            case 4:
                (void)src_read_u32(r);
                break;
            case 5:
                (void)src_read_u64(r);
                break;
            case 6:
                (void)read_ue(r);
                break;
            case 7:
                (void)read_se(r);
                break;
            case 8: {
                const int64_t before = src_following_bit_num(r);
                const uint32_t v = src_peek_bits(r, n % 33, static_cast<int8_t>(in.u8()) % 4);
                check(src_following_bit_num(r) == before || v == 0xFFFFFFFF);
                break;
            }
            case 9:
                src_skip_bits(r, n * 3u);
                break;
            case 10:
                (void)r->seek(r, static_cast<int8_t>(n), in.u8() % 3);
                break;
            default: {
                std::vector<uint8_t> out(n % 16);
                check(r->read(r, out.data(), out.size()) <= out.size());
                src_byte_align(r);
                uint32_t field = 0;
                (void)read_sei_tv(r, &field);
                break;
            }
        }
        check_position(r, data.size());
    }
    r->destroy(r);
}

// ---- Mirror buffer ---------------------------------------------------------

void fuzz_mirror(Reader& in) {
    mirror_buffer m{};
    if (mirror_buffer_alloc(&m, 1 + in.u16() % 20000) < 0) return;
    std::deque<uint8_t> model;
    uint64_t consumed = 0;
    const auto inside = [&](const void* p, int len) {
        const auto* b = static_cast<const uint8_t*>(m.start);
        const auto* q = static_cast<const uint8_t*>(p);
        return q >= b && q + len <= b + 2 * static_cast<size_t>(m.size);
    };
    while (!in.empty()) {
        const uint8_t op = in.u8();
        const int len = in.u16() % (m.size + 2);
        switch (op % 4) {
            case 0: {
                const int room = m.size - m.len;
                std::vector<uint8_t> run = in.bytes(static_cast<size_t>(len < room ? len : room));
                check(mirror_buffer_append(&m, run.data(), static_cast<int>(run.size())) ==
                      static_cast<int>(model.size() + run.size()));
                model.insert(model.end(), run.begin(), run.end());
                break;
            }
            case 1: {
                const auto* p = static_cast<const uint8_t*>(mirror_buffer_peek(&m, len));
                check((p != nullptr) == (static_cast<size_t>(len) <= model.size()));
                if (p != nullptr) {
                    check(inside(p, len));
                    check(std::equal(p, p + len, model.begin()));
                }
                break;
            }
            case 2: {
                const auto* p = static_cast<const uint8_t*>(mirror_buffer_flush(&m, len));
                check((p != nullptr) == (static_cast<size_t>(len) <= model.size()));
                if (p != nullptr) {
                    check(inside(p, len) && std::equal(p, p + len, model.begin()));
                    model.erase(model.begin(), model.begin() + len);
                    consumed += static_cast<uint64_t>(len);
                }
                break;
            }
            default: {
                const int want = 1 + len * 4;
                if (mirror_buffer_relloc(&m, want) < 0) break;
                if (model.size() > static_cast<size_t>(m.size))
                    model.resize(static_cast<size_t>(m.size));
                break;
            }
        }
        check(m.len == static_cast<int>(model.size()) && m.pos == consumed);
    }
    mirror_buffer_free(&m);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Failed assertions go on, as on a device without the abort request;
    // every diagnostic is formatted and dropped.
    static const bool set_up = [] {
        vxm_sys_request_assert = 0;
        edr_debug_level = 5;
        edr_debug_file = std::fopen("/dev/null", "w");
        return true;
    }();
    (void)set_up;
    if (size < 1) return 0;
    Reader in(data + 1, size - 1);
    switch (data[0] % 6) {
        case 0:
            fuzz_parser(in, true);
            break;
        case 1:
            fuzz_parser(in, false);
            break;
        case 2:
            fuzz_bitbuf(in);
            break;
        case 3:
            fuzz_aac(in);
            break;
        case 4:
            fuzz_io(in);
            break;
        default:
            fuzz_mirror(in);
            break;
    }
    return 0;
}
