#include "bivista/mthread.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bivista/mem_services.h"
#include "support/alloc_table.h"
#include "support/platform_capture.h"

namespace {

using bvtest::CountMsg;
using bvtest::LogCapture;

const char kMthd[] = "ZR481_MTHD";
const char kXelma[] = "Xelma_Algo";

// Whether CPUs 4-7 exist: masks naming only absent CPUs are refused by the kernel.
// Whether this platform lets a thread bind to CPUs 4-7, asked the way the pool asks (the raw
// system call); an emulator may answer differently from the CPU count the C library reports.
bool HaveBigCluster() {
  cpu_set_t saved;
  CPU_ZERO(&saved);
  if (sched_getaffinity(0, sizeof saved, &saved) != 0) return false;
  cpu_set_t big;
  CPU_ZERO(&big);
  for (int c = 4; c < 8; ++c) CPU_SET(c, &big);
  const bool ok = syscall(SYS_sched_setaffinity, 0, sizeof big, &big) == 0;
  sched_setaffinity(0, sizeof saved, &saved);
  return ok;
}

// Restores the calling thread's affinity when a test may have changed it.
class AffinityGuard {
 public:
  AffinityGuard() { sched_getaffinity(0, sizeof saved_, &saved_); }
  ~AffinityGuard() { sched_setaffinity(0, sizeof saved_, &saved_); }

 private:
  cpu_set_t saved_;
};

struct Seen {
  std::mutex mutex;
  std::vector<int> indices;
  std::vector<std::thread::id> threads;
  std::vector<uint32_t> masks;
  std::vector<int> nice;
  std::vector<std::string> names;
};

void* Record(void* argument, int index) {
  Seen* seen = static_cast<Seen*>(argument);
  cpu_set_t set;
  CPU_ZERO(&set);
  sched_getaffinity(0, sizeof set, &set);
  uint32_t mask = 0;
  for (int c = 0; c < 32; ++c) mask |= CPU_ISSET(c, &set) ? (1u << c) : 0u;
  errno = 0;
  const int nice = getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)));
  char name[16] = {0};
  pthread_getname_np(pthread_self(), name, sizeof name);
  std::lock_guard<std::mutex> lock(seen->mutex);
  seen->indices.push_back(index);
  seen->threads.push_back(std::this_thread::get_id());
  seen->masks.push_back(mask);
  seen->nice.push_back(nice);
  seen->names.push_back(name);
  return nullptr;
}

TEST(MThreadNullPool, RunsEveryJobInlineInOrder) {
  Seen seen;
  EXPECT_EQ(MThread_Boot(nullptr, 3, Record, &seen), 0);
  EXPECT_EQ(MThread_Run(nullptr, 5, 3, Record, &seen), 0);
  EXPECT_EQ(MThread_Finish(nullptr, 0, 2, Record, &seen), 0);
  EXPECT_EQ(MThread_Sync(nullptr, 0, 4), 0);
  EXPECT_EQ(MThread_Clean(nullptr, 0), 0);
  EXPECT_EQ(seen.indices, (std::vector<int>{3, 5, 6, 7, 0, 1}));
  for (const auto& id : seen.threads) EXPECT_EQ(id, std::this_thread::get_id());
}

TEST(MThreadCreate, RefusesCountsBelowOneWithoutTouchingStatus) {
  LogCapture log;
  int status = 77;
  EXPECT_EQ(MThread_Create(0, nullptr, &status), nullptr);
  EXPECT_EQ(MThread_Create(-3, nullptr, nullptr), nullptr);
  EXPECT_EQ(status, 77);
  EXPECT_EQ(CountMsg(log, 3, kXelma, "MThread_Create", "Entering.", 88), 2);
  EXPECT_EQ(CountMsg(log, 5, kXelma, "MThread_Create", "Wrong Thread Number (0)!", 92), 1);
  EXPECT_EQ(CountMsg(log, 5, kXelma, "MThread_Create", "Wrong Thread Number (-3)!", 92), 1);
}

