// Splitter push (input layout in fuzz_input.h): the decoder configuration
// record, the stream in pushes of the chosen size, a flush and one more push,
// the output callback failing at the chosen call.
//
// Checked beyond crashes: every delivery names a layer, lies inside the
// splitter's buffers (the layer's access unit, the input ring, the stored
// parameter sets) or the bytes being pushed, and is read whole (ASan). For
// start-code input (no record; length-prefixed input comes a whole sample per
// push) and a callback that never fails, the deliveries up to the flush
// (layer, length, bytes) are the same when the stream comes in one push:
// they do not depend on the chunking.
// The parsers' two process exits (exit_guard.h) end the input: the status
// must be one of theirs and the splitter is freed as it stands.
#include <algorithm>
#include <cstdint>

#include "exit_guard.h"
#include "fuzz_input.h"
#include "vessplitter.h"

namespace {

using fuzzinput::Bytes;
using fuzzinput::check;

struct Sink {
    const ves_splitter* split = nullptr;
    size_t record_len = 0;
    // An exact-size copy of what is being pushed (the push rewrites it in
    // place), so ASan sees a read past it.
    Bytes pushed;
    int calls = 0;
    int fail_at = 0;
    bool recording = true;
    uint64_t got = 0xcbf29ce484222325ull;  // FNV-1a of every layer, length and byte delivered
};

bool inside(const void* p, int len, const void* base, size_t size) {
    const auto* q = static_cast<const uint8_t*>(p);
    const auto* b = static_cast<const uint8_t*>(base);
    return b != nullptr && q >= b && q + len <= b + size;
}

int deliver(void* param, enum ves_type type, void* data, int len, uint64_t) {
    auto& s = *static_cast<Sink*>(param);
    const int t = static_cast<int>(type);
    check(t >= 0 && t < VES_TYPE_NUM && len >= 0);
    const ves_splitter& sp = *s.split;
    // The parameter-set block takes at most twice the record.
    check(len == 0 || inside(data, len, sp.layers[t].buf, static_cast<size_t>(sp.layers[t].size)) ||
          inside(data, len, sp.buf.start, 2 * static_cast<size_t>(sp.buf.size)) ||
          inside(data, len, s.pushed.data(), s.pushed.size()) ||
          inside(data, len, sp.sps_pps_nal_units, 2 * s.record_len));
    uint64_t h =
        (s.got ^ (static_cast<uint64_t>(t) << 32 | static_cast<uint32_t>(len))) * 0x100000001b3ull;
    for (int i = 0; i < len; ++i) h = (h ^ static_cast<const uint8_t*>(data)[i]) * 0x100000001b3ull;
    if (s.recording) s.got = h;
    return ++s.calls == s.fail_at ? -1 : 0;
}

// One splitter through the input; false when a parser ended the process.
bool run(const fuzzinput::SplitterInput& in, size_t chunk, Sink& sink) {
    void* s = ves_split_init(in.flags & 1, deliver, &sink, (in.flags >> 1) & 1);
    if (s == nullptr) return true;
    sink.split = static_cast<const ves_splitter*>(s);
    sink.record_len = in.record.size();
    const auto push = [&](size_t off, uint64_t pts) {
        const size_t n = std::min(chunk, in.stream.size() - off);
        sink.pushed = Bytes(in.stream.begin() + off, in.stream.begin() + off + n);
        ves_split_push(s, sink.pushed.data(), static_cast<int>(n), pts);
    };
    bool finished = true;
    ExitGuard guard;
    try {
        ves_split_enable_layer(s, VES_EL, (in.flags & 4) != 0 ? 0 : 1);
        ves_split_enable_layer(s, VES_MD, (in.flags & 8) != 0 ? 0 : 1);
        Bytes record = in.record;  // exact size, like the pushed bytes
        if (!record.empty())
            ves_split_set_codec_data(s, record.data(), static_cast<int>(record.size()));
        uint64_t pts = 0;
        for (size_t off = 0; off < in.stream.size(); off += chunk) push(off, pts += 3000);
        sink.recording = false;
        ves_split_flush(s);
        if (!in.stream.empty()) push(0, pts);
    } catch (const ProcessExit& e) {
        check(e.status == 1 || e.status == 1001);
        finished = false;
    }
    ves_split_free(s);
    return finished;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzzinput::SplitterInput in(fuzzinput::Reader(data, size));
    if (!in.whole) return 0;
    Sink chunked;
    chunked.fail_at = in.fail_at;
    if (!run(in, in.chunk, chunked) || in.fail_at != 0 || !in.record.empty() ||
        in.chunk >= in.stream.size())
        return 0;
    Sink once;
    check(!run(in, in.stream.size(), once) || once.got == chunked.got);
    return 0;
}
