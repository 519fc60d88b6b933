// Float resizers against direct formulations, and their row kernels against the scalar rows.
#include <gtest/gtest.h>

#include <cmath>
#include <array>
#include <cstring>
#include <random>
#include <vector>

#include "bivista/imageformat.h"
#include "imageformat/resize_float_kernels.h"
#include "support/alloc_table.h"
#include "support/hwy_targets.h"

namespace {

std::vector<float> Floats(size_t n, std::mt19937& rng, float lo = -5.0f, float hi = 50.0f) {
  std::uniform_real_distribution<float> u(lo, hi);
  std::vector<float> v(n);
  for (auto& x : v) x = u(rng);
  return v;
}

bool SameBits(const std::vector<float>& a, const std::vector<float>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

enum Kind { kFloat, kDepth, kSparse, kMasked };

// The common bilinear mapping, positions accumulated.
std::vector<float> DirectBilinear(const std::vector<float>& s, const std::vector<uint8_t>* mask,
                                  int sw, int sh, int dw, int dh, Kind kind, float scale,
                                  float invalid) {
  std::vector<float> out(dw * dh);
  const float stepX = static_cast<float>(sw - 1) / dw, stepY = static_cast<float>(sh - 1) / dh;
  const float ratio = static_cast<float>(dw) / sw;
  float fy = 0;
  for (int j = 0; j < dh; ++j, fy += stepY) {
    float fx = 0;
    for (int i = 0; i < dw; ++i, fx += stepX) {
      const int x0 = static_cast<int>(fx), y0 = static_cast<int>(fy);
      const float ax = fx - x0, ay = fy - y0;
      auto lerp = [&](float a, float b, float c, float d) {
        return (a * (1 - ax) + b * ax) * (1 - ay) + (c * (1 - ax) + d * ax) * ay;
      };
      const float a = s[y0 * sw + x0], b = s[y0 * sw + x0 + 1];
      const float c = s[(y0 + 1) * sw + x0], d = s[(y0 + 1) * sw + x0 + 1];
      const float v = lerp(a, b, c, d);
      float r = v;
      if (kind == kFloat) r = v * ratio;
      if (kind == kSparse) {
        const bool bad = static_cast<double>(a - invalid) < 0.1 || static_cast<double>(b - invalid) < 0.1 ||
                         static_cast<double>(c - invalid) < 0.1 || static_cast<double>(d - invalid) < 0.1;
        r = bad ? invalid : v * ratio;
      }
      if (kind == kMasked) {
        const auto& m = *mask;
        const float mv = lerp(m[y0 * sw + x0], m[y0 * sw + x0 + 1], m[(y0 + 1) * sw + x0],
                              m[(y0 + 1) * sw + x0 + 1]);
        r = static_cast<int>(mv) > 0 ? invalid : v * scale;
      }
      out[j * dw + i] = r;
    }
  }
  return out;
}

const int kSizes[][4] = {{7, 5, 3, 3},    {9, 7, 20, 13},  {64, 48, 31, 17}, {33, 65, 65, 33},
                         {100, 3, 37, 2}, {5, 5, 129, 4}, {301, 11, 150, 6}, {2, 2, 1, 1}};

TEST(ResizeFloat, BilinearFamilyFollowsTheDefinition) {
  std::mt19937 rng(61);
  for (const auto& z : kSizes) {
    const int sw = z[0], sh = z[1], dw = z[2], dh = z[3];
    auto src = Floats(sw * sh, rng);
    // Some samples at or just above the invalid value 1.5.
    for (size_t k = 0; k < src.size(); k += 7) src[k] = 1.5f + (k % 3) * 0.05f;
    std::vector<uint8_t> m01(sw * sh), m255(sw * sh);
    for (int k = 0; k < sw * sh; ++k) {
      m01[k] = rng() % 3 == 0;
      m255[k] = m01[k] * 255;
    }
    std::vector<float> out(dw * dh + 1, -7.0f);
    EXPECT_EQ(ResizeFloat(src.data(), out.data(), sw, sh, dw, dh), src.data());
    out.pop_back();
    EXPECT_TRUE(SameBits(out, DirectBilinear(src, nullptr, sw, sh, dw, dh, kFloat, 0, 0))) << sw << "->" << dw;
    ResizeDepth(src.data(), out.data(), sw, sh, dw, dh);
    EXPECT_TRUE(SameBits(out, DirectBilinear(src, nullptr, sw, sh, dw, dh, kDepth, 0, 0)));
    ResizeSpareDisparity(src.data(), out.data(), sw, sh, dw, dh, 1.5f);
    EXPECT_TRUE(SameBits(out, DirectBilinear(src, nullptr, sw, sh, dw, dh, kSparse, 0, 1.5f)));
    for (const auto* m : {&m01, &m255}) {
      ResizeSparedataFloat(src.data(), m->data(), out.data(), sw, sh, dw, dh, 0.75f, -1.0f);
      EXPECT_TRUE(SameBits(out, DirectBilinear(src, m, sw, sh, dw, dh, kMasked, 0.75f, -1.0f)));
    }
  }
}

TEST(ResizeFloat, InvalidTestIsOneSided) {
  const float src[4] = {0.05f, 10.0f, 10.0f, 10.0f}, neg[4] = {-3.0f, 10.0f, 10.0f, 10.0f};
  float out[1] = {9};
  ResizeSpareDisparity(src, out, 2, 2, 1, 1, 0.0f);
  EXPECT_EQ(out[0], 0.0f);
  out[0] = 9;
  ResizeSpareDisparity(neg, out, 2, 2, 1, 1, 0.0f);
  EXPECT_EQ(out[0], 0.0f);
  const float ok[4] = {0.2f, 10.0f, 10.0f, 10.0f};
  ResizeSpareDisparity(ok, out, 2, 2, 1, 1, 0.0f);
  EXPECT_EQ(out[0], 0.2f * 0.5f);
  // With a 0/1 mask only an all-ones neighbourhood rejects at a fractional position.
  const float s4[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  const uint8_t ones[16] = {1, 1, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  float r[4];
  ResizeSparedataFloat(s4, ones, r, 4, 4, 2, 2, 1.0f, -1.0f);
  EXPECT_EQ(r[0], -1.0f);  // position (0, 0): mask exactly 1
  EXPECT_NE(r[1], -1.0f);  // position (1.5, 0): mask 0.5 truncates to 0
}

TEST(ResizeFloat, NearestMapsCornersOntoCorners) {
  std::mt19937 rng(62);
  for (const auto& z : kSizes) {
    const int sw = z[0], sh = z[1], dw = z[2] + 1, dh = z[3] + 1;
    auto src = Floats(sw * sh, rng);
    for (size_t k = 0; k < src.size(); k += 5) src[k] = 2.0f;
    std::vector<float> out(dw * dh);
    ResizeSpareDisparityNearest(src.data(), out.data(), sw, sh, dw, dh, 2.0f);
    const float sx = static_cast<float>(sw - 1) / (dw - 1), sy = static_cast<float>(sh - 1) / (dh - 1);
    const float ratio = static_cast<float>(dw) / sw;
    float ay = 0;
    for (int j = 0; j < dh; ++j, ay += sy) {
      float ax = 0;
      for (int i = 0; i < dw; ++i, ax += sx) {
        const float s = src[static_cast<int>(std::floor(ay + 0.5f)) * sw + static_cast<int>(std::floor(ax + 0.5f))];
        const float want = static_cast<double>(s - 2.0f) < 0.1 ? 2.0f : s * ratio;
        ASSERT_EQ(out[j * dw + i], want) << i << "," << j;
      }
    }
    EXPECT_EQ(out[dw * dh - 1], src[sw * sh - 1] - 2.0f < 0.1f ? 2.0f : src[sw * sh - 1] * ratio);
  }
}

TEST(ResizeFloat, DispatcherExactCases) {
  std::vector<float> flat(100 * 80, 8.0f), out(50 * 40);
  ResizeFloat(flat.data(), out.data(), 100, 80, 50, 40);
  EXPECT_EQ(out[0], 4.0f);  // values halved with the width
  ResizeFloatImg_Bilinear(flat.data(), out.data(), 100, 80, 50, 40);
  EXPECT_EQ(out[0], 8.0f);  // the exact case averages without scaling

  std::mt19937 rng(63);
  const auto s = Floats(10 * 10, rng);
  std::vector<float> up(20 * 20);
  ResizeFloatImg_Bilinear(s.data(), up.data(), 10, 10, 20, 20);
  EXPECT_EQ(up[0], s[0] * 0.0625f + s[1] * 0.1875f + s[10] * 0.1875f + s[11] * 0.5625f);
  // Anything else goes to ResizeFloat.
  std::vector<float> other(7 * 9), want(7 * 9);
  ResizeFloatImg_Bilinear(s.data(), other.data(), 10, 10, 7, 9);
  ResizeFloat(s.data(), want.data(), 10, 10, 7, 9);
  EXPECT_TRUE(SameBits(other, want));
}

TEST(ResizeFloat, QuarterMeanAndExtendFollowTheirIndexRules) {
  std::mt19937 rng(64);
  for (const auto& z : {std::pair<int, int>{2, 2}, {3, 5}, {17, 4}, {40, 9}, {67, 3}}) {
    const int w = z.first, h = z.second;
    const auto s = Floats(4 * w * h, rng);
    std::vector<float> down(w * h);
    ResizeFloatImg_Bilinear(s.data(), down.data(), 2 * w, 2 * h, w, h);
    for (int j = 0; j < h; ++j)
      for (int i = 0; i < w; ++i)
        ASSERT_EQ(down[j * w + i], 0.25f * (s[2 * j * 2 * w + 2 * i] + s[2 * j * 2 * w + 2 * i + 1] +
                                            s[(2 * j + 1) * 2 * w + 2 * i] + s[(2 * j + 1) * 2 * w + 2 * i + 1]));

    const int dw = 2 * w, dh = 2 * h;
    std::vector<float> up(dw * dh);
    ResizeFloatImg_Bilinear_Extend_Quarter(s.data(), up.data(), w, h, dw, dh);
    auto base = [](int i, int dst) { return std::min(dst / 2 - 2, i < 3 ? 0 : (i - 1) / 2); };
    for (int j = 0; j < dh; ++j) {
      const int r = base(j, dh), p = j % 2;
      const double wy0 = 0.25 + 0.5 * p, wy1 = 0.75 - 0.5 * p;
      for (int i = 0; i < dw; ++i) {
        const int c = base(i, dw), q = i % 2;
        const double wx0 = 0.25 + 0.5 * q, wx1 = 0.75 - 0.5 * q;
        const float want = s[r * w + c] * static_cast<float>(wy0 * wx0) +
                           s[r * w + c + 1] * static_cast<float>(wy0 * wx1) +
                           s[(r + 1) * w + c] * static_cast<float>(wy1 * wx0) +
                           s[(r + 1) * w + c + 1] * static_cast<float>(wy1 * wx1);
        ASSERT_EQ(up[j * dw + i], want) << w << "x" << h << " at " << i << "," << j;
      }
    }
  }
}

TEST(ResizeFloat, EmptyDestinationsAreNotWritten) {
  const float src[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  const uint8_t mask[16] = {};
  float out[16];
  for (float& x : out) x = -9.0f;
  for (int k = 0; k < 2; ++k) {
    const int dw = k ? 0 : 4, dh = k ? 4 : -1;
    ResizeFloat(src, out, 4, 4, dw, dh);
    ResizeDepth(src, out, 4, 4, dw, dh);
    ResizeSpareDisparity(src, out, 4, 4, dw, dh, 0.0f);
    ResizeSpareDisparityNearest(src, out, 4, 4, dw, dh, 0.0f);
    ResizeSparedataFloat(src, mask, out, 4, 4, dw, dh, 1.0f, 0.0f);
    ResizeFloatImg_Bilinear(src, out, 4, 4, dw, dh);
    ResizeFloatImage_KeepBorder_full(src, out, nullptr, nullptr, 4, 4, dw, dh);
  }
  for (float x : out) EXPECT_EQ(x, -9.0f);
}

TEST(ResizeFloat, AllocationFailureKeepsResultsAndLeaksNothing) {
  std::mt19937 rng(65);
  const auto src = Floats(41 * 29, rng);
  std::vector<uint8_t> mask(41 * 29);
  for (auto& m : mask) m = rng() % 4 == 0;
  std::vector<float> want(23 * 31), got(23 * 31);
  auto each = [&](auto call) {
    call(want.data());
    const int runs = bvtest::ForEachMallocFailure([&](int) {
      std::fill(got.begin(), got.end(), 0.0f);
      call(got.data());
      EXPECT_TRUE(SameBits(got, want));
    });
    EXPECT_EQ(runs, 2);
  };
  each([&](float* o) { ResizeFloat(src.data(), o, 41, 29, 23, 31); });
  each([&](float* o) { ResizeSpareDisparity(src.data(), o, 41, 29, 23, 31, 3.0f); });
  each([&](float* o) { ResizeSparedataFloat(src.data(), mask.data(), o, 41, 29, 23, 31, 2.0f, -1.0f); });
  each([&](float* o) { ResizeSpareDisparityNearest(src.data(), o, 41, 29, 23, 31, 3.0f); });
}

TEST(ResizeFloat, BilateralWeights) {
  float t[511];
  getBilateralWeight(t);
  EXPECT_EQ(t[0], 8.423464e-12f);
  EXPECT_EQ(t[255], 1.0f);
  for (int d = 1; d <= 255; ++d) {
    EXPECT_EQ(t[255 + d], static_cast<float>(std::exp(-0.1 * d)));
    EXPECT_EQ(t[255 - d], t[255 + d]);
  }
}

// Guided up-sampling by its definition: nearest band, 5x5 joint bilateral inside.
std::vector<float> DirectKeepBorder(const std::vector<float>& s, const std::vector<uint8_t>& gl,
                                    const std::vector<uint8_t>& gf, int sw, int dw, int dh) {
  std::vector<float> out(dw * dh);
  const int q = dw / sw, b = 2 * q + 1;
  for (int y = 0; y < dh; ++y) {
    for (int x = 0; x < dw; ++x) {
      const bool inner = y >= b && y <= dh - b - 1 && x >= b && x <= dw - b - 1;
      if (!inner) {
        out[y * dw + x] = s[x / q + sw * (y / q)];
        continue;
      }
      const int cy = y / q, cx = x / q;
      float W = 0, S = 0;
      for (int i = -2; i <= 2; ++i) {
        for (int j = -2; j <= 2; ++j) {
          float w = 1;
          for (int k = 0; k < 3; ++k) {
            const int diff = gf[3 * (y * dw + x) + k] - gl[3 * ((cy + i) * sw + cx + j) + k];
            w *= static_cast<float>(std::exp(-0.1 * std::abs(diff)));
          }
          W += w;
          S = std::fma(w, s[(cy + i) * sw + cx + j], S);
        }
      }
      out[y * dw + x] = W > 0.01 ? S / W : s[cy * sw + cx];
    }
  }
  return out;
}

TEST(ResizeFloat, KeepBorderFullGuidedUpsampling) {
  std::mt19937 rng(66);
  for (const auto& z : {std::array<int, 3>{8, 6, 2}, {9, 7, 3}, {12, 10, 2}}) {
    const int sw = z[0], sh = z[1], q = z[2], dw = sw * q, dh = sh * q;
    const auto s = Floats(sw * sh, rng);
    std::vector<uint8_t> gl(3 * sw * sh), gf(3 * dw * dh);
    // Guides close to each other so most weights matter, some far so some sums fall below 0.01.
    for (auto& g : gl) g = static_cast<uint8_t>(100 + rng() % 20);
    for (size_t k = 0; k < gf.size(); ++k) gf[k] = static_cast<uint8_t>(k % 11 == 0 ? 255 : 100 + rng() % 20);
    std::vector<float> out(dw * dh);
    ResizeFloatImage_KeepBorder_full(s.data(), out.data(), gl.data(), gf.data(), sw, sh, dw, dh);
    EXPECT_TRUE(SameBits(out, DirectKeepBorder(s, gl, gf, sw, dw, dh))) << sw << "x" << sh << " q" << q;
  }
  // A destination narrower than the source: every sample is source sample 0.
  const float s[8] = {3, 1, 4, 1, 5, 9, 2, 6};
  float o[6];
  ResizeFloatImage_KeepBorder_full(s, o, nullptr, nullptr, 4, 2, 3, 2);
  for (float v : o) EXPECT_EQ(v, 3.0f);
}

TEST(ResizeFloatKernels, RowsMatchScalarOnEveryTarget) {
  std::mt19937 rng(67);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int n : {1, 3, 7, 8, 9, 15, 16, 17, 33, 65, 100}) {
      for (float step : {0.3f, 1.0f, 1.9995f, 2.7f, 9.0f}) {
        const int srcW = static_cast<int>(n * step) + 4;
        const auto a = Floats(srcW + 64, rng, 0.0f, 3.0f), c = Floats(srcW + 64, rng, 0.0f, 3.0f);
        std::vector<uint8_t> ma(srcW + 64), mc(srcW + 64);
        for (int k = 0; k < srcW + 64; ++k) {
          ma[k] = rng() % 3 == 0 ? 255 : rng() % 2;
          mc[k] = rng() % 2;
        }
        std::vector<int32_t> x0(n), sx(n);
        std::vector<float> ax(n);
        float fx = 0;
        for (int i = 0; i < n; ++i, fx += step) {
          x0[i] = static_cast<int32_t>(fx);
          ax[i] = fx - x0[i];
          sx[i] = static_cast<int32_t>(std::floor(fx + 0.5f));
        }
        const int minimal = x0[n - 1] + 2;
        for (int mode = 0; mode < 3; ++mode) {
          for (int readable : {srcW + 64, minimal}) {
            const bivista::FloatRowArgs r{a.data(), c.data(), x0.data(), ax.data(), n, 0.3f,
                                          static_cast<bivista::FloatRowMode>(mode), 0.8f, 1.0f, readable};
            std::vector<float> v(n), s(n);
            bivista::BilinearRowF32(r, v.data());
            bivista::scalar::BilinearRowF32(r, s.data());
            ASSERT_TRUE(SameBits(v, s)) << n << " step " << step << " mode " << mode;
            bivista::MaskedRowF32(r, ma.data(), mc.data(), n, v.data());
            bivista::scalar::MaskedRowF32(r, ma.data(), mc.data(), n, s.data());
            ASSERT_TRUE(SameBits(v, s)) << n << " step " << step;
          }
        }
        std::vector<float> v(n), s(n);
        bivista::NearestRowF32(a.data(), sx.data(), n, 0.5f, 1.0f, v.data());
        bivista::scalar::NearestRowF32(a.data(), sx.data(), n, 0.5f, 1.0f, s.data());
        ASSERT_TRUE(SameBits(v, s));
      }
      const auto r0 = Floats(2 * n, rng), r1 = Floats(2 * n, rng);
      std::vector<float> v(n), s(n);
      bivista::QuarterMeanRow(r0.data(), r1.data(), v.data(), n);
      bivista::scalar::QuarterMeanRow(r0.data(), r1.data(), s.data(), n);
      ASSERT_TRUE(SameBits(v, s));
      if (n >= 2) {
        std::vector<float> ve(2 * n), se(2 * n);
        for (double wy0 : {0.25, 0.75}) {
          bivista::ExtendRow(r0.data(), r1.data(), ve.data(), n, wy0, 1.0 - wy0);
          bivista::scalar::ExtendRow(r0.data(), r1.data(), se.data(), n, wy0, 1.0 - wy0);
          ASSERT_TRUE(SameBits(ve, se)) << n;
        }
      }
    }
  });
}

TEST(ResizeFloatKernels, GuidedRowsMatchScalarOnEveryTarget) {
  std::mt19937 rng(68);
  float t[511];
  getBilateralWeight(t);
  const int sw = 23, sh = 9, q = 2, dw = sw * q;
  const auto s = Floats(sw * sh, rng);
  std::vector<uint8_t> gl(3 * sw * sh), gf(3 * dw * sh * q);
  for (auto& g : gl) g = static_cast<uint8_t>(rng() % 40);
  for (size_t k = 0; k < gf.size(); ++k) gf[k] = static_cast<uint8_t>(k % 13 == 0 ? 250 : rng() % 40);
  const bivista::GuidedArgs g{s.data(), gl.data(), gf.data(), t, sw, dw, q};
  bvtest::ForEachHwyTarget([&](const char*) {
    // Row 5 has its window start on source row 0: the first columns touch pixel (0, 0).
    for (int y : {5, 7, 12}) {
      for (int x1 = 6; x1 <= dw - 5; x1 += 7) {
        std::vector<float> v(dw, -1.0f), r(dw, -1.0f);
        bivista::GuidedRow(g, y, 5, x1, v.data());
        bivista::scalar::GuidedRow(g, y, 5, x1, r.data());
        ASSERT_TRUE(SameBits(v, r)) << y << " " << x1;
      }
    }
  });
}

}  // namespace
