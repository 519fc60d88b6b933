#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "imageformat/resize_u8_kernels.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <stddef.h>
#include <stdlib.h>

#include "imageformat/resize_u8_kernels.h"
#include "imageformat/bilinear-inl.h"

// Row walks shared by every target and the scalar definitions (defined once).
#ifndef BIVISTA_RESIZE_U8_LOOPS
#define BIVISTA_RESIZE_U8_LOOPS
namespace bivista {
namespace u8loop {

// Row j of a single-channel resize: source rows y0 = (int)(j x stepY) and y0 + 1; `readable`
// bytes follow the first row (the last source row has nothing after it). One row or one column:
// the missing neighbour (weight exactly 0) is the sample itself.
template <class Row>
void Plane(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH, float stepX,
           float stepY, bool mask, ColumnTable cols, Row row) {
  for (int j = 0; j < dstH; ++j) {
    const float fy = j * stepY;
    const int y0 = static_cast<int>(fy);
    const uint8_t* rowA = src + static_cast<ptrdiff_t>(y0) * srcW;
    const uint8_t* rowC = srcH > 1 ? rowA + srcW : rowA;
    int readable = PairBytes(y0, srcH, srcW);
    uint8_t pairA[2], pairC[2];
    if (srcW == 1) {
      pairA[0] = pairA[1] = rowA[0];
      pairC[0] = pairC[1] = rowC[0];
      rowA = pairA, rowC = pairC, readable = 2;
    }
    row(rowA, rowC, dst + static_cast<ptrdiff_t>(j) * dstW, dstW, readable, stepX, fy - y0, mask,
        cols);
  }
}

// Interleaved channels with a column table; columns below `safe` may read ahead on the last
// source pair.
template <class Row>
void Channels(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH,
              float stepY, const int32_t* x0, const float* ax, int safe, int ch, int count,
              Row row) {
  const ptrdiff_t srcRow = static_cast<ptrdiff_t>(srcW) * ch;
  const ptrdiff_t dstRow = static_cast<ptrdiff_t>(dstW) * ch;
  const ptrdiff_t lower = srcH > 1 ? srcRow : 0;  // a one-row source is its own lower row
  for (int j = 0; j < dstH; ++j) {
    const float fy = j * stepY;
    const int y0 = static_cast<int>(fy);
    const uint8_t* rowA = src + y0 * srcRow;
    row(rowA, rowA + lower, dst + j * dstRow, x0, ax, dstW, y0 + 1 >= srcH - 1 ? safe : dstW,
        fy - y0, ch, count);
  }
}

// The 2x enlargement: rows 2y and 2y + 1 from source rows y and y + 1 (the last from srcH - 2).
template <class Row>
void UpScale(const uint8_t* src, uint8_t* dst, int srcW, int srcH, Row row) {
  const int dstW = 2 * srcW;
  for (int y = 0; y < srcH; ++y) {
    const int s = y == srcH - 1 ? srcH - 2 : y;
    const uint8_t* a = src + static_cast<ptrdiff_t>(s) * srcW;
    uint8_t* out = dst + static_cast<ptrdiff_t>(2 * y) * dstW;
    row(a, a + srcW, out, out + dstW, srcW);
  }
}

}  // namespace u8loop
}  // namespace bivista
#endif

