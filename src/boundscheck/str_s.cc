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

// Copies at most count characters of src (count <= destsz - 1 - offset already checked) to
// dest + offset, then terminates. Refuses overlap of what is read with what is written.
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

}  // namespace

extern "C" {

errno_t strcpy_s(char* dest, rsize_t destsz, const char* src) {
  constexpr const char* kFunc = "strcpy_s";
  constexpr int kLine = bivista::bc::kLineStrcpyS;
  const errno_t e = DestChecks(kFunc, kLine, dest, destsz, src, 0);
  if (e != 0) return e;
  const size_t len = BoundedLen(src, destsz);
  if (len >= destsz) return FailEmpty(kFunc, kLine, Violation::kNoSpace, dest, destsz);
  return Append(kFunc, kLine, dest, destsz, 0, src, len, true);
}

errno_t strncpy_s(char* dest, rsize_t destsz, const char* src, rsize_t count) {
  constexpr const char* kFunc = "strncpy_s";
  constexpr int kLine = bivista::bc::kLineStrncpyS;
  const errno_t e = DestChecks(kFunc, kLine, dest, destsz, src, count);
  if (e != 0) return e;
  size_t len;
  if (count >= destsz) {
    len = BoundedLen(src, destsz);
    if (len >= destsz) return FailEmpty(kFunc, kLine, Violation::kNoSpace, dest, destsz);
  } else {
    len = BoundedLen(src, count);
  }
  return Append(kFunc, kLine, dest, destsz, 0, src, len, len < count);
}

errno_t strcat_s(char* dest, rsize_t destsz, const char* src) {
  constexpr const char* kFunc = "strcat_s";
  constexpr int kLine = bivista::bc::kLineStrcatS;
  const errno_t e = DestChecks(kFunc, kLine, dest, destsz, src, 0);
  if (e != 0) return e;
  const size_t used = BoundedLen(dest, destsz);
  const size_t room = destsz - used;
  if (room == 0) return FailEmpty(kFunc, kLine, Violation::kUnterminated, dest, destsz);
  const size_t len = BoundedLen(src, room);
  if (len >= room) return FailEmpty(kFunc, kLine, Violation::kNoSpace, dest, destsz);
  return Append(kFunc, kLine, dest, destsz, used, src, len, true);
}

errno_t strncat_s(char* dest, rsize_t destsz, const char* src, rsize_t count) {
  constexpr const char* kFunc = "strncat_s";
  constexpr int kLine = bivista::bc::kLineStrncatS;
  const errno_t e = DestChecks(kFunc, kLine, dest, destsz, src, count);
  if (e != 0) return e;
  const size_t used = BoundedLen(dest, destsz);
  const size_t room = destsz - used;
  if (room == 0) return FailEmpty(kFunc, kLine, Violation::kUnterminated, dest, destsz);
  size_t len;
  if (count >= room) {
    len = BoundedLen(src, room);
    if (len >= room) return FailEmpty(kFunc, kLine, Violation::kNoSpace, dest, destsz);
  } else {
    len = BoundedLen(src, count);
  }
  return Append(kFunc, kLine, dest, destsz, used, src, len, len < count);
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
