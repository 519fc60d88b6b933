/* Colour consistency between the two cameras: per-channel histogram tone matching of one image to
 * another, the NV12 luma rewrite and the least-squares calibration of its two weight sets.
 *
 * Images are 8-bit, one channel (a plane) or three interleaved channels (3 bytes a pixel, channel
 * 0 first); rows are `stride` bytes apart. Nothing here throws or aborts; failures log one line
 * and leave the image untouched. A null record or image handed to a stage makes it return
 * without doing anything. The weight sets are process-wide and unlocked: do not calibrate while
 * a conversion that reads the same set runs. */
#ifndef BIVISTA_COLORMATCH_H
#define BIVISTA_COLORMATCH_H

#include <stdint.h>

#include "bivista/bv_export.h"
#include "bivista/mem_services.h"

BIVISTA_EXTERN_C_BEGIN

/* The analysis record; it does not own its tables. With one channel only element 0 of each triple
 * is used. */
typedef struct image_color_analyze_para {
  int32_t channelNum; /* 1 or 3 */
  int32_t reserved;   /* set to 0, otherwise unused */
  int32_t* refHist[3];    /* 256 counts each */
  int32_t* refCumHist[3]; /* running sums, entry 255 = pixel count */
  int32_t* corHist[3];
  int32_t* corCumHist[3];
  int32_t* offset[3];     /* mapTable[i] - i */
  uint8_t* mapTable[3];   /* input level to output level */
} image_color_analyze_para;

/* Tone-matches corImage to refImage in place, taking one block (6144 bytes for one channel, 18432
 * for three) from allocator with the tag "PRE_HIST_MATCH". Channel counts other than 1 and 3 are
 * refused before any allocation. An allocator whose malloc or free entry is null counts as a
 * failed allocation. */
BIVISTA_API void imageColorToneMatching(const uint8_t* refImage, uint8_t* corImage, int width,
                                        int height, int stride, int channelNum,
                                        vta_algo_mem_allocator_t* allocator);

/* Stores channelNum into the record, then fills its tables and computes the look-up tables. */
BIVISTA_API void analyzeInputImagePair(const uint8_t* refImage, const uint8_t* corImage,
                                       int width, int height, int stride, int channelNum,
                                       image_color_analyze_para* para);
/* Rewrites the image in place through para->mapTable. */
BIVISTA_API void processCorImage(uint8_t* image, int width, int height, int stride,
                                 int channelNum, image_color_analyze_para* para);
/* Zeroes the used int tables and sets the used look-up tables to the identity. */
BIVISTA_API void initialAnalyseColor(image_color_analyze_para* para);
/* Adds the image's counts to the histograms (does not clear them); hist1/hist2 for three channels
 * only. */
BIVISTA_API void calculateHistogramofImage(const uint8_t* image, int width, int height,
                                           int stride, int channelNum, int* hist0, int* hist1,
                                           int* hist2);
BIVISTA_API void calculateCumHistogram(int* hist0, int* hist1, int* hist2, int channelNum,
                                       int* cum0, int* cum1, int* cum2);
/* Matching of one channel: levels 0..254, outputs at most 253. */
BIVISTA_API void analyseHistogramMatching(int* refCumHist, int* corCumHist, uint8_t* mapTable,
                                          int* offset);
/* Repairs depopulated stretches of one channel; returns the number of stretches rewritten. The
 * offsets may hold any int: the mean of two is taken without overflow. */
BIVISTA_API int findDepopulatedPosition(int* corHist, uint8_t* mapTable, int* offset);
/* Moves mapTable[0] and mapTable[255] to the centre of mass of the reference's end ranges. */
BIVISTA_API void adjustHeadAndTail(int* refHist, uint8_t* mapTable);

/* Rewrites the Y plane of an NV12 image from its own colours (mode 0: three-weight set; other
 * modes: four-weight set with the brightest-channel term). The new luma is written packed, rows
 * `width` apart, even when stride is larger. Takes 3 x width x height bytes from allocator with
 * the tag "PRE_COLOR_ADJUST". Returns 0, or -1 (image untouched) for a null image or allocator or
 * a failed allocation. A width or height below 1 returns 0 without allocating. */
BIVISTA_API int colorImageNV12Adjusting(uint8_t* image, int width, int height, int stride,
                                        int mode, vta_algo_mem_allocator_t* allocator);

/* count packed RGB24 pixels to luma bytes with the three-weight set. */
BIVISTA_API void yeqRGBtoY(uint8_t* dstY, const uint8_t* srcRGB, int count);
/* The same with the four-weight set. */
BIVISTA_API void yeqRGBVtoY(uint8_t* dstY, const uint8_t* srcRGB, int count);
/* Least-squares fit of the four-weight set (withMax odd) or the three-weight set to the samples
 * (c0[i], c1[i], c2[i]) -> y[i], installed on success. Returns 0, or -1 with the sets unchanged
 * (n < 1, singular samples, null arrays, failed allocation). */
BIVISTA_API int yeqCalib(const float* c0, const float* c1, const float* c2, const float* y, int n,
                         int withMax, int verbose);

BIVISTA_EXTERN_C_END

#endif
