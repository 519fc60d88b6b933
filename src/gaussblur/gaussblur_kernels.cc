// Strip and border kernels of the Gaussian blur, compiled once per target and dispatched once per
// strip or border block.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "gaussblur/gaussblur_kernels.cc"
#include "gaussblur/gaussblur_kernels.h"

#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

// Shared scalar pieces, defined once (outside the per-target part).
#ifndef BIVISTA_GAUSSBLUR_KERNELS_SCALAR_ONCE
#define BIVISTA_GAUSSBLUR_KERNELS_SCALAR_ONCE
namespace bivista {
namespace gauss_detail {

inline int Mirror(int x, int width) {
  if (x < 0) return -x;
  if (x >= width) return 2 * (width - 1) - x;
  return x;
}

// One pixel of the horizontal pass with mirrored columns.
inline uint8_t HPixel(const uint8_t* src, int x, int width, const uint16_t* k, int radius) {
  uint32_t acc = static_cast<uint32_t>(src[x]) * k[radius] + 128;
  for (int j = 1; j <= radius; ++j) {
    acc += (static_cast<uint32_t>(src[Mirror(x - j, width)]) + src[Mirror(x + j, width)]) *
           k[radius - j];
  }
  return static_cast<uint8_t>(acc >> 8);
}

// One pixel of the vertical pass; bottom is the value of the last row (passed apart because
// the fused kernel has it only in a register).
inline uint8_t VPixel(const uint8_t* const* rows, uint8_t bottom, int x, const uint16_t* k,
                      int radius) {
  uint32_t acc = static_cast<uint32_t>(rows[radius][x]) * k[radius] + 128;
  for (int j = 1; j <= radius; ++j) {
    const uint32_t below = j == radius ? bottom : rows[radius + j][x];
    acc += (static_cast<uint32_t>(rows[radius - j][x]) + below) * k[radius - j];
  }
  return static_cast<uint8_t>(acc >> 8);
}

inline void HVPixel(const uint8_t* const* rows, const uint8_t* next, uint8_t* hNext, uint8_t* dst,
                    int x, int width, const uint16_t* k, int radius) {
  const uint8_t h = HPixel(next, x, width, k, radius);
  const uint8_t v = VPixel(rows, h, x, k, radius);
  hNext[x] = h;  // after rows[0][x] was read: hNext may alias rows[0]
  dst[x] = v;
}

// The ring walk of one strip, shared by the scalar definition and every target. Rows provides
// H(src, dst) and HV(window, next, hNext, dst) for one row each.
template <class Rows>
void StripLoop(const GaussStripArgs& a, const Rows& rows) {
  const int r = a.radius;
  const int window = 2 * r;
  const auto source = [&a](int i) -> const uint8_t* {
    if (i < 0) return a.above + (i + a.radius) * a.srcStride;
    if (i < a.count) return a.src + i * a.srcStride;
    return a.below + (i - a.count) * a.srcStride;
  };
  uint8_t* slot[2 * kGaussMaxRadius];
  for (int j = 0; j < window; ++j) {
    slot[j] = a.scratch + j * a.scratchStride;
    rows.H(source(j - r), slot[j]);
  }
  const uint8_t* win[2 * kGaussMaxRadius];
  for (int i = 0; i < a.count; ++i) {
    const int oldest = i % window;
    for (int j = 0; j < window; ++j) win[j] = slot[(oldest + j) % window];
    rows.HV(win, source(i + r), slot[oldest], a.dst + i * a.dstStride);
  }
}

// Every horizontal pass first, then the vertical ones (dst may alias a source row).
template <class Rows>
void BorderLoop(const GaussBorderArgs& a, const Rows& rows) {
  for (int j = 0; j < 2 * a.radius; ++j) rows.H(a.src[j], a.h[j]);
  const uint8_t* win[kGaussWindow];
  for (int o = 0; o < a.radius; ++o) {
    for (int j = 0; j <= 2 * a.radius; ++j) win[j] = a.h[a.map[o][j]];
    rows.V(win, a.dst[o]);
  }
}

}  // namespace gauss_detail
}  // namespace bivista
#endif

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D16 = hn::ScalableTag<uint16_t>;
using D8 = hn::Rebind<uint8_t, D16>;
using V16 = hn::Vec<D16>;

HWY_INLINE V16 Load8(const uint8_t* p) { return hn::PromoteTo(D16(), hn::LoadU(D8(), p)); }

HWY_INLINE void Store8(V16 v, uint8_t* p) {
  // Values are at most 255 here, so the saturating signed demotion is exact.
  const hn::RebindToSigned<D16> di;
  hn::StoreU(hn::DemoteTo(D8(), hn::BitCast(di, v)), D8(), p);
}

