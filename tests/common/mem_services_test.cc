#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <type_traits>

#include "bivista/mem_services.h"
#include "support/alloc_table.h"
#include "support/platform_capture.h"

namespace {

using bvtest::CountMsg;
using bvtest::LogCapture;

std::string Negative(int n) {
  return "the memory size " + std::to_string(n) + " you want to malloced is negative!!";
}

TEST(MemFxn, SafeNewAndPackedCallsThroughTheInstalledTable) {
  const vta_algo_mem_allocator_t saved = g_memFxn;
  bvtest::AllocTable host;
  LogCapture log;
  EXPECT_EQ(packed_SafeNew(-7), nullptr);
  EXPECT_EQ(CountMsg(log, 5, "ZR481_ALGO", "safeNew", Negative(-7)), 1);
  safeDelete(safeNew(1));
  safeDelete(nullptr);
  packed_SafeDelete(nullptr);
  update_globalMemFxn(host.table());  // the log shows the copied table
  char want[200];
  snprintf(want, sizeof want, "update g_memFxn with malloc(0x%p) free(0x%p) iBuf(0x%p)",
           reinterpret_cast<void*>(host.table()->malloc), reinterpret_cast<void*>(host.table()->free),
           static_cast<void*>(nullptr));
  EXPECT_EQ(CountMsg(log, 4, "ZR481_ALGO", "update_globalMemFxn", want), 1);
  EXPECT_EQ(log.Lines().size(), 2u);
  log.Clear();
  packed_FXN_free(packed_FXN_malloc(64, VTA_MEM_TAG("MORPHOLOGIC"), 0), VTA_MEM_TAG("MORPHOLOGIC"), 0);
  packed_FXN_free(nullptr, 0, 0);  // not handed to the host
  EXPECT_EQ(host.tags(), std::vector<std::string>{"MORPHOLOGIC"});
  EXPECT_EQ(host.frees(), 1);
  EXPECT_EQ(host.live(), 0);
  // Each packed call shows its wall-time slot at info level.
  const auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].tag, "ZR481_TIME");
  EXPECT_EQ(lines[0].priority, 4);
  EXPECT_NE(lines[0].text.find("] time consuming!packed_FXN_malloc step 25:    "), std::string::npos);
  EXPECT_NE(lines[1].text.find("] time consuming!packed_FXN_free step 26:    "), std::string::npos);
  // An empty table falls back to the C library under safeNew's rules.
  const vta_algo_mem_allocator_t none = {nullptr, nullptr, nullptr};
  update_globalMemFxn(&none);
  bvtest::MallocWatch watch;
  EXPECT_EQ(packed_FXN_malloc(0, 0, 0), nullptr);
  EXPECT_EQ(CountMsg(log, 5, "ZR481_ALGO", "safeNew", Negative(0)), 1);
  EXPECT_EQ(packed_FXN_malloc((size_t{1} << 32) + 16, 0, 0), nullptr);  // not cut to 16 bytes
  EXPECT_EQ(CountMsg(log, 5, "ZR481_ALGO", "safeNew", Negative(INT32_MIN)), 1);
  packed_FXN_free(packed_FXN_malloc(16, 0, 0), 0, 0);
  EXPECT_EQ(watch.calls(), 1);
  EXPECT_EQ(watch.live(), 0);
  update_globalMemFxn(&saved);
}

