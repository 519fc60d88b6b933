// Golden cases of the joint weighted median: the core on raw planes (every histogram layout,
// masks kept and cleaned, 1 to 4 workers), the stages, every driver, the clean-up steps and the
// refusals. No pool: the stages log side by side on a real one, so the line order would vary.
#include <math.h>
#include <stdlib.h>

#include "bivista/jwmf.h"
#include "golden/golden.h"

namespace {

using bvgolden::Rng;
using bvgolden::Sink;

struct Shape {
  int w, h;
};

const vta_algo_mem_allocator_t kFailing = {[](size_t, uint64_t, uint64_t) -> void* { return nullptr; },
                                           [](void* p, uint64_t, uint64_t) { free(p); }, nullptr};

// A depth plane of two surfaces with noise and a guide that mostly follows them.
void Scene(Rng& rng, int w, int h, std::vector<float>* depth, std::vector<uint8_t>* guide,
           std::vector<uint8_t>* mask) {
  const size_t n = static_cast<size_t>(w) * h;
  depth->resize(n), guide->resize(n), mask->resize(n);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const size_t i = static_cast<size_t>(y) * w + x;
      const bool near = 3 * x + 2 * y < 2 * w + 4;
      (*depth)[i] = (near ? 0.8f : 2.5f) + rng.Float(0.f, 0.3f);
      (*guide)[i] = static_cast<uint8_t>((near ? 50 : 190) + rng.Int(0, 30));
      (*mask)[i] = rng.Int(0, 4) ? 1 : 0;
    }
  }
}

}  // namespace

