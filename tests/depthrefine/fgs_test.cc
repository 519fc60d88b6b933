// The smoother against its direct formulation (whole filter, one pass, single lines), vector
// kernels against scalar on every target, thread splits, allocation failures and edge cases.
#include "bivista/fgs.h"

#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "bivista/mthread.h"
#include "depthrefine/fgs/fgs_kernels.h"
#include "support/alloc_table.h"
#include "support/hwy_targets.h"
#include "support/platform_capture.h"

namespace {

using bvtest::AllocTable;
using bvtest::LogCapture;

// The smoother written directly from its definition, without the library's helpers: weights
// on the transposed guide, transposed passes, the decay through the transposed mask.
inline void RefSolveLine(float* f, const float* w, float* c, int n) {
  if (n < 1) return;
  const float k = static_cast<float>(1.0 / (1.0 - static_cast<double>(w[0])));
  c[0] = k * w[0];
  f[0] = f[0] * k;
  for (int i = 1; i < n; ++i) {
    const float diag = static_cast<float>(1.0 - (double{w[i]} + double{w[i - 1]}));
    const float inv = 1.0f / std::fma(-c[i - 1], w[i - 1], diag);
    c[i] = w[i] * inv;
    f[i] = std::fma(-f[i - 1], w[i - 1], f[i]) * inv;
  }
  for (int i = n - 2; i >= 0; --i) f[i] = std::fma(-f[i + 1], c[i], f[i]);
}

template <typename T>
std::vector<T> RefTranspose(const T* src, int rows, int cols, int elem = 1) {
  std::vector<T> dst(static_cast<size_t>(rows) * cols * elem);
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < cols; ++j)
      for (int k = 0; k < elem; ++k)
        dst[(static_cast<size_t>(j) * rows + i) * elem + k] =
            src[(static_cast<size_t>(i) * cols + j) * elem + k];
  return dst;
}

inline std::vector<float> RefTable(float sigma, float lambda) {
  std::vector<float> t(256);
  const float inv = 1.0f / sigma;
  for (int d = 0; d < 256; ++d) {
    const float x = static_cast<float>(d) * inv;
    t[d] = -powf(2.7182817f, -0.5f * x * x) * lambda;
  }
  return t;
}

// Interleaved (bytes per pixel = channels) or planar (channels planes) guide.
inline std::vector<float> RefWeights(const uint8_t* g, int rows, int cols, int channels,
                                     bool planar, const std::vector<float>& table) {
  std::vector<float> w(static_cast<size_t>(rows) * cols, 0.0f);
  for (int r = 0; r < rows; ++r) {
    for (int x = 0; x + 1 < cols; ++x) {
      int m = 0;
      for (int k = 0; k < channels; ++k) {
        const size_t a = planar ? static_cast<size_t>(k) * rows * cols + r * cols + x
                                : (static_cast<size_t>(r) * cols + x) * channels + k;
        const size_t b = planar ? a + 1 : a + channels;
        m = std::max(m, abs(g[a] - g[b]));
      }
      w[static_cast<size_t>(r) * cols + x] = table[m];
    }
  }
  return w;
}

// data (height x width) smoothed in place; guide of 3-byte pixels (interleaved) or 3 planes.
// Rows from rowsSolved on and columns from columnsSolved on are left unsolved (workers a pool
// refused).
inline void RefFGS(const uint8_t* mask, float* data, const uint8_t* guide, bool planar,
                   int height, int width, int iterations, float sigma, float lambda,
                   int rowsSolved = 1 << 30, int columnsSolved = 1 << 30) {
  const float lambda1 = static_cast<float>(static_cast<double>(lambda) * 1.5 *
                                           pow(4.0, iterations - 1) / (pow(4.0, iterations) - 1));
  const std::vector<float> table = RefTable(sigma, lambda1);
  const size_t area = static_cast<size_t>(height) * width;
  std::vector<float> h = RefWeights(guide, height, width, 3, planar, table);
  std::vector<uint8_t> tGuide;
  if (planar) {
    for (int p = 0; p < 3; ++p) {
      std::vector<uint8_t> t = RefTranspose(guide + p * area, height, width);
      tGuide.insert(tGuide.end(), t.begin(), t.end());
    }
  } else {
    tGuide = RefTranspose(guide, height, width, 3);
  }
  std::vector<float> v = RefWeights(tGuide.data(), width, height, 3, planar, table);
  const std::vector<uint8_t> tMask = RefTranspose(mask, height, width);
  for (size_t i = 0; i < area; ++i) {
    if (mask[i] && static_cast<int>(i % width) + 1 < width) h[i] = -0.01f;
    if (tMask[i] && static_cast<int>(i % height) + 1 < height) v[i] = -0.01f;
  }
  std::vector<float> c(area);
  for (int it = 0; it < iterations; ++it) {
    for (int y = 0; y < height && y < rowsSolved; ++y)
      RefSolveLine(data + y * width, h.data() + y * width, c.data() + y * width, width);
    std::vector<float> t = RefTranspose(data, height, width);
    for (int x = 0; x < width && x < columnsSolved; ++x)
      RefSolveLine(t.data() + x * height, v.data() + x * height, c.data() + x * height, height);
    const std::vector<float> back = RefTranspose(t.data(), width, height);
    std::copy(back.begin(), back.end(), data);
    for (size_t i = 0; i < area; ++i) {
      if (!mask[i]) h[i] *= 0.25f;
      if (!tMask[i]) v[i] *= 0.25f;
    }
  }
}

