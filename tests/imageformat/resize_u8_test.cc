// 8-bit resizers against a direct formulation, their messages, and vector against scalar rows.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "bivista/imageformat.h"
#include "bivista/xelma_log.h"
#include "imageformat/resize_u8_kernels.h"
#include "support/alloc_table.h"
#include "support/hwy_targets.h"
#include "support/platform_capture.h"

namespace {

std::vector<uint8_t> Bytes(size_t n, std::mt19937& rng) {
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

// Channel k of an image with ch bytes a pixel, resized by the definition.
float Direct(const std::vector<uint8_t>& s, int srcW, int srcH, int dstW, int dstH, int ch, int k,
             int i, int j) {
  const float sx = static_cast<float>(srcW - 1) / dstW, sy = static_cast<float>(srcH - 1) / dstH;
  const float fx = i * sx, fy = j * sy;
  const int x0 = static_cast<int>(fx), y0 = static_cast<int>(fy);
  const float ax = fx - x0, ay = fy - y0;
  auto at = [&](int y, int x) { return static_cast<float>(s[(y * srcW + x) * ch + k]); };
  const float top = at(y0, x0) * (1 - ax) + at(y0, x0 + 1) * ax;
  const float bottom = at(y0 + 1, x0) * (1 - ax) + at(y0 + 1, x0 + 1) * ax;
  return top * (1 - ay) + bottom * ay;
}

const int kSizes[][4] = {{7, 5, 3, 3},   {9, 7, 20, 13},  {64, 48, 31, 17}, {33, 65, 65, 33},
                         {100, 3, 37, 2}, {5, 5, 129, 4}, {301, 11, 150, 6}, {2, 2, 1, 1}};

TEST(ResizeU8, PlaneAndMaskFollowTheDefinition) {
  std::mt19937 rng(51);
  for (const auto& z : kSizes) {
    const int sw = z[0], sh = z[1], dw = z[2], dh = z[3];
    const auto src = Bytes(sw * sh, rng);
    std::vector<uint8_t> out(dw * dh + 1, 0xEE), mask(dw * dh + 1, 0xEE);
    ResizeUchar(src.data(), out.data(), sw, sh, dw, dh);
    ResizeUcharMask(src.data(), mask.data(), sw, sh, dw, dh);
    for (int j = 0; j < dh; ++j) {
      for (int i = 0; i < dw; ++i) {
        const float v = Direct(src, sw, sh, dw, dh, 1, 0, i, j);
        ASSERT_EQ(out[j * dw + i], static_cast<uint8_t>(static_cast<int>(v))) << i << "," << j;
        ASSERT_EQ(mask[j * dw + i], v > 127.0f ? 255 : 0);
      }
    }
    EXPECT_EQ(out[dw * dh], 0xEE);
  }
  // 127.5 exceeds the threshold, 127 does not; the plain resize truncates.
  const uint8_t half[4] = {127, 128, 127, 128}, flat[4] = {127, 127, 127, 127};
  uint8_t m[2];
  ResizeUcharMask(half, m, 2, 2, 2, 1);  // column 1 samples x = 0.5
  EXPECT_EQ(m[1], 255);
  ResizeUcharMask(flat, m, 2, 2, 2, 1);
  EXPECT_EQ(m[1], 0);
  ResizeUchar(half, m, 2, 2, 2, 1);
  EXPECT_EQ(m[1], 127);
}

TEST(ResizeU8, NothingForEmptyDestinations) {
  bvtest::LogCapture log;
  const uint8_t src[16] = {1};
  uint8_t dst[16] = {9, 9, 9};
  ResizeUchar(src, dst, 4, 4, 0, 4);
  ResizeUchar(src, dst, 4, 4, 4, 0);
  ResizeUcharMask(src, dst, 4, 4, -1, 4);
  EXPECT_EQ(dst[0], 9);
  EXPECT_TRUE(log.Lines().empty());
}

TEST(ResizeU8, ChannelResizersTouchOnlyTheirChannel) {
  std::mt19937 rng(52);
  for (int ch = 1; ch <= 4; ++ch) {
    for (const auto& z : kSizes) {
      const int sw = z[0], sh = z[1], dw = z[2], dh = z[3];
      const auto src = Bytes(sw * sh * ch, rng);
      for (int k = 0; k < ch; ++k) {
        auto dst = Bytes(dw * dh * ch, rng);
        const auto before = dst;
        ResizeUcharChl(src.data() + k, dst.data() + k, sw, sh, dw, dh, ch);
        for (int p = 0; p < dw * dh; ++p) {
          for (int c = 0; c < ch; ++c) {
            const uint8_t want = c == k ? static_cast<uint8_t>(static_cast<int>(
                                              Direct(src, sw, sh, dw, dh, ch, k, p % dw, p / dw)))
                                        : before[p * ch + c];
            ASSERT_EQ(dst[p * ch + c], want) << ch << " " << k << " " << p;
          }
        }
      }
    }
  }
}

TEST(ResizeU8, Nv21AndRgbEqualTheirChannelPasses) {
  std::mt19937 rng(53);
  const int sizes[][4] = {{8, 6, 4, 4}, {40, 20, 22, 12}, {66, 34, 130, 66}, {4, 4, 2, 2}};
  for (const auto& z : sizes) {
    const int sw = z[0], sh = z[1], dw = z[2], dh = z[3];
    const auto nv21 = Bytes(sw * sh * 3 / 2, rng);
    std::vector<uint8_t> ours(dw * dh * 3 / 2, 1), want(dw * dh * 3 / 2, 1);
    ResizeUcharNV21(nv21.data(), ours.data(), sw, sh, dw, dh);
    ResizeUchar(nv21.data(), want.data(), sw, sh, dw, dh);
    for (int k = 0; k < 2; ++k)
      ResizeUcharChl(nv21.data() + sw * sh + k, want.data() + dw * dh + k, sw / 2, sh / 2, dw / 2,
                     dh / 2, 2);
    EXPECT_EQ(ours, want);

    const auto rgb = Bytes(sw * sh * 3, rng);
    std::vector<uint8_t> o3(dw * dh * 3, 1), w3(dw * dh * 3, 2);
    ResizeUcharRGB(rgb.data(), o3.data(), sw, sh, dw, dh);
    for (int k = 0; k < 3; ++k) ResizeUcharChl(rgb.data() + k, w3.data() + k, sw, sh, dw, dh, 3);
    EXPECT_EQ(o3, w3);
  }
}

TEST(ResizeU8, ChannelResizersReportAnEmptyWidthUnderOneName) {
  bvtest::LogCapture log;
  const uint8_t src[64] = {};
  uint8_t dst[64];
  for (uint8_t& b : dst) b = 0x33;
  ResizeUcharChl(src, dst, 4, 4, 0, 4, 2);
  EXPECT_EQ(bvtest::CountMsg(log, XELMA_LOG_WARN, "ZR481_ALGO", "ResizeUcharChl", "dstW <= 0", 758), 1);
  log.Clear();
  ResizeUcharRGB(src, dst, 4, 4, 0, 4);
  EXPECT_EQ(bvtest::CountMsg(log, XELMA_LOG_WARN, "ZR481_ALGO", "ResizeUcharChl", "dstW <= 0", 758), 3);
  log.Clear();
  ResizeUcharNV21(src, dst, 4, 4, 1, 4);  // luma resized, chroma width 0 for V and for U
  EXPECT_EQ(bvtest::CountMsg(log, XELMA_LOG_WARN, "ZR481_ALGO", "ResizeUcharChl", "dstW <= 0", 758), 2);
  EXPECT_EQ(log.Lines().size(), 2u);
  for (int i = 4; i < 64; ++i) ASSERT_EQ(dst[i], 0x33) << i;
}

TEST(ResizeU8, ColumnTableFailureGivesTheSameResultWithoutLeaks) {
  std::mt19937 rng(54);
  const auto src = Bytes(37 * 23 * 3, rng);
  std::vector<uint8_t> want(19 * 40 * 3, 0), got(19 * 40 * 3, 0);
  ResizeUcharRGB(src.data(), want.data(), 37, 23, 19, 40);
  const int runs = bvtest::ForEachMallocFailure([&](int) {
    std::fill(got.begin(), got.end(), 0);
    ResizeUcharRGB(src.data(), got.data(), 37, 23, 19, 40);
    EXPECT_EQ(got, want);
  });
  EXPECT_EQ(runs, 2);
}

TEST(ResizeU8, PlaneWithoutItsColumnTableGivesTheSameResult) {
  std::mt19937 rng(57);
  const auto src = Bytes(97 * 31, rng);
  std::vector<uint8_t> want(45 * 20), got(45 * 20);
  ResizeUchar(src.data(), want.data(), 97, 31, 45, 20);
  const int runs = bvtest::ForEachMallocFailure([&](int) {
    std::fill(got.begin(), got.end(), 0);
    ResizeUchar(src.data(), got.data(), 97, 31, 45, 20);
    EXPECT_EQ(got, want);
  });
  EXPECT_EQ(runs, 2);
}

TEST(ResizeU8, UpScale2x2KeepsItsEdgeRule) {
  const uint8_t s[4] = {10, 21, 40, 77};
  uint8_t d[16];
  ResizeUchar_upScale2x2(s, d, 2, 2, 4, 4);
  const uint8_t r0[4] = {10, 15, 10, 15}, r1[4] = {25, 37, 25, 37};
  for (int row = 0; row < 4; ++row)
    for (int x = 0; x < 4; ++x) EXPECT_EQ(d[row * 4 + x], (row % 2 ? r1 : r0)[x]);

  std::mt19937 rng(55);
  for (const auto& z : {std::pair<int, int>{3, 2}, {17, 5}, {64, 9}, {129, 3}}) {
    const int w = z.first, h = z.second;
    const auto src = Bytes(w * h, rng);
    std::vector<uint8_t> dst(4 * w * h, 0xEE);
    ResizeUchar_upScale2x2(src.data(), dst.data(), w, h, 2 * w, 2 * h);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        const int xs = x == w - 1 ? w - 2 : x, ys = y == h - 1 ? h - 2 : y;
        const int a = src[ys * w + xs], b = src[ys * w + xs + 1];
        const int c = src[(ys + 1) * w + xs], e = src[(ys + 1) * w + xs + 1];
        ASSERT_EQ(dst[2 * y * 2 * w + 2 * x], a);
        ASSERT_EQ(dst[2 * y * 2 * w + 2 * x + 1], (a + b) >> 1);
        ASSERT_EQ(dst[(2 * y + 1) * 2 * w + 2 * x], (a + c) >> 1);
        ASSERT_EQ(dst[(2 * y + 1) * 2 * w + 2 * x + 1], (a + b + c + e) >> 2);
      }
    }
  }
  uint8_t keep[64] = {};
  ResizeUchar_upScale2x2(s, keep, 2, 2, 5, 4);
  ResizeUchar_upScale2x2(s, keep, 2, 2, 4, 5);
  for (uint8_t b : keep) EXPECT_EQ(b, 0);
}

