#pragma once
#include <vector>

#include "foundation/sound_time.h"

// A line held between two fixed ends, as effect editors draw one over a stretch
// of sound: the anchors at start and end are always there, hold value 0 when
// made, and never move; the points between them keep strictly inside and never
// share a time, so the line is a function of time with a value everywhere
// between the anchors.
//
// A point pointer handed out here stays good until the next add or delete.
struct TDAnchorEnvelopePoint {
  LSoundTime iPosition = 0;
  double dValue = 0.0;

  friend bool operator==(TDAnchorEnvelopePoint const&, TDAnchorEnvelopePoint const&) = default;
};

class TDAnchorEnvelopePointLine {
 public:
  // Given the wrong way round, the two ends are swapped.
  TDAnchorEnvelopePointLine(LSoundTime start, LSoundTime end);

  // A new inner point; null for a time at or beyond an anchor or one that
  // already holds a point.
  TDAnchorEnvelopePoint* AddEnvelopePoint(LSoundTime position, double value);
  // Inner points only: the anchors stay.
  bool DeleteEnvelopePoint(TDAnchorEnvelopePoint const* point);
  // An anchor takes the value and keeps its time; an inner point is held a
  // millisecond clear of each neighbour, so it can't pass one.
  bool ModifyEnvelopePoint(TDAnchorEnvelopePoint* point, LSoundTime position, double value);
  // The straight line between the points around `position`; 0.0 outside the
  // anchors.
  double GetAmplitude(LSoundTime position) const;

  TDAnchorEnvelopePoint* FindEnvelopePoint(LSoundTime position);
  // The latest point before `position`, the earliest after it (strictly).
  TDAnchorEnvelopePoint* FindEnvelopePointBefore(LSoundTime position);
  TDAnchorEnvelopePoint* FindEnvelopePointAfter(LSoundTime position);
  TDAnchorEnvelopePoint* GetStartAnchorPoint() { return &vPoints.front(); }
  TDAnchorEnvelopePoint* GetEndAnchorPoint() { return &vPoints.back(); }
  // Anchors included.
  int GetEnvelopePointsCount() const { return static_cast<int>(vPoints.size()); }
  // In time order, from the start anchor to the end anchor.
  std::vector<TDAnchorEnvelopePoint> const& GetEnvelopePointsList() const { return vPoints; }

 private:
  // Index of `point` in the list, or -1.
  int IndexOf(TDAnchorEnvelopePoint const* point) const;

  std::vector<TDAnchorEnvelopePoint> vPoints;
};
