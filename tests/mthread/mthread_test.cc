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
#include "mthread/handoff.h"
#include "support/alloc_table.h"
#include "support/platform_capture.h"

namespace {

using bvtest::LogCapture;

// The pool's log lines, one row each.
struct Message {
  int priority;
  const char *tag, *func;
  int line;
  const char* format;
};
const char kMthd[] = "ZR481_MTHD", kXelma[] = "Xelma_Algo", kCreate[] = "MThread_Create",
           kDestroy[] = "MThread_Destroy", kBind[] = "MThread_ChangeBindCoreFlag";
const Message kCreateEnter{3, kXelma, kCreate, 88, "Entering."},
    kWrongCount{5, kXelma, kCreate, 92, "Wrong Thread Number (%d)!"},
    kRecordsAlloc{5, kXelma, kCreate, 108, "Failed to Allocate Memory of %d for %d threads!"},
    kMainAffinity{5, kXelma, kCreate, 117, "Fail to Set CPU Affinity for Main Thead!"},
    kPoolAlloc{5, kXelma, kCreate, 174, "Failed to Allocate Memory of %d!"},
    kCreated{3, kXelma, kCreate, 186, "%d / %d threads Created for %p."},
    kCreateLeave{3, kXelma, kCreate, 187, "Leaving ."},
    kProcAffinity{5, kMthd, "ThreadProc", 42, "Fail to Set CPU Affinity for Thead %d!\n"},
    kProcPriority{5, kMthd, "ThreadProc", 47, "Set Priority for Thread %d failed, priority -20!\n"},
    kDestroyEnter{3, kMthd, kDestroy, 199, "Entering."},
    kDestroyNull{5, kMthd, kDestroy, 202, "NULL Pointer of Thread Pool."},
    kDestroyEmpty{5, kMthd, kDestroy, 207, "NULL Pointer / Threads (0) of Thread Pool."},
    kDestroyed{3, kMthd, kDestroy, 224, "%d threads Destroyed for %p."},
    kDestroyLeave{3, kMthd, kDestroy, 228, "Leaving ."},
    kBootRange{6, kMthd, "MThread_Boot", 241, "Thread index %d out of range (%d threads)!"},
    kSyncRange{6, kMthd, "MThread_Sync", 241, "Thread index %d out of range (%d threads)!"},
    kBindEnter{3, kMthd, kBind, 330, "Entering."}, kBindNull{5, kMthd, kBind, 333, "NULL Pointer of Thread Pool."},
    kBindEmpty{5, kMthd, kBind, 337, "NULL Pointer / Threads (0) of Thread Pool."},
    kBindLeave{3, kMthd, kBind, 346, "Leaving ."};

// One log line as "priority tag [func.line] text".
template <typename... A>
std::string L(const Message& m, A... args) {
  char text[160];
  snprintf(text, sizeof text, m.format, args...);
  return std::to_string(m.priority) + " " + m.tag + " " + bvtest::Msg(m.func, m.line, text);
}
// The whole log, order aside (workers log concurrently).
std::vector<std::string> Logged(const LogCapture& log) {
  std::vector<std::string> got;
  for (const bvtest::LogLine& l : log.Lines()) got.push_back(std::to_string(l.priority) + " " + l.tag + " " + l.text);
  std::sort(got.begin(), got.end());
  return got;
}
void ExpectLog(const LogCapture& log, std::vector<std::string> want) {
  std::sort(want.begin(), want.end());
  EXPECT_EQ(Logged(log), want);
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
  int index, nice;
  uint32_t mask;
  std::thread::id thread;
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
  seen->calls.push_back({index, nice, mask, std::this_thread::get_id(), name});
  return nullptr;
}

TEST(MThread, NullPoolRunsEveryJobInlineInOrder) {
  Seen seen;
  EXPECT_EQ(MThread_Boot(nullptr, 3, Record, &seen), 0);
  EXPECT_EQ(MThread_Run(nullptr, 5, 3, Record, &seen), 0);
  EXPECT_EQ(MThread_Finish(nullptr, 0, 2, Record, &seen), 0);
  EXPECT_EQ(MThread_Sync(nullptr, 0, 4), 0);
  EXPECT_EQ(MThread_Clean(nullptr, 0), 0);
  // Ranges end at INT_MAX instead of overflowing.
  EXPECT_EQ(MThread_Finish(nullptr, INT32_MAX - 1, 4, Record, &seen), 0);
  EXPECT_EQ(seen.Indices(), (std::vector<int>{3, 5, 6, 7, 0, 1, INT32_MAX - 1, INT32_MAX}));
  for (const Call& c : seen.calls) EXPECT_EQ(c.thread, std::this_thread::get_id());
}

// Default pools swap clusters for workers 4-7; the big-cluster option pins workers 0-3 to the
// big cluster, 4-7 to the little one, and raises the priority. Binds and priorities the platform
// refuses are reported. A changed bind flag reaches every worker.
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
    Seen seen;
    EXPECT_EQ(MThread_Finish(pool, 0, 8, Record, &seen), 0);
    std::vector<int> indices = seen.Indices();
    std::sort(indices.begin(), indices.end());
    EXPECT_EQ(indices, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
    std::vector<std::string> want = {L(kCreateEnter), L(kCreated, 8, 8, pool), L(kCreateLeave)};
    if (options && !big) want.push_back(L(kMainAffinity));
    for (const Call& c : seen.calls) {
      const int mode = p->workers[c.index].bindMode;
      EXPECT_EQ(mode, (c.index >= 4) + (options ? 1 : 0)) << c.index;
      EXPECT_EQ(p->workers[c.index].priority, options ? -20 : 0);
      EXPECT_EQ(c.name, options ? "bv_worker" : "Xelma_Algo");
      EXPECT_NE(c.thread, std::this_thread::get_id());
      // Mode 2 keeps to the little cluster, mode 1 to the big one where it exists.
      EXPECT_EQ(c.mask & (mode == 2 ? ~0x0Fu : mode == 1 && big ? ~0xF0u : 0u), 0u) << c.index;
      if (mode == 1 && !big) want.push_back(L(kProcAffinity, c.index));
      // Nice -20 needs privilege: either it took effect or the failure was reported.
      if (options && c.nice != -20) want.push_back(L(kProcPriority, c.index));
    }
    ExpectLog(log, want);
    log.Clear();
    MThread_ChangeBindCoreFlag(pool, 2);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(p->workers[i].bindMode, 2);
    ExpectLog(log, {L(kBindEnter), L(kBindLeave)});
    log.Clear();
    MThread_Destroy(pool);
    ExpectLog(log, {L(kDestroyEnter), L(kDestroyed, 8, pool), L(kDestroyLeave)});
  }
}

