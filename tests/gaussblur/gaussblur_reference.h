// The blur as defined, written directly: a full horizontal plane, then the vertical pass, each
// (sum of taps x mirrored pixels + 128) >> 8 kept in 8 bits.
#ifndef BIVISTA_TESTS_GAUSSBLUR_GAUSSBLUR_REFERENCE_H
#define BIVISTA_TESTS_GAUSSBLUR_GAUSSBLUR_REFERENCE_H

#include <stdint.h>

#include <random>
#include <vector>

namespace bvtest {

inline int Reflect101(int x, int n) { return x < 0 ? -x : x >= n ? 2 * (n - 1) - x : x; }

inline std::vector<uint8_t> ReferenceBlur(const uint8_t* src, int width, int height, int stride,
                                          const std::vector<uint16_t>& taps) {
  const int r = static_cast<int>(taps.size()) / 2;
  std::vector<uint8_t> h(static_cast<size_t>(width) * height), out(h.size());
  for (int pass = 0; pass < 2; ++pass) {  // horizontal into h, then vertical into out
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        uint32_t acc = 128;
        for (int j = -r; j <= r; ++j) {
          acc += taps[j + r] * (pass == 0 ? src[y * stride + Reflect101(x + j, width)]
                                          : h[Reflect101(y + j, height) * width + x]);
        }
        (pass == 0 ? h : out)[y * width + x] = static_cast<uint8_t>(acc >> 8);
      }
    }
  }
  return out;
}

// Random symmetric taps summing to 256, the centre tap taking the remainder.
inline std::vector<uint16_t> RandomTaps(int length, std::mt19937& rng) {
  std::vector<uint16_t> taps(length);
  int left = 256;
  for (int j = 0, r = length / 2; j < r; ++j) {
    taps[j] = taps[length - 1 - j] = static_cast<uint16_t>(rng() % (left / (2 * (r - j) + 1) + 1));
    left -= 2 * taps[j];
  }
  taps[length / 2] = static_cast<uint16_t>(left);
  return taps;
}

inline std::vector<uint8_t> RandomBytes(size_t n, std::mt19937& rng) {
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

}  // namespace bvtest

#endif
