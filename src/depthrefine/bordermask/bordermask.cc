// Relative gradient of a depth plane over the pool, its threshold, and the closed border mask.
#include "bivista/bordermask.h"

#include <math.h>
#include <stddef.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <cmath>

#include "bivista/mthread.h"
#include "common/log_internal.h"
#include "depthrefine/bordermask/bordermask_kernels.h"
#include "mthread/handoff.h"

using bivista::kTagAlgo;

namespace bivista {
namespace {

constexpr char kGetBinarizationTh[] = "getBinarizationTh";
constexpr int kLineThreshold = 49;
constexpr int kMaxWorkers = 4;
using border::kSampleStep;
// Rows and columns whose lopsided neighbourhood lies inside the plane.
constexpr int kFirstInner = 2;

int64_t PixelCount(int width, int height) {
  return width > 0 && height > 0 ? static_cast<int64_t>(width) * height : 0;
}

// Mean and deviation of every 16th value, both divided by n / 16: the sum of the samples k, k +
// 1, ... (get(k) is value 16 k) continues `sum`, which holds the ones before k.
template <class Get>
float ThresholdFrom(int64_t n, float sum, int64_t k, const Get& get, float* mean,
                    float* deviation) {
  *mean = 0.0f;
  *deviation = 0.0f;
  if (n < 1) return 0.0f;
  const int64_t count = (n - 1) / kSampleStep + 1;
  const float divisor = static_cast<float>(n / kSampleStep);
  for (; k < count; ++k) sum += get(k);
  *mean = sum / divisor;
  float squares = 0.0f;
  for (k = 0; k < count; ++k) {
    const float d = get(k) - *mean;
    squares += d * d;
  }
  *deviation = sqrtf(squares / divisor);
  return std::fma(3.0f, *deviation, *mean);
}

void LogThreshold(float mean, float deviation, float threshold) {
  // Fewer than 16 values make 0 / 0: x86 and Arm give NaNs of opposite sign, which printf would
  // show as "-nan" and "nan"; the line reads the same on every processor.
  const auto shown = [](float v) { return static_cast<double>(std::isnan(v) ? std::fabs(v) : v); };
  BV_LOGD(kTagAlgo, kGetBinarizationTh, kLineThreshold,
          "input data mean %2.3f variance %2.3f final FlatterTh %2.3f\n", shown(mean),
          shown(deviation), shown(threshold));
}

void ComputeRows(const DataGradientThreadParam& p) {
  if (p.startColumn >= p.endColumn) return;
  BorderGradientRows(p.depth, p.gradient, p.width, p.startRow, p.endRow, p.startColumn,
                     p.endColumn);
}

// Internal job: the exported worker's rows plus the zeros of their frame columns, so the caller
// clears only the rows no worker runs on, and the samples of the threshold out of those rows.
struct GradientShare {
  DataGradientThreadParam p;
  uint8_t* samples;
};

void* GradientJob(void* param, int) {
  const GradientShare& share = *static_cast<const GradientShare*>(param);
  const DataGradientThreadParam& p = share.p;
  for (int y = p.startRow; y < p.endRow; ++y) {
    float* row = p.gradient + static_cast<ptrdiff_t>(y) * p.width;
    if (p.startColumn >= p.endColumn) {
      memset(row, 0, sizeof(float) * static_cast<size_t>(p.width));
      continue;
    }
    memset(row, 0, sizeof(float) * static_cast<size_t>(p.startColumn));
    memset(row + p.endColumn, 0, sizeof(float) * static_cast<size_t>(p.width - p.endColumn));
  }
  if (p.startColumn < p.endColumn) {
    BorderGradientRows(p.depth, p.gradient, p.width, p.startRow, p.endRow, p.startColumn,
                       p.endColumn, share.samples);
  } else {
    for (int y = p.startRow; y < p.endRow; ++y) {
      border::CopySamples(p.gradient + static_cast<ptrdiff_t>(y) * p.width, y, p.width,
                          share.samples);
    }
  }
  return nullptr;
}

// Whether MThread_Boot will run worker i (a null pool runs every job inline).
bool WillRun(void* pool, int i) {
  if (pool == nullptr) return true;
  const MThread_Pool* p = static_cast<const MThread_Pool*>(pool);
  return p->workers != nullptr && i < p->count;
}

// The split needs bands that read no other band's rows (no prior, bit rows).
constexpr int kMaxSplitWidth = border::kMaxBandWidth;
// Gradient chunks and mark-and-close bands are taken by whichever of the caller and worker 1 is
// free, so a late wake-up or a descheduled thread costs no idle time on the other.
constexpr int kMaxChunks = 64;
constexpr int kBands = 16;
struct Partner {
  GradientShare rows;  // rows of workers 0 and 1 together
  int chunkRows;
  int chunks;
  std::atomic<int> next{0};
  std::atomic<bool> done[kMaxChunks];
  Waiter chunkDone;
  Signal thresholdReady;
  float threshold;
  int bandRows;
  std::atomic<int> nextBand{0};
  uint8_t* mask;
  uint8_t* scratch;

