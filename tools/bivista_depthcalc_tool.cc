// Command-line front end of libbivista_disptodepth: runs the depth and shift calculation on a
// built-in sample frame, or on disparity and confidence planes from files.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <chrono>
#include <string>
#include <vector>

#include "bivista/depthcalc.h"
#include "hwy/targets.h"
#include "tools/sample_scene.h"
#include "tools/tool_image.h"
#include "tools/tool_support.h"

namespace {

constexpr const char kProgram[] = "bivista_depthcalc_tool";
constexpr int kDefaultFlags = BIVISTA_CALC_CONFIDENCE | BIVISTA_CALC_DEPTH | BIVISTA_CALC_SHIFT;

// Sample frame: a quarter-size map of the 3968 x 2976 main image, rows padded to 1024 samples.
constexpr int kSampleW = 992, kSampleH = 744, kSampleStride = 1024, kSampleScale = 4;

void PrintBuildInfo() {
  printf("libbivista_disptodepth %s (%s, %s, gcc %d.%d)\n", BIVISTA_VERSION, BIVISTA_TARGET_ARCH,
         BIVISTA_BUILD_TYPE, __GNUC__, __GNUC_MINOR__);
  printf("vector targets on this CPU:");
  for (int64_t t : hwy::SupportedAndGeneratedTargets()) printf(" %s", hwy::TargetName(t));
  printf("\npicture output (--png): %s\n", bvtool::PictureSupported() ? "yes" : "no (no libpng)");
}

void PrintModes(FILE* out);

void PrintUsage(FILE* out) {
  fprintf(out,
          "Usage: %s                 run the calculation on the built-in sample frame\n"
          "       %s [options]       run it on your own planes\n"
          "\n"
          "Input planes (raw, rows of --stride samples; the library's dump files fit as they are):\n"
          "  --disp FILE        disparity plane, quarter pixels\n"
          "  --conf FILE        8-bit confidence plane, same layout\n"
          "  --size WxH         disparity width and height\n"
          "  --stride N         samples per row in the files (default: the width)\n"
          "  --bits 8|16        disparity sample size (default 8)\n"
          "  --offset N         added to every raw disparity sample (default 0)\n"
          "  --frame N          frame of a file the dump appended to several times (default 0)\n"
          "  --calib FILE       calibration XML (see docs/tool.md, tools/sample_calibration.xml)\n"
          "Calculation:\n"
          "  --image WxH        size of the full image the rectangle is on (default: --size)\n"
          "  --rect L,T,R,B     focus rectangle on the full image, inclusive\n"
          "  --mode N           0 first camera, 1 correct the area first, 2 second camera\n"
          "  --direction N      0/1 vertical pair, 2/3 horizontal pair (default 2)\n"
          "  --flags N          2 confidence + 16 depth + 4 shift (default %d)\n"
          "  --xmap FILE --ymap FILE  take the shift from 16-bit maps (eighths of a pixel)\n"
          "Output and debugging:\n"
          "  --png FILE         disparity (false colour) beside confidence, rectangle drawn\n"
          "  --dump-dir DIR     let the library dump its corrected planes (mode 1) under\n"
          "                     DIR/disptrans/00/ for this run\n"
          "  --write-sample DIR write the sample frame as files (disparity, confidence, XML)\n"
          "  --repeat N         calls timed (default 200)\n"
          "  --verbose          show every library log line (default: warnings and errors)\n"
          "  --version          build information\n",
          kProgram, kProgram, kDefaultFlags);
  PrintModes(out);
}

int Fail(const std::string& message) { return bvtool::Fail(kProgram, message); }

using bvtool::ParseInt;
using bvtool::ParseSize;

bool ParseRect(const char* text, BIVISTA_Rect* r) {
  if (text == nullptr) return false;
  int v[4];
  const char* p = text;
  for (int i = 0; i < 4; ++i) {
    const char* comma = strchr(p, ',');
    if ((i < 3) != (comma != nullptr)) return false;
    const std::string part = i < 3 ? std::string(p, comma - p) : std::string(p);
    if (!ParseInt(part.c_str(), -1000000, 1000000, &v[i])) return false;
    p = i < 3 ? comma + 1 : p;
  }
  *r = BIVISTA_Rect{v[0], v[1], v[2], v[3]};
  return true;
}

struct Inputs {
  DisparityType rec{};
  std::vector<uint8_t> disp, conf, xmap, ymap;
  BIVISTA_CalibParam calib{};
  BIVISTA_Rect rect{};
  int imageW = 0, imageH = 0, flags = kDefaultFlags, readMaps = 0;
};

struct Results {
  int rc = 0;
  uint16_t depth = 0;
  int32_t multi = 0;
  uint8_t conf = 0;
  float sx = 0, sy = 0;
  double msPerCall = 0;
};

Results Run(const Inputs& in, int repeat, bvtool::LogMode logMode) {
  Results r;
  auto call = [&]() {
    return Bivista_CalcShift(&in.rec, in.conf.data(), &in.calib, in.rect, in.imageW, in.imageH, 0,
                             nullptr, in.readMaps,
                             reinterpret_cast<const uint16_t*>(in.xmap.data()),
                             reinterpret_cast<const uint16_t*>(in.ymap.data()), in.flags,
                             &r.depth, &r.multi, &r.conf, &r.sx, &r.sy);
  };
  bvtool::SetLogMode(logMode);
  r.rc = call();  // the reported call: its messages are shown
  bvtool::SetLogMode(bvtool::LogMode::kQuiet);
  if (r.rc == 0 && repeat > 0) {
    const auto t0 = std::chrono::steady_clock::now();
    for (int i = 0; i < repeat; ++i) call();
    const auto t1 = std::chrono::steady_clock::now();
    r.msPerCall = std::chrono::duration<double, std::milli>(t1 - t0).count() / repeat;
  }
  bvtool::SetLogMode(logMode);
  return r;
}

BIVISTA_Rect MapRect(const Inputs& in) {
  const float s = static_cast<float>(in.imageW) / in.rec.width;
  return BIVISTA_Rect{static_cast<int>(in.rect.left / s), static_cast<int>(in.rect.top / s),
                      static_cast<int>(in.rect.right / s), static_cast<int>(in.rect.bottom / s)};
}

void UseSample(const bvtool::SampleScene& sc, Inputs* in) {
  in->rec = sc.rec;
  in->conf = sc.conf;
  in->calib = sc.calib;
  in->imageW = sc.width * kSampleScale;
  in->imageH = sc.height * kSampleScale;
  in->disp.assign(reinterpret_cast<const uint8_t*>(sc.disp8.data()),
                  reinterpret_cast<const uint8_t*>(sc.disp8.data()) + sc.disp8.size());
  in->rec.data = in->disp.data();
}

// Full-image rectangle of a map-space box.
BIVISTA_Rect ImageRect(int l, int t, int r, int b) {
  return BIVISTA_Rect{l * kSampleScale, t * kSampleScale, r * kSampleScale + kSampleScale - 1,
                      b * kSampleScale + kSampleScale - 1};
}

int RunSample(int repeat, bool verbose, const char* png) {
  bvtool::SampleScene sc;
  bvtool::MakeSampleScene(kSampleW, kSampleH, kSampleStride, false, kSampleScale, &sc);
  Inputs in;
  UseSample(sc, &in);
  const double baseline = sqrt(sc.calib.translation[0] * sc.calib.translation[0] +
                               sc.calib.translation[1] * sc.calib.translation[1] +
                               sc.calib.translation[2] * sc.calib.translation[2]);
  printf("Sample frame: synthetic dual-camera scene, %dx%d image, %dx%d disparity map\n"
         "(8-bit quarter pixels, stride %d), baseline %.1f mm. Truth: object at %.0f mm\n"
         "(%.0f px disparity), background at %.0f mm (%.0f px), tilted.\n\n",
         in.imageW, in.imageH, sc.width, sc.height, sc.stride, baseline, sc.objectDepth,
         sc.objectDisparity, sc.backgroundDepth, sc.backgroundDisparity);
  const int cx = (sc.objLeft + sc.objRight) / 2, cy = (sc.objTop + sc.objBottom) / 2;
  const int hw = sc.width / 20, hh = sc.height / 20;  // 10% of each side
  struct Area {
    const char* name;
    BIVISTA_Rect rect;
  };
  const Area areas[] = {
      {"object", ImageRect(cx - hw, cy - hh, cx + hw - 1, cy + hh - 1)},
      {"background", ImageRect(sc.width - 4 * hw, sc.height - 4 * hh, sc.width - 2 * hw - 1,
                               sc.height - 2 * hh - 1)},
      {"object edge", ImageRect(sc.objLeft - hw, cy - hh, sc.objLeft + hw - 1, cy + hh - 1)},
  };
  printf("%-12s %-22s %10s %9s %11s %16s %10s\n", "focus area", "rectangle (image px)",
         "confidence", "depth", "multi-depth", "shift x, y", "time/call");
  for (const Area& a : areas) {
    in.rect = a.rect;
    const Results r = Run(in, repeat, verbose ? bvtool::LogMode::kAll : bvtool::LogMode::kWarnings);
    if (r.rc != 0) {
      return Fail("Bivista_CalcShift returned " + std::to_string(r.rc) + " (" +
                  bvtool::ResultMeaning(r.rc) + ")");
    }
    char rect[40], shift[32];
    snprintf(rect, sizeof rect, "%d,%d,%d,%d", a.rect.left, a.rect.top, a.rect.right,
             a.rect.bottom);
    snprintf(shift, sizeof shift, "%+.2f, %+.2f px", r.sx, r.sy);
    printf("%-12s %-22s %6u/255 %6u mm %7d/255 %16s %7.3f ms\n", a.name, rect, r.conf, r.depth,
           r.multi, shift, r.msPerCall);
  }
  printf("\nconfidence: mean confidence byte in the area. depth: K / peak-centred disparity,\n"
         "K = resize factor x focal length x baseline (unit of the baseline). multi-depth:\n"
         "0 = one depth, 255 = strongly mixed. shift: mean displacement of the area into the\n"
         "other camera's image, in disparity-map pixels. Run with --help for your own data.\n");
  if (png != nullptr) {
    in.rect = areas[0].rect;
    std::string error;
    if (!bvtool::WritePicture(png, in.rec, in.conf.data(), MapRect(in), &error)) return Fail(error);
    printf("picture: %s\n", png);
  }
  return 0;
}

bool WriteFile(const std::string& path, const void* data, size_t bytes, std::string* error) {
  FILE* f = fopen(path.c_str(), "wb");
  const bool ok = f != nullptr && fwrite(data, 1, bytes, f) == bytes;
  if (f != nullptr && fclose(f) != 0) return false;
  if (!ok) *error = "cannot write " + path + ": " + strerror(errno);
  return ok;
}

int WriteSample(const std::string& dir) {
  bvtool::SampleScene sc;
  bvtool::MakeSampleScene(kSampleW, kSampleH, kSampleW, false, kSampleScale, &sc);
  mkdir(dir.c_str(), 0777);
  std::string error;
  const std::string disp = dir + "/sample_disp.raw", conf = dir + "/sample_conf.raw";
  const std::string xml = dir + "/sample_calibration.xml";
  if (!WriteFile(disp, sc.disp8.data(), sc.disp8.size(), &error) ||
      !WriteFile(conf, sc.conf.data(), sc.conf.size(), &error)) {
    return Fail(error);
  }
  FILE* f = fopen(xml.c_str(), "w");
  if (f == nullptr) return Fail("cannot write " + xml + ": " + strerror(errno));
  const BIVISTA_CalibParam& c = sc.calib;
  auto list = [&](const double* v, int n) {
    for (int i = 0; i < n; ++i) fprintf(f, "%s%.9g", i ? " " : "", v[i]);
  };
  fprintf(f, "<?xml version=\"1.0\"?>\n<calibration>\n  <camera1 values=\"");
  list(c.camera1.value, 9);
  fprintf(f, "\"/>\n  <camera2 values=\"");
  list(c.camera2.value, 9);
  fprintf(f, "\"/>\n  <translation values=\"");
  list(c.translation, 3);
  fprintf(f, "\"/>\n  <warp form=\"%d\" values=\"", c.warpMatrixForm);
  for (int i = 0; i < 9; ++i) fprintf(f, "%s%.9g", i ? " " : "", c.warpMatrix[i]);
  fprintf(f, "\"/>\n  <rectified width=\"%d\" height=\"%d\"/>\n</calibration>\n",
          c.rectifiedWidth, c.rectifiedHeight);
  if (fclose(f) != 0) return Fail("cannot write " + xml);
  const int cx = (sc.objLeft + sc.objRight) / 2 * kSampleScale;
  const int cy = (sc.objTop + sc.objBottom) / 2 * kSampleScale;
  printf("wrote %s, %s, %s\ntry: %s --disp %s --conf %s --size %dx%d --calib %s \\\n"
         "       --image %dx%d --rect %d,%d,%d,%d\n",
         disp.c_str(), conf.c_str(), xml.c_str(), kProgram, disp.c_str(), conf.c_str(), kSampleW,
         kSampleH, xml.c_str(), kSampleW * kSampleScale, kSampleH * kSampleScale, cx - 200,
         cy - 150, cx + 199, cy + 149);
  return 0;
}

struct Options {
  const char *disp = nullptr, *conf = nullptr, *calib = nullptr, *png = nullptr;
  const char *xmap = nullptr, *ymap = nullptr, *dumpDir = nullptr, *writeSample = nullptr;
  int w = 0, h = 0, stride = 0, bits = 8, offset = 0, frame = 0;
  int imageW = 0, imageH = 0, mode = 0, direction = 2, flags = kDefaultFlags, repeat = 200;
  bool haveRect = false, verbose = false;
  BIVISTA_Rect rect{};
};

int RunFiles(const Options& o) {
  if (o.disp == nullptr || o.conf == nullptr || o.w == 0 || o.calib == nullptr || !o.haveRect) {
    return Fail("real data needs --disp, --conf, --size, --calib and --rect (see --help)");
  }
  if ((o.xmap == nullptr) != (o.ymap == nullptr)) return Fail("--xmap and --ymap go together");
  const int stride = o.stride ? o.stride : o.w;
  if (stride < o.w) return Fail("--stride " + std::to_string(stride) + " is below the width");
  Inputs in;
  std::string error;
  const int bytes = o.bits == 16 ? 2 : 1;
  if (!bvtool::ReadPlane(o.disp, stride, o.h, bytes, o.frame, &in.disp, &error) ||
      !bvtool::ReadPlane(o.conf, stride, o.h, 1, o.frame, &in.conf, &error) ||
      !bvtool::LoadCalibration(o.calib, &in.calib, &error)) {
    return Fail(error);
  }
  if (o.xmap != nullptr) {
    if (!bvtool::ReadPlane(o.xmap, stride, o.h, 2, 0, &in.xmap, &error) ||
        !bvtool::ReadPlane(o.ymap, stride, o.h, 2, 0, &in.ymap, &error)) {
      return Fail(error);
    }
    in.readMaps = 1;
  }
  in.rec.format = o.bits == 16 ? 1 : 0;
  in.rec.data = in.disp.data();
  in.rec.mode = o.mode;
  in.rec.shiftDirection = o.direction;
  in.rec.dispOffset = o.offset;
  in.rec.width = o.w;
  in.rec.height = o.h;
  in.rec.stride = stride;
  in.rect = o.rect;
  in.imageW = o.imageW ? o.imageW : o.w;
  in.imageH = o.imageH ? o.imageH : o.h;
  in.flags = o.flags;
  if (o.dumpDir != nullptr) {
    bvtool::SetRunProperty("disptrans.saveEnable", "1");
    bvtool::SetRunProperty("imagepath", o.dumpDir);
    // The library makes only the last level of DIR/disptrans/00/.
    mkdir(o.dumpDir, 0777);
    mkdir((std::string(o.dumpDir) + "/disptrans").c_str(), 0777);
  }
  const Results r =
      Run(in, o.dumpDir ? 0 : o.repeat, o.verbose ? bvtool::LogMode::kAll : bvtool::LogMode::kWarnings);
  if (r.rc != 0) {
    fprintf(stderr, "%s: Bivista_CalcShift returned %d: %s\n", kProgram, r.rc,
            bvtool::ResultMeaning(r.rc));
    return 1;
  }
  printf("result 0 (success), mode %d, direction %d, flags %d\n", o.mode, o.direction, o.flags);
  if (o.flags & BIVISTA_CALC_CONFIDENCE) printf("  confidence   %u / 255\n", r.conf);
  if (o.flags & BIVISTA_CALC_DEPTH) {
    printf("  depth        %u (unit of the calibration's translation)\n", r.depth);
    printf("  multi-depth  %d / 255 (0 = one depth)\n", r.multi);
  }
  if (o.flags & (BIVISTA_CALC_SHIFT | BIVISTA_CALC_SHIFT_ALT)) {
    printf("  shift        x %+.3f, y %+.3f (disparity-map pixels)\n", r.sx, r.sy);
  }
  if (r.msPerCall > 0) printf("  time         %.3f ms per call (%d calls)\n", r.msPerCall, o.repeat);
  if (o.dumpDir != nullptr) printf("  dump         %s/disptrans/00/\n", o.dumpDir);
  if (o.png != nullptr) {
    if (!bvtool::WritePicture(o.png, in.rec, in.conf.data(), MapRect(in), &error)) {
      return Fail(error);
    }
    printf("  picture      %s\n", o.png);
  }
  return 0;
}

}  // namespace

