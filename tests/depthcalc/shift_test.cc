// The shift: every form and direction against a direct double-precision statement of the geometry
// (divide by the scale, undo the centring, apply the warp, come back), plus the failure paths.
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

// Gauss-Jordan elimination with partial pivoting: independent of the library's adjugate.
void InverseByElimination(const double* m, double* inv) {
  double a[3][6];
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 6; ++c) a[r][c] = c < 3 ? m[r * 3 + c] : (c - 3 == r);
  for (int col = 0; col < 3; ++col) {
    int piv = col;
    for (int r = col + 1; r < 3; ++r)
      if (fabs(a[r][col]) > fabs(a[piv][col])) piv = r;
    for (int c = 0; c < 6; ++c) std::swap(a[col][c], a[piv][c]);
    for (int r = 0; r < 3; ++r)
      for (int c = 5; r != col && c >= 0; --c) a[r][c] -= a[r][col] / a[col][col] * a[col][c];
  }
  for (int r = 0; r < 9; ++r) inv[r] = a[r / 3][r % 3 + 3] / a[r / 3][r / 3];
}

// A near-identity warp with small random off-diagonal, translation and projective terms.
void RandomWarp(std::mt19937& rng, float* m) {
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  const float w[9] = {1.0f + 0.01f * u(rng), 0.01f * u(rng),        2.3f * u(rng),
                      0.01f * u(rng),        1.0f + 0.01f * u(rng), 1.7f * u(rng),
                      2e-5f * u(rng),        2e-5f * u(rng),        1.0f};
  memcpy(m, w, sizeof w);
}

// Mean shift of the area stated directly: forward form uses the inverse of the stored matrix,
// inverse form the matrix itself; the map sits centred in a fixW x fixH 4:3 frame.
void ExpectReference(const Frame& f, const BIVISTA_Rect& a, bool forward, int fixW, int fixH,
                     const Outputs& o) {
  double g[9], m[9];
  for (int i = 0; i < 9; ++i) m[i] = f.calib.warpMatrix[i];
  memcpy(g, m, sizeof m);
  if (forward) InverseByElimination(m, g);
  const double s = double(fixW) / f.calib.rectifiedWidth, cx = f.calib.rectifiedWidth / 2.0,
               cy = f.calib.rectifiedHeight / 2.0;
  const int xoff = (fixW - f.width) / 2, yoff = (fixH - f.height) / 2, dir = f.rec.shiftDirection;
  auto displace = [&](int x, int y, double* vx, double* vy) {
    const double X = x + xoff, Y = y + yoff, px = X / s - cx, py = Y / s - cy;
    const double z = g[6] * px + g[7] * py + g[8];
    *vx = ((g[0] * px + g[1] * py + g[2]) / z + cx) * s - X;
    *vy = ((g[3] * px + g[4] * py + g[5]) / z + cy) * s - Y;
  };
  const int w = a.right - a.left + 1, h = a.bottom - a.top + 1;
  auto disp = [&](int r, int c) {
    const int v = f.Get(a.left + c, a.top + r) + f.rec.dispOffset;
    return v < 0 ? 0.0 : v / 4.0;
  };
  auto in = [&](int r, int c) { return r >= 0 && r < h && c >= 0 && c < w; };
  auto round = [](double v) { return static_cast<int>(v + 0.5); };  // -0.8 lands on 0
  double sx = 0, sy = 0, vx, vy;
  int count = 0;
  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c) {
      const double d = disp(r, c);
      if (forward) {
        const int r2 = dir <= 1 ? round(d + r) : r, c2 = dir <= 1 ? c : round(c + d);
        if (!in(r2, c2)) continue;
        ++count;
        displace(a.left + c2, a.top + r2, &vx, &vy);
        const double sign = (dir == 1 || dir == 3) ? 1 : -1;
        sx += vx + (dir >= 2 ? sign * d : 0);
        sy += vy + (dir <= 1 ? sign * d : 0);
      } else {
        displace(a.left + c, a.top + r, &vx, &vy);
        const int r2 = round(r + vy), c2 = round(c + vx);
        if (!in(r2, c2)) continue;
        ++count;
        const double D = disp(r2, c2);
        sx += vx + (dir == 2 ? D : dir == 3 ? -D : 0);
        // Direction 0 sets, not adds: only the last sample counts.
        sy = dir == 0 ? D + vy + r : sy + vy + (dir == 1 ? -D : 0);
      }
    }
  const double ex = count ? sx / count : 0, ey = count ? sy / count : 0;
  EXPECT_NEAR(o.sx, ex, 2e-3 + 1e-4 * fabs(ex));
  EXPECT_NEAR(o.sy, ey, 2e-3 + 1e-4 * fabs(ey));
}

TEST(Shift, EveryBranchMatchesTheGeometry) {
  struct Branch {
    int mode, form;
    bool forward;
  };
  const Branch branches[] = {{0, 1, true}, {1, 0, true}, {0, 0, false}, {1, 1, false}};
  // A random warp at scale 2 in every direction, and square or wide maps centred in 4:3 under
  // a zoom about the centre (which makes the result depend on the centring offsets).
  const struct {
    int w, h, fixH;
    bool zoom;
  } maps[] = {{80, 60, 60, false}, {60, 60, 60, true}, {80, 45, 60, true}, {80, 40, 60, true}};
  std::mt19937 rng(11);
  for (const auto& m : maps)
    for (bool wide : {false, true})
      for (const Branch& b : branches)
        for (int dir = m.zoom ? 3 : 0; dir < 4; ++dir) {
          Frame f(m.w, m.h, m.w + 5, wide, 2);
          for (int y = 0; y < f.height; ++y)
            for (int x = 0; x < f.width; ++x) f.Set(x, y, 4 + rng() % 28);
          f.rec.dispOffset = -6;  // some samples go negative and count as 0
          f.rec.mode = b.mode, f.rec.shiftDirection = dir;
          f.calib.warpMatrixForm = b.form;
          f.calib.rectifiedWidth = m.zoom ? 80 : 40, f.calib.rectifiedHeight = m.zoom ? 60 : 30;
          const float zoom[9] = {1.0537f, 0, 0.4129f, 0, 1.0537f, -0.3173f, 0, 0, 1};
          RandomWarp(rng, f.calib.warpMatrix);
          if (m.zoom) memcpy(f.calib.warpMatrix, zoom, sizeof zoom);
          const BIVISTA_Rect a =
              m.zoom ? BIVISTA_Rect{5, 6, m.w - 10, m.h - 8} : BIVISTA_Rect{12, 9, 47, 38};
          Outputs o;
          ASSERT_EQ(Calc(f, ImageRect(f, a.left, a.top, a.right, a.bottom), 4, &o), 0);
          SCOPED_TRACE(testing::Message() << m.w << "x" << m.h << " wide " << wide << " mode "
                                          << b.mode << " form " << b.form << " dir " << dir);
          ExpectReference(f, a, b.forward, 80, m.fixH, o);
        }
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
