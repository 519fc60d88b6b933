// Small synthetic frames and a shared call for the depth and shift tests.
#ifndef BIVISTA_TESTS_DEPTHCALC_FRAME_FIXTURE_H
#define BIVISTA_TESTS_DEPTHCALC_FRAME_FIXTURE_H

#include <math.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "bivista/depthcalc.h"

namespace dctest {

// A disparity map (8- or 16-bit), confidence 200 and a calibration with baseline 13; the image
// is `scale` times the map on both axes.
struct Frame {
  int width, height, stride, scale;
  bool wide;
  std::vector<uint8_t> disp8, conf;
  std::vector<uint16_t> disp16;
  DisparityType rec{};
  BIVISTA_CalibParam calib{};

  Frame(int w = 160, int h = 120, int s = 176, bool sixteen = false, int sc = 4)
      : width(w),
        height(h),
        stride(s),
        scale(sc),
        wide(sixteen),
        disp8(size_t(s) * h, 0),
        conf(size_t(s) * h, 200),
        disp16(size_t(s) * h, 0) {
    rec.format = wide;
    rec.data = wide ? static_cast<void*>(disp16.data()) : static_cast<void*>(disp8.data());
    rec.shiftDirection = 2;
    rec.width = w, rec.height = h, rec.stride = s;
    calib.camera1.value[1] = 1000.0, calib.camera1.value[2] = 1010.0;
    calib.camera2.value[1] = 1500.0, calib.camera2.value[2] = 1490.0;
    calib.translation[0] = 3.0, calib.translation[1] = 4.0, calib.translation[2] = 12.0;
    const float identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    memcpy(calib.warpMatrix, identity, sizeof identity);
    calib.warpMatrixForm = 1;
    calib.rectifiedWidth = w, calib.rectifiedHeight = h;
  }
  void Set(int x, int y, int raw) {
    const size_t i = size_t(y) * stride + x;
    if (wide)
      disp16[i] = uint16_t(raw);
    else
      disp8[i] = uint8_t(raw);
  }
  int Get(int x, int y) const {
    return wide ? disp16[size_t(y) * stride + x] : disp8[size_t(y) * stride + x];
  }
  void Fill(int raw) {
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) Set(x, y, raw);
  }
  int imageWidth() const { return width * scale; }
  int imageHeight() const { return height * scale; }
  // Focal of the mode times baseline times the 4:3 resize factor.
  float K() const {
    const double* cam = rec.mode == 0 ? calib.camera1.value : calib.camera2.value;
    const double f = static_cast<float>(width * 0.00025201612);
    return static_cast<float>(f * fmin(cam[1], cam[2]) * 13.0);
  }
};

// Outputs start as markers so untouched ones can be told apart.
struct Outputs {
  uint16_t depth = 0xBEEF;
  int32_t multi = -7;
  uint8_t conf = 0xAB;
  float sx = -99.0f, sy = -99.0f;
};

inline int Calc(const Frame& f, BIVISTA_Rect r, int flags, Outputs* o, int readMaps = 0,
                const uint16_t* xm = nullptr, const uint16_t* ym = nullptr) {
  return Bivista_CalcShift(&f.rec, f.conf.data(), &f.calib, r, f.imageWidth(), f.imageHeight(), 0,
                           nullptr, readMaps, xm, ym, flags, &o->depth, &o->multi, &o->conf, &o->sx,
                           &o->sy);
}

// Rectangle on the full image covering map samples [l, r] x [t, b].
inline BIVISTA_Rect ImageRect(const Frame& f, int l, int t, int r, int b) {
  return BIVISTA_Rect{l * f.scale, t * f.scale, r * f.scale, b * f.scale};
}

}  // namespace dctest

#endif
