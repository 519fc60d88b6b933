// Shared pieces of the weighted median: message lines, the stages over 8-bit or 32-bit level and
// class planes, and the column driver used by filterCore and the 8-bit driver.
#ifndef BIVISTA_SRC_DEPTHREFINE_JWMF_JWMF_INTERNAL_H
#define BIVISTA_SRC_DEPTHREFINE_JWMF_JWMF_INTERNAL_H

#include <stdint.h>
#include <string.h>

#include "bivista/jwmf.h"

namespace bivista {
namespace jwmf {

// Source lines of the messages.
// from32FTo32SSimple
constexpr int kLineQuantFlat = 64;
constexpr int kLineQuantDone = 88;
// getFeatureByMSSeg
constexpr int kLineSegCount = 121;
constexpr int kLineSegMalloc = 128;
constexpr int kLineSegLeft = 171;
constexpr int kLineSegWmap = 178;
// getFeatureByImg
constexpr int kLineImgCount = 230;
constexpr int kLineImgWmap = 236;
// filterCore_multiThread
constexpr int kLineCoreMalloc = 300;
constexpr int kLineCoreRange = 381;
// filterCore / filterCoreWithMask
constexpr int kLineFilterCoreCopy = 520;
constexpr int kLineFilterMaskCopy = 566;
constexpr int kLineObstacle = 611;
// JWMFilter
constexpr int kLineSegAlloc = 660;
constexpr int kLineSegEnter = 667;
constexpr int kLineSegFeature = 690;
constexpr int kLineSegCore = 716;
constexpr int kLineSegLeave = 728;
// JWMFilterWithImg
constexpr int kLineImgAlloc = 760;
constexpr int kLineImgEnter = 767;
constexpr int kLineImgParams = 768;
constexpr int kLineImgFeature = 792;
constexpr int kLineImgCore = 818;
constexpr int kLineImgLeave = 830;
// JWMFilterWithImg2
constexpr int kLineImg2Few = 845;
constexpr int kLineImg2Many = 850;
constexpr int kLineImg2Alloc = 858;
constexpr int kLineImg2Enter = 865;
constexpr int kLineImg2Params = 866;
constexpr int kLineImg2Feature = 890;
constexpr int kLineImg2Core = 916;
constexpr int kLineImg2Leave = 928;
// JWMFFilter
constexpr int kLineFfAlloc = 945;
constexpr int kLineFfEnter = 952;
constexpr int kLineFfFeature = 975;
constexpr int kLineFfCore = 1001;
constexpr int kLineFfLeave = 1013;
// JWMFFilterImage_MaskArea2
constexpr int kLineMaskArea2Fail = 1060;

constexpr int kObstacleLen = 20;
constexpr int kValidLen = 3;
constexpr int kMaxWorkers = 4;
constexpr float kWeightConstant = 0.000768935f;  // 1 / (2 x 25.5^2)

// The quantiser's passes over n depth values (dispatched to the best vector target): min and
// max as a scan keeps them (start values 1e8 and -1e8, NaN ignored, the first of equal values),
// and the levels (truncation of (depth - min) x inv clamped to 0..levelCount-1; NaN gives 0).
void QuantMinMax(const float* depth, int64_t n, float* minV, float* maxV);
void QuantLevels(const float* depth, int64_t n, float minV, float inv, int levelCount,
                 int32_t* levels);
void QuantLevels(const float* depth, int64_t n, float minV, float inv, int levelCount,
                 uint8_t* levels);
namespace scalar {
void QuantMinMax(const float* depth, int64_t n, float* minV, float* maxV);
template <typename T>
void QuantLevels(const float* depth, int64_t n, float minV, float inv, int levelCount, T* levels);
}  // namespace scalar

// Quantiser into levels of type T; false when the plane is refused as flat (or levelCount < 1).
template <typename T>
bool Quantise(const float* depth, T* levels, float* table, int levelCount, int width, int height);

// Guide-plane features into T; 0 or -1 (weight map not allocated).
template <typename T>
int ImgFeatures(const uint8_t* guide, T* features, float*** weightMap, int32_t* classCount,
                int width, int height, int fixedClasses);

// The median over columns [first, end) of T planes (output written only where the mask, when
// given, is nonzero). Logs and leaves the columns alone when its arrays cannot be allocated.
// Byte planes instead get every pixel of the columns written, the level itself where none is
// filtered, so that their output block needs no copy of the levels beforehand.
// Dispatched once per call to the best vector target.
#define BIVISTA_JWMF_COLUMNS_PARAMS(T)                                                         \
  int first, int end, const T *levels, const T *features, float **weights, int height,        \
      int width, int classes, int levelCount, int radius, const uint8_t *mask, T *output
#define BIVISTA_JWMF_DECLARE_COLUMNS                                   \
  template <typename T>                                                 \
  void FilterColumns(BIVISTA_JWMF_COLUMNS_PARAMS(T));                   \
  template <>                                                           \
  void FilterColumns<int32_t>(BIVISTA_JWMF_COLUMNS_PARAMS(int32_t));    \
  template <>                                                           \
  void FilterColumns<uint8_t>(BIVISTA_JWMF_COLUMNS_PARAMS(uint8_t));
BIVISTA_JWMF_DECLARE_COLUMNS

namespace scalar {
// The same walk with the weighted sums and level crossings on plain loops: the definition the
// vector targets must match exactly.
BIVISTA_JWMF_DECLARE_COLUMNS
}  // namespace scalar

// Byte planes: the columns [first, end) of the output take the levels as they are.
inline void KeepColumns(int first, int end, const uint8_t* levels, int width, int height,
                        uint8_t* output) {
  for (int y = 0; y < height; ++y) {
    const size_t at = static_cast<size_t>(y) * width + first;
    memcpy(output + at, levels + at, static_cast<size_t>(end - first));
  }
}

// Worker split and boots over a caller-provided output block (filled by the workers; the
// columns of a worker the pool cannot start keep their levels).
template <typename T>
void RunWorkers(const T* levels, const T* features, float** weights, const uint8_t* mask,
                int height, int width, int classes, int levelCount, int radius, void* pool,
                int threadCount, T* output);

// filterCore (no mask) or filterCoreWithMask on byte planes: the same output copy block from
// safeNew (width x height int32; only its first width x height bytes are used), messages and
// mask cleaning. Returns the filtered levels inside that block (release with safeDelete), or
// null (logged) when the block cannot be obtained.
uint8_t* MedianBytes(const uint8_t* levels, const uint8_t* features, float** weights,
                     uint8_t* mask, int keepMask, int height, int width, int classes,
                     int levelCount, int radius, void* pool, int threadCount);

// Obstacle removal on the mask, in place, and its log line.
void RemoveObstacles(uint8_t* mask, int width, int height);

// Pixel count of a plane, 0 when a side is not positive.
inline int64_t PixelCount(int width, int height) {
  return width > 0 && height > 0 ? static_cast<int64_t>(width) * height : 0;
}

}  // namespace jwmf
}  // namespace bivista

#endif
