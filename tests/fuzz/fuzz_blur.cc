// Gaussian blur: kernel lengths good and bad, any sigma, strides, thread counts with a small
// real pool or none, in place or not, the caller's scratch or the blur's own. A refused call
// leaves the destination untouched; an accepted one gives the bytes of a plain one-thread run
// into a separate image, on the best and on the lowest target.
#include <limits>

#include "bivista/gaussblur.h"
#include "support.h"

namespace {

using Bytes = std::vector<uint8_t>;
using bvfuzz::Extent;

int KLength(FuzzedDataProvider& p) {
  switch (p.ConsumeIntegralInRange<int>(0, 7)) {
    case 0: return bvfuzz::AnyInt(p);
    case 1: return p.ConsumeIntegralInRange<int>(-1, 15);
    default: return 3 + 2 * p.ConsumeIntegralInRange<int>(0, 2);
  }
}

int Threads(FuzzedDataProvider& p) {
  switch (p.ConsumeIntegralInRange<int>(0, 5)) {
    case 0: return bvfuzz::AnyInt(p);
    case 1: return p.ConsumeIntegralInRange<int>(-1, 6);
    default: return p.ConsumeIntegralInRange<int>(1, 4);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider p(data, size);
  const int w = p.ConsumeBool() ? p.ConsumeIntegralInRange<int>(-2, 8) : bvfuzz::Dim(p, 1, 70);
  const int h = p.ConsumeBool() ? p.ConsumeIntegralInRange<int>(-2, 8) : bvfuzz::Dim(p, 1, 40);
  const bool inPlace = p.ConsumeBool();
  const int ww = w > 0 ? w : 0;
  int srcStride = ww + bvfuzz::Dim(p, 0, 300);
  if (p.ConsumeIntegralInRange<int>(0, 7) == 0) srcStride = p.ConsumeBool() ? ww - 1 : bvfuzz::AnyInt(p);
  const int dstStride = inPlace || p.ConsumeBool() ? srcStride : ww + bvfuzz::Dim(p, 0, 300);
  if (Extent(w, h, srcStride) > (1u << 22) || Extent(w, h, dstStride) > (1u << 22)) return 0;
  const int entry = p.ConsumeIntegralInRange<int>(0, 3);
  const int k = KLength(p);
  float sigma = p.ConsumeBool() ? p.ConsumeFloatingPointInRange<float>(0.01f, 3.0f)
                                : p.ConsumeFloatingPoint<float>();
  if (p.ConsumeIntegralInRange<int>(0, 15) == 0)
    sigma = p.ConsumeBool() ? std::numeric_limits<float>::quiet_NaN()
                            : std::numeric_limits<float>::infinity();
  const bool withPool = p.ConsumeBool();
  const int threads = withPool ? Threads(p) : (p.ConsumeIntegralInRange<int>(0, 7) ? 1 : Threads(p));
  const bool callerBuf = p.ConsumeBool();
  const bool nullSrc = p.ConsumeIntegralInRange<int>(0, 31) == 0;
  uint16_t taps[7];
  for (auto& t : taps) t = p.ConsumeIntegralInRange<uint16_t>(0, 128);
  const Bytes image = bvfuzz::Buffer<uint8_t>(p, Extent(w, h, srcStride));
  const Bytes before(Extent(w, h, dstStride), 0x3C);
  void* pool = withPool ? bvfuzz::SharedPool(4) : nullptr;
  if (withPool && pool == nullptr) return 0;

  // Entry 0/1: gaussian_blur long/short; 2: the 3x3 path with the fuzzed taps; 3: 5x5 or 7x7.
  const int radius = entry < 2 ? static_cast<int>((static_cast<long long>(k) - 1) / 2) : (entry == 2 ? 1 : 2 + (k & 1));
  const bool shortForm = entry == 1;
  const int sStride = shortForm ? w : srcStride, dStride = shortForm ? w : dstStride;
  if (shortForm && (Extent(w, h, w) != image.size() || before.size() != image.size())) return 0;
  Bytes buf;
  if (callerBuf && radius >= 1 && radius <= 3 && threads >= 1 && threads <= 4 && sStride > 0) {
    const size_t rows = static_cast<size_t>(2 * radius) * (inPlace ? 2 * threads + 1 : threads);
    if (rows * static_cast<size_t>(sStride) > (1u << 22)) return 0;
    buf.assign(rows * static_cast<size_t>(sStride), 0x11);
  }
  const auto call = [&](const uint8_t* s, uint8_t* d, void* pl, int th, uint8_t* b) {
    switch (entry) {
      case 0: return gaussian_blur(s, d, w, h, sStride, dStride, k, sigma, pl, th, b);
      case 1: return gaussian_blur(s, d, w, h, k, sigma, pl, th, b);
      case 2:
        return GaussianBlur3x3_u8_optimization_multithread(s, d, w, h, sStride, dStride, taps, pl,
                                                           th, b);
      default:
        return (radius == 2 ? GaussianBlur5x5_u8_optimization_multithread
                            : GaussianBlur7x7_u8_optimization_multithread)(
            s, d, w, h, sStride, dStride, taps, pl, th, b);
    }
  };
  const auto r = bvfuzz::Twins(inPlace ? image : before, "blur targets differ", [&](uint8_t* o) {
    Bytes b = buf;
    return call(nullSrc ? nullptr : inPlace ? o : image.data(), o, pool, threads,
                b.empty() ? nullptr : b.data());
  });
  const bool bad = sStride < w || dStride < w || nullSrc || (!withPool && threads != 1) ||
                   (withPool && threads > 4) || k % 2 == 0 || k < 3 || k > 7 || !(sigma > 0);
  if (entry < 2 && bad && !inPlace) bvfuzz::CheckSame(r.out, before, "refused blur wrote");
  if (r.rc == 0 && sStride >= w && dStride >= w) {
    // The same blur on one thread, no pool, into a separate image.
    Bytes ref = before;
    const int rrc = call(image.data(), ref.data(), nullptr, 1, nullptr);
    bvfuzz::Check(rrc == 0, "one-thread blur refused what the split one accepted");
    if (inPlace) {
      // Row padding of the in-place image keeps the input bytes.
      for (size_t i = 0; i < ref.size(); ++i) {
        if (static_cast<int>(i % static_cast<size_t>(sStride)) >= w) ref[i] = image[i];
      }
    }
    bvfuzz::CheckSame(r.out, ref, "split or in-place blur differs from a one-thread blur");
  }
  return 0;
}
