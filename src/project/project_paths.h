#pragma once
#include <string>

struct TDProjectFileAndDataFolderManager {
  // The data folder that belongs to a project file. A recovery file is written
  // into the data folder of the project it recovers, so its own folder is that
  // data folder; any other project file keeps its audio in "<file>.ProjectData"
  // beside it. False for an empty path.
  static bool GetProjectFolderPathFromProjectFile(const std::string& file, std::string& out);
};
