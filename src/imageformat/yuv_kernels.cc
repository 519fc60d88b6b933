#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "imageformat/yuv_kernels.cc"
#include <string.h>

#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include "imageformat/yuv_deltas-inl.h"
#include "imageformat/yuv_kernels.h"

// Included once per target by foreach_target: define the shared pixel helpers only once.
#ifndef BIVISTA_YUV_PIXEL_HELPERS
#define BIVISTA_YUV_PIXEL_HELPERS
namespace bivista {
namespace yuvpix {

// Chroma contributions of one pair. Y enters every channel with weight one, so with a floor
// shift (fixed point) or a floor division (float; see docs/imageformat.md for why the double
// arithmetic always truncates to the exact rational floor) a channel is clamp(Y + delta).
inline int FloorDiv1000(int n) { return n >= 0 ? n / 1000 : -((-n + 999) / 1000); }

inline void DeltasFloat(int u, int v, int* dr, int* dg, int* db) {
  *dr = FloorDiv1000(1403 * (v - 128));
  *dg = FloorDiv1000(714 * (128 - u) + 344 * (128 - v));
  *db = FloorDiv1000(1773 * (u - 128));
}

inline void DeltasFixed(int u, int v, int* dr, int* dg, int* db) {
  *dr = ((v - 128) * 91947) >> 16;
  *dg = ((128 - v) * 22544 + (128 - u) * 46793) >> 16;
  *db = ((u - 128) * 116195) >> 16;
}

inline uint8_t Clamp255(int x) { return static_cast<uint8_t>(x < 0 ? 0 : (x > 255 ? 255 : x)); }

inline void RowTail(const uint8_t* y, const uint8_t* uv, uint8_t* rgb, int from, int width,
                    bool fixedPoint) {
  for (int x = from; x < width; ++x) {
    const int c = x & ~1;
    int dr, dg, db;
    if (fixedPoint)
      DeltasFixed(uv[c], uv[c + 1], &dr, &dg, &db);
    else
      DeltasFloat(uv[c], uv[c + 1], &dr, &dg, &db);
    rgb[3 * x] = Clamp255(y[x] + dr);
    rgb[3 * x + 1] = Clamp255(y[x] + dg);
    rgb[3 * x + 2] = Clamp255(y[x] + db);
  }
}

// `rows` chroma rows: row r of the interleaved plane (stride apart) against rows r of the two
// planar ones (cw apart).
template <class Row>
void PairRowsLoop(const uint8_t* pairs, uint8_t* first, uint8_t* second, int cw, int rows,
                  ptrdiff_t stride, Row row) {
  for (int r = 0; r < rows; ++r) row(pairs + r * stride, first + r * cw, second + r * cw, cw);
}

// YUV444 rows from NV21: luma row y with chroma row y / 2 (rows width apart).
template <class Row>
void Yuv444Loop(const uint8_t* nv21, const uint8_t* vu, uint8_t* yuv, int width, int height,
                Row row) {
  for (int y = 0; y < height; ++y) {
    row(nv21 + static_cast<ptrdiff_t>(y) * width, vu + static_cast<ptrdiff_t>(y / 2) * width,
        yuv + static_cast<ptrdiff_t>(y) * width * 3, width);
  }
}

// Row pairs of an NV12 image sharing one chroma row; an odd last row goes alone. An odd width
// whose stride leaves no byte after it: the last pixel's pair has its U only, and V is taken as
// 128 (no difference) instead of reading past the row.
template <class Rows>
void Nv12Loop(const uint8_t* nv12, uint8_t* rgb, int width, int height, int stride,
              bool fixedPoint, Rows rows) {
  if (width < 1 || height < 1) return;
  const uint8_t* uvPlane = nv12 + static_cast<ptrdiff_t>(stride) * height;
  const ptrdiff_t rgbRow = static_cast<ptrdiff_t>(width) * 3;
  const bool cut = (width & 1) != 0 && stride <= width;
  const int whole = cut ? width - 1 : width;
  for (int y = 0; y < height; y += 2) {
    const bool pair = y + 1 < height;
    const uint8_t* y0 = nv12 + static_cast<ptrdiff_t>(y) * stride;
    const uint8_t* y1 = pair ? y0 + stride : nullptr;
    const uint8_t* uv = uvPlane + static_cast<ptrdiff_t>(y / 2) * stride;
    uint8_t* out0 = rgb + y * rgbRow;
    uint8_t* out1 = pair ? out0 + rgbRow : nullptr;
    if (whole > 0) rows(y0, y1, uv, out0, out1, whole, fixedPoint);
    if (cut) {
      const uint8_t last[2] = {uv[whole], 128};
      rows(y0 + whole, pair ? y1 + whole : nullptr, last, out0 + 3 * whole,
           pair ? out1 + 3 * whole : nullptr, 1, fixedPoint);
    }
  }
}

// Chroma row pairs of a YUV444 copy: row i of the interleaved plane (srcStride apart) into rows
// 2i of the U and V planes (2 dstStride apart), each pair written twice, and row 2i + 1 a copy.
template <class Row>
void UpsampleLoop(const uint8_t* uvPlane, uint8_t* uPlane, uint8_t* vPlane, int pairs, int rows,
                  int64_t srcStride, int64_t dstStride, Row row) {
  const size_t rowBytes = 2 * static_cast<size_t>(pairs);
  for (int i = 0; i < rows; ++i) {
    uint8_t* u = uPlane + 2 * i * dstStride;
    uint8_t* v = vPlane + 2 * i * dstStride;
    row(uvPlane + i * srcStride, u, v, pairs);
    memcpy(u + dstStride, u, rowBytes);
    memcpy(v + dstStride, v, rowBytes);
  }
}

}  // namespace yuvpix
}  // namespace bivista
#endif

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Whole vectors of tag D from pair k on; returns the first pair not done.
template <class D>
HWY_INLINE int SplitPairsBy(D d, const uint8_t* pairs, uint8_t* first, uint8_t* second, int k,
                            int n) {
  const int lanes = static_cast<int>(hn::Lanes(d));
  for (; k + lanes <= n; k += lanes) {
    hn::Vec<D> a, b;
    hn::LoadInterleaved2(d, pairs + 2 * k, a, b);
    hn::StoreU(a, d, first + k);
    hn::StoreU(b, d, second + k);
  }
  return k;
}

