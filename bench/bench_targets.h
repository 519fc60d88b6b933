// Per-target figures: a benchmark registered once per vector target compiled into the library
// and supported by this CPU, with the dispatch forced to that target while it runs (as the
// tests force it). Names end in "/<target>"; the scalar definitions are registered apart.
#ifndef BIVISTA_BENCH_BENCH_TARGETS_H
#define BIVISTA_BENCH_BENCH_TARGETS_H

#include <benchmark/benchmark.h>

#include <string>
#include <utility>

#include "hwy/targets.h"

namespace bvbench {

template <class F>
void RegisterPerTarget(const std::string& name, F fn) {
  for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
    benchmark::RegisterBenchmark((name + "/" + hwy::TargetName(target)).c_str(),
                                 [target, fn](benchmark::State& state) {
                                   hwy::SetSupportedTargetsForTest(target);
                                   fn(state);
                                   hwy::SetSupportedTargetsForTest(0);
                                 })
        ->Unit(benchmark::kMillisecond);
  }
}

// Registers at static initialisation, like BENCHMARK().
struct PerTarget {
  template <class F>
  PerTarget(const std::string& name, F fn) {
    RegisterPerTarget(name, std::move(fn));
  }
};

}  // namespace bvbench

#endif
