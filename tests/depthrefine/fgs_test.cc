// The smoother against its direct formulation (whole filter, one pass, single lines), vector
// kernels against scalar on every target, thread splits, allocation failures and edge cases.
#include "bivista/fgs.h"

#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "bivista/mthread.h"
#include "depthrefine/fgs/fgs_kernels.h"
#include "fgs_reference.h"
#include "support/alloc_table.h"
#include "support/hwy_targets.h"
#include "support/platform_capture.h"

namespace {

using bvtest::AllocTable;
using bvtest::LogCapture;

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
  Scene s{height, width, {}, {}, {}};
  const size_t area = static_cast<size_t>(height) * width;
  s.data.resize(area);
  s.guide.resize(area * 3);
  s.mask.resize(area);
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
        // A mask known clear is not read: every coupling decays.
        {
          std::vector<float> work(static_cast<size_t>(lines) * n), wa = wt, wb = wt;
          a = data;
          bivista::FgsSolveRowsWork(a.data(), wa.data(), n, 1, lines, work.data(), lines,
                                    mask.data(), 0.25f, true);
          bivista::scalar::FgsDecay(wb.data() + n, nullptr, static_cast<ptrdiff_t>(size) - n,
                                    0.25f);
          ExpectSameBits(a, b);
          ExpectSameBits(wa, wb);
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
        }
        a = b = wt;
        bivista::FgsDecay(a.data(), mask.data(), static_cast<ptrdiff_t>(size), 0.25f);
        bivista::scalar::FgsDecay(b.data(), mask.data(), static_cast<ptrdiff_t>(size), 0.25f);
        ExpectSameBits(a, b);
        bivista::FgsSetMasked(a.data(), mask.data(), static_cast<ptrdiff_t>(size), -0.01f);
        bivista::scalar::FgsSetMasked(b.data(), mask.data(), static_cast<ptrdiff_t>(size), -0.01f);
        ExpectSameBits(a, b);
      }
    }
    // Couplings of 3-byte pixels, including the largest difference 255.
    for (int n : {1, 15, 16, 17, 63, 64, 65, 100, 129}) {
      const int rows = 3;
      std::vector<uint8_t> g(static_cast<size_t>(rows + 1) * (n + 1) * 3);
      for (uint8_t& v : g) v = rng() % 5 == 0 ? 255 * (rng() & 1) : static_cast<uint8_t>(rng());
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
                        {37, 21, 0.1}, {66, 67, 0.05}, {20, 20, 1.0}};
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
        bvtest::RefFGS(s.mask.data(), expected.data(), s.guide.data(), false, c.h, c.w,
                       iterations, 8.0f, 100.0f);
        // Null pool (any count), then pools with fewer, as many and more lines than workers.
        for (auto [usePool, threads] : {std::pair{false, 0}, {true, 1}, {true, 2}, {true, 3}}) {
          std::vector<float> got = s.data;
          FGSFilter(s.mask.data(), got.data(), s.guide.data(), 0, c.h, c.w, iterations, 3,
                    usePool ? pool : nullptr, threads, table.table(), 8.0f, 100.0f);
          ExpectSameBits(got, expected);
        }
        // More threads than the pool has: worker 3's lines stay unsolved in every pass.
        {
          std::vector<float> got = s.data, partial = s.data;
          bvtest::RefFGS(s.mask.data(), partial.data(), s.guide.data(), false, c.h, c.w,
                         iterations, 8.0f, 100.0f, 3 * c.h / 4, 3 * c.w / 4);
          FGSFilter(s.mask.data(), got.data(), s.guide.data(), 0, c.h, c.w, iterations, 3, pool,
                    4, table.table(), 8.0f, 100.0f);
          ExpectSameBits(got, partial);
        }
        // Planar guide (nonzero format): the same couplings as the interleaved one.
        std::vector<float> planar = s.data;
        const std::vector<uint8_t> p = Planar(s.guide);
        FGSFilter(s.mask.data(), planar.data(), p.data(), 1, c.h, c.w, iterations, 3, pool, 2,
                  table.table(), 8.0f, 100.0f);
        ExpectSameBits(planar, expected);
      }
    }
  });
  EXPECT_EQ(table.live(), 0);
  MThread_Destroy(pool);
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
  const std::vector<float> table = bvtest::RefTable(8.0f, 50.0f);
  ExpectSameBits(hw, bvtest::RefWeights(s.guide.data(), h, w, 3, false, table));
  EXPECT_EQ(tGuide, bvtest::RefTranspose(s.guide.data(), h, w, 3));
  ExpectSameBits(vw, bvtest::RefWeights(tGuide.data(), w, h, 3, false, table));
  // Four channels: the vertical couplings stay within the 3-byte transposed guide (fuzz finding).
  const std::vector<uint8_t> guide4(area * 4, 9);
  DREF_GetFGS_Weight(guide4.data(), h, w, 4, 0, hw.data(), vw.data(), tGuide.data(), 8.0f, 50.0f);
  ExpectSameBits(vw, bvtest::RefWeights(tGuide.data(), w, h, 3, false, table));
  // One iteration: rows, transposed columns; the scratch ends holding the transposed result.
  std::vector<float> expected = s.data, c(area);
  for (int y = 0; y < h; ++y) bvtest::RefSolveLine(&expected[y * w], &hw[y * w], &c[y * w], w);
  std::vector<float> t = bvtest::RefTranspose(expected.data(), h, w);
  for (int x = 0; x < w; ++x) bvtest::RefSolveLine(&t[x * h], &vw[x * h], &c[x * h], h);
  expected = bvtest::RefTranspose(t.data(), w, h);
  for (void* p : {static_cast<void*>(nullptr), pool}) {
    std::vector<float> data = s.data, scratch(area);
    DREF_FGSThreadParam records[3];
    DREF_FGS_filter(data.data(), hw.data(), vw.data(), h, w, scratch.data(), records, p, 3);
    SCOPED_TRACE(p == nullptr ? "no pool" : "pool");
    ExpectSameBits(data, expected);
    ExpectSameBits(scratch, t);
  }
  // Lines: the scratch holds the modified upper coefficients; the split follows (i x N) / T.
  std::vector<float> lines = s.data, c1(area), ref = s.data, cr(area);
  for (int y = 0; y < h; ++y) bvtest::RefSolveLine(&ref[y * w], &hw[y * w], &cr[y * w], w);
  DREF_FGSFilter1D(lines.data(), hw.data(), c1.data(), h, w);
  ExpectSameBits(lines, ref);
  ExpectSameBits(c1, cr);
  DREF_FGSThreadParam records[3];
  lines = s.data;
  DREF_FGSFilter1D_multiThread(lines.data(), hw.data(), c1.data(), h, w, records, pool, 3);
  ExpectSameBits(lines, ref);
  EXPECT_EQ(records[0].startLine, 0);
  EXPECT_EQ(records[0].endLine, 6);
  EXPECT_EQ(records[1].endLine, 12);
  EXPECT_EQ(records[2].startLine, 12);
  EXPECT_EQ(records[2].endLine, 19);
  EXPECT_EQ(records[2].lineCount, h);
  MThread_Destroy(pool);
}

