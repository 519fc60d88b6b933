// sscanf_s and vsscanf_s: a conversion walker of our own so that every %s, %c and %[ honours
// the element count that follows its destination. Single numeric conversions go to sscanf.
#include <ctype.h>
#include <stdio.h>
#include <string.h>

#include "boundscheck/boundscheck_internal.h"

using bivista::bc::Report;
using bivista::bc::Violation;

namespace {

constexpr size_t kMaxNumericFormat = 24;  // longest numeric conversion handed to sscanf

struct Conversion {
  bool suppress = false;
  size_t width = 0;  // 0: no width given
  char conv = 0;
  const char* text = nullptr;  // conversion after '%', up to and including conv
  size_t textLen = 0;
  const char* setBegin = nullptr;  // %[ members (between '[' or '^' and the closing ']')
  const char* setEnd = nullptr;
  bool setNegate = false;
  const char* next = nullptr;  // format position after the conversion
};

bool IsSpace(char c) { return isspace(static_cast<unsigned char>(c)) != 0; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool TakesSize(char conv) { return conv == 's' || conv == 'c' || conv == '['; }

// Parses the conversion starting just after '%'. False for anything we do not convert:
// %n, positional or zero widths, wide-character conversions, unknown conversion letters.
bool ParseConversion(const char* p, Conversion* cv, Violation* why) {
  *why = Violation::kBadConversion;
  cv->text = p;
  if (*p == '%') {
    cv->conv = '%';
    cv->next = p + 1;
    return true;
  }
  if (*p == '*') {
    cv->suppress = true;
    ++p;
  }
  if (IsDigit(*p)) {
    if (*p == '0') return false;
    size_t w = 0;
    while (IsDigit(*p)) {
      if (w > RSIZE_MAX / 10) return false;
      w = w * 10 + static_cast<size_t>(*p - '0');
      ++p;
    }
    if (*p == '$') return false;
    cv->width = w;
  }
  bool wide = false;
  if (p[0] == 'h' && p[1] == 'h') {
    p += 2;
  } else if (p[0] == 'l' && p[1] == 'l') {
    p += 2;
  } else if (*p == 'l') {
    wide = true;
    ++p;
  } else if (*p != '\0' && strchr("hqjztL", *p) != nullptr) {
    ++p;
  }
  const char c = *p;
  if (c == 'n') {
    *why = Violation::kPercentN;
    return false;
  }
  if (c == '\0' || strchr("diouxXaAeEfFgGpsc[", c) == nullptr) return false;
  if (wide && TakesSize(c)) return false;
  cv->conv = c;
  ++p;
  if (c == '[') {
    if (*p == '^') {
      cv->setNegate = true;
      ++p;
    }
    cv->setBegin = p;
    if (*p == ']') ++p;  // a leading ']' is a member
    while (*p != '\0' && *p != ']') ++p;
    if (*p != ']') return false;
    cv->setEnd = p;
    ++p;
  }
  cv->textLen = static_cast<size_t>(p - cv->text);
  if (c != '[' && cv->textLen + 4 > kMaxNumericFormat) return false;
  cv->next = p;
  return true;
}

bool InSet(const Conversion& cv, unsigned char ch) {
  bool found = false;
  for (const char* q = cv.setBegin; q < cv.setEnd && !found; ++q) {
    // "a-z" is a range unless '-' is first or last.
    if (q[1] == '-' && q + 2 < cv.setEnd && q != cv.setEnd - 1) {
      found = ch >= static_cast<unsigned char>(q[0]) && ch <= static_cast<unsigned char>(q[2]);
      q += 2;
    } else {
      found = ch == static_cast<unsigned char>(*q);
    }
  }
  return found != cv.setNegate;
}

// Checks the whole format and every receiving argument before anything is stored.
bool CheckArguments(const char* format, va_list args, Violation* why) {
  va_list ap;
  va_copy(ap, args);
  bool ok = true;
  for (const char* p = format; *p != '\0' && ok;) {
    if (*p != '%') {
      ++p;
      continue;
    }
    Conversion cv;
    if (!ParseConversion(p + 1, &cv, why)) {
      ok = false;
      break;
    }
    p = cv.next;
    if (cv.conv == '%' || cv.suppress) continue;
    if (va_arg(ap, void*) == nullptr) {
      *why = Violation::kNullTarget;
      ok = false;
    } else if (TakesSize(cv.conv)) {
      (void)va_arg(ap, rsize_t);
    }
  }
  va_end(ap);
  return ok;
}

// Characters of a %s, %c or %[ field starting at in; 0 means the field does not match.
size_t FieldLength(const Conversion& cv, const char* in) {
  const size_t limit = cv.width != 0 ? cv.width : (cv.conv == 'c' ? 1 : RSIZE_MAX);
  size_t n = 0;
  if (cv.conv == 'c') {
    n = bivista::bc::BoundedLen(in, limit);
    return n == limit ? n : 0;  // fewer characters than the width: an input failure
  }
  while (n < limit && in[n] != '\0' &&
         (cv.conv == 's' ? !IsSpace(in[n]) : InSet(cv, static_cast<unsigned char>(in[n])))) {
    ++n;
  }
  return n;
}

int Scan(const char* input, const char* format, va_list args) {
  va_list ap;
  va_copy(ap, args);
  const char* in = input;
  int assigned = 0;
  bool converted = false;
  bool inputFailure = false;
  const char* p = format;
  while (*p != '\0') {
    if (IsSpace(*p)) {
      while (IsSpace(*p)) ++p;
      while (IsSpace(*in)) ++in;
      continue;
    }
    if (*p != '%') {
      if (*in == '\0') inputFailure = true;
      if (*in != *p) break;
      ++in;
      ++p;
      continue;
    }
    Conversion cv;
    Violation unused;
    ParseConversion(p + 1, &cv, &unused);  // already validated
    p = cv.next;
    if (cv.conv != 'c' && cv.conv != '[') {
      while (IsSpace(*in)) ++in;
    }
    if (*in == '\0') {
      inputFailure = true;
      break;
    }
    if (cv.conv == '%') {
      if (*in != '%') break;
      ++in;
      continue;
    }
    void* dest = cv.suppress ? nullptr : va_arg(ap, void*);
    if (!TakesSize(cv.conv)) {
      char sub[kMaxNumericFormat];
      sub[0] = '%';
      memcpy(sub + 1, cv.text, cv.textLen);
      memcpy(sub + 1 + cv.textLen, "%n", 3);
      int used = -1;
      if (cv.suppress) {
        sscanf(in, sub, &used);
      } else {
        sscanf(in, sub, dest, &used);
      }
      if (used < 0) break;
      in += used;
    } else {
      const rsize_t size = cv.suppress ? 0 : va_arg(ap, rsize_t);
      const size_t n = FieldLength(cv, in);
      if (n == 0) {
        inputFailure = cv.conv == 'c';
        break;
      }
      if (!cv.suppress) {
        char* out = static_cast<char*>(dest);
        const size_t need = cv.conv == 'c' ? n : n + 1;
        if (size < need) {
          // Too small a receiving array is a matching failure that leaves it empty.
          if (size != 0) out[0] = '\0';
          break;
        }
        memcpy(out, in, n);
        if (cv.conv != 'c') out[n] = '\0';
      }
      in += n;
    }
    converted = true;
    if (!cv.suppress) ++assigned;
  }
  va_end(ap);
  return inputFailure && !converted ? EOF : assigned;
}

int ScanChecked(const char* func, int line, const char* buffer, const char* format,
                va_list args) {
  Violation why = Violation::kNullSrc;
  if (buffer == nullptr) {
    why = Violation::kNullSrc;
  } else if (format == nullptr) {
    why = Violation::kNullFormat;
  } else if (CheckArguments(format, args, &why)) {
    return Scan(buffer, format, args);
  }
  Report(func, line, why);
  return EOF;
}

}  // namespace

extern "C" {

int vsscanf_s(const char* buffer, const char* format, va_list args) {
  return ScanChecked("vsscanf_s", bivista::bc::kLineVsscanfS, buffer, format, args);
}

int sscanf_s(const char* buffer, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = ScanChecked("sscanf_s", bivista::bc::kLineSscanfS, buffer, format, args);
  va_end(args);
  return n;
}

}  // extern "C"
