// The bounds-checked routines: every refusal in one table, successes against the C library.
#include <gtest/gtest.h>
#include <locale.h>
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "bivista/boundscheck.h"
#include "boundscheck/boundscheck_internal.h"
#include "support/platform_capture.h"

namespace {

namespace bc = bivista::bc;
const rsize_t kBig = RSIZE_MAX + 1;
const std::string kKeep, kEmptied(1, '\0'), kZero16(16, '\0');
const char *kSmall = "destination too small", *kOverlap = "source and destination overlap",
           *kRange = "size above RSIZE_MAX", *kUnterminated = "dest not terminated within its size";

// The lines logged since the last call, as "priority tag text".
std::vector<std::string> Logged(bvtest::LogCapture& log) {
  std::vector<std::string> out;
  for (const auto& l : log.Lines()) out.push_back(std::to_string(l.priority) + " " + l.tag + " " + l.text);
  log.Clear();
  return out;
}
std::vector<std::string> Violation(const char* func, int line, const std::string& what) {
  return {"6 ZR481_ALGO " + bvtest::Msg(func, line, "constraint violated: " + what)};
}

struct Refusal {
  const char* what;
  long code;
  std::string after;  // bytes expected at the start of dest afterwards ('?': any); the rest must not change
  std::function<long(char*)> call;
  const char* init = "xyz";  // dest's string before the call, '#' after its terminator
};

void CheckRefusals(const char* func, int line, std::vector<Refusal> rows, const std::vector<Refusal>& more = {}) {
  bvtest::LogCapture log;
  rows.insert(rows.end(), more.begin(), more.end());
  for (const Refusal& r : rows) {
    char dest[32], want[32];
    memset(dest, '#', sizeof dest);
    memcpy(dest, r.init, strlen(r.init) + 1);
    memcpy(want, dest, sizeof dest);
    memcpy(want, r.after.data(), r.after.size());
    SCOPED_TRACE(std::string(func) + ": " + r.what + " from \"" + r.init + "\"");
    EXPECT_EQ(r.call(dest), r.code);
    EXPECT_EQ(Logged(log), Violation(func, line, r.what));
    for (size_t i = 0; i < sizeof dest; ++i) EXPECT_TRUE(want[i] == '?' || dest[i] == want[i]) << i;
  }
}

using VPrint = int (*)(char*, rsize_t, const char*, va_list);
int Call(VPrint fn, char* b, rsize_t n, const char* f, ...) {
  va_list ap;
  va_start(ap, f);
  const int r = fn(b, n, f, ap);
  va_end(ap);
  return r;
}
int Vsscanf(const char* s, const char* f, ...) {
  va_list ap;
  va_start(ap, f);
  const int r = vsscanf_s(s, f, ap);
  va_end(ap);
  return r;
}

using Copy = errno_t (*)(void*, rsize_t, const void*, rsize_t);
std::vector<Refusal> CopyRules(Copy fn) {
  static const char src[32] = "0123456789abcdefghijklmnopqrst";
  return {{"dest is null", EINVAL, kKeep, [=](char*) { return fn(nullptr, 16, src, 4); }},
          {kRange, ERANGE, kKeep, [=](char* d) { return fn(d, kBig, src, 4); }},
          {"src is null", EINVAL, kZero16, [=](char* d) { return fn(d, 16, nullptr, 4); }},
          {kRange, ERANGE, kZero16, [=](char* d) { return fn(d, 16, src, kBig); }},
          {kSmall, ERANGE, kZero16, [=](char* d) { return fn(d, 16, src, 17); }},
          {kSmall, ERANGE, kKeep, [=](char* d) { return fn(d, 0, src, 1); }}};
}

// The argument checks shared by the four copy and append routines.
std::vector<Refusal> StrRules(std::function<errno_t(char*, rsize_t, const char*)> fn) {
  return {{"dest is null", EINVAL, kKeep, [=](char*) { return fn(nullptr, 8, "ab"); }},
          {kRange, ERANGE, kKeep, [=](char* d) { return fn(d, kBig, "ab"); }},
          {"destination size is zero", EINVAL, kKeep, [=](char* d) { return fn(d, 0, "ab"); }},
          {"src is null", EINVAL, kEmptied, [=](char* d) { return fn(d, 8, nullptr); }}};
}

TEST(BoundsCheck, MemoryRefusals) {
  CheckRefusals("memmove_s", bc::kLineMemmoveS, CopyRules(memmove_s));
  std::vector<Refusal> overlaps;
  for (int k : {0, 1, 7}) {  // either way round, including the exact same range
    overlaps.push_back({kOverlap, EINVAL, kZero16, [=](char* d) { return memcpy_s(d, 16, d + k, 8); }});
    overlaps.push_back({kOverlap, EINVAL, std::string("xyz\0###", k) + kZero16,
                        [=](char* d) { return memcpy_s(d + k, 16, d, 8); }});
  }
  CheckRefusals("memcpy_s", bc::kLineMemcpyS, CopyRules(memcpy_s), overlaps);
  // The valid part of dest is filled with ch, taken as a byte.
  CheckRefusals("memset_s", bc::kLineMemsetS,
                {{"dest is null", EINVAL, kKeep, [](char*) { return memset_s(nullptr, 16, 7, 4); }},
                 {kRange, ERANGE, kKeep, [](char* d) { return memset_s(d, kBig, 7, 4); }},
                 {kRange, ERANGE, std::string(16, 7), [](char* d) { return memset_s(d, 16, 7, kBig); }},
                 {kSmall, ERANGE, std::string(16, '\xFF'), [](char* d) { return memset_s(d, 16, 0x1FF, 17); }}});
}

TEST(BoundsCheck, StringRefusals) {
  static const char goodbye[7] = {'g', 'o', 'o', 'd', 'b', 'y', 'e'};  // unterminated
  CheckRefusals("strcpy_s", bc::kLineStrcpyS, StrRules(strcpy_s),
                {{kSmall, ERANGE, kEmptied, [](char* d) { return strcpy_s(d, 5, "hello"); }},
                 {kOverlap, EINVAL, kEmptied, [](char* d) { return strcpy_s(d, 20, d + 2); }, "hello world"}});
  CheckRefusals("strncpy_s", bc::kLineStrncpyS,
                StrRules([](char* d, rsize_t n, const char* s) { return strncpy_s(d, n, s, 4); }),
                {{kRange, ERANGE, kEmptied, [](char* d) { return strncpy_s(d, 8, "ab", kBig); }},
                 {kSmall, ERANGE, kEmptied, [](char* d) { return strncpy_s(d, 5, goodbye, 7); }},
                 {kOverlap, EINVAL, std::string("01\0", 3), [](char* d) { return strncpy_s(d + 2, 10, d, 3); },
                  "0123456789"}});
  CheckRefusals("strcat_s", bc::kLineStrcatS, StrRules(strcat_s),
                {{kSmall, ERANGE, kEmptied, [](char* d) { return strcat_s(d, 6, "X"); }, "hello"},
                 {kUnterminated, EINVAL, kEmptied, [](char* d) { return strcat_s(d, 6, "x"); }, "abcdef"},
                 {kOverlap, EINVAL, kEmptied, [](char* d) { return strcat_s(d, 20, d + 1); }}});
  CheckRefusals("strncat_s", bc::kLineStrncatS,
                StrRules([](char* d, rsize_t n, const char* s) { return strncat_s(d, n, s, 9); }),
                {{kSmall, ERANGE, kEmptied, [](char* d) { return strncat_s(d, 6, "X", 2); }, "hello"},
                 {kUnterminated, EINVAL, kEmptied, [](char* d) { return strncat_s(d, 6, "x", 1); }, "abcdef"},
                 {kRange, ERANGE, kEmptied, [](char* d) { return strncat_s(d, 20, "x", kBig); }}});
  // strtok_s refusals write nothing: not the string, not *ptr, not *strmax.
  std::vector<Refusal> tok;
  // fresh: a null string with a null *ptr, rather than "ab cd" with *ptr at its 'b'
  const auto add = [&](const char* what, rsize_t m, bool useMax, const char* delim, bool usePtr,
                       bool fresh = false) {
    tok.push_back({what, 0, kKeep, [=](char* d) {
                     char *ptr = fresh ? nullptr : d + 1, *start = ptr;
                     rsize_t max = m;
                     char* r = strtok_s(fresh ? nullptr : d, useMax ? &max : nullptr, delim,
                                        usePtr ? &ptr : nullptr);
                     return long{r != nullptr || ptr != start || max != m};
                   }, "ab cd"});
  };
  add("strmax is null", 6, false, " ", true);
  add("delim is null", 6, true, nullptr, true);
  add("ptr is null", 6, true, " ", false);
  add("ptr is null", 6, true, " ", true, true);
  add(kRange, kBig, true, " ", true);
  for (rsize_t m : {0, 1, 2}) add("token ends beyond strmax", m, true, " ", true);  // the blank is at 2
  CheckRefusals("strtok_s", bc::kLineStrtokS, tok);
}

// sprintf_s gives 0 and snprintf_s a negated code; dest is cleared only when it and its size are usable.
TEST(BoundsCheck, FormattedRefusals) {
  static int count;
  static const char* none = nullptr;
  CheckRefusals("sprintf_s", bc::kLineSprintfS,
                {{"dest is null", 0, kKeep, [](char*) { return sprintf_s(nullptr, 16, "%d", 1); }},
                 {"destination size is zero", 0, kKeep, [](char* d) { return sprintf_s(d, 0, "%d", 1); }},
                 {kRange, 0, kKeep, [](char* d) { return sprintf_s(d, kBig, "%d", 1); }},
                 {"format is null", 0, kEmptied, [](char* d) { return sprintf_s(d, 16, nullptr); }},
                 {"%n in format", 0, kEmptied, [](char* d) { return sprintf_s(d, 16, "ab%ncd", &count) + count; }},
                 {"null %s argument", 0, kEmptied, [](char* d) {  // the walk steps over every argument kind
                    return sprintf_s(d, 32, "%*.*f %lld %Lf %c %p %zu %Ld %s %s", 5, 2, 1.5, 1LL, 2.0L, 'c',
                                     static_cast<void*>(d), size_t{3}, 1LL << 40, "ok", none);
                  }},
                 {"unsupported conversion in format", 0, kEmptied, [](char* d) { return sprintf_s(d, 16, "%y"); }},
                 {kSmall, 0, std::string("\0????", 5), [](char* d) { return sprintf_s(d, 5, "%s", "hello"); }}});
  CheckRefusals("vsprintf_s", bc::kLineVsprintfS,
                {{kSmall, 0, std::string("\0??", 3), [](char* d) { return Call(vsprintf_s, d, 3, "%d", 123); }}});
  CheckRefusals("snprintf_s", bc::kLineSnprintfS,
                {{"dest is null", -EINVAL, kKeep, [](char*) { return snprintf_s(nullptr, 16, "x"); }},
                 {"destination size is zero", -EINVAL, kKeep, [](char* d) { return snprintf_s(d, 0, "x"); }},
                 {kRange, -ERANGE, kKeep, [](char* d) { return snprintf_s(d, kBig, "x"); }},
                 {"%n in format", -EINVAL, kEmptied, [](char* d) { return snprintf_s(d, 16, "%1$n", &count); }}});
  CheckRefusals("vsnprintf_s", bc::kLineVsnprintfS,
                {{"null %s argument", -EINVAL, kEmptied,
                  [](char* d) { return Call(vsnprintf_s, d, 16, "%s", none); }}});
  EXPECT_EQ(count, 0);
  // sscanf_s finds every refusal before storing anything.
  static int a = -1, b = -1;
  const char* null = "null receiving argument";
  CheckRefusals("sscanf_s", bc::kLineSscanfS,
                {{"src is null", EOF, kKeep, [](char*) { return sscanf_s(nullptr, "%d", &a); }},
                 {"format is null", EOF, kKeep, [](char*) { return sscanf_s("1", nullptr); }},
                 {null, EOF, kKeep, [](char*) { return sscanf_s("1 2", "%d %d", &a, (int*)nullptr); }},
                 {null, EOF, kKeep,
                  [](char*) { return sscanf_s("1 x", "%d %s", &a, static_cast<char*>(nullptr), rsize_t{8}); }},
                 {"%n in format", EOF, kKeep, [](char*) { return sscanf_s("1 2", "%d%n", &a, &b); }},
                 {"%n in format", EOF, kKeep, [](char*) { return sscanf_s("1 2", "%d %*n", &a); }}});
  std::vector<Refusal> bad;
  for (const char* f : {"%d %ls", "%d %lc", "%d %l[a]", "%d %0d", "%d %1$d", "%d %y", "%d %", "%d %[abc",
                        "%d %123456789012345678901234567890d"}) {
    bad.push_back({"unsupported conversion in format", EOF, kKeep,
                   [=](char* d) { return Vsscanf("1 2", f, &a, &b, d, rsize_t{8}); }});
  }
  CheckRefusals("vsscanf_s", bc::kLineVsscanfS, bad);
  EXPECT_EQ(a + b, -2);
  const std::string saved = setlocale(LC_CTYPE, nullptr) ? setlocale(LC_CTYPE, nullptr) : "C";
  setlocale(LC_CTYPE, "C");
  static const wchar_t lone[] = {static_cast<wchar_t>(0xD800), 0};  // a lone surrogate
  if (snprintf(nullptr, 0, "%ls", lone) < 0) {  // only where the C library refuses it too
    const auto negative = [](long r) { return r < 0 ? -1L : r; };
    CheckRefusals("snprintf_s", bc::kLineSnprintfS,
                  {{"encoding error", -1, kEmptied,
                    [=](char* d) { return negative(snprintf_s(d, 32, "%ls", lone)); }}});
    CheckRefusals("sprintf_s", bc::kLineSprintfS,
                  {{"encoding error", -1, kEmptied,
                    [=](char* d) { return negative(sprintf_s(d, 32, "%ls", lone)); }}});
  }
  setlocale(LC_CTYPE, saved.c_str());
}

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
  unsigned char buf[16] = "0123456789abcde";
  EXPECT_EQ(memcpy_s(buf, 0, buf + 8, 0) + memcpy_s(buf, 8, buf + 8, 0) + memset_s(buf, 0, 1, 0), 0);
  EXPECT_EQ(memcmp(buf, "0123456789abcde", 16), 0);
  EXPECT_EQ(memcpy_s(buf, 16, buf + 8, 8) + memcpy_s(buf + 8, 8, buf, 8), 0);
  EXPECT_TRUE(Logged(log).empty());
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
  EXPECT_TRUE(Logged(log).empty());
}

