// Per-target helpers of the bilinear rows: the blend of four samples, and the sample pairs
// (x0, x0 + 1) of a vector of columns read from a window of up to three vectors loaded at the
// first column, by lane permutes instead of gathers (gathers are slow on many cores).
#if defined(BIVISTA_BILINEAR_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef BIVISTA_BILINEAR_INL_H_
#undef BIVISTA_BILINEAR_INL_H_
#else
#define BIVISTA_BILINEAR_INL_H_
#endif

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR
// (a(1 - ax) + b ax)(1 - ay) + (c(1 - ax) + d ax) ay, in this order; nay = 1 - ay.
template <class DF>
HWY_INLINE hn::Vec<DF> BlendV(DF df, hn::Vec<DF> a, hn::Vec<DF> b, hn::Vec<DF> c, hn::Vec<DF> d,
                              hn::Vec<DF> ax, hn::Vec<DF> ay, hn::Vec<DF> nay) {
  const auto nax = hn::Sub(hn::Set(df, 1.0f), ax);
  const auto top = hn::Add(hn::Mul(a, nax), hn::Mul(b, ax));
  const auto bottom = hn::Add(hn::Mul(c, nax), hn::Mul(d, ax));
  return hn::Add(hn::Mul(top, nay), hn::Mul(bottom, ay));
}

constexpr int kMaxWindows = 3;

// Number of window vectors the pairs of a vector need: the columns run from `first` to `last`
// (inclusive, plus the right neighbour). 0 when they do not fit.
HWY_INLINE int WindowsFor(int first, int last, int lanes) {
  const int span = last + 2 - first;
  for (int k = 1; k <= kMaxWindows; ++k)
    if (span <= k * lanes) return k;
  return 0;
}

// For two rows at once (the lane indices are shared): a[k] = top[idx[k]], b[k] = top[idx[k] + 1],
// c and e likewise from the bottom row; each window is the vectors t0, t1, t2 (u0.. below) in
// turn, of which the first K are read. (No arrays: scalable vectors cannot be array elements.)
template <int K, class D>
HWY_INLINE void PairLookup(D d, hn::Vec<D> t0, hn::Vec<D> t1, hn::Vec<D> t2, hn::Vec<D> u0,
                           hn::Vec<D> u1, hn::Vec<D> u2, hn::Vec<hn::RebindToSigned<D>> idx,
                           hn::Vec<D>& a, hn::Vec<D>& b, hn::Vec<D>& c, hn::Vec<D>& e) {
  const hn::RebindToSigned<D> di;
  using TI = hn::TFromD<decltype(di)>;
  const TI lanes = static_cast<TI>(hn::Lanes(d));
  const auto last = hn::Set(di, lanes - 1);
  const auto none = hn::Set(di, -1);
  auto pick = [&](hn::Vec<decltype(di)> ix, hn::Vec<D>& fromTop, hn::Vec<D>& fromBottom) {
    const auto i0 = hn::IndicesFromVec(d, K == 1 ? ix : hn::Min(ix, last));
    fromTop = hn::TableLookupLanes(t0, i0);
    fromBottom = hn::TableLookupLanes(u0, i0);
    // Lanes past a window's start take from it; a later window overwrites them again.
    if (K > 1) {
      const auto local = hn::Sub(ix, hn::Set(di, lanes));
      const auto inside = hn::RebindMask(d, hn::Gt(local, none));
      const auto i1 = hn::IndicesFromVec(d, hn::Min(hn::Max(local, hn::Zero(di)), last));
      fromTop = hn::IfThenElse(inside, hn::TableLookupLanes(t1, i1), fromTop);
      fromBottom = hn::IfThenElse(inside, hn::TableLookupLanes(u1, i1), fromBottom);
    }
    if (K > 2) {
      const auto local = hn::Sub(ix, hn::Set(di, static_cast<TI>(2 * lanes)));
      const auto inside = hn::RebindMask(d, hn::Gt(local, none));
      const auto i2 = hn::IndicesFromVec(d, hn::Min(hn::Max(local, hn::Zero(di)), last));
      fromTop = hn::IfThenElse(inside, hn::TableLookupLanes(t2, i2), fromTop);
      fromBottom = hn::IfThenElse(inside, hn::TableLookupLanes(u2, i2), fromBottom);
    }
  };
  pick(idx, a, c);
  pick(hn::Add(idx, hn::Set(di, 1)), b, e);
}

// Loads the windows of both rows with load(row, k) and looks the pairs up.
template <int K, class D, class Load>
HWY_INLINE void WindowPairs(D d, Load load, hn::Vec<hn::RebindToSigned<D>> idx, hn::Vec<D>& a,
                            hn::Vec<D>& b, hn::Vec<D>& c, hn::Vec<D>& e) {
  PairLookup<K>(d, load(0, 0), K > 1 ? load(0, 1) : hn::Zero(d), K > 2 ? load(0, 2) : hn::Zero(d),
                load(1, 0), K > 1 ? load(1, 1) : hn::Zero(d), K > 2 ? load(1, 2) : hn::Zero(d), idx,
                a, b, c, e);
}

template <class D, class Load>
HWY_INLINE void WindowPairs(D d, int windows, Load load, hn::Vec<hn::RebindToSigned<D>> idx,
                            hn::Vec<D>& a, hn::Vec<D>& b, hn::Vec<D>& c, hn::Vec<D>& e) {
  if (windows == 1)
    WindowPairs<1>(d, load, idx, a, b, c, e);
  else if (windows == 2)
    WindowPairs<2>(d, load, idx, a, b, c, e);
  else
    WindowPairs<3>(d, load, idx, a, b, c, e);
}
#endif

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#endif
