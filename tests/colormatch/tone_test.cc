// Tone matching: every stage against a direct formulation, histograms and tables on every
// width class, the messages and untouched images on refusal, allocation failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "bivista/colormatch.h"
#include "colormatch_messages.h"
#include "support/alloc_table.h"
#include "support/platform_capture.h"

namespace {

using Hist = std::vector<int>;
using Map = std::vector<uint8_t>;
using cmtest::Captured;
using cmtest::Line;

// ---- Direct formulation of the analysis, written from the definition. ----

Hist Count(const std::vector<uint8_t>& img, int w, int h, int stride, int ch, int c) {
  Hist hist(256, 0);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) ++hist[img[y * stride + x * ch + c]];
  return hist;
}

Hist Cumulate(const Hist& h) {
  Hist cum(256);
  long run = 0;
  for (int i = 0; i < 256; ++i) cum[i] = static_cast<int>(run += h[i]);
  return cum;
}

void Match(const Hist& refCum, const Hist& corCum, Map& map, Hist& off) {
  int j = 0;
  for (int i = 0; i <= 254; ++i) {
    for (int k = j; k <= 253; ++k) {
      if (refCum[k] <= corCum[i] && corCum[i] < refCum[k + 1]) {
        map[i] = k, off[i] = k - i, j = k;
        break;
      }
    }
  }
}

// Stretches as (first, last) pairs of the repair walk; applies the repair.
std::vector<std::pair<int, int>> Repair(const Hist& corHist, Map& map, Hist& off) {
  Hist m(256, 0);
  for (int i = 0; i < 256; ++i) m[map[i]] = corHist[i];
  std::vector<std::pair<int, int>> done;
  int k = map[0];
  const int e = map[255];
  while (k < e) {
    if (m[k] != 0) {
      ++k;
      continue;
    }
    int last = k;
    for (int x = k + 1, seen = 0; x <= 255 && seen < 4; ++x) seen = m[x] == 0 ? (last = x, 0) : seen + 1;
    if (last - k >= 6 && last - k <= 29) {
      const int a = off[k] + off[last];
      const int mean = a >= 0 ? (a + 1) / 2 : -((1 - a) / 2);
      for (int x = k; x < last; ++x) map[x] = static_cast<uint8_t>(std::clamp(x + mean, 0, 255)), off[x] = mean;
      done.emplace_back(k, last);
    }
    k = last + 1;
  }
  return done;
}

void HeadTail(const Hist& refHist, Map& map) {
  const int ranges[2][2] = {{0, map[0]}, {map[255], 255}};
  const int at[2] = {0, 255};
  for (int e = 0; e < 2; ++e) {
    long long n = 0, w = 0;
    for (int v = ranges[e][0]; v <= ranges[e][1]; ++v) n += refHist[v], w += 1LL * v * refHist[v];
    if (n >= 1 && w >= 1 && w <= 0x7FFFFFFFLL) map[at[e]] = static_cast<uint8_t>(w / n);
  }
}

std::vector<Map> Tables(const std::vector<uint8_t>& ref, const std::vector<uint8_t>& cor, int w,
                        int h, int stride, int ch) {
  std::vector<Map> maps(ch, Map(256));
  std::vector<Hist> offs(ch, Hist(256, 0)), refH(ch), corH(ch);
  for (int c = 0; c < ch; ++c) {
    for (int i = 0; i < 256; ++i) maps[c][i] = i;
    refH[c] = Count(ref, w, h, stride, ch, c), corH[c] = Count(cor, w, h, stride, ch, c);
    Match(Cumulate(refH[c]), Cumulate(corH[c]), maps[c], offs[c]);
  }
  for (int c = 0; c < ch; ++c) Repair(corH[c], maps[c], offs[c]);
  for (int c = 0; c < ch; ++c) HeadTail(refH[c], maps[c]);
  return maps;
}

// Photo-like bytes: smooth ramps with runs of equal values and a tone curve per image.
std::vector<uint8_t> Photo(int w, int h, int stride, int ch, std::mt19937& rng, double gamma) {
  std::vector<uint8_t> img(static_cast<size_t>(stride) * h + 7, 0xEE);
  std::uniform_int_distribution<int> noise(-3, 3);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int c = 0; c < ch; ++c) {
        const double v = ((x * 5 + y * 3 + 40 * c) % 256 + noise(rng)) / 255.0;
        img[y * stride + x * ch + c] = static_cast<uint8_t>(std::clamp(255.0 * std::pow(std::clamp(v, 0.0, 1.0), gamma), 0.0, 255.0));
      }
  return img;
}

