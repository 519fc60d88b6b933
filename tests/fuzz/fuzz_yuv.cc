// YUV and RGB conversions: odd and even sizes, strides from below the width to far above it,
// window offsets anywhere in the int range. Every buffer spans exactly the bytes the call may
// touch; vector and lowest target agree; refusals leave the destination untouched.
#include <algorithm>

#include "bivista/imageformat.h"
#include "support.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr long long kMaxSpan = 1 << 22;

// Bytes [lo, hi) relative to the pointer handed to the library.
struct Span {
  long long lo = 0, hi = 0;
  void Add(long long from, long long count) {
    if (count <= 0) return;
    if (hi <= lo) {
      lo = from, hi = from + count;
      return;
    }
    lo = std::min(lo, from), hi = std::max(hi, from + count);
  }
  size_t Size() const { return hi > lo ? static_cast<size_t>(hi - lo) : 0; }
  bool Fits() const { return hi - lo <= kMaxSpan; }
};

// Rows of count bytes, row r at base + r * stride.
void AddRows(Span& s, long long base, long long stride, long long rows, long long count) {
  if (rows <= 0 || count <= 0) return;
  s.Add(base, count);
  s.Add(base + (rows - 1) * stride, count);
}

int Stride(FuzzedDataProvider& p, int w) {
  switch (p.ConsumeIntegralInRange<int>(0, 5)) {
    case 0: return std::max(0, w - p.ConsumeIntegralInRange<int>(0, 3));
    case 1: return w + bvfuzz::Dim(p, 0, 4000);
    default: return w + p.ConsumeIntegralInRange<int>(0, 40);
  }
}

// A buffer over the span, and the pointer that addresses its offset 0.
struct Window {
  Bytes bytes;
  long long lo;
  uint8_t* at() { return bytes.data() - lo; }
};

// Both targets from the same destination; the source is never written. Returns the output.
template <class F>
Bytes Run(const Window& in, const Window& out, const char* what, bool mustStay, F&& call) {
  return bvfuzz::Twins(out.bytes, what, [&](uint8_t* o) {
    Window src = in;
    call(src.at(), o - out.lo);
    bvfuzz::CheckSame(src.bytes, in.bytes, what);
  }, mustStay).out;
}

