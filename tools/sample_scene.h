// A synthetic dual-camera frame: a rounded foreground object in front of a tilted background,
// quarter-pixel disparity with noise, confidence that drops at occlusion edges and in a
// textureless patch, and a plausible calibration. Shared by the tool and the benchmark.
#ifndef BIVISTA_TOOLS_SAMPLE_SCENE_H
#define BIVISTA_TOOLS_SAMPLE_SCENE_H

#include <math.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "bivista/depthcalc.h"

namespace bvtool {

struct SampleScene {
  int width = 0, height = 0, stride = 0;
  bool wide = false;
  std::vector<uint8_t> disp8;
  std::vector<uint16_t> disp16;
  std::vector<uint8_t> conf;
  BIVISTA_CalibParam calib{};
  DisparityType rec{};
  // Ground truth, in map pixels and in the translation's unit (millimetres here).
  double objectDepth = 0, backgroundDepth = 0;
  double objectDisparity = 0, backgroundDisparity = 0;
  // The object's box on the map.
  int objLeft = 0, objTop = 0, objRight = 0, objBottom = 0;
};

namespace detail {

// Small deterministic generator (xorshift), so every run shows the same frame.
struct Rng {
  uint32_t s;
  explicit Rng(uint32_t seed) : s(seed ? seed : 1) {}
  uint32_t Next() {
    s ^= s << 13;
    s ^= s >> 17;
    s ^= s << 5;
    return s;
  }
  double Uniform() { return (Next() >> 8) * (1.0 / 16777216.0); }
  double Gauss() {  // sum of four uniforms: close enough to a normal for sensor noise
    return (Uniform() + Uniform() + Uniform() + Uniform() - 2.0) * 1.7320508;
  }
};

}  // namespace detail

// width x height map (4:3 recommended), full image `imageScale` times larger.
inline void MakeSampleScene(int width, int height, int stride, bool wide, int imageScale,
                            SampleScene* sc) {
  sc->width = width;
  sc->height = height;
  sc->stride = stride;
  sc->wide = wide;
  const size_t n = static_cast<size_t>(stride) * height;
  sc->disp8.assign(wide ? 0 : n, 0);
  sc->disp16.assign(wide ? n : 0, 0);
  sc->conf.assign(n, 0);

  // Calibration: main camera 4.8 mm lens on 1.4 um pixels at 3968 wide, 12 mm baseline.
  const double focalFull = 3400.0;
  const double baselineMm = 12.0;
  BIVISTA_CalibParam& c = sc->calib;
  memset(&c, 0, sizeof c);
  c.camera1.value[0] = 1.0;
  c.camera1.value[1] = focalFull;
  c.camera1.value[2] = focalFull + 6.0;
  c.camera2.value[0] = 1.0;
  c.camera2.value[1] = focalFull * 1.02;
  c.camera2.value[2] = focalFull * 1.02 - 5.0;
  c.translation[0] = -baselineMm;
  c.translation[1] = 0.08;
  c.translation[2] = 0.15;
  // Rectified-to-fixed warp: a small rotation, zoom and offset.
  const float a = 0.0021f, zoom = 1.004f;
  const float warp[9] = {zoom * cosf(a), -zoom * sinf(a), 9.5f,
                         zoom * sinf(a), zoom * cosf(a), -6.25f,
                         1.2e-7f, -0.8e-7f, 1.0f};
  memcpy(c.warpMatrix, warp, sizeof warp);
  c.warpMatrixForm = 1;
  c.rectifiedWidth = width * imageScale;
  c.rectifiedHeight = height * imageScale;

  // Object at 30 map pixels of disparity, background at 10 (tilted); depth = K / disparity.
  const double resize = width * 0.00025201612;  // map width / 3968
  const double baseline = sqrt(c.translation[0] * c.translation[0] +
                               c.translation[1] * c.translation[1] +
                               c.translation[2] * c.translation[2]);
  const double K = resize * focalFull * baseline;
  sc->objectDisparity = 30.0;
  sc->backgroundDisparity = 10.0;
  sc->objectDepth = K / sc->objectDisparity;
  sc->backgroundDepth = K / sc->backgroundDisparity;

  const double cx = width * 0.42, cy = height * 0.55;
  const double rx = width * 0.16, ry = height * 0.22;
  sc->objLeft = static_cast<int>(cx - rx);
  sc->objRight = static_cast<int>(cx + rx);
  sc->objTop = static_cast<int>(cy - ry);
  sc->objBottom = static_cast<int>(cy + ry);
  detail::Rng rng(0x5eed1234u);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      // Superellipse: a rounded box.
      const double ux = (x - cx) / rx, uy = (y - cy) / ry;
      const double r = ux * ux * ux * ux + uy * uy * uy * uy;
      const bool inObject = r <= 1.0;
      const double tilt = 1.0 + 0.08 * (y - height / 2.0) / height;  // floor-like tilt
      const double disparity =
          inObject ? sc->objectDisparity : sc->backgroundDisparity * tilt;
      const double q = disparity * 4.0 + rng.Gauss() * 1.2;  // quarter pixels, sensor noise
      const int raw = q < 0 ? 0 : static_cast<int>(q + 0.5);
      const size_t i = static_cast<size_t>(y) * stride + x;
      if (wide) sc->disp16[i] = static_cast<uint16_t>(raw > 65535 ? 65535 : raw);
      else sc->disp8[i] = static_cast<uint8_t>(raw > 255 ? 255 : raw);

      // Confidence: good on texture, poor near the occlusion edge (to the object's right, where
      // the second camera cannot see the background) and in a flat wall patch.
      double conf = 215.0 + rng.Gauss() * 18.0;
      const double edge = fabs(r - 1.0);
      if (edge < 0.12) conf -= 150.0 * (1.0 - edge / 0.12);
      if (!inObject && x > cx + rx && x < cx + rx + width * 0.02 && fabs(y - cy) < ry) conf -= 170;
      if (x > width * 0.78 && y < height * 0.3) conf = 12.0 + rng.Uniform() * 20.0;
      if (rng.Uniform() < 0.01) conf = rng.Uniform() * 30.0;  // speckle
      sc->conf[i] = static_cast<uint8_t>(conf < 0 ? 0 : conf > 255 ? 255 : conf);
    }
  }
  DisparityType& d = sc->rec;
  memset(&d, 0, sizeof d);
  d.format = wide ? 1 : 0;
  d.data = wide ? static_cast<void*>(sc->disp16.data()) : static_cast<void*>(sc->disp8.data());
  d.mode = 0;
  d.shiftDirection = 2;
  d.dispOffset = 0;
  d.width = width;
  d.height = height;
  d.stride = stride;
}

