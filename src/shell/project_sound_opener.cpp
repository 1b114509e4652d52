#include "shell/project_sound_opener.h"

LSoundSource TDProjectSoundOpener::OpenProjectSource(LSoundTime /*time*/, bool scrubbing) {
  if (pProject == nullptr) return LSoundSource();
  TDProject& Project = *pProject;
  int const rate = Project.PreferSampleRate.GetPreferredSampleRate();
  // A scrub needs a mix without loops: its window moves over the timeline itself.
  if (Project.bLoopPlay && !scrubbing) {
    return Project.OpenLoopSource(rate, 2, LSoundSource(), LSoundSource(), nullptr);
  }
  return Project.OpenNonLoopSource(rate, 2, nullptr);
}
