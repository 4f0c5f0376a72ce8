// `codecutil convert [INPUT] [-o DIR] [--json] [--ring-size N] [--wrap-at N]`
//
// Demuxes INPUT with libavformat. Every stream a binding matches gets its own
// converter and its own simulated decoder ring, whose consumer writes the
// committed bytes to DIR/stream<index>.<ext>. Per packet, as a player does:
//   CheckConv FALSE                 the packet goes into the ring unchanged
//                                   (passed_through)
//   ConvPushBuffer -> new space     the converter wrote the unit into ring
//                                   space; commit it (converted)
//   ConvPushBuffer -> packet's data the converter handed the unit back; it
//                                   goes into the ring unchanged (passed_through)
//   ConvPushBuffer -> NULL          nothing reaches the decoder (dropped)
// A unit that finds no ring space for an unchanged write is dropped too.
//
// Without INPUT every file of the bundled samples folder is converted into
// DIR/<sample name without extension>/. That folder is --samples DIR, else
// CODECUTIL_SAMPLES_RELDIR from the tool's own folder, so an installed tree
// can move.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/log.h>
#include <libavutil/mathematics.h>
}

#include "codec_binding.h"
#include "commands.h"
#include "json_writer.h"
#include "output_ring.h"
#include "run_output.h"
#include "zarn_codec_util.h"
#include "zarn_debug.h"

namespace codecutil_tool {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t kDefaultRingSize = 8u << 20;
// The simulated ring is one allocation; keep it sane.
constexpr uint64_t kMaxRingSize = 1u << 30;
constexpr const char* kDefaultOutputDir = "codecutil-out";
// Progress appears only for inputs that take longer than this, and is
// redrawn at most this often.
constexpr auto kProgressDelay = std::chrono::milliseconds(500);
constexpr auto kProgressPeriod = std::chrono::milliseconds(100);

struct ConvertOptions {
    const char* input = nullptr;
    const char* samples_dir = nullptr;
    std::string out_dir = kDefaultOutputDir;
    bool json = false;
    bool verbose = false;
    bool help = false;
    bool allow_warnings = false;
    uint32_t ring_size = kDefaultRingSize;
    uint32_t wrap_at = 0;
};

struct StreamReport {
    int index = 0;
    std::string codec;
    std::string output;
    uint64_t packets = 0;
    uint64_t converted = 0;
    uint64_t passed_through = 0;
    uint64_t dropped = 0;
    uint64_t param_changes = 0;
    uint64_t bytes_in = 0;
    uint64_t bytes_out = 0;
};

struct SkippedStream {
    int index = 0;
    std::string media;  // "video", "audio", ...
    std::string codec;
};

struct FileReport {
    std::string input;
    // The streams were read (to the end, or until a read error): the counts
    // below are worth printing even when the conversion failed.
    bool has_counts = false;
    // Packets the demuxer marked corrupt, such as the partial last sample of
    // a truncated file.
    uint64_t corrupt_packets = 0;
    std::vector<StreamReport> streams;
    std::vector<SkippedStream> skipped;
};

struct StreamJob {
    StreamJob() = default;
    StreamJob(const StreamJob&) = delete;
    StreamJob& operator=(const StreamJob&) = delete;
    ~StreamJob() { Zarn_CodecUtil_Destroy(converter); }

    AVStream* st = nullptr;
    const CodecBinding* binding = nullptr;
    void* converter = nullptr;
    ParamStorage param;
    OutputRing ring;
    StreamReport report;
    uint64_t refused_commits = 0;
};

const CodecBinding* find_binding(const AVStream* st) {
    for (const CodecBinding* family : {kNalBindings, kAudioBindings, kPayloadBindings}) {
        for (const CodecBinding* b = family; b->name != nullptr; ++b) {
            if (b->matches(st)) return b;
        }
    }
    return nullptr;
}

std::string av_error_text(int err) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(err, text, sizeof text);
    return text;
}

// Commit time stamp handed to the ring: presentation time in microseconds.
uint64_t commit_pts(const AVStream* st, const AVPacket* pkt) {
    const int64_t ts = pkt->pts != AV_NOPTS_VALUE ? pkt->pts : pkt->dts;
    if (ts == AV_NOPTS_VALUE || ts < 0) return 0;
    return static_cast<uint64_t>(av_rescale_q(ts, st->time_base, AVRational{1, 1000000}));
}

