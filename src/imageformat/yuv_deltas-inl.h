// Chroma contributions of the floating-point NV12-to-RGB conversion in 32-bit integer lanes,
// shared by every kernel that reproduces that conversion's bytes. Included once per target.
#if defined(BIVISTA_IMAGEFORMAT_YUV_DELTAS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef BIVISTA_IMAGEFORMAT_YUV_DELTAS_INL_H_
#undef BIVISTA_IMAGEFORMAT_YUV_DELTAS_INL_H_
#else
#define BIVISTA_IMAGEFORMAT_YUV_DELTAS_INL_H_
#endif

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR
// floor(n / 1000) for n = c0 x k0 + c1 x k1 with |c| <= 128: with Y entering every channel
// with weight one, the double arithmetic of the definition always truncates to this exact
// rational floor (see docs/imageformat.md), so a channel is clamp(Y + delta). In 20-bit fixed
// point the coefficients k / 1000 are off by at most 2^-21 each, so c0 x k0' + c1 x k1' lies
// within 1.3e-4 of n / 1000; the bias of 524 / 2^20 (5.0e-4) keeps the sum inside
// [n / 1000, n / 1000 + 0.001), where the floor is that of n / 1000 (n is an integer). The
// products stay below 2^28. Proven on every chroma pair by the conversion's test.
template <class V>
HWY_INLINE V FixedFloor1000(V sum) {
  return hn::ShiftRight<20>(hn::Add(sum, hn::Set(hn::DFromV<V>(), 524)));
}

// cu = U - 128, cv = V - 128; coefficients round(k x 2^20 / 1000).
template <class V>
HWY_INLINE V FloatDeltaR(V cv) {
  return FixedFloor1000(hn::Mul(cv, hn::Set(hn::DFromV<V>(), 1471152)));  // 1.403
}
template <class V>
HWY_INLINE V FloatDeltaG(V cu, V cv) {
  const hn::DFromV<V> d;
  return FixedFloor1000(hn::Add(hn::Mul(cu, hn::Set(d, -748683)),    // 0.714
                                hn::Mul(cv, hn::Set(d, -360710))));  // 0.344
}
template <class V>
HWY_INLINE V FloatDeltaB(V cu) {
  return FixedFloor1000(hn::Mul(cu, hn::Set(hn::DFromV<V>(), 1859125)));  // 1.773
}
#endif

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#endif