template <typename T>
void CheckArray2D(T** (*alloc)(int, int), void (*release)(T**), const char* name, const char* text) {
  SCOPED_TRACE(name);
  for (int rows : {1, 3, 17}) {  // row pointers address one contiguous block
    T** a = alloc(rows, 5);
    ASSERT_NE(a, nullptr);
    for (int r = 0; r < rows; ++r) ASSERT_EQ(a[r], a[0] + r * 5);
    memset(a[0], 1, sizeof(T) * rows * 5);  // the block is big enough (under ASan)
    release(a);
  }
  if (!std::is_same<T, float>::value) release(nullptr);  // float2D_release alone needs an array
  // Refused sizes (safeNew's warning first) and either malloc failing: the family message, no leak.
  // True sizes of 4 GiB and more are refused even where 32 bits would wrap them to a small
  // positive block (2^29 + 1 row pointers; 65537 x 65537 elements).
  const struct { int rows, cols, failAt; } cases[] = {
      {0, 4, 0},         {-1, 4, 0},        {4, 0, 0}, {4, -3, 0}, {65536, 65536, 0},
      {536870913, 1, 0}, {65537, 65537, 0}, {3, 3, 1}, {3, 3, 2}};
  for (const auto& c : cases) {
    LogCapture log;
    bvtest::MallocWatch watch;
    watch.FailAt(c.failAt);
    EXPECT_EQ(alloc(c.rows, c.cols), nullptr);
    EXPECT_EQ(watch.live(), 0);
    EXPECT_EQ(log.Lines().size(), c.failAt ? 1u : 2u);
    EXPECT_TRUE(c.failAt || (log.Lines().at(0).priority == 5 &&
                             log.Lines()[0].text.find("you want to malloced is negative!!") != std::string::npos));
    EXPECT_EQ(CountMsg(log, 6, "ZR481_ALGO", name, text), 1);
  }
}

TEST(Array2D, LayoutRefusalsAndAllocationFailures) {
  CheckArray2D<float>(float2D, float2D_release, "float2D", "float2D failed!!");
  CheckArray2D<int>(int2D, int2D_release, "int2D", "malloced memory for int2D failed!!");
  CheckArray2D<short>(short2D, short2D_release, "short2D", "malloced memory for int2D failed!!");
  CheckArray2D<unsigned char>(uchar2D, uchar2D_release, "uchar2D", "malloced memory for int2D failed!!");
}

TEST(MemoryManager, BumpAllocatorBoundaries) {
  unsigned char block[100];
  MemoryManager m = {100, 0, block, block}, empty = {10, 0, nullptr, nullptr};
  LogCapture log;
  // {op: allocate, free or free all; size; expected offset (-1: null); then free and used}
  const struct { char op; int n, at, free, used; } steps[] = {
      {'a', 100, -1, 100, 0},  // exactly the free bytes fails on purpose
      {'a', 30, 0, 70, 30},   {'a', 69, 30, 1, 99}, {'a', 1, -1, 1, 99},
      {'a', -5, -1, 1, 99},    // never moves the cursor backwards
      {'f', 99, 0, 1, 99},     // exactly the used count does nothing
      {'f', -1, 0, 1, 99},    {'f', 69, 0, 70, 30}, {'a', 1, 30, 69, 31}, {'F', 0, 0, 100, 0}, {'a', 7, 0, 93, 7}};
  for (const auto& s : steps) {
    void* got = s.op == 'a' ? mAllocate(&m, s.n) : nullptr;
    if (s.op == 'f') mFree(&m, s.n);
    if (s.op == 'F') mFreeAll(&m);
    EXPECT_EQ(got, s.op == 'a' && s.at >= 0 ? block + s.at : nullptr) << s.n;
    EXPECT_EQ(std::make_pair(m.free, m.used), std::make_pair(s.free, s.used)) << s.op << s.n;
  }
  EXPECT_EQ(mAllocate(nullptr, 1), nullptr);
  EXPECT_EQ(mAllocate(&empty, 1), nullptr);
  mFree(nullptr, 1);
  mFreeAll(nullptr);
  mFreeAll(&empty);
  EXPECT_EQ(empty.free, 10);
  // Only mAllocate refusals speak.
  EXPECT_EQ(CountMsg(log, 6, "ZR481_ALGO", "mAllocate", "\n!!!!!!!!!!!!!!error!!!!!!!!!!!\n\n"), 5);
  EXPECT_EQ(log.Lines().size(), 5u);
}

// The golden digests pin the usual paths; a dot-slash inside a name and a null path are refused too.
TEST(IsRelativePath, FlagsDotSlashAnywhere) {
  LogCapture log;
  EXPECT_EQ(IsRelativePath("/data/x./y") + IsRelativePath(nullptr), -2);
  EXPECT_EQ(CountMsg(log, 5, "ZR481_ALGO", "IsRelativePath", "it is not absulate path"), 2);
}

}  // namespace