Window Make(FuzzedDataProvider& p, const Span& s) { return {bvfuzz::Buffer<uint8_t>(p, s.Size()), s.lo}; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider p(data, size);
  const int op = p.ConsumeIntegralInRange<int>(0, 5);
  const int w = p.ConsumeBool() ? p.ConsumeIntegralInRange<int>(-2, 2) : bvfuzz::Dim(p, 1, 90);
  const int h = p.ConsumeBool() ? p.ConsumeIntegralInRange<int>(-2, 2) : bvfuzz::Dim(p, 1, 40);
  const int stride = Stride(p, std::max(w, 0));
  const bool none = w < 1 || h < 1;
  const long long W = w, H = h, S = stride;
  Span in, out;
  switch (op) {
    case 0:
    case 1: {  // NV12 to RGB24: chroma row y / 2 at stride * height, pairs of the width
      if (!none) {
        AddRows(in, 0, S, H, W);
        // An odd width reads its last pair's V when the stride has room for it.
        AddRows(in, S * H, S, (H + 1) / 2, W % 2 != 0 && S > W ? W + 1 : W);
        out.Add(0, 3 * W * H);
      }
      if (!in.Fits()) return 0;
      const Window src = Make(p, in), dst = Make(p, out);
      Run(src, dst, "NV12 to RGB24", none, [&](uint8_t* s, uint8_t* d) {
        (op == 0 ? ConvertNV122RGB24_wideRange : ConvertNV122RGB24_wideRange_NEON)(s, d, w, h,
                                                                                  stride);
      });
      break;
    }
    case 2: {  // NV21 (stride) to I420
      if (!none) {
        AddRows(in, 0, S, H, W);
        AddRows(in, S * H, S, H / 2, 2 * (W / 2));
        out.Add(0, W * H + 2 * (W / 2) * (H / 2));
      }
      if (!in.Fits()) return 0;
      const Window src = Make(p, in), dst = Make(p, out);
      Run(src, dst, "ConvertNV21ToI420", none,
          [&](uint8_t* s, uint8_t* d) { ConvertNV21ToI420(s, d, w, h, stride); });
      break;
    }
    case 3: {  // I420 to NV21 (stride)
      if (!none) {
        in.Add(0, W * H + 2 * (W / 2) * (H / 2));
        AddRows(out, 0, S, H, W);
        AddRows(out, S * H, S, H / 2, 2 * (W / 2));
      }
      if (!out.Fits()) return 0;
      const Window src = Make(p, in), dst = Make(p, out);
      Run(src, dst, "ConvertI420ToNV21", none,
          [&](uint8_t* s, uint8_t* d) { ConvertI420ToNV21(s, d, w, h, stride); });
      break;
    }
    case 4: {  // NV21 to YUV444; refused unless both sizes are positive and even
      const bool bad = none || w % 2 != 0 || h % 2 != 0;
      if (!none) {
        in.Add(0, W * H + W * ((H + 1) / 2));
        out.Add(0, 3 * W * H);
      }
      const Window src = Make(p, in), dst = Make(p, out);
      const bool nullIn = p.ConsumeIntegralInRange<int>(0, 15) == 0;
      const bool nullOut = p.ConsumeIntegralInRange<int>(0, 15) == 0;
      Run(src, dst, "ConvertNV21ToYuv", bad || nullIn || nullOut, [&](uint8_t* s, uint8_t* d) {
        const int rc = ConvertNV21ToYuv(nullIn ? nullptr : s, nullOut ? nullptr : d, w, h);
        bvfuzz::Check((rc != 0) == (bad || nullIn || nullOut), "ConvertNV21ToYuv result");
      });
      break;
    }
    default: {  // NV12 window at (x0, y0) into planes Y, U, V placed w x h apart, rows dstStride
      const int x0 = bvfuzz::AnyInt(p), y0 = bvfuzz::AnyInt(p);
      const int d = p.ConsumeBool() ? stride : p.ConsumeIntegralInRange<int>(-200, 200);
      const long long D = d, X0 = x0, Y0 = y0, plane = W * H, pairs = (W + 1) / 2;
      const long long evenRows = (H + 1) / 2 * 2;
      if (h >= 1 && w >= 1) {
        AddRows(in, Y0 * W + X0, W, H, W);
        AddRows(in, plane + (Y0 / 2) * W + X0, W, evenRows / 2, 2 * pairs);
        AddRows(out, 0, D, H, W);
        AddRows(out, plane, D, evenRows, 2 * pairs);
        AddRows(out, 2 * plane, D, evenRows, 2 * pairs);
      }
      if (!in.Fits() || !out.Fits()) return 0;
      const Window src = Make(p, in), dst = Make(p, out);
      const Bytes got = Run(src, dst, "copyNV12ToYuv444", h < 1 || w < 1, [&](uint8_t* s, uint8_t* t) {
        bvfuzz::Check(copyNV12ToYuv444(s, w, h, d, x0, y0, t) == t, "copyNV12ToYuv444 result");
      });
      if (h < 1 || w < 1) break;
      // The byte-wise definition, in its order (later writes win where rows or planes meet).
      Window want = dst, in2 = src;
      const uint8_t* s = in2.at();
      uint8_t* t = want.at();
      for (long long r = 0; r < H; ++r)
        for (long long c = 0; c < W; ++c) t[r * D + c] = s[(Y0 + r) * W + X0 + c];
      for (long long i = 0; 2 * i < H; ++i) {
        const uint8_t* uv = s + plane + (Y0 / 2 + i) * W + X0;
        for (long long j = 0; 2 * j < W; ++j) {
          for (long long k = 1; k <= 2; ++k) {
            uint8_t* q = t + k * plane + 2 * i * D + 2 * j;
            q[0] = q[1] = q[D] = q[D + 1] = uv[2 * j + k - 1];
          }
        }
      }
      bvfuzz::CheckSame(got, want.bytes, "copyNV12ToYuv444 against its byte-wise definition");
      break;
    }
  }
  return 0;
}
