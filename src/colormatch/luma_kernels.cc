#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "colormatch/luma_kernels.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <math.h>
#include <string.h>

#include "colormatch/luma_kernels.h"
#include "imageformat/yuv_deltas-inl.h"
#include "imageformat/yuv_kernels.h"

#ifndef BIVISTA_LUMA_PIXEL_HELPERS
#define BIVISTA_LUMA_PIXEL_HELPERS
namespace bivista {
namespace lumapix {

inline uint8_t ToByte(float t) {
  if (!(t > 0.0f)) return 0;
  if (t >= 255.0f) return 255;
  return static_cast<uint8_t>(static_cast<int>(t));
}

inline uint8_t Pixel(const uint8_t* p, const float* w, LumaOrder order);

// Pixels from..width-1 of one or two NV12 rows (y1/out1 may be null) into luma bytes.
inline void Nv12Pixels(const uint8_t* y0, const uint8_t* y1, const uint8_t* uv, uint8_t* out0,
                       uint8_t* out1, int from, int width, const float* w, LumaOrder order) {
  uint8_t rgb[3];
  for (int x = from; x < width; ++x) {
    const int c = x & ~1;
    scalar::PixelToRgbFloat(y0[x], uv[c], uv[c + 1], rgb);
    out0[x] = Pixel(rgb, w, order);
    if (y1 == nullptr) continue;
    scalar::PixelToRgbFloat(y1[x], uv[c], uv[c + 1], rgb);
    out1[x] = Pixel(rgb, w, order);
  }
}

inline uint8_t Pixel(const uint8_t* p, const float* w, LumaOrder order) {
  const float b0 = p[0], b1 = p[1], b2 = p[2];
  float t;
  if (order == kLumaB1First) {
    t = b1 * w[1];
    t = fmaf(b2, w[2], t);
    t = t + 0.5f;
    t = fmaf(b0, w[0], t);
  } else {
    t = b0 * w[0];
    t = fmaf(b1, w[1], t);
    t = t + 0.5f;
    t = fmaf(b2, w[2], t);
    if (order == kLumaWithMax) {
      const uint8_t m = p[0] > p[1] ? (p[0] > p[2] ? p[0] : p[2]) : (p[1] > p[2] ? p[1] : p[2]);
      t = fmaf(static_cast<float>(m), w[3], t);
    }
  }
  return ToByte(t);
}

inline void Pixels(const uint8_t* rgb, uint8_t* dst, ptrdiff_t from, ptrdiff_t count,
                   const float* w, LumaOrder order) {
  for (ptrdiff_t p = from; p < count; ++p) dst[p] = Pixel(rgb + 3 * p, w, order);
}

}  // namespace lumapix
}  // namespace bivista
#endif

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Vector passes only where the target fuses multiply-add in hardware: elsewhere MulAdd would be
// a rounded multiply and a rounded add, and the bytes would differ from the definition.
#if HWY_TARGET != HWY_SCALAR && HWY_NATIVE_FMA
// Float lanes, their 32-bit integer and their byte twins.
using DF = hn::CappedTag<float, 16>;
using DI = hn::Rebind<int32_t, DF>;
using D8 = hn::Rebind<uint8_t, DF>;
using VF = hn::Vec<DF>;

// The accumulation order of kOrder on channel values f0, f1, f2 and the brightest fm; the byte
// is the sum truncated and clamped (greater-than is false for NaN, which thus gives 0 as in the
// scalar helper).
// The weights are broadcast once per call (W0..W3 at the top of a loop function).
#define BIVISTA_LUMA_WEIGHTS(w)                                                   \
  const VF w0 = hn::Set(DF(), (w)[0]), w1 = hn::Set(DF(), (w)[1]);                \
  const VF w2 = hn::Set(DF(), (w)[2]), w3 = hn::Set(DF(), kOrder == kLumaWithMax ? (w)[3] : 0.0f)

