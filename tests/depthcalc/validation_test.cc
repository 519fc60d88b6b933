// Create/destroy and the input checks of Bivista_CalcShift: codes, exact messages, untouched
// outputs.
#include <gtest/gtest.h>
#include <stdarg.h>

#include <functional>
#include <string>

#include "depthcalc/frame_fixture.h"
#include "support/platform_capture.h"

namespace {

using bvtest::CountMsg;
using bvtest::LogCapture;
using dctest::Outputs;
const char kAlgo[] = "ZR481_ALGO";

void* Dummy(size_t, uint64_t, uint64_t) { return nullptr; }
void DummyFree(void*, uint64_t, uint64_t) {}
void* DummyIbuf(uint64_t, uint64_t) { return nullptr; }

std::string Format(const char* fmt, ...) {
  char buf[256];
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  return buf;
}

// The code, exactly one error line with this text, and whether anything else happened.
void ExpectOneError(const LogCapture& log, const char* fn, const std::string& text) {
  EXPECT_EQ(log.Lines().size(), 1u) << text;
  EXPECT_EQ(CountMsg(log, 6, kAlgo, fn, text), 1) << text;
}

struct CreateCase {
  vta_algo_mem_allocator_t table{Dummy, DummyFree, DummyIbuf};
  int gpu = 0;
  BIVISTA_DepthCalc_Param p{3, 4000, 3000, 4032, &table, &gpu};
  BIVISTA_DepthCalc_Param* param = &p;
  uint64_t handle = 77, *out = &handle;
};

TEST(DepthCalcCreate, EveryCheckInOrderAndBoundaries) {
  const std::string wrong =
      "Failed to Create handle (Wrong Image Width = %d / Height = %d stride = %d) !";
  const struct {
    std::function<void(CreateCase*)> mutate;
    int code;
    std::string text;
  } steps[] = {
      {[](CreateCase* c) { c->out = nullptr; }, 256,
       "Failed to Creat handle (NULL Pointer of Handle) !"},
      {[](CreateCase* c) { c->param = nullptr; }, 256,
       "Failed to Creat handle (NULL Pointer of Parameter) !"},
      {[](CreateCase* c) { c->p.scene = 2; }, 259, "Don't support Scene(2)"},
      {[](CreateCase* c) { c->p.imageWidth = 6529; }, 259, Format(wrong.c_str(), 6529, 3000, 4032)},
      {[](CreateCase* c) { c->p.imageHeight = 4897; }, 259,
       Format(wrong.c_str(), 4000, 4897, 4032)},
      {[](CreateCase* c) { c->p.stride = 3999; }, 259, Format(wrong.c_str(), 4000, 3000, 3999)},
      {[](CreateCase* c) { c->p.pMemoryFxn = nullptr; }, 256,
       "Failed to Create handle (NULL Pointer of pMemoryFxn "},
      {[](CreateCase* c) { c->table.getIbuf = nullptr; }, 256,
       Format("Failed to Create handle (NULL Pointer of malloc Fxn = %p / free Fxn = %p / getIbuf "
              "Fxn = %p) !",
              (void*)Dummy, (void*)DummyFree, (void*)nullptr)},
      {[](CreateCase* c) { c->p.pGPUResource = nullptr; }, 256,
       "Failed to Create handle NULL Pointer of pGPUResource "},
  };
  for (const auto& s : steps) {
    LogCapture log;
    CreateCase c;
    s.mutate(&c);
    EXPECT_EQ(BIVISTA_DepthCalc_Create(c.param, c.out), s.code);
    EXPECT_EQ(c.handle, c.out ? 0u : 77u);
    ExpectOneError(log, "BIVISTA_DepthCalc_Create", s.text);
  }
  // Boundary values pass silently; the table is not installed anywhere.
  LogCapture log;
  CreateCase c;
  c.p.imageWidth = c.p.stride = 6528;
  c.p.imageHeight = 4896;
  EXPECT_EQ(BIVISTA_DepthCalc_Create(&c.p, &c.handle), 0);
  EXPECT_EQ(c.handle, 0u);
  EXPECT_TRUE(log.Lines().empty());
  EXPECT_EQ(g_memFxn.malloc, nullptr);
}

TEST(DepthCalcDestroy, ClearsOrWarns) {
  LogCapture log;
  uint64_t zero = 0, handle = 42;
  EXPECT_EQ(BIVISTA_DepthCalc_Destroy(nullptr), 0);
  EXPECT_EQ(BIVISTA_DepthCalc_Destroy(&zero), 0);
  EXPECT_EQ(BIVISTA_DepthCalc_Destroy(&handle), 0);
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(log.Lines().size(), 2u);
  EXPECT_EQ(CountMsg(log, 5, kAlgo, "BIVISTA_DepthCalc_Destroy", "NULL Pointer of Input"), 1);
  EXPECT_EQ(CountMsg(log, 5, kAlgo, "BIVISTA_DepthCalc_Destroy", "NULL Pointer of Handle"), 1);
}

// One call with good arguments unless a case changes them.
struct CalcArgs {
  dctest::Frame f;
  DisparityType rec;
  const uint8_t* conf;
  BIVISTA_Rect rect;
  int imageW = 640, imageH = 480, depthRequest = 0, readMaps = 0, flags = 2 | 16 | 4;
  uint16_t map[4] = {0};
  const uint16_t *xMap = nullptr, *yMap = nullptr;
  Outputs o;
  uint16_t* depthOut = &o.depth;
  int32_t* multiOut = &o.multi;
  uint8_t* confOut = &o.conf;
  float *sxOut = &o.sx, *syOut = &o.sy;
  CalcArgs() : rec(f.rec), conf(f.conf.data()), rect(dctest::ImageRect(f, 10, 10, 50, 40)) {
    f.Fill(80);
  }
  int Run() {
    return Bivista_CalcShift(&rec, conf, &f.calib, rect, imageW, imageH, depthRequest, nullptr,
                             readMaps, xMap, yMap, flags, depthOut, multiOut, confOut, sxOut,
                             syOut);
  }
};

// Every rejection of Bivista_CalcShift leaves every output as it was. Each row changes one
// argument: {what, code, values}.
enum What {
  kConf, kDisp, kConfOut, kMultiOut, kDepthReq, kDepthOut, kYMap, kDispSize, kImageSize, kArea,
  kScale
};

TEST(CalcShiftValidation, MessagesCodesAndUntouchedOutputs) {
  const struct {
    What what;
    int code, v[4];
  } cases[] = {
      {kConf, 256, {}}, {kDisp, 256, {}}, {kConfOut, 256, {}}, {kMultiOut, 256, {}},
      {kDepthReq, 256, {}}, {kDepthOut, 256, {4}}, {kDepthOut, 256, {8}}, {kYMap, 256, {}},
      {kDispSize, 257, {0, 120, 176}}, {kDispSize, 257, {3969, 120, 4000}},
      {kDispSize, 257, {160, 0, 176}}, {kDispSize, 257, {160, 2977, 176}},
      {kDispSize, 257, {160, 120, 159}}, {kImageSize, 257, {0, 480}},
      {kImageSize, 257, {4000, 3000}}, {kImageSize, 257, {640, 0}},
      {kImageSize, 257, {3968, 2977}}, {kArea, 257, {10, 10, 50, 480}},
      {kArea, 257, {10, 20, 50, 20}}, {kArea, 257, {30, 10, 30, 40}},
      {kArea, 257, {-1, 10, 50, 40}}, {kArea, 257, {10, -2, 50, 40}},
      {kArea, 257, {10, 10, 640, 40}}, {kScale, 257, {}}};
  for (const auto& c : cases) {
    CalcArgs a;
    const int* v = c.v;
    std::string text;
    switch (c.what) {
      case kConf:
        a.conf = nullptr;
        text = Format("Input calibParameterin(%p) or inputConfidence(%p) is NULL!",
                      (void*)&a.f.calib, nullptr);
        break;
      case kDisp: a.rec.data = nullptr, text = "dispdata is NULL"; break;
      case kConfOut: a.flags = 2, a.confOut = nullptr, text = "averConfidence is NULL"; break;
      case kMultiOut:
        a.flags = 16, a.multiOut = nullptr;
        text = Format("averDepth(%p) or beMultiDepth(%p) is NULL", (void*)&a.o.depth, nullptr);
        break;
      case kDepthReq: a.flags = 16, a.depthRequest = 1, text = "depth is NULL"; break;
      case kDepthOut:
        a.flags = v[0], a.depthOut = nullptr;
        text = Format("averShiftX(%p) or averShiftY(%p) or averDepth(%p) is NULL", (void*)&a.o.sx,
                      (void*)&a.o.sy, nullptr);
        break;
      case kYMap:
        a.flags = 4, a.readMaps = 1, a.xMap = a.map;
        text = Format("xMap(%p) or yMap(%p) is NULL", (void*)a.map, nullptr);
        break;
      case kDispSize:
        a.rec.width = v[0], a.rec.height = v[1], a.rec.stride = v[2];
        text = Format("dispwidth(%d) or dispheight(%d) or dispstride(%d) is not support", v[0],
                      v[1], v[2]);
        break;
      case kImageSize:
        a.imageW = v[0], a.imageH = v[1];
        text = Format("imageWidth(%d) or imageHeight(%d) is not support", v[0], v[1]);
        break;
      case kArea:
        a.rect = BIVISTA_Rect{v[0], v[1], v[2], v[3]};
        text = Format("invaild orifocusArea: left:%d right:%d top:%d bottom:%d ", v[0], v[2], v[1],
                      v[3]);
        break;
      case kScale:
        a.imageH = 484;
        text = "scale of imageWidth/dispwidth and imageHeight/dispheight should be the same";
        break;
    }
    LogCapture log;
    EXPECT_EQ(a.Run(), c.code) << text;
    ExpectOneError(log, "Bivista_CalcShift", text);
    EXPECT_TRUE(a.o.depth == 0xBEEF && a.o.multi == -7 && a.o.conf == 0xAB && a.o.sx == -99.0f &&
                a.o.sy == -99.0f)
        << text;
  }
}

TEST(CalcShiftValidation, LargestSizesPassAndInvertedAreaHasNoShift) {
  // 3968 x 2976 passes; with no flag nothing is read, so one sample of storage is enough.
  uint8_t one = 0;
  DisparityType rec{};
  rec.data = &one;
  rec.width = rec.stride = 3968;
  rec.height = 2976;
  BIVISTA_CalibParam calib{};
  LogCapture log;
  EXPECT_EQ(
      Bivista_CalcShift(&rec, &one, &calib, BIVISTA_Rect{0, 0, 3967, 2975}, 3968, 2976, 0, nullptr,
                        0, nullptr, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr),
      0);
  EXPECT_TRUE(log.Lines().empty());
  // left > right passes the checks, but the area's shift planes cannot be sized.
  dctest::Frame f;
  Outputs o;
  LogCapture log2;
  EXPECT_EQ(Calc(f, dctest::ImageRect(f, 50, 10, 10, 40), 4, &o), -1);
  EXPECT_EQ(CountMsg(log2, 6, kAlgo, "TransDispariyArea", "malloc failed"), 1);
}

}  // namespace
