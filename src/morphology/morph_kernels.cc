// Vector row kernels of the morphology routines, compiled once per target.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "morphology/morph_kernels.cc"
#include "hwy/cache_control.h"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
#include "morphology/morph_kernels.h"

// Pixel helpers shared by the scalar definitions and the tails of every target.
#ifndef BIVISTA_MORPH_KERNELS_ONCE
#define BIVISTA_MORPH_KERNELS_ONCE
namespace bivista {
namespace morph_detail {

// Fixed kernels: AND (useOr: OR) over the element around column x of rows[0 .. 2r]; the cross
// takes the centre row's three pixels and the centre of the others.
inline uint8_t FixedPixel(const uint8_t* const* rows, int x, int r, int cross, int useOr) {
  uint8_t v = useOr ? 0 : 0xFF;
  for (int dy = -r; dy <= r; ++dy) {
    for (int dx = -r; dx <= r; ++dx) {
      if (cross && dx != 0 && dy != 0) continue;
      const uint8_t p = rows[dy + r][x + dx];
      v = useOr ? (v | p) : (v & p);
    }
  }
  return v;
}

// Counter engine: one column counter, wrapping at 256.
inline void CounterPixel(const uint8_t* row, uint8_t* cnt, int i, uint8_t v, bool add) {
  const int match = row[i] == v ? 1 : 0;
  cnt[i] = static_cast<uint8_t>(add ? cnt[i] + match : cnt[i] - match);
}

// v where a counter in columns x - kW .. x + kW (clipped to the row) is non-zero, else copy[x].
inline uint8_t SpreadPixel(const uint8_t* cnt, const uint8_t* copy, int x, int width, int kW,
                           uint8_t v) {
  const int lo = x - kW > 0 ? x - kW : 0;
  const int hi = x + kW < width - 1 ? x + kW : width - 1;
  for (int j = lo; j <= hi; ++j) {
    if (cnt[j] != 0) return v;
  }
  return copy[x];
}

inline uint8_t BoxPixel(uint32_t bR, uint32_t tL, uint32_t tR, uint32_t bL, uint32_t area,
                        int erode) {
  const uint32_t s = bR + tL - tR - bL;
  return erode ? (s == area ? 1 : 0) : (static_cast<int32_t>(s) > 0 ? 1 : 0);
}

inline uint8_t DistSeedPixel(uint8_t above, uint8_t self, uint8_t target, uint8_t cap) {
  const int up = above + 1 < cap ? above + 1 : cap;
  return self == target ? 0 : static_cast<uint8_t>(up);
}

inline uint8_t DistBelowPixel(uint8_t below, uint8_t self) {
  return below < self ? static_cast<uint8_t>(below + 1) : self;
}

inline uint8_t ThresholdPixel(uint8_t p, int N, uint8_t above, uint8_t notAbove) {
  return static_cast<int>(p) > N ? above : notAbove;
}

// The counter engine over the image: counters of rows 0..kH first, then per row the spread and
// the slide of the window. rows.Add/Sub(row, cnt, n, v) and rows.Spread(cnt, copy, dst, width,
// kW, v) are one target's rows (or the scalar definitions).
template <class Rows>
void CounterLoop(const uint8_t* copy, uint8_t* counters, uint8_t* image, int width, int height,
                 int kW, int kH, uint8_t v, const Rows& rows) {
  const auto row = [&](int y) { return copy + static_cast<size_t>(y) * width; };
  for (int y = 0; y <= kH; ++y) rows.Add(row(y), counters, width, v);
  for (int y = 0; y < height; ++y) {
    rows.Spread(counters, row(y), image + static_cast<size_t>(y) * width, width, kW, v);
    if (y < height - kH - 1) rows.Add(row(y + kH + 1), counters, width, v);
    if (y >= kH) rows.Sub(row(y - kH), counters, width, v);
  }
}

// The integral engine over the image, `ring` integral rows kept in `integral`: row 0 and column
// 0 are outside every window (the exclusive lower bounds clamp to index 0); the columns whose
// window is not clipped go through decide(bR, tL, tR, bL, out, n, area, erode).
template <class Decide>
void BoxLoop(const uint8_t* src, uint8_t* dst, uint32_t* integral, int ring, int width,
             int height, int64_t r, int erode, Decide decide) {
  const auto slot = [&](int row) { return integral + static_cast<size_t>(row % ring) * width; };
  // Exclusive lower and inclusive upper bound of the window around c, clipped to 0..n-1 in 64
  // bits (r may be near INT_MAX / 2).
  const auto lower = [&](int c) { return static_cast<int>(c - r >= 1 ? c - r - 1 : 0); };
  const auto upper = [&](int c, int n) { return static_cast<int>(c + r < n - 1 ? c + r : n - 1); };
  int built = 0;  // integral rows computed so far
  const int64_t x0 = r + 1;
  const int64_t x1 = width - 1 - r;
  for (int y = 0; y < height; ++y) {
    const int top = lower(y);
    const int bottom = upper(y, height);
    for (; built <= bottom; ++built) {
      IntegralRow(src + static_cast<size_t>(built) * width, built ? slot(built - 1) : nullptr,
                  slot(built), width);
    }
    const uint32_t* rowT = slot(top);
    const uint32_t* rowB = slot(bottom);
    uint8_t* out = dst + static_cast<size_t>(y) * width;
    const auto clipped = [&](int x) {
      const int left = lower(x);
      const int right = upper(x, width);
      out[x] = BoxPixel(rowB[right], rowT[left], rowT[right], rowB[left],
                        static_cast<uint32_t>(right - left) * static_cast<uint32_t>(bottom - top),
                        erode);
    };
    int x = 0;
    for (; x < width && x < x0; ++x) clipped(x);
    if (x0 <= x1) {
      const uint32_t area = static_cast<uint32_t>(2 * r + 1) * static_cast<uint32_t>(bottom - top);
      decide(rowB + x0 + r, rowT + x0 - r - 1, rowT + x0 + r, rowB + x0 - r - 1, out + x0,
             static_cast<int>(x1 - x0 + 1), area, erode);
      x = static_cast<int>(x1 + 1);
    }
    for (; x < width; ++x) clipped(x);
  }
}

// City-block passes. Forward over rows y0..y1: columns from..from+n-1 take the seed or the row
// above + 1 (capped), then the chain from the left over the same columns; with col0, column 0
// first takes 0 for `target` or min(above + 1, far) (far wraps to 8 bits).
template <class Seed>
void DistForwardLoop(uint8_t* image, int width, int y0, int y1, int from, int n, uint8_t target,
                     uint8_t cap, bool col0, uint8_t far, Seed seed) {
  for (int y = y0; y <= y1; ++y) {
    uint8_t* row = image + static_cast<size_t>(y) * width;
    if (col0) {
      const uint8_t up0 = row[-width];
      row[0] = row[0] == target ? 0 : (up0 < far ? static_cast<uint8_t>(up0 + 1) : far);
    }
    seed(row - width + from, row + from, n, target, cap);
    for (int x = from; x < from + n; ++x) {
      if (row[x - 1] < row[x]) row[x] = static_cast<uint8_t>(row[x - 1] + 1);
    }
  }
}

// Backward over rows y1 down to y0: columns from..from+n-1 take min(self, below + 1), then the
// chain from the right over columns chainFrom down to from.
template <class Below>
void DistBackwardLoop(uint8_t* image, int width, int y1, int y0, int from, int n, int chainFrom,
                      Below below) {
  for (int y = y1; y >= y0; --y) {
    uint8_t* row = image + static_cast<size_t>(y) * width;
    below(row + width + from, row + from, n);
    for (int x = chainFrom; x >= from; --x) {
      if (row[x + 1] < row[x]) row[x] = static_cast<uint8_t>(row[x + 1] + 1);
    }
  }
}

// Thresholds of n columns from `from` in rows y0..y1.
template <class Threshold>
void ThresholdLoop(uint8_t* image, size_t stride, int y0, int y1, int from, int n, int N,
                   uint8_t above, uint8_t notAbove, Threshold threshold) {
  for (int y = y0; y <= y1; ++y) threshold(image + y * stride + from, n, N, above, notAbove);
}

// An empty or negative width copies nothing (the image may then be null).
inline void CopyRows(const uint8_t* src, uint8_t* dst, int width, int rows, long stride) {
  if (width < 1) return;
  for (int y = 0; y < rows; ++y) memcpy(dst + y * stride, src + y * stride, static_cast<size_t>(width));
}

// Widest row whose window rows the fixed kernels keep in a ring on the stack.
constexpr int kFixedRingWidth = 8192;
// The fixed kernels prefetch the image row this far below the one they copy: the hardware
// prefetcher alone left the loads of each new row waiting on memory for half of the time.
constexpr int kFixedAhead = 4;

// One fixed-kernel call over the image. Every iteration's input is copied once, when it is read:
// the first 2r rows up front, row y + r by the pass of output row y. The window rows come from
// `ring` (2r + 1 rows of kFixedRingWidth, the widest it takes), else from the scratch itself.
// With the ring, each copied row goes on to the scratch through copy(dst, src, width), which
// writes it with streaming stores: nothing reads the scratch back, so its lines need not be
// fetched first. rowOut(rows, next, out, n) copies the whole image row `next` to the window row
// rows[2r], then writes columns r .. width - r - 1 of the output row from the 2r + 1 window rows
// (pointers at column r).
template <class RowOut, class Copy>
void FixedLoop(uint8_t* image, uint8_t* scratch, int width, int height, long stride,
               int iterations, int r, uint8_t* ring, const RowOut& rowOut, const Copy& copy) {
  const bool inRing = ring != nullptr && width <= kFixedRingWidth;
  const auto window = [&](int y) {
    return inRing ? ring + (y % (2 * r + 1)) * static_cast<long>(kFixedRingWidth)
                  : scratch + y * stride;
  };
  for (int it = 0; it < iterations; ++it) {
    if (height <= 2 * r || width <= 2 * r) {
      CopyRows(image, scratch, width, height, stride);
      continue;
    }
    for (int y = 0; y < 2 * r; ++y) {
      memcpy(window(y), image + y * stride, static_cast<size_t>(width));
      if (inRing) copy(scratch + y * stride, window(y), width);
    }
    const uint8_t* rows[5];
    for (int y = r; y < height - r; ++y) {
      if (y + r + kFixedAhead < height) {
        const uint8_t* ahead = image + (y + r + kFixedAhead) * stride;
        for (int x = 0; x < width; x += 64) hwy::Prefetch(ahead + x);
      }
      for (int j = 0; j <= 2 * r; ++j) rows[j] = window(y - r + j) + r;
      rowOut(rows, image + (y + r) * stride + r, image + y * stride + r, width - 2 * r);
      if (inRing) copy(scratch + (y + r) * stride, window(y + r), width);
    }
  }
}

}  // namespace morph_detail
}  // namespace bivista
#endif

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// A match is 0xFF (-1): subtracting it adds one, adding it subtracts one.
template <bool kAdd>
static void CounterUpdate(const uint8_t* row, uint8_t* cnt, int n, uint8_t v) {
  const hn::ScalableTag<uint8_t> d;
  const int N = static_cast<int>(hn::Lanes(d));
  const auto vv = hn::Set(d, v);
  int i = 0;
  for (; i + N <= n; i += N) {
    const auto m = hn::VecFromMask(d, hn::Eq(hn::LoadU(d, row + i), vv));
    const auto c = hn::LoadU(d, cnt + i);
    hn::StoreU(kAdd ? hn::Sub(c, m) : hn::Add(c, m), d, cnt + i);
  }
  for (; i < n; ++i) morph_detail::CounterPixel(row, cnt, i, v, kAdd);
}

