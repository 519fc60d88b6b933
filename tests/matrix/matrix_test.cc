// Matrix and vector helpers against independent computations.
#include "bivista/matrix.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

namespace {

template <typename T>
std::vector<T> Random(size_t n, std::mt19937& rng, double lo = -10.0, double hi = 10.0) {
  std::uniform_real_distribution<double> u(lo, hi);
  std::vector<T> v(n);
  for (auto& x : v) x = static_cast<T>(u(rng));
  return v;
}

TEST(Matrix, ProductsFollowTheFusedOrderAndAgreeWithLongDouble) {
  std::mt19937 rng(1);
  for (int m : {1, 3, 7}) {
    for (int k : {1, 2, 9}) {
      for (int n : {1, 5, 17, 33}) {
        const auto a = Random<float>(m * k, rng), b = Random<float>(k * n, rng);
        const auto ad = Random<double>(m * k, rng), bd = Random<double>(k * n, rng);
        std::vector<float> c(m * n, -1.0f);
        std::vector<double> cd(m * n, -1.0);
        MatMul(a.data(), b.data(), c.data(), m, k, /*rowsB=*/-123, n);
        dMatMul(ad.data(), bd.data(), cd.data(), m, k, 0, n);
        for (int i = 0; i < m; ++i) {
          for (int j = 0; j < n; ++j) {
            float f = a[i * k] * b[j];
            double g = ad[i * k] * bd[j];
            long double ref = 0, refd = 0;
            for (int t = 0; t < k; ++t) {
              if (t > 0) {
                f = std::fma(b[t * n + j], a[i * k + t], f);
                g = std::fma(bd[t * n + j], ad[i * k + t], g);
              }
              ref += static_cast<long double>(a[i * k + t]) * b[t * n + j];
              refd += static_cast<long double>(ad[i * k + t]) * bd[t * n + j];
            }
            EXPECT_EQ(c[i * n + j], f);
            EXPECT_EQ(cd[i * n + j], g);
            EXPECT_NEAR(c[i * n + j], static_cast<double>(ref), 1e-3);
            EXPECT_NEAR(cd[i * n + j], static_cast<double>(refd), 1e-9);
          }
        }
      }
    }
  }
}

TEST(Matrix, TransposesAndRotation) {
  std::mt19937 rng(2);
  for (int rows : {1, 3, 15, 16, 17, 21}) {
    for (int cols : {1, 4, 6, 19}) {
      const auto f = Random<float>(rows * cols, rng);
      const auto d = Random<double>(rows * cols, rng);
      std::vector<float> tf(rows * cols), tdf(rows * cols);
      std::vector<double> td(rows * cols);
      MatTranspose(f.data(), tf.data(), rows, cols);
      dMatTransPose(d.data(), td.data(), rows, cols);
      dfMatTranspose(d.data(), tdf.data(), rows, cols);
      for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < cols; ++c) {
          EXPECT_EQ(tf[c * rows + r], f[r * cols + c]);
          EXPECT_EQ(td[c * rows + r], d[r * cols + c]);
          EXPECT_EQ(tdf[c * rows + r], static_cast<float>(d[r * cols + c]));
        }
      }
      // Treat the matrix as a cols-wide, rows-high map.
      const int w = cols, h = rows;
      std::vector<float> rot(w * h, 0.5f);
      AnticlockRotation(f.data(), rot.data(), w, h, 450);
      for (int k = 0; k < w; ++k)
        for (int y = 0; y < h; ++y) EXPECT_EQ(rot[k * h + y], f[y * w + (w - 1 - k)]);
      for (int angle : {180, -270, 0, 89, 91}) {
        std::vector<float> untouched(w * h, 0.5f);
        AnticlockRotation(f.data(), untouched.data(), w, h, angle);
        EXPECT_EQ(untouched, std::vector<float>(w * h, 0.5f)) << angle;
      }
    }
  }
  // A 2 x 3 map: rows (1 2 3) (4 5 6) turn into (3 6) (2 5) (1 4).
  const float m[6] = {1, 2, 3, 4, 5, 6};
  float r[6] = {};
  AnticlockRotation(m, r, 3, 2, 90);
  const float want[6] = {3, 6, 2, 5, 1, 4};
  EXPECT_EQ(0, std::memcmp(r, want, sizeof r));
}

TEST(Matrix, DotAndNorms) {
  const float a[5] = {1.5f, -2.0f, 3.25f, 0.1f, 7.0f};
  const float b[5] = {2.0f, 0.5f, -1.0f, 0.3f, 1e-3f};
  float out = -1.0f;
  MatDot(a, b, &out, 5, 1);
  float want = 0.0f;
  for (int i = 0; i < 5; ++i) want = std::fma(a[i], b[i], want);
  EXPECT_EQ(out, want);
  MatDot(a, b, &out, 5, 0);
  EXPECT_EQ(out, 0.0f);

  const float v34[2] = {3.0f, 4.0f};
  EXPECT_EQ(qnorm(v34, 2), 25.0);
  EXPECT_EQ(qnorm(v34, 0), 0.0);
  // Squares rounded in float, summed from the end in double.
  const float odd[3] = {1.1f, 1e-4f, 3.3f};
  double s = 0;
  for (int i = 2; i >= 0; --i) s += static_cast<double>(odd[i] * odd[i]);
  EXPECT_EQ(qnorm(odd, 3), s);

  float unit[2] = {9.0f, 9.0f}, norm = -1.0f;
  EXPECT_EQ(VectorUnit(v34, unit, &norm, 2), 0);
  EXPECT_EQ(norm, 5.0f);
  EXPECT_EQ(unit[0], 3.0f * (1.0f / 5.0f));
  EXPECT_EQ(unit[1], 4.0f * (1.0f / 5.0f));
  const float zero[3] = {0, 0, 0};
  float keep[3] = {9, 9, 9};
  norm = -1.0f;
  EXPECT_EQ(VectorUnit(zero, keep, &norm, 3), -1);
  EXPECT_EQ(norm, 0.0f);
  EXPECT_EQ(keep[0], 9.0f);
  EXPECT_EQ(keep[2], 9.0f);
  // A norm at 1e-5 in float is not above 1e-5.
  const float tiny[1] = {1e-5f};
  EXPECT_EQ(VectorUnit(tiny, keep, &norm, 1), -1);
  EXPECT_EQ(keep[0], 9.0f);
}

