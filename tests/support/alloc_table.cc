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
int g_tableFailAt = 0;
int g_tableCalls = 0;
int g_tableFrees = 0;
std::set<void*> g_tableLive;
std::vector<std::string> g_tableTags;

void* TableMalloc(size_t size, uint64_t a, uint64_t b) {
  std::lock_guard<std::mutex> lock(g_tableMutex);
  ++g_tableCalls;
  const char* tag = reinterpret_cast<const char*>(static_cast<uintptr_t>(a));
  g_tableTags.push_back(tag != nullptr ? tag : "");
  if (g_tableFailAt > 0 && g_tableCalls == g_tableFailAt) return nullptr;
  void* p = __real_malloc(size);
  if (p != nullptr) g_tableLive.insert(p);
  return p;
}

void TableFree(void* p, uint64_t a, uint64_t b) {
  std::lock_guard<std::mutex> lock(g_tableMutex);
  ++g_tableFrees;
  g_tableLive.erase(p);
  __real_free(p);
}

// Wrapped malloc state; the set keeps frees of blocks from before arming out of the count.
std::atomic<bool> g_armed{false};
std::mutex g_watchMutex;
int g_failAt = 0;
int g_fill = -1;  // byte that fresh malloc blocks are filled with, -1: left as they come
int g_calls = 0;
bool g_failed = false;
std::set<void*>* g_watchLive = nullptr;
thread_local int g_inside = 0;  // std::set's own allocations are not watched
constexpr int kSizesKept = 64;
size_t g_sizes[kSizesKept];

bool CountCall(size_t size) {
  std::lock_guard<std::mutex> lock(g_watchMutex);
  if (g_calls < kSizesKept) g_sizes[g_calls] = size;
  ++g_calls;
  if (g_failAt > 0 && g_calls == g_failAt) {
    g_failed = true;
    return false;
  }
  return true;
}

void Track(void* p) {
  if (p == nullptr) return;
  std::lock_guard<std::mutex> lock(g_watchMutex);
  ++g_inside;
  if (g_watchLive) g_watchLive->insert(p);
  --g_inside;
}

void Untrack(void* p) {
  if (p == nullptr) return;
  std::lock_guard<std::mutex> lock(g_watchMutex);
  ++g_inside;
  if (g_watchLive) g_watchLive->erase(p);
  --g_inside;
}

bool Watching() { return g_armed.load(std::memory_order_relaxed) && g_inside == 0; }

}  // namespace

AllocTable::AllocTable() : table_{TableMalloc, TableFree, nullptr} {
  std::lock_guard<std::mutex> lock(g_tableMutex);
  g_tableFailAt = g_tableCalls = g_tableFrees = 0;
  g_tableLive.clear();
  g_tableTags.clear();
}

AllocTable::~AllocTable() {
  std::lock_guard<std::mutex> lock(g_tableMutex);
  g_tableFailAt = 0;
}

void AllocTable::FailAt(int n) {
  std::lock_guard<std::mutex> lock(g_tableMutex);
  g_tableFailAt = n > 0 ? g_tableCalls + n : 0;
}

int AllocTable::mallocs() const {
  std::lock_guard<std::mutex> lock(g_tableMutex);
  return g_tableCalls;
}

int AllocTable::frees() const {
  std::lock_guard<std::mutex> lock(g_tableMutex);
  return g_tableFrees;
}

int AllocTable::live() const {
  std::lock_guard<std::mutex> lock(g_tableMutex);
  return static_cast<int>(g_tableLive.size());
}

std::vector<std::string> AllocTable::tags() const {
  std::lock_guard<std::mutex> lock(g_tableMutex);
  return g_tableTags;
}

MallocWatch::MallocWatch() {
  std::lock_guard<std::mutex> lock(g_watchMutex);
  ++g_inside;
  g_watchLive = new std::set<void*>();
  --g_inside;
  g_failAt = g_calls = 0;
  g_fill = -1;
  g_failed = false;
  g_armed = true;
}

MallocWatch::~MallocWatch() {
  g_armed = false;
  std::lock_guard<std::mutex> lock(g_watchMutex);
  ++g_inside;
  delete g_watchLive;
  g_watchLive = nullptr;
  --g_inside;
}

void MallocWatch::FillWith(int byte) {
  std::lock_guard<std::mutex> lock(g_watchMutex);
  g_fill = byte;
}

void MallocWatch::FailAt(int n) {
  std::lock_guard<std::mutex> lock(g_watchMutex);
  g_failAt = n > 0 ? g_calls + n : 0;
}

int MallocWatch::calls() const {
  std::lock_guard<std::mutex> lock(g_watchMutex);
  return g_calls;
}

long MallocWatch::live() const {
  std::lock_guard<std::mutex> lock(g_watchMutex);
  return g_watchLive ? static_cast<long>(g_watchLive->size()) : 0;
}

std::vector<size_t> MallocWatch::sizes() const {
  std::lock_guard<std::mutex> lock(g_watchMutex);
  ++g_inside;
  std::vector<size_t> out(g_sizes, g_sizes + std::min(g_calls, kSizesKept));
  --g_inside;
  return out;
}

bool MallocWatch::failed() const {
  std::lock_guard<std::mutex> lock(g_watchMutex);
  return g_failed;
}

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
  if (p != nullptr) {
    bvtest::Untrack(old);
    bvtest::Track(p);
  }
  return p;
}

void __wrap_free(void* p) {
  if (bvtest::Watching()) bvtest::Untrack(p);
  __real_free(p);
}

}  // extern "C"