// Delimiters change between calls; a second copy tokenised in lockstep shows the state is in ptr.
TEST(StrtokS, MatchesStrtokAndKeepsStateInPtr) {
  std::mt19937 rng(7);
  const char* delims[] = {",; ", ",", "; \t", "a"};
  for (int trial = 0; trial < 500; ++trial) {
    std::string s(rng() % 30, ' ');
    for (char& c : s) c = "ab,;\t "[rng() % 6];
    std::string a = s, a2 = s, b = s;
    rsize_t max = a.size() + 1, max2 = max;
    char *ptr = nullptr, *ptr2 = nullptr;
    for (bool start = true;; start = false) {
      const char* delim = delims[rng() % 4];
      char* ours = strtok_s(start ? &a[0] : nullptr, &max, delim, &ptr);
      char* again = strtok_s(start ? &a2[0] : nullptr, &max2, delim, &ptr2);
      char* ref = strtok(start ? &b[0] : nullptr, delim);
      ASSERT_EQ(ours ? ours - a.data() : -1, ref ? ref - b.data() : -1) << s;
      ASSERT_EQ(again ? again - a2.data() : -1, ref ? ref - b.data() : -1) << s;
      if (ref == nullptr) break;
      ASSERT_EQ(max, a.size() + 1 - static_cast<size_t>(ptr - a.data()));
    }
    ASSERT_EQ(strtok_s(nullptr, &max, ",", &ptr), nullptr);  // the end repeats
  }
  char s3[] = "ab cd", *p3 = nullptr;
  rsize_t m3 = 3;  // the first token ends exactly at strmax
  EXPECT_STREQ(strtok_s(s3, &m3, " ", &p3), "ab");
  EXPECT_TRUE(m3 == 0 && p3 == s3 + 3);
}