TEST(Matrix, SkewIdentityAndFree) {
  const float v[3] = {1.0f, -2.0f, 3.0f}, w[3] = {0.5f, 4.0f, -1.0f};
  float m[9];
  cross_vector(v, m);
  const float cross[3] = {v[1] * w[2] - v[2] * w[1], v[2] * w[0] - v[0] * w[2], v[0] * w[1] - v[1] * w[0]};
  for (int r = 0; r < 3; ++r)
    EXPECT_FLOAT_EQ(m[3 * r] * w[0] + m[3 * r + 1] * w[1] + m[3 * r + 2] * w[2], cross[r]);
  EXPECT_EQ(m[0], 0.0f);
  EXPECT_EQ(m[4], 0.0f);
  EXPECT_EQ(m[8], 0.0f);

  float e[9];
  double ed[9];
  EXPECT_EQ(set_matrix_eye(e), e);
  EXPECT_EQ(set_matrix_eye_double(ed), ed);
  for (int i = 0; i < 9; ++i) {
    EXPECT_EQ(e[i], i % 4 == 0 ? 1.0f : 0.0f);
    EXPECT_EQ(ed[i], i % 4 == 0 ? 1.0 : 0.0);
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
    // The product with the input is the identity, computed independently in long double.
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) {
        long double s = 0;
        for (int t = 0; t < 3; ++t) s += static_cast<long double>(a[3 * r + t]) * inv[3 * t + c];
        EXPECT_NEAR(static_cast<double>(s), r == c ? 1.0 : 0.0, 1e-9);
      }
    }
  }
  double eye[9], out[9];
  set_matrix_eye_double(eye);
  ASSERT_EQ(doInvert3x3(out, eye), 0);
  EXPECT_EQ(0, std::memcmp(out, eye, sizeof eye));

  const double zero[9] = {};
  const double singular[9] = {1, 2, 3, 2, 4, 6, 1, 0, 1};
  for (const double* m : {zero, singular}) {
    double keep[9];
    for (double& x : keep) x = 42.0;
    EXPECT_EQ(doInvert3x3(keep, m), -1);
    for (double x : keep) EXPECT_EQ(x, 42.0);
  }
}

TEST(Matrix, ScaleHomography) {
  double m[9];
  set_matrix_eye_double(m);
  ASSERT_EQ(dScaleMatrix3x3(m, 2.0), 0);
  double eye[9];
  set_matrix_eye_double(eye);
  EXPECT_EQ(0, std::memcmp(m, eye, sizeof m));

  double t[9] = {1, 0, 5, 0, 1, -7, 0, 0, 1};
  ASSERT_EQ(dScaleMatrix3x3(t, 2.0), 0);
  EXPECT_EQ(t[2], 10.0);
  EXPECT_EQ(t[5], -14.0);

  // The products go through 1 / s^2.
  const double s = 3.0;
  double g[9] = {1.1, 2.2, 3.3, 4.4, 5.5, 6.6, 7.7, 8.8, 9.9}, h[9];
  std::memcpy(h, g, sizeof g);
  ASSERT_EQ(dScaleMatrix3x3(g, s), 0);
  const double q = s * s, u = 1.0 / q, a = u * s, b = u * q;
  for (int i : {0, 1, 3, 4}) EXPECT_EQ(g[i], s * h[i] * a);
  for (int i : {2, 5}) EXPECT_EQ(g[i], s * h[i] * b);
  for (int i : {6, 7}) EXPECT_EQ(g[i], a * h[i]);
  EXPECT_EQ(g[8], b * h[8]);
  EXPECT_NEAR(g[2], 3.3 * s, 1e-12);
  EXPECT_NEAR(g[6], 7.7 / s, 1e-12);

  double keep[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  EXPECT_EQ(dScaleMatrix3x3(keep, 1e-9), -1);
  EXPECT_EQ(keep[2], 3.0);
  EXPECT_EQ(keep[6], 7.0);
}

TEST(Matrix, InvertDisparity) {
  float v[5] = {1.0f, 0.005f, -3.0f, 0.0f, 0.02f};
  EXPECT_EQ(InvertDisparity(v, v + 5, 0.0f), v + 5);
  EXPECT_EQ(v[0], -1.0f);
  EXPECT_EQ(v[1], 0.005f);
  EXPECT_EQ(v[2], -3.0f);
  EXPECT_EQ(v[3], 0.0f);
  EXPECT_EQ(v[4], -0.02f);
  EXPECT_EQ(InvertDisparity(v, v, 0.0f), v);
  EXPECT_EQ(v[4], -0.02f);
  // Against a threshold of 2: 2.5 flips, 2.005 stays.
  float w[2] = {2.5f, 2.005f};
  InvertDisparity(w, w + 2, 2.0f);
  EXPECT_EQ(w[0], -2.5f);
  EXPECT_EQ(w[1], 2.005f);
}

}  // namespace
