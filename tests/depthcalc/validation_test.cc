// Create/destroy and the input checks of Bivista_CalcShift: codes, exact messages, untouched outputs.
#include <gtest/gtest.h>

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

// Every rejection of Bivista_CalcShift, in the order the checks run.
TEST(CalcShiftValidation, MessagesCodesAndUntouchedOutputs) {
  const char* fn = "Bivista_CalcShift";
  Frame f;
  f.Fill(80);
  const BIVISTA_Rect good = dctest::ImageRect(f, 10, 10, 50, 40);
  const int all = 2 | 16 | 4;
  uint16_t map[4] = {0};
  char buf[256];
  auto expectRejected = [&](int rc, int code, const std::string& text, const Outputs& o) {
    EXPECT_EQ(rc, code) << text;
    EXPECT_EQ(o.depth, 0xBEEF);
    EXPECT_EQ(o.multi, -7);
    EXPECT_EQ(o.conf, 0xAB);
    EXPECT_EQ(o.sx, -99.0f);
    EXPECT_EQ(o.sy, -99.0f);
  };
  {
    LogCapture log;
    Outputs o;
    int rc = Bivista_CalcShift(&f.rec, nullptr, &f.calib, good, 640, 480, 0, nullptr, 0, nullptr,
                               nullptr, all, &o.depth, &o.multi, &o.conf, &o.sx, &o.sy);
    snprintf(buf, sizeof buf, "Input calibParameterin(%p) or inputConfidence(%p) is NULL!",
             (void*)&f.calib, (void*)nullptr);
    expectRejected(rc, 256, buf, o);
    EXPECT_EQ(OnlyLine(log, kErr, buf, fn), 1);
  }
  {
    LogCapture log;
    Outputs o;
    DisparityType rec = f.rec;
    rec.data = nullptr;
    int rc = Bivista_CalcShift(&rec, f.conf.data(), &f.calib, good, 640, 480, 0, nullptr, 0,
                               nullptr, nullptr, all, &o.depth, &o.multi, &o.conf, &o.sx, &o.sy);
    expectRejected(rc, 256, "dispdata", o);
    EXPECT_EQ(OnlyLine(log, kErr, "dispdata is NULL", fn), 1);
  }
  {
    LogCapture log;
    Outputs o;
    int rc = Bivista_CalcShift(&f.rec, f.conf.data(), &f.calib, good, 640, 480, 0, nullptr, 0,
                               nullptr, nullptr, 2, &o.depth, &o.multi, nullptr, &o.sx, &o.sy);
    expectRejected(rc, 256, "conf", o);
    EXPECT_EQ(OnlyLine(log, kErr, "averConfidence is NULL", fn), 1);
  }
  {
    LogCapture log;
    Outputs o;
    int rc = Bivista_CalcShift(&f.rec, f.conf.data(), &f.calib, good, 640, 480, 0, nullptr, 0,
                               nullptr, nullptr, 16, &o.depth, nullptr, &o.conf, &o.sx, &o.sy);
    snprintf(buf, sizeof buf, "averDepth(%p) or beMultiDepth(%p) is NULL", (void*)&o.depth,
             (void*)nullptr);
    expectRejected(rc, 256, buf, o);
    EXPECT_EQ(OnlyLine(log, kErr, buf, fn), 1);
  }
  {
    LogCapture log;
    Outputs o;
    int rc = Bivista_CalcShift(&f.rec, f.conf.data(), &f.calib, good, 640, 480, 1, nullptr, 0,
                               nullptr, nullptr, 16, &o.depth, &o.multi, &o.conf, &o.sx, &o.sy);
    expectRejected(rc, 256, "depth", o);
    EXPECT_EQ(OnlyLine(log, kErr, "depth is NULL", fn), 1);
  }
  for (int shiftFlag : {4, 8}) {
    LogCapture log;
    Outputs o;
    int rc = Bivista_CalcShift(&f.rec, f.conf.data(), &f.calib, good, 640, 480, 0, nullptr, 0,
                               nullptr, nullptr, shiftFlag, nullptr, &o.multi, &o.conf, &o.sx,
                               &o.sy);
    snprintf(buf, sizeof buf, "averShiftX(%p) or averShiftY(%p) or averDepth(%p) is NULL",
             (void*)&o.sx, (void*)&o.sy, (void*)nullptr);
    expectRejected(rc, 256, buf, o);
    EXPECT_EQ(OnlyLine(log, kErr, buf, fn), 1);
  }
  {
    LogCapture log;
    Outputs o;
    int rc = Bivista_CalcShift(&f.rec, f.conf.data(), &f.calib, good, 640, 480, 0, nullptr, 1,
                               map, nullptr, 4, &o.depth, &o.multi, &o.conf, &o.sx, &o.sy);
    snprintf(buf, sizeof buf, "xMap(%p) or yMap(%p) is NULL", (void*)map, (void*)nullptr);
    expectRejected(rc, 256, buf, o);
    EXPECT_EQ(OnlyLine(log, kErr, buf, fn), 1);
  }
  // Sizes of the map.
  const int dispSizes[][3] = {{0, 120, 176}, {3969, 120, 4000}, {160, 0, 176}, {160, 2977, 176},
                              {160, 120, 159}};
  for (const auto& s : dispSizes) {
    LogCapture log;
    Outputs o;
    DisparityType rec = f.rec;
    rec.width = s[0];
    rec.height = s[1];
    rec.stride = s[2];
    int rc = Bivista_CalcShift(&rec, f.conf.data(), &f.calib, good, 640, 480, 0, nullptr, 0,
                               nullptr, nullptr, all, &o.depth, &o.multi, &o.conf, &o.sx, &o.sy);
    snprintf(buf, sizeof buf, "dispwidth(%d) or dispheight(%d) or dispstride(%d) is not support",
             s[0], s[1], s[2]);
    expectRejected(rc, 257, buf, o);
    EXPECT_EQ(OnlyLine(log, kErr, buf, fn), 1);
  }
  const int imageSizes[][2] = {{0, 480}, {4000, 3000}, {640, 0}, {3968, 2977}};
  for (const auto& s : imageSizes) {
    LogCapture log;
    Outputs o;
    int rc = Bivista_CalcShift(&f.rec, f.conf.data(), &f.calib, good, s[0], s[1], 0, nullptr, 0,
                               nullptr, nullptr, all, &o.depth, &o.multi, &o.conf, &o.sx, &o.sy);
    snprintf(buf, sizeof buf, "imageWidth(%d) or imageHeight(%d) is not support", s[0], s[1]);
    expectRejected(rc, 257, buf, o);
    EXPECT_EQ(OnlyLine(log, kErr, buf, fn), 1);
  }
  const BIVISTA_Rect badAreas[] = {{10, 10, 50, 480}, {10, 20, 50, 20}, {30, 10, 30, 40},
                                   {-1, 10, 50, 40},  {10, -2, 50, 40}, {10, 10, 640, 40}};
  for (const BIVISTA_Rect& a : badAreas) {
    LogCapture log;
    Outputs o;
    int rc = Bivista_CalcShift(&f.rec, f.conf.data(), &f.calib, a, 640, 480, 0, nullptr, 0,
                               nullptr, nullptr, all, &o.depth, &o.multi, &o.conf, &o.sx, &o.sy);
    snprintf(buf, sizeof buf, "invaild orifocusArea: left:%d right:%d top:%d bottom:%d ", a.left,
             a.right, a.top, a.bottom);
    expectRejected(rc, 257, buf, o);
    EXPECT_EQ(OnlyLine(log, kErr, buf, fn), 1);
  }
  {
    LogCapture log;
    Outputs o;
    int rc = Bivista_CalcShift(&f.rec, f.conf.data(), &f.calib, good, 640, 484, 0, nullptr, 0,
                               nullptr, nullptr, all, &o.depth, &o.multi, &o.conf, &o.sx, &o.sy);
    expectRejected(rc, 257, "scale", o);
    EXPECT_EQ(OnlyLine(log, kErr,
                       "scale of imageWidth/dispwidth and imageHeight/dispheight should be the same",
                       fn),
              1);
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

  // left > right passes the checks; the confidence over the empty area is 0.
  Frame f;
  f.Fill(80);
  Outputs o;
  EXPECT_EQ(Calc(f, dctest::ImageRect(f, 50, 10, 10, 40), 2, &o), 0);
  EXPECT_EQ(o.conf, 0);
}

}  // namespace