TEST(FgsFilter, AllocationFailureReleasesTheRestAndKeepsData) {
  const Scene s = MakeScene(8, 11, 0.1, 9);
  for (int fail = 1; fail <= 6; ++fail) {
    SCOPED_TRACE("failing allocation " + std::to_string(fail));
    AllocTable table;
    table.FailAt(fail);
    LogCapture log;
    std::vector<float> data = s.data;
    FGSFilter(s.mask.data(), data.data(), s.guide.data(), 0, 8, 11, 3, 3, nullptr, 2,
              table.table(), 8.0f, 100.0f);
    EXPECT_EQ(data, s.data);
    EXPECT_EQ(table.mallocs(), 6);
    EXPECT_EQ(table.frees(), 5);
    EXPECT_EQ(table.live(), 0);
    EXPECT_EQ(table.tags(), std::vector<std::string>(6, "OPT_SMOOTH"));
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(bvtest::CountMsg(log, 6, "ZR481_ALGO", "FGSFilter", kAllocFailure,
                               kLineAllocFailure),
              1);
  }
  // No table at all fails the same way.
  LogCapture log;
  std::vector<float> data = s.data;
  FGSFilter(s.mask.data(), data.data(), s.guide.data(), 0, 8, 11, 3, 3, nullptr, 1, nullptr, 8.0f,
            100.0f);
  EXPECT_EQ(data, s.data);
  EXPECT_EQ(bvtest::CountMsg(log, 6, "ZR481_ALGO", "FGSFilter", kAllocFailure, kLineAllocFailure),
            1);
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
  // Transposes of bytes, floats and 3-byte pixels.
  const uint8_t px[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  uint8_t t[12] = {};
  DREF_Rotate_1D_UCHAR(t, px, 3, 4);
  EXPECT_EQ(std::vector<uint8_t>(t, t + 12), bvtest::RefTranspose(px, 3, 4));
  DREF_Rotate_yuv(t, px, 2, 2);
  EXPECT_EQ(std::vector<uint8_t>(t, t + 12), bvtest::RefTranspose(px, 2, 2, 3));
  const float fl[6] = {1, 2, 3, 4, 5, 6};
  float ft[6] = {};
  DREF_Rotate_1D_FLOAT(ft, fl, 2, 3);
  EXPECT_EQ(std::vector<float>(ft, ft + 6), bvtest::RefTranspose(fl, 2, 3));
  // Planar builder; fewer than one plane gives entry 0 everywhere but the last column.
  std::vector<float> pw(6, 5.0f);
  DREF_FGSGuideToWeight_plane(pw.data(), px, 2, 3, 0, 8.0f, 2.0f);
  EXPECT_EQ(pw, (std::vector<float>{-2.0f, -2.0f, 0.0f, -2.0f, -2.0f, 0.0f}));
  // So does the interleaved builder with fewer than one channel, addressing no pixel.
  pw.assign(6, 5.0f);
  DREF_FGSGuideToWeight_yuv(pw.data(), nullptr, 2, 3, -1, 8.0f, 2.0f);
  EXPECT_EQ(pw, (std::vector<float>{-2.0f, -2.0f, 0.0f, -2.0f, -2.0f, 0.0f}));
  // Release only with allocator, tag and pointer.
  AllocTable table;
  void* p = table.table()->malloc(4, VTA_MEM_TAG("OPT_SMOOTH"), 0);
  fgs_safeDeleteMem(p, nullptr, "OPT_SMOOTH");
  fgs_safeDeleteMem(p, table.table(), nullptr);
  fgs_safeDeleteMem(nullptr, table.table(), "OPT_SMOOTH");
  EXPECT_EQ(table.frees(), 0);
  fgs_safeDeleteMem(p, table.table(), "OPT_SMOOTH");
  EXPECT_EQ(table.frees(), 1);
}

}  // namespace
