/* Memory-buffer device of the bit/byte I/O layer. Valid C99 and C++.
 *
 * Created only through the device registry (registry.h) under device type
 * 'b', registered by bbio_buf_reg for the modes 'w' and 'r'. A bbio_buf_t
 * begins with a whole bbio_t, so its address is used as a bbio_handle_t.
 *
 * Read mode ('r'): set_buffer attaches the input. It must be non-NULL and
 * non-empty (assert "buf && buf_size"; the parsers never attach an empty
 * RBSP); a build without asserts attaches such input as empty, so every read
 * returns 0 bytes and the bit reader sees zero bits. With re_al set the
 * device owns the storage and frees it in destroy. Reading past data_size
 * prints "Io buffer: ERR: read beyond buffer" on standard output and returns
 * the bytes that are there.
 *
 * Write mode ('w'): writes land at the offset; with re_al set the storage
 * grows by 1.5 from capacity + 4 until the write fits. get_buffer hands the
 * written block to the caller, who then owns it (free()). A write whose
 * storage cannot be grown (no memory, or a size that cannot be represented)
 * writes nothing, returns 0 and leaves storage, capacity and offset as they
 * were. */
#ifndef VESSPLITTER_IO_BUFFER_H
#define VESSPLITTER_IO_BUFFER_H

#include "io_base.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct bbio_buf_t_ bbio_buf_t;
typedef struct bbio_buf_t_* bbio_buf_handle_t;

struct bbio_buf_t_ {
    bbio_t io;        /* the common object, first */
    size_t data_size; /* 'r': input size; 'w': highest offset written */
    int64_t op_offset;
    uint8_t* buf;
    size_t buf_size; /* capacity */
    BOOL re_al;      /* 'w': may grow; 'r': storage owned by the device */
};

/* Registers the device as ('b', 'w') and then ('b', 'r'). */
VES_API void bbio_buf_reg(void);

#ifdef __cplusplus
}
#endif

#endif /* VESSPLITTER_IO_BUFFER_H */
