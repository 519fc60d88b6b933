/* Relative gradient of a float depth (or disparity) plane and the byte mask of its borders. */
#ifndef BIVISTA_BORDERMASK_H
#define BIVISTA_BORDERMASK_H

#include <stdint.h>

#include "bivista/bv_export.h"

BIVISTA_EXTERN_C_BEGIN

/* One gradient worker's share: rows startRow .. endRow - 1, columns startColumn ..
 * endColumn - 1 of planes width values wide. */
typedef struct DataGradientThreadParam {
  int32_t startRow;
  int32_t endRow;
  int32_t startColumn;
  int32_t endColumn;
  int32_t width; /* row stride */
  int32_t height;
  const float* depth;
  float* gradient; /* written */
} DataGradientThreadParam;

/* gradient = relative gradient of depth (width x height), zero on the two top rows, the bottom
 * row, the two left columns and the right column; threshold = mean + 3 x deviation of every
 * 16th gradient (divisor n / 16); mask = 255 where the gradient reaches it, else 0 (or the prior
 * value when prior is non-null and mergePrior nonzero); gradients under nonzero prior pixels are
 * cleared; then a 3x3 closing with scratch (width x height bytes). At most 4 workers of pool
 * (null: the caller's thread); threadCount below 1 leaves the gradient zero. No worker starts
 * above row 2 (small heights would otherwise read above the plane). A width or height below 1
 * counts as an empty plane. Returns 0. */
BIVISTA_API int getDataGradientAndBorderMask(const float* depth, const uint8_t* prior, int width,
                                             int height, uint32_t mergePrior, uint8_t* mask,
                                             float* gradient, uint8_t* scratch, void* pool,
                                             int threadCount);
/* threshold = mean + 3 x deviation of gradient[0], gradient[16], ... over n = width x height,
 * both divided by n / 16 (all 0 for an empty plane); logged at debug level. */
BIVISTA_API void getBinarizationTh(const float* gradient, int width, int height, float* threshold);

BIVISTA_EXTERN_C_END

#ifdef __cplusplus
/* Pool worker: gradient of one DataGradientThreadParam's rows and columns. */
BIVISTA_API void* getDataGradient_multiThread(void* param, int threadIndex);
#endif

#endif