template <int kOrder>
HWY_INLINE hn::Vec<D8> LumaBytes(VF f0, VF f1, VF f2, VF fm, VF w0, VF w1, VF w2, VF w3) {
  const DF df;
  const auto half = hn::Set(df, 0.5f), zero = hn::Zero(df);
  VF t;
  if (kOrder == kLumaB1First) {
    t = hn::MulAdd(f2, w2, hn::Mul(f1, w1));
    t = hn::MulAdd(f0, w0, hn::Add(t, half));
  } else {
    t = hn::MulAdd(f1, w1, hn::Mul(f0, w0));
    t = hn::MulAdd(f2, w2, hn::Add(t, half));
    if (kOrder == kLumaWithMax) t = hn::MulAdd(fm, w3, t);
  }
  t = hn::Min(hn::IfThenElse(hn::Gt(t, zero), t, zero), hn::Set(df, 255.0f));
  // 0 <= t <= 255: adding 2^23 to the truncated value leaves the integer in the low mantissa
  // bits, cheaper than a range-checked conversion.
  const auto biased = hn::Add(hn::Trunc(t), hn::Set(df, 8388608.0f));
  return hn::TruncateTo(D8(), hn::BitCast(hn::Rebind<uint32_t, DF>(), biased));
}

template <int kOrder>
ptrdiff_t LumaPasses(const uint8_t* rgb, uint8_t* dst, ptrdiff_t count, const float* w) {
  const DF df;
  const DI di;
  const D8 d8;
  const ptrdiff_t lanes = static_cast<ptrdiff_t>(hn::Lanes(df));
  BIVISTA_LUMA_WEIGHTS(w);
  ptrdiff_t x = 0;
  for (; x + lanes <= count; x += lanes) {
    hn::Vec<D8> a, b, c;
    hn::LoadInterleaved3(d8, rgb + 3 * x, a, b, c);
    const VF fm = kOrder == kLumaWithMax
                      ? hn::ConvertTo(df, hn::PromoteTo(di, hn::Max(a, hn::Max(b, c))))
                      : hn::Zero(df);
    hn::StoreU(LumaBytes<kOrder>(hn::ConvertTo(df, hn::PromoteTo(di, a)),
                                 hn::ConvertTo(df, hn::PromoteTo(di, b)),
                                 hn::ConvertTo(df, hn::PromoteTo(di, c)), fm, w0, w1, w2, w3),
               d8, dst + x);
  }
  return x;
}

// Whole vectors of one or two NV12 rows; the chroma deltas of a column serve both rows.
template <int kOrder>
int Nv12Passes(const uint8_t* y0, const uint8_t* y1, const uint8_t* uv, uint8_t* out0,
               uint8_t* out1, int width, const float* w) {
  const DF df;
  const DI di;
  const D8 d8;
  const int lanes = static_cast<int>(hn::Lanes(df));  // even: pairs line up
  const auto k128 = hn::Set(di, 128), zero = hn::Zero(di), k255 = hn::Set(di, 255);
  BIVISTA_LUMA_WEIGHTS(w);
  int x = 0;
  for (; x + lanes <= width; x += lanes) {
    const auto c = hn::PromoteTo(di, hn::LoadU(d8, uv + x));  // U, V, U, V, ...
    const auto cu = hn::Sub(hn::DupEven(c), k128), cv = hn::Sub(hn::DupOdd(c), k128);
    const auto dr = FloatDeltaR(cv), dg = FloatDeltaG(cu, cv), db = FloatDeltaB(cu);
    for (int row = 0; row < 2; ++row) {
      const uint8_t* y = row == 0 ? y0 : y1;
      if (y == nullptr) break;
      const auto yv = hn::PromoteTo(di, hn::LoadU(d8, y + x));
      const auto r = hn::Min(hn::Max(hn::Add(yv, dr), zero), k255);
      const auto g = hn::Min(hn::Max(hn::Add(yv, dg), zero), k255);
      const auto b = hn::Min(hn::Max(hn::Add(yv, db), zero), k255);
      const VF fm = kOrder == kLumaWithMax ? hn::ConvertTo(df, hn::Max(r, hn::Max(g, b)))
                                           : hn::Zero(df);
      hn::StoreU(LumaBytes<kOrder>(hn::ConvertTo(df, r), hn::ConvertTo(df, g),
                                   hn::ConvertTo(df, b), fm, w0, w1, w2, w3),
                 d8, (row == 0 ? out0 : out1) + x);
    }
  }
  return x;
}
#endif

