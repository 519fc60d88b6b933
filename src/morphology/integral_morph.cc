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

// Row 0 and column 0 are outside every window: the exclusive lower bounds clamp to index 0.
// Only the last 2r + 2 integral rows are ever read, so the table's block is used as a ring of
// rows that stays in cache.
int BoxMorph(const vta_algo_mem_allocator_t* mem, const unsigned char* src, unsigned char* dst,
             int width, int height, int k, int erode) {
  // k - 1 in 64 bits: k may be INT_MIN. Every window bound in BoxPass is clipped in 64 bits, so
  // radii up to about INT_MAX / 2 cannot overflow; areas are compared modulo 2^32 like the sums.
  const int64_t r = static_cast<int64_t>(
      static_cast<double>(static_cast<float>(static_cast<int64_t>(k) - 1) * 0.5f) + 0.5);
  if (mem == nullptr || mem->malloc == nullptr || width < 1 || height < 1 || r < 0) return -1;
  const size_t count = static_cast<size_t>(width) * static_cast<size_t>(height);
  auto* integral = static_cast<uint32_t*>(mem->malloc(count * 4, VTA_MEM_TAG(kMemTag), 0));
  if (integral == nullptr) return -1;
  const int ring = static_cast<int>(height < 2 * r + 2 ? height : 2 * r + 2);
  BoxPass(src, dst, integral, ring, width, height, r, erode);
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
    morph_detail::IntegralRow(src + at, y ? dst + at - width : nullptr, dst + at, width);
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
  auto* block = static_cast<unsigned char*>(safeNew(SafeNewBytes(static_cast<int64_t>(plane) + width + 8)));
  if (block == nullptr) {
    BV_LOGW(kTagAlgo, kFunc, kLineSafeNew, "%s safeNew ERROR!!!", kFunc);
    return -1;
  }
  unsigned char* copy = block;
  unsigned char* counters = block + plane;
  memcpy(copy, image, plane);
  memset(counters, 0, static_cast<size_t>(width) + 8);
  CounterPass(copy, counters, image, width, height, kWidth, kHeight, v);
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
