// sprintf_s, snprintf_s and their va_list forms.
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "boundscheck/boundscheck_internal.h"

using bivista::bc::Report;
using bivista::bc::Violation;

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

enum class Len { kNone, kHH, kH, kL, kLL, kJ, kZ, kT, kBigL };

const char* ParseLength(const char* p, Len* len) {
  switch (*p) {
    case 'h':
      if (p[1] == 'h') { *len = Len::kHH; return p + 2; }
      *len = Len::kH; return p + 1;
    case 'l':
      if (p[1] == 'l') { *len = Len::kLL; return p + 2; }
      *len = Len::kL; return p + 1;
    case 'q': *len = Len::kLL; return p + 1;
    case 'j': *len = Len::kJ; return p + 1;
    case 'z': *len = Len::kZ; return p + 1;
    case 't': *len = Len::kT; return p + 1;
    case 'L': *len = Len::kBigL; return p + 1;
    default: *len = Len::kNone; return p;
  }
}

void SkipInteger(va_list* ap, Len len) {
  switch (len) {
    case Len::kL: (void)va_arg(*ap, long); break;
    case Len::kLL:
    case Len::kBigL:  // glibc reads %Ld as long long
      (void)va_arg(*ap, long long);
      break;
    case Len::kJ: (void)va_arg(*ap, intmax_t); break;
    case Len::kZ: (void)va_arg(*ap, size_t); break;
    case Len::kT: (void)va_arg(*ap, ptrdiff_t); break;
    default: (void)va_arg(*ap, int); break;
  }
}

// Walks the format before anything is written: %n is refused anywhere, and a null string
// argument is refused. Arguments are followed only while they are sequential; with
// positional ("%2$s") conversions the format is still searched for %n.
bool CheckFormat(const char* format, va_list args, Violation* why) {
  va_list ap;
  va_copy(ap, args);
  bool walkArgs = true;
  bool ok = true;
  for (const char* p = format; *p != '\0' && ok; ++p) {
    if (*p != '%') continue;
    ++p;
    if (*p == '%') continue;
    const char* q = p;
    while (IsDigit(*q)) ++q;
    if (*q == '$' && q != p) {
      walkArgs = false;
      p = q + 1;
    }
    while (*p != '\0' && strchr("-+ #0'I", *p) != nullptr) ++p;
    if (*p == '*') {
      ++p;
      if (IsDigit(*p)) {
        while (IsDigit(*p)) ++p;
        if (*p == '$') ++p;
      } else if (walkArgs) {
        (void)va_arg(ap, int);
      }
    }
    while (IsDigit(*p)) ++p;
    if (*p == '.') {
      ++p;
      if (*p == '*') {
        ++p;
        if (IsDigit(*p)) {
          while (IsDigit(*p)) ++p;
          if (*p == '$') ++p;
        } else if (walkArgs) {
          (void)va_arg(ap, int);
        }
      }
      while (IsDigit(*p)) ++p;
    }
    Len len;
    p = ParseLength(p, &len);
    switch (*p) {
      case 'n':
        *why = Violation::kPercentN;
        ok = false;
        break;
      case 'd': case 'i': case 'o': case 'u': case 'x': case 'X':
        if (walkArgs) SkipInteger(&ap, len);
        break;
      case 'c':
        if (walkArgs) {
          if (len == Len::kL) (void)va_arg(ap, wint_t); else (void)va_arg(ap, int);
        }
        break;
      case 'C':
        if (walkArgs) (void)va_arg(ap, wint_t);
        break;
      case 'f': case 'F': case 'e': case 'E': case 'g': case 'G': case 'a': case 'A':
        if (walkArgs) {
          if (len == Len::kBigL) (void)va_arg(ap, long double); else (void)va_arg(ap, double);
        }
        break;
      case 'p':
        if (walkArgs) (void)va_arg(ap, void*);
        break;
      case 's': case 'S':
        if (walkArgs && va_arg(ap, const void*) == nullptr) {
          *why = Violation::kNullStringArg;
          ok = false;
        }
        break;
      case 'm':
        break;
      default:
        // Unknown or truncated conversion: its argument use cannot be known.
        *why = Violation::kBadConversion;
        ok = false;
        break;
    }
    if (*p == '\0') break;
  }
  va_end(ap);
  return ok;
}

// Common checks; true when the call may go ahead, else *err holds the violation's code.
bool Prepare(const char* func, int line, char* buffer, rsize_t bufsz, const char* format,
             va_list args, int* err) {
  Violation why = Violation::kNullDest;
  if (buffer == nullptr) {
    why = Violation::kNullDest;
  } else if (bufsz == 0) {
    why = Violation::kZeroSize;
  } else if (bufsz > RSIZE_MAX) {
    why = Violation::kAboveRsizeMax;
  } else if (format == nullptr) {
    why = Violation::kNullFormat;
  } else if (CheckFormat(format, args, &why)) {
    return true;
  }
  if (buffer != nullptr && bufsz != 0 && bufsz <= RSIZE_MAX) buffer[0] = '\0';
  *err = Report(func, line, why);
  return false;
}

int FormatChecked(const char* func, int line, bool truncate, char* buffer, rsize_t bufsz,
                  const char* format, va_list args) {
  int err = 0;
  if (!Prepare(func, line, buffer, bufsz, format, args, &err)) return truncate ? -err : 0;
  va_list ap;
  va_copy(ap, args);
  const int n = vsnprintf(buffer, bufsz, format, ap);
  va_end(ap);
  if (n < 0) {
    buffer[0] = '\0';
    Report(func, line, Violation::kEncoding);
    return n;
  }
  if (!truncate && static_cast<rsize_t>(n) >= bufsz) {
    buffer[0] = '\0';
    Report(func, line, Violation::kNoSpace);
    return 0;
  }
  return n;
}

}  // namespace

extern "C" {

int vsprintf_s(char* buffer, rsize_t bufsz, const char* format, va_list args) {
  return FormatChecked("vsprintf_s", bivista::bc::kLineVsprintfS, false, buffer, bufsz, format,
                       args);
}

int sprintf_s(char* buffer, rsize_t bufsz, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = FormatChecked("sprintf_s", bivista::bc::kLineSprintfS, false, buffer, bufsz,
                              format, args);
  va_end(args);
  return n;
}

int vsnprintf_s(char* buffer, rsize_t bufsz, const char* format, va_list args) {
  return FormatChecked("vsnprintf_s", bivista::bc::kLineVsnprintfS, true, buffer, bufsz, format,
                       args);
}

int snprintf_s(char* buffer, rsize_t bufsz, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = FormatChecked("snprintf_s", bivista::bc::kLineSnprintfS, true, buffer, bufsz,
                              format, args);
  va_end(args);
  return n;
}

}  // extern "C"
