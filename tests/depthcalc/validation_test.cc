// Create/destroy and the input checks of Bivista_CalcShift: codes, exact messages, untouched outputs.
#include <gtest/gtest.h>

#include <stdarg.h>

#include <string>

#include "bivista/depthcalc.h"
#include "depthcalc/frame_fixture.h"
#include "support/platform_capture.h"

namespace {

using bvtest::CountMsg;
using bvtest::LogCapture;
using dctest::Calc;
using dctest::Frame;
using dctest::Outputs;

constexpr int kErr = 6;
constexpr int kWarn = 5;
const char kAlgo[] = "ZR481_ALGO";

void* Dummy(size_t, uint64_t, uint64_t) { return nullptr; }
void DummyFree(void*, uint64_t, uint64_t) {}
void* DummyIbuf(uint64_t, uint64_t) { return nullptr; }

struct CreateCase {
  BIVISTA_DepthCalc_Param p;
  vta_algo_mem_allocator_t table{Dummy, DummyFree, DummyIbuf};
  int gpu = 0;
  CreateCase() : p{3, 4000, 3000, 4032, nullptr, nullptr} {
    p.pMemoryFxn = &table;
    p.pGPUResource = &gpu;
  }
};

int OnlyLine(const LogCapture& log, int prio, const std::string& text, const char* fn) {
  EXPECT_EQ(log.Lines().size(), 1u);
  return CountMsg(log, prio, kAlgo, fn, text);
}

TEST(DepthCalcCreate, EveryCheckInOrder) {
  const char* fn = "BIVISTA_DepthCalc_Create";
  {
    LogCapture log;
    CreateCase c;
    EXPECT_EQ(BIVISTA_DepthCalc_Create(&c.p, nullptr), 256);
    EXPECT_EQ(OnlyLine(log, kErr, "Failed to Creat handle (NULL Pointer of Handle) !", fn), 1);
  }
  struct Step {
    void (*mutate)(CreateCase*);
    int code;
    std::string text;
  };
  const Step steps[] = {
      {[](CreateCase* c) { c->p.scene = 2; }, 259, "Don't support Scene(2)"},
      {[](CreateCase* c) { c->p.imageWidth = 6529; }, 259,
       "Failed to Create handle (Wrong Image Width = 6529 / Height = 3000 stride = 4032) !"},
      {[](CreateCase* c) { c->p.imageHeight = 4897; }, 259,
       "Failed to Create handle (Wrong Image Width = 4000 / Height = 4897 stride = 4032) !"},
      {[](CreateCase* c) { c->p.stride = 3999; }, 259,
       "Failed to Create handle (Wrong Image Width = 4000 / Height = 3000 stride = 3999) !"},
      {[](CreateCase* c) { c->p.pMemoryFxn = nullptr; }, 256,
       "Failed to Create handle (NULL Pointer of pMemoryFxn "},
      {[](CreateCase* c) { c->table.getIbuf = nullptr; }, 256, ""},
      {[](CreateCase* c) { c->p.pGPUResource = nullptr; }, 256,
       "Failed to Create handle NULL Pointer of pGPUResource "},
  };
  for (const Step& s : steps) {
    LogCapture log;
    CreateCase c;
    s.mutate(&c);
    uint64_t handle = 77;
    EXPECT_EQ(BIVISTA_DepthCalc_Create(&c.p, &handle), s.code);
    EXPECT_EQ(handle, 0u);
    std::string text = s.text;
    if (text.empty()) {
      char buf[200];
      snprintf(buf, sizeof buf,
               "Failed to Create handle (NULL Pointer of malloc Fxn = %p / free Fxn = %p / getIbuf "
               "Fxn = %p) !",
               (void*)Dummy, (void*)DummyFree, (void*)nullptr);
      text = buf;
    }
    EXPECT_EQ(OnlyLine(log, kErr, text, fn), 1) << text;
  }
  {
    LogCapture log;
    uint64_t handle = 5;
    EXPECT_EQ(BIVISTA_DepthCalc_Create(nullptr, &handle), 256);
    EXPECT_EQ(handle, 0u);
    EXPECT_EQ(OnlyLine(log, kErr, "Failed to Creat handle (NULL Pointer of Parameter) !", fn), 1);
  }
  {
    // Boundary values pass; the table is not installed anywhere.
    LogCapture log;
    CreateCase c;
    c.p.imageWidth = 6528;
    c.p.imageHeight = 4896;
    c.p.stride = 6528;
    uint64_t handle = 9;
    EXPECT_EQ(BIVISTA_DepthCalc_Create(&c.p, &handle), 0);
    EXPECT_EQ(handle, 0u);
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(g_memFxn.malloc, nullptr);
  }
}

TEST(DepthCalcDestroy, ClearsOrWarns) {
  LogCapture log;
  EXPECT_EQ(BIVISTA_DepthCalc_Destroy(nullptr), 0);
  uint64_t handle = 0;
  EXPECT_EQ(BIVISTA_DepthCalc_Destroy(&handle), 0);
  handle = 42;
  EXPECT_EQ(BIVISTA_DepthCalc_Destroy(&handle), 0);
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(log.Lines().size(), 2u);
  EXPECT_EQ(CountMsg(log, kWarn, kAlgo, "BIVISTA_DepthCalc_Destroy", "NULL Pointer of Input"), 1);
  EXPECT_EQ(CountMsg(log, kWarn, kAlgo, "BIVISTA_DepthCalc_Destroy", "NULL Pointer of Handle"), 1);
}

// One call with good arguments unless a case changes them; outputs start as markers.
struct CalcArgs {
  Frame f;
  DisparityType rec;
  const uint8_t* conf;
  const BIVISTA_CalibParam* calib;
  BIVISTA_Rect rect;
  int imageW = 640, imageH = 480, depthRequest = 0, readMaps = 0, flags = 2 | 16 | 4;
  uint16_t map[4] = {0};
  const uint16_t *xMap = nullptr, *yMap = nullptr;
  Outputs o;
  uint16_t* depthOut = &o.depth;
  int32_t* multiOut = &o.multi;
  uint8_t* confOut = &o.conf;
  float *sxOut = &o.sx, *syOut = &o.sy;
  CalcArgs() {
    f.Fill(80);
    rec = f.rec;
    conf = f.conf.data();
    calib = &f.calib;
    rect = dctest::ImageRect(f, 10, 10, 50, 40);
  }
  int Run() {
    return Bivista_CalcShift(&rec, conf, calib, rect, imageW, imageH, depthRequest, nullptr,
                             readMaps, xMap, yMap, flags, depthOut, multiOut, confOut, sxOut,
                             syOut);
  }
};

std::string Format(const char* fmt, ...) {
  char buf[256];
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  return buf;
}

// Runs the changed call: the code, one exact message, and every output left as it was.
void ExpectRejected(CalcArgs& a, int code, const std::string& text) {
  LogCapture log;
  EXPECT_EQ(a.Run(), code) << text;
  EXPECT_EQ(OnlyLine(log, kErr, text, "Bivista_CalcShift"), 1) << text;
  EXPECT_EQ(a.o.depth, 0xBEEF);
  EXPECT_EQ(a.o.multi, -7);
  EXPECT_EQ(a.o.conf, 0xAB);
  EXPECT_EQ(a.o.sx, -99.0f);
  EXPECT_EQ(a.o.sy, -99.0f);
}

// Every rejection of Bivista_CalcShift, in the order the checks run.
TEST(CalcShiftValidation, MessagesCodesAndUntouchedOutputs) {
  {
    CalcArgs a;
    a.conf = nullptr;
    ExpectRejected(a, 256, Format("Input calibParameterin(%p) or inputConfidence(%p) is NULL!",
                                  (const void*)a.calib, (void*)nullptr));
  }
  {
    CalcArgs a;
    a.rec.data = nullptr;
    ExpectRejected(a, 256, "dispdata is NULL");
  }
  {
    CalcArgs a;
    a.flags = 2;
    a.confOut = nullptr;
    ExpectRejected(a, 256, "averConfidence is NULL");
  }
  {
    CalcArgs a;
    a.flags = 16;
    a.multiOut = nullptr;
    ExpectRejected(a, 256, Format("averDepth(%p) or beMultiDepth(%p) is NULL",
                                  (void*)&a.o.depth, (void*)nullptr));
  }
  {
    CalcArgs a;
    a.flags = 16;
    a.depthRequest = 1;
    ExpectRejected(a, 256, "depth is NULL");
  }
  for (int shiftFlag : {4, 8}) {
    CalcArgs a;
    a.flags = shiftFlag;
    a.depthOut = nullptr;
    ExpectRejected(a, 256, Format("averShiftX(%p) or averShiftY(%p) or averDepth(%p) is NULL",
                                  (void*)&a.o.sx, (void*)&a.o.sy, (void*)nullptr));
  }
  {
    CalcArgs a;
    a.flags = 4;
    a.readMaps = 1;
    a.xMap = a.map;
    ExpectRejected(a, 256, Format("xMap(%p) or yMap(%p) is NULL", (void*)a.map, (void*)nullptr));
  }
  const int dispSizes[][3] = {{0, 120, 176}, {3969, 120, 4000}, {160, 0, 176}, {160, 2977, 176},
                              {160, 120, 159}};
  for (const auto& s : dispSizes) {
    CalcArgs a;
    a.rec.width = s[0];
    a.rec.height = s[1];
    a.rec.stride = s[2];
    ExpectRejected(a, 257, Format("dispwidth(%d) or dispheight(%d) or dispstride(%d) is not support",
                                  s[0], s[1], s[2]));
  }
  const int imageSizes[][2] = {{0, 480}, {4000, 3000}, {640, 0}, {3968, 2977}};
  for (const auto& s : imageSizes) {
    CalcArgs a;
    a.imageW = s[0];
    a.imageH = s[1];
    ExpectRejected(a, 257,
                   Format("imageWidth(%d) or imageHeight(%d) is not support", s[0], s[1]));
  }
  const BIVISTA_Rect badAreas[] = {{10, 10, 50, 480}, {10, 20, 50, 20}, {30, 10, 30, 40},
                                   {-1, 10, 50, 40},  {10, -2, 50, 40}, {10, 10, 640, 40}};
  for (const BIVISTA_Rect& r : badAreas) {
    CalcArgs a;
    a.rect = r;
    ExpectRejected(a, 257, Format("invaild orifocusArea: left:%d right:%d top:%d bottom:%d ",
                                  r.left, r.right, r.top, r.bottom));
  }
  {
    CalcArgs a;
    a.imageH = 484;
    ExpectRejected(a, 257,
                   "scale of imageWidth/dispwidth and imageHeight/dispheight should be the same");
  }
}

TEST(CalcShiftValidation, LargestSizesPassAndInvertedAreaIsEmpty) {
  // 3968 x 2976 passes; with no flag nothing is read, so one sample of storage is enough.
  uint8_t one = 0;
  DisparityType rec{};
  rec.data = &one;
  rec.width = rec.stride = 3968;
  rec.height = 2976;
  BIVISTA_CalibParam calib{};
  LogCapture log;
  EXPECT_EQ(Bivista_CalcShift(&rec, &one, &calib, BIVISTA_Rect{0, 0, 3967, 2975}, 3968, 2976, 0,
                              nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr, nullptr, nullptr,
                              nullptr),
            0);
  EXPECT_TRUE(log.Lines().empty());

  // left > right passes the checks; the area is empty: confidence 0, a not-a-number average
  // (depth 0), and the shift planes cannot be sized.
  for (int mode : {0, 1}) {
    for (bool wide : {false, true}) {
      Frame f(160, 120, 176, wide);
      f.Fill(80);
      f.rec.mode = mode;
      Outputs o;
      EXPECT_EQ(Calc(f, dctest::ImageRect(f, 50, 10, 10, 40), 2 | 16, &o), 0);
      EXPECT_EQ(o.conf, 0);
      EXPECT_EQ(o.depth, 0);
      EXPECT_EQ(o.multi, 0);
      LogCapture log2;
      EXPECT_EQ(Calc(f, dctest::ImageRect(f, 50, 10, 10, 40), 4, &o), -1);
      EXPECT_EQ(CountMsg(log2, kErr, kAlgo, "TransDispariyArea", "malloc failed"), 1);
    }
  }
}

}  // namespace
