/* Checked allocation, the host-replaceable memory-function table, 2D arrays, a bump allocator. */
#ifndef BIVISTA_MEM_SERVICES_H
#define BIVISTA_MEM_SERVICES_H

#include <stddef.h>
#include <stdint.h>

#include "bivista/bv_export.h"

BIVISTA_EXTERN_C_BEGIN

/* Host allocator. Toolbox routines call malloc(size, tag, 0) and free(buffer, tag, 0), where tag
 * is the module's name text passed as a 64-bit word (see VTA_MEM_TAG). getIbuf is stored only. */
typedef void* (*vta_algo_malloc_fn)(size_t size, uint64_t a, uint64_t b);
typedef void (*vta_algo_free_fn)(void* buffer, uint64_t a, uint64_t b);
typedef void* (*vta_algo_getibuf_fn)(uint64_t a, uint64_t b);

typedef struct vta_algo_mem_allocator_t {
  vta_algo_malloc_fn malloc;
  vta_algo_free_fn free;
  vta_algo_getibuf_fn getIbuf;
} vta_algo_mem_allocator_t;

#define VTA_MEM_TAG(text) ((uint64_t)(uintptr_t)(text))

/* Process-wide table, all null until update_globalMemFxn; set it before work starts. */
BIVISTA_API extern vta_algo_mem_allocator_t g_memFxn;

/* malloc of size bytes (not zeroed); size below 1 logs a warning and returns null. */
BIVISTA_API void* safeNew(int size);
BIVISTA_API void safeDelete(void* pointer);
BIVISTA_API void* packed_SafeNew(int size);
BIVISTA_API void packed_SafeDelete(void* pointer);

BIVISTA_API void update_globalMemFxn(const vta_algo_mem_allocator_t* table);
/* Through g_memFxn when set, else safeNew/free (a size past 32 bits refused, not cut); timed in
 * wall-time slots 25 and 26. */
BIVISTA_API void* packed_FXN_malloc(size_t size, uint64_t a, uint64_t b);
BIVISTA_API void packed_FXN_free(void* pointer, uint64_t a, uint64_t b);

/* Row-pointer arrays over one contiguous block; pointer 0 is the block. Not zeroed. Sizes are
 * true products: one past 32 bits is refused as safeNew refuses a negative size (the warning
 * shows -2147483648), never wrapped to a small block. */
BIVISTA_API float** float2D(int rows, int columns);
BIVISTA_API int** int2D(int rows, int columns);
BIVISTA_API short** short2D(int rows, int columns);
BIVISTA_API unsigned char** uchar2D(int rows, int columns);
/* float2D_release does not accept a null array; the other three ignore one. */
BIVISTA_API void float2D_release(float** array);
BIVISTA_API void int2D_release(int** array);
BIVISTA_API void short2D_release(short** array);
BIVISTA_API void uchar2D_release(unsigned char** array);

/* Bump allocator over a caller-owned block: fill free = block size, used = 0, current = base = block. */
typedef struct MemoryManager {
  int32_t free;
  int32_t used;
  unsigned char* current;
  unsigned char* base;
} MemoryManager;

/* Fails (and logs) unless free is strictly greater than size. */
BIVISTA_API void* mAllocate(MemoryManager* manager, int size);
/* Returns the most recent size bytes when used is strictly greater than size. */
BIVISTA_API void mFree(MemoryManager* manager, int size);
BIVISTA_API void mFreeAll(MemoryManager* manager);

/* 0 for a path without "../" or "./", else -1 with a warning. */
BIVISTA_API int IsRelativePath(const char* path);

BIVISTA_EXTERN_C_END

#endif
