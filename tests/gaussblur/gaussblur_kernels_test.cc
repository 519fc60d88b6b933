// The vector row kernels against their scalar definitions on every compiled target.
#include "gaussblur/gaussblur_kernels.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "gaussblur_reference.h"
#include "support/hwy_targets.h"

namespace {

const int kWidths[] = {3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 38, 63, 64, 65, 70, 100, 129, 257};

TEST(GaussKernels, VectorRowsEqualScalarOnEveryTarget) {
  bvtest::ForEachHwyTarget([](const char* target) {
    std::mt19937 rng(11);
    for (int radius = 1; radius <= bivista::kGaussMaxRadius; ++radius) {
      for (int width : kWidths) {
        if (width < 2 * radius + 1) continue;
        SCOPED_TRACE(testing::Message() << "radius " << radius << " width " << width);
        // Extreme taps and bytes too: the 16-bit sums reach 65408 with all-255 rows.
        std::vector<uint16_t> taps = bvtest::RandomTaps(2 * radius + 1, rng);
        if (width % 3 == 0) taps.assign(2 * radius + 1, 0), taps[radius] = 256;
        const int guard = 8;
        std::vector<std::vector<uint8_t>> rows;
        for (int j = 0; j <= 2 * radius; ++j) {
          rows.push_back(bvtest::RandomBytes(width + guard, rng));
          if (width % 4 == 1) std::fill(rows.back().begin(), rows.back().end(), 255);
        }
        std::vector<const uint8_t*> ptrs;
        for (auto& row : rows) ptrs.push_back(row.data());

        std::vector<uint8_t> vec(width + guard, 0xA5), ref(width + guard, 0xA5);
        bivista::GaussRowH(rows[0].data(), vec.data(), width, taps.data(), radius);
        bivista::scalar::GaussRowH(rows[0].data(), ref.data(), width, taps.data(), radius);
        EXPECT_EQ(vec, ref) << "H";
        bivista::GaussRowV(ptrs.data(), vec.data(), width, taps.data(), radius);
        bivista::scalar::GaussRowV(ptrs.data(), ref.data(), width, taps.data(), radius);
        EXPECT_EQ(vec, ref) << "V";

        // Fused step with hNext aliasing the oldest row, as the workers call it.
        std::vector<std::vector<uint8_t>> a(rows.begin(), rows.end()), b = a;
        std::vector<const uint8_t*> pa, pb;
        for (int j = 0; j < 2 * radius; ++j) pa.push_back(a[j].data()), pb.push_back(b[j].data());
        std::vector<uint8_t> da(width + guard, 0x5A), db(width + guard, 0x5A);
        bivista::GaussRowHV(pa.data(), a[2 * radius].data(), a[0].data(), da.data(), width,
                            taps.data(), radius);
        bivista::scalar::GaussRowHV(pb.data(), b[2 * radius].data(), b[0].data(), db.data(), width,
                                    taps.data(), radius);
        EXPECT_EQ(da, db) << "HV dst";
        EXPECT_EQ(a[0], b[0]) << "HV hNext";
        for (int x = width; x < width + guard; ++x) ASSERT_EQ(da[x], 0x5A) << "guard";
      }
    }
  });
}

TEST(GaussKernels, ScalarRowsFollowTheDefinition) {
  std::mt19937 rng(5);
  for (int radius = 1; radius <= bivista::kGaussMaxRadius; ++radius) {
    const int width = 23;
    const std::vector<uint16_t> taps = bvtest::RandomTaps(2 * radius + 1, rng);
    std::vector<uint8_t> image = bvtest::RandomBytes(width * (2 * radius + 1), rng);
    const std::vector<uint8_t> full =
        bvtest::ReferenceBlur(image.data(), width, 2 * radius + 1, width, taps);
    // Row `radius` of the reference needs no vertical mirroring: rebuild it from the kernels.
    std::vector<std::vector<uint8_t>> h(2 * radius + 1, std::vector<uint8_t>(width));
    std::vector<const uint8_t*> ptrs;
    for (int j = 0; j <= 2 * radius; ++j) {
      bivista::scalar::GaussRowH(image.data() + j * width, h[j].data(), width, taps.data(), radius);
      ptrs.push_back(h[j].data());
    }
    std::vector<uint8_t> out(width);
    bivista::scalar::GaussRowV(ptrs.data(), out.data(), width, taps.data(), radius);
    EXPECT_EQ(out, std::vector<uint8_t>(full.begin() + radius * width,
                                        full.begin() + (radius + 1) * width));
  }
}

}  // namespace
