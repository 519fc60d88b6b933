// Pieces beside the blur's whole-image entries: its pool-job workers on records built as the
// paths build them (any strip split, null records, no threads, no scratch); the exact-halving
// and exact-doubling float resizers at and near their size relations; the double transposes
// and the squared norm. Buffers are exact, outputs start as a pattern, and the workers write
// their strip only, the bytes the whole blur gives there.
#include <algorithm>
#include <limits>

#include "bivista/gaussblur.h"
#include "bivista/imageformat.h"
#include "bivista/matrix.h"
#include "gaussblur/gaussblur_internal.h"
#include "support.h"

namespace {

using Bytes = std::vector<uint8_t>;
using bvfuzz::Area;
using bvfuzz::Extent;

using Worker = void* (*)(void*, int);
using Path = int (*)(const uint8_t*, uint8_t*, int, int, int, int, const uint16_t*, void*, int,
                     uint8_t*);

// Workers of one blur on a separate destination: each strip's rows equal the whole blur's.
void Workers(FuzzedDataProvider& p) {
  const int r = p.ConsumeIntegralInRange<int>(1, 3), k = 2 * r + 1;
  const Worker worker = r == 1   ? GaussianBlur3x3_u8_optimization_Body_Caller
                        : r == 2 ? GaussianBlur5x5_u8_optimization_Body_Caller
                                 : GaussianBlur7x7_u8_optimization_Body_Caller;
  const Path path = r == 1   ? GaussianBlur3x3_u8_optimization_multithread
                    : r == 2 ? GaussianBlur5x5_u8_optimization_multithread
                             : GaussianBlur7x7_u8_optimization_multithread;
  const int w = bvfuzz::Dim(p, 1, 70), h = bvfuzz::Dim(p, 1, 30);
  const int ss = w + bvfuzz::Dim(p, 0, 40), ds = w + bvfuzz::Dim(p, 0, 40);
  const int th = bvfuzz::Dim(p, 1, bivista::kGaussMaxThreads);
  // Taps of a symmetric kernel summing to 256.
  uint16_t taps[7];
  int sum = 0;
  for (int i = 0; i < r; ++i) {
    taps[i] = taps[k - 1 - i] = p.ConsumeIntegralInRange<uint16_t>(0, 256 / k);
    sum += 2 * taps[i];
  }
  taps[r] = static_cast<uint16_t>(256 - sum);
  const Bytes src = bvfuzz::Buffer<uint8_t>(p, Extent(w, h, ss));
  const Bytes init(Extent(w, h, ds), 0x3C);
  Bytes whole = init;
  const int wholeRc = path(src.data(), whole.data(), w, h, ss, ds, taps, nullptr, 1, nullptr);

  // The record as the path builds it (source and destination apart).
  const bool interior = h > 2 * r;
  int32_t status[bivista::kGaussMaxThreads];
  std::fill(status, status + th, 77);
  const uint8_t* bounds[2 * bivista::kGaussMaxThreads] = {nullptr};
  const bool withScratch = p.ConsumeIntegralInRange<int>(0, 7) != 0;
  Bytes scratch(withScratch ? static_cast<size_t>(2 * r) * ss * th : 0, 0x11);
  bivista::GaussJob job;
  job.width = w;
  job.rows = h - 2 * r;
  job.srcStride = ss;
  job.dstStride = ds;
  job.thNum = th;
  job.status = status;
  job.kernel = taps;
  job.src = interior ? src.data() + static_cast<size_t>(r) * ss : src.data();
  job.bounds = bounds;
  job.scratch = withScratch ? scratch.data() : nullptr;
  job.scratchBlock = static_cast<long>(2 * r) * ss;
  job.radius = r;
  const int per = job.rows / th;
  for (int t = 0; t < th; ++t) {
    const int first = t * per, count = t == th - 1 ? job.rows - (th - 1) * per : per;
    if (count <= 0) continue;
    bounds[2 * t] = job.src + static_cast<ptrdiff_t>(first - r) * ss;
    bounds[2 * t + 1] = job.src + static_cast<ptrdiff_t>(first + count) * ss;
  }
  // Some workers (any order); or no record, a record without its job, a job without threads.
  const int kind = p.ConsumeIntegralInRange<int>(0, 9);
  const int noThreads = p.ConsumeBool() ? 0 : bvfuzz::AnyInt(p) | std::numeric_limits<int>::min();
  const int anyIndex = bvfuzz::AnyInt(p);
  std::vector<int> order;
  for (int t = 0; t < th; ++t) {
    if (p.ConsumeBool()) order.push_back(t);
  }
  std::reverse(order.begin(), order.begin() + p.ConsumeIntegralInRange<size_t>(0, order.size()));
  if (kind == 0) order.clear();
  const Bytes out = bvfuzz::Twins(init, "blur workers: targets differ", [&](uint8_t* o) {
    job.dst = interior ? o + static_cast<size_t>(r) * ds : o;
    std::fill(status, status + th, 77);
    bivista::GaussArg arg = {&job, 0};
    if (kind == 0) {
      bvfuzz::Check(worker(nullptr, anyIndex) == nullptr, "worker without record");
      bivista::GaussArg none = {nullptr, 1};
      bvfuzz::Check(worker(&none, anyIndex) == nullptr, "worker without job");
      bivista::GaussJob idle = job;
      idle.thNum = noThreads;
      bivista::GaussArg zero = {&idle, 0};
      bvfuzz::Check(worker(&zero, anyIndex) == nullptr, "worker without threads");
      bvfuzz::Check(status[0] == -1, "a job without threads fails its first slot");
      status[0] = 77;
      return;
    }
    for (int t : order) {
      arg.index = t;
      worker(&arg, anyIndex);
    }
  }).out;
  // A strip fails when it is empty, narrower than the kernel or without scratch; a failed
  // strip of a narrow image holds its source rows, one without scratch stays untouched.
  const auto countOf = [&](int t) { return t == th - 1 ? job.rows - (th - 1) * per : per; };
  for (int t = 0; t < th; ++t) {
    const bool ran = std::find(order.begin(), order.end(), t) != order.end();
    const int want = !ran ? 77 : countOf(t) <= 0 || w < k || !withScratch ? -1 : 0;
    bvfuzz::Check(status[t] == want, "status slot");
  }
  for (int y = 0; y < h; ++y) {
    const int i = y - r;  // interior index
    int t = -1;
    if (i >= 0 && i < job.rows) t = std::min(per > 0 ? i / per : th - 1, th - 1);
    const bool ran = t >= 0 && std::find(order.begin(), order.end(), t) != order.end();
    const size_t at = static_cast<size_t>(y) * ds;
    for (int x = 0; x < w; ++x) {
      uint8_t want = init[at + x];
      if (ran) want = status[t] == 0 ? whole[at + x] : w < k ? src[static_cast<size_t>(y) * ss + x] : want;
      bvfuzz::Check(out[at + x] == want, "blur worker wrote outside its strip or differs");
    }
  }
  bvfuzz::CheckPadding(out, init, w, h, ds, "blur worker wrote row padding");
  if (wholeRc != 0) bvfuzz::Check(w < k || h < k, "whole blur refused a fitting image");
}

// The exact halving and doubling of float maps, at their size relation or one off it.
void Quarters(FuzzedDataProvider& p) {
  const bool down = p.ConsumeBool();
  const int a = bvfuzz::Dim(p, -1, 40), b = bvfuzz::Dim(p, -1, 24);
  int sw = down ? 2 * a : a, sh = down ? 2 * b : b, dw = down ? a : 2 * a, dh = down ? b : 2 * b;
  if (down && p.ConsumeBool()) sh += p.ConsumeIntegralInRange<int>(1, 3);  // extra rows unread
  const bool exact = p.ConsumeIntegralInRange<int>(0, 3) != 0;
  if (!exact) {
    (p.ConsumeBool() ? sw : sh) += p.ConsumeBool() ? 1 : -1;
    if (p.ConsumeBool()) std::swap(sw, dw);
  }
  const auto src = bvfuzz::Buffer<float>(p, Area(sw, sh));
  const std::vector<float> init(Area(dw, dh), -7.5f);
  const std::vector<float> out = bvfuzz::Twins(init, "quarter resizers: targets differ", [&](float* o) {
    const float* ret = (down ? ResizeFloatImg_Bilinear_Downsample_Quarter
                             : ResizeFloatImg_Bilinear_Extend_Quarter)(src.data(), o, sw, sh, dw, dh);
    bvfuzz::Check(ret == src.data(), "quarter resizer returns its source");
  }).out;
  const bool related = down ? dw >= 1 && dh >= 1 && sw == 2 * dw && sh >= 2 * dh
                            : sw >= 2 && sh >= 2 && dw == 2 * sw && dh == 2 * sh;
  if (!related) bvfuzz::CheckSame(out, init, "quarter resizer wrote off its size relation");
  if (related && (!down || sh == 2 * dh)) {
    std::vector<float> via = init;
    ResizeFloatImg_Bilinear(src.data(), via.data(), sw, sh, dw, dh);
    bvfuzz::CheckSame(via, out, "ResizeFloatImg_Bilinear differs from its quarter routine");
  }
}

// Double transposes and the squared norm against their definitions.
void Matrix(FuzzedDataProvider& p) {
  const int rows = bvfuzz::Dim(p, -1, 12), cols = bvfuzz::Dim(p, -1, 40);
  const size_t n = Area(rows, cols);
  const auto d = bvfuzz::Buffer<double>(p, n);
  const auto f = bvfuzz::Buffer<float>(p, n);
  using Doubles = std::vector<double>;
  using Floats = std::vector<float>;
  const int len = p.ConsumeBool() ? static_cast<int>(n) : p.ConsumeIntegralInRange<int>(-3, 0);
  const auto [dt, ft, mt, q] = bvfuzz::TwinSet("transposes or qnorm: targets differ",
                                               [&](Doubles& a, Floats& b, Floats& c, Doubles& r) {
    dMatTransPose(d.data(), a.data(), rows, cols);
    dfMatTranspose(d.data(), b.data(), rows, cols);
    MatTranspose(f.data(), c.data(), rows, cols);
    r[0] = qnorm(f.data(), len);
  }, Doubles(n, -1.0), Floats(n, -1.0f), Floats(n, -1.0f), Doubles(1));
  for (size_t i = 0; i < n; ++i) {
    const size_t at = (i % cols) * rows + i / cols;
    bvfuzz::Check(bvfuzz::SameElement(dt[at], d[i]), "dMatTransPose");
    bvfuzz::Check(bvfuzz::SameElement(ft[at], static_cast<float>(d[i])), "dfMatTranspose");
    bvfuzz::Check(bvfuzz::SameElement(mt[at], f[i]), "MatTranspose");
  }
  double want = 0.0;
  for (int i = len - 1; i >= 0; --i) want += static_cast<double>(f[i] * f[i]);
  bvfuzz::Check(bvfuzz::SameElement(q[0], want), "qnorm");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return bvfuzz::RunFamily(data, size, {Workers, Quarters, Matrix});
}
