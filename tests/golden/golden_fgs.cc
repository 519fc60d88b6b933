// Golden cases of the depth refinement's smoother and border mask: the whole filter on odd sizes
// (interleaved and planar guides, masked and not, null pool and 1-3 workers), its exported
// building blocks, and the border mask with and without a prior.
#include <stdlib.h>

#include "bivista/bordermask.h"
#include "bivista/fgs.h"
#include "golden/golden.h"

namespace {

using bvgolden::Rng;
using bvgolden::Sink;

struct Shape {
  int w, h;
};

}  // namespace

BVGOLDEN_CASES(fgs) {
  bvgolden::SharedPool();  // made here, outside any case's log
  for (const Shape& z : {Shape{1, 1}, Shape{2, 7}, Shape{13, 5}, Shape{37, 29}, Shape{70, 33}}) {
    cases.Seeded("fgs_" + bvgolden::Dims(z.w, z.h), [=](Sink& s, Rng& rng) {
      const size_t n = static_cast<size_t>(z.w) * z.h;
      const auto data0 = rng.Floats(n, 100.0f, 3000.0f);
      const auto guide = rng.Bytes<uint8_t>(n * 3);
      const auto mask = rng.Mask(n, 10, 1);
      for (uint32_t format : {0u, 1u}) {
        for (int threads : {1, 2, 3}) {
          for (bool masked : {false, true}) {
            auto data = data0;
            const std::vector<uint8_t> none(n, 0);
            FGSFilter(masked ? mask.data() : none.data(), data.data(), guide.data(), format, z.h,
                      z.w, 3, 3, threads == 1 ? nullptr : bvgolden::SharedPool(), threads,
                      &bvgolden::kHeap, 8.0f, 100.0f);
            s.Values(data);
          }
        }
      }
    });
  }
  cases.Seeded("fgs_blocks", [](Sink& s, Rng& rng) {
    const int w = 19, h = 11;
    const size_t n = static_cast<size_t>(w) * h;
    const auto guide = rng.Bytes<uint8_t>(n * 3);
    std::vector<float> hw(n, -1.0f), vw(n, -1.0f), scratch(n, 0.0f);
    std::vector<uint8_t> transposed(n * 3, 0);
    DREF_FGSGuideToWeight_yuv(hw.data(), guide.data(), h, w, 3, 7.0f, 50.0f);
    s.Values(hw);
    DREF_FGSGuideToWeight_plane(vw.data(), guide.data(), h, w, 3, 7.0f, 50.0f);
    s.Values(vw);
    DREF_Rotate_yuv(transposed.data(), guide.data(), h, w);
    s.Values(transposed);
    auto data = rng.Floats(n, 0.0f, 10.0f);
    DREF_FGSFilter1D(data.data(), hw.data(), scratch.data(), h, w);
    s.Values(data);
    s.Values(scratch);
    std::vector<float> rotated(n, 0.0f);
    DREF_Rotate_1D_FLOAT(rotated.data(), data.data(), h, w);
    s.Values(rotated);
    const auto mask = rng.Mask(n, 20, 1);
    changeWeight(hw.data(), mask.data(), h, w, -0.01f);
    s.Values(hw);
    s.Value(updateWeight(hw.data(), vw.data(), static_cast<int>(n), mask.data(), mask.data(), 4.0f));
    s.Values(hw);
    s.Values(vw);
    s.Value(_gauss(3.5f, 8.0f));
  });
  for (const Shape& z : {Shape{3, 3}, Shape{17, 16}, Shape{45, 31}, Shape{101, 64}}) {
    cases.Seeded("bordermask_" + bvgolden::Dims(z.w, z.h), [=](Sink& s, Rng& rng) {
      const size_t n = static_cast<size_t>(z.w) * z.h;
      auto depth = rng.Floats(n, 500.0f, 600.0f);
      for (size_t i = 0; i < n; ++i) {
        if (static_cast<int>(i % z.w) > z.w / 2) depth[i] += 900.0f;  // a depth edge
      }
      const auto prior = rng.Mask(n, 5, 255);
      for (int threads : {1, 2, 4}) {
        for (uint32_t merge : {0u, 1u}) {
          std::vector<uint8_t> mask(n, 7), scratch(n, 0);
          std::vector<float> gradient(n, -1.0f);
          s.Value(getDataGradientAndBorderMask(depth.data(), merge ? prior.data() : nullptr, z.w,
                                               z.h, merge, mask.data(), gradient.data(),
                                               scratch.data(),
                                               threads == 1 ? nullptr : bvgolden::SharedPool(),
                                               threads));
          s.Values(mask);
          s.Values(gradient);
        }
      }
      float threshold = 0.0f;
      getBinarizationTh(depth.data(), z.w, z.h, &threshold);
      s.Value(threshold);
    });
  }
}
