// The weighted median against a direct formulation (window recounted per pixel), its vector
// passes against scalar, the drivers' variants against each other, and every failure path
// leak-free. The stages and clean-up steps on their own are in the golden digests.
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
const Message kCoreMalloc = {6, "filterCore_multiThread", jw::kLineCoreMalloc,
                             "filterCore_multiThread malloced memory failed!!\n"};
const Message kCopyFail = {6, "filterCore", jw::kLineFilterCoreCopy, "filterCore failed!!\n"};
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
  LogCapture log;
  int cleaned = 0;  // obstacle lines expected
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
    const int threads = static_cast<int>(rng() % 6) - 1;  // 0 runs one worker, -1 none
    void* pool = rng() % 3 ? pools_[std::max(threads, 1)] : nullptr;
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
    for (size_t i = 0; i < n && maskKind; ++i) p.mask.push_back(rng() % 4 ? 1 : 0);
    const std::vector<uint8_t> mask0 = p.mask;
    if (maskKind == 0) {
      ASSERT_EQ(filterCore(got.data(), p.features.data(), w, p.h, p.w, classes, levels, r, pool,
                           threads),
                0);
    } else {
      std::vector<uint8_t> mask = p.mask;
      ASSERT_EQ(filterCoreWithMask(got.data(), p.features.data(), w, mask.data(), maskKind == 1,
                                   p.h, p.w, classes, levels, r, pool, threads),
                0);
      if (maskKind == 2) DirectObstacles(p.mask, p.w, p.h), ++cleaned;
      EXPECT_EQ(mask, p.mask);
    }
    EXPECT_EQ(got, threads < 0 ? p.levels : DirectMedian(p, wt, levels, r));
    if (classes < 256) {  // the drivers' byte median, also on a pool too small for its workers
      void* small = pool != nullptr ? pools_[1] : nullptr;
      std::vector<uint8_t> lv8(p.levels.begin(), p.levels.end()), m8 = mask0, m32 = mask0;
      const std::vector<uint8_t> ft8(p.features.begin(), p.features.end());
      uint8_t* mp = maskKind ? m8.data() : nullptr;
      std::vector<int32_t> ref = p.levels;
      filterCoreWithMask(ref.data(), p.features.data(), w, maskKind ? m32.data() : nullptr,
                         maskKind == 1, p.h, p.w, classes, levels, r, small, threads);
      uint8_t* out = jw::MedianBytes(lv8.data(), ft8.data(), w, mp, maskKind == 1, p.h, p.w,
                                     classes, levels, r, small, threads);
      EXPECT_EQ(std::vector<int32_t>(out, out + n), ref);
      EXPECT_EQ(m8, m32);
      safeDelete(out);
      cleaned += maskKind == 2 ? 2 : 0;
    }
    float2D_release(w);
  }
  EXPECT_EQ(Count(log, kObstacle), cleaned);
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
      if (levels < 250 && classes < 250) {  // the byte planes of the 8-bit driver
        if (iter % 4 == 1) lv[rng() % n] = levels + 5, ft[rng() % n] = classes + 5;  // clamped
        std::vector<uint8_t> lv8(lv.begin(), lv.end()), ft8(ft.begin(), ft.end()), vec8(n), ref8(n);
        jw::FilterColumns(0, w, lv8.data(), ft8.data(), wm, h, w, classes, levels, r, m,
                          vec8.data());
        jw::scalar::FilterColumns(0, w, lv8.data(), ft8.data(), wm, h, w, classes, levels, r, m,
                                  ref8.data());
        EXPECT_EQ(vec8, ref8);
        std::vector<int32_t> wide = lv;
        jw::FilterColumns(0, w, lv.data(), ft.data(), wm, h, w, classes, levels, r, m, wide.data());
        EXPECT_EQ(std::vector<int32_t>(vec8.begin(), vec8.end()), wide);
      }
      float2D_release(wm);
    }
  });
}