class Progress {
public:
    Progress(bool enabled, std::string label)
        : enabled_(enabled), label_(std::move(label)), start_(Clock::now()) {}
    ~Progress() { finish(); }

    void update(AVFormatContext* fmt) {
        if (!enabled_) return;
        const auto now = Clock::now();
        if (now - start_ < kProgressDelay || (shown_ && now - last_ < kProgressPeriod)) return;
        last_ = now;
        shown_ = true;
        const int64_t size = fmt->pb != nullptr ? avio_size(fmt->pb) : -1;
        const int64_t pos = fmt->pb != nullptr ? avio_tell(fmt->pb) : -1;
        if (size > 0 && pos >= 0) {
            std::fprintf(stderr, "\r%s: %3d%%", label_.c_str(),
                         static_cast<int>(std::min<int64_t>(100, pos * 100 / size)));
        } else {
            std::fprintf(stderr, "\r%s: %lld bytes", label_.c_str(), static_cast<long long>(pos));
        }
        std::fflush(stderr);
    }

    void finish() {
        if (!shown_) return;
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
        shown_ = false;
    }

private:
    using Clock = std::chrono::steady_clock;
    bool enabled_;
    std::string label_;
    Clock::time_point start_;
    Clock::time_point last_;
    bool shown_ = false;
};

// New codec data in a packet's side data (a mid-stream sequence header, a
// splice, a second sample description): the stream's extradata becomes the
// new record and the converter gets it before the packet, so the parameter
// sets of the new record reach the decoder ahead of the next unit.
void apply_new_codec_data(StreamJob& job, const AVPacket* pkt, const std::string& input) {
    size_t size = 0;
    const uint8_t* data = av_packet_get_side_data(pkt, AV_PKT_DATA_NEW_EXTRADATA, &size);
    if (data == nullptr || size == 0 || size > INT32_MAX || job.binding->make_param == nullptr)
        return;
    AVCodecParameters* par = job.st->codecpar;
    auto* copy = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (copy == nullptr) return;
    std::memcpy(copy, data, size);
    av_freep(&par->extradata);
    par->extradata = copy;
    par->extradata_size = static_cast<int>(size);
    void* param = job.binding->make_param(job.st, job.param);
    if (param == nullptr) return;
    ++job.report.param_changes;
    if (!Zarn_CodecUtil_SetParam(job.converter, param))
        std::fprintf(stderr,
                     "codecutil: %s: stream %d (%s): new codec data refused by the converter\n",
                     input.c_str(), job.report.index, job.report.codec.c_str());
}

void push_packet(StreamJob& job, const AVPacket* pkt) {
    StreamReport& r = job.report;
    ++r.packets;
    r.bytes_in += static_cast<uint64_t>(pkt->size);

    CodecUtilBuffer_t buf{};
    buf.data = pkt->data;
    buf.size = static_cast<zarn_uint32>(pkt->size);
    if (job.binding->prepare != nullptr) job.binding->prepare(job.st, pkt, buf);
    const uint64_t pts = commit_pts(job.st, pkt);

    if (!Zarn_CodecUtil_CheckConv(job.converter)) {
        ++(job.ring.write_unchanged(buf.data, buf.size, pts) ? r.passed_through : r.dropped);
        return;
    }
    zarn_uint32 size = 0;
    zarn_uint8* out = Zarn_CodecUtil_ConvPushBuffer(job.converter, job.ring.stream(), &buf, &size);
    if (out == nullptr) {
        ++r.dropped;
    } else if (out == buf.data) {
        // Handed back: the converter declined (unit already in the decoder's
        // form, malformed, or no ring space); the player sends it as it is.
        ++(job.ring.write_unchanged(buf.data, buf.size, pts) ? r.passed_through : r.dropped);
    } else if (job.ring.commit(out, size, pts)) {
        ++r.converted;
    } else {
        ++r.dropped;
        ++job.refused_commits;
    }
}

