// Golden cases of the colour matching: tone matching (one and three channels, odd sizes and
// strides, the byte-pair paths of a large plane, refusals), the NV12 luma rewrite in both modes,
// RGB-to-luma and a calibration (the weight sets are restored after each case).
#include <stdlib.h>

#include <algorithm>

#include "bivista/colormatch.h"
#include "colormatch/colormatch_internal.h"
#include "golden/golden.h"

namespace {

using bvgolden::Rng;
using bvgolden::Sink;

bool g_fail = false;
void* GoldenMalloc(size_t size, uint64_t, uint64_t) { return g_fail ? nullptr : malloc(size); }
void GoldenFree(void* p, uint64_t, uint64_t) { free(p); }
vta_algo_mem_allocator_t g_table{GoldenMalloc, GoldenFree, nullptr};

struct Shape {
  int w, h, pad;
};

// Photo-like bytes: a ramp with small noise, so the histograms have runs and gaps.
std::vector<uint8_t> Ramp(Rng& rng, size_t n, int period) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>((i % period) * 200 / period + rng.Int(0, 6));
  return v;
}

void RestoreSets() {
  std::copy(bivista::kYeqInitial3, bivista::kYeqInitial3 + 3, bivista::g_yeqWeights3);
  std::copy(bivista::kYeqInitial4, bivista::kYeqInitial4 + 4, bivista::g_yeqWeights4);
}

}  // namespace

BVGOLDEN_CASES(colormatch) {
  for (const Shape& z : {Shape{1, 1, 0}, Shape{7, 5, 3}, Shape{65, 9, 1}, Shape{130, 17, 0},
                         Shape{1030, 520, 2}}) {
    cases.Seeded("tone_" + bvgolden::Dims(z.w, z.h), [=](Sink& s, Rng& rng) {
      for (int ch : {1, 3, 2}) {
        if (z.w == 1030 && ch != 1) continue;
        const int cw = ch == 2 ? 1 : ch, stride = z.w * cw + z.pad;
        const size_t n = static_cast<size_t>(stride) * z.h;
        const auto ref = Ramp(rng, n, 97), cor0 = Ramp(rng, n, 61);
        for (int fail : {0, 1}) {
          g_fail = fail != 0;
          auto cor = cor0;
          imageColorToneMatching(ref.data(), cor.data(), z.w, z.h, stride, ch, &g_table);
          s.Values(cor);
        }
        g_fail = false;
        if (ch == 2) continue;
        std::vector<int32_t> ints(15 * 256, -7);
        std::vector<uint8_t> maps(3 * 256, 0x5A);
        image_color_analyze_para para{};
        for (int c = 0; c < 3; ++c) {
          para.refHist[c] = &ints[c * 256], para.refCumHist[c] = &ints[(3 + c) * 256];
          para.corHist[c] = &ints[(6 + c) * 256], para.corCumHist[c] = &ints[(9 + c) * 256];
          para.offset[c] = &ints[(12 + c) * 256], para.mapTable[c] = &maps[c * 256];
        }
        analyzeInputImagePair(ref.data(), cor0.data(), z.w, z.h, stride, ch, &para);
        s.Values(ints);
        s.Values(maps);
      }
    });
  }
  for (const Shape& z : {Shape{2, 2, 0}, Shape{6, 3, 4}, Shape{34, 10, 0}, Shape{66, 7, 2}}) {
    cases.Seeded("nv12_" + bvgolden::Dims(z.w, z.h), [=](Sink& s, Rng& rng) {
      const int stride = z.w + z.pad;
      const auto src = rng.Bytes<uint8_t>(static_cast<size_t>(stride) * (z.h + (z.h + 1) / 2));
      for (int mode : {0, 1}) {
        for (int fail : {0, 1}) {
          g_fail = fail != 0;
          auto img = src;
          s.Value(colorImageNV12Adjusting(img.data(), z.w, z.h, stride, mode, &g_table));
          s.Values(img);
        }
      }
      g_fail = false;
    });
  }
  cases.Seeded("yeq", [](Sink& s, Rng& rng) {
    for (int count : {1, 15, 16, 17, 100}) {
      const auto rgb = rng.Bytes<uint8_t>(3 * count);
      std::vector<uint8_t> y(count + 4, 0x33);
      yeqRGBtoY(y.data(), rgb.data(), count);
      s.Values(y);
      yeqRGBVtoY(y.data(), rgb.data(), count);
      s.Values(y);
    }
    const auto c0 = rng.Floats(40, 0, 255), c1 = rng.Floats(40, 0, 255), c2 = rng.Floats(40, 0, 255);
    std::vector<float> target(40);
    for (int i = 0; i < 40; ++i) target[i] = 0.3f * c0[i] + 0.5f * c1[i] + 0.2f * c2[i] + rng.Float(-1, 1);
    for (int withMax : {0, 1}) {
      s.Value(yeqCalib(c0.data(), c1.data(), c2.data(), target.data(), 40, withMax, 1));
      s.Values(bivista::g_yeqWeights3, 3);
      s.Values(bivista::g_yeqWeights4, 4);
    }
    s.Value(yeqCalib(c0.data(), c0.data(), c0.data(), target.data(), 40, 1, 1));
    const auto rgb = rng.Bytes<uint8_t>(3 * 33);
    std::vector<uint8_t> y(33);
    yeqRGBVtoY(y.data(), rgb.data(), 33);
    s.Values(y);
    RestoreSets();
  });
}
