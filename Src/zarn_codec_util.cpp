// Dispatcher, exported wrappers, the log category and the assertion check.
#include "zarn_codec_util.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "codec_util_lock.h"
#include "zarn_codec_util_priv.h"

extern "C" {

CODEC_UTIL_API ZarnDebugCategory* codec_util_debug = nullptr;

CODEC_UTIL_API void CodecUtil_DebugInit(void) {
    static codecutil::PlainMutex lock;
    const std::lock_guard<codecutil::PlainMutex> guard(lock);
    if (codec_util_debug == nullptr)
        codec_util_debug = zarn_debug_category_new(
            "CODECUTIL", ZARN_DEBUG_BG_CYAN | ZARN_DEBUG_FG_WHITE, "utility codec convert");
}

}  // extern "C"

namespace {

using Constructor = void* (*)(CodecUtilMemVtable_t*);

// Indexed by CodecUtilType_e. VP9 has a converter but is reached only through
// CodecUtil_VP9_Create; a NULL entry is a type without a dispatcher
// constructor.
constexpr Constructor kConstructors[] = {
    CodecUtil_DivX311_Create,  // CODEC_UTIL_TYPE_DIVX311
    CodecUtil_MPEG4_Create,    // CODEC_UTIL_TYPE_MPEG4
    CodecUtil_H264_Create,     // CODEC_UTIL_TYPE_H264
    CodecUtil_VC1_Create,      // CODEC_UTIL_TYPE_VC1
    CodecUtil_SPARK_Create,    // CODEC_UTIL_TYPE_SPARK
    CodecUtil_VP6_Create,      // CODEC_UTIL_TYPE_VP6
    CodecUtil_VP8_Create,      // CODEC_UTIL_TYPE_VP8
    CodecUtil_AAC_Create,      // CODEC_UTIL_TYPE_AAC
    CodecUtil_Voibis_Create,   // CODEC_UTIL_TYPE_VOIBIS
    CodecUtil_Opus_Create,     // CODEC_UTIL_TYPE_OPUS
    CodecUtil_H265_Create,     // CODEC_UTIL_TYPE_H265
};

CodecUtilBase_t* base_of(void* handle) { return static_cast<CodecUtilBase_t*>(handle); }

}  // namespace

extern "C" {

CODEC_UTIL_API void* Zarn_CodecUtil_Create(CodecUtilType_e type, CodecUtilMemVtable_t* vtable) {
    CodecUtil_DebugInit();
    // Compared unsigned so that negative values fall out too.
    const auto index = static_cast<unsigned>(type);
    if (index >= sizeof kConstructors / sizeof kConstructors[0] || kConstructors[index] == nullptr)
        return nullptr;
    return kConstructors[index](vtable);
}

CODEC_UTIL_API void Zarn_CodecUtil_Destroy(void* handle) {
    if (handle != nullptr) base_of(handle)->destroy(base_of(handle));
}

CODEC_UTIL_API zarn_bool Zarn_CodecUtil_SetParam(void* handle, void* param) {
    if (handle == nullptr) return FALSE;
    return base_of(handle)->set_param(base_of(handle), param);
}

CODEC_UTIL_API zarn_bool Zarn_CodecUtil_CheckConv(void* handle) {
    if (handle == nullptr) return FALSE;
    return base_of(handle)->check_conv(base_of(handle));
}

CODEC_UTIL_API void Zarn_CodecUtil_SetGetBufFunc(void* handle, void* func) {
    if (handle == nullptr || base_of(handle)->set_getbuf_func == nullptr) return;
    base_of(handle)->set_getbuf_func(base_of(handle), func);
}

CODEC_UTIL_API zarn_uint8* Zarn_CodecUtil_ConvPushBuffer(void* handle, void* stream,
                                                         CodecUtilBuffer_t* buffer,
                                                         zarn_uint32* size) {
    if (handle == nullptr || stream == nullptr || buffer == nullptr || size == nullptr)
        return nullptr;
    return base_of(handle)->conv_push_buffer(base_of(handle), stream, buffer, size);
}

void codec_util_assert_failed(const char* condition, const char* file, int line,
                              const char* function) {
    Zarn_Util_BT(10);
    std::printf("\n\033[0;34;41m ASSERT, Pid:%d File:%s Line:%d Routine:%s, %s failed \033[0m \n",
                static_cast<int>(getpid()), file, line, function, condition);
    // The platform's flag, decided once from the environment; atomic because
    // assertions may fail on several converter threads at once (each would
    // decide the same value).
    int request = __atomic_load_n(&vxm_sys_request_assert, __ATOMIC_RELAXED);
    if (request == -1) {
        const char* v = std::getenv("VXM_SYS_ASSERT");
        request = (v != nullptr && v[0] == '1') ? 1 : 0;
        __atomic_store_n(&vxm_sys_request_assert, request, __ATOMIC_RELAXED);
    }
    if (request != 0) {
        std::printf(
            "\n\033[0;34;41m Request abort, Pid:%d File:%s Line:%d Routine:%s, failed \033[0m \n",
            static_cast<int>(getpid()), file, line, function);
        std::fflush(stdout);
        std::abort();
    }
}

}  // extern "C"
