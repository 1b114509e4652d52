// The transport's commands: what a play starts from, and what stops it.
#include <algorithm>

#include "shell/main_dialog.h"

void MainDialog::CmPlayStop() {
  if (Engine.IsRecording()) return;
  if (Engine.IsPlaying()) {
    Engine.Stop();
    return;
  }
  CmPlay();
}

void MainDialog::CmPlay() {
  if (Project.Clips.IsEmpty() || Engine.IsRecording()) return;
  if (Engine.IsScrubbing()) Engine.Stop();
  Project.Clips.AlignAllTakesPosition();
  LSoundTime const clipsEnd = Project.Clips.GetPlayableClipsEnd();
  TDWorkRegionInfo& region = Project.WorkRegion;
  // A loop wholly past the last clip would play nothing but silence.
  if (!region.IsEmpty() && region.GetStart() >= clipsEnd) region.Clear();
  LSoundTime start = iCursor;
  if (region.IsEmpty()) {
    // At the end already: play the song again rather than nothing.
    if (start >= clipsEnd - 3) start = 0;
  } else if (start >= region.GetEnd() - 99 && start <= region.GetEnd()) {
    start = region.GetStart();
  }
  int const rate = Project.PreferSampleRate.GetPreferredSampleRate();
  LSoundTime const until = std::max(region.IsEmpty() ? 0 : region.GetEnd(), clipsEnd);
  Project.Metronome.SetMetronomeBoundary(static_cast<std::int32_t>(LSoundTimeToFrames(start, rate)),
                                         static_cast<std::int32_t>(LSoundTimeToFrames(until, rate)));
  if (!Engine.Play(start)) View.Alert("Cannot open sound device for playing.", "");
}

void MainDialog::CmGoToStart() {
  SetCursorPosition(0);
  View.UIClipsApply();
}

void MainDialog::CmGoToEnd() {
  SetCursorPosition(Project.Clips.GetPlayableClipsEnd());
  View.UIClipsApply();
}
