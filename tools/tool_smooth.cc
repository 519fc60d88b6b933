// Mode `smooth`: the fast global smoother and the border mask on a depth or disparity map and its
// guide photo, or on the built-in refinement scene, with before/after pictures.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "bivista/bordermask.h"
#include "bivista/fgs.h"
#include "bivista/mthread.h"
#include "tools/sample_scene.h"
#include "tools/tool_image.h"
#include "tools/tool_support.h"

int RunSmooth(int argc, char** argv);

namespace {

constexpr char kMode[] = "bivista_depthcalc_tool smooth";

struct SmoothOptions {
  const char* depth = nullptr;
  const char* guide = nullptr;
  const char* out = "smooth";
  int w = 0, h = 0;  // raw float input
  double lambda = 100, sigma = 8;
  int iterations = 3, threads = 2;
  bool maskBorders = false, keepHoles = false, verbose = false;
};

int Fail(const std::string& message) { return bvtool::Fail(kMode, message); }

void PrintUsage(FILE* out) {
  fprintf(out,
      "usage: %s [--depth FILE --guide FILE] [options]\n"
      "Smooths a depth or disparity map under the edges of its guide photo (fast global smoother)\n"
      "and marks its borders (relative gradient, closed mask). Without files it runs on a built-in\n"
      "scene of objects at known depths and reports the error against the truth.\n\n"
      "  --depth FILE      8- or 16-bit grey PNG, or raw native floats with --size\n"
      "  --size WxH        size of a raw float depth file\n"
      "  --guide FILE      RGB PNG of the same size\n"
      "  --lambda X        smoothing strength (default 100)\n"
      "  --sigma X         colour difference that still counts as alike (default 8)\n"
      "  --iterations N    row and column pass pairs (default 3)\n"
      "  --threads N       workers (default 2; 1 runs on the calling thread)\n"
      "  --mask-borders    hold the border-mask pixels: they couple weakly whatever the photo\n"
      "  --keep-holes      pass values of 0 (no measurement) on as they are; by default they are\n"
      "                    filled from their row first (the relative gradient divides by the value)\n"
      "  --out PREFIX      output prefix (default smooth): PREFIX_overview.png (photo, before,\n"
      "                    after, mask), PREFIX_after.png, PREFIX_mask.png, PREFIX_after.raw\n"
      "  --verbose         every library log line\n",
      kMode);
}

double Ms(const timespec& a, const timespec& b) {
  return (b.tv_sec - a.tv_sec) * 1e3 + (b.tv_nsec - a.tv_nsec) * 1e-6;
}

void* Malloc(size_t size, uint64_t, uint64_t) { return malloc(size); }
void Free(void* p, uint64_t, uint64_t) { free(p); }

bool LoadInputs(const SmoothOptions& o, int* w, int* h, std::vector<float>* depth,
                std::vector<uint8_t>* guide, std::string* error) {
  const std::string path = o.depth;
  const bool png = path.size() > 4 && path.compare(path.size() - 4, 4, ".png") == 0;
  if (png) {
    bvtool::PngImage img;
    if (!bvtool::ReadPng(path, &img, error)) return false;
    if (img.channels != 1) return (*error = path + ": depth PNG must be grey"), false;
    *w = img.width, *h = img.height;
    depth->resize(static_cast<size_t>(*w) * *h);
    for (size_t i = 0; i < depth->size(); ++i) {
      (*depth)[i] = img.bits == 16 ? img.px16[i] : img.px8[i];
    }
  } else {
    if (o.w < 1) return (*error = "a raw float depth file needs --size WxH"), false;
    *w = o.w, *h = o.h;
    if (!bvtool::ReadRawFloat(path, *w, *h, depth, error)) return false;
  }
  bvtool::PngImage g;
  if (!bvtool::ReadPng(o.guide, &g, error)) return false;
  if (g.channels != 3 || g.width != *w || g.height != *h) {
    *error = std::string(o.guide) + ": guide must be an RGB PNG of " + std::to_string(*w) + "x" +
             std::to_string(*h);
    return false;
  }
  *guide = g.px8;
  return true;
}

// Replaces every value of 0 by the nearest valid one before it in its row (after it at the row's
// start). Returns how many were filled.
size_t FillHoles(std::vector<float>* d, int w, int h) {
  size_t filled = 0;
  for (int y = 0; y < h; ++y) {
    float* row = d->data() + static_cast<size_t>(y) * w;
    float last = 0;
    for (int x = 0; x < w && last == 0; ++x) last = row[x];
    for (int x = 0; x < w; ++x) {
      if (row[x] == 0) {
        row[x] = last;
        ++filled;
      } else {
        last = row[x];
      }
    }
  }
  return filled;
}

// Mean absolute error against the truth over valid pixels, inside objects and near outlines.
void ReportErrors(const bvtool::RefineScene& sc, const std::vector<float>& before,
                  const std::vector<float>& after) {
  double sum[2][2] = {}, count[2] = {};
  const int w = sc.width;
  for (int y = 2; y < sc.height - 2; ++y) {
    for (int x = 2; x < w - 2; ++x) {
      const size_t i = static_cast<size_t>(y) * w + x;
      if (before[i] <= 0) continue;
      bool edge = false;
      for (int d = -2; d <= 2; ++d) {
        edge = edge || sc.truth[i + d] != sc.truth[i] || sc.truth[i + d * w] != sc.truth[i];
      }
      sum[edge][0] += std::fabs(before[i] - sc.truth[i]);
      sum[edge][1] += std::fabs(after[i] - sc.truth[i]);
      count[edge] += 1;
    }
  }
  printf("mean |error| against the truth   before      after\n");
  const char* names[2] = {"inside objects", "within 2 px of an outline"};
  for (int e = 0; e < 2; ++e) {
    printf("  %-28s %7.1f mm %7.1f mm\n", names[e], sum[e][0] / std::max(1.0, count[e]),
           sum[e][1] / std::max(1.0, count[e]));
  }
}

}  // namespace

