#ifndef BIVISTA_TESTS_SUPPORT_ALLOC_TABLE_INL_H
#define BIVISTA_TESTS_SUPPORT_ALLOC_TABLE_INL_H

#include <gtest/gtest.h>

namespace bvtest {

template <typename Body>
int ForEachMallocFailure(Body body, int maxRuns) {
  int run = 1;
  for (; run <= maxRuns; ++run) {
    bool failed = false;
    long live = 0;
    {
      MallocWatch watch;
      watch.FailAt(run);
      body(run);
      failed = watch.failed();
      live = watch.live();
    }
    EXPECT_EQ(live, 0) << "allocation failure " << run << " leaked";
    if (!failed) break;
  }
  return run;
}

}  // namespace bvtest

#endif