TEST(MThreadCreate, DefaultsNameWorkersAndSwapClustersForWorkersFourToSeven) {
  LogCapture log;
  int status = 0;
  void* pool = MThread_Create(8, nullptr, &status);
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(status, 8);
  EXPECT_EQ(MThread_Sync(pool, 0, 8), 0);  // idle workers: returns at once
  const MThread_Pool* p = static_cast<const MThread_Pool*>(pool);
  ASSERT_EQ(p->count, 8);
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(p->workers[i].index, i);
    EXPECT_EQ(p->workers[i].priority, 0);
    EXPECT_EQ(p->workers[i].bindMode, i >= 4 ? 1 : 0) << i;
    EXPECT_EQ(p->workers[i].function, nullptr);
  }
  Seen seen;
  EXPECT_EQ(MThread_Finish(pool, 0, 8, Record, &seen), 0);
  ASSERT_EQ(seen.indices.size(), 8u);
  std::vector<int> sorted = seen.indices;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(sorted, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
  for (size_t k = 0; k < seen.names.size(); ++k) {
    EXPECT_EQ(seen.names[k], "Xelma_Algo");
    EXPECT_NE(seen.threads[k], std::this_thread::get_id());
  }
  char created[80];
  snprintf(created, sizeof created, "8 / 8 threads Created for %p.", pool);
  EXPECT_EQ(CountMsg(log, 3, kXelma, "MThread_Create", created, 186), 1);
  EXPECT_EQ(CountMsg(log, 3, kXelma, "MThread_Create", "Leaving .", 187), 1);
  // Workers 4-7 bind to CPUs 4-7: refused and reported where those CPUs are absent.
  const int refused = HaveBigCluster() ? 0 : 1;
  for (int i = 0; i < 8; ++i) {
    char text[64];
    snprintf(text, sizeof text, "Fail to Set CPU Affinity for Thead %d!\n", i);
    EXPECT_EQ(CountMsg(log, 5, kMthd, "ThreadProc", text, 42), i >= 4 ? refused : 0) << i;
  }
  log.Clear();
  MThread_Destroy(pool);
  char destroyed[80];
  snprintf(destroyed, sizeof destroyed, "8 threads Destroyed for %p.", pool);
  EXPECT_EQ(CountMsg(log, 3, kMthd, "MThread_Destroy", "Entering.", 199), 1);
  EXPECT_EQ(CountMsg(log, 3, kMthd, "MThread_Destroy", destroyed, 224), 1);
  EXPECT_EQ(CountMsg(log, 3, kMthd, "MThread_Destroy", "Leaving .", 228), 1);
}

TEST(MThreadCreate, BigClusterModePinsWorkersAndReportsAbsentCpus) {
  AffinityGuard guard;
  LogCapture log;
  MThread_Options options = {MTHREAD_BIND_BIG, 1, "bv_worker"};
  int status = 0;
  void* pool = MThread_Create(8, &options, &status);
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(status, 8);
  const MThread_Pool* p = static_cast<const MThread_Pool*>(pool);
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(p->workers[i].bindMode, i >= 4 ? 2 : 1) << i;
    EXPECT_EQ(p->workers[i].priority, -20);
  }
  Seen seen;
  EXPECT_EQ(MThread_Finish(pool, 0, 8, Record, &seen), 0);
  const bool big = HaveBigCluster();
  EXPECT_EQ(
      CountMsg(log, 5, kXelma, "MThread_Create", "Fail to Set CPU Affinity for Main Thead!", 117),
      big ? 0 : 1);
  for (size_t k = 0; k < seen.indices.size(); ++k) {
    const int i = seen.indices[k];
    EXPECT_EQ(seen.names[k], "bv_worker");
    if (i >= 4) {
      EXPECT_EQ(seen.masks[k] & ~0x0Fu, 0u) << i;  // little cluster only
    } else if (big) {
      EXPECT_EQ(seen.masks[k] & ~0xF0u, 0u) << i;
    }
    // Nice -20 needs privilege: either it took effect or the failure was reported.
    char text[80];
    snprintf(text, sizeof text, "Set Priority for Thread %d failed, priority -20!\n", i);
    const int reported = CountMsg(log, 5, kMthd, "ThreadProc", text, 47);
    EXPECT_TRUE(seen.nice[k] == -20 ? reported == 0 : reported == 1) << i;
  }
  MThread_Destroy(pool);
}

TEST(MThreadJobs, BootOnABusyWorkerWaitsAndDestroyWaitsForTheJob) {
  void* pool = MThread_Create(2, nullptr, nullptr);
  ASSERT_NE(pool, nullptr);
  struct Log {
    std::mutex mutex;
    std::string order;
    std::atomic<bool> release{false};
  } order;
  auto slow = [](void* a, int i) -> void* {
    Log* l = static_cast<Log*>(a);
    while (!l->release.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::lock_guard<std::mutex> lock(l->mutex);
    l->order += "S" + std::to_string(i);
    return nullptr;
  };
  auto quick = [](void* a, int i) -> void* {
    Log* l = static_cast<Log*>(a);
    std::lock_guard<std::mutex> lock(l->mutex);
    l->order += "Q" + std::to_string(i);
    return nullptr;
  };
  EXPECT_EQ(MThread_Boot(pool, 1, slow, &order), 0);
  std::thread releaser([&order] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    order.release = true;
  });
  EXPECT_EQ(MThread_Boot(pool, 1, quick, &order), 0);  // blocks until the slow job ends
  {
    std::lock_guard<std::mutex> lock(order.mutex);
    EXPECT_EQ(order.order.substr(0, 2), "S1");
  }
  EXPECT_EQ(MThread_Clean(pool, 1), 0);
  releaser.join();
  EXPECT_EQ(order.order, "S1Q1");

  order.release = false;
  order.order.clear();
  EXPECT_EQ(MThread_Boot(pool, 0, slow, &order), 0);
  std::thread releaser2([&order] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    order.release = true;
  });
  MThread_Destroy(pool);  // the busy job finishes before its worker is joined
  releaser2.join();
  EXPECT_EQ(order.order, "S0");
}

