// Worker pool: create with any thread count and options, then boots, runs, syncs, cleans,
// finishes, bind-mode changes and names in any order, with indices and ranges up to the int
// limits, on a real pool, a null one and a handle without workers. Every job writes its own
// slot of an array sized exactly to the pool; after the final sync every slot holds the jobs
// booted on it, and every result code is the one the index range calls for.
#include <sched.h>
#include <stdlib.h>

#include <algorithm>
#include <limits>
#include <string>

#include "bivista/mthread.h"
#include "support.h"

namespace {

constexpr int kMaxThreads = 8;

struct Slots {
  int* hits;  // one per worker, exactly
  int tag;
  std::vector<int64_t> inline_;  // indices of jobs run on the caller (null pool)
};

void* Job(void* argument, int threadIndex) {
  Slots* s = static_cast<Slots*>(argument);
  bvfuzz::Check(s->tag == 0x5EED, "job got another argument");
  if (s->hits == nullptr) {
    s->inline_.push_back(threadIndex);
  } else {
    ++s->hits[threadIndex];
  }
  return nullptr;
}

int Mode(FuzzedDataProvider& p) {
  return p.ConsumeBool() ? p.ConsumeIntegralInRange<int>(-1, 3) : bvfuzz::AnyInt(p);
}

int CountOf(const std::string& text, const char* needle) {
  int n = 0;
  for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++n;
  return n;
}

int BadIndexLines() {
  int n = 0;
  for (const std::string& line : bvfuzz::LogLines()) n += CountOf(line, "out of range");
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider p(data, size);
  // The calling thread's cores and name are restored afterwards (bind mode 1 and
  // MThread_Bind/MThread_Name act on it).
  cpu_set_t cores;
  const bool haveCores = sched_getaffinity(0, sizeof cores, &cores) == 0;
  bvfuzz::ClearLog();

  // Counts: a few workers, none, negative, or so many that their records pass 2^31 bytes.
  const int pick = p.ConsumeIntegralInRange<int>(0, 7);
  const int tooMany = static_cast<int>(std::numeric_limits<int>::max() / sizeof(MThread_Worker)) + 1;
  int count = pick < 5 ? p.ConsumeIntegralInRange<int>(1, kMaxThreads)
              : pick == 5 ? p.ConsumeIntegralInRange<int>(-3, 0)
              : pick == 6 ? p.ConsumeIntegralInRange<int>(tooMany, std::numeric_limits<int>::max())
                          : bvfuzz::AnyInt(p);
  if (count > kMaxThreads && count < tooMany) count = kMaxThreads;
  MThread_Options options = {Mode(p), p.ConsumeBool() ? 0 : bvfuzz::AnyInt(p), nullptr};
  const std::string name = p.ConsumeRandomLengthString(40);
  const int optionKind = p.ConsumeIntegralInRange<int>(0, 2);
  if (optionKind == 1) options.name = name.c_str();
  // Most inputs reuse a pool per count (starting threads dominates the run time); it is left
  // idle at the end of every input.
  const bool fresh = p.ConsumeIntegralInRange<int>(0, 3) == 3 || count < 1 || count > kMaxThreads;
  int status = -77;
  void* pool = nullptr;
  if (fresh) {
    pool = MThread_Create(count, optionKind == 0 ? nullptr : &options, &status);
    if (count < 1) bvfuzz::Check(pool == nullptr && status == -77, "bad count: pool or status");
    if (count > kMaxThreads) bvfuzz::Check(pool == nullptr && status == 1, "huge count accepted");
    if (pool != nullptr) bvfuzz::Check(status == count, "status is not the worker count");
  } else {
    pool = bvfuzz::SharedPool(count);
  }
  if (count >= 1 && count <= kMaxThreads && pool == nullptr) return 0;  // out of threads

  // Which handle the operations go to: the pool, null, or a handle without workers.
  const int handleKind = pool == nullptr ? 1 : p.ConsumeIntegralInRange<int>(0, 3) == 0 ? 2 : 0;
  MThread_Pool* empty = nullptr;
  void* h = pool;
  if (handleKind == 1) h = nullptr;
  if (handleKind == 2) {
    empty = static_cast<MThread_Pool*>(malloc(sizeof(MThread_Pool)));
    empty->workers = nullptr;
    empty->count = p.ConsumeIntegralInRange<int>(-2, 3);
    h = empty;
  }
  const int workers = handleKind == 0 ? count : 0;
  std::vector<int> hits(static_cast<size_t>(workers)), expected(hits.size());
  Slots slots = {workers > 0 ? hits.data() : nullptr, 0x5EED, {}};
  std::vector<int64_t> expectedInline;
  int badLines = 0;

  // An index range: its result, and what it boots (bad indices log one line each).
  const auto range = [&](int first, int cnt, bool boots) {
    int rc = 0;
    // No index lies past INT_MAX: the range ends there.
    const int64_t end = std::min<int64_t>(static_cast<int64_t>(first) + cnt,
                                          int64_t{std::numeric_limits<int>::max()} + 1);
    for (int64_t i = first; i < end; ++i) {
      if (h == nullptr) {
        if (boots) expectedInline.push_back(i);
      } else if (i >= workers || i < 0) {
        rc = -1;
        ++badLines;
      } else if (boots) {
        ++expected[static_cast<size_t>(i)];
      }
    }
    return rc;
  };
  // The model's result first and the call's (no order between them: they touch apart state).
  const auto expect = [](int want, int got, const char* what) { bvfuzz::Check(got == want, what); };
  const auto index = [&]() {
    return p.ConsumeBool() ? p.ConsumeIntegralInRange<int>(-1, kMaxThreads) : bvfuzz::AnyInt(p);
  };

  const int ops = p.ConsumeIntegralInRange<int>(0, 24);
  for (int op = 0; op < ops && p.remaining_bytes() > 0; ++op) {
    const int first = index(), cnt = p.ConsumeIntegralInRange<int>(-2, kMaxThreads + 2);
    switch (p.ConsumeIntegralInRange<int>(0, 8)) {
      case 0: {
        const bool withJob = p.ConsumeIntegralInRange<int>(0, 7) != 0;
        expect(range(first, 1, withJob), MThread_Boot(h, first, withJob ? Job : nullptr, &slots),
               "MThread_Boot result");
        break;
      }
      case 1:
        expect(range(first, cnt, true), MThread_Run(h, first, cnt, Job, &slots), "MThread_Run result");
        break;
      case 2: expect(range(first, cnt, false), MThread_Sync(h, first, cnt), "MThread_Sync result"); break;
      case 3: expect(range(first, 1, false), MThread_Clean(h, first), "MThread_Clean result"); break;
      case 4:
        expect(range(first, cnt, true) | range(first, cnt, false),
               MThread_Finish(h, first, cnt, Job, &slots), "MThread_Finish result");
        break;
      case 5:
        MThread_ChangeBindCoreFlag(h, Mode(p));
        break;
      case 6:
        MThread_Bind(Mode(p));
        break;
      case 7: {
        // The calling thread, or a worker of the pool (named while it may be busy).
        const int w = p.ConsumeIntegralInRange<int>(-1, workers - 1);
        const std::string n = p.ConsumeRandomLengthString(24);
        const bool nullName = p.ConsumeIntegralInRange<int>(0, 7) == 0;
        const int rc = MThread_Name(w < 0 ? nullptr : &static_cast<MThread_Pool*>(pool)->workers[w].thread,
                                    nullName ? nullptr : n.c_str());
        bvfuzz::Check(rc == 0, "MThread_Name failed on a live thread");
        break;
      }
      default:
        // Bind modes stored while jobs may run; workers read them only at start.
        if (workers > 0) {
          const int m = Mode(p);
          MThread_ChangeBindCoreFlag(h, m);
          for (int i = 0; i < workers; ++i) {
            MThread_Worker& wr = static_cast<MThread_Pool*>(h)->workers[i];
            bvfuzz::Check(__atomic_load_n(&wr.bindMode, __ATOMIC_RELAXED) == m,
                          "bind mode not stored");
          }
        }
        break;
    }
  }
  if (workers > 0) {
    bvfuzz::Check(MThread_Sync(h, 0, workers) == 0, "final sync failed");
    bvfuzz::Check(hits == expected, "jobs run differ from jobs booted");
  }
  bvfuzz::Check(slots.inline_ == expectedInline, "inline jobs differ from the range");
  if (bvfuzz::LogLines().size() < 4000) {
    bvfuzz::Check(BadIndexLines() == badLines, "one line per index outside the pool");
  }
  // Destroy with jobs possibly still booted: they end first.
  if (fresh && p.ConsumeBool() && workers > 0) {
    MThread_Run(h, 0, workers, Job, &slots);
    for (int& e : expected) ++e;
  }
  if (empty != nullptr) MThread_Destroy(empty);
  if (fresh) MThread_Destroy(pool);
  bvfuzz::Check(hits == expected, "destroy did not wait for booted jobs");
  if (pool == nullptr) MThread_Destroy(nullptr);
  if (haveCores) sched_setaffinity(0, sizeof cores, &cores);
  MThread_Name(nullptr, "fuzz_pool");
  return 0;
}
