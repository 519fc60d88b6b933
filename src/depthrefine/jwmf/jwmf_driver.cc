// The weighted-median drivers: buffers, quantiser and features side by side on workers 0 and 1,
// the median, the write-back; and the 3x3 clean-up and snapping of the mask-area variants.
#include <math.h>
#include <stdint.h>
#include <string.h>

#include "bivista/jwmf.h"
#include "bivista/mem_services.h"
#include "bivista/mthread.h"
#include "common/log_internal.h"
#include "depthrefine/jwmf/jwmf_internal.h"

namespace bivista {
namespace jwmf {
namespace {

constexpr const char kMemTag[] = "OPT_BORDER_FILTER";
constexpr int kImgLevels = 128;
constexpr int kSegLevels = 256;
constexpr int kSegRadius = 5;
constexpr int kImgClassesIn = 256;
constexpr float kSnapShare = 0.2f;

// Messages of one driver.
struct Texts {
  const char* fn;
  int lineAlloc;
  const char* allocText;
  int lineEnter;
  int lineParams;  // 0: no parameter line
  int lineFeature;
  bool imgFeatures;  // which feature failure message
  int lineCore;
  int lineLeave;
};

constexpr Texts kSegTexts = {"JWMFilter",   kLineSegAlloc,   "JWMFilter malloced memory failed!\n",
                             kLineSegEnter, 0,               kLineSegFeature,
                             false,         kLineSegCore,    kLineSegLeave};
constexpr Texts kFfTexts = {"JWMFFilter",  kLineFfAlloc, "safeNew memory for JWMF failed!!\n",
                            kLineFfEnter,  0,            kLineFfFeature,
                            false,         kLineFfCore,  kLineFfLeave};
constexpr Texts kImgTexts = {"JWMFilterWithImg", kLineImgAlloc,   "malloc memory for JWMF failed!!\n",
                             kLineImgEnter,      kLineImgParams,  kLineImgFeature,
                             true,               kLineImgCore,    kLineImgLeave};
constexpr Texts kImg2Texts = {"JWMFilterWithImg2", kLineImg2Alloc,  "malloc memory for JWMF failed!!\n",
                              kLineImg2Enter,      kLineImg2Params, kLineImg2Feature,
                              true,                kLineImg2Core,   kLineImg2Leave};

// Where a driver's buffers come from: the caller's table (tag "OPT_BORDER_FILTER") or safeNew.
struct Source {
  const vta_algo_mem_allocator_t* allocator;
  bool useSafeNew;
  void* Get(int64_t bytes) const {
    if (useSafeNew) return safeNew(bytes > INT32_MAX ? -1 : static_cast<int>(bytes));
    if (allocator == nullptr || allocator->malloc == nullptr) return nullptr;
    return allocator->malloc(static_cast<size_t>(bytes), VTA_MEM_TAG(kMemTag), 0);
  }
  void Put(void* p) const {
    if (useSafeNew) {
      safeDelete(p);
    } else {
      jwmf_safeDelete(p, allocator);
    }
  }
};

// One driver call's state; T is the element of the level and feature images.
template <typename T>
struct Work {
  T* levels = nullptr;
  T* features = nullptr;
  float* table = nullptr;
  float** wmap = nullptr;
  int32_t classes = 0;
  int32_t status = -1;  // stays -1 when the feature job never ran
};

// The run of a driver once its buffers are held: entry lines, zeroed levels and table (entry 0
// marked so that a refused, flat plane is recognised and left unwritten), quantiser and features
// on workers 0 and 1, the median, the write-back, the weight map released. bootJobs(work) boots
// the two jobs; median(work) returns the final levels or null. The caller releases the buffers.
// 0 or -1.
template <typename T, typename BootJobs, typename Median>
int Drive(const Texts& tx, float* depth, int dim, int width, int height, const uint8_t* mask,
          int radius, int keepMask, int levelCount, void* pool, Work<T>& wk, BootJobs bootJobs,
          Median median) {
  BV_LOGD(kTagAlgo, tx.fn, tx.lineEnter, "Entering.");
  if (tx.lineParams != 0) {
    BV_LOGI(kTagAlgo, tx.fn, tx.lineParams,
            "enter spatial filter!paras: dim %d (W,H)=(%d,%d) radius %d bKeepMask %d", dim, width,
            height, radius, keepMask);
  }
  const int64_t pixels = PixelCount(width, height);
  memset(wk.table, 0, sizeof(float) * levelCount);
  wk.table[0] = NAN;  // the quantiser writes a number here unless it refuses the plane
  bootJobs(wk);
  MThread_Sync(pool, 0, 2);
  // The level image as if zeroed before: an accepted plane overwrites every level.
  if (isnan(wk.table[0])) memset(wk.levels, 0, static_cast<size_t>(pixels) * sizeof(T));
  if (wk.status != 0) {
    if (tx.imgFeatures) {
      BV_LOGE(kTagAlgo, tx.fn, tx.lineFeature, "getFeatureByImg failed!!iRet %d\n", wk.status);
    } else {
      BV_LOGE(kTagAlgo, tx.fn, tx.lineFeature, "getFeatureByMSSeg failed!");
    }
    if (wk.wmap != nullptr) float2D_release(wk.wmap);
    return -1;
  }
  const T* out = median(wk);
  if (out == nullptr) {
    BV_LOGE(kTagAlgo, tx.fn, tx.lineCore, "filterCore failed!!");
    float2D_release(wk.wmap);
    return -1;
  }
  if (!isnan(wk.table[0])) {
    for (int64_t i = 0; i < pixels; ++i) {
      if (mask == nullptr || mask[i] != 0) depth[i] = wk.table[out[i]];
    }
  }
  float2D_release(wk.wmap);
  BV_LOGD(kTagAlgo, tx.fn, tx.lineLeave, "Leaving .");
  return 0;
}

// The image buffers (width x height x 4 bytes each, of which T planes use the first
// width x height x sizeof(T)) and the level table; false (logged, nothing held) when one is
// missing.
template <typename T>
bool Acquire(const Texts& tx, const Source& src, int width, int height, int levelCount,
             Work<T>& wk) {
  const int64_t bytes = PixelCount(width, height) * 4;
  wk.levels = static_cast<T*>(src.Get(bytes));
  wk.features = static_cast<T*>(src.Get(bytes));
  wk.table = static_cast<float*>(src.Get(static_cast<int64_t>(levelCount) * 4));
  if (wk.levels != nullptr && wk.features != nullptr && wk.table != nullptr) return true;
  BV_LOGE(kTagAlgo, tx.fn, tx.lineAlloc, "%s", tx.allocText);
  src.Put(wk.levels);
  src.Put(wk.features);
  src.Put(wk.table);
  return false;
}

// The 32-bit median step: filterCore, or filterCoreWithMask with a mask.
const int32_t* Median32(Work<int32_t>& wk, uint8_t* mask, int keepMask, int width, int height,
                        int levelCount, int radius, void* pool, int threadCount) {
  const int rc = mask != nullptr
                     ? filterCoreWithMask(wk.levels, wk.features, wk.wmap, mask, keepMask, height,
                                          width, wk.classes, levelCount, radius, pool, threadCount)
                     : filterCore(wk.levels, wk.features, wk.wmap, height, width, wk.classes,
                                  levelCount, radius, pool, threadCount);
  return rc == 0 ? wk.levels : nullptr;
}

// Segment-guided drivers (JWMFilter, JWMFFilter).
void SegDriver(const Texts& tx, const Source& src, float* depth, int width, int height,
               uint8_t* mask, int keepMask, const float* colors, const int32_t* labels,
               int segmentCount, int radius, void* pool, int threadCount) {
  Work<int32_t> wk;
  if (!Acquire(tx, src, width, height, kSegLevels, wk)) return;
  JWMFQuantArgs quant;
  JWMFSegFeatureArgs feat;
  Drive(
      tx, depth, 0, width, height, mask, radius, keepMask, kSegLevels, pool, wk,
      [&](Work<int32_t>& w) {
        quant = {depth, w.levels, w.table, kSegLevels, width, height};
        MThread_Boot(pool, 0, from32FTo32SSimple_MulThread, &quant);
        feat = {colors, labels, segmentCount, w.features, &w.wmap, &w.classes, width, height,
                &w.status};
        MThread_Boot(pool, 1, getFeatureByMSSeg_Thread, &feat);
      },
      [&](Work<int32_t>& w) {
        return Median32(w, mask, keepMask, width, height, kSegLevels, radius, pool, threadCount);
      });
  src.Put(wk.levels);
  src.Put(wk.features);
  src.Put(wk.table);
}

template <typename T>
struct QuantJob {
  const float* depth;
  T* levels;
  float* table;
  int levelCount, width, height;
};

template <typename T>
struct ImgFeatureJob {
  const uint8_t* guide;
  T* features;
  float*** wmap;
  int32_t* classes;
  int width, height, fixedClasses;
  int32_t* status;
};

void* RunQuantJob8(void* argument, int /*threadIndex*/) {
  const auto* j = static_cast<const QuantJob<uint8_t>*>(argument);
  Quantise(j->depth, j->levels, j->table, j->levelCount, j->width, j->height);
  return nullptr;
}

void* RunImgFeatureJob8(void* argument, int /*threadIndex*/) {
  const auto* j = static_cast<const ImgFeatureJob<uint8_t>*>(argument);
  *j->status =
      ImgFeatures(j->guide, j->features, j->wmap, j->classes, j->width, j->height, j->fixedClasses);
  return nullptr;
}

// Masked-area clean-up shared by both mask-area drivers.
void CleanMaskArea(float* depth, const uint8_t* mask, int width, int height, float* work) {
  medianFilter_3x3(depth, width, height, mask);
  optimzieJWMFResult(depth, mask, width, height, work);
}

// Nearest unmasked positive value along one line (count samples, step apart) into plane, in
// both directions: forward into ahead, backward into behind.
void ScanLine(const float* depth, const uint8_t* mask, float* ahead, float* behind, int count,
              ptrdiff_t step) {
  float last = -1.0f;
  for (int i = 0; i < count; ++i) {
    const ptrdiff_t at = i * step;
    if (mask[at] == 0) {
      last = depth[at];
    } else {
      ahead[at] = last > 0 ? last : -1.0f;
    }
  }
  last = -1.0f;
  for (int i = count - 1; i >= 0; --i) {
    const ptrdiff_t at = i * step;
    if (mask[at] == 0) {
      last = depth[at];
    } else {
      behind[at] = last > 0 ? last : -1.0f;
    }
  }
}

}  // namespace
}  // namespace jwmf
}  // namespace bivista

