/* The two Android platform entries the library calls. On Android they come from liblog and libc;
 * on a Linux host from libbivista_platform. Tests interpose them by defining the same symbols. */
#ifndef BIVISTA_PLATFORM_ANDROID_PLATFORM_H
#define BIVISTA_PLATFORM_ANDROID_PLATFORM_H

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef PROP_VALUE_MAX
#define PROP_VALUE_MAX 92
#endif

int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap);
int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif

#endif
