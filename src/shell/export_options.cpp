#include "shell/export_options.h"

#include <filesystem>

#include "shell/gen_sink_open.h"
#include "shell/gen_source_open.h"
#include "shell/user_settings.h"

char const* const TDExportInvalidNameText =
    "The file name is invalid, or its folder cannot be written to. Please choose another name or folder.";

namespace {

bool IsListed(std::string const& ext) {
  for (std::string const& e : LGenSinkGetExtensions(false)) {
    if (e == ext) return true;
  }
  return false;
}

}  // namespace

TDExportOptions TDExportOptionsDefaults(std::string const& folder, std::string const& projectName) {
  TDExportOptions o;
  std::string ext;
  LUserSettingGetString("Settings", "SaveAudioDefaultExtension", ".wav", ext);
  if (!ext.empty() && ext[0] != '.') ext = "." + ext;
  ext = TDLowerExtension("x" + ext);
  o.szExtension = IsListed(ext) ? ext : ".wav";
  o.szPath = (std::filesystem::path(folder) / (projectName.empty() ? "Untitled" : projectName)).string() + o.szExtension;
  o.bRenderMidi = LUserSettingGet("Export", "RenderMIDI", 1) != 0;
  o.bExportTags = LUserSettingGet("Export", "ExportTags", 1) != 0;
  return o;
}

std::string TDExportOptionsChangeType(std::string const& path, std::string const& extension) {
  if (path.empty()) return path;
  std::filesystem::path p(path);
  // Only a known extension is replaced: "take.2" keeps its ".2".
  if (LGenSinkIsSupported(p.extension().string())) p.replace_extension();
  return p.string() + extension;
}

void TDExportOptionsNormalise(TDExportOptions& o) {
  std::string const ext = TDLowerExtension(o.szPath);
  if (IsListed(ext)) {
    o.szExtension = ext;
    return;
  }
  if (!o.szPath.empty()) o.szPath += o.szExtension;
}

void TDExportOptionsStore(TDExportOptions const& o) {
  LUserSettingSetString("Export", "ExportFilePath", o.szPath.c_str());
  std::string const folder = std::filesystem::path(o.szPath).parent_path().string();
  if (!folder.empty()) LUserSettingSetString("Settings", "SaveDir", folder.c_str());
  LUserSettingSet("Export", "RenderMIDI", o.bRenderMidi ? 1 : 0);
  LUserSettingSet("Export", "ExportTags", o.bExportTags ? 1 : 0);
  LUserSettingSetString("Settings", "SaveAudioDefaultExtension", o.szExtension.c_str());
}