template <class D>
HWY_INLINE int MergePairsBy(D d, const uint8_t* first, const uint8_t* second, uint8_t* pairs,
                            int k, int n) {
  const int lanes = static_cast<int>(hn::Lanes(d));
  for (; k + lanes <= n; k += lanes)
    hn::StoreInterleaved2(hn::LoadU(d, first + k), hn::LoadU(d, second + k), d, pairs + 2 * k);
  return k;
}

// At most 32-byte vectors: unaligned 64-byte loads split a cache line every time, which costs
// more than the wider vector gains here. Rows rarely hold a whole number of vectors: 16-byte
// vectors take most of the rest.
void SplitPairs(const uint8_t* pairs, uint8_t* first, uint8_t* second, int n) {
  int k = SplitPairsBy(hn::CappedTag<uint8_t, 32>(), pairs, first, second, 0, n);
#if HWY_TARGET != HWY_SCALAR
  k = SplitPairsBy(hn::CappedTag<uint8_t, 16>(), pairs, first, second, k, n);
#endif
  scalar::SplitPairs(pairs + 2 * k, first + k, second + k, n - k);
}

void MergePairs(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int n) {
  int k = MergePairsBy(hn::CappedTag<uint8_t, 32>(), first, second, pairs, 0, n);
#if HWY_TARGET != HWY_SCALAR
  k = MergePairsBy(hn::CappedTag<uint8_t, 16>(), first, second, pairs, k, n);
#endif
  scalar::MergePairs(first + k, second + k, pairs + 2 * k, n - k);
}

#if HWY_TARGET != HWY_SCALAR

// Each 32-bit lane's value into both 16-bit halves: the pair's delta for its two pixels.
template <class D16, class V32>
HWY_INLINE hn::Vec<D16> DupTo16(D16 d16, V32 x) {
  const hn::DFromV<V32> d32;
  return hn::BitCast(d16, hn::Or(hn::And(x, hn::Set(d32, 0xFFFF)), hn::ShiftLeft<16>(x)));
}

#endif

