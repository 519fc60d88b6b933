// Resizing of float maps: dense images, depth, disparity and sparse disparity, the exact 2x
// paths and the guided up-sampling.
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <algorithm>

#include "bivista/imageformat.h"
#include "hwy/cache_control.h"
#include "imageformat/resize_float_kernels.h"

namespace {

using bivista::FloatRowArgs;
using bivista::FloatRowMode;

float* Src(const float* src) { return const_cast<float*>(src); }

// Column table with positions accumulated as the definition does (not i * step), the base
// column held at the last source pair (HeldBase).
struct Columns {
  int32_t* x0 = nullptr;
  float* ax = nullptr;
  bool Build(int n, float step, int last) {
    void* block = malloc(static_cast<size_t>(n) * (sizeof(int32_t) + sizeof(float)));
    if (block == nullptr) return false;
    x0 = static_cast<int32_t*>(block);
    ax = reinterpret_cast<float*>(x0 + n);
    float fx = 0.0f;
    for (int i = 0; i < n; ++i) {
      x0[i] = bivista::HeldBase(fx, last);
      ax[i] = fx - x0[i];
      fx += step;
    }
    return true;
  }
  ~Columns() { free(x0); }
};

// Shared walk of the bilinear resizers. A failed table allocation falls back to one column at
// a time, continuing the accumulated position. An empty source writes nothing. A one-row or
// one-column source is its own neighbour (its weight is exactly 0 there): the second row is the
// first, and a one-column source is read through two-sample copies, so no read leaves it.
void Bilinear(const float* src, const uint8_t* mask, float* dst, int srcW, int srcH, int dstW,
              int dstH, FloatRowMode mode, float ratio, float invalid) {
  if (dstW < 1 || dstH < 1 || srcW < 1 || srcH < 1) return;
  const float stepX = static_cast<float>(srcW - 1) / dstW;
  const float stepY = static_cast<float>(srcH - 1) / dstH;
  const int lastX = srcW > 1 ? srcW - 2 : 0;
  Columns cols;
  const bool table = cols.Build(dstW, stepX, lastX);
  int safe = dstW;  // columns whose four-byte mask reads stay inside the mask
  if (table && mask != nullptr)
    while (safe > 0 && cols.x0[safe - 1] + 3 >= srcW) --safe;
  const bivista::FloatPlaneArgs plane{src,     mask,    dst,   srcW, srcH,  dstW,    dstH,
                                      cols.x0, cols.ax, stepY, mode, ratio, invalid, safe};
  if (table) {
    bivista::BilinearPlaneF32(plane);
    hwy::FlushStream();  // the rows were written with streaming stores
    return;
  }
  float fy = 0.0f;
  for (int j = 0; j < dstH; ++j, fy += stepY) {
    bivista::BilinearRowSet rows(plane, fy);
    FloatRowArgs& r = rows.r;
    float* out = dst + static_cast<ptrdiff_t>(j) * dstW;
    float fx = 0.0f;
    for (int i = 0; i < dstW; ++i, fx += stepX) {
      const int32_t x0 = bivista::HeldBase(fx, lastX);
      const float ax = fx - x0;
      r.x0 = &x0;
      r.ax = &ax;
      r.n = 1;
      if (mask != nullptr)
        bivista::scalar::MaskedRowF32(r, rows.maskA, rows.maskC, 0, out + i);
      else
        bivista::scalar::BilinearRowF32(r, out + i);
    }
  }
  hwy::FlushStream();  // the rows were written with streaming stores
}

float Ratio(int dstW, int srcW) { return static_cast<float>(dstW) / srcW; }

// exp(-0.1 |d|) for d = -255..255 at index 255 + d.
void WeightTable(float* t) {
  for (int k = 0; k < 255; ++k) t[k] = static_cast<float>(exp((k - 255) * 0.1));
  t[255] = 1.0f;
  for (int k = 256; k < 511; ++k) t[k] = static_cast<float>(exp(-0.1 * (k - 255)));
}

}  // namespace

