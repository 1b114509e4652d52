// The openers of the project's mix: the one source the player plays and export
// pulls, with the metronome, loops and pre-roll around it.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <mutex>

#include "foundation/file.h"
#include "project/clip_audio.h"
#include "project/metronome_source.h"
#include "project/project.h"
#include "project/project_source.h"
#include "sound/region_loop_sources.h"

TDMixSettings TDProject::ReadMixSettings() {
  TDMixSettings settings = MixSettings ? MixSettings() : TDMixSettings{};
  dPlaybackSpeed = settings.iPlaybackSpeed / 100.0;
  return settings;
}

LSoundSource TDProject::ApplyPlaybackSpeed(LSoundSource const& mix) const {
  // A speed other than normal is to go through the phase vocoder here, and only
  // here, so that everything in the mix changes speed together. Until that stage
  // exists the mix plays at normal speed, whatever the setting says.
  return mix;
}

template <class Counts>
int TDProject::AudioClipsEndFrames(int rate, Counts counts) const {
  std::int64_t end = 0;
  for (auto const& clip : Clips.GetClips()) {
    if (clip->IsMidi() || !clip->IsPlayable() || !counts(*clip)) continue;
    auto const* audio = dynamic_cast<TDClipAudio const*>(clip.get());
    if (audio == nullptr) continue;
    std::int64_t const frames = audio->GetEndSample();
    std::int64_t const clipRate = std::max(1, audio->GetSampleRate());
    // The length at the mix's rate as the rate converter gives it: rounded up.
    std::int64_t const atRate = clipRate == rate ? frames : (frames * rate + clipRate - 1) / clipRate;
    end = std::max(end, std::int64_t{TDTimeToFrames(clip->iPosition, rate)} + atRate);
  }
  return static_cast<int>(std::min<std::int64_t>(end, INT_MAX));
}

int TDProject::GetProjectSoundSourceEnd(int rate) const {
  return AudioClipsEndFrames(rate, [&](TDClip const& clip) { return Tracks.IsTrackValid(clip.iTrackIndex); });
}

int TDProject::GetProjectExportEnd(int rate) const {
  return AudioClipsEndFrames(rate, [&](TDClip const& clip) {
    return Tracks.IsTrackValid(clip.iTrackIndex) && !Tracks.IsTrackSilent(clip.iTrackIndex);
  });
}

LSoundSource TDProject::OpenMetronomeSource(int rate, int channels, int startFrame) {
  auto pick = [](std::string const& own, char const* name) {
    return !own.empty() && LFile::Exists(own) ? own : TDDefaultMetronomeSoundPath(name);
  };
  std::vector<LTempoChange> tempos;
  {
    // The tempo list is what the MIDI side shares with the main thread.
    std::lock_guard<std::recursive_mutex> hold(Lock);
    tempos = Metronome.GetTempoChanges();
  }
  // A click never needs more than the longest beat, at the slowest tempo.
  int const longest = static_cast<int>(std::ceil(60.0 * rate / LSRCMetronomeMultiTempo::kMinBPM));
  return LSoundSource::Make<LSRCMetronomeMultiTempo>(
      rate, channels, tempos, iTimeSignatureBeats,
      TDLoadClickSound(pick(Metronome.GetMetronomeBeatSound(), "beat.wav"), rate, channels, longest),
      TDLoadClickSound(pick(Metronome.GetMetronomeAccentSound(), "accent.wav"), rate, channels, longest), startFrame,
      Metronome.GetMetronomeBoundaryStart(), Metronome.GetMetronomeBoundaryEnd());
}

void TDProject::PrepareMetronome(int rate, int channels, int startFrame, int clickEnd) {
  if (!Metronome.bMetronomeOn) {
    Metronome.SetMetronomeSource(LSoundSource());
    return;
  }
  LSoundSource source = OpenMetronomeSource(rate, channels, startFrame);
  if (auto* typed = dynamic_cast<LSRCMetronomeMultiTempo*>(source.Get())) {
    typed->SetBoundary(Metronome.GetMetronomeBoundaryStart(), std::min(Metronome.GetMetronomeBoundaryEnd(), clickEnd));
  }
  Metronome.SetMetronomeSource(source);
}

