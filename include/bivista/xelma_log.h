/* Logging to the Android log. */
#ifndef BIVISTA_XELMA_LOG_H
#define BIVISTA_XELMA_LOG_H

#include "bivista/bv_export.h"

BIVISTA_EXTERN_C_BEGIN

/* Android log priorities used by the library. */
enum {
  XELMA_LOG_DEBUG = 3,
  XELMA_LOG_INFO = 4,
  XELMA_LOG_WARN = 5,
  XELMA_LOG_ERROR = 6
};

/* Forwards level, tag, format and arguments to __android_log_vprint and returns its result. */
BIVISTA_API int Xelma_Print(int level, const char* tag, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

BIVISTA_EXTERN_C_END

#endif
