// Refusals of the blur: order of the checks, exact messages, destinations left as stated.
#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdio.h>

#include <random>
#include <string>
#include <vector>

#include "bivista/gaussblur.h"
#include "bivista/mthread.h"
#include "gaussblur/gaussblur_internal.h"
#include "gaussblur_reference.h"
#include "support/alloc_table.h"
#include "support/platform_capture.h"

namespace {

using bvtest::CountMsg;
using bvtest::LogCapture;

const char kAlgo[] = "ZR481_ALGO";
const char kBlur[] = "gaussian_blur";

std::string Fmt(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Fmt(const char* format, ...) {
  char text[256];
  va_list ap;
  va_start(ap, format);
  vsnprintf(text, sizeof text, format, ap);
  va_end(ap);
  return text;
}

// Error lines of the blur (level 6, "ZR481_ALGO").
int Errors(const LogCapture& log, const char* func, const std::string& text, int line) {
  return CountMsg(log, 6, kAlgo, func, text, line);
}

struct Image {
  explicit Image(int w, int h, uint32_t seed = 1) : width(w), height(h) {
    std::mt19937 rng(seed);
    src = bvtest::RandomBytes(static_cast<size_t>(w) * h, rng);
    dst.assign(src.size(), 0xC3);
  }
  int Blur(int k, float sigma, void* pool, int threads) {
    return gaussian_blur(src.data(), dst.data(), width, height, k, sigma, pool, threads, nullptr);
  }
  bool Untouched() const { return dst == std::vector<uint8_t>(src.size(), 0xC3); }
  int width, height;
  std::vector<uint8_t> src, dst;
};

// Pools for the tests; created once, destroyed at exit of the suite.
class GaussErrors : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    pool2_ = MThread_Create(2, nullptr, nullptr);
    pool4_ = MThread_Create(4, nullptr, nullptr);
  }
  static void TearDownTestSuite() {
    MThread_Destroy(pool2_);
    MThread_Destroy(pool4_);
  }
  static void* pool2_;
  static void* pool4_;
};
void* GaussErrors::pool2_ = nullptr;
void* GaussErrors::pool4_ = nullptr;

TEST_F(GaussErrors, ArgumentChecksRunInOrderAndLeaveTheDestination) {
  Image im(20, 12);
  LogCapture log;
  // Stride first, even with null images.
  EXPECT_EQ(gaussian_blur(nullptr, nullptr, 20, 12, 19, 20, 3, 0.8f, nullptr, 1, nullptr), -1);
  EXPECT_EQ(
      Errors(log, kBlur, "ERROR: src_stride[19] or dst_stride[20] is less than width[20]!!!", 2788),
      1);
  EXPECT_EQ(gaussian_blur(im.src.data(), nullptr, 20, 12, 3, 0.8f, pool2_, 9, nullptr), -1);
  EXPECT_EQ(Errors(log, kBlur,
                   Fmt("ERROR: org_Img[%p] or blur_img[%p] is NULL!!!",
                       static_cast<const void*>(im.src.data()), static_cast<void*>(nullptr)),
                   2793),
            1);
  EXPECT_EQ(im.Blur(3, 0.8f, nullptr, 2), -1);
  EXPECT_EQ(
      Errors(log, kBlur, "if th_pool is NULL, program will be executed in single thread!", 2799),
      1);
  EXPECT_EQ(im.Blur(3, 0.8f, pool2_, 5), -1);
  EXPECT_EQ(Errors(log, kBlur, "th_num too large! th_num[5]", 2809), 1);
  for (int k : {1, 2, 4, 15, -3}) {
    EXPECT_EQ(im.Blur(k, -1.f, pool2_, 2), -1);  // the length is checked before sigma
    EXPECT_EQ(Errors(log, kBlur, Fmt("ATTENTION: k_length is wrong!k_length[%d]", k), 2815), 1);
  }
  EXPECT_EQ(im.Blur(5, 0.f, pool2_, 2), -1);
  EXPECT_EQ(im.Blur(5, -0.5f, pool2_, 2), -1);
  EXPECT_EQ(Errors(log, kBlur, "ATTENTION: sigma is wrong!sigma[0.000000]", 2820), 1);
  EXPECT_EQ(Errors(log, kBlur, "ATTENTION: sigma is wrong!sigma[-0.500000]", 2820), 1);
  EXPECT_EQ(log.Lines().size(), 11u);
  EXPECT_TRUE(im.Untouched());
}