// A host table that records the requested size and hands out a block full of 0xCD.
size_t g_lastSize = 0;
void* DirtyMalloc(size_t size, uint64_t, uint64_t) {
  g_lastSize = size;
  void* p = malloc(size);
  if (p != nullptr) memset(p, 0xCD, size);
  return p;
}
void PlainFree(void* p, uint64_t, uint64_t) { free(p); }

TEST(ToneMatching, WholePassEqualsDirectFormulation) {
  std::mt19937 rng(5);
  vta_algo_mem_allocator_t dirty{DirtyMalloc, PlainFree, nullptr};
  for (int ch : {1, 3}) {
    for (int w : {0, 1, 7, 63, 64, 65, 150}) {
      for (int h : {0, 1, 9}) {
        SCOPED_TRACE(testing::Message() << "ch " << ch << " w " << w << " h " << h);
        const int stride = w * ch + 5;
        auto ref = Photo(w, h, stride, ch, rng, 0.7), cor = Photo(w, h, stride, ch, rng, 1.6);
        if (w == 7) std::fill(cor.begin(), cor.end(), 200);  // single-level image
        auto expect = cor;
        const auto maps = Tables(ref, cor, w, h, stride, ch);
        for (int y = 0; y < h; ++y)
          for (int x = 0; x < w * ch; ++x) expect[y * stride + x] = maps[x % ch][cor[y * stride + x]];
        imageColorToneMatching(ref.data(), cor.data(), w, h, stride, ch, &dirty);
        EXPECT_EQ(g_lastSize, ch == 1 ? 6144u : 18432u);
        EXPECT_EQ(cor, expect);
      }
    }
  }
}

TEST(ToneMatching, StagesOnAdversarialHistograms) {
  std::mt19937 rng(9);
  for (int round = 0; round < 400; ++round) {
    SCOPED_TRACE(round);
    Hist ref(256, 0), cor(256, 0);
    // Random, empty, single-level, and histograms with empty stretches of 5, 6, 29 or 30 bins.
    const int kind = round % 5;
    for (int i = 0; i < 256; ++i) ref[i] = rng() % 4 == 0 ? 0 : rng() % 1000, cor[i] = rng() % 900;
    if (kind == 1) std::fill(cor.begin(), cor.end(), 0);
    if (kind == 2) std::fill(ref.begin(), ref.end(), 0), ref[rng() % 256] = 77;
    if (kind >= 3) {
      const int len = (kind == 3 ? 5 : 29) + static_cast<int>(rng() % 2);
      const int at = 1 + rng() % (250 - len);
      std::fill(cor.begin() + at, cor.begin() + at + len + 1, 0);
    }
    Map map(256), expMap(256);
    Hist off(256, 0), expOff(256, 0);
    for (int i = 0; i < 256; ++i) map[i] = expMap[i] = i;
    if (kind >= 3) {  // the repair on the identity map sees cor itself
      bvtest::LogCapture log;
      const auto stretches = Repair(cor, expMap, expOff);
      findDepopulatedPosition(cor.data(), map.data(), off.data());
      EXPECT_EQ(map, expMap);
      EXPECT_EQ(off, expOff);
      std::vector<std::string> lines;
      for (auto [s, e] : stretches) lines.push_back(Line(cmtest::kDepopulated, s, e));
      EXPECT_EQ(Captured(log), lines);
      // Offsets at the int limit: the mean is INT_MAX itself, the levels clamp to 255.
      if (!stretches.empty()) {
        std::fill(off.begin(), off.end(), INT32_MAX);
        for (int i = 0; i < 256; ++i) map[i] = i;
        findDepopulatedPosition(cor.data(), map.data(), off.data());
        EXPECT_EQ(map[stretches[0].first], 255);
      }
      continue;
    }
    const Hist refCum = Cumulate(ref), corCum = Cumulate(cor);
    Hist cum0(256, -1);
    calculateCumHistogram(ref.data(), nullptr, nullptr, 1, cum0.data(), nullptr, nullptr);
    EXPECT_EQ(cum0, refCum);
    Match(refCum, corCum, expMap, expOff);
    analyseHistogramMatching(const_cast<int*>(refCum.data()), const_cast<int*>(corCum.data()), map.data(), off.data());
    ASSERT_EQ(map, expMap);
    ASSERT_EQ(off, expOff);
    Repair(cor, expMap, expOff);
    findDepopulatedPosition(cor.data(), map.data(), off.data());
    ASSERT_EQ(map, expMap);
    HeadTail(ref, expMap);
    adjustHeadAndTail(ref.data(), map.data());
    EXPECT_EQ(map, expMap);
  }
}

