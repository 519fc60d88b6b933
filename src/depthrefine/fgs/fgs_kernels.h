// Line solves, coupling builder and decay of the fast global smoother. Each entry dispatches to
// the best vector target of the CPU; bivista::scalar holds the plain definition it must equal
// bit for bit.
#ifndef BIVISTA_SRC_DEPTHREFINE_FGS_FGS_KERNELS_H
#define BIVISTA_SRC_DEPTHREFINE_FGS_FGS_KERNELS_H

#include <stddef.h>
#include <stdint.h>

#include <cmath>

namespace bivista {
namespace fgs {

// One element of the Thomas solve of a line f with negated couplings w; c receives the modified
// upper coefficients. Every "fused" step is one rounding (std::fma).
inline float FirstK(float w0) { return static_cast<float>(1.0 / (1.0 - static_cast<double>(w0))); }
// 1 - (w[i] + w[i-1]), summed and subtracted in double, rounded once to float.
inline float Diag(float w, float wPrev) {
  return static_cast<float>(1.0 - (static_cast<double>(w) + static_cast<double>(wPrev)));
}
inline void First(float* f, float w0, float* c) {
  const float k = FirstK(w0);
  *c = k * w0;
  *f = *f * k;
}
inline void Forward(float fPrev, float wPrev, float cPrev, float* f, float w, float* c) {
  const float r = 1.0f / std::fma(-cPrev, wPrev, Diag(w, wPrev));
  *c = w * r;
  *f = std::fma(-fPrev, wPrev, *f) * r;
}
inline void Back(float fNext, float c, float* f) { *f = std::fma(-fNext, c, *f); }

// The whole line of n values, s apart.
inline void SolveLine(float* f, const float* w, float* c, int n, ptrdiff_t s) {
  if (n < 1) return;
  First(f, w[0], c);
  for (ptrdiff_t i = 1; i < n; ++i) {
    Forward(f[(i - 1) * s], w[(i - 1) * s], c[(i - 1) * s], f + i * s, w[i * s], c + i * s);
  }
  for (ptrdiff_t i = n - 2; i >= 0; --i) Back(f[(i + 1) * s], c[i * s], f + i * s);
}

// Largest absolute difference over `bytes` bytes of two pixels (0 when bytes < 1).
inline int MaxDiff(const uint8_t* a, const uint8_t* b, int bytes) {
  int m = 0;
  for (int k = 0; k < bytes; ++k) {
    const int d = a[k] > b[k] ? a[k] - b[k] : b[k] - a[k];
    m = d > m ? d : m;
  }
  return m;
}

inline float Decayed(float w, uint8_t mask, float factor) { return mask == 0 ? w * factor : w; }
inline float Masked(float w, uint8_t mask, float value) { return mask != 0 ? value : w; }
// Coupling of two 3-byte pixels from the table, `value` where *mask (when given) is nonzero.
inline float Weight(const float* table, const uint8_t* a, const uint8_t* b, const uint8_t* mask,
                    float value) {
  const float w = table[MaxDiff(a, b, 3)];
  return mask != nullptr ? Masked(w, *mask, value) : w;
}

}  // namespace fgs

// Lines first .. end - 1 of a plane whose lines are consecutive rows of n values.
void FgsSolveRows(float* f, const float* w, float* c, int n, int first, int end);
// The values of FgsSolveRows without its coefficients: workspace of workLines x n floats
// (workLines >= 1), its contents left undefined. With decayMask (same layout as w), the lines'
// couplings then decay: w = Decayed(w, mask, factor); maskClear: the caller knows the mask is all
// 0, so it is not read.
void FgsSolveRowsWork(float* f, float* w, int n, int first, int end, float* work, int workLines,
                      const uint8_t* decayMask, float factor, bool maskClear = false);
// Columns first .. end - 1 of three planes with rows `stride` floats apart; each column is a line
// of n values. decayMask and maskClear as above.
void FgsSolveColumns(float* f, float* w, float* c, ptrdiff_t stride, int n, int first, int end,
                     const uint8_t* decayMask, float factor, bool maskClear = false);
// out[r * outStride + x] = Weight(table, a + r * inStride + 3x, b + r * inStride + 3x, mask + r *
// outStride + x (or null), value) for r < rows, x < n: the mask, when given, has out's layout.
// Rows [y0, y1) of the columns: down is the forward sweep (from row y0 - 1, which the slice
// above has swept), up the back substitution (from row y1, which the slice below has finished).
// With decayMask, the sweep decays coupling rows y0 - 1 .. y1 - 2 (.. n - 1 in the last slice).
// Slices swept top to bottom and then back bottom to top give exactly FgsSolveColumns, which is
// the slice [0, n) down and up.
void FgsSolveColumnsSlice(float* f, float* w, float* c, ptrdiff_t stride, int n, int first,
                          int end, int y0, int y1, bool down, bool up, const uint8_t* decayMask,
                          float factor, bool maskClear = false);
void FgsWeights3(const uint8_t* a, const uint8_t* b, ptrdiff_t inStride, int rows, int n,
                 const float* table, float* out, ptrdiff_t outStride,
                 const uint8_t* mask = nullptr, float value = 0.0f);
// w[i] = Decayed(w[i], mask[i], factor) for i < n; a null mask reads as all 0.
void FgsDecay(float* w, const uint8_t* mask, ptrdiff_t n, float factor);
// w[i] = Masked(w[i], mask[i], value) for i < n.
void FgsSetMasked(float* w, const uint8_t* mask, ptrdiff_t n, float value);

// Tests only: when set, called by every participant of a filter's team at the start of each
// pass (the couplings being pass 0).
extern void (*fgsPassHook)(int participant, int pass);

namespace scalar {
void FgsSolveRows(float* f, const float* w, float* c, int n, int first, int end);
void FgsSolveRowsWork(float* f, float* w, int n, int first, int end, float* work, int workLines,
                      const uint8_t* decayMask, float factor, bool maskClear = false);
void FgsSolveColumns(float* f, float* w, float* c, ptrdiff_t stride, int n, int first, int end,
                     const uint8_t* decayMask, float factor, bool maskClear = false);
// Rows [y0, y1) of the columns: down is the forward sweep (from row y0 - 1, which the slice
// above has swept), up the back substitution (from row y1, which the slice below has finished).
// With decayMask, the sweep decays coupling rows y0 - 1 .. y1 - 2 (.. n - 1 in the last slice).
// Slices swept top to bottom and then back bottom to top give exactly FgsSolveColumns, which is
// the slice [0, n) down and up.
void FgsSolveColumnsSlice(float* f, float* w, float* c, ptrdiff_t stride, int n, int first,
                          int end, int y0, int y1, bool down, bool up, const uint8_t* decayMask,
                          float factor, bool maskClear = false);
void FgsWeights3(const uint8_t* a, const uint8_t* b, ptrdiff_t inStride, int rows, int n,
                 const float* table, float* out, ptrdiff_t outStride,
                 const uint8_t* mask = nullptr, float value = 0.0f);
void FgsDecay(float* w, const uint8_t* mask, ptrdiff_t n, float factor);
void FgsSetMasked(float* w, const uint8_t* mask, ptrdiff_t n, float value);
}  // namespace scalar

}  // namespace bivista

#endif
