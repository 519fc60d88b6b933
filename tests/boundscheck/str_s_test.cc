#include <gtest/gtest.h>
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

// A destination with a known prefix and sentinels; Untouched/Emptied compare against it.
struct Dest {
  char buf[24];
  explicit Dest(const char* init = "xyz") {
    memset(buf, '#', sizeof buf);
    memcpy(buf, init, strlen(init) + 1);
  }
  bool Untouched(const char* init = "xyz") const { return Dest(init).Same(*this); }
  // Only the first byte changed, to the terminator.
  bool Emptied(const char* init = "xyz") const {
    Dest want(init);
    want.buf[0] = '\0';
    return want.Same(*this);
  }
  bool Same(const Dest& o) const { return memcmp(buf, o.buf, sizeof buf) == 0; }
};

// The argument checks shared by the four copy and append routines.
template <typename Call>
void CheckCommonViolations(const char* name, int line, Call call) {
  bvtest::LogCapture log;
  Dest d;
  EXPECT_EQ(call(nullptr, 8, "ab"), EINVAL);
  EXPECT_TRUE(OneViolation(log, name, line, "dest is null"));
  EXPECT_EQ(call(d.buf, RSIZE_MAX + 1, "ab"), ERANGE);
  EXPECT_TRUE(OneViolation(log, name, line, "size above RSIZE_MAX"));
  EXPECT_TRUE(d.Untouched());
  EXPECT_EQ(call(d.buf, 0, "ab"), EINVAL);
  EXPECT_TRUE(OneViolation(log, name, line, "destination size is zero"));
  EXPECT_TRUE(d.Untouched());
  EXPECT_EQ(call(d.buf, 8, nullptr), EINVAL);
  EXPECT_TRUE(OneViolation(log, name, line, "src is null"));
  EXPECT_TRUE(d.Emptied());
}

TEST(StrcpyS, Violations) {
  CheckCommonViolations("strcpy_s", bc::kLineStrcpyS,
                        [](char* d, rsize_t n, const char* s) { return strcpy_s(d, n, s); });
  bvtest::LogCapture log;
  Dest d;
  EXPECT_EQ(strcpy_s(d.buf, 5, "hello"), ERANGE);  // needs 6
  EXPECT_TRUE(OneViolation(log, "strcpy_s", bc::kLineStrcpyS, "destination too small"));
  EXPECT_TRUE(d.Emptied());
  Dest e("hello world");
  EXPECT_EQ(strcpy_s(e.buf, 20, e.buf + 2), EINVAL);
  EXPECT_TRUE(OneViolation(log, "strcpy_s", bc::kLineStrcpyS, "source and destination overlap"));
  EXPECT_EQ(e.buf[0], '\0');
  Dest f;
  EXPECT_EQ(strcpy_s(f.buf, 6, "hello"), 0);  // exact fit
  EXPECT_STREQ(f.buf, "hello");
  EXPECT_TRUE(NothingLogged(log));
}

TEST(StrncpyS, ViolationsAndTruncation) {
  CheckCommonViolations("strncpy_s", bc::kLineStrncpyS,
                        [](char* d, rsize_t n, const char* s) { return strncpy_s(d, n, s, 4); });
  bvtest::LogCapture log;
  Dest d;
  EXPECT_EQ(strncpy_s(d.buf, 8, "ab", RSIZE_MAX + 1), ERANGE);
  EXPECT_TRUE(OneViolation(log, "strncpy_s", bc::kLineStrncpyS, "size above RSIZE_MAX"));
  EXPECT_TRUE(d.Emptied());
  // The classic cases: a long enough count with a long source is refused, a short count cuts.
  const char src1[100] = "hello";
  const char src2[7] = {'g', 'o', 'o', 'd', 'b', 'y', 'e'};  // unterminated
  char dst1[6], dst2[5] = "abc", dst3[5];
  EXPECT_EQ(strncpy_s(dst1, 6, src1, 100), 0);
  EXPECT_STREQ(dst1, "hello");
  EXPECT_EQ(strncpy_s(dst2, 5, src2, 7), ERANGE);
  EXPECT_TRUE(OneViolation(log, "strncpy_s", bc::kLineStrncpyS, "destination too small"));
  EXPECT_EQ(dst2[0], '\0');
  EXPECT_EQ(strncpy_s(dst3, 5, src2, 4), 0);
  EXPECT_STREQ(dst3, "good");
  Dest e("0123456789");
  EXPECT_EQ(strncpy_s(e.buf + 2, 10, e.buf, 3), EINVAL);
  EXPECT_TRUE(OneViolation(log, "strncpy_s", bc::kLineStrncpyS, "source and destination overlap"));
  EXPECT_EQ(e.buf[2], '\0');
  Dest f("0123456789");
  EXPECT_EQ(strncpy_s(f.buf + 3, 10, f.buf, 3), 0);  // reads 0..2, writes 3..6: apart
  EXPECT_STREQ(f.buf, "012012");
  EXPECT_TRUE(NothingLogged(log));
}

