/* Export and linkage macros shared by every public header of libbivista_disptodepth. */
#ifndef BIVISTA_BV_EXPORT_H
#define BIVISTA_BV_EXPORT_H

/* The library is built with -fvisibility=hidden; only BIVISTA_API entries are exported. */
#if defined(__GNUC__) || defined(__clang__)
#define BIVISTA_API __attribute__((visibility("default")))
#else
#define BIVISTA_API
#endif

/* Most entries use undecorated (C) names; workers and stages keep C++ names. */
#ifdef __cplusplus
#define BIVISTA_EXTERN_C_BEGIN extern "C" {
#define BIVISTA_EXTERN_C_END }
#else
#define BIVISTA_EXTERN_C_BEGIN
#define BIVISTA_EXTERN_C_END
#endif

#endif
