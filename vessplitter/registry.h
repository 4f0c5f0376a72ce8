/* Process-wide registries of I/O devices (by device-type and I/O-mode
 * letter) and of parser constructors (by name). Valid C99 and C++.
 *
 * Both tables are zero at load time and kept in registration order. They are
 * rewritten at every splitter start-up, possibly while other threads create
 * parsers, so every call takes the registries' lock (a recursive mutex;
 * parser_env_init holds it across emptying and refilling); a constructor
 * found is called after the lock is released. Registering past the
 * capacity is a precondition violation (assert "reg_bbio_num < BBIO_MAX_NUM",
 * "reg_parser_num < PARSER_NUM_MAX"). */
#ifndef VESSPLITTER_REGISTRY_H
#define VESSPLITTER_REGISTRY_H

#include "io_base.h"

#ifdef __cplusplus
extern "C" {
#endif

#define BBIO_MAX_NUM 6
#define PARSER_NUM_MAX 20

typedef struct parser_t_* parser_handle_t;

typedef bbio_t* (*bbio_create_t)(char io_mode);
typedef parser_handle_t (*parser_create_t)(uint32_t dsi_type);

typedef struct {
    char dev_type;
    char io_mode;
    bbio_create_t bbio_create;
} reg_bbio_t;

typedef struct {
    char* parser_name; /* the caller's pointer, not copied */
    parser_create_t parser_create;
} reg_parser_t;

/* Empties the device table; objects already created are unaffected. */
VES_API void reg_bbio_init(void);
VES_API void reg_bbio_set(char dev_type, char io_mode, bbio_create_t bbio_create);
/* A new object from the first entry whose two letters equal the arguments
 * exactly, made by bbio_create(io_mode); NULL when none matches or the
 * constructor fails. The caller destroys it through its destroy slot. */
VES_API bbio_t* reg_bbio_get(char dev_type, char io_mode);

VES_API void reg_parser_init(void);
VES_API void reg_parser_set(char* parser_name, parser_create_t parser_create);
/* parser_create(dsi_type) of the first entry whose name equals parser_name
 * ignoring case; NULL when none matches. */
VES_API parser_handle_t reg_parser_get(const char* parser_name, uint32_t dsi_type);

#ifdef __cplusplus
}
#endif

#endif /* VESSPLITTER_REGISTRY_H */
