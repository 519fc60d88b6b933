// Vector forms of the smoother's kernels. The Thomas recurrence runs along a line, so the solves
// are vectorised across lines: neighbouring lines in neighbouring lanes, each lane doing exactly
// the scalar operations of its own line. Rows are brought into lanes through 4 x 4 transposes of
// small chunks on the stack; columns already are. Fused steps need a native fused multiply-add,
// and the diagonal needs double lanes: other targets run the scalar definition.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "depthrefine/fgs/fgs_kernels.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/cache_control.h"
#include "hwy/highway.h"
#include "depthrefine/fgs/fgs_kernels.h"
#include "matrix/transpose-inl.h"

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// kSet: w = value where mask is nonzero; else w *= x where mask is 0. A null mask reads as all 0.
template <bool kSet>
HWY_INLINE void MaskedPass(float* w, const uint8_t* mask, ptrdiff_t n, float x) {
  ptrdiff_t i = 0;
  if (mask == nullptr) {
    if (kSet) return;
#if HWY_TARGET != HWY_SCALAR
    const hn::ScalableTag<float> d;
    const ptrdiff_t lanes = static_cast<ptrdiff_t>(hn::Lanes(d));
    const auto vx = hn::Set(d, x);
    for (const ptrdiff_t nv = n - n % lanes; i < nv; i += lanes) {
      hn::StoreU(hn::Mul(hn::LoadU(d, w + i), vx), d, w + i);
    }
#endif
    for (; i < n; ++i) w[i] = fgs::Decayed(w[i], 0, x);
    return;
  }
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<float> d;
  const hn::RebindToUnsigned<decltype(d)> du;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  const ptrdiff_t lanes = static_cast<ptrdiff_t>(hn::Lanes(d));
  const auto vx = hn::Set(d, x);
  for (const ptrdiff_t nv = n - n % lanes; i < nv; i += lanes) {
    const auto set =
        hn::RebindMask(d, hn::Ne(hn::PromoteTo(du, hn::LoadU(d8, mask + i)), hn::Zero(du)));
    const auto v = hn::LoadU(d, w + i);
    hn::StoreU(kSet ? hn::IfThenElse(set, vx, v) : hn::IfThenElse(set, v, hn::Mul(v, vx)), d,
               w + i);
  }
#endif
  for (; i < n; ++i) w[i] = kSet ? fgs::Masked(w[i], mask[i], x) : fgs::Decayed(w[i], mask[i], x);
}

// Once per target: the file is compiled for each.
#undef BIVISTA_FGS_VECTOR
#if HWY_NATIVE_FMA && HWY_TARGET != HWY_SCALAR && HWY_HAVE_FLOAT64
#define BIVISTA_FGS_VECTOR 1

// Lanes solved together (a band), and columns per stack chunk of the row solve.
constexpr int kBand = 64;
// Columns per band of the column solve: 128 measured fastest (two cache lines of a row per
// plane and step, many independent divisions in flight); 64 and 256 are slower.
constexpr int kColumnBand = 128;
constexpr int kChunk = 16;

template <class D>
HWY_INLINE hn::Vec<D> DiagV(D d, hn::Vec<D> w, hn::Vec<D> wp) {
  const hn::Half<D> dh;
  const hn::Rebind<double, decltype(dh)> dd;
  const auto one = hn::Set(dd, 1.0);
  const auto lo = hn::Sub(one, hn::Add(hn::PromoteTo(dd, hn::LowerHalf(dh, w)),
                                       hn::PromoteTo(dd, hn::LowerHalf(dh, wp))));
  const auto hi = hn::Sub(one, hn::Add(hn::PromoteTo(dd, hn::UpperHalf(dh, w)),
                                       hn::PromoteTo(dd, hn::UpperHalf(dh, wp))));
  return hn::Combine(d, hn::DemoteTo(dh, hi), hn::DemoteTo(dh, lo));
}

template <class D>
HWY_INLINE hn::Vec<D> FirstKV(D d, hn::Vec<D> w) {
  const hn::Half<D> dh;
  const hn::Rebind<double, decltype(dh)> dd;
  const auto one = hn::Set(dd, 1.0);
  const auto lo = hn::Div(one, hn::Sub(one, hn::PromoteTo(dd, hn::LowerHalf(dh, w))));
  const auto hi = hn::Div(one, hn::Sub(one, hn::PromoteTo(dd, hn::UpperHalf(dh, w))));
  return hn::Combine(d, hn::DemoteTo(dh, hi), hn::DemoteTo(dh, lo));
}