// Taps as vectors: c is the centre tap, pj the tap at distance j (unused beyond the radius).
// Passed one by one: SVE vectors are sizeless and cannot live in arrays or structs.
#define BV_TAP_PARAMS V16 c, V16 p1, V16 p2, V16 p3, V16 round
#define BV_TAP_ARGS c, p1, p2, p3, round
#define BV_SET_TAPS(k)                                                   \
  const V16 c = hn::Set(D16(), (k)[R]), p1 = hn::Set(D16(), (k)[R - 1]), \
            p2 = hn::Set(D16(), (k)[R >= 2 ? R - 2 : 0]),                \
            p3 = hn::Set(D16(), (k)[R >= 3 ? R - 3 : 0]), round = hn::Set(D16(), 128)

// (sum of pairs x taps + centre x centre tap + 128) >> 8 on 16-bit lanes: at most 65408.
template <int R>
HWY_INLINE V16 HVec(const uint8_t* s, BV_TAP_PARAMS) {
  V16 acc = hn::Add(hn::Mul(Load8(s), c), round);
  acc = hn::Add(acc, hn::Mul(hn::Add(Load8(s - 1), Load8(s + 1)), p1));
  if constexpr (R >= 2) acc = hn::Add(acc, hn::Mul(hn::Add(Load8(s - 2), Load8(s + 2)), p2));
  if constexpr (R >= 3) acc = hn::Add(acc, hn::Mul(hn::Add(Load8(s - 3), Load8(s + 3)), p3));
  return hn::ShiftRight<8>(acc);
}

// rows[0 .. 2R-1] are the rows above `bottom`, the last row of the window.
template <int R>
HWY_INLINE V16 VVec(const uint8_t* const* rows, V16 bottom, int x, BV_TAP_PARAMS) {
  V16 acc = hn::Add(hn::Mul(Load8(rows[R] + x), c), round);
  const V16 below1 = R == 1 ? bottom : Load8(rows[R + 1 < 2 * R ? R + 1 : 0] + x);
  acc = hn::Add(acc, hn::Mul(hn::Add(Load8(rows[R - 1] + x), below1), p1));
  if constexpr (R >= 2) {
    const V16 below2 = R == 2 ? bottom : Load8(rows[R + 2 < 2 * R ? R + 2 : 0] + x);
    acc = hn::Add(acc, hn::Mul(hn::Add(Load8(rows[R - 2] + x), below2), p2));
  }
  if constexpr (R >= 3) {
    acc = hn::Add(acc, hn::Mul(hn::Add(Load8(rows[0] + x), bottom), p3));
  }
  return hn::ShiftRight<8>(acc);
}

// Vectors cover columns [R, width - R): whole vectors from R on and one last vector ending at
// width - R, which may overlap the one before it. Returns the start of that last vector, or -1
// when the row is too short for one (then every column goes pixel by pixel).
template <int R>
HWY_INLINE int LastVector(int width) {
  const int last = width - R - static_cast<int>(hn::Lanes(D16()));
  return last >= R ? last : -1;
}

template <int R>
void RowH(const uint8_t* src, uint8_t* dst, int width, const uint16_t* kernel) {
  uint16_t k[2 * R + 1];  // local: the byte stores below cannot alias it
  for (int j = 0; j <= 2 * R; ++j) k[j] = kernel[j];
  BV_SET_TAPS(k);
  const int n = static_cast<int>(hn::Lanes(D16()));
  const int last = LastVector<R>(width);
  if (last < 0) {
    for (int x = 0; x < width; ++x) dst[x] = gauss_detail::HPixel(src, x, width, k, R);
    return;
  }
  for (int x = R; x < last; x += n) Store8(HVec<R>(src + x, BV_TAP_ARGS), dst + x);
  Store8(HVec<R>(src + last, BV_TAP_ARGS), dst + last);
  for (int x = 0; x < R; ++x) dst[x] = gauss_detail::HPixel(src, x, width, k, R);
  for (int x = width - R; x < width; ++x) dst[x] = gauss_detail::HPixel(src, x, width, k, R);
}

template <int R>
void RowV(const uint8_t* const* rows, uint8_t* dst, int width, const uint16_t* kernel) {
  uint16_t k[2 * R + 1];
  for (int j = 0; j <= 2 * R; ++j) k[j] = kernel[j];
  BV_SET_TAPS(k);
  const int n = static_cast<int>(hn::Lanes(D16()));
  if (width < n) {
    for (int x = 0; x < width; ++x) dst[x] = gauss_detail::VPixel(rows, rows[2 * R][x], x, k, R);
    return;
  }
  // dst is none of the rows: an overlapping last vector rewrites the same values.
  for (int x = 0; x < width - n; x += n) {
    Store8(VVec<R>(rows, Load8(rows[2 * R] + x), x, BV_TAP_ARGS), dst + x);
  }
  Store8(VVec<R>(rows, Load8(rows[2 * R] + width - n), width - n, BV_TAP_ARGS), dst + width - n);
}

