/* Stages of the depth and shift calculation, for modules that run parts of it themselves.
 * Bivista_CalcShift (depthcalc.h) calls them in this order: CorrectFocusArea (mode 1),
 * SaveDispTransImage (mode 1, dump enabled), analysisAFDepth, D2AnalysisAFMultiDepth.
 *
 * Common arguments: the disparity record by value (format, data, dispOffset are read), the row
 * stride in samples, the area's width w and height h in samples and the index `offset` of its
 * first sample (left + top x stride). The confidence plane has the disparity plane's layout.
 * A sample's value is (raw + dispOffset) >> 2, whole pixels from quarter pixels. Nothing is
 * checked: the caller passes planes that hold every sample the area names. */
#ifndef BIVISTA_DEPTHCALC_STAGES_H
#define BIVISTA_DEPTHCALC_STAGES_H

#include <stdint.h>

#include "bivista/bv_export.h"
#include "bivista/depthcalc.h"

BIVISTA_EXTERN_C_BEGIN

/* Peak-centred average disparity of a window of winW x winH samples centred in the area,
 * counting samples of value 2 or more whose confidence is 33 or more.
 * result[0] average disparity (pixels), [1] peak of the smoothed histogram, [2] clipped maximum
 * (written only when the raw and smoothed peaks differ by more than 2), [3] confidence score
 * 0..255. Returns the score, or, when the peaks differ by more than 2, that difference plus 2
 * taken as unsigned (result[3] is then 0). An area without a kept sample gives a not-a-number
 * average. 16-bit samples above 159 pixels count in the maximum (clipped to 159) only. */
BIVISTA_API int D2DataAnalysisAFDisparity_New(DisparityType disparity, int stride, int w, int h,
                                              int offset, float* result, int winW, int winH,
                                              const uint8_t* confidence);

/* D2DataAnalysisAFDisparity_New with the window grown from 10% of the area's sides by steps of
 * 1.5 (at most six, up to 100%) until the score reaches 64; returns the last result. K (the
 * depth constant) is not read. */
BIVISTA_API int analysisAFDepth(DisparityType disparity, int stride, int w, int h, int offset,
                                float* result, float K, const uint8_t* confidence);

/* Degree 0..255 to which the area mixes several depths (0: one depth), from the histogram of
 * |raw + dispOffset| >> 2 over 1..62 and the share of the five bins around its peak. */
BIVISTA_API int D2AnalysisAFMultiDepth(DisparityType disparity, int stride, int w, int h,
                                       int offset);

/* Re-samples the area (inclusive disparity coordinates, nothing done when top > bottom) from the
 * other camera's viewpoint: each output sample takes the input at (row, x + k) for the k in
 * 0..49 that best matches k + 2 to the disparity there, the best match carried from pixel to
 * pixel. outDisparity has the record's sample format; both outputs have the input's stride and
 * are written inside the area only. */
BIVISTA_API void CorrectFocusArea(DisparityType disparity, const uint8_t* confidence,
                                  const BIVISTA_Rect* area, void* outDisparity,
                                  uint8_t* outConfidence);

/* Debug dump under "<imagepath or /data>/disptrans/00/": appends the whole planes and the area
 * (rect, inclusive disparity coordinates) as raw 8-bit files, after painting a frame of 255
 * around the area into the disparity plane. Either plane may be null (no frame without a
 * disparity plane). stride in bytes. Failures are logged only. */
BIVISTA_API void SaveDispTransImage(uint8_t* disparity, const uint8_t* confidence, int width,
                                    int height, int stride, BIVISTA_Rect rect);

/* Appends rows rows of rowBytes bytes, row i at data + i x stride (a negative rowBytes writes
 * empty rows). Returns fclose's result, or the logger's result when the path holds "./" or
 * "../" or cannot be opened. */
BIVISTA_API int writeFile(const char* path, const uint8_t* data, int rowBytes, int rows,
                          int stride);

BIVISTA_EXTERN_C_END

#endif
