// Hot loops of the tone matching: histograms and the look-up table application.
#ifndef BIVISTA_SRC_COLORMATCH_TONE_KERNELS_H
#define BIVISTA_SRC_COLORMATCH_TONE_KERNELS_H

#include <stdint.h>

namespace bivista {

// Adds the counts of a width x height plane (rows stride bytes apart) to hist.
void HistogramPlane(const uint8_t* image, int width, int height, int stride, int* hist);
// Adds the counts of interleaved 3-byte pixels: byte 0 to h0, byte 1 to h1, byte 2 to h2.
void HistogramPixels3(const uint8_t* image, int width, int height, int stride, int* h0, int* h1,
                      int* h2);
// Every byte of the plane becomes table[byte].
void ApplyTablePlane(uint8_t* image, int width, int height, int stride, const uint8_t* table);
// Byte c of every pixel becomes tc[byte].
void ApplyTablesPixels3(uint8_t* image, int width, int height, int stride, const uint8_t* t0,
                        const uint8_t* t1, const uint8_t* t2);

}  // namespace bivista

#endif
