#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/time.h>
#include <time.h>

#include "bivista/timer.h"
#include "support/platform_capture.h"

namespace {

// The number after the last occurrence of sep in the only line logged since the last call.
double Reading(bvtest::LogCapture& log, const char* sep) {
  const auto lines = log.Lines();
  log.Clear();
  double v = -1;
  if (lines.size() == 1) sscanf(lines[0].text.c_str() + lines[0].text.rfind(sep) + strlen(sep), "%lf", &v);
  return v;
}

TEST(Timer, ProcessorSlotsAccumulateAndShowClears) {
  bvtest::LogCapture log;
  ShowTime(5, 5);  // exclusive end: nothing
  EXPECT_TRUE(log.Lines().empty());
  ShowTime(40, 42);  // clear whatever earlier tests left
  log.Clear();
  StartTimer(40);
  for (const clock_t t = clock(); clock() - t < 3000;) {}
  const long d1 = CumulativeTime(40);
  EXPECT_GE(d1, 3000);
  StartTimer(40);
  const long d2 = CumulativeTime(40);
  ShowTime(40, 42);
  const auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].priority, 3);
  EXPECT_EQ(lines[0].tag, "ZR481_TIME");
  // "%-50s: %-5ld" with the slot's label and the accumulated clocks / 1000.
  char tail[32];
  snprintf(tail, sizeof tail, ": %-5ld", (d1 + d2) / 1000);
  EXPECT_EQ(lines[0].text.substr(lines[0].text.size() - strlen(tail)), tail);
  EXPECT_EQ(lines[0].text.rfind(": ") - lines[0].text.find("] ") - 2, 50u);
  log.Clear();
  ShowTime(40, 41);  // cleared by the previous show
  EXPECT_EQ(Reading(log, ": "), 0);
}

TEST(Timer, GetCurrentDurationRestartsTheSlot) {
  bvtest::LogCapture log;
  StartTimer(41);
  for (const clock_t t = clock(); clock() - t < 2500;) {}
  GetCurrentDuration(3, 41);
  EXPECT_EQ(log.Lines().at(0).text.substr(log.Lines()[0].text.size() - 2), "ms");
  const double first = Reading(log, ": ");
  EXPECT_GE(first, 2);
  GetCurrentDuration(3, 41);
  EXPECT_LT(Reading(log, ": "), first);  // only the time between the two calls
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
  EXPECT_GE(ms, 19.0);
  EXPECT_LT(ms, 2000.0);
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
