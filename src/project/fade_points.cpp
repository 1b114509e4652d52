#include "project/fade_points.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "sound/envelope_points.h"

namespace {

constexpr FadeType kBothTypes[] = {FadeTypeVolume, FadeTypePan};

// Inserts `point` after any points at or before its time and returns its index.
std::size_t InsertSorted(TDClipFadePoints& list, TDClipFadePoint const& point) {
  auto at = std::upper_bound(list.begin(), list.end(), point.iPosition,
                             [](LSoundTime t, TDClipFadePoint const& p) { return t < p.iPosition; });
  // The insert may move the storage: the index is taken from what it returns.
  auto const inserted = list.insert(at, point);
  return static_cast<std::size_t>(inserted - list.begin());
}

std::optional<std::size_t> IndexAtTime(TDClipFadePoints const& list, LSoundTime time) {
  auto it = std::find_if(list.begin(), list.end(), [time](TDClipFadePoint const& p) { return p.iPosition == time; });
  if (it == list.end()) return std::nullopt;
  return static_cast<std::size_t>(it - list.begin());
}

// The point at `time` of a sorted list: the one there, or a new one on the line,
// with neighbours on both sides; nullopt without.
std::optional<std::size_t> PointOnLine(TDClipFadePoints& list, LSoundTime time, FadeType type) {
  if (auto at = IndexAtTime(list, time)) return at;
  if (list.empty() || time < list.front().iPosition || time > list.back().iPosition) return std::nullopt;
  return InsertSorted(list, TDClipFadePoint{GetAmplitudeAtPos(list, time), time, type});
}

// The same, but past the ends the line's end value holds: where a clip is cut,
// its edge keeps the level it had there.
void EnsurePointAt(TDClipFadePoints& list, LSoundTime time, FadeType type) {
  if (IndexAtTime(list, time)) return;
  InsertSorted(list, TDClipFadePoint{GetAmplitudeAtPos(list, time), time, type});
}

// The point of `list` at that address, compared one by one: a pointer from
// elsewhere is not ordered against the list's storage.
template <class List>
auto Find(List& list, TDClipFadePoint const* point) -> decltype(list.data()) {
  for (auto& p : list) {
    if (&p == point) return &p;
  }
  return nullptr;
}

LSoundTime ScaledTime(LSoundTime t, double ratio) {
  double const scaled = static_cast<double>(t) * ratio;
  // Held to the type's range so that a wild ratio cannot make the cast undefined.
  double const lo = static_cast<double>(std::numeric_limits<LSoundTime>::min());
  double const hi = static_cast<double>(std::numeric_limits<LSoundTime>::max());
  if (std::isnan(scaled)) return t;
  return static_cast<LSoundTime>(std::clamp(scaled, lo, hi));
}

}  // namespace

TDClipFadePoints& TDClipFadePointsList::GetFadeListByType(FadeType type) {
  return type == FadeTypePan ? vPanFadePoints : vVolumeFadePoints;
}

TDClipFadePoints const& TDClipFadePointsList::GetFadeListByType(FadeType type) const {
  return type == FadeTypePan ? vPanFadePoints : vVolumeFadePoints;
}

void TDClipFadePointsList::InitFadePoints() {
  LSoundTime const length = GetFadePointsLength();
  for (FadeType type : kBothTypes) {
    TDClipFadePoints& list = GetFadeListByType(type);
    if (list.size() >= 2) continue;
    list = {TDClipFadePoint{0.0, 0, type}, TDClipFadePoint{0.0, length, type}};
  }
}

void TDClipFadePointsList::AddAnchorPoints() {
  for (FadeType type : kBothTypes) AddAnchorPoints(GetFadeListByType(type), type);
}

void TDClipFadePointsList::AddAnchorPoints(TDClipFadePoints& list, FadeType type) {
  LSoundTime const length = GetFadePointsLength();
  LSortEnvelopePoints(list);
  bool const hasStart = std::any_of(list.begin(), list.end(), [](TDClipFadePoint const& p) {
    return p.iPosition >= 0 && p.iPosition <= kAnchorReach;
  });
  bool const hasEnd = std::any_of(list.begin(), list.end(), [length](TDClipFadePoint const& p) {
    return p.iPosition >= length - kAnchorReach && p.iPosition <= length;
  });
  if (!hasStart) InsertSorted(list, TDClipFadePoint{0.0, 0, type});
  if (!hasEnd) InsertSorted(list, TDClipFadePoint{0.0, length, type});
  // In a clip shorter than the reach one point can stand for both anchors; a line
  // still needs two ends.
  if (list.size() == 1) {
    LSoundTime const other = list.front().iPosition == length ? 0 : length;
    InsertSorted(list, TDClipFadePoint{0.0, other, type});
  }
}

