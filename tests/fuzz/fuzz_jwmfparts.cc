// The weighted median's pool workers called directly with their records: the quantiser, both
// feature builders and the two median workers on any column range inside the image, any level
// and class counts, radii and weights. A median worker writes only its own columns of the output;
// the best and the lowest vector target agree.
#include "bivista/jwmf.h"
#include "support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider p(data, size);
  const int w = bvfuzz::Dim(p, 0, 24), h = bvfuzz::Dim(p, 0, 24);
  const size_t n = static_cast<size_t>(w) * h;
  switch (p.ConsumeIntegralInRange(0, 3)) {
    case 0: {  // quantiser
      const int levels = bvfuzz::Dim(p, -1, 300);
      const std::vector<float> depth = bvfuzz::Buffer<float>(p, n);
      std::vector<int32_t> out(n, -5);
      std::vector<float> table(levels > 0 ? levels : 0, -5.0f);
      JWMFQuantArgs a{depth.data(), out.data(), table.data(), levels, w, h};
      from32FTo32SSimple_MulThread(&a, 0);
      break;
    }
    case 1: {  // guide-plane features
      const std::vector<uint8_t> guide = bvfuzz::Buffer<uint8_t>(p, n);
      std::vector<int32_t> features(n, -5);
      float** wmap = nullptr;
      int32_t classes = -1, status = 7;
      JWMFImgFeatureArgs a{guide.data(), features.data(), &wmap, 3, &classes, w, h,
                           p.ConsumeBool() ? 1 : 0, &status};
      getFeatureByImg_MulThread(&a, 1);
      bvfuzz::Check(status == 0 ? wmap != nullptr : wmap == nullptr, "feature status");
      if (wmap != nullptr) float2D_release(wmap);
      break;
    }
    case 2: {  // segment features: labels inside or outside the segment count
      const int segments = bvfuzz::Dim(p, 0, 40);
      const std::vector<float> colors = bvfuzz::Buffer<float>(p, static_cast<size_t>(segments) * 3);
      const std::vector<int32_t> labels = bvfuzz::Buffer<int32_t>(p, n);
      std::vector<int32_t> features(n, -5);
      float** wmap = nullptr;
      int32_t classes = -1, status = 7;
      JWMFSegFeatureArgs a{colors.data(), labels.data(), segments, features.data(), &wmap,
                           &classes, w, h, &status};
      getFeatureByMSSeg_Thread(&a, 0);
      if (wmap != nullptr) float2D_release(wmap);
      break;
    }
    default: {  // a median worker on columns first .. end - 1
      const int first = p.ConsumeIntegralInRange(0, w), end = p.ConsumeIntegralInRange(0, w);
      const int levels = bvfuzz::Dim(p, -1, 300), classes = bvfuzz::Dim(p, -1, 300);
      const int radius = p.ConsumeBool() ? bvfuzz::AnyInt(p) : bvfuzz::Dim(p, -2, 12);
      const bool masked = p.ConsumeBool();
      const std::vector<int32_t> lv = bvfuzz::Buffer<int32_t>(p, n);
      const std::vector<int32_t> feat = bvfuzz::Buffer<int32_t>(p, n);
      float** wmap = bvfuzz::WeightMap(p, classes);
      if (wmap == nullptr) return 0;
      const std::vector<uint8_t> mask = bvfuzz::Buffer<uint8_t>(p, n);
      const std::vector<int32_t> init(n, -77);
      const auto out = bvfuzz::Twins(init, "median worker: targets differ", [&](int32_t* o) {
        if (masked) {
          JWMFCoreMaskArgs a{first, end, lv.data(), feat.data(), wmap, h, w, classes, levels,
                             radius, mask.data(), o};
          filterCoreWithmask_multiThread(&a, 0);
        } else {
          JWMFCoreArgs a{first, end, lv.data(), feat.data(), wmap, h, w, classes, levels, radius, o};
          filterCore_multiThread(&a, 0);
        }
      }).out;
      float2D_release(wmap);
      for (size_t i = 0; i < n; ++i) {
        const int x = static_cast<int>(i % w);
        if (x < first || x >= end) bvfuzz::Check(out[i] == -77, "worker wrote outside its columns");
      }
    }
  }
  return 0;
}