TEST_F(Jwmf, CoreEdgeCases) {
  LogCapture log;
  const std::vector<int32_t> in = {0, 5, 3, 9, 1, 7, 2, 8, 4}, feat(9, 0);
  std::vector<int32_t> lv = in;
  float** w = ToFloat2D({{1.f}});
  // Radii at the int limits: the window is the whole image, or empty. The same nine values
  // everywhere, yet the middle row gets 3: moving down from the first row's 4 stops as soon as
  // the balance is no longer positive.
  ASSERT_EQ(filterCore(lv.data(), feat.data(), w, 3, 3, 1, 10, INT_MAX, nullptr, 2), 0);
  EXPECT_EQ(lv, (std::vector<int32_t>{4, 4, 4, 3, 3, 3, 4, 4, 4}));
  // An empty window, then zero weights: the balance never moves, every pixel reports the cut
  // out of range and keeps its level.
  for (int radius : {INT_MIN + 3, 1}) {
    lv.assign(in.begin(), in.end());
    log.Clear();
    w[0][0] = radius == 1 ? 0.f : 1.f;
    ASSERT_EQ(filterCore(lv.data(), feat.data(), w, 3, 3, 1, 10, radius, nullptr, 2), 0);
    EXPECT_EQ(lv, in);
    EXPECT_EQ(log.CountContaining("get filtered value -1 by balance weight "), 9);
  }
  float2D_release(w);
}

// ---- Drivers ----------------------------------------------------------------------------------

// A depth plane of a few surfaces with noise and a guide that follows them; the segment drivers
// get one segment per guide value.
struct Scene {
  Scene(int w, int h, uint32_t seed)
      : w(w), h(h), depth(w * h), guide(w * h), mask(w * h), colours(3 * 256), work(16 * w * h),
        fwork(4 * w * h) {
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
    for (int g = 0; g < 256; ++g) colours[3 * g] = static_cast<float>(g) * 8.f;
    labels.assign(guide.begin(), guide.end());
  }
  // Driver k: JWMFilterWithImg, JWMFilterWithImg2, JWMFilter, JWMFFilter (radius 5),
  // JWMFFilterImage_MaskArea, JWMFFilterImage_MaskArea2. Their status, or 0.
  int Run(int k, float* d, uint8_t* m, int keep, int radius, void* pool, int threads,
          const vta_algo_mem_allocator_t* t) {
    const size_t n = depth.size();
    uint8_t* wk = work.data();
    switch (k) {
      case 0: JWMFilterWithImg(d, guide.data(), 1, w, h, m, radius, keep, pool, threads, t); break;
      case 1:
        return JWMFilterWithImg2(wk, wk + n, wk + 2 * n, d, guide.data(), 1, w, h, m, radius, keep,
                                 pool, threads, t);
      case 2:
        JWMFilter(d, w, h, m, keep, colours.data(), labels.data(), 256, pool, threads, t);
        break;
      case 3:
        JWMFFilter(d, w, h, m, keep, colours.data(), labels.data(), 256, 5, pool, threads);
        break;
      case 4:
        JWMFFilterImage_MaskArea(d, guide.data(), 1, w, h, m, radius, keep, pool, threads, t,
                                 fwork.data());
        break;
      default:
        return JWMFFilterImage_MaskArea2(d, guide.data(), 1, w, h, m, radius, keep, pool, threads,
                                         t, wk);
    }
    return 0;
  }
  int w, h;
  std::vector<float> depth;
  std::vector<uint8_t> guide, mask;
  std::vector<float> colours;
  std::vector<int32_t> labels;
  std::vector<uint8_t> work;
  std::vector<float> fwork;
};

