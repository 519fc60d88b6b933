// Relative gradient of a depth plane over the pool, its threshold, and the closed border mask.
#include "bivista/bordermask.h"

#include <math.h>
#include <stddef.h>
#include <string.h>

#include <algorithm>
#include <cmath>

#include "bivista/morphology.h"
#include "bivista/mthread.h"
#include "common/log_internal.h"
#include "depthrefine/bordermask/bordermask_kernels.h"

using bivista::kTagAlgo;

namespace bivista {
namespace {

constexpr char kGetBinarizationTh[] = "getBinarizationTh";
constexpr int kLineThreshold = 49;
constexpr int kMaxWorkers = 4;
constexpr int kSampleStep = 16;
// Rows and columns whose lopsided neighbourhood lies inside the plane.
constexpr int kFirstInner = 2;

int64_t PixelCount(int width, int height) {
  return width > 0 && height > 0 ? static_cast<int64_t>(width) * height : 0;
}

// Mean and deviation of every 16th value, both divided by n / 16.
float Threshold(const float* g, int64_t n, float* mean, float* deviation) {
  *mean = 0.0f;
  *deviation = 0.0f;
  if (n < 1) return 0.0f;
  const float divisor = static_cast<float>(n / kSampleStep);
  float sum = 0.0f;
  for (int64_t i = 0; i < n; i += kSampleStep) sum += g[i];
  *mean = sum / divisor;
  float squares = 0.0f;
  for (int64_t i = 0; i < n; i += kSampleStep) {
    const float d = g[i] - *mean;
    squares += d * d;
  }
  *deviation = sqrtf(squares / divisor);
  return std::fma(3.0f, *deviation, *mean);
}

void ComputeRows(const DataGradientThreadParam& p) {
  if (p.startColumn >= p.endColumn) return;
  BorderGradientRows(p.depth, p.gradient, p.width, p.startRow, p.endRow, p.startColumn,
                     p.endColumn);
}

// Internal job: the exported worker's rows plus the zeros of their frame columns, so the caller
// clears only the rows no worker runs on.
void* GradientJob(void* param, int) {
  const DataGradientThreadParam& p = *static_cast<const DataGradientThreadParam*>(param);
  for (int y = p.startRow; y < p.endRow; ++y) {
    float* row = p.gradient + static_cast<ptrdiff_t>(y) * p.width;
    if (p.startColumn >= p.endColumn) {
      memset(row, 0, sizeof(float) * static_cast<size_t>(p.width));
      continue;
    }
    memset(row, 0, sizeof(float) * static_cast<size_t>(p.startColumn));
    memset(row + p.endColumn, 0, sizeof(float) * static_cast<size_t>(p.width - p.endColumn));
  }
  ComputeRows(p);
  return nullptr;
}

// Whether MThread_Boot will run worker i (a null pool runs every job inline).
bool WillRun(void* pool, int i) {
  if (pool == nullptr) return true;
  const MThread_Pool* p = static_cast<const MThread_Pool*>(pool);
  return p->workers != nullptr && i < p->count;
}

void ZeroRows(float* g, int width, int first, int end) {
  if (end > first) {
    memset(g + static_cast<ptrdiff_t>(first) * width, 0,
           sizeof(float) * static_cast<size_t>(end - first) * static_cast<size_t>(width));
  }
}

}  // namespace
}  // namespace bivista

void* getDataGradient_multiThread(void* param, int) {
  bivista::ComputeRows(*static_cast<const DataGradientThreadParam*>(param));
  return nullptr;
}

void getBinarizationTh(const float* gradient, int width, int height, float* threshold) {
  float mean = 0.0f;
  float deviation = 0.0f;
  *threshold = bivista::Threshold(gradient, bivista::PixelCount(width, height), &mean, &deviation);
  // Fewer than 16 values make 0 / 0: x86 and Arm give NaNs of opposite sign, which printf would
  // show as "-nan" and "nan"; the line reads the same on every processor.
  const auto shown = [](float v) { return static_cast<double>(std::isnan(v) ? std::fabs(v) : v); };
  BV_LOGD(kTagAlgo, bivista::kGetBinarizationTh, bivista::kLineThreshold,
          "input data mean %2.3f variance %2.3f final FlatterTh %2.3f\n", shown(mean),
          shown(deviation), shown(*threshold));
}

int getDataGradientAndBorderMask(const float* depth, const uint8_t* prior, int width, int height,
                                 uint32_t mergePrior, uint8_t* mask, float* gradient,
                                 uint8_t* scratch, void* pool, int threadCount) {
  using namespace bivista;
  const int64_t n = PixelCount(width, height);
  const int workers = std::min(threadCount, kMaxWorkers);
  DataGradientThreadParam records[kMaxWorkers];
  // Rows the workers will fill, zeros included; every other row is cleared here.
  int cleared = 0;
  for (int i = 0; i < workers && n > 0; ++i) {
    DataGradientThreadParam& r = records[i];
    const int start = static_cast<int>(static_cast<int64_t>(i) * height / workers);
    r.startRow = std::max(kFirstInner, start);
    r.endRow = i == workers - 1 ? height - 1
                                : static_cast<int>(static_cast<int64_t>(i + 1) * height / workers);
    r.startColumn = kFirstInner;
    r.endColumn = width - 1;
    r.width = width;
    r.height = height;
    r.depth = depth;
    r.gradient = gradient;
    if (WillRun(pool, i) && r.startRow < r.endRow) {
      ZeroRows(gradient, width, cleared, r.startRow);
      cleared = r.endRow;
    }
  }
  if (n > 0) ZeroRows(gradient, width, cleared, height);
  if (n > 0 && workers > 0) {
    for (int i = 0; i < workers; ++i) MThread_Boot(pool, i, GradientJob, &records[i]);
    MThread_Sync(pool, 0, workers);
  }
  float threshold = 0.0f;
  getBinarizationTh(gradient, width, height, &threshold);
  if (n > 0) {
    BorderMarkPixels(gradient, prior, prior != nullptr && mergePrior != 0, n, threshold, mask);
  }
  // An empty plane has nothing to close (and a row length below 0 must not reach the copies).
  if (n > 0) {
    DilateWith3x3Rect(mask, scratch, width, height, width, 1);
    ErodeWith3x3Rect(mask, scratch, width, height, width, 1);
  }
  return 0;
}