// Opens every matched stream's converter and ring. False after reporting.
bool open_jobs(const fs::path& out_dir, const ConvertOptions& opt,
               std::vector<std::unique_ptr<StreamJob>>& jobs, FileReport& report) {
    std::error_code ec;
    fs::create_directories(out_dir, ec);
    if (ec) {
        report_error("cannot create '" + out_dir.string() + "': " + ec.message());
        return false;
    }
    for (auto& job : jobs) {
        StreamReport& r = job->report;
        job->converter = job->binding->create(job->st);
        if (job->converter == nullptr) {
            report_error(report.input + ": stream " + std::to_string(r.index) + " (" + r.codec +
                         "): the converter could not be created");
            return false;
        }
        if (job->binding->make_param != nullptr) {
            void* param = job->binding->make_param(job->st, job->param);
            if (param != nullptr && !Zarn_CodecUtil_SetParam(job->converter, param)) {
                std::fprintf(stderr,
                             "codecutil: %s: stream %d (%s): codec data refused by the converter\n",
                             report.input.c_str(), r.index, r.codec.c_str());
            }
        }
        std::string error;
        if (!job->ring.open(r.output, opt.ring_size, opt.wrap_at, error)) {
            report_error(error);
            return false;
        }
    }
    return true;
}

// Converts one file. Fills `report`; returns false after reporting a failure
// on stderr. A file with nothing to convert succeeds with no streams.
bool convert_file(const std::string& input, const fs::path& out_dir, const ConvertOptions& opt,
                  FileReport& report) {
    report.input = input;

    if (!check_readable(input.c_str(), "input")) return false;

    AVFormatContext* fmt = nullptr;
    int err = avformat_open_input(&fmt, input.c_str(), nullptr, nullptr);
    if (err < 0) {
        report_error("'" + input + "' is not a media file libavformat can read (" +
                     av_error_text(err) + ")");
        return false;
    }
    struct FormatCloser {
        AVFormatContext** fmt;
        ~FormatCloser() { avformat_close_input(fmt); }
    } closer{&fmt};
    err = avformat_find_stream_info(fmt, nullptr);
    if (err < 0) {
        report_error("'" + input + "': libavformat cannot find its streams (" + av_error_text(err) +
                     ")");
        return false;
    }

    std::vector<std::unique_ptr<StreamJob>> jobs;
    std::vector<StreamJob*> job_of_stream(fmt->nb_streams, nullptr);
    for (unsigned i = 0; i < fmt->nb_streams; ++i) {
        AVStream* st = fmt->streams[i];
        const CodecBinding* binding = find_binding(st);
        if (binding == nullptr) {
            const char* media = av_get_media_type_string(st->codecpar->codec_type);
            report.skipped.push_back({st->index, media != nullptr ? media : "unknown",
                                      avcodec_get_name(st->codecpar->codec_id)});
            st->discard = AVDISCARD_ALL;
            continue;
        }
        auto job = std::make_unique<StreamJob>();
        job->st = st;
        job->binding = binding;
        job->report.index = st->index;
        job->report.codec = binding->name;
        job->report.output =
            (out_dir / ("stream" + std::to_string(st->index) + "." + binding->ext)).string();
        job_of_stream[i] = job.get();
        jobs.push_back(std::move(job));
    }
    if (jobs.empty()) {
        std::string note = input + ": no stream to convert";
        for (const SkippedStream& s : report.skipped)
            note +=
                (&s == &report.skipped.front() ? " (skipped: " : ", ") + s.media + " " + s.codec;
        if (!report.skipped.empty()) note += ")";
        std::fprintf(stderr, "codecutil: %s\n", note.c_str());
        report.has_counts = true;
        return true;
    }
    if (!open_jobs(out_dir, opt, jobs, report)) return false;

    Progress progress(isatty(STDERR_FILENO) != 0 && isatty(fileno(report_out())) != 0,
                      fs::path(input).filename().string());
    AVPacket* pkt = av_packet_alloc();
    while ((err = av_read_frame(fmt, pkt)) >= 0) {
        const auto index = static_cast<unsigned>(pkt->stream_index);
        if ((pkt->flags & AV_PKT_FLAG_CORRUPT) != 0) ++report.corrupt_packets;
        if (index < job_of_stream.size() && job_of_stream[index] != nullptr) {
            apply_new_codec_data(*job_of_stream[index], pkt, input);
            push_packet(*job_of_stream[index], pkt);
        }
        av_packet_unref(pkt);
        progress.update(fmt);
    }
    av_packet_free(&pkt);
    progress.finish();
    report.has_counts = true;
    bool ok = true;
    if (err != AVERROR_EOF) {
        report_error("'" + input + "': reading stopped early (" + av_error_text(err) + ")");
        ok = false;
    }

    for (auto& job : jobs) {
        Zarn_CodecUtil_Destroy(job->converter);
        job->converter = nullptr;
        StreamReport& r = job->report;
        if (const uint32_t refused = job->ring.refused_grants(); refused != 0) {
            std::fprintf(stderr,
                         "codecutil: %s: stream %d: the ring of %u bytes refused %u space requests "
                         "(see --ring-size)\n",
                         input.c_str(), r.index, opt.ring_size, refused);
        }
        std::string error;
        if (!job->ring.close(error)) {
            report_error(error);
            ok = false;
        }
        if (job->refused_commits != 0) {
            report_error(input + ": stream " + std::to_string(r.index) + ": the ring refused " +
                         std::to_string(job->refused_commits) + " commits of converted units");
            ok = false;
        }
        struct stat out_info {};
        r.bytes_out = ::stat(staged_path(r.output).c_str(), &out_info) == 0
                          ? static_cast<uint64_t>(out_info.st_size)
                          : 0;
        report.streams.push_back(r);
    }
    return ok;
}

