// Morphology against direct formulations: every row kernel against its scalar twin on every
// vector target, then each engine against a plain model of what it computes.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <limits>
#include <string>

#include "morph_test_util.h"
#include "morphology/morph_kernels.h"
#include "support/alloc_table.h"
#include "support/edge_buffer.h"
#include "support/hwy_targets.h"
#include "support/platform_capture.h"

namespace {

using namespace morphtest;

// Runs fn writing `out` from initVec, then its scalar twin from initScalar, and compares; distinct
// inits catch bytes a twin leaves unwritten.
#define EXPECT_TWINS(initVec, initScalar, fn, ...) \
  do {                                             \
    Bytes out = (initVec);                         \
    bivista::fn(__VA_ARGS__);                      \
    const Bytes vec = out;                         \
    out = (initScalar);                            \
    bivista::scalar::fn(__VA_ARGS__);              \
    EXPECT_EQ(vec, out) << #fn << " n=" << n;      \
  } while (0)

// The fixed kernels over a whole image, vector against scalar: image and scratch both end at an
// unreadable page (atPageEnd) or start `offset` bytes past an aligned address.
void CheckFixedTwins(int w, int shape, int useOr, bool atPageEnd, size_t offset,
                     std::mt19937& rng) {
  const uint8_t palette[] = {0, 255, 1, 2, 3, 0xF0, 0x0F};
  const int h = 7, stride = w + (atPageEnd ? 0 : 3), it = shape == 2 ? 1 : 2;
  const size_t bytes = static_cast<size_t>(h - 1) * stride + w;
  bvtest::EdgeBuffer img(bytes, atPageEnd, offset), scratch(bytes, atPageEnd, offset);
  for (size_t i = 0; i < bytes; ++i) img.data()[i] = rng() % 4 == 0 ? palette[rng() % 7] : 255;
  memset(scratch.data(), 0x5C, bytes);
  Bytes refImg(img.data(), img.data() + bytes), refScratch(bytes, 0xC5);
  bivista::FixedMorph(img.data(), scratch.data(), w, h, stride, it, shape, useOr);
  bivista::scalar::FixedMorph(refImg.data(), refScratch.data(), w, h, stride, it, shape, useOr);
  EXPECT_EQ(Bytes(img.data(), img.data() + bytes), refImg) << "w=" << w;
  for (size_t i = 0; i < bytes; ++i) {  // the padding of the scratch is never written
    if (static_cast<int>(i % stride) >= w) refScratch[i] = 0x5C;
  }
  EXPECT_EQ(Bytes(scratch.data(), scratch.data() + bytes), refScratch) << "w=" << w;
}

// Widths leave every head and tail; 33001 is too wide for the on-stack buffers.
TEST(MorphKernels, MatchScalarOnEveryTarget) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(1);
    for (int n : {1, 2, 3, 15, 16, 17, 18, 31, 32, 33, 63, 64, 65, 100, 131, 33001}) {
      const Bytes row = RandomBytes(n, rng, 0, 2), cnt = RandomBytes(n, rng);
      EXPECT_TWINS(cnt, cnt, CounterAdd, row.data(), out.data(), n, 1);
      EXPECT_TWINS(cnt, cnt, CounterSub, row.data(), out.data(), n, 2);
      for (int kW : {0, 1, 2, 3, 4, 7, 8, 15, 16, 31, 40, 64}) {
        for (int permille : {0, 20, 200}) {  // mostly-zero counters: window ORs are sometimes empty
          Bytes c = RandomBytes(n, rng, 1, 255), copy = RandomBytes(n, rng, 0, 3);
          for (auto& v : c) v = static_cast<int>(rng() % 1000) < permille ? v : 0;
          if (2 * kW >= n) continue;
          EXPECT_TWINS(RandomBytes(n, rng), RandomBytes(n, rng), SpreadRow, c.data(), copy.data(),
                       out.data(), n, kW, 7);
        }
      }
      std::vector<uint32_t> q[4];
      for (auto& v : q) {
        for (int i = 0; i < n; ++i) v.push_back(rng() % 4 == 0 ? rng() : rng() % 50);
      }
      for (int i = 0; i < n; ++i) {  // some windows exactly full, some sums exactly zero
        if (i % 3 == 0 || i % 5 == 1) q[0][i] = (i % 5 == 1 ? 0 : 21) + q[2][i] + q[3][i] - q[1][i];
      }
      for (int erode = 0; erode <= 1; ++erode) {
        EXPECT_TWINS(Bytes(n, 9), Bytes(n, 9), BoxDecideRow, q[0].data(), q[1].data(), q[2].data(),
                     q[3].data(), out.data(), n, 21, erode);
      }
      Bytes above = RandomBytes(n, rng), dist = RandomBytes(n, rng);
      for (int i = 0; i < n; ++i) above[i] = i % 4 ? above[i] : 255, dist[i] = i % 3 == 1 ? 255 : dist[i];
      for (int cap : {0, 44, 200, 255}) {
        EXPECT_TWINS(dist, dist, DistSeedRow, above.data(), out.data(), n, 0, cap);
        EXPECT_TWINS(dist, dist, DistSeedRow, above.data(), out.data(), n, 255, cap);
      }
      EXPECT_TWINS(dist, dist, DistBelowRow, above.data(), out.data(), n);
      for (int N : {-3, 0, 1, 100, 254, 255, 400}) {
        EXPECT_TWINS(dist, dist, ThresholdRow, out.data(), n, N, 255, 0);
      }
    }
  });
}

