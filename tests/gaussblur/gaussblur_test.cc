// Whole blurs against the direct definition: kernels, sizes, strides, in place, threads, pools.
#include "bivista/gaussblur.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "bivista/mthread.h"
#include "gaussblur/gaussblur_internal.h"
#include "gaussblur_reference.h"
#include "support/alloc_table.h"
#include "support/platform_capture.h"

namespace {

using Path = int (*)(const uint8_t*, uint8_t*, int, int, int, int, const uint16_t*, void*, int,
                     uint8_t*);

Path PathFor(int k) {
  return k == 3   ? GaussianBlur3x3_u8_optimization_multithread
         : k == 5 ? GaussianBlur5x5_u8_optimization_multithread
                  : GaussianBlur7x7_u8_optimization_multithread;
}

// Caller scratch as the header documents it, in rows of src_stride bytes.
size_t BufBytes(int k, int threads, int srcStride, bool inPlace) {
  const int window = k - 1;
  return static_cast<size_t>(window) * (threads + (inPlace ? threads + 1 : 0)) * srcStride;
}

class GaussBlur : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    for (int n = 1; n <= 4; ++n) pools_[n] = MThread_Create(n, nullptr, nullptr);
  }
  static void TearDownTestSuite() {
    for (int n = 1; n <= 4; ++n) MThread_Destroy(pools_[n]);
  }
  static void* pools_[5];
};
void* GaussBlur::pools_[5] = {nullptr};

struct Case {
  int k, width, height, srcStride, dstStride, threads;
  bool inPlace, pool, callerBuf, direct;
};

TEST_F(GaussBlur, EqualsTheDefinitionAcrossSizesStridesThreadsAndInPlace) {
  std::mt19937 rng(2024);
  const int widths[] = {7, 8, 9, 16, 17, 33, 40, 65, 100, 131};
  bvtest::LogCapture log;  // keeps the single-thread warnings quiet
  for (int iter = 0; iter < 240; ++iter) {
    Case c;
    c.k = 3 + 2 * (iter % 3);
    c.width = widths[rng() % 10];
    c.threads = 1 + static_cast<int>(rng() % 4);
    c.height = c.k - 1 + c.threads + static_cast<int>(rng() % 40);
    c.srcStride = c.width + static_cast<int>(rng() % 3 == 0 ? 0 : rng() % 13);
    c.inPlace = rng() % 3 == 0;
    c.dstStride = c.inPlace ? c.srcStride : c.width + static_cast<int>(rng() % 9);
    c.pool = c.threads > 1 || rng() % 2;
    c.callerBuf = rng() % 2;
    c.direct = rng() % 2;
    SCOPED_TRACE(testing::Message()
                 << "k " << c.k << " " << c.width << "x" << c.height << " strides " << c.srcStride
                 << "/" << c.dstStride << " threads " << c.threads << " inPlace " << c.inPlace
                 << " pool " << c.pool << " pBuf " << c.callerBuf << " direct " << c.direct);

    const std::vector<uint8_t> image =
        bvtest::RandomBytes(static_cast<size_t>(c.srcStride) * c.height, rng);
    std::vector<uint16_t> taps(c.k);
    const float sigma = 0.3f + static_cast<float>(rng() % 100) / 40.f;
    if (c.direct) {
      taps = bvtest::RandomTaps(c.k, rng);
    } else {
      ASSERT_EQ(bivista::get_gaussian_kernel(c.k, taps.data(), sigma), 0);
    }
    const std::vector<uint8_t> expected =
        bvtest::ReferenceBlur(image.data(), c.width, c.height, c.srcStride, taps);

    std::vector<uint8_t> out =
        c.inPlace ? image : std::vector<uint8_t>(static_cast<size_t>(c.dstStride) * c.height, 0xEE);
    const std::vector<uint8_t> before = out;
    const uint8_t* src = c.inPlace ? out.data() : image.data();
    std::vector<uint8_t> buf;
    const size_t guard = 64;
    if (c.callerBuf) buf.assign(BufBytes(c.k, c.threads, c.srcStride, c.inPlace) + guard, 0x77);
    uint8_t* pBuf = c.callerBuf ? buf.data() : nullptr;
    void* pool = c.pool ? pools_[c.threads] : nullptr;
    int result;
    if (c.direct) {
      result = PathFor(c.k)(src, out.data(), c.width, c.height, c.srcStride, c.dstStride,
                            taps.data(), pool, c.threads, pBuf);
    } else {
      result = gaussian_blur(src, out.data(), c.width, c.height, c.srcStride, c.dstStride, c.k,
                             sigma, pool, c.threads, pBuf);
    }
    ASSERT_EQ(result, 0);
    for (int y = 0; y < c.height; ++y) {
      for (int x = 0; x < c.dstStride; ++x) {
        const uint8_t got = out[y * c.dstStride + x];
        if (x < c.width) {
          ASSERT_EQ(got, expected[y * c.width + x]) << "at " << x << "," << y;
        } else {
          ASSERT_EQ(got, before[y * c.dstStride + x]) << "padding at " << x << "," << y;
        }
      }
    }
    for (size_t i = buf.size() - (c.callerBuf ? guard : 0); i < buf.size(); ++i) {
      ASSERT_EQ(buf[i], 0x77) << "caller buffer overrun";
    }
  }
}

