#include "bivista/xelma_log.h"

#include <stdarg.h>

#include "android_platform.h"

extern "C" int Xelma_Print(int level, const char* tag, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int result = __android_log_vprint(level, tag, format, ap);
  va_end(ap);
  return result;
}
