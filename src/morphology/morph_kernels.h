// Row kernels of the morphology routines. Each has a dispatching entry (bivista::X) and a plain
// definition (bivista::scalar::X) that the tests hold it to, byte for byte.
#ifndef BIVISTA_SRC_MORPHOLOGY_MORPH_KERNELS_H
#define BIVISTA_SRC_MORPHOLOGY_MORPH_KERNELS_H

#include <stdint.h>

// cnt[i] += (row[i] == v) / cnt[i] -= (row[i] == v), both wrapping at 256.
// SpreadRow: dst[x] = v when a counter in columns x-kW..x+kW (clipped) is non-zero, else
//   copy[x]; needs 2*kW < width; dst aliases neither cnt nor copy.
// BoxDecideRow: S = bR[i] + tL[i] - tR[i] - bL[i]; out[i] = erode ? S == area : (int32_t)S > 0.
// FixedMorph: `iterations` passes (the 5x5 square: one) of the fixed kernels over the image:
//   each copies the image into the scratch (same stride) and writes every pixel at least r
//   from the border with the AND (useOr: OR) of its element in the copy. shape 0: 3x3 cross,
//   1: 3x3 square (r = 1), 2: 5x5 square (r = 2).
// DistSeedRow: row[i] = row[i] == target ? 0 : min(above[i] + 1 saturated, cap).
// DistBelowRow: row[i] = min(row[i], below[i] + 1 saturated).
// ThresholdRow: p[i] = (int)p[i] > N ? above : notAbove.
// The routines call the whole-pass entries below (one dispatch per pass, the row loops inside
// the target); the row entries above are what the tests hold to the scalar rows.
// CounterPass: the counter engine of Erosion_Dilation_Function_opt over the image from the copy
//   (counters zeroed, width + 8 bytes).
// BoxPass: the integral engine of ImErode/ImDilate with a ring of `ring` integral rows.
// DistForward/DistBackward/ThresholdRows: the city-block passes (morph_kernels.cc).
#define BIVISTA_MORPH_KERNEL_DECLS                                                            \
  void CounterAdd(const uint8_t* row, uint8_t* cnt, int n, uint8_t v);                       \
  void CounterSub(const uint8_t* row, uint8_t* cnt, int n, uint8_t v);                       \
  void SpreadRow(const uint8_t* cnt, const uint8_t* copy, uint8_t* dst, int width, int kW,   \
                 uint8_t v);                                                                  \
  void BoxDecideRow(const uint32_t* bR, const uint32_t* tL, const uint32_t* tR,              \
                    const uint32_t* bL, uint8_t* out, int n, uint32_t area, int erode);       \
  void FixedMorph(uint8_t* image, uint8_t* scratch, int width, int height, int stride,      \
                  int iterations, int shape, int useOr);                                     \
  void DistSeedRow(const uint8_t* above, uint8_t* row, int n, uint8_t target, uint8_t cap);  \
  void DistBelowRow(const uint8_t* below, uint8_t* row, int n);                              \
  void ThresholdRow(uint8_t* p, int n, int N, uint8_t above, uint8_t notAbove);              \
  void CounterPass(const uint8_t* copy, uint8_t* counters, uint8_t* image, int width,        \
                   int height, int kW, int kH, uint8_t v);                                   \
  void BoxPass(const uint8_t* src, uint8_t* dst, uint32_t* integral, int ring, int width,    \
               int height, int64_t r, int erode);                                            \
  void DistForward(uint8_t* image, int width, int y0, int y1, int from, int n,               \
                   uint8_t target, uint8_t cap, int col0, uint8_t far);                      \
  void DistBackward(uint8_t* image, int width, int y1, int y0, int from, int n,              \
                    int chainFrom);                                                          \
  void ThresholdRows(uint8_t* image, int stride, int y0, int y1, int from, int n, int N,     \
                     uint8_t above, uint8_t notAbove);

namespace bivista {
BIVISTA_MORPH_KERNEL_DECLS
namespace scalar {
BIVISTA_MORPH_KERNEL_DECLS
}  // namespace scalar
}  // namespace bivista

#undef BIVISTA_MORPH_KERNEL_DECLS

namespace bivista {
namespace morph_detail {
// One integral row: above + running sum of the source row (above is null for row 0). In 32-bit
// modular arithmetic this equals left + above - above-left + pixel.
inline void IntegralRow(const uint8_t* src, const uint32_t* above, uint32_t* dst, int width) {
  uint32_t run = 0;
  if (above == nullptr) {
    for (int x = 0; x < width; ++x) dst[x] = run += src[x];
    return;
  }
  for (int x = 0; x < width; ++x) {
    run += src[x];
    dst[x] = above[x] + run;
  }
}
}  // namespace morph_detail
}  // namespace bivista

#endif
