#include "support.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <limits>
#include <map>
#include <mutex>

#include "bivista/mthread.h"
#include "hwy/targets.h"

namespace bvfuzz {
namespace {
std::vector<std::string>& Log() {
  static std::vector<std::string> lines;
  return lines;
}
// Pool workers log concurrently with the input's own thread.
std::mutex& LogLock() {
  static std::mutex lock;
  return lock;
}
std::map<std::string, std::string>& Props() {
  static std::map<std::string, std::string> props;
  return props;
}
}  // namespace

std::vector<std::string> LogLines() {
  const std::lock_guard<std::mutex> hold(LogLock());
  return Log();
}
void ClearLog() {
  const std::lock_guard<std::mutex> hold(LogLock());
  Log().clear();
}
void SetProperty(const char* name, const char* value) { Props()[name] = value; }

int RunFamily(const uint8_t* data, size_t size, std::initializer_list<Family> families) {
  FuzzedDataProvider p(data, size);
  ClearLog();
  const int pick = p.ConsumeIntegralInRange<int>(0, static_cast<int>(families.size()) - 1);
  families.begin()[pick](p);
  return 0;
}

int Dim(FuzzedDataProvider& p, int lo, int hi) {
  switch (p.ConsumeIntegralInRange<int>(0, 3)) {
    case 0: return lo;
    case 1: return hi;
    case 2: return p.ConsumeIntegralInRange<int>(lo, lo + (hi - lo < 16 ? hi - lo : 16));
    default: return p.ConsumeIntegralInRange<int>(lo, hi);
  }
}

int AnyInt(FuzzedDataProvider& p) {
  constexpr int kMax = std::numeric_limits<int>::max(), kMin = std::numeric_limits<int>::min();
  switch (p.ConsumeIntegralInRange<int>(0, 5)) {
    case 0: return kMax - p.ConsumeIntegralInRange<int>(0, 3);
    case 1: return kMin + p.ConsumeIntegralInRange<int>(0, 3);
    case 2: return p.ConsumeIntegralInRange<int>(-16, 16);
    case 3: return p.ConsumeIntegralInRange<int>(-4096, 4096);
    default: return p.ConsumeIntegral<int>();
  }
}

void Check(bool ok, const char* what) {
  if (!ok) {
    fprintf(stderr, "fuzz check failed: %s\n", what);
    abort();
  }
}

size_t Extent(int w, int h, int stride) {
  if (w < 1 || h < 1) return 0;
  return static_cast<size_t>(h - 1) * static_cast<size_t>(stride) + static_cast<size_t>(w);
}

void* SharedPool(int workers) {
  // A plain static array: nothing destroys it before the leak check at exit.
  static void* pools[9];
  if (workers < 1 || workers > 8) abort();
  if (pools[workers] == nullptr) pools[workers] = MThread_Create(workers, nullptr, nullptr);
  return pools[workers];
}

namespace {
int g_failAt = 0, g_live = 0;
void* HeapMalloc(size_t size, uint64_t, uint64_t) {
  if (g_failAt < 0 || (g_failAt > 0 && --g_failAt == 0)) return nullptr;
  void* p = malloc(size);
  g_live += p != nullptr;
  return p;
}
void HeapFree(void* p, uint64_t, uint64_t) {
  g_live -= p != nullptr;
  free(p);
}
}  // namespace

const vta_algo_mem_allocator_t kHeap = {HeapMalloc, HeapFree, nullptr};
void HeapFail(int nth) { g_failAt = nth; }
int HeapLive() { return g_live; }

float** WeightMap(FuzzedDataProvider& p, int classes) {
  const int c = classes > 0 ? classes : 1;
  float** map = float2D(c, c);
  if (map == nullptr) return nullptr;
  const std::vector<float> v = Buffer<float>(p, static_cast<size_t>(c) * c);
  memcpy(map[0], v.data(), v.size() * sizeof(float));
  return map;
}

void ReportDiff(const char* what, size_t index, size_t sizeA, size_t sizeB, const void* a,
                const void* b, size_t bytes) {
  fprintf(stderr, "fuzz check failed: %s: sizes %zu and %zu, first difference at element %zu:",
          what, sizeA, sizeB, index);
  for (const void* side : {a, b}) {
    fprintf(stderr, " ");
    for (size_t k = 0; side && k < bytes; ++k) {
      fprintf(stderr, "%02x", static_cast<const uint8_t*>(side)[bytes - 1 - k]);
    }
  }
  fprintf(stderr, "\n");
  abort();
}

void SetTargetForTest(bool lowest) {
  if (!lowest) {
    hwy::SetSupportedTargetsForTest(0);
    return;
  }
  int64_t worst = 0;
  for (int64_t t : hwy::SupportedAndGeneratedTargets()) worst = t > worst ? t : worst;
  hwy::SetSupportedTargetsForTest(worst);
}

}  // namespace bvfuzz

// Platform entries the library calls by name (on Android: liblog and libc).
extern "C" int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
  char buf[1024];
  vsnprintf(buf, sizeof buf, fmt, ap);
  const std::lock_guard<std::mutex> hold(bvfuzz::LogLock());
  std::vector<std::string>& log = bvfuzz::Log();
  if (log.size() < 4096) log.emplace_back(buf);
  return 1;
}

extern "C" int __system_property_get(const char* name, char* value) {
  auto& props = bvfuzz::Props();
  auto it = props.find(name ? name : "");
  const std::string v = it == props.end() ? std::string() : it->second;
  snprintf(value, 92, "%s", v.c_str());
  return static_cast<int>(v.size());
}
