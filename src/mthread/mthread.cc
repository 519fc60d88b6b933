#include "bivista/mthread.h"

#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "bivista/mem_services.h"
#include "common/alloc_size.h"
#include "common/log_internal.h"
#include "mthread/handoff.h"

using bivista::kTagMthd;
using bivista::kTagXelma;

namespace {

constexpr int kLineCreateEnter = 88;
constexpr int kLineWrongCount = 92;
constexpr int kLineAttrInit = 99;
constexpr int kLineRecordsAlloc = 108;
constexpr int kLineMainAffinity = 117;
constexpr int kLineStartSem = 126;
constexpr int kLineEndSem = 131;
constexpr int kLineThreadCreate = 151;
constexpr int kLineNotEnough = 165;
constexpr int kLinePoolAlloc = 174;
constexpr int kLineAttrDestroy = 182;
constexpr int kLineCreated = 186;
constexpr int kLineCreateLeave = 187;
constexpr int kLineProcAffinity = 42;
constexpr int kLineProcPriority = 47;
constexpr int kLineDestroyEnter = 199;
constexpr int kLineDestroyNull = 202;
constexpr int kLineDestroyEmpty = 207;
constexpr int kLineDestroyed = 224;
constexpr int kLineDestroyLeave = 228;
constexpr int kLineBadIndex = 241;
constexpr int kLineChangeEnter = 330;
constexpr int kLineChangeNull = 333;
constexpr int kLineChangeEmpty = 337;
constexpr int kLineChangeLeave = 346;

constexpr int kHighPriority = -20;
constexpr char kDefaultName[] = "Xelma_Algo";
constexpr int kNameMax = 16;  // the kernel's limit, NUL included

// Masks passed with a size of 4 bytes, so only CPUs 0-31 can be named.
constexpr uint32_t kCoreMasks[] = {0xFF, 0xF0, 0x0F};

uint32_t MaskFor(int bindMode) {
  // An unknown mode falls back to all cores rather than to an empty mask.
  if (bindMode < 0 || bindMode >= static_cast<int>(sizeof kCoreMasks / sizeof kCoreMasks[0])) {
    bindMode = MTHREAD_BIND_ALL;
  }
  return kCoreMasks[bindMode];
}

long CurrentTid() { return syscall(SYS_gettid); }

int BindTid(long tid, int bindMode) {
  // The kernel reads masks in whole longs; emulators refuse a shorter length.
  unsigned long mask = MaskFor(bindMode);
  return static_cast<int>(syscall(SYS_sched_setaffinity, tid, sizeof mask, &mask));
}

// Retries waits interrupted by signals: a lost wait would break the one-job protocol.
void Wait(sem_t* sem) {
  while (sem_wait(sem) != 0 && errno == EINTR) {
  }
}

// A caller usually reaches a sync shortly before a running worker finishes: polling first spares
// it a sleep and a wake-up, which cost tens of microseconds on some systems. A job still waiting
// in start_sem means the worker has not run yet (the scheduler may have queued it on this very
// CPU), so then the caller sleeps at once. Idle workers do not poll.
void WaitForEnd(MThread_Worker* w) {
  for (int i = 0; i < bivista::kSpins; ++i) {
    if (sem_trywait(&w->end_sem) == 0) return;
    int queued = 0;
    if (sem_getvalue(&w->start_sem, &queued) == 0 && queued > 0) break;
    bivista::CpuRelax();
  }
  Wait(&w->end_sem);
}

void* ThreadProc(void* param) {
  MThread_Worker* self = static_cast<MThread_Worker*>(param);
  const long tid = CurrentTid();
  // The mode may be changed later through the record; it only matters here, at start.
  if (BindTid(tid, __atomic_load_n(&self->bindMode, __ATOMIC_RELAXED)) != 0) {
    BV_LOGW(kTagMthd, "ThreadProc", kLineProcAffinity, "Fail to Set CPU Affinity for Thead %d!\n",
            self->index);
  }
  if (setpriority(PRIO_PROCESS, static_cast<id_t>(tid), self->priority) != 0) {
    BV_LOGW(kTagMthd, "ThreadProc", kLineProcPriority,
            "Set Priority for Thread %d failed, priority %d!\n", self->index, self->priority);
  }
  for (;;) {
    Wait(&self->start_sem);
    if (self->exit) break;
    if (self->function != nullptr) self->function(self->argument, self->index);
    sem_post(&self->end_sem);
  }
  return nullptr;
}

// Stops one started worker: its current job (if any) ends first.
void StopWorker(MThread_Worker* w) {
  Wait(&w->end_sem);
  w->exit = 1;
  sem_post(&w->start_sem);
  pthread_join(w->thread, nullptr);
  sem_destroy(&w->start_sem);
  sem_destroy(&w->end_sem);
}

void StopAll(MThread_Worker* workers, int created) {
  for (int i = 0; i < created; ++i) StopWorker(&workers[i]);
}

// One past the last index of first .. first + count - 1 that exists as an int.
int64_t RangeEnd(int first, int count) {
  const int64_t end = static_cast<int64_t>(first) + count;
  return end < int64_t{INT32_MAX} + 1 ? end : int64_t{INT32_MAX} + 1;
}

MThread_Worker* CheckedWorker(void* pool, int threadIndex, const char* func) {
  MThread_Pool* p = static_cast<MThread_Pool*>(pool);
  if (p->workers == nullptr || threadIndex < 0 || threadIndex >= p->count) {
    BV_LOGE(kTagMthd, func, kLineBadIndex, "Thread index %d out of range (%d threads)!",
            threadIndex, p->count);
    return nullptr;
  }
  return &p->workers[threadIndex];
}

// The entry checks shared by destroy and the bind-flag change. Returns the pool when it has
// workers; *empty tells a handle without workers from a null one.
MThread_Pool* EnteredPool(void* pool, const char* fn, int lineEnter, int lineNull, int lineEmpty,
                          bool* empty) {
  BV_LOGD(kTagMthd, fn, lineEnter, "Entering.");
  MThread_Pool* p = static_cast<MThread_Pool*>(pool);
  *empty = false;
  if (p == nullptr) {
    BV_LOGW(kTagMthd, fn, lineNull, "NULL Pointer of Thread Pool.");
    return nullptr;
  }
  if (p->workers == nullptr || p->count < 1) {
    BV_LOGW(kTagMthd, fn, lineEmpty, "NULL Pointer / Threads (%d) of Thread Pool.", p->count);
    *empty = true;
    return nullptr;
  }
  return p;
}

}  // namespace

