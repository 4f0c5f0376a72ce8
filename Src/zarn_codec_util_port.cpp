// HAL stream port: binds the service's entry points from "libhalavstream.so"
// lazily and forwards to them. A failed open or lookup is retried (and logged
// again) on every call; after a successful lookup the library stays open.
// The cached entry points are atomics so that two threads binding at once
// race benignly: both store the same value.
#include "zarn_codec_util_port.h"

#include <dlfcn.h>

#include <atomic>

#include "zarn_codec_util_priv.h"

namespace {

constexpr const char* kServiceLibrary = "libhalavstream.so";

// Opens the service and looks `symbol` up; NULL when either fails. Logging is
// done by the callers so that each line carries their function's name.
void* open_service(const char*& open_error) {
    dlerror();
    void* lib = dlopen(kServiceLibrary, RTLD_NOW | RTLD_GLOBAL);
    open_error = lib == nullptr ? dlerror() : nullptr;
    return lib;
}

}  // namespace

#pragma GCC diagnostic push
// The dlsym failure lines pass the loader's text to a format that does not
// print it; the platform log call is variadic and ignores the extra argument.
#pragma GCC diagnostic ignored "-Wformat-extra-args"

extern "C" CODEC_UTIL_API zarn_uint8* Conv_Port_Stream_Getbuffer(Zhal_AVStream_ptr Stream,
                                                                 zarn_uint32 size,
                                                                 zarn_uint8** mem2,
                                                                 zarn_uint32* size2,
                                                                 int time_out_ms) {
    static std::atomic<AVSTREAM_GETBUF_FUNC> pFunc{nullptr};
    if (AVSTREAM_GETBUF_FUNC f = pFunc.load(std::memory_order_acquire))
        return f(Stream, size, mem2, size2, time_out_ms);

    const char* open_error = nullptr;
    void* lib = open_service(open_error);
    if (lib == nullptr) {
        CODEC_UTIL_ERROR("dlopen libhalavstream.so failed: %s\n", open_error);
        return nullptr;
    }
    auto f = reinterpret_cast<AVSTREAM_GETBUF_FUNC>(dlsym(lib, "Zhal_AVStream_Getbuffer"));
    if (f == nullptr) {
        CODEC_UTIL_ERROR("dlsym Zhal_AVStream_Getbuffer faild:", dlerror());  // required as is
        dlclose(lib);
    } else {
        pFunc.store(f, std::memory_order_release);
    }
    CODEC_UTIL_ERROR("dlopen Zhal_AVStream_Getbuffer: %p\n", reinterpret_cast<void*>(f));
    return f != nullptr ? f(Stream, size, mem2, size2, time_out_ms) : nullptr;
}

extern "C" CODEC_UTIL_API zarn_bool Conv_Port_Stream_Append(Zhal_AVStream_ptr Stream, void* data,
                                                            zarn_uint32 size, zarn_uint64 pts) {
    static std::atomic<AVSTREAM_APPEND_FUNC> pFunc{nullptr};
    if (AVSTREAM_APPEND_FUNC f = pFunc.load(std::memory_order_acquire))
        return f(Stream, data, size, pts);

    const char* open_error = nullptr;
    void* lib = open_service(open_error);
    if (lib == nullptr) {
        CODEC_UTIL_ERROR("dlopen libhalavstream.so failed: %s\n", open_error);
        return FALSE;
    }
    auto f = reinterpret_cast<AVSTREAM_APPEND_FUNC>(dlsym(lib, "Zhal_AVStream_Append"));
    if (f == nullptr) {
        CODEC_UTIL_ERROR("dlsym Zhal_AVStream_Append faild:", dlerror());  // required as is
        dlclose(lib);
    } else {
        pFunc.store(f, std::memory_order_release);
    }
    CODEC_UTIL_ERROR("dlopen Zhal_AVStream_Append: %p\n", reinterpret_cast<void*>(f));
    return f != nullptr ? f(Stream, data, size, pts) : FALSE;
}

#pragma GCC diagnostic pop
