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

// Histogram cell of one (level, class): its count and the class links of the level's list.
template <typename Count, typename Link>
struct CellOf {
  Count count;
  Link next;
  Link prev;
};

// Compact types while counts fit: 16-bit counts and balances, byte links, 16-bit cell index.
struct SmallKind {
  using Cell = CellOf<uint16_t, uint8_t>;
  using Link = uint8_t;
  using Bal = int16_t;
  using Pix = uint32_t;  // cell index | class << 16
  static constexpr int kShift = 16;
  static constexpr uint32_t kIdxMask = 0xFFFFu;
};

struct WideKind {
  using Cell = CellOf<int32_t, int32_t>;
  using Link = int32_t;
  using Bal = int32_t;
  using Pix = uint64_t;  // cell index | class << 32
  static constexpr int kShift = 32;
  static constexpr uint64_t kIdxMask = 0xFFFFFFFFu;
};

bool FitsSmall(int levelCount, int classes, int radius) {
  const int64_t side = 2 * static_cast<int64_t>(radius) + 1;
  return classes <= 256 && static_cast<int64_t>(levelCount) * classes <= 65536 &&
         side * side <= 32767;
}

template <typename K>
class Tracker {
 public:
  using Cell = typename K::Cell;
  using Link = typename K::Link;
  using Bal = typename K::Bal;
  using Pix = typename K::Pix;

  Tracker(Cell* cells, Bal* bal, Link* next, Link* prev, int classes, int levelCount)
      : cells_(cells), bal_(bal), bn_(next), bp_(prev), classes_(classes), levels_(levelCount) {
    memset(cells, 0, sizeof(Cell) * static_cast<size_t>(classes) * levelCount);
    memset(bal, 0, sizeof(Bal) * classes);
    memset(next, 0, sizeof(Link) * classes);
    memset(prev, 0, sizeof(Link) * classes);
    SetCut(-1);
  }

  int cut() const { return cut_; }
  void SetCut(int cut) {
    cut_ = cut;
    cutLimit_ = static_cast<uint64_t>(cut + 1) * static_cast<uint64_t>(classes_);
  }

  void Add(Pix v) {
    const uint64_t idx = v & K::kIdxMask;
    const int f = static_cast<int>(v >> K::kShift);
    Cell* c = cells_ + idx;
    if (c->count++ == 0 && f != 0) {
      Cell* h = c - f;
      const Link nx = h->next;
      c->next = nx;
      c->prev = 0;
      h[nx].prev = static_cast<Link>(f);
      h->next = static_cast<Link>(f);
    }
    ChangeBalance(f, idx < cutLimit_ ? 1 : -1);
  }

  void Remove(Pix v) {
    const uint64_t idx = v & K::kIdxMask;
    const int f = static_cast<int>(v >> K::kShift);
    Cell* c = cells_ + idx;
    if (--c->count == 0 && f != 0) {
      Cell* h = c - f;
      h[c->prev].next = c->next;
      h[c->next].prev = c->prev;
    }
    ChangeBalance(f, idx < cutLimit_ ? -1 : 1);
  }

  // Sum of w[f] x balance over the balance list, class 0 first.
  float Balance(const float* w) const {
    float s = w[0] * static_cast<float>(bal_[0]);
    for (int f = bn_[0]; f != 0; f = bn_[f]) s += w[f] * static_cast<float>(bal_[f]);
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
    } else if (balance < 0 && cut != levels_ - 1) {
      do {
        balance += CrossLevel(w, cut + 1, 2);
        ++cut;
      } while (balance < 0 && cut != levels_ - 1);
    }
    SetCut(cut);
    return balance;
  }

 private:
  void ChangeBalance(int f, int delta) {
    const int b = bal_[f];
    const int nb = b + delta;
    bal_[f] = static_cast<Bal>(nb);
    if (f == 0) return;
    if (b == 0) {
      const Link nx = bn_[0];
      bn_[f] = nx;
      bp_[f] = 0;
      bp_[nx] = static_cast<Link>(f);
      bn_[0] = static_cast<Link>(f);
    } else if (nb == 0) {
      bn_[bp_[f]] = bn_[f];
      bp_[bn_[f]] = bp_[f];
    }
  }

  // Moves every pixel of level across the cut (sign -2: to above it, +2: to at or below it);
  // returns the level's weight sum(2 x count x w[f]) over its list, class 0 first.
  float CrossLevel(const float* w, int level, int sign) {
    const Cell* h = cells_ + static_cast<size_t>(level) * classes_;
    float weight = 0.f;
    int f = 0;
    do {
      const int n = 2 * h[f].count;
      if (n != 0) ChangeBalance(f, sign > 0 ? n : -n);
      weight += static_cast<float>(n) * w[f];
      f = h[f].next;
    } while (f != 0);
    return weight;
  }

  Cell* cells_;
  Bal* bal_;
  Link* bn_;
  Link* bp_;
  int classes_;
  int levels_;
  int cut_ = -1;
  uint64_t cutLimit_ = 0;
};

