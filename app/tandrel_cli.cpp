// tandrel-cli: Tandrel without windows, for scripts and batch work.
#include <cstdio>
#include <string>
#include <vector>

#include "shell/cli.h"
#include "shell/console_progress.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  // Jobs show their progress on standard error, as a bar on a terminal and as
  // plain lines in a log; Ctrl-C stops a job the way the dialog's Stop does.
  TDConsoleProgress progress(stderr);
  progress.CatchInterrupt();
  int const code = TDCliMain(args, stdout, stderr, progress);
  progress.Finish();
  return code;
}
