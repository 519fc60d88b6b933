// YUV and RGB conversions against direct formulations of the layouts and formulas.
#include "bivista/imageformat.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "bivista/xelma_log.h"
#include "imageformat/yuv_kernels.h"
#include "support/platform_capture.h"

namespace {

std::vector<uint8_t> Bytes(size_t n, std::mt19937& rng) {
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

struct Size {
  int w, h, stride;
};
const Size kSizes[] = {{2, 2, 2}, {6, 4, 9}, {34, 6, 34}, {66, 10, 80}, {130, 2, 131}, {2, 8, 5}};

TEST(Yuv, Nv12ToRgbFollowsThePixelDefinitionsWithStrides) {
  std::mt19937 rng(31);
  for (const Size& s : kSizes) {
    const auto nv12 = Bytes(static_cast<size_t>(s.stride) * s.h * 3 / 2, rng);
    std::vector<uint8_t> fl(3 * s.w * s.h + 3, 0xEE), fx(3 * s.w * s.h + 3, 0xEE);
    ConvertNV122RGB24_wideRange(nv12.data(), fl.data(), s.w, s.h, s.stride);
    ConvertNV122RGB24_wideRange_NEON(nv12.data(), fx.data(), s.w, s.h, s.stride);
    for (int y = 0; y < s.h; ++y) {
      for (int x = 0; x < s.w; ++x) {
        const uint8_t* c = &nv12[s.stride * s.h + (y / 2) * s.stride + (x & ~1)];
        uint8_t want[3];
        bivista::scalar::PixelToRgbFloat(nv12[y * s.stride + x], c[0], c[1], want);
        for (int k = 0; k < 3; ++k) ASSERT_EQ(fl[3 * (y * s.w + x) + k], want[k]);
        bivista::scalar::PixelToRgbFixed(nv12[y * s.stride + x], c[0], c[1], want);
        for (int k = 0; k < 3; ++k) ASSERT_EQ(fx[3 * (y * s.w + x) + k], want[k]);
      }
    }
    EXPECT_EQ(fl[3 * s.w * s.h], 0xEE);
    EXPECT_EQ(fx[3 * s.w * s.h], 0xEE);
  }
}

TEST(Yuv, PixelFormulasAtKnownPoints) {
  uint8_t rgb[3];
  bivista::scalar::PixelToRgbFloat(255, 128, 128, rgb);
  EXPECT_EQ(rgb[0], 255);
  EXPECT_EQ(rgb[1], 255);
  EXPECT_EQ(rgb[2], 255);
  bivista::scalar::PixelToRgbFloat(0, 255, 128, rgb);  // B = 225.17, G negative
  EXPECT_EQ(rgb[0], 0);
  EXPECT_EQ(rgb[1], 0);
  EXPECT_EQ(rgb[2], 225);
  bivista::scalar::PixelToRgbFloat(128, 128, 0, rgb);  // the V weight of G is 0.344
  EXPECT_EQ(rgb[0], 0);
  EXPECT_EQ(rgb[1], 172);
  EXPECT_EQ(rgb[2], 128);
  bivista::scalar::PixelToRgbFloat(128, 0, 128, rgb);  // 0.714 goes with U
  EXPECT_EQ(rgb[1], 219);
  bivista::scalar::PixelToRgbFixed(128, 128, 0, rgb);
  EXPECT_EQ(rgb[1], 172);
  bivista::scalar::PixelToRgbFixed(128, 0, 128, rgb);
  EXPECT_EQ(rgb[1], 219);
  // One 2x2 block through the public entries.
  const uint8_t nv12[6] = {0, 255, 128, 128, 255, 128};
  uint8_t out[12];
  ConvertNV122RGB24_wideRange(nv12, out, 2, 2, 2);
  EXPECT_EQ(out[0], 0);
  EXPECT_EQ(out[2], 225);
  EXPECT_EQ(out[3], 255);
}

TEST(Yuv, Nv21AndI420RoundTripWithStrides) {
  std::mt19937 rng(32);
  for (const Size& s : kSizes) {
    const auto nv21 = Bytes(static_cast<size_t>(s.stride) * s.h * 3 / 2, rng);
    const size_t n420 = static_cast<size_t>(s.w) * s.h * 3 / 2;
    std::vector<uint8_t> i420(n420 + 1, 0xEE);
    ConvertNV21ToI420(nv21.data(), i420.data(), s.w, s.h, s.stride);
    const int cw = s.w / 2, ch = s.h / 2;
    for (int y = 0; y < s.h; ++y)
      for (int x = 0; x < s.w; ++x) ASSERT_EQ(i420[y * s.w + x], nv21[y * s.stride + x]);
    for (int r = 0; r < ch; ++r) {
      for (int k = 0; k < cw; ++k) {
        const uint8_t* pair = &nv21[s.stride * s.h + r * s.stride + 2 * k];
        ASSERT_EQ(i420[s.w * s.h + r * cw + k], pair[1]);            // U
        ASSERT_EQ(i420[s.w * s.h + cw * ch + r * cw + k], pair[0]);  // V
      }
    }
    EXPECT_EQ(i420[n420], 0xEE);
    // Back again: the row padding of the destination is never written.
    std::vector<uint8_t> back(static_cast<size_t>(s.stride) * s.h * 3 / 2, 0xEE);
    ConvertI420ToNV21(i420.data(), back.data(), s.w, s.h, s.stride);
    for (size_t i = 0; i < back.size(); ++i) {
      const size_t row = i / s.stride, col = i % s.stride;
      const bool inside = col < static_cast<size_t>(s.w) && (row < static_cast<size_t>(s.h) ||
                                                             row < static_cast<size_t>(s.h + ch));
      ASSERT_EQ(back[i], inside ? nv21[i] : 0xEE) << i;
    }
  }
  // A single row copies only the luma.
  const uint8_t one[4] = {1, 2, 3, 4};
  uint8_t out[6] = {9, 9, 9, 9, 9, 9};
  ConvertNV21ToI420(one, out, 4, 1, 4);
  EXPECT_EQ(out[3], 4);
  EXPECT_EQ(out[4], 9);
}

TEST(Yuv, Nv21ToYuv444WritesTriples) {
  std::mt19937 rng(33);
  for (const Size& s : kSizes) {
    const auto nv21 = Bytes(static_cast<size_t>(s.w) * s.h * 3 / 2, rng);
    std::vector<uint8_t> out(3 * s.w * s.h + 1, 0xEE);
    ASSERT_EQ(ConvertNV21ToYuv(nv21.data(), out.data(), s.w, s.h), 0);
    for (int y = 0; y < s.h; ++y) {
      for (int x = 0; x < s.w; ++x) {
        const uint8_t* t = &out[3 * (y * s.w + x)];
        const uint8_t* pair = &nv21[s.w * s.h + (y / 2) * s.w + (x & ~1)];
        ASSERT_EQ(t[0], nv21[y * s.w + x]);
        ASSERT_EQ(t[1], pair[1]);
        ASSERT_EQ(t[2], pair[0]);
      }
    }
    EXPECT_EQ(out[3 * s.w * s.h], 0xEE);
  }
}

TEST(Yuv, Nv21ToYuv444RejectsBadArgumentsWithItsMessages) {
  bvtest::LogCapture log;
  uint8_t src[24] = {}, dst[48];
  for (uint8_t& b : dst) b = 0x5A;
  const char* f = "ConvertNV21ToYuv";
  EXPECT_EQ(ConvertNV21ToYuv(nullptr, dst, 4, 4), -1);
  EXPECT_EQ(bvtest::CountMsg(log, XELMA_LOG_ERROR, "ZR481_FMAT", f, "VOID Poiter of NV21 Image!", 335), 1);
  EXPECT_EQ(ConvertNV21ToYuv(src, nullptr, 4, 4), -1);
  EXPECT_EQ(bvtest::CountMsg(log, XELMA_LOG_ERROR, "ZR481_FMAT", f, "VOID Poiter of YUV Image!", 341), 1);
  const int bad[][2] = {{3, 4}, {4, 3}, {0, 4}, {4, 0}, {-2, 4}, {4, -2}};
  for (const auto& b : bad) {
    log.Clear();
    EXPECT_EQ(ConvertNV21ToYuv(src, dst, b[0], b[1]), -1);
    const std::string text = "Wrong Image Widht(" + std::to_string(b[0]) + ") / Height(" +
                             std::to_string(b[1]) + ")";
    EXPECT_EQ(bvtest::CountMsg(log, XELMA_LOG_ERROR, "ZR481_FMAT", f, text, 347), 1) << text;
    EXPECT_EQ(log.Lines().size(), 1u);
  }
  for (uint8_t b : dst) ASSERT_EQ(b, 0x5A);
}

TEST(Yuv, CopyNv12ToPlanarYuv444WithOffsetsAndStride) {
  std::mt19937 rng(34);
  const struct {
    int w, h, d, x0, y0;
  } cases[] = {{8, 4, 8, 0, 0}, {6, 4, 10, 2, 2}, {40, 6, 48, 4, 1}, {8, 5, 8, 0, 0}, {34, 3, 40, 2, 0}};
  for (const auto& c : cases) {
    // Reads run past the luma plane by y0 rows (kept as it stands): give the source room.
    const size_t srcSize = static_cast<size_t>(c.w) * (c.h + c.y0) * 2 + 64;
    const auto nv12 = Bytes(srcSize, rng);
    const int hEven = (c.h + 1) & ~1;
    const size_t plane = static_cast<size_t>(c.w) * c.h;
    const size_t dstSize = 2 * plane + static_cast<size_t>(hEven) * c.d + 8;
    std::vector<uint8_t> dst(dstSize, 0xEE);
    EXPECT_EQ(copyNV12ToYuv444(nv12.data(), c.w, c.h, c.d, c.x0, c.y0, dst.data()), dst.data());
    std::vector<uint8_t> want(dstSize, 0xEE);
    for (int r = 0; r < c.h; ++r)
      for (int x = 0; x < c.w; ++x) want[r * c.d + x] = nv12[(c.y0 + r) * c.w + c.x0 + x];
    for (int i = 0; 2 * i < hEven; ++i) {
      for (int j = 0; 2 * j < c.w; ++j) {
        const uint8_t* uv = &nv12[plane + (c.y0 / 2 + i) * c.w + c.x0 + 2 * j];
        for (int dy = 0; dy < 2; ++dy) {
          for (int dx = 0; dx < 2; ++dx) {
            want[plane + (2 * i + dy) * c.d + 2 * j + dx] = uv[0];
            want[2 * plane + (2 * i + dy) * c.d + 2 * j + dx] = uv[1];
          }
        }
      }
    }
    EXPECT_EQ(dst, want) << c.w << "x" << c.h;
  }
  uint8_t keep[4] = {1, 2, 3, 4};
  const uint8_t src[16] = {};
  copyNV12ToYuv444(src, 2, 0, 2, 0, 0, keep);
  EXPECT_EQ(keep[0], 1);
}

}  // namespace