namespace bivista {

// A thread's CPU set, read (get) or written: the C library's calls, or Android's system calls by
// kernel thread id (its C library has no pthread affinity calls).
static int ThreadCpus(pthread_t thread, cpu_set_t* set, bool get) {
#if defined(__ANDROID__)
  const pid_t tid = pthread_gettid_np(thread);
  return get ? sched_getaffinity(tid, sizeof *set, set) : sched_setaffinity(tid, sizeof *set, set);
#else
  return get ? pthread_getaffinity_np(thread, sizeof *set, set)
             : pthread_setaffinity_np(thread, sizeof *set, set);
#endif
}

// A woken worker may be queued on the CPU of the thread that posted its job, behind that thread
// (some virtual machines hide idle CPUs from the wake-up placement), and then waits until that
// thread blocks. A job still waiting in start_sem is moved: the worker's set without this CPU,
// then the request it made itself at start again (it stays where it was moved). Only workers of
// bind mode 0 whose set is every CPU that mode names are touched, so neither a binding nor a
// restricted CPU set is ever widened.
void MoveQueuedOff(void* pool, int first, int count) {
  MThread_Pool* p = static_cast<MThread_Pool*>(pool);
  if (p == nullptr || p->workers == nullptr || count < 1) return;
  const uint32_t all = kCoreMasks[MTHREAD_BIND_ALL];
  const int cpu = sched_getcpu();
  if (cpu < 0 || cpu >= 32 || ((all >> cpu) & 1u) == 0) return;
  // The C library reads the CPU count from files: once per process.
  static const int existing = get_nprocs_conf();
  cpu_set_t request;
  cpu_set_t named;  // the CPUs of the request that exist
  CPU_ZERO(&request);
  CPU_ZERO(&named);
  for (int c = 0; c < 32; ++c) {
    if (((all >> c) & 1u) == 0) continue;
    CPU_SET(c, &request);
    if (c < existing) CPU_SET(c, &named);
  }
  cpu_set_t away = named;
  CPU_CLR(cpu, &away);
  if (CPU_COUNT(&away) < 1) return;
  for (int64_t i = first < 0 ? 0 : first; i < RangeEnd(first, count) && i < p->count; ++i) {
    MThread_Worker* w = &p->workers[i];
    int queued = 0;
    cpu_set_t own;
    if (__atomic_load_n(&w->bindMode, __ATOMIC_RELAXED) != MTHREAD_BIND_ALL ||
        sem_getvalue(&w->start_sem, &queued) != 0 || queued < 1 ||
        ThreadCpus(w->thread, &own, true) != 0 || !CPU_EQUAL(&own, &named)) {
      continue;
    }
    if (ThreadCpus(w->thread, &away, false) == 0) ThreadCpus(w->thread, &request, false);
  }
}

}  // namespace bivista

