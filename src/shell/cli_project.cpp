// tandrel-cli's project commands: make a project from files, describe one.
#include "shell/cli_project.h"

#include <sys/stat.h>

#include <cstdlib>
#include <set>

#include "foundation/app_paths.h"
#include "foundation/file.h"
#include "project/audio_cut_tank.h"
#include "project/clip_audio.h"
#include "project/cut_list_load_save.h"
#include "project/project_file.h"
#include "foundation/sound_time.h"
#include "shell/gen_source_open.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitStopped = 1;
constexpr int kExitUsage = 2;
constexpr int kExitFailed = 3;
constexpr int kNewProjectTracks = 12;

struct Addition {
  std::string szPath;
  double dSeconds = 0.0;
  int iTrack = 1;  // counted from 1, as the window shows tracks
};

// FILE[@SECONDS][:TRACK]; the file name itself may hold neither sign at its end.
bool ParseAddition(std::string const& text, Addition& out) {
  std::string rest = text;
  std::size_t const colon = rest.find_last_of(':');
  if (colon != std::string::npos && colon + 1 < rest.size() &&
      rest.find_first_not_of("0123456789", colon + 1) == std::string::npos) {
    out.iTrack = std::atoi(rest.c_str() + colon + 1);
    rest.erase(colon);
  }
  std::size_t const at = rest.find_last_of('@');
  if (at != std::string::npos && at + 1 < rest.size()) {
    char* end = nullptr;
    double const s = std::strtod(rest.c_str() + at + 1, &end);
    if (end != nullptr && *end == 0) {
      out.dSeconds = s;
      rest.erase(at);
    }
  }
  out.szPath = rest;
  return !rest.empty() && out.iTrack >= 1 && out.iTrack <= 250 && out.dSeconds >= 0.0 && out.dSeconds < 2000000.0;
}

}  // namespace

int TDCliNewProject(std::vector<std::string> const& args, std::FILE* err, LProcessInterface& progress) {
  std::string path;
  int rate = 44100;
  std::vector<Addition> additions;
  for (std::size_t i = 1; i < args.size(); ++i) {
    std::string const& a = args[i];
    if ((a == "--rate" || a == "--add") && i + 1 >= args.size()) {
      std::fprintf(err, "tandrel-cli: %s needs a value\n", a.c_str());
      return kExitUsage;
    }
    if (a == "--rate") {
      rate = std::atoi(args[++i].c_str());
      if (rate < 1000 || rate > 768000) {
        std::fprintf(err, "tandrel-cli: --rate takes a rate from 1000 to 768000, not '%s'\n", args[i].c_str());
        return kExitUsage;
      }
    } else if (a == "--add") {
      Addition add;
      if (!ParseAddition(args[++i], add)) {
        std::fprintf(err, "tandrel-cli: --add takes FILE[@SECONDS][:TRACK] with a track from 1 to 250, not '%s'\n",
                     args[i].c_str());
        return kExitUsage;
      }
      additions.push_back(add);
    } else if (path.empty() && a.rfind("--", 0) != 0) {
      path = a;
    } else {
      std::fprintf(err, "tandrel-cli: new takes one project file, not '%s'\n", a.c_str());
      return kExitUsage;
    }
  }
  if (path.empty() || TDLowerExtension(path) != ".tdpj") {
    std::fprintf(err, "tandrel-cli: new takes the path of a project file ending in .tdpj\n");
    return kExitUsage;
  }
  if (LFile::Exists(path)) {
    std::fprintf(err, "tandrel-cli: \"%s\" exists already; new never overwrites a project\n", path.c_str());
    return kExitFailed;
  }
  // Every file is opened before anything is made, so that one that cannot be read
  // leaves nothing behind.
  std::vector<LSoundSource> sources;
  for (Addition const& add : additions) {
    struct Face : LGenSourceOpenInterfaceProcess {
      using LGenSourceOpenInterfaceProcess::LGenSourceOpenInterfaceProcess;
      void SetError(char const* text) override { error = text; }
      std::string error;
    } face(progress);
    LSoundSource source;
    LProcessResult const r = ProcessGenSourceOpenSource(source, add.szPath.c_str(), face);
    if (r == LProcessStopped) return kExitStopped;
    if (r != LProcessFinished) {
      std::fprintf(err, "tandrel-cli: %s\n", face.error.c_str());
      return kExitFailed;
    }
    sources.push_back(source);
  }

  TDProject project;
  project.szFilePath = path;
  project.szDataFolderPath = TDProjectDataFolderOf(path);
  project.PreferSampleRate.SetPreferSampleRate(rate);
  if (!LAppPaths::MakeFolders(project.szDataFolderPath, 0777)) {
    std::fprintf(err, "tandrel-cli: cannot create the data folder \"%s\"\n", project.szDataFolderPath.c_str());
    return kExitFailed;
  }
  LAudioCutTank& tank = LAudioCutTank::Instance();
  tank.SetWorkingFolder(project.szDataFolderPath);
  for (int i = 0; i < kNewProjectTracks; ++i) project.Tracks.AddTrack();
  while (true) {
    int highest = 0;
    for (Addition const& add : additions) highest = std::max(highest, add.iTrack);
    if (project.Tracks.GetTrackCount() >= highest) break;
    project.Tracks.AddTrack();
  }

  LProcessResult result = LProcessFinished;
  for (std::size_t n = 0; n < additions.size(); ++n) {
    Addition const& add = additions[n];
    LCutListAudio list;
    std::string const title = "Loading " + add.szPath;
    LCutListAudioLoadSource job{title.c_str(), &list, sources[n]};
    result = Process(progress, job);
    if (result != LProcessFinished) {
      if (!list.GetErrorText().empty()) std::fprintf(err, "tandrel-cli: %s\n", list.GetErrorText().c_str());
      break;
    }
    auto clip = std::make_unique<TDClipAudio>(list);
    project.AddClipFinalise(std::move(clip), add.szPath, add.iTrack - 1,
                            static_cast<LSoundTime>(add.dSeconds * 1000.0 + 0.5));
  }
  if (result == LProcessFinished) {
    TDSaveProject save{&project, path, {}};
    result = Process(progress, save);
  }
  if (result == LProcessFinished) {
    // The audio now belongs to the saved project.
    project.Clips.PreserveAudioCuts();
    return kExitOk;
  }
  // Nothing half made stays behind: the clips' audio goes with them.
  project.Close();
  ::rmdir(project.szDataFolderPath.c_str());
  std::fprintf(err, result == LProcessStopped ? "tandrel-cli: stopped; %s was not made\n"
                                              : "tandrel-cli: %s could not be made\n",
               path.c_str());
  return result == LProcessStopped ? kExitStopped : kExitFailed;
}

