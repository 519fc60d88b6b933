// Morphology engines against OpenCV on the same 4000x3000 blobby masks, one thread.
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <string.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <vector>

#include "bivista/mem_services.h"
#include "bivista/morphology.h"

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

// Disks of assorted sizes with sparse noise; fg is the foreground value.
const cv::Mat& Blobby(uint8_t fg) {
  static cv::Mat masks[2];
  cv::Mat& m = masks[fg == 255];
  if (m.empty()) {
    cv::setNumThreads(1);
    std::mt19937 rng(7);
    m = cv::Mat::zeros(kH, kW, CV_8UC1);
    for (int i = 0; i < 6000; ++i) {
      const cv::Point c(rng() % kW, rng() % kH);
      cv::circle(m, c, 3 + rng() % 40, cv::Scalar(fg), cv::FILLED);
    }
    for (int i = 0; i < 20000; ++i) m.at<uint8_t>(rng() % kH, rng() % kW) ^= fg;
  }
  return m;
}

// Runs an in-place routine on a fresh copy each iteration; only the routine is timed.
template <class F>
void InPlace(benchmark::State& state, const cv::Mat& src, F&& run) {
  cv::Mat img = src.clone();
  for (auto _ : state) {
    state.PauseTiming();
    src.copyTo(img);
    state.ResumeTiming();
    run(img.data);
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

void CvMorph(benchmark::State& state, uint8_t fg, int op, int size) {
  cv::setNumThreads(1);
  const cv::Mat& src = Blobby(fg);
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
  const cv::Mat& src = Blobby(1);
  cv::Mat dst(kH, kW, CV_8UC1);
  for (auto _ : state) {
    ImErode(&kHost, src.data, dst.data, kW, kH, 41);
    benchmark::DoNotOptimize(dst.data);
  }
}

void Components(benchmark::State& state, bool eight) {
  const cv::Mat& src = Blobby(255);
  std::vector<int> labels(kW * kH), table(kW * kH + 2);
  int count = 0;
  for (auto _ : state) {
    (eight ? connectTwoPass_8 : connectTwoPass)(src.data, labels.data(), kW, kH, &count,
                                                table.data(), 255);
    benchmark::DoNotOptimize(labels.data());
  }
  state.counters["labels"] = count;
}
void BM_connectTwoPass_8(benchmark::State& state) { Components(state, true); }
void BM_connectTwoPass(benchmark::State& state) { Components(state, false); }
void BM_CvConnectedComponents(benchmark::State& state) {
  cv::setNumThreads(1);
  const cv::Mat& src = Blobby(255);
  cv::Mat labels;
  for (auto _ : state) {
    const int n = cv::connectedComponents(src, labels, static_cast<int>(state.range(0)), CV_32S);
    benchmark::DoNotOptimize(n);
  }
}

void BM_bivista_manhattan(benchmark::State& state) {
  InPlace(state, Blobby(255), [&](uint8_t* p) { bivista_manhattan(p, kW, kH); });
}
void BM_manhattan(benchmark::State& state) {
  InPlace(state, Blobby(255), [&](uint8_t* p) { manhattan(p, kW, kH, 255); });
}
void BM_dilate_manh(benchmark::State& state) {
  InPlace(state, Blobby(255), [&](uint8_t* p) { dilate_manh(p, kW, kH, 10); });
}
void BM_CvDistanceTransformL1(benchmark::State& state) {
  cv::setNumThreads(1);
  const cv::Mat& src = Blobby(255);
  cv::Mat background = src == 0, dist;
  for (auto _ : state) {
    cv::distanceTransform(background, dist, cv::DIST_L1, 3, CV_8U);
    benchmark::DoNotOptimize(dist.data);
  }
}

BENCHMARK(BM_ErodeWith3x3Rect)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CvErode3x3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DilateWith3x3Rect)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CvDilate3x3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ErosionDilationOpt)->Arg(5)->Arg(20)->Arg(100)->Arg(255)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImErode41)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CvErode41x41)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_connectTwoPass_8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_connectTwoPass)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CvConnectedComponents)->Arg(8)->Arg(4)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_bivista_manhattan)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_manhattan)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_dilate_manh)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CvDistanceTransformL1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
