// The shift: every form and direction against a direct double-precision statement of the geometry
// (divide by the scale, undo the centring, apply the warp, come back), plus the failure paths.
#include <gtest/gtest.h>
#include <math.h>

#include <random>
#include <vector>

#include "depthcalc/depthcalc_internal.h"
#include "depthcalc/frame_fixture.h"
#include "support/alloc_table.h"
#include "support/platform_capture.h"

namespace {

using dctest::Calc;
using dctest::Frame;
using dctest::ImageRect;
using dctest::Outputs;

// Solves the 3x3 system by Gaussian elimination with partial pivoting (no adjugate).
bool InverseByElimination(const double* m, double* inv) {
  double a[3][6];
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 6; ++c) a[r][c] = c < 3 ? m[r * 3 + c] : (c - 3 == r);
  for (int col = 0; col < 3; ++col) {
    int piv = col;
    for (int r = col + 1; r < 3; ++r)
      if (fabs(a[r][col]) > fabs(a[piv][col])) piv = r;
    if (fabs(a[piv][col]) < 1e-12) return false;
    for (int c = 0; c < 6; ++c) std::swap(a[col][c], a[piv][c]);
    for (int r = 0; r < 3; ++r) {
      if (r == col) continue;
      const double k = a[r][col] / a[col][col];
      for (int c = 0; c < 6; ++c) a[r][c] -= k * a[col][c];
    }
  }
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) inv[r * 3 + c] = a[r][c + 3] / a[r][r];
  return true;
}

struct Geometry {
  double g[9];  // maps a centred rectified point to the other image
  double s, cx, cy;
  int xoff, yoff;
  // Displacement of map pixel (x, y).
  void Displace(int x, int y, double* vx, double* vy) const {
    const double X = x + xoff, Y = y + yoff;
    const double px = X / s - cx, py = Y / s - cy;
    const double z = g[6] * px + g[7] * py + g[8];
    const double qx = (g[0] * px + g[1] * py + g[2]) / z + cx;
    const double qy = (g[3] * px + g[4] * py + g[5]) / z + cy;
    *vx = qx * s - X;
    *vy = qy * s - Y;
  }
};

// Add a half and truncate toward zero: -0.8 lands on 0, inside the area.
int Round(double v) { return static_cast<int>(v + 0.5); }

struct Expect {
  double x, y;
};

// Sums of the shift stated directly from the geometry.
Expect Reference(const Frame& f, const BIVISTA_Rect& a, const Geometry& geo, bool forward, int dir) {
  const int w = a.right - a.left + 1, h = a.bottom - a.top + 1;
  auto disp = [&](int r, int c) {
    const int v = f.Get(a.left + c, a.top + r) + f.rec.dispOffset;
    return v < 0 ? 0.0 : v / 4.0;
  };
  auto in = [&](int r, int c) { return r >= 0 && r < h && c >= 0 && c < w; };
  double sx = 0, sy = 0;
  int count = w * h;
  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c) {
      const double d = disp(r, c);
      double vx, vy;
      if (forward) {
        const int r2 = dir <= 1 ? Round(d + r) : r;
        const int c2 = dir <= 1 ? c : Round(c + d);
        if (!in(r2, c2)) { --count; continue; }
        geo.Displace(a.left + c2, a.top + r2, &vx, &vy);
        const double sign = (dir == 1 || dir == 3) ? 1 : -1;
        sx += vx + (dir >= 2 ? sign * d : 0);
        sy += vy + (dir <= 1 ? sign * d : 0);
      } else {
        geo.Displace(a.left + c, a.top + r, &vx, &vy);
        const int r2 = Round(r + vy);
        const int c2 = Round(c + vx);
        if (!in(r2, c2)) { --count; continue; }
        const double D = disp(r2, c2);
        if (dir == 0) { sx += vx; sy = D + vy + r; }
        if (dir == 1) { sx += vx; sy += vy - D; }
        if (dir == 2) { sx += vx + D; sy += vy; }
        if (dir == 3) { sx += vx - D; sy += vy; }
      }
    }
  if (count == 0) return {0, 0};
  return {sx / count, sy / count};
}

