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

// The team's bands read no other band's rows (no prior, bit rows).
constexpr int kMaxTeamWidth = border::kMaxBandWidth;
// Bands are taken by whichever member is free, so a late wake-up or a descheduled thread costs
// no idle time on the others. Each band computes the gradients of two rows above and below it
// again; 12 bands keep that near 5 % at 1008 x 756.
constexpr int kBands = 12;
struct Team {
  const float* depth;
  float* gradient;
  int width;
  int height;
  uint8_t* mask;
  uint8_t* scratch;
  int bandRows;
  std::atomic<int> next{0};
  Signal thresholdReady;
  float threshold;

  int Claim() {
    const int b = next.fetch_add(1, std::memory_order_relaxed);
    return b * bandRows < height ? b : -1;
  }
  void Run(int b, border::Band band, float th) {
    const int y0 = b * bandRows;
    BorderBand(depth, gradient, width, height, th, mask, scratch, y0,
               std::min(y0 + bandRows, height), band);
  }
};

// A worker of the team: until the caller has the threshold it stores the gradients of the bands
// it takes; then it marks and closes those, and takes whole bands.
void* TeamJob(void* param, int) {
  Team& team = *static_cast<Team*>(param);
  int own[kBands];
  int count = 0;
  while (!team.thresholdReady.IsSet()) {
    const int b = team.Claim();
    if (b < 0) break;
    team.Run(b, border::Band::kGradientOnly, 0.0f);
    own[count++] = b;
  }
  team.thresholdReady.Wait();
  for (int i = 0; i < count; ++i) team.Run(own[i], border::Band::kStored, team.threshold);
  for (int b; (b = team.Claim()) >= 0;) team.Run(b, border::Band::kAll, team.threshold);
  return nullptr;
}

// The samples of the threshold straight from the depth plane (the gradient, or 0 outside the
// computed area, at every 16th index), stored and summed in order.
float SampleDepth(const float* depth, int width, int height, uint8_t* samples) {
  float sum = 0.0f;
  int64_t k = 0;
  // Each sample reads a new line of the row below; asking for it four rows ahead keeps the
  // loop from waiting on memory.
  constexpr int kAhead = 4;
  for (int y = 0; y < height; ++y) {
    const int64_t o = static_cast<int64_t>(y) * width;
    const bool inner = y >= kFirstInner && y < height - 1;
    const bool ahead = y + 1 + kAhead < height;
    for (; k * kSampleStep < o + width; ++k) {
      if (ahead) __builtin_prefetch(depth + k * kSampleStep + (1 + kAhead) * width);
      const int x = static_cast<int>(k * kSampleStep - o);
      const float g = inner && x >= kFirstInner && x < width - 1
                          ? border::Gradient(depth + k * kSampleStep, width)
                          : 0.0f;
      border::PutSample(samples, k, g);
      sum += g;
    }
  }
  return sum;
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

// Without a prior and with every worker on a thread, the caller and workers 1 .. T - 1 form a
// team: the caller takes the threshold's samples straight from the depth plane while the workers
// start on the gradient bands, then everyone marks and closes bands from the depth plane, in
// one sweep per band. Otherwise the workers fill the gradient plane (the caller running worker
// 0's rows and summing their samples while the others finish), and the marking and closing
// follow as one sweep. Every sum adds the same values in the same order as over the gradient
// plane; the samples wait in the scratch plane, free until the closing.
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
  float sum = 0.0f;
  int64_t k = 0;
  const bool together = workers >= 2 && prior == nullptr && width <= kMaxTeamWidth &&
                        height >= 8 && AllRun(pool, workers);
  Team team;
  if (together) {
    team.depth = depth;
    team.gradient = gradient;
    team.width = width;
    team.height = height;
    team.mask = mask;
    team.scratch = scratch;
    team.bandRows = (height + kBands - 1) / kBands;
    for (int i = 1; i < workers; ++i) MThread_Boot(pool, i, TeamJob, &team);
    MoveQueuedOff(pool, 1, workers - 1);
    sum = SampleDepth(depth, width, height, samples);
    k = count;
  } else {
    GradientShare shares[kMaxWorkers];
    // Rows the workers will fill, zeros included; every other row is cleared here.
    int cleared = 0;
    for (int i = 0; i < workers; ++i) {
      DataGradientThreadParam& r = shares[i].p;
      shares[i].samples = samples;
      const int start = static_cast<int>(static_cast<int64_t>(i) * height / workers);
      r.startRow = std::max(kFirstInner, start);
      r.endRow = i == workers - 1
                     ? height - 1
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
    if (workers > 0) {
      const bool callerRuns = WillRun(pool, 0);
      if (!callerRuns) MThread_Boot(pool, 0, GradientJob, &shares[0]);
      for (int i = 1; i < workers; ++i) MThread_Boot(pool, i, GradientJob, &shares[i]);
      if (callerRuns) {
        GradientJob(&shares[0], 0);
        const int64_t end = shares[0].p.startRow < shares[0].p.endRow
                                ? border::FirstSample(shares[0].p.endRow, width)
                                : 0;
        for (; k < end; ++k) sum += border::GetSample(samples, k);
      }
      MThread_Sync(pool, 0, workers);
    }
  }
  float mean = 0.0f;
  float deviation = 0.0f;
  const float threshold = ThresholdFrom(
      n, sum, k, [samples](int64_t i) { return border::GetSample(samples, i); }, &mean,
      &deviation);
  LogThreshold(mean, deviation, threshold);
  if (together) {
    team.threshold = threshold;
    team.thresholdReady.Set();
    for (int b; (b = team.Claim()) >= 0;) team.Run(b, border::Band::kAll, threshold);
    MThread_Sync(pool, 1, workers - 1);
  } else {
    BorderMarkClose(gradient, prior, prior != nullptr && mergePrior != 0, width, height, threshold,
                    mask, scratch, 0, height);
  }
  return 0;
}
