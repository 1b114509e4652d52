#include "timeline/project_control.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "timeline/time_beat_mapper.h"

namespace {

constexpr int kGridPixels = 20;
constexpr double kBeatsPerMs = 1.6666666666666667e-5;

double RoundBy(double value, int round) {
  switch (round) {
    case TDProjectControl::kRoundFloor: return std::floor(value);
    case TDProjectControl::kRoundCeil: return std::ceil(value);
    default: return std::round(value);
  }
}

LSoundTime ToTime(double ms) {
  constexpr double kMax = std::numeric_limits<LSoundTime>::max();
  constexpr double kMin = std::numeric_limits<LSoundTime>::min();
  if (!(ms > kMin)) return std::numeric_limits<LSoundTime>::min();
  if (ms > kMax) return std::numeric_limits<LSoundTime>::max();
  return static_cast<LSoundTime>(std::llround(ms));
}

}  // namespace

void TDProjectControl::SetView(TDPixelSoundTimeMapper const& mapper, int width) {
  Mapper = mapper;
  iWidth = width;
}

void TDProjectControl::Reset() {
  bDragging = false;
  iDragTime = 0;
  iDragRow = 0;
  iDragTotalTime = 0;
  iDragTotalRows = 0;
}

double TDGetTimeInterval(double span, int width, int pixels) {
  if (width <= 0 || !(span > 0)) return 1.0;
  double const wanted = pixels * span / width;
  double const p = std::pow(10.0, std::trunc(std::log10(wanted)));
  for (double step : {p, 2 * p, 5 * p}) {
    if (step >= wanted) return step;
  }
  return 10 * p;
}

double TDProjectControl::GetBestGridInterval() const {
  return TDGetTimeInterval(static_cast<double>(Mapper.iLastTime - Mapper.iFirstTime), iWidth, kGridPixels);
}

double TDProjectControl::CalculateBeatGroup() const {
  double const span = static_cast<double>(Mapper.iLastTime - Mapper.iFirstTime);
  auto const& tempos = Project.Metronome.GetTempoChanges();
  // The tempo holding where the view starts sets the spacing.
  double bpm = tempos.empty() ? TDProjectMetronomeFeature::kDefaultBPM : tempos.front().dBPM;
  double const startBeat = LTimeBeatMapper::GetBeatFromTime(Mapper.iFirstTime, tempos, 0, 0.0);
  for (auto const& change : tempos) {
    if (change.dBeatPosition <= startBeat) bpm = change.dBPM;
  }
  if (iWidth <= 0 || span <= 0 || !(bpm > 0)) return 1.0;
  double const v = iWidth / (span * bpm * kBeatsPerMs);  // pixels per beat
  double group = 1.0;
  if (v >= kGridPixels) {
    while (v * group > 2 * kGridPixels && group > 0.03125) group /= 2;
    return group;
  }
  group = std::max(1, Project.iTimeSignatureBeats);
  while (v * group < kGridPixels) group *= 2;
  return group;
}

LSoundTime TDProjectControl::MapToGridSnapPoint(LSoundTime time, int round) const {
  if (iTimelineMode == kTimelineModeTime) {
    double const interval = GetBestGridInterval();
    return ToTime(RoundBy(time / interval, round) * interval);
  }
  if (iTimelineMode == kTimelineModeBeats) {
    auto const& tempos = Project.Metronome.GetTempoChanges();
    double const group = CalculateBeatGroup();
    double const beat = LTimeBeatMapper::GetBeatFromTime(time, tempos, 0, 0.0);
    return LTimeBeatMapper::GetTimeFromBeat(RoundBy(beat / group, round) * group, tempos, 0.0, 0);
  }
  return time;
}

LSoundTime TDProjectControl::MapTimeToNearestBookmark(LSoundTime time) const {
  LSoundTime best = -1;
  std::int64_t bestDistance = std::numeric_limits<std::int64_t>::max();
  for (auto const& mark : Project.GetBookmarks()) {
    std::int64_t const d = std::llabs(static_cast<std::int64_t>(mark.iPosition) - time);
    if (d < bestDistance) {
      bestDistance = d;
      best = mark.iPosition;
    }
  }
  return best;
}