TEST(ToneMatching, HeadTailSumsPast31BitsLeaveTheEntry) {
  Hist ref(256, 0);
  Map map(256);
  for (int i = 0; i < 256; ++i) map[i] = i;
  map[255] = 250;
  ref[255] = 8421504;  // 255 x this = 2147483520 < 2^31: moves
  adjustHeadAndTail(ref.data(), map.data());
  EXPECT_EQ(map[255], 255);
  map[255] = 250;
  ref[255] = 8421505;  // one more pixel passes 2^31: stays
  adjustHeadAndTail(ref.data(), map.data());
  EXPECT_EQ(map[255], 250);
}

TEST(ToneMatching, HistogramsAndTablesOnEveryWidthClass) {
  std::mt19937 rng(3);
  Map t0(256), t1(256), t2(256);
  for (auto* t : {&t0, &t1, &t2})
    for (auto& v : *t) v = rng();
  for (int ch : {1, 3}) {
    // 1030 x 520 bytes takes the byte-pair paths of large planes.
    for (int w : {1, 8, 9, 63, 64, 65, 127, 128, 200, 1030}) {
      const int h = w == 1030 ? 520 : 5, stride = w * ch + 3;
      std::vector<uint8_t> img(stride * h);
      for (auto& b : img) b = rng() % 3 == 0 ? 17 : rng();  // runs of equal bytes too
      Hist hs[3] = {Hist(256, 1), Hist(256, 1), Hist(256, 1)};
      // The scratch of the spread counts fails or not: same counts, nothing leaked.
      bvtest::ForEachMallocFailure([&](int) {
        for (auto& hh : hs) std::fill(hh.begin(), hh.end(), 1);
        calculateHistogramofImage(img.data(), w, h, stride, ch, hs[0].data(), hs[1].data(), hs[2].data());
        for (int c = 0; c < ch; ++c) {
          Hist e = Count(img, w, h, stride, ch, c);
          for (auto& v : e) ++v;  // counts are added, not stored
          EXPECT_EQ(hs[c], e) << "w " << w << " ch " << ch;
        }
      });
      image_color_analyze_para para{};
      para.mapTable[0] = t0.data(), para.mapTable[1] = t1.data(), para.mapTable[2] = t2.data();
      auto out = img;
      processCorImage(out.data(), w, h, stride, ch, &para);
      for (size_t i = 0; i < img.size(); ++i) {
        const size_t x = i % stride;
        const uint8_t e = x < static_cast<size_t>(w * ch) ? para.mapTable[x % ch][img[i]] : img[i];
        ASSERT_EQ(out[i], e) << "w " << w << " ch " << ch << " at " << i;
      }
    }
  }
}

TEST(ToneMatching, RefusalsLogTheirLineAndLeaveTheImage) {
  using namespace cmtest;
  std::vector<uint8_t> ref(64 * 4, 10), cor(64 * 4, 99);
  const auto before = cor;
  bvtest::AllocTable table;
  {
    bvtest::LogCapture log;
    imageColorToneMatching(nullptr, cor.data(), 64, 4, 64, 1, table.table());
    imageColorToneMatching(ref.data(), cor.data(), 32, 2, 32, 2, table.table());
    EXPECT_EQ(table.mallocs(), 0);
    EXPECT_EQ(Captured(log), (std::vector<std::string>{Line(kEntering), Line(kNullTone), Line(kEntering),
                                                       Line(kWhs, 32, 2, 32, 2), Line(kColorChannels, 2)}));
  }
  for (int ch : {1, 3}) {
    bvtest::LogCapture log;
    table.FailAt(1);
    imageColorToneMatching(ref.data(), cor.data(), 16, 4, 48, ch, table.table());
    const Message& m = ch == 1 ? kAllocOne : kAllocThree;
    EXPECT_EQ(Captured(log).back(), Line(m));
  }
  EXPECT_EQ(cor, before);
  {  // a channel count given straight to the stages: each logs, nothing is computed
    bvtest::LogCapture log;
    image_color_analyze_para para{};
    analyzeInputImagePair(ref.data(), cor.data(), 8, 8, 8, 2, &para);
    processCorImage(cor.data(), 8, 8, 8, 4, &para);
    const std::string hist = Line(kHistChannel, 2), cum = Line(kCumChannel, "calculateCumHistogram", 2);
    EXPECT_EQ(Captured(log), (std::vector<std::string>{Line(kInitChannel, 2), hist, cum, hist, cum, Line(kPairChannel, 2),
                                                       Line(kProcessChannel, "processCorImage", 4)}));
  }
  {
    bvtest::LogCapture log;
    table.FailAt(0);
    imageColorToneMatching(ref.data(), cor.data(), 64, 4, 64, 1, table.table());
    EXPECT_EQ(Captured(log).back(), Line(kLeaving));
    EXPECT_EQ(table.live(), 0);
    EXPECT_EQ(table.tags().back(), "PRE_HIST_MATCH");
  }
}

}  // namespace
