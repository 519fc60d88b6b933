// The smoother and OpenCV's fast global smoother on a smooth noisy scene: not equal (the
// couplings differ), but both remove most of the noise and land close to each other.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/ximgproc/edge_filter.hpp>
#include <random>
#include <vector>

#include "bivista/fgs.h"
#include "support/alloc_table.h"

namespace {

TEST(FgsPeer, SameBallparkAsOpenCVOnASmoothScene) {
  const int w = 160, h = 120;
  std::vector<float> clean(w * h), noisy(w * h);
  std::vector<uint8_t> guide(w * h * 3), mask(w * h, 0);
  std::mt19937 rng(1);
  std::normal_distribution<float> noise(0.0f, 0.2f);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const int i = y * w + x;
      const bool right = x >= w / 2;
      clean[i] = (right ? 6.0f : 2.0f) + 0.01f * y;
      noisy[i] = clean[i] + noise(rng);
      for (int k = 0; k < 3; ++k) guide[i * 3 + k] = static_cast<uint8_t>(right ? 200 - 40 * k : 40 + 30 * k);
    }
  bvtest::AllocTable table;
  std::vector<float> ours = noisy;
  FGSFilter(mask.data(), ours.data(), guide.data(), 0, h, w, 3, 3, nullptr, 1, table.table(),
            8.0f, 100.0f);
  cv::Mat peer;
  cv::ximgproc::fastGlobalSmootherFilter(cv::Mat(h, w, CV_8UC3, guide.data()),
                                         cv::Mat(h, w, CV_32F, noisy.data()), peer, 100.0, 8.0,
                                         0.25, 3);
  double errNoisy = 0, errOurs = 0, errPeer = 0, apart = 0;
  for (int i = 0; i < w * h; ++i) {
    errNoisy += std::fabs(noisy[i] - clean[i]);
    errOurs += std::fabs(ours[i] - clean[i]);
    errPeer += std::fabs(peer.ptr<float>()[i] - clean[i]);
    apart += std::fabs(ours[i] - peer.ptr<float>()[i]);
  }
  EXPECT_LT(errOurs, errNoisy / 3);
  EXPECT_LT(errPeer, errNoisy / 3);
  EXPECT_LT(apart, errNoisy / 3);
  // The colour edge is kept: the two halves stay apart.
  EXPECT_GT(ours[60 * w + w / 2 + 2] - ours[60 * w + w / 2 - 3], 3.5f);
}

}  // namespace
