// Streaming kernels of the matrix helpers: a dispatching entry and its scalar definition.
#ifndef BIVISTA_SRC_MATRIX_MATRIX_KERNELS_H
#define BIVISTA_SRC_MATRIX_MATRIX_KERNELS_H

#include <stddef.h>

namespace bivista {

// One row of C: c[j] = a[0] * b[j], then c[j] = fma(b[kk * n + j], a[kk], c[j]) for kk = 1..k-1.
void MatMulRowF32(const float* a, const float* b, float* c, int k, int n);
void MatMulRowF64(const double* a, const double* b, double* c, int k, int n);
// C (m x n) = A (m x k) B (k x n) by those rows, one dispatch per product.
void MatMulF32(const float* a, const float* b, float* c, int m, int k, int n);
void MatMulF64(const double* a, const double* b, double* c, int m, int k, int n);
// dst[c * dstColStep + r] = src[r * cols + c]; dstColStep may be negative.
void TransposeF32(const float* src, int rows, int cols, float* dst, ptrdiff_t dstColStep);
void TransposeF64(const double* src, int rows, int cols, double* dst, ptrdiff_t dstColStep);
void TransposeF64ToF32(const double* src, int rows, int cols, float* dst, ptrdiff_t dstColStep);
// x = -x wherever x - t >= 0.01.
void NegateAbove(float* p, ptrdiff_t n, float t);

namespace scalar {
void MatMulF32(const float* a, const float* b, float* c, int m, int k, int n);
void MatMulF64(const double* a, const double* b, double* c, int m, int k, int n);
void MatMulRowF32(const float* a, const float* b, float* c, int k, int n);
void MatMulRowF64(const double* a, const double* b, double* c, int k, int n);
void TransposeF32(const float* src, int rows, int cols, float* dst, ptrdiff_t dstColStep);
void TransposeF64(const double* src, int rows, int cols, double* dst, ptrdiff_t dstColStep);
void TransposeF64ToF32(const double* src, int rows, int cols, float* dst, ptrdiff_t dstColStep);
void NegateAbove(float* p, ptrdiff_t n, float t);
}  // namespace scalar

}  // namespace bivista

#endif
