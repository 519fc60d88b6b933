// City-block transforms against direct minima over sources of (start value + city-block
// distance), with the start values and reach each family defines.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>

#include "bivista/morphology.h"
#include "morph_test_util.h"

namespace {

using namespace morphtest;

// Interior distances: interior seeds and top/left frame values reach every interior pixel; the
// bottom and right frame rows are met only by the backward pass, so they reach the pixels above
// and to the left of them. Corners and a frame value of 255 are far. Interior seeds: erode ?
// non-255 starting at their value : 255-pixels starting at 0.
Bytes DirectInterior(const Bytes& m, int w, int h, bool erode) {
  Bytes d(m);
  for (int p = 0; p < w * h; ++p) {
    const int px = p % w, py = p / w;
    if (px == 0 || py == 0 || px == w - 1 || py == h - 1) continue;
    int best = 255;
    for (int q = 0; q < w * h; ++q) {
      const int x = q % w, y = q / w, v = m[q];
      const bool inner = x > 0 && y > 0 && x < w - 1 && y < h - 1;
      const bool corner = (x == 0 || x == w - 1) && (y == 0 || y == h - 1);
      const bool reach = x == 0 || y == 0 || (y == h - 1 && x >= px) || (x == w - 1 && y >= py);
      const bool seed = inner ? (erode ? v != 255 : v == 255) : !corner && reach && v != 255;
      if (seed) best = std::min(best, (inner && !erode ? 0 : v) + abs(y - py) + abs(x - px));
    }
    d[p] = static_cast<uint8_t>(best);
  }
  return d;
}

// Shortest paths from the targets by relaxation; the far value wraps to a byte on row and column 0
// and saturates elsewhere.
Bytes DirectWhole(const Bytes& m, int w, int h, uint8_t target) {
  Bytes d(m.size());
  for (int i = 0; i < w * h; ++i) {
    d[i] = m[i] == target ? 0 : (i < w || i % w == 0 ? static_cast<uint8_t>(w + h) : std::min(w + h, 255));
  }
  for (bool changed = true; changed;) {
    changed = false;
    for (int i = 0; i < w * h; ++i) {
      for (int q : {i % w ? i - 1 : -1, i % w < w - 1 ? i + 1 : -1, i - w, i + w}) {
        if (q >= 0 && q < w * h && d[q] + 1 < d[i]) d[i] = d[q] + 1, changed = true;
      }
    }
  }
  return d;
}

Bytes Thresholded(Bytes d, int w, int h, int N, uint8_t above, uint8_t notAbove, bool innerOnly) {
  for (int i = 0; i < w * h; ++i) {
    const int x = i % w, y = i / w;
    if (!innerOnly || (x > 0 && y > 0 && x < w - 1 && y < h - 1)) d[i] = d[i] > N ? above : notAbove;
  }
  return d;
}

const int kDistSizes[][2] = {{1, 1}, {2, 5}, {5, 2}, {3, 3}, {4, 9}, {17, 3},
                             {19, 13}, {33, 20}, {70, 9}, {150, 105}, {130, 126}, {200, 100}};

// 0/255 masks, and kind 3: arbitrary values (frame values act as seeds).
Bytes Sample(int w, int h, int kind, std::mt19937& rng) {
  return kind == 3 ? RandomBytes(w * h, rng) : MakeMask(w, h, kKinds[kind], rng, 255, 0);
}

TEST(Manhattan, InteriorFamilyMatchesDirectMinimum) {
  std::mt19937 rng(41);
  for (const auto& s : kDistSizes) {
    const int w = s[0], h = s[1];
    for (int kind = 0; kind < 4 && w * h <= 3000; ++kind) {
      const Bytes m = Sample(w, h, kind, rng), dist = DirectInterior(m, w, h, false);
      Bytes img = m;
      bivista_manhattan(img.data(), w, h);
      ASSERT_EQ(img, dist) << w << "x" << h << " kind " << kind;
      for (int N : {-1, 0, 1, 3, 300}) {
        img = m;
        Dilate_quick_timesN(img.data(), w, h, N);
        ASSERT_EQ(img, Thresholded(dist, w, h, N, 0, 255, true)) << w << "x" << h << " N=" << N;
      }
      for (int N : {0, 1, 2, 5, 255}) {
        if (kind == 3) break;  // the erosion measures 0/255 masks
        img = m;
        EXPECT_EQ(Erode_quick_timesN(img.data(), w, h, static_cast<uint8_t>(N)), img.data());
        ASSERT_EQ(img, Thresholded(DirectInterior(m, w, h, true), w, h, N, 255, 0, false)) << N;
      }
    }
  }
}

// Includes 200x100 without a target: row 0 then holds the wrapped far value 44.
TEST(Manhattan, WholeImageFamilyMatchesRelaxationWithBothFarValues) {
  std::mt19937 rng(42);
  for (const auto& s : kDistSizes) {
    const int w = s[0], h = s[1];
    for (int kind = 0; kind < 4; ++kind) {
      const Bytes m = Sample(w, h, kind, rng);
      for (uint8_t target : {0, 255, 7}) {
        Bytes img = m;
        EXPECT_EQ(manhattan(img.data(), w, h, target), img.data());
        ASSERT_EQ(img, DirectWhole(m, w, h, target)) << w << "x" << h << " " << kind << " " << int(target);
      }
      for (int N : {0, 1, 4, 255}) {
        Bytes img = m, img2 = m;
        EXPECT_EQ(dilate_manh(img.data(), w, h, static_cast<uint8_t>(N)), img.data());
        ASSERT_EQ(img, Thresholded(DirectWhole(m, w, h, 255), w, h, N, 0, 255, false));
        EXPECT_EQ(erode_manh(img2.data(), w, h, static_cast<uint8_t>(N)), img2.data());
        ASSERT_EQ(img2, Thresholded(DirectWhole(m, w, h, 0), w, h, N, 255, 0, false));
      }
    }
  }
}

}  // namespace