bool TDCliLoadProject(std::string const& path, TDProject& project, std::FILE* err) {
  // Looking must never touch: nothing read here may be deleted when it goes.
  LAudioCutTank::Instance().PreserveEntireCache();
  TDLoadProject job;
  job.pProject = &project;
  job.szPath = path;
  struct Errors : LProcessInterfaceVoid {
    std::string text;
    void SetError(char const* t) override { text = t; }
  } progress;
  if (Process(progress, job) == LProcessFinished) return true;
  std::string const folder = TDProjectDataFolderOf(path);
  struct stat st {};
  if (progress.text.empty() && ::stat(folder.c_str(), &st) != 0) {
    progress.text = "The data folder \"" + folder + "\" of this project is missing.";
  }
  std::fprintf(err, "tandrel-cli: %s\n", progress.text.empty() ? "the project could not be read" : progress.text.c_str());
  return false;
}

int TDCliProjectInfo(std::string const& path, std::FILE* out, std::FILE* err) {
  TDProject project;
  if (!TDCliLoadProject(path, project, err)) return kExitFailed;
  project.ResetEnd();
  std::set<LAudioCutRef> named;
  for (auto const& c : project.Clips.GetClips()) {
    if (auto const* audio = dynamic_cast<TDClipAudio const*>(c.get())) {
      audio->GetCutListAudio().ForEachSegment([&](LCutListSegment const& s) {
        if (!s.IsSilence()) named.insert(s.GetCut());
      });
    }
  }
  std::vector<std::string> missing;
  LAudioCutTank const& tank = LAudioCutTank::Instance();
  for (LAudioCutRef n : named) {
    for (char const* ext : {".aud", ".grf"}) {
      std::string const file = tank.GetFilePath(n, ext);
      if (!LFile::Exists(file)) missing.push_back(file.substr(file.find_last_of('/') + 1));
    }
  }
  LSoundTime const clipsEnd = project.Clips.GetClipsEnd();
  std::fprintf(out, "Project:   %s\n", path.c_str());
  std::fprintf(out, "Data:      %s\n", project.szDataFolderPath.c_str());
  std::fprintf(out, "Rate:      %d Hz\n", project.PreferSampleRate.GetPreferredSampleRate());
  std::fprintf(out, "Tracks:    %d\n", project.Tracks.GetTrackCount());
  std::fprintf(out, "Clips:     %d\n", project.Clips.GetCount());
  std::fprintf(out, "Length:    %s (clips end at %s)\n", _GetTextHMMSSFFF(project.GetEnd()).c_str(),
               _GetTextHMMSSFFF(clipsEnd).c_str());
  for (int i = 0; i < project.Tracks.GetTrackCount(); ++i) {
    int const clips = project.Clips.GetNumClipsOnTrack(i);
    if (clips > 0) std::fprintf(out, "  track %d \"%s\": %d clip%s\n", i + 1, project.Tracks.GetTrack(i)->GetName().c_str(),
                                clips, clips == 1 ? "" : "s");
  }
  if (missing.empty()) {
    std::fprintf(out, "Missing:   nothing\n");
  } else {
    std::fprintf(out, "Missing:  ");
    for (std::string const& m : missing) std::fprintf(out, " %s", m.c_str());
    std::fprintf(out, "\n");
  }
  return kExitOk;
}
