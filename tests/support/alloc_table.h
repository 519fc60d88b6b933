// Allocation accounting for tests: a host memory-function table, and the C library's malloc as
// seen by the library's objects (test programs link with --wrap=malloc,calloc,realloc,free).
#ifndef BIVISTA_TESTS_SUPPORT_ALLOC_TABLE_H
#define BIVISTA_TESTS_SUPPORT_ALLOC_TABLE_H

#include <gtest/gtest.h>
#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "bivista/mem_services.h"

namespace bvtest {

// A vta_algo_mem_allocator_t whose malloc counts calls, records tags and fails on demand.
// One instance at a time.
class AllocTable {
 public:
  AllocTable();
  ~AllocTable();
  const vta_algo_mem_allocator_t* table() const { return &table_; }
  vta_algo_mem_allocator_t* table() { return &table_; }
  // Fail the n-th malloc call from now on (1-based); 0 disables.
  void FailAt(int n);
  int mallocs() const;
  int frees() const;
  int live() const;  // allocations not yet freed
  std::vector<std::string> tags() const;

 private:
  vta_algo_mem_allocator_t table_;
};

// Counts and fails the library's own malloc/calloc/realloc calls while armed. One at a time.
class MallocWatch {
 public:
  MallocWatch();
  ~MallocWatch();
  void FailAt(int n);  // fail the n-th allocation call from now on (1-based); 0 disables
  void FillWith(int byte);  // fill fresh malloc blocks (never-written scratch reads as this)
  int calls() const;   // allocation calls seen
  long live() const;   // allocations minus frees of blocks seen while armed
  bool failed() const; // whether the armed failure happened
  std::vector<size_t> sizes() const;  // bytes asked by the first 64 calls
};

// Runs body once per allocation it makes, failing the k-th on run k, until a run completes
// without reaching the armed failure; checks that no run leaks. Returns the number of runs.
template <typename Body>
int ForEachMallocFailure(Body body, int maxRuns = 1000) {
  int run = 1;
  for (; run <= maxRuns; ++run) {
    bool failed;
    long live;
    {  // the check itself is made with the watch off
      MallocWatch watch;
      watch.FailAt(run);
      body(run);
      failed = watch.failed(), live = watch.live();
    }
    EXPECT_EQ(live, 0) << "allocation failure " << run << " leaked";
    if (!failed) break;
  }
  return run;
}

}  // namespace bvtest

#endif
