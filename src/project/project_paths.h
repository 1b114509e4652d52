#pragma once
#include <string>

// The per-user folder the program writes its own files to (recordings among
// them): $XDG_DATA_HOME/tandrel, or ~/.local/share/tandrel when XDG_DATA_HOME is
// unset, empty or relative. Without a trailing slash.
std::string TDGetUserDataFolder();
// The same rule over given values, so that it can be checked without touching the
// environment. Either may be null.
std::string TDGetUserDataFolder(const char* xdgDataHome, const char* home);

struct TDProjectFileAndDataFolderManager {
    // The data folder that belongs to a project file. A recovery file is written
    // into the data folder of the project it recovers, so its own folder is that
    // data folder; any other project file keeps its audio in "<file>.ProjectData"
    // beside it. False for an empty path.
    static bool GetProjectFolderPathFromProjectFile(const std::string& file, std::string& out);
};