// One step for m lanes held contiguously in each row pointer; the tail lanes go through the
// scalar element. kM: m known when compiling (a whole band), so the loop unrolls; 0: m as given.
template <int kM = 0>
HWY_INLINE void FirstRow(float* f, const float* w, float* c, int m) {
  if (kM != 0) m = kM;
  const hn::ScalableTag<float> d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  int j = 0;
  for (; j + lanes <= m; j += lanes) {
    const auto w0 = hn::LoadU(d, w + j);
    const auto k = FirstKV(d, w0);
    hn::StoreU(hn::Mul(k, w0), d, c + j);
    hn::StoreU(hn::Mul(hn::LoadU(d, f + j), k), d, f + j);
  }
  for (; j < m; ++j) fgs::First(f + j, w[j], c + j);
}

template <int kM = 0>
HWY_INLINE void ForwardRow(const float* fp, const float* wp, const float* cp, float* f,
                           const float* w, float* c, int m) {
  if (kM != 0) m = kM;
  const hn::ScalableTag<float> d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  const auto one = hn::Set(d, 1.0f);
  int j = 0;
  for (; j + lanes <= m; j += lanes) {
    const auto wi = hn::LoadU(d, w + j);
    const auto wpv = hn::LoadU(d, wp + j);
    const auto r = hn::Div(one, hn::NegMulAdd(hn::LoadU(d, cp + j), wpv, DiagV(d, wi, wpv)));
    hn::StoreU(hn::Mul(wi, r), d, c + j);
    hn::StoreU(hn::Mul(hn::NegMulAdd(hn::LoadU(d, fp + j), wpv, hn::LoadU(d, f + j)), r), d,
               f + j);
  }
  for (; j < m; ++j) fgs::Forward(fp[j], wp[j], cp[j], f + j, w[j], c + j);
}

template <int kM = 0>
HWY_INLINE void BackRow(const float* fn, const float* c, float* f, int m) {
  if (kM != 0) m = kM;
  const hn::ScalableTag<float> d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  int j = 0;
  for (; j + lanes <= m; j += lanes) {
    hn::StoreU(hn::NegMulAdd(hn::LoadU(d, fn + j), hn::LoadU(d, c + j), hn::LoadU(d, f + j)), d,
               f + j);
  }
  for (; j < m; ++j) fgs::Back(fn[j], c[j], f + j);
}

// Steps 1 .. count of m lanes: element i of f and c at i x fs, of w at i x ws; element 0 is the
// one before. after(i, j, k): element i of lanes j .. j + k - 1 is no longer read.
// On fixed-size targets strips of kStrip vectors carry their previous element in registers
// (values, coefficients, couplings and the couplings' double halves), so each element is loaded
// and widened once; the rest go step by step.
constexpr int kStrip = 4;
template <class After>
HWY_INLINE void ForwardSteps(float* f, float* c, ptrdiff_t fs, const float* w, ptrdiff_t ws,
                             int count, int m, const After& after) {
  const hn::ScalableTag<float> d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  int j = 0;
#if !HWY_HAVE_SCALABLE
  const hn::Half<decltype(d)> dh;
  const hn::Rebind<double, decltype(dh)> dd;
  using VF = hn::Vec<decltype(d)>;
  using VD = hn::Vec<decltype(dd)>;
  const auto one = hn::Set(d, 1.0f);
  const auto oneD = hn::Set(dd, 1.0);
  for (; j + kStrip * lanes <= m; j += kStrip * lanes) {
    VF fp[kStrip], cp[kStrip], wp[kStrip];
    VD lo[kStrip], hi[kStrip];
    for (int v = 0; v < kStrip; ++v) {
      const int o = j + v * lanes;
      fp[v] = hn::LoadU(d, f + o);
      cp[v] = hn::LoadU(d, c + o);
      wp[v] = hn::LoadU(d, w + o);
      lo[v] = hn::PromoteTo(dd, hn::LowerHalf(dh, wp[v]));
      hi[v] = hn::PromoteTo(dd, hn::UpperHalf(dh, wp[v]));
    }
    for (int i = 1; i <= count; ++i) {
      float* fi = f + i * fs + j;
      float* ci = c + i * fs + j;
      const float* wi = w + i * ws + j;
      for (int v = 0; v < kStrip; ++v) {
        const auto wv = hn::LoadU(d, wi + v * lanes);
        const auto wl = hn::PromoteTo(dd, hn::LowerHalf(dh, wv));
        const auto wh = hn::PromoteTo(dd, hn::UpperHalf(dh, wv));
        const auto diag = hn::Combine(d, hn::DemoteTo(dh, hn::Sub(oneD, hn::Add(wh, hi[v]))),
                                      hn::DemoteTo(dh, hn::Sub(oneD, hn::Add(wl, lo[v]))));
        const auto r = hn::Div(one, hn::NegMulAdd(cp[v], wp[v], diag));
        cp[v] = hn::Mul(wv, r);
        fp[v] = hn::Mul(hn::NegMulAdd(fp[v], wp[v], hn::LoadU(d, fi + v * lanes)), r);
        hn::StoreU(cp[v], d, ci + v * lanes);
        hn::StoreU(fp[v], d, fi + v * lanes);
        wp[v] = wv;
        lo[v] = wl;
        hi[v] = wh;
      }
      after(i - 1, j, kStrip * lanes);
    }
    after(count, j, kStrip * lanes);
  }
#endif
  if (j < m) {
    for (int i = 1; i <= count; ++i) {
      ForwardRow(f + (i - 1) * fs + j, w + (i - 1) * ws + j, c + (i - 1) * fs + j, f + i * fs + j,
                 w + i * ws + j, c + i * fs + j, m - j);
      after(i - 1, j, m - j);
    }
    after(count, j, m - j);
  }
}

