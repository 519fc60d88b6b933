// The vector passes equal their scalar definitions byte for byte on every compiled target, on
// widths that hit every vector head and tail, with guards past the end of every output.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <limits>
#include <random>
#include <vector>

#include "depthcalc/depthcalc_kernels.h"
#include "support/hwy_targets.h"

namespace {

const int kWidths[] = {1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 100, 127, 129};
constexpr uint8_t kGuard = 0xA5;

template <typename T>
std::vector<T> Guarded(size_t n) {
  std::vector<T> v(n + 8);
  memset(v.data(), kGuard, v.size() * sizeof(T));
  return v;
}

template <typename T>
void ExpectSameBytes(const std::vector<T>& a, const std::vector<T>& b) {
  ASSERT_EQ(a.size(), b.size());
  EXPECT_EQ(0, memcmp(a.data(), b.data(), a.size() * sizeof(T)));
}

// Positions near the rounding and the area's edges, plus the values the clamp must survive.
float RandomOffset(std::mt19937& rng, int n) {
  switch (rng() % 8) {
    case 0:
      return std::numeric_limits<float>::quiet_NaN();
    case 1:
      return (rng() & 1) ? INFINITY : -INFINITY;
    case 2:
      return (rng() & 1) ? 3e9f : -3e9f;
    case 3:
      return static_cast<float>(static_cast<int>(rng() % (2 * n + 4)) - n - 2) + 0.5f;
    case 4:
      return nextafterf(static_cast<float>(static_cast<int>(rng() % 5) - 2) + 0.5f, 0.0f);
    default:
      return std::uniform_real_distribution<float>(-1.5f * n - 2, 1.5f * n + 2)(rng);
  }
}

TEST(DepthcalcKernels, LandingIndexRoundsByAddingAHalfAndTruncating) {
  EXPECT_EQ(0, bivista::LandIndex(-0.8, 10));
  EXPECT_EQ(0, bivista::LandIndex(-1.4, 10));
  EXPECT_EQ(-1, bivista::LandIndex(-1.5, 10));
  EXPECT_EQ(3, bivista::LandIndex(2.5, 10));
  EXPECT_EQ(9, bivista::LandIndex(9.49, 10));
  EXPECT_EQ(-1, bivista::LandIndex(9.5, 10));
  EXPECT_EQ(0, bivista::LandIndex(NAN, 10));
  EXPECT_EQ(-1, bivista::LandIndex(INFINITY, 10));
  EXPECT_EQ(-1, bivista::LandIndex(-INFINITY, 10));
}

TEST(DepthcalcKernels, LandingTargetsEqualScalarInEveryForm) {
  std::mt19937 rng(11);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int w : kWidths) {
      for (int h : {1, 3, 6}) {
        const size_t n = static_cast<size_t>(w) * h;
        std::vector<float> rowAdd(n), colAdd(n);
        for (size_t i = 0; i < n; ++i) {
          rowAdd[i] = RandomOffset(rng, h);
          colAdd[i] = RandomOffset(rng, w);
        }
        for (int form = 0; form < 4; ++form) {
          SCOPED_TRACE(testing::Message() << "w " << w << " h " << h << " form " << form);
          const float* ra = (form & 1) ? rowAdd.data() : nullptr;
          const float* ca = (form & 2) ? colAdd.data() : nullptr;
          std::vector<int32_t> vec = Guarded<int32_t>(n), ref = Guarded<int32_t>(n);
          bivista::LandingTargets(ra, ca, w, h, vec.data());
          bivista::scalar::LandingTargets(ra, ca, w, h, ref.data());
          ExpectSameBytes(vec, ref);
          // The direct statement: index of the landing cell, -1 outside.
          for (int r = 0; r < h; ++r) {
            for (int c = 0; c < w; ++c) {
              const size_t i = static_cast<size_t>(r) * w + c;
              const int r2 = ra ? bivista::LandIndex(static_cast<double>(r) + ra[i], h) : r;
              const int c2 = ca ? bivista::LandIndex(static_cast<double>(c) + ca[i], w) : c;
              ASSERT_EQ(r2 < 0 || c2 < 0 ? -1 : r2 * w + c2, ref[i]);
            }
          }
        }
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
      std::vector<float> vx = Guarded<float>(w), vy = Guarded<float>(w);
      std::vector<float> rx = Guarded<float>(w), ry = Guarded<float>(w);
      EXPECT_FALSE(bivista::AreaVxVyRow(H, eps, x0, Y, w, vx.data(), vy.data()));
      EXPECT_FALSE(bivista::scalar::AreaVxVyRow(H, eps, x0, Y, w, rx.data(), ry.data()));
      ExpectSameBytes(vx, rx);
      ExpectSameBytes(vy, ry);
      // z = X - (x0 + at) vanishes at one column: head, body or tail.
      for (int at : {0, w / 2, w - 1}) {
        const float G[9] = {
            H[0], H[1], H[2], H[3], H[4], H[5], 1.0f, 0.0f, -static_cast<float>(x0 + at)};
        EXPECT_TRUE(bivista::AreaVxVyRow(G, eps, x0, Y, w, vx.data(), vy.data())) << w << " " << at;
        EXPECT_TRUE(bivista::scalar::AreaVxVyRow(G, eps, x0, Y, w, rx.data(), ry.data()));
      }
    }
  });
}

