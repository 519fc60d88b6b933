// Joint weighted median: any small sizes, level and class counts, radii, thread counts, weights
// (NaN, infinite, negative), out-of-range levels and classes, masks and depth values. The 8-bit
// and 32-bit guide drivers agree, refusals leave the depth untouched, and the clean-up steps run
// on anything.
#include "bivista/jwmf.h"
#include "support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider p(data, size);
  const int w = bvfuzz::Dim(p, 0, 24), h = bvfuzz::Dim(p, 0, 24);
  const size_t n = static_cast<size_t>(w) * h;
  const int mode = p.ConsumeIntegralInRange(0, 3);

  if (mode == 0) {  // the core on raw planes
    const int levels = bvfuzz::Dim(p, -1, 300), classes = bvfuzz::Dim(p, -1, 300);
    const int radius = p.ConsumeBool() ? bvfuzz::AnyInt(p) : bvfuzz::Dim(p, -2, 12);
    const int threads = p.ConsumeBool() ? bvfuzz::AnyInt(p) : bvfuzz::Dim(p, -1, 6);
    std::vector<int32_t> lv = bvfuzz::Buffer<int32_t>(p, n);
    const std::vector<int32_t> feat = bvfuzz::Buffer<int32_t>(p, n);
    float** wmap = bvfuzz::WeightMap(p, classes);
    if (wmap == nullptr) return 0;
    std::vector<uint8_t> mask = bvfuzz::Buffer<uint8_t>(p, n);
    const std::vector<int32_t> before = lv;
    const int rc = p.ConsumeBool()
                       ? filterCore(lv.data(), feat.data(), wmap, h, w, classes, levels, radius,
                                    nullptr, threads)
                       : filterCoreWithMask(lv.data(), feat.data(), wmap, mask.data(),
                                            p.ConsumeBool(), h, w, classes, levels, radius,
                                            nullptr, threads);
    if (threads < 0 && rc == 0) bvfuzz::CheckSame(lv, before, "a negative thread count filtered");
    float2D_release(wmap);
    return 0;
  }

  std::vector<float> depth = bvfuzz::Buffer<float>(p, n);
  const std::vector<uint8_t> guide = bvfuzz::Buffer<uint8_t>(p, n);
  const bool withMask = p.ConsumeBool();
  const std::vector<uint8_t> mask0 = bvfuzz::Buffer<uint8_t>(p, n);
  const int radius = bvfuzz::Dim(p, -2, 9);
  const int keep = p.ConsumeBool();
  const int threads = bvfuzz::Dim(p, -1, 6);

  if (mode == 1) {  // both guide drivers agree
    std::vector<float> a = depth, b = depth;
    std::vector<uint8_t> ma = mask0, mb = mask0;
    JWMFilterWithImg(a.data(), guide.data(), 1, w, h, withMask ? ma.data() : nullptr, radius, keep,
                     nullptr, threads, &bvfuzz::kHeap);
    std::vector<uint8_t> l(n), f(n), o(n);
    const int rc = JWMFilterWithImg2(l.data(), f.data(), o.data(), b.data(), guide.data(), 1, w, h,
                                     withMask ? mb.data() : nullptr, radius, keep, nullptr,
                                     threads, &bvfuzz::kHeap);
    if (rc != 0) {
      bvfuzz::CheckSame(b, depth, "a refused JWMFilterWithImg2 wrote the depth");
    } else {
      bvfuzz::CheckSame(a, b, "JWMFilterWithImg2 differs from JWMFilterWithImg");
      bvfuzz::CheckSame(ma, mb, "the drivers cleaned the mask differently");
    }
    return 0;
  }

  if (mode == 2) {  // segment drivers
    const int segments = bvfuzz::Dim(p, 0, 40);
    const std::vector<float> colours = bvfuzz::Buffer<float>(p, 3 * static_cast<size_t>(segments));
    const std::vector<int32_t> labels = bvfuzz::Buffer<int32_t>(p, n);
    std::vector<float> a = depth, b = depth;
    std::vector<uint8_t> ma = mask0, mb = mask0;
    JWMFilter(a.data(), w, h, withMask ? ma.data() : nullptr, keep, colours.data(), labels.data(),
              segments, nullptr, threads, &bvfuzz::kHeap);
    JWMFFilter(b.data(), w, h, withMask ? mb.data() : nullptr, keep, colours.data(),
               labels.data(), segments, 5, nullptr, threads);
    bvfuzz::CheckSame(a, b, "JWMFFilter with radius 5 differs from JWMFilter");
    return 0;
  }

  // Mask-area drivers and the clean-up steps.
  std::vector<float> a = depth, b = depth;
  std::vector<uint8_t> ma = mask0, mb = mask0;
  std::vector<float> work(4 * n + 1);
  std::vector<float> work2(4 * n + 1);
  JWMFFilterImage_MaskArea(a.data(), guide.data(), 1, w, h, withMask ? ma.data() : nullptr,
                           radius, keep, nullptr, threads, &bvfuzz::kHeap, work.data());
  const int rc = JWMFFilterImage_MaskArea2(
      b.data(), guide.data(), 1, w, h, withMask ? mb.data() : nullptr, radius, keep, nullptr,
      threads, &bvfuzz::kHeap, reinterpret_cast<uint8_t*>(work2.data()));
  if (rc != 0) {
    bvfuzz::CheckSame(b, depth, "a refused JWMFFilterImage_MaskArea2 wrote the depth");
  } else {
    bvfuzz::CheckSame(a, b, "the two mask-area drivers differ");
  }
  std::vector<float> c = depth;
  medianFilter_3x3(c.data(), w, h, withMask ? mask0.data() : nullptr);
  optimzieJWMFResult(c.data(), mask0.data(), w, h, work.data());
  return 0;
}
