// The vector passes equal their scalar definitions byte for byte on every compiled target, on
// widths that hit every vector head and tail, with guards past the end of every output; the
// scalar results equal a direct statement.
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <vector>

#include "depthcalc/depthcalc_kernels.h"
#include "support/hwy_targets.h"

namespace {

const int kWidths[] = {1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 100, 127, 129};

// Runs the vector and the scalar pass into guarded buffers and compares every byte, guards
// included.
template <typename T, typename F>
std::vector<T> Same(size_t n, F&& run) {
  std::vector<T> vec(n + 8), ref(n + 8);
  memset(vec.data(), 0xA5, vec.size() * sizeof(T));
  memset(ref.data(), 0xA5, ref.size() * sizeof(T));
  run(false, vec.data());
  run(true, ref.data());
  EXPECT_EQ(0, memcmp(vec.data(), ref.data(), vec.size() * sizeof(T))) << n;
  return ref;
}

// Positions near the rounding and the area's edges, plus the values the clamp must survive.
float RandomOffset(std::mt19937& rng, int n) {
  switch (rng() % 8) {
    case 0: return NAN;
    case 1: return (rng() & 1) ? INFINITY : -INFINITY;
    case 2: return (rng() & 1) ? 3e9f : -3e9f;
    case 3: return static_cast<float>(static_cast<int>(rng() % (2 * n + 4)) - n - 2) + 0.5f;
    case 4: return nextafterf(static_cast<float>(static_cast<int>(rng() % 5) - 2) + 0.5f, 0.0f);
    default: return std::uniform_real_distribution<float>(-1.5f * n - 2, 1.5f * n + 2)(rng);
  }
}

TEST(DepthcalcKernels, LandingIndexRoundsByAddingAHalfAndTruncating) {
  const double in[] = {-0.8, -1.4, -1.5, 2.5, 9.49, 9.5, NAN, INFINITY, -INFINITY};
  const int out[] = {0, 0, -1, 3, 9, -1, 0, -1, -1};
  for (int i = 0; i < 9; ++i) EXPECT_EQ(out[i], bivista::LandIndex(in[i], 10)) << in[i];
}

TEST(DepthcalcKernels, LandingTargetsEqualScalarInEveryForm) {
  std::mt19937 rng(11);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int w : kWidths)
      for (int h : {1, 3, 6}) {
        const size_t n = size_t(w) * h;
        std::vector<float> rowAdd(n), colAdd(n);
        for (size_t i = 0; i < n; ++i)
          rowAdd[i] = RandomOffset(rng, h), colAdd[i] = RandomOffset(rng, w);
        for (int form = 0; form < 4; ++form) {
          const float* ra = (form & 1) ? rowAdd.data() : nullptr;
          const float* ca = (form & 2) ? colAdd.data() : nullptr;
          const auto ref = Same<int32_t>(n, [&](bool s, int32_t* o) {
            s ? bivista::scalar::LandingTargets(ra, ca, w, h, 0, h, o)
              : bivista::LandingTargets(ra, ca, w, h, 0, h, o);
          });
          if (h > 1) {  // a block of rows lands as in the whole area
            const auto part = Same<int32_t>(size_t(w) * (h - 1), [&](bool s, int32_t* o) {
              s ? bivista::scalar::LandingTargets(ra, ca, w, h, 1, h - 1, o)
                : bivista::LandingTargets(ra, ca, w, h, 1, h - 1, o);
            });
            ASSERT_TRUE(std::equal(part.begin(), part.end(), ref.begin() + w));
          }
          for (int r = 0; r < h; ++r)  // index of the landing cell, -1 outside
            for (int c = 0; c < w; ++c) {
              const size_t i = size_t(r) * w + c;
              const int r2 = ra ? bivista::LandIndex(double(r) + ra[i], h) : r;
              const int c2 = ca ? bivista::LandIndex(double(c) + ca[i], w) : c;
              ASSERT_EQ(r2 < 0 || c2 < 0 ? -1 : r2 * w + c2, ref[i])
                  << w << " " << h << " " << form;
            }
        }
      }
  });
}