// Log lines of the filter.
const char kAllocFailure[] = "memory alloc failure";
const int kLineAllocFailure = 511;

struct Scene {
  int height, width;
  std::vector<float> data;
  std::vector<uint8_t> guide;  // interleaved, 3 bytes per pixel
  std::vector<uint8_t> mask;
};

// Blocks of flat colour with noisy depth, and a mask of the given density (0..1).
Scene MakeScene(int height, int width, double maskDensity, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> noise(-3.0f, 3.0f);
  std::uniform_int_distribution<int> byte(0, 255);
  const size_t area = static_cast<size_t>(height) * width;
  Scene s{height, width, std::vector<float>(area), std::vector<uint8_t>(area * 3),
          std::vector<uint8_t>(area)};
  uint8_t colours[16][3];
  for (auto& c : colours)
    for (uint8_t& b : c) b = static_cast<uint8_t>(byte(rng));
  std::bernoulli_distribution masked(maskDensity);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int block = (y / 7) % 4 * 4 + (x / 5) % 4;
      const size_t i = static_cast<size_t>(y) * width + x;
      for (int k = 0; k < 3; ++k) s.guide[i * 3 + k] = colours[block][k] ^ (byte(rng) & 3);
      s.data[i] = 10.0f * block + noise(rng);
      s.mask[i] = masked(rng) ? static_cast<uint8_t>(1 + byte(rng) % 255) : 0;
    }
  }
  return s;
}

void ExpectSameBits(const std::vector<float>& a, const std::vector<float>& b) {
  ASSERT_EQ(a.size(), b.size());
  size_t bad = 0, first = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    const bool differ = memcmp(&a[i], &b[i], sizeof(float)) != 0;
    if (differ && bad++ == 0) first = i;
  }
  EXPECT_EQ(bad, 0u) << "first at " << first << ": " << a[first] << " / " << b[first];
}

// Planar copy of an interleaved 3-byte guide.
std::vector<uint8_t> Planar(const std::vector<uint8_t>& g) {
  const size_t area = g.size() / 3;
  std::vector<uint8_t> p(g.size());
  for (size_t i = 0; i < area; ++i)
    for (int k = 0; k < 3; ++k) p[k * area + i] = g[i * 3 + k];
  return p;
}

