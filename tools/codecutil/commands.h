// The tool's subcommands. Each takes its own arguments (argv[0] is the
// subcommand's name) and returns the process exit status: 0 on success, 1 on
// a failure it has reported on stderr in one line, 2 on a usage error or an
// unreadable path, 3 when the run finished but found problems (units dropped,
// no enhancement layer) that --allow-warnings did not declare expected.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace codecutil_tool {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitProblems = 3;

int run_convert(int argc, char** argv);
int run_inspect(int argc, char** argv);
int run_split(int argc, char** argv);

// Option parsing shared by the subcommands.
//
// Matches argv[i] against the option `name` ("--ring-size", "-o"). On a match
// returns true and sets `value` to the text after '=' ("--ring-size=4096") or
// to the next argument, advancing `i`; `value` is NULL when none follows.
bool take_option(int argc, char** argv, int& i, std::string_view name, const char*& value);

// Parses a decimal byte count with an optional binary suffix (k or K: KiB,
// m or M: MiB). False for anything else, or a value above `max`.
bool parse_byte_count(const char* text, uint64_t max, uint64_t& out);

// The tool's own standard output. main() points fd 1 at stderr before any
// command runs, so that what the library prints on stdout never mixes into a
// report (a --json object stays valid JSON); reports go here.
std::FILE* report_out();

// True when `path` is a readable regular file; otherwise reports "cannot
// open WHAT 'PATH': reason" (missing, a directory, no permission).
bool check_readable(const char* path, const char* what);

// Prints "codecutil: <message>" to stderr.
void report_error(const std::string& message);

}  // namespace codecutil_tool
