// Memory services: 2D arrays of any shape (true sizes of 4 GiB or more must be refused with the
// allocator's messages, never handed out small), safeNew and the packed routines, the bump
// allocator against a model of its rules, and IsRelativePath against a plain search.
#include <limits.h>

#include <string>

#include "bivista/mem_services.h"
#include "support.h"

namespace {

// What the allocator does with a true byte count: refused (below 1 or past 32 bits), or taken.
bool Refused(int64_t bytes) { return bytes < 1 || bytes > INT_MAX; }

int CountContaining(const char* text) {
  int n = 0;
  for (const std::string& line : bvfuzz::LogLines()) n += line.find(text) != std::string::npos;
  return n;
}

template <class T>
void Fuzz2D(FuzzedDataProvider& p, T** (*alloc)(int, int), void (*release)(T**),
            const char* failText) {
  const int rows = p.ConsumeBool() ? bvfuzz::AnyInt(p) : bvfuzz::Dim(p, -2, 64);
  const int cols = p.ConsumeBool() ? bvfuzz::AnyInt(p) : bvfuzz::Dim(p, -2, 64);
  const int64_t arrayBytes = int64_t{rows} * 8;
  const int64_t cells = int64_t{rows} * cols;
  const int64_t blockBytes = cells > INT_MAX || cells < INT_MIN ? cells : cells * int64_t{sizeof(T)};
  const bool refused = Refused(arrayBytes) || Refused(blockBytes);
  // Sizes that would be taken are kept small enough to run thousands of times a second.
  if (!refused && (arrayBytes > (1 << 22) || blockBytes > (1 << 24))) return;
  bvfuzz::ClearLog();
  T** a = alloc(rows, cols);
  bvfuzz::Check((a == nullptr) == refused, "2D array taken or refused against its true size");
  if (a == nullptr) {
    bvfuzz::Check(CountContaining("you want to malloced is negative!!") == 1, "no safeNew warning");
    bvfuzz::Check(CountContaining(failText) == 1, "no family message");
    return;
  }
  bvfuzz::Check(bvfuzz::LogLines().empty(), "a taken array logged");
  // Every row pointer addresses its own row of one block; the whole block is writable.
  for (int r = 0; r < rows; ++r) {
    bvfuzz::Check(a[r] == a[0] + static_cast<size_t>(r) * cols, "row pointer");
  }
  memset(a[0], 0x5A, static_cast<size_t>(blockBytes));
  release(a);
}

void FuzzManager(FuzzedDataProvider& p) {
  const int size = bvfuzz::Dim(p, 0, 256);
  std::vector<unsigned char> block(static_cast<size_t>(size));
  MemoryManager m = {size, 0, block.data(), block.data()};
  if (block.empty()) m.current = m.base = nullptr;
  // Model: free + used stays the block size, current = base + used.
  int64_t used = 0;
  for (int step = 0; step < 16 && p.remaining_bytes() > 0; ++step) {
    const int op = p.ConsumeIntegralInRange<int>(0, 2);
    const int n = p.ConsumeBool() ? bvfuzz::AnyInt(p) : bvfuzz::Dim(p, -1, 300);
    if (op == 0) {
      const bool ok = m.current != nullptr && n >= 0 && size - used > n;
      void* got = mAllocate(&m, n);
      bvfuzz::Check((got != nullptr) == ok, "mAllocate against its rule");
      if (ok) {
        bvfuzz::Check(got == block.data() + used, "mAllocate address");
        used += n;
      }
    } else if (op == 1) {
      if (m.current != nullptr && n >= 0 && used > n) used -= n;
      mFree(&m, n);
    } else {
      if (m.current != nullptr) used = 0;
      mFreeAll(&m);
    }
    if (m.current != nullptr) {
      bvfuzz::Check(m.used == used && m.free == size - used && m.current == m.base + used,
                    "bump allocator state");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider p(data, size);
  bvfuzz::ClearLog();
  switch (p.ConsumeIntegralInRange<int>(0, 5)) {
    case 0: Fuzz2D<float>(p, float2D, float2D_release, "float2D failed!!"); break;
    case 1: Fuzz2D<int>(p, int2D, int2D_release, "malloced memory for int2D failed!!"); break;
    case 2: Fuzz2D<short>(p, short2D, short2D_release, "malloced memory for int2D failed!!"); break;
    case 3:
      Fuzz2D<unsigned char>(p, uchar2D, uchar2D_release, "malloced memory for int2D failed!!");
      break;
    case 4: {
      // safeNew, packed_SafeNew and packed_FXN_malloc without a host table: the true size rules.
      const uint64_t big = p.ConsumeIntegral<uint64_t>();
      const size_t n = p.ConsumeBool() ? static_cast<size_t>(big)
                                       : static_cast<size_t>(bvfuzz::Dim(p, 0, 4096));
      if (n > (1 << 24) && n <= static_cast<size_t>(INT_MAX)) break;  // taken but slow
      void* a = packed_FXN_malloc(n, 0, 0);
      bvfuzz::Check((a == nullptr) == (n < 1 || n > static_cast<size_t>(INT_MAX)),
                    "packed_FXN_malloc against the true size");
      if (a != nullptr) memset(a, 1, n);
      packed_FXN_free(a, 0, 0);
      const int s = p.ConsumeBool() ? bvfuzz::AnyInt(p) : bvfuzz::Dim(p, -4, 4096);
      if (s > (1 << 24)) break;
      void* b = p.ConsumeBool() ? safeNew(s) : packed_SafeNew(s);
      bvfuzz::Check((b == nullptr) == (s < 1), "safeNew against its size");
      if (b != nullptr) memset(b, 1, static_cast<size_t>(s));
      p.ConsumeBool() ? safeDelete(b) : packed_SafeDelete(b);
      break;
    }
    default: {
      FuzzManager(p);
      const std::string path = p.ConsumeRandomLengthString(64).c_str();  // up to a NUL
      const bool relative = path.find("../") != std::string::npos ||
                            path.find("./") != std::string::npos;
      bvfuzz::Check(IsRelativePath(path.c_str()) == (relative ? -1 : 0), "IsRelativePath");
    }
  }
  return 0;
}
