#include "exit_guard.h"

namespace {
int g_depth = 0;  // the targets run on one thread
}

ExitGuard::ExitGuard() { ++g_depth; }
ExitGuard::~ExitGuard() { --g_depth; }

extern "C" [[noreturn]] void __real_exit(int status);

extern "C" [[noreturn]] void __wrap_exit(int status) {
    if (g_depth > 0) throw ProcessExit{status};
    __real_exit(status);
}
