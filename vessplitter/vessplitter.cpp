// Dual-layer EDR video splitter: input ring, lifecycle, codec data, the push
// path and the enhancement layer's timing.
//
// Input: an AVC/HEVC stream whose units are either behind Annex-B start codes
// (00 00 01 or 00 00 00 01; gathered in the double-mapped ring because a
// unit's end is known only when the next start code arrives) or behind
// big-endian length prefixes of 1 to 4 bytes (whole units per push, rewritten
// in the caller's buffer). A unit is routed by the two bytes after its
// prefix: 7E 01 wraps an enhancement-layer unit, 7C 01 a metadata unit
// (header 0x19), anything else is base layer. Wrappers are removed in place
// by zeroing the prefix's last byte and the wrapper's first, so that the
// wrapped unit stands behind a start code of the same length two bytes on.
//
// Output: each base/enhancement access unit (gathered, start codes included)
// and each metadata unit goes through ves_split_output to the caller.
#include "vessplitter.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <span>

#include "codec_util_config_record.h"
#include "codec_util_nal_types.h"
#include "edr_debug.h"
#include "start_code_scan.h"
#include "vessplitter_internal.h"

using codecutil::classify_nal;
using codecutil::NalKind;

static_assert(offsetof(struct mirror_buffer, start) == 0);
static_assert(sizeof(enum ves_type) == sizeof(int));

std::atomic<uint32_t> el_time_scale{90000};

namespace {

constexpr const char* s_type_name[VES_TYPE_NUM] = {"IN", "BL", "EL", "MD"};

constexpr int kInitialRing = 0x200000;  // 2 MiB
constexpr int kRingStep = 0x10000;      // 64 KiB
constexpr int kRingMax = 0x600000;      // 6 MiB
constexpr uint64_t kNanoseconds = 1000000000;

constexpr uint8_t kWrapEl = 0x7E;
constexpr uint8_t kWrapMd = 0x7C;
constexpr uint8_t kWrapTail = 0x01;
constexpr uint8_t kMetadataHeader = 0x19;

// Splitter levels: 0 errors and dumps, 1 lifecycle, 2 time stamps, 3 units.
constexpr int kLvError = 0;
constexpr int kLvState = 1;
constexpr int kLvTime = 2;
constexpr int kLvUnit = 3;

long long ll(uint64_t v) { return static_cast<long long>(v); }

int round_to_pages(int size, uint64_t* rounded) {
    const uint64_t page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    const uint64_t want = size < 1 ? 0 : static_cast<uint64_t>(size);
    *rounded = (want + page - 1) & ~(page - 1);
    // Both views together must stay addressable by int offsets.
    return *rounded == 0 || *rounded * 2 > static_cast<uint64_t>(INT_MAX) ? -1 : 0;
}

}  // namespace

// ---- Mirror buffer ------------------------------------------------------

