// The border mask against a direct formulation, its kernels on every target, the threshold's
// divisor and the prior-mask rules.
#include "bivista/bordermask.h"

#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <cmath>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "bivista/morphology.h"
#include "bivista/mthread.h"
#include "depthrefine/bordermask/bordermask_kernels.h"
#include "support/hwy_targets.h"
#include "support/platform_capture.h"

namespace {

const char kThresholdText[] = "input data mean %2.3f variance %2.3f final FlatterTh %2.3f\n";
const int kLineThreshold = 49;

std::string ThresholdLine(float mean, float deviation, float th) {
  char text[160];
  snprintf(text, sizeof text, kThresholdText, mean, deviation, th);
  return text;
}

bool SameBits(const std::vector<float>& a, const std::vector<float>& b) {
  return a.size() == b.size() && memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

// Depth of a few flat objects with noise (no zeros unless asked).
std::vector<float> Depth(int w, int h, unsigned seed, bool zeros = false) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> noise(-0.02f, 0.02f);
  std::vector<float> d(static_cast<size_t>(w) * h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const bool near = (x - w / 3) * (x - w / 3) + (y - h / 2) * (y - h / 2) < w * h / 12;
      d[y * w + x] = (near ? 1.0f : 3.0f) + (x > 3 * w / 4 ? 1.5f : 0.0f) + noise(rng);
      if (zeros && rng() % 50 == 0) d[y * w + x] = 0.0f;
    }
  return d;
}

// Direct formulation; workers that never run (boot refused) leave their rows zero.
void RefBorderMask(const float* d, const uint8_t* prior, int w, int h, bool merge, int threads,
                   int running, std::vector<uint8_t>* mask, std::vector<float>* g) {
  g->assign(static_cast<size_t>(w) * h, 0.0f);
  const int t = std::min(threads, 4);
  for (int i = 0; i < t && i < running; ++i) {
    const int y0 = i == 0 ? 2 : i * h / t, y1 = i == t - 1 ? h - 1 : (i + 1) * h / t;
    for (int y = y0; y < y1; ++y)
      for (int x = 2; x < w - 1; ++x) {
        const float* p = d + y * w + x;
        const float a = p[0] + p[w] - p[-w] - p[-2 * w], b = p[0] + p[1] - p[-2] - p[-1];
        (*g)[y * w + x] = (fabsf(a) + fabsf(b)) / p[0];
      }
  }
  const int n = w * h;
  float sum = 0, sq = 0;
  for (int i = 0; i < n; i += 16) sum += (*g)[i];
  const float mean = sum / static_cast<float>(n / 16);
  for (int i = 0; i < n; i += 16) sq += ((*g)[i] - mean) * ((*g)[i] - mean);
  const float th = std::fma(3.0f, sqrtf(sq / static_cast<float>(n / 16)), mean);
  for (int i = 0; i < n; ++i) {
    (*mask)[i] = (*g)[i] >= th ? 255 : (prior && merge) ? prior[i] : 0;
    if (prior && prior[i]) (*g)[i] = 0;
  }
  for (int pass = 0; pass < 2; ++pass) {
    const std::vector<uint8_t> in = *mask;
    for (int y = 1; y + 1 < h; ++y)
      for (int x = 1; x + 1 < w; ++x) {
        uint8_t v = pass == 0 ? 0 : 255;
        for (int dy = -1; dy <= 1; ++dy)
          for (int dx = -1; dx <= 1; ++dx)
            v = pass == 0 ? (v | in[(y + dy) * w + x + dx]) : (v & in[(y + dy) * w + x + dx]);
        (*mask)[y * w + x] = v;
      }
  }
}

// Gradient rows (with their samples), and marking and closing in one sweep: the scalar
// definition against the marking followed by the library's closing, the vector kernels (the
// closing whole, and in two bands with halos) against the scalar ones.
TEST(BorderKernels, VectorEqualsScalarAndMarkCloseEqualsMarkThenLibraryClosing) {
  bvtest::ForEachHwyTarget([&](const char*) {
    for (auto [w, h] : {std::pair{1, 4}, {2, 6}, {5, 2}, {3, 9}, {4, 6}, {17, 7}, {18, 6},
                        {33, 6}, {40, 6}, {66, 5}, {67, 12}, {70, 6}, {130, 9}, {131, 16},
                        {4100, 3}}) {
      SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
      const std::vector<float> d = Depth(w, h, static_cast<unsigned>(w + h), true);
      std::vector<float> ga(d.size(), 5.0f), gb = ga;
      std::vector<uint8_t> sa(d.size() * 4, 1), sb = sa;
      bivista::BorderGradientRows(d.data(), ga.data(), w, 2, h - 1, 2, w - 1, sa.data());
      bivista::scalar::BorderGradientRows(d.data(), gb.data(), w, 2, h - 1, 2, w - 1, sb.data());
      EXPECT_TRUE(SameBits(ga, gb));
      EXPECT_EQ(sa, sb);
      // Bands straight from the depth plane, each band's gradient rows stored first or not.
      std::vector<float> gz(d.size(), 0.0f);
      bivista::scalar::BorderGradientRows(d.data(), gz.data(), w, 2, h - 1, 2, w - 1);
      for (auto [th, split] : {std::pair{0.05f, 0}, {0.05f, 1}, {0.05f, h / 2}, {0.05f, h - 1},
                               {0.0f, h / 2}, {NAN, h / 2}}) {
        if (w > bivista::border::kMaxBandWidth) break;
        std::vector<uint8_t> mz(d.size(), 7), sz(d.size(), 3);
        bivista::scalar::BorderMarkClose(gz.data(), nullptr, false, w, h, th, mz.data(), sz.data());
        std::vector<float> gv(d.size(), 5.0f);
        std::vector<uint8_t> mv(d.size(), 7), sv(d.size(), 3);
        using bivista::border::Band;
        for (auto [y0, y1, band] : {std::tuple{0, split, Band::kGradientOnly},
                                    {0, split, Band::kStored}, {split, h, Band::kAll}}) {
          bivista::BorderBand(d.data(), gv.data(), w, h, th, mv.data(), sv.data(), y0, y1, band);
        }
        EXPECT_TRUE(SameBits(gv, gz));
        EXPECT_EQ(mv, mz);
        EXPECT_EQ(sv, sz);
      }
      std::vector<float> g(d.size());
      for (size_t i = 0; i < g.size(); ++i) g[i] = d[i] * static_cast<float>(i % 7) * 0.02f;
      std::vector<uint8_t> prior(d.size());
      for (size_t i = 0; i < prior.size(); ++i) prior[i] = i % 3 == 0 ? static_cast<uint8_t>(i) : 0;
      for (int mode = 0; mode < 3; ++mode) {
        const uint8_t* p = mode == 0 ? nullptr : prior.data();
        std::vector<float> gr = g, gs = g;
        std::vector<uint8_t> mr(d.size(), 7), sr(d.size(), 3), ms = mr, ss = sr;
        bivista::scalar::BorderMarkPixels(gr.data(), p, mode == 2, gr.size(), 0.03f, mr.data());
        DilateWith3x3Rect(mr.data(), sr.data(), w, h, w, 1);
        ErodeWith3x3Rect(mr.data(), sr.data(), w, h, w, 1);
        bivista::scalar::BorderMarkClose(gs.data(), p, mode == 2, w, h, 0.03f, ms.data(), ss.data());
        EXPECT_TRUE(SameBits(gr, gs));
        EXPECT_EQ(mr, ms);
        EXPECT_EQ(sr, ss);
        // Bands only without a prior (with one, a call does the whole plane).
        for (int split : mode == 0 ? std::vector<int>{0, 1, h / 2, h - 1} : std::vector<int>{h}) {
          std::vector<float> gv = g;
          std::vector<uint8_t> mv(d.size(), 7), sv(d.size(), 3);
          bivista::BorderMarkClose(gv.data(), p, mode == 2, w, h, 0.03f, mv.data(), sv.data(), 0,
                                   split);
          if (mode == 0) {
            bivista::BorderMarkClose(gv.data(), p, false, w, h, 0.03f, mv.data(), sv.data(), split,
                                     h);
          }
          EXPECT_TRUE(SameBits(gv, gs));
          EXPECT_EQ(mv, ms);
          EXPECT_EQ(sv, ss);
        }
      }
    }
  });
}

TEST(BorderMask, EqualsDirectFormulationForAnyThreadsAndPriors) {
  void* pool = MThread_Create(2, nullptr, nullptr);
  void* pool4 = MThread_Create(4, nullptr, nullptr);
  ASSERT_NE(pool, nullptr);
  ASSERT_NE(pool4, nullptr);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (auto [w, h] : {std::pair{37, 23}, {64, 40}, {9, 30}}) {
      const std::vector<float> d = Depth(w, h, static_cast<unsigned>(w * h));
      std::vector<uint8_t> prior(d.size(), 0);
      for (size_t i = 0; i < prior.size(); i += 11) prior[i] = 1;
      for (int mode = 0; mode < 3; ++mode) {
        const uint8_t* p = mode == 0 ? nullptr : prior.data();
        // Null pool (0); a pool of 2 (1) with 1, 2 and more threads than workers (5 is cut to 4,
        // and workers 2 and 3 are refused); a pool of 4 (2) with 3 threads.
        for (auto [usePool, threads] :
             {std::pair{0, 3}, {1, 1}, {1, 2}, {1, 5}, {0, 0}, {2, 3}}) {
          SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h) + " mode " +
                       std::to_string(mode) + " threads " + std::to_string(threads));
          std::vector<uint8_t> mask(d.size(), 9), scratch(d.size()), refMask(d.size(), 9);
          std::vector<float> g(d.size(), 4.0f), refG;
          RefBorderMask(d.data(), p, w, h, mode == 2, threads, usePool == 1 ? 2 : 4, &refMask,
                        &refG);
          EXPECT_EQ(getDataGradientAndBorderMask(d.data(), p, w, h, mode == 2, mask.data(),
                                                 g.data(), scratch.data(),
                                                 usePool == 0   ? nullptr
                                                 : usePool == 1 ? pool
                                                                : pool4,
                                                 threads),
                    0);
          EXPECT_TRUE(SameBits(g, refG));
          EXPECT_EQ(mask, refMask);
        }
      }
    }
  });
  MThread_Destroy(pool);
  MThread_Destroy(pool4);
}

