// Splitter push: codec type, transport-stream flag and layer switches from
// byte 0, a decoder configuration record of byte 1's length, the output
// callback failing at the call byte 2 names (0: never), then the stream in
// chunks of byte 3's size + 1, a flush and one more push.
//
// Checked beyond crashes: every delivery names a layer and lies in readable
// bytes of the length given (ASan sees the read). For start-code input (no
// record; length-prefixed input comes a whole sample per push) and a
// callback that never fails, the deliveries up to the flush (layer, length,
// bytes) are the same when the stream comes in one push: they do not depend
// on the chunking.
// The parsers' two process exits (exit_guard.h) end the input: the status
// must be one of theirs and the splitter is freed as it stands.
#include <cstdint>
#include <cstring>
#include <vector>

#include "exit_guard.h"
#include "vessplitter.h"

namespace {

struct Delivery {
    int type;
    int len;
    uint64_t hash;  // FNV-1a of the bytes
    bool operator==(const Delivery&) const = default;
};

struct Sink {
    int calls = 0;
    int fail_at = 0;
    bool recording = true;
    std::vector<Delivery> got;
};

int deliver(void* param, enum ves_type type, void* data, int len, uint64_t) {
    auto* s = static_cast<Sink*>(param);
    const int t = static_cast<int>(type);
    if (t < 0 || t >= VES_TYPE_NUM || len < 0 || (len > 0 && data == nullptr)) __builtin_trap();
    const auto* p = static_cast<const uint8_t*>(data);
    uint64_t h = 0xcbf29ce484222325ull;
    for (int i = 0; i < len; ++i) h = (h ^ p[i]) * 0x100000001b3ull;
    if (s->recording) s->got.push_back({t, len, h});
    return ++s->calls == s->fail_at ? -1 : 0;
}

// The push may rewrite its input in place, and an exact-size copy lets ASan
// see a read past the chunk.
void push_copy(void* s, const uint8_t* data, size_t n, uint64_t pts) {
    std::vector<uint8_t> copy(data, data + n);
    ves_split_push(s, copy.data(), static_cast<int>(n), pts);
}

struct Schedule {
    uint8_t flags;
    const uint8_t* record;
    size_t record_len;
    const uint8_t* stream;
    size_t size;
    size_t chunk;
};

// One splitter through the schedule; false when a parser ended the process.
bool run(const Schedule& in, Sink& sink) {
    void* s = ves_split_init((in.flags & 1) != 0 ? VES_HEVC : VES_AVC, deliver, &sink,
                             (in.flags >> 1) & 1);
    if (s == nullptr) return true;
    bool finished = true;
    {
        ExitGuard guard;
        try {
            ves_split_enable_layer(s, VES_EL, (in.flags >> 2) & 1 ? 0 : 1);
            ves_split_enable_layer(s, VES_MD, (in.flags >> 3) & 1 ? 0 : 1);
            // An own copy of exactly record_len bytes, so a read past it is seen.
            if (in.record_len > 0) {
                std::vector<uint8_t> rec(in.record, in.record + in.record_len);
                ves_split_set_codec_data(s, rec.data(), static_cast<int>(in.record_len));
            }
            uint64_t pts = 0;
            for (size_t off = 0; off < in.size; off += in.chunk) {
                const size_t n = in.size - off < in.chunk ? in.size - off : in.chunk;
                push_copy(s, in.stream + off, n, pts += 3000);
            }
            sink.recording = false;
            ves_split_flush(s);
            if (in.size > 0) push_copy(s, in.stream, in.size < in.chunk ? in.size : in.chunk, pts);
        } catch (const ProcessExit& e) {
            if (e.status != 1 && e.status != 1001) __builtin_trap();
            finished = false;
        }
    }
    ves_split_free(s);
    return finished;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    Schedule in{data[0], data + 4, data[1], nullptr, 0, static_cast<size_t>(data[3]) + 1};
    if (in.record_len > size - 4) return 0;
    in.stream = in.record + in.record_len;
    in.size = size - 4 - in.record_len;
    Sink chunked;
    chunked.fail_at = data[2];
    if (!run(in, chunked) || chunked.fail_at != 0 || in.record_len != 0 || in.chunk >= in.size)
        return 0;
    Schedule whole = in;
    whole.chunk = in.size;
    Sink once;
    if (run(whole, once) && once.got != chunked.got) __builtin_trap();
    return 0;
}
