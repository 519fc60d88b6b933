// NV21 <-> I420 byte-equal to the libyuv conversions.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "bivista/imageformat.h"
#include "libyuv.h"

namespace {

TEST(YuvPeer, Nv21ToI420AndBackEqualLibyuv) {
  std::mt19937 rng(41);
  const int sizes[][3] = {{2, 2, 2}, {64, 32, 64}, {66, 10, 80}, {130, 34, 160}, {318, 6, 320}};
  for (const auto& s : sizes) {
    const int w = s[0], h = s[1], stride = s[2], cw = w / 2, ch = h / 2;
    std::vector<uint8_t> nv21(static_cast<size_t>(stride) * h * 3 / 2);
    for (auto& b : nv21) b = static_cast<uint8_t>(rng());
    std::vector<uint8_t> ours(w * h * 3 / 2), peer(w * h * 3 / 2);
    ConvertNV21ToI420(nv21.data(), ours.data(), w, h, stride);
    uint8_t* pu = peer.data() + w * h;
    uint8_t* pv = pu + cw * ch;
    ASSERT_EQ(0, libyuv::NV21ToI420(nv21.data(), stride, nv21.data() + stride * h, stride,
                                    peer.data(), w, pu, cw, pv, cw, w, h));
    EXPECT_EQ(ours, peer) << w << "x" << h;

    std::vector<uint8_t> back(nv21.size(), 0), peerBack(nv21.size(), 0);
    ConvertI420ToNV21(ours.data(), back.data(), w, h, stride);
    ASSERT_EQ(0, libyuv::I420ToNV21(peer.data(), w, pu, cw, pv, cw, peerBack.data(), stride,
                                    peerBack.data() + stride * h, stride, w, h));
    EXPECT_EQ(back, peerBack) << w << "x" << h;
  }
}

}  // namespace
