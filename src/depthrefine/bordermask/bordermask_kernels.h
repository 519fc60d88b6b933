// Per-pixel passes of the border mask: each entry dispatches to the best vector target;
// bivista::scalar holds the definition it must equal bit for bit.
#ifndef BIVISTA_SRC_DEPTHREFINE_BORDERMASK_BORDERMASK_KERNELS_H
#define BIVISTA_SRC_DEPTHREFINE_BORDERMASK_BORDERMASK_KERNELS_H

#include <math.h>
#include <stddef.h>
#include <stdint.h>

namespace bivista {
namespace border {

// Relative gradient at p (row stride w): two samples behind and one ahead in each direction,
// divided by the value itself without a zero guard.
inline float Gradient(const float* p, ptrdiff_t w) {
  const float v = p[0] + p[w] - p[-w] - p[-2 * w];
  const float h = p[0] + p[1] - p[-2] - p[-1];
  return (fabsf(v) + fabsf(h)) / p[0];
}

// Mask value and gradient of one pixel; prior is 0 where there is no prior mask.
inline void Mark(float* g, float th, uint8_t prior, bool merge, uint8_t* mask) {
  *mask = *g >= th ? 255 : merge ? prior : 0;
  if (prior != 0) *g = 0.0f;
}

}  // namespace border

// grad[y * w + x] = Gradient(depth + y * w + x, w) for rows [row0, row1), columns [col0, col1).
void BorderGradientRows(const float* depth, float* grad, int w, int row0, int row1, int col0,
                        int col1);
// Mark() over n pixels; prior may be null (then merge is ignored).
void BorderMarkPixels(float* grad, const uint8_t* prior, bool merge, ptrdiff_t n, float th,
                      uint8_t* mask);

namespace scalar {
void BorderGradientRows(const float* depth, float* grad, int w, int row0, int row1, int col0,
                        int col1);
void BorderMarkPixels(float* grad, const uint8_t* prior, bool merge, ptrdiff_t n, float th,
                      uint8_t* mask);
}  // namespace scalar

}  // namespace bivista

#endif
