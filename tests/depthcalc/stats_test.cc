// Depth, confidence and multi-depth: hand-derived end-to-end results and the statistics' corners.
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

class DepthEndToEnd : public ::testing::TestWithParam<bool> {};

TEST_P(DepthEndToEnd, FlatPlaneGivesKOverDisparity) {
  for (int mode : {0, 1, 2}) {
    Frame f(160, 120, 176, GetParam());
    f.rec.mode = mode;
    f.Fill(20 * 4 + 2);  // 20.5 quarter-pixel samples truncate to 20 whole pixels
    bvtest::LogCapture log;
    Outputs o;
    ASSERT_EQ(Calc(f, ImageRect(f, 20, 10, 99, 69), 2 | 16, &o), 0);
    EXPECT_EQ(o.conf, 200);
    EXPECT_EQ(o.multi, 0);
    const float K = f.K();
    EXPECT_EQ(o.depth, static_cast<uint16_t>(static_cast<int>(K / 20.0f))) << "mode " << mode;
    char text[96];
    snprintf(text, sizeof text, "myDispTrans depthresult=%d,isMultiDepth=0", o.depth);
    EXPECT_EQ(bvtest::CountMsg(log, 3, "ZR481_ALGO", "Bivista_CalcShift", text), 1);
  }
}

TEST_P(DepthEndToEnd, TwoPlanesTenApartAreHalfMixed) {
  Frame f(160, 120, 176, GetParam());
  for (int y = 0; y < f.height; ++y)
    for (int x = 0; x < f.width; ++x) f.Set(x, y, (x < 60 ? 10 : 20) * 4);
  Outputs o;
  ASSERT_EQ(Calc(f, ImageRect(f, 20, 10, 99, 69), 16, &o), 0);
  EXPECT_EQ(o.multi, 128);
}

TEST_P(DepthEndToEnd, OffsetAndClamp) {
  Frame f(160, 120, 176, GetParam());
  f.Fill(100);
  f.rec.dispOffset = -20;  // (100 - 20) >> 2 = 20
  Outputs o;
  ASSERT_EQ(Calc(f, ImageRect(f, 20, 10, 99, 69), 16, &o), 0);
  EXPECT_EQ(o.depth, static_cast<uint16_t>(static_cast<int>(f.K() / 20.0f)));
  // Above 63 and 0 both count as 0.2.
  const uint16_t clamped = static_cast<uint16_t>(static_cast<int>(f.K() / 0.2f));
  f.rec.dispOffset = 0;
  f.Fill(64 * 4);
  ASSERT_EQ(Calc(f, ImageRect(f, 20, 10, 99, 69), 16, &o), 0);
  if (GetParam()) {
    EXPECT_EQ(o.depth, clamped);
  }
  f.Fill(3);  // every sample below 2 pixels: nothing kept, not-a-number average gives 0
  ASSERT_EQ(Calc(f, ImageRect(f, 20, 10, 99, 69), 16, &o), 0);
  EXPECT_EQ(o.depth, 0);
  // No confident sample: the average is not a number and passes the clamp.
  f.Fill(80);
  for (uint8_t& c : f.conf) c = 32;
  ASSERT_EQ(Calc(f, ImageRect(f, 20, 10, 99, 69), 16, &o), 0);
  EXPECT_EQ(o.depth, 0);
}

INSTANTIATE_TEST_SUITE_P(Formats, DepthEndToEnd, ::testing::Bool());

TEST(Confidence, IntegerAverageOfTheArea) {
  Frame f(64, 48, 70, false, 2);
  std::mt19937 rng(7);
  for (uint8_t& c : f.conf) c = rng() & 255;
  Outputs o;
  ASSERT_EQ(Calc(f, ImageRect(f, 5, 6, 33, 20), 2, &o), 0);
  long sum = 0;
  for (int y = 6; y <= 20; ++y)
    for (int x = 5; x <= 33; ++x) sum += f.conf[y * 70 + x];
  EXPECT_EQ(o.conf, sum / (29 * 15));
}

