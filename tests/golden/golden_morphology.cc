// Golden cases of the morphology: every engine on odd sizes, sparse, dense and blobby masks.
#include "bivista/morphology.h"
#include "golden/golden.h"

namespace {

using bvgolden::Rng;
using bvgolden::Sink;

struct Shape {
  int w, h, percent;
};
const Shape kShapes[] = {{1, 1, 50}, {7, 5, 30}, {33, 17, 8}, {61, 43, 55}, {130, 9, 85}};

// Mask of the given on value with blobs and speckle.
std::vector<uint8_t> Mask(Rng& rng, const Shape& s, uint8_t on) {
  std::vector<uint8_t> m = rng.Mask(size_t(s.w) * s.h, s.percent, on);
  for (int y = s.h / 4; y < s.h / 2; ++y)
    for (int x = s.w / 3; x < s.w / 2; ++x) m[size_t(y) * s.w + x] = on;
  return m;
}

std::string Name(const char* what, const Shape& s) {
  return std::string(what) + "_" + bvgolden::Dims(s.w, s.h) + "_" + std::to_string(s.percent);
}

}  // namespace

BVGOLDEN_CASES(morphology) {
  for (const Shape& sh : kShapes) {
    cases.Seeded(Name("integral", sh), [=](Sink& s, Rng& rng) {
      const std::vector<uint8_t> src = Mask(rng, sh, 1);
      std::vector<unsigned> integral(src.size(), 7);
      ImIntegral(src.data(), integral.data(), sh.w, sh.h);
      s.Values(integral);
      for (int k : {-3, 0, 1, 3, 4, 7, 25}) {
        for (auto f : {ImErode, ImDilate, ImOpen, ImClose}) {
          bvgolden::Into(s, src.size(), uint8_t(0xEE),
                         [&](uint8_t* d) { s.Value(f(&bvgolden::kHeap, src.data(), d, sh.w, sh.h, k)); });
        }
      }
      bvgolden::Into(s, src.size(), uint8_t(0xEE),
                     [&](uint8_t* d) { s.Value(ImErode(nullptr, src.data(), d, sh.w, sh.h, 3)); });
      for (int rx : {-1, 0, 1, 2, 6, 300}) {
        for (int ry : {0, 1, 3}) {
          for (uint8_t v : {0, 1}) {
            std::vector<uint8_t> img = src;
            s.Value(Erosion_Dilation_Function_opt(img.data(), sh.w, sh.h, rx, ry, v));
            s.Values(img);
          }
        }
      }
    });
  }
  // Fixed kernels with padded strides; the padding must stay as it was.
  for (const Shape& sh : kShapes) {
    cases.Seeded(Name("fixed", sh), [=](Sink& s, Rng& rng) {
      const int stride = sh.w + 3;
      Shape padded{stride, sh.h, sh.percent};
      for (uint8_t on : {1, 255}) {
        const std::vector<uint8_t> src = Mask(rng, padded, on);
        using Iter = void (*)(unsigned char*, unsigned char*, int, int, int, int);
        using Once = void (*)(unsigned char*, unsigned char*, int, int, int);
        for (Iter f : {ErodeWith3x3Cross, DilateWith3x3Cross, ErodeWith3x3Rect, DilateWith3x3Rect}) {
          for (int it : {0, 1, 3}) {
            std::vector<uint8_t> img = src, scratch(src.size(), 0x3C);
            f(img.data(), scratch.data(), sh.w, sh.h, stride, it);
            s.Values(img);
          }
        }
        for (Once f : {ErodeWith5x5Rect, DilateWith5x5Rect}) {
          std::vector<uint8_t> img = src, scratch(src.size(), 0x3C);
          f(img.data(), scratch.data(), sh.w, sh.h, stride);
          s.Values(img);
        }
      }
    });
  }
  for (const Shape& sh : kShapes) {
    cases.Seeded(Name("components", sh), [=](Sink& s, Rng& rng) {
      const std::vector<uint8_t> src = Mask(rng, sh, 200);
      for (uint8_t value : {0, 200}) {
        for (auto f : {connectTwoPass, connectTwoPass_8}) {
          std::vector<int> labels(src.size(), -5), table(src.size() + 2, -6);
          int count = -7;
          f(src.data(), labels.data(), sh.w, sh.h, &count, table.data(), value);
          s.Value(count);
          s.Values(labels);
          s.Values(table.data(), size_t(count > 0 ? count : 0));
        }
      }
    });
  }
  for (const Shape& sh : kShapes) {
    cases.Seeded(Name("manhattan", sh), [=](Sink& s, Rng& rng) {
      const std::vector<uint8_t> src = Mask(rng, sh, 255);
      std::vector<uint8_t> img = src;
      bivista_manhattan(img.data(), sh.w, sh.h);
      s.Values(img);
      for (int n : {0, 1, 2, 5}) {
        img = src;
        Dilate_quick_timesN(img.data(), sh.w, sh.h, n);
        s.Values(img);
        for (auto f : {Erode_quick_timesN, dilate_manh, erode_manh}) {
          img = src;
          s.Value(f(img.data(), sh.w, sh.h, uint8_t(n)) == img.data());
          s.Values(img);
        }
      }
      for (uint8_t v : {0, 255}) {
        img = src;
        s.Value(manhattan(img.data(), sh.w, sh.h, v) == img.data());
        s.Values(img);
      }
    });
  }
  for (const Shape& sh : kShapes) {
    cases.Seeded(Name("legacy", sh), [=](Sink& s, Rng& rng) {
      const std::vector<uint8_t> src = Mask(rng, sh, 255);
      for (int rx : {0, 1, 3}) {
        for (int ry : {0, 2}) {
          std::vector<uint8_t> img, copy(src.size(), 1);
          for (auto f : {Dilation_Function, Erosion_Function}) {
            img = src;
            f(img.data(), sh.w, sh.h, rx, ry, copy.data());
            s.Values(img);
          }
          for (auto f : {dilation, erosion}) {
            img = src;
            s.Value(f(img.data(), sh.w, sh.h, sh.w, rx, ry));
            s.Values(img);
          }
          for (uint8_t v : {0, 255}) {
            img = src;
            std::vector<uint8_t> dst(src.size(), 9);
            s.Value(Erosion_Dilation_Function(img.data(), sh.w, sh.h, rx, ry, v, dst.data()));
            s.Values(img);
            s.Values(dst);
          }
        }
      }
    });
  }
}