void Nv12ToLuma(const uint8_t* image, int width, int height, int stride, uint8_t* scratch,
                uint8_t* out, const float* weights, LumaOrder order) {
  const float w[4] = {weights[0], weights[1], weights[2],
                      order == kLumaWithMax ? weights[3] : 0.0f};
  const uint8_t* uvPlane = image + static_cast<ptrdiff_t>(stride) * height;
  // As in the NV12 to RGB24 conversion: an odd width whose stride leaves no byte after it takes
  // V = 128 for the last pixel instead of reading past the chroma row.
  const bool cut = (width & 1) != 0 && stride <= width;
  const int whole = cut ? width - 1 : width;
  for (int y = 0; y < height; y += 2) {
    const uint8_t* y0 = image + static_cast<ptrdiff_t>(y) * stride;
    const uint8_t* y1 = y + 1 < height ? y0 + stride : nullptr;
    const uint8_t* uv = uvPlane + static_cast<ptrdiff_t>(y / 2) * stride;
    int x = 0;
#if HWY_TARGET != HWY_SCALAR && HWY_NATIVE_FMA
    if (order == kLumaB0First)
      x = Nv12Passes<kLumaB0First>(y0, y1, uv, scratch, scratch + width, whole, w);
    else if (order == kLumaB1First)
      x = Nv12Passes<kLumaB1First>(y0, y1, uv, scratch, scratch + width, whole, w);
    else
      x = Nv12Passes<kLumaWithMax>(y0, y1, uv, scratch, scratch + width, whole, w);
#endif
    lumapix::Nv12Pixels(y0, y1, uv, scratch, scratch + width, x, whole, w, order);
    if (cut) {
      const uint8_t last[2] = {uv[whole], 128};
      lumapix::Nv12Pixels(y0 + whole, y1 != nullptr ? y1 + whole : nullptr, last,
                          scratch + whole, scratch + width + whole, 0, 1, w, order);
    }
    memcpy(out + static_cast<ptrdiff_t>(y) * width, scratch,
           static_cast<size_t>(y1 != nullptr ? 2 : 1) * width);
  }
}

void LumaRgb24(const uint8_t* rgb, uint8_t* dst, ptrdiff_t count, const float* weights,
               LumaOrder order) {
  float w[4] = {weights[0], weights[1], weights[2], order == kLumaWithMax ? weights[3] : 0.0f};
  ptrdiff_t x = 0;
#if HWY_TARGET != HWY_SCALAR && HWY_NATIVE_FMA
  if (order == kLumaB0First)
    x = LumaPasses<kLumaB0First>(rgb, dst, count, w);
  else if (order == kLumaB1First)
    x = LumaPasses<kLumaB1First>(rgb, dst, count, w);
  else
    x = LumaPasses<kLumaWithMax>(rgb, dst, count, w);
#endif
  lumapix::Pixels(rgb, dst, x, count, w, order);
}

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace bivista {

HWY_EXPORT(LumaRgb24);
HWY_EXPORT(Nv12ToLuma);

void Nv12ToLuma(const uint8_t* image, int width, int height, int stride, uint8_t* scratch,
                uint8_t* out, const float* weights, LumaOrder order) {
  HWY_DYNAMIC_DISPATCH(Nv12ToLuma)(image, width, height, stride, scratch, out, weights, order);
}

void LumaRgb24(const uint8_t* rgb, uint8_t* dst, ptrdiff_t count, const float* weights,
               LumaOrder order) {
  if (count < 1) return;
  const uintptr_t s = reinterpret_cast<uintptr_t>(rgb), d = reinterpret_cast<uintptr_t>(dst);
  const uintptr_t bytes = static_cast<uintptr_t>(count);
  const bool overlap = s < d + bytes && d < s + 3 * bytes;
  if (overlap || count < 16) {
    scalar::LumaRgb24(rgb, dst, count, weights, order);
    return;
  }
  HWY_DYNAMIC_DISPATCH(LumaRgb24)(rgb, dst, count, weights, order);
}

namespace scalar {
void LumaRgb24(const uint8_t* rgb, uint8_t* dst, ptrdiff_t count, const float* weights,
               LumaOrder order) {
  lumapix::Pixels(rgb, dst, 0, count, weights, order);
}

void Nv12ToLuma(const uint8_t* image, int width, int height, int stride, uint8_t* scratch,
                uint8_t* out, const float* weights, LumaOrder order) {
  const uint8_t* uvPlane = image + static_cast<ptrdiff_t>(stride) * height;
  for (int y = 0; y < height; ++y) {
    const uint8_t* uv = uvPlane + static_cast<ptrdiff_t>(y / 2) * stride;
    lumapix::Nv12Pixels(image + static_cast<ptrdiff_t>(y) * stride, nullptr, uv,
                        scratch + (y & 1) * width, nullptr, 0, width, weights, order);
    if ((y & 1) != 0 || y + 1 == height)
      memcpy(out + static_cast<ptrdiff_t>(y & ~1) * width, scratch,
             static_cast<size_t>((y & 1) + 1) * width);
  }
}
}  // namespace scalar

}  // namespace bivista
#endif
