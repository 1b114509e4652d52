#include "shell/project_sound_opener.h"

#include <algorithm>

#include "sound/region_loop_sources.h"

LSoundSource TDProjectSoundOpener::OpenProjectSource(LSoundTime time, bool scrubbing) {
  if (pProject == nullptr) return LSoundSource();
  TDProject& Project = *pProject;
  int const rate = Project.PreferSampleRate.GetPreferredSampleRate();
  int const channels = 2;
  TDProjectSourceNotify* const levels = this;
  TDWorkRegionInfo const& region = Project.WorkRegion;
  // A scrub needs a mix without loops: its window moves over the timeline itself.
  if (scrubbing || region.IsEmpty()) return Project.OpenNonLoopSource(rate, channels, levels);
  LSoundTime const start = region.GetStart();
  LSoundTime const end = region.GetEnd();
  if (Project.bLoopPlay) {
    if (start <= time && time <= end) {
      return Project.OpenLoopSource(rate, channels, LSoundSource(), LSoundSource(), levels);
    }
    if (start > time) {
      return Project.OpenPrerollLoopSource(rate, channels, time, LSoundSource(), LSoundSource(), levels);
    }
  } else if (end > time) {
    // Play stops where the region does, or with the clips when they end first.
    LSoundSource const mix = Project.OpenNonLoopSource(rate, channels, levels);
    if (mix->IsError()) return mix;
    int const stop = std::min(mix->GetEndSample(), TDTimeToFrames(end, rate));
    return LSoundSource::Make<LRegionSourceBase>(mix, 0, stop);
  }
  return Project.OpenNonLoopSource(rate, channels, levels);
}

void TDProjectSoundOpener::mpSRCntfTrackLevel(TDTracksDB const& levels) {
  if (pTracksDBHistory != nullptr) pTracksDBHistory->Add(levels);
}
