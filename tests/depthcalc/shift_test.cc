// The shift: the row-by-row walk against the whole-plane passes, the zero-shift cases, the maps
// and the failure paths. Every form and direction on full calculations is in the golden digests.
#include <gtest/gtest.h>
#include <math.h>

#include <random>
#include <vector>

#include "depthcalc/depthcalc_internal.h"
#include "depthcalc/depthcalc_kernels.h"
#include "depthcalc/frame_fixture.h"
#include "support/platform_capture.h"

namespace {

using dctest::Calc;
using dctest::Frame;
using dctest::ImageRect;
using dctest::Outputs;
const char kAlgo[] = "ZR481_ALGO";

// A near-identity warp with small random off-diagonal, translation and projective terms.
void RandomWarp(std::mt19937& rng, float* m) {
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  const float w[9] = {1.0f + 0.01f * u(rng), 0.01f * u(rng),        2.3f * u(rng),
                      0.01f * u(rng),        1.0f + 0.01f * u(rng), 1.7f * u(rng),
                      2e-5f * u(rng),        2e-5f * u(rng),        1.0f};
  memcpy(m, w, sizeof w);
}

// Forward form along the rows (directions 2 and 3) is computed row by row; it must give the
// bytes of the whole-plane statement: disparity, field and landing planes, then one float walk.
// Rows wider than the landing block (4096) take the whole-plane path a sample at a time.
TEST(Shift, RowByRowEqualsThePlanePasses) {
  std::mt19937 rng(5);
  const struct {
    int w, h;
    BIVISTA_Rect a;
  } areas[] = {{80, 60, {0, 0, 79, 59}},  {80, 60, {3, 4, 3, 50}},    {80, 60, {1, 2, 17, 2}},
               {80, 60, {5, 6, 37, 40}},  {80, 60, {40, 1, 79, 58}},  {4200, 3, {0, 0, 4199, 2}},
               {4200, 3, {3, 1, 4110, 2}}};
  // The second offset puts disparities past the float landing's range (nothing lands).
  for (int offset : {-6, 1 << 22})
    for (bool wide : {false, true})
      for (int dir : {2, 3})
        for (const auto& area : areas) {
          const BIVISTA_Rect& a = area.a;
          Frame f(area.w, area.h, area.w + 5, wide, 2);
          for (int y = 0; y < f.height; ++y)
            for (int x = 0; x < f.width; ++x) f.Set(x, y, rng() % (wide ? 400 : 256));
          f.rec.dispOffset = offset;
          f.rec.mode = 0, f.rec.shiftDirection = dir;
          f.calib.warpMatrixForm = 1;
          f.calib.rectifiedWidth = 40, f.calib.rectifiedHeight = 30;
          RandomWarp(rng, f.calib.warpMatrix);

          const int w = a.right - a.left + 1, h = a.bottom - a.top + 1;
          std::vector<float> disp(w * h), vx(w * h), vy(w * h);
          std::vector<int32_t> target(w * h);
          const size_t corner = static_cast<size_t>(a.top) * f.rec.stride + a.left;
          if (wide) {
            bivista::scalar::DisparityPlane16(f.disp16.data() + corner, f.rec.stride,
                                              f.rec.dispOffset, w, h, disp.data());
          } else {
            bivista::scalar::DisparityPlane8(f.disp8.data() + corner, f.rec.stride,
                                             f.rec.dispOffset, w, h, disp.data());
          }
          float H[9];
          ASSERT_EQ(bivista::CalcVxVy(0, f.calib, area.w, area.h, H), 0);
          bivista::calcAreaVxVy(H, a, 0, 0, vx.data(), vy.data());
          bivista::scalar::LandingTargets(nullptr, disp.data(), w, h, 0, h, target.data());
          float sx = 0.0f, sy = 0.0f;
          int count = 0;
          for (int i = 0; i < w * h; ++i) {
            const int t = target[i];
            if (t < 0) continue;
            ++count;
            sx += dir == 2 ? vx[t] - disp[i] : vx[t] + disp[i];
            sy += vy[t];
          }
          const float ex = count ? sx / static_cast<float>(count) : 0.0f;
          const float ey = count ? sy / static_cast<float>(count) : 0.0f;

          float ox = -1.0f, oy = -1.0f;
          ASSERT_EQ(bivista::TransDispariyArea(f.rec, f.calib, a, &ox, &oy), 0);
          SCOPED_TRACE(testing::Message() << "wide " << wide << " dir " << dir << " area "
                                          << a.left << "," << a.top << "," << a.right << ","
                                          << a.bottom << " count " << count);
          EXPECT_EQ(memcmp(&ox, &ex, sizeof ox), 0) << ox << " vs " << ex;
          EXPECT_EQ(memcmp(&oy, &ey, sizeof oy), 0) << oy << " vs " << ey;
        }
}

// A 2:1 map sits centred in a 4:3 frame (the golden sizes have no 2:1 map): its shift is that of
// the same samples placed in the middle rows of a 4:3 map, in every branch and direction.
TEST(Shift, TwoToOneMapIsCentredInFourToThree) {
  std::mt19937 rng(7);
  for (int mode : {0, 1})
    for (int form : {0, 1})
      for (int dir = 0; dir < 4; ++dir) {
        Frame wide(80, 40, 85, false, 2), full(80, 60, 85, false, 2);
        for (Frame* f : {&wide, &full}) {
          f->rec.mode = mode, f->rec.shiftDirection = dir, f->calib.warpMatrixForm = form;
          f->calib.rectifiedWidth = 40, f->calib.rectifiedHeight = 30;
        }
        RandomWarp(rng, wide.calib.warpMatrix);
        memcpy(full.calib.warpMatrix, wide.calib.warpMatrix, sizeof wide.calib.warpMatrix);
        for (int y = 0; y < 40; ++y)
          for (int x = 0; x < 80; ++x) {
            const int v = 4 + rng() % 28;
            wide.Set(x, y, v), full.Set(x, y + 10, v);
          }
        Outputs a, b;
        ASSERT_EQ(Calc(wide, ImageRect(wide, 12, 5, 67, 33), 4, &a), 0);
        ASSERT_EQ(Calc(full, ImageRect(full, 12, 15, 67, 43), 4, &b), 0);
        EXPECT_TRUE(a.sx == b.sx && a.sy == b.sy && a.sx != 0.0f)
            << mode << form << dir << ": " << a.sx << "," << a.sy << " vs " << b.sx << "," << b.sy;
      }
}

// Zero shift: other modes or forms, directions above 3, and (by choice) no target inside the
// area, where the division would give not-a-number.
TEST(Shift, ZeroShiftCases) {
  const int cases[][4] = {{30, 2, 1, 2},  {30, 0, 2, 2},  {30, 0, 1, 4}, {400, 0, 1, 0},
                          {400, 0, 1, 1}, {400, 0, 1, 2}, {400, 0, 1, 3}};  // raw, mode, form, dir
  for (const auto& k : cases) {
    Frame f(80, 60, 80, true, 2);
    f.Fill(k[0]);  // 400: 100 pixels, every forward target leaves the 20-wide area
    f.rec.mode = k[1], f.calib.warpMatrixForm = k[2], f.rec.shiftDirection = k[3];
    Outputs o;
    ASSERT_EQ(Calc(f, ImageRect(f, 10, 10, 29, 29), 4, &o), 0);
    EXPECT_TRUE(o.sx == 0.0f && o.sy == 0.0f) << k[0] << " " << k[1] << " " << k[2] << " " << k[3];
  }
}

// A determinant of 1e-18 is below the inversion's threshold.
TEST(Shift, SingularWarpFailsWithItsMessages) {
  Frame f(80, 60, 80, false, 2);
  f.Fill(80);
  const float tiny[9] = {1e-6f, 0, 0, 0, 1e-6f, 0, 0, 0, 1e-6f};
  memcpy(f.calib.warpMatrix, tiny, sizeof tiny);
  for (int form : {0, 1}) {
    f.calib.warpMatrixForm = form;  // 0: inverted in CalcVxVy, 1: in CalcWarpingMatrix
    bvtest::LogCapture log;
    Outputs o;
    ASSERT_EQ(Calc(f, ImageRect(f, 10, 10, 40, 40), 16 | 4, &o), -1);
    EXPECT_NE(o.depth, 0xBEEF);  // the depth written before stays
    EXPECT_EQ(o.sx, -99.0f);
    const std::string wrong = "Input warp image matrix is wrong";
    EXPECT_EQ(bvtest::CountMsg(log, 6, kAlgo, form ? "CalcWarpingMatrix" : "CalcVxVy", wrong), 1);
    EXPECT_EQ(
        bvtest::CountMsg(log, 6, kAlgo, "CalcVxVy",
                         "CalcWarpingMatrix failed rectifyW: 80 rectifyH: 60 fixW: 80 fixH: 60"),
        form);
    EXPECT_EQ(bvtest::CountMsg(log, 6, kAlgo, "TransDispariyArea",
                               "CalcVxVy failed in TransDispariyArea"),
              1);
    EXPECT_EQ(bvtest::CountMsg(log, 6, kAlgo, "Bivista_CalcShift",
                               "TransDispariyArea failed in calc xymap"),
              1);
  }
}

// The maps are read for either shift flag: the last sample's values over the sample count.
TEST(Shift, ReadMapsKeepTheLastSample) {
  Frame f(80, 60, 96, false, 2);
  std::vector<uint16_t> xm(96 * 60), ym(96 * 60);
  std::mt19937 rng(3);
  for (size_t i = 0; i < xm.size(); ++i) xm[i] = rng() & 0xFFFF, ym[i] = rng() & 0xFFFF;
  Outputs o;
  ASSERT_EQ(Calc(f, ImageRect(f, 10, 12, 39, 31), 8, &o, 1, xm.data(), ym.data()), 0);
  const size_t last = 31 * 96 + 39;  // 30 x 20 samples
  EXPECT_FLOAT_EQ(o.sx, static_cast<float>(xm[last] >> 3) / 600.0f);
  EXPECT_FLOAT_EQ(o.sy, static_cast<float>(ym[last] >> 3) / 600.0f);
}

}  // namespace