TDClipFadePoint* TDClipFadePointsList::AddFadePoint(TDClipFadePoint const& point) {
  TDClipFadePoints& list = GetFadeListByType(point.iType);
  LSortEnvelopePoints(list);
  return &list[InsertSorted(list, point)];
}

TDClipFadePoint* TDClipFadePointsList::AddFadePointAtTime(LSoundTime time, FadeType type) {
  if (time < 0 || time > GetFadePointsLength()) return nullptr;
  TDClipFadePoints& list = GetFadeListByType(type);
  LSortEnvelopePoints(list);
  std::optional<std::size_t> const at = PointOnLine(list, time, type);
  return at ? &list[*at] : nullptr;
}

bool TDClipFadePointsList::DeleteFadePoint(TDClipFadePoint const* point) {
  for (FadeType type : kBothTypes) {
    TDClipFadePoints& list = GetFadeListByType(type);
    if (TDClipFadePoint* p = Find(list, point)) {
      list.erase(list.begin() + (p - list.data()));
      return true;
    }
  }
  return false;
}

void TDClipFadePointsList::DeleteFadePoints(LSoundTime start, LSoundTime end, FadeType type) {
  if (start > end) std::swap(start, end);
  TDClipFadePoints& list = GetFadeListByType(type);
  LSortEnvelopePoints(list);
  if (list.size() <= 2) return;
  auto inside = [&](TDClipFadePoint const& p) { return p.iPosition >= start && p.iPosition <= end; };
  list.erase(std::remove_if(list.begin() + 1, list.end() - 1, inside), list.end() - 1);
}

bool TDClipFadePointsList::ContainFadePoint(TDClipFadePoint const* point) const {
  return Find(vVolumeFadePoints, point) != nullptr || Find(vPanFadePoints, point) != nullptr;
}

bool TDClipFadePointsList::IsFadePointAnchor(TDClipFadePoint const* point) const {
  for (FadeType type : kBothTypes) {
    TDClipFadePoints const& list = GetFadeListByType(type);
    if (!list.empty() && (point == &list.front() || point == &list.back())) return true;
  }
  return false;
}

TDClipFadePoint* TDClipFadePointsList::GetNextFadeByTime(LSoundTime time, FadeType type) {
  TDClipFadePoint* best = nullptr;
  for (TDClipFadePoint& p : GetFadeListByType(type)) {
    if (p.iPosition > time && (best == nullptr || p.iPosition < best->iPosition)) best = &p;
  }
  return best;
}

TDClipFadePoint* TDClipFadePointsList::GetPreviousFadeByTime(LSoundTime time, FadeType type) {
  TDClipFadePoint* best = nullptr;
  for (TDClipFadePoint& p : GetFadeListByType(type)) {
    if (p.iPosition < time && (best == nullptr || p.iPosition >= best->iPosition)) best = &p;
  }
  return best;
}

void TDClipFadePointsList::ClearFadePoints() {
  vVolumeFadePoints.clear();
  vPanFadePoints.clear();
}

void TDClipFadePointsList::FadeInRegion(LSoundTime start, LSoundTime end, FadeType type) {
  FadeRegion(start, end, type, -1.0, 0.0);
}

void TDClipFadePointsList::FadeOutRegion(LSoundTime start, LSoundTime end, FadeType type) {
  FadeRegion(start, end, type, 0.0, -1.0);
}

void TDClipFadePointsList::FadeRegion(LSoundTime start, LSoundTime end, FadeType type, double startValue,
                                      double endValue) {
  LSoundTime const length = GetFadePointsLength();
  start = std::clamp(start, LSoundTime(0), std::max(length, LSoundTime(0)));
  end = std::clamp(end, LSoundTime(0), std::max(length, LSoundTime(0)));
  if (start == end) return;
  if (start > end) std::swap(start, end);
  TDClipFadePoints& list = GetFadeListByType(type);
  LSortEnvelopePoints(list);
  if (list.size() < 2) AddAnchorPoints(list, type);
  DeleteFadePoints(start, end, type);

  // The ends of the list serve when the fade reaches them, which also covers an
  // anchor that stands a little inside the clip.
  std::optional<std::size_t> const first =
      start <= list.front().iPosition ? std::optional<std::size_t>(0) : PointOnLine(list, start, type);
  std::optional<std::size_t> const last =
      end >= list.back().iPosition ? std::optional<std::size_t>(list.size() - 1) : PointOnLine(list, end, type);
  // The point at the end is made after the one at the start and lies later, so
  // the start's index still holds.
  if (first) list[*first].dValue = startValue;
  if (last) list[*last].dValue = endValue;
}

