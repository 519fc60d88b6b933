// Row kernels of the float resizers: a dispatching entry and its scalar definition.
#ifndef BIVISTA_SRC_IMAGEFORMAT_RESIZE_FLOAT_KERNELS_H
#define BIVISTA_SRC_IMAGEFORMAT_RESIZE_FLOAT_KERNELS_H

#include <stdint.h>

namespace bivista {

// What a bilinear row writes: the value, the value times ratio, or (sparse) the value times
// ratio unless one of the four samples is invalid.
enum class FloatRowMode : int { kPlain = 0, kScaled = 1, kSparse = 2 };

struct FloatRowArgs {
  const float* rowA;  // source row y0
  const float* rowC;  // source row y0 + 1
  const int32_t* x0;  // per destination column
  const float* ax;
  int n;
  float ay;
  FloatRowMode mode;
  float ratio;
  float invalid;
  int readable;  // floats that may be read from the start of either row
};

void BilinearRowF32(const FloatRowArgs& args, float* out);

// A whole bilinear resize with a column table (x0/ax per destination column): rows step by
// stepY accumulated; with a mask, MaskedRowF32 rows whose safe end is `safe` on the last source
// pair and dstW elsewhere. One dispatch per image.
struct FloatPlaneArgs {
  const float* src;
  const uint8_t* mask;  // or null
  float* dst;
  int srcW, srcH, dstW, dstH;
  const int32_t* x0;
  const float* ax;
  float stepY;
  FloatRowMode mode;
  float ratio;
  float invalid;
  int safe;
};
void BilinearPlaneF32(const FloatPlaneArgs& args);
// The exact 2x enlargement of a srcW x srcH image (srcW, srcH >= 2), one dispatch per image.
void ExtendPlane(const float* src, float* dst, int srcW, int srcH);
// Nearest rows: row j reads source row floor(accY + 0.5) (accY += stepY) at columns sx.
void NearestPlaneF32(const float* src, float* dst, int srcW, int dstW, int dstH, float stepY,
                     const int32_t* sx, float ratio, float invalid);
// The mask's rows interpolated with the same weights reject a column when they truncate above
// 0; columns below safeEnd may read four mask bytes from x0 on.
void MaskedRowF32(const FloatRowArgs& args, const uint8_t* maskA, const uint8_t* maskC,
                  int safeEnd, float* out);
// out[i] = row[sx[i]] * ratio, or invalid where the sample is below invalid + 0.1.
void NearestRowF32(const float* row, const int32_t* sx, int n, float ratio, float invalid,
                   float* out);
// The exact half of a (2 dstW) x (2 dstH) image: 2 x 2 means, one dispatch per image.
void QuarterMeanPlane(const float* src, float* dst, int dstW, int dstH);
// One row of the exact 2x enlargement from source rows r0 (weight wy0) and r1 (weight wy1).
void ExtendRow(const float* r0, const float* r1, float* out, int srcW, double wy0, double wy1);

// Joint bilateral filtering of destination columns x0..x1-1 of row y (see the guided
// up-sampling): 5 x 5 source window around (y / q, x / q), range weights from the table.
struct GuidedArgs {
  const float* src;
  const uint8_t* guideLow;   // 3 bytes a source pixel
  const uint8_t* guideFull;  // 3 bytes a destination pixel
  const float* table;        // 511 range weights
  int srcW, dstW, q;
};
void GuidedRow(const GuidedArgs& g, int y, int x0, int x1, float* out);

namespace scalar {
void BilinearPlaneF32(const FloatPlaneArgs& args);
void ExtendPlane(const float* src, float* dst, int srcW, int srcH);
void NearestPlaneF32(const float* src, float* dst, int srcW, int dstW, int dstH, float stepY,
                     const int32_t* sx, float ratio, float invalid);
void GuidedRow(const GuidedArgs& g, int y, int x0, int x1, float* out);
void BilinearRowF32(const FloatRowArgs& args, float* out);

void MaskedRowF32(const FloatRowArgs& args, const uint8_t* maskA, const uint8_t* maskC,
                  int safeEnd, float* out);
void NearestRowF32(const float* row, const int32_t* sx, int n, float ratio, float invalid,
                   float* out);
void QuarterMeanPlane(const float* src, float* dst, int dstW, int dstH);
// 2 x 2 means of rows r0 and r1 into n outputs.
void QuarterMeanRow(const float* r0, const float* r1, float* out, int n);
void ExtendRow(const float* r0, const float* r1, float* out, int srcW, double wy0, double wy1);
// Column i of a 2x enlargement of srcW columns: base column and its weight (the next column
// takes the rest).
void ExtendColumn(int i, int srcW, int* c, double* w0);
}  // namespace scalar

}  // namespace bivista

#endif
