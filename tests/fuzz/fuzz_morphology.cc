// Morphology: every engine on any small shape with radii, kernel sizes, strides and iteration
// counts anywhere in the int range. Vector and lowest target agree, refusals leave the image
// untouched, the integral engine matches a direct box count.
#include <stdlib.h>

#include <algorithm>
#include <limits>

#include "bivista/morphology.h"
#include "support.h"

namespace {

using Bytes = std::vector<uint8_t>;
using bvfuzz::Extent;

// Box decision of the integral engine, counted pixel by pixel (rows/columns 1.. only).
Bytes BoxReference(const Bytes& src, int w, int h, int k, bool erode) {
  const long long r = static_cast<long long>(static_cast<double>(static_cast<float>(
                          static_cast<long long>(k) - 1) * 0.5f) + 0.5);
  Bytes out(src.size());
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const long long y0 = std::max<long long>(1, y - r), y1 = std::min<long long>(h - 1, y + r);
      const long long x0 = std::max<long long>(1, x - r), x1 = std::min<long long>(w - 1, x + r);
      long long s = 0, area = 0;
      for (long long j = y0; j <= y1; ++j) {
        for (long long i = x0; i <= x1; ++i, ++area) s += src[static_cast<size_t>(j * w + i)];
      }
      out[static_cast<size_t>(y) * w + x] = erode ? s == area : s > 0;
    }
  }
  return out;
}

void Integral(FuzzedDataProvider& p) {
  const int w = bvfuzz::Dim(p, 0, 70), h = bvfuzz::Dim(p, 0, 70);
  const int k = bvfuzz::AnyInt(p);
  const bool erode = p.ConsumeBool();
  const bool fail = p.ConsumeIntegralInRange<int>(0, 15) == 0;
  Bytes src = bvfuzz::Buffer<uint8_t>(p, static_cast<size_t>(w) * h);
  for (auto& b : src) b &= 1;
  const Bytes before(src.size(), 7);
  bvfuzz::HeapFail(fail ? -1 : 0);
  const auto r = bvfuzz::Twins(before, "ImErode/ImDilate targets differ", [&](uint8_t* o) {
    return (erode ? ImErode : ImDilate)(&bvfuzz::kHeap, src.data(), o, w, h, k);
  });
  bvfuzz::HeapFail(0);
  if (r.rc != 0) {
    bvfuzz::CheckSame(r.out, before, "refused ImErode/ImDilate wrote its output");
  } else if (w * h <= 900) {
    bvfuzz::CheckSame(r.out, BoxReference(src, w, h, k, erode), "ImErode/ImDilate box count");
  }
  std::vector<unsigned int> integral(src.size());
  ImIntegral(src.data(), integral.data(), w, h);
}

void Counter(FuzzedDataProvider& p) {
  const int w = bvfuzz::Dim(p, 0, 90), h = bvfuzz::Dim(p, 0, 90);
  const int kw = bvfuzz::AnyInt(p), kh = bvfuzz::AnyInt(p);
  const uint8_t v = p.ConsumeIntegral<uint8_t>();
  const int op = p.ConsumeIntegralInRange<int>(0, 2);
  const Bytes src = bvfuzz::Buffer<uint8_t>(p, static_cast<size_t>(w) * h);
  const auto r = bvfuzz::Twins(src, "counter engine targets differ", [&](uint8_t* o) {
    if (op == 0) return Erosion_Dilation_Function_opt(o, w, h, kw, kh, v);
    Bytes in = src;
    const int rc = (op == 1 ? ImOpen : ImClose)(&bvfuzz::kHeap, in.data(), o, w, h, kw);
    bvfuzz::CheckSame(in, src, "ImOpen/ImClose wrote their source");
    return rc;
  });
  if (op == 0 && r.rc != 0) bvfuzz::CheckSame(r.out, src, "refused counter pass wrote its image");
}

void Fixed(FuzzedDataProvider& p) {
  const int w = bvfuzz::Dim(p, 0, 80), h = bvfuzz::Dim(p, 0, 40);
  // Strides from the width up to far above it; with one or two rows any int at all.
  int stride = w + bvfuzz::Dim(p, 0, 3000);
  if (h <= 2 && p.ConsumeBool()) stride = std::max(w, bvfuzz::AnyInt(p));
  if (Extent(w, h, stride) > (size_t{1} << 22)) return;
  const int op = p.ConsumeIntegralInRange<int>(0, 5);
  const int iterations = p.ConsumeBool() ? p.ConsumeIntegralInRange<int>(-2, 4)
                                         : std::numeric_limits<int>::min();
  const Bytes image = bvfuzz::Buffer<uint8_t>(p, Extent(w, h, stride));
  const auto [out, scratch] = bvfuzz::TwinSet("fixed-kernel targets differ", [&](Bytes& o, Bytes& sc) {
    uint8_t* a = o.data();
    uint8_t* s = sc.data();
    switch (op) {
      case 0: ErodeWith3x3Cross(a, s, w, h, stride, iterations); break;
      case 1: DilateWith3x3Cross(a, s, w, h, stride, iterations); break;
      case 2: ErodeWith3x3Rect(a, s, w, h, stride, iterations); break;
      case 3: DilateWith3x3Rect(a, s, w, h, stride, iterations); break;
      case 4: ErodeWith5x5Rect(a, s, w, h, stride); break;
      default: DilateWith5x5Rect(a, s, w, h, stride); break;
    }
  }, image, Bytes(image.size(), 0x5A));
  bvfuzz::CheckPadding(out, image, w, h, stride, "fixed kernel wrote row padding");
}

