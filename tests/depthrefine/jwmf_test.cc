// The weighted median against a direct formulation (window recounted per pixel), the quantiser
// and feature builders against direct computations, the drivers' variants against each other,
// the clean-up steps against their definitions, and every failure path leak-free.
#include "bivista/jwmf.h"

#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "bivista/mthread.h"
#include "depthrefine/jwmf/jwmf_internal.h"
#include "support/alloc_table.h"
#include "support/hwy_targets.h"
#include "support/platform_capture.h"

namespace {

namespace jw = bivista::jwmf;
using bvtest::LogCapture;

std::string Fmt(const char* format, ...) {
  char text[512];
  va_list ap;
  va_start(ap, format);
  vsnprintf(text, sizeof text, format, ap);
  va_end(ap);
  return text;
}

// Every message the tests expect, formatted with its function and line.
struct Message {
  int level;
  const char* fn;
  int line;
  std::string text;
};
const Message kAllocImg = {6, "JWMFilterWithImg", jw::kLineImgAlloc,
                           "malloc memory for JWMF failed!!\n"};
const Message kAllocImg2 = {6, "JWMFilterWithImg2", jw::kLineImg2Alloc,
                            "malloc memory for JWMF failed!!\n"};
const Message kAllocSeg = {6, "JWMFilter", jw::kLineSegAlloc,
                           "JWMFilter malloced memory failed!\n"};
const Message kAllocFf = {6, "JWMFFilter", jw::kLineFfAlloc, "safeNew memory for JWMF failed!!\n"};
const Message kImgWmap = {6, "getFeatureByImg", jw::kLineImgWmap, "float2D failed!!"};
const Message kSegMalloc = {6, "getFeatureByMSSeg", jw::kLineSegMalloc, "mallced memory failed!!"};
const Message kSegWmap = {6, "getFeatureByMSSeg", jw::kLineSegWmap, "get wmap memory failed!!"};
const Message kImgFeature = {6, "JWMFilterWithImg", jw::kLineImgFeature,
                             "getFeatureByImg failed!!iRet -1\n"};
const Message kSegFeature = {6, "JWMFilter", jw::kLineSegFeature, "getFeatureByMSSeg failed!"};
const Message kCoreMalloc = {6, "filterCore_multiThread", jw::kLineCoreMalloc,
                             "filterCore_multiThread malloced memory failed!!\n"};
const Message kCopyFail = {6, "filterCore", jw::kLineFilterCoreCopy, "filterCore failed!!\n"};
const Message kImgCore = {6, "JWMFilterWithImg", jw::kLineImgCore, "filterCore failed!!"};
const Message kImg2Few = {6, "JWMFilterWithImg2", jw::kLineImg2Few,
                          "error th_num=1,  must >= 2!\n"};
const Message kImg2Many = {5, "JWMFilterWithImg2", jw::kLineImg2Many,
                           "Caustion!!! th_num is too max: 6"};
const Message kMaskArea2 = {6, "JWMFFilterImage_MaskArea2", jw::kLineMaskArea2Fail,
                            "JWMFilterWithImg2 Y failed!!\n"};
const Message kObstacle = {3, "filterCoreWithMask", jw::kLineObstacle,
                           "remove obstacle with obstaclelen 20 validlength 3\n"};
Message Flat(float step, float maxV, float minV) {
  return {5, "from32FTo32SSimple", jw::kLineQuantFlat,
          Fmt("depth step %3.5f is less than %3.5f because of maxDepth %3.5f minDepth %3.5f!!",
              step, 0.001, maxV, minV)};
}
int Count(const LogCapture& log, const Message& m) {
  return log.Count(m.level, "ZR481_ALGO", bvtest::Msg(m.fn, m.line, m.text));
}

// ---- Direct formulation -------------------------------------------------------------------

struct Plane {
  int w, h;
  std::vector<int32_t> levels, features;
  std::vector<uint8_t> mask;  // empty: none
};

// Obstacle removal column by column from the top.
void DirectObstacles(std::vector<uint8_t>& m, int w, int h) {
  for (int x = 0; x < w; ++x) {
    int z = 0, n = 0;
    for (int y = 0; y < h; ++y) {
      uint8_t& p = m[y * w + x];
      if (p) {
        if (z > 0 && z < 20) {
          for (int k = 1; k <= z; ++k) m[(y - k) * w + x] = 255;
        }
        ++n, z = 0;
      } else {
        ++z;
        for (int k = 1; k <= n && n <= 2; ++k) m[(y - k) * w + x] = 0;
        n = 0;
      }
    }
  }
}

// The median recounting the window at every pixel; the cut is carried down the column and
// reset to -1 at the top and after every unmasked run.
std::vector<int32_t> DirectMedian(const Plane& p, const std::vector<std::vector<float>>& wt,
                                  int levels, int r) {
  const int classes = static_cast<int>(wt.size());
  std::vector<int32_t> out = p.levels;
  for (int x = 0; x < p.w; ++x) {
    int cut = -1;
    for (int y = 0; y < p.h; ++y) {
      if (!p.mask.empty() && p.mask[y * p.w + x] == 0) {
        cut = -1;
        continue;
      }
      std::vector<std::vector<int>> hist(levels, std::vector<int>(classes, 0));
      for (int yy = std::max(y - r, 0); yy <= std::min(y + r, p.h - 1); ++yy) {
        for (int xx = std::max(x - r, 0); xx <= std::min(x + r, p.w - 1); ++xx) {
          ++hist[p.levels[yy * p.w + xx]][p.features[yy * p.w + xx]];
        }
      }
      const std::vector<float>& w = wt[p.features[y * p.w + x]];
      auto levelWeight = [&](int l) {
        float s = 0;
        for (int f = 0; f < classes; ++f) s += 2.f * hist[l][f] * w[f];
        return s;
      };
      float balance = 0;
      for (int l = 0; l < levels; ++l) {
        for (int f = 0; f < classes; ++f) balance += (l <= cut ? 1.f : -1.f) * hist[l][f] * w[f];
      }
      if (balance > 0 && cut != 0) {
        while (balance > 0 && cut != 0) balance -= levelWeight(cut--);
      } else if (balance < 0 && cut != levels - 1) {
        do balance += levelWeight(++cut);
        while (balance < 0 && cut != levels - 1);
      }
      out[y * p.w + x] = cut;
    }
  }
  return out;
}

// Symmetric weights of the form 2^-k, 1 on the diagonal: every sum is exact.
std::vector<std::vector<float>> DyadicWeights(int classes, std::mt19937& rng) {
  std::vector<std::vector<float>> w(classes, std::vector<float>(classes, 1.f));
  for (int a = 0; a < classes; ++a) {
    for (int b = a + 1; b < classes; ++b) w[a][b] = w[b][a] = std::ldexp(1.f, -int(rng() % 6));
  }
  return w;
}

// A float2D filled from a table (released by the caller).
float** ToFloat2D(const std::vector<std::vector<float>>& w) {
  const int n = static_cast<int>(w.size());
  float** m = float2D(n, n);
  for (int a = 0; a < n; ++a) std::copy(w[a].begin(), w[a].end(), m[a]);
  return m;
}

class Jwmf : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    for (int n = 1; n <= 4; ++n) pools_[n] = MThread_Create(n, nullptr, nullptr);
  }
  static void TearDownTestSuite() {
    for (int n = 1; n <= 4; ++n) MThread_Destroy(pools_[n]);
  }
  static void* pools_[5];
};
void* Jwmf::pools_[5] = {nullptr};

