/* Shared by the converters: the common header every converter record begins
 * with, the memory helpers over its table, the log category and the assertion
 * check. Valid C99 and C++. */
#ifndef ZARN_CODEC_UTIL_PRIV_H
#define ZARN_CODEC_UTIL_PRIV_H

#include "zarn_codec_util.h"
#include "zarn_debug.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct CodecUtilBase_s CodecUtilBase_t;

/* Common header: five operations, the memory table by value, and the
 * get-buffer installer (NULL in converters that take no get-buffer function).
 * A handle, a CodecUtilBase_t* and the converter record's address are the
 * same pointer. */
struct CodecUtilBase_s {
    void (*destroy)(CodecUtilBase_t* base);
    zarn_bool (*set_param)(CodecUtilBase_t* base, void* param);
    zarn_bool (*check_conv)(CodecUtilBase_t* base);
    zarn_uint8* (*conv_push_buffer)(CodecUtilBase_t* base, void* stream, CodecUtilBuffer_t* buffer,
                                    zarn_uint32* size);
    CodecUtilMemVtable_t vtable;
    void (*set_getbuf_func)(CodecUtilBase_t* base, void* func);
};

static inline void* codec_util_malloc(CodecUtilBase_t* base, size_t n) {
    return base->vtable.malloc(n);
}

static inline void* codec_util_realloc(CodecUtilBase_t* base, void* mem, size_t n) {
    return base->vtable.realloc != NULL ? base->vtable.realloc(mem, n) : NULL;
}

static inline void codec_util_free(CodecUtilBase_t* base, void* mem) { base->vtable.free(mem); }

/* The library's log category ("CODECUTIL"); NULL until the first
 * Zarn_CodecUtil_Create. */
extern CODEC_UTIL_API ZarnDebugCategory* codec_util_debug;

/* Creates codec_util_debug once; later calls do nothing. Thread-safe: the
 * check and the creation run under a lock, so converters created at once on
 * several threads share one category, and each reads it after its own call. */
CODEC_UTIL_API void CodecUtil_DebugInit(void);

/* The platform's global log threshold, read with a relaxed atomic load: a
 * controlling thread may change it (with an atomic store) while converters
 * log on others. */
#define CODEC_UTIL_LOG_THRESHOLD() __atomic_load_n(&__zarn_debug_min, __ATOMIC_RELAXED)

/* The test on the threshold is made here, so a line below it costs one
 * compare. */
#define CODEC_UTIL_LOG(level, ...)                                                                \
    do {                                                                                          \
        if (CODEC_UTIL_LOG_THRESHOLD() >= (level))                                                \
            zarn_debug_log(codec_util_debug, (level), __FILE__, __func__, __LINE__, __VA_ARGS__); \
    } while (0)

#define CODEC_UTIL_ERROR(...) CODEC_UTIL_LOG(ZARN_LEVEL_ERROR, __VA_ARGS__)
#define CODEC_UTIL_WARNING(...) CODEC_UTIL_LOG(ZARN_LEVEL_WARNING, __VA_ARGS__)
#define CODEC_UTIL_INFO(...) CODEC_UTIL_LOG(ZARN_LEVEL_INFO, __VA_ARGS__)
#define CODEC_UTIL_DEBUG(...) CODEC_UTIL_LOG(ZARN_LEVEL_DEBUG, __VA_ARGS__)
#define CODEC_UTIL_TRACE(...) CODEC_UTIL_LOG(ZARN_LEVEL_LOG, __VA_ARGS__)

/* Failed assertion: back-trace, an "ASSERT" line on stdout, then abort when
 * the platform asks for it ("VXM_SYS_ASSERT" starting with '1'); otherwise
 * execution continues after the check. */
void codec_util_assert_failed(const char* condition, const char* file, int line,
                              const char* function);

#define CODEC_UTIL_ASSERT(condition)                                                          \
    do {                                                                                      \
        if (!(condition)) codec_util_assert_failed(#condition, __FILE__, __LINE__, __func__); \
    } while (0)

/* Constructors: each returns a handle, or NULL when the record cannot be
 * allocated or `vtable` has a NULL malloc or free entry. */
CODEC_UTIL_API void* CodecUtil_DivX311_Create(CodecUtilMemVtable_t* vtable);
CODEC_UTIL_API void* CodecUtil_MPEG4_Create(CodecUtilMemVtable_t* vtable);
CODEC_UTIL_API void* CodecUtil_H264_Create(CodecUtilMemVtable_t* vtable);
CODEC_UTIL_API void* CodecUtil_VC1_Create(CodecUtilMemVtable_t* vtable);
CODEC_UTIL_API void* CodecUtil_SPARK_Create(CodecUtilMemVtable_t* vtable);
CODEC_UTIL_API void* CodecUtil_VP6_Create(CodecUtilMemVtable_t* vtable);
CODEC_UTIL_API void* CodecUtil_VP8_Create(CodecUtilMemVtable_t* vtable);
CODEC_UTIL_API void* CodecUtil_AAC_Create(CodecUtilMemVtable_t* vtable);
CODEC_UTIL_API void* CodecUtil_Voibis_Create(CodecUtilMemVtable_t* vtable);
CODEC_UTIL_API void* CodecUtil_Opus_Create(CodecUtilMemVtable_t* vtable);
CODEC_UTIL_API void* CodecUtil_H265_Create(CodecUtilMemVtable_t* vtable);
CODEC_UTIL_API void* CodecUtil_VP9_Create(CodecUtilMemVtable_t* vtable);

/* The set_getbuf_func operations of these converters, exported by name. */
CODEC_UTIL_API void CodecUtil_H264_SetGetBufFunc(CodecUtilBase_t* base, void* func);
CODEC_UTIL_API void CodecUtil_H265_SetGetBufFunc(CodecUtilBase_t* base, void* func);
CODEC_UTIL_API void CodecUtil_Opus_SetGetBufFunc(CodecUtilBase_t* base, void* func);

#ifdef __cplusplus
}
#endif

#endif