extern "C" {

// One memory file mapped twice at adjacent fixed addresses inside one
// reserved range: the second view is the first one's pages again.
VES_API int mirror_buffer_alloc(struct mirror_buffer* buf, int size) {
    uint64_t c = 0;
    if (buf == nullptr || round_to_pages(size, &c) != 0) {
        EDR_LOG(kLvError, "%s:%d mmap %d bytes failed %d\n", static_cast<int>(2 * c), EINVAL);
        return -1;
    }
    const size_t cap = static_cast<size_t>(c);
    const int fd = memfd_create("mirror_buffer", MFD_CLOEXEC);
    void* base = MAP_FAILED;
    if (fd >= 0 && ftruncate(fd, static_cast<off_t>(cap)) == 0)
        base =
            mmap(nullptr, 2 * cap, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (base == MAP_FAILED) {
        const int err = errno;
        if (fd >= 0) close(fd);
        EDR_LOG(kLvError, "%s:%d mmap %d bytes failed %d\n", static_cast<int>(2 * cap), err);
        return -1;
    }
    auto* lo = static_cast<uint8_t*>(base);
    void* first = mmap(lo, cap, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd, 0);
    void* second = first == MAP_FAILED
                       ? MAP_FAILED
                       : mmap(lo + cap, cap, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd, 0);
    close(fd);  // the two views keep the memory file alive
    if (second == MAP_FAILED) {
        EDR_LOG(kLvError, "%s:%d remap failed on addr %p\n", static_cast<void*>(lo + cap));
        munmap(base, 2 * cap);
        return -1;
    }
    buf->start = base;
    buf->size = static_cast<int>(cap);
    buf->read = buf->write = buf->len = 0;
    buf->pos = 0;
    return buf->size;
}

VES_API void mirror_buffer_free(struct mirror_buffer* buf) {
    if (buf == nullptr) return;
    if (buf->start != nullptr) munmap(buf->start, 2 * static_cast<size_t>(buf->size));
    *buf = {};
}

// (at + len) modulo size; a subtraction in the usual case, as pushes of a
// transport-stream packet each move both ends. at < size and 0 <= len, both
// below 2^31: the sum fits 32 unsigned bits.
static int ring_advance(int at, int len, int size) {
    const uint32_t v = static_cast<uint32_t>(at) + static_cast<uint32_t>(len);
    const auto n = static_cast<uint32_t>(size);
    if (v < n) return static_cast<int>(v);
    if (v - n < n) return static_cast<int>(v - n);
    return static_cast<int>(v % n);
}

// Counts len bytes written at the write position as held.
static int ring_commit(struct mirror_buffer* buf, int len) {
    buf->len += len;
    buf->write = ring_advance(buf->write, len, buf->size);
    return buf->len;
}

VES_API int mirror_buffer_append(struct mirror_buffer* buf, void* data, int len) {
    if (len <= 0) return buf->len;
    std::memcpy(static_cast<uint8_t*>(buf->start) + buf->write, data, static_cast<size_t>(len));
    return ring_commit(buf, len);
}

VES_API void* mirror_buffer_peek(struct mirror_buffer* buf, int len) {
    if (buf->len < len) return nullptr;
    return static_cast<uint8_t*>(buf->start) + buf->read;
}

VES_API void* mirror_buffer_flush(struct mirror_buffer* buf, int len) {
    if (buf->len < len || len < 0) return nullptr;
    void* p = static_cast<uint8_t*>(buf->start) + buf->read;
    if (len == 0) return p;
    buf->len -= len;
    buf->read = ring_advance(buf->read, len, buf->size);
    buf->pos += static_cast<uint64_t>(len);
    return p;
}

VES_API int mirror_buffer_relloc(struct mirror_buffer* buf, int size) {
    uint64_t c = 0;
    if (round_to_pages(size, &c) != 0) return -1;
    if (static_cast<int>(c) == buf->size) return buf->size;
    struct mirror_buffer fresh = {};
    if (mirror_buffer_alloc(&fresh, static_cast<int>(c)) <= 0) return -1;
    const int keep = buf->len < fresh.size ? buf->len : fresh.size;
    if (keep > 0) mirror_buffer_append(&fresh, static_cast<uint8_t*>(buf->start) + buf->read, keep);
    fresh.pos = buf->pos;
    mirror_buffer_free(buf);
    *buf = fresh;
    return buf->size;
}

}  // extern "C"

// ---- Output and timing --------------------------------------------------

int ves_split_output(struct ves_splitter* split, enum ves_type type, void* data, int len,
                     uint64_t pts) {
    FILE* dump = split->dump_files[type];
    if (dump != nullptr) {
        EDR_LOG(kLvError, "%s:%d dump %s %d Bytes at %lld, pts %lld\n", s_type_name[type], len,
                ll(split->dump_pos[type]), ll(pts));
        split->dump_pos[type] += std::fwrite(data, 1, static_cast<size_t>(len), dump);
    }
    if (split->layers[type].layer_present == 0) return 0;
    return split->output(split->param, type, data, len, pts);
}

uint64_t ves_scale_ticks(const struct ves_layer_param& layer, uint64_t ticks) {
    const uint32_t el_scale = el_time_scale.load(std::memory_order_relaxed);
    if (layer.time_scale == el_scale || el_scale == 0) return ticks;
    // Two's complement: a wrapped difference is a picture before the anchor.
    const double signed_ticks = static_cast<double>(static_cast<int64_t>(ticks));
    double v = signed_ticks * static_cast<double>(layer.time_scale) / static_cast<double>(el_scale);
    // 2^63 is exact in double; anything at or beyond it is clamped.
    constexpr double kLimit = 9223372036854775808.0;
    if (v >= kLimit) return static_cast<uint64_t>(INT64_MAX);
    if (v <= -kLimit) return static_cast<uint64_t>(INT64_MIN);
    return static_cast<uint64_t>(static_cast<int64_t>(v));
}

void ves_bl_idr_step(struct ves_splitter* split, struct ves_layer_param& layer) {
    layer.idr_pts = layer.original_pts;
    layer.time_scale = static_cast<uint32_t>(kNanoseconds);
    ves_layer_param& el = split->layers[VES_EL];
    el.idr_pts = layer.original_pts;
    el.time_scale = layer.time_scale;
    split->f_idr_aligned = 1;
    EDR_LOG(kLvTime, "%s:%d BL IDR pts %lld\n", ll(layer.idr_pts));
}

namespace {

// Time of a picture timed from the current anchor (non-IDR slices and IDRs
// that no base-layer IDR preceded).
uint64_t time_from_anchor(ves_layer_param& el, uint64_t dpd) {
    const uint64_t x = dpd + el.dec_delay - el.abs_idr_pts;
    return static_cast<uint64_t>(el.idr_dts) + ves_scale_ticks(el, x);
}

}  // namespace

void ves_el_step(struct ves_splitter* split, uint8_t* nal, int size, int prefix, int nal_type) {
    ves_layer_param& el = split->layers[VES_EL];
    parser_handle_t p = el.parser;
    const uint32_t t = static_cast<uint32_t>(nal_type);
    const NalKind kind = classify_nal(split->codec_type == VES_HEVC, nal_type);
    if (kind == NalKind::kSlice) {
        const uint64_t dpd = p->parser_get_dpb_output_time(p, t);
        el.derived_pts = time_from_anchor(el, dpd);
        EDR_LOG(kLvTime,
                "%s:%d non IDR derived_pts %lld, dpd %lld, abs_idr_pts %lld, dec_delay %d, "
                "el_time_scale %d, idr_dts %lld\n",
                ll(el.derived_pts), ll(dpd), ll(el.abs_idr_pts), static_cast<int>(el.dec_delay),
                static_cast<int>(el_time_scale), static_cast<long long>(el.idr_dts));
        return;
    }
    if (kind == NalKind::kIdr) {
        const uint32_t n = static_cast<uint32_t>(p->parser_get_num_units_in_tick(p));
        const int32_t clock = p->parser_get_time_scale(p);
        if (clock != 0)
            el_time_scale.store(static_cast<uint32_t>(clock), std::memory_order_relaxed);
        if (split->f_idr_aligned == 0) {
            const uint64_t dpd = p->parser_get_dpb_output_time(p, t);
            el.derived_pts = time_from_anchor(el, dpd);
            EDR_LOG(
                kLvTime,
                "%s:%d unaligned IDR derived_pts %lld, dpd %lld, abs_idr_pts %lld, dec_delay %d, "
                "el_time_scale %d, idr_dts %lld\n",
                ll(el.derived_pts), ll(dpd), ll(el.abs_idr_pts), static_cast<int>(el.dec_delay),
                static_cast<int>(el_time_scale), static_cast<long long>(el.idr_dts));
            return;
        }
        el.abs_idr_pts = p->parser_get_dpb_output_time(p, t);
        el.dec_delay = n * static_cast<uint32_t>(p->parser_get_num_reorder_frames(p));
        const uint64_t d = ves_scale_ticks(el, el.dec_delay);
        split->f_idr_aligned = 0;
        el.derived_pts = el.idr_pts;
        el.idr_dts = static_cast<int64_t>(el.idr_pts - d);
        EDR_LOG(kLvTime,
                "%s:%d aligned IDR derived_pts %lld, abs_idr_pts %lld, dec_delay %d, "
                "el_time_scale %d, idr_dts %lld\n",
                ll(el.derived_pts), ll(el.abs_idr_pts), static_cast<int>(el.dec_delay),
                static_cast<int>(el_time_scale), static_cast<long long>(el.idr_dts));
        return;
    }
    if (kind == NalKind::kSps) {
        p->parse_sps(nal, size, prefix, p);
        el.sps_valid = 1;
    } else if (kind == NalKind::kSei) {
        if (el.sps_valid != 0)
            p->parse_sei_messages(nal, size, prefix, p);
        else
            EDR_LOG(kLvError, "%s:%d SPS is not valid while SEI is coming\n");
    }
}

// ---- Push ---------------------------------------------------------------

namespace {

// The bytes one push scans, and where they stand in the stream.
struct ScanData {
    uint8_t* bytes;
    int len;
    int held;      // bytes held before this push (start-code form)
    uint64_t pos;  // stream offset of bytes[0]
    uint64_t pts;  // this push's time stamp
};

int nal_type_of(const ves_splitter* split, uint8_t header) {
    return split->codec_type == VES_HEVC ? codecutil::hevc::nal_type(header)
                                         : codecutil::avc::nal_type(header);
}

NalKind kind_of(const ves_splitter* split, int t) {
    return classify_nal(split->codec_type == VES_HEVC, t);
}

// Removes the two wrapper bytes in front of the wrapped header: the last
// prefix byte and the wrapper's first byte become zeros, and the unit starts
// two bytes later behind a start code of the same length.
void unwrap(uint8_t* bytes, int* start, int* size, int prefix) {
    bytes[*start + prefix - 1] = 0;
    bytes[*start + prefix] = 0;
    *start += 2;
    *size -= 2;
}

void trace_unit(const ScanData& d, int t, int type, int start, int size, uint64_t ts) {
    if (!edr_debug_on(kLvUnit)) return;
    const uint8_t* u = d.bytes + start;
    auto at = [&](int i) { return i < size ? static_cast<unsigned>(u[i]) : 0u; };
    EDR_LOG_AS(
        "ves_split_push", kLvUnit,
        "%s:%d nalu_type %d [%s] %d bytes at %lld, pts %lld, offset %d, %02x %02x %02x %02x\n", t,
        s_type_name[type], size, ll(d.pos + static_cast<uint64_t>(start)), ll(ts), start, at(3),
        at(4), at(5), at(6));
}

int deliver_layer(ves_splitter* split, ves_type type, uint64_t ts) {
    ves_layer_param& layer = split->layers[type];
    const int r = ves_split_output(split, type, layer.buf, layer.len, ts);
    if (r != 0)
        EDR_LOG_AS("ves_split_push", kLvError, "%s:%d error %d return from the output callback\n",
                   r);
    return r;
}

uint64_t gathered_pts(ves_layer_param& layer, ves_type type) {
    if (type == VES_EL && layer.derived_pts != 0) {
        const uint64_t ts = layer.derived_pts;
        layer.derived_pts = 0;
        return ts;
    }
    return layer.original_pts;
}

// Appends a unit to its layer's access unit, growing the block to exactly
// what it needs. A unit that cannot be gathered is dropped.
void gather(ves_layer_param& layer, ves_type type, const uint8_t* unit, int size) {
    const int64_t need = static_cast<int64_t>(layer.len) + size;
    if (need > layer.size) {
        void* grown = need > INT_MAX ? nullptr : std::realloc(layer.buf, static_cast<size_t>(need));
        if (grown == nullptr) {
            EDR_LOG_AS("ves_split_push", kLvError,
                       "%s:%d failed to gather %d bytes into [%s] of %d\n", size, s_type_name[type],
                       layer.len);
            return;
        }
        layer.buf = grown;
        layer.size = static_cast<int>(need);
    }
    std::memcpy(static_cast<uint8_t*>(layer.buf) + layer.len, unit, static_cast<size_t>(size));
    layer.len += size;
}

// Processes the unit [start, end) of the scanned data whose prefix is prefix
// bytes long. Returns 0 or the callback's non-zero result.
int process_unit(ves_splitter* split, const ScanData& d, int start, int end, int prefix) {
    uint8_t* bytes = d.bytes;
    int size = end - start;
    const uint64_t ts = end < d.held ? split->remain_pts : d.pts;
    if (size <= prefix) return 0;  // no header byte: nothing to route
    const uint8_t* hdr = bytes + start + prefix;
    const bool wrapped = size >= prefix + 2 && hdr[1] == kWrapTail;

    if (wrapped && hdr[0] == kWrapMd) {
        unwrap(bytes, &start, &size, prefix);
        if (size <= prefix) return 0;
        const uint8_t h = bytes[start + prefix];
        int r = 0;
        if (h == kMetadataHeader) {
            r = ves_split_output(split, VES_MD, bytes + start, size,
                                 split->layers[VES_BL].original_pts);
            if (r != 0)
                EDR_LOG_AS("ves_split_push", kLvError,
                           "%s:%d error %d return from the output callback\n", r);
        } else {
            EDR_LOG_AS("ves_split_push", kLvError, "%s:%d Wrong Meta data naltype %02x != 0x19\n",
                       static_cast<unsigned>(h));
        }
        trace_unit(d, nal_type_of(split, h), VES_MD, start, size, ts);
        return r;
    }

    ves_type type;
    int t;
    if (wrapped && hdr[0] == kWrapEl) {
        unwrap(bytes, &start, &size, prefix);
        if (size <= prefix) return 0;
        type = VES_EL;
        t = nal_type_of(split, bytes[start + prefix]);
        if (split->single_track == 0) ves_el_step(split, bytes + start, size, prefix, t);
    } else {
        const bool el_only =
            split->layers[VES_EL].layer_present != 0 && split->layers[VES_BL].layer_present == 0;
        type = el_only ? VES_EL : VES_BL;
        t = nal_type_of(split, hdr[0]);
        if (kind_of(split, t) == NalKind::kIdr) ves_bl_idr_step(split, split->layers[type]);
    }
    trace_unit(d, t, type, start, size, ts);

    ves_layer_param& layer = split->layers[type];
    if (split->is_ts_stream == 0 || kind_of(split, t) == NalKind::kAud) {
        if (layer.len > 0) {
            const int r = deliver_layer(split, type, gathered_pts(layer, type));
            if (r != 0) return r;
            layer.len = 0;
        }
        if (type == VES_BL) {
            layer.original_pts = ts;
            EDR_LOG_AS("ves_split_push", kLvTime, "%s:%d [%s] AUD pts %lld\n", "BL", ll(ts));
        } else if (split->single_track != 0) {
            split->layers[VES_BL].original_pts = ts;
            layer.original_pts = ts;
            EDR_LOG_AS("ves_split_push", kLvTime, "%s:%d [%s] AUD pts %lld\n", "EL", ll(ts));
        }
    }
    gather(layer, type, bytes + start, size);
    return 0;
}

void final_delivery(ves_splitter* split) {
    ves_layer_param& bl = split->layers[VES_BL];
    EDR_LOG_AS("ves_split_push", kLvState, "%s:%d pushing final BL %d bytes...\n", bl.len);
    if (bl.len > 0) (void)deliver_layer(split, VES_BL, bl.original_pts);
    ves_layer_param& el = split->layers[VES_EL];
    EDR_LOG_AS("ves_split_push", kLvState, "%s:%d pushing final EL %d bytes...\n", el.len);
    if (el.len > 0)
        (void)deliver_layer(split, VES_EL, el.derived_pts != 0 ? el.derived_pts : el.original_pts);
}

// Appends a start-code push to the ring, listing its start codes as it
// copies: the search afterwards visits only the bytes around them.
void append_push(mirror_buffer& ring, const StartCodeScanKernel& scan, const uint8_t* data, int len,
                 StartList& starts) {
    scan.copy_starts(static_cast<uint8_t*>(ring.start) + ring.write, data, len, starts);
    if (len > 0) ring_commit(&ring, len);
}

// Offset of the first 00 00 01 lying wholly in [from, len), or -1. Looks for
// the rare 00 01 pairs first; a generic substring search costs several
// times more per byte and dominated the push.
int find_start_code(const StartCodeScanKernel& scan, const uint8_t* bytes, int from, int len) {
    for (int i = from + 2; (i = scan.find_pair(bytes, i, len)) < len; i += 3) {
        // A later start code's 01 lies at least three bytes on.
        if (bytes[i - 2] == 0) return i - 2;
    }
    return -1;
}

// A push without a start code while a unit is held: the held unit only grows (all
// transport-stream packets of a slice but its first).
int held_unit_grows(ves_splitter* split, uint64_t pts) {
    const int len = split->buf.len;
    split->scan_search = len - 2 > split->scan_cursor ? len - 2 : split->scan_cursor;
    split->remain_pts = pts;
    return 0;
}

// Whether a push of len bytes at `push` in the ring, whose start codes are
// listed, ends none: nothing listed, and its first bytes cannot complete a
// start code begun before it.
bool no_start_code(const uint8_t* push, int len, const StartList& starts) {
    if (starts.n != 0 || starts.complete != len || len < 1) return false;
    if (push[0] > 1) return true;  // the usual case: slice data
    return push[0] == 0 && (len < 2 || push[1] != 1);
}

// The start codes of the ring's content in order: those completed by the
// push's first two bytes (or lying in held bytes) by a search, then the
// push's list, then a search past the list when it filled.
struct StartWalk {
    const StartCodeScanKernel& scan;
    const uint8_t* bytes;
    int held;
    int limit;
    const StartList& starts;
    int next = 0;

    // Offset of the first start code at or after `search`, or -1.
    int from(int search) {
        if (search < held + 2) {
            const int m = find_start_code(scan, bytes, search, limit < held + 2 ? limit : held + 2);
            if (m >= 0) return m;
        }
        for (; next < starts.n; ++next) {
            const int m = held + starts.at[next] - 2;
            if (m >= search) return m;
        }
        if (held + starts.complete >= limit) return -1;
        const int past = held + starts.complete - 2;
        return find_start_code(scan, bytes, search > past ? search : past, limit);
    }
};

// Start-code input: the ring's whole content. Units end where the next start
// code begins; the last one stays held until its end is known.
// `starts` lists the start codes of the push's veslen bytes.
[[gnu::noinline]] int push_start_codes(ves_splitter* split, const StartCodeScanKernel& scan,
                                       int veslen, const StartList& starts, uint64_t pts) {
    mirror_buffer& ring = split->buf;
    ScanData d{static_cast<uint8_t*>(ring.start) + ring.read, ring.len, ring.len - veslen, ring.pos,
               pts};
    if (split->scan_pending != 0 && veslen > 0 && no_start_code(d.bytes + d.held, veslen, starts))
        return held_unit_grows(split, pts);
    bool pending = split->scan_pending != 0;
    int pstart = 0;
    int pprefix = split->scan_prefix;
    int cursor = pending ? split->scan_cursor : 0;
    int search = pending ? split->scan_search : 0;
    const int limit = d.len;
    StartWalk walk{scan, d.bytes, d.held, limit, starts};
    while (search < limit) {
        const int m = walk.from(search);
        if (m < 0) break;
        const int sc = m != cursor && d.bytes[m - 1] == 0 ? m - 1 : m;
        cursor = search = m + 3;
        if (pending) {
            const int r = process_unit(split, d, pstart, sc, pprefix);
            if (r != 0) {
                split->failed = 1;
                return r;
            }
        }
        pending = true;
        pstart = sc;
        pprefix = m + 3 - sc;
    }
    if (veslen > 0) {
        if (pending) {
            mirror_buffer_flush(&ring, pstart);
            split->scan_pending = 1;
            split->scan_prefix = pprefix;
            split->scan_cursor = cursor - pstart;
            // The last two bytes may begin a start code completed by the next push.
            split->scan_search = (d.len - 2 > cursor ? d.len - 2 : cursor) - pstart;
        } else {
            mirror_buffer_flush(&ring, d.len > 3 ? d.len - 3 : 0);
            split->scan_pending = 0;
        }
        split->remain_pts = pts;
        return 0;
    }
    if (pending) {
        const int r = process_unit(split, d, pstart, d.len, pprefix);
        if (r != 0) {
            split->failed = 1;
            return r;
        }
    }
    final_delivery(split);
    mirror_buffer_flush(&ring, ring.len);
    split->scan_pending = 0;
    split->remain_pts = pts;
    return 0;
}

uint32_t read_be(const uint8_t* p, int n) {
    uint32_t v = 0;
    for (int i = 0; i < n; ++i) v = (v << 8) | p[i];
    return v;
}

// Length-prefixed input, in the caller's buffer: each prefix becomes a start
// code of the same length before the unit in front of it is processed.
int push_lengths(ves_splitter* split, uint8_t* data, int veslen, uint64_t pts) {
    const int nls = split->nal_length_size;
    ScanData d{data, veslen, 0, split->buf.pos, pts};
    bool pending = false;
    int pstart = 0;
    int cursor = 0;
    while (cursor < d.len) {
        if (d.len - cursor < nls) {
            EDR_LOG_AS("ves_split_push", kLvState,
                       "%s:%d dropped %d bytes, short of a length prefix\n", d.len - cursor);
            break;
        }
        const uint32_t unit_len = read_be(data + cursor, nls);
        std::memset(data + cursor, 0, static_cast<size_t>(nls - 1));
        data[cursor + nls - 1] = 1;
        if (pending) {
            const int r = process_unit(split, d, pstart, cursor, nls);
            if (r != 0) {
                split->failed = 1;
                return r;
            }
        }
        pending = true;
        pstart = cursor;
        const uint64_t next = static_cast<uint64_t>(cursor) + static_cast<uint64_t>(nls) + unit_len;
        cursor = next > static_cast<uint64_t>(d.len) ? d.len : static_cast<int>(next);
    }
    if (pending) {
        const int r = process_unit(split, d, pstart, cursor, nls);
        if (r != 0) {
            split->failed = 1;
            return r;
        }
    }
    if (veslen > 0) {
        split->buf.pos += static_cast<uint64_t>(veslen);
        return 0;
    }
    final_delivery(split);
    return 0;
}

// Makes room in the ring for veslen more bytes: at least 64 KiB more, never
// beyond 6 MiB.
int grow_ring(ves_splitter* split, int veslen) {
    mirror_buffer& ring = split->buf;
    if (ring.size - ring.len >= veslen) return 0;  // 0 <= len <= size: no overflow
    const int64_t held_and_new = static_cast<int64_t>(ring.len) + veslen;
    const int64_t stepped = static_cast<int64_t>(ring.size) + kRingStep;
    const int64_t want = held_and_new > stepped ? held_and_new : stepped;
    if (want > kRingMax) {
        EDR_LOG_AS("ves_split_push", kLvError,
                   "%s:%d wrong data, buffer size too large %d, %d, %d\n", ring.len, veslen,
                   static_cast<int>(want > INT_MAX ? INT_MAX : want));
        return -1;
    }
    if (mirror_buffer_relloc(&ring, static_cast<int>(want)) < 0) {
        EDR_LOG_AS("ves_split_push", kLvError,
                   "%s:%d failed to alloc memory, size %d, len %d, to push %d\n", ring.size,
                   ring.len, veslen);
        return -1;
    }
    return 0;
}

ves_splitter* as_splitter(void* s) { return static_cast<ves_splitter*>(s); }

// ---- Codec data ---------------------------------------------------------

struct UnitBlock {
    uint8_t* out;
    int cap;
    int size;
    int nls;
};

void append_unit(UnitBlock& b, const uint8_t* unit, uint32_t n) {
    for (int i = b.nls - 1; i >= 0; --i) b.out[b.size++] = static_cast<uint8_t>(n >> (8 * i));
    std::memcpy(b.out + b.size, unit, n);
    b.size += static_cast<int>(n);
}

// Copies the record's parameter sets into the block, each behind a length
// prefix of the stream's own size. False when an entry or a field runs past
// the record (reported with the record's error message).
bool parse_record(std::span<const uint8_t> rec, bool hevc, UnitBlock& b) {
    auto on_entry = [&](const codecutil::RecordEntry& e) {
        EDR_LOG_AS("ves_split_set_codec_data", kLvUnit,
                   "%s:%d %s at %d, size %d, sps_pps_nal_units_size %d\n", e.what,
                   static_cast<int>(e.pos), static_cast<int>(e.length), b.size);
        if (!e.complete()) return true;  // the walk stops on it as an overrun
        // Each 2-byte length becomes at most 4: the block of twice the
        // record's length always has room; checked all the same.
        if (static_cast<int64_t>(b.size) + b.nls + e.length > b.cap) return false;
        append_unit(b, e.data, e.length);
        return true;
    };
    auto on_count = [&](const char* what, uint32_t n) {
        EDR_LOG_AS("ves_split_set_codec_data", kLvTime, "%s:%d nal_length_size is %d, num %s %d\n",
                   b.nls, what, static_cast<int>(n));
    };
    const codecutil::RecordWalk w = hevc ? codecutil::walk_hevc_record(rec, on_entry)
                                         : codecutil::walk_avc_record(rec, on_count, on_entry);
    switch (w.stop) {
        case codecutil::RecordStop::kEnd:
            return true;
        case codecutil::RecordStop::kRefused:
            return false;
        default:
            EDR_LOG_AS("ves_split_set_codec_data", kLvError,
                       hevc ? "%s:%d wrong HEVC codec data, pos %d, nalUnitLength %d, len %d\n"
                            : "%s:%d wrong AVC codec data, pos %d, nalUnitLength %d, len %d\n",
                       static_cast<int>(w.pos), static_cast<int>(w.length),
                       static_cast<int>(rec.size()));
            return false;
    }
}

void drop_parameter_sets(ves_splitter* split) {
    std::free(split->sps_pps_nal_units);
    split->sps_pps_nal_units = nullptr;
    split->sps_pps_nal_units_size = 0;
}

FILE* s_opened_debug_file = nullptr;

}  // namespace

extern "C" {

VES_API void* ves_split_init(int codec_type, pfn_ves_output output, void* param, int is_ts_stream) {
    auto* split = static_cast<ves_splitter*>(std::calloc(1, sizeof(ves_splitter)));
    if (split == nullptr) return nullptr;
    split->codec_type = codec_type == VES_HEVC ? VES_HEVC : VES_AVC;
    split->is_ts_stream = is_ts_stream;
    split->output = output;
    split->param = param;
    if (mirror_buffer_alloc(&split->buf, kInitialRing) <= 0) {
        std::free(split);
        return nullptr;
    }
    for (int t = 0; t < VES_TYPE_NUM; ++t) {
        split->layers[t].layer_present = 1;
        char name[32];
        std::snprintf(name, sizeof name, "EDR_DUMP_%s", s_type_name[t]);
        if (const char* path = std::getenv(name)) split->dump_files[t] = std::fopen(path, "wb");
    }
    if (const char* level = std::getenv("EDR_DEBUG_LEVEL"))
        __atomic_store_n(&edr_debug_level, static_cast<int>(std::strtol(level, nullptr, 10)),
                         __ATOMIC_RELAXED);
    {
        // Under the debug-file lock: no diagnostic line is being written to
        // a file closed here (see sei_sps_parser.h).
        const std::lock_guard<codecutil::PlainMutex> lock(vesparser::edr_debug_mutex());
        // A debug file this library opened earlier is replaced, not leaked.
        if (s_opened_debug_file != nullptr && edr_debug_file == s_opened_debug_file) {
            std::fclose(s_opened_debug_file);
            __atomic_store_n(&edr_debug_file, nullptr, __ATOMIC_RELEASE);
        }
        s_opened_debug_file = nullptr;
        FILE* file = stdout;
        if (const char* path = std::getenv("EDR_DEBUG_FILE")) {
            file = std::fopen(path, "w");
            s_opened_debug_file = file;
        }
        __atomic_store_n(&edr_debug_file, file, __ATOMIC_RELEASE);
    }
    parser_env_init();
    const bool hevc = split->codec_type == VES_HEVC;
    for (int t : {VES_BL, VES_EL})
        split->layers[t].parser = hevc ? hevc_parser_create(1, 1) : avc_parser_create(1, 1);
    if (split->layers[VES_BL].parser == nullptr || split->layers[VES_EL].parser == nullptr) {
        ves_split_free(split);
        return nullptr;
    }
    return split;
}

VES_API int ves_split_set_codec_data(void* s, void* codec_data, int len) {
    ves_splitter* split = as_splitter(s);
    if (split == nullptr) return -1;
    EDR_LOG(kLvUnit, "%s:%d type %d, data %p, len %d\n", static_cast<int>(split->codec_type),
            codec_data, len);
    if (codec_data == nullptr || len < 1) return 0;
    const bool hevc = split->codec_type == VES_HEVC;
    const auto* rec = static_cast<const uint8_t*>(codec_data);
    drop_parameter_sets(split);
    if (len < (hevc ? 22 : 5)) {
        if (hevc)
            EDR_LOG(kLvError, "%s:%d invalid HEVC codec_data, len is %d\n", len);
        else
            EDR_LOG(kLvError, "%s:%d invalid AVC codec_data, len is %d\n", len);
        return -1;
    }
    const std::span<const uint8_t> record(rec, static_cast<size_t>(len));
    split->nal_length_size = codecutil::record_nal_length_size(record, hevc);
    const int64_t cap = 2 * static_cast<int64_t>(len);
    if (cap > INT_MAX) return -1;
    split->sps_pps_nal_units = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(cap)));
    if (split->sps_pps_nal_units == nullptr) return -1;
    UnitBlock block{split->sps_pps_nal_units, static_cast<int>(cap), 0, split->nal_length_size};
    if (hevc) EDR_LOG(kLvTime, "%s:%d nal_length_size is %d\n", split->nal_length_size);
    const bool ok = parse_record(record, hevc, block);
    if (!ok) {
        drop_parameter_sets(split);
        return -1;
    }
    split->sps_pps_nal_units_size = block.size;
    EDR_LOG(kLvUnit, "%s:%d parsed sps_pps_nal_units_size %d\n", block.size);
    return 0;
}

