// Shared pieces of the fuzz targets: platform stand-ins, a byte reader, target forcing.
#ifndef BIVISTA_TESTS_FUZZ_SUPPORT_H
#define BIVISTA_TESTS_FUZZ_SUPPORT_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <initializer_list>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "bivista/mem_services.h"

namespace bvfuzz {

// Log lines the library wrote since the last ClearLog (text only, formatted).
std::vector<std::string> LogLines();
void ClearLog();
// Properties served to the library; all read empty unless set (dumps stay off).
void SetProperty(const char* name, const char* value);

// Runs fn once on the best compiled vector target and once forced to the lowest one (the
// scalar-most), restoring the dispatch afterwards. fn(bool lowest).
template <class F>
void OnBestAndLowestTarget(F&& fn);

// One input for one of the families, picked by the input's first choice (in list order) after
// the log is cleared. Returns 0 for LLVMFuzzerTestOneInput.
using Family = void (*)(FuzzedDataProvider&);
int RunFamily(const uint8_t* data, size_t size, std::initializer_list<Family> families);

// A dimension in [lo, hi], biased towards small values and the edges of the range.
int Dim(FuzzedDataProvider& p, int lo, int hi);
// Any int, biased towards the limits and small values (for offsets, radii, strides).
int AnyInt(FuzzedDataProvider& p);

// Buffer of exactly n elements filled from the input (the rest repeats a pattern), so that a
// read or write one past the end faults under AddressSanitizer.
template <class T>
std::vector<T> Buffer(FuzzedDataProvider& p, size_t n) {
  std::vector<T> v(n);
  const std::vector<uint8_t> bytes = p.ConsumeBytes<uint8_t>(n * sizeof(T));
  uint8_t* dst = reinterpret_cast<uint8_t*>(v.data());
  for (size_t i = 0; i < n * sizeof(T); ++i) {
    dst[i] = bytes.empty() ? static_cast<uint8_t>(i * 37u) : bytes[i % bytes.size()];
  }
  return v;
}

// Aborts (a finding) when the condition fails; message goes to stderr.
void Check(bool ok, const char* what);

// Elements of h rows of w, rows `stride` apart, up to the end of the last row (0 when empty).
size_t Extent(int w, int h, int stride);
// Elements of an a x b plane (0 when a side is below 1).
inline size_t Area(int a, int b) { return Extent(a, b, a); }

// A pool of 1 to 8 workers made once for the program (null while it cannot be made).
void* SharedPool(int workers);

// A host memory table on the C library that counts its live blocks. HeapFail(n): the n-th
// allocation from now fails (n < 0: every one, 0: none).
extern const vta_algo_mem_allocator_t kHeap;
void HeapFail(int nth);
int HeapLive();

// A classes x classes weight map (1 x 1 for a count below 1) of any floats from the input;
// null when it cannot be allocated. Release with float2D_release.
float** WeightMap(FuzzedDataProvider& p, int classes);

// Elements equal bit for bit; any two NaNs count as equal (payloads differ between ISAs and
// instructions and are not part of any result). Other than plain data (log lines) by ==.
template <class T>
bool SameElement(const T& a, const T& b) {
  if constexpr (!std::is_trivially_copyable_v<T>) {
    return a == b;
  } else {
    if constexpr (std::is_floating_point_v<T>) {
      if (a != a && b != b) return true;
    }
    return memcmp(&a, &b, sizeof(T)) == 0;
  }
}
template <class T>
bool SameBytes(const std::vector<T>& a, const std::vector<T>& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (!SameElement(a[i], b[i])) return false;
  }
  return true;
}

void ReportDiff(const char* what, size_t index, size_t sizeA, size_t sizeB, const void* a,
                const void* b, size_t bytes);

// Check(SameBytes(a, b)) that names the first differing element on failure.
template <class T>
void CheckSame(const std::vector<T>& a, const std::vector<T>& b, const char* what) {
  if (SameBytes(a, b)) return;
  size_t i = 0;
  while (i < a.size() && i < b.size() && SameElement(a[i], b[i])) ++i;
  ReportDiff(what, i, a.size(), b.size(), i < a.size() ? &a[i] : nullptr,
             i < b.size() ? &b[i] : nullptr, std::is_trivially_copyable_v<T> ? sizeof(T) : 0);
}

// Every element past the width of a row, up to the next row, still equals init's.
template <class T>
void CheckPadding(const std::vector<T>& out, const std::vector<T>& init, int w, int h, int stride,
                  const char* what) {
  for (int y = 0; y + 1 < h && w >= 1; ++y) {
    for (size_t i = static_cast<size_t>(y) * stride + w; i < static_cast<size_t>(y + 1) * stride; ++i) {
      Check(SameElement(out[i], init[i]), what);
    }
  }
}

void SetTargetForTest(bool lowest);

template <class T>
struct Twin {
  std::vector<T> out;  // the best target's output
  int rc;              // its result (0 when the call returns none)
};

// Runs call(out) on the best and on the lowest target, each on a fresh copy of init: outputs and
// integer results must agree; with mustStay the output must still be init.
template <class T, class F>
Twin<T> Twins(const std::vector<T>& init, const char* what, F&& call, bool mustStay = false) {
  std::vector<T> out[2];
  int rc[2] = {0, 0};
  OnBestAndLowestTarget([&](bool lowest) {
    out[lowest] = init;
    using R = decltype(call(out[lowest].data()));
    if constexpr (std::is_integral_v<R>) {
      rc[lowest] = static_cast<int>(call(out[lowest].data()));
    } else {
      call(out[lowest].data());
    }
  });
  Check(rc[0] == rc[1], what);
  CheckSame(out[0], out[1], what);
  if (mustStay) CheckSame(out[0], init, what);
  return {std::move(out[0]), rc[0]};
}

// Twins for several outputs of any element types: call(outs...) runs on each target with every
// output a fresh copy of its init; each output must agree between the targets. Returns the best
// target's outputs (a one-element output carries a scalar result). A call taking a leading bool
// is told which run it is (lowest).
template <class F, class... V>
std::tuple<V...> TwinSet(const char* what, F&& call, const V&... init) {
  std::tuple<V...> out[2];
  OnBestAndLowestTarget([&](bool lowest) {
    out[lowest] = std::tuple<V...>(init...);
    std::apply([&](V&... o) {
      if constexpr (std::is_invocable_v<F&, bool, V&...>) {
        call(lowest, o...);
      } else {
        call(o...);
      }
    }, out[lowest]);
  });
  std::apply([&](const V&... a) {
    std::apply([&](const V&... b) { (CheckSame(a, b, what), ...); }, out[1]);
  }, out[0]);
  return std::move(out[0]);
}

template <class F>
void OnBestAndLowestTarget(F&& fn) {
  SetTargetForTest(false);
  fn(false);
  SetTargetForTest(true);
  fn(true);
  SetTargetForTest(false);
}

}  // namespace bvfuzz

#endif
