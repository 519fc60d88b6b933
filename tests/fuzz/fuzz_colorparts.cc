// The tone matching's stages called one by one: histograms added onto any counts (up to the
// 32-bit wrap), running sums of any counts, the matching of any cumulative tables, the repair
// of any look-up table and offsets, the end re-centring on any reference counts, the table
// applied to any image; and the analysis of an image pair with any channel count into a
// record of exact tables. Each is checked against its definition; bytes outside the image
// area (row padding) and tables a channel count does not use stay as they were.
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <limits>

#include "bivista/colormatch.h"
#include "support.h"

namespace {

using Table = std::array<int, 256>;
using Map = std::array<uint8_t, 256>;

int32_t Wrap(uint32_t u) { return static_cast<int32_t>(u); }  // two's complement (C++20 rule)

// Any counts: small, near the limits, or from the input.
Table Counts(FuzzedDataProvider& p) {
  Table t{};
  const int kind = p.ConsumeIntegralInRange<int>(0, 4);
  if (kind == 4) {
    // Runs of empty and full levels (the repair's stretches) from one 64-bit pattern.
    const uint64_t bits = p.ConsumeIntegral<uint64_t>();
    for (int v = 0; v < 256; ++v) t[v] = static_cast<int>((bits >> (v % 64)) & 1);
    return t;
  }
  for (int& v : t) {
    v = kind == 0   ? 0
        : kind == 1 ? p.ConsumeIntegralInRange<int>(0, 40)
        : kind == 2 ? p.ConsumeIntegral<int>()
                    : bvfuzz::AnyInt(p);
  }
  return t;
}

Table Cumulative(const Table& h) {
  Table c{};
  uint32_t run = 0;
  for (int i = 0; i < 256; ++i) c[i] = Wrap(run += static_cast<uint32_t>(h[i]));
  return c;
}

struct Image {
  int w, h, stride, ch;
  std::vector<uint8_t> bytes;
};

// An image of 1 or 3 channels (or any count: its bytes then as for one), rows stride apart.
Image MakeImage(FuzzedDataProvider& p, bool anyChannels, bool overlapRows) {
  Image im;
  const int pick = p.ConsumeIntegralInRange<int>(0, 7);
  im.ch = pick < 3 ? 1 : pick < 6 ? 3 : anyChannels ? bvfuzz::AnyInt(p) : 1;
  // Mostly small; rarely one plane row long enough for the large-plane paths.
  const bool large = p.ConsumeIntegralInRange<int>(0, 1023) == 1023;
  if (large) im.ch = 1;
  const int px = im.ch == 3 ? 3 : 1;
  im.w = large ? 512 * 1024 + p.ConsumeIntegralInRange<int>(0, 70) : bvfuzz::Dim(p, -1, 150);
  im.h = large ? 1 : bvfuzz::Dim(p, -1, 6);
  const int row = std::max(im.w, 0) * px;
  im.stride = overlapRows && p.ConsumeBool() ? p.ConsumeIntegralInRange<int>(0, row)
                                             : row + bvfuzz::Dim(p, 0, 9);
  const size_t n = im.w > 0 && im.h > 0 ? static_cast<size_t>(im.h - 1) * im.stride + row : 0;
  im.bytes = bvfuzz::Buffer<uint8_t>(p, n);
  return im;
}

// Reference loops over whole images are not coverage (they would dominate the run time).
#define BV_NO_COVERAGE __attribute__((no_sanitize("coverage")))

// The counts of the image's area per channel byte.
BV_NO_COVERAGE std::array<Table, 3> Count(const Image& im) {
  std::array<Table, 3> t{};
  const int px = im.ch == 3 ? 3 : 1;
  for (int y = 0; y < im.h; ++y)
    for (int x = 0; x < im.w * px; ++x) {
      const uint8_t v = im.bytes[static_cast<size_t>(y) * im.stride + x];
      ++t[x % px][v];
    }
  return t;
}

void Histograms(FuzzedDataProvider& p) {
  const Image im = MakeImage(p, true, true);
  std::array<Table, 3> h = {Counts(p), Counts(p), Counts(p)}, got = h;
  bvfuzz::ClearLog();
  calculateHistogramofImage(im.bytes.data(), im.w, im.h, im.stride, im.ch, got[0].data(),
                            got[1].data(), got[2].data());
  if (im.ch != 1 && im.ch != 3) {
    bvfuzz::Check(got == h && bvfuzz::LogLines().size() == 1, "unsupported channels: one line");
    return;
  }
  const std::array<Table, 3> add = Count(im);
  for (int c = 0; c < 3; ++c)
    for (int v = 0; v < 256; ++v)
      h[c][v] = Wrap(static_cast<uint32_t>(h[c][v]) + static_cast<uint32_t>(add[c][v]));
  bvfuzz::Check(got == h, "histogram is not the counts added");

  // Running sums of any counts; unused channels untouched.
  const int ch = p.ConsumeBool() ? im.ch : bvfuzz::AnyInt(p);
  std::array<Table, 3> cum = {Counts(p), Counts(p), Counts(p)}, want = cum;
  calculateCumHistogram(got[0].data(), got[1].data(), got[2].data(), ch, cum[0].data(),
                        cum[1].data(), cum[2].data());
  if (ch == 1 || ch == 3) {
    for (int c = 0; c < ch; ++c) want[c] = Cumulative(got[c]);
  }
  bvfuzz::Check(cum == want, "running sums");
}

// Matching, repair and end re-centring of one channel against their steps.
void Stages(FuzzedDataProvider& p) {
  const Table refCum = Counts(p), corCum = Counts(p);
  Map map{};
  for (int i = 0; i < 256; ++i) map[i] = static_cast<uint8_t>(i);
  Table off{};
  Map m = map;
  Table o = off;
  analyseHistogramMatching(const_cast<int*>(refCum.data()), const_cast<int*>(corCum.data()),
                           m.data(), o.data());
  int j = 0;
  for (int i = 0; i < 255; ++i) {
    for (int k = j; k <= 253; ++k) {
      if (refCum[k] <= corCum[i] && corCum[i] < refCum[k + 1]) {
        map[i] = static_cast<uint8_t>(k);
        off[i] = k - i;
        j = k;
        break;
      }
    }
  }
  bvfuzz::Check(m == map && o == off, "matching");

  // Repair of any table with offsets anywhere (mostly those of a table).
  const Table hist = Counts(p);
  const int custom = p.ConsumeIntegralInRange<int>(0, 3);
  if (custom == 1) {
    for (uint8_t& v : m) v = p.ConsumeIntegral<uint8_t>();
  } else if (custom == 2) {
    for (int i = 0; i < 256; ++i) m[i] = static_cast<uint8_t>(i);
  }
  if (custom != 0) {
    for (int i = 0; i < 256; ++i) o[i] = custom == 3 || p.ConsumeBool() ? bvfuzz::AnyInt(p) : m[i] - i;
  }
  Map rm = m;
  Table ro = o;
  const int stretches = findDepopulatedPosition(const_cast<int*>(hist.data()), rm.data(), ro.data());
  // A rewritten entry holds its level plus the stretch's mean offset, clamped; the last entry
  // is never rewritten, and only a repair rewrites.
  int changed = 0;
  for (int x = 0; x < 256; ++x) {
    if (rm[x] == m[x] && ro[x] == o[x]) continue;
    ++changed;
    bvfuzz::Check(x < 255 && rm[x] == std::clamp<int64_t>(int64_t{x} + ro[x], 0, 255),
                  "repaired entry is not its level plus the mean offset");
  }
  bvfuzz::Check(stretches >= 0 && (changed == 0 || stretches > 0), "repair count");

  // End re-centring with signed 32-bit sums.
  const Table ref = Counts(p);
  Map ends = rm;
  adjustHeadAndTail(const_cast<int*>(ref.data()), ends.data());
  const auto centre = [&](int from, int to, uint8_t* e) {
    uint32_t n = 0, w = 0;
    for (int v = from; v <= to; ++v) {
      n += static_cast<uint32_t>(ref[v]);
      w += static_cast<uint32_t>(v) * static_cast<uint32_t>(ref[v]);
    }
    if (Wrap(n) >= 1 && Wrap(w) >= 1) *e = static_cast<uint8_t>(Wrap(w) / Wrap(n));
  };
  centre(0, rm[0], &rm[0]);
  centre(rm[255], 255, &rm[255]);
  bvfuzz::Check(ends == rm, "head and tail");
}

// The image through the record's tables, row padding kept.
BV_NO_COVERAGE std::vector<uint8_t> Mapped(const Image& im, const image_color_analyze_para& para,
                                           int used) {
  std::vector<uint8_t> out = im.bytes;
  for (size_t i = 0; i < out.size(); ++i) {
    const size_t x = i % im.stride;
    if (static_cast<int>(x) < im.w * used) out[i] = para.mapTable[x % used][out[i]];
  }
  return out;
}

// The whole analysis into exact tables, and the table applied to the image.
void Pair(FuzzedDataProvider& p) {
  const Image ref = MakeImage(p, true, true);
  Image cor = ref;
  cor.bytes = bvfuzz::Buffer<uint8_t>(p, ref.bytes.size());
  const int ch = ref.ch;
  const int used = ch == 3 ? 3 : 1;
  std::vector<std::vector<int>> ints(15);
  std::vector<std::vector<uint8_t>> maps(3);
  image_color_analyze_para para = {};
  para.reserved = p.ConsumeIntegral<int>();
  for (int c = 0; c < used; ++c) {
    int32_t** kinds[5] = {para.refHist, para.refCumHist, para.corHist, para.corCumHist, para.offset};
    for (int k = 0; k < 5; ++k) {
      ints[5 * c + k] = bvfuzz::Buffer<int>(p, 256);
      kinds[k][c] = ints[5 * c + k].data();
    }
    maps[c] = bvfuzz::Buffer<uint8_t>(p, 256);
    para.mapTable[c] = maps[c].data();
  }
  const auto intsBefore = ints;
  const auto mapsBefore = maps;
  bvfuzz::ClearLog();
  analyzeInputImagePair(ref.bytes.data(), cor.bytes.data(), ref.w, ref.h, ref.stride, ch, &para);
  bvfuzz::Check(para.channelNum == ch, "channel count stored");
  if (ch != 1 && ch != 3) {
    bvfuzz::Check(ints == intsBefore && maps == mapsBefore, "unsupported channels wrote tables");
    return;
  }
  const std::array<Table, 3> rc = Count(ref), cc = Count(cor);
  for (int c = 0; c < used; ++c) {
    bvfuzz::Check(std::equal(rc[c].begin(), rc[c].end(), para.refHist[c]) &&
                      std::equal(cc[c].begin(), cc[c].end(), para.corHist[c]),
                  "analysis histograms");
    const Table rcum = Cumulative(rc[c]), ccum = Cumulative(cc[c]);
    bvfuzz::Check(std::equal(rcum.begin(), rcum.end(), para.refCumHist[c]) &&
                      std::equal(ccum.begin(), ccum.end(), para.corCumHist[c]),
                  "analysis running sums");
  }
  if (ref.stride < ref.w * used) return;  // overlapping rows: the rewrite is order-bound
  Image out = cor;
  processCorImage(out.bytes.data(), out.w, out.h, out.stride, ch, &para);
  bvfuzz::Check(Mapped(cor, para, used) == out.bytes, "table applied outside the area or wrongly");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return bvfuzz::RunFamily(data, size, {Histograms, Stages, Pair});
}
