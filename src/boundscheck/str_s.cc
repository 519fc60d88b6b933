// strcpy_s, strncpy_s, strcat_s, strncat_s, strtok_s.
#include <string.h>

#include "boundscheck/boundscheck_internal.h"

using bivista::bc::BoundedLen;
using bivista::bc::Overlap;
using bivista::bc::Report;
using bivista::bc::Violation;

namespace {

// Violations of the string routines leave dest as an empty string when dest is usable.
errno_t FailEmpty(const char* func, int line, Violation v, char* dest, rsize_t destsz) {
  if (dest != nullptr && destsz != 0 && destsz <= RSIZE_MAX) dest[0] = '\0';
  return Report(func, line, v);
}

// Checks common to all four: pointers and destination size. 0 when they pass.
errno_t DestChecks(const char* func, int line, char* dest, rsize_t destsz, const char* src,
                   rsize_t count) {
  if (dest == nullptr) return Report(func, line, Violation::kNullDest);
  if (destsz > RSIZE_MAX) return Report(func, line, Violation::kAboveRsizeMax);
  if (destsz == 0) return Report(func, line, Violation::kZeroSize);
  if (src == nullptr) return FailEmpty(func, line, Violation::kNullSrc, dest, destsz);
  if (count > RSIZE_MAX) return FailEmpty(func, line, Violation::kAboveRsizeMax, dest, destsz);
  return 0;
}

// Copies n characters of src (n <= destsz - 1 - offset already checked) to dest + offset,
// then terminates. Refuses overlap of what is read with what is written.
errno_t Append(const char* func, int line, char* dest, rsize_t destsz, size_t offset,
               const char* src, size_t n, bool srcHasNul) {
  // Bytes read from src: n characters plus its terminator when it is reached.
  const size_t readLen = n + (srcHasNul ? 1 : 0);
  // Bytes of dest involved: the existing string and what is appended.
  if (Overlap(dest, offset + n + 1, src, readLen)) {
    return FailEmpty(func, line, Violation::kOverlap, dest, destsz);
  }
  memcpy(dest + offset, src, n);
  dest[offset + n] = '\0';
  return 0;
}

// The four copy and append routines: at most count characters of src go after the string
// already in dest (append) or at its start. Refused when they might not fit.
errno_t CopyBounded(const char* func, int line, char* dest, rsize_t destsz, const char* src,
                    rsize_t count, bool append) {
  const errno_t e = DestChecks(func, line, dest, destsz, src, count);
  if (e != 0) return e;
  const size_t used = append ? BoundedLen(dest, destsz) : 0;
  if (used == destsz) return FailEmpty(func, line, Violation::kUnterminated, dest, destsz);
  const size_t room = destsz - used;
  size_t len;
  if (count >= room) {
    len = BoundedLen(src, room);
    if (len >= room) return FailEmpty(func, line, Violation::kNoSpace, dest, destsz);
  } else {
    len = BoundedLen(src, count);
  }
  return Append(func, line, dest, destsz, used, src, len, len < count);
}

}  // namespace

extern "C" {

errno_t strcpy_s(char* dest, rsize_t destsz, const char* src) {
  return CopyBounded("strcpy_s", bivista::bc::kLineStrcpyS, dest, destsz, src, RSIZE_MAX, false);
}

errno_t strncpy_s(char* dest, rsize_t destsz, const char* src, rsize_t count) {
  return CopyBounded("strncpy_s", bivista::bc::kLineStrncpyS, dest, destsz, src, count, false);
}

errno_t strcat_s(char* dest, rsize_t destsz, const char* src) {
  return CopyBounded("strcat_s", bivista::bc::kLineStrcatS, dest, destsz, src, RSIZE_MAX, true);
}

errno_t strncat_s(char* dest, rsize_t destsz, const char* src, rsize_t count) {
  return CopyBounded("strncat_s", bivista::bc::kLineStrncatS, dest, destsz, src, count, true);
}

char* strtok_s(char* str, rsize_t* strmax, const char* delim, char** ptr) {
  constexpr const char* kFunc = "strtok_s";
  constexpr int kLine = bivista::bc::kLineStrtokS;
  if (strmax == nullptr) return (Report(kFunc, kLine, Violation::kNullStrmax), nullptr);
  if (delim == nullptr) return (Report(kFunc, kLine, Violation::kNullDelim), nullptr);
  if (ptr == nullptr) return (Report(kFunc, kLine, Violation::kNullPtr), nullptr);
  char* start = str != nullptr ? str : *ptr;
  if (start == nullptr) return (Report(kFunc, kLine, Violation::kNullPtr), nullptr);
  const rsize_t max = *strmax;
  if (max > RSIZE_MAX) return (Report(kFunc, kLine, Violation::kAboveRsizeMax), nullptr);

  // Everything examined, the terminating character included, must lie within max.
  rsize_t i = 0;
  while (i < max && start[i] != '\0' && strchr(delim, start[i]) != nullptr) ++i;
  if (i == max) return (Report(kFunc, kLine, Violation::kTokenPastEnd), nullptr);
  if (start[i] == '\0') {
    // No token: later calls keep finding the end.
    *strmax = max - i;
    *ptr = start + i;
    return nullptr;
  }
  const rsize_t tokenStart = i;
  while (i < max && start[i] != '\0' && strchr(delim, start[i]) == nullptr) ++i;
  if (i == max) return (Report(kFunc, kLine, Violation::kTokenPastEnd), nullptr);
  if (start[i] == '\0') {
    *strmax = max - i;
    *ptr = start + i;
  } else {
    start[i] = '\0';
    *strmax = max - i - 1;
    *ptr = start + i + 1;
  }
  return start + tokenStart;
}

}  // extern "C"