// The whole-pass entries the routines call, vector against scalar on small images.
TEST(MorphKernels, PassesMatchScalarOnEveryTarget) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(5);
    for (int w : {5, 33, 70, 131}) {
      const int h = 9;
      const Bytes mask = RandomBytes(w * h, rng, 0, 2), bytes = RandomBytes(w * h, rng);
      for (int k : {0, 1, 2}) {
        Bytes a = mask, b = mask, ca(w + 8, 0), cb(w + 8, 0);
        bivista::CounterPass(mask.data(), ca.data(), a.data(), w, h, k, k + 1, 1);
        bivista::scalar::CounterPass(mask.data(), cb.data(), b.data(), w, h, k, k + 1, 1);
        EXPECT_EQ(a, b) << "counter w=" << w << " k=" << k;
        const int ring = std::min(h, 2 * k + 2);
        std::vector<uint32_t> ia(static_cast<size_t>(ring) * w), ib = ia;
        for (int erode = 0; erode <= 1; ++erode) {
          Bytes da(w * h, 7), db = da;
          bivista::BoxPass(mask.data(), da.data(), ia.data(), ring, w, h, k, erode);
          bivista::scalar::BoxPass(mask.data(), db.data(), ib.data(), ring, w, h, k, erode);
          EXPECT_EQ(da, db) << "box w=" << w << " k=" << k;
        }
      }
      for (int col0 = 0; col0 <= 1; ++col0) {
        Bytes a = bytes, b = bytes;
        const int from = 1 - col0, n = w - 2 + col0;
        bivista::DistForward(a.data(), w, 1, h - 2, 1, n, 255, 200, col0, 77);
        bivista::scalar::DistForward(b.data(), w, 1, h - 2, 1, n, 255, 200, col0, 77);
        bivista::DistBackward(a.data(), w, h - 2, 1 - col0, from, col0 ? w : w - 2, w - 2);
        bivista::scalar::DistBackward(b.data(), w, h - 2, 1 - col0, from, col0 ? w : w - 2, w - 2);
        bivista::ThresholdRows(a.data(), w, 1, h - 2, 1, w - 2, 100, 0, 255);
        bivista::scalar::ThresholdRows(b.data(), w, 1, h - 2, 1, w - 2, 100, 0, 255);
        EXPECT_EQ(a, b) << "distance w=" << w << " col0 " << col0;
      }
    }
  });
}

// Every start offset up to a vector; widths leaving every head and tail (8300 is too wide for
// the window ring on the stack), padded or ending at a page: no read outside the rows.
TEST(MorphKernels, FixedKernelsAtEveryAlignment) {
  bvtest::ForEachHwyTarget([](const char*) {
    std::mt19937 rng(3);
    for (int shape = 0; shape <= 2; ++shape) {
      SCOPED_TRACE(::testing::Message() << "shape " << shape);
      for (int offset = 0; offset <= bvtest::kMaxVectorBytes; ++offset) {
        CheckFixedTwins(150, shape, offset % 2, false, static_cast<size_t>(offset), rng);
      }
      for (int w : {3, 4, 5, 6, 7, 18, 20, 35, 64, 65, 69, 133, 4100, 8300}) {
        for (int useOr = 0; useOr <= 1; ++useOr) CheckFixedTwins(w, shape, useOr, w % 2, 0, rng);
      }
    }
  });
}

