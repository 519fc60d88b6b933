// `bivista_depthcalc_tool median`: the joint weighted median on a depth map and its guide photo,
// or on the built-in refinement scene, with a false-colour picture of before and after.
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bivista/jwmf.h"
#include "bivista/mthread.h"
#include "tools/sample_scene.h"
#include "tools/tool_image.h"
#include "tools/tool_support.h"

namespace {

constexpr int kSceneW = 640, kSceneH = 480;

constexpr char kMode[] = "bivista_depthcalc_tool median";

int MedianFail(const std::string& message) { return bvtool::Fail(kMode, message); }

void Usage(FILE* out) {
  fprintf(out,
          "usage: bivista_depthcalc_tool median [--depth FILE --guide FILE] [options]\n"
          "Joint weighted median of a depth map guided by a photo (128 depth levels, 64 guide\n"
          "classes). Without --depth/--guide it runs on a built-in %dx%d scene.\n"
          "  --depth FILE     16-bit grey PNG (millimetres) or raw floats with --size\n"
          "  --size WxH       size of a raw float depth file\n"
          "  --guide FILE     8-bit grey or RGB PNG of the same size\n"
          "  --mask FILE      8-bit PNG: filter only where nonzero\n"
          "  --edge-mask      filter only near depth edges (a 7x7 spread above 10 %%)\n"
          "  --keep-mask      use the mask as given (no closing of gaps, no removal of specks)\n"
          "  --mask-area      JWMFFilterImage_MaskArea: then a 3x3 median and snapping of the\n"
          "                   masked pixels to close unmasked values (needs a mask)\n"
          "  --radius N       window radius (default 5)\n"
          "  --threads N      pool workers, 1..4 (default 2)\n"
          "  --out FILE       picture (default: beside the depth file, or jwmf_scene.png)\n"
          "  --raw-out FILE   filtered depth as raw floats\n"
          "  --verbose        every library log line\n",
          kSceneW, kSceneH);
}

void* Malloc(size_t size, uint64_t, uint64_t) { return malloc(size); }
void Free(void* p, uint64_t, uint64_t) { free(p); }

// Pixels whose 7x7 neighbourhood spans more than 10 % in depth.
std::vector<uint8_t> EdgeMask(const std::vector<float>& d, int w, int h) {
  std::vector<uint8_t> m(d.size(), 0);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      float lo = INFINITY, hi = 0;
      for (int yy = std::max(y - 3, 0); yy <= std::min(y + 3, h - 1); ++yy) {
        for (int xx = std::max(x - 3, 0); xx <= std::min(x + 3, w - 1); ++xx) {
          const float v = d[static_cast<size_t>(yy) * w + xx];
          if (v > 0) lo = std::min(lo, v), hi = std::max(hi, v);
        }
      }
      if (hi > 0 && hi > 1.1f * lo) m[static_cast<size_t>(y) * w + x] = 1;
    }
  }
  return m;
}

// Mean absolute error against the truth over pixels that have a measurement.
double MeanError(const std::vector<float>& d, const std::vector<float>& truth) {
  double sum = 0;
  size_t n = 0;
  for (size_t i = 0; i < d.size(); ++i) {
    if (d[i] > 0) sum += fabs(d[i] - truth[i]), ++n;
  }
  return n ? sum / n : 0;
}

std::string Beside(const std::string& path) {
  const size_t dot = path.find_last_of('.');
  const size_t slash = path.find_last_of('/');
  const std::string stem =
      dot != std::string::npos && (slash == std::string::npos || dot > slash) ? path.substr(0, dot)
                                                                              : path;
  return stem + "_median.png";
}

}  // namespace

