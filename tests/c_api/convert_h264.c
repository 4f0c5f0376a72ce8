/* A C99 client of the public headers: converts one H.264 unit into a
 * caller-supplied buffer and checks the Annex-B bytes. */
#include <stdio.h>
#include <string.h>

#include "zarn_codec_util.h"
#include "zarn_codec_util_port.h"
#include "zarn_codec_util_priv.h"
#include "zarn_codec_util_rbuf.h"

static zarn_uint8 ring[64];

static zarn_uint8* get_buffer(void* stream, zarn_uint32 size, zarn_uint8** mem2,
                              zarn_uint32* size2) {
    (void)stream;
    (void)mem2;
    *size2 = 0;
    return size <= sizeof ring ? ring : NULL;
}

int main(void) {
    static zarn_uint8 config[] = {
        0x01, 0x64, 0x00, 0x1F,                   /* version, profile, compatibility, level */
        0xFF,                                     /* lengthSizeMinusOne 3 */
        0xE1, 0x00, 0x04, 0x67, 0x64, 0x00, 0x1F, /* one SPS of 4 bytes */
        0x01, 0x00, 0x02, 0x68, 0xEE,             /* one PPS of 2 bytes */
    };
    static zarn_uint8 unit[] = {0x00, 0x00, 0x00, 0x03, 0x65, 0x88, 0x84};
    static const zarn_uint8 expected[] = {
        0x00, 0x00, 0x00, 0x01, 0x67, 0x64, 0x00, 0x1F, /* SPS */
        0x00, 0x00, 0x00, 0x01, 0x68, 0xEE,             /* PPS */
        0x00, 0x00, 0x00, 0x01, 0x65, 0x88, 0x84,       /* IDR slice */
    };
    CodecUtilH264Param_t param;
    CodecUtilBuffer_t buffer;
    zarn_uint32 size = 0;
    zarn_uint8* out;
    CodecUtilGetBufFunc_t fn = get_buffer;
    void* fn_as_pointer;
    void* h = Zarn_CodecUtil_Create(CODEC_UTIL_TYPE_H264, NULL);
    if (h == NULL) {
        puts("create failed");
        return 1;
    }
    /* The API takes the function as void*; ISO C has no cast for that. */
    memcpy(&fn_as_pointer, &fn, sizeof fn_as_pointer);
    Zarn_CodecUtil_SetGetBufFunc(h, fn_as_pointer);
    param.data = config;
    param.size = sizeof config;
    if (!Zarn_CodecUtil_SetParam(h, &param) || !Zarn_CodecUtil_CheckConv(h)) {
        puts("codec data refused");
        return 1;
    }
    memset(&buffer, 0, sizeof buffer);
    buffer.data = unit;
    buffer.size = sizeof unit;
    out = Zarn_CodecUtil_ConvPushBuffer(h, (void*)1, &buffer, &size);
    if (out != ring || size != sizeof expected || memcmp(out, expected, sizeof expected) != 0) {
        printf("unexpected output: %p size %u\n", (void*)out, (unsigned)size);
        return 1;
    }
    Zarn_CodecUtil_Destroy(h);
    puts("c_api: ok");
    return 0;
}
