// What the bounds-checked routines do when they succeed, mostly against the C library.
#include <gtest/gtest.h>
#include <locale.h>
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include <random>
#include <string>
#include <vector>

#include "bivista/boundscheck.h"
#include "boundscheck/boundscheck_internal.h"
#include "boundscheck/expect_violation.h"

namespace {

// Random sizes and offsets against the C library, overlapping ranges included for memmove_s.
TEST(MemRoutines, MatchTheCLibrary) {
  bvtest::LogCapture log;
  std::mt19937 rng(12345);
  std::vector<unsigned char> ours(400), ref(400);
  for (int trial = 0; trial < 2000; ++trial) {
    for (size_t i = 0; i < ours.size(); ++i) ours[i] = ref[i] = static_cast<unsigned char>(rng());
    const size_t d = rng() % 100, s = rng() % 100, count = rng() % 100, destsz = count + rng() % 50;
    const int ch = static_cast<int>(rng() % 512) - 128;
    if (trial % 3 == 0) {
      ASSERT_EQ(memcpy_s(&ours[d], destsz, &ours[200 + s], count), 0);  // disjoint
      memcpy(&ref[d], &ref[200 + s], count);
    } else if (trial % 3 == 1) {
      ASSERT_EQ(memmove_s(&ours[d], destsz, &ours[s], count), 0);
      memmove(&ref[d], &ref[s], count);
    } else {
      ASSERT_EQ(memset_s(&ours[d], destsz, ch, count), 0);
      memset(&ref[d], ch, count);
    }
    ASSERT_EQ(ours, ref) << "trial " << trial;
  }
  // Zero sizes and adjacent ranges are allowed.
  unsigned char buf[16] = {};
  EXPECT_EQ(memcpy_s(buf, 0, buf + 8, 0) + memcpy_s(buf, 8, buf + 8, 0) + memset_s(buf, 0, 1, 0), 0);
  EXPECT_EQ(memcpy_s(buf, 16, buf + 8, 8) + memcpy_s(buf + 8, 8, buf, 8), 0);
  EXPECT_TRUE(bvtest::NothingLogged(log));
}

// Random strings and sizes against a direct formulation built on std::string.
TEST(StringRoutines, MatchDirectFormulation) {
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
    const std::string cut = src.substr(0, count);
    char buf[32];
    memset(buf, '#', sizeof buf);
    memcpy(buf, head.c_str(), head.size() + 1);
    const int kind = trial % 4;
    const std::string want = (kind >= 2 ? head : "") + (kind % 2 ? cut : src);
    const bool ok = want.size() < destsz;
    const errno_t r = kind == 0   ? strcpy_s(buf, destsz, src.c_str())
                      : kind == 1 ? strncpy_s(buf, destsz, src.c_str(), count)
                      : kind == 2 ? strcat_s(buf, destsz, src.c_str())
                                  : strncat_s(buf, destsz, src.c_str(), count);
    ASSERT_EQ(r == 0, ok) << "trial " << trial;
    ASSERT_EQ(ok ? std::string(buf) : std::string(1, buf[0]), ok ? want : std::string(1, '\0'));
    ASSERT_EQ(log.Lines().size(), ok ? 0u : 1u);
    for (size_t i = destsz; i < sizeof buf; ++i) {
      ASSERT_EQ(buf[i], i <= head.size() ? head.c_str()[i] : '#') << "wrote past destsz";
    }
    log.Clear();
  }
  // Sources may run on unterminated past count; adjacent ranges are no overlap.
  const char unterminated[7] = {'g', 'o', 'o', 'd', 'b', 'y', 'e'};
  char a[5], b[8] = "ab", c[16] = "0123456789";
  EXPECT_EQ(strncpy_s(a, 5, unterminated, 4) + strncat_s(b, 8, unterminated, 3), 0);
  EXPECT_EQ(strncpy_s(c + 3, 10, c, 3), 0);  // reads 0..2, writes 3..6
  EXPECT_STREQ(a, "good");
  EXPECT_STREQ(b, "abgoo");
  EXPECT_STREQ(c, "012012");
  EXPECT_TRUE(bvtest::NothingLogged(log));
}