extern "C" {

float* ResizeFloat(const float* src, float* dst, int srcW, int srcH, int dstW, int dstH) {
  Bilinear(src, nullptr, dst, srcW, srcH, dstW, dstH, FloatRowMode::kScaled, Ratio(dstW, srcW), 0.0f);
  return Src(src);
}

float* ResizeDepth(const float* src, float* dst, int srcW, int srcH, int dstW, int dstH) {
  Bilinear(src, nullptr, dst, srcW, srcH, dstW, dstH, FloatRowMode::kPlain, 1.0f, 0.0f);
  return Src(src);
}

float* ResizeSpareDisparity(const float* src, float* dst, int srcW, int srcH, int dstW, int dstH,
                            float invalid) {
  Bilinear(src, nullptr, dst, srcW, srcH, dstW, dstH, FloatRowMode::kSparse, Ratio(dstW, srcW),
           invalid);
  return Src(src);
}

float* ResizeSparedataFloat(const float* src, const uint8_t* mask, float* dst, int srcW, int srcH,
                            int dstW, int dstH, float scale, float invalid) {
  Bilinear(src, mask, dst, srcW, srcH, dstW, dstH, FloatRowMode::kScaled, scale, invalid);
  return Src(src);
}

float* ResizeSpareDisparityNearest(const float* src, float* dst, int srcW, int srcH, int dstW,
                                   int dstH, float invalid) {
  if (dstW < 1 || dstH < 1 || srcW < 1 || srcH < 1) return Src(src);
  // Corners onto corners: the steps divide by dstW - 1 and dstH - 1.
  const float stepX = static_cast<float>(srcW - 1) / (dstW - 1);
  const float stepY = static_cast<float>(srcH - 1) / (dstH - 1);
  const float ratio = Ratio(dstW, srcW);
  int32_t* sx = static_cast<int32_t*>(malloc(static_cast<size_t>(dstW) * sizeof(int32_t)));
  if (sx != nullptr) {
    float accX = 0.0f;
    for (int i = 0; i < dstW; ++i, accX += stepX) sx[i] = bivista::NearestIndex(accX, srcW);
    bivista::NearestPlaneF32(src, dst, srcW, srcH, dstW, dstH, stepY, sx, ratio, invalid);
    free(sx);
    return Src(src);
  }
  float accY = 0.0f;
  for (int j = 0; j < dstH; ++j, accY += stepY) {
    const float* row = src + static_cast<ptrdiff_t>(bivista::NearestIndex(accY, srcH)) * srcW;
    float* out = dst + static_cast<ptrdiff_t>(j) * dstW;
    float accX = 0.0f;
    for (int i = 0; i < dstW; ++i, accX += stepX) {
      const int32_t x = bivista::NearestIndex(accX, srcW);
      bivista::scalar::NearestRowF32(row, &x, 1, ratio, invalid, out + i);
    }
  }
  return Src(src);
}

float* ResizeFloatImg_Bilinear_Downsample_Quarter(const float* src, float* dst, int srcW, int srcH,
                                                  int dstW, int dstH) {
  // Only an exact halving: the source rows are read as 2 x dstW wide, 2 x dstH of them.
  if (dstW < 1 || dstH < 1 || srcW != 2 * static_cast<int64_t>(dstW) ||
      srcH < 2 * static_cast<int64_t>(dstH))
    return Src(src);
  bivista::QuarterMeanPlane(src, dst, dstW, dstH);
  return Src(src);
}

float* ResizeFloatImg_Bilinear_Extend_Quarter(const float* src, float* dst, int srcW, int srcH,
                                              int dstW, int dstH) {
  // The clamped base pair needs two source rows and columns.
  if (dstW != 2 * static_cast<int64_t>(srcW) || dstH != 2 * static_cast<int64_t>(srcH) || srcW < 2 ||
      srcH < 2)
    return Src(src);
  bivista::ExtendPlane(src, dst, srcW, srcH);
  return Src(src);
}

float* ResizeFloatImg_Bilinear(const float* src, float* dst, int srcW, int srcH, int dstW,
                               int dstH) {
  // Products in 64 bits: a side near INT_MAX must not wrap onto an exact relation.
  const int64_t sw = srcW, sh = srcH, dw = dstW, dh = dstH;
  if (dh * 2 == sh && dw * 2 == sw)
    return ResizeFloatImg_Bilinear_Downsample_Quarter(src, dst, srcW, srcH, dstW, dstH);
  if (sh * 2 == dh && sw * 2 == dw)
    return ResizeFloatImg_Bilinear_Extend_Quarter(src, dst, srcW, srcH, dstW, dstH);
  return ResizeFloat(src, dst, srcW, srcH, dstW, dstH);
}

void getBilateralWeight(float* table) { WeightTable(table); }

float* ResizeFloatImage_KeepBorder_full(const float* src, float* dst, const uint8_t* guideLow,
                                        const uint8_t* guideFull, int srcW, int srcH, int dstW,
                                        int dstH) {
  if (dstW < 1 || dstH < 1 || srcW < 1 || srcH < 1) return Src(src);
  float t[511];
  WeightTable(t);
  const bivista::GuidedArgs g{src, guideLow, guideFull, t, srcW, dstW, dstW / srcW};
  bivista::GuidedPlane(g, srcH, dstH, dst);
  return Src(src);
}

}  // extern "C"
