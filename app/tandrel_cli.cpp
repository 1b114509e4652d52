// tandrel-cli: Tandrel without windows, for scripts and batch work.
#include <cstdio>
#include <cstring>
#include <string>

namespace {

void PrintHelp(std::FILE* to) {
  std::fputs(
      "Usage: tandrel-cli [--help] [--version]\n"
      "\n"
      "Tandrel's headless companion: it works on projects and audio files\n"
      "without opening a window.\n"
      "\n"
      "Options:\n"
      "  -h, --help     show this help and exit\n"
      "  -V, --version  show the version and exit\n",
      to);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    PrintHelp(stderr);
    return 2;
  }
  std::string a = argv[1];
  if (a == "--help" || a == "-h") {
    PrintHelp(stdout);
    return 0;
  }
  if (a == "--version" || a == "-V") {
    std::printf("tandrel-cli %s\n", TANDREL_VERSION);
    return 0;
  }
  std::fprintf(stderr, "tandrel-cli: unknown option '%s'. Try 'tandrel-cli --help'.\n", argv[1]);
  return 2;
}
