// The host's entries: validation, then confidence, depth, multi-depth degree and shift.
#include "bivista/depthcalc.h"
#include "bivista/depthcalc_stages.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "android_platform.h"
#include "common/log_internal.h"
#include "depthcalc/depthcalc_internal.h"
#include "depthcalc/depthcalc_kernels.h"

using bivista::kTagAlgo;

namespace {

constexpr const char kCreate[] = "BIVISTA_DepthCalc_Create";
constexpr const char kDestroy[] = "BIVISTA_DepthCalc_Destroy";
constexpr const char kCalc[] = "Bivista_CalcShift";

constexpr int kLineCreateNoHandle = 61;
constexpr int kLineCreateNoParam = 67;
constexpr int kLineCreateScene = 72;
constexpr int kLineCreateSize = 79;
constexpr int kLineCreateNoTable = 86;
constexpr int kLineCreateNoFxn = 92;
constexpr int kLineCreateNoGpu = 99;
constexpr int kLineDestroyNull = 110;
constexpr int kLineDestroyZero = 115;

constexpr int kLineCalcInputs = 133;
constexpr int kLineCalcDispData = 138;
constexpr int kLineCalcConfidence = 143;
constexpr int kLineCalcDepthOut = 149;
constexpr int kLineCalcDepth = 153;
constexpr int kLineCalcShiftOut = 160;
constexpr int kLineCalcMaps = 165;
constexpr int kLineCalcDispSize = 172;
constexpr int kLineCalcImageSize = 178;
constexpr int kLineCalcArea = 185;
constexpr int kLineCalcScale = 191;
constexpr int kLineMallocConf = 236;
constexpr int kLineMallocUshort = 243;
constexpr int kLineMallocUchar = 250;
constexpr int kLineDepthResult = 281;
constexpr int kLineTransFailed = 312;

constexpr int kSceneSupported = 3;
constexpr int kCreateMaxWidth = 6529;   // exclusive
constexpr int kCreateMaxHeight = 4897;  // exclusive
constexpr int kMaxDispWidth = 3968;
constexpr int kMaxDispHeight = 2976;
constexpr float kMinDisparity = 0.2f;
constexpr float kMaxDisparity = 63.0f;

int ValidateCalcInputs(const DisparityType* disparity, const uint8_t* inputConfidence,
                       const BIVISTA_CalibParam* calib, const BIVISTA_Rect& a, int32_t imageWidth,
                       int32_t imageHeight, int32_t depthRequest, const void* depth,
                       int32_t readMaps, const uint16_t* xMap, const uint16_t* yMap,
                       int32_t flags, const uint16_t* averDepth, const int32_t* beMultiDepth,
                       const uint8_t* averConfidence, const float* averShiftX,
                       const float* averShiftY) {
  if (calib == nullptr || inputConfidence == nullptr) {
    BV_LOGE(kTagAlgo, kCalc, kLineCalcInputs,
            "Input calibParameterin(%p) or inputConfidence(%p) is NULL!", (const void*)calib,
            (const void*)inputConfidence);
    return BIVISTA_ERR_NULL_POINTER;
  }
  if (disparity == nullptr || disparity->data == nullptr) {
    BV_LOGE(kTagAlgo, kCalc, kLineCalcDispData, "dispdata is NULL");
    return BIVISTA_ERR_NULL_POINTER;
  }
  if ((flags & BIVISTA_CALC_CONFIDENCE) && averConfidence == nullptr) {
    BV_LOGE(kTagAlgo, kCalc, kLineCalcConfidence, "averConfidence is NULL");
    return BIVISTA_ERR_NULL_POINTER;
  }
  if (flags & BIVISTA_CALC_DEPTH) {
    if (averDepth == nullptr || beMultiDepth == nullptr) {
      BV_LOGE(kTagAlgo, kCalc, kLineCalcDepthOut, "averDepth(%p) or beMultiDepth(%p) is NULL",
              (const void*)averDepth, (const void*)beMultiDepth);
      return BIVISTA_ERR_NULL_POINTER;
    }
    if (depthRequest != 0 && depth == nullptr) {
      BV_LOGE(kTagAlgo, kCalc, kLineCalcDepth, "depth is NULL");
      return BIVISTA_ERR_NULL_POINTER;
    }
  }
  if (flags & (BIVISTA_CALC_SHIFT | BIVISTA_CALC_SHIFT_ALT)) {
    if (averShiftX == nullptr || averShiftY == nullptr || averDepth == nullptr) {
      BV_LOGE(kTagAlgo, kCalc, kLineCalcShiftOut,
              "averShiftX(%p) or averShiftY(%p) or averDepth(%p) is NULL", (const void*)averShiftX,
              (const void*)averShiftY, (const void*)averDepth);
      return BIVISTA_ERR_NULL_POINTER;
    }
    if (readMaps != 0 && (xMap == nullptr || yMap == nullptr)) {
      BV_LOGE(kTagAlgo, kCalc, kLineCalcMaps, "xMap(%p) or yMap(%p) is NULL", (const void*)xMap,
              (const void*)yMap);
      return BIVISTA_ERR_NULL_POINTER;
    }
  }
  const int dw = disparity->width, dh = disparity->height, ds = disparity->stride;
  if (dw < 1 || dw > kMaxDispWidth || dh < 1 || dh > kMaxDispHeight || ds < dw) {
    BV_LOGE(kTagAlgo, kCalc, kLineCalcDispSize,
            "dispwidth(%d) or dispheight(%d) or dispstride(%d) is not support", dw, dh, ds);
    return BIVISTA_ERR_UNSUPPORTED;
  }
  if (imageWidth < 1 || imageWidth > kMaxDispWidth || imageHeight < 1 ||
      imageHeight > kMaxDispHeight) {
    BV_LOGE(kTagAlgo, kCalc, kLineCalcImageSize, "imageWidth(%d) or imageHeight(%d) is not support",
            imageWidth, imageHeight);
    return BIVISTA_ERR_UNSUPPORTED;
  }
  // Only equality is tested: an inverted rectangle passes.
  if (a.bottom >= imageHeight || a.top == a.bottom || a.left == a.right || a.left < 0 ||
      a.top < 0 || a.right >= imageWidth) {
    BV_LOGE(kTagAlgo, kCalc, kLineCalcArea, "invaild orifocusArea: left:%d right:%d top:%d bottom:%d ",
            a.left, a.right, a.top, a.bottom);
    return BIVISTA_ERR_UNSUPPORTED;
  }
  if (static_cast<int64_t>(imageWidth) * dh != static_cast<int64_t>(imageHeight) * dw) {
    BV_LOGE(kTagAlgo, kCalc, kLineCalcScale,
            "scale of imageWidth/dispwidth and imageHeight/dispheight should be the same");
    return BIVISTA_ERR_UNSUPPORTED;
  }
  return BIVISTA_OK;
}

// Mode-1 scratch: the corrected confidence (stride x height bytes), then the corrected disparity
// in the record's sample size, one allocation each as the host's malloc sees them. Not cleared:
// the area is corrected into the first w x h samples of each plane (rows w apart), which is all
// the analysis reads, so a call touches pages for the area only. A dump, the one reader of whole
// planes, first spreads the area to its place in the map and zeroes the rest.
struct CorrectedPlanes {
  uint8_t* confidence = nullptr;
  void* disparity = nullptr;
  ~CorrectedPlanes() {
    free(disparity);
    free(confidence);
  }
};

int AllocCorrected(const DisparityType& rec, CorrectedPlanes* planes) {
  const size_t samples = static_cast<size_t>(rec.stride) * static_cast<size_t>(rec.height);
  planes->confidence = static_cast<uint8_t*>(malloc(samples));
  if (planes->confidence == nullptr) {
    BV_LOGE(kTagAlgo, kCalc, kLineMallocConf, "Malloc CorrectedConfidence memory error!");
    return -1;
  }
  if (rec.format != 0) {
    planes->disparity = malloc(samples * sizeof(uint16_t));
    if (planes->disparity == nullptr) {
      BV_LOGE(kTagAlgo, kCalc, kLineMallocUshort, "Malloc CorrectedDisp_ushort memory error!");
      return -1;
    }
  } else {
    planes->disparity = malloc(samples);
    if (planes->disparity == nullptr) {
      BV_LOGE(kTagAlgo, kCalc, kLineMallocUchar, "Malloc CorrectedDisp_uchar memory error!");
      return -1;
    }
  }
  return 0;
}

// Moves the packed area (rows w samples apart from the start) to its place in the stride x height
// plane and zeroes every other sample, so that the plane reads as allocated zeroed and then
// corrected in place. Rows move from the last: each lands at or after its packed position.
void SpreadArea(void* plane, size_t sampleBytes, int stride, int height, const BIVISTA_Rect& a) {
  uint8_t* p = static_cast<uint8_t*>(plane);
  const size_t row = static_cast<size_t>(stride) * sampleBytes;
  if (a.left > a.right || a.top > a.bottom) {
    memset(p, 0, row * height);
    return;
  }
  const size_t areaRow = static_cast<size_t>(a.right - a.left + 1) * sampleBytes;
  for (int y = a.bottom; y >= a.top; --y) {
    uint8_t* r = p + row * y;
    memmove(r + sampleBytes * a.left, p + areaRow * (y - a.top), areaRow);
    memset(r + sampleBytes * (a.right + 1), 0, sampleBytes * (stride - 1 - a.right));
    memset(r, 0, sampleBytes * a.left);
  }
  memset(p, 0, row * a.top);
  memset(p + row * (a.bottom + 1), 0, row * (height - 1 - a.bottom));
}

bool DumpEnabled() {
  char value[PROP_VALUE_MAX + 1] = {0};
  return __system_property_get("disptrans.saveEnable", value) > 0 && value[0] == '1';
}

}  // namespace

