// Mode `nv12luma`: rewrites the luma of an NV12 image with one of the two tuned weight sets.
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "bivista/colormatch.h"
#include "tools/sample_scene.h"
#include "tools/tool_image.h"
#include "tools/tool_support.h"

namespace {

constexpr char kMode[] = "bivista_depthcalc_tool nv12luma";

int LumaFail(const std::string& message) { return bvtool::Fail(kMode, message); }

void Help(FILE* out) {
  fprintf(out,
          "usage: %s [--in FILE.nv12 --size WxH [--stride N]] [--weights 0|1] [--out FILE]\n"
          "          [--png FILE] [--verbose]\n"
          "Rebuilds the Y plane of an NV12 image from its colours (colorImageNV12Adjusting).\n"
          "  --weights 0  three weights (R, G, B); 1 four weights (R, G, B and the brightest)\n"
          "  --out FILE   the rewritten NV12 (luma packed, width bytes a row, then the chroma\n"
          "               rows as read)\n"
          "  --png FILE   old luma beside new luma (default nv12luma.png)\n"
          "Without --in, a synthetic 640x480 photo is used.\n",
          kMode);
}

void* HeapMalloc(size_t size, uint64_t, uint64_t) { return malloc(size); }
void HeapFree(void* p, uint64_t, uint64_t) { free(p); }

// Plain full-range BT.601 RGB to NV12, for the built-in picture.
std::vector<uint8_t> RgbToNv12(const std::vector<uint8_t>& rgb, int w, int h) {
  std::vector<uint8_t> nv(static_cast<size_t>(w) * h * 3 / 2);
  auto px = [&](int x, int y, int c) { return static_cast<double>(rgb[(y * w + x) * 3 + c]); };
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      nv[y * w + x] = static_cast<uint8_t>(0.299 * px(x, y, 0) + 0.587 * px(x, y, 1) +
                                           0.114 * px(x, y, 2) + 0.5);
  for (int y = 0; y + 1 < h; y += 2)
    for (int x = 0; x + 1 < w; x += 2) {
      const double r = px(x, y, 0), g = px(x, y, 1), b = px(x, y, 2);
      const double u = 128 - 0.168736 * r - 0.331264 * g + 0.5 * b;
      const double v = 128 + 0.5 * r - 0.418688 * g - 0.081312 * b;
      uint8_t* uv = &nv[static_cast<size_t>(w) * h + (y / 2) * w + x];
      uv[0] = static_cast<uint8_t>(std::min(255.0, std::max(0.0, u + 0.5)));
      uv[1] = static_cast<uint8_t>(std::min(255.0, std::max(0.0, v + 0.5)));
    }
  return nv;
}

}  // namespace

int RunNv12luma(int argc, char** argv) {
  std::string inPath, outPath, pngPath = "nv12luma.png";
  int width = 0, height = 0, stride = 0, weights = 0;
  bool verbose = false;
  using namespace bvtool;
  const int parsed = ParseOptions(
      argc, argv, kMode,
      {Flag("--verbose", &verbose), Text("--in", &inPath), Text("--out", &outPath),
       Text("--png", &pngPath), Size("--size", &width, &height),
       Int("--stride", 1, 65535, &stride), Int("--weights", 0, 1, &weights)},
      Help);
  if (parsed >= 0) return parsed;
  bvtool::SetLogMode(verbose ? bvtool::LogMode::kAll : bvtool::LogMode::kWarnings);
  std::vector<uint8_t> nv12;
  std::string error;
  if (inPath.empty()) {
    width = 640, height = 480, stride = 640;
    std::vector<uint8_t> photo, unused;
    bvtool::MakeTonePair(width, height, &photo, &unused);
    nv12 = RgbToNv12(photo, width, height);
    printf("Built-in picture: a synthetic %dx%d photo as NV12.\n", width, height);
  } else {
    if (width == 0) return LumaFail("--in needs --size WxH");
    if (stride == 0) stride = width;
    if (stride < width) return LumaFail("--stride is below the width");
    if (!bvtool::ReadPlane(inPath, stride, height + (height + 1) / 2, 1, 0, &nv12, &error))
      return LumaFail(error);
  }
  const std::vector<uint8_t> before(nv12.begin(), nv12.begin() + static_cast<size_t>(stride) * height);
  vta_algo_mem_allocator_t heap{HeapMalloc, HeapFree, nullptr};
  const int rc = colorImageNV12Adjusting(nv12.data(), width, height, stride, weights, &heap);
  if (rc != 0) return LumaFail("colorImageNV12Adjusting returned " + std::to_string(rc));
  double oldSum = 0, newSum = 0;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      oldSum += before[static_cast<size_t>(y) * stride + x], newSum += nv12[static_cast<size_t>(y) * width + x];
  const double n = static_cast<double>(width) * height;
  printf("%s weights: mean luma %.1f -> %.1f\n", weights == 0 ? "three" : "four", oldSum / n,
         newSum / n);
  if (!outPath.empty()) {
    FILE* f = fopen(outPath.c_str(), "wb");
    if (f == nullptr || fwrite(nv12.data(), 1, nv12.size(), f) != nv12.size()) {
      if (f != nullptr) fclose(f);
      return LumaFail("cannot write " + outPath);
    }
    fclose(f);
    printf("rewritten NV12: %s\n", outPath.c_str());
  }
  if (!pngPath.empty() && bvtool::PictureSupported()) {
    std::vector<uint8_t> oldY(static_cast<size_t>(width) * height * 3), newY(oldY.size());
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x)
        for (int c = 0; c < 3; ++c) {
          const size_t p = (static_cast<size_t>(y) * width + x) * 3 + c;
          oldY[p] = before[static_cast<size_t>(y) * stride + x];
          newY[p] = nv12[static_cast<size_t>(y) * width + x];
        }
    const auto both = bvtool::SideBySide({&oldY, &newY}, {width, width}, height, 8);
    if (!bvtool::WritePng(pngPath, 2 * width + 8, height, 3, both.data(), &error))
      return LumaFail(error);
    printf("picture: %s (old luma left, new luma right)\n", pngPath.c_str());
  }
  return 0;
}
