// Brute-force window routines and the separable spreading, checked against the counter engine
// and against their own strided/packed twins.
#include <gtest/gtest.h>
#include <stdint.h>

#include <random>
#include <vector>

#include "bivista/morphology.h"
#include "morph_test_util.h"
#include "support/alloc_table.h"

namespace {

using morphtest::Bytes;

// The counter engine on the 0/1 view of m.
Bytes Spread(const Bytes& m, int w, int h, int rx, int ry, uint8_t v) {
  Bytes b(m.size());
  for (size_t i = 0; i < m.size(); ++i) b[i] = m[i] != 0;
  EXPECT_EQ(Erosion_Dilation_Function_opt(b.data(), w, h, rx, ry, v), 0);
  return b;
}

TEST(LegacyMorphology, BruteForceAgreesWithTheCounterEngine) {
  std::mt19937 rng(51);
  const uint8_t palette[] = {1, 7, 200, 255};
  for (const auto& s : morphtest::kSizes) {
    const int w = s[0], h = s[1];
    for (auto kind : morphtest::kKinds) {
      Bytes m = morphtest::MakeMask(w, h, kind, rng);
      for (auto& b : m) b = b ? palette[rng() % 4] : 0;
      for (int rx : {0, 1, 2, 6}) {
        for (int ry : {0, 1, 3}) {
          if (2 * rx >= w || 2 * ry >= h) continue;
          const Bytes grown = Spread(m, w, h, rx, ry, 1);
          const Bytes shrunk = Spread(m, w, h, rx, ry, 0);
          Bytes img = m, copy(w * h);
          Dilation_Function(img.data(), w, h, rx, ry, copy.data());
          EXPECT_EQ(copy, m);
          for (int i = 0; i < w * h; ++i) {
            ASSERT_EQ(img[i], m[i] ? m[i] : (grown[i] ? 255 : 0)) << i;
          }
          img = m;
          Erosion_Function(img.data(), w, h, rx, ry, copy.data());
          for (int i = 0; i < w * h; ++i) ASSERT_EQ(img[i], shrunk[i] ? m[i] : 0) << i;
          // Separable spreading equals the counter engine; the source keeps the row pass.
          for (uint8_t v : {0, 1}) {
            Bytes src(w * h), dst(w * h, 0x33);
            for (int i = 0; i < w * h; ++i) src[i] = m[i] != 0;
            const Bytes bin = src;
            EXPECT_EQ(Erosion_Dilation_Function(src.data(), w, h, rx, ry, v, dst.data()), 0);
            EXPECT_EQ(dst, Spread(bin, w, h, rx, ry, v));
            EXPECT_EQ(src, Spread(bin, w, h, rx, 0, v));
          }
        }
      }
    }
  }
}

TEST(LegacyMorphology, StridedVersionsMatchPackedAndLeavePaddingAlone) {
  std::mt19937 rng(52);
  const int w = 19, h = 11, stride = 24;
  const Bytes m = morphtest::MakeMask(w, h, morphtest::Kind::kBlobby, rng);
  for (bool dilate : {true, false}) {
    Bytes img(stride * h);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < stride; ++x) img[y * stride + x] = x < w ? m[y * w + x] : (x == w ? 1 : 0);
    }
    Bytes packed = m, copy(w * h);
    (dilate ? Dilation_Function : Erosion_Function)(packed.data(), w, h, 2, 1, copy.data());
    int live;
    {
      bvtest::MallocWatch watch;
      EXPECT_EQ((dilate ? dilation : erosion)(img.data(), w, h, stride, 2, 1), 0);
      EXPECT_EQ(watch.calls(), 1);
      live = watch.live();
    }
    EXPECT_EQ(live, 0);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < stride; ++x) {
        ASSERT_EQ(img[y * stride + x], x < w ? packed[y * w + x] : (x == w ? 1 : 0)) << x << "," << y;
      }
    }
    // safeNew failure: -1 and the image as it was.
    const Bytes before = img;
    bvtest::MallocWatch watch;
    watch.FailAt(1);
    EXPECT_EQ((dilate ? dilation : erosion)(img.data(), w, h, stride, 2, 1), -1);
    EXPECT_EQ(img, before);
  }
}

TEST(LegacyMorphology, SmallCases) {
  const int w = 5, h = 7;
  Bytes m(w * h, 0), copy(w * h);
  m[3 * w + 2] = 1;
  Bytes img = m;
  Dilation_Function(img.data(), w, h, 1, 2, copy.data());
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const bool in = x >= 1 && x <= 3 && y >= 1 && y <= 5;
      EXPECT_EQ(img[y * w + x], x == 2 && y == 3 ? 1 : (in ? 255 : 0)) << x << "," << y;
    }
  }
  img = m;
  Dilation_Function(img.data(), w, h, 0, 0, copy.data());
  Erosion_Function(img.data(), w, h, 0, 0, copy.data());
  EXPECT_EQ(img, m);
}

}  // namespace
