#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/time.h>
#include <time.h>

#include "bivista/timer.h"
#include "support/platform_capture.h"

namespace {

// The number after the last sep in the only line logged since the last call.
double Reading(bvtest::LogCapture& log, const char* sep) {
  const auto lines = log.Lines();
  log.Clear();
  double v = -1;
  if (lines.size() == 1) sscanf(lines[0].text.c_str() + lines[0].text.rfind(sep) + strlen(sep), "%lf", &v);
  return v;
}

void Spin(clock_t clocks) {
  for (const clock_t t = clock(); clock() - t < clocks;) {}
}

TEST(Timer, ProcessorSlotsAccumulateAndShowClears) {
  bvtest::LogCapture log;
  ShowTime(5, 5);  // exclusive end: nothing
  EXPECT_TRUE(log.Lines().empty());
  ShowTime(40, 42);  // clear whatever earlier tests left
  log.Clear();
  StartTimer(40);
  Spin(3000);
  const long d1 = CumulativeTime(40);
  EXPECT_GE(d1, 3000);
  StartTimer(40);
  const long d2 = CumulativeTime(40);
  ShowTime(40, 41);
  ASSERT_EQ(log.Lines().size(), 1u);
  const bvtest::LogLine l = log.Lines()[0];
  EXPECT_EQ(l.priority, 3);
  EXPECT_EQ(l.tag, "ZR481_TIME");
  // "%-50s: %-5ld" with the slot's label and the accumulated clocks / 1000.
  char tail[32];
  snprintf(tail, sizeof tail, ": %-5ld", (d1 + d2) / 1000);
  EXPECT_EQ(l.text.substr(l.text.size() - strlen(tail)), tail);
  EXPECT_EQ(l.text.rfind(": ") - l.text.find("] ") - 2, 50u);
  log.Clear();
  ShowTime(40, 41);  // cleared by the previous show
  EXPECT_EQ(Reading(log, ": "), 0);
  // GetCurrentDuration shows milliseconds and restarts the slot.
  StartTimer(41);
  Spin(2500);
  GetCurrentDuration(3, 41);
  EXPECT_EQ(log.Lines().at(0).text.substr(log.Lines()[0].text.size() - 2), "ms");
  const double first = Reading(log, ": ");
  EXPECT_GE(first, 2);
  GetCurrentDuration(3, 41);
  EXPECT_LT(Reading(log, ": "), first);
}

TEST(Timer, WallSlotsShowInclusiveRangeWithCallerLabel) {
  bvtest::LogCapture log;
  ShowTime2(6, 5, "none");
  ShowTime2(5, 5, "stage");  // inclusive: slot 5 is shown
  ASSERT_EQ(log.Lines().size(), 1u);
  EXPECT_EQ(log.Lines()[0].priority, 4);
  EXPECT_TRUE(bvtest::IsMsg(log.Lines()[0].text, "ShowTime2", "time consuming!stage step 5:    0.000000"));
  log.Clear();
  StartTimer2(7);
  struct timespec ts = {0, 20 * 1000 * 1000};
  nanosleep(&ts, nullptr);
  CumulativeTime2(7);
  ShowTime2(7, 7, "sleep");
  const double ms = Reading(log, ":    ");
  EXPECT_TRUE(ms >= 19.0 && ms < 2000.0) << ms;
  // Never started: the slot accumulates the time since the epoch, in single precision.
  ShowTime2(100, 100, "x");
  log.Clear();
  struct timeval now;
  gettimeofday(&now, nullptr);
  CumulativeTime2(100);
  ShowTime2(100, 100, "epoch");
  EXPECT_NEAR(Reading(log, ":    "), now.tv_sec * 1000.0, now.tv_sec * 1000.0 * 1e-6 + 5000);
}

}  // namespace