  int ChunkEnd(int c) const {
    return std::min(rows.p.startRow + (c + 1) * chunkRows, rows.p.endRow);
  }
  // Computes one more chunk; false when none is left.
  bool RunOne() {
    const int c = next.fetch_add(1, std::memory_order_relaxed);
    if (c >= chunks) return false;
    GradientShare part = rows;
    part.p.startRow = rows.p.startRow + c * chunkRows;
    part.p.endRow = ChunkEnd(c);
    GradientJob(&part, 0);
    chunkDone.Wake([&] { done[c].store(true, std::memory_order_release); });
    return true;
  }
  bool Done(int c, bool wait) {
    const auto isDone = [&] { return done[c].load(std::memory_order_acquire); };
    if (wait) chunkDone.WaitFor(isDone);
    return isDone();
  }
  // Marks and closes the bands still free, once the threshold is known.
  void RunBands() {
    const DataGradientThreadParam& r = rows.p;
    for (;;) {
      const int y0 = nextBand.fetch_add(1, std::memory_order_relaxed) * bandRows;
      if (y0 >= r.height) return;
      BorderMarkClose(r.gradient, nullptr, false, r.width, r.height, threshold, mask, scratch, y0,
                      std::min(y0 + bandRows, r.height));
    }
  }
};

void* PartnerJob(void* param, int) {
  Partner& p = *static_cast<Partner*>(param);
  while (p.RunOne()) {
  }
  p.thresholdReady.Wait();
  p.RunBands();
  return nullptr;
}

// Whether every worker 0 .. count - 1 runs (a null pool runs none of them on a thread).
bool AllRun(void* pool, int count) {
  if (pool == nullptr) return false;
  const MThread_Pool* p = static_cast<const MThread_Pool*>(pool);
  return p->workers != nullptr && count <= p->count;
}

// Clears rows [first, end) and their samples.
void ZeroRows(float* g, uint8_t* samples, int width, int first, int end) {
  if (end > first) {
    memset(g + static_cast<ptrdiff_t>(first) * width, 0,
           sizeof(float) * static_cast<size_t>(end - first) * static_cast<size_t>(width));
    const int64_t k0 = border::FirstSample(first, width);
    const int64_t k1 = border::FirstSample(end, width);
    memset(samples + 4 * k0, 0, static_cast<size_t>(4 * (k1 - k0)));
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
  *threshold = bivista::ThresholdFrom(
      bivista::PixelCount(width, height), 0.0f, 0,
      [gradient](int64_t k) { return gradient[k * bivista::kSampleStep]; }, &mean, &deviation);
  bivista::LogThreshold(mean, deviation, *threshold);
}

// The caller runs worker 0's rows itself (when the pool would run them) and sums their samples
// while the other workers finish; the threshold then reads the samples in order from a compact
// array in the scratch plane (free until the closing), and marking and closing are one sweep.
// Every sum adds the same values in the same order as over the gradient plane.
int getDataGradientAndBorderMask(const float* depth, const uint8_t* prior, int width, int height,
                                 uint32_t mergePrior, uint8_t* mask, float* gradient,
                                 uint8_t* scratch, void* pool, int threadCount) {
  using namespace bivista;
  const int64_t n = PixelCount(width, height);
  if (n < 1) {
    LogThreshold(0.0f, 0.0f, 0.0f);
    return 0;
  }
  const int workers = std::min(threadCount, kMaxWorkers);
  const int64_t count = (n - 1) / kSampleStep + 1;
  // Below 4 x count bytes (n < 6: one sample) the scratch plane cannot hold the samples.
  float few[1];
  uint8_t* samples = 4 * count <= n ? scratch : reinterpret_cast<uint8_t*>(few);
  GradientShare shares[kMaxWorkers];
  // Rows the workers will fill, zeros included; every other row is cleared here.
  int cleared = 0;
  for (int i = 0; i < workers; ++i) {
    DataGradientThreadParam& r = shares[i].p;
    shares[i].samples = samples;
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
      ZeroRows(gradient, samples, width, cleared, r.startRow);
      cleared = r.endRow;
    }
  }
  ZeroRows(gradient, samples, width, cleared, height);
  float sum = 0.0f;
  int64_t k = 0;
  // The caller's own rows are worker 0's; it sums their samples while the others finish.
  const auto ownShare = [&]() {
    GradientJob(&shares[0], 0);
    const int64_t end = shares[0].p.startRow < shares[0].p.endRow
                            ? border::FirstSample(shares[0].p.endRow, width)
                            : 0;
    for (; k < end; ++k) sum += border::GetSample(samples, k);
  };
  // Worker 1 shares the gradient rows and the marking and closing (no prior: the bands then only
  // read the gradient).
  const bool split = workers >= 2 && prior == nullptr && width <= kMaxSplitWidth &&
                     height >= 8 && AllRun(pool, workers);
  Partner partner;
  if (split) {
    partner.rows = shares[0];
    partner.rows.p.endRow = shares[1].p.endRow;
    const int rows = partner.rows.p.endRow - partner.rows.p.startRow;
    partner.chunkRows = std::max(8, (rows + kMaxChunks - 1) / kMaxChunks);
    partner.chunks = rows > 0 ? (rows + partner.chunkRows - 1) / partner.chunkRows : 0;
    for (auto& d : partner.done) d.store(false, std::memory_order_relaxed);
    partner.bandRows = (height + kBands - 1) / kBands;
    partner.mask = mask;
    partner.scratch = scratch;
    MThread_Boot(pool, 1, PartnerJob, &partner);
    for (int i = 2; i < workers; ++i) MThread_Boot(pool, i, GradientJob, &shares[i]);
    // Sum the samples of each finished chunk in order while there is work; then wait for the
    // chunks still running.
    int prefix = 0;
    const auto sumDone = [&](bool wait) {
      for (; prefix < partner.chunks && partner.Done(prefix, wait); ++prefix) {
        const int64_t end = border::FirstSample(partner.ChunkEnd(prefix), width);
        for (; k < end; ++k) sum += border::GetSample(samples, k);
      }
    };
    while (partner.RunOne()) sumDone(false);
    sumDone(true);
    if (workers > 2) MThread_Sync(pool, 2, workers - 2);
  } else if (workers > 0) {
    const bool callerRuns = WillRun(pool, 0);
    if (!callerRuns) MThread_Boot(pool, 0, GradientJob, &shares[0]);
    for (int i = 1; i < workers; ++i) MThread_Boot(pool, i, GradientJob, &shares[i]);
    if (callerRuns) ownShare();
    MThread_Sync(pool, 0, workers);
  }
  float mean = 0.0f;
  float deviation = 0.0f;
  const float threshold = ThresholdFrom(
      n, sum, k, [samples](int64_t i) { return border::GetSample(samples, i); }, &mean,
      &deviation);
  LogThreshold(mean, deviation, threshold);
  if (split) {
    partner.threshold = threshold;
    partner.thresholdReady.Set();
    partner.RunBands();
    MThread_Sync(pool, 1, 1);
  } else {
    BorderMarkClose(gradient, prior, prior != nullptr && mergePrior != 0, width, height, threshold,
                    mask, scratch, 0, height);
  }
  return 0;
}