int RunMedian(int argc, char** argv) {
  std::string depthPath, guidePath, maskPath, outPath, rawOut;
  int w = 0, h = 0, radius = 5, threads = 2;
  bool edgeMask = false, keepMask = false, maskArea = false, verbose = false;
  using namespace bvtool;
  const int parsed = ParseOptions(
      argc, argv, kMode,
      {Text("--depth", &depthPath), Text("--guide", &guidePath), Text("--mask", &maskPath),
       Size("--size", &w, &h), Int("--radius", 1, 64, &radius), Int("--threads", 1, 4, &threads),
       Text("--out", &outPath), Text("--raw-out", &rawOut), Flag("--edge-mask", &edgeMask),
       Flag("--keep-mask", &keepMask), Flag("--mask-area", &maskArea), Flag("--verbose", &verbose)},
      Usage);
  if (parsed >= 0) return parsed;
  if (depthPath.empty() != guidePath.empty()) return MedianFail("give both --depth and --guide");
  if (!maskPath.empty() && edgeMask) return MedianFail("--mask and --edge-mask exclude each other");
  if (!bvtool::PictureSupported()) return MedianFail("this build has no PNG support");

  std::string error;
  std::vector<float> depth, truth;
  std::vector<uint8_t> guideRgb, guide;  // guide: grey plane for the filter
  if (depthPath.empty()) {
    bvtool::RefineScene sc;
    bvtool::MakeRefineScene(kSceneW, kSceneH, &sc);
    w = sc.width, h = sc.height;
    depth = sc.depth, truth = sc.truth, guideRgb = sc.guide;
    if (outPath.empty()) outPath = "jwmf_scene.png";
    printf("Built-in scene %dx%d: a disc, a box and a pole in front of a tilted wall; the\n"
           "measured depth is noisy, has holes and bleeds past the objects' outlines.\n",
           w, h);
  } else {
    bvtool::PngImage png;
    if (w > 0) {
      if (!bvtool::ReadRawFloat(depthPath, w, h, &depth, &error)) return MedianFail(error);
    } else {
      if (!bvtool::ReadPng(depthPath, &png, &error)) return MedianFail(error);
      if (png.bits != 16 || png.channels != 1) {
        return MedianFail(depthPath + ": expected a 16-bit grey PNG (or raw floats with --size)");
      }
      w = png.width, h = png.height;
      depth.assign(png.px16.begin(), png.px16.end());
    }
    bvtool::PngImage g;
    if (!bvtool::ReadPng(guidePath, &g, &error)) return MedianFail(error);
    if (g.width != w || g.height != h || g.bits != 8) {
      return MedianFail(guidePath + ": expected an 8-bit PNG of " + std::to_string(w) + "x" +
                        std::to_string(h));
    }
    if (g.channels == 3) {
      guideRgb = g.px8;
    } else {
      guideRgb.resize(g.px8.size() * 3);
      for (size_t i = 0; i < g.px8.size(); ++i) {
        guideRgb[3 * i] = guideRgb[3 * i + 1] = guideRgb[3 * i + 2] = g.px8[i];
      }
    }
    if (outPath.empty()) outPath = Beside(depthPath);
  }
  const size_t n = static_cast<size_t>(w) * h;
  guide.resize(n);
  for (size_t i = 0; i < n; ++i) {
    const int y = (299 * guideRgb[3 * i] + 587 * guideRgb[3 * i + 1] + 114 * guideRgb[3 * i + 2] +
                   500) / 1000;
    guide[i] = static_cast<uint8_t>(y);
  }
  std::vector<uint8_t> mask;
  if (!maskPath.empty()) {
    bvtool::PngImage m;
    if (!bvtool::ReadPng(maskPath, &m, &error)) return MedianFail(error);
    if (m.width != w || m.height != h || m.bits != 8 || m.channels != 1) {
      return MedianFail(maskPath + ": expected an 8-bit grey PNG of the depth's size");
    }
    mask = m.px8;
  } else if (edgeMask) {
    mask = EdgeMask(depth, w, h);
  }
  if (maskArea && mask.empty()) return MedianFail("--mask-area needs --mask or --edge-mask");
  const std::vector<uint8_t> maskShown = mask;

  bvtool::SetLogMode(verbose ? bvtool::LogMode::kAll : bvtool::LogMode::kWarnings);
  void* pool = MThread_Create(threads, nullptr, nullptr);
  if (pool == nullptr) return MedianFail("cannot start the worker pool");
  const vta_algo_mem_allocator_t allocator = {Malloc, Free, nullptr};
  std::vector<float> out = depth;
  uint8_t* m = mask.empty() ? nullptr : mask.data();
  if (maskArea) {
    std::vector<float> work(4 * n);
    JWMFFilterImage_MaskArea(out.data(), guide.data(), 1, w, h, m, radius, keepMask, pool,
                             threads, &allocator, work.data());
  } else {
    JWMFilterWithImg(out.data(), guide.data(), 1, w, h, m, radius, keepMask, pool, threads,
                     &allocator);
  }
  MThread_Destroy(pool);
  bvtool::SetLogMode(bvtool::LogMode::kWarnings);

  size_t changed = 0;
  for (size_t i = 0; i < n; ++i) changed += out[i] != depth[i];
  printf("  filter       %s, radius %d, %d worker%s%s\n",
         maskArea ? "JWMFFilterImage_MaskArea" : "JWMFilterWithImg", radius, threads,
         threads > 1 ? "s" : "", m ? (keepMask ? ", mask kept" : ", mask cleaned") : "");
  printf("  changed      %zu of %zu pixels\n", changed, n);
  if (!truth.empty()) {
    printf("  mean error   %.1f mm before, %.1f mm after (against the scene's truth)\n",
           MeanError(depth, truth), MeanError(out, truth));
  }
  if (!rawOut.empty()) {
    if (!bvtool::WriteRawFloat(rawOut, out, &error)) return MedianFail(error);
    printf("  raw          %s\n", rawOut.c_str());
  }
  // Guide (with the mask tinted), the input depth and the result, one colour scale.
  float lo = 0, hi = 0;
  bvtool::RobustRange(depth.data(), n, &lo, &hi);
  std::vector<uint8_t> shown = guideRgb;
  if (!maskShown.empty()) {
    const uint8_t tint[3] = {255, 0, 200};
    bvtool::OverlayMask(&shown, maskShown.data(), w, h, tint, 0.35f);
  }
  const std::vector<uint8_t> before = bvtool::FalseColourPlane(depth.data(), w, h, lo, hi);
  const std::vector<uint8_t> after = bvtool::FalseColourPlane(out.data(), w, h, lo, hi);
  const std::vector<uint8_t> pic =
      bvtool::SideBySide({&shown, &before, &after}, {w, w, w}, h, 8);
  if (!bvtool::WritePng(outPath, 3 * w + 16, h, 3, pic.data(), &error)) return MedianFail(error);
  printf("  picture      %s (guide, depth before, depth after)\n", outPath.c_str());
  return 0;
}