LSoundTime TDProjectControl::MapToBookmarkSnapPoint(LSoundTime start, LSoundTime end) const {
  LSoundTime const nearStart = MapTimeToNearestBookmark(start);
  if (nearStart < 0 && Project.GetBookmarks().empty()) return -1;
  LSoundTime const nearEnd = MapTimeToNearestBookmark(end);
  std::int64_t const dStart = std::llabs(static_cast<std::int64_t>(nearStart) - start);
  std::int64_t const dEnd = std::llabs(static_cast<std::int64_t>(nearEnd) - end);
  return dEnd < dStart ? nearEnd - (end - start) : nearStart;
}

LSoundTime TDProjectControl::MapSoundTimeToNearestClipSnapPoint(TDClip const& clip, LSoundTime start, LSoundTime end,
                                                                bool selected) const {
  LSoundTime result = -1;
  std::int64_t best = std::numeric_limits<std::int64_t>::max();
  for (auto const& other : Project.Clips.GetClips()) {
    if (other.get() == &clip || other->bSelected != selected) continue;
    LSoundTime const ends[2] = {other->iPosition, other->GetEndTime()};
    for (LSoundTime const target : ends) {
      // Either end of the moving span may land on the other clip's end.
      for (LSoundTime const own : {start, end}) {
        std::int64_t const d = std::llabs(static_cast<std::int64_t>(target) - own);
        if (d < best) {
          best = d;
          result = target - (own - start);
        }
      }
    }
  }
  return result;
}

LSoundTime TDProjectControl::MapSoundTimeToNearestSnapPoint(LSoundTime time, TDClip const* clip) const {
  LSoundTime const grid = MapToGridSnapPointRound(time);
  if (clip == nullptr) return grid;
  LSoundTime const length = clip->GetEnd();
  LSoundTime const candidates[3] = {MapSoundTimeToNearestClipSnapPoint(*clip, time, time + length, false), grid,
                                    MapToBookmarkSnapPoint(time, time + length)};
  LSoundTime best = grid;
  std::int64_t bestDistance = std::numeric_limits<std::int64_t>::max();
  for (int i = 0; i < 3; ++i) {
    // Clip and bookmark snaps answer -1 when there is nothing to snap to.
    if (i != 1 && candidates[i] < 0) continue;
    std::int64_t const d = std::llabs(static_cast<std::int64_t>(candidates[i]) - time);
    if (d < bestDistance) {
      bestDistance = d;
      best = candidates[i];
    }
  }
  return best;
}

std::vector<TDClip*> TDProjectControl::SelectedClips() const {
  std::vector<TDClip*> out;
  for (auto const& c : Project.Clips.GetClips()) {
    if (c->bSelected) out.push_back(c.get());
  }
  return out;
}

void TDProjectControl::BeginDrag(int x, int y) {
  Reset();
  bDragging = true;
  iDragTime = Mapper.MapPixelToSoundTime(x);
  iDragRow = Rows.MapPixelYToTrackIndex(y);
}