void CounterAdd(const uint8_t* row, uint8_t* cnt, int n, uint8_t v) {
  CounterUpdate<true>(row, cnt, n, v);
}

void CounterSub(const uint8_t* row, uint8_t* cnt, int n, uint8_t v) {
  CounterUpdate<false>(row, cnt, n, v);
}

// out[i] = a[i] | a[i + q], ascending; out may equal a (each store lands behind every later load).
static void OrShift(const uint8_t* a, uint8_t* out, int n, int q) {
  const hn::ScalableTag<uint8_t> d;
  const int N = static_cast<int>(hn::Lanes(d));
  int i = 0;
  for (; i + N <= n; i += N) {
    const auto r = hn::Or(hn::LoadU(d, a + i), hn::LoadU(d, a + i + q));
    hn::StoreU(r, d, out + i);
  }
  for (; i < n; ++i) out[i] = static_cast<uint8_t>(a[i] | a[i + q]);
}

// out[i] = (a[i] | a[i + s]) ? v : copy[i], descending, so out may sit above a in one buffer.
static void SelectDesc(const uint8_t* a, int s, const uint8_t* copy, uint8_t* out, int n,
                       uint8_t v) {
  const hn::ScalableTag<uint8_t> d;
  const int N = static_cast<int>(hn::Lanes(d));
  const auto vv = hn::Set(d, v);
  const auto zero = hn::Zero(d);
  int i = n;
  for (; i >= N; i -= N) {
    const int b = i - N;
    const auto any = hn::Or(hn::LoadU(d, a + b), hn::LoadU(d, a + b + s));
    hn::StoreU(hn::IfThenElse(hn::Eq(any, zero), hn::LoadU(d, copy + b), vv), d, out + b);
  }
  for (--i; i >= 0; --i) out[i] = (a[i] | a[i + s]) ? v : copy[i];
}

