// Captures the library's log lines (level and formatted text) for the life
// of the object, with the global threshold raised so every level is issued.
#pragma once

#include <string>
#include <vector>

#include "zarn_debug.h"

namespace codecutil_test {

struct LogLine {
    int level;
    std::string function;
    std::string text;
};

class LogCapture {
public:
    explicit LogCapture(int threshold = ZARN_LEVEL_LOG);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<LogLine>& lines() const { return lines_; }
    // Level of the first line whose text contains `needle`, or -100.
    int level_of(const std::string& needle) const;
    int count(const std::string& needle) const;
    void clear() { lines_.clear(); }

private:
    static void sink(void* user, ZarnDebugCategory*, ZarnDebugLevel level, const char* function,
                     const char* text);
    std::vector<LogLine> lines_;
    int saved_min_;
};

}  // namespace codecutil_test
