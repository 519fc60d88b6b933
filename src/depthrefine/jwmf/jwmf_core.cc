// The weighted median: a joint histogram (level x class) with per-level class lists and a
// balance count per class slides down each column; the cut moves from the previous row's level.
#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "bivista/jwmf.h"
#include "bivista/mem_services.h"
#include "bivista/mthread.h"
#include "common/log_internal.h"
#include "depthrefine/jwmf/jwmf_internal.h"

namespace bivista {
namespace jwmf {

namespace {

// Worker count and column split; boot(i, first, end) starts worker i.
template <typename Boot>
void SplitColumns(int width, int threadCount, void* pool, Boot boot) {
  if (threadCount < 0) return;
  const int workers = threadCount == 0 ? 1 : std::min(threadCount, kMaxWorkers);
  for (int i = 0; i < workers; ++i) {
    const int first = static_cast<int>(static_cast<int64_t>(i) * width / workers);
    const int end = i == workers - 1 ? width
                                     : static_cast<int>(static_cast<int64_t>(i + 1) * width / workers);
    boot(i, first, end);
  }
  MThread_Sync(pool, 0, workers);
}

template <typename T>
struct ColumnJob {
  int first, end;
  const T* levels;
  const T* features;
  float** weights;
  int height, width, classes, levelCount, radius;
  const uint8_t* mask;
  T* output;
};

template <typename T>
void* RunColumnJob(void* argument, int /*threadIndex*/) {
  const auto* j = static_cast<const ColumnJob<T>*>(argument);
  FilterColumns(j->first, j->end, j->levels, j->features, j->weights, j->height, j->width,
                j->classes, j->levelCount, j->radius, j->mask, j->output);
  return nullptr;
}

// The output copy block (width x height int32 from safeNew) holding the levels of T planes
// (byte planes: only when no worker runs; the workers write every pixel of their columns).
template <typename T>
T* CopyLevels(const T* levels, int width, int height, const char* fn, int line, bool fill = true) {
  const int64_t bytes = PixelCount(width, height) * 4;
  auto* copy = static_cast<T*>(safeNew(bytes > INT32_MAX ? -1 : static_cast<int>(bytes)));
  if (copy == nullptr) {
    BV_LOGE(kTagAlgo, fn, line, "filterCore failed!!\n");
    return nullptr;
  }
  if (fill) memcpy(copy, levels, static_cast<size_t>(PixelCount(width, height)) * sizeof(T));
  return copy;
}

void CopyBack(int32_t* levels, int32_t* copy, int width, int height) {
  memcpy(levels, copy, static_cast<size_t>(PixelCount(width, height)) * 4);
  safeDelete(copy);
}

}  // namespace

template <typename T>
void RunWorkers(const T* levels, const T* features, float** weights, const uint8_t* mask,
                int height, int width, int classes, int levelCount, int radius, void* pool,
                int threadCount, T* output) {
  ColumnJob<T> jobs[kMaxWorkers];
  SplitColumns(width, threadCount, pool, [&](int i, int first, int end) {
    jobs[i] = {first, end, levels, features, weights, height, width, classes, levelCount,
               radius, mask, output};
    if (MThread_Boot(pool, i, RunColumnJob<T>, &jobs[i]) != 0) {
      KeepColumns(first, end, levels, width, height, output);
    }
  });
}

uint8_t* MedianBytes(const uint8_t* levels, const uint8_t* features, float** weights,
                     uint8_t* mask, int keepMask, int height, int width, int classes,
                     int levelCount, int radius, void* pool, int threadCount) {
  uint8_t* copy = CopyLevels(levels, width, height, mask != nullptr ? "filterCoreWithMask" : "filterCore",
                             mask != nullptr ? kLineFilterMaskCopy : kLineFilterCoreCopy,
                             threadCount < 0);
  if (copy == nullptr) return nullptr;
  if (mask != nullptr && keepMask == 0) RemoveObstacles(mask, width, height);
  RunWorkers(levels, features, weights, mask, height, width, classes, levelCount, radius, pool,
             threadCount, copy);
  return copy;
}

template void RunWorkers<uint8_t>(const uint8_t*, const uint8_t*, float**, const uint8_t*, int,
                                  int, int, int, int, void*, int, uint8_t*);

void RemoveObstacles(uint8_t* mask, int width, int height) {
  // Columns are independent: walk them in row order, 64 at a time, each with its own counters.
  constexpr int kBlock = 64;
  for (int x0 = 0; x0 < width; x0 += kBlock) {
    const int cols = std::min(kBlock, width - x0);
    int zeros[kBlock] = {0}, ones[kBlock] = {0};
    for (int y = 0; y < height; ++y) {
      uint8_t* row = mask + static_cast<size_t>(y) * width + x0;
      for (int i = 0; i < cols; ++i) {
        int& z = zeros[i];
        int& n = ones[i];
        if (row[i] != 0) {
          if (z > 0 && z < kObstacleLen) {
            for (int k = 1; k <= z; ++k) row[i - static_cast<ptrdiff_t>(k) * width] = 255;
          }
          ++n;
          z = 0;
        } else {
          ++z;
          if (n == 1 || n == 2) {
            for (int k = 1; k <= n; ++k) row[i - static_cast<ptrdiff_t>(k) * width] = 0;
          }
          n = 0;
        }
      }
    }
  }
  BV_LOGD(kTagAlgo, "filterCoreWithMask", kLineObstacle,
          "remove obstacle with obstaclelen %d validlength %d\n", kObstacleLen, kValidLen);
}

}  // namespace jwmf
}  // namespace bivista

