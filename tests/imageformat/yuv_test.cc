// YUV and RGB conversions: the pixel formulas at known points, the messages, the NV12 copy
// against its layout, and the row kernels against the scalar rows on every vector target (whole
// images with strides are in the golden digests).
#include "bivista/imageformat.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "bivista/xelma_log.h"
#include "imageformat/yuv_kernels.h"
#include "support/hwy_targets.h"
#include "support/platform_capture.h"

namespace {

using Buf = std::vector<uint8_t>;

Buf Bytes(size_t n, std::mt19937& rng) {
  Buf v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

struct Size {
  int w, h, stride;
};

TEST(Yuv, PixelFormulasAtKnownPoints) {
  // {y, u, v, fixed, r, g, b}; -1 is not checked.
  const int cases[][7] = {{255, 128, 128, 0, 255, 255, 255}, {0, 255, 128, 0, 0, 0, 225},  // B = 225.17, G < 0
                          {128, 128, 0, 0, 0, 172, 128},  // the V weight of G is 0.344
                          {128, 0, 128, 0, -1, 219, -1},  // 0.714 goes with U
                          {128, 128, 0, 1, -1, 172, -1},   {128, 0, 128, 1, -1, 219, -1}};
  for (const auto& c : cases) {
    uint8_t rgb[3];
    (c[3] ? bivista::scalar::PixelToRgbFixed : bivista::scalar::PixelToRgbFloat)(c[0], c[1], c[2], rgb);
    for (int k = 0; k < 3; ++k) EXPECT_TRUE(c[4 + k] < 0 || rgb[k] == c[4 + k]) << c[0] << " " << c[1] << " " << c[2] << " " << k;
  }
}

// A single row of NV21 copies only the luma.
TEST(Yuv, SingleRowNv21ToI420CopiesOnlyTheLuma) {
  const uint8_t one[4] = {1, 2, 3, 4};
  uint8_t out[6] = {9, 9, 9, 9, 9, 9};
  ConvertNV21ToI420(one, out, 4, 1, 4);
  EXPECT_TRUE(out[3] == 4 && out[4] == 9);
}

TEST(Yuv, Nv21ToYuv444RejectsBadArgumentsWithItsMessages) {
  bvtest::LogCapture log;
  uint8_t src[24] = {};
  Buf dst(48, 0x5A);
  const struct {
    const uint8_t* src;
    uint8_t* dst;
    int w, h, line;
    const char* text;
  } cases[] = {{nullptr, dst.data(), 4, 4, 335, "VOID Poiter of NV21 Image!"}, {src, nullptr, 4, 4, 341, "VOID Poiter of YUV Image!"},
               {src, dst.data(), 3, 4, 347, nullptr}, {src, dst.data(), 4, 3, 347, nullptr}, {src, dst.data(), 0, 4, 347, nullptr},
               {src, dst.data(), 4, 0, 347, nullptr}, {src, dst.data(), -2, 4, 347, nullptr}, {src, dst.data(), 4, -2, 347, nullptr}};
  for (const auto& c : cases) {
    log.Clear();
    EXPECT_EQ(ConvertNV21ToYuv(c.src, c.dst, c.w, c.h), -1);
    const std::string text = c.text ? c.text : "Wrong Image Widht(" + std::to_string(c.w) + ") / Height(" + std::to_string(c.h) + ")";
    EXPECT_EQ(bvtest::CountMsg(log, XELMA_LOG_ERROR, "ZR481_FMAT", "ConvertNV21ToYuv", text, c.line), 1) << text;
    EXPECT_EQ(log.Lines().size(), 1u);
  }
  EXPECT_EQ(dst, Buf(48, 0x5A));
}

TEST(Yuv, CopyNv12ToPlanarYuv444WithOffsetsAndStride) {
  std::mt19937 rng(34);
  const int cases[][5] = {{8, 4, 8, 0, 0}, {6, 4, 10, 2, 2}, {40, 6, 48, 4, 1}, {8, 5, 8, 0, 0}, {34, 3, 40, 2, 0}};
  for (const auto& c : cases) {
    const int w = c[0], h = c[1], d = c[2], x0 = c[3], y0 = c[4], hEven = (h + 1) & ~1, plane = w * h;
    // Reads run past the luma plane by y0 rows (kept as it stands): give the source room.
    const auto nv12 = Bytes(static_cast<size_t>(w) * (h + y0) * 2 + 64, rng);
    Buf dst(2 * plane + hEven * d + 8, 0xEE), want = dst;
    EXPECT_EQ(copyNV12ToYuv444(nv12.data(), w, h, d, x0, y0, dst.data()), dst.data());
    // The planes overlap when d > w: the chroma written after the luma wins.
    for (int r = 0; r < h; ++r)
      for (int x = 0; x < w; ++x) want[r * d + x] = nv12[(y0 + r) * w + x0 + x];
    for (int r = 0; r < hEven; ++r)
      for (int x = 0; x < w; ++x) {
        const uint8_t* uv = &nv12[plane + (y0 / 2 + r / 2) * w + x0 + (x & ~1)];
        want[plane + r * d + x] = uv[0];
        want[2 * plane + r * d + x] = uv[1];
      }
    EXPECT_EQ(dst, want) << w << "x" << h;
  }
  uint8_t keep[4] = {1, 2, 3, 4}, none[16] = {};
  copyNV12ToYuv444(none, 2, 0, 2, 0, 0, keep);
  EXPECT_EQ(keep[0], 1);
}

// Odd widths: an NV12 row without a byte after its width gives the last pixel V = 128 instead of
// reading past it. Rows of copyNV12ToYuv444 that meet (stride below a row's pairs, odd widths)
// are written in the byte-wise order of the definition. Buffers are exact.
TEST(Yuv, OddWidthsAndMeetingRowsStayInsideAndFollowTheByteWiseOrder) {
  std::mt19937 rng(35);
  for (const int stride : {5, 6}) {
    const Buf nv12 = Bytes(stride * 2 + stride, rng);
    Buf rgb(5 * 2 * 3), rgbFixed(rgb.size());
    ConvertNV122RGB24_wideRange(nv12.data(), rgb.data(), 5, 2, stride);
    ConvertNV122RGB24_wideRange_NEON(nv12.data(), rgbFixed.data(), 5, 2, stride);
    const uint8_t* uv = &nv12[stride * 2];
    const int v = stride > 5 ? uv[5] : 128;
    for (int y = 0; y < 2; ++y) {
      uint8_t want[3], wantFixed[3];
      bivista::scalar::PixelToRgbFloat(nv12[y * stride + 4], uv[4], v, want);
      bivista::scalar::PixelToRgbFixed(nv12[y * stride + 4], uv[4], v, wantFixed);
      EXPECT_EQ(Buf(rgb.begin() + y * 15 + 12, rgb.begin() + y * 15 + 15), Buf(want, want + 3));
      EXPECT_EQ(Buf(rgbFixed.begin() + y * 15 + 12, rgbFixed.begin() + y * 15 + 15),
                Buf(wantFixed, wantFixed + 3));
    }
  }
  for (const auto& c : {Size{4, 2, 1}, Size{3, 2, 3}, Size{5, 3, 2}}) {
    const int w = c.w, h = c.h, d = c.stride, plane = w * h, pairs = (w + 1) / 2, hEven = (h + 1) & ~1;
    const Buf nv12 = Bytes(plane + (hEven / 2 - 1) * w + 2 * pairs, rng);
    Buf dst(2 * plane + (hEven - 1) * d + 2 * pairs, 0xEE), want = dst;
    copyNV12ToYuv444(nv12.data(), w, h, d, 0, 0, dst.data());
    for (int r = 0; r < h; ++r)
      for (int x = 0; x < w; ++x) want[r * d + x] = nv12[r * w + x];
    for (int i = 0; 2 * i < h; ++i)
      for (int j = 0; j < pairs; ++j)
        for (int k = 1; k <= 2; ++k) {
          uint8_t* q = &want[k * plane + 2 * i * d + 2 * j];
          q[0] = q[1] = q[d] = q[d + 1] = nv12[plane + i * w + 2 * j + k - 1];
        }
    EXPECT_EQ(dst, want) << w << "x" << h << " stride " << d;
  }
}

TEST(YuvKernels, RowsMatchScalarOnEveryTarget) {
  std::mt19937 rng(21);
  namespace sc = bivista::scalar;
  // Both variants write into guarded buffers o[0..5] of n pixels; every byte must agree.
  auto same = [](int n, auto call) {
    Buf v[6], s[6];
    for (int k = 0; k < 6; ++k) v[k] = s[k] = Buf(3 * n + 1, 0xEE);
    call(v, false);
    call(s, true);
    for (int k = 0; k < 6; ++k) ASSERT_EQ(v[k], s[k]) << n << " output " << k;
  };
  // Whole NV12 images of two rows and of one row (the chroma plane right after the luma).
  auto nv12 = [&](const Buf& a, const Buf& b, const Buf& uv, int n) {
    Buf two(a.begin(), a.begin() + n), one = two;
    two.insert(two.end(), b.begin(), b.begin() + n);
    two.insert(two.end(), uv.begin(), uv.end());
    one.insert(one.end(), uv.begin(), uv.end());
    for (int fixed = 0; fixed < 2; ++fixed) {
      for (int height = 1; height <= 2; ++height) {
        Buf v(6 * n + 1, 0xEE), w = v;
        const uint8_t* img = height == 2 ? two.data() : one.data();
        bivista::Nv12ToRgb24Plane(img, v.data(), n, height, n, fixed);
        sc::Nv12ToRgb24Plane(img, w.data(), n, height, n, fixed);
        ASSERT_EQ(v, w) << n << " fixed " << fixed << " height " << height;
      }
    }
  };
  // Every chroma pair once, 256 a row, with luma values that reach both clamps: the shortcut the
  // vector code takes for the floating-point variant must agree with the double arithmetic.
  Buf uv(512), y0(512), y1(512);
  for (int x = 0; x < 512; ++x) {
    y0[x] = static_cast<uint8_t>(x < 8 ? (x & 1 ? 255 : 0) : rng());
    y1[x] = static_cast<uint8_t>(x * 37 + 11);
  }
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int n : {1, 2, 3, 15, 16, 17, 31, 32, 33, 63, 64, 65, 100, 129, 257}) {
      const auto pairs = Bytes(2 * n, rng), a = Bytes(n, rng), b = Bytes(n, rng), c = Bytes((n + 1) & ~1, rng);
      same(n, [&](Buf* o, bool scalar) {
        (scalar ? sc::SplitPairs : bivista::SplitPairs)(pairs.data(), o[0].data(), o[1].data(), n);
        (scalar ? sc::MergePairs : bivista::MergePairs)(a.data(), b.data(), o[2].data(), n);
        (scalar ? sc::UpsamplePairs : bivista::UpsamplePairs)(pairs.data(), o[3].data(), o[4].data(), n);
        (scalar ? sc::Nv21RowToYuv444 : bivista::Nv21RowToYuv444)(a.data(), c.data(), o[5].data(), n);
      });
      nv12(a, b, c, n);
      // The plane entries over three chroma rows (stride n + 5) and a 2-row YUV444 image.
      const auto plane = Bytes(3 * (n + 5), rng), y2 = Bytes(2 * n, rng);
      same(3 * n, [&](Buf* o, bool scalar) {
        (scalar ? sc::SplitPairRows : bivista::SplitPairRows)(plane.data(), o[0].data(), o[1].data(), n / 2, 3, n + 5);
        (scalar ? sc::MergePairRows : bivista::MergePairRows)(plane.data(), plane.data() + 1, o[2].data(), n / 2, 3, n + 5);
        if (n % 2 == 0) (scalar ? sc::Nv21ToYuv444Plane : bivista::Nv21ToYuv444Plane)(y2.data(), c.data(), o[3].data(), n, 2);
        // Two chroma rows into four rows n / 2 + 1 apart.
        (scalar ? sc::UpsamplePairRows : bivista::UpsamplePairRows)(plane.data(), o[4].data(), o[5].data(), n / 4, 2, n + 5, n / 2 + 1);
      });
    }
    for (int u = 0; u < 256; ++u) {
      for (int k = 0; k < 256; ++k) uv[2 * k] = static_cast<uint8_t>(u), uv[2 * k + 1] = static_cast<uint8_t>(k);
      nv12(y0, y1, uv, 512);
    }
  });
}

}  // namespace
