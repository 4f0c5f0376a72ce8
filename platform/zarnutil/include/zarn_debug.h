/* Stand-in for the platform's utility and log library (libzarnutil.so).
 *
 * Lines go to stderr as
 *   "<LEVEL> <category> <file>:<line> <function>: <message>"
 * A line is written when its level is at or below the category's threshold.
 *
 * Environment (read once, when the library is loaded):
 *   "ZARN_DEBUG_LEVEL"  0..6, the global threshold `__zarn_debug_min` and the
 *                       initial threshold of every category (default 2,
 *                       ZARN_LEVEL_WARNING). Callers test `__zarn_debug_min`
 *                       before calling, so LOG-level lines cost one compare.
 *
 * Valid C99 and C++. */
#ifndef ZARN_DEBUG_H
#define ZARN_DEBUG_H

#include <pthread.h>

#include "zarn_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    ZARN_LEVEL_DISABLE = -1,
    ZARN_LEVEL_NONE = 0,
    ZARN_LEVEL_ERROR = 1,
    ZARN_LEVEL_WARNING = 2,
    ZARN_LEVEL_INFO = 3,
    ZARN_LEVEL_DEBUG = 4,
    ZARN_LEVEL_LOG = 5,
    ZARN_LEVEL_ALWAYS = 6,
    ZARN_LEVEL_COUNT = 7
} ZarnDebugLevel;

enum {
    ZARN_DEBUG_NOCOLOR = 0,
    ZARN_DEBUG_FG_BLACK = 0,
    ZARN_DEBUG_FG_RED = 1,
    ZARN_DEBUG_FG_GREEN = 2,
    ZARN_DEBUG_FG_YELLOW = 3,
    ZARN_DEBUG_FG_BLUE = 4,
    ZARN_DEBUG_FG_MAGENTA = 5,
    ZARN_DEBUG_FG_CYAN = 6,
    ZARN_DEBUG_FG_WHITE = 7,
    ZARN_DEBUG_BG_BLACK = 0,
    ZARN_DEBUG_BG_RED = 16,
    ZARN_DEBUG_BG_GREEN = 32,
    ZARN_DEBUG_BG_YELLOW = 48,
    ZARN_DEBUG_BG_BLUE = 64,
    ZARN_DEBUG_BG_MAGENTA = 80,
    ZARN_DEBUG_BG_CYAN = 96,
    ZARN_DEBUG_BG_WHITE = 112,
    ZARN_DEBUG_BOLD = 256,
    ZARN_DEBUG_UNDERLINE = 512
};

typedef struct ZarnDebugCategory {
    int threshold; /* ZarnDebugLevel; guarded by catLock */
    pthread_mutex_t catLock;
    unsigned int color;
    const char* name;
    const char* description;
} ZarnDebugCategory;

/* Global threshold; callers compare against it before calling zarn_debug_log. */
extern int __zarn_debug_min;

/* -1 until decided from "VXM_SYS_ASSERT", then 0 or 1. */
extern int vxm_sys_request_assert;

/* Returns a category that lives until the process ends (never NULL). */
ZarnDebugCategory* zarn_debug_category_new(const char* name, unsigned int color,
                                           const char* description);

/* `category` may be NULL (lines are then tagged "default"). */
void zarn_debug_log(ZarnDebugCategory* category, ZarnDebugLevel level, const char* file,
                    const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 6, 7)));

/* Raw text: the formatted text and a newline, no prefix. */
void zarn_debug_dump(ZarnDebugCategory* category, ZarnDebugLevel level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/* Prints up to `depth` frames of the caller's stack to stderr. */
void Zarn_Util_BT(int depth);

/* Test hook: while a sink is set, every line the library is asked to write
 * goes to `sink` instead of stderr, whatever the category's threshold
 * (NULL removes it). Not part of the device library. */
typedef void (*ZarnDebugSink)(void* user, ZarnDebugCategory* category, ZarnDebugLevel level,
                              const char* function, const char* text);
void zarn_debug_set_sink(ZarnDebugSink sink, void* user);

#ifdef __cplusplus
}
#endif

#endif