TDProjectControl::TDDragResult TDProjectControl::DragClip(int x, int y, bool snap, bool copy) {
  if (!bDragging) BeginDrag(x, y);
  std::vector<TDClip*> const clips = SelectedClips();
  if (clips.empty()) return TDDragResult::Unchanged;
  LSoundTime const delta = Mapper.MapPixelToSoundTime(x) - iDragTime;
  int const rowDelta = Rows.MapPixelYToTrackIndex(y) - iDragRow;
  if (copy) {
    // A copy is made at the release; until then only the offset is followed.
    iDragTotalTime += delta;
    iDragTotalRows += rowDelta;
    iDragTime += delta;
    iDragRow += rowDelta;
    return TDDragResult::CopyPending;
  }
  for (TDClip* c : clips) {
    if (c->bLocked) return TDDragResult::Locked;
  }

  // Each clip proposes how far the group should go; the smallest correction wins,
  // so the group keeps its shape and only its closest member snaps.
  double const msPerPixel = Mapper.GetMSPerPixel();
  bool corrected = false;
  LSoundTime correction = 0;
  for (TDClip* c : clips) {
    LSoundTime const proposed = std::max<LSoundTime>(0, c->iPosition + delta);
    LSoundTime target = proposed;
    if (snap) {
      target = MapSoundTimeToNearestSnapPoint(proposed, c);
    } else {
      LSoundTime const near = MapSoundTimeToNearestClipSnapPoint(*c, proposed, proposed + c->GetEnd(), false);
      if (near >= 0 && std::abs(near - proposed) <= kClipSnapPixels * msPerPixel) target = near;
    }
    if (target == proposed) continue;
    LSoundTime const mine = target - proposed;
    if (!corrected || std::abs(mine) < std::abs(correction)) correction = mine;
    corrected = true;
  }
  LSoundTime const applied = delta + correction;

  int const count = Project.Tracks.GetTrackCount();
  int rows = rowDelta;
  for (TDClip* c : clips) {
    int const target = std::clamp(c->iTrackIndex + rowDelta, 0, std::max(0, count - 1));
    int const mine = target - c->iTrackIndex;
    if (std::abs(mine) < std::abs(rows)) rows = mine;
  }
  if (applied == 0 && rows == 0) return TDDragResult::Unchanged;

  bool moved = false;
  for (TDClip* c : clips) {
    LSoundTime const position = std::max<LSoundTime>(0, c->iPosition + applied);
    int const track = c->iTrackIndex + rows;
    if (position == c->iPosition && track == c->iTrackIndex) continue;
    c->iPosition = position;
    if (track != c->iTrackIndex) c->BindTrack(Project.Tracks.GetTrack(track), track);
    moved = true;
  }
  iDragTime += applied;
  iDragRow += rows;
  iDragTotalTime += applied;
  iDragTotalRows += rows;
  if (!moved) return TDDragResult::Unchanged;
  Project.Clips.SortByPosition();
  return TDDragResult::Moved;
}

bool TDProjectControl::PointerOnTrackOf(TDClip const& clip, int y) const {
  return Rows.IsPixelYInAnyTrack(y) && Rows.MapPixelYToTrackIndex(y) == clip.iTrackIndex &&
         y > Rows.GetTrackYPixel(clip.iTrackIndex) + kEdgeTopPixels;
}

bool TDProjectControl::IsPixelAtClipLeftEdge(TDClip const& clip, int x, int y, int tolerance) const {
  return PointerOnTrackOf(clip, y) && std::abs(x - Mapper.MapSoundTimeToPixel(clip.iPosition)) <= tolerance;
}

bool TDProjectControl::IsPixelAtClipRightEdge(TDClip const& clip, int x, int y, int tolerance) const {
  return PointerOnTrackOf(clip, y) && std::abs(x - Mapper.MapSoundTimeToPixel(clip.GetEndTime())) <= tolerance;
}

bool TDProjectControl::TrimOrExpandClip(int x, int /*y*/, TDClip& clip, bool leftEdge, bool grid) {
  if (clip.bLocked) return false;
  // The edges as they will be once what is pending applies.
  LSoundTime const start = clip.iPosition + clip.iPendingTrimStart;
  LSoundTime const end = clip.GetEndTime() + clip.iPendingTrimEnd;
  int const startPixel = Mapper.MapSoundTimeToPixel(start);
  int const endPixel = Mapper.MapSoundTimeToPixel(end);
  if (leftEdge && x > endPixel - (kMinClipPixels + 1)) x = endPixel - kMinClipPixels;
  if (!leftEdge && x < startPixel + (kMinClipPixels + 1)) x = startPixel + kMinClipPixels;
  LSoundTime time = Mapper.MapPixelToSoundTime(x);
  if (grid) {
    LSoundTime const other = leftEdge ? end : start;
    LSoundTime snapped = MapToGridSnapPointRound(time);
    if (snapped == other) snapped = leftEdge ? MapToGridSnapPointFloor(time - 1) : MapToGridSnapPointCeil(time + 1);
    time = snapped;
  }
  if (leftEdge) {
    time = std::max<LSoundTime>(0, time);
    if (time == start) return false;
    clip.SetTrimOrExpandStart(clip.iPendingTrimStart + (time - start));
  } else {
    if (time == end) return false;
    clip.SetTrimOrExpandEnd(clip.iPendingTrimEnd + (time - end));
  }
  return true;
}