TEST(StrcatS, ViolationsAndExamples) {
  CheckCommonViolations("strcat_s", bc::kLineStrcatS,
                        [](char* d, rsize_t n, const char* s) { return strcat_s(d, n, s); });
  bvtest::LogCapture log;
  char s1[100] = "good", s2[6] = "hello", s3[6] = "hello", s4[7] = "abc";
  EXPECT_EQ(strcat_s(s1, 100, "bye"), 0);
  EXPECT_STREQ(s1, "goodbye");
  EXPECT_EQ(strcat_s(s2, 6, ""), 0);
  EXPECT_STREQ(s2, "hello");
  EXPECT_TRUE(NothingLogged(log));
  EXPECT_EQ(strcat_s(s3, 6, "X"), ERANGE);
  EXPECT_TRUE(OneViolation(log, "strcat_s", bc::kLineStrcatS, "destination too small"));
  EXPECT_EQ(s3[0], '\0');
  EXPECT_EQ(strcat_s(s4, 7, "defghijklmn"), ERANGE);
  EXPECT_TRUE(OneViolation(log, "strcat_s", bc::kLineStrcatS, "destination too small"));
  EXPECT_EQ(s4[0], '\0');
  Dest d("abcdef");
  EXPECT_EQ(strcat_s(d.buf, 6, "x"), EINVAL);  // no terminator within destsz
  EXPECT_TRUE(OneViolation(log, "strcat_s", bc::kLineStrcatS, "dest not terminated within its size"));
  EXPECT_TRUE(d.Emptied("abcdef"));
  Dest e("abc");
  EXPECT_EQ(strcat_s(e.buf, 20, e.buf + 1), EINVAL);
  EXPECT_TRUE(OneViolation(log, "strcat_s", bc::kLineStrcatS, "source and destination overlap"));
}

TEST(StrncatS, ViolationsAndExamples) {
  CheckCommonViolations("strncat_s", bc::kLineStrncatS,
                        [](char* d, rsize_t n, const char* s) { return strncat_s(d, n, s, 9); });
  bvtest::LogCapture log;
  char s1[100] = "good", s2[6] = "hello", s3[6] = "hello", s4[7] = "abc";
  EXPECT_EQ(strncat_s(s1, 100, "bye", 1000), 0);
  EXPECT_STREQ(s1, "goodbye");
  EXPECT_EQ(strncat_s(s2, 6, "", 1), 0);
  EXPECT_STREQ(s2, "hello");
  EXPECT_EQ(strncat_s(s4, 7, "defghijklmn", 3), 0);
  EXPECT_STREQ(s4, "abcdef");
  EXPECT_TRUE(NothingLogged(log));
  EXPECT_EQ(strncat_s(s3, 6, "X", 2), ERANGE);
  EXPECT_TRUE(OneViolation(log, "strncat_s", bc::kLineStrncatS, "destination too small"));
  EXPECT_EQ(s3[0], '\0');
  Dest d("abcdef");
  EXPECT_EQ(strncat_s(d.buf, 6, "x", 1), EINVAL);
  EXPECT_TRUE(OneViolation(log, "strncat_s", bc::kLineStrncatS, "dest not terminated within its size"));
  EXPECT_TRUE(d.Emptied("abcdef"));
  Dest e("abc");
  EXPECT_EQ(strncat_s(e.buf, 20, "x", RSIZE_MAX + 1), ERANGE);
  EXPECT_TRUE(OneViolation(log, "strncat_s", bc::kLineStrncatS, "size above RSIZE_MAX"));
  EXPECT_TRUE(e.Emptied("abc"));
  // The source may run on past count without a terminator.
  const char unterminated[3] = {'p', 'q', 'r'};
  char f[8] = "ab";
  EXPECT_EQ(strncat_s(f, 8, unterminated, 3), 0);
  EXPECT_STREQ(f, "abpqr");
}

TEST(StrtokS, TokenSequenceAndRemainingSize) {
  bvtest::LogCapture log;
  char str1[] = "?a???b,,,#c";
  char str2[] = "\t \t";
  char *ptr1 = nullptr, *ptr2 = nullptr;
  rsize_t max1 = sizeof str1, max2 = sizeof str2;
  char* t = strtok_s(str1, &max1, "?", &ptr1);
  ASSERT_NE(t, nullptr);
  EXPECT_STREQ(t, "a");
  EXPECT_EQ(max1, 9u);
  t = strtok_s(nullptr, &max1, ",", &ptr1);
  ASSERT_NE(t, nullptr);
  EXPECT_STREQ(t, "??b");
  EXPECT_EQ(strtok_s(str2, &max2, " \t", &ptr2), nullptr);
  t = strtok_s(nullptr, &max1, "#,", &ptr1);
  ASSERT_NE(t, nullptr);
  EXPECT_STREQ(t, "c");
  EXPECT_EQ(max1, 1u);
  EXPECT_EQ(strtok_s(nullptr, &max1, "?", &ptr1), nullptr);
  EXPECT_EQ(strtok_s(nullptr, &max1, "?", &ptr1), nullptr);
  EXPECT_TRUE(NothingLogged(log));
}

