// The calculation interface: create/destroy, then Bivista_CalcShift with every field of the
// disparity record, the rectangle (inverted ones included), sizes, flags, calibration (singular
// and near-singular warps), read maps, 8 and 16 bit, mode 1 and strides far above the width.
// Planes are sized exactly (huge strides: address space reserved, only touched rows backed, a
// guard page after the last sample); refusals leave every output untouched, and the best and
// the lowest vector target give the same outputs, code and log.
#include <sys/mman.h>
#include <unistd.h>

#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "bivista/depthcalc.h"
#include "support.h"

namespace {

// A plane of exactly n elements whose rows (stride apart) hold fuzzed samples. Small planes live
// on the heap (AddressSanitizer sees every byte); large ones in reserved address space ending at
// an inaccessible page.
template <class T>
class Plane {
 public:
  Plane(const std::vector<uint8_t>& bytes, size_t n, int width, int height, size_t stride)
      : n_(n) {
    if (n * sizeof(T) <= kHeapLimit) {
      heap_.resize(n);
      data_ = heap_.data();
    } else {
      const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
      const size_t used = (n * sizeof(T) + page - 1) / page * page;
      map_ = used + page;
      base_ = mmap(nullptr, map_, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
      if (base_ == MAP_FAILED) {
        base_ = nullptr;
        return;
      }
      mprotect(static_cast<uint8_t*>(base_) + used, page, PROT_NONE);
      data_ = reinterpret_cast<T*>(static_cast<uint8_t*>(base_) + used - n * sizeof(T));
    }
    pattern_.resize(width * sizeof(T) + 256);
    for (size_t i = 0; i < pattern_.size(); ++i) {
      pattern_[i] = bytes.empty() ? static_cast<uint8_t>(i * 37u) : bytes[i % bytes.size()];
    }
    for (int y = 0; y < height; ++y) {
      memcpy(data_ + static_cast<size_t>(y) * stride, pattern_.data() + (y * 7) % 256,
             width * sizeof(T));
    }
  }
  ~Plane() {
    if (base_ != nullptr) munmap(base_, map_);
  }
  T* data() { return data_; }
  const std::vector<uint8_t>& pattern() const { return pattern_; }
  bool ok() const { return data_ != nullptr; }

 private:
  static constexpr size_t kHeapLimit = size_t{256} << 10;
  size_t n_;
  std::vector<T> heap_;
  std::vector<uint8_t> pattern_;
  void* base_ = nullptr;
  size_t map_ = 0;
  T* data_ = nullptr;
};

struct Result {
  int rc = 0;
  uint16_t depth = 0xBEEF;
  int32_t multi = -7;
  uint8_t conf = 0xAB;
  float sx = -99.0f, sy = -99.0f;
  std::vector<std::string> log;
  bool operator==(const Result& o) const {
    return rc == o.rc && depth == o.depth && multi == o.multi && conf == o.conf &&
           bvfuzz::SameElement(sx, o.sx) && bvfuzz::SameElement(sy, o.sy) && log == o.log;
  }
};

void FuzzCreateDestroy(FuzzedDataProvider& p) {
  vta_algo_mem_allocator_t table = {nullptr, nullptr, nullptr};
  const uint8_t set = p.ConsumeIntegral<uint8_t>();
  if (set & 1) table.malloc = [](size_t, uint64_t, uint64_t) -> void* { return nullptr; };
  if (set & 2) table.free = [](void*, uint64_t, uint64_t) {};
  if (set & 4) table.getIbuf = [](uint64_t, uint64_t) -> void* { return nullptr; };
  int gpu = 0;
  BIVISTA_DepthCalc_Param param;
  param.scene = p.ConsumeBool() ? 3 : bvfuzz::AnyInt(p);
  param.imageWidth = bvfuzz::AnyInt(p);
  param.imageHeight = bvfuzz::AnyInt(p);
  param.stride = bvfuzz::AnyInt(p);
  param.pMemoryFxn = (set & 8) ? nullptr : &table;
  param.pGPUResource = (set & 16) ? nullptr : &gpu;
  uint64_t handle = 0x1234;
  const int rc = BIVISTA_DepthCalc_Create((set & 32) ? nullptr : &param,
                                          (set & 64) ? nullptr : &handle);
  bvfuzz::Check(rc == 0 || rc == 256 || rc == 259, "create code");
  bvfuzz::Check((set & 64) ? handle == 0x1234 : handle == 0, "create handle slot");
  handle = p.ConsumeIntegral<uint64_t>();
  bvfuzz::Check(BIVISTA_DepthCalc_Destroy(p.ConsumeBool() ? nullptr : &handle) == 0, "destroy");
}

}  // namespace

// Fresh heap blocks hold large positive ints, so that a read of never-written scratch (an index,
// a count) goes wild instead of reading as the allocator's usual negative fill.
extern "C" const char* __asan_default_options() {
  return "malloc_fill_byte=127:max_malloc_fill_size=65536";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider p(data, size);
  FuzzCreateDestroy(p);

  // Scalars first (integers come from the end of the input), sample bytes last. An exhausted
  // input reads as zeros and false: those choices lead to calls that pass validation.
  DisparityType rec{};
  rec.format = p.ConsumeBool() ? bvfuzz::AnyInt(p) : 0;
  rec.mode = p.ConsumeIntegralInRange<int>(0, 4) - 1;
  rec.shiftDirection = p.ConsumeIntegralInRange<int>(0, 6) - 1;
  rec.dispOffset = bvfuzz::AnyInt(p);
  // Mostly small maps (thousands of runs a second), now and then the largest accepted.
  const bool big = p.ConsumeIntegralInRange<int>(0, 7) == 7;
  rec.width = bvfuzz::Dim(p, 1, big ? 3968 : 72);
  rec.height = bvfuzz::Dim(p, 1, big ? 2976 : 40);
  rec.stride = p.ConsumeBool() ? bvfuzz::AnyInt(p) : rec.width + bvfuzz::Dim(p, 0, 64);
  const int32_t readMaps = p.ConsumeBool() ? bvfuzz::AnyInt(p) : 0;

  BIVISTA_CalibParam calib{};
  const int warpKind = p.ConsumeIntegralInRange<int>(0, 3);
  for (int i = 0; i < 9; ++i) {
    const float identity = (i % 4 == 0) ? 1.0f : 0.0f;
    switch (warpKind) {
      case 0: calib.warpMatrix[i] = identity + p.ConsumeFloatingPointInRange<float>(-0.01f, 0.01f); break;
      case 1: calib.warpMatrix[i] = p.ConsumeFloatingPoint<float>(); break;
      case 2: calib.warpMatrix[i] = i < 6 ? identity : 0.0f; break;  // singular
      default:  // near-singular: determinant around the inversion's threshold
        calib.warpMatrix[i] = identity * 1e-5f + p.ConsumeFloatingPointInRange<float>(-1e-6f, 1e-6f);
    }
  }
  calib.warpMatrixForm = p.ConsumeIntegralInRange<int>(0, 3) - 1;
  calib.rectifiedWidth = p.ConsumeBool() ? bvfuzz::AnyInt(p) : rec.width;
  calib.rectifiedHeight = p.ConsumeBool() ? bvfuzz::AnyInt(p) : rec.height;
  const bool fuzzCalib = p.ConsumeBool();
  for (int i = 0; i < 9; ++i) {
    calib.camera1.value[i] = fuzzCalib ? p.ConsumeFloatingPoint<double>() : 1000.0 + i;
    calib.camera2.value[i] = fuzzCalib ? p.ConsumeFloatingPoint<double>() : 1500.0 - i;
  }
  for (double& v : calib.translation) v = fuzzCalib ? p.ConsumeFloatingPoint<double>() : 5.0;

  // The image is the map times a scale most of the time, so the call gets past validation.
  const int scale = p.ConsumeIntegralInRange<int>(0, 4);
  const int32_t imageWidth = scale < 4 ? rec.width * (scale + 1) : bvfuzz::AnyInt(p);
  const int32_t imageHeight = scale < 4 ? rec.height * (scale + 1) : bvfuzz::AnyInt(p);
  const int wide = imageWidth > 0 ? imageWidth : 1, high = imageHeight > 0 ? imageHeight : 1;
  auto coord = [&](int extent) {
    return p.ConsumeBool() ? bvfuzz::AnyInt(p) : p.ConsumeIntegralInRange<int>(0, extent - 1);
  };
  BIVISTA_Rect r;
  r.left = coord(wide);
  r.top = coord(high);
  r.right = coord(wide);
  r.bottom = coord(high);
  const uint8_t nulls = p.ConsumeBool() ? p.ConsumeIntegral<uint8_t>() : 0;
  int32_t flags = p.ConsumeBool() ? p.ConsumeIntegral<int32_t>() : (2 | 4 | 16);
  // A doubly inverted area takes shift planes of w x h samples: gigabytes whose shadow the
  // sanitizer clears on every run. Far-off corners (refused sizes) stay; large taken ones go.
  if (imageWidth > 0) {
    const double sc = static_cast<double>(imageWidth) / rec.width;
    auto side = [&](int a, int b) { return std::trunc(b / sc) - std::trunc(a / sc) + 1; };
    const double w = side(r.left, r.right), h = side(r.top, r.bottom);
    if (w < 0 && h < 0 && w * h > (1 << 22) && w * h * 16 <= INT_MAX) flags &= ~(4 | 8);
  }
  const int32_t depthRequest = p.ConsumeBool() ? 1 : 0;
  int depthSlot = 0;

  // Wrong sizes are refused before any plane is read: keep them, with tiny planes.
  const bool valid = rec.stride >= rec.width;
  const size_t stride = valid ? static_cast<size_t>(rec.stride) : 1;
  const size_t n = valid ? (rec.height - 1) * stride + rec.width : 1;
  if (n * 2 > (size_t{1} << 38)) return 0;  // beyond what the address space comfortably holds
  // Large planes make every run slow: only a few rows then.
  if (n > (size_t{1} << 20) && rec.height > 16) return 0;
  // Mode 1 takes map-sized scratch (stride x height): keep it within the fuzzer's memory.
  if (rec.mode == 1 && stride * rec.height * 2 > (size_t{16} << 20)) rec.mode = 2;
  // Dumps run with a root that makes every write refuse: the painting and the names are
  // exercised, no file is written. The map-sized dump planes must fit in memory.
  const bool dump = p.ConsumeBool() && stride * rec.height * 2 < (size_t{16} << 20);
  bvfuzz::SetProperty("disptrans.saveEnable", dump ? "1" : "0");
  bvfuzz::SetProperty("imagepath", "/nonexistent/./fuzz");

  const int rows = valid ? rec.height : 1, cols = valid ? rec.width : 1;
  const std::vector<uint8_t> bytes = p.ConsumeRemainingBytes<uint8_t>();
  const bool eight = rec.format == 0;
  Plane<uint8_t> disp8(bytes, eight ? n : 1, eight ? cols : 1, eight ? rows : 1, stride);
  Plane<uint16_t> disp16(bytes, eight ? 1 : n, eight ? 1 : cols, eight ? 1 : rows, stride);
  Plane<uint8_t> conf(std::vector<uint8_t>(bytes.rbegin(), bytes.rend()), n, cols, rows, stride);
  Plane<uint16_t> xMap(bytes, readMaps ? n : 1, readMaps ? cols : 1, readMaps ? rows : 1, stride);
  Plane<uint16_t> yMap(conf.pattern(), readMaps ? n : 1, readMaps ? cols : 1, readMaps ? rows : 1,
                       stride);
  if (!disp8.ok() || !disp16.ok() || !conf.ok() || !xMap.ok() || !yMap.ok()) return 0;
  rec.data = eight ? static_cast<void*>(disp8.data()) : static_cast<void*>(disp16.data());

  Result res[2];
  bvfuzz::OnBestAndLowestTarget([&](bool lowest) {
    // One set of outputs for both runs: their addresses appear in the messages.
    static Result o;
    o = Result();
    bvfuzz::ClearLog();
    DisparityType call = rec;
    if (nulls & 2) call.data = nullptr;
    o.rc = Bivista_CalcShift((nulls & 1) ? nullptr : &call, (nulls & 4) ? nullptr : conf.data(),
                             (nulls & 8) ? nullptr : &calib, r, imageWidth, imageHeight,
                             depthRequest, (nulls & 16) ? nullptr : &depthSlot, readMaps,
                             (nulls & 32) ? nullptr : xMap.data(), yMap.data(), flags,
                             (nulls & 64) ? nullptr : &o.depth, &o.multi,
                             (nulls & 128) ? nullptr : &o.conf, &o.sx, &o.sy);
    o.log = bvfuzz::LogLines();
    res[lowest ? 1 : 0] = o;
  });
  if (!(res[0] == res[1])) {
    for (const Result& o : res) {
      fprintf(stderr, "rc %d depth %u multi %d conf %u shift %a %a, %zu lines\n", o.rc, o.depth,
              o.multi, o.conf, o.sx, o.sy, o.log.size());
      for (const std::string& line : o.log) fprintf(stderr, "  %s\n", line.c_str());
    }
  }
  bvfuzz::Check(res[0] == res[1], "best and lowest target differ");
  const Result& o = res[0];
  bvfuzz::Check(o.rc == 0 || o.rc == 256 || o.rc == 257 || o.rc == -1, "result code");
  if (o.rc == 256 || o.rc == 257) {
    const Result untouched;
    bvfuzz::Check(o.depth == untouched.depth && o.multi == untouched.multi &&
                      o.conf == untouched.conf && o.sx == untouched.sx && o.sy == untouched.sy,
                  "refused call wrote an output");
  }
  bvfuzz::Check(depthSlot == 0, "depth buffer written");
  return 0;
}
