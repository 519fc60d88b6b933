// Vector forms of the per-pixel passes of the depth and shift calculation. Float results keep the
// scalar operation order (no fused multiply-add), so every target gives the same bytes.
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "depthcalc/depthcalc_kernels.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
#include "depthcalc/depthcalc_kernels.h"

#ifndef BIVISTA_DEPTHCALC_KERNELS_ELEMENTS
#define BIVISTA_DEPTHCALC_KERNELS_ELEMENTS
// One element of each pass: the definition, and the heads and tails of the vector forms.
namespace bivista {
namespace elem {

inline bool VxVy(const float* H, float eps, float X, float Y, float* vx, float* vy) {
  const float z = H[6] * X + H[7] * Y + H[8];
  *vx = (H[0] * X + H[1] * Y + H[2]) / z - X;
  *vy = (H[3] * X + H[4] * Y + H[5]) / z - Y;
  return fabsf(z) < eps;
}

inline float Disparity(int raw, int offset) {
  const int v = WrapAdd(raw, offset);
  return v < 0 ? 0.0f : static_cast<float>(v) * 0.25f;
}

template <typename T>
inline void Search(const T* in, int16_t* least, int16_t* firstK) {
  int16_t best = INT16_MAX;
  int16_t bestK = 0;
  for (int k = 0; k < kCorrectSearch; ++k) {
    const int c = abs(k + 2 - (in[k] >> 2));
    if (c < best) {
      best = static_cast<int16_t>(c);
      bestK = static_cast<int16_t>(k);
    }
  }
  *least = best;
  *firstK = bestK;
}

inline uint8_t MultiBin(int raw, int offset) {
  // |INT32_MIN| is taken as 2^31, as the vector lanes do.
  const uint32_t v = static_cast<uint32_t>(WrapAdd(raw, offset));
  const unsigned d = (static_cast<int32_t>(v) < 0 ? 0u - v : v) >> 2;
  return static_cast<uint8_t>(d > kMultiOverflowBin - 1 ? kMultiOverflowBin : d);
}

}  // namespace elem
}  // namespace bivista
#endif

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_HAVE_FLOAT64
// Landing index in double lanes: the rounding adds 0.5 to a double sum, as the definition does.
template <class DD, class V>
HWY_INLINE hn::Vec<hn::Rebind<int32_t, DD>> LandLanes(DD dd, V v, int n) {
  const hn::Rebind<int32_t, DD> di;
  v = hn::Add(v, hn::Set(dd, 0.5));
  v = hn::IfThenElse(hn::Eq(v, v), v, hn::Zero(dd));
  v = hn::Max(v, hn::Set(dd, -1.0));
  v = hn::Min(v, hn::Set(dd, static_cast<double>(n)));
  const auto i = hn::DemoteTo(di, v);
  return hn::IfThenElse(hn::Lt(i, hn::Set(di, n)), i, hn::Set(di, -1));
}

template <bool kRow, bool kCol>
void TargetsT(const float* rowAdd, const float* colAdd, int w, int h, int r0, int rows,
              int32_t* target) {
  const hn::ScalableTag<double> dd;
  const hn::Rebind<float, decltype(dd)> df;
  const hn::Rebind<int32_t, decltype(dd)> di;
  const int N = static_cast<int>(hn::Lanes(dd));
  const auto vw = hn::Set(di, w);
  const auto minus1 = hn::Set(di, -1);
  const auto stepD = hn::Set(dd, static_cast<double>(N));
  const auto stepI = hn::Set(di, N);
  for (int r = r0; r < r0 + rows; ++r) {
    const size_t row = static_cast<size_t>(r) * w;
    int32_t* out = target + static_cast<size_t>(r - r0) * w;
    const auto vr = hn::Set(dd, static_cast<double>(r));
    // Columns stepped a vector at a time (exact: small integers); Iota goes through memory.
    auto cd = hn::Iota(dd, 0.0);
    auto ci = hn::Iota(di, 0);
    int c = 0;
    for (; c + N <= w; c += N, cd = hn::Add(cd, stepD), ci = hn::Add(ci, stepI)) {
      const size_t i = row + c;
      const auto r2 =
          kRow ? LandLanes(dd, hn::Add(vr, hn::PromoteTo(dd, hn::LoadU(df, rowAdd + i))), h)
               : hn::Set(di, r);
      const auto c2 = kCol ? LandLanes(dd, hn::Add(cd, hn::PromoteTo(dd, hn::LoadU(df, colAdd + i))),
                                       w)
                           : ci;
      const auto outside = hn::Lt(hn::Or(r2, c2), hn::Zero(di));
      hn::StoreU(hn::IfThenElse(outside, minus1, hn::Add(hn::Mul(r2, vw), c2)), di, out + c);
    }
    for (; c < w; ++c) out[c] = LandingTarget(rowAdd, colAdd, r, c, row + c, w, h);
  }
}
#endif

