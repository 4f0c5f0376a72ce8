// `codecutil split INPUT [--codec avc|hevc] [-o DIR] [--json] [--ts] [--pts FILE.csv]
//                  [--codec-data FILE] [--allow-warnings]`
//
// A container INPUT (MP4, MKV, MPEG-TS) is demuxed with libavformat and its
// first H.264/H.265 track pushed packet by packet (split_container). A raw
// stream is pushed through the splitter the way a transport-stream
// demultiplexer would: in the pieces and with the time stamps of FILE.csv
// (rows "offset,pts", pts in nanoseconds; each row's bytes run to the next
// row's offset, the last to the end of the file), or in 64 KiB pieces with
// pts 0, then a final push of length 0. Each layer's deliveries go,
// concatenated, to DIR/bl.<ext>, DIR/el.<ext> and DIR/md.bin, and one row per
// delivery to DIR/units.csv ("type,len,pts").
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
}

#include "commands.h"
#include "json_writer.h"
#include "run_output.h"
#include "vessplitter.h"

namespace codecutil_tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDefaultOutputDir = "codecutil-out";
constexpr size_t kChunk = 64 * 1024;
// The splitter takes pushes of int length.
constexpr uint64_t kMaxInput = 0x7FFFFFFF;

struct SplitOptions {
    const char* input = nullptr;
    int codec = -1;
    std::string out_dir = kDefaultOutputDir;
    bool json = false;
    bool ts = false;
    bool help = false;
    bool allow_warnings = false;
    const char* pts_csv = nullptr;
    const char* codec_data = nullptr;
};

struct Piece {
    uint64_t offset;
    uint64_t pts;
};

struct LayerOut {
    const char* name;
    std::string path;
    std::FILE* file = nullptr;
    uint64_t units = 0;
    uint64_t bytes = 0;
};

// What the output callback writes to.
struct Sink {
    LayerOut layers[3] = {{"BL", {}}, {"EL", {}}, {"MD", {}}};
    std::FILE* csv = nullptr;
    bool write_failed = false;
};

int on_output(void* param, ves_type type, void* data, int len, uint64_t pts) {
    auto* sink = static_cast<Sink*>(param);
    if (type < VES_BL || type > VES_MD) return -1;
    LayerOut& out = sink->layers[type - VES_BL];
    const size_t n = static_cast<size_t>(len);
    if (std::fwrite(data, 1, n, out.file) != n ||
        std::fprintf(sink->csv, "%s,%d,%" PRIu64 "\n", out.name, len, pts) < 0) {
        sink->write_failed = true;
        return -1;
    }
    ++out.units;
    out.bytes += n;
    return 0;
}

void print_help() {
    std::fprintf(report_out(),
                 "usage: codecutil split INPUT [--codec avc|hevc] [-o DIR] [--json] [--ts]\n"
                 "                       [--pts FILE.csv] [--codec-data FILE] [--allow-warnings]\n"
                 "\n"
                 "Splits a dual-layer stream (enhancement-layer units behind 7E 01, metadata\n"
                 "behind 7C 01) into DIR/bl.<h264|h265>, DIR/el.<h264|h265> and DIR/md.bin,\n"
                 "and lists every delivery in DIR/units.csv (type,len,pts).\n"
                 "\n"
                 "INPUT may be an MP4, MKV or MPEG-TS file: its first H.264/H.265 track is\n"
                 "split, the codec taken from the container; otherwise it is a raw stream.\n"
                 "\n"
                 "  --codec avc|hevc   the stream's codec (required for a raw stream)\n"
                 "  -o, --output DIR   output folder (default %s)\n"
                 "  --json             print the counts as one JSON object\n"
                 "  --ts               access units are delimited by access-unit delimiters\n"
                 "  --pts FILE.csv     push pieces given by rows \"offset,pts\" (pts in ns);\n"
                 "                     without it, 64 KiB pieces with pts 0\n"
                 "  --codec-data FILE  a decoder configuration record: the input is then\n"
                 "                     length-prefixed, and each piece must hold whole units\n"
                 "  --allow-warnings   exit 0 even when no enhancement layer was found\n"
                 "\n"
                 "Exit status: 0 done; 1 the input could not be split; 2 usage error or an\n"
                 "unreadable path; 3 no enhancement-layer unit was found (wrong --codec, or a\n"
                 "single-layer stream) and --allow-warnings was not given; 130 interrupted.\n"
                 "Output files appear only on exit 0.\n",
                 kDefaultOutputDir);
}