TEST(ResizeFactor, AspectRules) {
  EXPECT_FLOAT_EQ(bivista::getResizeFac(3968, 2976), 3968 * 0.00025201612);
  EXPECT_FLOAT_EQ(bivista::getResizeFac(1600, 900), 1600 * 0.00025201612);
  EXPECT_FLOAT_EQ(bivista::getResizeFac(204, 115), 204 * 0.00025201612);
  EXPECT_FLOAT_EQ(bivista::getResizeFac(3968, 2240), 3968 * 0.00025201612);
  EXPECT_FLOAT_EQ(bivista::getResizeFac(1800, 900), 1800 * 0.00025201612);
  EXPECT_FLOAT_EQ(bivista::getResizeFac(2976, 2976), 2976 * 0.0003360215);
  bvtest::LogCapture log;
  EXPECT_EQ(bivista::getResizeFac(100, 37), 1.0f);
  EXPECT_EQ(bvtest::CountMsg(log, 6, "ZR481_ALGO", "getResizeFac", "invalid image size:w=100,h=37"),
            1);
}

// The average on a hand-made window: one 8-bit row per case, full confidence.
struct Window {
  std::vector<uint8_t> disp, conf;
  DisparityType rec{};
  explicit Window(const std::vector<int>& pixels) {
    for (int p : pixels) disp.push_back(static_cast<uint8_t>(p * 4));
    conf.assign(disp.size(), 255);
    rec.data = disp.data();
    rec.width = rec.stride = static_cast<int>(disp.size());
    rec.height = 1;
  }
  int Run(float* r) {
    const int n = static_cast<int>(disp.size());
    return bivista::D2DataAnalysisAFDisparity_New(rec, n, n, 1, 0, r, n, 1, conf.data());
  }
};

TEST(AverageDisparity, PeakCentredMean) {
  float r[4] = {0, 0, -5, 0};
  // Peak 20 (5 samples), neighbours 19 (1) and 21 (2); 30 is outside the three bins.
  Window w({20, 20, 20, 20, 20, 19, 21, 21, 30, 22});
  const int score = w.Run(r);
  EXPECT_FLOAT_EQ(r[0], (19.0f * 1 + 20 * 5 + 21 * 2) / 8.0f);
  EXPECT_EQ(r[1], 20.0f);
  EXPECT_EQ(r[2], -5.0f);  // not written on this path
  // Smoothed count at 20: every sample from 18 to 22 adds one.
  const int expect = static_cast<int>(9 * 457.14285f / 10 + 13.714287f + 0.5f);
  EXPECT_EQ(score, std::min(expect, 255));
  EXPECT_EQ(r[3], static_cast<float>(score));
}

TEST(AverageDisparity, LowPeakTrustsLeftNeighbourHalf) {
  float r[4];
  Window w({3, 3, 3, 2, 2, 4});
  w.Run(r);
  EXPECT_FLOAT_EQ(r[0], static_cast<float>((0.5 * 2 * 2 + 4 * 1 + 3 * 3) / (0.5 * 2 + 1 + 3)));
}

TEST(AverageDisparity, TiesKeepLowerAndDisagreementReturnsEarly) {
  float r[4] = {0, 0, 0, 0};
  // Raw 30 and 31 tie: 30 wins, so the mean is over 29..31, not 30..32.
  Window tie({30, 30, 31, 31, 32});
  tie.Run(r);
  EXPECT_EQ(r[1], 30.0f);
  EXPECT_FLOAT_EQ(r[0], 30.5f);
  // Raw peak 10 (three samples) but smoothed peak in the dense run 40..44.
  Window split({10, 10, 10, 40, 41, 42, 43, 44});
  float q[4] = {9, 9, 9, 9};
  const int ret = split.Run(q);
  EXPECT_EQ(q[0], 10.0f);
  EXPECT_EQ(q[1], 42.0f);
  EXPECT_EQ(q[2], 44.0f);
  EXPECT_EQ(q[3], 0.0f);
  EXPECT_EQ(ret, 42 - 10 + 2);
}

