#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "bivista/mem_services.h"
#include "support/alloc_table.h"
#include "support/platform_capture.h"

namespace {

using bvtest::CountMsg;
using bvtest::LogCapture;

const char kNegative0[] = "the memory size 0 you want to malloced is negative!!";

TEST(SafeNew, RefusesSizesBelowOneWithAWarning) {
  LogCapture log;
  EXPECT_EQ(safeNew(0), nullptr);
  EXPECT_EQ(packed_SafeNew(-7), nullptr);
  EXPECT_EQ(CountMsg(log, 5, "ZR481_ALGO", "safeNew", kNegative0), 1);
  EXPECT_EQ(CountMsg(log, 5, "ZR481_ALGO", "safeNew",
                     "the memory size -7 you want to malloced is negative!!"), 1);
  void* p = safeNew(1);
  ASSERT_NE(p, nullptr);
  safeDelete(p);
  safeDelete(nullptr);
  packed_SafeDelete(nullptr);
  EXPECT_EQ(log.Lines().size(), 2u);
}

TEST(MemFxn, UpdateCopiesTheTableAndPackedCallsGoThroughIt) {
  const vta_algo_mem_allocator_t saved = g_memFxn;
  bvtest::AllocTable host;
  {
    LogCapture log;
    update_globalMemFxn(host.table());
    EXPECT_EQ(g_memFxn.malloc, host.table()->malloc);
    EXPECT_EQ(g_memFxn.free, host.table()->free);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(log.Lines()[0].priority, 4);
    char expected[200];
    snprintf(expected, sizeof expected, "update g_memFxn with malloc(0x%p) free(0x%p) iBuf(0x%p)",
             reinterpret_cast<void*>(host.table()->malloc),
             reinterpret_cast<void*>(host.table()->free), static_cast<void*>(nullptr));
    EXPECT_TRUE(bvtest::IsMsg(log.Lines()[0].text, "update_globalMemFxn", expected));
  }
  {
    LogCapture log;
    void* p = packed_FXN_malloc(64, VTA_MEM_TAG("MORPHOLOGIC"), 0);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(host.mallocs(), 1);
    EXPECT_EQ(host.tags().at(0), "MORPHOLOGIC");
    packed_FXN_free(p, VTA_MEM_TAG("MORPHOLOGIC"), 0);
    packed_FXN_free(nullptr, 0, 0);  // not handed to the host
    EXPECT_EQ(host.frees(), 1);
    EXPECT_EQ(host.live(), 0);
    // Each packed call shows its wall-time slot at info level.
    const auto lines = log.Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].tag, "ZR481_TIME");
    EXPECT_EQ(lines[0].priority, 4);
    EXPECT_NE(lines[0].text.find("] time consuming!packed_FXN_malloc step 25:    "), std::string::npos);
    EXPECT_NE(lines[1].text.find("] time consuming!packed_FXN_free step 26:    "), std::string::npos);
  }
  const vta_algo_mem_allocator_t none = {nullptr, nullptr, nullptr};
  update_globalMemFxn(&none);
  {
    LogCapture log;
    EXPECT_EQ(packed_FXN_malloc(0, 0, 0), nullptr);  // falls back to safeNew's rules
    EXPECT_EQ(CountMsg(log, 5, "ZR481_ALGO", "safeNew", kNegative0), 1);
    bvtest::MallocWatch watch;
    void* p = packed_FXN_malloc(16, 0, 0);
    EXPECT_EQ(watch.calls(), 1);
    packed_FXN_free(p, 0, 0);
    EXPECT_EQ(watch.live(), 0);
  }
  update_globalMemFxn(&saved);
}

template <typename T, typename Alloc, typename Release>
void CheckLayout(Alloc alloc, Release release) {
  for (int rows : {1, 3, 17}) {
    T** a = alloc(rows, 5);
    ASSERT_NE(a, nullptr);
    for (int r = 0; r < rows; ++r) EXPECT_EQ(a[r], a[0] + r * 5);
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < 5; ++c) a[r][c] = static_cast<T>(r * 5 + c);
    for (int i = 0; i < rows * 5; ++i) EXPECT_EQ(a[0][i], static_cast<T>(i));
    release(a);
  }
}

TEST(Array2D, RowPointersAddressOneContiguousBlock) {
  CheckLayout<float>(float2D, float2D_release);
  CheckLayout<int>(int2D, int2D_release);
  CheckLayout<short>(short2D, short2D_release);
  CheckLayout<unsigned char>(uchar2D, uchar2D_release);
  int2D_release(nullptr);
  short2D_release(nullptr);
  uchar2D_release(nullptr);
}

