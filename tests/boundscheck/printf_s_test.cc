#include <gtest/gtest.h>
#include <locale.h>
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include <random>
#include <string>

#include "bivista/boundscheck.h"
#include "boundscheck/boundscheck_internal.h"
#include "boundscheck/expect_violation.h"

namespace {

using bvtest::NothingLogged;
using bvtest::OneViolation;
namespace bc = bivista::bc;

int CallVsnprintfS(char* buf, rsize_t n, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const int r = vsnprintf_s(buf, n, fmt, ap);
  va_end(ap);
  return r;
}

int CallVsprintfS(char* buf, rsize_t n, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const int r = vsprintf_s(buf, n, fmt, ap);
  va_end(ap);
  return r;
}

// Each violation: the return value, buf[0] cleared only when buf and its size are usable.
TEST(SprintfS, ViolationsReturnZeroAndEmptyTheBuffer) {
  bvtest::LogCapture log;
  const char* kF = "sprintf_s";
  const int kL = bc::kLineSprintfS;
  char buf[16];
  const auto reset = [&] { memcpy(buf, "untouched", 10); };
  reset();
  EXPECT_EQ(sprintf_s(nullptr, 16, "%d", 1), 0);
  EXPECT_TRUE(OneViolation(log, kF, kL, "dest is null"));
  EXPECT_EQ(sprintf_s(buf, 0, "%d", 1), 0);
  EXPECT_TRUE(OneViolation(log, kF, kL, "destination size is zero"));
  EXPECT_EQ(sprintf_s(buf, RSIZE_MAX + 1, "%d", 1), 0);
  EXPECT_TRUE(OneViolation(log, kF, kL, "size above RSIZE_MAX"));
  EXPECT_STREQ(buf, "untouched");
  EXPECT_EQ(sprintf_s(buf, 16, nullptr), 0);
  EXPECT_TRUE(OneViolation(log, kF, kL, "format is null"));
  EXPECT_EQ(buf[0], '\0');
  reset();
  int count = -7;
  EXPECT_EQ(sprintf_s(buf, 16, "ab%ncd", &count), 0);
  EXPECT_TRUE(OneViolation(log, kF, kL, "%n in format"));
  EXPECT_EQ(count, -7);
  EXPECT_EQ(buf[0], '\0');
  reset();
  EXPECT_EQ(sprintf_s(buf, 16, "%d %s", 5, static_cast<char*>(nullptr)), 0);
  EXPECT_TRUE(OneViolation(log, kF, kL, "null %s argument"));
  EXPECT_EQ(buf[0], '\0');
  reset();
  EXPECT_EQ(sprintf_s(buf, 16, "%y"), 0);
  EXPECT_TRUE(OneViolation(log, kF, kL, "unsupported conversion in format"));
  reset();
  EXPECT_EQ(sprintf_s(buf, 5, "%s", "hello"), 0);  // needs 6
  EXPECT_TRUE(OneViolation(log, kF, kL, "destination too small"));
  EXPECT_EQ(buf[0], '\0');
  EXPECT_EQ(sprintf_s(buf, 6, "%s", "hello"), 5);
  EXPECT_STREQ(buf, "hello");
  EXPECT_EQ(CallVsprintfS(buf, 3, "%d", 123), 0);
  EXPECT_TRUE(OneViolation(log, "vsprintf_s", bc::kLineVsprintfS, "destination too small"));
  EXPECT_TRUE(NothingLogged(log));
}

TEST(SnprintfS, ViolationsReturnNegativeAndTruncationIsNormal) {
  bvtest::LogCapture log;
  const char* kF = "snprintf_s";
  const int kL = bc::kLineSnprintfS;
  char buf[16] = "untouched";
  EXPECT_EQ(snprintf_s(nullptr, 16, "x"), -EINVAL);
  EXPECT_TRUE(OneViolation(log, kF, kL, "dest is null"));
  EXPECT_EQ(snprintf_s(buf, 0, "x"), -EINVAL);
  EXPECT_TRUE(OneViolation(log, kF, kL, "destination size is zero"));
  EXPECT_EQ(snprintf_s(buf, RSIZE_MAX + 1, "x"), -ERANGE);
  EXPECT_TRUE(OneViolation(log, kF, kL, "size above RSIZE_MAX"));
  EXPECT_STREQ(buf, "untouched");
  int count = 0;
  EXPECT_EQ(snprintf_s(buf, 16, "%1$n", &count), -EINVAL);  // refused in positional form too
  EXPECT_TRUE(OneViolation(log, kF, kL, "%n in format"));
  EXPECT_EQ(buf[0], '\0');
  EXPECT_EQ(CallVsnprintfS(buf, 16, "%s", static_cast<char*>(nullptr)), -EINVAL);
  EXPECT_TRUE(OneViolation(log, "vsnprintf_s", bc::kLineVsnprintfS, "null %s argument"));
  EXPECT_EQ(snprintf_s(buf, 6, "%s-%d", "abcdef", 42), 9);
  EXPECT_STREQ(buf, "abcde");
  EXPECT_TRUE(NothingLogged(log));
}

// The argument walk must step over every argument kind to reach the right %s.
TEST(PrintfS, ArgumentWalkFindsTheNullString) {
  bvtest::LogCapture log;
  char buf[128];
  const char* null = nullptr;
  EXPECT_EQ(sprintf_s(buf, sizeof buf, "%*.*f %lld %Lf %c %p %zu %Ld %s %s", 5, 2, 1.5, 1LL,
                      static_cast<long double>(2), 'c', static_cast<void*>(buf), size_t{3},
                      1LL << 40, "ok", null),
            0);
  EXPECT_TRUE(OneViolation(log, "sprintf_s", bc::kLineSprintfS, "null %s argument"));
  EXPECT_GT(sprintf_s(buf, sizeof buf, "%*.*f %lld %Lf %c %p %zu %s %%", 5, 2, 1.5, 1LL,
                      static_cast<long double>(2), 'c', static_cast<void*>(buf), size_t{3}, "ok"),
            0);
  EXPECT_GT(sprintf_s(buf, sizeof buf, "%2$s %1$d", 7, "seven"), 0);
  EXPECT_STREQ(buf, "seven 7");
  EXPECT_TRUE(NothingLogged(log));
}

TEST(PrintfS, EncodingErrorIsNegative) {
  bvtest::LogCapture log;
  char* old = setlocale(LC_CTYPE, nullptr);
  std::string saved = old ? old : "C";
  setlocale(LC_CTYPE, "C");
  char buf[16] = "untouched";
  const wchar_t bad[] = {static_cast<wchar_t>(0xD800), 0};
  char ref[16];
  if (snprintf(ref, sizeof ref, "%ls", bad) < 0) {
    EXPECT_LT(snprintf_s(buf, sizeof buf, "%ls", bad), 0);
    EXPECT_TRUE(OneViolation(log, "snprintf_s", bc::kLineSnprintfS, "encoding error"));
    EXPECT_EQ(buf[0], '\0');
    memcpy(buf, "untouched", 10);
    EXPECT_LT(sprintf_s(buf, sizeof buf, "%ls", bad), 0);
    EXPECT_TRUE(OneViolation(log, "sprintf_s", bc::kLineSprintfS, "encoding error"));
    EXPECT_EQ(buf[0], '\0');
  }
  setlocale(LC_CTYPE, saved.c_str());
}

// Random formats and values against snprintf.
TEST(PrintfS, MatchSnprintfOnRandomInputs) {
  bvtest::LogCapture log;
  std::mt19937 rng(4242);
  for (int trial = 0; trial < 2000; ++trial) {
    const int i = static_cast<int>(rng()) >> (rng() % 31);
    const double d = ldexp(static_cast<double>(static_cast<int>(rng())), -(int)(rng() % 40));
    const long long ll = (static_cast<long long>(rng()) << 32) | rng();
    std::string s(rng() % 12, 'a');
    for (char& c : s) c = static_cast<char>('a' + rng() % 26);
    const int w = static_cast<int>(rng() % 12);
    const rsize_t n = 1 + rng() % 48;
    char ours[64], ref[64];
    memset(ours, '#', sizeof ours);
    memset(ref, '#', sizeof ref);
    int r1, r2;
    switch (trial % 4) {
      case 0:
        r1 = snprintf_s(ours, n, "%d|%*s|%.3f", i, w, s.c_str(), d);
        r2 = snprintf(ref, n, "%d|%*s|%.3f", i, w, s.c_str(), d);
        break;
      case 1:
        r1 = snprintf_s(ours, n, "%-8x%+lld %g %c", i, ll, d, 'A' + trial % 26);
        r2 = snprintf(ref, n, "%-8x%+lld %g %c", i, ll, d, 'A' + trial % 26);
        break;
      case 2:
        r1 = sprintf_s(ours, n, "%s_%05d", s.c_str(), i % 1000);
        r2 = snprintf(ref, n, "%s_%05d", s.c_str(), i % 1000);
        if (r2 >= static_cast<int>(n)) {
          ASSERT_EQ(r1, 0);
          ASSERT_EQ(ours[0], '\0');
          ASSERT_EQ(log.Lines().size(), 1u);
          log.Clear();
          continue;
        }
        break;
      default:
        r1 = snprintf_s(ours, n, "%*.*e%%%o", w, w % 6, d, static_cast<unsigned>(i));
        r2 = snprintf(ref, n, "%*.*e%%%o", w, w % 6, d, static_cast<unsigned>(i));
        break;
    }
    ASSERT_EQ(r1, r2) << "trial " << trial;
    ASSERT_EQ(memcmp(ours, ref, sizeof ours), 0) << "trial " << trial;
  }
  EXPECT_TRUE(NothingLogged(log));
}

}  // namespace
