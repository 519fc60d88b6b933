// The weighted median: a joint histogram (level x class) with per-level class lists and a
// balance count per class slides down each column; the cut moves from the previous row's level.
#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "bivista/jwmf.h"
#include "bivista/mem_services.h"
#include "bivista/mthread.h"
#include "common/log_internal.h"
#include "depthrefine/jwmf/jwmf_internal.h"

namespace bivista {
namespace jwmf {
namespace {

// Kinds of tracker storage. The class lists (per level: classes with a nonzero count; the
// balance list: classes with a nonzero balance) are bit sets of kWords 64-bit words per list
// (0: words from the class count), visited in ascending class order, class 0 always first.
// Counts are as narrow as the window allows. Packed kinds keep a pixel as its 16-bit cell index
// level x stride + class, with a power-of-two stride; the wide kind keeps the three numbers.
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

// Cell layout shared by the band packing and the tracker.
struct Layout {
  int classes;
  int levels;
  int stride;  // cells per level
  int shift;   // log2(stride) for packed kinds
  int words;   // 64-bit words per class list
};

template <typename K>
Layout LayoutFor(int classes, int levelCount) {
  Layout g{classes, levelCount, classes, 0, K::kWords != 0 ? K::kWords : (classes + 63) / 64};
  if (K::kPacked) {
    while ((1 << g.shift) < classes) ++g.shift;
    g.stride = 1 << g.shift;
  }
  return g;
}

template <typename K>
class Tracker {
 public:
  using Count = typename K::Count;
  using Bal = typename K::Bal;
  using Pix = typename K::Pix;

  // counts: levels x stride; masks: (levels + 1) x words, the last row the balance list.
  Tracker(const Layout& g, Count* counts, uint64_t* masks, Bal* bal)
      : g_(g), counts_(counts), masks_(masks), bal_(bal),
        balMask_(masks + static_cast<size_t>(g.levels) * g.words) {
    memset(counts, 0, sizeof(Count) * static_cast<size_t>(g.stride) * g.levels);
    memset(masks, 0, sizeof(uint64_t) * static_cast<size_t>(g.levels + 1) * g.words);
    memset(bal, 0, sizeof(Bal) * g.classes);
    SetCut(-1);
  }

