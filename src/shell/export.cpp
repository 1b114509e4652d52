#include "shell/export.h"

#include <filesystem>

#include <cstdio>

#include "project/clip.h"
#include "project/project.h"
#include "shell/gen_sink_open.h"
#include "shell/gen_source_open.h"
#include "shell/user_settings.h"
#include "sound/source_to_sink.h"

std::string TDExportFailedText(std::string const& path) {
  return "Tandrel could not export the project to the target file - " + path +
         " - Check to see if the file is in use by another application and try again.";
}

LProcessResult Process(LProcessInterface& pi, TDExportSource& job) {
  std::string const ext = TDLowerExtension(job.szPath);
  if (!LGenSinkIsSupported(ext) || LGenSinkIsPlaylist(ext)) return LProcessFailed;
  if (!LGenSinkIsSupported(ext, pi)) return LProcessFailed;  // the encoder is missing; it said which
  LSoundSource const& source = job.lssSource;
  if (source->IsError()) {
    pi.SetError(TDExportFailedText(job.szPath).c_str());
    return LProcessFailed;
  }
  int const rate = job.iSampleRate > 0 ? job.iSampleRate : source->GetSampleRate();
  int const channels = job.iChannels > 0 ? job.iChannels : source->GetChannels();
  LSoundSink sink = LGenSinkOpenSink(job.szPath, rate, channels, job.pTags);
  if (sink->IsError()) {
    pi.SetError(TDExportFailedText(job.szPath).c_str());
    return LProcessFailed;
  }

  LPRSourceToSink copy;
  copy.szTitle = job.szTitle;
  copy.lssSource = source;
  copy.lsnkSink = sink;
  LProcessResult result = Process(pi, copy);
  // An encoder finishes its file only now, and may fail only now. After a stop it
  // still ends cleanly, so that no program is left running.
  bool const finished = sink->Finish();
  copy.lsnkSink.Close();
  sink.Close();
  if (result == LProcessFinished && !finished) result = LProcessFailed;
  if (result == LProcessFailed) pi.SetError(TDExportFailedText(job.szPath).c_str());
  return result;
}

LProcessResult Process(LProcessInterface& pi, TDExportClip& job) {
  pi.SetStatus("Exporting Clip...", 0);
  if (job.pClip == nullptr) return LProcessFailed;
  if (job.pClip->IsMidi()) {
    // Rendering MIDI to sound needs the synthesiser's renderer, which this version
    // does not have.
    pi.SetError("MIDI decoding is not currently supported in our products on Linux.");
    return LProcessFailed;
  }
  TDExportSource exportJob;
  exportJob.lssSource = job.pClip->OpenSource(job.iSampleRate, 2);
  exportJob.szPath = job.szPath;
  exportJob.iSampleRate = job.iSampleRate;
  exportJob.iChannels = 2;
  exportJob.szTitle = "Exporting Clip...";
  return Process(pi, exportJob);
}

LProcessResult Process(LProcessInterface& pi, TDExportProjectNormal& job) {
  std::string const ext = TDLowerExtension(job.szPath);
  if (job.pProject == nullptr || !LGenSinkIsSupported(ext) || LGenSinkIsPlaylist(ext)) return LProcessFailed;
  TDProject& project = *job.pProject;
  int const rate = job.iSampleRate > 0 ? job.iSampleRate : project.PreferSampleRate.GetPreferredSampleRate();

  // The mix is opened with the metronome off, and the user's choice is put back at
  // once: the mix is a snapshot and keeps what it was opened with.
  bool const metronome = project.Metronome.bMetronomeOn;
  int const metronomeMode = LUserSettingGet("Settings", "MetronomeMode", 0);
  project.Metronome.bMetronomeOn = false;
  if (metronomeMode != 0) LUserSettingSet("Settings", "MetronomeMode", 0);
  TDExportSource exportJob;
  exportJob.lssSource = project.OpenSourceForExport(rate, 2, nullptr, job.bSelectionOnly);
  project.Metronome.bMetronomeOn = metronome;
  if (metronomeMode != 0) LUserSettingSet("Settings", "MetronomeMode", metronomeMode);

  exportJob.szPath = job.szPath;
  exportJob.iSampleRate = rate;
  exportJob.iChannels = 2;
  exportJob.pTags = job.pTags;
  exportJob.szTitle = "Mixing down file...";
  return Process(pi, exportJob);
}

std::string TDExportWritingPath(std::string const& target) {
  if (TDLowerExtension(target) == ".rss") return target;
  std::filesystem::path const t(target);
  return (t.parent_path() / ("." + t.stem().string() + ".exporting" + t.extension().string())).string();
}

bool TDExportSettle(std::string const& writing, std::string const& target, bool finished) {
  std::error_code ec;
  if (finished) {
    if (writing == target) return true;
    std::filesystem::rename(writing, target, ec);
    if (!ec) return true;
  }
  std::filesystem::remove(writing, ec);
  return false;
}

std::string TDExportNameForUser(std::string text, std::string const& writing, std::string const& target) {
  if (writing == target) return text;
  for (std::size_t at = text.find(writing); at != std::string::npos; at = text.find(writing, at + target.size())) {
    text.replace(at, writing.size(), target);
  }
  return text;
}
