#pragma once
#include <algorithm>
#include <cstdint>
#include <vector>

#include "foundation/db.h"
#include "foundation/sound_time.h"

// Points of the volume and pan lines, both of clips (fade points) and of tracks
// (automation lines). A value lies on one scale everywhere:
//
//   volume: -1.0 silence, 0.0 unity, 1.0 the top (+12 dB);
//   pan:     0.0 centre, 1.0 fully to the first channel, -1.0 fully to the second.
//
// Below unity the scale spans 48 dB and above it 12 dB, so that the lower part of
// a line, where a fade spends its time, gets the finer resolution on screen.
//
// The members are named for the instances in use (double values, millisecond
// positions) so that code moving points between the kinds reads the same.
template <class V, class T>
struct LEnvelopePointTemplate {
  V dValue = V();
  T iPosition = T();

  friend bool operator==(LEnvelopePointTemplate const&, LEnvelopePointTemplate const&) = default;
};

using LEnvelopePoint = LEnvelopePointTemplate<double, LSoundTime>;
// A line as the automation rows hold it: sorted by position.
using LEnvelopeLine = std::vector<LEnvelopePoint>;

// A point of a volume line.
struct LEnvelopePointVol : LEnvelopePoint {
  LEnvelopePointVol() = default;
  LEnvelopePointVol(double value, LSoundTime position) : LEnvelopePoint{value, position} {}
  explicit LEnvelopePointVol(LEnvelopePoint const& p) : LEnvelopePoint(p) {}

  // The level in whole dB: exactly -1.0 is silence (-127); below unity the value
  // scales 48 dB, above it 12 dB; rounded half away from zero and held within
  // -127..127. Anything else below -1.0 is simply far down, not silence.
  LdB<signed char> GetDB() const;
};

// A point of a pan line.
struct LEnvelopePointPan : LEnvelopePoint {
  LEnvelopePointPan() = default;
  LEnvelopePointPan(double value, LSoundTime position) : LEnvelopePoint{value, position} {}
  explicit LEnvelopePointPan(LEnvelopePoint const& p) : LEnvelopePoint(p) {}

  // Two channels at 0 dB with the one the pan points away from lowered by
  // |value| x 48 dB (rounded as GetDB does): a positive value lowers the second
  // channel, a negative one the first. A full pan (exactly 1.0 or -1.0) silences
  // that side (-127) rather than leaving it 48 dB down.
  LDBMultiChannel<signed char> GetPanDB() const;
};

// Points are stored as a float value and a 32-bit position. Plain casts: the
// float keeps about seven digits, far finer than any line can be drawn.
struct LEnvPointDoubleTimeConverter {
  static float ValueToStored(double value) { return static_cast<float>(value); }
  static double ValueFromStored(float value) { return static_cast<double>(value); }
  static std::int32_t TimeToStored(LSoundTime time) { return static_cast<std::int32_t>(time); }
  static LSoundTime TimeFromStored(std::int32_t time) { return static_cast<LSoundTime>(time); }
};

// Orders points by position, keeping the order of points at the same time.
template <class List>
void LSortEnvelopePoints(List& list) {
  std::stable_sort(list.begin(), list.end(), [](auto const& a, auto const& b) { return a.iPosition < b.iPosition; });
}

// The value of a line at `position`: the straight line between the two points
// around it; the first value at or before the first point, the last value at or
// after the last; 0.0 for a line with no points. Works on any list sorted by
// position whose items have dValue and iPosition: fade points and automation
// points alike.
template <class List>
double GetAmplitudeAtPos(List const& list, LSoundTime position) {
  if (list.empty()) return 0.0;
  if (position <= list.front().iPosition) return list.front().dValue;
  if (position >= list.back().iPosition) return list.back().dValue;
  auto after =
      std::upper_bound(list.begin(), list.end(), position, [](LSoundTime t, auto const& p) { return t < p.iPosition; });
  auto before = after - 1;
  double const span = static_cast<double>(after->iPosition) - static_cast<double>(before->iPosition);
  double const into = static_cast<double>(position) - static_cast<double>(before->iPosition);
  return before->dValue + (after->dValue - before->dValue) * (into / span);
}
