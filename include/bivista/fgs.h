/* Fast global smoother: guided edge-preserving smoothing of a float depth or disparity plane by
 * row and column tridiagonal solves, with its exported building blocks. */
#ifndef BIVISTA_FGS_H
#define BIVISTA_FGS_H

#include <stdint.h>

#include "bivista/bv_export.h"
#include "bivista/mem_services.h"

BIVISTA_EXTERN_C_BEGIN

/* One pool worker's share of a line pass: lines startLine .. endLine - 1 of a plane whose lines
 * are lineLength values apart. lineCount is carried, not used by the worker. */
typedef struct DREF_FGSThreadParam {
  float* data;    /* lines solved in place */
  float* weight;  /* couplings, same layout */
  float* scratch; /* receives the modified upper coefficients */
  int32_t lineCount;
  int32_t lineLength;
  int32_t startLine;
  int32_t endLine;
} DREF_FGSThreadParam;

/* Smooths data (height x width floats, in place) under guide. Couplings are stored negated:
 * -lambda_t x g, g = exp(-(d / sigma)^2 / 2) of the largest channel difference d.
 * guideFormat 0: guide is interleaved, channels bytes per pixel, height x width pixels (the
 *   transposition for the vertical couplings moves 3 bytes per pixel; only channels == 3 is
 *   consistent, and the guide must hold height x width x max(3, channels) bytes).
 * guideFormat nonzero: guide is planar, channels planes of height x width bytes one after the
 *   other; couplings come from the largest difference over the planes (channels < 1: every
 *   coupling is the table's entry 0). This is this library's choice for a format that has no
 *   caller; an unfilled plane would be undefined.
 * mask (height x width, may be all zero): nonzero pixels couple with -0.01 in every pass.
 * pool may be null (everything on the caller's thread); with a pool, lines are split over
 * threadCount workers, and a threadCount below 1 solves nothing. Six buffers come from
 * allocator with tag "OPT_SMOOTH" (negative sizes are requested as 0 bytes); if one is
 * missing the call logs "memory alloc failure", releases the others and leaves data as it was
 * (a null allocator, or one without a malloc entry, fails the same way).
 * Results are the same bits for every thread count, pool or none, and vector target. */
BIVISTA_API void FGSFilter(const uint8_t* mask, float* data, const uint8_t* guide,
                           uint32_t guideFormat, int height, int width, int iterations,
                           int channels, void* pool, int threadCount,
                           const vta_algo_mem_allocator_t* allocator, float sigma, float lambda);

/* One iteration: row solves with hWeights, data transposed into scratch, column solves with
 * vWeights (width rows of height, transposed), and back. records: threadCount entries when
 * pool is non-null. */
BIVISTA_API void DREF_FGS_filter(float* data, const float* hWeights, const float* vWeights,
                                 int height, int width, float* scratch,
                                 DREF_FGSThreadParam* records, void* pool, int threadCount);
/* Solves lineCount consecutive lines of lineLength values in place; scratch (same size)
 * receives the modified upper coefficients. */
BIVISTA_API void DREF_FGSFilter1D(float* data, const float* weights, float* scratch,
                                  int lineCount, int lineLength);
/* Splits lineCount lines over threadCount workers: worker i gets lines (i x N) / T up to
 * ((i + 1) x N) / T (the last up to N), runs DREF_FGSFilter1D_started, then syncs. */
BIVISTA_API void DREF_FGSFilter1D_multiThread(float* data, const float* weights, float* scratch,
                                              int lineCount, int lineLength,
                                              DREF_FGSThreadParam* records, void* pool,
                                              int threadCount);

/* Couplings along rows of an interleaved guide (channels bytes per pixel, rows x cols pixels):
 * weights[r][x] = table[largest |byte difference| of pixels x and x + 1]; the last entry of each
 * row is 0. table[d] = -powf(2.7182817, -0.5 (d / sigma)^2) x lambda. */
BIVISTA_API void DREF_FGSGuideToWeight_yuv(float* weights, const uint8_t* guide, int rows,
                                           int cols, int channels, float sigma, float lambda);
/* The same over a planar guide of planes planes, rows x cols bytes apart. */
BIVISTA_API void DREF_FGSGuideToWeight_plane(float* weights, const uint8_t* guide, int rows,
                                             int cols, int planes, float sigma, float lambda);
/* guideFormat 0: horizontal couplings, the guide transposed (3 bytes per pixel) into
 * transposedGuide (height x width x 3 bytes), vertical couplings from it (width rows of
 * height; at most its 3 channels are compared). The guide holds height x width x
 * max(channels, 3) bytes. Any other guideFormat: nothing. */
BIVISTA_API void DREF_GetFGS_Weight(const uint8_t* guide, int height, int width, int channels,
                                    uint32_t guideFormat, float* hWeights, float* vWeights,
                                    uint8_t* transposedGuide, float sigma, float lambda);

/* dst[j x srcRows + i] = src[i x srcCols + j]; nothing when srcRows < 1. */
BIVISTA_API void DREF_Rotate_1D_UCHAR(uint8_t* dst, const uint8_t* src, int srcRows, int srcCols);
BIVISTA_API void DREF_Rotate_1D_FLOAT(float* dst, const float* src, int srcRows, int srcCols);
/* The same transpose moving 3-byte pixels. */
BIVISTA_API void DREF_Rotate_yuv(uint8_t* dst, const uint8_t* src, int srcRows, int srcCols);

/* -powf(2.7182817, -0.5 (x / sigma)^2): the negated Gaussian. */
BIVISTA_API float _gauss(float x, float sigma);
/* Where mask is nonzero, weights[r][x] = value for x = 0 .. cols - 2. */
BIVISTA_API void changeWeight(float* weights, const uint8_t* mask, int rows, int cols, float value);
/* changeWeight on hWeights (height rows of width) with mask and on vWeights (width rows of
 * height) with transposedMask. */
BIVISTA_API void adaptWeightBymask(float* hWeights, float* vWeights, const uint8_t* mask,
                                   const uint8_t* transposedMask, int height, int width,
                                   float value);
/* inv = 1 / factor; for i < count, hWeights[i] *= inv where mask[i] is 0 and vWeights[i] *= inv
 * where transposedMask[i] is 0. Returns inv. */
BIVISTA_API float updateWeight(float* hWeights, float* vWeights, int count, const uint8_t* mask,
                               const uint8_t* transposedMask, float factor);
/* allocator->free(pointer, tag, 0) when allocator, tag and pointer are all non-null. */
BIVISTA_API void fgs_safeDeleteMem(void* pointer, const vta_algo_mem_allocator_t* allocator,
                                   const char* tag);

BIVISTA_EXTERN_C_END

#ifdef __cplusplus
/* Pool worker: solves the lines of one DREF_FGSThreadParam; threadIndex is not used. */
BIVISTA_API void* DREF_FGSFilter1D_started(void* param, int threadIndex);
#endif

#endif
