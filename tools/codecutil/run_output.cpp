#include "run_output.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "commands.h"

namespace codecutil_tool {
namespace {

// The signal handler may only unlink what is already fully published: a
// fixed table of C strings and a count stored after each entry.
constexpr int kMaxStaged = 1024;
char* g_staged[kMaxStaged];
std::atomic<int> g_staged_count{0};
std::vector<std::string> g_final;

void on_signal(int) {
    const int n = g_staged_count.load();
    for (int i = 0; i < n; ++i) ::unlink(g_staged[i]);
    ::_exit(130);
}

}  // namespace

std::string staged_path(const std::string& final_path) {
    const std::filesystem::path p(final_path);
    // Appended piecewise: GCC 12's -Wrestrict misfires on "." + name at -O3.
    std::string name(".");
    name.append(p.filename().string()).append(".part");
    return (p.parent_path() / name).string();
}

std::string stage_output(const std::string& final_path) {
    std::string temp = staged_path(final_path);
    const int n = g_staged_count.load();
    if (n < kMaxStaged) {
        g_staged[n] = ::strdup(temp.c_str());
        g_final.push_back(final_path);
        if (g_staged[n] != nullptr) g_staged_count.store(n + 1);
    }
    return temp;
}

int finish_outputs(int status) {
    const int n = g_staged_count.load();
    for (int i = 0; i < n; ++i) {
        if (status == kExitOk &&
            std::rename(g_staged[i], g_final[static_cast<size_t>(i)].c_str()) == 0)
            continue;
        if (status == kExitOk) {
            report_error("cannot move '" + std::string(g_staged[i]) + "' to '" +
                         g_final[static_cast<size_t>(i)] + "': " + std::strerror(errno));
            status = kExitFailure;
        }
        ::unlink(g_staged[i]);
    }
    return status;
}

void remove_outputs_on_signal() {
    struct sigaction sa {};
    sa.sa_handler = on_signal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

}  // namespace codecutil_tool
