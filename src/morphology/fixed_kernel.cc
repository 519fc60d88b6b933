// In-place 3x3 cross, 3x3 square and 5x5 square erosion (bitwise AND) and dilation (bitwise OR)
// with a caller-provided scratch image. The border frame is never written.
#include <stdint.h>

#include "bivista/morphology.h"
#include "morphology/morph_kernels.h"

using bivista::FixedMorph;

// One dispatch per call: the copy and the row loop run inside the vector target.
void ErodeWith3x3Cross(unsigned char* image, unsigned char* scratch, int width, int height,
                       int stride, int iterations) {
  FixedMorph(image, scratch, width, height, stride, iterations, 0, 0);
}

void DilateWith3x3Cross(unsigned char* image, unsigned char* scratch, int width, int height,
                        int stride, int iterations) {
  FixedMorph(image, scratch, width, height, stride, iterations, 0, 1);
}

void ErodeWith3x3Rect(unsigned char* image, unsigned char* scratch, int width, int height,
                      int stride, int iterations) {
  FixedMorph(image, scratch, width, height, stride, iterations, 1, 0);
}

void DilateWith3x3Rect(unsigned char* image, unsigned char* scratch, int width, int height,
                       int stride, int iterations) {
  FixedMorph(image, scratch, width, height, stride, iterations, 1, 1);
}

void ErodeWith5x5Rect(unsigned char* image, unsigned char* scratch, int width, int height,
                      int stride) {
  FixedMorph(image, scratch, width, height, stride, 1, 2, 0);
}

void DilateWith5x5Rect(unsigned char* image, unsigned char* scratch, int width, int height,
                       int stride) {
  FixedMorph(image, scratch, width, height, stride, 1, 2, 1);
}
