// Small dense linear algebra helpers.
#include "bivista/matrix.h"

#include <math.h>
#include <stdlib.h>

#include "matrix/matrix_kernels.h"

namespace {

constexpr double kSingular = 2.220446049250313e-16;  // double machine epsilon

}  // namespace

extern "C" {

void MatMul(const float* a, const float* b, float* c, int m, int k, int rowsB, int n) {
  if (k < 1) return;
  bivista::MatMulF32(a, b, c, m, k, n);
}

void dMatMul(const double* a, const double* b, double* c, int m, int k, int rowsB, int n) {
  if (k < 1) return;
  bivista::MatMulF64(a, b, c, m, k, n);
}

void MatTranspose(const float* src, float* dst, int rows, int cols) {
  if (rows < 1 || cols < 1) return;
  // Small matrices are not worth the block setup.
  if (rows > 15)
    bivista::TransposeF32(src, rows, cols, dst, rows);
  else
    bivista::scalar::TransposeF32(src, rows, cols, dst, rows);
}

void dMatTransPose(const double* src, double* dst, int rows, int cols) {
  if (rows < 1 || cols < 1) return;
  bivista::TransposeF64(src, rows, cols, dst, rows);
}

void dfMatTranspose(const double* src, float* dst, int rows, int cols) {
  if (rows < 1 || cols < 1) return;
  bivista::TransposeF64ToF32(src, rows, cols, dst, rows);
}

void MatDot(const float* a, const float* b, float* out, int cols, int rows) {
  float acc = 0.0f;
  if (rows >= 1 && cols >= 1) {
    const ptrdiff_t n = static_cast<ptrdiff_t>(rows) * cols;
    for (ptrdiff_t i = 0; i < n; ++i) acc = fmaf(a[i], b[i], acc);
  }
  *out = acc;
}

double qnorm(const float* v, int n) {
  double sum = 0.0;
  for (int i = n - 1; i >= 0; --i) sum += static_cast<double>(v[i] * v[i]);
  return sum;
}

int VectorUnit(const float* in, float* out, float* norm, int n) {
  const float len = sqrtf(static_cast<float>(qnorm(in, n)));
  *norm = len;
  if (!(len > 1e-5)) return -1;
  const float inv = 1.0f / len;
  for (int i = 0; i < n; ++i) out[i] = in[i] * inv;
  return 0;
}

void cross_vector(const float* v, float* out) {
  const float x = v[0], y = v[1], z = v[2];
  out[0] = 0.0f; out[1] = -z;   out[2] = y;
  out[3] = z;    out[4] = 0.0f; out[5] = -x;
  out[6] = -y;   out[7] = x;    out[8] = 0.0f;
}

float* set_matrix_eye(float* out) {
  for (int i = 0; i < 9; ++i) out[i] = (i % 4 == 0) ? 1.0f : 0.0f;
  return out;
}

double* set_matrix_eye_double(double* out) {
  for (int i = 0; i < 9; ++i) out[i] = (i % 4 == 0) ? 1.0 : 0.0;
  return out;
}

int doInvert3x3(double* out, const double* a) {
  // Terms in a fixed order, each later one fused into the running sum.
  double det = a[0] * a[4] * a[8];
  det = fma(a[1] * a[5], a[6], det);
  det = fma(a[2] * a[3], a[7], det);
  det = fma(-(a[2] * a[4]), a[6], det);
  det = fma(-(a[0] * a[5]), a[7], det);
  det = fma(-(a[1] * a[3]), a[8], det);
  if (fabs(det) <= kSingular) return -1;
  const double inv = 1.0 / det;
  const double r[9] = {a[4] * a[8] - a[5] * a[7], a[2] * a[7] - a[1] * a[8], a[1] * a[5] - a[2] * a[4],
                       a[5] * a[6] - a[3] * a[8], a[0] * a[8] - a[2] * a[6], a[2] * a[3] - a[0] * a[5],
                       a[3] * a[7] - a[4] * a[6], a[1] * a[6] - a[0] * a[7], a[0] * a[4] - a[1] * a[3]};
  for (int i = 0; i < 9; ++i) out[i] = inv * r[i];
  return 0;
}

int dScaleMatrix3x3(double* m, double s) {
  const double q = s * s;
  if (fabs(q) <= kSingular) return -1;
  const double u = 1.0 / q;
  const double a = u * s;  // 1 / s
  const double b = u * q;  // 1, through the same rounding path as a
  m[0] = s * m[0] * a;
  m[1] = s * m[1] * a;
  m[3] = s * m[3] * a;
  m[4] = s * m[4] * a;
  m[2] = s * m[2] * b;
  m[5] = s * m[5] * b;
  m[6] = a * m[6];
  m[7] = a * m[7];
  m[8] = b * m[8];
  return 0;
}

void MatFree(void* p) {
  if (p != nullptr) free(p);
}

void AnticlockRotation(const float* src, float* dst, int width, int height, int angle) {
  if (angle % 360 != 90 || width < 1 || height < 1) return;
  // Source column c becomes destination row width - 1 - c.
  bivista::TransposeF32(src, height, width, dst + static_cast<ptrdiff_t>(width - 1) * height,
                        -static_cast<ptrdiff_t>(height));
}

float* InvertDisparity(float* begin, float* end, float t) {
  if (begin != end) bivista::NegateAbove(begin, end - begin, t);
  return end;
}

}  // extern "C"
