/* Fixed-point 3x3, 5x5 and 7x7 Gaussian blur of 8-bit planes, split over the worker pool. */
#ifndef BIVISTA_GAUSSBLUR_H
#define BIVISTA_GAUSSBLUR_H

#include <stdint.h>

#include "bivista/bv_export.h"

/* Scratch sizes when the caller passes pBuf, for a kernel of length k = 2r + 1 and T threads:
 * in place (src == dst) 2r x (T + 1) head/tail rows followed by 2r x T scratch rows, otherwise
 * the 2r x T scratch rows alone; every row is src_stride bytes. The size is not checked. */

#ifdef __cplusplus
/* Blurs src into dst (src may equal dst, then with equal strides) with a k_length-tap kernel
 * built from sigma (NaN refused like sigma <= 0). th_pool may be null only with th_num 1; at most 4 threads. Lengths 3, 5 and 7
 * are supported.
 * Returns 0, or -1 with one error line; images too small to filter are copied and refused. */
BIVISTA_API int gaussian_blur(const uint8_t* src, uint8_t* dst, int width, int height,
                              int src_stride, int dst_stride, int k_length, float sigma,
                              void* th_pool, int th_num, uint8_t* pBuf);
/* Strides equal to width. */
BIVISTA_API int gaussian_blur(const uint8_t* src, uint8_t* dst, int width, int height, int k_length,
                              float sigma, void* th_pool, int th_num, uint8_t* pBuf);

/* Pool workers: argument is the per-thread record the paths below hand to MThread_Boot. */
BIVISTA_API void* GaussianBlur3x3_u8_optimization_Body_Caller(void* argument, int threadIndex);
BIVISTA_API void* GaussianBlur5x5_u8_optimization_Body_Caller(void* argument, int threadIndex);
BIVISTA_API void* GaussianBlur7x7_u8_optimization_Body_Caller(void* argument, int threadIndex);
#endif

BIVISTA_EXTERN_C_BEGIN

/* One kernel size each: kernel holds 3, 5 or 7 symmetric taps summing to 256. Interior rows
 * are split over th_num workers, the border rows are computed afterwards on the caller. Strides
 * below the width are refused (-1, untouched). */
BIVISTA_API int GaussianBlur3x3_u8_optimization_multithread(const uint8_t* src, uint8_t* dst,
                                                            int width, int height, int src_stride,
                                                            int dst_stride, const uint16_t* kernel,
                                                            void* th_pool, int th_num,
                                                            uint8_t* pBuf);
BIVISTA_API int GaussianBlur5x5_u8_optimization_multithread(const uint8_t* src, uint8_t* dst,
                                                            int width, int height, int src_stride,
                                                            int dst_stride, const uint16_t* kernel,
                                                            void* th_pool, int th_num,
                                                            uint8_t* pBuf);
BIVISTA_API int GaussianBlur7x7_u8_optimization_multithread(const uint8_t* src, uint8_t* dst,
                                                            int width, int height, int src_stride,
                                                            int dst_stride, const uint16_t* kernel,
                                                            void* th_pool, int th_num,
                                                            uint8_t* pBuf);

BIVISTA_EXTERN_C_END

#endif
