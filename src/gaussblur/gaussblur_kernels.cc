// Vector row kernels of the Gaussian blur, compiled once per target and dispatched at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "gaussblur/gaussblur_kernels.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include "gaussblur/gaussblur_kernels.h"

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

inline void HVPixel(const uint8_t* const* rows, const uint8_t* next, uint8_t* hNext,
                    uint8_t* dst, int x, int width, const uint16_t* k, int radius) {
  const uint8_t h = HPixel(next, x, width, k, radius);
  const uint8_t v = VPixel(rows, h, x, k, radius);
  hNext[x] = h;  // after rows[0][x] was read: hNext may alias rows[0]
  dst[x] = v;
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

// (sum of pairs x taps + centre x centre tap + 128) >> 8 on 16-bit lanes: at most 65408.
template <int R>
HWY_INLINE V16 HVec(const uint8_t* s, const V16* kv, V16 round) {
  V16 acc = hn::Add(hn::Mul(Load8(s), kv[R]), round);
  for (int j = 1; j <= R; ++j) {
    acc = hn::Add(acc, hn::Mul(hn::Add(Load8(s - j), Load8(s + j)), kv[R - j]));
  }
  return hn::ShiftRight<8>(acc);
}

template <int R>
HWY_INLINE void SetTaps(const uint16_t* kernel, V16* kv) {
  for (int j = 0; j <= R; ++j) kv[j] = hn::Set(D16(), kernel[j]);
}

// Columns [R, end) go through vectors; the rest pixel by pixel.
template <int R>
HWY_INLINE int VectorEnd(int width) {
  const int n = static_cast<int>(hn::Lanes(D16()));
  return width - R >= R + n ? R + (width - 2 * R - n) / n * n + n : R;
}

template <int R>
void RowH(const uint8_t* src, uint8_t* dst, int width, const uint16_t* kernel) {
  const D16 d;
  const int n = static_cast<int>(hn::Lanes(d));
  V16 kv[R + 1];
  SetTaps<R>(kernel, kv);
  const V16 round = hn::Set(d, 128);
  const int end = VectorEnd<R>(width);
  for (int x = R; x < end; x += n) Store8(HVec<R>(src + x, kv, round), dst + x);
  for (int x = 0; x < R && x < width; ++x) dst[x] = gauss_detail::HPixel(src, x, width, kernel, R);
  for (int x = end; x < width; ++x) dst[x] = gauss_detail::HPixel(src, x, width, kernel, R);
}

template <int R>
HWY_INLINE V16 VVec(const uint8_t* const* rows, V16 bottom, int x, const V16* kv, V16 round) {
  V16 acc = hn::Add(hn::Mul(Load8(rows[R] + x), kv[R]), round);
  for (int j = 1; j <= R; ++j) {
    const V16 below = j == R ? bottom : Load8(rows[R + j] + x);
    acc = hn::Add(acc, hn::Mul(hn::Add(Load8(rows[R - j] + x), below), kv[R - j]));
  }
  return hn::ShiftRight<8>(acc);
}

template <int R>
void RowV(const uint8_t* const* rows, uint8_t* dst, int width, const uint16_t* kernel) {
  const D16 d;
  const int n = static_cast<int>(hn::Lanes(d));
  V16 kv[R + 1];
  SetTaps<R>(kernel, kv);
  const V16 round = hn::Set(d, 128);
  int x = 0;
  for (; x + n <= width; x += n) {
    Store8(VVec<R>(rows, Load8(rows[2 * R] + x), x, kv, round), dst + x);
  }
  for (; x < width; ++x) dst[x] = gauss_detail::VPixel(rows, rows[2 * R][x], x, kernel, R);
}

template <int R>
void RowHV(const uint8_t* const* rows, const uint8_t* next, uint8_t* hNext, uint8_t* dst,
           int width, const uint16_t* kernel) {
  const D16 d;
  const int n = static_cast<int>(hn::Lanes(d));
  V16 kv[R + 1];
  SetTaps<R>(kernel, kv);
  const V16 round = hn::Set(d, 128);
  const int end = VectorEnd<R>(width);
  for (int x = R; x < end; x += n) {
    const V16 h = HVec<R>(next + x, kv, round);
    const V16 v = VVec<R>(rows, h, x, kv, round);
    Store8(h, hNext + x);
    Store8(v, dst + x);
  }
  for (int x = 0; x < R && x < width; ++x) {
    gauss_detail::HVPixel(rows, next, hNext, dst, x, width, kernel, R);
  }
  for (int x = end; x < width; ++x) {
    gauss_detail::HVPixel(rows, next, hNext, dst, x, width, kernel, R);
  }
}

void GaussRowH(const uint8_t* src, uint8_t* dst, int width, const uint16_t* kernel, int radius) {
  switch (radius) {
    case 1: return RowH<1>(src, dst, width, kernel);
    case 2: return RowH<2>(src, dst, width, kernel);
    case 3: return RowH<3>(src, dst, width, kernel);
    default: return;
  }
}

void GaussRowV(const uint8_t* const* rows, uint8_t* dst, int width, const uint16_t* kernel,
               int radius) {
  switch (radius) {
    case 1: return RowV<1>(rows, dst, width, kernel);
    case 2: return RowV<2>(rows, dst, width, kernel);
    case 3: return RowV<3>(rows, dst, width, kernel);
    default: return;
  }
}

void GaussRowHV(const uint8_t* const* rows, const uint8_t* next, uint8_t* hNext, uint8_t* dst,
                int width, const uint16_t* kernel, int radius) {
  switch (radius) {
    case 1: return RowHV<1>(rows, next, hNext, dst, width, kernel);
    case 2: return RowHV<2>(rows, next, hNext, dst, width, kernel);
    case 3: return RowHV<3>(rows, next, hNext, dst, width, kernel);
    default: return;
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace bivista {

HWY_EXPORT(GaussRowH);
HWY_EXPORT(GaussRowV);
HWY_EXPORT(GaussRowHV);

void GaussRowH(const uint8_t* src, uint8_t* dst, int width, const uint16_t* kernel, int radius) {
  HWY_DYNAMIC_DISPATCH(GaussRowH)(src, dst, width, kernel, radius);
}

void GaussRowV(const uint8_t* const* rows, uint8_t* dst, int width, const uint16_t* kernel,
               int radius) {
  HWY_DYNAMIC_DISPATCH(GaussRowV)(rows, dst, width, kernel, radius);
}

void GaussRowHV(const uint8_t* const* rows, const uint8_t* next, uint8_t* hNext, uint8_t* dst,
                int width, const uint16_t* kernel, int radius) {
  HWY_DYNAMIC_DISPATCH(GaussRowHV)(rows, next, hNext, dst, width, kernel, radius);
}

namespace scalar {

void GaussRowH(const uint8_t* src, uint8_t* dst, int width, const uint16_t* kernel, int radius) {
  for (int x = 0; x < width; ++x) dst[x] = gauss_detail::HPixel(src, x, width, kernel, radius);
}

void GaussRowV(const uint8_t* const* rows, uint8_t* dst, int width, const uint16_t* kernel,
               int radius) {
  for (int x = 0; x < width; ++x) {
    dst[x] = gauss_detail::VPixel(rows, rows[2 * radius][x], x, kernel, radius);
  }
}

void GaussRowHV(const uint8_t* const* rows, const uint8_t* next, uint8_t* hNext, uint8_t* dst,
                int width, const uint16_t* kernel, int radius) {
  for (int x = 0; x < width; ++x) {
    gauss_detail::HVPixel(rows, next, hNext, dst, x, width, kernel, radius);
  }
}

}  // namespace scalar
}  // namespace bivista
#endif