TEST(AverageDisparity, GuardsOutsideTheBins) {
  // 16-bit samples above bin 159 count only in the (clipped) maximum.
  std::vector<uint16_t> d = {40 * 4, 40 * 4, 40 * 4, 900 * 4, 900 * 4, 900 * 4, 900 * 4};
  std::vector<uint8_t> c(d.size(), 255);
  DisparityType rec{};
  rec.format = 1;
  rec.data = d.data();
  rec.width = rec.stride = static_cast<int>(d.size());
  rec.height = 1;
  float r[4];
  bivista::D2DataAnalysisAFDisparity_New(rec, 7, 7, 1, 0, r, 7, 1, c.data());
  EXPECT_FLOAT_EQ(r[0], 40.0f);
  // Nothing kept and a minimum that starts at w = 400: no read outside the histogram.
  std::vector<uint8_t> flat(400 * 2, 0);
  std::vector<uint8_t> conf(flat.size(), 255);
  rec.format = 0;
  rec.data = flat.data();
  rec.width = rec.stride = 400;
  rec.height = 2;
  const int score = bivista::D2DataAnalysisAFDisparity_New(rec, 400, 400, 2, 0, r, 40, 2,
                                                           conf.data());
  EXPECT_TRUE(isnan(r[0]));
  EXPECT_EQ(score, 14);
}

// The running minima start at the area width (average) and at the stride (multi-depth), not at
// a large value, so a small start lets the scans begin below the smallest kept disparity.
TEST(RunningMinimum, StartsAtWidthAndStride) {
  float r[4];
  Window narrow(std::vector<int>(10, 20));  // w = 10: smoothed bins 18..22 tie, scan from 10
  narrow.Run(r);
  EXPECT_EQ(r[1], 18.0f);
  Window wide(std::vector<int>(30, 20));  // w = 30: scan from 20
  wide.Run(r);
  EXPECT_EQ(r[1], 20.0f);
  EXPECT_FLOAT_EQ(r[0], 20.0f);

  // Disparities 20 and 23 span less than 5, which alone gives 0; a stride of 12 starts the
  // minimum at 12, the span passes, and the window around 20 holds half the samples.
  std::vector<uint8_t> d(12 * 2, 0);
  for (int i = 0; i < 10; ++i) {
    d[i] = 20 * 4;
    d[12 + i] = 23 * 4;
  }
  DisparityType rec{};
  rec.data = d.data();
  EXPECT_EQ(bivista::D2AnalysisAFMultiDepth(rec, 12, 10, 2, 0), 128);
  EXPECT_EQ(bivista::D2AnalysisAFMultiDepth(rec, 12, 10, 1, 0), 0);  // one depth: above 90%
  std::vector<uint8_t> big(400 * 2, 0);
  for (int i = 0; i < 10; ++i) {
    big[i] = 20 * 4;
    big[400 + i] = 23 * 4;
  }
  rec.data = big.data();
  EXPECT_EQ(bivista::D2AnalysisAFMultiDepth(rec, 400, 10, 2, 0), 0);  // minimum from the samples
}

TEST(WindowGrowth, StopsAtTheFirstConfidentWindow) {
  // Confident samples only on a ring outside the 50.6% window: the growth must reach 75.9%.
  Frame f(160, 120, 160, false, 1);
  f.Fill(30 * 4);
  for (uint8_t& c : f.conf) c = 0;
  const int w = 100, h = 80, left = 30, top = 20;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const bool inner = x >= 20 && x < 80 && y >= 16 && y < 64;
      f.conf[(top + y) * 160 + left + x] = inner ? 0 : 255;
    }
  float r[4];
  bivista::analysisAFDepth(f.rec, 160, w, h, left + top * 160, r, 0.0f, f.conf.data());
  EXPECT_FLOAT_EQ(r[0], 30.0f);
  EXPECT_GE(r[3], 64.0f);
  // A confident centre at another disparity stops the growth at 10%.
  for (int y = 36; y < 64; ++y)
    for (int x = 70; x < 90; ++x) {
      f.Set(x, y, 12 * 4);
      f.conf[y * 160 + x] = 255;
    }
  bivista::analysisAFDepth(f.rec, 160, w, h, left + top * 160, r, 0.0f, f.conf.data());
  EXPECT_FLOAT_EQ(r[0], 12.0f);
}

int Multi(const std::vector<int>& pixels, int offset = 0) {
  std::vector<uint8_t> d;
  for (int p : pixels) d.push_back(static_cast<uint8_t>(p));
  DisparityType rec{};
  rec.data = d.data();
  rec.dispOffset = offset;
  rec.width = rec.stride = static_cast<int>(d.size());
  rec.height = 1;
  return bivista::D2AnalysisAFMultiDepth(rec, rec.stride, rec.width, 1, 0);
}

