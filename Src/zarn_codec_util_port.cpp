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

// Error-level line carrying the port function's own name.
#define PORT_ERROR(caller, ...)                                                            \
    do {                                                                                   \
        if (CODEC_UTIL_LOG_THRESHOLD() >= ZARN_LEVEL_ERROR)                                \
            zarn_debug_log(codec_util_debug, ZARN_LEVEL_ERROR, __FILE__, caller, __LINE__, \
                           __VA_ARGS__);                                                   \
    } while (0)

#pragma GCC diagnostic push
// The lookup failure line passes the loader's text to a format that does not
// print it; the platform log call is variadic and ignores the extra argument.
#pragma GCC diagnostic ignored "-Wformat-extra-args"

// Opens the service and looks `symbol` up; NULL when either fails, after
// logging under `caller`. The library is closed again after a failed lookup.
void* bind_entry(const char* symbol, const char* caller) {
    dlerror();
    void* lib = dlopen("libhalavstream.so", RTLD_NOW | RTLD_GLOBAL);
    if (lib == nullptr) {
        PORT_ERROR(caller, "dlopen libhalavstream.so failed: %s\n", dlerror());
        return nullptr;
    }
    void* entry = dlsym(lib, symbol);
    if (entry == nullptr) {
        PORT_ERROR(caller, "dlsym %s faild:", symbol, dlerror());  // required as is
        dlclose(lib);
    }
    PORT_ERROR(caller, "dlopen %s: %p\n", symbol, entry);
    return entry;
}

#pragma GCC diagnostic pop

// Returns the bound entry point, binding it first when needed.
template <class F>
F bound(std::atomic<F>& slot, const char* symbol, const char* caller) {
    if (F f = slot.load(std::memory_order_acquire)) return f;
    auto f = reinterpret_cast<F>(bind_entry(symbol, caller));
    if (f != nullptr) slot.store(f, std::memory_order_release);
    return f;
}

}  // namespace

extern "C" CODEC_UTIL_API zarn_uint8* Conv_Port_Stream_Getbuffer(Zhal_AVStream_ptr Stream,
                                                                 zarn_uint32 size,
                                                                 zarn_uint8** mem2,
                                                                 zarn_uint32* size2,
                                                                 int time_out_ms) {
    static std::atomic<AVSTREAM_GETBUF_FUNC> pFunc{nullptr};
    AVSTREAM_GETBUF_FUNC f = bound(pFunc, "Zhal_AVStream_Getbuffer", __func__);
    return f != nullptr ? f(Stream, size, mem2, size2, time_out_ms) : nullptr;
}

extern "C" CODEC_UTIL_API zarn_bool Conv_Port_Stream_Append(Zhal_AVStream_ptr Stream, void* data,
                                                            zarn_uint32 size, zarn_uint64 pts) {
    static std::atomic<AVSTREAM_APPEND_FUNC> pFunc{nullptr};
    AVSTREAM_APPEND_FUNC f = bound(pFunc, "Zhal_AVStream_Append", __func__);
    return f != nullptr ? f(Stream, data, size, pts) : FALSE;
}