void RandomWarp(std::mt19937& rng, float* m) {
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  const float base[9] = {1.0f + 0.01f * u(rng), 0.01f * u(rng), 2.3f * u(rng),
                         0.01f * u(rng), 1.0f + 0.01f * u(rng), 1.7f * u(rng),
                         2e-5f * u(rng), 2e-5f * u(rng), 1.0f};
  memcpy(m, base, sizeof base);
}

// The geometry the stored matrix stands for: forward form uses its inverse, inverse form itself.
Geometry GeometryOf(const Frame& f, bool forward, int fixW, int fixH) {
  Geometry geo;
  double w[9];
  for (int i = 0; i < 9; ++i) w[i] = f.calib.warpMatrix[i];
  if (forward) EXPECT_TRUE(InverseByElimination(w, geo.g));
  else memcpy(geo.g, w, sizeof w);
  geo.s = static_cast<double>(fixW) / f.calib.rectifiedWidth;
  geo.cx = f.calib.rectifiedWidth / 2.0;
  geo.cy = f.calib.rectifiedHeight / 2.0;
  geo.xoff = (fixW - f.width) / 2;
  geo.yoff = (fixH - f.height) / 2;
  return geo;
}

void ExpectShift(const Outputs& o, const Expect& e, const char* what) {
  EXPECT_NEAR(o.sx, e.x, 2e-3 + 1e-4 * fabs(e.x)) << what;
  EXPECT_NEAR(o.sy, e.y, 2e-3 + 1e-4 * fabs(e.y)) << what;
}

struct Branch {
  int mode, form;
  bool forward;
};
const Branch kBranches[] = {{0, 1, true}, {1, 0, true}, {0, 0, false}, {1, 1, false}};

TEST(Shift, EveryBranchMatchesTheGeometry) {
  std::mt19937 rng(11);
  for (bool wide : {false, true}) {
    for (const Branch& b : kBranches) {
      for (int dir = 0; dir < 4; ++dir) {
        Frame f(80, 60, 85, wide, 2);
        for (int y = 0; y < f.height; ++y)
          for (int x = 0; x < f.width; ++x) f.Set(x, y, 4 + rng() % 28);
        f.rec.dispOffset = -6;  // some samples go negative and count as 0
        f.rec.mode = b.mode;
        f.rec.shiftDirection = dir;
        f.calib.warpMatrixForm = b.form;
        f.calib.rectifiedWidth = 40;  // scale 2
        f.calib.rectifiedHeight = 30;
        RandomWarp(rng, f.calib.warpMatrix);
        const BIVISTA_Rect a{12, 9, 47, 38};
        Outputs o;
        ASSERT_EQ(Calc(f, ImageRect(f, a.left, a.top, a.right, a.bottom), 4, &o), 0);
        char what[64];
        snprintf(what, sizeof what, "wide %d mode %d form %d dir %d", wide, b.mode, b.form, dir);
        ExpectShift(o, Reference(f, a, GeometryOf(f, b.forward, 80, 60), b.forward, dir), what);
      }
    }
  }
}

TEST(Shift, SquareAndWideMapsAreCentredIn43) {
  struct Case {
    int w, h, fixW, fixH;
  };
  const Case cases[] = {{60, 60, 80, 60}, {80, 45, 80, 60}, {80, 40, 80, 60}};
  std::mt19937 rng(5);
  for (const Case& c : cases) {
    for (const Branch& b : kBranches) {
      Frame f(c.w, c.h, c.w, false, 2);
      for (int y = 0; y < f.height; ++y)
        for (int x = 0; x < f.width; ++x) f.Set(x, y, rng() % 20);
      f.rec.mode = b.mode;
      f.rec.shiftDirection = 3;
      f.calib.warpMatrixForm = b.form;
      f.calib.rectifiedWidth = 80;
      f.calib.rectifiedHeight = 60;
      // A zoom about the centre makes the result depend on the centring offsets.
      const float zoom[9] = {1.0537f, 0, 0.4129f, 0, 1.0537f, -0.3173f, 0, 0, 1};
      memcpy(f.calib.warpMatrix, zoom, sizeof zoom);
      const BIVISTA_Rect a{5, 6, c.w - 10, c.h - 8};
      Outputs o;
      ASSERT_EQ(Calc(f, ImageRect(f, a.left, a.top, a.right, a.bottom), 4, &o), 0);
      ExpectShift(o, Reference(f, a, GeometryOf(f, b.forward, c.fixW, c.fixH), b.forward, 3),
                  "centring");
    }
  }
}

