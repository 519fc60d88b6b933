// Row kernels of the fixed-point Gaussian blur. Taps are 8-bit fixed point summing to 256; every
// pass computes (sum of taps x pixels + 128) >> 8 and keeps 8 bits. Borders mirror without
// repeating the edge pixel (x = -1 reads x = 1). Rows need width >= radius + 1.
#ifndef BIVISTA_SRC_GAUSSBLUR_GAUSSBLUR_KERNELS_H
#define BIVISTA_SRC_GAUSSBLUR_GAUSSBLUR_KERNELS_H

#include <stdint.h>

namespace bivista {

// Radius 1, 2 or 3 (kernel lengths 3, 5, 7); kernel holds 2 x radius + 1 symmetric taps.
constexpr int kGaussMaxRadius = 3;

// Horizontal pass of one row.
void GaussRowH(const uint8_t* src, uint8_t* dst, int width, const uint16_t* kernel, int radius);
// Vertical pass over 2 x radius + 1 horizontally filtered rows (top to bottom).
void GaussRowV(const uint8_t* const* rows, uint8_t* dst, int width, const uint16_t* kernel,
               int radius);
// One interior output row: the horizontal pass of `next` is stored in `hNext` (which may be
// rows[0]: each column is read before it is overwritten) and combined vertically with the
// 2 x radius rows above it into dst.
void GaussRowHV(const uint8_t* const* rows, const uint8_t* next, uint8_t* hNext, uint8_t* dst,
                int width, const uint16_t* kernel, int radius);

namespace scalar {
void GaussRowH(const uint8_t* src, uint8_t* dst, int width, const uint16_t* kernel, int radius);
void GaussRowV(const uint8_t* const* rows, uint8_t* dst, int width, const uint16_t* kernel,
               int radius);
void GaussRowHV(const uint8_t* const* rows, const uint8_t* next, uint8_t* hNext, uint8_t* dst,
                int width, const uint16_t* kernel, int radius);
}  // namespace scalar

}  // namespace bivista

#endif