// A scene for the depth refinement filters: a photo and a measured depth map of the same view.
// Objects at known depths in front of a tilted wall; the measured map has sensor noise, holes
// (0 = no measurement) and edges that bleed a few pixels past the objects' outlines, as a
// stereo matcher's do, so a guided filter has something to snap back to the photo's edges.
struct RefineScene {
  int width = 0, height = 0;
  std::vector<float> truth;   // depth in millimetres
  std::vector<float> depth;   // measured: noisy, bleeding edges, holes at 0
  std::vector<uint8_t> guide; // RGB photo, width x 3 bytes a row
  // Depths of the three objects and the wall's range (millimetres).
  double discDepth = 900, boxDepth = 1500, poleDepth = 1200, wallNear = 2600, wallFar = 3400;
};

namespace detail {

// Which object a point belongs to (0 wall, 1 disc, 2 box, 3 pole), dilated outlines by `grow`
// pixels so the bleeding of the measured map can reuse the same shapes.
inline int RefineObject(double x, double y, int w, int h, double grow) {
  const double dx = x - w * 0.30, dy = y - h * 0.45, r = h * 0.22 + grow;
  if (dx * dx + dy * dy <= r * r) return 1;
  if (fabs(x - w * 0.82) <= w * 0.04 + grow && y >= h * 0.10 - grow) return 3;
  if (x >= w * 0.52 - grow && x <= w * 0.74 + grow && y >= h * 0.42 - grow &&
      y <= h * 0.86 + grow)
    return 2;
  return 0;
}

}  // namespace detail