std::vector<int> Pixels(std::initializer_list<std::pair<int, int>> runs) {
  std::vector<int> v;
  for (auto [disp, count] : runs)
    for (int i = 0; i < count; ++i) v.push_back(disp * 4);
  return v;
}

TEST(MultiDepth, DegreeAndCutoffs) {
  EXPECT_EQ(Multi(Pixels({{20, 50}})), 0);                      // one depth
  EXPECT_EQ(Multi(Pixels({{20, 50}, {24, 50}})), 0);            // range below 5
  EXPECT_EQ(Multi(Pixels({{10, 30}, {20, 30}})), 128);          // two halves
  EXPECT_EQ(Multi(Pixels({{10, 95}, {20, 5}})), 0);             // window above 90%
  EXPECT_EQ(Multi(Pixels({{10, 91}, {20, 9}})), 0);
  EXPECT_EQ(Multi(Pixels({{10, 90}, {20, 10}})), 26);
  EXPECT_EQ(Multi(Pixels({{10, 20}, {20, 40}, {40, 40}})), 153);  // peak window holds 40%
  // A peak at 2 sums bins 1..5: 1 and 5 are inside the window, 6 is not.
  EXPECT_EQ(Multi(Pixels({{2, 40}, {1, 10}, {5, 10}, {6, 10}, {30, 30}})), 102);
  // Offsets are taken before the absolute value; 63 and 0 are out.
  EXPECT_EQ(Multi(Pixels({{10, 30}, {20, 30}}), -160), 128);  // |40-160|>>2=30, |80-160|>>2=20
  EXPECT_EQ(Multi(Pixels({{63, 30}, {20, 30}})), 0);
}

// Plain per-pixel statement of the correction, carried best cost and k included.
template <typename T>
void ReferenceCorrect(const std::vector<T>& in, const std::vector<uint8_t>& conf, int width,
                      int stride, BIVISTA_Rect r, std::vector<T>* out, std::vector<uint8_t>* oc) {
  int best = 1 << 30, bestK = 0;
  for (int y = r.top; y <= r.bottom; ++y)
    for (int x = r.left; x <= r.right; ++x) {
      for (int k = 0; k < 50; ++k) {
        const int col = x + k < width - 1 ? x + k : width - 1;
        const int cost = std::abs(k + 2 - (in[y * stride + col] >> 2));
        if (cost < best) {
          best = cost;
          bestK = k;
          if (cost == 0) break;
        }
      }
      int k = bestK < width - 1 - x ? bestK : width - 1 - x;
      if (k < 0) k = 0;
      (*out)[y * stride + x] = in[y * stride + x + k];
      (*oc)[y * stride + x] = conf[y * stride + x + k];
    }
}

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
  ReferenceCorrect(in, conf, width, stride, r, &expect, &ec);
  DisparityType rec{};
  rec.format = sizeof(T) == 1 ? 0 : 1;
  rec.data = in.data();
  rec.width = width;
  rec.height = height;
  rec.stride = stride;
  bivista::CorrectFocusArea(rec, conf.data(), r, out.data(), oc.data());
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
}

// Rows long enough for several search chunks, on every vector target.
TEST(CorrectFocusArea, MatchesPlainStatementOnLongRowsOnEveryTarget) {
  bvtest::ForEachHwyTarget([](const char*) {
    for (int seed = 0; seed < 4; ++seed) {
      CheckCorrection<uint8_t>(seed + 600, 12, 0, 600);
      CheckCorrection<uint16_t>(seed + 700, 400, 0, 600);
      CheckCorrection<uint16_t>(seed + 800, 1024, 208, 600);
    }
  });
}

TEST(CorrectFocusArea, ConstantDisparityShiftsByItsValue) {
  Frame f(64, 8, 64, false, 1);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 64; ++x) {
      f.Set(x, y, 10 * 4);
      f.conf[y * 64 + x] = static_cast<uint8_t>(x);
    }
  std::vector<uint8_t> od(f.disp8.size(), 0), oc(f.disp8.size(), 0);
  bivista::CorrectFocusArea(f.rec, f.conf.data(), BIVISTA_Rect{4, 2, 63, 5}, od.data(), oc.data());
  // cost |k + 2 - 10| is 0 at k = 8; columns past 55 take the last column.
  for (int x = 4; x < 64; ++x) EXPECT_EQ(oc[3 * 64 + x], x + 8 < 64 ? x + 8 : 63) << x;
  EXPECT_EQ(oc[1 * 64 + 10], 0);  // outside the rectangle
  EXPECT_EQ(oc[3 * 64 + 3], 0);
}

