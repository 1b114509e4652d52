// The project as a document: open, save, save as, close and crash recovery.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "foundation/app_paths.h"
#include "foundation/file.h"
#include "project/audio_cut_tank.h"
#include "project/clip_audio.h"
#include "project/cut_list_files.h"
#include "project/project_file.h"
#include "shell/main_dialog.h"
#include "shell/user_settings.h"

namespace {

bool IsFolder(std::string const& path) {
  struct stat st {};
  return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string FolderOf(std::string const& path) {
  std::size_t const slash = path.find_last_of('/');
  return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

std::string StemOf(std::string const& path) {
  std::size_t const slash = path.find_last_of('/');
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  std::size_t const dot = name.find_last_of('.');
  if (dot != std::string::npos && dot > 0) name.erase(dot);
  return name;
}

constexpr char kProjectFilter[] = "Tandrel Project (*.tdpj)";

bool EndsWithRecovery(std::string const& path) {
  std::string const tail = ".tdpj-recover";
  return path.size() >= tail.size() && path.compare(path.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

void MainDialog::UpdateCaption() {
  bool const isDefault = Project.szFilePath.empty() || Project.szFilePath == DefaultProjectPath();
  std::string const name = isDefault ? std::string("Default Project") : StemOf(Project.szFilePath);
  View.SetCaption(name + (bDirty && !isDefault ? "*" : "") + " - Tandrel");
}

std::string MainDialog::ProjectsFolder() const {
  std::string folder;
  LUserSettingGetString("Settings", "SaveDir", "", folder);
  if (IsFolder(folder)) return folder;
  folder = LAppPaths::HomeFolder() + "/Documents/Tandrel Projects";
  LAppPaths::MakeFolders(folder, 0777);
  return folder;
}

std::string MainDialog::GetRecoveryFilePath() const {
  std::string const folder =
      Project.szDataFolderPath.empty() ? TDProjectDataFolderOf(Project.szFilePath) : Project.szDataFolderPath;
  return folder + "/" + TDRecoveryFileName;
}

std::vector<std::string> MainDialog::GetRecentProjects() const {
  std::vector<std::string> out;
  for (int i = 0; i < kRecentProjects; ++i) {
    std::string path;
    LUserSettingGetString("RecentProjects", ("Project" + std::to_string(i)).c_str(), "", path);
    if (!path.empty() && LFile::Exists(path)) out.push_back(path);
  }
  return out;
}

void MainDialog::AddRecentProject(const std::string& path) {
  std::vector<std::string> list = GetRecentProjects();
  list.erase(std::remove(list.begin(), list.end(), path), list.end());
  list.insert(list.begin(), path);
  for (int i = 0; i < kRecentProjects; ++i) {
    std::string const value = i < static_cast<int>(list.size()) ? list[static_cast<std::size_t>(i)] : std::string();
    LUserSettingSetString("RecentProjects", ("Project" + std::to_string(i)).c_str(), value.c_str());
  }
}

// ---------------------------------------------------------------------------
// Crash recovery

void MainDialog::AutoProjectSaveForCrash() {
  // A project never saved has no file to recover into: nothing to do.
  if (Project.szFilePath.empty() || !LFile::Exists(Project.szFilePath) || Project.szFilePath == DefaultProjectPath()) {
    return;
  }
  TDSaveProject job{&Project, GetRecoveryFilePath(), {}};
  LProcessInterfaceVoid quiet;
  Process(quiet, job);
}

void MainDialog::DeleteProjectFileForCrash() { ::unlink(GetRecoveryFilePath().c_str()); }

bool MainDialog::RecoverCrashedProject() {
  std::string last;
  LUserSettingGetString("Settings", "szLastProjectFilePath", "", last);
  if (last.empty()) return false;
  std::string const recovery = TDProjectDataFolderOf(last) + "/" + TDRecoveryFileName;
  if (!LFile::Exists(recovery)) return false;
  int const answer =
      View.Ask("The project :\n " + last + " \n was not saved properly, do you want Tandrel to recover it?",
               "Recover Project", {"Recover", "No"});
  if (answer != 0) return false;
  Project.Close();
  TDLoadProject job;
  job.pProject = &Project;
  job.szPath = recovery;
  LProcessInterfaceVoid quiet;
  if (Process(quiet, job) != LProcessFinished) {
    Project.Close();
    return false;
  }
  Project.szFilePath = last;
  Project.ResetEnd();
  Project.Clips.ValidateFadePoints();
  HistoryAddState("Open Project");
  View.UIProjectStateApply();
  View.UIClipsApply();
  // Recovered edits are not saved yet; and every file the recovery names must
  // outlive whatever the user does next.
  SetProjectDirty();
  LAudioCutTank::Instance().PreserveEntireCache();
  UpdateCaption();
  Loop.SetTimer(TIMER_RECOVERY_SAVE, kRecoverySaveMs);
  return true;
}

// ---------------------------------------------------------------------------
// Closing

bool MainDialog::ProjectClosePrompt() {
  Engine.Stop();
  if (Engine.IsRecording()) Engine.StopRecord();
  if (bDirty) {
    int const answer = View.Ask("The current project has been changed. Do you want to save the changes?",
                                "Tandrel Multitrack Recorder", {"Save", "Cancel", "Do Not Save"});
    if (answer == 0) {
      if (!CmProjectSave()) {
        AutoProjectSaveForCrash();
        return false;
      }
      DeleteProjectFileForCrash();
    } else if (answer == 2) {
      DeleteProjectFileForCrash();
      Project.Clips.PreserveAudioCuts();
    } else {
      Project.Clips.PreserveAudioCuts();
      return false;
    }
  }
  Project.Clips.PreserveAudioCuts();
  DeleteProjectFileForCrash();
  Project.Close();
  return true;
}

void MainDialog::CmProjectClose() {
  View.HideTip();
  if (Engine.IsPlaying()) Engine.Stop();
  if (!ProjectClosePrompt()) return;
  ProjectDefault();
  View.UIClipsApply();
}

// ---------------------------------------------------------------------------
// Opening

void MainDialog::HandleCorruptedProject(const std::string& dataFolder) {
  View.Alert("Tandrel can't open the project data folder (" + dataFolder + "). Has this folder been deleted or moved?",
             "Project data folder can't be found");
}

void MainDialog::ProjectCheckIntegrity() {
  // Summaries are rebuilt from the audio, which needs its channel count: the
  // clips that name a file know it.
  std::set<std::pair<LAudioCutRef, int>> missing;
  for (auto const& c : Project.Clips.GetClips()) {
    auto const* audio = dynamic_cast<TDClipAudio const*>(c.get());
    if (audio == nullptr) continue;
    audio->GetCutListAudio().ForEachSegment([&](LCutListSegment const& s) {
      if (s.IsSilence()) return;
      LAudioCutTank const& tank = LAudioCutTank::Instance();
      if (LFile::Exists(tank.GetFilePath(s.GetCut(), ".aud")) && !LFile::Exists(tank.GetFilePath(s.GetCut(), ".grf"))) {
        missing.insert({s.GetCut(), audio->GetChansRequired()});
      }
    });
  }
  if (missing.empty()) return;
  View.RunModalJob("Restoring damaged clips", [&](LProcessInterface& pi) {
    for (auto const& [cut, channels] : missing) {
      LCLACreateGrfFromAud job{LAudioCutTank::Instance().GetFilePath(cut, ".aud"), channels};
      if (Process(pi, job) != LProcessFinished) return LProcessStopped;
    }
    return LProcessFinished;
  });
}

bool MainDialog::ProjectLoad(const std::string& path) {
  if (!LFile::Exists(path)) {
    View.Alert("The project file \" " + path + " \" does not exist, please load another project.",
               "Project Load Error");
    return false;
  }
  if (!ProjectClosePrompt()) return false;
  Project.ResetEditRegion();
  TDLoadProject job;
  job.pProject = &Project;
  job.szPath = path;
  job.AskConvert = [this](std::string const& question) {
    return View.Ask(question, "", {"Convert", "Don't Convert"}) == 0;
  };
  LProcessResult const result =
      View.RunModalJob("Loading Project", [&job](LProcessInterface& pi) { return Process(pi, job); });
  if (result != LProcessFinished) {
    if (result == LProcessFailed) {
      std::string const folder = TDProjectDataFolderOf(path);
      if (IsFolder(folder)) {
        View.Alert(
            "This Tandrel project is not opening correctly due to an unidentified problem. Have you moved or deleted "
            "any of the project files?",
            "Unable to open project");
      } else {
        HandleCorruptedProject(folder);
      }
    }
    // Nothing of a failed load stays: the user goes on in a fresh project.
    Project.Clips.PreserveAudioCuts();
    Project.Close();
    ProjectDefault();
    return false;
  }
  LUserSettingSetString("Settings", "szLastProjectFilePath", path.c_str());
  AddRecentProject(path);
  Project.ResetEnd();
  Project.Clips.PreserveAudioCuts();
  // A file may carry lines that don't fit their clips (written by hand, or
  // before the clip was cut): each is fitted to its clip before anything plays.
  Project.Clips.ValidateFadePoints();
  ProjectCheckIntegrity();
  HistoryAddState("Open Project");
  SetProjectClean();
  UpdateCaption();
  View.UIProjectStateApply();
  View.UIClipsApply();
  Loop.SetTimer(TIMER_RECOVERY_SAVE, kRecoverySaveMs);
  return true;
}

void MainDialog::CmProjectOpen() {
  if (Engine.IsRecording()) {
    View.Alert("Tandrel can't open a project when it is recording. Please stop recording, then try to open a project.",
               "");
    return;
  }
  std::string const path = View.AskOpenFile("Open Project", kProjectFilter, ProjectsFolder());
  if (!path.empty()) ProjectLoad(path);
}

// ---------------------------------------------------------------------------
// Saving

bool MainDialog::ProjectSave(const std::string& path, const std::string& title, bool interactive) {
  TDSaveProject job{&Project, path, {}};
  LProcessResult result;
  if (interactive) {
    result = View.RunModalJob(title, [&job](LProcessInterface& pi) { return Process(pi, job); });
  } else {
    LProcessInterfaceVoid quiet;
    result = Process(quiet, job);
  }
  if (result != LProcessFinished) return false;
  std::string const oldRecovery = GetRecoveryFilePath();
  Project.szFilePath = path;
  LUserSettingSetString("Settings", "szLastProjectFilePath", path.c_str());
  if (!EndsWithRecovery(path)) AddRecentProject(path);
  if (IsFolder(job.szDataFolder)) {
    Project.szDataFolderPath = job.szDataFolder;
    LAudioCutTank::Instance().SetWorkingFolder(job.szDataFolder);
  } else {
    HandleCorruptedProject(job.szDataFolder);
  }
  ::unlink(oldRecovery.c_str());
  DeleteProjectFileForCrash();
  Loop.SetTimer(TIMER_RECOVERY_SAVE, kRecoverySaveMs);
  return true;
}

bool MainDialog::SaveToChosenFile(const std::string& title) {
  bool const wasDefault = Project.szFilePath == DefaultProjectPath();
  std::string const folder = ProjectsFolder();
  std::string path = View.AskSaveFile(title, kProjectFilter, folder,
                                      wasDefault ? std::string("Untitled.tdpj") : StemOf(Project.szFilePath) + ".tdpj");
  if (path.empty()) return false;
  if (path.size() < 5 || path.compare(path.size() - 5, 5, ".tdpj") != 0) path += ".tdpj";
  std::string const oldPath = Project.szFilePath;
  if (!ProjectSave(path, "Saving project", true)) return false;
  LUserSettingSetString("Settings", "SaveDir", FolderOf(path).c_str());
  // The default project lived in the temporary folder: its file has no more use.
  if (wasDefault) ::unlink(oldPath.c_str());
  return true;
}

bool MainDialog::CmProjectSave() {
  if (!bDirty) return true;
  bool const hasOwnFile = !Project.szFilePath.empty() && Project.szFilePath != DefaultProjectPath();
  if (hasOwnFile) {
    if (!ProjectSave(Project.szFilePath, "Saving project", true)) return false;
  } else if (!SaveToChosenFile("Save Project")) {
    return false;
  }
  HistoryAddState("Save Project");
  SetProjectClean();
  Project.Clips.PreserveAudioCuts();
  UpdateCaption();
  return true;
}

bool MainDialog::CmProjectSaveAs() {
  if (!SaveToChosenFile("Save Project")) return false;
  Project.Clips.PreserveAudioCuts();
  HistoryAddState("Save As");
  SetProjectClean();
  UpdateCaption();
  return true;
}
