// Vector strips against scalar on every target, whole blurs against the direct definition, the
// kernel builder, and every refusal.
#include "bivista/gaussblur.h"

#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "bivista/mthread.h"
#include "gaussblur/gaussblur_internal.h"
#include "gaussblur/gaussblur_kernels.h"
#include "gaussblur_reference.h"
#include "support/alloc_table.h"
#include "support/edge_buffer.h"
#include "support/hwy_targets.h"
#include "support/platform_capture.h"

namespace {

using bvtest::LogCapture;
using Path = int (*)(const uint8_t*, uint8_t*, int, int, int, int, const uint16_t*, void*, int,
                     uint8_t*);
const char kBlur[] = "gaussian_blur";

Path PathFor(int k) {
  return k == 3   ? GaussianBlur3x3_u8_optimization_multithread
         : k == 5 ? GaussianBlur5x5_u8_optimization_multithread
                  : GaussianBlur7x7_u8_optimization_multithread;
}

std::string Fmt(const char* format, ...) {
  char text[256];
  va_list ap;
  va_start(ap, format);
  vsnprintf(text, sizeof text, format, ap);
  va_end(ap);
  return text;
}

// One strip and one border block through the dispatching kernels and the scalar definitions.
// Every buffer ends at an unreadable page when atPageEnd (an over-read faults), else starts
// `offset` bytes past an aligned address.
void CheckKernels(int r, int width, int count, const std::vector<uint16_t>& taps, bool extreme,
                  bool atPageEnd, size_t offset, std::mt19937& rng) {
  const long stride = width + (atPageEnd ? 0 : 5);
  const int rows = count + 2 * r;
  const size_t srcBytes = static_cast<size_t>(rows - 1) * stride + width;
  const size_t dstBytes = static_cast<size_t>(count - 1) * stride + width;
  const size_t ringBytes = static_cast<size_t>(2 * r - 1) * stride + width;
  bvtest::EdgeBuffer src(srcBytes, atPageEnd, offset), dst(dstBytes, atPageEnd, offset),
      ring(ringBytes, atPageEnd, offset);
  ASSERT_NE(src.data(), nullptr);
  for (size_t i = 0; i < srcBytes; ++i) src.data()[i] = extreme ? 255 : static_cast<uint8_t>(rng());
  memset(dst.data(), 0xA5, dstBytes);
  std::vector<uint8_t> ref(dst.data(), dst.data() + dstBytes), refRing(ringBytes);
  bivista::GaussStripArgs a{src.data(), src.data() + r * stride, src.data() + (r + count) * stride,
                            stride, dst.data(), stride, count, width, ring.data(), stride,
                            taps.data(), r};
  bivista::GaussStrip(a);
  a.dst = ref.data();
  a.scratch = refRing.data();
  bivista::scalar::GaussStrip(a);
  EXPECT_EQ(std::vector<uint8_t>(dst.data(), dst.data() + dstBytes), ref) << "strip";
  // Border block: any map of the horizontal rows; the outputs sit in the destination rows.
  bivista::GaussBorderArgs b{};
  b.width = width;
  b.kernel = taps.data();
  b.radius = r;
  for (int j = 0; j < 2 * r; ++j) {
    b.src[j] = src.data() + j * stride;
    b.h[j] = ring.data() + j * stride;
  }
  for (int o = 0; o < r; ++o) {
    for (int j = 0; j <= 2 * r; ++j) b.map[o][j] = static_cast<uint8_t>(rng() % (2 * r));
  }
  for (int o = 0; o < r && o < count; ++o) b.dst[o] = dst.data() + o * stride;
  bivista::GaussBorderArgs c = b;
  for (int j = 0; j < 2 * r; ++j) c.h[j] = refRing.data() + j * stride;
  for (int o = 0; o < r && o < count; ++o) c.dst[o] = ref.data() + o * stride;
  if (count >= r) {
    bivista::GaussBorder(b);
    bivista::scalar::GaussBorder(c);
    EXPECT_EQ(std::vector<uint8_t>(dst.data(), dst.data() + dstBytes), ref) << "border";
  }
}

TEST(GaussKernels, VectorStripsEqualScalarOnEveryTarget) {
  const int widths[] = {3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 38, 63, 64, 65, 70, 100, 129, 257};
  bvtest::ForEachHwyTarget([&](const char*) {
    std::mt19937 rng(11);
    for (int r = 1; r <= bivista::kGaussMaxRadius; ++r) {
      for (int width : widths) {
        if (width < 2 * r + 1) continue;
        SCOPED_TRACE(Fmt("radius %d width %d", r, width));
        // Extreme taps and bytes too: the 16-bit sums reach 65408 with all-255 rows.
        std::vector<uint16_t> taps = bvtest::RandomTaps(2 * r + 1, rng);
        if (width % 3 == 0) taps.assign(2 * r + 1, 0), taps[r] = 256;
        // Taps summing below 256 (callers may pass any): radius 1 then keeps the general form.
        if (width % 3 == 1) taps[r] = static_cast<uint16_t>(taps[r] - taps[r] / 8 - 1);
        CheckKernels(r, width, 2 * r + 3, taps, width % 4 == 1, width % 2 == 0, 0, rng);
      }
      // Every start offset up to a vector, on a width with a vector body and a tail.
      const std::vector<uint16_t> taps = bvtest::RandomTaps(2 * r + 1, rng);
      for (int offset = 0; offset <= bvtest::kMaxVectorBytes; ++offset) {
        SCOPED_TRACE(Fmt("radius %d offset %d", r, offset));
        CheckKernels(r, 150, 2 * r + 1, taps, false, false, static_cast<size_t>(offset), rng);
      }
    }
  });
}

// Path names: Name(5, "_multithread") is "GaussianBlur5x5_u8_optimization_multithread".
std::string Name(int k, const char* suffix) {
  return Fmt("GaussianBlur%dx%d_u8_optimization%s", k, k, suffix);
}

// One log line as "priority [func.line] text"; the blur logs under one tag.
std::string L(int priority, const std::string& func, int line, const std::string& text) {
  return std::to_string(priority) + " " + bvtest::Msg(func.c_str(), line, text);
}
std::string E(int line, const std::string& text) { return L(6, kBlur, line, text); }
std::string Mismatch(float sigma, int k) {
  return L(5, kBlur, 2825,
           Fmt("ATTENTION: sigma doesn't match with k_length!sigma[%f], k_length[%d]", sigma, k));
}
// Every captured line, sorted: workers log concurrently.
std::vector<std::string> Logged(const LogCapture& log) {
  std::vector<std::string> lines;
  for (const bvtest::LogLine& l : log.Lines()) {
    EXPECT_EQ(l.tag, "ZR481_ALGO");
    lines.push_back(std::to_string(l.priority) + " " + l.text);
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}
void ExpectLog(const LogCapture& log, std::vector<std::string> lines) {
  std::sort(lines.begin(), lines.end());
  EXPECT_EQ(Logged(log), lines);
}

// Caller scratch as the header documents it, in rows of src_stride bytes.
size_t BufBytes(int k, int threads, int srcStride, bool inPlace) {
  return static_cast<size_t>(k - 1) * (threads + (inPlace ? threads + 1 : 0)) * srcStride;
}

struct Image {
  Image(int w, int h, uint32_t seed = 1) : width(w), height(h) {
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

TEST_F(GaussBlur, EqualsTheDefinitionAcrossSizesStridesThreadsAndInPlace) {
  std::mt19937 rng(2024);
  const int widths[] = {7, 8, 9, 16, 17, 33, 40, 65, 100, 131};
  LogCapture log;  // keeps the single-thread warnings quiet
  for (int iter = 0; iter < 240; ++iter) {
    const int k = 3 + 2 * (iter % 3), width = widths[rng() % 10];
    const int threads = 1 + static_cast<int>(rng() % 4);
    const int height = k - 1 + threads + static_cast<int>(rng() % 40);
    const int srcStride = width + static_cast<int>(rng() % 3 == 0 ? 0 : rng() % 13);
    const bool inPlace = rng() % 3 == 0, callerBuf = rng() % 2, direct = rng() % 2;
    const bool shortForm = !direct && srcStride == width;  // strides of the width: short form
    const int dstStride = inPlace || shortForm ? srcStride : width + static_cast<int>(rng() % 9);
    void* pool = threads > 1 || rng() % 2 ? pools_[threads] : nullptr;
    SCOPED_TRACE(Fmt("k %d %dx%d strides %d/%d threads %d inPlace %d pool %d pBuf %d direct %d", k,
                     width, height, srcStride, dstStride, threads, inPlace, !!pool, callerBuf,
                     direct));
    // Images end at the last row's width (no padding after it), so no copy may read past it.
    const std::vector<uint8_t> image =
        bvtest::RandomBytes(size_t(srcStride) * (height - 1) + width, rng);
    const float sigma = 0.3f + static_cast<float>(rng() % 100) / 40.f;
    std::vector<uint16_t> taps = bvtest::RandomTaps(k, rng);  // direct calls take any taps
    ASSERT_EQ(direct ? 0 : bivista::get_gaussian_kernel(k, taps.data(), sigma), 0);
    const auto expected = bvtest::ReferenceBlur(image.data(), width, height, srcStride, taps);
    std::vector<uint8_t> out =
        inPlace ? image : std::vector<uint8_t>(size_t(dstStride) * (height - 1) + width, 0xEE);
    const std::vector<uint8_t> before = out;
    const uint8_t* src = inPlace ? out.data() : image.data();
    const size_t guard = 64;
    std::vector<uint8_t> buf(callerBuf ? BufBytes(k, threads, srcStride, inPlace) + guard : 0,
                             0x77);
    uint8_t* pBuf = callerBuf ? buf.data() : nullptr;
    uint8_t* dst = out.data();
    bvtest::MallocWatch watch;
    ASSERT_EQ(direct ? PathFor(k)(src, dst, width, height, srcStride, dstStride, taps.data(), pool,
                                  threads, pBuf)
              : shortForm ? gaussian_blur(src, dst, width, height, k, sigma, pool, threads, pBuf)
                          : gaussian_blur(src, dst, width, height, srcStride, dstStride, k, sigma,
                                          pool, threads, pBuf),
              0);
    EXPECT_EQ(direct && callerBuf ? watch.calls() : 0, 0);  // caller scratch: allocation free
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < dstStride; ++x) {
        const size_t at = static_cast<size_t>(y) * dstStride + x;
        if (at >= out.size()) break;
        ASSERT_EQ(out[at], x < width ? expected[y * width + x] : before[at]) << x << "," << y;
      }
    }
    for (size_t i = buf.size() - (callerBuf ? guard : 0); i < buf.size(); ++i) {
      ASSERT_EQ(buf[i], 0x77) << "caller buffer overrun";
    }
  }
}

// A participant of the shared chunks that starts late: the others then take its chunks.
int gLate = -1;
int gLateUs = 0;
void StartLate(int participant) {
  if (participant == gLate) std::this_thread::sleep_for(std::chrono::microseconds(gLateUs));
}

// Chunks taken by any thread give the bytes of one thread, silently, with pools larger than
// th_num too; the late one's chunks are taken whole (a long delay) or partly (a short one).
TEST_F(GaussBlur, SharedChunksEqualOneThread) {
  std::mt19937 rng(77);
  bivista::gaussShareHook = StartLate;
  for (int iter = 0; iter < 60; ++iter) {
    const int k = 3 + 2 * (iter % 3), threads = 2 + static_cast<int>(rng() % 3);
    const int poolSize = threads + static_cast<int>(rng() % (5 - threads));
    const int width = k + 2 * static_cast<int>(rng() % 120),
              height = k - 1 + threads + static_cast<int>(rng() % 500);
    const int srcStride = width + static_cast<int>(rng() % 9),
              dstStride = width + static_cast<int>(rng() % 9);
    gLate = static_cast<int>(rng() % (threads + 1));  // threads: nobody
    gLateUs = rng() % 2 ? 3000 : static_cast<int>(rng() % 300);
    SCOPED_TRACE(Fmt("k %d %dx%d threads %d pool %d late %d by %d us", k, width, height, threads,
                     poolSize, gLate, gLateUs));
    const std::vector<uint8_t> image =
        bvtest::RandomBytes(size_t(srcStride) * (height - 1) + width, rng);
    const std::vector<uint16_t> taps = bvtest::RandomTaps(k, rng);
    std::vector<uint8_t> one(size_t(dstStride) * height, 0xEE), out = one;
    ASSERT_EQ(PathFor(k)(image.data(), one.data(), width, height, srcStride, dstStride, taps.data(),
                         nullptr, 1, nullptr),
              0);
    LogCapture log;
    std::vector<uint8_t> buf(rng() % 2 ? BufBytes(k, threads, srcStride, false) : 0);
    ASSERT_EQ(PathFor(k)(image.data(), out.data(), width, height, srcStride, dstStride, taps.data(),
                         pools_[poolSize], threads, buf.empty() ? nullptr : buf.data()),
              0);
    EXPECT_TRUE(log.Lines().empty());
    ASSERT_EQ(out, one);
  }
  bivista::gaussShareHook = nullptr;
}

TEST(GaussKernel, FixedRowsAndTheIndependentFormulation) {
  std::vector<uint16_t> t(13);
  // Lengths up to 7 with sigma <= 0 use fixed rows.
  const std::vector<std::pair<float, std::vector<uint16_t>>> fixed = {
      {0.f, {256}},
      {0.f, {64, 128, 64}},
      {-1.f, {16, 64, 96, 64, 16}},
      {0.f, {8, 28, 56, 72, 56, 28, 8}}};
  for (const auto& f : fixed) {
    ASSERT_EQ(bivista::get_gaussian_kernel(f.second.size(), t.data(), f.first), 0);
    EXPECT_EQ(std::vector<uint16_t>(t.begin(), t.begin() + f.second.size()), f.second);
  }
  // Rounded taps, the centre absorbing the rounding error.
  for (int n = 3; n <= 13; n += 2) {
    for (float sigma : {0.f, 0.5f, 0.6f, 0.8f, 0.9f, 1.1f, 1.4f, 1.7f, 2.f, 5.f}) {
      if (n < 8 && sigma <= 0) continue;
      const double s = sigma > 0 ? sigma : ((n - 1) * 0.5 - 1) * 0.3 + 0.8;
      std::vector<double> w(n);
      double sum = 0;
      for (int i = 0; i < n; ++i) sum += w[i] = std::exp(-(i - n / 2) * (i - n / 2) / (2 * s * s));
      std::vector<uint16_t> expected(n);
      int total = 0;
      for (int i = 0; i < n; ++i) total += expected[i] = static_cast<int>(w[i] / sum * 256 + 0.5);
      expected[n / 2] += 256 - total;
      ASSERT_EQ(bivista::get_gaussian_kernel(n, t.data(), sigma), 0);
      EXPECT_EQ(std::vector<uint16_t>(t.begin(), t.begin() + n), expected) << n << " " << sigma;
    }
  }
}

// Each call logs exactly these lines; refused ones (all but the last) leave the destination.
TEST_F(GaussBlur, RefusalsAndWarnings) {
  Image im(20, 12);
  void* const pool2 = pools_[2];
  uint8_t *const s = im.src.data(), *const d = im.dst.data();
  const uint16_t taps[] = {64, 128, 64};
  const std::string notSupported = "not support parameter in gaussian_blur";
  const std::string path5 = Name(5, "_multithread");
  std::vector<std::pair<std::function<int()>, std::vector<std::string>>> rows = {
      // Stride first, even with null images.
      {[&] { return gaussian_blur(nullptr, nullptr, 20, 12, 19, 20, 3, .8f, nullptr, 1, nullptr); },
       {E(2788, "ERROR: src_stride[19] or dst_stride[20] is less than width[20]!!!")}},
      {[&] { return gaussian_blur(s, nullptr, 20, 12, 3, .8f, pool2, 9, nullptr); },
       {E(2793, Fmt("ERROR: org_Img[%p] or blur_img[%p] is NULL!!!", s, nullptr))}},
      {[&] { return im.Blur(3, .8f, nullptr, 2); },
       {E(2799, "if th_pool is NULL, program will be executed in single thread!")}},
      {[&] { return im.Blur(3, .8f, pool2, 5); }, {E(2809, "th_num too large! th_num[5]")}},
      {[&] { return im.Blur(5, 0.f, pool2, 2); },
       {E(2820, "ATTENTION: sigma is wrong!sigma[0.000000]")}},
      {[&] { return im.Blur(5, -.5f, pool2, 2); },
       {E(2820, "ATTENTION: sigma is wrong!sigma[-0.500000]")}},
      // Lengths 9 to 13 pass the checks and are refused later; 6 x 2 + 1 is not above 13.
      {[&] { return im.Blur(9, 1.5f, pool2, 2); },
       {Mismatch(1.5f, 9), E(2846, notSupported + " k_length[9] for now, To be done."),
        E(2861, "gaussian_blur error!, k_length[9]")}},
      {[&] { return im.Blur(11, 1.8f, pool2, 2); },
       {Mismatch(1.8f, 11), E(2850, notSupported + ", k_length[11] for now, To be done."),
        E(2861, "gaussian_blur error!, k_length[11]")}},
      {[&] { return im.Blur(13, 2.f, pool2, 2); },
       {E(2854, notSupported + ", k_length[13] for now, To be done."),
        E(2861, "gaussian_blur error!, k_length[13]")}},
      {[&] { return PathFor(3)(s, d, 20, 12, 20, 20, nullptr, pool2, 2, nullptr); },
       {L(6, Name(3, "_multithread"), 512,
          Fmt("input parameters error!src[%p] dst[%p] kernel[%p]", s, d, nullptr))}},
      {[&] { return PathFor(3)(s, d, 20, 12, 20, 20, taps, pool2, 3, nullptr); },
       {L(6, Name(3, "_multithread"), 517, "th_pool has 2 threads, fewer than th_num[3]!")}},
      {[&] { return PathFor(7)(s, d, 20, 12, 20, 20, taps, nullptr, 17, nullptr); },
       {L(6, Name(7, "_multithread"), 2624, "th_num too large! th_num[17]")}},
      // Scratch rows are src_stride bytes: a shorter stride than the width is refused.
      {[&] { return PathFor(3)(s, d, 20, 12, 19, 20, taps, pool2, 2, nullptr); },
       {L(6, Name(3, "_multithread"), 512,
          "ERROR: src_stride[19] or dst_stride[20] is less than width[20]!!!")}},
      {[&] { return im.Blur(5, std::nanf(""), pool2, 2); },
       {E(2820, "ATTENTION: sigma is wrong!sigma[nan]")}},
      {[&] { return im.Blur(5, .8f, pool2, 0); },
       {Mismatch(.8f, 5), L(6, Name(5, "_Body_Caller"), 1161, "threadNum is zero!!!\n"),
        L(6, path5, 1551, Name(5, " error in ") + path5 + "\n"),
        E(2861, path5 + " error!, k_length[5]")}},
      {[&] { return bivista::get_gaussian_kernel(4, const_cast<uint16_t*>(taps), 1.f); },
       {L(6, "get_gaussian_kernel", 2880,
          Fmt("get_gaussian_kernel Bad Parameter n[4] kernel[%p] !!", taps))}},
      {[&] { return bivista::get_gaussian_kernel(3, nullptr, 1.f); },
       {L(6, "get_gaussian_kernel", 2880,
          Fmt("get_gaussian_kernel Bad Parameter n[3] kernel[%p] !!", nullptr))}},
      // Too wide a sigma for the length only warns, and blurs.
      {[&] { return im.Blur(3, 1.f, nullptr, 1); },
       {Mismatch(1.f, 3),
        L(5, kBlur, 2804, "program will be executed in single thread!!! th_num[1]")}}};
  for (int k : {1, 2, 4, 15, -3}) {  // the length is checked before sigma
    rows.insert(rows.begin(), {[&im, pool2, k] { return im.Blur(k, -1.f, pool2, 2); },
                               {E(2815, Fmt("ATTENTION: k_length is wrong!k_length[%d]", k))}});
  }
  for (size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(testing::Message() << "row " << i);
    const bool refused = i + 1 < rows.size();
    im.dst.assign(im.src.size(), 0xC3);
    LogCapture log;
    EXPECT_EQ(rows[i].first(), refused ? -1 : 0);
    ExpectLog(log, rows[i].second);
    EXPECT_EQ(im.Untouched(), refused);
  }
}

// Too small for the window: every row copied and reported by each strip and the head/tail. With
// more threads than interior rows the empty strips report it and the other rows are blurred.
TEST_F(GaussBlur, SmallImagesAndEmptyStrips) {
  const struct {
    int k, width, height, threads, bodyLine, headLine, errorLine;
  } cases[] = {{3, 9, 2, 2, 163, 363, 643},
               {3, 2, 9, 2, 163, 363, 643},
               {5, 4, 12, 2, 709, 1204, 1551},
               {7, 12, 6, 2, 1630, 2312, 2753},
               {3, 16, 4, 4, 163, 0, 643}};
  const std::string small =
      "the width or height of the input image is too small, copy source to destination!\n";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.k);
    Image im(c.width, c.height);
    LogCapture log;
    EXPECT_EQ(im.Blur(c.k, 0.5f, pools_[c.threads], c.threads), -1);
    std::vector<uint16_t> taps(c.k);
    ASSERT_EQ(bivista::get_gaussian_kernel(c.k, taps.data(), 0.5f), 0);
    EXPECT_EQ(im.dst, c.headLine ? im.src : bvtest::ReferenceBlur(im.src.data(), 16, 4, 16, taps));
    const std::string path = Name(c.k, "_multithread");
    std::vector<std::string> lines(c.headLine ? 2 : 3, L(6, path + "_body", c.bodyLine, small));
    if (c.headLine) lines.push_back(L(6, path + "_head_tail", c.headLine, small));
    if (c.k == 3) lines.push_back(Mismatch(0.5f, 3));  // 6 x 0.5 + 1 is above 3 only
    lines.push_back(L(6, path, c.errorLine, Name(c.k, " error in ") + path + "\n"));
    lines.push_back(E(2861, path + Fmt(" error!, k_length[%d]", c.k)));
    ExpectLog(log, lines);
  }
}