const char kAlgo[] = "ZR481_ALGO";
const char kOpt[] = "Erosion_Dilation_Function_opt";

// Window of radius k/2 clipped to rows/columns 1.., decided on the plain sum.
Bytes DirectBox(const Bytes& m, int w, int h, int k, bool erode) {
  Bytes out(m.size());
  for (int p = 0; p < w * h; ++p) {
    long sum = 0, count = 0;
    for (int y = std::max(1, p / w - k / 2); y <= std::min(h - 1, p / w + k / 2); ++y) {
      for (int x = std::max(1, p % w - k / 2); x <= std::min(w - 1, p % w + k / 2); ++x, ++count) {
        sum += m[y * w + x];
      }
    }
    out[p] = erode ? sum == count : sum > 0;
  }
  return out;
}

// Per column, the count of v in the clipped rows modulo 256; v spreads where any is non-zero.
Bytes DirectSpread(const Bytes& m, int w, int h, int kW, int kH, uint8_t v) {
  Bytes out(m);
  for (int p = 0; p < w * h; ++p) {
    int s = 0;
    for (int x = std::max(0, p % w - kW); x <= std::min(w - 1, p % w + kW); ++x) {
      int c = 0;
      for (int y = std::max(0, p / w - kH); y <= std::min(h - 1, p / w + kH); ++y) c += m[y * w + x] == v;
      s += c % 256;
    }
    if (s != 0) out[p] = v;
  }
  return out;
}

// Also: only the caller's table allocates, once per call under its tag; a failed allocation
// leaves the output alone; nothing is logged.
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
        for (int erode = 0; erode <= 1; ++erode, ++calls) {
          Bytes out(w * h, 9);
          ASSERT_EQ((erode ? ImErode : ImDilate)(host.table(), m.data(), out.data(), w, h, k), 0);
          EXPECT_EQ(out, DirectBox(m, w, h, k, erode)) << w << "x" << h << " k=" << k;
        }
      }
    }
  }
  EXPECT_EQ(watch.calls(), 0);
  EXPECT_EQ(host.tags(), std::vector<std::string>(calls, "MORPHOLOGIC"));
  EXPECT_EQ(host.frees(), calls);
  for (int erode = 0; erode <= 1; ++erode) {
    host.FailAt(1);
    Bytes out(21 * 13, 0xCD);
    EXPECT_EQ((erode ? ImErode : ImDilate)(host.table(), Bytes(21 * 13, 1).data(), out.data(), 21, 13, 5), -1);
    EXPECT_EQ(out, Bytes(21 * 13, 0xCD));
  }
  EXPECT_EQ(host.live(), 0);
  EXPECT_TRUE(log.Lines().empty());
}

// Opening and closing compose two counter passes and never use the caller's table.
TEST(ErosionDilationOpt, MatchesDirectCountsOnMasksAndGreyImagesAsDoOpenAndClose) {
  std::mt19937 rng(14);
  bvtest::AllocTable host;
  for (const auto& s : kSizes) {
    const int w = s[0], h = s[1];
    for (auto kind : kKinds) {
      const Bytes m = kind == Kind::kDense ? RandomBytes(w * h, rng, 0, 3) : MakeMask(w, h, kind, rng);
      for (int kW : {0, 1, 2, 4, 7, 20}) {
        for (int kH : {0, 1, 2, 3, 5}) {
          if (2 * kW >= w || 2 * kH >= h) continue;
          for (uint8_t v : {0, 1}) {
            Bytes img = m;
            ASSERT_EQ(Erosion_Dilation_Function_opt(img.data(), w, h, kW, kH, v), 0);
            EXPECT_EQ(img, DirectSpread(m, w, h, kW, kH, v)) << w << "x" << h << " " << kW << "," << kH;
          }
          if (kW != kH || kind != Kind::kBlobby) continue;
          Bytes open(w * h), close(w * h);
          ASSERT_EQ(ImOpen(host.table(), m.data(), open.data(), w, h, std::max(1, 2 * kW + w % 2)), 0);
          ASSERT_EQ(ImClose(nullptr, m.data(), close.data(), w, h, std::max(1, 2 * kW + w % 2)), 0);
          EXPECT_EQ(open, DirectSpread(DirectSpread(m, w, h, kW, kW, 0), w, h, kW, kW, 1));
          EXPECT_EQ(close, DirectSpread(DirectSpread(m, w, h, kW, kW, 1), w, h, kW, kW, 0));
        }
      }
    }
  }
  EXPECT_EQ(host.mallocs(), 0);
}