// A Boot on a busy worker waits for its job; so does Destroy before joining the worker.
TEST(MThread, BootAndDestroyWaitForTheBusyJob) {
  auto job = [](void* a, int) -> void* {
    std::atomic<int>* done = static_cast<std::atomic<int>*>(a);
    if (*done == 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));  // first is slow
    ++*done;
    return nullptr;
  };
  for (bool destroy : {false, true}) {
    void* pool = MThread_Create(2, nullptr, nullptr);
    ASSERT_NE(pool, nullptr);
    std::atomic<int> done{0};
    EXPECT_EQ(MThread_Boot(pool, 1, job, &done), 0);
    if (!destroy) {
      EXPECT_EQ(MThread_Boot(pool, 1, job, &done), 0);
      EXPECT_GE(done, 1);
      EXPECT_EQ(MThread_Clean(pool, 1), 0);
      EXPECT_EQ(done, 2);
    }
    MThread_Destroy(pool);
    EXPECT_EQ(done, destroy ? 1 : 2);
  }
}

// Indices outside a pool are reported and not run; null and empty pools are reported and the
// empty pool's handle freed.
TEST(MThread, BadIndicesAndNullOrEmptyPoolsAreReported) {
  void* pool = MThread_Create(2, nullptr, nullptr);
  ASSERT_NE(pool, nullptr);
  LogCapture log;
  Seen seen;
  EXPECT_EQ(MThread_Boot(pool, 2, Record, &seen), -1);
  EXPECT_EQ(MThread_Boot(pool, -1, Record, &seen), -1);
  EXPECT_EQ(MThread_Finish(pool, 1, 2, Record, &seen), -1);  // worker 1 runs, 2 is refused
  EXPECT_EQ(seen.Indices(), std::vector<int>{1});
  ExpectLog(log, {L(kBootRange, 2, 2), L(kBootRange, 2, 2), L(kBootRange, -1, 2), L(kSyncRange, 2, 2)});
  MThread_Destroy(pool);
  log.Clear();
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
  ExpectLog(log, {L(kBindEnter), L(kBindEnter), L(kDestroyEnter), L(kDestroyEnter), L(kDestroyNull),
                  L(kBindNull), L(kDestroyEmpty), L(kBindEmpty)});
}

