// Resizing of float maps: dense images, depth, disparity and sparse disparity, the exact 2x
// paths and the guided up-sampling.
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "bivista/imageformat.h"
#include "hwy/cache_control.h"
#include "imageformat/resize_float_kernels.h"

namespace {

using bivista::FloatRowArgs;
using bivista::FloatRowMode;

float* Src(const float* src) { return const_cast<float*>(src); }

// Column table with positions accumulated as the definition does (not i * step).
struct Columns {
  int32_t* x0 = nullptr;
  float* ax = nullptr;
  bool Build(int n, float step) {
    void* block = malloc(static_cast<size_t>(n) * (sizeof(int32_t) + sizeof(float)));
    if (block == nullptr) return false;
    x0 = static_cast<int32_t*>(block);
    ax = reinterpret_cast<float*>(x0 + n);
    float fx = 0.0f;
    for (int i = 0; i < n; ++i) {
      x0[i] = static_cast<int32_t>(fx);
      ax[i] = fx - x0[i];
      fx += step;
    }
    return true;
  }
  ~Columns() { free(x0); }
};

// Shared walk of the bilinear resizers. A failed table allocation falls back to one column at
// a time, continuing the accumulated position.
void Bilinear(const float* src, const uint8_t* mask, float* dst, int srcW, int srcH, int dstW,
              int dstH, FloatRowMode mode, float ratio, float invalid) {
  if (dstW < 1 || dstH < 1) return;
  const float stepX = static_cast<float>(srcW - 1) / dstW;
  const float stepY = static_cast<float>(srcH - 1) / dstH;
  Columns cols;
  const bool table = cols.Build(dstW, stepX);
  int safe = dstW;  // columns whose four-byte mask reads stay inside the mask
  if (table && mask != nullptr)
    while (safe > 0 && cols.x0[safe - 1] + 3 >= srcW) --safe;
  if (table) {
    bivista::BilinearPlaneF32({src, mask, dst, srcW, srcH, dstW, dstH, cols.x0, cols.ax, stepY,
                               mode, ratio, invalid, safe});
    hwy::FlushStream();  // the rows were written with streaming stores
    return;
  }
  float fy = 0.0f;
  for (int j = 0; j < dstH; ++j, fy += stepY) {
    const int y0 = static_cast<int>(fy);
    FloatRowArgs r{src + static_cast<ptrdiff_t>(y0) * srcW, src + static_cast<ptrdiff_t>(y0 + 1) * srcW,
                   cols.x0, cols.ax, dstW, fy - y0, mode, ratio, invalid,
                   y0 + 1 == srcH - 1 ? srcW : 2 * srcW};
    float* out = dst + static_cast<ptrdiff_t>(j) * dstW;
    const uint8_t* ma = mask != nullptr ? mask + static_cast<ptrdiff_t>(y0) * srcW : nullptr;
    float fx = 0.0f;
    for (int i = 0; i < dstW; ++i, fx += stepX) {
      const int32_t x0 = static_cast<int32_t>(fx);
      const float ax = fx - x0;
      r.x0 = &x0;
      r.ax = &ax;
      r.n = 1;
      if (mask != nullptr)
        bivista::scalar::MaskedRowF32(r, ma, ma + srcW, 0, out + i);
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
  if (dstW < 1 || dstH < 1) return Src(src);
  // Corners onto corners: the steps divide by dstW - 1 and dstH - 1.
  const float stepX = static_cast<float>(srcW - 1) / (dstW - 1);
  const float stepY = static_cast<float>(srcH - 1) / (dstH - 1);
  const float ratio = Ratio(dstW, srcW);
  int32_t* sx = static_cast<int32_t*>(malloc(static_cast<size_t>(dstW) * sizeof(int32_t)));
  if (sx != nullptr) {
    float accX = 0.0f;
    for (int i = 0; i < dstW; ++i, accX += stepX) sx[i] = static_cast<int32_t>(floorf(accX + 0.5f));
    bivista::NearestPlaneF32(src, dst, srcW, dstW, dstH, stepY, sx, ratio, invalid);
    free(sx);
    return Src(src);
  }
  float accY = 0.0f;
  for (int j = 0; j < dstH; ++j, accY += stepY) {
    const float* row = src + static_cast<ptrdiff_t>(floorf(accY + 0.5f)) * srcW;
    float* out = dst + static_cast<ptrdiff_t>(j) * dstW;
    float accX = 0.0f;
    for (int i = 0; i < dstW; ++i, accX += stepX) {
      const int32_t x = static_cast<int32_t>(floorf(accX + 0.5f));
      bivista::scalar::NearestRowF32(row, &x, 1, ratio, invalid, out + i);
    }
  }
  free(sx);
  return Src(src);
}

float* ResizeFloatImg_Bilinear_Downsample_Quarter(const float* src, float* dst, int srcW, int srcH,
                                                  int dstW, int dstH) {
  bivista::QuarterMeanPlane(src, dst, dstW, dstH);
  return Src(src);
}

float* ResizeFloatImg_Bilinear_Extend_Quarter(const float* src, float* dst, int srcW, int srcH,
                                              int dstW, int dstH) {
  // The clamped base pair needs two source rows and columns.
  if (dstW != 2 * srcW || dstH != 2 * srcH || srcW < 2 || srcH < 2) return Src(src);
  bivista::ExtendPlane(src, dst, srcW, srcH);
  return Src(src);
}

float* ResizeFloatImg_Bilinear(const float* src, float* dst, int srcW, int srcH, int dstW,
                               int dstH) {
  if (dstH * 2 == srcH && dstW * 2 == srcW)
    return ResizeFloatImg_Bilinear_Downsample_Quarter(src, dst, srcW, srcH, dstW, dstH);
  if (srcH * 2 == dstH && srcW * 2 == dstW)
    return ResizeFloatImg_Bilinear_Extend_Quarter(src, dst, srcW, srcH, dstW, dstH);
  return ResizeFloat(src, dst, srcW, srcH, dstW, dstH);
}

void getBilateralWeight(float* table) { WeightTable(table); }

float* ResizeFloatImage_KeepBorder_full(const float* src, float* dst, const uint8_t* guideLow,
                                        const uint8_t* guideFull, int srcW, int srcH, int dstW,
                                        int dstH) {
  if (dstW < 1 || dstH < 1) return Src(src);
  float t[511];
  WeightTable(t);
  const int q = srcW > 0 ? dstW / srcW : 0;
  const int band = 2 * q + 1;
  const bivista::GuidedArgs g{src, guideLow, guideFull, t, srcW, dstW, q};
  for (int y = 0; y < dstH; ++y) {
    float* out = dst + static_cast<ptrdiff_t>(y) * dstW;
    // The border band keeps nearest samples; the window of a filtered pixel stays inside.
    const bool filteredRow = q > 0 && y >= band && y < dstH - band;
    const int from = filteredRow ? band : dstW, to = filteredRow ? dstW - band : dstW;
    for (int x = 0; x < dstW; ++x) {
      if (x == from && from < to) {
        bivista::GuidedRow(g, y, from, to, out);
        x = to - 1;
        continue;
      }
      out[x] = q == 0 ? src[0] : src[x / q + srcW * (y / q)];
    }
  }
  return Src(src);
}

}  // extern "C"
