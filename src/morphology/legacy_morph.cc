// First-generation rectangular-window erosion and dilation: brute-force window scans deciding
// from a copy, and a separable value-spreading pass pair.
#include <stddef.h>
#include <string.h>

#include "bivista/mem_services.h"
#include "bivista/morphology.h"
#include "common/alloc_size.h"

namespace bivista {
namespace {

// Clipped window bound: centre + radius in 64 bits (radii reach the int limits), in [0, n - 1].
inline int Clip(int centre, int radius, int n) {
  const long long v = static_cast<long long>(centre) + radius;
  return v < 0 ? 0 : (v > n - 1 ? n - 1 : static_cast<int>(v));
}

// Whether the clipped window around (x, y) of the copy holds a pixel that is set (wantSet) or 0.
// A negative radius empties the window.
bool WindowHas(const unsigned char* copy, int width, int height, int stride, int x, int y, int rx,
               int ry, bool wantSet) {
  if (rx < 0 || ry < 0) return false;
  const int y0 = Clip(y, -ry, height), y1 = Clip(y, ry, height);
  const int x0 = Clip(x, -rx, width), x1 = Clip(x, rx, width);
  for (int j = y0; j <= y1; ++j) {
    const unsigned char* row = copy + static_cast<size_t>(j) * stride;
    for (int i = x0; i <= x1; ++i) {
      if ((row[i] != 0) == wantSet) return true;
    }
  }
  return false;
}

// Dilation writes 255 over 0-pixels near a set pixel; erosion writes 0 over set pixels near a 0.
void BruteForce(unsigned char* image, const unsigned char* copy, int width, int height,
                int stride, int rx, int ry, bool dilate) {
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const size_t at = static_cast<size_t>(y) * stride + x;
      if ((copy[at] != 0) == dilate) continue;
      if (WindowHas(copy, width, height, stride, x, y, rx, ry, dilate)) image[at] = dilate ? 255 : 0;
    }
  }
}

int WithOwnCopy(unsigned char* image, int width, int height, int stride, int rx, int ry,
                bool dilate) {
  if (width < 1 || height < 1) return 0;
  // Only the rows' first width bytes are examined: the copy ends with the last row's width, so
  // an image without padding after its last row is not over-read.
  const int64_t extent = static_cast<int64_t>(height - 1) * stride + width;
  const int size = SafeNewBytes(height, stride);
  auto* copy = static_cast<unsigned char*>(safeNew(size >= extent ? size : SafeNewBytes(extent)));
  if (copy == nullptr) return -1;
  memcpy(copy, image, static_cast<size_t>(extent));
  BruteForce(image, copy, width, height, stride, rx, ry, dilate);
  safeDelete(copy);
  return 0;
}

// Spreads v along one line of n samples (step apart) of src into dst, radius r.
void SpreadLine(const unsigned char* src, unsigned char* dst, int n, size_t step, int r,
                unsigned char v) {
  for (int i = 0; i < n; ++i) {
    if (src[i * step] == v || r < 0) continue;
    const int lo = Clip(i, -r, n), hi = Clip(i, r, n);
    for (int j = lo; j <= hi; ++j) {
      if (src[j * step] == v) {
        dst[i * step] = v;
        break;
      }
    }
  }
}

}  // namespace
}  // namespace bivista

using namespace bivista;

void Dilation_Function(unsigned char* image, int width, int height, int rx, int ry,
                       unsigned char* copy) {
  if (width < 1 || height < 1) return;
  memcpy(copy, image, static_cast<size_t>(width) * static_cast<size_t>(height));
  BruteForce(image, copy, width, height, width, rx, ry, true);
}

void Erosion_Function(unsigned char* image, int width, int height, int rx, int ry,
                      unsigned char* copy) {
  if (width < 1 || height < 1) return;
  memcpy(copy, image, static_cast<size_t>(width) * static_cast<size_t>(height));
  BruteForce(image, copy, width, height, width, rx, ry, false);
}

int dilation(unsigned char* image, int width, int height, int stride, int rx, int ry) {
  return WithOwnCopy(image, width, height, stride, rx, ry, true);
}

int erosion(unsigned char* image, int width, int height, int stride, int rx, int ry) {
  return WithOwnCopy(image, width, height, stride, rx, ry, false);
}

int Erosion_Dilation_Function(unsigned char* src, int width, int height, int rx, int ry,
                              unsigned char v, unsigned char* dst) {
  if (width < 1 || height < 1) return 0;
  const size_t plane = static_cast<size_t>(width) * static_cast<size_t>(height);
  memcpy(dst, src, plane);
  for (int y = 0; y < height; ++y) {
    const size_t at = static_cast<size_t>(y) * width;
    SpreadLine(src + at, dst + at, width, 1, rx, v);
  }
  // The caller's source keeps the horizontal result.
  memcpy(src, dst, plane);
  for (int x = 0; x < width; ++x) SpreadLine(src + x, dst + x, height, width, ry, v);
  return 0;
}
