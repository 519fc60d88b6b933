/* Bounds-checked copies, clears, string and formatting routines (the C11 Annex K interfaces).
 * A runtime-constraint violation logs one line (level 6, "ZR481_ALGO") naming the function and
 * the broken constraint, and returns an error; nothing aborts. See docs/boundscheck.md. */
#ifndef BIVISTA_BOUNDSCHECK_H
#define BIVISTA_BOUNDSCHECK_H

#include <errno.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "bivista/bv_export.h"

/* A C library with Annex K brings these itself; a repeated identical typedef is harmless. */
#if !defined(__STDC_LIB_EXT1__) && !defined(_ERRNO_T_DEFINED) && !defined(BIVISTA_ERRNO_T_DEFINED)
#define BIVISTA_ERRNO_T_DEFINED
typedef int errno_t;
#endif
#if !defined(__STDC_LIB_EXT1__) && !defined(_RSIZE_T_DEFINED) && !defined(BIVISTA_RSIZE_T_DEFINED)
#define BIVISTA_RSIZE_T_DEFINED
typedef size_t rsize_t;
#endif
#ifndef RSIZE_MAX
#define RSIZE_MAX (SIZE_MAX >> 1)
#endif

BIVISTA_EXTERN_C_BEGIN

/* Return 0, or EINVAL (null pointer, zero size, overlap, unterminated string) or ERANGE (size
 * above RSIZE_MAX, destination too small). */
BIVISTA_API errno_t memcpy_s(void* dest, rsize_t destsz, const void* src, rsize_t count);
BIVISTA_API errno_t memmove_s(void* dest, rsize_t destsz, const void* src, rsize_t count);
BIVISTA_API errno_t memset_s(void* dest, rsize_t destsz, int ch, rsize_t count);
BIVISTA_API errno_t strcpy_s(char* dest, rsize_t destsz, const char* src);
BIVISTA_API errno_t strncpy_s(char* dest, rsize_t destsz, const char* src, rsize_t count);
BIVISTA_API errno_t strcat_s(char* dest, rsize_t destsz, const char* src);
BIVISTA_API errno_t strncat_s(char* dest, rsize_t destsz, const char* src, rsize_t count);

/* Null on a violation (then neither string is written and *ptr and *strmax are kept). */
BIVISTA_API char* strtok_s(char* str, rsize_t* strmax, const char* delim, char** ptr);

/* Characters written; 0 (and buffer[0] = 0) on a violation, including output that does not
 * fit; negative on an encoding error. */
BIVISTA_API int sprintf_s(char* buffer, rsize_t bufsz, const char* format, ...);
BIVISTA_API int vsprintf_s(char* buffer, rsize_t bufsz, const char* format, va_list args);
/* Length the full output would have (truncates like snprintf); -EINVAL or -ERANGE on a
 * violation. */
BIVISTA_API int snprintf_s(char* buffer, rsize_t bufsz, const char* format, ...);
BIVISTA_API int vsnprintf_s(char* buffer, rsize_t bufsz, const char* format, va_list args);

/* Each %s, %c and %[ destination is followed by an rsize_t element count. Returns the number
 * of items assigned, or EOF on a violation (also %n, wide conversions and malformed
 * conversions) or an input failure before the first conversion. */
BIVISTA_API int sscanf_s(const char* buffer, const char* format, ...);
BIVISTA_API int vsscanf_s(const char* buffer, const char* format, va_list args);

BIVISTA_EXTERN_C_END

#endif
