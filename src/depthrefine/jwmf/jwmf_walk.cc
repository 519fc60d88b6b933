// The quantiser's two passes (min/max ignoring NaN, levels) and the weighted median walk: a joint
// histogram (level x class) and a balance count per class slide
// down each column; the cut moves from the previous row's level. Compiled once per vector target
// (the class lists of a level and the balance list are read off the counts with vector compares,
// and a level crossing updates all balances at once) and dispatched once per worker.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "depthrefine/jwmf/jwmf_walk.cc"
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <type_traits>

#include "bivista/jwmf.h"
#include "bivista/mem_services.h"
#include "common/log_internal.h"
#include "depthrefine/jwmf/jwmf_internal.h"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

// Storage kinds, defined once (outside the per-target part).
#ifndef BIVISTA_JWMF_WALK_ONCE
#define BIVISTA_JWMF_WALK_ONCE
namespace bivista {
namespace jwmf {
namespace walk {

// Counts are as narrow as the window allows. Packed kinds keep a pixel as its 16-bit cell index
// level x stride + class with stride 64 x kWords, so level and class are a shift and a mask; the
// wide kind keeps the three numbers. A count row and the balances span stride entries (whole
// 64-bit words of the class lists); entries of classes beyond the class count stay zero.
template <typename CountT, int kWordsN>
struct Packed {
  using Count = CountT;
  using Bal = int16_t;
  using Pix = uint16_t;
  static constexpr int kWords = kWordsN;
  static constexpr bool kPacked = true;
};
struct WidePix {
  uint32_t idx, cls, lev;
};
struct Wide {
  using Count = int32_t;
  using Bal = int32_t;
  using Pix = WidePix;
  static constexpr int kWords = 0;
  static constexpr bool kPacked = false;
};

struct Layout {
  int classes;
  int levels;
  int stride;  // cells per level: 64 x words
  int shift;   // log2(stride) for packed kinds
  int words;   // 64-bit words per class list
};

template <typename K>
Layout LayoutFor(int classes, int levelCount) {
  const int words = K::kWords != 0 ? K::kWords : (classes + 63) / 64;
  return Layout{classes, levelCount, words * 64, K::kWords == 4 ? 8 : 6, words};
}

enum class KindId { k8x1, k16x1, k8x4, k16x4, kWide };

// The narrowest kind that fits; Wide always does.
inline KindId KindFor(int levelCount, int classes, int radius) {
  const int64_t side = 2 * static_cast<int64_t>(std::max(radius, 0)) + 1;
  const int64_t stride = classes <= 64 ? 64 : 256;
  if (side * side > 32767 || classes > 256 || levelCount * stride > 65536) return KindId::kWide;
  const bool narrow = side * side <= 255;
  if (classes <= 64) return narrow ? KindId::k8x1 : KindId::k16x1;
  return narrow ? KindId::k8x4 : KindId::k16x4;
}

// Count rows through the library's 2D arrays.
inline uint8_t** CountRows(uint8_t*, int rows, int columns) { return uchar2D(rows, columns); }
inline uint16_t** CountRows(uint16_t*, int rows, int columns) {
  return reinterpret_cast<uint16_t**>(short2D(rows, columns));
}
inline int32_t** CountRows(int32_t*, int rows, int columns) { return int2D(rows, columns); }
inline void ReleaseRows(uint8_t** rows) { uchar2D_release(rows); }
inline void ReleaseRows(uint16_t** rows) { short2D_release(reinterpret_cast<short**>(rows)); }
inline void ReleaseRows(int32_t** rows) { int2D_release(rows); }

// The balances are kept as kBanks partial arrays whose sum is the balance: the sliding updates of
// neighbouring pixels (often of one class) then go to different arrays and do not wait on each
// other.
constexpr int kBanks = 4;

// Weighted sums run in 16 interleaved partial sums on every target (a 512-bit float vector, two
// of 256, four of 128 bits), which are then added pairwise: lanes j and j + 8, then j and j + 4,
// j and j + 2, 0 and 1.
constexpr int kLanes = 16;

// The last three steps, from the eight sums of lanes j and j + 8.
inline float SumLanes8(const float* p) {
  const float q0 = p[0] + p[4], q1 = p[1] + p[5], q2 = p[2] + p[6], q3 = p[3] + p[7];
  const float r0 = q0 + q2, r1 = q1 + q3;
  return r0 + r1;
}

inline float SumLanes(const float* part) {
  float p[kLanes / 2];
  for (int j = 0; j < kLanes / 2; ++j) p[j] = part[j] + part[j + kLanes / 2];
  return SumLanes8(p);
}

// balance +/- 2 x count in the balance's width (wrapping; the true result always fits).
template <typename B, typename C>
inline B Crossed(B balance, C count, bool down) {
  const uint32_t n = 2u * static_cast<uint32_t>(count);
  const uint32_t b = static_cast<uint32_t>(static_cast<int32_t>(balance));
  return static_cast<B>(static_cast<int32_t>(down ? b - n : b + n));
}

// The definition of the two list operations, on plain loops.
struct PlainOps {
  // The weighted sum of a level or of the balances: v holds `banks` arrays of n values whose
  // sum (wrapping in V) is the value of class f; over the classes f below n whose value is
  // nonzero (and class 0) the terms w[f] x (scale x value) are summed in kLanes interleaved
  // partial sums (class f into partial f mod kLanes, in ascending class order) that are then
  // added pairwise (SumLanes). w is read only below limit (its length).
  template <typename V>
  static float Dot(const float* w, const V* v, int n, int banks, int scale, int limit) {
    float part[kLanes] = {0.f};
    for (int f = 0; f < n; ++f) {
      uint32_t t = 0;
      for (int k = 0; k < banks; ++k) t += static_cast<uint32_t>(static_cast<int32_t>(v[k * n + f]));
      const V value = static_cast<V>(static_cast<int32_t>(t));
      if (f < limit && (value != 0 || f == 0)) {
        part[f % kLanes] += w[f] * static_cast<float>(scale * static_cast<int32_t>(value));
      } else {
        part[f % kLanes] += 0.f;
      }
    }
    return SumLanes(part);
  }
  // Every balance moves by 2 x its class's count in a level (down: the level leaves the cut).
  template <typename B, typename C>
  static void Cross(B* bal, const C* counts, int n, bool down) {
    for (int i = 0; i < n; ++i) bal[i] = Crossed(bal[i], counts[i], down);
  }
};

}  // namespace walk

// One level of the quantiser: truncation clamped to the range; NaN lands on level 0.
inline int LevelOf(float depth, float minV, float inv, float top, int levelCount) {
  const float v = (depth - minV) * inv;
  return v >= 1.0f ? (v < top ? static_cast<int>(v) : levelCount - 1) : 0;
}

// Min and max of a plane in scan order are its order-free min and max, except for the sign of
// a zero: the scan keeps the first zero it meets. Vector passes call this when a result is zero.
inline float FirstZero(const float* depth, int64_t n, float value) {
  if (value != 0.0f) return value;
  for (int64_t i = 0; i < n; ++i) {
    if (depth[i] == 0.0f) return depth[i];
  }
  return value;
}

}  // namespace jwmf
}  // namespace bivista

