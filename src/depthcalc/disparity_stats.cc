// Focus-area statistics: peak-centred average disparity, multi-depth degree, area correction.
#include <limits.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "common/log_internal.h"
#include "depthcalc/depthcalc_internal.h"
#include "depthcalc/depthcalc_kernels.h"

namespace bivista {
namespace {

constexpr int kLineGetResizeFac = 212;

constexpr int kMinKeptDisparity = 2;
constexpr int kMinConfidence = 33;
constexpr int kSmoothClip = 70;
constexpr int kMultiMin = 1;
constexpr int kMultiMax = 62;

// Counter v, with every bin outside the histogram reading as 0.
inline uint32_t Bin(const uint32_t* hist, int v) {
  return (v >= 0 && v < kHistBins) ? hist[v] : 0u;
}

// First v in [from, to] with the largest count; starts from bin `from` so that an empty range
// keeps `from` (the callers' start value) as the peak. Strictly greater replaces.
int FirstPeak(const uint32_t* hist, int from, int to) {
  int peak = from;
  uint32_t best = Bin(hist, from);
  // Bins outside 0..159 read as 0 and can never replace, so the scan is clipped to the histogram.
  const int lo = std::max(from, 0);
  const int hi = std::min(to, kHistBins - 1);
  for (int v = lo; v <= hi; ++v) {
    if (hist[v] > best) {
      best = hist[v];
      peak = v;
    }
  }
  return peak;
}

template <typename T>
inline int SampleAt(const T* row, int x) {
  return row[x];
}

// Output columns [x0, x1] of one row take the input at x + k, k clipped to the last column.
template <typename T>
void CopyShiftedRun(const T* in, T* out, const uint8_t* inConf, uint8_t* outConf, int x0, int x1,
                    int k, int width) {
  int split = std::min(x1, width - 1 - k);  // last x whose x + k stays inside
  if (split >= x0) {
    memcpy(out + x0, in + x0 + k, sizeof(T) * (split - x0 + 1));
    memcpy(outConf + x0, inConf + x0 + k, split - x0 + 1);
  } else {
    split = x0 - 1;
  }
  for (int x = split + 1; x <= x1; ++x) {
    out[x] = in[width - 1];
    outConf[x] = inConf[width - 1];
  }
}

// Each pixel's own search, for n consecutive pixels whose 50 columns all lie inside the row.
constexpr int kSearchChunk = 256;

inline void SearchChunk(const uint8_t* in, int n, int16_t* least, int16_t* firstK) {
  SearchLeast8(in, n, least, firstK);
}
inline void SearchChunk(const uint16_t* in, int n, int16_t* least, int16_t* firstK) {
  SearchLeast16(in, n, least, firstK);
}

template <typename T>
void CorrectArea(const T* in, const uint8_t* conf, int width, int stride, const BIVISTA_Rect& r,
                 T* out, uint8_t* outConf, int outStride) {
  // The best cost and its k carry over from pixel to pixel: a pixel whose search finds nothing
  // better reuses the previous k (a pixel's new best, if any, is the first k of its smallest
  // cost). Once a cost of 0 has been found nothing can beat it, so the rest of the area is a
  // plain shifted copy.
  int bestCost = INT_MAX;
  int bestK = 0;
  int16_t least[kSearchChunk], firstK[kSearchChunk];
  for (int row = r.top; row <= r.bottom; ++row) {
    const size_t base = static_cast<size_t>(row) * stride;
    const T* inRow = in + base;
    const uint8_t* confRow = conf + base;
    // Output rows are addressed from the rectangle's corner so that x indexes them directly.
    const ptrdiff_t outBase = static_cast<ptrdiff_t>(row - r.top) * outStride - r.left;
    T* outRow = out + outBase;
    uint8_t* outConfRow = outConf + outBase;
    int x = r.left;
    // Pixels whose whole search lies inside the row, a chunk at a time.
    const int lastFull = std::min(r.right, width - kCorrectSearch);
    while (x <= lastFull && bestCost != 0) {
      const int n = std::min(kSearchChunk, lastFull - x + 1);
      SearchChunk(inRow + x, n, least, firstK);
      // Between two improvements k stays put and the output is a shifted copy.
      const int x0 = x;
      int i = 0;
      while (i < n && bestCost != 0) {
        int j = i;
        while (j < n && least[j] >= bestCost) ++j;
        if (j > i) CopyShiftedRun(inRow, outRow, confRow, outConfRow, x0 + i, x0 + j - 1, bestK, width);
        if (j == n) {
          i = n;
          break;
        }
        bestCost = least[j];
        bestK = firstK[j];
        const int k = std::max(std::min(bestK, width - 1 - (x0 + j)), 0);
        outRow[x0 + j] = inRow[x0 + j + k];
        outConfRow[x0 + j] = confRow[x0 + j + k];
        i = j + 1;
      }
      x = x0 + i;
    }
    // Pixels near the row's end search against the last column.
    for (; x <= r.right && bestCost != 0; ++x) {
      for (int k = 0; k < kCorrectSearch; ++k) {
        const int d = SampleAt(inRow, std::min(x + k, width - 1)) >> 2;
        const int c = abs(k + 2 - d);
        if (c < bestCost) {
          bestCost = c;
          bestK = k;
          if (c == 0) break;
        }
      }
      const int k = std::max(std::min(bestK, width - 1 - x), 0);
      outRow[x] = inRow[x + k];
      outConfRow[x] = confRow[x + k];
    }
    if (x <= r.right) CopyShiftedRun(inRow, outRow, confRow, outConfRow, x, r.right, bestK, width);
  }
}

template <typename T>
void CorrectInto(const DisparityType& rec, const uint8_t* confidence, const BIVISTA_Rect& rect,
                 void* outDisp, uint8_t* outConf, int outStride) {
  CorrectArea(static_cast<const T*>(rec.data), confidence, rec.width, rec.stride, rect,
              static_cast<T*>(outDisp), outConf, outStride);
}

// Histogram of |raw + offset| >> 2 over the area; values outside 1..62 land in bins 0 and 63,
// which the caller ignores. The bins of a run of samples are computed first (vector pass), then
// counted in four interleaved tables so that repeated values do not serialise.
inline void MultiBins(const uint8_t* in, int dispOffset, int n, uint8_t* bins) {
  MultiDepthBins8(in, dispOffset, n, bins);
}
inline void MultiBins(const uint16_t* in, int dispOffset, int n, uint8_t* bins) {
  MultiDepthBins16(in, dispOffset, n, bins);
}

template <typename T>
void CountMultiDepth(const T* data, int dispOffset, int rowStride, int w, int h, int offset,
                     uint32_t* hist) {
  constexpr int kBins = kMultiOverflowBin + 1;
  constexpr int kRun = 1024;
  // Eight tables: flat areas hit one bin, and each table's increments wait on each other.
  constexpr int kTables = 8;
  uint32_t part[kTables][kBins] = {{0}};
  uint8_t bins[kRun];
  if (w <= 0) return;  // an empty area: no row pointer to form
  for (int j = 0; j < h; ++j) {
    const T* row = data + static_cast<size_t>(offset) + static_cast<size_t>(j) * rowStride;
    for (int x = 0; x < w; x += kRun) {
      const int n = std::min(kRun, w - x);
      MultiBins(row + x, dispOffset, n, bins);
      int i = 0;
      for (; i + kTables <= n; i += kTables) {
        for (int k = 0; k < kTables; ++k) ++part[k][bins[i + k]];
      }
      for (; i < n; ++i) ++part[0][bins[i]];
    }
  }
  for (int v = kMultiMin; v <= kMultiMax; ++v) {
    uint32_t sum = 0;
    for (int k = 0; k < kTables; ++k) sum += part[k][v];
    hist[v] = sum;
  }
}

}  // namespace

float getResizeFac(int width, int height) {
  const int w = width;
  const int h = height;
  if (3 * w == 4 * h || 9 * w == 16 * h || 115 * w == 204 * h || 2240 * w == 3968 * h ||
      9 * w == 18 * h) {
    return static_cast<float>(w * 0.00025201612);
  }
  if (w == h) return static_cast<float>(w * 0.0003360215);
  BV_LOGE(kTagAlgo, "getResizeFac", kLineGetResizeFac, "invalid image size:w=%d,h=%d", w, h);
  return 1.0f;
}

}  // namespace bivista

