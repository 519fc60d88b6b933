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

// An empty source writes nothing. A one-row source is its own lower neighbour (weight exactly
// 0); a one-column source is read through a two-pixel copy of each row (its right neighbour has
// weight exactly 0 too), so no read leaves the source.
void ResizePlane(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH,
                 bool mask) {
  if (dstW < 1 || dstH < 1 || srcW < 1 || srcH < 1) return;
  const float stepX = static_cast<float>(srcW - 1) / dstW;
  const float stepY = static_cast<float>(srcH - 1) / dstH;
  // Without a table the rows compute the same columns themselves.
  const bivista::ColumnTable cols = bivista::MakeColumnTable(dstW, stepX);
  bivista::ResizeU8Plane(src, dst, srcW, srcH, dstW, dstH, stepX, stepY, mask, cols);
  bivista::FreeColumnTable(cols);
}

// Channels first..first+count-1 of an image with ch interleaved bytes a pixel. Fewer than one
// channel a pixel, or an empty source, writes nothing; one row or column as in ResizePlane.
void ResizeChannels(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH,
                    int ch, int count) {
  if (dstW < 1) {
    for (int k = 0; k < count; ++k)
      BV_LOGW(bivista::kTagAlgo, kChlName, kLineChlDstW, "dstW <= 0");
    return;
  }
  if (dstH < 1 || srcW < 1 || srcH < 1 || ch < 1) return;
  const float stepX = static_cast<float>(srcW - 1) / dstW;
  const float stepY = static_cast<float>(srcH - 1) / dstH;
  const ptrdiff_t srcRow = static_cast<ptrdiff_t>(srcW) * ch, dstRow = static_cast<ptrdiff_t>(dstW) * ch;
  const ptrdiff_t lower = srcH > 1 ? srcRow : 0;
  if (srcW == 1) {
    // Every destination pixel of a row takes the same blend of the column's two samples.
    for (int j = 0; j < dstH; ++j) {
      const float fy = j * stepY;
      const int y0 = static_cast<int>(fy);
      const uint8_t* a = src + y0 * srcRow;
      for (int i = 0; i < dstW; ++i) {
        for (int k = 0; k < count; ++k) {
          const float v = bivista::scalar::Bilinear(a[k], a[k], a[lower + k], a[lower + k], 0.0f,
                                                    fy - y0);
          dst[j * dstRow + static_cast<ptrdiff_t>(i) * ch + k] =
              static_cast<uint8_t>(static_cast<int>(v));
        }
      }
    }
    return;
  }
  const bivista::ColumnTable table = bivista::MakeColumnTable(dstW, stepX);
  if (table.x0 != nullptr) {
    const int32_t* x0 = table.x0;
    const float* ax = table.ax;
    const int safe = SafeColumns(x0, dstW, ch, bivista::PairBytes(srcH, srcH, srcRow));
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
      bivista::scalar::ResizeRowChannels(rowA, rowA + lower, dst + j * dstRow + i * ch, &x0, &ax,
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
  // V and U together: each channel's result is what a separate pass would give. The chroma
  // planes are addressed only when both images have luma (no pointer past an empty image).
  const bool planes = srcW > 0 && srcH > 0 && dstW > 0 && dstH > 0;
  ResizeChannels(planes ? src + static_cast<ptrdiff_t>(srcW) * srcH : src,
                 planes ? dst + static_cast<ptrdiff_t>(dstW) * dstH : dst, srcW / 2, srcH / 2,
                 dstW / 2, dstH / 2, 2, 2);
}

void ResizeUcharRGB(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH) {
  ResizeChannels(src, dst, srcW, srcH, dstW, dstH, 3, 3);
}

void ResizeUchar_upScale2x2(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW,
                            int dstH) {
  // The relation in 64 bits: a side near the int limits must not wrap onto it.
  if (dstW != 2 * static_cast<int64_t>(srcW) || dstH != 2 * static_cast<int64_t>(srcH) ||
      srcW < 2 || srcH < 2)
    return;
  bivista::UpScale2x2Plane(src, dst, srcW, srcH);
}

float randFloat(void) {
  g_randState = ((g_randState & 0xFFFFu) * 16383u + (g_randState >> 16)) & 0x7FFFFFFFu;
  return static_cast<float>(g_randState & 255u) * 0.00392156862745098f;
}

}  // extern "C"
