// Tuned luma of packed RGB24 pixels: a dispatching entry and its one-by-one definition.
#ifndef BIVISTA_SRC_COLORMATCH_LUMA_KERNELS_H
#define BIVISTA_SRC_COLORMATCH_LUMA_KERNELS_H

#include <stddef.h>
#include <stdint.h>

namespace bivista {

// Accumulation orders, each "fma" a single rounding, t the running single-precision sum:
//   kLumaB0First: t = b0 w0; t = fma(b1, w1, t); t += 0.5; t = fma(b2, w2, t)
//   kLumaB1First: t = b1 w1; t = fma(b2, w2, t); t += 0.5; t = fma(b0, w0, t)
//   kLumaWithMax: kLumaB0First, then t = fma(max(b0, b1, b2), w3, t)
// The byte is t truncated toward zero and clamped to 0..255 (NaN gives 0).
enum LumaOrder { kLumaB0First = 0, kLumaB1First = 1, kLumaWithMax = 2 };

// dst[p] = luma of rgb[3p..3p+2] for p < count. Vector passes only when the two buffers do not
// overlap and count >= 16; otherwise pixel by pixel in increasing order (so dst may alias rgb).
void LumaRgb24(const uint8_t* rgb, uint8_t* dst, ptrdiff_t count, const float* weights,
               LumaOrder order);

// The luma of every pixel of an NV12 image, as LumaRgb24 of its ConvertNV122RGB24_wideRange
// conversion would give, written packed (rows width apart) to out, which may be the image
// itself when stride >= width. Each row pair goes through scratch (2 x width bytes, apart from
// the image) before it is copied out, so no source byte is overwritten before it is read.
void Nv12ToLuma(const uint8_t* image, int width, int height, int stride, uint8_t* scratch,
                uint8_t* out, const float* weights, LumaOrder order);

namespace scalar {
void LumaRgb24(const uint8_t* rgb, uint8_t* dst, ptrdiff_t count, const float* weights,
               LumaOrder order);
void Nv12ToLuma(const uint8_t* image, int width, int height, int stride, uint8_t* scratch,
                uint8_t* out, const float* weights, LumaOrder order);
}  // namespace scalar

}  // namespace bivista

#endif
