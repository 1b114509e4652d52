#pragma once
#include <string>

// The folders Tandrel keeps things in, after the XDG base directory rules.
// Each reads its environment variable every time, so a test can point a
// whole run at a scratch folder by setting HOME or the XDG variables.
namespace LAppPaths {

// $HOME, else the password database's home folder, else /tmp.
std::string HomeFolder();

// $XDG_CONFIG_HOME/tandrel (default ~/.config/tandrel): the preference file.
std::string UserConfigFolder();
// $XDG_DATA_HOME/tandrel (default ~/.local/share/tandrel): recordings, kits, libraries.
std::string UserDataFolder();
// The read-only data the program ships (metronome sounds, demo clips, kits):
// share/tandrel beside the folder of the running program, which is the install
// prefix's for an installed program (prefix/bin and prefix/share) and the build
// tree's for one run where it was built. Empty when it cannot be told.
std::string SharedDataFolder();
// $XDG_RUNTIME_DIR, or /tmp when unset: the single-instance socket.
std::string RuntimeFolder();
// $TMPDIR, or /tmp: the default project lives here until it is saved.
std::string TemporaryFolder();
// The user's name for per-user names in shared folders ("uid1000" when unknown).
std::string UserName();

// mkdir -p with the given mode for each created level; true when the folder exists afterwards.
bool MakeFolders(const std::string& path, unsigned mode = 0777);

}  // namespace LAppPaths
