// Files in and out through the window: exporting the project's mix to a file the
// user names (its extension picks the format, the job runs under a progress
// window), and files dropped onto the window.
#include <algorithm>
#include <filesystem>

#include "shell/export.h"
#include "shell/gen_sink_open.h"
#include "shell/main_dialog.h"

namespace {

// "WAV files (*.wav);;MP3 files (*.mp3);;..." for every format this machine can write.
std::string ExportFilter() {
  std::string filter;
  for (std::string const& ext : LGenSinkGetExtensions(false)) {
    std::string upper = ext.substr(1);
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (!filter.empty()) filter += ";;";
    filter += upper + " files (*" + ext + ")";
  }
  return filter;
}

}  // namespace

void MainDialog::CmProjectExport() {
  if (Engine.IsRecording()) return;
  std::string name = Project.szFilePath.empty() || Project.szFilePath == DefaultProjectPath()
                         ? std::string("Default Project")
                         : std::filesystem::path(Project.szFilePath).stem().string();
  std::string const path = View.AskSaveFile("Export Project", ExportFilter(), ProjectsFolder(), name + ".wav");
  if (path.empty()) return;
  ExportProjectTo(path);
}

bool MainDialog::ExportProjectTo(const std::string& path) {
  Engine.Stop();
  TDExportProjectNormal job;
  job.pProject = &Project;
  job.szPath = path;
  bool said = false;
  LProcessResult const result = View.RunModalJob("Exporting audio", [&](LProcessInterface& pi) {
    struct Face : LProcessInterfaceNested {
      using LProcessInterfaceNested::LProcessInterfaceNested;
      bool* said = nullptr;
      void SetError(char const* text) override {
        if (text != nullptr && *text != '\0') *said = true;
        LProcessInterfaceNested::SetError(text);
      }
    } face(pi);
    face.said = &said;
    return Process(face, job);
  });
  if (result == LProcessFinished) return true;
  // No half-made file stays behind to be mistaken for an export.
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
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
