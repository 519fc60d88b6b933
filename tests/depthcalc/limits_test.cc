// Rectangles and strides at the limits the checks let through: inverted areas (one far off the
// map), and strides so far above the width that the area starts past 2^31 samples.
#include <gtest/gtest.h>
#include <math.h>
#include <sys/mman.h>

#include <random>

#include "depthcalc/depthcalc_internal.h"
#include "depthcalc/frame_fixture.h"
#include "support/alloc_table.h"
#include "support/platform_capture.h"

namespace {

using dctest::Calc;
using dctest::Frame;
using dctest::ImageRect;
using dctest::Outputs;

bool SameOutputs(const Outputs& a, const Outputs& b) {
  return a.depth == b.depth && a.multi == b.multi && a.conf == b.conf &&
         memcmp(&a.sx, &b.sx, sizeof a.sx) == 0 && memcmp(&a.sy, &b.sy, sizeof a.sy) == 0;
}

// Both sides inverted: w x h is positive and the planes are taken, but there is no sample to
// walk (never-written landing indices must not be read), so every form and direction gives 0.
TEST(CalcShiftLimits, DoublyInvertedAreaShiftsByZero) {
  for (int mode : {0, 1})
    for (int form : {0, 1})
      for (int dir = 0; dir < 4; ++dir) {
        Frame f(80, 60, 80, false, 2);
        f.Fill(60);
        f.rec.mode = mode, f.calib.warpMatrixForm = form, f.rec.shiftDirection = dir;
        bvtest::MallocWatch watch;
        watch.FillWith(0x7F);  // scratch reads as large positive indices
        Outputs o;
        ASSERT_EQ(Calc(f, ImageRect(f, 40, 40, 10, 10), 4, &o), 0);
        EXPECT_TRUE(o.sx == 0.0f && o.sy == 0.0f && !signbit(o.sx)) << mode << form << dir;
      }
}

// Only left, top and the far sides' upper bounds are checked: top and left may be huge and
// right and bottom hugely negative. The carried rectangle saturates, the area is empty, and the
// shift planes of its size (far past 32 bits) are refused by the allocator.
TEST(CalcShiftLimits, FarOffCornersAreEmptyAndTheirPlanesRefused) {
  for (int mode : {0, 1}) {
    Frame f(80, 60, 80, false, 1);  // scale 1: INT32_MAX / 1 is past the int range as a float
    f.Fill(60);
    f.rec.mode = mode;
    bvtest::LogCapture log;
    Outputs o;
    EXPECT_EQ(Calc(f, BIVISTA_Rect{INT32_MAX, INT32_MAX, INT32_MIN, INT32_MIN}, 2 | 16 | 4, &o), -1);
    EXPECT_TRUE(o.conf == 0 && o.depth == 0 && o.multi == 0);
    EXPECT_EQ(bvtest::CountMsg(log, 5, "ZR481_ALGO", "safeNew",
                               "the memory size -2147483648 you want to malloced is negative!!"),
              1);
    EXPECT_EQ(bvtest::CountMsg(log, 6, "ZR481_ALGO", "TransDispariyArea", "malloc failed"), 1);
  }
}

// A plane whose rows lie 2^26 + 3 samples apart, reserved but backed only where written: the
// area (rows 35..52) starts past 2^31 samples and gives what the same samples give in a packed
// plane.
TEST(CalcShiftLimits, StrideFarAboveTheWidthReachesTheArea) {
  const size_t stride = (size_t{1} << 26) + 3, bytes = stride * 60;
  void* d = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  void* c = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (d == MAP_FAILED || c == MAP_FAILED) GTEST_SKIP() << "no address space for the plane";
  Frame f(80, 60, 80, false, 2);
  std::mt19937 rng(5);
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 80; ++x) f.Set(x, y, 40 + rng() % 60), f.conf[y * 80 + x] = rng() & 255;
  for (int y = 35; y <= 52; ++y) {
    memcpy(static_cast<uint8_t*>(d) + y * stride, &f.disp8[y * 80], 80);
    memcpy(static_cast<uint8_t*>(c) + y * stride, &f.conf[y * 80], 80);
  }
  DisparityType rec = f.rec;
  rec.data = d, rec.stride = static_cast<int>(stride);
  const BIVISTA_Rect r = ImageRect(f, 10, 35, 69, 52);
  for (int mode : {0, 1}) {
    f.rec.mode = rec.mode = mode;
    Outputs want, got;
    ASSERT_EQ(Calc(f, r, 2 | 16 | 4, &want), 0);
    ASSERT_EQ(Bivista_CalcShift(&rec, static_cast<uint8_t*>(c), &f.calib, r, f.imageWidth(),
                                f.imageHeight(), 0, nullptr, 0, nullptr, nullptr, 2 | 16 | 4,
                                &got.depth, &got.multi, &got.conf, &got.sx, &got.sy),
              0);
    EXPECT_TRUE(SameOutputs(want, got)) << mode;
  }
  munmap(d, bytes);
  munmap(c, bytes);
}

}  // namespace
