// Box morphology of 0/1 masks: integral-image engine and the sliding column-counter engine.
#include <stdint.h>
#include <string.h>

#include "bivista/mem_services.h"
#include "bivista/morphology.h"
#include "common/alloc_size.h"
#include "common/log_internal.h"
#include "morphology/morph_kernels.h"

namespace bivista {
namespace {

constexpr int kLineUnsupportRadius = 340;
constexpr int kLineSafeNew = 346;
constexpr int kLineOpenFirst = 601;
constexpr int kLineOpenSecond = 606;
constexpr int kLineCloseFirst = 627;
constexpr int kLineCloseSecond = 633;
constexpr const char kMemTag[] = "MORPHOLOGIC";

// One integral row: above + running sum of the source row (above is null for row 0). In 32-bit
// modular arithmetic this equals left + above - above-left + pixel.
void IntegralRow(const unsigned char* src, const uint32_t* above, uint32_t* dst, int width) {
  uint32_t run = 0;
  if (above == nullptr) {
    for (int x = 0; x < width; ++x) dst[x] = run += src[x];
    return;
  }
  for (int x = 0; x < width; ++x) {
    run += src[x];
    dst[x] = above[x] + run;
  }
}

// Row 0 and column 0 are outside every window: the exclusive lower bounds clamp to index 0.
// Only the last 2r + 2 integral rows are ever read, so the table's block is used as a ring of
// rows that stays in cache.
int BoxMorph(const vta_algo_mem_allocator_t* mem, const unsigned char* src, unsigned char* dst,
             int width, int height, int k, int erode) {
  // k - 1 in 64 bits: k may be INT_MIN. Every window bound below is clipped in 64 bits, so radii
  // up to about INT_MAX / 2 cannot overflow; areas are compared modulo 2^32 like the sums.
  const int64_t r = static_cast<int64_t>(
      static_cast<double>(static_cast<float>(static_cast<int64_t>(k) - 1) * 0.5f) + 0.5);
  if (mem == nullptr || mem->malloc == nullptr || width < 1 || height < 1 || r < 0) return -1;
  const size_t count = static_cast<size_t>(width) * static_cast<size_t>(height);
  auto* integral = static_cast<uint32_t*>(mem->malloc(count * 4, VTA_MEM_TAG(kMemTag), 0));
  if (integral == nullptr) return -1;
  const int ring = static_cast<int>(height < 2 * r + 2 ? height : 2 * r + 2);
  const auto slot = [&](int row) { return integral + static_cast<size_t>(row % ring) * width; };
  // Exclusive lower and inclusive upper bound of the window around c, clipped to 0..n-1.
  const auto lower = [&](int c) { return static_cast<int>(c - r >= 1 ? c - r - 1 : 0); };
  const auto upper = [&](int c, int n) { return static_cast<int>(c + r < n - 1 ? c + r : n - 1); };
  int built = 0;  // integral rows computed so far
  // Columns whose window is not clipped at either side go through the row kernel.
  const int64_t x0 = r + 1;
  const int64_t x1 = width - 1 - r;
  for (int y = 0; y < height; ++y) {
    const int top = lower(y);
    const int bottom = upper(y, height);
    for (; built <= bottom; ++built) {
      IntegralRow(src + static_cast<size_t>(built) * width, built ? slot(built - 1) : nullptr,
                  slot(built), width);
    }
    const uint32_t* rowT = slot(top);
    const uint32_t* rowB = slot(bottom);
    unsigned char* out = dst + static_cast<size_t>(y) * width;
    const auto decide = [&](int x) {
      const int left = lower(x);
      const int right = upper(x, width);
      const uint32_t s = rowB[right] + rowT[left] - rowT[right] - rowB[left];
      if (erode) {
        out[x] = s == static_cast<uint32_t>(right - left) * static_cast<uint32_t>(bottom - top);
      } else {
        out[x] = static_cast<int32_t>(s) > 0 ? 1 : 0;
      }
    };
    int x = 0;
    for (; x < width && x < x0; ++x) decide(x);
    if (x0 <= x1) {
      const uint32_t area = static_cast<uint32_t>(2 * r + 1) * static_cast<uint32_t>(bottom - top);
      BoxDecideRow(rowB + x0 + r, rowT + x0 - r - 1, rowT + x0 + r, rowB + x0 - r - 1, out + x0,
                   static_cast<int>(x1 - x0 + 1), area, erode);
      x = static_cast<int>(x1 + 1);
    }
    for (; x < width; ++x) decide(x);
  }
  if (mem->free != nullptr) mem->free(integral, VTA_MEM_TAG(kMemTag), 0);
  return 0;
}

int OpenClose(const unsigned char* src, unsigned char* dst, int width, int height, int k,
              const char* func, unsigned char firstValue, int firstLine, int secondLine) {
  if (width > 0 && height > 0) {
    memcpy(dst, src, static_cast<size_t>(width) * static_cast<size_t>(height));
  }
  const int r = k / 2;
  int line = firstLine;
  int rc = Erosion_Dilation_Function_opt(dst, width, height, r, r, firstValue);
  if (rc == 0) {
    line = secondLine;
    rc = Erosion_Dilation_Function_opt(dst, width, height, r, r, firstValue ^ 1);
  }
  if (rc == 0) return 0;
  const int logged = BV_LOGW(kTagAlgo, func, line, "Erosion_Dilation_Function_opt Run Failed");
  return logged != 0 ? logged : -1;
}

}  // namespace
}  // namespace bivista