TEST_F(Jwmf, CoreEqualsTheDirectFormulationWithAndWithoutMasks) {
  std::mt19937 rng(17);
  LogCapture log;  // obstacle lines
  for (int iter = 0; iter < 300; ++iter) {
    Plane p;
    p.w = 1 + 2 * static_cast<int>(rng() % 12);
    p.h = 1 + 2 * static_cast<int>(rng() % 12);
    const int levels = 1 + static_cast<int>(rng() % 12);
    // Class counts and radii reaching every histogram layout: up to 64 and up to 256 classes,
    // 8-bit and 16-bit counts, and the wide one.
    const int kinds[] = {1 + int(rng() % 6), 65 + int(rng() % 30), 257 + int(rng() % 20)};
    const int classes = kinds[iter % 7 == 3 ? 1 : iter % 11 == 5 ? 2 : 0];
    const int r = iter % 5 == 4 ? 8 + int(rng() % 4) : int(rng() % 5);
    const int threads = static_cast<int>(rng() % 5);  // 0 runs one worker
    const int workers = std::max(threads, 1);
    void* pool = rng() % 3 ? pools_[workers] : nullptr;
    const int maskKind = static_cast<int>(rng() % 3);  // none, kept, cleaned
    SCOPED_TRACE(Fmt("iter %d %dx%d L %d C %d r %d threads %d pool %d mask %d", iter, p.w, p.h,
                     levels, classes, r, threads, pool != nullptr, maskKind));
    const size_t n = static_cast<size_t>(p.w) * p.h;
    for (size_t i = 0; i < n; ++i) {
      // Runs of equal levels and classes, as quantised depth near edges has.
      p.levels.push_back(i && rng() % 3 == 0 ? p.levels.back() : int(rng() % levels));
      p.features.push_back(i && rng() % 2 ? p.features.back() : int(rng() % classes));
    }
    const auto wt = DyadicWeights(classes, rng);
    float** w = ToFloat2D(wt);
    std::vector<int32_t> got = p.levels;
    if (maskKind == 0) {
      ASSERT_EQ(filterCore(got.data(), p.features.data(), w, p.h, p.w, classes, levels, r, pool,
                           threads),
                0);
    } else {
      for (size_t i = 0; i < n; ++i) p.mask.push_back(rng() % 4 ? 1 : 0);
      std::vector<uint8_t> mask = p.mask;
      ASSERT_EQ(filterCoreWithMask(got.data(), p.features.data(), w, mask.data(), maskKind == 1,
                                   p.h, p.w, classes, levels, r, pool, threads),
                0);
      if (maskKind == 2) DirectObstacles(p.mask, p.w, p.h);
      EXPECT_EQ(mask, p.mask);
    }
    EXPECT_EQ(got, DirectMedian(p, wt, levels, r));
    float2D_release(w);
  }
}

