#include "bivista/mthread.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
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

using bvtest::LogCapture;
const char kMthd[] = "ZR481_MTHD";
const char kXelma[] = "Xelma_Algo";

template <typename T>
std::string Fmt(const char* format, T value) {
  char text[96];
  snprintf(text, sizeof text, format, value);
  return text;
}
int Count(const LogCapture& log, int priority, const char* tag, const char* func,
          const std::string& text, int line) {
  return bvtest::CountMsg(log, priority, tag, func, text, line);
}

// Whether this platform lets a thread bind to CPUs 4-7, asked the way the pool asks (the raw
// system call); an emulator may answer differently from the CPU count the C library reports.
bool HaveBigCluster() {
  cpu_set_t saved, big;
  CPU_ZERO(&big);
  if (sched_getaffinity(0, sizeof saved, &saved) != 0) return false;
  for (int c = 4; c < 8; ++c) CPU_SET(c, &big);
  const bool ok = syscall(SYS_sched_setaffinity, 0, sizeof big, &big) == 0;
  sched_setaffinity(0, sizeof saved, &saved);
  return ok;
}

// Restores the calling thread's affinity when a test may have changed it.
struct AffinityGuard {
  AffinityGuard() { sched_getaffinity(0, sizeof saved, &saved); }
  ~AffinityGuard() { sched_setaffinity(0, sizeof saved, &saved); }
  cpu_set_t saved;
};

struct Call {
  int index;
  std::thread::id thread;
  uint32_t mask;
  int nice;
  std::string name;
};
struct Seen {
  std::mutex mutex;
  std::vector<Call> calls;
  std::vector<int> Indices() {
    std::vector<int> v;
    for (const Call& c : calls) v.push_back(c.index);
    return v;
  }
};

void* Record(void* argument, int index) {
  Seen* seen = static_cast<Seen*>(argument);
  cpu_set_t set;
  sched_getaffinity(0, sizeof set, &set);
  uint32_t mask = 0;
  for (int c = 0; c < 32; ++c) mask |= CPU_ISSET(c, &set) ? (1u << c) : 0u;
  const int nice = getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)));
  char name[16] = {0};
  pthread_getname_np(pthread_self(), name, sizeof name);
  std::lock_guard<std::mutex> lock(seen->mutex);
  seen->calls.push_back({index, std::this_thread::get_id(), mask, nice, name});
  return nullptr;
}

TEST(MThread, NullPoolRunsEveryJobInlineInOrder) {
  Seen seen;
  EXPECT_EQ(MThread_Boot(nullptr, 3, Record, &seen), 0);
  EXPECT_EQ(MThread_Run(nullptr, 5, 3, Record, &seen), 0);
  EXPECT_EQ(MThread_Finish(nullptr, 0, 2, Record, &seen), 0);
  EXPECT_EQ(MThread_Sync(nullptr, 0, 4), 0);
  EXPECT_EQ(MThread_Clean(nullptr, 0), 0);
  EXPECT_EQ(seen.Indices(), (std::vector<int>{3, 5, 6, 7, 0, 1}));
  for (const Call& c : seen.calls) EXPECT_EQ(c.thread, std::this_thread::get_id());
}

TEST(MThread, CreateRefusesCountsBelowOneWithoutTouchingStatus) {
  LogCapture log;
  int status = 77;
  EXPECT_EQ(MThread_Create(0, nullptr, &status), nullptr);
  EXPECT_EQ(MThread_Create(-3, nullptr, nullptr), nullptr);
  EXPECT_EQ(status, 77);
  EXPECT_EQ(Count(log, 3, kXelma, "MThread_Create", "Entering.", 88), 2);
  EXPECT_EQ(Count(log, 5, kXelma, "MThread_Create", "Wrong Thread Number (0)!", 92), 1);
  EXPECT_EQ(Count(log, 5, kXelma, "MThread_Create", "Wrong Thread Number (-3)!", 92), 1);
}