TEST(DepthcalcKernels, QuarterLandingColumnsEqualScalar) {
  std::mt19937 rng(21);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int w : kWidths) {
      std::vector<float> add(w);
      for (int c = 0; c < w; ++c) {
        // Quarter pixels: around the last column and the rounding, and up to the limit.
        switch (rng() % 4) {
          case 0: add[c] = static_cast<float>(w - 1 - c) + 0.25f * (rng() % 5); break;
          case 1: add[c] = 0.25f * (rng() % 8); break;
          case 2: add[c] = bivista::kQuarterShiftLimit - 0.25f * (1 + rng() % 4); break;
          default: add[c] = 0.25f * (rng() % (8 * w + 8)); break;
        }
      }
      const auto ref = Same<int32_t>(w, [&](bool s, int32_t* o) {
        s ? bivista::scalar::LandingColumnsQuarter(add.data(), w, o)
          : bivista::LandingColumnsQuarter(add.data(), w, o);
      });
      for (int c = 0; c < w; ++c) {
        const int e = static_cast<int>(c + add[c] + 0.5);
        ASSERT_EQ(e < w ? e : -1, ref[c]) << w << " " << c << " " << add[c];
      }
    }
  });
}

TEST(DepthcalcKernels, WarpFieldEqualsScalarAndFindsEveryDegenerateZ) {
  std::mt19937 rng(12);
  std::uniform_real_distribution<float> near(-0.02f, 0.02f);
  const float eps = nextafterf(static_cast<float>(2.220446e-16), 1.0f);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int w : kWidths) {
      // A near-identity warp with a small projective term, far from any degenerate z.
      float H[9] = {1.0f + near(rng),  near(rng),         30.0f * near(rng),
                    near(rng),         1.0f + near(rng),  30.0f * near(rng),
                    1e-5f * near(rng), 1e-5f * near(rng), 1.0f};
      const int x0 = static_cast<int>(rng() % 3900);
      const float Y = static_cast<float>(rng() % 2900);
      std::vector<float> vy[2];
      Same<float>(w, [&](bool s, float* vx) {
        vy[s].assign(w + 8, 0.5f);
        EXPECT_FALSE((s ? bivista::scalar::AreaVxVyRow : bivista::AreaVxVyRow)(H, eps, x0, Y, w, vx,
                                                                               vy[s].data()));
      });
      EXPECT_EQ(vy[0], vy[1]);
      // z = X - (x0 + at) vanishes at one column: head, body or tail.
      for (int at : {0, w / 2, w - 1}) {
        const float G[9] = {
            H[0], H[1], H[2], H[3], H[4], H[5], 1.0f, 0.0f, -static_cast<float>(x0 + at)};
        float vx[129], vy2[129];
        EXPECT_TRUE(bivista::AreaVxVyRow(G, eps, x0, Y, w, vx, vy2)) << w << " " << at;
        EXPECT_TRUE(bivista::scalar::AreaVxVyRow(G, eps, x0, Y, w, vx, vy2));
      }
    }
  });
}

TEST(DepthcalcKernels, ByteSumEqualsScalar) {
  std::mt19937 rng(14);
  bvtest::ForEachHwyTarget([&](const char*) {
    std::vector<int> widths(std::begin(kWidths), std::end(kWidths));
    widths.push_back(3968);
    for (int n : widths) {
      std::vector<uint8_t> p(n);
      for (uint8_t& v : p) v = static_cast<uint8_t>(rng());
      EXPECT_EQ(bivista::scalar::SumBytes(p.data(), n), bivista::SumBytes(p.data(), n)) << n;
      std::fill(p.begin(), p.end(), 255);
      EXPECT_EQ(255u * n, bivista::SumBytes(p.data(), n)) << n;
    }
    EXPECT_EQ(0u, bivista::SumBytes(nullptr, 0));
    EXPECT_EQ(0u, bivista::SumBytes(nullptr, -5));
  });
}