// Window OR by doubling over bytes: after k steps a[i] holds the OR of cnt[i..i+2^k-1]; two
// overlapping power-of-two spans cover each full window, the clipped border windows are done
// plainly. Used where the bit-set path below does not apply.
static void SpreadRowBytes(const uint8_t* cnt, const uint8_t* copy, uint8_t* dst, int width,
                           int kW, uint8_t v) {
  const int span = 2 * kW + 1;
  int p = 1;
  while (p * 2 <= span) p *= 2;
  const uint8_t* a = cnt;
  if (p > 1) {
    OrShift(cnt, dst, width - 1, 1);
    for (int q = 2; q < p; q *= 2) OrShift(dst, dst, width - 2 * q + 1, q);
    a = dst;
  }
  SelectDesc(a, span - p, copy + kW, dst + kW, width - 2 * kW, v);
  uint8_t any = 0;
  for (int j = 0; j < kW; ++j) any |= cnt[j];
  for (int x = 0; x < kW; ++x) {
    any |= cnt[x + kW];
    dst[x] = any ? v : copy[x];
  }
  any = 0;
  for (int j = width - kW; j < width; ++j) any |= cnt[j];
  for (int x = width - 1; x > width - 1 - kW; --x) {
    any |= cnt[x - kW];
    dst[x] = any ? v : copy[x];
  }
}

