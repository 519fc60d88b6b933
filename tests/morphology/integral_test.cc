// Integral-image erosion/dilation and the sliding-counter engine with opening and closing.
#include <gtest/gtest.h>
#include <stdint.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "bivista/morphology.h"
#include "morph_test_util.h"
#include "support/alloc_table.h"
#include "support/platform_capture.h"

namespace {

using morphtest::Bytes;
using morphtest::kKinds;
using morphtest::kSizes;
using morphtest::MakeMask;

const char kAlgo[] = "ZR481_ALGO";
const char kOpt[] = "Erosion_Dilation_Function_opt";

// Window of radius r clipped to rows/columns 1.., decided on the plain sum.
Bytes DirectBox(const Bytes& m, int w, int h, int k, bool erode) {
  const int r = k / 2;
  Bytes out(m.size());
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      long sum = 0, count = 0;
      for (int j = std::max(1, y - r); j <= std::min(h - 1, y + r); ++j) {
        for (int i = std::max(1, x - r); i <= std::min(w - 1, x + r); ++i) {
          sum += m[j * w + i];
          ++count;
        }
      }
      out[y * w + x] = erode ? sum == count : sum > 0;
    }
  }
  return out;
}

// Per column, the count of v in the clipped rows modulo 256; v spreads where any is non-zero.
Bytes DirectSpread(const Bytes& m, int w, int h, int kW, int kH, uint8_t v) {
  Bytes out(m);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      int s = 0;
      for (int i = std::max(0, x - kW); i <= std::min(w - 1, x + kW); ++i) {
        int c = 0;
        for (int j = std::max(0, y - kH); j <= std::min(h - 1, y + kH); ++j) c += m[j * w + i] == v;
        s += c % 256;
      }
      if (s != 0) out[y * w + x] = v;
    }
  }
  return out;
}

TEST(ImIntegral, MatchesInclusiveSums) {
  std::mt19937 rng(11);
  for (const auto& s : kSizes) {
    const int w = s[0], h = s[1];
    const Bytes m = morphtest::RandomBytes(w * h, rng);
    std::vector<unsigned> I(w * h, 7);
    ImIntegral(m.data(), I.data(), w, h);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        unsigned sum = 0;
        for (int j = 0; j <= y; ++j) {
          for (int i = 0; i <= x; ++i) sum += m[j * w + i];
        }
        ASSERT_EQ(I[y * w + x], sum) << w << "x" << h << " at " << x << "," << y;
      }
    }
  }
}

TEST(ImErodeDilate, MatchDirectWindowsWithRowAndColumnZeroLeftOut) {
  std::mt19937 rng(12);
  bvtest::AllocTable host;
  for (const auto& s : kSizes) {
    const int w = s[0], h = s[1];
    for (int kind = 0; kind < 4; ++kind) {
      // Kind 3: 255 as foreground, which only an empty window keeps as "all set".
      const Bytes m = MakeMask(w, h, kKinds[kind % 3], rng, kind == 3 ? 255 : 1);
      for (int k : {1, 2, 3, 4, 5, 7, 9, 41}) {
        Bytes e(w * h, 9), d(w * h, 9);
        ASSERT_EQ(ImErode(host.table(), m.data(), e.data(), w, h, k), 0);
        ASSERT_EQ(ImDilate(host.table(), m.data(), d.data(), w, h, k), 0);
        EXPECT_EQ(e, DirectBox(m, w, h, k, true)) << w << "x" << h << " k=" << k;
        EXPECT_EQ(d, DirectBox(m, w, h, k, false)) << w << "x" << h << " k=" << k;
      }
    }
  }
  EXPECT_EQ(host.live(), 0);
}

