// Every row kernel against its scalar twin, byte for byte, on every compiled vector target and on
// widths that leave every head and tail.
#include <gtest/gtest.h>

#include "morph_test_util.h"
#include "morphology/morph_kernels.h"
#include "support/hwy_targets.h"

namespace {

using morphtest::Bytes;
using morphtest::RandomBytes;

constexpr int kWidths[] = {1, 2, 3, 15, 16, 17, 18, 31, 32, 33, 63, 64, 65, 100, 131};

// Runs fn writing `out` from initVec, then its scalar twin from initScalar, and compares; distinct
// inits catch bytes a twin leaves unwritten.
#define EXPECT_TWINS(initVec, initScalar, fn, ...)   \
  do {                                               \
    Bytes out = (initVec);                           \
    bivista::fn(__VA_ARGS__);                        \
    const Bytes vec = out;                           \
    out = (initScalar);                              \
    bivista::scalar::fn(__VA_ARGS__);                \
    EXPECT_EQ(vec, out) << #fn << " n=" << n;        \
  } while (0)

// Mostly-zero counters so that window ORs are sometimes empty.
Bytes SparseBytes(size_t n, std::mt19937& rng, double p) {
  Bytes b(n, 0);
  for (auto& v : b) v = rng() < p * rng.max() ? static_cast<uint8_t>(1 + rng() % 255) : 0;
  return b;
}

// Equal outputs, and both twins copy the lower row with one pixel either side.
void ExpectCombine3x3(const uint8_t* up, const uint8_t* mid, const uint8_t* down, int n, int cross,
                      int useOr) {
  Bytes a(n), b(n, 1), ca(n + 2, 0x5C), cb(n + 2, 0xC5);
  bivista::Combine3x3(up, mid, down, a.data(), n, cross, useOr, ca.data() + 1);
  bivista::scalar::Combine3x3(up, mid, down, b.data(), n, cross, useOr, cb.data() + 1);
  EXPECT_EQ(a, b) << "n=" << n;
  EXPECT_EQ(ca, Bytes(down - 1, down + n + 1));
  EXPECT_EQ(cb, ca);
}

TEST(MorphKernels, MatchScalarOnEveryTarget) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(1);
    for (int n : kWidths) {
      const Bytes row = RandomBytes(n, rng, 0, 2), cnt = RandomBytes(n, rng);
      EXPECT_TWINS(cnt, cnt, CounterAdd, row.data(), out.data(), n, 1);
      EXPECT_TWINS(cnt, cnt, CounterSub, row.data(), out.data(), n, 2);
      for (int kW : {0, 1, 2, 3, 4, 7, 8, 15, 16, 31, 40, 64}) {
        for (double p : {0.0, 0.02, 0.2}) {
          if (2 * kW >= n) continue;
          const Bytes c = SparseBytes(n, rng, p), copy = RandomBytes(n, rng, 0, 3);
          EXPECT_TWINS(RandomBytes(n, rng), RandomBytes(n, rng), SpreadRow, c.data(), copy.data(),
                       out.data(), n, kW, 7);
        }
      }
      std::vector<uint32_t> q[4];
      for (auto& v : q) {
        for (int i = 0; i < n; ++i) v.push_back(rng() % 4 == 0 ? rng() : rng() % 50);
      }
      // Some windows exactly full, some sums exactly zero or negative.
      for (int i = 0; i < n; i += 3) q[0][i] = 21 + q[2][i] + q[3][i] - q[1][i];
      for (int i = 1; i < n; i += 5) q[0][i] = q[2][i] + q[3][i] - q[1][i];
      for (int erode = 0; erode <= 1; ++erode) {
        EXPECT_TWINS(Bytes(n, 9), Bytes(n, 9), BoxDecideRow, q[0].data(), q[1].data(), q[2].data(),
                     q[3].data(), out.data(), n, 21, erode);
      }
      const uint8_t palette[] = {0, 255, 1, 2, 3, 0xF0, 0x0F};
      std::vector<Bytes> rows(5, Bytes(n + 4));
      for (auto& r : rows) {
        for (auto& v : r) v = rng() % 4 == 0 ? palette[rng() % 7] : 255;
      }
      const uint8_t* p[5];
      for (int i = 0; i < 5; ++i) p[i] = rows[i].data() + 2;
      for (int useOr = 0; useOr <= 1; ++useOr) {
        for (int cross = 0; cross <= 1; ++cross) ExpectCombine3x3(p[1], p[2], p[3], n, cross, useOr);
        EXPECT_TWINS(Bytes(n), Bytes(n, 1), Combine5x5, p, out.data(), n, useOr);
      }
      Bytes above = RandomBytes(n, rng), dist = RandomBytes(n, rng);
      for (int i = 0; i < n; i += 4) above[i] = 255;
      for (int i = 1; i < n; i += 3) dist[i] = 255;
      for (int cap : {0, 44, 200, 255}) {
        for (int target : {0, 255}) {
          EXPECT_TWINS(dist, dist, DistSeedRow, above.data(), out.data(), n, target, cap);
        }
      }
      EXPECT_TWINS(dist, dist, DistBelowRow, above.data(), out.data(), n);
      for (int N : {-3, 0, 1, 100, 254, 255, 400}) {
        EXPECT_TWINS(dist, dist, ThresholdRow, out.data(), n, N, 255, 0);
      }
    }
  });
}

// Rows too wide for the on-stack buffers take the other vector paths.
TEST(MorphKernels, VeryWideRowsMatchScalar) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(6);
    const int n = 33001;
    const Bytes cnt = SparseBytes(n, rng, 0.001), copy = RandomBytes(n, rng, 0, 3);
    for (int kW : {0, 3, 40}) {
      EXPECT_TWINS(Bytes(n), Bytes(n, 1), SpreadRow, cnt.data(), copy.data(), out.data(), n, kW, 9);
    }
    std::vector<Bytes> rows(3, Bytes(n + 2));
    for (auto& r : rows) {
      for (auto& v : r) v = rng() % 8 ? 255 : 0;
    }
    for (int useOr = 0; useOr <= 1; ++useOr) ExpectCombine3x3(&rows[0][1], &rows[1][1], &rows[2][1], n, 0, useOr);
  });
}

}  // namespace
