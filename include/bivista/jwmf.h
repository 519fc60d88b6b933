/* Joint weighted median filter: depth quantiser, guide features, the sliding joint-histogram
 * median over the worker pool, and the drivers that chain them. Depth planes are float, row-major,
 * stride = width; masks are 8-bit (nonzero = filter this pixel). */
#ifndef BIVISTA_JWMF_H
#define BIVISTA_JWMF_H

#include <stdint.h>

#include "bivista/bv_export.h"
#include "bivista/mem_services.h"

BIVISTA_EXTERN_C_BEGIN

/* Quantiser record: depth -> levels 0..levelCount-1 and table[k], the depth of level k. */
typedef struct JWMFQuantArgs {
  const float* depth;
  int32_t* levels;
  float* table;
  int32_t levelCount;
  int32_t width;
  int32_t height;
} JWMFQuantArgs;

/* Segment-based features: colours holds three floats per segment, labels one segment number per
 * pixel (numbers outside 0..segmentCount-1 get class 0). */
typedef struct JWMFSegFeatureArgs {
  const float* colors;
  const int32_t* labels;
  int32_t segmentCount;
  int32_t* features;
  float*** weightMap; /* receives a float2D of classes x classes; release with float2D_release */
  int32_t* classCount;
  int32_t width;
  int32_t height;
  int32_t* status; /* 0 success, -1 failure */
} JWMFSegFeatureArgs;

/* Guide-plane features: class = guide byte >> 2. */
typedef struct JWMFImgFeatureArgs {
  const uint8_t* guide;
  int32_t* features;
  float*** weightMap;
  int32_t dim; /* carried, not used */
  int32_t* classCount;
  int32_t width;
  int32_t height;
  int32_t fixedClasses; /* 0: 64 classes; else the largest class present + 1 */
  int32_t* status;
} JWMFImgFeatureArgs;

/* Median worker record: filters columns firstColumn .. endColumn - 1 into output. */
typedef struct JWMFCoreArgs {
  int32_t firstColumn;
  int32_t endColumn;
  const int32_t* levels;
  const int32_t* features;
  float** weights;
  int32_t height;
  int32_t width;
  int32_t classes;
  int32_t levelCount;
  int32_t radius;
  int32_t* output;
} JWMFCoreArgs;

typedef struct JWMFCoreMaskArgs {
  int32_t firstColumn;
  int32_t endColumn;
  const int32_t* levels;
  const int32_t* features;
  float** weights;
  int32_t height;
  int32_t width;
  int32_t classes;
  int32_t levelCount;
  int32_t radius;
  const uint8_t* mask;
  int32_t* output;
} JWMFCoreMaskArgs;

/* Weighted median of the level image in place (levels and classes as the records above; level and
 * class values outside their ranges are clamped into them). 0, or -1 (all bits set) when the
 * output copy cannot be allocated. min(threadCount, 4) workers (0 gives 1; negative: nothing).
 * The weighted sums (of the balances, and of a level the cut crosses) add the terms of classes
 * f = 0, 1, 2, ... into 16 partial sums (f mod 16, in ascending order), then add the partial
 * sums pairwise: j and j + 8, then j and j + 4, j and j + 2, 0 and 1; the same on every
 * processor. Only classes with a nonzero balance or count, and class 0, contribute. */
BIVISTA_API int filterCore(int32_t* levels, const int32_t* features, float** weights, int height,
                           int width, int classes, int levelCount, int radius, void* pool,
                           int threadCount);
/* As filterCore at pixels whose mask is nonzero. keepMask 0: the mask is first cleaned in place
 * (gaps under 20 pixels of a column closed to 255, runs of 1-2 pixels removed). A null mask
 * behaves as filterCore. */
BIVISTA_API int filterCoreWithMask(int32_t* levels, const int32_t* features, float** weights,
                                   uint8_t* mask, int keepMask, int height, int width, int classes,
                                   int levelCount, int radius, void* pool, int threadCount);

/* Segment-guided filter in place: 256 levels, radius 5. Buffers from allocator, tag
 * "OPT_BORDER_FILTER"; failures are logged and leave depth unwritten. */
