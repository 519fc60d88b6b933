// Vector forms of the border mask's passes; the gradient keeps the scalar operation order.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "depthrefine/bordermask/bordermask_kernels.cc"
#include "hwy/cache_control.h"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
#include "depthrefine/bordermask/bordermask_kernels.h"

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Marked() of each lane of g against vth, lane i in bit i.
template <class D>
HWY_INLINE uint64_t MarkedBits(D d, hn::Vec<D> g, hn::Vec<D> vth) {
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
  (void)d;
  return _mm512_cmp_ps_mask(g.raw, vth.raw, _CMP_GE_OQ);
#else
  const size_t lanes = hn::Lanes(d);
  uint8_t b[8] = {0};
  hn::StoreMaskBits(d, hn::Ge(g, vth), b);
  uint64_t v;
  memcpy(&v, b, sizeof(v));
  return lanes >= 64 ? v : v & ((uint64_t{1} << lanes) - 1);
#endif
}

// out[x] = Gradient(row + x, s) for x in [col0, col1); with bits, also their Marked() bits with
// th, taken from the registers rather than read back from out. stream: out is not read again
// soon, so its whole lines may bypass the cache.
HWY_INLINE void GradientRow(const float* row, float* out, ptrdiff_t s, int col0, int col1,
                            float th = 0.0f, uint64_t* bits = nullptr, bool stream = false) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const int lanes = static_cast<int>(hn::Lanes(d));
  const auto vth = hn::Set(d, th);
  const auto mark = [&](int x, V g) {
    if (bits != nullptr) border::OrBits(bits, x, MarkedBits(d, g, vth), lanes);
  };
  const auto at = [&](int x) {
    const float* p = row + x;
    const auto c = hn::LoadU(d, p);
    const auto v = hn::Sub(hn::Sub(hn::Add(c, hn::LoadU(d, p + s)), hn::LoadU(d, p - s)),
                           hn::LoadU(d, p - 2 * s));
    const auto h = hn::Sub(hn::Sub(hn::Add(c, hn::LoadU(d, p + 1)), hn::LoadU(d, p - 2)),
                           hn::LoadU(d, p - 1));
    return hn::Div(hn::Add(hn::Abs(v), hn::Abs(h)), c);
  };
  const auto put = [&](int x, V g) {
    hn::StoreU(g, d, out + x);
    mark(x, g);
  };
  int x = col0;
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
  // The horizontal neighbours come from the previous and the next load by lane shifts across
  // the whole register (four loads a vector instead of seven).
  const auto run = [&](int end, bool streamed) {
    __m512i prev = _mm512_castps_si512(_mm512_loadu_ps(row + x - 2));
    for (; x + 16 <= end; x += 16) {
      const float* p = row + x;
      const __m512i next = _mm512_castps_si512(_mm512_loadu_ps(p + 14));
      const V m2{_mm512_castsi512_ps(prev)};
      const V m1{_mm512_castsi512_ps(_mm512_alignr_epi32(next, prev, 1))};
      const V c{_mm512_castsi512_ps(_mm512_alignr_epi32(next, prev, 2))};
      const V p1{_mm512_castsi512_ps(_mm512_alignr_epi32(next, prev, 3))};
      const auto v = hn::Sub(hn::Sub(hn::Add(c, hn::LoadU(d, p + s)), hn::LoadU(d, p - s)),
                             hn::LoadU(d, p - 2 * s));
      const auto h = hn::Sub(hn::Sub(hn::Add(c, p1), m2), m1);
      const auto g = hn::Div(hn::Add(hn::Abs(v), hn::Abs(h)), c);
      if (streamed) {
        hn::Stream(g, d, out + x);
        mark(x, g);
      } else {
        put(x, g);
      }
      prev = next;
    }
  };
  // Streamed lines are whole lines [xa, xb); every line that holds another column of the row is
  // written with ordinary stores only, since a line written both ways costs a memory round trip.
  const int misaligned = static_cast<int>(reinterpret_cast<uintptr_t>(out) / 4 % 16);
  const int xa = col0 + 16 + (32 - (col0 + misaligned) % 16) % 16;
  const int xb = xa + (col1 - 16 - xa) / 16 * 16;
  if (stream && col0 >= 2 && reinterpret_cast<uintptr_t>(out) % 4 == 0 && xb > xa) {
    put(col0, at(col0));
    put(xa - 16, at(xa - 16));
    x = xa;
    run(xb, true);
    put(xb, at(xb));
    put(col1 - 16, at(col1 - 16));
    x = col1;
  } else if (x - 2 >= 0 && x + 30 <= col1 + 1) {
    run(col1 - 13, false);
  }
#endif
  for (; x + lanes <= col1; x += lanes) put(x, at(x));
  for (; x < col1; ++x) {
    out[x] = border::Gradient(row + x, s);
    if (bits != nullptr) border::OrBits(bits, x, border::Marked(out[x], th), 1);
  }
}

