// Every row kernel against its plain definition, byte for byte, on every compiled vector target
// and on widths that leave every head and tail.
#include <gtest/gtest.h>
#include <stdint.h>

#include <random>
#include <vector>

#include "morph_test_util.h"
#include "morphology/morph_kernels.h"
#include "support/hwy_targets.h"

namespace {

using morphtest::Bytes;
using morphtest::RandomBytes;

constexpr int kWidths[] = {1, 2, 3, 15, 16, 17, 18, 31, 32, 33, 63, 64, 65, 100, 131};

// Mostly-zero counters so that window ORs are sometimes empty.
Bytes SparseBytes(size_t n, std::mt19937& rng, double p) {
  std::uniform_real_distribution<double> u(0.0, 1.0);
  Bytes b(n, 0);
  for (auto& v : b) v = u(rng) < p ? static_cast<uint8_t>(1 + rng() % 255) : 0;
  return b;
}

TEST(MorphKernels, CounterUpdatesMatchScalar) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(1);
    for (int n : kWidths) {
      const Bytes row = RandomBytes(n, rng, 0, 2);
      const Bytes cnt = RandomBytes(n, rng);
      Bytes a = cnt, b = cnt;
      bivista::CounterAdd(row.data(), a.data(), n, 1);
      bivista::scalar::CounterAdd(row.data(), b.data(), n, 1);
      EXPECT_EQ(a, b) << "add n=" << n;
      bivista::CounterSub(row.data(), a.data(), n, 2);
      bivista::scalar::CounterSub(row.data(), b.data(), n, 2);
      EXPECT_EQ(a, b) << "sub n=" << n;
    }
  });
}

TEST(MorphKernels, SpreadRowMatchesRunningSum) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(2);
    for (int n : kWidths) {
      for (int kW : {0, 1, 2, 3, 4, 7, 8, 15, 16, 31, 40, 64}) {
        if (2 * kW >= n) continue;
        for (double p : {0.0, 0.02, 0.2}) {
          const Bytes cnt = SparseBytes(n, rng, p);
          const Bytes copy = RandomBytes(n, rng, 0, 3);
          Bytes a = RandomBytes(n, rng), b = RandomBytes(n, rng);
          bivista::SpreadRow(cnt.data(), copy.data(), a.data(), n, kW, 7);
          bivista::scalar::SpreadRow(cnt.data(), copy.data(), b.data(), n, kW, 7);
          EXPECT_EQ(a, b) << "n=" << n << " kW=" << kW << " p=" << p;
        }
      }
    }
  });
}

// Rows too wide for the on-stack buffers take the other vector paths.
TEST(MorphKernels, VeryWideRowsMatchScalar) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(6);
    const int n = 33001;
    const Bytes cnt = SparseBytes(n, rng, 0.001);
    const Bytes copy = RandomBytes(n, rng, 0, 3);
    for (int kW : {0, 3, 40}) {
      Bytes a(n), b(n);
      bivista::SpreadRow(cnt.data(), copy.data(), a.data(), n, kW, 9);
      bivista::scalar::SpreadRow(cnt.data(), copy.data(), b.data(), n, kW, 9);
      EXPECT_EQ(a, b) << "kW=" << kW;
    }
    std::vector<Bytes> rows(3, Bytes(n + 2));
    for (auto& r : rows) {
      for (auto& v : r) v = rng() % 8 ? 255 : 0;
    }
    for (int useOr = 0; useOr <= 1; ++useOr) {
      Bytes a(n), b(n), ca(n + 2), cb(n + 2);
      bivista::Combine3x3(&rows[0][1], &rows[1][1], &rows[2][1], a.data(), n, 0, useOr, &ca[1]);
      bivista::scalar::Combine3x3(&rows[0][1], &rows[1][1], &rows[2][1], b.data(), n, 0, useOr,
                                  &cb[1]);
      EXPECT_EQ(a, b);
      EXPECT_EQ(ca, rows[2]);
      EXPECT_EQ(ca, cb);
    }
  });
}