template <typename K>
void PackBand(const int32_t* levels, const int32_t* features, int width, int height, int bx0,
              int bandW, int levelCount, int classes, typename K::Pix* band);

template <typename K, typename T>
void PackBandOf(const T* levels, const T* features, int width, int height, int bx0, int bandW,
                int levelCount, int classes, typename K::Pix* band) {
  using Pix = typename K::Pix;
  for (int y = 0; y < height; ++y) {
    const T* l = levels + static_cast<size_t>(y) * width + bx0;
    const T* f = features + static_cast<size_t>(y) * width + bx0;
    Pix* out = band + static_cast<size_t>(y) * bandW;
    for (int i = 0; i < bandW; ++i) {
      const int lv = std::min(std::max(static_cast<int>(l[i]), 0), levelCount - 1);
      const int cl = std::min(std::max(static_cast<int>(f[i]), 0), classes - 1);
      out[i] = static_cast<Pix>(static_cast<Pix>(lv) * static_cast<Pix>(classes) + cl) |
               (static_cast<Pix>(cl) << K::kShift);
    }
  }
}

// One worker's columns with compact or wide histogram types.
template <typename K, typename T>
void RunColumns(int first, int end, const T* levels, const T* features, float** weights,
                int height, int width, int classes, int levelCount, int radius,
                const uint8_t* mask, T* output) {
  using Cell = typename K::Cell;
  using Pix = typename K::Pix;
  const int r = radius;
  const int reach = std::max(r, 0);
  const int bx0 = std::max(first - reach, 0);
  const int bandW = std::min(end + reach, width) - bx0;
  const int64_t cellBytes = static_cast<int64_t>(levelCount) * classes * sizeof(Cell);
  const int64_t balBytes = static_cast<int64_t>(classes) *
                           (sizeof(typename K::Bal) + 2 * sizeof(typename K::Link));
  const int64_t balPad = (balBytes + 15) / 16 * 16;
  const int64_t bandBytes = static_cast<int64_t>(bandW) * height * sizeof(Pix);
  unsigned char** cellRows = nullptr;
  unsigned char* block = nullptr;
  if (cellBytes <= INT32_MAX && balPad + bandBytes <= INT32_MAX) {
    cellRows = uchar2D(levelCount, static_cast<int>(classes * sizeof(Cell)));
    if (cellRows != nullptr) block = static_cast<unsigned char*>(safeNew(static_cast<int>(balPad + bandBytes)));
  }
  if (block == nullptr) {
    BV_LOGE(kTagAlgo, "filterCore_multiThread", kLineCoreMalloc,
            "filterCore_multiThread malloced memory failed!!\n");
    uchar2D_release(cellRows);
    return;
  }
  auto* bal = reinterpret_cast<typename K::Bal*>(block);
  auto* bn = reinterpret_cast<typename K::Link*>(bal + classes);
  typename K::Link* bp = bn + classes;
  auto* band = reinterpret_cast<Pix*>(block + balPad);
  PackBandOf<K>(levels, features, width, height, bx0, bandW, levelCount, classes, band);
  Tracker<K> t(reinterpret_cast<Cell*>(cellRows[0]), bal, bn, bp, classes, levelCount);

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
    const auto clear = [&]() {
      for (int y = top; y <= bottom; ++y) removeRow(y);
      t.SetCut(-1);
    };
    const auto build = [&](int from, int to) {
      clear();
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
      const Pix centre = band[static_cast<size_t>(y) * bandW + (x - bx0)];
      const float* w = weights[centre >> K::kShift];
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
    clear();
  }
  uchar2D_release(cellRows);
  safeDelete(block);
}

}  // namespace

template <typename T>
void FilterColumns(int first, int end, const T* levels, const T* features, float** weights,
                   int height, int width, int classes, int levelCount, int radius,
                   const uint8_t* mask, T* output) {
  if (first >= end || height < 1 || levelCount < 1 || classes < 1 || weights == nullptr) return;
  // Beyond the image the window is clipped anyway; this keeps row arithmetic in range.
  const int r = std::min(radius, std::max(width, height));
  if (FitsSmall(levelCount, classes, r)) {
    RunColumns<SmallKind>(first, end, levels, features, weights, height, width, classes,
                          levelCount, r, mask, output);
  } else {
    RunColumns<WideKind>(first, end, levels, features, weights, height, width, classes,
                         levelCount, r, mask, output);
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
