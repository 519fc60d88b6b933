// Fixed 3x3/5x5 kernels: bitwise AND/OR of the neighbourhood, frozen frame, strided rows whose
// padding is never written; no iterations touch nothing.
#include <gtest/gtest.h>

#include "bivista/morphology.h"
#include "morph_test_util.h"

namespace {

using namespace morphtest;

// One pass on a packed image: every pixel at least `reach` from the border combines its element.
Bytes DirectPass(const Bytes& m, int w, int h, Shape shape, bool useOr) {
  const int reach = shape == kRect5 ? 2 : 1;
  Bytes out(m);
  for (int y = reach; y < h - reach; ++y) {
    for (int x = reach; x < w - reach; ++x) {
      uint8_t r = useOr ? 0 : 0xFF;
      for (int dy = -reach; dy <= reach; ++dy) {
        for (int dx = -reach; dx <= reach; ++dx) {
          if (shape != kCross || !dx || !dy) r = useOr ? r | m[(y + dy) * w + x + dx] : r & m[(y + dy) * w + x + dx];
        }
      }
      out[y * w + x] = r;
    }
  }
  return out;
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
        Bytes packed = MakeMask(w, h, kKinds[kind], rng, 255, 0);
        for (auto& b : packed) b = kind == 1 && b ? palette[rng() % 5] : b;
        for (Shape shape : {kCross, kRect3, kRect5}) {
          for (bool useOr : {false, true}) {
            for (int iterations : {-2, 0, 1, 2, 3}) {
              if (shape == kRect5 && iterations != 1) continue;
              Bytes img(stride * h, 0xEE), scratch(stride * h, 0x77);
              for (int i = 0; i < w * h; ++i) img[i / w * stride + i % w] = packed[i];
              RunShape(shape, useOr, img.data(), scratch.data(), w, h, stride, iterations);
              // The scratch holds the last pass's input.
              Bytes want = packed, last;
              for (int it = 0; it < iterations; ++it) last = want, want = DirectPass(want, w, h, shape, useOr);
              for (int i = 0; i < stride * h; ++i) {
                const int x = i % stride, y = i / stride;
                ASSERT_EQ(img[i], x < w ? want[y * w + x] : 0xEE)
                    << w << "x" << h << "+" << pad << " shape " << shape << " or " << useOr
                    << " it " << iterations << " at " << x << "," << y;
                ASSERT_EQ(scratch[i], x < w && iterations > 0 ? last[y * w + x] : 0x77);
              }
            }
          }
        }
      }
    }
  }
}

}  // namespace
