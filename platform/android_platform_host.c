/* Host stand-ins for the two Android entries the library uses.
 * Log: one logcat-style line per call on stderr, "P/tag(pid): message".
 * Properties: read from the environment variable named after the property with every character
 * outside [A-Za-z0-9_] turned into '_' ("disptrans.saveEnable" -> disptrans_saveEnable). */
#include "android_platform.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define BV_PLATFORM_API __attribute__((visibility("default")))

static char PriorityLetter(int prio) {
  static const char kLetters[] = "??VDIWEFS";
  return (prio >= 0 && prio < (int)sizeof(kLetters) - 1) ? kLetters[prio] : '?';
}

BV_PLATFORM_API int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
  char message[1024];
  int n = vsnprintf(message, sizeof message, fmt ? fmt : "", ap);
  if (n < 0) return n;
  /* logcat shows one line per entry: the message's own trailing newline is not doubled. */
  size_t len = strlen(message);
  while (len > 0 && message[len - 1] == '\n') message[--len] = '\0';
  return fprintf(stderr, "%c/%s(%5d): %s\n", PriorityLetter(prio), tag ? tag : "", (int)getpid(),
                 message);
}

BV_PLATFORM_API int __system_property_get(const char* name, char* value) {
  char key[128];
  size_t i = 0;
  value[0] = '\0';
  if (name == NULL) return 0;
  for (; name[i] != '\0' && i + 1 < sizeof key; ++i) {
    const char c = name[i];
    const int keep = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    key[i] = keep ? c : '_';
  }
  key[i] = '\0';
  const char* env = getenv(key);
  if (env == NULL) return 0;
  strncpy(value, env, PROP_VALUE_MAX - 1);
  value[PROP_VALUE_MAX - 1] = '\0';
  return (int)strlen(value);
}
