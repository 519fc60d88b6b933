// Strip and border kernels of the Gaussian blur, compiled once per target and dispatched once per
// strip or border block.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "gaussblur/gaussblur_kernels.cc"
#include "gaussblur/gaussblur_kernels.h"

#include "hwy/cache_control.h"
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

// Whether radius-1 taps c = k[1], p1 = k[0] sum to 256 (then p1 <= 128): the vector fused row
// then takes a shorter form (UnitTerm); any other taps (callers may pass them) keep the general
// one. Checked once per strip.
inline bool UnitTaps(const uint16_t* k) { return k[1] + 2 * k[0] == 256; }

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
  int ask = a.more != nullptr && a.chunkRows > 0 ? a.chunkRows : a.count;
  for (int i = 0; i < a.count; ++i) {
    if (i == ask) {
      if (!a.more(a.context)) break;
      ask += a.chunkRows;
    }
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

#if HWY_TARGET != HWY_SCALAR
// Bytes are filtered as the even and odd halves of 16-bit lanes: a full vector of bytes is
// Lanes(D16) even and as many odd columns, with no lane shuffles to widen or narrow them.
using D8 = hn::ScalableTag<uint8_t>;
using D16 = hn::Repartition<uint16_t, D8>;
using V16 = hn::Vec<D16>;

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
// Two 32-byte halves: a 64-byte load that straddles two cache lines is several times slower
// when the lines come from the last-level cache (measured on the plane, not in L1).
HWY_INLINE V16 LoadPairs(const uint8_t* p) {
  const hn::Half<D8> dh;
  return hn::BitCast(D16(), hn::Combine(D8(), hn::LoadU(dh, p + hn::Lanes(dh)), hn::LoadU(dh, p)));
}
#else
HWY_INLINE V16 LoadPairs(const uint8_t* p) { return hn::BitCast(D16(), hn::LoadU(D8(), p)); }
#endif
// Rows of the ring stay in the first-level cache: one load whatever its alignment.
HWY_INLINE V16 LoadNear(const uint8_t* p) { return hn::BitCast(D16(), hn::LoadU(D8(), p)); }
HWY_INLINE V16 Even(V16 w) { return hn::And(w, hn::Set(D16(), 0xFF)); }
HWY_INLINE V16 Odd(V16 w) { return hn::ShiftRight<8>(w); }
// The bytes of two sums (see Taps) as the even and odd bytes: sum >> 8 of each, the odd one
// already in place in its high byte.
HWY_INLINE hn::Vec<D8> SumBytes(V16 even, V16 odd) {
  return hn::BitCast(D8(), hn::OrAnd(hn::ShiftRight<8>(even), odd, hn::Set(D16(), 0xFF00)));
}
HWY_INLINE void StoreSums(V16 even, V16 odd, uint8_t* p) {
  hn::StoreU(SumBytes(even, odd), D8(), p);
}

// Taps as vectors: c is the centre tap, pj the tap at distance j (unused beyond the radius).
// Passed one by one: SVE vectors are sizeless and cannot live in arrays or structs.
#define BV_TAP_PARAMS V16 c, V16 p1, V16 p2, V16 p3, V16 round
#define BV_TAP_ARGS c, p1, p2, p3, round
#define BV_SET_TAPS(k)                                                   \
  const V16 c = hn::Set(D16(), (k)[R]), p1 = hn::Set(D16(), (k)[R - 1]), \
            p2 = hn::Set(D16(), (k)[R >= 2 ? R - 2 : 0]),                \
            p3 = hn::Set(D16(), (k)[R >= 3 ? R - 3 : 0]), round = hn::Set(D16(), 128)

// b0 x c + (m1 + q1) x p1 + (m2 + q2) x p2 + (m3 + q3) x p3 + 128 on 16-bit lanes (at most
// 65408; the pixel is this sum >> 8); mj and qj are the values at distance j before and after b0.
template <int R>
HWY_INLINE V16 Taps(V16 m3, V16 m2, V16 m1, V16 b0, V16 q1, V16 q2, V16 q3, BV_TAP_PARAMS) {
  V16 acc = hn::Add(hn::Mul(b0, c), round);
  acc = hn::Add(acc, hn::Mul(hn::Add(m1, q1), p1));
  if constexpr (R >= 2) acc = hn::Add(acc, hn::Mul(hn::Add(m2, q2), p2));
  if constexpr (R >= 3) acc = hn::Add(acc, hn::Mul(hn::Add(m3, q3), p3));
  return acc;
}

// Horizontal pass of the 2 x Lanes(D16) columns from s: bytes s[2i + t] for t in [-R, R + 1]
// come from R + 1 loads at s - R, s - R + 2, ..., s + R (the even and odd byte of each lane).
#define BV_H_BYTES(s)                                                                  \
  const V16 zero = hn::Zero(D16());                                                    \
  V16 bm3 = zero, bm2 = zero, bm1 = zero, b0 = zero, b1 = zero, b2 = zero, b3 = zero, \
      b4 = zero;                                                                       \
  if constexpr (R == 1) {                                                              \
    const V16 w0 = LoadPairs((s) - 1), w1 = LoadPairs((s) + 1);                        \
    bm1 = Even(w0), b0 = Odd(w0), b1 = Even(w1), b2 = Odd(w1);                         \
  } else if constexpr (R == 2) {                                                       \
    const V16 w0 = LoadPairs((s) - 2), w1 = LoadPairs(s), w2 = LoadPairs((s) + 2);     \
    bm2 = Even(w0), bm1 = Odd(w0), b0 = Even(w1), b1 = Odd(w1), b2 = Even(w2),         \
    b3 = Odd(w2);                                                                      \
  } else {                                                                             \
    const V16 w0 = LoadPairs((s) - 3), w1 = LoadPairs((s) - 1), w2 = LoadPairs((s) + 1), \
              w3 = LoadPairs((s) + 3);                                                 \
    bm3 = Even(w0), bm2 = Odd(w0), bm1 = Even(w1), b0 = Odd(w1), b1 = Even(w2),        \
    b2 = Odd(w2), b3 = Even(w3), b4 = Odd(w3);                                         \
  }                                                                                    \
  const V16 hEvenSum = Taps<R>(bm3, bm2, bm1, b0, b1, b2, b3, BV_TAP_ARGS);            \
  const V16 hOddSum = Taps<R>(bm2, bm1, b0, b1, b2, b3, b4, BV_TAP_ARGS)

// Vertical pass at column x of the rows above (rows[0 .. 2R-1]) and the bottom row's halves.
#define BV_V_PAIRS(rows, x, bottomEven, bottomOdd, vEven, vOdd)                            \
  V16 vEven, vOdd;                                                                         \
  {                                                                                        \
    const V16 w0 = LoadNear((rows)[0] + (x)), w1 = LoadNear((rows)[1] + (x));            \
    const V16 w2 = R >= 2 ? LoadNear((rows)[R >= 2 ? 2 : 0] + (x)) : w0;                 \
    const V16 w3 = R >= 2 ? LoadNear((rows)[R >= 2 ? 3 : 0] + (x)) : w0;                 \
    const V16 w4 = R >= 3 ? LoadNear((rows)[R >= 3 ? 4 : 0] + (x)) : w0;                 \
    const V16 w5 = R >= 3 ? LoadNear((rows)[R >= 3 ? 5 : 0] + (x)) : w0;                 \
    if constexpr (R == 1) {                                                                \
      vEven = Taps<R>(w0, w0, Even(w0), Even(w1), bottomEven, w0, w0, BV_TAP_ARGS);        \
      vOdd = Taps<R>(w0, w0, Odd(w0), Odd(w1), bottomOdd, w0, w0, BV_TAP_ARGS);            \
    } else if constexpr (R == 2) {                                                         \
      vEven = Taps<R>(w0, Even(w0), Even(w1), Even(w2), Even(w3), bottomEven, w0,          \
                      BV_TAP_ARGS);                                                        \
      vOdd = Taps<R>(w0, Odd(w0), Odd(w1), Odd(w2), Odd(w3), bottomOdd, w0, BV_TAP_ARGS);  \
    } else {                                                                               \
      vEven = Taps<R>(Even(w0), Even(w1), Even(w2), Even(w3), Even(w4), Even(w5),          \
                      bottomEven, BV_TAP_ARGS);                                            \
      vOdd = Taps<R>(Odd(w0), Odd(w1), Odd(w2), Odd(w3), Odd(w4), Odd(w5), bottomOdd,      \
                     BV_TAP_ARGS);                                                         \
    }                                                                                      \
  }

// Radius 1 with c + 2 x p1 = 256 (UnitTaps): the pixel (c b0 + p1 (m1 + q1) + 128) >> 8 is
// b0 + ((p1 d + 128) >> 8) with d = m1 + q1 - 2 b0 in [-510, 510], and that last term is the
// rounded high half (d x 128 p1 + 2^14) >> 15 of one signed 16-bit multiply (p1 <= 128).
HWY_INLINE V16 UnitTerm(V16 d, V16 p1) {
  const hn::RebindToSigned<D16> di;
  return hn::BitCast(D16(), hn::MulFixedPoint15(hn::BitCast(di, d),
                                                hn::BitCast(di, hn::ShiftLeft<7>(p1))));
}

// even - 2 x odd, odd - 2 x even (in [-510, 255]) and twice either byte of each 16-bit lane.
// x86 has a multiply-add of byte pairs that does each in one instruction (Highway has no op
// for it): 6 instructions fewer a vector made the AVX-512 row about 13 % faster.
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_SSSE3
HWY_INLINE V16 BytePairs(V16 w, int16_t weights) {
#if HWY_TARGET <= HWY_AVX3
  return V16{_mm512_maddubs_epi16(w.raw, _mm512_set1_epi16(weights))};
#elif HWY_TARGET == HWY_AVX2
  return V16{_mm256_maddubs_epi16(w.raw, _mm256_set1_epi16(weights))};
#else
  return V16{_mm_maddubs_epi16(w.raw, _mm_set1_epi16(weights))};
#endif
}
HWY_INLINE V16 EvenLessTwiceOdd(V16 w) { return BytePairs(w, static_cast<int16_t>(0xFE01)); }
HWY_INLINE V16 OddLessTwiceEven(V16 w) { return BytePairs(w, 0x01FE); }
HWY_INLINE V16 TwiceEven(V16 w) { return BytePairs(w, 0x0002); }
HWY_INLINE V16 TwiceOdd(V16 w) { return BytePairs(w, 0x0200); }
#else
HWY_INLINE V16 EvenLessTwiceOdd(V16 w) { return hn::Sub(Even(w), hn::ShiftLeft<1>(Odd(w))); }
HWY_INLINE V16 OddLessTwiceEven(V16 w) { return hn::Sub(Odd(w), hn::ShiftLeft<1>(Even(w))); }
HWY_INLINE V16 TwiceEven(V16 w) { return hn::ShiftLeft<1>(Even(w)); }
HWY_INLINE V16 TwiceOdd(V16 w) { return hn::ShiftRight<7>(hn::And(w, hn::Set(D16(), 0xFF00))); }
#endif

// Pixels (at most 255 in each lane) as the even and odd bytes.
HWY_INLINE hn::Vec<D8> PixelBytes(V16 even, V16 odd) {
  return hn::BitCast(D8(), hn::Or(even, hn::ShiftLeft<8>(odd)));
}

// 2 x Lanes(D16) columns: the horizontal pass of next into hNext and the vertical pass of the
// window ending at it into dst. Reads every input before it stores (hNext may be rows[0]).
// kStream: dst is vector-aligned and written with a streaming store (it is not read again, so
// its lines need not be fetched first); the ring row hNext stays in the cache.
// kUnit (radius 1, taps summing to 256): both passes through UnitTerm, the vertical one adding
// its terms to the middle row's bytes.
template <int R, bool kStream = false, bool kUnit = false>
HWY_INLINE void FusedBlock(const uint8_t* const* rows, ptrdiff_t x, const uint8_t* next,
                           uint8_t* hNext, uint8_t* dst, BV_TAP_PARAMS) {
  if constexpr (kUnit) {
    static_assert(R == 1, "unit taps are radius 1");
    // Column 2i: m1, b0 are the bytes of s0's lane i, q1 the even byte of s1's; column 2i + 1:
    // m1 is s0's odd byte, b0, q1 the bytes of s1's lane.
    const V16 s0 = LoadPairs(next - 1), s1 = LoadPairs(next + 1);
    const V16 odd0 = Odd(s0), even1 = Even(s1);
    const V16 hEven = hn::Add(odd0, UnitTerm(hn::Add(EvenLessTwiceOdd(s0), even1), p1));
    const V16 hOdd = hn::Add(even1, UnitTerm(hn::Add(OddLessTwiceEven(s1), odd0), p1));
    const V16 top = LoadNear(rows[0] + x), mid = LoadNear(rows[1] + x);
    const V16 dEven = UnitTerm(hn::Sub(hn::Add(Even(top), hEven), TwiceEven(mid)), p1);
    const V16 dOdd = UnitTerm(hn::Sub(hn::Add(Odd(top), hOdd), TwiceOdd(mid)), p1);
    hn::StoreU(PixelBytes(hEven, hOdd), D8(), hNext);
    // mid + term as bytes: each pixel is in [0, 255], so no byte sum carries into the next.
    const hn::Vec<D8> out = hn::Add(hn::BitCast(D8(), mid),
                                    hn::BitCast(D8(), hn::OrAnd(hn::ShiftLeft<8>(dOdd), dEven,
                                                                hn::Set(D16(), 0xFF))));
    if constexpr (kStream) {
      hn::Stream(out, D8(), dst);
    } else {
      hn::StoreU(out, D8(), dst);
    }
    return;
  }
  BV_H_BYTES(next);
  BV_V_PAIRS(rows, x, hn::ShiftRight<8>(hEvenSum), hn::ShiftRight<8>(hOddSum), vEven, vOdd);
  StoreSums(hEvenSum, hOddSum, hNext);
  if constexpr (kStream) {
    hn::Stream(SumBytes(vEven, vOdd), D8(), dst);
  } else {
    StoreSums(vEven, vOdd, dst);
  }
}

template <int R>
HWY_INLINE void HBlock(const uint8_t* src, uint8_t* dst, BV_TAP_PARAMS) {
  BV_H_BYTES(src);
  StoreSums(hEvenSum, hOddSum, dst);
}

template <int R>
HWY_INLINE void VBlock(const uint8_t* const* rows, ptrdiff_t x, uint8_t* dst, BV_TAP_PARAMS) {
  const V16 bottom = LoadNear(rows[2 * R] + x);
  BV_V_PAIRS(rows, x, Even(bottom), Odd(bottom), vEven, vOdd);
  StoreSums(vEven, vOdd, dst);
}

#undef BV_H_BYTES
#undef BV_V_PAIRS

// Vectors cover columns [R, width - R): whole vectors from R on and one last vector ending at
// width - R, which may overlap the one before it. Returns the start of that last vector, or -1
// when the row is too short for one (then every column goes pixel by pixel).
template <int R>
HWY_INLINE int LastVector(int width) {
  const int last = width - R - static_cast<int>(hn::Lanes(D8()));
  return last >= R ? last : -1;
}

template <int R>
void RowH(const uint8_t* src, uint8_t* dst, int width, const uint16_t* kernel) {
  uint16_t k[2 * R + 1];  // local: the byte stores below cannot alias it
  for (int j = 0; j <= 2 * R; ++j) k[j] = kernel[j];
  BV_SET_TAPS(k);
  const int n = static_cast<int>(hn::Lanes(D8()));
  const int last = LastVector<R>(width);
  if (last < 0) {
    for (int x = 0; x < width; ++x) dst[x] = gauss_detail::HPixel(src, x, width, k, R);
    return;
  }
  for (int x = R; x < last; x += n) HBlock<R>(src + x, dst + x, BV_TAP_ARGS);
  HBlock<R>(src + last, dst + last, BV_TAP_ARGS);
  for (int x = 0; x < R; ++x) dst[x] = gauss_detail::HPixel(src, x, width, k, R);
  for (int x = width - R; x < width; ++x) dst[x] = gauss_detail::HPixel(src, x, width, k, R);
}

template <int R>
void RowV(const uint8_t* const* rows, uint8_t* dst, int width, const uint16_t* kernel) {
  uint16_t k[2 * R + 1];
  for (int j = 0; j <= 2 * R; ++j) k[j] = kernel[j];
  const uint8_t* w[2 * R + 1];
  for (int j = 0; j <= 2 * R; ++j) w[j] = rows[j];
  BV_SET_TAPS(k);
  const int n = static_cast<int>(hn::Lanes(D8()));
  if (width < n) {
    for (int x = 0; x < width; ++x) dst[x] = gauss_detail::VPixel(w, w[2 * R][x], x, k, R);
    return;
  }
  // dst is none of the rows: an overlapping last vector rewrites the same values.
  for (int x = 0; x < width - n; x += n) VBlock<R>(w, x, dst + x, BV_TAP_ARGS);
  VBlock<R>(w, width - n, dst + width - n, BV_TAP_ARGS);
}

template <int R, bool kUnit = false>
void RowHV(const uint8_t* const* rowsIn, const uint8_t* next, uint8_t* hNext, uint8_t* dst,
           int width, const uint16_t* kernel) {
  uint16_t k[2 * R + 1];
  for (int j = 0; j <= 2 * R; ++j) k[j] = kernel[j];
  const uint8_t* rows[2 * R];  // local: the byte stores cannot change them
  for (int j = 0; j < 2 * R; ++j) rows[j] = rowsIn[j];
  BV_SET_TAPS(k);
  const int n = static_cast<int>(hn::Lanes(D8()));
  const int last = LastVector<R>(width);
  if (last < 0) {
    for (int x = 0; x < width; ++x) gauss_detail::HVPixel(rows, next, hNext, dst, x, width, k, R);
    return;
  }
  // The loop stores whole aligned vectors of dst; the first and the last vector, which
  // overlap it, come after it. hNext may be rows[0]: they read their top row from copies taken
  // before the loop overwrites it.
  const int begin = R + static_cast<int>((0 - reinterpret_cast<uintptr_t>(dst + R)) & (n - 1));
  HWY_ALIGN uint8_t topFirst[HWY_MAX_BYTES];
  HWY_ALIGN uint8_t topLast[HWY_MAX_BYTES];
  hn::Store(hn::LoadU(D8(), rows[0] + R), D8(), topFirst);
  hn::Store(hn::LoadU(D8(), rows[0] + last), D8(), topLast);
  const int line = n > 64 ? n : 64;
  const uintptr_t base = reinterpret_cast<uintptr_t>(dst);
  const int streamFrom = static_cast<int>(((base + R + n + line - 1) & ~uintptr_t(line - 1)) - base);
  const int streamTo = static_cast<int>(((base + last) & ~uintptr_t(line - 1)) - base);
  int x = begin;
  for (; x < last && x < streamFrom; x += n) {
    FusedBlock<R, false, kUnit>(rows, x, next + x, hNext + x, dst + x, BV_TAP_ARGS);
  }
  for (const ptrdiff_t streamEnd = streamTo - n; x <= streamEnd; x += n) {
    FusedBlock<R, true, kUnit>(rows, x, next + x, hNext + x, dst + x, BV_TAP_ARGS);
  }
  for (; x < last; x += n) {
    FusedBlock<R, false, kUnit>(rows, x, next + x, hNext + x, dst + x, BV_TAP_ARGS);
  }
  const uint8_t* edgeRows[2 * R];
  edgeRows[0] = topFirst;
  for (int j = 1; j < 2 * R; ++j) edgeRows[j] = rows[j] + R;
  FusedBlock<R, false, kUnit>(edgeRows, 0, next + R, hNext + R, dst + R, BV_TAP_ARGS);
  edgeRows[0] = topLast;
  for (int j = 1; j < 2 * R; ++j) edgeRows[j] = rows[j] + last;
  FusedBlock<R, false, kUnit>(edgeRows, 0, next + last, hNext + last, dst + last, BV_TAP_ARGS);
  for (int x = 0; x < R; ++x) gauss_detail::HVPixel(rows, next, hNext, dst, x, width, k, R);
  for (int x = width - R; x < width; ++x) {
    gauss_detail::HVPixel(rows, next, hNext, dst, x, width, k, R);
  }
}

#undef BV_TAP_PARAMS
#undef BV_TAP_ARGS
#undef BV_SET_TAPS

#else  // HWY_SCALAR: one lane cannot hold a pair of bytes; the rows go pixel by pixel.

template <int R>
void RowH(const uint8_t* src, uint8_t* dst, int width, const uint16_t* k) {
  for (int x = 0; x < width; ++x) dst[x] = gauss_detail::HPixel(src, x, width, k, R);
}
template <int R>
void RowV(const uint8_t* const* rows, uint8_t* dst, int width, const uint16_t* k) {
  for (int x = 0; x < width; ++x) dst[x] = gauss_detail::VPixel(rows, rows[2 * R][x], x, k, R);
}
template <int R, bool kUnit = false>
void RowHV(const uint8_t* const* rows, const uint8_t* next, uint8_t* hNext, uint8_t* dst,
           int width, const uint16_t* k) {
  for (int x = 0; x < width; ++x) gauss_detail::HVPixel(rows, next, hNext, dst, x, width, k, R);
}
#endif

// One target's rows for radius R, with the taps copied once per strip.
template <int R>
struct VecRows {
  const uint16_t* k;
  int width;
  bool unit;  // radius 1 with taps summing to 256 (UnitTaps)
  void H(const uint8_t* s, uint8_t* d) const { RowH<R>(s, d, width, k); }
  void V(const uint8_t* const* w, uint8_t* d) const { RowV<R>(w, d, width, k); }
  void HV(const uint8_t* const* w, const uint8_t* next, uint8_t* hNext, uint8_t* d) const {
    if constexpr (R == 1) {
      if (unit) return RowHV<R, true>(w, next, hNext, d, width, k);
    }
    RowHV<R>(w, next, hNext, d, width, k);
  }
};

template <int R>
void StripR(const GaussStripArgs& a) {
  uint16_t k[2 * R + 1];
  for (int j = 0; j <= 2 * R; ++j) k[j] = a.kernel[j];
  gauss_detail::StripLoop(a, VecRows<R>{k, a.width, R == 1 && gauss_detail::UnitTaps(k)});
  hwy::FlushStream();  // the output rows went out with streaming stores
}

template <int R>
void BorderR(const GaussBorderArgs& a) {
  uint16_t k[2 * R + 1];
  for (int j = 0; j <= 2 * R; ++j) k[j] = a.kernel[j];
  gauss_detail::BorderLoop(a, VecRows<R>{k, a.width, false});
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