// The quantiser's passes on every vector target equal the scan: zeros of either sign (the scan
// keeps the first), NaN, infinities; every length and start offset up to a few vectors.
TEST_F(Jwmf, QuantiserPassesOnEveryTargetEqualTheScan) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(5);
    const float kSpecial[] = {0.f, -0.f, NAN, INFINITY, -INFINITY, 1e9f, -3.f};
    std::vector<float> buf(80);
    for (int n = 0; n <= 67; ++n) {
      const int offset = n % 5;
      for (float& v : buf) v = rng() % 3 ? float(rng() % 1000) * 0.37f : kSpecial[rng() % 7];
      if (n % 3 == 0) std::fill(buf.begin(), buf.end(), n % 2 ? 0.f : -0.f);  // zero planes
      if (n % 3 == 0 && n > 1) buf[offset + n / 2] = -buf[offset + n / 2];
      const float* d = buf.data() + offset;
      float lo[2], hi[2];
      jw::QuantMinMax(d, n, &lo[0], &hi[0]);
      jw::scalar::QuantMinMax(d, n, &lo[1], &hi[1]);
      EXPECT_EQ(0, memcmp(&lo[0], &lo[1], 4)) << n;
      EXPECT_EQ(0, memcmp(&hi[0], &hi[1], 4)) << n;
      std::vector<int32_t> l32[2] = {std::vector<int32_t>(n), std::vector<int32_t>(n)};
      std::vector<uint8_t> l8[2] = {std::vector<uint8_t>(n), std::vector<uint8_t>(n)};
      jw::QuantLevels(d, n, -100.f, 0.37f, 128, l32[0].data());
      jw::scalar::QuantLevels(d, n, -100.f, 0.37f, 128, l32[1].data());
      jw::QuantLevels(d, n, -100.f, 0.37f, 128, l8[0].data());
      jw::scalar::QuantLevels(d, n, -100.f, 0.37f, 128, l8[1].data());
      EXPECT_EQ(l32[0], l32[1]) << n;
      EXPECT_EQ(l8[0], l8[1]) << n;
    }
  });
}

// The walk on every vector target equals its plain definition exactly, with weights whose sums
// round (so the order of the weighted sums matters) and every storage kind.
TEST_F(Jwmf, WalkOnEveryTargetEqualsThePlainDefinition) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(23);
    // Weights whose sums round and cancel, so that a balance is zero in one order only.
    const float kWeights[] = {1.f, 0.1f, 0.2f, 0.3f, 0.6f, 0.7f, 1e-8f};
    LogCapture log;
    for (int iter = 0; iter < 60; ++iter) {
      const int w = 1 + static_cast<int>(rng() % 40), h = 1 + static_cast<int>(rng() % 30);
      // 8/16-bit counts with up to 64 and up to 256 classes, and the wide kind (many levels).
      const int kind = iter % 6;
      const int classes = kind == 2 ? 64 + int(rng() % 193) : kind == 3 ? 64 : 1 + int(rng() % 63);
      const int levels = kind == 4 ? 1025 + int(rng() % 50) : 2 + int(rng() % 130);
      const int r = kind == 5 ? 8 + int(rng() % 3) : int(rng() % 6);
      SCOPED_TRACE(Fmt("iter %d %dx%d L %d C %d r %d", iter, w, h, levels, classes, r));
      const size_t n = static_cast<size_t>(w) * h;
      std::vector<int32_t> lv(n), ft(n);
      std::vector<uint8_t> mask(n);
      for (size_t i = 0; i < n; ++i) {
        lv[i] = i && rng() % 3 == 0 ? lv[i - 1] : int(rng() % levels);
        ft[i] = i && rng() % 2 ? ft[i - 1] : int(rng() % classes);
        mask[i] = rng() % 4 ? 1 : 0;
      }
      std::vector<std::vector<float>> wt(classes, std::vector<float>(classes, 1.f));
      for (int a = 0; a < classes; ++a) {
        for (int b = a + 1; b < classes; ++b) wt[a][b] = wt[b][a] = kWeights[rng() % 7];
      }
      float** wm = ToFloat2D(wt);
      const uint8_t* m = iter % 2 ? mask.data() : nullptr;
      std::vector<int32_t> vec = lv, ref = lv;
      jw::FilterColumns(0, w, lv.data(), ft.data(), wm, h, w, classes, levels, r, m, vec.data());
      jw::scalar::FilterColumns(0, w, lv.data(), ft.data(), wm, h, w, classes, levels, r, m,
                                ref.data());
      EXPECT_EQ(vec, ref);
      if (levels <= 256 && classes <= 256) {  // the byte planes of the 8-bit driver
        std::vector<uint8_t> lv8(lv.begin(), lv.end()), ft8(ft.begin(), ft.end());
        std::vector<uint8_t> vec8 = lv8, ref8 = lv8;
        jw::FilterColumns(0, w, lv8.data(), ft8.data(), wm, h, w, classes, levels, r, m,
                          vec8.data());
        jw::scalar::FilterColumns(0, w, lv8.data(), ft8.data(), wm, h, w, classes, levels, r, m,
                                  ref8.data());
        EXPECT_EQ(vec8, ref8);
      }
      float2D_release(wm);
    }
  });
}