// Modes beside the depth calculation: `bivista_depthcalc_tool <mode> [options]`, each in its own
// tools/tool_<mode>.cc. A mode prints its own --help.
struct Mode {
  const char* name;
  int (*run)(int argc, char** argv);  // argv[0] is the mode's name
  const char* summary;
};
// One declaration and one row per mode.
int RunSmooth(int argc, char** argv);
int RunMedian(int argc, char** argv);
int RunTonematch(int argc, char** argv);
int RunNv12luma(int argc, char** argv);
static const Mode kModes[] = {
    {"smooth", RunSmooth, "fast global smoother and border mask on a depth map and its photo"},
    {"median", RunMedian, "joint weighted median of a depth map guided by a photo"},
    {"tonematch", RunTonematch, "tone-match one image to another, plot histograms and curves"},
    {"nv12luma", RunNv12luma, "rewrite an NV12 image's luma with the tuned weights"},
    {nullptr, nullptr, nullptr},
};

namespace {
void PrintModes(FILE* out) {
  bool any = false;
  for (const Mode& m : kModes) {
    if (m.name == nullptr) continue;
    if (!any) fprintf(out, "\nOther modes (%s <mode> --help for their options):\n", kProgram);
    any = true;
    fprintf(out, "  %-18s %s\n", m.name, m.summary);
  }
}
}  // namespace

