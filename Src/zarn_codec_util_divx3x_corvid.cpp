// DivX 3.11 converter: every frame goes to the corvid decoder behind one
// payload header (scode_type 0x32, CodecID '8') carrying the picture size
// from set_param and the frame's length. No first-frame special case.
//
// The 16-byte header store is built by set_param and patched per push (three
// length bytes); header and frame are copied straight into ring space.
#include <cstdint>
#include <cstring>

#include "codec_util_converter.h"
#include "codec_util_corvid.h"
#include "codec_util_ring.h"

namespace {

using namespace codecutil;

struct ZarnUtilCodecDivxCorvid_t {
    CodecUtilBase_t base;
    zarn_sint32 width;
    zarn_sint32 height;
    zarn_sint32 is_convert_needed;
    zarn_uint8* payload_data;  // kPayloadHeaderSize bytes, owned
    zarn_sint32 payload_data_len;
    CodecUtilGetBufFunc_t getbufFunc;
};

ZarnUtilCodecDivxCorvid_t* divx(CodecUtilBase_t* base) {
    return record_of<ZarnUtilCodecDivxCorvid_t>(base);
}

// Always TRUE except for a NULL handle. NULL parameters leave the header
// store all zero and check_conv FALSE; a zero dimension makes check_conv
// FALSE but the header is still built.
zarn_bool divx_corvid_set_params(CodecUtilBase_t* h, void* parameters) {
    if (h == nullptr) {
        CODEC_UTIL_ERROR("Pass NULL pointer!");
        return FALSE;
    }
    ZarnUtilCodecDivxCorvid_t* r = divx(h);
    r->width = 0;
    r->height = 0;
    r->is_convert_needed = 0;
    std::memset(r->payload_data, 0, kPayloadHeaderSize);
    r->payload_data_len = 0;
    const auto* p = static_cast<const CodecUtilAVIParam_t*>(parameters);
    if (p == nullptr) {
        CODEC_UTIL_INFO("No parameter passed, so we think convert is not needed.");
        return TRUE;
    }
    CODEC_UTIL_DEBUG("The divx dimension is %d X %d", p->width, p->height);
    r->is_convert_needed = (p->width != 0 && p->height != 0) ? 1 : 0;
    r->height = p->height;
    r->width = p->width;
    CODEC_UTIL_DEBUG("The divx is_convert_needed = %d", r->is_convert_needed);
    // The length bytes stay 0 until a frame is pushed.
    const PayloadHeader header =
        make_payload_header(kScodeFrame, kCodecIdDivx311, static_cast<uint32_t>(r->width),
                            static_cast<uint32_t>(r->height), 0);
    std::memcpy(r->payload_data, header.data(), header.size());
    r->payload_data[4] = 0;
    r->payload_data[5] = 0;
    r->payload_data[7] = 0;
    return TRUE;
}

zarn_bool divx_corvid_is_convert_needed(CodecUtilBase_t* h) {
    if (h == nullptr) {
        CODEC_UTIL_ERROR("Pass NULL pointer!");
        return FALSE;
    }
    return static_cast<zarn_bool>(divx(h)->is_convert_needed & 0xFF);
}

void divx_corvid_generate_payload_header(ZarnUtilCodecDivxCorvid_t* p_divx_corvid,
                                         uint32_t insize) {
    p_divx_corvid->payload_data_len = kPayloadHeaderSize;
    put_payload_length(std::span(p_divx_corvid->payload_data, kPayloadHeaderSize), insize);
    CODEC_UTIL_TRACE("Dump the payload_header");
    CODEC_UTIL_DUMP_BYTES(p_divx_corvid->payload_data, kPayloadHeaderSize);
}

// Results:
//   NULL handle, buffer or size pointer   NULL, *new_size untouched
//   no ring space (or a frame so large    NULL, *new_size 0; state unchanged
//   that header + frame pass 32 bits)
//   converted                             space, *new_size = 16 + frame size
// The frame is converted whatever check_conv says. Before any set_param the
// store is all zero (as set_param(NULL) leaves it), so such a push writes a
// zero header with only its length bytes set.
zarn_uint8* divx_corvid_push_buffer(CodecUtilBase_t* h, void* stream, CodecUtilBuffer_t* in_buf,
                                    zarn_uint32* new_size) {
    if (h == nullptr || in_buf == nullptr || new_size == nullptr) {
        CODEC_UTIL_ERROR("Pass NULL pointer, ERROR!");
        return nullptr;
    }
    ZarnUtilCodecDivxCorvid_t* r = divx(h);
    const zarn_uint8* inbuf = in_buf->data;
    const zarn_uint32 insize = in_buf->size;
    divx_corvid_generate_payload_header(r, insize);
    auto emit = [&](auto& out) {
        out.write(r->payload_data, static_cast<uint32_t>(r->payload_data_len));
        out.write(inbuf, insize);
    };
    RingSpace space;
    if (!write_measured(r->getbufFunc, stream, space, emit)) {
        CODEC_UTIL_DEBUG("no hardware memory:%d\n", static_cast<int>(measure(emit)));
        *new_size = 0;
        return nullptr;
    }
    *new_size = space.length;
    return space.first;
}

void CodecUtil_Divx3x_Destroy(CodecUtilBase_t* base) {
    ZarnUtilCodecDivxCorvid_t* r = divx(base);
    if (r->payload_data != nullptr) codec_util_free(base, r->payload_data);
    codec_util_free(base, base);
}

constexpr ConverterOps kDivxOps = {
    .destroy = CodecUtil_Divx3x_Destroy,
    .set_param = divx_corvid_set_params,
    .check_conv = divx_corvid_is_convert_needed,
    .conv_push_buffer = divx_corvid_push_buffer,
    .set_getbuf_func = store_getbuf_func<ZarnUtilCodecDivxCorvid_t>,
};

}  // namespace

// NULL when the record or the 16-byte header store cannot be allocated (the
// record is then released): a converter without its store could only write
// through NULL. The store starts all zero.
extern "C" CODEC_UTIL_API void* CodecUtil_DivX311_Create(CodecUtilMemVtable_t* vtable) {
    auto* r = create_converter<ZarnUtilCodecDivxCorvid_t>(vtable, kDivxOps);
    if (r == nullptr) return nullptr;
    r->payload_data = static_cast<zarn_uint8*>(codec_util_malloc(&r->base, kPayloadHeaderSize));
    if (r->payload_data == nullptr) {
        codec_util_free(&r->base, r);
        return nullptr;
    }
    std::memset(r->payload_data, 0, kPayloadHeaderSize);
    return r;
}