void LandingTargets(const float* rowAdd, const float* colAdd, int w, int h, int r0, int rows,
                    int32_t* target) {
#if HWY_HAVE_FLOAT64
  if (rowAdd != nullptr && colAdd != nullptr)
    return TargetsT<true, true>(rowAdd, colAdd, w, h, r0, rows, target);
  if (rowAdd != nullptr) return TargetsT<true, false>(rowAdd, colAdd, w, h, r0, rows, target);
  if (colAdd != nullptr) return TargetsT<false, true>(rowAdd, colAdd, w, h, r0, rows, target);
  return TargetsT<false, false>(rowAdd, colAdd, w, h, r0, rows, target);
#else
  for (int r = r0; r < r0 + rows; ++r) {
    const size_t row = static_cast<size_t>(r) * w;
    int32_t* out = target + static_cast<size_t>(r - r0) * w;
    for (int c = 0; c < w; ++c) out[c] = LandingTarget(rowAdd, colAdd, r, c, row + c, w, h);
  }
#endif
}

void LandingColumnsQuarter(const float* add, int w, int32_t* col) {
  const hn::ScalableTag<float> df;
  const hn::RebindToSigned<decltype(df)> di;
  const int N = static_cast<int>(hn::Lanes(df));
  const auto half = hn::Set(df, 0.5f), lo = hn::Set(df, -1.0f);
  const auto hi = hn::Set(df, static_cast<float>(w));
  const auto vw = hn::Set(di, w), minus1 = hn::Set(di, -1);
  // Columns stepped in float (exact): Iota goes through memory.
  auto c = hn::ConvertTo(df, hn::Iota(di, 0));
  const auto step = hn::Set(df, static_cast<float>(N));
  int i = 0;
  for (; i + N <= w; i += N, c = hn::Add(c, step)) {
    auto v = hn::Add(hn::Add(c, hn::LoadU(df, add + i)), half);
    v = hn::Min(hn::Max(v, lo), hi);
    const auto t = hn::ConvertTo(di, v);
    hn::StoreU(hn::IfThenElse(hn::Lt(t, vw), t, minus1), di, col + i);
  }
  for (; i < w; ++i) col[i] = LandIndex(static_cast<double>(i) + add[i], w);
}

bool AreaVxVyRow(const float* H, float eps, int x0, float Y, int n, float* vx, float* vy) {
  const hn::ScalableTag<float> df;
  const hn::RebindToSigned<decltype(df)> di;
  const int N = static_cast<int>(hn::Lanes(df));
  const auto h0 = hn::Set(df, H[0]), h3 = hn::Set(df, H[3]), h6 = hn::Set(df, H[6]);
  const auto h2 = hn::Set(df, H[2]), h5 = hn::Set(df, H[5]), h8 = hn::Set(df, H[8]);
  // The row's terms are the same products the definition forms at every pixel.
  const auto h1Y = hn::Set(df, H[1] * Y), h4Y = hn::Set(df, H[4] * Y), h7Y = hn::Set(df, H[7] * Y);
  const auto vY = hn::Set(df, Y), veps = hn::Set(df, eps);
  auto degenerate = hn::Zero(di);
  // Iota builds its lanes through memory, and the compiler turns a stepped integer vector back
  // into that; columns are stepped in float instead, exact below 2^24 (else all go the scalar way).
  auto X = hn::ConvertTo(df, hn::Iota(di, x0));
  const auto step = hn::Set(df, static_cast<float>(N));
  const int vecEnd = (x0 > -(1 << 24) && x0 + static_cast<int64_t>(n) < (1 << 24)) ? n : 0;
  int i = 0;
  for (; i + N <= vecEnd; i += N, X = hn::Add(X, step)) {
    const auto z = hn::Add(hn::Add(hn::Mul(h6, X), h7Y), h8);
    degenerate =
        hn::Or(degenerate, hn::VecFromMask(di, hn::RebindMask(di, hn::Lt(hn::Abs(z), veps))));
    const auto px = hn::Add(hn::Add(hn::Mul(h0, X), h1Y), h2);
    const auto py = hn::Add(hn::Add(hn::Mul(h3, X), h4Y), h5);
    hn::StoreU(hn::Sub(hn::Div(px, z), X), df, vx + i);
    hn::StoreU(hn::Sub(hn::Div(py, z), vY), df, vy + i);
  }
  bool any = !hn::AllFalse(di, hn::Ne(degenerate, hn::Zero(di)));
  for (; i < n; ++i) {
    any |= elem::VxVy(H, eps, static_cast<float>(x0 + i), Y, vx + i, vy + i);
  }
  return any;
}