VES_API int ves_split_enable_layer(void* s, enum ves_type type, int enable) {
    ves_splitter* split = as_splitter(s);
    const int t = static_cast<int>(type);
    if (split == nullptr || t < 0 || t >= VES_TYPE_NUM) return 0;
    EDR_LOG(kLvState, "%s:%d set layer %s from %d to %d\n", s_type_name[t],
            split->layers[t].layer_present, enable);
    split->layers[t].layer_present = enable;
    split->single_track =
        split->layers[VES_BL].layer_present == 0 || split->layers[VES_EL].layer_present == 0 ? 1
                                                                                             : 0;
    return 0;
}

// Every push but the common one ves_split_push takes itself.
[[gnu::noinline]] static int push_general(ves_splitter* split, void* vesdata, int veslen,
                                          uint64_t pts) {
    EDR_LOG(kLvUnit, "%s:%d nal_length_size %d, len %d, pts %lld, buffered len %d\n",
            split->nal_length_size, veslen, ll(pts), split->buf.len);
    StartList starts{0, veslen, {}};
    const StartCodeScanKernel& scan = start_code_scan();
    if (split->nal_length_size == 0) {
        if (grow_ring(split, veslen) != 0) return -1;
        append_push(split->buf, scan, static_cast<const uint8_t*>(vesdata), veslen, starts);
    } else if (split->sps_pps_nal_units_size > 0) {
        const int n = split->sps_pps_nal_units_size;
        EDR_LOG(kLvState, "%s:%d push SPS/PPS %d bytes\n", n);
        split->layers[VES_BL].original_pts = pts;
        split->layers[VES_EL].original_pts = pts;
        split->sps_pps_nal_units_size = 0;
        const int r = ves_split_push(split, split->sps_pps_nal_units, n, pts);
        if (r != 0) {
            EDR_LOG(kLvError, "%s:%d push sps/pps %d bytes failed\n", n);
            return r;
        }
    }
    FILE* dump = split->dump_files[VES_MIX];
    if (dump != nullptr && veslen > 0) {
        EDR_LOG(kLvError, "%s:%d dump %s %d Bytes at %lld, pts %lld\n", s_type_name[VES_MIX],
                veslen, ll(split->dump_pos[VES_MIX]), ll(pts));
        split->dump_pos[VES_MIX] += std::fwrite(vesdata, 1, static_cast<size_t>(veslen), dump);
    }
    if (split->nal_length_size == 0) return push_start_codes(split, scan, veslen, starts, pts);
    return push_lengths(split, static_cast<uint8_t*>(vesdata), veslen, pts);
}

