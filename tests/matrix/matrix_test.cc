// Matrix and vector helpers against independent computations; kernels against scalar on every target.
#include "bivista/matrix.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "matrix/matrix_kernels.h"
#include "support/hwy_targets.h"

namespace {

template <typename T>
std::vector<T> Random(size_t n, std::mt19937& rng) {
  std::uniform_real_distribution<double> u(-10.0, 10.0);
  std::vector<T> v(n);
  for (auto& x : v) x = static_cast<T>(u(rng));
  return v;
}

template <typename T>
bool SameBits(const std::vector<T>& a, const std::vector<T>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0;
}

TEST(Matrix, ProductsFollowTheFusedOrder) {
  std::mt19937 rng(1);
  for (int m : {1, 3, 7})
    for (int k : {1, 2, 9})
      for (int n : {1, 5, 17, 33}) {
        const auto a = Random<float>(m * k, rng), b = Random<float>(k * n, rng);
        const auto ad = Random<double>(m * k, rng), bd = Random<double>(k * n, rng);
        std::vector<float> c(m * n, -1.0f);
        std::vector<double> cd(m * n, -1.0);
        MatMul(a.data(), b.data(), c.data(), m, k, /*rowsB, unused=*/-123, n);
        dMatMul(ad.data(), bd.data(), cd.data(), m, k, 0, n);
        for (int i = 0; i < m * n; ++i) {
          const int r = i / n, j = i % n;
          float f = a[r * k] * b[j];
          double g = ad[r * k] * bd[j];
          for (int t = 1; t < k; ++t) {
            f = std::fma(b[t * n + j], a[r * k + t], f);
            g = std::fma(bd[t * n + j], ad[r * k + t], g);
          }
          ASSERT_TRUE(c[i] == f && cd[i] == g) << m << " " << k << " " << n << " at " << i;
        }
      }
}

TEST(Matrix, TransposesAndRotation) {
  std::mt19937 rng(2);
  for (int rows : {1, 3, 15, 16, 17, 21})
    for (int w : {1, 4, 6, 19}) {
      const auto f = Random<float>(rows * w, rng);
      const auto d = Random<double>(rows * w, rng);
      std::vector<float> tf(rows * w), tdf(rows * w), rot(rows * w, 0.5f);
      std::vector<double> td(rows * w);
      MatTranspose(f.data(), tf.data(), rows, w);
      dMatTransPose(d.data(), td.data(), rows, w);
      dfMatTranspose(d.data(), tdf.data(), rows, w);
      // As a w-wide map, 450 degrees is a quarter turn; anything not 90 mod 360 writes nothing.
      AnticlockRotation(f.data(), rot.data(), w, rows, 450);
      for (int angle : {180, -270, 0, 89, 91}) AnticlockRotation(f.data(), tf.data(), w, rows, angle);
      for (int r = 0; r < rows; ++r)
        for (int c = 0; c < w; ++c) {
          ASSERT_EQ(tf[c * rows + r], f[r * w + c]);
          ASSERT_EQ(td[c * rows + r], d[r * w + c]);
          ASSERT_EQ(tdf[c * rows + r], static_cast<float>(d[r * w + c]));
          ASSERT_EQ(rot[(w - 1 - c) * rows + r], f[r * w + c]);
        }
    }
}

TEST(Matrix, DotNormsAndUnitVectors) {
  const float a[5] = {1.5f, -2.0f, 3.25f, 0.1f, 7.0f}, b[5] = {2.0f, 0.5f, -1.0f, 0.3f, 1e-3f};
  float out = -1.0f, want = 0.0f;
  MatDot(a, b, &out, 5, 1);
  for (int i = 0; i < 5; ++i) want = std::fma(a[i], b[i], want);
  EXPECT_EQ(out, want);
  MatDot(a, b, &out, 5, 0);
  EXPECT_EQ(out, 0.0f);
  // Squares rounded in float, summed from the end in double.
  const float v34[2] = {3.0f, 4.0f}, odd[3] = {1.1f, 1e-4f, 3.3f};
  double s = 0;
  for (int i = 2; i >= 0; --i) s += static_cast<double>(odd[i] * odd[i]);
  EXPECT_EQ(qnorm(odd, 3), s);
  EXPECT_EQ(qnorm(v34, 0), 0.0);
  float unit[2] = {9.0f, 9.0f}, norm = -1.0f;
  EXPECT_EQ(VectorUnit(v34, unit, &norm, 2), 0);
  EXPECT_TRUE(norm == 5.0f && unit[0] == 3.0f * (1.0f / 5.0f) && unit[1] == 4.0f * (1.0f / 5.0f));
  // Zero, and a float norm of exactly 1e-5, are refused with the output untouched.
  const float zero[3] = {0, 0, 0}, tiny[1] = {1e-5f};
  float keep[3] = {9, 9, 9};
  EXPECT_EQ(VectorUnit(zero, keep, &norm, 3), -1);
  EXPECT_EQ(norm, 0.0f);
  EXPECT_EQ(VectorUnit(tiny, keep, &norm, 1), -1);
  EXPECT_TRUE(keep[0] == 9.0f && keep[2] == 9.0f);
}

TEST(Matrix, SkewIdentityAndFree) {
  const float v[3] = {1.0f, -2.0f, 3.0f}, w[3] = {0.5f, 4.0f, -1.0f};
  const float cross[3] = {v[1] * w[2] - v[2] * w[1], v[2] * w[0] - v[0] * w[2], v[0] * w[1] - v[1] * w[0]};
  float m[9], e[9];
  double ed[9];
  cross_vector(v, m);
  EXPECT_EQ(set_matrix_eye(e), e);
  EXPECT_EQ(set_matrix_eye_double(ed), ed);
  for (int i = 0; i < 9; ++i) {
    EXPECT_FLOAT_EQ(i < 3 ? m[3 * i] * w[0] + m[3 * i + 1] * w[1] + m[3 * i + 2] * w[2] : 0, i < 3 ? cross[i] : 0);
    EXPECT_TRUE(i % 4 || m[i] == 0.0f) << i;
    EXPECT_TRUE(e[i] == (i % 4 == 0) && ed[i] == (i % 4 == 0)) << i;
  }
  MatFree(nullptr);
  MatFree(std::malloc(16));
}

TEST(Matrix, Invert3x3) {
  std::mt19937 rng(3);
  for (int trial = 0; trial < 200; ++trial) {
    const auto a = Random<double>(9, rng);
    double inv[9];
    ASSERT_EQ(doInvert3x3(inv, a.data()), 0);
    // The product with the input, in long double, is the identity.
    for (int i = 0; i < 9; ++i) {
      long double s = 0;
      for (int t = 0; t < 3; ++t) s += static_cast<long double>(a[3 * (i / 3) + t]) * inv[3 * t + i % 3];
      EXPECT_NEAR(static_cast<double>(s), i % 4 == 0 ? 1.0 : 0.0, 1e-9);
    }
  }
  const double zero[9] = {}, singular[9] = {1, 2, 3, 2, 4, 6, 1, 0, 1};
  for (const double* m : {zero, singular}) {
    double keep[9] = {42, 42, 42, 42, 42, 42, 42, 42, 42};
    EXPECT_EQ(doInvert3x3(keep, m), -1);
    for (double x : keep) EXPECT_EQ(x, 42.0);
  }
}

TEST(Matrix, ScaleHomographyGoesThroughOneOverSSquared) {
  const double s = 3.0, q = s * s, u = 1.0 / q, a = u * s, b = u * q;
  const double h[9] = {1.1, 2.2, 3.3, 4.4, 5.5, 6.6, 7.7, 8.8, 9.9};
  double g[9];
  std::memcpy(g, h, sizeof g);
  ASSERT_EQ(dScaleMatrix3x3(g, s), 0);
  const double want[9] = {s * h[0] * a, s * h[1] * a, s * h[2] * b, s * h[3] * a, s * h[4] * a,
                          s * h[5] * b, a * h[6],     a * h[7],     b * h[8]};
  EXPECT_EQ(0, std::memcmp(g, want, sizeof g));
  EXPECT_EQ(dScaleMatrix3x3(g, 1e-9), -1);
  EXPECT_EQ(0, std::memcmp(g, want, sizeof g));
}

TEST(Matrix, InvertDisparityFlipsOnlyAboveThresholdPlusAHundredth) {
  float v[7] = {1.0f, 0.005f, -3.0f, 0.0f, 0.02f, 2.5f, 2.005f};
  EXPECT_EQ(InvertDisparity(v, v + 5, 0.0f), v + 5);
  EXPECT_EQ(InvertDisparity(v + 5, v + 7, 2.0f), v + 7);
  EXPECT_EQ(InvertDisparity(v, v, 0.0f), v);
  const float want[7] = {-1.0f, 0.005f, -3.0f, 0.0f, -0.02f, -2.5f, 2.005f};
  EXPECT_EQ(0, std::memcmp(v, want, sizeof v));
}

TEST(MatrixKernels, MatchScalarOnEveryTarget) {
  std::mt19937 rng(11);
  const int sizes[] = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 100};
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int n : sizes) {
      for (int k : {1, 2, 5}) {
        const auto a = Random<float>(k, rng), b = Random<float>(k * n, rng);
        const auto ad = Random<double>(k, rng), bd = Random<double>(k * n, rng);
        std::vector<float> v(n), s(n);
        std::vector<double> vd(n), sd(n);
        bivista::MatMulRowF32(a.data(), b.data(), v.data(), k, n);
        bivista::scalar::MatMulRowF32(a.data(), b.data(), s.data(), k, n);
        bivista::MatMulRowF64(ad.data(), bd.data(), vd.data(), k, n);
        bivista::scalar::MatMulRowF64(ad.data(), bd.data(), sd.data(), k, n);
        EXPECT_TRUE(SameBits(v, s) && SameBits(vd, sd)) << k << " x " << n;
      }
      // Values right at the 0.01 threshold, on both sides in float and double.
      auto v = Random<float>(n, rng);
      if (n > 4) v[0] = 2.0f + 0.01f, v[1] = 0.01f, v[2] = std::nextafter(0.01f, 1.0f), v[3] = 0.0f;
      auto s = v;
      bivista::NegateAbove(v.data(), n, n > 4 ? 0.0f : 1.5f);
      bivista::scalar::NegateAbove(s.data(), n, n > 4 ? 0.0f : 1.5f);
      EXPECT_TRUE(SameBits(v, s)) << n;
      for (int cols : sizes) {
        const size_t len = static_cast<size_t>(n) * cols;
        const auto f = Random<float>(len, rng);
        const auto d = Random<double>(len, rng);
        // A guard element on each side; the negative step writes the rows bottom up.
        for (int neg = 0; neg < 2; ++neg) {
          const ptrdiff_t step = neg ? -n : n, base = 1 + (neg ? ptrdiff_t{cols - 1} * n : 0);
          auto check = [&](auto vec, auto sca, const auto& src, auto guard) {
            std::vector<decltype(guard)> x(len + 2, guard), y(len + 2, guard);
            vec(src.data(), n, cols, x.data() + base, step);
            sca(src.data(), n, cols, y.data() + base, step);
            EXPECT_TRUE(SameBits(x, y) && x[0] == guard && x[len + 1] == guard) << n << "x" << cols;
          };
          check(bivista::TransposeF32, bivista::scalar::TransposeF32, f, 7.0f);
          check(bivista::TransposeF64, bivista::scalar::TransposeF64, d, 7.0);
          check(bivista::TransposeF64ToF32, bivista::scalar::TransposeF64ToF32, d, 7.0f);
        }
      }
    }
  });
}

}  // namespace
