// codecutil: a player-side client of the converter API. Subcommands:
//   convert   demux a file with libavformat and feed every stream a converter
//             matches through the library into simulated decoder rings
//   inspect   check and list a byte stream in one of the decoder's formats
//   split     separate the layers of a dual-layer stream through the splitter
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "commands.h"
#include "run_output.h"
#include "zarn_codec_util_version.h"

namespace codecutil_tool {
namespace {

struct Command {
    const char* name;
    const char* synopsis;
    int (*run)(int argc, char** argv);
};

constexpr Command kCommands[] = {
    {"convert",
     "convert [INPUT] [-o DIR] [--json] [--ring-size N] [--wrap-at N] [-v] [--samples DIR]",
     run_convert},
    {"inspect", "inspect FILE --format NAME [--extract DIR]", run_inspect},
    {"split",
     "split INPUT [--codec avc|hevc] [-o DIR] [--json] [--ts] [--pts FILE.csv] [--codec-data FILE]",
     run_split},
};

void print_usage(std::FILE* out) {
    std::fputs("usage: codecutil COMMAND [ARGS]\n\ncommands:\n", out);
    for (const Command& c : kCommands) std::fprintf(out, "  codecutil %s\n", c.synopsis);
    std::fputs(
        "\n'codecutil COMMAND --help' describes a command. 'codecutil convert' without\n"
        "INPUT converts the bundled samples.\n",
        out);
}

}  // namespace

bool take_option(int argc, char** argv, int& i, std::string_view name, const char*& value) {
    const std::string_view arg = argv[i];
    if (arg.substr(0, name.size()) != name) return false;
    if (arg.size() == name.size()) {
        value = i + 1 < argc ? argv[++i] : nullptr;
        return true;
    }
    if (name.size() > 2 && arg[name.size()] == '=') {  // long options only
        value = argv[i] + name.size() + 1;
        return true;
    }
    return false;
}

bool parse_byte_count(const char* text, uint64_t max, uint64_t& out) {
    if (text == nullptr || *text < '0' || *text > '9') return false;
    uint64_t v = 0;
    const char* p = text;
    for (; *p >= '0' && *p <= '9'; ++p) {
        v = v * 10 + static_cast<uint64_t>(*p - '0');
        if (v > max) return false;
    }
    uint64_t unit = 1;
    if (*p == 'k' || *p == 'K') {
        unit = 1024;
        ++p;
    } else if (*p == 'm' || *p == 'M') {
        unit = 1024 * 1024;
        ++p;
    }
    if (*p != '\0' || v > max / unit) return false;
    out = v * unit;
    return true;
}

namespace {
std::FILE* g_report = stdout;
}  // namespace

std::FILE* report_out() { return g_report; }

bool check_readable(const char* path, const char* what) {
    struct stat info {};
    const char* reason = nullptr;
    if (::stat(path, &info) != 0 || ::access(path, R_OK) != 0)
        reason = std::strerror(errno);
    else if (S_ISDIR(info.st_mode))
        reason = "is a directory";
    if (reason == nullptr) return true;
    report_error(std::string("cannot open ") + what + " '" + path + "': " + reason);
    return false;
}

void report_error(const std::string& message) {
    std::fprintf(stderr, "codecutil: %s\n", message.c_str());
}

}  // namespace codecutil_tool

int main(int argc, char** argv) {
    using namespace codecutil_tool;
    if (const int fd = ::dup(STDOUT_FILENO); fd >= 0) {
        if (std::FILE* real = ::fdopen(fd, "w"); real != nullptr) {
            g_report = real;
            ::dup2(STDERR_FILENO, STDOUT_FILENO);
        }
    }
    remove_outputs_on_signal();
    if (argc < 2) {
        print_usage(stderr);
        return kExitUsage;
    }
    const char* name = argv[1];
    if (std::strcmp(name, "-h") == 0 || std::strcmp(name, "--help") == 0 ||
        std::strcmp(name, "help") == 0) {
        print_usage(report_out());
        return kExitOk;
    }
    if (std::strcmp(name, "--version") == 0) {
        std::fprintf(report_out(), "codecutil %s\n", CODECUTIL_VERSION_STRING);
        return kExitOk;
    }
    for (const Command& c : kCommands) {
        if (std::strcmp(name, c.name) == 0) return finish_outputs(c.run(argc - 1, argv + 1));
    }
    report_error(std::string("unknown command '") + name + "' (try 'codecutil --help')");
    return kExitUsage;
}
