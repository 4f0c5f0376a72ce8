// The common constructor shape and the operations every converter shares.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "zarn_codec_util_priv.h"

namespace codecutil {

// The operation slots a converter file ends with; copied into `base`.
struct ConverterOps {
    void (*destroy)(CodecUtilBase_t*);
    zarn_bool (*set_param)(CodecUtilBase_t*, void*);
    zarn_bool (*check_conv)(CodecUtilBase_t*);
    zarn_uint8* (*conv_push_buffer)(CodecUtilBase_t*, void*, CodecUtilBuffer_t*, zarn_uint32*);
    void (*set_getbuf_func)(CodecUtilBase_t*, void*);
};

// Allocates and zeroes a converter record R (first member `base`), fills its
// slots and memory table. With a caller table all seven entries are copied
// as they stand; without one the standard allocator is used. A table whose
// malloc or free is NULL is refused: every converter calls both.
template <class R>
R* create_converter(const CodecUtilMemVtable_t* vtable, const ConverterOps& ops) {
    static_assert(std::is_standard_layout_v<R> && std::is_trivially_copyable_v<R>);
    static_assert(offsetof(R, base) == 0);
    if (vtable != nullptr && (vtable->malloc == nullptr || vtable->free == nullptr)) return nullptr;
    void* mem = vtable != nullptr ? vtable->malloc(sizeof(R)) : std::malloc(sizeof(R));
    if (mem == nullptr) return nullptr;
    std::memset(mem, 0, sizeof(R));
    auto* r = static_cast<R*>(mem);
    r->base.destroy = ops.destroy;
    r->base.set_param = ops.set_param;
    r->base.check_conv = ops.check_conv;
    r->base.conv_push_buffer = ops.conv_push_buffer;
    r->base.set_getbuf_func = ops.set_getbuf_func;
    if (vtable != nullptr) {
        r->base.vtable = *vtable;
    } else {
        r->base.vtable.malloc = std::malloc;
        r->base.vtable.realloc = std::realloc;
        r->base.vtable.free = std::free;
        r->base.vtable.calloc = std::calloc;
    }
    return r;
}

// Records in which `getbufFunc` and `need_convert` follow the codec state.
template <class R>
R* record_of(CodecUtilBase_t* base) {
    return reinterpret_cast<R*>(base);
}

template <class R>
void store_getbuf_func(CodecUtilBase_t* base, void* func) {
    CODEC_UTIL_TRACE("Set Get ES Buf Func\n");
    record_of<R>(base)->getbufFunc = reinterpret_cast<CodecUtilGetBufFunc_t>(func);
}

template <class R>
zarn_bool return_need_convert(CodecUtilBase_t* base) {
    return record_of<R>(base)->need_convert;
}

template <class R>
zarn_bool return_needed_start_code(CodecUtilBase_t* base) {
    return record_of<R>(base)->needed_start_code;
}

// Frees the record and the header store it owns.
template <class R>
void destroy_with_header(CodecUtilBase_t* base) {
    R* r = record_of<R>(base);
    if (r->header != nullptr) codec_util_free(base, r->header);
    codec_util_free(base, base);
}

}  // namespace codecutil
