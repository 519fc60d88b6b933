// Gaussian blur of a 4000x3000 8-bit plane against OpenCV and a memcpy of the plane on the same
// data; two pool workers against one thread, the pool made as a host makes it, called back to
// back and once per frame, with two independent half-plane blurs at once as the bound; and the
// strip kernel over the whole plane for the scalar definition and each vector target. Run with
// --benchmark_repetitions=3 --benchmark_min_time=0.3 --benchmark_report_aggregates_only=true
// and compare medians of the same run; the 2-worker figure needs two otherwise idle CPUs.
#include <benchmark/benchmark.h>
#include <semaphore.h>
#include <stdarg.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "bench_targets.h"
#include "bivista/gaussblur.h"
#include "bivista/mthread.h"
#include "gaussblur/gaussblur_internal.h"
#include "gaussblur/gaussblur_kernels.h"
#ifdef BIVISTA_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

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

// gapUs > 0: a host calling once per frame; caller and workers idle that long, untimed, before
// each call, so every call pays the wake-ups that a back-to-back loop hides.
void Blur(benchmark::State& state, void* pool, int threads, int gapUs = 0) {
  const int k = static_cast<int>(state.range(0));
  std::vector<uint8_t> out(Input().size());
  for (auto _ : state) {
    if (gapUs > 0) {
      state.PauseTiming();
      usleep(static_cast<useconds_t>(gapUs));
      state.ResumeTiming();
    }
    if (gaussian_blur(Input().data(), out.data(), kWidth, kHeight, k, SigmaFor(k), pool, threads,
                      nullptr) != 0) {
      state.SkipWithError("blur failed");
    }
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(Input().size()));
}

// One thread, no pool.
void BM_Ours(benchmark::State& state) { Blur(state, nullptr, 1); }

// As a host does it: MThread_Create(2, NULL, &status) once, then th_num 2 on every call.
void BM_OursPool2(benchmark::State& state) {
  int status = 0;
  void* pool = MThread_Create(2, nullptr, &status);
  Blur(state, pool, 2);
  MThread_Destroy(pool);
}

// Both once per frame, 5 ms apart.
constexpr int kFrameGapUs = 5000;
void BM_OursFrame(benchmark::State& state) { Blur(state, nullptr, 1, kFrameGapUs); }
void BM_OursPool2Frame(benchmark::State& state) {
  int status = 0;
  void* pool = MThread_Create(2, nullptr, &status);
  Blur(state, pool, 2, kFrameGapUs);
  MThread_Destroy(pool);
}

// What two threads can reach on this machine at this moment: the top and the bottom half of the
// plane blurred as two independent single-thread calls at the same time, the second on a thread
// that spins for its job (range 1: no wake-up at all) or sleeps on a semaphore as a pool worker
// does (range 0). No sharing, no chunks: against BM_Ours they bound the pool's gain.
void BM_TwoHalvesAtOnce(benchmark::State& state) {
  const int k = static_cast<int>(state.range(0));
  const bool spin = state.range(1) != 0;
  const int half = kHeight / 2;
  const size_t halfBytes = static_cast<size_t>(half) * kWidth;
  std::vector<uint8_t> out(Input().size());
  std::atomic<int> go{0};
  std::atomic<int> done{0};
  sem_t start;
  sem_t end;
  sem_init(&start, 0, 0);
  sem_init(&end, 0, 0);
  std::thread other([&] {
    for (int round = 1;; ++round) {
      if (!spin) sem_wait(&start);
      int g = 0;
      while ((g = go.load(std::memory_order_acquire)) >= 0 && g < round) {
      }
      if (g < 0) return;
      gaussian_blur(Input().data() + halfBytes, out.data() + halfBytes, kWidth, half, k,
                    SigmaFor(k), nullptr, 1, nullptr);
      done.store(round, std::memory_order_release);
      if (!spin) sem_post(&end);
    }
  });
  int round = 0;
  for (auto _ : state) {
    go.store(++round, std::memory_order_release);
    if (!spin) sem_post(&start);
    gaussian_blur(Input().data(), out.data(), kWidth, half, k, SigmaFor(k), nullptr, 1, nullptr);
    if (!spin) sem_wait(&end);
    while (done.load(std::memory_order_acquire) < round) {
    }
    benchmark::DoNotOptimize(out.data());
  }
  go.store(-1, std::memory_order_release);
  if (!spin) sem_post(&start);
  other.join();
  sem_destroy(&start);
  sem_destroy(&end);
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(Input().size()));
}

// The same 12 MB source and a 12 MB destination as the blur, both warm after the first
// iteration, exactly as the blur's buffers are.
void BM_Memcpy(benchmark::State& state) {
  std::vector<uint8_t> out(Input().size());
  for (auto _ : state) {
    memcpy(out.data(), Input().data(), out.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(Input().size()));
}

#ifdef BIVISTA_BENCH_OPENCV
void BM_OpenCV(benchmark::State& state) {
  const int k = static_cast<int>(state.range(0));
  cv::setNumThreads(static_cast<int>(state.range(1)));
  const cv::Mat in(kHeight, kWidth, CV_8UC1, const_cast<uint8_t*>(Input().data()));
  cv::Mat out(kHeight, kWidth, CV_8UC1);
  for (auto _ : state) {
    cv::GaussianBlur(in, out, cv::Size(k, k), SigmaFor(k), SigmaFor(k), cv::BORDER_REFLECT_101);
    benchmark::DoNotOptimize(out.data);
  }
  cv::setNumThreads(1);
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(Input().size()));
}
BENCHMARK(BM_OpenCV)
    ->ArgsProduct({{3, 5, 7}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
#endif

BENCHMARK(BM_Ours)->Arg(3)->Arg(5)->Arg(7)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OursPool2)->Arg(3)->Arg(5)->Arg(7)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OursFrame)->Arg(3)->Arg(5)->Arg(7)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OursPool2Frame)->Arg(3)->Arg(5)->Arg(7)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_TwoHalvesAtOnce)
    ->ArgsProduct({{3, 5, 7}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond)->UseRealTime();

// The interior of the plane as one strip, through kernel `strip`.
void Strip(benchmark::State& state, int k, void (*strip)(const bivista::GaussStripArgs&)) {
  const int r = k / 2;
  uint16_t taps[bivista::kGaussWindow];
  bivista::get_gaussian_kernel(k, taps, SigmaFor(k));
  std::vector<uint8_t> out(Input().size()), ring(static_cast<size_t>(2 * r) * kWidth);
  const bivista::GaussStripArgs args{Input().data(), Input().data() + r * kWidth,
                                     Input().data() + (kHeight - r) * kWidth, kWidth,
                                     out.data(), kWidth, kHeight - 2 * r, kWidth, ring.data(),
                                     kWidth, taps, r};
  for (auto _ : state) {
    strip(args);
    benchmark::DoNotOptimize(out.data());
  }
}

const bool kRegistered = [] {
  for (int k : {3, 5, 7}) {
    const std::string name = "BM_Strip/" + std::to_string(k);
    benchmark::RegisterBenchmark((name + "/scalar_definition").c_str(),
                                 [k](benchmark::State& s) {
                                   Strip(s, k, bivista::scalar::GaussStrip);
                                 })
        ->Unit(benchmark::kMillisecond);
    bvbench::RegisterPerTarget(
        name, [k](benchmark::State& s) { Strip(s, k, bivista::GaussStrip); });
  }
  return true;
}();

}  // namespace

BENCHMARK_MAIN();
