/* Resampling of float and 8-bit images, and conversions between YUV layouts and RGB.
 *
 * Layouts (8-bit): NV12 = Y plane, then height / 2 rows of interleaved U, V pairs at the same
 * stride; NV21 = the same with V first; I420 = Y, U, V planes without padding; YUV444 = one plane
 * of Y, U, V triples; RGB24 = one plane of R, G, B triples. */
#ifndef BIVISTA_IMAGEFORMAT_H
#define BIVISTA_IMAGEFORMAT_H

#include <stdint.h>

#include "bivista/bv_export.h"

BIVISTA_EXTERN_C_BEGIN

/* ---- Float maps (stride = width). Each resizer returns its source pointer. ---- */
/* An empty destination or source (a side below 1) writes nothing. A one-row or one-column source
 * is its own neighbour (that weight is exactly 0). Positions accumulated past the last source
 * pair (very long destinations) are held at it. */

/* Bilinear; values multiplied by dstW / srcW. */
BIVISTA_API float* ResizeFloat(const float* src, float* dst, int srcW, int srcH, int dstW, int dstH);
/* Bilinear; values kept. */
BIVISTA_API float* ResizeDepth(const float* src, float* dst, int srcW, int srcH, int dstW, int dstH);
/* Nearest (corners onto corners); invalid where the sample is below invalid + 0.1. */
BIVISTA_API float* ResizeSpareDisparityNearest(const float* src, float* dst, int srcW, int srcH,
                                               int dstW, int dstH, float invalid);
/* Bilinear; invalid where any of the four samples is below invalid + 0.1. */
BIVISTA_API float* ResizeSpareDisparity(const float* src, float* dst, int srcW, int srcH, int dstW,
                                        int dstH, float invalid);
/* Bilinear times scale; invalid where the interpolated mask truncates above 0. */
BIVISTA_API float* ResizeSparedataFloat(const float* src, const uint8_t* mask, float* dst, int srcW,
                                        int srcH, int dstW, int dstH, float scale, float invalid);
/* Exact 2x down (2 x 2 mean) or up (2x bilinear), else ResizeFloat. Sizes compared in 64 bits;
 * the quarter routines write nothing unless the sizes are exactly related (down: srcW = 2 dstW,
 * srcH >= 2 dstH). */
BIVISTA_API float* ResizeFloatImg_Bilinear(const float* src, float* dst, int srcW, int srcH,
                                           int dstW, int dstH);
BIVISTA_API float* ResizeFloatImg_Bilinear_Downsample_Quarter(const float* src, float* dst,
                                                              int srcW, int srcH, int dstW,
                                                              int dstH);
BIVISTA_API float* ResizeFloatImg_Bilinear_Extend_Quarter(const float* src, float* dst, int srcW,
                                                          int srcH, int dstW, int dstH);
/* 511 range weights: table[255 + d] = exp(-0.1 |d|). */
BIVISTA_API void getBilateralWeight(float* table);
/* Joint bilateral up-sampling guided by two 3-byte-per-pixel images; border band kept nearest.
 * The source is srcW x srcH: nearest samples are held at its last row and column, and only
 * pixels whose 5 x 5 window lies inside it are filtered (sizes not a multiple of the source). */
BIVISTA_API float* ResizeFloatImage_KeepBorder_full(const float* src, float* dst,
                                                    const uint8_t* guideLow,
                                                    const uint8_t* guideFull, int srcW, int srcH,
                                                    int dstW, int dstH);

/* ---- 8-bit images (no row padding). Empty sources and destinations, one row or column: as
 * for the float maps; fewer than one channel writes nothing. ---- */

BIVISTA_API void ResizeUchar(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW,
                             int dstH);
/* Bilinear, then 255 where the value exceeds 127 and 0 elsewhere. */
BIVISTA_API void ResizeUcharMask(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW,
                                 int dstH);
/* One channel (the one the pointers address) of an image of `channels` interleaved bytes. */
BIVISTA_API void ResizeUcharChl(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW,
                                int dstH, int channels);
BIVISTA_API void ResizeUcharNV21(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW,
                                 int dstH);
BIVISTA_API void ResizeUcharRGB(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW,
                                int dstH);
/* Only when dstW == 2 srcW and dstH == 2 srcH. */
BIVISTA_API void ResizeUchar_upScale2x2(const uint8_t* src, uint8_t* dst, int srcW, int srcH,
                                        int dstW, int dstH);
/* Process-wide pseudo-random value in [0, 1]; not thread-safe. */
BIVISTA_API float randFloat(void);

/* ---- YUV and RGB ---- */

/* Odd width: the last pixel's V is byte `width` of its chroma row when stride > width, else 128. */
BIVISTA_API void ConvertNV122RGB24_wideRange(const uint8_t* nv12, uint8_t* rgb, int width,
                                             int height, int stride);
/* Same conversion in 16.16 fixed point. */
BIVISTA_API void ConvertNV122RGB24_wideRange_NEON(const uint8_t* nv12, uint8_t* rgb, int width,
                                                  int height, int stride);
BIVISTA_API void ConvertNV21ToI420(const uint8_t* nv21, uint8_t* i420, int width, int height,
                                   int stride);
BIVISTA_API void ConvertI420ToNV21(const uint8_t* i420, uint8_t* nv21, int width, int height,
                                   int stride);
/* 0, or -1 (destination untouched) for null pointers or sizes that are not positive and even. */
BIVISTA_API int ConvertNV21ToYuv(const uint8_t* nv21, uint8_t* yuv, int width, int height);
/* NV12 window at (x0, y0) into three planes Y, U, V placed width x height bytes apart, rows
 * dstStride apart; returns dst. Offsets in 64 bits; a width below 1 does nothing. Where rows or
 * planes meet, the chroma pairs are written in their defined order (the last write wins). */
BIVISTA_API uint8_t* copyNV12ToYuv444(const uint8_t* nv12, int width, int height, int dstStride,
                                      int x0, int y0, uint8_t* dst);

BIVISTA_EXTERN_C_END

#endif