TEST(FgsKernels, VectorEqualsScalarOnEveryTarget) {
  const int counts[] = {1, 2, 3, 5, 17, 63, 64, 65, 130};
  const int lengths[] = {1, 2, 3, 4, 15, 16, 17, 33, 100};
  bvtest::ForEachHwyTarget([&](const char*) {
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> w(-300.0f, 0.0f), f(-50.0f, 200.0f);
    for (int lines : counts) {
      for (int n : lengths) {
        SCOPED_TRACE(std::to_string(lines) + " lines of " + std::to_string(n));
        const size_t size = static_cast<size_t>(lines) * n;
        std::vector<float> wt(size), data(size);
        for (size_t i = 0; i < size; ++i) {
          wt[i] = i % 7 == 3 ? -0.01f : w(rng);
          data[i] = f(rng);
        }
        std::vector<uint8_t> mask(size);
        for (uint8_t& m : mask) m = rng() % 3 == 0 ? static_cast<uint8_t>(rng()) : 0;
        std::vector<float> a = data, b = data, ca(size, 7.0f), cb(size, 7.0f);
        // Rows: lines 1 .. lines - 1 only, so line 0 must stay untouched.
        bivista::FgsSolveRows(a.data(), wt.data(), ca.data(), n, 1, lines);
        bivista::scalar::FgsSolveRows(b.data(), wt.data(), cb.data(), n, 1, lines);
        ExpectSameBits(a, b);
        ExpectSameBits(ca, cb);
        // Through a workspace of a few lines (down to none usable in pairs) or of all of them,
        // the couplings of the solved lines decaying afterwards.
        std::vector<float> decayed = wt;
        bivista::scalar::FgsDecay(decayed.data() + n, mask.data() + n,
                                  static_cast<ptrdiff_t>(size) - n, 0.25f);
        for (int workLines : {1, 3, 9, lines}) {
          std::vector<float> work(static_cast<size_t>(workLines) * n), wa = wt;
          a = data;
          bivista::FgsSolveRowsWork(a.data(), wa.data(), n, 1, lines, work.data(), workLines,
                                    mask.data(), 0.25f);
          ExpectSameBits(a, b);
          ExpectSameBits(wa, decayed);
        }
        // Columns: the plane read as n rows of `lines` columns; with the mask, then known clear.
        for (bool clear : {false, true}) {
          a = b = data;
          std::vector<float> wa = wt, wb = wt;
          bivista::FgsSolveColumns(a.data(), wa.data(), ca.data(), lines, n, 0, lines,
                                   mask.data(), 0.25f, clear);
          bivista::scalar::FgsSolveColumns(b.data(), wb.data(), cb.data(), lines, n, 0, lines,
                                           mask.data(), 0.25f, clear);
          ExpectSameBits(a, b);
          ExpectSameBits(ca, cb);
          ExpectSameBits(wa, wb);
          // Three slices (any may be empty) swept down in turn, the last one also back up, then
          // the others back up.
          const int c1 = static_cast<int>(rng() % (n + 1));
          const int cut[4] = {0, c1, c1 + static_cast<int>(rng() % (n - c1 + 1)), n};
          for (auto slice :
               {bivista::FgsSolveColumnsSlice, bivista::scalar::FgsSolveColumnsSlice}) {
            std::vector<float> fs = data, cs(size, 7.0f), ws = wt;
            const auto run = [&](int k, bool down, bool up) {
              slice(fs.data(), ws.data(), cs.data(), lines, n, 0, lines, cut[k], cut[k + 1], down,
                    up, mask.data(), 0.25f, clear);
            };
            run(0, true, false);
            run(1, true, false);
            run(2, true, true);
            run(1, false, true);
            run(0, false, true);
            ExpectSameBits(fs, b);
            ExpectSameBits(cs, cb);
            ExpectSameBits(ws, wb);
          }
        }
      }
    }
    // Couplings of 3-byte pixels, including the largest difference 255; a smooth guide (all
    // differences below 32) takes the short table lookup.
    for (int n : {1, 15, 16, 17, 63, 64, 65, 100, 129}) for (bool smooth : {false, true}) {
      const int rows = 3;
      std::vector<uint8_t> g(static_cast<size_t>(rows + 1) * (n + 1) * 3);
      for (uint8_t& v : g) {
        v = smooth ? static_cast<uint8_t>(100 + rng() % 32)
            : rng() % 5 == 0 ? 255 * (rng() & 1) : static_cast<uint8_t>(rng());
      }
      // Distinct entries, so that any wrong index shows.
      std::vector<float> table(256);
      for (int i = 0; i < 256; ++i) table[i] = -0.37f * static_cast<float>(i + 1);
      std::vector<uint8_t> mask(static_cast<size_t>(rows) * n);
      for (uint8_t& v : mask) v = rng() % 4 == 0 ? static_cast<uint8_t>(rng() | 1) : 0;
      const ptrdiff_t stride = 3 * (n + 1);
      const uint8_t* noMask = nullptr;
      for (const uint8_t* m : {noMask, static_cast<const uint8_t*>(mask.data())}) {
        std::vector<float> a(static_cast<size_t>(rows) * n + 1, 9.0f), b = a;
        bivista::FgsWeights3(g.data(), g.data() + 3, stride, rows, n, table.data(), a.data(), n,
                             m, -0.01f);
        bivista::scalar::FgsWeights3(g.data(), g.data() + 3, stride, rows, n, table.data(),
                                     b.data(), n, m, -0.01f);
        ExpectSameBits(a, b);
      }
    }
  });
}

