#include "bivista/timer.h"

#include <sys/time.h>
#include <time.h>

#include "common/log_internal.h"

using bivista::kTagTime;

namespace {

constexpr int kLineShowTime = 212;
constexpr int kLineGetCurrentDuration = 229;
constexpr int kLineShowTime2 = 268;

// Plain globals on purpose: profiling one slot from several threads gives undefined sums.
long g_start[BIVISTA_TIMER_SLOTS];
long g_accumulated[BIVISTA_TIMER_SLOTS];
struct timeval g_start2[BIVISTA_TIMER2_SLOTS];
double g_accumulated2[BIVISTA_TIMER2_SLOTS];

// One label per processor-time slot, naming the camera-stack stage profiled in it.
const char* const kLabels[BIVISTA_TIMER_SLOTS] = {
    "depthcalc total", "depthcalc validate", "depthcalc confidence", "depthcalc correct area",
    "depthcalc histogram", "depthcalc multi depth", "depthcalc shift", "depthcalc dump",
    "mthread boot", "mthread sync", "morph integral", "morph erode", "morph dilate",
    "morph open", "morph close", "morph fixed kernel", "morph connect", "morph manhattan",
    "morph legacy", "resize float", "resize disparity", "resize uchar", "resize nv21",
    "convert yuv", "convert rgb", "packed_FXN_malloc", "packed_FXN_free", "matrix multiply",
    "matrix inverse", "fgs prepare", "fgs horizontal", "fgs vertical", "fgs total",
    "jwmf quantize", "jwmf feature", "jwmf histogram", "jwmf median", "jwmf optimize",
    "jwmf total", "border gradient", "border mask", "tone histogram", "tone lut", "tone apply",
    "nv12 adjust", "yeq calib", "gauss blur 3x3", "gauss blur 5x5", "gauss blur 7x7",
    "gauss blur total"};

}  // namespace

extern "C" {

long StartTimer(int slot) {
  g_start[slot] = static_cast<long>(clock());
  return g_start[slot];
}

long CumulativeTime(int slot) {
  const long diff = static_cast<long>(clock()) - g_start[slot];
  g_accumulated[slot] += diff;
  return diff;
}

void ShowTime(int first, int end) {
  for (int slot = first; slot < end; ++slot) {
    const char* label = kLabels[slot] != nullptr ? kLabels[slot] : "";
    BV_LOGD(kTagTime, "ShowTime", kLineShowTime, "%-50s: %-5ld", label,
            g_accumulated[slot] / 1000);
    g_accumulated[slot] = 0;
  }
}

void GetCurrentDuration(int label, int slot) {
  const long now = static_cast<long>(clock());
  const char* text = kLabels[label] != nullptr ? kLabels[label] : "";
  BV_LOGD(kTagTime, "GetCurrentDuration", kLineGetCurrentDuration, "%-50s: %-5ldms", text,
          (now - g_start[slot]) / 1000);
  g_start[slot] = now;
}

void StartTimer2(int slot) { gettimeofday(&g_start2[slot], nullptr); }

long CumulativeTime2(int slot) {
  struct timeval now;
  gettimeofday(&now, nullptr);
  const long seconds = static_cast<long>(now.tv_sec - g_start2[slot].tv_sec);
  const long micros = static_cast<long>(now.tv_usec - g_start2[slot].tv_usec);
  const float ms = static_cast<float>(seconds * 1000) + static_cast<float>(micros) * 0.001f;
  g_accumulated2[slot] += ms;
  return micros;
}

void ShowTime2(int first, int last, const char* label) {
  for (int slot = first; slot <= last; ++slot) {
    BV_LOGI(kTagTime, "ShowTime2", kLineShowTime2, "time consuming!%s step %d:    %f", label,
            slot, g_accumulated2[slot]);
    g_accumulated2[slot] = 0.0;
  }
}

}  // extern "C"