template <class D8>
HWY_INLINE void DisparityRows(D8 d8, const hn::TFromD<D8>* data, int stride, int offset, int w,
                              int h, float* out) {
  const hn::Rebind<int32_t, D8> di;
  const hn::Rebind<float, D8> df;
  const int N = static_cast<int>(hn::Lanes(di));
  const auto voff = hn::Set(di, offset);
  const auto quarter = hn::Set(df, 0.25f);
  for (int y = 0; y < h; ++y) {
    const hn::TFromD<D8>* row = data + static_cast<size_t>(y) * stride;
    float* o = out + static_cast<size_t>(y) * w;
    int x = 0;
    for (; x + N <= w; x += N) {
      const auto v =
          hn::Max(hn::Add(hn::PromoteTo(di, hn::LoadU(d8, row + x)), voff), hn::Zero(di));
      hn::StoreU(hn::Mul(hn::ConvertTo(df, v), quarter), df, o + x);
    }
    for (; x < w; ++x) o[x] = elem::Disparity(row[x], offset);
  }
}

void DisparityPlane8(const uint8_t* data, int stride, int offset, int w, int h, float* out) {
  DisparityRows(hn::Rebind<uint8_t, hn::ScalableTag<int32_t>>(), data, stride, offset, w, h, out);
}

void DisparityPlane16(const uint16_t* data, int stride, int offset, int w, int h, float* out) {
  DisparityRows(hn::Rebind<uint16_t, hn::ScalableTag<int32_t>>(), data, stride, offset, w, h, out);
}

uint32_t SumBytes(const uint8_t* p, int n) {
  const hn::ScalableTag<uint8_t> d8;
  const hn::Repartition<uint64_t, decltype(d8)> d64;
  const int N = static_cast<int>(hn::Lanes(d8));
  auto acc = hn::Zero(d64);
  int i = 0;
  for (; i + N <= n; i += N) acc = hn::Add(acc, hn::SumsOf8(hn::LoadU(d8, p + i)));
  uint32_t sum = static_cast<uint32_t>(hn::GetLane(hn::SumOfLanes(d64, acc)));
  for (; i < n; ++i) sum += p[i];
  return sum;
}

// Whole-pixel disparities of N consecutive samples as 16-bit lanes.
template <class D16>
HWY_INLINE hn::Vec<D16> LoadPixels(D16 d16, const uint8_t* p) {
  return hn::ShiftRight<2>(hn::PromoteTo(d16, hn::LoadU(hn::Rebind<uint8_t, D16>(), p)));
}
template <class D16>
HWY_INLINE hn::Vec<D16> LoadPixels(D16 d16, const uint16_t* p) {
  return hn::BitCast(d16, hn::ShiftRight<2>(hn::LoadU(hn::RebindToUnsigned<D16>(), p)));
}

// One search step of a vector of pixels: cost of column k, kept when strictly smaller.
template <class D16, typename T>
HWY_INLINE void SearchStep(D16 d16, const T* p, hn::Vec<D16> target, hn::Vec<D16> vk,
                           hn::Vec<D16>& best, hn::Vec<D16>& bestK) {
  const auto c = hn::Abs(hn::Sub(target, LoadPixels(d16, p)));
  bestK = hn::IfThenElse(hn::Lt(c, best), vk, bestK);
  best = hn::Min(c, best);  // the smaller is the new one exactly when it is better
}