TEST(StrtokS, ViolationsWriteNothing) {
  bvtest::LogCapture log;
  char s[] = "ab cd";
  char* ptr = s + 1;
  rsize_t max = sizeof s;
  const auto check = [&](char* r, const char* what) {
    EXPECT_EQ(r, nullptr);
    EXPECT_TRUE(OneViolation(log, "strtok_s", bc::kLineStrtokS, what));
    EXPECT_STREQ(s, "ab cd");
    EXPECT_EQ(ptr, s + 1);
  };
  check(strtok_s(s, nullptr, " ", &ptr), "strmax is null");
  check(strtok_s(s, &max, nullptr, &ptr), "delim is null");
  check(strtok_s(s, &max, " ", nullptr), "ptr is null");
  char* none = nullptr;
  EXPECT_EQ(strtok_s(nullptr, &max, " ", &none), nullptr);
  EXPECT_TRUE(OneViolation(log, "strtok_s", bc::kLineStrtokS, "ptr is null"));
  max = RSIZE_MAX + 1;
  check(strtok_s(s, &max, " ", &ptr), "size above RSIZE_MAX");
  EXPECT_EQ(max, RSIZE_MAX + 1);
  // The first token's end (the blank at index 2) must lie within strmax.
  for (rsize_t m : {0, 1, 2}) {
    max = m;
    check(strtok_s(s, &max, " ", &ptr), "token ends beyond strmax");
    EXPECT_EQ(max, m);
  }
  max = 3;
  EXPECT_STREQ(strtok_s(s, &max, " ", &ptr), "ab");
  EXPECT_EQ(max, 0u);
  EXPECT_EQ(ptr, s + 3);
  EXPECT_TRUE(NothingLogged(log));
}

// Random strings and sizes against a direct formulation built on std::string.
TEST(StringRoutines, MatchDirectFormulationOnRandomInputs) {
  bvtest::LogCapture log;
  std::mt19937 rng(99);
  const auto randomString = [&](size_t maxLen) {
    std::string s(rng() % (maxLen + 1), ' ');
    for (char& c : s) c = static_cast<char>('a' + rng() % 26);
    return s;
  };
  for (int trial = 0; trial < 3000; ++trial) {
    const std::string head = randomString(10), src = randomString(20);
    const rsize_t destsz = 1 + rng() % 24, count = rng() % 24;
    char buf[32];
    memset(buf, '#', sizeof buf);
    memcpy(buf, head.c_str(), head.size() + 1);
    std::string want;
    bool ok;
    errno_t r;
    switch (trial % 4) {
      case 0:
        r = strcpy_s(buf, destsz, src.c_str());
        ok = src.size() < destsz;
        want = src;
        break;
      case 1:
        r = strncpy_s(buf, destsz, src.c_str(), count);
        want = src.substr(0, count);
        ok = want.size() < destsz;
        break;
      case 2:
        r = strcat_s(buf, destsz, src.c_str());
        want = head + src;
        ok = head.size() < destsz && want.size() < destsz;
        break;
      default:
        r = strncat_s(buf, destsz, src.c_str(), count);
        want = head + src.substr(0, count);
        ok = head.size() < destsz && want.size() < destsz;
        break;
    }
    ASSERT_EQ(r == 0, ok) << "trial " << trial;
    if (ok) {
      ASSERT_EQ(std::string(buf), want) << "trial " << trial;
    } else {
      ASSERT_EQ(buf[0], '\0');
      ASSERT_EQ(log.Lines().size(), 1u);
    }
    for (size_t i = destsz; i < sizeof buf; ++i) {
      ASSERT_EQ(buf[i], i <= head.size() ? head.c_str()[i] : '#') << "wrote past destsz";
    }
    log.Clear();
  }
}

// strtok_s over random strings gives the tokens strtok gives.
TEST(StrtokS, MatchesStrtokOnRandomInputs) {
  std::mt19937 rng(7);
  for (int trial = 0; trial < 500; ++trial) {
    std::string s(rng() % 30, ' ');
    for (char& c : s) c = "ab,; "[rng() % 5];
    std::string a = s, b = s;
    rsize_t max = a.size() + 1;
    char* ptr = nullptr;
    char* ours = strtok_s(&a[0], &max, ",; ", &ptr);
    char* ref = strtok(&b[0], ",; ");
    while (ours != nullptr || ref != nullptr) {
      ASSERT_TRUE(ours != nullptr && ref != nullptr) << s;
      ASSERT_STREQ(ours, ref);
      ASSERT_EQ(ours - a.data(), ref - b.data());
      ASSERT_EQ(max, a.size() + 1 - static_cast<size_t>(ptr - a.data()));
      ours = strtok_s(nullptr, &max, ",; ", &ptr);
      ref = strtok(nullptr, ",; ");
    }
  }
}

}  // namespace
