// Depth and multi-depth: hand-derived end-to-end results, the statistics' corners, the correction
// against a direct statement, and allocation failures.
#include <gtest/gtest.h>
#include <math.h>

#include <random>
#include <vector>

#include "depthcalc/depthcalc_internal.h"
#include "depthcalc/frame_fixture.h"
#include "support/alloc_table.h"
#include "support/hwy_targets.h"
#include "support/platform_capture.h"

namespace {

using dctest::Calc;
using dctest::Frame;
using dctest::ImageRect;
using dctest::Outputs;

int DepthOf(float K, float D) { return static_cast<uint16_t>(static_cast<int>(K / D)); }

// Truncation, offsets and the result line show in the golden digests; these corners do not.
TEST(DepthEndToEnd, FlatPlanesClampAndMixedDepths) {
  for (bool wide : {false, true})
    for (int mode : {0, 1, 2}) {
      Frame f(160, 120, 176, wide);
      f.rec.mode = mode;
      const BIVISTA_Rect a = ImageRect(f, 20, 10, 99, 69);
      const float K = f.K();
      const struct {
        int fill, offset, conf, depth, multi;  // depth -1: not checked
      } cases[] = {
          {64 * 4, 0, 200, wide ? DepthOf(K, 0.2f) : -1, 0},  // above 63 counts as 0.2
          {3, 0, 200, 0, 0},   // nothing kept: not-a-number average gives 0
          {80, 0, 32, 0, -1},  // no confident sample: likewise
      };
      for (const auto& c : cases) {
        f.Fill(c.fill);
        f.rec.dispOffset = c.offset;
        for (uint8_t& v : f.conf) v = static_cast<uint8_t>(c.conf);
        Outputs o;
        ASSERT_EQ(Calc(f, a, 2 | 16, &o), 0);
        SCOPED_TRACE(testing::Message() << wide << " mode " << mode << " fill " << c.fill);
        EXPECT_EQ(o.conf, c.conf);
        if (c.depth >= 0) { EXPECT_EQ(o.depth, c.depth); }
        if (c.multi >= 0) { EXPECT_EQ(o.multi, c.multi); }
      }
      // Two planes ten apart are half mixed (the correction of mode 1 moves them).
      if (mode == 1) continue;
      for (int y = 0; y < f.height; ++y)
        for (int x = 0; x < f.width; ++x) f.Set(x, y, (x < 60 ? 10 : 20) * 4);
      Outputs o;
      ASSERT_EQ(Calc(f, a, 16, &o), 0);
      EXPECT_EQ(o.multi, 128);
    }
}

TEST(ResizeFactor, AspectRules) {
  const int sizes[][3] = {{3968, 2976, 0}, {1600, 900, 0}, {204, 115, 0},
                          {3968, 2240, 0}, {1800, 900, 0}, {2976, 2976, 1}};
  for (const auto& s : sizes)
    EXPECT_FLOAT_EQ(bivista::getResizeFac(s[0], s[1]),
                    s[0] * (s[2] ? 0.0003360215 : 0.00025201612));
  bvtest::LogCapture log;
  EXPECT_EQ(bivista::getResizeFac(100, 37), 1.0f);
  EXPECT_EQ(bvtest::CountMsg(log, 6, "ZR481_ALGO", "getResizeFac", "invalid image size:w=100,h=37"),
            1);
}

// The average on hand-made rows (16-bit when `wide`), full confidence; r[2] starts as a marker.
struct Avg {
  float r[4] = {9, 9, -5, 9};
  int score;
  Avg(const std::vector<int>& pixels, int rows = 1, int startW = 0, bool wide = false) {
    std::vector<uint8_t> d8, conf(pixels.size(), 255);
    std::vector<uint16_t> d16;
    for (int p : pixels)
      d8.push_back(static_cast<uint8_t>(p * 4)), d16.push_back(static_cast<uint16_t>(p * 4));
    DisparityType rec{};
    rec.format = wide;
    rec.data = wide ? static_cast<void*>(d16.data()) : d8.data();
    const int n = static_cast<int>(pixels.size()) / rows;
    rec.width = rec.stride = n;
    rec.height = rows;
    score = bivista::D2DataAnalysisAFDisparity_New(rec, n, n, rows, 0, r, startW ? startW : n, rows,
                                                   conf.data());
  }
};

// The weighting, ties and early return show in the golden digests; a low peak and samples
// outside the bins do not.
TEST(AverageDisparity, LowPeakAndGuardsOutsideTheBins) {
  // A low peak trusts half of its left neighbour.
  EXPECT_FLOAT_EQ(Avg({3, 3, 3, 2, 2, 4}).r[0],
                  static_cast<float>((0.5 * 2 * 2 + 4 + 3 * 3) / (0.5 * 2 + 1 + 3)));
  // 16-bit samples above bin 159 count only in the (clipped) maximum.
  EXPECT_FLOAT_EQ(Avg({40, 40, 40, 900, 900, 900, 900}, 1, 0, true).r[0], 40.0f);
  // Peaks three bins apart (the smoothing clips at 70, the raw bins do not) are refused.
  const Avg apart({65, 65, 80, 81, 82, 83, 84, 85, 86, 87, 88, 89}, 1, 0, true);
  EXPECT_EQ(apart.score, 5);
  EXPECT_EQ(apart.r[3], 0.0f);
  // Nothing kept and a minimum that starts at w = 400: no read outside the histogram.
  Avg flat(std::vector<int>(800, 0), 2, 40);
  EXPECT_TRUE(isnan(flat.r[0]));
  EXPECT_EQ(flat.score, 14);
}

// The multi-depth's running minimum starts at the stride, not at a large value.
TEST(RunningMinimum, StartsAtTheStride) {
  // Disparities 20 and 23 span less than 5, which alone gives 0; a stride of 12 starts the
  // minimum at 12, the span passes, and the window around 20 holds half the samples.
  for (int stride : {12, 400}) {
    std::vector<uint8_t> d(stride * 2, 0);
    std::fill(d.begin(), d.begin() + 10, 20 * 4);
    std::fill(d.begin() + stride, d.begin() + stride + 10, 23 * 4);
    DisparityType rec{};
    rec.data = d.data();
    EXPECT_EQ(bivista::D2AnalysisAFMultiDepth(rec, stride, 10, 2, 0), stride == 12 ? 128 : 0);
    // One row holds one depth.
    if (stride == 12) { EXPECT_EQ(bivista::D2AnalysisAFMultiDepth(rec, 12, 10, 1, 0), 0); }
  }
}

// Window growth against a direct statement, on maps whose scores straddle the threshold.
TEST(WindowGrowth, StopsOnceTheScoreReaches64) {
  std::mt19937 rng(11);
  int straddled = 0;
  for (int trial = 0; trial < 200; ++trial) {
    // A share of the samples on one disparity, the rest spread wide; windows of many samples.
    const int w = 200 + trial % 23, h = 150 + trial % 17, share = 20 + trial % 120;
    std::vector<uint8_t> d(size_t(w) * h), c(d.size());
    for (size_t i = 0; i < d.size(); ++i) {
      d[i] = uint8_t(4 * (rng() % 1000 < unsigned(share) ? 20 : 12 + rng() % 48));
      c[i] = uint8_t(rng() % 256);
    }
    DisparityType rec{};
    rec.data = d.data();
    float want[4] = {}, got[4] = {};
    float r = 0.1f;
    int ret = 0;
    for (int step = 0; step <= 6; ++step) {
      if (step > 0) r = std::min(r * 1.5f, 1.0f);
      ret = bivista::D2DataAnalysisAFDisparity_New(rec, w, w, h, 0, want, int(w * r + 0.5f),
                                                   int(h * r + 0.5f), c.data());
      if (want[3] >= 64.0f) break;
      straddled += want[3] >= 60.0f;
    }
    ASSERT_EQ(bivista::analysisAFDepth(rec, w, w, h, 0, got, 0.0f, c.data()), ret);
    ASSERT_EQ(memcmp(got, want, sizeof got), 0) << trial;
  }
  EXPECT_GT(straddled, 0);  // some window scored just below the threshold
}

TEST(MultiDepth, DegreeAndCutoffs) {
  const struct {
    std::vector<std::pair<int, int>> runs;  // (disparity, count)
    int offset, expect;
  } cases[] = {
      {{{20, 50}}, 0, 0},              // one depth
      {{{20, 50}, {24, 50}}, 0, 0},    // range below 5
      {{{10, 30}, {20, 30}}, 0, 128},  // two halves
      {{{10, 95}, {20, 5}}, 0, 0},     // window above 90%
      {{{10, 91}, {20, 9}}, 0, 0},
      {{{10, 90}, {20, 10}}, 0, 26},
      {{{10, 20}, {20, 40}, {40, 40}}, 0, 153},  // peak window holds 40%
      // A peak at 2 sums bins 1..5: 1 and 5 are inside the window, 6 is not.
      {{{2, 40}, {1, 10}, {5, 10}, {6, 10}, {30, 30}}, 0, 102},
      // Offsets are taken before the absolute value; 63 and 0 are out.
      {{{10, 30}, {20, 30}}, -160, 128},  // |40-160|>>2=30, |80-160|>>2=20
      {{{63, 30}, {20, 30}}, 0, 0},
  };
  for (const auto& c : cases) {
    std::vector<uint8_t> d;
    for (auto [disp, count] : c.runs) d.insert(d.end(), count, static_cast<uint8_t>(disp * 4));
    DisparityType rec{};
    rec.data = d.data();
    rec.dispOffset = c.offset;
    rec.width = rec.stride = static_cast<int>(d.size());
    rec.height = 1;
    EXPECT_EQ(bivista::D2AnalysisAFMultiDepth(rec, rec.stride, rec.width, 1, 0), c.expect)
        << c.runs.size();
  }
}

// Plain per-pixel statement of the correction, carried best cost and k included.
template <typename T>
void CheckCorrection(int seed, int maxValue, int minValue = 0, int minWidth = 70) {
  std::mt19937 rng(seed);
  const int width = minWidth + rng() % 40, height = 20, stride = width + rng() % 9;
  std::vector<T> in(stride * height);
  std::vector<uint8_t> conf(in.size());
  for (auto& v : in) v = static_cast<T>(minValue + rng() % (maxValue - minValue));
  for (auto& c : conf) c = rng() & 255;
  BIVISTA_Rect r{static_cast<int>(rng() % 30), static_cast<int>(rng() % 5), 0, 0};
  r.right = width - 1 - static_cast<int>(rng() % 3);
  r.bottom = r.top + 3 + static_cast<int>(rng() % 10);
  std::vector<T> out(in.size(), 7), expect(in.size(), 7);
  std::vector<uint8_t> oc(in.size(), 9), ec(in.size(), 9);
  int best = 1 << 30, bestK = 0;
  for (int y = r.top; y <= r.bottom; ++y)
    for (int x = r.left; x <= r.right; ++x) {
      for (int k = 0; k < 50; ++k) {
        const int cost = std::abs(k + 2 - (in[y * stride + std::min(x + k, width - 1)] >> 2));
        if (cost < best) best = cost, bestK = k;
        if (cost == 0) break;
      }
      const int k = std::max(0, std::min(bestK, width - 1 - x));  // past the edge: last column
      expect[y * stride + x] = in[y * stride + x + k];
      ec[y * stride + x] = conf[y * stride + x + k];
    }
  DisparityType rec{};
  rec.format = sizeof(T) == 2;
  rec.data = in.data();
  rec.width = width, rec.height = height, rec.stride = stride;
  bivista::CorrectFocusArea(rec, conf.data(), &r, out.data(), oc.data());
  ASSERT_EQ(out, expect) << "seed " << seed;
  ASSERT_EQ(oc, ec) << "seed " << seed;
}

TEST(CorrectFocusArea, MatchesPlainStatementOnRandomMaps) {
  for (int seed = 0; seed < 60; ++seed) {
    CheckCorrection<uint8_t>(seed, 256);       // mostly exact matches early
    CheckCorrection<uint8_t>(seed + 100, 12);  // small disparities: long searches, carried k
    CheckCorrection<uint16_t>(seed + 200, 1024);
    CheckCorrection<uint16_t>(seed + 300, 400);
    CheckCorrection<uint8_t>(seed + 400, 256, 208);  // never a cost of 0: every pixel searches
    CheckCorrection<uint16_t>(seed + 500, 1024, 208);
  }
  // Rows long enough for several search chunks, on every vector target.
  bvtest::ForEachHwyTarget([](const char*) {
    for (int seed = 0; seed < 4; ++seed) {
      CheckCorrection<uint8_t>(seed + 600, 12, 0, 600);
      CheckCorrection<uint16_t>(seed + 700, 400, 0, 600);
      CheckCorrection<uint16_t>(seed + 800, 1024, 208, 600);
    }
  });
}

// Every allocation fails in turn: the message of that step, -1, and nothing leaked; the three
// shift planes (mode 0) and the corrected copies (mode 1, after the confidence is written).
TEST(AllocationFailures, AreReportedAndFreed) {
  const char *kT = "TransDispariyArea", *kC = "Bivista_CalcShift", *kFail = "malloc failed",
             *kConf = "Malloc CorrectedConfidence memory error!";
  const struct {
    int mode;
    bool wide;
    int flags;
    std::vector<std::pair<const char*, const char*>> msgs;  // (function, text) per failing run
  } cases[] = {{0, false, 4, {{kT, kFail}, {kT, kFail}, {kT, kFail}}},
               {1, false, 2 | 16, {{kC, kConf}, {kC, "Malloc CorrectedDisp_uchar memory error!"}}},
               {1, true, 2 | 16, {{kC, kConf}, {kC, "Malloc CorrectedDisp_ushort memory error!"}}}};
  for (const auto& c : cases) {
    Frame f(64, 48, 67, c.wide, 2);
    f.rec.mode = c.mode;
    f.Fill(80);
    const size_t n = c.msgs.size();
    {  // mode 1: map-sized planes, the confidence first; the shift: three area planes of floats
      bvtest::MallocWatch watch;
      Outputs o;
      Calc(f, ImageRect(f, 5, 5, 40, 30), c.flags, &o);
      const size_t map = 67 * 48, area = 36 * 26 * sizeof(float);
      const std::vector<size_t> want =
          c.mode ? std::vector<size_t>{map, map * (c.wide ? 2 : 1)} : std::vector<size_t>{area, area, area};
      EXPECT_EQ(watch.sizes(), want);
    }
    const int runs = bvtest::ForEachMallocFailure([&](int run) {
      bvtest::LogCapture log;
      Outputs o;
      EXPECT_EQ(Calc(f, ImageRect(f, 5, 5, 40, 30), c.flags, &o), size_t(run) <= n ? -1 : 0);
      if (size_t(run) > n) return;
      EXPECT_EQ(
          bvtest::CountMsg(log, 6, "ZR481_ALGO", c.msgs[run - 1].first, c.msgs[run - 1].second), 1);
      EXPECT_TRUE(o.depth == 0xBEEF && o.sx == -99.0f && o.conf == (c.mode ? 200 : 0xAB));
    });
    EXPECT_EQ(runs, int(n) + 1);
  }
}

}  // namespace