TEST_F(GaussBlur, ShortFormUsesTheWidthAsStrideAndConstantImagesStayConstant) {
  std::mt19937 rng(3);
  bvtest::LogCapture log;
  for (int k = 3; k <= 7; k += 2) {
    for (float sigma : {0.2f, 0.8f, 1.4f, 3.0f}) {
      const int width = 29;
      const int height = 19;
      std::vector<uint8_t> image(width * height, static_cast<uint8_t>(rng()));
      std::vector<uint8_t> out(image.size());
      ASSERT_EQ(
          gaussian_blur(image.data(), out.data(), width, height, k, sigma, pools_[2], 2, nullptr),
          0);
      EXPECT_EQ(out, image) << k << " " << sigma;
      image = bvtest::RandomBytes(image.size(), rng);
      std::vector<uint16_t> taps(k);
      ASSERT_EQ(bivista::get_gaussian_kernel(k, taps.data(), sigma), 0);
      ASSERT_EQ(
          gaussian_blur(image.data(), out.data(), width, height, k, sigma, nullptr, 1, nullptr), 0);
      EXPECT_EQ(out, bvtest::ReferenceBlur(image.data(), width, height, width, taps));
    }
  }
}

TEST_F(GaussBlur, CallerBufferMakesThePathAllocationFree) {
  std::mt19937 rng(8);
  const int width = 40, height = 30, threads = 3;
  std::vector<uint8_t> image = bvtest::RandomBytes(width * height, rng);
  const std::vector<uint16_t> taps = {16, 64, 96, 64, 16};
  std::vector<uint8_t> buf(BufBytes(5, threads, width, true));
  bvtest::MallocWatch watch;
  ASSERT_EQ(GaussianBlur5x5_u8_optimization_multithread(image.data(), image.data(), width, height,
                                                        width, width, taps.data(), pools_[3],
                                                        threads, buf.data()),
            0);
  EXPECT_EQ(watch.calls(), 0);
}

TEST(GaussKernel, FixedRowsComputedRowsAndTheCentreCorrection) {
  std::vector<uint16_t> t(13);
  ASSERT_EQ(bivista::get_gaussian_kernel(3, t.data(), 0.f), 0);
  EXPECT_EQ(std::vector<uint16_t>(t.begin(), t.begin() + 3), (std::vector<uint16_t>{64, 128, 64}));
  ASSERT_EQ(bivista::get_gaussian_kernel(5, t.data(), -1.f), 0);
  EXPECT_EQ(std::vector<uint16_t>(t.begin(), t.begin() + 5),
            (std::vector<uint16_t>{16, 64, 96, 64, 16}));
  ASSERT_EQ(bivista::get_gaussian_kernel(7, t.data(), 0.f), 0);
  EXPECT_EQ(std::vector<uint16_t>(t.begin(), t.begin() + 7),
            (std::vector<uint16_t>{8, 28, 56, 72, 56, 28, 8}));
  ASSERT_EQ(bivista::get_gaussian_kernel(1, t.data(), 0.f), 0);
  EXPECT_EQ(t[0], 256);
  ASSERT_EQ(bivista::get_gaussian_kernel(3, t.data(), 0.8f), 0);
  EXPECT_EQ(std::vector<uint16_t>(t.begin(), t.begin() + 3), (std::vector<uint16_t>{61, 134, 61}));

  // Independent formulation: rounded taps, the centre absorbing the rounding error.
  for (int n = 3; n <= 13; n += 2) {
    for (float sigma : {0.f, 0.5f, 0.8f, 1.1f, 1.4f, 2.f, 5.f}) {
      if (n < 8 && sigma <= 0) continue;
      const double s = sigma > 0 ? sigma : ((n - 1) * 0.5 - 1) * 0.3 + 0.8;
      std::vector<double> w(n);
      double sum = 0;
      for (int i = 0; i < n; ++i) {
        const double x = i - (n - 1) / 2;
        w[i] = std::exp(-x * x / (2 * s * s));
        sum += w[i];
      }
      std::vector<int> expected(n);
      int total = 0;
      for (int i = 0; i < n; ++i) total += expected[i] = static_cast<int>(w[i] / sum * 256 + 0.5);
      expected[n / 2] += 256 - total;
      ASSERT_EQ(bivista::get_gaussian_kernel(n, t.data(), sigma), 0);
      int got = 0;
      for (int i = 0; i < n; ++i) {
        EXPECT_EQ(t[i], expected[i]) << "n " << n << " sigma " << sigma << " tap " << i;
        EXPECT_EQ(t[i], t[n - 1 - i]);
        got += t[i];
      }
      EXPECT_EQ(got, 256);
    }
  }
}

}  // namespace
