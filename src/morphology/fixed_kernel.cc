// In-place 3x3 cross, 3x3 square and 5x5 square erosion (bitwise AND) and dilation (bitwise OR)
// with a caller-provided scratch image. The border frame is never written.
#include <stdint.h>
#include <string.h>

#include "bivista/morphology.h"
#include "morphology/morph_kernels.h"

namespace bivista {
namespace {

// An empty or negative width copies nothing (the image may then be null).
void CopyRows(const unsigned char* src, unsigned char* dst, int width, int height, int stride) {
  if (width < 1) return;
  for (int y = 0; y < height; ++y) {
    memcpy(dst + static_cast<size_t>(y) * stride, src + static_cast<size_t>(y) * stride,
           static_cast<size_t>(width));
  }
}

// Each source row is copied to the scratch by the pass that first reads it (as the row below the
// output row), so the image is read once per iteration.
void Fixed3x3(unsigned char* image, unsigned char* scratch, int width, int height, int stride,
              int iterations, int cross, int useOr) {
  if (iterations < 1) return;
  for (int it = 0; it < iterations; ++it) {
    if (height <= 2 || width <= 2) {
      CopyRows(image, scratch, width, height, stride);
      continue;
    }
    CopyRows(image, scratch, width, 2, stride);
    for (int y = 1; y < height - 1; ++y) {
      const size_t at = static_cast<size_t>(y) * stride + 1;
      const unsigned char* mid = scratch + at;
      Combine3x3(mid - stride, mid, image + at + stride, image + at, width - 2, cross, useOr,
                 scratch + at + stride);
    }
  }
}

void Fixed5x5(unsigned char* image, unsigned char* scratch, int width, int height, int stride,
              int useOr) {
  CopyRows(image, scratch, width, height, stride);
  if (height < 5 || width < 5) return;
  for (int y = 2; y < height - 2; ++y) {
    const unsigned char* rows[5];
    for (int dy = 0; dy < 5; ++dy) rows[dy] = scratch + static_cast<size_t>(y + dy - 2) * stride + 2;
    Combine5x5(rows, image + static_cast<size_t>(y) * stride + 2, width - 4, useOr);
  }
}

}  // namespace
}  // namespace bivista

using bivista::Fixed3x3;
using bivista::Fixed5x5;

void ErodeWith3x3Cross(unsigned char* image, unsigned char* scratch, int width, int height,
                       int stride, int iterations) {
  Fixed3x3(image, scratch, width, height, stride, iterations, 1, 0);
}

void DilateWith3x3Cross(unsigned char* image, unsigned char* scratch, int width, int height,
                        int stride, int iterations) {
  Fixed3x3(image, scratch, width, height, stride, iterations, 1, 1);
}

void ErodeWith3x3Rect(unsigned char* image, unsigned char* scratch, int width, int height,
                      int stride, int iterations) {
  Fixed3x3(image, scratch, width, height, stride, iterations, 0, 0);
}

void DilateWith3x3Rect(unsigned char* image, unsigned char* scratch, int width, int height,
                       int stride, int iterations) {
  Fixed3x3(image, scratch, width, height, stride, iterations, 0, 1);
}

void ErodeWith5x5Rect(unsigned char* image, unsigned char* scratch, int width, int height,
                      int stride) {
  Fixed5x5(image, scratch, width, height, stride, 0);
}

void DilateWith5x5Rect(unsigned char* image, unsigned char* scratch, int width, int height,
                       int stride) {
  Fixed5x5(image, scratch, width, height, stride, 1);
}