// Lanes are pixels: each keeps its smallest cost and the first k reaching it. With kFour, four
// vectors of pixels are searched together so that their chains of minima overlap.
template <bool kFour, typename T>
HWY_INLINE int SearchVectors(const T* in, int i, int n, int16_t* least, int16_t* firstK) {
  const hn::ScalableTag<int16_t> d16;
  const int N = static_cast<int>(hn::Lanes(d16));
  const int step = kFour ? 4 * N : N;
  for (; i + step <= n; i += step) {
    auto b0 = hn::Set(d16, INT16_MAX), b1 = b0, b2 = b0, b3 = b0;
    auto k0 = hn::Zero(d16), k1 = k0, k2 = k0, k3 = k0;
    for (int k = 0; k < kCorrectSearch; ++k) {
      const auto target = hn::Set(d16, static_cast<int16_t>(k + 2));
      const auto vk = hn::Set(d16, static_cast<int16_t>(k));
      const T* p = in + i + k;
      SearchStep(d16, p, target, vk, b0, k0);
      if (kFour) {
        SearchStep(d16, p + N, target, vk, b1, k1);
        SearchStep(d16, p + 2 * N, target, vk, b2, k2);
        SearchStep(d16, p + 3 * N, target, vk, b3, k3);
      }
    }
    hn::StoreU(b0, d16, least + i);
    hn::StoreU(k0, d16, firstK + i);
    if (kFour) {
      hn::StoreU(b1, d16, least + i + N);
      hn::StoreU(k1, d16, firstK + i + N);
      hn::StoreU(b2, d16, least + i + 2 * N);
      hn::StoreU(k2, d16, firstK + i + 2 * N);
      hn::StoreU(b3, d16, least + i + 3 * N);
      hn::StoreU(k3, d16, firstK + i + 3 * N);
    }
  }
  return i;
}

template <typename T>
HWY_INLINE void SearchLanes(const T* in, int n, int16_t* least, int16_t* firstK) {
  int i = SearchVectors<true>(in, 0, n, least, firstK);
  i = SearchVectors<false>(in, i, n, least, firstK);
  // The last partial vector is searched as the last whole one: pixels are independent, so the
  // overlap rewrites the same values.
  const int N = static_cast<int>(hn::Lanes(hn::ScalableTag<int16_t>()));
  if (i < n && n >= N) i = SearchVectors<false>(in, n - N, n, least, firstK);
  for (; i < n; ++i) elem::Search(in + i, least + i, firstK + i);
}

void SearchLeast8(const uint8_t* in, int n, int16_t* least, int16_t* firstK) {
  SearchLanes(in, n, least, firstK);
}

void SearchLeast16(const uint16_t* in, int n, int16_t* least, int16_t* firstK) {
  SearchLanes(in, n, least, firstK);
}

template <class D8>
HWY_INLINE void MultiBinLanes(D8 d8, const hn::TFromD<D8>* in, int offset, int n, uint8_t* bins) {
  const hn::Rebind<int32_t, D8> di;
  const hn::Rebind<uint32_t, D8> du;
  const hn::Rebind<uint8_t, D8> db;
  const int N = static_cast<int>(hn::Lanes(di));
  const auto voff = hn::Set(di, offset);
  const auto top = hn::Set(du, kMultiOverflowBin);
  int i = 0;
  for (; i + N <= n; i += N) {
    const auto v = hn::Abs(hn::Add(hn::PromoteTo(di, hn::LoadU(d8, in + i)), voff));
    const auto d = hn::Min(hn::ShiftRight<2>(hn::BitCast(du, v)), top);
    hn::StoreU(hn::DemoteTo(db, hn::BitCast(di, d)), db, bins + i);
  }
  for (; i < n; ++i) bins[i] = elem::MultiBin(in[i], offset);
}

void MultiDepthBins8(const uint8_t* in, int offset, int n, uint8_t* bins) {
  MultiBinLanes(hn::Rebind<uint8_t, hn::ScalableTag<int32_t>>(), in, offset, n, bins);
}

