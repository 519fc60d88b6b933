// Stages of the depth and shift calculation, reachable by unit tests through the static library.
#ifndef BIVISTA_SRC_DEPTHCALC_DEPTHCALC_INTERNAL_H
#define BIVISTA_SRC_DEPTHCALC_DEPTHCALC_INTERNAL_H

#include <stddef.h>
#include <stdint.h>

#include "bivista/depthcalc.h"
#include "bivista/depthcalc_stages.h"

namespace bivista {

// The exported stages (depthcalc_stages.h), reachable under the namespace as well.
using ::analysisAFDepth;
using ::CorrectFocusArea;
using ::D2AnalysisAFMultiDepth;
using ::D2DataAnalysisAFDisparity_New;
using ::SaveDispTransImage;
using ::writeFile;

constexpr int kHistBins = 160;

// Float to int as AArch64 converts: truncation, saturation, not-a-number gives 0.
inline int32_t ToInt32Sat(double v) {
  if (v != v) return 0;
  if (v >= 2147483647.0) return INT32_MAX;
  if (v <= -2147483648.0) return INT32_MIN;
  return static_cast<int32_t>(v);
}

// Sample i of the plane, by the record's format.
inline int32_t RawSample(const DisparityType& rec, size_t i) {
  return rec.format == 0 ? static_cast<const uint8_t*>(rec.data)[i]
                         : static_cast<const uint16_t*>(rec.data)[i];
}

// ---- statistics ----
float getResizeFac(int width, int height);

// D2AnalysisAFMultiDepth on rows rowStride apart, the running minimum starting at minStart.
int MultiDepthRows(const DisparityType& rec, int rowStride, int w, int h, int offset, int minStart);
// CorrectFocusArea into planes that hold only the rectangle: (row, x) lands at
// (row - top) * outStride + (x - left).
void CorrectFocusAreaPacked(const DisparityType& rec, const uint8_t* confidence,
                            const BIVISTA_Rect& rect, void* outDisp, uint8_t* outConf,
                            int outStride);

// ---- focus-area transform ----
int InvertMatrix3x3(const float* m, float* inv);
void MulMatrix3x3(const float* a, const float* b, float* c);
int CalcWarpingMatrix(const float* warp, int rectifyW, int rectifyH, int fixW, int fixH,
                      float* homography);
int CalcVxVy(int mode, const BIVISTA_CalibParam& calib, int fixW, int fixH, float* homography);
void calcAreaVxVy(const float* homography, const BIVISTA_Rect& rect, int xoff, int yoff,
                  float* vx, float* vy);
// 0 on success with the two averages written; -1 (logged) otherwise.
int TransDispariyArea(const DisparityType& rec, const BIVISTA_CalibParam& calib,
                      const BIVISTA_Rect& rect, float* averShiftX, float* averShiftY);

// ---- debug dumps ----
// Frame of 255 around the area, as the dump paints it.
void PaintDumpFrame(uint8_t* plane, int stride, const BIVISTA_Rect& rect);

}  // namespace bivista

#endif
