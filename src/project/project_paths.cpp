#include "project/project_paths.h"

#include <filesystem>

namespace {

constexpr const char* kRecoverExtension = ".tdpj-recover";
constexpr const char* kDataFolderSuffix = ".ProjectData";

}  // namespace

bool TDProjectFileAndDataFolderManager::GetProjectFolderPathFromProjectFile(const std::string& file, std::string& out) {
  if (file.empty()) return false;
  const std::filesystem::path path(file);
  if (path.extension() == kRecoverExtension) {
    const std::filesystem::path folder = path.parent_path();
    out = folder.empty() ? std::string(".") : folder.string();
  } else {
    out = file + kDataFolderSuffix;
  }
  return true;
}
