#include "log_capture.h"

namespace codecutil_test {

LogCapture::LogCapture(int threshold) : saved_min_(__zarn_debug_min) {
    __zarn_debug_min = threshold;
    zarn_debug_set_sink(&LogCapture::sink, this);
}

LogCapture::~LogCapture() {
    zarn_debug_set_sink(nullptr, nullptr);
    __zarn_debug_min = saved_min_;
}

void LogCapture::sink(void* user, ZarnDebugCategory*, ZarnDebugLevel level, const char* function,
                      const char* text) {
    static_cast<LogCapture*>(user)->lines_.push_back({level, function, text});
}

int LogCapture::level_of(const std::string& needle) const {
    for (const auto& l : lines_)
        if (l.text.find(needle) != std::string::npos) return l.level;
    return -100;
}

int LogCapture::count(const std::string& needle) const {
    int n = 0;
    for (const auto& l : lines_)
        if (l.text.find(needle) != std::string::npos) ++n;
    return n;
}

}  // namespace codecutil_test
