// Two-pass labelling against a direct model: a pixel opens a provisional label exactly when none of
// the neighbours it examines is foreground, and every component carries its smallest one.
#include <gtest/gtest.h>

#include <algorithm>

#include "bivista/morphology.h"
#include "morph_test_util.h"

namespace {

using namespace morphtest;

void Check(const Bytes& m, int w, int h, uint8_t fg, bool eight) {
  const auto on = [&](int x, int y) { return x >= 0 && y >= 0 && x < w && y < h && m[y * w + x] == fg; };
  // Creation order: row 0, then column 0, then the other rows left to right.
  std::vector<int> want(w * h, 0);
  int next = 2;
  const auto visit = [&](int x, int y) {
    const bool joined = y == 0   ? on(x - 1, 0)
                        : x == 0 ? on(0, y - 1)
                                 : on(x - 1, y) || on(x, y - 1) ||
                                       (eight && (on(x - 1, y - 1) || on(x + 1, y - 1)));
    if (on(x, y)) want[y * w + x] = joined ? 1 << 30 : next++;
  };
  for (int x = 0; x < w; ++x) visit(x, 0);
  for (int y = 1; y < h; ++y) visit(0, y);
  for (int i = w; i < w * h; ++i) {
    if (i % w) visit(i % w, i / w);
  }
  // Smallest label across each component; in 8-connectivity the link between (0, y) and
  // (1, y - 1) is never examined.
  for (bool changed = true; changed;) {
    changed = false;
    for (int i = 0; i < w * h; ++i) {
      const int x = i % w, y = i / w;
      for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
          if (!on(x, y) || !on(x + dx, y + dy) || (!eight && dx && dy)) continue;
          if (dx * dy == -1 && std::min(x, x + dx) == 0) continue;
          int& a = want[i];
          if (want[i + dy * w + dx] < a) a = want[i + dy * w + dx], changed = true;
        }
      }
    }
  }
  std::vector<int> labels(w * h, -7), table(w * h + 2, -9);
  int count = -1;
  (eight ? connectTwoPass_8 : connectTwoPass)(m.data(), labels.data(), w, h, &count, table.data(), fg);
  ASSERT_EQ(count, next) << w << "x" << h << (eight ? " 8" : " 4");
  ASSERT_EQ(labels, want) << w << "x" << h << (eight ? " 8" : " 4");
  EXPECT_EQ(table[0], 0);
  EXPECT_EQ(table[1], 1);
}

TEST(ConnectTwoPass, MatchesDirectModelOnRandomMasks) {
  std::mt19937 rng(31);
  for (const auto& s : kSizes) {
    for (auto kind : kKinds) {
      for (int rep = 0; rep < 3; ++rep) {
        const Bytes m = MakeMask(s[0], s[1], kind, rng, 200, 3);
        Check(m, s[0], s[1], 200, false);
        Check(m, s[0], s[1], 200, true);
      }
    }
  }
  const Bytes big = MakeMask(97, 61, Kind::kDense, rng);
  Check(big, 97, 61, 1, false);
  Check(big, 97, 61, 1, true);
  // The diagonal from column 0 to the upper right is not followed.
  std::vector<int> labels(4), table(6);
  int count = 0;
  const Bytes diag = {0, 1, 1, 0};
  connectTwoPass_8(diag.data(), labels.data(), 2, 2, &count, table.data(), 1);
  EXPECT_NE(labels[1], labels[2]);
}

}  // namespace
