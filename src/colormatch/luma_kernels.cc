#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "colormatch/luma_kernels.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <math.h>

#include "colormatch/luma_kernels.h"

#ifndef BIVISTA_LUMA_PIXEL_HELPERS
#define BIVISTA_LUMA_PIXEL_HELPERS
namespace bivista {
namespace lumapix {

inline uint8_t ToByte(float t) {
  if (!(t > 0.0f)) return 0;
  if (t >= 255.0f) return 255;
  return static_cast<uint8_t>(static_cast<int>(t));
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
template <int kOrder>
ptrdiff_t LumaPasses(const uint8_t* rgb, uint8_t* dst, ptrdiff_t count, const float* weights) {
  const hn::CappedTag<float, 16> df;
  const hn::Rebind<int32_t, decltype(df)> di;
  const hn::Rebind<uint8_t, decltype(df)> d8;
  const ptrdiff_t lanes = static_cast<ptrdiff_t>(hn::Lanes(df));
  const auto w0 = hn::Set(df, weights[0]), w1 = hn::Set(df, weights[1]);
  const auto w2 = hn::Set(df, weights[2]);
  const auto w3 = hn::Set(df, kOrder == kLumaWithMax ? weights[3] : 0.0f);
  const auto half = hn::Set(df, 0.5f), zero = hn::Zero(df), top = hn::Set(df, 255.0f);
  ptrdiff_t x = 0;
  for (; x + lanes <= count; x += lanes) {
    hn::Vec<decltype(d8)> a, b, c;
    hn::LoadInterleaved3(d8, rgb + 3 * x, a, b, c);
    const auto f0 = hn::ConvertTo(df, hn::PromoteTo(di, a));
    const auto f1 = hn::ConvertTo(df, hn::PromoteTo(di, b));
    const auto f2 = hn::ConvertTo(df, hn::PromoteTo(di, c));
    hn::Vec<decltype(df)> t;
    if (kOrder == kLumaB1First) {
      t = hn::MulAdd(f2, w2, hn::Mul(f1, w1));
      t = hn::MulAdd(f0, w0, hn::Add(t, half));
    } else {
      t = hn::MulAdd(f1, w1, hn::Mul(f0, w0));
      t = hn::MulAdd(f2, w2, hn::Add(t, half));
      if (kOrder == kLumaWithMax) {
        const auto fm = hn::ConvertTo(df, hn::PromoteTo(di, hn::Max(a, hn::Max(b, c))));
        t = hn::MulAdd(fm, w3, t);
      }
    }
    // Greater-than is false for NaN, which thus becomes 0 as in the scalar helper.
    t = hn::Min(hn::IfThenElse(hn::Gt(t, zero), t, zero), top);
    hn::StoreU(hn::DemoteTo(d8, hn::ConvertTo(di, t)), d8, dst + x);
  }
  return x;
}
#endif

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
}  // namespace scalar

}  // namespace bivista
#endif