int TDProjectControl::MapAmplitudeToPixelY(double amplitude, int top, int height) {
  int const half = (height - kTitleStripPixels) / 2;
  return top + half + kTitleStripPixels - static_cast<int>(std::trunc(half * amplitude));
}

double TDProjectControl::MapPixelYToAmplitude(int y, int top, int height) {
  int const half = (height - kTitleStripPixels) / 2;
  if (y <= top + kTitleStripPixels) return 1.0;
  if (y >= top + height || half <= 0) return -1.0;
  return std::clamp(static_cast<double>(top + half + kTitleStripPixels - y) / half, -1.0, 1.0);
}

namespace {

FadeType ShownFadeType(TDProject const& project, TDClip const& clip) {
  TDTrack const* track = project.Tracks.GetTrack(clip.iTrackIndex);
  return track != nullptr && track->iFadeTypeShown == FadeTypePan ? FadeTypePan : FadeTypeVolume;
}

}  // namespace

TDPixelPoint TDProjectControl::FadePointPixel(TDClip const& clip, TDClipFadePoint const& point) const {
  return {Mapper.MapSoundTimeToPixel(clip.iPosition + point.iPosition),
          MapAmplitudeToPixelY(point.dValue, Rows.GetTrackYPixel(clip.iTrackIndex), TDTrackPixelMapping::GetTrackBodyHeight())};
}

int TDProjectControl::MapPixelToNearestFadePoint(int x, int y, TDClip const& clip) const {
  if (!clip.CanBePlayedBySoundPlayer()) return -1;
  TDClipFadePoints const& line = clip.GetFadeListByType(ShownFadeType(Project, clip));
  int best = -1;
  int bestAcross = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    TDPixelPoint const at = FadePointPixel(clip, line[i]);
    int const across = std::abs(at.x - x);
    if (across > 10 || std::abs(at.y - y) >= 5) continue;
    if (best < 0 || across < bestAcross) {
      best = static_cast<int>(i);
      bestAcross = across;
    }
  }
  return best;
}

bool TDProjectControl::DragFadePoint(int x, int y, TDClip& clip, int index) {
  if (clip.bLocked) return false;
  TDClipFadePoints& line = clip.GetFadeListByType(ShownFadeType(Project, clip));
  if (index < 0 || index >= static_cast<int>(line.size())) return false;
  TDClipFadePoint& point = line[static_cast<std::size_t>(index)];
  point.dValue = MapPixelYToAmplitude(y, Rows.GetTrackYPixel(clip.iTrackIndex), TDTrackPixelMapping::GetTrackBodyHeight());
  bool const end = index == 0 || index + 1 == static_cast<int>(line.size());
  if (!end) {
    LSoundTime const low = line[static_cast<std::size_t>(index - 1)].iPosition + 1;
    LSoundTime const high = line[static_cast<std::size_t>(index + 1)].iPosition - 1;
    LSoundTime const time = Mapper.MapPixelToSoundTime(x) - clip.iPosition;
    // Neighbours a millisecond apart leave no room: the time stays.
    if (low <= high) point.iPosition = std::clamp(time, low, high);
  }
  return true;
}

void TDProjectControl::ResizeEditArea(int x, int /*y*/, bool startEdge) {
  if (x < 0 || x > iWidth) return;
  TDEditRegion const r = Project.GetEditRegion();
  LSoundTime const time = std::max<LSoundTime>(0, Mapper.MapPixelToSoundTime(x));
  LSoundTime const fixed = startEdge ? r.iEnd : r.iStart;
  Project.SetEditRegion(std::min(time, fixed), std::max(time, fixed), r.iFirstTrack, r.iLastTrack);
}
