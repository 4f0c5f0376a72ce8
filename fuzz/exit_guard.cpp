#include "exit_guard.h"

extern "C" [[noreturn]] void __real_exit(int status);

extern "C" [[noreturn]] void __wrap_exit(int status) {
    if (ExitGuard::depth > 0) throw ProcessExit{status};
    __real_exit(status);
}
