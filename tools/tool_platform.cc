// The tool stands in for the two platform entries the library calls, so that it decides which
// library messages reach the terminal and can serve the dump properties for one run. Anything
// the tool does not set is asked of the real property store.
#include <dlfcn.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <map>
#include <string>

#include "tools/tool_support.h"

namespace bvtool {
namespace {

LogMode g_logMode = LogMode::kWarnings;
std::map<std::string, std::string>& Properties() {
  static std::map<std::string, std::string> properties;
  return properties;
}

constexpr int kPropertyValueMax = 92;
constexpr int kWarnPriority = 5;

}  // namespace

void SetLogMode(LogMode mode) { g_logMode = mode; }

void SetRunProperty(const std::string& name, const std::string& value) {
  Properties()[name] = value;
}

}  // namespace bvtool

extern "C" {

__attribute__((visibility("default"))) int __android_log_vprint(int prio, const char* tag,
                                                                 const char* fmt, va_list ap) {
  using bvtool::LogMode;
  if (bvtool::g_logMode == LogMode::kQuiet) return 0;
  if (bvtool::g_logMode == LogMode::kWarnings && prio < bvtool::kWarnPriority) return 0;
  char text[1024];
  const int n = vsnprintf(text, sizeof text, fmt ? fmt : "", ap);
  if (n < 0) return n;
  size_t len = strlen(text);
  while (len > 0 && text[len - 1] == '\n') text[--len] = '\0';
  static const char kLetters[] = "??VDIWEFS";
  const char letter = prio >= 0 && prio < 9 ? kLetters[prio] : '?';
  return fprintf(stderr, "  library %c/%s: %s\n", letter, tag ? tag : "", text);
}

__attribute__((visibility("default"))) int __system_property_get(const char* name, char* value) {
  const auto it = bvtool::Properties().find(name ? name : "");
  if (it != bvtool::Properties().end()) {
    snprintf(value, bvtool::kPropertyValueMax, "%s", it->second.c_str());
    return static_cast<int>(strlen(value));
  }
  using Getter = int (*)(const char*, char*);
  static Getter next = reinterpret_cast<Getter>(dlsym(RTLD_NEXT, "__system_property_get"));
  if (next == nullptr) {
    value[0] = '\0';
    return 0;
  }
  return next(name, value);
}

}  // extern "C"
