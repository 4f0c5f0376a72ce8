/* Circular bit buffer over caller-supplied memory: most-significant-bit-first
 * reading and writing, alignment and bidirectional winding. Used to read the
 * AAC AudioSpecificConfig; exported for other readers. Allocates nothing:
 * the caller provides the BIT_BUF record and the bytes. Valid C99 and C++.
 *
 * Area: the bytes from pBitBufBase to pBitBufEnd inclusive. Both the read and
 * the write position move forward and wrap from pBitBufEnd to pBitBufBase.
 *
 * Errors: a read of more bits than cntBits and an impossible wind set bit 0
 * of `status` (see GetBitBufStatus); nothing but creation and ResetBitBuffer
 * clears it. A bit count above 32 trips CODEC_UTIL_ASSERT; when the platform
 * has not asked for aborts the call goes on and only the low 32 bits of the
 * value take part. */
#ifndef ZARN_CODEC_UTIL_BITBUF_H
#define ZARN_CODEC_UTIL_BITBUF_H

#include "zarn_codec_util.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    unsigned char* pBitBufBase; /* first byte of the circular area */
    unsigned char* pBitBufEnd;  /* last byte of the area (inclusive) */
    unsigned char* pReadNext;   /* byte holding the next bit to read */
    unsigned char* pWriteNext;  /* byte receiving the next bit written */
    unsigned char rCache;       /* copy of *pReadNext */
    int rBitPos;                /* next bit to read in rCache, 7 (MSB) .. 0 */
    int wBitPos;                /* next bit to write in *pWriteNext, 7 .. 0 */
    zarn_sint32 cntBits;        /* bits written (or declared) and not yet read */
    zarn_sint32 cntReadBits;    /* bits read since creation or ResetBitsRead */
    zarn_uint32 size;           /* capacity in bits given at creation */
    zarn_uint16 status;         /* bit 0: over-read or impossible wind */
} BIT_BUF;

typedef BIT_BUF* HANDLE_BIT_BUF;

#define BIT_BUF_STATUS_ERROR 0x0001u

/* Sets up `hBitBuf` over `bitBufSize` bits at `pBitBufBase`, reading and
 * writing from bit `offset` on: the area starts at byte offset/8 and ends at
 * byte (bitBufSize + 7)/8 - 1 of the given memory. Nothing is to be read yet
 * (cntBits 0). An empty area (bitBufSize 0, or offset/8 past its last byte)
 * is not loaded from: rCache is 0 and writes to it store nothing.
 * Returns hBitBuf. */
CODEC_UTIL_API HANDLE_BIT_BUF CreateOffsetBitBuffer(HANDLE_BIT_BUF hBitBuf,
                                                    unsigned char* pBitBufBase,
                                                    zarn_uint32 bitBufSize, zarn_uint32 offset);
/* CreateOffsetBitBuffer with offset 0. */
CODEC_UTIL_API HANDLE_BIT_BUF CreateBitBuffer(HANDLE_BIT_BUF hBitBuf, unsigned char* pBitBufBase,
                                              zarn_uint32 bitBufSize);
/* CreateBitBuffer over memory that already holds bitBufSize bits to read. */
CODEC_UTIL_API HANDLE_BIT_BUF CreateInitializedBitBuffer(HANDLE_BIT_BUF hBitBuf,
                                                         unsigned char* pBitBufBase,
                                                         zarn_uint32 bitBufSize);
/* CreateOffsetBitBuffer, then cntBits := bitBufSize (not reduced by the
 * offset: reading all of them wraps to the offset start). */
CODEC_UTIL_API HANDLE_BIT_BUF CreateInitializedOffsetBitBuffer(HANDLE_BIT_BUF hBitBuf,
                                                               unsigned char* pBitBufBase,
                                                               zarn_uint32 bitBufSize,
                                                               zarn_uint32 offset);
/* *hBitBuf := NULL; frees nothing. */
CODEC_UTIL_API void DeleteBitBuffer(HANDLE_BIT_BUF* hBitBuf);
/* Both positions back to the area's start, counts and status cleared. */
CODEC_UTIL_API void ResetBitBuffer(HANDLE_BIT_BUF hBitBuf);
/* cntReadBits := 0. */
CODEC_UTIL_API void ResetBitsRead(HANDLE_BIT_BUF hBitBuf);
CODEC_UTIL_API zarn_uint32 GetReadBits(HANDLE_BIT_BUF hBitBuf);
CODEC_UTIL_API zarn_uint16 GetBitBufStatus(HANDLE_BIT_BUF hBitBuf);
CODEC_UTIL_API zarn_uint32 GetBitsInBuf(const BIT_BUF* hBitBuf);
/* Copies every field: both records then share one area. */
CODEC_UTIL_API void CopyBitBuf(HANDLE_BIT_BUF hBitBufSrc, HANDLE_BIT_BUF hBitBufDst);
/* Copies the source area's bytes to the destination's area (which must hold
 * as many), places the destination's positions at the source's offsets and
 * copies bit positions, counts, cache and status. The destination keeps its
 * pBitBufEnd and size. */
CODEC_UTIL_API void CopyBitBufAll(HANDLE_BIT_BUF hBitBufSrc, HANDLE_BIT_BUF hBitBufDst);

/* Next noBitsToRead bits, most significant first. More than cntBits: 0,
 * status bit 0 set, nothing else changes. A read of 0 bits returns 0. */
CODEC_UTIL_API zarn_uint32 ReadBits(HANDLE_BIT_BUF hBitBuf, unsigned char noBitsToRead);
/* Appends the low noBitsToWrite bits of writeValue; returns noBitsToWrite.
 * No capacity check: writing more than the area holds overwrites unread
 * bits. */
CODEC_UTIL_API zarn_uint8 WriteBits(HANDLE_BIT_BUF hBitBuf, zarn_uint32 writeValue,
                                    unsigned char noBitsToWrite);
/* Read-side alignment: drops the bits up to the next byte boundary counted
 * from the reference *pByteAlignBits (a cntBits value taken earlier), then
 * stores the current cntBits there. */
CODEC_UTIL_API void ByteAlign(HANDLE_BIT_BUF hBitBuf, zarn_sint32* pByteAlignBits);
/* Write-side alignment: writes zero bits until cntBits is a multiple of 8;
 * returns how many. The record is written through the pointer despite its
 * const qualifier, which the interface has always had. */
CODEC_UTIL_API int AlignBits(const BIT_BUF* hBitBuf);
/* Moves the read position by `offset` bits (forward when positive). Forward
 * past cntBits, or backward past the bits read or the bytes behind the read
 * position: status bit 0 set, position unchanged. A byte step longer than
 * the area is taken modulo the area's length, so the read position always
 * stays inside the area. */
CODEC_UTIL_API void WindBitBufferBidirectional(HANDLE_BIT_BUF hBitBuf, zarn_sint32 offset);

#ifdef __cplusplus
}
#endif

#endif
