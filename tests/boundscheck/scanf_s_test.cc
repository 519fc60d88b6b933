#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <random>
#include <string>

#include "bivista/boundscheck.h"
#include "boundscheck/boundscheck_internal.h"
#include "boundscheck/expect_violation.h"

namespace {

using bvtest::NothingLogged;
using bvtest::OneViolation;
namespace bc = bivista::bc;

int CallVsscanfS(const char* s, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const int r = vsscanf_s(s, fmt, ap);
  va_end(ap);
  return r;
}

// Violations are found before anything is stored.
TEST(SscanfS, ViolationsReturnEofAndStoreNothing) {
  bvtest::LogCapture log;
  const char* kF = "sscanf_s";
  const int kL = bc::kLineSscanfS;
  int a = -1, b = -1;
  char s[8] = "keep";
  EXPECT_EQ(sscanf_s(nullptr, "%d", &a), EOF);
  EXPECT_TRUE(OneViolation(log, kF, kL, "src is null"));
  EXPECT_EQ(sscanf_s("1", nullptr), EOF);
  EXPECT_TRUE(OneViolation(log, kF, kL, "format is null"));
  EXPECT_EQ(sscanf_s("1 2", "%d %d", &a, static_cast<int*>(nullptr)), EOF);
  EXPECT_TRUE(OneViolation(log, kF, kL, "null receiving argument"));
  EXPECT_EQ(sscanf_s("1 x", "%d %s", &a, static_cast<char*>(nullptr), rsize_t{8}), EOF);
  EXPECT_TRUE(OneViolation(log, kF, kL, "null receiving argument"));
  EXPECT_EQ(sscanf_s("1 2", "%d%n", &a, &b), EOF);
  EXPECT_TRUE(OneViolation(log, kF, kL, "%n in format"));
  EXPECT_EQ(sscanf_s("1 2", "%d %*n", &a), EOF);
  EXPECT_TRUE(OneViolation(log, kF, kL, "%n in format"));
  const char* bad[] = {"%d %ls", "%d %lc", "%d %l[a]", "%d %0d", "%d %1$d", "%d %y", "%d %",
                       "%d %[abc", "%d %123456789012345678901234567890d"};
  for (const char* f : bad) {
    EXPECT_EQ(CallVsscanfS("1 2", f, &a, &b, s, rsize_t{8}), EOF) << f;
    EXPECT_TRUE(OneViolation(log, "vsscanf_s", bc::kLineVsscanfS,
                             "unsupported conversion in format"))
        << f;
  }
  EXPECT_EQ(a, -1);
  EXPECT_EQ(b, -1);
  EXPECT_STREQ(s, "keep");
  // Suppressed conversions take no arguments, so a missing one is no violation.
  EXPECT_EQ(sscanf_s("1 ab", "%*d %*s"), 0);
  EXPECT_TRUE(NothingLogged(log));
}

TEST(SscanfS, SizesAreHonouredAndTooSmallIsAMatchingFailure) {
  bvtest::LogCapture log;
  int i = 0;
  float x = 0;
  char name[50];
  EXPECT_EQ(sscanf_s("25 54.32E-1 thompson", "%d%f%s", &i, &x, name, rsize_t{50}), 3);
  EXPECT_EQ(i, 25);
  EXPECT_FLOAT_EQ(x, 5.432f);
  EXPECT_STREQ(name, "thompson");
  char s[8];
  memset(s, '#', sizeof s);
  EXPECT_EQ(sscanf_s("hello world", "%s", s, rsize_t{5}), 0);
  EXPECT_EQ(s[0], '\0');
  EXPECT_EQ(s[1], '#');
  EXPECT_EQ(sscanf_s("hello world", "%s%d", s, rsize_t{6}, &i), 1);
  EXPECT_STREQ(s, "hello");
  EXPECT_EQ(sscanf_s("hello", "%3s", s, rsize_t{4}), 1);
  EXPECT_STREQ(s, "hel");
  memset(s, '#', sizeof s);
  EXPECT_EQ(sscanf_s("abcd", "%4c", s, rsize_t{3}), 0);
  EXPECT_EQ(s[0], '\0');
  memset(s, '#', sizeof s);
  EXPECT_EQ(sscanf_s("abcd", "%4c", s, rsize_t{4}), 1);
  EXPECT_EQ(memcmp(s, "abcd#", 5), 0);  // %c stores no terminator
  EXPECT_EQ(sscanf_s("aab]c", "%[]ab]", s, rsize_t{4}), 0);
  EXPECT_EQ(s[0], '\0');
  EXPECT_EQ(sscanf_s("aab]c", "%[]ab]", s, rsize_t{5}), 1);
  EXPECT_STREQ(s, "aab]");
  EXPECT_EQ(sscanf_s("x-9z", "%[^0-9]", s, rsize_t{8}), 1);
  EXPECT_STREQ(s, "x-");
  char one = 0;
  EXPECT_EQ(sscanf_s("q", "%c", &one, rsize_t{0}), 0);  // zero elements: nothing stored
  EXPECT_EQ(one, 0);
  EXPECT_EQ(sscanf_s("q", "%c", &one, rsize_t{1}), 1);
  EXPECT_EQ(one, 'q');
  EXPECT_TRUE(NothingLogged(log));
}

TEST(SscanfS, InputFailuresAndSuppression) {
  int a = -1, b = -1;
  char s[8];
  EXPECT_EQ(sscanf_s("", "%d", &a), EOF);
  EXPECT_EQ(sscanf_s("   ", "%d", &a), EOF);
  EXPECT_EQ(sscanf_s("ab", "ab%d", &a), EOF);
  EXPECT_EQ(sscanf_s("ab", "%2c%d", s, rsize_t{8}, &a), 1);
  EXPECT_EQ(sscanf_s("ab", "%3c", s, rsize_t{8}), EOF);  // fewer characters than the width
  EXPECT_EQ(sscanf_s("x", "%d", &a), 0);
  EXPECT_EQ(sscanf_s("12", "%*d%d", &a), 0);  // a conversion completed: not EOF
  EXPECT_EQ(sscanf_s("12 34 ab", "%*d %d %*s", &a), 1);
  EXPECT_EQ(a, 34);
  EXPECT_EQ(sscanf_s("5% 6", "%d%% %d", &a, &b), 2);
  EXPECT_EQ(b, 6);
  EXPECT_EQ(sscanf_s("5 6", "%d%% %d", &a, &b), 1);
  void* p = nullptr;
  EXPECT_EQ(sscanf_s("0x1234", "%p", &p), 1);
  EXPECT_EQ(p, reinterpret_cast<void*>(0x1234));
}

// Random inputs against sscanf, with sizes large enough that they never matter.
TEST(SscanfS, MatchesSscanfOnRandomInputs) {
  std::mt19937 rng(2024);
  const char* alphabet = "0123456789abcxyz -,:.\t+";
  for (int trial = 0; trial < 4000; ++trial) {
    std::string in(rng() % 24, ' ');
    for (char& c : in) c = alphabet[rng() % strlen(alphabet)];
    int i1 = -5, i2 = -5, r1, r2;
    unsigned char h1 = 9, h2 = 9;
    unsigned u1 = 7, u2 = 7;
    long long q1 = -3, q2 = -3;
    double d1 = -1, d2 = -1;
    char s1[32], s2[32], t1[32], t2[32];
    memset(s1, '#', sizeof s1);
    memset(s2, '#', sizeof s2);
    memset(t1, '#', sizeof t1);
    memset(t2, '#', sizeof t2);
    const char* f;
    switch (trial % 4) {
      case 0:
        f = "%d %s %x";
        r1 = sscanf_s(in.c_str(), f, &i1, s1, rsize_t{32}, &u1);
        r2 = sscanf(in.c_str(), f, &i2, s2, &u2);
        break;
      case 1:
        f = "%5s%d,%c";
        r1 = sscanf_s(in.c_str(), f, s1, rsize_t{32}, &i1, t1, rsize_t{1});
        r2 = sscanf(in.c_str(), f, s2, &i2, t2);
        break;
      case 2:
        f = "%[a-z]%d %lf";
        r1 = sscanf_s(in.c_str(), f, s1, rsize_t{32}, &i1, &d1);
        r2 = sscanf(in.c_str(), f, s2, &i2, &d2);
        break;
      default:
        f = "%hhu:%3[0-9x]%lld %i";
        r1 = sscanf_s(in.c_str(), f, &h1, s1, rsize_t{32}, &q1, &i1);
        r2 = sscanf(in.c_str(), f, &h2, s2, &q2, &i2);
        break;
    }
    ASSERT_EQ(r1, r2) << f << " on '" << in << "'";
    ASSERT_EQ(i1, i2) << f << " on '" << in << "'";
    ASSERT_EQ(h1, h2);
    ASSERT_EQ(u1, u2);
    ASSERT_EQ(q1, q2);
    ASSERT_TRUE(d1 == d2 || (d1 != d1 && d2 != d2));
    ASSERT_EQ(memcmp(s1, s2, sizeof s1), 0) << f << " on '" << in << "'";
    ASSERT_EQ(memcmp(t1, t2, sizeof t1), 0);
  }
}

}  // namespace