int RunSmooth(int argc, char** argv) {
  SmoothOptions o;
  using namespace bvtool;
  auto path = [](const char* name, const char** target) {
    return Value(name, [target](const char* v) { return *target = v, true; });
  };
  const int parsed = ParseOptions(
      argc, argv, kMode,
      {Flag("--mask-borders", &o.maskBorders), Flag("--verbose", &o.verbose),
       Flag("--keep-holes", &o.keepHoles), path("--depth", &o.depth), path("--guide", &o.guide),
       path("--out", &o.out), Size("--size", &o.w, &o.h), Float("--lambda", 0.0, 1e6, &o.lambda),
       Float("--sigma", 0.01, 1e4, &o.sigma), Int("--iterations", 1, 20, &o.iterations),
       Int("--threads", 1, 4, &o.threads)},
      PrintUsage);
  if (parsed >= 0) return parsed;
  if ((o.depth == nullptr) != (o.guide == nullptr)) return Fail("give both --depth and --guide");
  bvtool::SetLogMode(o.verbose ? bvtool::LogMode::kAll : bvtool::LogMode::kWarnings);

  int w = 0, h = 0;
  std::vector<float> depth;
  std::vector<uint8_t> guide;
  bvtool::RefineScene sc;
  std::string error;
  if (o.depth != nullptr) {
    if (!LoadInputs(o, &w, &h, &depth, &guide, &error)) return Fail(error);
  } else {
    bvtool::MakeRefineScene(640, 480, &sc);
    w = sc.width, h = sc.height;
    depth = sc.depth;
    guide = sc.guide;
    printf("Built-in scene: %dx%d photo and measured depth (mm) of a disc at %.0f, a box at %.0f\n"
           "and a pole at %.0f in front of a wall from %.0f to %.0f; 1.5 %% noise, holes, edges\n"
           "bleeding past the outlines. Run with --help for your own files.\n\n",
           w, h, sc.discDepth, sc.boxDepth, sc.poleDepth, sc.wallNear, sc.wallFar);
  }
  const size_t n = static_cast<size_t>(w) * h;
  const std::vector<float> measured = depth;
  if (!o.keepHoles) printf("holes filled   %zu\n", FillHoles(&depth, w, h));
  void* pool = o.threads > 1 ? MThread_Create(o.threads, nullptr, nullptr) : nullptr;
  if (o.threads > 1 && pool == nullptr) return Fail("could not start the worker threads");

  std::vector<float> gradient(n);
  std::vector<uint8_t> border(n), scratch(n), hold(n, 0);
  timespec t0, t1, t2;
  clock_gettime(CLOCK_MONOTONIC, &t0);
  getDataGradientAndBorderMask(depth.data(), nullptr, w, h, 0, border.data(), gradient.data(),
                               scratch.data(), pool, o.threads);
  clock_gettime(CLOCK_MONOTONIC, &t1);
  if (o.maskBorders) hold = border;
  const vta_algo_mem_allocator_t table = {Malloc, Free, nullptr};
  std::vector<float> after = depth;
  FGSFilter(hold.data(), after.data(), guide.data(), 0, h, w, o.iterations, 3, pool, o.threads,
            &table, static_cast<float>(o.sigma), static_cast<float>(o.lambda));
  clock_gettime(CLOCK_MONOTONIC, &t2);
  if (pool != nullptr) MThread_Destroy(pool);

  size_t marked = 0;
  for (uint8_t m : border) marked += m != 0;
  printf("border mask    %8.2f ms  %zu of %zu pixels marked (%.1f %%)\n", Ms(t0, t1), marked, n,
         100.0 * marked / n);
  printf("smoother       %8.2f ms  lambda %g, sigma %g, %d iterations, %d thread(s)%s\n\n",
         Ms(t1, t2), o.lambda, o.sigma, o.iterations, o.threads,
         o.maskBorders ? ", borders held" : "");
  if (o.depth == nullptr) ReportErrors(sc, measured, after);

  const std::string prefix = o.out;
  if (!bvtool::WriteRawFloat(prefix + "_after.raw", after, &error)) return Fail(error);
  if (!bvtool::PictureSupported()) {
    printf("\n  %s_after.raw (pictures need libpng, not in this build)\n", prefix.c_str());
    return 0;
  }
  float lo = 0, hi = 0;
  bvtool::RobustRange(measured.data(), n, &lo, &hi);
  const std::vector<uint8_t> inPic = bvtool::FalseColourPlane(measured.data(), w, h, lo, hi);
  const std::vector<uint8_t> outPic = bvtool::FalseColourPlane(after.data(), w, h, lo, hi);
  std::vector<uint8_t> maskPic = guide;
  const uint8_t red[3] = {255, 40, 40};
  bvtool::OverlayMask(&maskPic, border.data(), w, h, red, 0.7f);
  const std::vector<uint8_t> overview =
      bvtool::SideBySide({&guide, &inPic, &outPic, &maskPic}, {w, w, w, w}, h, 8);
  const struct {
    std::string name;
    int width;
    const std::vector<uint8_t>* px;
  } files[] = {{prefix + "_overview.png", 4 * w + 24, &overview},
               {prefix + "_after.png", w, &outPic},
               {prefix + "_mask.png", w, &maskPic}};
  for (const auto& f : files) {
    if (!bvtool::WritePng(f.name, f.width, h, 3, f.px->data(), &error)) return Fail(error);
    printf("\n  %s", f.name.c_str());
  }
  printf("\n  %s_after.raw\n", prefix.c_str());
  return 0;
}
