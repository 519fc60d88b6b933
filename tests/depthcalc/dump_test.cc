// Debug dumps into a temporary directory, with the two properties served by the test platform.
#include <dirent.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

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

constexpr int kInfo = 4;
const char kAlgo[] = "ZR481_ALGO";
const char kSave[] = "SaveDispTransImage";

std::vector<uint8_t> ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

bool Exists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

void RemoveTree(const std::string& dir) {
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) {
      const std::string name = e->d_name;
      if (name == "." || name == "..") continue;
      const std::string path = dir + "/" + name;
      struct stat st;
      if (lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) RemoveTree(path);
      else unlink(path.c_str());
    }
    closedir(d);
  }
  rmdir(dir.c_str());
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
    RemoveTree(root_);
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
  EXPECT_EQ(bvtest::CountMsg(log, kInfo, kAlgo, kSave, "imagepath is:" + root_ + "/disptrans\n"), 1);
  EXPECT_EQ(bvtest::CountMsg(log, kInfo, kAlgo, kSave, "create path(" + dir_ + ") sucessed.\n"), 1);

  const std::string disp = dir_ + "00_dis_64x48_disp.yuv";
  const std::string dispFocus = dir_ + "00_dis_l8_t6_r40_b30_33x25_disp_focus.yuv";
  const std::string conf = dir_ + "00_dis_64x48_conf.yuv";
  const std::string confFocus = dir_ + "00_dis_l8_t6_r40_b30_33x25_conf_focus.yuv";
  const std::vector<uint8_t> whole = ReadAll(disp);
  const std::vector<uint8_t> focus = ReadAll(dispFocus);
  const std::vector<uint8_t> wholeConf = ReadAll(conf);
  const std::vector<uint8_t> focusConf = ReadAll(confFocus);
  ASSERT_EQ(whole.size(), 64u * 48);
  ASSERT_EQ(focus.size(), 33u * 25);
  ASSERT_EQ(wholeConf.size(), 64u * 48);
  ASSERT_EQ(focusConf.size(), 33u * 25);
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x) {
      const bool inside = x >= a.left && x <= a.right && y >= a.top && y <= a.bottom;
      const uint8_t d = whole[y * 64 + x], c = wholeConf[y * 64 + x];
      if (!inside) {
        ASSERT_EQ(d, 0) << x << "," << y;  // scratch planes start zeroed
        ASSERT_EQ(c, 0);
        continue;
      }
      const int i = y - a.top, j = x - a.left;
      ASSERT_EQ(d, Painted(i, j, 33) ? 255 : 40) << i << "," << j;
      ASSERT_EQ(c, f.conf[y * 70 + x + 8]);
      ASSERT_EQ(focus[i * 33 + j], d);
      ASSERT_EQ(focusConf[i * 33 + j], c);
    }

  // A second frame of the same size appends; the directory now exists.
  log.Clear();
  ASSERT_EQ(Calc(f, ImageRect(f, a.left, a.top, a.right, a.bottom), 16, &o), 0);
  EXPECT_EQ(bvtest::CountMsg(log, kInfo, kAlgo, kSave, "create path(" + dir_ + ") failed.\n"), 1);
  EXPECT_EQ(ReadAll(disp).size(), 2u * 64 * 48);
  EXPECT_EQ(ReadAll(dispFocus).size(), 2u * 33 * 25);
  EXPECT_EQ(ReadAll(conf).size(), 2u * 64 * 48);
  EXPECT_EQ(ReadAll(confFocus).size(), 2u * 33 * 25);
}

TEST(DumpFrame, TallAreaEndsInSolidRows) {
  const int stride = 40;
  std::vector<uint8_t> plane(stride * 50, 7);
  const BIVISTA_Rect a{5, 3, 17, 45};  // 13 x 43
  bivista::PaintDumpFrame(plane.data(), stride, a);
  for (int y = 0; y < 50; ++y)
    for (int x = 0; x < stride; ++x) {
      const bool inside = x >= a.left && x <= a.right && y >= a.top && y <= a.bottom;
      const bool painted = inside && Painted(y - a.top, x - a.left, 13);
      ASSERT_EQ(plane[y * stride + x], painted ? 255 : 7) << x << "," << y;
    }
  EXPECT_EQ(plane[(a.top + 11) * stride + a.left + 6], 255);  // rows from aw - 2 on are solid
  EXPECT_EQ(plane[(a.top + 10) * stride + a.left + 6], 7);
}

// The analysis reads the painted plane: confident samples only on the top two (painted) rows.
TEST_F(DumpTest, PaintedFrameFeedsTheDepth) {
  for (bool wide : {false, true}) {
    Frame f(64, 48, 64, wide, 2);
    f.rec.mode = 1;
    f.Fill(8);  // 2 pixels: the correction keeps every sample in place
    for (uint8_t& c : f.conf) c = 0;
    const BIVISTA_Rect a{8, 6, 40, 30};
    for (int y = a.top; y < a.top + 2; ++y)
      for (int x = a.left; x <= a.right; ++x) f.conf[y * 64 + x] = 255;
    const BIVISTA_Rect img = ImageRect(f, a.left, a.top, a.right, a.bottom);
    Outputs off, on;
    bvtest::SetProperty("disptrans.saveEnable", "0");
    ASSERT_EQ(Calc(f, img, 16, &off), 0);
    bvtest::SetProperty("disptrans.saveEnable", "1");
    ASSERT_EQ(Calc(f, img, 16, &on), 0);
    EXPECT_EQ(off.depth, static_cast<uint16_t>(static_cast<int>(f.K() / 2.0f)));
    if (wide) {
      // No plane to paint for 16-bit samples: same depth, and no disparity files.
      EXPECT_EQ(on.depth, off.depth);
      EXPECT_FALSE(Exists(dir_ + "00_dis_64x48_disp.yuv"));
      EXPECT_EQ(ReadAll(dir_ + "00_dis_64x48_conf.yuv").size(), 64u * 48);
    } else {
      EXPECT_EQ(on.depth, static_cast<uint16_t>(static_cast<int>(f.K() / 63.0f)));  // 255 >> 2
      EXPECT_EQ(ReadAll(dir_ + "00_dis_64x48_disp.yuv").size(), 64u * 48);
      RemoveTree(dir_);
    }
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
  EXPECT_EQ(bvtest::CountMsg(log, kInfo, kAlgo, kSave, "can't find the property(imagepath)\n"), 1);
  EXPECT_EQ(bvtest::CountMsg(log, kInfo, kAlgo, kSave, "use default imagepath:/data/\n"), 1);
  EXPECT_EQ(log.CountContaining("create path(/data/disptrans/00/)"), 1);
  log.Clear();
  const uint8_t row[4] = {1, 2, 3, 4};
  EXPECT_NE(bivista::writeFile("/nonexistent-bv/dir/f.yuv", row, 4, 1, 4), 0);
  EXPECT_EQ(bvtest::CountMsg(log, 6, kAlgo, "writeFile",
                             "Debug open file Error:/nonexistent-bv/dir/f.yuv!"), 1);
}

}  // namespace
