// Gaussian blur of a 4000x3000 8-bit plane against OpenCV on the same data, then 2 workers
// against 1. Run with --benchmark_repetitions=3 --benchmark_min_time=0.3
// --benchmark_enable_random_interleaving=true and compare medians; the 2-worker figure needs two
// otherwise idle CPUs.
#include <benchmark/benchmark.h>
#include <stdarg.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <vector>

#include "bivista/gaussblur.h"
#include "bivista/mthread.h"

// The single-thread call warns on every run; keep the log out of the timings.
extern "C" int __android_log_vprint(int, const char*, const char*, va_list) { return 0; }

namespace {

constexpr int kWidth = 4000;
constexpr int kHeight = 3000;

float SigmaFor(int k) { return k == 3 ? 0.8f : k == 5 ? 1.1f : 1.4f; }

const std::vector<uint8_t>& Input() {
  static const std::vector<uint8_t> data = [] {
    std::vector<uint8_t> v(static_cast<size_t>(kWidth) * kHeight);
    std::mt19937 rng(7);
    for (auto& b : v) b = static_cast<uint8_t>(rng());
    return v;
  }();
  return data;
}

void BM_Ours(benchmark::State& state) {
  const int k = static_cast<int>(state.range(0));
  std::vector<uint8_t> out(Input().size());
  for (auto _ : state) {
    if (gaussian_blur(Input().data(), out.data(), kWidth, kHeight, k, SigmaFor(k), nullptr, 1,
                      nullptr) != 0) {
      state.SkipWithError("blur failed");
    }
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(Input().size()));
}

void BM_OpenCV(benchmark::State& state) {
  const int k = static_cast<int>(state.range(0));
  cv::setNumThreads(1);
  const cv::Mat in(kHeight, kWidth, CV_8UC1, const_cast<uint8_t*>(Input().data()));
  cv::Mat out(kHeight, kWidth, CV_8UC1);
  for (auto _ : state) {
    cv::GaussianBlur(in, out, cv::Size(k, k), SigmaFor(k), SigmaFor(k), cv::BORDER_REFLECT_101);
    benchmark::DoNotOptimize(out.data);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(Input().size()));
}

// Workers of a pool: range(1) workers, th_num equal to it.
void BM_OursPool(benchmark::State& state) {
  const int k = static_cast<int>(state.range(0));
  const int workers = static_cast<int>(state.range(1));
  void* pool = MThread_Create(workers, nullptr, nullptr);
  std::vector<uint8_t> out(Input().size());
  for (auto _ : state) {
    if (gaussian_blur(Input().data(), out.data(), kWidth, kHeight, k, SigmaFor(k), pool, workers,
                      nullptr) != 0) {
      state.SkipWithError("blur failed");
    }
    benchmark::DoNotOptimize(out.data());
  }
  MThread_Destroy(pool);
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(Input().size()));
}

BENCHMARK(BM_Ours)->Arg(3)->Arg(5)->Arg(7)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OpenCV)->Arg(3)->Arg(5)->Arg(7)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OursPool)
    ->ArgsProduct({{3, 5, 7}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
