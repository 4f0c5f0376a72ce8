/* Stand-in for the platform's integer aliases. On the device these come from
 * the platform SDK; the layout here matches it. Valid C99 and C++. */
#ifndef ZARN_TYPES_H
#define ZARN_TYPES_H

#include <stdint.h>

typedef uint8_t zarn_uint8;
typedef uint16_t zarn_uint16;
typedef uint32_t zarn_uint32;
typedef uint64_t zarn_uint64;
typedef int32_t zarn_sint32;
typedef int64_t zarn_sint64;
typedef char zarn_char;
typedef uint8_t zarn_bool;

#ifndef FALSE
#define FALSE 0
#endif
#ifndef TRUE
#define TRUE 1
#endif

#endif