void Nv12RowsToRgb24(const uint8_t* y0, const uint8_t* y1, const uint8_t* uv, uint8_t* rgb0,
                     uint8_t* rgb1, int width, bool fixedPoint) {
  int x = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<int32_t> d32;
  const hn::Repartition<int16_t, decltype(d32)> d16;
  const hn::Rebind<uint8_t, decltype(d32)> dc;  // one byte per pair
  const hn::Rebind<uint8_t, decltype(d16)> dp;  // one byte per pixel
  const int pixels = static_cast<int>(hn::Lanes(d16));
  const auto k128 = hn::Set(d32, 128);
  for (; x + pixels <= width; x += pixels) {
    hn::Vec<decltype(dc)> u8, v8;
    hn::LoadInterleaved2(dc, uv + x, u8, v8);
    const auto cu = hn::Sub(hn::PromoteTo(d32, u8), k128);
    const auto cv = hn::Sub(hn::PromoteTo(d32, v8), k128);
    hn::Vec<decltype(d32)> dr, dg, db;
    if (fixedPoint) {
      dr = hn::ShiftRight<16>(hn::Mul(cv, hn::Set(d32, 91947)));
      dg = hn::ShiftRight<16>(hn::Add(hn::Mul(cv, hn::Set(d32, -22544)),
                                      hn::Mul(cu, hn::Set(d32, -46793))));
      db = hn::ShiftRight<16>(hn::Mul(cu, hn::Set(d32, 116195)));
    } else {
      dr = FloatDeltaR(cv);
      dg = FloatDeltaG(cu, cv);
      db = FloatDeltaB(cu);
    }
    const auto r16 = DupTo16(d16, dr), g16 = DupTo16(d16, dg), b16 = DupTo16(d16, db);
    const uint8_t* ys[2] = {y0, y1};
    uint8_t* outs[2] = {rgb0, rgb1};
    for (int row = 0; row < 2; ++row) {
      if (ys[row] == nullptr) continue;
      const auto y = hn::PromoteTo(d16, hn::LoadU(dp, ys[row] + x));
      hn::StoreInterleaved3(hn::DemoteTo(dp, hn::Add(y, r16)), hn::DemoteTo(dp, hn::Add(y, g16)),
                            hn::DemoteTo(dp, hn::Add(y, b16)), dp, outs[row] + 3 * x);
    }
  }
#endif
  yuvpix::RowTail(y0, uv, rgb0, x, width, fixedPoint);
  if (y1 != nullptr) yuvpix::RowTail(y1, uv, rgb1, x, width, fixedPoint);
}

void Nv12ToRgb24Plane(const uint8_t* nv12, uint8_t* rgb, int width, int height, int stride,
                      bool fixedPoint) {
  yuvpix::Nv12Loop(nv12, rgb, width, height, stride, fixedPoint, Nv12RowsToRgb24);
}

void SplitPairRows(const uint8_t* pairs, uint8_t* first, uint8_t* second, int cw, int rows,
                   ptrdiff_t stride) {
  yuvpix::PairRowsLoop(pairs, first, second, cw, rows, stride, SplitPairs);
}

void MergePairRows(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int cw, int rows,
                   ptrdiff_t stride) {
  yuvpix::PairRowsLoop(pairs, const_cast<uint8_t*>(first), const_cast<uint8_t*>(second), cw,
                       rows, stride,
                       [](const uint8_t* p, uint8_t* f, uint8_t* s, int n) {
                         MergePairs(f, s, const_cast<uint8_t*>(p), n);
                       });
}

void Nv21ToYuv444Plane(const uint8_t* nv21, const uint8_t* vu, uint8_t* yuv, int width,
                       int height) {
  yuvpix::Yuv444Loop(nv21, vu, yuv, width, height, Nv21RowToYuv444);
}

#if HWY_TARGET != HWY_SCALAR
// Byte k of the half-width vector into bytes 2k and 2k + 1 of a full vector.
template <class D8, class VH>
HWY_INLINE hn::Vec<D8> DupBytes(D8 d8, VH half) {
  const hn::Repartition<uint16_t, D8> d16;
  const auto w = hn::PromoteTo(d16, half);
  return hn::BitCast(d8, hn::Or(w, hn::ShiftLeft<8>(w)));
}
#endif

void Nv21RowToYuv444(const uint8_t* y, const uint8_t* vu, uint8_t* yuv, int width) {
  int x = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<uint8_t> d;
  const hn::Repartition<uint16_t, decltype(d)> d16;
  const hn::Rebind<uint8_t, decltype(d16)> dh;
  const int lanes = static_cast<int>(hn::Lanes(d));
  for (; x + lanes <= width; x += lanes) {
    hn::Vec<decltype(dh)> v, u;
    hn::LoadInterleaved2(dh, vu + x, v, u);
    hn::StoreInterleaved3(hn::LoadU(d, y + x), DupBytes(d, u), DupBytes(d, v), d, yuv + 3 * x);
  }
#endif
  // x is even here: the chroma pairs line up.
  scalar::Nv21RowToYuv444(y + x, vu + x, yuv + 3 * x, width - x);
}