TEST(DepthMode1, ScratchFailuresAreReportedAndFreed) {
  for (bool wide : {false, true}) {
    Frame f(64, 48, 64, wide, 2);
    f.rec.mode = 1;
    f.Fill(80);
    const char* dispMsg = wide ? "Malloc CorrectedDisp_ushort memory error!"
                               : "Malloc CorrectedDisp_uchar memory error!";
    const int runs = bvtest::ForEachMallocFailure([&](int run) {
      bvtest::LogCapture log;
      Outputs o;
      const int rc = Calc(f, ImageRect(f, 5, 5, 40, 30), 2 | 16, &o);
      if (run == 1) {
        EXPECT_EQ(rc, -1);
        EXPECT_EQ(bvtest::CountMsg(log, 6, "ZR481_ALGO", "Bivista_CalcShift",
                                   "Malloc CorrectedConfidence memory error!"), 1);
        EXPECT_EQ(o.conf, 200);  // written before the depth step
        EXPECT_EQ(o.depth, 0xBEEF);
      } else if (run == 2) {
        EXPECT_EQ(rc, -1);
        EXPECT_EQ(bvtest::CountMsg(log, 6, "ZR481_ALGO", "Bivista_CalcShift", dispMsg), 1);
      } else {
        EXPECT_EQ(rc, 0);
      }
    });
    EXPECT_EQ(runs, 3);
  }
}

}  // namespace

namespace {

// Mode 1 works on packed copies of the corrected area; the results must be those of the
// map-sized corrected planes read with the map's stride.
TEST(DepthMode1, PackedAreaGivesTheMapSizedResult) {
  std::mt19937 rng(21);
  for (int t = 0; t < 40; ++t) {
    const bool wide = t % 2;
    const int w = 40 + rng() % 40, h = 30, stride = w + rng() % 5;  // small strides matter
    Frame f(w, h, stride, wide, 1);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) f.Set(x, y, (x < w / 2 ? 40 : 70) + rng() % (t % 3 ? 9 : 60));
    for (uint8_t& c : f.conf) c = 20 + rng() % 200;
    f.rec.mode = 1;
    f.rec.dispOffset = static_cast<int>(rng() % 9) - 4;
    const BIVISTA_Rect a{static_cast<int>(rng() % 10), static_cast<int>(rng() % 8),
                         w - 1 - static_cast<int>(rng() % 10), h - 1 - static_cast<int>(rng() % 8)};
    Outputs o;
    ASSERT_EQ(Calc(f, a, 16, &o), 0);

    const size_t n = static_cast<size_t>(stride) * h;
    std::vector<uint16_t> disp(n, 0);  // wide enough for either format
    std::vector<uint8_t> conf(n, 0);
    bivista::CorrectFocusArea(f.rec, f.conf.data(), a, disp.data(), conf.data());
    DisparityType corrected = f.rec;
    corrected.data = disp.data();
    const int aw = a.right - a.left + 1, ah = a.bottom - a.top + 1;
    const int offset = a.left + a.top * stride;
    float r[4];
    bivista::analysisAFDepth(corrected, stride, aw, ah, offset, r, 0.0f, conf.data());
    float D = r[0];
    if (D > 63.0f || D < 0.2f) D = 0.2f;
    // Not 4:3: factor 1, camera 2's smaller focal length, baseline 13.
    const float K = static_cast<float>(static_cast<double>(bivista::getResizeFac(w, h)) * 1490.0 *
                                       13.0);
    EXPECT_EQ(o.depth, static_cast<uint16_t>(bivista::ToInt32Sat(K / D))) << t;
    EXPECT_EQ(o.multi, bivista::D2AnalysisAFMultiDepth(corrected, stride, aw, ah, offset)) << t;
  }
}

}  // namespace