void BorderGradientRows(const float* depth, float* grad, int w, int row0, int row1, int col0,
                        int col1, uint8_t* samples) {
  const ptrdiff_t s = w;
  for (int y = row0; y < row1; ++y) {
    GradientRow(depth + y * s, grad + y * s, s, col0, col1);
    if (samples != nullptr) border::CopySamples(grad + y * s, y, w, samples);
  }
}

HWY_INLINE void MarkRow(float* grad, const uint8_t* prior, bool merge, ptrdiff_t n, float th,
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

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "bit rows are read back as bytes");

// Bits of Mark() for one row of w values (bits past the width stay 0).
HWY_INLINE void MarkBits(const float* g, int w, float th, uint64_t* bits) {
  for (int k = 0; k < border::BitWords(w); ++k) bits[k] = 0;
  int x = 0;
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
  // The last word's lanes past the width are neither loaded nor set.
  const __m512 vth = _mm512_set1_ps(th);
  for (; x < w; x += 64) {
    const auto ge = [&](int j) {
      const int left = w - x - 16 * j;
      const __mmask16 valid = left >= 16 ? 0xFFFF : left <= 0 ? 0 : (1u << left) - 1;
      return _mm512_mask_cmp_ps_mask(valid, _mm512_maskz_loadu_ps(valid, g + x + 16 * j), vth,
                                     _CMP_GE_OQ);
    };
    bits[x >> 6] = _mm512_kunpackd(_mm512_kunpackw(ge(3), ge(2)), _mm512_kunpackw(ge(1), ge(0)));
  }
#elif HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<float> d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  const auto vth = hn::Set(d, th);
  for (; 64 % lanes == 0 && x + lanes <= w; x += lanes) {
    border::OrBits(bits, x, MarkedBits(d, hn::LoadU(d, g + x), vth), lanes);
  }
#endif
  for (; x < w; ++x) bits[x >> 6] |= uint64_t{border::Marked(g[x], th)} << (x & 63);
}

// out[x] = 255 where bit x is set, else 0.
HWY_INLINE void ExpandBits(const uint64_t* bits, int w, uint8_t* out) {
  int x = 0;
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
  for (; x < w; x += 64) {
    const int left = w - x;
    const __mmask64 valid = left >= 64 ? ~__mmask64{0} : (__mmask64{1} << left) - 1;
    _mm512_mask_storeu_epi8(out + x, valid, _mm512_movm_epi8(bits[x >> 6]));
  }
#elif HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<uint8_t> d8;
  const int lanes = static_cast<int>(hn::Lanes(d8));
  const uint8_t* bytes = reinterpret_cast<const uint8_t*>(bits);
  for (; x + lanes <= w; x += lanes) {
    hn::StoreU(hn::VecFromMask(d8, hn::LoadMaskBits(d8, bytes + x / 8)), d8, out + x);
  }
#endif
  for (; x < w; ++x) out[x] = border::Bit(bits, x) ? 255 : 0;
}

// Marking and closing of rows [y0, y1) for a mask without prior values, which holds only 0 and
// 255: the closing runs on bit rows kept in rings, so a band reads no other band's rows of mask
// and scratch. markRow(t, bits) gives the Marked() bits of gradient row t, for t in
// [y0 - 2, y1 + 2) within the plane.
template <class MarkRowBits>
HWY_INLINE void CloseBand(const MarkRowBits& markRow, int w, int h, uint8_t* mask,
                          uint8_t* scratch, int y0, int y1) {
  uint64_t marked[4][border::kMaxBitWords];
  uint64_t dilated[4][border::kMaxBitWords];
  uint64_t eroded[border::kMaxBitWords];
  const auto M = [&](int y) { return marked[y & 3]; };
  const auto D = [&](int y) { return dilated[y & 3]; };
  const ptrdiff_t s = w;
  const int first = y0 - 2 > 0 ? y0 - 2 : 0;
  const int last = y1 + 2 < h ? y1 + 2 : h;
  const auto frame = [&](int y) { return y == 0 || y == h - 1 || w <= 2; };
  for (int t = first; t < last + 2; ++t) {
    if (t < last) markRow(t, M(t));
    const int yd = t - 1;
    if (yd >= first && yd >= y0 - 1 && yd <= y1 && yd < h) {
      if (frame(yd)) {
        memcpy(D(yd), M(yd), sizeof(marked[0]));
      } else {
        border::Rect3Bits(M(yd - 1), M(yd), M(yd + 1), M(yd), w, true, D(yd));
      }
      if (yd >= y0 && yd < y1) ExpandBits(D(yd), w, scratch + yd * s);
    }
    const int ye = t - 2;
    if (ye >= y0 && ye < y1) {
      if (!frame(ye)) border::Rect3Bits(D(ye - 1), D(ye), D(ye + 1), M(ye), w, false, eroded);
      ExpandBits(frame(ye) ? M(ye) : eroded, w, mask + ye * s);
    }
  }
}