// True, after saying so on stderr, when the demuxer marked packets corrupt
// (a truncated file) or some stream had units and none of them reached the
// decoder: the output then says nothing reliable about that stream.
bool all_dropped(const FileReport& report) {
    bool any = false;
    if (report.corrupt_packets != 0) {
        std::fprintf(stderr,
                     "codecutil: %s: %llu packets marked corrupt by the demuxer (truncated?)\n",
                     report.input.c_str(), static_cast<unsigned long long>(report.corrupt_packets));
        any = true;
    }
    for (const StreamReport& r : report.streams) {
        if (r.packets == 0 || r.dropped != r.packets) continue;
        std::fprintf(stderr, "codecutil: %s: stream %d (%s): all %llu units were dropped\n",
                     report.input.c_str(), r.index, r.codec.c_str(),
                     static_cast<unsigned long long>(r.packets));
        any = true;
    }
    return any;
}

void write_json(JsonWriter& json, const FileReport& report) {
    json.begin_object();
    json.field("input", report.input);
    json.key("streams");
    json.begin_array();
    for (const StreamReport& r : report.streams) {
        json.begin_object();
        json.field("index", static_cast<uint64_t>(r.index));
        json.field("codec", r.codec);
        json.field("output", r.output);
        json.field("packets", r.packets);
        json.field("converted", r.converted);
        json.field("passed_through", r.passed_through);
        json.field("dropped", r.dropped);
        json.field("param_changes", r.param_changes);
        json.field("bytes_in", r.bytes_in);
        json.field("bytes_out", r.bytes_out);
        json.end_object();
    }
    json.end_array();
    json.end_object();
}

void print_summary(const FileReport& report) {
    std::fprintf(report_out(), "%s\n", report.input.c_str());
    struct Line {
        int index;
        const StreamReport* converted;
        const SkippedStream* skipped;
    };
    std::vector<Line> lines;
    for (const StreamReport& r : report.streams) lines.push_back({r.index, &r, nullptr});
    for (const SkippedStream& s : report.skipped) lines.push_back({s.index, nullptr, &s});
    std::sort(lines.begin(), lines.end(),
              [](const Line& a, const Line& b) { return a.index < b.index; });
    for (const Line& line : lines) {
        if (line.skipped != nullptr) {
            std::fprintf(report_out(), "  stream %d  %-6s skipped (%s, no converter)\n", line.index,
                         line.skipped->codec.c_str(), line.skipped->media.c_str());
            continue;
        }
        const StreamReport& r = *line.converted;
        std::fprintf(report_out(),
                     "  stream %d  %-6s %llu packets: %llu converted, %llu passed through, "
                     "%llu dropped; %llu -> %llu bytes -> %s\n",
                     r.index, r.codec.c_str(), static_cast<unsigned long long>(r.packets),
                     static_cast<unsigned long long>(r.converted),
                     static_cast<unsigned long long>(r.passed_through),
                     static_cast<unsigned long long>(r.dropped),
                     static_cast<unsigned long long>(r.bytes_in),
                     static_cast<unsigned long long>(r.bytes_out), r.output.c_str());
    }
}