TEST_F(Jwmf, CoreEdgeCases) {
  LogCapture log;
  // One class: a plain median of the clipped window (lower median for even counts is the
  // level where the balance first turns non-negative).
  {
    const std::vector<int32_t> in = {0, 5, 3, 9, 1, 7, 2, 8, 4};
    std::vector<int32_t> lv = in;
    const std::vector<int32_t> feat(9, 0);
    float** w = ToFloat2D({{1.f}});
    ASSERT_EQ(filterCore(lv.data(), feat.data(), w, 3, 3, 1, 10, 1, nullptr, 1), 0);
    EXPECT_EQ(lv[4], 4);  // all nine: 0 1 2 3 [4] 5 7 8 9
    EXPECT_EQ(lv[0], 1);  // 0 1 | 5 9: the balance first turns non-negative at level 1
    // Negative thread count: nothing runs.
    lv = in;
    ASSERT_EQ(filterCore(lv.data(), feat.data(), w, 3, 3, 1, 10, 1, nullptr, -1), 0);
    EXPECT_EQ(lv, in);
    // Radii at the int limits: the window is the whole image, or empty (every pixel then
    // reports the cut out of range and keeps its level).
    ASSERT_EQ(filterCore(lv.data(), feat.data(), w, 3, 3, 1, 10, INT_MAX, nullptr, 2), 0);
    // The same nine values everywhere, yet the middle row gets 3: moving down from the first
    // row's 4 stops as soon as the balance is no longer positive.
    EXPECT_EQ(lv, (std::vector<int32_t>{4, 4, 4, 3, 3, 3, 4, 4, 4}));
    lv = in;
    log.Clear();
    ASSERT_EQ(filterCore(lv.data(), feat.data(), w, 3, 3, 1, 10, INT_MIN + 3, nullptr, 2), 0);
    EXPECT_EQ(lv, in);
    EXPECT_EQ(log.CountContaining("get filtered value -1 by balance weight "), 9);
    log.Clear();
    // Zero weights: the balance never moves and every pixel reports the cut out of range.
    w[0][0] = 0.f;
    ASSERT_EQ(filterCore(lv.data(), feat.data(), w, 3, 3, 1, 10, 1, nullptr, 1), 0);
    EXPECT_EQ(lv, in);
    EXPECT_EQ(log.CountContaining("get filtered value -1 by balance weight "), 9);
    float2D_release(w);
  }
  // Mask columns: 1,0 loses its pixel; 0,0,1 gets its top two set.
  {
    std::vector<uint8_t> mask = {1, 0, 0, 0, 0, 1, 0, 1};  // 2 columns x 4 rows
    std::vector<int32_t> lv(8, 0);
    const std::vector<int32_t> feat(8, 0);
    float** w = ToFloat2D({{1.f}});
    log.Clear();
    ASSERT_EQ(filterCoreWithMask(lv.data(), feat.data(), w, mask.data(), 0, 4, 2, 1, 4, 1,
                                 nullptr, 1),
              0);
    EXPECT_EQ(mask, (std::vector<uint8_t>{0, 255, 0, 255, 0, 1, 0, 1}));
    EXPECT_EQ(Count(log, kObstacle), 1);
    float2D_release(w);
  }
}

// ---- Quantiser and features ---------------------------------------------------------------