void Connected(FuzzedDataProvider& p) {
  const int w = bvfuzz::Dim(p, 0, 50), h = bvfuzz::Dim(p, 0, 50);
  const uint8_t value = p.ConsumeIntegralInRange<uint8_t>(0, 2);
  Bytes src = bvfuzz::Buffer<uint8_t>(p, static_cast<size_t>(w) * h);
  for (auto& b : src) b %= 3;
  const size_t n = static_cast<size_t>(w) * h;
  std::vector<int> labels(n, -5), table(n + 2, -5);
  int count = -5;
  (p.ConsumeBool() ? connectTwoPass : connectTwoPass_8)(src.data(), labels.data(), w, h, &count,
                                                         table.data(), value);
  bvfuzz::Check(count >= 2 && static_cast<size_t>(count) <= n + 2, "label count out of range");
  for (size_t i = 0; i < n; ++i) {
    bvfuzz::Check((labels[i] == 0) == (src[i] != value), "label of a pixel");
    bvfuzz::Check(labels[i] < count && table[static_cast<size_t>(labels[i])] == labels[i],
                  "a label is not its own root");
  }
}

void Manhattan(FuzzedDataProvider& p) {
  const int w = bvfuzz::Dim(p, 0, 140), h = bvfuzz::Dim(p, 0, 140);
  const int op = p.ConsumeIntegralInRange<int>(0, 5);
  const int n = bvfuzz::AnyInt(p);
  Bytes image = bvfuzz::Buffer<uint8_t>(p, static_cast<size_t>(w) * h);
  if (p.ConsumeBool()) {
    for (auto& b : image) b = b & 1 ? 255 : 0;
  }
  const auto n8 = static_cast<uint8_t>(n);
  bvfuzz::Twins(image, "city-block targets differ", [&](uint8_t* a) {
    switch (op) {
      case 0: bivista_manhattan(a, w, h); break;
      case 1: Dilate_quick_timesN(a, w, h, n); break;
      case 2: bvfuzz::Check(Erode_quick_timesN(a, w, h, n8) == a, "Erode_quick_timesN result"); break;
      case 3: bvfuzz::Check(manhattan(a, w, h, n8) == a, "manhattan result"); break;
      case 4: bvfuzz::Check(dilate_manh(a, w, h, n8) == a, "dilate_manh result"); break;
      default: bvfuzz::Check(erode_manh(a, w, h, n8) == a, "erode_manh result"); break;
    }
  });
}

void Legacy(FuzzedDataProvider& p) {
  const int w = bvfuzz::Dim(p, 0, 24), h = bvfuzz::Dim(p, 0, 24);
  const int rx = bvfuzz::AnyInt(p), ry = bvfuzz::AnyInt(p);
  const int op = p.ConsumeIntegralInRange<int>(0, 4);
  const int stride = w + bvfuzz::Dim(p, 0, 40);
  const uint8_t v = p.ConsumeIntegral<uint8_t>();
  const size_t plane = static_cast<size_t>(w) * h;
  Bytes image = bvfuzz::Buffer<uint8_t>(p, op == 2 || op == 3 ? Extent(w, h, stride) : plane);
  const Bytes before = image;
  Bytes copy(plane, 3);
  switch (op) {
    case 0: Dilation_Function(image.data(), w, h, rx, ry, copy.data()); break;
    case 1: Erosion_Function(image.data(), w, h, rx, ry, copy.data()); break;
    case 2: bvfuzz::Check(dilation(image.data(), w, h, stride, rx, ry) == 0, "dilation failed"); break;
    case 3: bvfuzz::Check(erosion(image.data(), w, h, stride, rx, ry) == 0, "erosion failed"); break;
    default: {
      Bytes dst(plane, 9);
      Erosion_Dilation_Function(image.data(), w, h, rx, ry, v, dst.data());
      break;
    }
  }
  if (op < 2 && plane > 0) bvfuzz::CheckSame(copy, before, "copy buffer does not hold the input");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return bvfuzz::RunFamily(data, size, {Integral, Counter, Fixed, Connected, Manhattan, Legacy});
}
