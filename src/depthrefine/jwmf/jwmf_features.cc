// Depth quantiser and the two feature builders of the weighted median.
#include <math.h>
#include <stdint.h>

#include "bivista/jwmf.h"
#include "bivista/mem_services.h"
#include "common/log_internal.h"
#include "depthrefine/jwmf/jwmf_internal.h"

namespace bivista {
namespace jwmf {
namespace {

constexpr float kMinStep = 0.001f;
constexpr float kSameColour = 6.0f;

// Symmetric class-to-class weights from a squared distance function.
template <typename Dist2>
void FillWeights(float** w, int classes, Dist2 dist2) {
  for (int a = 0; a < classes; ++a) {
    w[a][a] = 1.0f;
    for (int b = a + 1; b < classes; ++b) {
      const float v = expf(-dist2(a, b) * kWeightConstant);
      w[a][b] = v;
      w[b][a] = v;
    }
  }
}

// A segment in the relabelling list (6 words: link, three colours, its class, spare).
struct SegNode {
  int32_t next;
  float colour[3];
  int32_t cls;
  int32_t spare;
};

int SegFeatures(const JWMFSegFeatureArgs& a) {
  const char* const fn = "getFeatureByMSSeg";
  BV_LOGD(kTagAlgo, fn, kLineSegCount, "originally input meanshift segment part number %d\n",
          a.segmentCount);
  const int64_t count = a.segmentCount > 0 ? a.segmentCount : 0;
  const int64_t nodeBytes = count * static_cast<int64_t>(sizeof(SegNode));
  auto* nodes = static_cast<SegNode*>(safeNew(nodeBytes > INT32_MAX ? -1 : static_cast<int>(nodeBytes)));
  auto* means = static_cast<float*>(
      safeNew(count * 12 > INT32_MAX ? -1 : static_cast<int>(count * 12)));
  if (nodes == nullptr || means == nullptr) {
    BV_LOGE(kTagAlgo, fn, kLineSegMalloc, "mallced memory failed!!");
    safeDelete(nodes);
    safeDelete(means);
    return -1;
  }
  const int n = static_cast<int>(count);
  for (int i = 0; i < n; ++i) {
    nodes[i].next = i + 1 < n ? i + 1 : -1;
    for (int c = 0; c < 3; ++c) nodes[i].colour[c] = a.colors[3 * i + c];
    nodes[i].cls = 0;
  }
  // Greedy classes: each class is the first segment left and every later one within 6.0 of it
  // in all three channels.
  int head = n > 0 ? 0 : -1;
  int classes = 0;
  while (head >= 0) {
    const SegNode& first = nodes[head];
    float sum[3] = {0.f, 0.f, 0.f};
    int taken = 0;
    int prev = -1;
    int newHead = -1;
    for (int i = head; i >= 0;) {
      const int next = nodes[i].next;
      const bool same = i == head ||
                        (fabsf(nodes[i].colour[0] - first.colour[0]) < kSameColour &&
                         fabsf(nodes[i].colour[1] - first.colour[1]) < kSameColour &&
                         fabsf(nodes[i].colour[2] - first.colour[2]) < kSameColour);
      if (same) {
        nodes[i].cls = classes;
        for (int c = 0; c < 3; ++c) sum[c] += nodes[i].colour[c];
        ++taken;
        if (prev >= 0) nodes[prev].next = next;
      } else {
        if (newHead < 0) newHead = i;
        prev = i;
      }
      i = next;
    }
    const float inv = 1.0f / static_cast<float>(taken);
    for (int c = 0; c < 3; ++c) means[3 * classes + c] = sum[c] * inv;
    ++classes;
    head = newHead;
  }
  BV_LOGD(kTagAlgo, fn, kLineSegLeft, "after reLabel left part number %d\n", classes);
  *a.classCount = classes;
  const int64_t pixels = PixelCount(a.width, a.height);
  for (int64_t i = 0; i < pixels; ++i) {
    const int32_t label = a.labels[i];
    a.features[i] = label >= 0 && label < n ? nodes[label].cls : 0;
  }
  safeDelete(nodes);
  float** w = float2D(classes, classes);
  if (w == nullptr) {
    BV_LOGE(kTagAlgo, fn, kLineSegWmap, "get wmap memory failed!!");
    safeDelete(means);
    *a.weightMap = nullptr;
    return -1;
  }
  FillWeights(w, classes, [means](int p, int q) {
    const float dy = means[3 * p] - means[3 * q];
    const float du = means[3 * p + 1] - means[3 * q + 1];
    const float dv = means[3 * p + 2] - means[3 * q + 2];
    return dy * dy + du * du + dv * dv;
  });
  safeDelete(means);
  *a.weightMap = w;
  return 0;
}

}  // namespace

template <typename T>
bool Quantise(const float* depth, T* levels, float* table, int levelCount, int width,
              int height) {
  if (levelCount < 1) return false;
  const int64_t pixels = PixelCount(width, height);
  float maxV, minV;
  QuantMinMax(depth, pixels, &minV, &maxV);
  const float step = (maxV - minV) / static_cast<float>(levelCount - 1);
  if (step < kMinStep) {
    BV_LOGW(kTagAlgo, "from32FTo32SSimple", kLineQuantFlat,
            "depth step %3.5f is less than %3.5f because of maxDepth %3.5f minDepth %3.5f!!",
            step, kMinStep, maxV, minV);
    return false;
  }
  table[0] = minV;
  for (int k = 1; k < levelCount; ++k) table[k] = table[k - 1] + step;
  QuantLevels(depth, pixels, minV, 1.0f / step, levelCount, levels);
  BV_LOGD(kTagAlgo, "from32FTo32SSimple", kLineQuantDone,
          "input depthData max %3.2f min %3.2f range %3.2f step %3.5f\n", maxV, minV,
          maxV - minV, step);
  return true;
}

template <typename T>
int ImgFeatures(const uint8_t* guide, T* features, float*** weightMap, int32_t* classCount,
                int width, int height, int fixedClasses) {
  const int64_t pixels = PixelCount(width, height);
  int top = 0;
  for (int64_t i = 0; i < pixels; ++i) {
    const int f = guide[i] >> 2;
    features[i] = static_cast<T>(f);
    if (f > top) top = f;
  }
  const int classes = fixedClasses == 0 ? 64 : top + 1;
  BV_LOGD(kTagAlgo, "getFeatureByImg", kLineImgCount,
          "----------------------------- set feature number to %d", classes);
  *classCount = classes;
  float** w = float2D(classes, classes);
  *weightMap = w;
  if (w == nullptr) {
    BV_LOGE(kTagAlgo, "getFeatureByImg", kLineImgWmap, "float2D failed!!");
    return -1;
  }
  FillWeights(w, classes, [](int p, int q) {
    const float d = 4.0f * static_cast<float>(q - p);
    return d * d;
  });
  return 0;
}

template bool Quantise<int32_t>(const float*, int32_t*, float*, int, int, int);
template bool Quantise<uint8_t>(const float*, uint8_t*, float*, int, int, int);
template int ImgFeatures<int32_t>(const uint8_t*, int32_t*, float***, int32_t*, int, int, int);
template int ImgFeatures<uint8_t>(const uint8_t*, uint8_t*, float***, int32_t*, int, int, int);

}  // namespace jwmf
}  // namespace bivista

using namespace bivista::jwmf;

void* from32FTo32SSimple_MulThread(void* argument, int /*threadIndex*/) {
  const auto* a = static_cast<const JWMFQuantArgs*>(argument);
  Quantise(a->depth, a->levels, a->table, a->levelCount, a->width, a->height);
  return nullptr;
}

void* getFeatureByMSSeg_Thread(void* argument, int /*threadIndex*/) {
  const auto* a = static_cast<const JWMFSegFeatureArgs*>(argument);
  *a->status = SegFeatures(*a);
  return nullptr;
}

void* getFeatureByImg_MulThread(void* argument, int /*threadIndex*/) {
  const auto* a = static_cast<const JWMFImgFeatureArgs*>(argument);
  *a->status = ImgFeatures(a->guide, a->features, a->weightMap, a->classCount, a->width,
                           a->height, a->fixedClasses);
  return nullptr;
}