TEST(JwmfStages, QuantiserAgainstDirectComputation) {
  std::mt19937 rng(5);
  LogCapture log;
  for (int iter = 0; iter < 40; ++iter) {
    const int w = 1 + static_cast<int>(rng() % 30), h = 1 + static_cast<int>(rng() % 30);
    const int levels = 2 + static_cast<int>(rng() % 300);
    std::vector<float> depth(w * h);
    for (float& d : depth) d = 0.5f + static_cast<float>(rng() % 100000) * 0.0001f;
    if (iter % 3 == 0) depth[rng() % depth.size()] = NAN;
    std::vector<int32_t> lv(depth.size(), -7);
    std::vector<float> table(levels, -7.f);
    JWMFQuantArgs a = {depth.data(), lv.data(), table.data(), levels, w, h};
    from32FTo32SSimple_MulThread(&a, 0);
    double mx = -1e8, mn = 1e8;
    for (float d : depth) {
      if (!std::isnan(d)) mx = std::max<double>(mx, d), mn = std::min<double>(mn, d);
    }
    const float step = (float(mx) - float(mn)) / float(levels - 1);
    if (step < 0.001f) {
      EXPECT_EQ(Count(log, Flat(step, float(mx), float(mn))), 1);
      EXPECT_EQ(lv, std::vector<int32_t>(depth.size(), -7));
      continue;
    }
    float t = float(mn);
    for (int k = 0; k < levels; ++k, t += step) ASSERT_EQ(table[k], t) << k;
    for (size_t i = 0; i < depth.size(); ++i) {
      const double v = std::isnan(depth[i]) ? 0 : std::trunc((depth[i] - float(mn)) * (1 / step));
      ASSERT_EQ(lv[i], std::clamp<int>(int(v), 0, levels - 1)) << i;
    }
  }
  // A flat plane is refused untouched.
  log.Clear();
  std::vector<float> flat(12, 2.5f);
  std::vector<int32_t> lv(12, -7);
  std::vector<float> table(128, -7.f);
  JWMFQuantArgs a = {flat.data(), lv.data(), table.data(), 128, 4, 3};
  from32FTo32SSimple_MulThread(&a, 0);
  EXPECT_EQ(Count(log, Flat(0.f, 2.5f, 2.5f)), 1);
  EXPECT_EQ(lv, std::vector<int32_t>(12, -7));
  EXPECT_EQ(table, std::vector<float>(128, -7.f));
}

TEST(JwmfStages, GuideFeaturesAndWeights) {
  LogCapture log;
  const std::vector<uint8_t> guide = {0, 3, 4, 200, 255, 17};
  for (int fixed : {0, 1}) {
    std::vector<int32_t> feat(6);
    float** wmap = nullptr;
    int32_t classes = 256, status = 7;
    JWMFImgFeatureArgs a = {guide.data(), feat.data(), &wmap, 3, &classes, 3, 2, fixed, &status};
    getFeatureByImg_MulThread(&a, 1);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(feat, (std::vector<int32_t>{0, 0, 1, 50, 63, 4}));
    EXPECT_EQ(classes, 64);  // the largest class is 63 either way
    for (int p = 0; p < classes; ++p) {
      for (int q = 0; q < classes; ++q) {
        const double d = 4.0 * (p - q);
        ASSERT_NEAR(wmap[p][q], std::exp(-d * d / (2 * 25.5 * 25.5)), 1e-6);
        ASSERT_EQ(wmap[p][q], wmap[q][p]);
      }
    }
    float2D_release(wmap);
  }
  std::vector<int32_t> feat(2);
  float** wmap = nullptr;
  int32_t classes = 256, status = 7;
  const uint8_t dark[2] = {8, 11};
  JWMFImgFeatureArgs a = {dark, feat.data(), &wmap, 0, &classes, 2, 1, 1, &status};
  getFeatureByImg_MulThread(&a, 0);
  EXPECT_EQ(classes, 3);
  EXPECT_EQ(log.Count(3, "ZR481_ALGO",
                      bvtest::Msg("getFeatureByImg", jw::kLineImgCount,
                                  "----------------------------- set feature number to 3")),
            1);
  float2D_release(wmap);
}