constexpr int kBitWords = 512;

// Multi-word bit sets, bit i at word i / 64, bit i % 64.
// OrDown: w bit i |= w bit i + s for the n words, ascending, so every read sees the value before
// this step; the words from n on are zero and s < 64 * kBitPad.
constexpr int kBitPad = 10;
static void OrDown(uint64_t* w, int n, int s) {
  const int ws = s / 64, bs = s % 64;
  if (bs == 0) {
    for (int j = 0; j < n; ++j) w[j] |= w[j + ws];
    return;
  }
  for (int j = 0; j < n; ++j) w[j] |= (w[j + ws] >> bs) | (w[j + ws + 1] << (64 - bs));
}

// BitsUp: out bit i = in bit i - s.
static void BitsUp(const uint64_t* in, uint64_t* out, int n, int s) {
  const int ws = s / 64, bs = s % 64;
  for (int j = 0; j < n; ++j) {
    const uint64_t lo = j - ws >= 0 ? in[j - ws] : 0;
    const uint64_t below = j - ws - 1 >= 0 ? in[j - ws - 1] : 0;
    out[j] = bs ? (lo << bs) | (below >> (64 - bs)) : lo;
  }
}

// Window OR on a bit set of "counter non-zero", moved kW bits up so that the clipped windows need
// no special case; the per-pixel work is one compare and one select whatever the radius.
void SpreadRow(const uint8_t* cnt, const uint8_t* copy, uint8_t* dst, int width, int kW,
               uint8_t v) {
  const hn::ScalableTag<uint8_t> d;
  const int N = static_cast<int>(hn::Lanes(d));
  const int words = (width + 2 * kW + 63) / 64 + 1;
  if (N < 8 || words > kBitWords || 2 * kW + 1 >= 64 * kBitPad) {
    SpreadRowBytes(cnt, copy, dst, width, kW, v);
    return;
  }
  uint64_t nz[kBitWords];
  uint64_t win[kBitWords + kBitPad];
  for (int j = 0; j < words; ++j) nz[j] = 0;
  for (int j = words; j < words + kBitPad; ++j) win[j] = 0;
  auto* bytes = reinterpret_cast<uint8_t*>(nz);
  const auto zero = hn::Zero(d);
  int x = 0;
  for (; x + N <= width; x += N) {
    hn::StoreMaskBits(d, hn::Not(hn::Eq(hn::LoadU(d, cnt + x), zero)), bytes + x / 8);
  }
  for (; x < width; ++x) {
    if (cnt[x]) nz[x / 64] |= uint64_t{1} << (x % 64);
  }
  // Bit kW + x stands for column x; the span [x - kW, x + kW] is bits x .. x + 2kW.
  BitsUp(nz, win, words, kW);
  const int span = 2 * kW + 1;
  int p = 1;
  for (; p * 2 <= span; p *= 2) OrDown(win, words, p);
  OrDown(win, words, span - p);
  const auto* hit = reinterpret_cast<const uint8_t*>(win);
  const auto vv = hn::Set(d, v);
  for (x = 0; x + N <= width; x += N) {
    const auto m = hn::LoadMaskBits(d, hit + x / 8);
    hn::StoreU(hn::IfThenElse(m, vv, hn::LoadU(d, copy + x)), d, dst + x);
  }
  for (; x < width; ++x) dst[x] = morph_detail::SpreadPixel(cnt, copy, x, width, kW, v);
}

void BoxDecideRow(const uint32_t* bR, const uint32_t* tL, const uint32_t* tR,
                  const uint32_t* bL, uint8_t* out, int n, uint32_t area, int erode) {
  const hn::ScalableTag<int32_t> d;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  const int N = static_cast<int>(hn::Lanes(d));
  const auto one = hn::Set(d, 1);
  const auto zero = hn::Zero(d);
  const auto varea = hn::Set(d, static_cast<int32_t>(area));
  const auto* sbR = reinterpret_cast<const int32_t*>(bR);
  const auto* stL = reinterpret_cast<const int32_t*>(tL);
  const auto* stR = reinterpret_cast<const int32_t*>(tR);
  const auto* sbL = reinterpret_cast<const int32_t*>(bL);
  int i = 0;
  for (; i + N <= n; i += N) {
    const auto s = hn::Sub(hn::Sub(hn::Add(hn::LoadU(d, sbR + i), hn::LoadU(d, stL + i)),
                                   hn::LoadU(d, stR + i)),
                           hn::LoadU(d, sbL + i));
    const auto m = erode ? hn::Eq(s, varea) : hn::Gt(s, zero);
    hn::StoreU(hn::DemoteTo(d8, hn::IfThenElseZero(m, one)), d8, out + i);
  }
  for (; i < n; ++i) out[i] = morph_detail::BoxPixel(bR[i], tL[i], tR[i], bL[i], area, erode);
}

