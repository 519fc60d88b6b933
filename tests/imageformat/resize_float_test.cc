// Float resizers against direct formulations, and their row kernels against the scalar rows.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
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

// Below invalid + 0.1 is invalid: one-sided, so anything far below counts too.
bool Invalid(float v, float invalid) { return static_cast<double>(v - invalid) < 0.1; }

enum Kind { kFloat, kDepth, kSparse, kMasked };

// The common bilinear mapping, positions accumulated; a mask rejects where its lerp truncates above 0.
std::vector<float> DirectBilinear(const std::vector<float>& s, const uint8_t* m, int sw, int sh,
                                  int dw, int dh, Kind kind, float scale, float invalid) {
  std::vector<float> out(dw * dh);
  const float stepX = static_cast<float>(sw - 1) / dw, stepY = static_cast<float>(sh - 1) / dh;
  const float ratio = static_cast<float>(dw) / sw;
  float fy = 0;
  for (int j = 0; j < dh; ++j, fy += stepY) {
    float fx = 0;
    for (int i = 0; i < dw; ++i, fx += stepX) {
      const int x0 = static_cast<int>(fx), y0 = static_cast<int>(fy), p = y0 * sw + x0;
      const float ax = fx - x0, ay = fy - y0;
      auto lerp = [&](auto* q) {
        return (q[p] * (1 - ax) + q[p + 1] * ax) * (1 - ay) + (q[p + sw] * (1 - ax) + q[p + sw + 1] * ax) * ay;
      };
      const float v = lerp(s.data());
      const bool bad = Invalid(s[p], invalid) || Invalid(s[p + 1], invalid) || Invalid(s[p + sw], invalid) ||
                       Invalid(s[p + sw + 1], invalid);
      float r = kind == kDepth ? v : v * ratio;
      if (kind == kSparse && bad) r = invalid;
      if (kind == kMasked) r = static_cast<int>(lerp(m)) > 0 ? invalid : v * scale;
      out[j * dw + i] = r;
    }
  }
  return out;
}

const int kSizes[][4] = {{7, 5, 3, 3},    {9, 7, 20, 13},  {64, 48, 31, 17}, {33, 65, 65, 33},
                         {100, 3, 37, 2}, {5, 5, 129, 4}, {301, 11, 150, 6}, {2, 2, 1, 1}};

TEST(ResizeFloat, BilinearAndNearestFamiliesFollowTheDefinitions) {
  std::mt19937 rng(61);
  for (const auto& z : kSizes) {
    const int sw = z[0], sh = z[1], dw = z[2], dh = z[3];
    auto src = Floats(sw * sh, rng);
    // Some samples at or just above the invalid value 1.5.
    for (size_t k = 0; k < src.size(); k += 7) src[k] = 1.5f + (k % 3) * 0.05f;
    std::vector<uint8_t> m01(sw * sh), m255(sw * sh);
    for (int k = 0; k < sw * sh; ++k) m255[k] = 255 * (m01[k] = rng() % 3 == 0);
    std::vector<float> out(dw * dh + 1, -7.0f);
    EXPECT_EQ(ResizeFloat(src.data(), out.data(), sw, sh, dw, dh), src.data());
    EXPECT_EQ(out.back(), -7.0f);
    out.pop_back();
    EXPECT_TRUE(SameBits(out, DirectBilinear(src, nullptr, sw, sh, dw, dh, kFloat, 0, 0))) << sw << "->" << dw;
    ResizeDepth(src.data(), out.data(), sw, sh, dw, dh);
    EXPECT_TRUE(SameBits(out, DirectBilinear(src, nullptr, sw, sh, dw, dh, kDepth, 0, 0)));
    ResizeSpareDisparity(src.data(), out.data(), sw, sh, dw, dh, 1.5f);
    EXPECT_TRUE(SameBits(out, DirectBilinear(src, nullptr, sw, sh, dw, dh, kSparse, 0, 1.5f)));
    for (const auto* m : {&m01, &m255}) {
      ResizeSparedataFloat(src.data(), m->data(), out.data(), sw, sh, dw, dh, 0.75f, -1.0f);
      EXPECT_TRUE(SameBits(out, DirectBilinear(src, m->data(), sw, sh, dw, dh, kMasked, 0.75f, -1.0f)));
    }
    // Nearest maps corners onto corners, rounding half up.
    const int nw = dw + 1, nh = dh + 1;
    std::vector<float> near(nw * nh);
    ResizeSpareDisparityNearest(src.data(), near.data(), sw, sh, nw, nh, 1.5f);
    const float sx = static_cast<float>(sw - 1) / (nw - 1), sy = static_cast<float>(sh - 1) / (nh - 1);
    float ay = 0;
    for (int j = 0; j < nh; ++j, ay += sy) {
      float ax = 0;
      for (int i = 0; i < nw; ++i, ax += sx) {
        const float s = src[static_cast<int>(std::floor(ay + 0.5f)) * sw + static_cast<int>(std::floor(ax + 0.5f))];
        ASSERT_EQ(near[j * nw + i], Invalid(s, 1.5f) ? 1.5f : s * (static_cast<float>(nw) / sw)) << i << "," << j;
      }
    }
  }
}

