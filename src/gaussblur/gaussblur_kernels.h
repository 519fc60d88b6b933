// Kernels of the fixed-point Gaussian blur. Taps are 8-bit fixed point summing to 256; every
// pass computes (sum of taps x pixels + 128) >> 8 and keeps 8 bits. Borders mirror without
// repeating the edge pixel (x = -1 reads x = 1). Rows need width >= radius + 1. Each entry
// dispatches once per strip or border block; the row loops run inside the vector target.
#ifndef BIVISTA_SRC_GAUSSBLUR_GAUSSBLUR_KERNELS_H
#define BIVISTA_SRC_GAUSSBLUR_GAUSSBLUR_KERNELS_H

#include <stdint.h>

namespace bivista {

// Radius 1, 2 or 3 (kernel lengths 3, 5, 7); kernel holds 2 x radius + 1 symmetric taps.
constexpr int kGaussMaxRadius = 3;
constexpr int kGaussWindow = 2 * kGaussMaxRadius + 1;

// One strip of `count` interior output rows. Source row i of the strip (i in [-r, count + r))
// is above + (i + r) x srcStride for i < 0, src + i x srcStride for i < count, and
// below + (i - count) x srcStride beyond. scratch holds 2r rows, scratchStride apart, for the
// horizontal results of the window (a ring). Row i of dst is dst + i x dstStride.
struct GaussStripArgs {
  const uint8_t* above;
  const uint8_t* src;
  const uint8_t* below;
  long srcStride;
  uint8_t* dst;
  long dstStride;
  int count;
  int width;
  uint8_t* scratch;
  long scratchStride;
  const uint16_t* kernel;
  int radius;
  // Optional: before each later run of chunkRows rows the strip calls more(context) and ends
  // there when it returns false (another thread took the rest).
  bool (*more)(void* context) = nullptr;
  void* context = nullptr;
  int chunkRows = 0;
};

// Border rows: h[j] = horizontal pass of src[j] for j < 2r, all of them before any output
// (dst may alias a source row); then dst[o] = vertical pass over h[map[o][0 .. 2r]] for o < r.
struct GaussBorderArgs {
  const uint8_t* src[2 * kGaussMaxRadius];
  uint8_t* h[2 * kGaussMaxRadius];
  uint8_t map[kGaussMaxRadius][kGaussWindow];
  uint8_t* dst[kGaussMaxRadius];
  int width;
  const uint16_t* kernel;
  int radius;
};

void GaussStrip(const GaussStripArgs& args);
void GaussBorder(const GaussBorderArgs& args);

namespace scalar {
void GaussStrip(const GaussStripArgs& args);
void GaussBorder(const GaussBorderArgs& args);
}  // namespace scalar

}  // namespace bivista

#endif
