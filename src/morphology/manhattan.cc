// City-block distance transforms of 8-bit masks (two sequential passes, saturating at 255) and the
// dilation/erosion thresholds built on them. The row-internal minimum chains stay scalar; the
// contributions of the row above/below and the thresholds go through the row kernels, one
// dispatch per pass.
#include <stddef.h>
#include <stdint.h>

#include "bivista/morphology.h"
#include "morphology/morph_kernels.h"

namespace bivista {
namespace {

// Backward pass over the interior: min with below + 1, then the chain from the right.
void InteriorBackward(unsigned char* image, int width, int height) {
  DistBackward(image, width, height - 2, 1, 1, width - 2, width - 2);
}

inline void ChainFromRight(unsigned char* row, int from) {
  for (int x = from; x >= 0; --x) {
    if (row[x + 1] < row[x]) row[x] = static_cast<unsigned char>(row[x + 1] + 1);
  }
}

// The threshold over a whole plane, whose size may exceed an int: one kernel call per int-sized
// piece (one in practice).
void ThresholdPlane(unsigned char* image, int width, int height, int N, unsigned char above,
                    unsigned char notAbove) {
  constexpr size_t kPiece = size_t{1} << 30;
  const size_t left = static_cast<size_t>(width) * static_cast<size_t>(height);
  for (size_t at = 0; at < left; at += kPiece) {
    const size_t n = left - at < kPiece ? left - at : kPiece;
    ThresholdRow(image + at, static_cast<int>(n), N, above, notAbove);
  }
}

}  // namespace
}  // namespace bivista

using namespace bivista;

void bivista_manhattan(unsigned char* image, int width, int height) {
  if (height < 3 || width < 3) return;
  DistForward(image, width, 1, height - 2, 1, width - 2, 255, 255, 0, 0);
  InteriorBackward(image, width, height);
}

void Dilate_quick_timesN(unsigned char* image, int width, int height, int N) {
  bivista_manhattan(image, width, height);
  if (height < 3 || width < 3) return;
  ThresholdRows(image, width, 1, height - 2, 1, width - 2, N, 0, 255);
}

unsigned char* Erode_quick_timesN(unsigned char* image, int width, int height, unsigned char N) {
  if (width < 1 || height < 1) return image;
  if (height >= 3 && width >= 3) {
    // Only 255-pixels are measured; every other pixel is a seed at its own value.
    for (int y = 1; y <= height - 2; ++y) {
      unsigned char* row = image + static_cast<size_t>(y) * width;
      const unsigned char* above = row - width;
      for (int x = 1; x <= width - 2; ++x) {
        if (row[x] != 255) continue;
        const int up = above[x] == 255 ? 255 : above[x] + 1;
        row[x] = static_cast<unsigned char>(row[x - 1] < up ? row[x - 1] + 1 : up);
      }
    }
    InteriorBackward(image, width, height);
  }
  ThresholdPlane(image, width, height, N, 255, 0);
  return image;
}

unsigned char* manhattan(unsigned char* image, int width, int height, unsigned char value) {
  if (width < 1 || height < 1) return image;
  // Row 0 and column 0 use the far value wrapped to 8 bits, the rest the capped one.
  const int64_t far = static_cast<int64_t>(width) + height;  // no int overflow
  const unsigned char far8 = static_cast<unsigned char>(far);
  const unsigned char cap = static_cast<unsigned char>(far < 255 ? far : 255);
  unsigned char* p = image;
  p[0] = p[0] == value ? 0 : far8;
  for (int x = 1; x < width; ++x) {
    if (p[x] == value) {
      p[x] = 0;
    } else {
      p[x] = p[x - 1] < far8 ? static_cast<unsigned char>(p[x - 1] + 1) : far8;
    }
  }
  DistForward(image, width, 1, height - 1, 1, width - 1, value, cap, 1, far8);
  ChainFromRight(image + static_cast<size_t>(height - 1) * width, width - 2);
  DistBackward(image, width, height - 2, 0, 0, width, width - 2);
  return image;
}

unsigned char* dilate_manh(unsigned char* image, int width, int height, unsigned char N) {
  if (width < 1 || height < 1) return image;
  manhattan(image, width, height, 255);
  ThresholdPlane(image, width, height, N, 0, 255);
  return image;
}

unsigned char* erode_manh(unsigned char* image, int width, int height, unsigned char N) {
  if (width < 1 || height < 1) return image;
  manhattan(image, width, height, 0);
  ThresholdPlane(image, width, height, N, 255, 0);
  return image;
}
