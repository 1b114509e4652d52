#include "shell/app_entry.h"

#include <clocale>
#include <pthread.h>
#include <sys/resource.h>

bool LUnixAppInitCommon(int argc, char** argv) {
  if (argc < 1 || !argv) return false;
  pthread_setname_np(pthread_self(), "MAIN");
  std::setlocale(LC_ALL, "");
  std::setlocale(LC_NUMERIC, "C");
  rlimit lim{};
  if (getrlimit(RLIMIT_NOFILE, &lim) == 0 && lim.rlim_cur < lim.rlim_max) {
    lim.rlim_cur = lim.rlim_max;
    setrlimit(RLIMIT_NOFILE, &lim);
  }
  return true;
}