void UpsamplePairs(const uint8_t* uv, uint8_t* u, uint8_t* v, int pairs) {
  int k = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<uint8_t> d;
  const hn::Repartition<uint16_t, decltype(d)> d16;
  const hn::Rebind<uint8_t, decltype(d16)> dh;
  const int step = static_cast<int>(hn::Lanes(dh));
  for (; k + step <= pairs; k += step) {
    hn::Vec<decltype(dh)> a, b;
    hn::LoadInterleaved2(dh, uv + 2 * k, a, b);
    hn::StoreU(DupBytes(d, a), d, u + 2 * k);
    hn::StoreU(DupBytes(d, b), d, v + 2 * k);
  }
#endif
  scalar::UpsamplePairs(uv + 2 * k, u + 2 * k, v + 2 * k, pairs - k);
}

void UpsamplePairRows(const uint8_t* uvPlane, uint8_t* uPlane, uint8_t* vPlane, int pairs,
                      int rows, int64_t srcStride, int64_t dstStride) {
  yuvpix::UpsampleLoop(uvPlane, uPlane, vPlane, pairs, rows, srcStride, dstStride,
                       UpsamplePairs);
}

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace bivista {

HWY_EXPORT(SplitPairs);
HWY_EXPORT(MergePairs);
HWY_EXPORT(Nv12ToRgb24Plane);
HWY_EXPORT(SplitPairRows);
HWY_EXPORT(MergePairRows);
HWY_EXPORT(Nv21ToYuv444Plane);
HWY_EXPORT(Nv21RowToYuv444);
HWY_EXPORT(UpsamplePairs);
HWY_EXPORT(UpsamplePairRows);

void SplitPairs(const uint8_t* pairs, uint8_t* first, uint8_t* second, int n) {
  HWY_DYNAMIC_DISPATCH(SplitPairs)(pairs, first, second, n);
}
void MergePairs(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int n) {
  HWY_DYNAMIC_DISPATCH(MergePairs)(first, second, pairs, n);
}
void Nv12ToRgb24Plane(const uint8_t* nv12, uint8_t* rgb, int width, int height, int stride,
                      bool fixedPoint) {
  HWY_DYNAMIC_DISPATCH(Nv12ToRgb24Plane)(nv12, rgb, width, height, stride, fixedPoint);
}
void SplitPairRows(const uint8_t* pairs, uint8_t* first, uint8_t* second, int cw, int rows,
                   ptrdiff_t stride) {
  HWY_DYNAMIC_DISPATCH(SplitPairRows)(pairs, first, second, cw, rows, stride);
}
void MergePairRows(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int cw, int rows,
                   ptrdiff_t stride) {
  HWY_DYNAMIC_DISPATCH(MergePairRows)(first, second, pairs, cw, rows, stride);
}
void Nv21ToYuv444Plane(const uint8_t* nv21, const uint8_t* vu, uint8_t* yuv, int width,
                       int height) {
  HWY_DYNAMIC_DISPATCH(Nv21ToYuv444Plane)(nv21, vu, yuv, width, height);
}
void Nv21RowToYuv444(const uint8_t* y, const uint8_t* vu, uint8_t* yuv, int width) {
  HWY_DYNAMIC_DISPATCH(Nv21RowToYuv444)(y, vu, yuv, width);
}
void UpsamplePairs(const uint8_t* uv, uint8_t* u, uint8_t* v, int pairs) {
  HWY_DYNAMIC_DISPATCH(UpsamplePairs)(uv, u, v, pairs);
}
void UpsamplePairRows(const uint8_t* uvPlane, uint8_t* uPlane, uint8_t* vPlane, int pairs,
                      int rows, int64_t srcStride, int64_t dstStride) {
  HWY_DYNAMIC_DISPATCH(UpsamplePairRows)(uvPlane, uPlane, vPlane, pairs, rows, srcStride,
                                         dstStride);
}

namespace scalar {

void SplitPairs(const uint8_t* pairs, uint8_t* first, uint8_t* second, int n) {
  for (int k = 0; k < n; ++k) {
    first[k] = pairs[2 * k];
    second[k] = pairs[2 * k + 1];
  }
}

void MergePairs(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int n) {
  for (int k = 0; k < n; ++k) {
    pairs[2 * k] = first[k];
    pairs[2 * k + 1] = second[k];
  }
}

static uint8_t ToByte(float f) {
  if (f < 0.0f) f = 0.0f;
  if (f > 255.0f) f = 255.0f;
  return static_cast<uint8_t>(static_cast<int>(f));
}

void PixelToRgbFloat(int y, int u, int v, uint8_t* rgb) {
  const float cu = static_cast<float>(u) - 128.0f, cv = static_cast<float>(v) - 128.0f;
  const float nu = 128.0f - static_cast<float>(u), nv = 128.0f - static_cast<float>(v);
  const double r = y + 1.403 * cv;
  const double g = y + 0.714 * nu + 0.344 * nv;
  const double b = y + 1.773 * cu;
  rgb[0] = ToByte(static_cast<float>(r));
  rgb[1] = ToByte(static_cast<float>(g));
  rgb[2] = ToByte(static_cast<float>(b));
}

void PixelToRgbFixed(int y, int u, int v, uint8_t* rgb) {
  const int yy = y * 65536;
  const int r = (yy + (v - 128) * 91947) >> 16;
  const int g = (yy + (128 - v) * 22544 + (128 - u) * 46793) >> 16;
  const int b = (yy + (u - 128) * 116195) >> 16;
  rgb[0] = yuvpix::Clamp255(r);
  rgb[1] = yuvpix::Clamp255(g);
  rgb[2] = yuvpix::Clamp255(b);
}

void Nv12RowsToRgb24(const uint8_t* y0, const uint8_t* y1, const uint8_t* uv, uint8_t* rgb0,
                     uint8_t* rgb1, int width, bool fixedPoint) {
  const uint8_t* ys[2] = {y0, y1};
  uint8_t* outs[2] = {rgb0, rgb1};
  for (int row = 0; row < 2; ++row) {
    if (ys[row] == nullptr) continue;
    for (int x = 0; x < width; ++x) {
      const int c = x & ~1;
      if (fixedPoint)
        PixelToRgbFixed(ys[row][x], uv[c], uv[c + 1], outs[row] + 3 * x);
      else
        PixelToRgbFloat(ys[row][x], uv[c], uv[c + 1], outs[row] + 3 * x);
    }
  }
}

void Nv12ToRgb24Plane(const uint8_t* nv12, uint8_t* rgb, int width, int height, int stride,
                      bool fixedPoint) {
  yuvpix::Nv12Loop(nv12, rgb, width, height, stride, fixedPoint, Nv12RowsToRgb24);
}

void SplitPairRows(const uint8_t* pairs, uint8_t* first, uint8_t* second, int cw, int rows,
                   ptrdiff_t stride) {
  yuvpix::PairRowsLoop(pairs, first, second, cw, rows, stride, SplitPairs);
}

void MergePairRows(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int cw, int rows,
                   ptrdiff_t stride) {
  yuvpix::PairRowsLoop(pairs, const_cast<uint8_t*>(first), const_cast<uint8_t*>(second), cw,
                       rows, stride,
                       [](const uint8_t* p, uint8_t* f, uint8_t* s, int n) {
                         MergePairs(f, s, const_cast<uint8_t*>(p), n);
                       });
}

void Nv21ToYuv444Plane(const uint8_t* nv21, const uint8_t* vu, uint8_t* yuv, int width,
                       int height) {
  yuvpix::Yuv444Loop(nv21, vu, yuv, width, height, Nv21RowToYuv444);
}

void Nv21RowToYuv444(const uint8_t* y, const uint8_t* vu, uint8_t* yuv, int width) {
  for (int x = 0; x < width; ++x) {
    yuv[3 * x] = y[x];
    yuv[3 * x + 1] = vu[(x & ~1) + 1];
    yuv[3 * x + 2] = vu[x & ~1];
  }
}

void UpsamplePairs(const uint8_t* uv, uint8_t* u, uint8_t* v, int pairs) {
  for (int k = 0; k < pairs; ++k) {
    u[2 * k] = u[2 * k + 1] = uv[2 * k];
    v[2 * k] = v[2 * k + 1] = uv[2 * k + 1];
  }
}

void UpsamplePairRows(const uint8_t* uvPlane, uint8_t* uPlane, uint8_t* vPlane, int pairs,
                      int rows, int64_t srcStride, int64_t dstStride) {
  yuvpix::UpsampleLoop(uvPlane, uPlane, vPlane, pairs, rows, srcStride, dstStride,
                       UpsamplePairs);
}

}  // namespace scalar
}  // namespace bivista
#endif
