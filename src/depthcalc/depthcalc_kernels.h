// Per-pixel passes of the depth and shift calculation. Each entry dispatches to the best vector
// target of the CPU; bivista::scalar holds the plain definition it must equal byte for byte.
#ifndef BIVISTA_SRC_DEPTHCALC_DEPTHCALC_KERNELS_H
#define BIVISTA_SRC_DEPTHCALC_DEPTHCALC_KERNELS_H

#include <stddef.h>
#include <stdint.h>

namespace bivista {

// raw + offset of a sample, wrapping modulo 2^32 as the vector lanes do: an offset near the int
// limits carries the sum round to the other sign instead of overflowing.
inline int32_t WrapAdd(int32_t raw, int32_t offset) {
  return static_cast<int32_t>(static_cast<uint32_t>(raw) + static_cast<uint32_t>(offset));
}

// Where a position lands on an axis of n samples once rounded (add a half in double precision,
// truncate toward zero, not-a-number as 0): the index, or -1 outside. Branch-free: clamped to
// [-1, n] before the conversion, and -1 and n both read as outside.
inline int LandIndex(double v, int n) {
  v = v + 0.5;
  v = v != v ? 0.0 : v;
  v = v < -1.0 ? -1.0 : v;
  v = v > n ? static_cast<double>(n) : v;
  const int i = static_cast<int>(v);
  return i < n ? i : -1;
}

// Landing index r2 * w + c2 of the sample at row r, column c (index i) of a w x h area, -1 when
// it falls outside; see LandingTargets.
inline int32_t LandingTarget(const float* rowAdd, const float* colAdd, int r, int c, size_t i,
                             int w, int h) {
  const int r2 = rowAdd != nullptr ? LandIndex(static_cast<double>(r) + rowAdd[i], h) : r;
  const int c2 = colAdd != nullptr ? LandIndex(static_cast<double>(c) + colAdd[i], w) : c;
  return (r2 | c2) < 0 ? -1 : r2 * w + c2;
}

// Landing index r2 * w + c2 of every sample of rows r0 .. r0 + rows - 1 of a w x h area, -1 when
// it falls outside, written from target[0]. r2 = LandIndex(r + rowAdd[r * w + c], h), or r when
// rowAdd is null; likewise c2 = LandIndex(c + colAdd[r * w + c], w), or c when colAdd is null.
void LandingTargets(const float* rowAdd, const float* colAdd, int w, int h, int r0, int rows,
                    int32_t* target);

// Landing columns of one row whose shifts are quarter pixels in [0, 2^20) (disparities):
// col[c] = LandIndex(c + add[c], w), w below 2^20. In float lanes, exact: c + add + 0.5 needs
// at most 22 bits before and 2 after the point.
void LandingColumnsQuarter(const float* add, int w, int32_t* col);
constexpr float kQuarterShiftLimit = 1048576.0f;

// Warp displacement of one row of n samples at columns X = x0 .. x0 + n - 1 and row Y:
// z = H6 X + H7 Y + H8, vx = (H0 X + H1 Y + H2) / z - X, vy = (H3 X + H4 Y + H5) / z - Y.
// Returns whether some |z| is below eps; the row is then written without a guard.
bool AreaVxVyRow(const float* H, float eps, int x0, float Y, int n, float* vx, float* vy);

// Disparity in pixels of h rows of w samples, stride apart: (raw + offset) / 4, 0 when negative.
// Rows of the output are w floats apart.
void DisparityPlane8(const uint8_t* data, int stride, int offset, int w, int h, float* out);
void DisparityPlane16(const uint16_t* data, int stride, int offset, int w, int h, float* out);

// Sum of n bytes (n at most 16843009, so that it fits 32 bits).
uint32_t SumBytes(const uint8_t* p, int n);

// Correction search of n consecutive pixels whose 50 search columns lie inside the row: for each
// pixel i, the smallest |k + 2 - (in[i + k] >> 2)| over k = 0..49 and the first k reaching it.
void SearchLeast8(const uint8_t* in, int n, int16_t* least, int16_t* firstK);
void SearchLeast16(const uint16_t* in, int n, int16_t* least, int16_t* firstK);

constexpr int kCorrectSearch = 50;

// Multi-depth bin of n samples: |raw + offset| >> 2, or 63 when above 62.
void MultiDepthBins8(const uint8_t* in, int offset, int n, uint8_t* bins);
void MultiDepthBins16(const uint16_t* in, int offset, int n, uint8_t* bins);
constexpr int kMultiOverflowBin = 63;

namespace scalar {
void LandingTargets(const float* rowAdd, const float* colAdd, int w, int h, int r0, int rows,
                    int32_t* target);
void LandingColumnsQuarter(const float* add, int w, int32_t* col);
bool AreaVxVyRow(const float* H, float eps, int x0, float Y, int n, float* vx, float* vy);
void DisparityPlane8(const uint8_t* data, int stride, int offset, int w, int h, float* out);
void DisparityPlane16(const uint16_t* data, int stride, int offset, int w, int h, float* out);
uint32_t SumBytes(const uint8_t* p, int n);
void SearchLeast8(const uint8_t* in, int n, int16_t* least, int16_t* firstK);
void SearchLeast16(const uint16_t* in, int n, int16_t* least, int16_t* firstK);
void MultiDepthBins8(const uint8_t* in, int offset, int n, uint8_t* bins);
void MultiDepthBins16(const uint16_t* in, int offset, int n, uint8_t* bins);
}  // namespace scalar

}  // namespace bivista

#endif