using namespace bivista;

extern "C" {

int D2DataAnalysisAFDisparity_New(DisparityType rec, int stride, int w, int h, int offset,
                                  float* result, int winW, int winH, const uint8_t* confidence) {
  uint32_t raw[kHistBins] = {0};
  uint32_t smooth[kHistBins] = {0};
  const int x0 = (w - winW) / 2;
  const int y0 = (h - winH) / 2;
  int maxD = 0;
  int minD = static_cast<int16_t>(w);
  for (int j = 0; j < winH; ++j) {
    const size_t rowStart = static_cast<size_t>(offset) + static_cast<size_t>(y0 + j) * stride + x0;
    for (int i = 0; i < winW; ++i) {
      const size_t idx = rowStart + i;
      const int d = static_cast<int16_t>(WrapAdd(RawSample(rec, idx), rec.dispOffset) >> 2);
      if (d < kMinKeptDisparity || confidence[idx] < kMinConfidence) continue;
      if (d < kHistBins) ++raw[d];  // 16-bit samples past the histogram still count in the max
      const int c = std::min(d, kSmoothClip);
      for (int b = c - 2; b <= c + 2; ++b) ++smooth[b];
      maxD = std::max(maxD, d);
      minD = std::min(minD, d);
    }
  }
  const int m = std::min(maxD, kHistBins - 1);
  const int smoothPeak = FirstPeak(smooth, minD, m);
  const int rawPeak = FirstPeak(raw, minD, m);
  const unsigned spread = static_cast<unsigned>(smoothPeak - rawPeak + 2);
  if (spread > 4) {
    result[0] = static_cast<float>(rawPeak);
    result[1] = static_cast<float>(smoothPeak);
    result[2] = static_cast<float>(m);
    result[3] = 0.0f;
    return static_cast<int>(spread);
  }
  const int p = rawPeak;
  const uint32_t hl = Bin(raw, p - 1), hc = Bin(raw, p), hr = Bin(raw, p + 1);
  float average;
  if (p > 3) {
    const int64_t num = static_cast<int64_t>(p - 1) * hl + static_cast<int64_t>(p) * hc +
                        static_cast<int64_t>(p + 1) * hr;
    const int64_t den = static_cast<int64_t>(hl) + hc + hr;
    average = static_cast<float>(num) / static_cast<float>(den);
  } else {
    // The left neighbour of a low peak is half trusted.
    const double num = 0.5 * (p - 1) * hl + static_cast<double>(p + 1) * hr +
                       static_cast<double>(p) * hc;
    const double den = 0.5 * hl + static_cast<double>(hr) + static_cast<double>(hc);
    average = static_cast<float>(num / den);
  }
  float score = static_cast<float>(Bin(smooth, smoothPeak)) * 457.14285f /
                    static_cast<float>(static_cast<int64_t>(winW) * winH) + 13.714287f;
  if (score > 255.0f) score = 255.0f;
  if (score < 0.0f) score = 0.0f;
  const int s = ToInt32Sat(score + 0.5f);
  result[0] = average;
  result[1] = static_cast<float>(smoothPeak);
  result[3] = static_cast<float>(s);
  return s;
}

int analysisAFDepth(DisparityType rec, int stride, int w, int h, int offset, float* result,
                    float /*K*/, const uint8_t* confidence) {
  constexpr int kGrowSteps = 6;
  constexpr float kEnoughScore = 64.0f;
  float r = 0.1f;
  int ww = static_cast<int>(w * r + 0.5f);
  int wh = static_cast<int>(h * r + 0.5f);
  int ret = D2DataAnalysisAFDisparity_New(rec, stride, w, h, offset, result, ww, wh, confidence);
  for (int i = 0; i < kGrowSteps; ++i) {
    r *= 1.5f;
    if (result[3] >= kEnoughScore) break;
    r = std::min(r, 1.0f);
    ww = static_cast<int>(w * r + 0.5f);
    wh = static_cast<int>(h * r + 0.5f);
    ret = D2DataAnalysisAFDisparity_New(rec, stride, w, h, offset, result, ww, wh, confidence);
  }
  return ret;
}

int D2AnalysisAFMultiDepth(DisparityType rec, int stride, int w, int h, int offset) {
  return MultiDepthRows(rec, stride, w, h, offset, static_cast<int16_t>(stride));
}

void CorrectFocusArea(DisparityType rec, const uint8_t* confidence, const BIVISTA_Rect* area,
                      void* outDisp, uint8_t* outConf) {
  const BIVISTA_Rect& rect = *area;
  const size_t corner = static_cast<size_t>(rect.top) * rec.stride + rect.left;
  if (rec.format == 0) {
    CorrectInto<uint8_t>(rec, confidence, rect, static_cast<uint8_t*>(outDisp) + corner,
                         outConf + corner, rec.stride);
  } else {
    CorrectInto<uint16_t>(rec, confidence, rect, static_cast<uint16_t*>(outDisp) + corner,
                          outConf + corner, rec.stride);
  }
}

}  // extern "C"

