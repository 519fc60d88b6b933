#include <gtest/gtest.h>

#include "bivista/xelma_log.h"
#include "support/platform_capture.h"

namespace {

TEST(XelmaPrint, ForwardsEveryLevelAndTagUnchanged) {
  const char* tags[] = {"ZR481_ALGO", "ZR481_MTHD", "Xelma_Algo", "ZR481_TIME", "ZR481_FMAT"};
  bvtest::LogCapture log;
  for (int level = 3; level <= 6; ++level) {
    for (const char* tag : tags) {
      const int n = Xelma_Print(level, tag, "[%s.%-4d] value=%d %s", "fn", 7, level, tag);
      // The platform's result (here the formatted length) is returned as is.
      EXPECT_EQ(n, static_cast<int>(bvtest::Msg("fn", 7, "value=0 ").size() + strlen(tag)));
    }
  }
  const auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 20u);
  for (size_t i = 0; i < lines.size(); ++i) {
    const int level = 3 + static_cast<int>(i / 5);
    EXPECT_EQ(lines[i].priority, level);
    EXPECT_EQ(lines[i].tag, tags[i % 5]);
    EXPECT_EQ(lines[i].text, bvtest::Msg("fn", 7, "value=" + std::to_string(level) + " " + tags[i % 5]));
  }
}

TEST(XelmaPrint, KeepsLiteralNewlinesAndLeftJustifiesTheLine) {
  bvtest::LogCapture log;
  Xelma_Print(4, "ZR481_ALGO", "[%s.%-4d] a\nb\n", "f", 12345);
  Xelma_Print(4, "ZR481_ALGO", "[%s.%-4d] x", "f", 3);
  const auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].text, "[f.12345] a\nb\n");
  EXPECT_EQ(lines[1].text, "[f.3   ] x");
}

}  // namespace
