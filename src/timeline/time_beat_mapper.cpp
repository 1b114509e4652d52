#include "timeline/time_beat_mapper.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double kMsPerMinute = 60000.0;

// A list with no usable tempo plays at the project default rather than
// dividing by zero; a damaged file can hold a tempo of 0.
double Bpm(LTempoChange const& change) {
  return change.dBPM > 0.0 ? change.dBPM : TDProjectMetronomeFeature::kDefaultBPM;
}

// Milliseconds from beat a up to beat b (a <= b), piece by piece.
double MsBetween(double a, double b, std::vector<LTempoChange> const& tempos) {
  double ms = 0.0;
  double at = a;
  for (std::size_t i = 0; i < tempos.size() && at < b; ++i) {
    double const until = i + 1 < tempos.size() ? tempos[i + 1].dBeatPosition : b;
    // The first change also covers everything before it.
    if (i + 1 < tempos.size() && until <= at) continue;
    double const end = std::min(until, b);
    ms += (end - at) * kMsPerMinute / Bpm(tempos[i]);
    at = end;
  }
  return ms;
}

LSoundTime RoundMs(double ms) {
  double const rounded = std::round(ms);  // halves away from zero
  constexpr double kMax = std::numeric_limits<LSoundTime>::max();
  constexpr double kMin = std::numeric_limits<LSoundTime>::min();
  if (!(rounded > kMin)) return std::numeric_limits<LSoundTime>::min();
  if (rounded > kMax) return std::numeric_limits<LSoundTime>::max();
  return static_cast<LSoundTime>(rounded);
}

}  // namespace

LSoundTime LTimeBeatMapper::GetTimeFromBeat(double beat, std::vector<LTempoChange> const& tempos, double fromBeat,
                                            LSoundTime fromTime) {
  if (std::fabs(beat - fromBeat) < std::numeric_limits<double>::epsilon()) return fromTime;
  if (tempos.empty()) return RoundMs(fromTime + (beat - fromBeat) * kMsPerMinute / TDProjectMetronomeFeature::kDefaultBPM);
  if (tempos.size() == 1) return RoundMs(fromTime + (beat - fromBeat) * kMsPerMinute / Bpm(tempos[0]));
  double const span = MsBetween(std::min(beat, fromBeat), std::max(beat, fromBeat), tempos);
  return RoundMs(beat > fromBeat ? fromTime + span : fromTime - span);
}

double LTimeBeatMapper::GetBeatFromTime(LSoundTime time, std::vector<LTempoChange> const& tempos, LSoundTime fromTime,
                                        double fromBeat) {
  if (time == fromTime) return fromBeat;
  constexpr double kBeatsPerMs = 1.6666666666666667e-5;
  if (tempos.size() <= 1) {
    double const bpm = tempos.empty() ? TDProjectMetronomeFeature::kDefaultBPM : Bpm(tempos[0]);
    return fromBeat + (time - fromTime) * bpm * kBeatsPerMs;
  }
  double left = std::fabs(static_cast<double>(time) - fromTime);  // ms still to walk
  double beat = fromBeat;
  if (time > fromTime) {
    // Forward: the tempo holding at `beat` is the last change at or before it.
    std::size_t i = 0;
    while (i + 1 < tempos.size() && tempos[i + 1].dBeatPosition <= beat) ++i;
    for (; i < tempos.size(); ++i) {
      double const bpm = Bpm(tempos[i]);
      if (i + 1 == tempos.size()) return beat + left * bpm * kBeatsPerMs;
      double const room = (tempos[i + 1].dBeatPosition - beat) * kMsPerMinute / bpm;
      if (left <= room) return beat + left * bpm * kBeatsPerMs;
      left -= room;
      beat = tempos[i + 1].dBeatPosition;
    }
    return beat;
  }
  // Backward: the tempo holding just before `beat` is the last change before it.
  std::size_t i = tempos.size() - 1;
  while (i > 0 && tempos[i].dBeatPosition >= beat) --i;
  for (;; --i) {
    double const bpm = Bpm(tempos[i]);
    if (i == 0) return beat - left * bpm * kBeatsPerMs;
    double const room = (beat - tempos[i].dBeatPosition) * kMsPerMinute / bpm;
    if (left <= room) return beat - left * bpm * kBeatsPerMs;
    left -= room;
    beat = tempos[i].dBeatPosition;
  }
}
