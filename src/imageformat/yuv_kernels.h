// Row kernels of the YUV and RGB conversions: a dispatching entry and its scalar definition.
#ifndef BIVISTA_SRC_IMAGEFORMAT_YUV_KERNELS_H
#define BIVISTA_SRC_IMAGEFORMAT_YUV_KERNELS_H

#include <stdint.h>

namespace bivista {

// first[k] = pairs[2k], second[k] = pairs[2k + 1] for k < n.
void SplitPairs(const uint8_t* pairs, uint8_t* first, uint8_t* second, int n);
// pairs[2k] = first[k], pairs[2k + 1] = second[k] for k < n.
void MergePairs(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int n);
// One or two luma rows sharing the NV12 chroma row uv into RGB24 rows (y1/rgb1 may be null).
// fixedPoint selects the 16.16 variant, else the floating-point one.
void Nv12RowsToRgb24(const uint8_t* y0, const uint8_t* y1, const uint8_t* uv, uint8_t* rgb0,
                     uint8_t* rgb1, int width, bool fixedPoint);
// One YUV444 row from a luma row and its NV21 chroma row.
void Nv21RowToYuv444(const uint8_t* y, const uint8_t* vu, uint8_t* yuv, int width);
// Pair k of uv is written twice: u[2k] = u[2k + 1] = uv[2k], v likewise with uv[2k + 1].
void UpsamplePairs(const uint8_t* uv, uint8_t* u, uint8_t* v, int pairs);

namespace scalar {
void SplitPairs(const uint8_t* pairs, uint8_t* first, uint8_t* second, int n);
void MergePairs(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int n);
void Nv12RowsToRgb24(const uint8_t* y0, const uint8_t* y1, const uint8_t* uv, uint8_t* rgb0,
                     uint8_t* rgb1, int width, bool fixedPoint);
void Nv21RowToYuv444(const uint8_t* y, const uint8_t* vu, uint8_t* yuv, int width);
void UpsamplePairs(const uint8_t* uv, uint8_t* u, uint8_t* v, int pairs);
// The per-pixel definitions, shared with the tests.
void PixelToRgbFloat(int y, int u, int v, uint8_t* rgb);
void PixelToRgbFixed(int y, int u, int v, uint8_t* rgb);
}  // namespace scalar

}  // namespace bivista

#endif