int parse_options(int argc, char** argv, SplitOptions& opt) {
    for (int i = 1; i < argc; ++i) {
        const char* value = nullptr;
        const std::string arg = argv[i];
        if (arg.empty() || arg[0] != '-' || arg == "-") {
            if (opt.input != nullptr) {
                report_error("split takes one INPUT (got '" + std::string(opt.input) + "' and '" +
                             arg + "')");
                return kExitUsage;
            }
            opt.input = argv[i];
        } else if (arg == "-h" || arg == "--help") {
            opt.help = true;
        } else if (arg == "--json") {
            opt.json = true;
        } else if (arg == "--ts") {
            opt.ts = true;
        } else if (arg == "--allow-warnings") {
            opt.allow_warnings = true;
        } else if (take_option(argc, argv, i, "--codec", value)) {
            const std::string c = value != nullptr ? value : "";
            if (c == "avc" || c == "h264") {
                opt.codec = VES_AVC;
            } else if (c == "hevc" || c == "h265") {
                opt.codec = VES_HEVC;
            } else {
                report_error("split: --codec needs avc or hevc (got '" + c + "')");
                return kExitUsage;
            }
        } else if (take_option(argc, argv, i, "-o", value) ||
                   take_option(argc, argv, i, "--output", value)) {
            if (value == nullptr || *value == '\0') {
                report_error("split: " + arg + " needs a folder");
                return kExitUsage;
            }
            opt.out_dir = value;
        } else if (take_option(argc, argv, i, "--pts", value)) {
            if (value == nullptr || *value == '\0') {
                report_error("split: --pts needs a CSV file");
                return kExitUsage;
            }
            opt.pts_csv = value;
        } else if (take_option(argc, argv, i, "--codec-data", value)) {
            if (value == nullptr || *value == '\0') {
                report_error("split: --codec-data needs a file");
                return kExitUsage;
            }
            opt.codec_data = value;
        } else {
            report_error("split: unknown option '" + arg + "' (try 'codecutil split --help')");
            return kExitUsage;
        }
    }
    if (opt.help) return kExitOk;
    if (opt.input == nullptr) {
        report_error("split: no INPUT (try 'codecutil split --help')");
        return kExitUsage;
    }
    return kExitOk;
}

bool read_file(const char* path, const char* what, std::vector<uint8_t>& out) {
    std::ifstream f(path, std::ios::binary);
    if (!f) {
        report_error(std::string("cannot open ") + what + " '" + path +
                     "': " + std::strerror(errno));
        return false;
    }
    out.assign(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    if (f.bad()) {
        report_error(std::string("cannot read ") + what + " '" + path + "'");
        return false;
    }
    return true;
}

bool parse_u64(const std::string& text, uint64_t& out) {
    if (text.empty() || text.size() > 20) return false;
    char* end = nullptr;
    errno = 0;
    const unsigned long long v = std::strtoull(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || text[0] < '0' || text[0] > '9') return false;
    out = v;
    return true;
}

// Rows "offset,pts"; a first line that is not numeric is a header. Offsets
// must rise and lie inside the input.
bool read_pieces(const char* path, uint64_t input_size, std::vector<Piece>& pieces) {
    std::ifstream f(path);
    if (!f) {
        report_error(std::string("cannot open pts file '") + path + "': " + std::strerror(errno));
        return false;
    }
    std::string line;
    for (int number = 1; std::getline(f, line); ++number) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) continue;
        const size_t comma = line.find(',');
        Piece p{};
        const bool ok = comma != std::string::npos && parse_u64(line.substr(0, comma), p.offset) &&
                        parse_u64(line.substr(comma + 1), p.pts);
        if (!ok) {
            if (number == 1) continue;  // header
            report_error(std::string(path) + ":" + std::to_string(number) +
                         ": expected \"offset,pts\", got '" + line + "'");
            return false;
        }
        if (pieces.empty() && p.offset != 0) {
            report_error(std::string(path) + ":" + std::to_string(number) +
                         ": the first offset is " + std::to_string(p.offset) +
                         ", not 0: the bytes before it would never be pushed");
            return false;
        }
        if (p.offset >= input_size || (!pieces.empty() && p.offset <= pieces.back().offset)) {
            report_error(std::string(path) + ":" + std::to_string(number) + ": offset " +
                         std::to_string(p.offset) +
                         " is not after the previous one inside the input of " +
                         std::to_string(input_size) + " bytes");
            return false;
        }
        pieces.push_back(p);
    }
    if (pieces.empty()) {
        report_error(std::string("no rows in pts file '") + path + "'");
        return false;
    }
    return true;
}

