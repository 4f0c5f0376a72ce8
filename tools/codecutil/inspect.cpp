// `codecutil inspect FILE --format NAME [--extract DIR]`: checks a byte
// stream in one of the forms the decoders receive (the output of `convert`)
// with the inspector registered under NAME.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "commands.h"
#include "inspect_format.h"

namespace codecutil_tool {
namespace {

const InspectFormat* find_format(const std::string& name) {
    for (const InspectFormat* family : {kAudioInspectFormats, kPayloadInspectFormats}) {
        for (const InspectFormat* f = family; f->name != nullptr; ++f) {
            if (name == f->name) return f;
        }
    }
    return nullptr;
}

std::string known_formats() {
    std::string list;
    for (const InspectFormat* family : {kAudioInspectFormats, kPayloadInspectFormats}) {
        for (const InspectFormat* f = family; f->name != nullptr; ++f)
            list += (list.empty() ? "" : ", ") + std::string(f->name);
    }
    return list.empty() ? "none" : list;
}

bool read_file(const char* path, std::vector<uint8_t>& data) {
    std::FILE* f = std::fopen(path, "rb");
    if (f == nullptr) {
        report_error(std::string("cannot open '") + path + "': " + std::strerror(errno));
        return false;
    }
    uint8_t chunk[1 << 16];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0)
        data.insert(data.end(), chunk, chunk + n);
    const bool failed = std::ferror(f) != 0;
    const int saved_errno = errno;
    std::fclose(f);
    if (failed) {
        report_error(std::string("cannot read '") + path + "': " + std::strerror(saved_errno));
        return false;
    }
    return true;
}

void print_help() {
    std::fprintf(report_out(),
                 "usage: codecutil inspect FILE --format NAME [--extract DIR]\n"
                 "\n"
                 "Checks FILE strictly as a stream in format NAME and lists its frames or\n"
                 "packets. With --extract, writes the payloads to DIR in a form standard\n"
                 "tools read.\n"
                 "\n"
                 "formats: %s\n",
                 known_formats().c_str());
}

}  // namespace

int run_inspect(int argc, char** argv) {
    const char* path = nullptr;
    const char* format = nullptr;
    const char* extract_dir = nullptr;
    for (int i = 1; i < argc; ++i) {
        const char* value = nullptr;
        const std::string arg = argv[i];
        if (arg == "-h" || arg == "--help") {
            print_help();
            return kExitOk;
        }
        if (take_option(argc, argv, i, "--format", value) ||
            take_option(argc, argv, i, "-f", value)) {
            if (value == nullptr || *value == '\0') {
                report_error("inspect: " + arg + " needs a format name (known: " + known_formats() +
                             ")");
                return kExitUsage;
            }
            format = value;
        } else if (take_option(argc, argv, i, "--extract", value)) {
            if (value == nullptr || *value == '\0') {
                report_error("inspect: --extract needs a folder");
                return kExitUsage;
            }
            extract_dir = value;
        } else if (!arg.empty() && arg[0] == '-' && arg != "-") {
            report_error("inspect: unknown option '" + arg + "' (try 'codecutil inspect --help')");
            return kExitUsage;
        } else if (path != nullptr) {
            report_error("inspect takes one FILE (got '" + std::string(path) + "' and '" + arg +
                         "')");
            return kExitUsage;
        } else {
            path = argv[i];
        }
    }
    if (path == nullptr || format == nullptr) {
        report_error("usage: codecutil inspect FILE --format NAME [--extract DIR] (formats: " +
                     known_formats() + ")");
        return kExitUsage;
    }
    const InspectFormat* f = find_format(format);
    if (f == nullptr) {
        report_error(std::string("inspect: unknown format '") + format +
                     "' (known: " + known_formats() + ")");
        return kExitUsage;
    }
    std::vector<uint8_t> data;
    if (!read_file(path, data)) return kExitFailure;
    if (extract_dir != nullptr) {
        std::error_code ec;
        std::filesystem::create_directories(extract_dir, ec);
        if (ec) {
            report_error(std::string("cannot create '") + extract_dir + "': " + ec.message());
            return kExitFailure;
        }
    }
    const int status = f->run(data.data(), data.size(), extract_dir, report_out(), stderr);
    std::fflush(report_out());
    return status == 0 ? kExitOk : kExitFailure;
}

}  // namespace codecutil_tool
