// Matrix and vector helpers against independent computations; kernels against scalar on every target.
#include "bivista/matrix.h"

#include <gtest/gtest.h>

#include <algorithm>
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

const int kSizes[] = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33};

// The public entries dispatch to the target in force. They and the scalar rows must equal the
// direct formulations bit for bit, so vector and scalar agree byte for byte on every target.
TEST(Matrix, ProductsFollowTheFusedOrderOnEveryTarget) {
  std::mt19937 rng(1);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int m : {1, 3})
      for (int k : {1, 2, 5, 9})
        for (int n : kSizes) {
          const auto a = Random<float>(m * k, rng), b = Random<float>(k * n, rng);
          const auto ad = Random<double>(m * k, rng), bd = Random<double>(k * n, rng);
          std::vector<float> c(m * n, -1.0f), sc = c;
          std::vector<double> cd(m * n, -1.0), scd = cd;
          MatMul(a.data(), b.data(), c.data(), m, k, /*rowsB, unused=*/-123, n);
          dMatMul(ad.data(), bd.data(), cd.data(), m, k, 0, n);
          for (int r = 0; r < m; ++r) {
            bivista::scalar::MatMulRowF32(&a[r * k], b.data(), &sc[r * n], k, n);
            bivista::scalar::MatMulRowF64(&ad[r * k], bd.data(), &scd[r * n], k, n);
          }
          for (int i = 0; i < m * n; ++i) {
            const int r = i / n, j = i % n;
            float f = a[r * k] * b[j];
            double g = ad[r * k] * bd[j];
            for (int t = 1; t < k; ++t) {
              f = std::fma(b[t * n + j], a[r * k + t], f);
              g = std::fma(bd[t * n + j], ad[r * k + t], g);
            }
            ASSERT_TRUE(c[i] == f && cd[i] == g && sc[i] == f && scd[i] == g) << m << " " << k << " " << n << " at " << i;
          }
        }
  });
}

TEST(Matrix, TransposesAndRotationOnEveryTarget) {
  std::mt19937 rng(2);
  namespace sc = bivista::scalar;
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int rows : kSizes)
      for (int w : kSizes) {
        const int len = rows * w;
        const auto f = Random<float>(len, rng);
        const auto d = Random<double>(len, rng);
        // One guard element on each side. As a w-wide map, 450 degrees is a quarter turn, written
        // bottom up; anything not 90 mod 360 writes nothing.
        std::vector<float> tf(len + 2, 7.0f), tdf = tf, rot = tf, stf = tf, stdf = tf, srot = tf, vtf = tf;
        std::vector<double> td(len + 2, 7.0), sd = td;
        MatTranspose(f.data(), &tf[1], rows, w);
        dMatTransPose(d.data(), &td[1], rows, w);
        dfMatTranspose(d.data(), &tdf[1], rows, w);
        AnticlockRotation(f.data(), &rot[1], w, rows, 450);
        for (int angle : {180, -270, 0, 89, 91}) AnticlockRotation(f.data(), &tf[1], w, rows, angle);
        sc::TransposeF32(f.data(), rows, w, &stf[1], rows);
        bivista::TransposeF32(f.data(), rows, w, &vtf[1], rows);  // MatTranspose keeps small ones scalar
        sc::TransposeF64(d.data(), rows, w, &sd[1], rows);
        sc::TransposeF64ToF32(d.data(), rows, w, &stdf[1], rows);
        sc::TransposeF32(f.data(), rows, w, &srot[1 + (w - 1) * rows], -rows);
        for (int p = 0; p < len; ++p) {
          const int t = 1 + (p % w) * rows + p / w, q = 1 + (w - 1 - p % w) * rows + p / w;
          const float df = static_cast<float>(d[p]);
          ASSERT_TRUE(tf[t] == f[p] && stf[t] == f[p] && vtf[t] == f[p] && td[t] == d[p] && sd[t] == d[p] && tdf[t] == df &&
                      stdf[t] == df && rot[q] == f[p] && srot[q] == f[p]) << rows << "x" << w << " at " << p;
        }
        for (const auto* v : {&tf, &tdf, &rot, &stf, &stdf, &srot, &vtf}) EXPECT_TRUE(v->front() == 7.0f && v->back() == 7.0f);
        EXPECT_TRUE(td.front() == 7.0 && td.back() == 7.0 && sd.front() == 7.0 && sd.back() == 7.0);
      }
    // Doubles past the float range become infinite as a cast makes them, on every target.
    const std::vector<double> big(16, -1e39);
    std::vector<float> out(16);
    dfMatTranspose(big.data(), out.data(), 4, 4);
    EXPECT_EQ(out, std::vector<float>(16, -HUGE_VALF));
  });
}

