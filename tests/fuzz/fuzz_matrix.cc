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
  using Floats = std::vector<float>;
  const float thr = p.ConsumeFloatingPoint<float>();
  const int angle = bvfuzz::AnyInt(p);
  const Floats zeros(b.size(), 0.0f);
  bvfuzz::TwinSet("matrix helpers: targets differ", [&](Floats& c, std::vector<double>& dc,
                                                        Floats& t, Floats& rot, Floats& dot, Floats& inv) {
    if (k > 0) {
      MatMul(a.data(), b.data(), c.data(), m, k, k, n);
      dMatMul(da.data(), db.data(), dc.data(), m, k, k, n);
    }
    MatTranspose(b.data(), t.data(), k, n);
    AnticlockRotation(b.data(), rot.data(), n, k, angle);
    MatDot(a.data(), a.data(), dot.data(), m, k);
    InvertDisparity(inv.data(), inv.data() + inv.size(), thr);
  }, Floats(static_cast<size_t>(m) * n, -1.0f), std::vector<double>(static_cast<size_t>(m) * n, -1.0),
     zeros, zeros, Floats(1, 0.0f), b);

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