TEST(MorphKernels, BoxDecisionMatchesScalar) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(3);
    for (int n : kWidths) {
      std::vector<uint32_t> q[4];
      for (auto& v : q) {
        v.resize(n);
        for (auto& e : v) e = rng() % 4 == 0 ? rng() : rng() % 50;
      }
      const uint32_t area = 21;
      // Make some windows exactly full and some sums exactly zero or negative.
      for (int i = 0; i < n; i += 3) q[0][i] = area + q[2][i] + q[3][i] - q[1][i];
      for (int i = 1; i < n; i += 5) q[0][i] = q[2][i] + q[3][i] - q[1][i];
      for (int erode = 0; erode <= 1; ++erode) {
        Bytes a(n, 9), b(n, 9);
        bivista::BoxDecideRow(q[0].data(), q[1].data(), q[2].data(), q[3].data(), a.data(), n,
                              area, erode);
        bivista::scalar::BoxDecideRow(q[0].data(), q[1].data(), q[2].data(), q[3].data(),
                                      b.data(), n, area, erode);
        EXPECT_EQ(a, b) << "n=" << n << " erode=" << erode;
      }
    }
  });
}

TEST(MorphKernels, FixedCombinationsMatchScalar) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(4);
    const uint8_t palette[] = {0, 255, 1, 2, 3, 0xF0, 0x0F};
    for (int n : kWidths) {
      std::vector<Bytes> rows(5, Bytes(n + 4));
      for (auto& r : rows) {
        for (auto& v : r) v = rng() % 4 == 0 ? palette[rng() % 7] : 255;
      }
      const uint8_t* p[5];
      for (int i = 0; i < 5; ++i) p[i] = rows[i].data() + 2;
      for (int useOr = 0; useOr <= 1; ++useOr) {
        for (int cross = 0; cross <= 1; ++cross) {
          Bytes a(n), b(n), ca(n + 2, 0x5C), cb(n + 2, 0xC5);
          bivista::Combine3x3(p[1], p[2], p[3], a.data(), n, cross, useOr, ca.data() + 1);
          bivista::scalar::Combine3x3(p[1], p[2], p[3], b.data(), n, cross, useOr, cb.data() + 1);
          EXPECT_EQ(a, b) << "3x3 n=" << n << " or=" << useOr << " cross=" << cross;
          EXPECT_EQ(ca, Bytes(rows[3].begin() + 1, rows[3].begin() + n + 3));
          EXPECT_EQ(ca, cb);
        }
        Bytes a(n), b(n);
        bivista::Combine5x5(p, a.data(), n, useOr);
        bivista::scalar::Combine5x5(p, b.data(), n, useOr);
        EXPECT_EQ(a, b) << "5x5 n=" << n << " or=" << useOr;
      }
    }
  });
}

TEST(MorphKernels, DistanceStepsAndThresholdsMatchScalar) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(5);
    for (int n : kWidths) {
      Bytes above = RandomBytes(n, rng);
      for (int i = 0; i < n; i += 4) above[i] = 255;
      Bytes row = RandomBytes(n, rng);
      for (int i = 1; i < n; i += 3) row[i] = 255;
      for (int cap : {0, 44, 200, 255}) {
        for (int target : {0, 255}) {
          Bytes a = row, b = row;
          bivista::DistSeedRow(above.data(), a.data(), n, target, cap);
          bivista::scalar::DistSeedRow(above.data(), b.data(), n, target, cap);
          EXPECT_EQ(a, b) << "seed n=" << n << " cap=" << cap;
        }
      }
      Bytes a = row, b = row;
      bivista::DistBelowRow(above.data(), a.data(), n);
      bivista::scalar::DistBelowRow(above.data(), b.data(), n);
      EXPECT_EQ(a, b) << "below n=" << n;
      for (int N : {-3, 0, 1, 100, 254, 255, 400}) {
        Bytes c = row, d = row;
        bivista::ThresholdRow(c.data(), n, N, 255, 0);
        bivista::scalar::ThresholdRow(d.data(), n, N, 255, 0);
        EXPECT_EQ(c, d) << "threshold n=" << n << " N=" << N;
      }
    }
  });
}

}  // namespace
