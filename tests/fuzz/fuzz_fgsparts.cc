// The smoother's and the border mask's building blocks, one per input: line solves alone, split
// over a real pool or none with any thread count, one worker record; couplings from
// interleaved and planar guides; the transposes; the mask and decay passes; the threshold and
// the gradient worker. Buffers are exact; outputs start as a pattern, and what an entry must
// not write is compared with it; best and lowest target agree.
#include <math.h>

#include <limits>

#include "bivista/bordermask.h"
#include "bivista/fgs.h"
#include "depthrefine/bordermask/bordermask_kernels.h"
#include "support.h"

namespace {

using Floats = std::vector<float>;
using Bytes = std::vector<uint8_t>;
constexpr int kPoolThreads = 4;
using bvfuzz::Area;

void* Pool() { return bvfuzz::SharedPool(kPoolThreads); }

// Thread counts: mostly within the pool, sometimes past it, none or negative.
int Threads(FuzzedDataProvider& p) {
  switch (p.ConsumeIntegralInRange<int>(0, 5)) {
    case 0: return p.ConsumeIntegralInRange<int>(-2, 0);
    case 1: return p.ConsumeBool() ? std::numeric_limits<int>::min() : bvfuzz::Dim(p, 5, 16);
    default: return p.ConsumeIntegralInRange<int>(1, kPoolThreads);
  }
}

// Lines first .. end - 1 solved on their own (the reference for every split).
void SolveLines(Floats& f, const Floats& w, Floats& c, int length, int first, int end) {
  if (end <= first || length < 1) return;
  const size_t o = static_cast<size_t>(first) * length;
  DREF_FGSFilter1D(f.data() + o, w.data() + o, c.data() + o, end - first, length);
}

// Line solves: alone, split (pool or none), and one worker record.
void Lines(FuzzedDataProvider& p) {
  const int n = bvfuzz::Dim(p, -2, 24), len = bvfuzz::Dim(p, -2, 40);
  const size_t area = Area(n, len);
  const Floats in = bvfuzz::Buffer<float>(p, area), w = bvfuzz::Buffer<float>(p, area);
  const Floats scratch0(area, -3.5f);
  bvfuzz::TwinSet("DREF_FGSFilter1D targets differ", [&](Floats& f, Floats& c) {
    DREF_FGSFilter1D(f.data(), w.data(), c.data(), n, len);
  }, in, scratch0);

  const bool withPool = p.ConsumeBool();
  const int threads = Threads(p);
  if (withPool && Pool() == nullptr) return;
  std::vector<DREF_FGSThreadParam> records(threads > 0 ? threads : 0);
  Floats fs = in, cs = scratch0;
  DREF_FGSFilter1D_multiThread(fs.data(), w.data(), cs.data(), n, len, records.data(),
                               withPool ? Pool() : nullptr, threads);
  // Workers past the pool's do not run: their lines stay as they were.
  int solved = threads < 1 ? 0 : n;
  if (withPool && threads > kPoolThreads) {
    solved = static_cast<int>(static_cast<int64_t>(kPoolThreads) * n / threads);
  }
  Floats fr = in, cr = scratch0;
  SolveLines(fr, w, cr, len, 0, solved);
  bvfuzz::CheckSame(fs, fr, "split solve differs from the lines solved alone");
  bvfuzz::CheckSame(cs, cr, "split solve coefficients differ");

  // One worker record over any lines of the plane.
  if (n < 1) return;
  const int first = p.ConsumeIntegralInRange<int>(0, n), end = p.ConsumeIntegralInRange<int>(0, n);
  DREF_FGSThreadParam r = {nullptr, const_cast<float*>(w.data()), nullptr, bvfuzz::AnyInt(p), len,
                           first, end};
  Floats fw = in, cw = scratch0;
  r.data = fw.data();
  r.scratch = cw.data();
  bvfuzz::Check(DREF_FGSFilter1D_started(&r, bvfuzz::AnyInt(p)) == nullptr, "worker result");
  fr = in;
  cr = scratch0;
  SolveLines(fr, w, cr, len, first, end);
  bvfuzz::CheckSame(fw, fr, "worker record differs from its lines solved alone");
  bvfuzz::CheckSame(cw, cr, "worker record coefficients differ");
}

// One iteration with any thread count: as without a pool when every worker runs.
void Iteration(FuzzedDataProvider& p) {
  const int h = bvfuzz::Dim(p, 0, 20), w = bvfuzz::Dim(p, 0, 20);
  const size_t area = Area(h, w);
  const Floats in = bvfuzz::Buffer<float>(p, area), hw = bvfuzz::Buffer<float>(p, area);
  const Floats vw = bvfuzz::Buffer<float>(p, area);
  const int threads = Threads(p);
  if (Pool() == nullptr) return;
  std::vector<DREF_FGSThreadParam> records(threads > 0 ? threads : 0);
  Floats ref = in, scratch(area);
  DREF_FGS_filter(ref.data(), hw.data(), vw.data(), h, w, scratch.data(), nullptr, nullptr,
                  bvfuzz::AnyInt(p));
  const Floats out = bvfuzz::Twins(in, "DREF_FGS_filter targets differ, or no workers changed data",
                                   [&](float* o) {
    DREF_FGS_filter(o, hw.data(), vw.data(), h, w, scratch.data(), records.data(), Pool(), threads);
  }, threads < 1).out;
  if (threads >= 1 && threads <= kPoolThreads) {
    bvfuzz::CheckSame(out, ref, "DREF_FGS_filter on the pool differs from no pool");
  }
}

// Table entry d as the one-channel path gives it for a pixel pair differing by d (row d).
Floats TableOf(float sigma, float lambda) {
  Bytes pairs(512, 0);
  for (int d = 0; d < 256; ++d) pairs[2 * d + 1] = static_cast<uint8_t>(d);
  Floats out(512), t(256);
  DREF_FGSGuideToWeight_yuv(out.data(), pairs.data(), 256, 2, 1, sigma, lambda);
  for (int d = 0; d < 256; ++d) t[d] = out[2 * d];
  return t;
}

// Couplings of interleaved and planar guides against the table, and the weight builder.
void Couplings(FuzzedDataProvider& p) {
  const int rows = bvfuzz::Dim(p, -1, 12), cols = bvfuzz::Dim(p, -1, 40);
  const int channels = p.ConsumeIntegralInRange<int>(0, 7) == 0 ? bvfuzz::AnyInt(p)
                                                                : p.ConsumeIntegralInRange<int>(-1, 5);
  if (channels > 5) return;
  const int ch = channels > 0 ? channels : 0;
  const bool planar = p.ConsumeBool();
  const float sigma = p.ConsumeBool() ? p.ConsumeFloatingPointInRange<float>(0.5f, 40.0f)
                                      : p.ConsumeFloatingPoint<float>();
  const float lambda = p.ConsumeFloatingPoint<float>();
  const size_t area = Area(rows, cols);
  const Bytes guide = bvfuzz::Buffer<uint8_t>(p, area * ch);
  const Floats init(area, 9.25f), table = TableOf(sigma, lambda);
  const Floats out = bvfuzz::Twins(init, "guide couplings: targets differ", [&](float* o) {
    (planar ? DREF_FGSGuideToWeight_plane : DREF_FGSGuideToWeight_yuv)(o, guide.data(), rows, cols,
                                                                      channels, sigma, lambda);
  }).out;
  for (size_t i = 0; i < area; ++i) {
    int m = 0;
    for (int k = 0; k < ch; ++k) {
      const size_t a = planar ? k * area + i : i * ch + k, b = planar ? a + 1 : a + ch;
      if (static_cast<int>(i % cols) + 1 < cols) m = std::max(m, std::abs(guide[a] - guide[b]));
    }
    const float want = static_cast<int>(i % cols) + 1 == cols ? 0.0f : table[m];
    bvfuzz::Check(bvfuzz::SameElement(out[i], want), "coupling is not the table's entry");
  }

  // The builder: formats other than 0 touch nothing; 0 reads 3 bytes a pixel at most.
  const uint32_t format = p.ConsumeBool() ? 0u : p.ConsumeIntegral<uint32_t>();
  if (planar || channels > 3) return;
  const Bytes g3 = area * 3 == guide.size() ? guide : bvfuzz::Buffer<uint8_t>(p, area * 3);
  const auto [hw, vw, tg] = bvfuzz::TwinSet("DREF_GetFGS_Weight targets differ", [&](Floats& h, Floats& v, Bytes& t) {
    DREF_GetFGS_Weight(g3.data(), rows, cols, channels, format, h.data(), v.data(), t.data(), sigma, lambda);
  }, init, init, Bytes(area * 3, 0xA5));
  if (format != 0) {
    bvfuzz::CheckSame(hw, init, "DREF_GetFGS_Weight wrote for another format");
    bvfuzz::CheckSame(vw, init, "DREF_GetFGS_Weight wrote for another format");
  }
}

// The three transposes against their definition.
void Transposes(FuzzedDataProvider& p) {
  const int rows = bvfuzz::Dim(p, -2, 30), cols = bvfuzz::Dim(p, -2, 30);
  const size_t area = Area(rows, cols);
  const int kind = p.ConsumeIntegralInRange<int>(0, 2);
  if (kind == 1) {
    const Floats src = bvfuzz::Buffer<float>(p, area);
    const Floats out = bvfuzz::Twins(Floats(area, -1.0f), "DREF_Rotate_1D_FLOAT targets differ",
                                     [&](float* o) { DREF_Rotate_1D_FLOAT(o, src.data(), rows, cols); }).out;
    for (size_t i = 0; i < area; ++i) {
      const size_t r = i / cols, c = i % cols;
      bvfuzz::Check(bvfuzz::SameElement(out[c * rows + r], src[i]), "float transpose");
    }
    return;
  }
  const int px = kind == 0 ? 1 : 3;
  const Bytes src = bvfuzz::Buffer<uint8_t>(p, area * px);
  const Bytes out = bvfuzz::Twins(Bytes(area * px, 0x5A), "byte transpose targets differ", [&](uint8_t* o) {
    (kind == 0 ? DREF_Rotate_1D_UCHAR : DREF_Rotate_yuv)(o, src.data(), rows, cols);
  }).out;
  for (size_t i = 0; i < area * px; ++i) {
    const size_t pixel = i / px, r = pixel / cols, c = pixel % cols;
    bvfuzz::Check(out[(c * rows + r) * px + i % px] == src[i], "byte transpose");
  }
}

// Mask and decay passes against their definitions.
void Masks(FuzzedDataProvider& p) {
  const int h = bvfuzz::Dim(p, -1, 20), w = bvfuzz::Dim(p, -1, 40);
  const size_t area = Area(h, w);
  const Floats hw = bvfuzz::Buffer<float>(p, area), vw = bvfuzz::Buffer<float>(p, area);
  Bytes mask = bvfuzz::Buffer<uint8_t>(p, area), tmask = bvfuzz::Buffer<uint8_t>(p, area);
  if (p.ConsumeBool()) {
    for (auto& m : mask) m &= 1;
  }
  const float value = p.ConsumeFloatingPoint<float>();
  const bool adapt = p.ConsumeBool();
  const auto [a, b] = bvfuzz::TwinSet("mask pass targets differ", [&](Floats& x, Floats& y) {
    if (adapt) {
      adaptWeightBymask(x.data(), y.data(), mask.data(), tmask.data(), h, w, value);
    } else {
      changeWeight(x.data(), mask.data(), h, w, value);
    }
  }, hw, vw);
  for (size_t i = 0; i < area; ++i) {
    const bool hSet = mask[i] != 0 && static_cast<int>(i % w) + 1 < w;
    const bool vSet = adapt && tmask[i] != 0 && static_cast<int>(i % h) + 1 < h;
    bvfuzz::Check(bvfuzz::SameElement(a[i], hSet ? value : hw[i]), "changeWeight value");
    bvfuzz::Check(bvfuzz::SameElement(b[i], vSet ? value : vw[i]), "adaptWeightBymask value");
  }

  const float factor = p.ConsumeFloatingPoint<float>();
  const int count = p.ConsumeBool() ? static_cast<int>(area) - p.ConsumeIntegralInRange<int>(0, 3)
                                    : (p.ConsumeBool() ? std::numeric_limits<int>::min() : -1);
  const auto [ua, ub, inv] = bvfuzz::TwinSet("updateWeight targets differ", [&](Floats& x, Floats& y, Floats& r) {
    r[0] = updateWeight(x.data(), y.data(), count, mask.data(), tmask.data(), factor);
  }, hw, vw, Floats(1));
  const float want = 1.0f / factor;
  bvfuzz::Check(bvfuzz::SameElement(inv[0], want), "updateWeight result");
  for (size_t i = 0; i < area; ++i) {
    const bool in = static_cast<int64_t>(i) < count;
    bvfuzz::Check(bvfuzz::SameElement(ua[i], in && mask[i] == 0 ? hw[i] * want : hw[i]),
                  "updateWeight horizontal");
    bvfuzz::Check(bvfuzz::SameElement(ub[i], in && tmask[i] == 0 ? vw[i] * want : vw[i]),
                  "updateWeight vertical");
  }
}

// The threshold of any plane and the gradient worker over any rectangle it may compute.
void Border(FuzzedDataProvider& p) {
  const int w = bvfuzz::Dim(p, -1, 40), h = bvfuzz::Dim(p, -1, 40);
  const size_t area = Area(w, h);
  const Floats depth = bvfuzz::Buffer<float>(p, area);
  float th = 123.0f;
  bvfuzz::ClearLog();
  getBinarizationTh(depth.data(), w, h, &th);
  float mean = 0.0f, dev = 0.0f, want = 0.0f;
  if (area > 0) {
    const float divisor = static_cast<float>(area / 16);
    float sum = 0.0f, squares = 0.0f;
    for (size_t i = 0; i < area; i += 16) sum += depth[i];
    mean = sum / divisor;
    for (size_t i = 0; i < area; i += 16) squares += (depth[i] - mean) * (depth[i] - mean);
    dev = sqrtf(squares / divisor);
    want = fmaf(3.0f, dev, mean);
  }
  bvfuzz::Check(bvfuzz::SameElement(th, want), "getBinarizationTh threshold");
  bvfuzz::Check(bvfuzz::LogLines().size() == 1, "getBinarizationTh logs one line");

  // A worker record: rows and columns whose neighbourhood lies inside the plane.
  if (w < 3 || h < 3) return;
  DataGradientThreadParam r;
  r.startRow = p.ConsumeIntegralInRange<int>(2, h - 1);
  r.endRow = p.ConsumeIntegralInRange<int>(2, h - 1);
  r.startColumn = p.ConsumeIntegralInRange<int>(2, w - 1);
  r.endColumn = p.ConsumeIntegralInRange<int>(2, w - 1);
  r.width = w;
  r.height = p.ConsumeBool() ? h : bvfuzz::AnyInt(p);  // carried, not read
  r.depth = depth.data();
  const Floats init(area, -6.0f);
  const Floats g = bvfuzz::Twins(init, "getDataGradient_multiThread targets differ", [&](float* o) {
    r.gradient = o;
    getDataGradient_multiThread(&r, bvfuzz::AnyInt(p));
  }).out;
  for (size_t i = 0; i < area; ++i) {
    const int y = static_cast<int>(i / w), x = static_cast<int>(i % w);
    const bool in = y >= r.startRow && y < r.endRow && x >= r.startColumn && x < r.endColumn;
    const float v = in ? bivista::border::Gradient(depth.data() + i, w) : init[i];
    bvfuzz::Check(bvfuzz::SameElement(g[i], v), "gradient worker wrote outside its record");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return bvfuzz::RunFamily(data, size, {Lines, Iteration, Couplings, Transposes, Masks, Border});
}