TEST(ImErodeDilate, UseTheCallersTableAndFailCleanly) {
  std::mt19937 rng(13);
  const int w = 21, h = 13;
  const Bytes m = MakeMask(w, h, morphtest::Kind::kBlobby, rng);
  for (int erode = 0; erode <= 1; ++erode) {
    bvtest::AllocTable host;
    bvtest::LogCapture log;
    Bytes out(w * h, 0xAB);
    {
      bvtest::MallocWatch watch;
      const int rc = erode ? ImErode(host.table(), m.data(), out.data(), w, h, 5)
                           : ImDilate(host.table(), m.data(), out.data(), w, h, 5);
      EXPECT_EQ(rc, 0);
      EXPECT_EQ(watch.calls(), 0);
    }
    EXPECT_EQ(host.mallocs(), 1);
    EXPECT_EQ(host.frees(), 1);
    EXPECT_EQ(host.tags(), std::vector<std::string>{"MORPHOLOGIC"});
    host.FailAt(1);
    Bytes untouched(w * h, 0xCD);
    const int rc = erode ? ImErode(host.table(), m.data(), untouched.data(), w, h, 5)
                         : ImDilate(host.table(), m.data(), untouched.data(), w, h, 5);
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(untouched, Bytes(w * h, 0xCD));
    EXPECT_EQ(host.live(), 0);
    EXPECT_TRUE(log.Lines().empty());
  }
}

TEST(ErosionDilationOpt, MatchesDirectCountsOnMasksAndGreyImages) {
  std::mt19937 rng(14);
  for (const auto& s : kSizes) {
    const int w = s[0], h = s[1];
    for (auto kind : kKinds) {
      Bytes m = MakeMask(w, h, kind, rng);
      if (kind == morphtest::Kind::kDense) m = morphtest::RandomBytes(w * h, rng, 0, 3);
      for (int kW : {0, 1, 2, 4, 7, 20}) {
        for (int kH : {0, 1, 3, 5}) {
          if (2 * kW >= w || 2 * kH >= h) continue;
          for (uint8_t v : {0, 1}) {
            Bytes img = m;
            ASSERT_EQ(Erosion_Dilation_Function_opt(img.data(), w, h, kW, kH, v), 0);
            EXPECT_EQ(img, DirectSpread(m, w, h, kW, kH, v))
                << w << "x" << h << " kW=" << kW << " kH=" << kH << " v=" << int(v);
          }
        }
      }
    }
  }
}

TEST(ErosionDilationOpt, ColumnCountersWrapAt256) {
  const int w = 3, h = 257, kH = 128;
  Bytes m(w * h, 1);
  m[128 * w + 1] = 0;  // the middle column holds 256 ones around its centre pixel
  Bytes img = m;
  ASSERT_EQ(Erosion_Dilation_Function_opt(img.data(), w, h, 0, kH, 1), 0);
  EXPECT_EQ(img[128 * w + 1], 0);
  EXPECT_EQ(img[127 * w + 1], 1);
  EXPECT_EQ(img[129 * w + 1], 1);
  EXPECT_EQ(img, DirectSpread(m, w, h, 0, kH, 1));
  std::mt19937 rng(15);
  Bytes dense = MakeMask(9, 300, morphtest::Kind::kDense, rng);
  for (int x = 0; x < 9; x += 2) {
    for (int y = 0; y < 300; ++y) dense[y * 9 + x] = y % 97 != 0;
  }
  for (int kH2 : {128, 129, 140}) {
    img = dense;
    ASSERT_EQ(Erosion_Dilation_Function_opt(img.data(), 9, 300, 1, kH2, 1), 0);
    EXPECT_EQ(img, DirectSpread(dense, 9, 300, 1, kH2, 1)) << kH2;
  }
}

TEST(ErosionDilationOpt, RefusesRadiiWithMessageAndLeavesImage) {
  struct Case {
    int w, h, kW, kH;
  } cases[] = {{600, 4, 256, 0}, {4, 600, 0, 256}, {10, 5, 5, 0}, {10, 5, 0, 3}, {10, 6, -1, 0}};
  std::mt19937 rng(16);
  for (const auto& c : cases) {
    bvtest::LogCapture log;
    const Bytes m = MakeMask(c.w, c.h, morphtest::Kind::kSparse, rng);
    Bytes img = m;
    bvtest::MallocWatch watch;
    EXPECT_EQ(Erosion_Dilation_Function_opt(img.data(), c.w, c.h, c.kW, c.kH, 1), -1);
    EXPECT_EQ(watch.calls(), 0);
    EXPECT_EQ(img, m);
    const std::string text = "Unsupport Radius: kWidth[" + std::to_string(c.kW) + "] kHeight[" +
                             std::to_string(c.kH) + "]";
    EXPECT_EQ(bvtest::CountMsg(log, 5, kAlgo, kOpt, text, 340), 1) << text;
    EXPECT_EQ(log.Lines().size(), 1u);
  }
  Bytes ok(10 * 5, 0);
  EXPECT_EQ(Erosion_Dilation_Function_opt(ok.data(), 10, 5, 4, 2, 1), 0);
}

