#include "support/platform_capture.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <mutex>

#include "android_platform.h"

namespace bvtest {
namespace {

std::mutex g_mutex;
bool g_capturing = false;
std::vector<LogLine> g_lines;
std::map<std::string, std::string> g_properties;

}  // namespace

LogCapture::LogCapture() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_capturing = true;
  g_lines.clear();
}

LogCapture::~LogCapture() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_capturing = false;
  g_lines.clear();
}

std::vector<LogLine> LogCapture::Lines() const {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_lines;
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.clear();
}

int LogCapture::Count(int priority, const std::string& tag, const std::string& text) const {
  int n = 0;
  for (const LogLine& l : Lines()) n += (l.priority == priority && l.tag == tag && l.text == text);
  return n;
}

int LogCapture::CountContaining(const std::string& fragment) const {
  int n = 0;
  for (const LogLine& l : Lines()) n += l.text.find(fragment) != std::string::npos;
  return n;
}

void SetProperty(const std::string& name, const std::string& value) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_properties[name] = value;
}

void ClearProperties() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_properties.clear();
}

std::string Msg(const char* func, int line, const std::string& text) {
  char head[160];
  snprintf(head, sizeof head, "[%s.%-4d] ", func, line);
  return head + text;
}

bool IsMsg(const std::string& captured, const char* func, const std::string& text, int line) {
  if (line >= 0) return captured == Msg(func, line, text);
  const std::string head = std::string("[") + func + ".";
  if (captured.compare(0, head.size(), head) != 0) return false;
  const size_t close = captured.find("] ", head.size());
  if (close == std::string::npos || close < head.size() + 4) return false;
  for (size_t i = head.size(); i < close; ++i) {
    const char c = captured[i];
    if (!((c >= '0' && c <= '9') || (c == ' ' && i > head.size()))) return false;
  }
  return captured.compare(close + 2, std::string::npos, text) == 0;
}

int CountMsg(const LogCapture& log, int priority, const std::string& tag, const char* func,
             const std::string& text, int line) {
  int n = 0;
  for (const LogLine& l : log.Lines()) {
    n += l.priority == priority && l.tag == tag && IsMsg(l.text, func, text, line);
  }
  return n;
}

}  // namespace bvtest

extern "C" int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
  char buffer[4096];
  const int n = vsnprintf(buffer, sizeof buffer, fmt, ap);
  if (getenv("BIVISTA_TEST_LOG") != nullptr) fprintf(stderr, "%d/%s: %s\n", prio, tag, buffer);
  std::lock_guard<std::mutex> lock(bvtest::g_mutex);
  if (bvtest::g_capturing) bvtest::g_lines.push_back({prio, tag ? tag : "", buffer});
  return n;
}

extern "C" int __system_property_get(const char* name, char* value) {
  std::lock_guard<std::mutex> lock(bvtest::g_mutex);
  value[0] = '\0';
  auto it = bvtest::g_properties.find(name ? name : "");
  if (it == bvtest::g_properties.end()) return 0;
  snprintf(value, PROP_VALUE_MAX, "%s", it->second.c_str());
  return static_cast<int>(strlen(value));
}