int main(int argc, char** argv) {
  setvbuf(stdout, nullptr, _IOLBF, 0);  // keep results and library messages in order
  if (argc > 1 && argv[1][0] != '-') {
    for (const Mode& m : kModes) {
      if (m.name != nullptr && strcmp(argv[1], m.name) == 0) return m.run(argc - 1, argv + 1);
    }
    return Fail(std::string("unknown mode ") + argv[1] + " (see --help)");
  }
  Options o;
  bool files = false, version = false;
  using bvtool::Value;
  using bvtool::Int;
  // Inputs that make it a run on the user's files.
  auto path = [](const char* name, const char** target, bool* given) {
    return Value(name, [=](const char* v) {
      if (given != nullptr) *given = true;
      return *target = v, true;
    });
  };
  const int parsed = bvtool::ParseOptions(
      argc, argv, kProgram,
      {bvtool::Flag("--version", &version), bvtool::Flag("--verbose", &o.verbose),
       path("--disp", &o.disp, &files), path("--conf", &o.conf, &files),
       path("--calib", &o.calib, &files), path("--xmap", &o.xmap, &files),
       path("--ymap", &o.ymap, &files), path("--png", &o.png, nullptr),
       path("--dump-dir", &o.dumpDir, nullptr), path("--write-sample", &o.writeSample, nullptr),
       Value("--size", [&](const char* v) { return files = true, ParseSize(v, &o.w, &o.h); }),
       bvtool::Size("--image", &o.imageW, &o.imageH),
       Value("--rect", [&](const char* v) { return o.haveRect = true, ParseRect(v, &o.rect); }),
       Int("--stride", 1, 1 << 20, &o.stride),
       Value("--bits", [&](const char* v) {
         return ParseInt(v, 8, 16, &o.bits) && (o.bits == 8 || o.bits == 16);
       }),
       Int("--offset", -65536, 65536, &o.offset), Int("--frame", 0, 1 << 20, &o.frame),
       Int("--mode", -1000, 1000, &o.mode), Int("--direction", -1000, 1000, &o.direction),
       Int("--flags", 0, 0xFFFF, &o.flags), Int("--repeat", 0, 1000000, &o.repeat)},
      PrintUsage);
  if (parsed >= 0) return parsed;
  if (version) {
    PrintBuildInfo();
    return 0;
  }
  if (o.writeSample != nullptr) return WriteSample(o.writeSample);
  if (files || o.haveRect) return RunFiles(o);
  return RunSample(o.repeat, o.verbose, o.png);
}
