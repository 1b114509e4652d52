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
// $XDG_RUNTIME_DIR, or /tmp when unset: the single-instance socket.
std::string RuntimeFolder();
// $TMPDIR, or /tmp: the default project lives here until it is saved.
std::string TemporaryFolder();
// The user's name for per-user names in shared folders ("uid1000" when unknown).
std::string UserName();

// mkdir -p with the given mode for each created level; true when the folder exists afterwards.
bool MakeFolders(const std::string& path, unsigned mode = 0777);

}  // namespace LAppPaths
