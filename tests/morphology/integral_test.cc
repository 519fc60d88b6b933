// The box engines against direct windows: integral-image erosion/dilation, the sliding-counter
// engine with opening and closing, and the brute-force and separable legacy routines.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "bivista/morphology.h"
#include "morph_test_util.h"
#include "support/alloc_table.h"
#include "support/platform_capture.h"

namespace {

using namespace morphtest;

const char kAlgo[] = "ZR481_ALGO";
const char kOpt[] = "Erosion_Dilation_Function_opt";

// Window of radius k/2 clipped to rows/columns 1.., decided on the plain sum.
Bytes DirectBox(const Bytes& m, int w, int h, int k, bool erode) {
  Bytes out(m.size());
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      long sum = 0, count = 0;
      for (int j = std::max(1, y - k / 2); j <= std::min(h - 1, y + k / 2); ++j) {
        for (int i = std::max(1, x - k / 2); i <= std::min(w - 1, x + k / 2); ++i, ++count) sum += m[j * w + i];
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

// Also: only the caller's table allocates, once per call under its tag, and nothing is logged.
TEST(ImErodeDilate, IntegralAndWindowsMatchDirectSumsWithRowAndColumnZeroLeftOut) {
  std::mt19937 rng(12);
  bvtest::AllocTable host;
  bvtest::LogCapture log;
  bvtest::MallocWatch watch;
  int calls = 0;
  for (const auto& s : kSizes) {
    const int w = s[0], h = s[1];
    const Bytes g = RandomBytes(w * h, rng);
    std::vector<unsigned> I(w * h, 7);
    ImIntegral(g.data(), I.data(), w, h);
    for (int i = 0; i < w * h; ++i) {
      const int x = i % w, y = i / w;
      ASSERT_EQ(I[i], g[i] + (x ? I[i - 1] : 0) + (y ? I[i - w] : 0) - (x && y ? I[i - w - 1] : 0));
    }
    for (int kind = 0; kind < 4; ++kind) {
      // Kind 3: 255 as foreground, which only an empty window keeps as "all set".
      const Bytes m = MakeMask(w, h, kKinds[kind % 3], rng, kind == 3 ? 255 : 1);
      for (int k : {1, 2, 3, 4, 5, 7, 9, 41}) {
        Bytes e(w * h, 9), d(w * h, 9);
        ASSERT_EQ(ImErode(host.table(), m.data(), e.data(), w, h, k), 0);
        ASSERT_EQ(ImDilate(host.table(), m.data(), d.data(), w, h, k), 0);
        calls += 2;
        EXPECT_EQ(e, DirectBox(m, w, h, k, true)) << w << "x" << h << " k=" << k;
        EXPECT_EQ(d, DirectBox(m, w, h, k, false)) << w << "x" << h << " k=" << k;
      }
    }
  }
  EXPECT_EQ(watch.calls(), 0);
  EXPECT_EQ(host.tags(), std::vector<std::string>(calls, "MORPHOLOGIC"));
  EXPECT_EQ(host.frees(), calls);
  for (int erode = 0; erode <= 1; ++erode) {
    host.FailAt(1);
    const Bytes m = MakeMask(21, 13, Kind::kBlobby, rng);
    Bytes out(21 * 13, 0xCD);
    EXPECT_EQ((erode ? ImErode : ImDilate)(host.table(), m.data(), out.data(), 21, 13, 5), -1);
    EXPECT_EQ(out, Bytes(21 * 13, 0xCD));
  }
  EXPECT_EQ(host.live(), 0);
  EXPECT_TRUE(log.Lines().empty());
}

TEST(ErosionDilationOpt, MatchesDirectCountsOnMasksAndGreyImages) {
  std::mt19937 rng(14);
  for (const auto& s : kSizes) {
    const int w = s[0], h = s[1];
    for (auto kind : kKinds) {
      const Bytes m = kind == Kind::kDense ? RandomBytes(w * h, rng, 0, 3) : MakeMask(w, h, kind, rng);
      for (int kW : {0, 1, 2, 4, 7, 20}) {
        for (int kH : {0, 1, 3, 5}) {
          for (uint8_t v : {0, 1}) {
            if (2 * kW >= w || 2 * kH >= h) continue;
            Bytes img = m;
            ASSERT_EQ(Erosion_Dilation_Function_opt(img.data(), w, h, kW, kH, v), 0);
            EXPECT_EQ(img, DirectSpread(m, w, h, kW, kH, v)) << w << "x" << h << " " << kW << "," << kH;
          }
        }
      }
    }
  }
}

// Column counters are bytes: 256 ones count as none (the middle pixel stays 0), and tall windows
// wrap the same way.
TEST(ErosionDilationOpt, ColumnCountersWrapAt256) {
  Bytes m(3 * 257, 1), img;
  m[128 * 3 + 1] = 0;
  img = m;
  ASSERT_EQ(Erosion_Dilation_Function_opt(img.data(), 3, 257, 0, 128, 1), 0);
  EXPECT_EQ(img[128 * 3 + 1], 0);
  EXPECT_EQ(img, DirectSpread(m, 3, 257, 0, 128, 1));
  std::mt19937 rng(15);
  Bytes dense = MakeMask(9, 300, Kind::kDense, rng);
  for (int i = 0; i < 9 * 300; i += 2) dense[i] = (i % 9) % 2 ? dense[i] : (i / 9) % 97 != 0;
  for (int kH : {128, 129, 140}) {
    img = dense;
    ASSERT_EQ(Erosion_Dilation_Function_opt(img.data(), 9, 300, 1, kH, 1), 0);
    EXPECT_EQ(img, DirectSpread(dense, 9, 300, 1, kH, 1)) << kH;
  }
}

TEST(ErosionDilationOpt, RefusalsAndAllocationFailureLogAndLeaveTheImage) {
  struct Case {
    int w, h, kW, kH, failAt, line;
  } cases[] = {{600, 4, 256, 0, 0, 340}, {4, 600, 0, 256, 0, 340}, {10, 5, 5, 0, 0, 340},
               {10, 5, 0, 3, 0, 340},    {10, 6, -1, 0, 0, 340},   {12, 7, 1, 1, 1, 346}};
  std::mt19937 rng(16);
  for (const auto& c : cases) {
    bvtest::LogCapture log;
    const Bytes m = MakeMask(c.w, c.h, Kind::kSparse, rng);
    Bytes img = m;
    bvtest::MallocWatch watch;
    watch.FailAt(c.failAt);
    EXPECT_EQ(Erosion_Dilation_Function_opt(img.data(), c.w, c.h, c.kW, c.kH, 1), -1);
    EXPECT_EQ(watch.calls(), c.failAt);
    EXPECT_EQ(watch.live(), 0);
    EXPECT_EQ(img, m);
    const std::string text = c.failAt ? std::string(kOpt) + " safeNew ERROR!!!"
                                      : "Unsupport Radius: kWidth[" + std::to_string(c.kW) +
                                            "] kHeight[" + std::to_string(c.kH) + "]";
    EXPECT_EQ(bvtest::CountMsg(log, 5, kAlgo, kOpt, text, c.line), 1) << text;
    EXPECT_EQ(log.Lines().size(), 1u);
  }
  Bytes ok(10 * 5, 0);
  EXPECT_EQ(Erosion_Dilation_Function_opt(ok.data(), 10, 5, 4, 2, 1), 0);
}

// Opening and closing compose two counter passes and never use the caller's table.
TEST(ImOpenClose, ComposeTheTwoPasses) {
  std::mt19937 rng(17);
  bvtest::AllocTable host;
  for (const auto& s : kSizes) {
    const int w = s[0], h = s[1];
    for (int k : {1, 2, 3, 5}) {
      const int r = k / 2;
      if (2 * r >= w || 2 * r >= h) continue;
      const Bytes m = MakeMask(w, h, Kind::kBlobby, rng);
      Bytes open(w * h), close(w * h);
      ASSERT_EQ(ImOpen(host.table(), m.data(), open.data(), w, h, k), 0);
      ASSERT_EQ(ImClose(nullptr, m.data(), close.data(), w, h, k), 0);
      EXPECT_EQ(open, DirectSpread(DirectSpread(m, w, h, r, r, 0), w, h, r, r, 1));
      EXPECT_EQ(close, DirectSpread(DirectSpread(m, w, h, r, r, 1), w, h, r, r, 0));
    }
  }
  EXPECT_EQ(host.mallocs(), 0);
}

TEST(ImOpenClose, ReportFailingPassesAndKeepTheIntermediate) {
  std::mt19937 rng(18);
  const int w = 15, h = 9;
  const Bytes m = MakeMask(w, h, Kind::kBlobby, rng);
  const Bytes eroded = DirectSpread(m, w, h, 1, 1, 0), dilated = DirectSpread(m, w, h, 1, 1, 1);
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
      rc = (c.open ? ImOpen : ImClose)(nullptr, m.data(), out.data(), w, h, c.k);
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

// The counter engine on the 0/1 view of m.
Bytes Spread(const Bytes& m, int w, int h, int rx, int ry, uint8_t v) {
  Bytes b(m.size());
  for (size_t i = 0; i < m.size(); ++i) b[i] = m[i] != 0;
  EXPECT_EQ(Erosion_Dilation_Function_opt(b.data(), w, h, rx, ry, v), 0);
  return b;
}

// Brute-force dilation marks new pixels 255 and keeps set ones; erosion keeps or clears. The
// separable routine leaves the row pass in its source.
TEST(LegacyMorphology, BruteForceAndSeparableAgreeWithTheCounterEngine) {
  std::mt19937 rng(51);
  const uint8_t palette[] = {1, 7, 200, 255};
  for (const auto& s : kSizes) {
    const int w = s[0], h = s[1];
    for (auto kind : kKinds) {
      Bytes m = MakeMask(w, h, kind, rng), bin(w * h);
      for (int i = 0; i < w * h; ++i) m[i] = m[i] ? palette[rng() % 4] : 0, bin[i] = m[i] != 0;
      for (int rx : {0, 1, 2, 6}) {
        for (int ry : {0, 1, 3}) {
          if (2 * rx >= w || 2 * ry >= h) continue;
          const Bytes grown = Spread(m, w, h, rx, ry, 1), shrunk = Spread(m, w, h, rx, ry, 0);
          Bytes img = m, copy(w * h), eroded = m;
          Dilation_Function(img.data(), w, h, rx, ry, copy.data());
          EXPECT_EQ(copy, m);
          Erosion_Function(eroded.data(), w, h, rx, ry, copy.data());
          for (int i = 0; i < w * h; ++i) {
            ASSERT_EQ(img[i], m[i] ? m[i] : (grown[i] ? 255 : 0)) << i;
            ASSERT_EQ(eroded[i], shrunk[i] ? m[i] : 0) << i;
          }
          for (uint8_t v : {0, 1}) {
            Bytes src = bin, dst(w * h, 0x33);
            EXPECT_EQ(Erosion_Dilation_Function(src.data(), w, h, rx, ry, v, dst.data()), 0);
            EXPECT_EQ(dst, Spread(bin, w, h, rx, ry, v));
            EXPECT_EQ(src, Spread(bin, w, h, rx, 0, v));
          }
        }
      }
    }
  }
}

// The strided twins: same pixels, padding untouched, one allocation, and on its failure -1 with
// the image as it was.
TEST(LegacyMorphology, StridedVersionsMatchPackedAndLeavePaddingAlone) {
  std::mt19937 rng(52);
  const int w = 19, h = 11, stride = 24;
  const Bytes m = MakeMask(w, h, Kind::kBlobby, rng);
  for (bool dilate : {true, false}) {
    Bytes img(stride * h), want(stride * h), packed = m, copy(w * h);
    (dilate ? Dilation_Function : Erosion_Function)(packed.data(), w, h, 2, 1, copy.data());
    for (int i = 0; i < stride * h; ++i) {
      const int x = i % stride, y = i / stride;
      img[i] = x < w ? m[y * w + x] : x == w;
      want[i] = x < w ? packed[y * w + x] : x == w;
    }
    for (int failAt : {0, 1}) {
      bvtest::MallocWatch watch;
      watch.FailAt(failAt);
      EXPECT_EQ((dilate ? dilation : erosion)(img.data(), w, h, stride, 2, 1), -failAt);
      EXPECT_EQ(watch.calls(), 1);
      EXPECT_EQ(watch.live(), 0);
      EXPECT_EQ(img, want);
    }
  }
}

}  // namespace
