#include "project/clip.h"

#include <algorithm>

#include "project/track.h"

TDClip::TDClip() = default;
TDClip::~TDClip() = default;

std::string TDClip::GetTitle() const { return szName; }

void TDClip::SetTrimOrExpandStart(LSoundTime delta) {
  // Not before the timeline's start, and never past the clip's own end.
  delta = std::max(delta, -iPosition);
  delta = std::min(delta, GetEnd() - 1);
  iPendingTrimStart = delta;
}

void TDClip::SetTrimOrExpandEnd(LSoundTime delta) {
  // The end may not pass the start.
  iPendingTrimEnd = std::max(delta, 1 - GetEnd());
}

void TDClip::TrimOrExpandStart() {
  LSoundTime const delta = std::clamp(iPendingTrimStart, -iPosition, GetEnd() - 1);
  iPendingTrimStart = delta;
  iPendingTrimEnd = 0;
  if (delta == 0) return;
  // The totals first: the clip rebuilds its audio from them. The position moves
  // last, as the fade points are cut against the clip where it stood.
  iTrimStartTotal += delta;
  TrimOrExpand();
  iPosition += delta;
  iPendingTrimStart = 0;
}

void TDClip::TrimOrExpandEnd() {
  LSoundTime const delta = std::max(iPendingTrimEnd, 1 - GetEnd());
  iPendingTrimEnd = delta;
  iPendingTrimStart = 0;
  if (delta == 0) return;
  iTrimEndTotal += delta;
  TrimOrExpand();
  iPendingTrimEnd = 0;
}

void TDClip::TrimOutSide(LSoundTime start, LSoundTime end) {
  if (start > end) std::swap(start, end);
  if (start > iPosition) {
    SetTrimOrExpandStart(start - iPosition);
    TrimOrExpandStart();
  }
  if (end < GetEndTime()) {
    SetTrimOrExpandEnd(end - GetEndTime());
    TrimOrExpandEnd();
  }
}

FadeType TDClip::GetFadeTypeShown() const {
  return pTrack != nullptr && pTrack->iFadeTypeShown == FadeTypePan ? FadeTypePan : FadeTypeVolume;
}

void TDClip::FitFadePointsToEnd() {
  LSoundTime const length = GetEnd();
  for (FadeType type : {FadeTypeVolume, FadeTypePan}) {
    TDClipFadePoints& list = GetFadeListByType(type);
    SortFadePoints(type);
    if (list.size() >= 2) list.back().iPosition = length;
  }
  ValidateFadePoints();
}

void TDClip::BindTrack(TDTrack* track, int index) {
  iTrackIndex = index;
  pTrack = track;
  uTrackId = track != nullptr ? track->EnsureTrackId() : 0;
}

void TDClipActionMinStartPos::ExecuteActionOnItem(TDClip& clip) {
  if (pClip == nullptr || clip.iPosition < iPosition) {
    pClip = &clip;
    iPosition = clip.iPosition;
  }
}

void TDClipActionMaxEndPos::ExecuteActionOnItem(TDClip& clip) {
  if (pClip == nullptr || clip.GetEndTime() > iPosition) {
    pClip = &clip;
    iPosition = clip.GetEndTime();
  }
}
