// The float resizers against direct formulations, the messages, exact buffers, allocation
// failures, and vector against scalar rows (the other resizers' values are in the golden digests).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "bivista/imageformat.h"
#include "bivista/xelma_log.h"
#include "imageformat/resize_float_kernels.h"
#include "imageformat/resize_u8_kernels.h"
#include "support/alloc_table.h"
#include "support/hwy_targets.h"
#include "support/platform_capture.h"

namespace {

std::vector<uint8_t> Bytes(size_t n, std::mt19937& rng) {
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

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

TEST(ResizeFloatKernels, RowsMatchScalarOnEveryTarget) {
  std::mt19937 rng(67);
  float t[511];
  getBilateralWeight(t);
  // Guided planes: the band's first window starts on source pixel 0.
  const int gw = 23, gh = 9;
  const auto gs = Floats(gw * gh, rng);
  std::vector<uint8_t> gl(3 * gw * gh), gf(3 * 10 * gw * gh);
  for (auto& g : gl) g = static_cast<uint8_t>(rng() % 40);
  for (size_t k = 0; k < gf.size(); ++k) gf[k] = static_cast<uint8_t>(k % 13 == 0 ? 250 : rng() % 40);
  auto same = [](auto vec, auto sca, size_t n, auto... args) {
    std::vector<float> v(n, -1.0f), s(n, -1.0f);
    vec(args..., v.data());
    sca(args..., s.data());
    return SameBits(v, s);
  };
  // Whole bilinear planes (7 source rows, the last pair included), with and without a mask.
  const int pw = 53, ph = 7, qw = 20, qh = 5;
  const auto ps = Floats(pw * ph, rng, 0.0f, 3.0f);
  std::vector<uint8_t> pm(pw * ph);
  for (auto& m : pm) m = static_cast<uint8_t>(rng() % 3 == 0 ? 255 : rng() % 2);
  std::vector<int32_t> px0(qw);
  std::vector<float> pax(qw);
  for (int i = 0; i < qw; ++i) px0[i] = i * 5 / 2, pax[i] = (i % 4) * 0.25f;
  bvtest::ForEachHwyTarget([&](const char*) {
    for (const uint8_t* mask : {static_cast<const uint8_t*>(nullptr), static_cast<const uint8_t*>(pm.data())}) {
      const bivista::FloatPlaneArgs pa{ps.data(), mask, nullptr, pw, ph, qw, qh, px0.data(), pax.data(),
                                       1.2f, bivista::FloatRowMode::kScaled, 0.5f, 1.0f, qw - 2};
      auto plane = [&](auto fn) {
        return [&, fn](float* o) {
          bivista::FloatPlaneArgs a = pa;
          a.dst = o;
          fn(a);
        };
      };
      ASSERT_TRUE(same(plane(bivista::BilinearPlaneF32), plane(bivista::scalar::BilinearPlaneF32), qw * qh));
    }
    auto extend = [&](auto fn) { return [&, fn](float* o) { fn(ps.data(), o, pw, ph); }; };
    ASSERT_TRUE(same(extend(bivista::ExtendPlane), extend(bivista::scalar::ExtendPlane), 4 * pw * ph));
    auto nearest = [&](auto fn) {
      return [&, fn](float* o) { fn(ps.data(), o, pw, ph, qw, qh, 1.4f, px0.data(), 0.5f, 1.0f); };
    };
    ASSERT_TRUE(same(nearest(bivista::NearestPlaneF32), nearest(bivista::scalar::NearestPlaneF32), qw * qh));
    // Whole guided planes: every band width from 8 to 23 source columns, exact and inexact
    // multiples (the band's first window starts on source pixel 0).
    for (int q = 2; q <= 3; ++q)
      for (int sw = 8; sw <= gw; ++sw)
        for (int extra : {0, 1, 2}) {
          const bivista::GuidedArgs gp{gs.data(), gl.data(), gf.data(), t, sw, q * sw + extra, q};
          const int dh = q * gh - extra;
          ASSERT_TRUE(same(bivista::GuidedPlane, bivista::scalar::GuidedPlane, static_cast<size_t>(gp.dstW) * dh, gp, gh, dh))
              << q << " " << sw << " " << extra;
        }
    for (int n : {1, 3, 7, 8, 9, 15, 16, 17, 33, 65, 100}) {
      for (float step : {0.3f, 1.0f, 1.9995f, 2.0f, 2.7f, 9.0f}) {
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
      // These two take the output before the count; the quarter means run on a 2n x 2 image.
      std::vector<float> two(r0);
      two.insert(two.end(), r1.begin(), r1.end());
      auto quarter = [&](auto fn) { return [&, fn](float* o) { fn(two.data(), o, n, 1); }; };
      ASSERT_TRUE(same(quarter(bivista::QuarterMeanPlane), quarter(bivista::scalar::QuarterMeanPlane), n)) << n;
      for (double wy0 : {0.25, 0.75}) {
        if (n < 2) break;
        auto extend = [&](auto fn) { return [&, fn](float* o) { fn(r0.data(), r1.data(), o, n, wy0, 1.0 - wy0); }; };
        ASSERT_TRUE(same(extend(bivista::ExtendRow), extend(bivista::scalar::ExtendRow), 2 * n)) << n;
      }
    }
  });
}

// The mask thresholds above 127: at exactly 127 it stays 0. (The byte resizers' values are in
// the golden digests; the rows' vector code is checked against scalar below.)
TEST(ResizeU8, MaskStaysZeroAtExactly127) {
  const uint8_t flat[4] = {127, 127, 127, 127};
  uint8_t m[2];
  ResizeUcharMask(flat, m, 2, 2, 2, 1);
  EXPECT_EQ(m[1], 0);
}

TEST(Resize, EmptyDestinationsWriteNothingAndChannelResizersReportUnderOneName) {
  bvtest::LogCapture log;
  const uint8_t src[64] = {};
  const float fsrc[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  std::vector<uint8_t> dst(64, 0x33);
  float* out = reinterpret_cast<float*>(dst.data());
  auto floats = [&](int dw, int dh) {
    ResizeFloat(fsrc, out, 4, 4, dw, dh);
    ResizeDepth(fsrc, out, 4, 4, dw, dh);
    ResizeSpareDisparity(fsrc, out, 4, 4, dw, dh, 0.0f);
    ResizeSpareDisparityNearest(fsrc, out, 4, 4, dw, dh, 0.0f);
    ResizeSparedataFloat(fsrc, src, out, 4, 4, dw, dh, 1.0f, 0.0f);
    ResizeFloatImg_Bilinear(fsrc, out, 4, 4, dw, dh);
    ResizeFloatImage_KeepBorder_full(fsrc, out, nullptr, nullptr, 4, 4, dw, dh);
  };
  const struct {
    std::function<void()> call;
    int messages;
    size_t firstUntouched;
  } cases[] = {
      {[&] { floats(4, -1); }, 0, 0},
      {[&] { floats(0, 4); }, 0, 0},
      {[&] { ResizeUchar(src, dst.data(), 4, 4, 0, 4); }, 0, 0},
      {[&] { ResizeUchar(src, dst.data(), 4, 4, 4, 0); }, 0, 0},
      {[&] { ResizeUcharMask(src, dst.data(), 4, 4, -1, 4); }, 0, 0},
      {[&] { ResizeUchar_upScale2x2(src, dst.data(), 2, 2, 5, 4); }, 0, 0},
      {[&] { ResizeUchar_upScale2x2(src, dst.data(), 2, 2, 4, 5); }, 0, 0},
      {[&] { ResizeUcharChl(src, dst.data(), 4, 4, 0, 4, 2); }, 1, 0},
      {[&] { ResizeUcharRGB(src, dst.data(), 4, 4, 0, 4); }, 3, 0},
      {[&] { ResizeUcharNV21(src, dst.data(), 4, 4, 1, 4); }, 2, 4},  // luma resized, chroma width 0 twice
      // Empty or negative sources, fewer than one channel: nothing to sample, nothing written.
      {[&] { ResizeFloat(fsrc, out, 0, 4, 4, 4); }, 0, 0},
      {[&] { ResizeSparedataFloat(fsrc, src, out, 4, -2, 4, 4, 1.0f, 0.0f); }, 0, 0},
      {[&] { ResizeSpareDisparityNearest(fsrc, out, -1, 4, 4, 4, 0.0f); }, 0, 0},
      {[&] { ResizeFloatImage_KeepBorder_full(fsrc, out, nullptr, nullptr, 0, 4, 4, 4); }, 0, 0},
      {[&] { ResizeUchar(src, dst.data(), 0, 4, 4, 4); }, 0, 0},
      {[&] { ResizeUcharRGB(src, dst.data(), 4, -1, 4, 4); }, 0, 0},
      {[&] { ResizeUcharChl(src, dst.data(), 4, 4, 4, 4, 0); }, 0, 0},
      // An NV21 destination of negative sides is empty: no chroma pointer past it.
      {[&] { ResizeUcharNV21(src, nullptr, 4, 4, -3, -3); }, 2, 0},
      // Exact 2x relations in 64 bits (2 x INT_MAX must not wrap onto a size); halving needs the
      // source rows it reads.
      {[&] {
         ResizeFloatImg_Bilinear(fsrc, out, 4, 4, 0, 0x7FFFFFFF);
         ResizeFloatImg_Bilinear_Downsample_Quarter(fsrc, out, 4, 4, 2, 3);
         ResizeUchar_upScale2x2(src, dst.data(), 1 << 30, 2, -0x7FFFFFFF - 1, 4);
       }, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - cases);
    std::fill(dst.begin(), dst.end(), 0x33);
    log.Clear();
    c.call();
    EXPECT_EQ(bvtest::CountMsg(log, XELMA_LOG_WARN, "ZR481_ALGO", "ResizeUcharChl", "dstW <= 0", 758), c.messages);
    EXPECT_EQ(log.Lines().size(), static_cast<size_t>(c.messages));
    for (size_t i = c.firstUntouched; i < dst.size(); ++i) ASSERT_EQ(dst[i], 0x33) << c.messages << " at " << i;
  }
}

// One-row and one-column sources are their own neighbours (weight exactly 0), long destinations
// hold accumulated positions at the last pair, guided up-sampling of sizes that are not a
// multiple stays inside the source: every buffer below is exact.
TEST(Resize, OneRowOneColumnLongAndUnevenDestinationsReadOnlyTheSource) {
  const std::vector<float> col = {1.5f, -2.0f, 7.25f, 3.0f, 0.5f};  // 1 x 5
  std::vector<float> out(3 * 4);
  ResizeDepth(col.data(), out.data(), 1, 5, 3, 4);
  float fy = 0;
  for (int j = 0; j < 4; ++j, fy += 4.0f / 4) {
    const int y0 = static_cast<int>(fy);
    const float ay = fy - y0, v = col[y0] * (1 - ay) + col[y0 + 1] * ay;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(out[j * 3 + i], v) << j;
  }
  const std::vector<uint8_t> row = {10, 200, 30};  // 3 x 1
  std::vector<uint8_t> u8(5 * 2);
  ResizeUchar(row.data(), u8.data(), 3, 1, 5, 2);
  for (int i = 0; i < 5; ++i) {
    const float fx = i * (2.0f / 5);
    const int x0 = static_cast<int>(fx);
    const float ax = fx - x0;
    const auto v = static_cast<uint8_t>(static_cast<int>(row[x0] * (1 - ax) + row[x0 + 1] * ax));
    EXPECT_EQ(u8[i], v) << i;
    EXPECT_EQ(u8[5 + i], v) << i;
  }
  // 2 x 2 to 20000 x 1: the accumulated column creeps past 1.0 near the end.
  const std::vector<float> two = {4.0f, 8.0f, 16.0f, 32.0f};
  std::vector<float> wide(20000);
  ResizeDepth(two.data(), wide.data(), 2, 2, 20000, 1);
  EXPECT_NEAR(wide.back(), 8.0f, 1e-3f);
  // 10 x 10 to 32 x 32 (q = 3, two columns and rows left over): the last column and row repeat
  // the source's last ones instead of running into the next row or past the end.
  std::mt19937 rng(68);
  const auto s = Floats(100, rng);
  const std::vector<uint8_t> gl(300, 100), gf(3 * 32 * 32, 100);
  std::vector<float> up(32 * 32);
  ResizeFloatImage_KeepBorder_full(s.data(), up.data(), gl.data(), gf.data(), 10, 10, 32, 32);
  for (int y = 0; y < 32; ++y) EXPECT_EQ(up[y * 32 + 31], s[std::min(y / 3, 9) * 10 + 9]) << y;
  for (int x = 0; x < 32; ++x) EXPECT_EQ(up[31 * 32 + x], s[90 + std::min(x / 3, 9)]) << x;
}

TEST(Resize, AllocationFailureKeepsResultsAndLeaksNothing) {
  std::mt19937 rng(65);
  const auto src = Floats(41 * 29, rng);
  const auto bytes = Bytes(97 * 31 * 3, rng);
  std::vector<uint8_t> mask(41 * 29);
  for (auto& m : mask) m = rng() % 4 == 0;
  // Each call once as it is, then once for every allocation it makes, that one failing.
  auto each = [&](auto call, auto want) {
    auto got = want;
    call(want.data());
    EXPECT_EQ(bvtest::ForEachMallocFailure([&](int) {
      std::fill(got.begin(), got.end(), 0);
      call(got.data());
      EXPECT_EQ(0, std::memcmp(got.data(), want.data(), got.size() * sizeof(got[0])));
    }), 2);
  };
  const std::vector<float> f(23 * 31);
  each([&](float* o) { ResizeFloat(src.data(), o, 41, 29, 23, 31); }, f);
  each([&](float* o) { ResizeSpareDisparity(src.data(), o, 41, 29, 23, 31, 3.0f); }, f);
  each([&](float* o) { ResizeSparedataFloat(src.data(), mask.data(), o, 41, 29, 23, 31, 2.0f, -1.0f); }, f);
  each([&](float* o) { ResizeSpareDisparityNearest(src.data(), o, 41, 29, 23, 31, 3.0f); }, f);
  each([&](uint8_t* o) { ResizeUchar(bytes.data(), o, 97, 31, 45, 40); }, std::vector<uint8_t>(45 * 40));
  each([&](uint8_t* o) { ResizeUcharRGB(bytes.data(), o, 97, 31, 45, 40); }, std::vector<uint8_t>(45 * 40 * 3));
}

TEST(ResizeU8Kernels, RowsMatchScalarOnEveryTarget) {
  std::mt19937 rng(56);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int n : {1, 3, 15, 16, 17, 33, 65, 100}) {
      for (float step : {0.3f, 1.0f, 2.08f, 2.7f, 7.5f}) {
        const int srcW = static_cast<int>(n * step) + 6, minimal = static_cast<int>((n - 1) * step) + 2;
        const auto a = Bytes(srcW + 256, rng), c = Bytes(srcW + 256, rng);
        // With the column table and without it; rows readable amply or just to the last pair.
        const bivista::ColumnTable table = bivista::MakeColumnTable(n, step);
        for (int mask = 0; mask < 2; ++mask)
          for (const bivista::ColumnTable& cols : {table, bivista::ColumnTable()})
            for (int readable : {srcW + 256, minimal, minimal + 3, minimal + 40}) {
              std::vector<uint8_t> v(n + 1, 0xEE), s(n + 1, 0xEE);
              bivista::ResizeRowU8(a.data(), c.data(), v.data(), n, readable, step, 0.37f, mask, cols);
              bivista::scalar::ResizeRowU8(a.data(), c.data(), s.data(), n, readable, step, 0.37f, mask, cols);
              ASSERT_EQ(v, s) << n << " " << step << " readable " << readable;
            }
        bivista::FreeColumnTable(table);
        std::vector<int32_t> x0(n);
        std::vector<float> ax(n);
        for (int i = 0; i < n; ++i) x0[i] = static_cast<int32_t>(i * step), ax[i] = i * step - x0[i];
        for (int ch = 1; ch <= 4; ++ch) {
          const auto ra = Bytes((srcW + 2) * ch, rng), rc = Bytes((srcW + 2) * ch, rng);
          for (int count = 1; count <= ch; ++count) {
            auto v = Bytes(n * ch, rng), s = v;
            bivista::ResizeRowChannels(ra.data(), rc.data(), v.data(), x0.data(), ax.data(), n, n, 0.61f, ch, count);
            bivista::scalar::ResizeRowChannels(ra.data(), rc.data(), s.data(), x0.data(), ax.data(), n, n, 0.61f, ch, count);
            ASSERT_EQ(v, s) << n << " ch " << ch << " count " << count;
          }
        }
      }
      const int w = n + 1;
      const auto a = Bytes(w, rng), c = Bytes(w, rng);
      std::vector<uint8_t> v0(2 * w + 1, 0xEE), v1 = v0, s0 = v0, s1 = v0;
      bivista::UpScale2x2Rows(a.data(), c.data(), v0.data(), v1.data(), w);
      bivista::scalar::UpScale2x2Rows(a.data(), c.data(), s0.data(), s1.data(), w);
      ASSERT_TRUE(v0 == s0 && v1 == s1) << n;
      // The whole-image entries on a small image with the last source pair reached.
      const int sw = w + 3, sh = 6, dw = n, dh = 5;
      const float sx = static_cast<float>(sw - 1) / dw, sy = static_cast<float>(sh - 1) / dh;
      const auto img = Bytes(sw * sh * 3, rng);
      const bivista::ColumnTable cols = bivista::MakeColumnTable(dw, sx);
      for (int mask = 0; mask < 2; ++mask) {
        std::vector<uint8_t> pv(dw * dh + 1, 0xEE), ps = pv;
        bivista::ResizeU8Plane(img.data(), pv.data(), sw, sh, dw, dh, sx, sy, mask, cols);
        bivista::scalar::ResizeU8Plane(img.data(), ps.data(), sw, sh, dw, dh, sx, sy, mask, cols);
        ASSERT_EQ(pv, ps) << n << " mask " << mask;
      }
      std::vector<uint8_t> cv(dw * dh * 3 + 1, 0xEE), cs = cv;
      bivista::ResizeChannelsPlane(img.data(), cv.data(), sw, sh, dw, dh, sy, cols.x0, cols.ax, 0, 3, 2);
      bivista::scalar::ResizeChannelsPlane(img.data(), cs.data(), sw, sh, dw, dh, sy, cols.x0, cols.ax, 0, 3, 2);
      ASSERT_EQ(cv, cs) << n;
      bivista::FreeColumnTable(cols);
      std::vector<uint8_t> uv(4 * sw * sh, 0xEE), us = uv;
      bivista::UpScale2x2Plane(img.data(), uv.data(), sw, sh);
      bivista::scalar::UpScale2x2Plane(img.data(), us.data(), sw, sh);
      ASSERT_EQ(uv, us) << n;
    }
  });
}

}  // namespace
