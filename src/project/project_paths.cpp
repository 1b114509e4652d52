#include "project/project_paths.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

namespace {

constexpr const char* kRecoverExtension = ".tdpj-recover";
constexpr const char* kDataFolderSuffix = ".ProjectData";

std::string HomeFromPasswordDatabase()
{
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
    passwd entry{};
    passwd* result = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &result) == 0 && result &&
        result->pw_dir)
        return result->pw_dir;
    return {};
}

}  // namespace

std::string TDGetUserDataFolder(const char* xdgDataHome, const char* home)
{
    // Relative values of XDG_DATA_HOME are to be ignored.
    if (xdgDataHome && xdgDataHome[0] == '/')
        return (std::filesystem::path(xdgDataHome) / "tandrel").string();
    std::string base = home && home[0] ? std::string(home) : HomeFromPasswordDatabase();
    if (base.empty())
        base = "/tmp";
    return (std::filesystem::path(base) / ".local" / "share" / "tandrel").string();
}

std::string TDGetUserDataFolder()
{
    return TDGetUserDataFolder(std::getenv("XDG_DATA_HOME"), std::getenv("HOME"));
}

bool TDProjectFileAndDataFolderManager::GetProjectFolderPathFromProjectFile(const std::string& file,
                                                                            std::string& out)
{
    if (file.empty())
        return false;
    const std::filesystem::path path(file);
    if (path.extension() == kRecoverExtension) {
        const std::filesystem::path folder = path.parent_path();
        out = folder.empty() ? std::string(".") : folder.string();
    } else {
        out = file + kDataFolderSuffix;
    }
    return true;
}