using namespace bivista;
using namespace bivista::jwmf;

extern "C" {

void jwmf_safeDelete(void* pointer, const vta_algo_mem_allocator_t* allocator) {
  if (pointer != nullptr && allocator != nullptr && allocator->free != nullptr) {
    allocator->free(pointer, VTA_MEM_TAG(kMemTag), 0);
  }
}

void JWMFilter(float* depth, int width, int height, uint8_t* mask, int keepMask,
               const float* colors, const int32_t* labels, int segmentCount, void* pool,
               int threadCount, const vta_algo_mem_allocator_t* allocator) {
  SegDriver(kSegTexts, Source{allocator, false}, depth, width, height, mask, keepMask, colors,
            labels, segmentCount, kSegRadius, pool, threadCount);
}

void JWMFFilter(float* depth, int width, int height, uint8_t* mask, int keepMask,
                const float* colors, const int32_t* labels, int segmentCount, int radius,
                void* pool, int threadCount) {
  SegDriver(kFfTexts, Source{nullptr, true}, depth, width, height, mask, keepMask, colors, labels,
            segmentCount, radius, pool, threadCount);
}

void JWMFilterWithImg(float* depth, const uint8_t* guide, int dim, int width, int height,
                      uint8_t* mask, int radius, int keepMask, void* pool, int threadCount,
                      const vta_algo_mem_allocator_t* allocator) {
  const Texts& tx = kImgTexts;
  const Source src{allocator, false};
  // 128 levels and at most 64 classes fit a byte: the stages work on byte planes in the first
  // quarter of each buffer (a quarter of the memory touched, no copy back).
  Work<uint8_t> wk;
  if (!Acquire(tx, src, width, height, kImgLevels, wk)) return;
  QuantJob<uint8_t> quant;
  ImgFeatureJob<uint8_t> feat;
  uint8_t* out = nullptr;
  wk.classes = kImgClassesIn;
  Drive(
      tx, depth, dim, width, height, mask, radius, keepMask, kImgLevels, pool, wk,
      [&](Work<uint8_t>& w) {
        quant = {depth, w.levels, w.table, kImgLevels, width, height};
        MThread_Boot(pool, 0, RunQuantJob8, &quant);
        feat = {guide, w.features, &w.wmap, &w.classes, width, height, keepMask, &w.status};
        MThread_Boot(pool, 1, RunImgFeatureJob8, &feat);
      },
      [&](Work<uint8_t>& w) -> const uint8_t* {
        out = MedianBytes(w.levels, w.features, w.wmap, mask, keepMask, height, width, w.classes,
                          kImgLevels, radius, pool, threadCount);
        return out;
      });
  safeDelete(out);
  src.Put(wk.levels);
  src.Put(wk.features);
  src.Put(wk.table);
}

int JWMFilterWithImg2(uint8_t* levelBuf, uint8_t* featureBuf, uint8_t* outBuf, float* depth,
                      const uint8_t* guide, int dim, int width, int height, uint8_t* mask,
                      int radius, int keepMask, void* pool, int threadCount,
                      const vta_algo_mem_allocator_t* allocator) {
  const Texts& tx = kImg2Texts;
  if (threadCount < 2) {
    BV_LOGE(kTagAlgo, tx.fn, kLineImg2Few, "error th_num=%d,  must >= 2!\n", threadCount);
    return -1;
  }
  if (threadCount > kMaxWorkers) {
    BV_LOGW(kTagAlgo, tx.fn, kLineImg2Many, "Caustion!!! th_num is too max: %d", threadCount);
    threadCount = kMaxWorkers;
  }
  const Source src{allocator, false};
  Work<uint8_t> wk;
  wk.levels = levelBuf;
  wk.features = featureBuf;
  wk.table = static_cast<float*>(src.Get(kImgLevels * 4));
  if (levelBuf == nullptr || featureBuf == nullptr || outBuf == nullptr || wk.table == nullptr) {
    BV_LOGE(kTagAlgo, tx.fn, tx.lineAlloc, "%s", tx.allocText);
    src.Put(wk.table);
    return -1;
  }
  QuantJob<uint8_t> quant;
  ImgFeatureJob<uint8_t> feat;
  wk.classes = kImgClassesIn;
  const int rc = Drive(
      tx, depth, dim, width, height, mask, radius, keepMask, kImgLevels, pool, wk,
      [&](Work<uint8_t>& w) {
        quant = {depth, w.levels, w.table, kImgLevels, width, height};
        MThread_Boot(pool, 0, RunQuantJob8, &quant);
        feat = {guide, w.features, &w.wmap, &w.classes, width, height, keepMask, &w.status};
        MThread_Boot(pool, 1, RunImgFeatureJob8, &feat);
      },
      [&](Work<uint8_t>& w) -> const uint8_t* {
        if (mask != nullptr && keepMask == 0) RemoveObstacles(mask, width, height);
        RunWorkers<uint8_t>(w.levels, w.features, w.wmap, mask, height, width, w.classes,
                            kImgLevels, radius, pool, threadCount, outBuf);
        return outBuf;
      });
  src.Put(wk.table);
  return rc;
}

void JWMFFilterImage_MaskArea(float* depth, const uint8_t* guide, int dim, int width, int height,
                              uint8_t* mask, int radius, int keepMask, void* pool, int threadCount,
                              const vta_algo_mem_allocator_t* allocator, float* work) {
  JWMFilterWithImg(depth, guide, dim, width, height, mask, radius, keepMask, pool, threadCount,
                   allocator);
  CleanMaskArea(depth, mask, width, height, work);
}

int JWMFFilterImage_MaskArea2(float* depth, const uint8_t* guide, int dim, int width, int height,
                              uint8_t* mask, int radius, int keepMask, void* pool,
                              int threadCount, const vta_algo_mem_allocator_t* allocator,
                              uint8_t* work) {
  const size_t n = static_cast<size_t>(PixelCount(width, height));
  uint8_t* base = work;
  const int rc =
      base == nullptr
          ? -1
          : JWMFilterWithImg2(base, base + n, base + 2 * n, depth, guide, dim, width, height,
                              mask, radius, keepMask, pool, threadCount, allocator);
  if (rc != 0) {
    BV_LOGE(kTagAlgo, "JWMFFilterImage_MaskArea2", kLineMaskArea2Fail,
            "JWMFilterWithImg2 Y failed!!\n");
    return -1;
  }
  CleanMaskArea(depth, mask, width, height, reinterpret_cast<float*>(work));
  return 0;
}

float* medianFilter_3x3(float* depth, int width, int height, const uint8_t* mask) {
  if (height - 1 < 2) return depth;
  for (int y = 1; y < height - 1; ++y) {
    for (int x = 1; x < width - 1; ++x) {
      const size_t at = static_cast<size_t>(y) * width + x;
      if (mask != nullptr && mask[at] == 0) continue;
      float v[9];
      for (int dy = -1, k = 0; dy <= 1; ++dy) {
        const float* row = depth + at + static_cast<ptrdiff_t>(dy) * width;
        for (int dx = -1; dx <= 1; ++dx) v[k++] = row[dx];
      }
      // Five selection passes: the fifth smallest ends at index 4.
      for (int i = 0; i < 5; ++i) {
        int m = i;
        for (int j = i + 1; j < 9; ++j) {
          if (v[j] < v[m]) m = j;
        }
        const float s = v[i];
        v[i] = v[m];
        v[m] = s;
      }
      depth[at] = v[4];
    }
  }
  return depth;
}

void optimzieJWMFResult(float* depth, const uint8_t* mask, int width, int height, float* work) {
  if (mask == nullptr || work == nullptr || width < 1 || height < 1) return;
  const size_t n = static_cast<size_t>(width) * height;
  float* left = work;
  float* right = work + n;
  float* up = work + 2 * n;
  float* down = work + 3 * n;
  for (int y = 0; y < height; ++y) {
    const size_t at = static_cast<size_t>(y) * width;
    ScanLine(depth + at, mask + at, left + at, right + at, width, 1);
  }
  for (int x = 0; x < width; ++x) {
    ScanLine(depth + x, mask + x, up + x, down + x, height, width);
  }
  for (size_t i = 0; i < n; ++i) {
    if (mask[i] == 0) continue;
    const float d = depth[i];
    const float cand[4] = {left[i], right[i], up[i], down[i]};
    float dist[4];
    for (int k = 0; k < 4; ++k) dist[k] = fabsf(d - cand[k]);
    for (int k = 0; k < 4; ++k) {
      bool wins = cand[k] > 0;
      for (int j = 0; j < 4 && wins; ++j) wins = j == k || dist[k] < dist[j];
      if (!wins) continue;
      if (!(fabsf(cand[k] - d) > kSnapShare * d)) depth[i] = cand[k];
      break;
    }
  }
}

}  // extern "C"
