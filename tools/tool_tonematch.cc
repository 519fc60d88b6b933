// Mode `tonematch`: tone-matches one image to another and plots what the matching did.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bivista/colormatch.h"
#include "tools/sample_scene.h"
#include "tools/tool_image.h"
#include "tools/tool_support.h"

namespace {

constexpr char kMode[] = "bivista_depthcalc_tool tonematch";

int ToneFail(const std::string& message) { return bvtool::Fail(kMode, message); }

void Help(FILE* out) {
  fprintf(out,
          "usage: %s [--ref REF.png --cor COR.png] [--out OUT.png] [--plot PLOT.png]\n"
          "          [--size WxH] [--verbose]\n"
          "Makes COR take the tone of REF by per-channel histogram matching\n"
          "(imageColorToneMatching). Both PNGs must have the same size and be grey or RGB.\n"
          "Without --ref/--cor a built-in pair is used: one synthetic photo rendered with two\n"
          "tone curves (--size, default 640x480).\n"
          "  --out FILE   the matched image (default: not written)\n"
          "  --plot FILE  per channel: histograms of REF, COR before and after, and the\n"
          "               look-up curve (default tonematch_plot.png)\n",
          kMode);
}

void* HeapMalloc(size_t size, uint64_t, uint64_t) { return malloc(size); }
void HeapFree(void* p, uint64_t, uint64_t) { free(p); }

std::vector<double> Histogram(const std::vector<uint8_t>& img, int channels, int c) {
  std::vector<double> h(256, 0.0);
  for (size_t i = c; i < img.size(); i += channels) h[img[i]] += 1.0;
  return h;
}

double Mean(const std::vector<uint8_t>& img, int channels, int c) {
  double s = 0;
  for (size_t i = c; i < img.size(); i += channels) s += img[i];
  return img.empty() ? 0.0 : s * channels / img.size();
}

// One row per channel: histograms on the left, the look-up curve on the right.
bvtool::Canvas Plot(const std::vector<uint8_t>& ref, const std::vector<uint8_t>& before,
                    const std::vector<uint8_t>& after, int channels,
                    const std::vector<std::vector<uint8_t>>& tables) {
  constexpr int kPanelW = 300, kPanelH = 180, kPad = 12;
  bvtool::Canvas cv(2 * kPanelW + 3 * kPad, channels * (kPanelH + kPad) + kPad, 24);
  const uint8_t frame[3] = {90, 90, 90}, refC[3] = {80, 200, 255}, beforeC[3] = {255, 120, 80},
                afterC[3] = {120, 255, 120}, curveC[3] = {255, 255, 255}, diag[3] = {70, 70, 70};
  const uint8_t tint[3][3] = {{255, 90, 90}, {90, 255, 90}, {110, 140, 255}};
  for (int c = 0; c < channels; ++c) {
    const int y = kPad + c * (kPanelH + kPad);
    const auto hr = Histogram(ref, channels, c), hb = Histogram(before, channels, c),
               ha = Histogram(after, channels, c);
    double top = 1.0;
    for (int i = 0; i < 256; ++i) top = std::max({top, hr[i], hb[i], ha[i]});
    cv.Frame(kPad, y, kPanelW, kPanelH, channels == 3 ? tint[c] : frame);
    cv.Curve(kPad, y, kPanelW, kPanelH, hb.data(), 256, top, beforeC);
    cv.Curve(kPad, y, kPanelW, kPanelH, hr.data(), 256, top, refC);
    cv.Curve(kPad, y, kPanelW, kPanelH, ha.data(), 256, top, afterC);
    const int x = 2 * kPad + kPanelW;
    cv.Frame(x, y, kPanelW, kPanelH, channels == 3 ? tint[c] : frame);
    std::vector<double> identity(256), curve(256);
    for (int i = 0; i < 256; ++i) identity[i] = i, curve[i] = tables[c][i];
    cv.Curve(x, y, kPanelW, kPanelH, identity.data(), 256, 255.0, diag);
    cv.Curve(x, y, kPanelW, kPanelH, curve.data(), 256, 255.0, curveC);
  }
  return cv;
}

}  // namespace

