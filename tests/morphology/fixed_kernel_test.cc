// Fixed 3x3/5x5 kernels: bitwise AND/OR of the neighbourhood, frozen frame, strided rows whose
// padding is never written.
#include <gtest/gtest.h>
#include <stdint.h>

#include <random>
#include <vector>

#include "bivista/morphology.h"
#include "morph_test_util.h"

namespace {

using morphtest::Bytes;

enum Shape { kCross, kRect3, kRect5 };

// One pass on a packed image: every pixel at least `reach` from the border combines its element.
Bytes DirectPass(const Bytes& m, int w, int h, Shape shape, bool useOr) {
  const int reach = shape == kRect5 ? 2 : 1;
  Bytes out(m);
  for (int y = reach; y < h - reach; ++y) {
    for (int x = reach; x < w - reach; ++x) {
      uint8_t r = useOr ? 0 : 0xFF;
      for (int dy = -reach; dy <= reach; ++dy) {
        for (int dx = -reach; dx <= reach; ++dx) {
          if (shape == kCross && dx != 0 && dy != 0) continue;
          const uint8_t p = m[(y + dy) * w + x + dx];
          r = useOr ? (r | p) : (r & p);
        }
      }
      out[y * w + x] = r;
    }
  }
  return out;
}

void RunShape(Shape shape, bool useOr, uint8_t* img, uint8_t* scratch, int w, int h, int stride,
         int iterations) {
  if (shape == kRect5) {
    (useOr ? DilateWith5x5Rect : ErodeWith5x5Rect)(img, scratch, w, h, stride);
  } else if (shape == kRect3) {
    (useOr ? DilateWith3x3Rect : ErodeWith3x3Rect)(img, scratch, w, h, stride, iterations);
  } else {
    (useOr ? DilateWith3x3Cross : ErodeWith3x3Cross)(img, scratch, w, h, stride, iterations);
  }
}

TEST(FixedKernels, MatchDirectPassesOnStridedImages) {
  std::mt19937 rng(21);
  const uint8_t palette[] = {0, 255, 1, 2, 0x81};
  const int sizes[][2] = {{1, 1}, {2, 9}, {9, 2}, {3, 3}, {4, 4}, {5, 5}, {18, 7},
                          {17, 19}, {33, 6}, {40, 23}, {100, 9}};
  for (const auto& s : sizes) {
    const int w = s[0], h = s[1];
    for (int pad : {0, 3, 16}) {
      const int stride = w + pad;
      for (int kind = 0; kind < 3; ++kind) {
        Bytes packed = morphtest::MakeMask(w, h, morphtest::kKinds[kind], rng, 255, 0);
        if (kind == 1) {
          for (auto& b : packed) b = b ? palette[rng() % 5] : 0;
        }
        for (Shape shape : {kCross, kRect3, kRect5}) {
          for (bool useOr : {false, true}) {
            for (int iterations : {1, 2, 3}) {
              if (shape == kRect5 && iterations > 1) continue;
              Bytes img(stride * h, 0xEE), scratch(stride * h, 0x77);
              for (int y = 0; y < h; ++y) {
                std::copy(packed.begin() + y * w, packed.begin() + (y + 1) * w,
                          img.begin() + y * stride);
              }
              RunShape(shape, useOr, img.data(), scratch.data(), w, h, stride, iterations);
              Bytes want = packed, lastInput = packed;
              for (int it = 0; it < iterations; ++it) {
                lastInput = want;
                want = DirectPass(want, w, h, shape, useOr);
              }
              for (int y = 0; y < h; ++y) {
                for (int x = 0; x < stride; ++x) {
                  const bool pixel = x < w;
                  ASSERT_EQ(img[y * stride + x], pixel ? want[y * w + x] : 0xEE)
                      << w << "x" << h << " stride " << stride << " shape " << shape << " or "
                      << useOr << " it " << iterations << " at " << x << "," << y;
                  ASSERT_EQ(scratch[y * stride + x], pixel ? lastInput[y * w + x] : 0x77);
                }
              }
            }
          }
        }
      }
    }
  }
}

TEST(FixedKernels, NoIterationsTouchesNothing) {
  Bytes img(8 * 6, 255), scratch(8 * 6, 3);
  img[20] = 0;
  const Bytes before = img;
  for (int it : {0, -2}) {
    ErodeWith3x3Rect(img.data(), scratch.data(), 8, 6, 8, it);
    DilateWith3x3Rect(img.data(), scratch.data(), 8, 6, 8, it);
    ErodeWith3x3Cross(img.data(), scratch.data(), 8, 6, 8, it);
    DilateWith3x3Cross(img.data(), scratch.data(), 8, 6, 8, it);
  }
  EXPECT_EQ(img, before);
  EXPECT_EQ(scratch, Bytes(8 * 6, 3));
}

}  // namespace
