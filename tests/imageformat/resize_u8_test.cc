// 8-bit resizers against a direct formulation, their messages, and vector against scalar rows.
#include <gtest/gtest.h>

#include <array>
#include <functional>
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

// Channel k of pixel p of an image with ch bytes a pixel, resized by the definition.
float Direct(const std::vector<uint8_t>& s, int sw, int sh, int dw, int dh, int ch, int k, int p) {
  const float fx = (p % dw) * (static_cast<float>(sw - 1) / dw), fy = (p / dw) * (static_cast<float>(sh - 1) / dh);
  const int x0 = static_cast<int>(fx), y0 = static_cast<int>(fy);
  const float ax = fx - x0, ay = fy - y0;
  auto at = [&](int y, int x) { return static_cast<float>(s[(y * sw + x) * ch + k]); };
  return (at(y0, x0) * (1 - ax) + at(y0, x0 + 1) * ax) * (1 - ay) + (at(y0 + 1, x0) * (1 - ax) + at(y0 + 1, x0 + 1) * ax) * ay;
}

TEST(ResizeU8, ResizersFollowTheDefinition) {
  std::mt19937 rng(51);
  const int sizes[][4] = {{7, 5, 3, 3},   {9, 7, 20, 13},  {64, 48, 31, 17}, {33, 65, 65, 33},
                          {100, 3, 37, 2}, {5, 5, 129, 4}, {301, 11, 150, 6}, {2, 2, 1, 1}};
  for (const auto& z : sizes) {
    const int sw = z[0], sh = z[1], dw = z[2], dh = z[3];
    for (int ch = 1; ch <= 4; ++ch) {
      const auto src = Bytes(sw * sh * ch, rng);
      if (ch == 1) {  // the plane truncates, the mask thresholds above 127
        std::vector<uint8_t> out(dw * dh + 1, 0xEE), mask(dw * dh + 1, 0xEE);
        ResizeUchar(src.data(), out.data(), sw, sh, dw, dh);
        ResizeUcharMask(src.data(), mask.data(), sw, sh, dw, dh);
        for (int p = 0; p < dw * dh; ++p) {
          const float v = Direct(src, sw, sh, dw, dh, 1, 0, p);
          ASSERT_TRUE(out[p] == static_cast<uint8_t>(static_cast<int>(v)) && mask[p] == (v > 127.0f ? 255 : 0)) << p;
        }
        EXPECT_TRUE(out[dw * dh] == 0xEE && mask[dw * dh] == 0xEE);
      }
      // A channel resizer touches only its channel.
      for (int k = 0; k < ch; ++k) {
        auto dst = Bytes(dw * dh * ch, rng);
        const auto before = dst;
        ResizeUcharChl(src.data() + k, dst.data() + k, sw, sh, dw, dh, ch);
        for (int i = 0; i < dw * dh * ch; ++i)
          ASSERT_EQ(dst[i], i % ch != k ? before[i] : static_cast<uint8_t>(static_cast<int>(Direct(src, sw, sh, dw, dh, ch, k, i / ch)))) << ch << " " << k << " " << i;
      }
    }
  }
  // At exactly 127 the mask stays 0; values just above 127 come up in the random images.
  const uint8_t flat[4] = {127, 127, 127, 127};
  uint8_t m[2];
  ResizeUcharMask(flat, m, 2, 2, 2, 1);
  EXPECT_EQ(m[1], 0);
  // NV21 and RGB are their channel passes.
  for (const auto& z : {std::array<int, 4>{8, 6, 4, 4}, {40, 20, 22, 12}, {66, 34, 130, 66}, {4, 4, 2, 2}}) {
    const int sw = z[0], sh = z[1], dw = z[2], dh = z[3];
    const auto nv21 = Bytes(sw * sh * 3 / 2, rng), rgb = Bytes(sw * sh * 3, rng);
    std::vector<uint8_t> ours(dw * dh * 3 / 2, 1), want(dw * dh * 3 / 2, 1), o3(dw * dh * 3, 1), w3(dw * dh * 3, 2);
    ResizeUcharNV21(nv21.data(), ours.data(), sw, sh, dw, dh);
    ResizeUchar(nv21.data(), want.data(), sw, sh, dw, dh);
    ResizeUcharRGB(rgb.data(), o3.data(), sw, sh, dw, dh);
    for (int k = 0; k < 3; ++k) {
      ResizeUcharChl(rgb.data() + k, w3.data() + k, sw, sh, dw, dh, 3);
      if (k < 2) ResizeUcharChl(nv21.data() + sw * sh + k, want.data() + dw * dh + k, sw / 2, sh / 2, dw / 2, dh / 2, 2);
    }
    EXPECT_TRUE(ours == want && o3 == w3) << sw << "x" << sh;
  }
}

