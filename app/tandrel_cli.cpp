// tandrel-cli: Tandrel without windows, for scripts and batch work.
#include <cstdio>
#include <string>
#include <vector>

#include "foundation/process_interface.h"
#include "shell/cli.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  LProcessInterfaceVoid progress;
  return TDCliMain(args, stdout, stderr, progress);
}