// Elements last down to first of m lanes (f and c at i x fs) from the element after each,
// strips carrying it in registers as in ForwardSteps.
HWY_INLINE void BackSteps(float* f, const float* c, ptrdiff_t fs, int last, int first, int m) {
  const hn::ScalableTag<float> d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  int j = 0;
#if !HWY_HAVE_SCALABLE
  for (; j + kStrip * lanes <= m; j += kStrip * lanes) {
    hn::Vec<decltype(d)> fn[kStrip];
    for (int v = 0; v < kStrip; ++v) fn[v] = hn::LoadU(d, f + (last + 1) * fs + j + v * lanes);
    for (ptrdiff_t i = last; i >= first; --i) {
      for (int v = 0; v < kStrip; ++v) {
        const ptrdiff_t o = i * fs + j + v * lanes;
        fn[v] = hn::NegMulAdd(fn[v], hn::LoadU(d, c + o), hn::LoadU(d, f + o));
        hn::StoreU(fn[v], d, f + o);
      }
    }
  }
#endif
  for (ptrdiff_t i = last; j < m && i >= first; --i) {
    BackRow(f + (i + 1) * fs + j, c + i * fs + j, f + i * fs + j, m - j);
  }
}
#endif

#ifdef BIVISTA_FGS_VECTOR
// Rows [y0, y1) of m columns going down, then back up while they are still in cache (see
// FgsSolveColumnsSlice). With mx, each row of couplings decays as soon as the forward sweep is
// past it; the slice's last row is left to the slice below, whose first step still reads it.
HWY_INLINE void ColumnBand(float* fx, float* wx, float* cx, ptrdiff_t s, int n, int m, int y0,
                           int y1, bool down, bool up, const uint8_t* mx, bool maskClear,
                           float factor) {
  if (down) {
    const ptrdiff_t from = y0 > 0 ? y0 - 1 : 0;  // element 0 of the steps
    const int lastDecayed = y1 == n ? y1 - 1 : y1 - 2;
    const auto after = [&](ptrdiff_t i, int j, int k) {
      const ptrdiff_t row = from + i;
      if (mx != nullptr && row <= lastDecayed) {
        MaskedPass<false>(wx + row * s + j, maskClear ? nullptr : mx + row * s + j, k, factor);
      }
    };
    if (y0 == 0) FirstRow(fx, wx, cx, m);
    ForwardSteps(fx + from * s, cx + from * s, s, wx + from * s, s, y1 - 1 - static_cast<int>(from),
                 m, after);
  }
  const int last = y1 == n ? n - 2 : y1 - 1;
  if (up && last >= y0) BackSteps(fx, cx, s, last, y0, m);
}
#endif

void FgsSolveColumnsSlice(float* f, float* w, float* c, ptrdiff_t s, int n, int first, int end,
                          int y0, int y1, bool down, bool up, const uint8_t* decayMask,
                          float factor, bool maskClear) {
#ifdef BIVISTA_FGS_VECTOR
  if (n < 1 || y0 < 0 || y1 > n || y0 >= y1) return;
  for (int x = first; x < end; x += kColumnBand) {
    const int m = end - x < kColumnBand ? end - x : kColumnBand;
    const uint8_t* mx = decayMask != nullptr ? decayMask + x : nullptr;
    ColumnBand(f + x, w + x, c + x, s, n, m, y0, y1, down, up, mx, maskClear, factor);
  }
#else
  scalar::FgsSolveColumnsSlice(f, w, c, s, n, first, end, y0, y1, down, up, decayMask, factor,
                               maskClear);
#endif
}

// A band of columns goes down and back up while its rows are still in cache.
void FgsSolveColumns(float* f, float* w, float* c, ptrdiff_t s, int n, int first, int end,
                     const uint8_t* decayMask, float factor, bool maskClear) {
  FgsSolveColumnsSlice(f, w, c, s, n, first, end, 0, n, true, true, decayMask, factor, maskClear);
}

