/* Erosion, dilation, opening and closing of 8-bit masks, and connected-component labelling. */
#ifndef BIVISTA_MORPHOLOGY_H
#define BIVISTA_MORPHOLOGY_H

#include <stdint.h>

#include "bivista/bv_export.h"
#include "bivista/mem_services.h"

BIVISTA_EXTERN_C_BEGIN

/* ---- Integral-image and sliding-counter engines (0/1 masks, stride = width) ---- */

/* Inclusive 32-bit integral image: dst(y, x) = sum of src over rows 0..y, columns 0..x. */
BIVISTA_API void ImIntegral(const unsigned char* src, unsigned int* dst, int width, int height);
/* Window of k/2 around each pixel; row 0 and column 0 never take part in any window. The
 * integral image comes from mem (tag "MORPHOLOGIC"); -1 when that allocation fails. Any k:
 * windows are clipped in 64 bits (k near INT_MAX covers the image); a radius below 0 gives -1. */
BIVISTA_API int ImErode(const vta_algo_mem_allocator_t* mem, const unsigned char* src,
                        unsigned char* dst, int width, int height, int k);
BIVISTA_API int ImDilate(const vta_algo_mem_allocator_t* mem, const unsigned char* src,
                         unsigned char* dst, int width, int height, int k);
/* In place: every pixel whose window (radii kWidth, kHeight) holds a pixel equal to v becomes v.
 * Column counts are 8-bit and wrap at 256. Radii above 255 or with 2*radius >= size: -1. An
 * image of 2 GiB or more is refused through safeNew (its message, then this routine's): -1. */
BIVISTA_API int Erosion_Dilation_Function_opt(unsigned char* image, int width, int height,
                                              int kWidth, int kHeight, unsigned char v);
/* mem is accepted and not used. */
BIVISTA_API int ImOpen(const vta_algo_mem_allocator_t* mem, const unsigned char* src,
                       unsigned char* dst, int width, int height, int k);
BIVISTA_API int ImClose(const vta_algo_mem_allocator_t* mem, const unsigned char* src,
                        unsigned char* dst, int width, int height, int k);

/* ---- Fixed kernels: bitwise AND (erode) / OR (dilate), in place, border frame frozen ---- */
/* A width below 1 does nothing (the scratch copy included). */

BIVISTA_API void ErodeWith3x3Cross(unsigned char* image, unsigned char* scratch, int width,
                                   int height, int stride, int iterations);
BIVISTA_API void DilateWith3x3Cross(unsigned char* image, unsigned char* scratch, int width,
                                    int height, int stride, int iterations);
BIVISTA_API void ErodeWith3x3Rect(unsigned char* image, unsigned char* scratch, int width,
                                  int height, int stride, int iterations);
BIVISTA_API void DilateWith3x3Rect(unsigned char* image, unsigned char* scratch, int width,
                                   int height, int stride, int iterations);
BIVISTA_API void ErodeWith5x5Rect(unsigned char* image, unsigned char* scratch, int width,
                                  int height, int stride);
BIVISTA_API void DilateWith5x5Rect(unsigned char* image, unsigned char* scratch, int width,
                                   int height, int stride);

/* ---- Two-pass connected components of the pixels equal to value ---- */

/* labels: width*height ints; table: one entry more than the largest provisional label (at most
 * width*height + 2). labelCount receives the largest provisional label + 1. */
BIVISTA_API void connectTwoPass(const unsigned char* src, int* labels, int width, int height,
                                int* labelCount, int* table, unsigned char value);
BIVISTA_API void connectTwoPass_8(const unsigned char* src, int* labels, int width, int height,
                                  int* labelCount, int* table, unsigned char value);

/* ---- City-block distance morphology of 0/255 masks (in place, stride = width) ---- */

/* Interior distance to 255-pixels; the one-pixel frame is read, never written. */
BIVISTA_API void bivista_manhattan(unsigned char* image, int width, int height);
BIVISTA_API void Dilate_quick_timesN(unsigned char* image, int width, int height, int N);
BIVISTA_API unsigned char* Erode_quick_timesN(unsigned char* image, int width, int height,
                                              unsigned char N);
/* Whole-image distance to the pixels equal to value; far value (width + height) mod 256 in row 0
 * and column 0, min(width + height, 255) elsewhere. */
BIVISTA_API unsigned char* manhattan(unsigned char* image, int width, int height,
                                     unsigned char value);
BIVISTA_API unsigned char* dilate_manh(unsigned char* image, int width, int height,
                                       unsigned char N);
BIVISTA_API unsigned char* erode_manh(unsigned char* image, int width, int height,
                                      unsigned char N);

/* ---- Brute-force and separable rectangular windows (rx horizontal, ry vertical) ---- */
/* Radii anywhere in the int range: windows clipped in 64 bits; a negative radius is an empty
 * window (nothing changes). */

/* copy: width*height bytes, holds the input on return. */
BIVISTA_API void Dilation_Function(unsigned char* image, int width, int height, int rx, int ry,
                                   unsigned char* copy);
BIVISTA_API void Erosion_Function(unsigned char* image, int width, int height, int rx, int ry,
                                  unsigned char* copy);
/* Scratch of stride*height bytes from safeNew (a size beyond int is refused there); -1 when it
 * fails. The image is read up to the last row's width only. */
BIVISTA_API int dilation(unsigned char* image, int width, int height, int stride, int rx, int ry);
BIVISTA_API int erosion(unsigned char* image, int width, int height, int stride, int rx, int ry);
/* Result in dst; src is overwritten with the horizontally spread image. Returns 0. */
BIVISTA_API int Erosion_Dilation_Function(unsigned char* src, int width, int height, int rx,
                                          int ry, unsigned char v, unsigned char* dst);

BIVISTA_EXTERN_C_END

#endif
