// Morphology against direct formulations: every row kernel against its scalar twin on every
// vector target, then each engine against a plain model of what it computes.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <string>

#include "bivista/morphology.h"
#include "morph_test_util.h"
#include "morphology/morph_kernels.h"
#include "support/alloc_table.h"
#include "support/hwy_targets.h"
#include "support/platform_capture.h"

namespace {

using namespace morphtest;

// Every row kernel against its scalar twin, byte for byte, on every compiled vector target and on
// widths that leave every head and tail.
constexpr int kWidths[] = {1, 2, 3, 15, 16, 17, 18, 31, 32, 33, 63, 64, 65, 100, 131};

// Runs fn writing `out` from initVec, then its scalar twin from initScalar, and compares; distinct
// inits catch bytes a twin leaves unwritten.
#define EXPECT_TWINS(initVec, initScalar, fn, ...)   \
  do {                                               \
    Bytes out = (initVec);                           \
    bivista::fn(__VA_ARGS__);                        \
    const Bytes vec = out;                           \
    out = (initScalar);                              \
    bivista::scalar::fn(__VA_ARGS__);                \
    EXPECT_EQ(vec, out) << #fn << " n=" << n;        \
  } while (0)

// Mostly-zero counters so that window ORs are sometimes empty.
Bytes SparseBytes(size_t n, std::mt19937& rng, double p) {
  Bytes b(n, 0);
  for (auto& v : b) v = rng() < p * rng.max() ? static_cast<uint8_t>(1 + rng() % 255) : 0;
  return b;
}

// Equal outputs, and both twins copy the lower row with one pixel either side.
void ExpectCombine3x3(const uint8_t* up, const uint8_t* mid, const uint8_t* down, int n, int cross,
                      int useOr) {
  Bytes a(n), b(n, 1), ca(n + 2, 0x5C), cb(n + 2, 0xC5);
  bivista::Combine3x3(up, mid, down, a.data(), n, cross, useOr, ca.data() + 1);
  bivista::scalar::Combine3x3(up, mid, down, b.data(), n, cross, useOr, cb.data() + 1);
  EXPECT_EQ(a, b) << "n=" << n;
  EXPECT_EQ(ca, Bytes(down - 1, down + n + 1));
  EXPECT_EQ(cb, ca);
}

TEST(MorphKernels, MatchScalarOnEveryTarget) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(1);
    for (int n : kWidths) {
      const Bytes row = RandomBytes(n, rng, 0, 2), cnt = RandomBytes(n, rng);
      EXPECT_TWINS(cnt, cnt, CounterAdd, row.data(), out.data(), n, 1);
      EXPECT_TWINS(cnt, cnt, CounterSub, row.data(), out.data(), n, 2);
      for (int kW : {0, 1, 2, 3, 4, 7, 8, 15, 16, 31, 40, 64}) {
        for (double p : {0.0, 0.02, 0.2}) {
          if (2 * kW >= n) continue;
          const Bytes c = SparseBytes(n, rng, p), copy = RandomBytes(n, rng, 0, 3);
          EXPECT_TWINS(RandomBytes(n, rng), RandomBytes(n, rng), SpreadRow, c.data(), copy.data(),
                       out.data(), n, kW, 7);
        }
      }
      std::vector<uint32_t> q[4];
      for (auto& v : q) {
        for (int i = 0; i < n; ++i) v.push_back(rng() % 4 == 0 ? rng() : rng() % 50);
      }
      // Some windows exactly full, some sums exactly zero or negative.
      for (int i = 0; i < n; i += 3) q[0][i] = 21 + q[2][i] + q[3][i] - q[1][i];
      for (int i = 1; i < n; i += 5) q[0][i] = q[2][i] + q[3][i] - q[1][i];
      for (int erode = 0; erode <= 1; ++erode) {
        EXPECT_TWINS(Bytes(n, 9), Bytes(n, 9), BoxDecideRow, q[0].data(), q[1].data(), q[2].data(),
                     q[3].data(), out.data(), n, 21, erode);
      }
      const uint8_t palette[] = {0, 255, 1, 2, 3, 0xF0, 0x0F};
      std::vector<Bytes> rows(5, Bytes(n + 4));
      for (auto& r : rows) {
        for (auto& v : r) v = rng() % 4 == 0 ? palette[rng() % 7] : 255;
      }
      const uint8_t* p[5];
      for (int i = 0; i < 5; ++i) p[i] = rows[i].data() + 2;
      for (int useOr = 0; useOr <= 1; ++useOr) {
        for (int cross = 0; cross <= 1; ++cross) ExpectCombine3x3(p[1], p[2], p[3], n, cross, useOr);
        EXPECT_TWINS(Bytes(n), Bytes(n, 1), Combine5x5, p, out.data(), n, useOr);
      }
      Bytes above = RandomBytes(n, rng), dist = RandomBytes(n, rng);
      for (int i = 0; i < n; i += 4) above[i] = 255;
      for (int i = 1; i < n; i += 3) dist[i] = 255;
      for (int cap : {0, 44, 200, 255}) {
        for (int target : {0, 255}) {
          EXPECT_TWINS(dist, dist, DistSeedRow, above.data(), out.data(), n, target, cap);
        }
      }
      EXPECT_TWINS(dist, dist, DistBelowRow, above.data(), out.data(), n);
      for (int N : {-3, 0, 1, 100, 254, 255, 400}) {
        EXPECT_TWINS(dist, dist, ThresholdRow, out.data(), n, N, 255, 0);
      }
    }
  });
}

