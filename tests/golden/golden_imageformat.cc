// Golden cases of the resampling and the YUV/RGB conversions. Destinations carry a margin that
// is hashed too, so a write past the end changes the digest.
#include "bivista/imageformat.h"
#include "golden/golden.h"

namespace {

using bvgolden::Rng;
using bvgolden::Sink;

constexpr size_t kMargin = 16;

struct Resize {
  int sw, sh, dw, dh;
};
// Up, down, exact halves and doubles, the same size, a strong stretch; odd sizes throughout.
const Resize kResizes[] = {{37, 23, 53, 31}, {37, 23, 19, 11}, {38, 24, 19, 12},
                           {19, 12, 38, 24}, {33, 17, 33, 17}, {5, 3, 130, 7}};
// Even sizes for the chroma layouts.
const Resize kEvenResizes[] = {{38, 24, 54, 32}, {38, 24, 18, 10}, {20, 12, 40, 24}};

std::string Name(const char* what, const Resize& r) {
  return std::string(what) + "_" + bvgolden::Dims(r.sw, r.sh) + "_" + bvgolden::Dims(r.dw, r.dh);
}

// A destination of n elements and the margin.
template <typename T, typename F>
void Padded(Sink& s, size_t n, T fill, F call) {
  bvgolden::Into(s, n + kMargin, fill, call);
}

}  // namespace

