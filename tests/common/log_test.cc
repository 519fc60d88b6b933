#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bivista/xelma_log.h"
#include "support/platform_capture.h"

namespace {

TEST(XelmaPrint, ForwardsLevelTagAndTextUnchanged) {
  bvtest::LogCapture log;
  std::vector<std::string> want, got;
  for (int level = 3; level <= 6; ++level) {
    for (const char* tag : {"ZR481_ALGO", "ZR481_MTHD", "Xelma_Algo", "ZR481_TIME", "ZR481_FMAT"}) {
      const std::string text = bvtest::Msg("fn", 7, "value=" + std::to_string(level) + " " + tag);
      // The platform's result (the formatted length) is returned as is.
      EXPECT_EQ(Xelma_Print(level, tag, "[%s.%-4d] value=%d %s", "fn", 7, level, tag), (int)text.size());
      want.push_back(std::to_string(level) + " " + tag + " " + text);
    }
  }
  // Literal newlines kept; "%-4d" pads short line numbers only.
  Xelma_Print(4, "ZR481_ALGO", "[%s.%-4d] a\nb\n", "f", 12345);
  Xelma_Print(4, "ZR481_ALGO", "[%s.%-4d] x", "f", 3);
  want.insert(want.end(), {"4 ZR481_ALGO [f.12345] a\nb\n", "4 ZR481_ALGO [f.3   ] x"});
  for (const auto& l : log.Lines()) got.push_back(std::to_string(l.priority) + " " + l.tag + " " + l.text);
  EXPECT_EQ(got, want);
}

}  // namespace
