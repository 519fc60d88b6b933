// Cross-checks against OpenCV where the operation is the same.
#include <gtest/gtest.h>
#include <stdint.h>

#include <map>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <vector>

#include "bivista/morphology.h"
#include "morph_test_util.h"
#include "support/alloc_table.h"

namespace {

using morphtest::Bytes;

cv::Mat View(Bytes& b, int w, int h) { return cv::Mat(h, w, CV_8UC1, b.data()); }

TEST(MorphologyPeers, FixedKernelInteriorsMatchOpenCv) {
  std::mt19937 rng(61);
  for (int rep = 0; rep < 6; ++rep) {
    const int w = 23 + rep * 7, h = 17 + rep * 5;
    Bytes m = morphtest::MakeMask(w, h, morphtest::kKinds[rep % 3], rng, 255, 0);
    for (int shape = 0; shape < 3; ++shape) {
      const int n = shape == 2 ? 1 : 1 + rep % 3;  // iterations
      const int reach = shape == 2 ? 2 : n;        // untouched by the frozen frame
      const cv::Mat kernel = cv::getStructuringElement(
          shape == 0 ? cv::MORPH_CROSS : cv::MORPH_RECT, shape == 2 ? cv::Size(5, 5) : cv::Size(3, 3));
      for (bool useOr : {false, true}) {
        Bytes img = m, scratch(w * h);
        if (shape == 0) (useOr ? DilateWith3x3Cross : ErodeWith3x3Cross)(img.data(), scratch.data(), w, h, w, n);
        if (shape == 1) (useOr ? DilateWith3x3Rect : ErodeWith3x3Rect)(img.data(), scratch.data(), w, h, w, n);
        if (shape == 2) (useOr ? DilateWith5x5Rect : ErodeWith5x5Rect)(img.data(), scratch.data(), w, h, w);
        cv::Mat peer;
        if (useOr) cv::dilate(View(m, w, h), peer, kernel, cv::Point(-1, -1), n);
        else cv::erode(View(m, w, h), peer, kernel, cv::Point(-1, -1), n);
        for (int y = reach; y < h - reach; ++y) {
          for (int x = reach; x < w - reach; ++x) {
            ASSERT_EQ(img[y * w + x], peer.at<uint8_t>(y, x)) << "shape " << shape << " or " << useOr;
          }
        }
      }
    }
  }
}

TEST(MorphologyPeers, BoxEnginesMatchOpenCvRectangles) {
  std::mt19937 rng(62);
  bvtest::AllocTable host;
  for (int rep = 0; rep < 6; ++rep) {
    const int w = 40 + rep * 11, h = 31 + rep * 3;
    Bytes m = morphtest::MakeMask(w, h, morphtest::kKinds[rep % 3], rng);
    for (int k : {3, 4, 7, 11}) {
      const int r = k / 2;
      const cv::Mat square = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(2 * r + 1, 2 * r + 1));
      // Row 0 and column 0 take no part: compare with the peer on the rest of the image.
      cv::Mat inner = View(m, w, h)(cv::Rect(1, 1, w - 1, h - 1)).clone(), e, d;
      cv::erode(inner, e, square);
      cv::dilate(inner, d, square);
      Bytes oe(w * h), od(w * h);
      ASSERT_EQ(ImErode(host.table(), m.data(), oe.data(), w, h, k), 0);
      ASSERT_EQ(ImDilate(host.table(), m.data(), od.data(), w, h, k), 0);
      for (int y = 1; y < h; ++y) {
        for (int x = 1; x < w; ++x) {
          ASSERT_EQ(oe[y * w + x], e.at<uint8_t>(y - 1, x - 1)) << "k=" << k;
          ASSERT_EQ(od[y * w + x], d.at<uint8_t>(y - 1, x - 1)) << "k=" << k;
        }
      }
      for (int kH : {r, r + 2}) {
        const cv::Mat rect = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(2 * r + 1, 2 * kH + 1));
        cv::Mat pe, pd;
        cv::erode(View(m, w, h), pe, rect);
        cv::dilate(View(m, w, h), pd, rect);
        Bytes a = m, b = m;
        ASSERT_EQ(Erosion_Dilation_Function_opt(a.data(), w, h, r, kH, 0), 0);
        ASSERT_EQ(Erosion_Dilation_Function_opt(b.data(), w, h, r, kH, 1), 0);
        EXPECT_EQ(0, cv::countNonZero(View(a, w, h) != pe));
        EXPECT_EQ(0, cv::countNonZero(View(b, w, h) != pd));
      }
    }
  }
}

// Same partition as the peer: a one-to-one map between the two label sets.
void ExpectSamePartition(const std::vector<int>& ours, const cv::Mat& peer) {
  std::map<int, int> fwd, back;
  for (int i = 0; i < static_cast<int>(ours.size()); ++i) {
    const int a = ours[i], b = peer.at<int>(i / peer.cols, i % peer.cols);
    ASSERT_EQ(a == 0, b == 0) << i;
    if (a == 0) continue;
    ASSERT_TRUE(fwd.emplace(a, b).first->second == b) << i;
    ASSERT_TRUE(back.emplace(b, a).first->second == a) << i;
  }
}

TEST(MorphologyPeers, ComponentPartitionsMatchOpenCvWithColumnZeroClear) {
  std::mt19937 rng(63);
  for (int rep = 0; rep < 12; ++rep) {
    const int w = 30 + rep * 13, h = 20 + rep * 9;
    Bytes m = morphtest::MakeMask(w, h, morphtest::kKinds[rep % 3], rng, 255, 0);
    for (int y = 0; y < h; ++y) m[y * w] = 0;
    for (int conn : {4, 8}) {
      std::vector<int> labels(w * h), table(w * h + 2);
      int count = 0;
      (conn == 8 ? connectTwoPass_8 : connectTwoPass)(m.data(), labels.data(), w, h, &count,
                                                      table.data(), 255);
      cv::Mat peer;
      cv::connectedComponents(View(m, w, h), peer, conn, CV_32S);
      ExpectSamePartition(labels, peer);
    }
  }
}

}  // namespace
