/* Small dense linear algebra on row-major float and double arrays. */
#ifndef BIVISTA_MATRIX_H
#define BIVISTA_MATRIX_H

#include "bivista/bv_export.h"

BIVISTA_EXTERN_C_BEGIN

/* C (m x n) = A (m x k) * B (k x n); each element accumulates k = 0, 1, ... with fused
 * multiply-adds. rowsB is not read. */
BIVISTA_API void MatMul(const float* a, const float* b, float* c, int m, int k, int rowsB, int n);
BIVISTA_API void dMatMul(const double* a, const double* b, double* c, int m, int k, int rowsB,
                         int n);

/* dst (cols x rows) = transpose of src (rows x cols). */
BIVISTA_API void MatTranspose(const float* src, float* dst, int rows, int cols);
BIVISTA_API void dMatTransPose(const double* src, double* dst, int rows, int cols);
BIVISTA_API void dfMatTranspose(const double* src, float* dst, int rows, int cols);

/* *out = sum of a[i] * b[i] over cols * rows elements, fused multiply-adds in index order. */
BIVISTA_API void MatDot(const float* a, const float* b, float* out, int cols, int rows);
/* Squared norm: squares in float, summed in double from the last element down. */
BIVISTA_API double qnorm(const float* v, int n);
/* Stores the norm first; -1 (out untouched) when it is not above 1e-5. */
BIVISTA_API int VectorUnit(const float* in, float* out, float* norm, int n);

/* Skew-symmetric matrix of v: out * w = v x w. */
BIVISTA_API void cross_vector(const float* v, float* out);
BIVISTA_API float* set_matrix_eye(float* out);
BIVISTA_API double* set_matrix_eye_double(double* out);

/* 0, or -1 with out untouched when |det| <= DBL_EPSILON. */
BIVISTA_API int doInvert3x3(double* out, const double* in);
/* M <- S M S^-1 with S = diag(s, s, 1); -1 (m untouched) when s * s is negligible. */
BIVISTA_API int dScaleMatrix3x3(double* m, double s);
BIVISTA_API void MatFree(void* p);

/* Rotates a width x height map 90 degrees anticlockwise into height x width; only angles with
 * angle % 360 == 90 do anything. */
BIVISTA_API void AnticlockRotation(const float* src, float* dst, int width, int height, int angle);
/* Negates every element more than 0.01 above t; returns end. */
BIVISTA_API float* InvertDisparity(float* begin, float* end, float t);

BIVISTA_EXTERN_C_END

#endif
