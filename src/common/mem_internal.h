// Checked allocation of sizes computed in 64 bits, for callers whose true size may not fit the
// 32-bit size argument of safeNew.
#ifndef BIVISTA_SRC_COMMON_MEM_INTERNAL_H
#define BIVISTA_SRC_COMMON_MEM_INTERNAL_H

#include <stdint.h>

namespace bivista {

// safeNew of a true byte count: a count below 1 or above INT32_MAX is refused with safeNew's
// warning (a count past INT32_MAX reported as INT32_MIN, the "negative" it would wrap to), so
// that a product of 4 GiB or more never becomes a small positive block.
void* SafeNewSize(int64_t bytes);

}  // namespace bivista

#endif