namespace bivista {

int MultiDepthRows(const DisparityType& rec, int rowStride, int w, int h, int offset,
                   int minStart) {
  uint32_t hist[kHistBins] = {0};
  if (rec.format == 0) {
    CountMultiDepth(static_cast<const uint8_t*>(rec.data), rec.dispOffset, rowStride, w, h, offset,
                    hist);
  } else {
    CountMultiDepth(static_cast<const uint16_t*>(rec.data), rec.dispOffset, rowStride, w, h,
                    offset, hist);
  }
  // Count, minimum and maximum of the kept samples follow from the bins.
  int64_t n = 0;
  int maxD = 0;
  int minD = minStart;
  for (int v = kMultiMin; v <= kMultiMax; ++v) {
    if (hist[v] == 0) continue;
    n += hist[v];
    maxD = v;
    minD = std::min(minD, v);
  }
  const int m = std::min(maxD, kHistBins - 1);
  if (n == 0 || m - minD < 5) return 0;
  const int p = FirstPeak(hist, minD, m);  // p >= 1 since n > 0
  const int start = std::min(std::max(p - 2, kMultiMin), kMultiMax - 4);
  int64_t s = 0;
  for (int v = start; v < start + 5; ++v) s += hist[v];
  if (100 * s > 90 * n || 100 * s < 10 * n) return 0;
  const float degree = (1.0f - static_cast<float>(s) / static_cast<float>(n)) * 255.0f + 0.5f;
  return std::min(std::max(ToInt32Sat(degree), 0), 255);
}

void CorrectFocusAreaPacked(const DisparityType& rec, const uint8_t* confidence,
                            const BIVISTA_Rect& rect, void* outDisp, uint8_t* outConf,
                            int outStride) {
  if (rec.format == 0) {
    CorrectInto<uint8_t>(rec, confidence, rect, outDisp, outConf, outStride);
  } else {
    CorrectInto<uint16_t>(rec, confidence, rect, outDisp, outConf, outStride);
  }
}

}  // namespace bivista
