// Smoother and border mask: any small size, channel count, guide format, iteration and thread
// count, any values (zeros, NaNs); the best and the lowest target agree, with a pool on one side
// and none on the other; a failing allocation leaves the data untouched and releases everything.
#include "bivista/bordermask.h"
#include "bivista/fgs.h"
#include "support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider p(data, size);
  const int h = bvfuzz::Dim(p, 0, 24), w = bvfuzz::Dim(p, 0, 24);
  const int iterations = bvfuzz::Dim(p, 0, 3), channels = bvfuzz::Dim(p, 0, 5);
  const uint32_t format = p.ConsumeBool() ? 0u : p.ConsumeIntegral<uint32_t>();
  // Up to the pool's 2 workers (more would leave lines unsolved, as the split rule says).
  const int threads = bvfuzz::Dim(p, 0, 2);
  const float sigma = p.ConsumeFloatingPoint<float>(), lambda = p.ConsumeFloatingPoint<float>();
  const size_t area = static_cast<size_t>(h) * w;
  const size_t guideBytes = area * static_cast<size_t>(format == 0 ? (channels > 3 ? channels : 3)
                                                                   : channels);
  const auto mask = bvfuzz::Buffer<uint8_t>(p, area);
  const auto guide = bvfuzz::Buffer<uint8_t>(p, guideBytes);
  const auto input = bvfuzz::Buffer<float>(p, area);

  void* pool = bvfuzz::SharedPool(2);
  bvfuzz::TwinSet("FGSFilter: targets or thread counts differ", [&](bool lowest, std::vector<float>& o) {
    FGSFilter(mask.data(), o.data(), guide.data(), format, h, w, iterations, channels,
              lowest ? nullptr : pool, lowest ? 0 : threads > 0 ? threads : 1, &bvfuzz::kHeap,
              sigma, lambda);
  }, input);
  bvfuzz::Check(bvfuzz::HeapLive() == 0, "FGSFilter leaked a buffer");

  bvfuzz::HeapFail(1 + p.ConsumeIntegralInRange<int>(0, 5));
  std::vector<float> failed = input;
  FGSFilter(mask.data(), failed.data(), guide.data(), format, h, w, iterations, channels, pool,
            threads, &bvfuzz::kHeap, sigma, lambda);
  bvfuzz::CheckSame(failed, input, "FGSFilter wrote its data after a failed allocation");
  bvfuzz::Check(bvfuzz::HeapLive() == 0, "FGSFilter leaked after a failed allocation");
  bvfuzz::HeapFail(0);

  // One pass and lines through the exported building blocks.
  std::vector<float> wts = bvfuzz::Buffer<float>(p, area), scratch(area);
  DREF_FGSThreadParam records[3];
  bvfuzz::TwinSet("DREF_FGS_filter: targets differ", [&](bool lowest, std::vector<float>& o) {
    DREF_FGS_filter(o.data(), wts.data(), wts.data(), h, w, scratch.data(), records,
                    lowest ? nullptr : pool, 2);
  }, input);

  // Border mask, with or without a prior.
  const bool withPrior = p.ConsumeBool(), merge = p.ConsumeBool();
  const auto prior = bvfuzz::Buffer<uint8_t>(p, area);
  std::vector<uint8_t> m[2], sc(area);
  std::vector<float> g[2];
  bvfuzz::OnBestAndLowestTarget([&](bool lowest) {
    m[lowest].assign(area, 7);
    g[lowest].assign(area, 5.0f);
    getDataGradientAndBorderMask(input.data(), withPrior ? prior.data() : nullptr, w, h, merge,
                                 m[lowest].data(), g[lowest].data(), sc.data(),
                                 lowest ? nullptr : pool, lowest ? 4 : threads);
  });
  if (threads >= 1) {
    bvfuzz::CheckSame(m[0], m[1], "border mask: targets or thread counts differ");
    bvfuzz::CheckSame(g[0], g[1], "gradient: targets or thread counts differ");
  }
  return 0;
}
