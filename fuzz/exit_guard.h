// The parsers end the process on two stream conditions by design (an SEI NAL
// unit with an empty RBSP, an AVC SPS of profile 128/134 at a level other
// than 40/41). The fuzz targets link with --wrap=exit: while an ExitGuard is
// alive, exit() throws ProcessExit instead (exit_guard.cpp), so a target can
// check the status, release what it holds and take the next input. Outside a
// guard (libFuzzer's own exits) exit() is the C library's.
#pragma once

struct ProcessExit {
    int status;
};

struct ExitGuard {
    static inline int depth = 0;  // the targets run on one thread
    ExitGuard() { ++depth; }
    ~ExitGuard() { --depth; }
    ExitGuard(const ExitGuard&) = delete;
    ExitGuard& operator=(const ExitGuard&) = delete;
};