template <int R>
void RowHV(const uint8_t* const* rowsIn, const uint8_t* next, uint8_t* hNext, uint8_t* dst,
           int width, const uint16_t* kernel) {
  uint16_t k[2 * R + 1];
  for (int j = 0; j <= 2 * R; ++j) k[j] = kernel[j];
  const uint8_t* rows[2 * R];  // local: the byte stores cannot change them
  for (int j = 0; j < 2 * R; ++j) rows[j] = rowsIn[j];
  BV_SET_TAPS(k);
  const int n = static_cast<int>(hn::Lanes(D16()));
  const int last = LastVector<R>(width);
  if (last < 0) {
    for (int x = 0; x < width; ++x) gauss_detail::HVPixel(rows, next, hNext, dst, x, width, k, R);
    return;
  }
  // hNext may alias rows[0]: the last vector is computed before the loop overwrites any of its
  // columns and stored after it, so the overlap rewrites the same values.
  const V16 hLast = HVec<R>(next + last, BV_TAP_ARGS);
  const V16 vLast = VVec<R>(rows, hLast, last, BV_TAP_ARGS);
  for (int x = R; x < last; x += n) {
    const V16 h = HVec<R>(next + x, BV_TAP_ARGS);
    const V16 v = VVec<R>(rows, h, x, BV_TAP_ARGS);
    Store8(h, hNext + x);  // after VVec read rows[0]: hNext may alias it
    Store8(v, dst + x);
  }
  Store8(hLast, hNext + last);
  Store8(vLast, dst + last);
  for (int x = 0; x < R; ++x) gauss_detail::HVPixel(rows, next, hNext, dst, x, width, k, R);
  for (int x = width - R; x < width; ++x) {
    gauss_detail::HVPixel(rows, next, hNext, dst, x, width, k, R);
  }
}

#undef BV_TAP_PARAMS
#undef BV_TAP_ARGS
#undef BV_SET_TAPS

// One target's rows for radius R, with the taps copied once per strip.
template <int R>
struct VecRows {
  const uint16_t* k;
  int width;
  void H(const uint8_t* s, uint8_t* d) const { RowH<R>(s, d, width, k); }
  void V(const uint8_t* const* w, uint8_t* d) const { RowV<R>(w, d, width, k); }
  void HV(const uint8_t* const* w, const uint8_t* next, uint8_t* hNext, uint8_t* d) const {
    RowHV<R>(w, next, hNext, d, width, k);
  }
};

template <int R>
void StripR(const GaussStripArgs& a) {
  uint16_t k[2 * R + 1];
  for (int j = 0; j <= 2 * R; ++j) k[j] = a.kernel[j];
  gauss_detail::StripLoop(a, VecRows<R>{k, a.width});
}

template <int R>
void BorderR(const GaussBorderArgs& a) {
  uint16_t k[2 * R + 1];
  for (int j = 0; j <= 2 * R; ++j) k[j] = a.kernel[j];
  gauss_detail::BorderLoop(a, VecRows<R>{k, a.width});
}

// Radius 1 to 3; other radii do nothing.
void GaussStrip(const GaussStripArgs& a) {
  static constexpr decltype(&StripR<1>) kStrips[] = {StripR<1>, StripR<2>, StripR<3>};
  if (a.radius >= 1 && a.radius <= kGaussMaxRadius) kStrips[a.radius - 1](a);
}

void GaussBorder(const GaussBorderArgs& a) {
  static constexpr decltype(&BorderR<1>) kBorders[] = {BorderR<1>, BorderR<2>, BorderR<3>};
  if (a.radius >= 1 && a.radius <= kGaussMaxRadius) kBorders[a.radius - 1](a);
}

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace bivista {

HWY_EXPORT(GaussStrip);
HWY_EXPORT(GaussBorder);

void GaussStrip(const GaussStripArgs& args) { HWY_DYNAMIC_DISPATCH(GaussStrip)(args); }
void GaussBorder(const GaussBorderArgs& args) { HWY_DYNAMIC_DISPATCH(GaussBorder)(args); }

namespace scalar {
namespace {

// The definition pixel by pixel.
struct ScalarRows {
  const uint16_t* k;
  int width;
  int r;
  void H(const uint8_t* s, uint8_t* d) const {
    for (int x = 0; x < width; ++x) d[x] = gauss_detail::HPixel(s, x, width, k, r);
  }
  void V(const uint8_t* const* w, uint8_t* d) const {
    for (int x = 0; x < width; ++x) d[x] = gauss_detail::VPixel(w, w[2 * r][x], x, k, r);
  }
  void HV(const uint8_t* const* w, const uint8_t* next, uint8_t* hNext, uint8_t* d) const {
    for (int x = 0; x < width; ++x) gauss_detail::HVPixel(w, next, hNext, d, x, width, k, r);
  }
};

}  // namespace

void GaussStrip(const GaussStripArgs& args) {
  gauss_detail::StripLoop(args, ScalarRows{args.kernel, args.width, args.radius});
}

void GaussBorder(const GaussBorderArgs& args) {
  gauss_detail::BorderLoop(args, ScalarRows{args.kernel, args.width, args.radius});
}

}  // namespace scalar
}  // namespace bivista
#endif
