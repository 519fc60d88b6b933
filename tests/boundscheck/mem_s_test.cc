#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <vector>

#include "bivista/boundscheck.h"
#include "boundscheck/boundscheck_internal.h"
#include "boundscheck/expect_violation.h"

namespace {

using bivista::bc::kLineMemcpyS;
using bivista::bc::kLineMemmoveS;
using bivista::bc::kLineMemsetS;
using bvtest::OneViolation;

constexpr size_t kBuf = 32;
constexpr size_t kDestsz = 16;  // bytes past it are sentinels that must never change

struct Buffers {
  unsigned char dest[kBuf];
  unsigned char src[kBuf];
  Buffers() {
    memset(dest, 0xAA, kBuf);
    for (size_t i = 0; i < kBuf; ++i) src[i] = static_cast<unsigned char>(i + 1);
  }
  bool DestIs(unsigned char head, size_t n) const {
    for (size_t i = 0; i < kBuf; ++i) {
      if (dest[i] != (i < n ? head : 0xAA)) return false;
    }
    return true;
  }
};

using CopyFn = errno_t (*)(void*, rsize_t, const void*, rsize_t);

// memcpy_s and memmove_s share every rule but overlap.
void CheckCopyViolations(CopyFn fn, const char* name, int line) {
  bvtest::LogCapture log;
  {
    Buffers b;
    EXPECT_EQ(fn(nullptr, kDestsz, b.src, 4), EINVAL);
    EXPECT_TRUE(OneViolation(log, name, line, "dest is null"));
  }
  {
    Buffers b;  // an invalid size: nothing may be cleared
    EXPECT_EQ(fn(b.dest, RSIZE_MAX + 1, b.src, 4), ERANGE);
    EXPECT_TRUE(OneViolation(log, name, line, "size above RSIZE_MAX"));
    EXPECT_TRUE(b.DestIs(0xAA, 0));
  }
  {
    Buffers b;
    EXPECT_EQ(fn(b.dest, kDestsz, nullptr, 4), EINVAL);
    EXPECT_TRUE(OneViolation(log, name, line, "src is null"));
    EXPECT_TRUE(b.DestIs(0, kDestsz));
  }
  {
    Buffers b;
    EXPECT_EQ(fn(b.dest, kDestsz, b.src, RSIZE_MAX + 1), ERANGE);
    EXPECT_TRUE(OneViolation(log, name, line, "size above RSIZE_MAX"));
    EXPECT_TRUE(b.DestIs(0, kDestsz));
  }
  {
    Buffers b;
    EXPECT_EQ(fn(b.dest, kDestsz, b.src, kDestsz + 1), ERANGE);
    EXPECT_TRUE(OneViolation(log, name, line, "destination too small"));
    EXPECT_TRUE(b.DestIs(0, kDestsz));
  }
  {
    Buffers b;  // zero sizes are allowed for the memory routines
    EXPECT_EQ(fn(b.dest, 0, b.src, 0), 0);
    EXPECT_EQ(fn(b.dest, kDestsz, b.src, 0), 0);
    EXPECT_TRUE(bvtest::NothingLogged(log));
    EXPECT_TRUE(b.DestIs(0xAA, 0));
    EXPECT_EQ(fn(b.dest, 0, b.src, 1), ERANGE);
    EXPECT_TRUE(OneViolation(log, name, line, "destination too small"));
    EXPECT_TRUE(b.DestIs(0xAA, 0));
  }
}

TEST(MemcpyS, ViolationsReturnCodeClearDestAndLogOnce) {
  CheckCopyViolations(memcpy_s, "memcpy_s", kLineMemcpyS);
  bvtest::LogCapture log;
  unsigned char buf[kBuf];
  for (size_t shift : {0, 1, 7}) {
    memset(buf, 0x55, kBuf);
    // Overlap either way round, including the exact same range.
    EXPECT_EQ(memcpy_s(buf, 16, buf + shift, 8), EINVAL);
    EXPECT_TRUE(OneViolation(log, "memcpy_s", kLineMemcpyS, "source and destination overlap"));
    for (size_t i = 0; i < kBuf; ++i) ASSERT_EQ(buf[i], i < 16 ? 0 : 0x55);
    memset(buf, 0x55, kBuf);
    EXPECT_EQ(memcpy_s(buf + shift, 16, buf, 8), EINVAL);
    EXPECT_TRUE(OneViolation(log, "memcpy_s", kLineMemcpyS, "source and destination overlap"));
  }
  memset(buf, 0x55, kBuf);
  EXPECT_EQ(memcpy_s(buf, 16, buf + 8, 8), 0);  // adjacent, not overlapping
  EXPECT_EQ(memcpy_s(buf + 8, 16, buf, 8), 0);
  EXPECT_TRUE(bvtest::NothingLogged(log));
}

TEST(MemmoveS, ViolationsAndOverlapAllowed) {
  CheckCopyViolations(memmove_s, "memmove_s", kLineMemmoveS);
}

TEST(MemsetS, ViolationsFillTheValidDestination) {
  bvtest::LogCapture log;
  Buffers b;
  EXPECT_EQ(memset_s(nullptr, kDestsz, 7, 4), EINVAL);
  EXPECT_TRUE(OneViolation(log, "memset_s", kLineMemsetS, "dest is null"));
  EXPECT_EQ(memset_s(b.dest, RSIZE_MAX + 1, 7, 4), ERANGE);
  EXPECT_TRUE(OneViolation(log, "memset_s", kLineMemsetS, "size above RSIZE_MAX"));
  EXPECT_TRUE(b.DestIs(0xAA, 0));
  EXPECT_EQ(memset_s(b.dest, kDestsz, 7, RSIZE_MAX + 1), ERANGE);
  EXPECT_TRUE(OneViolation(log, "memset_s", kLineMemsetS, "size above RSIZE_MAX"));
  EXPECT_TRUE(b.DestIs(7, kDestsz));
  Buffers c;
  EXPECT_EQ(memset_s(c.dest, kDestsz, 0x1FF, kDestsz + 1), ERANGE);  // ch taken as a byte
  EXPECT_TRUE(OneViolation(log, "memset_s", kLineMemsetS, "destination too small"));
  EXPECT_TRUE(c.DestIs(0xFF, kDestsz));
  Buffers d;
  EXPECT_EQ(memset_s(d.dest, 0, 1, 0), 0);
  EXPECT_TRUE(bvtest::NothingLogged(log));
  EXPECT_TRUE(d.DestIs(0xAA, 0));
}

// Random sizes and offsets against the C library, overlapping ranges included for memmove_s.
TEST(MemRoutines, MatchTheCLibraryOnRandomInputs) {
  bvtest::LogCapture log;
  std::mt19937 rng(12345);
  std::vector<unsigned char> ours(400), ref(400);
  for (int trial = 0; trial < 2000; ++trial) {
    for (size_t i = 0; i < ours.size(); ++i) ours[i] = ref[i] = static_cast<unsigned char>(rng());
    const size_t d = rng() % 100, s = rng() % 100, count = rng() % 100;
    const size_t destsz = count + rng() % 50;
    const int kind = trial % 3;
    if (kind == 0) {
      const size_t src = 200 + s;  // disjoint from dest
      ASSERT_EQ(memcpy_s(&ours[d], destsz, &ours[src], count), 0);
      memcpy(&ref[d], &ref[src], count);
    } else if (kind == 1) {
      ASSERT_EQ(memmove_s(&ours[d], destsz, &ours[s], count), 0);
      memmove(&ref[d], &ref[s], count);
    } else {
      const int ch = static_cast<int>(rng() % 512) - 128;
      ASSERT_EQ(memset_s(&ours[d], destsz, ch, count), 0);
      memset(&ref[d], ch, count);
    }
    ASSERT_EQ(ours, ref) << "trial " << trial;
  }
  EXPECT_TRUE(bvtest::NothingLogged(log));
}

}  // namespace
