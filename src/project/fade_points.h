#pragma once
#include <vector>

#include "foundation/sound_time.h"

// The two lines a clip carries with it: volume and pan. Values are on the scale of
// sound/envelope_points.h (volume: -1.0 silence, 0.0 unity, 1.0 +12 dB; pan: 0.0
// centre). The clip hands them to LSRCGainEnvelope and LSRCPanEnvelope when it
// opens its source.
enum FadeType : int {
  FadeTypeVolume = 1,
  FadeTypePan = 2,
};

struct TDClipFadePoint {
  double dValue = 0.0;
  LSoundTime iPosition = 0;  // ms from the clip's start
  FadeType iType = FadeTypeVolume;

  friend bool operator==(TDClipFadePoint const&, TDClipFadePoint const&) = default;
};

// One line, kept sorted by position (points at the same time keep their order).
using TDClipFadePoints = std::vector<TDClipFadePoint>;

// The fade points of a clip: a volume list and a pan list, each of which, once
// valid, starts with an anchor at 0 and ends with one at the clip's length.
//
// Times. Every time taken or given here is in ms from the clip's start, except
// those of TrimFadePoints and ExpandFadepoints, which are on the project's
// timeline: those two work out the clip-relative range from
// GetFadePointStartTime() and GetFadePointsLength() as they stand, so a clip
// calls them before it takes its new position and length.
//
// Pointers. A point pointer handed out here points into the vector of its type
// and stays good until that list next changes: any add, delete, sort, validation
// or other edit of that list (copying the object gives new lists, too). Hold
// times, not pointers, across edits.
//
// Order. Every operation here leaves both lists sorted. Code that edits a list
// through GetFadeListByType sorts it (SortFadePoints) before calling on anything
// that looks at neighbours or anchors.
//
// Failure. A pointer that is not in its list makes the operation do nothing.
class TDClipFadePointsList {
 public:
  // A point this close to a clip end stands for the anchor there: a short fade
  // drawn by hand at the head must not leave a second point at 0 beside it.
  static constexpr LSoundTime kAnchorReach = 100;

  TDClipFadePointsList() = default;
  TDClipFadePointsList(TDClipFadePointsList const&) = default;
  TDClipFadePointsList& operator=(TDClipFadePointsList const&) = default;
  TDClipFadePointsList(TDClipFadePointsList&&) = default;
  TDClipFadePointsList& operator=(TDClipFadePointsList&&) = default;
  virtual ~TDClipFadePointsList() = default;

  // The pan list for FadeTypePan, the volume list for anything else.
  TDClipFadePoints& GetFadeListByType(FadeType type);
  TDClipFadePoints const& GetFadeListByType(FadeType type) const;

  // A list of fewer than two points becomes two points of value 0, at 0 and at
  // the length. Both lists.
  virtual void InitFadePoints();
  // AddAnchorPoints(list, type) on both lists.
  virtual void AddAnchorPoints();
  // A point from 0 to 100 ms counts as the start anchor and one from length - 100
  // to the length as the end anchor; a missing one is added at 0 or at the length
  // with value 0. A list still short of two points (a clip under 100 ms) gets the
  // other end too.
  virtual void AddAnchorPoints(TDClipFadePoints& list, FadeType type);
  // Where the clip starts on the timeline, and its length; both in ms.
  virtual LSoundTime GetFadePointStartTime() const = 0;
  virtual LSoundTime GetFadePointsLength() const = 0;

  // Adds a copy of `point` to the list of its type, after any points at its time.
  // Returns the copy.
  TDClipFadePoint* AddFadePoint(TDClipFadePoint const& point);
  // The point at `time` (clip-relative): an existing point at exactly that time
  // as it stands, or a new one on the straight line between its neighbours. Null
  // when `time` is outside 0..length or has no point on one side of it.
  TDClipFadePoint* AddFadePointAtTime(LSoundTime time, FadeType type);
  // Removes the point, anchors included (ValidateFadePoints puts those back).
  bool DeleteFadePoint(TDClipFadePoint const* point);
  // Removes the points from start to end inclusive (clip-relative, either order),
  // sparing the first and last point of the list.
  void DeleteFadePoints(LSoundTime start, LSoundTime end, FadeType type);
  bool ContainFadePoint(TDClipFadePoint const* point) const;
  // The first or last point of its list.
  bool IsFadePointAnchor(TDClipFadePoint const* point) const;
  // The earliest point after `time`, the latest point before it (clip-relative,
  // strictly); null when there is none.
  TDClipFadePoint* GetNextFadeByTime(LSoundTime time, FadeType type);
  TDClipFadePoint* GetPreviousFadeByTime(LSoundTime time, FadeType type);
  // Both lists emptied.
  void ClearFadePoints();

  // A fade over start..end (clip-relative, clamped to the clip, either order;
  // equal times do nothing). The points inside go, then the line falls from
  // silence to unity (in) or from unity to silence (out) between a point at each
  // end: the first point of the list when the fade starts at or before it, the
  // last when it ends at or after it, otherwise a point made on the line there.
  void FadeInRegion(LSoundTime start, LSoundTime end, FadeType type);
  void FadeOutRegion(LSoundTime start, LSoundTime end, FadeType type);

  // The clip grows to start..end on the timeline, which must hold the clip as it
  // stands (otherwise nothing happens): every point moves on by the time added at
  // the head, and the last point of each list further by the time added at the
  // tail, so fades stay at the clip's ends.
  void ExpandFadepoints(LSoundTime start, LSoundTime end);
  // The clip shrinks to start..end on the timeline (either order; a range that
  // misses the clip does nothing), cut to the clip. Each list keeps the value
  // the line had at each cut (a point is made there unless one exists), loses
  // the points outside, and moves back so that the cut's start becomes 0.
  void TrimFadePoints(LSoundTime start, LSoundTime end);
  // start..end (clip-relative, held within the clip) is taken out: points are
  // made at both times, those strictly between go, later ones move back by the
  // cut's length, and AdjustRedundantFadePoints settles the two that meet.
  void CutFadePointsFromMiddle(LSoundTime start, LSoundTime end);
  // Every position of both lists times `ratio`, truncated: a clip stretched in
  // time takes its fades with it.
  void ChangeFadepointsProportional(double ratio);
  // Of two neighbours at one time the second goes when the values are equal, and
  // moves 1 ms later when they differ, so no two points of a line share a time.
  // A point that a moved one then reaches moves on behind it the same way.
  void AdjustRedundantFadePoints(FadeType type);
  // Drops points before 0 or after the length, puts missing anchors back and
  // keeps every point within 0..length. Both lists, or the list of `type`.
  void ValidateFadePoints();
  void ValidateFadePoints(FadeType type);
  // By position, keeping the order of points at the same time.
  void SortFadePoints();
  void SortFadePoints(FadeType type);

 protected:
  TDClipFadePoints vVolumeFadePoints;
  TDClipFadePoints vPanFadePoints;

 private:
  void FadeRegion(LSoundTime start, LSoundTime end, FadeType type, double startValue, double endValue);
};