VES_API int ves_split_push(void* s, void* vesdata, int veslen, uint64_t pts) {
    ves_splitter* split = as_splitter(s);
    if (split == nullptr || veslen < 0 || (vesdata == nullptr && veslen > 0) || split->failed != 0)
        return -1;
    // Most pushes are a transport-stream packet's worth in the middle of a
    // slice: copied with the start-code search and, without a start code,
    // only counted. Kept apart so that nothing else's set-up is paid for them.
    mirror_buffer& ring = split->buf;
    if (split->nal_length_size == 0 && split->scan_pending != 0 && veslen > 0 &&
        ring.size - ring.len >= veslen && !edr_debug_on(kLvUnit) &&
        split->dump_files[VES_MIX] == nullptr) {
        const StartCodeScanKernel& scan = start_code_scan();
        StartList starts;
        const auto* push = static_cast<const uint8_t*>(vesdata);
        append_push(ring, scan, push, veslen, starts);
        if (!no_start_code(push, veslen, starts))
            return push_start_codes(split, scan, veslen, starts, pts);
        return held_unit_grows(split, pts);
    }
    return push_general(split, vesdata, veslen, pts);
}

VES_API int ves_split_flush(void* s) {
    ves_splitter* split = as_splitter(s);
    if (split == nullptr) return 0;
    split->buf.read = split->buf.write = split->buf.len = 0;
    for (int t : {VES_BL, VES_EL}) {
        ves_layer_param& layer = split->layers[t];
        layer.len = 0;
        layer.original_pts = 0;
        layer.derived_pts = 0;
        layer.parser->parser_reset(layer.parser);
        layer.sps_valid = 0;
    }
    split->scan_pending = 0;
    split->failed = 0;
    EDR_LOG(kLvState, "%s:%d flushed\n");
    return 0;
}

VES_API int ves_split_free(void* s) {
    ves_splitter* split = as_splitter(s);
    if (split == nullptr) return 0;
    for (FILE*& f : split->dump_files) {
        if (f != nullptr) std::fclose(f);
        f = nullptr;
    }
    std::free(split->layers[VES_BL].buf);
    std::free(split->layers[VES_EL].buf);
    std::free(split->sps_pps_nal_units);
    mirror_buffer_free(&split->buf);
    for (int t : {VES_BL, VES_EL}) {
        parser_handle_t p = split->layers[t].parser;
        if (p != nullptr) p->parser_destroy(p);
    }
    std::free(split);
    const std::lock_guard<codecutil::PlainMutex> lock(vesparser::edr_debug_mutex());
    if (edr_debug_file != nullptr && edr_debug_file != stdout) {
        std::fclose(edr_debug_file);
        if (edr_debug_file == s_opened_debug_file) s_opened_debug_file = nullptr;
        __atomic_store_n(&edr_debug_file, nullptr, __ATOMIC_RELEASE);
    }
    return 0;
}

}  // extern "C"
