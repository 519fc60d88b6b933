// The smoother written directly from its definition, without the library's helpers: weights
// on the transposed guide, transposed passes, the decay through the transposed mask.
#ifndef BIVISTA_TESTS_DEPTHREFINE_FGS_REFERENCE_H
#define BIVISTA_TESTS_DEPTHREFINE_FGS_REFERENCE_H

#include <math.h>
#include <stdint.h>
#include <stdlib.h>

#include <cmath>
#include <vector>

namespace bvtest {

inline void RefSolveLine(float* f, const float* w, float* c, int n) {
  if (n < 1) return;
  const float k = static_cast<float>(1.0 / (1.0 - static_cast<double>(w[0])));
  c[0] = k * w[0];
  f[0] = f[0] * k;
  for (int i = 1; i < n; ++i) {
    const float diag =
        static_cast<float>(1.0 - (static_cast<double>(w[i]) + static_cast<double>(w[i - 1])));
    const float denom = std::fma(-c[i - 1], w[i - 1], diag);
    const float inv = 1.0f / denom;
    c[i] = w[i] * inv;
    f[i] = std::fma(-f[i - 1], w[i - 1], f[i]) * inv;
  }
  for (int i = n - 2; i >= 0; --i) f[i] = std::fma(-f[i + 1], c[i], f[i]);
}

template <typename T>
std::vector<T> RefTranspose(const T* src, int rows, int cols, int elem = 1) {
  std::vector<T> dst(static_cast<size_t>(rows) * cols * elem);
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < cols; ++j)
      for (int k = 0; k < elem; ++k)
        dst[(static_cast<size_t>(j) * rows + i) * elem + k] =
            src[(static_cast<size_t>(i) * cols + j) * elem + k];
  return dst;
}

inline std::vector<float> RefTable(float sigma, float lambda) {
  std::vector<float> t(256);
  const float inv = 1.0f / sigma;
  for (int d = 0; d < 256; ++d) {
    const float x = static_cast<float>(d) * inv;
    t[d] = -powf(2.7182817f, -0.5f * x * x) * lambda;
  }
  return t;
}

// Interleaved (bytes per pixel = channels) or planar (channels planes) guide.
inline std::vector<float> RefWeights(const uint8_t* g, int rows, int cols, int channels,
                                     bool planar, const std::vector<float>& table) {
  std::vector<float> w(static_cast<size_t>(rows) * cols, 0.0f);
  for (int r = 0; r < rows; ++r) {
    for (int x = 0; x + 1 < cols; ++x) {
      int m = 0;
      for (int k = 0; k < channels; ++k) {
        const size_t a = planar ? static_cast<size_t>(k) * rows * cols + r * cols + x
                                : (static_cast<size_t>(r) * cols + x) * channels + k;
        const size_t b = planar ? a + 1 : a + channels;
        m = std::max(m, abs(g[a] - g[b]));
      }
      w[static_cast<size_t>(r) * cols + x] = table[m];
    }
  }
  return w;
}

// data (height x width) smoothed in place; guide of 3-byte pixels (interleaved) or 3 planes.
// Rows from rowsSolved on and columns from columnsSolved on are left unsolved (workers a pool
// refused).
inline void RefFGS(const uint8_t* mask, float* data, const uint8_t* guide, bool planar,
                   int height, int width, int iterations, float sigma, float lambda,
                   int rowsSolved = 1 << 30, int columnsSolved = 1 << 30) {
  const float lambda1 = static_cast<float>(static_cast<double>(lambda) * 1.5 *
                                           pow(4.0, iterations - 1) / (pow(4.0, iterations) - 1));
  const std::vector<float> table = RefTable(sigma, lambda1);
  const size_t area = static_cast<size_t>(height) * width;
  std::vector<float> h = RefWeights(guide, height, width, 3, planar, table);
  std::vector<uint8_t> tGuide;
  if (planar) {
    for (int p = 0; p < 3; ++p) {
      std::vector<uint8_t> t = RefTranspose(guide + p * area, height, width);
      tGuide.insert(tGuide.end(), t.begin(), t.end());
    }
  } else {
    tGuide = RefTranspose(guide, height, width, 3);
  }
  std::vector<float> v = RefWeights(tGuide.data(), width, height, 3, planar, table);
  const std::vector<uint8_t> tMask = RefTranspose(mask, height, width);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x + 1 < width; ++x)
      if (mask[y * width + x]) h[y * width + x] = -0.01f;
  for (int x = 0; x < width; ++x)
    for (int y = 0; y + 1 < height; ++y)
      if (tMask[x * height + y]) v[x * height + y] = -0.01f;
  std::vector<float> c(area);
  for (int it = 0; it < iterations; ++it) {
    for (int y = 0; y < height && y < rowsSolved; ++y)
      RefSolveLine(data + y * width, h.data() + y * width, c.data() + y * width, width);
    std::vector<float> t = RefTranspose(data, height, width);
    for (int x = 0; x < width && x < columnsSolved; ++x)
      RefSolveLine(t.data() + x * height, v.data() + x * height, c.data() + x * height, height);
    const std::vector<float> back = RefTranspose(t.data(), width, height);
    std::copy(back.begin(), back.end(), data);
    for (size_t i = 0; i < area; ++i) {
      if (!mask[i]) h[i] *= 0.25f;
      if (!tMask[i]) v[i] *= 0.25f;
    }
  }
}

}  // namespace bvtest

#endif