// Counts below one are refused without touching status; failed allocations are reported and
// leak nothing.
TEST(MThread, CreateRefusalsAndAllocationFailures) {
  LogCapture log;
  int status = 77;
  EXPECT_EQ(MThread_Create(0, nullptr, &status), nullptr);
  EXPECT_EQ(MThread_Create(-3, nullptr, nullptr), nullptr);
  EXPECT_EQ(status, 77);
  ExpectLog(log, {L(kCreateEnter), L(kCreateEnter), L(kWrongCount, 0), L(kWrongCount, -3)});
  // Records just past 2^32 bytes: refused, not wrapped to a small block.
  EXPECT_EQ(MThread_Create(static_cast<int>((1ull << 32) / sizeof(MThread_Worker)) + 1, nullptr,
                           &status),
            nullptr);
  EXPECT_EQ(status, 1);
  log.Clear();
  const int runs = bvtest::ForEachMallocFailure([](int run) {
    int status = 0;
    void* pool = MThread_Create(3, nullptr, &status);
    EXPECT_EQ(status, pool != nullptr ? 3 : 1) << run;
    MThread_Destroy(pool);
  });
  EXPECT_EQ(runs, 3);
  std::vector<std::string> got = Logged(log);
  for (const std::string& want : {L(kRecordsAlloc, static_cast<int>(3 * sizeof(MThread_Worker)), 3), L(kPoolAlloc, 16)}) {
    EXPECT_EQ(std::count(got.begin(), got.end(), want), 1) << want;
  }
}

TEST(MThread, BindAndName) {
  AffinityGuard guard;
  EXPECT_EQ(MThread_Bind(MTHREAD_BIND_ALL), 0);
  EXPECT_EQ(MThread_Bind(MTHREAD_BIND_LITTLE), 0);
  EXPECT_EQ(MThread_Bind(MTHREAD_BIND_BIG) == 0, HaveBigCluster());
  // Names go to the given or the calling thread; null names are ignored.
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

// Jobs still waiting in start_sem are moved off the caller's CPU; every worker ends with the CPU
// set it had, and a set the host narrowed is never widened.
TEST(MThread, MovingQueuedWorkersKeepsTheirCpuSets) {
  std::atomic<bool> release{false};
  std::vector<std::thread> threads;
  MThread_Worker workers[3] = {};
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] { while (!release.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1)); });
    workers[i].thread = threads.back().native_handle();
    sem_init(&workers[i].start_sem, 0, 1);  // a job posted, not yet taken
    workers[i].bindMode = i == 2 ? MTHREAD_BIND_LITTLE : MTHREAD_BIND_ALL;
  }
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  pthread_setaffinity_np(workers[1].thread, sizeof one, &one);
  cpu_set_t before[3];
  for (int i = 0; i < 3; ++i) pthread_getaffinity_np(workers[i].thread, sizeof before[i], &before[i]);
  MThread_Pool pool = {workers, 3};
  bivista::MoveQueuedOff(&pool, 0, 3);
  for (int i = 0; i < 3; ++i) {
    cpu_set_t after;
    pthread_getaffinity_np(workers[i].thread, sizeof after, &after);
    EXPECT_TRUE(CPU_EQUAL(&after, &before[i])) << i;
  }
  release = true;
  for (int i = 0; i < 3; ++i) {
    threads[i].join();
    sem_destroy(&workers[i].start_sem);
  }
}