TEST(Array2D, RefusedSizesLogTheWarningThenTheFamilyMessage) {
  struct Case {
    void* (*alloc)(int, int);
    const char* name;
    const char* text;
  };
  const Case cases[] = {
      {[](int r, int c) -> void* { return float2D(r, c); }, "float2D", "float2D failed!!"},
      {[](int r, int c) -> void* { return int2D(r, c); }, "int2D", "malloced memory for int2D failed!!"},
      {[](int r, int c) -> void* { return short2D(r, c); }, "short2D", "malloced memory for int2D failed!!"},
      {[](int r, int c) -> void* { return uchar2D(r, c); }, "uchar2D", "malloced memory for int2D failed!!"},
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(k.name);
    for (auto rc : {std::pair<int, int>{0, 4}, {-1, 4}, {4, 0}, {4, -3}, {65536, 65536}}) {
      LogCapture log;
      bvtest::MallocWatch watch;
      EXPECT_EQ(k.alloc(rc.first, rc.second), nullptr);
      EXPECT_EQ(watch.live(), 0);
      const auto lines = log.Lines();
      ASSERT_EQ(lines.size(), 2u);
      EXPECT_EQ(lines[0].priority, 5);
      EXPECT_TRUE(bvtest::IsMsg(lines[0].text, "safeNew", "", -1) ||
                  lines[0].text.find("you want to malloced is negative!!") != std::string::npos);
      EXPECT_EQ(CountMsg(log, 6, "ZR481_ALGO", k.name, k.text), 1);
    }
    // Failing either malloc logs the family message and leaks nothing.
    for (int fail = 1; fail <= 2; ++fail) {
      LogCapture log;
      bvtest::MallocWatch watch;
      watch.FailAt(fail);
      EXPECT_EQ(k.alloc(3, 3), nullptr);
      EXPECT_EQ(watch.live(), 0);
      EXPECT_EQ(CountMsg(log, 6, "ZR481_ALGO", k.name, k.text), 1);
    }
  }
}

TEST(MemoryManager, BumpAllocatorBoundaries) {
  unsigned char block[100];
  MemoryManager m = {100, 0, block, block};
  LogCapture log;
  const std::string err = "\n!!!!!!!!!!!!!!error!!!!!!!!!!!\n\n";
  EXPECT_EQ(mAllocate(&m, 100), nullptr);  // exactly the free bytes fails on purpose
  EXPECT_EQ(CountMsg(log, 6, "ZR481_ALGO", "mAllocate", err), 1);
  EXPECT_EQ(mAllocate(&m, 30), block);
  EXPECT_EQ(mAllocate(&m, 69), block + 30);  // free 70 > 69
  EXPECT_EQ(m.free, 1);
  EXPECT_EQ(m.used, 99);
  EXPECT_EQ(m.current, block + 99);
  EXPECT_EQ(mAllocate(&m, 1), nullptr);
  EXPECT_EQ(mAllocate(nullptr, 1), nullptr);
  EXPECT_EQ(mAllocate(&m, -5), nullptr);  // never moves the cursor backwards
  EXPECT_EQ(CountMsg(log, 6, "ZR481_ALGO", "mAllocate", err), 4);

  log.Clear();
  mFree(&m, 99);  // exactly the used count does nothing
  EXPECT_EQ(m.used, 99);
  mFree(&m, 69);
  EXPECT_EQ(m.used, 30);
  EXPECT_EQ(m.free, 70);
  EXPECT_EQ(m.current, block + 30);
  mFree(&m, -1);
  EXPECT_EQ(m.used, 30);
  mFreeAll(&m);
  EXPECT_EQ(m.current, block);
  EXPECT_EQ(m.free, 100);
  EXPECT_EQ(m.used, 0);
  mFree(nullptr, 1);
  mFreeAll(nullptr);
  MemoryManager empty = {10, 0, nullptr, nullptr};
  EXPECT_EQ(mAllocate(&empty, 1), nullptr);
  mFreeAll(&empty);
  EXPECT_EQ(empty.free, 10);
  EXPECT_EQ(log.Lines().size(), 1u);  // only the mAllocate refusal speaks
}

TEST(IsRelativePath, FlagsDotSlashAnywhere) {
  LogCapture log;
  EXPECT_EQ(IsRelativePath("/data/vendor/camera/disp.yuv"), 0);
  EXPECT_EQ(IsRelativePath("/data/a.b/c"), 0);
  EXPECT_EQ(IsRelativePath("./x"), -1);
  EXPECT_EQ(IsRelativePath("/data/../etc"), -1);
  EXPECT_EQ(IsRelativePath("/data/x./y"), -1);
  EXPECT_EQ(IsRelativePath(nullptr), -1);
  EXPECT_EQ(CountMsg(log, 5, "ZR481_ALGO", "IsRelativePath", "it is not absulate path"), 4);
}

}  // namespace
