#include "foundation/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

bool LLogEnabled() {
  static const bool enabled = [] {
    const char* v = std::getenv("TANDREL_LOG");
    return v && *v && std::strcmp(v, "0") != 0;
  }();
  return enabled;
}

void LLog(const char* format, ...) {
  if (!LLogEnabled()) return;
  static std::mutex mtx;
  char line[1024];
  va_list args;
  va_start(args, format);
  std::vsnprintf(line, sizeof line, format, args);
  va_end(args);
  std::lock_guard lock(mtx);
  std::fprintf(stderr, "tandrel: %s\n", line);
  std::fflush(stderr);
}
