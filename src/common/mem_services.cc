#include "bivista/mem_services.h"

#include <stdlib.h>
#include <string.h>

#include "bivista/timer.h"
#include "common/log_internal.h"
#include "common/alloc_size.h"
#include "common/mem_internal.h"

using bivista::kTagAlgo;

extern "C" {
vta_algo_mem_allocator_t g_memFxn = {nullptr, nullptr, nullptr};
}

namespace {

constexpr int kLineSafeNew = 31;
constexpr int kLineUpdateMemFxn = 52;
constexpr int kLineFloat2D = 98;
constexpr int kLineInt2D = 132;
constexpr int kLineShort2D = 166;
constexpr int kLineUchar2D = 200;
constexpr int kLineMAllocate = 262;
constexpr int kLineIsRelativePath = 301;

constexpr int kSlotFxnMalloc = 25;
constexpr int kSlotFxnFree = 26;

void* CheckedMalloc(int size) {
  if (size < 1) {
    BV_LOGW(kTagAlgo, "safeNew", kLineSafeNew,
            "the memory size %d you want to malloced is negative!!", size);
    return nullptr;
  }
  return malloc(static_cast<size_t>(size));
}

// Sizes are true products: one that does not fit 32 bits is refused, never wrapped to a small
// positive block.
template <typename T>
T** Alloc2D(int rows, int columns, const char* name, int line, const char* failText) {
  T** array = static_cast<T**>(bivista::SafeNewSize(int64_t{rows} * 8));
  if (array == nullptr) {
    BV_LOGE(kTagAlgo, name, line, "%s", failText);
    return nullptr;
  }
  // rows x columns is exact in 64 bits; past 32 bits it is refused whatever the element size.
  const int64_t cells = int64_t{rows} * columns;
  const bool fits = cells >= INT32_MIN && cells <= INT32_MAX;
  T* block = static_cast<T*>(
      bivista::SafeNewSize(fits ? cells * static_cast<int64_t>(sizeof(T)) : cells));
  if (block == nullptr) {
    array[0] = nullptr;
    BV_LOGE(kTagAlgo, name, line, "%s", failText);
    free(array);
    return nullptr;
  }
  for (int i = 0; i < rows; ++i) array[i] = block + static_cast<size_t>(i) * columns;
  return array;
}

template <typename T>
void Release2D(T** array) {
  if (array[0] != nullptr) free(array[0]);
  free(array);
}

}  // namespace

void* bivista::SafeNewSize(int64_t bytes) { return CheckedMalloc(bivista::SafeNewBytes(bytes)); }

extern "C" {

void* safeNew(int size) { return CheckedMalloc(size); }

void safeDelete(void* pointer) {
  if (pointer != nullptr) free(pointer);
}

void* packed_SafeNew(int size) { return CheckedMalloc(size); }

void packed_SafeDelete(void* pointer) { safeDelete(pointer); }

void update_globalMemFxn(const vta_algo_mem_allocator_t* table) {
  g_memFxn = *table;
  BV_LOGI(kTagAlgo, "update_globalMemFxn", kLineUpdateMemFxn,
          "update g_memFxn with malloc(0x%p) free(0x%p) iBuf(0x%p)",
          reinterpret_cast<void*>(g_memFxn.malloc), reinterpret_cast<void*>(g_memFxn.free),
          reinterpret_cast<void*>(g_memFxn.getIbuf));
}

void* packed_FXN_malloc(size_t size, uint64_t a, uint64_t b) {
  StartTimer2(kSlotFxnMalloc);
  // Without a host table the size goes to safeNew's rules whole, not cut to 32 bits.
  const int64_t bytes = static_cast<int64_t>(size < INT64_MAX ? size : INT64_MAX);
  void* buffer = g_memFxn.malloc != nullptr ? g_memFxn.malloc(size, a, b)
                                            : bivista::SafeNewSize(bytes);
  CumulativeTime2(kSlotFxnMalloc);
  ShowTime2(kSlotFxnMalloc, kSlotFxnMalloc, "packed_FXN_malloc");
  return buffer;
}

void packed_FXN_free(void* pointer, uint64_t a, uint64_t b) {
  StartTimer2(kSlotFxnFree);
  if (pointer != nullptr) {
    if (g_memFxn.free != nullptr) {
      g_memFxn.free(pointer, a, b);
    } else {
      free(pointer);
    }
  }
  CumulativeTime2(kSlotFxnFree);
  ShowTime2(kSlotFxnFree, kSlotFxnFree, "packed_FXN_free");
}

float** float2D(int rows, int columns) {
  return Alloc2D<float>(rows, columns, "float2D", kLineFloat2D, "float2D failed!!");
}
int** int2D(int rows, int columns) {
  return Alloc2D<int>(rows, columns, "int2D", kLineInt2D, "malloced memory for int2D failed!!");
}
short** short2D(int rows, int columns) {
  return Alloc2D<short>(rows, columns, "short2D", kLineShort2D,
                        "malloced memory for int2D failed!!");
}
unsigned char** uchar2D(int rows, int columns) {
  return Alloc2D<unsigned char>(rows, columns, "uchar2D", kLineUchar2D,
                                "malloced memory for int2D failed!!");
}

void float2D_release(float** array) { Release2D(array); }
void int2D_release(int** array) {
  if (array != nullptr) Release2D(array);
}
void short2D_release(short** array) {
  if (array != nullptr) Release2D(array);
}
void uchar2D_release(unsigned char** array) {
  if (array != nullptr) Release2D(array);
}

void* mAllocate(MemoryManager* manager, int size) {
  // A negative size would move the cursor backwards: refused like an oversize request.
  if (manager == nullptr || manager->current == nullptr || size < 0 || manager->free <= size) {
    BV_LOGE(kTagAlgo, "mAllocate", kLineMAllocate, "\n!!!!!!!!!!!!!!error!!!!!!!!!!!\n\n");
    return nullptr;
  }
  unsigned char* out = manager->current;
  manager->current += size;
  manager->free -= size;
  manager->used += size;
  return out;
}

void mFree(MemoryManager* manager, int size) {
  if (manager == nullptr || manager->current == nullptr || size < 0 || manager->used <= size) return;
  manager->current -= size;
  manager->used -= size;
  manager->free += size;
}

void mFreeAll(MemoryManager* manager) {
  if (manager == nullptr || manager->current == nullptr) return;
  manager->current = manager->base;
  manager->free += manager->used;
  manager->used = 0;
}

int IsRelativePath(const char* path) {
  if (path != nullptr && strstr(path, "../") == nullptr && strstr(path, "./") == nullptr) return 0;
  BV_LOGW(kTagAlgo, "IsRelativePath", kLineIsRelativePath, "it is not absulate path");
  return -1;
}

}  // extern "C"
