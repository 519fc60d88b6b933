// Per-channel histogram tone matching of the corrected image to the reference image.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "bivista/colormatch.h"
#include "colormatch/tone_kernels.h"
#include "common/log_internal.h"

namespace {

using bivista::kTagAlgo;

constexpr int kLineEntering = 865;
constexpr int kLineNull = 868;
constexpr int kLineWhs = 871;
constexpr int kLineAllocOne = 878;
constexpr int kLineAllocThree = 896;
constexpr int kLineChannels = 927;
constexpr int kLineLeaving = 940;
constexpr int kLineInitChannel = 427;
constexpr int kLineHistChannel = 529;
constexpr int kLineCumChannel = 561;
constexpr int kLineDepopulated = 675;
constexpr int kLinePairChannel = 773;
constexpr int kLineProcessChannel = 851;

constexpr char kMemTag[] = "PRE_HIST_MATCH";
constexpr size_t kTableBytes = 1024;
constexpr size_t kBlockOne = 6144;
constexpr size_t kBlockThree = 18432;

bool Supported(int channels) { return channels == 1 || channels == 3; }

// Signed 32-bit sums that wrap like the two's-complement hardware, without signed overflow.
int32_t Wrap(uint32_t u) {
  return u <= 0x7FFFFFFFu ? static_cast<int32_t>(u) : -static_cast<int32_t>(~u) - 1;
}

// entry = centre of mass of hist over levels from..to, in signed 32-bit sums: a sum that passes
// 2^31 reads as negative and leaves the entry as it is.
void MoveToCentre(const int* hist, int from, int to, uint8_t* entry) {
  uint32_t n = 0, w = 0;
  for (int v = from; v <= to; ++v) {
    n += static_cast<uint32_t>(hist[v]);
    w += static_cast<uint32_t>(v) * static_cast<uint32_t>(hist[v]);
  }
  const int32_t sn = Wrap(n), sw = Wrap(w);
  if (sn >= 1 && sw >= 1) *entry = static_cast<uint8_t>(static_cast<uint32_t>(sw / sn));
}

// Points the record's tables into block (layout in the public header's order).
void CarveTables(uint8_t* block, int channels, image_color_analyze_para* para) {
  memset(para, 0, sizeof(*para));
  para->channelNum = channels;
  int32_t** tables[5] = {para->refHist, para->refCumHist, para->corHist, para->corCumHist,
                         para->offset};
  size_t at = 0;
  for (auto* kind : tables)
    for (int ch = 0; ch < channels; ++ch, at += kTableBytes)
      kind[ch] = reinterpret_cast<int32_t*>(block + at);
  for (int ch = 0; ch < channels; ++ch, at += 256) para->mapTable[ch] = block + at;
}

// Whether every pointer a stage reads for `channels` channels of the record is set.
bool TablesSet(const image_color_analyze_para* para, int channels) {
  if (para == nullptr) return false;
  for (int ch = 0; ch < channels; ++ch) {
    if (para->refHist[ch] == nullptr || para->refCumHist[ch] == nullptr ||
        para->corHist[ch] == nullptr || para->corCumHist[ch] == nullptr ||
        para->offset[ch] == nullptr || para->mapTable[ch] == nullptr)
      return false;
  }
  return true;
}

}  // namespace