TEST(JwmfStages, SegmentRelabellingAgainstTheFirstSegmentOfEachClass) {
  // Segment 1 is within 6 of segment 0, segment 2 within 6 of segment 1 but not of 0: the
  // first-segment rule puts 2 in a class of its own; 3 joins 0's class.
  const std::vector<float> colours = {10, 10, 10, 15, 12, 9, 20, 14, 9, 5.5f, 14, 13, 100, 0, 0};
  const std::vector<int32_t> labels = {0, 1, 2, 3, 4, 4, 9, -1};
  std::vector<int32_t> feat(8, -5);
  float** wmap = nullptr;
  int32_t classes = 0, status = 7;
  JWMFSegFeatureArgs a = {colours.data(), labels.data(), 5, feat.data(), &wmap, &classes, 4, 2,
                          &status};
  LogCapture log;
  getFeatureByMSSeg_Thread(&a, 1);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(classes, 3);
  EXPECT_EQ(feat, (std::vector<int32_t>{0, 0, 1, 0, 2, 2, 0, 0}));
  const double mean0[3] = {(10 + 15 + 5.5) / 3, (10 + 12 + 14) / 3.0, (10 + 9 + 13) / 3.0};
  const double mean1[3] = {20, 14, 9};
  double d2 = 0;
  for (int c = 0; c < 3; ++c) d2 += (mean0[c] - mean1[c]) * (mean0[c] - mean1[c]);
  EXPECT_NEAR(wmap[0][1], std::exp(-d2 * 0.000768935), 1e-6);
  EXPECT_EQ(wmap[1][0], wmap[0][1]);
  EXPECT_EQ(wmap[2][2], 1.f);
  EXPECT_EQ(log.CountContaining("originally input meanshift segment part number 5\n"), 1);
  EXPECT_EQ(log.CountContaining("after reLabel left part number 3\n"), 1);
  float2D_release(wmap);
}

// ---- Drivers ----------------------------------------------------------------------------------

// A depth plane of a few surfaces with noise and a guide that follows them.
struct Scene {
  Scene(int w, int h, uint32_t seed) : w(w), h(h), depth(w * h), guide(w * h), mask(w * h) {
    std::mt19937 rng(seed);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        const bool obj = (x - w / 2) * (x - w / 2) + (y - h / 2) * (y - h / 2) < w * h / 8;
        const int i = y * w + x;
        depth[i] = (obj ? 1.2f : 3.5f) + static_cast<float>(rng() % 100) * 0.004f;
        guide[i] = static_cast<uint8_t>((obj ? 60 : 180) + rng() % 24);
        mask[i] = rng() % 5 ? 1 : 0;
      }
    }
  }
  int w, h;
  std::vector<float> depth;
  std::vector<uint8_t> guide, mask;
};

TEST_F(Jwmf, DriverVariantsAgree) {
  LogCapture log;
  for (int iter = 0; iter < 12; ++iter) {
    Scene s(9 + 4 * iter, 7 + 3 * iter, iter);
    const bool masked = iter % 2, keep = iter % 3 == 0;
    const int threads = 2 + iter % 3, radius = 1 + iter % 4;
    void* pool = iter % 4 ? pools_[threads] : nullptr;
    SCOPED_TRACE(Fmt("iter %d masked %d keep %d threads %d", iter, masked, keep, threads));
    bvtest::AllocTable table;
    std::vector<float> a = s.depth, b = s.depth;
    std::vector<uint8_t> ma = s.mask, mb = s.mask;
    JWMFilterWithImg(a.data(), s.guide.data(), 1, s.w, s.h, masked ? ma.data() : nullptr, radius,
                     keep, pool, threads, table.table());
    std::vector<uint8_t> work(16 * s.depth.size());
    ASSERT_EQ(JWMFilterWithImg2(work.data(), work.data() + s.depth.size(),
                                work.data() + 2 * s.depth.size(), b.data(), s.guide.data(), 1, s.w,
                                s.h, masked ? mb.data() : nullptr, radius, keep, pool, threads,
                                table.table()),
              0);
    EXPECT_EQ(a, b);
    EXPECT_EQ(ma, mb);
    EXPECT_NE(a, s.depth);
    for (size_t i = 0; i < a.size(); ++i) {
      if (masked && ma[i] == 0) {
        ASSERT_EQ(a[i], s.depth[i]) << i;
      }
    }
    // Segment drivers: one segment per guide value.
    std::vector<float> colours(3 * 256);
    for (int g = 0; g < 256; ++g) colours[3 * g] = static_cast<float>(g) * 8.f;
    std::vector<int32_t> labels(s.guide.begin(), s.guide.end());
    a = b = s.depth;
    ma = mb = s.mask;
    JWMFilter(a.data(), s.w, s.h, masked ? ma.data() : nullptr, keep, colours.data(),
              labels.data(), 256, pool, threads, table.table());
    JWMFFilter(b.data(), s.w, s.h, masked ? mb.data() : nullptr, keep, colours.data(),
               labels.data(), 256, 5, pool, threads);
    EXPECT_EQ(a, b);
    EXPECT_NE(a, s.depth);
    // Mask-area variants.
    a = b = s.depth;
    ma = mb = s.mask;
    std::vector<float> fwork(4 * s.depth.size());
    JWMFFilterImage_MaskArea(a.data(), s.guide.data(), 1, s.w, s.h, ma.data(), radius, keep, pool,
                             threads, table.table(), fwork.data());
    ASSERT_EQ(JWMFFilterImage_MaskArea2(b.data(), s.guide.data(), 1, s.w, s.h, mb.data(), radius,
                                        keep, pool, threads, table.table(), work.data()),
              0);
    EXPECT_EQ(a, b);
    EXPECT_EQ(table.live(), 0);
    for (const std::string& tag : table.tags()) EXPECT_EQ(tag, "OPT_BORDER_FILTER");
  }
  EXPECT_EQ(Count(log, kImg2Many), 0);
}