bool open_outputs(const fs::path& dir, int codec, Sink& sink, std::string& csv_path) {
    std::error_code ec;
    fs::create_directories(dir, ec);
    if (ec) {
        report_error("cannot create '" + dir.string() + "': " + ec.message());
        return false;
    }
    const char* ext = codec == VES_HEVC ? "h265" : "h264";
    sink.layers[0].path = (dir / (std::string("bl.") + ext)).string();
    sink.layers[1].path = (dir / (std::string("el.") + ext)).string();
    sink.layers[2].path = (dir / "md.bin").string();
    csv_path = (dir / "units.csv").string();
    for (LayerOut& l : sink.layers) {
        l.file = std::fopen(stage_output(l.path).c_str(), "wb");
        if (l.file == nullptr) {
            report_error("cannot write '" + l.path + "': " + std::strerror(errno));
            return false;
        }
    }
    sink.csv = std::fopen(stage_output(csv_path).c_str(), "w");
    if (sink.csv == nullptr) {
        report_error("cannot write '" + csv_path + "': " + std::strerror(errno));
        return false;
    }
    std::fputs("type,len,pts\n", sink.csv);
    return true;
}

bool close_outputs(Sink& sink) {
    bool ok = true;
    for (LayerOut& l : sink.layers) {
        if (l.file != nullptr && std::fclose(l.file) != 0) ok = false;
        l.file = nullptr;
    }
    if (sink.csv != nullptr && std::fclose(sink.csv) != 0) ok = false;
    sink.csv = nullptr;
    return ok;
}

// "\rNAME: NN%" on stderr while a long split runs, only when the report and
// stderr both go to a terminal; erased when done.
class Progress {
public:
    Progress(const char* input, uint64_t size)
        : label_(fs::path(input).filename().string()),
          size_(size),
          enabled_(size > 0 && isatty(STDERR_FILENO) != 0 && isatty(fileno(report_out())) != 0) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() {
        if (shown_) std::fputs("\r\033[K", stderr);
    }
    void update(uint64_t pos) {
        if (!enabled_) return;
        const auto now = Clock::now();
        if (now - start_ < std::chrono::milliseconds(500) ||
            (shown_ && now - last_ < std::chrono::milliseconds(100)))
            return;
        last_ = now;
        shown_ = true;
        std::fprintf(stderr, "\r%s: %3d%%", label_.c_str(),
                     static_cast<int>(std::min<uint64_t>(100, pos * 100 / size_)));
        std::fflush(stderr);
    }

private:
    using Clock = std::chrono::steady_clock;
    std::string label_;
    uint64_t size_;
    bool enabled_;
    bool shown_ = false;
    Clock::time_point start_ = Clock::now();
    Clock::time_point last_;
};