TEST(Shift, InverseDirectionZeroKeepsOnlyTheLastSample) {
  // Pure translation: vx = 1.25, vy = 2.25 at every pixel (inverse form uses the matrix as is).
  Frame f(80, 60, 80, false, 1);
  f.Fill(8);  // 2 pixels
  f.rec.mode = 0;
  f.rec.shiftDirection = 0;
  f.calib.warpMatrixForm = 0;
  const float shift[9] = {1, 0, 1.25f, 0, 1, 2.25f, 0, 0, 1};
  memcpy(f.calib.warpMatrix, shift, sizeof shift);
  const BIVISTA_Rect a{10, 10, 29, 19};  // 20 x 10
  f.Set(29, 19, 40);                     // 10 pixels at the last in-range target (9, 19)
  Outputs o;
  ASSERT_EQ(Calc(f, a, 4, &o), 0);
  // Targets (r + 2, c + 1): rows 0..7 and columns 0..18 stay inside.
  const float count = 8 * 19;
  EXPECT_FLOAT_EQ(o.sx, 1.25f * count / count);
  // Set, not added: the last in-range sample (r 7, c 18) alone gives D + fy + r.
  EXPECT_FLOAT_EQ(o.sy, (10.0f + 2.25f + 7.0f) / count);
}

// Zero shift: other modes or forms, directions above 3, and (by choice) no target inside the
// area, where the division would give not-a-number.
TEST(Shift, ZeroShiftCases) {
  struct Case {
    int raw, mode, form, dir;
  };
  const Case cases[] = {{30, 2, 1, 2},  {30, 0, 2, 2},  {30, 0, 1, 4},
                        {400, 0, 1, 0}, {400, 0, 1, 1}, {400, 0, 1, 2}, {400, 0, 1, 3}};
  for (const Case& k : cases) {
    Frame f(80, 60, 80, true, 2);
    f.Fill(k.raw);  // 400: 100 pixels, every forward target leaves the 20-wide area
    f.rec.mode = k.mode;
    f.calib.warpMatrixForm = k.form;
    f.rec.shiftDirection = k.dir;
    Outputs o;
    ASSERT_EQ(Calc(f, ImageRect(f, 10, 10, 29, 29), 4, &o), 0);
    EXPECT_EQ(o.sx, 0.0f) << k.raw << " " << k.mode << " " << k.form << " " << k.dir;
    EXPECT_EQ(o.sy, 0.0f);
  }
}