TEST(ResizeFloat, ExactHalvingAndDoublingUseTheirOwnIndexRules) {
  std::mt19937 rng(64);
  for (const auto& z : {std::pair<int, int>{2, 2}, {3, 5}, {17, 4}, {40, 9}, {67, 3}}) {
    const int w = z.first, h = z.second, dw = 2 * w, dh = 2 * h;
    const auto s = Floats(4 * w * h, rng);
    // The dispatcher: halving averages without scaling, doubling extends, anything else is ResizeFloat.
    std::vector<float> down(w * h), up(dw * dh), viaDispatch(dw * dh), other(7 * 9), want(7 * 9);
    ResizeFloatImg_Bilinear(s.data(), down.data(), dw, dh, w, h);
    for (int p = 0; p < w * h; ++p) {
      const int i = p % w, j = p / w, a = 2 * j * dw + 2 * i;
      ASSERT_EQ(down[p], 0.25f * (s[a] + s[a + 1] + s[a + dw] + s[a + dw + 1])) << p;
    }
    ResizeFloatImg_Bilinear_Extend_Quarter(s.data(), up.data(), w, h, dw, dh);
    ResizeFloatImg_Bilinear(s.data(), viaDispatch.data(), w, h, dw, dh);
    EXPECT_TRUE(SameBits(up, viaDispatch));
    ResizeFloatImg_Bilinear(s.data(), other.data(), w, h, 7, 9);
    ResizeFloat(s.data(), want.data(), w, h, 7, 9);
    EXPECT_TRUE(SameBits(other, want));
    auto base = [](int i, int dst) { return std::min(dst / 2 - 2, i < 3 ? 0 : (i - 1) / 2); };
    for (int j = 0; j < dh; ++j) {
      const int r = base(j, dh);
      const double wy0 = 0.25 + 0.5 * (j % 2), wy1 = 1.0 - wy0;
      for (int i = 0; i < dw; ++i) {
        const int c = base(i, dw);
        const double wx0 = 0.25 + 0.5 * (i % 2), wx1 = 1.0 - wx0;
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
  std::vector<float> out(16, -9.0f);
  for (const auto& d : {std::pair<int, int>{4, -1}, {0, 4}}) {
    const int dw = d.first, dh = d.second;
    ResizeFloat(src, out.data(), 4, 4, dw, dh);
    ResizeDepth(src, out.data(), 4, 4, dw, dh);
    ResizeSpareDisparity(src, out.data(), 4, 4, dw, dh, 0.0f);
    ResizeSpareDisparityNearest(src, out.data(), 4, 4, dw, dh, 0.0f);
    ResizeSparedataFloat(src, mask, out.data(), 4, 4, dw, dh, 1.0f, 0.0f);
    ResizeFloatImg_Bilinear(src, out.data(), 4, 4, dw, dh);
    ResizeFloatImage_KeepBorder_full(src, out.data(), nullptr, nullptr, 4, 4, dw, dh);
  }
  EXPECT_EQ(out, std::vector<float>(16, -9.0f));
}

TEST(ResizeFloat, AllocationFailureKeepsResultsAndLeaksNothing) {
  std::mt19937 rng(65);
  const auto src = Floats(41 * 29, rng);
  std::vector<uint8_t> mask(41 * 29);
  for (auto& m : mask) m = rng() % 4 == 0;
  std::vector<float> want(23 * 31), got(23 * 31);
  auto each = [&](auto call) {
    call(want.data());
    EXPECT_EQ(bvtest::ForEachMallocFailure([&](int) {
      std::fill(got.begin(), got.end(), 0.0f);
      call(got.data());
      EXPECT_TRUE(SameBits(got, want));
    }), 2);
  };
  each([&](float* o) { ResizeFloat(src.data(), o, 41, 29, 23, 31); });
  each([&](float* o) { ResizeSpareDisparity(src.data(), o, 41, 29, 23, 31, 3.0f); });
  each([&](float* o) { ResizeSparedataFloat(src.data(), mask.data(), o, 41, 29, 23, 31, 2.0f, -1.0f); });
  each([&](float* o) { ResizeSpareDisparityNearest(src.data(), o, 41, 29, 23, 31, 3.0f); });
}

// Guided up-sampling by its definition: nearest band, 5x5 joint bilateral inside with the
// weights exp(-0.1 |d|) the table holds.
std::vector<float> DirectKeepBorder(const std::vector<float>& s, const std::vector<uint8_t>& gl,
                                    const std::vector<uint8_t>& gf, int sw, int dw, int dh) {
  std::vector<float> out(dw * dh);
  const int q = dw / sw, b = 2 * q + 1;
  for (int y = 0; y < dh; ++y) {
    for (int x = 0; x < dw; ++x) {
      const int cy = y / q, cx = x / q;
      if (y < b || y > dh - b - 1 || x < b || x > dw - b - 1) {
        out[y * dw + x] = s[cx + sw * cy];
        continue;
      }
      float W = 0, S = 0;
      for (int i = -2; i <= 2; ++i) {
        for (int j = -2; j <= 2; ++j) {
          float w = 1;
          for (int k = 0; k < 3; ++k)
            w *= static_cast<float>(std::exp(-0.1 * std::abs(gf[3 * (y * dw + x) + k] - gl[3 * ((cy + i) * sw + cx + j) + k])));
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
  float t[511];
  getBilateralWeight(t);
  EXPECT_EQ(t[0], 8.423464e-12f);
  for (int d = 0; d <= 255; ++d) ASSERT_TRUE(t[255 + d] == static_cast<float>(std::exp(-0.1 * d)) && t[255 - d] == t[255 + d]) << d;
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
  std::vector<float> o(6);
  ResizeFloatImage_KeepBorder_full(s, o.data(), nullptr, nullptr, 4, 2, 3, 2);
  EXPECT_EQ(o, std::vector<float>(6, 3.0f));
}

TEST(ResizeFloatKernels, RowsMatchScalarOnEveryTarget) {
  std::mt19937 rng(67);
  float t[511];
  getBilateralWeight(t);
  // Guided rows: row 5 has its window start on source row 0, so the first columns touch (0, 0).
  const int gw = 23, gh = 9;
  const auto gs = Floats(gw * gh, rng);
  std::vector<uint8_t> gl(3 * gw * gh), gf(3 * 4 * gw * gh);
  for (auto& g : gl) g = static_cast<uint8_t>(rng() % 40);
  for (size_t k = 0; k < gf.size(); ++k) gf[k] = static_cast<uint8_t>(k % 13 == 0 ? 250 : rng() % 40);
  const bivista::GuidedArgs g{gs.data(), gl.data(), gf.data(), t, gw, 2 * gw, 2};
  auto same = [](auto vec, auto sca, size_t n, auto... args) {
    std::vector<float> v(n, -1.0f), s(n, -1.0f);
    vec(args..., v.data());
    sca(args..., s.data());
    return SameBits(v, s);
  };
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int y : {5, 7, 12})
      for (int x1 = 6; x1 <= 2 * gw - 5; x1 += 7)
        ASSERT_TRUE(same(bivista::GuidedRow, bivista::scalar::GuidedRow, 2 * gw, g, y, 5, x1)) << y << " " << x1;
    for (int n : {1, 3, 7, 8, 9, 15, 16, 17, 33, 65, 100}) {
      for (float step : {0.3f, 1.0f, 1.9995f, 2.7f, 9.0f}) {
        const int srcW = static_cast<int>(n * step) + 64;
        const auto a = Floats(srcW, rng, 0.0f, 3.0f), c = Floats(srcW, rng, 0.0f, 3.0f);
        std::vector<uint8_t> ma(srcW), mc(srcW);
        for (int k = 0; k < srcW; ++k) ma[k] = rng() % 3 == 0 ? 255 : rng() % 2, mc[k] = rng() % 2;
        std::vector<int32_t> x0(n), sx(n);
        std::vector<float> ax(n);
        float fx = 0;
        for (int i = 0; i < n; ++i, fx += step) {
          x0[i] = static_cast<int32_t>(fx);
          ax[i] = fx - x0[i];
          sx[i] = static_cast<int32_t>(std::floor(fx + 0.5f));
        }
        // Rows readable to the end, or only up to the last pair.
        for (int mode = 0; mode < 3; ++mode) {
          for (int readable : {srcW, x0[n - 1] + 2}) {
            const bivista::FloatRowArgs r{a.data(), c.data(), x0.data(), ax.data(), n, 0.3f,
                                          static_cast<bivista::FloatRowMode>(mode), 0.8f, 1.0f, readable};
            ASSERT_TRUE(same(bivista::BilinearRowF32, bivista::scalar::BilinearRowF32, n, r)) << n << " " << step << " " << mode;
            ASSERT_TRUE(same(bivista::MaskedRowF32, bivista::scalar::MaskedRowF32, n, r, ma.data(), mc.data(), n));
          }
        }
        ASSERT_TRUE(same(bivista::NearestRowF32, bivista::scalar::NearestRowF32, n, a.data(), sx.data(), n, 0.5f, 1.0f));
      }
      const auto r0 = Floats(2 * n, rng), r1 = Floats(2 * n, rng);
      // These two take the output before the count.
      auto quarter = [&](auto fn) { return [&, fn](float* o) { fn(r0.data(), r1.data(), o, n); }; };
      ASSERT_TRUE(same(quarter(bivista::QuarterMeanRow), quarter(bivista::scalar::QuarterMeanRow), n)) << n;
      for (double wy0 : {0.25, 0.75}) {
        if (n < 2) break;
        auto extend = [&](auto fn) { return [&, fn](float* o) { fn(r0.data(), r1.data(), o, n, wy0, 1.0 - wy0); }; };
        ASSERT_TRUE(same(extend(bivista::ExtendRow), extend(bivista::scalar::ExtendRow), 2 * n)) << n;
      }
    }
  });
}

}  // namespace
