// City-block transforms against direct minima over sources of (start value + city-block
// distance), with the start values and reach each family defines.
#include <gtest/gtest.h>
#include <stdint.h>

#include <stdlib.h>

#include <algorithm>
#include <random>
#include <vector>

#include "bivista/morphology.h"
#include "morph_test_util.h"

namespace {

using morphtest::Bytes;

// Relaxes D = min(D, neighbour + 1) (saturating at 255) over the pixels flagged free until stable.
Bytes Relax(Bytes d, const std::vector<bool>& free, int w, int h) {
  for (bool changed = true; changed;) {
    changed = false;
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        if (!free[y * w + x]) continue;
        const int nb[4][2] = {{x - 1, y}, {x + 1, y}, {x, y - 1}, {x, y + 1}};
        for (const auto& q : nb) {
          if (q[0] < 0 || q[1] < 0 || q[0] >= w || q[1] >= h) continue;
          const int c = std::min(255, d[q[1] * w + q[0]] + 1);
          if (c < d[y * w + x]) {
            d[y * w + x] = static_cast<uint8_t>(c);
            changed = true;
          }
        }
      }
    }
  }
  return d;
}

std::vector<bool> Interior(int w, int h) {
  std::vector<bool> f(w * h, false);
  for (int y = 1; y < h - 1; ++y) {
    for (int x = 1; x < w - 1; ++x) f[y * w + x] = true;
  }
  return f;
}

// Interior distances: interior seeds and top/left frame values reach every interior pixel; the
// bottom and right frame rows are met only by the backward pass, so they reach the pixels above
// and to the left of them. A frame value of 255 is far. Seeds: erode ? non-255 : 255-pixels.
Bytes DirectInterior(const Bytes& m, int w, int h, bool erode) {
  if (h < 3 || w < 3) return m;
  Bytes d(m);
  for (int py = 1; py < h - 1; ++py) {
    for (int px = 1; px < w - 1; ++px) {
      const uint8_t own = m[py * w + px];
      int best = erode ? (own == 255 ? 255 : own) : (own == 255 ? 0 : 255);
      for (int y = 1; y < h - 1; ++y) {
        for (int x = 1; x < w - 1; ++x) {
          const uint8_t v = m[y * w + x];
          const bool seed = erode ? v != 255 : v == 255;
          if (seed) best = std::min(best, (erode ? v : 0) + std::abs(y - py) + std::abs(x - px));
        }
      }
      const auto frame = [&](int x, int y, int dist) {
        if (m[y * w + x] != 255) best = std::min(best, m[y * w + x] + dist);
      };
      for (int x = 1; x < w - 1; ++x) {
        frame(x, 0, py + std::abs(x - px));
        if (x >= px) frame(x, h - 1, h - 1 - py + x - px);
      }
      for (int y = 1; y < h - 1; ++y) {
        frame(0, y, px + std::abs(y - py));
        if (y >= py) frame(w - 1, y, w - 1 - px + y - py);
      }
      d[py * w + px] = static_cast<uint8_t>(std::min(best, 255));
    }
  }
  return d;
}

Bytes DirectWhole(const Bytes& m, int w, int h, uint8_t target) {
  Bytes d(m);
  const uint8_t far8 = static_cast<uint8_t>(w + h);
  const uint8_t cap = static_cast<uint8_t>(std::min(w + h, 255));
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      uint8_t& p = d[y * w + x];
      p = m[y * w + x] == target ? 0 : (x == 0 || y == 0 ? far8 : cap);
    }
  }
  return Relax(d, std::vector<bool>(w * h, true), w, h);
}

Bytes Thresholded(Bytes d, int N, uint8_t above, uint8_t notAbove, const std::vector<bool>* only) {
  for (size_t i = 0; i < d.size(); ++i) {
    if (!only || (*only)[i]) d[i] = d[i] > N ? above : notAbove;
  }
  return d;
}

