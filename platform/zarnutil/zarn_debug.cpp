// Stand-in for the platform's utility and log library.
#include "zarn_debug.h"

#include <execinfo.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#define ZARN_API __attribute__((visibility("default")))

namespace {

int level_from_env() {
    const char* s = std::getenv("ZARN_DEBUG_LEVEL");
    if (s == nullptr || *s == '\0') return ZARN_LEVEL_WARNING;
    long v = std::strtol(s, nullptr, 10);
    if (v < ZARN_LEVEL_NONE) return ZARN_LEVEL_NONE;
    if (v > ZARN_LEVEL_ALWAYS) return ZARN_LEVEL_ALWAYS;
    return static_cast<int>(v);
}

const char* level_name(int level) {
    static const char* const kNames[] = {"NONE", "ERROR", "WARN", "INFO", "DEBUG", "LOG", "ALWAYS"};
    if (level < 0 || level >= ZARN_LEVEL_COUNT) return "?";
    return kNames[level];
}

std::atomic<ZarnDebugSink> g_sink{nullptr};

// Categories live for the process; the chain keeps them reachable.
struct CategoryNode {
    ZarnDebugCategory category;
    CategoryNode* next;
};
std::atomic<CategoryNode*> g_categories{nullptr};
std::atomic<void*> g_sink_user{nullptr};

int category_threshold(ZarnDebugCategory* c) {
    if (c == nullptr) return __zarn_debug_min;
    pthread_mutex_lock(&c->catLock);
    int t = c->threshold;
    pthread_mutex_unlock(&c->catLock);
    return t;
}

}  // namespace

extern "C" {

ZARN_API int __zarn_debug_min = level_from_env();
ZARN_API int vxm_sys_request_assert = -1;

ZARN_API ZarnDebugCategory* zarn_debug_category_new(const char* name, unsigned int color,
                                                    const char* description) {
    auto* node = static_cast<CategoryNode*>(std::calloc(1, sizeof(CategoryNode)));
    if (node == nullptr) std::abort();
    node->next = g_categories.load();
    while (!g_categories.compare_exchange_weak(node->next, node)) {
    }
    ZarnDebugCategory* c = &node->category;
    pthread_mutex_init(&c->catLock, nullptr);
    c->threshold = level_from_env();
    c->color = color;
    c->name = name;
    c->description = description;
    return c;
}

ZARN_API void zarn_debug_log(ZarnDebugCategory* category, ZarnDebugLevel level, const char* file,
                             const char* function, int line, const char* format, ...) {
    char text[1024];
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    if (ZarnDebugSink sink = g_sink.load()) {
        sink(g_sink_user.load(), category, level, function, text);
        return;
    }
    if (static_cast<int>(level) > category_threshold(category)) return;
    const char* base = std::strrchr(file, '/');
    std::fprintf(stderr, "%-6s %s %s:%d %s: %s%s", level_name(level),
                 category != nullptr ? category->name : "default",
                 base != nullptr ? base + 1 : file, line, function, text,
                 (text[0] != '\0' && text[std::strlen(text) - 1] == '\n') ? "" : "\n");
}

ZARN_API void zarn_debug_dump(ZarnDebugCategory* category, ZarnDebugLevel level, const char* format,
                              ...) {
    char text[1024];
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    if (ZarnDebugSink sink = g_sink.load()) {
        sink(g_sink_user.load(), category, level, "", text);
        return;
    }
    if (static_cast<int>(level) > category_threshold(category)) return;
    std::fprintf(stderr, "%s\n", text);
}

ZARN_API void Zarn_Util_BT(int depth) {
    void* frames[64];
    if (depth <= 0) return;
    if (depth > 64) depth = 64;
    int n = backtrace(frames, depth);
    backtrace_symbols_fd(frames, n, 2);
}

ZARN_API void zarn_debug_set_sink(ZarnDebugSink sink, void* user) {
    g_sink_user.store(user);
    g_sink.store(sink);
}

}  // extern "C"
