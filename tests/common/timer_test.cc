#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/time.h>
#include <time.h>

#include "bivista/timer.h"
#include "support/platform_capture.h"

namespace {

void Spin(long clocks) {
  const clock_t start = clock();
  volatile unsigned sink = 0;
  while (clock() - start < clocks) sink = sink + 1;
}

TEST(Timer, ProcessorSlotsAccumulateAndShowClears) {
  bvtest::LogCapture log;
  ShowTime(5, 5);  // exclusive end: nothing
  EXPECT_TRUE(log.Lines().empty());
  ShowTime(40, 42);  // clear whatever earlier tests left
  log.Clear();

  const long start = StartTimer(40);
  EXPECT_GT(start, 0);
  Spin(3000);
  const long d1 = CumulativeTime(40);
  EXPECT_GE(d1, 3000);
  StartTimer(40);
  Spin(2000);
  const long d2 = CumulativeTime(40);
  ShowTime(40, 42);
  const auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  for (const auto& l : lines) {
    EXPECT_EQ(l.priority, 3);
    EXPECT_EQ(l.tag, "ZR481_TIME");
  }
  // "%-50s: %-5ld" with the slot's label and the accumulated clocks / 1000.
  char tail[32];
  snprintf(tail, sizeof tail, ": %-5ld", (d1 + d2) / 1000);
  EXPECT_EQ(lines[0].text.substr(lines[0].text.size() - strlen(tail)), tail);
  EXPECT_EQ(lines[1].text.substr(lines[1].text.size() - 7), ": 0    ");
  const size_t colon = lines[0].text.rfind(": ");
  EXPECT_EQ(colon - lines[0].text.find("] ") - 2, 50u);  // label padded to 50 columns
  log.Clear();
  ShowTime(40, 41);  // cleared by the previous show
  EXPECT_EQ(lines[1].text.substr(lines[1].text.size() - 7), log.Lines()[0].text.substr(log.Lines()[0].text.size() - 7));
}

TEST(Timer, GetCurrentDurationRestartsTheSlot) {
  bvtest::LogCapture log;
  StartTimer(41);
  Spin(2500);
  GetCurrentDuration(3, 41);
  GetCurrentDuration(3, 41);
  const auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  auto value = [](const std::string& text) {
    EXPECT_EQ(text.rfind("ms"), text.size() - 2);
    long v = -1;
    sscanf(text.c_str() + text.rfind(": ") + 2, "%ld", &v);
    return v;
  };
  EXPECT_GE(value(lines[0].text), 2);
  // Restarted: the second reading covers only the time between the two calls.
  EXPECT_LT(value(lines[1].text), value(lines[0].text));
}

TEST(Timer, WallSlotsShowInclusiveRangeWithCallerLabel) {
  bvtest::LogCapture log;
  ShowTime2(5, 5, "stage");  // inclusive: slot 5 is shown
  ASSERT_EQ(log.Lines().size(), 1u);
  EXPECT_EQ(log.Lines()[0].priority, 4);
  EXPECT_TRUE(bvtest::IsMsg(log.Lines()[0].text, "ShowTime2", "time consuming!stage step 5:    0.000000"));
  log.Clear();
  ShowTime2(6, 5, "none");
  EXPECT_TRUE(log.Lines().empty());

  StartTimer2(7);
  struct timespec ts = {0, 20 * 1000 * 1000};
  nanosleep(&ts, nullptr);
  CumulativeTime2(7);
  ShowTime2(7, 7, "sleep");
  ASSERT_EQ(log.Lines().size(), 1u);
  double ms = 0;
  ASSERT_EQ(sscanf(log.Lines()[0].text.c_str() + log.Lines()[0].text.find(":    ") + 5, "%lf", &ms), 1);
  EXPECT_GE(ms, 19.0);
  EXPECT_LT(ms, 2000.0);
}

TEST(Timer, UnstartedWallSlotAccumulatesTimeSinceTheEpoch) {
  bvtest::LogCapture log;
  ShowTime2(100, 100, "x");
  log.Clear();
  struct timeval now;
  gettimeofday(&now, nullptr);
  CumulativeTime2(100);
  ShowTime2(100, 100, "epoch");
  double ms = 0;
  const std::string text = log.Lines().at(0).text;
  ASSERT_EQ(sscanf(text.c_str() + text.find(":    ") + 5, "%lf", &ms), 1);
  // Single-precision sum: within float rounding of the epoch time in milliseconds.
  EXPECT_NEAR(ms, now.tv_sec * 1000.0, now.tv_sec * 1000.0 * 1e-6 + 5000);
}

}  // namespace
