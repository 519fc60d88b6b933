// --png: the disparity in false colour beside the confidence, with the focus rectangle drawn.
#include <stdio.h>

#include <algorithm>
#include <vector>

#include "tools/tool_image.h"
#include "tools/tool_support.h"

namespace bvtool {
namespace {

constexpr int kGap = 8;
constexpr int kMinConfidence = 33;  // below this the library ignores a sample

double Disparity(const DisparityType& rec, size_t i) {
  const int raw = rec.format == 0 ? static_cast<const uint8_t*>(rec.data)[i]
                                  : static_cast<const uint16_t*>(rec.data)[i];
  const int v = raw + rec.dispOffset;
  return v < 0 ? 0.0 : v * 0.25;
}

// 1st and 99th percentile of the confident samples, so a few outliers do not flatten the colours.
void Range(const DisparityType& rec, const uint8_t* conf, double* lo, double* hi) {
  std::vector<double> v;
  const int step = std::max(1, rec.width * rec.height / 200000);
  for (int y = 0; y < rec.height; y += step)
    for (int x = 0; x < rec.width; x += step) {
      const size_t i = static_cast<size_t>(y) * rec.stride + x;
      if (conf[i] >= kMinConfidence) v.push_back(Disparity(rec, i));
    }
  if (v.empty()) {
    *lo = 0;
    *hi = 1;
    return;
  }
  std::sort(v.begin(), v.end());
  *lo = v[v.size() / 100];
  *hi = v[v.size() - 1 - v.size() / 100];
  if (*hi <= *lo) *hi = *lo + 1;
}

void DrawRect(std::vector<uint8_t>* img, int imgW, int imgH, int x0, const BIVISTA_Rect& r) {
  const uint8_t colour[3] = {255, 255, 255};
  auto put = [&](int x, int y) {
    if (x < 0 || y < 0 || x >= imgW || y >= imgH) return;
    std::copy(colour, colour + 3, img->data() + (static_cast<size_t>(y) * imgW + x) * 3);
  };
  const int l = std::min(r.left, r.right), rr = std::max(r.left, r.right);
  const int t = std::min(r.top, r.bottom), b = std::max(r.top, r.bottom);
  for (int k = 0; k < 2; ++k) {
    for (int x = l - k; x <= rr + k; ++x) {
      put(x0 + x, t - k);
      put(x0 + x, b + k);
    }
    for (int y = t - k; y <= b + k; ++y) {
      put(x0 + l - k, y);
      put(x0 + rr + k, y);
    }
  }
}

}  // namespace

bool WritePicture(const std::string& path, const DisparityType& rec, const uint8_t* confidence,
                  const BIVISTA_Rect& mapRect, std::string* error) {
  if (!PictureSupported()) {
    *error = "--png is not available: this build of the tool has no libpng";
    return false;
  }
  const int w = rec.width, h = rec.height;
  const int imgW = 2 * w + kGap;
  std::vector<uint8_t> img(static_cast<size_t>(imgW) * h * 3, 40);
  double lo, hi;
  Range(rec, confidence, &lo, &hi);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const size_t i = static_cast<size_t>(y) * rec.stride + x;
      uint8_t* left = img.data() + (static_cast<size_t>(y) * imgW + x) * 3;
      FalseColour((Disparity(rec, i) - lo) / (hi - lo), left);
      if (confidence[i] < kMinConfidence) {  // ignored by the library: shown dimmed
        for (int c = 0; c < 3; ++c) left[c] = static_cast<uint8_t>(left[c] / 3);
      }
      uint8_t* right = img.data() + (static_cast<size_t>(y) * imgW + w + kGap + x) * 3;
      right[0] = right[1] = right[2] = confidence[i];
    }
  DrawRect(&img, imgW, h, 0, mapRect);
  DrawRect(&img, imgW, h, w + kGap, mapRect);

  return WritePng(path, imgW, h, 3, img.data(), error);
}

}  // namespace bvtool