TEST_F(GaussErrors, LengthsNineToThirteenPassTheChecksAndAreRefusedLater) {
  Image im(20, 12);
  LogCapture log;
  EXPECT_EQ(im.Blur(9, 1.5f, pool2_, 2), -1);
  EXPECT_EQ(im.Blur(11, 1.8f, pool2_, 2), -1);
  EXPECT_EQ(im.Blur(13, 2.f, pool2_, 2), -1);
  EXPECT_EQ(Errors(log, kBlur,
                   "not support parameter in gaussian_blur k_length[9] for now, To be done.", 2846),
            1);
  EXPECT_EQ(
      Errors(log, kBlur,
             "not support parameter in gaussian_blur, k_length[11] for now, To be done.", 2850),
      1);
  EXPECT_EQ(
      Errors(log, kBlur,
             "not support parameter in gaussian_blur, k_length[13] for now, To be done.", 2854),
      1);
  for (int k : {9, 11, 13}) {
    EXPECT_EQ(Errors(log, kBlur, Fmt("gaussian_blur error!, k_length[%d]", k), 2861), 1);
  }
  // 6 x 2 + 1 = 13 is not above 13: only the first two warn.
  EXPECT_EQ(log.CountContaining("sigma doesn't match"), 2);
  EXPECT_TRUE(im.Untouched());
}

TEST_F(GaussErrors, SigmaTooWideForTheLengthWarnsAndBlurs) {
  Image im(20, 12);
  LogCapture log;
  EXPECT_EQ(im.Blur(3, 1.f, nullptr, 1), 0);
  EXPECT_EQ(
      CountMsg(log, 5, kAlgo, kBlur,
               "ATTENTION: sigma doesn't match with k_length!sigma[1.000000], k_length[3]", 2825),
      1);
  EXPECT_EQ(CountMsg(log, 5, kAlgo, kBlur, "program will be executed in single thread!!! th_num[1]",
                     2804),
            1);
  EXPECT_EQ(log.Lines().size(), 2u);
  EXPECT_FALSE(im.Untouched());
}

TEST_F(GaussErrors, TooSmallImagesAreCopiedAndRefused) {
  struct Small {
    int k, width, height, bodyLine, headLine, errorLine;
    const char* body;
    const char* head;
    const char* path;
    const char* errorIn;
  };
  const Small cases[] = {
      {3, 9, 2, 163, 363, 643, "GaussianBlur3x3_u8_optimization_multithread_body",
       "GaussianBlur3x3_u8_optimization_multithread_head_tail",
       "GaussianBlur3x3_u8_optimization_multithread", "GaussianBlur3x3_u8_optimization error in"},
      {3, 2, 9, 163, 363, 643, "GaussianBlur3x3_u8_optimization_multithread_body",
       "GaussianBlur3x3_u8_optimization_multithread_head_tail",
       "GaussianBlur3x3_u8_optimization_multithread", "GaussianBlur3x3_u8_optimization error in"},
      {5, 4, 12, 709, 1204, 1551, "GaussianBlur5x5_u8_optimization_multithread_body",
       "GaussianBlur5x5_u8_optimization_multithread_head_tail",
       "GaussianBlur5x5_u8_optimization_multithread", "GaussianBlur5x5_u8_optimization error in"},
      {7, 12, 6, 1630, 2312, 2753, "GaussianBlur7x7_u8_optimization_multithread_body",
       "GaussianBlur7x7_u8_optimization_multithread_head_tail",
       "GaussianBlur7x7_u8_optimization_multithread", "GaussianBlur7x7_u8_optimization error in"},
  };
  const std::string small =
      "the width or height of the input image is too small, copy source to destination!\n";
  for (const Small& c : cases) {
    SCOPED_TRACE(c.path);
    Image im(c.width, c.height);
    LogCapture log;
    EXPECT_EQ(im.Blur(c.k, 0.5f, pool2_, 2), -1);
    EXPECT_EQ(im.dst, im.src);                             // every row copied
    EXPECT_EQ(Errors(log, c.body, small, c.bodyLine), 2);  // both strips
    EXPECT_EQ(Errors(log, c.head, small, c.headLine), 1);
    EXPECT_EQ(Errors(log, c.path, std::string(c.errorIn) + " " + c.path + "\n", c.errorLine), 1);
    EXPECT_EQ(Errors(log, kBlur, Fmt("%s error!, k_length[%d]", c.path, c.k), 2861), 1);
  }
}