extern "C" {

int BIVISTA_DepthCalc_Create(const BIVISTA_DepthCalc_Param* p, uint64_t* handleOut) {
  if (handleOut == nullptr) {
    BV_LOGE(kTagAlgo, kCreate, kLineCreateNoHandle, "Failed to Creat handle (NULL Pointer of Handle) !");
    return BIVISTA_ERR_NULL_POINTER;
  }
  *handleOut = 0;
  if (p == nullptr) {
    BV_LOGE(kTagAlgo, kCreate, kLineCreateNoParam,
            "Failed to Creat handle (NULL Pointer of Parameter) !");
    return BIVISTA_ERR_NULL_POINTER;
  }
  if (p->scene != kSceneSupported) {
    BV_LOGE(kTagAlgo, kCreate, kLineCreateScene, "Don't support Scene(%d)", p->scene);
    return BIVISTA_ERR_CREATE_SCENE;
  }
  if (p->imageWidth >= kCreateMaxWidth || p->imageHeight >= kCreateMaxHeight ||
      p->imageWidth > p->stride) {
    BV_LOGE(kTagAlgo, kCreate, kLineCreateSize,
            "Failed to Create handle (Wrong Image Width = %d / Height = %d stride = %d) !",
            p->imageWidth, p->imageHeight, p->stride);
    return BIVISTA_ERR_CREATE_SCENE;
  }
  const vta_algo_mem_allocator_t* fxn = p->pMemoryFxn;
  if (fxn == nullptr) {
    BV_LOGE(kTagAlgo, kCreate, kLineCreateNoTable, "Failed to Create handle (NULL Pointer of pMemoryFxn ");
    return BIVISTA_ERR_NULL_POINTER;
  }
  if (fxn->malloc == nullptr || fxn->free == nullptr || fxn->getIbuf == nullptr) {
    BV_LOGE(kTagAlgo, kCreate, kLineCreateNoFxn,
            "Failed to Create handle (NULL Pointer of malloc Fxn = %p / free Fxn = %p / getIbuf "
            "Fxn = %p) !",
            (void*)fxn->malloc, (void*)fxn->free, (void*)fxn->getIbuf);
    return BIVISTA_ERR_NULL_POINTER;
  }
  if (p->pGPUResource == nullptr) {
    BV_LOGE(kTagAlgo, kCreate, kLineCreateNoGpu, "Failed to Create handle NULL Pointer of pGPUResource ");
    return BIVISTA_ERR_NULL_POINTER;
  }
  return BIVISTA_OK;
}

int BIVISTA_DepthCalc_Destroy(uint64_t* handle) {
  if (handle == nullptr) {
    BV_LOGW(kTagAlgo, kDestroy, kLineDestroyNull, "NULL Pointer of Input");
    return 0;
  }
  if (*handle == 0) {
    BV_LOGW(kTagAlgo, kDestroy, kLineDestroyZero, "NULL Pointer of Handle");
    return 0;
  }
  *handle = 0;
  return 0;
}

int Bivista_CalcShift(const DisparityType* disparity, const uint8_t* inputConfidence,
                      const BIVISTA_CalibParam* calib, BIVISTA_Rect focusArea, int32_t imageWidth,
                      int32_t imageHeight, int32_t depthRequest, void* depth, int32_t readMaps,
                      const uint16_t* xMap, const uint16_t* yMap, int32_t flags,
                      uint16_t* averDepth, int32_t* beMultiDepth, uint8_t* averConfidence,
                      float* averShiftX, float* averShiftY) {
  const int rc = ValidateCalcInputs(disparity, inputConfidence, calib, focusArea, imageWidth,
                                    imageHeight, depthRequest, depth, readMaps, xMap, yMap, flags,
                                    averDepth, beMultiDepth, averConfidence, averShiftX,
                                    averShiftY);
  if (rc != BIVISTA_OK) return rc;
  const DisparityType& rec = *disparity;

  // Focus area in disparity samples. Quotients beyond the int range saturate, as the phone
  // converts; only left and top are known to be in range, so w and h are formed in 64 bits.
  const float s = static_cast<float>(imageWidth) / static_cast<float>(rec.width);
  BIVISTA_Rect area;
  area.left = bivista::ToInt32Sat(static_cast<float>(focusArea.left) / s);
  area.top = bivista::ToInt32Sat(static_cast<float>(focusArea.top) / s);
  area.right = bivista::ToInt32Sat(static_cast<float>(focusArea.right) / s);
  area.bottom = bivista::ToInt32Sat(static_cast<float>(focusArea.bottom) / s);
  const int64_t w64 = static_cast<int64_t>(area.right) - area.left + 1;
  const int64_t h64 = static_cast<int64_t>(area.bottom) - area.top + 1;
  // An inverted area holds no sample: nothing is read from it and no pointer is formed into it.
  // Its statistics do not depend on how negative w and h are, so they go on saturated.
  const bool empty = w64 <= 0 || h64 <= 0;
  const int w = static_cast<int>(std::max<int64_t>(w64, INT32_MIN));
  const int h = static_cast<int>(std::max<int64_t>(h64, INT32_MIN));
  const int stride = rec.stride;
  // top x stride can pass 32 bits: the analysis gets planes that start at the area's first
  // sample (offset 0) instead of an offset.
  const size_t first = empty ? 0 : static_cast<size_t>(area.top) * stride + area.left;
  DisparityType areaRec = rec;
  areaRec.data = static_cast<uint8_t*>(rec.data) + first * (rec.format == 0 ? 1 : 2);
  const uint8_t* areaConf = inputConfidence + first;

  if (flags & BIVISTA_CALC_CONFIDENCE) {
    uint64_t sum = 0;
    for (int y = 0; !empty && y < h; ++y) {
      sum += bivista::SumBytes(areaConf + static_cast<size_t>(y) * stride, w);
    }
    // An empty area averages to 0 (its sum is 0 whatever w x h is).
    *averConfidence = static_cast<uint8_t>(empty ? 0 : static_cast<int64_t>(sum) / (w64 * h64));
  }

  if (flags & BIVISTA_CALC_DEPTH) {
    const float f = bivista::getResizeFac(rec.width, rec.height);
    const double* t = calib->translation;
    const double baseline = sqrt(t[0] * t[0] + t[1] * t[1] + t[2] * t[2]);
    const double* cam = rec.mode == 0 ? calib->camera1.value : calib->camera2.value;
    const double focal = cam[1] < cam[2] ? cam[1] : cam[2];
    const float K = static_cast<float>(static_cast<double>(f) * focal * baseline);

    float result[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    int multi = 0;
    if (rec.mode == 1) {
      CorrectedPlanes corrected;
      if (AllocCorrected(rec, &corrected) != 0) return BIVISTA_ERR_FAILED;
      if (!empty) {
        bivista::CorrectFocusAreaPacked(rec, inputConfidence, area, corrected.disparity,
                                        corrected.confidence, w);
      }
      DisparityType analysed = rec;
      analysed.data = corrected.disparity;
      if (DumpEnabled()) {
        SpreadArea(corrected.confidence, 1, stride, rec.height, area);
        SpreadArea(corrected.disparity, rec.format != 0 ? 2 : 1, stride, rec.height, area);
        SaveDispTransImage(rec.format == 0 ? static_cast<uint8_t*>(corrected.disparity) : nullptr,
                           corrected.confidence, rec.width, rec.height, stride, area);
        // From the area's first sample, as for the host's planes below.
        analysed.data = static_cast<uint8_t*>(corrected.disparity) +
                        first * (rec.format == 0 ? 1 : 2);
        analysisAFDepth(analysed, stride, w, h, 0, result, K, corrected.confidence + first);
        multi = D2AnalysisAFMultiDepth(analysed, stride, w, h, 0);
      } else {
        // Packed rows; the multi-depth minimum still starts at the map's stride.
        analysisAFDepth(analysed, w, w, h, 0, result, K, corrected.confidence);
        multi = bivista::MultiDepthRows(analysed, w, w, h, 0, static_cast<int16_t>(stride));
      }
    } else {
      analysisAFDepth(areaRec, stride, w, h, 0, result, K, areaConf);
      multi = D2AnalysisAFMultiDepth(areaRec, stride, w, h, 0);
    }
    *beMultiDepth = multi;
    float D = result[0];
    if (D > kMaxDisparity || D < kMinDisparity) D = kMinDisparity;
    *averDepth = static_cast<uint16_t>(bivista::ToInt32Sat(K / D));
    BV_LOGD(kTagAlgo, kCalc, kLineDepthResult, "myDispTrans depthresult=%d,isMultiDepth=%d",
            static_cast<int>(*averDepth), multi);
  }

  if (flags & (BIVISTA_CALC_SHIFT | BIVISTA_CALC_SHIFT_ALT)) {
    if (readMaps != 0) {
      // Only the last sample of the area (bottom-right) counts, as the host's maps are read.
      uint16_t lastX = 0, lastY = 0;
      if (!empty) {
        const size_t last = first + static_cast<size_t>(h - 1) * stride + w - 1;
        lastX = xMap[last];
        lastY = yMap[last];
      }
      // In double: the sides of an inverted area can reach 2^32 each.
      const float n = static_cast<float>(static_cast<double>(w64) * static_cast<double>(h64));
      *averShiftX = static_cast<float>(lastX >> 3) / n;
      *averShiftY = static_cast<float>(lastY >> 3) / n;
    } else if (bivista::TransDispariyArea(rec, *calib, area, averShiftX, averShiftY) != 0) {
      BV_LOGE(kTagAlgo, kCalc, kLineTransFailed, "TransDispariyArea failed in calc xymap");
      return BIVISTA_ERR_FAILED;
    }
  }
  return BIVISTA_OK;
}

}  // extern "C"
