// Conversions and resizers against libyuv, OpenCV and memcpy on the same 4000x3000 data, one
// thread; the NV12 conversion and the exact-half resize also for their scalar definitions and
// each vector target.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "bench_targets.h"
#include "bivista/imageformat.h"
#include "imageformat/resize_float_kernels.h"
#include "imageformat/yuv_kernels.h"
#ifdef BIVISTA_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif
#ifdef BIVISTA_BENCH_LIBYUV
#include "libyuv.h"
#endif

namespace {

constexpr int kW = 4000, kH = 3000;

struct Data {
  std::vector<uint8_t> yuv, i420, out, gray, small;
  std::vector<float> f, fsmall;
  Data()
      : yuv(kW * kH * 3 / 2), i420(kW * kH * 3 / 2), out(kW * kH * 3), gray(kW * kH),
        small(1920 * 1440), f(kW * kH), fsmall(2000 * 1500) {
    std::mt19937 rng(7);
    for (auto& b : yuv) b = static_cast<uint8_t>(rng());
    for (auto& b : gray) b = static_cast<uint8_t>(rng());
    for (auto& x : f) x = static_cast<float>(rng() % 10000) * 0.01f;
    ConvertNV21ToI420(yuv.data(), i420.data(), kW, kH, kW);
#ifdef BIVISTA_BENCH_OPENCV
    cv::setNumThreads(1);
#endif
  }
};

Data& D() {
  static Data d;
  return d;
}

void BM_Memcpy_Yuv420(benchmark::State& st) {
  auto& d = D();
  for (auto _ : st) {
    std::memcpy(d.out.data(), d.yuv.data(), d.yuv.size());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Memcpy_Yuv420)->Unit(benchmark::kMillisecond);

void BM_Memcpy_Rgb24(benchmark::State& st) {
  auto& d = D();
  std::vector<uint8_t> src(kW * kH * 3, 1);
  for (auto _ : st) {
    std::memcpy(d.out.data(), src.data(), src.size());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Memcpy_Rgb24)->Unit(benchmark::kMillisecond);

void BM_ConvertNV21ToI420(benchmark::State& st) {
  auto& d = D();
  for (auto _ : st) {
    ConvertNV21ToI420(d.yuv.data(), d.out.data(), kW, kH, kW);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_ConvertNV21ToI420)->Unit(benchmark::kMillisecond);

#ifdef BIVISTA_BENCH_LIBYUV
void BM_Libyuv_NV21ToI420(benchmark::State& st) {
  auto& d = D();
  uint8_t* o = d.out.data();
  for (auto _ : st) {
    libyuv::NV21ToI420(d.yuv.data(), kW, d.yuv.data() + kW * kH, kW, o, kW, o + kW * kH, kW / 2,
                       o + kW * kH * 5 / 4, kW / 2, kW, kH);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Libyuv_NV21ToI420)->Unit(benchmark::kMillisecond);
#endif

void BM_ConvertI420ToNV21(benchmark::State& st) {
  auto& d = D();
  for (auto _ : st) {
    ConvertI420ToNV21(d.i420.data(), d.out.data(), kW, kH, kW);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_ConvertI420ToNV21)->Unit(benchmark::kMillisecond);

#ifdef BIVISTA_BENCH_LIBYUV
void BM_Libyuv_I420ToNV21(benchmark::State& st) {
  auto& d = D();
  const uint8_t* s = d.i420.data();
  for (auto _ : st) {
    libyuv::I420ToNV21(s, kW, s + kW * kH, kW / 2, s + kW * kH * 5 / 4, kW / 2, d.out.data(), kW,
                       d.out.data() + kW * kH, kW, kW, kH);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Libyuv_I420ToNV21)->Unit(benchmark::kMillisecond);
#endif

void BM_ConvertNV122RGB24_wideRange_NEON(benchmark::State& st) {
  auto& d = D();
  for (auto _ : st) {
    ConvertNV122RGB24_wideRange_NEON(d.yuv.data(), d.out.data(), kW, kH, kW);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_ConvertNV122RGB24_wideRange_NEON)->Unit(benchmark::kMillisecond);

void BM_ConvertNV122RGB24_wideRange(benchmark::State& st) {
  auto& d = D();
  for (auto _ : st) {
    ConvertNV122RGB24_wideRange(d.yuv.data(), d.out.data(), kW, kH, kW);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_ConvertNV122RGB24_wideRange)->Unit(benchmark::kMillisecond);

#ifdef BIVISTA_BENCH_LIBYUV
void BM_Libyuv_NV12ToRGB24(benchmark::State& st) {
  auto& d = D();
  for (auto _ : st) {
    libyuv::NV12ToRGB24(d.yuv.data(), kW, d.yuv.data() + kW * kH, kW, d.out.data(), kW * 3, kW, kH);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Libyuv_NV12ToRGB24)->Unit(benchmark::kMillisecond);
#endif

void BM_ResizeUchar_1920x1440(benchmark::State& st) {
  auto& d = D();
  for (auto _ : st) {
    ResizeUchar(d.gray.data(), d.small.data(), kW, kH, 1920, 1440);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_ResizeUchar_1920x1440)->Unit(benchmark::kMillisecond);

#ifdef BIVISTA_BENCH_OPENCV
void BM_CvResize_U8_1920x1440(benchmark::State& st) {
  auto& d = D();
  const cv::Mat src(kH, kW, CV_8UC1, d.gray.data());
  cv::Mat dst(1440, 1920, CV_8UC1, d.small.data());
  for (auto _ : st) {
    cv::resize(src, dst, dst.size(), 0, 0, cv::INTER_LINEAR);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_CvResize_U8_1920x1440)->Unit(benchmark::kMillisecond);
#endif

void BM_ResizeFloat_2000x1500(benchmark::State& st) {
  auto& d = D();
  for (auto _ : st) {
    ResizeFloat(d.f.data(), d.fsmall.data(), kW, kH, 2000, 1500);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_ResizeFloat_2000x1500)->Unit(benchmark::kMillisecond);

#ifdef BIVISTA_BENCH_OPENCV
void BM_CvResize_F32_2000x1500(benchmark::State& st) {
  auto& d = D();
  const cv::Mat src(kH, kW, CV_32FC1, d.f.data());
  cv::Mat dst(1500, 2000, CV_32FC1, d.fsmall.data());
  for (auto _ : st) {
    cv::resize(src, dst, dst.size(), 0, 0, cv::INTER_LINEAR);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_CvResize_F32_2000x1500)->Unit(benchmark::kMillisecond);
#endif

void BM_ResizeFloatImg_Bilinear_2000x1500(benchmark::State& st) {
  auto& d = D();
  for (auto _ : st) {
    ResizeFloatImg_Bilinear(d.f.data(), d.fsmall.data(), kW, kH, 2000, 1500);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_ResizeFloatImg_Bilinear_2000x1500)->Unit(benchmark::kMillisecond);

const bool kRegistered = [] {
  using Nv12 = void (*)(const uint8_t*, uint8_t*, int, int, int, bool);
  using Quarter = void (*)(const float*, float*, int, int);
  const auto nv12 = [](Nv12 f) {
    return [f](benchmark::State& st) {
      auto& d = D();
      for (auto _ : st) {
        f(d.yuv.data(), d.out.data(), kW, kH, kW, false);
        benchmark::ClobberMemory();
      }
    };
  };
  const auto quarter = [](Quarter f) {
    return [f](benchmark::State& st) {
      auto& d = D();
      for (auto _ : st) {
        f(d.f.data(), d.fsmall.data(), 2000, 1500);
        benchmark::ClobberMemory();
      }
    };
  };
  benchmark::RegisterBenchmark("BM_Nv12ToRgb24Float/scalar_definition",
                               nv12(bivista::scalar::Nv12ToRgb24Plane))
      ->Unit(benchmark::kMillisecond);
  bvbench::RegisterPerTarget("BM_Nv12ToRgb24Float", nv12(bivista::Nv12ToRgb24Plane));
  benchmark::RegisterBenchmark("BM_QuarterMean/scalar_definition",
                               quarter(bivista::scalar::QuarterMeanPlane))
      ->Unit(benchmark::kMillisecond);
  bvbench::RegisterPerTarget("BM_QuarterMean", quarter(bivista::QuarterMeanPlane));
  return true;
}();

}  // namespace

BENCHMARK_MAIN();
