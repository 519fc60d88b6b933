// Every refusal of the bounds-checked routines: result, one exact log line, what is left in dest.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "bivista/boundscheck.h"
#include "boundscheck/boundscheck_internal.h"
#include "boundscheck/expect_violation.h"

namespace {

namespace bc = bivista::bc;
const rsize_t kBig = RSIZE_MAX + 1;
const std::string kKeep, kEmptied(1, '\0'), kZero16(16, '\0');

struct Refusal {
  const char* func;
  int line;
  const char* what;
  long code;
  std::string after;  // bytes expected at the start of dest afterwards ('?': any); the rest must not change
  std::function<long(char*)> call;
  const char* init = "xyz";  // dest's string before the call, '#' after its terminator
};

int Vsprintf(char* b, rsize_t n, const char* f, ...) {
  va_list ap;
  va_start(ap, f);
  const int r = vsprintf_s(b, n, f, ap);
  va_end(ap);
  return r;
}
int Vsnprintf(char* b, rsize_t n, const char* f, ...) {
  va_list ap;
  va_start(ap, f);
  const int r = vsnprintf_s(b, n, f, ap);
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
using Str = std::function<errno_t(char*, rsize_t, const char*)>;

void AddCopyRules(std::vector<Refusal>& t, Copy fn, const char* f, int l) {
  static const char src[32] = "0123456789abcdefghijklmnopqrst";
  t.push_back({f, l, "dest is null", EINVAL, kKeep, [=](char*) { return fn(nullptr, 16, src, 4); }});
  t.push_back({f, l, "size above RSIZE_MAX", ERANGE, kKeep, [=](char* d) { return fn(d, kBig, src, 4); }});
  t.push_back({f, l, "src is null", EINVAL, kZero16, [=](char* d) { return fn(d, 16, nullptr, 4); }});
  t.push_back({f, l, "size above RSIZE_MAX", ERANGE, kZero16, [=](char* d) { return fn(d, 16, src, kBig); }});
  t.push_back({f, l, "destination too small", ERANGE, kZero16, [=](char* d) { return fn(d, 16, src, 17); }});
  t.push_back({f, l, "destination too small", ERANGE, kKeep, [=](char* d) { return fn(d, 0, src, 1); }});
}

// The argument checks shared by the four copy and append routines.
void AddStrRules(std::vector<Refusal>& t, Str fn, const char* f, int l) {
  t.push_back({f, l, "dest is null", EINVAL, kKeep, [=](char*) { return fn(nullptr, 8, "ab"); }});
  t.push_back({f, l, "size above RSIZE_MAX", ERANGE, kKeep, [=](char* d) { return fn(d, kBig, "ab"); }});
  t.push_back({f, l, "destination size is zero", EINVAL, kKeep, [=](char* d) { return fn(d, 0, "ab"); }});
  t.push_back({f, l, "src is null", EINVAL, kEmptied, [=](char* d) { return fn(d, 8, nullptr); }});
}

TEST(BoundsCheck, EveryRefusalReportsOnceAndLeavesDestAsDocumented) {
  std::vector<Refusal> t;
  AddCopyRules(t, memcpy_s, "memcpy_s", bc::kLineMemcpyS);
  AddCopyRules(t, memmove_s, "memmove_s", bc::kLineMemmoveS);
  const std::string init("xyz\0###", 7);
  for (int k : {0, 1, 7}) {  // overlap either way round, including the exact same range
    t.push_back({"memcpy_s", bc::kLineMemcpyS, "source and destination overlap", EINVAL, kZero16,
                 [=](char* d) { return memcpy_s(d, 16, d + k, 8); }});
    t.push_back({"memcpy_s", bc::kLineMemcpyS, "source and destination overlap", EINVAL,
                 init.substr(0, k) + kZero16, [=](char* d) { return memcpy_s(d + k, 16, d, 8); }});
  }
  const char* ms = "memset_s";
  const int msl = bc::kLineMemsetS;
  t.push_back({ms, msl, "dest is null", EINVAL, kKeep, [](char*) { return memset_s(nullptr, 16, 7, 4); }});
  t.push_back({ms, msl, "size above RSIZE_MAX", ERANGE, kKeep, [](char* d) { return memset_s(d, kBig, 7, 4); }});
  // The valid part of dest is filled with ch, taken as a byte.
  t.push_back({ms, msl, "size above RSIZE_MAX", ERANGE, std::string(16, 7),
               [](char* d) { return memset_s(d, 16, 7, kBig); }});
  t.push_back({ms, msl, "destination too small", ERANGE, std::string(16, '\xFF'),
               [](char* d) { return memset_s(d, 16, 0x1FF, 17); }});

  AddStrRules(t, strcpy_s, "strcpy_s", bc::kLineStrcpyS);
  AddStrRules(t, [](char* d, rsize_t n, const char* s) { return strncpy_s(d, n, s, 4); }, "strncpy_s",
              bc::kLineStrncpyS);
  AddStrRules(t, strcat_s, "strcat_s", bc::kLineStrcatS);
  AddStrRules(t, [](char* d, rsize_t n, const char* s) { return strncat_s(d, n, s, 9); }, "strncat_s",
              bc::kLineStrncatS);
  const char *cp = "strcpy_s", *ncp = "strncpy_s", *ca = "strcat_s", *nca = "strncat_s";
  const int cpl = bc::kLineStrcpyS, ncpl = bc::kLineStrncpyS, cal = bc::kLineStrcatS, ncal = bc::kLineStrncatS;
  const char* small = "destination too small";
  const char* overlap = "source and destination overlap";
  const char* unterminated = "dest not terminated within its size";
  static const char goodbye[7] = {'g', 'o', 'o', 'd', 'b', 'y', 'e'};  // unterminated
  t.push_back({cp, cpl, small, ERANGE, kEmptied, [](char* d) { return strcpy_s(d, 5, "hello"); }});
  t.push_back({cp, cpl, overlap, EINVAL, kEmptied, [](char* d) { return strcpy_s(d, 20, d + 2); }, "hello world"});
  t.push_back({ncp, ncpl, "size above RSIZE_MAX", ERANGE, kEmptied, [](char* d) { return strncpy_s(d, 8, "ab", kBig); }});
  t.push_back({ncp, ncpl, small, ERANGE, kEmptied, [](char* d) { return strncpy_s(d, 5, goodbye, 7); }});
  t.push_back({ncp, ncpl, overlap, EINVAL, std::string("01\0", 3), [](char* d) { return strncpy_s(d + 2, 10, d, 3); },
               "0123456789"});
  t.push_back({ca, cal, small, ERANGE, kEmptied, [](char* d) { return strcat_s(d, 6, "X"); }, "hello"});
  t.push_back({ca, cal, small, ERANGE, kEmptied, [](char* d) { return strcat_s(d, 7, "defghijklmn"); }, "abc"});
  t.push_back({ca, cal, unterminated, EINVAL, kEmptied, [](char* d) { return strcat_s(d, 6, "x"); }, "abcdef"});
  t.push_back({ca, cal, overlap, EINVAL, kEmptied, [](char* d) { return strcat_s(d, 20, d + 1); }, "abc"});
  t.push_back({nca, ncal, small, ERANGE, kEmptied, [](char* d) { return strncat_s(d, 6, "X", 2); }, "hello"});
  t.push_back({nca, ncal, unterminated, EINVAL, kEmptied, [](char* d) { return strncat_s(d, 6, "x", 1); }, "abcdef"});
  t.push_back({nca, ncal, "size above RSIZE_MAX", ERANGE, kEmptied,
               [](char* d) { return strncat_s(d, 20, "x", kBig); }});

  // strtok_s refusals write nothing: not the string, not *ptr, not *strmax.
  static char* ptr;
  static rsize_t max;
  const auto tok = [&](const char* what, rsize_t m, bool useMax, const char* delim, bool usePtr) {
    t.push_back({"strtok_s", bc::kLineStrtokS, what, 0, kKeep, [=](char* d) {
                   ptr = d + 1;
                   max = m;
                   char* r = strtok_s(d, useMax ? &max : nullptr, delim, usePtr ? &ptr : nullptr);
                   return long{r != nullptr || ptr != d + 1 || max != m};
                 }, "ab cd"});
  };
  tok("strmax is null", 6, false, " ", true);
  tok("delim is null", 6, true, nullptr, true);
  tok("ptr is null", 6, true, " ", false);
  tok("size above RSIZE_MAX", kBig, true, " ", true);
  for (rsize_t m : {0, 1, 2}) tok("token ends beyond strmax", m, true, " ", true);  // the blank is at 2
  t.push_back({"strtok_s", bc::kLineStrtokS, "ptr is null", 0, kKeep, [](char*) {
                 char* none = nullptr;
                 rsize_t m = 6;
                 return long{strtok_s(nullptr, &m, " ", &none) != nullptr};
               }});

  // sprintf_s gives 0 and snprintf_s a negated code; dest is cleared only when it and its size are usable.
  const char *sp = "sprintf_s", *snp = "snprintf_s";
  const int spl = bc::kLineSprintfS, snpl = bc::kLineSnprintfS;
  static int count;
  const char* none = nullptr;
  t.push_back({sp, spl, "dest is null", 0, kKeep, [](char*) { return sprintf_s(nullptr, 16, "%d", 1); }});
  t.push_back({sp, spl, "destination size is zero", 0, kKeep, [](char* d) { return sprintf_s(d, 0, "%d", 1); }});
  t.push_back({sp, spl, "size above RSIZE_MAX", 0, kKeep, [](char* d) { return sprintf_s(d, kBig, "%d", 1); }});
  t.push_back({sp, spl, "format is null", 0, kEmptied, [](char* d) { return sprintf_s(d, 16, nullptr); }});
  t.push_back({sp, spl, "%n in format", 0, kEmptied, [](char* d) {
                 count = -7;
                 return sprintf_s(d, 16, "ab%ncd", &count) + (count != -7);
               }});
  t.push_back({sp, spl, "null %s argument", 0, kEmptied, [=](char* d) { return sprintf_s(d, 16, "%d %s", 5, none); }});
  t.push_back({sp, spl, "unsupported conversion in format", 0, kEmptied, [](char* d) { return sprintf_s(d, 16, "%y"); }});
  t.push_back({sp, spl, small, 0, std::string("\0????", 5), [](char* d) { return sprintf_s(d, 5, "%s", "hello"); }});
  t.push_back({"vsprintf_s", bc::kLineVsprintfS, small, 0, std::string("\0??", 3),
               [](char* d) { return Vsprintf(d, 3, "%d", 123); }});
  t.push_back({snp, snpl, "dest is null", -EINVAL, kKeep, [](char*) { return snprintf_s(nullptr, 16, "x"); }});
  t.push_back({snp, snpl, "destination size is zero", -EINVAL, kKeep, [](char* d) { return snprintf_s(d, 0, "x"); }});
  t.push_back({snp, snpl, "size above RSIZE_MAX", -ERANGE, kKeep, [](char* d) { return snprintf_s(d, kBig, "x"); }});
  t.push_back({snp, snpl, "%n in format", -EINVAL, kEmptied, [](char* d) {  // positional form too
                 return snprintf_s(d, 16, "%1$n", &count);
               }});
  t.push_back({"vsnprintf_s", bc::kLineVsnprintfS, "null %s argument", -EINVAL, kEmptied,
               [=](char* d) { return Vsnprintf(d, 16, "%s", none); }});

  // sscanf_s finds every refusal before storing anything.
  static int a, b;
  const char *sc = "sscanf_s", *null = "null receiving argument", *pct = "%n in format";
  const int scl = bc::kLineSscanfS;
  t.push_back({sc, scl, "src is null", EOF, kKeep, [](char*) { return sscanf_s(nullptr, "%d", &a); }});
  t.push_back({sc, scl, "format is null", EOF, kKeep, [](char*) { return sscanf_s("1", nullptr); }});
  t.push_back({sc, scl, null, EOF, kKeep, [](char*) { return sscanf_s("1 2", "%d %d", &a, (int*)nullptr); }});
  t.push_back({sc, scl, null, EOF, kKeep, [](char*) { return sscanf_s("1 x", "%d %s", &a, (char*)nullptr, rsize_t{8}); }});
  t.push_back({sc, scl, pct, EOF, kKeep, [](char*) { return sscanf_s("1 2", "%d%n", &a, &b); }});
  t.push_back({sc, scl, pct, EOF, kKeep, [](char*) { return sscanf_s("1 2", "%d %*n", &a); }});
  for (const char* f : {"%d %ls", "%d %lc", "%d %l[a]", "%d %0d", "%d %1$d", "%d %y", "%d %", "%d %[abc",
                        "%d %123456789012345678901234567890d"}) {
    t.push_back({"vsscanf_s", bc::kLineVsscanfS, "unsupported conversion in format", EOF, kKeep,
                 [=](char* d) { return Vsscanf("1 2", f, &a, &b, d, rsize_t{8}); }});
  }

  bvtest::LogCapture log;
  a = b = -1;
  for (const Refusal& r : t) {
    char dest[32], want[32];
    memset(dest, '#', sizeof dest);
    memcpy(dest, r.init, strlen(r.init) + 1);
    memcpy(want, dest, sizeof dest);
    memcpy(want, r.after.data(), r.after.size());
    SCOPED_TRACE(std::string(r.func) + ": " + r.what + " from \"" + r.init + "\"");
    EXPECT_EQ(r.call(dest), r.code);
    EXPECT_TRUE(bvtest::OneViolation(log, r.func, r.line, r.what));
    for (size_t i = 0; i < sizeof dest; ++i) EXPECT_TRUE(want[i] == '?' || dest[i] == want[i]) << i;
  }
  EXPECT_EQ(a, -1);
  EXPECT_EQ(b, -1);
}

}  // namespace
