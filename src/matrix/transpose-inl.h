// Per-target float transposes in 4 x 4 register blocks, shared by the matrix helpers and the
// line solves of the smoother: dst[c * dstStep + r] = src[r * srcStride + c].
#if defined(BIVISTA_TRANSPOSE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef BIVISTA_TRANSPOSE_INL_H_
#undef BIVISTA_TRANSPOSE_INL_H_
#else
#define BIVISTA_TRANSPOSE_INL_H_
#endif

#include <stddef.h>

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR
// 4 x 4 float block: rows r0..r3 in, columns out.
template <class D, class V>
HWY_INLINE void Transpose4(D d, V& r0, V& r1, V& r2, V& r3) {
  const V t0 = hn::InterleaveLower(d, r0, r1);
  const V t1 = hn::InterleaveLower(d, r2, r3);
  const V t2 = hn::InterleaveUpper(d, r0, r1);
  const V t3 = hn::InterleaveUpper(d, r2, r3);
  r0 = hn::ConcatLowerLower(d, t1, t0);
  r1 = hn::ConcatUpperUpper(d, t1, t0);
  r2 = hn::ConcatLowerLower(d, t3, t2);
  r3 = hn::ConcatUpperUpper(d, t3, t2);
}

// Rows r0..r3 of a block, transposed, to destination rows o, o + step, ...
template <class D, class V>
HWY_INLINE void StoreTransposed4(D d, V v0, V v1, V v2, V v3, float* o, ptrdiff_t step) {
  Transpose4(d, v0, v1, v2, v3);
  hn::StoreU(v0, d, o);
  hn::StoreU(v1, d, o + step);
  hn::StoreU(v2, d, o + 2 * step);
  hn::StoreU(v3, d, o + 3 * step);
}
#endif

// The right columns of the first r4 rows, then the rows from r4 on, element by element.
template <typename TS, typename TD>
HWY_INLINE void TransposeEdges(const TS* src, ptrdiff_t srcStride, int rows, int cols, TD* dst,
                               ptrdiff_t step, int r4, int c4) {
  for (int r = 0; r < r4; ++r)
    for (int c = c4; c < cols; ++c) dst[c * step + r] = static_cast<TD>(src[r * srcStride + c]);
  for (int r = r4; r < rows; ++r)
    for (int c = 0; c < cols; ++c) dst[c * step + r] = static_cast<TD>(src[r * srcStride + c]);
}

HWY_INLINE void TransposeBlockF32(const float* src, ptrdiff_t srcStride, int rows, int cols,
                                  float* dst, ptrdiff_t step) {
#if HWY_TARGET != HWY_SCALAR
  const int r4 = rows & ~3, c4 = cols & ~3;
  const hn::FixedTag<float, 4> d;
  for (int r = 0; r < r4; r += 4) {
    const float* s = src + r * srcStride;
    for (int c = 0; c < c4; c += 4) {
      StoreTransposed4(d, hn::LoadU(d, s + c), hn::LoadU(d, s + srcStride + c),
                       hn::LoadU(d, s + 2 * srcStride + c), hn::LoadU(d, s + 3 * srcStride + c),
                       dst + c * step + r, step);
    }
  }
  TransposeEdges(src, srcStride, rows, cols, dst, step, r4, c4);
#else
  TransposeEdges(src, srcStride, rows, cols, dst, step, 0, cols);
#endif
}

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#endif
