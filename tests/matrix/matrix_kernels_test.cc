// Vector kernels of the matrix helpers against their scalar definitions on every target.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "matrix/matrix_kernels.h"
#include "support/hwy_targets.h"

namespace {

const int kSizes[] = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33};

template <typename T>
std::vector<T> Random(size_t n, std::mt19937& rng) {
  std::uniform_real_distribution<double> u(-100.0, 100.0);
  std::vector<T> v(n);
  for (auto& x : v) x = static_cast<T>(u(rng));
  return v;
}

template <typename T>
bool SameBits(const std::vector<T>& a, const std::vector<T>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0;
}

TEST(MatrixKernels, MatMulRowsMatchScalarOnEveryTarget) {
  std::mt19937 rng(11);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int k : {1, 2, 5}) {
      for (int n : kSizes) {
        const auto a = Random<float>(k, rng), b = Random<float>(k * n, rng);
        std::vector<float> v(n), s(n);
        bivista::MatMulRowF32(a.data(), b.data(), v.data(), k, n);
        bivista::scalar::MatMulRowF32(a.data(), b.data(), s.data(), k, n);
        EXPECT_TRUE(SameBits(v, s)) << k << " x " << n;
        const auto ad = Random<double>(k, rng), bd = Random<double>(k * n, rng);
        std::vector<double> vd(n), sd(n);
        bivista::MatMulRowF64(ad.data(), bd.data(), vd.data(), k, n);
        bivista::scalar::MatMulRowF64(ad.data(), bd.data(), sd.data(), k, n);
        EXPECT_TRUE(SameBits(vd, sd)) << k << " x " << n;
      }
    }
  });
}

TEST(MatrixKernels, TransposesMatchScalarOnEveryTargetWithGuards) {
  std::mt19937 rng(12);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int rows : kSizes) {
      for (int cols : kSizes) {
        const size_t n = static_cast<size_t>(rows) * cols;
        const auto f = Random<float>(n, rng);
        const auto d = Random<double>(n, rng);
        // A guard element on each side; the negative step writes the rows bottom up.
        for (int neg = 0; neg < 2; ++neg) {
          const ptrdiff_t step = neg ? -rows : rows;
          const ptrdiff_t base = 1 + (neg ? static_cast<ptrdiff_t>(cols - 1) * rows : 0);
          std::vector<float> v(n + 2, 7.0f), s(n + 2, 7.0f);
          bivista::TransposeF32(f.data(), rows, cols, v.data() + base, step);
          bivista::scalar::TransposeF32(f.data(), rows, cols, s.data() + base, step);
          EXPECT_TRUE(SameBits(v, s)) << rows << "x" << cols << " neg " << neg;
          EXPECT_EQ(v[0], 7.0f);
          EXPECT_EQ(v[n + 1], 7.0f);
          std::vector<double> vd(n + 2, 7.0), sd(n + 2, 7.0);
          bivista::TransposeF64(d.data(), rows, cols, vd.data() + base, step);
          bivista::scalar::TransposeF64(d.data(), rows, cols, sd.data() + base, step);
          EXPECT_TRUE(SameBits(vd, sd)) << rows << "x" << cols;
          std::vector<float> vf(n + 2, 7.0f), sf(n + 2, 7.0f);
          bivista::TransposeF64ToF32(d.data(), rows, cols, vf.data() + base, step);
          bivista::scalar::TransposeF64ToF32(d.data(), rows, cols, sf.data() + base, step);
          EXPECT_TRUE(SameBits(vf, sf)) << rows << "x" << cols;
        }
      }
    }
  });
}

TEST(MatrixKernels, NegateAboveMatchesScalarOnEveryTarget) {
  std::mt19937 rng(13);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int n : {1, 3, 15, 16, 17, 33, 100}) {
      auto v = Random<float>(n, rng);
      // Values right at the threshold, both sides of 0.01 in float and double.
      if (n > 4) {
        v[0] = 2.0f + 0.01f;
        v[1] = 0.01f;
        v[2] = std::nextafter(0.01f, 1.0f);
        v[3] = 0.0f;
      }
      auto s = v;
      bivista::NegateAbove(v.data(), n, n > 4 ? 0.0f : 1.5f);
      bivista::scalar::NegateAbove(s.data(), n, n > 4 ? 0.0f : 1.5f);
      EXPECT_TRUE(SameBits(v, s)) << n;
    }
  });
}

}  // namespace
