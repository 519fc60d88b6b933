// The fast global smoother against OpenCV's on a 1008x756 float depth plane with a photo-like
// 3-channel guide (lambda 100, sigma 8, 3 iterations, attenuation 0.25, zero mask), one thread
// and two; the border mask on a pool of 2 against a memcpy of the depth plane. Run with
// --benchmark_repetitions=3 --benchmark_report_aggregates_only=true and compare medians.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

#include <opencv2/core.hpp>
#include <opencv2/ximgproc/edge_filter.hpp>
#include <random>
#include <vector>

#include "bivista/bordermask.h"
#include "bivista/fgs.h"
#include "bivista/mthread.h"

// The filter logs on every call; keep the log out of the timings.
extern "C" int __android_log_vprint(int, const char*, const char*, va_list) { return 0; }

namespace {

constexpr int kWidth = 1008;
constexpr int kHeight = 756;
constexpr float kLambda = 100.0f;
constexpr float kSigma = 8.0f;
constexpr int kIterations = 3;

struct Scene {
  std::vector<float> depth;
  std::vector<uint8_t> guide;  // interleaved RGB
  std::vector<uint8_t> mask;
};

// Objects at a few depths over a sloping background, the photo shading them with texture.
const Scene& TheScene() {
  static const Scene s = [] {
    Scene sc;
    const size_t area = static_cast<size_t>(kWidth) * kHeight;
    sc.depth.resize(area);
    sc.guide.resize(area * 3);
    sc.mask.assign(area, 0);
    std::mt19937 rng(3);
    std::normal_distribution<float> noise(0.0f, 0.05f);
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        const size_t i = static_cast<size_t>(y) * kWidth + x;
        int object = 0;
        if ((x - 300) * (x - 300) + (y - 380) * (y - 380) < 150 * 150) object = 1;
        if (x > 600 && x < 900 && y > 150 && y < 600) object = 2;
        const float d = object == 1 ? 1.2f : object == 2 ? 2.5f : 4.0f + y * 0.002f;
        sc.depth[i] = d + noise(rng);
        const int base[3][3] = {{90, 140, 200}, {200, 80, 60}, {60, 170, 90}};
        for (int k = 0; k < 3; ++k) {
          const int v = base[object][k] + (x + 2 * y) % 23 - 11 + static_cast<int>(rng() % 9) - 4;
          sc.guide[i * 3 + k] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
        }
      }
    }
    return sc;
  }();
  return s;
}

// The host's table recycles its blocks, as camera hosts' buffer pools do: keep freed blocks in the
// heap so that neither side pays fresh page faults on every call.
const int kKeepHeap = [] {
  mallopt(M_MMAP_THRESHOLD, 64 << 20);
  mallopt(M_TRIM_THRESHOLD, 256 << 20);
  return 0;
}();

void* Malloc(size_t size, uint64_t, uint64_t) { return malloc(size); }
void Free(void* p, uint64_t, uint64_t) { free(p); }
const vta_algo_mem_allocator_t kAllocator = {Malloc, Free, nullptr};

void BM_FGS_Ours(benchmark::State& state) {
  const int threads = static_cast<int>(state.range(0));
  void* pool = threads > 1 ? MThread_Create(threads, nullptr, nullptr) : nullptr;
  const Scene& s = TheScene();
  std::vector<float> data(s.depth.size());
  for (auto _ : state) {
    memcpy(data.data(), s.depth.data(), data.size() * sizeof(float));
    FGSFilter(s.mask.data(), data.data(), s.guide.data(), 0, kHeight, kWidth, kIterations, 3,
              pool, threads, &kAllocator, kSigma, kLambda);
    benchmark::DoNotOptimize(data.data());
  }
  if (pool != nullptr) MThread_Destroy(pool);
}

void BM_FGS_OpenCV(benchmark::State& state) {
  cv::setNumThreads(static_cast<int>(state.range(0)));
  const Scene& s = TheScene();
  const cv::Mat guide(kHeight, kWidth, CV_8UC3, const_cast<uint8_t*>(s.guide.data()));
  const cv::Mat src(kHeight, kWidth, CV_32FC1, const_cast<float*>(s.depth.data()));
  cv::Mat dst;
  for (auto _ : state) {
    cv::ximgproc::fastGlobalSmootherFilter(guide, src, dst, kLambda, kSigma, 0.25, kIterations);
    benchmark::DoNotOptimize(dst.data);
  }
}

void BM_BorderMask_Ours(benchmark::State& state) {
  void* pool = MThread_Create(2, nullptr, nullptr);
  const Scene& s = TheScene();
  const size_t area = s.depth.size();
  std::vector<float> gradient(area);
  std::vector<uint8_t> mask(area), scratch(area);
  for (auto _ : state) {
    getDataGradientAndBorderMask(s.depth.data(), nullptr, kWidth, kHeight, 0, mask.data(),
                                 gradient.data(), scratch.data(), pool, 2);
    benchmark::DoNotOptimize(mask.data());
  }
  MThread_Destroy(pool);
}

void BM_BorderMask_Memcpy(benchmark::State& state) {
  const Scene& s = TheScene();
  std::vector<float> copy(s.depth.size());
  for (auto _ : state) {
    memcpy(copy.data(), s.depth.data(), copy.size() * sizeof(float));
    benchmark::DoNotOptimize(copy.data());
  }
}

}  // namespace

BENCHMARK(BM_FGS_Ours)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FGS_OpenCV)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BorderMask_Ours)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BorderMask_Memcpy)->UseRealTime()->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