TEST(StrtokS, MatchesStrtokAndKeepsStateInPtr) {
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
      ASSERT_EQ(ours - a.data(), ref - b.data());
      ASSERT_EQ(max, a.size() + 1 - static_cast<size_t>(ptr - a.data()));
      ours = strtok_s(nullptr, &max, ",; ", &ptr);
      ref = strtok(nullptr, ",; ");
    }
  }
  // Delimiters change between calls, a second string interleaves, the end repeats.
  char s1[] = "?a???b,,,#c", s2[] = "\t \t", s3[] = "ab cd";
  char *p1 = nullptr, *p2 = nullptr, *p3 = nullptr;
  rsize_t m1 = sizeof s1, m2 = sizeof s2, m3 = 3;  // s3's first token ends exactly at m3
  EXPECT_STREQ(strtok_s(s1, &m1, "?", &p1), "a");
  EXPECT_EQ(m1, 9u);
  EXPECT_STREQ(strtok_s(nullptr, &m1, ",", &p1), "??b");
  EXPECT_EQ(strtok_s(s2, &m2, " \t", &p2), nullptr);
  EXPECT_STREQ(strtok_s(nullptr, &m1, "#,", &p1), "c");
  EXPECT_EQ(m1, 1u);
  EXPECT_EQ(strtok_s(nullptr, &m1, "?", &p1), nullptr);
  EXPECT_EQ(strtok_s(nullptr, &m1, "?", &p1), nullptr);
  EXPECT_STREQ(strtok_s(s3, &m3, " ", &p3), "ab");
  EXPECT_EQ(m3, 0u);
  EXPECT_EQ(p3, s3 + 3);
}

// The argument walk must step over every argument kind to reach the right %s.
TEST(PrintfS, ArgumentWalkAndEncodingError) {
  bvtest::LogCapture log;
  char buf[128];
  const char* null = nullptr;
  EXPECT_EQ(sprintf_s(buf, sizeof buf, "%*.*f %lld %Lf %c %p %zu %Ld %s %s", 5, 2, 1.5, 1LL, 2.0L, 'c',
                      static_cast<void*>(buf), size_t{3}, 1LL << 40, "ok", null), 0);
  EXPECT_TRUE(bvtest::OneViolation(log, "sprintf_s", bivista::bc::kLineSprintfS, "null %s argument"));
  EXPECT_GT(sprintf_s(buf, sizeof buf, "%*.*f %lld %Lf %c %p %zu %s %%", 5, 2, 1.5, 1LL, 2.0L, 'c',
                      static_cast<void*>(buf), size_t{3}, "ok"), 0);
  EXPECT_GT(sprintf_s(buf, sizeof buf, "%2$s %1$d", 7, "seven"), 0);
  EXPECT_STREQ(buf, "seven 7");
  EXPECT_TRUE(bvtest::NothingLogged(log));
  const std::string saved = setlocale(LC_CTYPE, nullptr) ? setlocale(LC_CTYPE, nullptr) : "C";
  setlocale(LC_CTYPE, "C");
  const wchar_t bad[] = {static_cast<wchar_t>(0xD800), 0};
  if (snprintf(buf, sizeof buf, "%ls", bad) < 0) {  // only where the C library refuses it too
    buf[0] = 'u';
    EXPECT_LT(snprintf_s(buf, sizeof buf, "%ls", bad), 0);
    EXPECT_TRUE(bvtest::OneViolation(log, "snprintf_s", bivista::bc::kLineSnprintfS, "encoding error"));
    EXPECT_EQ(buf[0], '\0');
    buf[0] = 'u';
    EXPECT_LT(sprintf_s(buf, sizeof buf, "%ls", bad), 0);
    EXPECT_TRUE(bvtest::OneViolation(log, "sprintf_s", bivista::bc::kLineSprintfS, "encoding error"));
    EXPECT_EQ(buf[0], '\0');
  }
  setlocale(LC_CTYPE, saved.c_str());
}