// Rows too wide for the on-stack buffers take the other vector paths.
TEST(MorphKernels, VeryWideRowsMatchScalar) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(6);
    const int n = 33001;
    const Bytes cnt = SparseBytes(n, rng, 0.001), copy = RandomBytes(n, rng, 0, 3);
    for (int kW : {0, 3, 40}) {
      EXPECT_TWINS(Bytes(n), Bytes(n, 1), SpreadRow, cnt.data(), copy.data(), out.data(), n, kW, 9);
    }
    std::vector<Bytes> rows(3, Bytes(n + 2));
    for (auto& r : rows) {
      for (auto& v : r) v = rng() % 8 ? 255 : 0;
    }
    for (int useOr = 0; useOr <= 1; ++useOr) ExpectCombine3x3(&rows[0][1], &rows[1][1], &rows[2][1], n, 0, useOr);
  });
}

// The box engines against direct windows: integral-image erosion/dilation, the sliding-counter
// engine with opening and closing, and the brute-force and separable legacy routines.
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

// Fixed 3x3/5x5 kernels: bitwise AND/OR of the neighbourhood, frozen frame, strided rows whose
// padding is never written; no iterations touch nothing.
// One pass on a packed image: every pixel at least `reach` from the border combines its element.
Bytes DirectPass(const Bytes& m, int w, int h, Shape shape, bool useOr) {
  const int reach = shape == kRect5 ? 2 : 1;
  Bytes out(m);
  for (int y = reach; y < h - reach; ++y) {
    for (int x = reach; x < w - reach; ++x) {
      uint8_t r = useOr ? 0 : 0xFF;
      for (int dy = -reach; dy <= reach; ++dy) {
        for (int dx = -reach; dx <= reach; ++dx) {
          if (shape != kCross || !dx || !dy) r = useOr ? r | m[(y + dy) * w + x + dx] : r & m[(y + dy) * w + x + dx];
        }
      }
      out[y * w + x] = r;
    }
  }
  return out;
}

TEST(FixedKernels, MatchDirectPassesOnStridedImages) {
  std::mt19937 rng(21);
  const uint8_t palette[] = {0, 255, 1, 2, 0x81};
  const int sizes[][2] = {{1, 1}, {2, 9}, {9, 2}, {3, 3}, {4, 4}, {5, 5}, {18, 7},
                          {17, 19}, {33, 6}, {40, 23}, {100, 9}};
  for (const auto& s : sizes) {
    const int w = s[0], h = s[1];
    for (int pad : {0, 3, 16}) {
      const int stride = w + pad;
      for (int kind = 0; kind < 3; ++kind) {
        Bytes packed = MakeMask(w, h, kKinds[kind], rng, 255, 0);
        for (auto& b : packed) b = kind == 1 && b ? palette[rng() % 5] : b;
        for (Shape shape : {kCross, kRect3, kRect5}) {
          for (bool useOr : {false, true}) {
            for (int iterations : {-2, 0, 1, 2, 3}) {
              if (shape == kRect5 && iterations != 1) continue;
              Bytes img(stride * h, 0xEE), scratch(stride * h, 0x77);
              for (int i = 0; i < w * h; ++i) img[i / w * stride + i % w] = packed[i];
              RunShape(shape, useOr, img.data(), scratch.data(), w, h, stride, iterations);
              // The scratch holds the last pass's input.
              Bytes want = packed, last;
              for (int it = 0; it < iterations; ++it) last = want, want = DirectPass(want, w, h, shape, useOr);
              for (int i = 0; i < stride * h; ++i) {
                const int x = i % stride, y = i / stride;
                ASSERT_EQ(img[i], x < w ? want[y * w + x] : 0xEE)
                    << w << "x" << h << "+" << pad << " shape " << shape << " or " << useOr
                    << " it " << iterations << " at " << x << "," << y;
                ASSERT_EQ(scratch[i], x < w && iterations > 0 ? last[y * w + x] : 0x77);
              }
            }
          }
        }
      }
    }
  }
}