TEST(MThreadJobs, IndicesOutsideThePoolAreReportedNotRun) {
  void* pool = MThread_Create(2, nullptr, nullptr);
  ASSERT_NE(pool, nullptr);
  LogCapture log;
  Seen seen;
  EXPECT_EQ(MThread_Boot(pool, 2, Record, &seen), -1);
  EXPECT_EQ(MThread_Boot(pool, -1, Record, &seen), -1);
  EXPECT_EQ(MThread_Finish(pool, 1, 2, Record, &seen), -1);  // worker 1 runs, 2 is refused
  EXPECT_EQ(seen.indices, std::vector<int>{1});
  EXPECT_EQ(
      CountMsg(log, 6, kMthd, "MThread_Boot", "Thread index 2 out of range (2 threads)!", 241), 2);
  EXPECT_EQ(
      CountMsg(log, 6, kMthd, "MThread_Sync", "Thread index 2 out of range (2 threads)!", 241), 1);
  MThread_Destroy(pool);
}

TEST(MThreadDestroy, NullAndEmptyPoolsAreReportedAndTheHandleFreed) {
  LogCapture log;
  MThread_Destroy(nullptr);
  MThread_ChangeBindCoreFlag(nullptr, 1);
  EXPECT_EQ(CountMsg(log, 5, kMthd, "MThread_Destroy", "NULL Pointer of Thread Pool.", 202), 1);
  EXPECT_EQ(
      CountMsg(log, 5, kMthd, "MThread_ChangeBindCoreFlag", "NULL Pointer of Thread Pool.", 333),
      1);
  bvtest::MallocWatch watch;
  MThread_Pool* empty = static_cast<MThread_Pool*>(safeNew(sizeof(MThread_Pool)));
  ASSERT_NE(empty, nullptr);
  empty->workers = nullptr;
  empty->count = 0;
  MThread_ChangeBindCoreFlag(empty, 1);
  MThread_Destroy(empty);
  EXPECT_EQ(watch.live(), 0);
  const std::string text = "NULL Pointer / Threads (0) of Thread Pool.";
  EXPECT_EQ(CountMsg(log, 5, kMthd, "MThread_Destroy", text, 207), 1);
  EXPECT_EQ(CountMsg(log, 5, kMthd, "MThread_ChangeBindCoreFlag", text, 337), 1);
}

TEST(MThreadCreate, AllocationFailuresAreReportedAndLeakFree) {
  LogCapture log;
  const int runs = bvtest::ForEachMallocFailure([](int run) {
    int status = 0;
    void* pool = MThread_Create(3, nullptr, &status);
    EXPECT_EQ(status, pool != nullptr ? 3 : 1) << run;
    MThread_Destroy(pool);
  });
  EXPECT_EQ(runs, 3);
  char records[80];
  snprintf(records, sizeof records, "Failed to Allocate Memory of %d for 3 threads!",
           static_cast<int>(3 * sizeof(MThread_Worker)));
  EXPECT_EQ(CountMsg(log, 5, kXelma, "MThread_Create", records, 108), 1);
  EXPECT_EQ(CountMsg(log, 5, kXelma, "MThread_Create", "Failed to Allocate Memory of 16!", 174), 1);
}

TEST(MThreadBind, ChangeBindCoreFlagStoresTheModeAndBindReportsAbsentCpus) {
  AffinityGuard guard;
  void* pool = MThread_Create(3, nullptr, nullptr);
  ASSERT_NE(pool, nullptr);
  LogCapture log;
  MThread_ChangeBindCoreFlag(pool, 2);
  const MThread_Pool* p = static_cast<const MThread_Pool*>(pool);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(p->workers[i].bindMode, 2);
  EXPECT_EQ(CountMsg(log, 3, kMthd, "MThread_ChangeBindCoreFlag", "Entering.", 330), 1);
  EXPECT_EQ(CountMsg(log, 3, kMthd, "MThread_ChangeBindCoreFlag", "Leaving .", 346), 1);
  MThread_Destroy(pool);

  EXPECT_EQ(MThread_Bind(MTHREAD_BIND_ALL), 0);
  EXPECT_EQ(MThread_Bind(MTHREAD_BIND_LITTLE), 0);
  EXPECT_EQ(MThread_Bind(MTHREAD_BIND_BIG) == 0, HaveBigCluster());
}

TEST(MThreadName, NamesTheGivenOrCallingThreadAndIgnoresNullNames) {
  char saved[16] = {0};
  pthread_getname_np(pthread_self(), saved, sizeof saved);
  char name[16] = {0};
  EXPECT_EQ(MThread_Name(nullptr, nullptr), 0);
  EXPECT_EQ(MThread_Name(nullptr, "bv_caller_with_a_long_name"), 0);
  pthread_getname_np(pthread_self(), name, sizeof name);
  EXPECT_STREQ(name, "bv_caller_with_");
  pthread_t self = pthread_self();
  EXPECT_EQ(MThread_Name(&self, "bv_given"), 0);
  pthread_getname_np(pthread_self(), name, sizeof name);
  EXPECT_STREQ(name, "bv_given");
  pthread_setname_np(pthread_self(), saved);
}

}  // namespace