TEST_F(GaussBlur, WorkersReportMissingScratch) {
  void* (*const workers[])(void*, int) = {GaussianBlur3x3_u8_optimization_Body_Caller,
                                          GaussianBlur5x5_u8_optimization_Body_Caller,
                                          GaussianBlur7x7_u8_optimization_Body_Caller};
  const int lines[] = {171, 718, 1640};
  for (int r = 1; r <= 3; ++r) {
    Image im(20, 12);
    const uint16_t taps[] = {0, 0, 0, 256, 0, 0, 0};
    int32_t status = 0;
    const uint8_t* bounds[2] = {im.src.data(), im.src.data() + 20 * (12 - r)};
    const uint8_t* s = im.src.data() + 20 * r;
    bivista::GaussJob job = {
        20, 12 - 2 * r, 20, 20, 1, &status, taps, s, im.dst.data() + 20 * r, bounds, nullptr,
        2L * r * 20, r};
    bivista::GaussArg arg = {&job, 0};
    LogCapture log;
    workers[r - 1](&arg, 0);
    EXPECT_EQ(status, -1);
    const int k = 2 * r + 1;
    ExpectLog(log, {L(6, Name(k, "_multithread_body"), lines[r - 1],
                      Fmt("input parameters error!pBuf_%dx%d[%p]\n", k, k, nullptr))});
    EXPECT_TRUE(im.Untouched());
  }
}