// Two-pass labelling against a direct model: a pixel opens a provisional label exactly when none of
// the neighbours it examines is foreground, and every component carries its smallest one.
void Check(const Bytes& m, int w, int h, uint8_t fg, bool eight) {
  const auto on = [&](int x, int y) { return x >= 0 && y >= 0 && x < w && y < h && m[y * w + x] == fg; };
  // Creation order: row 0, then column 0, then the other rows left to right.
  std::vector<int> want(w * h, 0);
  int next = 2;
  const auto visit = [&](int x, int y) {
    const bool joined = y == 0   ? on(x - 1, 0)
                        : x == 0 ? on(0, y - 1)
                                 : on(x - 1, y) || on(x, y - 1) ||
                                       (eight && (on(x - 1, y - 1) || on(x + 1, y - 1)));
    if (on(x, y)) want[y * w + x] = joined ? 1 << 30 : next++;
  };
  for (int x = 0; x < w; ++x) visit(x, 0);
  for (int y = 1; y < h; ++y) visit(0, y);
  for (int i = w; i < w * h; ++i) {
    if (i % w) visit(i % w, i / w);
  }
  // Smallest label across each component; in 8-connectivity the link between (0, y) and
  // (1, y - 1) is never examined.
  for (bool changed = true; changed;) {
    changed = false;
    for (int i = 0; i < w * h; ++i) {
      const int x = i % w, y = i / w;
      for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
          if (!on(x, y) || !on(x + dx, y + dy) || (!eight && dx && dy)) continue;
          if (dx * dy == -1 && std::min(x, x + dx) == 0) continue;
          int& a = want[i];
          if (want[i + dy * w + dx] < a) a = want[i + dy * w + dx], changed = true;
        }
      }
    }
  }
  std::vector<int> labels(w * h, -7), table(w * h + 2, -9);
  int count = -1;
  (eight ? connectTwoPass_8 : connectTwoPass)(m.data(), labels.data(), w, h, &count, table.data(), fg);
  ASSERT_EQ(count, next) << w << "x" << h << (eight ? " 8" : " 4");
  ASSERT_EQ(labels, want) << w << "x" << h << (eight ? " 8" : " 4");
  EXPECT_EQ(table[0], 0);
  EXPECT_EQ(table[1], 1);
}

TEST(ConnectTwoPass, MatchesDirectModelOnRandomMasks) {
  std::mt19937 rng(31);
  for (const auto& s : kSizes) {
    for (auto kind : kKinds) {
      for (int rep = 0; rep < 3; ++rep) {
        const Bytes m = MakeMask(s[0], s[1], kind, rng, 200, 3);
        Check(m, s[0], s[1], 200, false);
        Check(m, s[0], s[1], 200, true);
      }
    }
  }
  const Bytes big = MakeMask(97, 61, Kind::kDense, rng);
  Check(big, 97, 61, 1, false);
  Check(big, 97, 61, 1, true);
  // The diagonal from column 0 to the upper right is not followed.
  std::vector<int> labels(4), table(6);
  int count = 0;
  const Bytes diag = {0, 1, 1, 0};
  connectTwoPass_8(diag.data(), labels.data(), 2, 2, &count, table.data(), 1);
  EXPECT_NE(labels[1], labels[2]);
}

// City-block transforms against direct minima over sources of (start value + city-block
// distance), with the start values and reach each family defines.
// Interior distances: interior seeds and top/left frame values reach every interior pixel; the
// bottom and right frame rows are met only by the backward pass, so they reach the pixels above
// and to the left of them. Corners and a frame value of 255 are far. Interior seeds: erode ?
// non-255 starting at their value : 255-pixels starting at 0.
Bytes DirectInterior(const Bytes& m, int w, int h, bool erode) {
  Bytes d(m);
  for (int p = 0; p < w * h; ++p) {
    const int px = p % w, py = p / w;
    if (px == 0 || py == 0 || px == w - 1 || py == h - 1) continue;
    int best = 255;
    for (int q = 0; q < w * h; ++q) {
      const int x = q % w, y = q / w, v = m[q];
      const bool inner = x > 0 && y > 0 && x < w - 1 && y < h - 1;
      const bool corner = (x == 0 || x == w - 1) && (y == 0 || y == h - 1);
      const bool reach = x == 0 || y == 0 || (y == h - 1 && x >= px) || (x == w - 1 && y >= py);
      const bool seed = inner ? (erode ? v != 255 : v == 255) : !corner && reach && v != 255;
      if (seed) best = std::min(best, (inner && !erode ? 0 : v) + abs(y - py) + abs(x - px));
    }
    d[p] = static_cast<uint8_t>(best);
  }
  return d;
}

