/* Dual-camera autofocus depth and shift: the host's per-frame calculation interface. */
#ifndef BIVISTA_DEPTHCALC_H
#define BIVISTA_DEPTHCALC_H

#include <stdint.h>

#include "bivista/bv_export.h"
#include "bivista/mem_services.h"

BIVISTA_EXTERN_C_BEGIN

/* Result codes of the calculation interface. */
enum {
  BIVISTA_OK = 0,
  BIVISTA_ERR_NULL_POINTER = 256,   /* a required pointer is null */
  BIVISTA_ERR_UNSUPPORTED = 257,    /* a size or the focus area is not supported */
  BIVISTA_ERR_CREATE_SCENE = 259,   /* unsupported scene or image size at create time */
  BIVISTA_ERR_FAILED = -1           /* a scratch allocation failed, or the shift step failed */
};

/* Flags of Bivista_CalcShift. */
enum {
  BIVISTA_CALC_CONFIDENCE = 2,  /* averConfidence */
  BIVISTA_CALC_SHIFT = 4,       /* averShiftX, averShiftY (8 is accepted as well) */
  BIVISTA_CALC_SHIFT_ALT = 8,
  BIVISTA_CALC_DEPTH = 16       /* averDepth, beMultiDepth */
};

/* Inclusive pixel coordinates; left > right or top > bottom is not rejected. Such an inverted
 * area holds no sample: confidence 0, depth 0, multi-depth 0; the shift is 0, 0 when both sides
 * are inverted, else (and when its w x h plane does not fit 32 bits) the shift step fails. */
typedef struct BIVISTA_Rect {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
} BIVISTA_Rect;

/* Disparity plane in quarter pixels. format 0: uint8_t samples, otherwise uint16_t.
 * mode 0: first camera's focal lengths; 1: focus area corrected against the confidence before
 * the analysis, second camera's focal lengths; other: second camera's, no correction.
 * shiftDirection 0/1: disparity along columns, 2/3: along rows, above 3: zero shift.
 * dispOffset is added to every raw sample, wrapping modulo 2^32 near the int limits (an offset
 * near INT32_MAX turns large samples negative: disparity 0). width, height, stride in samples;
 * offsets into the planes are 64-bit, so the stride may be as large as the caller's plane. */
typedef struct DisparityType {
  int32_t format;
  void* data;
  int32_t mode;
  int32_t shiftDirection;
  int32_t reserved0;
  int32_t dispOffset;
  int32_t width;
  int32_t height;
  int32_t stride;
  int32_t reserved1;
} DisparityType;

/* Nine values per camera; [1] and [2] are its focal lengths in pixels. */
typedef struct BIVISTA_CameraBlock {
  double value[9];
} BIVISTA_CameraBlock;

/* Calibration of the camera pair (read-only). The depth result carries the unit of the
 * translation. warpMatrix is row-major; with mode 1 and warpMatrixForm 1, or mode 0 and form 0,
 * it is inverted before use. */
typedef struct BIVISTA_CalibParam {
  BIVISTA_CameraBlock camera1;
  BIVISTA_CameraBlock camera2;
  double reserved[4];
  double translation[3];
  float warpMatrix[9];
  int32_t warpMatrixForm;
  int32_t rectifiedWidth;
  int32_t rectifiedHeight;
} BIVISTA_CalibParam;

/* Create parameters; only validated. */
typedef struct BIVISTA_DepthCalc_Param {
  int32_t scene;        /* only 3 */
  int32_t imageWidth;   /* below 6529 */
  int32_t imageHeight;  /* below 4897 */
  int32_t stride;       /* not below imageWidth */
  vta_algo_mem_allocator_t* pMemoryFxn;  /* all three functions required; not installed */
  void* pGPUResource;   /* required, not used */
} BIVISTA_DepthCalc_Param;

/* Validates the parameters; *handleOut is set to 0 (there is no state). */
BIVISTA_API int BIVISTA_DepthCalc_Create(const BIVISTA_DepthCalc_Param* parameters,
                                         uint64_t* handleOut);

/* Clears *handle; always returns 0. */
BIVISTA_API int BIVISTA_DepthCalc_Destroy(uint64_t* handle);

/* One frame: confidence, depth, multi-depth degree and shift of focusArea (full-image pixels).
 * inputConfidence has the disparity plane's layout. xMap/yMap (read when readMaps is non-zero)
 * are uint16_t planes in eighths of a pixel with the disparity stride. flags: see above.
 * averDepth = K / D in the translation's unit, where K = resize factor x focal x baseline and D the
 * peak-centred average disparity (D above 63 or below 0.2 counts as 0.2).
 * beMultiDepth: 0 for a single depth up to 255 for a strongly mixed area.
 * When no computed shift target lands inside the focus area the shift is reported as 0, 0. */
BIVISTA_API int Bivista_CalcShift(const DisparityType* disparity, const uint8_t* inputConfidence,
                                  const BIVISTA_CalibParam* calibParameterin,
                                  BIVISTA_Rect focusArea, int32_t imageWidth, int32_t imageHeight,
                                  int32_t depthRequest, void* depth, int32_t readMaps,
                                  const uint16_t* xMap, const uint16_t* yMap, int32_t flags,
                                  uint16_t* averDepth, int32_t* beMultiDepth,
                                  uint8_t* averConfidence, float* averShiftX, float* averShiftY);

BIVISTA_EXTERN_C_END

#endif
