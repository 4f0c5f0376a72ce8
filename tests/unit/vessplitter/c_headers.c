/* Compiled as C99 only: the splitter face's public headers are valid C. */
#include "avc_sei_sps_parser.h"
#include "hevc_sei_sps_parser.h"
#include "io_base.h"
#include "io_buffer.h"
#include "registry.h"
#include "sei_sps_parser.h"
#include "vessplitter.h"

int vessplitter_c_headers_compile(void);
int vessplitter_c_headers_compile(void) {
    return (int)sizeof(parser_t) + (int)sizeof(bbio_buf_t) + (int)sizeof(struct ves_splitter);
}
