// Helpers shared by the AVC and HEVC SPS/SEI parsers: Exp-Golomb codes on
// top of the bit reader, emulation-prevention removal, SEI byte-run coding,
// payload-type names, the counter getters and the registry set-up.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <type_traits>

#include "codec_util_lock.h"
#include "edr_debug.h"
#include "io_buffer.h"
#include "parser_common.h"
#include "sei_sps_parser.h"

static_assert(std::is_standard_layout_v<parser_t>);
static_assert(offsetof(parser_t, parse_sps) == 0);
static_assert(offsetof(parser_t, parser_reset) == 11 * sizeof(void*));
static_assert(offsetof(parser_t, nal_type_aud) == 12 * sizeof(void*));
static_assert(offsetof(parser_t, nal_type_idr) == 12 * sizeof(void*) + 4 * sizeof(int));
static_assert(offsetof(parser_t, bp_num) == 12 * sizeof(void*) + 5 * sizeof(int));
static_assert(offsetof(parser_t, sei_timing_num_sub) == 12 * sizeof(void*) + 7 * sizeof(int));
static_assert(sizeof(parser_t) == 12 * sizeof(void*) + 8 * sizeof(int));

extern "C" {
VES_API int edr_debug_level = 0;
VES_API FILE* edr_debug_file = nullptr;
}

codecutil::PlainMutex& vesparser::edr_debug_mutex() {
    static codecutil::PlainMutex m;
    return m;
}

namespace {

// Leading zero bits of each byte value in an 8-bit byte.
constexpr auto eg_lzb_tbl = [] {
    std::array<uint8_t, 256> t{};
    for (int v = 0; v < 256; ++v) {
        uint8_t n = 0;
        for (int bit = 7; bit >= 0 && ((v >> bit) & 1) == 0; --bit) ++n;
        t[static_cast<size_t>(v)] = n;
    }
    return t;
}();
static_assert(eg_lzb_tbl[0] == 8 && eg_lzb_tbl[1] == 7 && eg_lzb_tbl[3] == 6 &&
              eg_lzb_tbl[127] == 1 && eg_lzb_tbl[128] == 0);

// H.264 Annex D payload types 0 to 18.
constexpr const char* sei_payloadType_tbl[19] = {
    "buffering_period",
    "pic_timing",
    "pan_scan_rect",
    "filler_payload",
    "user_data_registered_itu_t_t35",
    "user_data_unregistered",
    "recovery_point",
    "dec_ref_pic_marking_repetition",
    "spare_pic",
    "scene_info",
    "sub_seq_info",
    "sub_seq-layer_characteristics",  // required as is
    "sub_seq_characteristics",
    "full_frame_freeze",
    "full_frame_freeze_release",
    "full_frame_snapshot",
    "progressive_refinement_segment_start",
    "progressive_refinement_segment_end",
    "motioned_constrained_slice_group_set",  // required as is
};

constexpr uint32_t kBadUe = 0xFFFFFFFFu;

}  // namespace

extern "C" {

// Exp-Golomb, byte-wise: whole zero bytes are counted with peeks, the leading
// zeros of the first non-zero byte come from eg_lzb_tbl, and the marker with
// its information bits is read in one call of at most 32 bits.
VES_API uint32_t read_ue(bbio_handle_t bs) {
    uint64_t zeros = 0;
    uint32_t index = 0;
    uint32_t tail_bits = 0;  // bits left when no whole byte remains
    for (;;) {
        if (bs->is_more_byte == nullptr || !bs->is_more_byte(bs)) {
            const int64_t n = src_following_bit_num(bs);
            tail_bits = static_cast<uint32_t>(n < 0 ? 0 : (n > 8 ? 8 : n));
            if (tail_bits != 0)
                index = (src_peek_bits(bs, tail_bits, 0) << (8 - tail_bits)) & 0xFFu;
            break;
        }
        index = src_peek_bits(bs, 8, 0);
        if (index != 0) break;
        zeros += 8;
        src_skip_bits(bs, 8);
    }
    if (index == 0) {
        // No marker bit before the end of the data: the code is cut off.
        src_skip_bits(bs, tail_bits);
        return kBadUe;
    }
    const uint32_t lead = eg_lzb_tbl[index];
    src_skip_bits(bs, lead);
    const uint64_t total = zeros + lead;
    if (total > 31) {
        // 2^32 - 1 and above do not fit: skip marker and information bits.
        src_skip_bits(bs, static_cast<uint32_t>(total + 1 > UINT32_MAX ? UINT32_MAX : total + 1));
        return kBadUe;
    }
    return src_read_bits(bs, static_cast<uint32_t>(total) + 1) - 1;
}

VES_API uint32_t src_read_ue(bbio_handle_t bs) { return read_ue(bs); }

VES_API int32_t read_se(bbio_handle_t bs) {
    const uint64_t k = read_ue(bs);
    if (k & 1) return static_cast<int32_t>((k + 1) / 2);
    return static_cast<int32_t>(-static_cast<int64_t>(k / 2));
}

VES_API void read_0_bits(bbio_handle_t bs, int count) {
    if (count <= 0) return;
    const uint32_t v = src_read_bits(bs, static_cast<uint32_t>(count));
    if (v != 0)
        EDR_LOG(kEdrDebug, "%s:%d DEBUG: field error - %d bits should be 0 but get %x\n\n", count,
                v);
}

// H.264 7.4.1: 00 00 03 loses its 03 whatever follows; the two zeros written
// for it are not looked at again.
VES_API void parser_remove_0x03(uint8_t* dst, size_t* dstlen, const uint8_t* src,
                                const size_t srclen) {
    size_t i = 0;
    size_t o = 0;
    if (srclen >= 3) {
        while (i < srclen - 2) {
            if (src[i] == 0 && src[i + 1] == 0 && src[i + 2] == 3) {
                dst[o++] = 0;
                dst[o++] = 0;
                i += 3;
            } else {
                dst[o++] = src[i++];
            }
        }
    }
    while (i < srclen) dst[o++] = src[i++];
    *dstlen = o;
}

// H.264 7.3.2.3.1 ff_byte runs. Past the end of the data the reader yields 0,
// which ends the run.
VES_API uint32_t read_sei_tv(bbio_handle_t ds, uint32_t* size) {
    uint32_t sum = 0;
    uint32_t bytes = 0;
    for (;;) {
        const uint8_t b = src_read_u8(ds);
        ++bytes;
        if (b != 0xFF) {
            sum += b;
            break;
        }
        sum += 255;
    }
    if (size != nullptr) *size = bytes;
    return sum;
}

VES_API const char* get_sei_payloadType_dscr(uint8_t type) {
    if (type > 18) return "not care";  // required as is
    return sei_payloadType_tbl[type];
}

VES_API int32_t parser_get_bp_num(parser_handle_t parser) {
    return parser != nullptr ? parser->bp_num : 0;
}

VES_API int32_t parser_get_sei_timing_num(parser_handle_t parser) {
    return parser != nullptr ? parser->sei_timing_num : 0;
}

// Emptying and refilling happen under the registry lock as one step, so a
// parser created on another thread meanwhile never finds the table empty.
VES_API void parser_env_init(void) {
    const std::lock_guard<codecutil::RecursiveMutex> lock(vesparser::registry_mutex());
    reg_bbio_init();
    bbio_buf_reg();
}

}  // extern "C"

