// Runs a check once per vector target compiled into the library and supported by this CPU,
// forcing HWY_DYNAMIC_DISPATCH to that target for the duration of the call.
#ifndef BIVISTA_TESTS_SUPPORT_HWY_TARGETS_H
#define BIVISTA_TESTS_SUPPORT_HWY_TARGETS_H

#include <gtest/gtest.h>

#include "hwy/targets.h"

namespace bvtest {

template <class F>
void ForEachHwyTarget(F&& check) {
  const std::vector<int64_t> targets = hwy::SupportedAndGeneratedTargets();
  for (int64_t target : targets) {
    hwy::SetSupportedTargetsForTest(target);
    SCOPED_TRACE(hwy::TargetName(target));
    check(hwy::TargetName(target));
  }
  hwy::SetSupportedTargetsForTest(0);
}

}  // namespace bvtest

#endif
