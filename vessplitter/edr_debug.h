// Diagnostics of the splitter and the parsers: fprintf to edr_debug_file when
// it is set and edr_debug_level reaches the message's level. Every format
// begins "%s:%d " and receives the calling function's name and line.
#pragma once

#include <cstdio>

#include "sei_sps_parser.h"

// Parser levels: ERROR 0, WARNING 1, DEBUG 4.
inline constexpr int kEdrError = 0;
inline constexpr int kEdrWarning = 1;
inline constexpr int kEdrDebug = 4;

inline bool edr_debug_on(int level) {
    return edr_debug_file != nullptr && edr_debug_level >= level;
}

#define EDR_LOG(level, fmt, ...)                                                       \
    do {                                                                               \
        if (edr_debug_on(level))                                                       \
            std::fprintf(edr_debug_file, fmt, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__); \
    } while (0)

// The same with the function name given, for messages that name the public
// entry point while a helper detects them.
#define EDR_LOG_AS(func, level, fmt, ...)                                              \
    do {                                                                               \
        if (edr_debug_on(level))                                                       \
            std::fprintf(edr_debug_file, fmt, func, __LINE__ __VA_OPT__(, ) __VA_ARGS__); \
    } while (0)