using namespace bivista;

void ImIntegral(const unsigned char* src, unsigned int* dst, int width, int height) {
  if (width < 1 || height < 1) return;
  for (int y = 0; y < height; ++y) {
    const size_t at = static_cast<size_t>(y) * width;
    IntegralRow(src + at, y ? dst + at - width : nullptr, dst + at, width);
  }
}

int ImErode(const vta_algo_mem_allocator_t* mem, const unsigned char* src, unsigned char* dst,
            int width, int height, int k) {
  return BoxMorph(mem, src, dst, width, height, k, 1);
}

int ImDilate(const vta_algo_mem_allocator_t* mem, const unsigned char* src, unsigned char* dst,
             int width, int height, int k) {
  return BoxMorph(mem, src, dst, width, height, k, 0);
}

int Erosion_Dilation_Function_opt(unsigned char* image, int width, int height, int kWidth,
                                  int kHeight, unsigned char v) {
  static const char kFunc[] = "Erosion_Dilation_Function_opt";
  // Negative radii would index outside the image; they are refused like oversized ones.
  if (kWidth > 255 || kHeight > 255 || kWidth < 0 || kHeight < 0 || 2 * kWidth >= width ||
      2 * kHeight >= height) {
    BV_LOGW(kTagAlgo, kFunc, kLineUnsupportRadius, "Unsupport Radius: kWidth[%d] kHeight[%d]",
            kWidth, kHeight);
    return -1;
  }
  const size_t plane = static_cast<size_t>(width) * static_cast<size_t>(height);
  auto* block = static_cast<unsigned char*>(
      safeNew(SafeNewBytes(static_cast<int64_t>(plane) + width + 8)));
  if (block == nullptr) {
    BV_LOGW(kTagAlgo, kFunc, kLineSafeNew, "%s safeNew ERROR!!!", kFunc);
    return -1;
  }
  unsigned char* copy = block;
  unsigned char* counters = block + plane;
  memcpy(copy, image, plane);
  memset(counters, 0, static_cast<size_t>(width) + 8);
  const auto row = [&](int y) { return copy + static_cast<size_t>(y) * width; };
  for (int y = 0; y <= kHeight; ++y) CounterAdd(row(y), counters, width, v);
  for (int y = 0; y < height; ++y) {
    SpreadRow(counters, row(y), image + static_cast<size_t>(y) * width, width, kWidth, v);
    if (y < height - kHeight - 1) CounterAdd(row(y + kHeight + 1), counters, width, v);
    if (y >= kHeight) CounterSub(row(y - kHeight), counters, width, v);
  }
  safeDelete(block);
  return 0;
}

int ImOpen(const vta_algo_mem_allocator_t* /*mem*/, const unsigned char* src, unsigned char* dst,
           int width, int height, int k) {
  return OpenClose(src, dst, width, height, k, "ImOpen", 0, kLineOpenFirst, kLineOpenSecond);
}

int ImClose(const vta_algo_mem_allocator_t* /*mem*/, const unsigned char* src,
            unsigned char* dst, int width, int height, int k) {
  return OpenClose(src, dst, width, height, k, "ImClose", 1, kLineCloseFirst, kLineCloseSecond);
}
