// Random masks and small helpers shared by the morphology tests.
#ifndef BIVISTA_TESTS_MORPHOLOGY_MORPH_TEST_UTIL_H
#define BIVISTA_TESTS_MORPHOLOGY_MORPH_TEST_UTIL_H

#include <stdint.h>

#include <random>
#include <vector>

#include "bivista/morphology.h"

namespace morphtest {

using Bytes = std::vector<uint8_t>;

enum class Kind { kSparse, kDense, kBlobby };
constexpr Kind kKinds[] = {Kind::kSparse, Kind::kDense, Kind::kBlobby};

// A width x height mask of fg on bg: isolated pixels, mostly foreground, or disks with noise.
inline Bytes MakeMask(int w, int h, Kind kind, std::mt19937& rng, uint8_t fg = 1, uint8_t bg = 0) {
  std::uniform_real_distribution<double> u(0.0, 1.0);
  Bytes m(static_cast<size_t>(w) * h, bg);
  const double p = kind == Kind::kSparse ? 0.06 : kind == Kind::kDense ? 0.75 : 0.02;
  for (int blob = 0; kind == Kind::kBlobby && blob <= w * h / 120; ++blob) {
    const int cx = static_cast<int>(u(rng) * w), cy = static_cast<int>(u(rng) * h);
    const int r = 1 + static_cast<int>(u(rng) * 5);
    for (int i = 0; i < w * h; ++i) {
      if ((i % w - cx) * (i % w - cx) + (i / w - cy) * (i / w - cy) <= r * r) m[i] = fg;
    }
  }
  for (auto& b : m) b = u(rng) < p ? (b == fg ? bg : fg) : b;
  return m;
}

inline Bytes RandomBytes(size_t n, std::mt19937& rng, int lo = 0, int hi = 255) {
  std::uniform_int_distribution<int> d(lo, hi);
  Bytes b(n);
  for (auto& v : b) v = static_cast<uint8_t>(d(rng));
  return b;
}

// Odd and awkward sizes: single rows and columns, and sizes around the vector widths.
constexpr int kSizes[][2] = {{1, 1}, {1, 9}, {9, 1}, {2, 7}, {5, 3}, {13, 9},
                             {17, 16}, {33, 11}, {31, 29}, {64, 5}, {100, 7}};

enum Shape { kCross, kRect3, kRect5 };

// The fixed-kernel entry point for a shape; 5x5 has no iteration count.
inline void RunShape(Shape shape, bool useOr, uint8_t* img, uint8_t* scratch, int w, int h,
                     int stride, int iterations) {
  if (shape == kRect5) return (useOr ? DilateWith5x5Rect : ErodeWith5x5Rect)(img, scratch, w, h, stride);
  (shape == kRect3 ? (useOr ? DilateWith3x3Rect : ErodeWith3x3Rect)
                   : (useOr ? DilateWith3x3Cross : ErodeWith3x3Cross))(img, scratch, w, h, stride, iterations);
}

}  // namespace morphtest

#endif
