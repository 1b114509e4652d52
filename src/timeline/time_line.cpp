#include "timeline/time_line.h"

#include <algorithm>
#include <cmath>

void LTimeLine::AddNotify(LTimeLineNotify* notify) {
  if (notify != nullptr && std::find(vNotify.begin(), vNotify.end(), notify) == vNotify.end()) {
    vNotify.push_back(notify);
  }
}

void LTimeLine::RemoveNotify(LTimeLineNotify* notify) { std::erase(vNotify, notify); }

void LTimeLine::Notify(LTimeLineNotify* skip) {
  // A listener may stop listening while it is told; work on a copy.
  std::vector<LTimeLineNotify*> const listeners = vNotify;
  for (LTimeLineNotify* n : listeners) {
    if (n != skip && std::find(vNotify.begin(), vNotify.end(), n) != vNotify.end()) n->TimeLineChanged(*this);
  }
}

LSoundTime LTimeLine::ClampToEnd(LSoundTime time) const { return std::clamp<LSoundTime>(time, 0, iEnd); }

void LTimeLine::SetViewRegion(LSoundTime start, LSoundTime end) {
  if (end < start) std::swap(start, end);
  LSoundTime span = std::clamp<LSoundTime>(end - start, std::min(kMinViewSpan, iEnd), iEnd);
  start = std::clamp<LSoundTime>(start, 0, iEnd - span);
  if (start == iViewStart && start + span == iViewEnd) return;
  iViewStart = start;
  iViewEnd = start + span;
  Notify();
}

void LTimeLine::SetViewRegionZoom(double factor, LSoundTime anchor) {
  if (!(factor > 0.0)) return;
  double const span = static_cast<double>(iViewEnd - iViewStart);
  double const newSpan = std::clamp(span * factor, static_cast<double>(std::min(kMinViewSpan, iEnd)),
                                    static_cast<double>(iEnd));
  // The anchor keeps its share of the width on either side.
  double const share = span > 0 ? (anchor - iViewStart) / span : 0.0;
  double const start = anchor - share * newSpan;
  LSoundTime const first = static_cast<LSoundTime>(std::llround(start));
  SetViewRegion(first, first + static_cast<LSoundTime>(std::llround(newSpan)));
}

void LTimeLine::SetPosition(LSoundTime position) { SetPositionNoNotify(position, nullptr); }

void LTimeLine::SetPositionNoNotify(LSoundTime position, LTimeLineNotify* skip) {
  position = ClampToEnd(position);
  if (position == iPosition) return;
  iPosition = position;
  Notify(skip);
}

void LTimeLine::SetBPM(double beat, double bpm) {
  if (!(bpm > 0.0)) return;
  auto at = std::find_if(vTempos.begin(), vTempos.end(), [&](LTempoChange const& c) { return c.dBeatPosition == beat; });
  if (at != vTempos.end()) {
    at->dBPM = bpm;
  } else {
    auto const place = std::upper_bound(vTempos.begin(), vTempos.end(), beat,
                                        [](double b, LTempoChange const& c) { return b < c.dBeatPosition; });
    vTempos.insert(place, LTempoChange{beat, bpm});
  }
  Notify();
}

void LTimeLine::RemoveBPM(double beat) {
  if (vTempos.size() <= 1) return;
  auto at = std::find_if(vTempos.begin() + 1, vTempos.end(), [&](LTempoChange const& c) { return c.dBeatPosition == beat; });
  if (at == vTempos.end()) return;
  vTempos.erase(at);
  Notify();
}

void LTimeLine::SetTempoChanges(std::vector<LTempoChange> tempos) {
  std::stable_sort(tempos.begin(), tempos.end(),
                   [](LTempoChange const& a, LTempoChange const& b) { return a.dBeatPosition < b.dBeatPosition; });
  if (tempos.empty()) {
    tempos.push_back({TDProjectMetronomeFeature::kFirstTempoPosition, TDProjectMetronomeFeature::kDefaultBPM});
  }
  vTempos = std::move(tempos);
  Notify();
}

void LTimeLine::SetEnd(LSoundTime end) {
  end = std::max<LSoundTime>(end, kMinViewSpan);
  if (end == iEnd) return;
  iEnd = end;
  LSoundTime const span = std::min(iViewEnd - iViewStart, iEnd);
  iViewStart = std::clamp<LSoundTime>(iViewStart, 0, iEnd - span);
  iViewEnd = iViewStart + span;
  iPosition = ClampToEnd(iPosition);
  Notify();
}

void LTimeLine::SetBookmark(LTimeLineBookmark const& bookmark) {
  auto at = std::find_if(lBookmarks.begin(), lBookmarks.end(),
                         [&](LTimeLineBookmark const& b) { return b.iPosition == bookmark.iPosition; });
  if (at != lBookmarks.end()) {
    *at = bookmark;
  } else {
    lBookmarks.push_front(bookmark);  // newest first, as the project keeps them
  }
  Notify();
}

bool LTimeLine::RemoveBookmark(LSoundTime position) {
  auto const before = lBookmarks.size();
  lBookmarks.remove_if([&](LTimeLineBookmark const& b) { return b.iPosition == position; });
  if (lBookmarks.size() == before) return false;
  Notify();
  return true;
}

void LTimeLine::ClearBookmarks() {
  if (lBookmarks.empty()) return;
  lBookmarks.clear();
  Notify();
}
