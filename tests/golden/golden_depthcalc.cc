// Golden cases of the depth and shift calculation: the entries and the exported stages.
#include <dirent.h>
#include <stdio.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "bivista/depthcalc.h"
#include "bivista/depthcalc_stages.h"
#include "golden/golden.h"
#include "support/platform_capture.h"

namespace {

using bvgolden::Rng;
using bvgolden::Sink;

// A map with a tilted background, two nearer blocks, noise and patches of low confidence.
struct Scene {
  int w, h, stride;
  std::vector<uint8_t> d8, conf;
  std::vector<uint16_t> d16;
  DisparityType rec{};
  BIVISTA_CalibParam calib{};

  Scene(const std::string& name, int width, int height, int str, int format) :
      w(width), h(height), stride(str), d8(size_t(str) * height), conf(size_t(str) * height),
      d16(size_t(str) * height) {
    Rng rng(bvgolden::SeedOf(name));
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < stride; ++x) {
        int v = 60 + x / 3 + y / 5 + rng.Int(-6, 6);
        if (x > w / 4 && x < w / 2 && y > h / 3 && y < 2 * h / 3) v = 150 + rng.Int(-4, 4);
        if (x > 2 * w / 3 && y > h / 2) v = 110 + rng.Int(-20, 20);
        const size_t i = size_t(y) * stride + x;
        d8[i] = uint8_t(std::min(v, 255));
        // 16-bit maps: a few samples past the 160 histogram bins.
        d16[i] = uint16_t(v * 3 / 2 + (rng.Int(0, 40) == 0 ? 700 : 0));
        conf[i] = uint8_t((x / 7 + y / 5) % 9 == 0 ? rng.Int(0, 40) : rng.Int(30, 255));
      }
    }
    rec.format = format;
    rec.data = format ? static_cast<void*>(d16.data()) : static_cast<void*>(d8.data());
    rec.width = w, rec.height = h, rec.stride = stride;
    rec.dispOffset = format ? -13 : 5;
    calib.camera1.value[1] = 1012.5, calib.camera1.value[2] = 1003.25;
    calib.camera2.value[1] = 1498.0, calib.camera2.value[2] = 1507.75;
    calib.translation[0] = 11.5, calib.translation[1] = -0.75, calib.translation[2] = 0.375;
    const float warp[9] = {1.012f, 0.021f, -3.5f, -0.017f, 0.991f, 2.25f, 1.5e-5f, -2.5e-5f, 1.0f};
    std::copy(warp, warp + 9, calib.warpMatrix);
    calib.rectifiedWidth = w + 17, calib.rectifiedHeight = h + 9;
  }
};

struct Out {
  uint16_t depth = 0xBEEF;
  int32_t multi = -7;
  uint8_t conf = 0xAB;
  float sx = -99.0f, sy = -99.0f;
  void Hash(Sink& s, int rc) const {
    s.Value(rc), s.Value(depth), s.Value(multi), s.Value(conf), s.Value(sx), s.Value(sy);
  }
};

struct Size {
  const char* name;
  int w, h, stride, scale;
};
// 4:3 (odd height), 16:9, square and a size without a resize factor.
const Size kSizes[] = {{"124x93", 124, 93, 131, 4}, {"160x90", 160, 90, 160, 2},
                       {"99x99", 99, 99, 103, 3}, {"101x67", 101, 67, 101, 1}};

// Rectangle on the image from fractions of the map.
BIVISTA_Rect Area(const Size& z, double l, double t, double r, double b) {
  return BIVISTA_Rect{int(l * z.w) * z.scale, int(t * z.h) * z.scale, int(r * z.w) * z.scale,
                      int(b * z.h) * z.scale};
}

int Calc(const Scene& sc, const Size& z, BIVISTA_Rect r, int flags, Out* o, int readMaps = 0,
         const uint16_t* xm = nullptr, const uint16_t* ym = nullptr) {
  return Bivista_CalcShift(&sc.rec, sc.conf.data(), &sc.calib, r, z.w * z.scale, z.h * z.scale, 0,
                           nullptr, readMaps, xm, ym, flags, &o->depth, &o->multi, &o->conf,
                           &o->sx, &o->sy);
}

// Every file under dir, by name, with its bytes.
void HashFiles(Sink& s, const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) {
      if (e->d_name[0] != '.') names.push_back(e->d_name);
    }
    closedir(d);
  }
  std::sort(names.begin(), names.end());
  for (const std::string& n : names) {
    const std::string path = dir + "/" + n;
    struct stat st;
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
      s.Text(n + "/");
      HashFiles(s, path);
      continue;
    }
    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    s.Text(n);
    s.Text(bytes);
  }
}

}  // namespace