// Runs the pushes, reading each piece from `in` as it goes, so memory holds
// one piece and not the input; false after reporting the first failure.
bool push_all(void* splitter, const char* input_name, std::FILE* in, uint64_t size,
              const std::vector<Piece>& pieces, const Sink& sink) {
    std::vector<uint8_t> piece;
    Progress progress(input_name, size);
    auto push = [&](uint64_t begin, uint64_t end, uint64_t pts) {
        progress.update(begin);
        if (end - begin > kMaxInput) {
            report_error("split: piece at " + std::to_string(begin) + " is larger than 2 GiB");
            return false;
        }
        piece.resize(end - begin);
        if (!piece.empty() && std::fread(piece.data(), 1, piece.size(), in) != piece.size()) {
            report_error("split: the input ended or failed at byte " + std::to_string(begin) +
                         " of " + std::to_string(size));
            return false;
        }
        void* at = piece.empty() ? nullptr : piece.data();
        const int r = ves_split_push(splitter, at, static_cast<int>(piece.size()), pts);
        if (r == 0) return true;
        if (sink.write_failed)
            report_error("split: cannot write the output");
        else
            report_error("split: push of bytes " + std::to_string(begin) + ".." +
                         std::to_string(end) + " failed with " + std::to_string(r));
        return false;
    };
    if (pieces.empty()) {
        for (uint64_t at = 0; at < size; at += kChunk)
            if (!push(at, std::min<uint64_t>(at + kChunk, size), 0)) return false;
        return push(size, size, 0);
    }
    for (size_t i = 0; i < pieces.size(); ++i) {
        const uint64_t end = i + 1 < pieces.size() ? pieces[i + 1].offset : size;
        if (!push(pieces[i].offset, end, pieces[i].pts)) return false;
    }
    return push(size, size, pieces.back().pts);
}

void print_report(const SplitOptions& opt, const Sink& sink, const std::string& csv_path) {
    if (opt.json) {
        JsonWriter json;
        json.begin_object();
        json.key("layers");
        json.begin_object();
        for (const LayerOut& l : sink.layers) {
            json.key(l.name);
            json.begin_object();
            json.field("units", l.units);
            json.field("bytes", l.bytes);
            json.field("output", l.path);
            json.end_object();
        }
        json.end_object();
        json.field("units_csv", csv_path);
        json.end_object();
        std::fprintf(report_out(), "%s\n", json.text().c_str());
        return;
    }
    for (const LayerOut& l : sink.layers)
        std::fprintf(report_out(), "%s: %" PRIu64 " units, %" PRIu64 " bytes -> %s\n", l.name,
                     l.units, l.bytes, l.path.c_str());
    std::fprintf(report_out(), "units: %s\n", csv_path.c_str());
}

// Opens the outputs and the splitter for opt.codec and opt.ts, hands over
// `record` when there is one, runs `pushes`, and reports.
int run_splitter(const SplitOptions& opt, std::vector<uint8_t>& record,
                 const std::function<bool(void*, const Sink&)>& pushes) {
    Sink sink;
    std::string csv_path;
    if (!open_outputs(opt.out_dir, opt.codec, sink, csv_path)) {
        close_outputs(sink);
        return kExitFailure;
    }
    void* splitter = ves_split_init(opt.codec, on_output, &sink, opt.ts ? 1 : 0);
    if (splitter == nullptr) {
        close_outputs(sink);
        report_error("split: cannot create the splitter");
        return kExitFailure;
    }
    // The splitter's diagnostics go to stderr unless a file was named, so
    // that standard output carries only the report.
    const bool own_debug_file = std::getenv("EDR_DEBUG_FILE") == nullptr;
    if (own_debug_file) edr_debug_file = stderr;

    bool ok = true;
    if (!record.empty() &&
        ves_split_set_codec_data(splitter, record.data(), static_cast<int>(record.size())) != 0) {
        report_error(std::string("split: codec data '") +
                     (opt.codec_data != nullptr ? opt.codec_data : opt.input) +
                     "' is not a valid decoder configuration record");
        ok = false;
    }
    if (ok) ok = pushes(splitter, sink);
    // Free closes a debug file other than standard output: not stderr.
    if (own_debug_file) edr_debug_file = stdout;
    ves_split_free(splitter);
    if (!close_outputs(sink) && ok) {
        report_error("split: cannot write the output");
        ok = false;
    }
    if (!ok) return kExitFailure;
    print_report(opt, sink, csv_path);
    if (sink.layers[1].units == 0) {
        report_error(std::string("split: '") + opt.input + "': no enhancement-layer unit found (" +
                     std::to_string(sink.layers[0].units) + " base-layer units, " +
                     std::to_string(sink.layers[2].units) +
                     " metadata units; is --codec right and is the stream dual-layer?)");
        if (!opt.allow_warnings) return kExitProblems;
    }
    return kExitOk;
}

