// Inputs shared by the weighted-median fuzz targets.
#ifndef BIVISTA_TESTS_FUZZ_JWMF_INPUTS_H
#define BIVISTA_TESTS_FUZZ_JWMF_INPUTS_H

#include <string.h>

#include <vector>

#include "bivista/mem_services.h"
#include "support.h"

namespace bvfuzz {

// A classes x classes weight map (1 x 1 for a count below 1) of any floats from the input;
// null when it cannot be allocated. Release with float2D_release.
inline float** WeightMap(FuzzedDataProvider& p, int classes) {
  const int c = classes > 0 ? classes : 1;
  float** map = float2D(c, c);
  if (map == nullptr) return nullptr;
  const std::vector<float> v = Buffer<float>(p, static_cast<size_t>(c) * c);
  memcpy(map[0], v.data(), v.size() * sizeof(float));
  return map;
}

}  // namespace bvfuzz

#endif