TEST_F(GaussBlur, AllocationFailuresAreReportedLeakFreeAndUntouched) {
  const int headTailLines[] = {530, 1438, 2632}, scratchLines[] = {600, 1508, 2703};
  for (bool inPlace : {false, true}) {
    for (int k = 3; k <= 7; k += 2) {
      SCOPED_TRACE(testing::Message() << "k " << k << " inPlace " << inPlace);
      LogCapture log;
      const int runs = bvtest::ForEachMallocFailure([&](int run) {
        Image im(24, 16, 9);
        if (inPlace) im.dst = im.src;
        const std::vector<uint8_t> before = im.dst;
        const uint8_t* src = inPlace ? im.dst.data() : im.src.data();
        if (gaussian_blur(src, im.dst.data(), 24, 16, k, 1.f, pools_[2], 2, nullptr) != 0) {
          EXPECT_EQ(im.dst, before) << run;
        }
      });
      EXPECT_EQ(runs, inPlace ? 4 : 3);
      const std::string path = Name(k, "_multithread");
      const std::string scratch = k == 7 ? "p_self_malloc_Buffer_1" : "pTmp";
      const std::vector<std::string> all = Logged(log);
      const std::vector<std::string> want = {
          L(6, "get_gaussian_kernel", 2886, "cf Malloc failed!\n"),
          E(2831, "get_gaussian_kernel error!!!\n"),
          L(6, path, scratchLines[k / 2 - 1], "Malloc " + scratch + " fail " + path + "\n"),
          L(6, path, headTailLines[k / 2 - 1], "Malloc thread_head_tail_data fail " + path + "\n")};
      for (size_t i = 0; i < want.size(); ++i) {  // the head/tail record is only for in place
        EXPECT_EQ(std::count(all.begin(), all.end(), want[i]), i < 3 || inPlace) << want[i];
      }
    }
  }
}

}  // namespace
