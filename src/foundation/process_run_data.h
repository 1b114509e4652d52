#pragma once
#include <sys/types.h>

#include <atomic>
#include <cstdint>

#include "foundation/signal_object.h"

// What the thread that watches a started external program (an encoder, a decoder)
// shares with the job that started it.
struct ProcessRunData {
  pid_t pid = 0;                      // 0 until the program runs
  std::uint64_t uBytesToChild = 0;    // written to its standard input
  std::uint64_t uBytesFromChild = 0;  // read from its standard output
  LSignalObject soStarted;            // set once the program runs, or has failed to
  LSignalObject soExited;             // set once it has ended
  std::atomic<int> iRunning{1};       // 0 once it has ended
  std::atomic<int> iExitCode{-1};     // its exit status; -1 while it runs or when it was killed

  ProcessRunData() {
    soStarted.Reset();
    soExited.Reset();
  }
};