template <typename T>
void CheckDisparityPlane(std::mt19937& rng, int offset) {
  for (int w : kWidths) {
    const int h = 3, stride = w + 5;
    std::vector<T> in(static_cast<size_t>(stride) * h);
    for (T& v : in) v = static_cast<T>(rng());
    const size_t n = static_cast<size_t>(w) * h;
    std::vector<float> vec = Guarded<float>(n), ref = Guarded<float>(n);
    if (sizeof(T) == 1) {
      bivista::DisparityPlane8(reinterpret_cast<const uint8_t*>(in.data()), stride, offset, w, h,
                               vec.data());
      bivista::scalar::DisparityPlane8(reinterpret_cast<const uint8_t*>(in.data()), stride, offset,
                                       w, h, ref.data());
    } else {
      bivista::DisparityPlane16(reinterpret_cast<const uint16_t*>(in.data()), stride, offset, w, h,
                                vec.data());
      bivista::scalar::DisparityPlane16(reinterpret_cast<const uint16_t*>(in.data()), stride,
                                        offset, w, h, ref.data());
    }
    ExpectSameBytes(vec, ref);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        const int v = in[static_cast<size_t>(y) * stride + x] + offset;
        ASSERT_EQ(v < 0 ? 0.0 : v / 4.0, ref[static_cast<size_t>(y) * w + x]);
      }
    }
  }
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

template <typename T>
void CheckSearch(std::mt19937& rng, int maxValue) {
  for (int n : kWidths) {
    std::vector<T> in(n + bivista::kCorrectSearch - 1);
    for (T& v : in) v = static_cast<T>(rng() % (maxValue + 1));
    std::vector<int16_t> least = Guarded<int16_t>(n), firstK = Guarded<int16_t>(n);
    std::vector<int16_t> refLeast = Guarded<int16_t>(n), refK = Guarded<int16_t>(n);
    if (sizeof(T) == 1) {
      const uint8_t* p = reinterpret_cast<const uint8_t*>(in.data());
      bivista::SearchLeast8(p, n, least.data(), firstK.data());
      bivista::scalar::SearchLeast8(p, n, refLeast.data(), refK.data());
    } else {
      const uint16_t* p = reinterpret_cast<const uint16_t*>(in.data());
      bivista::SearchLeast16(p, n, least.data(), firstK.data());
      bivista::scalar::SearchLeast16(p, n, refLeast.data(), refK.data());
    }
    ExpectSameBytes(least, refLeast);
    ExpectSameBytes(firstK, refK);
    // The direct statement: smallest cost, first k reaching it.
    for (int i = 0; i < n; ++i) {
      int best = 1 << 30, bestK = -1;
      for (int k = 0; k < bivista::kCorrectSearch; ++k) {
        const int c = abs(k + 2 - static_cast<int>(in[i + k] / 4));
        if (c < best) best = c, bestK = k;
      }
      ASSERT_EQ(best, refLeast[i]);
      ASSERT_EQ(bestK, refK[i]);
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

template <typename T>
void CheckMultiBins(std::mt19937& rng, int offset) {
  for (int n : kWidths) {
    std::vector<T> in(n);
    for (T& v : in) v = static_cast<T>(rng());
    std::vector<uint8_t> vec = Guarded<uint8_t>(n), ref = Guarded<uint8_t>(n);
    if (sizeof(T) == 1) {
      const uint8_t* p = reinterpret_cast<const uint8_t*>(in.data());
      bivista::MultiDepthBins8(p, offset, n, vec.data());
      bivista::scalar::MultiDepthBins8(p, offset, n, ref.data());
    } else {
      const uint16_t* p = reinterpret_cast<const uint16_t*>(in.data());
      bivista::MultiDepthBins16(p, offset, n, vec.data());
      bivista::scalar::MultiDepthBins16(p, offset, n, ref.data());
    }
    ExpectSameBytes(vec, ref);
    for (int i = 0; i < n; ++i) {
      const int d = abs(in[i] + offset) / 4;
      ASSERT_EQ(d > 62 ? 63 : d, ref[i]);
    }
  }
}

// Both per-sample conversions of the raw map, with offsets that make samples negative.
TEST(DepthcalcKernels, DisparityPlaneAndMultiDepthBinsEqualScalar) {
  std::mt19937 rng(13);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int offset : {0, -100, -128, 37, 90, -40000, -70000}) {
      SCOPED_TRACE(offset);
      CheckDisparityPlane<uint8_t>(rng, offset);
      CheckDisparityPlane<uint16_t>(rng, offset);
      CheckMultiBins<uint8_t>(rng, offset);
      CheckMultiBins<uint16_t>(rng, offset);
    }
  });
}

}  // namespace
