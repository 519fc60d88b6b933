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
  Floats c[2];
  int side = 0;
  bvfuzz::Twins(in, "DREF_FGSFilter1D targets differ", [&](float* o) {
    c[side] = scratch0;
    DREF_FGSFilter1D(o, w.data(), c[side++].data(), n, len);
  }, area == 0);
  bvfuzz::CheckSame(c[0], c[1], "DREF_FGSFilter1D coefficients differ");

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
  Floats ref = in, scratch(area), out[2];
  DREF_FGS_filter(ref.data(), hw.data(), vw.data(), h, w, scratch.data(), nullptr, nullptr,
                  bvfuzz::AnyInt(p));
  bvfuzz::OnBestAndLowestTarget([&](bool lowest) {
    out[lowest] = in;
    DREF_FGS_filter(out[lowest].data(), hw.data(), vw.data(), h, w, scratch.data(),
                    records.data(), Pool(), threads);
  });
  bvfuzz::CheckSame(out[0], out[1], "DREF_FGS_filter targets differ");
  if (threads >= 1 && threads <= kPoolThreads) {
    bvfuzz::CheckSame(out[0], ref, "DREF_FGS_filter on the pool differs from no pool");
  }
  if (threads < 1) bvfuzz::CheckSame(out[0], in, "DREF_FGS_filter without workers changed data");
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
  Floats hw[2], vw[2];
  Bytes tg[2];
  bvfuzz::OnBestAndLowestTarget([&](bool lowest) {
    hw[lowest] = init;
    vw[lowest] = init;
    tg[lowest].assign(area * 3, 0xA5);
    DREF_GetFGS_Weight(g3.data(), rows, cols, channels, format, hw[lowest].data(),
                       vw[lowest].data(), tg[lowest].data(), sigma, lambda);
  });
  bvfuzz::CheckSame(hw[0], hw[1], "DREF_GetFGS_Weight targets differ");
  bvfuzz::CheckSame(vw[0], vw[1], "DREF_GetFGS_Weight vertical targets differ");
  bvfuzz::CheckSame(tg[0], tg[1], "DREF_GetFGS_Weight transposed guide differs");
  if (format != 0) {
    bvfuzz::CheckSame(hw[0], init, "DREF_GetFGS_Weight wrote for another format");
    bvfuzz::CheckSame(vw[0], init, "DREF_GetFGS_Weight wrote for another format");
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
  Floats a[2], b[2];
  const bool adapt = p.ConsumeBool();
  bvfuzz::OnBestAndLowestTarget([&](bool lowest) {
    a[lowest] = hw;
    b[lowest] = vw;
    if (adapt) {
      adaptWeightBymask(a[lowest].data(), b[lowest].data(), mask.data(), tmask.data(), h, w, value);
    } else {
      changeWeight(a[lowest].data(), mask.data(), h, w, value);
    }
  });
  bvfuzz::CheckSame(a[0], a[1], "mask pass targets differ");
  bvfuzz::CheckSame(b[0], b[1], "mask pass targets differ");
  for (size_t i = 0; i < area; ++i) {
    const bool hSet = mask[i] != 0 && static_cast<int>(i % w) + 1 < w;
    const bool vSet = adapt && tmask[i] != 0 && static_cast<int>(i % h) + 1 < h;
    bvfuzz::Check(bvfuzz::SameElement(a[0][i], hSet ? value : hw[i]), "changeWeight value");
    bvfuzz::Check(bvfuzz::SameElement(b[0][i], vSet ? value : vw[i]), "adaptWeightBymask value");
  }

  const float factor = p.ConsumeFloatingPoint<float>();
  const int count = p.ConsumeBool() ? static_cast<int>(area) - p.ConsumeIntegralInRange<int>(0, 3)
                                    : (p.ConsumeBool() ? std::numeric_limits<int>::min() : -1);
  float inv[2];
  bvfuzz::OnBestAndLowestTarget([&](bool lowest) {
    a[lowest] = hw;
    b[lowest] = vw;
    inv[lowest] = updateWeight(a[lowest].data(), b[lowest].data(), count, mask.data(),
                               tmask.data(), factor);
  });
  bvfuzz::CheckSame(a[0], a[1], "updateWeight targets differ");
  bvfuzz::CheckSame(b[0], b[1], "updateWeight targets differ");
  const float want = 1.0f / factor;
  bvfuzz::Check(bvfuzz::SameElement(inv[0], want) && bvfuzz::SameElement(inv[1], want),
                "updateWeight result");
  for (size_t i = 0; i < area; ++i) {
    const bool in = static_cast<int64_t>(i) < count;
    bvfuzz::Check(bvfuzz::SameElement(a[0][i], in && mask[i] == 0 ? hw[i] * want : hw[i]),
                  "updateWeight horizontal");
    bvfuzz::Check(bvfuzz::SameElement(b[0][i], in && tmask[i] == 0 ? vw[i] * want : vw[i]),
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
  FuzzedDataProvider p(data, size);
  switch (p.ConsumeIntegralInRange<int>(0, 5)) {
    case 0: Lines(p); break;
    case 1: Iteration(p); break;
    case 2: Couplings(p); break;
    case 3: Transposes(p); break;
    case 4: Masks(p); break;
    default: Border(p); break;
  }
  return 0;
}
