// Bilinear resizing of 8-bit planes, masks, interleaved channels, NV21 and RGB24 images.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "bivista/imageformat.h"
#include "common/log_internal.h"
#include "imageformat/resize_u8_kernels.h"

namespace {

// The per-channel resizers all report under the name and line of ResizeUcharChl.
constexpr int kLineChlDstW = 758;
constexpr char kChlName[] = "ResizeUcharChl";

// Columns below the returned index may read four bytes from x0 * ch of any channel of the
// last row (rowBytes bytes from its first channel); x0 never decreases with the column. The
// caller's pointer may address any channel, so the last one is assumed.
int SafeColumns(const int32_t* x0, int n, int ch, int rowBytes) {
  int end = n;
  while (end > 0 && x0[end - 1] * ch + (ch - 1) + 3 >= rowBytes) --end;
  return end;
}

void ResizePlane(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH,
                 bool mask) {
  if (dstW < 1 || dstH < 1) return;
  const float stepX = static_cast<float>(srcW - 1) / dstW;
  const float stepY = static_cast<float>(srcH - 1) / dstH;
  // Without a table the rows compute the same columns themselves.
  const bivista::ColumnTable cols = bivista::MakeColumnTable(dstW, stepX);
  bivista::ResizeU8Plane(src, dst, srcW, srcH, dstW, dstH, stepX, stepY, mask, cols);
  bivista::FreeColumnTable(cols);
}

// Channels first..first+count-1 of an image with ch interleaved bytes a pixel.
void ResizeChannels(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH,
                    int ch, int count) {
  if (dstW < 1) {
    for (int k = 0; k < count; ++k)
      BV_LOGW(bivista::kTagAlgo, kChlName, kLineChlDstW, "dstW <= 0");
    return;
  }
  const float stepX = static_cast<float>(srcW - 1) / dstW;
  const float stepY = static_cast<float>(srcH - 1) / dstH;
  const ptrdiff_t srcRow = static_cast<ptrdiff_t>(srcW) * ch, dstRow = static_cast<ptrdiff_t>(dstW) * ch;
  const bivista::ColumnTable table = bivista::MakeColumnTable(dstW, stepX);
  if (table.x0 != nullptr) {
    const int32_t* x0 = table.x0;
    const float* ax = table.ax;
    const int safe = SafeColumns(x0, dstW, ch, static_cast<int>(srcRow));
    bivista::ResizeChannelsPlane(src, dst, srcW, srcH, dstW, dstH, stepY, x0, ax, safe, ch, count);
    bivista::FreeColumnTable(table);
    return;
  }
  // Without the table: the same values, computed for every pixel.
  for (int j = 0; j < dstH; ++j) {
    const float fy = j * stepY;
    const int y0 = static_cast<int>(fy);
    const uint8_t* rowA = src + y0 * srcRow;
    for (int i = 0; i < dstW; ++i) {
      const float fx = i * stepX;
      const int32_t x0 = static_cast<int32_t>(fx);
      const float ax = fx - x0;
      bivista::scalar::ResizeRowChannels(rowA, rowA + srcRow, dst + j * dstRow + i * ch, &x0, &ax,
                                         1, 0, fy - y0, ch, count);
    }
  }
}

uint32_t g_randState = 1;  // process-wide and unguarded by design

}  // namespace

extern "C" {

void ResizeUchar(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH) {
  ResizePlane(src, dst, srcW, srcH, dstW, dstH, false);
}

void ResizeUcharMask(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH) {
  ResizePlane(src, dst, srcW, srcH, dstW, dstH, true);
}

void ResizeUcharChl(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH,
                    int channels) {
  ResizeChannels(src, dst, srcW, srcH, dstW, dstH, channels, 1);
}

void ResizeUcharNV21(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH) {
  ResizeUchar(src, dst, srcW, srcH, dstW, dstH);
  // V and U together: each channel's result is what a separate pass would give.
  ResizeChannels(src + static_cast<ptrdiff_t>(srcW) * srcH, dst + static_cast<ptrdiff_t>(dstW) * dstH,
                 srcW / 2, srcH / 2, dstW / 2, dstH / 2, 2, 2);
}

void ResizeUcharRGB(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH) {
  ResizeChannels(src, dst, srcW, srcH, dstW, dstH, 3, 3);
}

void ResizeUchar_upScale2x2(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW,
                            int dstH) {
  if (dstW != 2 * srcW || dstH != 2 * srcH || srcW < 2 || srcH < 2) return;
  bivista::UpScale2x2Plane(src, dst, srcW, srcH);
}

float randFloat(void) {
  g_randState = ((g_randState & 0xFFFFu) * 16383u + (g_randState >> 16)) & 0x7FFFFFFFu;
  return static_cast<float>(g_randState & 255u) * 0.00392156862745098f;
}

}  // extern "C"