TEST_F(GaussErrors, EmptyStripsAreReportedButTheOtherRowsAreBlurred) {
  // Height 4 with 4 threads: 2 interior rows, so threads 0-2 get none.
  Image im(16, 4);
  LogCapture log;
  EXPECT_EQ(im.Blur(3, 0.5f, pool4_, 4), -1);
  EXPECT_EQ(Errors(log, "GaussianBlur3x3_u8_optimization_multithread_body",
                   "the width or height of the input image is too small, copy source to "
                   "destination!\n",
                   163),
            3);
  std::vector<uint16_t> taps(3);
  ASSERT_EQ(bivista::get_gaussian_kernel(3, taps.data(), 0.5f), 0);
  EXPECT_EQ(im.dst, bvtest::ReferenceBlur(im.src.data(), 16, 4, 16, taps));
}

TEST_F(GaussErrors, PathRefusesNullKernelsShortPoolsAndZeroThreadsUntouched) {
  Image im(20, 12);
  const uint16_t taps[] = {64, 128, 64};
  LogCapture log;
  EXPECT_EQ(GaussianBlur3x3_u8_optimization_multithread(im.src.data(), im.dst.data(), 20, 12, 20,
                                                        20, nullptr, pool2_, 2, nullptr),
            -1);
  EXPECT_EQ(Errors(log, "GaussianBlur3x3_u8_optimization_multithread",
                   Fmt("input parameters error!src[%p] dst[%p] kernel[%p]",
                       static_cast<void*>(im.src.data()), static_cast<void*>(im.dst.data()),
                       static_cast<void*>(nullptr)),
                   512),
            1);
  EXPECT_EQ(GaussianBlur3x3_u8_optimization_multithread(im.src.data(), im.dst.data(), 20, 12, 20,
                                                        20, taps, pool2_, 3, nullptr),
            -1);
  EXPECT_EQ(Errors(log, "GaussianBlur3x3_u8_optimization_multithread",
                   "th_pool has 2 threads, fewer than th_num[3]!", 517),
            1);
  EXPECT_EQ(GaussianBlur7x7_u8_optimization_multithread(im.src.data(), im.dst.data(), 20, 12, 20,
                                                        20, taps, nullptr, 17, nullptr),
            -1);
  EXPECT_EQ(Errors(log, "GaussianBlur7x7_u8_optimization_multithread",
                   "th_num too large! th_num[17]", 2624),
            1);
  EXPECT_EQ(im.Blur(5, 0.8f, pool2_, 0), -1);
  EXPECT_EQ(
      Errors(log, "GaussianBlur5x5_u8_optimization_Body_Caller", "threadNum is zero!!!\n", 1161),
      1);
  EXPECT_EQ(Errors(log, "GaussianBlur5x5_u8_optimization_multithread",
                   "GaussianBlur5x5_u8_optimization error in "
                   "GaussianBlur5x5_u8_optimization_multithread\n",
                   1551),
            1);
  EXPECT_TRUE(im.Untouched());
}