TEST_F(Jwmf, DriversLeaveFlatPlanesAndZeroMasksAlone) {
  LogCapture log;
  Scene s(21, 17, 3);
  bvtest::AllocTable table;
  std::vector<float> flat(s.depth.size(), 2.0f), d = flat;
  JWMFilterWithImg(d.data(), s.guide.data(), 1, s.w, s.h, nullptr, 2, 0, pools_[2], 2,
                   table.table());
  EXPECT_EQ(d, flat);
  EXPECT_EQ(Count(log, Flat(0.f, 2.f, 2.f)), 1);
  std::vector<uint8_t> zeros(s.depth.size(), 0);
  d = s.depth;
  std::vector<float> work(4 * d.size());
  JWMFFilterImage_MaskArea(d.data(), s.guide.data(), 1, s.w, s.h, zeros.data(), 3, 0, pools_[2],
                           2, table.table(), work.data());
  EXPECT_EQ(d, s.depth);
  EXPECT_EQ(table.live(), 0);
}

TEST_F(Jwmf, FailuresAreLoggedLeakFreeAndLeaveTheDepthUnwritten) {
  Scene s(15, 11, 9);
  // Each of the three table allocations.
  for (int k = 1; k <= 3; ++k) {
    LogCapture log;
    bvtest::AllocTable table;
    table.FailAt(k);
    std::vector<float> d = s.depth;
    JWMFilterWithImg(d.data(), s.guide.data(), 1, s.w, s.h, nullptr, 2, 0, pools_[2], 2,
                     table.table());
    EXPECT_EQ(Count(log, kAllocImg), 1);
    std::vector<int32_t> labels(s.guide.begin(), s.guide.end());
    std::vector<float> colours(3 * 256, 1.f);
    table.FailAt(k);
    JWMFilter(d.data(), s.w, s.h, nullptr, 0, colours.data(), labels.data(), 256, pools_[2], 2,
              table.table());
    EXPECT_EQ(Count(log, kAllocSeg), 1);
    EXPECT_EQ(d, s.depth);
    EXPECT_EQ(table.live(), 0);
  }
  // Every library allocation of every driver, one at a time.
  std::vector<uint8_t> work(16 * s.depth.size());
  std::vector<int32_t> labels(s.guide.begin(), s.guide.end());
  std::vector<float> colours(3 * 256);
  for (int g = 0; g < 256; ++g) colours[3 * g + 1] = static_cast<float>(g);
  bvtest::AllocTable table;
  for (int variant = 0; variant < 4; ++variant) {
    const int runs = bvtest::ForEachMallocFailure([&](int run) {
      LogCapture log;
      std::vector<float> d = s.depth;
      std::vector<uint8_t> mask = s.mask;
      switch (variant) {
        case 0:
          JWMFilterWithImg(d.data(), s.guide.data(), 1, s.w, s.h, nullptr, 2, 0, pools_[2], 2,
                           table.table());
          break;
        case 1:
          JWMFilterWithImg(d.data(), s.guide.data(), 1, s.w, s.h, mask.data(), 2, 1, nullptr, 3,
                           table.table());
          break;
        case 2:
          JWMFFilter(d.data(), s.w, s.h, nullptr, 0, colours.data(), labels.data(), 256, 3,
                     pools_[2], 2);
          break;
        default:
          JWMFilterWithImg2(work.data(), work.data() + d.size(), work.data() + 2 * d.size(),
                            d.data(), s.guide.data(), 1, s.w, s.h, mask.data(), 2, 0, pools_[3],
                            3, table.table());
      }
      // A failed stage before the median leaves the depth alone; a failed worker leaves its
      // columns unfiltered and the rest is written.
      const bool early = Count(log, kAllocFf) + Count(log, kImgWmap) + Count(log, kSegMalloc) +
                             Count(log, kSegWmap) + Count(log, kCopyFail) >
                         0;
      if (early) {
        EXPECT_EQ(d, s.depth) << "run " << run;
      }
      if (Count(log, kImgWmap)) {
        EXPECT_EQ(log.CountContaining("getFeatureByImg failed!!iRet -1\n"), 1);
      }
      if (Count(log, kCopyFail)) {
        EXPECT_EQ(log.CountContaining("] filterCore failed!!"), 2);
      }
      if (variant == 0) {
        // Weight map (2), the output copy, then three per median worker.
        EXPECT_EQ(Count(log, run <= 2 ? kImgWmap : run == 3 ? kCopyFail : kCoreMalloc),
                  run <= 9 ? 1 : 0);
      }
    });
    EXPECT_GE(runs, 3) << variant;
  }
  EXPECT_EQ(table.live(), 0);
}