bool has_aud(const uint8_t* p, int size, int codec) {
    for (int i = 0; i + 3 < size; ++i) {
        if (p[i] != 0 || p[i + 1] != 0 || p[i + 2] != 1) continue;
        const int type = codec == VES_AVC ? p[i + 3] & 0x1F : (p[i + 3] >> 1) & 0x3F;
        if (type == (codec == VES_AVC ? 9 : 35)) return true;
    }
    return false;
}

// Splits the first H.264/H.265 track of a container read with libavformat.
// Packets are pushed as the demuxer delivers them, without a parser: whole
// access units from MP4/MKV, PES payloads from MPEG-TS, which carry access-
// unit delimiters the splitter then cuts at. False, with nothing done, when
// INPUT is not a container (a raw elementary stream goes the CSV way).
bool split_container(SplitOptions opt, int& status) {
    av_log_set_level(AV_LOG_QUIET);
    AVFormatContext* fmt = avformat_alloc_context();
    if (fmt == nullptr) return false;
    fmt->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
    if (avformat_open_input(&fmt, opt.input, nullptr, nullptr) < 0) return false;
    struct FormatCloser {
        AVFormatContext** fmt;
        ~FormatCloser() { avformat_close_input(fmt); }
    } closer{&fmt};
    const std::string format = fmt->iformat->name;
    if (format == "h264" || format == "hevc") return false;
    const bool ts = format == "mpegts";
    status = kExitFailure;
    if (!ts && avformat_find_stream_info(fmt, nullptr) < 0) {
        report_error(std::string("split: libavformat cannot find the streams of '") + opt.input +
                     "'");
        return true;
    }
    AVStream* st = nullptr;
    for (unsigned i = 0; i < fmt->nb_streams; ++i) {
        const AVCodecID id = fmt->streams[i]->codecpar->codec_id;
        if (st == nullptr && (id == AV_CODEC_ID_H264 || id == AV_CODEC_ID_HEVC))
            st = fmt->streams[i];
        else
            fmt->streams[i]->discard = AVDISCARD_ALL;
    }
    if (st == nullptr) {
        report_error(std::string("split: '") + opt.input + "' has no H.264 or H.265 stream");
        return true;
    }
    const int found = st->codecpar->codec_id == AV_CODEC_ID_H264 ? VES_AVC : VES_HEVC;
    if (opt.codec >= 0 && opt.codec != found) {
        report_error(std::string("split: --codec ") + (opt.codec == VES_AVC ? "avc" : "hevc") +
                     " but '" + opt.input + "' holds " + (found == VES_AVC ? "H.264" : "H.265"));
        status = kExitProblems;
        return true;
    }
    opt.codec = found;
    std::vector<uint8_t> record;
    const AVCodecParameters* par = st->codecpar;
    if (par->extradata != nullptr && par->extradata_size > 0 && par->extradata[0] == 1)
        record.assign(par->extradata, par->extradata + par->extradata_size);

    AVPacket* pkt = av_packet_alloc();
    struct PacketFree {
        AVPacket** pkt;
        ~PacketFree() { av_packet_free(pkt); }
    } packet_free{&pkt};
    uint64_t corrupt = 0;
    int err = av_read_frame(fmt, pkt);
    if (ts && err >= 0 && has_aud(pkt->data, pkt->size, found)) opt.ts = true;
    status = run_splitter(opt, record, [&](void* splitter, const Sink& sink) {
        uint64_t last_pts = 0;
        const int64_t total = fmt->pb != nullptr ? avio_size(fmt->pb) : -1;
        Progress progress(opt.input, total > 0 ? static_cast<uint64_t>(total) : 0);
        for (; err >= 0; err = av_read_frame(fmt, pkt)) {
            const int64_t pos = fmt->pb != nullptr ? avio_tell(fmt->pb) : 0;
            progress.update(static_cast<uint64_t>(std::max<int64_t>(0, pos)));
            const int64_t t = pkt->pts != AV_NOPTS_VALUE ? pkt->pts : pkt->dts;
            if (t != AV_NOPTS_VALUE && t >= 0)
                last_pts = static_cast<uint64_t>(
                    av_rescale_q(t, st->time_base, AVRational{1, 1000000000}));
            if ((pkt->flags & AV_PKT_FLAG_CORRUPT) != 0) ++corrupt;
            const int r = ves_split_push(splitter, pkt->data, pkt->size, last_pts);
            av_packet_unref(pkt);
            if (r != 0) {
                report_error(sink.write_failed ? std::string("split: cannot write the output")
                                               : "split: push failed with " + std::to_string(r));
                return false;
            }
        }
        if (err != AVERROR_EOF) {
            report_error(std::string("split: reading '") + opt.input + "' stopped early");
            return false;
        }
        return ves_split_push(splitter, nullptr, 0, last_pts) == 0;
    });
    if (status == kExitOk && corrupt != 0) {
        report_error(std::string("split: '") + opt.input + "': " + std::to_string(corrupt) +
                     " packets marked corrupt by the demuxer (truncated?)");
        if (!opt.allow_warnings) status = kExitProblems;
    }
    return true;
}

}  // namespace

