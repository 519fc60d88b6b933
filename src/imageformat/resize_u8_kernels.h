// Row kernels of the 8-bit resizers: a dispatching entry and its scalar definition.
#ifndef BIVISTA_SRC_IMAGEFORMAT_RESIZE_U8_KERNELS_H
#define BIVISTA_SRC_IMAGEFORMAT_RESIZE_U8_KERNELS_H

#include <stdint.h>

namespace bivista {

// Source column and weight of each destination column (fx = i * stepX), in one malloc block;
// both null when the allocation failed.
struct ColumnTable {
  int32_t* x0 = nullptr;
  float* ax = nullptr;
};
ColumnTable MakeColumnTable(int n, float stepX);
void FreeColumnTable(ColumnTable table);

// Single channel, positions by multiplication: fx = i * stepX. rowA/rowC are source rows y0 and
// y0 + 1; `readable` bytes may be read from either row start. mask thresholds at 127. cols,
// when not empty, holds the same columns and weights precomputed.
void ResizeRowU8(const uint8_t* rowA, const uint8_t* rowC, uint8_t* out, int n, int readable,
                 float stepX, float ay, bool mask, ColumnTable cols);
// Interleaved image of ch bytes a pixel: channels 0..count-1 from the pointers on, with source
// pixel x0[i] and weight ax[i] per destination column. Other channels are not written.
void ResizeRowChannels(const uint8_t* rowA, const uint8_t* rowC, uint8_t* out, const int32_t* x0,
                       const float* ax, int n, int safeEnd, float ay, int ch, int count);
// Rows 2y and 2y + 1 of the 2x enlargement from source rows a (y') and c (y' + 1).
void UpScale2x2Rows(const uint8_t* a, const uint8_t* c, uint8_t* out0, uint8_t* out1, int srcW);

// Bytes that may be read from the start of a row pair whose first row is y0: the last source
// row has nothing after it.
inline int PairBytes(int y0, int srcH, int64_t rowBytes) {
  const int64_t n = y0 + 1 >= srcH - 1 ? rowBytes : 2 * rowBytes;
  return static_cast<int>(n < INT32_MAX ? n : INT32_MAX);
}

// Whole images, one dispatch each: the single-channel resize (rows y0 = (int)(j x stepY); a
// one-row source is its own lower neighbour, a one-column source is read through a two-pixel copy
// of each row, both with weight exactly 0), the
// interleaved channels with a column table (safe: ResizeRowChannels' safeEnd on the last source
// pair), and the 2x enlargement (destination 2 srcW wide).
void ResizeU8Plane(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH,
                   float stepX, float stepY, bool mask, ColumnTable cols);
void ResizeChannelsPlane(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW,
                         int dstH, float stepY, const int32_t* x0, const float* ax, int safe,
                         int ch, int count);
void UpScale2x2Plane(const uint8_t* src, uint8_t* dst, int srcW, int srcH);

namespace scalar {
void ResizeU8Plane(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH,
                   float stepX, float stepY, bool mask, ColumnTable cols);
void ResizeChannelsPlane(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW,
                         int dstH, float stepY, const int32_t* x0, const float* ax, int safe,
                         int ch, int count);
void UpScale2x2Plane(const uint8_t* src, uint8_t* dst, int srcW, int srcH);
void ResizeRowU8(const uint8_t* rowA, const uint8_t* rowC, uint8_t* out, int n, int readable,
                 float stepX, float ay, bool mask, ColumnTable cols);
// Columns from..n-1 of ResizeRowU8.
void ResizeRowU8Range(const uint8_t* rowA, const uint8_t* rowC, uint8_t* out, int from, int n,
                      float stepX, float ay, bool mask);
void ResizeRowChannels(const uint8_t* rowA, const uint8_t* rowC, uint8_t* out, const int32_t* x0,
                       const float* ax, int n, int safeEnd, float ay, int ch, int count);
void UpScale2x2Rows(const uint8_t* a, const uint8_t* c, uint8_t* out0, uint8_t* out1, int srcW);
// The bilinear value of one sample.
inline float Bilinear(float a, float b, float c, float d, float ax, float ay) {
  return (a * (1.0f - ax) + b * ax) * (1.0f - ay) + (c * (1.0f - ax) + d * ax) * ay;
}
}  // namespace scalar

}  // namespace bivista

#endif