inline void MakeRefineScene(int width, int height, RefineScene* sc) {
  sc->width = width;
  sc->height = height;
  const size_t n = static_cast<size_t>(width) * height;
  sc->truth.assign(n, 0.0f);
  sc->depth.assign(n, 0.0f);
  sc->guide.assign(n * 3, 0);
  detail::Rng rng(0x0dd5ca1eu);
  const double grow = width / 160.0 + 2.0;  // how far measured edges bleed
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const size_t i = static_cast<size_t>(y) * width + x;
      const double wall = sc->wallNear + (sc->wallFar - sc->wallNear) * (1.0 - double(y) / height);
      const double depths[4] = {wall, sc->discDepth, sc->boxDepth, sc->poleDepth};
      const int obj = detail::RefineObject(x, y, width, height, 0.0);
      sc->truth[i] = static_cast<float>(depths[obj]);

      // Photo: a striped wall, a shaded orange disc, a blue box with a label, a grey pole.
      double rgb[3];
      if (obj == 0) {
        const double stripe = ((x / 24 + y / 48) & 1) ? 0.92 : 1.0;
        rgb[0] = 150 * stripe, rgb[1] = 160 * stripe, rgb[2] = 120 * stripe;
      } else if (obj == 1) {
        const double dx = x - width * 0.30, dy = y - height * 0.45;
        const double shade = 1.0 - 0.45 * sqrt(dx * dx + dy * dy) / (height * 0.22);
        rgb[0] = 235 * shade, rgb[1] = 130 * shade, rgb[2] = 40 * shade;
      } else if (obj == 2) {
        const bool label = y > height * 0.55 && y < height * 0.62;
        rgb[0] = label ? 230 : 40, rgb[1] = label ? 230 : 70, rgb[2] = label ? 220 : 170;
      } else {
        rgb[0] = rgb[1] = rgb[2] = 90 + 60.0 * (x - width * 0.78) / (width * 0.08);
      }
      for (int c = 0; c < 3; ++c) {
        const double v = rgb[c] + rng.Gauss() * 3.0;
        sc->guide[i * 3 + c] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
      }

      // Measured depth: objects bleed `grow` pixels past their outlines (to the right more
      // than to the left, as occlusions do), 1.5 % noise, a few holes.
      int seen = detail::RefineObject(x - grow * 0.5, y, width, height, grow * 0.5);
      if (seen == 0) seen = obj;
      double d = depths[seen] * (1.0 + rng.Gauss() * 0.015);
      if (rng.Uniform() < 0.004 || (seen == 0 && x > width * 0.9 && y > height * 0.8)) d = 0.0;
      sc->depth[i] = static_cast<float>(d);
    }
  }
}

// One photo rendered twice, as two cameras with different tone curves would: the first with a
// gentle gamma, the second darker, with more contrast and a colour cast. RGB, width x 3 a row.
inline void MakeTonePair(int width, int height, std::vector<uint8_t>* first,
                         std::vector<uint8_t>* second) {
  RefineScene sc;
  MakeRefineScene(width, height, &sc);
  const size_t n = static_cast<size_t>(width) * height * 3;
  first->resize(n);
  second->resize(n);
  const double gain[3] = {1.00, 0.93, 1.08};
  for (size_t i = 0; i < n; ++i) {
    const double v = sc.guide[i] / 255.0;
    const double a = pow(v, 0.85);
    const double s = v * v * (3.0 - 2.0 * v);  // smoothstep: more contrast
    const double b = std::min(1.0, (0.35 * v + 0.65 * s) * 0.9 * gain[i % 3]);
    (*first)[i] = static_cast<uint8_t>(a * 255.0 + 0.5);
    (*second)[i] = static_cast<uint8_t>(b * 255.0 + 0.5);
  }
}

}  // namespace bvtool

#endif
