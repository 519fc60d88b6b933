// YUV row kernels against their scalar definitions on every vector target.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "imageformat/yuv_kernels.h"
#include "support/hwy_targets.h"

namespace {

const int kWidths[] = {1, 2, 3, 15, 16, 17, 31, 32, 33, 63, 64, 65, 100, 129, 257};

std::vector<uint8_t> Bytes(size_t n, std::mt19937& rng) {
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

TEST(YuvKernels, PairSplitAndMergeMatchScalar) {
  std::mt19937 rng(21);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int n : kWidths) {
      const auto pairs = Bytes(2 * n, rng), a = Bytes(n, rng), b = Bytes(n, rng);
      std::vector<uint8_t> f1(n + 1, 0xEE), s1(n + 1, 0xEE), f2(n + 1, 0xEE), s2(n + 1, 0xEE);
      bivista::SplitPairs(pairs.data(), f1.data(), s1.data(), n);
      bivista::scalar::SplitPairs(pairs.data(), f2.data(), s2.data(), n);
      EXPECT_EQ(f1, f2) << n;
      EXPECT_EQ(s1, s2) << n;
      std::vector<uint8_t> m1(2 * n + 1, 0xEE), m2(2 * n + 1, 0xEE);
      bivista::MergePairs(a.data(), b.data(), m1.data(), n);
      bivista::scalar::MergePairs(a.data(), b.data(), m2.data(), n);
      EXPECT_EQ(m1, m2) << n;
    }
  });
}

TEST(YuvKernels, Nv12ToRgbRowsMatchScalarForBothVariants) {
  std::mt19937 rng(22);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int fixed = 0; fixed < 2; ++fixed) {
      for (int w : kWidths) {
        const int cw = (w + 1) & ~1;
        const auto y0 = Bytes(w, rng), y1 = Bytes(w, rng), uv = Bytes(cw, rng);
        for (int single = 0; single < 2; ++single) {
          std::vector<uint8_t> v0(3 * w + 1, 0xEE), v1(3 * w + 1, 0xEE);
          std::vector<uint8_t> s0(3 * w + 1, 0xEE), s1(3 * w + 1, 0xEE);
          const uint8_t* second = single ? nullptr : y1.data();
          bivista::Nv12RowsToRgb24(y0.data(), second, uv.data(), v0.data(),
                                   single ? nullptr : v1.data(), w, fixed != 0);
          bivista::scalar::Nv12RowsToRgb24(y0.data(), second, uv.data(), s0.data(),
                                           single ? nullptr : s1.data(), w, fixed != 0);
          EXPECT_EQ(v0, s0) << w << " fixed " << fixed;
          EXPECT_EQ(v1, s1) << w << " fixed " << fixed;
        }
      }
    }
  });
}

// Every chroma pair once, with luma values that reach both clamps: the shortcut the vector code
// takes for the floating-point variant must agree with the double arithmetic everywhere.
TEST(YuvKernels, Nv12ToRgbCoversEveryChromaPair) {
  const int w = 512;  // 256 pairs a row, one row per U value
  std::vector<uint8_t> uv(w), y0(w), y1(w), v0(3 * w), v1(3 * w), s0(3 * w), s1(3 * w);
  std::mt19937 rng(23);
  for (int x = 0; x < w; ++x) {
    y0[x] = static_cast<uint8_t>(x < 8 ? (x & 1 ? 255 : 0) : rng());
    y1[x] = static_cast<uint8_t>(x * 37 + 11);
  }
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int u = 0; u < 256; ++u) {
      for (int k = 0; k < 256; ++k) {
        uv[2 * k] = static_cast<uint8_t>(u);
        uv[2 * k + 1] = static_cast<uint8_t>(k);
      }
      for (int fixed = 0; fixed < 2; ++fixed) {
        bivista::Nv12RowsToRgb24(y0.data(), y1.data(), uv.data(), v0.data(), v1.data(), w, fixed);
        bivista::scalar::Nv12RowsToRgb24(y0.data(), y1.data(), uv.data(), s0.data(), s1.data(), w,
                                         fixed);
        ASSERT_EQ(v0, s0) << "u " << u << " fixed " << fixed;
        ASSERT_EQ(v1, s1) << "u " << u << " fixed " << fixed;
      }
    }
  });
}

TEST(YuvKernels, Yuv444RowsAndUpsamplingMatchScalar) {
  std::mt19937 rng(24);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int w : kWidths) {
      const int cw = (w + 1) & ~1;
      const auto y = Bytes(w, rng), vu = Bytes(cw, rng);
      std::vector<uint8_t> a(3 * w + 1, 0xEE), b(3 * w + 1, 0xEE);
      bivista::Nv21RowToYuv444(y.data(), vu.data(), a.data(), w);
      bivista::scalar::Nv21RowToYuv444(y.data(), vu.data(), b.data(), w);
      EXPECT_EQ(a, b) << w;
      const int pairs = w;
      const auto uv = Bytes(2 * pairs, rng);
      std::vector<uint8_t> u1(2 * pairs + 1, 0xEE), v1(2 * pairs + 1, 0xEE);
      std::vector<uint8_t> u2(2 * pairs + 1, 0xEE), v2(2 * pairs + 1, 0xEE);
      bivista::UpsamplePairs(uv.data(), u1.data(), v1.data(), pairs);
      bivista::scalar::UpsamplePairs(uv.data(), u2.data(), v2.data(), pairs);
      EXPECT_EQ(u1, u2) << pairs;
      EXPECT_EQ(v1, v2) << pairs;
    }
  });
}

}  // namespace