// Column counters are bytes: 256 ones count as none, so the middle pixel stays 0.
TEST(ErosionDilationOpt, ColumnCountersWrapAt256) {
  Bytes m(3 * 300, 1);
  for (int y = 0; y < 300; y += 97) m[y * 3] = 0;
  m[128 * 3 + 1] = 0;
  for (int kW : {0, 1}) {
    for (int kH : {128, 129, 140}) {
      Bytes img = m;
      ASSERT_EQ(Erosion_Dilation_Function_opt(img.data(), 3, 300, kW, kH, 1), 0);
      EXPECT_EQ(img, DirectSpread(m, 3, 300, kW, kH, 1)) << kW << "," << kH;
      if (kW == 0 && kH == 128) { EXPECT_EQ(img[128 * 3 + 1], 0); }
    }
  }
}

// Refusals and allocation failures of the counter engine are logged and leave the image. Opening
// and closing log a failing pass, return the logger's own result (the formatted line's length) and
// leave in the output what the passes before it wrote.
TEST(ErosionDilationOpt, RefusalsAndFailuresLogAndLeaveTheImage) {
  struct Case {
    int which, w, h, kW, kH, failAt, line;  // which: 0 the engine, 1 ImOpen, 2 ImClose (k = kW)
  } cases[] = {{0, 600, 4, 256, 0, 0, 340}, {0, 4, 600, 0, 256, 0, 340}, {0, 10, 5, 5, 0, 0, 340},
               {0, 10, 5, 0, 3, 0, 340},    {0, 10, 6, -1, 0, 0, 340},   {0, 12, 7, 1, 1, 1, 346},
               {1, 15, 9, 19, 0, 0, 601},   {1, 15, 9, 3, 0, 2, 606},    {2, 15, 9, 19, 0, 0, 627},
               {2, 15, 9, 3, 0, 2, 633}};
  std::mt19937 rng(16);
  for (const auto& c : cases) {
    const Bytes m = MakeMask(c.w, c.h, Kind::kBlobby, rng);
    const char* func = c.which == 0 ? kOpt : c.which == 1 ? "ImOpen" : "ImClose";
    const std::string text = c.which    ? std::string(kOpt) + " Run Failed"
                             : c.failAt ? std::string(kOpt) + " safeNew ERROR!!!"
                                        : "Unsupport Radius: kWidth[" + std::to_string(c.kW) +
                                              "] kHeight[" + std::to_string(c.kH) + "]";
    bvtest::LogCapture log;
    bvtest::MallocWatch watch;
    watch.FailAt(c.failAt);
    Bytes out = c.which ? Bytes(m.size(), 0x5A) : m;
    const int rc = c.which ? (c.which == 1 ? ImOpen : ImClose)(nullptr, m.data(), out.data(), c.w, c.h, c.kW)
                           : Erosion_Dilation_Function_opt(out.data(), c.w, c.h, c.kW, c.kH, 1);
    EXPECT_EQ(rc, c.which ? static_cast<int>(bvtest::Msg(func, c.line, text).size()) : -1) << text;
    EXPECT_EQ(watch.calls(), c.failAt);
    EXPECT_EQ(watch.live(), 0);
    EXPECT_EQ(out, c.which && c.failAt ? DirectSpread(m, c.w, c.h, 1, 1, c.which == 2) : m) << text;
    EXPECT_EQ(bvtest::CountMsg(log, 5, kAlgo, func, text, c.line), 1) << text;
    if (!c.which) { EXPECT_EQ(log.Lines().size(), 1u); }
  }
  Bytes ok(10 * 5, 0);
  EXPECT_EQ(Erosion_Dilation_Function_opt(ok.data(), 10, 5, 4, 2, 1), 0);
}

