// Tone matching, the NV12 luma rewrite and RGB-to-luma against OpenCV and libyuv on the same
// 4000x3000 data, one thread.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bivista/colormatch.h"
#include "libyuv.h"

extern "C" int __android_log_vprint(int, const char*, const char*, va_list) { return 0; }

namespace {

constexpr int kW = 4000, kH = 3000;

void* HeapMalloc(size_t size, uint64_t, uint64_t) { return malloc(size); }
void HeapFree(void* p, uint64_t, uint64_t) { free(p); }
vta_algo_mem_allocator_t g_heap{HeapMalloc, HeapFree, nullptr};

// Photo-like: soft gradients and blobs with a little noise, through a tone curve per camera.
std::vector<uint8_t> Photo(int channels, double gamma, double gain, uint32_t seed) {
  std::vector<uint8_t> img(static_cast<size_t>(kW) * kH * channels);
  std::mt19937 rng(seed);
  std::normal_distribution<double> noise(0.0, 2.0);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      const double base = 0.5 + 0.3 * std::sin(x * 0.002) * std::cos(y * 0.003) +
                          0.15 * std::sin((x + y) * 0.011);
      for (int c = 0; c < channels; ++c) {
        double v = base * (0.8 + 0.1 * c) + noise(rng) / 255.0;
        v = std::pow(std::min(std::max(v, 0.0), 1.0), gamma) * gain * 255.0;
        img[(static_cast<size_t>(y) * kW + x) * channels + c] =
            static_cast<uint8_t>(std::min(std::max(v, 0.0), 255.0));
      }
    }
  return img;
}

struct Data {
  std::vector<uint8_t> ref3, cor3, ref1, cor1, nv12, rgbOut, grey;
  Data()
      : ref3(Photo(3, 0.8, 1.0, 1)), cor3(Photo(3, 1.3, 0.9, 2)), ref1(Photo(1, 0.8, 1.0, 3)),
        cor1(Photo(1, 1.3, 0.9, 4)), nv12(static_cast<size_t>(kW) * kH * 3 / 2),
        rgbOut(static_cast<size_t>(kW) * kH * 3), grey(static_cast<size_t>(kW) * kH) {
    // NV12 from the 1-channel photo as luma and slowly varying chroma.
    std::copy(ref1.begin(), ref1.end(), nv12.begin());
    for (size_t i = static_cast<size_t>(kW) * kH; i < nv12.size(); ++i)
      nv12[i] = static_cast<uint8_t>(128 + 40 * std::sin(i * 0.0007));
    cv::setNumThreads(1);
  }
};

Data& D() {
  static Data d;
  return d;
}

// The same work with OpenCV: histograms of every channel of both images, the cumulative
// matching, and the table applied with cv::LUT.
void OpenCvToneMatch(const cv::Mat& ref, const cv::Mat& cor, cv::Mat& out) {
  const int channels = ref.channels();
  cv::Mat lut(1, 256, CV_8UC(channels));
  const int size = 256;
  const float range[] = {0, 256};
  const float* ranges[] = {range};
  for (int c = 0; c < channels; ++c) {
    cv::Mat hr, hc;
    cv::calcHist(&ref, 1, &c, cv::Mat(), hr, 1, &size, ranges);
    cv::calcHist(&cor, 1, &c, cv::Mat(), hc, 1, &size, ranges);
    float cr[256], cc[256], sr = 0, sc = 0;
    for (int i = 0; i < 256; ++i) cr[i] = sr += hr.at<float>(i), cc[i] = sc += hc.at<float>(i);
    int j = 0;
    for (int i = 0; i < 256; ++i) {
      while (j < 255 && cr[j] < cc[i]) ++j;
      lut.ptr<uint8_t>()[i * channels + c] = static_cast<uint8_t>(j);
    }
  }
  cv::LUT(cor, lut, out);
}

