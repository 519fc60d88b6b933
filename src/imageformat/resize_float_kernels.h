// Row kernels of the float resizers: a dispatching entry and its scalar definition.
#ifndef BIVISTA_SRC_IMAGEFORMAT_RESIZE_FLOAT_KERNELS_H
#define BIVISTA_SRC_IMAGEFORMAT_RESIZE_FLOAT_KERNELS_H

#include <math.h>
#include <stddef.h>
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

// Base index of an accumulated float position, held at `last`: the float sum can creep past the
// last source pair on very long destinations (about 20000 columns from 2); the weight then keeps
// the position.
inline int32_t HeldBase(float f, int last) {
  const int32_t b = static_cast<int32_t>(f);
  return b > last ? last : b;
}

// Rounded accumulated position, held inside 0..n-1 (the float sum may creep past the end).
inline int32_t NearestIndex(float acc, int n) {
  const float f = floorf(acc + 0.5f);
  return f < 0.0f ? 0 : (f > static_cast<float>(n - 1) ? n - 1 : static_cast<int32_t>(f));
}

// The source rows of a bilinear destination row at accumulated position fy (r.x0/r.ax from the
// plane). A one-row or one-column source is its own neighbour (its weight is exactly 0 there):
// the second row is the first, and a one-column source is read through two-sample copies held
// here, so no read leaves it. Not copyable (it points into itself).
struct BilinearRowSet {
  FloatRowArgs r;
  const uint8_t* maskA;
  const uint8_t* maskC;
  int safeEnd;  // MaskedRowF32's safe end
  float pairA[2], pairC[2];
  uint8_t pairMaskA[2], pairMaskC[2];

  BilinearRowSet(const FloatPlaneArgs& p, float fy) {
    const int y0 = HeldBase(fy, p.srcH > 1 ? p.srcH - 2 : 0);
    const float* rowA = p.src + static_cast<ptrdiff_t>(y0) * p.srcW;
    const float* rowC = p.srcH > 1 ? rowA + p.srcW : rowA;
    maskA = p.mask != nullptr ? p.mask + static_cast<ptrdiff_t>(y0) * p.srcW : nullptr;
    maskC = maskA != nullptr && p.srcH > 1 ? maskA + p.srcW : maskA;
    bool last = y0 + 1 >= p.srcH - 1;
    const int64_t pairBytes = 2 * static_cast<int64_t>(p.srcW);
    int readable = last ? p.srcW : static_cast<int>(pairBytes < INT32_MAX ? pairBytes : INT32_MAX);
    if (p.srcW == 1) {
      pairA[0] = pairA[1] = rowA[0];
      pairC[0] = pairC[1] = rowC[0];
      rowA = pairA, rowC = pairC, readable = 2, last = true;
      if (maskA != nullptr) {
        pairMaskA[0] = pairMaskA[1] = maskA[0];
        pairMaskC[0] = pairMaskC[1] = maskC[0];
        maskA = pairMaskA, maskC = pairMaskC;
      }
    }
    r = FloatRowArgs{rowA, rowC, p.x0, p.ax, p.dstW, fy - y0, p.mode, p.ratio, p.invalid, readable};
    safeEnd = last ? p.safe : p.dstW;
  }
  BilinearRowSet(const BilinearRowSet&) = delete;
  BilinearRowSet& operator=(const BilinearRowSet&) = delete;
};

// The exact 2x enlargement of a srcW x srcH image (srcW, srcH >= 2), one dispatch per image.
void ExtendPlane(const float* src, float* dst, int srcW, int srcH);
// Nearest rows: row j reads source row floor(accY + 0.5) (accY += stepY, held inside the srcH
// rows) at columns sx.
void NearestPlaneF32(const float* src, float* dst, int srcW, int srcH, int dstW, int dstH,
                     float stepY, const int32_t* sx, float ratio, float invalid);
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
// The whole guided up-sampling of a srcH-row source into dstH rows (g.dstW wide), one dispatch
// per image: nearest samples outside the filtered band.
void GuidedPlane(const GuidedArgs& g, int srcH, int dstH, float* dst);

namespace scalar {
void GuidedPlane(const GuidedArgs& g, int srcH, int dstH, float* dst);
void BilinearPlaneF32(const FloatPlaneArgs& args);
void ExtendPlane(const float* src, float* dst, int srcW, int srcH);
void NearestPlaneF32(const float* src, float* dst, int srcW, int srcH, int dstW, int dstH,
                     float stepY, const int32_t* sx, float ratio, float invalid);
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