TEST_F(GaussErrors, WorkersReportMissingScratch) {
  struct W {
    void* (*worker)(void*, int);
    int radius, line;
    const char* name;
    const char* text;
  };
  const W workers[] = {
      {GaussianBlur3x3_u8_optimization_Body_Caller, 1, 171,
       "GaussianBlur3x3_u8_optimization_multithread_body", "pBuf_3x3"},
      {GaussianBlur5x5_u8_optimization_Body_Caller, 2, 718,
       "GaussianBlur5x5_u8_optimization_multithread_body", "pBuf_5x5"},
      {GaussianBlur7x7_u8_optimization_Body_Caller, 3, 1640,
       "GaussianBlur7x7_u8_optimization_multithread_body", "pBuf_7x7"},
  };
  for (const W& w : workers) {
    Image im(20, 12);
    const uint16_t taps[] = {0, 0, 0, 256, 0, 0, 0};
    int32_t status = 0;
    const uint8_t* bounds[2] = {im.src.data(), im.src.data() + 20 * (12 - w.radius)};
    bivista::GaussJob job = {20,
                             12 - 2 * w.radius,
                             20,
                             20,
                             1,
                             &status,
                             taps,
                             im.src.data() + 20 * w.radius,
                             im.dst.data() + 20 * w.radius,
                             bounds,
                             nullptr,
                             w.radius};
    bivista::GaussArg arg = {&job, 0};
    LogCapture log;
    w.worker(&arg, 0);
    EXPECT_EQ(status, -1);
    EXPECT_EQ(
        Errors(log, w.name,
               Fmt("input parameters error!%s[%p]\n", w.text, static_cast<void*>(nullptr)), w.line),
        1);
    EXPECT_TRUE(im.Untouched());
  }
}

TEST_F(GaussErrors, AllocationFailuresAreReportedLeakFreeAndUntouched) {
  for (bool inPlace : {false, true}) {
    for (int k = 3; k <= 7; k += 2) {
      SCOPED_TRACE(testing::Message() << "k " << k << " inPlace " << inPlace);
      LogCapture log;
      std::vector<std::string> seen;
      const int runs = bvtest::ForEachMallocFailure([&](int run) {
        Image im(24, 16, 9);
        if (inPlace) im.dst = im.src;
        const std::vector<uint8_t> before = im.dst;
        const int result = gaussian_blur(inPlace ? im.dst.data() : im.src.data(), im.dst.data(), 24,
                                         16, k, 1.f, pool2_, 2, nullptr);
        if (result != 0) {
          EXPECT_EQ(im.dst, before) << run;
        }
      });
      EXPECT_EQ(runs, inPlace ? 4 : 3);
      const char* path = k == 3   ? "GaussianBlur3x3_u8_optimization_multithread"
                         : k == 5 ? "GaussianBlur5x5_u8_optimization_multithread"
                                  : "GaussianBlur7x7_u8_optimization_multithread";
      const int headTailLine = k == 3 ? 530 : k == 5 ? 1438 : 2632;
      const int scratchLine = k == 3 ? 600 : k == 5 ? 1508 : 2703;
      const std::string scratch =
          k == 7 ? "Malloc p_self_malloc_Buffer_1 fail " : "Malloc pTmp fail ";
      EXPECT_EQ(Errors(log, "get_gaussian_kernel", "cf Malloc failed!\n", 2886), 1);
      EXPECT_EQ(Errors(log, kBlur, "get_gaussian_kernel error!!!\n", 2831), 1);
      EXPECT_EQ(Errors(log, path, std::string("Malloc thread_head_tail_data fail ") + path + "\n",
                       headTailLine),
                inPlace ? 1 : 0);
      EXPECT_EQ(Errors(log, path, scratch + path + "\n", scratchLine), 1);
    }
  }
}

TEST(GaussKernelErrors, BadParametersAreReported) {
  LogCapture log;
  uint16_t taps[4];
  EXPECT_EQ(bivista::get_gaussian_kernel(4, taps, 1.f), -1);
  EXPECT_EQ(bivista::get_gaussian_kernel(3, nullptr, 1.f), -1);
  EXPECT_EQ(
      Errors(log, "get_gaussian_kernel",
             Fmt("get_gaussian_kernel Bad Parameter n[4] kernel[%p] !!", static_cast<void*>(taps)),
             2880),
      1);
  EXPECT_EQ(Errors(log, "get_gaussian_kernel",
                   Fmt("get_gaussian_kernel Bad Parameter n[3] kernel[%p] !!",
                       static_cast<void*>(nullptr)),
                   2880),
            1);
}

}  // namespace