// Random formats and values against snprintf; sprintf_s refuses what snprintf would truncate.
TEST(PrintfS, MatchSnprintf) {
  bvtest::LogCapture log;
  std::mt19937 rng(4242);
  for (int trial = 0; trial < 3000; ++trial) {
    const int i = static_cast<int>(rng()) >> (rng() % 31), w = static_cast<int>(rng() % 12);
    const double d = ldexp(static_cast<double>(static_cast<int>(rng())), -static_cast<int>(rng() % 40));
    const long long ll = (static_cast<long long>(rng()) << 32) | rng();
    const std::string s(rng() % 12, static_cast<char>('a' + rng() % 26));
    const rsize_t n = 1 + rng() % 48;
    char ours[64], ref[64];
    memset(ours, '#', sizeof ours);
    memset(ref, '#', sizeof ref);
    int r1, r2;
    const auto both = [&](auto... args) {
      r1 = snprintf_s(ours, n, args...);
      r2 = snprintf(ref, n, args...);
    };
    if (trial % 6 == 0) both("%d|%*s|%.3f", i, w, s.c_str(), d);
    if (trial % 6 == 1) both("%-8x%+lld %g %c", i, ll, d, 'A' + trial % 26);
    if (trial % 6 == 3) both("%*.*e%%%o", w, w % 6, d, static_cast<unsigned>(i));
    if (trial % 6 == 4) both("%2$s %1$d", i, s.c_str());
    if (trial % 6 == 5) {
      both("%*.*f %lld %Lf %p %zu %s %%", w, w % 6, d, ll, 1.0L * d, static_cast<void*>(ours), n, s.c_str());
    }
    if (trial % 6 == 2) {
      r1 = sprintf_s(ours, n, "%s_%05d", s.c_str(), i % 1000);
      r2 = snprintf(ref, n, "%s_%05d", s.c_str(), i % 1000);
      if (r2 >= static_cast<int>(n)) {
        ASSERT_TRUE(r1 == 0 && ours[0] == '\0' && Logged(log).size() == 1u) << "trial " << trial;
        continue;
      }
    }
    ASSERT_EQ(r1, r2) << "trial " << trial;
    ASSERT_EQ(memcmp(ours, ref, sizeof ours), 0) << "trial " << trial;
  }
  EXPECT_TRUE(Logged(log).empty());
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
  EXPECT_EQ(sscanf_s("1 ab", "%*d %*s"), 0);  // suppressed conversions take no arguments
  // A suppressed conversion that completed makes a later input failure 0, not EOF (unlike glibc).
  EXPECT_EQ(sscanf_s("12", "%*d%d", &i), 0);
  EXPECT_EQ(sscanf_s("12 34 ab", "%*d %d %*s", &i), 1);
  EXPECT_EQ(i, 34);
  EXPECT_TRUE(Logged(log).empty());
}

// Random inputs, and inputs at each failure kind, against sscanf with sizes that never matter.
// Each format takes a number, a string and two numbers; numbers land in zeroed 16-byte slots.
TEST(SscanfS, MatchesSscanf) {
  std::mt19937 rng(2024);
  const char* alphabet = "0123456789abcxyz -,:.\t+%";
  const char* formats[] = {"%d %s %x", "%hhu:%3[0-9x]%lld %i", "%lf%c%d", "%i%[a-z]%d %lf", "%o %5[^,],%d",
                           "ab%d%s", "%d%% %s%d", "%u%5s,%hd", "%f %s %p"};
  std::vector<std::string> inputs = {"", "   ", "ab", "x", "12", "12 34 ab", "5% 6", "5 6", "ab12",
                                     "54.32E-1 x 0x1234"};
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