template <bool kOr, class D, class V>
HWY_INLINE V Comb(D, V a, V b) {
  return kOr ? hn::Or(a, b) : hn::And(a, b);
}

struct CounterRows {
  void Add(const uint8_t* row, uint8_t* cnt, int n, uint8_t v) const { CounterAdd(row, cnt, n, v); }
  void Sub(const uint8_t* row, uint8_t* cnt, int n, uint8_t v) const { CounterSub(row, cnt, n, v); }
  void Spread(const uint8_t* cnt, const uint8_t* copy, uint8_t* dst, int width, int kW,
              uint8_t v) const {
    SpreadRow(cnt, copy, dst, width, kW, v);
  }
};

void CounterPass(const uint8_t* copy, uint8_t* counters, uint8_t* image, int width, int height,
                 int kW, int kH, uint8_t v) {
  morph_detail::CounterLoop(copy, counters, image, width, height, kW, kH, v, CounterRows());
}

void BoxPass(const uint8_t* src, uint8_t* dst, uint32_t* integral, int ring, int width,
             int height, int64_t r, int erode) {
  morph_detail::BoxLoop(src, dst, integral, ring, width, height, r, erode, BoxDecideRow);
}

void DistForward(uint8_t* image, int width, int y0, int y1, int from, int n, uint8_t target,
                 uint8_t cap, int col0, uint8_t far) {
  morph_detail::DistForwardLoop(image, width, y0, y1, from, n, target, cap, col0 != 0, far,
                                DistSeedRow);
}

void DistBackward(uint8_t* image, int width, int y1, int y0, int from, int n, int chainFrom) {
  morph_detail::DistBackwardLoop(image, width, y1, y0, from, n, chainFrom, DistBelowRow);
}

void ThresholdRows(uint8_t* image, int stride, int y0, int y1, int from, int n, int N,
                   uint8_t above, uint8_t notAbove) {
  morph_detail::ThresholdLoop(image, static_cast<size_t>(stride), y0, y1, from, n, N, above,
                              notAbove, ThresholdRow);
}

// Columns per block of the separable passes (the vertical results live on the stack).
constexpr int kFixedBlock = 4096;

// A load from a row that comes from the last-level cache: on AVX-512 as two 32-byte halves, as
// a 64-byte load straddling two lines is several times slower there.
template <class D>
HWY_INLINE hn::Vec<D> LoadFar(D d, const uint8_t* p) {
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
  const hn::Half<D> dh;
  return hn::Combine(d, hn::LoadU(dh, p + hn::Lanes(dh)), hn::LoadU(dh, p));
#else
  return hn::LoadU(d, p);
#endif
}

// One output row of a fixed kernel: the vertical AND/OR of each column (for the cross only the
// centre row joins the horizontal step) into a block on the stack, then the horizontal one.
// The last vector of a block may overlap the one before it (it rewrites the same values: out
// is none of the rows it reads); rows shorter than a vector go through the pixel helper.
template <bool kOr, int R, bool kCross>
static void FixedRow(const uint8_t* const* rows, const uint8_t* next, uint8_t* out, int n) {
  const hn::ScalableTag<uint8_t> d;
  const int N = static_cast<int>(hn::Lanes(d));
  const uint8_t* r0 = rows[0];
  const uint8_t* r1 = rows[1];
  const uint8_t* r2 = rows[2];
  const uint8_t* r3 = rows[R == 2 ? 3 : 0];
  uint8_t* copy = const_cast<uint8_t*>(rows[2 * R]);  // the scratch row that receives `next`
  if (n < N) {
    memcpy(copy - R, next - R, static_cast<size_t>(n + 2 * R));
    for (int x = 0; x < n; ++x) out[x] = morph_detail::FixedPixel(rows, x, R, kCross, kOr);
    return;
  }
  HWY_ALIGN uint8_t v[kFixedBlock + 2 * R + 64];
  for (int c0 = 0; c0 < n; c0 += kFixedBlock) {
    int m = n - c0 < kFixedBlock ? n - c0 : kFixedBlock;
    if (m < N) {  // a short last block starts a vector before the row's end instead
      c0 = n - N;
      m = N;
    }
    // v[j] is column c0 - R + j; m + 2R entries, the last vector overlapping the one before.
    const int span = m + 2 * R;
    for (int j = 0;; j += N) {
      if (j + N > span) j = span - N;
      const int c = c0 - R + j;
      const auto bottom = LoadFar(d, next + c);
      hn::StoreU(bottom, d, copy + c);
      auto t = hn::LoadU(d, r1 + c);
      if constexpr (!kCross) {
        const auto up = R == 2 ? hn::LoadU(d, r3 + c) : hn::LoadU(d, r0 + c);
        t = Comb<kOr>(d, t, Comb<kOr>(d, up, bottom));
        if constexpr (R == 2) {
          t = Comb<kOr>(d, t, Comb<kOr>(d, hn::LoadU(d, r0 + c), hn::LoadU(d, r2 + c)));
        }
      }
      hn::StoreU(t, d, v + j);
      if (j + N >= span) break;
    }
    for (int i = 0;; i += N) {
      if (i + N > m) i = m - N;
      const int c = c0 + i;
      auto t = Comb<kOr>(d, hn::LoadU(d, v + i), hn::LoadU(d, v + i + 2 * R));
      t = Comb<kOr>(d, t, hn::LoadU(d, v + i + 1));
      if constexpr (R == 2) t = Comb<kOr>(d, t, Comb<kOr>(d, hn::LoadU(d, v + i + 2), hn::LoadU(d, v + i + 3)));
      if constexpr (kCross) {
        t = Comb<kOr>(d, t, Comb<kOr>(d, hn::LoadU(d, r0 + c), hn::LoadU(d, r2 + c)));
      }
      hn::StoreU(t, d, out + c);
      if (i + N >= m) break;
    }
  }
}