TEST(FgsFilter, EqualsDirectFormulationForAnyThreadsAndTarget) {
  struct Case {
    int h, w;
    double mask;
  };
  const Case cases[] = {{1, 1, 0}, {1, 9, 0.2}, {9, 1, 0.2}, {2, 2, 0}, {13, 70, 0},
                        {37, 21, 0.1}, {66, 67, 0.05}, {20, 20, 1.0}, {300, 40, 0.05}};
  void* pool = MThread_Create(3, nullptr, nullptr);
  ASSERT_NE(pool, nullptr);
  AllocTable table;
  bvtest::ForEachHwyTarget([&](const char*) {
    for (const Case& c : cases) {
      for (int iterations : {1, 3}) {
        SCOPED_TRACE(std::to_string(c.h) + "x" + std::to_string(c.w) + " mask " +
                     std::to_string(c.mask) + " iterations " + std::to_string(iterations));
        const Scene s = MakeScene(c.h, c.w, c.mask, static_cast<unsigned>(c.h * 31 + c.w));
        std::vector<float> expected = s.data;
        RefFGS(s.mask.data(), expected.data(), s.guide.data(), false, c.h, c.w,
                       iterations, 8.0f, 100.0f);
        std::vector<float> partial = s.data;
        RefFGS(s.mask.data(), partial.data(), s.guide.data(), false, c.h, c.w, iterations, 8.0f,
               100.0f, 3 * c.h / 4, 3 * c.w / 4);
        const std::vector<uint8_t> planar = Planar(s.guide);
        // Null pool (any count); pools with fewer, as many and more lines than workers; more
        // threads than the pool has (worker 3's lines stay unsolved in every pass); a planar
        // guide (nonzero format) giving the interleaved one's couplings.
        for (auto [usePool, threads, format] :
             {std::tuple{false, 0, 0}, {true, 1, 0}, {true, 2, 0}, {true, 3, 0}, {true, 4, 0},
              {true, 2, 1}}) {
          std::vector<float> got = s.data;
          FGSFilter(s.mask.data(), got.data(), format ? planar.data() : s.guide.data(), format,
                    c.h, c.w, iterations, 3, usePool ? pool : nullptr, threads, table.table(),
                    8.0f, 100.0f);
          ExpectSameBits(got, threads == 4 ? partial : expected);
        }
      }
    }
  });
  EXPECT_EQ(table.live(), 0);
  MThread_Destroy(pool);
}

int gLate = -1;
int gLateUs = 0;
void PassLate(int participant, int) {
  if (participant == gLate) std::this_thread::sleep_for(std::chrono::microseconds(gLateUs));
}

// A participant late in every pass (beyond the others' patience, or briefly): its row chunks and
// column tasks are taken by the others, with the same bits.
TEST(FgsFilter, LateParticipantsWorkIsTaken) {
  const int h = 400, w = 300;
  const Scene s = MakeScene(h, w, 0.05, 17);
  std::vector<float> expected = s.data;
  AllocTable table;
  FGSFilter(s.mask.data(), expected.data(), s.guide.data(), 0, h, w, 3, 3, nullptr, 1,
            table.table(), 8.0f, 100.0f);
  void* pool = MThread_Create(3, nullptr, nullptr);
  ASSERT_NE(pool, nullptr);
  bivista::fgsPassHook = PassLate;
  for (int threads : {2, 3}) {
    for (int late = 0; late < threads; ++late) {
      for (int us : {100, 2000}) {
        SCOPED_TRACE(std::to_string(threads) + " threads, " + std::to_string(late) + " late by " +
                     std::to_string(us) + " us");
        gLate = late;
        gLateUs = us;
        std::vector<float> got = s.data;
        FGSFilter(s.mask.data(), got.data(), s.guide.data(), 0, h, w, 3, 3, pool, threads,
                  table.table(), 8.0f, 100.0f);
        ExpectSameBits(got, expected);
      }
    }
  }
  bivista::fgsPassHook = nullptr;
  MThread_Destroy(pool);
  EXPECT_EQ(table.live(), 0);
}

