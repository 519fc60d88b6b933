// Vector forms of the border mask's passes; the gradient keeps the scalar operation order.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

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
                        int col1, uint8_t* samples) {
  const hn::ScalableTag<float> d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  const ptrdiff_t s = w;
  for (int y = row0; y < row1; ++y) {
    const float* row = depth + y * s;
    float* out = grad + y * s;
    int x = col0;
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
    // The horizontal neighbours come from the previous and the next load by lane shifts across
    // the whole register (four loads a vector instead of seven).
    if (x - 2 >= 0 && x + 30 <= col1 + 1) {
      __m512i prev = _mm512_castps_si512(_mm512_loadu_ps(row + x - 2));
      for (; x + 30 <= col1 + 1; x += 16) {
        const float* p = row + x;
        const __m512i next = _mm512_castps_si512(_mm512_loadu_ps(p + 14));
        const hn::Vec<decltype(d)> m2{_mm512_castsi512_ps(prev)};
        const hn::Vec<decltype(d)> m1{_mm512_castsi512_ps(_mm512_alignr_epi32(next, prev, 1))};
        const hn::Vec<decltype(d)> c{_mm512_castsi512_ps(_mm512_alignr_epi32(next, prev, 2))};
        const hn::Vec<decltype(d)> p1{_mm512_castsi512_ps(_mm512_alignr_epi32(next, prev, 3))};
        const auto v = hn::Sub(hn::Sub(hn::Add(c, hn::LoadU(d, p + s)), hn::LoadU(d, p - s)),
                               hn::LoadU(d, p - 2 * s));
        const auto h = hn::Sub(hn::Sub(hn::Add(c, p1), m2), m1);
        hn::StoreU(hn::Div(hn::Add(hn::Abs(v), hn::Abs(h)), c), d, out + x);
        prev = next;
      }
    }
#endif
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
    if (samples != nullptr) border::CopySamples(out, y, w, samples);
  }
}

// clear: gradients under the prior become 0 (else grad is only read).
HWY_INLINE void MarkRow(float* grad, const uint8_t* prior, bool merge, ptrdiff_t n, float th,
                        uint8_t* mask, bool clear = true) {
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
      if (clear) hn::StoreU(hn::IfThenZeroElse(set, g), d, grad + i);
    }
    hn::StoreU(m, d8, mask + i);
  }
#endif
  for (; i < n; ++i) {
    float copy = grad[i];
    border::Mark(clear ? grad + i : &copy, th, prior ? prior[i] : 0, merge, mask + i);
  }
}

// out[x] = Rect3(up, mid, down, x) for x in [1, w - 1).
template <bool kOr>
HWY_INLINE void RectRow(const uint8_t* up, const uint8_t* mid, const uint8_t* down, uint8_t* out,
                        int w) {
  const hn::ScalableTag<uint8_t> d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  const auto comb = [](hn::Vec<decltype(d)> a, hn::Vec<decltype(d)> b) {
    return kOr ? hn::Or(a, b) : hn::And(a, b);
  };
  const auto column = [&](int x) {
    return comb(comb(hn::LoadU(d, up + x), hn::LoadU(d, mid + x)), hn::LoadU(d, down + x));
  };
  const auto at = [&](int x) {
    hn::StoreU(comb(comb(column(x - 1), column(x)), column(x + 1)), d, out + x);
  };
  int x = 1;
  for (; x + lanes <= w - 1; x += lanes) at(x);
  // out is none of the inputs, so the last vector may overlap the one before.
  if (x < w - 1 && x > 1) {
    at(w - 1 - lanes);
    return;
  }
  for (; x < w - 1; ++x) out[x] = border::Rect3(up, mid, down, x, kOr);
}