TEST(ResizeU8, RandFloatSequence) {
  // This test owns the process-wide state: it must be the only caller in the program.
  EXPECT_EQ(randFloat(), 1.0f);
  uint32_t state = 16383;
  state = ((state & 0xFFFF) * 16383 + (state >> 16)) & 0x7FFFFFFF;
  EXPECT_EQ(state, 16383u * 16383u);
  EXPECT_EQ(randFloat(), static_cast<float>(state & 255) * 0.00392156862745098f);
  EXPECT_FLOAT_EQ(static_cast<float>(state & 255) * 0.00392156862745098f, 1.0f / 255.0f);
  for (int i = 0; i < 1000; ++i) {
    state = ((state & 0xFFFF) * 16383 + (state >> 16)) & 0x7FFFFFFF;
    const float f = randFloat();
    ASSERT_EQ(f, static_cast<float>(state & 255) * 0.00392156862745098f);
    ASSERT_GE(f, 0.0f);
    ASSERT_LE(f, 1.0f);
  }
}

TEST(ResizeU8Kernels, RowsMatchScalarOnEveryTarget) {
  std::mt19937 rng(56);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int n : {1, 3, 15, 16, 17, 33, 65, 100}) {
      for (float step : {0.3f, 1.0f, 2.08f, 2.7f, 7.5f}) {
        const int srcW = static_cast<int>(n * step) + 6;
        // Rows with room to spare, read up to a limit: ample, or just the pairs themselves.
        const auto a = Bytes(srcW + 256, rng), c = Bytes(srcW + 256, rng);
        const int minimal = static_cast<int>((n - 1) * step) + 2;
        for (int mask = 0; mask < 2; ++mask) {
          // With the column table and without it.
          const bivista::ColumnTable table = bivista::MakeColumnTable(n, step);
          for (const bivista::ColumnTable& cols : {table, bivista::ColumnTable()}) {
            for (int readable : {srcW + 256, minimal, minimal + 3, minimal + 40}) {
              std::vector<uint8_t> v(n + 1, 0xEE), s(n + 1, 0xEE);
              bivista::ResizeRowU8(a.data(), c.data(), v.data(), n, readable, step, 0.37f, mask, cols);
              bivista::scalar::ResizeRowU8(a.data(), c.data(), s.data(), n, readable, step, 0.37f,
                                           mask, cols);
              ASSERT_EQ(v, s) << n << " " << step << " readable " << readable;
            }
          }
          bivista::FreeColumnTable(table);
        }
        std::vector<int32_t> x0(n);
        std::vector<float> ax(n);
        for (int i = 0; i < n; ++i) {
          x0[i] = static_cast<int32_t>(i * step);
          ax[i] = i * step - x0[i];
        }
        for (int ch = 1; ch <= 4; ++ch) {
          const auto ra = Bytes((srcW + 2) * ch, rng), rc = Bytes((srcW + 2) * ch, rng);
          for (int count = 1; count <= ch; ++count) {
            auto v = Bytes(n * ch, rng);
            auto s = v;
            bivista::ResizeRowChannels(ra.data(), rc.data(), v.data(), x0.data(), ax.data(), n, n,
                                       0.61f, ch, count);
            bivista::scalar::ResizeRowChannels(ra.data(), rc.data(), s.data(), x0.data(), ax.data(),
                                               n, n, 0.61f, ch, count);
            ASSERT_EQ(v, s) << n << " ch " << ch << " count " << count;
          }
        }
      }
      const int w = n + 1;
      const auto a = Bytes(w, rng), c = Bytes(w, rng);
      std::vector<uint8_t> v0(2 * w + 1, 0xEE), v1(2 * w + 1, 0xEE), s0(2 * w + 1, 0xEE), s1(2 * w + 1, 0xEE);
      bivista::UpScale2x2Rows(a.data(), c.data(), v0.data(), v1.data(), w);
      bivista::scalar::UpScale2x2Rows(a.data(), c.data(), s0.data(), s1.data(), w);
      ASSERT_EQ(v0, s0);
      ASSERT_EQ(v1, s1);
    }
  });
}

}  // namespace