using namespace bivista::jwmf;

void* filterCore_multiThread(void* argument, int /*threadIndex*/) {
  const auto* a = static_cast<const JWMFCoreArgs*>(argument);
  FilterColumns(a->firstColumn, a->endColumn, a->levels, a->features, a->weights, a->height,
                a->width, a->classes, a->levelCount, a->radius, nullptr, a->output);
  return nullptr;
}

void* filterCoreWithmask_multiThread(void* argument, int /*threadIndex*/) {
  const auto* a = static_cast<const JWMFCoreMaskArgs*>(argument);
  FilterColumns(a->firstColumn, a->endColumn, a->levels, a->features, a->weights, a->height,
                a->width, a->classes, a->levelCount, a->radius, a->mask, a->output);
  return nullptr;
}

extern "C" int filterCore(int32_t* levels, const int32_t* features, float** weights, int height,
                          int width, int classes, int levelCount, int radius, void* pool,
                          int threadCount) {
  int32_t* copy = CopyLevels(levels, width, height, "filterCore", kLineFilterCoreCopy);
  if (copy == nullptr) return -1;
  JWMFCoreArgs records[kMaxWorkers];
  SplitColumns(width, threadCount, pool, [&](int i, int first, int end) {
    records[i] = {first, end, levels, features, weights, height, width, classes, levelCount,
                  radius, copy};
    MThread_Boot(pool, i, filterCore_multiThread, &records[i]);
  });
  CopyBack(levels, copy, width, height);
  return 0;
}

extern "C" int filterCoreWithMask(int32_t* levels, const int32_t* features, float** weights,
                                  uint8_t* mask, int keepMask, int height, int width, int classes,
                                  int levelCount, int radius, void* pool, int threadCount) {
  int32_t* copy = CopyLevels(levels, width, height, "filterCoreWithMask", kLineFilterMaskCopy);
  if (copy == nullptr) return -1;
  if (keepMask == 0 && mask != nullptr) RemoveObstacles(mask, width, height);
  JWMFCoreMaskArgs records[kMaxWorkers];
  SplitColumns(width, threadCount, pool, [&](int i, int first, int end) {
    records[i] = {first, end, levels, features, weights, height, width, classes, levelCount,
                  radius, mask, copy};
    MThread_Boot(pool, i, filterCoreWithmask_multiThread, &records[i]);
  });
  CopyBack(levels, copy, width, height);
  return 0;
}