// Values on fixed inputs are pinned by the golden digests; here the rules they cannot show.
TEST(Matrix, RefusalsLeaveTheOutputAndInversesAreInverses) {
  const float v34[2] = {3.0f, 4.0f}, zero[3] = {0, 0, 0}, tiny[1] = {1e-5f};
  float empty = -1.0f, norm = -1.0f, keep[3] = {9, 9, 9};
  MatDot(v34, v34, &empty, 2, 0);
  EXPECT_TRUE(empty == 0.0f && qnorm(v34, 0) == 0.0);
  // Zero, and a float norm of exactly 1e-5, are refused with the output untouched.
  EXPECT_TRUE(VectorUnit(zero, keep, &norm, 3) == -1 && norm == 0.0f);
  EXPECT_TRUE(VectorUnit(tiny, keep, &norm, 1) == -1 && keep[0] == 9.0f && keep[2] == 9.0f);
  double h[9] = {1.1, 2.2, 3.3, 4.4, 5.5, 6.6, 7.7, 8.8, 9.9};
  EXPECT_TRUE(dScaleMatrix3x3(h, 1e-9) == -1 && h[0] == 1.1 && h[8] == 9.9);
  // Orders of rounding the digests cannot tell apart: at s = 0.3, (1 / s^2) x s is not 1 / s and
  // (1 / s^2) x s^2 is not 1; qnorm adds from the last element (1e16 + 2: added first to last,
  // each one is lost to round-half-even).
  const double s = 0.3, q = s * s, u = 1.0 / q;
  ASSERT_EQ(dScaleMatrix3x3(h, s), 0);
  EXPECT_TRUE(h[0] == s * 1.1 * (u * s) && h[2] == s * 3.3 * (u * q) && h[6] == (u * s) * 7.7 &&
              h[8] == (u * q) * 9.9);
  const float big[3] = {1e8f, 1.0f, 1.0f};
  EXPECT_EQ(qnorm(big, 3), static_cast<double>(big[0] * big[0]) + 2.0);
  MatFree(nullptr);
  MatFree(std::malloc(16));
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
  const double zero9[9] = {}, singular[9] = {1, 2, 3, 2, 4, 6, 1, 0, 1};
  for (const double* m : {zero9, singular}) {
    double out[9] = {42, 42, 42, 42, 42, 42, 42, 42, 42};
    EXPECT_TRUE(doInvert3x3(out, m) == -1 && std::count(out, out + 9, 42.0) == 9);
  }
}

TEST(Matrix, InvertDisparityFlipsFromThresholdPlusAHundredthOnEveryTarget) {
  std::mt19937 rng(13);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int n : {1, 3, 15, 16, 17, 33, 100})
      for (float t : {0.0f, 2.0f}) {
        auto v = Random<float>(n, rng);
        // Values at the limit, where comparing in float and in double would part.
        const float edge[4] = {t + 0.01f, std::nextafter(t + 0.01f, 9.0f), t + 0.005f, t};
        std::copy(edge, edge + std::min(n, 4), v.begin());
        auto s = v, want = v;
        for (float& x : want) x = x - t >= 0.01 ? -x : x;
        EXPECT_EQ(InvertDisparity(v.data(), v.data() + n, t), v.data() + n);
        EXPECT_EQ(InvertDisparity(v.data(), v.data(), t), v.data());
        bivista::scalar::NegateAbove(s.data(), n, t);
        EXPECT_TRUE(v == want && s == want) << n << " " << t;
      }
  });
}

}  // namespace
