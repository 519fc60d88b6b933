// Debug dumps into a temporary directory, with the two properties served by the test platform.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "depthcalc/depthcalc_internal.h"
#include "depthcalc/frame_fixture.h"
#include "support/platform_capture.h"

namespace {

using dctest::Calc;
using dctest::Frame;
using dctest::ImageRect;
using dctest::Outputs;
const char kAlgo[] = "ZR481_ALGO";
const char kSave[] = "SaveDispTransImage";

std::vector<uint8_t> ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

// A root with its "disptrans" directory; the dump creates only the last level.
class DumpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/bvdumpXXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    ASSERT_EQ(mkdir((root_ + "/disptrans").c_str(), 0777), 0);
    dir_ = root_ + "/disptrans/00/";
    bvtest::SetProperty("imagepath", root_);
    bvtest::SetProperty("disptrans.saveEnable", "1");
  }
  void TearDown() override {
    bvtest::ClearProperties();
    std::filesystem::remove_all(root_);
  }
  std::string root_, dir_;
};

// Independent statement of the frame: top two rows, two columns each side, and every row from
// aw - 2 on (the bottom edge is measured with the width).
bool Painted(int i, int j, int aw) { return i < 2 || j < 2 || j >= aw - 2 || i >= aw - 2; }

TEST_F(DumpTest, WritesFramedPlanesAndAppends) {
  Frame f(64, 48, 70, false, 2);
  f.rec.mode = 1;
  f.Fill(40);  // 10 pixels: the correction copies from 8 columns to the right
  for (size_t i = 0; i < f.conf.size(); ++i) f.conf[i] = static_cast<uint8_t>(i % 251);
  const BIVISTA_Rect a{8, 6, 40, 30};  // 33 x 25: wider than tall, no bottom edge
  bvtest::LogCapture log;
  Outputs o;
  ASSERT_EQ(Calc(f, ImageRect(f, a.left, a.top, a.right, a.bottom), 2 | 16, &o), 0);
  EXPECT_EQ(bvtest::CountMsg(log, 4, kAlgo, kSave, "imagepath is:" + root_ + "/disptrans\n"), 1);
  EXPECT_EQ(bvtest::CountMsg(log, 4, kAlgo, kSave, "create path(" + dir_ + ") sucessed.\n"), 1);
  // Whole disparity, focus disparity, whole confidence, focus confidence.
  const std::string names[4] = {
      "00_dis_64x48_disp.yuv", "00_dis_l8_t6_r40_b30_33x25_disp_focus.yuv", "00_dis_64x48_conf.yuv",
      "00_dis_l8_t6_r40_b30_33x25_conf_focus.yuv"};
  std::vector<uint8_t> p[4];
  for (int k = 0; k < 4; ++k)
    ASSERT_EQ((p[k] = ReadAll(dir_ + names[k])).size(), k & 1 ? 33u * 25 : 64u * 48);
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x) {
      const int i = y - a.top, j = x - a.left;
      const uint8_t d = p[0][y * 64 + x], c = p[2][y * 64 + x];
      if (i < 0 || i > 24 || j < 0 || j > 32) {
        ASSERT_TRUE(d == 0 && c == 0) << x << "," << y;  // scratch planes start zeroed
        continue;
      }
      ASSERT_EQ(d, Painted(i, j, 33) ? 255 : 40) << i << "," << j;
      ASSERT_EQ(c, f.conf[y * 70 + x + 8]);
      ASSERT_TRUE(p[1][i * 33 + j] == d && p[3][i * 33 + j] == c);
    }
  // A second frame of the same size appends; the directory now exists.
  log.Clear();
  ASSERT_EQ(Calc(f, ImageRect(f, a.left, a.top, a.right, a.bottom), 16, &o), 0);
  EXPECT_EQ(bvtest::CountMsg(log, 4, kAlgo, kSave, "create path(" + dir_ + ") failed.\n"), 1);
  for (int k = 0; k < 4; ++k) EXPECT_EQ(ReadAll(dir_ + names[k]).size(), 2 * p[k].size());
}

TEST(DumpFrame, TallAreaEndsInSolidRows) {
  std::vector<uint8_t> plane(40 * 50, 7);
  const BIVISTA_Rect a{5, 3, 17, 45};  // 13 x 43
  bivista::PaintDumpFrame(plane.data(), 40, a);
  for (int y = 0; y < 50; ++y)
    for (int x = 0; x < 40; ++x) {
      const bool inside = x >= a.left && x <= a.right && y >= a.top && y <= a.bottom;
      ASSERT_EQ(plane[y * 40 + x], inside && Painted(y - a.top, x - a.left, 13) ? 255 : 7)
          << x << "," << y;
    }
}

// The analysis reads the painted plane: confident samples only on the top two (painted) rows.
TEST_F(DumpTest, PaintedFrameFeedsTheDepth) {
  for (bool wide : {false, true}) {
    Frame f(64, 48, 64, wide, 2);
    f.rec.mode = 1;
    f.Fill(8);  // 2 pixels: the correction keeps every sample in place
    for (size_t i = 0; i < f.conf.size(); ++i)
      f.conf[i] = i >= 6 * 64 && i < 8 * 64 && i % 64 >= 8 && i % 64 <= 40 ? 255 : 0;
    const BIVISTA_Rect img = ImageRect(f, 8, 6, 40, 30);
    Outputs off, on;
    bvtest::SetProperty("disptrans.saveEnable", "0");
    ASSERT_EQ(Calc(f, img, 16, &off), 0);
    bvtest::SetProperty("disptrans.saveEnable", "1");
    ASSERT_EQ(Calc(f, img, 16, &on), 0);
    EXPECT_EQ(off.depth, static_cast<uint16_t>(static_cast<int>(f.K() / 2.0f)));
    // No plane to paint for 16-bit samples: same depth, and no disparity file.
    EXPECT_EQ(on.depth, wide ? off.depth
                             : static_cast<uint16_t>(static_cast<int>(f.K() / 63.0f)));  // 255 >> 2
    EXPECT_EQ(std::filesystem::exists(dir_ + "00_dis_64x48_disp.yuv"), !wide);
    EXPECT_EQ(ReadAll(dir_ + "00_dis_64x48_conf.yuv").size(), 64u * 48);
    std::filesystem::remove_all(dir_);
  }
}

TEST_F(DumpTest, RelativeRootRefusesEveryWrite) {
  const std::string relative = root_ + "/./x";
  bvtest::SetProperty("imagepath", relative);
  std::vector<uint8_t> plane(32 * 24, 1);
  bvtest::LogCapture log;
  bivista::SaveDispTransImage(plane.data(), plane.data(), 32, 24, 32, BIVISTA_Rect{2, 2, 20, 10});
  EXPECT_EQ(log.CountContaining("create path(" + relative + "/disptrans/00/) failed."), 1);
  EXPECT_EQ(bvtest::CountMsg(log, 5, kAlgo, "writeFile",
                             "your input filenmae contains relative signs!file: " + relative +
                                 "/disptrans/00/00_dis_32x24_disp.yuv"),
            1);
  EXPECT_EQ(log.CountContaining("your input filenmae contains relative signs!"), 4);
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