BVGOLDEN_CASES(jwmf) {
  for (const Shape& z : {Shape{1, 1}, Shape{7, 5}, Shape{23, 17}, Shape{40, 9}}) {
    cases.Seeded("core_" + bvgolden::Dims(z.w, z.h), [=](Sink& s, Rng& rng) {
      const size_t n = static_cast<size_t>(z.w) * z.h;
      for (int classes : {1, 5, 70, 260}) {
        const int levels = classes > 256 ? 9 : 1 + rng.Int(0, 20);
        float** wmap = float2D(classes, classes);
        for (int a = 0; a < classes; ++a) {
          wmap[a][a] = 1.f;
          for (int b = a + 1; b < classes; ++b) wmap[a][b] = wmap[b][a] = rng.Float(0.01f, 1.f);
        }
        for (int r : {0, 1, 3, 9}) {
          for (int threads : {1, 4}) {
            std::vector<int32_t> lv(n), feat(n);
            for (size_t i = 0; i < n; ++i) {
              lv[i] = rng.Int(0, levels - 1), feat[i] = rng.Int(0, classes - 1);
            }
            std::vector<int32_t> plain = lv;
            s.Value(filterCore(plain.data(), feat.data(), wmap, z.h, z.w, classes, levels, r,
                               nullptr, threads));
            s.Values(plain);
            for (int keep : {0, 1}) {
              std::vector<uint8_t> mask = rng.Bytes<uint8_t>(n, 0, 1);
              std::vector<int32_t> masked = lv;
              s.Value(filterCoreWithMask(masked.data(), feat.data(), wmap, mask.data(), keep,
                                         z.h, z.w, classes, levels, r, nullptr, threads));
              s.Values(masked);
              s.Values(mask);
            }
          }
        }
        float2D_release(wmap);
      }
    });
  }

  cases.Seeded("stages", [](Sink& s, Rng& rng) {
    const int w = 19, h = 11;
    const size_t n = static_cast<size_t>(w) * h;
    std::vector<float> depth(n);
    for (float& d : depth) d = rng.Float(0.5f, 4.f);
    depth[7] = NAN;
    for (int levels : {128, 256}) {
      std::vector<int32_t> lv(n, -1);
      std::vector<float> table(levels, -1.f);
      JWMFQuantArgs q = {depth.data(), lv.data(), table.data(), levels, w, h};
      from32FTo32SSimple_MulThread(&q, 0);
      s.Values(lv);
      s.Values(table);
    }
    std::vector<float> flat(n, 1.5f);
    std::vector<int32_t> lv(n, -1);
    std::vector<float> table(128, -1.f);
    JWMFQuantArgs q = {flat.data(), lv.data(), table.data(), 128, w, h};
    from32FTo32SSimple_MulThread(&q, 0);
    s.Values(lv);
    const std::vector<uint8_t> guide = rng.Bytes<uint8_t>(n, 0, 180);
    for (int fixed : {0, 1}) {
      std::vector<int32_t> feat(n, -1);
      float** wmap = nullptr;
      int32_t classes = 256, status = 9;
      JWMFImgFeatureArgs a = {guide.data(), feat.data(), &wmap, 1, &classes, w, h, fixed, &status};
      getFeatureByImg_MulThread(&a, 1);
      s.Value(status), s.Value(classes), s.Values(feat);
      if (wmap != nullptr) s.Values(wmap[0], static_cast<size_t>(classes) * classes);
      if (wmap != nullptr) float2D_release(wmap);
    }
    std::vector<float> colours(3 * 30);
    for (float& c : colours) c = static_cast<float>(rng.Int(0, 40));
    std::vector<int32_t> labels(n);
    for (int32_t& l : labels) l = rng.Int(-1, 31);
    std::vector<int32_t> feat(n, -1);
    float** wmap = nullptr;
    int32_t classes = 0, status = 9;
    JWMFSegFeatureArgs a = {colours.data(), labels.data(), 30, feat.data(), &wmap, &classes, w, h,
                            &status};
    getFeatureByMSSeg_Thread(&a, 1);
    s.Value(status), s.Value(classes), s.Values(feat);
    if (wmap != nullptr) s.Values(wmap[0], static_cast<size_t>(classes) * classes);
    if (wmap != nullptr) float2D_release(wmap);
  });

  for (const Shape& z : {Shape{2, 2}, Shape{9, 7}, Shape{31, 22}}) {
    cases.Seeded("drivers_" + bvgolden::Dims(z.w, z.h), [=](Sink& s, Rng& rng) {
      std::vector<float> depth;
      std::vector<uint8_t> guide, mask;
      Scene(rng, z.w, z.h, &depth, &guide, &mask);
      const size_t n = depth.size();
      std::vector<float> colours(3 * 256);
      for (int g = 0; g < 256; ++g) colours[3 * g] = static_cast<float>(g / 3);
      const std::vector<int32_t> labels(guide.begin(), guide.end());
      for (int keep : {0, 1}) {
        for (bool masked : {false, true}) {
          std::vector<float> d = depth;
          std::vector<uint8_t> m = mask;
          uint8_t* mp = masked ? m.data() : nullptr;
          JWMFilterWithImg(d.data(), guide.data(), 1, z.w, z.h, mp, 2, keep, nullptr, 2,
                           &bvgolden::kHeap);
          s.Values(d), s.Values(m);
          d = depth, m = mask;
          std::vector<uint8_t> work(16 * n + 4);
          s.Value(JWMFilterWithImg2(work.data(), work.data() + n, work.data() + 2 * n, d.data(),
                                    guide.data(), 1, z.w, z.h, mp, 3, keep, nullptr, 6,
                                    &bvgolden::kHeap));
          s.Values(d), s.Values(m);
          d = depth, m = mask;
          JWMFilter(d.data(), z.w, z.h, mp, keep, colours.data(), labels.data(), 256, nullptr, 3,
                    &bvgolden::kHeap);
          s.Values(d), s.Values(m);
          d = depth, m = mask;
          JWMFFilter(d.data(), z.w, z.h, mp, keep, colours.data(), labels.data(), 256, 1, nullptr,
                     2);
          s.Values(d), s.Values(m);
        }
        std::vector<float> d = depth, fwork(4 * n);
        std::vector<uint8_t> m = mask;
        JWMFFilterImage_MaskArea(d.data(), guide.data(), 1, z.w, z.h, m.data(), 4, keep, nullptr,
                                 2, &bvgolden::kHeap, fwork.data());
        s.Values(d), s.Values(m);
        d = depth, m = mask;
        std::vector<float> bwork(4 * n + 1);
        s.Value(JWMFFilterImage_MaskArea2(d.data(), guide.data(), 1, z.w, z.h, m.data(), 4, keep,
                                          nullptr, keep ? 1 : 2, &bvgolden::kHeap,
                                          reinterpret_cast<uint8_t*>(bwork.data())));
        s.Values(d), s.Values(m);
      }
      std::vector<float> d = depth;
      s.Values(medianFilter_3x3(d.data(), z.w, z.h, mask.data()), n);
      std::vector<float> work(4 * n);
      optimzieJWMFResult(d.data(), mask.data(), z.w, z.h, work.data());
      s.Values(d);
      // Refusals: no memory, a flat plane.
      d = depth;
      JWMFilterWithImg(d.data(), guide.data(), 1, z.w, z.h, nullptr, 2, 0, nullptr, 2, &kFailing);
      JWMFilter(d.data(), z.w, z.h, nullptr, 0, colours.data(), labels.data(), 256, nullptr, 2,
                &kFailing);
      s.Values(d);
      std::vector<float> flat(n, 2.f);
      JWMFilterWithImg(flat.data(), guide.data(), 1, z.w, z.h, nullptr, 2, 0, nullptr, 2,
                       &bvgolden::kHeap);
      s.Values(flat);
    });
  }
}
