// Shared pieces of the bounds-checked routines: the violation report and range helpers.
#ifndef BIVISTA_SRC_BOUNDSCHECK_BOUNDSCHECK_INTERNAL_H
#define BIVISTA_SRC_BOUNDSCHECK_BOUNDSCHECK_INTERNAL_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "bivista/boundscheck.h"

namespace bivista {
namespace bc {

// Each routine reports from one place; the line is its own constant.
constexpr int kLineMemcpyS = 38;
constexpr int kLineMemmoveS = 63;
constexpr int kLineMemsetS = 84;
constexpr int kLineStrcpyS = 41;
constexpr int kLineStrncpyS = 66;
constexpr int kLineStrcatS = 97;
constexpr int kLineStrncatS = 128;
constexpr int kLineStrtokS = 163;
constexpr int kLineSprintfS = 212;
constexpr int kLineVsprintfS = 224;
constexpr int kLineSnprintfS = 236;
constexpr int kLineVsnprintfS = 248;
constexpr int kLineSscanfS = 318;
constexpr int kLineVsscanfS = 331;

// The broken constraint; the report text is "constraint violated: <text>".
enum class Violation {
  kNullDest,
  kNullSrc,
  kNullFormat,
  kNullDelim,
  kNullStrmax,
  kNullPtr,
  kNullStringArg,
  kNullTarget,
  kAboveRsizeMax,
  kZeroSize,
  kNoSpace,
  kUnterminated,
  kOverlap,
  kPercentN,
  kBadConversion,
  kTokenPastEnd,
  kEncoding,
};

const char* ViolationText(Violation v);
// EINVAL or ERANGE.
errno_t ViolationCode(Violation v);
// Logs the one line for a violation in `func` and returns ViolationCode(v).
errno_t Report(const char* func, int line, Violation v);

inline bool Overlap(const void* a, size_t an, const void* b, size_t bn) {
  if (an == 0 || bn == 0) return false;
  const uintptr_t pa = reinterpret_cast<uintptr_t>(a);
  const uintptr_t pb = reinterpret_cast<uintptr_t>(b);
  return pa < pb + bn && pb < pa + an;
}

// strnlen that never reads past max characters.
inline size_t BoundedLen(const char* s, size_t max) {
  const void* nul = memchr(s, 0, max);
  return nul ? static_cast<size_t>(static_cast<const char*>(nul) - s) : max;
}

}  // namespace bc
}  // namespace bivista

#endif
