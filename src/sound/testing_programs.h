#pragma once
// Stand-ins for encoder and decoder programs, for tests only: a folder of shell
// scripts put alone on PATH while the object lives.
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <string>

class LTestFakePrograms {
 public:
  // `folder` must exist. With `keepRealPath` the scripts come first and the real
  // programs stay reachable behind them.
  explicit LTestFakePrograms(std::string folder, bool keepRealPath = false) : szFolder(std::move(folder)) {
    char const* old = std::getenv("PATH");
    bHadPath = old != nullptr;
    if (old) szOldPath = old;
    std::string const path = keepRealPath && bHadPath ? szFolder + ":" + szOldPath : szFolder;
    ::setenv("PATH", path.c_str(), 1);
  }
  ~LTestFakePrograms() {
    if (bHadPath) {
      ::setenv("PATH", szOldPath.c_str(), 1);
    } else {
      ::unsetenv("PATH");
    }
  }
  LTestFakePrograms(LTestFakePrograms const&) = delete;
  LTestFakePrograms& operator=(LTestFakePrograms const&) = delete;

  // A program `name` that runs `body` under /bin/sh, with the system's tools at hand.
  void Add(std::string const& name, std::string const& body) const {
    std::string const path = szFolder + "/" + name;
    std::ofstream(path) << "#!/bin/sh\nPATH=/usr/bin:/bin\n" << body << "\n";
    ::chmod(path.c_str(), 0755);
  }

  // What PATH was before, for a script that wants to run the real program.
  std::string const& RealPath() const { return szOldPath; }

 private:
  std::string szFolder;
  std::string szOldPath;
  bool bHadPath = false;
};