HWY_BEFORE_NAMESPACE();
namespace bivista {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR
// Bytes 0 and `shift` bits up of each gathered word as floats.
template <class DF, class VI>
HWY_INLINE void SplitWord(DF df, VI w, int shiftB, hn::Vec<DF>& a, hn::Vec<DF>& b) {
  const hn::RebindToSigned<DF> di;
  const auto ff = hn::Set(di, 0xFF);
  a = hn::ConvertTo(df, hn::And(w, ff));
  b = hn::ConvertTo(df, hn::And(hn::ShiftRightSame(w, shiftB), ff));
}

#endif

void ResizeRowU8(const uint8_t* rowA, const uint8_t* rowC, uint8_t* out, int n, int readable,
                 float stepX, float ay, bool mask, ColumnTable cols) {
  int i = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<float> df;
  const hn::RebindToSigned<decltype(df)> di;
  const hn::Rebind<uint8_t, decltype(di)> d8;
  const int lanes = static_cast<int>(hn::Lanes(df));
  const auto vstep = hn::Set(df, stepX), vay = hn::Set(df, ay), vnay = hn::Set(df, 1.0f - ay);
  const auto* baseA = reinterpret_cast<const int32_t*>(rowA);
  const auto* baseC = reinterpret_cast<const int32_t*>(rowC);
  for (; i + lanes <= n; i += lanes) {
    // Columns and weights from the table when there is one, else by the same arithmetic here.
    int first, last;
    hn::Vec<decltype(di)> x0;
    hn::Vec<decltype(df)> ax;
    if (cols.x0 != nullptr) {
      first = cols.x0[i];
      last = cols.x0[i + lanes - 1];
      x0 = hn::LoadU(di, cols.x0 + i);
      ax = hn::LoadU(df, cols.ax + i);
    } else {
      first = static_cast<int>(i * stepX);
      last = static_cast<int>((i + lanes - 1) * stepX);
      const auto fx = hn::Mul(hn::ConvertTo(df, hn::Iota(di, i)), vstep);
      x0 = hn::ConvertTo(di, fx);
      ax = hn::Sub(fx, hn::ConvertTo(df, x0));
    }
    hn::Vec<decltype(df)> a, b, c, d;
    const int windows = WindowsFor(first, last, lanes);
    if (windows > 0 && first + windows * lanes <= readable) {
      const auto idx = hn::Sub(x0, hn::Set(di, first));
      hn::Vec<decltype(di)> ia, ib, ic, id;
      const uint8_t* rows[2] = {rowA + first, rowC + first};
      WindowPairs(di, windows,
                  [&](int r, int k) { return hn::PromoteTo(di, hn::LoadU(d8, rows[r] + k * lanes)); },
                  idx, ia, ib, ic, id);
      a = hn::ConvertTo(df, ia);
      b = hn::ConvertTo(df, ib);
      c = hn::ConvertTo(df, ic);
      d = hn::ConvertTo(df, id);
    } else if (last + 4 <= readable) {
      SplitWord(df, hn::GatherOffset(di, baseA, x0), 8, a, b);
      SplitWord(df, hn::GatherOffset(di, baseC, x0), 8, c, d);
    } else {
      break;
    }
    const auto v = BlendV(df, a, b, c, d, ax, vay, vnay);
    const auto q = mask ? hn::IfThenElseZero(hn::RebindMask(di, hn::Gt(v, hn::Set(df, 127.0f))),
                                             hn::Set(di, 255))
                        : hn::ConvertTo(di, v);
    hn::StoreU(hn::DemoteTo(d8, q), d8, out + i);
  }
#endif
  scalar::ResizeRowU8Range(rowA, rowC, out, i, n, stepX, ay, mask);
}

void ResizeRowChannels(const uint8_t* rowA, const uint8_t* rowC, uint8_t* out, const int32_t* x0,
                       const float* ax, int n, int safeEnd, float ay, int ch, int count) {
  int i = 0;
#if HWY_TARGET != HWY_SCALAR
  if (ch <= 3) {
    const hn::ScalableTag<float> df;
    const hn::RebindToSigned<decltype(df)> di;
    const hn::Rebind<uint8_t, decltype(di)> d8;
    const int lanes = static_cast<int>(hn::Lanes(df));
    const auto vay = hn::Set(df, ay), vnay = hn::Set(df, 1.0f - ay);
    const auto vch = hn::Set(di, ch);
    for (; i + lanes <= safeEnd; i += lanes) {
      const auto off = hn::Mul(hn::LoadU(di, x0 + i), vch);
      const auto vax = hn::LoadU(df, ax + i);
      auto channel = [&](int k) {
        hn::Vec<decltype(df)> a, b, c, d;
        SplitWord(df, hn::GatherOffset(di, reinterpret_cast<const int32_t*>(rowA + k), off), 8 * ch, a, b);
        SplitWord(df, hn::GatherOffset(di, reinterpret_cast<const int32_t*>(rowC + k), off), 8 * ch, c, d);
        return hn::DemoteTo(d8, hn::ConvertTo(di, BlendV(df, a, b, c, d, vax, vay, vnay)));
      };
      uint8_t* o = out + static_cast<ptrdiff_t>(i) * ch;
      if (count == ch && ch == 3) {
        hn::StoreInterleaved3(channel(0), channel(1), channel(2), d8, o);
      } else if (count == ch && ch == 2) {
        hn::StoreInterleaved2(channel(0), channel(1), d8, o);
      } else if (ch == 1) {
        hn::StoreU(channel(0), d8, o);
      } else {
        // Only some channels: the others in the destination stay as they are.
        HWY_ALIGN uint8_t lane[HWY_MAX_BYTES / 4];
        for (int k = 0; k < count; ++k) {
          hn::Store(channel(k), d8, lane);
          for (int t = 0; t < lanes; ++t) o[t * ch + k] = lane[t];
        }
      }
    }
  }
#endif
  scalar::ResizeRowChannels(rowA, rowC, out + static_cast<ptrdiff_t>(i) * ch, x0 + i, ax + i,
                            n - i, 0, ay, ch, count);
}

void UpScale2x2Rows(const uint8_t* a, const uint8_t* c, uint8_t* out0, uint8_t* out1, int srcW) {
  int x = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<int16_t> d16;  // sums of four bytes fit; signed for the demotion
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const int lanes = static_cast<int>(hn::Lanes(d16));
  // Every column but the last has a right neighbour.
  for (; x + lanes <= srcW - 1; x += lanes) {
    const auto va = hn::PromoteTo(d16, hn::LoadU(d8, a + x));
    const auto vb = hn::PromoteTo(d16, hn::LoadU(d8, a + x + 1));
    const auto vc = hn::PromoteTo(d16, hn::LoadU(d8, c + x));
    const auto vd = hn::PromoteTo(d16, hn::LoadU(d8, c + x + 1));
    const auto ab = hn::ShiftRight<1>(hn::Add(va, vb));
    const auto ac = hn::ShiftRight<1>(hn::Add(va, vc));
    const auto abcd = hn::ShiftRight<2>(hn::Add(hn::Add(va, vb), hn::Add(vc, vd)));
    hn::StoreInterleaved2(hn::DemoteTo(d8, va), hn::DemoteTo(d8, ab), d8, out0 + 2 * x);
    hn::StoreInterleaved2(hn::DemoteTo(d8, ac), hn::DemoteTo(d8, abcd), d8, out1 + 2 * x);
  }
#endif
  // The rest, with the edge rule taken relative to column x.
  scalar::UpScale2x2Rows(a + x, c + x, out0 + 2 * x, out1 + 2 * x, srcW - x);
}

void ResizeU8Plane(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH,
                   float stepX, float stepY, bool mask, ColumnTable cols) {
  u8loop::Plane(src, dst, srcW, srcH, dstW, dstH, stepX, stepY, mask, cols, ResizeRowU8);
}

void ResizeChannelsPlane(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW,
                         int dstH, float stepY, const int32_t* x0, const float* ax, int safe,
                         int ch, int count) {
  u8loop::Channels(src, dst, srcW, srcH, dstW, dstH, stepY, x0, ax, safe, ch, count,
                   ResizeRowChannels);
}

void UpScale2x2Plane(const uint8_t* src, uint8_t* dst, int srcW, int srcH) {
  u8loop::UpScale(src, dst, srcW, srcH, UpScale2x2Rows);
}

}  // namespace HWY_NAMESPACE
}  // namespace bivista
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace bivista {

HWY_EXPORT(ResizeRowU8);
HWY_EXPORT(ResizeRowChannels);
HWY_EXPORT(UpScale2x2Rows);
HWY_EXPORT(ResizeU8Plane);
HWY_EXPORT(ResizeChannelsPlane);
HWY_EXPORT(UpScale2x2Plane);

void ResizeU8Plane(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH,
                   float stepX, float stepY, bool mask, ColumnTable cols) {
  HWY_DYNAMIC_DISPATCH(ResizeU8Plane)(src, dst, srcW, srcH, dstW, dstH, stepX, stepY, mask, cols);
}
void ResizeChannelsPlane(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW,
                         int dstH, float stepY, const int32_t* x0, const float* ax, int safe,
                         int ch, int count) {
  HWY_DYNAMIC_DISPATCH(ResizeChannelsPlane)(src, dst, srcW, srcH, dstW, dstH, stepY, x0, ax, safe,
                                            ch, count);
}
void UpScale2x2Plane(const uint8_t* src, uint8_t* dst, int srcW, int srcH) {
  HWY_DYNAMIC_DISPATCH(UpScale2x2Plane)(src, dst, srcW, srcH);
}

void ResizeRowU8(const uint8_t* rowA, const uint8_t* rowC, uint8_t* out, int n, int readable,
                 float stepX, float ay, bool mask, ColumnTable cols) {
  HWY_DYNAMIC_DISPATCH(ResizeRowU8)(rowA, rowC, out, n, readable, stepX, ay, mask, cols);
}
void ResizeRowChannels(const uint8_t* rowA, const uint8_t* rowC, uint8_t* out, const int32_t* x0,
                       const float* ax, int n, int safeEnd, float ay, int ch, int count) {
  HWY_DYNAMIC_DISPATCH(ResizeRowChannels)(rowA, rowC, out, x0, ax, n, safeEnd, ay, ch, count);
}
void UpScale2x2Rows(const uint8_t* a, const uint8_t* c, uint8_t* out0, uint8_t* out1, int srcW) {
  HWY_DYNAMIC_DISPATCH(UpScale2x2Rows)(a, c, out0, out1, srcW);
}

namespace scalar {

void ResizeRowU8(const uint8_t* rowA, const uint8_t* rowC, uint8_t* out, int n, int,
                 float stepX, float ay, bool mask, ColumnTable) {
  ResizeRowU8Range(rowA, rowC, out, 0, n, stepX, ay, mask);
}

void ResizeRowU8Range(const uint8_t* rowA, const uint8_t* rowC, uint8_t* out, int from, int n,
                      float stepX, float ay, bool mask) {
  for (int i = from; i < n; ++i) {
    const float fx = i * stepX;
    const int x0 = static_cast<int>(fx);
    const float ax = fx - x0;
    const float v = Bilinear(rowA[x0], rowA[x0 + 1], rowC[x0], rowC[x0 + 1], ax, ay);
    out[i] = mask ? (v > 127.0f ? 255 : 0) : static_cast<uint8_t>(static_cast<int>(v));
  }
}

void ResizeRowChannels(const uint8_t* rowA, const uint8_t* rowC, uint8_t* out, const int32_t* x0,
                       const float* ax, int n, int, float ay, int ch, int count) {
  for (int i = 0; i < n; ++i) {
    const int s = x0[i] * ch;
    for (int k = 0; k < count; ++k) {
      const float v = Bilinear(rowA[s + k], rowA[s + ch + k], rowC[s + k], rowC[s + ch + k], ax[i], ay);
      out[i * ch + k] = static_cast<uint8_t>(static_cast<int>(v));
    }
  }
}

void UpScale2x2Rows(const uint8_t* a, const uint8_t* c, uint8_t* out0, uint8_t* out1, int srcW) {
  for (int x = 0; x < srcW; ++x) {
    const int s = x == srcW - 1 ? srcW - 2 : x;
    const int pa = a[s], pb = a[s + 1], pc = c[s], pd = c[s + 1];
    out0[2 * x] = static_cast<uint8_t>(pa);
    out0[2 * x + 1] = static_cast<uint8_t>((pa + pb) >> 1);
    out1[2 * x] = static_cast<uint8_t>((pa + pc) >> 1);
    out1[2 * x + 1] = static_cast<uint8_t>((pa + pb + pc + pd) >> 2);
  }
}

void ResizeU8Plane(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW, int dstH,
                   float stepX, float stepY, bool mask, ColumnTable cols) {
  u8loop::Plane(src, dst, srcW, srcH, dstW, dstH, stepX, stepY, mask, cols, ResizeRowU8);
}

void ResizeChannelsPlane(const uint8_t* src, uint8_t* dst, int srcW, int srcH, int dstW,
                         int dstH, float stepY, const int32_t* x0, const float* ax, int safe,
                         int ch, int count) {
  u8loop::Channels(src, dst, srcW, srcH, dstW, dstH, stepY, x0, ax, safe, ch, count,
                   ResizeRowChannels);
}

void UpScale2x2Plane(const uint8_t* src, uint8_t* dst, int srcW, int srcH) {
  u8loop::UpScale(src, dst, srcW, srcH, UpScale2x2Rows);
}

}  // namespace scalar

ColumnTable MakeColumnTable(int n, float stepX) {
  ColumnTable t;
  void* block = malloc(static_cast<size_t>(n) * (sizeof(int32_t) + sizeof(float)));
  if (block == nullptr) return t;
  t.x0 = static_cast<int32_t*>(block);
  t.ax = reinterpret_cast<float*>(t.x0 + n);
  for (int i = 0; i < n; ++i) {
    const float fx = i * stepX;
    t.x0[i] = static_cast<int32_t>(fx);
    t.ax[i] = fx - t.x0[i];
  }
  return t;
}

void FreeColumnTable(ColumnTable t) { free(t.x0); }

}  // namespace bivista
#endif