  uint32_t Idx(const Pix& p) const {
    if constexpr (K::kPacked) {
      return p;
    } else {
      return p.idx;
    }
  }
  uint32_t Cls(const Pix& p) const {
    if constexpr (K::kPacked) {
      return p & (g_.stride - 1);
    } else {
      return p.cls;
    }
  }
  uint32_t Lev(const Pix& p) const {
    if constexpr (K::kPacked) {
      return static_cast<uint32_t>(p) >> g_.shift;
    } else {
      return p.lev;
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
  void SetCut(int cut) {
    cut_ = cut;
    cutLimit_ = static_cast<uint32_t>(cut + 1) * static_cast<uint32_t>(g_.stride);
  }

  // Branch-free: the list bits follow the counts and balances.
  void Add(const Pix& p) {
    const uint32_t idx = Idx(p), f = Cls(p);
    ++counts_[idx];
    masks_[Lev(p) * Words() + (f >> 6)] |= uint64_t{1} << (f & 63);
    ChangeBalance(f, idx < cutLimit_ ? 1 : -1);
  }

  void Remove(const Pix& p) {
    const uint32_t idx = Idx(p), f = Cls(p);
    const Count c = --counts_[idx];
    masks_[Lev(p) * Words() + (f >> 6)] &= ~(uint64_t{c == 0} << (f & 63));
    ChangeBalance(f, idx < cutLimit_ ? -1 : 1);
  }

  // Sum of w[f] x balance over the balance list, class 0 first.
  float Balance(const float* w) const {
    float s = 0.f;
    for (int k = 0; k < Words(); ++k) {
      for (uint64_t m = balMask_[k] | uint64_t{k == 0}; m != 0; m &= m - 1) {
        const int f = k * 64 + __builtin_ctzll(m);
        s += w[f] * static_cast<float>(bal_[f]);
      }
    }
    return s;
  }

  // Moves the cut by the two stop rules and returns the final balance.
  float MoveCut(const float* w, float balance) {
    int cut = cut_;
    if (balance > 0 && cut != 0) {
      // cut > 0 also keeps a cut of -1 (possible only with non-positive weights) in range.
      while (balance > 0 && cut > 0) {
        balance -= CrossLevel(w, cut, -2);
        --cut;
      }
    } else if (balance < 0 && cut != g_.levels - 1) {
      do {
        balance += CrossLevel(w, cut + 1, 2);
        ++cut;
      } while (balance < 0 && cut != g_.levels - 1);
    }
    SetCut(cut);
    return balance;
  }

 private:
  int Words() const { return K::kWords != 0 ? K::kWords : g_.words; }

  void ChangeBalance(uint32_t f, int delta) {
    const int b = bal_[f] + delta;
    bal_[f] = static_cast<Bal>(b);
    uint64_t& m = balMask_[f >> 6];
    const uint64_t bit = uint64_t{1} << (f & 63);
    m = (m & ~bit) | (b != 0 ? bit : 0);
  }

  // Moves every pixel of level across the cut (sign -2: to above it, +2: to at or below it);
  // returns the level's weight, the sum of 2 x count x w[f] over its list, class 0 first.
  float CrossLevel(const float* w, int level, int sign) {
    const Count* counts = counts_ + static_cast<size_t>(level) * g_.stride;
    const uint64_t* lm = masks_ + static_cast<size_t>(level) * Words();
    float weight = 0.f;
    for (int k = 0; k < Words(); ++k) {
      for (uint64_t m = lm[k] | uint64_t{k == 0}; m != 0; m &= m - 1) {
        const int f = k * 64 + __builtin_ctzll(m);
        const int n = 2 * counts[f];
        ChangeBalance(f, sign > 0 ? n : -n);
        weight += static_cast<float>(n) * w[f];
      }
    }
    return weight;
  }

  Layout g_;
  Count* counts_;
  uint64_t* masks_;
  Bal* bal_;
  uint64_t* balMask_;
  int cut_ = -1;
  uint32_t cutLimit_ = 0;
};

enum class KindId { k8x1, k16x1, k8x4, k16x4, kWide };

// The narrowest kind that fits; Wide always does.
KindId KindFor(int levelCount, int classes, int radius) {
  const int64_t side = 2 * static_cast<int64_t>(std::max(radius, 0)) + 1;
  int stride = 1;
  while (stride < classes && stride < 512) stride <<= 1;
  if (side * side > 32767 || classes > 256 || static_cast<int64_t>(levelCount) * stride > 65536) {
    return KindId::kWide;
  }
  const bool narrow = side * side <= 255;
  if (classes <= 64) return narrow ? KindId::k8x1 : KindId::k16x1;
  return narrow ? KindId::k8x4 : KindId::k16x4;
}

// Count rows through the library's 2D arrays.
uint8_t** CountRows(uint8_t*, int rows, int columns) { return uchar2D(rows, columns); }
uint16_t** CountRows(uint16_t*, int rows, int columns) {
  return reinterpret_cast<uint16_t**>(short2D(rows, columns));
}
int32_t** CountRows(int32_t*, int rows, int columns) { return int2D(rows, columns); }
void ReleaseRows(uint8_t** rows) { uchar2D_release(rows); }
void ReleaseRows(uint16_t** rows) { short2D_release(reinterpret_cast<short**>(rows)); }
void ReleaseRows(int32_t** rows) { int2D_release(rows); }

// One worker's columns.
template <typename K, typename T>
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
  const int64_t maskBytes = (static_cast<int64_t>(levelCount) + 1) * g.words * 8;
  const int64_t balBytes = (static_cast<int64_t>(classes) * sizeof(typename K::Bal) + 15) / 16 * 16;
  const int64_t bandBytes = static_cast<int64_t>(bandW) * height * sizeof(Pix);
  Count** countRows = nullptr;
  unsigned char* block = nullptr;
  if (static_cast<int64_t>(levelCount) * g.stride * sizeof(Count) <= INT32_MAX &&
      maskBytes + balBytes + bandBytes <= INT32_MAX) {
    countRows = CountRows(static_cast<Count*>(nullptr), levelCount, g.stride);
    if (countRows != nullptr) {
      block = static_cast<unsigned char*>(
          safeNew(static_cast<int>(maskBytes + balBytes + bandBytes)));
    }
  }
  if (block == nullptr) {
    BV_LOGE(kTagAlgo, "filterCore_multiThread", kLineCoreMalloc,
            "filterCore_multiThread malloced memory failed!!\n");
    if (countRows != nullptr) ReleaseRows(countRows);
    return;
  }
  auto* masks = reinterpret_cast<uint64_t*>(block);
  auto* bal = reinterpret_cast<typename K::Bal*>(block + maskBytes);
  auto* band = reinterpret_cast<Pix*>(block + maskBytes + balBytes);
  // Level and class of every band pixel, clamped into range, packed once.
  for (int y = 0; y < height; ++y) {
    const T* lr = levels + static_cast<size_t>(y) * width + bx0;
    const T* fr = features + static_cast<size_t>(y) * width + bx0;
    Pix* out = band + static_cast<size_t>(y) * bandW;
    for (int i = 0; i < bandW; ++i) {
      const int lv = std::min(std::max(static_cast<int>(lr[i]), 0), levelCount - 1);
      const int cl = std::min(std::max(static_cast<int>(fr[i]), 0), classes - 1);
      out[i] = Tracker<K>::Make(static_cast<uint32_t>(lv * g.stride + cl), cl, lv);
    }
  }
  Tracker<K> t(g, countRows[0], masks, bal);

  for (int x = first; x < end; ++x) {
    const int c0 = std::max(x - r, 0) - bx0;
    const int c1 = std::min(x + r, width - 1) - bx0;  // inclusive; empty when c1 < c0
    int top = 0, bottom = -1;  // rows in the window
    const auto addRow = [&](int y) {
      const Pix* p = band + static_cast<size_t>(y) * bandW;
      for (int c = c0; c <= c1; ++c) t.Add(p[c]);
    };
    const auto removeRow = [&](int y) {
      const Pix* p = band + static_cast<size_t>(y) * bandW;
      for (int c = c0; c <= c1; ++c) t.Remove(p[c]);
    };
    // Taking the window's pixels out again clears the histogram, lists and balances.
    const auto build = [&](int from, int to) {
      for (int y = top; y <= bottom; ++y) removeRow(y);
      t.SetCut(-1);
      top = std::max(from, 0);
      bottom = std::min(to, height - 1);
      for (int y = top; y <= bottom; ++y) addRow(y);
    };
    bool stale = true;
    if (mask == nullptr) {
      build(0, r);
      stale = false;
    }
    for (int y = 0; y < height; ++y) {
      const size_t at = static_cast<size_t>(y) * width + x;
      if (mask != nullptr) {
        if (mask[at] == 0) {
          stale = true;
          continue;
        }
        if (stale) {
          build(y - r, y + r);
          stale = false;
        }
      }
      const float* w = weights[t.Cls(band[static_cast<size_t>(y) * bandW + (x - bx0)])];
      const float balance = t.MoveCut(w, t.Balance(w));
      const int cut = t.cut();
      if (cut < 0 || cut > levelCount - 1) {
        BV_LOGW(kTagAlgo, "filterCore_multiThread", kLineCoreRange,
                "get filtered value %d by balance weight %3.8f", cut, balance);
      } else {
        output[at] = static_cast<T>(cut);
      }
      // Slide: the row below comes in, then the top row goes out.
      const int in = y + r + 1, out = y - r;
      if (in >= 0 && in < height) {
        addRow(in);
        if (bottom < top) top = in;
        bottom = in;
      }
      if (out >= 0 && out < height && out >= top && out <= bottom) {
        removeRow(out);
        top = out + 1;
      }
    }
    build(0, -1);
  }
  ReleaseRows(countRows);
  safeDelete(block);
}

}  // namespace

template <typename T>
void FilterColumns(int first, int end, const T* levels, const T* features, float** weights,
                   int height, int width, int classes, int levelCount, int radius,
                   const uint8_t* mask, T* output) {
  if (first >= end || height < 1 || levelCount < 1 || classes < 1 || weights == nullptr) return;
  // Beyond the image the window is clipped anyway (and empty for any negative radius); this
  // keeps row and column arithmetic in range.
  const int span = std::max(width, height);
  const int r = std::min(std::max(radius, -span), span);
  const auto run = [&](auto kind) {
    RunColumns<decltype(kind)>(first, end, levels, features, weights, height, width, classes,
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

namespace {

// Worker count and column split; boot(i, first, end) starts worker i.
template <typename Boot>
void SplitColumns(int width, int threadCount, void* pool, Boot boot) {
  if (threadCount < 0) return;
  const int workers = threadCount == 0 ? 1 : std::min(threadCount, kMaxWorkers);
  for (int i = 0; i < workers; ++i) {
    const int first = static_cast<int>(static_cast<int64_t>(i) * width / workers);
    const int end = i == workers - 1 ? width
                                     : static_cast<int>(static_cast<int64_t>(i + 1) * width / workers);
    boot(i, first, end);
  }
  MThread_Sync(pool, 0, workers);
}

template <typename T>
struct ColumnJob {
  int first, end;
  const T* levels;
  const T* features;
  float** weights;
  int height, width, classes, levelCount, radius;
  const uint8_t* mask;
  T* output;
};

template <typename T>
void* RunColumnJob(void* argument, int /*threadIndex*/) {
  const auto* j = static_cast<const ColumnJob<T>*>(argument);
  FilterColumns(j->first, j->end, j->levels, j->features, j->weights, j->height, j->width,
                j->classes, j->levelCount, j->radius, j->mask, j->output);
  return nullptr;
}

int32_t* CopyLevels(const int32_t* levels, int width, int height, const char* fn, int line) {
  const int64_t bytes = PixelCount(width, height) * 4;
  auto* copy = static_cast<int32_t*>(safeNew(bytes > INT32_MAX ? -1 : static_cast<int>(bytes)));
  if (copy == nullptr) {
    BV_LOGE(kTagAlgo, fn, line, "filterCore failed!!\n");
    return nullptr;
  }
  memcpy(copy, levels, static_cast<size_t>(bytes));
  return copy;
}

void CopyBack(int32_t* levels, int32_t* copy, int width, int height) {
  memcpy(levels, copy, static_cast<size_t>(PixelCount(width, height)) * 4);
  safeDelete(copy);
}

}  // namespace

template <typename T>
void RunWorkers(const T* levels, const T* features, float** weights, const uint8_t* mask,
                int height, int width, int classes, int levelCount, int radius, void* pool,
                int threadCount, T* output) {
  ColumnJob<T> jobs[kMaxWorkers];
  SplitColumns(width, threadCount, pool, [&](int i, int first, int end) {
    jobs[i] = {first, end, levels, features, weights, height, width, classes, levelCount,
               radius, mask, output};
    MThread_Boot(pool, i, RunColumnJob<T>, &jobs[i]);
  });
}

template void RunWorkers<uint8_t>(const uint8_t*, const uint8_t*, float**, const uint8_t*, int,
                                  int, int, int, int, void*, int, uint8_t*);

void RemoveObstacles(uint8_t* mask, int width, int height) {
  // Columns are independent: walk them in row order, 64 at a time, each with its own counters.
  constexpr int kBlock = 64;
  for (int x0 = 0; x0 < width; x0 += kBlock) {
    const int cols = std::min(kBlock, width - x0);
    int zeros[kBlock] = {0}, ones[kBlock] = {0};
    for (int y = 0; y < height; ++y) {
      uint8_t* row = mask + static_cast<size_t>(y) * width + x0;
      for (int i = 0; i < cols; ++i) {
        int& z = zeros[i];
        int& n = ones[i];
        if (row[i] != 0) {
          if (z > 0 && z < kObstacleLen) {
            for (int k = 1; k <= z; ++k) row[i - static_cast<ptrdiff_t>(k) * width] = 255;
          }
          ++n;
          z = 0;
        } else {
          ++z;
          if (n == 1 || n == 2) {
            for (int k = 1; k <= n; ++k) row[i - static_cast<ptrdiff_t>(k) * width] = 0;
          }
          n = 0;
        }
      }
    }
  }
  BV_LOGD(kTagAlgo, "filterCoreWithMask", kLineObstacle,
          "remove obstacle with obstaclelen %d validlength %d\n", kObstacleLen, kValidLen);
}

template void FilterColumns<int32_t>(int, int, const int32_t*, const int32_t*, float**, int, int,
                                     int, int, int, const uint8_t*, int32_t*);

}  // namespace jwmf
}  // namespace bivista

using namespace bivista::jwmf;

void* filterCore_multiThread(void* argument, int /*threadIndex*/) {
  const auto* a = static_cast<const JWMFCoreArgs*>(argument);
  FilterColumns(a->firstColumn, a->endColumn, a->levels, a->features, a->weights, a->height,
                a->width, a->classes, a->levelCount, a->radius, nullptr, a->output);
  return nullptr;
}

void* filterCoreWithmask_multiThread(void* argument, int /*threadIndex*/) {
  const auto* a = static_cast<const JWMFCoreMaskArgs*>(argument);
  FilterColumns(a->firstColumn, a->endColumn, a->levels, a->features, a->weights, a->height,
                a->width, a->classes, a->levelCount, a->radius, a->mask, a->output);
  return nullptr;
}

extern "C" int filterCore(int32_t* levels, const int32_t* features, float** weights, int height,
                          int width, int classes, int levelCount, int radius, void* pool,
                          int threadCount) {
  int32_t* copy = CopyLevels(levels, width, height, "filterCore", kLineFilterCoreCopy);
  if (copy == nullptr) return -1;
  JWMFCoreArgs records[kMaxWorkers];
  SplitColumns(width, threadCount, pool, [&](int i, int first, int end) {
    records[i] = {first, end, levels, features, weights, height, width, classes, levelCount,
                  radius, copy};
    MThread_Boot(pool, i, filterCore_multiThread, &records[i]);
  });
  CopyBack(levels, copy, width, height);
  return 0;
}

extern "C" int filterCoreWithMask(int32_t* levels, const int32_t* features, float** weights,
                                  uint8_t* mask, int keepMask, int height, int width, int classes,
                                  int levelCount, int radius, void* pool, int threadCount) {
  int32_t* copy = CopyLevels(levels, width, height, "filterCoreWithMask", kLineFilterMaskCopy);
  if (copy == nullptr) return -1;
  if (keepMask == 0 && mask != nullptr) RemoveObstacles(mask, width, height);
  JWMFCoreMaskArgs records[kMaxWorkers];
  SplitColumns(width, threadCount, pool, [&](int i, int first, int end) {
    records[i] = {first, end, levels, features, weights, height, width, classes, levelCount,
                  radius, mask, copy};
    MThread_Boot(pool, i, filterCoreWithmask_multiThread, &records[i]);
  });
  CopyBack(levels, copy, width, height);
  return 0;
}