BVGOLDEN_CASES(imageformat) {
  for (const Resize& r : kResizes) {
    cases.Seeded(Name("float", r), [=](Sink& s, Rng& rng) {
      const size_t n = size_t(r.dw) * r.dh;
      std::vector<float> src = rng.Floats(size_t(r.sw) * r.sh, -4.0f, 60.0f);
      for (size_t i = 0; i < src.size(); i += 7) src[i] = -1.0f;  // invalid samples
      const std::vector<uint8_t> mask = rng.Mask(src.size(), 60, 1);
      using Plain = float* (*)(const float*, float*, int, int, int, int);
      for (Plain f : {ResizeFloat, ResizeDepth, ResizeFloatImg_Bilinear,
                      ResizeFloatImg_Bilinear_Extend_Quarter}) {
        Padded(s, n, -7.0f, [&](float* d) {
          s.Value(f(src.data(), d, r.sw, r.sh, r.dw, r.dh) == src.data());
        });
      }
      // Reads 2 dstW x 2 dstH source samples whatever the source size.
      if (r.sw == 2 * r.dw && r.sh == 2 * r.dh) {
        Padded(s, n, -7.0f, [&](float* d) {
          ResizeFloatImg_Bilinear_Downsample_Quarter(src.data(), d, r.sw, r.sh, r.dw, r.dh);
        });
      }
      if (r.dw > 1 && r.dh > 1) {
        Padded(s, n, -7.0f, [&](float* d) {
          ResizeSpareDisparityNearest(src.data(), d, r.sw, r.sh, r.dw, r.dh, -1.0f);
        });
      }
      Padded(s, n, -7.0f, [&](float* d) {
        ResizeSpareDisparity(src.data(), d, r.sw, r.sh, r.dw, r.dh, 0.5f);
      });
      Padded(s, n, -7.0f, [&](float* d) {
        ResizeSparedataFloat(src.data(), mask.data(), d, r.sw, r.sh, r.dw, r.dh, 1.5f, -2.0f);
      });
      const std::vector<uint8_t> low = rng.Bytes<uint8_t>(src.size() * 3);
      const std::vector<uint8_t> full = rng.Bytes<uint8_t>(n * 3);
      // Its nearest and filtered samples read source (y / q, x / q), q = dstW / srcW: only sizes
      // whose every such sample lies inside the source.
      const int q = r.dw / r.sw;
      if (q == 0 || ((r.dw - 1) / q < r.sw && (r.dh - 1) / q < r.sh)) Padded(s, n, -7.0f, [&](float* d) {
        ResizeFloatImage_KeepBorder_full(src.data(), d, low.data(), full.data(), r.sw, r.sh, r.dw,
                                         r.dh);
      });
    });
  }
  cases.Add("bilateral_weights", [](Sink& s) { Padded(s, 511, -1.0f, getBilateralWeight); });

  for (const Resize& r : kResizes) {
    cases.Seeded(Name("uchar", r), [=](Sink& s, Rng& rng) {
      const size_t n = size_t(r.dw) * r.dh;
      const std::vector<uint8_t> src = rng.Bytes<uint8_t>(size_t(r.sw) * r.sh * 3);
      for (auto f : {ResizeUchar, ResizeUcharMask, ResizeUchar_upScale2x2}) {
        Padded(s, n, uint8_t(0xCD), [&](uint8_t* d) { f(src.data(), d, r.sw, r.sh, r.dw, r.dh); });
      }
      Padded(s, n * 3, uint8_t(0xCD), [&](uint8_t* d) {
        ResizeUcharChl(src.data() + 1, d + 1, r.sw, r.sh, r.dw, r.dh, 3);
      });
      Padded(s, n * 3, uint8_t(0xCD), [&](uint8_t* d) {
        ResizeUcharRGB(src.data(), d, r.sw, r.sh, r.dw, r.dh);
      });
      Padded(s, n, uint8_t(0xCD), [&](uint8_t* d) { ResizeUchar(src.data(), d, r.sw, r.sh, 0, r.dh); });
    });
  }
  for (const Resize& r : kEvenResizes) {
    cases.Seeded(Name("nv21", r), [=](Sink& s, Rng& rng) {
      const std::vector<uint8_t> src = rng.Bytes<uint8_t>(size_t(r.sw) * r.sh * 3 / 2);
      Padded(s, size_t(r.dw) * r.dh * 3 / 2, uint8_t(0xCD), [&](uint8_t* d) {
        ResizeUcharNV21(src.data(), d, r.sw, r.sh, r.dw, r.dh);
      });
    });
  }
  cases.Add("rand_float", [](Sink& s) {
    // Process-wide state: the sequence from the first call in the program, taken once.
    static const std::vector<float> seq = [] {
      std::vector<float> v(300);
      for (float& x : v) x = randFloat();
      return v;
    }();
    s.Values(seq);
  });

  struct Yuv {
    int w, h, stride;
  };
  for (const Yuv& y : {Yuv{2, 2, 2}, Yuv{38, 24, 38}, Yuv{37, 23, 41}, Yuv{130, 6, 136}}) {
    cases.Seeded("yuv_" + bvgolden::Dims(y.w, y.h) + "_s" + std::to_string(y.stride), [=](Sink& s, Rng& rng) {
      const size_t planes = size_t(y.stride) * (y.h + (y.h + 1) / 2);
      const std::vector<uint8_t> src = rng.Bytes<uint8_t>(planes + kMargin);
      const size_t n = size_t(y.w) * y.h;
      Padded(s, n * 3, uint8_t(0x11), [&](uint8_t* d) {
        ConvertNV122RGB24_wideRange(src.data(), d, y.w, y.h, y.stride);
      });
      Padded(s, n * 3, uint8_t(0x11), [&](uint8_t* d) {
        ConvertNV122RGB24_wideRange_NEON(src.data(), d, y.w, y.h, y.stride);
      });
      if (y.w % 2 || y.h % 2) return;  // the layouts below pair pixels
      Padded(s, planes, uint8_t(0x22), [&](uint8_t* d) {
        ConvertNV21ToI420(src.data(), d, y.w, y.h, y.stride);
      });
      Padded(s, planes, uint8_t(0x22), [&](uint8_t* d) {
        ConvertI420ToNV21(src.data(), d, y.w, y.h, y.stride);
      });
      Padded(s, n * 3, uint8_t(0x33), [&](uint8_t* d) {
        s.Value(ConvertNV21ToYuv(src.data(), d, y.w, y.h));
        s.Value(ConvertNV21ToYuv(src.data(), d, y.w - 1, y.h));
        s.Value(ConvertNV21ToYuv(nullptr, d, y.w, y.h));
      });
      // Odd sizes: the pair loop writes one byte and one row past them.
      const int w = y.w - 1, h = y.h / 2 - 1;
      for (int at : {0, 2}) {
        Padded(s, size_t(w) * (h + 1) * 3, uint8_t(0x44), [&](uint8_t* d) {
          s.Value(copyNV12ToYuv444(src.data(), w, h, w, at, at, d) == d);
        });
      }
    });
  }
}
