// Splitter pushes against golden traces (data/vessplitter_traces.txt): each
// command (codec data, push, final push, flush, layer switch) gives its
// result, the deliveries it made (layer, time stamp, bytes), the ring and
// timing state after it, and the diagnostics it wrote.
#include <memory>
#include <sstream>

#include "vessplit_test.h"

// unit_tests is linked with --wrap=realloc: a trace step makes the library's
// realloc fail from here, the library has no hook for it.
namespace {
bool g_fail_realloc = false;
}  // namespace

extern "C" void* __real_realloc(void* mem, size_t size);
extern "C" void* __wrap_realloc(void* mem, size_t size) {
    return g_fail_realloc ? nullptr : __real_realloc(mem, size);
}

namespace {

using vestest::Bytes;

// Stands in for the enhancement layer's parser: the DPB output times (one per
// call) and the clock the trace sets; reorder depth 2, 1001 ticks per unit.
struct StubParser {
    parser_t base;
    std::vector<uint64_t> dpd;
    size_t next = 0;
    int32_t time_scale = 60000;
    int sps_calls = 0, sei_calls = 0;
};

StubParser* stub(parser_handle_t p) { return reinterpret_cast<StubParser*>(p); }

void install_stub(ves_splitter* split, StubParser& s) {
    parser_t& b = s.base;
    b.parse_sps = [](uint8_t*, int32_t, int32_t, parser_handle_t p) {
        return ++stub(p)->sps_calls, 0;
    };
    b.parse_sei_messages = [](uint8_t*, int32_t, int32_t, parser_handle_t p) {
        return ++stub(p)->sei_calls, 0;
    };
    b.parser_get_num_reorder_frames = [](parser_handle_t) { return 2; };
    b.parser_get_dpb_output_time = [](parser_handle_t p, uint32_t) {
        StubParser* st = stub(p);
        return st->next < st->dpd.size() ? st->dpd[st->next++] : 0;
    };
    b.parser_get_num_units_in_tick = [](parser_handle_t) { return 1001; };
    b.parser_get_time_scale = [](parser_handle_t p) { return stub(p)->time_scale; };
    b.parser_reset = [](parser_handle_t) {};
    b.nal_type_aud = 9;
    b.nal_type_sps = 7;
    b.nal_type_sei = 6;
    b.nal_type_slice = 1;
    b.nal_type_idr = 5;
    split->layers[VES_EL].parser->parser_destroy(split->layers[VES_EL].parser);
    split->layers[VES_EL].parser = &b;
}

struct Trace {
    std::unique_ptr<vestest::Splitter> h;
    std::unique_ptr<StubParser> el;
    size_t seen = 0;

    void end() {
        if (el) h->split()->layers[VES_EL].parser = nullptr;  // the stub is not freed
        h.reset();
        el.reset();
        seen = 0;
    }

    std::string run(const std::vector<std::string>& w) {
        if (w[0] == "split") {
            end();
            h = std::make_unique<vestest::Splitter>(w[1] == "hevc", std::stoi(w[2]),
                                                    std::stoi(w[3]));
            el_time_scale = 90000;  // as at load
            if (w.size() > 4) {     // stub CLOCK EL_CLOCK DPB_TIMES...
                el = std::make_unique<StubParser>();
                el->time_scale = std::stoi(w[5]);
                el_time_scale = static_cast<uint32_t>(std::stoul(w[6]));
                for (size_t i = 7; i < w.size(); ++i) el->dpd.push_back(std::stoull(w[i]));
                install_stub(h->split(), *el);
            }
            return "";
        }
        std::ostringstream o;
        ves_splitter* s = h->split();
        if (w[0] == "codec_data") {
            Bytes rec = w[1] == "null" ? Bytes(16) : vestest::unhex(w[1]);
            const int len = w.size() > 2 ? std::stoi(w[2]) : static_cast<int>(rec.size());
            o << "ret "
              << ves_split_set_codec_data(h->handle, w[1] == "null" ? nullptr : rec.data(), len)
              << " length_size " << s->nal_length_size << " sets "
              << vestest::hex(s->sps_pps_nal_units, size_t(s->sps_pps_nal_units_size));
        } else if (w[0] == "push") {
            const Bytes in = vestest::unhex(w[2]);
            Bytes after = in;
            g_fail_realloc = w.size() > 3 && w[3] == "nomem";
            o << "ret " << h->push(&after, std::stoull(w[1]));
            g_fail_realloc = false;
            if (after != in) o << " rewritten " << vestest::hex(after.data(), after.size());
        } else if (w[0] == "finish") {
            o << "ret " << h->finish(std::stoull(w[1]));
        } else if (w[0] == "flush") {
            o << "ret " << ves_split_flush(h->handle);
        } else if (w[0] == "layer") {
            const ves_type t = w[1] == "BL" ? VES_BL : w[1] == "EL" ? VES_EL : VES_MD;
            o << "ret " << ves_split_enable_layer(h->handle, t, std::stoi(w[2]));
        } else if (w[0] == "fail") {  // the callback's next call fails with this result
            h->rec.fail_at = h->rec.calls + 1;
            h->rec.fail_result = std::stoi(w[1]);
            return "";
        }
        static const char* const kName[] = {"IN", "BL", "EL", "MD"};
        o << " |";
        for (; seen < h->rec.got.size(); ++seen) {
            const vestest::Delivery& d = h->rec.got[seen];
            o << " " << kName[d.type] << "@" << d.pts << " "
              << vestest::hex(d.data.data(), d.data.size());
        }
        const ves_layer_param& e = s->layers[VES_EL];
        o << " | calls " << h->rec.calls << " ring " << s->buf.len << "/" << s->buf.pos << "/"
          << s->buf.size << " gathered " << s->layers[VES_BL].len << "/" << e.len << " single "
          << s->single_track << " aligned " << s->f_idr_aligned << " el " << e.idr_pts << "/"
          << e.idr_dts << "/" << e.derived_pts << "/" << e.sps_valid << " clock " << el_time_scale;
        if (el) o << " stub " << el->sps_calls << "/" << el->sei_calls << "/" << el->next;
        return o.str() + " | " + h->log->take();
    }
};

TEST(SplitterTraces, Golden) {
    const uint32_t clock = el_time_scale;
    Trace t;
    vestest::check_vectors("vessplitter_traces.txt",
                           [&](const std::vector<std::string>& w) { return t.run(w); });
    t.end();
    el_time_scale = clock;
}

}  // namespace
