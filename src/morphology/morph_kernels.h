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
  void ThresholdRow(uint8_t* p, int n, int N, uint8_t above, uint8_t notAbove);

namespace bivista {
BIVISTA_MORPH_KERNEL_DECLS
namespace scalar {
BIVISTA_MORPH_KERNEL_DECLS
}  // namespace scalar
}  // namespace bivista

#undef BIVISTA_MORPH_KERNEL_DECLS

#endif
