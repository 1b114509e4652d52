#pragma once
#include <vector>

#include "foundation/sound_time.h"
#include "project/metronome_feature.h"

// Time and beats over a tempo list. Each change holds from its beat position to
// the next one; before the first change its tempo holds too, which is why a
// project's first change stands far before zero. Both directions work from a
// known pair (a beat and the time it falls at), so callers can measure from the
// start of the song or from any bar they already know.
class LTimeBeatMapper {
 public:
  // The time of `beat`, in whole ms rounded half away from zero.
  static LSoundTime GetTimeFromBeat(double beat, std::vector<LTempoChange> const& tempos, double fromBeat,
                                    LSoundTime fromTime);
  // The beat that falls at `time`.
  static double GetBeatFromTime(LSoundTime time, std::vector<LTempoChange> const& tempos, LSoundTime fromTime,
                                double fromBeat);
};