extern "C" {

void* MThread_Create(int count, const MThread_Options* options, int* status) {
  static const MThread_Options kDefaults = {0, 0, kDefaultName};
  const char* const fn = "MThread_Create";
  BV_LOGD(kTagXelma, fn, kLineCreateEnter, "Entering.");
  if (count < 1) {
    BV_LOGW(kTagXelma, fn, kLineWrongCount, "Wrong Thread Number (%d)!", count);
    return nullptr;
  }
  if (options == nullptr) options = &kDefaults;

  pthread_attr_t attr;
  if (pthread_attr_init(&attr) != 0) {
    BV_LOGW(kTagXelma, fn, kLineAttrInit, "Failed to Init Thread attribute.");
    if (status) *status = 1;
    return nullptr;
  }
  // Records past 2^31 bytes are refused by safeNew, never wrapped to a small block.
  const int bytes = bivista::SafeNewBytes(count, sizeof(MThread_Worker));
  MThread_Worker* workers = static_cast<MThread_Worker*>(safeNew(bytes));
  if (workers == nullptr) {
    BV_LOGW(kTagXelma, fn, kLineRecordsAlloc, "Failed to Allocate Memory of %d for %d threads!",
            bytes, count);
    pthread_attr_destroy(&attr);
    if (status) *status = 1;
    return nullptr;
  }
  memset(workers, 0, static_cast<size_t>(bytes));
  if (options->bindMode == MTHREAD_BIND_BIG && MThread_Bind(MTHREAD_BIND_BIG) != 0) {
    BV_LOGW(kTagXelma, fn, kLineMainAffinity, "Fail to Set CPU Affinity for Main Thead!");
  }

  int created = 0;
  for (int i = 0; i < count; ++i) {
    MThread_Worker* w = &workers[created];
    if (sem_init(&w->start_sem, 0, 1) != 0) {
      BV_LOGW(kTagXelma, fn, kLineStartSem, "Failed to init start_sem of thread %d", i);
      continue;
    }
    if (sem_init(&w->end_sem, 0, 1) != 0) {
      sem_destroy(&w->start_sem);
      BV_LOGW(kTagXelma, fn, kLineEndSem, "Failed to init end_sem of thread %d", i);
      continue;
    }
    Wait(&w->start_sem);
    w->exit = 0;
    w->index = i;
    w->argument = nullptr;
    w->function = nullptr;
    w->priority = options->highPriority ? kHighPriority : 0;
    // Workers 4 to 7 go to the other cluster.
    if (i >= 4 && i < 8) {
      w->bindMode = options->bindMode == MTHREAD_BIND_BIG ? MTHREAD_BIND_LITTLE : MTHREAD_BIND_BIG;
    } else {
      w->bindMode = options->bindMode;
    }
    if (pthread_create(&w->thread, &attr, ThreadProc, w) != 0) {
      sem_destroy(&w->start_sem);
      sem_destroy(&w->end_sem);
      BV_LOGW(kTagXelma, fn, kLineThreadCreate, "Failed to Create Thread %d!", i);
      continue;
    }
    if (options->name != nullptr) MThread_Name(&w->thread, options->name);
    ++created;
  }

  if (created < count) {
    BV_LOGW(kTagXelma, fn, kLineNotEnough, "Not Enough Thread Created!");
    StopAll(workers, created);
    safeDelete(workers);
    pthread_attr_destroy(&attr);
    if (status) *status = 1;
    return nullptr;
  }
  MThread_Pool* pool = static_cast<MThread_Pool*>(safeNew(static_cast<int>(sizeof(MThread_Pool))));
  if (pool == nullptr) {
    BV_LOGW(kTagXelma, fn, kLinePoolAlloc, "Failed to Allocate Memory of %d!",
            static_cast<int>(sizeof(MThread_Pool)));
    StopAll(workers, created);
    safeDelete(workers);
    pthread_attr_destroy(&attr);
    if (status) *status = 1;
    return nullptr;
  }
  pool->workers = workers;
  pool->count = created;
  if (pthread_attr_destroy(&attr) != 0) {
    BV_LOGW(kTagXelma, fn, kLineAttrDestroy, "Failed to Destroy Thread Attr!");
  }
  if (status) *status = created;
  BV_LOGD(kTagXelma, fn, kLineCreated, "%d / %d threads Created for %p.", created, count,
          static_cast<void*>(pool));
  BV_LOGD(kTagXelma, fn, kLineCreateLeave, "Leaving .");
  return pool;
}

void MThread_Destroy(void* pool) {
  const char* const fn = "MThread_Destroy";
  bool empty = false;
  MThread_Pool* p =
      EnteredPool(pool, fn, kLineDestroyEnter, kLineDestroyNull, kLineDestroyEmpty, &empty);
  if (p == nullptr) {
    if (empty) safeDelete(pool);
    return;
  }
  StopAll(p->workers, p->count);
  BV_LOGD(kTagMthd, fn, kLineDestroyed, "%d threads Destroyed for %p.", p->count, pool);
  safeDelete(p->workers);
  safeDelete(p);
  BV_LOGD(kTagMthd, fn, kLineDestroyLeave, "Leaving .");
}

int MThread_Boot(void* pool, int threadIndex, MThread_Func function, void* argument) {
  if (pool == nullptr) {
    if (function != nullptr) function(argument, threadIndex);
    return 0;
  }
  MThread_Worker* w = CheckedWorker(pool, threadIndex, "MThread_Boot");
  if (w == nullptr) return -1;
  Wait(&w->end_sem);
  w->function = function;
  w->argument = argument;
  sem_post(&w->start_sem);
  return 0;
}

int MThread_Run(void* pool, int first, int count, MThread_Func function, void* argument) {
  int result = 0;
  for (int64_t i = first; i < RangeEnd(first, count); ++i) {
    if (MThread_Boot(pool, static_cast<int>(i), function, argument) != 0) result = -1;
  }
  return result;
}

int MThread_Sync(void* pool, int first, int count) {
  if (pool == nullptr) return 0;
  int result = 0;
  for (int64_t i = first; i < RangeEnd(first, count); ++i) {
    MThread_Worker* w = CheckedWorker(pool, static_cast<int>(i), "MThread_Sync");
    if (w == nullptr) {
      result = -1;
      continue;
    }
    WaitForEnd(w);
    w->function = nullptr;
    w->argument = nullptr;
    sem_post(&w->end_sem);
  }
  return result;
}

int MThread_Clean(void* pool, int threadIndex) { return MThread_Sync(pool, threadIndex, 1); }

int MThread_Finish(void* pool, int first, int count, MThread_Func function, void* argument) {
  const int run = MThread_Run(pool, first, count, function, argument);
  const int sync = MThread_Sync(pool, first, count);
  return run != 0 || sync != 0 ? -1 : 0;
}

int MThread_Bind(int bindMode) { return BindTid(CurrentTid(), bindMode); }

int MThread_Name(pthread_t* thread, const char* name) {
  if (name == nullptr) return 0;
  char cut[kNameMax];
  strncpy(cut, name, sizeof cut - 1);
  cut[sizeof cut - 1] = '\0';
  return pthread_setname_np(thread != nullptr ? *thread : pthread_self(), cut);
}

void MThread_ChangeBindCoreFlag(void* pool, int bindMode) {
  const char* const fn = "MThread_ChangeBindCoreFlag";
  bool empty = false;
  MThread_Pool* p =
      EnteredPool(pool, fn, kLineChangeEnter, kLineChangeNull, kLineChangeEmpty, &empty);
  if (p == nullptr) return;
  for (int i = 0; i < p->count; ++i) {
    MThread_Worker* w = &p->workers[i];
    Wait(&w->end_sem);
    __atomic_store_n(&w->bindMode, bindMode, __ATOMIC_RELAXED);
    sem_post(&w->end_sem);
  }
  BV_LOGD(kTagMthd, fn, kLineChangeLeave, "Leaving .");
}

}  // extern "C"