// Default pools swap clusters for workers 4-7; the big-cluster option pins workers 0-3 to the
// big cluster, 4-7 to the little one, and raises the priority. Binds and priorities the platform
// refuses are reported.
TEST(MThread, CreateBindsNamesAndPrioritisesWorkers) {
  AffinityGuard guard;
  const bool big = HaveBigCluster();
  const MThread_Options bigOptions = {MTHREAD_BIND_BIG, 1, "bv_worker"};
  for (const MThread_Options* options :
       {static_cast<const MThread_Options*>(nullptr), &bigOptions}) {
    SCOPED_TRACE(options ? "big" : "default");
    LogCapture log;
    int status = 0;
    void* pool = MThread_Create(8, options, &status);
    ASSERT_NE(pool, nullptr);
    EXPECT_EQ(status, 8);
    EXPECT_EQ(MThread_Sync(pool, 0, 8), 0);  // idle workers: returns at once
    const MThread_Pool* p = static_cast<const MThread_Pool*>(pool);
    ASSERT_EQ(p->count, 8);
    const int priority = options ? -20 : 0;
    for (int i = 0; i < 8; ++i) {
      EXPECT_EQ(p->workers[i].index, i);
      EXPECT_EQ(p->workers[i].priority, priority);
      EXPECT_EQ(p->workers[i].bindMode, (i >= 4) + (options ? 1 : 0)) << i;
      EXPECT_EQ(p->workers[i].function, nullptr);
    }
    Seen seen;
    EXPECT_EQ(MThread_Finish(pool, 0, 8, Record, &seen), 0);
    std::vector<int> indices = seen.Indices();
    std::sort(indices.begin(), indices.end());
    EXPECT_EQ(indices, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(
        Count(log, 5, kXelma, "MThread_Create", "Fail to Set CPU Affinity for Main Thead!", 117),
        options && !big);
    for (const Call& c : seen.calls) {
      const int mode = p->workers[c.index].bindMode;
      EXPECT_EQ(c.name, options ? "bv_worker" : "Xelma_Algo");
      EXPECT_NE(c.thread, std::this_thread::get_id());
      // Mode 2 keeps to the little cluster, mode 1 to the big one where it exists.
      EXPECT_EQ(c.mask & (mode == 2 ? ~0x0Fu : mode == 1 && big ? ~0xF0u : 0u), 0u) << c.index;
      EXPECT_EQ(Count(log, 5, kMthd, "ThreadProc",
                      Fmt("Fail to Set CPU Affinity for Thead %d!\n", c.index), 42),
                mode == 1 && !big)
          << c.index;
      // Nice -20 needs privilege: either it took effect or the failure was reported.
      EXPECT_EQ(Count(log, 5, kMthd, "ThreadProc",
                      Fmt("Set Priority for Thread %d failed, priority -20!\n", c.index), 47),
                options && c.nice != -20)
          << c.index;
    }
    EXPECT_EQ(
        Count(log, 3, kXelma, "MThread_Create", Fmt("8 / 8 threads Created for %p.", pool), 186),
        1);
    EXPECT_EQ(Count(log, 3, kXelma, "MThread_Create", "Leaving .", 187), 1);
    log.Clear();
    MThread_Destroy(pool);
    EXPECT_EQ(Count(log, 3, kMthd, "MThread_Destroy", "Entering.", 199), 1);
    EXPECT_EQ(
        Count(log, 3, kMthd, "MThread_Destroy", Fmt("8 threads Destroyed for %p.", pool), 224), 1);
    EXPECT_EQ(Count(log, 3, kMthd, "MThread_Destroy", "Leaving .", 228), 1);
  }
}

// A Boot on a busy worker waits for its job; so does Destroy before joining the worker.
TEST(MThread, BootAndDestroyWaitForTheBusyJob) {
  struct Order {
    std::mutex mutex;
    std::string text;
    std::atomic<bool> release{false};
    void Add(const char* what, int i) {
      std::lock_guard<std::mutex> lock(mutex);
      text += what + std::to_string(i);
    }
    std::string Text() {
      std::lock_guard<std::mutex> lock(mutex);
      return text;
    }
  };
  auto slow = [](void* a, int i) -> void* {
    Order* o = static_cast<Order*>(a);
    while (!o->release.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    o->Add("S", i);
    return nullptr;
  };
  auto quick = [](void* a, int i) -> void* {
    static_cast<Order*>(a)->Add("Q", i);
    return nullptr;
  };
  for (bool destroy : {false, true}) {
    void* pool = MThread_Create(2, nullptr, nullptr);
    ASSERT_NE(pool, nullptr);
    Order order;
    EXPECT_EQ(MThread_Boot(pool, 1, slow, &order), 0);
    std::thread releaser([&order] {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      order.release = true;
    });
    if (!destroy) {
      EXPECT_EQ(MThread_Boot(pool, 1, quick, &order), 0);
      EXPECT_EQ(order.Text().substr(0, 2), "S1");
      EXPECT_EQ(MThread_Clean(pool, 1), 0);
    }
    MThread_Destroy(pool);
    releaser.join();
    EXPECT_EQ(order.text, destroy ? "S1" : "S1Q1");
  }
}

TEST(MThread, IndicesOutsideThePoolAreReportedNotRun) {
  void* pool = MThread_Create(2, nullptr, nullptr);
  ASSERT_NE(pool, nullptr);
  LogCapture log;
  Seen seen;
  EXPECT_EQ(MThread_Boot(pool, 2, Record, &seen), -1);
  EXPECT_EQ(MThread_Boot(pool, -1, Record, &seen), -1);
  EXPECT_EQ(MThread_Finish(pool, 1, 2, Record, &seen), -1);  // worker 1 runs, 2 is refused
  EXPECT_EQ(seen.Indices(), std::vector<int>{1});
  const std::string text = "Thread index 2 out of range (2 threads)!";
  EXPECT_EQ(Count(log, 6, kMthd, "MThread_Boot", text, 241), 2);
  EXPECT_EQ(Count(log, 6, kMthd, "MThread_Sync", text, 241), 1);
  MThread_Destroy(pool);
}

TEST(MThread, NullAndEmptyPoolsAreReportedAndTheHandleFreed) {
  LogCapture log;
  MThread_Destroy(nullptr);
  MThread_ChangeBindCoreFlag(nullptr, 1);
  bvtest::MallocWatch watch;
  MThread_Pool* empty = static_cast<MThread_Pool*>(safeNew(sizeof(MThread_Pool)));
  ASSERT_NE(empty, nullptr);
  empty->workers = nullptr;
  empty->count = 0;
  MThread_ChangeBindCoreFlag(empty, 1);
  MThread_Destroy(empty);
  EXPECT_EQ(watch.live(), 0);
  const std::string null = "NULL Pointer of Thread Pool.";
  const std::string none = "NULL Pointer / Threads (0) of Thread Pool.";
  EXPECT_EQ(Count(log, 5, kMthd, "MThread_Destroy", null, 202), 1);
  EXPECT_EQ(Count(log, 5, kMthd, "MThread_ChangeBindCoreFlag", null, 333), 1);
  EXPECT_EQ(Count(log, 5, kMthd, "MThread_Destroy", none, 207), 1);
  EXPECT_EQ(Count(log, 5, kMthd, "MThread_ChangeBindCoreFlag", none, 337), 1);
}

TEST(MThread, CreateAllocationFailuresAreReportedAndLeakFree) {
  LogCapture log;
  const int runs = bvtest::ForEachMallocFailure([](int run) {
    int status = 0;
    void* pool = MThread_Create(3, nullptr, &status);
    EXPECT_EQ(status, pool != nullptr ? 3 : 1) << run;
    MThread_Destroy(pool);
  });
  EXPECT_EQ(runs, 3);
  EXPECT_EQ(Count(log, 5, kXelma, "MThread_Create",
                  Fmt("Failed to Allocate Memory of %d for 3 threads!",
                      static_cast<int>(3 * sizeof(MThread_Worker))),
                  108),
            1);
  EXPECT_EQ(Count(log, 5, kXelma, "MThread_Create", "Failed to Allocate Memory of 16!", 174), 1);
}

TEST(MThread, ChangeBindCoreFlagStoresTheModeAndBindReportsAbsentCpus) {
  AffinityGuard guard;
  void* pool = MThread_Create(3, nullptr, nullptr);
  ASSERT_NE(pool, nullptr);
  LogCapture log;
  MThread_ChangeBindCoreFlag(pool, 2);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(static_cast<MThread_Pool*>(pool)->workers[i].bindMode, 2);
  EXPECT_EQ(Count(log, 3, kMthd, "MThread_ChangeBindCoreFlag", "Entering.", 330), 1);
  EXPECT_EQ(Count(log, 3, kMthd, "MThread_ChangeBindCoreFlag", "Leaving .", 346), 1);
  MThread_Destroy(pool);
  EXPECT_EQ(MThread_Bind(MTHREAD_BIND_ALL), 0);
  EXPECT_EQ(MThread_Bind(MTHREAD_BIND_LITTLE), 0);
  EXPECT_EQ(MThread_Bind(MTHREAD_BIND_BIG) == 0, HaveBigCluster());
}

TEST(MThread, NamesTheGivenOrCallingThreadAndIgnoresNullNames) {
  char saved[16] = {0}, name[16] = {0};
  pthread_getname_np(pthread_self(), saved, sizeof saved);
  pthread_t self = pthread_self();
  EXPECT_EQ(MThread_Name(nullptr, nullptr), 0);
  EXPECT_EQ(MThread_Name(nullptr, "bv_caller_with_a_long_name"), 0);
  pthread_getname_np(self, name, sizeof name);
  EXPECT_STREQ(name, "bv_caller_with_");
  EXPECT_EQ(MThread_Name(&self, "bv_given"), 0);
  pthread_getname_np(self, name, sizeof name);
  EXPECT_STREQ(name, "bv_given");
  pthread_setname_np(self, saved);
}

}  // namespace