extern "C" {

void initialAnalyseColor(image_color_analyze_para* para) {
  if (para == nullptr) return;
  const int channels = para->channelNum;
  if (!Supported(channels)) {
    BV_LOGW(kTagAlgo, "initialAnalyseColor", kLineInitChannel, "do not support channel %d",
            channels);
    return;
  }
  if (!TablesSet(para, channels)) return;
  for (int ch = 0; ch < channels; ++ch) {
    memset(para->refHist[ch], 0, kTableBytes);
    memset(para->refCumHist[ch], 0, kTableBytes);
    memset(para->corHist[ch], 0, kTableBytes);
    memset(para->corCumHist[ch], 0, kTableBytes);
    memset(para->offset[ch], 0, kTableBytes);
    for (int i = 0; i < 256; ++i) para->mapTable[ch][i] = static_cast<uint8_t>(i);
  }
}

void calculateHistogramofImage(const uint8_t* image, int width, int height, int stride,
                               int channelNum, int* hist0, int* hist1, int* hist2) {
  if (channelNum == 1) {
    if (image == nullptr || hist0 == nullptr) return;
    bivista::HistogramPlane(image, width, height, stride, hist0);
  } else if (channelNum == 3) {
    if (image == nullptr || hist0 == nullptr || hist1 == nullptr || hist2 == nullptr) return;
    bivista::HistogramPixels3(image, width, height, stride, hist0, hist1, hist2);
  } else {
    BV_LOGW(kTagAlgo, "calculateHistogramofImage", kLineHistChannel, "do not support channel %d\n",
            channelNum);
  }
}

void calculateCumHistogram(int* hist0, int* hist1, int* hist2, int channelNum, int* cum0,
                           int* cum1, int* cum2) {
  if (!Supported(channelNum)) {
    BV_LOGE(kTagAlgo, "calculateCumHistogram", kLineCumChannel, "%s unsupport chanel %d",
            "calculateCumHistogram", channelNum);
    return;
  }
  int* hists[3] = {hist0, hist1, hist2};
  int* cums[3] = {cum0, cum1, cum2};
  for (int ch = 0; ch < channelNum; ++ch) {
    if (hists[ch] == nullptr || cums[ch] == nullptr) continue;
    uint32_t run = 0;
    for (int i = 0; i < 256; ++i) {
      run += static_cast<uint32_t>(hists[ch][i]);
      cums[ch][i] = Wrap(run);
    }
  }
}

void analyseHistogramMatching(int* refCumHist, int* corCumHist, uint8_t* mapTable, int* offset) {
  if (refCumHist == nullptr || corCumHist == nullptr || mapTable == nullptr || offset == nullptr)
    return;
  int j = 0;
  for (int i = 0; i < 255; ++i) {
    const int t = corCumHist[i];
    for (int k = j; k <= 253; ++k) {
      if (refCumHist[k] <= t && t < refCumHist[k + 1]) {
        mapTable[i] = static_cast<uint8_t>(k);
        offset[i] = k - i;
        j = k;
        break;
      }
    }
  }
}

int findDepopulatedPosition(int* corHist, uint8_t* mapTable, int* offset) {
  if (corHist == nullptr || mapTable == nullptr || offset == nullptr) return 0;
  int remapped[256] = {0};
  for (int i = 0; i < 256; ++i) remapped[mapTable[i]] = corHist[i];
  const int start = mapTable[0], end = mapTable[255];
  int repaired = 0;
  for (int k = start; k < end;) {
    if (remapped[k] != 0) {
      ++k;
      continue;
    }
    int last = k, full = 0;
    for (int x = k + 1; x <= 255 && full < 4; ++x) {
      if (remapped[x] == 0) {
        last = x;
        full = 0;
      } else {
        ++full;
      }
    }
    const int length = last - k;
    if (length >= 6 && length <= 29) {
      BV_LOGD(kTagAlgo, "findDepopulatedPosition", kLineDepopulated,
              "find depopulate position SE=%d,%d\n", k, last);
      // Offsets a caller hands in may lie anywhere: the sum and the levels are taken in 64 bits
      // (the mean of two ints is an int).
      const int64_t a = static_cast<int64_t>(offset[k]) + offset[last];
      const int mean = static_cast<int>(a >= 0 ? (a + 1) / 2 : (a - 1) / 2);
      for (int x = k; x < last; ++x) {
        const int64_t v = static_cast<int64_t>(x) + mean;
        mapTable[x] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
        offset[x] = mean;
      }
      ++repaired;
    }
    k = last + 1;
  }
  return repaired;
}

void adjustHeadAndTail(int* refHist, uint8_t* mapTable) {
  if (refHist == nullptr || mapTable == nullptr) return;
  MoveToCentre(refHist, 0, mapTable[0], &mapTable[0]);
  MoveToCentre(refHist, mapTable[255], 255, &mapTable[255]);
}

void analyzeInputImagePair(const uint8_t* refImage, const uint8_t* corImage, int width,
                           int height, int stride, int channelNum,
                           image_color_analyze_para* para) {
  if (para == nullptr) return;
  para->channelNum = channelNum;
  initialAnalyseColor(para);
  if (Supported(channelNum) && (refImage == nullptr || corImage == nullptr ||
                                !TablesSet(para, channelNum)))
    return;
  const int c = channelNum;
  calculateHistogramofImage(refImage, width, height, stride, c, para->refHist[0],
                            para->refHist[1], para->refHist[2]);
  calculateCumHistogram(para->refHist[0], para->refHist[1], para->refHist[2], c,
                        para->refCumHist[0], para->refCumHist[1], para->refCumHist[2]);
  calculateHistogramofImage(corImage, width, height, stride, c, para->corHist[0],
                            para->corHist[1], para->corHist[2]);
  calculateCumHistogram(para->corHist[0], para->corHist[1], para->corHist[2], c,
                        para->corCumHist[0], para->corCumHist[1], para->corCumHist[2]);
  if (!Supported(channelNum)) {
    BV_LOGW(kTagAlgo, "analyzeInputImagePair", kLinePairChannel,
            "do not support channel number %d\n", channelNum);
    return;
  }
  for (int ch = 0; ch < c; ++ch)
    analyseHistogramMatching(para->refCumHist[ch], para->corCumHist[ch], para->mapTable[ch],
                             para->offset[ch]);
  for (int ch = 0; ch < c; ++ch)
    findDepopulatedPosition(para->corHist[ch], para->mapTable[ch], para->offset[ch]);
  for (int ch = 0; ch < c; ++ch) adjustHeadAndTail(para->refHist[ch], para->mapTable[ch]);
}

void processCorImage(uint8_t* image, int width, int height, int stride, int channelNum,
                     image_color_analyze_para* para) {
  if (!Supported(channelNum)) {
    BV_LOGE(kTagAlgo, "processCorImage", kLineProcessChannel, "%s unsupport channel %d",
            "processCorImage", channelNum);
    return;
  }
  if (image == nullptr || para == nullptr) return;
  for (int ch = 0; ch < channelNum; ++ch)
    if (para->mapTable[ch] == nullptr) return;
  if (channelNum == 1)
    bivista::ApplyTablePlane(image, width, height, stride, para->mapTable[0]);
  else
    bivista::ApplyTablesPixels3(image, width, height, stride, para->mapTable[0],
                                para->mapTable[1], para->mapTable[2]);
}

void imageColorToneMatching(const uint8_t* refImage, uint8_t* corImage, int width, int height,
                            int stride, int channelNum, vta_algo_mem_allocator_t* allocator) {
  static const char kFunc[] = "imageColorToneMatching";
  BV_LOGD(kTagAlgo, kFunc, kLineEntering, "Entering.");
  if (refImage == nullptr || corImage == nullptr || allocator == nullptr) {
    BV_LOGE(kTagAlgo, kFunc, kLineNull, "input data pointer is NULL in preprocess!!");
    return;
  }
  BV_LOGD(kTagAlgo, kFunc, kLineWhs, "preprocess image with WHS=%d,%d,%d channel %d", width,
          height, stride, channelNum);
  if (!Supported(channelNum)) {
    BV_LOGW(kTagAlgo, kFunc, kLineChannels, "do not support color channel number %d",
            channelNum);
    return;
  }
  const bool one = channelNum == 1;
  uint8_t* block = nullptr;
  if (allocator->malloc != nullptr && allocator->free != nullptr)
    block = static_cast<uint8_t*>(
        allocator->malloc(one ? kBlockOne : kBlockThree, VTA_MEM_TAG(kMemTag), 0));
  if (block == nullptr) {
    BV_LOGE(kTagAlgo, kFunc, one ? kLineAllocOne : kLineAllocThree,
            "malloced memory for imageColorToneMatching failed!");
    return;
  }
  image_color_analyze_para para;
  CarveTables(block, channelNum, &para);
  analyzeInputImagePair(refImage, corImage, width, height, stride, channelNum, &para);
  processCorImage(corImage, width, height, stride, channelNum, &para);
  allocator->free(block, VTA_MEM_TAG(kMemTag), 0);
  BV_LOGD(kTagAlgo, kFunc, kLineLeaving, "Leaving .");
}

}  // extern "C"