void FgsSolveRows(float* f, const float* w, float* c, int n, int first, int end) {
#ifdef BIVISTA_FGS_VECTOR
  if (n < 1) return;
  // Chunks of kChunk columns of a band of lines, transposed so that a row of the chunk holds one
  // column of every line. Row 0 carries the column next to the chunk (the previous one going
  // forward; going back, row kChunk carries the following one).
  HWY_ALIGN float tf[(kChunk + 1) * kBand];
  HWY_ALIGN float tw[(kChunk + 1) * kBand];
  HWY_ALIGN float tc[(kChunk + 1) * kBand];
  const size_t rowBytes = sizeof(float) * kBand;
  for (int l = first; l < end; l += kBand) {
    const int m = end - l < kBand ? end - l : kBand;
    float* fl = f + static_cast<ptrdiff_t>(l) * n;
    const float* wl = w + static_cast<ptrdiff_t>(l) * n;
    float* cl = c + static_cast<ptrdiff_t>(l) * n;
    for (int i0 = 0; i0 < n; i0 += kChunk) {
      const int kk = n - i0 < kChunk ? n - i0 : kChunk;
      TransposeBlockF32(fl + i0, n, m, kk, tf + kBand, kBand);
      TransposeBlockF32(wl + i0, n, m, kk, tw + kBand, kBand);
      int i = 0;
      if (i0 == 0) {
        FirstRow(tf + kBand, tw + kBand, tc + kBand, m);
        i = 1;
      }
      for (; i < kk; ++i) {
        ForwardRow(tf + i * kBand, tw + i * kBand, tc + i * kBand, tf + (i + 1) * kBand,
                   tw + (i + 1) * kBand, tc + (i + 1) * kBand, m);
      }
      TransposeBlockF32(tc + kBand, kBand, kk, m, cl + i0, n);
      TransposeBlockF32(tf + kBand, kBand, kk, m, fl + i0, n);
      memcpy(tf, tf + kk * kBand, rowBytes);
      memcpy(tw, tw + kk * kBand, rowBytes);
      memcpy(tc, tc + kk * kBand, rowBytes);
    }
    for (int i0 = (n - 1) / kChunk * kChunk; i0 >= 0; i0 -= kChunk) {
      const int kk = n - i0 < kChunk ? n - i0 : kChunk;
      TransposeBlockF32(fl + i0, n, m, kk, tf, kBand);
      TransposeBlockF32(cl + i0, n, m, kk, tc, kBand);
      // The last value of a line is final after the forward sweep.
      for (int i = i0 + kk == n ? kk - 2 : kk - 1; i >= 0; --i) {
        BackRow(tf + (i + 1) * kBand, tc + i * kBand, tf + i * kBand, m);
      }
      TransposeBlockF32(tf, kBand, kk, m, fl + i0, n);
      memcpy(tf + kChunk * kBand, tf, rowBytes);
    }
  }
#else
  scalar::FgsSolveRows(f, w, c, n, first, end);
#endif
}

#ifdef BIVISTA_FGS_VECTOR
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
// A 16 x 16 block in registers: one full-width load and store per row, four shuffles.
HWY_INLINE void Transpose16(const float* src, ptrdiff_t srcStride, float* dst, ptrdiff_t step) {
  __m512 t[16];
  for (int i = 0; i < 8; ++i) {
    const __m512 a = _mm512_loadu_ps(src + (2 * i) * srcStride);
    const __m512 b = _mm512_loadu_ps(src + (2 * i + 1) * srcStride);
    t[2 * i] = _mm512_unpacklo_ps(a, b);
    t[2 * i + 1] = _mm512_unpackhi_ps(a, b);
  }
  // u[4q + k]: in each 128-bit block j, column 4j + k of rows 4q .. 4q + 3.
  __m512 u[16];
  for (int q = 0; q < 4; ++q) {
    const __m512d p0 = _mm512_castps_pd(t[4 * q]);
    const __m512d p1 = _mm512_castps_pd(t[4 * q + 1]);
    const __m512d p2 = _mm512_castps_pd(t[4 * q + 2]);
    const __m512d p3 = _mm512_castps_pd(t[4 * q + 3]);
    u[4 * q] = _mm512_castpd_ps(_mm512_unpacklo_pd(p0, p2));
    u[4 * q + 1] = _mm512_castpd_ps(_mm512_unpackhi_pd(p0, p2));
    u[4 * q + 2] = _mm512_castpd_ps(_mm512_unpacklo_pd(p1, p3));
    u[4 * q + 3] = _mm512_castpd_ps(_mm512_unpackhi_pd(p1, p3));
  }
  for (int k = 0; k < 4; ++k) {
    // Blocks 0 and 2, then 1 and 3, of rows 0-7 and of rows 8-15.
    const __m512 e0 = _mm512_shuffle_f32x4(u[k], u[4 + k], 0x88);
    const __m512 o0 = _mm512_shuffle_f32x4(u[k], u[4 + k], 0xdd);
    const __m512 e1 = _mm512_shuffle_f32x4(u[8 + k], u[12 + k], 0x88);
    const __m512 o1 = _mm512_shuffle_f32x4(u[8 + k], u[12 + k], 0xdd);
    _mm512_storeu_ps(dst + k * step, _mm512_shuffle_f32x4(e0, e1, 0x88));
    _mm512_storeu_ps(dst + (8 + k) * step, _mm512_shuffle_f32x4(e0, e1, 0xdd));
    _mm512_storeu_ps(dst + (4 + k) * step, _mm512_shuffle_f32x4(o0, o1, 0x88));
    _mm512_storeu_ps(dst + (12 + k) * step, _mm512_shuffle_f32x4(o0, o1, 0xdd));
  }
}
#endif