TEST(FgsFilter, OnePassAndLinesEqualDirectFormulation) {
  void* pool = MThread_Create(3, nullptr, nullptr);
  const int h = 19, w = 35;
  const Scene s = MakeScene(h, w, 0.1, 3);
  const size_t area = static_cast<size_t>(h) * w;
  std::vector<float> hw(area), vw(area);
  std::vector<uint8_t> tGuide(area * 3);
  DREF_GetFGS_Weight(s.guide.data(), h, w, 3, 0, hw.data(), vw.data(), tGuide.data(), 8.0f,
                     50.0f);
  const std::vector<float> table = RefTable(8.0f, 50.0f);
  ExpectSameBits(hw, RefWeights(s.guide.data(), h, w, 3, false, table));
  EXPECT_EQ(tGuide, RefTranspose(s.guide.data(), h, w, 3));
  ExpectSameBits(vw, RefWeights(tGuide.data(), w, h, 3, false, table));
  // One iteration: rows, transposed columns; the scratch ends holding the transposed result.
  std::vector<float> rows = s.data, c(area);
  for (int y = 0; y < h; ++y) RefSolveLine(&rows[y * w], &hw[y * w], &c[y * w], w);
  const std::vector<float> rowCoefficients = c;
  std::vector<float> t = RefTranspose(rows.data(), h, w);
  for (int x = 0; x < w; ++x) RefSolveLine(&t[x * h], &vw[x * h], &c[x * h], h);
  const std::vector<float> expected = RefTranspose(t.data(), w, h);
  for (void* p : {static_cast<void*>(nullptr), pool}) {
    std::vector<float> data = s.data, scratch(area);
    DREF_FGSThreadParam records[3];
    DREF_FGS_filter(data.data(), hw.data(), vw.data(), h, w, scratch.data(), records, p, 3);
    SCOPED_TRACE(p == nullptr ? "no pool" : "pool");
    ExpectSameBits(data, expected);
    ExpectSameBits(scratch, t);
  }
  // Lines: the scratch holds the modified upper coefficients; split over a pool, the same rows.
  std::vector<float> lines = s.data, c1(area);
  DREF_FGSFilter1D(lines.data(), hw.data(), c1.data(), h, w);
  ExpectSameBits(lines, rows);
  ExpectSameBits(c1, rowCoefficients);
  DREF_FGSThreadParam records[3];
  lines = s.data;
  DREF_FGSFilter1D_multiThread(lines.data(), hw.data(), c1.data(), h, w, records, pool, 3);
  ExpectSameBits(lines, rows);
  // Four channels: the vertical couplings stay within the 3-byte transposed guide (fuzz finding).
  const std::vector<uint8_t> guide4(area * 4, 9);
  DREF_GetFGS_Weight(guide4.data(), h, w, 4, 0, hw.data(), vw.data(), tGuide.data(), 8.0f, 50.0f);
  ExpectSameBits(vw, RefWeights(tGuide.data(), w, h, 3, false, table));
  MThread_Destroy(pool);
}

TEST(FgsFilter, AllocationFailureReleasesTheRestAndKeepsData) {
  const Scene s = MakeScene(8, 11, 0.1, 9);
  // Failing request 1 .. 6; 0: no table at all, which fails the same way.
  for (int fail = 0; fail <= 6; ++fail) {
    SCOPED_TRACE("failing allocation " + std::to_string(fail));
    AllocTable table;
    table.FailAt(fail);
    LogCapture log;
    std::vector<float> data = s.data;
    FGSFilter(s.mask.data(), data.data(), s.guide.data(), 0, 8, 11, 3, 3, nullptr, 2,
              fail > 0 ? table.table() : nullptr, 8.0f, 100.0f);
    EXPECT_EQ(data, s.data);
    EXPECT_EQ(table.mallocs(), fail > 0 ? 6 : 0);
    EXPECT_EQ(table.frees(), fail > 0 ? 5 : 0);
    EXPECT_EQ(table.live(), 0);
    if (fail > 0) { EXPECT_EQ(table.tags(), std::vector<std::string>(6, "OPT_SMOOTH")); }
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(bvtest::CountMsg(log, 6, "ZR481_ALGO", "FGSFilter", kAllocFailure,
                               kLineAllocFailure),
              1);
  }
}