TEST(ResizeU8, EmptyDestinationsWriteNothingAndChannelResizersReportUnderOneName) {
  bvtest::LogCapture log;
  const uint8_t src[64] = {};
  std::vector<uint8_t> dst(64, 0x33);
  const struct {
    std::function<void()> call;
    int messages;
    size_t firstUntouched;
  } cases[] = {
      {[&] { ResizeUchar(src, dst.data(), 4, 4, 0, 4); }, 0, 0},
      {[&] { ResizeUchar(src, dst.data(), 4, 4, 4, 0); }, 0, 0},
      {[&] { ResizeUcharMask(src, dst.data(), 4, 4, -1, 4); }, 0, 0},
      {[&] { ResizeUchar_upScale2x2(src, dst.data(), 2, 2, 5, 4); }, 0, 0},
      {[&] { ResizeUchar_upScale2x2(src, dst.data(), 2, 2, 4, 5); }, 0, 0},
      {[&] { ResizeUcharChl(src, dst.data(), 4, 4, 0, 4, 2); }, 1, 0},
      {[&] { ResizeUcharRGB(src, dst.data(), 4, 4, 0, 4); }, 3, 0},
      {[&] { ResizeUcharNV21(src, dst.data(), 4, 4, 1, 4); }, 2, 4},  // luma resized, chroma width 0 twice
  };
  for (const auto& c : cases) {
    log.Clear();
    c.call();
    EXPECT_EQ(bvtest::CountMsg(log, XELMA_LOG_WARN, "ZR481_ALGO", "ResizeUcharChl", "dstW <= 0", 758), c.messages);
    EXPECT_EQ(log.Lines().size(), static_cast<size_t>(c.messages));
    for (size_t i = c.firstUntouched; i < dst.size(); ++i) ASSERT_EQ(dst[i], 0x33) << c.messages << " at " << i;
  }
}

TEST(ResizeU8, ColumnTableFailureGivesTheSameResultWithoutLeaks) {
  std::mt19937 rng(54);
  const auto src = Bytes(97 * 31 * 3, rng);
  std::vector<uint8_t> want(45 * 40 * 3), got(45 * 40 * 3);
  for (auto call : {ResizeUchar, ResizeUcharRGB}) {
    call(src.data(), want.data(), 97, 31, 45, 40);
    EXPECT_EQ(bvtest::ForEachMallocFailure([&](int) {
      std::fill(got.begin(), got.end(), 0);
      call(src.data(), got.data(), 97, 31, 45, 40);
      EXPECT_EQ(got, want);
    }), 2);
  }
}

TEST(ResizeU8, UpScale2x2KeepsItsEdgeRule) {
  std::mt19937 rng(55);
  for (const auto& z : {std::pair<int, int>{2, 2}, {3, 2}, {17, 5}, {64, 9}, {129, 3}}) {
    const int w = z.first, h = z.second;
    const auto src = Bytes(w * h, rng);
    std::vector<uint8_t> dst(4 * w * h, 0xEE);
    ResizeUchar_upScale2x2(src.data(), dst.data(), w, h, 2 * w, 2 * h);
    // The last column and row repeat the interpolation of the ones before them.
    for (int p = 0; p < w * h; ++p) {
      const int x = p % w, y = p / w, xs = x == w - 1 ? w - 2 : x, ys = y == h - 1 ? h - 2 : y;
      const int a = src[ys * w + xs], b = src[ys * w + xs + 1], c = src[(ys + 1) * w + xs], e = src[(ys + 1) * w + xs + 1];
      const uint8_t* o = &dst[2 * y * 2 * w + 2 * x];
      ASSERT_TRUE(o[0] == a && o[1] == (a + b) >> 1 && o[2 * w] == (a + c) >> 1 && o[2 * w + 1] == (a + b + c + e) >> 2) << p;
    }
  }
}