int RunTonematch(int argc, char** argv) {
  std::string refPath, corPath, outPath, plotPath = "tonematch_plot.png";
  int width = 640, height = 480;
  bool verbose = false;
  using namespace bvtool;
  const int parsed = ParseOptions(
      argc, argv, kMode,
      {Flag("--verbose", &verbose), Text("--ref", &refPath), Text("--cor", &corPath),
       Text("--out", &outPath), Text("--plot", &plotPath), Size("--size", &width, &height)},
      Help);
  if (parsed >= 0) return parsed;
  if (!bvtool::PictureSupported()) return ToneFail("this build has no PNG support");
  if (refPath.empty() != corPath.empty()) return ToneFail("give both --ref and --cor, or neither");
  bvtool::SetLogMode(verbose ? bvtool::LogMode::kAll : bvtool::LogMode::kWarnings);
  std::vector<uint8_t> ref, cor;
  int channels = 3;
  std::string error;
  if (refPath.empty()) {
    bvtool::MakeTonePair(width, height, &ref, &cor);
    printf("Built-in pair: one synthetic %dx%d photo with two tone curves (REF gentle gamma, "
           "COR darker, more contrast, colour cast).\n", width, height);
  } else {
    bvtool::PngImage a, b;
    if (!bvtool::ReadPng(refPath, &a, &error) || !bvtool::ReadPng(corPath, &b, &error))
      return ToneFail(error);
    if (a.bits != 8 || b.bits != 8) return ToneFail("16-bit PNGs are not supported here");
    if (a.width != b.width || a.height != b.height || a.channels != b.channels)
      return ToneFail("REF and COR differ in size or channels");
    width = a.width, height = a.height, channels = a.channels;
    ref = std::move(a.px8), cor = std::move(b.px8);
  }
  // The tables, through the stages, for the plot.
  std::vector<int32_t> ints(15 * 256, 0);
  std::vector<std::vector<uint8_t>> tables(3, std::vector<uint8_t>(256));
  image_color_analyze_para para{};
  for (int c = 0; c < 3; ++c) {
    para.refHist[c] = &ints[(0 + c) * 256];
    para.refCumHist[c] = &ints[(3 + c) * 256];
    para.corHist[c] = &ints[(6 + c) * 256];
    para.corCumHist[c] = &ints[(9 + c) * 256];
    para.offset[c] = &ints[(12 + c) * 256];
    para.mapTable[c] = tables[c].data();
  }
  analyzeInputImagePair(ref.data(), cor.data(), width, height, width * channels, channels, &para);
  // The whole pass, as a caller would run it.
  vta_algo_mem_allocator_t heap{HeapMalloc, HeapFree, nullptr};
  std::vector<uint8_t> matched = cor;
  imageColorToneMatching(ref.data(), matched.data(), width, height, width * channels, channels,
                         &heap);
  printf("channel  mean REF  COR before  COR after\n");
  for (int c = 0; c < channels; ++c)
    printf("%7d  %8.1f  %10.1f  %9.1f\n", c, Mean(ref, channels, c), Mean(cor, channels, c),
           Mean(matched, channels, c));
  if (!outPath.empty()) {
    if (!bvtool::WritePng(outPath, width, height, channels, matched.data(), &error))
      return ToneFail(error);
    printf("matched image: %s\n", outPath.c_str());
  }
  if (!plotPath.empty()) {
    if (!Plot(ref, cor, matched, channels, tables).Save(plotPath, &error)) return ToneFail(error);
    printf("plot: %s (left: histograms, blue REF, orange COR before, green COR after; right: "
           "look-up curve, grey the identity)\n", plotPath.c_str());
  }
  return 0;
}