// The library logs through the platform's log library; a command-line user
// wants only the tool's own lines unless asked. ZARN_DEBUG_LEVEL, when set,
// keeps the platform's own choice.
void configure_logging(bool verbose) {
    if (std::getenv("ZARN_DEBUG_LEVEL") == nullptr)
        __zarn_debug_min = verbose ? ZARN_LEVEL_WARNING : ZARN_LEVEL_NONE;
    av_log_set_level(verbose ? AV_LOG_WARNING : AV_LOG_QUIET);
}

void print_help() {
    std::fprintf(
        report_out(),
        "usage: codecutil convert [INPUT] [-o DIR] [--json] [--ring-size N] [--wrap-at N] [-v]\n"
        "                         [--allow-warnings] [--samples DIR]\n"
        "\n"
        "Feeds every stream of INPUT that has a converter through the library into a\n"
        "simulated decoder ring and writes what the decoder would receive to\n"
        "DIR/stream<index>.<ext>. Without INPUT, converts every bundled sample into\n"
        "DIR/<sample>/.\n"
        "\n"
        "  -o, --output DIR   output folder (default %s)\n"
        "  --json             print one JSON object with per-stream counts instead of\n"
        "                     the summary (without INPUT: {\"inputs\": [...]})\n"
        "  --ring-size N      ring capacity in bytes, suffix k or M allowed (default 8M)\n"
        "  --wrap-at N        initial write position in the ring, so that units\n"
        "                     straddling its end take the two-piece path (default 0)\n"
        "  -v, --verbose      show the converter library's and libavformat's warnings\n"
        "  --allow-warnings   exit 0 even when units were dropped or the input is cut\n"
        "  --samples DIR      the samples folder used without INPUT (default: %s\n"
        "                     from the folder of the codecutil executable)\n"
        "\n"
        "Exit status: 0 done; 1 an input could not be converted; 2 usage error or an\n"
        "unreadable INPUT; 3 every unit of some stream was dropped (see --ring-size),\n"
        "or the input is truncated, and --allow-warnings was not given; 130 interrupted. Output "
        "files appear only\n"
        "on exit 0.\n",
        kDefaultOutputDir, CODECUTIL_SAMPLES_RELDIR);
}

// Returns kExitOk, or kExitUsage after reporting.
int parse_options(int argc, char** argv, ConvertOptions& opt) {
    uint64_t ring_size = kDefaultRingSize;
    uint64_t wrap_at = 0;
    bool wrap_given = false;
    bool only_positional = false;
    for (int i = 1; i < argc; ++i) {
        const char* value = nullptr;
        const std::string arg = argv[i];
        if (only_positional || arg.empty() || arg[0] != '-' || arg == "-") {
            if (opt.input != nullptr) {
                report_error("convert takes one INPUT (got '" + std::string(opt.input) + "' and '" +
                             arg + "')");
                return kExitUsage;
            }
            opt.input = argv[i];
        } else if (arg == "--") {
            only_positional = true;
        } else if (arg == "-h" || arg == "--help") {
            opt.help = true;
        } else if (arg == "--json") {
            opt.json = true;
        } else if (arg == "-v" || arg == "--verbose") {
            opt.verbose = true;
        } else if (arg == "--allow-warnings") {
            opt.allow_warnings = true;
        } else if (take_option(argc, argv, i, "-o", value) ||
                   take_option(argc, argv, i, "--output", value)) {
            if (value == nullptr || *value == '\0') {
                report_error("convert: " + arg + " needs a folder");
                return kExitUsage;
            }
            opt.out_dir = value;
        } else if (take_option(argc, argv, i, "--samples", value)) {
            if (value == nullptr || *value == '\0') {
                report_error("convert: --samples needs a folder");
                return kExitUsage;
            }
            opt.samples_dir = value;
        } else if (take_option(argc, argv, i, "--ring-size", value)) {
            if (!parse_byte_count(value, kMaxRingSize, ring_size) || ring_size == 0) {
                report_error("convert: --ring-size needs a byte count from 1 to 1G (got '" +
                             std::string(value != nullptr ? value : "") + "')");
                return kExitUsage;
            }
        } else if (take_option(argc, argv, i, "--wrap-at", value)) {
            if (!parse_byte_count(value, kMaxRingSize, wrap_at)) {
                report_error("convert: --wrap-at needs a byte offset (got '" +
                             std::string(value != nullptr ? value : "") + "')");
                return kExitUsage;
            }
            wrap_given = true;
        } else {
            report_error("convert: unknown option '" + arg + "' (try 'codecutil convert --help')");
            return kExitUsage;
        }
    }
    if (wrap_given && wrap_at >= ring_size) {
        report_error("convert: --wrap-at " + std::to_string(wrap_at) +
                     " is not inside the ring of " + std::to_string(ring_size) + " bytes");
        return kExitUsage;
    }
    opt.ring_size = static_cast<uint32_t>(ring_size);
    opt.wrap_at = static_cast<uint32_t>(wrap_at);
    return kExitOk;
}