// dst[c * step + r] = src[r * srcStride + c], as TransposeBlockF32. On AVX-512 targets blocks of
// 4 rows x 16 columns go through four registers: in-block 4 x 4 transposes, then each 128-bit
// block stored to its column (a quarter of the shuffles of 4 x 4 blocks in 128-bit registers).
HWY_INLINE void TransposeLines(const float* src, ptrdiff_t srcStride, int rows, int cols,
                               float* dst, ptrdiff_t step) {
  int r4 = 0;
  int c16 = 0;
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
  const int r16 = rows & ~15;
  r4 = rows & ~3;
  c16 = cols & ~15;
  for (int r = 0; r < r16; r += 16) {
    for (int c = 0; c < c16; c += 16) Transpose16(src + r * srcStride + c, srcStride, dst + c * step + r, step);
  }
  for (int r = r16; r < r4; r += 4) {
    const float* s = src + r * srcStride;
    for (int c = 0; c < c16; c += 16) {
      const __m512 a = _mm512_loadu_ps(s + c);
      const __m512 b = _mm512_loadu_ps(s + srcStride + c);
      const __m512 e = _mm512_loadu_ps(s + 2 * srcStride + c);
      const __m512 g = _mm512_loadu_ps(s + 3 * srcStride + c);
      const __m512d t0 = _mm512_castps_pd(_mm512_unpacklo_ps(a, b));
      const __m512d t1 = _mm512_castps_pd(_mm512_unpacklo_ps(e, g));
      const __m512d t2 = _mm512_castps_pd(_mm512_unpackhi_ps(a, b));
      const __m512d t3 = _mm512_castps_pd(_mm512_unpackhi_ps(e, g));
      // o[k], block j: column c + 4j + k of rows r .. r + 3.
      const __m512 o[4] = {_mm512_castpd_ps(_mm512_unpacklo_pd(t0, t1)),
                           _mm512_castpd_ps(_mm512_unpackhi_pd(t0, t1)),
                           _mm512_castpd_ps(_mm512_unpacklo_pd(t2, t3)),
                           _mm512_castpd_ps(_mm512_unpackhi_pd(t2, t3))};
      float* d = dst + c * step + r;
      for (int k = 0; k < 4; ++k) {
        _mm_storeu_ps(d + k * step, _mm512_extractf32x4_ps(o[k], 0));
        _mm_storeu_ps(d + (4 + k) * step, _mm512_extractf32x4_ps(o[k], 1));
        _mm_storeu_ps(d + (8 + k) * step, _mm512_extractf32x4_ps(o[k], 2));
        _mm_storeu_ps(d + (12 + k) * step, _mm512_extractf32x4_ps(o[k], 3));
      }
    }
  }
#endif
  if (r4 > 0 && c16 < cols) {
    TransposeBlockF32(src + c16, srcStride, r4, cols - c16, dst + c16 * step, step);
  }
  if (r4 < rows) TransposeBlockF32(src + r4 * srcStride, srcStride, rows - r4, cols, dst + r4, step);
}

// m lines from fl (rows of n values) through the workspace: values, then coefficients, each n
// rows of `band` lanes; the couplings go through a stack chunk.
// With ml (the mask of the m lines), the couplings decay once copied into the chunk.
template <bool kFull>
HWY_INLINE void RowBand(float* fl, float* wl, int n, int m, int band, float* work,
                        const uint8_t* ml, bool maskClear, float factor) {
  if (kFull) band = kBand;
  float* tf = work;
  float* tc = work + static_cast<ptrdiff_t>(band) * n;
  HWY_ALIGN float tw[(kChunk + 1) * kBand];
  for (int i0 = 0; i0 < n; i0 += kChunk) {
    const int kk = n - i0 < kChunk ? n - i0 : kChunk;
    // Every line is its own stream, too many for the hardware prefetcher.
    if (i0 + kChunk < n) {
      for (int l = 0; l < m; ++l) {
        hwy::Prefetch(fl + static_cast<ptrdiff_t>(l) * n + i0 + kChunk);
        hwy::Prefetch(wl + static_cast<ptrdiff_t>(l) * n + i0 + kChunk);
      }
    }
    TransposeLines(fl + i0, n, m, kk, tf + static_cast<ptrdiff_t>(i0) * band, band);
    TransposeLines(wl + i0, n, m, kk, tw + kBand, kBand);
    if (ml != nullptr) {
      for (int l = 0; l < m; ++l) {
        const ptrdiff_t o = static_cast<ptrdiff_t>(l) * n + i0;
        MaskedPass<false>(wl + o, maskClear ? nullptr : ml + o, kk, factor);
      }
    }
    const auto none = [](ptrdiff_t, int, int) {};
    if (i0 == 0) {
      FirstRow<kFull ? kBand : 0>(tf, tw + kBand, tc, m);
      ForwardSteps(tf, tc, band, tw + kBand, kBand, kk - 1, m, none);
    } else {
      const ptrdiff_t at = static_cast<ptrdiff_t>(i0 - 1) * band;
      ForwardSteps(tf + at, tc + at, band, tw, kBand, kk, m, none);
    }
    memcpy(tw, tw + kk * kBand, sizeof(float) * kBand);
  }
  BackSteps(tf, tc, band, n - 2, 0, m);
  TransposeLines(tf, band, n, m, fl, n);
}
#endif