TEST(ErosionDilationOpt, ReportsSafeNewFailure) {
  bvtest::LogCapture log;
  Bytes img(12 * 7, 1);
  img[30] = 0;
  const Bytes before = img;
  {
    bvtest::MallocWatch watch;
    watch.FailAt(1);
    EXPECT_EQ(Erosion_Dilation_Function_opt(img.data(), 12, 7, 1, 1, 0), -1);
    EXPECT_EQ(watch.live(), 0);
  }
  EXPECT_EQ(img, before);
  EXPECT_EQ(bvtest::CountMsg(log, 5, kAlgo, kOpt, std::string(kOpt) + " safeNew ERROR!!!", 346), 1);
}

TEST(ImOpenClose, ComposeTheTwoPassesAndHandleEdgeCases) {
  std::mt19937 rng(17);
  bvtest::AllocTable host;
  for (const auto& s : kSizes) {
    const int w = s[0], h = s[1];
    for (int k : {1, 2, 3, 5}) {
      const int r = k / 2;
      if (2 * r >= w || 2 * r >= h) continue;
      const Bytes m = MakeMask(w, h, morphtest::Kind::kBlobby, rng);
      Bytes open(w * h), close(w * h);
      ASSERT_EQ(ImOpen(host.table(), m.data(), open.data(), w, h, k), 0);
      ASSERT_EQ(ImClose(nullptr, m.data(), close.data(), w, h, k), 0);
      const Bytes eroded = DirectSpread(m, w, h, r, r, 0);
      const Bytes dilated = DirectSpread(m, w, h, r, r, 1);
      EXPECT_EQ(open, DirectSpread(eroded, w, h, r, r, 1));
      EXPECT_EQ(close, DirectSpread(dilated, w, h, r, r, 0));
    }
  }
  EXPECT_EQ(host.mallocs(), 0);
  const int w = 7, h = 7;
  Bytes dot(w * h, 0), hole(w * h, 1), out(w * h);
  dot[3 * w + 3] = 1;
  hole[3 * w + 3] = 0;
  ASSERT_EQ(ImOpen(nullptr, dot.data(), out.data(), w, h, 3), 0);
  EXPECT_EQ(out, Bytes(w * h, 0));
  ASSERT_EQ(ImClose(nullptr, hole.data(), out.data(), w, h, 3), 0);
  EXPECT_EQ(out, Bytes(w * h, 1));
}

TEST(ImOpenClose, ReportFailingPassesAndKeepTheIntermediate) {
  std::mt19937 rng(18);
  const int w = 15, h = 9;
  const Bytes m = MakeMask(w, h, morphtest::Kind::kBlobby, rng);
  const Bytes eroded = DirectSpread(m, w, h, 1, 1, 0);
  const Bytes dilated = DirectSpread(m, w, h, 1, 1, 1);
  struct Case {
    bool open;
    int k, failAt, line;
    const Bytes* left;
  } cases[] = {{true, 19, 0, 601, &m}, {true, 3, 2, 606, &eroded},
               {false, 19, 0, 627, &m}, {false, 3, 2, 633, &dilated}};
  for (const auto& c : cases) {
    bvtest::LogCapture log;
    Bytes out(w * h, 0x5A);
    int rc;
    long live;
    {
      bvtest::MallocWatch watch;
      watch.FailAt(c.failAt);
      rc = c.open ? ImOpen(nullptr, m.data(), out.data(), w, h, c.k)
                  : ImClose(nullptr, m.data(), out.data(), w, h, c.k);
      live = watch.live();
    }
    const char* func = c.open ? "ImOpen" : "ImClose";
    const std::string text = "Erosion_Dilation_Function_opt Run Failed";
    EXPECT_EQ(bvtest::CountMsg(log, 5, kAlgo, func, text, c.line), 1) << func << c.line;
    // The result is the logger's own: the length of the formatted line.
    EXPECT_EQ(rc, static_cast<int>(bvtest::Msg(func, c.line, text).size()));
    EXPECT_EQ(out, *c.left) << func << c.line;
    EXPECT_EQ(live, 0);
  }
}

}  // namespace
