// Matrix and vector helpers: any small shape, any values; vector and lowest target agree, and
// refusals leave their outputs untouched.
#include "bivista/matrix.h"
#include "support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider p(data, size);
  const int m = bvfuzz::Dim(p, 0, 9), k = bvfuzz::Dim(p, 0, 9), n = bvfuzz::Dim(p, 0, 40);
  const auto a = bvfuzz::Buffer<float>(p, static_cast<size_t>(m) * k);
  const auto b = bvfuzz::Buffer<float>(p, static_cast<size_t>(k) * n);
  const auto da = bvfuzz::Buffer<double>(p, static_cast<size_t>(m) * k);
  const auto db = bvfuzz::Buffer<double>(p, static_cast<size_t>(k) * n);
  std::vector<float> c[2];
  std::vector<double> dc[2];
  std::vector<float> t[2], rot[2], inv[2];
  float dot[2] = {0, 0};
  const float thr = p.ConsumeFloatingPoint<float>();
  const int angle = bvfuzz::AnyInt(p);
  bvfuzz::OnBestAndLowestTarget([&](bool lowest) {
    const int i = lowest ? 1 : 0;
    c[i].assign(static_cast<size_t>(m) * n, -1.0f);
    dc[i].assign(static_cast<size_t>(m) * n, -1.0);
    if (k > 0) {
      MatMul(a.data(), b.data(), c[i].data(), m, k, k, n);
      dMatMul(da.data(), db.data(), dc[i].data(), m, k, k, n);
    }
    t[i].assign(b.size(), 0.0f);
    MatTranspose(b.data(), t[i].data(), k, n);
    rot[i].assign(b.size(), 0.0f);
    AnticlockRotation(b.data(), rot[i].data(), n, k, angle);
    MatDot(a.data(), a.data(), &dot[i], m, k);
    inv[i] = b;
    InvertDisparity(inv[i].data(), inv[i].data() + inv[i].size(), thr);
  });
  bvfuzz::CheckSame(c[0], c[1], "MatMul targets differ");
  bvfuzz::CheckSame(dc[0], dc[1], "dMatMul targets differ");
  bvfuzz::CheckSame(t[0], t[1], "MatTranspose targets differ");
  bvfuzz::CheckSame(rot[0], rot[1], "AnticlockRotation targets differ");
  bvfuzz::Check(bvfuzz::SameElement(dot[0], dot[1]), "MatDot targets differ");
  bvfuzz::CheckSame(inv[0], inv[1], "InvertDisparity targets differ");

  if (a.size() >= 9 && da.size() >= 9) {
    double out[9], before[9];
    for (int i = 0; i < 9; ++i) out[i] = before[i] = 7.0;
    if (doInvert3x3(out, da.data()) != 0) {
      bvfuzz::Check(memcmp(out, before, sizeof out) == 0, "refused inverse wrote its output");
    }
    double mm[9];
    memcpy(mm, da.data(), sizeof mm);
    if (dScaleMatrix3x3(mm, p.ConsumeFloatingPoint<double>()) != 0) {
      bvfuzz::Check(memcmp(mm, da.data(), sizeof mm) == 0, "refused scaling wrote its matrix");
    }
    std::vector<float> unit(a.size(), 3.0f), unitBefore = unit;
    float norm = 5.0f;
    if (VectorUnit(a.data(), unit.data(), &norm, static_cast<int>(a.size())) != 0) {
      bvfuzz::Check(bvfuzz::SameBytes(unit, unitBefore), "refused VectorUnit wrote its output");
    }
  }
  return 0;
}