void BM_ToneMatch(benchmark::State& st) {
  auto& d = D();
  const int ch = static_cast<int>(st.range(0));
  auto& ref = ch == 3 ? d.ref3 : d.ref1;
  auto cor = ch == 3 ? d.cor3 : d.cor1;
  for (auto _ : st) {
    imageColorToneMatching(ref.data(), cor.data(), kW, kH, kW * ch, ch, &g_heap);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_ToneMatch)->Arg(3)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_ToneMatch_OpenCV(benchmark::State& st) {
  auto& d = D();
  const int ch = static_cast<int>(st.range(0));
  cv::Mat ref(kH, kW, CV_8UC(ch), (ch == 3 ? d.ref3 : d.ref1).data());
  cv::Mat cor(kH, kW, CV_8UC(ch), (ch == 3 ? d.cor3 : d.cor1).data());
  cv::Mat out(kH, kW, CV_8UC(ch));
  for (auto _ : st) {
    OpenCvToneMatch(ref, cor, out);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_ToneMatch_OpenCV)->Arg(3)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_Nv12Adjust(benchmark::State& st) {
  auto nv12 = D().nv12;
  for (auto _ : st) {
    colorImageNV12Adjusting(nv12.data(), kW, kH, kW, 0, &g_heap);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Nv12Adjust)->Unit(benchmark::kMillisecond);

void BM_Nv12Adjust_LibyuvOpenCV(benchmark::State& st) {
  auto& d = D();
  const uint8_t* uv = d.nv12.data() + static_cast<size_t>(kW) * kH;
  cv::Mat rgb(kH, kW, CV_8UC3, d.rgbOut.data()), grey(kH, kW, CV_8UC1, d.grey.data());
  for (auto _ : st) {
    libyuv::NV12ToRGB24(d.nv12.data(), kW, uv, kW, d.rgbOut.data(), kW * 3, kW, kH);
    cv::cvtColor(rgb, grey, cv::COLOR_RGB2GRAY);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Nv12Adjust_LibyuvOpenCV)->Unit(benchmark::kMillisecond);

void BM_YeqRGBtoY(benchmark::State& st) {
  auto& d = D();
  for (auto _ : st) {
    yeqRGBtoY(d.grey.data(), d.ref3.data(), kW * kH);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_YeqRGBtoY)->Unit(benchmark::kMillisecond);

void BM_YeqRGBtoY_OpenCV(benchmark::State& st) {
  auto& d = D();
  cv::Mat rgb(kH, kW, CV_8UC3, d.ref3.data()), grey(kH, kW, CV_8UC1, d.grey.data());
  for (auto _ : st) {
    cv::cvtColor(rgb, grey, cv::COLOR_RGB2GRAY);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_YeqRGBtoY_OpenCV)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

namespace {
// The two hot loops alone, one channel.
void BM_Stage_Histogram1(benchmark::State& st) {
  auto& d = D();
  std::vector<int> h(256);
  for (auto _ : st) {
    calculateHistogramofImage(d.cor1.data(), kW, kH, kW, 1, h.data(), nullptr, nullptr);
    benchmark::DoNotOptimize(h.data());
  }
}
BENCHMARK(BM_Stage_Histogram1)->Unit(benchmark::kMillisecond);

void BM_Stage_ApplyTable1(benchmark::State& st) {
  auto img = D().cor1;
  uint8_t t[256];
  for (int i = 0; i < 256; ++i) t[i] = static_cast<uint8_t>(255 - i);
  image_color_analyze_para para{};
  para.mapTable[0] = t;
  for (auto _ : st) {
    processCorImage(img.data(), kW, kH, kW, 1, &para);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Stage_ApplyTable1)->Unit(benchmark::kMillisecond);

void BM_Stage_CalcHist_OpenCV(benchmark::State& st) {
  cv::Mat cor(kH, kW, CV_8UC1, D().cor1.data()), h;
  const int size = 256, c = 0;
  const float range[] = {0, 256};
  const float* ranges[] = {range};
  for (auto _ : st) cv::calcHist(&cor, 1, &c, cv::Mat(), h, 1, &size, ranges);
}
BENCHMARK(BM_Stage_CalcHist_OpenCV)->Unit(benchmark::kMillisecond);
}  // namespace
