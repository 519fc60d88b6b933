#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "matrix/matrix_kernels.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <math.h>

#include "matrix/matrix_kernels.h"
#include "matrix/transpose-inl.h"

#ifndef BIVISTA_MATRIX_KERNELS_ONCE
#define BIVISTA_MATRIX_KERNELS_ONCE
namespace bivista {
namespace matrix_detail {
// C (m x n) = A (m x k) B (k x n), one row of C at a time.
template <typename T, class Row>
void MatMulLoop(const T* a, const T* b, T* c, int m, int k, int n, Row row) {
  for (int i = 0; i < m; ++i) {
    row(a + static_cast<ptrdiff_t>(i) * k, b, c + static_cast<ptrdiff_t>(i) * n, k, n);
  }
}
}  // namespace matrix_detail
}  // namespace bivista
#endif

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Vector rows only where the target has a true fused multiply-add; elsewhere Highway's MulAdd is
// a rounded multiply then add, which would not match fma().
template <typename T>
void MatMulRowT(const T* a, const T* b, T* c, int k, int n) {
  int j = 0;
#if HWY_NATIVE_FMA && HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<T> d;
  const int lanes = static_cast<int>(hn::Lanes(d));
  for (; j + lanes <= n; j += lanes) {
    auto acc = hn::Mul(hn::Set(d, a[0]), hn::LoadU(d, b + j));
    for (int kk = 1; kk < k; ++kk) {
      acc = hn::MulAdd(hn::LoadU(d, b + static_cast<ptrdiff_t>(kk) * n + j), hn::Set(d, a[kk]), acc);
    }
    hn::StoreU(acc, d, c + j);
  }
#endif
  for (; j < n; ++j) {
    T acc = a[0] * b[j];
    for (int kk = 1; kk < k; ++kk) acc = std::fma(b[static_cast<ptrdiff_t>(kk) * n + j], a[kk], acc);
    c[j] = acc;
  }
}

void MatMulRowF32(const float* a, const float* b, float* c, int k, int n) {
  MatMulRowT(a, b, c, k, n);
}

void MatMulRowF64(const double* a, const double* b, double* c, int k, int n) {
#if HWY_HAVE_FLOAT64
  MatMulRowT(a, b, c, k, n);
#else
  for (int j = 0; j < n; ++j) {
    double acc = a[0] * b[j];
    for (int kk = 1; kk < k; ++kk) acc = std::fma(b[static_cast<ptrdiff_t>(kk) * n + j], a[kk], acc);
    c[j] = acc;
  }
#endif
}

void TransposeF32(const float* src, int rows, int cols, float* dst, ptrdiff_t step) {
  TransposeBlockF32(src, cols, rows, cols, dst, step);
}

void TransposeF64(const double* src, int rows, int cols, double* dst, ptrdiff_t step) {
#if HWY_TARGET != HWY_SCALAR && HWY_HAVE_FLOAT64
  const int r2 = rows & ~1, c2 = cols & ~1;
  const hn::FixedTag<double, 2> d;
  for (int r = 0; r < r2; r += 2) {
    const double* s = src + static_cast<ptrdiff_t>(r) * cols;
    for (int c = 0; c < c2; c += 2) {
      const auto v0 = hn::LoadU(d, s + c), v1 = hn::LoadU(d, s + cols + c);
      double* o = dst + c * step + r;
      hn::StoreU(hn::InterleaveLower(d, v0, v1), d, o);
      hn::StoreU(hn::InterleaveUpper(d, v0, v1), d, o + step);
    }
  }
  TransposeEdges(src, cols, rows, cols, dst, step, r2, c2);
#else
  TransposeEdges(src, cols, rows, cols, dst, step, 0, cols);
#endif
}

void TransposeF64ToF32(const double* src, int rows, int cols, float* dst, ptrdiff_t step) {
// EMU128's demotion holds doubles past the float range at the largest float; a cast (and every
// other target) rounds them to infinity.
#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128 && HWY_HAVE_FLOAT64
  const int r4 = rows & ~3, c4 = cols & ~3;
  const hn::FixedTag<double, 2> dd;
  const hn::FixedTag<float, 2> dh;
  const hn::FixedTag<float, 4> d;
  for (int r = 0; r < r4; r += 4) {
    const double* s = src + static_cast<ptrdiff_t>(r) * cols;
    for (int c = 0; c < c4; c += 4) {
      auto row = [&](int i) {
        const double* p = s + static_cast<ptrdiff_t>(i) * cols + c;
        return hn::Combine(d, hn::DemoteTo(dh, hn::LoadU(dd, p + 2)),
                           hn::DemoteTo(dh, hn::LoadU(dd, p)));
      };
      StoreTransposed4(d, row(0), row(1), row(2), row(3), dst + c * step + r, step);
    }
  }
  TransposeEdges(src, cols, rows, cols, dst, step, r4, c4);
#else
  TransposeEdges(src, cols, rows, cols, dst, step, 0, cols);
#endif
}