// Smallest cost |k + 2 - v/4| over the search and the first k reaching it.
template <typename T>
void CheckSearch(std::mt19937& rng, int maxValue) {
  for (int n : kWidths) {
    std::vector<T> in(n + bivista::kCorrectSearch - 1);
    for (T& v : in) v = static_cast<T>(rng() % (maxValue + 1));
    std::vector<int16_t> k[2];
    const auto least = Same<int16_t>(n, [&](bool s, int16_t* o) {
      k[s].assign(n + 8, 0x5A5A);
      if constexpr (sizeof(T) == 1)
        (s ? bivista::scalar::SearchLeast8 : bivista::SearchLeast8)(in.data(), n, o, k[s].data());
      else
        (s ? bivista::scalar::SearchLeast16 : bivista::SearchLeast16)(in.data(), n, o, k[s].data());
    });
    EXPECT_EQ(k[0], k[1]);
    for (int i = 0; i < n; ++i) {
      int best = 1 << 30, bestK = -1;
      for (int j = 0; j < bivista::kCorrectSearch; ++j) {
        const int c = abs(j + 2 - static_cast<int>(in[i + j] / 4));
        if (c < best) best = c, bestK = j;
      }
      ASSERT_TRUE(best == least[i] && bestK == k[1][i]) << i;
    }
  }
}

TEST(DepthcalcKernels, CorrectionSearchEqualsScalar) {
  std::mt19937 rng(15);
  bvtest::ForEachHwyTarget([&](const char*) {
    CheckSearch<uint8_t>(rng, 255);  // exact matches and ties
    CheckSearch<uint8_t>(rng, 40);
    CheckSearch<uint16_t>(rng, 65535);  // costs far above any k
    CheckSearch<uint16_t>(rng, 220);
  });
}

// Both per-sample conversions of the raw map: a disparity plane (v + offset) / 4, 0 below zero,
// and the multi-depth bins |v + offset| / 4 capped at 63.
template <typename T>
void CheckConversions(std::mt19937& rng, int offset) {
  for (int w : kWidths) {
    const int h = 3, stride = w + 5;
    std::vector<T> in(size_t(stride) * h);
    for (T& v : in) v = static_cast<T>(rng());
    const auto plane = Same<float>(size_t(w) * h, [&](bool s, float* o) {
      if constexpr (sizeof(T) == 1)
        (s ? bivista::scalar::DisparityPlane8 : bivista::DisparityPlane8)(in.data(), stride, offset,
                                                                          w, h, o);
      else
        (s ? bivista::scalar::DisparityPlane16 : bivista::DisparityPlane16)(in.data(), stride,
                                                                            offset, w, h, o);
    });
    const auto bins = Same<uint8_t>(w, [&](bool s, uint8_t* o) {
      if constexpr (sizeof(T) == 1)
        (s ? bivista::scalar::MultiDepthBins8 : bivista::MultiDepthBins8)(in.data(), offset, w, o);
      else
        (s ? bivista::scalar::MultiDepthBins16 : bivista::MultiDepthBins16)(in.data(), offset, w,
                                                                            o);
    });
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        // Sums past the int limits wrap round (two's complement); above 2^24 the sum rounds to
        // float before the quarter.
        const int v = static_cast<int32_t>(uint32_t(in[size_t(y) * stride + x]) + uint32_t(offset));
        ASSERT_EQ(v < 0 ? 0.0f : float(v) / 4.0f, plane[size_t(y) * w + x]);
        if (y == 0) { ASSERT_EQ(std::min<int64_t>(llabs(v) / 4, 63), bins[x]); }
      }
  }
}

TEST(DepthcalcKernels, DisparityPlaneAndMultiDepthBinsEqualScalar) {
  std::mt19937 rng(13);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int offset : {0, -100, -128, 37, 90, -40000, -70000, INT32_MAX - 100, INT32_MIN}) {
      SCOPED_TRACE(offset);
      CheckConversions<uint8_t>(rng, offset);
      CheckConversions<uint16_t>(rng, offset);
    }
  });
}

}  // namespace
