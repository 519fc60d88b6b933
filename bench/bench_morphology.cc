// Morphology engines against OpenCV on the same 4000x3000 blobby masks, one thread; the fixed
// kernels also for their scalar definition and each vector target.
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "bench_targets.h"
#include "bivista/mem_services.h"
#include "bivista/morphology.h"
#include "morphology/morph_kernels.h"
#ifdef BIVISTA_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

constexpr int kW = 4000;
constexpr int kH = 3000;

// A camera host hands out pooled buffers; keep one block alive so that each call does not pay
// for fresh pages.
void* g_pool = nullptr;
size_t g_poolSize = 0;
void* HostMalloc(size_t size, uint64_t, uint64_t) {
  if (size > g_poolSize) {
    free(g_pool);
    g_pool = malloc(size);
    g_poolSize = g_pool ? size : 0;
  }
  return g_pool;
}
void HostFree(void*, uint64_t, uint64_t) {}
const vta_algo_mem_allocator_t kHost = {HostMalloc, HostFree, nullptr};

using Mask = std::vector<uint8_t>;

// Disks of assorted sizes with sparse noise; fg is the foreground value.
const Mask& Blobby(uint8_t fg) {
  static Mask masks[2];
  Mask& m = masks[fg == 255];
  if (m.empty()) {
    std::mt19937 rng(7);
    m.assign(static_cast<size_t>(kW) * kH, 0);
    for (int i = 0; i < 6000; ++i) {
      const int cx = static_cast<int>(rng() % kW), cy = static_cast<int>(rng() % kH);
      const int r = 3 + static_cast<int>(rng() % 40);
      for (int y = cy - r > 0 ? cy - r : 0; y <= cy + r && y < kH; ++y) {
        for (int x = cx - r > 0 ? cx - r : 0; x <= cx + r && x < kW; ++x) {
          if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r) m[y * kW + x] = fg;
        }
      }
    }
    for (int i = 0; i < 20000; ++i) m[(rng() % kH) * kW + rng() % kW] ^= fg;
  }
  return m;
}

// Runs an in-place routine on a fresh copy each iteration; only the routine is timed.
template <class F>
void InPlace(benchmark::State& state, const Mask& src, F&& run) {
  Mask img = src;
  for (auto _ : state) {
    state.PauseTiming();
    memcpy(img.data(), src.data(), src.size());
    state.ResumeTiming();
    run(img.data());
    benchmark::ClobberMemory();
  }
}

void BM_ErodeWith3x3Rect(benchmark::State& state) {
  std::vector<uint8_t> scratch(kW * kH);
  InPlace(state, Blobby(255), [&](uint8_t* p) { ErodeWith3x3Rect(p, scratch.data(), kW, kH, kW, 1); });
}
void BM_DilateWith3x3Rect(benchmark::State& state) {
  std::vector<uint8_t> scratch(kW * kH);
  InPlace(state, Blobby(255), [&](uint8_t* p) { DilateWith3x3Rect(p, scratch.data(), kW, kH, kW, 1); });
}

void BM_ErodeWith5x5Rect(benchmark::State& state) {
  std::vector<uint8_t> scratch(kW * kH);
  InPlace(state, Blobby(255), [&](uint8_t* p) { ErodeWith5x5Rect(p, scratch.data(), kW, kH, kW); });
}

// FixedMorph (shape 1: 3x3 square, 2: 5x5 square; erosion) through `fixed`.
void Fixed(benchmark::State& state, int shape,
           void (*fixed)(uint8_t*, uint8_t*, int, int, int, int, int, int)) {
  std::vector<uint8_t> scratch(kW * kH);
  InPlace(state, Blobby(255), [&](uint8_t* p) { fixed(p, scratch.data(), kW, kH, kW, 1, shape, 0); });
}

const bool kRegistered = [] {
  for (int shape : {1, 2}) {
    const std::string name = shape == 1 ? "BM_FixedMorph/3x3" : "BM_FixedMorph/5x5";
    benchmark::RegisterBenchmark((name + "/scalar_definition").c_str(),
                                 [shape](benchmark::State& s) {
                                   Fixed(s, shape, bivista::scalar::FixedMorph);
                                 })
        ->Unit(benchmark::kMillisecond);
    bvbench::RegisterPerTarget(
        name, [shape](benchmark::State& s) { Fixed(s, shape, bivista::FixedMorph); });
  }
  return true;
}();

#ifdef BIVISTA_BENCH_OPENCV
cv::Mat Wrap(const Mask& m) { return cv::Mat(kH, kW, CV_8UC1, const_cast<uint8_t*>(m.data())); }

