#include "project/metronome_feature.h"

#include <algorithm>
#include <utility>

#include "foundation/db.h"

TDProjectMetronomeFeature::TDProjectMetronomeFeature() {
  ResetTempoChanges();
}

void TDProjectMetronomeFeature::SetMetronomeVolume(int dB) {
  iMetronomeVolume = std::clamp(dB, kMinMetronomeVolume, kMaxMetronomeVolume);
}

float TDProjectMetronomeFeature::GetMetronomeGain() const {
  return LdBAmplitudeOf(static_cast<signed char>(iMetronomeVolume));
}

void TDProjectMetronomeFeature::SetMetronomePlayingPreroll(int beats) {
  iPlayingPrerollBeats = std::max(0, beats);
}

void TDProjectMetronomeFeature::SetMetronomeRecordingPreroll(int beats) {
  iRecordingPrerollBeats = std::max(0, beats);
}

void TDProjectMetronomeFeature::SetMetronomeBoundary(std::int32_t start, std::int32_t end) {
  iBoundaryStart = start;
  iBoundaryEnd = end;
}

void TDProjectMetronomeFeature::ResetTempoChanges() {
  TempoChanges.assign(1, LTempoChange{kFirstTempoPosition, kDefaultBPM});
}

void TDProjectMetronomeFeature::SetFirstBPM(double bpm) {
  if (TempoChanges.empty())
    TempoChanges.push_back(LTempoChange{kFirstTempoPosition, bpm});
  else
    TempoChanges.front().dBPM = bpm;
}

void TDProjectMetronomeFeature::SetTempoChanges(std::vector<LTempoChange> changes) {
  if (changes.empty()) changes.push_back(LTempoChange{0.0, kDefaultBPM});
  // Stable, so that changes at one position keep the order they came in.
  std::stable_sort(changes.begin(), changes.end(),
                   [](const LTempoChange& a, const LTempoChange& b) { return a.dBeatPosition < b.dBeatPosition; });
  TempoChanges = std::move(changes);
}
