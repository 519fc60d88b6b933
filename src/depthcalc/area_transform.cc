// Shift of the focus area into the other camera's image: disparity plus the warp's displacement.
#include <math.h>
#include <string.h>

#include <algorithm>

#include "bivista/mem_services.h"
#include "common/log_internal.h"
#include "common/mem_internal.h"
#include "depthcalc/depthcalc_internal.h"
#include "depthcalc/depthcalc_kernels.h"

namespace bivista {
namespace {

constexpr int kLineCalcWarpingMatrix = 401;
constexpr int kLineCalcVxVyInverse = 452;
constexpr int kLineCalcVxVyFailed = 461;
constexpr int kLineCalcAreaVxVy = 489;
constexpr int kLineTransMalloc = 517;
constexpr int kLineTransCalcVxVy = 548;

constexpr double kEpsilon = 2.220446e-16;

enum class Form { kForward, kInverse, kNone };

// Which way the warp is stored relative to what the shift needs.
Form ShiftForm(int mode, int form) {
  if ((mode == 1 && form == 0) || (mode == 0 && form == 1)) return Form::kForward;
  if ((mode == 1 && form == 1) || (mode == 0 && form == 0)) return Form::kInverse;
  return Form::kNone;
}

// Disparity of the area in pixels; negative samples count as 0.
void FillDisparity(const DisparityType& rec, const BIVISTA_Rect& r, int w, int h, float* out) {
  const size_t corner = static_cast<size_t>(r.top) * rec.stride + r.left;
  if (rec.format == 0) {
    DisparityPlane8(static_cast<const uint8_t*>(rec.data) + corner, rec.stride, rec.dispOffset, w,
                    h, out);
  } else {
    DisparityPlane16(static_cast<const uint16_t*>(rec.data) + corner, rec.stride, rec.dispOffset,
                     w, h, out);
  }
}

// The two running sums are not adjacent: as a pair the compiler keeps them packed in one vector
// register through the walk, adding two shuffles to each step of their dependency chains.
struct Sums {
  float x = 0.0f;
  int count = 0;
  float y = 0.0f;
};

// Landing indices are computed a block of rows at a time into a buffer on the stack (a row of
// any map fits).
constexpr int kTargetBlock = 4096;

// Forward form: the field is read where the sample lands. Inverse form: the sample's own field
// is used and the disparity is read where it lands. Samples i0 .. i0 + n - 1, their targets from
// target[0], added to the running sums in sample order.
template <bool Forward, int Dir>
void WalkSums(const float* disp, const float* vx, const float* vy, const int32_t* target, int w,
              int i0, int n, Sums* sums) {
  Sums s = *sums;
  for (int k = 0; k < n; ++k) {
    const int i = i0 + k;
    const int t = target[k];
    if (t < 0) {
      --s.count;
      continue;
    }
    if (Forward) {
      const float d = disp[i];
      if (Dir == 0) { s.x += vx[t]; s.y += vy[t] - d; }
      if (Dir == 1) { s.x += vx[t]; s.y += vy[t] + d; }
      if (Dir == 2) { s.x += vx[t] - d; s.y += vy[t]; }
      if (Dir == 3) { s.x += vx[t] + d; s.y += vy[t]; }
    } else {
      const float fx = vx[i];
      const float fy = vy[i];
      const float D = disp[t];
      if (Dir == 0) { s.x += fx; s.y = D + fy + static_cast<float>(i / w); }  // set, not added
      if (Dir == 1) { s.x += fx; s.y += fy - D; }
      if (Dir == 2) { s.x += fx + D; s.y += fy; }
      if (Dir == 3) { s.x += fx - D; s.y += fy; }
    }
  }
  *sums = s;
}

// Target of every sample as an index into the area, -1 when it falls outside; a separate pass
// per block of rows so that the sums are a plain walk. Forward form: the sample's disparity
// carries it along the pair's axis. Inverse form: the sample moves by its own field.
template <bool Forward, int Dir>
Sums SumsOf(const float* disp, const float* vx, const float* vy, int w, int h) {
  Sums s;
  s.count = w * h;
  if (w <= 0 || h <= 0) return s;  // an inverted area has no sample to walk
  const float* rowAdd = Forward ? (Dir <= 1 ? disp : nullptr) : vy;
  const float* colAdd = Forward ? (Dir <= 1 ? nullptr : disp) : vx;
  int32_t target[kTargetBlock];
  if (w > kTargetBlock) {
    // Rows wider than the block (areas far beyond any map): a sample at a time.
    for (int r = 0; r < h; ++r) {
      for (int c = 0; c < w; ++c) {
        const int i = r * w + c;
        target[0] = LandingTarget(rowAdd, colAdd, r, c, i, w, h);
        WalkSums<Forward, Dir>(disp, vx, vy, target, w, i, 1, &s);
      }
    }
    return s;
  }
  const int rows = kTargetBlock / w;
  for (int r0 = 0; r0 < h; r0 += rows) {
    const int n = rows < h - r0 ? rows : h - r0;
    LandingTargets(rowAdd, colAdd, w, h, r0, n, target);
    WalkSums<Forward, Dir>(disp, vx, vy, target, w, r0 * w, n * w, &s);
  }
  return s;
}

// Forward form, directions 2 and 3: the disparity moves a sample along its own row, so the
// field, the landing columns and the sums of a row need nothing from other rows.
bool RowLocal(Form form, int dir) { return form == Form::kForward && (dir == 2 || dir == 3); }

// Adds one row to the running sums, in the same order as the whole-plane walk.
template <int Dir>
void WalkForwardRow(const float* disp, const float* vx, const float* vy, const int32_t* col,
                    int w, Sums* s) {
  float x = s->x, y = s->y;
  int count = s->count;
  for (int i = 0; i < w; ++i) {
    const int t = col[i];
    if (t < 0) {
      --count;
      continue;
    }
    const float d = disp[i];
    if (Dir == 2) { x += vx[t] - d; y += vy[t]; }
    if (Dir == 3) { x += vx[t] + d; y += vy[t]; }
  }
  s->x = x;
  s->y = y;
  s->count = count;
}

Sums ShiftSums(Form form, int dir, const float* disp, const float* vx, const float* vy, int w,
               int h) {
  if (form == Form::kForward) {
    switch (dir) {
      case 0: return SumsOf<true, 0>(disp, vx, vy, w, h);
      case 1: return SumsOf<true, 1>(disp, vx, vy, w, h);
      case 2: return SumsOf<true, 2>(disp, vx, vy, w, h);
      case 3: return SumsOf<true, 3>(disp, vx, vy, w, h);
    }
  } else if (form == Form::kInverse) {
    switch (dir) {
      case 0: return SumsOf<false, 0>(disp, vx, vy, w, h);
      case 1: return SumsOf<false, 1>(disp, vx, vy, w, h);
      case 2: return SumsOf<false, 2>(disp, vx, vy, w, h);
      case 3: return SumsOf<false, 3>(disp, vx, vy, w, h);
    }
  }
  Sums none;
  none.count = w * h;  // w and h fit: see TransDispariyArea
  return none;
}

}  // namespace

int InvertMatrix3x3(const float* m, float* inv) {
  const float a = m[0], b = m[1], c = m[2];
  const float d = m[3], e = m[4], f = m[5];
  const float g = m[6], h = m[7], i = m[8];
  const float c00 = e * i - f * h;
  const float c01 = f * g - d * i;
  const float c02 = d * h - e * g;
  const float det = a * c00 + b * c01 + c * c02;
  if (!(fabs(static_cast<double>(det)) > kEpsilon)) return -1;
  inv[0] = c00 / det;
  inv[1] = (c * h - b * i) / det;
  inv[2] = (b * f - c * e) / det;
  inv[3] = c01 / det;
  inv[4] = (a * i - c * g) / det;
  inv[5] = (c * d - a * f) / det;
  inv[6] = c02 / det;
  inv[7] = (b * g - a * h) / det;
  inv[8] = (a * e - b * d) / det;
  return 0;
}

void MulMatrix3x3(const float* a, const float* b, float* c) {
  float out[9];
  for (int r = 0; r < 3; ++r) {
    for (int col = 0; col < 3; ++col) {
      float acc = 0.0f;
      for (int k = 0; k < 3; ++k) acc = fmaf(a[r * 3 + k], b[k * 3 + col], acc);
      out[r * 3 + col] = acc;
    }
  }
  memcpy(c, out, sizeof out);
}

int CalcWarpingMatrix(const float* warp, int rectifyW, int rectifyH, int fixW, int fixH,
                      float* homography) {
  float winv[9];
  if (InvertMatrix3x3(warp, winv) != 0) {
    BV_LOGE(kTagAlgo, "CalcWarpingMatrix", kLineCalcWarpingMatrix, "Input warp image matrix is wrong");
    return -1;
  }
  const float hw = static_cast<float>(rectifyW) * 0.5f;
  const float hh = static_cast<float>(rectifyH) * 0.5f;
  const float t1[9] = {1, 0, -hw, 0, 1, -hh, 0, 0, 1};
  const float t2[9] = {1, 0, hw, 0, 1, hh, 0, 0, 1};
  float m[9];
  MulMatrix3x3(winv, t1, m);
  MulMatrix3x3(t2, m, m);
  // The rectified frame is scaled to the fixed frame by one factor on both axes.
  const float s = static_cast<float>(fixW) / static_cast<float>(rectifyW);
  const float scale[9] = {s, 0, 0, 0, s, 0, 0, 0, 1};
  float sinv[9];
  if (InvertMatrix3x3(scale, sinv) != 0) {
    BV_LOGE(kTagAlgo, "CalcWarpingMatrix", kLineCalcWarpingMatrix, "Input warp image matrix is wrong");
    return -1;
  }
  MulMatrix3x3(m, sinv, m);
  MulMatrix3x3(scale, m, homography);
  (void)fixH;
  return 0;
}

int CalcVxVy(int mode, const BIVISTA_CalibParam& calib, int fixW, int fixH, float* homography) {
  float warp[9];
  memcpy(warp, calib.warpMatrix, sizeof warp);
  if (ShiftForm(mode, calib.warpMatrixForm) == Form::kInverse) {
    if (InvertMatrix3x3(calib.warpMatrix, warp) != 0) {
      BV_LOGE(kTagAlgo, "CalcVxVy", kLineCalcVxVyInverse, "Input warp image matrix is wrong");
      return -1;
    }
  }
  if (CalcWarpingMatrix(warp, calib.rectifiedWidth, calib.rectifiedHeight, fixW, fixH,
                        homography) != 0) {
    BV_LOGE(kTagAlgo, "CalcVxVy", kLineCalcVxVyFailed,
            "CalcWarpingMatrix failed rectifyW: %d rectifyH: %d fixW: %d fixH: %d",
            calib.rectifiedWidth, calib.rectifiedHeight, fixW, fixH);
    return -1;
  }
  return 0;
}

// Smallest float not below the double epsilon: |z| < it exactly when |z| < the epsilon.
float EpsilonAsFloat() {
  const float e = static_cast<float>(kEpsilon);
  return static_cast<double>(e) < kEpsilon ? nextafterf(e, 1.0f) : e;
}

namespace {
// Warp field of one row of w samples; a row holding a degenerate z is redone with the guard.
void GuardedVxVyRow(const float* H, float eps, int x0, float Y, int w, float* rx, float* ry) {
  if (!AreaVxVyRow(H, eps, x0, Y, w, rx, ry)) return;
  const float h0 = H[0], h1 = H[1], h2 = H[2], h3 = H[3], h4 = H[4], h5 = H[5];
  const float h6 = H[6], h7 = H[7], h8 = H[8];
  for (int i = 0; i < w; ++i) {
    const float X = static_cast<float>(x0 + i);
    float z = h6 * X + h7 * Y + h8;
    if (fabsf(z) < eps) {
      BV_LOGW(kTagAlgo, "calcAreaVxVy", kLineCalcAreaVxVy, "find exception z valu");
      z = 1.0f;
    }
    rx[i] = (h0 * X + h1 * Y + h2) / z - X;
    ry[i] = (h3 * X + h4 * Y + h5) / z - Y;
  }
}

// Row-local shift (see RowLocal): disparity, field, landing columns and sums one row at a time
// in the first row of each plane, so that all of it stays in the first-level cache.
// The sums go out through a pointer: a returned pair of floats travels packed in one register,
// and the compiler then keeps the two running sums packed through the whole walk.
void RowLocalSums(const DisparityType& rec, const BIVISTA_Rect& rect, const float* H, int xoff,
                  int yoff, float* disp, float* vx, float* vy, Sums* out) {
  const int w = rect.right - rect.left + 1;
  const int h = rect.bottom - rect.top + 1;
  int32_t col[kTargetBlock];
  const float eps = EpsilonAsFloat();
  const int x0 = rect.left + xoff;
  // Disparities are quarter pixels; below 2^20 the landing columns are exact in float lanes.
  const int64_t rawMax = rec.format == 0 ? 255 : 65535;
  const bool quarter = rawMax + rec.dispOffset < (int64_t{1} << 22);
  Sums s;
  s.count = w * h;
  for (int y = rect.top; y <= rect.bottom; ++y) {
    BIVISTA_Rect one = rect;
    one.top = one.bottom = y;
    FillDisparity(rec, one, w, 1, disp);
    GuardedVxVyRow(H, eps, x0, static_cast<float>(y + yoff), w, vx, vy);
    // The row stays; only the column moves.
    if (quarter) {
      LandingColumnsQuarter(disp, w, col);
    } else {
      LandingTargets(nullptr, disp, w, 1, 0, 1, col);
    }
    if (rec.shiftDirection == 2) {
      WalkForwardRow<2>(disp, vx, vy, col, w, &s);
    } else {
      WalkForwardRow<3>(disp, vx, vy, col, w, &s);
    }
  }
  *out = s;
}
}  // namespace

void calcAreaVxVy(const float* H, const BIVISTA_Rect& rect, int xoff, int yoff, float* vx,
                  float* vy) {
  const int64_t w64 = static_cast<int64_t>(rect.right) - rect.left + 1;
  if (w64 <= 0) return;  // no sample, and no row pointer to form
  const int w = static_cast<int>(w64);
  const float eps = EpsilonAsFloat();
  for (int y = rect.top; y <= rect.bottom; ++y) {
    GuardedVxVyRow(H, eps, rect.left + xoff, static_cast<float>(y + yoff), w,
                   vx + static_cast<size_t>(y - rect.top) * w,
                   vy + static_cast<size_t>(y - rect.top) * w);
  }
}

int TransDispariyArea(const DisparityType& rec, const BIVISTA_CalibParam& calib,
                      const BIVISTA_Rect& rect, float* averShiftX, float* averShiftY) {
  // Sides and plane sizes in 64 bits: an inverted rectangle far from the map has sides beyond
  // 32 bits, and its planes are refused by the allocator. Sides held to 2^28 either way keep the
  // product exact and refused all the same.
  const int64_t w64 = static_cast<int64_t>(rect.right) - rect.left + 1;
  const int64_t h64 = static_cast<int64_t>(rect.bottom) - rect.top + 1;
  constexpr int64_t kSideCap = int64_t{1} << 28;
  const int64_t cw = std::min(std::max(w64, -kSideCap), kSideCap);
  const int64_t ch = std::min(std::max(h64, -kSideCap), kSideCap);
  const int64_t bytes = cw * ch * static_cast<int64_t>(sizeof(float));
  // The disparity plane, vx and vy: one allocation each, as the host's allocator sees them; a
  // failure frees what was taken. The row-local case uses the first row of each.
  float* planes[3] = {nullptr, nullptr, nullptr};
  for (float*& p : planes) {
    p = static_cast<float*>(SafeNewSize(bytes));
    if (p == nullptr) {
      BV_LOGE(kTagAlgo, "TransDispariyArea", kLineTransMalloc, "malloc failed");
      for (float* q : planes) safeDelete(q);
      return -1;
    }
  }
  float* disp = planes[0];
  float* vx = planes[1];
  float* vy = planes[2];
  // Allocated, the plane fits 32 bits, and so do w and h (both positive, or both negative).
  const int w = static_cast<int>(w64), h = static_cast<int>(h64);
  const bool empty = w <= 0 || h <= 0;
  const Form form = ShiftForm(rec.mode, calib.warpMatrixForm);
  // The row-local walk keeps a row's landing columns on the stack.
  const bool rowLocal = !empty && w <= kTargetBlock && RowLocal(form, rec.shiftDirection);
  if (!rowLocal && !empty) FillDisparity(rec, rect, w, h, disp);


  // Square and wide maps are centred in a 4:3 frame.
  const int W = rec.width;
  const int Hd = rec.height;
  const int fixW = (W == Hd) ? Hd * 4 / 3 : W;
  int fixH = Hd;
  if (9 * fixW == 16 * Hd) fixH = fixW * 3 / 4;
  if (9 * fixW == 18 * fixH) fixH = fixW * 3 / 4;

  float H[9];
  if (CalcVxVy(rec.mode, calib, fixW, fixH, H) != 0) {
    BV_LOGE(kTagAlgo, "TransDispariyArea", kLineTransCalcVxVy, "CalcVxVy failed in TransDispariyArea");
    for (float* q : planes) safeDelete(q);
    return -1;
  }
  Sums s;
  if (rowLocal) {
    RowLocalSums(rec, rect, H, (fixW - W) / 2, (fixH - Hd) / 2, disp, vx, vy, &s);
  } else {
    calcAreaVxVy(H, rect, (fixW - W) / 2, (fixH - Hd) / 2, vx, vy);
    s = ShiftSums(form, rec.shiftDirection, disp, vx, vy, w, h);
  }
  for (float* q : planes) safeDelete(q);
  if (s.count == 0) {
    // Nothing landed inside the area: no measured shift rather than a not-a-number.
    *averShiftX = 0.0f;
    *averShiftY = 0.0f;
    return 0;
  }
  *averShiftX = s.x / static_cast<float>(s.count);
  *averShiftY = s.y / static_cast<float>(s.count);
  return 0;
}

}  // namespace bivista