TEST_F(Jwmf, RefusalsOfTheWorkBufferDriver) {
  LogCapture log;
  Scene s(9, 9, 1);
  bvtest::AllocTable table;
  std::vector<uint8_t> work(16 * s.depth.size());
  std::vector<float> d = s.depth;
  EXPECT_EQ(JWMFFilterImage_MaskArea2(d.data(), s.guide.data(), 1, s.w, s.h, s.mask.data(), 2, 1,
                                      nullptr, 1, table.table(), work.data()),
            -1);
  EXPECT_EQ(Count(log, kImg2Few), 1);
  EXPECT_EQ(Count(log, kMaskArea2), 1);
  EXPECT_EQ(d, s.depth);
  EXPECT_EQ(JWMFilterWithImg2(work.data(), work.data() + 81, work.data() + 162, d.data(),
                              s.guide.data(), 1, s.w, s.h, nullptr, 2, 1, pools_[4], 6,
                              table.table()),
            0);
  EXPECT_EQ(Count(log, kImg2Many), 1);
  table.FailAt(1);
  d = s.depth;
  EXPECT_EQ(JWMFilterWithImg2(work.data(), work.data() + 81, work.data() + 162, d.data(),
                              s.guide.data(), 1, s.w, s.h, nullptr, 2, 1, pools_[2], 2,
                              table.table()),
            -1);
  EXPECT_EQ(Count(log, kAllocImg2), 1);
  EXPECT_EQ(d, s.depth);
  EXPECT_EQ(table.live(), 0);
  // Empty images and a null allocator go through the logged failure paths.
  JWMFilterWithImg(d.data(), s.guide.data(), 1, 0, 5, nullptr, 2, 0, nullptr, 1, table.table());
  JWMFilterWithImg(d.data(), s.guide.data(), 1, s.w, s.h, nullptr, 2, 0, nullptr, 1, nullptr);
  EXPECT_EQ(d, s.depth);
  EXPECT_EQ(table.live(), 0);
}

// ---- Clean-up steps -----------------------------------------------------------------------

TEST(JwmfCleanup, Median3x3InPlaceAndSnapping) {
  std::mt19937 rng(8);
  for (int iter = 0; iter < 30; ++iter) {
    const int w = 1 + static_cast<int>(rng() % 14), h = 1 + static_cast<int>(rng() % 14);
    std::vector<float> d(w * h);
    std::vector<uint8_t> m(w * h);
    for (float& v : d) v = static_cast<float>(rng() % 50) * 0.1f - 0.5f;
    for (uint8_t& v : m) v = rng() % 3 ? 1 : 0;
    // medianFilter_3x3: in raster order, reading values already written.
    std::vector<float> got = d, want = d;
    EXPECT_EQ(medianFilter_3x3(got.data(), w, h, iter % 5 ? m.data() : nullptr), got.data());
    for (int y = 1; y + 1 < h; ++y) {
      for (int x = 1; x + 1 < w; ++x) {
        if (iter % 5 && !m[y * w + x]) continue;
        std::vector<float> v;
        for (int dy = -1; dy <= 1; ++dy)
          for (int dx = -1; dx <= 1; ++dx) v.push_back(want[(y + dy) * w + x + dx]);
        std::sort(v.begin(), v.end());
        want[y * w + x] = v[4];
      }
    }
    ASSERT_EQ(got, want);
    // optimzieJWMFResult: nearest unmasked value in each direction, strictly closest wins.
    std::vector<float> work(4 * w * h, 123.f);
    got = want = d;
    optimzieJWMFResult(got.data(), m.data(), w, h, work.data());
    const int dx[4] = {-1, 1, 0, 0}, dy[4] = {0, 0, -1, 1};
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        if (!m[y * w + x]) continue;
        const float v = d[y * w + x];
        float cand[4];
        for (int k = 0; k < 4; ++k) {
          cand[k] = -1.f;
          for (int xx = x + dx[k], yy = y + dy[k]; xx >= 0 && yy >= 0 && xx < w && yy < h;
               xx += dx[k], yy += dy[k]) {
            if (!m[yy * w + xx]) {
              cand[k] = d[yy * w + xx] > 0 ? d[yy * w + xx] : -1.f;
              break;
            }
          }
        }
        for (int k = 0; k < 4; ++k) {
          bool wins = cand[k] > 0;
          for (int j = 0; j < 4; ++j) {
            if (j != k && !(std::fabs(v - cand[k]) < std::fabs(v - cand[j]))) wins = false;
          }
          if (!wins) continue;
          if (std::fabs(cand[k] - v) <= 0.2f * v) want[y * w + x] = cand[k];
          break;
        }
      }
    }
    ASSERT_EQ(got, want) << iter;
  }
}

}  // namespace
