// Golden cases of the matrix and vector helpers: odd shapes, singular and near-singular inputs.
#include "bivista/matrix.h"
#include "golden/golden.h"

namespace {
using bvgolden::Rng;
using bvgolden::Sink;
}  // namespace

BVGOLDEN_CASES(matrix) {
  struct Dims {
    int m, k, n;
  };
  for (const Dims& d : {Dims{1, 1, 1}, Dims{3, 3, 3}, Dims{5, 7, 9}, Dims{17, 3, 33}, Dims{2, 40, 5}}) {
    const std::string dims = std::to_string(d.m) + "x" + std::to_string(d.k) + "x" + std::to_string(d.n);
    cases.Seeded("products_" + dims, [=](Sink& s, Rng& rng) {
      const std::vector<float> a = rng.Floats(size_t(d.m) * d.k, -3, 3);
      const std::vector<float> b = rng.Floats(size_t(d.k) * d.n, -3, 3);
      std::vector<double> da(a.begin(), a.end()), db(b.begin(), b.end());
      for (double& x : da) x += 1e-9 * x * x;
      std::vector<float> c(size_t(d.m) * d.n + 4, -1.0f);
      MatMul(a.data(), b.data(), c.data(), d.m, d.k, -1, d.n);
      s.Values(c);
      std::vector<double> dc(size_t(d.m) * d.n + 4, -1.0);
      dMatMul(da.data(), db.data(), dc.data(), d.m, d.k, -1, d.n);
      s.Values(dc);
      std::vector<float> t(a.size() + 4, -1.0f);
      MatTranspose(a.data(), t.data(), d.m, d.k);
      s.Values(t);
      std::vector<double> dt(a.size() + 4, -1.0);
      dMatTransPose(da.data(), dt.data(), d.m, d.k);
      s.Values(dt);
      std::fill(t.begin(), t.end(), -1.0f);
      dfMatTranspose(da.data(), t.data(), d.m, d.k);
      s.Values(t);
      std::fill(t.begin(), t.end(), -1.0f);
      AnticlockRotation(a.data(), t.data(), d.k, d.m, 90);
      s.Values(t);
      AnticlockRotation(a.data(), t.data(), d.k, d.m, 180);
      s.Values(t);
      float dot = -1.0f;
      MatDot(a.data(), a.data(), &dot, d.k, d.m);
      s.Value(dot);
      s.Value(qnorm(b.data(), int(b.size())));
      std::vector<float> unit(b.size(), -1.0f);
      float norm = -1.0f;
      s.Value(VectorUnit(b.data(), unit.data(), &norm, int(b.size())));
      s.Value(norm);
      s.Values(unit);
      std::vector<float> inv = a;
      s.Value(InvertDisparity(inv.data(), inv.data() + inv.size(), 0.5f) == inv.data() + inv.size());
      s.Values(inv);
    });
  }
  cases.Add("small_3x3", [](Sink& s) {
    const float v[3] = {1.5f, -2.25f, 0.125f};
    float cross[9], eye[9];
    cross_vector(v, cross);
    s.Values(cross, 9);
    s.Value(set_matrix_eye(eye) == eye);
    s.Values(eye, 9);
    double deye[9];
    s.Value(set_matrix_eye_double(deye) == deye);
    s.Values(deye, 9);
    const double ms[][9] = {{2, 1, 0, 1, 3, 1, 0, 1, 4},
                            {1, 2, 3, 2, 4, 6, 1, 1, 1},
                            {1, 0, 0, 0, 1, 0, 0, 0, 1e-17},
                            {1e-5, 0.3, 7, -2, 1e-3, 0.5, 100, -20, 1}};
    for (const auto& m : ms) {
      double out[9] = {-1, -1, -1, -1, -1, -1, -1, -1, -1};
      s.Value(doInvert3x3(out, m));
      s.Values(out, 9);
      for (double scale : {2.0, 1e-9, -0.75}) {
        double c[9];
        std::copy(m, m + 9, c);
        s.Value(dScaleMatrix3x3(c, scale));
        s.Values(c, 9);
      }
    }
    float tiny[3] = {1e-7f, 0, 0}, out[3] = {-1, -1, -1}, norm = -1;
    s.Value(VectorUnit(tiny, out, &norm, 3));
    s.Value(norm);
    s.Values(out, 3);
    MatFree(nullptr);
  });
}
