// Files in and out through the window: exporting the project's mix to a file the
// user names in the export form (the format, its settings and how much of the
// project; the job runs under a progress window), and files dropped onto the
// window.
#include <algorithm>
#include <filesystem>

#include "shell/export.h"
#include "shell/gen_sink_open.h"
#include "shell/gen_source_open.h"
#include "shell/main_dialog.h"

void MainDialog::CmProjectExport() {
  if (Engine.IsRecording()) return;
  if (Project.Clips.IsEmpty()) {
    View.Alert("Your project does not contains any clips, please load some clips and try again.", "");
    return;
  }
  std::string const name = Project.szFilePath.empty() || Project.szFilePath == DefaultProjectPath()
                               ? std::string("Default Project")
                               : std::filesystem::path(Project.szFilePath).stem().string();
  TDExportOptions options = TDExportOptionsDefaults(ProjectsFolder(), name);
  options.bHasSelection = !Project.WorkRegion.IsEmpty();
  if (!View.AskExportOptions(options, [this](TDExportOptions& o) { return ExportOptionsOk(o); })) return;

  // A missing encoder is said with the package that brings it, before any mixing.
  struct Said : LProcessInterfaceVoid {
    std::string text;
    void SetError(char const* t) override { text = t != nullptr ? t : ""; }
  } said;
  if (!LGenSinkIsSupported(options.szExtension, said)) {
    View.InfoBar("Could not find a component to export project to a file.");
    if (!said.text.empty()) View.Alert(said.text, "");
    return;
  }
  ExportProjectTo(options.szPath, options.bSelectionOnly && options.bHasSelection);
}

std::optional<std::string> MainDialog::ExportOptionsOk(TDExportOptions& options) {
  TDExportOptionsNormalise(options);
  std::filesystem::path const target(options.szPath);
  std::error_code ec;
  if (options.szPath.empty() || target.filename().empty() || target.stem().empty() ||
      std::filesystem::is_directory(target, ec)) {
    return std::string(TDExportInvalidNameText);
  }
  if (std::filesystem::exists(target, ec)) {
    int const answer = View.Ask(
        "The file path you are exporting to already exists. Would you like to overwrite the existing file?",
        "File Already Exists", {"Overwrite", "Cancel"});
    if (answer != 0) return std::string();
  }
  if (!LProbeTargetFolder(options.szPath)) return std::string(TDExportInvalidNameText);
  TDExportOptionsStore(options);
  return std::nullopt;
}

bool MainDialog::ExportProjectTo(const std::string& path, bool selectionOnly) {
  Engine.Stop();
  std::string const writing = TDExportWritingPath(path);
  TDExportProjectNormal job;
  job.pProject = &Project;
  job.szPath = writing;
  job.bSelectionOnly = selectionOnly;
  bool said = false;
  LProcessResult result = View.RunModalJob("Exporting audio", [&](LProcessInterface& pi) {
    struct Face : LProcessInterfaceNested {
      using LProcessInterfaceNested::LProcessInterfaceNested;
      bool* said = nullptr;
      std::string const* writing = nullptr;
      std::string const* target = nullptr;
      void SetError(char const* text) override {
        if (text == nullptr || *text == '\0') return LProcessInterfaceNested::SetError(text);
        *said = true;
        LProcessInterfaceNested::SetError(TDExportNameForUser(text, *writing, *target).c_str());
      }
    } face(pi);
    face.said = &said;
    face.writing = &writing;
    face.target = &path;
    return Process(face, job);
  });
  // No half-made file stays behind to be mistaken for an export.
  bool const made = TDExportSettle(writing, path, result == LProcessFinished);
  if (made) return true;
  if (result == LProcessFinished) result = LProcessFailed;
  if (result == LProcessFailed && !said) View.Alert(TDExportFailedText(path), "");
  return false;
}

void MainDialog::EvDropFiles(const std::vector<std::string>& paths) {
  if (paths.empty()) return;
  if (Engine.IsRecording()) {
    View.Alert("Tandrel can't open clips when it is recording. Please stop recording, then try loading clips.", "");
    return;
  }
  // A project dropped opens in place of this one; files become clips, each
  // after the one before on the current track.
  for (std::string const& path : paths) {
    if (std::filesystem::path(path).extension() == ".tdpj") {
      ProjectLoad(path);
      return;
    }
  }
  for (std::string const& path : paths) {
    if (!AddClip(path)) break;
    LSoundTime end = iCursor;
    for (auto const& c : Project.Clips.GetClips()) {
      if (c->iTrackIndex == Project.Tracks.GetCurrentTrackIndex()) end = std::max(end, c->GetEndTime());
    }
    SetCursorPosition(end);
  }
}