BVGOLDEN_CASES(depthcalc) {
  // The whole calculation: every size, format, mode, direction and warp form.
  for (const Size& z : kSizes) {
    for (int format = 0; format < 2; ++format) {
      for (int mode = 0; mode < 3; ++mode) {
        for (int form = 0; form < 2; ++form) {
          for (int dir = 0; dir < 5; ++dir) {
            const std::string name = std::string("calc_") + z.name + "_f" + char('0' + format) +
                                     "_m" + char('0' + mode) + "_w" + char('0' + form) + "_d" +
                                     char('0' + dir);
            cases.Add(name, [=](Sink& s) {
              Scene sc(name, z.w, z.h, z.stride, format);
              sc.rec.mode = mode, sc.rec.shiftDirection = dir, sc.calib.warpMatrixForm = form;
              const BIVISTA_Rect areas[] = {Area(z, 0.2, 0.25, 0.6, 0.7),
                                            Area(z, 0.55, 0.1, 0.99, 0.98)};
              for (const BIVISTA_Rect& r : areas) {
                Out o;
                o.Hash(s, Calc(sc, z, r, 2 | 16 | 4, &o));
              }
            });
          }
        }
      }
    }
  }

  // Flags one at a time, the maps, areas inverted on one or both axes (no shift asked).
  for (int format = 0; format < 2; ++format) {
    const std::string name = std::string("calc_flags_f") + char('0' + format);
    cases.Add(name, [=](Sink& s) {
      const Size& z = kSizes[0];
      Scene sc(name, z.w, z.h, z.stride, format);
      Rng rng(7);
      const std::vector<uint16_t> xm = rng.Bytes<uint16_t>(sc.d8.size(), 0, 65535);
      const std::vector<uint16_t> ym = rng.Bytes<uint16_t>(sc.d8.size(), 0, 65535);
      const BIVISTA_Rect r = Area(z, 0.1, 0.2, 0.5, 0.6);
      for (int mode = 0; mode < 3; ++mode) {
        sc.rec.mode = mode;
        for (int flags : {2, 16, 8, 2 | 16}) {
          Out o;
          o.Hash(s, Calc(sc, z, r, flags, &o));
        }
        Out o;
        o.Hash(s, Calc(sc, z, r, 4, &o, 1, xm.data(), ym.data()));
        for (BIVISTA_Rect inv : {BIVISTA_Rect{r.right, r.top, r.left, r.bottom},
                                 BIVISTA_Rect{r.left, r.bottom, r.right, r.top},
                                 BIVISTA_Rect{r.right, r.bottom, r.left, r.top}}) {
          Out p;
          p.Hash(s, Calc(sc, z, inv, 2 | 16, &p));
        }
      }
    });
  }

  // Every refusal: its code, its line, outputs untouched.
  cases.Add("calc_refusals", [](Sink& s) {
    const Size& z = kSizes[0];
    Scene sc("calc_refusals", z.w, z.h, z.stride, 0);
    const BIVISTA_Rect r = Area(z, 0.1, 0.2, 0.5, 0.6);
    const int iw = z.w * z.scale, ih = z.h * z.scale;
    Out o;
    const uint16_t map[1] = {0};
    auto call = [&](const DisparityType* d, const uint8_t* conf, const BIVISTA_CalibParam* cal,
                    BIVISTA_Rect a, int w, int h, int req, int readMaps, const uint16_t* xm,
                    int flags, uint16_t* dep, int32_t* multi, uint8_t* c, float* sx) {
      o.Hash(s, Bivista_CalcShift(d, conf, cal, a, w, h, req, nullptr, readMaps, xm, map, flags,
                                  dep, multi, c, sx, &o.sy));
    };
    const uint8_t* conf = sc.conf.data();
    call(&sc.rec, nullptr, &sc.calib, r, iw, ih, 0, 0, map, 22, &o.depth, &o.multi, &o.conf, &o.sx);
    call(&sc.rec, conf, nullptr, r, iw, ih, 0, 0, map, 22, &o.depth, &o.multi, &o.conf, &o.sx);
    DisparityType noData = sc.rec;
    noData.data = nullptr;
    call(&noData, conf, &sc.calib, r, iw, ih, 0, 0, map, 22, &o.depth, &o.multi, &o.conf, &o.sx);
    call(&sc.rec, conf, &sc.calib, r, iw, ih, 0, 0, map, 2, &o.depth, &o.multi, nullptr, &o.sx);
    call(&sc.rec, conf, &sc.calib, r, iw, ih, 0, 0, map, 16, &o.depth, nullptr, &o.conf, &o.sx);
    call(&sc.rec, conf, &sc.calib, r, iw, ih, 1, 0, map, 16, &o.depth, &o.multi, &o.conf, &o.sx);
    call(&sc.rec, conf, &sc.calib, r, iw, ih, 0, 0, map, 8, &o.depth, &o.multi, &o.conf, nullptr);
    call(&sc.rec, conf, &sc.calib, r, iw, ih, 0, 0, map, 4, nullptr, &o.multi, &o.conf, &o.sx);
    call(&sc.rec, conf, &sc.calib, r, iw, ih, 0, 1, nullptr, 4, &o.depth, &o.multi, &o.conf, &o.sx);
    const int bads[][3] = {{0, 93, 131}, {3969, 93, 4000}, {124, 2977, 131}, {124, 93, 123}};
    for (const auto& bad : bads) {
      DisparityType d = sc.rec;
      d.width = bad[0], d.height = bad[1], d.stride = bad[2];
      call(&d, conf, &sc.calib, r, iw, ih, 0, 0, map, 22, &o.depth, &o.multi, &o.conf, &o.sx);
    }
    const int sizes[][2] = {{0, 372}, {3969, 372}, {496, 0}, {496, 2977}, {496, 373}};
    for (const auto& wh : sizes) {
      call(&sc.rec, conf, &sc.calib, r, wh[0], wh[1], 0, 0, map, 22, &o.depth, &o.multi, &o.conf,
           &o.sx);
    }
    for (BIVISTA_Rect a : {BIVISTA_Rect{5, 9, 40, ih}, BIVISTA_Rect{5, 9, 40, 9},
                           BIVISTA_Rect{5, 9, 5, 30}, BIVISTA_Rect{-1, 9, 40, 30},
                           BIVISTA_Rect{5, -2, 40, 30}, BIVISTA_Rect{5, 9, iw, 30}}) {
      call(&sc.rec, conf, &sc.calib, a, iw, ih, 0, 0, map, 22, &o.depth, &o.multi, &o.conf,
           &o.sx);
    }
  });

  // Singular and degenerate warps: the shift fails with its messages, or guards z.
  cases.Add("calc_warps", [](Sink& s) {
    const Size& z = kSizes[0];
    const BIVISTA_Rect r = Area(z, 0.1, 0.2, 0.5, 0.6);
    const float warps[][9] = {{1, 2, 3, 2, 4, 6, 0, 0, 1},
                              {1, 0, 0, 0, 1, 0, 0, 0, 0},
                              {1, 0, 0, 0, 1, 0, -0.02f, 0, 1.4f}};
    for (int mode = 0; mode < 3; ++mode) {
      for (int form = 0; form < 2; ++form) {
        for (const auto& w : warps) {
          Scene sc("calc_warps", z.w, z.h, z.stride, 0);
          sc.rec.mode = mode, sc.calib.warpMatrixForm = form, sc.rec.shiftDirection = 1;
          std::copy(w, w + 9, sc.calib.warpMatrix);
          Out o;
          o.Hash(s, Calc(sc, z, r, 4, &o));
        }
      }
    }
    Scene sc("calc_warps", z.w, z.h, z.stride, 0);
    sc.calib.rectifiedWidth = 0;
    Out o;
    o.Hash(s, Calc(sc, z, r, 4, &o));
  });

  // Mode 1 with the dump on: files, the frame the analysis then reads, both formats.
  for (int format = 0; format < 2; ++format) {
    const std::string name = std::string("calc_dump_f") + char('0' + format);
    cases.Add(name, [=](Sink& s) {
      const Size& z = kSizes[0];
      Scene sc(name, z.w, z.h, z.stride, format);
      sc.rec.mode = 1;
      bvtest::SetProperty("disptrans.saveEnable", "1");
      bvtest::SetProperty("imagepath", bvgolden::TempDir());
      mkdir((bvgolden::TempDir() + "/disptrans").c_str(), 0777);
      Out o;
      o.Hash(s, Calc(sc, z, Area(z, 0.2, 0.25, 0.6, 0.7), 2 | 16 | 4, &o));
      o.Hash(s, Calc(sc, z, Area(z, 0.5, 0.2, 0.6, 0.9), 2 | 16, &o));
      HashFiles(s, bvgolden::TempDir());
      bvtest::SetProperty("imagepath", bvgolden::TempDir() + "/./x");
      o.Hash(s, Calc(sc, z, Area(z, 0.5, 0.2, 0.6, 0.9), 16, &o));
    });
  }

  cases.Add("create_destroy", [](Sink& s) {
    vta_algo_mem_allocator_t fx{[](size_t, uint64_t, uint64_t) -> void* { return nullptr; },
                                [](void*, uint64_t, uint64_t) {},
                                [](uint64_t, uint64_t) -> void* { return nullptr; }};
    vta_algo_mem_allocator_t half = fx;
    half.free = nullptr;
    int gpu = 0;
    const BIVISTA_DepthCalc_Param params[] = {
        {3, 4000, 3000, 4000, &fx, &gpu}, {2, 4000, 3000, 4000, &fx, &gpu},
        {3, 6529, 3000, 7000, &fx, &gpu}, {3, 4000, 4897, 4000, &fx, &gpu},
        {3, 4000, 3000, 3999, &fx, &gpu}, {3, 4000, 3000, 4000, nullptr, &gpu},
        {3, 4000, 3000, 4000, &half, &gpu}, {3, 4000, 3000, 4000, &fx, nullptr}};
    for (const auto& p : params) {
      uint64_t handle = 77;
      s.Value(BIVISTA_DepthCalc_Create(&p, &handle));
      s.Value(handle);
    }
    uint64_t handle = 77;
    s.Value(BIVISTA_DepthCalc_Create(nullptr, &handle));
    s.Value(BIVISTA_DepthCalc_Create(&params[0], nullptr));
    s.Value(BIVISTA_DepthCalc_Destroy(nullptr));
    s.Value(BIVISTA_DepthCalc_Destroy(&handle));
    handle = 5;
    s.Value(BIVISTA_DepthCalc_Destroy(&handle));
    s.Value(handle);
  });

  // The stages on their own, on areas in map coordinates.
  for (int format = 0; format < 2; ++format) {
    const std::string name = std::string("stages_f") + char('0' + format);
    cases.Add(name, [=](Sink& s) {
      Scene sc(name, 97, 61, 103, format);
      const int stride = sc.stride;
      struct A { int l, t, w, h; };
      for (const A& a : {A{0, 0, 97, 61}, A{13, 7, 41, 29}, A{60, 40, 37, 21}, A{3, 5, 1, 1}}) {
        const int off = a.l + a.t * stride;
        for (int offset : {-300, 0, 37}) {
          DisparityType rec = sc.rec;
          rec.dispOffset = offset;
          for (int win : {1, 5, 17, 41}) {
            float res[4] = {-1, -2, -3, -4};
            s.Value(D2DataAnalysisAFDisparity_New(rec, stride, a.w, a.h, off, res,
                                                  std::min(win, a.w), std::min(win, a.h),
                                                  sc.conf.data()));
            s.Values(res, 4);
          }
          float res[4] = {-1, -2, -3, -4};
          s.Value(analysisAFDepth(rec, stride, a.w, a.h, off, res, 123.0f, sc.conf.data()));
          s.Values(res, 4);
          s.Value(D2AnalysisAFMultiDepth(rec, stride, a.w, a.h, off));
        }
        const BIVISTA_Rect r{a.l, a.t, a.l + a.w - 1, a.t + a.h - 1};
        std::vector<uint8_t> oc(sc.conf.size(), 0x5A), o8(sc.d8.size(), 0xA5);
        std::vector<uint16_t> o16(sc.d16.size(), 0xA5A5);
        CorrectFocusArea(sc.rec, sc.conf.data(), &r,
                         format ? static_cast<void*>(o16.data()) : o8.data(), oc.data());
        s.Values(oc);
        if (format) s.Values(o16); else s.Values(o8);
      }
    });
  }

  cases.Add("stages_dump", [](Sink& s) {
    Scene sc("stages_dump", 45, 31, 48, 0);
    const std::string dir = bvgolden::TempDir();
    bvtest::SetProperty("imagepath", dir);
    SaveDispTransImage(sc.d8.data(), sc.conf.data(), 45, 31, 48, BIVISTA_Rect{3, 4, 20, 25});
    mkdir((dir + "/disptrans").c_str(), 0777);
    SaveDispTransImage(sc.d8.data(), sc.conf.data(), 45, 31, 48, BIVISTA_Rect{3, 4, 20, 25});
    SaveDispTransImage(sc.d8.data(), nullptr, 45, 31, 48, BIVISTA_Rect{10, 2, 40, 9});
    SaveDispTransImage(nullptr, sc.conf.data(), 45, 31, 48, BIVISTA_Rect{10, 2, 40, 9});
    SaveDispTransImage(sc.d8.data(), sc.conf.data(), 45, 31, 48, BIVISTA_Rect{3, 4, 3, 4});
    s.Values(sc.d8);
    s.Value(writeFile((dir + "/w.raw").c_str(), sc.conf.data(), 7, 5, 48));
    s.Value(writeFile((dir + "/w.raw").c_str(), sc.conf.data(), -3, 2, 48));
    s.Value(writeFile((dir + "/../w.raw").c_str(), sc.conf.data(), 7, 5, 48) != 0);
    s.Value(writeFile((dir + "/none/w.raw").c_str(), sc.conf.data(), 7, 5, 48) != 0);
    HashFiles(s, dir);
  });
}
