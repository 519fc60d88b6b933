// Per-pixel passes of the border mask: each entry dispatches to the best vector target;
// bivista::scalar holds the definition it must equal bit for bit.
#ifndef BIVISTA_SRC_DEPTHREFINE_BORDERMASK_BORDERMASK_KERNELS_H
#define BIVISTA_SRC_DEPTHREFINE_BORDERMASK_BORDERMASK_KERNELS_H

#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace bivista {
namespace border {

// Relative gradient at p (row stride w): two samples behind and one ahead in each direction,
// divided by the value itself without a zero guard.
inline float Gradient(const float* p, ptrdiff_t w) {
  const float v = p[0] + p[w] - p[-w] - p[-2 * w];
  const float h = p[0] + p[1] - p[-2] - p[-1];
  return (fabsf(v) + fabsf(h)) / p[0];
}

inline bool Marked(float g, float th) { return g >= th; }
// Mask value and gradient of one pixel; prior is 0 where there is no prior mask.
inline void Mark(float* g, float th, uint8_t prior, bool merge, uint8_t* mask) {
  *mask = Marked(*g, th) ? 255 : merge ? prior : 0;
  if (prior != 0) *g = 0.0f;
}

// 3x3 OR (dilation) or AND (erosion) around column x of three rows.
inline uint8_t Rect3(const uint8_t* up, const uint8_t* mid, const uint8_t* down, int x, bool isOr) {
  uint8_t v = isOr ? 0 : 0xFF;
  for (int dx = -1; dx <= 1; ++dx) {
    v = isOr ? (v | up[x + dx] | mid[x + dx] | down[x + dx])
             : (v & up[x + dx] & mid[x + dx] & down[x + dx]);
  }
  return v;
}

// Binary rows as bits (bit x % 64 of word x / 64 is column x): the closing of a mask that holds
// only 0 and 255 works on 64 pixels per operation.
constexpr int kMaxBitWords = 64;
constexpr int kMaxBandWidth = 64 * kMaxBitWords;
inline int BitWords(int w) { return (w + 63) / 64; }
inline bool Bit(const uint64_t* row, int x) { return (row[x >> 6] >> (x & 63)) & 1; }
inline void SetBit(uint64_t* row, int x, bool on) {
  const uint64_t b = uint64_t{1} << (x & 63);
  row[x >> 6] = on ? row[x >> 6] | b : row[x >> 6] & ~b;
}
// ORs the n low bits of v (n <= 64) into the row at column x.
inline void OrBits(uint64_t* row, int x, uint64_t v, int n) {
  const int sh = x & 63;
  row[x >> 6] |= v << sh;
  if (sh != 0 && sh + n > 64) row[(x >> 6) + 1] |= v >> (64 - sh);
}
// out = the 3x3 OR (dilation) or AND (erosion) of rows a, b, c; columns 0 and w - 1 keep `frame`'s
// bits, as the closing never changes the one-pixel frame.
__attribute__((always_inline)) inline void Rect3Bits(const uint64_t* a, const uint64_t* b, const uint64_t* c,
                      const uint64_t* frame, int w, bool isOr, uint64_t* out) {
  const int nw = BitWords(w);
  const auto column = [&](int k) {
    return k >= nw ? 0 : isOr ? (a[k] | b[k] | c[k]) : (a[k] & b[k] & c[k]);
  };
  uint64_t before = 0;
  uint64_t v = column(0);
  for (int k = 0; k < nw; ++k) {
    const uint64_t after = column(k + 1);
    const uint64_t left = (v << 1) | (before >> 63);
    const uint64_t right = (v >> 1) | (after << 63);
    out[k] = isOr ? (v | left | right) : (v & left & right);
    before = v;
    v = after;
  }
  SetBit(out, 0, Bit(frame, 0));
  SetBit(out, w - 1, Bit(frame, w - 1));
}

// Every 16th value of the plane: sample k is value 16 k. Samples live in byte storage.
constexpr int kSampleStep = 16;
inline void PutSample(uint8_t* samples, int64_t k, float v) { memcpy(samples + 4 * k, &v, 4); }
inline float GetSample(const uint8_t* samples, int64_t k) {
  float v;
  memcpy(&v, samples + 4 * k, 4);
  return v;
}
// The first sample at or after row `row` of a plane w values wide: rows [a, b) hold the samples
// FirstSample(a, w) .. FirstSample(b, w) - 1.
inline int64_t FirstSample(int64_t row, int w) {
  return (row * w + kSampleStep - 1) / kSampleStep;
}
// The samples of row y, read from its gradient row.
inline void CopySamples(const float* gradRow, int64_t y, int w, uint8_t* samples) {
  const int64_t o = y * w;
  for (int64_t k = FirstSample(y, w); k * kSampleStep < o + w; ++k) {
    PutSample(samples, k, gradRow[k * kSampleStep - o]);
  }
}

}  // namespace border

// grad[y * w + x] = Gradient(depth + y * w + x, w) for rows [row0, row1), columns [col0, col1).
// With samples, each row's samples are then copied out of grad (PutSample), frame included.
void BorderGradientRows(const float* depth, float* grad, int w, int row0, int row1, int col0,
                        int col1, uint8_t* samples = nullptr);
// Mark() over a w x h plane (prior may be null, then merge is ignored), then the 3x3 closing of
// the fixed-kernel morphology (dilation into scratch, erosion back; the one-pixel frame never
// changes), in one sweep. scratch ends holding the dilated mask, as after DilateWith3x3Rect /
// ErodeWith3x3Rect. Without a prior and for w <= kMaxBandWidth the vector entry does rows
// [y0, y1) of the result only, reading and writing no other rows of mask and scratch, so bands
// may run at once; otherwise it does the whole plane whatever y0 and y1 say.
void BorderMarkClose(float* grad, const uint8_t* prior, bool merge, int w, int h, float th,
                     uint8_t* mask, uint8_t* scratch, int y0, int y1);

// A band of the border mask computed from the depth plane (w <= kMaxBandWidth, no prior): its
// gradient rows as the workers leave them (columns [2, w - 1) of rows [2, h - 1), zero
// elsewhere), then the marking and closing of rows [y0, y1) as BorderMarkClose does them. The
// gradients of the two rows above and below that the closing reads are computed again rather
// than read, so bands never wait for each other.
namespace border {
enum class Band {
  kGradientOnly,  // store the band's gradient rows only
  kStored,        // its gradient rows are stored already: mark and close
  kAll,           // store them, mark and close
};
}  // namespace border
void BorderBand(const float* depth, float* grad, int w, int h, float th, uint8_t* mask,
                uint8_t* scratch, int y0, int y1, border::Band band);

namespace scalar {
void BorderGradientRows(const float* depth, float* grad, int w, int row0, int row1, int col0,
                        int col1, uint8_t* samples = nullptr);
void BorderMarkClose(float* grad, const uint8_t* prior, bool merge, int w, int h, float th,
                     uint8_t* mask, uint8_t* scratch);
// Mark() over n pixels.
void BorderMarkPixels(float* grad, const uint8_t* prior, bool merge, ptrdiff_t n, float th,
                      uint8_t* mask);
}  // namespace scalar

}  // namespace bivista

#endif