int run_split(int argc, char** argv) {
    SplitOptions opt;
    if (int status = parse_options(argc, argv, opt); status != kExitOk) return status;
    if (opt.help) {
        print_help();
        return kExitOk;
    }
    if (!check_readable(opt.input, "input") ||
        (opt.pts_csv != nullptr && !check_readable(opt.pts_csv, "pts file")) ||
        (opt.codec_data != nullptr && !check_readable(opt.codec_data, "codec data")))
        return kExitUsage;
    if (int status = kExitOk;
        opt.pts_csv == nullptr && opt.codec_data == nullptr && split_container(opt, status))
        return status;
    if (opt.codec < 0) {
        report_error(std::string("split: '") + opt.input +
                     "' is not an MP4, MKV or MPEG-TS file libavformat can read; for a raw stream "
                     "give --codec avc|hevc");
        return kExitUsage;
    }
    std::FILE* in = std::fopen(opt.input, "rb");
    if (in == nullptr) {
        report_error(std::string("cannot open input '") + opt.input + "': " + std::strerror(errno));
        return kExitUsage;
    }
    struct Closer {
        std::FILE* f;
        ~Closer() { std::fclose(f); }
    } closer{in};
    std::error_code size_ec;
    const uint64_t size = fs::file_size(opt.input, size_ec);
    if (size_ec) {
        report_error(std::string("cannot read input '") + opt.input + "': " + size_ec.message());
        return kExitFailure;
    }
    std::vector<Piece> pieces;
    if (opt.pts_csv != nullptr && !read_pieces(opt.pts_csv, size, pieces)) return kExitFailure;
    std::vector<uint8_t> record;
    if (opt.codec_data != nullptr) {
        if (!read_file(opt.codec_data, "codec data", record)) return kExitFailure;
        if (record.empty() || record.size() > kMaxInput) {
            report_error(std::string("codec data '") + opt.codec_data + "' is empty or too large");
            return kExitFailure;
        }
    }

    return run_splitter(opt, record, [&](void* splitter, const Sink& sink) {
        return push_all(splitter, opt.input, in, size, pieces, sink);
    });
}

}  // namespace codecutil_tool
