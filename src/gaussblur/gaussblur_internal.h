// Job records shared by the blur paths and their workers, and the kernel builder.
#ifndef BIVISTA_SRC_GAUSSBLUR_GAUSSBLUR_INTERNAL_H
#define BIVISTA_SRC_GAUSSBLUR_GAUSSBLUR_INTERNAL_H

#include <stdint.h>

namespace bivista {

// Most threads one path call splits over (its per-thread records live on the stack).
constexpr int kGaussMaxThreads = 16;

// One blur call, read by every worker.
struct GaussJob {
  int width;
  int rows;  // interior rows: height - (k_length - 1)
  int srcStride;
  int dstStride;
  int thNum;
  int32_t* status;  // thNum slots, 0 or -1
  const uint16_t* kernel;
  const uint8_t* src;  // first interior row
  uint8_t* dst;        // first interior row
  // Two per thread: the first of the radius rows just above its strip and of those just
  // below it, each block with srcStride bytes per row.
  const uint8_t* const* bounds;
  uint8_t* scratch;   // 2 x radius rows of srcStride bytes per thread
  long scratchBlock;  // bytes from one thread's rows to the next thread's
  int radius;
};

struct GaussArg {
  GaussJob* job;
  int index;
};

// Tests only: when set, called by every participant of a shared blur before it takes a chunk.
extern void (*gaussShareHook)(int participant);

// Integer taps (n of them, summing to 256) for sigma; 0 or -1.
int get_gaussian_kernel(int n, uint16_t* kernel, float sigma);

}  // namespace bivista

#endif
