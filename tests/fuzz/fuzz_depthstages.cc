// The calculation's exported stages called directly: the window analysis, the grown-window
// analysis, the multi-depth degree, the focus-area correction, the debug dump and writeFile, on
// planes of exactly the samples the area names (their stated precondition) with any stride,
// offset, sample format, disparity offset, window and area shape (empty and inverted ones too).
// The best and the lowest vector target must agree; the correction writes only inside its area.
#include <limits.h>
#include <stdio.h>

#include <vector>

#include "bivista/depthcalc_stages.h"
#include "support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider p(data, size);
  const int stage = p.ConsumeIntegralInRange<int>(0, 5);
  const int bytes = p.ConsumeBool() ? 2 : 1;
  DisparityType rec{};
  rec.format = bytes == 2 ? (p.ConsumeBool() ? 1 : bvfuzz::AnyInt(p) | 1) : 0;
  rec.dispOffset = p.ConsumeBool() ? bvfuzz::AnyInt(p) : p.ConsumeIntegralInRange<int>(-64, 64);
  const int W = bvfuzz::Dim(p, 1, 96), H = bvfuzz::Dim(p, 1, 48);
  const int S = W + bvfuzz::Dim(p, 0, 40);
  rec.width = W, rec.height = H, rec.stride = S;
  const size_t n = static_cast<size_t>(H - 1) * S + W;
  // An area inside the map; sides of zero or below are empty areas.
  const int left = p.ConsumeIntegralInRange<int>(0, W - 1);
  const int top = p.ConsumeIntegralInRange<int>(0, H - 1);
  const int w = p.ConsumeIntegralInRange<int>(-2, W - left);
  const int h = p.ConsumeIntegralInRange<int>(-2, H - top);
  const int winW = p.ConsumeIntegralInRange<int>(-2, w > 0 ? w : 0);
  const int winH = p.ConsumeIntegralInRange<int>(-2, h > 0 ? h : 0);
  const float K = p.ConsumeFloatingPoint<float>();
  const int rowBytes = p.ConsumeIntegralInRange<int>(-3, 64);
  const int rows = p.ConsumeIntegralInRange<int>(0, 8);
  const int fileStride = (rowBytes > 0 ? rowBytes : 0) + p.ConsumeIntegralInRange<int>(0, 9);
  const bool refusedPath = p.ConsumeBool();
  bvfuzz::SetProperty("imagepath", "/nonexistent/./fuzz");

  const std::vector<uint8_t> disp0 = bvfuzz::Buffer<uint8_t>(p, n * bytes);
  std::vector<uint8_t> conf0 = bvfuzz::Buffer<uint8_t>(p, n);
  const BIVISTA_Rect area{left, top, left + w - 1, top + h - 1};
  const int offset = top * S + left;

  using Floats = std::vector<float>;
  bvfuzz::TwinSet("best and lowest target differ", [&](std::vector<uint8_t>& disp,
                                                       std::vector<uint8_t>& conf, Floats& result,
                                                       std::vector<int>& rc, std::vector<std::string>& log) {
    bvfuzz::ClearLog();
    DisparityType call = rec;
    call.data = disp.data();
    switch (stage) {
      case 0:
        rc[0] = D2DataAnalysisAFDisparity_New(call, S, w, h, offset, result.data(), winW, winH,
                                              conf0.data());
        break;
      case 1: rc[0] = analysisAFDepth(call, S, w, h, offset, result.data(), K, conf0.data()); break;
      case 2: rc[0] = D2AnalysisAFMultiDepth(call, S, w, h, offset); break;
      case 3: {
        // Outputs start as a pattern; everything outside the area must keep it.
        std::vector<uint8_t> outDisp(n * bytes, 0x5A), outConf(n, 0xA5);
        CorrectFocusArea(call, conf0.data(), &area, outDisp.data(), outConf.data());
        for (size_t i = 0; i < n; ++i) {
          const int y = static_cast<int>(i / S), x = static_cast<int>(i % S);
          if (y >= top && y < top + h && x >= left && x < left + w) continue;
          bvfuzz::Check(outConf[i] == 0xA5, "correction wrote confidence outside its area");
          for (int b = 0; b < bytes; ++b) {
            bvfuzz::Check(outDisp[i * bytes + b] == 0x5A,
                          "correction wrote disparity outside its area");
          }
        }
        disp = outDisp;
        conf = outConf;
        break;
      }
      case 4:
        // The dump paints its frame into an 8-bit plane; the writes are refused by the root.
        SaveDispTransImage(bytes == 1 ? disp.data() : nullptr, conf0.data(), W, H, S, area);
        break;
      default: {
        const size_t fileBytes =
            rows > 0 && rowBytes > 0 ? static_cast<size_t>(rows - 1) * fileStride + rowBytes : 0;
        std::vector<uint8_t> file(disp0.begin(), disp0.begin() + std::min(fileBytes, disp0.size()));
        file.resize(fileBytes, 0x33);
        rc[0] = writeFile(refusedPath ? "/tmp/./fuzz_depthstages" : "/dev/null", file.data(),
                          rowBytes, rows, fileStride);
      }
    }
    log = bvfuzz::LogLines();
  }, disp0, conf0, Floats{-1.0f, -2.0f, -3.0f, -4.0f}, std::vector<int>(1, 0), std::vector<std::string>());
  return 0;
}
