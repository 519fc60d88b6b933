// Two-pass labelling against a flood fill: a pixel opens a provisional label exactly when none of
// the neighbours it examines is foreground, and every component carries its smallest one.
#include <gtest/gtest.h>
#include <stdint.h>

#include <algorithm>
#include <random>
#include <vector>

#include "bivista/morphology.h"
#include "morph_test_util.h"

namespace {

using morphtest::Bytes;

struct Expected {
  std::vector<int> labels;
  int count;
};

Expected Direct(const Bytes& m, int w, int h, uint8_t fg, bool eight) {
  const auto on = [&](int x, int y) {
    return x >= 0 && y >= 0 && x < w && y < h && m[y * w + x] == fg;
  };
  // Creation order: row 0, then column 0, then the other rows left to right.
  std::vector<int> seed(w * h, 0);
  int next = 2;
  const auto visit = [&](int x, int y) {
    if (!on(x, y)) return;
    bool joined;
    if (y == 0) {
      joined = on(x - 1, 0);
    } else if (x == 0) {
      joined = on(0, y - 1);
    } else {
      joined = on(x - 1, y) || on(x, y - 1) ||
               (eight && (on(x - 1, y - 1) || on(x + 1, y - 1)));
    }
    if (!joined) seed[y * w + x] = next++;
  };
  for (int x = 0; x < w; ++x) visit(x, 0);
  for (int y = 1; y < h; ++y) visit(0, y);
  for (int y = 1; y < h; ++y) {
    for (int x = 1; x < w; ++x) visit(x, y);
  }
  // Flood fill; in 8-connectivity the link between (0, y) and (1, y - 1) is never examined.
  std::vector<int> comp(w * h, -1);
  std::vector<int> minSeed;
  for (int start = 0; start < w * h; ++start) {
    if (m[start] != fg || comp[start] >= 0) continue;
    const int id = static_cast<int>(minSeed.size());
    minSeed.push_back(1 << 30);
    std::vector<int> stack{start};
    comp[start] = id;
    while (!stack.empty()) {
      const int p = stack.back();
      stack.pop_back();
      if (seed[p]) minSeed[id] = std::min(minSeed[id], seed[p]);
      const int x = p % w, y = p / w;
      for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
          if ((dx == 0 && dy == 0) || (!eight && dx != 0 && dy != 0)) continue;
          if (!on(x + dx, y + dy)) continue;
          if (eight && dx * dy == -1 && std::min(x, x + dx) == 0) continue;
          const int q = (y + dy) * w + x + dx;
          if (comp[q] < 0) {
            comp[q] = id;
            stack.push_back(q);
          }
        }
      }
    }
  }
  Expected e{std::vector<int>(w * h, 0), next};
  for (int i = 0; i < w * h; ++i) {
    if (comp[i] >= 0) e.labels[i] = minSeed[comp[i]];
  }
  return e;
}

void Check(const Bytes& m, int w, int h, uint8_t fg, bool eight) {
  std::vector<int> labels(w * h, -7), table(w * h + 2, -9);
  int count = -1;
  (eight ? connectTwoPass_8 : connectTwoPass)(m.data(), labels.data(), w, h, &count, table.data(),
                                              fg);
  const Expected e = Direct(m, w, h, fg, eight);
  ASSERT_EQ(count, e.count) << w << "x" << h << (eight ? " 8" : " 4");
  ASSERT_EQ(labels, e.labels) << w << "x" << h << (eight ? " 8" : " 4");
  EXPECT_EQ(table[0], 0);
  EXPECT_EQ(table[1], 1);
}

TEST(ConnectTwoPass, MatchesFloodFillOnRandomMasks) {
  std::mt19937 rng(31);
  for (const auto& s : morphtest::kSizes) {
    for (auto kind : morphtest::kKinds) {
      for (int rep = 0; rep < 3; ++rep) {
        const Bytes m = morphtest::MakeMask(s[0], s[1], kind, rng, 200, 3);
        Check(m, s[0], s[1], 200, false);
        Check(m, s[0], s[1], 200, true);
      }
    }
  }
  const Bytes big = morphtest::MakeMask(97, 61, morphtest::Kind::kDense, rng);
  Check(big, 97, 61, 1, false);
  Check(big, 97, 61, 1, true);
}

TEST(ConnectTwoPass, EdgeCases) {
  std::vector<int> labels(16), table(18);
  int count = 0;
  const Bytes none(16, 0);
  connectTwoPass_8(none.data(), labels.data(), 4, 4, &count, table.data(), 1);
  EXPECT_EQ(count, 2);
  // U shape: the arms get 2 and 3 and meet at the bottom, both end as 2.
  const Bytes u = {1, 0, 1, 1, 0, 1, 1, 1, 1};
  connectTwoPass(u.data(), labels.data(), 3, 3, &count, table.data(), 1);
  EXPECT_EQ(count, 4);
  EXPECT_EQ(std::vector<int>(labels.begin(), labels.begin() + 9),
            (std::vector<int>{2, 0, 2, 2, 0, 2, 2, 2, 2}));
  // The diagonal from column 0 to the upper right is not followed.
  const Bytes diag = {0, 1, 1, 0};
  connectTwoPass_8(diag.data(), labels.data(), 2, 2, &count, table.data(), 1);
  EXPECT_NE(labels[1], labels[2]);
}

}  // namespace
