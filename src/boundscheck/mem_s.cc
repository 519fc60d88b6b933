// memcpy_s, memmove_s, memset_s.
#include <string.h>

#include "boundscheck/boundscheck_internal.h"

using bivista::bc::Report;
using bivista::bc::Violation;

namespace {

// On a violation the whole valid destination is cleared (to ch for memset_s).
errno_t FailFill(const char* func, int line, Violation v, void* dest, rsize_t destsz, int ch) {
  if (dest != nullptr && destsz <= RSIZE_MAX) memset(dest, ch, destsz);
  return Report(func, line, v);
}

// Shared checks of memcpy_s and memmove_s; overlap matters only for the former.
errno_t CopyChecks(const char* func, int line, void* dest, rsize_t destsz, const void* src,
                   rsize_t count, bool refuseOverlap) {
  if (dest == nullptr) return Report(func, line, Violation::kNullDest);
  if (destsz > RSIZE_MAX) return Report(func, line, Violation::kAboveRsizeMax);
  if (src == nullptr) return FailFill(func, line, Violation::kNullSrc, dest, destsz, 0);
  if (count > RSIZE_MAX) return FailFill(func, line, Violation::kAboveRsizeMax, dest, destsz, 0);
  if (count > destsz) return FailFill(func, line, Violation::kNoSpace, dest, destsz, 0);
  if (refuseOverlap && bivista::bc::Overlap(dest, count, src, count)) {
    return FailFill(func, line, Violation::kOverlap, dest, destsz, 0);
  }
  return 0;
}

}  // namespace

extern "C" {

errno_t memcpy_s(void* dest, rsize_t destsz, const void* src, rsize_t count) {
  const errno_t e = CopyChecks("memcpy_s", bivista::bc::kLineMemcpyS, dest, destsz, src, count, true);
  if (e != 0) return e;
  if (count != 0) memcpy(dest, src, count);
  return 0;
}

errno_t memmove_s(void* dest, rsize_t destsz, const void* src, rsize_t count) {
  const errno_t e =
      CopyChecks("memmove_s", bivista::bc::kLineMemmoveS, dest, destsz, src, count, false);
  if (e != 0) return e;
  if (count != 0) memmove(dest, src, count);
  return 0;
}

errno_t memset_s(void* dest, rsize_t destsz, int ch, rsize_t count) {
  constexpr const char* kFunc = "memset_s";
  constexpr int kLine = bivista::bc::kLineMemsetS;
  if (dest == nullptr) return Report(kFunc, kLine, Violation::kNullDest);
  if (destsz > RSIZE_MAX) return Report(kFunc, kLine, Violation::kAboveRsizeMax);
  if (count > RSIZE_MAX) return FailFill(kFunc, kLine, Violation::kAboveRsizeMax, dest, destsz, ch);
  if (count > destsz) return FailFill(kFunc, kLine, Violation::kNoSpace, dest, destsz, ch);
  memset(dest, ch, count);
  // The clear must survive even when the buffer is never read again (wiping secrets).
  __asm__ __volatile__("" : : "r"(dest) : "memory");
  return 0;
}

}  // extern "C"