void FgsSolveRowsWork(float* f, float* w, int n, int first, int end, float* work, int workLines,
                      const uint8_t* decayMask, float factor, bool maskClear) {
#ifdef BIVISTA_FGS_VECTOR
  if (n < 1 || end <= first) return;
  // A band of lines lives in the workspace in column layout (values, then coefficients), so each
  // value is transposed in once and out once; the couplings go through a stack chunk.
  const int band = workLines / 2 < kBand ? workLines / 2 : kBand;
  if (band < 1) {
    scalar::FgsSolveRowsWork(f, w, n, first, end, work, workLines, decayMask, factor, maskClear);
    return;
  }
  for (int l = first; l < end; l += band) {
    const int m = end - l < band ? end - l : band;
    const ptrdiff_t o = static_cast<ptrdiff_t>(l) * n;
    const uint8_t* ml = decayMask != nullptr ? decayMask + o : nullptr;
    if (m == kBand) {
      RowBand<true>(f + o, w + o, n, m, band, work, ml, maskClear, factor);
    } else {
      RowBand<false>(f + o, w + o, n, m, band, work, ml, maskClear, factor);
    }
  }
#else
  scalar::FgsSolveRowsWork(f, w, n, first, end, work, workLines, decayMask, factor, maskClear);
#endif
}

#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
// The 256 entries in sixteen registers: eight two-register permutes pick by the low five bits of
// each index, three rounds of blends by bits 5, 6 and 7 (a gather costs several times more);
// indices all below 32 take one permute.
struct Table256 {
  __m512 r[16];
  explicit Table256(const float* t) {
    for (int k = 0; k < 16; ++k) r[k] = _mm512_loadu_ps(t + 16 * k);
  }
  template <class DF, class VI>
  HWY_INLINE hn::Vec<DF> Lookup(DF, VI index) const {
    const __m512i i = index.raw;
    // Neighbouring guide pixels mostly differ by less than 32: then the first pair holds them all.
    if (_mm512_test_epi32_mask(i, _mm512_set1_epi32(0xE0)) == 0) {
      return hn::Vec<DF>{_mm512_permutex2var_ps(r[0], i, r[1])};
    }
    __m512 v[8];
    for (int k = 0; k < 8; ++k) v[k] = _mm512_permutex2var_ps(r[2 * k], i, r[2 * k + 1]);
    for (int bit = 5, half = 4; bit < 8; ++bit, half /= 2) {
      const __mmask16 up = _mm512_test_epi32_mask(i, _mm512_set1_epi32(1 << bit));
      for (int k = 0; k < half; ++k) v[k] = _mm512_mask_blend_ps(up, v[2 * k], v[2 * k + 1]);
    }
    return hn::Vec<DF>{v[0]};
  }
};
#else
struct Table256 {
  const float* t;
  explicit Table256(const float* table) : t(table) {}
  template <class DF, class VI>
  HWY_INLINE hn::Vec<DF> Lookup(DF df, VI index) const {
    return hn::GatherIndex(df, t, index);
  }
};
#endif