// Pairs of drivers that must agree (guide, segments, mask area); the unmasked pixels stay.
TEST_F(Jwmf, DriverVariantsAgree) {
  LogCapture log;
  for (int iter = 0; iter < 12; ++iter) {
    Scene s(9 + 4 * iter, 7 + 3 * iter, iter);
    const bool masked = iter % 2, keep = iter % 3 == 0;
    const int threads = 2 + iter % 3, radius = 1 + iter % 4;
    void* pool = iter % 4 ? pools_[threads] : nullptr;
    SCOPED_TRACE(Fmt("iter %d masked %d keep %d threads %d", iter, masked, keep, threads));
    bvtest::AllocTable table;
    for (int k = 0; k < 6; k += 2) {
      std::vector<float> a = s.depth, b = s.depth;
      std::vector<uint8_t> ma = s.mask, mb = s.mask;
      const bool m = masked || k == 4;
      s.Run(k, a.data(), m ? ma.data() : nullptr, keep, radius, pool, threads, table.table());
      ASSERT_EQ(s.Run(k + 1, b.data(), m ? mb.data() : nullptr, keep, radius, pool, threads,
                      table.table()),
                0);
      EXPECT_EQ(a, b) << k;
      EXPECT_EQ(ma, mb) << k;
      EXPECT_NE(a, s.depth) << k;
      for (size_t i = 0; i < a.size() && masked && k < 4; ++i) {
        ASSERT_EQ(a[i], ma[i] ? a[i] : s.depth[i]) << i;
      }
    }
    EXPECT_EQ(table.live(), 0);
    for (const std::string& tag : table.tags()) EXPECT_EQ(tag, "OPT_BORDER_FILTER");
  }
  EXPECT_EQ(Count(log, kImg2Many), 0);
  // A flat plane comes back unchanged (and is logged); so does any plane under a mask of zeros.
  Scene s(21, 17, 3);
  bvtest::AllocTable table;
  std::vector<float> flat(s.depth.size(), 2.0f), d = flat;
  s.Run(0, d.data(), nullptr, 0, 2, pools_[2], 2, table.table());
  EXPECT_EQ(d, flat);
  EXPECT_EQ(Count(log, Flat(0.f, 2.f, 2.f)), 1);
  std::vector<uint8_t> zeros(s.depth.size(), 0);
  d = s.depth;
  s.Run(4, d.data(), zeros.data(), 0, 3, pools_[2], 2, table.table());
  EXPECT_EQ(d, s.depth);
  EXPECT_EQ(table.live(), 0);
}

TEST_F(Jwmf, FailuresAreLoggedLeakFreeAndLeaveTheDepthUnwritten) {
  Scene s(15, 11, 9);
  // Each of the three table allocations.
  for (int k = 1; k <= 3; ++k) {
    LogCapture log;
    bvtest::AllocTable table;
    std::vector<float> d = s.depth;
    table.FailAt(k);
    s.Run(0, d.data(), nullptr, 0, 2, pools_[2], 2, table.table());
    EXPECT_EQ(Count(log, kAllocImg), 1);
    table.FailAt(k);
    s.Run(2, d.data(), nullptr, 0, 2, pools_[2], 2, table.table());
    EXPECT_EQ(Count(log, kAllocSeg), 1);
    EXPECT_EQ(d, s.depth);
    EXPECT_EQ(table.live(), 0);
  }
  // Every library allocation of every driver, one at a time.
  bvtest::AllocTable table;
  for (int variant = 0; variant < 4; ++variant) {
    const int runs = bvtest::ForEachMallocFailure([&](int run) {
      LogCapture log;
      std::vector<float> d = s.depth;
      std::vector<uint8_t> mask = s.mask;
      const int k[] = {0, 0, 3, 1};
      s.Run(k[variant], d.data(), variant % 2 ? mask.data() : nullptr, variant == 1, 2,
            variant == 1 ? nullptr : pools_[2 + variant / 3], 2 + variant % 2, table.table());
      // A failed stage before the median leaves the depth alone; a failed worker leaves its
      // columns unfiltered and the rest is written.
      if (Count(log, kAllocFf) + Count(log, kImgWmap) + Count(log, kSegMalloc) +
          Count(log, kSegWmap) + Count(log, kCopyFail)) {
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
  // The work-buffer drivers' refusals: too few threads, too many (capped), no level table.
  LogCapture log;
  std::vector<float> d = s.depth;
  EXPECT_EQ(s.Run(5, d.data(), s.mask.data(), 1, 2, nullptr, 1, table.table()), -1);
  EXPECT_EQ(Count(log, kImg2Few), 1);
  EXPECT_EQ(Count(log, kMaskArea2), 1);
  EXPECT_EQ(d, s.depth);
  EXPECT_EQ(s.Run(1, d.data(), nullptr, 1, 2, pools_[4], 6, table.table()), 0);
  EXPECT_EQ(Count(log, kImg2Many), 1);
  table.FailAt(1);
  d = s.depth;
  EXPECT_EQ(s.Run(1, d.data(), nullptr, 1, 2, pools_[2], 2, table.table()), -1);
  EXPECT_EQ(Count(log, kAllocImg2), 1);
  // Empty images and a null allocator go through the logged failure paths.
  JWMFilterWithImg(d.data(), s.guide.data(), 1, 0, 5, nullptr, 2, 0, nullptr, 1, table.table());
  s.Run(0, d.data(), nullptr, 0, 2, nullptr, 1, nullptr);
  EXPECT_EQ(d, s.depth);
  EXPECT_EQ(table.live(), 0);
}

}  // namespace