LSoundSource TDProject::OpenProjectSource(int rate, int channels, LSoundSource const& monitor,
                                          LSoundSource const& midiStream, TDProjectSourceNotify* notify,
                                          bool forExport, bool selectionOnly) {
  auto* mix = new TDProjectSource(rate, channels);
  LSoundSource const handle(mix);
  mix->SetMonitorSource(monitor);
  mix->SetMIDIStreamSource(midiStream);
  mix->SetExportOptions(TDProjectSourceExportOptions{forExport, selectionOnly});
  mix->Init(*this, notify);
  return handle;
}

LSoundSource TDProject::OpenSourceForExport(int rate, int channels, TDProjectSourceNotify* notify, bool selectionOnly) {
  ReadMixSettings();
  return ApplyPlaybackSpeed(OpenProjectSource(rate, channels, LSoundSource(), LSoundSource(), notify, true, selectionOnly));
}

LSoundSource TDProject::OpenNonLoopSource(int rate, int channels, TDProjectSourceNotify* notify) {
  ReadMixSettings();
  PrepareMetronome(rate, channels, 0, INT_MAX);
  return ApplyPlaybackSpeed(OpenProjectSource(rate, channels, LSoundSource(), LSoundSource(), notify, false, false));
}

LSoundSource TDProject::OpenNonLoopSource(int rate, int channels, LSoundSource const& monitor,
                                          LSoundSource const& midiStream, LSoundTime start,
                                          TDProjectSourceNotify* notify) {
  TDMixSettings const settings = ReadMixSettings();
  int const startFrame = TDTimeToFrames(start, rate);
  PrepareMetronome(rate, channels, startFrame, INT_MAX);
  if (settings.bMetronomePrerollOnly) {
    // Counting in only: the clicks stop where the pre-roll ends and the take
    // begins, which is as many beats after the start as the pre-roll is long.
    if (auto* metronome = dynamic_cast<LSRCMetronomeMultiTempo*>(Metronome.GetMetronomeSource().Get())) {
      int const beats = Metronome.bPreroll ? Metronome.GetMetronomeRecordingPreroll() : 0;
      double const end = metronome->GetFrameOfBeat(metronome->GetBeatOfFrame(startFrame) + beats);
      int const clickEnd = static_cast<int>(std::clamp<double>(std::round(end), INT_MIN, INT_MAX));
      metronome->SetBoundary(Metronome.GetMetronomeBoundaryStart(),
                             std::min(Metronome.GetMetronomeBoundaryEnd(), clickEnd));
    }
  }
  LSoundSource const mix = OpenProjectSource(rate, channels, monitor, midiStream, notify, false, false);
  mix->Seek(startFrame);
  return ApplyPlaybackSpeed(mix);
}

LSoundSource TDProject::OpenLoopSource(int rate, int channels, LSoundSource const& monitor,
                                       LSoundSource const& midiStream, TDProjectSourceNotify* notify) {
  ReadMixSettings();
  PrepareMetronome(rate, channels, 0, INT_MAX);
  LSoundSource mix = OpenProjectSource(rate, channels, monitor, midiStream, notify, false, false);
  int const start = TDTimeToFrames(WorkRegion.GetStart(), rate);
  int const end = TDTimeToFrames(WorkRegion.GetEnd(), rate);
  if (start != end && start < mix->GetEndSample()) mix = LSoundSource::Make<LLoopSourceBase>(mix, start, end);
  return ApplyPlaybackSpeed(mix);
}

LSoundSource TDProject::OpenPrerollLoopSource(int rate, int channels, LSoundTime preroll, LSoundSource const& monitor,
                                              LSoundSource const& midiStream, TDProjectSourceNotify* notify) {
  ReadMixSettings();
  PrepareMetronome(rate, channels, 0, INT_MAX);
  LSoundSource mix = OpenProjectSource(rate, channels, monitor, midiStream, notify, false, false);
  int const from = TDTimeToFrames(preroll, rate);
  int const start = TDTimeToFrames(WorkRegion.GetStart(), rate);
  int const end = TDTimeToFrames(WorkRegion.GetEnd(), rate);
  if (start != end && start < mix->GetEndSample()) {
    mix = LSoundSource::Make<LLoopSourcePrerollBase>(mix, from, start, end);
  } else {
    mix->Seek(from);
  }
  return ApplyPlaybackSpeed(mix);
}