// Gradient row t as the workers leave the plane (computed in columns [2, w - 1) of rows
// [2, h - 1), zero elsewhere), and with bits its Marked() bits.
HWY_INLINE void PlaneGradientRow(const float* depth, int w, int h, int t, float* out,
                                 float th = 0.0f, uint64_t* bits = nullptr, bool stream = false) {
  const bool inner = t >= 2 && t < h - 1 && w > 3;
  if (bits != nullptr) {
    const bool zero = border::Marked(0.0f, th);
    for (int k = 0; k < border::BitWords(w); ++k) bits[k] = inner || !zero ? 0 : ~uint64_t{0};
    if (inner && zero) {
      border::OrBits(bits, 0, 3, 2);
      border::OrBits(bits, w - 1, 1, 1);
    }
  }
  if (!inner) {
    memset(out, 0, sizeof(float) * static_cast<size_t>(w));
    return;
  }
  out[0] = out[1] = out[w - 1] = 0.0f;
  GradientRow(depth + static_cast<ptrdiff_t>(t) * w, out, w, 2, w - 1, th, bits, stream);
}

void BorderBand(const float* depth, float* grad, int w, int h, float th, uint8_t* mask,
                uint8_t* scratch, int y0, int y1, border::Band band) {
  const ptrdiff_t s = w;
  if (band == border::Band::kGradientOnly) {
    for (int t = y0; t < y1; ++t) PlaneGradientRow(depth, w, h, t, grad + t * s);
    return;
  }
  // Rows of the neighbouring bands are computed again; only their bits are kept.
  float other[border::kMaxBandWidth];
  CloseBand(
      [&](int t, uint64_t* bits) {
        const bool own = t >= y0 && t < y1;
        if (band == border::Band::kStored && own) {
          MarkBits(grad + t * s, w, th, bits);
        } else {
          // The band's own gradient rows are not read again here.
          PlaneGradientRow(depth, w, h, t, own ? grad + t * s : other, th, bits, own);
        }
      },
      w, h, mask, scratch, y0, y1);
  hwy::FlushStream();
}

void BorderMarkClose(float* grad, const uint8_t* prior, bool merge, int w, int h, float th,
                     uint8_t* mask, uint8_t* scratch, int y0, int y1) {
  if (prior == nullptr && w <= border::kMaxBandWidth) {
    CloseBand([&](int t, uint64_t* bits) { MarkBits(grad + static_cast<ptrdiff_t>(t) * w, w, th, bits); },
              w, h, mask, scratch, y0, y1);
    return;
  }
  const ptrdiff_t s = w;
  // Row t is marked, row t - 1 dilated, row t - 2 eroded back: each step reads only rows the
  // later ones no longer need.
  for (int t = 0; t < h + 2; ++t) {
    if (t < h) MarkRow(grad + t * s, prior != nullptr ? prior + t * s : nullptr, merge, w, th, mask + t * s);
    const int yd = t - 1;
    if (yd >= 0 && yd < h) {
      const uint8_t* m = mask + yd * s;
      uint8_t* out = scratch + yd * s;
      if (yd == 0 || yd == h - 1 || w <= 2) {
        memcpy(out, m, static_cast<size_t>(w));
      } else {
        out[0] = m[0];
        out[w - 1] = m[w - 1];
        RectRow<true>(m - s, m, m + s, out, w);
      }
    }
    const int ye = t - 2;
    if (ye >= 1 && ye < h - 1 && w > 2) {
      const uint8_t* dl = scratch + ye * s;
      RectRow<false>(dl - s, dl, dl + s, mask + ye * s, w);
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
HWY_EXPORT(BorderBand);

void BorderGradientRows(const float* depth, float* grad, int w, int row0, int row1, int col0,
                        int col1, uint8_t* samples) {
  HWY_DYNAMIC_DISPATCH(BorderGradientRows)(depth, grad, w, row0, row1, col0, col1, samples);
}
void BorderMarkClose(float* grad, const uint8_t* prior, bool merge, int w, int h, float th,
                     uint8_t* mask, uint8_t* scratch, int y0, int y1) {
  HWY_DYNAMIC_DISPATCH(BorderMarkClose)(grad, prior, merge, w, h, th, mask, scratch, y0, y1);
}

void BorderBand(const float* depth, float* grad, int w, int h, float th, uint8_t* mask,
                uint8_t* scratch, int y0, int y1, border::Band band) {
  HWY_DYNAMIC_DISPATCH(BorderBand)(depth, grad, w, h, th, mask, scratch, y0, y1, band);
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
