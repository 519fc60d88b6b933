// Resampling of float and 8-bit images: any small sizes (one row, one column, empty, negative,
// a huge side beside an empty one), any sample values. Vector and lowest target agree; a call
// whose source or destination is empty writes nothing.
#include <functional>
#include <limits>
#include <utility>

#include "bivista/imageformat.h"
#include "support.h"

namespace {

// A side: mostly small, sometimes 0, negative or at the int limits (only beside an empty side,
// so every buffer stays small).
int Side(FuzzedDataProvider& p) {
  switch (p.ConsumeIntegralInRange<int>(0, 7)) {
    case 0: return p.ConsumeIntegralInRange<int>(-3, 2);
    case 1: return bvfuzz::AnyInt(p);
    case 2: return bvfuzz::Dim(p, 1, 30000);  // long sides: accumulated positions creep
    default: return bvfuzz::Dim(p, 1, 70);
  }
}

struct Shape {
  int w, h;
  bool Empty() const { return w < 1 || h < 1; }
  size_t Pixels() const { return Empty() ? 0 : static_cast<size_t>(w) * static_cast<size_t>(h); }
};

bool Small(const Shape& s) { return s.Pixels() <= 40000; }

template <class T>
using Call = std::pair<const char*, std::function<void(T*)>>;

void Floats(FuzzedDataProvider& p, const Shape& s, const Shape& d) {
  const auto src = bvfuzz::Buffer<float>(p, s.Pixels());
  auto mask = bvfuzz::Buffer<uint8_t>(p, s.Pixels());
  if (p.ConsumeBool()) {
    for (auto& m : mask) m &= 1;
  }
  const float invalid = p.ConsumeFloatingPoint<float>();
  const float scale = p.ConsumeFloatingPoint<float>();
  const std::vector<float> init(d.Pixels(), -7.0f);
  const bool none = s.Empty() || d.Empty();
  const float* in = src.data();
  const int op = p.ConsumeIntegralInRange<int>(0, 7);
  if (op == 7) {
    const auto low = bvfuzz::Buffer<uint8_t>(p, 3 * s.Pixels());
    const auto full = bvfuzz::Buffer<uint8_t>(p, 3 * d.Pixels());
    bvfuzz::Twins(init, "ResizeFloatImage_KeepBorder_full", [&](float* o) {
      ResizeFloatImage_KeepBorder_full(in, o, low.data(), full.data(), s.w, s.h, d.w, d.h);
    }, none);
    return;
  }
  const Call<float> calls[] = {
      {"ResizeFloat", [&](float* o) { ResizeFloat(in, o, s.w, s.h, d.w, d.h); }},
      {"ResizeDepth", [&](float* o) { ResizeDepth(in, o, s.w, s.h, d.w, d.h); }},
      {"ResizeSpareDisparity", [&](float* o) { ResizeSpareDisparity(in, o, s.w, s.h, d.w, d.h, invalid); }},
      {"ResizeSparedataFloat",
       [&](float* o) { ResizeSparedataFloat(in, mask.data(), o, s.w, s.h, d.w, d.h, scale, invalid); }},
      {"ResizeSpareDisparityNearest",
       [&](float* o) { ResizeSpareDisparityNearest(in, o, s.w, s.h, d.w, d.h, invalid); }},
      {"ResizeFloatImg_Bilinear", [&](float* o) { ResizeFloatImg_Bilinear(in, o, s.w, s.h, d.w, d.h); }},
      {"ResizeFloatImg_Bilinear quarters", [&](float* o) {
         ResizeFloatImg_Bilinear_Downsample_Quarter(in, o, s.w, s.h, d.w, d.h);
         ResizeFloatImg_Bilinear_Extend_Quarter(in, o, s.w, s.h, d.w, d.h);
       }}};
  bvfuzz::Twins(init, calls[op].first, calls[op].second, none);
}

void Bytes(FuzzedDataProvider& p, const Shape& s, const Shape& d) {
  const bool none = s.Empty() || d.Empty();
  const int op = p.ConsumeIntegralInRange<int>(0, 5);
  if (op == 2) {
    // One channel of an image of ch interleaved bytes, the pointers at channel c.
    const int ch = p.ConsumeBool() ? p.ConsumeIntegralInRange<int>(1, 5) : bvfuzz::AnyInt(p);
    if (ch > 64 || (ch < 1 && !none)) return;
    const int c = ch > 0 ? p.ConsumeIntegralInRange<int>(0, ch - 1) : 0;
    const size_t sn = ch > 0 ? s.Pixels() * ch : 0, dn = ch > 0 ? d.Pixels() * ch : 0;
    const auto src = bvfuzz::Buffer<uint8_t>(p, sn);
    const std::vector<uint8_t> init(dn, 0xA5);
    bvfuzz::Twins(init, "ResizeUcharChl", [&](uint8_t* o) {
      ResizeUcharChl(src.data() + (sn ? c : 0), o + (dn ? c : 0), s.w, s.h, d.w, d.h, ch);
    }, none || ch < 1);
    return;
  }
  size_t sn = s.Pixels(), dn = d.Pixels();
  if (op == 3) {  // NV21: the chroma plane holds w / 2 x h / 2 pairs
    sn += s.Empty() ? 0 : 2 * static_cast<size_t>(s.w / 2) * static_cast<size_t>(s.h / 2);
    dn += d.Empty() ? 0 : 2 * static_cast<size_t>(d.w / 2) * static_cast<size_t>(d.h / 2);
  }
  if (op == 4) sn *= 3, dn *= 3;
  const auto src = bvfuzz::Buffer<uint8_t>(p, sn);
  const std::vector<uint8_t> init(dn, 0xA5);
  const uint8_t* in = src.data();
  const Call<uint8_t> calls[] = {
      {"ResizeUchar", [&](uint8_t* o) { ResizeUchar(in, o, s.w, s.h, d.w, d.h); }},
      {"ResizeUcharMask", [&](uint8_t* o) { ResizeUcharMask(in, o, s.w, s.h, d.w, d.h); }},
      {nullptr, nullptr},  // op 2: one channel, above
      {"ResizeUcharNV21", [&](uint8_t* o) { ResizeUcharNV21(in, o, s.w, s.h, d.w, d.h); }},
      {"ResizeUcharRGB", [&](uint8_t* o) { ResizeUcharRGB(in, o, s.w, s.h, d.w, d.h); }},
      {"ResizeUchar_upScale2x2", [&](uint8_t* o) { ResizeUchar_upScale2x2(in, o, s.w, s.h, d.w, d.h); }}};
  bvfuzz::Twins(init, calls[op].first, calls[op].second, none);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider p(data, size);
  Shape s{Side(p), Side(p)}, d{Side(p), Side(p)};
  if (p.ConsumeBool()) {  // the exact 2x relations of the quarter paths
    if (p.ConsumeBool()) {
      d = {s.w / 2, s.h / 2};
    } else {
      d = {2 * (s.w % 40), 2 * (s.h % 40)};
      s = {s.w % 40, s.h % 40};
    }
  }
  if (!Small(s) || !Small(d)) return 0;
  if (p.ConsumeBool()) {
    Floats(p, s, d);
  } else {
    Bytes(p, s, d);
  }
  return 0;
}