void CvMorph(benchmark::State& state, uint8_t fg, int op, int size) {
  cv::setNumThreads(1);
  const cv::Mat src = Wrap(Blobby(fg));
  const cv::Mat k = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(size, size));
  cv::Mat dst;
  for (auto _ : state) {
    cv::morphologyEx(src, dst, op, k);
    benchmark::DoNotOptimize(dst.data);
  }
}
void BM_CvErode3x3(benchmark::State& state) { CvMorph(state, 255, cv::MORPH_ERODE, 3); }
void BM_CvDilate3x3(benchmark::State& state) { CvMorph(state, 255, cv::MORPH_DILATE, 3); }
void BM_CvErode41x41(benchmark::State& state) { CvMorph(state, 1, cv::MORPH_ERODE, 41); }
void BM_CvErode5x5(benchmark::State& state) { CvMorph(state, 255, cv::MORPH_ERODE, 5); }
void BM_CvConnectedComponents(benchmark::State& state) {
  cv::setNumThreads(1);
  const cv::Mat src = Wrap(Blobby(255));
  cv::Mat labels;
  for (auto _ : state) {
    const int n = cv::connectedComponents(src, labels, static_cast<int>(state.range(0)), CV_32S);
    benchmark::DoNotOptimize(n);
  }
}
void BM_CvDistanceTransformL1(benchmark::State& state) {
  cv::setNumThreads(1);
  const cv::Mat src = Wrap(Blobby(255));
  cv::Mat background = src == 0, dist;
  for (auto _ : state) {
    cv::distanceTransform(background, dist, cv::DIST_L1, 3, CV_8U);
    benchmark::DoNotOptimize(dist.data);
  }
}
BENCHMARK(BM_CvErode3x3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CvDilate3x3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CvErode5x5)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CvErode41x41)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CvConnectedComponents)->Arg(8)->Arg(4)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CvDistanceTransformL1)->Unit(benchmark::kMillisecond);
#endif

void BM_ErosionDilationOpt(benchmark::State& state) {
  const int r = static_cast<int>(state.range(0));
  InPlace(state, Blobby(1), [&](uint8_t* p) { Erosion_Dilation_Function_opt(p, kW, kH, r, r, 0); });
}
void BM_ErosionDilationOptXY(benchmark::State& state) {
  const int rx = static_cast<int>(state.range(0)), ry = static_cast<int>(state.range(1));
  InPlace(state, Blobby(1), [&](uint8_t* p) { Erosion_Dilation_Function_opt(p, kW, kH, rx, ry, 0); });
}
BENCHMARK(BM_ErosionDilationOptXY)->Args({5, 5})->Args({255, 5})->Args({5, 255})->Unit(benchmark::kMillisecond);

void BM_ImErode41(benchmark::State& state) {
  const Mask& src = Blobby(1);
  Mask dst(src.size());
  for (auto _ : state) {
    ImErode(&kHost, src.data(), dst.data(), kW, kH, 41);
    benchmark::DoNotOptimize(dst.data());
  }
}

void Components(benchmark::State& state, bool eight) {
  const Mask& src = Blobby(255);
  std::vector<int> labels(kW * kH), table(kW * kH + 2);
  int count = 0;
  for (auto _ : state) {
    (eight ? connectTwoPass_8 : connectTwoPass)(src.data(), labels.data(), kW, kH, &count,
                                                table.data(), 255);
    benchmark::DoNotOptimize(labels.data());
  }
  state.counters["labels"] = count;
}
void BM_connectTwoPass_8(benchmark::State& state) { Components(state, true); }
void BM_connectTwoPass(benchmark::State& state) { Components(state, false); }
void BM_bivista_manhattan(benchmark::State& state) {
  InPlace(state, Blobby(255), [&](uint8_t* p) { bivista_manhattan(p, kW, kH); });
}
void BM_manhattan(benchmark::State& state) {
  InPlace(state, Blobby(255), [&](uint8_t* p) { manhattan(p, kW, kH, 255); });
}
void BM_dilate_manh(benchmark::State& state) {
  InPlace(state, Blobby(255), [&](uint8_t* p) { dilate_manh(p, kW, kH, 10); });
}
BENCHMARK(BM_ErodeWith3x3Rect)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DilateWith3x3Rect)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ErodeWith5x5Rect)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ErosionDilationOpt)->Arg(5)->Arg(20)->Arg(100)->Arg(255)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImErode41)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_connectTwoPass_8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_connectTwoPass)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_bivista_manhattan)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_manhattan)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_dilate_manh)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