void NegateAbove(float* p, ptrdiff_t n, float t) {
  // (x - t) >= 0.01 in double is (x - t) > 0.01f in float: 0.01f lies just below 0.01.
  const float kLimit = 0.01f;
  ptrdiff_t i = 0;
  const hn::ScalableTag<float> d;
  const ptrdiff_t lanes = static_cast<ptrdiff_t>(hn::Lanes(d));
  const auto vt = hn::Set(d, t), vl = hn::Set(d, kLimit);
  for (; i + lanes <= n; i += lanes) {
    const auto x = hn::LoadU(d, p + i);
    hn::StoreU(hn::IfThenElse(hn::Gt(hn::Sub(x, vt), vl), hn::Neg(x), x), d, p + i);
  }
  for (; i < n; ++i)
    if (p[i] - t > kLimit) p[i] = -p[i];
}

void MatMulF32(const float* a, const float* b, float* c, int m, int k, int n) {
  matrix_detail::MatMulLoop(a, b, c, m, k, n, MatMulRowF32);
}
void MatMulF64(const double* a, const double* b, double* c, int m, int k, int n) {
  matrix_detail::MatMulLoop(a, b, c, m, k, n, MatMulRowF64);
}

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace bivista {

HWY_EXPORT(MatMulRowF32);
HWY_EXPORT(MatMulRowF64);
HWY_EXPORT(TransposeF32);
HWY_EXPORT(TransposeF64);
HWY_EXPORT(TransposeF64ToF32);
HWY_EXPORT(NegateAbove);
HWY_EXPORT(MatMulF32);
HWY_EXPORT(MatMulF64);

void MatMulF32(const float* a, const float* b, float* c, int m, int k, int n) {
  HWY_DYNAMIC_DISPATCH(MatMulF32)(a, b, c, m, k, n);
}
void MatMulF64(const double* a, const double* b, double* c, int m, int k, int n) {
  HWY_DYNAMIC_DISPATCH(MatMulF64)(a, b, c, m, k, n);
}

void MatMulRowF32(const float* a, const float* b, float* c, int k, int n) {
  HWY_DYNAMIC_DISPATCH(MatMulRowF32)(a, b, c, k, n);
}
void MatMulRowF64(const double* a, const double* b, double* c, int k, int n) {
  HWY_DYNAMIC_DISPATCH(MatMulRowF64)(a, b, c, k, n);
}
void TransposeF32(const float* src, int rows, int cols, float* dst, ptrdiff_t step) {
  HWY_DYNAMIC_DISPATCH(TransposeF32)(src, rows, cols, dst, step);
}
void TransposeF64(const double* src, int rows, int cols, double* dst, ptrdiff_t step) {
  HWY_DYNAMIC_DISPATCH(TransposeF64)(src, rows, cols, dst, step);
}
void TransposeF64ToF32(const double* src, int rows, int cols, float* dst, ptrdiff_t step) {
  HWY_DYNAMIC_DISPATCH(TransposeF64ToF32)(src, rows, cols, dst, step);
}
void NegateAbove(float* p, ptrdiff_t n, float t) { HWY_DYNAMIC_DISPATCH(NegateAbove)(p, n, t); }

namespace scalar {

template <typename T>
static void MatMulRow(const T* a, const T* b, T* c, int k, int n) {
  for (int j = 0; j < n; ++j) c[j] = a[0] * b[j];
  for (int kk = 1; kk < k; ++kk)
    for (int j = 0; j < n; ++j) c[j] = std::fma(b[static_cast<ptrdiff_t>(kk) * n + j], a[kk], c[j]);
}
void MatMulRowF32(const float* a, const float* b, float* c, int k, int n) {
  MatMulRow(a, b, c, k, n);
}
void MatMulRowF64(const double* a, const double* b, double* c, int k, int n) {
  MatMulRow(a, b, c, k, n);
}

template <typename TS, typename TD>
static void Transpose(const TS* src, int rows, int cols, TD* dst, ptrdiff_t step) {
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c)
      dst[c * step + r] = static_cast<TD>(src[static_cast<ptrdiff_t>(r) * cols + c]);
}
void TransposeF32(const float* src, int rows, int cols, float* dst, ptrdiff_t step) {
  Transpose(src, rows, cols, dst, step);
}
void TransposeF64(const double* src, int rows, int cols, double* dst, ptrdiff_t step) {
  Transpose(src, rows, cols, dst, step);
}
void TransposeF64ToF32(const double* src, int rows, int cols, float* dst, ptrdiff_t step) {
  Transpose(src, rows, cols, dst, step);
}
void NegateAbove(float* p, ptrdiff_t n, float t) {
  for (ptrdiff_t i = 0; i < n; ++i)
    if (p[i] - t >= 0.01) p[i] = -p[i];
}

void MatMulF32(const float* a, const float* b, float* c, int m, int k, int n) {
  matrix_detail::MatMulLoop(a, b, c, m, k, n, MatMulRowF32);
}
void MatMulF64(const double* a, const double* b, double* c, int m, int k, int n) {
  matrix_detail::MatMulLoop(a, b, c, m, k, n, MatMulRowF64);
}

}  // namespace scalar
}  // namespace bivista
#endif