namespace vesparser {

[[noreturn]] void end_process(int status) { std::exit(status); }

bool nal_fits(const uint8_t* nal_buf, int32_t nal_size, int32_t startcode_len, uint32_t hdr_len) {
    return nal_buf != nullptr && startcode_len >= 0 &&
           static_cast<int64_t>(nal_size) >= static_cast<int64_t>(startcode_len) + hdr_len;
}

size_t load_rbsp(bbio_handle_t dsb, uint8_t* rbsp, const uint8_t* payload, uint32_t payload_len) {
    const uint32_t in = payload_len > kMaxRbsp ? kMaxRbsp : payload_len;
    size_t out = 0;
    parser_remove_0x03(rbsp, &out, payload, in);
    if (out != 0) dsb->set_buffer(dsb, rbsp, out, 0);
    // A new RBSP starts on a byte boundary, whatever an earlier parse left.
    src_byte_align(dsb);
    return out;
}

int32_t walk_sei_messages(const char* func, const SeiNal& nal, uint8_t* rbsp, size_t* rbsp_size,
                          bbio_handle_t dsb, SeiHandler handler, void* ctx) {
    int32_t nal_size = nal.nal_size;
    while (nal_size > 0 && nal.nal_buf[nal_size - 1] == 0) --nal_size;
    if (!nal_fits(nal.nal_buf, nal_size, nal.startcode_len, nal.hdr_len)) {
        EDR_LOG_AS(func, kEdrWarning, "%s:%d WARNING: Error decoding sei message\n\n");
        return -1;
    }
    const uint32_t payload_len =
        static_cast<uint32_t>(nal_size) - static_cast<uint32_t>(nal.startcode_len) - nal.hdr_len;
    *rbsp_size =
        load_rbsp(dsb, rbsp, nal.nal_buf + static_cast<uint32_t>(nal.startcode_len) + nal.hdr_len,
                  payload_len);
    const uint64_t size = *rbsp_size;
    EDR_LOG_AS(func, kEdrDebug, "%s:%d DEBUG:    total SEI msg RBSP len %u\n\n",
               static_cast<unsigned>(size));

    uint64_t end = 0;
    if (size > 2) {
        uint64_t start = 0;
        do {
            uint32_t t = 0;
            uint32_t s = 0;
            const uint32_t type = read_sei_tv(dsb, &t);
            EDR_LOG_AS(func, kEdrDebug,
                       "%s:%d DEBUG:    sei payloadType %u(%s)(field size %u) @offset %d\n\n", type,
                       get_sei_payloadType_dscr(static_cast<uint8_t>(type)), t,
                       static_cast<int>(start));
            const uint32_t payload_size = read_sei_tv(dsb, &s);
            end = start + t + s + payload_size;
            EDR_LOG_AS(func, kEdrDebug,
                       "%s:%d DEBUG:    sei payloadSize %u(field size %u) %d bytes sei left\n\n",
                       payload_size, s, static_cast<int>(static_cast<int64_t>(size - end)));
            if (end >= size) {
                if (payload_len > kMaxRbsp) return 0;  // cut by the RBSP limit, not malformed
                EDR_LOG_AS(func, kEdrWarning, "%s:%d WARNING: Error decoding sei message\n\n");
                return -1;
            }
            if (!handler(ctx, type, start)) return -1;
            src_byte_align(dsb);
            (void)dsb->seek(dsb, static_cast<int64_t>(end), 0);
            start = end;
        } while (end + 2 < size);
    }
    if (size <= end) end_process(1001);
    if (end + 1 == size && rbsp[end] == 0x80) {
        EDR_LOG_AS(func, kEdrDebug, "%s:%d DEBUG: get trailing in SEI\n\n");
        return 0;
    }
    EDR_LOG_AS(func, kEdrWarning, "%s:%d WARNING: Error decoding sei message\n\n");
    return -1;
}

}  // namespace vesparser