// Against the counter engine on the 0/1 view: brute-force dilation marks new pixels 255 and keeps
// set ones, erosion keeps or clears, the strided twins match and leave padding alone, and the
// separable routine leaves its row pass in the source.
TEST(LegacyMorphology, BruteForceStridedAndSeparableAgreeWithTheCounterEngine) {
  std::mt19937 rng(51);
  const uint8_t palette[] = {1, 7, 200, 255};
  for (const auto& s : kSizes) {
    const int w = s[0], h = s[1], stride = w + 5;
    for (auto kind : kKinds) {
      Bytes m = MakeMask(w, h, kind, rng), bin(w * h);
      for (int i = 0; i < w * h; ++i) m[i] = m[i] ? palette[rng() % 4] : 0, bin[i] = m[i] != 0;
      for (int rx : {0, 1, 2, 6}) {
        for (int ry : {0, 1, 3}) {
          if (2 * rx >= w || 2 * ry >= h) continue;
          const auto spread = [&](int kH, uint8_t v) {
            Bytes b = bin;
            EXPECT_EQ(Erosion_Dilation_Function_opt(b.data(), w, h, rx, kH, v), 0);
            return b;
          };
          for (int dilate = 0; dilate <= 1; ++dilate) {
            const Bytes s = spread(ry, dilate);
            Bytes img = m, copy(w * h), strided(stride * h, 0xA5);
            for (int i = 0; i < w * h; ++i) strided[i / w * stride + i % w] = m[i];
            (dilate ? Dilation_Function : Erosion_Function)(img.data(), w, h, rx, ry, copy.data());
            EXPECT_EQ((dilate ? dilation : erosion)(strided.data(), w, h, stride, rx, ry), 0);
            EXPECT_EQ(copy, m);
            for (int i = 0; i < stride * h; ++i) {
              const int p = i / stride * w + i % stride;
              ASSERT_EQ(strided[i], i % stride < w ? img[p] : 0xA5) << i;
              if (i % stride < w) { ASSERT_EQ(img[p], dilate ? (m[p] ? m[p] : s[p] ? 255 : 0) : s[p] ? m[p] : 0); }
            }
            Bytes src = bin, dst(w * h, 0x33);
            EXPECT_EQ(Erosion_Dilation_Function(src.data(), w, h, rx, ry, dilate, dst.data()), 0);
            EXPECT_EQ(dst, s);
            EXPECT_EQ(src, spread(0, dilate));
          }
        }
      }
    }
  }
  // The strided twins allocate once; on failure -1 and the image as it was.
  for (int dilate = 0; dilate <= 1; ++dilate) {
    const Bytes m = MakeMask(19, 11, Kind::kBlobby, rng);
    Bytes img = m;
    EXPECT_EQ(bvtest::ForEachMallocFailure([&](int run) {
      EXPECT_EQ((dilate ? dilation : erosion)(img.data(), 19, 11, 19, 2, 1), run == 1 ? -1 : 0);
      if (run == 1) { EXPECT_EQ(img, m); }
    }), 2);
  }
}

// Fixed 3x3/5x5 kernels: one pass is the bitwise AND/OR over the element for every pixel at least
// its reach from the border; the frame is frozen and row padding never written.
Bytes DirectPass(const Bytes& m, int w, int h, Shape shape, bool useOr) {
  const int reach = shape == kRect5 ? 2 : 1;
  Bytes out(m);
  for (int p = 0; p < w * h; ++p) {
    const int x = p % w, y = p / w;
    if (x < reach || y < reach || x >= w - reach || y >= h - reach) continue;
    out[p] = useOr ? 0 : 0xFF;
    for (int dy = -reach; dy <= reach; ++dy) {
      for (int dx = -reach; dx <= reach; ++dx) {
        if (shape == kCross && dx && dy) continue;
        out[p] = useOr ? out[p] | m[p + dy * w + dx] : out[p] & m[p + dy * w + dx];
      }
    }
  }
  return out;
}