// n bytes from src (in the cache) to dst: whole lines with streaming stores, the partial lines
// at both ends with ordinary ones (a line written both ways costs a memory round trip).
static void StreamCopy(uint8_t* dst, const uint8_t* src, int n) {
  const hn::ScalableTag<uint8_t> d;
  const int N = static_cast<int>(hn::Lanes(d));
  const int line = N > 64 ? N : 64;
  const int head = static_cast<int>((0 - reinterpret_cast<uintptr_t>(dst)) & (line - 1));
  if (n < head + line) {
    memcpy(dst, src, static_cast<size_t>(n));
    return;
  }
  const int end = head + (n - head) / line * line;
  memcpy(dst, src, static_cast<size_t>(head));
  for (int x = head; x < end; x += N) hn::Stream(hn::LoadU(d, src + x), d, dst + x);
  memcpy(dst + end, src + end, static_cast<size_t>(n - end));
}

template <bool kOr, int R, bool kCross>
static void FixedT(uint8_t* image, uint8_t* scratch, int width, int height, int stride,
                   int iterations) {
  HWY_ALIGN uint8_t ring[(2 * R + 1) * morph_detail::kFixedRingWidth];
  morph_detail::FixedLoop(
      image, scratch, width, height, stride, iterations, R, ring,
      [](const uint8_t* const* rows, const uint8_t* next, uint8_t* out, int n) {
        FixedRow<kOr, R, kCross>(rows, next, out, n);
      },
      StreamCopy);
  hwy::FlushStream();
}

void FixedMorph(uint8_t* image, uint8_t* scratch, int width, int height, int stride,
                int iterations, int shape, int useOr) {
  using F = decltype(&FixedT<false, 1, true>);
  static constexpr F kPasses[2][3] = {
      {FixedT<false, 1, true>, FixedT<false, 1, false>, FixedT<false, 2, false>},
      {FixedT<true, 1, true>, FixedT<true, 1, false>, FixedT<true, 2, false>}};
  if (shape >= 0 && shape <= 2) {
    kPasses[useOr ? 1 : 0][shape](image, scratch, width, height, stride, iterations);
  }
}

void DistSeedRow(const uint8_t* above, uint8_t* row, int n, uint8_t target, uint8_t cap) {
  const hn::ScalableTag<uint8_t> d;
  const int N = static_cast<int>(hn::Lanes(d));
  const auto vt = hn::Set(d, target);
  const auto vcap = hn::Set(d, cap);
  const auto one = hn::Set(d, 1);
  int i = 0;
  for (; i + N <= n; i += N) {
    const auto up = hn::Min(hn::SaturatedAdd(hn::LoadU(d, above + i), one), vcap);
    hn::StoreU(hn::IfThenZeroElse(hn::Eq(hn::LoadU(d, row + i), vt), up), d, row + i);
  }
  for (; i < n; ++i) row[i] = morph_detail::DistSeedPixel(above[i], row[i], target, cap);
}

void DistBelowRow(const uint8_t* below, uint8_t* row, int n) {
  const hn::ScalableTag<uint8_t> d;
  const int N = static_cast<int>(hn::Lanes(d));
  const auto one = hn::Set(d, 1);
  int i = 0;
  for (; i + N <= n; i += N) {
    const auto b = hn::SaturatedAdd(hn::LoadU(d, below + i), one);
    hn::StoreU(hn::Min(hn::LoadU(d, row + i), b), d, row + i);
  }
  for (; i < n; ++i) row[i] = morph_detail::DistBelowPixel(below[i], row[i]);
}

