// Luma: vector against one-by-one on every target, the entries against an exact direct
// formulation, the NV12 rewrite against the conversion plus that formulation, calibration.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "bivista/colormatch.h"
#include "bivista/imageformat.h"
#include "colormatch/colormatch_internal.h"
#include "colormatch/luma_kernels.h"
#include "colormatch_messages.h"
#include "support/alloc_table.h"
#include "support/hwy_targets.h"
#include "support/platform_capture.h"

namespace {

using Bytes = std::vector<uint8_t>;
using cmtest::Captured;
using cmtest::Line;

// One rounding: byte x weight is exact in double, and for weights of magnitude 0.05..2 so is the
// sum with a float, so rounding the double sum once is the fused multiply-add.
float Fused(float a, float b, float c) { return static_cast<float>(double{a} * b + c); }
// A rounded multiply and a rounded add (the build does not contract them).
float Split(float a, float b, float c) { return a * b + c; }

uint8_t Clamp(float t) { return t >= 255.0f ? 255 : t > 0.0f ? static_cast<uint8_t>(t) : 0; }

// order 0: b0, b1, 0.5, b2; 1: b1, b2, 0.5, b0; 2: order 0 then max.
template <float (*kMulAdd)(float, float, float) = Fused>
uint8_t LumaOf(float b0, float b1, float b2, const float* w, int order) {
  float t;
  if (order == 1) {
    t = kMulAdd(b0, w[0], kMulAdd(b2, w[2], b1 * w[1]) + 0.5f);
  } else {
    t = kMulAdd(b2, w[2], kMulAdd(b1, w[1], b0 * w[0]) + 0.5f);
    if (order == 2) t = kMulAdd(std::max({b0, b1, b2}), w[3], t);
  }
  return Clamp(t);
}

Bytes DirectLuma(const Bytes& rgb, size_t count, const float* w, int order) {
  Bytes out(count);
  for (size_t p = 0; p < count; ++p) out[p] = LumaOf(rgb[3 * p], rgb[3 * p + 1], rgb[3 * p + 2], w, order);
  return out;
}

Bytes Random(size_t n, std::mt19937& rng) {
  Bytes b(n);
  for (auto& v : b) v = rng() % 5 == 0 ? 255 : rng();
  return b;
}

struct SetsRestored {  // every test leaves the process-wide sets as they started
  ~SetsRestored() {
    std::copy(bivista::kYeqInitial3, bivista::kYeqInitial3 + 3, bivista::g_yeqWeights3);
    std::copy(bivista::kYeqInitial4, bivista::kYeqInitial4 + 4, bivista::g_yeqWeights4);
  }
};

// Every pixel whose byte changes when a fused step is split into a multiply and an add.
Bytes SplitSensitivePixels(const float* w, int order) {
  Bytes found;
  for (int v = 0; v < (1 << 24); ++v) {
    const float b0 = v & 255, b1 = (v >> 8) & 255, b2 = v >> 16;
    if (LumaOf(b0, b1, b2, w, order) != LumaOf<Split>(b0, b1, b2, w, order))
      found.insert(found.end(), {uint8_t(b0), uint8_t(b1), uint8_t(b2)});
  }
  return found;
}

TEST(Luma, VectorEqualsOneByOneOnEveryTarget) {
  const int counts[] = {1, 2, 15, 16, 17, 31, 32, 33, 47, 48, 49, 63, 64, 65, 100, 1000};
  const float tuned[3][4] = {{0.2385617f, 0.4585987f, 0.3285824f, 0},
                             {0.2385617f, 0.4585987f, 0.3285824f, 0},
                             {0.139958f, 0.4222537f, 0.2463526f, 0.1717658f}};
  Bytes sensitive[3];
  for (int order = 0; order < 3; ++order) {
    sensitive[order] = SplitSensitivePixels(tuned[order], order);
    ASSERT_FALSE(sensitive[order].empty());
  }
  bvtest::ForEachHwyTarget([&](const char*) {
    std::mt19937 rng(21);
    for (int order = 0; order < 3; ++order) {
      for (int count : counts) {
        // Random large and negative weights drive the clamp at both ends; the tuned ones meet
        // the pixels that tell a fused multiply-add from a split one.
        float w[4];
        for (auto& x : w) x = std::uniform_real_distribution<float>(-1.5f, 3.0f)(rng);
        Bytes rgb = Random(3 * count + 48, rng);
        if (count % 2 == 1) {
          std::copy(tuned[order], tuned[order] + 4, w);
          const Bytes& s = sensitive[order];
          for (size_t k = 0; k < s.size() && k < 3u * count; ++k) rgb[(k + 3 * (count / 2)) % (3 * count)] = s[k];
        }
        const auto o = static_cast<bivista::LumaOrder>(order);
        Bytes a(count + 16, 0x5A), b = a;
        bivista::LumaRgb24(rgb.data(), a.data(), count, w, o);
        bivista::scalar::LumaRgb24(rgb.data(), b.data(), count, w, o);
        ASSERT_EQ(a, b) << "order " << order << " count " << count;
        // Overlapping buffers: the definition's pixel order decides.
        for (int shift : {0, 1, 16, 40}) {
          Bytes x = rgb, y = rgb;
          bivista::LumaRgb24(x.data(), x.data() + shift, count, w, o);
          bivista::scalar::LumaRgb24(y.data(), y.data() + shift, count, w, o);
          ASSERT_EQ(x, y) << "order " << order << " count " << count << " shift " << shift;
        }
      }
    }
  });
}

TEST(Luma, Nv12RewriteEqualsConversionThenLumaOnEveryTarget) {
  bvtest::AllocTable table;
  bvtest::ForEachHwyTarget([&](const char*) {
    std::mt19937 rng(8);
    for (int mode : {0, 1}) {
      for (auto [w, h, stride] : {std::array<int, 3>{1, 1, 1}, {2, 2, 6}, {5, 3, 8}, {16, 2, 16},
                                  {18, 3, 18}, {33, 9, 40}, {66, 4, 67}, {300, 31, 304}, {4, 6, 3}}) {
        SCOPED_TRACE(testing::Message() << "mode " << mode << " " << w << "x" << h << " stride " << stride);
        const size_t size = static_cast<size_t>(std::max(stride, w)) * (h + (h + 1) / 2) + 8;
        Bytes img = Random(size, rng), expect = img;
        Bytes rgb(3 * w * h);
        ConvertNV122RGB24_wideRange(img.data(), rgb.data(), w, h, stride);
        const Bytes y = DirectLuma(rgb, w * h, mode == 0 ? bivista::g_yeqWeights3 : bivista::g_yeqWeights4,
                                   mode == 0 ? 0 : 2);
        std::copy(y.begin(), y.end(), expect.begin());  // packed, whatever the stride
        ASSERT_EQ(colorImageNV12Adjusting(img.data(), w, h, stride, mode, table.table()), 0);
        ASSERT_EQ(img, expect);
      }
    }
    // Every chroma pair once: 256 pairs a row, V the chroma row.
    Bytes img = Random(512 * 768, rng);
    for (int v = 0; v < 256; ++v)
      for (int u = 0; u < 256; ++u) img[512 * (512 + v) + 2 * u] = u, img[512 * (512 + v) + 2 * u + 1] = v;
    Bytes rgb(3 * 512 * 512), expect = img;
    ConvertNV122RGB24_wideRange(img.data(), rgb.data(), 512, 512, 512);
    const Bytes y = DirectLuma(rgb, 512 * 512, bivista::g_yeqWeights4, 2);
    std::copy(y.begin(), y.end(), expect.begin());
    Bytes scratch(1024), packed(512 * 512);
    bivista::scalar::Nv12ToLuma(img.data(), 512, 512, 512, scratch.data(), packed.data(),
                                bivista::g_yeqWeights4, bivista::kLumaWithMax);
    EXPECT_EQ(packed, y);
    ASSERT_EQ(colorImageNV12Adjusting(img.data(), 512, 512, 512, 1, table.table()), 0);
    EXPECT_EQ(img, expect);
  });
  EXPECT_EQ(table.live(), 0);
  EXPECT_EQ(table.tags().back(), "PRE_COLOR_ADJUST");
}

TEST(Luma, Nv12RefusalsLogAndLeaveTheImage) {
  using namespace cmtest;
  bvtest::AllocTable table;
  Bytes img(48, 77);
  bvtest::LogCapture log;
  EXPECT_EQ(colorImageNV12Adjusting(nullptr, 4, 4, 4, 0, table.table()), -1);
  EXPECT_EQ(colorImageNV12Adjusting(img.data(), 4, 4, 4, 0, nullptr), -1);
  table.FailAt(1);
  EXPECT_EQ(colorImageNV12Adjusting(img.data(), 4, 4, 4, 1, table.table()), -1);
  EXPECT_EQ(colorImageNV12Adjusting(img.data(), 0, 4, 4, 1, table.table()), 0);
  EXPECT_EQ(img, Bytes(48, 77));
  EXPECT_EQ(Captured(log), (std::vector<std::string>{Line(kNv12Null), Line(kNv12Null), Line(kNv12Alloc)}));
}

TEST(Luma, CalibrationRecoversAKnownSetAndRefusesSingularSamples) {
  using namespace cmtest;
  SetsRestored restore;
  const float known[4] = {0.3125f, 0.5f, 0.125f, 0.0625f};  // bytes 0, 1, 2, max
  std::mt19937 rng(2);
  std::vector<float> c0(500), c1(500), c2(500), y(500);
  for (int withMax : {1, 0}) {
    for (size_t i = 0; i < y.size(); ++i) {
      c0[i] = rng() % 256, c1[i] = rng() % 256, c2[i] = rng() % 256;
      y[i] = known[0] * c0[i] + known[1] * c1[i] + known[2] * c2[i] +
             (withMax ? known[3] * std::max({c0[i], c1[i], c2[i]}) : 0.0f);
    }
    bvtest::LogCapture log;
    ASSERT_EQ(yeqCalib(c0.data(), c1.data(), c2.data(), y.data(), 500, withMax ? 3 : 2, 1), 0);
    const float* set = withMax ? bivista::g_yeqWeights4 : bivista::g_yeqWeights3;
    for (int k = 0; k < 3 + withMax; ++k) EXPECT_NEAR(set[k], known[k], 1e-5) << k;
    EXPECT_EQ(Captured(log).back(),
              withMax ? Line(kVerbose4, double{set[2]}, double{set[1]}, double{set[0]}, double{set[3]})
                      : Line(kVerbose3, double{set[2]}, double{set[1]}, double{set[0]}));
  }
  // The entries use the sets, each in its own order (random weights tell the orders apart).
  for (auto& w : bivista::g_yeqWeights3) w = std::uniform_real_distribution<float>(0.05f, 1.2f)(rng);
  const Bytes rgb = Random(3 * 1500, rng);
  Bytes out(1500);
  yeqRGBtoY(out.data(), rgb.data(), 1500);
  EXPECT_EQ(out, DirectLuma(rgb, 1500, bivista::g_yeqWeights3, 1));
  yeqRGBVtoY(out.data(), rgb.data(), 1500);
  EXPECT_EQ(out, DirectLuma(rgb, 1500, bivista::g_yeqWeights4, 2));
  // n < 1, grey samples, a failed work block: -1, sets unchanged, only the last one logs.
  float saved[7];
  std::copy(bivista::g_yeqWeights3, bivista::g_yeqWeights3 + 3, saved);
  std::copy(bivista::g_yeqWeights4, bivista::g_yeqWeights4 + 4, saved + 3);
  bvtest::LogCapture log;
  EXPECT_EQ(yeqCalib(c0.data(), c1.data(), c2.data(), y.data(), 0, 1, 1), -1);
  EXPECT_EQ(yeqCalib(c0.data(), c0.data(), c0.data(), y.data(), 500, 0, 1), -1);
  {
    bvtest::MallocWatch watch;
    watch.FailAt(1);
    EXPECT_EQ(yeqCalib(c0.data(), c1.data(), c2.data(), y.data(), 500, 1, 1), -1);
    EXPECT_TRUE(watch.failed());
    EXPECT_EQ(watch.live(), 0);
  }
  EXPECT_EQ(Captured(log), (std::vector<std::string>{Line(kInvAlloc)}));
  EXPECT_TRUE(std::equal(saved, saved + 3, bivista::g_yeqWeights3));
  EXPECT_TRUE(std::equal(saved + 3, saved + 7, bivista::g_yeqWeights4));
}

}  // namespace