// The scratch ends holding the last pass's input; no iterations touch nothing.
TEST(FixedKernels, MatchDirectPassesOnStridedImages) {
  std::mt19937 rng(21);
  const uint8_t palette[] = {0, 255, 1, 2, 0x81};
  const int sizes[][2] = {{1, 1}, {2, 9}, {9, 2}, {3, 3}, {4, 4}, {5, 5}, {18, 7},
                          {17, 19}, {33, 6}, {40, 23}, {100, 9}};
  for (const auto& s : sizes) {
    const int w = s[0], h = s[1];
    for (int pad : {0, 3, 16}) {
      for (int kind = 0; kind < 3; ++kind) {
        Bytes packed = MakeMask(w, h, kKinds[kind], rng, 255, 0);
        for (auto& b : packed) b = kind == 1 && b ? palette[rng() % 5] : b;
        for (Shape shape : {kCross, kRect3, kRect5}) {
          for (int it : {-2, 0, 1, 2, 3}) {
            for (bool useOr : {false, true}) {
              if (shape == kRect5 && it != 1) continue;
              const int stride = w + pad;
              Bytes img(stride * h, 0xEE), scratch(stride * h, 0x77), want = packed, last;
              for (int i = 0; i < w * h; ++i) img[i / w * stride + i % w] = packed[i];
              RunShape(shape, useOr, img.data(), scratch.data(), w, h, stride, it);
              for (int i = 0; i < it; ++i) last = want, want = DirectPass(want, w, h, shape, useOr);
              for (int i = 0; i < stride * h; ++i) {
                const int x = i % stride, p = i / stride * w + x;
                ASSERT_EQ(img[i], x < w ? want[p] : 0xEE) << w << "x" << h << "+" << pad << " shape "
                                                          << shape << " or " << useOr << " it " << it;
                ASSERT_EQ(scratch[i], x < w && it > 0 ? last[p] : 0x77);
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
void CheckLabels(const Bytes& m, int w, int h, uint8_t fg, bool eight) {
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
      for (int d = 0; d < 9; ++d) {
        const int x = i % w, y = i / w, dx = d % 3 - 1, dy = d / 3 - 1, q = i + dy * w + dx;
        if (!on(x, y) || !on(x + dx, y + dy) || (!eight && dx && dy)) continue;
        if (dx * dy == -1 && std::min(x, x + dx) == 0) continue;
        if (want[q] < want[i]) want[i] = want[q], changed = true;
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
    for (int rep = 0; rep < 9; ++rep) {
      const Bytes m = MakeMask(s[0], s[1], kKinds[rep % 3], rng, 200, 3);
      for (bool eight : {false, true}) CheckLabels(m, s[0], s[1], 200, eight);
    }
  }
  const Bytes big = MakeMask(97, 61, Kind::kDense, rng);
  for (bool eight : {false, true}) CheckLabels(big, 97, 61, 1, eight);
}

// City-block transforms against direct minima over sources of (start value + distance).
// Interior family: interior seeds and top/left frame values reach every interior pixel; the bottom
// and right frame rows are met only by the backward pass, so they reach the pixels above and to
// the left of them. Corners and frame values of 255 are far. Interior seeds: erode ? non-255
// starting at their value : 255-pixels starting at 0.
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

// Whole-image family: shortest paths from the targets by relaxation; the far value wraps to a byte
// on row and column 0 and saturates elsewhere.
Bytes DirectWhole(const Bytes& m, int w, int h, uint8_t target) {
  Bytes d(m.size());
  for (int i = 0; i < w * h; ++i) {
    d[i] = m[i] == target ? 0 : i < w || i % w == 0 ? static_cast<uint8_t>(w + h) : std::min(w + h, 255);
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

// 0/255 masks and (kind 3) arbitrary values, whose frame values act as seeds. 200x100 without a
// target leaves the wrapped far value 44 in row 0.
TEST(Manhattan, BothFamiliesMatchDirectMinima) {
  std::mt19937 rng(41);
  const int sizes[][2] = {{1, 1}, {2, 5}, {5, 2}, {3, 3}, {4, 9}, {17, 3},
                          {19, 13}, {33, 20}, {70, 9}, {150, 105}, {130, 126}, {200, 100}};
  for (const auto& s : sizes) {
    const int w = s[0], h = s[1];
    for (int kind = 0; kind < 5; ++kind) {
      Bytes m = kind == 3 ? RandomBytes(w * h, rng) : MakeMask(w, h, kKinds[kind % 3], rng, 255, 0);
      // Kind 4: 255 inside a frame of 0.
      if (kind == 4) m = Thresholded(Bytes(w * h, 0), w, h, -1, 255, 255, true);
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
      if (w * h > 3000) continue;
      const Bytes dist = DirectInterior(m, w, h, false), edist = DirectInterior(m, w, h, true);
      Bytes img = m;
      bivista_manhattan(img.data(), w, h);
      ASSERT_EQ(img, dist) << w << "x" << h << " kind " << kind;
      for (int N : {-1, 0, 1, 2, 3, 5, 255, 300}) {
        img = m;
        Dilate_quick_timesN(img.data(), w, h, N);
        ASSERT_EQ(img, Thresholded(dist, w, h, N, 0, 255, true)) << w << "x" << h << " N=" << N;
        if (kind == 3 || N < 0 || N > 255) continue;  // the erosion measures 0/255 masks
        img = m;
        EXPECT_EQ(Erode_quick_timesN(img.data(), w, h, static_cast<uint8_t>(N)), img.data());
        ASSERT_EQ(img, Thresholded(edist, w, h, N, 255, 0, false)) << w << "x" << h << " N=" << N;
      }
    }
  }
}

}  // namespace

// Radii and kernel sizes at the int limits: windows clipped in 64 bits cover the whole image (or
// nothing for a negative radius); k = INT_MIN is refused; sizes beyond int are refused by safeNew
// with its own message before the image is read; images end at their last row's width.
TEST(MorphologyLimits, WindowsAtTheIntLimitsAndSizesBeyondIntStayInsideTheImage) {
  constexpr int kMax = std::numeric_limits<int>::max(), kMin = std::numeric_limits<int>::min();
  const int w = 6, h = 5;
  Bytes one(w * h, 0), ones(w * h, 1);
  one[w + 1] = 1;  // (1, 1): inside every full window
  bvtest::AllocTable table;
  Bytes out(w * h, 9);
  EXPECT_EQ(ImDilate(table.table(), one.data(), out.data(), w, h, kMax), 0);
  EXPECT_EQ(out, ones);
  EXPECT_EQ(ImErode(table.table(), ones.data(), out.data(), w, h, kMax), 0);
  EXPECT_EQ(out, ones);
  EXPECT_EQ(ImErode(table.table(), ones.data(), out.data(), w, h, kMin), -1);
  for (int dilate = 0; dilate <= 1; ++dilate) {
    const Bytes in = dilate ? one : ones;
    Bytes img = in, copy(w * h), src = in, dst(w * h);
    (dilate ? Dilation_Function : Erosion_Function)(img.data(), w, h, kMax, kMax, copy.data());
    Bytes want(w * h, dilate ? 255 : 1);
    if (dilate) want[w + 1] = 1;
    EXPECT_EQ(img, want);
    img = in;
    (dilate ? Dilation_Function : Erosion_Function)(img.data(), w, h, kMin, kMax, copy.data());
    EXPECT_EQ(img, in);
    // Rows spread over the whole width, columns not at all (negative radius).
    EXPECT_EQ(Erosion_Dilation_Function(src.data(), w, h, kMax, kMin, 1, dst.data()), 0);
    want = in;
    if (dilate) std::fill(want.begin() + w, want.begin() + 2 * w, 1);
    EXPECT_EQ(src, want);
    EXPECT_EQ(dst, want);
  }
  // Strided twins read the image up to the last row's width only (an exact buffer).
  const int stride = 9;
  Bytes strided((h - 1) * stride + w, 0);
  strided[stride + 1] = 1;
  EXPECT_EQ(dilation(strided.data(), w, h, stride, 1, 1), 0);
  EXPECT_EQ(strided[0], 255);
  // Empty widths copy nothing, even with null images.
  ErodeWith3x3Rect(nullptr, nullptr, 0, 5, 0, 1);
  ErodeWith5x5Rect(nullptr, nullptr, -3, 5, 0);
  // 65536 x 65536 is 4 GiB: the counter engine's block and the strided copy are refused.
  bvtest::LogCapture log;
  uint8_t byte = 7;
  EXPECT_EQ(Erosion_Dilation_Function_opt(&byte, 65536, 65536, 0, 0, 1), -1);
  EXPECT_EQ(dilation(&byte, 1, 65536, 65536, 0, 0), -1);
  EXPECT_EQ(byte, 7);
  EXPECT_EQ(log.CountContaining("the memory size -2147483648 you want to malloced is negative!!"), 2);
  EXPECT_EQ(bvtest::CountMsg(log, 5, kAlgo, kOpt, std::string(kOpt) + " safeNew ERROR!!!", 346), 1);
}