BIVISTA_API void JWMFilter(float* depth, int width, int height, uint8_t* mask, int keepMask,
                           const float* colors, const int32_t* labels, int segmentCount,
                           void* pool, int threadCount, const vta_algo_mem_allocator_t* allocator);
/* Guide-plane filter in place: 128 levels, the caller's radius. keepMask also fixes the class
 * count to the guide's (0: 64 classes). */
BIVISTA_API void JWMFilterWithImg(float* depth, const uint8_t* guide, int dim, int width,
                                  int height, uint8_t* mask, int radius, int keepMask, void* pool,
                                  int threadCount, const vta_algo_mem_allocator_t* allocator);
/* JWMFilterWithImg over caller work memory: levelBuf, featureBuf and outBuf are width x height
 * bytes each (8-bit level, class and filtered-level planes; they may be consecutive pieces of one
 * block). Only the 512-byte level table comes from the allocator. threadCount must be at least 2
 * (the quantiser and the features run on workers 0 and 1); above 4 is warned about and used as 4.
 * 0, or -1 with the depth unwritten. */
BIVISTA_API int JWMFilterWithImg2(uint8_t* levelBuf, uint8_t* featureBuf, uint8_t* outBuf,
                                  float* depth, const uint8_t* guide, int dim, int width,
                                  int height, uint8_t* mask, int radius, int keepMask, void* pool,
                                  int threadCount, const vta_algo_mem_allocator_t* allocator);
/* Segment-guided filter with the caller's radius and buffers from safeNew (no allocator). */
BIVISTA_API void JWMFFilter(float* depth, int width, int height, uint8_t* mask, int keepMask,
                            const float* colors, const int32_t* labels, int segmentCount,
                            int radius, void* pool, int threadCount);
/* JWMFilterWithImg, medianFilter_3x3, optimzieJWMFResult(work: 4 x width x height floats). */
BIVISTA_API void JWMFFilterImage_MaskArea(float* depth, const uint8_t* guide, int dim, int width,
                                          int height, uint8_t* mask, int radius, int keepMask,
                                          void* pool, int threadCount,
                                          const vta_algo_mem_allocator_t* allocator, float* work);
/* As above through JWMFilterWithImg2; work: 16 x width x height bytes, 4-byte aligned. 0 or -1. */
BIVISTA_API int JWMFFilterImage_MaskArea2(float* depth, const uint8_t* guide, int dim, int width,
                                          int height, uint8_t* mask, int radius, int keepMask,
                                          void* pool, int threadCount,
                                          const vta_algo_mem_allocator_t* allocator,
                                          uint8_t* work);
/* In-place 3x3 median (fifth of nine) at masked interior pixels in raster order, reading values
 * already filtered above and to the left. A null mask filters every interior pixel. */
BIVISTA_API float* medianFilter_3x3(float* depth, int width, int height, const uint8_t* mask);
/* Snaps each masked pixel to the strictly closest of the nearest unmasked positive values left,
 * right, above and below it when within 20 % of its value. work: 4 x width x height floats.
 * A null mask or work does nothing. */
BIVISTA_API void optimzieJWMFResult(float* depth, const uint8_t* mask, int width, int height,
                                    float* work);
/* Frees pointer through allocator (tag "OPT_BORDER_FILTER") when both are non-null. */
BIVISTA_API void jwmf_safeDelete(void* pointer, const vta_algo_mem_allocator_t* allocator);

BIVISTA_EXTERN_C_END

#ifdef __cplusplus
/* Pool workers (argument: the record above; result null). */
BIVISTA_API void* from32FTo32SSimple_MulThread(void* argument, int threadIndex);
BIVISTA_API void* getFeatureByMSSeg_Thread(void* argument, int threadIndex);
BIVISTA_API void* getFeatureByImg_MulThread(void* argument, int threadIndex);
BIVISTA_API void* filterCore_multiThread(void* argument, int threadIndex);
BIVISTA_API void* filterCoreWithmask_multiThread(void* argument, int threadIndex);
#endif

#endif
