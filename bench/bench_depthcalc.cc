// Bivista_CalcShift on a full-size 3968 x 2976 map with a focus area of 10% of each side.
// The peer is one plain pass over the area's confidence bytes: the floor of any per-call work.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "../tools/sample_scene.h"
#include "bench_targets.h"
#include "bivista/depthcalc.h"
#include "depthcalc/depthcalc_kernels.h"

namespace {

constexpr int kW = 3968, kH = 2976;

const bvtool::SampleScene& Scene(bool wide) {
  static std::unique_ptr<bvtool::SampleScene> scenes[2];
  std::unique_ptr<bvtool::SampleScene>& s = scenes[wide ? 1 : 0];
  if (!s) {
    s.reset(new bvtool::SampleScene);
    bvtool::MakeSampleScene(kW, kH, kW, wide, 1, s.get());
  }
  return *s;
}

// Centred on the object, 10% of each side.
BIVISTA_Rect FocusArea(const bvtool::SampleScene& s) {
  const int cx = (s.objLeft + s.objRight) / 2, cy = (s.objTop + s.objBottom) / 2;
  const int w = kW / 10, h = kH / 10;
  return BIVISTA_Rect{cx - w / 2, cy - h / 2, cx - w / 2 + w - 1, cy - h / 2 + h - 1};
}

void BM_CalcShift(benchmark::State& state) {
  const bool wide = state.range(0) != 0;
  const int mode = static_cast<int>(state.range(1));
  const bvtool::SampleScene& s = Scene(wide);
  DisparityType rec = s.rec;
  rec.mode = mode;
  const BIVISTA_Rect area = FocusArea(s);
  uint16_t depth = 0;
  int32_t multi = 0;
  uint8_t conf = 0;
  float sx = 0, sy = 0;
  for (auto _ : state) {
    const int rc = Bivista_CalcShift(&rec, s.conf.data(), &s.calib, area, kW, kH, 0, nullptr, 0,
                                     nullptr, nullptr, 2 | 16 | 4, &depth, &multi, &conf, &sx,
                                     &sy);
    if (rc != 0) state.SkipWithError("Bivista_CalcShift failed");
    benchmark::DoNotOptimize(sx);
  }
  state.SetLabel(wide ? "16-bit" : "8-bit");
}
BENCHMARK(BM_CalcShift)->ArgsProduct({{0, 1}, {0, 1}})->ArgNames({"wide", "mode"})
    ->Unit(benchmark::kMicrosecond);

// Mode 1 when no pixel of the area finds an exact match (every disparity above 51 pixels):
// every pixel runs the whole 50-step search.
void BM_CalcShiftMode1FarScene(benchmark::State& state) {
  static std::unique_ptr<bvtool::SampleScene> far;
  if (!far) {
    far.reset(new bvtool::SampleScene(Scene(true)));
    for (uint16_t& v : far->disp16) v = static_cast<uint16_t>(v + 4 * 45);
    far->rec.data = far->disp16.data();
  }
  DisparityType rec = far->rec;
  rec.mode = 1;
  rec.dispOffset = -4 * 45;
  const BIVISTA_Rect area = FocusArea(*far);
  uint16_t depth = 0;
  int32_t multi = 0;
  uint8_t conf = 0;
  float sx = 0, sy = 0;
  for (auto _ : state) {
    const int rc = Bivista_CalcShift(&rec, far->conf.data(), &far->calib, area, kW, kH, 0, nullptr,
                                     0, nullptr, nullptr, 2 | 16 | 4, &depth, &multi, &conf, &sx,
                                     &sy);
    if (rc != 0) state.SkipWithError("Bivista_CalcShift failed");
    benchmark::DoNotOptimize(sx);
  }
}
BENCHMARK(BM_CalcShiftMode1FarScene)->Unit(benchmark::kMicrosecond);

// Per target: the whole call (16-bit, mode 1) with the dispatch forced, and the mode-1 search
// kernel over the area's rows for its scalar definition and each target.
void Search(benchmark::State& state, void (*search)(const uint16_t*, int, int16_t*, int16_t*)) {
  const bvtool::SampleScene& s = Scene(true);
  const BIVISTA_Rect a = FocusArea(s);
  const int n = a.right - a.left + 1 - bivista::kCorrectSearch;
  std::vector<int16_t> least(n), firstK(n);
  for (auto _ : state) {
    for (int y = a.top; y <= a.bottom; ++y) {
      search(s.disp16.data() + static_cast<size_t>(y) * s.stride + a.left, n, least.data(),
             firstK.data());
    }
    benchmark::DoNotOptimize(least.data());
  }
}

const bool kRegistered = [] {
  bvbench::RegisterPerTarget("BM_CalcShift16Mode1", [](benchmark::State& state) {
    const bvtool::SampleScene& s = Scene(true);
    DisparityType rec = s.rec;
    rec.mode = 1;
    const BIVISTA_Rect area = FocusArea(s);
    uint16_t depth = 0;
    int32_t multi = 0;
    uint8_t conf = 0;
    float sx = 0, sy = 0;
    for (auto _ : state) {
      Bivista_CalcShift(&rec, s.conf.data(), &s.calib, area, kW, kH, 0, nullptr, 0, nullptr,
                        nullptr, 2 | 16 | 4, &depth, &multi, &conf, &sx, &sy);
      benchmark::DoNotOptimize(sx);
    }
  });
  benchmark::RegisterBenchmark("BM_SearchLeast16/scalar_definition", [](benchmark::State& st) {
    Search(st, bivista::scalar::SearchLeast16);
  })->Unit(benchmark::kMillisecond);
  bvbench::RegisterPerTarget("BM_SearchLeast16",
                             [](benchmark::State& st) { Search(st, bivista::SearchLeast16); });
  return true;
}();

// Peer: sum of the area's confidence bytes, row by row.
void BM_PeerOnePassOverArea(benchmark::State& state) {
  const bvtool::SampleScene& s = Scene(false);
  const BIVISTA_Rect a = FocusArea(s);
  for (auto _ : state) {
    uint32_t sum = 0;
    for (int y = a.top; y <= a.bottom; ++y) {
      const uint8_t* row = s.conf.data() + static_cast<size_t>(y) * s.stride;
      for (int x = a.left; x <= a.right; ++x) sum += row[x];
    }
    benchmark::DoNotOptimize(sum);
  }
}
BENCHMARK(BM_PeerOnePassOverArea)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
