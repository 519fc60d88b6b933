// Conversions between the YUV 4:2:0 layouts, YUV444 and RGB24.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "bivista/imageformat.h"
#include "common/log_internal.h"
#include "imageformat/yuv_kernels.h"

namespace {

constexpr int kLineNullNv21 = 335;
constexpr int kLineNullYuv = 341;
constexpr int kLineBadSize = 347;

void CopyRows(const uint8_t* src, ptrdiff_t srcStride, uint8_t* dst, ptrdiff_t dstStride,
              int width, int rows) {
  if (srcStride == width && dstStride == width) {
    memcpy(dst, src, static_cast<size_t>(width) * rows);
    return;
  }
  for (int r = 0; r < rows; ++r) memcpy(dst + r * dstStride, src + r * srcStride, width);
}

}  // namespace

extern "C" {

void ConvertNV122RGB24_wideRange(const uint8_t* nv12, uint8_t* rgb, int width, int height,
                                 int stride) {
  bivista::Nv12ToRgb24Plane(nv12, rgb, width, height, stride, false);
}

void ConvertNV122RGB24_wideRange_NEON(const uint8_t* nv12, uint8_t* rgb, int width, int height,
                                      int stride) {
  bivista::Nv12ToRgb24Plane(nv12, rgb, width, height, stride, true);
}

void ConvertNV21ToI420(const uint8_t* nv21, uint8_t* i420, int width, int height, int stride) {
  if (width < 1 || height < 1) return;
  CopyRows(nv21, stride, i420, width, width, height);
  if (height < 2) return;
  const int cw = width / 2, ch = height / 2;
  const uint8_t* vu = nv21 + static_cast<ptrdiff_t>(stride) * height;
  uint8_t* u = i420 + static_cast<ptrdiff_t>(width) * height;
  uint8_t* v = u + static_cast<ptrdiff_t>(cw) * ch;
  bivista::SplitPairRows(vu, v, u, cw, ch, stride);
}

void ConvertI420ToNV21(const uint8_t* i420, uint8_t* nv21, int width, int height, int stride) {
  if (width < 1 || height < 1) return;
  CopyRows(i420, width, nv21, stride, width, height);
  if (height < 2) return;
  const int cw = width / 2, ch = height / 2;
  const uint8_t* u = i420 + static_cast<ptrdiff_t>(width) * height;
  const uint8_t* v = u + static_cast<ptrdiff_t>(cw) * ch;
  uint8_t* vu = nv21 + static_cast<ptrdiff_t>(stride) * height;
  bivista::MergePairRows(v, u, vu, cw, ch, stride);
}

int ConvertNV21ToYuv(const uint8_t* nv21, uint8_t* yuv, int width, int height) {
  static const char kFunc[] = "ConvertNV21ToYuv";
  if (nv21 == nullptr) {
    BV_LOGE(bivista::kTagFmat, kFunc, kLineNullNv21, "VOID Poiter of NV21 Image!");
    return -1;
  }
  if (yuv == nullptr) {
    BV_LOGE(bivista::kTagFmat, kFunc, kLineNullYuv, "VOID Poiter of YUV Image!");
    return -1;
  }
  if (width < 1 || height < 1 || (width & 1) != 0 || (height & 1) != 0) {
    BV_LOGE(bivista::kTagFmat, kFunc, kLineBadSize, "Wrong Image Widht(%d) / Height(%d)", width,
            height);
    return -1;
  }
  const uint8_t* vu = nv21 + static_cast<ptrdiff_t>(width) * height;
  bivista::Nv21ToYuv444Plane(nv21, vu, yuv, width, height);
  return 0;
}

uint8_t* copyNV12ToYuv444(const uint8_t* nv12, int width, int height, int dstStride, int x0,
                          int y0, uint8_t* dst) {
  if (height < 1 || width < 1) return dst;
  // Offsets in 64 bits: the window's row and column may be anywhere in the int range.
  const int64_t w = width, d = dstStride, plane = w * height;
  for (int r = 0; r < height; ++r)
    memcpy(dst + r * d, nv12 + (static_cast<int64_t>(y0) + r) * w + x0, static_cast<size_t>(width));
  // Rows 2i and 2i + 1 share chroma row y0 / 2 + i; an odd height still writes the whole pair,
  // an odd width the whole last pair.
  const uint8_t* uvPlane = nv12 + plane;
  uint8_t* uPlane = dst + plane;
  uint8_t* vPlane = dst + 2 * plane;
  const int pairs = (width + 1) / 2;
  const int64_t rowBytes = 2 * static_cast<int64_t>(pairs), rows = (height + 1) / 2 * 2;
  // Block copies only where no two writes meet (rows apart by at least a row's bytes, the U and
  // V planes' rows apart); otherwise byte by byte in the defined order, so the last write wins
  // exactly as there.
  const int64_t reach = (rows - 1) * (d < 0 ? -d : d) + rowBytes;
  const bool blocks = (d >= rowBytes || d <= -rowBytes) && reach <= plane;
  const uint8_t* uvRow0 = uvPlane + static_cast<int64_t>(y0 / 2) * w + x0;
  if (blocks) {
    bivista::UpsamplePairRows(uvRow0, uPlane, vPlane, pairs, (height + 1) / 2, w, d);
    return dst;
  }
  for (int i = 0; 2 * i < height; ++i) {
    const uint8_t* uv = uvRow0 + i * w;
    uint8_t* u = uPlane + 2 * i * d;
    uint8_t* v = vPlane + 2 * i * d;
    for (int j = 0; j < pairs; ++j) {
      for (int k = 0; k < 2; ++k) {
        uint8_t* p = (k == 0 ? u : v) + 2 * j;
        p[0] = p[1] = p[d] = p[d + 1] = uv[2 * j + k];
      }
    }
  }
  return dst;
}

}  // extern "C"