// The per-pixel steps of the walk are inlined into its row loop (GCC otherwise keeps some
// lambdas out of line once the loop has grown).
#define BIVISTA_JWMF_INLINE_LAMBDA __attribute__((always_inline))
#define BIVISTA_JWMF_COLUMNS_ARGS \
  first, end, levels, features, weights, height, width, classes, levelCount, radius, mask, output
#endif  // BIVISTA_JWMF_WALK_ONCE

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace jwmf {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace walk;  // NOLINT

// The weighted sums and level crossings on vectors (8- and 16-bit values; the wide kind and the
// scalar target use the plain loops).
struct VecOps {
#if HWY_TARGET != HWY_SCALAR
  // The terms of classes at .. at + lanes - 1: w[f] x scale x (sum of the banks), kept where
  // that sum is nonzero (and for class 0 when head).
  template <class DF, typename V>
  static HWY_INLINE hn::Vec<DF> Term(DF df, const float* HWY_RESTRICT w,
                                     const V* HWY_RESTRICT v, int n, int banks, int scale,
                                     size_t at, bool head) {
    const hn::Rebind<int32_t, DF> di;
    const hn::Rebind<V, DF> dv;
    auto sum = hn::LoadU(dv, v + at);
    for (int k = 1; k < banks; ++k) sum = hn::Add(sum, hn::LoadU(dv, v + k * n + at));
    auto x = hn::PromoteTo(di, sum);
    if (scale == 2) x = hn::Add(x, x);
    const auto prod = hn::Mul(hn::LoadU(df, w + at), hn::ConvertTo(df, x));
    auto keep = hn::RebindMask(df, hn::Ne(x, hn::Zero(di)));
    if (head) keep = hn::Or(keep, hn::FirstN(df, 1));
    return hn::IfThenElseZero(keep, prod);
  }
#endif
  // 8- and 16-bit values with a padded weight row (limit == n); else the plain loop.
  template <typename V>
  static HWY_INLINE float Dot(const float* HWY_RESTRICT w, const V* HWY_RESTRICT v, int n,
                              int banks, int scale, int limit) {
#if HWY_TARGET == HWY_SCALAR
    return PlainOps::Dot(w, v, n, banks, scale, limit);
#else
    const hn::CappedTag<float, kLanes> df;
    const size_t lanes = hn::Lanes(df);
    if constexpr (sizeof(V) > 2) {
      return PlainOps::Dot(w, v, n, banks, scale, limit);
    } else {
      if (lanes < 4 || limit < n) return PlainOps::Dot(w, v, n, banks, scale, limit);
      const size_t per = kLanes / lanes;  // vectors per 16 classes: 1, 2 or 4
      auto a0 = hn::Zero(df), a1 = hn::Zero(df), a2 = hn::Zero(df), a3 = hn::Zero(df);
      for (size_t b = 0; b < static_cast<size_t>(n); b += kLanes) {
        a0 = hn::Add(a0, Term(df, w, v, n, banks, scale, b, b == 0));
        if (per > 1) a1 = hn::Add(a1, Term(df, w, v, n, banks, scale, b + lanes, false));
        if (per > 2) {
          a2 = hn::Add(a2, Term(df, w, v, n, banks, scale, b + 2 * lanes, false));
          a3 = hn::Add(a3, Term(df, w, v, n, banks, scale, b + 3 * lanes, false));
        }
      }
      // Lanes j and j + 8 in a vector of at most 8 lanes, then the last steps on its lanes.
      float p[kLanes / 2];
      if (lanes == 16) {
        const hn::Half<decltype(df)> dh;
        hn::StoreU(hn::Add(hn::LowerHalf(dh, a0), hn::UpperHalf(dh, a0)), dh, p);
      } else if (lanes == 8) {
        hn::StoreU(hn::Add(a0, a1), df, p);
      } else {
        hn::StoreU(hn::Add(a0, a2), df, p);
        hn::StoreU(hn::Add(a1, a3), df, p + 4);
      }
      return SumLanes8(p);
    }
#endif
  }
  template <typename B, typename C>
  static HWY_INLINE void Cross(B* HWY_RESTRICT bal, const C* HWY_RESTRICT counts, int n,
                               bool down) {
#if HWY_TARGET == HWY_SCALAR
    PlainOps::Cross(bal, counts, n, down);
#else
    if constexpr (sizeof(B) != 2 || sizeof(C) > 2) {
      PlainOps::Cross(bal, counts, n, down);
    } else {
      const hn::CappedTag<int16_t, 64> d;
      const size_t lanes = hn::Lanes(d);
      for (size_t i = 0; i < static_cast<size_t>(n); i += lanes) {
        hn::Vec<decltype(d)> c;
        if constexpr (sizeof(C) == 1) {
          c = hn::PromoteTo(d, hn::LoadU(hn::Rebind<uint8_t, decltype(d)>(), counts + i));
        } else {
          c = hn::BitCast(d, hn::LoadU(hn::RebindToUnsigned<decltype(d)>(), counts + i));
        }
        c = hn::Add(c, c);
        const auto b = hn::LoadU(d, bal + i);
        hn::StoreU(down ? hn::Sub(b, c) : hn::Add(b, c), d, bal + i);
      }
    }
#endif
  }
};

template <typename K, typename Ops>
class Tracker {
 public:
  using Count = typename K::Count;
  using Bal = typename K::Bal;
  using Pix = typename K::Pix;

  // counts: levels x stride; bal: kBanks x stride (the partial arrays).
  // wlimit: length of the weight rows passed in (stride when padded).
  Tracker(const Layout& g, Count* counts, Bal* bal, int wlimit)
      : g_(g), counts_(counts), bal_(bal), wlimit_(wlimit) {
    memset(counts, 0, sizeof(Count) * static_cast<size_t>(g.stride) * g.levels);
    memset(bal, 0, sizeof(Bal) * g.stride * kBanks);
    SetCut(-1);
  }

  // Cells per level: a constant for the packed kinds, so that the row loops and the weighted
  // sums over a level are unrolled.
  HWY_INLINE int Stride() const { return K::kPacked ? 64 * K::kWords : g_.stride; }

  HWY_INLINE uint32_t Idx(const Pix& p) const {
    if constexpr (K::kPacked) {
      return p;
    } else {
      return p.idx;
    }
  }
  HWY_INLINE uint32_t Cls(const Pix& p) const {
    if constexpr (K::kPacked) {
      return p & (64u * K::kWords - 1u);
    } else {
      return p.cls;
    }
  }
  static Pix Make(uint32_t idx, uint32_t cls, uint32_t lev) {
    if constexpr (K::kPacked) {
      return static_cast<Pix>(idx);
    } else {
      return {idx, cls, lev};
    }
  }

  int cut() const { return cut_; }
  HWY_INLINE void SetCut(int cut) {
    cut_ = cut;
    cutLimit_ = static_cast<uint32_t>(cut + 1) * static_cast<uint32_t>(Stride());
  }

  // The n pixels of a row in (sign 1) or out (-1): each changes its cell count by one and its
  // class's balance by one (+1 in the window at or below the cut). The lists are read off the
  // counts when needed. Ins and outs, even and odd columns use different partial balances.
  template <int kSign>
  HWY_NOINLINE void Row(const Pix* HWY_RESTRICT p, int n) {
    Count* HWY_RESTRICT counts = counts_;
    const int stride = Stride();
    Bal* HWY_RESTRICT bal0 = bal_ + (kSign > 0 ? 0 : 2) * stride;
    Bal* HWY_RESTRICT bal1 = bal0 + stride;
    const uint32_t limit = cutLimit_;
    int i = 0;
    for (; i + 1 < n; i += 2) {
      One<kSign>(counts, bal0, Idx(p[i]), Cls(p[i]), limit);
      One<kSign>(counts, bal1, Idx(p[i + 1]), Cls(p[i + 1]), limit);
    }
    if (i < n) One<kSign>(counts, bal0, Idx(p[i]), Cls(p[i]), limit);
  }

  // The same for packed kinds straight from byte planes of levels and classes already known
  // to be in range.
  template <int kSign>
  HWY_NOINLINE void RowBytes(const uint8_t* HWY_RESTRICT lv, const uint8_t* HWY_RESTRICT cl,
                             int n) {
    constexpr int kShift = K::kWords == 4 ? 8 : 6;
    Count* HWY_RESTRICT counts = counts_;
    Bal* HWY_RESTRICT bal0 = bal_ + (kSign > 0 ? 0 : 2) * Stride();
    Bal* HWY_RESTRICT bal1 = bal0 + Stride();
    const uint32_t limit = cutLimit_;
    const auto at = [&](int k, Bal* HWY_RESTRICT bal) BIVISTA_JWMF_INLINE_LAMBDA {
      One<kSign>(counts, bal, static_cast<uint32_t>(lv[k]) << kShift | cl[k], cl[k], limit);
    };
    int i = 0;
    for (; i + 1 < n; i += 2) {
      at(i, bal0);
      at(i + 1, bal1);
    }
    if (i < n) at(i, bal0);
  }

  template <int kSign>
  HWY_INLINE void One(Count* HWY_RESTRICT counts, Bal* HWY_RESTRICT bal, uint32_t idx,
                      uint32_t cls, uint32_t limit) {
    counts[idx] = static_cast<Count>(counts[idx] + kSign);
    // +kSign at or below the cut, else -kSign, without a branch (the side is unpredictable).
    const int32_t above = static_cast<int32_t>(idx - limit) >> 31 == 0;
    const int32_t below = kSign - 2 * kSign * above;
    bal[cls] = static_cast<Bal>(bal[cls] + below);
  }

  // Sum of w[f] x balance over the balance list (classes with a nonzero balance, and class 0).
  HWY_INLINE float Balance(const float* w) {
    return Ops::Dot(w, bal_, Stride(), kBanks, 1, wlimit_);
  }

  // The balance and the cut moved by the two stop rules; returns the final balance. The
  // weights of the levels next to the cut do not depend on the balance: they are summed beside
  // it, so that a move of one level (the usual case) does not wait for the balance first.
  HWY_INLINE float Step(const float* w) {
    const int cut = cut_;
    if (!K::kPacked || cut < 0 || cut >= g_.levels - 1) return MoveCut(w, Balance(w));
    const int stride = Stride();
    const Count* at = counts_ + static_cast<size_t>(cut) * stride;
    float balance = Balance(w);
    const float below = Ops::Dot(w, at, stride, 1, 2, wlimit_);
    const float above = Ops::Dot(w, at + stride, stride, 1, 2, wlimit_);
    if (balance > 0 && cut != 0) {
      Ops::Cross(bal_, at, stride, true);
      return MoveOn(w, balance - below, cut - 1, true);
    }
    if (balance < 0) {
      Ops::Cross(bal_, at + stride, stride, false);
      return MoveOn(w, balance + above, cut + 1, false);
    }
    return balance;
  }

  // Moves the cut by the two stop rules and returns the final balance.
  HWY_NOINLINE float MoveCut(const float* w, float balance) {
    int cut = cut_;
    if (balance > 0 && cut != 0) {
      // cut > 0 also keeps a cut of -1 (possible only with non-positive weights) in range.
      while (balance > 0 && cut > 0) {
        balance -= CrossLevel(w, cut, true);
        --cut;
      }
    } else if (balance < 0 && cut != g_.levels - 1) {
      do {
        balance += CrossLevel(w, cut + 1, false);
        ++cut;
      } while (balance < 0 && cut != g_.levels - 1);
    }
    SetCut(cut);
    return balance;
  }

 private:
  // The rest of a move that has crossed one level already, in the same direction.
  HWY_INLINE float MoveOn(const float* w, float balance, int cut, bool down) {
    if (down) {
      while (balance > 0 && cut > 0) {
        balance -= CrossLevel(w, cut, true);
        --cut;
      }
    } else {
      while (balance < 0 && cut != g_.levels - 1) {
        balance += CrossLevel(w, cut + 1, false);
        ++cut;
      }
    }
    SetCut(cut);
    return balance;
  }

  // Moves every pixel of level across the cut (down: to above it); returns the level's weight,
  // the sum of 2 x count x w[f] over the classes present at the level (and class 0).
  float CrossLevel(const float* w, int level, bool down) {
    const Count* counts = counts_ + static_cast<size_t>(level) * Stride();
    const float weight = Ops::Dot(w, counts, Stride(), 1, 2, wlimit_);
    Ops::Cross(bal_, counts, Stride(), down);
    return weight;
  }

  Layout g_;
  Count* counts_;
  Bal* bal_;
  int wlimit_;
  int cut_ = -1;
  uint32_t cutLimit_ = 0;
};

// Whether every byte of the rows' columns [x0, x0 + n) is below limit.
bool BytesBelow(const uint8_t* HWY_RESTRICT plane, int width, int height, int x0, int n,
                int limit) {
  if (limit > 255) return true;
  if (limit < 1) return false;
  const hn::ScalableTag<uint8_t> d;
  const size_t lanes = hn::Lanes(d);
  const auto top = hn::Set(d, static_cast<uint8_t>(limit - 1));
  auto over = hn::Zero(d);  // lanes above the top level
  uint8_t tail = 0;
  for (int y = 0; y < height; ++y) {
    const uint8_t* row = plane + static_cast<size_t>(y) * width + x0;
    size_t i = 0;
    for (; i + lanes <= static_cast<size_t>(n); i += lanes) {
      over = hn::Or(over, hn::SaturatedSub(hn::LoadU(d, row + i), top));
    }
    for (; i < static_cast<size_t>(n); ++i) tail = static_cast<uint8_t>(tail | (row[i] >= limit));
  }
  return tail == 0 && hn::AllTrue(d, hn::Eq(over, hn::Zero(d)));
}

// One worker's columns.
template <typename K, typename Ops, typename T>
void RunColumns(int first, int end, const T* levels, const T* features, float** weights,
                int height, int width, int classes, int levelCount, int radius,
                const uint8_t* mask, T* output) {
  using Count = typename K::Count;
  using Pix = typename K::Pix;
  const Layout g = LayoutFor<K>(classes, levelCount);
  const int r = radius;
  const int reach = std::max(r, 0);
  const int bx0 = std::max(first - reach, 0);
  const int bandW = std::min(end + reach, width) - bx0;
  const int64_t balBytes =
      (static_cast<int64_t>(g.stride) * kBanks * sizeof(typename K::Bal) + 63) / 64 * 64;
  // Packed kinds read weight rows padded with zeros to the stride.
  const int64_t wpadBytes =
      K::kPacked ? static_cast<int64_t>(classes) * g.stride * static_cast<int64_t>(sizeof(float)) : 0;
  // Packed kinds over byte planes whose levels and classes are all in range read the planes
  // directly; the others pack a band of the worker's columns (clamped) first.
  bool direct = false;
  if constexpr (K::kPacked && sizeof(T) == 1) {
    direct = BytesBelow(reinterpret_cast<const uint8_t*>(levels), width, height, bx0, bandW,
                        levelCount) &&
             BytesBelow(reinterpret_cast<const uint8_t*>(features), width, height, bx0, bandW,
                        classes);
  }
  // Byte planes get every pixel of the columns written (the level itself where none is found),
  // first into a contiguous buffer per column: a store down the plane's column misses the first
  // cache level and holds up the histogram's stores behind it.
  constexpr bool kFill = sizeof(T) == 1;
  // Rounded to whole lines: the band that follows must stay aligned for its pixels.
  const int64_t colBytes = kFill ? (static_cast<int64_t>(height) + 63) / 64 * 64 : 0;
  const int64_t bandBytes =
      colBytes + (direct ? 0 : static_cast<int64_t>(bandW) * height * sizeof(Pix));
  Count** countRows = nullptr;
  unsigned char* block = nullptr;
  if (static_cast<int64_t>(levelCount) * g.stride * sizeof(Count) <= INT32_MAX &&
      balBytes + wpadBytes + bandBytes <= INT32_MAX) {
    countRows = CountRows(static_cast<Count*>(nullptr), levelCount, g.stride);
    if (countRows != nullptr) {
      block = static_cast<unsigned char*>(
          safeNew(static_cast<int>(balBytes + wpadBytes + bandBytes)));
    }
  }
  if (block == nullptr) {
    BV_LOGE(kTagAlgo, "filterCore_multiThread", kLineCoreMalloc,
            "filterCore_multiThread malloced memory failed!!\n");
    if (countRows != nullptr) ReleaseRows(countRows);
    if constexpr (sizeof(T) == 1) KeepColumns(first, end, levels, width, height, output);
    return;
  }
  auto* bal = reinterpret_cast<typename K::Bal*>(block);
  auto* wpad = reinterpret_cast<float*>(block + balBytes);
  if (K::kPacked) {
    for (int c = 0; c < classes; ++c) {
      float* row = wpad + static_cast<size_t>(c) * g.stride;
      memcpy(row, weights[c], sizeof(float) * classes);
      memset(row + classes, 0, sizeof(float) * (g.stride - classes));
    }
  }
  auto* columnOut = reinterpret_cast<T*>(block + balBytes + wpadBytes);
  auto* band = reinterpret_cast<Pix*>(block + balBytes + wpadBytes + colBytes);
  // Level and class of every band pixel, clamped into range, packed once.
  for (int y = 0; y < (direct ? 0 : height); ++y) {
    const T* lr = levels + static_cast<size_t>(y) * width + bx0;
    const T* fr = features + static_cast<size_t>(y) * width + bx0;
    Pix* out = band + static_cast<size_t>(y) * bandW;
    for (int i = 0; i < bandW; ++i) {
      const int lv = std::min(std::max(static_cast<int>(lr[i]), 0), levelCount - 1);
      const int cl = std::min(std::max(static_cast<int>(fr[i]), 0), classes - 1);
      out[i] = Tracker<K, Ops>::Make(static_cast<uint32_t>(lv * g.stride + cl), cl, lv);
    }
  }
  // One column's window: its tracker, columns and rows.
  struct Walk {
    Tracker<K, Ops>* t;
    T* out;  // byte planes: the column's output
    int x, c0, c1, top, bottom;
    bool stale;
  };
  Tracker<K, Ops> t0(g, countRows[0], bal, K::kPacked ? g.stride : classes);

  const auto row = [&](Walk& c, int y, auto sign) BIVISTA_JWMF_INLINE_LAMBDA {
    if (K::kPacked && sizeof(T) == 1 && direct) {
      const size_t at = static_cast<size_t>(y) * width + bx0 + c.c0;
      c.t->template RowBytes<decltype(sign)::value>(
          reinterpret_cast<const uint8_t*>(levels) + at,
          reinterpret_cast<const uint8_t*>(features) + at, c.c1 - c.c0 + 1);
    } else {
      const Pix* p = band + static_cast<size_t>(y) * bandW;
      c.t->template Row<decltype(sign)::value>(p + c.c0, c.c1 - c.c0 + 1);
    }
  };
  using In = std::integral_constant<int, 1>;
  using Out = std::integral_constant<int, -1>;
  // Taking the window's pixels out again clears the histogram and balances.
  const auto build = [&](Walk& c, int from, int to) {
    for (int y = c.top; y <= c.bottom; ++y) row(c, y, Out());
    c.t->SetCut(-1);
    c.top = std::max(from, 0);
    c.bottom = std::min(to, height - 1);
    for (int y = c.top; y <= c.bottom; ++y) row(c, y, In());
  };
  const auto begin = [&](Walk& c, int x) {
    c.x = x;
    c.c0 = std::max(x - r, 0) - bx0;
    c.c1 = std::min(x + r, width - 1) - bx0;  // inclusive; empty when c1 < c0
    c.top = 0;
    c.bottom = -1;
    c.stale = true;
    if (mask == nullptr) {
      build(c, 0, r);
      c.stale = false;
    }
  };
  // Row y of a column: its output, then the slide.
  const auto put = [&](Walk& c, int y, size_t at, T value) BIVISTA_JWMF_INLINE_LAMBDA {
    if (kFill) {
      c.out[y] = value;
    } else {
      output[at] = value;
    }
  };
  const auto finish = [&](Walk& c) {
    build(c, 0, -1);
    if (kFill) {
      for (int y = 0; y < height; ++y) output[static_cast<size_t>(y) * width + c.x] = c.out[y];
    }
  };
  const auto step = [&](Walk& c, int y) BIVISTA_JWMF_INLINE_LAMBDA {
    const size_t at = static_cast<size_t>(y) * width + c.x;
    if (mask != nullptr) {
      if (mask[at] == 0) {
        if (kFill) put(c, y, at, levels[at]);
        c.stale = true;
        return;
      }
      if (c.stale) {
        build(c, y - r, y + r);
        c.stale = false;
      }
    }
    const uint32_t centre = direct
                                ? static_cast<uint32_t>(features[at])
                                : c.t->Cls(band[static_cast<size_t>(y) * bandW + (c.x - bx0)]);
    const float* w = K::kPacked ? wpad + static_cast<size_t>(centre) * g.stride : weights[centre];
    const float balance = c.t->Step(w);
    const int cut = c.t->cut();
    if (cut < 0 || cut > levelCount - 1) {
      BV_LOGW(kTagAlgo, "filterCore_multiThread", kLineCoreRange,
              "get filtered value %d by balance weight %3.8f", cut, balance);
      if (kFill) put(c, y, at, levels[at]);
    } else {
      put(c, y, at, static_cast<T>(cut));
    }
    // Slide: the row below comes in, then the top row goes out.
    const int in = y + r + 1, out = y - r;
    if (in >= 0 && in < height) {
      row(c, in, In());
      if (c.bottom < c.top) c.top = in;
      c.bottom = in;
    }
    if (out >= 0 && out < height && out >= c.top && out <= c.bottom) {
      row(c, out, Out());
      c.top = out + 1;
    }
  };

  Walk a{&t0, columnOut, 0, 0, -1, 0, -1, true};
  for (int x = first; x < end; ++x) {
    begin(a, x);
    for (int y = 0; y < height; ++y) step(a, y);
    finish(a);
  }
  ReleaseRows(countRows);
  safeDelete(block);
}

template <typename Ops, typename T>
void Columns(int first, int end, const T* levels, const T* features, float** weights, int height,
             int width, int classes, int levelCount, int radius, const uint8_t* mask, T* output) {
  if (first >= end || height < 1) return;
  if (levelCount < 1 || classes < 1 || weights == nullptr) {
    if constexpr (sizeof(T) == 1) KeepColumns(first, end, levels, width, height, output);
    return;
  }
  // Beyond the image the window is clipped anyway (and empty for any negative radius); this
  // keeps row and column arithmetic in range.
  const int span = std::max(width, height);
  const int r = std::min(std::max(radius, -span), span);
  const auto run = [&](auto kind) {
    RunColumns<decltype(kind), Ops>(first, end, levels, features, weights, height, width, classes,
                                    levelCount, r, mask, output);
  };
  switch (KindFor(levelCount, classes, r)) {
    case KindId::k8x1: run(Packed<uint8_t, 1>()); break;
    case KindId::k16x1: run(Packed<uint16_t, 1>()); break;
    case KindId::k8x4: run(Packed<uint8_t, 4>()); break;
    case KindId::k16x4: run(Packed<uint16_t, 4>()); break;
    default: run(Wide());
  }
}

// Quantiser passes. NaN is replaced by the start values so that it never wins.
void QuantMinMax(const float* HWY_RESTRICT depth, int64_t n, float* minOut, float* maxOut) {
  const hn::ScalableTag<float> d;
  const int64_t lanes = static_cast<int64_t>(hn::Lanes(d));
  auto lo = hn::Set(d, 1e8f), hi = hn::Set(d, -1e8f);
  int64_t i = 0;
  for (; i + lanes <= n; i += lanes) {
    const auto v = hn::LoadU(d, depth + i);
    const auto nan = hn::IsNaN(v);
    lo = hn::Min(lo, hn::IfThenElse(nan, hn::Set(d, 1e8f), v));
    hi = hn::Max(hi, hn::IfThenElse(nan, hn::Set(d, -1e8f), v));
  }
  float minV = hn::GetLane(hn::MinOfLanes(d, lo)), maxV = hn::GetLane(hn::MaxOfLanes(d, hi));
  for (; i < n; ++i) {
    if (depth[i] > maxV) maxV = depth[i];
    if (depth[i] < minV) minV = depth[i];
  }
  *minOut = FirstZero(depth, n, minV);
  *maxOut = FirstZero(depth, n, maxV);
}

template <typename T>
void QuantLevels(const float* HWY_RESTRICT depth, int64_t n, float minV, float inv,
                 int levelCount, T* HWY_RESTRICT levels) {
  const float top = static_cast<float>(levelCount - 1);
  const hn::ScalableTag<int32_t> di;
  const hn::Rebind<float, decltype(di)> d;
  const hn::Rebind<T, decltype(di)> dt;
  const int64_t lanes = static_cast<int64_t>(hn::Lanes(d));
  // One vector of levels: the body and, through padded copies, the tail. (A scalar tail loop,
  // vectorised by the compiler for the SVE2 target, gave 0 for levels above the top under qemu.)
  const auto store = [&](const float* in, T* out) {
    const auto v = hn::Mul(hn::Sub(hn::LoadU(d, in), hn::Set(d, minV)), hn::Set(d, inv));
    const auto inside = hn::IfThenElse(hn::RebindMask(di, hn::Lt(v, hn::Set(d, top))),
                                       hn::ConvertTo(di, v), hn::Set(di, levelCount - 1));
    const auto level = hn::IfThenElseZero(hn::RebindMask(di, hn::Ge(v, hn::Set(d, 1.0f))), inside);
    if constexpr (sizeof(T) == 1) {
      // Levels are 0 .. 127: the low byte of each lane.
      const hn::RebindToUnsigned<decltype(di)> du;
      hn::StoreU(hn::U8FromU32(hn::BitCast(du, level)), dt, out);
    } else {
      hn::StoreU(level, dt, out);
    }
  };
  int64_t i = 0;
  for (; i + lanes <= n; i += lanes) store(depth + i, levels + i);
  if (i < n) {
    HWY_ALIGN float in[hn::MaxLanes(d)] = {};
    HWY_ALIGN T out[hn::MaxLanes(d)];
    const size_t rest = static_cast<size_t>(n - i);
    memcpy(in, depth + i, rest * sizeof(float));
    store(in, out);
    memcpy(levels + i, out, rest * sizeof(T));
  }
}

void QuantLevelsI32(const float* depth, int64_t n, float minV, float inv, int levelCount,
                    int32_t* levels) {
  QuantLevels(depth, n, minV, inv, levelCount, levels);
}
void QuantLevelsU8(const float* depth, int64_t n, float minV, float inv, int levelCount,
                   uint8_t* levels) {
  QuantLevels(depth, n, minV, inv, levelCount, levels);
}

void ColumnsI32(BIVISTA_JWMF_COLUMNS_PARAMS(int32_t)) {
  Columns<VecOps>(BIVISTA_JWMF_COLUMNS_ARGS);
}
void ColumnsU8(BIVISTA_JWMF_COLUMNS_PARAMS(uint8_t)) { Columns<VecOps>(BIVISTA_JWMF_COLUMNS_ARGS); }

}  // namespace HWY_NAMESPACE
}  // namespace jwmf
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace bivista {
namespace jwmf {

HWY_EXPORT(ColumnsI32);
HWY_EXPORT(ColumnsU8);
HWY_EXPORT(QuantMinMax);
HWY_EXPORT(QuantLevelsI32);
HWY_EXPORT(QuantLevelsU8);

void QuantMinMax(const float* depth, int64_t n, float* minV, float* maxV) {
  HWY_DYNAMIC_DISPATCH(QuantMinMax)(depth, n, minV, maxV);
}
void QuantLevels(const float* depth, int64_t n, float minV, float inv, int levelCount,
                 int32_t* levels) {
  HWY_DYNAMIC_DISPATCH(QuantLevelsI32)(depth, n, minV, inv, levelCount, levels);
}
void QuantLevels(const float* depth, int64_t n, float minV, float inv, int levelCount,
                 uint8_t* levels) {
  HWY_DYNAMIC_DISPATCH(QuantLevelsU8)(depth, n, minV, inv, levelCount, levels);
}

template <>
void FilterColumns<int32_t>(BIVISTA_JWMF_COLUMNS_PARAMS(int32_t)) {
  HWY_DYNAMIC_DISPATCH(ColumnsI32)(BIVISTA_JWMF_COLUMNS_ARGS);
}
template <>
void FilterColumns<uint8_t>(BIVISTA_JWMF_COLUMNS_PARAMS(uint8_t)) {
  HWY_DYNAMIC_DISPATCH(ColumnsU8)(BIVISTA_JWMF_COLUMNS_ARGS);
}

namespace scalar {
// Min and max in scan order; start values -1e8 and 1e8; NaN never compares.
void QuantMinMax(const float* depth, int64_t n, float* minOut, float* maxOut) {
  float maxV = -1e8f, minV = 1e8f;
  for (int64_t i = 0; i < n; ++i) {
    if (depth[i] > maxV) maxV = depth[i];
    if (depth[i] < minV) minV = depth[i];
  }
  *minOut = minV;
  *maxOut = maxV;
}
template <typename T>
void QuantLevels(const float* depth, int64_t n, float minV, float inv, int levelCount,
                 T* levels) {
  const float top = static_cast<float>(levelCount - 1);
  for (int64_t i = 0; i < n; ++i) {
    levels[i] = static_cast<T>(LevelOf(depth[i], minV, inv, top, levelCount));
  }
}
template void QuantLevels<int32_t>(const float*, int64_t, float, float, int, int32_t*);
template void QuantLevels<uint8_t>(const float*, int64_t, float, float, int, uint8_t*);

// The baseline target's walk with the plain list operations.
template <>
void FilterColumns<int32_t>(BIVISTA_JWMF_COLUMNS_PARAMS(int32_t)) {
  HWY_NAMESPACE::Columns<walk::PlainOps>(BIVISTA_JWMF_COLUMNS_ARGS);
}
template <>
void FilterColumns<uint8_t>(BIVISTA_JWMF_COLUMNS_PARAMS(uint8_t)) {
  HWY_NAMESPACE::Columns<walk::PlainOps>(BIVISTA_JWMF_COLUMNS_ARGS);
}
}  // namespace scalar

}  // namespace jwmf
}  // namespace bivista
#endif  // HWY_ONCE