TEST(Shift, SingularWarpFailsWithItsMessages) {
  Frame f(80, 60, 80, false, 2);
  f.Fill(80);
  memset(f.calib.warpMatrix, 0, sizeof f.calib.warpMatrix);
  for (int form : {0, 1}) {
    f.rec.mode = 0;
    f.calib.warpMatrixForm = form;  // 0: inverted in CalcVxVy, 1: in CalcWarpingMatrix
    bvtest::LogCapture log;
    Outputs o;
    ASSERT_EQ(Calc(f, ImageRect(f, 10, 10, 40, 40), 16 | 4, &o), -1);
    EXPECT_NE(o.depth, 0xBEEF);  // the depth written before stays
    EXPECT_EQ(o.sx, -99.0f);
    const char* algo = "ZR481_ALGO";
    if (form == 0) {
      EXPECT_EQ(bvtest::CountMsg(log, 6, algo, "CalcVxVy", "Input warp image matrix is wrong"), 1);
    } else {
      EXPECT_EQ(bvtest::CountMsg(log, 6, algo, "CalcWarpingMatrix",
                                 "Input warp image matrix is wrong"), 1);
      EXPECT_EQ(bvtest::CountMsg(log, 6, algo, "CalcVxVy",
                                 "CalcWarpingMatrix failed rectifyW: 80 rectifyH: 60 fixW: 80 "
                                 "fixH: 60"), 1);
    }
    EXPECT_EQ(bvtest::CountMsg(log, 6, algo, "TransDispariyArea",
                               "CalcVxVy failed in TransDispariyArea"), 1);
    EXPECT_EQ(bvtest::CountMsg(log, 6, algo, "Bivista_CalcShift",
                               "TransDispariyArea failed in calc xymap"), 1);
  }
}

TEST(Shift, PlaneAllocationFailuresAreFreed) {
  Frame f(80, 60, 80, false, 2);
  f.Fill(40);
  const int runs = bvtest::ForEachMallocFailure([&](int run) {
    bvtest::LogCapture log;
    Outputs o;
    const int rc = Calc(f, ImageRect(f, 10, 10, 40, 40), 4, &o);
    if (run == 1) {
      EXPECT_EQ(rc, -1);
      EXPECT_EQ(bvtest::CountMsg(log, 6, "ZR481_ALGO", "TransDispariyArea", "malloc failed"), 1);
      EXPECT_EQ(o.sx, -99.0f);
    } else {
      EXPECT_EQ(rc, 0);
    }
  });
  EXPECT_EQ(runs, 2);
}

TEST(Shift, ReadMapsKeepTheLastSample) {
  Frame f(80, 60, 96, false, 2);
  std::vector<uint16_t> xm(96 * 60), ym(96 * 60);
  std::mt19937 rng(3);
  for (auto& v : xm) v = rng() & 0xFFFF;
  for (auto& v : ym) v = rng() & 0xFFFF;
  const BIVISTA_Rect a{10, 12, 39, 31};  // 30 x 20 samples
  Outputs o;
  ASSERT_EQ(Calc(f, ImageRect(f, 10, 12, 39, 31), 4, &o, 1, xm.data(), ym.data()), 0);
  const size_t last = 31 * 96 + 39;
  EXPECT_FLOAT_EQ(o.sx, static_cast<float>(xm[last] >> 3) / 600.0f);
  EXPECT_FLOAT_EQ(o.sy, static_cast<float>(ym[last] >> 3) / 600.0f);
  for (int y = a.top; y <= a.bottom; ++y)
    for (int x = a.left; x <= a.right; ++x)
      if (y * 96 + x != static_cast<int>(last)) xm[y * 96 + x] ^= 0x5555;
  Outputs o2;
  ASSERT_EQ(Calc(f, ImageRect(f, 10, 12, 39, 31), 8, &o2, 1, xm.data(), ym.data()), 0);
  EXPECT_EQ(o2.sx, o.sx);
}

TEST(Matrix3x3, InverseAndProduct) {
  std::mt19937 rng(9);
  std::uniform_real_distribution<float> u(-3.0f, 3.0f);
  for (int t = 0; t < 50; ++t) {
    float m[9], inv[9], p[9];
    for (float& v : m) v = u(rng);
    ASSERT_EQ(bivista::InvertMatrix3x3(m, inv), 0);
    bivista::MulMatrix3x3(m, inv, p);
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(p[i], i % 4 == 0 ? 1.0 : 0.0, 2e-3);
  }
  const float tiny[9] = {1e-6f, 0, 0, 0, 1e-6f, 0, 0, 0, 1e-6f};  // determinant 1e-18
  float inv[9];
  EXPECT_EQ(bivista::InvertMatrix3x3(tiny, inv), -1);
}

}  // namespace
