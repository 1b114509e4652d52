// The ends of mouse gestures over the track area. While the button is down the
// window changes the project through TDProjectControl, so the clips follow the
// pointer; the release lands here, where the change becomes one undo step and
// the playing mix is rebuilt once rather than at every pixel.
#include <algorithm>

#include "shell/main_dialog.h"

void MainDialog::EvClipsDragEnd(bool moved) {
  if (!moved) return;
  // Takes move as one group, whichever of them was grabbed.
  Project.Clips.AlignAllTakesPosition();
  Project.ResetEnd();
  ClipsEdited("Clip Moved");
}

int MainDialog::EvClipsDragCopy(LSoundTime offset, int rows) {
  std::vector<TDClip*> const selected = SelectedClips();
  if (selected.empty() || (offset == 0 && rows == 0)) return 0;
  int const last = Project.Tracks.GetTrackCount() - 1;
  std::vector<TDClip*> copies;
  for (TDClip const* clip : selected) {
    std::unique_ptr<TDClip> copy = clip->Clone();
    copy->iPosition = std::max<LSoundTime>(0, clip->iPosition + offset);
    // A copy of a take stands alone: it belongs to no loop pass.
    copy->uTakeGroupId = 0;
    copy->iTakeNumber = 0;
    copy->bActiveTake = true;
    copy->bLocked = false;
    TDClip* added = Project.AddClip(std::move(copy), std::clamp(clip->iTrackIndex + rows, 0, last), false);
    if (added != nullptr) copies.push_back(added);
  }
  // The copies end up selected, so a second drag moves what was just made.
  Project.Clips.DeselectAllClips();
  for (TDClip* c : copies) c->bSelected = true;
  Project.ResetEnd();
  ClipsEdited("Clip Pasted");
  return static_cast<int>(copies.size());
}

void MainDialog::EvClipEndTrimOrExpand(std::uint32_t clipId, bool leftEdge) {
  TDClip* clip = Project.Clips.GetClip(clipId);
  if (clip == nullptr) return;
  if (clip->bLocked) {
    clip->iPendingTrimStart = clip->iPendingTrimEnd = 0;
    SayClipLocked();
    return;
  }
  bool const changed = leftEdge ? clip->iPendingTrimStart != 0 : clip->iPendingTrimEnd != 0;
  if (leftEdge) {
    clip->TrimOrExpandStart();
  } else {
    clip->TrimOrExpandEnd();
  }
  clip->iPendingTrimStart = clip->iPendingTrimEnd = 0;
  if (!changed) return;
  Project.Clips.SortByPosition();
  Project.ResetEnd();
  ClipsEdited("Clip Trimmed or Expanded");
}

void MainDialog::EvFadePointDragEnd(std::uint32_t clipId, bool moved) {
  TDClip* clip = Project.Clips.GetClip(clipId);
  if (clip == nullptr || !moved) return;
  ClipsEdited("Fade Point Moved");
}
