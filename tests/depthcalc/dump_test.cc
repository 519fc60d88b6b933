// Debug dumps: the frame painted on the disparity plane, the default root and unwritable files.
#include <gtest/gtest.h>

#include <vector>

#include "depthcalc/depthcalc_internal.h"
#include "support/platform_capture.h"

namespace {

const char kAlgo[] = "ZR481_ALGO";
const char kSave[] = "SaveDispTransImage";

// Independent statement of the frame: top two rows, two columns each side, and every row from
// aw - 2 on (the bottom edge is measured with the width).
bool Painted(int i, int j, int aw) { return i < 2 || j < 2 || j >= aw - 2 || i >= aw - 2; }

// A tall area ends in solid rows, a wide one has no bottom edge; an inverted side far off the
// map (its width, formed without wrapping, is negative) paints nothing.
TEST(DumpFrame, TallWideAndFarOffAreas) {
  for (const BIVISTA_Rect& a :
       {BIVISTA_Rect{5, 3, 17, 45}, BIVISTA_Rect{5, 3, 37, 27}, BIVISTA_Rect{5, 0, INT32_MIN, 3}}) {
    std::vector<uint8_t> plane(40 * 50, 7);
    bivista::PaintDumpFrame(plane.data(), 40, a);
    for (int y = 0; y < 50; ++y)
      for (int x = 0; x < 40; ++x) {
        const bool inside = x >= a.left && x <= a.right && y >= a.top && y <= a.bottom;
        const bool painted = inside && Painted(y - a.top, x - a.left, a.right - a.left + 1);
        ASSERT_EQ(plane[y * 40 + x], painted ? 255 : 7) << x << "," << y;
      }
  }
}

TEST(DumpDefaults, NoImagepathAndUnopenableFile) {
  bvtest::ClearProperties();
  bvtest::LogCapture log;
  bivista::SaveDispTransImage(nullptr, nullptr, 8, 8, 8, BIVISTA_Rect{0, 0, 3, 3});
  EXPECT_EQ(bvtest::CountMsg(log, 4, kAlgo, kSave, "can't find the property(imagepath)\n"), 1);
  EXPECT_EQ(bvtest::CountMsg(log, 4, kAlgo, kSave, "use default imagepath:/data/\n"), 1);
  EXPECT_EQ(log.CountContaining("create path(/data/disptrans/00/)"), 1);
  log.Clear();
  const uint8_t row[4] = {1, 2, 3, 4};
  EXPECT_NE(bivista::writeFile("/nonexistent-bv/dir/f.yuv", row, 4, 1, 4), 0);
  EXPECT_EQ(bvtest::CountMsg(log, 6, kAlgo, "writeFile",
                             "Debug open file Error:/nonexistent-bv/dir/f.yuv!"),
            1);
  // Empty rows of a null plane: no row pointer is formed (fuzz finding).
  EXPECT_EQ(bivista::writeFile("/dev/null", nullptr, 0, 3, 4), 0);
}

}  // namespace