TEST(BorderMask, ThresholdDividesByNOver16) {
  bvtest::LogCapture log;
  // 5 x 4 = 20 values: samples at 0 and 16, divisor 1.
  std::vector<float> g(20, 100.0f);
  g[0] = 1.0f;
  g[16] = 3.0f;
  float th = 0;
  getBinarizationTh(g.data(), 5, 4, &th);
  const float mean = 4.0f, dev = sqrtf(9.0f + 1.0f);
  EXPECT_EQ(th, std::fma(3.0f, dev, mean));
  EXPECT_EQ(bvtest::CountMsg(log, 3, "ZR481_ALGO", "getBinarizationTh",
                             ThresholdLine(mean, dev, th), kLineThreshold),
            1);
  // Fewer than 16 values: divisor 0, no finite threshold; an empty plane: all 0.
  getBinarizationTh(g.data(), 3, 5, &th);
  EXPECT_FALSE(std::isfinite(th));
  th = 7;
  getBinarizationTh(g.data(), 0, 5, &th);
  EXPECT_EQ(th, 0.0f);
  EXPECT_EQ(bvtest::CountMsg(log, 3, "ZR481_ALGO", "getBinarizationTh", ThresholdLine(0, 0, 0),
                             kLineThreshold),
            1);
}

TEST(BorderMask, SmallAndDegeneratePlanes) {
  void* pool = MThread_Create(4, nullptr, nullptr);
  for (auto [w, h] : {std::pair{1, 1}, {2, 5}, {5, 2}, {4, 4}, {3, 3}, {6, 3}}) {
    SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
    const std::vector<float> d(static_cast<size_t>(w) * h, 2.0f);
    std::vector<float> g(d.size(), 4.0f);
    std::vector<uint8_t> mask(d.size(), 9), scratch(d.size());
    getDataGradientAndBorderMask(d.data(), nullptr, w, h, 0, mask.data(), g.data(),
                                 scratch.data(), pool, 4);
    EXPECT_EQ(g, std::vector<float>(d.size(), 0.0f));
    // Fewer than 16 values leave a threshold that nothing reaches.
    if (w * h < 16) { EXPECT_EQ(mask, std::vector<uint8_t>(d.size(), 0)); }
  }
  // Empty planes (a zero or negative side) touch nothing, not even through the closing.
  for (auto [w, h] : {std::pair{0, 5}, {-3, 4}, {-2, -2}}) {
    getDataGradientAndBorderMask(nullptr, nullptr, w, h, 1, nullptr, nullptr, nullptr, pool, 2);
  }
  // A zero depth inside gives an infinite gradient, marked.
  std::vector<float> d(64, 2.0f), g(64);
  d[4 * 8 + 4] = 0.0f;
  d[4 * 8 + 5] = 1.0f;
  std::vector<uint8_t> mask(64), scratch(64);
  getDataGradientAndBorderMask(d.data(), nullptr, 8, 8, 0, mask.data(), g.data(), scratch.data(),
                               nullptr, 1);
  EXPECT_TRUE(std::isinf(g[4 * 8 + 4]));
  EXPECT_EQ(mask[4 * 8 + 4], 255);
  MThread_Destroy(pool);
}

}  // namespace