// Media files of the samples folder, sorted by name; the script that makes
// them and any notes are not inputs.
bool list_samples(const fs::path& dir, std::vector<fs::path>& files) {
    std::error_code ec;
    fs::directory_iterator it(dir, ec);
    if (ec) {
        report_error("cannot read the bundled samples in '" + dir.string() + "': " + ec.message() +
                     " (give an INPUT file, or --samples DIR)");
        return false;
    }
    for (; it != fs::directory_iterator(); it.increment(ec)) {
        if (ec) break;
        const fs::path& p = it->path();
        const std::string name = p.filename().string();
        const std::string ext = p.extension().string();
        if (name.empty() || name[0] == '.' || !it->is_regular_file(ec)) continue;
        if (ext == ".sh" || ext == ".md" || ext == ".txt") continue;
        files.push_back(p);
    }
    std::sort(files.begin(), files.end());
    if (files.empty()) {
        report_error("no samples in '" + dir.string() + "' (give an INPUT file, or --samples DIR)");
        return false;
    }
    return true;
}

// The bundled samples sit at a fixed place relative to the executable, both
// in the build tree and in an installed tree.
fs::path default_samples_dir() {
    std::error_code ec;
    const fs::path self = fs::read_symlink("/proc/self/exe", ec);
    if (ec) return fs::path(CODECUTIL_SAMPLES_RELDIR);
    return (self.parent_path() / CODECUTIL_SAMPLES_RELDIR).lexically_normal();
}

}  // namespace

int run_convert(int argc, char** argv) {
    ConvertOptions opt;
    if (int status = parse_options(argc, argv, opt); status != kExitOk) return status;
    if (opt.help) {
        print_help();
        return kExitOk;
    }
    configure_logging(opt.verbose);

    const fs::path out_dir = opt.out_dir;
    if (opt.input != nullptr) {
        if (!check_readable(opt.input, "input")) return kExitUsage;
        FileReport report;
        const bool ok = convert_file(opt.input, out_dir, opt, report);
        if (report.has_counts) {
            if (opt.json) {
                JsonWriter json;
                write_json(json, report);
                std::fprintf(report_out(), "%s\n", json.text().c_str());
            } else {
                print_summary(report);
            }
        }
        if (!ok) return kExitFailure;
        return all_dropped(report) && !opt.allow_warnings ? kExitProblems : kExitOk;
    }

    std::vector<fs::path> samples;
    const fs::path samples_dir =
        opt.samples_dir != nullptr ? fs::path(opt.samples_dir) : default_samples_dir();
    if (!list_samples(samples_dir, samples)) return kExitFailure;
    int status = kExitOk;
    bool problems = false;
    JsonWriter json;
    json.begin_object();
    json.key("inputs");
    json.begin_array();
    for (const fs::path& sample : samples) {
        FileReport report;
        if (!convert_file(sample.string(), out_dir / sample.stem(), opt, report))
            status = kExitFailure;
        if (!report.has_counts) continue;
        problems = problems || all_dropped(report);
        if (opt.json) {
            write_json(json, report);
        } else {
            print_summary(report);
        }
    }
    json.end_array();
    json.end_object();
    if (opt.json) std::fprintf(report_out(), "%s\n", json.text().c_str());
    if (status == kExitOk && problems && !opt.allow_warnings) return kExitProblems;
    return status;
}

}  // namespace codecutil_tool
