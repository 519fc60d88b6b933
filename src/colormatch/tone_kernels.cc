// Histograms and table application, 64 bytes (eight 64-bit words) per pass.
//
// Histograms spread their increments over several sub-histograms so that runs of equal bytes,
// common in photos, do not wait on one counter; the sub-histograms are summed at the end, so
// the counts are those of a plain one-byte-at-a-time loop. Counts wrap modulo 2^32.
#include "colormatch/tone_kernels.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

namespace bivista {
namespace {

constexpr int kBlock = 64;

inline uint64_t LoadWord(const uint8_t* p) {
  uint64_t w;
  memcpy(&w, p, 8);
  return w;
}

inline void StoreWord(uint8_t* p, uint64_t w) { memcpy(p, &w, 8); }

inline void AddCounts(int* hist, const uint32_t* sub) {
  for (int i = 0; i < 256; ++i)
    hist[i] = static_cast<int>(static_cast<uint32_t>(hist[i]) + sub[i]);
}

inline void CountBytes(const uint8_t* p, int n, int* hist) {
  for (int x = 0; x < n; ++x)
    hist[p[x]] = static_cast<int>(static_cast<uint32_t>(hist[p[x]]) + 1u);
}

// Byte k of each word counts into sub-histogram k % 4.
inline void CountWord(uint64_t w, uint32_t* sub) {
  ++sub[w & 0xFF];
  ++sub[256 + ((w >> 8) & 0xFF)];
  ++sub[512 + ((w >> 16) & 0xFF)];
  ++sub[768 + ((w >> 24) & 0xFF)];
  ++sub[(w >> 32) & 0xFF];
  ++sub[256 + ((w >> 40) & 0xFF)];
  ++sub[512 + ((w >> 48) & 0xFF)];
  ++sub[768 + (w >> 56)];
}

// Pixel-interleaved sub-histograms for three channels: pixel p counts into set p % kSets.
constexpr int kSets = 4;

inline void CountPixel(const uint8_t* p, uint32_t* set) {
  ++set[p[0]];
  ++set[256 + p[1]];
  ++set[512 + p[2]];
}

// Byte k of w maps through table (k0 + k) % 3 of t (three consecutive 256-byte tables).
template <int k0>
inline uint64_t LookupWord3(uint64_t w, const uint8_t* t) {
  uint64_t out = 0;
  for (int k = 0; k < 8; ++k)
    out |= static_cast<uint64_t>(t[((k0 + k) % 3) * 256 + ((w >> (8 * k)) & 0xFF)]) << (8 * k);
  return out;
}

inline uint64_t LookupWord(uint64_t w, const uint8_t* t) {
  uint64_t out = 0;
  for (int k = 0; k < 8; ++k) out |= static_cast<uint64_t>(t[(w >> (8 * k)) & 0xFF]) << (8 * k);
  return out;
}

}  // namespace

void HistogramPlane(const uint8_t* image, int width, int height, int stride, int* hist) {
  if (width < 1 || height < 1) return;
  auto* sub = static_cast<uint32_t*>(malloc(4 * 256 * sizeof(uint32_t)));
  for (int y = 0; y < height; ++y) {
    const uint8_t* row = image + static_cast<ptrdiff_t>(y) * stride;
    int x = 0;
    if (sub != nullptr) {
      if (y == 0) memset(sub, 0, 4 * 256 * sizeof(uint32_t));
      for (; x + kBlock <= width; x += kBlock)
        for (int k = 0; k < kBlock; k += 8) CountWord(LoadWord(row + x + k), sub);
    }
    CountBytes(row + x, width - x, hist);
  }
  if (sub == nullptr) return;
  for (int s = 0; s < 4; ++s) AddCounts(hist, sub + 256 * s);
  free(sub);
}

void HistogramPixels3(const uint8_t* image, int width, int height, int stride, int* h0, int* h1,
                      int* h2) {
  if (width < 1 || height < 1) return;
  constexpr size_t kSetWords = 3 * 256;
  auto* sets = static_cast<uint32_t*>(calloc(kSets * kSetWords, sizeof(uint32_t)));
  int* hists[3] = {h0, h1, h2};
  for (int y = 0; y < height; ++y) {
    const uint8_t* row = image + static_cast<ptrdiff_t>(y) * stride;
    int x = 0;
    if (sets != nullptr) {
      for (; x + kSets <= width; x += kSets)
        for (int s = 0; s < kSets; ++s) CountPixel(row + 3 * (x + s), sets + s * kSetWords);
    }
    for (; x < width; ++x)
      for (int c = 0; c < 3; ++c) CountBytes(row + 3 * x + c, 1, hists[c]);
  }
  if (sets == nullptr) return;
  for (int s = 0; s < kSets; ++s)
    for (int c = 0; c < 3; ++c) AddCounts(hists[c], sets + s * kSetWords + c * 256);
  free(sets);
}

void ApplyTablePlane(uint8_t* image, int width, int height, int stride, const uint8_t* table) {
  if (width < 1 || height < 1) return;
  // A private copy: stores into the image could otherwise alias the table for the compiler.
  uint8_t t[256];
  memcpy(t, table, 256);
  for (int y = 0; y < height; ++y) {
    uint8_t* row = image + static_cast<ptrdiff_t>(y) * stride;
    int x = 0;
    for (; x + kBlock <= width; x += kBlock)
      for (int k = 0; k < kBlock; k += 8) StoreWord(row + x + k, LookupWord(LoadWord(row + x + k), t));
    for (; x < width; ++x) row[x] = t[row[x]];
  }
}

void ApplyTablesPixels3(uint8_t* image, int width, int height, int stride, const uint8_t* t0,
                        const uint8_t* t1, const uint8_t* t2) {
  if (width < 1 || height < 1) return;
  uint8_t t[3 * 256];
  memcpy(t, t0, 256);
  memcpy(t + 256, t1, 256);
  memcpy(t + 512, t2, 256);
  for (int y = 0; y < height; ++y) {
    uint8_t* row = image + static_cast<ptrdiff_t>(y) * stride;
    int x = 0;
    // Eight pixels are three words whose first bytes are channels 0, 2 and 1.
    for (; x + 8 <= width; x += 8) {
      uint8_t* p = row + 3 * x;
      StoreWord(p, LookupWord3<0>(LoadWord(p), t));
      StoreWord(p + 8, LookupWord3<2>(LoadWord(p + 8), t));
      StoreWord(p + 16, LookupWord3<1>(LoadWord(p + 16), t));
    }
    for (; x < width; ++x)
      for (int c = 0; c < 3; ++c) row[3 * x + c] = t[c * 256 + row[3 * x + c]];
  }
}

}  // namespace bivista
