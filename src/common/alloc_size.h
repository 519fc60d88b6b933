// Byte counts for safeNew, whose size argument is an int.
#ifndef BIVISTA_SRC_COMMON_ALLOC_SIZE_H
#define BIVISTA_SRC_COMMON_ALLOC_SIZE_H

#include <stdint.h>

namespace bivista {

// The true size, computed in 64 bits, when it fits safeNew's int; else INT32_MIN, which safeNew
// refuses with its own message (a wrapped size could be a small positive block). INT32_MIN is
// also what SafeNewSize reports, so every refusal of an oversized block reads the same.
inline int SafeNewBytes(int64_t bytes) {
  return bytes > INT32_MAX || bytes < INT32_MIN ? INT32_MIN : static_cast<int>(bytes);
}

// rows x rowBytes, as above.
inline int SafeNewBytes(int64_t rows, int64_t rowBytes) {
  if (rows < 0 || rowBytes < 0) return INT32_MIN;
  if (rows != 0 && rowBytes > INT32_MAX / rows) return INT32_MIN;
  return static_cast<int>(rows * rowBytes);
}

}  // namespace bivista

#endif
