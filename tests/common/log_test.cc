#include <gtest/gtest.h>

#include "bivista/xelma_log.h"
#include "support/platform_capture.h"

namespace {

TEST(XelmaPrint, ForwardsLevelTagAndTextUnchanged) {
  bvtest::LogCapture log;
  for (int level = 3; level <= 6; ++level) {
    for (const char* tag : {"ZR481_ALGO", "ZR481_MTHD", "Xelma_Algo", "ZR481_TIME", "ZR481_FMAT"}) {
      const std::string want = bvtest::Msg("fn", 7, "value=" + std::to_string(level) + " " + tag);
      // The platform's result (the formatted length) is returned as is.
      EXPECT_EQ(Xelma_Print(level, tag, "[%s.%-4d] value=%d %s", "fn", 7, level, tag), (int)want.size());
      ASSERT_EQ(log.Lines().size(), 1u);
      EXPECT_EQ(log.Lines()[0].priority, level);
      EXPECT_EQ(log.Lines()[0].tag, tag);
      EXPECT_EQ(log.Lines()[0].text, want);
      log.Clear();
    }
  }
  // Literal newlines kept; "%-4d" pads short line numbers only.
  Xelma_Print(4, "ZR481_ALGO", "[%s.%-4d] a\nb\n", "f", 12345);
  Xelma_Print(4, "ZR481_ALGO", "[%s.%-4d] x", "f", 3);
  ASSERT_EQ(log.Lines().size(), 2u);
  EXPECT_EQ(log.Lines()[0].text, "[f.12345] a\nb\n");
  EXPECT_EQ(log.Lines()[1].text, "[f.3   ] x");
}

}  // namespace
