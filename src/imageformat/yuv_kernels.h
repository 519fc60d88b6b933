// Row kernels of the YUV and RGB conversions: a dispatching entry and its scalar definition.
#ifndef BIVISTA_SRC_IMAGEFORMAT_YUV_KERNELS_H
#define BIVISTA_SRC_IMAGEFORMAT_YUV_KERNELS_H

#include <stddef.h>
#include <stdint.h>

namespace bivista {

// first[k] = pairs[2k], second[k] = pairs[2k + 1] for k < n.
void SplitPairs(const uint8_t* pairs, uint8_t* first, uint8_t* second, int n);
// pairs[2k] = first[k], pairs[2k + 1] = second[k] for k < n.
void MergePairs(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int n);
// An NV12 image (luma rows stride apart, the chroma plane after height rows) into packed RGB24
// rows of 3 x width bytes; rows 2i and 2i + 1 share chroma row i. fixedPoint selects the 16.16
// variant, else the floating-point one. One dispatch per image.
void Nv12ToRgb24Plane(const uint8_t* nv12, uint8_t* rgb, int width, int height, int stride,
                      bool fixedPoint);
// One YUV444 row from a luma row and its NV21 chroma row.
void Nv21RowToYuv444(const uint8_t* y, const uint8_t* vu, uint8_t* yuv, int width);
// Pair k of uv is written twice: u[2k] = u[2k + 1] = uv[2k], v likewise with uv[2k + 1].
void UpsamplePairs(const uint8_t* uv, uint8_t* u, uint8_t* v, int pairs);
// `rows` chroma rows (srcStride apart) into row pairs of the U and V planes (dstStride apart):
// row 2i from UpsamplePairs on chroma row i, row 2i + 1 its copy. One dispatch per plane; the
// caller ensures no two writes meet.
void UpsamplePairRows(const uint8_t* uvPlane, uint8_t* uPlane, uint8_t* vPlane, int pairs,
                      int rows, int64_t srcStride, int64_t dstStride);

// Whole chroma planes, one dispatch each: rows r of the interleaved plane (stride apart) split
// into / merged from rows r of two planes cw apart (cw pairs a row).
void SplitPairRows(const uint8_t* pairs, uint8_t* first, uint8_t* second, int cw, int rows,
                   ptrdiff_t stride);
void MergePairRows(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int cw, int rows,
                   ptrdiff_t stride);
// YUV444 rows of a width x height NV21 image whose chroma plane is vu, one dispatch.
void Nv21ToYuv444Plane(const uint8_t* nv21, const uint8_t* vu, uint8_t* yuv, int width,
                       int height);

namespace scalar {
void Nv12ToRgb24Plane(const uint8_t* nv12, uint8_t* rgb, int width, int height, int stride,
                      bool fixedPoint);
void SplitPairRows(const uint8_t* pairs, uint8_t* first, uint8_t* second, int cw, int rows,
                   ptrdiff_t stride);
void MergePairRows(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int cw, int rows,
                   ptrdiff_t stride);
void Nv21ToYuv444Plane(const uint8_t* nv21, const uint8_t* vu, uint8_t* yuv, int width,
                       int height);
void SplitPairs(const uint8_t* pairs, uint8_t* first, uint8_t* second, int n);
void MergePairs(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int n);
// One or two luma rows sharing the chroma row uv (y1/rgb1 may be null).
void Nv12RowsToRgb24(const uint8_t* y0, const uint8_t* y1, const uint8_t* uv, uint8_t* rgb0,
                     uint8_t* rgb1, int width, bool fixedPoint);
void Nv21RowToYuv444(const uint8_t* y, const uint8_t* vu, uint8_t* yuv, int width);
void UpsamplePairs(const uint8_t* uv, uint8_t* u, uint8_t* v, int pairs);
void UpsamplePairRows(const uint8_t* uvPlane, uint8_t* uPlane, uint8_t* vPlane, int pairs,
                      int rows, int64_t srcStride, int64_t dstStride);
// The per-pixel definitions, shared with the tests.
void PixelToRgbFloat(int y, int u, int v, uint8_t* rgb);
void PixelToRgbFixed(int y, int u, int v, uint8_t* rgb);
}  // namespace scalar

}  // namespace bivista

#endif