void FgsWeights3(const uint8_t* a, const uint8_t* b, ptrdiff_t inStride, int rows, int n,
                 const float* table, float* out, ptrdiff_t outStride, const uint8_t* mask,
                 float value) {
  float t[256];
  memcpy(t, table, sizeof t);
  int x0 = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<uint8_t> d8;
  const hn::Half<decltype(d8)> dh;
  const hn::Half<decltype(dh)> dq;
  const hn::Rebind<int32_t, decltype(dq)> d32;
  const hn::Rebind<uint32_t, decltype(dq)> du32;
  const hn::Rebind<float, decltype(dq)> df;
  const int lanes = static_cast<int>(hn::Lanes(d8));
  const int q = lanes / 4;
  const int nv = n / lanes * lanes;
  const Table256 lookup(t);
  HWY_ALIGN uint8_t diff[3 * hn::MaxLanes(d8)];
  const auto vvalue = hn::Set(df, value);
  for (int r = 0; r < rows; ++r) {
    const uint8_t* pa = a + r * inStride;
    const uint8_t* pb = b + r * inStride;
    const uint8_t* pm = mask != nullptr ? mask + r * outStride : nullptr;
    float* o = out + r * outStride;
    for (int x = 0; x < nv; x += lanes) {
      // Byte differences in pixel order, then one de-interleave of the differences.
      for (int k = 0; k < 3; ++k) {
        const auto av = hn::LoadU(d8, pa + 3 * x + k * lanes);
        const auto bv = hn::LoadU(d8, pb + 3 * x + k * lanes);
        hn::Store(hn::Or(hn::SaturatedSub(av, bv), hn::SaturatedSub(bv, av)), d8,
                  diff + k * lanes);
      }
      hn::Vec<decltype(d8)> d0, d1, d2;
      hn::LoadInterleaved3(d8, diff, d0, d1, d2);
      const auto m = hn::Max(hn::Max(d0, d1), d2);
      // Table entries a quarter of the bytes at a time.
      const auto lo = hn::LowerHalf(dh, m);
      const auto hi = hn::UpperHalf(dh, m);
      // (No arrays of vectors: scalable vectors cannot be array elements.)
      const auto put = [&](int k, hn::Vec<decltype(dq)> part) {
        auto v = lookup.Lookup(df, hn::PromoteTo(d32, part));
        if (pm != nullptr) {
          const auto set = hn::RebindMask(
              df, hn::Ne(hn::PromoteTo(du32, hn::LoadU(dq, pm + x + k * q)), hn::Zero(du32)));
          v = hn::IfThenElse(set, vvalue, v);
        }
        hn::StoreU(v, df, o + x + k * q);
      };
      put(0, hn::LowerHalf(dq, lo));
      put(1, hn::UpperHalf(dq, lo));
      put(2, hn::LowerHalf(dq, hi));
      put(3, hn::UpperHalf(dq, hi));
    }
  }
  x0 = nv;
#endif
  for (int r = 0; r < rows; ++r) {
    const uint8_t* pa = a + r * inStride;
    const uint8_t* pb = b + r * inStride;
    float* o = out + r * outStride;
    for (int x = x0; x < n; ++x) {
      o[x] = fgs::Weight(t, pa + 3 * x, pb + 3 * x, mask != nullptr ? mask + r * outStride + x : nullptr, value);
    }
  }
}

void FgsDecay(float* w, const uint8_t* mask, ptrdiff_t n, float factor) {
  MaskedPass<false>(w, mask, n, factor);
}

