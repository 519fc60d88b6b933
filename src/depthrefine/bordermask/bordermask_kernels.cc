// Vector forms of the border mask's passes; the gradient keeps the scalar operation order.
#include <stddef.h>
#include <stdint.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "depthrefine/bordermask/bordermask_kernels.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
#include "depthrefine/bordermask/bordermask_kernels.h"

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void BorderGradientRows(const float* depth, float* grad, int w, int row0, int row1, int col0,
                        int col1) {
  const hn::ScalableTag<float> d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  const ptrdiff_t s = w;
  for (int y = row0; y < row1; ++y) {
    const float* row = depth + y * s;
    float* out = grad + y * s;
    int x = col0;
    for (; x + lanes <= col1; x += lanes) {
      const float* p = row + x;
      const auto c = hn::LoadU(d, p);
      const auto v = hn::Sub(hn::Sub(hn::Add(c, hn::LoadU(d, p + s)), hn::LoadU(d, p - s)),
                             hn::LoadU(d, p - 2 * s));
      const auto h = hn::Sub(hn::Sub(hn::Add(c, hn::LoadU(d, p + 1)), hn::LoadU(d, p - 2)),
                             hn::LoadU(d, p - 1));
      hn::StoreU(hn::Div(hn::Add(hn::Abs(v), hn::Abs(h)), c), d, out + x);
    }
    for (; x < col1; ++x) out[x] = border::Gradient(row + x, s);
  }
}

void BorderMarkPixels(float* grad, const uint8_t* prior, bool merge, ptrdiff_t n, float th,
                      uint8_t* mask) {
  ptrdiff_t i = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<float> d;
  const hn::RebindToSigned<decltype(d)> di;
  const hn::RebindToUnsigned<decltype(d)> du;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  const ptrdiff_t lanes = static_cast<ptrdiff_t>(hn::Lanes(d));
  const auto vth = hn::Set(d, th);
  const auto full = hn::Set(di, 255);
  for (; i + lanes <= n; i += lanes) {
    const auto g = hn::LoadU(d, grad + i);
    auto m = hn::DemoteTo(d8, hn::IfThenElseZero(hn::RebindMask(di, hn::Ge(g, vth)), full));
    if (prior != nullptr) {
      const auto p = hn::LoadU(d8, prior + i);
      // 255 | p is 255, 0 | p is p.
      if (merge) m = hn::Or(m, p);
      const auto set = hn::RebindMask(d, hn::Ne(hn::PromoteTo(du, p), hn::Zero(du)));
      hn::StoreU(hn::IfThenZeroElse(set, g), d, grad + i);
    }
    hn::StoreU(m, d8, mask + i);
  }
#endif
  for (; i < n; ++i) border::Mark(grad + i, th, prior ? prior[i] : 0, merge, mask + i);
}

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace bivista {

HWY_EXPORT(BorderGradientRows);
HWY_EXPORT(BorderMarkPixels);

void BorderGradientRows(const float* depth, float* grad, int w, int row0, int row1, int col0,
                        int col1) {
  HWY_DYNAMIC_DISPATCH(BorderGradientRows)(depth, grad, w, row0, row1, col0, col1);
}
void BorderMarkPixels(float* grad, const uint8_t* prior, bool merge, ptrdiff_t n, float th,
                      uint8_t* mask) {
  HWY_DYNAMIC_DISPATCH(BorderMarkPixels)(grad, prior, merge, n, th, mask);
}

namespace scalar {
void BorderGradientRows(const float* depth, float* grad, int w, int row0, int row1, int col0,
                        int col1) {
  for (int y = row0; y < row1; ++y)
    for (int x = col0; x < col1; ++x) {
      const ptrdiff_t i = static_cast<ptrdiff_t>(y) * w + x;
      grad[i] = border::Gradient(depth + i, w);
    }
}
void BorderMarkPixels(float* grad, const uint8_t* prior, bool merge, ptrdiff_t n, float th,
                      uint8_t* mask) {
  for (ptrdiff_t i = 0; i < n; ++i)
    border::Mark(grad + i, th, prior ? prior[i] : 0, merge, mask + i);
}
}  // namespace scalar

}  // namespace bivista
#endif