TEST(ResizeU8, RandFloatSequence) {
  // This test owns the process-wide state: it must be the only caller in the program.
  EXPECT_EQ(randFloat(), 1.0f);
  uint32_t state = 16383;
  for (int i = 0; i < 1000; ++i) {
    state = ((state & 0xFFFF) * 16383 + (state >> 16)) & 0x7FFFFFFF;
    ASSERT_EQ(randFloat(), static_cast<float>(state & 255) * 0.00392156862745098f) << i;
  }
}

TEST(ResizeU8Kernels, RowsMatchScalarOnEveryTarget) {
  std::mt19937 rng(56);
  bvtest::ForEachHwyTarget([&](const char*) {
    for (int n : {1, 3, 15, 16, 17, 33, 65, 100}) {
      for (float step : {0.3f, 1.0f, 2.08f, 2.7f, 7.5f}) {
        const int srcW = static_cast<int>(n * step) + 6, minimal = static_cast<int>((n - 1) * step) + 2;
        const auto a = Bytes(srcW + 256, rng), c = Bytes(srcW + 256, rng);
        // With the column table and without it; rows readable amply or just to the last pair.
        const bivista::ColumnTable table = bivista::MakeColumnTable(n, step);
        for (int mask = 0; mask < 2; ++mask)
          for (const bivista::ColumnTable& cols : {table, bivista::ColumnTable()})
            for (int readable : {srcW + 256, minimal, minimal + 3, minimal + 40}) {
              std::vector<uint8_t> v(n + 1, 0xEE), s(n + 1, 0xEE);
              bivista::ResizeRowU8(a.data(), c.data(), v.data(), n, readable, step, 0.37f, mask, cols);
              bivista::scalar::ResizeRowU8(a.data(), c.data(), s.data(), n, readable, step, 0.37f, mask, cols);
              ASSERT_EQ(v, s) << n << " " << step << " readable " << readable;
            }
        bivista::FreeColumnTable(table);
        std::vector<int32_t> x0(n);
        std::vector<float> ax(n);
        for (int i = 0; i < n; ++i) x0[i] = static_cast<int32_t>(i * step), ax[i] = i * step - x0[i];
        for (int ch = 1; ch <= 4; ++ch) {
          const auto ra = Bytes((srcW + 2) * ch, rng), rc = Bytes((srcW + 2) * ch, rng);
          for (int count = 1; count <= ch; ++count) {
            auto v = Bytes(n * ch, rng), s = v;
            bivista::ResizeRowChannels(ra.data(), rc.data(), v.data(), x0.data(), ax.data(), n, n, 0.61f, ch, count);
            bivista::scalar::ResizeRowChannels(ra.data(), rc.data(), s.data(), x0.data(), ax.data(), n, n, 0.61f, ch, count);
            ASSERT_EQ(v, s) << n << " ch " << ch << " count " << count;
          }
        }
      }
      const int w = n + 1;
      const auto a = Bytes(w, rng), c = Bytes(w, rng);
      std::vector<uint8_t> v0(2 * w + 1, 0xEE), v1 = v0, s0 = v0, s1 = v0;
      bivista::UpScale2x2Rows(a.data(), c.data(), v0.data(), v1.data(), w);
      bivista::scalar::UpScale2x2Rows(a.data(), c.data(), s0.data(), s1.data(), w);
      ASSERT_TRUE(v0 == s0 && v1 == s1) << n;
    }
  });
}

}  // namespace
