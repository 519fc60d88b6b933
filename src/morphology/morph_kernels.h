// Row kernels of the morphology routines. Each has a dispatching entry (bivista::X) and a plain
// definition (bivista::scalar::X) that the tests hold it to, byte for byte.
#ifndef BIVISTA_SRC_MORPHOLOGY_MORPH_KERNELS_H
#define BIVISTA_SRC_MORPHOLOGY_MORPH_KERNELS_H

#include <stdint.h>

// cnt[i] += (row[i] == v) / cnt[i] -= (row[i] == v), both wrapping at 256.
// SpreadRow: dst[x] = v when a counter in columns x-kW..x+kW (clipped) is non-zero, else
//   copy[x]; needs 2*kW < width; dst aliases neither cnt nor copy.
// BoxDecideRow: S = bR[i] + tL[i] - tR[i] - bL[i]; out[i] = erode ? S == area : (int32_t)S > 0.
// Combine3x3: out[i] = AND (useOr: OR) of the 3x3 square (cross: centre and 4 neighbours)
//   around column i of the rows up/mid/down; reads columns -1..n. With downCopy, also copies
//   columns -1..n of down there (down and downCopy must not overlap out).
// Combine5x5: the same over the 5x5 square of rows[0..4]; reads columns -2..n+1.
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
  void Combine3x3(const uint8_t* up, const uint8_t* mid, const uint8_t* down, uint8_t* out,  \
                  int n, int cross, int useOr, uint8_t* downCopy);                            \
  void Combine5x5(const uint8_t* const* rows, uint8_t* out, int n, int useOr);               \
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
