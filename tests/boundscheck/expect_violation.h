// One-line violation report check shared by the bounds-checked routine tests.
#ifndef BIVISTA_TESTS_BOUNDSCHECK_EXPECT_VIOLATION_H
#define BIVISTA_TESTS_BOUNDSCHECK_EXPECT_VIOLATION_H

#include <gtest/gtest.h>

#include <string>

#include "support/platform_capture.h"

namespace bvtest {

// Exactly one line was logged since the last Clear: level 6, "ZR481_ALGO", the function's line.
inline ::testing::AssertionResult OneViolation(LogCapture& log, const char* func, int line,
                                               const std::string& what) {
  const auto lines = log.Lines();
  log.Clear();
  const std::string want = Msg(func, line, "constraint violated: " + what);
  if (lines.size() != 1) {
    return ::testing::AssertionFailure() << lines.size() << " lines logged, want 1: " << want;
  }
  if (lines[0].priority != 6 || lines[0].tag != "ZR481_ALGO" || lines[0].text != want) {
    return ::testing::AssertionFailure() << "logged (" << lines[0].priority << ", " << lines[0].tag
                                         << ", " << lines[0].text << "), want " << want;
  }
  return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult NothingLogged(LogCapture& log) {
  const auto lines = log.Lines();
  log.Clear();
  if (lines.empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "unexpected log line: " << lines[0].text;
}

}  // namespace bvtest

#endif
