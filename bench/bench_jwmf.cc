// Joint weighted median of a 1008x756 float depth plane guided by an 8-bit photo-like plane,
// radius 5, sigma 25.5, no mask: JWMFilterWithImg on a pool of 2 against
// cv::ximgproc::weightedMedianFilter with 2 OpenCV threads, on the same data in the same run.
// Run with --benchmark_repetitions=3 --benchmark_report_aggregates_only=true and compare
// medians; ours includes restoring the in-place depth plane before every call.
#include <benchmark/benchmark.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/ximgproc.hpp>
#include <random>
#include <vector>

#include "bivista/jwmf.h"
#include "bivista/mthread.h"

// Keep the log out of the timings.
extern "C" int __android_log_vprint(int, const char*, const char*, va_list) { return 0; }

namespace {

constexpr int kWidth = 1008;
constexpr int kHeight = 756;
constexpr int kRadius = 5;
constexpr int kThreads = 2;

struct Frame {
  std::vector<float> depth;
  std::vector<uint8_t> guide;
};

// Shaded background with a textured wall and three objects in front; the depth has sensor
// noise and its object edges bleed a few pixels past the outlines in the guide.
const Frame& Input() {
  static const Frame frame = [] {
    Frame f;
    f.depth.resize(static_cast<size_t>(kWidth) * kHeight);
    f.guide.resize(f.depth.size());
    std::mt19937 rng(11);
    std::normal_distribution<float> noise(0.f, 1.f);
    struct Blob {
      float cx, cy, rx, ry, depth;
      int tone;
    };
    const Blob blobs[] = {{300, 380, 150, 220, 900.f, 70},
                          {640, 300, 120, 90, 1500.f, 200},
                          {800, 600, 160, 110, 600.f, 130}};
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        float tone = 110.f + 60.f * std::sin(x * 0.004f) + 30.f * std::cos(y * 0.006f) +
                     ((x / 24 + y / 24) % 2 ? 12.f : -12.f);
        float depth = 3000.f - 0.6f * y;
        for (const Blob& b : blobs) {
          const float gx = (x - b.cx) / b.rx, gy = (y - b.cy) / b.ry;
          if (gx * gx + gy * gy < 1.f) tone = b.tone + 25.f * gx * gy;
          const float dx = (x - b.cx) / (b.rx + 4.f), dy = (y - b.cy) / (b.ry + 4.f);
          if (dx * dx + dy * dy < 1.f) depth = b.depth + 40.f * dx;
        }
        const size_t i = static_cast<size_t>(y) * kWidth + x;
        f.guide[i] = static_cast<uint8_t>(std::fmin(255.f, std::fmax(0.f, tone + 4.f * noise(rng))));
        f.depth[i] = depth * (1.f + 0.01f * noise(rng));
      }
    }
    return f;
  }();
  return frame;
}

void* Malloc(size_t size, uint64_t, uint64_t) { return malloc(size); }
void Free(void* p, uint64_t, uint64_t) { free(p); }
const vta_algo_mem_allocator_t kAllocator = {Malloc, Free, nullptr};

void BM_JWMFilterWithImg(benchmark::State& state) {
  void* pool = MThread_Create(kThreads, nullptr, nullptr);
  std::vector<float> depth(Input().depth.size());
  for (auto _ : state) {
    memcpy(depth.data(), Input().depth.data(), depth.size() * sizeof(float));
    JWMFilterWithImg(depth.data(), Input().guide.data(), 1, kWidth, kHeight, nullptr, kRadius, 0,
                     pool, kThreads, &kAllocator);
    benchmark::DoNotOptimize(depth.data());
  }
  MThread_Destroy(pool);
}

void BM_OpenCV_weightedMedianFilter(benchmark::State& state) {
  cv::setNumThreads(kThreads);
  const cv::Mat guide(kHeight, kWidth, CV_8UC1, const_cast<uint8_t*>(Input().guide.data()));
  const cv::Mat depth(kHeight, kWidth, CV_32FC1, const_cast<float*>(Input().depth.data()));
  cv::Mat out;
  for (auto _ : state) {
    cv::ximgproc::weightedMedianFilter(guide, depth, out, kRadius, 25.5);
    benchmark::DoNotOptimize(out.data);
  }
}

BENCHMARK(BM_JWMFilterWithImg)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OpenCV_weightedMedianFilter)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
