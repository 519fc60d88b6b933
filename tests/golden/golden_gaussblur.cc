// Golden cases of the Gaussian blur (every kernel size, strides, in place, 1 to 4 workers or none)
// and of the worker pool driving jobs.
#include <stdlib.h>

#include "bivista/gaussblur.h"
#include "bivista/mthread.h"
#include "golden/golden.h"

namespace {

using bvgolden::Rng;
using bvgolden::Sink;

struct Image {
  int w, h;
};

struct JobArgs {
  int* cells;
  int width;
};

void* Job(void* argument, int index) {
  JobArgs* a = static_cast<JobArgs*>(argument);
  for (int i = 0; i < a->width; ++i) a->cells[index * a->width + i] += index * 1000 + i;
  return nullptr;
}

}  // namespace

BVGOLDEN_CASES(gaussblur) {
  bvgolden::SharedPool();  // made here, outside any case's log
  for (const Image& im : {Image{1, 1}, Image{5, 4}, Image{37, 23}, Image{130, 9}, Image{64, 48}}) {
    const std::string name = "blur_" + bvgolden::Dims(im.w, im.h);
    cases.Add(name, [=](Sink& s) {
      Rng rng(bvgolden::SeedOf(name));
      const int stride = im.w + 5;
      const std::vector<uint8_t> src = rng.Bytes<uint8_t>(size_t(stride) * im.h);
      for (int k : {3, 5, 7, 9}) {
        for (float sigma : {0.0f, 0.8f, 2.5f}) {
          for (int threads : {1, 2, 4}) {
            void* pool = threads == 1 ? nullptr : bvgolden::SharedPool();
            std::vector<uint8_t> dst(src.size() + 16, 0x77);
            s.Value(gaussian_blur(src.data(), dst.data(), im.w, im.h, stride, stride + 0, k, sigma,
                                  pool, threads, nullptr));
            s.Values(dst);
            std::vector<uint8_t> inplace = src;
            s.Value(gaussian_blur(inplace.data(), inplace.data(), im.w, im.h, stride, stride, k,
                                  sigma, pool, threads, nullptr));
            s.Values(inplace);
            std::vector<uint8_t> packed(size_t(im.w) * im.h + 16, 0x77);
            s.Value(gaussian_blur(src.data(), packed.data(), im.w, im.h, k, sigma, pool, threads,
                                  nullptr));
            s.Values(packed);
          }
        }
      }
      const uint16_t k3[3] = {64, 128, 64}, k5[5] = {16, 64, 96, 64, 16},
                     k7[7] = {4, 24, 60, 80, 60, 24, 4};
      using Fixed = int (*)(const uint8_t*, uint8_t*, int, int, int, int, const uint16_t*, void*,
                            int, uint8_t*);
      const std::pair<Fixed, const uint16_t*> fixed[] = {
          {GaussianBlur3x3_u8_optimization_multithread, k3},
          {GaussianBlur5x5_u8_optimization_multithread, k5},
          {GaussianBlur7x7_u8_optimization_multithread, k7}};
      for (const auto& f : fixed) {
        for (int threads : {1, 3}) {
          std::vector<uint8_t> dst(src.size() + 16, 0x77);
          s.Value(f.first(src.data(), dst.data(), im.w, im.h, stride, stride, f.second,
                          threads == 1 ? nullptr : bvgolden::SharedPool(), threads, nullptr));
          s.Values(dst);
        }
      }
    });
  }
  cases.Add("pool_jobs", [](Sink& s) {
    std::vector<int> cells(4 * 9, 0);
    JobArgs args{cells.data(), 9};
    s.Value(MThread_Finish(bvgolden::SharedPool(), 0, 4, Job, &args));
    s.Value(MThread_Run(bvgolden::SharedPool(), 1, 2, Job, &args));
    s.Value(MThread_Sync(bvgolden::SharedPool(), 1, 2));
    s.Value(MThread_Boot(bvgolden::SharedPool(), 3, Job, &args));
    s.Value(MThread_Clean(bvgolden::SharedPool(), 3));
    s.Value(MThread_Boot(bvgolden::SharedPool(), 4, Job, &args));
    s.Value(MThread_Boot(nullptr, 2, Job, &args));
    s.Value(MThread_Finish(nullptr, 0, 2, Job, &args));
    s.Values(cells);
    MThread_ChangeBindCoreFlag(nullptr, 1);
    s.Value(MThread_Name(nullptr, nullptr));
  });
}
