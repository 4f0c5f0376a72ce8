// Diagnostics of the splitter and the parsers: fprintf to edr_debug_file when
// it is set and edr_debug_level reaches the message's level. Every format
// begins "%s:%d " and receives the calling function's name and line.
#pragma once

#include <cstdio>
#include <mutex>

#include "codec_util_lock.h"
#include "sei_sps_parser.h"

// Parser levels: ERROR 0, WARNING 1, DEBUG 4.
inline constexpr int kEdrError = 0;
inline constexpr int kEdrWarning = 1;
inline constexpr int kEdrDebug = 4;

inline bool edr_debug_on(int level) {
    return __atomic_load_n(&edr_debug_file, __ATOMIC_ACQUIRE) != nullptr &&
           __atomic_load_n(&edr_debug_level, __ATOMIC_RELAXED) >= level;
}

namespace vesparser {
// Held while a diagnostic line is written and while the library opens,
// replaces or closes edr_debug_file.
codecutil::PlainMutex& edr_debug_mutex();
}  // namespace vesparser

// The file is read again under the lock: another thread may have closed it
// between the test and the write.
#define EDR_LOG_AS(func, level, fmt, ...)                                                         \
    do {                                                                                          \
        if (edr_debug_on(level)) {                                                                \
            const std::lock_guard<codecutil::PlainMutex> edr_lock_(vesparser::edr_debug_mutex()); \
            if (FILE* edr_file_ = __atomic_load_n(&edr_debug_file, __ATOMIC_RELAXED))             \
                std::fprintf(edr_file_, fmt, func, __LINE__ __VA_OPT__(, ) __VA_ARGS__);          \
        }                                                                                         \
    } while (0)

#define EDR_LOG(level, fmt, ...) EDR_LOG_AS(__func__, level, fmt __VA_OPT__(, ) __VA_ARGS__)
