/* Basic integer names used across the RSU's C interfaces. */
#ifndef V2X_TYPES_H
#define V2X_TYPES_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

typedef int8_t int8;
typedef uint8_t uint8;
typedef int16_t int16;
typedef uint16_t uint16;
typedef int32_t int32;
typedef uint32_t uint32;
typedef int64_t int64;
typedef uint64_t uint64;

/* Compile-time size checks that work from C and C++. */
#ifdef __cplusplus
#define V2X_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define V2X_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

#endif
