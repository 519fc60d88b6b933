// Colour matching: tone matching on any small image, channel count and stride; the NV12 luma
// rewrite with a table that may fail; RGB-to-luma and calibration with any samples (NaN and
// infinite weights included). Best and lowest vector target agree; refusals leave the image.
#include <algorithm>

#include "bivista/colormatch.h"
#include "colormatch/colormatch_internal.h"
#include "support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider p(data, size);
  const int pick = p.ConsumeIntegralInRange(0, 3);
  const int ch = pick == 0 ? 1 : pick == 1 ? 3 : bvfuzz::AnyInt(p);
  const int w = bvfuzz::Dim(p, 0, 80), h = bvfuzz::Dim(p, 0, 9);
  const int cw = ch == 1 || ch == 3 ? ch : 1;
  const int stride = w * cw + bvfuzz::Dim(p, 0, 5);
  const size_t bytes = h > 0 ? static_cast<size_t>(stride) * (h - 1) + static_cast<size_t>(w) * cw : 0;
  const auto ref = bvfuzz::Buffer<uint8_t>(p, bytes);
  const auto cor = bvfuzz::Buffer<uint8_t>(p, bytes);
  const bool fail = p.ConsumeBool();
  vta_algo_mem_allocator_t heap = bvfuzz::kHeap;  // the entries take a non-const table
  bvfuzz::HeapFail(fail ? -1 : 0);
  bvfuzz::Twins(cor, "imageColorToneMatching: targets differ, or a refusal wrote the image",
                [&](uint8_t* o) { imageColorToneMatching(ref.data(), o, w, h, stride, ch, &heap); },
                fail || (ch != 1 && ch != 3));

  // NV12: even sizes, stride at least the width, the buffer exactly stride x height x 3 / 2.
  const int nw = 2 * bvfuzz::Dim(p, 0, 24), nh = 2 * bvfuzz::Dim(p, 0, 5);
  const int nstride = nw + bvfuzz::Dim(p, 0, 6), mode = bvfuzz::AnyInt(p);
  const auto nv12 = bvfuzz::Buffer<uint8_t>(p, static_cast<size_t>(nstride) * nh * 3 / 2);
  bvfuzz::HeapFail(p.ConsumeBool() ? -1 : 0);
  const auto luma = bvfuzz::Twins(nv12, "colorImageNV12Adjusting targets differ", [&](uint8_t* o) {
    return colorImageNV12Adjusting(o, nw, nh, nstride, mode, &heap);
  });
  bvfuzz::HeapFail(0);
  if (luma.rc != 0) bvfuzz::Check(luma.out == nv12, "refused NV12 rewrite wrote the image");

  // Calibration on any samples, then both conversions with whatever was installed.
  float saved[7];
  std::copy(bivista::g_yeqWeights3, bivista::g_yeqWeights3 + 3, saved);
  std::copy(bivista::g_yeqWeights4, bivista::g_yeqWeights4 + 4, saved + 3);
  const int n = bvfuzz::Dim(p, 0, 12), withMax = bvfuzz::AnyInt(p);
  const auto c0 = bvfuzz::Buffer<float>(p, n), c1 = bvfuzz::Buffer<float>(p, n);
  const auto c2 = bvfuzz::Buffer<float>(p, n), y = bvfuzz::Buffer<float>(p, n);
  if (yeqCalib(c0.data(), c1.data(), c2.data(), y.data(), n, withMax, 1) != 0) {
    bvfuzz::Check(std::equal(saved, saved + 3, bivista::g_yeqWeights3) &&
                      std::equal(saved + 3, saved + 7, bivista::g_yeqWeights4),
                  "refused calibration changed a weight set");
  }
  const int count = bvfuzz::Dim(p, 0, 70);
  const auto rgb = bvfuzz::Buffer<uint8_t>(p, static_cast<size_t>(count) * 3);
  const std::vector<uint8_t> zeros(count, 0);
  bvfuzz::TwinSet("yeqRGBtoY/yeqRGBVtoY targets differ", [&](auto& y3, auto& y4) {
    yeqRGBtoY(y3.data(), rgb.data(), count);
    yeqRGBVtoY(y4.data(), rgb.data(), count);
  }, zeros, zeros);
  std::copy(saved, saved + 3, bivista::g_yeqWeights3);
  std::copy(saved + 3, saved + 7, bivista::g_yeqWeights4);
  return 0;
}