void FgsSetMasked(float* w, const uint8_t* mask, ptrdiff_t n, float value) {
  MaskedPass<true>(w, mask, n, value);
}

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace bivista {

HWY_EXPORT(FgsSolveRows);
HWY_EXPORT(FgsSolveColumns);
HWY_EXPORT(FgsSolveColumnsSlice);
HWY_EXPORT(FgsSolveRowsWork);
HWY_EXPORT(FgsWeights3);
HWY_EXPORT(FgsDecay);
HWY_EXPORT(FgsSetMasked);

void FgsSolveRows(float* f, const float* w, float* c, int n, int first, int end) {
  HWY_DYNAMIC_DISPATCH(FgsSolveRows)(f, w, c, n, first, end);
}
void FgsSolveColumns(float* f, float* w, float* c, ptrdiff_t stride, int n, int first, int end,
                     const uint8_t* decayMask, float factor, bool maskClear) {
  HWY_DYNAMIC_DISPATCH(FgsSolveColumns)(f, w, c, stride, n, first, end, decayMask, factor,
                                        maskClear);
}
void FgsSolveColumnsSlice(float* f, float* w, float* c, ptrdiff_t stride, int n, int first,
                          int end, int y0, int y1, bool down, bool up, const uint8_t* decayMask,
                          float factor, bool maskClear) {
  HWY_DYNAMIC_DISPATCH(FgsSolveColumnsSlice)(f, w, c, stride, n, first, end, y0, y1, down, up,
                                             decayMask, factor, maskClear);
}
void FgsSolveRowsWork(float* f, float* w, int n, int first, int end, float* work, int workLines,
                      const uint8_t* decayMask, float factor, bool maskClear) {
  HWY_DYNAMIC_DISPATCH(FgsSolveRowsWork)(f, w, n, first, end, work, workLines, decayMask, factor,
                                         maskClear);
}
void FgsWeights3(const uint8_t* a, const uint8_t* b, ptrdiff_t inStride, int rows, int n,
                 const float* table, float* out, ptrdiff_t outStride, const uint8_t* mask,
                 float value) {
  HWY_DYNAMIC_DISPATCH(FgsWeights3)(a, b, inStride, rows, n, table, out, outStride, mask, value);
}
void FgsDecay(float* w, const uint8_t* mask, ptrdiff_t n, float factor) {
  HWY_DYNAMIC_DISPATCH(FgsDecay)(w, mask, n, factor);
}
void FgsSetMasked(float* w, const uint8_t* mask, ptrdiff_t n, float value) {
  HWY_DYNAMIC_DISPATCH(FgsSetMasked)(w, mask, n, value);
}

namespace scalar {

void FgsSolveRows(float* f, const float* w, float* c, int n, int first, int end) {
  // Lines of no values: no line start is formed (a negative length would step backwards).
  if (n < 1) return;
  for (int l = first; l < end; ++l) {
    const ptrdiff_t o = static_cast<ptrdiff_t>(l) * n;
    fgs::SolveLine(f + o, w + o, c + o, n, 1);
  }
}
void FgsSolveRowsWork(float* f, float* w, int n, int first, int end, float* work, int,
                      const uint8_t* decayMask, float factor, bool maskClear) {
  if (n < 1) return;
  for (int l = first; l < end; ++l) {
    const ptrdiff_t o = static_cast<ptrdiff_t>(l) * n;
    fgs::SolveLine(f + o, w + o, work, n, 1);
  }
  for (ptrdiff_t i = static_cast<ptrdiff_t>(first) * n;
       decayMask != nullptr && n > 0 && i < static_cast<ptrdiff_t>(end) * n; ++i) {
    w[i] = fgs::Decayed(w[i], maskClear ? 0 : decayMask[i], factor);
  }
}
void FgsSolveColumns(float* f, float* w, float* c, ptrdiff_t stride, int n, int first, int end,
                     const uint8_t* decayMask, float factor, bool maskClear) {
  for (int x = first; x < end; ++x) fgs::SolveLine(f + x, w + x, c + x, n, stride);
  for (ptrdiff_t i = 0; decayMask != nullptr && i < n; ++i) {
    for (int x = first; x < end; ++x) {
      const ptrdiff_t k = i * stride + x;
      w[k] = fgs::Decayed(w[k], maskClear ? 0 : decayMask[k], factor);
    }
  }
}
void FgsSolveColumnsSlice(float* f, float* w, float* c, ptrdiff_t s, int n, int first, int end,
                          int y0, int y1, bool down, bool up, const uint8_t* decayMask,
                          float factor, bool maskClear) {
  if (n < 1 || y0 < 0 || y1 > n || y0 >= y1) return;
  for (int x = first; x < end; ++x) {
    float* fx = f + x;
    float* cx = c + x;
    const float* wx = w + x;
    for (ptrdiff_t i = y0; down && i < y1; ++i) {
      if (i == 0) {
        fgs::First(fx, wx[0], cx);
      } else {
        fgs::Forward(fx[(i - 1) * s], wx[(i - 1) * s], cx[(i - 1) * s], fx + i * s, wx[i * s],
                     cx + i * s);
      }
    }
    for (ptrdiff_t i = y1 == n ? n - 2 : y1 - 1; up && i >= y0; --i) {
      fgs::Back(fx[(i + 1) * s], cx[i * s], fx + i * s);
    }
  }
  // Rows y0 - 1 .. y1 - 2, and the last row in the last slice: the slice below reads row y1 - 1.
  const ptrdiff_t lastDecayed = y1 == n ? y1 - 1 : y1 - 2;
  for (ptrdiff_t i = y0 > 0 ? y0 - 1 : 0; down && decayMask != nullptr && i <= lastDecayed; ++i) {
    for (int x = first; x < end; ++x) {
      const ptrdiff_t k = i * s + x;
      w[k] = fgs::Decayed(w[k], maskClear ? 0 : decayMask[k], factor);
    }
  }
}
void FgsWeights3(const uint8_t* a, const uint8_t* b, ptrdiff_t inStride, int rows, int n,
                 const float* table, float* out, ptrdiff_t outStride, const uint8_t* mask,
                 float value) {
  for (int r = 0; r < rows; ++r) {
    for (int x = 0; x < n; ++x) {
      out[r * outStride + x] =
          fgs::Weight(table, a + r * inStride + 3 * x, b + r * inStride + 3 * x,
                      mask != nullptr ? mask + r * outStride + x : nullptr, value);
    }
  }
}
void FgsDecay(float* w, const uint8_t* mask, ptrdiff_t n, float factor) {
  for (ptrdiff_t i = 0; i < n; ++i) w[i] = fgs::Decayed(w[i], mask != nullptr ? mask[i] : 0, factor);
}
void FgsSetMasked(float* w, const uint8_t* mask, ptrdiff_t n, float value) {
  for (ptrdiff_t i = 0; i < n; ++i) w[i] = fgs::Masked(w[i], mask[i], value);
}

}  // namespace scalar
}  // namespace bivista
#endif