// Shortest paths from the targets by relaxation; the far value wraps to a byte on row and column 0
// and saturates elsewhere.
Bytes DirectWhole(const Bytes& m, int w, int h, uint8_t target) {
  Bytes d(m.size());
  for (int i = 0; i < w * h; ++i) {
    d[i] = m[i] == target ? 0 : (i < w || i % w == 0 ? static_cast<uint8_t>(w + h) : std::min(w + h, 255));
  }
  for (bool changed = true; changed;) {
    changed = false;
    for (int i = 0; i < w * h; ++i) {
      for (int q : {i % w ? i - 1 : -1, i % w < w - 1 ? i + 1 : -1, i - w, i + w}) {
        if (q >= 0 && q < w * h && d[q] + 1 < d[i]) d[i] = d[q] + 1, changed = true;
      }
    }
  }
  return d;
}

Bytes Thresholded(Bytes d, int w, int h, int N, uint8_t above, uint8_t notAbove, bool innerOnly) {
  for (int i = 0; i < w * h; ++i) {
    const int x = i % w, y = i / w;
    if (!innerOnly || (x > 0 && y > 0 && x < w - 1 && y < h - 1)) d[i] = d[i] > N ? above : notAbove;
  }
  return d;
}

const int kDistSizes[][2] = {{1, 1}, {2, 5}, {5, 2}, {3, 3}, {4, 9}, {17, 3},
                             {19, 13}, {33, 20}, {70, 9}, {150, 105}, {130, 126}, {200, 100}};

// 0/255 masks, and kind 3: arbitrary values (frame values act as seeds).
Bytes Sample(int w, int h, int kind, std::mt19937& rng) {
  return kind == 3 ? RandomBytes(w * h, rng) : MakeMask(w, h, kKinds[kind], rng, 255, 0);
}

TEST(Manhattan, InteriorFamilyMatchesDirectMinimum) {
  std::mt19937 rng(41);
  for (const auto& s : kDistSizes) {
    const int w = s[0], h = s[1];
    for (int kind = 0; kind < 4 && w * h <= 3000; ++kind) {
      const Bytes m = Sample(w, h, kind, rng), dist = DirectInterior(m, w, h, false);
      Bytes img = m;
      bivista_manhattan(img.data(), w, h);
      ASSERT_EQ(img, dist) << w << "x" << h << " kind " << kind;
      for (int N : {-1, 0, 1, 3, 300}) {
        img = m;
        Dilate_quick_timesN(img.data(), w, h, N);
        ASSERT_EQ(img, Thresholded(dist, w, h, N, 0, 255, true)) << w << "x" << h << " N=" << N;
      }
      for (int N : {0, 1, 2, 5, 255}) {
        if (kind == 3) break;  // the erosion measures 0/255 masks
        img = m;
        EXPECT_EQ(Erode_quick_timesN(img.data(), w, h, static_cast<uint8_t>(N)), img.data());
        ASSERT_EQ(img, Thresholded(DirectInterior(m, w, h, true), w, h, N, 255, 0, false)) << N;
      }
    }
  }
}

// Includes 200x100 without a target: row 0 then holds the wrapped far value 44.
TEST(Manhattan, WholeImageFamilyMatchesRelaxationWithBothFarValues) {
  std::mt19937 rng(42);
  for (const auto& s : kDistSizes) {
    const int w = s[0], h = s[1];
    for (int kind = 0; kind < 4; ++kind) {
      const Bytes m = Sample(w, h, kind, rng);
      for (uint8_t target : {0, 255, 7}) {
        Bytes img = m;
        EXPECT_EQ(manhattan(img.data(), w, h, target), img.data());
        ASSERT_EQ(img, DirectWhole(m, w, h, target)) << w << "x" << h << " " << kind << " " << int(target);
      }
      for (int N : {0, 1, 4, 255}) {
        Bytes img = m, img2 = m;
        EXPECT_EQ(dilate_manh(img.data(), w, h, static_cast<uint8_t>(N)), img.data());
        ASSERT_EQ(img, Thresholded(DirectWhole(m, w, h, 255), w, h, N, 0, 255, false));
        EXPECT_EQ(erode_manh(img2.data(), w, h, static_cast<uint8_t>(N)), img2.data());
        ASSERT_EQ(img2, Thresholded(DirectWhole(m, w, h, 0), w, h, N, 255, 0, false));
      }
    }
  }
}

}  // namespace