// Random formats and values against snprintf; sprintf_s refuses what snprintf would truncate.
TEST(PrintfS, MatchSnprintf) {
  bvtest::LogCapture log;
  std::mt19937 rng(4242);
  for (int trial = 0; trial < 2000; ++trial) {
    const int i = static_cast<int>(rng()) >> (rng() % 31), w = static_cast<int>(rng() % 12);
    const double d = ldexp(static_cast<double>(static_cast<int>(rng())), -static_cast<int>(rng() % 40));
    const long long ll = (static_cast<long long>(rng()) << 32) | rng();
    const std::string s(rng() % 12, static_cast<char>('a' + rng() % 26));
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
          ASSERT_TRUE(r1 == 0 && ours[0] == '\0' && log.Lines().size() == 1u) << "trial " << trial;
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
  EXPECT_TRUE(bvtest::NothingLogged(log));
}

// Sizes are honoured; too small a size is a matching failure that stores only a terminator.
TEST(SscanfS, SizesAreHonoured) {
  bvtest::LogCapture log;
  const struct { const char *in, *fmt; rsize_t size; int ret; std::string want; } cases[] = {
      {"hello world", "%s", 5, 0, std::string("\0#", 2)}, {"hello world", "%s%d", 6, 1, std::string("hello\0", 6)},
      {"hello", "%3s", 4, 1, std::string("hel\0", 4)},   {"abcd", "%4c", 3, 0, std::string("\0#", 2)},
      {"abcd", "%4c", 4, 1, "abcd#"},                    {"aab]c", "%[]ab]", 4, 0, std::string("\0#", 2)},
      {"aab]c", "%[]ab]", 5, 1, std::string("aab]\0", 5)}, {"x-9z", "%[^0-9]", 8, 1, std::string("x-\0", 3)},
      {"q", "%c", 0, 0, "#"},                            {"q", "%c", 1, 1, "q#"},
      {"ab", "%2c%d", 8, 1, "ab#"}, {"ab", "%3c", 8, EOF, ""}};  // fewer than the width: unlike glibc, EOF
  for (const auto& c : cases) {
    char s[8];
    int i = 0;
    memset(s, '#', sizeof s);
    EXPECT_EQ(sscanf_s(c.in, c.fmt, s, c.size, &i), c.ret) << c.fmt << " " << c.size;
    EXPECT_EQ(std::string(s, c.want.size()), c.want) << c.fmt << " " << c.size;
  }
  int i = 0;
  float x = 0;
  void* p = nullptr;
  EXPECT_EQ(sscanf_s("25 54.32E-1 0x1234", "%d%f%p", &i, &x, &p), 3);
  EXPECT_EQ(i, 25);
  EXPECT_FLOAT_EQ(x, 5.432f);
  EXPECT_EQ(p, reinterpret_cast<void*>(0x1234));
  EXPECT_EQ(sscanf_s("1 ab", "%*d %*s"), 0);  // suppressed conversions take no arguments
  // A suppressed conversion that completed makes a later input failure 0, not EOF (unlike glibc).
  EXPECT_EQ(sscanf_s("12", "%*d%d", &i), 0);
  EXPECT_EQ(sscanf_s("12 34 ab", "%*d %d %*s", &i), 1);
  EXPECT_EQ(i, 34);
  EXPECT_TRUE(bvtest::NothingLogged(log));
}

// Random inputs, and inputs at each failure kind, against sscanf with sizes that never matter.
// Each format takes a number, a string and two numbers; numbers land in zeroed 16-byte slots.
TEST(SscanfS, MatchesSscanf) {
  std::mt19937 rng(2024);
  const char* alphabet = "0123456789abcxyz -,:.\t+%";
  const char* formats[] = {"%d %s %x", "%hhu:%3[0-9x]%lld %i", "%lf%c%d", "%i%[a-z]%d %lf", "%o %5[^,],%d",
                           "ab%d%s", "%d%% %s%d", "%u%5s,%hd"};
  std::vector<std::string> inputs = {"", "   ", "ab", "x", "12", "12 34 ab", "5% 6", "5 6", "ab12"};
  for (int trial = 0; trial < 4000; ++trial) {
    inputs.emplace_back(rng() % 24, ' ');
    for (char& c : inputs.back()) c = alphabet[rng() % strlen(alphabet)];
  }
  for (const std::string& in : inputs) {
    for (const char* f : formats) {
      alignas(16) unsigned char num[2][3][16] = {};
      char s[2][32];
      memset(s, '#', sizeof s);
      const int ours = sscanf_s(in.c_str(), f, num[0][0], s[0], rsize_t{32}, num[0][1], num[0][2]);
      const int ref = sscanf(in.c_str(), f, num[1][0], s[1], num[1][1], num[1][2]);
      ASSERT_EQ(ours, ref) << f << " on '" << in << "'";
      ASSERT_EQ(memcmp(num[0], num[1], sizeof num[0]), 0) << f << " on '" << in << "'";
      ASSERT_EQ(memcmp(s[0], s[1], sizeof s[0]), 0) << f << " on '" << in << "'";
    }
  }
}

}  // namespace
