#include "support/alloc_table.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t n, size_t size);
void* __real_realloc(void* p, size_t size);
void __real_free(void* p);
}

namespace bvtest {
namespace {

// Host table state.
std::mutex g_tableMutex;
int g_tableFailAt = 0, g_tableCalls = 0, g_tableFrees = 0;
std::set<void*> g_tableLive;
std::vector<std::string> g_tableTags;

// Wrapped malloc state; the set keeps frees of blocks from before arming out of the count.
std::atomic<bool> g_armed{false};
std::mutex g_watchMutex;
int g_failAt = 0, g_calls = 0;
int g_fill = -1;  // byte that fresh malloc blocks are filled with, -1: left as they come
bool g_failed = false;
std::set<void*>* g_watchLive = nullptr;
thread_local int g_inside = 0;  // std::set's own allocations are not watched
constexpr int kSizesKept = 64;
size_t g_sizes[kSizesKept];

// Runs f under the mutex, with the watch off for the allocations f makes itself.
template <typename F>
auto Locked(std::mutex& m, F f) {
  std::lock_guard<std::mutex> lock(m);
  ++g_inside;
  struct Out { ~Out() { --g_inside; } } out;
  return f();
}

void* TableMalloc(size_t size, uint64_t a, uint64_t) {
  return Locked(g_tableMutex, [&]() -> void* {
    const char* tag = reinterpret_cast<const char*>(static_cast<uintptr_t>(a));
    g_tableTags.push_back(tag != nullptr ? tag : "");
    if (++g_tableCalls == g_tableFailAt) return nullptr;
    void* p = __real_malloc(size);
    if (p != nullptr) g_tableLive.insert(p);
    return p;
  });
}

void TableFree(void* p, uint64_t, uint64_t) {
  Locked(g_tableMutex, [&] {
    ++g_tableFrees;
    g_tableLive.erase(p);
    __real_free(p);
  });
}

bool CountCall(size_t size) {
  return Locked(g_watchMutex, [&] {
    if (g_calls < kSizesKept) g_sizes[g_calls] = size;
    if (++g_calls != g_failAt) return true;
    g_failed = true;
    return false;
  });
}

// Adds p to, or removes old from, the blocks seen while armed.
void Track(void* p, void* old = nullptr) {
  Locked(g_watchMutex, [&] {
    if (g_watchLive == nullptr) return;
    if (old != nullptr) g_watchLive->erase(old);
    if (p != nullptr) g_watchLive->insert(p);
  });
}

bool Watching() { return g_armed.load(std::memory_order_relaxed) && g_inside == 0; }

}  // namespace

AllocTable::AllocTable() : table_{TableMalloc, TableFree, nullptr} {
  Locked(g_tableMutex, [] {
    g_tableFailAt = g_tableCalls = g_tableFrees = 0;
    g_tableLive.clear();
    g_tableTags.clear();
  });
}
AllocTable::~AllocTable() { FailAt(0); }
void AllocTable::FailAt(int n) {
  Locked(g_tableMutex, [&] { g_tableFailAt = n > 0 ? g_tableCalls + n : 0; });
}
int AllocTable::mallocs() const { return Locked(g_tableMutex, [] { return g_tableCalls; }); }
int AllocTable::frees() const { return Locked(g_tableMutex, [] { return g_tableFrees; }); }
int AllocTable::live() const {
  return Locked(g_tableMutex, [] { return static_cast<int>(g_tableLive.size()); });
}
std::vector<std::string> AllocTable::tags() const {
  return Locked(g_tableMutex, [] { return g_tableTags; });
}

MallocWatch::MallocWatch() {
  Locked(g_watchMutex, [] {
    g_watchLive = new std::set<void*>();
    g_failAt = g_calls = 0;
    g_fill = -1;
    g_failed = false;
  });
  g_armed = true;
}
MallocWatch::~MallocWatch() {
  g_armed = false;
  Locked(g_watchMutex, [] {
    delete g_watchLive;
    g_watchLive = nullptr;
  });
}
void MallocWatch::FillWith(int byte) { Locked(g_watchMutex, [&] { g_fill = byte; }); }
void MallocWatch::FailAt(int n) {
  Locked(g_watchMutex, [&] { g_failAt = n > 0 ? g_calls + n : 0; });
}
int MallocWatch::calls() const { return Locked(g_watchMutex, [] { return g_calls; }); }
long MallocWatch::live() const {
  return Locked(g_watchMutex, [] { return g_watchLive ? static_cast<long>(g_watchLive->size()) : 0L; });
}
std::vector<size_t> MallocWatch::sizes() const {
  return Locked(g_watchMutex, [] {
    return std::vector<size_t>(g_sizes, g_sizes + std::min(g_calls, kSizesKept));
  });
}
bool MallocWatch::failed() const { return Locked(g_watchMutex, [] { return g_failed; }); }

}  // namespace bvtest

extern "C" {

void* __wrap_malloc(size_t size) {
  if (!bvtest::Watching()) return __real_malloc(size);
  if (!bvtest::CountCall(size)) return nullptr;
  void* p = __real_malloc(size);
  if (p != nullptr && bvtest::g_fill >= 0) memset(p, bvtest::g_fill, size);
  bvtest::Track(p);
  return p;
}

void* __wrap_calloc(size_t n, size_t size) {
  if (!bvtest::Watching()) return __real_calloc(n, size);
  if (!bvtest::CountCall(n * size)) return nullptr;
  void* p = __real_calloc(n, size);
  bvtest::Track(p);
  return p;
}

void* __wrap_realloc(void* old, size_t size) {
  if (!bvtest::Watching()) return __real_realloc(old, size);
  if (!bvtest::CountCall(size)) return nullptr;
  void* p = __real_realloc(old, size);
  if (p != nullptr) bvtest::Track(p, old);
  return p;
}

void __wrap_free(void* p) {
  if (bvtest::Watching()) bvtest::Track(nullptr, p);
  __real_free(p);
}

}  // extern "C"
