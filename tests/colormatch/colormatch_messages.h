// The subsystem's log lines, one row each: tests name a row instead of restating its text.
#ifndef BIVISTA_TESTS_COLORMATCH_COLORMATCH_MESSAGES_H
#define BIVISTA_TESTS_COLORMATCH_COLORMATCH_MESSAGES_H

#include <stdarg.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "support/platform_capture.h"

namespace cmtest {

struct Message {
  const char* func;
  int level;
  int line;
  const char* format;  // after "[%s.%-4d] "
};

constexpr Message kEntering{"imageColorToneMatching", 3, 865, "Entering."};
constexpr Message kNullTone{"imageColorToneMatching", 6, 868,
                            "input data pointer is NULL in preprocess!!"};
constexpr Message kWhs{"imageColorToneMatching", 3, 871, "preprocess image with WHS=%d,%d,%d channel %d"};
constexpr Message kAllocOne{"imageColorToneMatching", 6, 878,
                            "malloced memory for imageColorToneMatching failed!"};
constexpr Message kAllocThree{"imageColorToneMatching", 6, 896,
                              "malloced memory for imageColorToneMatching failed!"};
constexpr Message kColorChannels{"imageColorToneMatching", 5, 927,
                                 "do not support color channel number %d"};
constexpr Message kLeaving{"imageColorToneMatching", 3, 940, "Leaving ."};
constexpr Message kInitChannel{"initialAnalyseColor", 5, 427, "do not support channel %d"};
constexpr Message kHistChannel{"calculateHistogramofImage", 5, 529, "do not support channel %d\n"};
constexpr Message kCumChannel{"calculateCumHistogram", 6, 561, "%s unsupport chanel %d"};
constexpr Message kDepopulated{"findDepopulatedPosition", 3, 675,
                               "find depopulate position SE=%d,%d\n"};
constexpr Message kPairChannel{"analyzeInputImagePair", 5, 773, "do not support channel number %d\n"};
constexpr Message kProcessChannel{"processCorImage", 6, 851, "%s unsupport channel %d"};
constexpr Message kNv12Null{"colorImageNV12Adjusting", 5, 952, "input parameters may be NULL!!"};
constexpr Message kNv12Alloc{"colorImageNV12Adjusting", 5, 959,
                             "malloced memory in colorImageNV12Adjusting failed!!"};
constexpr Message kInvAlloc{"invMtx", 6, 125, "malloced memory for invMtx failed!!"};
constexpr Message kVerbose4{"yeqCalib", 4, 253, "%f, %f, %f, %f\n"};
constexpr Message kVerbose3{"yeqCalib", 4, 286, "%f, %f, %f\n"};

// A captured line, "level [func.line] text", of a message with its arguments.
inline std::string Line(Message m, ...) {
  char body[512], full[600];
  va_list ap;
  va_start(ap, m);
  vsnprintf(body, sizeof body, m.format, ap);
  va_end(ap);
  snprintf(full, sizeof full, "%d [%s.%-4d] %s", m.level, m.func, m.line, body);
  return full;
}

inline std::vector<std::string> Captured(const bvtest::LogCapture& log) {
  std::vector<std::string> out;
  for (const auto& l : log.Lines())
    if (l.tag == "ZR481_ALGO") out.push_back(std::to_string(l.priority) + " " + l.text);
  return out;
}

}  // namespace cmtest

#endif