void BorderMarkClose(float* grad, const uint8_t* prior, bool merge, int w, int h, float th,
                     uint8_t* mask, uint8_t* scratch, int y0, int y1, uint8_t* halo) {
  const ptrdiff_t s = w;
  // Rows of other bands: marked rows y0 - 2, y0 - 1, y1, y1 + 1 and dilated rows y0 - 1, y1 in
  // the halo, so that bands never touch each other's rows.
  const auto marked = [&](int y) -> uint8_t* {
    if (y >= y0 && y < y1) return mask + y * s;
    return halo + (y < y0 ? y - (y0 - 2) : 2 + y - y1) * s;
  };
  const auto dilated = [&](int y) -> uint8_t* {
    if (y >= y0 && y < y1) return scratch + y * s;
    return halo + (y < y0 ? 4 : 5) * s;
  };
  const int first = y0 - 2 > 0 ? y0 - 2 : 0;
  const int last = y1 + 2 < h ? y1 + 2 : h;
  // Row t is marked, row t - 1 dilated, row t - 2 eroded back: each step reads only rows the
  // later ones no longer need.
  for (int t = first; t < last + 2; ++t) {
    if (t < last) {
      MarkRow(grad + t * s, prior != nullptr ? prior + t * s : nullptr, merge, w, th, marked(t),
              t >= y0 && t < y1);
    }
    const int yd = t - 1;
    if (yd >= first && yd >= y0 - 1 && yd <= y1 && yd < h) {
      const uint8_t* m = marked(yd);
      uint8_t* out = dilated(yd);
      if (yd == 0 || yd == h - 1 || w <= 2) {
        memcpy(out, m, static_cast<size_t>(w));
      } else {
        out[0] = m[0];
        out[w - 1] = m[w - 1];
        RectRow<true>(marked(yd - 1), m, marked(yd + 1), out, w);
      }
    }
    const int ye = t - 2;
    if (ye >= y0 && ye < y1 && ye >= 1 && ye < h - 1 && w > 2) {
      RectRow<false>(dilated(ye - 1), dilated(ye), dilated(ye + 1), mask + ye * s, w);
    }
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace bivista {

HWY_EXPORT(BorderGradientRows);
HWY_EXPORT(BorderMarkClose);

void BorderGradientRows(const float* depth, float* grad, int w, int row0, int row1, int col0,
                        int col1, uint8_t* samples) {
  HWY_DYNAMIC_DISPATCH(BorderGradientRows)(depth, grad, w, row0, row1, col0, col1, samples);
}
void BorderMarkClose(float* grad, const uint8_t* prior, bool merge, int w, int h, float th,
                     uint8_t* mask, uint8_t* scratch, int y0, int y1, uint8_t* halo) {
  HWY_DYNAMIC_DISPATCH(BorderMarkClose)(grad, prior, merge, w, h, th, mask, scratch, y0, y1, halo);
}

namespace scalar {
void BorderGradientRows(const float* depth, float* grad, int w, int row0, int row1, int col0,
                        int col1, uint8_t* samples) {
  for (int y = row0; y < row1; ++y) {
    for (int x = col0; x < col1; ++x) {
      const ptrdiff_t i = static_cast<ptrdiff_t>(y) * w + x;
      grad[i] = border::Gradient(depth + i, w);
    }
    if (samples != nullptr) border::CopySamples(grad + static_cast<ptrdiff_t>(y) * w, y, w, samples);
  }
}
// The mask, then the dilation into scratch and the erosion back, inside the one-pixel frame.
void BorderMarkClose(float* grad, const uint8_t* prior, bool merge, int w, int h, float th,
                     uint8_t* mask, uint8_t* scratch) {
  const ptrdiff_t n = static_cast<ptrdiff_t>(w) * h;
  BorderMarkPixels(grad, prior, merge, n, th, mask);
  memcpy(scratch, mask, static_cast<size_t>(n));
  for (int pass = 0; pass < 2; ++pass) {
    const uint8_t* in = pass == 0 ? mask : scratch;
    uint8_t* out = pass == 0 ? scratch : mask;
    for (int y = 1; y + 1 < h; ++y) {
      const uint8_t* m = in + static_cast<ptrdiff_t>(y) * w;
      for (int x = 1; x + 1 < w; ++x) {
        out[static_cast<ptrdiff_t>(y) * w + x] = border::Rect3(m - w, m, m + w, x, pass == 0);
      }
    }
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
