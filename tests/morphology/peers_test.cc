// Cross-checks against OpenCV where the operation is the same.
#include <gtest/gtest.h>

#include <map>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bivista/morphology.h"
#include "morph_test_util.h"
#include "support/alloc_table.h"

namespace {

using namespace morphtest;

cv::Mat View(Bytes& b, int w, int h) { return cv::Mat(h, w, CV_8UC1, b.data()); }

cv::Mat Peer(Bytes& m, int w, int h, bool dilate, const cv::Mat& element, int iterations = 1) {
  cv::Mat out;
  if (dilate) cv::dilate(View(m, w, h), out, element, cv::Point(-1, -1), iterations);
  if (!dilate) cv::erode(View(m, w, h), out, element, cv::Point(-1, -1), iterations);
  return out;
}

cv::Mat Rect(int rx, int ry) { return cv::getStructuringElement(cv::MORPH_RECT, cv::Size(2 * rx + 1, 2 * ry + 1)); }

TEST(MorphologyPeers, FixedKernelInteriorsMatchOpenCv) {
  std::mt19937 rng(61);
  for (int rep = 0; rep < 6; ++rep) {
    const int w = 23 + rep * 7, h = 17 + rep * 5;
    Bytes m = MakeMask(w, h, kKinds[rep % 3], rng, 255, 0);
    for (Shape shape : {kCross, kRect3, kRect5}) {
      const int n = shape == kRect5 ? 1 : 1 + rep % 3;  // iterations
      const int reach = shape == kRect5 ? 2 : n;        // untouched by the frozen frame
      const cv::Mat kernel = shape == kCross ? cv::getStructuringElement(cv::MORPH_CROSS, cv::Size(3, 3))
                                             : Rect(shape == kRect5 ? 2 : 1, shape == kRect5 ? 2 : 1);
      for (bool useOr : {false, true}) {
        Bytes img = m, scratch(w * h);
        RunShape(shape, useOr, img.data(), scratch.data(), w, h, w, n);
        const cv::Mat peer = Peer(m, w, h, useOr, kernel, n);
        const cv::Rect inner(reach, reach, w - 2 * reach, h - 2 * reach);
        EXPECT_EQ(0, cv::countNonZero(View(img, w, h)(inner) != peer(inner))) << shape << " or " << useOr;
      }
    }
  }
}

TEST(MorphologyPeers, BoxEnginesMatchOpenCvRectangles) {
  std::mt19937 rng(62);
  bvtest::AllocTable host;
  for (int rep = 0; rep < 6; ++rep) {
    const int w = 40 + rep * 11, h = 31 + rep * 3;
    Bytes m = MakeMask(w, h, kKinds[rep % 3], rng);
    for (int k : {3, 4, 7, 11}) {
      const int r = k / 2;
      // Row 0 and column 0 take no part: compare with the peer on the rest of the image.
      Bytes inner(View(m, w, h)(cv::Rect(1, 1, w - 1, h - 1)).clone().reshape(1, 1)), oe(w * h), od(w * h);
      ASSERT_EQ(ImErode(host.table(), m.data(), oe.data(), w, h, k), 0);
      ASSERT_EQ(ImDilate(host.table(), m.data(), od.data(), w, h, k), 0);
      const cv::Rect rest(1, 1, w - 1, h - 1);
      EXPECT_EQ(0, cv::countNonZero(View(oe, w, h)(rest) != Peer(inner, w - 1, h - 1, false, Rect(r, r)))) << k;
      EXPECT_EQ(0, cv::countNonZero(View(od, w, h)(rest) != Peer(inner, w - 1, h - 1, true, Rect(r, r)))) << k;
      for (int kH : {r, r + 2}) {
        for (uint8_t v : {0, 1}) {
          Bytes a = m;
          ASSERT_EQ(Erosion_Dilation_Function_opt(a.data(), w, h, r, kH, v), 0);
          EXPECT_EQ(0, cv::countNonZero(View(a, w, h) != Peer(m, w, h, v, Rect(r, kH))));
        }
      }
    }
  }
}

// Same partition as the peer (a one-to-one map between the two label sets) once column 0, which
// the 8-connected pass links differently, is clear.
TEST(MorphologyPeers, ComponentPartitionsMatchOpenCvWithColumnZeroClear) {
  std::mt19937 rng(63);
  for (int rep = 0; rep < 12; ++rep) {
    const int w = 30 + rep * 13, h = 20 + rep * 9;
    Bytes m = MakeMask(w, h, kKinds[rep % 3], rng, 255, 0);
    for (int y = 0; y < h; ++y) m[y * w] = 0;
    for (int conn : {4, 8}) {
      std::vector<int> labels(w * h), table(w * h + 2);
      int count = 0;
      (conn == 8 ? connectTwoPass_8 : connectTwoPass)(m.data(), labels.data(), w, h, &count, table.data(), 255);
      cv::Mat peer;
      cv::connectedComponents(View(m, w, h), peer, conn, CV_32S);
      std::map<int, int> fwd, back;
      for (int i = 0; i < w * h; ++i) {
        const int a = labels[i], b = peer.at<int>(i / w, i % w);
        ASSERT_EQ(a == 0, b == 0) << i;
        ASSERT_TRUE(!a || (fwd.emplace(a, b).first->second == b && back.emplace(b, a).first->second == a)) << i;
      }
    }
  }
}

}  // namespace