void TDClipFadePointsList::ExpandFadepoints(LSoundTime start, LSoundTime end) {
  if (start > end) std::swap(start, end);
  LSoundTime const clipStart = GetFadePointStartTime();
  LSoundTime const clipEnd = clipStart + GetFadePointsLength();
  if (start > clipStart || end < clipEnd) return;
  LSoundTime const head = clipStart - start;
  LSoundTime const tail = end - clipEnd;
  for (FadeType type : kBothTypes) {
    TDClipFadePoints& list = GetFadeListByType(type);
    LSortEnvelopePoints(list);
    for (TDClipFadePoint& p : list) p.iPosition += head;
    if (!list.empty()) list.back().iPosition += tail;
  }
}

void TDClipFadePointsList::TrimFadePoints(LSoundTime start, LSoundTime end) {
  if (start > end) std::swap(start, end);
  LSoundTime const clipStart = GetFadePointStartTime();
  LSoundTime const length = GetFadePointsLength();
  if (end <= clipStart || start >= clipStart + length) return;
  LSoundTime const from = std::clamp(start - clipStart, LSoundTime(0), length);
  LSoundTime const to = std::clamp(end - clipStart, LSoundTime(0), length);
  for (FadeType type : kBothTypes) {
    TDClipFadePoints& list = GetFadeListByType(type);
    LSortEnvelopePoints(list);
    if (list.empty()) continue;
    if (from > 0) EnsurePointAt(list, from, type);
    if (to < length) EnsurePointAt(list, to, type);
    std::erase_if(list, [&](TDClipFadePoint const& p) { return p.iPosition < from || p.iPosition > to; });
    for (TDClipFadePoint& p : list) p.iPosition -= from;
  }
}

void TDClipFadePointsList::CutFadePointsFromMiddle(LSoundTime start, LSoundTime end) {
  if (start > end) std::swap(start, end);
  start = std::max(start, LSoundTime(0));
  end = std::min(end, GetFadePointsLength());
  if (start >= end) return;
  LSoundTime const cut = end - start;
  for (FadeType type : kBothTypes) {
    TDClipFadePoints& list = GetFadeListByType(type);
    LSortEnvelopePoints(list);
    if (list.empty()) continue;
    EnsurePointAt(list, start, type);
    EnsurePointAt(list, end, type);
    std::erase_if(list, [&](TDClipFadePoint const& p) { return p.iPosition > start && p.iPosition < end; });
    for (TDClipFadePoint& p : list) {
      if (p.iPosition >= end) p.iPosition -= cut;
    }
    AdjustRedundantFadePoints(type);
  }
}

void TDClipFadePointsList::ChangeFadepointsProportional(double ratio) {
  for (FadeType type : kBothTypes) {
    for (TDClipFadePoint& p : GetFadeListByType(type)) p.iPosition = ScaledTime(p.iPosition, ratio);
  }
}

void TDClipFadePointsList::AdjustRedundantFadePoints(FadeType type) {
  TDClipFadePoints& list = GetFadeListByType(type);
  LSortEnvelopePoints(list);
  std::size_t i = 1;
  while (i < list.size()) {
    TDClipFadePoint const& before = list[i - 1];
    TDClipFadePoint& p = list[i];
    if (p.iPosition > before.iPosition) {
      ++i;
    } else if (p.dValue == before.dValue) {
      list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
    } else {
      // A step: the later value starts a millisecond on. A point the step now
      // reaches moves on behind it in turn, so the values keep their order.
      p.iPosition = before.iPosition + 1;
      ++i;
    }
  }
}

void TDClipFadePointsList::ValidateFadePoints() {
  for (FadeType type : kBothTypes) ValidateFadePoints(type);
}

void TDClipFadePointsList::ValidateFadePoints(FadeType type) {
  LSoundTime const length = GetFadePointsLength();
  TDClipFadePoints& list = GetFadeListByType(type);
  std::erase_if(list, [length](TDClipFadePoint const& p) { return p.iPosition < 0 || p.iPosition > length; });
  AddAnchorPoints(list, type);
  for (TDClipFadePoint& p : list) p.iPosition = std::clamp(p.iPosition, LSoundTime(0), std::max(length, LSoundTime(0)));
  LSortEnvelopePoints(list);
}

void TDClipFadePointsList::SortFadePoints() {
  for (FadeType type : kBothTypes) SortFadePoints(type);
}

void TDClipFadePointsList::SortFadePoints(FadeType type) {
  LSortEnvelopePoints(GetFadeListByType(type));
}