const int kDistSizes[][2] = {{1, 1}, {2, 5}, {5, 2}, {3, 3}, {4, 9}, {17, 3},
                             {19, 13}, {33, 20}, {70, 9}, {150, 105}, {130, 126}, {200, 100}};

Bytes Sample(int w, int h, int kind, std::mt19937& rng) {
  Bytes m = morphtest::MakeMask(w, h, morphtest::kKinds[kind % 3], rng, 255, 0);
  if (kind == 3) m = morphtest::RandomBytes(w * h, rng);  // arbitrary frame values as seeds
  return m;
}

TEST(Manhattan, InteriorFamilyMatchesDirectMinimum) {
  std::mt19937 rng(41);
  for (const auto& s : kDistSizes) {
    const int w = s[0], h = s[1];
    if (w * h > 3000) continue;
    for (int kind = 0; kind < 4; ++kind) {
      const Bytes m = Sample(w, h, kind, rng);
      Bytes img = m;
      bivista_manhattan(img.data(), w, h);
      const Bytes dist = DirectInterior(m, w, h, false);
      ASSERT_EQ(img, dist) << w << "x" << h << " kind " << kind;
      const auto inner = Interior(w, h);
      for (int N : {-1, 0, 1, 3, 300}) {
        img = m;
        Dilate_quick_timesN(img.data(), w, h, N);
        ASSERT_EQ(img, Thresholded(dist, N, 0, 255, &inner)) << w << "x" << h << " N=" << N;
      }
      if (kind == 3) continue;  // the erosion measures 0/255 masks
      const Bytes edist = DirectInterior(m, w, h, true);
      for (int N : {0, 1, 2, 5, 255}) {
        img = m;
        EXPECT_EQ(Erode_quick_timesN(img.data(), w, h, static_cast<uint8_t>(N)), img.data());
        ASSERT_EQ(img, Thresholded(edist, N, 255, 0, nullptr)) << w << "x" << h << " N=" << N;
      }
    }
  }
}

TEST(Manhattan, WholeImageFamilyMatchesRelaxationWithBothFarValues) {
  std::mt19937 rng(42);
  for (const auto& s : kDistSizes) {
    const int w = s[0], h = s[1];
    for (int kind = 0; kind < 4; ++kind) {
      const Bytes m = Sample(w, h, kind, rng);
      for (uint8_t target : {0, 255, 7}) {
        Bytes img = m;
        EXPECT_EQ(manhattan(img.data(), w, h, target), img.data());
        ASSERT_EQ(img, DirectWhole(m, w, h, target))
            << w << "x" << h << " kind " << kind << " target " << int(target);
      }
      for (int N : {0, 1, 4, 255}) {
        Bytes img = m;
        EXPECT_EQ(dilate_manh(img.data(), w, h, static_cast<uint8_t>(N)), img.data());
        ASSERT_EQ(img, Thresholded(DirectWhole(m, w, h, 255), N, 0, 255, nullptr));
        img = m;
        EXPECT_EQ(erode_manh(img.data(), w, h, static_cast<uint8_t>(N)), img.data());
        ASSERT_EQ(img, Thresholded(DirectWhole(m, w, h, 0), N, 255, 0, nullptr));
      }
    }
  }
}

TEST(Manhattan, EdgeCases) {
  // Frame 0, interior 255: N = 1 clears the ring next to the frame.
  const int w = 8, h = 7;
  Bytes m(w * h, 0);
  for (int y = 1; y < h - 1; ++y) {
    for (int x = 1; x < w - 1; ++x) m[y * w + x] = 255;
  }
  Erode_quick_timesN(m.data(), w, h, 1);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const bool keep = y >= 2 && y <= h - 3 && x >= 2 && x <= w - 3;
      EXPECT_EQ(m[y * w + x], keep ? 255 : 0) << x << "," << y;
    }
  }
  // No target with width + height = 300: row 0 holds the wrapped far value 44.
  Bytes none(200 * 100, 9);
  manhattan(none.data(), 200, 100, 0);
  for (int x = 0; x < 200; ++x) ASSERT_EQ(none[x], 44) << x;
}

}  // namespace
