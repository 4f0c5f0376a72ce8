// Splitter push: codec type, transport-stream flag and layer switches from
// byte 0, a decoder configuration record of byte 1's length, the output
// callback failing at the call byte 2 names (0: never), then the stream in
// chunks of byte 3's size + 1, a flush and one more push.
//
// Checked beyond crashes: every delivery names a layer and lies in readable
// bytes of the length given (ASan sees the read). The parsers' two process
// exits (exit_guard.h) end the input: the status must be one of theirs and
// the splitter is freed as it stands.
#include <cstdint>
#include <cstring>
#include <vector>

#include "exit_guard.h"
#include "vessplitter.h"

namespace {

struct Sink {
    int calls = 0;
    int fail_at = 0;
    uint32_t sum = 0;
};

int deliver(void* param, enum ves_type type, void* data, int len, uint64_t) {
    auto* s = static_cast<Sink*>(param);
    const int t = static_cast<int>(type);
    if (t < 0 || t >= VES_TYPE_NUM || len < 0 || (len > 0 && data == nullptr)) __builtin_trap();
    const auto* p = static_cast<const uint8_t*>(data);
    for (int i = 0; i < len; ++i) s->sum += p[i];
    return ++s->calls == s->fail_at ? -1 : 0;
}

// The push may rewrite its input in place, and an exact-size copy lets ASan
// see a read past the chunk.
void push_copy(void* s, const uint8_t* data, size_t n, uint64_t pts) {
    std::vector<uint8_t> copy(data, data + n);
    ves_split_push(s, copy.data(), static_cast<int>(n), pts);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const uint8_t flags = data[0];
    const size_t record_len = data[1];
    Sink sink;
    sink.fail_at = data[2];
    const size_t chunk = static_cast<size_t>(data[3]) + 1;
    data += 4;
    size -= 4;
    if (record_len > size) return 0;

    void* s = ves_split_init((flags & 1) != 0 ? VES_HEVC : VES_AVC, deliver, &sink, (flags >> 1) & 1);
    if (s == nullptr) return 0;
    {
        ExitGuard guard;
        try {
            ves_split_enable_layer(s, VES_EL, (flags >> 2) & 1 ? 0 : 1);
            ves_split_enable_layer(s, VES_MD, (flags >> 3) & 1 ? 0 : 1);
            // An own copy of exactly record_len bytes, so a read past it is seen.
            if (record_len > 0) {
                std::vector<uint8_t> rec(data, data + record_len);
                ves_split_set_codec_data(s, rec.data(), static_cast<int>(record_len));
            }
            data += record_len;
            size -= record_len;
            uint64_t pts = 0;
            for (size_t off = 0; off < size; off += chunk) {
                const size_t n = size - off < chunk ? size - off : chunk;
                push_copy(s, data + off, n, pts += 3000);
            }
            ves_split_flush(s);
            if (size > 0) push_copy(s, data, size < chunk ? size : chunk, pts);
        } catch (const ProcessExit& e) {
            if (e.status != 1 && e.status != 1001) __builtin_trap();
        }
    }
    ves_split_free(s);
    return 0;
}
