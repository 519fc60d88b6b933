// Two-pass connected-component labelling with a caller-provided equivalence table. Labels are
// left as the root of each class (not renumbered); 0 is background, real labels start at 2.
#include <stddef.h>

#include "bivista/morphology.h"

namespace bivista {
namespace {

inline int NewLabel(int* table, int* next) {
  const int n = (*next)++;
  table[n] = n;
  return n;
}

inline int Root(const int* table, int label) {
  while (table[label] != label) label = table[label];
  return label;
}

// Labels row 0 from the left, then column 0 from above (column 0 never looks at the upper-right
// diagonal, in either connectivity). Marking and labelling are one pass: no rule ever reads a
// pixel that is marked but not yet labelled.
int FirstPassEdges(const unsigned char* src, int* labels, int width, int height, int* table,
                   unsigned char value) {
  table[0] = 0;
  table[1] = 1;
  int next = 2;
  labels[0] = src[0] == value ? NewLabel(table, &next) : 0;
  for (int x = 1; x < width; ++x) {
    if (src[x] != value) {
      labels[x] = 0;
    } else {
      labels[x] = labels[x - 1] != 0 ? labels[x - 1] : NewLabel(table, &next);
    }
  }
  for (int y = 1; y < height; ++y) {
    const size_t at = static_cast<size_t>(y) * width;
    if (src[at] != value) {
      labels[at] = 0;
    } else {
      labels[at] = labels[at - width] != 0 ? labels[at - width] : NewLabel(table, &next);
    }
  }
  return next;
}

void Resolve(int* labels, int width, int height, int* labelCount, int* table, int next) {
  for (int l = 2; l < next; ++l) table[l] = Root(table, l);
  const size_t count = static_cast<size_t>(width) * static_cast<size_t>(height);
  for (size_t i = 0; i < count; ++i) labels[i] = table[labels[i]];
  *labelCount = next;
}

// Merge of two classes meeting at a 4-connected pixel; every pointer goes to a smaller label.
inline void Merge4(int* table, int m, int big) {
  int a;
  const int r = table[m];
  if (r > m) {
    table[r] = m;
    table[m] = m;
    a = m;
  } else {
    a = r;
  }
  const int s = table[big];
  if (a < s) {
    table[s] = a;
    table[big] = a;
  } else if (a > s) {
    table[a] = s;
  }
}

bool EmptyImage(int width, int height, int* labelCount, int* table) {
  if (width > 0 && height > 0) return false;
  table[0] = 0;
  table[1] = 1;
  *labelCount = 2;
  return true;
}

// 4-connectivity: left and above.
int Label4(const int* row, const int* up, int x, int /*width*/, int* table, int* next) {
  const int l = row[x - 1];
  const int u = up[x];
  if (l <= 1) return u < 2 ? NewLabel(table, next) : u;
  if (u <= 1) return l;
  const int m = l < u ? l : u;
  Merge4(table, m, l < u ? u : l);
  return m;
}

// 8-connectivity: left, above, above-left and above-right.
int Label8(const int* row, const int* up, int x, int width, int* table, int* next) {
  // Shortcuts where every labelled neighbour is already in one class (each of them looked at
  // the others when it was labelled), so taking any one of them ends in the same root.
  const int u = up[x];
  const int ur = x + 1 < width ? up[x + 1] : 0;
  if (x >= 2 && u >= 2) return u;
  if (u < 2 && ur < 2) {
    if (row[x - 1] >= 2) return row[x - 1];
    if (up[x - 1] >= 2) return up[x - 1];
  }
  int found[4];
  int c = 0;
  if (row[x - 1] >= 2) found[c++] = row[x - 1];
  if (u >= 2) found[c++] = u;
  if (up[x - 1] >= 2) found[c++] = up[x - 1];
  if (ur >= 2) found[c++] = ur;
  if (c == 0) return NewLabel(table, next);
  if (c == 1) return found[0];
  int m = Root(table, found[0]);
  found[0] = m;
  for (int i = 1; i < c; ++i) {
    found[i] = Root(table, found[i]);
    if (found[i] < m) m = found[i];
  }
  for (int i = 0; i < c; ++i) table[found[i]] = m;
  return m;
}

template <class Rule>
void TwoPass(const unsigned char* src, int* labels, int width, int height, int* labelCount,
             int* table, unsigned char value, Rule rule) {
  if (EmptyImage(width, height, labelCount, table)) return;
  int next = FirstPassEdges(src, labels, width, height, table, value);
  for (int y = 1; y < height; ++y) {
    int* row = labels + static_cast<size_t>(y) * width;
    const unsigned char* s = src + static_cast<size_t>(y) * width;
    const int* up = row - width;
    for (int x = 1; x < width; ++x) {
      row[x] = s[x] == value ? rule(row, up, x, width, table, &next) : 0;
    }
  }
  Resolve(labels, width, height, labelCount, table, next);
}

}  // namespace
}  // namespace bivista

using namespace bivista;

void connectTwoPass(const unsigned char* src, int* labels, int width, int height,
                    int* labelCount, int* table, unsigned char value) {
  TwoPass(src, labels, width, height, labelCount, table, value, Label4);
}

void connectTwoPass_8(const unsigned char* src, int* labels, int width, int height,
                      int* labelCount, int* table, unsigned char value) {
  TwoPass(src, labels, width, height, labelCount, table, value, Label8);
}
