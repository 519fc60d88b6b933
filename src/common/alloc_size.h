// Byte counts for safeNew, whose size argument is an int.
#ifndef BIVISTA_SRC_COMMON_ALLOC_SIZE_H
#define BIVISTA_SRC_COMMON_ALLOC_SIZE_H

#include <stdint.h>

namespace bivista {

// The true size, computed in 64 bits, when it fits safeNew's int; else -1, which safeNew refuses
// with its own message (a wrapped size could be a small positive block).
inline int SafeNewBytes(int64_t bytes) {
  return bytes > INT32_MAX ? -1 : static_cast<int>(bytes);
}

// rows x rowBytes, as above.
inline int SafeNewBytes(int64_t rows, int64_t rowBytes) {
  if (rows < 0 || rowBytes < 0) return -1;
  if (rows != 0 && rowBytes > INT32_MAX / rows) return -1;
  return static_cast<int>(rows * rowBytes);
}

}  // namespace bivista

#endif
