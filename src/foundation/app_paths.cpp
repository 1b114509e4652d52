#include "foundation/app_paths.h"

#include <cerrno>
#include <cstdlib>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace LAppPaths {
namespace {

std::string Env(const char* name) {
  const char* v = std::getenv(name);
  return (v && *v) ? std::string(v) : std::string();
}

std::string XdgFolder(const char* var, const char* fallbackBelowHome) {
  std::string base = Env(var);
  // Relative values are invalid by the XDG rules and must be ignored.
  if (base.empty() || base[0] != '/') base = HomeFolder() + "/" + fallbackBelowHome;
  return base + "/tandrel";
}

}  // namespace

std::string HomeFolder() {
  std::string home = Env("HOME");
  if (!home.empty()) return home;
  if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir) return pw->pw_dir;
  return "/tmp";
}

std::string UserConfigFolder() { return XdgFolder("XDG_CONFIG_HOME", ".config"); }
std::string UserDataFolder() { return XdgFolder("XDG_DATA_HOME", ".local/share"); }

std::string SharedDataFolder() {
  char exe[4096];
  ssize_t const n = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
  if (n <= 0) return {};
  std::string path(exe, static_cast<std::size_t>(n));
  std::size_t const slash = path.find_last_of('/');
  if (slash == std::string::npos) return {};
  path.erase(slash);  // the program's folder
  return path + "/../share/tandrel";
}

std::string RuntimeFolder() {
  std::string dir = Env("XDG_RUNTIME_DIR");
  return (dir.empty() || dir[0] != '/') ? std::string("/tmp") : dir;
}

std::string TemporaryFolder() {
  std::string dir = Env("TMPDIR");
  return (dir.empty() || dir[0] != '/') ? std::string("/tmp") : dir;
}

std::string UserName() {
  if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_name && *pw->pw_name) return pw->pw_name;
  return "uid" + std::to_string(getuid());
}

bool MakeFolders(const std::string& path, unsigned mode) {
  if (path.empty()) return false;
  struct stat st{};
  if (stat(path.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
  for (std::size_t i = 1; i <= path.size(); ++i) {
    if (i != path.size() && path[i] != '/') continue;
    std::string part = path.substr(0, i);
    if (mkdir(part.c_str(), mode) != 0 && errno != EEXIST) return false;
  }
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace LAppPaths