void MultiDepthBins16(const uint16_t* in, int offset, int n, uint8_t* bins) {
  MultiBinLanes(hn::Rebind<uint16_t, hn::ScalableTag<int32_t>>(), in, offset, n, bins);
}

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace bivista {

HWY_EXPORT(LandingTargets);
HWY_EXPORT(AreaVxVyRow);
HWY_EXPORT(LandingColumnsQuarter);
HWY_EXPORT(DisparityPlane8);
HWY_EXPORT(DisparityPlane16);
HWY_EXPORT(SumBytes);
HWY_EXPORT(SearchLeast8);
HWY_EXPORT(SearchLeast16);
HWY_EXPORT(MultiDepthBins8);
HWY_EXPORT(MultiDepthBins16);

void LandingTargets(const float* rowAdd, const float* colAdd, int w, int h, int r0, int rows,
                    int32_t* target) {
  HWY_DYNAMIC_DISPATCH(LandingTargets)(rowAdd, colAdd, w, h, r0, rows, target);
}
void LandingColumnsQuarter(const float* add, int w, int32_t* col) {
  HWY_DYNAMIC_DISPATCH(LandingColumnsQuarter)(add, w, col);
}
bool AreaVxVyRow(const float* H, float eps, int x0, float Y, int n, float* vx, float* vy) {
  return HWY_DYNAMIC_DISPATCH(AreaVxVyRow)(H, eps, x0, Y, n, vx, vy);
}
void DisparityPlane8(const uint8_t* data, int stride, int offset, int w, int h, float* out) {
  HWY_DYNAMIC_DISPATCH(DisparityPlane8)(data, stride, offset, w, h, out);
}
void DisparityPlane16(const uint16_t* data, int stride, int offset, int w, int h, float* out) {
  HWY_DYNAMIC_DISPATCH(DisparityPlane16)(data, stride, offset, w, h, out);
}
uint32_t SumBytes(const uint8_t* p, int n) { return HWY_DYNAMIC_DISPATCH(SumBytes)(p, n); }
void SearchLeast8(const uint8_t* in, int n, int16_t* least, int16_t* firstK) {
  HWY_DYNAMIC_DISPATCH(SearchLeast8)(in, n, least, firstK);
}
void SearchLeast16(const uint16_t* in, int n, int16_t* least, int16_t* firstK) {
  HWY_DYNAMIC_DISPATCH(SearchLeast16)(in, n, least, firstK);
}
void MultiDepthBins8(const uint8_t* in, int offset, int n, uint8_t* bins) {
  HWY_DYNAMIC_DISPATCH(MultiDepthBins8)(in, offset, n, bins);
}
void MultiDepthBins16(const uint16_t* in, int offset, int n, uint8_t* bins) {
  HWY_DYNAMIC_DISPATCH(MultiDepthBins16)(in, offset, n, bins);
}

namespace scalar {

void LandingTargets(const float* rowAdd, const float* colAdd, int w, int h, int r0, int rows,
                    int32_t* target) {
  for (int r = r0; r < r0 + rows; ++r) {
    const size_t row = static_cast<size_t>(r) * w;
    int32_t* out = target + static_cast<size_t>(r - r0) * w;
    for (int c = 0; c < w; ++c) out[c] = LandingTarget(rowAdd, colAdd, r, c, row + c, w, h);
  }
}

void LandingColumnsQuarter(const float* add, int w, int32_t* col) {
  for (int c = 0; c < w; ++c) col[c] = LandIndex(static_cast<double>(c) + add[c], w);
}

bool AreaVxVyRow(const float* H, float eps, int x0, float Y, int n, float* vx, float* vy) {
  bool any = false;
  for (int i = 0; i < n; ++i)
    any |= elem::VxVy(H, eps, static_cast<float>(x0 + i), Y, vx + i, vy + i);
  return any;
}

template <typename T>
void DisparityRows(const T* data, int stride, int offset, int w, int h, float* out) {
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      out[static_cast<size_t>(y) * w + x] =
          elem::Disparity(data[static_cast<size_t>(y) * stride + x], offset);
    }
  }
}

void DisparityPlane8(const uint8_t* data, int stride, int offset, int w, int h, float* out) {
  DisparityRows(data, stride, offset, w, h, out);
}

void DisparityPlane16(const uint16_t* data, int stride, int offset, int w, int h, float* out) {
  DisparityRows(data, stride, offset, w, h, out);
}

uint32_t SumBytes(const uint8_t* p, int n) {
  uint32_t sum = 0;
  for (int i = 0; i < n; ++i) sum += p[i];
  return sum;
}

void SearchLeast8(const uint8_t* in, int n, int16_t* least, int16_t* firstK) {
  for (int i = 0; i < n; ++i) elem::Search(in + i, least + i, firstK + i);
}

void SearchLeast16(const uint16_t* in, int n, int16_t* least, int16_t* firstK) {
  for (int i = 0; i < n; ++i) elem::Search(in + i, least + i, firstK + i);
}

void MultiDepthBins8(const uint8_t* in, int offset, int n, uint8_t* bins) {
  for (int i = 0; i < n; ++i) bins[i] = elem::MultiBin(in[i], offset);
}

void MultiDepthBins16(const uint16_t* in, int offset, int n, uint8_t* bins) {
  for (int i = 0; i < n; ++i) bins[i] = elem::MultiBin(in[i], offset);
}

}  // namespace scalar
}  // namespace bivista
#endif
