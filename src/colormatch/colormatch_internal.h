// Process-wide luma weight sets shared by the NV12 luma rewrite, the RGB-to-luma entries and
// the calibration (unlocked: see the public header).
#ifndef BIVISTA_SRC_COLORMATCH_COLORMATCH_INTERNAL_H
#define BIVISTA_SRC_COLORMATCH_COLORMATCH_INTERNAL_H

namespace bivista {

// Weights of byte 0, 1, 2 (R, G, B after the NV12 conversion).
extern float g_yeqWeights3[3];
// Weights of byte 0, 1, 2 and of the brightest byte.
extern float g_yeqWeights4[4];

constexpr float kYeqInitial3[3] = {0.2385617f, 0.4585987f, 0.3285824f};
constexpr float kYeqInitial4[4] = {0.139958f, 0.4222537f, 0.2463526f, 0.1717658f};

}  // namespace bivista

#endif
