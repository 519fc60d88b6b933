// Histograms and table application, 64 bytes (eight 64-bit words) per pass.
//
// Histograms spread their increments over several sub-histograms so that runs of equal bytes,
// common in photos, do not wait on one counter; the sub-histograms are summed at the end, so
// the counts are those of a plain one-byte-at-a-time loop. Counts wrap modulo 2^32.
//
// Large planes go two bytes at a time: one increment per byte pair into a 65536-entry pair
// histogram (whose row and column sums are the counts of the first and second bytes), and one
// 16-bit load per byte pair from a pair table built from the 256-entry table. Both halve the
// memory operations per byte; their 256 KiB / 128 KiB scratch pays off from about half a
// megapixel on. Without the scratch the plain paths run (same result).
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

// Planes of at least this many bytes take the byte-pair paths.
constexpr int64_t kPairMinBytes = 512 * 1024;

bool PairPath(int width, int height) {
  return width >= kBlock && static_cast<int64_t>(width) * height >= kPairMinBytes;
}

// 64-byte blocks of every row counted in byte pairs; returns false without the scratch.
bool HistogramPairs(const uint8_t* image, int width, int height, int stride, int* hist) {
  auto* pairs = static_cast<uint32_t*>(calloc(65536, sizeof(uint32_t)));
  if (pairs == nullptr) return false;
  for (int y = 0; y < height; ++y) {
    const uint8_t* row = image + static_cast<ptrdiff_t>(y) * stride;
    int x = 0;
    for (; x + kBlock <= width; x += kBlock) {
      for (int k = 0; k < kBlock; k += 8) {
        const uint64_t w = LoadWord(row + x + k);
        ++pairs[w & 0xFFFF];
        ++pairs[(w >> 16) & 0xFFFF];
        ++pairs[(w >> 32) & 0xFFFF];
        ++pairs[w >> 48];
      }
    }
    CountBytes(row + x, width - x, hist);
  }
  // pairs[second * 256 + first]: column sums count the first bytes, row sums the second.
  uint32_t first[256] = {0}, second[256] = {0};
  for (int b = 0; b < 256; ++b) {
    const uint32_t* r = pairs + 256 * b;
    uint32_t sum = 0;
    for (int a = 0; a < 256; ++a) first[a] += r[a], sum += r[a];
    second[b] = sum;
  }
  AddCounts(hist, first);
  AddCounts(hist, second);
  free(pairs);
  return true;
}

// The table applied two bytes at a time; returns false without the scratch.
bool ApplyPairs(uint8_t* image, int width, int height, int stride, const uint8_t* t) {
  auto* pairs = static_cast<uint16_t*>(malloc(65536 * sizeof(uint16_t)));
  if (pairs == nullptr) return false;
  for (int b = 0; b < 256; ++b)
    for (int a = 0; a < 256; ++a)
      pairs[256 * b + a] = static_cast<uint16_t>(t[a] | (t[b] << 8));
  for (int y = 0; y < height; ++y) {
    uint8_t* row = image + static_cast<ptrdiff_t>(y) * stride;
    int x = 0;
    for (; x + kBlock <= width; x += kBlock) {
      for (int k = 0; k < kBlock; k += 8) {
        const uint64_t w = LoadWord(row + x + k);
        StoreWord(row + x + k, static_cast<uint64_t>(pairs[w & 0xFFFF]) |
                                   static_cast<uint64_t>(pairs[(w >> 16) & 0xFFFF]) << 16 |
                                   static_cast<uint64_t>(pairs[(w >> 32) & 0xFFFF]) << 32 |
                                   static_cast<uint64_t>(pairs[w >> 48]) << 48);
      }
    }
    for (; x < width; ++x) row[x] = t[row[x]];
  }
  free(pairs);
  return true;
}

}  // namespace

void HistogramPlane(const uint8_t* image, int width, int height, int stride, int* hist) {
  if (width < 1 || height < 1) return;
  if (PairPath(width, height) && HistogramPairs(image, width, height, stride, hist)) return;
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
  if (PairPath(width, height) && ApplyPairs(image, width, height, stride, t)) return;
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
