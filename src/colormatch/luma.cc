// NV12 luma rewrite, RGB24-to-luma with the two weight sets, and their least-squares calibration.
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "bivista/colormatch.h"
#include "bivista/imageformat.h"
#include "colormatch/colormatch_internal.h"
#include "colormatch/luma_kernels.h"
#include "common/log_internal.h"

namespace bivista {
float g_yeqWeights3[3] = {kYeqInitial3[0], kYeqInitial3[1], kYeqInitial3[2]};
float g_yeqWeights4[4] = {kYeqInitial4[0], kYeqInitial4[1], kYeqInitial4[2], kYeqInitial4[3]};
}  // namespace bivista

namespace {

using bivista::kTagAlgo;

constexpr int kLineNv12Null = 952;
constexpr int kLineNv12Alloc = 959;
constexpr int kLineInvAlloc = 125;
constexpr int kLineVerbose4 = 253;
constexpr int kLineVerbose3 = 286;

constexpr char kMemTag[] = "PRE_COLOR_ADJUST";
// Gauss-Jordan inverse of the n x n matrix a (row-major) without row exchanges; 0, or -1 when a
// pivot's magnitude is below 1e-6 (or not a number) or the work block cannot be had.
int InvMtx(const double* a, double* inverse, int n) {
  auto* m = static_cast<double*>(safeNew(static_cast<int>(sizeof(double)) * n * 2 * n));
  if (m == nullptr) {
    BV_LOGE(kTagAlgo, "invMtx", kLineInvAlloc, "malloced memory for invMtx failed!!");
    return -1;
  }
  const int cols = 2 * n;
  for (int r = 0; r < n; ++r)
    for (int c = 0; c < cols; ++c)
      m[r * cols + c] = c < n ? a[r * n + c] : (c - n == r ? 1.0 : 0.0);
  for (int p = 0; p < n; ++p) {
    const double pivot = m[p * cols + p];
    if (!(fabs(pivot) >= 1e-6)) {
      safeDelete(m);
      return -1;
    }
    for (int c = 0; c < cols; ++c) m[p * cols + c] /= pivot;
    for (int r = 0; r < n; ++r) {
      if (r == p) continue;
      const double f = m[r * cols + p];
      for (int c = 0; c < cols; ++c) m[r * cols + c] -= f * m[p * cols + c];
    }
  }
  for (int r = 0; r < n; ++r)
    for (int c = 0; c < n; ++c) inverse[r * n + c] = m[r * cols + n + c];
  safeDelete(m);
  return 0;
}

}  // namespace

extern "C" {

int colorImageNV12Adjusting(uint8_t* image, int width, int height, int stride, int mode,
                            vta_algo_mem_allocator_t* allocator) {
  static const char kFunc[] = "colorImageNV12Adjusting";
  if (image == nullptr || allocator == nullptr) {
    BV_LOGW(kTagAlgo, kFunc, kLineNv12Null, "input parameters may be NULL!!");
    return -1;
  }
  if (width < 1 || height < 1) return 0;
  const int64_t n = static_cast<int64_t>(width) * height;
  void* buffer = nullptr;
  if (allocator->malloc != nullptr && allocator->free != nullptr)
    buffer = allocator->malloc(static_cast<size_t>(3 * n), VTA_MEM_TAG(kMemTag), 0);
  if (buffer == nullptr) {
    BV_LOGW(kTagAlgo, kFunc, kLineNv12Alloc, "malloced memory in colorImageNV12Adjusting failed!!");
    return -1;
  }
  auto* rgb = static_cast<uint8_t*>(buffer);
  const bivista::LumaOrder order = mode == 0 ? bivista::kLumaB0First : bivista::kLumaWithMax;
  float w[4];
  memcpy(w, mode == 0 ? bivista::g_yeqWeights3 : bivista::g_yeqWeights4,
         (mode == 0 ? 3 : 4) * sizeof(float));
  const uintptr_t b = reinterpret_cast<uintptr_t>(rgb), im = reinterpret_cast<uintptr_t>(image);
  const uintptr_t imageBytes = static_cast<uintptr_t>(stride) * height * 3 / 2 + width;
  const bool overlap = b < im + imageBytes && im < b + static_cast<uintptr_t>(3 * n);
  if (overlap || stride < width) {
    // The plain order: the whole image first, then the luma (pixel by pixel when overlapping).
    ConvertNV122RGB24_wideRange(image, rgb, width, height, stride);
    bivista::LumaRgb24(rgb, image, n, w, order);
  } else {
    // Row pair by row pair straight from Y, U and V, through the head of the buffer: the packed
    // luma of rows y and y + 1 ends before source row y + 2 starts and the chroma plane lies
    // beyond all packed luma, so the bytes are those of converting the whole image first.
    bivista::Nv12ToLuma(image, width, height, stride, rgb, image, w, order);
  }
  allocator->free(buffer, VTA_MEM_TAG(kMemTag), 0);
  return 0;
}

void yeqRGBtoY(uint8_t* dstY, const uint8_t* srcRGB, int count) {
  if (dstY == nullptr || srcRGB == nullptr || count < 1) return;
  float w[3];
  memcpy(w, bivista::g_yeqWeights3, sizeof(w));
  bivista::LumaRgb24(srcRGB, dstY, count, w, bivista::kLumaB1First);
}

void yeqRGBVtoY(uint8_t* dstY, const uint8_t* srcRGB, int count) {
  if (dstY == nullptr || srcRGB == nullptr || count < 1) return;
  float w[4];
  memcpy(w, bivista::g_yeqWeights4, sizeof(w));
  bivista::LumaRgb24(srcRGB, dstY, count, w, bivista::kLumaWithMax);
}

int yeqCalib(const float* c0, const float* c1, const float* c2, const float* y, int n,
             int withMax, int verbose) {
  const int k = (withMax & 1) != 0 ? 4 : 3;
  if (n >= 1 && (c0 == nullptr || c1 == nullptr || c2 == nullptr || y == nullptr)) return -1;
  // Regressors in the order c2, c1, c0 (then max); products in single precision, sums in double.
  double a[16] = {0}, rhs[4] = {0};
  for (int i = 0; i < n; ++i) {
    const float m = fmaxf(fmaxf(c0[i], c1[i]), c2[i]);
    const float x[4] = {c2[i], c1[i], c0[i], m};
    for (int r = 0; r < k; ++r) {
      for (int c = 0; c < k; ++c) a[r * k + c] += static_cast<double>(x[r] * x[c]);
      rhs[r] += static_cast<double>(x[r] * y[i]);
    }
  }
  double inverse[16];
  if (InvMtx(a, inverse, k) != 0) return -1;
  double sol[4] = {0};
  for (int r = 0; r < k; ++r)
    for (int c = 0; c < k; ++c) sol[r] += inverse[r * k + c] * rhs[c];
  float* set = k == 4 ? bivista::g_yeqWeights4 : bivista::g_yeqWeights3;
  set[0] = static_cast<float>(sol[2]);
  set[1] = static_cast<float>(sol[1]);
  set[2] = static_cast<float>(sol[0]);
  if (k == 4) set[3] = static_cast<float>(sol[3]);
  if (verbose != 0) {
    if (k == 4)
      BV_LOGI(kTagAlgo, "yeqCalib", kLineVerbose4, "%f, %f, %f, %f\n", (double)set[2],
              (double)set[1], (double)set[0], (double)set[3]);
    else
      BV_LOGI(kTagAlgo, "yeqCalib", kLineVerbose3, "%f, %f, %f\n", (double)set[2],
              (double)set[1], (double)set[0]);
  }
  return 0;
}

}  // extern "C"
