// Test doubles for the two platform entries: log lines are recorded, properties come from a map.
#ifndef BIVISTA_TESTS_SUPPORT_PLATFORM_CAPTURE_H
#define BIVISTA_TESTS_SUPPORT_PLATFORM_CAPTURE_H

#include <string>
#include <vector>

namespace bvtest {

struct LogLine {
  int priority;
  std::string tag;
  std::string text;  // formatted message
};

// Records every log line from construction to destruction (one capture at a time).
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> Lines() const;
  void Clear();
  // Number of lines equal to (priority, tag, text).
  int Count(int priority, const std::string& tag, const std::string& text) const;
  // Number of lines whose text contains the fragment.
  int CountContaining(const std::string& fragment) const;
};

// Properties seen by __system_property_get; cleared by ClearProperties.
void SetProperty(const std::string& name, const std::string& value);
void ClearProperties();

// "[func.line] text" as the library formats it.
std::string Msg(const char* func, int line, const std::string& text);

// Whether a captured text is "[func.line] text" for the given line, or any line when line < 0.
bool IsMsg(const std::string& captured, const char* func, const std::string& text, int line = -1);

// Number of captured lines with this priority and tag that satisfy IsMsg.
int CountMsg(const LogCapture& log, int priority, const std::string& tag, const char* func,
             const std::string& text, int line = -1);

}  // namespace bvtest

#endif