TEST(FgsFilter, EdgeCasesLeaveDataOrIgnoreTheGuide) {
  void* pool = MThread_Create(2, nullptr, nullptr);
  AllocTable table;
  const Scene s = MakeScene(12, 10, 0, 4);
  {
    // No iterations: lambda_1 is infinite and nothing runs.
    LogCapture log;
    std::vector<float> data = s.data;
    FGSFilter(s.mask.data(), data.data(), s.guide.data(), 0, 12, 10, 0, 3, pool, 2,
              table.table(), 8.0f, 100.0f);
    EXPECT_EQ(data, s.data);
    EXPECT_EQ(bvtest::CountMsg(log, 4, "ZR481_ALGO", "FGSFilter",
                               "enter smooth filter!!paras: lamda,sigma,iter,nchannle = "
                               "100.00(inf), 8.00 0, 3"),
              1);
  }
  // A pool with no threads solves nothing; nor do empty sizes.
  std::vector<float> data = s.data;
  FGSFilter(s.mask.data(), data.data(), s.guide.data(), 0, 12, 10, 3, 3, pool, 0, table.table(),
            8.0f, 100.0f);
  EXPECT_EQ(data, s.data);
  FGSFilter(nullptr, nullptr, nullptr, 0, 0, -4, 3, 3, nullptr, 1, table.table(), 8.0f, 100.0f);
  // Lines of a negative length form no line starts, on any target.
  bvtest::ForEachHwyTarget([](const char*) { DREF_FGSFilter1D(nullptr, nullptr, nullptr, 3, -2); });
  // An all-set mask couples every pixel by 0.01 whatever the guide.
  const std::vector<uint8_t> full(120, 1);
  std::vector<float> a = s.data, b = s.data;
  std::vector<uint8_t> other = s.guide;
  for (uint8_t& v : other) v = static_cast<uint8_t>(v * 37 + 11);
  FGSFilter(full.data(), a.data(), s.guide.data(), 0, 12, 10, 3, 3, nullptr, 1, table.table(),
            8.0f, 100.0f);
  FGSFilter(full.data(), b.data(), other.data(), 0, 12, 10, 3, 3, pool, 2, table.table(), 8.0f,
            1.0f);
  ExpectSameBits(a, b);
  EXPECT_NE(a, s.data);
  EXPECT_EQ(table.live(), 0);
  MThread_Destroy(pool);
}

TEST(FgsHelpers, SmallEntriesFollowTheirDefinitions) {
  EXPECT_EQ(_gauss(0.0f, 8.0f), -1.0f);
  EXPECT_EQ(_gauss(8.0f, 8.0f), -powf(2.7182817f, -0.5f));
  // Couplings of the last column are never changed; updateWeight skips masked ones.
  std::vector<float> h(6, -2.0f), v(6, -4.0f);
  const uint8_t mask[6] = {1, 1, 0, 0, 1, 1}, tMask[6] = {1, 0, 0, 1, 1, 1};
  adaptWeightBymask(h.data(), v.data(), mask, tMask, 2, 3, -0.01f);
  EXPECT_EQ(h, (std::vector<float>{-0.01f, -0.01f, -2.0f, -2.0f, -0.01f, -2.0f}));
  EXPECT_EQ(v, (std::vector<float>{-0.01f, -4.0f, -4.0f, -4.0f, -0.01f, -4.0f}));
  EXPECT_EQ(updateWeight(h.data(), v.data(), 6, mask, tMask, 4.0f), 0.25f);
  EXPECT_EQ(h, (std::vector<float>{-0.01f, -0.01f, -0.5f, -0.5f, -0.01f, -2.0f}));
  EXPECT_EQ(v, (std::vector<float>{-0.01f, -1.0f, -1.0f, -4.0f, -0.01f, -4.0f}));
  const uint8_t px[6] = {1, 2, 3, 4, 5, 6};
  // Builders with fewer than one plane or channel (the interleaved one addressing no pixel):
  // entry 0 everywhere but the last column.
  for (bool planar : {true, false}) {
    std::vector<float> pw(6, 5.0f);
    if (planar) DREF_FGSGuideToWeight_plane(pw.data(), px, 2, 3, 0, 8.0f, 2.0f);
    else DREF_FGSGuideToWeight_yuv(pw.data(), nullptr, 2, 3, -1, 8.0f, 2.0f);
    EXPECT_EQ(pw, (std::vector<float>{-2.0f, -2.0f, 0.0f, -2.0f, -2.0f, 0.0f}));
  }
  // Release only with allocator, tag and pointer.
  AllocTable table;
  void* p = table.table()->malloc(4, VTA_MEM_TAG("OPT_SMOOTH"), 0);
  fgs_safeDeleteMem(p, nullptr, "OPT_SMOOTH");
  fgs_safeDeleteMem(p, table.table(), nullptr);
  fgs_safeDeleteMem(nullptr, table.table(), "OPT_SMOOTH");
  fgs_safeDeleteMem(p, table.table(), "OPT_SMOOTH");
  EXPECT_EQ(table.frees(), 1);
}

}  // namespace