void ThresholdRow(uint8_t* p, int n, int N, uint8_t above, uint8_t notAbove) {
  const hn::ScalableTag<uint8_t> d;
  const int L = static_cast<int>(hn::Lanes(d));
  if (N < 0 || N > 254) {
    const uint8_t all = N < 0 ? above : notAbove;
    for (int i = 0; i < n; ++i) p[i] = all;
    return;
  }
  const auto vn = hn::Set(d, static_cast<uint8_t>(N));
  const auto va = hn::Set(d, above);
  const auto vb = hn::Set(d, notAbove);
  const auto zero = hn::Zero(d);
  int i = 0;
  // x > N exactly when the saturating x - N is non-zero.
  for (; i + L <= n; i += L) {
    const auto over = hn::SaturatedSub(hn::LoadU(d, p + i), vn);
    hn::StoreU(hn::IfThenElse(hn::Eq(over, zero), vb, va), d, p + i);
  }
  for (; i < n; ++i) p[i] = morph_detail::ThresholdPixel(p[i], N, above, notAbove);
}

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace bivista {

HWY_EXPORT(CounterAdd);
HWY_EXPORT(CounterSub);
HWY_EXPORT(SpreadRow);
HWY_EXPORT(BoxDecideRow);
HWY_EXPORT(FixedMorph);
HWY_EXPORT(CounterPass);
HWY_EXPORT(BoxPass);
HWY_EXPORT(DistForward);
HWY_EXPORT(DistBackward);
HWY_EXPORT(ThresholdRows);
HWY_EXPORT(DistSeedRow);
HWY_EXPORT(DistBelowRow);
HWY_EXPORT(ThresholdRow);

void CounterAdd(const uint8_t* row, uint8_t* cnt, int n, uint8_t v) {
  HWY_DYNAMIC_DISPATCH(CounterAdd)(row, cnt, n, v);
}
void CounterSub(const uint8_t* row, uint8_t* cnt, int n, uint8_t v) {
  HWY_DYNAMIC_DISPATCH(CounterSub)(row, cnt, n, v);
}
void SpreadRow(const uint8_t* cnt, const uint8_t* copy, uint8_t* dst, int width, int kW,
               uint8_t v) {
  HWY_DYNAMIC_DISPATCH(SpreadRow)(cnt, copy, dst, width, kW, v);
}
void BoxDecideRow(const uint32_t* bR, const uint32_t* tL, const uint32_t* tR, const uint32_t* bL,
                  uint8_t* out, int n, uint32_t area, int erode) {
  HWY_DYNAMIC_DISPATCH(BoxDecideRow)(bR, tL, tR, bL, out, n, area, erode);
}
void CounterPass(const uint8_t* copy, uint8_t* counters, uint8_t* image, int width, int height,
                 int kW, int kH, uint8_t v) {
  HWY_DYNAMIC_DISPATCH(CounterPass)(copy, counters, image, width, height, kW, kH, v);
}
void BoxPass(const uint8_t* src, uint8_t* dst, uint32_t* integral, int ring, int width,
             int height, int64_t r, int erode) {
  HWY_DYNAMIC_DISPATCH(BoxPass)(src, dst, integral, ring, width, height, r, erode);
}
void DistForward(uint8_t* image, int width, int y0, int y1, int from, int n, uint8_t target,
                 uint8_t cap, int col0, uint8_t far) {
  HWY_DYNAMIC_DISPATCH(DistForward)(image, width, y0, y1, from, n, target, cap, col0, far);
}
void DistBackward(uint8_t* image, int width, int y1, int y0, int from, int n, int chainFrom) {
  HWY_DYNAMIC_DISPATCH(DistBackward)(image, width, y1, y0, from, n, chainFrom);
}
void ThresholdRows(uint8_t* image, int stride, int y0, int y1, int from, int n, int N,
                   uint8_t above, uint8_t notAbove) {
  HWY_DYNAMIC_DISPATCH(ThresholdRows)(image, stride, y0, y1, from, n, N, above, notAbove);
}
void FixedMorph(uint8_t* image, uint8_t* scratch, int width, int height, int stride,
                int iterations, int shape, int useOr) {
  HWY_DYNAMIC_DISPATCH(FixedMorph)(image, scratch, width, height, stride, iterations, shape, useOr);
}
void DistSeedRow(const uint8_t* above, uint8_t* row, int n, uint8_t target, uint8_t cap) {
  HWY_DYNAMIC_DISPATCH(DistSeedRow)(above, row, n, target, cap);
}
void DistBelowRow(const uint8_t* below, uint8_t* row, int n) {
  HWY_DYNAMIC_DISPATCH(DistBelowRow)(below, row, n);
}
void ThresholdRow(uint8_t* p, int n, int N, uint8_t above, uint8_t notAbove) {
  HWY_DYNAMIC_DISPATCH(ThresholdRow)(p, n, N, above, notAbove);
}


namespace scalar {

void CounterAdd(const uint8_t* row, uint8_t* cnt, int n, uint8_t v) {
  for (int i = 0; i < n; ++i) morph_detail::CounterPixel(row, cnt, i, v, true);
}

void CounterSub(const uint8_t* row, uint8_t* cnt, int n, uint8_t v) {
  for (int i = 0; i < n; ++i) morph_detail::CounterPixel(row, cnt, i, v, false);
}

// The running horizontal sum of the column counters.
void SpreadRow(const uint8_t* cnt, const uint8_t* copy, uint8_t* dst, int width, int kW,
               uint8_t v) {
  int s = 0;
  for (int j = 0; j <= kW; ++j) s += cnt[j];
  for (int x = 0; x < width; ++x) {
    dst[x] = s != 0 ? v : copy[x];
    if (x < kW) {
      s += cnt[x + kW + 1];
    } else if (x < width - kW - 1) {
      s += cnt[x + kW + 1] - cnt[x - kW];
    } else {
      s -= cnt[x - kW];
    }
  }
}

void BoxDecideRow(const uint32_t* bR, const uint32_t* tL, const uint32_t* tR, const uint32_t* bL,
                  uint8_t* out, int n, uint32_t area, int erode) {
  for (int i = 0; i < n; ++i) out[i] = morph_detail::BoxPixel(bR[i], tL[i], tR[i], bL[i], area, erode);
}

// Each iteration: copy the image into the scratch, then every interior pixel from the copy.
void FixedMorph(uint8_t* image, uint8_t* scratch, int width, int height, int stride,
                int iterations, int shape, int useOr) {
  const int r = shape == 2 ? 2 : 1;
  const long s = stride;
  for (int it = 0; it < iterations; ++it) {
    morph_detail::CopyRows(image, scratch, width, height, s);
    if (height <= 2 * r || width <= 2 * r) continue;
    const uint8_t* rows[5];
    for (int y = r; y < height - r; ++y) {
      for (int j = 0; j <= 2 * r; ++j) rows[j] = scratch + (y - r + j) * s;
      for (int x = r; x < width - r; ++x) {
        image[y * s + x] = morph_detail::FixedPixel(rows, x, r, shape == 0, useOr);
      }
    }
  }
}

void DistSeedRow(const uint8_t* above, uint8_t* row, int n, uint8_t target, uint8_t cap) {
  for (int i = 0; i < n; ++i) row[i] = morph_detail::DistSeedPixel(above[i], row[i], target, cap);
}

void DistBelowRow(const uint8_t* below, uint8_t* row, int n) {
  for (int i = 0; i < n; ++i) row[i] = morph_detail::DistBelowPixel(below[i], row[i]);
}

void ThresholdRow(uint8_t* p, int n, int N, uint8_t above, uint8_t notAbove) {
  for (int i = 0; i < n; ++i) p[i] = morph_detail::ThresholdPixel(p[i], N, above, notAbove);
}

namespace {
struct ScalarCounterRows {
  void Add(const uint8_t* row, uint8_t* cnt, int n, uint8_t v) const { CounterAdd(row, cnt, n, v); }
  void Sub(const uint8_t* row, uint8_t* cnt, int n, uint8_t v) const { CounterSub(row, cnt, n, v); }
  void Spread(const uint8_t* cnt, const uint8_t* copy, uint8_t* dst, int width, int kW,
              uint8_t v) const {
    SpreadRow(cnt, copy, dst, width, kW, v);
  }
};
}  // namespace

void CounterPass(const uint8_t* copy, uint8_t* counters, uint8_t* image, int width, int height,
                 int kW, int kH, uint8_t v) {
  morph_detail::CounterLoop(copy, counters, image, width, height, kW, kH, v, ScalarCounterRows());
}

void BoxPass(const uint8_t* src, uint8_t* dst, uint32_t* integral, int ring, int width,
             int height, int64_t r, int erode) {
  morph_detail::BoxLoop(src, dst, integral, ring, width, height, r, erode, BoxDecideRow);
}

void DistForward(uint8_t* image, int width, int y0, int y1, int from, int n, uint8_t target,
                 uint8_t cap, int col0, uint8_t far) {
  morph_detail::DistForwardLoop(image, width, y0, y1, from, n, target, cap, col0 != 0, far,
                                DistSeedRow);
}

void DistBackward(uint8_t* image, int width, int y1, int y0, int from, int n, int chainFrom) {
  morph_detail::DistBackwardLoop(image, width, y1, y0, from, n, chainFrom, DistBelowRow);
}

void ThresholdRows(uint8_t* image, int stride, int y0, int y1, int from, int n, int N,
                   uint8_t above, uint8_t notAbove) {
  morph_detail::ThresholdLoop(image, static_cast<size_t>(stride), y0, y1, from, n, N, above,
                              notAbove, ThresholdRow);
}

}  // namespace scalar
}  // namespace bivista
#endif  // HWY_ONCE
